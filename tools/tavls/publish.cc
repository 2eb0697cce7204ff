#include "publish.h"

#include "diag/render_text.h"
#include "text_positions.h"

namespace tav::lsp {

namespace {

using Json = nlohmann::json;

Json position(int line, int character) { return {{"line", line}, {"character", character}}; }

// The range of a place: its columns in UTF-16 units; a place without a column covers its line,
// one without an end its first character; no place at all is the start of the file.
Json range_of(const SourceRange& where, const LineText& lines) {
  if (!where.known()) return {{"start", position(0, 0)}, {"end", position(0, 0)}};
  const int line = where.line - 1;
  const std::string text = lines ? lines(where.file, where.line).value_or("") : "";
  if (where.column < 1) return {{"start", position(line, 0)}, {"end", position(line, utf16_length(text))}};
  const int end_column = where.end_column > where.column ? where.end_column : where.column + 1;
  return {{"start", position(line, utf16_column(text, where.column))},
          {"end", position(line, utf16_column(text, end_column))}};
}

int severity_of(Severity s) {
  switch (s) {
    case Severity::error:
    case Severity::fatal:
      return 1;
    case Severity::warning:
      return 2;
    case Severity::info:
      break;
  }
  return 3;
}

}  // namespace

Json lsp_diagnostic(const Diagnostic& d, const LineText& lines) {
  std::string message = render::message_text(d);
  Json related = Json::array();
  for (const DiagnosticNote& note : d.notes) {
    if (note.where.known()) {
      related.push_back({{"location", {{"uri", uri_of_path(note.where.file)}, {"range", range_of(note.where, lines)}}},
                         {"message", note.message}});
    } else {
      message += "\n" + note.message;
    }
  }
  Json out{{"range", range_of(d.where, lines)},
           {"severity", severity_of(d.severity)},
           {"code", d.code},
           {"source", "tavcmp"},
           {"message", message}};
  if (!related.empty()) out["relatedInformation"] = std::move(related);
  return out;
}

std::map<std::string, Json> diagnostics_by_uri(const std::vector<Diagnostic>& items, const std::string& document_path,
                                               const LineText& lines) {
  std::map<std::string, Json> out;
  const std::string document_uri = uri_of_path(document_path);
  out[document_uri] = Json::array();
  for (const Diagnostic& d : items) {
    const std::string uri = d.where.known() ? uri_of_path(d.where.file) : document_uri;
    auto [it, added] = out.try_emplace(uri, Json::array());
    it->second.push_back(lsp_diagnostic(d, lines));
  }
  return out;
}

}  // namespace tav::lsp
