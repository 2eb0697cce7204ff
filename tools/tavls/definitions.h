// Where the names a program defines stand, for textDocument/definition: fields (global and each
// section's own), objects and sections, read from the stores right after a compile while the
// places are known, from every file the program read (a field defined in an include is found
// there). A word of the text is resolved as the compiler resolves a reference: a section's own
// field first, then a global field, an object, a section.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "diag/diagnostic.h"

namespace tav {
struct CompilerStores;
}

namespace tav::lsp {

struct Definition {
  enum class Kind { field, object, section } kind = Kind::field;
  std::string name;  // as the compiler keeps it: lower case
  SourceRange where;
  int section = -1;  // a section's own field: the index of that section's definition; else -1
};

std::vector<Definition> definitions_of(const CompilerStores& compiler);

// The name of the word at byte `at` of `line` and what it is about: in "object.field" the object
// when `at` lies before the dot, else the field. Empty when no word is there.
struct Word {
  std::string name;  // lower case
  bool object_part = false;
  bool qualified = false;
};
Word word_at(std::string_view line, size_t at);

// What `word`, standing at `line` (from 1) of `path`, names; null when the program defines no
// such name.
const Definition* resolve(const std::vector<Definition>& definitions, const Word& word, const std::string& path,
                          int line);

// The file an "#include" line names, or empty when the line is none.
std::string included_name(std::string_view line);

}  // namespace tav::lsp
