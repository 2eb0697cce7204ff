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

// What may follow a statement's object: nothing but ON ERROR, and that only where the op has a
// skip target (`on_error` not 0).
struct Trailing {
  Parser& p;
  uint32_t on_error;
};

ClauseStep trailing_on(Trailing& t) {
  if (t.on_error == 0) return skip_invalid_clause(t.p);
  return on_error_clause(t.p, t.on_error);
}

ClauseStep trailing_other(Trailing& t) { return skip_invalid_clause(t.p); }

constexpr ClauseRow<Trailing> kTrailingClauses[] = {
    {verb("on"), Given::once, {}, trailing_on},
};

void trailing_clauses(Parser& p, uint32_t on_error) {
  Trailing t{p, on_error};
  read_clauses(p, kTrailingClauses, t, trailing_other);
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
    append_to_list(ops, head, tail, e, objlist::ol_next);
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
struct Begin {
  Parser& p;
  uint32_t op;
  bool objects = false;  // ON or LEAVING gave the list
};

void add_tx_flags(Begin& b, uint16_t bits) {
  b.p.ops.put16(b.op + txop::tx_flags, b.p.ops.get16(b.op + txop::tx_flags) | bits);
}

ClauseStep begin_free_locks(Begin& b) {
  add_tx_flags(b, txop::free_locks);
  return ClauseStep::next;
}

// The transaction's objects; one list only.
ClauseStep begin_objects(Begin& b) {
  if (b.objects) b.p.diag.error(msg::duplicate_incompatible_clause);
  b.objects = true;
  b.p.ops.put24(b.op + txop::tx_objects, object_list(b.p));
  return ClauseStep::next;
}

ClauseStep begin_leaving(Begin& b) {
  add_tx_flags(b, txop::leaving);
  return begin_objects(b);
}

// ON ERROR, or ON object, ...
ClauseStep begin_on(Begin& b) {
  if (!b.p.take(verb("error"))) return begin_objects(b);
  compile_on_error(b.p, b.op + txop::tx_on_error);
  return ClauseStep::done;
}

ClauseStep begin_other(Begin& b) { return skip_invalid_clause(b.p); }

constexpr ClauseRow<Begin> kBeginClauses[] = {
    {verb("free_locks"), Given::repeatable, {}, begin_free_locks},
    {verb("on"), Given::repeatable, {}, begin_on},
    {verb("leaving"), Given::once, {}, begin_leaving},
};

void begin_work_clauses(Parser& p, uint32_t op) {
  Begin b{p, op};
  read_clauses(p, kBeginClauses, b, begin_other);
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
struct Restore {
  Parser& p;
  uint32_t op;
  uint32_t object;
  uint16_t flags;
};

// LEAVING ALL (POP only) or LEAVING field, ...; not after the field-list form.
ClauseStep restore_leaving(Restore& r) {
  Parser& p = r.p;
  if (r.flags & restoreop::field_list) p.diag.error(msg::duplicate_incompatible_clause);
  if (p.take(verb("all"))) {
    if (!(r.flags & restoreop::pop)) p.diag.error(msg::duplicate_incompatible_clause);
    r.flags |= restoreop::leaving_all;
  } else {
    p.ops.put24(r.op + restoreop::rs_fields, leaving_list(p, r.object));
  }
  return ClauseStep::next;
}

ClauseStep restore_other(Restore& r) { return skip_invalid_clause(r.p); }

constexpr ClauseRow<Restore> kRestoreClauses[] = {
    {verb("leaving"), Given::once, {}, restore_leaving},
};

void restore_clauses(Parser& p, uint32_t op, uint32_t object, uint16_t flags) {
  Restore r{p, op, object, flags};
  read_clauses(p, kRestoreClauses, r, restore_other);
  p.ops.put16(op + restoreop::rs_flags, r.flags);
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
struct Audit {
  Parser& p;
  uint32_t op;
  bool off;
};

// TO text: not after OFF, which writes no trail.
ClauseStep audit_to(Audit& a) {
  if (a.off) return skip_invalid_clause(a.p);
  const ExprType t = compile_expression_list(a.p, a.op + auditop::au_to);
  if (!t.failed && !t.alphanumeric()) a.p.diag.error(msg::alpha_literal_expected);
  return ClauseStep::next;
}

ClauseStep audit_on(Audit& a) {
  if (!a.p.take(verb("error"))) return skip_invalid_clause(a.p);
  if (a.p.ops.get24(a.op + auditop::au_to) != 0) a.p.diag.error(msg::duplicate_incompatible_clause);
  compile_on_error(a.p, a.op + auditop::au_on_error);
  return ClauseStep::done;
}

ClauseStep audit_other(Audit& a) { return skip_invalid_clause(a.p); }

constexpr ClauseRow<Audit> kAuditClauses[] = {
    {verb("to"), Given::once, {}, audit_to},
    {verb("on"), Given::once, {}, audit_on},
};

void audit_clauses(Parser& p, uint32_t op, bool off) {
  Audit a{p, op, off};
  read_clauses(p, kAuditClauses, a, audit_other);
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
