// Field definitions: the FIELD statement and the definition clauses of one field.

#include "symbols/suggest.h"
#include "symbols/fields.h"

#include <string>

#include "codegen/convert.h"
#include "codegen/header.h"
#include "runtime/ascii.h"
#include "symbols/clauses.h"
#include "symbols/parser_core.h"
#include "symbols/picture.h"
#include "symbols/records.h"
#include "symbols/types.h"

namespace tav {

namespace {

constexpr uint16_t kCaseFlags = fsym::flag_upper | fsym::flag_lower | fsym::flag_justify;

// A field name has the characters of a name and is neither a keyword nor something the
// tokenizer would read as a date.
bool valid_field_name(const ParserCore& p, std::string_view name) {
  if (!valid_name_characters(name) || find_keyword(name) != 0) return false;
  return conv::parse_date(name, p.settings.dates) < 0;
}

std::string lower_case(std::string_view name) {
  std::string s(name);
  for (char& c : s)
    c = ascii_lower(c);
  return s;
}

bool is_mode_name(const ParserCore& p, std::string_view name) {
  const OpSpace& ops = p.ops;
  for (uint32_t m = ops.get24(hdr::h_mode_list); m != 0; m = ops.get24(m + mode::m_next))
    if (SymbolTable::compare_names(ops.text_at(ops.get24(m + mode::m_name)), name) == 0) return true;
  return false;
}

// The clauses of one definition, and what they have set so far.
class FieldDefinition {
 public:
  FieldDefinition(ParserCore& p, uint32_t field, bool local) : p_(p), ops_(p.ops), f_(field), local_(local) {}

  void read_clauses();
  void finish();

  // The clauses, each entered with its word read; done when the definition ends.
  ClauseStep picture() { return after(&FieldDefinition::picture_clause); }
  ClauseStep type() { return after(&FieldDefinition::type_clause); }
  ClauseStep occurs() { return after(&FieldDefinition::occurs_clause); }
  ClauseStep like() { return after(&FieldDefinition::like_clause); }
  ClauseStep upper_case() { return case_clause(fsym::flag_upper, fsym::flag_lower); }
  ClauseStep lower_case() { return case_clause(fsym::flag_lower, fsym::flag_upper); }
  ClauseStep justify();
  ClauseStep db_column_name() { return text_clause(fsym::f_dbcol); }
  ClauseStep use_name_in_db();
  ClauseStep drill_back() { return text_clause(fsym::f_drill); }
  ClauseStep other_word();

 private:
  uint16_t get16(uint32_t member) const { return static_cast<uint16_t>(ops_.get16(f_ + member)); }
  void put16(uint32_t member, uint32_t v) { ops_.put16(f_ + member, v); }
  std::string_view name() const { return ops_.text_at(ops_.get24(f_ + fsym::f_name)); }

  void picture_clause();
  void type_clause();
  void occurs_clause();
  void like_clause();
  ClauseStep case_clause(uint16_t flag, uint16_t other);
  ClauseStep text_clause(uint32_t member);
  ClauseStep after(void (FieldDefinition::*clause)()) {
    (this->*clause)();
    return ended_ ? ClauseStep::done : ClauseStep::next;
  }

