#include "macros.h"

#include <algorithm>

namespace tav::pp {

std::optional<Macro> parse_define(std::string_view text) {
  std::size_t e = 0;
  while (e < text.size() && is_ident_char(text[e])) ++e;
  Macro m;
  m.name = std::string(text.substr(0, e));
  if (!is_identifier(m.name) || m.name == "defined") return std::nullopt;
  std::size_t i = e;
  if (i < text.size() && text[i] == '(') {
    m.function_like = true;
    i = skip_blanks(text, i + 1);
    if (i < text.size() && text[i] == ')') {
      ++i;
    } else {
      for (;;) {
        std::size_t b = skip_blanks(text, i);
        std::size_t pe = b;
        while (pe < text.size() && is_ident_char(text[pe])) ++pe;
        std::string param(text.substr(b, pe - b));
        if (!is_identifier(param) ||
            std::find(m.params.begin(), m.params.end(), param) != m.params.end())
          return std::nullopt;
        m.params.push_back(std::move(param));
        i = skip_blanks(text, pe);
        if (i >= text.size()) return std::nullopt;
        if (text[i++] == ')') break;
        if (text[i - 1] != ',') return std::nullopt;
      }
    }
  } else if (i < text.size() && !is_blank(text[i])) {
    // MAX-ROWS or MAX=10: a name of the language or a typo, not a macro name and its value
    return std::nullopt;
  }
  m.body = std::string(trim(text.substr(i)));
  return m;
}

void MacroTable::define(Macro macro) {
  std::string name = macro.name;
  macros_.insert_or_assign(std::move(name), std::move(macro));
}

void MacroTable::undefine(std::string_view name) {
  auto it = macros_.find(name);
  if (it != macros_.end()) macros_.erase(it);
}

const Macro* MacroTable::find(std::string_view name) const {
  auto it = macros_.find(name);
  return it == macros_.end() ? nullptr : &it->second;
}

std::optional<std::string> Expander::expand(std::string_view line) {
  budget_ = kBudget;
  active_.clear();
  outer_call_ = std::string::npos;
  std::string out;
  if (!expand_into(line, out, 0)) return std::nullopt;
  return out;
}

bool Expander::fail(Msg msg, std::string_view context) {
  problem_ = {msg, std::string(context), outer_call_};
  return false;
}

bool Expander::active(const Macro* m) const {
  return std::find(active_.begin(), active_.end(), m) != active_.end();
}

bool Expander::append(std::string& out, std::string_view text) {
  if (text.size() > budget_)
    return fail(Msg::expansion_too_long, active_.empty() ? "" : active_.front()->name);
  budget_ -= text.size();
  out.append(text);
  return true;
}

bool Expander::expand_into(std::string_view text, std::string& out, int depth) {
  if (depth > kMaxDepth)
    return fail(Msg::expansion_too_long, active_.empty() ? "" : active_.front()->name);
  // Text that expands to itself is copied in runs: from `copied` up to where a macro starts.
  std::size_t copied = 0;
  auto flush = [&](std::size_t upto) {
    const bool ok = append(out, text.substr(copied, upto - copied));
    copied = upto;
    return ok;
  };
  std::size_t i = 0;
  while (i < text.size()) {
    const char c = text[i];
    if (is_quote(c)) {
      i = literal_end(text, i);
    } else if (c == '/' && i + 1 < text.size() && text[i + 1] == '/') {
      i = text.size();
    } else if (is_ident_char(c)) {
      const std::size_t e = word_end(text, i, rule_);
      const std::string_view word = text.substr(i, e - i);
      const Macro* m = nullptr;
      if (is_ident_start(c) && word.find('-') == std::string_view::npos) m = table_.find(word);
      if (m != nullptr && depth == 0) outer_call_ = i;
      if (m != nullptr && !active(m) && !m->function_like) {
        if (!flush(i)) return false;
        active_.push_back(m);
        const bool ok = expand_into(m->body, out, depth + 1);
        active_.pop_back();
        if (!ok) return false;
        i = copied = e;
        continue;
      }
      if (m != nullptr && !active(m)) {
        std::size_t open = skip_blanks(text, e);
        if (open < text.size() && text[open] == '(') {
          if (!flush(i)) return false;
          if (!replace(*m, text, open, out, depth)) return false;
          i = copied = open;
          continue;
        }
      }
      i = e;
    } else {
      ++i;
    }
  }
  return flush(text.size());
}

// A call of a function-like macro: pos is at the "(" and ends after the matching ")".
bool Expander::replace(const Macro& m, std::string_view text, std::size_t& pos,
                       std::string& out, int depth) {
  std::vector<std::string_view> args;
  std::size_t start = pos + 1;
  std::size_t i = start;
  int level = 0;
  for (;;) {
    if (i >= text.size()) return fail(Msg::unterminated_call, m.name);
    char c = text[i];
    if (is_quote(c)) {
      i = literal_end(text, i);
      continue;
    }
    if (c == '(') {
      ++level;
    } else if (c == ')' && level > 0) {
      --level;
    } else if ((c == ')' || c == ',') && level == 0) {
      args.push_back(trim(text.substr(start, i - start)));
      start = i + 1;
      if (c == ')') break;
    }
    ++i;
  }
  pos = i + 1;
  bool no_args = m.params.empty() && args.size() == 1 && args[0].empty();
  if (!no_args && args.size() != m.params.size()) return fail(Msg::macro_arg_count, m.name);

  std::vector<std::string> expanded(m.params.size());
  for (std::size_t a = 0; a < m.params.size(); ++a)
    if (!expand_into(args[a], expanded[a], depth + 1)) return false;

  std::string body;
  std::string_view b = m.body;
  std::size_t k = 0;
  while (k < b.size()) {
    std::size_t e = k + 1;
    std::string_view piece = b.substr(k, 1);
    if (is_quote(b[k])) {
      e = literal_end(b, k);
      piece = b.substr(k, e - k);
    } else if (is_ident_char(b[k])) {
      e = word_end(b, k, rule_);
      piece = b.substr(k, e - k);
      auto p = std::find(m.params.begin(), m.params.end(), piece);
      if (p != m.params.end()) piece = expanded[static_cast<std::size_t>(p - m.params.begin())];
    }
    if (!append(body, piece)) return false;
    k = e;
  }
  active_.push_back(&m);
  bool ok = expand_into(body, out, depth + 1);
  active_.pop_back();
  return ok;
}

}  // namespace tav::pp
