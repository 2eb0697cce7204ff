#include "symbols/picture.h"

#include <limits>
#include <string>

#include "codegen/convert.h"

namespace tav {
namespace {

// Category mask bits.
constexpr uint8_t kDigits = 0x01;
constexpr uint8_t kEditing = 0x02;
constexpr uint8_t kDate = 0x04;
constexpr uint8_t kTime = 0x08;
constexpr uint8_t kAlpha = 0x10;

constexpr uint32_t kMaxDigits = 18;
constexpr uint32_t kMaxAlpha = 1024;  // x(1024) is taken as x(1023); more is invalid
// Repeat counts are read up to this value; anything larger is already beyond every limit.
constexpr uint32_t kCountCap = 99999;

constexpr uint32_t add_sat(uint32_t a, uint32_t b) {
  return a > std::numeric_limits<uint32_t>::max() - b ? std::numeric_limits<uint32_t>::max()
                                                      : a + b;
}

class PictureParser {
 public:
  explicit PictureParser(std::string_view picture) : p_(picture) {}

  PictureResult run() {
    while (pos_ < p_.size()) {
      const size_t start = pos_;
      if (!element()) return invalid("'" + std::string(p_.substr(start, 1)) + "' at character " + std::to_string(start + 1) +
                                     " is not allowed there");
    }
    return finish();
  }

 private:
  char at(size_t k) const { return k < p_.size() ? p_[k] : '\0'; }

  void emit(char c, uint32_t n) {
    for (uint32_t k = 0; k < n && text_.size() < kPictureTextMax; ++k) text_.push_back(c);
  }
  void widen(uint32_t n) { width_ = add_sat(width_, n); }
  void add_digits(uint32_t n) {
    uint32_t& count = point_ ? decimals_ : integers_;
    count = add_sat(count, n);
  }

  // Reads the repeat count "(n)" that may follow an element; without one n is 1.
  bool repeat(uint32_t& n) {
    n = 1;
    if (at(pos_) != '(') return true;
    size_t k = pos_ + 1;
    uint32_t value = 0;
    bool any = false;
    while (at(k) >= '0' && at(k) <= '9') {
      value = value * 10 + static_cast<uint32_t>(at(k) - '0');
      if (value > kCountCap) value = kCountCap;
      any = true;
      ++k;
    }
    if (!any || at(k) != ')' || value < 1) return false;
    n = value;
    pos_ = k + 1;
    return true;
  }

  // A once-only element: false when it was read before.
  static bool once(bool& seen) {
    if (seen) return false;
    seen = true;
    return true;
  }

  void date_element(char letter, uint32_t w) {
    mask_ |= kDate;
    emit(letter, 1);
    widen(w);
    date_time_ = true;
    last_was_time_ = false;
  }
  void time_element(char letter) {
    mask_ |= kTime;
    emit(letter, 1);
    widen(2);
    date_time_ = true;
    last_was_time_ = true;
  }

  bool digit_positions(char shown, uint8_t mask) {
    uint32_t n;
    if (!repeat(n)) return false;
    mask_ |= mask;
    emit(shown, n);
    widen(n);
    add_digits(n);
    return true;
  }

  // A floating currency sign: its first position is the sign itself, unless a currency element
  // came before, when every position is a digit.
  bool currency() {
    uint32_t n;
    if (!repeat(n)) return false;
    mask_ |= kEditing;
    emit('$', n);
    widen(n);
    add_digits(currency_seen_ ? n : n - 1);
    currency_seen_ = true;
    return true;
  }

  // A floating sign (s, or - in a numeric picture).  A single sign leading the picture keeps it a
  // storage picture; anywhere else it is editing.  The first position holds the sign unless a
  // sign came before.
  bool floating_sign(size_t start) {
    uint32_t n;
    if (!repeat(n)) return false;
    mask_ |= start == 0 ? kDigits : kEditing;
    if (n > 1) mask_ |= kEditing;
    signed_ = true;
    emit('-', n);
    widen(n);
    add_digits(sign_seen_ ? n : n - 1);
    sign_seen_ = true;
    return true;
  }

  bool decimal_point(char shown) {
    if (!once(point_)) return false;
    mask_ |= kDigits;
    emit(shown, 1);
    widen(1);
    return true;
  }

  bool insertion(char c) {
    uint32_t n;
    if (!repeat(n)) return false;
    mask_ |= kEditing;
    emit(c, n);
    widen(n);
    return true;
  }

  // Within a date or time picture separators are single literal characters.
  void literal(char c) {
    emit(c, 1);
    widen(1);
  }

  void sign_pair(char shown) {  // cr, dr
    mask_ |= kEditing;
    signed_ = true;
    sign_seen_ = true;
    emit(shown, 1);
    widen(2);
  }

