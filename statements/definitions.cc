// The definition statements, FIELD and OBJECT, and the expression statements, SET and STRING:
// the dispatcher's entries into the definition and expression compilers.

#include "expr/expr.h"
#include "statements/handlers.h"
#include "statements/parser.h"
#include "symbols/fields.h"
#include "symbols/objects.h"

namespace tav {

void compile_field_statement(Parser& p) {
  p.accept();
  define_fields(p);
}

void compile_object_statement(Parser& p) {
  p.accept();
  define_object(p);
}

void compile_set_statement(Parser& p) { compile_set(p); }

void compile_string_statement(Parser& p) { compile_string(p); }

}  // namespace tav
