// EXTRACT: a loop over the records of an object, from a key position, with a WHEN condition that
// picks records and a FINISH condition that ends the loop, and control breaks: BEFORE groups run
// before the first record of each run of records with equal values in their fields, AFTER groups
// after the last, the DETAIL part for every record.
//
// The header fills a record I/O block like GET; the parts are op lists of their own in the
// EXTRACT block. The whole construct counts as conditional code, a loop and an extract; each
// part holds a lock-state frame and puts the ACCEPT chain back when it ends.

#include <string>
#include <vector>

#include "expr/expr.h"
#include "statements/block.h"
#include "statements/handlers.h"
#include "statements/parser.h"
#include "statements/record_io.h"
#include "statements/records.h"
#include "symbols/fields.h"
#include "symbols/objects.h"
#include "symbols/records.h"

namespace tav {

namespace {

constexpr size_t kMaxCheckedBreakFields = 16;

struct Extract {
  RecordIo io;
  uint32_t block;  // the EXTRACT block
};

ClauseStep extract_all(RecordIo& r) {
  r.no_warning = false;
  return ClauseStep::next;
}

ClauseStep extract_when(RecordIo& r) {
  r.no_warning = false;
  compile_condition_list(r.p, r.owner + extract::x_when);
  return ClauseStep::next;
}

ClauseStep extract_finish(RecordIo& r) {
  r.no_warning = false;
  r.p.take(verb("when"));
  compile_condition_list(r.p, r.owner + extract::x_finish);
  return ClauseStep::next;
}

constexpr uint32_t kNext = verb("next"), kPrev = verb("prev"), kAll = verb("all"), kKey = verb("key");

constexpr ClauseRow<RecordIo> kExtractClauses[] = {
    {kNext, Given::once, {kPrev}, io_next},
    {kPrev, Given::once, {kNext}, io_prev},
    {kAll, Given::once, {kKey}, extract_all},
    {kKey, Given::once, {kAll}, io_key},
    {verb("on"), Given::once, {verb("index")}, io_on},
    {verb("index"), Given::once, {verb("on")}, io_index},
    {verb("finish"), Given::once, {}, extract_finish},
    {verb("lock"), Given::once, {}, io_lock},
    {verb("when"), Given::once, {}, extract_when},
    {verb("no_warning"), Given::repeatable, {}, io_no_warning},
};

// The header up to the end of the statement.
void extract_header(Parser& p, Extract& x) {
  RecordIo& r = x.io;
  r.object = read_object(p);
  if (r.object == 0) return;
  p.ops.put24(r.block + accesskey::a_object, r.object);
  p.locks.record(p.ops, r.object, false);
  read_clauses(p, kExtractClauses, r, io_other);
  if ((r.flags() & (access::same | access::different)) && !r.keys)
    p.diag.warning_text(txt::no_starting_key, Context::current_token());
  if (!(r.flags() & (access::next | access::prev))) r.set(access::next);
  finish_record_io(r);
  r.set(access::look_up);
}

// A part's statements, up to the next part or the end, on a level of their own.
uint32_t compile_part(Parser& p) {
  BlockScope part(p, BlockScope::branch);
  p.ob.open_level();
  compile_statements_until(p, {verb("before"), verb("after"), verb("detail"), verb("end"), verb("end_extract")});
  const uint32_t head = p.ob.top().head;
  p.ob.close_level();
  return head;
}

// The names of a BEFORE or AFTER group, each found in the extracted object.
std::vector<RecordIo::Named> read_break_fields(Parser& p, uint32_t object) {
  std::vector<RecordIo::Named> fields;
  while (p.next() == kClassName) {
    const std::string name(p.text());
    uint32_t prefix = 0;
    const uint32_t f = reference_field(p, name, &prefix);
    if (f == 0) continue;
    if (object != 0 && !field_in_object(p, object, f))
      p.diag.error_text(txt::field_not_in_extracted_object, name);
    fields.push_back({f, name, p.tok.line()});
  }
  p.push_back();
  return fields;
}

// A break field should lead the key the records are read in; each one that does not is reported
// with the line it was written on.
void check_break_fields(Parser& p, const Extract& x, const std::vector<RecordIo::Named>& fields) {
  const uint32_t key = key_record(p, x.io.object, p.ops.at(x.io.block + accesskey::a_index)[0]);
  for (size_t i = 0; i < fields.size() && i < kMaxCheckedBreakFields; ++i)
    if (!leads_key(p, key, fields[i].field, fields.size()))
      p.diag.warning_text(txt::not_leading_key_field, Context::at_line(fields[i].name, fields[i].line));
}

// The break fields of a BEFORE or AFTER group [NO-WARNING], as field_list entries.
uint32_t break_fields(Parser& p, const Extract& x) {
  OpSpace& ops = p.ops;
  const std::vector<RecordIo::Named> fields = read_break_fields(p, x.io.object);
  const bool no_warning = p.take(verb("no_warning"));
  if (x.io.object != 0 && !no_warning) check_break_fields(p, x, fields);
  if (p.next(), !p.at_statement_start()) p.fail(msg::field_name_expected);
  uint32_t head = 0, tail = 0;
  for (const RecordIo::Named& f : fields) {
    const uint32_t e = ops.alloc(flist::size);
    ops.put24(e + flist::fl_field, f.field);
    append_to_list(ops, head, tail, e, flist::fl_next);
  }
  return head;
}

// BEFORE or AFTER: a group appended to its list.
void compile_group(Parser& p, const Extract& x, uint32_t list) {
  OpSpace& ops = p.ops;
  const uint32_t group = ops.alloc(xgroup::size);
  ops.put24(group + xgroup::xg_fields, break_fields(p, x));
  uint32_t link = list;
  while (ops.get24(link) != 0) link = ops.get24(link) + xgroup::xg_next;
  ops.put24(link, group);
  ops.put24(group + xgroup::xg_block, compile_part(p));
}

// The parts up to END or END-EXTRACT (or a section start); returns the word that ended them.
uint32_t compile_parts(Parser& p, const Extract& x) {
  bool detail = false;
  for (;;) {
    const uint32_t c = p.next();
    if (c == verb("end") || c == verb("end_extract") || p.at_section_start()) return c;
    if (c == verb("before") || c == verb("after")) {
      p.accept();
      compile_group(p, x, x.block + (c == verb("before") ? extract::x_before : extract::x_after));
      continue;
    }
    if (c == verb("detail"))
      p.accept();
    else
      p.push_back();
    if (detail) p.diag.error(msg::duplicate_incompatible_clause);
    const uint32_t part = compile_part(p);
    if (!detail) p.ops.put24(x.block + extract::x_detail, part);
    detail = true;
  }
}

}  // namespace

// EXTRACT object [clauses] parts END-EXTRACT
void compile_extract(Parser& p) {
  p.accept();
  BlockScope extent(p, BlockScope::conditional | BlockScope::loop | BlockScope::extract | BlockScope::accepts);
  Extract x{RecordIo{p, RecordIo::extract}, 0};
  x.block = p.ops.alloc(extract::size);
  x.io.block = new_record_io(p);
  x.io.owner = x.block;
  p.ops.put24(x.block + extract::x_access, x.io.block);
  const uint32_t op = emit_record_op(p, verb("extract"), Op::extract);
  p.ops.put24(op + extractop::xo_block, x.block);
  extract_header(p, x);
  const uint32_t stop = compile_parts(p, x);
  if (stop == verb("end") || stop == verb("end_extract")) {
    p.accept();
  } else {
    p.push_back();
    p.diag.error_text(txt::end_extract_missing, Context::current_token());
  }
  p.ob.emit_statement_marker(verb("end_extract"));
  p.locks.settle_branches();
}

}  // namespace tav
