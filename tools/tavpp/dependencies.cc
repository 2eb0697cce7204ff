#include "dependencies.h"

namespace tav::pp {

namespace {

constexpr std::size_t kLineWidth = 78;

std::string quoted_for_make(const std::string& name) {
  std::string q;
  for (char c : name) {
    if (c == ' ' || c == '\t' || c == '#') q += '\\';
    else if (c == '$') q += '$';
    q += c;
  }
  return q;
}

}  // namespace

std::string make_rules(const std::string& target, const std::vector<std::string>& files) {
  std::string rules = quoted_for_make(target) + ":";
  std::size_t line_length = rules.size();
  for (const std::string& file : files) {
    const std::string name = quoted_for_make(file);
    if (line_length + 1 + name.size() > kLineWidth) {
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

std::string default_target(const std::string& source) {
  const std::size_t slash = source.find_last_of('/');
  const std::size_t dot = source.rfind('.');
  const bool has_extension = dot != std::string::npos && (slash == std::string::npos || dot > slash);
  return (has_extension ? source.substr(0, dot) : source) + ".op6";
}

}  // namespace tav::pp
