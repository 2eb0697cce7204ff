// Values in their two forms: a double while compiling, and the stored form of a type in the op
// space and the data area (the same bytes the interpreter and the data files use).
//
// The format word says how a value is stored:
//   bits 0-4  decimal places d          bit 10 (0x0400) signed
//   bits 5-9  integer digits i          one class bit: 0x2000 binary decimal, 0x1000 zoned,
//   bit 15    ROUNDED                     0x4000 floating point, 0x0800 packed decimal
// A word without a class bit is alphanumeric and the whole word is its length in bytes.
//
// Dates are 16-bit day numbers counted from 1 January 1900 (day 0) to 6 June 2079 (day 65535);
// times are seconds since midnight; timestamps are seconds since 1 January 1970 (day 25567).
// This layer never reports: parsers return negative codes and the callers choose the message.
#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace tav::conv {

// ---- Format words ----------------------------------------------------------------------------

inline constexpr uint16_t kFmtDecimals = 0x001F;
inline constexpr uint16_t kFmtDigits = 0x03E0;
inline constexpr uint16_t kFmtSigned = 0x0400;
inline constexpr uint16_t kFmtPacked = 0x0800;
inline constexpr uint16_t kFmtZoned = 0x1000;
inline constexpr uint16_t kFmtBinary = 0x2000;
inline constexpr uint16_t kFmtFloat = 0x4000;
inline constexpr uint16_t kFmtRounded = 0x8000;
inline constexpr uint16_t kFmtClassMask = 0x7800;

inline constexpr uint16_t kFmtDate = 0x2080;  // type D: binary decimal, 4 digits, 2 bytes
inline constexpr uint16_t kFmtTime = 0x2100;  // types T, J, L: binary decimal, 8 digits, 4 bytes

inline constexpr int fmt_decimals(uint16_t f) { return f & kFmtDecimals; }
inline constexpr int fmt_digits(uint16_t f) { return (f & kFmtDigits) >> 5; }
inline constexpr bool fmt_signed(uint16_t f) { return (f & kFmtSigned) != 0; }
inline constexpr bool fmt_numeric(uint16_t f) { return (f & kFmtClassMask) != 0; }

// Storage size in bytes of one value of the format word.
uint32_t format_size(uint16_t format_word);

// The format word a numeric literal is stored with: the tokenizer's attribute (digits, decimals,
// sign) with its class replaced by binary decimal.
inline constexpr uint16_t literal_format(uint16_t attr) {
  return static_cast<uint16_t>((attr & ~kFmtClassMask) | kFmtBinary);
}

// ---- Stored forms ----------------------------------------------------------------------------

// Byte order of binary decimal and floating point values: the op space and the .op6 file keep
// the most significant byte first; values handed to the runtime are in the host's own order.
// Zoned and packed values are byte strings and read the same in both orders.
enum class ByteOrder { op_space, machine };

// Stored form to double. An alphanumeric format word gives 0.
double to_double(const uint8_t* bytes, uint16_t format, ByteOrder order = ByteOrder::op_space);

// Double to stored form, format_size(format) bytes. Values are rounded half up at the type's
// decimals (with a tolerance: a fraction of 0.4999999 rounds up); an unsigned type stores
// the absolute value. An alphanumeric format word writes nothing.
void from_double(double value, uint16_t format, uint8_t* out,
                 ByteOrder order = ByteOrder::op_space);

// Largest and smallest value of a type, written in stored form (format_size(format) bytes).
// The kind letter of a date ('D') or time type ('T', 'J', 'L') overrides the format word's limit;
// any other kind (0, 'N', 'A', ...) uses the format word.
void largest_value(uint16_t format, char kind, uint8_t* out,
                   ByteOrder order = ByteOrder::op_space);
void smallest_value(uint16_t format, uint8_t* out, ByteOrder order = ByteOrder::op_space);

// ---- Calendar --------------------------------------------------------------------------------

inline constexpr int32_t kLastDay = 65535;      // 6 June 2079
inline constexpr int32_t kEpochDay = 25567;     // 1 January 1970
inline constexpr int32_t kMaxEpochDays = 49710; // last day offset whose seconds fit 32 bits

struct Ymd {
  int day = 0;
  int month = 0;
  int year = 0;
  bool operator==(const Ymd&) const = default;
};

