// Numeric stored forms: sizes, double <-> stored bytes, and the limits of a type.
//
// Encoding works from the decimal digits of the scaled integer (|value| x 10^d, rounded), so that
// the limits (up to 18 nines) and wide zoned or packed types are written exactly rather than
// through a double that cannot hold them.
#include "codegen/convert.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

namespace tav::conv {

namespace {

// Rounding is half up with a tolerance: a fraction short of one half by about 1e-7 or less (the
// precision of a single-precision value, and more than the error of scaling a double by a power
// of ten) still rounds up, so that 2.4999999 stores 3 and 1.005 at two decimals stores 1.01.
constexpr double kRoundUp = 0.49999989;

// Largest value of a binary decimal type is at least 9999 (a binary integer always holds it);
// no type's limit has more than 18 digits.
constexpr int kMinBinaryLimitDigits = 4;
constexpr int kMaxLimitDigits = 18;

constexpr std::array<double, 23> kPow10 = {
    1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
    1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

double pow10(int n) {
  if (n >= 0 && n < static_cast<int>(kPow10.size())) return kPow10[static_cast<size_t>(n)];
  return std::pow(10.0, n);
}

// Storage class of a format word; the class bits are tested in this order.
enum class Class { alpha, binary, zoned, floating, packed };

Class class_of(uint16_t f) {
  if (f & kFmtBinary) return Class::binary;
  if (f & kFmtZoned) return Class::zoned;
  if (f & kFmtFloat) return Class::floating;
  if (f & kFmtPacked) return Class::packed;
  return Class::alpha;
}

bool host_is_big_endian() { return std::endian::native == std::endian::big; }

// Writes the low `size` bytes of `bits` in the given order.
void put_bits(uint64_t bits, uint8_t* out, uint32_t size, ByteOrder order) {
  bool msb_first = order == ByteOrder::op_space || host_is_big_endian();
  for (uint32_t i = 0; i < size; ++i) {
    uint32_t shift = 8 * (msb_first ? size - 1 - i : i);
    out[i] = static_cast<uint8_t>(bits >> shift);
  }
}

uint64_t get_bits(const uint8_t* in, uint32_t size, ByteOrder order) {
  bool msb_first = order == ByteOrder::op_space || host_is_big_endian();
  uint64_t bits = 0;
  for (uint32_t i = 0; i < size; ++i) {
    uint32_t shift = 8 * (msb_first ? size - 1 - i : i);
    bits |= static_cast<uint64_t>(in[i]) << shift;
  }
  return bits;
}

// |value| x 10^d rounded half up, as decimal digits without leading zeros ("0" for zero).
struct Scaled {
  bool negative = false;
  std::string digits = "0";
};

Scaled scale(double value, int decimals) {
  Scaled s;
  if (std::isnan(value)) return s;
  double a = std::fabs(value) * pow10(decimals);
  if (!std::isfinite(a)) a = std::numeric_limits<double>::max();
  double ip = std::floor(a);
  if (a - ip >= kRoundUp) ip += 1;
  if (ip == 0) return s;
  char buf[400];  // DBL_MAX has 309 digits
  // An integral value below 2^64 converts exactly; larger ones are written out digit for digit.
  const auto r = ip < 0x1p64 ? std::to_chars(buf, buf + sizeof buf, static_cast<uint64_t>(ip))
                             : std::to_chars(buf, buf + sizeof buf, ip, std::chars_format::fixed, 0);
  s.digits.assign(buf, r.ptr);
  s.negative = value < 0;
  return s;
}

// The scaled integer as a 64-bit magnitude, saturated at the largest signed value.
uint64_t magnitude(const std::string& digits) {
  constexpr uint64_t kMax = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  uint64_t v = 0;
  for (char c : digits) {
    uint64_t d = static_cast<uint64_t>(c - '0');
    if (v > (kMax - d) / 10) return kMax;
    v = v * 10 + d;
  }
  return v;
}

void put_binary(const Scaled& s, uint16_t f, uint8_t* out, ByteOrder order) {
  uint64_t m = magnitude(s.digits);
  uint64_t bits = s.negative && fmt_signed(f) ? ~m + 1 : m;  // two's complement
  put_bits(bits, out, format_size(f), order);
}

void put_zoned(const Scaled& s, uint16_t f, uint8_t* out) {
  uint32_t n = format_size(f);
  if (n == 0) return;
  const std::string& dg = s.digits == "0" ? std::string() : s.digits;
  for (uint32_t k = 0; k < n; ++k) {  // from the right
    size_t have = dg.size();
    out[n - 1 - k] = static_cast<uint8_t>(k < have ? dg[have - 1 - k] : '0');
  }
  if (s.negative && fmt_signed(f)) out[n - 1] |= 0xF0;
}

// Packed decimal: an exponent byte (base-100 positions before the point), then base-100 digits.
void put_packed(const Scaled& s, uint16_t f, uint8_t* out) {
  uint32_t size = format_size(f);
  size_t m = size - 1;  // digit bytes
  std::memset(out, 0, size);
  out[0] = 0xC0;
  if (s.digits == "0") return;
  size_t d = static_cast<size_t>(fmt_decimals(f));
  std::string frac, whole;
  if (s.digits.size() > d) {
    whole = s.digits.substr(0, s.digits.size() - d);
    frac = s.digits.substr(s.digits.size() - d);
  } else {
    frac = std::string(d - s.digits.size(), '0') + s.digits;
  }
  size_t e = (whole.size() + 1) / 2;
  if (e > m) return;  // does not fit: stored as zero
  std::string all = std::string(2 * e - whole.size(), '0') + whole + frac;
  all.resize(2 * m, '0');  // pad or cut the low digits to the digit bytes
  bool neg = s.negative && fmt_signed(f);
  out[0] = static_cast<uint8_t>(neg ? 0x3F - e : 0xC0 + e);
  for (size_t j = 0; j < m; ++j) {
    int digit = (all[2 * j] - '0') * 10 + (all[2 * j + 1] - '0');
    out[1 + j] = static_cast<uint8_t>(neg ? 99 - digit : digit);
  }
}

void put_float(double value, uint16_t f, uint8_t* out, ByteOrder order) {
  if (!fmt_signed(f)) value = std::fabs(value);
  if (format_size(f) == 4) {
    constexpr double kFltMax = std::numeric_limits<float>::max();
    float v = value > kFltMax    ? std::numeric_limits<float>::infinity()
              : value < -kFltMax ? -std::numeric_limits<float>::infinity()
                                 : static_cast<float>(value);
    put_bits(std::bit_cast<uint32_t>(v), out, 4, order);
  } else {
    put_bits(std::bit_cast<uint64_t>(value), out, 8, order);
  }
}

// Writes a scaled value in any class but floating point.
void put_scaled(const Scaled& s, uint16_t f, uint8_t* out, ByteOrder order) {
  switch (class_of(f)) {
    case Class::binary: put_binary(s, f, out, order); break;
    case Class::zoned: put_zoned(s, f, out); break;
    case Class::packed: put_packed(s, f, out); break;
    case Class::floating:
    case Class::alpha: break;
  }
}

double get_binary(const uint8_t* in, uint16_t f, ByteOrder order) {
  uint32_t size = format_size(f);
  uint64_t bits = get_bits(in, size, order);
  double v;
  if (fmt_signed(f)) {
    if (size < 8 && (bits >> (8 * size - 1) & 1)) bits |= ~uint64_t{0} << (8 * size);  // sign-extend
    v = static_cast<double>(static_cast<int64_t>(bits));
  } else {
    v = static_cast<double>(bits);
  }
  return v / pow10(fmt_decimals(f));
}

double get_zoned(const uint8_t* in, uint16_t f) {
  uint32_t n = format_size(f);
  bool neg = false;
  double acc = 0;
  for (uint32_t k = 0; k < n; ++k) {
    if (k == 0 && in[0] == '-') {
      neg = true;
      continue;
    }
    acc = acc * 10 + (in[k] & 0x0F);
  }
  if (n > 0 && (in[n - 1] & 0xC0)) neg = true;
  if (!fmt_signed(f)) neg = false;
  double v = acc / pow10(fmt_decimals(f));
  return neg ? -v : v;
}

double get_packed(const uint8_t* in, uint16_t f) {
  int m = static_cast<int>(format_size(f)) - 1;
  bool neg = (in[0] & 0x80) == 0;
  int e = neg ? 0x3F - in[0] : (in[0] & 0x7F) - 0x40;
  double acc = 0;
  for (int j = 1; j <= m; ++j) acc = acc * 100 + (neg ? 99 - in[j] : in[j]);
  int shift = 2 * (e - m);
  double v = shift < 0 ? acc / pow10(-shift) : acc * pow10(shift);
  return neg ? -v : v;
}

double get_float(const uint8_t* in, uint16_t f, ByteOrder order) {
  if (format_size(f) == 4) return std::bit_cast<float>(static_cast<uint32_t>(get_bits(in, 4, order)));
  return std::bit_cast<double>(get_bits(in, 8, order));
}

// The largest value of a type (10^n - 1 over 10^d), or its negative; for an alphanumeric type
// all bytes 0xFF, or all bytes 0.
void put_limit(uint16_t f, bool negative, uint8_t* out, ByteOrder order) {
  Class c = class_of(f);
  if (c == Class::alpha) {
    std::memset(out, negative ? 0 : 0xFF, format_size(f));
    return;
  }
  int n = std::min(fmt_digits(f) + fmt_decimals(f), kMaxLimitDigits);
  if (c == Class::binary) n = std::max(n, kMinBinaryLimitDigits);
  if (c == Class::floating) {
    double v = (pow10(n) - 1) / pow10(fmt_decimals(f));
    put_float(negative ? -v : v, f, out, order);
    return;
  }
  Scaled s;
  if (n > 0) {
    s.digits.assign(static_cast<size_t>(n), '9');
    s.negative = negative;
  }
  put_scaled(s, f, out, order);
}

}  // namespace

uint32_t format_size(uint16_t f) {
  uint32_t n = static_cast<uint32_t>(fmt_digits(f) + fmt_decimals(f));
  switch (class_of(f)) {
    case Class::binary: return n <= 4 ? 2 : n <= 8 ? 4 : n <= 13 ? 6 : 8;
    case Class::zoned: return n;
    case Class::floating: return n <= 6 ? 4 : 8;
    case Class::packed:
      return static_cast<uint32_t>((fmt_decimals(f) + 1) / 2 + 1 + (fmt_digits(f) + 1) / 2);
    case Class::alpha: break;
  }
  return f;
}

double to_double(const uint8_t* bytes, uint16_t f, ByteOrder order) {
  switch (class_of(f)) {
    case Class::binary: return get_binary(bytes, f, order);
    case Class::zoned: return get_zoned(bytes, f);
    case Class::floating: return get_float(bytes, f, order);
    case Class::packed: return get_packed(bytes, f);
    case Class::alpha: break;
  }
  return 0;
}

void from_double(double value, uint16_t f, uint8_t* out, ByteOrder order) {
  if (class_of(f) == Class::floating) {
    put_float(value, f, out, order);
    return;
  }
  put_scaled(scale(value, fmt_decimals(f)), f, out, order);
}

void largest_value(uint16_t f, char kind, uint8_t* out, ByteOrder order) {
  switch (kind) {
    case 'D': from_double(65535.0, f, out, order); return;
    case 'T':
    case 'J':
    case 'L': from_double(4294967295.0, f, out, order); return;
    default: put_limit(f, false, out, order); return;
  }
}

void smallest_value(uint16_t f, uint8_t* out, ByteOrder order) {
  if (class_of(f) != Class::alpha && !fmt_signed(f)) {
    from_double(0.0, f, out, order);
    return;
  }
  put_limit(f, true, out, order);
}

}  // namespace tav::conv
