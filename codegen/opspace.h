// The op space, the data area and the text item table: the three stores of a compiled program,
// and the op builder that lays ops out in the op space.
//
// Each store is one block obtained on first use and kept for the run; allocation moves a break,
// nothing is freed piecemeal, and setbss/dsetbss give everything back by moving the break. The
// program's optable_header is the first record of the op space and the data base the first two
// bytes of the data area, so an offset from the block start is the offset written to the file.
// Records are byte-packed and big-endian (codegen/bytes.h); offset 0 means "none".
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "codegen/bytes.h"
#include "codegen/op_records.h"
#include "codegen/ops.h"

namespace tav {

class Diagnostics;

inline constexpr uint32_t kOpSpaceSize = 4194304;
inline constexpr uint32_t kDataAreaSize = 262144;
inline constexpr int kMaxTextItems = 65534;
inline constexpr int kMaxLevels = 200;


class OpSpace {
 public:
  explicit OpSpace(Diagnostics& diag) : diag_(diag) {}

  uint32_t alloc(uint32_t n);                        // zero-filled; FATAL when it does not fit
  uint32_t copy_in(const void* src, uint32_t n);     // allocate and copy
  uint32_t store_text(std::string_view text);        // the text and a terminating NUL
  // Takes the value of the 16-bit counter at `at` and increases it; a program that would make
  // it wrap is abandoned (FATAL) with `what` as the context: the records it numbers would clash.
  uint32_t next_count(uint32_t at, std::string_view what);
  void setbss(uint32_t brk);                          // release everything after brk (0: all)
  uint32_t brk() const { return brk_; }

  uint8_t* at(uint32_t off) { return block_.get() + off; }
  const uint8_t* at(uint32_t off) const { return block_.get() + off; }
  const char* text_at(uint32_t off) const { return reinterpret_cast<const char*>(at(off)); }
  uint32_t get16(uint32_t off) const { return tav::get16(at(off)); }
  uint32_t get24(uint32_t off) const { return tav::get24(at(off)); }
  uint32_t get32(uint32_t off) const { return tav::get32(at(off)); }
  void put16(uint32_t off, uint32_t v) { tav::put16(at(off), v); }
  void put24(uint32_t off, uint32_t v) { tav::put24(at(off), v); }
  void put32(uint32_t off, uint32_t v) { tav::put32(at(off), v); }
  Op opcode(uint32_t op) const { return Op{*at(op + kOpcodeByte)}; }
  void set_opcode(uint32_t op, Op code) { *at(op + kOpcodeByte) = op_byte(code); }

 private:
  Diagnostics& diag_;
  std::unique_ptr<uint8_t[]> block_;
  uint32_t brk_ = 0;
};

// Appends record `entry` to a list kept by its head and tail, linked through the member at
// `next` of each entry.
inline void append_to_list(OpSpace& ops, uint32_t& head, uint32_t& tail, uint32_t entry, uint32_t next) {
  if (tail != 0)
    ops.put24(tail + next, entry);
  else
    head = entry;
  tail = entry;
}

class DataArea {
 public:
  explicit DataArea(Diagnostics& diag) : diag_(diag) {}

  uint32_t alloc(uint32_t n);  // even sizes start at a multiple of 4; FATAL when it does not fit
  uint32_t copy_in(const void* src, uint32_t n);
  uint32_t store_text(std::string_view text);
  void dsetbss(uint32_t brk);
  uint32_t brk() const { return brk_; }
  uint8_t* at(uint32_t off) { return block_.get() + off; }
  const uint8_t* at(uint32_t off) const { return block_.get() + off; }

 private:
  Diagnostics& diag_;
  std::unique_ptr<uint8_t[]> block_;
  uint32_t brk_ = 0;
};

// The table of literal texts: entries numbered from 1, each {kind, length, op-space offset}.
class TextItems {
 public:
  static constexpr uint32_t kEntrySize = textent::size;

  TextItems(OpSpace& ops, Diagnostics& diag) : ops_(ops), diag_(diag) {}

  // Appends an item; a length below 1 takes the text's own length. Returns the item number.
  int add(uint32_t text_off, char kind, int length);
  int add_string(std::string_view text, char kind);
  uint32_t offset(int item) const;
  int count() const { return count_; }
  void set_count(int count) { count_ = count; }
  bool used() const { return table_ != nullptr; }  // any item added during the run
  const uint8_t* entry(int item) const { return table_.get() + item * kEntrySize; }

 private:
  OpSpace& ops_;
  Diagnostics& diag_;
  std::unique_ptr<uint8_t[]> table_;
  int count_ = 0;
};

// One open op list.
struct OpLevel {
  uint32_t head = 0;
  uint32_t tail = 0;
  uint32_t pending = 0;    // latest comparison or junction without a parent (expressions)
  int operator_mark = 0;   // operator stack depth when the level was opened
  uint32_t expr_flags = 0; // expression compiler flags of this level
};

class OpBuilder {
 public:
  OpBuilder(OpSpace& ops, TextItems& texts, Diagnostics& diag) : ops_(ops), texts_(texts), diag_(diag) {}

  void set_debug_ops(bool on) { debug_ops_ = on; }
  bool debug_ops() const { return debug_ops_; }

  // Per program: no level open, no statement marker yet.
  void start_program();

  uint32_t emit(Op opcode);  // appends to the current level's list; returns the new op
  uint32_t current() const { return current_; }
  void set_current(uint32_t op) { current_ = op; }

  void open_level();   // FATAL message 28 past 200 levels
  void close_level();  // restores the operator stack depth to the level's mark
  int level() const { return level_; }
  void set_level(int level) { level_ = level; }  // -1 outside every list; 0 restarts the part list
  OpLevel& top() { return levels_[static_cast<size_t>(level_)]; }
  OpLevel& at_level(int level) { return levels_[static_cast<size_t>(level)]; }
  void reset_level(int level) {
    levels_[static_cast<size_t>(level)] = OpLevel{};
    levels_[static_cast<size_t>(level)].operator_mark = op_stack_depth;
  }

  void emit_statement_marker(uint32_t verb_code);  // debug compiles only
  void clear_marker_chain() { last_marker_ = 0; }

  // Turns an alpha literal op (text offset in bytes 4-6, length in 7-8) into a text item
  // reference (item number in bytes 4-5, Op::text_item).
  void make_text_item_op(uint32_t op, char kind);

  // Depth of the expression compiler's operator stack; levels remember and restore it.
  int op_stack_depth = -1;

  const std::array<uint32_t, 255>& stats() const { return stats_; }
  void clear_stats() { stats_.fill(0); }

  OpSpace& ops() { return ops_; }
  TextItems& texts() { return texts_; }

 private:
  OpSpace& ops_;
  TextItems& texts_;
  Diagnostics& diag_;
  bool debug_ops_ = false;
  std::array<OpLevel, kMaxLevels> levels_{};
  int level_ = -1;
  uint32_t current_ = 0;
  uint32_t last_marker_ = 0;
  std::array<uint32_t, 255> stats_{};
};

}  // namespace tav
