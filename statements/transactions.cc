// The other record statements: SERIAL, SAVE / PUSH, RESTORE / POP, INITIALISE, the transaction
// statements (TRANSACTION BEGIN / COMMIT / ROLL-BACK, BEGIN WORK, COMMIT WORK, ROLL-BACK WORK),
// LOCKING-METHOD and AUDIT.
//
// A transaction ends every lock the program holds, so each transaction statement resets the
// lock states.

#include "codegen/convert.h"
#include "expr/expr.h"
#include "statements/handlers.h"
#include "statements/parser.h"
#include "statements/record_io.h"
#include "statements/records.h"
#include "symbols/fields.h"
#include "symbols/objects.h"
#include "symbols/records.h"

namespace tav {

namespace {

// Nothing may follow but ON ERROR (when `on_error` names the op's skip target).
void trailing_clauses(Parser& p, uint32_t on_error) {
  for (;;) {
    const uint32_t c = p.next();
    if (p.at_statement_start()) return;
    if (c == verb("on") && on_error != 0) {
      on_error_clause(p, on_error);
      return;
    }
    if (skip_invalid_clause(p) == ClauseStep::done) return;
  }
}

// Object names up to the next token that is not a name, as object list entries.
uint32_t object_list(Parser& p) {
  OpSpace& ops = p.ops;
  uint32_t head = 0, tail = 0;
  while (p.next() == kClassName) {
    const uint32_t object = find_or_load_object(p, p.text());
    if (object == 0) return head;
    const uint32_t e = ops.alloc(objlist::size);
    ops.put24(e + objlist::ol_object, object);
    if (tail != 0)
      ops.put24(tail + objlist::ol_next, e);
    else
      head = e;
    tail = e;
  }
  p.push_back();
  return head;
}

// LEAVING field, ...: names only (error 13 for anything else before the next clause).
uint32_t leaving_list(Parser& p, uint32_t object) {
  if (p.next() != kClassName) {
    p.fail(msg::field_name_expected);
    return 0;
  }
  p.push_back();
  return read_field_list(p, object);
}

// BEGIN WORK [FREE-LOCKS] [ON object, ... | LEAVING object, ...] [FREE-LOCKS] [ON ERROR ...]
void begin_work_clauses(Parser& p, uint32_t op) {
  OpSpace& ops = p.ops;
  bool objects = false;
  for (;;) {
    const uint32_t c = p.next();
    if (p.at_statement_start()) return;
    if (c == verb("free_locks")) {
      ops.put16(op + txop::tx_flags, ops.get16(op + txop::tx_flags) | txop::free_locks);
      continue;
    }
    const bool on = c == verb("on");
    if (on && p.take(verb("error"))) {
      compile_on_error(p, op + txop::tx_on_error);
      return;
    }
    if ((on || c == verb("leaving")) && !objects) {
      objects = true;
      if (!on) ops.put16(op + txop::tx_flags, ops.get16(op + txop::tx_flags) | txop::leaving);
      ops.put24(op + txop::tx_objects, object_list(p));
      continue;
    }
    if (skip_invalid_clause(p) == ClauseStep::done) return;
  }
}

// COMMIT, ROLL-BACK and BEGIN, in either form; `work` when WORK must follow.
void transaction(Parser& p, uint32_t code, bool work) {
  static constexpr struct {
    uint32_t word;
    Op op;
  } kStatements[] = {{verb("begin"), Op::begin}, {verb("commit"), Op::commit}, {verb("roll_back"), Op::roll_back}};
  Op opcode = Op::begin;
  for (const auto& s : kStatements)
    if (s.word == code) opcode = s.op;
  const uint32_t op = emit_record_op(p, code, opcode);
  p.locks.reset_all();
  if (work && !p.take(verb("work"))) {
    p.fail(msg::syntax_error);
    return;
  }
  if (opcode == Op::begin && work)
    begin_work_clauses(p, op);
  else
    trailing_clauses(p, op + txop::tx_on_error);
}

// RESTORE / POP object [LEAVING field, ... | LEAVING ALL] | * FROM object | field, ... FROM object
void restore_clauses(Parser& p, uint32_t op, uint32_t object, uint16_t flags) {
  OpSpace& ops = p.ops;
  for (;;) {
    const uint32_t c = p.next();
    if (p.at_statement_start()) break;
    if (c != verb("leaving")) {
      if (skip_invalid_clause(p) == ClauseStep::done) break;
      continue;
    }
    if ((flags & restoreop::field_list) || ops.get24(op + restoreop::rs_fields) != 0 || (flags & restoreop::leaving_all))
      p.diag.error(msg::duplicate_incompatible_clause);
    if (p.take(verb("all"))) {
      if (!(flags & restoreop::pop)) p.diag.error(msg::duplicate_incompatible_clause);
      flags |= restoreop::leaving_all;
    } else {
      ops.put24(op + restoreop::rs_fields, leaving_list(p, object));
    }
  }
  ops.put16(op + restoreop::rs_flags, flags);
}

}  // namespace

void compile_serial(Parser& p) {
  p.accept();
  const uint32_t op = emit_record_op(p, verb("serial"), Op::serial);
  const uint32_t object = read_object(p);
  if (object == 0) return;
  p.ops.put24(op + serialop::se_object, object);
  require_file_type(p, object, "IM");
  if (p.take(verb("key"))) {
    if (p.next() != kClassName) {
      p.fail(msg::field_name_expected);
      return;
    }
    uint32_t prefix = 0;
    const uint32_t f = reference_field(p, p.text(), &prefix);
    if (f == 0) {
      p.tok.skip_to_statement();
      return;
    }
    if (!conv::fmt_numeric(static_cast<uint16_t>(p.ops.get16(f + fsym::f_format)))) p.diag.error(msg::field_must_numeric);
    if (!field_in_object(p, object, f)) p.diag.error(msg::field_not_contained_object);
    p.ops.put24(op + serialop::se_key, f);
  }
  trailing_clauses(p, op + serialop::se_on_error);
}

// SAVE object, PUSH object
void compile_save(Parser& p) {
  const bool push = p.cls() == verb("push");
  p.accept();
  const uint32_t op = emit_record_op(p, push ? verb("push") : verb("save"), Op::save);
  const uint32_t object = read_object(p);
  if (object == 0) return;
  p.ops.put24(op + objop::ob_object, object);
  if (push) p.ops.put16(op + objop::ob_flags, objop::push);
  trailing_clauses(p, 0);
}

void compile_restore(Parser& p) {
  const bool pop = p.cls() == verb("pop");
  p.accept();
  const uint32_t op = emit_record_op(p, pop ? verb("pop") : verb("restore"), Op::restore);
  ObjectHead head;
  if (!read_object_head(p, verb("from"), head)) return;
  p.ops.put24(op + restoreop::rs_object, head.object);
  p.ops.put24(op + restoreop::rs_fields, head.fields);
  uint16_t flags = pop ? restoreop::pop : 0;
  if (head.listed) flags |= restoreop::field_list;
  restore_clauses(p, op, head.object, flags);
}

// INITIALISE object [LEAVING field, ...]
void compile_initialise(Parser& p) {
  p.accept();
  const uint32_t op = emit_record_op(p, verb("initialise"), Op::initialise);
  const uint32_t object = read_object(p);
  if (object == 0) return;
  p.ops.put24(op + restoreop::rs_object, object);
  if (p.take(verb("leaving"))) p.ops.put24(op + restoreop::rs_fields, leaving_list(p, object));
  trailing_clauses(p, 0);
}

// TRANSACTION BEGIN | COMMIT | ROLL-BACK
void compile_transaction(Parser& p) {
  p.accept();
  const uint32_t c = p.next();
  if (c != verb("begin") && c != verb("commit") && c != verb("roll_back")) {
    p.fail(msg::syntax_error);
    return;
  }
  p.accept();
  transaction(p, c, false);
}

// BEGIN WORK, COMMIT WORK, ROLL-BACK WORK
void compile_begin_work(Parser& p) {
  const uint32_t code = p.cls();
  p.accept();
  transaction(p, code, true);
}

// LOCKING-METHOD [IS] WAIT-WITH-TIMEOUT | NO-WAIT | WAIT
void compile_locking_method(Parser& p) {
  p.accept();
  const uint32_t op = emit_record_op(p, verb("locking_method"), Op::locking_method);
  p.take(verb("is"));
  static constexpr struct {
    uint32_t word;
    uint16_t method;
  } kMethods[] = {{verb("wait_with_timeout"), lockmethod::wait_with_timeout},
                  {verb("no_wait"), lockmethod::no_wait},
                  {verb("wait"), lockmethod::wait}};
  const uint32_t c = p.next();
  for (const auto& m : kMethods) {
    if (m.word != c) continue;
    p.ops.put16(op + lockmethod::lm_method, m.method);
    trailing_clauses(p, 0);
    return;
  }
  p.fail(msg::syntax_error);
}

namespace {

// TO text and ON ERROR after the audited objects. TO and the ON ERROR skip target share the
// op's last operand, so a statement cannot have both.
void audit_clauses(Parser& p, uint32_t op, bool off) {
  bool to = false;
  for (;;) {
    const uint32_t c = p.next();
    if (p.at_statement_start()) return;
    if (c == verb("to") && !off) {
      to = true;
      const ExprType t = compile_expression_list(p, op + auditop::au_to);
      if (!t.failed && !t.alphanumeric()) p.diag.error(msg::alpha_literal_expected);
    } else if (c == verb("on") && p.take(verb("error"))) {
      if (to) p.diag.error(msg::duplicate_incompatible_clause);
      compile_on_error(p, op + auditop::au_on_error);
      return;
    } else if (skip_invalid_clause(p) == ClauseStep::done) {
      return;
    }
  }
}

}  // namespace

// AUDIT [OFF] [ON] object, ... [TO text] [ON ERROR ...]
void compile_audit(Parser& p) {
  OpSpace& ops = p.ops;
  p.accept();
  const uint32_t op = emit_record_op(p, verb("audit"), Op::audit);
  const bool off = p.take(verb("off"));
  if (off) ops.put16(op + auditop::au_off, 1);
  const bool on_error = p.take(verb("on")) && p.take(verb("error"));
  const uint32_t objects = on_error ? 0 : object_list(p);
  ops.put24(op + auditop::au_objects, objects);
  if (!off && objects == 0) p.diag.error(msg::object_name_expected);
  if (on_error)
    compile_on_error(p, op + auditop::au_on_error);
  else
    audit_clauses(p, op, off);
}

}  // namespace tav
