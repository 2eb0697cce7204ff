// Calendar arithmetic on day numbers, the local clock, and the date, time and timestamp parsers.
#include <cstdlib>

#include "codegen/convert.h"
#include "runtime/ascii.h"

namespace tav::conv {

namespace {

constexpr int kFirstYear = 1900;
constexpr int kLastYear = 2079;
constexpr int kLastMonth = 6;   // of kLastYear: day 65535 is 6 June 2079
constexpr int kLastMDay = 6;
constexpr int kSecondsPerDay = 86400;

constexpr std::array<int, 12> kMonthDays = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

constexpr std::array<std::string_view, 12> kMonthNames = {
    "january", "february", "march",     "april",   "may",      "june",
    "july",    "august",   "september", "october", "november", "december"};

// A month name must have at least this many letters (and may be abbreviated to them).
constexpr size_t kMinMonthLetters = 3;

// Numbers in dates and times are read up to this value; anything longer is out of every range.
constexpr int64_t kNumberCap = 999999999;

int64_t floor_div(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

bool is_blank(char c) { return c == ' ' || c == '\t'; }

size_t skip_blanks(std::string_view t, size_t p) {
  while (p < t.size() && is_blank(t[p])) ++p;
  return p;
}

// Reads a run of digits at p; false (p unchanged) when there is none. The value saturates.
bool read_number(std::string_view t, size_t& p, int64_t& value) {
  if (p >= t.size() || !ascii_digit(t[p])) return false;
  value = 0;
  while (p < t.size() && ascii_digit(t[p])) {
    if (value <= kNumberCap) value = value * 10 + (t[p] - '0');
    ++p;
  }
  return true;
}

// `word` abbreviates `name` (case is ignored).
bool abbreviates(std::string_view word, std::string_view name) {
  if (word.size() < kMinMonthLetters || word.size() > name.size()) return false;
  for (size_t i = 0; i < word.size(); ++i)
    if (ascii_lower(word[i]) != ascii_lower(name[i])) return false;
  return true;
}

// Month 1..12 named by `word`: the locale's names first, then the defaults; 0 for none.
int month_of_name(std::string_view word, const DateSettings& s) {
  for (size_t m = 0; m < 12; ++m)
    if (!s.month_names[m].empty() && abbreviates(word, s.month_names[m])) return static_cast<int>(m) + 1;
  for (size_t m = 0; m < 12; ++m)
    if (abbreviates(word, kMonthNames[m])) return static_cast<int>(m) + 1;
  return 0;
}

bool is_date_separator(char c, const DateSettings& s) {
  return c == '/' || c == '-' || c == ',' || c == '.' || (s.separator != 0 && c == s.separator);
}

int32_t clamp32(int64_t v) {
  if (v < INT32_MIN) return INT32_MIN;
  if (v > INT32_MAX) return INT32_MAX;
  return static_cast<int32_t>(v);
}

// Year of a two-digit entry. Without a year offset, 0-9 are 2000-2009; otherwise the year is put
// in the century of (current year + offset), or the century before when that would place it more
// than ten years ahead of the current year.
int64_t widen_year(int64_t yy, int current_year, int offset) {
  if (offset == 0 && yy < 10) return 2000 + yy;
  int64_t now = int64_t{current_year} + offset;
  int64_t century = floor_div(now, 100) * 100;
  return century + yy > now + 10 ? century - 100 + yy : century + yy;
}

struct DateField {
  bool is_name = false;
  int64_t value = 0;  // the number, or the month of a name
};

// Reads one field at p: a number or a month name. False (p unchanged) when there is none or the
// letters name no month.
bool read_field(std::string_view t, size_t& p, const DateSettings& s, DateField& f) {
  if (read_number(t, p, f.value)) {
    f.is_name = false;
    return true;
  }
  size_t q = p;
  while (q < t.size() && is_month_letter(t[q])) ++q;
  // Too few letters for any month name: most names with digits in them end here.
  int month = q - p >= kMinMonthLetters ? month_of_name(t.substr(p, q - p), s) : 0;
  if (month == 0) return false;
  f.is_name = true;
  f.value = month;
  p = q;
  return true;
}

// The final checks of a parsed date, in the order that decides which code is returned.
int32_t check_date(int64_t day, int64_t month, int64_t year) {
  if (day < 1) return kBadDay;
  if (month == 0) return kInvalid;
  if (month < 1 || month > 12) return kBadMonth;
  if (year < kFirstYear || year > kLastYear ||
      (year == kLastYear && (month > kLastMonth || (month == kLastMonth && day > kLastMDay))))
    return kOutOfRange;
  int m = static_cast<int>(month), y = static_cast<int>(year);
  if (day > days_in_month(m, y)) return kBadDay;
  return day_number(static_cast<int>(day), m, y);
}

}  // namespace

// ---- Calendar --------------------------------------------------------------------------------

bool is_leap_year(int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

int days_in_month(int month, int year) {
  if (month < 1 || month > 12) return 0;
  return month == 2 && is_leap_year(year) ? 29 : kMonthDays[static_cast<size_t>(month - 1)];
}

// Days are counted in 400-year eras of 146097 days with years starting on 1 March, so that the
// leap day is the last day of its year; day 0 of this count is 1 March of year 0.
int32_t day_number(int day, int month, int year) {
  int64_t y = int64_t{year} - (month <= 2 ? 1 : 0);
  int64_t era = floor_div(y, 400);
  int64_t yoe = y - era * 400;
  int64_t mp = month > 2 ? month - 3 : month + 9;
  int64_t doy = (153 * mp + 2) / 5 + day - 1;
  int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  constexpr int64_t kMarch0To1900 = 693901;  // days from 1 March of year 0 to 1 January 1900
  return clamp32(era * 146097 + doe - kMarch0To1900);
}

Ymd from_day_number(int32_t dn) {
  constexpr int64_t kMarch0To1900 = 693901;
  int64_t z = int64_t{dn} + kMarch0To1900;
  int64_t era = floor_div(z, 146097);
  int64_t doe = z - era * 146097;
  int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  int64_t mp = (5 * doy + 2) / 153;
  Ymd r;
  r.day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  r.month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  r.year = static_cast<int>(yoe + era * 400 + (r.month <= 2 ? 1 : 0));
  return r;
}

int day_of_week(int32_t dn) { return static_cast<int>(((int64_t{dn} + 1) % 7 + 7) % 7); }

int32_t add_months(int32_t dn, int months) {
  Ymd d = from_day_number(dn);
  bool last = d.day == days_in_month(d.month, d.year);
  int64_t total = int64_t{d.year} * 12 + (d.month - 1) + months;
  int64_t year = floor_div(total, 12);
  if (year < kFirstYear || year > kLastYear) return kOutOfRange;
  int y = static_cast<int>(year);
  int m = static_cast<int>(total - year * 12) + 1;
  int dim = days_in_month(m, y);
  int32_t r = day_number(last || d.day > dim ? dim : d.day, m, y);
  return r < 0 || r > kLastDay ? kOutOfRange : r;
}

// ---- Clock -----------------------------------------------------------------------------------

Clock Clock::system() {
  Clock c;
  c.now = [] { return static_cast<int64_t>(std::time(nullptr)); };
  c.local = [](int64_t t, std::tm* out) {
    std::time_t tt = static_cast<std::time_t>(t);
    return localtime_r(&tt, out) != nullptr;
  };
  return c;
}

int32_t LocalTime::offset() {
  if (!have_offset_) {
    have_offset_ = true;
    int64_t t = clock_.now();
    std::tm lt{};
    if (clock_.local(t, &lt)) {
      int64_t local = int64_t{day_number(lt.tm_mday, lt.tm_mon + 1, lt.tm_year + 1900) - kEpochDay} *
                          kSecondsPerDay +
                      lt.tm_hour * 3600 + lt.tm_min * 60 + lt.tm_sec;
      int64_t off = local - t;
      offset_ = off > kSecondsPerDay || off < -kSecondsPerDay ? 0 : static_cast<int32_t>(off);
    }
  }
  return offset_;
}

int64_t LocalTime::now() { return clock_.now() + offset(); }

int32_t LocalTime::today() { return clamp32(kEpochDay + floor_div(now(), kSecondsPerDay)); }

// ---- Settings --------------------------------------------------------------------------------

DateSettings DateSettings::from_env() {
  return from_env([](const char* name) -> const char* { return std::getenv(name); });
}

DateSettings DateSettings::from_env(const std::function<const char*(const char*)>& getenv_fn) {
  DateSettings s;
  if (const char* v = getenv_fn("TAVDATEORDER"); v && v[0] >= '0' && v[0] <= '2' && !v[1])
    s.order = v[0];
  if (const char* v = getenv_fn("TAVYEAROFFSET"); v && *v) {
    char* end = nullptr;
    long n = std::strtol(v, &end, 10);
    if (*end == 0 && n > -10000 && n < 10000) s.year_offset = static_cast<int>(n);
  }
  if (const char* v = getenv_fn("TAVDATESEP"); v && v[0] && !v[1] && !ascii_digit(v[0]) &&
                                                 !is_month_letter(v[0]))
    s.separator = v[0];
  if (const char* v = getenv_fn("TAVMONTHNAMES"); v && *v) {
    std::array<std::string, 12> names;
    std::string_view t = v;
    size_t count = 0;
    while (count <= 12) {
      size_t comma = t.find(',');
      std::string_view name = t.substr(0, comma);
      while (!name.empty() && is_blank(name.front())) name.remove_prefix(1);
      while (!name.empty() && is_blank(name.back())) name.remove_suffix(1);
      if (count < 12) names[count] = std::string(name);
      ++count;
      if (comma == std::string_view::npos) break;
      t.remove_prefix(comma + 1);
    }
    if (count == 12) s.month_names = names;
  }
  return s;
}

// ---- Parsers ---------------------------------------------------------------------------------

bool is_month_letter(char c) { return ascii_alpha(c) || static_cast<unsigned char>(c) >= 0x80; }

int32_t parse_date(std::string_view t, const DateSettings& s, std::string_view* rest) {
  size_t p = skip_blanks(t, 0);
  int32_t today = s.today;
  auto current = [&] {
    if (today < 0) today = LocalTime().today();
    return from_day_number(today);
  };
  if (p == t.size()) {  // no month and no day: today
    if (rest) *rest = t.substr(p);
    current();
    return today;
  }

  std::array<DateField, 3> fields;
  size_t count = 0;
  if (!read_field(t, p, s, fields[count++])) return kInvalid;
  size_t end = p;
  while (count < fields.size()) {
    // A separator (or blanks) and a field; otherwise the date ends before the separator.
    size_t q = skip_blanks(t, p);
    if (q < t.size() && is_date_separator(t[q], s)) q = skip_blanks(t, q + 1);
    if (q == p || !read_field(t, q, s, fields[count])) break;
    ++count;
    p = end = q;
  }
  if (rest) {
    *rest = t.substr(end);
  } else if (skip_blanks(t, end) != t.size()) {
    return kInvalid;
  }

  int64_t day = 0, month = 0, year = -1;
  size_t names = 0;
  for (size_t i = 0; i < count; ++i) names += fields[i].is_name;
  if (names > 1) return kInvalid;

  if (count == 1 && !fields[0].is_name) {
    int64_t n = fields[0].value;
    if (n > 9999) {  // compact: DDMMYY below 1000000, else DDMMYYYY (MMDD... with order '2')
      bool long_year = n >= 1000000;
      int64_t first = long_year ? n / 1000000 : n / 10000;
      int64_t second = long_year ? n / 10000 % 100 : n / 100 % 100;
      year = long_year ? n % 10000 : n % 100;
      day = s.order == '2' ? second : first;
      month = s.order == '2' ? first : second;
    } else {  // a day of the current month
      day = n;
      Ymd c = current();
      month = c.month;
      year = c.year;
      return check_date(day, month, year);
    }
  } else {
    // The numbers fill the places of the date order; a month name takes the month's place.
    enum Place { kDay, kMonth, kYear };
    constexpr std::array<Place, 3> kDayFirst = {kDay, kMonth, kYear};
    constexpr std::array<Place, 3> kMonthFirst = {kMonth, kDay, kYear};
    std::array<Place, 3> places{};
    size_t filled = 0, next = 0;
    for (Place pl : s.order == '1' ? kDayFirst : kMonthFirst)
      if (!(names && pl == kMonth)) places[filled++] = pl;
    for (size_t i = 0; i < count; ++i) {
      if (fields[i].is_name) {
        month = fields[i].value;
        continue;
      }
      switch (places[next++]) {
        case kDay: day = fields[i].value; break;
        case kMonth: month = fields[i].value; break;
        case kYear: year = fields[i].value; break;
      }
    }
  }

  if (year < 0) {
    year = current().year;
  } else {
    if (year < 100) year = widen_year(year, current().year, s.year_offset);
    year -= s.year_offset;
  }
  return check_date(day, month, year);
}

int32_t parse_time(std::string_view t) {
  size_t p = skip_blanks(t, 0);
  int64_t h = 0, m = 0, sec = 0;
  if (!read_number(t, p, h)) return kInvalid;
  auto is_sep = [](char c) { return c == ':' || c == ';' || c == '.' || c == ','; };
  if (p + 1 < t.size() && is_sep(t[p]) && ascii_digit(t[p + 1])) {
    char sep = t[p++];
    read_number(t, p, m);
    if (p + 1 < t.size() && t[p] == sep && ascii_digit(t[p + 1])) {
      ++p;
      read_number(t, p, sec);
    }
  }
  p = skip_blanks(t, p);
  if (p < t.size()) {  // AM or PM
    char c = ascii_lower(t[p]);
    if ((c != 'a' && c != 'p') || p + 1 >= t.size() || ascii_lower(t[p + 1]) != 'm') return kInvalid;
    if (skip_blanks(t, p + 2) != t.size() || h > 12) return kInvalid;
    if (c == 'p' && h != 12) h += 12;
    if (c == 'a' && h == 12) h = 0;
  }
  if (h == 24 && m == 0 && sec == 0) return 0;
  if (h >= 24 || m >= 61 || sec >= 61) return kTimeRange;
  return static_cast<int32_t>(h * 3600 + m * 60 + sec);
}

int64_t parse_timestamp(std::string_view t, const DateSettings& s) {
  if (skip_blanks(t, 0) == t.size()) return 0;
  std::string_view rest;
  int32_t dn = parse_date(t, s, &rest);
  if (dn < 0) return dn;
  int32_t secs = 0;
  if (skip_blanks(rest, 0) != rest.size()) {
    secs = parse_time(rest);
    if (secs < 0) return kBadTime;
  }
  if (dn < kEpochDay || dn - kEpochDay > kMaxEpochDays || secs >= kSecondsPerDay) return kOutOfRange;
  return int64_t{dn - kEpochDay} * kSecondsPerDay + secs;
}

}  // namespace tav::conv
