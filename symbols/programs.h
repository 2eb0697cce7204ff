// Program and program-object entries in the data dictionaries, written after a clean compile.
#pragma once

namespace tav {

class OpSpace;

// Records which objects the program uses (with -p, in the dictionaries they came from) and
// clears the usage bits of every object, which never reach the operations table.
void write_po_entries(OpSpace& ops);

}  // namespace tav
