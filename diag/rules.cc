// The names of the formats and the table of every message code, derived from the message rows.
#include <array>

#include "diag/render.h"

namespace tav {

namespace {

struct RuleRow {
  std::string_view code;
  std::string_view text;
};

constexpr RuleRow kRuleRows[] = {
#define TAV_MESSAGE(code, name, kind, text) {"T" #code, text},
#include "diag/messages.def"
#define TAV_TEXT(name, text) {#name, text},
#include "diag/messages.def"
#define PP_MESSAGE(id, text) {"pp_" #id, text},
#include "diag/pp_messages.def"
#undef PP_MESSAGE
};

}  // namespace

std::optional<DiagnosticsFormat> diagnostics_format_named(std::string_view name) {
  constexpr std::array<std::pair<std::string_view, DiagnosticsFormat>, 4> kNames{{
      {"classic", DiagnosticsFormat::classic},
      {"gcc", DiagnosticsFormat::gcc},
      {"json", DiagnosticsFormat::json},
      {"sarif", DiagnosticsFormat::sarif},
  }};
  for (const auto& [word, format] : kNames)
    if (word == name) return format;
  return std::nullopt;
}

const std::vector<MessageRule>& message_rules() {
  static const std::vector<MessageRule> rules = [] {
    std::vector<MessageRule> out;
    out.reserve(std::size(kRuleRows));
    for (const RuleRow& row : kRuleRows) out.push_back({std::string(row.code), std::string(row.text)});
    return out;
  }();
  return rules;
}

}  // namespace tav
