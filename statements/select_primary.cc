// The selects of screens: the SELECT clause of a screen header, and the implicit select a PRIMARY
// object becomes (conv_primary): the object's rows in the order of its PRIMARY key, updatable
// unless the screen only reads them, and with PRIMARY SAME bound to the program's fields of the
// key's names (conv_primary_when, put_same_fld).

#include <string>

#include "codegen/header.h"
#include "expr/expr.h"
#include "statements/select.h"
#include "symbols/records.h"

namespace tav {

namespace {

constexpr uint16_t kEqual = 0x1000;

uint16_t kind_word(const Parser& p, uint32_t screen) { return static_cast<uint16_t>(p.ops.get16(screen + ssym::s_kind)); }
uint16_t review_word(const Parser& p, uint32_t screen) { return static_cast<uint16_t>(p.ops.get16(screen + ssym::s_flags)); }

// The screen select's only FROM entry.
uint32_t primary_from(const Parser& p, uint32_t rec) { return p.ops.get24(rec + selrec::sr_from); }

// The PRIMARY key of the screen (its key number, the first key when none was chosen).
uint32_t primary_key_record(const Parser& p, uint32_t screen, uint32_t object) {
  const uint32_t number = *p.ops.at(screen + ssym::s_key_number);
  uint32_t first = 0;
  for (uint32_t k = p.ops.get24(object + osym::o_keylist); k != 0; k = p.ops.get24(k + keyrec::k_next)) {
    if (first == 0) first = k;
    if (*p.ops.at(k + keyrec::k_index) == number) return k;
  }
  return number == 0 ? first : 0;
}

// The key parts the screen uses: all, or with the partial-access flag the number it gave.
std::vector<uint32_t> key_parts(const Parser& p, uint32_t screen, uint32_t object) {
  std::vector<uint32_t> parts;
  const uint32_t key = primary_key_record(p, screen, object);
  const uint32_t limit = (kind_word(p, screen) & ssym::kind_primary_access1) ? *p.ops.at(screen + ssym::s_key_parts) : 0;
  for (uint32_t kp = key ? p.ops.get24(key + keyrec::k_parts) : 0; kp != 0; kp = p.ops.get24(kp + keypart::kp_next)) {
    if (limit != 0 && parts.size() == limit) break;
    parts.push_back(kp);
  }
  return parts;
}

uint32_t emit_reference(Parser& p, uint32_t entry, uint32_t field) {
  const uint32_t op = p.ob.emit(Op::select_field_ref);
  p.ops.put16(op + selref::sref_format, p.ops.get16(field + fsym::f_format));
  p.ops.put24(op + selref::sref_entry, entry);
  set_entry_flags(p, entry, selfield::referenced);
  return op;
}

// Condition linking as the expression compiler does it: a comparison joins the level's pending
// chain; a junction adopts the two latest entries of it.
void link_comparison(Parser& p, uint32_t op) {
  p.ops.put24(op + cmpop::cmp_parent, p.ob.top().pending);
  p.ob.top().pending = op;
}

void emit_and(Parser& p) {
  OpSpace& ops = p.ops;
  const uint32_t op = p.ob.emit(Op::and_);
  uint32_t e = p.ob.top().pending, rest = 0;
  for (int i = 0; i < 2 && e != 0; ++i) {
    rest = ops.get24(e + cmpop::cmp_parent);
    ops.put24(e + cmpop::cmp_parent, op);
    e = rest;
  }
  ops.put24(op + cmpop::cmp_parent, rest);
  p.ob.top().pending = op;
}

// key field = :key field, for one key field of PRIMARY SAME.
void put_same_fld(Select& s, uint32_t field) {
  Parser& p = s.p;
  const uint32_t entry = add_field(s, primary_from(p, s.rec), field, false);
  if (entry == 0) p.diag.fatal_text(txt::internal_put_same_fld_1, field_name(p, field));
  emit_reference(p, entry, field);
  const uint32_t host = add_field(s, 0, ":" + field_name(p, field));
  if (host == 0) p.diag.fatal_text(txt::internal_put_same_fld_2, field_name(p, field));
  emit_reference(p, host, field);
  const uint32_t cmp = p.ob.emit(Op::comparison);
  p.ops.put16(cmp + cmpop::cmp_code, kEqual);
  link_comparison(p, cmp);
}

// The WHEN condition of the header after the key equalities, joined to them by AND.
void when_condition(Select& s, bool joined) {
  Parser& p = s.p;
  const uint32_t pending = p.ob.top().pending;
  s.place = SelectPlace::where;
  compile_condition(p, allow_select, nullptr, &s);
  s.place = SelectPlace::list;
  const uint32_t root = p.ob.top().pending;
  if (!joined || root == 0) return;
  p.ops.put24(root + cmpop::cmp_parent, pending);
  emit_and(p);
}

// ORDER BY the PRIMARY key's fields, descending where the key part is (inverted when the review
// starts from the end).
void order_by_key(Select& s, uint32_t screen, uint32_t object) {
  Parser& p = s.p;
  OpSpace& ops = p.ops;
  const bool from_end = (review_word(p, screen) & ssym::review_from_end) != 0;
  const bool partial = (kind_word(p, screen) & ssym::kind_primary_access1) != 0;
  uint32_t head = 0, tail = 0;
  for (uint32_t kp : key_parts(p, screen, object)) {
    const uint32_t field = ops.get24(kp + keypart::kp_field);
    const uint32_t entry = field ? add_field(s, primary_from(p, s.rec), field, false) : 0;
    if (entry == 0) p.diag.fatal_text(txt::internal_conv_primary, Context::current_token());
    uint16_t bits = selfield::ordered | selfield::referenced;
    if ((ops.get16(kp + keypart::kp_desc) != 0) != from_end) bits |= selfield::descending;
    if (partial) bits |= selfield::selected;
    set_entry_flags(p, entry, bits);
    const uint32_t node = ops.alloc(ordernode::size);
    ops.put24(node + ordernode::on_entry, entry);
    append_to_list(ops, head, tail, node, ordernode::on_next);
  }
  ops.put24(s.rec + selrec::sr_order, head);
}

}  // namespace

void compile_screen_select(Parser& p, uint32_t screen) {
  SelectCall call;
  call.screen = true;
  call.screen_name = p.ops.get24(screen + ssym::s_name);
  const uint32_t rec = compile_select(p, call);
  p.ops.put16(rec + selrec::sr_flags, p.ops.get16(rec + selrec::sr_flags) | selrec::screen);
  p.ops.put24(screen + ssym::s_select, rec);
  if (!(p.ops.get16(rec + selrec::sr_flags) & selrec::for_update)) return;
  if (const uint32_t from = primary_from(p, rec))
    p.ops.put24(screen + ssym::s_primary, p.ops.get24(from + fromrec::fe_object));
}

uint32_t conv_primary_start(Parser& p, uint32_t screen, uint32_t object) {
  OpSpace& ops = p.ops;
  const uint32_t rec = ops.alloc(selrec::size);
  ops.put16(rec + selrec::sr_flags, selrec::screen);
  ops.put24(rec + selrec::sr_screen, ops.get24(screen + ssym::s_name));
  ops.put24(rec + selrec::sr_screen_next, ops.get24(hdr::h_select_list));
  ops.put24(hdr::h_select_list, rec);
  const uint32_t from = ops.alloc(fromrec::size);
  ops.put24(from + fromrec::fe_object, object);
  ops.put16(from + fromrec::fe_flags, fromrec::named);
  ops.put16(from + fromrec::fe_number, 1);
  ops.put24(rec + selrec::sr_from, from);
  ops.put16(rec + selrec::sr_from_count, 1);
  return rec;
}

void conv_primary_when(Parser& p, uint32_t screen, uint32_t rec, bool with_condition) {
  OpSpace& ops = p.ops;
  if (ops.get24(rec + selrec::sr_where) != 0) p.diag.fatal_text(txt::internal_conv_primary_when, Context::current_token());
  Select s(p, rec);
  SelectFrame frame(p, s);
  s.screen = true;
  const uint32_t object = ops.get24(primary_from(p, rec) + fromrec::fe_object);
  p.ob.open_level();
  int equalities = 0;
  if (kind_word(p, screen) & ssym::kind_primary_same) {
    for (uint32_t kp : key_parts(p, screen, object)) {
      put_same_fld(s, ops.get24(kp + keypart::kp_field));
      if (++equalities > 1) emit_and(p);
    }
  }
  if (with_condition) when_condition(s, equalities > 0);
  if (const uint32_t root = p.ob.top().pending) ops.put24(root + cmpop::cmp_parent, 0);
  ops.put24(rec + selrec::sr_where, p.ob.top().head);
  p.ob.close_level();
}

void conv_primary(Parser& p, uint32_t screen, uint32_t rec) {
  OpSpace& ops = p.ops;
  Select s(p, rec);
  SelectFrame frame(p, s);
  s.screen = true;
  const uint32_t from = primary_from(p, rec);
  const uint32_t object = ops.get24(from + fromrec::fe_object);
  uint16_t kind = kind_word(p, screen);
  if (kind & ssym::kind_primary_access1) {
    s.set_flags(selrec::distinct);
  } else {
    s.set_flags(selrec::for_update | selrec::all_fields);
    ops.put16(from + fromrec::fe_flags, ops.get16(from + fromrec::fe_flags) | fromrec::all_fields);
  }
  order_by_key(s, screen, object);
  const uint16_t review = review_word(p, screen);
  if (kind & ssym::kind_primary_same) {
    if (ops.get24(rec + selrec::sr_where) == 0) {
      conv_primary_when(p, screen, rec, false);
      kind = static_cast<uint16_t>(kind & ~ssym::kind_primary_same);
    } else if (!(review & (ssym::review_from_end | ssym::review_from_start))) {
      kind |= ssym::kind_start_on_current;
    }
    ops.put16(screen + ssym::s_kind, kind);
  }
  resolve_references(s, false);
  optimise_keys(s);
  build_column_lists(s);
  if (review & ssym::review_from_end)
    ops.put16(screen + ssym::s_flags, (review & ~ssym::review_from_end) | ssym::review_bottom_to_top);
  ops.put24(screen + ssym::s_select, rec);
}

}  // namespace tav
