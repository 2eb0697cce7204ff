// The structured statements as tavcmp compiles them: the op lists of IF, WHILE, REPEAT, FOR and
// SWITCH with their patched jumps, loop exits and depth checks, and recovery from missing ends.

#include "statements/records.h"
#include "symbols/records.h"
#include "tests/e2e/driver_fixture.h"

namespace {

using namespace tav;
using namespace drvtest;
using tavtest::Op6;

// Compiles a section `main` of the given kind with the given body after the numeric fields a and
// i and the alphanumeric t.
tavtest::Compiled compile(const std::string& statements, const std::string& kind = "procedure") {
  return compile_source("field a pic 9(4)\nfield i pic 9(4)\nfield t pic x(8)\n" + kind + " main\n" + statements + "end\n");
}

// The table of a body that must compile cleanly.
Op6 body(const std::string& statements) {
  tavtest::Compiled c = compile(statements);
  EXPECT_EQ(c.result.status, 0) << statements << c.result.out << c.result.err;
  return c.image;
}

std::string messages(const std::string& statements, const std::string& kind = "procedure") {
  return compile(statements, kind).result.out;
}

using Codes = std::vector<Op>;

TEST(ControlFlow, IfChainsPatchTheirJumps) {
  Op6 t = body("if a = 1\n pause\nelse-if a = 2 then\n pause\nelse\n pause\nend-if\npause\n");
  auto ops = t.list(t.detail());
  ASSERT_EQ(t.codes(t.detail()), (Codes{Op::if_, Op::pause, Op::jump, Op::if_, Op::pause, Op::jump, Op::pause, Op::pause}));
  // A false first test goes on after the first jump, the second skips to the ELSE part; jumps name
  // the last op of the construct.
  EXPECT_EQ((std::vector<uint32_t>{t.u24(ops[0] + ifop::if_false), t.u24(ops[3] + ifop::if_false), t.u24(ops[2] + jump::j_target),
                                   t.u24(ops[5] + jump::j_target)}),
            (std::vector<uint32_t>{ops[2], ops[5], ops[6], ops[6]}));
  for (uint32_t i : {0u, 3u}) EXPECT_EQ(t.codes(t.u24(ops[i] + ifop::if_condition)).back(), Op::comparison);
}

TEST(ControlFlow, IfWithoutElseNamesTheEndOfItsBody) {
  Op6 t = body("if a = 1\n pause\n if a = 2\n  pause\n end-if\nend-if\npause\n");
  auto ops = t.list(t.detail());
  ASSERT_EQ(t.codes(t.detail()), (Codes{Op::if_, Op::pause, Op::if_, Op::pause, Op::pause}));
  // The outer body ends with the inner one.
  EXPECT_EQ((std::vector<uint32_t>{t.u24(ops[0] + ifop::if_false), t.u24(ops[2] + ifop::if_false)}),
            (std::vector<uint32_t>{ops[3], ops[3]}));
}

TEST(ControlFlow, LoopsKeepTheirListsInTheirOwnOperands) {
  Op6 w = body("while a < 3 detail\n pause\n break\nend-while\npause\n");
  ASSERT_EQ(w.codes(w.detail()), (Codes{Op::while_, Op::pause}));
  uint32_t op = w.detail();
  EXPECT_EQ(w.codes(w.u24(op + loop::lp_body)), (Codes{Op::pause, Op::break_}));
  EXPECT_EQ(w.codes(w.u24(op + loop::lp_condition)).back(), Op::comparison);
  EXPECT_EQ(w.u24(op + loop::lp_increment), 0u);

  Op6 r = body("repeat\n pause\nuntil a = 1\n continue\nend-repeat\n");
  ASSERT_EQ(r.codes(r.detail()), (Codes{Op::repeat}));
  op = r.detail();
  EXPECT_EQ(r.codes(r.u24(op + repeat::rp_first)), (Codes{Op::pause}));
  EXPECT_EQ(r.codes(r.u24(op + repeat::rp_second)), (Codes{Op::continue_}));
  EXPECT_EQ(r.codes(r.u24(op + repeat::rp_until)).back(), Op::comparison);
}

TEST(ControlFlow, ForIsAnAssignmentAndAWhileWithIncrement) {
  struct Case {
    const char* header;
    uint16_t comparison;
    Op step_op;
    uint32_t step;
  };
  const Case cases[] = {
      {"for i = 1 to 10\n", cmpop::code_le, Op::add, 1},
      {"for i = 10 down to 1 step 2 detail\n", cmpop::code_ge, Op::subtract, 2},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.header);
    Op6 t = body(std::string(c.header) + " pause\nend-for\n");
      auto ops = t.list(t.detail());
    ASSERT_EQ(t.codes(t.detail()), (Codes{Op::set, Op::while_}));
    uint32_t field = t.u24(ops[0] + setop::st_field);
    EXPECT_EQ(t.text(t.u24(field + fsym::f_name)), "i");

    uint32_t loop = ops[1];
    auto cond = t.list(t.u24(loop + loop::lp_condition));
    ASSERT_EQ(t.codes(t.u24(loop + loop::lp_condition)), (Codes{Op::field_ref, Op::literal, Op::comparison}));
    EXPECT_EQ((std::vector<uint32_t>{t.u24(cond[0] + fieldref::fr_field), t.u16(cond[0] + fieldref::fr_format),
                                     t.u16(cond[2] + cmpop::cmp_code)}),
              (std::vector<uint32_t>{field, t.u16(field + fsym::f_format), c.comparison}));

    EXPECT_EQ(t.codes(t.u24(loop + loop::lp_body)), (Codes{Op::pause}));
    auto inc = t.list(t.u24(loop + loop::lp_increment));
    ASSERT_EQ(t.codes(t.u24(loop + loop::lp_increment)), (Codes{Op::set}));
    EXPECT_EQ((std::vector<uint32_t>{t.u24(inc[0] + setop::st_field), t.u16(inc[0] + setop::st_format)}),
              (std::vector<uint32_t>{field, t.u16(field + fsym::f_format)}));
    ASSERT_EQ(t.codes(t.u24(inc[0] + setop::st_value)), (Codes{Op::field_ref, Op::literal, c.step_op}));
    EXPECT_EQ(t.u16(t.u24(t.list(t.u24(inc[0] + setop::st_value))[1] + literal::lit_value)), c.step);
  }
}

