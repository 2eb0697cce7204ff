// The item layer of DISPLAY and PRINT: the value of an item, its type, and the clauses that
// place and dress it.

#include "statements/display_items.h"

#include <algorithm>
#include <string>

#include "codegen/convert.h"
#include "expr/expr.h"
#include "statements/accept.h"
#include "statements/parser.h"
#include "statements/records.h"
#include "statements/screen_clauses.h"
#include "symbols/clauses.h"
#include "symbols/dictionary.h"
#include "symbols/picture.h"
#include "symbols/records.h"
#include "symbols/reports.h"

namespace tav {

namespace {

constexpr uint32_t kMaxNumericDigits = 18;

struct Item {
  Parser& p;
  ItemRun& run;
  uint32_t d;          // the item being built (ditem::size bytes)
  ExprType type;
  uint32_t field = 0;  // the value's field when the value is one field reference
  bool positioned = false;
  bool column_given = false;  // PRINT: COL or IN COL
  bool no_title = false;
  bool foreground = false;
};

bool is_display(const Item& i) { return i.run.kind == ItemStatement::display; }
bool is_print(const Item& i) { return i.run.kind == ItemStatement::print; }
uint16_t flags(const Item& i) { return static_cast<uint16_t>(i.p.ops.get16(i.d + ditem::di_flags)); }
void set_flags(Item& i, uint16_t bits) { i.p.ops.put16(i.d + ditem::di_flags, flags(i) | bits); }
void set_width(Item& i, uint32_t width) { i.p.ops.at(i.d + ditem::di_width)[0] = width > 255 ? 0 : static_cast<uint8_t>(width); }

// --- the value ------------------------------------------------------------------------------

void field_value(Item& i, uint32_t ref) {
  OpSpace& ops = i.p.ops;
  i.field = ops.get24(ref + fieldref::fr_field);
  auto format = static_cast<uint16_t>(ops.get16(ref + fieldref::fr_format));
  char letter = static_cast<char>(ops.at(i.field + fsym::f_type)[0]);
  ops.put16(i.d + ditem::di_type, format);
  ops.at(i.d + ditem::di_letter)[0] = static_cast<uint8_t>(letter);
  set_width(i, display_length(format, letter));
}

// A computed number: its integer digits plus one, as many as fit beside the decimals.
void numeric_value(Item& i) {
  char letter = i.type.kind == 'D' || i.type.kind == 'T' ? i.type.kind : 'N';
  uint32_t decimals = letter == 'N' ? i.type.decimals : 0;
  uint32_t digits = std::min<uint32_t>(i.type.digits + 1u, kMaxNumericDigits - decimals);
  auto format = static_cast<uint16_t>(0x4400 + digits * 32 + decimals);
  i.p.ops.put16(i.d + ditem::di_type, format);
  i.p.ops.at(i.d + ditem::di_letter)[0] = static_cast<uint8_t>(letter);
  set_width(i, display_length(format, letter));
}

// An alphanumeric expression has no type word and no width; a literal text becomes a text item.
void alpha_value(Item& i, uint32_t head, bool single) {
  OpSpace& ops = i.p.ops;
  ops.at(i.d + ditem::di_letter)[0] = static_cast<uint8_t>(i.type.kind == 'N' ? 'N' : i.type.kind);
  if (single && ops.opcode(head) == Op::literal) i.p.ob.make_text_item_op(head, is_display(i) ? 'D' : 'P');
}

// Returns false when the statement was abandoned.
bool read_value(Item& i) {
  OpSpace& ops = i.p.ops;
  i.type = compile_expression_list(i.p, i.d + ditem::di_value);
  if (i.type.failed) return false;
  uint32_t head = ops.get24(i.d + ditem::di_value);
  bool single = head != 0 && ops.get24(head) == 0;
  if (single && ops.opcode(head) == Op::field_ref) field_value(i, head);
  else if (i.type.alphanumeric()) alpha_value(i, head, single);
  else numeric_value(i);
  return true;
}

// --- the clauses ----------------------------------------------------------------------------

template <uint16_t Bits>
ClauseStep flag(Item& i) {
  set_flags(i, Bits);
  return ClauseStep::next;
}

// --- the clauses of PRINT alone ---------------------------------------------------------------

constexpr uint32_t kMaxPrintRow = 999, kMaxPrintColumn = 255, kMaxColumn = 300, kMaxFont = 15;

bool immediate(uint32_t operand) { return (operand & kOperandList) == 0; }

// @ r,c on a page: the row up to 999, the column 1 to 255; a literal 0 is no place on it.
ClauseStep print_position(Item& i) {
  Parser& p = i.p;
  if (i.column_given) p.diag.error(msg::duplicate_incompatible_clause);
  i.positioned = true;
  compile_operand(p, i.d + ditem::di_row, kMaxPrintRow);
  if (p.ops.get24(i.d + ditem::di_row) == 0) p.diag.error(msg::row_column_invalid_out_range);
  if (!expression_follows(p)) {
    p.diag.error(msg::row_column_coordinates_expected);
    return ClauseStep::next;
  }
  Operand c = compile_operand(p, i.d + ditem::di_column, 0);
  const uint32_t column = p.ops.get24(i.d + ditem::di_column);
  if (c.literal && immediate(column) && (column == 0 || column > kMaxPrintColumn))
    p.diag.error(msg::row_column_invalid_out_range);
  return ClauseStep::next;
}

ClauseStep position(Item& i) {
  if (is_print(i)) return print_position(i);
  i.positioned = true;
  if (read_coordinates(i.p, i.d + ditem::di_row, true)) check_review_area(i.p, i.d + ditem::di_row, false);
  return ClauseStep::next;
}

// COL, COLUMN n: a PRINT column, 1 to 300; no DISPLAY clause.
ClauseStep column(Item& i) {
  Parser& p = i.p;
  if (!is_print(i)) return skip_invalid_clause(p);
  if (i.positioned || i.column_given) p.diag.error(msg::duplicate_incompatible_clause);
  i.column_given = true;
  read_coordinate(p, i.d + ditem::di_column, false, kMaxColumn);
  return ClauseStep::next;
}

// IN COL n: the same as COL n.
ClauseStep in_column(Item& i) {
  Parser& p = i.p;
  if (is_print(i) && p.next() == verb("column")) return column(i);
  if (is_print(i)) p.push_back();
  p.diag.error(msg::syntax_error);
  p.tok.skip_to_clause();
  return ClauseStep::next;
}

// FONT [IS] n: a numeric literal 1 to 15.
ClauseStep font(Item& i) {
  Parser& p = i.p;
  p.take(verb("is"));
  if (p.next() != kClassNumeric) {
    p.diag.error(msg::numeric_literal_expected);
    p.tok.skip_to_clause();
    return ClauseStep::next;
  }
  const double v = p.tok.value();
  if (v < 1 || v > kMaxFont || v != static_cast<uint32_t>(v)) {
    p.diag.error(msg::numeric_value_invalid_out_range);
    return ClauseStep::next;
  }
  p.ops.at(i.d + ditem::di_font)[0] = static_cast<uint8_t>(v);
  return ClauseStep::next;
}

// SECTION text: the report section of every item of the statement.
ClauseStep section(Item& i) {
  PrintRun& run = i.run.print;
  if (run.section_given) i.p.diag.error(msg::duplicate_incompatible_clause);
  run.section_given = true;
  alpha_list(i.p, i.d + ditem::di_section, 0);
  run.section = i.p.ops.get24(i.d + ditem::di_section);
  i.p.ops.put24(i.d + ditem::di_section, 0);  // set on every item when the statement ends
  return ClauseStep::next;
}

// ON name: the report every item of the statement goes to.
ClauseStep on_report(Item& i) {
  Parser& p = i.p;
  PrintRun& run = i.run.print;
  if (run.on_given) p.diag.error(msg::duplicate_incompatible_clause);
  run.on_given = true;
  if (p.next() != kClassName) {
    p.diag.error(msg::report_name_not_defined);
    p.push_back();
    p.tok.skip_to_clause();
    return ClauseStep::next;
  }
  run.report = find_or_create_report(p.ops, p.text());
  p.syms.note_used(run.report);
  p.syms.note_name(XrefKind::report, run.report, p.text());
  return ClauseStep::next;
}

ClauseStep no_new_line(Item& i) {
  i.run.print.no_new_line = true;
  return ClauseStep::next;
}

// PICTURE or PIC p, read as one raw word.
ClauseStep picture(Item& i) {
  Parser& p = i.p;
  PictureResult pic = parse_picture(read_raw_picture(p));
  if (pic.kind == PictureKind::invalid) {
    p.diag.error(msg::invalid_picture_string);
    return ClauseStep::next;
  }
  if (conv::fmt_numeric(pic.format) == i.type.alphanumeric()) p.diag.error(msg::picture_not_compatible_field_expression);
  p.ops.put16(i.d + ditem::di_type, pic.format);
  set_width(i, pic.width);
  if (conv::fmt_numeric(pic.format)) p.ops.put24(i.d + ditem::di_picture, p.ops.store_text(pic.text));
  return ClauseStep::next;
}

// BLANK-WHEN-ZERO, BLANK-DECIMALS-WHEN-ZERO: a picture made from the value's type.
ClauseStep blank(Item& i) {
  Parser& p = i.p;
  if (i.type.alphanumeric()) {
    p.diag.error(msg::field_must_numeric);
    return ClauseStep::next;
  }
  const auto format = static_cast<uint16_t>(p.ops.get16(i.d + ditem::di_type));
  PictureResult pic = blank_zero_picture(format, p.cls() == verb("blank_decimals_when_zero"));
  if (pic.kind != PictureKind::invalid) p.ops.put24(i.d + ditem::di_picture, p.ops.store_text(pic.text));
  return ClauseStep::next;
}

ClauseStep colour(Item& i) {
  read_colours(i.p, i.d + ditem::di_foreground, i.d + ditem::di_background, false, false);
  set_flags(i, item::long_form);
  return ClauseStep::next;
}

// TAG: a number in a DISPLAY, a text in a PRINT.
ClauseStep tag(Item& i) {
  if (is_display(i)) {
    read_tag(i.p, i.d + ditem::di_tag);
  } else {
    i.p.take(verb("is"));
    alpha_list(i.p, i.d + ditem::di_print_tag, 0);
  }
  set_flags(i, item::long_form);
  return ClauseStep::next;
}

ClauseStep title(Item& i) {
  TitleRead read = read_title(i.p, i.d + ditem::di_title, i.d + ditem::di_title_pos, i.no_title);
  if (read.text || read.position) set_flags(i, item::long_form);
  return ClauseStep::next;
}

ClauseStep no_title(Item& i) {
  i.no_title = true;
  return ClauseStep::next;
}

ClauseStep scale(Item& i) {
  i.p.take(verb("is"));
  compile_operand(i.p, i.d + ditem::di_scale, -2);
  set_flags(i, item::long_form);
  return ClauseStep::next;
}

ClauseStep foreground(Item& i) {
  i.foreground = true;
  return ClauseStep::next;
}

ClauseStep not_implemented(Item& i) {
  i.p.diag.error_text(txt::clause_not_implemented, Context::current_token());
  i.p.tok.skip_to_clause();
  return ClauseStep::next;
}

// A clause keyword no row opens is a syntax error; any other word starts the next item. NO
// NEW-LINE is the two-word form of NO-NEW-LINE.
ClauseStep other_word(Item& i) {
  if (is_print(i) && i.p.cls() == verb("no")) {
    if (i.p.next() == verb("new_line")) return no_new_line(i);
    i.p.push_back();
  }
  if (i.p.cls() & kClauseWord) {
    i.p.diag.error(msg::syntax_error);
    i.p.tok.skip_to_clause();
    return ClauseStep::next;
  }
  i.p.push_back();
  return ClauseStep::done;
}

bool display_only(const Item& i) { return is_display(i); }
bool print_only(const Item& i) { return is_print(i); }

constexpr uint32_t kPicture = verb("picture"), kBlank = verb("blank_when_zero");
constexpr uint32_t kBlankDecimals = verb("blank_decimals_when_zero");
constexpr uint32_t kPrompt = verb("prompt"), kData = verb("data"), kSunken = verb("sunken");

constexpr ClauseRow<Item> kItemClauses[] = {
    {verb("@"), Given::once, {}, position},
    {verb("column"), Given::once, {}, column},
    {verb("in"), Given::once, {}, in_column},
    {verb("picture"), Given::once, {kBlank, kBlankDecimals}, picture},
    {verb("blank_when_zero"), Given::once, {kPicture, kBlankDecimals}, blank},
    {verb("blank_decimals_when_zero"), Given::once, {kPicture, kBlank}, blank},
    {verb("colour"), Given::once, {}, colour},
    {verb("tag"), Given::once, {}, tag},
    {verb("title"), Given::once, {verb("column_title")}, title, display_only},
    {verb("column_title"), Given::once, {verb("title")}, title, display_only},
    {verb("no_title"), Given::repeatable, {}, no_title, display_only},
    {verb("scale"), Given::once, {}, scale},
    {verb("background"), Given::repeatable, {}, flag<item::dim>, display_only},
    {verb("foreground"), Given::repeatable, {}, foreground, display_only},
    {verb("prompt"), Given::repeatable, {kData, kSunken}, flag<item::prompt>, display_only},
    {verb("data"), Given::repeatable, {kPrompt}, flag<item::data>, display_only},
    {verb("sunken"), Given::repeatable, {kPrompt}, flag<item::sunken>, display_only},
    {verb("blink"), Given::repeatable, {}, flag<item::blink>, display_only},
    {verb("right_coordinate"), Given::repeatable, {}, flag<item::right_coordinate>, display_only},
    {verb("centre_coordinate"), Given::repeatable, {}, flag<item::centre_coordinate>, display_only},
    {verb("static"), Given::repeatable, {}, flag<item::print_static>, print_only},
    {verb("super_script"), Given::repeatable, {}, flag<item::super_script>, print_only},
    {verb("sub_script"), Given::repeatable, {}, flag<item::sub_script>, print_only},
    {verb("left"), Given::repeatable, {}, flag<item::left>},
    {verb("right"), Given::repeatable, {}, flag<item::right>},
    {verb("centre"), Given::repeatable, {}, flag<item::centre>},
    {verb("bold"), Given::repeatable, {}, flag<item::bold>},
    {verb("italic"), Given::repeatable, {}, flag<item::italic>},
    {verb("underline"), Given::repeatable, {}, flag<item::underline>},
    {verb("inverse"), Given::repeatable, {}, flag<item::inverse>},
    {verb("dim"), Given::repeatable, {}, flag<item::dim>},
    {verb("fixed_width_font"), Given::repeatable, {}, flag<item::fixed_font>},
    {verb("bell"), Given::repeatable, {}, flag<item::bell>},
    {verb("font"), Given::once, {}, font, print_only},
    {verb("section"), Given::repeatable, {}, section, print_only},
    {verb("on"), Given::repeatable, {}, on_report, print_only},
    {verb("no_new_line"), Given::repeatable, {}, no_new_line, print_only},
    {verb("point"), Given::repeatable, {}, not_implemented, print_only},
    {verb("pitch"), Given::repeatable, {}, not_implemented, print_only},
};

// The flags the place of a DISPLAY gives, and its checks.
void display_context(Item& i) {
  Parser& p = i.p;
  if (!i.positioned && i.run.items == 0) p.diag.error(msg::row_column_coordinates_mandatory);
  if (p.part != SectionPart::before) set_flags(i, item::placed_after_before);
  uint16_t kind = p.section_kind & ssym::kind_mask;
  bool screen = kind == ssym::kind_screen || kind == ssym::kind_menu;
  if (screen && p.part != SectionPart::detail && !i.foreground && (flags(i) & item::data) != item::data)
    set_flags(i, item::dim);
  bool grid_detail = p.part == SectionPart::detail && (p.ops.get16(p.section + ssym::s_flags) & ssym::review_data_grid);
  if (grid_detail && i.field != 0 && !i.no_title && p.ops.get24(i.d + ditem::di_title) == 0) {
    if (const uint32_t title = dictionary_column_title(p, i.field); title != 0) {
      p.ops.put24(i.d + ditem::di_title, title);
      set_flags(i, item::long_form);
    }
  }
}

// The part of the page a PRINT item covers: the running column moves to the item's literal
// column and past its width; the row counts when it is a literal.
void print_extent(Item& i) {
  OpSpace& ops = i.p.ops;
  PrintRun& run = i.run.print;
  const uint32_t column = ops.get24(i.d + ditem::di_column);
  if (column != 0 && immediate(column)) run.column = column;
  run.column += ops.at(i.d + ditem::di_width)[0];
  run.widest_column = std::max(run.widest_column, run.column);
  const uint32_t row = ops.get24(i.d + ditem::di_row);
  if (row == 0 && !i.positioned) return;
  run.row_given = true;
  run.lowest_row = std::max(run.lowest_row, immediate(row) ? row : 1u);
}

uint32_t item_length(const Item& i) {
  if (is_print(i)) return kPrintItem;
  return (flags(i) & item::long_form) ? kLongItem : kShortItem;
}

}  // namespace

ReadItem read_item(Parser& p, ItemRun& run) {
  Item i{p, run, p.ops.alloc(ditem::size), {}};
  if (is_print(i)) set_flags(i, item::long_form);  // a PRINT item is always whole
  if (!read_value(i)) return {};
  read_clauses(p, kItemClauses, i, other_word);
  if (is_display(i)) display_context(i);
  else print_extent(i);
  ++run.items;
  uint32_t length = item_length(i);
  return {p.ops.copy_in(p.ops.at(i.d), length), length};
}

}  // namespace tav
