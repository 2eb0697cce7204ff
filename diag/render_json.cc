// GCC's JSON diagnostics: one array for the run; each diagnostic has its kind, message, code,
// locations (caret and, for a longer place, finish), the notes as children and the fix-its.
#include <nlohmann/json.hpp>

#include "diag/render.h"
#include "diag/render_text.h"

namespace tav {

namespace {

using Json = nlohmann::ordered_json;

// One point of a place: `column` is the model's character column.
Json point(const SourceRange& where, int column, const SourceLineReader& lines) {
  Json p{{"file", where.file}, {"line", where.line}};
  if (column < 1) return p;
  render::LinePosition at{static_cast<size_t>(column - 1), column - 1};
  if (lines)
    if (std::optional<std::string> line = lines(where.file, where.line)) at = render::position_in(*line, column);
  p["display-column"] = at.display + 1;
  p["byte-column"] = at.byte + 1;
  p["column"] = column;
  return p;
}

// A place as a one-element "locations" array: the caret at its first character and the finish
// at its last when it is longer than one; empty for no place.
Json locations(const SourceRange& where, const SourceLineReader& lines) {
  Json list = Json::array();
  if (!where.known()) return list;
  Json location{{"caret", point(where, where.column, lines)}};
  if (where.column > 0 && where.end_column > where.column && where.end_column - where.column > 1)
    location["finish"] = point(where, where.end_column - 1, lines);
  list.push_back(std::move(location));
  return list;
}

Json fixits(const std::vector<FixIt>& fixes, const SourceLineReader& lines) {
  Json list = Json::array();
  for (const FixIt& fix : fixes) {
    if (!fix.where.known() || fix.where.column < 1) continue;  // not exact: not offered
    list.push_back({{"start", point(fix.where, fix.where.column, lines)},
                    {"next", point(fix.where, std::max(fix.where.end_column, fix.where.column), lines)},
                    {"string", fix.replacement}});
  }
  return list;
}

Json diagnostic(const Diagnostic& d, const SourceLineReader& lines) {
  Json children = Json::array();
  for (const DiagnosticNote& note : d.notes)
    children.push_back({{"kind", "note"},
                        {"message", note.message},
                        {"locations", locations(render::note_place(note, d), lines)}});
  Json out{{"kind", render::severity_word(d.severity)},
           {"message", render::message_text(d)},
           {"code", d.code},
           {"locations", locations(d.where, lines)},
           {"children", std::move(children)},
           {"column-origin", 1},
           {"escape-source", false}};
  Json fixes = fixits(d.fixes, lines);
  if (!fixes.empty()) out["fixits"] = std::move(fixes);
  return out;
}

}  // namespace

std::string render_json(const std::vector<FileDiagnostics>& run, const SourceLineReader& lines) {
  Json all = Json::array();
  for (const FileDiagnostics& file : run)
    for (const Diagnostic& d : file.items)
      if (render::shown(d)) all.push_back(diagnostic(d, lines));
  // Names and contexts come from users' files: bytes that are not UTF-8 become U+FFFD.
  return all.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace tav
