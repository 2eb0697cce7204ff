// The structured statements: IF / ELSE-IF / ELSE, WHILE, REPEAT / UNTIL, FOR, SWITCH / CASE, and
// the loop exits BREAK and CONTINUE.
//
// A jump never holds an address: it names the op after which execution carries on, so the
// interpreter proceeds with that op's successor. IF and SWITCH lay their branches out in the
// enclosing op list; while a construct is open, its jumps to the end (Op::jump) are chained through
// their own target bytes and patched when the closing verb is read. Loop bodies, conditions and
// the FOR increment are op lists of their own, built on nesting levels.
//
// Every construct holds a block scope (statements/block.h) for its whole extent: the depth
// counters, per branch of IF or SWITCH and per loop body a lock-state frame, and the ACCEPT chain
// of the part, put back when a branch ends so that no branch sees the ACCEPTs of another.

#include <initializer_list>

#include "codegen/convert.h"
#include "expr/expr.h"
#include "statements/block.h"
#include "statements/handlers.h"
#include "statements/modes.h"
#include "statements/parser.h"
#include "statements/program.h"
#include "statements/records.h"
#include "symbols/records.h"

namespace tav {

namespace {


// The statement word that opens a block and its place, for the note of a missing closing word.
struct Opened {
  std::string_view word;
  SourceMark mark;
};

// Reads the closing verb: true when it is one of the two given (and consumed); otherwise reports
// "<name> missing" and leaves the token for the next statement or section.
// The note names the statement that opened the block, where it stands.
bool close_with(Parser& p, uint32_t found, uint32_t closing, txt::Text missing, const Opened& opened) {
  if (found == verb("end") || found == closing) {
    if (p.syms.keeps_xref()) p.syms.xref().add_block({opened.word, opened.mark, p.diag.current_mark()});
    p.next();
    p.accept();
    return true;
  }
  p.diag.error_text(missing, Context::current_token());
  p.diag.add_note(std::string(opened.word) + " opened here", opened.mark);
  return false;
}

// Appends Op::jump to the current list and pushes it on the chain of pending jumps.
uint32_t emit_jump(Parser& p, uint32_t& chain) {
  uint32_t j = p.ob.emit(Op::jump);
  p.ops.put24(j + jump::j_target, chain);
  chain = j;
  return j;
}

// Points every pending jump at the last op emitted so far.
void patch_jumps(Parser& p, uint32_t chain) {
  uint32_t last = p.ob.top().tail;
  while (chain != 0) {
    uint32_t next = p.ops.get24(chain + jump::j_target);
    p.ops.put24(chain + jump::j_target, last);
    chain = next;
  }
}

// A branch of IF or SWITCH.
uint32_t compile_branch(Parser& p, std::initializer_list<uint32_t> stops) {
  BlockScope branch(p, BlockScope::branch);
  return compile_statements_until(p, stops);
}

// The statements of a loop body on a level of its own, with a lock-state frame: a BREAK,
// CONTINUE or EXIT inside settles only the body's own states. The path is open again after it:
// an EXIT inside ends only one pass.
uint32_t compile_loop_list(Parser& p, std::initializer_list<uint32_t> stops, uint32_t& stop) {
  BlockScope body(p, BlockScope::reopens_path | BlockScope::lock_frame);
  p.ob.open_level();
  stop = compile_statements_until(p, stops);
  uint32_t head = p.ob.top().head;
  p.ob.close_level();
  return head;
}

// A loop body; returns its op list and leaves the stop token in `stop`. The body may not run,
// or may stop half way, so what it did to the lock states counts after it as a branch's.
uint32_t compile_loop_body(Parser& p, std::initializer_list<uint32_t> stops, uint32_t& stop) {
  const uint32_t head = compile_loop_list(p, stops, stop);
  p.locks.settle_branches();
  return head;
}

// --- FOR ------------------------------------------------------------------------------------

// The loop variable as the FOR assignment names it.
struct LoopField {
  uint32_t field = 0;
  uint32_t object = 0;
  uint32_t subscript = 0;  // operand value
  uint16_t format = 0;
};

// Emits a field reference (Op::field_ref) to the loop variable.
void emit_field_ref(Parser& p, const LoopField& f) {
  uint32_t op = p.ob.emit(Op::field_ref);
  p.ops.put24(op + fieldref::fr_object, f.object);
  p.ops.put16(op + fieldref::fr_format, f.format);
  p.ops.put24(op + fieldref::fr_field, f.field);
  p.ops.put24(op + fieldref::fr_subscript, f.subscript);
}

// Emits an assignment (Op::set) of the value list `value` to the loop variable.
uint32_t emit_assignment(Parser& p, const LoopField& f, uint32_t value) {
  p.ob.emit_statement_marker(verb("set"));
  uint32_t op = p.ob.emit(Op::set);
  p.ops.put24(op + setop::st_value, value);
  p.ops.put16(op + setop::st_format, f.format);
  p.ops.put24(op + setop::st_field, f.field);
  p.ops.put24(op + setop::st_subscript, f.subscript);
  p.ops.put24(op + setop::st_object, f.object);
  return op;
}

// field [subscript] = start: the initial assignment of a FOR, compiled as a SET without its
// special targets. The loop variable must be numeric. False (after reporting) when it failed.
bool compile_for_start(Parser& p, LoopField& f) {
  uint32_t op = compile_assignment(p, true);
  if (op == 0) return false;
  OpSpace& ops = p.ops;
  f.field = ops.get24(op + setop::st_field);
  f.format = static_cast<uint16_t>(ops.get16(f.field + fsym::f_format));
  f.subscript = ops.get24(op + setop::st_subscript);
  f.object = ops.get24(op + setop::st_object);
  if (!conv::fmt_numeric(f.format)) {
    p.fail(msg::field_must_numeric);
    return false;
  }
  return true;
}

// --- SWITCH ---------------------------------------------------------------------------------

// Adds one value to a CASE's list (at the front).
void push_case_value(Parser& p, uint32_t case_op, uint32_t value, uint16_t format) {
  OpSpace& ops = p.ops;
  uint32_t e = ops.alloc(casevalue::size);
  ops.put24(e + casevalue::cv_next, ops.get24(case_op + caseop::cs_values));
  ops.put24(e + casevalue::cv_value, value);
  ops.put16(e + casevalue::cv_format, format);
  ops.put24(case_op + caseop::cs_values, e);
}

// The values of a CASE, up to the next statement: literals of the SWITCH expression's kind, and
// mode names (or SHOW) under a numeric expression.
void read_case_values(Parser& p, uint32_t case_op, bool numeric) {
  OpSpace& ops = p.ops;
  for (;;) {
    uint32_t c = p.next();
    if (p.at_statement_start()) return;
    if (c == kClassNumeric || c == kClassDate || c == kClassTime) {
      if (!numeric) {
        p.diag.error(msg::case_value_not_compatible_expression);
        continue;
      }
      auto format = static_cast<uint16_t>((p.tok.attribute() & ~(conv::kFmtFloat | conv::kFmtZoned)) |
                                          conv::kFmtBinary);
      uint8_t bytes[8] = {};
      conv::from_double(p.tok.value(), format, bytes);
      push_case_value(p, case_op, ops.copy_in(bytes, conv::format_size(format)), format);
    } else if (c == kClassAlpha) {
      if (numeric) {
        p.diag.error(msg::case_value_not_compatible_expression);
        continue;
      }
      std::string_view text = p.text();
      push_case_value(p, case_op, ops.copy_in(text.data(), static_cast<uint32_t>(text.size())),
                      static_cast<uint16_t>(text.size()));
    } else if (uint32_t m = c == verb("show") ? 0xffffffff : find_mode(p, p.text()); m != 0) {
      if (!numeric) {
        p.diag.error(msg::case_value_not_compatible_expression);
        continue;
      }
      uint32_t value = ops.alloc(4);
      ops.put32(value, m);
      push_case_value(p, case_op, value, m == 0xffffffff ? casevalue::format_show : casevalue::format_mode);
    } else {
      p.fail(msg::literal_value_expected);
      return;
    }
  }
}

}  // namespace

// IF condition [THEN] ... [ELSE-IF condition [THEN] ...]... [ELSE ...] END-IF
void compile_if(Parser& p) {
  OpSpace& ops = p.ops;
  const Opened opened{"IF", p.tok.mark()};
  p.accept();
  BlockScope construct(p, BlockScope::conditional | BlockScope::accepts);
  uint32_t jumps = 0;   // pending jumps to the end
  uint32_t branch = 0;  // the Op::if_ of the branch being compiled
  uint32_t opening = verb("if");
  uint32_t stop = 0;
  for (;;) {
    if (branch != 0) ops.put24(branch + ifop::if_false, emit_jump(p, jumps));
    p.ob.emit_statement_marker(opening);
    branch = p.ob.emit(Op::if_);
    compile_condition_list(p, branch + ifop::if_condition);
    p.take(verb("then"));
    stop = compile_branch(p, {verb("else_if"), verb("else"), verb("end"), verb("end_if")});
    if (stop != verb("else_if")) break;
    p.next();
    p.accept();
    opening = verb("else_if");
  }
  if (stop == verb("else")) {
    p.next();
    p.accept();
    ops.put24(branch + ifop::if_false, emit_jump(p, jumps));
    p.ob.emit_statement_marker(verb("else"));
    stop = compile_branch(p, {verb("end"), verb("end_if")});
  } else {
    ops.put24(branch + ifop::if_false, p.ob.top().tail);
  }
  patch_jumps(p, jumps);
  if (close_with(p, stop, verb("end_if"), txt::end_if_missing, opened)) p.ob.emit_statement_marker(verb("end_if"));
  p.locks.settle_branches();
}

// WHILE condition [DETAIL] ... END-WHILE
void compile_while(Parser& p) {
  OpSpace& ops = p.ops;
  const Opened opened{"WHILE", p.tok.mark()};
  p.accept();
  BlockScope loop(p, BlockScope::conditional | BlockScope::loop | BlockScope::accepts);
  p.ob.emit_statement_marker(verb("while"));
  uint32_t op = p.ob.emit(Op::while_);
  compile_condition_list(p, op + loop::lp_condition);
  p.take(verb("detail"));
  uint32_t stop = 0;
  ops.put24(op + loop::lp_body, compile_loop_body(p, {verb("end"), verb("end_while")}, stop));
  close_with(p, stop, verb("end_while"), txt::end_while_missing, opened);
  p.ob.emit_statement_marker(verb("end_while"));
}

// REPEAT ... UNTIL condition [DETAIL] ... END-REPEAT: the first list runs, the loop stops when
// the condition holds, otherwise the second list runs and the loop starts again.
void compile_repeat(Parser& p) {
  OpSpace& ops = p.ops;
  const Opened opened{"REPEAT", p.tok.mark()};
  p.accept();
  BlockScope loop(p, BlockScope::conditional | BlockScope::loop | BlockScope::accepts);
  p.ob.emit_statement_marker(verb("repeat"));
  uint32_t op = p.ob.emit(Op::repeat);
  uint32_t stop = 0;
  ops.put24(op + repeat::rp_first, compile_loop_body(p, {verb("end"), verb("end_repeat"), verb("until")}, stop));
  if (stop == verb("until")) {
    p.next();
    p.accept();
    p.ob.emit_statement_marker(verb("until"));
    compile_condition_list(p, op + repeat::rp_until);
    p.take(verb("detail"));
  } else {
    p.diag.error_text(txt::until_missing, Context::current_token());
  }
  ops.put24(op + repeat::rp_second, compile_loop_body(p, {verb("end"), verb("end_repeat")}, stop));
  close_with(p, stop, verb("end_repeat"), txt::end_repeat_missing, opened);
  p.ob.emit_statement_marker(verb("end_repeat"));
}

// FOR field = start [DOWN] TO limit [STEP step] [DETAIL] ... END-FOR: the assignment, then a
// WHILE whose condition tests the field against the limit and whose increment list adds (or
// subtracts) the step.
void compile_for(Parser& p) {
  OpSpace& ops = p.ops;
  const Opened opened{"FOR", p.tok.mark()};
  p.accept();
  p.ob.emit_statement_marker(verb("for"));
  LoopField f;
  if (!compile_for_start(p, f)) return;
  bool down = false;
  uint32_t c = p.next();
  if (c == verb("down")) {
    down = true;
    c = p.next();
  }
  if (c != verb("to")) {
    p.fail(msg::syntax_error);
    return;
  }

  p.ob.emit_statement_marker(verb("while"));
  uint32_t op = p.ob.emit(Op::while_);
  p.ob.open_level();
  emit_field_ref(p, f);
  if (compile_expression(p).alphanumeric()) p.diag.error(msg::mixed_numeric_alpha_operands_expression);
  uint32_t test = p.ob.emit(Op::comparison);
  ops.put16(test + cmpop::cmp_code, down ? cmpop::code_ge : cmpop::code_le);
  ops.put24(op + loop::lp_condition, p.ob.top().head);
  p.ob.close_level();

  p.ob.open_level();
  emit_field_ref(p, f);
  if (p.next() == verb("step")) {
    if (compile_expression(p).alphanumeric()) p.diag.error(msg::mixed_numeric_alpha_operands_expression);
  } else {
    p.push_back();
    static constexpr uint8_t kOne[2] = {0x00, 0x01};
    uint32_t one = p.ob.emit(Op::literal);
    ops.put24(one + literal::lit_value, ops.copy_in(kOne, sizeof kOne));
    ops.put16(one + literal::lit_format, literal::format_one_digit);
  }
  p.ob.emit(down ? Op::subtract : Op::add);
  uint32_t increment = p.ob.top().head;
  p.ob.close_level();

  p.take(verb("detail"));
  BlockScope loop(p, BlockScope::conditional | BlockScope::loop | BlockScope::accepts);
  uint32_t stop = 0;
  ops.put24(op + loop::lp_body, compile_loop_body(p, {verb("end"), verb("end_for")}, stop));
  p.ob.open_level();
  emit_assignment(p, f, increment);
  ops.put24(op + loop::lp_increment, p.ob.top().head);
  p.ob.close_level();
  close_with(p, stop, verb("end_for"), txt::end_for_missing, opened);
  p.ob.emit_statement_marker(verb("end_for"));
}

// SWITCH [ON] [ASCII | COLLATE] expression CASE [OF] values ... [ELSE ...] END-SWITCH
void compile_switch(Parser& p) {
  OpSpace& ops = p.ops;
  const Opened opened{"SWITCH", p.tok.mark()};
  p.accept();
  BlockScope construct(p, BlockScope::conditional | BlockScope::accepts);
  p.take(verb("on"));
  uint16_t variant = 0;
  uint32_t c = p.next();
  if (c == verb("ascii"))
    variant = switchop::variant_ascii;
  else if (c == verb("collate"))
    variant = switchop::variant_collate;
  else
    p.push_back();
  p.ob.emit_statement_marker(verb("switch"));
  uint32_t op = p.ob.emit(Op::switch_);
  ops.put16(op + switchop::sw_variant, variant);
  ExprType type = compile_expression_list(p, op + switchop::sw_expression);
  bool numeric = !type.alphanumeric();

  uint32_t jumps = 0;
  uint32_t link = op + switchop::sw_first_case;  // where the next CASE op is linked from
  uint32_t stop = p.next();
  p.push_back();
  while (stop == verb("case")) {
    p.next();
    p.accept();
    if (link != op + switchop::sw_first_case) emit_jump(p, jumps);
    p.take(verb("of"));
    p.ob.emit_statement_marker(verb("case"));
    uint32_t case_op = p.ob.emit(Op::case_);
    ops.put24(link, case_op);
    link = case_op + caseop::cs_next;
    read_case_values(p, case_op, numeric);
    stop = compile_branch(p, {verb("case"), verb("else"), verb("end"), verb("end_switch")});
  }
  if (stop == verb("else")) {
    p.next();
    p.accept();
    ops.put24(op + switchop::sw_else, emit_jump(p, jumps));
    p.ob.emit_statement_marker(verb("else"));
    stop = compile_branch(p, {verb("end"), verb("end_switch")});
  } else {
    p.ob.emit(Op::placeholder);  // counted, but the level holds the SWITCH, so nothing is added
    ops.put24(op + switchop::sw_else, p.ob.top().tail);
  }
  patch_jumps(p, jumps);
  if (close_with(p, stop, verb("end_switch"), txt::end_switch_missing, opened))
    p.ob.emit_statement_marker(verb("end_switch"));
  p.locks.settle_branches();
}

namespace {

// BREAK and CONTINUE leave or restart the innermost loop (the DETAIL of a SCREEN or MENU is one).
void compile_loop_exit(Parser& p, uint32_t code, Op opcode) {
  p.accept();
  if (p.loop_depth <= 0) p.diag.error(msg::not_looping_section_code);
  p.ob.emit_statement_marker(code);
  p.ob.emit(opcode);
  p.path_ended = true;
  p.locks.settle_path_end();
}

}  // namespace

void compile_break(Parser& p) { compile_loop_exit(p, verb("break"), Op::break_); }
void compile_continue(Parser& p) { compile_loop_exit(p, verb("continue"), Op::continue_); }

}  // namespace tav
