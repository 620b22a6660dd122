// Dates and times built straight from SQL_TIMESTAMP_STRUCT: the same values
// as the text parser makes of SQL Server's text for them, field by field.
#include "mss/timestamp.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

#include "ole/date.h"

namespace qb {
namespace {

SQL_TIMESTAMP_STRUCT stamp(int year, int month, int day, int hour = 0, int minute = 0, int second = 0,
                           std::uint32_t fraction = 0) {
  SQL_TIMESTAMP_STRUCT t{};
  t.year = static_cast<SQLSMALLINT>(year);
  t.month = static_cast<SQLUSMALLINT>(month);
  t.day = static_cast<SQLUSMALLINT>(day);
  t.hour = static_cast<SQLUSMALLINT>(hour);
  t.minute = static_cast<SQLUSMALLINT>(minute);
  t.second = static_cast<SQLUSMALLINT>(second);
  t.fraction = fraction;
  return t;
}

ole_variant through_text(const SQL_TIMESTAMP_STRUCT& t, bool date_only, int scale) {
  char buffer[40];
  return ole_variant::from_string(odb_timestamp_text(t, date_only, scale, buffer), ole_variant::vt_date);
}

// Every field of the two values, and their printed forms.
void expect_same(const ole_variant& fast, const ole_variant& text, const std::string& what) {
  SCOPED_TRACE(what);
  ASSERT_EQ(fast.get_type(), text.get_type());
  if (text.get_type() != ole_variant::vt_date) return;
  const ole_date& a = *fast.get_date();
  const ole_date& b = *text.get_date();
  EXPECT_EQ(a.type, b.type);
  EXPECT_EQ(a.src, b.src);
  EXPECT_EQ(a.microseconds, b.microseconds);
  EXPECT_EQ(a.timezone, b.timezone);
  EXPECT_EQ(a.has_offset, b.has_offset);
  EXPECT_EQ(a.offset_minutes, b.offset_minutes);
  EXPECT_EQ(a.trim_zero_time, b.trim_zero_time);
  EXPECT_EQ(a.to_string(true), b.to_string(true));
  EXPECT_EQ(a.to_string(false), b.to_string(false));
  EXPECT_EQ(fast.get_date_double(), text.get_date_double());
}

void check(const SQL_TIMESTAMP_STRUCT& t, bool date_only, int scale) {
  char buffer[40];
  const std::string text(odb_timestamp_text(t, date_only, scale, buffer));
  EXPECT_EQ(text.size(), odb_timestamp_text_size(date_only, scale)) << text;
  expect_same(odb_date_value(t, date_only, scale), through_text(t, date_only, scale),
              text + " scale " + std::to_string(scale) + (date_only ? " date" : ""));
}

TEST(OdbTimestamp, TextHasSqlServerForm) {
  char buffer[40];
  EXPECT_EQ(odb_timestamp_text(stamp(2024, 2, 29), true, 0, buffer), "2024-02-29");
  EXPECT_EQ(odb_timestamp_text(stamp(1, 1, 1), false, 0, buffer), "0001-01-01 00:00:00");
  EXPECT_EQ(odb_timestamp_text(stamp(9999, 12, 31, 23, 59, 59, 999999900), false, 7, buffer),
            "9999-12-31 23:59:59.999999");
  EXPECT_EQ(odb_timestamp_text(stamp(2024, 2, 29, 1, 2, 3, 120000000), false, 3, buffer), "2024-02-29 01:02:03.120");
}

TEST(OdbTimestamp, YearOneAndYear9999KeepTheirFields) {
  const ole_variant first = odb_date_value(stamp(1, 1, 1), false, 7);
  ASSERT_EQ(first.get_type(), ole_variant::vt_date);
  EXPECT_EQ(first.get_date()->src.wYear, 1);
  EXPECT_EQ(first.get_date()->type, ole_date::type_date);  // midnight: a pure date
  const ole_variant last = odb_date_value(stamp(9999, 12, 31, 23, 59, 59, 999999900), false, 7);
  ASSERT_EQ(last.get_type(), ole_variant::vt_date);
  EXPECT_EQ(last.get_date()->to_string(true), "9999-12-31 23:59:59.999999");
  check(stamp(1, 1, 1), false, 7);
  check(stamp(1, 1, 1), true, 0);
  check(stamp(9999, 12, 31, 23, 59, 59, 999999900), false, 7);
  check(stamp(9999, 12, 31), true, 0);
}

TEST(OdbTimestamp, SeventhFractionDigitIsCutNotRounded) {
  const ole_variant v = odb_date_value(stamp(2024, 12, 31, 23, 59, 59, 999999900), false, 7);
  ASSERT_EQ(v.get_type(), ole_variant::vt_date);
  EXPECT_EQ(v.get_date()->microseconds, 999999);
  EXPECT_EQ(v.get_date()->src.wSecond, 59);
  EXPECT_EQ(v.get_date()->to_string(true), "2024-12-31 23:59:59.999999");
  check(stamp(2024, 12, 31, 23, 59, 59, 999999900), false, 7);
  check(stamp(2024, 6, 1, 12, 0, 0, 123456700), false, 7);
}

TEST(OdbTimestamp, MillisecondsRoundFromTheFourthDigitLikeTheParser) {
  const ole_variant v = odb_date_value(stamp(2024, 6, 1, 12, 0, 0, 999500000), false, 6);
  ASSERT_EQ(v.get_type(), ole_variant::vt_date);
  EXPECT_EQ(v.get_date()->src.wMilliseconds, 1000);
  EXPECT_EQ(v.get_date()->microseconds, 999500);
  check(stamp(2024, 6, 1, 12, 0, 0, 999500000), false, 6);
  check(stamp(2024, 6, 1, 12, 0, 0, 499000), false, 7);
  check(stamp(2024, 6, 1, 12, 0, 0, 1500000), false, 3);
}

TEST(OdbTimestamp, EveryScaleAgreesWithTheText) {
  for (int scale = -1; scale <= 9; ++scale) {
    check(stamp(2005, 1, 5, 10, 0, 0, 250000000), false, scale);
    check(stamp(2005, 1, 5, 0, 0, 0, 0), false, scale);
    check(stamp(2005, 1, 5, 0, 0, 0, 100), false, scale);
    check(stamp(1899, 12, 30, 0, 0, 1, 987654321), false, scale);
  }
}

TEST(OdbTimestamp, FieldsOutOfRangeGoThroughTheText) {
  check(stamp(2023, 2, 29), false, 3);  // no such day
  check(stamp(2024, 13, 1), false, 3);
  check(stamp(2024, 1, 32), true, 0);
  check(stamp(0, 1, 1), false, 0);
  check(stamp(2024, 1, 1, 24, 0, 0), false, 0);
  check(stamp(2024, 1, 1, 1, 60, 0), false, 0);
  check(stamp(12345, 1, 1), true, 0);
  check(stamp(2024, 1, 1, 1, 1, 1, 1500000000U), false, 7);
  EXPECT_EQ(odb_date_value(stamp(2024, 13, 1), false, 3).get_type(), 0);
}

TEST(OdbTimestamp, TimeZoneSwitchGivesTheParsersValue) {
  ole_date::set_timezone_switch(true);
  check(stamp(2024, 6, 1, 12, 30, 0, 500000000), false, 7);
  check(stamp(2024, 6, 1), true, 0);
  ole_date::set_timezone_switch(false);
}

TEST(OdbTimestamp, RandomValuesAgreeWithTheText) {
  std::mt19937 random(20261122);
  std::uniform_int_distribution<int> year(1, 9999);
  std::uniform_int_distribution<int> month(1, 12);
  std::uniform_int_distribution<int> day(1, 31);
  std::uniform_int_distribution<int> hour(0, 23);
  std::uniform_int_distribution<int> sixty(0, 59);
  std::uniform_int_distribution<std::uint32_t> fraction(0, 9999999);
  std::uniform_int_distribution<int> scale(0, 7);
  for (int i = 0; i < 20000; ++i) {
    const int y = year(random);
    const int m = month(random);
    const int d = std::min(day(random), ole_days_in_month(y, m));
    const bool whole = i % 5 == 0;
    const SQL_TIMESTAMP_STRUCT t =
        stamp(y, m, d, whole ? 0 : hour(random), whole ? 0 : sixty(random), whole ? 0 : sixty(random),
              whole ? 0 : fraction(random) * 100);
    check(t, i % 7 == 0, scale(random));
    if (testing::Test::HasFailure()) break;
  }
}

}  // namespace
}  // namespace qb
