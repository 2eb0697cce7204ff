// Writes the TextMate grammar of TAVRIN-4GL sources (scope source.tavrin) from the keyword table
// and the preprocessor's directive table, for the editors that colour with TextMate grammars.
//
// The grammar reads a line as the tokenizer does: a word runs up to a blank, ";" or ",", or one of
// the delimiters ( ) [ ] @ { }, which are tokens of their own. A quote that begins a token opens a
// literal ending at the same quote or at the end of the line; "//" that begins a token starts a
// comment. Every word is matched whole, so a rule that would match inside a word (PRINT in
// CUST-PRINT) never gets the chance: the rule for names has taken the word from its first
// character. A keyword is matched as compare_keyword matches it: in any case, with any hyphens
// after its first character, and with or without the underscores of the table.
//
//   tav-textmate-grammar OUT-FILE
#include <cstdio>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "lexer/verbs.h"
#include "runtime/ascii.h"

namespace {

constexpr std::string_view kDirectives[] = {
#define PP_DIRECTIVE(id, name, conditional) name,
#include "tools/tavpp/directives.def"
#undef PP_DIRECTIVE
};

// What ends a word; written for a character class.
constexpr std::string_view kDelims = R"(\s;,()\[\]@{})";

struct Group {
  const char* rule;   // the repository entry
  const char* scope;
  uint32_t bit;       // the class bit of the verb code; 0: none of the class bits
};

// In this order a word takes the scope of its first class bit: a statement verb that also starts
// a clause is coloured as a statement.
constexpr Group kGroups[] = {
    {"section-words", "keyword.control.section.tavrin", tav::kSectionStart},
    {"statement-verbs", "keyword.control.tavrin", tav::kStatementVerb},
    {"clause-words", "keyword.other.clause.tavrin", tav::kClauseWord},
    {"functions", "support.function.tavrin", tav::kFunctionWord},
    {"other-words", "keyword.other.tavrin", 0},
};
constexpr uint32_t kClassBits = tav::kSectionStart | tav::kStatementVerb | tav::kClauseWord | tav::kFunctionWord;

bool is_word(std::string_view name) {
  for (char c : name)
    if (tav::ascii_alpha(c)) return true;
  return false;
}

bool is_bracket(std::string_view name) {
  return name.size() == 1 && std::string_view("()[]{}").find(name[0]) != std::string_view::npos;
}

bool in_group(uint32_t code, const Group& g) {
  for (const Group& earlier : kGroups) {
    if (&earlier == &g) break;
    if (earlier.bit != 0 && (code & earlier.bit)) return false;
  }
  return g.bit == 0 ? (code & kClassBits) == 0 : (code & g.bit) != 0;
}

std::string regex_char(char c) {
  if (std::string_view(R"(\^$.|?*+()[]{}/-#)").find(c) != std::string_view::npos) return std::string("\\") + c;
  return std::string(1, c);
}

// A table name as the tokenizer matches it: after the first character any number of hyphens may
// stand before each character, and an underscore of the table may be left out.
std::string keyword_regex(std::string_view name) {
  std::string re = regex_char(name[0]);
  for (size_t i = 1; i < name.size(); ++i) {
    re += "-*";
    re += name[i] == '_' ? std::string("_?") : regex_char(name[i]);
  }
  return re;
}

std::string word_end() { return "(?=[" + std::string(kDelims) + "]|$)"; }

std::string alternatives(const std::vector<std::string>& items) {
  std::string re;
  for (const std::string& item : items) re += (re.empty() ? "" : "|") + item;
  return "(?:" + re + ")";
}

std::string json_string(std::string_view s) {
  std::string out = "\"";
  for (char c : s) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

std::string match_rule(std::string_view scope, std::string_view regex) {
  std::string rule = "{\n      \"match\": " + json_string(regex);
  if (!scope.empty()) rule += ",\n      \"name\": " + json_string(scope);
  return rule + "\n    }";
}

std::string keyword_rule(const Group& g) {
  std::vector<std::string> words;
  for (int i = 0; i < tav::kVerbCount; ++i) {
    const tav::VerbRow& row = tav::kVerbTable[i];
    if (is_word(row.name) && in_group(row.code, g)) words.push_back(keyword_regex(row.name));
  }
  return match_rule(g.scope, "(?i)" + alternatives(words) + word_end());
}

std::string operator_rule() {
  std::vector<std::string> ops;
  for (int i = 0; i < tav::kVerbCount; ++i) {
    const std::string_view name = tav::kVerbTable[i].name;
    if (is_word(name) || is_bracket(name) || name == "," || name == "@") continue;
    std::string re;
    for (char c : name) re += regex_char(c);
    ops.push_back(re);
  }
  // "@" is a delimiter, a token however it is followed; the others are words of their own.
  return match_rule("keyword.operator.tavrin", "@|" + alternatives(ops) + word_end());
}

std::string preprocessor_rule() {
  std::vector<std::string> names(std::begin(kDirectives), std::end(kDirectives));
  std::string rule = "{\n      \"begin\": " + json_string("^(#)[ \\t]*(" + alternatives(names) + "\\b)?");
  rule += ",\n      \"end\": \"$\",\n      \"name\": \"meta.preprocessor.tavrin\"";
  rule += ",\n      \"beginCaptures\": {\n        \"1\": {\"name\": \"punctuation.definition.directive.tavrin\"},"
          "\n        \"2\": {\"name\": \"keyword.control.directive.tavrin\"}\n      }";
  rule += ",\n      \"patterns\": [\n        {\"include\": \"#comment\"},\n        {\"include\": \"#strings\"},"
          "\n        {\"match\": \"<[^>]*>\", \"name\": \"string.quoted.other.lt-gt.include.tavrin\"}\n      ]";
  return rule + "\n    }";
}

// <count><quote><character><quote>, the character being any that does not end a word, or a
// blank between the quotes when a blank or a tab follows.
std::string repeated_regex() {
  const std::string delims(kDelims);
  return "[0-9]+(?:(['\"])[^" + delims + "]\\1" + word_end() + "|(['\"]) \\2(?=[ \\t]))";
}

std::string quoted_rule(char quote, std::string_view kind) {
  const std::string q(1, quote);
  return "{\n      \"begin\": " + json_string(q) + ",\n      \"end\": " + json_string(q + "|$") +
         ",\n      \"name\": " + json_string("string.quoted." + std::string(kind) + ".tavrin") + "\n    }";
}

std::string grammar() {
  const std::string delims(kDelims);
  std::string g = "{\n";
  g += "  \"$comment\": \"Generated from lexer/verbs.def by tools/textmate_grammar; do not edit.\",\n";
  g += "  \"name\": \"TAVRIN-4GL\",\n  \"scopeName\": \"source.tavrin\",\n  \"fileTypes\": [\"spl\"],\n";
  g += "  \"patterns\": [\n";
  const char* top[] = {"preprocessor", "comment", "strings", "numbers"};
  for (const char* t : top) g += "    {\"include\": \"#" + std::string(t) + "\"},\n";
  for (const Group& grp : kGroups) g += "    {\"include\": \"#" + std::string(grp.rule) + "\"},\n";
  g += "    {\"include\": \"#operators\"},\n    {\"include\": \"#punctuation\"},\n    {\"include\": \"#names\"}\n  ],\n";
  g += "  \"repository\": {\n";
  g += "    \"preprocessor\": " + preprocessor_rule() + ",\n";
  g += "    \"comment\": " + match_rule("comment.line.double-slash.tavrin", "//.*$") + ",\n";
  g += "    \"strings\": {\n      \"patterns\": [\n        " +
       match_rule("string.quoted.other.repeated.tavrin", repeated_regex()) +
       ",\n        " + quoted_rule('\'', "single") + ",\n        " + quoted_rule('"', "double") + "\n      ]\n    },\n";
  g += "    \"numbers\": " + match_rule("constant.numeric.tavrin", "[-+]?[0-9.]*[0-9][0-9.]*" + word_end()) + ",\n";
  for (const Group& grp : kGroups) g += "    \"" + std::string(grp.rule) + "\": " + keyword_rule(grp) + ",\n";
  g += "    \"operators\": " + operator_rule() + ",\n";
  g += "    \"punctuation\": {\n      \"patterns\": [\n        " +
       match_rule("punctuation.section.brackets.tavrin", "[()\\[\\]{}]") + ",\n        " +
       match_rule("punctuation.separator.tavrin", "[;,]") + "\n      ]\n    },\n";
  g += "    \"names\": " + match_rule("", "[^" + delims + "'\"][^" + delims + "]*") + "\n";
  g += "  }\n}\n";
  return g;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: tav-textmate-grammar OUT-FILE\n");
    return 2;
  }
  std::ofstream out(argv[1], std::ios::binary);
  out << grammar();
  out.close();
  if (!out) {
    std::fprintf(stderr, "tav-textmate-grammar: cannot write %s\n", argv[1]);
    return 1;
  }
  return 0;
}
