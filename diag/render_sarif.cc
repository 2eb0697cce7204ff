// One SARIF 2.1.0 log for the run: the tool with a rule for every message code, one result per
// diagnostic with its place, the notes as related locations and the fix-its as fixes.
#include <map>
#include <nlohmann/json.hpp>

#include "diag/render.h"
#include "diag/render_text.h"
#include "runtime/ascii.h"

namespace tav {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view kSchema =
    "https://docs.oasis-open.org/sarif/sarif/v2.1.0/errata01/os/schemas/sarif-schema-2.1.0.json";

// A file name as a relative reference: every byte but the unreserved ones, the sub-delimiters,
// '@' and '/' is percent-encoded (so ':' too, which would otherwise read as a scheme).
std::string uri_of(std::string_view file) {
  constexpr std::string_view kKept = "-._~!$&'()*+,;=@/";
  constexpr char kHex[] = "0123456789ABCDEF";
  // "//x" would read as a host; the system reads it as "/x".
  while (file.size() > 1 && file[0] == '/' && file[1] == '/') file.remove_prefix(1);
  std::string out;
  for (const char ch : file) {
    const auto c = static_cast<unsigned char>(ch);
    if (ascii_alnum(ch) || kKept.find(ch) != std::string_view::npos) {
      out += ch;
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    }
  }
  return out;
}

// The known members of a place's region; nothing when not even its line is known.
std::optional<Json> region(const SourceRange& where) {
  if (!where.known()) return std::nullopt;
  Json r{{"startLine", where.line}};
  if (where.column > 0) {
    r["startColumn"] = where.column;
    if (where.end_column >= where.column) r["endColumn"] = where.end_column;
  }
  return r;
}

// The place, or the source file alone when the place is not known.
Json physical_location(const SourceRange& where, const std::string& source) {
  Json p{{"artifactLocation", {{"uri", uri_of(where.known() ? where.file : source)}}}};
  if (std::optional<Json> r = region(where)) p["region"] = std::move(*r);
  return p;
}

Json fixes(const std::vector<FixIt>& list) {
  Json out = Json::array();
  for (const FixIt& fix : list) {
    if (!fix.where.known() || fix.where.column < 1) continue;  // not exact: not offered
    SourceRange deleted = fix.where;
    deleted.end_column = std::max(fix.where.end_column, fix.where.column);
    const std::string description = fix.replacement.empty()            ? std::string("Delete")
                                    : deleted.end_column == deleted.column ? "Insert '" + fix.replacement + "'"
                                                                           : "Replace with '" + fix.replacement + "'";
    Json replacement{{"deletedRegion", *region(deleted)}, {"insertedContent", {{"text", fix.replacement}}}};
    out.push_back({{"description", {{"text", description}}},
                   {"artifactChanges", Json::array({{{"artifactLocation", {{"uri", uri_of(fix.where.file)}}},
                                                     {"replacements", Json::array({std::move(replacement)})}}})}});
  }
  return out;
}

std::string_view level_of(Severity s) {
  return s == Severity::info ? "note" : s == Severity::warning ? "warning" : "error";
}

class SarifWriter {
 public:
  SarifWriter() {
    const std::vector<MessageRule>& rules = message_rules();
    for (size_t i = 0; i < rules.size(); ++i) index_.emplace(rules[i].code, i);
  }

  Json rules() const {
    Json out = Json::array();
    for (const MessageRule& rule : message_rules())
      out.push_back({{"id", rule.code}, {"shortDescription", {{"text", rule.text}}}});
    return out;
  }

  Json result(const Diagnostic& d, const std::string& source) const {
    Json r{{"ruleId", d.code}};
    if (auto it = index_.find(d.code); it != index_.end()) r["ruleIndex"] = it->second;
    r["level"] = level_of(d.severity);
    r["message"] = {{"text", render::message_text(d)}};
    // A message about the run (no file was being compiled) has no location.
    const bool placed = d.where.known() || !source.empty();
    if (placed) r["locations"] = Json::array({{{"physicalLocation", physical_location(d.where, source)}}});
    if (!d.notes.empty()) {
      Json related = Json::array();
      for (size_t i = 0; i < d.notes.size(); ++i) {
        Json note{{"id", i}, {"message", {{"text", d.notes[i].message}}}};
        const SourceRange where = render::note_place(d.notes[i], d);
        if (where.known() || !source.empty()) note["physicalLocation"] = physical_location(where, source);
        related.push_back(std::move(note));
      }
      r["relatedLocations"] = std::move(related);
    }
    if (Json f = fixes(d.fixes); !f.empty()) r["fixes"] = std::move(f);
    return r;
  }

 private:
  std::map<std::string, size_t, std::less<>> index_;
};

}  // namespace

std::string render_sarif(const std::vector<FileDiagnostics>& run, std::string_view version) {
  const SarifWriter writer;
  Json results = Json::array();
  for (const FileDiagnostics& file : run)
    for (const Diagnostic& d : file.items)
      if (render::shown(d)) results.push_back(writer.result(d, file.source));
  Json driver{{"name", "tavcmp"}, {"version", version}, {"rules", writer.rules()}};
  Json log{{"$schema", kSchema},
           {"version", "2.1.0"},
           {"runs", Json::array({{{"tool", {{"driver", std::move(driver)}}},
                                  {"columnKind", "unicodeCodePoints"},
                                  {"results", std::move(results)}}})}};
  // Names and contexts come from users' files: bytes that are not UTF-8 become U+FFFD.
  return log.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace tav