  ParserCore& p_;
  OpSpace& ops_;
  uint32_t f_;
  bool local_;
  bool occurs_given_ = false;
  bool ended_ = false;  // the statement was skipped after an error
  bool picture_failed_ = false;  // an invalid picture was reported: what it leaves unset follows from it
};

// PICTURE, TYPE and LIKE also refuse a value that clashes with what another clause has set; the
// table only knows which clauses were given.
constexpr ClauseRow<FieldDefinition> kFieldClauses[] = {
    {verb("picture"), Given::repeatable, {}, [](FieldDefinition& d) { return d.picture(); }},
    {verb("type"), Given::repeatable, {}, [](FieldDefinition& d) { return d.type(); }},
    {verb("occurs"), Given::repeatable, {}, [](FieldDefinition& d) { return d.occurs(); }},
    {verb("like"), Given::repeatable, {}, [](FieldDefinition& d) { return d.like(); }},
    {verb("upper_case"), Given::repeatable, {}, [](FieldDefinition& d) { return d.upper_case(); }},
    {verb("lower_case"), Given::repeatable, {}, [](FieldDefinition& d) { return d.lower_case(); }},
    {verb("justify"), Given::repeatable, {}, [](FieldDefinition& d) { return d.justify(); }},
    {verb("db_column_name"), Given::once, {verb("use_name_in_db")}, [](FieldDefinition& d) { return d.db_column_name(); }},
    {verb("use_name_in_db"), Given::once, {verb("db_column_name")}, [](FieldDefinition& d) { return d.use_name_in_db(); }},
    {verb("drill_back"), Given::once, {}, [](FieldDefinition& d) { return d.drill_back(); }},
};

void FieldDefinition::read_clauses() {
  tav::read_clauses(p_, kFieldClauses, *this, [](FieldDefinition& d) { return d.other_word(); });
}

// A clause of something else ends the definition: in a section header it belongs to the header,
// anywhere else it is invalid. Any other word is the next name of the list, or whatever ends the
// definition.
ClauseStep FieldDefinition::other_word() {
  if ((p_.cls() & kClauseWord) && !local_) {
    p_.fail(msg::invalid_clause);
    return ClauseStep::done;
  }
  p_.push_back();
  return ClauseStep::done;
}

ClauseStep FieldDefinition::justify() {
  put16(fsym::f_flags, get16(fsym::f_flags) | fsym::flag_justify);
  return ClauseStep::next;
}

ClauseStep FieldDefinition::use_name_in_db() {
  ops_.put24(f_ + fsym::f_dbcol, ops_.get24(f_ + fsym::f_name));
  return ClauseStep::next;
}

// PICTURE or PIC [IS] picture [ROUNDED]. The picture is read as one raw word so that its
// parentheses and punctuation stay in it; a quoted picture is a literal.
void FieldDefinition::picture_clause() {
  p_.tok.request_raw();
  if (p_.next() == verb("is")) {
    p_.tok.request_raw();
    p_.next();
  }
  const bool already = get16(fsym::f_format) != 0;
  if (p_.at_statement_start()) {
    p_.diag.error(msg::invalid_picture_string);
    ended_ = true;
    return;
  }
  std::string text(p_.text());
  const bool literal = p_.is_alpha();
  p_.accept();  // leave raw reading

  if (!literal) {
    while (!text.empty() && (text.back() == ',' || text.back() == ';')) text.pop_back();
    // A picture that starts with a field name or a function call is an expression: a picture
    // chosen at run time, which a stored field cannot have. Runs of x or z are pictures.
    const size_t cut = text.find_first_of("([");
    const std::string lead = text.substr(0, cut);
    const bool only_x = lead.find_first_not_of('x') == std::string::npos;
    const bool only_z = lead.find_first_not_of('z') == std::string::npos;
    if (!only_x && !only_z) {
      const bool call = cut != std::string::npos && text[cut] == '(' &&
                        (find_keyword(lead) & kFunctionWord) != 0;
      if (!lead.empty() && (call || field_is_known(p_, lead))) {
        p_.diag.error(msg::expression_not_allowed);
        p_.tok.skip_to_clause();
        return;
      }
    }
  }

  const PictureResult pic = parse_picture(text);
  uint16_t format = pic.format;
  const bool valid = pic.kind == PictureKind::plain;
  if (!valid) {
    p_.diag.error(msg::invalid_picture_string);
    if (!pic.problem.empty()) p_.diag.add_note("the picture is invalid: " + pic.problem);
    picture_failed_ = true;
  }
  if (p_.take(verb("rounded"))) {
    if (valid && !conv::fmt_numeric(format)) {
      p_.diag.error(msg::invalid_picture_string);
    } else {
      format = static_cast<uint16_t>(format | conv::kFmtRounded);
    }
  }
  if (already) {
    p_.diag.error(msg::duplicate_incompatible_clause);
    return;
  }
  if (valid) put16(fsym::f_format, storage_format(format));
}

// TYPE [IS] word.
void FieldDefinition::type_clause() {
  p_.take(verb("is"));
  const uint32_t c = p_.next();
  // Some type words (STRING) are also statement verbs.
  const TypeWordRow* row = find_type_word(p_.text());
  if (row == nullptr) {
    p_.diag.error(msg::invalid_type);
    if (p_.at_statement_start()) {
      ended_ = true;
    } else if (c & kClauseWord) {
      p_.push_back();
    }
    return;
  }
  if (p_.tok.held()) p_.accept();
  if (ops_.at(f_ + fsym::f_type)[0] != 0) {
    p_.diag.error(msg::duplicate_incompatible_clause);
    return;
  }
  ops_.at(f_ + fsym::f_type)[0] = static_cast<uint8_t>(row->letter);
  if (row->format != 0) put16(fsym::f_format, row->format);
}

// OCCURS n [TIMES]: a whole number from 1 to 32767.
void FieldDefinition::occurs_clause() {
  const uint32_t c = p_.next();
  const bool whole = p_.is_numeric() && conv::fmt_decimals(p_.tok.attribute()) == 0;
  const double n = p_.tok.value();
  if (!whole || n < 1 || n > kFieldStorageLimit) {
    p_.diag.error(msg::invalid_field_occurrence);
    if (p_.at_statement_start() || (c & kClauseWord)) {
      p_.push_back();
      return;
    }
  } else {
    put16(fsym::f_occurs, static_cast<uint32_t>(n));
    occurs_given_ = true;
  }
  p_.take(verb("times"));
}

// LIKE name: the definition of a program field, or else of a dictionary field.
void FieldDefinition::like_clause() {
  const bool conflict = ops_.at(f_ + fsym::f_type)[0] != 0 || get16(fsym::f_format) != 0 ||
                        (get16(fsym::f_flags) & kCaseFlags) != 0;
  if (p_.next() != kClassName) {
    p_.diag.error(msg::field_name_expected);
    p_.push_back();
    return;
  }
  if (conflict) {
    p_.diag.error(msg::duplicate_incompatible_clause);
    return;
  }
  const std::string other(p_.text());
  if (const uint32_t g = p_.syms.find_field(other); g != 0) {
    p_.syms.note_name(XrefKind::field, g, other);
    if (g == f_) {
      p_.diag.error_text(txt::field_defined_as_itself, other);
      return;
    }
    put16(fsym::f_fldid, ops_.get16(g + fsym::f_fldid));
    put16(fsym::f_ldictno, ops_.get16(g + fsym::f_ldictno));
    put16(fsym::f_format, ops_.get16(g + fsym::f_format));
    ops_.at(f_ + fsym::f_type)[0] = ops_.at(g + fsym::f_type)[0];
    put16(fsym::f_flags, ops_.get16(g + fsym::f_flags) & kCaseFlags);
    if (!occurs_given_) put16(fsym::f_occurs, ops_.get16(g + fsym::f_occurs));
  } else if (const auto d = p_.dictionaries->find_field(other)) {
    put16(fsym::f_ldictno, static_cast<uint16_t>(d->dictno));
    put16(fsym::f_fldid, d->id);
    put16(fsym::f_format, d->desc);
    ops_.at(f_ + fsym::f_type)[0] = static_cast<uint8_t>(d->type);
    put16(fsym::f_flags, d->flags & kCaseFlags);
    if (!occurs_given_) put16(fsym::f_occurs, d->occurs);
  } else {
    p_.diag.set_name(other);
    p_.diag.error(msg::field_not_defined);
    suggest_field(p_, other);
    return;
  }
  if (get16(fsym::f_occurs) == 0) put16(fsym::f_occurs, 1);
}

// UPPER-CASE and LOWER-CASE exclude each other: the last one given wins.
ClauseStep FieldDefinition::case_clause(uint16_t flag, uint16_t other) {
  uint16_t flags = get16(fsym::f_flags);
  if (flags & other) {
    p_.diag.warning(msg::both_upper_lower_case_specified);
    flags = static_cast<uint16_t>(flags & ~other);
  }
  put16(fsym::f_flags, flags | flag);
  return ClauseStep::next;
}

// DB-COLUMN-NAME [IS] text and DRILL-BACK [IS] text: an alphanumeric literal.
ClauseStep FieldDefinition::text_clause(uint32_t member) {
  p_.take(verb("is"));
  p_.next();
  if (!p_.is_alpha()) {
    p_.fail(msg::syntax_error);
    ended_ = true;
    return ClauseStep::done;
  }
  ops_.put24(f_ + member, ops_.store_text(p_.text()));
  return ClauseStep::next;
}

void FieldDefinition::finish() {
  const char given = static_cast<char>(ops_.at(f_ + fsym::f_type)[0]);
  const uint16_t format = get16(fsym::f_format);
  if (given == 0 && format == 0) {
    p_.diag.error_text(txt::picture_type_missing, Context::current_token());
    if (picture_failed_) p_.diag.mark_follow_on();  // the picture given was already reported
  }
  const SettledType settled = settle_type(given, format != 0, format);
  if (!settled.compatible) {
    p_.diag.error(msg::picture_type_not_compatible);
    if (picture_failed_) p_.diag.mark_follow_on();
  }
  ops_.at(f_ + fsym::f_type)[0] = static_cast<uint8_t>(settled.letter);
  put16(fsym::f_format, settled.format);

  const uint16_t flags = get16(fsym::f_flags);
  if ((flags & kCaseFlags) != 0 && conv::fmt_numeric(settled.format))
    p_.diag.error(msg::duplicate_incompatible_clause);

  uint32_t occurs = get16(fsym::f_occurs);
  if (occurs == 0) put16(fsym::f_occurs, occurs = 1);

  uint32_t size = conv::format_size(settled.format);
  if (size * occurs > kFieldStorageLimit) {
    p_.diag.error(msg::storage_allocation_field_too_large);
    size = 0;
  }
  put16(fsym::f_size, size);

  if (flags & fsym::flag_dbname) {
    // Array columns get a subscript suffix in the database: allow for its digits.
    const size_t suffix = occurs == 1 ? 0 : occurs < 10 ? 2 : occurs < 100 ? 3 : occurs < 1000 ? 4 : 5;
    if (name().size() + suffix > 17) p_.diag.warning_text(txt::name_too_long_for_databases, name());
  }
}

}  // namespace

bool valid_name_characters(std::string_view name) {
  bool letter = false;
  for (char c : name) {
    if (ascii_alpha(c)) {
      letter = true;
    } else if (!(ascii_digit(c) || c == '_' || c == '-' || c == '$' || c == '%')) {
      return false;
    }
  }
  return letter;
}

uint32_t define_field(ParserCore& p, std::string_view name_in, bool local) {
  const std::string name = lower_case(name_in);
  if (!valid_field_name(p, name)) {
    p.diag.error(msg::name_invalid_reserved_word);
    note_reserved_word(p, name);
  }

  const uint32_t f = p.syms.new_field(name, local);
  if (!local) {
    p.syms.append_field(f);
    if (p.dictionaries->find_field(name)) {
      p.diag.set_name(name);
      p.diag.warning(msg::defined_field_present_object);
    }
    p.syms.enter_field_into_cache(f);
  }
  if (is_mode_name(p, name))
    p.diag.warning_text(txt::field_mode_conflict, name);

  FieldDefinition def(p, f, local);
  def.read_clauses();
  def.finish();
  return f;
}

// FIELD, FIELDS or DEFINE, after the statement word: name clauses... name clauses... up to the
// next statement.
void define_fields(ParserCore& p) {
  for (;;) {
    const uint32_t c = p.next();
    if (p.at_statement_start()) return;
    if (c != kClassName) {
      const std::string word(p.text());
      p.fail(msg::name_invalid_reserved_word);
      note_reserved_word(p, word);
      return;
    }
    const std::string name(p.text());
    if (const uint32_t earlier = p.syms.find_field(name); earlier != 0) {
      p.diag.error(msg::field_name_already_exists_defined);
      p.diag.add_note("first defined here", p.syms.defined_at(earlier));
    }
    define_field(p, name, false);
  }
}

}  // namespace tav
