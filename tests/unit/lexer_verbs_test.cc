// The keyword table: its order, synonyms, and the keyword comparison's tolerance of hyphens and
// underscores.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "lexer/verbs.h"

namespace tav {
namespace {

TEST(VerbTable, EveryKeywordInStrictOrder) {
  EXPECT_EQ(kVerbTable[kVerbCount].name, "\x7f");
  EXPECT_EQ(kVerbTable[kVerbCount].code, 0u);
  EXPECT_TRUE(check_verb_table().empty());
  for (int i = 0; i < kVerbCount; ++i)
    EXPECT_EQ(lookup_verb(kVerbTable[i].name), kVerbTable[i].code) << kVerbTable[i].name;
}

TEST(VerbTable, KeywordNumbersAreSharedOnlyBySynonyms) {
  // The low 16 bits identify a keyword; rows with the same number are synonyms with the same
  // code, except for the one pair that shares a number across groups.
  std::map<uint32_t, std::set<uint32_t>> by_number;
  for (int i = 0; i < kVerbCount; ++i) by_number[kVerbTable[i].code & 0xffff].insert(kVerbTable[i].code);
  for (const auto& [number, codes] : by_number) {
    if (number == 0x0519) {
      EXPECT_EQ(codes, (std::set<uint32_t>{verb("end_api"), verb("enable_tool_bar")}));
    } else {
      EXPECT_EQ(codes.size(), 1u) << std::hex << number;
    }
  }
}

TEST(VerbTable, SynonymsShareACode) {
  using Words = std::vector<std::string>;
  for (const Words& words : {Words{"<>", "!="}, Words{"enquire", "enquiry", "query", "sql"}})
    for (const std::string& w : words) {
      EXPECT_NE(lookup_verb(w), 0u) << w;
      EXPECT_EQ(lookup_verb(w), lookup_verb(words[0])) << w;
    }
}

TEST(VerbTable, WordsAsTheTokenizerDeliversThem) {
  struct Case {
    const char* word;
    uint32_t code;
  };
  const Case cases[] = {
      {"end-if", verb("end_if")},       {"endif", verb("end_if")},    {"end_if", verb("end_if")},
      {"check-box", verb("check_box")}, {"checkbox", verb("check_box")},
      {"chec_kbox", 0},                 {"endi_f", 0},                {"-if", 0},
      {"~tilde", 0},                    {"}", verb("}")},             {"zstr", verb("zstr")},
      {"", 0},                          {"!", 0},                     {"\x7f", 0}, {"\xff", 0},
      // The one name stored with hyphens matches only when written exactly so.
      {"locked-folder-icon", verb("locked-folder-icon")}, {"locked_folder_icon", 0},        {"lockedfoldericon", 0},
  };
  for (const Case& c : cases) EXPECT_EQ(lookup_verb(c.word), c.code) << c.word;
}

TEST(VerbTable, HashedLookupAgreesWithTheOrderedSearch) {
  // Every row, and spellings around it: hyphens for underscores, underscores and hyphens
  // dropped or added, a letter more or less, a leading hyphen.
  std::vector<std::string> words = {"", "-", "--", "_", "x", "\xe9t\xe9", "end--if", "end-_if", "end_-if"};
  for (int i = 0; i < kVerbCount; ++i) {
    const std::string name(kVerbTable[i].name);
    std::string hyphens = name, bare;
    for (char& c : hyphens)
      if (c == '_') c = '-';
    for (char c : name)
      if (c != '_' && c != '-') bare += c;
    words.insert(words.end(), {name, hyphens, bare, name + "s", name.substr(0, name.size() - 1),
                               "-" + name, name + "-", "_" + name, name + "_"});
    for (size_t k = 1; k < name.size(); ++k) {
      words.push_back(name.substr(0, k) + "-" + name.substr(k));
      words.push_back(name.substr(0, k) + "_" + name.substr(k));
    }
  }
  for (const std::string& w : words) EXPECT_EQ(find_keyword(w), lookup_verb(w)) << w;
}

TEST(VerbTable, CompareKeyword) {
  EXPECT_EQ(compare_keyword("end-if", "end_if"), 0);
  EXPECT_EQ(compare_keyword("endif", "end_if"), 0);
  EXPECT_EQ(compare_keyword("end_if", "endif"), -1);  // an underscore in the word must match one
  EXPECT_LT(compare_keyword("ab", "abc"), 0);
  EXPECT_GT(compare_keyword("abc", "ab"), 0);
  EXPECT_GT(compare_keyword("\xe9", "z"), 0);  // bytes compare unsigned
}

TEST(VerbTable, OrderCheckNamesTheFirstRowOutOfOrder) {
  std::vector<VerbRow> rows(kVerbTable, kVerbTable + kVerbCount + 1);
  std::swap(rows[100], rows[101]);
  EXPECT_EQ(check_verb_table(rows.data(), kVerbCount), rows[101].name);
  rows.assign(kVerbTable, kVerbTable + kVerbCount + 1);
  rows[500] = rows[499];  // a duplicate is out of order too
  EXPECT_EQ(check_verb_table(rows.data(), kVerbCount), rows[500].name);
}

}  // namespace
}  // namespace tav
