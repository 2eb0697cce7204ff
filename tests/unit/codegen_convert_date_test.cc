// Day numbers, the date, time and timestamp parsers, brace literals, the clock and the settings.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "codegen/convert.h"

namespace tav::conv {
namespace {

// Every parse below runs on Friday 15 March 2024.
const int32_t kToday = day_number(15, 3, 2024);

DateSettings settings(char order = '0', int offset = 0, char sep = 0) {
  DateSettings s;
  s.order = order;
  s.year_offset = offset;
  s.separator = sep;
  s.today = kToday;
  return s;
}

TEST(ConvertCalendar, DayNumbersAndWeekdays) {
  struct Case {
    Ymd date;
    int32_t day;
    int weekday;  // 0 Sunday
  } cases[] = {
      {{1, 1, 1900}, 0, 1},         {{6, 6, 2079}, 65535, 2},  {{1, 1, 1970}, 25567, 4},
      {{29, 2, 2000}, 36583, 2},    {{1, 1, 1987}, 31776, 4},  {{15, 3, 2024}, 45364, 5}, {{31, 12, 1899}, -1, 0},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(day_number(c.date.day, c.date.month, c.date.year), c.day);
    EXPECT_EQ(from_day_number(c.day), c.date);
    EXPECT_EQ(day_of_week(c.day), c.weekday) << c.day;
  }
  for (int32_t d = 0; d <= kLastDay; d += 97) {  // round trip across the range
    Ymd y = from_day_number(d);
    EXPECT_EQ(day_number(y.day, y.month, y.year), d);
  }
  EXPECT_EQ(days_in_month(13, 2024), 0);  // leap years are checked through the parser below
}

TEST(ConvertCalendar, AddMonths) {
  struct Case {
    Ymd from;
    int months;
    Ymd to;  // {0,0,0}: out of range
  } cases[] = {
      {{31, 1, 2024}, 1, {29, 2, 2024}},  {{29, 2, 2024}, 12, {28, 2, 2025}},
      {{28, 2, 2023}, 1, {31, 3, 2023}},  {{30, 1, 2023}, 1, {28, 2, 2023}},
      {{15, 3, 2024}, -3, {15, 12, 2023}}, {{30, 4, 2024}, -2, {29, 2, 2024}},
      {{15, 1, 1900}, -1, {}},            {{6, 6, 2079}, 1, {}},
  };
  for (const Case& c : cases) {
    int32_t r = add_months(day_number(c.from.day, c.from.month, c.from.year), c.months);
    if (c.to == Ymd{})
      EXPECT_EQ(r, kOutOfRange);
    else
      EXPECT_EQ(from_day_number(r), c.to) << c.from.day << "/" << c.from.month << " + " << c.months;
  }
}

struct DateCase {
  DateSettings s;
  const char* text;
  int32_t expected;
};

TEST(ConvertDate, Parse) {
  DateSettings locale = settings('1');
  locale.month_names = {"januar", "februar", "maerz", "april",   "mai",      "juni",
                        "juli",   "august",  "sept",  "oktober", "november", "dezember"};
  const int32_t mar15 = kToday;
  const DateCase cases[] = {
      // Orders and separators.
      {settings(), "03/15/2024", mar15}, {settings(), " 3-15-24", mar15}, {settings(), "3, 15 2024 ", mar15},
      {settings('1'), "15/03/2024", mar15}, {settings('2'), "3/15/2024", mar15},
      {settings('0', 0, ';'), "3;15;2024", mar15}, {settings(), "3;15;2024", kInvalid},
      // Month names, wherever they stand.
      {settings(), "mar 15 2024", mar15}, {settings(), "March 15, 2024", mar15}, {settings(), "15 MARCH 2024", mar15},
      {settings('1'), "15-mar-2024", mar15}, {locale, "15 maerz 2024", mar15},
      {locale, "1 mai 2024", day_number(1, 5, 2024)},
      {locale, "1 may 2024", day_number(1, 5, 2024)},  // defaults still apply
      {settings(), "1 mai 2024", kInvalid},
      // Missing parts: the current year, month, or today.
      {settings(), "3/20", day_number(20, 3, 2024)}, {settings(), "20", day_number(20, 3, 2024)},
      {settings(), "", mar15},
      // Compact dates.
      {settings(), "150324", mar15}, {settings(), "15032024", mar15}, {settings(), "10124", day_number(1, 1, 2024)},
      {settings('2'), "031524", mar15}, {settings('2'), "03152024", mar15},
      // Two-digit years, in 2024.
      {settings(), "1/1/05", day_number(1, 1, 2005)}, {settings(), "1/1/34", day_number(1, 1, 2034)},
      {settings(), "1/1/35", day_number(1, 1, 1935)},
      // A year offset: years are entered with it added.
      {settings('0', 543), "1/1/2567", day_number(1, 1, 2024)},
      {settings('0', 543), "1/1/67", day_number(1, 1, 2024)}, {settings('0', 543), "1/1/80", day_number(1, 1, 1937)},
      // Range ends and leap days.
      {settings(), "1/1/1900", 0}, {settings(), "6/6/2079", 65535}, {settings(), "6/7/2079", kOutOfRange},
      {settings(), "6/31/2079", kOutOfRange}, {settings(), "12/31/1899", kOutOfRange},
      {settings(), "2/29/2000", day_number(29, 2, 2000)}, {settings(), "2/29/1900", kBadDay},
      {settings(), "2/29/2023", kBadDay},
      // Error codes, checked in order: day, month present, month range, range, day in month.
      {settings(), "3/0/2024", kBadDay}, {settings(), "0/15/2024", kInvalid}, {settings(), "13/15/2024", kBadMonth},
      {settings(), "13/0/2024", kBadDay}, {settings(), "13/15/1800", kBadMonth}, {settings(), "4/31/2024", kBadDay},
      {settings(), "2024", kBadDay}, {settings(), "jan", kBadDay},
      // Words that are not dates.
      {settings(), "x=1", kInvalid}, {settings(), "cust-no", kInvalid}, {settings(), "12ab", kInvalid},
      {settings(), "ja 5", kInvalid}, {settings(), "mar-no", kInvalid}, {settings(), "may 5 june", kInvalid},
      {settings(), "1/2/3/4", kInvalid}, {settings(), "1/2/", kInvalid}, {settings(), "12:30", kInvalid},
  };
  for (const DateCase& c : cases) EXPECT_EQ(parse_date(c.text, c.s), c.expected) << c.text;
}

TEST(ConvertDate, StopsAtTheEndWhenAskedForTheRest) {
  for (auto [text, date, left] : {std::tuple{"03/15/2024 12:30", kToday, " 12:30"},
                                  {"12ab", day_number(12, 3, 2024), "ab"}, {"3/15/", kToday, "/"}}) {
    std::string_view rest;
    EXPECT_EQ(parse_date(text, settings(), &rest), date) << text;
    EXPECT_EQ(rest, left) << text;
  }
}

TEST(ConvertTime, Parse) {
  struct Case {
    const char* text;
    int32_t expected;
  } cases[] = {
      {"12:30", 45000},     {"12:30:15", 45015},   {" 7 ", 25200},      {"12.30.15", 45015},
      {"23:59:59", 86399},  {"24:00:00", 0},       {"24:00", 0},        {"12:60", 46800},
      {"12:30 AM", 1800},   {"12:30am", 1800},     {"12 PM", 43200},    {"1:15 pm", 47700},
      {"13:00 PM", kInvalid}, {"11:00 AX", kInvalid}, {"11 P", kInvalid}, {"12:30 AM x", kInvalid},
      {"12:30.15", kInvalid}, {"12:", kInvalid},   {"", kInvalid},      {"abc", kInvalid},
      {"24:00:01", kTimeRange}, {"24:30", kTimeRange}, {"12:61", kTimeRange}, {"1:2:61.", kInvalid},
  };
  for (const auto& c : cases) EXPECT_EQ(parse_time(c.text), c.expected) << c.text;
}

TEST(ConvertTime, Timestamp) {
  const std::pair<const char*, int32_t> cases[] = {
      {"01/02/1970 00:00:00", 86400}, {"1/2/1970", 86400},         {"1/1/1970 1:00 pm", 46800}, {"  ", 0},
      {"12/31/1969", kOutOfRange},    {"01/02/1970 25:00", kBadTime}, {"13/1/1970", kBadMonth},
  };
  for (const auto& [text, value] : cases) EXPECT_EQ(parse_timestamp(text, settings()), value) << text;
}

TEST(ConvertBrace, Values) {
  using S = BraceStatus;
  struct Case {
    const char* keyword;
    const char* text;
    char kind_in;
    S status;
    uint32_t value;
    uint16_t format;
    char kind;
  } cases[] = {
      {"d", "2079-06-06", 'N', S::ok, 65535, kFmtDate, 'D'}, {"date", "1900-01-01", 'N', S::ok, 0, kFmtDate, 'D'},
      {"d", "2024/3/15", 'N', S::ok, 45364, kFmtDate, 'D'}, {"d", "2079-06-07", 'N', S::invalid_date, 0, 0, 0},
      {"d", "2024-02-30", 'N', S::invalid_date, 0, 0, 0}, {"d", "2024-00-10", 'N', S::invalid_date, 0, 0, 0},
      {"d", "2024-01-05 x", 'N', S::invalid_date, 0, 0, 0}, {"d", "2024-01", 'N', S::invalid_date, 0, 0, 0},
      {"t", "12:30:15.75", 'N', S::ok, 45015, kFmtTime, 'T'}, {"time", "25:00", 'N', S::invalid_time, 0, 0, 0},
      {"ts", "1970-01-02 00:00:00", 'N', S::ok, 86400, kFmtTime, 'N'},
      {"ts", "1970-01-02", 'N', S::ok, 86400, kFmtTime, 'N'},
      {"ts", "1969-12-31 10:00", 'N', S::ok, 0, kFmtTime, 'N'},
      {"ts", "0000-00-00 10:00", 'N', S::ok, 0, kFmtTime, 'N'}, {"ts", "0000-01-00", 'N', S::invalid_date, 0, 0, 0},
      {"ts", "1970-01-02 bad", 'N', S::invalid_time, 0, 0, 0},
      {"ts", "1970-01-02 12:00", 'D', S::ok, 25568, kFmtTime, 'D'},
      {"ts", "1970-01-02 12:00", 'T', S::ok, 43200, kFmtTime, 'T'},
      {"ts", "1970-01-02 12:00", 'J', S::ok, 126000, kFmtTime, 'J'},  // less the offset
      {"ts", "1970-01-01 12:00", 'J', S::ok, 43200, kFmtTime, 'J'},
      {"timestampxyz", "1970-01-02", 'N', S::ok, 86400, kFmtTime, 'N'},  // nine characters count
      {"tsx", "1970-01-02", 'N', S::not_supported, 0, 0, 0}, {"dat", "1970-01-02", 'N', S::not_supported, 0, 0, 0},
      {"", "1970-01-02", 'N', S::syntax_error, 0, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.keyword << " '" << c.text << "' " << c.kind_in);
    BraceValue v = brace_value(c.keyword, c.text, c.kind_in, 3600);
    EXPECT_EQ(v.status, c.status);
    if (c.status != S::ok) continue;
    EXPECT_EQ(v.value, c.value);
    EXPECT_EQ(v.format, c.format);
    EXPECT_EQ(v.kind, c.kind);
  }
}

TEST(ConvertClock, LocalOffsetIsComputedOnceAndBounded) {
  constexpr int64_t kNow = 1700000000;  // Tuesday 14 November 2023 22:13:20 UTC
  int calls = 0;
  auto zone = [&calls](int64_t shift) {
    return [&calls, shift](int64_t t, std::tm* out) {
      ++calls;
      std::time_t tt = static_cast<std::time_t>(t + shift);
      return gmtime_r(&tt, out) != nullptr;
    };
  };
  LocalTime plus_hour(Clock{[] { return kNow; }, zone(3600)});
  EXPECT_EQ(plus_hour.offset(), 3600);
  EXPECT_EQ(plus_hour.now(), kNow + 3600);
  EXPECT_EQ(plus_hour.today(), day_number(14, 11, 2023));
  EXPECT_EQ(calls, 1);

  LocalTime late(Clock{[] { return kNow; }, zone(7200)});  // past midnight locally
  EXPECT_EQ(late.today(), day_number(15, 11, 2023));
  LocalTime absurd(Clock{[] { return kNow; }, zone(2 * 86400)});
  EXPECT_EQ(absurd.offset(), 0);
}

TEST(ConvertSettings, FromEnvironment) {
  std::map<std::string, std::string> env;
  auto lookup = [&env](const char* name) -> const char* {
    auto it = env.find(name);
    return it == env.end() ? nullptr : it->second.c_str();
  };
  DateSettings d = DateSettings::from_env(lookup);
  EXPECT_EQ(d.order, '0');
  EXPECT_EQ(d.year_offset, 0);
  EXPECT_EQ(d.separator, 0);
  EXPECT_EQ(d.today, -1);

  env = {{"TAVDATEORDER", "1"},
         {"TAVYEAROFFSET", "543"}, {"TAVDATESEP", ";"},
         {"TAVMONTHNAMES", "jan, feb,mrz,apr,mai,jun,jul,aug,sep,okt,nov,dez"}};
  d = DateSettings::from_env(lookup);
  EXPECT_EQ(d.order, '1');
  EXPECT_EQ(d.year_offset, 543);
  EXPECT_EQ(d.separator, ';');
  EXPECT_EQ(d.month_names[1], "feb");
  EXPECT_EQ(d.month_names[11], "dez");

  env = {{"TAVDATEORDER", "3"},
         {"TAVYEAROFFSET", "12x"}, {"TAVDATESEP", "ab"},
         {"TAVMONTHNAMES", "a,b,c"}};
  d = DateSettings::from_env(lookup);
  EXPECT_EQ(d.order, '0');
  EXPECT_EQ(d.year_offset, 0);
  EXPECT_EQ(d.separator, 0);
  EXPECT_EQ(d.month_names[0], "");
}

}  // namespace
}  // namespace tav::conv
