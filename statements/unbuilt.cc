// Statements whose compilers are not built yet. Each is recognised by its verb, reported as an
// error (so that no table is written without it) and passed over to its end, so that the rest of
// the program is still checked.
//
// When a statement group gets its compiler, its handlers move out of this file.

#include "statements/handlers.h"
#include "statements/parser.h"

namespace tav {

namespace {

void skip_statement(Parser& p) {
  p.diag.error_text(txt::statement_not_built, Context::current_token());
  p.accept();
  p.tok.skip_to_statement();
}

}  // namespace

void compile_report_statement(Parser& p) { skip_statement(p); }

}  // namespace tav
