// What the format or the stack limits: long files keep their line numbers, deep nesting stops
// with a message, a NUL byte is reported, and an EXIT value too large for an immediate operand
// becomes an op list.

#include <gtest/gtest.h>

#include <string>

#include "codegen/op_records.h"
#include "codegen/ops.h"
#include "tests/support/op6.h"
#include "tests/support/support.h"

namespace {

using tavtest::TempDir;

TEST(Limits, LineNumbersPastSixteenBits) {
  TempDir dir;
  std::string source = "field a pic 9\nprocedure main\n";
  for (int i = 3; i < 40000; ++i) source += "  set a = 1\n";
  source += "  set a = nosuch\nend\n";  // line 40000
  const tavtest::Compiled c = tavtest::compile(dir, source);
  EXPECT_NE(c.result.out.find("prog.spl, line 40000: ERROR  Field not defined - 'nosuch'"), std::string::npos)
      << c.result.out.substr(0, 300);
  EXPECT_EQ(c.result.status, 40000 % 256);
}

TEST(Limits, NestingStopsWithAMessage) {
  TempDir dir;
  std::string source = "field a pic 9\nprocedure main\n";
  for (int i = 0; i < 5000; ++i) source += "if a = 1\n";
  for (int i = 0; i < 5000; ++i) source += "end-if\n";
  source += "end\n";
  const tavtest::Compiled c = tavtest::compile(dir, source);
  EXPECT_NE(c.result.out.find("FATAL  Statements nested too deeply"), std::string::npos) << c.result.out;
  EXPECT_TRUE(c.image.empty());
}

TEST(Limits, NulBytesAreReported) {
  TempDir dir;
  static const char kSource[] = "field a pic 9\nprocedure main\n  set a = 1 \0 set a = b\nend\n";
  const tavtest::Compiled c = tavtest::compile(dir, std::string(kSource, sizeof kSource - 1));
  EXPECT_NE(c.result.out.find("prog.spl, line 3: ERROR  Invalid character"), std::string::npos) << c.result.out;
  // The rest of the line is read: its unknown field is found too.
  EXPECT_NE(c.result.out.find("Field not defined - 'b'"), std::string::npos) << c.result.out;
}

TEST(Limits, LargeExitValueIsAList) {
  TempDir dir;
  const tavtest::Compiled c = tavtest::compile(dir, "procedure main\n  exit 9000000\nend\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const tavtest::Op6& img = c.image;
  uint32_t exit_op = 0;
  for (uint32_t op : img.list(img.detail()))
    if (img.opcode(op) == tav::Op::exit) exit_op = op;
  ASSERT_NE(exit_op, 0u);
  const uint32_t value = img.u24(exit_op + tav::exitop::ex_value);
  EXPECT_NE(value & tav::kOperandList, 0u);
  EXPECT_EQ(img.opcode(value & ~tav::kOperandList), tav::Op::literal);
}

}  // namespace
