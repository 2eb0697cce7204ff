// The clause parsers shared by screen statements and section headers.

#include "statements/screen_clauses.h"

#include <utility>

#include "codegen/convert.h"
#include "codegen/op_records.h"
#include "expr/expr.h"
#include "statements/block.h"
#include "statements/parser.h"
#include "symbols/records.h"

namespace tav {

namespace {

constexpr int32_t kCoordinateMax = 255;

uint16_t review_word(Parser& p) { return static_cast<uint16_t>(p.ops.get16(p.section + ssym::s_flags)); }

bool in_data_grid_detail(Parser& p) {
  return p.part == SectionPart::detail && (review_word(p) & ssym::review_data_grid);
}

}  // namespace

int32_t read_coordinate(Parser& p, uint32_t dest, bool screen, int32_t highest) {
  Operand v = compile_operand(p, dest, screen ? -2 : 0);
  if (v.type.failed || !v.literal) return -1;
  if (v.value < 1 || v.value > highest) {
    p.diag.error(msg::row_column_invalid_out_range);
    return -1;
  }
  if (p.ops.get24(dest) & kOperandList) p.max_opt_ver(7);
  return static_cast<int32_t>(v.value);
}

namespace {

// A literal coordinate against one pair of window edges, each taken when it is an immediate.
bool outside(const OpSpace& ops, uint32_t low_edge, uint32_t high_edge, int32_t value) {
  uint32_t low = ops.get24(low_edge), high = ops.get24(high_edge);
  if (!(low & kOperandList) && value < static_cast<int32_t>(low)) return true;
  return !(high & kOperandList) && high != 0 && value > static_cast<int32_t>(high);
}

// Warning 3 for a literal position outside the section's window.
void check_against_window(Parser& p, int32_t row, int32_t column) {
  const OpSpace& ops = p.ops;
  uint32_t top = p.section + ssym::s_window_top, bottom = p.section + ssym::s_window_bottom;
  uint32_t corner = ops.get24(top);
  if (corner == 0 || (corner & kOperandList)) return;
  bool bad = row > 0 && outside(ops, top, bottom, row);
  if (column > 0 && !in_data_grid_detail(p) && outside(ops, top + 3, bottom + 3, column)) bad = true;
  if (bad) p.diag.warning(msg::row_column_invalid_out_range);
}

// The key words an ON may lead to after a colour.
bool is_on_key_word(uint32_t c) {
  return c == verb("help_key") || c == verb("error") || c == verb("index") || c == verb("left_arrow") ||
         c == verb("right_arrow") || c == verb("up_arrow") || c == verb("down_arrow");
}

// One colour operand; an immediate must be 0 or have bit 15 set. Returns the immediate, or -1.
int64_t read_one_colour(Parser& p, uint32_t dest) {
  Operand v = compile_operand(p, dest, 0);
  uint32_t stored = p.ops.get24(dest);
  if (v.type.failed || (stored & kOperandList)) return -1;
  if (stored != 0 && !(stored & 0x8000)) p.diag.error_text(txt::not_a_valid_colour, Context::current_token());
  return stored;
}

}  // namespace

bool expression_follows(Parser& p) {
  uint32_t c = p.next();
  p.push_back();
  return !p.at_statement_start() && !(c & kClauseWord);
}

void read_position(Parser& p, uint32_t dest) {
  compile_operand(p, dest, -2);
  if (!expression_follows(p)) {
    p.diag.error(msg::row_column_coordinates_expected);
    return;
  }
  compile_operand(p, dest + 3, -2);
}

bool read_coordinates(Parser& p, uint32_t dest, bool screen) {
  int32_t row = read_coordinate(p, dest, screen, kCoordinateMax);
  if (!expression_follows(p)) {
    p.diag.error(msg::row_column_coordinates_expected);
    return false;
  }
  int32_t column = read_coordinate(p, dest + 3, screen, kCoordinateMax);
  if (screen) check_against_window(p, row, column);
  return true;
}

void read_colour(Parser& p, uint32_t foreground, uint32_t background) {
  p.take(verb("is"));
  compile_operand(p, foreground, 0);
  if (p.take(verb("on"))) compile_operand(p, background, 0);
}

ColourEnd read_colours(Parser& p, uint32_t foreground, uint32_t background, bool same_allowed, bool key_words) {
  p.take(verb("is"));
  int64_t fg = read_one_colour(p, foreground);
  if (!p.take(verb("on"))) return ColourEnd::read;
  if (key_words) {
    uint32_t c = p.next();
    p.push_back();
    if (is_on_key_word(c)) return ColourEnd::on_key;
  }
  if (background == 0) {
    p.diag.error_text(txt::background_colour_not_allowed, Context::current_token());
    uint32_t scratch = p.ops.alloc(3);
    read_one_colour(p, scratch);
    return ColourEnd::read;
  }
  int64_t bg = read_one_colour(p, background);
  if (!same_allowed && fg >= 0 && fg == bg)
    p.diag.error_text(txt::colours_are_the_same, Context::current_token());
  return ColourEnd::read;
}

void check_review_area(Parser& p, uint32_t position, bool in_field) {
  OpSpace& ops = p.ops;
  uint32_t s = p.section;
  if (!(review_word(p) & ssym::review) || p.part != SectionPart::detail) return;
  uint32_t row = ops.get24(position);
  if (row & kOperandList) {
    p.diag.error(msg::rows_detail_review_screen_cannot);
    return;
  }
  uint32_t first = ops.get16(s + ssym::s_base);
  if (first == 0) {
    ops.put16(s + ssym::s_base, row);
    first = row;
  }
  uint32_t by = ops.get16(s + ssym::s_review_by), occurs = ops.get16(s + ssym::s_occurs);
  if (row >= first + by && row <= first + by * occurs - 1) {
    p.diag.error(msg::review_field_expr_not_at);
    if (!in_field) p.diag.error(msg::statement_not_valid_review_data);
  }
  uint32_t column = ops.get24(position + 3);
  if (!(review_word(p) & ssym::review_data_grid) && !(column & kOperandList) &&
      (column == 1 || column == ops.get24(s + ssym::s_window_top + 3)))
    p.diag.warning_text(txt::currency_indicator_overwritten, Context::current_token());
}

void alpha_list(Parser& p, uint32_t dest, char kind) {
  ExprType t = compile_expression_list(p, dest);
  if (t.failed) return;
  if (!t.alphanumeric()) {
    p.diag.error(msg::alphanumeric_expression_required);
    return;
  }
  uint32_t head = p.ops.get24(dest);
  if (kind != 0 && head != 0 && p.ops.get24(head) == 0 && p.ops.opcode(head) == Op::literal)
    p.ob.make_text_item_op(head, kind);
}

uint16_t display_length(uint16_t format, char type) {
  if (!conv::fmt_numeric(format)) return format;
  if (type == 'D') return 10;
  if (type == 'J' || type == 'L' || type == 'T') return 19;
  int decimals = conv::fmt_decimals(format);
  int digits = (format & 0x03e0) >> 5;
  return static_cast<uint16_t>(digits + decimals + (decimals ? 1 : 0) + ((format & 0x0400) ? 1 : 0));
}

bool read_tag(Parser& p, uint32_t dest) {
  p.take(verb("is"));
  if (p.next() != kClassNumeric || p.tok.value() < 0 || p.tok.value() > 65535 ||
      p.tok.value() != static_cast<uint32_t>(p.tok.value())) {
    p.diag.error(msg::numeric_value_invalid_out_range);
    return false;
  }
  p.ops.put16(dest, static_cast<uint32_t>(p.tok.value()));
  return true;
}

TitleRead read_title(Parser& p, uint32_t text, uint32_t position, bool discard, bool quiet) {
  TitleRead read;
  bool column = p.cls() == verb("column_title");
  p.take(verb("is"));
  if (!p.take(verb("@"))) {
    bool ignored = column && (p.part != SectionPart::detail || !(review_word(p) & ssym::review_data_grid));
    if (ignored && !quiet) p.diag.warning_text(txt::clause_ignored, Context::current_token());
    alpha_list(p, ignored || discard ? p.ops.alloc(3) : text, 'D');  // a discarded one is still compiled
    read.text = true;
    if (!p.take(verb("@"))) return read;
  }
  if (read_coordinates(p, position, true)) check_review_area(p, position, true);
  read.position = true;
  return read;
}

std::string read_raw_picture(Parser& p) {
  p.tok.request_raw();
  if (p.next() == verb("is")) {
    p.tok.request_raw();
    p.next();
  }
  std::string text(p.text());
  p.accept();
  return text;
}

namespace {

// Compiles the block; the stop token is left to be read.
std::pair<uint32_t, uint32_t> input_block(Parser& p, uint32_t head, uint32_t end_word, bool end_too) {
  BlockScope block(p, BlockScope::branch);
  p.accept_chain = head;
  p.ob.open_level();
  const uint32_t stop = compile_statements_until(p, {end_word, end_too ? verb("end") : end_word});
  const uint32_t list = p.ob.top().head;
  p.ob.close_level();
  return {list, stop};
}

bool take_end(Parser& p, uint32_t stop, uint32_t end_word, bool end_too) {
  if (stop != end_word && !(end_too && stop == verb("end"))) return false;
  p.next();
  p.accept();
  return true;
}

}  // namespace

uint32_t compile_input_block(Parser& p, uint32_t head, uint32_t end_word, bool end_too, txt::Text missing) {
  auto [list, stop] = input_block(p, head, end_word, end_too);
  if (!take_end(p, stop, end_word, end_too)) p.diag.error_text(missing, Context::current_token());
  p.locks.settle_branches();
  return list;
}

uint32_t compile_input_block(Parser& p, uint32_t head, uint32_t end_word, msg::Code missing) {
  auto [list, stop] = input_block(p, head, end_word, false);
  if (!take_end(p, stop, end_word, false)) p.diag.error(missing);
  p.locks.settle_branches();
  return list;
}

}  // namespace tav
