// Writing a dictionary's contents as a schema: FIELD statements in id order, then OBJECT
// statements in id order, each followed by its notes. Every clause is chosen so that compiling it
// gives back the same row; a row no clause gives is reported instead.

#include <map>
#include <string>

#include "codegen/convert.h"
#include "lexer/verbs.h"
#include "schema.h"
#include "symbols/objects.h"
#include "symbols/picture.h"
#include "symbols/types.h"

namespace tav::dict_tool {

namespace {

constexpr size_t kNameLimit = 30;
constexpr size_t kFileLimit = 40;
constexpr size_t kLineLimit = 80;

// A keyword as a program writes it: hyphens for underscores.
std::string spelled(std::string_view word) {
  std::string s(word);
  for (char& c : s)
    if (c == '_') c = '-';
  return s;
}

// A literal holding `text`: quoted with " unless the text holds one, then with '.
std::optional<std::string> literal(const std::string& text) {
  for (char q : {'"', '\''})
    if (text.find(q) == std::string::npos) return q + text + q;
  return std::nullopt;
}

// The TYPE word of the OBJECT statement for a file type letter.
std::optional<std::string> file_type_word(char letter) {
  for (int i = 0; i < kVerbCount; ++i) {
    const FileTypeRow* row = find_file_type(kVerbTable[i].code);
    if (row && row->letter == letter) return spelled(kVerbTable[i].name);
  }
  return std::nullopt;
}

// The definition clauses that give a field its type letter and format word, as the FIELD
// statement settles them; nothing when none do.
std::optional<std::string> type_clauses(char letter, uint16_t format) {
  const auto gives = [&](SettledType s) { return s.compatible && s.letter == letter && s.format == format; };
  // A TYPE word alone gives its type's default definition; one whose definition a plain picture
  // gives too (COLOUR: pic 9(5)) would make a number read as a colour, and is left to the picture.
  for (const TypeWordRow& row : kTypeWords)
    if (row.letter == letter && row.format == 0 && gives(settle_type(letter, false, 0)))
      return "type " + spelled(row.word);
  const bool rounded = conv::fmt_numeric(format) && (format & conv::kFmtRounded);
  const std::string pic = "pic " + storage_picture(format) + (rounded ? " rounded" : "");
  const PictureResult parsed = parse_picture(storage_picture(format));
  if (parsed.kind != PictureKind::plain) return std::nullopt;
  const uint16_t stored = storage_format(static_cast<uint16_t>(parsed.format | (rounded ? conv::kFmtRounded : 0)));
  if (gives(settle_type(0, true, stored))) return pic;
  for (const TypeWordRow& row : kTypeWords)
    if (row.letter == letter && row.format == 0 && gives(settle_type(letter, true, stored)))
      return pic + " type " + spelled(row.word);
  return std::nullopt;
}

class SchemaWriter {
 public:
  SchemaWriter(const Schema& schema, Problems& problems) : problems_(problems) {
    for (const FieldEntry& f : schema.fields) storage_[f.name] = static_cast<uint32_t>(f.size) * f.occurs;
  }
  void field(const FieldEntry& f);
  void object(const ObjectEntry& o);
  std::string text() const { return out_; }

 private:
  void note(const char* target, const std::string& name, const char* word, const std::string& text) {
    out_ += "//% " + std::string(target) + " " + name + " " + word + (text.empty() ? "" : " " + text) + "\n";
  }
  void text_clause(const std::string& what, const char* clause, const std::string& text) {
    if (std::optional<std::string> l = literal(text))
      out_ += " " + std::string(clause) + " " + *l;
    else
      problems_.push_back(what + ": its " + clause + " text holds both kinds of quote");
  }
  void record(const ObjectEntry& o);

