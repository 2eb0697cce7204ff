// CHECK-BOX and RADIO-BUTTON: a choice made without typing, in the DETAIL of a FORM-ENTRY
// screen. Both join the ACCEPT chain.

#include <cstring>

#include "codegen/convert.h"
#include "expr/expr.h"
#include "statements/handlers.h"
#include "statements/parser.h"
#include "statements/records.h"
#include "statements/screen_clauses.h"
#include "symbols/clauses.h"
#include "symbols/fields.h"
#include "symbols/records.h"

namespace tav {

namespace {

constexpr uint16_t kInDetail = 0x1000, kReadOnly = 0x4000;

// The field chosen, its qualifying object and subscript.
struct Choice {
  Parser& p;
  uint32_t d = 0;  // the descriptor
  uint32_t field = 0;
  uint32_t object = 0;
  uint32_t previous = 0;  // the chain head before the statement
  uint32_t owner = 0;     // the op that heads the chain
  bool numeric() const { return conv::fmt_numeric(static_cast<uint16_t>(p.ops.get16(field + fsym::f_format))); }
};

// Where the statement may stand. A RADIO-BUTTON cannot stand in a REVIEW screen at all.
void check_place(Parser& p, bool radio) {
  if (p.cond_depth > 0) p.diag.error(msg::statement_not_conditional);
  p.max_opt_ver(5);
  const bool screen = (p.section_kind & ssym::kind_mask) == ssym::kind_screen;
  if (p.ops.get24(p.section + ssym::s_confirm) != 0) p.diag.error(msg::statement_used_after_confirm);
  else if (!screen || p.part != SectionPart::detail) p.diag.error(msg::statement_valid_within_detail_screen);
  else if (!(p.ops.get16(p.section + ssym::s_form) & ssym::form_entry)) p.diag.error(msg::statement_requires_form_entry_screen);
  else if (p.ops.get16(p.section + ssym::s_flags) & (ssym::review | ssym::review_data_grid)) {
    if (radio) p.diag.error(msg::statement_not_valid_review_data);
    else p.diag.warning(msg::statement_not_valid_review_data);
  }
}

// The field name after the statement word; false when the statement was passed over.
bool read_choice_field(Choice& c, uint32_t subscript_at) {
  Parser& p = c.p;
  if (p.next() != kClassName) {
    p.fail(msg::field_name_expected);
    return false;
  }
  c.field = reference_field(p, p.text(), &c.object);
  if (c.field == 0) {
    p.tok.skip_to_statement();
    return false;
  }
  p.ops.put24(subscript_at, compile_subscript(p, c.field));
  return true;
}

// A value compiled against the field's kind (error 35 on a mismatch).
void field_value(Choice& c, uint32_t dest) {
  ExprType t = compile_expression_list(c.p, dest);
  if (!t.failed && t.alphanumeric() == c.numeric()) c.p.diag.error(msg::value_not_compatible_field);
}

template <uint32_t Member>
void set_once(Choice& c, void (*read)(Choice&, uint32_t)) {
  if (c.p.ops.get24(c.d + Member) != 0) c.p.diag.error(msg::duplicate_incompatible_clause);
  read(c, c.d + Member);
}

void read_help(Choice& c, uint32_t dest) {
  c.p.take(verb("is"));
  alpha_list(c.p, dest, 'H');
}

void read_when(Choice& c, uint32_t dest) { compile_condition_list(c.p, dest); }

void read_default(Choice& c, uint32_t dest) {
  c.p.take(verb("is"));
  field_value(c, dest);
}

bool at_end(Parser& p, uint32_t end_word) {
  const uint32_t c = p.next();
  if (c == end_word) {
    p.accept();
    return true;
  }
  p.push_back();
  return p.at_statement_start();
}

// --- CHECK-BOX --------------------------------------------------------------------------------

void check_box_clause(Choice& c) {
  Parser& p = c.p;
  OpSpace& ops = p.ops;
  const uint32_t w = p.next();
  p.accept();
  if (w == verb("@")) {
    if (ops.get24(c.d + chkdesc::cb_position) != 0) p.diag.error(msg::duplicate_incompatible_clause);
    if (read_coordinates(p, c.d + chkdesc::cb_position, true)) check_review_area(p, c.d + chkdesc::cb_position, true);
  } else if (w == verb("title")) {
    p.take(verb("is"));
    alpha_list(p, c.d + chkdesc::cb_title, 'D');
  } else if (w == verb("help")) {
    read_help(c, c.d + chkdesc::cb_help);
  } else if (w == verb("default")) {
    read_default(c, c.d + chkdesc::cb_default);
  } else if (w == verb("values")) {
    if (ops.get24(c.d + chkdesc::cb_checked) != 0) p.diag.error(msg::duplicate_incompatible_clause);
    field_value(c, c.d + chkdesc::cb_checked);
    field_value(c, c.d + chkdesc::cb_unchecked);
  } else if (w == verb("validations")) {
    ops.put24(c.d + chkdesc::cb_validations, compile_input_block(p, c.owner, verb("end_validations"), msg::end_missing));
  } else if (w == verb("before_check_box")) {
    ops.put24(c.d + chkdesc::cb_before, compile_input_block(p, c.previous, verb("end_before_check_box"), msg::end_missing));
  } else if (w == verb("read_only")) {
    ops.put16(c.d + chkdesc::cb_flags, ops.get16(c.d + chkdesc::cb_flags) | kReadOnly);
  } else if (w == verb("when")) {
    set_once<chkdesc::cb_when>(c, read_when);
  } else {
    p.push_back();
    skip_invalid_clause(p);
  }
}

// --- RADIO-BUTTON -----------------------------------------------------------------------------

struct Radio {
  Choice c;
  uint32_t first_op = 0;
  uint32_t position = 0;  // pending position record for the next value
  int values = 0;
};

// One value with its TITLE, on the first op or a further one.
void radio_value(Radio& r) {
  Parser& p = r.c.p;
  OpSpace& ops = p.ops;
  const uint32_t v = ops.alloc(radval::size);
  if (r.position != 0) std::memcpy(ops.at(v + radval::rv_position), ops.at(r.position), 6);
  else if (r.values == 0) p.diag.error(msg::row_column_coordinates_mandatory);
  if (r.position != 0) check_review_area(p, v + radval::rv_position, r.values != 0);
  r.position = 0;
  field_value(r.c, v + radval::rv_value);
  uint32_t op = r.first_op;
  if (r.values++ != 0) {
    p.ob.emit_statement_marker(verb("radio_button"));
    op = p.ob.emit(Op::radio_button);
    ops.put24(op + radioop::rbo_desc, r.c.d);
  }
  ops.put24(op + radioop::rbo_value, v);
  if (p.take(verb("title")) || p.take(verb("value_title"))) {
    p.take(verb("is"));
    alpha_list(p, v + radval::rv_title, 'D');
  } else {
    p.diag.error_text(txt::title_expected, Context::current_token());
  }
}

void radio_clause(Radio& r) {
  Choice& c = r.c;
  Parser& p = c.p;
  OpSpace& ops = p.ops;
  const uint32_t w = p.next();
  if (w == verb("@")) {
    p.accept();
    r.position = ops.alloc(position::size);
    read_coordinates(p, r.position, true);
  } else if (w == verb("read_only")) {
    p.accept();
    ops.put16(c.d + raddesc::rd_flags, ops.get16(c.d + raddesc::rd_flags) | kReadOnly);
  } else if (w == verb("before_radio_button")) {
    p.accept();
    ops.put24(c.d + raddesc::rd_before, compile_input_block(p, c.previous, verb("end_before_radio_button"), msg::end_missing));
  } else if (w == verb("validations")) {
    p.accept();
    ops.put24(c.d + raddesc::rd_validations, compile_input_block(p, c.owner, verb("end_validations"), msg::end_missing));
  } else if (w == verb("help")) {
    p.accept();
    read_help(c, c.d + raddesc::rd_help);
  } else if (w == verb("default")) {
    p.accept();
    set_once<raddesc::rd_default>(c, read_default);
  } else if (w == verb("when")) {
    p.accept();
    read_when(c, c.d + raddesc::rd_when);
  } else {
    p.push_back();
    radio_value(r);
  }
}

// The chain's new head, with the flags of its place.
void join_chain(Choice& c, uint32_t op, uint32_t chain_member, uint32_t flags_member) {
  Parser& p = c.p;
  c.previous = p.accept_chain;
  c.owner = op;
  p.ops.put24(c.d + chain_member, c.previous);
  if (p.part == SectionPart::detail) p.ops.put16(c.d + flags_member, kInDetail);
  p.accept_chain = op;
}

}  // namespace

// CHECK-BOX field clauses... [END-CHECK-BOX]
void compile_check_box(Parser& p) {
  p.accept();
  check_place(p, false);
  Choice c{p, p.ops.alloc(chkdesc::size)};
  if (!read_choice_field(c, c.d + chkdesc::cb_subscript)) return;
  p.ops.put24(c.d + chkdesc::cb_field, c.field);
  p.ops.put24(c.d + chkdesc::cb_object, c.object);
  p.ob.emit_statement_marker(verb("check_box"));
  const uint32_t op = p.ob.emit(Op::check_box);
  p.ops.put24(op + checkboxop::cbo_desc, c.d);
  join_chain(c, op, chkdesc::cb_chain, chkdesc::cb_flags);
  while (!at_end(p, verb("end_check_box"))) check_box_clause(c);
  if (p.ops.get24(c.d + chkdesc::cb_position) == 0) p.diag.error(msg::row_column_coordinates_mandatory);
}

// RADIO-BUTTON field clauses and values [TITLE text]... [END-RADIO-BUTTON]
void compile_radio_button(Parser& p) {
  p.accept();
  check_place(p, true);
  Radio r{Choice{p, p.ops.alloc(raddesc::size)}};
  if (!read_choice_field(r.c, r.c.d + raddesc::rd_subscript)) return;
  p.ops.put24(r.c.d + raddesc::rd_field, r.c.field);
  p.ops.put24(r.c.d + raddesc::rd_object, r.c.object);
  p.ob.emit_statement_marker(verb("radio_button"));
  r.first_op = p.ob.emit(Op::radio_button);
  p.ops.put24(r.first_op + radioop::rbo_desc, r.c.d);
  p.ops.put24(r.c.d + raddesc::rd_first, r.first_op);
  join_chain(r.c, r.first_op, raddesc::rd_chain, raddesc::rd_flags);
  while (!at_end(p, verb("end_radio_button"))) radio_clause(r);
  if (r.values == 0) p.diag.error_text(txt::no_radio_values, Context::current_token());
}

}  // namespace tav
