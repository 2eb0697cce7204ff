// PRINT, and the statements that move on the page: SKIP, NEED and PAGE. A PRINT is read item by
// item through the item layer DISPLAY uses (statements/display_items.h); its ON and SECTION
// clauses hold for the whole statement and are set on every item when it ends, and the part of
// the page it covers is checked against the report's bounds, or recorded on a report that is
// not defined yet for its definition to check.

#include <algorithm>

#include "expr/expr.h"
#include "statements/display_items.h"
#include "statements/handlers.h"
#include "statements/parser.h"
#include "statements/records.h"
#include "statements/reports.h"
#include "statements/screen_clauses.h"
#include "symbols/clauses.h"
#include "symbols/records.h"

namespace tav {

namespace {

constexpr int32_t kMaxLines = 999;

bool immediate(uint32_t operand) { return (operand & kOperandList) == 0; }

bool exceeds(uint32_t limit, uint32_t used) { return limit != 0 && immediate(limit) && used > limit; }

// --- PRINT ----------------------------------------------------------------------------------

// The report of ON on every print op of the statement, and the section of SECTION on each
// item. Only print ops (and line markers) belong to a PRINT.
void share_statement_clauses(Parser& p, const PrintRun& run, uint32_t first) {
  OpSpace& ops = p.ops;
  for (uint32_t op = first; op != 0; op = ops.get24(op)) {
    const Op code = ops.opcode(op);
    if (code == Op::statement_marker) continue;
    if (code != Op::print_item) {
      if (run.section_given) p.diag.fatal_text(txt::print_section_internal_2);
      continue;
    }
    ops.put24(op + printop::po_report, run.report);
    if (!run.section_given) continue;
    const uint32_t d = ops.get24(op + printop::po_item);
    if (!(ops.get16(d + ditem::di_flags) & item::long_form)) p.diag.fatal_text(txt::print_section_internal_1);
    ops.put24(d + ditem::di_section, run.section);
  }
}

// @ places items only on named FULL-PAGE reports; a defined report's literal bounds are
// warned about, and a report not defined yet records how far its PRINTs went.
void check_bounds(Parser& p, const PrintRun& run) {
  OpSpace& ops = p.ops;
  const uint32_t r = run.report;
  if (r == 0) {
    if (run.row_given) p.diag.error(msg::coordinates_valid_named_full_page);
    return;
  }
  const uint16_t flags = static_cast<uint16_t>(ops.get16(r + report::r_flags));
  if (flags & report::flag_referenced) {
    ops.put24(r + report::r_length, std::max(ops.get24(r + report::r_length), run.lowest_row));
    ops.put24(r + report::r_width, std::max(ops.get24(r + report::r_width), run.widest_column));
    return;
  }
  if (run.row_given && !(flags & report::flag_full_page)) p.diag.error(msg::coordinates_valid_named_full_page);
  if (exceeds(ops.get24(r + report::r_length), run.lowest_row) || exceeds(ops.get24(r + report::r_width), run.widest_column))
    p.diag.warning(msg::printing_outside_report_bounds);
}

// Each item becomes one print op; nothing may be printed after ON or SECTION.
void print_items(Parser& p) {
  ItemRun run{ItemStatement::print};
  const uint32_t before = p.ob.top().tail;
  uint32_t last = 0;
  while (!(p.next() & kStatementVerb)) {
    if (run.print.on_given || run.print.section_given) {
      p.diag.error_text(txt::no_further_print_expressions, Context::current_token());
      p.tok.skip_to_statement();
      continue;
    }
    p.push_back();
    ReadItem read = read_item(p, run);
    if (read.item == 0) return;
    p.ob.emit_statement_marker(verb("print"));
    p.ops.put24(p.ob.emit(Op::print_item) + printop::po_item, read.item);
    last = read.item;
  }
  p.push_back();
  if (last == 0) {
    p.diag.error(msg::syntax_error);
    return;
  }
  if (!run.print.no_new_line) p.ops.put16(last + ditem::di_flags, p.ops.get16(last + ditem::di_flags) | item::new_line);
  share_statement_clauses(p, run.print, before != 0 ? p.ops.get24(before) : p.ob.top().head);
  if (run.print.row_given && run.print.lowest_row == 0) run.print.lowest_row = 1;
  check_bounds(p, run.print);
}

// --- SKIP, NEED, PAGE -----------------------------------------------------------------------

struct PageMove {
  Parser& p;
  uint32_t op;
  uint32_t report;  // where ON name goes
};

ClauseStep move_on(PageMove& m) {
  if (!read_report_name(m.p, m.op + m.report)) m.p.tok.skip_to_clause();
  return ClauseStep::next;
}

template <uint16_t Flag>
ClauseStep page_flag(PageMove& m) {
  m.p.ops.put16(m.op + pageop::pg_flags, m.p.ops.get16(m.op + pageop::pg_flags) | Flag);
  return ClauseStep::next;
}

ClauseStep move_other(PageMove& m) { return resume_at_next_clause(m.p); }

constexpr ClauseRow<PageMove> kOnClause[] = {
    {verb("on"), Given::once, {}, move_on},
};

constexpr ClauseRow<PageMove> kPageClauses[] = {
    {verb("no_header"), Given::repeatable, {}, page_flag<0x0002>},
    {verb("no_footer"), Given::repeatable, {}, page_flag<0x0001>},
    {verb("on"), Given::once, {}, move_on},
};

// A number of lines, up to 999 and not 0, then the optional LINES.
void line_count(Parser& p, uint32_t dest) {
  Operand n = compile_operand(p, dest, kMaxLines);
  if (n.literal && n.value == 0) p.diag.error(msg::numeric_value_invalid_out_range);
  p.take(verb("lines"));
}

// The first op of a report statement, which counts as printing.
uint32_t page_op(Parser& p, uint32_t verb_code, Op code) {
  p.accept();
  ++p.print_statements;
  p.ob.emit_statement_marker(verb_code);
  return p.ob.emit(code);
}

}  // namespace

void compile_print(Parser& p) {
  p.accept();
  ++p.print_statements;
  const uint32_t c = p.next();
  if (c == verb("box") || c == verb("bitmap")) {
    p.accept();
    p.diag.warning_text(txt::statement_not_implemented, Context::current_token());
    p.tok.skip_to_statement();
    return;
  }
  p.push_back();
  print_items(p);
}

// SKIP TO [LINE] n, or SKIP [n] [LINES] (one line without a number); then [ON name].
void compile_skip(Parser& p) {
  PageMove m{p, page_op(p, verb("skip"), Op::skip), skipop::sk_report};
  if (p.take(verb("to"))) {
    p.ops.put16(m.op + skipop::sk_to, 1);
    p.take(verb("line"));
    if (expression_follows(p)) compile_operand(p, m.op + skipop::sk_lines, kMaxLines);
    else p.diag.error(msg::numeric_literal_expected);
  } else if (expression_follows(p)) {
    line_count(p, m.op + skipop::sk_lines);
  } else {
    p.ops.put24(m.op + skipop::sk_lines, 1);
    p.take(verb("lines"));
  }
  read_clauses(p, kOnClause, m, move_other);
}

// NEED n [LINES] [ON name].
void compile_need(Parser& p) {
  PageMove m{p, page_op(p, verb("need"), Op::need), skipop::sk_report};
  if (expression_follows(p)) line_count(p, m.op + skipop::sk_lines);
  else p.diag.error(msg::numeric_literal_expected);
  read_clauses(p, kOnClause, m, move_other);
}

// PAGE [NO-HEADER] [NO-FOOTER] [ON name].
void compile_page(Parser& p) {
  PageMove m{p, page_op(p, verb("page"), Op::page), pageop::pg_report};
  read_clauses(p, kPageClauses, m, move_other);
}

}  // namespace tav
