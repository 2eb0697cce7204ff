// REPORT: the definition of a report's page (filling the report record that an earlier PRINT ...
// ON may already have made), REPORT FINISH, and REPORT SECTION with its section record.

#include "statements/reports.h"

#include <algorithm>
#include <cstring>

#include "expr/expr.h"
#include "runtime/ascii.h"
#include "statements/handlers.h"
#include "statements/parser.h"
#include "statements/record_io.h"
#include "statements/records.h"
#include "statements/screen_clauses.h"
#include "symbols/suggest.h"
#include "symbols/clauses.h"
#include "symbols/records.h"
#include "symbols/reports.h"

namespace tav {

bool read_report_name(Parser& p, uint32_t dest) {
  if (p.next() != kClassName) {
    p.diag.error(msg::report_name_not_defined);
    p.push_back();
    return false;
  }
  const uint32_t report = find_or_create_report(p.ops, p.text());
  p.syms.note_used(report);
  p.syms.note_name(XrefKind::report, report, p.text());
  p.ops.put24(dest, report);
  return true;
}

void expect_statement_end(Parser& p) {
  p.next();
  if (p.at_statement_start()) {
    p.push_back();
    return;
  }
  p.fail(msg::syntax_error);
}

void check_reports(Parser& p) {
  OpSpace& ops = p.ops;
  for (uint32_t r = ops.get24(hdr::h_report_list); r != 0; r = ops.get24(r + report::r_next)) {
    if (!(ops.get16(r + report::r_flags) & report::flag_referenced)) continue;
    const std::string name(ops.text_at(ops.get24(r + report::r_name)));
    p.diag.error_text(txt::report_referenced_not_defined, Context::at(name, p.syms.first_used_at(r)));
    suggest_name(p, name, defined_report_names(p));
  }
}

namespace {

constexpr int32_t kMaxLines = 999, kMaxColumns = 300, kMaxFont = 15, kDecimalsAllowed = -2;

bool immediate(uint32_t operand) { return (operand & kOperandList) == 0; }

// A limit given as an immediate that the extent used goes past.
bool exceeds(uint32_t limit, uint32_t used) { return limit != 0 && immediate(limit) && used > limit; }

// --- REPORT ---------------------------------------------------------------------------------

struct Report {
  Parser& p;
  uint32_t op;
  uint32_t r;              // the record the clauses fill
  uint32_t named = 0;      // NAME: the report's own record, filled from `r` at the end
  bool title = false;
  bool length = false, width = false;
  bool font = false, pitch = false, point = false;
};

uint16_t flags(const Report& rp) { return static_cast<uint16_t>(rp.p.ops.get16(rp.r + report::r_flags)); }
void set_flags(Report& rp, uint16_t bits) { rp.p.ops.put16(rp.r + report::r_flags, flags(rp) | bits); }

// A text of the report (its title, its form type): a number is no text.
void report_text(Report& rp, uint32_t slot, bool& given) {
  Parser& p = rp.p;
  p.take(verb("is"));
  if (given) p.diag.error(msg::duplicate_incompatible_clause);
  given = true;
  ExprType t = compile_expression_list(p, rp.r + slot);
  if (!t.failed && !t.alphanumeric()) p.diag.error(msg::alpha_literal_expected);
}

ClauseStep report_title(Report& rp) {
  report_text(rp, report::r_title, rp.title);
  return ClauseStep::next;
}

ClauseStep form_type(Report& rp) {
  Parser& p = rp.p;
  if (p.next() != verb("type")) {
    p.diag.error(msg::syntax_error);
    p.push_back();
    p.tok.skip_to_clause();
    return ClauseStep::next;
  }
  bool given = false;
  report_text(rp, report::r_form_type, given);
  return ClauseStep::next;
}

// NAME [IS] name: the named record, found or made by an earlier reference.
ClauseStep report_name(Report& rp) {
  Parser& p = rp.p;
  p.take(verb("is"));
  if (p.next() != kClassName) {
    p.diag.error(msg::name_invalid_reserved_word);
    if (p.at_statement_start()) p.push_back();
    return ClauseStep::next;
  }
  const uint32_t named = find_or_create_report(p.ops, p.text());
  if (!(p.ops.get16(named + report::r_flags) & report::flag_referenced)) p.diag.error(msg::report_name_already_defined);
  p.syms.note_name(XrefKind::report, named, p.text(), true);
  rp.named = named;
  return ClauseStep::next;
}

// HEADER [IS] section, FOOTER [IS] section.
template <uint32_t Slot>
ClauseStep report_section_name(Report& rp) {
  Parser& p = rp.p;
  p.take(verb("is"));
  if (p.next() != kClassName) {
    p.diag.error(msg::syntax_error);
    p.push_back();
    p.tok.skip_to_clause();
    return ClauseStep::next;
  }
  p.ops.put24(rp.r + Slot, p.syms.find_or_declare_section(p.text(), false));
  return ClauseStep::next;
}

// Two lengths of the page given as literals with a limit: the page cannot be shorter than the
// depth printed on it.
void check_depth(Report& rp) {
  OpSpace& ops = rp.p.ops;
  const uint32_t length = ops.get24(rp.r + report::r_length), depth = ops.get24(rp.r + report::r_depth);
  auto limited = [](uint32_t v) { return v != 0 && v != report::no_limit && immediate(v); };
  if (limited(length) && limited(depth) && length < depth) rp.p.diag.error(msg::depth_cannot_greater_than_report);
}

// LENGTH n [LINES], DEPTH n [LINES]: a literal 0 is no limit.
template <uint32_t Slot>
ClauseStep page_lines(Report& rp) {
  Parser& p = rp.p;
  Operand n = compile_operand(p, rp.r + Slot, kMaxLines);
  if (n.literal && n.value == 0) p.ops.put24(rp.r + Slot, report::no_limit);
  p.take(verb("lines"));
  if (Slot == report::r_length) rp.length = true;
  check_depth(rp);
  return ClauseStep::next;
}

// COLUMNS after a width, a plain word.
void take_columns(Parser& p) {
  if (p.next() == kClassName) {
    std::string word(p.text());
    std::transform(word.begin(), word.end(), word.begin(), ascii_lower);
    if (word == "columns") return;
  }
  p.push_back();
}

// WIDTH n [COLUMNS], MARGIN n [COLUMNS].
template <uint32_t Slot>
ClauseStep page_columns(Report& rp) {
  compile_operand(rp.p, rp.r + Slot, kMaxColumns);
  take_columns(rp.p);
  if (Slot == report::r_width) rp.width = true;
  return ClauseStep::next;
}

// DEFAULT FONT n, DEFAULT PITCH e, DEFAULT POINT e.
ClauseStep report_default(Report& rp) {
  Parser& p = rp.p;
  const uint32_t c = p.next();
  bool* given = c == verb("font") ? &rp.font : c == verb("pitch") ? &rp.pitch : c == verb("point") ? &rp.point : nullptr;
  if (given == nullptr) {
    p.diag.error(msg::syntax_error);
    p.push_back();
    p.tok.skip_to_clause();
    return ClauseStep::next;
  }
  if (*given) p.diag.error(msg::duplicate_incompatible_clause);
  *given = true;
  if (c == verb("font")) compile_operand(p, rp.r + report::r_font, kMaxFont);
  else compile_operand(p, rp.r + (c == verb("pitch") ? report::r_pitch : report::r_point), kDecimalsAllowed);
  return ClauseStep::next;
}

// FILE [IS] text, DIRECT [TO] text: where the report goes.
template <uint16_t Flag>
ClauseStep destination(Report& rp) {
  rp.p.take(Flag == report::flag_file ? verb("is") : verb("to"));
  compile_expression_list(rp.p, rp.r + report::r_destination);
  set_flags(rp, Flag);
  return ClauseStep::next;
}

template <uint16_t Flag>
ClauseStep report_flag(Report& rp) {
  set_flags(rp, Flag);
  return ClauseStep::next;
}

ClauseStep no_message(Report& rp) {
  rp.p.ops.put16(rp.op + reportop::ro_no_message, 1);
  return ClauseStep::next;
}

ClauseStep report_colour(Report& rp) {
  read_colours(rp.p, rp.r + report::r_foreground, rp.r + report::r_background, false, false);
  return ClauseStep::next;
}

// ON ERROR ... END-ON: the handler of a report that cannot be opened.
ClauseStep report_on(Report& rp) {
  Parser& p = rp.p;
  if (p.next() != verb("error")) {
    p.fail(msg::syntax_error);
    return ClauseStep::done;
  }
  compile_on_error(p, rp.op + reportop::ro_on_error, false);
  return ClauseStep::next;
}

ClauseStep report_other(Report& rp) { return resume_at_next_clause(rp.p); }

constexpr uint32_t kFile = verb("file"), kDirect = verb("direct"), kToScreen = verb("to_screen");
constexpr uint32_t kSpoolOnly = verb("spool_only"), kFullXml = verb("full_xml"), kFullPage = verb("full_page");
constexpr uint32_t kNoXml = verb("no_xml");

constexpr ClauseRow<Report> kReportClauses[] = {
    {verb("name"), Given::once, {}, report_name},
    {verb("title"), Given::repeatable, {}, report_title},
    {verb("form"), Given::once, {}, form_type},
    {verb("header"), Given::once, {}, report_section_name<report::r_header>},
    {verb("footer"), Given::once, {}, report_section_name<report::r_footer>},
    {verb("length"), Given::once, {}, page_lines<report::r_length>},
    {verb("depth"), Given::once, {}, page_lines<report::r_depth>},
    {verb("width"), Given::once, {}, page_columns<report::r_width>},
    {verb("margin"), Given::once, {}, page_columns<report::r_margin>},
    {verb("default"), Given::repeatable, {}, report_default},
    {verb("file"), Given::once, {kDirect, kToScreen}, destination<report::flag_file>},
    {verb("direct"), Given::once, {kFile, kToScreen}, destination<report::flag_direct>},
    {verb("to_screen"), Given::repeatable, {kFile, kDirect, kSpoolOnly}, report_flag<report::flag_to_screen>},
    {verb("spool_only"), Given::repeatable, {kToScreen}, report_flag<report::flag_spool_only>},
    {verb("full_xml"), Given::once, {kFullPage, kNoXml}, report_flag<report::flag_full_xml>},
    {verb("full_page"), Given::once, {kFullXml}, report_flag<report::flag_full_page>},
    {verb("no_xml"), Given::once, {kFullXml}, report_flag<report::flag_no_xml>},
    {verb("no_message"), Given::repeatable, {}, no_message},
    {verb("colour"), Given::once, {}, report_colour},
    {verb("on"), Given::once, {}, report_on},
};

// A FULL-PAGE report places its PRINTs with @: it needs the whole page and a name to print on.
void check_full_page(Report& rp) {
  if (!(flags(rp) & report::flag_full_page)) return;
  if (!rp.width || !rp.length) rp.p.diag.error_text(txt::full_page_needs_width_length, Context::current_token());
  if (rp.named == 0) rp.p.diag.error_text(txt::full_page_named_only, Context::current_token());
}

// The PRINTs that named the report before its definition recorded the part of the page they
// used in its LENGTH and WIDTH.
void check_earlier_prints(Report& rp) {
  OpSpace& ops = rp.p.ops;
  if (!(ops.get16(rp.named + report::r_flags) & report::flag_referenced)) return;
  const uint32_t rows = ops.get24(rp.named + report::r_length), columns = ops.get24(rp.named + report::r_width);
  if (exceeds(ops.get24(rp.r + report::r_width), columns) || exceeds(ops.get24(rp.r + report::r_length), rows))
    rp.p.diag.warning(msg::previous_print_statement_exceeded_report);
  if (rows != 0 && !(flags(rp) & report::flag_full_page)) rp.p.diag.error(msg::previous_print_statements_used_coordinates);
}

// The record takes the next number; a named one takes the values read, keeping its name and
// its place in the list, which ends its being only referenced.
void finish_report(Report& rp) {
  OpSpace& ops = rp.p.ops;
  check_full_page(rp);
  uint32_t record = rp.r;
  if (rp.named == 0) {
    link_report(ops, record);
  } else {
    check_earlier_prints(rp);
    record = rp.named;
    std::memcpy(ops.at(record + report::r_title), ops.at(rp.r + report::r_title), report::size - report::r_title);
  }
  ops.put16(record + report::r_number, ops.next_count(hdr::h_report_count, "reports"));
  ops.put24(rp.op + reportop::ro_report, record);
}

void report_definition(Parser& p) {
  p.report_defined = true;
  p.ob.emit_statement_marker(verb("report"));
  Report rp{p, p.ob.emit(Op::report), p.ops.alloc(report::size)};
  const uint32_t c = p.next();
  const bool title_first = !(c & kClauseWord) && !p.at_statement_start();
  p.push_back();
  if (title_first) report_title(rp);
  read_clauses(p, kReportClauses, rp, report_other);
  finish_report(rp);
}

// REPORT FINISH [ON name], the FINISH taken.
void report_finish(Parser& p) {
  p.ob.emit_statement_marker(verb("report"));
  const uint32_t op = p.ob.emit(Op::report_finish);
  if (p.take(verb("on")) && !read_report_name(p, op + finishop::fin_report)) {
    p.tok.skip_to_statement();
    return;
  }
  expect_statement_end(p);
}

// --- REPORT SECTION -------------------------------------------------------------------------

namespace rsflag {
inline constexpr uint16_t hidden = 0x0001, can_hide = 0x0002, style_class = 0x0004;
}  // namespace rsflag

struct Section {
  Parser& p;
  uint32_t op;
  uint32_t s;  // the section record
};

void set_section_flags(Section& sc, uint16_t bits) {
  sc.p.ops.put16(sc.s + rsection::rs_flags, sc.p.ops.get16(sc.s + rsection::rs_flags) | bits);
}

template <uint16_t Flag>
ClauseStep section_flag(Section& sc) {
  set_section_flags(sc, Flag);
  return ClauseStep::next;
}

ClauseStep section_colour(Section& sc) {
  read_colours(sc.p, sc.s + rsection::rs_foreground, sc.s + rsection::rs_background, false, false);
  return ClauseStep::next;
}

ClauseStep section_scale(Section& sc) {
  sc.p.take(verb("is"));
  compile_operand(sc.p, sc.s + rsection::rs_scale, kDecimalsAllowed);
  return ClauseStep::next;
}

ClauseStep style_class(Section& sc) {
  sc.p.take(verb("is"));
  alpha_list(sc.p, sc.s + rsection::rs_style_class, 0);
  set_section_flags(sc, rsflag::style_class);
  return ClauseStep::next;
}

// ON name: sections belong to reports written as XML.
ClauseStep section_on(Section& sc) {
  Parser& p = sc.p;
  if (!read_report_name(p, sc.op + rsectop::rso_report)) {
    p.tok.skip_to_clause();
    return ClauseStep::next;
  }
  const uint32_t r = p.ops.get24(sc.op + rsectop::rso_report);
  if (!(p.ops.get16(r + report::r_flags) & report::flag_full_xml))
    p.diag.error_text(txt::report_must_be_full_xml, Context::current_token());
  return ClauseStep::next;
}

// A clause word of no row is a syntax error; any other word ends the clauses.
ClauseStep section_other(Section& sc) {
  Parser& p = sc.p;
  if (!(p.cls() & kClauseWord)) {
    p.push_back();
    return ClauseStep::done;
  }
  p.diag.error(msg::syntax_error);
  p.tok.skip_to_clause();
  return ClauseStep::next;
}

constexpr ClauseRow<Section> kSectionClauses[] = {
    {verb("hidden"), Given::repeatable, {verb("can_hide")}, section_flag<rsflag::hidden>},
    {verb("can_hide"), Given::repeatable, {verb("hidden")}, section_flag<rsflag::can_hide>},
    {verb("colour"), Given::once, {}, section_colour},
    {verb("scale"), Given::once, {}, section_scale},
    {verb("style_class"), Given::once, {}, style_class},
    {verb("on"), Given::once, {}, section_on},
};

// REPORT SECTION [IS] title clauses, or REPORT SECTION FINISH [ON name]; the SECTION taken.
void report_section(Parser& p) {
  ++p.print_statements;
  p.ob.emit_statement_marker(verb("report"));
  const uint32_t op = p.ob.emit(Op::report_section);
  if (p.take(verb("finish"))) {
    if (p.take(verb("on")) && !read_report_name(p, op + rsectop::rso_section)) {
      p.tok.skip_to_statement();
      return;
    }
    expect_statement_end(p);
    return;
  }
  Section sc{p, op, p.ops.alloc(rsection::size)};
  p.ops.put24(op + rsectop::rso_section, sc.s);
  p.take(verb("is"));
  alpha_list(p, sc.s + rsection::rs_title, 0);
  read_clauses(p, kSectionClauses, sc, section_other);
}

}  // namespace

void compile_report(Parser& p) {
  p.accept();
  if (p.take(verb("finish"))) return report_finish(p);
  if (p.take(verb("section"))) return report_section(p);
  report_definition(p);
}

}  // namespace tav
