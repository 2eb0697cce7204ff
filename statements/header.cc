// Section header clauses.
#include "statements/parser.h"
#include "statements/program.h"
#include "symbols/clauses.h"
#include "symbols/fields.h"

namespace tav {

namespace {

struct Header {
  Parser& p;
  bool parameters = false;
  bool returning = false;
};

ClauseStep header_local(Header& h) {
  h.p.accept();
  compile_section_field_list(h.p, h.p.section, FieldListKind::local);
  return ClauseStep::next;
}

// PARAMETERS fields: a call compiled before this definition passed no arguments when it left no
// list. A repeated clause declares its fields and builds no list.
ClauseStep header_parameters(Header& h) {
  Parser& p = h.p;
  p.accept();
  if (!h.parameters && (p.ops.get16(p.section + ssym::s_flags) & ssym::flag_referenced) != 0 &&
      p.ops.get24(p.section + ssym::s_params) == 0)
    p.diag.error(msg::parameter_list_mismatch);
  compile_section_field_list(p, p.section, FieldListKind::parameters, !h.parameters);
  h.parameters = true;
  return ClauseStep::next;
}

ClauseStep header_returning(Header& h) {
  h.p.accept();
  compile_section_field_list(h.p, h.p.section, FieldListKind::returning, !h.returning);
  h.returning = true;
  return ClauseStep::next;
}

// The header clauses not compiled yet (PRIMARY, MODES, REVIEW, ...) are reported, so that no
// table is written without them, and passed over to the next clause word.
ClauseStep header_other(Header& h) {
  h.p.diag.error_text(txt::clause_not_built, Context::current_token());
  h.p.accept();
  h.p.tok.skip_to_clause();
  return ClauseStep::next;
}

constexpr ClauseRow<Header> kHeaderClauses[] = {
    {verb("local"), Given::repeatable, {}, header_local},
    {verb("parameters"), Given::once, {}, header_parameters},
    {verb("returning"), Given::once, {}, header_returning},
};

}  // namespace

// Reads the clauses of a section header up to the end of the header statement. LOCAL,
// PARAMETERS and RETURNING declare the section's fields.
void compile_section_header(Parser& p) {
  Header h{p};
  read_clauses(p, kHeaderClauses, h, header_other);
}

}  // namespace tav
