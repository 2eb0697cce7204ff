// Report records: lookup by name and the report list.

#include "symbols/reports.h"

#include "codegen/header.h"
#include "codegen/opspace.h"
#include "symbols/records.h"
#include "symbols/symtab.h"

namespace tav {

uint32_t find_or_create_report(OpSpace& ops, std::string_view name) {
  for (uint32_t r = ops.get24(hdr::h_report_list); r != 0; r = ops.get24(r + report::r_next)) {
    const uint32_t n = ops.get24(r + report::r_name);
    if (n != 0 && SymbolTable::compare_names(ops.text_at(n), name) == 0) return r;
  }
  const uint32_t text = ops.store_text(name);
  const uint32_t r = ops.alloc(report::size);
  ops.put24(r + report::r_name, text);
  ops.put16(r + report::r_flags, report::flag_referenced);
  link_report(ops, r);
  return r;
}

void link_report(OpSpace& ops, uint32_t record) {
  ops.put24(record + report::r_next, ops.get24(hdr::h_report_list));
  ops.put24(hdr::h_report_list, record);
}

}  // namespace tav