TEST(ControlFlow, SwitchLinksItsCasesAndPatchesItsJumps) {
  Op6 t = body("switch on a\ncase 1 2\n pause\ncase of 3\n pause\nelse\n pause\nend-switch\n");
  auto ops = t.list(t.detail());
  ASSERT_EQ(t.codes(t.detail()), (Codes{Op::switch_, Op::case_, Op::pause, Op::jump, Op::case_, Op::pause, Op::jump, Op::pause}));
  uint32_t sw = ops[0];
  EXPECT_EQ(t.u16(sw + switchop::sw_variant), 0u);
  EXPECT_EQ(t.u24(sw + switchop::sw_first_case), ops[1]);
  EXPECT_EQ(t.u24(ops[1] + caseop::cs_next), ops[4]);
  EXPECT_EQ(t.u24(ops[4] + caseop::cs_next), 0u);
  // No match goes on after the jump before ELSE; both jumps go to the end.
  EXPECT_EQ((std::vector<uint32_t>{t.u24(sw + switchop::sw_else), t.u24(ops[3] + jump::j_target), t.u24(ops[6] + jump::j_target)}),
            (std::vector<uint32_t>{ops[6], ops[7], ops[7]}));

  // Values are pushed at the front: 2 before 1, stored as 2-byte binary with format 0x2020.
  std::vector<uint32_t> values;
  for (uint32_t e = t.u24(ops[1] + caseop::cs_values); e != 0 && values.size() < 10; e = t.u24(e + casevalue::cv_next)) {
    EXPECT_EQ(t.u16(e + casevalue::cv_format), 0x2020u);
    values.push_back(t.u16(t.u24(e + casevalue::cv_value)));
  }
  EXPECT_EQ(values, (std::vector<uint32_t>{2, 1}));
}

TEST(ControlFlow, SwitchWithoutElseAndWithAlphaValues) {
  Op6 t = body("switch ascii t\ncase \"AB\"\n pause\nend-switch\npause\n");
  auto ops = t.list(t.detail());
  ASSERT_EQ(t.codes(t.detail()), (Codes{Op::switch_, Op::case_, Op::pause, Op::pause}));
  EXPECT_EQ(t.u16(ops[0] + switchop::sw_variant), switchop::variant_ascii);
  EXPECT_EQ(t.u24(ops[0] + switchop::sw_else), ops[2]) << "without ELSE: the last op of the construct";
  uint32_t e = t.u24(ops[1] + caseop::cs_values);
  EXPECT_EQ(t.u16(e + casevalue::cv_format), 2u);
  EXPECT_EQ(t.bytes().substr(t.u24(e + casevalue::cv_value), 2), "AB");
}

