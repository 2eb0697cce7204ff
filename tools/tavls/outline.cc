#include "outline.h"

#include <algorithm>

#include "codegen/header.h"
#include "runtime/ascii.h"
#include "symbols/compiler_stores.h"
#include "symbols/records.h"
#include "text_positions.h"

namespace tav::lsp {

namespace {

using Json = nlohmann::json;

// A list of the op space can be no longer than the space holds records.
constexpr uint32_t kMaxListLength = 1u << 20;

// The records of a list from `head` through the link at `next`, each checked to lie inside the
// used space.
std::vector<uint32_t> list_of(const OpSpace& ops, uint32_t head, uint32_t next, uint32_t size) {
  std::vector<uint32_t> out;
  for (uint32_t r = head; r != 0 && out.size() < kMaxListLength; r = ops.get24(r + next)) {
    if (r + size > ops.brk() || r + size < r) break;
    out.push_back(r);
  }
  return out;
}

// The symbol of a record when the compiler saw it defined in the document.
bool place(const CompilerStores& c, uint32_t record, const std::string& path, OutlineSymbol& s) {
  const SourceRange where = c.tok.diag_range(c.syms.defined_at(record));
  if (!where.known() || where.file != path) return false;
  s.line = s.end_line = where.line;
  s.column = where.column;
  s.end_column = where.end_column;
  return true;
}

std::vector<OutlineSymbol> fields_of(const CompilerStores& c, uint32_t head, const std::string& path) {
  std::vector<OutlineSymbol> out;
  for (uint32_t f : list_of(c.stores.ops, head, fsym::f_next, fsym::size)) {
    OutlineSymbol s;
    s.kind = OutlineSymbol::Kind::field;
    s.detail = "field";
    s.name = c.syms.text(c.stores.ops.get24(f + fsym::f_name));
    if (place(c, f, path, s)) out.push_back(std::move(s));
  }
  return out;
}

std::string_view section_word(uint32_t kind) {
  switch (kind & ssym::kind_mask) {
    case ssym::kind_screen: return "screen";
    case ssym::kind_menu: return "menu";
    case ssym::kind_procedure: return "procedure";
    default: return "section";
  }
}

// The first word of a line, in lower case.
std::string first_word(std::string_view line) {
  std::string word;
  size_t at = line.find_first_not_of(" \t");
  while (at != std::string_view::npos && at < line.size() && line[at] != ' ' && line[at] != '\t')
    word += ascii_lower(line[at++]);
  return word;
}

// The last line before `next` (from 1) that is not blank, and not before `from`.
int last_filled_line(const LineIndex& lines, int from, int next) {
  int last = next - 1;
  while (last > from && lines.line(last - 1).find_first_not_of(" \t\r") == std::string_view::npos) --last;
  return last;
}

// The BEFORE, DETAIL and AFTER parts of a section, found by the word that opens each at the
// start of a line between the section's header and its end.
void add_parts(OutlineSymbol& section, const LineIndex& lines) {
  std::vector<OutlineSymbol> parts;
  for (int line = section.line + 1; line <= section.end_line; ++line) {
    const std::string_view content = lines.line(line - 1);
    const std::string word = first_word(content);
    if (word != "before" && word != "detail" && word != "after") continue;
    if (!parts.empty()) parts.back().end_line = last_filled_line(lines, parts.back().line, line);
    OutlineSymbol part;
    part.kind = OutlineSymbol::Kind::part;
    part.name = part.detail = word;
    part.line = line;
    part.column = static_cast<int>(content.find_first_not_of(" \t")) + 1;
    part.end_column = part.column + static_cast<int>(word.size());
    parts.push_back(std::move(part));
  }
  if (!parts.empty()) parts.back().end_line = section.end_line;
  section.children.insert(section.children.begin(), parts.begin(), parts.end());
}

Json position(int line, int character) { return {{"line", line}, {"character", character}}; }

Json symbol_json(const OutlineSymbol& s, const LineIndex& lines) {
  static constexpr int kKinds[] = {12, 6, 8, 23, 19, 22};  // Function, Method, Field, Struct, Object, EnumMember
  const std::string_view line = lines.line(s.line - 1);
  const Json selection = {{"start", position(s.line - 1, utf16_column(line, s.column))},
                          {"end", position(s.line - 1, utf16_column(line, std::max(s.end_column, s.column + 1)))}};
  const Json range = {{"start", position(s.line - 1, 0)},
                      {"end", position(s.end_line - 1, utf16_length(lines.line(s.end_line - 1)))}};
  Json out{{"name", s.name.empty() ? std::string("?") : s.name},
           {"detail", s.detail},
           {"kind", kKinds[static_cast<int>(s.kind)]},
           {"range", range},
           {"selectionRange", selection}};
  Json children = Json::array();
  for (const OutlineSymbol& c : s.children) children.push_back(symbol_json(c, lines));
  if (!children.empty()) out["children"] = std::move(children);
  return out;
}

}  // namespace

std::vector<OutlineSymbol> outline_of(const CompilerStores& c, const std::string& path, std::string_view text) {
  const OpSpace& ops = c.stores.ops;
  if (ops.brk() < hdr::size) return {};
  std::vector<OutlineSymbol> out = fields_of(c, ops.get24(hdr::h_fields), path);
  for (uint32_t o : list_of(ops, ops.get24(hdr::h_objects), osym::o_next, osym::size)) {
    OutlineSymbol s;
    s.kind = OutlineSymbol::Kind::object;
    s.detail = "object";
    s.name = c.syms.text(ops.get24(o + osym::o_name));
    if (place(c, o, path, s)) out.push_back(std::move(s));
  }
  std::vector<OutlineSymbol> sections;
  for (uint32_t r : list_of(ops, ops.get24(hdr::h_screens), ssym::s_next, ssym::size)) {
    OutlineSymbol s;
    s.kind = OutlineSymbol::Kind::section;
    s.detail = section_word(ops.get16(r + ssym::s_kind));
    s.name = c.syms.text(ops.get24(r + ssym::s_name));
    if ((ops.get16(r + ssym::s_kind) & ssym::kind_mask) == ssym::kind_undefined || !place(c, r, path, s)) continue;
    s.children = fields_of(c, ops.get24(r + ssym::s_locals), path);
    sections.push_back(std::move(s));
  }
  std::sort(sections.begin(), sections.end(), [](const auto& a, const auto& b) { return a.line < b.line; });
  const LineIndex lines(text);
  const int last_line = lines.count();
  for (size_t i = 0; i < sections.size(); ++i) {
    const int next = i + 1 < sections.size() ? sections[i + 1].line : last_line + 1;
    sections[i].end_line = std::max(sections[i].line, last_filled_line(lines, sections[i].line, next));
    add_parts(sections[i], lines);
  }
  out.insert(out.end(), std::make_move_iterator(sections.begin()), std::make_move_iterator(sections.end()));
  std::stable_sort(out.begin(), out.end(), [](const auto& a, const auto& b) { return a.line < b.line; });
  return out;
}

Json document_symbols(const std::vector<OutlineSymbol>& outline, std::string_view text) {
  Json out = Json::array();
  const LineIndex lines(text);
  for (const OutlineSymbol& s : outline) out.push_back(symbol_json(s, lines));
  return out;
}

void add_reports_and_modes(std::vector<OutlineSymbol>& outline, const XrefIndex& xref, const std::string& path) {
  for (const XrefSymbol& x : xref.symbols) {
    if ((x.kind != XrefKind::report && x.kind != XrefKind::mode) || x.definition.file != path) continue;
    OutlineSymbol s;
    s.kind = x.kind == XrefKind::report ? OutlineSymbol::Kind::report : OutlineSymbol::Kind::mode;
    s.detail = std::string(xref_kind_name(x.kind));
    s.name = x.name;
    s.line = s.end_line = x.definition.line;
    s.column = x.definition.column;
    s.end_column = x.definition.end_column;
    outline.push_back(std::move(s));
  }
  std::stable_sort(outline.begin(), outline.end(), [](const auto& a, const auto& b) { return a.line < b.line; });
}

Json folding_ranges(const std::vector<OutlineSymbol>& outline, const std::vector<XrefBlockLines>& blocks,
                    const std::string& path) {
  Json out = Json::array();
  for (const XrefBlockLines& b : blocks)
    if (b.file == path) out.push_back({{"startLine", b.open_line - 1}, {"endLine", b.close_line - 1}, {"kind", "region"}});
  for (const OutlineSymbol& s : outline) {
    if (s.end_line > s.line) out.push_back({{"startLine", s.line - 1}, {"endLine", s.end_line - 1}, {"kind", "region"}});
    for (const OutlineSymbol& c : s.children)
      if (c.end_line > c.line) out.push_back({{"startLine", c.line - 1}, {"endLine", c.end_line - 1}, {"kind", "region"}});
  }
  return out;
}

}  // namespace tav::lsp
