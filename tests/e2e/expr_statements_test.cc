// SET and STRING compiled by tavcmp: clean programs give an operations table, and after each
// expression error the compiler reports it at its line and goes on with the next statement.
#include <gtest/gtest.h>

#include <gmock/gmock.h>

#include "tests/support/op6.h"
#include "tests/support/support.h"

namespace {

using testing::HasSubstr;

// Compiles p.spl: three fields and a PROCEDURE main with the given body.
tavtest::RunResult compile_main(const tavtest::TempDir& dir, const std::string& body) {
  return tavtest::compile(dir,
                          "field a pic 9(4)\nfield b pic 9(4)\nfield s pic x(10)\n"
                          "procedure main\n" + body + "end\n",
                          "p.spl")
      .result;
}

TEST(ExprStatements, CleanProgram) {
  tavtest::TempDir dir;
  auto r = compile_main(dir,
                        " set a = a + b * 2\n"
                        " set s = concat('x', str(a))\n"
                        " set a += if-then-else(s like 'x%' and b between 1 and 9, 1, 0)\n"
                        " string s inserting 'y' at 2 deleting at 1 to 1\n");
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_THAT(r.out, HasSubstr("No errors found"));
  EXPECT_TRUE(tavtest::file_exists(dir / "p.op6"));
}

// Every faulty statement is reported once at its own line; the good statement between them
// and the last line are still compiled (the trailing error proves the compiler got there). A word
// after a SET's value is not part of it: the dispatcher reports it as no statement.
TEST(ExprStatements, GoesOnAfterErrors) {
  tavtest::TempDir dir;
  std::string deep(201, '(');
  auto r = compile_main(dir,
                        " set a = \"abc\" + 1\n"           // line 5
                        " set a = (a + 1\n"                // 6
                        " set a = a + + 1\n"               // 7
                        " set a = " + deep + "1\n"         // 8
                        " set a = a between 1\n"           // 9
                        " set b = 2 b\n"                   // 10: b ends the value; the dispatcher reads it
                        " string a appending 'x'\n"        // 11
                        " set a = max(b)\n");              // 12
  EXPECT_EQ(r.status, 5);  // the line of the first error
  std::string listing = tavtest::read_file(dir / "p.err");
  const char* expected[] = {
      "line 5: ERROR  Mixed numeric and alpha operands in expression",
      "line 6: ERROR  Invalid expression",
      "line 7: ERROR  Field name expected",
      "line 8: ERROR  Expression too complex",
      "line 9: ERROR  AND missing from BETWEEN test",
      "line 10: ERROR  Statement is invalid or not known - 'b'",
      "line 11: ERROR  Field must be alpha-numeric",
      "line 12: ERROR  Aggregate functions invalid here",
  };
  for (const char* e : expected) EXPECT_THAT(listing, HasSubstr(e));
  EXPECT_THAT(r.out, HasSubstr("Errors found = 8")) << r.out;
}

}  // namespace
