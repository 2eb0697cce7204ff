// Report records: the one place where they are made and linked into the header's report list.
//
// A report may be named (PRINT ... ON name, PAGE-NO ON name) before the REPORT statement that
// defines it, so a name that is not known yet gets a record at once, marked referenced but not
// defined; the definition later fills that very record. Names are compared over 30 characters.
#pragma once

#include <cstdint>
#include <string_view>

namespace tav {

class OpSpace;

// The report record of that name; a new one carrying only its name and the referenced flag when
// the program has none.
uint32_t find_or_create_report(OpSpace& ops, std::string_view name);

// Puts a record (a report without a name, just defined) at the head of the report list.
void link_report(OpSpace& ops, uint32_t record);

}  // namespace tav
