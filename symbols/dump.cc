#include "symbols/dump.h"

#include <cstdarg>
#include <cstring>

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

bool SymbolDump::header() {
  if (!valid(0, hdr::size)) return false;
  const uint32_t fields = ops_.get24(hdr::h_fields);
  const uint32_t screens = ops_.get24(hdr::h_screens);
  const uint32_t objects = ops_.get24(hdr::h_objects);
  const uint32_t texts = ops_.get24(hdr::h_text);
  line("h_fields = 0x%x (%u)", fields, fields);
  line("h_screens = 0x%x (%u)", screens, screens);
  line("h_objects = 0x%x (%u)", objects, objects);
  line("h_text = 0x%x (%u)", texts, texts);
  std::fflush(out_);
  return true;
}

bool SymbolDump::screen(std::optional<uint32_t> off) {
  const uint32_t s = pick(off, screen_);
  if (s == 0 || !valid(s, ssym::size)) return false;
  const uint32_t next = ops_.get24(s + ssym::s_next);
  line("s_name = '%s'", text(ops_.get24(s + ssym::s_name)));
  line("s_base = %d", static_cast<int>(ops_.get16(s + ssym::s_base)));
  line("s_occurs = %d", static_cast<int>(ops_.get16(s + ssym::s_occurs)));
  line("s_next = 0x%x (%u)", next, next);
  std::fflush(out_);
  screen_ = next;
  return true;
}

bool SymbolDump::field(std::optional<uint32_t> off) {
  const uint32_t f = pick(off, field_);
  if (f == 0 || !valid(f, fsym::size)) return false;
  const uint32_t next = ops_.get24(f + fsym::f_next);
  const uint32_t join = ops_.get24(f + fsym::f_join);
  line("f_name = '%s'", text(ops_.get24(f + fsym::f_name)));
  line("f_next = 0x%x (%u)", next, next);
  line("f_join = 0x%x (%u)", join, join);
  line("f_fldid = %u", ops_.get16(f + fsym::f_fldid));
  line("f_dictno = %d", static_cast<int>(get16s(ops_.at(f + fsym::f_dictno))));
  line("f_ldictno = %d", static_cast<int>(get16s(ops_.at(f + fsym::f_ldictno))));
  line("f_occurs = %d", static_cast<int>(ops_.get16(f + fsym::f_occurs)));
  line("f_addr = 0x%x", ops_.get24(f + fsym::f_addr));
  line("f_flags = 0x%x", ops_.get16(f + fsym::f_flags));
  std::fflush(out_);
  field_ = next;
  return true;
}

bool SymbolDump::object(std::optional<uint32_t> off) {
  const uint32_t o = pick(off, object_);
  if (o == 0 || !valid(o, osym::size)) return false;
  const uint32_t next = ops_.get24(o + osym::o_next);
  const uint32_t fldobj = ops_.get24(o + osym::o_fldobj);
  const uint32_t keys = ops_.get24(o + osym::o_keylist);
  const unsigned filtype = *ops_.at(o + osym::o_filtype);
  line("o_name = '%s'", text(ops_.get24(o + osym::o_name)));
  line("o_next = 0x%x (%u)", next, next);
  line("o_record = 0x%x", ops_.get24(o + osym::o_record));
  line("o_fldobj = 0x%x (%u)", fldobj, fldobj);
  line("o_keylist = 0x%x (%u)", keys, keys);
  // The compiler has no run-time object table: no file handle, no index, no flags, and no
  // override of the file name.
  line("o_fd = %d", -1);
  line("o_index = %d", -1);
  line("o_flags = 0x%x", 0u);
  line("o_file = '%s'", text(ops_.get24(o + osym::o_file)));
  line("o_filtype = '%c' (0x%x)", static_cast<int>(filtype), filtype);
  line("o_recsize = 0x%x", ops_.get16(o + osym::o_recsize));
  std::fflush(out_);
  object_ = next;
  return true;
}

bool SymbolDump::field_object_link(std::optional<uint32_t> off) {
  const uint32_t l = pick(off, folink_);
  if (l == 0 || !valid(l, folink::size)) return false;
  const uint32_t object = ops_.get24(l + folink::fo_object);
  const uint32_t field = ops_.get24(l + folink::fo_field);
  const uint32_t join = ops_.get24(l + folink::fo_join);
  const uint32_t next = ops_.get24(l + folink::fo_fldobj);
  line("fo_object = 0x%x (%u)", object, object);
  line("fo_field = 0x%x (%u)", field, field);
  line("fo_join = 0x%x (%u)", join, join);
  line("fo_fldobj = 0x%x (%u)", next, next);
  line("fo_offs = %u", ops_.get16(l + folink::fo_offs));
  std::fflush(out_);
  folink_ = next;
  return true;
}

bool SymbolDump::field_list(std::optional<uint32_t> off) {
  const uint32_t n = pick(off, flist_);
  if (n == 0 || !valid(n, flist::size)) return false;
  const uint32_t field = ops_.get24(n + flist::fl_field);
  const uint32_t next = ops_.get24(n + flist::fl_next);
  line("fl_field = 0x%x (%u)", field, field);
  line("fl_next = 0x%x (%u)", next, next);
  std::fflush(out_);
  flist_ = next;
  return true;
}

bool SymbolDump::help_field_list(std::optional<uint32_t> off) {
  const uint32_t n = pick(off, hflist_);
  if (n == 0 || !valid(n, hflist::size)) return false;
  const uint32_t field = ops_.get24(n + hflist::hfl_field);
  const uint32_t next = ops_.get24(n + hflist::hfl_next);
  line("hfl_field = 0x%x (%u)", field, field);
  line("hfl_next = 0x%x (%u)", next, next);
  std::fflush(out_);
  hflist_ = next;
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
