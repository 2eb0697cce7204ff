// The macro table and macro replacement.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "messages.h"
#include "text.h"

namespace tav::pp {

struct Macro {
  std::string name;
  bool function_like = false;
  std::vector<std::string> params;
  std::string body;
};

// Parses the text after "#define": NAME [body] or NAME(params) body, where "(" follows the
// name immediately.  nullopt when the name or the parameter list is malformed.
std::optional<Macro> parse_define(std::string_view text);

class MacroTable {
 public:
  void define(Macro macro);  // replaces an earlier definition
  void undefine(std::string_view name);
  const Macro* find(std::string_view name) const;
  bool defined(std::string_view name) const { return find(name) != nullptr; }

 private:
  std::map<std::string, Macro, std::less<>> macros_;
};

// Replaces the macros of one line.  Replacement texts are rescanned; a macro is not replaced
// again inside its own replacement.  The work per line is bounded so that macros that grow
// without end fail instead of exhausting memory.
class Expander {
 public:
  static constexpr std::size_t kBudget = std::size_t{4} << 20;  // bytes produced per line
  static constexpr int kMaxDepth = 256;                          // nested replacements

  Expander(const MacroTable& table, WordRule rule) : table_(table), rule_(rule) {}

  // The line with its macros replaced, or nullopt with problem() set.
  std::optional<std::string> expand(std::string_view line);
  const Problem& problem() const { return problem_; }

 private:
  bool expand_into(std::string_view text, std::string& out, int depth);
  bool append(std::string& out, std::string_view text);
  bool replace(const Macro& m, std::string_view text, std::size_t& pos, std::string& out,
               int depth);
  bool fail(Msg msg, std::string_view context);
  bool active(const Macro* m) const;

  const MacroTable& table_;
  WordRule rule_;
  std::size_t budget_ = kBudget;
  std::vector<const Macro*> active_;
  std::size_t outer_call_ = std::string::npos;  // where the call being replaced began in the line
  Problem problem_{Msg::expansion_too_long, {}};
};

}  // namespace tav::pp
