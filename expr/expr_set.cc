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
#include "symbols/parser_core.h"
#include "symbols/fields.h"
#include "symbols/records.h"

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

// The statement must end here.
void expect_end(ParserCore& p) {
  p.next();
  if (!p.at_statement_start()) p.fail(msg::syntax_error);
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

}  // namespace

uint32_t compile_assignment(ParserCore& p, bool for_loop) {
  OpSpace& ops = p.ops;
  uint32_t c = p.next();
  std::string target(p.text());

  // The target: a special setting, a record, or a field.
  int special = 0;
  if (!for_loop) {
    if (c == verb("page_no")) {
      special = kPageNumber;
    } else if (c == verb("drill_down_level")) {
      special = kDrillDownLevel;
      p.diag.warning_text(txt::obsolete_function, Context::current_token());
    } else if (c == verb("default")) {
      uint32_t what = p.next();
      special = what == verb("font") ? kDefaultFont : what == verb("pitch") ? kDefaultPitch
                : what == verb("point") ? kDefaultPoint : 0;
      if (special == 0) {
        p.fail(msg::syntax_error);
        return 0;
      }
    }
  }
  uint32_t field = 0, object = 0, sub = 0;
  bool whole = false;
  if (special == 0) {
    if (!is_word(p, c)) {
      p.fail(msg::field_name_expected);
      return 0;
    }
    if (!for_loop && target.size() > 2 && target.ends_with(".*")) return record_copy(p, target);
    field = reference_field(p, target, &object);
    if (field == 0) {
      p.tok.skip_to_statement();
      return 0;
    }
    sub = compile_subscript(p, field, for_loop ? allow_nothing : allow_whole_arrays, &whole);
  }

  const Assign* a = assign_op(p.next());
  if (!a) {
    p.fail(msg::syntax_error);
    return 0;
  }
  uint16_t target_format = special ? conv::kFmtTime : static_cast<uint16_t>(ops.get16(field + fsym::f_format));
  bool numeric_target = conv::fmt_numeric(target_format);

  if (!for_loop) p.ob.emit_statement_marker(verb("set"));
  uint32_t op = 0;
  if (special) {
    op = p.ob.emit(Op::set_variant);
    *ops.at(op + setvar::sv_special) = static_cast<uint8_t>(special);
  } else if (whole) {
    if (a->opcode != Op::none) {
      p.fail(msg::invalid_operator);
      return 0;
    }
    op = p.ob.emit(Op::set_subscripted);
    ops.put24(op + setop::st_field, field);
    ops.put24(op + setop::st_object, object);
  } else {
    op = p.ob.emit(Op::set);
    ops.put24(op + setop::st_field, field);
    ops.put24(op + setop::st_subscript, sub);
    ops.put24(op + setop::st_object, object);
  }

  p.ob.open_level();
  ExprType t;
  if (a->opcode == Op::none) {
    t = compile_expression(p);
  } else if (!numeric_target) {
    p.ob.close_level();
    p.fail(msg::invalid_operator);
    return 0;
  } else {
    // target op (expression)
    if (special == kPageNumber || special == kDrillDownLevel) {
      uint32_t call = p.ob.emit(Op::function_call);
      ops.put16(call + funcall::fc_number, special == kPageNumber ? kPageNoFunction : kDrillDownFunction);
      if (p.ob.debug_ops()) {
        uint32_t copy = ops.alloc(4);
        ops.put32(copy, special == kPageNumber ? verb("page_no") : verb("drill_down_level"));
        ops.put24(call + funcall::fc_verb, copy);
      }
    } else if (special == 0) {
      uint32_t ref = p.ob.emit(Op::field_ref);
      ops.put24(ref + fieldref::fr_object, object);
      ops.put16(ref + fieldref::fr_format, target_format);
      ops.put24(ref + fieldref::fr_field, field);
      ops.put24(ref + fieldref::fr_subscript, sub);
    }
    t = compile_expression(p);
    p.ob.emit(a->opcode);
  }
  uint32_t head = p.ob.top().head;
  p.ob.close_level();
  ops.put24(op + setop::st_value, head);
  if (t.failed) return 0;

  bool mixed = t.alphanumeric() && t.numeric();  // reported inside the expression already
  if (!mixed && ((numeric_target && t.alphanumeric()) || (!numeric_target && t.numeric())))
    p.diag.error(msg::mixed_numeric_alpha_operands_expression);
  else if (field != 0 && a->opcode == Op::none)
    check_literal(p, head, field);

  if (special == kPageNumber || special == kDrillDownLevel) {
    if (p.next() == verb("on")) {
      uint32_t r = p.next();
      if (!is_word(p, r)) {
        p.fail(msg::report_name_not_defined);
        return 0;
      }
      ops.put24(op + setvar::sv_report, report_by_name(p, p.text()));
    } else {
      p.push_back();
    }
  }
  return op;
}

