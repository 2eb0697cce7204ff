// Reading and writing records: GET, POSITION, INSERT, UPDATE, DELETE, UNLOCK, OPEN and CLOSE.
//
// GET and POSITION describe the record they want in a record I/O block (statements/record_io.h);
// the writing statements name their object in the op. Each statement that may fail carries an
// ON ERROR block, laid out after its op: the op's skip target names the op after which a
// statement that did not fail goes on.

#include <string>

#include "codegen/convert.h"
#include "expr/expr.h"
#include "statements/handlers.h"
#include "statements/parser.h"
#include "statements/record_io.h"
#include "statements/records.h"
#include "symbols/objects.h"
#include "symbols/records.h"

namespace tav {

namespace {

// ---- GET ------------------------------------------------------------------------------------

ClauseStep get_look_up(RecordIo& r) {
  Parser& p = r.p;
  require_file_type(p, r.object, "IM");
  if (r.field_list) p.diag.error(msg::duplicate_incompatible_clause);
  r.set(access::look_up);
  p.locks.record(p.ops, r.object, false);
  return ClauseStep::next;
}

template <uint16_t Flag>
ClauseStep get_flag(RecordIo& r) {
  r.set(Flag);
  r.no_warning = false;
  return ClauseStep::next;
}

ClauseStep get_currency(RecordIo& r) {
  r.set(access::currency);
  if (!r.on_index) {
    r.p.ops.at(r.block + accesskey::a_index)[0] = 0;
    r.p.ops.put16(r.block + accesskey::a_flags, r.flags() & ~accesskey::flag_default_index);
  }
  r.no_warning = false;
  return ClauseStep::next;
}

// The LOOK-UP entry: the first field of the object's first key.
uint32_t look_up_entry(Parser& p, uint32_t object) {
  OpSpace& ops = p.ops;
  const uint32_t e = ops.alloc(lookup::size);
  ops.put24(e + lookup::lu_object, object);
  const uint32_t key = ops.get24(object + osym::o_keylist);
  const uint32_t part = key ? ops.get24(key + keyrec::k_parts) : 0;
  if (part != 0) {
    const uint32_t f = ops.get24(part + keypart::kp_field);
    ops.put24(e + lookup::lu_field, f);
    ops.put16(e + lookup::lu_format, ops.get16(f + fsym::f_format));
  }
  return e;
}

// A full key read with LAST must end in an alphanumeric field.
void check_last_full_key(RecordIo& r) {
  OpSpace& ops = r.p.ops;
  const uint32_t key = key_record(r.p, r.object, ops.at(r.block + accesskey::a_index)[0]);
  uint32_t last = 0;
  for (uint32_t kp = key ? ops.get24(key + keyrec::k_parts) : 0; kp != 0; kp = ops.get24(kp + keypart::kp_next)) last = kp;
  if (last == 0) return;
  const uint32_t f = ops.get24(last + keypart::kp_field);
  if (conv::fmt_numeric(static_cast<uint16_t>(ops.get16(f + fsym::f_format))))
    r.p.diag.error_text(txt::full_key_needs_alpha_last, Context::current_token());
}

// For the cross reference: the key a GET reads by, and its fields that the statement gives.
void note_get_read(RecordIo& r) {
  Parser& p = r.p;
  if (!p.syms.keeps_xref() || r.object == 0) return;
  const OpSpace& ops = p.ops;
  XrefRead read;
  read.object = r.object;
  read.statement = p.syms.xref().statement();
  read.where = r.named_at;
  read.index = *ops.at(r.block + accesskey::a_index);
  read.explicit_index = r.on_index;
  const size_t leading = *ops.at(r.block + accesskey::a_key_count);
  const uint32_t key = key_record(p, r.object, read.index);
  size_t count = 0;
  for (uint32_t kp = key ? ops.get24(key + keyrec::k_parts) : 0; kp != 0 && (leading == 0 || count < leading) && count < 64;
       kp = ops.get24(kp + keypart::kp_next), ++count)
    read.key_fields.push_back(ops.get24(kp + keypart::kp_field));
  p.syms.xref().add_read(std::move(read));
}

void finish_get(RecordIo& r) {
  finish_record_io(r);
  note_get_read(r);
  const uint16_t f = r.flags();
  if ((f & access::last) && (f & accesskey::flag_full_key)) check_last_full_key(r);
  if (f & access::look_up) r.p.ops.put24(r.block + accesskey::a_list, look_up_entry(r.p, r.object));
}

constexpr uint32_t kNext = verb("next"), kPrev = verb("prev"), kKey = verb("key"), kLookUp = verb("look_up"),
                   kFirst = verb("first"), kLast = verb("last"), kCurrency = verb("currency"), kLock = verb("lock");

constexpr ClauseRow<RecordIo> kGetClauses[] = {
    {kLookUp, Given::once, {kLock, kNext, kPrev, kLast}, get_look_up},
    {kNext, Given::once, {kPrev, kKey, kLookUp, kFirst, kLast, kCurrency}, io_next},
    {kPrev, Given::once, {kNext, kKey, kLookUp, kFirst, kLast, kCurrency}, io_prev},
    {verb("on"), Given::repeatable, {}, io_on},
    {kLock, Given::once, {kLookUp}, io_lock},
    {verb("no_warning"), Given::repeatable, {}, io_no_warning},
    {kLast, Given::once, {kNext, kPrev, kFirst, kCurrency, kLookUp}, get_flag<access::last>},
    {kFirst, Given::once, {kNext, kPrev, kLast, kCurrency, kKey}, get_flag<access::first>},
    {kCurrency, Given::once, {kNext, kPrev, kFirst, kLast, kKey}, get_currency},
    {kKey, Given::once, {kNext, kPrev, kFirst, kCurrency}, io_key},
};

// ---- POSITION -------------------------------------------------------------------------------

constexpr ClauseRow<RecordIo> kPositionClauses[] = {
    {kKey, Given::once, {}, io_key},
    {verb("on"), Given::once, {}, io_on},
    {kNext, Given::once, {kPrev}, io_next},
    {kPrev, Given::once, {kNext}, io_prev},
    {verb("before"), Given::once, {verb("after")}, get_flag<access::before>},
    {verb("after"), Given::once, {verb("before")}, get_flag<access::after>},
    {verb("no_warning"), Given::repeatable, {}, io_no_warning},
};

// ---- INSERT, UPDATE, DELETE -----------------------------------------------------------------

struct Write {
  Parser& p;
  uint32_t op;
  uint32_t object = 0;
  int line = 0;  // where the object was named
  bool no_warning = false;
  bool finished = false;
};

// UPDATE and DELETE of an indexed record that was read without LOCK: reported at the object's
// name, though NO-WARNING may follow it and the statement has been read on by then.
void finish_write(Write& w) {
  w.finished = true;
  if (w.p.ops.opcode(w.op) == Op::insert || w.no_warning) return;
  if (w.p.locks.not_locked(w.p.ops, w.object)) {
    const std::string name = object_name(w.p, w.object);
    w.p.diag.info_text(txt::record_may_not_be_locked, Context::at_line(name, w.line));
  }
}

ClauseStep write_no_warning(Write& w) {
  w.no_warning = true;
  return ClauseStep::next;
}

ClauseStep write_lock(Write& w) {
  if (w.p.ops.opcode(w.op) == Op::insert) {
    w.p.diag.error(msg::must_use_get_maintain_locks);
    return ClauseStep::next;
  }
  w.p.ops.put16(w.op + objop::ob_flags, objop::keep_lock);
  return ClauseStep::next;
}

ClauseStep write_on(Write& w) {
  if (!w.finished) finish_write(w);
  return on_error_clause(w.p, w.op + objop::ob_on_error);
}

ClauseStep write_other(Write& w) { return skip_invalid_clause(w.p); }

constexpr ClauseRow<Write> kInsertClauses[] = {
    {kLock, Given::once, {}, write_lock},
    {verb("on"), Given::once, {}, write_on},
};
constexpr ClauseRow<Write> kUpdateClauses[] = {
    {verb("no_warning"), Given::once, {}, write_no_warning},
    {kLock, Given::once, {}, write_lock},
    {verb("on"), Given::once, {}, write_on},
};
constexpr ClauseRow<Write> kDeleteClauses[] = {
    {verb("no_warning"), Given::once, {}, write_no_warning},
    {verb("on"), Given::once, {}, write_on},
};

template <size_t N>
void write_clauses(Write& w, const ClauseRow<Write> (&rows)[N]) {
  w.line = w.p.tok.line();
  read_clauses(w.p, rows, w, write_other);
  if (!w.finished) finish_write(w);
}

// ---- OPEN -----------------------------------------------------------------------------------

struct Open {
  Parser& p;
  uint32_t op;
  uint32_t object;
  OpenClauses clauses;
  bool finished = false;
};

void finish_open(Open& o) {
  o.finished = true;
  finish_open_clauses(o.p, o.object, o.clauses);
  o.p.ops.put16(o.op + openop::opn_flags, o.clauses.flags);
}

// FILE [IS] name: the file-name expression, alphanumeric.
ClauseStep open_file(Open& o) {
  Parser& p = o.p;
  o.clauses.file = true;
  p.take(verb("is"));
  const ExprType t = compile_expression_list(p, o.op + openop::opn_file);
  if (!t.failed && !t.alphanumeric()) p.diag.error(msg::alpha_literal_expected);
  return ClauseStep::next;
}

ClauseStep open_on(Open& o) {
  finish_open(o);
  return on_error_clause(o.p, o.op + openop::opn_on_error);
}

// The OPEN clauses every object definition shares (LOCK, LOCAL, TEMPORARY...), or an invalid one.
ClauseStep open_other(Open& o) {
  return open_clause(o.p, o.object, o.clauses) ? ClauseStep::next : skip_invalid_clause(o.p);
}

constexpr ClauseRow<Open> kOpenClauses[] = {
    {verb("file"), Given::once, {}, open_file},
    {verb("on"), Given::once, {}, open_on},
};

// ---- CLOSE and UNLOCK -----------------------------------------------------------------------

// object | ALL [LOCAL]: the object, or 0 for ALL (every lock state reset); false after an error.
bool object_or_all(Parser& p, uint32_t op, uint32_t& object) {
  if (p.next() == verb("all")) {
    object = 0;
    if (p.take(verb("local"))) p.ops.put16(op + objop::ob_flags, objop::local);
    p.locks.reset_all();
    return true;
  }
  p.push_back();
  object = read_object(p);
  if (object == 0) return false;
  p.ops.put24(op + objop::ob_object, object);
  p.locks.record(p.ops, object, false);
  return true;
}

// What may follow the object of CLOSE: [AND] REMOVE, ON ERROR; after ALL only ON ERROR.
struct Close {
  Parser& p;
  uint32_t op;
  bool all;
};

bool names_object(const Close& c) { return !c.all; }

ClauseStep close_remove(Close& c) {
  c.p.ops.put16(c.op + objop::ob_flags, c.p.ops.get16(c.op + objop::ob_flags) | objop::remove);
  return ClauseStep::next;
}

ClauseStep close_and(Close& c) {
  if (c.p.next() == verb("remove")) return close_remove(c);
  return skip_invalid_clause(c.p);
}

ClauseStep close_on(Close& c) { return on_error_clause(c.p, c.op + objop::ob_on_error); }
ClauseStep close_other(Close& c) { return skip_invalid_clause(c.p); }

constexpr ClauseRow<Close> kCloseClauses[] = {
    {verb("and"), Given::once, {verb("remove")}, close_and, names_object},
    {verb("remove"), Given::once, {verb("and")}, close_remove, names_object},
    {verb("on"), Given::once, {}, close_on},
};

// Nothing may follow: anything before the next statement is an invalid clause.
void no_more_clauses(Parser& p) {
  while (p.next(), !p.at_statement_start())
    if (skip_invalid_clause(p) == ClauseStep::done) return;
}

}  // namespace

// GET object | * FROM object | field, ... FROM object, then its clauses.
void compile_get(Parser& p) {
  p.accept();
  const uint32_t op = emit_record_op(p, verb("get"), Op::get);
  RecordIo r{p, RecordIo::get};
  r.block = new_record_io(p);
  r.on_error = op + recio::rio_on_error;
  r.finish = finish_get;
  p.ops.put24(op + recio::rio_block, r.block);
  ObjectHead head;
  if (!read_object_head(p, verb("from"), head)) return;
  r.object = head.object;
  r.field_list = head.listed;
  r.named_at = p.syms.xref().last_place(r.object);
  p.ops.put24(r.block + accesskey::a_object, r.object);
  p.ops.put24(r.block + accesskey::a_list, head.fields);
  p.locks.record(p.ops, r.object, false);
  read_clauses(p, kGetClauses, r, io_other);
  if (!r.finished) finish_get(r);
}

void compile_position(Parser& p) {
  p.accept();
  const uint32_t op = emit_record_op(p, verb("position"), Op::position);
  RecordIo r{p, RecordIo::position};
  r.block = new_record_io(p);
  p.ops.put24(op + recio::rio_block, r.block);
  r.object = read_object(p);
  if (r.object == 0) return;
  p.ops.put24(r.block + accesskey::a_object, r.object);
  require_file_type(p, r.object, "IM");
  read_clauses(p, kPositionClauses, r, io_other);
  finish_record_io(r);
}

// INSERT [INTO] object [LOCK] [ON ERROR ...]
void compile_insert(Parser& p) {
  p.accept();
  Write w{p, emit_record_op(p, verb("insert"), Op::insert)};
  p.take(verb("into"));
  w.object = read_object(p);
  if (w.object == 0) return;
  p.ops.put24(w.op + objop::ob_object, w.object);
  if (file_type(p, w.object) == osym::type_index_data_only) p.diag.error(msg::i_o_operation_invalid_object);
  add_object_attr(p, w.object, osym::attr_open_write);
  p.locks.record(p.ops, w.object, false);
  write_clauses(w, kInsertClauses);
}

// UPDATE object | * IN object | field, ... IN object [NO-WARNING] [LOCK] [ON ERROR ...]
void compile_update(Parser& p) {
  p.accept();
  Write w{p, emit_record_op(p, verb("update"), Op::update)};
  ObjectHead head;
  if (!read_object_head(p, verb("in"), head)) return;
  w.object = head.object;
  p.ops.put24(w.op + objop::ob_object, w.object);
  p.ops.put24(w.op + objop::ob_fields, head.fields);
  require_file_type(p, w.object, "IMSD");
  add_object_attr(p, w.object, osym::attr_update);
  write_clauses(w, kUpdateClauses);
}

// DELETE [FROM] object [NO-WARNING] [ON ERROR ...]
void compile_delete(Parser& p) {
  p.accept();
  Write w{p, emit_record_op(p, verb("delete"), Op::delete_)};
  p.take(verb("from"));
  w.object = read_object(p);
  if (w.object == 0) return;
  p.ops.put24(w.op + objop::ob_object, w.object);
  require_file_type(p, w.object, "IMSD");
  add_object_attr(p, w.object, osym::attr_access);
  write_clauses(w, kDeleteClauses);
}

// UNLOCK object | UNLOCK ALL [LOCAL]
void compile_unlock(Parser& p) {
  p.accept();
  const uint32_t op = emit_record_op(p, verb("unlock"), Op::unlock);
  uint32_t object = 0;
  if (object_or_all(p, op, object)) no_more_clauses(p);
}

// CLOSE object [[AND] REMOVE] | CLOSE ALL [LOCAL], then [ON ERROR ...]
void compile_close(Parser& p) {
  p.accept();
  const uint32_t op = emit_record_op(p, verb("close"), Op::close);
  uint32_t object = 0;
  if (!object_or_all(p, op, object)) return;
  if (object == 0 && (p.ops.get16(op + objop::ob_flags) & objop::local)) p.max_opt_ver(5);
  Close c{p, op, object == 0};
  read_clauses(p, kCloseClauses, c, close_other);
}

// OPEN object [clauses] [FILE [IS] name] [ON ERROR ...]
void compile_open(Parser& p) {
  p.accept();
  const uint32_t op = emit_record_op(p, verb("open"), Op::open);
  const uint32_t object = read_object(p);
  if (object == 0) return;
  p.ops.put24(op + openop::opn_object, object);
  Open o{p, op, object, {}};
  o.clauses.line = p.tok.line();
  read_clauses(p, kOpenClauses, o, open_other);
  if (!o.finished) finish_open(o);
}

}  // namespace tav
