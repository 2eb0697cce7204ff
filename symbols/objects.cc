// The OBJECT statement: file type, file name, record layout, keys and joining of an object the
// program defines itself; objects found or loaded by name.

#include "symbols/suggest.h"
#include "symbols/objects.h"

#include <cstring>
#include <string>

#include "symbols/clauses.h"
#include "symbols/parser_core.h"
#include "symbols/fields.h"
#include "symbols/object_keys.h"
#include "symbols/records.h"

namespace tav {

namespace {

constexpr uint32_t kNoJoins = verb("no_joins");  // also NO-FIELD-JOINS and NO-JOIN

constexpr FileTypeRow kFileTypes[] = {
    {verb("indexed"), osym::type_indexed},           {verb("isam"), osym::type_indexed},
    {verb("memory"), osym::type_memory},             {verb("sequential"), osym::type_sequential},
    {verb("db_sequential"), osym::type_db_sequential},
    {verb("data_base_sequential"), osym::type_db_sequential},
    {verb("c_isam_dat"), osym::type_index_data_only},
    {verb("fixed_length_text"), osym::type_fixed_text},
    {verb("text"), osym::type_text},                 {verb("pipe"), osym::type_pipe},
    {verb("csv"), osym::type_csv},                   {verb("prn"), osym::type_csv},
    {verb("external"), osym::type_external},
};

// The clauses that define a field in place in a record list, with what follows each word: an
// optional IS, a value (read raw for a picture), and an optional trailing word.
enum class ClauseValue : uint8_t { none, word, raw };
struct DefinitionClause {
  uint32_t word;
  bool is;
  ClauseValue value;
  uint32_t trailing;
};
constexpr DefinitionClause kDefinitionClauses[] = {
    {verb("picture"), true, ClauseValue::raw, verb("rounded")},
    {verb("type"), true, ClauseValue::word, 0},
    {verb("occurs"), false, ClauseValue::word, verb("times")},
    {verb("like"), false, ClauseValue::word, 0},
    {verb("upper_case"), false, ClauseValue::none, 0},
    {verb("lower_case"), false, ClauseValue::none, 0},
    {verb("justify"), false, ClauseValue::none, 0},
    {verb("db_column_name"), true, ClauseValue::word, 0},
    {verb("use_name_in_db"), false, ClauseValue::none, 0},
    {verb("drill_back"), true, ClauseValue::word, 0},
};

const DefinitionClause* definition_clause(uint32_t code) {
  for (const DefinitionClause& c : kDefinitionClauses)
    if (c.word == code) return &c;
  return nullptr;
}

std::string_view name_of(const OpSpace& ops, uint32_t rec, uint32_t member) {
  const uint32_t link = ops.get24(rec + member);
  return link ? std::string_view(ops.text_at(link)) : std::string_view();
}

// Reads a clause value: the next token, taken unless it starts the next statement.
void take_value(ParserCore& p) {
  p.next();
  if (p.at_statement_start())
    p.push_back();
  else if (p.tok.held())
    p.accept();
}

// Passes over the definition clauses that follow a field name that was already defined.
void skip_definition_clauses(ParserCore& p) {
  for (;;) {
    const DefinitionClause* c = definition_clause(p.next());
    if (c == nullptr) {
      p.push_back();
      return;
    }
    p.accept();
    if (c->value == ClauseValue::raw) {
      p.tok.request_raw();
      if (p.next() == verb("is")) {
        p.tok.request_raw();
        p.next();
      }
      if (p.at_statement_start()) return;
      p.accept();
    } else {
      if (c->is) p.take(verb("is"));
      if (c->value == ClauseValue::word) take_value(p);
    }
    if (c->trailing) p.take(c->trailing);
  }
}

// The state of one OBJECT statement.
class ObjectDefinition {
 public:
  ObjectDefinition(ParserCore& p, uint32_t object) : p_(p), ops_(p.ops), o_(object) {}

  // Reads the clauses; false when the statement was skipped after an error.
  bool read_clauses();
  void finish();

