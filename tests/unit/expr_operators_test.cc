// Operators: precedence and postfix order, comparisons and their junctions, NOT, BETWEEN, sets,
// and the errors that abandon an expression.
#include "tests/unit/expr_harness.h"

namespace {

using exprtest::Bench;

struct Case {
  const char* source;
  const char* ops;  // or the message of an error
};

class Operators : public testing::Test {
 protected:
  void SetUp() override {
    a = b.field("a", 0x2080);
    b.field("b", 0x2080);
    b.field("c", 0x2080);
    b.field("s", 0x000a);
    b.field("t", 0x0014);
  }
  Bench b;
  uint32_t a = 0;
};

TEST_F(Operators, PostfixOrder) {
  const std::vector<Case> expressions = {
      {"a + b * c", "a b c * +"}, {"(a + b) * c", "a b + c *"}, {"a - b - c", "a b - c -"},
      {"a / b % c", "a b / c %"}, {"((a))", "a"}, {"- a * b", "a neg b *"}, {"- (a + 1)", "a 1 + neg"},
      {"- 5 + a", "-5 a +"}, {"a * - b", "a b neg *"},
  };
  const std::vector<Case> conditions = {
      {"a = 1", "a 1 ="}, {"a <> 1 or b >= 2", "a 1 != b 2 >= OR"},
      {"a < 1 and b <= 2 or c > 3", "a 1 < b 2 <= AND c 3 > OR"},
      {"a = 1 or b = 2 and c = 3", "a 1 = b 2 = c 3 = AND OR"}, {"not (a = 1 and b = 2)", "a 1 != b 2 != OR"},
      {"not a = 1 and b = 2", "a 1 != b 2 = AND"}, {"a not = 1", "a 1 !="}, {"a", "a 0 !="}, {"not a", "a 0 ="},
      {"a and b = 1", "a 0 != b 1 = AND"}, {"a between 1 and 5", "a 1 >=/1 5 <= AND"},
      {"a not between 1 + b and 5", "a 1 b + </1 5 > OR"}, {"a in {1 2 3}", "a 1 =/1 2 =/1 OR 3 = OR"},
      {"a in (1, b + 1)", "a 1 =/1 b 1 + = OR"}, {"a not in (1, 2) and b = 1", "a 1 !=/1 2 != AND b 1 = AND"},
      {"s like 'x%'", "s 'x%' =/4"}, {"collate s < t", "s t </8"}, {"ascii s >= t", "s t >=/10"},
  };
  for (bool condition : {false, true})
    for (const Case& c : condition ? conditions : expressions) {
      EXPECT_EQ(b.expr(c.source, condition), c.ops) << c.source;
      EXPECT_EQ(b.stopped_at(), "end") << c.source;
    }
  EXPECT_EQ(b.messages(), "");
}

// Every comparison and junction names its parent; children of an OR carry bit 0x02.
TEST_F(Operators, ConditionLinks) {
  b.expr("a = 1 and b = 2 or c = 3", true);
  tav::OpSpace& ops = b.ops();
  std::vector<uint32_t> list;
  for (uint32_t op = b.ob().at_level(0).head; op != 0; op = ops.get24(op)) {
    const tav::Op code = ops.opcode(op);
    if (code == tav::Op::comparison || code == tav::Op::and_ || code == tav::Op::or_) list.push_back(op);
  }
  ASSERT_EQ(list.size(), 5u);  // =, =, AND, =, OR
  uint32_t c1 = list[0], c2 = list[1], and_op = list[2], c3 = list[3], or_op = list[4];
  EXPECT_EQ(ops.get24(c1 + tav::cmpop::cmp_parent), and_op);
  EXPECT_EQ(ops.get24(c2 + tav::cmpop::cmp_parent), and_op);
  EXPECT_EQ(ops.get24(and_op + tav::cmpop::cmp_parent), or_op);
  EXPECT_EQ(ops.get24(c3 + tav::cmpop::cmp_parent), or_op);
  EXPECT_EQ(ops.get24(or_op + tav::cmpop::cmp_parent), 0u);
  EXPECT_EQ(ops.get16(c1 + tav::cmpop::cmp_code) & 2, 0u);
  EXPECT_EQ(ops.get16(and_op + tav::cmpop::cmp_code) & 2, 2u);
  EXPECT_EQ(ops.get16(c3 + tav::cmpop::cmp_code) & 2, 2u);
}

TEST_F(Operators, TypesOfExpressions) {
  b.expr("a / 3");
  EXPECT_EQ(b.type().digits, 4);
  EXPECT_EQ(b.type().decimals, 4);
  b.expr("s");
  EXPECT_EQ(b.type().alpha_length, 10);
  EXPECT_TRUE(b.type().alphanumeric());
}

// Each error is reported once and the compiler stops at the next statement (here "end").
TEST_F(Operators, Errors) {
  const Case cases[] = {
      {"\"abc\" + 1", "Mixed numeric and alpha operands in expression"},
      {"s = 1", "Mixed numeric and alpha operands in expression"},
      {"a like 'x'", "Mixed numeric and alpha operands in expression"}, {"(a + 1", "Invalid expression"},
      {"a + 1)", "Invalid expression"}, {"a + * b", "Field name expected"}, {"a = b = c", "Invalid operator"},
      {"a not + b", "Invalid operator"}, {"a between 1", "AND missing from BETWEEN test"},
      {"a in 1", "Sets must be enclosed in {} or ()"}, {"a in {}", "Invalid set of values"},
      {"a in {1 2", "} missing"},
      {"a in (1 2}", ") missing"},
      {"a in (1 and 2)", "Invalid operator"}, {"s and a = 1", "Invalid operator"},
  };
  for (const Case& c : cases) b.expect_error(c.source, c.ops);
}

TEST_F(Operators, StackLimit) {
  b.expr(std::string(200, '(') + "a" + std::string(200, ')'));
  EXPECT_EQ(b.messages(), "");
  b.expect_error(std::string(201, '(') + "a" + std::string(201, ')'), "Expression too complex");
  EXPECT_EQ(b.ob().op_stack_depth, -1);
  // The limit counts the operators of nested expressions too.
  std::string minus;
  for (int i = 0; i < 60; ++i) minus += "- ";
  b.expect_error(std::string(150, '(') + "abs(" + minus + "a)" + std::string(150, ')'), "Expression too complex");
  EXPECT_EQ(b.ob().op_stack_depth, -1);
}

}  // namespace
