// The key optimiser: reads a select's WHERE condition (a postfix op list) once per select field
// entry and records in the op space the entries it equates to the field (the join ring) and the
// key ranges that bound the field. The range algebra itself lives in statements/range_algebra.h;
// this file reads comparisons out of the op list and writes the results back.

#include "statements/key_optimiser.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "codegen/convert.h"
#include "statements/range_algebra.h"
#include "statements/records.h"
#include "symbols/parser_core.h"
#include "symbols/records.h"

namespace tav {

namespace {

constexpr int kJoinPool = 40;

// ---- Reading the op space ----------------------------------------------------------------------

bool is_value(Op op) {
  return op == Op::literal || op == Op::date_literal || op == Op::select_field_ref || op == Op::text_item;
}
bool is_literal(Op op) { return op == Op::literal || op == Op::date_literal || op == Op::text_item; }
// Operands no range can use: a function's argument and call, a sub-select.
bool is_other_operand(Op op) { return op == Op::function_arg || op == Op::function_call || op == Op::select; }

uint32_t field_of(const OpSpace& ops, uint32_t entry) { return ops.get24(entry + selfield::sf_field); }
std::string_view field_name(const OpSpace& ops, uint32_t entry) {
  const uint32_t f = field_of(ops, entry);
  return f != 0 ? ops.text_at(ops.get24(f + fsym::f_name)) : "";
}
bool is_array(const OpSpace& ops, uint32_t entry) {
  const uint32_t f = field_of(ops, entry);
  return f != 0 && ops.get16(f + fsym::f_occurs) >= 2;
}
uint32_t ring_next(const OpSpace& ops, uint32_t entry) {
  const uint32_t next = ops.get24(entry + selfield::sf_ring);
  return next != 0 ? next : entry;
}
bool in_ring(const OpSpace& ops, uint32_t entry, uint32_t member) {
  uint32_t e = entry;
  do {
    if (e == member) return true;
    e = ring_next(ops, e);
  } while (e != entry);
  return false;
}
bool is_host(const OpSpace& ops, uint32_t entry) {
  return (ops.get16(entry + selfield::sf_flags) & selfield::host) != 0;
}
uint32_t entry_of(const OpSpace& ops, uint32_t ref) { return ops.get24(ref + selref::sref_entry); }

// A literal operand's value: a number, or the characters of an alphanumeric literal.
struct LiteralValue {
  bool numeric = false;
  double number = 0;
  std::string_view text;
  uint16_t format = 0;  // format word; the length of an alphanumeric literal
};

LiteralValue literal_value(const ParserCore& p, uint32_t op) {
  const OpSpace& ops = p.ops;
  LiteralValue v;
  if (ops.opcode(op) == Op::text_item) {
    v.format = static_cast<uint16_t>(ops.get16(op + textitem::ti_length));
    const auto item = static_cast<int>(ops.get16(op + textitem::ti_item));
    v.text = std::string_view(ops.text_at(p.texts.offset(item)), v.format);
    return v;
  }
  v.format = static_cast<uint16_t>(ops.get16(op + literal::lit_format));
  v.numeric = conv::fmt_numeric(v.format);
  if (v.numeric)
    v.number = conv::to_double(ops.at(ops.get24(op + literal::lit_value)), v.format);
  else
    v.text = std::string_view(ops.text_at(ops.get24(op + literal::lit_text)), v.format);
  return v;
}

// Alphanumeric values compare as if the shorter were filled with blanks.
int compare_texts(std::string_view a, std::string_view b) {
  const size_t n = std::max(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    const auto ca = static_cast<unsigned char>(i < a.size() ? a[i] : ' ');
    const auto cb = static_cast<unsigned char>(i < b.size() ? b[i] : ' ');
    if (ca != cb) return ca < cb ? -1 : 1;
  }
  return 0;
}

// Two literal operand ops: numbers by value, texts by their characters; a number sorts before a
// text (a condition that mixes them has already been reported).
int compare_literals(const ParserCore& p, uint32_t a, uint32_t b) {
  const LiteralValue va = literal_value(p, a);
  const LiteralValue vb = literal_value(p, b);
  if (va.numeric != vb.numeric) return va.numeric ? -1 : 1;
  if (va.numeric) return va.number < vb.number ? -1 : va.number > vb.number ? 1 : 0;
  return compare_texts(va.text, vb.text);
}

std::string format_literal(const ParserCore& p, uint32_t op) {
  const LiteralValue v = literal_value(p, op);
  if (!v.numeric) return std::string(v.text);
  char buf[400];  // DBL_MAX has 309 digits
  const auto r = std::to_chars(buf, buf + sizeof buf, v.number, std::chars_format::fixed,
                               conv::fmt_decimals(v.format));
  return {buf, r.ptr};
}

// ---- Walking the condition ---------------------------------------------------------------------

// One comparison of two single operands: the operand ops and the comparison code.
struct Comparison {
  uint32_t left;
  uint32_t right;
  uint32_t code;
};

uint32_t next_comparison(const OpSpace& ops, uint32_t op) {
  while (op != 0 && ops.opcode(op) != Op::comparison) op = ops.get24(op);
  return op;
}

// Walks the postfix condition with a stack of slots, one per comparison, combined as AND and OR
// combine them. The left operand is kept for the comparisons that reuse it (BETWEEN, IN); a left
// operand whose comparison could not be read as two single operands may be an expression, and
// the comparisons reusing it count for nothing. Returns the one slot left at the end, or nothing
// when the list does not reduce to one slot or the pass gave up.
template <typename Pass>
std::optional<typename Pass::Slot> walk(ParserCore& p, uint32_t where, Pass& pass) {
  const OpSpace& ops = p.ops;
  std::vector<typename Pass::Slot> stack;
  uint32_t left = 0;
  bool left_single = false;
  for (uint32_t op = where; op != 0; op = ops.get24(op)) {
    const Op code = ops.opcode(op);
    if (is_value(code) || is_other_operand(code)) {
      uint32_t right = op;
      if (left == 0) {
        left = op;
        left_single = is_value(code);
        right = ops.get24(op);
      }
      const uint32_t after = right != 0 ? ops.get24(right) : 0;
      const bool counts = left_single && is_value(code) && right != 0 && is_value(ops.opcode(right)) &&
                          after != 0 && ops.opcode(after) == Op::comparison;
      if (counts)
        stack.push_back(pass.compare(Comparison{left, right, ops.get16(after + cmpop::cmp_code)}));
      else
        stack.push_back(pass.empty());
      if (!counts && right == ops.get24(left)) left_single = false;
      if (pass.stopped()) return std::nullopt;
      op = next_comparison(ops, op);
      if (op == 0) break;
    }
    switch (ops.opcode(op)) {
      case Op::comparison:
        if ((ops.get16(op + cmpop::cmp_code) & ranges::kReuseLeft) == 0) left = 0;
        continue;
      case Op::and_:
      case Op::or_:
        if (stack.size() >= 2) {
          typename Pass::Slot b = std::move(stack.back());
          stack.pop_back();
          typename Pass::Slot a = std::move(stack.back());
          stack.back() = ops.opcode(op) == Op::and_ ? pass.both(std::move(a), std::move(b))
                                                     : pass.either(std::move(a), std::move(b));
          if (pass.stopped()) return std::nullopt;
          continue;
        }
        break;
      default:
        break;
    }
    pass.unknown_op(op);  // returns only when errors were counted before: give up quietly
    return std::nullopt;
  }
  if (stack.size() != 1) return std::nullopt;
  return std::move(stack.back());
}

// ---- Join pass ---------------------------------------------------------------------------------

// Collects the entries that a plain "=" between two select fields equates to the field, where
// every row must satisfy it: under an OR the equality does not hold for every row.
struct JoinPass {
  using Slot = std::vector<uint32_t>;  // join nodes: the entries equated to the field
  ParserCore& p;
  uint32_t entry;
  int nodes = 0;  // taken from the pool of kJoinPool

