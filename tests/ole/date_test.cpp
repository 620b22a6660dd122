#include "ole/date.h"

#include <random>
#include <string>

#include <gtest/gtest.h>

#include "ole/variant.h"
#include "tk/exception.h"
#include "tk/format.h"

#include "support/temp_dir.h"

namespace qb {
namespace {

ole_date parse(const char* text) { return ole_date(std::string_view(text)); }

// The time-zone switch is process-wide; tests that turn it on turn it off.
class timezone_on {
 public:
  timezone_on() { ole_date::set_timezone_switch(true); }
  ~timezone_on() { ole_date::set_timezone_switch(false); }
  timezone_on(const timezone_on&) = delete;
  timezone_on& operator=(const timezone_on&) = delete;
};

TEST(OleDate, RefusesFebruaryTwentyNinthOfCommonYearAndTriesEveryForm) {
  test::log_capture log;
  const ole_date d = parse("2005-02-29 10:00:00");
  EXPECT_FALSE(d.is_valid());
  EXPECT_EQ(d.type, 0);
  EXPECT_EQ(d.to_string(true), "");
  EXPECT_TRUE(log.has_line("Invalid day (2)"));
  EXPECT_TRUE(log.has_line("Trying datetime format #2"));
  EXPECT_TRUE(log.has_line("Trying datetime format #3"));
  EXPECT_TRUE(log.has_line("Invalid date/time format: '2005-02-29 10:00:00'"));
  EXPECT_FALSE(log.has_line("Got datetime using Microsoft API"));
}

TEST(OleDate, SwapsDayAndYear) {
  test::log_capture log;
  const ole_date d = parse("29-02-2004");
  ASSERT_TRUE(d.is_valid());
  EXPECT_EQ(d.type, ole_date::type_date);
  EXPECT_EQ(d.to_string(true), "2004-02-29");
  EXPECT_TRUE(log.has_line("Swap day and year: day=2004, year=29"));
  EXPECT_TRUE(log.has_line("Format #1 succeeded (3 items)"));
}

TEST(OleDate, MonthFirstTextFailsTheFixedFormsAndFallsToTheUsParser) {
  test::log_capture log;
  const ole_date d = parse("12-25-2005");
  EXPECT_TRUE(log.has_line("Invalid month"));
  EXPECT_TRUE(log.has_line("Got datetime using Microsoft API"));
  ASSERT_TRUE(d.is_valid());
  EXPECT_EQ(d.to_string(true), "2005-12-25");
}

TEST(OleDate, ReadsCompactTimestamps) {
  const ole_date date = parse("20040229");
  ASSERT_TRUE(date.is_valid());
  EXPECT_EQ(date.type, ole_date::type_date);
  EXPECT_EQ(date.to_string(true), "2004-02-29");

  const ole_date stamp = parse("20040229101500");
  ASSERT_TRUE(stamp.is_valid());
  EXPECT_EQ(stamp.type, ole_date::type_date_time);
  EXPECT_EQ(stamp.to_string(true), "2004-02-29 10:15:00");
}

TEST(OleDate, CompactTimestampWithZeroTimeStaysDateTimeButPrintsAsDate) {
  ole_date d = parse("20040229000000");
  ASSERT_TRUE(d.is_valid());
  EXPECT_EQ(d.type, ole_date::type_date_time);
  EXPECT_EQ(d.to_string(true), "2004-02-29");
  d.trim_zero_time = false;
  EXPECT_EQ(d.to_string(true), "2004-02-29 00:00:00");
}

TEST(OleDate, PureTimeWithFraction) {
  const ole_date d = parse("10:15:30.5");
  ASSERT_TRUE(d.is_valid());
  EXPECT_EQ(d.type, ole_date::type_time);
  EXPECT_EQ(d.src.wMilliseconds, 500);
  EXPECT_EQ(d.microseconds, 500000);
  EXPECT_EQ(d.to_string(true), "0000-00-00 10:15:30.500000");
  EXPECT_EQ(d.to_wstring(true), L"10:15:30.500000");
  EXPECT_EQ(d.to_string(false), "0000-00-00 10:15:30");
}

TEST(OleDate, PureTimeWithoutSeconds) {
  const ole_date d = parse("10:15");
  ASSERT_TRUE(d.is_valid());
  EXPECT_EQ(d.type, ole_date::type_time);
  EXPECT_EQ(d.to_wstring(true), L"10:15:00");
}

TEST(OleDate, MillisecondsOnlyPrintThreeDigits) {
  ole_date d(ole_systemtime{2005, 1, 0, 5, 10, 0, 0, 250});
  EXPECT_EQ(d.type, ole_date::type_date_time);
  EXPECT_EQ(d.to_string(true), "2005-01-05 10:00:00.250");
  EXPECT_EQ(d.to_string(false), "2005-01-05 10:00:00");
}

TEST(OleDate, FractionCarriesIntoTheNextMinute) {
  const ole_date d = parse("2005-01-05 10:15:59.9999996");
  ASSERT_TRUE(d.is_valid());
  EXPECT_EQ(d.to_string(true), "2005-01-05 10:16:00");
  const ole_date t = parse("10:15:59.9999996");
  EXPECT_EQ(t.to_wstring(true), L"10:16:00");
}

TEST(OleDate, CarryPastMidnightWrapsWithinTheSameDate) {
  const ole_date t = parse("23:59:59.9999996");
  ASSERT_TRUE(t.is_valid());
  EXPECT_EQ(t.to_wstring(true), L"00:00:00");
  const ole_date d = parse("2005-01-05 23:59:59.9999996");
  ASSERT_TRUE(d.is_valid());
  EXPECT_EQ(d.src.wDay, 5);
  EXPECT_EQ(d.to_string(true), "2005-01-05");
}

TEST(OleDate, ShortTextAfterCuttingPmIsRefused) {
  test::log_capture log;
  const ole_date d = parse("2:30 PM");
  EXPECT_FALSE(d.is_valid());
  EXPECT_TRUE(log.has_line("Invalid date/time format: '2:30'"));
}

TEST(OleDate, PmAddsTwelveHours) {
  const ole_date d = parse("02:30 PM");
  ASSERT_TRUE(d.is_valid());
  EXPECT_EQ(d.type, ole_date::type_time);
  EXPECT_EQ(d.src.wHour, 14);
  EXPECT_EQ(d.src.wMinute, 30);
  const ole_date noon = parse("12:30 PM");
  EXPECT_EQ(noon.src.wHour, 12);
  const ole_date midnight = parse("12:30 AM");
  EXPECT_EQ(midnight.src.wHour, 12);  // 12 AM keeps hour 12
  const ole_date lower = parse("2005-01-05 10:00:00 pm");
  EXPECT_EQ(lower.to_string(true), "2005-01-05 22:00:00");
}

TEST(OleDate, SixtySecondsPassValidity) {
  const ole_date t = parse("10:15:60");
  ASSERT_TRUE(t.is_valid());
  EXPECT_EQ(t.src.wSecond, 60);
  const ole_date d = parse("2005-01-05 10:15:60");
  ASSERT_TRUE(d.is_valid());
  EXPECT_EQ(d.to_string(true), "2005-01-05 10:15:60");
  test::log_capture log;
  EXPECT_FALSE(parse("2005-01-05 10:61:00").is_valid());
  EXPECT_TRUE(log.has_line("Invalid time"));
}

TEST(OleDate, ValidityMessages) {
  test::log_capture log;
  ole_date d;
  EXPECT_FALSE(d.is_valid());  // type 0
  d.type = ole_date::type_date;
  d.src = ole_systemtime{2005, 13, 0, 1};
  EXPECT_FALSE(d.is_valid());
  EXPECT_TRUE(log.has_line("Invalid month"));
  d.src = ole_systemtime{2005, 1, 0, 32};
  EXPECT_FALSE(d.is_valid());
  EXPECT_TRUE(log.has_line("Invalid day (1)"));
  d.src = ole_systemtime{2005, 1, 0, 0};
  EXPECT_FALSE(d.is_valid());
  EXPECT_TRUE(log.has_line("Got zero day/month/year"));
  d.src = ole_systemtime{0, 0, 0, 0, 10};
  EXPECT_TRUE(d.is_valid());
  EXPECT_TRUE(log.has_line("DATETIME is a pute time"));
  d.src = ole_systemtime{2000, 2, 0, 29};
  EXPECT_TRUE(d.is_valid());
  d.src = ole_systemtime{1900, 2, 0, 29};
  EXPECT_FALSE(d.is_valid());
  d.src = ole_systemtime{0, 2, 0, 29};  // year 0 counts as year 1
  EXPECT_FALSE(d.is_valid());
}

TEST(OleDate, RefineTypeSeparatesDatesAndTimes) {
  test::log_capture log;
  const ole_date time(ole_systemtime{0, 0, 0, 0, 10, 15, 0, 0});
  EXPECT_EQ(time.type, ole_date::type_time);
  EXPECT_TRUE(log.has_line("Switch to 'pure' time"));
  const ole_date date(ole_systemtime{2005, 1, 0, 5});
  EXPECT_EQ(date.type, ole_date::type_date);
  EXPECT_TRUE(log.has_line("Switch to 'pure' date"));
  const ole_date both(ole_systemtime{2005, 1, 0, 5, 0, 0, 1, 0});
  EXPECT_EQ(both.type, ole_date::type_date_time);
}

TEST(OleDate, MidnightWithSubMillisecondFractionKeepsItsTime) {
  const ole_date d = parse("2005-01-05 00:00:00.000400");
  ASSERT_TRUE(d.is_valid());
  EXPECT_EQ(d.type, ole_date::type_date_time);
  EXPECT_EQ(d.to_string(true), "2005-01-05 00:00:00.000400");
}

TEST(OleDate, SlashAndDotFormsAndTheirLogLines) {
  test::log_capture log;
  EXPECT_EQ(parse("2005/01/05 10:00:01").to_string(true), "2005-01-05 10:00:01");
  EXPECT_TRUE(log.has_line("Format #2 succeeded (6 items)"));
  EXPECT_EQ(parse("05.01.2005").to_string(true), "2005-01-05");
  EXPECT_TRUE(log.has_line("Format #3 succeeded (3 items)"));
  EXPECT_TRUE(log.has_line("Trying pure time format..."));
  EXPECT_EQ(parse("20050105").to_string(true), "2005-01-05");
  EXPECT_TRUE(log.has_line("Trying timestamp format (2)..."));
}

TEST(OleDate, ReadsFreeTdsDateTextWithUnpaddedYearAndSevenDigits) {
  const ole_date first = parse("1-01-01 00:00:00.0000000");
  ASSERT_TRUE(first.is_valid());
  EXPECT_EQ(first.to_string(true), "0001-01-01");
  const ole_date d = parse("1-01-01 12:34:56.1234567");
  ASSERT_TRUE(d.is_valid());
  EXPECT_EQ(d.to_string(true), "0001-01-01 12:34:56.123457");
  const ole_date last = parse("9999-12-31 23:59:59.9999990");
  ASSERT_TRUE(last.is_valid());
  EXPECT_EQ(last.to_string(true), "9999-12-31 23:59:59.999999");
  EXPECT_EQ(parse("2005-01-05 10:00:00.0000005").to_string(true), "2005-01-05 10:00:00.000001");
}

TEST(OleDate, SetsDatetimeoffsetOffsetAsideWhenTheSwitchIsOff) {
  const ole_date east = parse("2005-01-05 10:00:00.1234567 +05:30");
  ASSERT_TRUE(east.is_valid());
  EXPECT_TRUE(east.has_offset);
  EXPECT_EQ(east.offset_minutes, 330);
  EXPECT_EQ(east.to_string(true), "2005-01-05 10:00:00.123457");
  const ole_date west = parse("2005-01-05 10:00:00 -08:00");
  ASSERT_TRUE(west.is_valid());
  EXPECT_EQ(west.offset_minutes, -480);
  EXPECT_EQ(west.to_string(true), "2005-01-05 10:00:00");
  const ole_date time = parse("10:00:00.5 -08:00");
  ASSERT_TRUE(time.is_valid());
  EXPECT_EQ(time.to_wstring(true), L"10:00:00.500000");
  // Without seconds the fixed forms do not fit; the US-English parser reads it.
  const ole_date short_time = parse("2005-01-05 10:00 -08:00");
  ASSERT_TRUE(short_time.is_valid());
  EXPECT_EQ(short_time.to_string(true), "2005-01-05 10:00:00");
  const ole_date date_only = parse("2005-01-05 +00:00");
  ASSERT_TRUE(date_only.is_valid());
  EXPECT_EQ(date_only.to_string(true), "2005-01-05");
  const ole_date plain = parse("2005-01-05 10:00:00");
  EXPECT_FALSE(plain.has_offset);
}

TEST(OleDate, TimezoneSwitchReadsAndPrintsWholeHours) {
  const timezone_on on;
  test::log_capture log;
  const ole_date east = parse("2005-01-05 10:00:00 +05");
  ASSERT_TRUE(east.is_valid());
  EXPECT_EQ(east.timezone, 5);
  EXPECT_TRUE(log.has_line("Got timezone string: +05"));
  EXPECT_TRUE(log.has_line("Got timezone value: 5"));
  EXPECT_EQ(east.to_string(true), "2005-01-05 10:00:00 +05:00");
  const ole_date west = parse("2005-01-05 10:00:00 -08:00");
  ASSERT_TRUE(west.is_valid());
  EXPECT_EQ(west.timezone, -8);
  EXPECT_EQ(west.to_string(true), "2005-01-05 10:00:00 -08:00");
  EXPECT_EQ(west.to_wstring(true), L"2005-01-05 10:00:00 -08:00");
}

TEST(OleDate, TimezoneSwitchIsOffByDefault) {
  EXPECT_FALSE(ole_date::timezone_switch());
  const ole_date d = parse("2005-01-05 10:00:00 +05:30");
  EXPECT_EQ(d.timezone, 0);
  EXPECT_EQ(d.to_string(true), "2005-01-05 10:00:00");
}

TEST(OleDate, UsEnglishForms) {
  EXPECT_EQ(parse("Jan 5 2005 10:00AM").to_string(true), "2005-01-05 10:00:00");
  EXPECT_EQ(parse("Jan 5 2005 10:00PM").to_string(true), "2005-01-05 22:00:00");
  EXPECT_EQ(parse("December 25, 2005").to_string(true), "2005-12-25");
  EXPECT_EQ(parse("25 Dec 2005 08:15:30").to_string(true), "2005-12-25 08:15:30");
  EXPECT_EQ(parse("05-Jan-2005").to_string(true), "2005-01-05");
  EXPECT_EQ(parse("12/25/2005 11:30").to_string(true), "2005-12-25 11:30:00");
  EXPECT_EQ(parse("12/25/99").to_string(true), "1999-12-25");
  EXPECT_EQ(parse("12/25/05").to_string(true), "2005-12-25");
  // The fixed day-month-year form runs first.
  EXPECT_EQ(parse("1/5/2005").to_string(true), "2005-05-01");
  EXPECT_FALSE(parse("Foo 5 2005").is_valid());
  EXPECT_FALSE(parse("13/25/2005").is_valid());
  EXPECT_FALSE(parse("2/30/2005").is_valid());
  EXPECT_FALSE(parse("12/25/2005 24:00").is_valid());
  EXPECT_FALSE(parse("12/25-2005").is_valid());
  EXPECT_FALSE(parse("0000-01-05 10:00").is_valid());
  EXPECT_EQ(parse("2005/1/5 7:05").to_string(true), "2005-01-05 07:05:00");
}

TEST(OleDate, JunkIsInvalid) {
  for (const char* text : {"", "     ", "abc", "hello world", "2005-01", "1234", "10:xx:30"}) {
    EXPECT_FALSE(parse(text).is_valid()) << text;
  }
}

TEST(OleDate, WideTextIsParsedAlike) {
  const ole_date d(std::wstring_view(L"  2005-01-05 10:00:00.5  "));
  ASSERT_TRUE(d.is_valid());
  EXPECT_EQ(d.to_wstring(true), L"2005-01-05 10:00:00.500000");
  // Three items of the first form are a date; what follows is not looked at.
  const ole_date trailing(std::wstring_view(L"2005-01-05 \u00e9t\u00e9"));
  ASSERT_TRUE(trailing.is_valid());
  EXPECT_EQ(trailing.to_wstring(true), L"2005-01-05");
  EXPECT_FALSE(ole_date(std::wstring_view(L"\u00e9\u00e9\u00e9\u00e9\u00e9")).is_valid());
}

TEST(OleDate, NullSecondsTextIsAnInternalError) {
  ole_date d;
  EXPECT_THROW(d.process_milliseconds(static_cast<const char*>(nullptr)), tk_mail_assertion);
}

TEST(OleDate, MillisecondsRoundHalfAwayFromZero) {
  ole_date d;
  d.process_milliseconds("5.0005");
  EXPECT_EQ(d.src.wSecond, 5);
  EXPECT_EQ(d.src.wMilliseconds, 1);
  EXPECT_EQ(d.microseconds, 500);
  d.process_milliseconds("7.9994999");
  EXPECT_EQ(d.src.wMilliseconds, 999);
  EXPECT_EQ(d.microseconds, 999500);
  d.process_milliseconds("3e1");  // read as the C library reads a number
  EXPECT_EQ(d.src.wSecond, 30);
  EXPECT_EQ(d.microseconds, 0);
}

// Dates of years 1 to 9999 with microseconds survive their own text, also in
// FreeTDS's form (unpadded year, seven digits) and as wide text.
TEST(OleDate, RoundTripsEveryYearWithMicroseconds) {
  std::mt19937 rng(9999);
  for (int i = 0; i < 50000; ++i) {
    const int year = 1 + static_cast<int>(rng() % 9999);
    const int month = 1 + static_cast<int>(rng() % 12);
    const int day = 1 + static_cast<int>(rng() % static_cast<unsigned>(ole_days_in_month(year, month)));
    const int hour = static_cast<int>(rng() % 24);
    const int minute = static_cast<int>(rng() % 60);
    const int second = static_cast<int>(rng() % 60);
    const int micro = 1 + static_cast<int>(rng() % 999999);
    const std::string text =
        tk_format("%04d-%02d-%02d %02d:%02d:%02d.%06d", year, month, day, hour, minute, second, micro);
    const ole_date d(std::string_view{text});
    ASSERT_TRUE(d.is_valid()) << text;
    ASSERT_EQ(d.to_string(true), text);
    ASSERT_EQ(d.src.wYear, year);
    ASSERT_EQ(d.microseconds, micro);
    const ole_date wide(std::wstring_view{d.to_wstring(true)});
    ASSERT_EQ(wide.to_string(true), text);
    const std::string freetds =
        tk_format("%d-%02d-%02d %02d:%02d:%02d.%07d", year, month, day, hour, minute, second, micro * 10);
    ASSERT_EQ(ole_date(std::string_view{freetds}).to_string(true), text) << freetds;
  }
}

TEST(OleDate, DayNumbersOfThePlatform) {
  double t = 0;
  ASSERT_TRUE(ole_system_time_to_variant_time(ole_systemtime{1899, 12, 0, 30}, t));
  EXPECT_EQ(t, 0.0);
  ASSERT_TRUE(ole_system_time_to_variant_time(ole_systemtime{1900, 1, 0, 1}, t));
  EXPECT_EQ(t, 2.0);
  ASSERT_TRUE(ole_system_time_to_variant_time(ole_systemtime{1899, 12, 0, 29, 6}, t));
  EXPECT_EQ(t, -1.25);
  ASSERT_TRUE(ole_system_time_to_variant_time(ole_systemtime{2005, 1, 0, 5, 12}, t));
  EXPECT_EQ(t, 38357.5);
  EXPECT_FALSE(ole_system_time_to_variant_time(ole_systemtime{99, 1, 0, 1}, t));
  EXPECT_FALSE(ole_system_time_to_variant_time(ole_systemtime{0, 0, 0, 0, 10}, t));
  EXPECT_FALSE(ole_system_time_to_variant_time(ole_systemtime{2005, 2, 0, 29}, t));

  ole_systemtime st;
  ASSERT_TRUE(ole_variant_time_to_system_time(-1.25, st));
  EXPECT_EQ(st, (ole_systemtime{1899, 12, 5, 29, 6, 0, 0, 0}));
  ASSERT_TRUE(ole_variant_time_to_system_time(38357.5, st));
  EXPECT_EQ(st, (ole_systemtime{2005, 1, 3, 5, 12, 0, 0, 0}));
  EXPECT_FALSE(ole_variant_time_to_system_time(2958466.0, st));
  EXPECT_FALSE(ole_variant_time_to_system_time(-657435.0, st));
  std::mt19937 rng(100);
  for (int i = 0; i < 20000; ++i) {
    const ole_systemtime in{static_cast<std::uint16_t>(100 + rng() % 9900),
                            static_cast<std::uint16_t>(1 + rng() % 12),
                            0,
                            static_cast<std::uint16_t>(1 + rng() % 28),
                            static_cast<std::uint16_t>(rng() % 24),
                            static_cast<std::uint16_t>(rng() % 60),
                            static_cast<std::uint16_t>(rng() % 60),
                            0};
    ASSERT_TRUE(ole_system_time_to_variant_time(in, t));
    ASSERT_TRUE(ole_variant_time_to_system_time(t, st));
    st.wDayOfWeek = 0;
    ASSERT_EQ(st, in);
  }
}

TEST(OleDate, FromVariantGoesThroughTheDayNumber) {
  const ole_variant v(ole_date(std::string_view("2005-01-05 10:00:00.5")));
  const ole_date d(v);
  EXPECT_EQ(d.type, ole_date::type_date_time);
  EXPECT_EQ(d.to_string(true), "2005-01-05 10:00:00");  // whole seconds only
  const ole_date empty{ole_variant()};
  EXPECT_EQ(empty.type, 0);
  EXPECT_THROW(ole_date{ole_variant(5)}, tk_mail_assertion);
}

}  // namespace
}  // namespace qb
