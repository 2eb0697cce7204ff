// The statement compilers the dispatcher calls (statements.def). Each is entered with the
// statement's first token current and leaves the token stream at the start of the next
// statement.
#pragma once

namespace tav {

class Parser;

#define TAV_STATEMENT(keyword, handler, prologue, access) void handler(Parser& p);
#include "statements/statements.def"
#undef TAV_STATEMENT

}  // namespace tav
