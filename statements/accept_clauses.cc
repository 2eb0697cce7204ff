// The clauses of ACCEPT: one row per clause word, read from the program and, for a dictionary
// field, again from the field's validation text.

#include <array>
#include <cstring>
#include <string>

#include "codegen/convert.h"
#include "expr/expr.h"
#include "statements/accept_internal.h"
#include "statements/screen_clauses.h"
#include "symbols/picture.h"

namespace tav {

bool Accept::numeric_field() const { return conv::fmt_numeric(field_format()); }

namespace {

template <uint16_t Bits>
ClauseStep option_flag(Accept& a) {
  a.set_bits(adesc::ad_options, Bits);
  return ClauseStep::next;
}

template <uint16_t Bits>
ClauseStep display_flag(Accept& a) {
  a.set_bits(adesc::ad_display, Bits);
  return ClauseStep::next;
}

// UPPER-CASE and LOWER-CASE: in the validation text a case the program chose stays.
template <uint16_t Bits, uint16_t Other>
ClauseStep letter_case(Accept& a) {
  if (!(a.dictionary && (a.get16(adesc::ad_options) & Other))) a.set_bits(adesc::ad_options, Bits);
  return ClauseStep::next;
}

ClauseStep foreground(Accept& a) {
  a.p.ops.put16(a.d + adesc::ad_display, a.get16(adesc::ad_display) & ~disp::background);
  return ClauseStep::next;
}

ClauseStep position(Accept& a) {
  if (read_coordinates(a.p, a.d + adesc::ad_row, true)) check_review_area(a.p, a.d + adesc::ad_row, true);
  return ClauseStep::next;
}

ClauseStep justify(Accept& a) {
  if (a.numeric_field()) a.p.diag.error_text(txt::justify_needs_alpha, Context::current_token());
  if (a.p.ops.at(a.d + adesc::ad_fill)[0] != 0 && !a.dictionary) a.p.diag.error(msg::duplicate_incompatible_clause);
  a.p.ops.at(a.d + adesc::ad_fill)[0] = ' ';
  a.set_bits(adesc::ad_options, opt::fill_left);
  a.reach(adesc::ad_fill + 1);
  return ClauseStep::next;
}

// FILL [WITH] [LEADING | TRAILING] SPACES | ZEROS | literal.
ClauseStep fill(Accept& a) {
  Parser& p = a.p;
  if (a.numeric_field()) p.diag.error_text(txt::fill_needs_alpha, Context::current_token());
  p.take(verb("with"));
  bool leading = p.take(verb("leading"));
  if (!leading) p.take(verb("trailing"));
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
  if (leading) a.set_bits(adesc::ad_options, opt::fill_left);
  p.ops.at(a.d + adesc::ad_fill)[0] = static_cast<uint8_t>(with);
  a.reach(adesc::ad_fill + 1);
  return ClauseStep::next;
}

ClauseStep auto_return(Accept& a) {
  a.p.diag.warning_text(txt::auto_return_not_implemented, Context::current_token());
  return option_flag<opt::auto_return>(a);
}

// COLOUR fg [ON bg]; an ON that turns out to start an ON clause is read as one.
ClauseStep colour(Accept& a) {
  uint32_t at = a.d + adesc::ad_colour;
  ColourEnd end = read_colours(a.p, at, at + 3, false, true);
  a.reach(adesc::ad_colour + 6);
  return end == ColourEnd::on_key ? accept_on_key(a) : ClauseStep::next;
}

// TITLE, PROMPT or COLUMN-TITLE [IS] [text] [@ r,c]. The validation text cannot replace the
// program's title.
ClauseStep title(Accept& a) {
  bool keep = a.dictionary && a.p.ops.get24(a.d + adesc::ad_title) != 0;
  TitleRead read = read_title(a.p, a.d + adesc::ad_title, a.d + adesc::ad_title_pos, a.no_title || keep, a.dictionary);
  if (read.text) a.reach(adesc::ad_title + 3);
  if (read.position) a.reach(adesc::ad_title_pos + 6);
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
  if (!t.failed && t.alphanumeric() == a.numeric_field()) a.p.diag.error(msg::value_not_compatible_field);
  a.set_bits(adesc::ad_options, opt::optional);
  a.reach(adesc::ad_default + 3);
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
  a.reach(adesc::ad_help + 3);
  return ClauseStep::next;
}

ClauseStep help_context(Accept& a) {
  a.p.take(verb("is"));
  compile_expression_list(a.p, a.d + adesc::ad_help_context);
  compile_operand(a.p, a.d + adesc::ad_help_context2, 0);
  a.reach(adesc::ad_help_context2 + 3);
  return ClauseStep::next;
}

template <uint32_t Slot, int32_t Limit>
ClauseStep operand(Accept& a) {
  a.p.take(verb("is"));
  compile_operand(a.p, a.d + Slot, Limit);
  a.reach(Slot + 3);
  return ClauseStep::next;
}

ClauseStep tag(Accept& a) {
  if (read_tag(a.p, a.d + adesc::ad_tag)) a.reach(adesc::ad_tag + 2);
  return ClauseStep::next;
}

ClauseStep when(Accept& a) {
  compile_condition_list(a.p, a.d + adesc::ad_when);
  a.reach(adesc::ad_when + 3);
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
  if (conv::fmt_numeric(pic.format) != a.numeric_field()) p.diag.error(msg::picture_not_compatible_field_expression);
  p.ops.put16(a.d + adesc::ad_type, pic.format);
  p.ops.put16(a.d + adesc::ad_length, pic.width);
  if (conv::fmt_numeric(pic.format)) p.ops.put24(a.d + adesc::ad_picture, p.ops.store_text(pic.text));
  if (pic.kind == PictureKind::edited) a.set_bits(adesc::ad_options, opt::edited);
  return ClauseStep::next;
}

// BLANK-WHEN-ZERO, BLANK-DECIMALS-WHEN-ZERO: the picture is made when the clauses end.
template <BlankZero Kind>
ClauseStep blank_zero(Accept& a) {
  if (a.picture) a.p.diag.error(msg::duplicate_incompatible_clause);
  if (!a.numeric_field()) a.p.diag.error(msg::field_must_numeric);
  else a.blank_zero = Kind;
  return ClauseStep::next;
}

constexpr uint32_t kNoClear = verb("no_clear"), kShowValue = verb("show_value");
constexpr uint32_t kPicture = verb("picture"), kBlank = verb("blank_when_zero");
constexpr uint32_t kBlankDecimals = verb("blank_decimals_when_zero");

constexpr ClauseRow<Accept> kAcceptClauses[] = {
    {verb("@"), Given::once, {}, position},
    {verb("upper_case"), Given::repeatable, {}, letter_case<opt::upper, opt::lower>},
    {verb("lower_case"), Given::repeatable, {}, letter_case<opt::lower, opt::upper>},
    {verb("justify"), Given::repeatable, {}, justify},
    {verb("fill"), Given::once, {verb("justify")}, fill},
    {verb("allowed"), Given::repeatable, {}, accept_allowed},
    {verb("disallowed"), Given::repeatable, {}, accept_disallowed},
    {verb("auto_return"), Given::repeatable, {}, auto_return},
    {verb("before_accept"), Given::repeatable, {}, accept_before},
    {verb("validations"), Given::repeatable, {}, accept_validations},
    {verb("on"), Given::repeatable, {}, accept_on},
    {verb("blank"), Given::repeatable, {}, option_flag<opt::blank>},
    {kBlank, Given::once, {kBlankDecimals}, blank_zero<BlankZero::whole>},
    {kBlankDecimals, Given::once, {kBlank}, blank_zero<BlankZero::decimals>},
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
    {verb("help_screen"), Given::repeatable, {}, accept_help_screen},
    {verb("look_up"), Given::repeatable, {}, accept_lookup},
    {kNoClear, Given::repeatable, {kShowValue}, option_flag<opt::no_clear>},
    {kShowValue, Given::repeatable, {kNoClear}, option_flag<opt::show_value>},
    {verb("optional"), Given::repeatable, {}, option_flag<opt::optional>},
    {verb("read_only"), Given::repeatable, {}, option_flag<opt::read_only>},
    {verb("suppress"), Given::repeatable, {}, option_flag<opt::suppress>},
    {verb("scale"), Given::once, {}, operand<adesc::ad_scale, -2>},
    {verb("tag"), Given::once, {}, tag},
    {verb("time_out"), Given::once, {}, operand<adesc::ad_timeout, 0>},
    {kPicture, Given::repeatable, {kBlank, kBlankDecimals}, picture},
    {verb("when"), Given::once, {}, when},
};

// The clauses a field's validation text may not hold.
constexpr uint32_t kProgramOnly[] = {verb("@"), verb("when"), verb("validations"), verb("on")};

// The members a clause of the validation text cannot change once the program has set them. The
// flag words, the type and the picture follow rules of their own.
struct Slot {
  uint32_t offset, width;
};
constexpr Slot kKeptSlots[] = {
    {adesc::ad_help, 3},       {adesc::ad_title, 3},       {adesc::ad_default, 3},  {adesc::ad_allowed, 3},
    {adesc::ad_title_pos, 6},  {adesc::ad_disallowed, 3},  {adesc::ad_fill, 1},     {adesc::ad_lookup, 3},
    {adesc::ad_before, 3},     {adesc::ad_colour, 6},      {adesc::ad_timeout, 3},  {adesc::ad_tag, 2},
    {adesc::ad_help_screen, 3}, {adesc::ad_help_context, 6}, {adesc::ad_scale, 3},
};

ClauseStep other_clause(Accept& a) { return skip_invalid_clause(a.p); }

// One clause of the validation text: error 101 for a clause only the program may give; a
// clause whose member the program set is read and its value dropped.
void dictionary_clause(Accept& a) {
  Parser& p = a.p;
  for (uint32_t word : kProgramOnly) {
    if (p.cls() == word) {
      p.diag.error(msg::clause_cannot_specified_dictionary);
      p.accept();
      p.tok.skip_to_clause();
      return;
    }
  }
  std::array<uint8_t, adesc::size> before{};
  std::memcpy(before.data(), p.ops.at(a.d), before.size());
  ClausesSeen seen;  // a clause the program gave is no error here
  ClauseStep step = ClauseStep::next;
  if (apply_clause(p, std::span<const ClauseRow<Accept>>(kAcceptClauses), a, seen, step) == nullptr)
    other_clause(a);
  for (const Slot& s : kKeptSlots) {
    bool set = false;
    for (uint32_t i = 0; i < s.width; ++i) set = set || before[s.offset + i] != 0;
    if (set) std::memcpy(p.ops.at(a.d + s.offset), before.data() + s.offset, s.width);
  }
}

}  // namespace

void read_accept_clauses(Accept& a) {
  Parser& p = a.p;
  if (!a.dictionary) {
    read_clauses(p, kAcceptClauses, a, other_clause);
    return;
  }
  // The validation text ends where the program's next statement is delivered again; a statement
  // word inside the text is no clause.
  const LineSource* text = p.tok.line_source();
  for (;;) {
    p.next();
    if (p.tok.line_source() != text) return;
    if (p.at_statement_start() && clause_detail::find(std::span<const ClauseRow<Accept>>(kAcceptClauses), p.cls()) == nullptr) {
      p.accept();
      p.diag.error(msg::invalid_clause);
      continue;
    }
    dictionary_clause(a);
  }
}

}  // namespace tav
