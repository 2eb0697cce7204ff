#include "codegen/opspace.h"

#include <cstring>
#include <new>

#include "codegen/op_records.h"
#include "diag/diag.h"

namespace tav {

namespace {

constexpr uint32_t kDebugFunctionCallSize = 12;
constexpr uint32_t kUnlistedOpSize = 12;  // every opcode past the last row of ops.def
constexpr uint32_t kMaxTextLength = 255;  // longer texts are entered with length 0

struct OpRow {
  const char* name;
  uint8_t size;
};

constexpr OpRow kOpRows[] = {
#define TAV_OP(id, code, name, size) {name, size},
#include "codegen/ops.def"
};
constexpr size_t kOpRowCount = sizeof kOpRows / sizeof kOpRows[0];

// ops.def must list the opcodes in order from 0 without gaps, as the rows are indexed by opcode.
constexpr bool rows_in_order() {
  size_t expect = 0;
#define TAV_OP(id, code, name, size) \
  if ((code) != expect++) return false;
#include "codegen/ops.def"
  return expect == kOpRowCount;
}
static_assert(rows_in_order(), "ops.def rows must run 0, 1, 2, ... without gaps");
static_assert(kOpRowCount < 256);

// An operand layout named after an op covers that op; a layout several ops share is as long as the
// longest of them (literal and date-literal, do and do-parameters, the call in debug compiles).
constexpr bool layouts_cover_ops() {
  for (const RecordRow& layout : op_rows::kRecords) {
    for (const OpRow& op : kOpRows)
      if (layout.title == op.name && layout.size < op.size) return false;
  }
  return true;
}
static_assert(layouts_cover_ops(), "op_records.def: a layout is shorter than its op");

// "op-<n>" for every opcode, built at compile time, for the opcodes without a name.
using OpLabel = std::array<char, 8>;
constexpr std::array<OpLabel, 256> make_op_labels() {
  std::array<OpLabel, 256> labels{};
  for (size_t n = 0; n < labels.size(); ++n) {
    OpLabel& l = labels[n];
    size_t i = 0;
    l[i++] = 'o';
    l[i++] = 'p';
    l[i++] = '-';
    if (n >= 100) l[i++] = static_cast<char>('0' + n / 100);
    if (n >= 10) l[i++] = static_cast<char>('0' + n / 10 % 10);
    l[i++] = static_cast<char>('0' + n % 10);
    l[i] = '\0';
  }
  return labels;
}
constexpr std::array<OpLabel, 256> kOpLabels = make_op_labels();

// Obtains a store's block the first time it is needed; it is kept for the run and never zeroed
// as a whole (every allocation zeroes its own bytes).
void obtain_block(std::unique_ptr<uint8_t[]>& block, uint32_t size, Diagnostics& diag,
                  txt::Text failure) {
  if (block) return;
  block.reset(new (std::nothrow) uint8_t[size]);
  if (!block) diag.fatal_text(failure);
}

// Moves a break back: the new break must not lie past the old one nor outside the block.
void move_break_back(uint32_t& brk, uint32_t p, uint32_t size, Diagnostics& diag,
                     txt::Text past_break, txt::Text outside) {
  if (p > brk) diag.fatal_text(past_break);
  if (p > size) diag.fatal_text(outside);
  brk = p;
}

}  // namespace

uint32_t op_size(Op op, bool debug_ops) {
  if (op == Op::function_call && debug_ops) return kDebugFunctionCallSize;
  if (op_byte(op) >= kOpRowCount) return kUnlistedOpSize;
  return kOpRows[op_byte(op)].size;
}

const char* op_name(Op op) {
  const uint8_t n = op_byte(op);
  if (n < kOpRowCount && kOpRows[n].name[0] != '\0') return kOpRows[n].name;
  return kOpLabels[n].data();
}

// ---- op space ----

uint32_t OpSpace::alloc(uint32_t n) {
  obtain_block(block_, kOpSpaceSize, diag_, txt::no_memory_op_space);
  if (n > kOpSpaceSize - brk_) diag_.fatal_text(txt::op_space_exhausted);
  const uint32_t off = brk_;
  brk_ += n;
  std::memset(at(off), 0, n);
  return off;
}

uint32_t OpSpace::copy_in(const void* src, uint32_t n) {
  const uint32_t off = alloc(n);
  if (n > 0) std::memcpy(at(off), src, n);
  return off;
}

uint32_t OpSpace::store_text(std::string_view text) {
  const auto n = static_cast<uint32_t>(text.size());
  const uint32_t off = alloc(n + 1);  // the terminator is already zero
  if (n > 0) std::memcpy(at(off), text.data(), n);
  return off;
}

uint32_t OpSpace::next_count(uint32_t at, std::string_view what) {
  const uint32_t n = get16(at);
  if (n == 0xffff) diag_.fatal_text(txt::too_many_in_program, what);
  put16(at, n + 1);
  return n;
}

void OpSpace::setbss(uint32_t p) {
  move_break_back(brk_, p, kOpSpaceSize, diag_, txt::setbss_past_break, txt::setbss_outside_table);
}

// ---- data area ----

uint32_t DataArea::alloc(uint32_t n) {
  obtain_block(block_, kDataAreaSize, diag_, txt::no_memory_data_area);
  // Even-sized items start at a multiple of 4; odd-sized ones are packed wherever the break is.
  uint32_t off = brk_;
  if (n % 2 == 0) {
    if (off % 2 != 0) off += 1;
    if (off % 4 != 0) off += 2;
  }
  if (n > kDataAreaSize - off) diag_.fatal_text(txt::data_area_exhausted);
  // The alignment gap is zeroed too: it is written to the table with the rest.
  std::memset(at(brk_), 0, off + n - brk_);
  brk_ = off + n;
  return off;
}

uint32_t DataArea::copy_in(const void* src, uint32_t n) {
  const uint32_t off = alloc(n);
  if (n > 0) std::memcpy(at(off), src, n);
  return off;
}

uint32_t DataArea::store_text(std::string_view text) {
  const auto n = static_cast<uint32_t>(text.size());
  const uint32_t off = alloc(n + 1);
  if (n > 0) std::memcpy(at(off), text.data(), n);
  return off;
}

void DataArea::dsetbss(uint32_t p) {
  move_break_back(brk_, p, kDataAreaSize, diag_, txt::dsetbss_past_break, txt::dsetbss_outside_table);
}

// ---- text items ----

int TextItems::add(uint32_t text_off, char kind, int length) {
  if (!table_) {
    // Room for entry 0, which stays all zero, and the items 1 to kMaxTextItems.
    constexpr size_t bytes = (static_cast<size_t>(kMaxTextItems) + 1) * kEntrySize;
    table_.reset(new (std::nothrow) uint8_t[bytes]());
    if (!table_) diag_.fatal_text(txt::no_memory_text_items);
  }
  if (count_ + 1 > kMaxTextItems) diag_.fatal_text(txt::text_items_exhausted);
  ++count_;
  const uint32_t len = length >= 1 ? static_cast<uint32_t>(length)
                                   : static_cast<uint32_t>(std::strlen(ops_.text_at(text_off)));
  uint8_t* e = table_.get() + static_cast<size_t>(count_) * kEntrySize;
  e[textent::te_kind] = static_cast<uint8_t>(kind);
  e[textent::te_length] = static_cast<uint8_t>(len > kMaxTextLength ? 0 : len);
  put24(e + textent::te_text, text_off);
  return count_;
}

int TextItems::add_string(std::string_view text, char kind) {
  return add(ops_.store_text(text), kind, 0);
}

uint32_t TextItems::offset(int n) const {
  if (!table_ || n < 1 || n > count_) return 0;
  return get24(entry(n) + textent::te_text);
}

// ---- op builder ----

void OpBuilder::start_program() {
  level_ = -1;
  current_ = 0;
  last_marker_ = 0;
}

uint32_t OpBuilder::emit(Op opcode) {
  if (op_byte(opcode) < stats_.size()) ++stats_[op_byte(opcode)];
  // Outside every list (level -1) an op is made but linked to nothing; the caller places it.
  OpLevel* lv = level_ >= 0 ? &top() : nullptr;
  // The placeholder only stands in for an empty list; a list with ops keeps them as they are.
  if (opcode == Op::placeholder && lv != nullptr && lv->head != 0) return 0;
  const uint32_t off = ops_.alloc(op_size(opcode, debug_ops_));
  ops_.set_opcode(off, opcode);
  if (lv != nullptr) {
    if (lv->head == 0)
      lv->head = off;
    else
      ops_.put24(lv->tail + kOpLink, off);
    lv->tail = off;
  }
  current_ = off;
  return off;
}

void OpBuilder::open_level() {
  if (level_ + 1 >= kMaxLevels) diag_.fatal(msg::too_many_nested_procedures);
  ++level_;
  reset_level(level_);
}

void OpBuilder::close_level() {
  if (level_ < 0) return;
  op_stack_depth = top().operator_mark;
  --level_;
}

void OpBuilder::emit_statement_marker(uint32_t verb_code) {
  if (!debug_ops_) return;
  const uint32_t m = emit(Op::statement_marker);
  const uint32_t verb = ops_.alloc(4);
  ops_.put32(verb, verb_code);
  ops_.put24(m + marker::mk_verb, verb);
  if (last_marker_ != 0) {
    ops_.put24(m + marker::mk_prev, last_marker_);
    ops_.put24(last_marker_ + marker::mk_next, m);
  }
  last_marker_ = m;
}

void OpBuilder::make_text_item_op(uint32_t op_off, char kind) {
  const uint32_t text = ops_.get24(op_off + literal::lit_text);
  const auto length = static_cast<int>(ops_.get16(op_off + literal::lit_length));
  const int n = texts_.add(text, kind, length);
  ops_.put16(op_off + textitem::ti_item, static_cast<uint32_t>(n));
  ops_.set_opcode(op_off, Op::text_item);
}

}  // namespace tav
