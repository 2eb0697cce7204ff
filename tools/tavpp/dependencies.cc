#include "dependencies.h"

namespace tav::pp {

namespace {

constexpr std::size_t kLineWidth = 78;

// As compilers quote names for make: a blank or a tab gets a backslash, and so does every
// backslash right before it (make reads 2N+1 backslashes and a blank as N backslashes and the
// blank); "#" gets a backslash; "$" is doubled. Make has no way at all to write a newline or a
// carriage return in a name; they are written as "\n" and "\r", as in the line markers, so
// that the name stays on its line: make then sees a file that does not exist and rebuilds the
// target every time, which is safe, and no text of a name can become a rule or a recipe.
std::string quoted_for_make(const std::string& name) {
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
