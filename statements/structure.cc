// The structural statements: DO, EXIT, CONFIRM, OPTION, COMMAND / CALL / QUERY, RE-ENTER, PAUSE,
// BACK-TO-DETAIL, CONTINUE-ENTRY, LINK and VERSION-NUMBER.

#include <cmath>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "codegen/convert.h"
#include "codegen/header.h"
#include "expr/expr.h"
#include "runtime/ascii.h"
#include "statements/accept.h"
#include "statements/block.h"
#include "statements/handlers.h"
#include "statements/modes.h"
#include "statements/parser.h"
#include "statements/program.h"
#include "statements/records.h"
#include "statements/screen_clauses.h"
#include "symbols/suggest.h"
#include "symbols/clauses.h"
#include "symbols/fields.h"
#include "symbols/records.h"

namespace tav {

namespace {

uint16_t kind_of(Parser& p) { return static_cast<uint16_t>(p.ops.get16(p.section + ssym::s_kind) & 3); }

// Emits the statement marker (debug compiles) and the statement's op.
uint32_t emit_statement(Parser& p, uint32_t verb_code, Op opcode) {
  p.ob.emit_statement_marker(verb_code);
  return p.ob.emit(opcode);
}

// A list of expressions (commas between them are optional), each on its own op list, as 6-byte
// entries {next, op list} appended in order. Returns the head.
uint32_t expression_entries(Parser& p, uint32_t allow, std::vector<ExprType>* types = nullptr) {
  OpSpace& ops = p.ops;
  uint32_t head = 0, tail = 0;
  do {
    uint32_t e = ops.alloc(exprlist::size);
    ExprType t = compile_expression_list(p, e + exprlist::el_list, allow);
    if (types) types->push_back(t);
    if (t.failed) break;
    if (tail)
      ops.put24(tail + exprlist::el_next, e);
    else
      head = e;
    tail = e;
  } while (expression_follows(p));
  return head;
}

// A list of fields as 9-byte entries {next, field_sym, field address}. Error 13 when it does not
// start with a field name.
uint32_t returning_entries(Parser& p, int* count = nullptr) {
  OpSpace& ops = p.ops;
  uint32_t head = 0, tail = 0;
  if (p.next() != kClassName) p.diag.error(msg::field_name_expected);
  p.push_back();
  while (p.next() == kClassName) {
    uint32_t field = reference_field(p, p.text(), nullptr);
    if (field == 0) continue;
    uint32_t e = ops.alloc(retlist::size);
    ops.put24(e + retlist::rl_field, field);
    ops.put24(e + retlist::rl_address, ops.get24(field + fsym::f_addr));
    if (count) ++*count;
    if (tail)
      ops.put24(tail + retlist::rl_next, e);
    else
      head = e;
    tail = e;
  }
  p.push_back();
  return head;
}

// The occurrence count of an argument: a whole array passed by name counts its occurrences.
uint32_t argument_occurs(Parser& p, uint32_t list) {
  OpSpace& ops = p.ops;
  if (list == 0 || ops.get24(list) != 0 || ops.opcode(list) != Op::field_ref) return 1;
  if (ops.get24(list + fieldref::fr_subscript) != 0) return 1;
  return ops.get16(ops.get24(list + fieldref::fr_field) + fsym::f_occurs);
}

// Whether an op list refers to a whole array (an array field without subscript).
bool contains_whole_array(Parser& p, uint32_t list) {
  OpSpace& ops = p.ops;
  for (uint32_t op = list; op != 0; op = ops.get24(op))
    if (ops.opcode(op) == Op::field_ref && ops.get24(op + fieldref::fr_subscript) == 0 &&
        ops.get16(ops.get24(op + fieldref::fr_field) + fsym::f_occurs) > 1)
      return true;
  return false;
}

// A call of a section not defined yet records its arguments in the section's list, so that the
// definition can check its own list against them: non-zero for a numeric argument, and the
// occurrence count.
void record_arguments(Parser& p, uint32_t section, uint32_t slot, uint32_t entries, bool fields,
                      const std::vector<ExprType>& types = {}) {
  OpSpace& ops = p.ops;
  uint32_t tail = 0;
  size_t index = 0;
  for (uint32_t e = entries; e != 0; e = ops.get24(e), ++index) {
    uint32_t numeric = 0, occurs = 1;
    if (fields) {
      uint32_t f = ops.get24(e + retlist::rl_field);
      numeric = conv::fmt_numeric(static_cast<uint16_t>(ops.get16(f + fsym::f_format))) ? 1 : 0;
      occurs = ops.get16(f + fsym::f_occurs);
    } else {
      numeric = index < types.size() && !types[index].alphanumeric() ? 1 : 0;
      occurs = argument_occurs(p, ops.get24(e + exprlist::el_list));
    }
    uint32_t pe = ops.alloc(param_entry::size);
    ops.put24(pe + param_entry::pe_field, numeric);
    ops.put24(pe + param_entry::pe_occurs, occurs);
    if (tail)
      ops.put24(tail + param_entry::pe_next, pe);
    else
      ops.put24(section + slot, pe);
    tail = pe;
  }
}

uint32_t count_entries(Parser& p, uint32_t list) {
  uint32_t n = 0;
  for (uint32_t e = list; e != 0; e = p.ops.get24(e)) ++n;
  return n;
}

}  // namespace

namespace {

// --- DO -------------------------------------------------------------------------------------

struct Do {
  Parser& p;
  uint16_t flags = 0;
  uint32_t modes = 0, initial = 0, params = 0, results = 0;
  int mode_count = 0, result_count = 0;
  std::vector<ExprType> param_types{};
  bool initial_given = false, params_given = false, results_given = false;
  SourceMark at{};  // the section's name
};

// INITIAL-MODE [IS] mode.
ClauseStep do_initial_mode(Do& d) {
  d.initial_given = true;
  d.p.take(verb("is"));
  d.p.next();
  d.initial = find_mode(d.p, d.p.text());
  if (d.initial == 0) {
    d.p.diag.error(msg::mode_not_defined_known);
    suggest_name(d.p, d.p.text(), mode_names(d.p));
  }
  return ClauseStep::next;
}

template <uint16_t Flag>
ClauseStep do_flag(Do& d) {
  d.flags |= Flag;
  return ClauseStep::next;
}

ClauseStep do_parameters(Do& d) {
  d.params_given = true;
  d.p.take(verb("are"));
  d.params = expression_entries(d.p, allow_whole_arrays, &d.param_types);
  return ClauseStep::next;
}

ClauseStep do_returning(Do& d) {
  d.results_given = true;
  d.results = returning_entries(d.p, &d.result_count);
  return ClauseStep::next;
}

// The modes passed to the section: mode names, SEARCH (the five search modes), PREV and SHOW,
// before any INITIAL-MODE. Any other word is an invalid clause.
ClauseStep do_mode(Do& d) {
  Parser& p = d.p;
  const uint32_t c = p.cls();
  if (c != verb("search") && c != verb("prev") && c != verb("show") && c != kClassName && find_mode(p, p.text()) == 0)
    return skip_invalid_clause(p);
  if (d.initial_given) {
    p.diag.error(msg::syntax_error);
  } else if (c == verb("search")) {
    for (const char* m : {"find", "next", "prev", "next-scr", "prev-scr"}) add_mode_to_list(p, d.modes, m);
    d.mode_count += 5;
  } else if (c == verb("show")) {
    add_mode_to_list(p, d.modes, "~-show");
    d.flags |= doop::show;
    ++d.mode_count;
  } else if (add_mode_to_list(p, d.modes, c == verb("prev") ? "prev" : p.text())) {
    ++d.mode_count;
  } else {
    p.diag.error(msg::mode_not_defined_known);
    suggest_name(p, p.text(), mode_names(p));
  }
  return ClauseStep::next;
}

constexpr ClauseRow<Do> kDoClauses[] = {
    {verb("initial_mode"), Given::once, {}, do_initial_mode},
    {verb("same"), Given::repeatable, {}, do_flag<doop::same>},
    {verb("once"), Given::repeatable, {}, do_flag<doop::once>},
    {verb("sub_screen"), Given::repeatable, {}, do_flag<doop::sub_screen>},
    {verb("parameters"), Given::once, {}, do_parameters},
    {verb("returning"), Given::once, {}, do_returning},
};

// [NEXT | LOCAL] section: the section called, declared when not known yet. A section in a shared
// library (NEXT) gets its routine number on first call. 0 after reporting.
uint32_t do_section(Parser& p, uint16_t& flags) {
  OpSpace& ops = p.ops;
  uint32_t c = p.next();
  if (c == verb("next")) {
    flags |= doop::next;
    c = p.next();
  } else if (c == verb("local")) {
    flags |= doop::local;
    c = p.next();
  }
  if (c != kClassName) {
    p.fail(msg::screen_name_expected);
    return 0;
  }
  uint32_t section = p.syms.find_or_declare_section(p.text(), false);
  if ((flags & doop::next) && ops.get16(section + ssym::s_routine) == 0) {
    const uint32_t number = ops.next_count(hdr::h_library_count, "library routines") + 1;
    ops.put16(section + ssym::s_routine, number);
  }
  return section;
}

// The argument lists against the section's own: checked when it is defined, recorded for its
// definition to check when it is not.
void check_do_lists(Do& d, uint32_t section) {
  Parser& p = d.p;
  OpSpace& ops = p.ops;
  bool defined = (ops.get16(section + ssym::s_kind) & ssym::kind_mask) != ssym::kind_undefined;
  uint32_t declared = ops.get24(section + ssym::s_params);
  if (!d.params_given && declared != 0) {
    p.diag.error(msg::parameter_list_mismatch);
    p.diag.add_note("defined here", p.syms.defined_at(section));
  } else if (d.params_given && defined && count_entries(p, declared) != d.param_types.size()) {
    p.diag.error(msg::parameter_list_mismatch);
    p.diag.add_note("defined here", p.syms.defined_at(section));
  } else if (d.params_given && !defined && declared == 0) {
    record_arguments(p, section, ssym::s_params, d.params, false, d.param_types);
    p.syms.note_used(ops.get24(section + ssym::s_params), d.at);  // for the definition's "called here"
  }
  if (d.results_given && !defined && ops.get24(section + ssym::s_returning) == 0) {
    record_arguments(p, section, ssym::s_returning, d.results, true);
    p.syms.note_used(ops.get24(section + ssym::s_returning), d.at);
  }
}

}  // namespace

// DO [NEXT | LOCAL] section [mode ...] [INITIAL-MODE mode] [SAME] [ONCE] [SUB-SCREEN]
void compile_do(Parser& p) {
  OpSpace& ops = p.ops;
  p.accept();
  Do d{p};
  uint32_t section = do_section(p, d.flags);
  if (section == 0) return;
  d.at = p.diag.current_mark();
  read_clauses(p, kDoClauses, d, do_mode);
  check_do_lists(d, section);
  if (d.mode_count > 1) d.flags &= static_cast<uint16_t>(~doop::show);
  if (ops.get16(section + ssym::s_routine) != 0 && (d.modes != 0 || d.initial != 0) && !(d.flags & doop::local))
    p.diag.warning_text(txt::modes_to_library_routine, Context::current_token());

  bool lists = d.params_given || d.results_given;
  uint32_t op = emit_statement(p, verb("do"), lists ? Op::do_parameters : Op::do_);
  ops.put24(op + doop::do_section, section);
  ops.put16(op + doop::do_flags, d.flags);
  ops.put24(op + doop::do_modes, d.modes);
  ops.put24(op + doop::do_initial, d.initial);
  if (lists) {
    ops.put24(op + doop::do_params, d.params);
    ops.put24(op + doop::do_returning, d.results);
  }
}

// EXIT [value]: the value is an operand value. An immediate 0 would mean "no value", so a
// literal 0 is kept as a one-op list.
void compile_exit(Parser& p) {
  OpSpace& ops = p.ops;
  p.accept();
  p.path_ended = true;
  uint32_t op = emit_statement(p, verb("exit"), Op::exit);
  p.next();
  p.push_back();
  if (!p.at_statement_start()) {
    Operand v = compile_operand(p, op + exitop::ex_value, -1);  // any numeric value
    if (v.type.alphanumeric()) p.diag.error(msg::numeric_value_invalid_out_range);
    if (v.literal && v.value == 0 && ops.get24(op + exitop::ex_value) == 0) {
      static constexpr uint8_t kZero[2] = {0, 0};
      p.ob.open_level();
      uint32_t lit = p.ob.emit(Op::literal);
      ops.put24(lit + literal::lit_value, ops.copy_in(kZero, sizeof kZero));
      ops.put16(lit + literal::lit_format, literal::format_one_digit);
      ops.put24(op + exitop::ex_value, p.ob.top().head | kOperandList);
      p.ob.close_level();
    }
  }
  p.locks.settle_path_end();
}

namespace {

// --- CONFIRM --------------------------------------------------------------------------------

struct Confirm {
  Parser& p;
  uint32_t block;
  uint16_t flags = 0;
};

template <uint16_t Flag>
ClauseStep confirm_flag(Confirm& c) {
  c.flags |= Flag;
  return ClauseStep::next;
}

// PROMPT [IS] text.
ClauseStep confirm_prompt(Confirm& c) {
  c.p.take(verb("is"));
  if (c.p.next() != kClassAlpha) {
    c.p.fail(msg::alpha_literal_expected);
    return ClauseStep::done;
  }
  int item = c.p.texts.add_string(c.p.text(), 'D');
  c.p.ops.put16(c.block + confirm::c_prompt, static_cast<uint32_t>(item));
  return ClauseStep::next;
}

// Whether the current word is the catalogue's translation of the answer word `number`.
bool is_localised_answer(Parser& p, int number) {
  if (!p.catalogue) return false;
  const std::optional<std::string> word = p.catalogue->translation(number);
  const std::string_view text = p.text();
  if (!word || word->size() != text.size()) return false;
  for (size_t i = 0; i < text.size(); ++i)
    if (ascii_lower(text[i]) != ascii_lower((*word)[i]))
      return false;
  return true;
}

// DEFAULT [IS] YES | NO, or the catalogue's words for them.
ClauseStep confirm_default(Confirm& c) {
  constexpr int kYesWord = 4, kNoWord = 5;
  c.p.take(verb("is"));
  uint32_t answer = c.p.next();
  if (answer == verb("yes") || is_localised_answer(c.p, kYesWord))
    c.p.ops.put16(c.block + confirm::c_default, 'Y');
  else if (answer == verb("no") || is_localised_answer(c.p, kNoWord))
    c.p.ops.put16(c.block + confirm::c_default, 'N');
  else
    c.p.diag.error(msg::syntax_error);
  return ClauseStep::next;
}

ClauseStep confirm_position(Confirm& c) {
  read_position(c.p, c.block + confirm::c_position);
  return ClauseStep::next;
}

ClauseStep confirm_when(Confirm& c) {
  compile_condition_list(c.p, c.block + confirm::c_when);
  return ClauseStep::next;
}

ClauseStep confirm_other(Confirm& c) { return skip_invalid_clause(c.p); }


constexpr ClauseRow<Confirm> kConfirmClauses[] = {
    {verb("auto"), Given::repeatable, {verb("@"), verb("prompt"), verb("no_prompt")}, confirm_flag<confirm::flag_auto>},
    {verb("no_prompt"), Given::once, {verb("auto"), verb("prompt")}, confirm_flag<confirm::flag_no_prompt>},
    {verb("no_window"), Given::repeatable, {}, confirm_flag<confirm::flag_no_window>},
    {verb("window"), Given::repeatable, {}, confirm_flag<confirm::flag_window>},
    {verb("prompt"), Given::once, {verb("auto"), verb("no_prompt")}, confirm_prompt},
    {verb("default"), Given::repeatable, {verb("auto")}, confirm_default},
    {verb("@"), Given::once, {verb("auto")}, confirm_position},
    {verb("when"), Given::once, {}, confirm_when},
};

// The parts of a CONFIRM, each at most once; any other statement opens the CONFIRMED part.
// Returns after END-CONFIRM, or reports it missing at a section start.
void compile_confirm_parts(Parser& p, uint32_t block) {
  OpSpace& ops = p.ops;
  constexpr uint32_t kParts[] = {verb("before"), verb("confirmed"), verb("not_confirmed"), verb("after")};
  constexpr uint32_t kSlots[] = {confirm::c_before, confirm::c_confirmed, confirm::c_not_confirmed, confirm::c_after};
  bool any_part = false;
  for (;;) {
    uint32_t c = p.next();
    if (c == verb("end") || c == verb("end_confirm")) {
      p.accept();
      return;
    }
    if (c & kSectionStart) break;
    int which = 1;
    bool named = false;
    for (int i = 0; i < 4; ++i)
      if (c == kParts[i]) {
        which = i;
        named = true;
      }
    if (named)
      p.accept();
    else
      p.push_back();
    if (ops.get24(block + kSlots[which]) != 0) p.diag.error(msg::duplicate_incompatible_clause);
    any_part = true;
    BlockScope part(p, BlockScope::reopens_path);
    p.ob.open_level();
    p.ob.emit_statement_marker(kParts[which]);
    compile_statements_until(p, {kParts[0], kParts[1], kParts[2], kParts[3], verb("end"), verb("end_confirm")});
    ops.put24(block + kSlots[which], p.ob.top().head);
    p.ob.close_level();
  }
  if (any_part)
    p.diag.error(msg::end_missing);
  else
    p.diag.warning_text(txt::end_confirm_missing, Context::current_token());
}

}  // namespace

// CONFIRM clauses... [BEFORE ...] [CONFIRMED ...] [NOT-CONFIRMED ...] [AFTER ...] END-CONFIRM
void compile_confirm(Parser& p) {
  OpSpace& ops = p.ops;
  p.accept();
  uint32_t block = ops.alloc(confirm::size);
  uint32_t op = emit_statement(p, verb("confirm"), Op::confirm);
  ops.put24(op + confirmop::co_block, block);
  if (p.cond_depth != 0) p.diag.error(msg::statement_not_conditional);
  if (ops.get24(p.section + ssym::s_confirm) != 0) p.diag.error(msg::multiple_confirm_statements_not_allowed);
  ops.put24(p.section + ssym::s_confirm, op);
  ops.put24(block + confirm::c_accepts, p.accept_chain);

  Confirm c{p, block};
  read_clauses(p, kConfirmClauses, c, confirm_other);
  ops.put16(block + confirm::c_flags, c.flags);
  compile_confirm_parts(p, block);
}

namespace {

// --- OPTION ---------------------------------------------------------------------------------

struct Option {
  Parser& p;
  uint32_t item;
  uint8_t flags = 0;
  uint16_t attrs = 0;
  bool log = false;
  bool bitmap = false;
  bool colour = false;
  uint32_t fg = 0, bg = 0;  // colours until it is known whether a BITMAP was given
};

template <uint16_t Bit>
ClauseStep option_attribute(Option& o) {
  o.attrs |= Bit;
  return ClauseStep::next;
}

// BITMAP [IS] text and its variants. A graphical menu shows bitmaps.
template <uint32_t Slot>
ClauseStep option_bitmap(Option& o) {
  Parser& p = o.p;
  const uint32_t word = p.cls();
  p.take(verb("is"));
  alpha_list(p, o.item + Slot, 0);
  if (word == verb("bitmap")) {
    o.flags |= option::flag_bitmap;
    o.bitmap = true;
  }
  if (word == verb("bitmap_hover")) o.attrs |= option::attr_bitmap_hover;
  p.ops.put16(p.section + ssym::s_marks, p.ops.get16(p.section + ssym::s_marks) | ssym::mark_graphical_menu);
  return ClauseStep::next;
}

ClauseStep option_position(Option& o) {
  read_position(o.p, o.item + option::o_position);
  return ClauseStep::next;
}

// TO @ row, column.
ClauseStep option_to(Option& o) {
  if (o.p.next() != verb("@")) {
    o.p.fail(msg::syntax_error);
    return ClauseStep::done;
  }
  o.flags |= option::flag_to;
  read_position(o.p, o.item + option::o_to_position);
  return ClauseStep::next;
}

ClauseStep option_help(Option& o) {
  o.p.take(verb("is"));
  alpha_list(o.p, o.item + option::o_help, 0);
  return ClauseStep::next;
}

ClauseStep option_when(Option& o) {
  compile_condition_list(o.p, o.item + option::o_when);
  return ClauseStep::next;
}

// SECURITY [LEVEL] [IS] number.
ClauseStep option_security(Option& o) {
  Parser& p = o.p;
  p.take(verb("level"));
  p.take(verb("is"));
  if (p.next() != kClassNumeric) {
    p.diag.error(msg::numeric_literal_expected);
    p.push_back();
    return ClauseStep::next;
  }
  p.ops.put16(o.item + option::o_security, static_cast<uint32_t>(std::lround(std::fabs(p.tok.value()))) & 0xffff);
  return ClauseStep::next;
}

// LOG [text]: without a text, a literal title is logged.
ClauseStep option_log(Option& o) {
  o.log = true;
  if (o.p.next() == kClassAlpha)
    o.p.ops.put24(o.item + option::o_log, o.p.ops.store_text(o.p.text()));
  else
    o.p.push_back();
  return ClauseStep::next;
}

// ICON [IS] value and DEFAULT-BUTTON [IS] value.
template <uint8_t Flag, uint32_t Slot>
ClauseStep option_operand(Option& o) {
  o.p.take(verb("is"));
  o.flags |= Flag;
  compile_operand(o.p, o.item + Slot, 0);
  return ClauseStep::next;
}

ClauseStep option_colour(Option& o) {
  OpSpace& ops = o.p.ops;
  o.colour = true;
  uint32_t pair = ops.alloc(6);
  read_colour(o.p, pair, pair + 3);
  o.fg = ops.get24(pair);
  o.bg = ops.get24(pair + 3);
  return ClauseStep::next;
}

// SCALE [IS] value: a literal scale is also kept as a number.
ClauseStep option_scale(Option& o) {
  o.p.take(verb("is"));
  o.flags |= option::flag_scaled;
  Operand v = compile_operand(o.p, o.item + option::o_scale, -2);
  if (v.literal) {
    o.flags |= option::flag_scale_literal;
    o.p.ops.put16(o.item + option::o_scale_literal, static_cast<uint32_t>(std::lround(std::fabs(v.value))) & 0xffff);
  }
  return ClauseStep::next;
}

ClauseStep option_text_position(Option& o) {
  if (!o.p.take(verb("at"))) o.p.take(verb("is"));
  o.flags |= option::flag_scaled;
  compile_operand(o.p, o.item + option::o_text_position, 0);
  return ClauseStep::next;
}

ClauseStep option_hot_key(Option& o) {
  o.p.take(verb("is"));
  o.attrs |= option::attr_hot_key;
  o.p.max_opt_ver(7);
  Operand v = compile_operand(o.p, o.item + option::o_hot_key, -1);
  if (v.literal && (v.value < 1 || v.value > 24))
    o.p.diag.warning_text(txt::unsupported_hot_key_value, Context::current_token());
  return ClauseStep::next;
}

ClauseStep option_other(Option& o) { return skip_invalid_clause(o.p); }

constexpr ClauseRow<Option> kOptionClauses[] = {
    {verb("absolute_coordinates"), Given::once, {}, option_attribute<option::attr_absolute>},
    {verb("hidden"), Given::once, {}, option_attribute<option::attr_hidden>},
    {verb("no_aspect_ratio"), Given::once, {}, option_attribute<option::attr_no_aspect_ratio>},
    {verb("bold"), Given::once, {}, option_attribute<option::attr_bold>},
    {verb("underline"), Given::once, {}, option_attribute<option::attr_underline>},
    {verb("italic"), Given::once, {}, option_attribute<option::attr_italic>},
    {verb("bitmap"), Given::once, {}, option_bitmap<option::o_bitmap>},
    {verb("bitmap_pushed"), Given::once, {}, option_bitmap<option::o_bitmap_pushed>},
    {verb("bitmap_focus"), Given::once, {}, option_bitmap<option::o_bitmap_focus>},
    {verb("bitmap_grayed"), Given::once, {}, option_bitmap<option::o_bitmap_grayed>},
    {verb("bitmap_hover"), Given::once, {}, option_bitmap<option::o_bitmap_hover>},
    {verb("@"), Given::once, {}, option_position},
    {verb("to"), Given::once, {}, option_to},
    {verb("help"), Given::once, {}, option_help},
    {verb("when"), Given::once, {}, option_when},
    {verb("security"), Given::once, {}, option_security},
    {verb("log"), Given::once, {}, option_log},
    {verb("icon"), Given::once, {}, option_operand<option::flag_icon, option::o_icon>},
    {verb("default_button"), Given::once, {}, option_operand<option::flag_default_button, option::o_default_button>},
    {verb("colour"), Given::once, {}, option_colour},
    {verb("scale"), Given::once, {}, option_scale},
    {verb("text_position"), Given::once, {}, option_text_position},
    {verb("hot_key"), Given::once, {}, option_hot_key},
};

// Where an OPTION stands: in the DETAIL of a MENU, or of a FORM-ENTRY SCREEN (true: it then owns
// a block).
bool check_option_place(Parser& p) {
  OpSpace& ops = p.ops;
  uint32_t s = p.section;
  uint16_t kind = kind_of(p);
  bool in_screen = p.part == SectionPart::detail && kind == ssym::kind_screen;
  if (p.cond_depth != 0) p.diag.error(msg::statement_not_conditional);
  if (in_screen) {
    if (ops.get16(s + ssym::s_flags) & ssym::review)
      p.diag.error(msg::statement_not_valid_review_data);
    else if (!(ops.get16(s + ssym::s_form) & ssym::form_entry))
      p.diag.warning(msg::statement_requires_form_entry_screen);
    ops.put16(s + ssym::s_marks, ops.get16(s + ssym::s_marks) | ssym::mark_has_options);
    p.max_opt_ver(5);
  } else if (p.part == SectionPart::detail && kind == ssym::kind_menu) {
    ++p.menu_options;
  } else {
    p.diag.error(msg::statement_valid_within_detail_menu);
  }
  if (ops.get24(s + ssym::s_confirm) != 0) p.diag.error(msg::statement_used_after_confirm);
  return in_screen;
}

// After the clauses: the colours (a foreground only with a BITMAP), the logged title, the flags
// and the position, which only a hidden option may leave out.
void finish_option(Option& o, uint32_t title) {
  OpSpace& ops = o.p.ops;
  const uint32_t item = o.item;
  if (o.colour) {
    if (o.bitmap) {
      ops.put24(item + option::o_bitmap_fg, o.fg);
    } else {
      o.flags |= option::flag_colours;
      ops.put24(item + option::o_colour_fg, o.fg);
      ops.put24(item + option::o_colour_bg, o.bg);
    }
  }
  if (!o.log && title != 0 && ops.opcode(title) == Op::text_item)
    ops.put24(item + option::o_log, o.p.texts.offset(static_cast<int>(ops.get16(title + textitem::ti_item))));
  if (o.attrs != 0) o.flags |= option::flag_extended;
  ops.at(item + option::o_flags)[0] = o.flags;
  ops.put16(item + option::o_attributes, o.attrs);
  if (ops.get24(item + option::o_position) == 0 && ops.get24(item + option::o_position + 3) == 0) {
    if (o.attrs & option::attr_hidden) {
      ops.put24(item + option::o_position, 1);
      ops.put24(item + option::o_position + 3, 1);
    } else {
      o.p.diag.error(msg::row_column_coordinates_mandatory);
    }
  }
}

// A SCREEN's option owns a block, run when the option is chosen: [DETAIL] ... END-OPTION.
void compile_option_block(Parser& p, uint32_t item) {
  p.take(verb("detail"));
  uint32_t stop = 0;
  {
    BlockScope block(p, BlockScope::conditional | BlockScope::reopens_path);
    p.ob.open_level();
    stop = compile_statements_until(p, {verb("end"), verb("end_option")});
    p.ops.put24(item + option::o_block, p.ob.top().head);
    p.ob.close_level();
  }
  if (stop == verb("end") || stop == verb("end_option")) {
    p.next();
    p.accept();
  } else {
    p.diag.error_text(txt::end_option_missing, Context::current_token());
  }
  p.ob.emit_statement_marker(verb("end_option"));
}

}  // namespace

// OPTION title clauses... [block END-OPTION]: an item of a MENU, or a button of a FORM-ENTRY
// SCREEN with a block of its own.
void compile_option(Parser& p) {
  OpSpace& ops = p.ops;
  p.accept();
  bool in_screen = check_option_place(p);
  uint32_t item = ops.alloc(option::size);
  uint32_t op = emit_statement(p, verb("option"), Op::option);
  ops.put24(op + optionop::opt_item, item);
  ops.put16(op + optionop::opt_size, option::size);
  alpha_list(p, item + option::o_title, 'O');
  uint32_t title = ops.get24(item + option::o_title);

  Option o{p, item};
  read_clauses(p, kOptionClauses, o, option_other);
  finish_option(o, title);
  if (in_screen) compile_option_block(p, item);
}

namespace {

// --- COMMAND / CALL / QUERY -----------------------------------------------------------------

struct Command {
  Parser& p;
  enum Which { command, call, query } which;
  uint32_t block;
  uint16_t flags = 0;
  bool results = false;  // RETURNING given
};

// The statements a clause belongs to, a bit per Which.
constexpr unsigned kCommand = 1u << Command::command, kCall = 1u << Command::call, kQuery = 1u << Command::query;

template <unsigned Where>
bool only_in(const Command& c) {
  return (Where >> c.which) & 1u;
}

template <uint16_t Flag>
ClauseStep command_flag(Command& c) {
  c.flags |= Flag;
  return ClauseStep::next;
}

// BACKGROUND (NO-WAIT) and BATCH leave nothing to return: after RETURNING they are reported, apart
// from what the table reports.
template <uint16_t Flag>
ClauseStep command_detached(Command& c) {
  if (c.results) c.p.diag.error(msg::duplicate_incompatible_clause);
  return command_flag<Flag>(c);
}

// PARAMETERS [ARE] values: no argument may be a whole array.
ClauseStep command_parameters(Command& c) {
  Parser& p = c.p;
  OpSpace& ops = p.ops;
  p.take(verb("are"));
  uint32_t list = expression_entries(p, allow_whole_arrays);
  ops.put24(c.block + cmdblock::cb_params, list);
  for (uint32_t e = list; e != 0; e = ops.get24(e + exprlist::el_next)) {
    uint32_t arg = ops.get24(e + exprlist::el_list);
    if (ops.get24(arg) != 0 && contains_whole_array(p, arg)) p.diag.error(msg::invalid_array_parameter);
  }
  return ClauseStep::next;
}

// RETURNING fields: CALL only, and not with BACKGROUND or BATCH. Reported apart from a second
// RETURNING, which the table reports.
ClauseStep command_returning(Command& c) {
  c.results = true;
  if (c.which != Command::call || (c.flags & (cmdblock::background | cmdblock::batch)))
    c.p.diag.error(msg::duplicate_incompatible_clause);
  c.p.ops.put24(c.block + cmdblock::cb_returning, returning_entries(c.p));
  return ClauseStep::next;
}

ClauseStep command_home(Command& c) {
  compile_expression_list(c.p, c.block + cmdblock::cb_home);
  return ClauseStep::next;
}

// MAXIMUM-PARAMETERS [IS] count.
ClauseStep command_maximum(Command& c) {
  c.p.take(verb("is"));
  compile_operand(c.p, c.block + cmdblock::cb_maximum, cmdblock::kMaximumParameters);
  return ClauseStep::next;
}

ClauseStep command_other(Command& c) { return skip_invalid_clause(c.p); }

constexpr uint32_t kNoWait = verb("no_wait");  // the same flag as BACKGROUND

// PAUSE is a clause of COMMAND only; after CALL or QUERY it is the next statement.
constexpr ClauseRow<Command> kCommandClauses[] = {
    {verb("pause"), Given::once, {verb("no_refresh"), verb("no_xterm")}, command_flag<cmdblock::pause>,
     only_in<kCommand>},
    {verb("parameters"), Given::once, {}, command_parameters},
    {verb("returning"), Given::once, {}, command_returning},
    {verb("home"), Given::once, {}, command_home},
    {verb("maximum_parameters"), Given::once, {}, command_maximum},
    {verb("background"), Given::once, {kNoWait, verb("wait"), verb("batch")}, command_detached<cmdblock::background>},
    {kNoWait, Given::once, {verb("background"), verb("wait"), verb("batch")}, command_detached<cmdblock::background>},
    {verb("wait"), Given::once, {verb("background"), kNoWait, verb("batch")}, command_flag<cmdblock::wait>},
    {verb("batch"), Given::once, {verb("background"), kNoWait, verb("wait")}, command_detached<cmdblock::batch>},
    {verb("external"), Given::once, {}, command_flag<cmdblock::external>, only_in<kCommand | kCall>},
    {verb("spool"), Given::once, {}, command_flag<cmdblock::spool>, only_in<kQuery>},
    {verb("no_pause"), Given::once, {}, command_flag<cmdblock::no_pause>, only_in<kQuery>},
    {verb("no_refresh"), Given::once, {verb("pause")}, command_flag<cmdblock::no_refresh>, only_in<kCommand>},
    {verb("no_xterm"), Given::once, {verb("pause")}, command_flag<cmdblock::no_xterm>, only_in<kCommand>},
    {verb("leave_files_open"), Given::once, {}, command_flag<cmdblock::leave_files_open>, only_in<kCall>},
};

}  // namespace

// COMMAND, CALL and QUERY: run a program, another compiled program, or a query.
void compile_command(Parser& p) {
  OpSpace& ops = p.ops;
  uint32_t code = p.cls();
  p.accept();
  Command c{p, code == verb("command") ? Command::command : code == verb("call") ? Command::call : Command::query, 0};
  static constexpr Op kOps[] = {Op::command, Op::call, Op::query};
  c.block = ops.alloc(cmdblock::size);
  uint32_t op = emit_statement(p, code, kOps[c.which]);
  ops.put24(op + cmdop::cmd_block, c.block);
  alpha_list(p, c.block + cmdblock::cb_command, 0);

  read_clauses(p, kCommandClauses, c, command_other);
  if (c.flags & cmdblock::leave_files_open) c.flags &= static_cast<uint16_t>(~cmdblock::external);
  ops.put16(c.block + cmdblock::cb_flags, c.flags);
  if (c.which == Command::call && !(c.flags & cmdblock::leave_files_open)) p.locks.reset_all();
}

// RE-ENTER [field] [OPTIONAL | AUTO]: back to an ACCEPT of the same part.
namespace {

struct ReEnter {
  Parser& p;
  uint8_t how = 0;
  uint32_t target = 0;  // the ACCEPT of the field named
};

ClauseStep re_enter_optional(ReEnter& r) {
  r.how = reenter::optional;
  return ClauseStep::next;
}

ClauseStep re_enter_auto(ReEnter& r) {
  r.how = reenter::automatic;
  return ClauseStep::next;
}

// The field entered again: it must have been ACCEPTed earlier in the part.
ClauseStep re_enter_other(ReEnter& r) {
  Parser& p = r.p;
  if (p.cls() != kClassName) return skip_invalid_clause(p);
  if (p.accept_chain == 0) return ClauseStep::next;  // reported below
  uint32_t object = 0;
  uint32_t field = reference_field(p, p.text(), &object);
  if (field == 0) return ClauseStep::next;
  r.target = find_accept(p, p.accept_chain, field, object, false);
  if (r.target == 0) p.diag.error(msg::field_not_previously_accepted_screen);
  return ClauseStep::next;
}

constexpr ClauseRow<ReEnter> kReEnterClauses[] = {
    {verb("optional"), Given::repeatable, {}, re_enter_optional},
    {verb("auto"), Given::repeatable, {}, re_enter_auto},
};

// The op before `accept` in the open op lists, from level 0 up; 0 when there is none.
uint32_t op_before(Parser& p, uint32_t accept) {
  for (int level = 0; level <= p.ob.level(); ++level)
    for (uint32_t op = p.ob.at_level(level).head; op != 0; op = p.ops.get24(op))
      if (p.ops.get24(op) == accept) return op;
  return 0;
}

}  // namespace

void compile_re_enter(Parser& p) {
  p.accept();
  if (p.extract_depth != 0) p.diag.error(msg::leave_an_extract_loop_way);
  ReEnter r{p};
  read_clauses(p, kReEnterClauses, r, re_enter_other);
  p.path_ended = true;
  if (p.accept_chain == 0) {
    p.diag.error(msg::no_previous_accept_statement_screen);
    return;
  }
  uint32_t target = r.target != 0 ? r.target : p.accept_chain;
  uint32_t op = emit_statement(p, verb("re_enter"), Op::re_enter);
  p.ops.at(op + reenter::re_how)[0] = r.how;
  uint32_t before = op_before(p, target);
  if (before == 0 && p.diag.error_count() == 0)
    p.diag.fatal_text(txt::internal_error_re_enter, Context::current_token());
  p.ops.put24(op + reenter::re_target, before);
}

void compile_pause(Parser& p) {
  p.accept();
  emit_statement(p, verb("pause"), Op::pause);
}

void compile_back_to_detail(Parser& p) {
  p.accept();
  if (p.part != SectionPart::after) {
    p.diag.error_text(txt::statement_only_in_after, Context::current_token());
    p.tok.skip_to_statement();
    return;
  }
  emit_statement(p, verb("back_to_detail"), Op::back_to_detail);
  p.path_ended = true;
}

void compile_continue_entry(Parser& p) {
  p.accept();
  if (p.loop_depth <= 0) {
    p.fail(msg::not_looping_section_code);
    return;
  }
  if (p.part != SectionPart::detail || kind_of(p) != ssym::kind_screen) {
    p.fail(msg::statement_valid_within_detail_screen);
    return;
  }
  emit_statement(p, verb("continue_entry"), Op::continue_entry);
}

// LINK [TO] "library" ...: shared component libraries, kept most recent first.
void compile_link(Parser& p) {
  OpSpace& ops = p.ops;
  p.accept();
  p.take(verb("to"));
  for (;;) {
    uint32_t c = p.next();
    if (p.at_statement_start()) break;
    if (c != kClassAlpha) {
      p.fail(msg::alpha_literal_expected);
      return;
    }
    std::string name(p.text());
    uint32_t count = 0;
    bool known = false;
    for (uint32_t e = ops.get24(hdr::h_library_list); e != 0; e = ops.get24(e + library::l_next)) {
      if (std::strcmp(ops.text_at(ops.get24(e + library::l_name)), name.c_str()) == 0) known = true;
      ++count;
    }
    if (!known) {
      uint32_t e = ops.alloc(library::size);
      ops.put24(e + library::l_next, ops.get24(hdr::h_library_list));
      ops.put16(e + library::l_index, count);
      ops.put24(e + library::l_name, ops.store_text(name));
      ops.put24(hdr::h_library_list, e);
      p.syms.note_defined(e);  // the LINK naming it, for a library that is not found
    }
    p.max_opt_ver(6);
  }
}

// VERSION-NUMBER [IS] version: a version text kept in the table for the program's owner.
void compile_version_number(Parser& p) {
  OpSpace& ops = p.ops;
  p.accept();
  // The version is read as a raw word, so that "1.2.3" or "v2-beta" stay one token. Keywords are
  // still recognised in raw mode, which lets an optional IS come first.
  p.tok.request_raw();
  uint32_t c = p.next();
  if (c == verb("is")) {
    p.tok.request_raw();
    c = p.next();
  }
  std::string text(p.text());
  if (!p.tok.held()) p.accept();  // the next word is read normally again
  if (c == kClassRaw || c == kClassName || c == kClassNumeric) {
    if (text.find_first_not_of("0123456789.") != std::string::npos) p.diag.warning(msg::invalid_version_number);
  } else if (c != kClassAlpha) {
    p.fail(msg::invalid_version_number);
    return;
  }
  std::string source = text;
  if (source.size() >= 2 && (source.front() == '"' || source.front() == '\'') && source.back() == source.front())
    source = source.substr(1, source.size() - 2);
  uint32_t e = ops.alloc(version::size);
  ops.put24(e + version::v_text, ops.store_text(text));
  ops.put24(e + version::v_source, ops.store_text(source));
  if (p.version_tail)
    ops.put24(p.version_tail + version::v_next, e);
  else
    ops.put24(hdr::h_version_list, e);
  p.version_tail = e;
}

}  // namespace tav
