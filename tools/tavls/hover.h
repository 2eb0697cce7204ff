// What textDocument/hover shows (Markdown): for a field its type, picture, size, occurrences,
// where it is defined and its dictionary documentation and validation text; for an object its
// file type and file, record layout and keys; for a SELECT's or GET's object also the index it
// reads by and the fields that bound the key. Made from the stores right after a compile,
// while they are there.
#pragma once

#include <string>
#include <vector>

#include "driver/xref.h"

namespace tav {
struct CompilerStores;
}

namespace tav::lsp {

// One text per symbol of `index`, in its order.
std::vector<std::string> hover_texts(CompilerStores& compiler, const XrefIndex& index);

// How a SELECT or GET reads its object, as hover shows it.
std::string read_text(const XrefObjectRead& read);

}  // namespace tav::lsp
