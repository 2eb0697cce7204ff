#include "definitions.h"

#include "codegen/header.h"
#include "runtime/ascii.h"
#include "symbols/compiler_stores.h"
#include "symbols/records.h"

namespace tav::lsp {

namespace {

// A list of the op space can be no longer than the space holds records.
constexpr size_t kMaxListLength = 1u << 20;

template <typename Each>
void for_list(const OpSpace& ops, uint32_t head, uint32_t next, uint32_t size, Each each) {
  size_t count = 0;
  for (uint32_t r = head; r != 0 && count++ < kMaxListLength; r = ops.get24(r + next)) {
    if (r + size > ops.brk() || r + size < r) break;
    each(r);
  }
}

void add(const CompilerStores& c, std::vector<Definition>& out, Definition::Kind kind, uint32_t record,
         uint32_t name_link, int section = -1) {
  const SourceRange where = c.tok.diag_range(c.syms.defined_at(record));
  if (!where.known()) return;
  out.push_back({kind, std::string(c.syms.text(c.stores.ops.get24(record + name_link))), where, section});
}

bool word_char(char c) { return ascii_alnum(c) || c == '-' || c == '_' || c == '.' || c == '$'; }

std::string lower(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = ascii_lower(c);
  return out;
}

// The section a line of a file lies in: the last one defined in that file at or before it.
int section_at(const std::vector<Definition>& definitions, const std::string& path, int line) {
  int found = -1, found_line = 0;
  for (size_t i = 0; i < definitions.size(); ++i) {
    const Definition& d = definitions[i];
    if (d.kind != Definition::Kind::section || d.where.file != path || d.where.line > line) continue;
    if (d.where.line >= found_line) {
      found = static_cast<int>(i);
      found_line = d.where.line;
    }
  }
  return found;
}

}  // namespace

std::vector<Definition> definitions_of(const CompilerStores& c) {
  std::vector<Definition> out;
  const OpSpace& ops = c.stores.ops;
  if (ops.brk() < hdr::size) return out;
  for_list(ops, ops.get24(hdr::h_screens), ssym::s_next, ssym::size, [&](uint32_t s) {
    if ((ops.get16(s + ssym::s_kind) & ssym::kind_mask) == ssym::kind_undefined) return;
    const size_t before = out.size();
    add(c, out, Definition::Kind::section, s, ssym::s_name);
    if (out.size() == before) return;
    const int index = static_cast<int>(before);
    for_list(ops, ops.get24(s + ssym::s_locals), fsym::f_next, fsym::size,
             [&](uint32_t f) { add(c, out, Definition::Kind::field, f, fsym::f_name, index); });
  });
  // A dictionary's fields and objects are defined there, not where the program first named them.
  const auto from_dictionary = [&](uint32_t record, uint32_t member) {
    return static_cast<int16_t>(ops.get16(record + member)) >= 0;
  };
  for_list(ops, ops.get24(hdr::h_fields), fsym::f_next, fsym::size, [&](uint32_t f) {
    if (!from_dictionary(f, fsym::f_dictno)) add(c, out, Definition::Kind::field, f, fsym::f_name);
  });
  for_list(ops, ops.get24(hdr::h_objects), osym::o_next, osym::size, [&](uint32_t o) {
    if (!from_dictionary(o, osym::o_dictno)) add(c, out, Definition::Kind::object, o, osym::o_name);
  });
  return out;
}

Word word_at(std::string_view line, size_t at) {
  if (at > line.size()) return {};
  size_t from = at, to = at;
  while (from > 0 && word_char(line[from - 1])) --from;
  while (to < line.size() && word_char(line[to])) ++to;
  if (from == to) return {};
  const std::string_view word = line.substr(from, to - from);
  const size_t dot = word.find('.');
  Word w;
  w.qualified = dot != std::string_view::npos;
  w.object_part = w.qualified && at - from <= dot;
  w.name = lower(!w.qualified ? word : w.object_part ? word.substr(0, dot) : word.substr(dot + 1));
  return w;
}

const Definition* resolve(const std::vector<Definition>& definitions, const Word& word, const std::string& path,
                          int line) {
  if (word.name.empty()) return nullptr;
  const auto find = [&](Definition::Kind kind, int section) -> const Definition* {
    for (const Definition& d : definitions)
      if (d.kind == kind && d.section == section && d.name == word.name) return &d;
    return nullptr;
  };
  if (word.object_part) return find(Definition::Kind::object, -1);
  const int section = section_at(definitions, path, line);
  const Definition* found = section >= 0 ? find(Definition::Kind::field, section) : nullptr;
  if (!found) found = find(Definition::Kind::field, -1);
  if (!found && !word.qualified) found = find(Definition::Kind::object, -1);
  if (!found && !word.qualified) found = find(Definition::Kind::section, -1);
  return found;
}

std::string included_name(std::string_view line) {
  const size_t hash = line.find_first_not_of(" \t");
  if (hash == std::string_view::npos || line[hash] != '#') return {};
  const size_t word = line.find_first_not_of(" \t", hash + 1);
  if (word == std::string_view::npos || lower(line.substr(word, 7)) != "include") return {};
  const size_t open = line.find_first_of("\"<", word + 7);
  if (open == std::string_view::npos) return {};
  const size_t close = line.find(line[open] == '"' ? '"' : '>', open + 1);
  if (close == std::string_view::npos) return {};
  return std::string(line.substr(open + 1, close - open - 1));
}

}  // namespace tav::lsp