TEST(ControlFlow, DepthAndPlacementErrors) {
  struct Case {
    const char* kind;
    const char* statements;
    const char* message;  // nullptr: compiles without error
  };
  const Case cases[] = {
      {"procedure", "break\n", "Not in a looping section of code"},
      {"procedure", "if a = 1\n continue\nend-if\n", "Not in a looping section of code"},
      {"menu", "break\n", nullptr},
      {"procedure", "case 1\n", "SWITCH statement is not active"},
      {"procedure", "until a = 1\n", "REPEAT statement is not active"},
      {"procedure", "end-while\n", "Incorrect nesting of conditional statements"},
      {"procedure", "switch a\ncase \"A\"\n pause\nend-switch\n", "CASE value not compatible with expression in SWITCH"},
      {"procedure", "switch t\ncase 4\n pause\nend-switch\n", "CASE value not compatible with expression in SWITCH"},
      {"procedure", "switch a\ncase (\n pause\nend-switch\n", "Literal value expected"},
      {"procedure", "for t = 1 to 3\nend-for\n", "Field must be numeric"},
      {"procedure", "for a = 1 to \"x\"\nend-for\n", "Mixed numeric and alpha operands in expression"},
      {"procedure", "for a = 1 until 3\nend-for\n", "Syntax error"},
  };
  for (const Case& c : cases) {
    const std::string out = messages(c.statements, c.kind);
    EXPECT_TRUE(c.message ? contains(out, c.message) : !contains(out, "ERROR")) << c.statements << out;
  }
}

TEST(ControlFlow, MissingEndIsReportedOnceAndTheNextSectionCompiles) {
  struct Case {
    const char* open;
    const char* message;
  };
  const Case cases[] = {
      {"if a = 1\n", "END-IF missing"},          {"while a = 1\n", "END-WHILE missing"},
      {"repeat\n", "UNTIL missing"},             {"repeat\nuntil a = 1\n", "END-REPEAT missing"},
      {"for a = 1 to 2\n", "END-FOR missing"},   {"switch a\ncase 1\n", "END-SWITCH missing"},
  };
  for (const Case& c : cases) {
    // The construct is still open when the next section starts; that section must compile as
    // usual, so its own BREAK outside a loop is the only other error.
    const std::string out = messages(std::string(c.open) + " pause\nprocedure other\n break\n");
    EXPECT_TRUE(contains(out, c.message) && contains(out, "Not in a looping section of code")) << c.open << out;
    EXPECT_FALSE(contains(out, "Incorrect nesting") || contains(out, "No current SCREEN")) << c.open << out;
  }
}

TEST(ControlFlow, NoPathAfterExitBreakContinue) {
  const char* cases[] = {"exit\n pause\n", "while a = 1\n break\n pause\nend-while\n",
                         "while a = 1\n continue\n pause\nend-while\n"};
  for (const char* c : cases) EXPECT_TRUE(contains(messages(c), "WARNING  No path to statement")) << c << messages(c);
  // The path is open again after a branch and after the construct.
  EXPECT_FALSE(contains(messages("if a = 1\n exit\nelse\n pause\nend-if\npause\n"), "No path to statement"));
}

TEST(ControlFlow, MalformedInputEnds) {
  const char* cases[] = {
      "if\n",          "if a =\n",        "if a = 1 else-if\n", "else\nend-if\n",   "while (\n",
      "repeat until\n", "for\n",          "for a\n",            "for a = 1 to\n",   "for a = 1 down\n",
      "switch\n",      "switch a case\n", "switch a\ncase 1 2 \"x\" ( ]\n", "break 1 2\n", "if a = 1 if a = 2 if\n",
      "for a = 1 to 2 step\n",            "switch a\nelse\nelse\nend-switch\n",  "until\nend-repeat\n",
  };
  for (const char* c : cases) {
    const RunResult r = compile_source(std::string("field a pic 9(4)\nprocedure main\n") + c).result;
    // Statuses above 128 but 255 (-1, the file abandoned) would be signals.
    EXPECT_TRUE(r.status < 128 || r.status == 255) << c << r.out << r.err;
    EXPECT_NE(r.status, 0) << c << r.out;
    EXPECT_EQ(r.out.find("FATAL"), std::string::npos) << c << r.out;
  }
}

}  // namespace