  Problems& problems_;
  std::map<std::string, uint32_t> storage_;  // bytes of each field, all occurrences
  std::string out_;
};

void SchemaWriter::field(const FieldEntry& f) {
  const std::string what = "field " + f.name;
  const std::optional<std::string> type = type_clauses(f.type, f.format);
  if (!type) {
    problems_.push_back(what + ": no definition gives type " + std::string(1, f.type) + " with format word " +
                        std::to_string(f.format));
    return;
  }
  // What the definition would not give back: the line would not mean what the row means.
  std::string differs;
  if (f.size != conv::format_size(f.format)) differs = "its size " + std::to_string(f.size) + " is not the size of its format word";
  if (f.occurs == 0) differs = "it has no occurrences";
  if (f.flags & ~7u) differs = "its flags " + std::to_string(f.flags) + " hold bits no clause sets";
  if ((f.flags & 7u) && conv::fmt_numeric(f.format)) differs = "a number cannot be UPPER-CASE, LOWER-CASE or JUSTIFY";
  if (!differs.empty()) {
    problems_.push_back(what + ": no definition gives its row: " + differs + " (see tavdict check)");
    return;
  }
  out_ += "field " + f.name + " " + *type;
  if (f.occurs > 1) out_ += " occurs " + std::to_string(f.occurs);
  if (f.flags & 1) out_ += " upper-case";
  if (f.flags & 2) out_ += " lower-case";
  if (f.flags & 4) out_ += " justify";
  if (!f.column.empty()) text_clause(what, "db-column-name", f.column);
  if (!f.drill_back.empty()) text_clause(what, "drill-back", f.drill_back);
  out_ += "\n";
  if (!f.description.empty()) note("field", f.name, "description", f.description);
  for (const std::string& line : f.doc) note("field", f.name, "doc", line);
  for (const std::string& line : f.validation) note("field", f.name, "validation", line);
  if (!f.title.empty()) note("field", f.name, "title", f.title);
}

// The record list: the fields one after the other from offset 0, as the RECORD clause lays them.
void SchemaWriter::record(const ObjectEntry& o) {
  out_ += "\n  record";
  uint32_t at = 0;
  for (const RecordEntry& e : o.record) {
    if (e.offset != at) break;
    at += storage_[e.field];
    out_ += " " + e.field;
  }
  out_ += " end-record";
  if (at != o.recsize || (!o.record.empty() && o.record.back().offset + storage_[o.record.back().field] != at))
    problems_.push_back("object " + o.name + ": its record offsets and size do not follow its fields (see tavdict check)");
}

void SchemaWriter::object(const ObjectEntry& o) {
  const std::string what = "object " + o.name;
  const std::optional<std::string> type = file_type_word(o.type);
  if (!type) {
    problems_.push_back(what + ": unknown file type '" + std::string(1, o.type) + "'");
    return;
  }
  out_ += "object " + o.name + " type " + *type;
  if (!o.file.empty()) text_clause(what, "file", o.file);
  if (o.version != ObjectEntry::kDefaultVersion) text_clause(what, "version", std::string(1, o.version));
  if (o.separator != ' ' && !(o.type == 'E' && o.separator == '|'))
    text_clause(what, "separator", std::string(1, o.separator));
  record(o);
  for (const KeyEntry& k : o.keys) {
    if (k.flags & ~7u) problems_.push_back(what + ": a key's flags " + std::to_string(k.flags) + " hold bits no clause sets");
    out_ += "\n  key";
    for (size_t i = 0; i < k.fields.size(); ++i) out_ += " " + k.fields[i] + (k.descending[i] ? " desc" : "");
    if (!(k.flags & kDictKeyDuplicates)) out_ += " unique";
    if (k.flags & kDictKeyDbOnly) out_ += " db-index-only";
    if (k.flags & kDictKeyCompressed) out_ += " compress";
  }
  out_ += "\n";
  if (!o.description.empty()) note("object", o.name, "description", o.description);
  for (const std::string& line : o.doc) note("object", o.name, "doc", line);
}

void check_text(Problems& problems, const std::string& what, const char* member, const std::string& text,
                size_t limit) {
  if (text.size() > limit)
    problems.push_back(what + ": the " + member + " is longer than " + std::to_string(limit) + " characters");
}

}  // namespace

void check_limits(const Schema& schema, Problems& problems) {
  for (const FieldEntry& f : schema.fields) {
    const std::string what = "field " + f.name;
    check_text(problems, what, "name", f.name, kNameLimit);
    check_text(problems, what, "database column name", f.column, kDictColumnNameLength);
    check_text(problems, what, "DRILL-BACK text", f.drill_back, kLineLimit);
  }
  for (const ObjectEntry& o : schema.objects) {
    const std::string what = "object " + o.name;
    check_text(problems, what, "name", o.name, kNameLimit);
    check_text(problems, what, "file name", o.file, kFileLimit);
  }
}

std::string write_schema(const Schema& schema, Problems& problems) {
  SchemaWriter w(schema, problems);
  for (const FieldEntry& f : schema.fields) w.field(f);
  for (const ObjectEntry& o : schema.objects) w.object(o);
  return w.text();
}

}  // namespace tav::dict_tool
