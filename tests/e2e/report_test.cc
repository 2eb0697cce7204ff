// REPORT, PRINT, SKIP, NEED, PAGE and REPORT SECTION: the report records and print items in the
// table, and the messages with their lines.

#include "codegen/header.h"
#include "codegen/op_records.h"
#include "statements/records.h"
#include "symbols/records.h"
#include "tests/e2e/driver_fixture.h"

namespace {

using namespace tav;
using namespace drvtest;
using tavtest::Op6;
using Words = std::vector<uint32_t>;

// The body is the DETAIL of procedure main, from line 4 on; `after` follows main.
tavtest::Compiled compile(const std::string& body, const std::string& after = "") {
  return compile_source("field n pic 9(4)\nfield s pic x(10)\nprocedure main\n" + body + "end\n" + after);
}

std::vector<uint32_t> ops_of(const Op6& t, Op code) { return drvtest::ops_of(t, t.detail(), code); }

// The report list, newest first (linked through r_next).
std::vector<uint32_t> reports_of(const Op6& t) {
  std::vector<uint32_t> out;
  for (uint32_t r = t.u24(hdr::h_report_list); r != 0 && out.size() < 100; r = t.u24(r + report::r_next)) out.push_back(r);
  return out;
}

uint32_t report_named(const Op6& t, const std::string& name) {
  for (uint32_t r : reports_of(t))
    if (t.text(t.u24(r + report::r_name)) == name) return r;
  return 0;
}

bool says(const tavtest::Compiled& c, const std::string& line) { return contains(c.result.out, line); }

TEST(Report, RecordsFromEveryClause) {
  tavtest::Compiled c = compile(
      " print \"a\" on summary\n"
      " report name summary title \"Sales\" form type \"A4\" header top footer bottom length 66 lines depth 60\n"
      "   width 132 columns margin 5 default font 3 default pitch 10 default point 1.5 direct to \"lp1\" spool-only\n"
      "   no-message colour 32769 on 32770\n"
      " report name x length 0 file \"out.txt\" full-xml\n"
      " report \"Plain\" to-screen\n",
      "procedure top\n pause\nend\nprocedure bottom\n pause\nend\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  EXPECT_EQ(t.u16(hdr::h_report_count), 3u);
  const std::vector<uint32_t> list = reports_of(t);
  ASSERT_EQ(list.size(), 3u);  // newest first: the PRINT made "summary" before NAME made "x"
  const uint32_t plain = list[0], x = list[1], summary = list[2];
  EXPECT_EQ(report_named(t, "summary"), summary);
  EXPECT_EQ(report_named(t, "x"), x);

  // The record made by the PRINT, filled by its definition: number, flags, every clause.
  EXPECT_EQ(t.u16(summary + report::r_number), 0u);
  EXPECT_EQ(t.u16(summary + report::r_flags), 0x1002u);  // DIRECT, SPOOL-ONLY; no longer referenced
  EXPECT_EQ(t.opcode(t.u24(summary + report::r_title)), Op::literal);
  EXPECT_EQ(t.opcode(t.u24(summary + report::r_form_type)), Op::literal);
  Words clauses;  // header, footer, length, depth, width, margin, font, pitch, the point's list flag, colours
  for (uint32_t at : {report::r_header, report::r_footer, report::r_length, report::r_depth, report::r_width, report::r_margin,
                      report::r_font, report::r_pitch, report::r_point, report::r_foreground, report::r_background})
    clauses.push_back(at == report::r_point ? t.u24(summary + at) & 0x800000u : t.u24(summary + at));
  EXPECT_EQ(clauses, (Words{t.section_named("top"), t.section_named("bottom"), 66, 60, 132, 5, 3, 10, 0x800000, 0x8001, 0x8002}));
  EXPECT_NE(t.u24(summary + report::r_destination), 0u);

  // x: a literal LENGTH 0 is no limit. plain: no name; a first word that is no clause is the title.
  EXPECT_EQ((Words{t.u16(x + report::r_number), t.u24(x + report::r_length), t.u16(x + report::r_flags)}), (Words{1, 0x7fff, 0x0880}));
  EXPECT_EQ((Words{t.u16(plain + report::r_number), t.u24(plain + report::r_name), t.u16(plain + report::r_flags)}),
            (Words{2, 0, 0x0400}));
  EXPECT_NE(t.u24(plain + report::r_title), 0u);

  const std::vector<uint32_t> ops = ops_of(t, Op::report);
  ASSERT_EQ(ops.size(), 3u);
  EXPECT_EQ((Words{t.u24(ops[0] + reportop::ro_report), t.u16(ops[0] + reportop::ro_no_message), t.u24(ops[2] + reportop::ro_report),
                   t.u16(ops[2] + reportop::ro_no_message)}),
            (Words{summary, 1, plain, 0}));
}

TEST(Report, PrintItems) {
  tavtest::Compiled c = compile(
      " report name summary full-page width 132 length 66\n"
      " print \"a\" s col 20 tag \"t\" on summary\n"
      " print n @ 3,4 font 2 no new-line section \"part\" on summary\n"
      " print n static in col 7 super-script\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  const uint32_t summary = report_named(t, "summary");
  const std::vector<uint32_t> ops = ops_of(t, Op::print_item);
  ASSERT_EQ(ops.size(), 4u);
  std::vector<uint32_t> items;
  for (uint32_t op : ops) items.push_back(t.u24(op + printop::po_item));
  const uint32_t reports[] = {summary, summary, summary, 0};
  for (size_t i = 0; i < ops.size(); ++i) EXPECT_EQ(t.u24(ops[i] + printop::po_report), reports[i]) << i;
  // Always the long form; the new line after the last item of a PRINT only.
  const uint32_t flags[] = {0x0001, 0x0041, 0x0001, 0x3041};
  for (size_t i = 0; i < items.size(); ++i) EXPECT_EQ(t.u16(items[i] + ditem::di_flags), flags[i]) << i;

  // A literal text is a text item of kind 'P'.
  const uint32_t literal = t.u24(items[0] + ditem::di_value);
  ASSERT_EQ(t.opcode(literal), Op::text_item);
  const uint32_t entry = t.u24(hdr::h_text) + t.u16(literal + textitem::ti_item) * textent::size;
  EXPECT_EQ(t.u8(entry + textent::te_kind), uint32_t{'P'});

  EXPECT_EQ((Words{t.u24(items[1] + ditem::di_column), t.u16(items[1] + ditem::di_type), t.u8(items[1] + ditem::di_width),
                   t.u24(items[1] + ditem::di_section)}),
            (Words{20, t.u16(t.field("s") + fsym::f_format), 10, 0}));
  EXPECT_NE(t.u24(items[1] + ditem::di_print_tag), 0u);
  EXPECT_EQ((Words{t.u24(items[2] + ditem::di_row), t.u24(items[2] + ditem::di_column), t.u8(items[2] + ditem::di_font)}),
            (Words{3, 4, 2}));
  EXPECT_EQ(t.opcode(t.u24(items[2] + ditem::di_section)), Op::literal);
  EXPECT_EQ((Words{t.u24(items[3] + ditem::di_row), t.u24(items[3] + ditem::di_column)}), (Words{0, 7}));

  // tavdump shows the report by name and the print items.
  TempDir dir;
  write_file(dir / "prog.op6", t.bytes());
  const std::string dump = tavtest::run({tavtest::program("tavdump"), dir / "prog.op6"}).out;
  for (const char* line : {"report 0x", "\"summary\"\n", "print item 0x", "di_flags 0x0041"})
    EXPECT_TRUE(contains(dump, line)) << line << dump;
}

TEST(Report, PageMovesSectionsAndFinish) {
  tavtest::Compiled c = compile(
      " report name x full-xml\n skip\n skip 3 lines on x\n skip to line 10\n need 5 lines on x\n"
      " page no-header no-footer on x\n report section \"totals\" can-hide scale 2 style-class \"b\" on x\n"
      " report section finish on x\n report finish on x\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  const uint32_t x = report_named(t, "x");
  const std::vector<uint32_t> skips = ops_of(t, Op::skip);
  ASSERT_EQ(skips.size(), 3u);
  const uint32_t lines[] = {1, 3, 10}, to[] = {0, 0, 1}, reports[] = {0, x, 0};
  for (size_t i = 0; i < skips.size(); ++i) {
    EXPECT_EQ(t.u24(skips[i] + skipop::sk_lines), lines[i]) << i;
    EXPECT_EQ(t.u16(skips[i] + skipop::sk_to), to[i]) << i;
    EXPECT_EQ(t.u24(skips[i] + skipop::sk_report), reports[i]) << i;
  }
  const uint32_t need = ops_of(t, Op::need).at(0), page = ops_of(t, Op::page).at(0);
  EXPECT_EQ((Words{t.u24(need + skipop::sk_lines), t.u24(need + skipop::sk_report), t.u16(page + pageop::pg_flags),
                   t.u24(page + pageop::pg_report)}),
            (Words{5, x, 0x0003, x}));
  const std::vector<uint32_t> sections = ops_of(t, Op::report_section);
  ASSERT_EQ(sections.size(), 2u);
  const uint32_t s = t.u24(sections[0] + rsectop::rso_section);
  EXPECT_EQ(t.u24(sections[0] + rsectop::rso_report), x);
  EXPECT_EQ(t.opcode(t.u24(s + rsection::rs_title)), Op::literal);
  EXPECT_EQ((Words{t.u16(s + rsection::rs_flags), t.u24(s + rsection::rs_scale)}), (Words{0x0006, 2}));
  EXPECT_NE(t.u24(s + rsection::rs_style_class), 0u);
  EXPECT_EQ(t.u24(sections[1] + rsectop::rso_section), x);
  EXPECT_EQ(t.u24(ops_of(t, Op::report_finish).at(0) + finishop::fin_report), x);
}

struct Case {
  const char* body;
  const char* line;
};

TEST(Report, Messages) {
  for (const Case& k : {
           Case{" report full-page width 80 name r\n", "line 4: ERROR  FULL-PAGE REPORT requires WIDTH and LENGTH"},
           Case{" report full-page width 80 length 60\n", "line 4: ERROR  FULL-PAGE only valid for named reports"},
           Case{" report length 60 depth 66\n", "line 4: ERROR  DEPTH cannot be greater than report LENGTH - '66'"},
           Case{" report full-xml no-xml\n", "line 4: ERROR  Duplicate or incompatible clause - 'no-xml'"},
           Case{" report to-screen file \"f\"\n", "line 4: ERROR  Duplicate or incompatible clause - 'file'"},
           Case{" report name r\n report name r\n", "line 5: ERROR  REPORT NAME already defined - 'r'"},
           Case{" report name title\n", "line 4: ERROR  Name invalid or reserved word - 'title'"},
           Case{" report title 5\n", "line 4: ERROR  Alpha-literal expected"},
           Case{" report bold\n", "line 4: ERROR  Invalid clause - 'bold'"},
           Case{" report default colour 1\n", "line 4: ERROR  Syntax error - 'colour'"},
           Case{" report\n report finish on 5\n", "line 5: ERROR  REPORT name not defined - '5'"},
           Case{" report\n print n @ 5,1\n", "line 5: ERROR  @ coordinates only valid for named FULL-PAGE reports"},
           Case{" report name r width 80\n print n @ 2,1 on r\n", "line 5: ERROR  @ coordinates only valid for named FULL-PAGE reports"},
           Case{" report name r\n print n @ 0,1 on r\n", "line 5: ERROR  Row/Column is invalid or out of range"},
           Case{" report\n print n col 301\n", "line 5: ERROR  Row/Column is invalid or out of range - '301'"},
           Case{" report\n print n col 0\n", "line 5: ERROR  Row/Column is invalid or out of range - '0'"},
           Case{" report\n print n font 16\n", "line 5: ERROR  Numeric value invalid or out of range - '16'"},
           Case{" report\n print n font x\n", "line 5: ERROR  Numeric-literal expected - 'x'"},
           Case{" report name r\n print n on r on r\n", "line 5: ERROR  Duplicate or incompatible clause"},
           Case{" report\n print n section 5\n", "line 5: ERROR  Alphanumeric expression required"},
           Case{" report name r\n print n on r\n   s\n", "line 6: ERROR  No further expressions can be printed - 's'"},
           Case{" report\n print n point 2\n", "line 5: ERROR  Clause not implemented - 'point'"},
           Case{" print n @ 2,1 on r\n report name r\n   width 80 length 66\n",
                "line 6: ERROR  Previous PRINT statements used @ coordinates"},
           Case{" print \"x\" on r\n report\n", "ERROR  REPORT referenced but not defined - 'r'"},
           Case{" report\n skip 0\n", "line 5: ERROR  Numeric value invalid or out of range - '0'"},
           Case{" report\n skip to\n", "line 5: ERROR  Numeric-literal expected"},
           Case{" report\n need 1000\n", "line 5: ERROR  Numeric value invalid or out of range - '1000'"},
           Case{" report\n page bold\n", "line 5: ERROR  Invalid clause - 'bold'"},
           Case{" report name r\n report section \"s\" on r\n", "line 5: ERROR  Report must be FULL-XML - 'r'"},
           Case{" report\n report section \"s\" hidden can-hide\n", "line 5: ERROR  Duplicate or incompatible clause - 'can-hide'"},
           Case{" report\n report section 5\n", "line 5: ERROR  Alphanumeric expression required"},
           Case{" print n\n", "ERROR  Report statements used without REPORT definition"},
       }) {
    tavtest::Compiled c = compile(k.body);
    EXPECT_TRUE(says(c, k.line)) << k.body << c.result.out;
    EXPECT_TRUE(c.image.empty()) << k.body;
  }
}

// Warnings leave the table written.
TEST(Report, BoundWarnings) {
  for (const Case& k : {
           Case{" print s col 50 on r\n report name r width 40\n", "line 5: WARNING  Previous PRINT statement/s exceeded report bounds"},
           Case{" report name r width 40\n print s col 35 on r\n", "line 5: WARNING  PRINTing outside report bounds"},
           Case{" report\n print box @ 1,1 to @ 2,2\n", "line 5: WARNING  Statement not implemented - 'box'"},
       }) {
    tavtest::Compiled c = compile(k.body);
    EXPECT_TRUE(says(c, k.line)) << k.body << c.result.out;
    EXPECT_EQ(c.result.status, 0) << k.body << c.result.out;
  }
  // Within the bounds, and on a report without a limit: nothing to say.
  tavtest::Compiled quiet = compile(" print s col 30 on r\n report name r width 40 length 0\n print s col 20 on r\n");
  EXPECT_EQ(quiet.result.status, 0) << quiet.result.out;
  EXPECT_FALSE(contains(quiet.result.out, "WARNING")) << quiet.result.out;
}

}  // namespace
