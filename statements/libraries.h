// Component libraries, resolved when a program ends without errors.
#pragma once

namespace tav {

class Parser;

// Finds every section the program calls but does not define (and every library routine it
// overrides) among the EXPORT sections of the tables its LINK statements name.
void resolve_libraries(Parser& p);

}  // namespace tav
