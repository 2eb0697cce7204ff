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

// Class bits of a verb code: what the tokenizer and the statement dispatcher test on their own.
inline constexpr uint32_t kSectionStart = 0x40000000;
inline constexpr uint32_t kStatementVerb = 0x20000000;
inline constexpr uint32_t kClauseWord = 0x10000000;
inline constexpr uint32_t kFunctionWord = 0x08000000;

// Group bits: part of a keyword's code, named after the words that carry them. The compiler
// compares whole codes; no group bit is tested on its own.
inline constexpr uint32_t kGroupQuery = 0x04000000;        // query and record statements, their words
inline constexpr uint32_t kGroupQueryClause = 0x02000000;  // SELECT, INSERT, UPDATE, DELETE and clauses
inline constexpr uint32_t kGroupValue = 0x01000000;        // functions, aggregates and value names
inline constexpr uint32_t kGroupPart = 0x00800000;         // section and report part words (BEFORE, HEADER...)
inline constexpr uint32_t kGroupBlock = 0x00400000;        // block words: IF, loops, SWITCH, report statements
inline constexpr uint32_t kGroupLayout = 0x00200000;       // block and layout words (FONT, COLUMN, FOR...)
inline constexpr uint32_t kGroupFunction = 0x00100000;     // built-in functions and aggregates
inline constexpr uint32_t kGroupDefinition = 0x00080000;   // definition and report words (FIELD, TOTAL...)
inline constexpr uint32_t kGroupHeading = 0x00040000;      // definition and heading words (TITLE, LIKE...)
inline constexpr uint32_t kGroupConstant = 0x00020000;     // functions and constant values (colours, FALSE)
inline constexpr uint32_t kKeywordNumber = 0x0000ffff;

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

// The verb code of a keyword, or 0: the same answer as lookup_verb, found through a hash table
// (verbs.cc). The tokenizer classifies every word with it.
uint32_t find_keyword(std::string_view word);

// The first row that is not greater than the row before it, or an empty view when the table is
// in order. The compiler checks its own table here at compile time, and once more at start-up.
constexpr std::string_view check_verb_table(const VerbRow* table = kVerbTable,
                                            int count = kVerbCount) {
  for (int i = 0; i + 1 < count; ++i)
    if (compare_keyword(table[i].name, table[i + 1].name) >= 0) return table[i + 1].name;
  return {};
}
static_assert(check_verb_table().empty(), "verbs.def: rows out of order");

// Every bit of every code is a class bit, a group bit or part of the keyword number.
constexpr bool verb_bits_named() {
  constexpr uint32_t named = kSectionStart | kStatementVerb | kClauseWord | kFunctionWord |
                             kGroupQuery | kGroupQueryClause | kGroupValue | kGroupPart | kGroupBlock |
                             kGroupLayout | kGroupFunction | kGroupDefinition | kGroupHeading |
                             kGroupConstant | kKeywordNumber;
  for (const VerbRow& row : kVerbTable)
    if ((row.code & ~named) != 0) return false;
  return true;
}
static_assert(verb_bits_named(), "verbs.def: a code uses a bit that has no name");

// The code of a keyword known to be in the table, for use in constant expressions.
consteval uint32_t verb(std::string_view name) {
  uint32_t code = lookup_verb(name);
  if (code == 0) throw "not a keyword";  // a compile-time error at the use
  return code;
}

}  // namespace tav
