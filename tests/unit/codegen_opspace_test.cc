#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "codegen/opspace.h"
#include "diag/diag.h"
#include "diag/display.h"

namespace tav {
namespace {

struct Stores : testing::Test {
  Display display;
  Diagnostics diag{display, false, false};
  OpSpace ops{diag};
  DataArea data{diag};
  TextItems texts{ops, diag};
  OpBuilder b{ops, texts, diag};

  // Runs f, which must abandon the file with a FATAL line containing text.
  template <class F>
  void expect_fatal(F f, const std::string& text) {
    testing::internal::CaptureStdout();
    EXPECT_THROW(f(), FileAbort);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("FATAL"), std::string::npos) << out;
    EXPECT_NE(out.find(text), std::string::npos) << out;
  }
  void start() {  // as a program starts: header first, then level 0
    ops.alloc(95);
    b.start_program();
    b.open_level();
  }
};

// The rules op_size and op_name apply beyond the rows of the opcode table (the sizes of the rows
// are checked against the format description).
TEST(OpTable, RulesBeyondTheRows) {
  EXPECT_EQ(op_size(Op::do_parameters, true), 21u);  // -d grows only the function call
  EXPECT_STREQ(op_name(Op::op85), "op-85");
  EXPECT_STREQ(op_name(Op{255}), "op-255");
}

TEST_F(Stores, EmitChainsOpsAndCountsEveryRequest) {
  start();
  const uint32_t a = b.emit(Op::divide), c = b.emit(Op::comparison), d = b.emit(Op::do_parameters);
  EXPECT_EQ(a, 95u);
  EXPECT_EQ(c, a + 4);
  EXPECT_EQ(d, c + 9);
  EXPECT_EQ(ops.brk(), d + 21);
  EXPECT_EQ(ops.get24(a), c);
  EXPECT_EQ(ops.get24(c), d);
  EXPECT_EQ(ops.get24(d), 0u);
  EXPECT_EQ(ops.opcode(c), Op::comparison);
  EXPECT_EQ(b.top().head, a);
  EXPECT_EQ(b.top().tail, d);
  EXPECT_EQ(b.current(), d);

  // A placeholder is only ever the first op of a list; the request is counted all the same.
  const uint32_t before = ops.brk();
  EXPECT_EQ(b.emit(Op::placeholder), 0u);
  EXPECT_EQ(ops.brk(), before);
  b.op_stack_depth = 3;
  b.open_level();
  b.op_stack_depth = 7;
  const uint32_t p = b.emit(Op::placeholder);
  EXPECT_EQ(b.top().head, p);
  b.close_level();
  EXPECT_EQ(b.op_stack_depth, 3);
  EXPECT_EQ(b.top().tail, d);  // the inner list is not linked into the outer one
  EXPECT_EQ(b.stats()[op_byte(Op::placeholder)], 2u);
  EXPECT_EQ(b.stats()[op_byte(Op::divide)], 1u);
  b.emit(Op{255});  // beyond the statistics, but still a 12-byte op
  EXPECT_EQ(ops.brk(), p + 4 + 12);
  b.clear_stats();
  EXPECT_EQ(b.stats()[op_byte(Op::divide)], 0u);
}

TEST_F(Stores, TwoHundredLevelsAndNoMore) {
  start();
  for (int i = 1; i < kMaxLevels; ++i) b.open_level();
  EXPECT_EQ(b.level(), kMaxLevels - 1);
  expect_fatal([&] { b.open_level(); }, "Too many nested procedures");
}

TEST_F(Stores, OpSpaceLimitAndRelease) {
  const uint32_t first = ops.alloc(10);
  *ops.at(first) = 0xAA;
  ops.setbss(0);
  EXPECT_EQ(ops.alloc(kOpSpaceSize - 3), 0u);  // exactly what remains
  EXPECT_EQ(*ops.at(first), 0);                 // handed out again zero-filled
  EXPECT_EQ(ops.alloc(3), kOpSpaceSize - 3);
  expect_fatal([&] { ops.alloc(1); }, "Exceeded maximum operations table limit");
  ops.setbss(100);
  expect_fatal([&] { ops.setbss(101); }, "setbss - new break more than old break");
  EXPECT_EQ(ops.store_text("hi"), 100u);
  EXPECT_STREQ(ops.text_at(100), "hi");
  EXPECT_EQ(ops.brk(), 103u);

  // A 16-bit counter gives out 0 to 0xfffe; the next would wrap onto a number in use.
  ops.put16(10, 0xfffe);
  EXPECT_EQ(ops.next_count(10, "fields"), 0xfffeu);
  expect_fatal([&] { ops.next_count(10, "fields"); }, "Too many in one program - 'fields'");
  EXPECT_EQ(ops.get16(10), 0xffffu);
}

TEST_F(Stores, DataAlignment) {
  struct Case {
    std::vector<uint32_t> sizes, offsets;
  };
  const Case cases[] = {
      {{3, 4}, {0, 4}},           // even after odd: next multiple of 4
      {{1, 1, 1}, {0, 1, 2}},     // odd sizes never move
      {{2, 2}, {0, 4}},           // even break not on 4
      {{3, 1, 1, 4}, {0, 3, 4, 8}}, {{4, 1, 3, 2}, {0, 4, 5, 8}}, {{2, 1, 0}, {0, 2, 4}},
  };
  data.alloc(16);  // the block exists from the first allocation on
  for (const Case& c : cases) {
    data.dsetbss(0);
    std::memset(data.at(0), 0xbe, 16);  // what an earlier program left behind
    for (size_t i = 0; i < c.sizes.size(); ++i)
      EXPECT_EQ(data.alloc(c.sizes[i]), c.offsets[i]) << "case starting " << c.sizes[0] << ", item " << i;
    for (uint32_t i = 0; i < data.brk(); ++i)
      EXPECT_EQ(*data.at(i), 0) << "case starting " << c.sizes[0] << ": byte " << i << " is written unset";
  }
  data.dsetbss(0);
  data.alloc(kDataAreaSize - 1);
  expect_fatal([&] { data.alloc(2); }, "Can't allocate sufficient data space");  // aligned past the end
  EXPECT_EQ(data.alloc(1), kDataAreaSize - 1);
  expect_fatal([&] { data.dsetbss(kDataAreaSize + 1); }, "dsetbss - new break more than old break");
}

TEST_F(Stores, TextItems) {
  EXPECT_FALSE(texts.used());
  EXPECT_EQ(texts.add_string("abc", 'M'), 1);
  EXPECT_TRUE(texts.used());
  const uint32_t long_text = ops.store_text(std::string(300, 'x'));
  EXPECT_EQ(texts.add(long_text, 'P', 0), 2);
  EXPECT_EQ(texts.add(long_text, 'D', 255), 3);
  EXPECT_EQ(texts.add(long_text, 'D', 256), 4);
  // Each entry: its kind, then its length (0 past 255).
  for (auto [item, kind, length] : {std::tuple{0, '\0', 0}, {1, 'M', 3}, {2, 'P', 0}, {3, 'D', 255}, {4, 'D', 0}}) {
    EXPECT_EQ(texts.entry(item)[0], static_cast<uint8_t>(kind)) << item;
    EXPECT_EQ(texts.entry(item)[1], length) << item;
  }
  EXPECT_STREQ(ops.text_at(texts.offset(1)), "abc");
  EXPECT_EQ(texts.offset(2), long_text);
  EXPECT_EQ(texts.count(), 4);

  texts.set_count(kMaxTextItems - 1);
  EXPECT_EQ(texts.add(long_text, 'N', 1), kMaxTextItems);
  expect_fatal([&] { texts.add(long_text, 'N', 1); }, "Too many entries in text item table");
  texts.set_count(0);  // the next file numbers from 1 again
  EXPECT_EQ(texts.add_string("z", 'G'), 1);
}

TEST_F(Stores, LiteralBecomesTextItemReference) {
  start();
  texts.add_string("first", 'H');
  for (const uint32_t length : {4u, 0u}) {  // 0: the text's own length
    const uint32_t lit = b.emit(Op::literal);
    const uint32_t text = ops.store_text("hello");
    ops.put24(lit + literal::lit_text, text);
    ops.put16(lit + literal::lit_length, length);
    b.make_text_item_op(lit, 'D');
    EXPECT_EQ(ops.opcode(lit), Op::text_item);
    const auto n = static_cast<int>(ops.get16(lit + textitem::ti_item));
    EXPECT_EQ(n, texts.count());
    EXPECT_EQ(texts.offset(n), text);
    EXPECT_EQ(texts.entry(n)[0], 'D');
    EXPECT_EQ(texts.entry(n)[1], length == 0 ? 5 : length);
  }
}

TEST_F(Stores, StatementMarkersFormADoublyLinkedChain) {
  start();
  b.emit_statement_marker(0x20000001);  // ignored outside debug compiles
  EXPECT_EQ(b.top().head, 0u);
  b.set_debug_ops(true);
  uint32_t m[3];
  for (uint32_t i = 0; i < 3; ++i) {
    b.emit_statement_marker(0x20000010 + i);
    m[i] = b.current();
    EXPECT_EQ(ops.opcode(m[i]), Op::statement_marker);
    EXPECT_EQ(ops.get32(ops.get24(m[i] + 12)), 0x20000010 + i);
    EXPECT_EQ(ops.get16(m[i] + 7), 0u);
  }
  EXPECT_EQ(m[1] - m[0], 15u + 4u);  // the op, then its verb code
  EXPECT_EQ(ops.get24(m[0]), m[1]);  // ordinary list link
  EXPECT_EQ(ops.get24(m[0] + 9), 0u);
  EXPECT_EQ(ops.get24(m[1] + 9), m[0]);
  EXPECT_EQ(ops.get24(m[1] + 4), m[2]);
  EXPECT_EQ(ops.get24(m[2] + 4), 0u);

  b.start_program();  // a new program starts a new chain
  b.open_level();
  b.emit_statement_marker(1);
  EXPECT_EQ(ops.get24(b.current() + 9), 0u);
}

}  // namespace
}  // namespace tav
