// SELECT: the statement with its BEFORE, AFTER and DETAIL sections, RE-SELECT, the sub-query of
// an expression, and compile_select, which reads one select into its record: the field list,
// FROM, the clauses, FOR UPDATE, and then resolves the names, runs the key optimiser, builds
// the column lists and reads a UNION.

#include <string>

#include "codegen/header.h"
#include "statements/block.h"
#include "statements/handlers.h"
#include "statements/key_optimiser.h"
#include "statements/record_io.h"
#include "statements/select.h"
#include "symbols/records.h"

namespace tav {

namespace {

// WHERE (or WHEN), GROUP [BY], HAVING and ORDER [BY], in any order. False at a word that is none
// of them.
bool read_clause(Select& s, uint32_t c) {
  Parser& p = s.p;
  if (c == verb("where")) {
    p.accept();
    if (p.ops.get24(s.rec + selrec::sr_where) != 0) p.diag.error(msg::duplicate_incompatible_clause);
    read_select_condition(s, selrec::sr_where, SelectPlace::where);
    return true;
  }
  if (c == verb("having")) {
    p.accept();
    if (p.ops.get24(s.rec + selrec::sr_having) != 0) p.diag.error(msg::duplicate_incompatible_clause);
    read_select_condition(s, selrec::sr_having, SelectPlace::having);
    return true;
  }
  if (c == verb("group") || c == verb("order")) {
    p.accept();
    read_order_list(s, c == verb("order"));
    return true;
  }
  return false;
}

// FOR UPDATE or FOR-UPDATE; FOR followed by anything else is a syntax error.
void read_for_update(Select& s, uint32_t c) {
  Parser& p = s.p;
  p.accept();
  if (c == verb("for")) {
    if (p.next() != verb("update")) {
      p.push_back();
      p.diag.error(msg::syntax_error);
      return;
    }
    p.accept();
  }
  s.for_update = true;
  s.set_flags(selrec::for_update);
}

void read_clauses(Select& s) {
  Parser& p = s.p;
  for (;;) {
    const uint32_t c = p.next();
    if (read_clause(s, c)) continue;
    if (c == verb("for") || c == verb("for_update")) {
      read_for_update(s, c);
      continue;
    }
    p.push_back();
    return;
  }
}

bool union_follows(Parser& p) {
  const bool u = p.next() == verb("union");
  p.push_back();
  return u;
}

void trace_start(Parser& p) {
  if (p.settings.debug_level == 1)
    p.diag.trace(format_text(txt::trace_select_line, {std::to_string(p.tok.line())}));
}

// The steps after FROM and the clauses.
void finish_select(Select& s, const SelectCall& call) {
  Parser& p = s.p;
  const bool more = union_follows(p);
  apply_for_update(s, more);
  if (call.parenthesised) {
    if (p.next() != verb(")")) {
      p.push_back();
      p.diag.error(msg::syntax_error);
    }
  }
  resolve_references(s, more || call.union_head != 0);
  optimise_keys(s);
  build_column_lists(s);
  s.clear_flags(selrec::compiling);
  check_group_order(s, more);
  if (more && call.union_head == 0) compile_union(s);
}

}  // namespace

uint32_t compile_select(Parser& p, const SelectCall& call) {
  OpSpace& ops = p.ops;
  const uint32_t rec = ops.alloc(selrec::size);
  ops.put16(rec + selrec::sr_flags, selrec::compiling);
  if (call.screen_name != 0) {
    ops.put24(rec + selrec::sr_screen, call.screen_name);
    ops.put24(rec + selrec::sr_screen_next, ops.get24(hdr::h_select_list));
    ops.put24(hdr::h_select_list, rec);
  }
  Select s(p, rec);
  SelectFrame frame(p, s);
  if (s.enclosing) ops.put24(rec + selrec::sr_enclosing, s.enclosing->rec);
  s.screen = call.screen;
  s.sub = call.sub;
  s.partner = call.union_head;
  trace_start(p);
  read_field_list(s);
  if (p.next() != verb("from")) {
    p.push_back();
    p.diag.error_text(txt::from_expected, Context::current_token());
    p.tok.skip_to_statement();
    s.clear_flags(selrec::compiling);
    return rec;
  }
  p.accept();
  read_from(s);
  read_clauses(s);
  finish_select(s, call);
  return rec;
}

// ---- The sub-query ---------------------------------------------------------------------------

bool Select::sub_query(ParserCore&, ExprType& type) {
  OpSpace& ops = p.ops;
  const uint32_t op = p.ob.emit(Op::select);
  const uint16_t errors = p.diag.error_count();
  SelectCall call;
  call.sub = true;
  const uint32_t record = compile_select(p, call);
  ops.put24(op + selectop::so_record, record);
  if (p.diag.error_count() != errors) return true;
  if (selected_count(p, record) != 1) {
    p.diag.error_text(txt::sub_query_one_field, Context::current_token());
    return true;
  }
  const uint32_t field = ops.get24(nth_selected(p, record, 1) + selfield::sf_field);
  const uint16_t format = static_cast<uint16_t>(ops.get16(field + fsym::f_format));
  type = ExprType{};
  if (format & 0x7800) {
    type.digits = static_cast<uint16_t>((format >> 5) & 0x1f);
    type.decimals = static_cast<uint16_t>(format & 0x1f);
  } else {
    type.alpha_length = format;
  }
  return true;
}

// ---- The statement ---------------------------------------------------------------------------

namespace {

constexpr uint32_t kBefore = verb("before"), kAfter = verb("after"), kDetail = verb("detail");

// A section's statements, up to the next section word or the end, on a level of their own.
uint32_t compile_select_part(Parser& p) {
  BlockScope part(p, BlockScope::branch);
  p.ob.open_level();
  compile_statements_until(p, {kBefore, kAfter, kDetail, verb("end"), verb("end_select")});
  const uint32_t head = p.ob.top().head;
  p.ob.close_level();
  return head;
}

// The entry of a break field: the select's entry of that field, preferring a selected one.
uint32_t break_entry(Select& s, uint32_t field) {
  uint32_t found = 0;
  for (uint32_t e : chain(s.p, s.p.ops.get24(s.rec + selrec::sr_fields))) {
    if (s.p.ops.get24(e + selfield::sf_field) != field || (entry_flags(s.p, e) & selfield::host)) continue;
    if (entry_flags(s.p, e) & selfield::selected) return e;
    if (found == 0) found = e;
  }
  return found != 0 ? found : add_field(s, 0, field, false);
}

// The fields of a BEFORE or AFTER break, as order nodes.
uint32_t break_fields(Select& s) {
  Parser& p = s.p;
  OpSpace& ops = p.ops;
  uint32_t head = 0, tail = 0;
  for (;;) {
    const uint32_t c = p.next();
    if (c == verb("no_warning") || c == verb(",")) continue;
    if (c != kClassName) break;
    const uint32_t field = reference_field(p, std::string(p.text()), nullptr);
    if (field == 0) continue;
    const uint32_t node = ops.alloc(ordernode::size);
    ops.put24(node + ordernode::on_entry, break_entry(s, field));
    append_to_list(ops, head, tail, node, ordernode::on_next);
  }
  if (!p.at_statement_start()) {
    p.fail(msg::field_name_expected);
  } else {
    p.push_back();
  }
  return head;
}

// BEFORE or AFTER: a break record appended to its list of the op.
void compile_break(Select& s, uint32_t list, bool after) {
  OpSpace& ops = s.p.ops;
  const uint32_t brk = ops.alloc(breakrec::size);
  ops.put24(brk + breakrec::br_fields, break_fields(s));
  uint32_t link = list;
  while (ops.get24(link) != 0) link = ops.get24(link) + breakrec::br_next;
  ops.put24(link, brk);
  s.after_break = after ? brk : 0;
  AggregateSink* const outer = s.p.block_aggregates;
  s.p.block_aggregates = after ? &s : nullptr;
  ops.put24(brk + breakrec::br_block, compile_select_part(s.p));
  s.p.block_aggregates = outer;
  s.after_break = 0;
}

// The sections up to END-SELECT or END (or a section start); returns the word that ended them
// and whether any section was given.
uint32_t compile_sections(Select& s, uint32_t op, bool& any) {
  Parser& p = s.p;
  bool detail = false;
  for (;;) {
    const uint32_t c = p.next();
    if (c == verb("end") || c == verb("end_select") || p.at_section_start()) return c;
    if (c == kBefore || c == kAfter) {
      p.accept();
      any = true;
      compile_break(s, op + (c == kBefore ? selectop::so_before : selectop::so_after), c == kAfter);
      continue;
    }
    if (c != kDetail) {
      p.accept();
      p.fail(msg::statement_invalid_not_known);
      continue;
    }
    p.accept();
    if (detail) p.diag.error(msg::duplicate_incompatible_clause);
    const uint32_t part = compile_select_part(p);
    if (!detail) p.ops.put24(op + selectop::so_detail, part);
    detail = any = true;
  }
}

}  // namespace

// SELECT fields FROM objects [clauses] sections END-SELECT
void compile_select_statement(Parser& p) {
  p.accept();
  BlockScope extent(p, BlockScope::conditional | BlockScope::loop | BlockScope::extract | BlockScope::accepts);
  const uint32_t op = emit_record_op(p, verb("select"), Op::select);
  const uint32_t rec = compile_select(p, SelectCall{});
  p.ops.put24(op + selectop::so_record, rec);
  // The sections may name the select's fields and hold its aggregates.
  Select s(p, rec);
  bool any = false;
  const uint32_t stop = compile_sections(s, op, any);
  if (stop == verb("end") || stop == verb("end_select")) {
    p.accept();
  } else {
    p.push_back();
    p.diag.error_text(txt::end_select_missing, Context::current_token());
  }
  if (!any) p.diag.error_text(txt::select_sections_missing, Context::current_token());
  p.ob.emit_statement_marker(verb("end_select"));
  p.locks.settle_branches();
}

// RE-SELECT: reads the screen's select again.
void compile_re_select(Parser& p) {
  p.accept();
  const bool screen = p.in_section && (p.section_kind & ssym::kind_mask) == ssym::kind_screen;
  if (!screen)
    p.diag.error_text(txt::statement_only_in_screen, Context::current_token());
  else if (p.ops.get24(p.section + ssym::s_select) == 0)
    p.diag.error_text(txt::screen_without_select, Context::current_token());
  emit_record_op(p, verb("re_select"), Op::re_select);
}

}  // namespace tav
