#include "lexer/verbs.h"

namespace tav {

const char* check_verb_table(const VerbRow* table, int count) {
  for (int i = 0; i + 1 < count; ++i)
    if (compare_keyword(table[i].name, table[i + 1].name) >= 0) return table[i + 1].name;
  return nullptr;
}

}  // namespace tav
