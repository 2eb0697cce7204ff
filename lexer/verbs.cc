#include "lexer/verbs.h"

namespace tav {

std::string_view check_verb_table(const VerbRow* table, int count) {
  for (int i = 0; i + 1 < count; ++i)
    if (compare_keyword(table[i].name, table[i + 1].name) >= 0) return table[i + 1].name;
  return {};
}

}  // namespace tav
