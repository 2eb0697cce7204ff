// CLEAR, BOX, BOX-CHARACTER and REFRESH.

#include "statements/screen_output.h"

#include <cstring>

#include "expr/expr.h"
#include "statements/accept.h"
#include "statements/handlers.h"
#include "statements/parser.h"
#include "statements/records.h"
#include "statements/screen_clauses.h"
#include "symbols/clauses.h"
#include "symbols/fields.h"
#include "symbols/records.h"

namespace tav {

namespace {

constexpr int32_t kMaxRow = 255;

// CLEAR flags (`cl_flags`) and BOX flags (`bo_flags`).
namespace clear_flag {
inline constexpr uint16_t prompt = 0x0001, data = 0x0002, absolute = 0x0004;
}
namespace box_flag {
inline constexpr uint16_t double_line = 0x0001, no_cross = 0x0002, absolute = 0x0004, background = 0x0008;
}

// The REFRESH kinds (`rf_kind`).
enum RefreshKind : uint16_t { refresh_field = 0, refresh_data = 1, refresh_prompt = 2, refresh_review = 3 };

uint32_t emit_statement(Parser& p, uint32_t verb_code, Op opcode) {
  p.ob.emit_statement_marker(verb_code);
  return p.ob.emit(opcode);
}

void set_bits(Parser& p, uint32_t at, uint16_t bits) { p.ops.put16(at, p.ops.get16(at) | bits); }

// Error 0 for a clause the statement does not know; reading goes on at the next clause.
template <class State>
ClauseStep syntax_error(State& s) {
  s.p.diag.error(msg::syntax_error);
  s.p.tok.skip_to_clause();
  return ClauseStep::next;
}

// The statement ends here, or error 0 and the rest is passed over.
void expect_statement_end(Parser& p) {
  if (p.next() & kStatementVerb) p.push_back();
  else p.fail(msg::syntax_error);
}

// --- CLEAR ----------------------------------------------------------------------------------

struct Clear {
  Parser& p;
  uint32_t op;
  uint32_t first;  // position records
  uint32_t last;
};

// @ r,c [TO @ r,c].
ClauseStep clear_position(Clear& c) {
  Parser& p = c.p;
  if (!read_coordinates(p, c.first, true)) return ClauseStep::done;
  if (!p.take(verb("to"))) return ClauseStep::next;
  if (!p.take(verb("@"))) return syntax_error(c);
  read_coordinates(p, c.last, true);
  return ClauseStep::next;
}

// A row number: a numeric literal 1 to 255 at least `low` (error 10), the token current.
int32_t row_number(Parser& p, int32_t low) {
  double v = p.tok.value();
  if (p.cls() != kClassNumeric || v < low || v > kMaxRow || v != static_cast<int32_t>(v)) {
    p.diag.error(msg::numeric_value_invalid_out_range);
    return 0;
  }
  return static_cast<int32_t>(v);
}

// n [TO m], the first number current: one row stands for both.
ClauseStep clear_rows_from(Clear& c) {
  Parser& p = c.p;
  int32_t first = row_number(p, 1);
  int32_t last = first;
  if (p.take(verb("to"))) {
    p.next();
    last = row_number(p, first > 0 ? first : 1);
  }
  p.ops.put24(c.first + position::ps_row, static_cast<uint32_t>(first));
  p.ops.put24(c.last + position::ps_row, static_cast<uint32_t>(last));
  return ClauseStep::next;
}

// LINE, LINES, ROW or ROWS n [TO m].
ClauseStep clear_rows(Clear& c) {
  c.p.next();
  return clear_rows_from(c);
}

template <uint16_t Bit, uint16_t Other>
ClauseStep clear_kind(Clear& c) {
  uint32_t at = c.op + clearop::cl_flags;
  if (c.p.ops.get16(at) & Other) c.p.diag.error(msg::duplicate_incompatible_clause);
  set_bits(c.p, at, Bit);
  return ClauseStep::next;
}

ClauseStep clear_absolute(Clear& c) {
  set_bits(c.p, c.op + clearop::cl_flags, clear_flag::absolute);
  c.p.max_opt_ver(7);
  return ClauseStep::next;
}

// A bare number reads like LINES; anything else is an error.
ClauseStep clear_other(Clear& c) {
  if (c.p.cls() == kClassNumeric) return clear_rows_from(c);
  return syntax_error(c);
}

constexpr ClauseRow<Clear> kClearClauses[] = {
    {verb("@"), Given::once, {}, clear_position},
    {verb("lines"), Given::once, {}, clear_rows},
    {verb("prompt"), Given::repeatable, {}, clear_kind<clear_flag::prompt, clear_flag::data>},
    {verb("data"), Given::repeatable, {}, clear_kind<clear_flag::data, clear_flag::prompt>},
    {verb("absolute_coordinates"), Given::repeatable, {}, clear_absolute},
};

// --- BOX ------------------------------------------------------------------------------------

struct Box {
  Parser& p;
  uint32_t op;
  uint32_t box;
  bool positioned = false;
};

// @ r,c TO @ r,c.
ClauseStep box_position(Box& b) {
  Parser& p = b.p;
  b.positioned = true;
  if (!read_coordinates(p, b.box + boxrec::bx_top_left, true)) return ClauseStep::done;
  if (!p.take(verb("to")) || !p.take(verb("@"))) return syntax_error(b);
  read_coordinates(p, b.box + boxrec::bx_bottom_right, true);
  return ClauseStep::next;
}

ClauseStep box_colour(Box& b) {
  read_colours(b.p, b.box + boxrec::bx_foreground, b.box + boxrec::bx_background, true, false);
  if (b.p.ops.get24(b.box + boxrec::bx_background) != 0) set_bits(b.p, b.op + boxop::bo_flags, box_flag::background);
  return ClauseStep::next;
}

// TITLE [IS] text: a literal text (error 8).
ClauseStep box_title(Box& b) {
  Parser& p = b.p;
  p.take(verb("is"));
  if (p.next() != kClassAlpha) {
    p.diag.error(msg::alpha_literal_expected);
    p.tok.skip_to_clause();
    return ClauseStep::next;
  }
  p.push_back();
  alpha_list(p, b.box + boxrec::bx_title, 'D');
  return ClauseStep::next;
}

template <uint16_t Bit>
ClauseStep box_flag_clause(Box& b) {
  set_bits(b.p, b.op + boxop::bo_flags, Bit);
  if (Bit == box_flag::absolute) b.p.max_opt_ver(7);
  return ClauseStep::next;
}

constexpr ClauseRow<Box> kBoxClauses[] = {
    {verb("@"), Given::once, {}, box_position},
    {verb("colour"), Given::once, {}, box_colour},
    {verb("title"), Given::once, {}, box_title},
    {verb("double"), Given::repeatable, {}, box_flag_clause<box_flag::double_line>},
    {verb("sunken"), Given::repeatable, {}, box_flag_clause<box_flag::double_line>},
    {verb("no_cross"), Given::repeatable, {}, box_flag_clause<box_flag::no_cross>},
    {verb("absolute_coordinates"), Given::repeatable, {}, box_flag_clause<box_flag::absolute>},
};

// --- REFRESH --------------------------------------------------------------------------------

// REFRESH field: the op that accepts it, now or when the section ends.
void refresh_accepted_field(Parser& p, uint32_t op) {
  uint32_t object = 0;
  uint32_t field = reference_field(p, p.text(), &object);
  if (field == 0) {
    p.tok.skip_to_statement();
    return;
  }
  uint32_t target = find_accept(p, p.accept_chain, field, object, true);
  if (target != 0) p.ops.put24(op + refreshop::rf_accept, target);
  else p.refreshes.push_back({op, field, object});
  expect_statement_end(p);
}

}  // namespace

// CLEAR [DATA] clauses: CLEAR DATA alone leaves every operand 0.
void compile_clear(Parser& p) {
  p.accept();
  uint32_t op = emit_statement(p, verb("clear"), Op::clear);
  if (p.take(verb("data"))) {
    bool alone = (p.next() & kStatementVerb) != 0;
    p.push_back();
    if (alone) return;
    set_bits(p, op + clearop::cl_flags, clear_flag::data);
  }
  Clear c{p, op, p.ops.alloc(position::size), p.ops.alloc(position::size)};
  p.ops.put24(op + clearop::cl_first, c.first);
  p.ops.put24(op + clearop::cl_last, c.last);
  read_clauses(p, kClearClauses, c, clear_other);
}

// BOX clauses (also DISPLAY BOX): without @ the box takes the section's window corners.
void compile_box(Parser& p) {
  p.accept();
  uint32_t op = emit_statement(p, verb("box"), Op::box);
  Box b{p, op, p.ops.alloc(boxrec::size)};
  p.ops.put24(op + boxop::bo_box, b.box);
  read_clauses(p, kBoxClauses, b, syntax_error<Box>);
  if (b.positioned) return;
  std::memcpy(p.ops.at(b.box + boxrec::bx_top_left), p.ops.at(p.section + ssym::s_window_top), 6);
  std::memcpy(p.ops.at(b.box + boxrec::bx_bottom_right), p.ops.at(p.section + ssym::s_window_bottom), 6);
}

// BOX-CHARACTER character @ r,c.
void compile_box_character(Parser& p) {
  p.accept();
  uint32_t op = emit_statement(p, verb("box_character"), Op::box_character);
  compile_operand(p, op + boxcharop::bc_character, kMaxRow);
  if (!p.take(verb("@"))) {
    p.fail(msg::row_column_coordinates_expected);
    return;
  }
  uint32_t at = p.ops.alloc(position::size);
  if (!read_coordinates(p, at, true)) return;
  p.ops.put24(op + boxcharop::bc_row, p.ops.get24(at + position::ps_row));
  p.ops.put24(op + boxcharop::bc_column, p.ops.get24(at + position::ps_column));
  expect_statement_end(p);
}

// REFRESH DATA | PROMPT | REVIEW | field.
void compile_refresh(Parser& p) {
  p.accept();
  uint32_t op = emit_statement(p, verb("refresh"), Op::refresh);
  uint32_t c = p.next();
  RefreshKind kind = refresh_field;
  if (c == verb("data")) kind = refresh_data;
  else if (c == verb("prompt")) kind = refresh_prompt;
  else if (c == verb("review")) kind = refresh_review;
  else if (c == kClassName) return refresh_accepted_field(p, op);
  else return static_cast<void>(p.fail(msg::field_name_expected));
  p.accept();
  if (kind == refresh_review && !(p.ops.get16(p.section + ssym::s_flags) & ssym::review))
    p.diag.warning_text(txt::not_review_screen, Context::current_token());
  p.ops.put16(op + refreshop::rf_kind, kind);
  expect_statement_end(p);
}

void resolve_refreshes(Parser& p) {
  for (const Parser::PendingRefresh& r : p.refreshes) {
    uint32_t target = find_accept(p, p.accept_chain, r.field, r.object, true);
    if (target != 0) p.ops.put24(r.op + refreshop::rf_accept, target);
    else p.diag.error_text(txt::refreshed_not_accepted, p.syms.text(p.ops.get24(r.field + fsym::f_name)));
  }
  p.refreshes.clear();
}

}  // namespace tav
