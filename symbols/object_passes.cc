// The passes over objects and fields at the end of a program, and the initial data of fields.

#include <cstring>

#include "codegen/convert.h"
#include "codegen/header.h"
#include "symbols/parser_core.h"
#include "symbols/object_keys.h"
#include "symbols/objects.h"
#include "symbols/records.h"

namespace tav {

namespace {

// Objects whose whole record is linked: declared complete, opened for writing, named by record
// access statements, and the file types that are read field by field.
constexpr uint16_t kWholeRecordAttrs =
    osym::attr_complete | osym::attr_open_write | osym::attr_access | osym::attr_update;

constexpr char kEmptyAlpha = ' ';

}  // namespace

bool init_field_data(uint8_t* at, uint16_t format, char type, uint32_t occurs) {
  const uint32_t size = conv::format_size(format);
  bool non_zero = false;
  for (uint32_t i = 0; i < occurs; ++i, at += size) {
    if (conv::fmt_numeric(format))
      conv::from_double(0.0, format, at);
    else
      std::memset(at, type == 'A' ? kEmptyAlpha : 0, size);
    for (uint32_t b = 0; b < size && !non_zero; ++b) non_zero = at[b] != 0;
  }
  return non_zero;
}

void object_post_processing(ParserCore& p) {
  OpSpace& ops = p.ops;
  for (uint32_t o = ops.get24(hdr::h_objects); o != 0; o = ops.get24(o + osym::o_next)) {
    const char type = static_cast<char>(ops.at(o + osym::o_filtype)[0]);
    if ((ops.get16(o + osym::o_attr) & kWholeRecordAttrs) || type == osym::type_external ||
        type == osym::type_csv)
      load_dictionary_record(p, o, true);
  }
  for (uint32_t o = ops.get24(hdr::h_objects); o != 0; o = ops.get24(o + osym::o_next)) {
    if (ops.get24(o + osym::o_fldobj) != 0) continue;
    load_dictionary_record(p, o, false);
    ops.put16(o + osym::o_attr, ops.get16(o + osym::o_attr) | osym::attr_partial);
  }
}

void joined_field_data(ParserCore& p) {
  OpSpace& ops = p.ops;
  DataArea& data = p.data;
  for (uint32_t f = ops.get24(hdr::h_fields); f != 0; f = ops.get24(f + fsym::f_next)) {
    const std::string_view name = ops.text_at(ops.get24(f + fsym::f_name));
    const uint32_t chain = ops.get24(f + fsym::f_join);
    const bool dictionary = static_cast<int16_t>(ops.get16(f + fsym::f_dictno)) >= 0;
    const uint16_t format = static_cast<uint16_t>(ops.get16(f + fsym::f_format));
    const char type = static_cast<char>(ops.at(f + fsym::f_type)[0]);
    const uint32_t occurs = ops.get16(f + fsym::f_occurs);
    const uint32_t bytes = ops.get16(f + fsym::f_size) * occurs;

    if (dictionary && chain == 0) {
      p.diag.set_name(name, p.syms.first_used_at(f).known() ? p.syms.first_used_at(f) : p.syms.defined_at(f));
      p.diag.warning(msg::field_not_contained_any_objects);
    }
    uint32_t addr = ops.get24(f + fsym::f_addr);
    if (addr == 0 && chain != 0) {
      // Held only by records kept apart from the program's fields (NO-JOINS).
      uint32_t position = 0;
      for (uint32_t l = chain; l != 0; l = ops.get24(l + folink::fo_join)) {
        const uint32_t o = ops.get24(l + folink::fo_object);
        if (!(ops.get16(o + osym::o_attr) & osym::attr_no_joins))
          p.diag.fatal_text(txt::internal_error_joined_field_data, name);
        if (ops.get24(o + osym::o_record) != 0)
          position = ops.get24(o + osym::o_record) + ops.get16(l + folink::fo_offs);
      }
      if (position != 0) init_field_data(data.at(position), format, type, occurs);
      continue;
    }
    if (addr == 0) {
      if (!dictionary) {
        p.diag.set_name(name, p.syms.defined_at(f));
        p.diag.info(msg::defined_field_not_referenced);
        continue;
      }
      addr = data.alloc(bytes);
      ops.put24(f + fsym::f_addr, addr);
    }
    if (!init_field_data(data.at(addr), format, type, occurs)) continue;
    for (uint32_t l = chain; l != 0; l = ops.get24(l + folink::fo_join)) {
      const uint32_t o = ops.get24(l + folink::fo_object);
      const uint32_t record = ops.get24(o + osym::o_record);
      const uint32_t position = record + ops.get16(l + folink::fo_offs);
      if (record != 0 && position != addr) std::memmove(data.at(position), data.at(addr), bytes);
    }
  }
}

}  // namespace tav