  bool element() {
    const size_t start = pos_;
    const char c = p_[pos_++];
    switch (c) {
      case '9':
        return digit_positions('9', kDigits);
      case 'z':
      case '*':
        return digit_positions(c, kDigits | kEditing);
      case '$':
      case '\x9c':
      case '\xa3':
        return currency();
      case 's':
        if (at(pos_) == 's' && !seconds_) {
          ++pos_;
          seconds_ = true;
          time_element('S');
          return true;
        }
        return floating_sign(start);
      case '-':
        if (date_time_) {
          literal(c);
          return true;
        }
        return floating_sign(start);
      case '.':
        if (date_time_) {
          literal(c);
          return true;
        }
        return decimal_point('.');
      case 'v':
        return decimal_point('.');
      case 't':
        return decimal_point('t');
      case ' ':
      case ',':
      case '/':
      case ':':
      case 'b':
        if (date_time_) {
          literal(c);
          return true;
        }
        return insertion(c);
      case '%':
        return insertion(c);
      case '(':
        if (start != 0 || !once(paren_)) return false;
        mask_ |= kEditing;
        signed_ = true;
        sign_seen_ = true;
        literal(c);
        return true;
      case ')':
        if (!paren_) return false;
        mask_ |= kEditing;
        literal(c);
        return true;
      case 'c':
        if (at(pos_) != 'r') return false;
        ++pos_;
        sign_pair('c');
        return true;
      case 'd':
        if (at(pos_) == 'r') {
          ++pos_;
          sign_pair('d');
          return true;
        }
        if (at(pos_) != 'd' || !once(day_)) return false;
        ++pos_;
        date_element('D', 2);
        return true;
      case 'm':
        if (at(pos_) != 'm') return false;
        ++pos_;
        if (at(pos_) == 'm') {
          ++pos_;
          if (!once(month_)) return false;
          date_element('m', 3);
          return true;
        }
        if (last_was_time_ && !minutes_) {
          // mm right after an hour (or seconds, or am/pm) is minutes.  The last date or time
          // element stays a time element.
          minutes_ = true;
          mask_ |= kTime;
          emit('I', 1);
          widen(2);
          return true;
        }
        if (!once(month_)) return false;
        date_element('M', 2);
        return true;
      case 'y':
        if (at(pos_) != 'y') return false;
        if (!once(year_)) return false;
        if (at(pos_ + 1) == 'y') {
          if (at(pos_ + 2) != 'y') return false;  // three y's are no year
          pos_ += 3;
          date_element('y', 4);
          return true;
        }
        ++pos_;
        date_element('Y', 2);
        return true;
      case 'h':
        if (at(pos_) != 'h' || !once(hour_)) return false;
        ++pos_;
        time_element('H');
        return true;
      case 'a':
      case 'p':
        if (at(pos_) != 'm' || !once(am_pm_)) return false;
        ++pos_;
        time_element('P');
        return true;
      case 'x': {
        uint32_t n;
        if (!repeat(n)) return false;
        mask_ |= kAlpha;
        alpha_ = add_sat(alpha_, n);
        widen(n);
        return true;
      }
      default:
        return false;
    }
  }

  static PictureResult invalid(std::string problem) {
    PictureResult r;
    r.problem = std::move(problem);
    return r;
  }

  PictureResult finish() {
    if (hour_ && am_pm_)
      for (char& ch : text_)
        if (ch == 'H') ch = 'h';

    PictureResult r;
    switch (mask_) {
      case kDigits:
      case kEditing:
      case kDigits | kEditing:
        if (add_sat(integers_, decimals_) > kMaxDigits)
          return invalid("more than " + std::to_string(kMaxDigits) + " digits");
        r.kind = mask_ == kDigits ? PictureKind::plain : PictureKind::edited;
        r.format = static_cast<uint16_t>(conv::kFmtZoned | integers_ << 5 | decimals_ |
                                         (signed_ ? conv::kFmtSigned : 0));
        break;
      case kDate:
        r.kind = PictureKind::edited;
        r.format = conv::kFmtDate;
        break;
      case kTime:
      case kDate | kTime:
        r.kind = PictureKind::edited;
        r.format = conv::kFmtTime;
        break;
      case kAlpha:
        if (alpha_ > kMaxAlpha) return invalid("more than " + std::to_string(kMaxAlpha) + " characters");
        r.kind = PictureKind::plain;
        r.format = static_cast<uint16_t>(alpha_ == kMaxAlpha ? kMaxAlpha - 1 : alpha_);
        break;
      default:
        return invalid(mask_ == 0 ? "no position at all" : "it mixes x positions, digits, dates and times");
    }
    r.width = width_;
    r.text = std::move(text_);
    return r;
  }

  std::string_view p_;
  size_t pos_ = 0;
  uint8_t mask_ = 0;
  uint32_t integers_ = 0, decimals_ = 0, alpha_ = 0, width_ = 0;
  bool signed_ = false;
  std::string text_;
  // Once-only elements.
  bool point_ = false, day_ = false, month_ = false, year_ = false, hour_ = false;
  bool minutes_ = false, seconds_ = false, am_pm_ = false, paren_ = false;
  bool currency_seen_ = false;  // a currency element was read
  bool sign_seen_ = false;      // s, -, "(", cr or dr was read
  bool date_time_ = false;      // a date or time element was read
  bool last_was_time_ = false;  // the last date or time element was hh, ss, am or pm
};

}  // namespace

PictureResult parse_picture(std::string_view picture) { return PictureParser(picture).run(); }

PictureResult blank_zero_picture(uint16_t format, bool decimals_only) {
  const int digits = (format & 0x03e0) >> 5;
  const int decimals = format & 0x001f;
  auto repeat = [](char c, int n) { return n <= 0 ? std::string() : std::string(1, c) + "(" + std::to_string(n) + ")"; };
  std::string text = (format & 0x0400) ? "-" : "";
  text += decimals_only && digits > 0 ? repeat('z', digits - 1) + "9" : repeat('z', digits);
  if (decimals > 0) text += "." + repeat('z', decimals);
  return parse_picture(text);
}

std::string storage_picture(uint16_t format) {
  if (!conv::fmt_numeric(format)) return "x(" + std::to_string(format) + ")";
  std::string p = conv::fmt_signed(format) ? "s" : "";
  if (const int d = conv::fmt_digits(format); d > 0) p += "9(" + std::to_string(d) + ")";
  if (const int d = conv::fmt_decimals(format); d > 0) p += "v9(" + std::to_string(d) + ")";
  return p;
}

}  // namespace tav
