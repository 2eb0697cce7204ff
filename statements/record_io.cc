#include "statements/record_io.h"

#include <cmath>
#include <cstring>

#include "codegen/convert.h"
#include "expr/expr.h"
#include "statements/block.h"
#include "statements/parser.h"
#include "statements/records.h"
#include "symbols/fields.h"
#include "symbols/objects.h"
#include "symbols/records.h"

namespace tav {

uint32_t emit_record_op(Parser& p, uint32_t verb_code, Op opcode) {
  p.ob.emit_statement_marker(verb_code);
  return p.ob.emit(opcode);
}

char file_type(const Parser& p, uint32_t object) {
  return static_cast<char>(p.ops.at(object + osym::o_filtype)[0]);
}

bool require_file_type(Parser& p, uint32_t object, const char* letters) {
  const char type = file_type(p, object);
  if (type != 0 && std::strchr(letters, type) != nullptr) return true;
  p.diag.error(msg::i_o_operation_invalid_object);
  return false;
}

void add_object_attr(Parser& p, uint32_t object, uint16_t bits) {
  p.ops.put16(object + osym::o_attr, p.ops.get16(object + osym::o_attr) | bits);
}

std::string object_name(const Parser& p, uint32_t object) {
  return std::string(p.ops.text_at(p.ops.get24(object + osym::o_name)));
}

uint32_t read_object(Parser& p) {
  if (p.next() != kClassName) {
    p.fail(msg::object_name_expected);
    return 0;
  }
  return find_or_load_object(p, p.text());
}

bool read_object_head(Parser& p, uint32_t joiner, ObjectHead& head) {
  std::vector<std::string> names;
  uint32_t c = p.next();
  if (c == verb("*")) {
    head.star = true;
    c = p.next();
  } else {
    if (c != kClassName) return p.fail(msg::object_name_expected), false;
    // A name that is no field, or is an object, names the object; otherwise fields lead.
    if (!field_is_known(p, p.text()) || p.syms.find_object(p.text()) != 0) {
      head.object = find_or_load_object(p, p.text());
      return head.object != 0;
    }
    for (; c == kClassName; c = p.next()) names.emplace_back(p.text());
    head.listed = true;
  }
  if (c != joiner) return p.fail(msg::syntax_error), false;
  head.object = read_object(p);
  if (head.object == 0) return false;
  if (head.listed) head.fields = field_list_of(p, head.object, names);
  return true;
}

namespace {

// One named field of `object` appended to a field list; error 81 when the object lacks it.
void add_to_field_list(Parser& p, uint32_t object, const std::string& name, uint32_t& head, uint32_t& tail) {
  uint32_t prefix = 0;
  const uint32_t f = reference_field(p, name, &prefix);
  if (f == 0) return;
  if (!field_in_object(p, object, f)) p.diag.error_with(msg::field_not_contained_object, name);
  const uint32_t e = p.ops.alloc(flist::size);
  p.ops.put24(e + flist::fl_field, f);
  append_to_list(p.ops, head, tail, e, flist::fl_next);
}

}  // namespace

uint32_t field_list_of(Parser& p, uint32_t object, const std::vector<std::string>& names) {
  uint32_t head = 0, tail = 0;
  for (const std::string& name : names) add_to_field_list(p, object, name, head, tail);
  return head;
}

// Each field is checked as it is read, so that a message about it is shown on its own line.
uint32_t read_field_list(Parser& p, uint32_t object) {
  uint32_t head = 0, tail = 0;
  while (p.next() == kClassName) add_to_field_list(p, object, std::string(p.text()), head, tail);
  p.push_back();
  return head;
}

// ---- ON ERROR -------------------------------------------------------------------------------

namespace {

uint32_t compile_handler_part(Parser& p, std::initializer_list<uint32_t> stops) {
  BlockScope part(p, BlockScope::conditional | BlockScope::branch);
  return compile_statements_until(p, stops);
}

}  // namespace

void compile_on_error(Parser& p, uint32_t target, bool else_allowed) {
  OpSpace& ops = p.ops;
  p.ob.emit_statement_marker(verb("on"));
  uint32_t stop = compile_handler_part(p, {verb("end"), verb("end_on"), verb("else")});
  if (stop == verb("else")) {
    p.next();
    p.accept();
    if (!else_allowed) p.diag.error_text(txt::else_not_allowed, Context::current_token());
    const uint32_t jump_op = p.ob.emit(Op::jump);
    ops.put24(target, jump_op);
    p.ob.emit_statement_marker(verb("else"));
    stop = compile_handler_part(p, {verb("end"), verb("end_on")});
    ops.put24(jump_op + jump::j_target, p.ob.top().tail);
  } else {
    ops.put24(target, p.ob.top().tail);
  }
  if (stop == verb("end") || stop == verb("end_on")) {
    p.next();
    p.accept();
  } else {
    p.diag.error_text(txt::end_on_missing, Context::current_token());
  }
  p.ob.emit_statement_marker(verb("end_on"));
  p.locks.settle_branches();
}

ClauseStep on_error_clause(Parser& p, uint32_t target) {
  if (p.next() != verb("error")) {
    p.fail(msg::syntax_error);
    return ClauseStep::done;
  }
  compile_on_error(p, target);
  return ClauseStep::done;
}

// ---- Record I/O block ---------------------------------------------------------------------

uint16_t RecordIo::flags() const { return static_cast<uint16_t>(p.ops.get16(block + accesskey::a_flags)); }
void RecordIo::set(uint16_t bits) { p.ops.put16(block + accesskey::a_flags, flags() | bits); }

uint32_t new_record_io(Parser& p) {
  const uint32_t b = p.ops.alloc(accesskey::size);
  p.ops.at(b + accesskey::a_index)[0] = 1;
  p.ops.put16(b + accesskey::a_flags, accesskey::flag_default_index);
  return b;
}

uint32_t key_record(const Parser& p, uint32_t object, int index) {
  const OpSpace& ops = p.ops;
  for (uint32_t k = ops.get24(object + osym::o_keylist); k != 0; k = ops.get24(k + keyrec::k_next))
    if (ops.at(k + keyrec::k_index)[0] == index) return k;
  return 0;
}

namespace {

int part_count(const OpSpace& ops, uint32_t key) {
  int n = 0;
  for (uint32_t kp = ops.get24(key + keyrec::k_parts); kp != 0; kp = ops.get24(kp + keypart::kp_next)) ++n;
  return n;
}

// The key was chosen by ON INDEX or CURRENCY rather than by default.
void choose_index(RecordIo& r, int index) {
  OpSpace& ops = r.p.ops;
  ops.at(r.block + accesskey::a_index)[0] = static_cast<uint8_t>(index);
  ops.put16(r.block + accesskey::a_flags, r.flags() & ~accesskey::flag_default_index);
}

// Whether the next token can start a key value: not the next statement or clause, not a
// positioning word, and a name only when it names a field.
bool key_value_follows(Parser& p) {
  const uint32_t c = p.next();
  p.push_back();
  if (p.at_statement_start() || (c & kClauseWord)) return false;
  for (uint32_t word : {verb("last"), verb("first"), verb("same"), verb("different")})
    if (c == word) return false;
  if (c == kClassName) return field_is_known(p, p.text());
  return true;
}

// One key value for the key part `part`, appended after `tail`; false after an error that
// skipped the statement.
bool key_value(RecordIo& r, uint32_t part, uint32_t& tail) {
  OpSpace& ops = r.p.ops;
  const uint32_t e = ops.alloc(exprlist::size);
  const ExprType t = compile_expression_list(r.p, e + exprlist::el_list);
  if (t.failed) return false;
  ops.put24(tail ? tail + exprlist::el_next : r.block + accesskey::a_values, e);
  tail = e;
  const uint32_t field = ops.get24(part + keypart::kp_field);
  const bool numeric = conv::fmt_numeric(static_cast<uint16_t>(ops.get16(field + fsym::f_format)));
  if (t.alphanumeric() == numeric) r.p.diag.error(msg::key_values_not_compatible_key);
  return true;
}

template <ClauseStep (*Read)(RecordIo&)>
ClauseStep clause(RecordIo& r) {
  const ClauseStep step = Read(r);
  r.no_warning = false;
  return step;
}

ClauseStep read_key(RecordIo& r) {
  Parser& p = r.p;
  OpSpace& ops = p.ops;
  p.take(verb("is"));
  if (!file_type_has_keys(file_type(p, r.object))) return p.fail(msg::i_o_operation_invalid_object), ClauseStep::done;
  const uint32_t key = key_record(p, r.object, ops.at(r.block + accesskey::a_index)[0]);
  if (key == 0) return p.fail(msg::key_values_not_compatible_key), ClauseStep::done;
  const int parts = part_count(ops, key);
  const int allowed = ops.at(r.block + accesskey::a_key_count)[0];
  int given = 0;
  uint32_t tail = 0;
  for (uint32_t kp = ops.get24(key + keyrec::k_parts); key_value_follows(p); ++given) {
    if (kp == 0) return p.fail(msg::key_values_not_compatible_key), ClauseStep::done;
    if (!key_value(r, kp, tail)) return ClauseStep::done;
    kp = ops.get24(kp + keypart::kp_next);
  }
  r.keys = true;
  if (given == 0 || (allowed != 0 && given > allowed)) {
    p.diag.error(msg::key_values_not_compatible_key);
  } else if (given == parts) {
    r.set(accesskey::flag_full_key);
  } else {
    ops.at(r.block + accesskey::a_key_count)[0] = static_cast<uint8_t>(given);
    r.set(accesskey::flag_partial_key);
  }
  return ClauseStep::next;
}

ClauseStep read_index(RecordIo& r) {
  Parser& p = r.p;
  if (r.keys) return p.fail(msg::on_index_must_preceed_key), ClauseStep::done;
  r.on_index = true;
  const uint32_t c = p.next();
  if (c == kClassName) {
    p.push_back();
    const int index = key_by_field_names(p, r.object, r.block);
    if (index < 0) return ClauseStep::done;
    choose_index(r, index);
    return ClauseStep::next;
  }
  if (c != kClassNumeric) return p.fail(msg::no_such_index_object), ClauseStep::done;
  const double v = p.tok.value();
  if (v < 0 || v != std::floor(v) || v > 255) return p.fail(msg::numeric_value_invalid_out_range), ClauseStep::done;
  if (key_record(p, r.object, static_cast<int>(v)) == 0) return p.fail(msg::no_such_index_object), ClauseStep::done;
  choose_index(r, static_cast<int>(v));
  return ClauseStep::next;
}

ClauseStep read_on(RecordIo& r) {
  Parser& p = r.p;
  const uint32_t c = p.next();
  if (c == verb("index")) return read_index(r);
  if (c != verb("error") || r.on_error == 0) return p.fail(msg::syntax_error), ClauseStep::done;
  if (!r.finished && r.finish) r.finish(r);
  compile_on_error(p, r.on_error);
  return ClauseStep::done;
}

// SAME or DIFFERENT: up to 8 fields of the object.
bool read_same_fields(RecordIo& r) {
  Parser& p = r.p;
  bool too_many = false;
  while (p.next() == kClassName) {
    const std::string name(p.text());
    uint32_t prefix = 0;
    const uint32_t f = reference_field(p, name, &prefix);
    if (f == 0) return p.tok.skip_to_statement(), false;
    if (!field_in_object(p, r.object, f)) p.diag.error(msg::field_not_contained_object);
    bool repeated = false;
    for (const RecordIo::Named& g : r.same_fields) repeated = repeated || g.field == f;
    if (repeated) {
      p.diag.warning_text(txt::field_already_specified, Context::current_token());
    } else if (r.same_fields.size() == static_cast<size_t>(access::kMaxSameFields)) {
      if (!too_many) p.diag.error_text(txt::too_many_fields_specified, Context::current_token());
      too_many = true;
    } else {
      r.same_fields.push_back({f, name, p.tok.line()});
    }
  }
  p.push_back();
  return true;
}

// PREV reads backwards, which relational databases cannot do for every object.
void warn_prev(RecordIo& r) {
  const char type = file_type(r.p, r.object);
  if (r.no_warning) return;
  if (r.kind == RecordIo::extract) {
    if (type == osym::type_indexed || type == osym::type_db_sequential) r.p.diag.warning(msg::clause_not_supported_on_relational);
    return;
  }
  const bool primary = r.p.ops.get24(r.p.section + ssym::s_primary) == r.object;
  if (type == osym::type_indexed && !primary && r.p.settings.get_prev_warning)
    r.p.diag.warning(msg::clause_not_supported_on_relational);
}

template <uint16_t Direction>
ClauseStep read_direction(RecordIo& r) {
  Parser& p = r.p;
  if (r.kind == RecordIo::get && r.keys) p.diag.error(msg::duplicate_incompatible_clause);
  r.set(Direction);
  if (Direction == access::prev) warn_prev(r);
  const uint32_t c = p.next();
  if (c != verb("same") && c != verb("different")) {
    p.push_back();
    return ClauseStep::next;
  }
  require_file_type(p, r.object, "IM");
  r.set(c == verb("same") ? access::same : access::different);
  return read_same_fields(r) ? ClauseStep::next : ClauseStep::done;
}

ClauseStep read_same_different(RecordIo& r) {
  require_file_type(r.p, r.object, "IM");
  r.set(r.p.cls() == verb("same") ? access::same : access::different);
  return read_same_fields(r) ? ClauseStep::next : ClauseStep::done;
}

ClauseStep read_lock(RecordIo& r) {
  Parser& p = r.p;
  r.set(access::lock);
  add_object_attr(p, r.object, osym::attr_get_lock);
  require_file_type(p, r.object, "IMS");
  p.locks.record(p.ops, r.object, true);
  return ClauseStep::next;
}

}  // namespace

ClauseStep io_key(RecordIo& r) { return clause<read_key>(r); }
ClauseStep io_on(RecordIo& r) { return clause<read_on>(r); }
ClauseStep io_index(RecordIo& r) { return clause<read_index>(r); }
ClauseStep io_next(RecordIo& r) { return clause<read_direction<access::next>>(r); }
ClauseStep io_prev(RecordIo& r) { return clause<read_direction<access::prev>>(r); }
ClauseStep io_lock(RecordIo& r) { return clause<read_lock>(r); }
ClauseStep io_same_different(RecordIo& r) { return clause<read_same_different>(r); }
ClauseStep io_no_warning(RecordIo& r) {
  r.no_warning = true;
  return ClauseStep::next;
}
ClauseStep io_other(RecordIo& r) {
  r.no_warning = false;
  return skip_invalid_clause(r.p);
}

bool leads_key(const Parser& p, uint32_t key, uint32_t field, size_t leading) {
  const OpSpace& ops = p.ops;
  size_t i = 0;
  for (uint32_t kp = key ? ops.get24(key + keyrec::k_parts) : 0; kp != 0 && i < leading;
       kp = ops.get24(kp + keypart::kp_next), ++i)
    if (ops.get24(kp + keypart::kp_field) == field) return true;
  return false;
}

namespace {

// SAME or DIFFERENT fields must lead the key the records are read in; each one that does not is
// reported with the line it was written on, since the key is known only after the last clause.
void check_same_fields(RecordIo& r) {
  Parser& p = r.p;
  OpSpace& ops = p.ops;
  const uint32_t key = key_record(p, r.object, ops.at(r.block + accesskey::a_index)[0]);
  const size_t n = r.same_fields.size();
  for (const RecordIo::Named& f : r.same_fields)
    if (!leads_key(p, key, f.field, n)) p.diag.error_text(txt::only_leading_key_fields, Context::at_line(f.name, f.line));
  const int allowed = ops.at(r.block + accesskey::a_key_count)[0];
  if (allowed != 0 && n > static_cast<size_t>(allowed)) p.diag.error_text(txt::too_many_fields_same_diff, Context::current_token());
  ops.at(r.block + accesskey::a_key_count)[0] = static_cast<uint8_t>(n);
}

}  // namespace

void finish_record_io(RecordIo& r) {
  r.finished = true;
  if (!r.same_fields.empty()) check_same_fields(r);
  if (!(r.flags() & (access::positioning | access::currency)) && !r.keys && !file_type_has_keys(file_type(r.p, r.object)))
    r.set(access::next);
}

}  // namespace tav
