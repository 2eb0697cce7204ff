// Operands: literals and constants, operand values, subscripts, IF-THEN-ELSE and function calls.
#include "tests/unit/expr_harness.h"

#include "expr/expr_internal.h"

namespace {

using exprtest::Bench;

class Operands : public testing::Test {
 protected:
  void SetUp() override {
    b.field("n", 0x2080);
    b.field("s", 0x000a);
    b.field("arr", 0x2040, 5);
  }
  // Compiles an operand value and renders what was stored.
  std::string operand(std::string_view text, int32_t maximum) {
    uint32_t dest = b.ops().alloc(3);
    b.start(text);
    last = tav::compile_operand(b.p(), dest, maximum);
    return b.operand(b.ops().get24(dest));
  }
  Bench b;
  tav::Operand last;
};

TEST_F(Operands, CompiledForms) {
  const std::pair<const char*, const char*> cases[] = {
      // Literals and constants.
      {"12.5", "12.5"}, {"- 3", "-3"}, {"'abc'", "'abc'"}, {"true + false", "1 0 +"}, {"red", "64512"},
      {"box_top + double_box_bottom", "1 128 +"}, {"{d '2079-06-06'}", "D:65535"},
      {"{ts '1970-01-02 00:00:00'}", "N:86400"}, {"show", "mode"},
      // Subscripts, IF-THEN-ELSE and function calls.
      {"arr[2] + arr[n + 1]", "arr[#2] arr[(n 1 +)] +"},
      {"if-then-else(n = 1, 'yes', s)", "ite(n 1 =/20; 'yes'; s)"},
      {"abs(n - 1)", "arg(n 1 -) call2/1"}, {"concat(s, 'a', s)", "arg(s) arg('a') arg(s) call13/3"},
      {"sub_string(s 1 2)", "arg(s) arg(1) arg(2) call87/3"}, {"idx(n, 'a', 'b')", "arg(n) arg('a') arg('b') call40/3"},
      {"size_of(:n)", "arg(field:n) call79/1"}, {"page_no", "call63/0"},
      {"page_no + drill_down_level", "call63/0 call160/0 +"}, {"today", "call194/0"},
  };
  for (const auto& [source, ops] : cases) {
    EXPECT_EQ(b.expr(source), ops) << source;
    EXPECT_EQ(b.stopped_at(), "end") << source;
  }
  EXPECT_EQ(b.messages(), "");
  b.expr("if-then-else(n = 1, 'yes', s)");
  EXPECT_EQ(b.type().alpha_length, 10);
  EXPECT_EQ(b.p().file.opt_version, 4);
  b.expr("concat(s)");
  EXPECT_EQ(b.type().alpha_length, 40);
}

TEST_F(Operands, Errors) {
  const std::pair<const char*, const char*> cases[] = {
      {"{x '1'}", "Conversion not supported for this data type"},
      {"char(n)", "WARNING  CHAR function is replaced by STR"}, {"7 + s", "Mixed numeric and alpha"},
      {"arr", "Field requires a subscript"}, {"n[1]", "Field should not be subscripted"},
      {"arr[6]", "Literal subscript is out of range"}, {"arr[0]", "Literal subscript is out of range"},
      {"arr[1.5]", "Invalid subscript expression"}, {"arr['x']", "Invalid subscript expression"},
      {"if-then-else(n = 1, 'yes', 2)", "Mixed numeric and alpha"}, {"if-then-else n", "Syntax error"},
      {"idx(1, 'a', 'b') + 1", "Mixed numeric and alpha"}, {"abs(s)", "Parameters not of correct type"},
      {"concat(n)", "Parameters not of correct type"}, {"idx(1, 'a', 2)", "Parameters not of correct type"},
      {"sub_string(s, 1)", "Invalid parameter list for function"},
      {"abs(1, 2)", "Invalid parameter list for function"},
      {"abs", "Function requires a parameter list"},
      {"size_of(n[1])", "Subscripting not allowed here"},
      {"max(n)", "Aggregate functions invalid here"},
  };
  for (const auto& [source, message] : cases) b.expect_error(source, message);
}

TEST_F(Operands, LiteralFormats) {
  b.expr("-1.50");
  uint32_t op = b.ob().at_level(0).head;
  EXPECT_EQ(b.ops().get16(op + tav::literal::lit_format), 0x2421u);  // binary decimal, signed, 1 digit, 1 decimal
  EXPECT_EQ(b.ops().get16(b.ops().get24(op + tav::literal::lit_value)), 0xFFF1u);  // -15 in two bytes
}

TEST_F(Operands, OperandValues) {
  EXPECT_EQ(operand("7", 0), "#7");
  EXPECT_TRUE(last.literal);
  EXPECT_EQ(operand("8388607", 0), "#8388607");
  EXPECT_EQ(operand("8388608", -1), "(8388608)");
  EXPECT_EQ(operand("n + 1", 0), "(n 1 +)");
  EXPECT_FALSE(last.literal);
  EXPECT_EQ(operand("12", 10), "(12)");  // above the maximum
  EXPECT_NE(b.messages().find("Numeric value invalid or out of range"), std::string::npos);
  EXPECT_EQ(operand("1.5", -2), "(1.5)");
  EXPECT_EQ(operand("-1", -1), "(-1)");
  EXPECT_EQ(b.messages(), "");
  // A folded literal gives its op space back.
  uint32_t before = b.ops().brk();
  operand("9", 0);
  EXPECT_EQ(b.ops().brk(), before + 3 + 0);  // only the destination of this call remains
}

// Numbers and codes identify a function in the compiled file and at run time: no two rows share one.
TEST(FunctionTable, NumbersAndCodesAreUnique) {
  using namespace tav::expr;
  for (int i = 0; i < kFunctionCount; ++i)
    for (int j = i + 1; j < kFunctionCount; ++j) {
      EXPECT_NE(kFunctions[i].number, kFunctions[j].number) << i << " " << j;
      EXPECT_NE(kFunctions[i].code, kFunctions[j].code) << i << " " << j;
    }
}

}  // namespace
