// The field entries of a select: finding and adding them, the field references its expressions
// make (Op::select_field_ref), and its aggregate entries (put_aggr).

#include <string>

#include "codegen/convert.h"
#include "statements/select.h"
#include "symbols/fields.h"
#include "symbols/objects.h"
#include "symbols/records.h"

namespace tav {

std::vector<uint32_t> chain(const Parser& p, uint32_t head) {
  std::vector<uint32_t> out;
  for (uint32_t e = head; e != 0; e = p.ops.get24(e)) out.push_back(e);
  return out;
}

uint16_t entry_flags(const Parser& p, uint32_t entry) {
  return static_cast<uint16_t>(p.ops.get16(entry + selfield::sf_flags));
}

void set_entry_flags(Parser& p, uint32_t entry, uint16_t bits) {
  p.ops.put16(entry + selfield::sf_flags, entry_flags(p, entry) | bits);
}

std::string field_name(const Parser& p, uint32_t field) {
  return field ? std::string(p.ops.text_at(p.ops.get24(field + fsym::f_name))) : std::string();
}

std::string object_name_of(const Parser& p, uint32_t object) {
  return object ? std::string(p.ops.text_at(p.ops.get24(object + osym::o_name))) : std::string();
}

uint32_t nth_selected(const Parser& p, uint32_t rec, int n) {
  for (uint32_t e : chain(p, p.ops.get24(rec + selrec::sr_fields)))
    if ((entry_flags(p, e) & selfield::selected) && --n == 0) return e;
  return 0;
}

int selected_count(const Parser& p, uint32_t rec) {
  int n = 0;
  for (uint32_t e : chain(p, p.ops.get24(rec + selrec::sr_fields)))
    if (entry_flags(p, e) & selfield::selected) ++n;
  return n;
}

void splice_rings(Parser& p, uint32_t a, uint32_t b) {
  OpSpace& ops = p.ops;
  for (uint32_t e = ops.get24(a + selfield::sf_ring); e != a; e = ops.get24(e + selfield::sf_ring))
    if (e == b) return;
  if (a == b) return;
  uint32_t pred = b;
  while (ops.get24(pred + selfield::sf_ring) != b) pred = ops.get24(pred + selfield::sf_ring);
  ops.put24(pred + selfield::sf_ring, ops.get24(a + selfield::sf_ring));
  ops.put24(a + selfield::sf_ring, b);
}

uint32_t from_entry_of(const Select& s, uint32_t object) {
  for (uint32_t f : chain(s.p, s.p.ops.get24(s.rec + selrec::sr_from)))
    if (s.p.ops.get24(f + fromrec::fe_object) == object) return f;
  return 0;
}

uint32_t new_from_entry(Select& s, uint32_t object) {
  OpSpace& ops = s.p.ops;
  const uint32_t f = ops.alloc(fromrec::size);
  ops.put24(f + fromrec::fe_object, object);
  uint32_t link = s.rec + selrec::sr_from;
  while (ops.get24(link) != 0) link = ops.get24(link) + fromrec::fe_next;
  ops.put24(link, f);
  s.lines.emplace(f, s.p.tok.line());
  return f;
}

uint32_t add_field(Select& s, uint32_t from, uint32_t field, bool host) {
  Parser& p = s.p;
  OpSpace& ops = p.ops;
  for (uint32_t e = ops.get24(s.rec + selrec::sr_fields); e != 0; e = ops.get24(e)) {
    const uint16_t f = entry_flags(p, e);
    if (ops.get24(e + selfield::sf_field) == field && ops.get24(e + selfield::sf_from) == from &&
        ((f & selfield::host) != 0) == host && !(f & (selfield::copy | selfield::assigned)))
      return e;
  }
  const uint32_t e = new_entry(s, field);
  ops.put24(e + selfield::sf_from, from);
  if (host) ops.put16(e + selfield::sf_flags, selfield::host);
  return e;
}

uint32_t new_entry(Select& s, uint32_t field) {
  OpSpace& ops = s.p.ops;
  const uint32_t e = ops.alloc(selfield::size);
  const uint32_t count = ops.get16(s.rec + selrec::sr_field_count) + 1;
  ops.put16(s.rec + selrec::sr_field_count, count);
  ops.put16(e + selfield::sf_number, count);
  ops.put24(e + selfield::sf_field, field);
  ops.put24(e + selfield::sf_ring, e);
  uint32_t link = s.rec + selrec::sr_fields;
  while (ops.get24(link) != 0) link = ops.get24(link) + selfield::sf_next;
  ops.put24(link, e);
  s.lines.emplace(e, s.p.tok.line());
  return e;
}

uint32_t assigned_entry(const Select& s, uint32_t field) {
  for (uint32_t e : chain(s.p, s.p.ops.get24(s.rec + selrec::sr_fields)))
    if (s.p.ops.get24(e + selfield::sf_field) == field && (entry_flags(s.p, e) & selfield::assigned)) return e;
  return 0;
}

uint32_t add_field(Select& s, uint32_t from, std::string_view name) {
  const bool host = !name.empty() && name[0] == ':';
  const uint32_t field = reference_field(s.p, std::string(host ? name.substr(1) : name), nullptr);
  if (field == 0) s.p.diag.fatal_text(txt::internal_add_field, name);
  return add_field(s, from, field, host);
}

// ---- Field references ------------------------------------------------------------------------

namespace {

struct Named {
  uint32_t field = 0;
  uint32_t from = 0;
  uint32_t host_object = 0;
  bool host = false;
  bool qualified = false;
};

// The FROM entry of a prefix: the object's entry, added (as an object of an enclosing select
// when one reads it) when the FROM list does not name it. False when the object is unknown.
bool prefix_entry(Select& s, std::string_view prefix, Named& n) {
  const uint32_t object = s.object_named(prefix);
  if (object == 0) return false;
  n.from = from_entry_of(s, object);
  if (n.from != 0) return true;
  n.from = new_from_entry(s, object);
  for (const Select* e = s.enclosing; e != nullptr; e = e->enclosing) {
    if (from_entry_of(*e, object) == 0) continue;
    s.p.ops.put16(n.from + fromrec::fe_flags, fromrec::enclosing);
    s.set_flags(selrec::correlated);
    break;
  }
  return true;
}

// Resolves a name as the select sees it. False when the statement was abandoned.
bool resolve_name(Select& s, std::string_view name, Named& n) {
  Parser& p = s.p;
  n.host = !name.empty() && name[0] == ':';
  std::string_view bare = n.host ? name.substr(1) : name;
  const size_t dot = bare.find('.');
  if (!n.host && dot != std::string_view::npos && dot > 0) {
    if (!prefix_entry(s, bare.substr(0, dot), n)) return false;
    n.qualified = true;
    bare = bare.substr(dot + 1);
  }
  uint32_t object = 0;
  n.field = reference_field(p, std::string(bare), &object);
  if (object != 0 && !n.host) p.diag.error_text(txt::invalid_host_field, name);
  n.host_object = object;
  return true;
}

// An unqualified and a qualified reference to one field do not mix.
void check_prefixes(Select& s, const Named& n, std::string_view name) {
  Parser& p = s.p;
  if (n.host) return;
  for (uint32_t e : chain(p, p.ops.get24(s.rec + selrec::sr_fields))) {
    const uint16_t f = entry_flags(p, e);
    if (p.ops.get24(e + selfield::sf_field) != n.field || (f & (selfield::host | selfield::copy | selfield::assigned)))
      continue;
    if (((f & selfield::qualified) != 0) != n.qualified) {
      p.diag.set_name(name);
      p.diag.error(msg::all_references_must_have_all);
      return;
    }
  }
}

// The aggregate rules of the clause the reference stands in.
void check_aggregates(Select& s, uint32_t entry, bool in_aggregate) {
  Parser& p = s.p;
  const bool aggregate = (entry_flags(p, entry) & selfield::aggregate) != 0;
  if (in_aggregate && aggregate) p.diag.error(msg::aggregate_functions_cannot_nested);
  if (!in_aggregate && aggregate && s.place == SelectPlace::where) p.diag.error(msg::aggregate_functions_invalid_here);
  if (!in_aggregate && !aggregate && s.place == SelectPlace::having) p.diag.error(msg::having_contain_aggregates_literals);
  if (in_aggregate) set_entry_flags(p, entry, selfield::in_aggregate);
}

}  // namespace

uint32_t Select::object_named(std::string_view name) {
  const uint32_t object = find_or_load_object(p, name);
  if (object == 0) object_unknown = true;
  return object;
}

bool Select::field_operand(ParserCore&, std::string_view name, bool in_aggr, uint32_t allow,
                           SelectScope::Operand& result) {
  OpSpace& ops = p.ops;
  const std::string written(name);
  Named n;
  if (!resolve_name(*this, written, n)) return false;
  const uint32_t op = p.ob.emit(Op::select_field_ref);
  if (n.field == 0) {
    compile_subscript(p, 0, allow_whole_arrays);
    return true;
  }
  check_prefixes(*this, n, written);
  uint32_t entry = n.host || n.qualified || in_aggr || in_aggregate ? 0 : assigned_entry(*this, n.field);
  if (entry == 0) entry = add_field(*this, n.from, n.field, n.host);
  set_entry_flags(p, entry, static_cast<uint16_t>(selfield::referenced | (n.qualified ? selfield::qualified : 0)));
  if (n.host) ops.put24(entry + selfield::sf_host_object, n.host_object);
  check_aggregates(*this, entry, in_aggr || in_aggregate);
  const uint16_t format = static_cast<uint16_t>(ops.get16(n.field + fsym::f_format));
  ops.put16(op + selref::sref_format, format);
  ops.put24(op + selref::sref_entry, entry);
  bool whole = false;
  ops.put24(op + selref::sref_subscript, compile_subscript(p, n.field, allow_whole_arrays, &whole));
  if (whole) {
    whole_array = true;
    if (!(allow & allow_whole_arrays)) p.diag.error_text(txt::entire_array_not_here, written);
  }
  const char letter = static_cast<char>(*ops.at(n.field + fsym::f_type));
  result.format = format;
  result.datetime = letter == 'D' || letter == 'T' || letter == 'J' || letter == 'L';
  return true;
}

// ---- Aggregates (put_aggr) ---------------------------------------------------------------------

namespace {

constexpr uint16_t kAggregateDistinct = 0x0001;

// The type word of an aggregate's result.
uint16_t aggregate_type(const ExprType& t) {
  if (t.alphanumeric()) return t.alpha_length;
  return static_cast<uint16_t>(0x2000 + t.digits * 32 + t.decimals);
}

// "(" [DISTINCT] argument ")", "(*)", "()" or nothing (COUNT). Returns the argument's op list.
uint32_t aggregate_argument(Select& s, uint32_t verb_code, ExprType& type, uint16_t& flags) {
  Parser& p = s.p;
  if (p.next() != verb("(")) {
    p.push_back();
    if (verb_code != verb("count")) p.diag.error(msg::function_requires_parameter_list);
    return 0;
  }
  uint32_t c = p.next();
  if (c == verb(")")) return 0;
  if (c == verb("*")) {
    if (p.next() != verb(")")) p.fail(msg::invalid_parameter_list_function);
    return 0;
  }
  if (c == verb("distinct")) {
    flags |= kAggregateDistinct;
  } else {
    p.push_back();
  }
  p.ob.open_level();
  const bool outer = s.in_aggregate;
  s.in_aggregate = true;
  type = compile_expression(p, allow_aggregates | inside_brackets, &s, &s);
  s.in_aggregate = outer;
  const uint32_t head = p.ob.top().head;
  p.ob.close_level();
  if (type.failed) return head;
  if (p.next() != verb(")")) p.fail(msg::invalid_parameter_list_function);
  return head;
}

}  // namespace

uint32_t Select::aggregate(ParserCore&, uint32_t verb_code, uint16_t, ExprType& type) {
  OpSpace& ops = p.ops;
  if (in_aggregate) p.diag.error(msg::aggregate_functions_cannot_nested);
  if (rec == 0) {
    if (p.diag.error_count() == 0) p.diag.error_text(txt::internal_put_aggr, Context::current_token());
    return 0;
  }
  uint16_t flags = 0;
  type = ExprType{};
  const uint32_t argument = aggregate_argument(*this, verb_code, type, flags);
  if (verb_code == verb("count")) type = ExprType{0, 8, 0, 'N', false};
  const uint32_t a = ops.alloc(aggrec::size);
  ops.put32(a + aggrec::ae_verb, verb_code);
  ops.put16(a + aggrec::ae_flags, flags);
  ops.put24(a + aggrec::ae_argument, argument);
  ops.put16(a + aggrec::ae_type, aggregate_type(type));
  ops.put24(a + aggrec::ae_next, ops.get24(rec + selrec::sr_aggregates));
  ops.put24(rec + selrec::sr_aggregates, a);
  const uint32_t number = ops.get16(rec + selrec::sr_aggregate_count) + 1;
  ops.put16(rec + selrec::sr_aggregate_count, number);
  ops.put16(a + aggrec::ae_number, number);
  if (after_break != 0) {
    ops.put24(a + aggrec::ae_break_next, ops.get24(after_break + breakrec::br_aggregates));
    ops.put24(after_break + breakrec::br_aggregates, a);
  } else {
    ops.put24(a + aggrec::ae_break_next, aggrec::kWholeSelect);
    set_flags(selrec::whole_aggregates);
  }
  return a;
}

}  // namespace tav