  // The clauses, each entered with its word read; done when the statement was skipped.
  ClauseStep type_clause();
  ClauseStep file_clause();
  ClauseStep record_clause();
  ClauseStep key_clause() { return step(compile_key_clause(p_, o_, keys_given_)); }
  ClauseStep like_clause();
  template <uint32_t Member>
  ClauseStep character_clause();
  ClauseStep no_joins() { return set(no_joins_); }
  ClauseStep field_joins() { return set(field_joins_); }
  ClauseStep no_rowid() { return set(no_rowid_); }
  ClauseStep other_word();

 private:
  uint16_t attr() const { return static_cast<uint16_t>(ops_.get16(o_ + osym::o_attr)); }
  void set_attr(uint16_t bits) { ops_.put16(o_ + osym::o_attr, attr() | bits); }
  char file_type() const { return static_cast<char>(ops_.at(o_ + osym::o_filtype)[0]); }
  ClauseStep step(bool go_on) {
    skipped_ = !go_on;
    return go_on ? ClauseStep::next : ClauseStep::done;
  }
  static ClauseStep set(bool& given) {
    given = true;
    return ClauseStep::next;
  }

  void empty_record();
  void add_record_field(uint32_t field, uint32_t& offset, uint32_t& tail);

  ParserCore& p_;
  OpSpace& ops_;
  uint32_t o_;
  uint32_t liked_ = 0;     // the program object named by LIKE
  int keys_given_ = 0;     // KEY clauses read
  bool no_joins_ = false;
  bool field_joins_ = false;
  bool no_rowid_ = false;
  bool skipped_ = false;   // a clause skipped the statement after an error
};

constexpr ClauseRow<ObjectDefinition> kObjectClauses[] = {
    {verb("type"), Given::repeatable, {}, [](ObjectDefinition& d) { return d.type_clause(); }},
    {verb("file"), Given::repeatable, {}, [](ObjectDefinition& d) { return d.file_clause(); }},
    {verb("record"), Given::repeatable, {}, [](ObjectDefinition& d) { return d.record_clause(); }},
    {verb("key"), Given::repeatable, {}, [](ObjectDefinition& d) { return d.key_clause(); }},
    {verb("like"), Given::repeatable, {}, [](ObjectDefinition& d) { return d.like_clause(); }},
    {verb("version"), Given::repeatable, {}, [](ObjectDefinition& d) { return d.character_clause<osym::o_version>(); }},
    {verb("separator"), Given::repeatable, {}, [](ObjectDefinition& d) { return d.character_clause<osym::o_separator>(); }},
    {kNoJoins, Given::once, {verb("field_joins")}, [](ObjectDefinition& d) { return d.no_joins(); }},
    {verb("field_joins"), Given::once, {kNoJoins}, [](ObjectDefinition& d) { return d.field_joins(); }},
    {verb("no_rowid"), Given::once, {}, [](ObjectDefinition& d) { return d.no_rowid(); }},
};

bool ObjectDefinition::read_clauses() {
  tav::read_clauses(p_, kObjectClauses, *this, [](ObjectDefinition& d) { return d.other_word(); });
  return !skipped_;
}

// A word that is no clause ends the statement; an unknown clause is reported and passed over.
ClauseStep ObjectDefinition::other_word() {
  if (!(p_.cls() & kClauseWord)) {
    p_.push_back();
    return ClauseStep::done;
  }
  return resume_at_next_clause(p_);
}

// TYPE [IS] word. Only indexed and memory files keep key records.
ClauseStep ObjectDefinition::type_clause() {
  p_.take(verb("is"));
  const FileTypeRow* row = find_file_type(p_.next());
  if (row == nullptr) {
    p_.diag.error(msg::invalid_type);
    if (p_.at_statement_start() || (p_.cls() & kClauseWord))
      p_.push_back();
    return ClauseStep::next;
  }
  if (p_.tok.held()) p_.accept();
  ops_.at(o_ + osym::o_filtype)[0] = static_cast<uint8_t>(row->letter);
  if (!file_type_has_keys(row->letter)) ops_.put24(o_ + osym::o_keylist, 0);
  return ClauseStep::next;
}

// FILE [IS] text.
ClauseStep ObjectDefinition::file_clause() {
  p_.take(verb("is"));
  p_.next();
  if (!p_.is_alpha()) {
    p_.diag.error(msg::alpha_literal_expected);
    if (p_.at_statement_start() || (p_.cls() & kClauseWord)) p_.push_back();
    return ClauseStep::next;
  }
  ops_.put24(o_ + osym::o_file, ops_.store_text(p_.text()));
  return ClauseStep::next;
}

// VERSION [IS] text and SEPARATOR [IS] text: a literal of exactly one character.
template <uint32_t Member>
ClauseStep ObjectDefinition::character_clause() {
  p_.take(verb("is"));
  p_.next();
  if (!p_.is_alpha() && !p_.is_numeric()) {
    p_.diag.error(msg::alpha_literal_expected);
    if (p_.at_statement_start() || (p_.cls() & kClauseWord)) p_.push_back();
    return ClauseStep::next;
  }
  if (p_.text().size() != 1) {
    p_.diag.error(msg::invalid_alpha_literal_string);
    return ClauseStep::next;
  }
  ops_.at(o_ + Member)[0] = static_cast<uint8_t>(p_.text()[0]);
  return ClauseStep::next;
}

// Takes the object's links out of its record and out of the chains of their fields.
void ObjectDefinition::empty_record() {
  for (uint32_t l = ops_.get24(o_ + osym::o_fldobj); l != 0; l = ops_.get24(l + folink::fo_fldobj)) {
    const uint32_t f = ops_.get24(l + folink::fo_field);
    uint32_t prev = 0;
    for (uint32_t j = ops_.get24(f + fsym::f_join); j != 0; j = ops_.get24(j + folink::fo_join)) {
      if (j == l) {
        const uint32_t next = ops_.get24(j + folink::fo_join);
        ops_.put24(prev ? prev + folink::fo_join : f + fsym::f_join, next);
        break;
      }
      prev = j;
    }
  }
  ops_.put24(o_ + osym::o_fldobj, 0);
}

void ObjectDefinition::add_record_field(uint32_t field, uint32_t& offset, uint32_t& tail) {
  const std::string_view fname = name_of(ops_, field, fsym::f_name);
  for (uint32_t l = ops_.get24(o_ + osym::o_fldobj); l != 0; l = ops_.get24(l + folink::fo_fldobj)) {
    if (ops_.get24(l + folink::fo_field) == field) {
      p_.diag.error_text(txt::field_already_in_record, fname);
      break;
    }
  }
  tail = link_record_field(ops_, o_, field, offset, tail);
  offset += ops_.get16(field + fsym::f_size) * ops_.get16(field + fsym::f_occurs);

  const uint32_t col = ops_.get24(field + fsym::f_dbcol);
  if (col == 0) return;
  for (uint32_t l = ops_.get24(o_ + osym::o_fldobj); l != tail; l = ops_.get24(l + folink::fo_fldobj)) {
    const uint32_t other = ops_.get24(l + folink::fo_field);
    const uint32_t other_col = ops_.get24(other + fsym::f_dbcol);
    if (other != field && other_col != 0 &&
        std::strncmp(ops_.text_at(col), ops_.text_at(other_col), 16) == 0) {
      p_.diag.warning_text(txt::db_column_name_used, fname);
      break;
    }
  }
}

// RECORD [IS] field ... END-RECORD. A name followed by a definition clause is defined in place;
// any other name is a field of the program or of a dictionary.
ClauseStep ObjectDefinition::record_clause() {
  set_attr(osym::attr_complete);
  if (ops_.get24(o_ + osym::o_record) != 0) {
    p_.diag.error(msg::duplicate_incompatible_clause);
    empty_record();
  }
  p_.take(verb("is"));
  uint32_t offset = 0;
  uint32_t tail = 0;
  for (;;) {
    p_.next();
    if (p_.at_statement_start()) break;
    if (!p_.is_name()) {
      p_.diag.error(msg::field_name_expected);
      if (p_.tok.held()) p_.accept();
      continue;
    }
    const std::string name(p_.text());
    const bool defining = definition_clause(p_.next()) != nullptr;
    p_.push_back();
    uint32_t field = p_.syms.find_field(name);
    if (field != 0 && !defining) p_.syms.note_name(XrefKind::field, field, name);
    if (field == 0) {
      field = defining ? define_field(p_, name, false) : reference_field(p_, name, nullptr);
      if (field == 0) continue;
    } else if (defining) {
      p_.diag.error(msg::field_name_already_exists_defined);
      p_.diag.add_note("first defined here", p_.syms.defined_at(field));
      skip_definition_clauses(p_);
    }
    add_record_field(field, offset, tail);
  }
  if (p_.cls() == verb("end") || p_.cls() == verb("end_record")) {
    p_.accept();
  } else {
    p_.diag.error_text(txt::end_record_missing, std::string(p_.text()));
  }

  if (offset < 1 || offset > osym::max_recsize) {
    p_.diag.error(msg::record_size_object_invalid);
    return ClauseStep::next;
  }
  ops_.put24(o_ + osym::o_record, p_.data.alloc((offset + 1) & ~1u));
  ops_.put16(o_ + osym::o_recsize, offset);
  ops_.put16(o_ + osym::o_dictno, static_cast<uint16_t>(osym::dictno_program));
  return ClauseStep::next;
}

// LIKE object: the description and record layout of another object.
ClauseStep ObjectDefinition::like_clause() {
  if (ops_.get24(o_ + osym::o_record) != 0) {
    p_.diag.error(msg::duplicate_incompatible_clause);
    empty_record();
  }
  if (p_.next() != kClassName) {
    p_.fail(msg::object_name_expected);
    return step(false);
  }
  const std::string name(p_.text());
  const uint32_t other = p_.syms.find_object(name);
  if (other == o_) {
    p_.diag.error_text(txt::object_defined_as_itself, name);
    return ClauseStep::next;
  }
  if (other == 0) {
    const std::optional<DictObject> row = lookup_dictionary_object(p_, name);
    if (!row) {
      p_.diag.set_name(name);
      p_.fail(msg::object_not_defined_dictionary);
      suggest_object(p_, name);
      return step(false);
    }
    apply_dictionary_row(p_, o_, *row);
    return ClauseStep::next;
  }
  for (uint32_t m : {osym::o_file, osym::o_like})
    ops_.put24(o_ + m, m == osym::o_like ? other : ops_.get24(other + m));
  for (uint32_t m : {osym::o_recsize, osym::o_objid, osym::o_dictno})
    ops_.put16(o_ + m, ops_.get16(other + m));
  for (uint32_t m : {osym::o_filtype, osym::o_version, osym::o_separator, osym::o_filler1})
    ops_.at(o_ + m)[0] = ops_.at(other + m)[0];
  ops_.put16(o_ + osym::o_attr, ops_.get16(other + osym::o_attr) & osym::attr_file_mask);
  const uint32_t size = ops_.get16(o_ + osym::o_recsize);
  if (size >= 1 && size <= osym::max_recsize)
    ops_.put24(o_ + osym::o_record, p_.data.alloc((size + 1) & ~1u));
  uint32_t tail = 0;
  for (uint32_t l = ops_.get24(other + osym::o_fldobj); l != 0; l = ops_.get24(l + folink::fo_fldobj))
    tail = link_record_field(ops_, o_, ops_.get24(l + folink::fo_field), ops_.get16(l + folink::fo_offs), tail);
  liked_ = other;
  return ClauseStep::next;
}

void ObjectDefinition::finish() {
  uint16_t a = attr();
  if (no_joins_) a |= osym::attr_no_joins;
  if (field_joins_) a = static_cast<uint16_t>(a & ~osym::attr_no_joins);
  if (no_rowid_) a |= osym::attr_no_rowid | osym::attr_partial;
  ops_.put16(o_ + osym::o_attr, a);

  const uint32_t first = ops_.get24(o_ + osym::o_fldobj);
  const bool program = static_cast<int16_t>(ops_.get16(o_ + osym::o_dictno)) < 0;
  const uint32_t record = ops_.get24(o_ + osym::o_record);
  if ((first == 0 && program) || record == 0) p_.diag.error(msg::no_fields_defined_object);

  // Field joining: the record's fields live in this object's buffer.
  if (first != 0 && record != 0 && !(a & osym::attr_no_joins)) {
    for (uint32_t l = first; l != 0; l = ops_.get24(l + folink::fo_fldobj))
      ops_.put24(ops_.get24(l + folink::fo_field) + fsym::f_addr, record + ops_.get16(l + folink::fo_offs));
  }

  const char type = file_type();
  if (file_type_has_keys(type)) {
    if (keys_given_ == 0) {
      if (liked_ != 0)
        copy_keys(ops_, o_, liked_);
      else if (!program)
        load_dictionary_keys(p_, o_);
      else
        p_.diag.error(msg::no_keys_defined_object);
    }
  } else if (keys_given_ != 0) {
    p_.diag.error(msg::file_cannot_have_keys);
    ops_.put24(o_ + osym::o_keylist, 0);
  }

  if (type == osym::type_external && ops_.at(o_ + osym::o_separator)[0] == 0)
    ops_.at(o_ + osym::o_separator)[0] = '|';
}

}  // namespace

const FileTypeRow* find_file_type(uint32_t word) {
  for (const FileTypeRow& row : kFileTypes)
    if (row.word == word) return &row;
  return nullptr;
}

uint32_t link_record_field(OpSpace& ops, uint32_t object, uint32_t field, uint32_t offset, uint32_t tail) {
  const uint32_t l = ops.alloc(folink::size);
  ops.put24(l + folink::fo_object, object);
  ops.put24(l + folink::fo_field, field);
  ops.put16(l + folink::fo_offs, offset);
  ops.put24(l + folink::fo_join, ops.get24(field + fsym::f_join));
  ops.put24(field + fsym::f_join, l);
  if (tail == 0) {
    tail = ops.get24(object + osym::o_fldobj);
    while (tail != 0 && ops.get24(tail + folink::fo_fldobj) != 0) tail = ops.get24(tail + folink::fo_fldobj);
  }
  ops.put24(tail ? tail + folink::fo_fldobj : object + osym::o_fldobj, l);
  return l;
}

void define_object(ParserCore& p) {
  if (p.next() != kClassName) {
    p.fail(msg::object_name_expected);
    return;
  }
  const std::string name(p.text());
  if (p.syms.find_object(name) != 0) {
    p.diag.error_text(txt::object_already_defined, name);
    p.tok.skip_to_statement();
    return;
  }
  if (lookup_dictionary_object(p, name)) {
    p.diag.set_name(name);
    p.fail(msg::object_contained_dictionary);
    return;
  }
  ObjectDefinition def(p, p.syms.add_object(name, osym::dictno_program));
  if (def.read_clauses()) def.finish();
}

uint32_t find_or_load_object(ParserCore& p, std::string_view name) {
  if (const uint32_t o = p.syms.find_object(name); o != 0) {
    p.syms.note_name(XrefKind::object, o, name);
    return o;
  }
  const std::optional<DictObject> row = lookup_dictionary_object(p, name);
  if (!row) {
    const std::string wanted(name);  // the name may be the token's text, which the skip replaces
    p.diag.set_name(wanted);
    p.fail(msg::object_not_defined_dictionary);
    suggest_object(p, wanted);
    return 0;
  }
  const uint32_t o = object_from_dictionary(p, name, *row);
  p.syms.note_name(XrefKind::object, o, name);
  return o;
}

uint32_t object_from_dictionary(ParserCore& p, std::string_view name, const DictObject& row) {
  const uint32_t o = p.syms.add_object(name, row.dictno);
  p.syms.xref().not_defined_here(o);
  apply_dictionary_row(p, o, row);
  return o;
}

bool field_in_object(ParserCore& p, uint32_t object, uint32_t field) {
  const OpSpace& ops = p.ops;
  const int16_t dictno = static_cast<int16_t>(ops.get16(object + osym::o_dictno));
  if (dictno < 0) {
    for (uint32_t l = ops.get24(object + osym::o_fldobj); l != 0; l = ops.get24(l + folink::fo_fldobj))
      if (ops.get24(l + folink::fo_field) == field) return true;
    return false;
  }
  if (static_cast<int16_t>(ops.get16(field + fsym::f_dictno)) < 0) return false;
  return p.dictionaries->record_holds(dictno, static_cast<uint16_t>(ops.get16(object + osym::o_objid)),
                                      name_of(ops, field, fsym::f_name));
}

}  // namespace tav
