// Make rules for a table, as compilers write them for make and ninja: "target: prerequisites",
// continued with " \" on further lines when long, then an empty rule for each prerequisite
// after the first (the source), so that make does not stop when one of them is removed.
// Header-only: tavpp writes the rules of the files it read, and the compiler adds the files the
// compile read to them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tav {

namespace make_rules_detail {

inline constexpr std::size_t kLineWidth = 78;

// Whether the character at `at` follows an odd number of backslashes (it is escaped).
inline bool escaped(std::string_view text, std::size_t at) {
  std::size_t n = 0;
  while (n < at && text[at - 1 - n] == '\\') ++n;
  return n % 2 == 1;
}

// The prerequisites of a rule as written (quoted): the words after the ":", split at blanks
// and line continuations that are not escaped.
inline std::vector<std::string> quoted_words(std::string_view rule) {
  std::vector<std::string> words;
  std::size_t colon = 0;
  while (colon < rule.size() && (rule[colon] != ':' || escaped(rule, colon))) ++colon;
  std::string word;
  for (std::size_t i = colon + 1; i < rule.size(); ++i) {
    const char c = rule[i];
    const bool separator = (c == ' ' && !escaped(rule, i)) || c == '\n';
    if (!separator) {
      word += c;
      continue;
    }
    if (!word.empty() && word != "\\") words.push_back(word);
    word.clear();
  }
  if (!word.empty() && word != "\\") words.push_back(word);
  return words;
}

}  // namespace make_rules_detail

// As compilers quote names for make: a blank or a tab gets a backslash, and so does every
// backslash right before it (make reads 2N+1 backslashes and a blank as N backslashes and the
// blank); "#" gets a backslash; "$" is doubled. Make has no way at all to write a newline or a
// carriage return in a name; they are written as "\n" and "\r", as in the line markers, so
// that the name stays on its line: make then sees a file that does not exist and rebuilds the
// target every time, which is safe, and no text of a name can become a rule or a recipe.
inline std::string quoted_for_make(const std::string& name) {
  std::string q;
  std::size_t backslashes = 0;  // how many backslashes came right before
  for (char c : name) {
    switch (c) {
      case ' ':
      case '\t':
        q.append(backslashes + 1, '\\');
        break;
      case '#': q += '\\'; break;
      case '$': q += '$'; break;
      case '\n': q += "\\n"; backslashes = 0; continue;
      case '\r': q += "\\r"; backslashes = 0; continue;
      default: break;
    }
    backslashes = c == '\\' ? backslashes + 1 : 0;
    q += c;
  }
  return q;
}

// The rules: "target: files[0] files[1] ...", then an empty rule for each of files[1...].
inline std::string make_rules(const std::string& target, const std::vector<std::string>& files) {
  std::string rules = quoted_for_make(target) + ":";
  std::size_t line_length = rules.size();
  for (const std::string& file : files) {
    const std::string name = quoted_for_make(file);
    if (line_length + 1 + name.size() > make_rules_detail::kLineWidth) {
      rules += " \\\n";
      line_length = 0;
    }
    rules += " " + name;
    line_length += 1 + name.size();
  }
  rules += "\n";
  for (std::size_t i = 1; i < files.size(); ++i) rules += "\n" + quoted_for_make(files[i]) + ":\n";
  return rules;
}

// Rules written by make_rules with `more` files added: at the end of the target's
// prerequisites, continued the same way, each with its empty rule at the end. A file the rule
// names already is not added again.
inline std::string add_prerequisites(const std::string& rules, const std::vector<std::string>& more) {
  const std::size_t rule_end = rules.find("\n\n");
  std::string rule = rules.substr(0, rule_end == std::string::npos ? rules.size() : rule_end);
  const std::string rest = rule_end == std::string::npos ? std::string() : rules.substr(rule_end + 1);
  while (!rule.empty() && rule.back() == '\n') rule.pop_back();
  std::vector<std::string> named = make_rules_detail::quoted_words(rule);
  const std::size_t last_line = rule.rfind('\n');
  std::size_t line_length = last_line == std::string::npos ? rule.size() : rule.size() - last_line - 1;
  std::string empty_rules;
  for (const std::string& file : more) {
    const std::string name = quoted_for_make(file);
    bool known = false;
    for (const std::string& n : named) known = known || n == name;
    if (known) continue;
    named.push_back(name);
    if (line_length + 1 + name.size() > make_rules_detail::kLineWidth) {
      rule += " \\\n";
      line_length = 0;
    }
    rule += " " + name;
    line_length += 1 + name.size();
    empty_rules += "\n" + name + ":\n";
  }
  return rule + "\n" + rest + empty_rules;
}

}  // namespace tav