  Slot empty() { return {}; }
  bool stopped() const { return false; }
  Slot compare(const Comparison& c) {
    const OpSpace& ops = p.ops;
    if (ops.opcode(c.left) != Op::select_field_ref || ops.opcode(c.right) != Op::select_field_ref) return {};
    if ((c.code & (ranges::kRelation | ranges::kLike)) != ranges::kEqual) return {};
    uint32_t other = 0;
    if (entry_of(ops, c.left) == entry && ops.get24(c.right + selref::sref_subscript) == 0)
      other = entry_of(ops, c.right);
    else if (entry_of(ops, c.right) == entry && ops.get24(c.left + selref::sref_subscript) == 0)
      other = entry_of(ops, c.left);
    if (other == 0 || is_host(ops, other)) return {};
    if (nodes == kJoinPool) p.diag.fatal_text(txt::too_many_field_joins);
    ++nodes;
    return {other};
  }
  Slot both(Slot a, Slot b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
  }
  Slot either(const Slot& a, const Slot& b) {
    nodes -= static_cast<int>(a.size() + b.size());
    return {};
  }
  void unknown_op(uint32_t op) {
    if (p.diag.error_count() != 0) return;
    p.diag.trace(format_text(txt::trace_op_code, {std::to_string(static_cast<unsigned>(op_byte(p.ops.opcode(op))))}));
    p.diag.fatal_text(txt::internal_compiler_error, Context("key opt."));
  }
};

// Splices the ring of `joined` into the ring of `entry`: the entry before `joined` in its ring
// takes the entry's old successor, and the entry now leads to `joined`.
void splice(ParserCore& p, uint32_t entry, uint32_t joined) {
  OpSpace& ops = p.ops;
  if (in_ring(ops, entry, joined)) return;
  uint32_t before = joined;
  while (ring_next(ops, before) != joined) before = ring_next(ops, before);
  ops.put24(before + selfield::sf_ring, ring_next(ops, entry));
  ops.put24(entry + selfield::sf_ring, joined);
  if (p.settings.debug_level == 1)
    p.diag.trace(format_text(txt::trace_joined_to, {field_name(ops, before), field_name(ops, entry)}));
}

// ---- Range pass --------------------------------------------------------------------------------

// Turns the comparisons of the field (or of a member of its ring) with a value known before the
// row is read, a literal or a host field, into range lists, and combines them.
struct RangePass {
  using Slot = ranges::Algebra::List;
  ParserCore& p;
  uint32_t entry;
  ranges::Algebra algebra;

