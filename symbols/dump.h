// Dumps of the symbol records, for a developer inspecting the op space under a debugger. No
// option of tavcmp reaches them.
//
// Each record dump prints every member of the record, in the order of its rows, one per line
// as "<member> = <value>" (each line ends with "\n\r"),
// flushes, and remembers the record's next link: calling it again without an offset dumps the
// next record of the chain. An offset outside the allocated op space (the end of a chain
// included) prints nothing and returns false.
//
// The run-time object table, which holds an object's file handle, current index and flags,
// exists only in the interpreter; the object dump ends with o_fd and o_index as -1 and o_flags
// as 0x0.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string_view>

#include "codegen/record_rows.h"

namespace tav {

class OpSpace;

class SymbolDump {
 public:
  explicit SymbolDump(const OpSpace& ops, FILE* out = stdout) : ops_(ops), out_(out) {}

  void set_output(FILE* out) { out_ = out; }

  bool header();
  bool screen(std::optional<uint32_t> off = std::nullopt);
  bool field(std::optional<uint32_t> off = std::nullopt);
  bool object(std::optional<uint32_t> off = std::nullopt);
  bool field_object_link(std::optional<uint32_t> off = std::nullopt);
  bool field_list(std::optional<uint32_t> off = std::nullopt);
  bool help_field_list(std::optional<uint32_t> off = std::nullopt);

  // Small helpers on an op-space offset: a 16-, 24- or 32-bit big-endian value as
  // "0x%x (%u)\r\n" (the 24-bit one then also the text it links to); the next four bytes, each as
  // the character when printable and as hexadecimal otherwise; a 32-bit word, refused when the
  // offset is not a multiple of 4.
  void value16(uint32_t off);
  void value24(uint32_t off);
  void value32(uint32_t off);
  void bytes4(uint32_t off);
  void word(uint32_t off);

 private:
  bool valid(uint32_t off, uint32_t size) const;
  uint32_t pick(std::optional<uint32_t> off, uint32_t next) const;
  const char* text(uint32_t link) const;
  void line(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
  uint32_t value(uint32_t off, uint32_t width) const;
  void member(const MemberRow& m, uint32_t rec);
  template <size_t M>
  uint32_t record(const MemberRow (&rows)[M], std::string_view name, uint32_t rec, uint32_t next_member);

  const OpSpace& ops_;
  FILE* out_;
  // The remembered next link of each chain.
  uint32_t screen_ = 0, field_ = 0, object_ = 0, folink_ = 0, flist_ = 0, hflist_ = 0;
};

}  // namespace tav
