// FROM: the objects a select reads, with outer joins, nested join lists, the index to read an
// object by (ON INDEX) and the columns that join it to another (ON f1 = f2).

#include <cmath>
#include <string>

#include "statements/select.h"
#include "symbols/fields.h"
#include "symbols/objects.h"
#include "symbols/records.h"

namespace tav {

namespace {

bool is_numeric_field(const Parser& p, uint32_t field) {
  return (p.ops.get16(field + fsym::f_format) & 0x7800) != 0;
}

// An object named in FROM: its entry, marked as named and numbered in FROM order.
uint32_t name_object(Select& s, uint32_t object, bool outer) {
  OpSpace& ops = s.p.ops;
  uint32_t from = from_entry_of(s, object);
  if (from == 0) from = new_from_entry(s, object);
  uint16_t flags = static_cast<uint16_t>(ops.get16(from + fromrec::fe_flags));
  if (!(flags & fromrec::named)) {
    const uint32_t count = ops.get16(s.rec + selrec::sr_from_count) + 1;
    ops.put16(s.rec + selrec::sr_from_count, count);
    ops.put16(from + fromrec::fe_number, count);
  }
  flags |= fromrec::named;
  if (s.has(selrec::all_fields)) flags |= fromrec::all_fields;
  ops.put16(from + fromrec::fe_level, static_cast<uint32_t>(s.join_level));
  if (outer) {
    flags |= fromrec::outer;
    ops.put16(from + fromrec::fe_joined_to, static_cast<uint32_t>(s.join_level));
    ops.put16(from + fromrec::fe_level, static_cast<uint32_t>(++s.levels));
  }
  ops.put16(from + fromrec::fe_flags, flags);
  if (s.p.syms.keeps_xref()) s.named_at.emplace_back(from, s.p.syms.xref().last_place(object));
  return from;
}

// ON INDEX n, or ON INDEX field ... through the key clause of the object.
void on_index(Select& s, uint32_t from) {
  Parser& p = s.p;
  OpSpace& ops = p.ops;
  const uint32_t object = ops.get24(from + fromrec::fe_object);
  int index = 0;
  if (p.next() == kClassNumeric) {
    const double v = p.tok.value();
    if (v < 1 || v > 255 || v != std::floor(v)) {
      p.diag.error(msg::numeric_value_invalid_out_range);
      return;
    }
    index = static_cast<int>(v);
  } else {
    p.push_back();
    const uint32_t block = ops.alloc(accesskey::size);
    index = key_by_field_names(p, object, block);
    if (index < 0) return;
  }
  ops.at(from + fromrec::fe_index)[0] = static_cast<uint8_t>(index);
  s.set_flags(selrec::on_index);
}

struct JoinSide {
  uint32_t object = 0;
  uint32_t field = 0;
  uint32_t entry = 0;
  std::string name;
};

// One side of ON f1 = f2: [object.]field. False after an error.
bool join_side(Select& s, JoinSide& side) {
  Parser& p = s.p;
  if (p.next() != kClassName) {
    p.fail(msg::syntax_error);
    return false;
  }
  const std::string written(p.text());
  std::string_view bare = written;
  uint32_t from = 0;
  const size_t dot = written.find('.');
  if (dot != std::string::npos && dot > 0) {
    side.object = s.object_named(bare.substr(0, dot));
    if (side.object == 0) return false;
    from = from_entry_of(s, side.object);
    if (from == 0) from = new_from_entry(s, side.object);
    bare = bare.substr(dot + 1);
  }
  side.name = std::string(bare);
  side.field = reference_field(p, side.name, nullptr);
  if (side.field == 0) return false;
  if (side.object != 0 && !field_in_object(p, side.object, side.field)) {
    p.diag.error_text(txt::column_not_in_table, side.name);
    return false;
  }
  side.entry = add_field(s, from, side.field, false);
  set_entry_flags(p, side.entry, static_cast<uint16_t>(selfield::referenced | (from ? selfield::qualified : 0)));
  return true;
}

// One join column pair: both entries end up in one ring.
bool join_pair(Select& s) {
  Parser& p = s.p;
  JoinSide left, right;
  if (!join_side(s, left)) return false;
  if (p.next() != verb("=")) {
    p.fail(msg::invalid_operator);
    return false;
  }
  if (!join_side(s, right)) return false;
  if (left.object != 0 && left.object == right.object) {
    p.diag.error_text(txt::join_objects_same, Context::current_token());
    return true;
  }
  if (is_numeric_field(p, left.field) != is_numeric_field(p, right.field)) {
    p.diag.error(msg::incompatible_field);
    return true;
  }
  const uint32_t before = p.ops.get24(left.entry + selfield::sf_ring);
  splice_rings(p, left.entry, right.entry);
  if (before != p.ops.get24(left.entry + selfield::sf_ring) && p.settings.debug_level == 1)
    p.diag.trace(format_text(txt::trace_join_to, {left.name, right.name}));
  return true;
}

// ON INDEX ... or ON f1 = f2 [AND f3 = f4 ...] after an object.
void on_clause(Select& s, uint32_t from) {
  Parser& p = s.p;
  if (p.take(verb("index"))) {
    on_index(s, from);
    return;
  }
  do {
    if (!join_pair(s)) return;
  } while (p.take(verb("and")));
}

void read_from_list(Select& s, uint32_t closing);

// [OUTER | OPTIONAL] object [ON ...]..., or a nested list in "(" or "{ OJ".
bool read_from_item(Select& s, bool outer) {
  Parser& p = s.p;
  uint32_t c = p.next();
  if (c == verb("outer") || c == verb("optional")) {
    outer = true;
    if (p.tok.held()) p.accept();
    c = p.next();
  }
  if (c == verb("(") || c == verb("{")) {
    if (c == verb("{") && !p.take(verb("oj"))) p.diag.error(msg::syntax_error);
    const int level = s.join_level;
    if (outer) s.join_level = ++s.levels;
    read_from_list(s, c == verb("(") ? verb(")") : verb("}"));
    s.join_level = level;
    return true;
  }
  if (c != kClassName) {
    p.fail(msg::object_name_expected);
    return false;
  }
  const uint32_t object = s.object_named(p.text());
  if (object == 0) return false;
  const uint32_t from = name_object(s, object, outer);
  while (p.take(verb("on"))) on_clause(s, from);
  return true;
}

// What joins the next item: nothing (the items of a list follow each other, commas being
// separators) or INNER JOIN (an inner object), LEFT [OUTER] JOIN (an outer one); RIGHT is not
// supported. 0 at the end of the list, 1 inner, 2 outer, -1 after an error.
int read_joiner(Select& s) {
  Parser& p = s.p;
  const uint32_t c = p.next();
  if (c == kClassName || c == verb("outer") || c == verb("optional") || c == verb("(") || c == verb("{")) {
    p.push_back();
    return 1;
  }
  if (c == verb("right")) {
    p.fail(msg::join_type_not_supported);
    return -1;
  }
  if (c != verb("left") && c != verb("inner")) {
    p.push_back();
    return 0;
  }
  if (p.tok.held()) p.accept();
  if (c == verb("left")) p.take(verb("outer"));
  if (!p.take(verb("join"))) {
    p.fail(msg::syntax_error);
    return -1;
  }
  return c == verb("left") ? 2 : 1;
}

void read_from_list(Select& s, uint32_t closing) {
  Parser& p = s.p;
  bool outer = false;
  for (;;) {
    if (!read_from_item(s, outer)) return;
    const int joiner = read_joiner(s);
    if (joiner < 0) return;
    if (joiner == 0) break;
    outer = joiner == 2;
  }
  if (closing == 0) return;
  if (p.next() != closing) {
    p.push_back();
    p.diag.error(msg::syntax_error);
  }
}

}  // namespace

void read_from(Select& s) { read_from_list(s, 0); }

}  // namespace tav
