// The keyword table and its lookups.
//
// Keywords are matched by compare_keyword: hyphens inside a source word are ignored, underscores
// in the table are optional, so END-IF, End-If, ENDIF and END_IF all find end_if.  The table
// lives in verbs.def; named verb codes are derived from it at compile time with verb("name"),
// so a misspelt keyword in the compiler's source does not compile.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tav {

// Class bits of a verb code.
inline constexpr uint32_t kSectionStart = 0x40000000;
inline constexpr uint32_t kStatementVerb = 0x20000000;
inline constexpr uint32_t kClauseWord = 0x10000000;
inline constexpr uint32_t kFunctionWord = 0x08000000;

struct VerbRow {
  std::string_view name;  // a view, so that lookups never measure the names
  uint32_t code;
};

inline constexpr VerbRow kVerbTable[] = {
#define TAV_VERB(name, code) {name, code},
#include "lexer/verbs.def"
#undef TAV_VERB
    {"\x7f", 0},  // end row: sorts after every keyword
};
inline constexpr int kVerbCount = static_cast<int>(std::size(kVerbTable)) - 1;

// Compares a word as read by the tokenizer with a table name: negative, 0 or positive.
constexpr int compare_keyword(std::string_view w, std::string_view t) {
  size_t i = 0, j = 0;
  bool skipped_underscore = false;
  auto at = [](std::string_view s, size_t k) -> int {
    return k < s.size() ? static_cast<unsigned char>(s[k]) : 0;
  };
  for (;;) {
    if (j >= t.size()) {
      if (skipped_underscore && i >= w.size()) return -1;
      return at(w, i);
    }
    int wc = at(w, i), tc = at(t, j);
    if (wc == tc) {
      ++i;
      ++j;
    } else if (wc == '-' && i != 0) {
      ++i;
    } else if (wc == '_') {
      ++i;
      skipped_underscore = true;
    } else if (tc == '_') {
      ++j;
    } else {
      return wc - tc;
    }
  }
}

// The verb code of a keyword, or 0 when the word is not one: a binary search with 16-bit signed
// indices over the rows and the end row.
constexpr uint32_t lookup_verb(std::string_view word) {
  int16_t low = 0, high = static_cast<int16_t>(kVerbCount);
  while (low <= high) {
    int16_t mid = static_cast<int16_t>(low + (high - low) / 2);
    int c = compare_keyword(word, kVerbTable[mid].name);
    if (c == 0) return kVerbTable[mid].code;
    if (c < 0)
      high = static_cast<int16_t>(mid - 1);
    else
      low = static_cast<int16_t>(mid + 1);
  }
  return 0;
}

// The first row that is not greater than the row before it, or an empty view when the table is
// in order.
std::string_view check_verb_table(const VerbRow* table = kVerbTable, int count = kVerbCount);

// The code of a keyword known to be in the table, for use in constant expressions.
consteval uint32_t verb(std::string_view name) {
  uint32_t code = lookup_verb(name);
  if (code == 0) throw "not a keyword";  // a compile-time error at the use
  return code;
}

}  // namespace tav
