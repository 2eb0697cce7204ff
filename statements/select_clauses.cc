// The clauses of a select that name its fields: the field list after SELECT, the WHERE and
// HAVING conditions, and the GROUP BY and ORDER BY lists.

#include <string>

#include "statements/select.h"
#include "symbols/fields.h"
#include "symbols/objects.h"
#include "symbols/records.h"

namespace tav {

namespace {

constexpr int kMaxOrderFields = 8;

uint32_t expression_allow(const Select& s, uint32_t more) { return more | (s.sub ? static_cast<uint32_t>(inside_brackets) : 0u); }

// DISTINCT, UNIQUE, DISTINCTROW and ALL before the fields.
void read_quantifier(Select& s) {
  Parser& p = s.p;
  for (;;) {
    const uint32_t c = p.next();
    if (c == verb("distinct") || c == verb("distinctrow")) {
      s.set_flags(selrec::distinct);
    } else if (c != verb("all")) {
      p.push_back();
      return;
    }
    if (p.tok.held()) p.accept();
  }
}

// object.*: every field of the object is selected.
void object_star(Select& s, std::string_view name) {
  Parser& p = s.p;
  if (s.has(selrec::all_fields)) p.diag.error_text(txt::not_valid_with_select_star, Context::current_token());
  const uint32_t object = s.object_named(name.substr(0, name.size() - 2));
  if (object == 0) return;
  uint32_t from = from_entry_of(s, object);
  if (from == 0) from = new_from_entry(s, object);
  p.ops.put16(from + fromrec::fe_flags, p.ops.get16(from + fromrec::fe_flags) | fromrec::all_fields);
}

// Marks an entry selected; a field selected twice is an error.
void select_entry(Select& s, uint32_t entry) {
  Parser& p = s.p;
  if (entry_flags(p, entry) & selfield::selected) {
    p.diag.error_text(txt::field_already_selected, field_name(p, p.ops.get24(entry + selfield::sf_field)));
    return;
  }
  set_entry_flags(p, entry, selfield::selected | selfield::referenced);
}

// name = expression: the expression is assigned to that field.
void assigned_item(Select& s, std::string_view name) {
  Parser& p = s.p;
  OpSpace& ops = p.ops;
  if (name.find('.') != std::string_view::npos) p.diag.error_text(txt::select_object_prefix, Context::current_token());
  const size_t dot = name.find('.');
  const uint32_t field = reference_field(p, std::string(dot == std::string_view::npos ? name : name.substr(dot + 1)), nullptr);
  p.accept();  // the "="
  const uint32_t aggregates = ops.get16(s.rec + selrec::sr_aggregate_count);
  p.ob.open_level();
  compile_expression(p, expression_allow(s, allow_aggregates), &s, &s);
  const uint32_t head = p.ob.top().head;
  p.ob.close_level();
  if (field == 0) return;
  if (assigned_entry(s, field) != 0) {
    p.diag.error_text(txt::field_already_selected, field_name(p, field));
    return;
  }
  const uint32_t entry = add_field(s, 0, field, false);
  // A new entry: the field's own references stay with the entries the expression made.
  uint32_t own = entry;
  if (entry_flags(p, entry) != 0) own = new_entry(s, field);
  select_entry(s, own);
  uint16_t bits = selfield::assigned;
  if (ops.get16(s.rec + selrec::sr_aggregate_count) != aggregates) bits |= selfield::aggregate;
  set_entry_flags(p, own, bits);
  ops.put24(own + selfield::sf_expression, head);
}

// Any other item: a single field reference selects the field; anything else must be assigned.
// `first` is the item's first name when the caller has read it.
void expression_item(Select& s, std::string_view first = {}) {
  Parser& p = s.p;
  OpSpace& ops = p.ops;
  s.whole_array = false;
  p.ob.open_level();
  compile_expression_after(p, first, expression_allow(s, allow_aggregates | allow_whole_arrays), &s, &s);
  const uint32_t head = p.ob.top().head;
  p.ob.close_level();
  const bool single = head != 0 && ops.get24(head) == 0 && ops.opcode(head) == Op::select_field_ref;
  if (single && ops.get24(head + selref::sref_subscript) == 0) {
    if (const uint32_t entry = ops.get24(head + selref::sref_entry)) select_entry(s, entry);
    return;
  }
  if (s.whole_array && !single) p.diag.error_text(txt::entire_array_not_here, Context::current_token());
  p.diag.error_text(txt::expression_must_be_assigned, Context::current_token());
}

void name_item(Select& s) {
  Parser& p = s.p;
  const std::string name(p.text());
  if (name[0] == ':') {
    p.diag.error_text(txt::select_host_fields, Context::current_token());
    compile_subscript(p, 0, allow_whole_arrays);
    return;
  }
  if (name.size() > 2 && name.compare(name.size() - 2, 2, ".*") == 0) {
    object_star(s, name);
    return;
  }
  if (p.next() == verb("=")) {
    assigned_item(s, name);
    return;
  }
  p.push_back();
  expression_item(s, name);
}

bool starts_expression(const Parser& p, uint32_t c) {
  return c == kClassAlpha || c == kClassNumeric || c == kClassDate || c == kClassTime || c == verb("(") ||
         c == verb("-") || ((c & p.tok.function_mask()) != 0 && !p.at_statement_start());
}

}  // namespace

void read_field_list(Select& s) {
  Parser& p = s.p;
  read_quantifier(s);
  if (p.next() == verb("*")) {
    s.set_flags(selrec::all_fields);
    const uint32_t c = p.next();
    p.push_back();
    if (c & kClauseWord) return;
  } else {
    p.push_back();
  }
  for (;;) {
    const uint32_t c = p.next();
    if (c == verb("from") || p.at_statement_start()) break;
    if (c == verb(",")) continue;
    if (c == kClassName) {
      name_item(s);
    } else if (starts_expression(p, c)) {
      p.push_back();
      expression_item(s);
    } else {
      p.fail(msg::field_name_expected);
      return;
    }
  }
  p.push_back();
}

void read_select_condition(Select& s, uint32_t member, SelectPlace place) {
  Parser& p = s.p;
  s.place = place;
  const bool having = place == SelectPlace::having;
  p.ob.open_level();
  compile_condition(p, expression_allow(s, allow_select | (having ? static_cast<uint32_t>(allow_aggregates) : 0u)), having ? &s : nullptr, &s);
  p.ops.put24(s.rec + member, p.ob.top().head);
  p.ob.close_level();
  s.place = SelectPlace::list;
}

// ---- GROUP BY and ORDER BY ---------------------------------------------------------------------

namespace {

// The head's entry that supplies a field to the ORDER BY of a UNION: a selected entry of the
// field, or a new entry of an all-fields object that holds it; 0 when none does.
uint32_t union_order_entry(Select& s, uint32_t field) {
  Parser& p = s.p;
  for (uint32_t e : chain(p, p.ops.get24(s.partner + selrec::sr_fields)))
    if (p.ops.get24(e + selfield::sf_field) == field && (entry_flags(p, e) & selfield::selected)) return e;
  return 0;
}

// One named item of the list: its entry, or 0 after an error.
uint32_t named_order_entry(Select& s, std::string_view name) {
  Parser& p = s.p;
  if (name[0] == ':') {
    p.diag.error_text(txt::host_fields_not_allowed, Context::current_token());
    return 0;
  }
  uint32_t from = 0;
  std::string_view bare = name;
  const size_t dot = name.find('.');
  if (dot != std::string_view::npos && dot > 0) {
    const uint32_t object = s.object_named(name.substr(0, dot));
    if (object == 0) return 0;
    from = from_entry_of(s, object);
    if (from == 0) {
      p.diag.error_text(txt::object_not_in_from_list, Context::current_token());
      return 0;
    }
    bare = name.substr(dot + 1);
  }
  const uint32_t field = reference_field(p, std::string(bare), nullptr);
  if (field == 0) return 0;
  if (s.partner != 0 && s.place == SelectPlace::order) {
    const uint32_t e = union_order_entry(s, field);
    if (e == 0) p.diag.error(msg::field_not_select_list);
    return e;
  }
  if (from == 0)
    if (const uint32_t assigned = assigned_entry(s, field)) return assigned;
  const uint32_t e = add_field(s, from, field, false);
  set_entry_flags(p, e, static_cast<uint16_t>(selfield::referenced | (from ? selfield::qualified : 0)));
  return e;
}

// A field number counts the selected fields from 1.
uint32_t numbered_order_entry(Select& s) {
  Parser& p = s.p;
  const double v = p.tok.value();
  const uint32_t rec = s.partner != 0 && s.place == SelectPlace::order ? s.partner : s.rec;
  const uint32_t e = v >= 1 && v == static_cast<int>(v) ? nth_selected(p, rec, static_cast<int>(v)) : 0;
  if (e == 0) p.diag.error_text(txt::invalid_field_number, Context::current_token());
  return e;
}

// ASC or DESC after an ORDER BY item.
void read_direction(Select& s, uint32_t entry) {
  Parser& p = s.p;
  const uint32_t c = p.next();
  if (c == verb("desc")) {
    set_entry_flags(p, entry, selfield::descending);
  } else if (c != verb("asc") && c != verb("ascending")) {
    p.push_back();
    return;
  }
  if (p.tok.held()) p.accept();
}

}  // namespace

void read_order_list(Select& s, bool order) {
  Parser& p = s.p;
  OpSpace& ops = p.ops;
  bool& given = order ? s.order_given : s.group_given;
  if (given) p.diag.error(msg::duplicate_incompatible_clause);
  if (order && s.sub) p.diag.error(msg::invalid_clause);
  given = true;
  p.take(verb("by"));
  s.place = order ? SelectPlace::order : SelectPlace::group;
  uint32_t head = 0, tail = 0;
  int count = 0;
  for (;;) {
    const uint32_t c = p.next();
    if (c == verb(",")) continue;
    uint32_t e = 0;
    if (c == kClassName) {
      e = named_order_entry(s, std::string(p.text()));
    } else if (c == kClassNumeric) {
      e = numbered_order_entry(s);
    } else {
      p.push_back();
      break;
    }
    if (e == 0) continue;
    if (entry_flags(p, e) & selfield::aggregate)
      p.diag.error_text(order ? txt::order_by_aggregate : txt::group_by_aggregate, Context::current_token());
    if (order) {
      set_entry_flags(p, e, selfield::ordered);
      read_direction(s, e);
    }
    if (++count == kMaxOrderFields + 1)
      p.diag.error_text(order ? txt::too_many_order_by : txt::too_many_group_by, Context::current_token());
    if (count > kMaxOrderFields) continue;
    const uint32_t node = ops.alloc(ordernode::size);
    ops.put24(node + ordernode::on_entry, e);
    append_to_list(ops, head, tail, node, ordernode::on_next);
  }
  s.place = SelectPlace::list;
  const uint32_t owner = order && s.partner != 0 ? s.partner : s.rec;
  ops.put24(owner + (order ? selrec::sr_order : selrec::sr_group), head);
}

}  // namespace tav
