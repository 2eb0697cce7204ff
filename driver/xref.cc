#include "driver/xref.h"

#include <unordered_map>

#include "codegen/header.h"
#include "symbols/compiler_stores.h"
#include "symbols/records.h"

namespace tav {

namespace {

using Json = nlohmann::ordered_json;

// A list of the op space can be no longer than the space holds records.
constexpr size_t kMaxListLength = 1u << 20;

uint64_t key_of(XrefKind kind, uint32_t record) { return (uint64_t{static_cast<uint8_t>(kind)} << 32) | record; }

// Statement keywords are kept as the keyword table spells them ("end_if"); programs write "end-if".
std::string statement_name(std::string_view keyword) {
  std::string out(keyword);
  for (char& c : out)
    if (c == '_') c = '-';
  return out;
}

XrefSymbol::Origin origin_of(const OpSpace& ops, XrefKind kind, uint32_t record) {
  switch (kind) {
    case XrefKind::field:
      if (record + fsym::size > ops.brk()) return XrefSymbol::Origin::program;
      return static_cast<int16_t>(ops.get16(record + fsym::f_dictno)) >= 0 ? XrefSymbol::Origin::dictionary
                                                                           : XrefSymbol::Origin::program;
    case XrefKind::object:
      if (record + osym::size > ops.brk()) return XrefSymbol::Origin::program;
      return static_cast<int16_t>(ops.get16(record + osym::o_dictno)) >= 0 ? XrefSymbol::Origin::dictionary
                                                                           : XrefSymbol::Origin::program;
    default:
      return XrefSymbol::Origin::program;
  }
}

// Each section's own fields belong to the section's symbol.
void link_local_fields(const OpSpace& ops, XrefIndex& out, const std::unordered_map<uint64_t, size_t>& slot) {
  size_t sections = 0;
  for (uint32_t s = ops.get24(hdr::h_screens); s != 0 && sections++ < kMaxListLength; s = ops.get24(s + ssym::s_next)) {
    if (s + ssym::size > ops.brk()) break;
    const auto section = slot.find(key_of(XrefKind::section, s));
    if (section == slot.end()) continue;
    size_t fields = 0;
    for (uint32_t f = ops.get24(s + ssym::s_locals); f != 0 && fields++ < kMaxListLength; f = ops.get24(f + fsym::f_next)) {
      if (f + fsym::size > ops.brk()) break;
      if (const auto field = slot.find(key_of(XrefKind::field, f)); field != slot.end())
        out.symbols[field->second].section = static_cast<int>(section->second);
    }
  }
}

Json place(const SourceRange& at) {
  return {{"file", at.file}, {"line", at.line}, {"column", at.column}, {"endColumn", at.end_column}};
}

}  // namespace

std::string record_name(const OpSpace& ops, uint32_t record, uint32_t member) {
  if (record == 0 || record + member + 3 > ops.brk()) return {};
  const uint32_t link = ops.get24(record + member);
  return link == 0 || link >= ops.brk() ? std::string() : std::string(ops.text_at(link));
}

XrefIndex build_xref(const CompilerStores& c) {
  XrefIndex out;
  const OpSpace& ops = c.stores.ops;
  if (ops.brk() < hdr::size) return out;
  std::unordered_map<uint64_t, size_t> slot;
  for (const XrefName& n : c.syms.xref().names()) {
    auto [it, fresh] = slot.try_emplace(key_of(n.kind, n.record), out.symbols.size());
    if (fresh) {
      XrefSymbol s;
      s.kind = n.kind;
      s.name = n.name;
      s.record = n.record;
      s.origin = origin_of(ops, n.kind, n.record);
      out.symbols.push_back(std::move(s));
    }
    XrefSymbol& s = out.symbols[it->second];
    const SourceRange at = c.tok.diag_range(n.where);
    if (!at.known()) continue;
    if (n.definition && s.origin == XrefSymbol::Origin::program && !s.definition.known())
      s.definition = at;
    else
      s.uses.push_back({at, statement_name(n.statement), n.access});
  }
  for (XrefSymbol& s : out.symbols)
    if (s.kind == XrefKind::mode && !s.definition.known()) s.origin = XrefSymbol::Origin::builtin;
  link_local_fields(ops, out, slot);
  for (const XrefRead& r : c.syms.xref().reads()) {
    XrefObjectRead read;
    read.object = record_name(ops, r.object, osym::o_name);
    read.statement = statement_name(r.statement);
    read.at = c.tok.diag_range(r.where);
    read.index = r.index;
    read.explicit_index = r.explicit_index;
    for (uint32_t f : r.key_fields) read.key_fields.push_back(record_name(ops, f, fsym::f_name));
    read.ranges = r.ranges;
    read.whole_table = r.whole_table;
    out.reads.push_back(std::move(read));
  }
  for (const XrefBlock& b : c.syms.xref().blocks()) {
    const SourceRange open = c.tok.diag_range(b.open), close = c.tok.diag_range(b.close);
    if (open.known() && close.known() && open.file == close.file && close.line > open.line)
      out.blocks.push_back({std::string(b.word), open.file, open.line, close.line});
  }
  for (const XrefClauses& offered : c.syms.xref().clauses())
    if (const SourceRange at = c.tok.diag_range(offered.at); at.known()) out.clauses.push_back({at, offered.words});
  return out;
}

std::string_view origin_name(XrefSymbol::Origin origin) {
  switch (origin) {
    case XrefSymbol::Origin::program: return "program";
    case XrefSymbol::Origin::dictionary: return "dictionary";
    case XrefSymbol::Origin::builtin: return "builtin";
  }
  return "program";
}

nlohmann::ordered_json xref_json(const XrefIndex& index, const std::string& source) {
  Json symbols = Json::array();
  for (const XrefSymbol& s : index.symbols) {
    Json entry{{"kind", xref_kind_name(s.kind)}, {"name", s.name}, {"origin", origin_name(s.origin)}};
    if (s.section >= 0) entry["section"] = index.symbols[static_cast<size_t>(s.section)].name;
    entry["definition"] = s.definition.known() ? place(s.definition) : Json();
    Json uses = Json::array();
    for (const XrefUse& u : s.uses) {
      Json use = place(u.at);
      use["statement"] = u.statement;
      if (s.kind == XrefKind::object) use["access"] = object_access_name(u.access);
      uses.push_back(std::move(use));
    }
    entry["references"] = std::move(uses);
    symbols.push_back(std::move(entry));
  }
  Json reads = Json::array();
  for (const XrefObjectRead& r : index.reads) {
    Json entry{{"statement", r.statement}, {"object", r.object}};
    entry["location"] = r.at.known() ? place(r.at) : Json();
    entry["index"] = r.index;
    entry["explicitIndex"] = r.explicit_index;
    entry["keyFields"] = r.key_fields;
    entry["keyRanges"] = r.ranges;
    entry["wholeTable"] = r.whole_table;
    reads.push_back(std::move(entry));
  }
  Json program{{"source", source}, {"symbols", std::move(symbols)}, {"reads", std::move(reads)}};
  return program;
}

}  // namespace tav
