// Section header clauses.
#include "statements/parser.h"
#include "statements/program.h"

namespace tav {

// Reads the clauses of a section header up to the end of the header statement. The clauses
// themselves (PRIMARY, MODES, REVIEW, LOCAL, PARAMETERS, ...) are compiled here as they are
// built; until then they are passed over.
void compile_section_header(Parser& p) { p.tok.skip_to_statement(); }

}  // namespace tav
