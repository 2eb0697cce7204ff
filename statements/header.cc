// Section header clauses: the window, colours and title, the REVIEW and DATA-GRID layout, the
// PRIMARY object, WHEN, the entry style, EXPORT and the section's field lists, read into the
// section's screen_sym, and the checks made when the header ends.
#include "codegen/header.h"
#include "expr/expr.h"
#include "statements/header_clauses.h"
#include "statements/parser.h"
#include "statements/program.h"
#include "statements/records.h"
#include "statements/screen_clauses.h"
#include "symbols/clauses.h"
#include "symbols/fields.h"
#include "symbols/objects.h"
#include "symbols/records.h"

namespace tav {

namespace header {

ClauseStep wrong_section(Header& h) {
  h.p.diag.error(msg::invalid_clause);
  h.p.tok.skip_to_statement();
  return ClauseStep::done;
}

}  // namespace header

namespace {

using namespace header;

// A flag of the kind word, the review word or the form word, in the sections that allow it.
template <uint32_t Kinds, uint32_t Member, uint16_t Bits>
ClauseStep header_flag(Header& h) {
  if (!is_kind(h, Kinds)) return wrong_section(h);
  set_bits(h, Member, Bits);
  return ClauseStep::next;
}

// The same for a MENU clause that keeps its effect in other sections, after error 5.
ClauseStep header_tree_menu(Header& h) {
  if (!is_kind(h, kMenu)) h.p.diag.error(msg::invalid_clause);
  set_bits(h, ssym::s_kind, ssym::kind_tree_menu);
  return ClauseStep::next;
}

ClauseStep header_button_size(Header& h) {
  if (!is_kind(h, kMenu)) h.p.diag.error(msg::invalid_clause);
  h.p.take(verb("is"));
  compile_operand(h.p, h.s + ssym::s_button_size, 0);
  return ClauseStep::next;
}

// WINDOW [@ r,c [TO @ r,c [RELATIVE [TO] @ r,c]]]: without a position the whole screen.
ClauseStep header_window(Header& h) {
  Parser& p = h.p;
  OpSpace& ops = p.ops;
  h.window = true;
  if (!p.take(verb("@"))) {
    h.window_plain = true;
    ops.put24(h.s + ssym::s_window_top, 1);
    ops.put24(h.s + ssym::s_window_top + 3, 1);
    ops.put24(h.s + ssym::s_window_bottom, kTerminalRows);
    ops.put24(h.s + ssym::s_window_bottom + 3, kTerminalColumns);
    return ClauseStep::next;
  }
  if (!read_coordinates(p, h.s + ssym::s_window_top, false)) return ClauseStep::next;
  if (!p.take(verb("to"))) return ClauseStep::next;
  if (!p.take(verb("@"))) {
    p.diag.error(msg::row_column_invalid_out_range);
    return ClauseStep::next;
  }
  read_coordinates(p, h.s + ssym::s_window_bottom, false);
  for (uint32_t at : {0u, 3u}) {  // a corner given the wrong way round: the values swap
    uint32_t a = ops.get24(h.s + ssym::s_window_top + at), b = ops.get24(h.s + ssym::s_window_bottom + at);
    if (!(a & kOperandList) && !(b & kOperandList) && b < a) {
      ops.put24(h.s + ssym::s_window_top + at, b);
      ops.put24(h.s + ssym::s_window_bottom + at, a);
    }
  }
  if (!p.take(verb("relative"))) return ClauseStep::next;
  p.take(verb("to"));
  if (!p.take(verb("@"))) {
    p.diag.error(msg::row_column_invalid_out_range);
    return ClauseStep::next;
  }
  read_coordinates(p, h.s + ssym::s_window_rel, false);
  return ClauseStep::next;
}

ClauseStep header_window_position(Header& h) {
  h.p.take(verb("is"));
  h.p.max_opt_ver(7);
  Operand v = compile_operand(h.p, h.s + ssym::s_window_pos, -1);
  if (v.literal && v.value < 0) h.window_full = true;
  return ClauseStep::next;
}

// COLOUR fg [ON bg]: a single colour is the background.
ClauseStep header_colour(Header& h) {
  OpSpace& ops = h.p.ops;
  uint32_t at = h.s + ssym::s_colour;
  h.colour = true;
  read_colours(h.p, at, at + 3, false, false);
  if (ops.get24(at + 3) == 0) {
    ops.put24(at + 3, ops.get24(at));
    ops.put24(at, 0);
  }
  return ClauseStep::next;
}

ClauseStep header_title(Header& h) {
  h.title = true;
  h.p.take(verb("is"));
  alpha_list(h.p, h.s + ssym::s_title, 'D');
  return ClauseStep::next;
}

// HELP KEY [IS] literal: an obsolete clause, passed over with a warning.
ClauseStep header_help(Header& h) {
  Parser& p = h.p;
  if (p.next() != verb("key")) {
    p.fail(msg::syntax_error);
    return ClauseStep::done;
  }
  p.take(verb("is"));
  if (p.next() != kClassAlpha) {
    p.fail(msg::alpha_literal_expected);
    return ClauseStep::done;
  }
  p.diag.warning_text(txt::obsolete_clause, "help");
  return ClauseStep::next;
}

ClauseStep header_prompt(Header& h) {
  if (!is_kind(h, kScreen)) return wrong_section(h);
  if (!h.p.take(verb("@"))) {
    h.p.diag.error(msg::row_column_invalid_out_range);
    return ClauseStep::next;
  }
  read_coordinates(h.p, h.s + ssym::s_prompt_pos, false);
  return ClauseStep::next;
}

constexpr ClauseRow<Header> kHeaderClauses[] = {
    {verb("window"), Given::once, {verb("leave_parent_screen")}, header_window},
    {verb("window_position"), Given::once, {}, header_window_position},
    {verb("colour"), Given::once, {}, header_colour},
    {verb("title"), Given::once, {}, header_title},
    {verb("help"), Given::repeatable, {}, header_help},
    {verb("prompt"), Given::once, {}, header_prompt},
    {verb("primary"), Given::once, {verb("select")}, primary},
    {verb("select"), Given::once, {verb("primary"), verb("when"), verb("review_from_end")}, select, select_is_clause},
    {verb("when"), Given::once, {verb("select")}, when},
    {verb("review"), Given::repeatable, {}, review},
    {verb("data_grid"), Given::repeatable, {}, data_grid},
    {verb("review_bottom_to_top"), Given::repeatable, {}, header_flag<kScreen, ssym::s_flags, ssym::review_bottom_to_top>},
    {verb("review_from_current"), Given::repeatable, {verb("review_from_end"), verb("review_from_start")}, header_flag<kScreen, ssym::s_flags, ssym::review_from_current>},
    {verb("review_from_end"), Given::repeatable, {verb("review_from_current"), verb("review_from_start"), verb("start_on_current_record"), verb("select")}, header_flag<kScreen, ssym::s_flags, ssym::review_from_end>},
    {verb("review_from_start"), Given::repeatable, {verb("review_from_end"), verb("review_from_current"), verb("start_on_current_record")}, header_flag<kScreen, ssym::s_flags, ssym::review_from_start>},
    {verb("start_on_current_record"), Given::repeatable, {verb("review_from_end"), verb("review_from_start")}, header_flag<kAll, ssym::s_kind, ssym::kind_start_on_current>},
    {verb("no_review_row_separators"), Given::repeatable, {}, header_flag<kScreen, ssym::s_flags, ssym::review_no_row_sep>},
    {verb("no_review_column_separators"), Given::repeatable, {}, header_flag<kScreen, ssym::s_flags, ssym::review_no_col_sep>},
    {verb("no_review_separators"), Given::repeatable, {}, header_flag<kScreen, ssym::s_flags, ssym::review_no_row_sep | ssym::review_no_col_sep>},
    {verb("allowed"), Given::repeatable, {}, allowed},
    {verb("local"), Given::repeatable, {}, local},
    {verb("parameters"), Given::once, {}, parameters},
    {verb("returning"), Given::once, {}, returning},
    {verb("leave_parent_screen"), Given::repeatable, {verb("window")}, header_flag<kAll, ssym::s_kind, ssym::kind_leave_parent>},
    {verb("no_prompt_for_search"), Given::repeatable, {}, header_flag<kScreen, ssym::s_kind, ssym::kind_no_prompt_search>},
    {verb("prompt_for_search"), Given::repeatable, {}, header_flag<kScreen, ssym::s_kind, ssym::kind_prompt_search>},
    {verb("find_for_currency"), Given::repeatable, {}, header_flag<kScreen, ssym::s_kind, ssym::kind_find_for_currency>},
    {verb("stay_in_correct"), Given::repeatable, {}, header_flag<kScreen, ssym::s_kind, ssym::kind_stay_in_correct>},
    {verb("stop_exit_all"), Given::repeatable, {}, header_flag<kAll, ssym::s_kind, ssym::kind_stop_exit_all>},
    {verb("always_show"), Given::repeatable, {}, header_flag<kAll, ssym::s_kind, ssym::kind_always_show>},
    {verb("tree_menu"), Given::repeatable, {}, header_tree_menu},
    {verb("button_size"), Given::once, {}, header_button_size},
    {verb("form_entry"), Given::repeatable, {verb("sequential_entry")}, header_flag<kScreen, ssym::s_form, ssym::form_entry>},
    {verb("sequential_entry"), Given::repeatable, {verb("form_entry")}, header_flag<kScreen, ssym::s_form, ssym::form_sequential_entry>},
    {verb("no_ok_cancel"), Given::once, {verb("position_on_ok")}, header_flag<kScreen, ssym::s_form, ssym::form_no_ok_cancel>},
    {verb("position_on_ok"), Given::once, {verb("no_ok_cancel")}, header_flag<kScreen, ssym::s_form, ssym::form_position_on_ok>},
    {verb("export"), Given::repeatable, {}, export_section},
    {verb("can_override"), Given::once, {verb("no_override")}, can_override},
    {verb("no_override"), Given::once, {verb("can_override")}, no_override},
};

// Any other word: error 5, and the rest of the header is passed over.
ClauseStep header_other(Header& h) { return wrong_section(h); }

}  // namespace

// Reads the clauses of a section header up to the end of the header statement, then runs the
// header checks.
void compile_section_header(Parser& p) {
  OpSpace& ops = p.ops;
  uint32_t s = p.section;
  Header h{p, s, static_cast<uint16_t>(ops.get16(s + ssym::s_flags)), p.diag.error_count()};
  ops.put16(s + ssym::s_flags, h.prior_review & ssym::flag_referenced);
  read_clauses(p, kHeaderClauses, h, header_other);
  finish(h);
}

}  // namespace tav
