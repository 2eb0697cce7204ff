// ACCEPT: one field read from the user, with its variable-length field descriptor, and the
// search of the ACCEPT chain.

#include "statements/accept.h"

#include <algorithm>
#include <string>

#include "codegen/convert.h"
#include "expr/expr.h"
#include "statements/handlers.h"
#include "statements/parser.h"
#include "statements/records.h"
#include "statements/screen_clauses.h"
#include "symbols/clauses.h"
#include "symbols/dictionary.h"
#include "symbols/picture.h"
#include "symbols/records.h"

namespace tav {

namespace opt {
inline constexpr uint16_t optional = 0x0001, upper = 0x0002, lower = 0x0004, edited = 0x0010;
inline constexpr uint16_t fill_left = 0x0020, show_value = 0x0040, display_only = 0x0080;
inline constexpr uint16_t no_clear = 0x0100, blank = 0x0200, auto_return = 0x0400;
inline constexpr uint16_t nested = 0x0800, detail = 0x1000, suppress = 0x2001, read_only = 0x4001;
inline constexpr uint16_t suppress_bit = 0x2000, read_only_bit = 0x4000;
}  // namespace opt

namespace disp {
inline constexpr uint16_t italic = 0x0010, bold = 0x0020, blink = 0x0040, underline = 0x0080;
inline constexpr uint16_t inverse = 0x0100, background = 0x0200, sunken = 0x0400, fixed_font = 0x0800;
inline constexpr uint16_t right = 4, right_coordinate = 6, centre = 8, centre_coordinate = 10, left = 12;
}  // namespace disp

namespace {

constexpr uint32_t kMinLength = 26;
constexpr uint32_t kLineWidth = 133;

struct Accept {
  Parser& p;
  uint32_t op;
  uint32_t d;             // the descriptor being built (adesc::size bytes)
  uint32_t field = 0;
  uint32_t length = kMinLength;
  bool no_title = false;
  bool picture = false;
};

void reach(Accept& a, uint32_t end) { a.length = std::max(a.length, end); }
uint16_t get16(const Accept& a, uint32_t m) { return static_cast<uint16_t>(a.p.ops.get16(a.d + m)); }
void set_bits(Accept& a, uint32_t m, uint16_t bits) { a.p.ops.put16(a.d + m, get16(a, m) | bits); }
uint16_t field_format(const Accept& a) { return static_cast<uint16_t>(a.p.ops.get16(a.field + fsym::f_format)); }
bool numeric_field(const Accept& a) { return conv::fmt_numeric(field_format(a)); }

template <uint16_t Bits>
ClauseStep option_flag(Accept& a) {
  set_bits(a, adesc::ad_options, Bits);
  return ClauseStep::next;
}

template <uint16_t Bits>
ClauseStep display_flag(Accept& a) {
  set_bits(a, adesc::ad_display, Bits);
  return ClauseStep::next;
}

ClauseStep foreground(Accept& a) {
  a.p.ops.put16(a.d + adesc::ad_display, get16(a, adesc::ad_display) & ~disp::background);
  return ClauseStep::next;
}

ClauseStep position(Accept& a) {
  if (read_coordinates(a.p, a.d + adesc::ad_row, true)) check_review_area(a.p, a.d + adesc::ad_row, true);
  return ClauseStep::next;
}

ClauseStep justify(Accept& a) {
  if (numeric_field(a)) a.p.diag.error_text(txt::justify_needs_alpha, Context::current_token());
  if (a.p.ops.at(a.d + adesc::ad_fill)[0] != 0) a.p.diag.error(msg::duplicate_incompatible_clause);
  a.p.ops.at(a.d + adesc::ad_fill)[0] = ' ';
  set_bits(a, adesc::ad_options, opt::fill_left);
  reach(a, adesc::ad_fill + 1);
  return ClauseStep::next;
}

// FILL [WITH] [LEADING | TRAILING] SPACES | ZEROS | literal.
ClauseStep fill(Accept& a) {
  Parser& p = a.p;
  if (numeric_field(a)) p.diag.error_text(txt::fill_needs_alpha, Context::current_token());
  p.take(verb("with"));
  if (p.take(verb("leading"))) set_bits(a, adesc::ad_options, opt::fill_left);
  else p.take(verb("trailing"));
  uint32_t c = p.next();
  char with = 0;
  if (c == verb("spaces")) {
    with = ' ';
  } else if (c == verb("zeros")) {
    with = '0';
  } else if (c == kClassAlpha && !p.text().empty()) {
    with = p.text()[0];
    if (p.text().size() > 1) p.diag.warning_text(txt::fill_single_character, Context::current_token());
  } else {
    p.fail(msg::alpha_literal_expected);
    return ClauseStep::done;
  }
  p.ops.at(a.d + adesc::ad_fill)[0] = static_cast<uint8_t>(with);
  reach(a, adesc::ad_fill + 1);
  return ClauseStep::next;
}

ClauseStep auto_return(Accept& a) {
  a.p.diag.warning_text(txt::auto_return_not_implemented, Context::current_token());
  return option_flag<opt::auto_return>(a);
}

ClauseStep colour(Accept& a) {
  uint32_t at = a.d + adesc::ad_colour;
  ColourEnd end = read_colours(a.p, at, at + 3, false, true);
  reach(a, adesc::ad_colour + 6);
  if (end == ColourEnd::on_key) {  // the ON clause the colour ran into: not compiled yet
    a.p.diag.error_text(txt::clause_not_built, Context::current_token());
    a.p.tok.skip_to_statement();
    return ClauseStep::done;
  }
  return ClauseStep::next;
}

// TITLE, PROMPT or COLUMN-TITLE [IS] [text] [@ r,c].
ClauseStep title(Accept& a) {
  TitleRead read = read_title(a.p, a.d + adesc::ad_title, a.d + adesc::ad_title_pos, a.no_title);
  if (read.text) reach(a, adesc::ad_title + 3);
  if (read.position) reach(a, adesc::ad_title_pos + 6);
  return ClauseStep::next;
}

ClauseStep no_title(Accept& a) {
  a.no_title = true;
  return ClauseStep::next;
}

// DEFAULT [IS] value: the value's kind must be the field's.
ClauseStep default_value(Accept& a) {
  a.p.take(verb("is"));
  ExprType t = compile_expression_list(a.p, a.d + adesc::ad_default);
  if (!t.failed && t.alphanumeric() == numeric_field(a)) a.p.diag.error(msg::value_not_compatible_field);
  set_bits(a, adesc::ad_options, opt::optional);
  reach(a, adesc::ad_default + 3);
  return ClauseStep::next;
}

ClauseStep edit(Accept& a) {
  a.p.diag.error_text(txt::edit_clause_unsupported, Context::current_token());
  a.p.tok.skip_to_clause();
  return ClauseStep::next;
}

ClauseStep help(Accept& a) {
  a.p.take(verb("is"));
  alpha_list(a.p, a.d + adesc::ad_help, 'H');
  reach(a, adesc::ad_help + 3);
  return ClauseStep::next;
}

ClauseStep help_context(Accept& a) {
  a.p.take(verb("is"));
  compile_expression_list(a.p, a.d + adesc::ad_help_context);
  compile_operand(a.p, a.d + adesc::ad_help_context2, 0);
  reach(a, adesc::ad_help_context2 + 3);
  return ClauseStep::next;
}

template <uint32_t Slot, int32_t Limit>
ClauseStep operand(Accept& a) {
  a.p.take(verb("is"));
  compile_operand(a.p, a.d + Slot, Limit);
  reach(a, Slot + 3);
  return ClauseStep::next;
}

ClauseStep tag(Accept& a) {
  if (read_tag(a.p, a.d + adesc::ad_tag)) reach(a, adesc::ad_tag + 2);
  return ClauseStep::next;
}

ClauseStep when(Accept& a) {
  compile_condition_list(a.p, a.d + adesc::ad_when);
  reach(a, adesc::ad_when + 3);
  return ClauseStep::next;
}

// PICTURE or PIC p: read as one raw word. A second picture is read and thrown away.
ClauseStep picture(Accept& a) {
  Parser& p = a.p;
  const std::string text = read_raw_picture(p);
  if (a.picture) return ClauseStep::next;
  a.picture = true;
  PictureResult pic = parse_picture(text);
  if (pic.kind == PictureKind::invalid) {
    p.diag.error(msg::invalid_picture_string);
    return ClauseStep::next;
  }
  if (conv::fmt_numeric(pic.format) != numeric_field(a)) p.diag.error(msg::picture_not_compatible_field_expression);
  p.ops.put16(a.d + adesc::ad_type, pic.format);
  p.ops.put16(a.d + adesc::ad_length, pic.width);
  if (conv::fmt_numeric(pic.format)) p.ops.put24(a.d + adesc::ad_picture, p.ops.store_text(pic.text));
  if (pic.kind == PictureKind::edited) set_bits(a, adesc::ad_options, opt::edited);
  return ClauseStep::next;
}

// The clauses not compiled yet are reported, so that no table is written without them, and
// passed over: a clause that holds statements up to its closing word.
template <uint32_t EndWord>
ClauseStep not_built(Accept& a) {
  Parser& p = a.p;
  p.diag.error_text(txt::clause_not_built, Context::current_token());
  if (EndWord == 0) {
    p.tok.skip_to_clause();
    return ClauseStep::next;
  }
  for (uint32_t c = p.next(); c != EndWord && !(c & kSectionStart); c = p.next()) p.accept();
  if (p.cls() == EndWord) p.accept();
  else p.push_back();
  return ClauseStep::next;
}

constexpr uint32_t kNoClear = verb("no_clear"), kShowValue = verb("show_value");

constexpr ClauseRow<Accept> kAcceptClauses[] = {
    {verb("@"), Given::once, {}, position},
    {verb("upper_case"), Given::repeatable, {}, option_flag<opt::upper>},
    {verb("lower_case"), Given::repeatable, {}, option_flag<opt::lower>},
    {verb("justify"), Given::repeatable, {}, justify},
    {verb("fill"), Given::once, {verb("justify")}, fill},
    {verb("auto_return"), Given::repeatable, {}, auto_return},
    {verb("blank"), Given::repeatable, {}, option_flag<opt::blank>},
    {verb("colour"), Given::once, {}, colour},
    {verb("title"), Given::once, {verb("prompt"), verb("column_title")}, title},
    {verb("prompt"), Given::once, {verb("title"), verb("column_title")}, title},
    {verb("column_title"), Given::once, {verb("title"), verb("prompt")}, title},
    {verb("no_title"), Given::repeatable, {}, no_title},
    {verb("default"), Given::once, {}, default_value},
    {verb("edit"), Given::repeatable, {}, edit},
    {verb("fixed_width_font"), Given::repeatable, {}, display_flag<disp::fixed_font>},
    {verb("blink"), Given::repeatable, {}, display_flag<disp::blink>},
    {verb("left"), Given::repeatable, {}, display_flag<disp::left>},
    {verb("right"), Given::repeatable, {}, display_flag<disp::right>},
    {verb("right_coordinate"), Given::repeatable, {}, display_flag<disp::right_coordinate>},
    {verb("centre"), Given::repeatable, {}, display_flag<disp::centre>},
    {verb("centre_coordinate"), Given::repeatable, {}, display_flag<disp::centre_coordinate>},
    {verb("sunken"), Given::repeatable, {}, display_flag<disp::sunken>},
    {verb("bold"), Given::repeatable, {}, display_flag<disp::bold>},
    {verb("inverse"), Given::repeatable, {}, display_flag<disp::inverse>},
    {verb("italic"), Given::repeatable, {}, display_flag<disp::italic>},
    {verb("underline"), Given::repeatable, {}, display_flag<disp::underline>},
    {verb("background"), Given::repeatable, {}, display_flag<disp::background>},
    {verb("dim"), Given::repeatable, {}, display_flag<disp::background>},
    {verb("foreground"), Given::repeatable, {}, foreground},
    {verb("help"), Given::once, {}, help},
    {verb("help_context"), Given::once, {}, help_context},
    {verb("no_clear"), Given::repeatable, {kShowValue}, option_flag<opt::no_clear>},
    {verb("show_value"), Given::repeatable, {kNoClear}, option_flag<opt::show_value>},
    {verb("optional"), Given::repeatable, {}, option_flag<opt::optional>},
    {verb("read_only"), Given::repeatable, {}, option_flag<opt::read_only>},
    {verb("suppress"), Given::repeatable, {}, option_flag<opt::suppress>},
    {verb("scale"), Given::once, {}, operand<adesc::ad_scale, -2>},
    {verb("tag"), Given::once, {}, tag},
    {verb("time_out"), Given::once, {}, operand<adesc::ad_timeout, 0>},
    {verb("picture"), Given::repeatable, {}, picture},
    {verb("when"), Given::once, {}, when},
    {verb("blank_when_zero"), Given::repeatable, {}, not_built<0>},
    {verb("blank_decimals_when_zero"), Given::repeatable, {}, not_built<0>},
    {verb("allowed"), Given::repeatable, {}, not_built<0>},
    {verb("disallowed"), Given::repeatable, {}, not_built<0>},
    {verb("look_up"), Given::repeatable, {}, not_built<0>},
    {verb("help_screen"), Given::repeatable, {}, not_built<0>},
    {verb("before_accept"), Given::repeatable, {}, not_built<verb("end_before_accept")>},
    {verb("validations"), Given::repeatable, {}, not_built<verb("end_validations")>},
    {verb("on"), Given::repeatable, {}, not_built<verb("end_on")>},
};

ClauseStep other_clause(Accept& a) { return skip_invalid_clause(a.p); }

// The field ACCEPTed, its subscript, type and display length. False when the statement was
// passed over.
bool read_field(Accept& a) {
  Parser& p = a.p;
  OpSpace& ops = p.ops;
  if (p.next() != kClassName) {
    p.fail(msg::field_name_expected);
    return false;
  }
  uint32_t object = 0;
  a.field = reference_field(p, p.text(), &object);
  if (a.field == 0) {
    p.tok.skip_to_statement();
    return false;
  }
  ops.put24(a.d + adesc::ad_field, a.field);
  if (object != 0) {
    ops.put24(a.d + adesc::ad_object, object);
    reach(a, adesc::ad_object + 3);
  }
  ops.put24(a.d + adesc::ad_subscript, compile_subscript(p, a.field));
  ops.put16(a.d + adesc::ad_type, field_format(a));
  ops.put16(a.d + adesc::ad_length, display_length(field_format(a), static_cast<char>(ops.at(a.field + fsym::f_type)[0])));
  return true;
}

// The flags the place of the ACCEPT gives.
void context_flags(Accept& a) {
  Parser& p = a.p;
  if (p.accepts_open.size() > 1 || p.cond_depth > 0) set_bits(a, adesc::ad_options, opt::nested);
  if (p.part == SectionPart::detail) {
    set_bits(a, adesc::ad_options, opt::detail);
    if (p.cond_depth == 0 && p.accepts_open.size() == 1)
      p.ops.put16(p.section + ssym::s_marks, p.ops.get16(p.section + ssym::s_marks) | ssym::mark_detail_accept);
  } else if ((p.section_kind & ssym::kind_mask) == ssym::kind_screen) {
    set_bits(a, adesc::ad_display, disp::background);
  }
}

// Validation text of the field's dictionary and its column title are not compiled yet: a field
// that has either is reported rather than accepted without them.
void dictionary_texts(Accept& a) {
  for (int kind : {kDocValidation, kDocColumnTitle})
    if (has_dictionary_text(a.p, a.field, kind))
      a.p.diag.error_text(txt::clause_not_built, a.p.syms.text(a.p.ops.get24(a.field + fsym::f_name)));
}

// Case and fill from the dictionary, the coordinates, TIMEOUT and the title.
void finalise(Accept& a) {
  Parser& p = a.p;
  OpSpace& ops = p.ops;
  uint16_t flags = static_cast<uint16_t>(ops.get16(a.field + fsym::f_flags));
  if (!(get16(a, adesc::ad_options) & (opt::upper | opt::lower)))
    set_bits(a, adesc::ad_options, flags & (opt::upper | opt::lower));
  if (ops.get24(a.d + adesc::ad_row) == 0) {
    if (get16(a, adesc::ad_options) & opt::suppress_bit) {
      ops.put24(a.d + adesc::ad_row, 1);
      ops.put24(a.d + adesc::ad_column, 1);
    } else {
      p.diag.error(msg::row_column_coordinates_mandatory);
    }
  }
  uint32_t column = ops.get24(a.d + adesc::ad_column);
  bool grid_detail = p.part == SectionPart::detail && (ops.get16(p.section + ssym::s_flags) & ssym::review_data_grid);
  if (!(column & kOperandList) && column + get16(a, adesc::ad_length) > kLineWidth && !grid_detail)
    p.diag.warning(msg::display_print_line_overflow);
  if (ops.get24(a.d + adesc::ad_timeout) != 0 && ops.get24(a.op + acceptop::ao_on_error) == 0)
    p.diag.error_text(txt::timeout_requires_on_error, Context::current_token());
  bool review = ops.get16(p.section + ssym::s_flags) & (ssym::review | ssym::review_data_grid);
  if (ops.get24(a.d + adesc::ad_when) != 0 && ops.get24(a.d + adesc::ad_title) != 0 &&
      !(get16(a, adesc::ad_options) & (opt::show_value | opt::no_clear)) && !review)
    p.diag.warning_text(txt::titles_not_conditional, p.syms.text(ops.get24(a.field + fsym::f_name)));
}

// The descriptor, cut to its length, goes into the op.
void store(Accept& a) {
  OpSpace& ops = a.p.ops;
  uint32_t stored = ops.copy_in(ops.at(a.d), a.length);
  ops.put24(a.op + acceptop::ao_desc, stored);
  ops.put16(a.op + acceptop::ao_length, a.length);
}

uint32_t open_descriptor(Parser& p, uint32_t op) {
  for (const auto& [o, d] : p.accepts_open)
    if (o == op) return d;
  return 0;
}

}  // namespace

// ACCEPT field clauses...
void compile_accept(Parser& p) {
  p.accept();
  if (p.ob.top().head == 0) p.ob.emit(Op::placeholder);
  p.ob.emit_statement_marker(verb("accept"));
  Accept a{p, p.ob.emit(Op::accept), p.ops.alloc(adesc::size)};
  p.ops.put24(a.d + adesc::ad_chain, p.accept_chain);
  if (p.ops.get24(p.section + ssym::s_confirm) != 0)
    p.diag.error(msg::statement_used_after_confirm);
  else
    p.accept_chain = a.op;
  p.accepts_open.emplace_back(a.op, a.d);
  if (read_field(a)) {
    context_flags(a);
    read_clauses(p, kAcceptClauses, a, other_clause);
    dictionary_texts(a);
    finalise(a);
  }
  store(a);
  p.accepts_open.pop_back();
}

bool has_dictionary_text(Parser& p, uint32_t field, int kind) {
  uint32_t id = p.ops.get16(field + fsym::f_fldid);
  auto dictno = static_cast<int16_t>(p.ops.get16(field + fsym::f_dictno));
  if (id == 0xffff || dictno < 0) return false;
  return !p.dictionaries->documentation(dictno, kind, static_cast<uint16_t>(id), kind == kDocValidation ? 1 : 0).empty();
}

uint32_t find_accept(Parser& p, uint32_t head, uint32_t field, uint32_t object, bool refresh) {
  const OpSpace& ops = p.ops;
  const uint16_t skip = refresh ? opt::suppress_bit : opt::suppress_bit | opt::read_only_bit | opt::display_only;
  for (uint32_t op = head; op != 0;) {
    if (ops.opcode(op) != Op::accept) {
      p.diag.warning_text(txt::find_accept_unknown_op, Context::current_token());
      return 0;
    }
    uint32_t d = ops.get24(op + acceptop::ao_desc);
    uint32_t length = ops.get16(op + acceptop::ao_length);
    if (d == 0) {
      d = open_descriptor(p, op);
      length = adesc::size;
    }
    if (d == 0) p.diag.fatal_text(txt::find_accept_internal, Context::current_token());
    if (field == 0) return op;
    uint32_t qualifier = length > adesc::ad_object ? ops.get24(d + adesc::ad_object) : 0;
    if (!(ops.get16(d + adesc::ad_options) & skip) && ops.get24(d + adesc::ad_field) == field && qualifier == object)
      return op;
    op = ops.get24(d + adesc::ad_chain);
  }
  return 0;
}

}  // namespace tav
