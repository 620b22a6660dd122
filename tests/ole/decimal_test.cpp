#include "ole/decimal.h"

#include <cmath>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "ole/currency.h"

namespace qb {
namespace {

ole_decimal dec(const char* text) {
  ole_decimal d;
  EXPECT_EQ(ole_decimal::from_string(text, d), ole_s_ok) << text;
  return d;
}

TEST(OleDecimal, PrintsWithoutTrailingZerosAsTheAutomationLayerDoes) {
  EXPECT_EQ(dec("0").to_string(), "0");
  EXPECT_EQ(dec("1.000").to_string(), "1");
  EXPECT_EQ(dec("1.500").to_string(), "1.5");
  EXPECT_EQ(dec("-1.5").to_string(), "-1.5");
  EXPECT_EQ(dec("0.0009").to_string(), "0.0009");
  EXPECT_EQ(dec("79228162514264337593543950335").to_string(), "79228162514264337593543950335");
  EXPECT_EQ(dec("7.9228162514264337593543950335").to_string(), "7.9228162514264337593543950335");
  EXPECT_EQ(dec("-0.000").to_string(), "0");
  ole_decimal d;
  ASSERT_TRUE(ole_decimal::make(9000, 7, false, d));
  EXPECT_EQ(d.to_string(), "0.0009");
}

TEST(OleDecimal, HoldsThirtyEightDigits) {
  const char* max = "99999999999999999999999999999999999999";
  EXPECT_EQ(dec(max).to_string(), max);
  EXPECT_EQ(dec("-0.99999999999999999999999999999999999999").to_string(), "-0.99999999999999999999999999999999999999");
  EXPECT_EQ(dec("0.00000000000000000000000000000000000001").to_string(), "0.00000000000000000000000000000000000001");
  EXPECT_EQ(dec("1234567890123456789.0123456789012345678").to_string(), "1234567890123456789.0123456789012345678");
}

TEST(OleDecimal, RefusesMoreThanThirtyEightDigits) {
  ole_decimal d;
  EXPECT_EQ(ole_decimal::from_string("123456789012345678901234567890123456789", d), ole_e_overflow);
  EXPECT_EQ(ole_decimal::from_string("0.000000000000000000000000000000000000001", d), ole_e_overflow);
  EXPECT_EQ(ole_decimal::from_string("1e38", d), ole_e_overflow);
  EXPECT_EQ(ole_decimal::from_string("1.5x", d), ole_e_type_mismatch);
  EXPECT_FALSE(ole_decimal::make(ole_pow10_u128(38), 0, false, d));
  EXPECT_FALSE(ole_decimal::make(1, 39, false, d));
  // Trailing zeros of the fraction do not count.
  EXPECT_EQ(ole_decimal::from_string("1.000000000000000000000000000000000000000000000", d), ole_s_ok);
  EXPECT_EQ(d.to_string(), "1");
}

TEST(OleDecimal, IntegerConversionsRoundHalvesToEven) {
  std::int64_t v = 0;
  ASSERT_EQ(dec("2.5").to_i64(v), ole_s_ok);
  EXPECT_EQ(v, 2);
  ASSERT_EQ(dec("3.5").to_i64(v), ole_s_ok);
  EXPECT_EQ(v, 4);
  ASSERT_EQ(dec("-2.5").to_i64(v), ole_s_ok);
  EXPECT_EQ(v, -2);
  ASSERT_EQ(dec("-2.51").to_i64(v), ole_s_ok);
  EXPECT_EQ(v, -3);
  ASSERT_EQ(dec("127.5").to_integer(-128, 127, v), ole_e_overflow);
  ASSERT_EQ(dec("127.4").to_integer(-128, 127, v), ole_s_ok);
  EXPECT_EQ(v, 127);
  ASSERT_EQ(dec("-9223372036854775808").to_i64(v), ole_s_ok);
  EXPECT_EQ(v, INT64_MIN);
  EXPECT_EQ(dec("9223372036854775808").to_i64(v), ole_e_overflow);
  std::uint64_t u = 0;
  ASSERT_EQ(dec("18446744073709551615.4").to_u64(u), ole_s_ok);
  EXPECT_EQ(u, UINT64_MAX);
  EXPECT_EQ(dec("-1").to_u64(u), ole_e_overflow);
  ASSERT_EQ(dec("-0.4").to_u64(u), ole_s_ok);
  EXPECT_EQ(u, 0U);
}

TEST(OleDecimal, FromDoubleTakesFifteenSignificantDigits) {
  ole_decimal d;
  ASSERT_EQ(ole_decimal::from_double(0.1, d), ole_s_ok);
  EXPECT_EQ(d.to_string(), "0.1");
  ASSERT_EQ(ole_decimal::from_double(1.0 / 3.0, d), ole_s_ok);
  EXPECT_EQ(d.to_string(), "0.333333333333333");
  ASSERT_EQ(ole_decimal::from_float(0.1F, d), ole_s_ok);
  EXPECT_EQ(d.to_string(), "0.1");
  ASSERT_EQ(ole_decimal::from_double(-1234.5, d), ole_s_ok);
  EXPECT_EQ(d.to_string(), "-1234.5");
  ASSERT_EQ(ole_decimal::from_double(1e-50, d), ole_s_ok);
  EXPECT_TRUE(d.is_zero());
  EXPECT_EQ(ole_decimal::from_double(1e38, d), ole_e_overflow);
  EXPECT_EQ(ole_decimal::from_double(std::numeric_limits<double>::infinity(), d), ole_e_overflow);
  EXPECT_EQ(ole_decimal::from_double(std::nan(""), d), ole_e_overflow);
}

TEST(OleDecimal, ToDoubleIsTheNearestDouble) {
  EXPECT_EQ(dec("0.1").to_double(), 0.1);
  EXPECT_EQ(dec("-123.456").to_double(), -123.456);
  EXPECT_EQ(dec("12345678901234567890.123456789").to_double(), 12345678901234567890.123456789);
  EXPECT_EQ(dec("0.00000000000000000000000000000000000003").to_double(), 3e-38);
}

TEST(OleDecimal, CurrencyRoundsToFourPlaces) {
  std::int64_t count = 0;
  ASSERT_EQ(dec("1.23455").to_currency(count), ole_s_ok);
  EXPECT_EQ(count, 12346);
  ASSERT_EQ(dec("1.23445").to_currency(count), ole_s_ok);
  EXPECT_EQ(count, 12344);
  EXPECT_EQ(dec("1000000000000000").to_currency(count), ole_e_overflow);
  EXPECT_EQ(dec("99999999999999999999999999999999999999").to_currency(count), ole_e_overflow);
  EXPECT_EQ(ole_decimal::from_currency(-15000).to_string(), "-1.5");
}

TEST(OleDecimal, AutomationBytesForValuesThatFitNinetySixBits) {
  std::array<std::uint8_t, 16> raw{};
  ASSERT_TRUE(dec("-1.50").to_ole_bytes(raw));
  const std::array<std::uint8_t, 16> expected = {14, 0, 1, 0x80, 0, 0, 0, 0, 15, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(raw, expected);
  ASSERT_TRUE(dec("79228162514264337593543950335").to_ole_bytes(raw));
  EXPECT_FALSE(dec("79228162514264337593543950336").to_ole_bytes(raw));
  EXPECT_FALSE(dec("0.00000000000000000000000000001").to_ole_bytes(raw));
}

TEST(OleDecimal, EqualityIsNumeric) {
  EXPECT_EQ(dec("1.50"), dec("1.5"));
  EXPECT_EQ(dec("-0"), dec("0"));
  EXPECT_NE(dec("1.5"), dec("-1.5"));
  EXPECT_NE(dec("1.5"), dec("15"));
}

// Random decimals of precision 38 at every scale survive text exactly.
TEST(OleDecimal, PrecisionThirtyEightRoundTripsAtEveryScale) {
  std::mt19937_64 rng(38);
  for (int scale = 0; scale <= 38; ++scale) {
    for (int i = 0; i < 400; ++i) {
      std::string digits;
      const int n = 1 + static_cast<int>(rng() % 38);
      for (int k = 0; k < n; ++k) digits.push_back(static_cast<char>('0' + rng() % 10));
      ole_u128 mantissa = 0;
      for (char c : digits) mantissa = mantissa * 10 + static_cast<unsigned>(c - '0');
      ole_decimal d;
      ASSERT_TRUE(ole_decimal::make(mantissa, scale, (rng() & 1) != 0, d));
      const std::string text = d.to_string();
      ole_decimal back;
      ASSERT_EQ(ole_decimal::from_string(text, back), ole_s_ok) << text;
      ASSERT_EQ(back, d) << text;
      ASSERT_EQ(back.to_string(), text);
    }
  }
}

// Plain text and text in another form (spaces, a sign behind) are read alike.
TEST(OleDecimal, PlainAndGeneralFormsAgree) {
  std::mt19937_64 rng(5);
  for (int i = 0; i < 20000; ++i) {
    std::string text = (rng() & 1) != 0 ? "-" : "";
    const int n = 1 + static_cast<int>(rng() % 38);
    const int point = static_cast<int>(rng() % static_cast<unsigned>(n + 1));
    for (int k = 0; k < n; ++k) {
      if (k == point && k > 0) text.push_back('.');
      text.push_back(static_cast<char>('0' + rng() % 10));
    }
    ole_decimal plain;
    ole_decimal general;
    ASSERT_EQ(ole_decimal::from_string(text, plain), ole_s_ok) << text;
    ASSERT_EQ(ole_decimal::from_string(" " + text + " ", general), ole_s_ok) << text;
    ASSERT_EQ(plain, general) << text;
    ASSERT_EQ(plain.scale(), general.scale()) << text;
    ASSERT_EQ(plain.to_string(), general.to_string()) << text;
  }
  EXPECT_EQ(dec("00012.3400").to_string(), "12.34");
  EXPECT_EQ(dec("-.5").to_string(), "-0.5");
  EXPECT_EQ(dec("1.").to_string(), "1");
  EXPECT_EQ(dec("+5").to_string(), "5");
  ole_decimal d;
  EXPECT_EQ(ole_decimal::from_string("-", d), ole_e_type_mismatch);
  EXPECT_EQ(ole_decimal::from_string("1.-", d), ole_s_ok);  // a trailing sign
  EXPECT_EQ(d.to_string(), "-1");
}

TEST(OleCurrency, PrintsUpToFourFractionDigits) {
  EXPECT_EQ(ole_currency{123456789}.to_string(), "12345.6789");
  EXPECT_EQ(ole_currency{15000}.to_string(), "1.5");
  EXPECT_EQ(ole_currency{-2500}.to_string(), "-0.25");
  EXPECT_EQ(ole_currency{1000000}.to_string(), "100");
  EXPECT_EQ(ole_currency{0}.to_string(), "0");
  EXPECT_EQ(ole_currency{INT64_MIN}.to_string(), "-922337203685477.5808");
  EXPECT_EQ(ole_currency{INT64_MAX}.to_string(), "922337203685477.5807");
}

TEST(OleCurrency, ReadsTextRoundingToFourPlaces) {
  ole_currency c;
  ASSERT_EQ(ole_currency::from_string("12345.67895", c), ole_s_ok);
  EXPECT_EQ(c.value, 123456790);
  ASSERT_EQ(ole_currency::from_string("0.00005", c), ole_s_ok);
  EXPECT_EQ(c.value, 0);
  ASSERT_EQ(ole_currency::from_string("0.00015", c), ole_s_ok);
  EXPECT_EQ(c.value, 2);
  ASSERT_EQ(ole_currency::from_string("-922337203685477.5808", c), ole_s_ok);
  EXPECT_EQ(c.value, INT64_MIN);
  EXPECT_EQ(ole_currency::from_string("922337203685477.5808", c), ole_e_overflow);
  EXPECT_EQ(ole_currency::from_string("1.2.3", c), ole_e_type_mismatch);
}

TEST(OleCurrency, IntegerAndDoubleConversions) {
  std::int64_t v = 0;
  ASSERT_EQ((ole_currency{25000}).to_i64(v), ole_s_ok);
  EXPECT_EQ(v, 2);
  ASSERT_EQ((ole_currency{35000}).to_i64(v), ole_s_ok);
  EXPECT_EQ(v, 4);
  ASSERT_EQ((ole_currency{-35000}).to_i64(v), ole_s_ok);
  EXPECT_EQ(v, -4);
  EXPECT_EQ((ole_currency{21474836475000}).to_integer(INT32_MIN, INT32_MAX, v), ole_e_overflow);
  std::uint64_t u = 0;
  EXPECT_EQ((ole_currency{-10000}).to_u64(u), ole_e_overflow);
  ole_currency c;
  const double half = 12.5 / 10000.0;
  ASSERT_EQ(half * 10000.0, 12.5);
  ASSERT_EQ(ole_currency::from_double(half, c), ole_s_ok);
  EXPECT_EQ(c.value, 12);  // 12.5 counts round to even
  ASSERT_EQ(ole_currency::from_double(1.00005, c), ole_s_ok);
  EXPECT_EQ(c.value, 10001);  // the double is a little above the half
  ASSERT_EQ(ole_currency::from_double(-2.5, c), ole_s_ok);
  EXPECT_EQ(c.value, -25000);
  EXPECT_EQ(ole_currency::from_double(1e15, c), ole_e_overflow);
  EXPECT_EQ(ole_currency::from_i64(922337203685478, c), ole_e_overflow);
  ASSERT_EQ(ole_currency::from_i64(-922337203685477, c), ole_s_ok);
  EXPECT_EQ((ole_currency{15000}).to_double(), 1.5);
}

// Random MONEY values (19 digits, 4 behind the point) survive text exactly.
TEST(OleCurrency, NineteenFourRoundTripsExactly) {
  std::mt19937_64 rng(194);
  for (int i = 0; i < 20000; ++i) {
    const ole_currency c{static_cast<std::int64_t>(rng())};
    const std::string text = c.to_string();
    ole_currency back;
    ASSERT_EQ(ole_currency::from_string(text, back), ole_s_ok) << text;
    ASSERT_EQ(back.value, c.value) << text;
  }
}

}  // namespace
}  // namespace qb
