// The SET and STRING statements.
#include "tests/unit/expr_harness.h"

namespace {

using exprtest::Bench;

class Statements : public testing::Test {
 protected:
  void SetUp() override {
    b.field("n", 0x2080);
    b.field("s", 0x000a);
    b.field("arr", 0x2040, 5);
    tav::SymbolTable& syms = b.p().syms;
    for (const char* name : {"o1", "o2", "plain"}) {
      uint32_t o = syms.add_object(name);
      if (std::string_view(name) != "plain") b.ops().put16(o + tav::osym::o_attr, tav::osym::attr_no_joins);
    }
  }
  Bench b;
};

struct Case {
  const char* source;
  const char* ops;  // or the message of an error
};

TEST_F(Statements, SetForms) {
  const Case cases[] = {
      {"set n = n + 1", "set #0 := n 1 +"}, {"set arr[2] to 5", "set #2 := 5"}, {"set arr[n] = 5", "set (n) := 5"},
      {"set n += 2 * 3", "set #0 := n 2 3 * +"}, {"set n -= 1 - 2", "set #0 := n 1 2 - -"},
      {"set arr[1] %= 2", "set #1 := arr[#1] 2 %"}, {"set arr = 0", "set-array := 0"},
      {"set s = 'abc'", "set #0 := 'abc'"}, {"set page-number = 3", "set-special4 := 3"},
      {"set page-number += 1", "set-special4 := call63/0 1 +"}, {"set default font = 2", "set-special1 := 2"},
      {"set default point = 10", "set-special3 := 10"}, {"set o1.* = o2.*", "op86"}, {"set o1.* = *", "op86"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(b.statement(c.source), c.ops) << c.source;
    EXPECT_EQ(b.stopped_at(), "end") << c.source;
  }
  EXPECT_EQ(b.messages(), "");

  b.statement("set page-number = 1 on summary");
  uint32_t op = b.ob().at_level(0).head;
  uint32_t report = b.ops().get24(op + tav::setvar::sv_report);
  ASSERT_NE(report, 0u);
  EXPECT_STREQ(b.ops().text_at(b.ops().get24(report + 2)), "summary");
  EXPECT_EQ(b.ops().get24(tav::hdr::h_report_list), report);

  b.expect_error("set drill-down-level += 1", "WARNING  Obsolete function", true);
  EXPECT_EQ(b.render(b.ob().at_level(0).head), "set-special5 := call160/0 1 +");
}

TEST_F(Statements, SetDiagnostics) {
  const Case cases[] = {
      {"set s = 'longer than ten'", "WARNING  Literal value larger than field"},
      {"set n = 123456", "WARNING  Literal value larger than field"},
      {"set n = 1.5", "WARNING  Literal value larger than field"},
      {"set n = -1", "WARNING  Literal value not compatible with field"},
      {"set s = 1", "Mixed numeric and alpha operands in expression"}, {"set s += 'x'", "Invalid operator"},
      {"set arr += 1", "Invalid operator"}, {"set n ? 1", "Syntax error"},
      {"set default size = 1", "Syntax error"}, {"set 'n' = 1", "Field name expected"},
      {"set page-number = 1 on (", "REPORT name not defined"}, {"set o1.* = o1.*", "Objects are the same"},
      {"set o1.* = n", "Only * or object.* allowed"},
      {"set nothing.* = o1.*", "Left and/or right side must refer to an object"},
      {"set o1.* = plain.*", "Object not declared as NO-JOINS"},
  };
  for (const Case& c : cases) b.expect_error(c.source, c.ops, true);
}

TEST_F(Statements, StringActions) {
  EXPECT_EQ(b.statement("string s inserting 'x' at 3 replacing 'y' at n deleting at 1 to 2 appending s"),
            "string {1 'x' 3} {2 'y' n} {3 1 2} {4 s}");
  EXPECT_EQ(b.stopped_at(), "end");
  EXPECT_EQ(b.messages(), "");
  const Case cases[] = {
      {"string n appending 'x'", "Field must be alpha-numeric"}, {"string 1 appending 'x'", "Field name expected"},
      {"string s inserting 'x'", "AT required"}, {"string s appending 'x' at 1", "Syntax error"},
      {"string s replacing 'a' at 1 to 2", "Syntax error"},
      {"string s inserting 1 at 1", "Alphanumeric expression required"},
      {"string s deleting at 'a'", "Numeric value invalid or out of range"}, {"string s shuffling", "Syntax error"},
  };
  for (const Case& c : cases) b.expect_error(c.source, c.ops, true);
}

TEST_F(Statements, MarkersInDebugCompiles) {
  b.ob().set_debug_ops(true);
  EXPECT_EQ(b.statement("set n = 1"), "op81 set #0 := 1");
  uint32_t marker = b.ob().at_level(0).head;
  EXPECT_EQ(b.ops().get32(b.ops().get24(marker + tav::marker::mk_verb)), tav::verb("set"));
  EXPECT_EQ(b.statement("string s appending 'x'"), "op81 string {4 'x'}");
  // The function call op carries its verb code too.
  b.expr("abs(n)");
  uint32_t call = b.ops().get24(b.ob().at_level(0).head);
  EXPECT_EQ(b.ops().get32(b.ops().get24(call + tav::funcall::fc_verb)), tav::verb("abs"));
}

}  // namespace
