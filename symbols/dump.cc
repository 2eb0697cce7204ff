#include "symbols/dump.h"

#include <cstdarg>
#include <cstring>
#include <string>
#include <string_view>

#include "codegen/header.h"
#include "codegen/opspace.h"
#include "symbols/records.h"

namespace tav {

bool SymbolDump::valid(uint32_t off, uint32_t size) const {
  return off + size <= ops_.brk() && off + size > off;
}

uint32_t SymbolDump::pick(std::optional<uint32_t> off, uint32_t next) const {
  return off ? *off : next;
}

// The NUL-terminated text a link points to; "" for no link or one that leaves the op space.
const char* SymbolDump::text(uint32_t link) const {
  if (link == 0 || link >= ops_.brk()) return "";
  const char* p = ops_.text_at(link);
  return std::memchr(p, 0, ops_.brk() - link) ? p : "";
}

void SymbolDump::line(const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  std::vfprintf(out_, fmt, ap);
  va_end(ap);
  std::fputs("\n\r", out_);
}

uint32_t SymbolDump::value(uint32_t off, uint32_t width) const {
  uint32_t v = 0;
  for (uint32_t i = 0; i < width && i < 4; ++i) v = v << 8 | *ops_.at(off + i);
  return v;
}

void SymbolDump::member(const MemberRow& m, uint32_t rec) {
  const std::string name(m.name);
  if (m.width == 6) {  // a position or a colour pair: two 24-bit operand values
    line("%s = 0x%x, 0x%x", name.c_str(), ops_.get24(rec + m.offset), ops_.get24(rec + m.offset + 3));
    return;
  }
  const uint32_t v = value(rec + m.offset, m.width);
  switch (member_kind(m)) {
    case MemberKind::text: line("%s = '%s'", name.c_str(), text(v)); break;
    case MemberKind::link: line("%s = 0x%x (%u)", name.c_str(), v, v); break;
    case MemberKind::signed_word: line("%s = %d", name.c_str(), static_cast<int>(static_cast<int16_t>(v))); break;
    case MemberKind::character: line("%s = '%c' (0x%x)", name.c_str(), static_cast<int>(v), v); break;
    case MemberKind::hex: line("%s = 0x%x", name.c_str(), v); break;
    case MemberKind::decimal: line("%s = %u", name.c_str(), v); break;
  }
}

// Every member of the record at `rec`, in row order; then the link to the next record.
template <size_t M>
uint32_t SymbolDump::record(const MemberRow (&rows)[M], std::string_view name, uint32_t rec,
                            uint32_t next_member) {
  for_each_member(rows, name, [&](const MemberRow& m) { member(m, rec); });
  std::fflush(out_);
  return ops_.get24(rec + next_member);
}

bool SymbolDump::header() {
  if (!valid(0, hdr::size)) return false;
  record(header_rows::kMembers, "hdr", 0, hdr::h_screens);
  return true;
}

bool SymbolDump::screen(std::optional<uint32_t> off) {
  const uint32_t s = pick(off, screen_);
  if (s == 0 || !valid(s, ssym::size)) return false;
  screen_ = record(symbol_rows::kMembers, "ssym", s, ssym::s_next);
  return true;
}

bool SymbolDump::field(std::optional<uint32_t> off) {
  const uint32_t f = pick(off, field_);
  if (f == 0 || !valid(f, fsym::size)) return false;
  field_ = record(symbol_rows::kMembers, "fsym", f, fsym::f_next);
  return true;
}

bool SymbolDump::object(std::optional<uint32_t> off) {
  const uint32_t o = pick(off, object_);
  if (o == 0 || !valid(o, osym::size)) return false;
  object_ = record(symbol_rows::kMembers, "osym", o, osym::o_next);
  // The compiler has no run-time object table: no file handle, no index, no flags.
  line("o_fd = %d", -1);
  line("o_index = %d", -1);
  line("o_flags = 0x%x", 0u);
  std::fflush(out_);
  return true;
}

bool SymbolDump::field_object_link(std::optional<uint32_t> off) {
  const uint32_t l = pick(off, folink_);
  if (l == 0 || !valid(l, folink::size)) return false;
  folink_ = record(symbol_rows::kMembers, "folink", l, folink::fo_fldobj);
  return true;
}

bool SymbolDump::field_list(std::optional<uint32_t> off) {
  const uint32_t n = pick(off, flist_);
  if (n == 0 || !valid(n, flist::size)) return false;
  flist_ = record(symbol_rows::kMembers, "flist", n, flist::fl_next);
  return true;
}

bool SymbolDump::help_field_list(std::optional<uint32_t> off) {
  const uint32_t n = pick(off, hflist_);
  if (n == 0 || !valid(n, hflist::size)) return false;
  hflist_ = record(symbol_rows::kMembers, "hflist", n, hflist::hfl_next);
  return true;
}

void SymbolDump::value16(uint32_t off) {
  if (!valid(off, 2)) return;
  const uint32_t v = ops_.get16(off);
  std::fprintf(out_, "0x%x (%u)\r\n", v, v);
  std::fflush(out_);
}

void SymbolDump::value24(uint32_t off) {
  if (!valid(off, 3)) return;
  const uint32_t v = ops_.get24(off);
  std::fprintf(out_, "0x%x (%u)\r\n", v, v);
  std::fprintf(out_, "0x%lx '%s'\r\n", static_cast<unsigned long>(v), text(v));
  std::fflush(out_);
}

void SymbolDump::value32(uint32_t off) {
  if (!valid(off, 4)) return;
  const uint32_t v = ops_.get32(off);
  std::fprintf(out_, "0x%x (%u)\r\n", v, v);
  std::fflush(out_);
}

void SymbolDump::bytes4(uint32_t off) {
  if (!valid(off, 4)) return;
  for (uint32_t i = 0; i < 4; ++i) {
    const unsigned c = *ops_.at(off + i);
    if (c >= '!' && c <= '~') {
      std::fprintf(out_, "%c ", static_cast<int>(c));
    } else {
      std::fprintf(out_, "0x%x ", c);
    }
  }
  std::fflush(out_);
}

void SymbolDump::word(uint32_t off) {
  if (off % 4 != 0) {
    std::fputs("Address not on a long boundary\r\n", out_);
  } else if (valid(off, 4)) {
    std::fprintf(out_, "0x%lx", static_cast<unsigned long>(ops_.get32(off)));
  }
  std::fflush(out_);
}

}  // namespace tav
