// The structural statements that take expressions: EXIT values, DO with PARAMETERS and
// RETURNING, OPTION items, COMMAND / CALL / QUERY blocks, CONFIRM and MODE clauses.

#include "codegen/header.h"
#include "statements/records.h"
#include "symbols/records.h"
#include "tests/e2e/driver_fixture.h"

namespace {

using namespace tav;
using namespace drvtest;
using tavtest::Op6;

tavtest::Compiled compile(const std::string& source) {
  return compile_source("field a pic 9(4)\nfield b pic x(10)\nfield arr pic 9(2) occurs 3\n" + source);
}

Op6 compiled(const std::string& source) {
  tavtest::Compiled c = compile(source);
  EXPECT_EQ(c.result.status, 0) << source << c.result.out << c.result.err;
  if (c.result.status != 0) return {};
  return c.image;
}

std::string messages(const std::string& source) { return compile(source).result.out; }

// The kind letter of a text item.
char text_kind(const Op6& t, uint32_t item) { return static_cast<char>(t.u8(t.u24(hdr::h_text) + item * 5)); }

TEST(StructureStatements, ExitValues) {
  Op6 t = compiled("procedure main\n exit 0\n exit 5\n exit a + 1\n exit 9000000\nend\n");
  auto ops = t.list(t.detail());
  ASSERT_EQ(ops.size(), 4u);
  // EXIT 0: an immediate 0 would mean "no value", so it is a one-op literal list.
  uint32_t zero = t.u24(ops[0] + exitop::ex_value);
  ASSERT_TRUE(zero & kOperandList);
  uint32_t lit = zero & ~kOperandList;
  EXPECT_EQ(t.u24(lit), 0u);
  EXPECT_EQ(t.opcode(lit), Op::literal);
  EXPECT_EQ(t.u16(lit + literal::lit_format), literal::format_one_digit);
  EXPECT_EQ(t.u16(t.u24(lit + literal::lit_value)), 0u);
  EXPECT_EQ(t.u24(ops[1] + exitop::ex_value), 5u);
  EXPECT_TRUE(t.u24(ops[2] + exitop::ex_value) & kOperandList);
  // A value too large for an immediate operand is a literal list too.
  const uint32_t large = t.u24(ops[3] + exitop::ex_value);
  ASSERT_TRUE(large & kOperandList);
  EXPECT_EQ(t.opcode(large & ~kOperandList), Op::literal);
  // No value at all leaves the operand 0.
  Op6 bare = compiled("procedure main\n exit\nend\n");
  EXPECT_EQ(bare.u24(bare.detail() + exitop::ex_value), 0u);
}

TEST(StructureStatements, DoWithParametersAndReturning) {
  Op6 t = compiled("procedure main\n do sub\n do sub parameters a, \"x\" returning b\nend\n"
                   "procedure sub parameters n pic 9(4) s pic x(10) returning r pic x(10)\nend\n");
  ASSERT_EQ(t.codes(t.detail()), (std::vector<Op>{Op::do_, Op::do_parameters}));
  auto ops = t.list(t.detail());
  uint32_t op = ops[1];
  EXPECT_EQ(t.text(t.u24(t.u24(op + doop::do_section) + ssym::s_name)), "sub");

  std::vector<uint32_t> args;
  for (uint32_t e = t.u24(op + doop::do_params); e != 0 && args.size() < 10; e = t.u24(e + exprlist::el_next))
    args.push_back(t.u24(e + exprlist::el_list));
  ASSERT_EQ(args.size(), 2u);
  EXPECT_EQ(t.opcode(args[0]), Op::field_ref);
  EXPECT_EQ(t.text(t.u24(t.u24(args[0] + fieldref::fr_field) + fsym::f_name)), "a");
  EXPECT_EQ(t.opcode(args[1]), Op::literal);

  uint32_t r = t.u24(op + doop::do_returning);
  ASSERT_NE(r, 0u);
  EXPECT_EQ(t.u24(r + retlist::rl_next), 0u);
  uint32_t field = t.u24(r + retlist::rl_field);
  EXPECT_EQ(t.text(t.u24(field + fsym::f_name)), "b");
  EXPECT_EQ(t.u24(r + retlist::rl_address), t.u24(field + fsym::f_addr));
}

TEST(StructureStatements, OptionItems) {
  Op6 t = compiled(
      "menu main\n"
      " option \"Hello\" @ 2, 3 help \"Greets\" security 5 when a = 1 icon 4\n"
      " option \"Hid\" hidden log \"audit\" bitmap \"b.bmp\" colour 32768\n"
      "end-menu\n");
  auto ops = t.list(t.detail());
  ASSERT_EQ(ops.size(), 2u);
  for (uint32_t op : ops) {
    EXPECT_EQ(t.opcode(op), Op::option);
    EXPECT_EQ(t.u16(op + optionop::opt_size), option::size);
  }
  uint32_t first = t.u24(ops[0] + optionop::opt_item);
  EXPECT_EQ((std::vector<uint32_t>{t.u24(first + option::o_position), t.u24(first + option::o_position + 3)}),
            (std::vector<uint32_t>{2, 3}));
  uint32_t title = t.u24(first + option::o_title);
  ASSERT_EQ(t.opcode(title), Op::text_item);
  EXPECT_EQ(text_kind(t, t.u16(title + textitem::ti_item)), 'O');
  EXPECT_NE(t.u24(first + option::o_help), 0u);
  EXPECT_NE(t.u24(first + option::o_when), 0u);
  EXPECT_EQ(t.u16(first + option::o_security), 5u);
  EXPECT_EQ(t.text(t.u24(first + option::o_log)), "Hello") << "LOG defaults to the title";
  EXPECT_EQ(t.u8(first + option::o_flags), option::flag_icon);
  EXPECT_EQ(t.u24(first + option::o_icon), 4u);

  uint32_t second = t.u24(ops[1] + optionop::opt_item);
  EXPECT_EQ((std::vector<uint32_t>{t.u24(second + option::o_position), t.u24(second + option::o_position + 3)}),
            (std::vector<uint32_t>{1, 1}))
      << "HIDDEN without a position: row 1, column 1";
  EXPECT_EQ(t.text(t.u24(second + option::o_log)), "audit");
  EXPECT_EQ(t.u8(second + option::o_flags), option::flag_bitmap | option::flag_extended);
  EXPECT_EQ(t.u16(second + option::o_attributes), option::attr_hidden);
  EXPECT_NE(t.u24(second + option::o_bitmap), 0u);
  EXPECT_NE(t.u24(second + option::o_bitmap_fg), 0u) << "with a BITMAP the colour moves to bytes 53-55";
}

TEST(StructureStatements, CommandBlocks) {
  Op6 t = compiled(
      "procedure main\n"
      " command \"ls\" parameters \"-l\", a no-wait\n"
      " call \"prog\" returning b leave-files-open external\n"
      " query \"q\" spool pause\n"
      " command \"vi\" pause maximum-parameters 20\n"
      "end\n");
  auto ops = t.list(t.detail());
  // PAUSE ends a QUERY (and becomes a statement) but is a clause of COMMAND.
  ASSERT_EQ(t.codes(t.detail()), (std::vector<Op>{Op::command, Op::call, Op::query, Op::pause, Op::command}));

  uint32_t cmd = t.u24(ops[0] + optionop::opt_item);
  EXPECT_EQ(t.u16(cmd + cmdblock::cb_flags), cmdblock::background);
  EXPECT_NE(t.u24(cmd + cmdblock::cb_command), 0u);
  int params = 0;
  for (uint32_t e = t.u24(cmd + cmdblock::cb_params); e != 0 && params < 10; e = t.u24(e + exprlist::el_next)) ++params;
  EXPECT_EQ(params, 2);

  uint32_t call = t.u24(ops[1] + cmdop::cmd_block);
  EXPECT_EQ(t.u16(call + cmdblock::cb_flags), cmdblock::leave_files_open) << "LEAVE-FILES-OPEN clears EXTERNAL";
  EXPECT_NE(t.u24(call + cmdblock::cb_returning), 0u);

  EXPECT_EQ(t.u16(t.u24(ops[2] + cmdop::cmd_block) + cmdblock::cb_flags), cmdblock::spool);
  uint32_t vi = t.u24(ops[4] + cmdop::cmd_block);
  EXPECT_EQ(t.u16(vi + cmdblock::cb_flags), cmdblock::pause);
  EXPECT_EQ(t.u24(vi + cmdblock::cb_maximum), 20u);
}

// How often a clash of clauses is reported: a clause both repeated and out of place twice; a
// clause of another statement once however many others it clashes with; PAUSE after CALL is the
// next statement.
TEST(StructureStatements, CommandClauseClashes) {
  const std::pair<const char*, int> cases[] = {
      {"command \"x\" spool\n", 1},          {"query \"x\" leave-files-open\n", 1}, {"command \"x\" background wait\n", 1},
      {"command \"x\" pause no-refresh\n", 1}, {"command \"x\" returning b\n", 1},  {"call \"x\" batch returning b\n", 1},
      {"call \"x\" home a home a\n", 1},
      {"command \"x\" returning b returning b\n", 3},  {"call \"x\" returning b background background\n", 3},
      {"call \"x\" batch returning b returning b\n", 3}, {"query \"x\" no-pause no-pause spool spool\n", 2},
      {"command \"x\" no-xterm pause no-refresh\n", 2},  {"call \"x\" leave-files-open no-refresh pause\n", 1},
  };
  for (const auto& [source, count] : cases) {
    const std::string out = messages(std::string("procedure main\n ") + source + "end\n");
    int reports = 0;
    for (size_t at = out.find("Duplicate or incompatible"); at != std::string::npos; at = out.find("Duplicate or incompatible", at + 1))
      ++reports;
    EXPECT_EQ(reports, count) << source << out;
  }
}

TEST(StructureStatements, Messages) {
  const std::pair<const char*, const char*> cases[] = {
      {"procedure main\n do sub parameters a parameters a\nend\nprocedure sub\nend\n", "Duplicate or incompatible clause"},
      {"procedure main\n do sub returning 5\nend\nprocedure sub\nend\n", "Field name expected"},
      {"menu main\n option \"x\"\nend-menu\n", "Row/Column coordinates are mandatory"},
      {"procedure main\n option \"x\" @ 1, 1\nend\n", "Statement only valid within the DETAIL of a MENU/SCREEN"},
      {"menu main\n option 5 @ 1, 1\nend-menu\n", "Alphanumeric expression required"},
      {"menu main\n option \"x\" @ 1, 1 @ 2, 2\nend-menu\n", "Duplicate or incompatible clause"},
      {"menu main\n option \"x\" @ 1, 1 fuzzy\nend-menu\n", "Invalid clause"},
      {"menu main\n option \"x\" @ 1, 1 hot-key 30\nend-menu\n", "Unsupported hot key value"},
      {"menu main\n if a = 1\n  option \"x\" @ 1, 1\n end-if\nend-menu\n", "Statement is not conditional"},
      {"procedure main\n command 5\nend\n", "Alphanumeric expression required"},
      {"procedure main\n command \"x\" maximum-parameters 1000\nend\n", "Numeric value invalid or out of range"},
      {"screen main\n confirm when a = 1 when a = 2\n end-confirm\nend-screen\n", "Duplicate or incompatible clause"},
      {"mode m2 prompt 5\nprocedure main\nend\n", "Alphanumeric expression required"},
      {"version-number v2-beta\nprocedure main\n  pause\nend\n", "WARNING  Invalid version number - 'v2-beta'"},
      {"version-number\nprocedure main\n  pause\nend\n", "ERROR  Invalid version number"},
  };
  for (const auto& [source, message] : cases) {
    const std::string out = messages(source);
    EXPECT_TRUE(contains(out, message)) << source << out;
  }
}

TEST(StructureStatements, ConfirmPositionAndWhen) {
  Op6 t = compiled("screen main\n confirm @ 3, 4 when a = 2\n end-confirm\nend-screen\n");
  uint32_t block = t.u24(t.detail() + confirmop::co_block);
  EXPECT_EQ((std::vector<uint32_t>{t.u24(block + confirm::c_position), t.u24(block + confirm::c_position + 3)}),
            (std::vector<uint32_t>{3, 4}));
  EXPECT_NE(t.u24(block + confirm::c_when), 0u);
}

TEST(StructureStatements, ModePromptHelpAndWhen) {
  Op6 t = compiled("mode archive process prompt \"Arch\" help b when a = 1\nprocedure main\nend\n");
  uint32_t m = 0;
  for (uint32_t e = t.u24(hdr::h_mode_list); e != 0; e = t.u24(e + mode::m_next))
    if (t.text(t.u24(e + mode::m_name)) == "archive") m = e;
  ASSERT_NE(m, 0u);
  uint32_t prompt = t.u24(m + mode::m_prompt);
  ASSERT_EQ(t.opcode(prompt), Op::text_item);
  EXPECT_EQ(text_kind(t, t.u16(prompt + textitem::ti_item)), 'N');
  EXPECT_EQ(t.opcode(t.u24(m + mode::m_help)), Op::field_ref) << "an expression stays an op list";
  EXPECT_NE(t.u24(m + mode::m_when), 0u);
}

TEST(StructureStatements, VersionNumbers) {
  // Versions are read as raw words, with an optional IS; quoted versions keep their text.
  Op6 t = compiled("version-number is 1.2.3\nversion-number \"7.0 beta\"\nversion-number 12\n"
                   "procedure main\n  pause\nend\n");
  std::vector<std::string> texts;
  for (uint32_t e = t.u24(hdr::h_version_list); e != 0 && texts.size() < 10; e = t.u24(e + version::v_next))
    texts.push_back(t.text(t.u24(e + version::v_text)) + "|" + t.text(t.u24(e + version::v_source)));
  EXPECT_EQ(texts, (std::vector<std::string>{"1.2.3|1.2.3", "7.0 beta|7.0 beta", "12|12"}));
}

}  // namespace
