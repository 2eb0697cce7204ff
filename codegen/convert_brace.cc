// Values of the brace conversion literals {d '...'}, {t '...'} and {ts '...'}.
//
// Unlike date literals in the program text, the brace forms do not follow the date settings:
// the date is always year, month, day.
#include "codegen/convert.h"
#include "runtime/ascii.h"

namespace tav::conv {

namespace {

constexpr int64_t kSecondsPerDay = 86400;
constexpr size_t kKeywordChars = 9;  // only this many characters of the keyword count

struct BraceName {
  std::string_view name;
  BraceKind kind;
};
constexpr std::array<BraceName, 6> kBraceNames = {{{"d", BraceKind::date},
                                                   {"date", BraceKind::date},
                                                   {"t", BraceKind::time},
                                                   {"time", BraceKind::time},
                                                   {"ts", BraceKind::timestamp},
                                                   {"timestamp", BraceKind::timestamp}}};

bool is_blank(char c) { return c == ' ' || c == '\t'; }

size_t skip_blanks(std::string_view t, size_t p) {
  while (p < t.size() && is_blank(t[p])) ++p;
  return p;
}

// Year, month and day: three numbers separated by any non-digits, after optional blanks. On
// success p is just after the day.
bool read_ymd(std::string_view t, size_t& p, std::array<int64_t, 3>& ymd) {
  p = skip_blanks(t, p);
  for (size_t k = 0; k < 3; ++k) {
    if (k > 0)
      while (p < t.size() && !ascii_digit(t[p])) ++p;
    if (p >= t.size() || !ascii_digit(t[p])) return false;
    int64_t v = 0;
    for (; p < t.size() && ascii_digit(t[p]); ++p)
      if (v < 100000) v = v * 10 + (t[p] - '0');
    ymd[k] = v;
  }
  return true;
}

// Day number of a year-month-day that must be a date from 1 January 1900 to 6 June 2079.
int32_t valid_day(const std::array<int64_t, 3>& ymd) {
  auto [y, m, d] = ymd;
  if (y < 1900 || y > 2079 || m < 1 || m > 12 || d < 1) return -1;
  int year = static_cast<int>(y), month = static_cast<int>(m);
  if (d > days_in_month(month, year)) return -1;
  int32_t dn = day_number(static_cast<int>(d), month, year);
  return dn > kLastDay ? -1 : dn;
}

// A time: any fraction after a '.' is dropped before parsing.
int32_t brace_time(std::string_view t) { return parse_time(t.substr(0, t.find('.'))); }

}  // namespace

BraceKind brace_keyword(std::string_view word) {
  std::string w(word.substr(0, kKeywordChars));
  for (char& c : w) c = ascii_lower(c);
  for (const BraceName& b : kBraceNames)
    if (w == b.name) return b.kind;
  return BraceKind::none;
}

BraceValue brace_value(std::string_view keyword, std::string_view text, char expr_kind,
                       int32_t local_offset) {
  BraceValue r;
  if (keyword.empty()) {
    r.status = BraceStatus::syntax_error;
    return r;
  }
  switch (brace_keyword(keyword)) {
    case BraceKind::none: r.status = BraceStatus::not_supported; return r;

    case BraceKind::date: {
      std::array<int64_t, 3> ymd{};
      size_t p = 0;
      int32_t dn = -1;
      if (read_ymd(text, p, ymd) && skip_blanks(text, p) == text.size()) dn = valid_day(ymd);
      if (dn < 0) {
        r.status = BraceStatus::invalid_date;
        return r;
      }
      r.value = static_cast<uint32_t>(dn);
      r.format = kFmtDate;
      r.kind = 'D';
      return r;
    }

    case BraceKind::time: {
      int32_t secs = brace_time(text);
      if (secs < 0) {
        r.status = BraceStatus::invalid_time;
        return r;
      }
      r.value = static_cast<uint32_t>(secs);
      r.format = kFmtTime;
      r.kind = 'T';
      return r;
    }

    case BraceKind::timestamp: break;
  }

  // Timestamp: a date (all zero: none), blanks, an optional time.
  std::array<int64_t, 3> ymd{};
  size_t p = 0;
  if (!read_ymd(text, p, ymd)) {
    r.status = BraceStatus::invalid_date;
    return r;
  }
  bool has_date = ymd[0] != 0 || ymd[1] != 0 || ymd[2] != 0;
  int32_t dn = has_date ? valid_day(ymd) : -1;
  if (has_date && dn < 0) {
    r.status = BraceStatus::invalid_date;
    return r;
  }
  int32_t secs = 0;
  if (size_t q = skip_blanks(text, p); q < text.size()) {
    secs = q > p ? brace_time(text.substr(q)) : -1;
    if (secs < 0) {
      r.status = BraceStatus::invalid_time;
      return r;
    }
  }
  bool time_ok = secs < kSecondsPerDay;
  bool in_range = has_date && dn >= kEpochDay && dn - kEpochDay <= kMaxEpochDays;

  int64_t value = 0;
  if (expr_kind == 'D') {
    value = has_date ? dn : 0;
  } else if (expr_kind == 'T') {
    value = time_ok ? secs : 0;
  } else if (time_ok && in_range) {
    value = int64_t{dn - kEpochDay} * kSecondsPerDay + secs;
    if (expr_kind == 'J' && value > kSecondsPerDay) value -= local_offset;
  }
  r.value = value < 0 ? 0 : value > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(value);
  r.format = kFmtTime;
  r.kind = expr_kind;
  return r;
}

}  // namespace tav::conv
