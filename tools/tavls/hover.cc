#include "hover.h"

#include "codegen/opspace.h"
#include "symbols/compiler_stores.h"
#include "symbols/dictionary.h"
#include "symbols/picture.h"
#include "symbols/records.h"

namespace tav::lsp {

namespace {

// A list of the op space can be no longer than the space holds records.
constexpr size_t kMaxListLength = 1u << 16;

std::string place_text(const SourceRange& at) {
  const size_t slash = at.file.rfind('/');
  return (slash == std::string::npos ? at.file : at.file.substr(slash + 1)) + ":" + std::to_string(at.line);
}

void add_documentation(std::string& out, Dictionaries* dictionaries, int dictno, int type, uint16_t id,
                       const char* heading) {
  if (!dictionaries || dictno < 0) return;
  const std::vector<std::string> lines = dictionaries->documentation_text(dictno, type, id);
  if (lines.empty()) return;
  out += "\n\n";
  if (heading) out += std::string("*") + heading + "*\n\n";
  out += "```\n";
  for (const std::string& line : lines) out += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
  out += "```";
}

std::string field_text(CompilerStores& c, const XrefSymbol& s) {
  const OpSpace& ops = c.stores.ops;
  const uint32_t f = s.record;
  if (f + fsym::size > ops.brk()) return {};
  const auto format = static_cast<uint16_t>(ops.get16(f + fsym::f_format));
  const char type = static_cast<char>(ops.at(f + fsym::f_type)[0]);
  const uint32_t occurs = ops.get16(f + fsym::f_occurs);
  std::string out = "```tavrin\nfield " + s.name + " pic " + storage_picture(format);
  if (occurs > 1) out += " occurs " + std::to_string(occurs);
  out += "\n```\ntype " + std::string(1, type > ' ' ? type : '?') + ", " + std::to_string(ops.get16(f + fsym::f_size)) +
         " bytes" + (occurs > 1 ? " × " + std::to_string(occurs) : "");
  const auto dictno = static_cast<int16_t>(ops.get16(f + fsym::f_dictno));
  if (s.definition.known()) out += ", defined at " + place_text(s.definition);
  if (s.section >= 0) out += " (a field of its section)";
  if (dictno >= 0 && c.dictionaries) {
    out += ", from the dictionary";
    const auto id = static_cast<uint16_t>(ops.get16(f + fsym::f_fldid));
    add_documentation(out, c.dictionaries, dictno, kDocField, id, nullptr);
    add_documentation(out, c.dictionaries, dictno, kDocValidation, id, "validation");
  }
  return out;
}

std::string keys_text(const OpSpace& ops, uint32_t object) {
  std::string out;
  size_t keys = 0;
  for (uint32_t k = ops.get24(object + osym::o_keylist); k != 0 && k + keyrec::size <= ops.brk() && keys++ < 64;
       k = ops.get24(k + keyrec::k_next)) {
    out += "\n- key " + std::to_string(*ops.at(k + keyrec::k_index)) + ":";
    size_t parts = 0;
    for (uint32_t p = ops.get24(k + keyrec::k_parts); p != 0 && p + keypart::size <= ops.brk() && parts++ < 16;
         p = ops.get24(p + keypart::kp_next))
      out += " " + record_name(ops, ops.get24(p + keypart::kp_field), fsym::f_name) +
             (ops.get16(p + keypart::kp_desc) ? " desc" : "");
  }
  return out;
}

std::string object_text(CompilerStores& c, const XrefSymbol& s) {
  const OpSpace& ops = c.stores.ops;
  const uint32_t o = s.record;
  if (o + osym::size > ops.brk()) return {};
  const char type = static_cast<char>(ops.at(o + osym::o_filtype)[0]);
  std::string out = "```tavrin\nobject " + s.name + "\n```\nfile type " + std::string(1, type > ' ' ? type : '?');
  if (const std::string file = record_name(ops, o, osym::o_file); !file.empty()) out += ", file \"" + file + "\"";
  out += ", record " + std::to_string(ops.get16(o + osym::o_recsize)) + " bytes";
  if (s.definition.known()) out += ", defined at " + place_text(s.definition);
  if (s.origin == XrefSymbol::Origin::dictionary) out += ", from the dictionary";
  std::string layout;
  size_t fields = 0;
  for (uint32_t l = ops.get24(o + osym::o_fldobj); l != 0 && l + folink::size <= ops.brk() && fields++ < kMaxListLength;
       l = ops.get24(l + folink::fo_fldobj)) {
    const uint32_t f = ops.get24(l + folink::fo_field);
    if (f == 0 || f + fsym::size > ops.brk()) continue;
    layout += "\n| " + std::to_string(ops.get16(l + folink::fo_offs)) + " | " + record_name(ops, f, fsym::f_name) + " | " +
              storage_picture(static_cast<uint16_t>(ops.get16(f + fsym::f_format))) + " |";
  }
  if (!layout.empty()) out += "\n\n| offset | field | picture |\n|---:|---|---|" + layout;
  if (const std::string keys = keys_text(ops, o); !keys.empty()) out += "\n\n**keys**" + keys;
  const auto dictno = static_cast<int16_t>(ops.get16(o + osym::o_dictno));
  if (dictno >= 0)
    add_documentation(out, c.dictionaries, dictno, kDocObject, static_cast<uint16_t>(ops.get16(o + osym::o_objid)), nullptr);
  return out;
}

}  // namespace

std::vector<std::string> hover_texts(CompilerStores& c, const XrefIndex& index) {
  std::vector<std::string> out;
  out.reserve(index.symbols.size());
  for (const XrefSymbol& s : index.symbols) {
    switch (s.kind) {
      case XrefKind::field: out.push_back(field_text(c, s)); break;
      case XrefKind::object: out.push_back(object_text(c, s)); break;
      default: {
        std::string text = "```tavrin\n" + std::string(xref_kind_name(s.kind)) + " " + s.name + "\n```";
        if (s.definition.known()) text += "\ndefined at " + place_text(s.definition);
        else if (s.origin == XrefSymbol::Origin::builtin) text += "\na built-in mode";
        out.push_back(std::move(text));
      }
    }
  }
  return out;
}

std::string read_text(const XrefObjectRead& r) {
  std::string out = "**" + r.statement + "** reads `" + r.object + "` ";
  if (r.whole_table) return out + "from end to end: no key bounds it (a whole-table read)";
  out += "by index " + std::to_string(r.index) + (r.explicit_index ? " (named in the statement)" : "");
  if (!r.key_fields.empty()) {
    out += "; the key is bounded by";
    for (const std::string& f : r.key_fields) out += " `" + f + "`";
  }
  for (const std::string& ranges : r.ranges) out += "\n- `" + ranges + "`";
  return out;
}

}  // namespace tav::lsp
