// Reports: REPORT and REPORT SECTION (statements/reports.cc), PRINT, SKIP, NEED and PAGE
// (statements/print.cc), and what they share.
#pragma once

#include <cstdint>

namespace tav {

class Parser;

// The report name after ON (the ON taken): its record, found or made, stored at the 24-bit
// `dest`. A word that is no name is error 117 and is left to be read again; false then.
bool read_report_name(Parser& p, uint32_t dest);

// The statement ends here; anything else is a syntax error, passed over to the next statement.
void expect_statement_end(Parser& p);

// At the end of the program: every report that was named but never defined.
void check_reports(Parser& p);

}  // namespace tav
