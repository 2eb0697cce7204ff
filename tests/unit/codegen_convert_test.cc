// Stored forms of numeric values: sizes, both conversions in both byte orders, and type limits.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "codegen/convert.h"

namespace tav::conv {
namespace {

using Bytes = std::vector<uint8_t>;

std::string hex(const Bytes& b) {
  static const char* digits = "0123456789abcdef";
  std::string s;
  for (uint8_t c : b) {
    s += digits[c >> 4];
    s += digits[c & 15];
  }
  return s;
}

// The same value in the host's byte order: binary and floating values are reversed on a
// little-endian host; zoned and packed are byte strings.
Bytes machine_form(Bytes b, uint16_t f) {
  bool ordered = (f & (kFmtBinary | kFmtFloat)) != 0;
  if (ordered && std::endian::native == std::endian::little) std::reverse(b.begin(), b.end());
  return b;
}

constexpr uint16_t fmt(int digits, int decimals, uint16_t cls, bool is_signed = false) {
  return static_cast<uint16_t>(cls | digits << 5 | decimals | (is_signed ? kFmtSigned : 0));
}

TEST(ConvertSize, EachClass) {
  struct Case {
    uint16_t format;
    uint32_t size;
  } cases[] = {
      {fmt(4, 0, kFmtBinary), 2},  {fmt(5, 0, kFmtBinary), 4},  {fmt(6, 2, kFmtBinary), 4},
      {fmt(7, 2, kFmtBinary), 6},  {fmt(11, 2, kFmtBinary), 6}, {fmt(12, 2, kFmtBinary), 8},
      {fmt(5, 2, kFmtZoned), 7},   {fmt(6, 0, kFmtFloat), 4},   {fmt(6, 1, kFmtFloat), 8},
      {fmt(5, 2, kFmtPacked), 5},  {fmt(4, 3, kFmtPacked), 5},  {fmt(0, 0, kFmtPacked), 1},
      {30, 30},                    {kFmtDate, 2},               {kFmtTime, 4},
      // The binary class wins over the others.
      {fmt(4, 0, kFmtBinary | kFmtZoned), 2},
  };
  for (const Case& c : cases) EXPECT_EQ(format_size(c.format), c.size) << std::hex << c.format;
}

TEST(ConvertNumeric, LiteralFormatIsBinaryDecimal) {
  EXPECT_EQ(literal_format(0x4000 | 3 << 5 | kFmtSigned | 2), 0x2000 | 3 << 5 | kFmtSigned | 2);
  EXPECT_EQ(literal_format(0x8000 | 0x4080), 0xA080);
}

// Each row: value in, the stored bytes in op-space order, the value read back.
struct StoreCase {
  double value;
  uint16_t format;
  Bytes stored;
  double back;
};

const StoreCase kStoreCases[] = {
    // Binary decimal: 2, 4, 6 and 8 bytes, signed and unsigned.
    {9999, fmt(4, 0, kFmtBinary), {0x27, 0x0F}, 9999},
    {99999, fmt(5, 0, kFmtBinary), {0x00, 0x01, 0x86, 0x9F}, 99999},
    {-1234.5, fmt(4, 1, kFmtBinary, true), {0xFF, 0xFF, 0xCF, 0xC7}, -1234.5},
    {12345678901.23, fmt(11, 2, kFmtBinary, true), {0x01, 0x1F, 0x71, 0xFB, 0x04, 0xCB},
     12345678901.23},
    {-1.5, fmt(11, 2, kFmtBinary, true), {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x6A}, -1.5},
    {-1, fmt(14, 0, kFmtBinary, true), Bytes(8, 0xFF), -1},
    {-5, fmt(1, 0, kFmtBinary), {0x00, 0x05}, 5},  // unsigned keeps the absolute value
    // Rounding half up, with a tolerance just below one half.
    {2.5, fmt(1, 0, kFmtBinary), {0x00, 0x03}, 3}, {2.4999999, fmt(1, 0, kFmtBinary), {0x00, 0x03}, 3},
    {2.49, fmt(1, 0, kFmtBinary), {0x00, 0x02}, 2}, {2.4999, fmt(1, 0, kFmtBinary), {0x00, 0x02}, 2},
    {-2.5, fmt(1, 0, kFmtBinary, true), {0xFF, 0xFD}, -3}, {1.005, fmt(1, 2, kFmtBinary), {0x00, 0x65}, 1.01},
    // Floating point: 4 and 8 bytes.
    {1.5, fmt(1, 0, kFmtFloat, true), {0x3F, 0xC0, 0x00, 0x00}, 1.5},
    {-2.25, fmt(8, 0, kFmtFloat, true), {0xC0, 0x02, 0, 0, 0, 0, 0, 0}, -2.25},
    {-2.25, fmt(8, 0, kFmtFloat), {0x40, 0x02, 0, 0, 0, 0, 0, 0}, 2.25},
    // Zoned: digits, sign in the last byte, unsigned stores the absolute value.
    {123.45, fmt(3, 2, kFmtZoned), {'1', '2', '3', '4', '5'}, 123.45},
    {-12.3, fmt(3, 1, kFmtZoned, true), {'0', '1', '2', 0xF3}, -12.3}, {-7, fmt(2, 0, kFmtZoned), {'0', '7'}, 7},
    // Packed: exponent byte, then base-100 digits (complemented when negative).
    {5, fmt(3, 0, kFmtPacked), {0xC1, 5, 0}, 5}, {999, fmt(3, 0, kFmtPacked), {0xC2, 9, 99}, 999},
    {0, fmt(3, 0, kFmtPacked), {0xC0, 0, 0}, 0}, {-5, fmt(3, 0, kFmtPacked, true), {0x3E, 94, 99}, -5},
    {12.34, fmt(3, 2, kFmtPacked), {0xC1, 12, 34, 0}, 12.34}, {0.5, fmt(0, 2, kFmtPacked), {0xC0, 50}, 0.5},
    {-0.25, fmt(1, 2, kFmtPacked, true), {0x3F, 74, 99}, -0.25},
    {100, fmt(2, 0, kFmtPacked), {0xC0, 0}, 0},  // too many digits: stored as zero
    // Out of range: binary saturates, float overflows to infinity, zoned drops the high digits.
    {1e300, fmt(14, 0, kFmtBinary, true), {0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, 9223372036854775807.0},
    {-1e300, fmt(1, 0, kFmtFloat, true), {0xFF, 0x80, 0, 0}, -HUGE_VAL},
    {123456, fmt(3, 0, kFmtZoned), {'4', '5', '6'}, 456},
};

TEST(ConvertNumeric, StoreAndReadBothOrders) {
  for (const StoreCase& c : kStoreCases) {
    SCOPED_TRACE(testing::Message() << c.value << " in " << std::hex << c.format);
    ASSERT_EQ(format_size(c.format), c.stored.size());
    Bytes out(c.stored.size() + 1, 0xAA);  // one guard byte
    from_double(c.value, c.format, out.data());
    EXPECT_EQ(out.back(), 0xAA);
    out.pop_back();
    EXPECT_EQ(hex(out), hex(c.stored));
    EXPECT_DOUBLE_EQ(to_double(c.stored.data(), c.format), c.back);

    Bytes machine(c.stored.size());
    from_double(c.value, c.format, machine.data(), ByteOrder::machine);
    EXPECT_EQ(hex(machine), hex(machine_form(c.stored, c.format)));
    EXPECT_DOUBLE_EQ(to_double(machine.data(), c.format, ByteOrder::machine), c.back);
  }
}

TEST(ConvertNumeric, ReadSignRules) {
  const uint8_t dash[] = {'-', '1', '2'};
  const uint8_t high_last[] = {'1', '2', 0xC3};
  EXPECT_EQ(to_double(dash, fmt(3, 0, kFmtZoned, true)), -12);
  EXPECT_EQ(to_double(high_last, fmt(3, 0, kFmtZoned, true)), -123);
  EXPECT_EQ(to_double(high_last, fmt(3, 0, kFmtZoned)), 123);  // unsigned ignores the sign
  const uint8_t wide_unsigned[] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE};
  EXPECT_EQ(to_double(wide_unsigned, fmt(13, 0, kFmtBinary)), 281474976710654.0);
  EXPECT_EQ(to_double(wide_unsigned, fmt(13, 0, kFmtBinary, true)), -2);
  EXPECT_EQ(to_double(reinterpret_cast<const uint8_t*>("abc"), 3), 0);  // alphanumeric
}

TEST(ConvertNumeric, ZonedDigitsOfLargeValues) {
  // Integral values below 2^64 and above it take different conversions; both give every digit.
  const std::pair<double, const char*> cases[] = {
      {18446744073709549568.0, "18446744073709549568"},  // the largest double below 2^64
      {18446744073709551616.0, "18446744073709551616"},  // 2^64
      {2e19, "20000000000000000000"},
      {123456789012345678.0, "00123456789012345680"},
      {1e22, "00000000000000000000"},  // 23 digits: the 20 low ones are zeros
  };
  for (const auto& [value, digits] : cases) {
    Bytes out(20);
    from_double(value, fmt(20, 0, kFmtZoned), out.data());
    EXPECT_EQ(std::string(out.begin(), out.end()), digits) << value;
  }
}

TEST(ConvertLimits, LargestAndSmallest) {
  struct Case {
    uint16_t format;
    char kind;
    Bytes largest, smallest;
  } cases[] = {
      {fmt(1, 0, kFmtBinary), 'N', {0x27, 0x0F}, {0, 0}},  // a binary integer holds 9999
      {fmt(1, 2, kFmtBinary, true), 0, {0x27, 0x0F}, {0xD8, 0xF1}},
      {fmt(20, 0, kFmtBinary), 0, {0x0D, 0xE0, 0xB6, 0xB3, 0xA7, 0x63, 0xFF, 0xFF}, Bytes(8, 0)},
      {kFmtDate, 'D', {0xFF, 0xFF}, {0, 0}}, {kFmtTime, 'T', Bytes(4, 0xFF), Bytes(4, 0)},
      {kFmtTime, 'J', Bytes(4, 0xFF), Bytes(4, 0)}, {kFmtTime, 'L', Bytes(4, 0xFF), Bytes(4, 0)},
      {fmt(3, 0, kFmtZoned), 0, {'9', '9', '9'}, {'0', '0', '0'}},
      {fmt(2, 0, kFmtZoned, true), 0, {'9', '9'}, {'9', 0xF9}},
      {fmt(3, 0, kFmtPacked), 0, {0xC2, 9, 99}, {0xC0, 0, 0}},
      {fmt(3, 0, kFmtPacked, true), 0, {0xC2, 9, 99}, {0x3D, 90, 0}}, {3, 0, {0xFF, 0xFF, 0xFF}, {0, 0, 0}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.format << " " << c.kind);
    Bytes big(c.largest.size()), small(c.smallest.size());
    largest_value(c.format, c.kind, big.data());
    smallest_value(c.format, small.data());
    EXPECT_EQ(hex(big), hex(c.largest));
    EXPECT_EQ(hex(small), hex(c.smallest));
  }
  Bytes f(4);
  largest_value(fmt(2, 1, kFmtFloat, true), 0, f.data());
  EXPECT_EQ(hex(f), "42c7cccd");  // 99.9
  smallest_value(fmt(2, 1, kFmtFloat, true), f.data());
  EXPECT_EQ(hex(f), "c2c7cccd");
}

}  // namespace
}  // namespace tav::conv
