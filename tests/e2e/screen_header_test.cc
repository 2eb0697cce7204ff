// Section header clauses: the screen_sym members they fill and the messages of the header checks.

#include "codegen/header.h"
#include "statements/records.h"
#include "symbols/records.h"
#include "tests/e2e/driver_fixture.h"

namespace {

using namespace tav;
using namespace drvtest;
using tavtest::Op6;
using Words = std::vector<uint32_t>;

tavtest::Compiled compile(const std::string& source) { return compile_source("field a pic 9(4)\n" + source); }

Op6 compiled(const std::string& source) {
  tavtest::Compiled c = compile(source);
  EXPECT_EQ(c.result.status, 0) << source << c.result.out;
  return c.image;
}

std::string messages(const std::string& source) { return compile(source).result.out; }

// The row and column (or the two colours) stored at `at`, then those at each further offset.
Words pairs(const Op6& t, uint32_t base, std::initializer_list<uint32_t> offsets) {
  Words out;
  for (uint32_t at : offsets) out.insert(out.end(), {t.u24(base + at), t.u24(base + at + 3)});
  return out;
}

TEST(ScreenHeader, WindowCornersColoursAndTitle) {
  Op6 t = compiled(
      "procedure main\n  do picker\nend\n"
      "screen picker window @ 20,70 to @ 5,10 relative to @ 2,3 colour red title \"Pick\"\nend\n");
  uint32_t s = t.section_named("picker");
  // The corners given the wrong way round are stored top-left first; a single colour is the background.
  EXPECT_EQ(pairs(t, s, {ssym::s_window_top, ssym::s_window_bottom, ssym::s_window_rel, ssym::s_colour}),
            (Words{5, 10, 20, 70, 2, 3, 0, 0xfc00}));
  uint32_t title = t.u24(s + ssym::s_title);
  ASSERT_NE(title, 0u);
  EXPECT_EQ(t.opcode(title), Op::text_item);
  EXPECT_EQ(t.u8(t.u24(hdr::h_text) + t.u16(title + textitem::ti_item) * textent::size + textent::te_kind), 'D');

  // WINDOW alone is the whole screen; a negative WINDOW-POSITION makes it reach 255,255.
  Op6 w = compiled("procedure main\n do picker\nend\nscreen picker window window-position -1\nend\n");
  uint32_t p = w.section_named("picker");
  EXPECT_EQ(w.u24(p + ssym::s_window_top), 1u);
  EXPECT_EQ(pairs(w, p, {ssym::s_window_bottom}), (Words{255, 255}));
  EXPECT_NE(w.u24(p + ssym::s_window_pos), 0u);
}

TEST(ScreenHeader, FlagWordsAndExport) {
  Op6 t = compiled(
      "screen main prompt @ 3,4 form-entry no-ok-cancel stop-exit-all always-show find-for-currency "
      "no-review-separators review-bottom-to-top export no-override allowed are entry correct\n"
      "end\n"
      "menu m tree-menu button-size 12 export\nend\n");
  uint32_t s = t.section_named("main");
  EXPECT_EQ(pairs(t, s, {ssym::s_prompt_pos}), (Words{3, 4}));
  EXPECT_EQ(t.u16(s + ssym::s_form),
            ssym::form_entry | ssym::form_no_ok_cancel | ssym::form_export | ssym::form_no_override);
  EXPECT_EQ(t.u16(s + ssym::s_kind), ssym::kind_screen | ssym::kind_stop_exit_all | ssym::kind_always_show |
                                        ssym::kind_find_for_currency);
  EXPECT_EQ(t.u16(s + ssym::s_flags) & 0x7fff,
            ssym::review_no_row_sep | ssym::review_no_col_sep | ssym::review_bottom_to_top);
  EXPECT_EQ(t.list(t.u24(s + ssym::s_modes)).size(), 2u);
  uint32_t m = t.section_named("m");
  EXPECT_EQ(t.u16(m + ssym::s_kind) & ssym::kind_tree_menu, ssym::kind_tree_menu);
  EXPECT_EQ(t.u24(m + ssym::s_button_size), 12u);
  // The export list runs from the latest; numbers count the records before, routine numbers go up.
  Words exports;
  for (uint32_t e : t.list(t.u24(hdr::h_export_list)))
    exports.insert(exports.end(), {t.u24(e + exportrec::er_section), t.u16(e + exportrec::er_number)});
  EXPECT_EQ(exports, (Words{m, 1, s, 0}));
  EXPECT_EQ((Words{t.u16(s + ssym::s_routine), t.u16(m + ssym::s_routine)}), (Words{1, 2}));
}

TEST(ScreenHeader, Messages) {
  const std::pair<const char*, const char*> cases[] = {
      {"procedure main prompt @ 1,1\nend\n", "line 2: ERROR  Invalid clause - 'prompt'"},
      {"screen main window window\nend\n", "line 2: ERROR  Duplicate or incompatible clause - 'window'"},
      {"screen main leave-parent-screen window\nend\n", "ERROR  Duplicate or incompatible clause - 'window'"},
      {"screen main form-entry sequential-entry\nend\n", "ERROR  Duplicate or incompatible clause - 'sequential-entry'"},
      {"screen main review-from-end review-from-start\nend\n", "ERROR  Duplicate or incompatible clause"},
      {"screen main colour red on red\nend\n", "ERROR  Foreground/Background colors are the same"},
      {"screen main colour 5\nend\n", "ERROR  Not a valid color - '5'"},
      {"screen main window @ 0,1\nend\n", "ERROR  Row/Column is invalid or out of range"},
      {"screen main window @ 1,1 to 5,5\nend\n", "ERROR  Row/Column is invalid or out of range"},
      {"screen main review occurs 1\nend\n", "ERROR  Numeric value invalid or out of range - '1'"},
      {"screen main review occurs x\nend\n", "ERROR  Numeric-literal expected - 'x'"},
      {"screen main review occurs 4 by 6\nend\n", "ERROR  Numeric value invalid or out of range - '6'"},
      {"screen main review\nend\n", "ERROR  REVIEW/DATA-GRID requires OCCURS factor"},
      {"screen main review occurs 4\nend\n", "ERROR  Primary object required for screen"},
      {"screen main when a = 1\nend\n", "ERROR  Primary object required for screen"},
      {"screen main review-from-start\nend\n", "WARNING  REVIEW options on non-REVIEW screen"},
      {"screen main can-override\nend\n", "ERROR  Clause must follow EXPORT - 'can-override'"},
      {"screen main help key \"x\"\nend\n", "WARNING  Obsolete clause - 'help'"},
      {"screen main help me\nend\n", "ERROR  Syntax error"},
      {"screen main frobnicate\nend\n", "ERROR  Invalid clause - 'frobnicate'"},
      {"procedure main\n do picker\nend\nscreen picker colour blue\nend\n", "WARNING  COLOR requires WINDOW to be specified"},
      {"procedure main\n do picker\nend\nscreen picker title \"t\"\nend\n", "WARNING  TITLE requires WINDOW to be specified"},
      {"procedure main\n do picker\nend\nscreen picker title 5\nend\n", "ERROR  Alphanumeric expression required"},
      {"screen main tree-menu\nend\n", "ERROR  Invalid clause - 'tree-menu'"},
      // OCCURS 13 BY 2 may not fit the screen: a warning beside the missing PRIMARY.
      {"screen main review occurs 13 by 2\nend\n", "WARNING  Review area may exceed window"},
  };
  for (const auto& [source, message] : cases) {
    const std::string out = messages(source);
    EXPECT_TRUE(contains(out, message)) << source << out;
  }
  // The entry section warns about neither colour nor title.
  const std::string out = messages("screen main colour blue title \"t\"\nend\n");
  EXPECT_FALSE(contains(out, "requires WINDOW")) << out;
}

}  // namespace