  RangePass(ParserCore& parser, uint32_t field_entry)
      : p(parser), entry(field_entry), algebra([&parser](uint32_t a, uint32_t b) {
          return compare_literals(parser, a, b);
        }) {}

  bool known_value(uint32_t op) const {
    const OpSpace& ops = p.ops;
    const Op code = ops.opcode(op);
    return is_literal(code) || (code == Op::select_field_ref && is_host(ops, entry_of(ops, op)));
  }
  bool the_field(uint32_t op) const {
    const OpSpace& ops = p.ops;
    return ops.opcode(op) == Op::select_field_ref && in_ring(ops, entry, entry_of(ops, op));
  }

  Slot empty() { return ranges::Algebra::kNone; }
  bool stopped() const { return algebra.overflowed(); }
  Slot compare(const Comparison& c) {
    if ((c.code & ranges::kRelation) == ranges::kNotEqual) return empty();
    uint32_t value = 0;
    bool exchanged = false;
    if (the_field(c.left) && known_value(c.right)) {
      value = c.right;
    } else if (the_field(c.right) && (c.code & ranges::kLike) == 0 && known_value(c.left)) {
      value = c.left;
      exchanged = true;
    } else {
      return empty();
    }
    const bool literal = is_literal(p.ops.opcode(value));
    const auto field_format = static_cast<uint16_t>(p.ops.get16(field_of(p.ops, entry) + fsym::f_format));
    const bool precise = literal && ranges::more_precise(literal_value(p, value).format, field_format);
    return algebra.make(ranges::Bound{value, ranges::bound_code(c.code, exchanged, precise), !literal});
  }
  Slot both(Slot a, Slot b) { return algebra.conjunction(a, b); }
  Slot either(Slot a, Slot b) {
    const Slot s = algebra.disjunction(a, b);
    if (algebra.order_fault() && p.diag.error_count() == 0) p.diag.fatal_text(txt::internal_error_range_or);
    return s;
  }
  void unknown_op(uint32_t) {
    if (p.diag.error_count() == 0) p.diag.fatal_text(txt::internal_compiler_error, Context("key opt1."));
  }
};

std::string relation_text(uint32_t code) {
  if ((code & ranges::kLike) != 0) return "LIKE";
  std::string s = (code & ranges::kUpper) != 0 ? "<" : (code & ranges::kLower) != 0 ? ">" : "";
  if ((code & ranges::kEqual) != 0) s += '=';
  return s;
}

// The entry flags a range list gives: an equality (one range of ">=" and "<=" on one value) and
// a bound by a field's value.
uint16_t range_flags(const std::vector<std::vector<ranges::Bound>>& list) {
  uint16_t flags = 0;
  if (list.size() == 1 && list[0].size() == 2 && list[0][0].value == list[0][1].value &&
      ((list[0][0].code | list[0][1].code) & ranges::kRelation) == ranges::kRelation)
    flags |= selfield::equality;
  for (const auto& range : list)
    for (const ranges::Bound& b : range)
      if (b.field) flags |= selfield::field_bound;
  return flags;
}

// The range list as the cross reference shows it: "n >= 5 and n <= 9 or n = ..." with texts quoted.
std::string range_list_text(const ParserCore& p, uint32_t entry, const std::vector<std::vector<ranges::Bound>>& list) {
  const OpSpace& ops = p.ops;
  const std::string name(field_name(ops, entry));
  std::string text;
  for (const auto& range : list) {
    if (!text.empty()) text += " or ";
    for (size_t i = 0; i < range.size(); ++i) {
      const ranges::Bound& b = range[i];
      std::string value = b.field ? std::string(field_name(ops, entry_of(ops, b.value))) : format_literal(p, b.value);
      if (!b.field && !literal_value(p, b.value).numeric) value = "\"" + value + "\"";
      text += (i > 0 ? " and " : "") + name + " " + relation_text(b.code) + " " + value;
    }
  }
  return text;
}

// Writes the range list into the op space (range records, each with its bound records), prints
// it under -x 1, and gives every entry of the field's ring its head and flags.
void store(ParserCore& p, uint32_t entry, const std::vector<std::vector<ranges::Bound>>& list) {
  OpSpace& ops = p.ops;
  const bool trace = p.settings.debug_level == 1;
  if (trace) p.diag.trace(format_text(txt::trace_range_list, {field_name(ops, entry)}));
  uint32_t head = 0;
  uint32_t tail = 0;
  int number = 0;
  for (const auto& range : list) {
    const uint32_t r = ops.alloc(rangerec::size);
    append_to_list(ops, head, tail, r, rangerec::rg_next);
    if (trace) p.diag.trace(format_text(txt::trace_range, {std::to_string(++number)}));
    uint32_t first = 0;
    uint32_t last = 0;
    for (const ranges::Bound& b : range) {
      const uint32_t rec = ops.alloc(boundrec::size);
      ops.put24(rec + boundrec::bd_value, b.value);
      ops.put16(rec + boundrec::bd_code, b.code);
      append_to_list(ops, first, last, rec, boundrec::bd_next);
      if (trace) {
        const std::string value = b.field ? std::string(field_name(ops, entry_of(ops, b.value)))
                                          : format_literal(p, b.value);
        p.diag.trace(format_text(txt::trace_bound, {relation_text(b.code), value}));
      }
    }
    ops.put24(r + rangerec::rg_bounds, first);
  }
  const uint16_t flags = range_flags(list);
  const std::string shown = p.syms.keeps_xref() ? range_list_text(p, entry, list) : std::string();
  uint32_t e = entry;
  do {
    if (!shown.empty()) p.syms.xref().set_ranges(e, shown);
    ops.put24(e + selfield::sf_ranges, head);
    const uint32_t old = ops.get16(e + selfield::sf_flags) & ~uint32_t{selfield::equality | selfield::field_bound};
    ops.put16(e + selfield::sf_flags, old | flags);
    e = ring_next(ops, e);
  } while (e != entry);
}

}  // namespace

void join_pass(ParserCore& p, uint32_t entry, uint32_t where) {
  if (where == 0 || is_array(p.ops, entry)) return;
  JoinPass pass{p, entry};
  const std::optional<JoinPass::Slot> joins = walk(p, where, pass);
  if (!joins) return;
  for (uint32_t joined : *joins) splice(p, entry, joined);
}

void range_pass(ParserCore& p, uint32_t entry, uint32_t where) {
  if (where == 0 || is_array(p.ops, entry) || p.ops.get24(entry + selfield::sf_ranges) != 0) return;
  RangePass pass(p, entry);
  const std::optional<RangePass::Slot> list = walk(p, where, pass);
  if (pass.algebra.overflowed()) {
    p.diag.warning_text(txt::ranges_too_complicated, Context(field_name(p.ops, entry)));
    return;
  }
  if (list && *list != ranges::Algebra::kNone) store(p, entry, pass.algebra.ranges(*list));
}

}  // namespace tav
