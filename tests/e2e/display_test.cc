// DISPLAY, the message statements, CLEAR, BOX, BOX-CHARACTER and REFRESH: their records byte by
// byte and their messages with line and context.

#include "codegen/op_records.h"
#include "statements/records.h"
#include "symbols/records.h"
#include "tests/e2e/driver_fixture.h"

namespace {

using namespace tav;
using namespace drvtest;
using tavtest::Op6;
using Words = std::vector<uint32_t>;

const std::string kFields = "field n pic 9(4)\nfield s pic x(10)\nfield p pic s9(3)v99\n";

tavtest::Compiled compile(const std::string& body) { return compile_source(kFields + "procedure main\n" + body + "end\n"); }

tavtest::Compiled compile_screen(const std::string& header, const std::string& body) {
  return compile_source(kFields + "screen main " + header + "\n" + body + "end\n");
}

bool says(const tavtest::Compiled& c, const std::string& line) { return contains(c.result.out, line); }

TEST(Display, ShortAndLongItems) {
  tavtest::Compiled c = compile(" display n @ 2,3\n display s @ 4,5 tag 5 bold\n display p @ 1,1 \"total\" n + 1\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  auto items = ops_of(t, t.detail(), Op::display_item);
  ASSERT_EQ(items.size(), 5u);
  // Row, column, type, width and flags of an item.
  const auto item = [&](uint32_t op) {
    const uint32_t d = t.u24(op + displayop::dio_item);
    return Words{t.u24(d + ditem::di_row), t.u24(d + ditem::di_column), t.u16(d + ditem::di_type), t.u8(d + ditem::di_width),
                 t.u16(d + ditem::di_flags)};
  };
  // In a DETAIL part, short form.
  EXPECT_EQ(item(items[0]), (Words{2, 3, t.u16(t.field("n") + fsym::f_format), 4, 0x4000}));
  EXPECT_EQ(t.opcode(t.u24(t.u24(items[0] + displayop::dio_item) + ditem::di_value)), Op::field_ref);
  // With TAG: the long form, 38 bytes; the next record starts right after a short item.
  uint32_t e = t.u24(items[1] + displayop::dio_item);
  EXPECT_EQ(t.u16(e + ditem::di_flags), 0x4000u | 0x0020u | 0x0001u);
  EXPECT_EQ(t.u16(e + ditem::di_tag), 5u);
  EXPECT_EQ(t.u8(e + ditem::di_width), 10u);
  // Later items of one DISPLAY need no position.
  uint32_t lit = t.u24(items[3] + displayop::dio_item);
  EXPECT_EQ(t.opcode(t.u24(lit + ditem::di_value)), Op::text_item);
  EXPECT_EQ((Words{t.u24(lit + ditem::di_row), t.u16(lit + ditem::di_type), t.u8(lit + ditem::di_width)}), (Words{0, 0, 0}));
  // n + 1: four integer digits, plus one: 0x4400 + 5 * 32.
  uint32_t sum = t.u24(items[4] + displayop::dio_item);
  EXPECT_EQ((Words{t.u16(sum + ditem::di_type), t.u8(sum + ditem::di_letter), t.u8(sum + ditem::di_width)}),
            (Words{0x4400u + 5u * 32u, 'N', 6}));
  // The signed field with decimals keeps its own format word.
  uint32_t dec = t.u24(items[2] + displayop::dio_item);
  EXPECT_EQ(t.u16(dec + ditem::di_type), t.u16(t.field("p") + fsym::f_format));
}

TEST(Display, ColourScaleTitleAndPicture) {
  tavtest::Compiled c = compile(" display p @ 3,4 colour 32769 on 32770 scale 2 title \"x\" @ 3,1 pic zz9.99\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  uint32_t d = t.u24(ops_of(t, t.detail(), Op::display_item)[0] + displayop::dio_item);
  EXPECT_EQ((Words{t.u16(d + ditem::di_flags) & 0x0001u, t.u24(d + ditem::di_foreground), t.u24(d + ditem::di_background),
                   t.u24(d + ditem::di_scale), t.u24(d + ditem::di_title_pos), t.u24(d + ditem::di_title_pos + 3),
                   t.u8(d + ditem::di_width)}),
            (Words{1, 0x8001, 0x8002, 2, 3, 1, 6}));
  EXPECT_EQ(t.opcode(t.u24(d + ditem::di_title)), Op::text_item);
  EXPECT_EQ(t.text(t.u24(d + ditem::di_picture)), "zz9.99");
}

TEST(Display, PlaceOfTheDisplaySetsFlags) {
  tavtest::Compiled c = compile_screen("", " before\n display s @ 1,1\n display s @ 2,1 foreground\n display s @ 3,1 data\n detail\n display s @ 4,1\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  uint32_t s = t.section_named("main");
  ASSERT_NE(s, 0u);
  Words flags;  // BEFORE (outside the DETAIL: 0x0200 unless FOREGROUND or DATA), then DETAIL
  for (uint32_t list : {ssym::s_before, ssym::s_detail})
    for (uint32_t op : ops_of(t, t.u24(s + list), Op::display_item)) flags.push_back(t.u16(t.u24(op + displayop::dio_item) + ditem::di_flags));
  EXPECT_EQ(flags, (Words{0x0200, 0, 0x2000, 0x4000}));
}

TEST(Display, Messages) {
  struct Case {
    const char* body;
    const char* line;
  };
  for (const Case& k : {
           Case{" display n\n", "line 5: ERROR  Row/Column coordinates are mandatory"},
           Case{" display n @ 1,1 prompt data\n", "line 5: ERROR  Duplicate or incompatible clause - 'data'"},
           Case{" display n @ 1,1 @ 2,2\n", "line 5: ERROR  Duplicate or incompatible clause"},
           Case{" display n @ 1,1 column 4\n", "line 5: ERROR  Invalid clause - 'column'"},
           Case{" display n @ 1,1 static\n", "line 5: ERROR  Duplicate or incompatible clause - 'static'"},
           Case{" display n @ 1,1 tag 70000\n", "line 5: ERROR  Numeric value invalid or out of range - '70000'"},
           Case{" display s @ 1,1 pic 9(3)\n", "line 5: ERROR  PICTURE not compatible with field/expression"},
           Case{" display s @ 1,1 blank-when-zero\n", "line 5: ERROR  Field must be numeric"},
           Case{" display n @ 1,1 bold pic 9(4) blank-when-zero\n", "line 5: ERROR  Duplicate or incompatible clause"},
           Case{" display n @ 1,1 optional\n", "line 5: ERROR  Syntax error - 'optional'"},
           Case{" display n + s @ 1,1\n", "line 5: ERROR  Mixed numeric and alpha operands in expression"},
           Case{" display bitmap \"a\"\n", "line 5: ERROR  Syntax error"},
           Case{" display bitmap \"a\" @ 1,1 to 2,2\n", "line 5: ERROR  Syntax error"},
           Case{" display bitmap \"a\" @ 1,1 background foreground\n", "line 5: ERROR  Duplicate or incompatible clause"},
           Case{" display bitmap n @ 1,1\n", "line 5: ERROR  Alphanumeric expression required"},
           Case{" acknowledge \"x\" no-bell\n", "line 5: ERROR  Duplicate or incompatible clause"},
           Case{" acknowledge \"x\" prompt n\n", "line 5: ERROR  Alphanumeric expression required"},
           Case{" message \"x\" bold\n", "line 5: ERROR  Invalid clause - 'bold'"},
           Case{" clear lines 5 to 3\n", "line 5: ERROR  Numeric value invalid or out of range - '3'"},
           Case{" clear lines 300\n", "line 5: ERROR  Numeric value invalid or out of range - '300'"},
           Case{" clear data prompt\n", "line 5: ERROR  Duplicate or incompatible clause - 'prompt'"},
           Case{" clear bold\n", "line 5: ERROR  Syntax error - 'bold'"},
           Case{" box @ 1,1\n", "line 5: ERROR  Syntax error"},
           Case{" box title n\n", "line 5: ERROR  Alpha-literal expected - 'n'"},
           Case{" box-character 65\n", "line 5: ERROR  Row/Column coordinates expected"},
           Case{" refresh s\n", "line 6: ERROR  REFRESHed field not ACCEPTed - 's'"},  // found missing at the section end
       }) {
    tavtest::Compiled c = compile(k.body);
    EXPECT_TRUE(says(c, k.line)) << k.body << c.result.out;
    EXPECT_TRUE(c.image.empty()) << k.body;
  }
}

TEST(Message, ItemsBellAndPause) {
  tavtest::Compiled c = compile(" message \"saved\" n pic zzz9 no-bell\n pause\n abort s\n message s no bell\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  auto messages = ops_of(t, t.detail(), Op::message);
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_TRUE(ops_of(t, t.detail(), Op::pause).empty());  // taken into the MESSAGE
  EXPECT_EQ(t.u16(messages[0] + messageop::mo_bell), 2u);
  EXPECT_EQ(t.u16(messages[1] + messageop::mo_bell), 1u);
  uint32_t first = t.u24(messages[0] + messageop::mo_items);
  EXPECT_EQ(t.opcode(t.u24(first + msgitem::mi_value)), Op::text_item);
  uint32_t second = t.u24(first + msgitem::mi_next);
  ASSERT_NE(second, 0u);
  EXPECT_EQ(t.u24(second + msgitem::mi_next), 0u);
  EXPECT_EQ(t.text(t.u24(second + msgitem::mi_picture)), "zzz9");
  auto aborts = ops_of(t, t.detail(), Op::abort);
  ASSERT_EQ(aborts.size(), 1u);
  EXPECT_EQ(t.u16(aborts[0] + messageop::mo_bell), 0u);
  EXPECT_EQ(t.u16(t.u24(aborts[0] + messageop::mo_items) + msgitem::mi_type), t.u16(t.field("s") + fsym::f_format));
}

TEST(Message, Acknowledge) {
  tavtest::Compiled c = compile(" acknowledge \"done\" n prompt \"ok\"\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  auto acks = ops_of(t, t.detail(), Op::acknowledge);
  ASSERT_EQ(acks.size(), 1u);
  EXPECT_EQ(t.opcode(t.u24(acks[0] + ackop::ak_prompt)), Op::text_item);
  EXPECT_NE(t.u24(t.u24(acks[0] + ackop::ak_items) + msgitem::mi_next), 0u);
}

TEST(ScreenOutput, ClearForms) {
  tavtest::Compiled c = compile(" clear data\n clear lines 3 to 5 prompt\n clear 7\n clear @ 2,3 to @ 4,5 absolute-coordinates\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  auto clears = ops_of(t, t.detail(), Op::clear);
  ASSERT_EQ(clears.size(), 4u);
  // CLEAR DATA alone: every operand 0.
  EXPECT_EQ((Words{t.u24(clears[0] + clearop::cl_first), t.u16(clears[0] + clearop::cl_flags), t.u24(clears[0] + clearop::cl_last)}),
            (Words{0, 0, 0}));
  const auto row = [&](uint32_t op, uint32_t which) { return t.u24(t.u24(op + which) + position::ps_row); };
  EXPECT_EQ((Words{row(clears[1], clearop::cl_first), row(clears[1], clearop::cl_last), t.u16(clears[1] + clearop::cl_flags),
                   row(clears[2], clearop::cl_first), row(clears[2], clearop::cl_last)}),
            (Words{3, 5, 0x0001, 7, 7}));
  EXPECT_EQ(t.u16(clears[3] + clearop::cl_flags), 0x0004u);
  EXPECT_EQ(t.u24(t.u24(clears[3] + clearop::cl_last) + position::ps_column), 5u);
}

TEST(ScreenOutput, BoxAndBoxCharacter) {
  tavtest::Compiled c = compile_screen("window @ 2,3 to @ 20,70",
                                       " detail\n box\n display box @ 3,4 to @ 6,9 colour 32769 on 32769 title \"t\" double\n"
                                       " box-character 65 @ 5,6\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  uint32_t s = t.section_named("main");
  auto boxes = ops_of(t, t.u24(s + ssym::s_detail), Op::box);
  ASSERT_EQ(boxes.size(), 2u);
  uint32_t b = t.u24(boxes[0] + boxop::bo_box);
  for (uint32_t at : {0u, 3u}) {  // the window corners
    EXPECT_EQ(t.u24(b + boxrec::bx_top_left + at), t.u24(s + ssym::s_window_top + at));
    EXPECT_EQ(t.u24(b + boxrec::bx_bottom_right + at), t.u24(s + ssym::s_window_bottom + at));
  }
  EXPECT_EQ(t.u24(b + boxrec::bx_top_left), 2u);
  uint32_t d = t.u24(boxes[1] + boxop::bo_box);
  EXPECT_EQ(t.u24(d + boxrec::bx_bottom_right + 3), 9u);
  EXPECT_EQ(t.u24(d + boxrec::bx_background), 0x8001u);  // equal colours are allowed
  EXPECT_EQ(t.u16(boxes[1] + boxop::bo_flags), 0x0001u | 0x0008u);
  EXPECT_EQ(t.opcode(t.u24(d + boxrec::bx_title)), Op::text_item);
  auto chars = ops_of(t, t.u24(s + ssym::s_detail), Op::box_character);
  ASSERT_EQ(chars.size(), 1u);
  EXPECT_EQ((Words{t.u24(chars[0] + boxcharop::bc_character), t.u24(chars[0] + boxcharop::bc_row),
                   t.u24(chars[0] + boxcharop::bc_column)}),
            (Words{65, 5, 6}));
}

TEST(ScreenOutput, RefreshFindsTheAcceptNowOrAtTheSectionEnd) {
  tavtest::Compiled c = compile(" accept n @ 1,1\n refresh n\n refresh s\n accept s @ 2,1\n refresh data\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  auto accepts = ops_of(t, t.detail(), Op::accept);
  auto refreshes = ops_of(t, t.detail(), Op::refresh);
  ASSERT_EQ(refreshes.size(), 3u);
  EXPECT_EQ(t.u24(refreshes[0] + refreshop::rf_accept), accepts[0]);
  EXPECT_EQ(t.u24(refreshes[1] + refreshop::rf_accept), accepts[1]);  // resolved when the section ended
  EXPECT_EQ(t.u16(refreshes[2] + refreshop::rf_kind), 1u);
  tavtest::Compiled review = compile(" refresh review\n");
  EXPECT_TRUE(says(review, "line 5: WARNING  Not in a REVIEW screen")) << review.result.out;
}

TEST(Display, Bitmap) {
  tavtest::Compiled c = compile(" display bitmap \"logo\" @ 2,3 to @ 10,40 foreground no-aspect-ratio\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  auto ops = ops_of(t, t.detail(), Op::display_bitmap);
  ASSERT_EQ(ops.size(), 1u);
  EXPECT_EQ(t.u16(ops[0] + bitmapop::bm_flags), 0x0006u);
  EXPECT_EQ(t.u24(t.u24(ops[0] + bitmapop::bm_first) + position::ps_column), 3u);
  EXPECT_EQ(t.u24(t.u24(ops[0] + bitmapop::bm_second) + position::ps_row), 10u);
  EXPECT_EQ(t.u16(4), 7u);  // NO-ASPECT-RATIO needs table version 6.7
}

// CHECK-BOX and RADIO-BUTTON join the ACCEPT chain, where RE-ENTER finds them.
TEST(Choices, DescriptorsAndTheChain) {
  tavtest::Compiled c = compile_screen("form-entry",
      "detail\n"
      " accept s @ 1,1\n"
      " check-box n @ 2,1 title \"Paid\" values 1 0 read-only\n"
      " radio-button p @ 3,1 1 title \"one\" @ 3,20 2 value-title \"two\" 3 title \"three\"\n"
      "  before-radio-button re-enter n end-before-radio-button\n"
      " end-radio-button\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  const uint32_t s = t.section_named("main");
  const uint32_t detail = t.u24(s + ssym::s_detail);
  auto boxes = ops_of(t, detail, Op::check_box);
  auto radios = ops_of(t, detail, Op::radio_button);
  auto accepts = ops_of(t, detail, Op::accept);
  ASSERT_EQ(boxes.size(), 1u);
  ASSERT_EQ(radios.size(), 3u);
  const uint32_t cb = t.u24(boxes[0] + checkboxop::cbo_desc);
  EXPECT_EQ(t.u24(cb + chkdesc::cb_chain), accepts[0]);
  EXPECT_EQ(t.u16(cb + chkdesc::cb_flags), 0x5000u);
  EXPECT_NE(t.u24(cb + chkdesc::cb_unchecked), 0u);
  const uint32_t rd = t.u24(radios[0] + radioop::rbo_desc);
  EXPECT_EQ(t.u24(radios[2] + radioop::rbo_desc), rd);
  EXPECT_EQ(t.u24(rd + raddesc::rd_first), radios[0]);
  EXPECT_EQ(t.u24(rd + raddesc::rd_chain), boxes[0]);
  EXPECT_EQ(t.u24(t.u24(radios[1] + radioop::rbo_value) + radval::rv_position + 3), 20u);
  EXPECT_EQ(t.u24(t.u24(radios[2] + radioop::rbo_value) + radval::rv_position), 0u);
  // RE-ENTER in BEFORE-RADIO-BUTTON goes back to the op before the CHECK-BOX.
  uint32_t before_box = 0;
  for (uint32_t op : t.list(detail))
    if (t.u24(op) == boxes[0]) before_box = op;
  for (uint32_t op : t.list(t.u24(rd + raddesc::rd_before)))
    if (t.opcode(op) == Op::re_enter) {
      EXPECT_EQ(t.u24(op + reenter::re_target), before_box);
    }
}

TEST(Choices, Messages) {
  struct Case {
    const char* header;
    const char* body;
    const char* line;
  };
  for (const Case& k : {
           Case{"form-entry", "before\n check-box n @ 1,1\n", "line 6: ERROR  Statement only valid within the DETAIL of a SCREEN"},
           Case{"", "detail\n check-box n @ 1,1\n", "ERROR  Statement requires FORM-ENTRY screen"},
           Case{"form-entry", "detail\n check-box n\n", "ERROR  Row/Column coordinates are mandatory"},
           Case{"form-entry", "detail\n check-box n @ 1,1 values \"a\" \"b\"\n", "ERROR  Value not compatible with field"},
           Case{"form-entry", "detail\n check-box n @ 1,1 validations exit\n", "ERROR  END missing"},
           Case{"form-entry", "detail\n if n = 1\n  check-box n @ 1,1\n end-if\n", "ERROR  Statement is not conditional"},
           Case{"form-entry", "detail\n radio-button n 1 title \"a\"\n", "ERROR  Row/Column coordinates are mandatory"},
           Case{"form-entry", "detail\n radio-button n @ 1,1 1 2 title \"b\"\n", "ERROR  TITLE expected"},
           Case{"form-entry", "detail\n radio-button n read-only\n", "ERROR  No values specified for RADIO-BUTTON"},
       }) {
    tavtest::Compiled c = compile_screen(k.header, k.body);
    EXPECT_TRUE(says(c, k.line)) << k.body << c.result.out;
    EXPECT_TRUE(c.image.empty()) << k.body;
  }
}

}  // namespace
