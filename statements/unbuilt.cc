// Statements whose compilers are not built yet. Each is recognised by its verb and passed over
// to its end, so that the rest of the program is still checked; a block statement is passed
// over with everything up to its matching end.
//
// When a statement group gets its compiler, its handlers move out of this file.

#include "statements/handlers.h"
#include "statements/parser.h"

namespace tav {

namespace {

void skip_statement(Parser& p) {
  p.accept();
  p.tok.skip_to_statement();
}

bool opens_block(uint32_t c) {
  return c == verb("if") || c == verb("while") || c == verb("for") || c == verb("repeat") ||
         c == verb("switch");
}

bool closes_block(uint32_t c) {
  return c == verb("end_if") || c == verb("end_while") || c == verb("end_for") || c == verb("until") ||
         c == verb("end_switch") || c == verb("end");
}

// Passes over a block statement and its body up to its matching end (or a section start).
void skip_block(Parser& p) {
  int depth = 0;
  for (;;) {
    uint32_t c = p.cls();
    if (c & kSectionStart) return;
    if (opens_block(c)) ++depth;
    if (closes_block(c)) --depth;
    p.accept();
    p.tok.skip_to_statement();
    if (depth <= 0) return;
  }
}

}  // namespace

void compile_if(Parser& p) { skip_block(p); }
void compile_while(Parser& p) { skip_block(p); }
void compile_repeat(Parser& p) { skip_block(p); }
void compile_for(Parser& p) { skip_block(p); }
void compile_switch(Parser& p) { skip_block(p); }
void compile_break(Parser& p) { skip_statement(p); }
void compile_continue(Parser& p) { skip_statement(p); }
void compile_record_statement(Parser& p) { skip_statement(p); }
void compile_select_statement(Parser& p) { skip_statement(p); }
void compile_accept(Parser& p) { skip_statement(p); }
void compile_display_statement(Parser& p) { skip_statement(p); }
void compile_report_statement(Parser& p) { skip_statement(p); }
void compile_option(Parser& p) { skip_statement(p); }
void compile_command(Parser& p) { skip_statement(p); }
void compile_re_enter(Parser& p) { skip_statement(p); }

}  // namespace tav
