// Section header clauses.
#include "statements/parser.h"
#include "statements/program.h"
#include "symbols/fields.h"

namespace tav {

// Reads the clauses of a section header up to the end of the header statement. LOCAL,
// PARAMETERS and RETURNING declare the section's fields; the other clauses (PRIMARY, MODES,
// REVIEW, ...) are compiled here as they are built and until then passed over to the next
// clause word.
void compile_section_header(Parser& p) {
  OpSpace& ops = p.ops;
  bool parameters = false;
  bool returning = false;
  for (;;) {
    const uint32_t c = p.next();
    if (p.at_statement_start()) return;
    p.accept();
    if (c == verb("local")) {
      compile_section_field_list(p, p.section, FieldListKind::local);
    } else if (c == verb("parameters")) {
      if (parameters) {
        p.diag.error(msg::duplicate_incompatible_clause);
      } else if ((ops.get16(p.section + ssym::s_flags) & ssym::flag_referenced) != 0 &&
                 ops.get24(p.section + ssym::s_params) == 0) {
        // Called before this definition without arguments.
        p.diag.error(msg::parameter_list_mismatch);
      }
      compile_section_field_list(p, p.section, FieldListKind::parameters, !parameters);
      parameters = true;
    } else if (c == verb("returning")) {
      if (returning) p.diag.error(msg::duplicate_incompatible_clause);
      compile_section_field_list(p, p.section, FieldListKind::returning, !returning);
      returning = true;
    } else {
      p.tok.skip_to_clause();
    }
  }
}

}  // namespace tav
