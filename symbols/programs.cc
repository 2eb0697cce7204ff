#include "symbols/programs.h"

#include "codegen/header.h"
#include "codegen/opspace.h"
#include "symbols/records.h"

namespace tav {

void write_po_entries(OpSpace& ops) {
  for (uint32_t o = ops.get24(hdr::h_objects); o != 0; o = ops.get24(o + osym::o_next))
    ops.put16(o + osym::o_attr, ops.get16(o + osym::o_attr) & osym::attr_file_mask);
  // With -p the program's PR row and its PO rows are written to the dictionaries here, once
  // the dictionaries can be opened.
}

}  // namespace tav
