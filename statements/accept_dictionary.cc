// What an ACCEPT takes from the accepted field's data dictionary (its validation text and its
// column title) and LOOKUP, which checks the value against another object's key.

#include <string>

#include "codegen/convert.h"
#include "statements/accept.h"
#include "statements/accept_internal.h"
#include "statements/record_io.h"
#include "symbols/dictionary.h"

namespace tav {

namespace {

constexpr size_t kDocLineWidth = 79;
constexpr size_t kSourceNameField = 30;

struct DictionaryField {
  int dictno = -1;
  uint16_t id = 0;
  bool present() const { return dictno >= 0; }
};

DictionaryField dictionary_field(const Parser& p, uint32_t field) {
  const uint32_t id = p.ops.get16(field + fsym::f_fldid);
  const auto dictno = static_cast<int16_t>(p.ops.get16(field + fsym::f_dictno));
  if (id == 0xffff || dictno < 0) return {};
  return {dictno, static_cast<uint16_t>(id)};
}

std::string field_name(const Parser& p, uint32_t field) {
  return std::string(p.syms.text(p.ops.get24(field + fsym::f_name)));
}

// A one-op list holding the literal text, registered as a text item of kind 'D'.
uint32_t text_item_list(Parser& p, const std::string& text) {
  p.ob.open_level();
  const uint32_t op = p.ob.emit(Op::literal);
  p.ops.put24(op + literal::lit_text, p.ops.copy_in(text.data(), static_cast<uint32_t>(text.size())));
  p.ops.put16(op + literal::lit_length, static_cast<uint16_t>(text.size()));
  p.ob.make_text_item_op(op, 'D');
  const uint32_t head = p.ob.top().head;
  p.ob.close_level();
  return head;
}

bool in_review_area(const Parser& p, uint32_t row) {
  const OpSpace& ops = p.ops;
  const uint32_t base = ops.get16(p.section + ssym::s_base);
  const uint32_t rows = ops.get16(p.section + ssym::s_occurs) * std::max<uint32_t>(1, ops.get16(p.section + ssym::s_review_by));
  return !(row & kOperandList) && row >= base && row < base + rows;
}

}  // namespace

// The field's validation text, read through the ACCEPT clauses as if it stood in the program.
void run_dictionary_validations(Accept& a) {
  Parser& p = a.p;
  const DictionaryField df = dictionary_field(p, a.field);
  if (!df.present()) return;
  if (p.validating_field != 0) {
    p.diag.error_text(txt::nested_dictionary_validations, Context::current_token());
    return;
  }
  const std::vector<std::string> lines = p.dictionaries->documentation_text(df.dictno, kDocValidation, df.id);
  if (lines.empty()) return;
  std::string text;
  for (const std::string& line : lines) text.append(line.substr(0, kDocLineWidth)).push_back('\n');
  TextLineSource source(text);
  p.tok.save_position();
  p.tok.set_file_name("[" + field_name(p, a.field).substr(0, kSourceNameField) + "]");
  p.tok.set_line(0);
  p.tok.set_line_source(&source);
  p.validating_field = a.field;
  a.dictionary = true;
  read_accept_clauses(a);
  a.dictionary = false;
  p.validating_field = 0;
}

// In the DETAIL of a DATA-GRID, a field of a dictionary placed in the review area is titled with
// its column title when the program gave none.
void default_column_title(Accept& a) {
  Parser& p = a.p;
  OpSpace& ops = p.ops;
  if (ops.get24(a.d + adesc::ad_title) != 0 || a.no_title || p.part != SectionPart::detail) return;
  if (!(ops.get16(p.section + ssym::s_flags) & ssym::review_data_grid)) return;
  if (!in_review_area(p, ops.get24(a.d + adesc::ad_row))) return;
  const uint32_t title = dictionary_column_title(p, a.field);
  if (title == 0) return;
  ops.put24(a.d + adesc::ad_title, title);
  a.reach(adesc::ad_title + 3);
}

uint32_t dictionary_column_title(Parser& p, uint32_t field) {
  const DictionaryField df = dictionary_field(p, field);
  if (!df.present()) return 0;
  const std::string title = p.dictionaries->documentation(df.dictno, kDocColumnTitle, df.id, 0);
  return title.empty() ? 0 : text_item_list(p, title);
}

// LOOKUP [NOT] [IN] object [ON INDEX n] [KEY values]: an access key block for the object.
ClauseStep accept_lookup(Accept& a) {
  Parser& p = a.p;
  OpSpace& ops = p.ops;
  const bool kept = ops.get24(a.d + adesc::ad_lookup) != 0;
  if (kept && !a.dictionary) p.diag.error(msg::duplicate_incompatible_clause);
  const bool negate = p.take(verb("not"));
  p.take(verb("in"));
  const uint32_t object = read_object(p);
  if (object == 0) return ClauseStep::done;
  if (!require_file_type(p, object, "IM")) {
    p.tok.skip_to_clause();
    return ClauseStep::next;
  }
  RecordIo r{p, RecordIo::get};
  r.block = new_record_io(p);
  r.object = object;
  ops.put24(r.block + accesskey::a_object, object);
  if (const uint32_t first_key = ops.get24(object + osym::o_keylist); first_key != 0) {
    const uint32_t k = ops.alloc(lookupkey::size);
    ops.put24(k + lookupkey::lk_field, ops.get24(ops.get24(first_key + keyrec::k_parts) + keypart::kp_field));
    ops.put24(r.block + accesskey::a_list, k);
  }
  if (!kept) {
    ops.put24(a.d + adesc::ad_lookup, r.block);
    if (negate) a.set_bits(adesc::ad_options, opt::lookup_not);
  }
  a.reach(adesc::ad_lookup + 3);
  if (p.take(verb("on"))) {
    if (!p.take(verb("index"))) return accept_on_key(a);  // the ON of an ON clause
    if (io_index(r) == ClauseStep::done) return ClauseStep::done;
  }
  if (p.take(verb("key")) && io_key(r) == ClauseStep::done) return ClauseStep::done;
  return ClauseStep::next;
}

// When LOOKUP gave no key values, the ACCEPTed field becomes the value of the key's first part,
// unless it is a part of the key itself.
void check_lookup(Accept& a) {
  Parser& p = a.p;
  OpSpace& ops = p.ops;
  const uint32_t block = ops.get24(a.d + adesc::ad_lookup);
  if (block == 0 || ops.get24(block + accesskey::a_values) != 0) return;
  const uint32_t object = ops.get24(block + accesskey::a_object);
  const uint32_t key = key_record(p, object, ops.at(block + accesskey::a_index)[0]);
  const bool unqualified_ok = !(ops.get16(object + osym::o_attr) & osym::attr_no_joins);
  if (key == 0) {
    p.diag.error(msg::key_values_not_compatible_key);
    return;
  }
  for (uint32_t kp = ops.get24(key + keyrec::k_parts); kp != 0; kp = ops.get24(kp + keypart::kp_next))
    if (ops.get24(kp + keypart::kp_field) == a.field && (a.object == object || (a.object == 0 && unqualified_ok))) return;
  const uint32_t first = ops.get24(ops.get24(key + keyrec::k_parts) + keypart::kp_field);
  if (find_accept(p, a.previous, first, 0, false) != 0) {
    p.diag.warning_text(txt::accepted_field_not_in_index, Context::current_token());
    return;
  }
  const uint16_t first_format = static_cast<uint16_t>(ops.get16(first + fsym::f_format));
  if (conv::fmt_numeric(first_format) != a.numeric_field()) {
    p.diag.error(msg::key_values_not_compatible_key);
    return;
  }
  const uint32_t value = ops.alloc(exprlist::size);
  p.ob.open_level();
  const uint32_t op = p.ob.emit(Op::field_ref);
  ops.put24(op + fieldref::fr_object, a.object);
  ops.put16(op + fieldref::fr_format, a.field_format());
  ops.put24(op + fieldref::fr_field, a.field);
  ops.put24(op + fieldref::fr_subscript, ops.get24(a.d + adesc::ad_subscript));
  ops.put24(value + exprlist::el_list, p.ob.top().head);
  p.ob.close_level();
  ops.put24(block + accesskey::a_values, value);
}

}  // namespace tav
