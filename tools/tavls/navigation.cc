#include "navigation.h"

#include <algorithm>
#include <fstream>
#include <set>

#include "lexer/verbs.h"
#include "runtime/ascii.h"

namespace tav::lsp {

namespace {

using Json = nlohmann::json;

// Protocol kinds (CompletionItemKind, SymbolKind).
constexpr int kCompletionKeyword = 14;
constexpr int kCompletionField = 5;
constexpr int kCompletionClass = 7;
constexpr int kCompletionFunction = 3;
constexpr int kCompletionEnumMember = 20;
constexpr int kSymbolField = 8;
constexpr int kSymbolClass = 5;
constexpr int kSymbolFunction = 12;
constexpr int kSymbolObject = 19;
constexpr int kSymbolEnumMember = 22;

bool name_char(char c) { return ascii_alnum(c) || c == '-' || c == '_' || c == '$'; }

std::string lower(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = ascii_lower(c);
  return out;
}

// A keyword as programs write it: "end-if" for the table's "end_if".
std::string written(std::string_view keyword) {
  std::string out(keyword);
  std::replace(out.begin(), out.end(), '_', '-');
  return out;
}

bool covers(const SourceRange& at, const std::string& path, int line, int column) {
  return at.known() && at.line == line && at.file == path && column >= at.column && column < at.end_column;
}

// Every place of a symbol once, its definition first.
std::vector<SourceRange> places_of(const XrefSymbol& s, bool with_definition) {
  std::vector<SourceRange> out;
  if (with_definition && s.definition.known()) out.push_back(s.definition);
  for (const XrefUse& u : s.uses)
    if (std::find(out.begin(), out.end(), u.at) == out.end() && !(u.at == s.definition)) out.push_back(u.at);
  return out;
}

Json range_of(const SourceRange& at, SourceLines& lines) {
  const std::string text = lines.line(at.file, at.line);
  const int from = utf16_column(text, at.column);
  const int to = utf16_column(text, std::max(at.end_column, at.column + 1));
  return {{"start", {{"line", at.line - 1}, {"character", from}}}, {"end", {{"line", at.line - 1}, {"character", to}}}};
}

int completion_kind(XrefKind kind) {
  switch (kind) {
    case XrefKind::field: return kCompletionField;
    case XrefKind::object: return kCompletionClass;
    case XrefKind::section: return kCompletionFunction;
    case XrefKind::report: return kCompletionClass;
    case XrefKind::mode: return kCompletionEnumMember;
  }
  return kCompletionField;
}

int symbol_kind(XrefKind kind) {
  switch (kind) {
    case XrefKind::field: return kSymbolField;
    case XrefKind::object: return kSymbolClass;
    case XrefKind::section: return kSymbolFunction;
    case XrefKind::report: return kSymbolObject;
    case XrefKind::mode: return kSymbolEnumMember;
  }
  return kSymbolField;
}

bool starts_with(std::string_view name, std::string_view prefix) {
  return name.size() >= prefix.size() && lower(name.substr(0, prefix.size())) == lower(prefix);
}

// The section whose definition is the last one at or before the line of the file.
int section_at(const XrefIndex& index, const std::string& path, int line) {
  int found = -1, found_line = 0;
  for (size_t i = 0; i < index.symbols.size(); ++i) {
    const XrefSymbol& s = index.symbols[i];
    if (s.kind != XrefKind::section || s.definition.file != path || s.definition.line > line) continue;
    if (s.definition.line >= found_line) {
      found = static_cast<int>(i);
      found_line = s.definition.line;
    }
  }
  return found;
}

void add_item(Json& items, std::set<std::string>& seen, const std::string& label, int kind, const std::string& detail) {
  if (!seen.insert(label).second) return;
  items.push_back({{"label", label}, {"kind", kind}, {"detail", detail}});
}

// The keywords `wanted` takes (by code) that begin with `prefix`.
template <class Wanted>
void add_keywords(Json& items, std::set<std::string>& seen, Wanted wanted, const std::string& prefix,
                  const char* detail) {
  for (int i = 0; i < kVerbCount; ++i) {
    const VerbRow& row = kVerbTable[i];
    if (!wanted(row.code) || row.name.empty() || !ascii_alpha(row.name[0])) continue;
    const std::string word = written(row.name);
    if (starts_with(word, prefix)) add_item(items, seen, word, kCompletionKeyword, detail);
  }
}

void add_keywords(Json& items, std::set<std::string>& seen, uint32_t bits, const std::string& prefix, const char* detail) {
  add_keywords(items, seen, [bits](uint32_t code) { return (code & bits) != 0; }, prefix, detail);
}

// The clause words the statements that begin on `line` offer, as the last compile noted them.
std::set<uint32_t> clauses_offered(const XrefIndex& index, const std::string& path, int line) {
  std::set<uint32_t> words;
  for (const XrefClauseWords& c : index.clauses)
    if (c.at.file == path && c.at.line == line) words.insert(c.words.begin(), c.words.end());
  return words;
}

}  // namespace

std::string SourceLines::line(const std::string& path, int line) {
  if (const std::string* text = open_(path)) return std::string(line_of(*text, line - 1));
  return disk_.line(path, line).value_or("");
}

Json location_of(const SourceRange& at, SourceLines& lines) {
  return {{"uri", uri_of_path(at.file)}, {"range", range_of(at, lines)}};
}

int character_column(std::string_view line, size_t at) {
  int column = 1;
  for (size_t i = 0; i < at && i < line.size(); ++i)
    if ((static_cast<unsigned char>(line[i]) & 0xC0) != 0x80) ++column;
  return column;
}

const XrefSymbol* symbol_at(const XrefIndex& index, const std::string& path, int line, int column) {
  for (const XrefSymbol& s : index.symbols) {
    if (covers(s.definition, path, line, column)) return &s;
    for (const XrefUse& u : s.uses)
      if (covers(u.at, path, line, column)) return &s;
  }
  return nullptr;
}

Json references(const XrefSymbol& symbol, bool with_definition, SourceLines& lines) {
  Json out = Json::array();
  for (const SourceRange& at : places_of(symbol, with_definition)) out.push_back(location_of(at, lines));
  return out;
}

std::string rename_refusal(const XrefSymbol& symbol, std::string_view name) {
  const std::string kind(xref_kind_name(symbol.kind));
  if (symbol.origin == XrefSymbol::Origin::dictionary)
    return "'" + symbol.name + "' is a " + kind + " of the data dictionary; rename it there, not in the program";
  if (symbol.origin == XrefSymbol::Origin::builtin) return "'" + symbol.name + "' is a built-in mode";
  if (!symbol.definition.known()) return "'" + symbol.name + "' is not defined in the program";
  if (name.empty() || !ascii_alpha(name[0]) || !std::all_of(name.begin(), name.end(), name_char))
    return "'" + std::string(name) + "' is not a name: a letter, then letters, digits, '-' or '_'";
  if (name.size() > 30) return "'" + std::string(name) + "' is longer than the 30 characters a name may have";
  if (find_keyword(name) != 0) return "'" + std::string(name) + "' is a reserved word";
  return {};
}

Json rename_edit(const XrefSymbol& symbol, const std::string& name, SourceLines& lines) {
  Json changes = Json::object();
  for (const SourceRange& at : places_of(symbol, true)) {
    const std::string uri = uri_of_path(at.file);
    if (!changes.contains(uri)) changes[uri] = Json::array();
    changes[uri].push_back({{"range", range_of(at, lines)}, {"newText", name}});
  }
  return {{"changes", std::move(changes)}};
}

CompletionContext completion_context(std::string_view before) {
  CompletionContext c;
  size_t start = before.size();
  while (start > 0 && (name_char(before[start - 1]) || before[start - 1] == '.')) --start;
  const std::string_view word = before.substr(start);
  if (const size_t dot = word.find('.'); dot != std::string_view::npos) {
    c.kind = CompletionContext::Kind::object_fields;
    c.object = lower(word.substr(0, dot));
    c.prefix = std::string(word.substr(dot + 1));
    return c;
  }
  c.prefix = std::string(word);
  const std::string_view head = before.substr(0, start);
  const size_t first = head.find_first_not_of(" \t");
  if (first == std::string_view::npos) {
    c.kind = CompletionContext::Kind::statement;
    return c;
  }
  // After a statement's verb: its clause words and the names it may take.
  size_t end = first;
  while (end < head.size() && name_char(head[end])) ++end;
  const uint32_t verb = find_keyword(head.substr(first, end - first));
  c.kind = verb & (kStatementVerb | kSectionStart) ? CompletionContext::Kind::clause : CompletionContext::Kind::names;
  return c;
}

Json completion_items(const CompletionContext& context, const XrefIndex* index, const std::string& path, int line,
                      const std::vector<std::string>& object_fields, const std::vector<std::string>& dictionary_objects) {
  Json items = Json::array();
  std::set<std::string> seen;
  if (context.kind == CompletionContext::Kind::object_fields) {
    for (const std::string& f : object_fields)
      if (starts_with(f, context.prefix)) add_item(items, seen, f, kCompletionField, "field of " + context.object);
    return items;
  }
  if (context.kind == CompletionContext::Kind::statement)
    add_keywords(items, seen, kStatementVerb | kSectionStart, context.prefix, "statement");
  if (context.kind == CompletionContext::Kind::clause) {
    // The statement's own clause words when the compile reached its clauses; all of them else.
    const std::set<uint32_t> offered = index ? clauses_offered(*index, path, line) : std::set<uint32_t>();
    if (offered.empty())
      add_keywords(items, seen, kClauseWord, context.prefix, "clause");
    else
      add_keywords(items, seen, [&](uint32_t code) { return offered.count(code) > 0; }, context.prefix, "clause");
  }
  if (index) {
    const int section = section_at(*index, path, line);
    for (const XrefSymbol& s : index->symbols) {
      if (s.kind == XrefKind::mode || !starts_with(s.name, context.prefix)) continue;
      if (s.section >= 0 && s.section != section) continue;  // another section's own field
      add_item(items, seen, s.name, completion_kind(s.kind), std::string(xref_kind_name(s.kind)));
    }
  }
  for (const std::string& o : dictionary_objects)
    if (starts_with(o, context.prefix)) add_item(items, seen, o, kCompletionClass, "dictionary object");
  return items;
}

void workspace_symbols(const XrefIndex& index, const std::string& query, SourceLines& lines, Json& out) {
  const std::string wanted = lower(query);
  for (const XrefSymbol& s : index.symbols) {
    if (!s.definition.known() || s.name.find(wanted) == std::string::npos) continue;
    Json symbol{{"name", s.name}, {"kind", symbol_kind(s.kind)}, {"location", location_of(s.definition, lines)}};
    if (s.section >= 0) symbol["containerName"] = index.symbols[static_cast<size_t>(s.section)].name;
    out.push_back(std::move(symbol));
  }
}

std::optional<SourceRange> exported_routine(const std::string& source, const std::string& name) {
  std::ifstream in(source, std::ios::binary);
  std::string line;
  for (int n = 1; std::getline(in, line); ++n) {
    std::vector<std::pair<size_t, std::string>> words;  // each word's start and its lower case
    for (size_t at = 0; at < line.size() && words.size() < 16;) {
      if (!name_char(line[at])) {
        ++at;
        continue;
      }
      const size_t start = at;
      while (at < line.size() && name_char(line[at])) ++at;
      words.emplace_back(start, lower(std::string_view(line).substr(start, at - start)));
    }
    if (words.size() < 3 || words[1].second != name) continue;
    const std::string& verb = words[0].second;
    if (verb != "procedure" && verb != "screen" && verb != "menu" && verb != "api") continue;
    if (std::none_of(words.begin() + 2, words.end(), [](const auto& w) { return w.second == "export"; })) continue;
    const int column = character_column(line, words[1].first);
    return SourceRange{source, n, column, column + static_cast<int>(name.size())};
  }
  return std::nullopt;
}

}  // namespace tav::lsp