void compile_set(ParserCore& p) {
  p.accept();
  if (compile_assignment(p, false) == 0) {
    if (!p.at_statement_start()) p.tok.skip_to_statement();
    return;
  }
  expect_end(p);
}

void compile_string(ParserCore& p) {
  OpSpace& ops = p.ops;
  p.accept();
  uint32_t c = p.next();
  if (!is_word(p, c)) {
    p.fail(msg::field_name_expected);
    return;
  }
  uint32_t object = 0;
  uint32_t field = reference_field(p, std::string(p.text()), &object);
  if (field == 0) {
    p.tok.skip_to_statement();
    return;
  }
  if (conv::fmt_numeric(static_cast<uint16_t>(ops.get16(field + fsym::f_format)))) {
    p.diag.error_text(txt::field_must_be_alphanumeric, Context::current_token());
    p.tok.skip_to_statement();
    return;
  }
  uint32_t sub = compile_subscript(p, field);
  p.ob.emit_statement_marker(verb("string"));
  uint32_t op = p.ob.emit(Op::string);
  ops.put16(op + stringop::sg_object, object ? ops.get16(object + osym::o_seq) : 0);
  ops.put24(op + stringop::sg_field, field);
  ops.put24(op + stringop::sg_subscript, sub);

  uint32_t link = op + stringop::sg_actions;
  for (;;) {
    c = p.next();
    if (p.at_statement_start()) return;
    uint16_t kind = c == verb("inserting") ? action::inserting
                    : c == verb("replacing") ? action::replacing
                    : c == verb("deleting") ? action::deleting
                    : (c == verb("append") || c == verb("appending")) ? action::appending : 0;
    if (kind == 0) {
      p.fail(msg::syntax_error);
      return;
    }
    uint32_t entry = ops.alloc(action::size);
    ops.put24(link, entry);
    link = entry + action::ac_next;
    ops.put16(entry + action::ac_kind, kind);
    if (kind != action::deleting) {
      ExprType t = compile_expression_list(p, entry + action::ac_text);
      if (t.failed) return;
      if (!t.alphanumeric()) p.diag.error(msg::alphanumeric_expression_required);
    }
    bool at = p.next() == verb("at");
    if (kind == action::appending) {
      if (at) {
        p.fail(msg::syntax_error);
        return;
      }
      p.push_back();
      continue;
    }
    if (!at) {
      p.diag.error_text(txt::at_required, Context::current_token());
      if (!p.at_statement_start()) p.tok.skip_to_statement();
      return;
    }
    ExprType pos = compile_expression_list(p, entry + action::ac_at);
    if (pos.failed) return;
    if (!pos.numeric() || pos.alphanumeric()) p.diag.error(msg::numeric_value_invalid_out_range);
    bool to = p.next() == verb("to");
    if (to && kind != action::deleting) {
      p.fail(msg::syntax_error);
      return;
    }
    if (!to) {
      p.push_back();
      continue;
    }
    ExprType end = compile_expression_list(p, entry + action::ac_to);
    if (end.failed) return;
    if (!end.numeric() || end.alphanumeric()) p.diag.error(msg::numeric_value_invalid_out_range);
  }
}

}  // namespace tav
