// Writes the language's reserved words, read from the keyword table, as a Markdown page: every
// word the tokenizer takes as a keyword, written as programs write it (with "-"), grouped by
// what the word does. A word of the list cannot name a field, an object, a section or a mode.
//
//   tav-reserved-words OUT-FILE
#include <cstdio>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "lexer/verbs.h"
#include "runtime/ascii.h"

namespace {

struct Group {
  const char* title;
  uint32_t bit;  // the class bit of the verb code; 0: none of the bits below
};

constexpr Group kGroups[] = {
    {"Section starts", 0x40000000},
    {"Statements", 0x20000000},
    {"Clause words", 0x10000000},
    {"Functions and system values", 0x08000000},
    {"Other words (values, operators written as words, parts of statements)", 0},
};
constexpr uint32_t kClassBits = 0x78000000;

// Words only: the operators and punctuation of the table are not names in any case.
bool is_word(std::string_view name) {
  for (char c : name)
    if (tav::ascii_alpha(c)) return true;
  return false;
}

std::string written(std::string_view name) {
  std::string w(name);
  for (char& c : w)
    if (c == '_') c = '-';
  return w;
}

// The first class bit of a code, in the order of the groups: a statement verb that also starts
// a clause is listed with the statements.
bool in_group(uint32_t code, const Group& g) {
  if (g.bit == 0) return (code & kClassBits) == 0;
  for (const Group& earlier : kGroups) {
    if (earlier.bit == g.bit) break;
    if (earlier.bit != 0 && (code & earlier.bit)) return false;
  }
  return (code & g.bit) != 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: tav-reserved-words OUT-FILE\n");
    return 2;
  }
  std::string page =
      "# Reserved words\n\n"
      "<!-- Generated from lexer/verbs.def by tools/reserved_words; do not edit. -->\n\n"
      "These words are keywords of the language in any case and with or without their hyphens (END-IF,\n"
      "end_if and endif are one word): none of them can name a field, an object, a section, a mode or a\n"
      "report (\"Name invalid or reserved word\"). See language.md for names.\n";
  int total = 0;
  for (const Group& g : kGroups) {
    std::vector<std::string> words;
    for (int i = 0; i < tav::kVerbCount; ++i) {
      const tav::VerbRow& row = tav::kVerbTable[i];
      if (is_word(row.name) && in_group(row.code, g)) words.push_back(written(row.name));
    }
    page += "\n## " + std::string(g.title) + " (" + std::to_string(words.size()) + ")\n\n";
    std::string line;
    for (const std::string& w : words) {
      const std::string item = "`" + w + "`";
      if (!line.empty() && line.size() + item.size() + 1 > 100) {
        page += line + "\n";
        line.clear();
      }
      line += (line.empty() ? "" : " ") + item;
    }
    if (!line.empty()) page += line + "\n";
    total += static_cast<int>(words.size());
  }
  page += "\n" + std::to_string(total) + " words in all.\n";
  std::ofstream out(argv[1], std::ios::binary);
  out << page;
  out.close();
  if (!out) {
    std::fprintf(stderr, "tav-reserved-words: cannot write %s\n", argv[1]);
    return 1;
  }
  return 0;
}
