// Macro replacement in program text and #if expressions.
#include <gtest/gtest.h>

#include "expr.h"
#include "macros.h"

namespace tav::pp {
namespace {

MacroTable table_of(std::initializer_list<const char*> defines) {
  MacroTable t;
  for (const char* d : defines) t.define(*parse_define(d));
  return t;
}

TEST(TavppExpand, ProgramText) {
  MacroTable t = table_of({"MAX 10", "SQ(x) ((x) * (x))", "ADD(a, b) a + b", "A B", "B A",
                           "SELF SELF + 1", "EMPTY", "NOARGS() done", "HASH #x",
                           "NESTED(x) SQ(x)"});
  const std::pair<const char*, const char*> cases[] = {
      {"x = MAX", "x = 10"}, {"-MAX MAX- (MAX)", "-10 10- (10)"},
      {"MAX-ROWS ROWS-MAX A-MAX-B 1-MAX MAXX _MAX", "MAX-ROWS ROWS-MAX A-MAX-B 1-MAX MAXX _MAX"},
      {"'MAX' \"MAX\" 'it''s MAX'", "'MAX' \"MAX\" 'it''s MAX'"}, {"'open MAX", "'open MAX"},
      {"MAX // MAX", "10 // MAX"}, {"SQ(MAX) SQ (2)", "((10) * (10)) ((2) * (2))"},
      {"SQ", "SQ"},  // function-like without "(" is left alone
      {"ADD((1, 2), 'a,)')", "(1, 2) + 'a,)'"},
      {"A", "A"},              // A -> B -> A stops
      {"SELF", "SELF + 1"}, {"[EMPTY]", "[]"}, {"NOARGS()", "done"}, {"NESTED(MAX)", "((10) * (10))"}, {"HASH", "#x"},
  };
  for (const auto& [in, out] : cases)
    EXPECT_EQ(Expander(t, WordRule::program).expand(in).value_or("<failed>"), out) << in;
}

TEST(TavppExpand, Failures) {
  MacroTable t = table_of({"SQ(x) x", "ADD(a,b) a", "L1 L2 L2 L2 L2", "L2 L3 L3 L3 L3",
                           "L3 L4 L4 L4 L4", "L4 L5 L5 L5 L5", "L5 L6 L6 L6 L6",
                           "L6 L7 L7 L7 L7", "L7 L8 L8 L8 L8", "L8 L9 L9 L9 L9",
                           "L9 L10 L10 L10 L10", "L10 L11 L11 L11 L11",
                           "L11 xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"});
  const std::pair<const char*, Msg> cases[] = {
      {"SQ(1", Msg::unterminated_call}, {"ADD(1)", Msg::macro_arg_count}, {"SQ(1, 2)", Msg::macro_arg_count},
      {"L1", Msg::expansion_too_long},
  };
  for (const auto& [in, msg] : cases) {
    Expander e(t, WordRule::program);
    EXPECT_FALSE(e.expand(in)) << in;
    EXPECT_EQ(e.problem().msg, msg) << in;
  }
}

TEST(TavppExpand, Defines) {
  for (const char* bad : {"", "1X", "MAX-ROWS 10", "MAX=10", "F(a,", "F(a,a) x", "F(1) x",
                          "defined 1", "F(a b) x"})
    EXPECT_FALSE(parse_define(bad)) << bad;
  auto m = parse_define("F( a , b )  a b ");
  ASSERT_TRUE(m);
  EXPECT_TRUE(m->function_like);
  EXPECT_EQ(m->params, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(m->body, "a b");
  m = parse_define("G (a) a");  // a blank before "(" makes it object-like
  ASSERT_TRUE(m);
  EXPECT_FALSE(m->function_like);
  EXPECT_EQ(m->body, "(a) a");
}

std::int64_t eval(const MacroTable& t, const char* text, ExprStatus want = ExprStatus::ok) {
  auto resolved = resolve_defined(text, t);
  EXPECT_TRUE(resolved) << text;
  Expander e(t, WordRule::expression);
  auto expanded = e.expand(resolved.value_or(""));
  EXPECT_TRUE(expanded) << text;
  ExprResult r = evaluate(expanded.value_or(""));
  EXPECT_EQ(r.status, want) << text;
  return r.value;
}

TEST(TavppExpr, Values) {
  MacroTable t = table_of({"R 65", "TWO 1+1", "F(x) (x*2)", "MAX 3"});
  const std::pair<const char*, std::int64_t> cases[] = {
      {"1 + 2 * 3", 7},        {"(1 + 2) * 3", 9},     {"10 / 3", 3},
      {"-10 % 3", -1},         {"0x1F + 010", 39},     {"10UL", 10},
      {"TWO * 2", 3},          {"F(TWO)", 3},          {"R >= 65 && R < 70", 1},
      {"MAX-1", 2},            {"unknown", 0},         {"!0 + ~0", 0},
      {"1 << 4 >> 2", 4},      {"1 << 64", 0},         {"-8 >> 100", -1},
      {"6 & 3 | 8 ^ 1", 11},   {"1 < 2 == 1", 1},      {"2 != 2 || 3 <= 3", 1},
      {"0 ? 1 : 2 ? 3 : 4", 3}, {"1 ? 5 : 1/0", 5},    {"0 && 1/0", 0},
      {"defined R + defined(X) + defined ( MAX )", 2}, {"-9223372036854775807 - 1", INT64_MIN},
      {"(-9223372036854775807 - 1) / -1", INT64_MIN}, {"9223372036854775807 + 1", INT64_MIN},
  };
  for (const auto& [in, value] : cases) EXPECT_EQ(eval(t, in), value) << in;
}

TEST(TavppExpr, Errors) {
  MacroTable t;
  for (const char* bad : {"", "1 +", "(1", "1)", "1 ? 2", "09", "0x", "1 2", "'a'", "1 = 1",
                          "99999999999999999999", "12abc"})
    EXPECT_EQ(evaluate(bad).status, ExprStatus::syntax) << bad;
  EXPECT_EQ(evaluate(std::string(100000, '(') + "1").status, ExprStatus::syntax);
  EXPECT_EQ(evaluate(std::string(100000, '-') + "1").status, ExprStatus::syntax);
  EXPECT_EQ(evaluate("1 / 0").status, ExprStatus::division_by_zero);
  EXPECT_EQ(evaluate("1 % (2 - 2)").status, ExprStatus::division_by_zero);
  for (const char* bad : {"defined", "defined(", "defined(X", "defined 1"})
    EXPECT_FALSE(resolve_defined(bad, t)) << bad;
}

}  // namespace
}  // namespace tav::pp