bool is_leap_year(int year);
int days_in_month(int month, int year);  // 0 for a month outside 1..12
// Day number of a calendar date (not range checked: before 1900 is negative). The date is
// assumed valid; check it with days_in_month first.
int32_t day_number(int day, int month, int year);
Ymd from_day_number(int32_t day_number);
// 0 Sunday .. 6 Saturday; day 0 (1 January 1900) is a Monday.
int day_of_week(int32_t day_number);
// The date `months` months later (or earlier when negative). The day is kept, cut back to the
// length of the new month; the last day of a month stays the last day. Returns -4 when the
// result lies outside day 0..65535.
int32_t add_months(int32_t day_number, int months);

// ---- Clock -----------------------------------------------------------------------------------

// Where the current time comes from; tests replace both members to fix the time and zone.
struct Clock {
  std::function<int64_t()> now;                  // seconds since 1970, UTC
  std::function<bool(int64_t, std::tm*)> local;  // broken-down local time of such a time
  static Clock system();                         // time() and localtime_r()
};

// Local time, with the local offset from UTC computed once on first use. An offset larger than
// a day is taken as 0.
class LocalTime {
 public:
  explicit LocalTime(Clock clock = Clock::system()) : clock_(std::move(clock)) {}
  int32_t offset();     // local time minus UTC, seconds
  int64_t now();        // current local time in seconds since 1970
  int32_t today();      // day number of the current local date

 private:
  Clock clock_;
  bool have_offset_ = false;
  int32_t offset_ = 0;
};

// ---- Date and time parsing -------------------------------------------------------------------

// Parse results (negative codes).
inline constexpr int32_t kInvalid = -1;      // invalid text
inline constexpr int32_t kBadDay = -2;       // invalid day (date); out of range (time)
inline constexpr int32_t kTimeRange = -2;
inline constexpr int32_t kBadMonth = -3;
inline constexpr int32_t kOutOfRange = -4;
inline constexpr int32_t kBadTime = -5;      // timestamp: the time part is invalid

struct DateSettings {
  char order = '0';          // '0' month-day-year, '1' day-month-year, '2' compact dates MMDDYY(YY)
  int year_offset = 0;
  char separator = 0;        // extra date separator of the locale, 0 = none
  std::array<std::string, 12> month_names;  // locale month names; empty = only the defaults
  int32_t today = -1;        // day number of "today"; -1 = ask the clock (local time)
  bool utc = false;          // local times are UTC, whatever the machine's time zone

  // TAVDATEORDER, TAVYEAROFFSET, TAVDATESEP and TAVMONTHNAMES (see docs/conversions.md).
  static DateSettings from_env();
  static DateSettings from_env(const std::function<const char*(const char*)>& getenv_fn);
};

// A letter of a month name: an ASCII letter, or any byte of a non-ASCII locale name.
bool is_month_letter(char c);
// Text to day number (0..65535), or -1 invalid, -2 invalid day, -3 invalid month, -4 out of range.
// With `rest` non-null, parsing stops at the end of the date and *rest receives the remaining text.
int32_t parse_date(std::string_view text, const DateSettings& s, std::string_view* rest = nullptr);
// Text to seconds since midnight, or -1 invalid text, -2 out of range.
int32_t parse_time(std::string_view text);
// A date and an optional time to seconds since 1970: 0 for an empty (blank) text, the date's
// negative code, kBadTime for a bad time, -4 before 1970 or for a time of 24 hours or more.
int64_t parse_timestamp(std::string_view text, const DateSettings& s);

// ---- Brace conversion literals: {d '...'}, {t '...'}, {ts '...'} ---------------------------

enum class BraceKind { none, date, time, timestamp };
// The conversion a keyword names: d/date, t/time, ts/timestamp (only nine characters count).
BraceKind brace_keyword(std::string_view word);

enum class BraceStatus {
  ok,
  invalid_date,   // message 45 "Invalid date"
  invalid_time,   // message 100 "Invalid time"
  syntax_error,   // message 0 "Syntax error" (also the caller's, for a missing literal or "}")
  not_supported,  // "Conversion not supported for this data type"
};

struct BraceValue {
  BraceStatus status = BraceStatus::ok;
  uint32_t value = 0;   // stored with from_double(value, format, ...) or put16/put32
  uint16_t format = 0;  // kFmtDate or kFmtTime
  char kind = 0;        // kind of the op: 'D', 'T', or the expression's kind for a timestamp
};

// Value of a brace literal. `expr_kind` is the expression's current literal kind ('N' when no
// date or time literal came before); a timestamp follows it: 'D' keeps the day number only, 'T'
// the seconds of the day only, and 'J' subtracts `local_offset` from a value above 86400.
BraceValue brace_value(std::string_view keyword, std::string_view text, char expr_kind,
                       int32_t local_offset);

}  // namespace tav::conv
