// The SET and STRING statements.
//
// SET target [subscript] operator expression assigns a value: Op::set for a field
// (Op::set_subscripted for a whole array, Op::set_variant for the report and font settings), with
// the value's op list in bytes 4-6. A compound operator (+= and the like) compiles "target op
// (expression)". SET object.* = other.* copies a record (Op::record_copy).
//
// STRING field action... edits an alphanumeric field in place: Op::string with a list of 14-byte
// action entries.

#include <cmath>
#include <string>

#include "codegen/convert.h"
#include "expr/expr_internal.h"
#include "symbols/clauses.h"
#include "symbols/parser_core.h"
#include "symbols/fields.h"
#include "symbols/records.h"
#include "symbols/reports.h"

namespace tav {

namespace {

using namespace expr;

// The special targets of SET and their codes.
inline constexpr uint8_t kDefaultFont = 1;
inline constexpr uint8_t kDefaultPitch = 2;
inline constexpr uint8_t kDefaultPoint = 3;
inline constexpr uint8_t kPageNumber = 4;
inline constexpr uint8_t kDrillDownLevel = 5;
inline constexpr uint16_t kPageNoFunction = 63;
inline constexpr uint16_t kDrillDownFunction = 160;


struct Assign {
  uint32_t code;
  Op opcode;  // none: plain assignment; else the arithmetic op of the compound operator
};
constexpr Assign kAssignOps[] = {
    {verb("="), Op::none},           {verb("to"), Op::none},     {verb("*="), Op::multiply},
    {verb("/="), Op::divide},        {verb("%="), Op::remainder}, {verb("+="), Op::add},
    {verb("-="), Op::subtract},
};

const Assign* assign_op(uint32_t c) {
  for (const Assign& a : kAssignOps)
    if (a.code == c) return &a;
  return nullptr;
}

bool is_word(ParserCore& p, uint32_t c) {
  return c == kClassName || (c > kClassRaw && c != kClassEndOfInput && !p.at_statement_start() &&
                             find_operator(c) == nullptr);
}

// SET object.* = other.* (or = *).
uint32_t record_copy(ParserCore& p, std::string_view target) {
  OpSpace& ops = p.ops;
  uint32_t to = p.syms.find_object(target.substr(0, target.size() - 2));
  const Assign* a = assign_op(p.next());
  if (!a || a->opcode != Op::none) {
    p.fail(msg::syntax_error);
    return 0;
  }
  p.next();
  std::string source(p.text());
  uint32_t from = 0;
  if (source.size() > 2 && source.ends_with(".*")) {
    from = p.syms.find_object(std::string_view(source).substr(0, source.size() - 2));
    if (from == 0) to = 0;
  } else if (source != "*") {
    p.fail(msg::object_allowed);
    return 0;
  }
  if (to == 0) {
    p.diag.error_text(txt::record_copy_needs_objects, Context::current_token());
    return 0;
  }
  if (from == to) {
    p.diag.error_text(txt::record_copy_same_object, Context::current_token());
    return 0;
  }
  for (uint32_t o : {to, from})
    if (o != 0 && !(ops.get16(o + osym::o_attr) & osym::attr_no_joins)) p.diag.error(msg::object_not_declared_as_no);
  p.ob.emit_statement_marker(verb("set"));
  uint32_t op = p.ob.emit(Op::record_copy);
  ops.put24(op + reccopy::rc_to, to);
  ops.put24(op + reccopy::rc_from, from);
  return op;
}

// A single literal assigned to a field must fit it.
void check_literal(ParserCore& p, uint32_t head, uint32_t field) {
  OpSpace& ops = p.ops;
  if (head == 0 || ops.get24(head) != 0 || ops.opcode(head) != Op::literal) return;
  uint16_t target = static_cast<uint16_t>(ops.get16(field + fsym::f_format));
  uint16_t lit = static_cast<uint16_t>(ops.get16(head + literal::lit_format));
  if (!conv::fmt_numeric(lit)) {
    if (!conv::fmt_numeric(target) && lit > target) p.diag.warning(msg::literal_value_larger_than_field);
    return;
  }
  if (!conv::fmt_numeric(target)) return;
  double value = conv::to_double(ops.at(ops.get24(head + literal::lit_value)), lit);
  if (conv::fmt_digits(lit) > conv::fmt_digits(target) || conv::fmt_decimals(lit) > conv::fmt_decimals(target))
    p.diag.warning(msg::literal_value_larger_than_field);
  else if (value < 0 && !conv::fmt_signed(target))
    p.diag.warning(msg::literal_value_not_compatible_field);
}

// An assignment as it is read: the target, the operator and the op emitted.
struct Assignment {
  int special = 0;  // the special setting's code, 0 for a field
  uint32_t field = 0, object = 0, sub = 0;
  bool whole = false;  // a whole array
  uint16_t format = 0;
  const Assign* a = nullptr;
  uint32_t op = 0, head = 0;  // the op, and its value list
};

// PAGE-NO, DRILL-DOWN-LEVEL or DEFAULT FONT | PITCH | POINT: the setting's code, 0 for any other
// word, -1 after reporting.
int special_target(ParserCore& p, uint32_t c) {
  if (c == verb("page_no")) return kPageNumber;
  if (c == verb("drill_down_level")) {
    p.diag.warning_text(txt::obsolete_function, Context::current_token());
    return kDrillDownLevel;
  }
  if (c != verb("default")) return 0;
  uint32_t what = p.next();
  int special = what == verb("font") ? kDefaultFont : what == verb("pitch") ? kDefaultPitch
                : what == verb("point") ? kDefaultPoint : 0;
  if (special == 0) {
    p.fail(msg::syntax_error);
    return -1;
  }
  return special;
}

// The field assigned and its subscript. False after reporting.
bool field_target(ParserCore& p, const std::string& target, bool for_loop, Assignment& s) {
  s.field = reference_field(p, target, &s.object);
  if (s.field == 0) {
    p.tok.skip_to_statement();
    return false;
  }
  s.sub = compile_subscript(p, s.field, for_loop ? allow_nothing : allow_whole_arrays, &s.whole);
  return true;
}

// The op for the target. 0 after reporting a compound operator on a whole array.
uint32_t emit_set(ParserCore& p, const Assignment& s) {
  OpSpace& ops = p.ops;
  uint32_t op = 0;
  if (s.special) {
    op = p.ob.emit(Op::set_variant);
    *ops.at(op + setvar::sv_special) = static_cast<uint8_t>(s.special);
  } else if (s.whole) {
    if (s.a->opcode != Op::none) {
      p.fail(msg::invalid_operator);
      return 0;
    }
    op = p.ob.emit(Op::set_subscripted);
    ops.put24(op + setop::st_field, s.field);
    ops.put24(op + setop::st_object, s.object);
  } else {
    op = p.ob.emit(Op::set);
    ops.put24(op + setop::st_field, s.field);
    ops.put24(op + setop::st_subscript, s.sub);
    ops.put24(op + setop::st_object, s.object);
  }
  return op;
}

// The target's own value, the left operand of a compound operator.
void emit_target_value(ParserCore& p, const Assignment& s) {
  OpSpace& ops = p.ops;
  if (s.special == kPageNumber || s.special == kDrillDownLevel) {
    uint32_t call = p.ob.emit(Op::function_call);
    ops.put16(call + funcall::fc_number, s.special == kPageNumber ? kPageNoFunction : kDrillDownFunction);
    if (p.ob.debug_ops()) {
      uint32_t copy = ops.alloc(4);
      ops.put32(copy, s.special == kPageNumber ? verb("page_no") : verb("drill_down_level"));
      ops.put24(call + funcall::fc_verb, copy);
    }
  } else if (s.special == 0) {
    uint32_t ref = p.ob.emit(Op::field_ref);
    ops.put24(ref + fieldref::fr_object, s.object);
    ops.put16(ref + fieldref::fr_format, s.format);
    ops.put24(ref + fieldref::fr_field, s.field);
    ops.put24(ref + fieldref::fr_subscript, s.sub);
  }
}

// The value's op list, into the op: the expression, or "target op (expression)" for a compound
// operator. False after reporting a compound operator on an alphanumeric target.
bool compile_value(ParserCore& p, Assignment& s, ExprType& t) {
  OpSpace& ops = p.ops;
  uint32_t op = s.op;
  p.ob.open_level();
  if (s.a->opcode == Op::none) {
    t = compile_expression(p);
  } else if (!conv::fmt_numeric(s.format)) {
    p.ob.close_level();
    p.fail(msg::invalid_operator);
    return false;
  } else {
    emit_target_value(p, s);
    t = compile_expression(p);
    p.ob.emit(s.a->opcode);
  }
  uint32_t head = p.ob.top().head;
  p.ob.close_level();
  ops.put24(op + setop::st_value, head);
  s.head = head;
  return true;
}

// The value's type against the target's; a literal must fit the field.
void check_value(ParserCore& p, const Assignment& s, ExprType t) {
  bool numeric_target = conv::fmt_numeric(s.format);
  bool mixed = t.alphanumeric() && t.numeric();  // reported inside the expression already
  if (!mixed && ((numeric_target && t.alphanumeric()) || (!numeric_target && t.numeric())))
    p.diag.error(msg::mixed_numeric_alpha_operands_expression);
  else if (s.field != 0 && s.a->opcode == Op::none)
    check_literal(p, s.head, s.field);
}

// [ON report] after PAGE-NO and DRILL-DOWN-LEVEL. False after reporting.
bool read_report(ParserCore& p, uint32_t op) {
  OpSpace& ops = p.ops;
  if (p.next() == verb("on")) {
    uint32_t r = p.next();
    if (!is_word(p, r)) {
      p.fail(msg::report_name_not_defined);
      return false;
    }
    const uint32_t report = find_or_create_report(p.ops, p.text());
    p.syms.note_used(report);
    p.syms.note_name(XrefKind::report, report, p.text());
    ops.put24(op + setvar::sv_report, report);
  } else {
    p.push_back();
  }
  return true;
}

}  // namespace

uint32_t compile_assignment(ParserCore& p, bool for_loop) {
  OpSpace& ops = p.ops;
  uint32_t c = p.next();
  std::string target(p.text());

  // The target: a special setting, a record, or a field.
  Assignment s;
  if (!for_loop) {
    s.special = special_target(p, c);
    if (s.special < 0) return 0;
  }
  if (s.special == 0) {
    if (!is_word(p, c)) {
      p.fail(msg::field_name_expected);
      return 0;
    }
    if (!for_loop && target.size() > 2 && target.ends_with(".*")) return record_copy(p, target);
    if (!field_target(p, target, for_loop, s)) return 0;
  }

  s.a = assign_op(p.next());
  if (!s.a) {
    p.fail(msg::syntax_error);
    return 0;
  }
  s.format = s.special ? conv::kFmtTime : static_cast<uint16_t>(ops.get16(s.field + fsym::f_format));

  if (!for_loop) p.ob.emit_statement_marker(verb("set"));
  s.op = emit_set(p, s);
  ExprType t;
  if (s.op == 0 || !compile_value(p, s, t) || t.failed) return 0;
  check_value(p, s, t);
  if ((s.special == kPageNumber || s.special == kDrillDownLevel) && !read_report(p, s.op)) return 0;
  return s.op;
}

// A word after the value ends the expression and is left for the statement dispatcher, which
// reports what does not start a statement.
void compile_set(ParserCore& p) {
  p.accept();
  if (compile_assignment(p, false) == 0 && !p.at_statement_start()) p.tok.skip_to_statement();
}

namespace {

// STRING field [subscript]: the field edited, and its op. 0 after reporting.
uint32_t emit_string(ParserCore& p) {
  OpSpace& ops = p.ops;
  uint32_t c = p.next();
  if (!is_word(p, c)) {
    p.fail(msg::field_name_expected);
    return 0;
  }
  uint32_t object = 0;
  uint32_t field = reference_field(p, std::string(p.text()), &object);
  if (field == 0) {
    p.tok.skip_to_statement();
    return 0;
  }
  if (conv::fmt_numeric(static_cast<uint16_t>(ops.get16(field + fsym::f_format)))) {
    p.diag.error_text(txt::field_must_be_alphanumeric, Context::current_token());
    p.tok.skip_to_statement();
    return 0;
  }
  uint32_t sub = compile_subscript(p, field);
  p.ob.emit_statement_marker(verb("string"));
  uint32_t op = p.ob.emit(Op::string);
  ops.put16(op + stringop::sg_object, object ? ops.get16(object + osym::o_seq) : 0);
  ops.put24(op + stringop::sg_field, field);
  ops.put24(op + stringop::sg_subscript, sub);
  return op;
}

// The actions read so far: where the next entry is linked.
struct StringEdit {
  ParserCore& p;
  uint32_t link;
};

// AT position [TO end] of an action; only DELETING takes TO.
ClauseStep string_position(ParserCore& p, uint32_t entry, uint16_t kind) {
  ExprType pos = compile_expression_list(p, entry + action::ac_at);
  if (pos.failed) return ClauseStep::done;
  if (!pos.numeric() || pos.alphanumeric()) p.diag.error(msg::numeric_value_invalid_out_range);
  bool to = p.next() == verb("to");
  if (to && kind != action::deleting) {
    p.fail(msg::syntax_error);
    return ClauseStep::done;
  }
  if (!to) {
    p.push_back();
    return ClauseStep::next;
  }
  ExprType end = compile_expression_list(p, entry + action::ac_to);
  if (end.failed) return ClauseStep::done;
  if (!end.numeric() || end.alphanumeric()) p.diag.error(msg::numeric_value_invalid_out_range);
  return ClauseStep::next;
}

// INSERTING text AT position, REPLACING text AT position, DELETING AT position [TO end],
// APPENDING text: an action entry linked after the last.
template <uint16_t Kind>
ClauseStep string_action(StringEdit& e) {
  ParserCore& p = e.p;
  OpSpace& ops = p.ops;
  const uint16_t kind = Kind;
  uint32_t entry = ops.alloc(action::size);
  ops.put24(e.link, entry);
  e.link = entry + action::ac_next;
  ops.put16(entry + action::ac_kind, kind);
  if (kind != action::deleting) {
    ExprType t = compile_expression_list(p, entry + action::ac_text);
    if (t.failed) return ClauseStep::done;
    if (!t.alphanumeric()) p.diag.error(msg::alphanumeric_expression_required);
  }
  bool at = p.next() == verb("at");
  if (kind == action::appending) {
    if (at) {
      p.fail(msg::syntax_error);
      return ClauseStep::done;
    }
    p.push_back();
    return ClauseStep::next;
  }
  if (!at) {
    p.diag.error_text(txt::at_required, Context::current_token());
    if (!p.at_statement_start()) p.tok.skip_to_statement();
    return ClauseStep::done;
  }
  return string_position(p, entry, kind);
}

ClauseStep string_other(StringEdit& e) {
  e.p.fail(msg::syntax_error);
  return ClauseStep::done;
}

constexpr ClauseRow<StringEdit> kStringActions[] = {
    {verb("inserting"), Given::repeatable, {}, string_action<action::inserting>},
    {verb("replacing"), Given::repeatable, {}, string_action<action::replacing>},
    {verb("deleting"), Given::repeatable, {}, string_action<action::deleting>},
    {verb("append"), Given::repeatable, {}, string_action<action::appending>},
    {verb("appending"), Given::repeatable, {}, string_action<action::appending>},
};

}  // namespace

void compile_string(ParserCore& p) {
  p.accept();
  uint32_t op = emit_string(p);
  if (op == 0) return;
  StringEdit e{p, op + stringop::sg_actions};
  read_clauses(p, kStringActions, e, string_other);
}

}  // namespace tav
