#include "ole/numtext.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>
#include <locale.h>

namespace qb {
namespace {

// printf in the C locale, whatever the process locale is.
std::string c_printf(char conversion, int precision, double value) {
  const locale_t c = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  const locale_t old = uselocale(c);
  char buf[512];
  if (conversion == 'e') {
    std::snprintf(buf, sizeof buf, "%.*e", precision, value);
  } else {
    std::snprintf(buf, sizeof buf, "%.*G", precision, value);
  }
  uselocale(old);
  freelocale(c);
  return buf;
}

std::string e_of(double v, int precision) {
  std::string out;
  ole_append_e(out, v, precision);
  return out;
}

std::string g_of(double v, int precision) {
  std::string out;
  ole_append_upper_g(out, v, precision);
  return out;
}

double random_double(std::mt19937_64& rng) {
  for (;;) {
    const std::uint64_t bits = rng();
    double d;
    std::memcpy(&d, &bits, sizeof d);
    if (std::isfinite(d)) return d;
  }
}

TEST(OleNumberText, ScientificMatchesPrintfForRandomDoubles) {
  std::mt19937_64 rng(20241121);
  for (int i = 0; i < 20000; ++i) {
    const double d = random_double(rng);
    ASSERT_EQ(e_of(d, 16), c_printf('e', 16, d)) << i;
    ASSERT_EQ(e_of(static_cast<float>(d), 6), c_printf('e', 6, static_cast<double>(static_cast<float>(d)))) << i;
  }
}

TEST(OleNumberText, ScientificMatchesPrintfForSpecialValues) {
  for (double d : {0.0, -0.0, 1.0, -1.5, 0.1, 1e-310, 5e-324, 1.7976931348623157e308,
                   std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                   std::numeric_limits<double>::quiet_NaN(), 123456789.0, 9.999999999999999e22}) {
    EXPECT_EQ(e_of(d, 16), c_printf('e', 16, d));
    EXPECT_EQ(e_of(d, 6), c_printf('e', 6, d));
  }
  EXPECT_EQ(e_of(1.5, 6), "1.500000e+00");
  EXPECT_EQ(e_of(0.1, 16), "1.0000000000000001e-01");
}

TEST(OleNumberText, UpperGMatchesPrintf) {
  std::mt19937_64 rng(7);
  for (int i = 0; i < 5000; ++i) {
    const double d = random_double(rng);
    ASSERT_EQ(g_of(d, 15), c_printf('G', 15, d));
    ASSERT_EQ(g_of(d, 7), c_printf('G', 7, d));
  }
  EXPECT_EQ(g_of(0.1, 15), "0.1");
  EXPECT_EQ(g_of(1e20, 15), "1E+20");
  EXPECT_EQ(g_of(1.5e-5, 15), "1.5E-05");
  EXPECT_EQ(g_of(1.0 / 3.0, 15), "0.333333333333333");
}

TEST(OleNumberText, AtoiReadsLeadingDigitsAndSaturates) {
  EXPECT_EQ(ole_atoi("  -42abc"), -42);
  EXPECT_EQ(ole_atoi("+7"), 7);
  EXPECT_EQ(ole_atoi("abc"), 0);
  EXPECT_EQ(ole_atoi(""), 0);
  EXPECT_EQ(ole_atoi("99999999999"), 2147483647);
  EXPECT_EQ(ole_atoi("-99999999999"), -2147483647 - 1);
  EXPECT_EQ(ole_atoi64("9223372036854775807"), INT64_MAX);
  EXPECT_EQ(ole_atoi64("-9223372036854775808"), INT64_MIN);
  EXPECT_EQ(ole_atoi64("123456789012345678901234"), INT64_MAX);
}

TEST(OleNumberText, ScanUnsignedWrapsNegativeNumbers) {
  std::uint32_t u = 5;
  EXPECT_FALSE(ole_scan_u32("x", u));
  EXPECT_EQ(u, 5U);
  ASSERT_TRUE(ole_scan_u32("-1", u));
  EXPECT_EQ(u, 4294967295U);
  std::uint64_t v = 0;
  ASSERT_TRUE(ole_scan_u64("18446744073709551615", v));
  EXPECT_EQ(v, UINT64_MAX);
  ASSERT_TRUE(ole_scan_u64("99999999999999999999999", v));
  EXPECT_EQ(v, UINT64_MAX);
}

TEST(OleNumberText, AtofReadsLongestNumberPrefix) {
  EXPECT_EQ(ole_atof("1.5"), 1.5);
  EXPECT_EQ(ole_atof("  -2.5e3xyz"), -2500.0);
  EXPECT_EQ(ole_atof("+.5"), 0.5);
  EXPECT_EQ(ole_atof("abc"), 0.0);
  EXPECT_EQ(ole_atof("1,5"), 1.0);
  EXPECT_EQ(ole_atof("0x1p4"), 16.0);
  EXPECT_EQ(ole_atof("0x"), 0.0);
  EXPECT_TRUE(std::isinf(ole_atof("1e999")));
  EXPECT_EQ(ole_atof("1e-999"), 0.0);
  EXPECT_TRUE(std::isinf(ole_atof("-inf")));
  EXPECT_TRUE(std::isnan(ole_atof("nan")));
  EXPECT_EQ(ole_atof("+-1"), 0.0);
}

TEST(OleNumberText, AtofRoundTripsSixteenDigitScientific) {
  std::mt19937_64 rng(99);
  for (int i = 0; i < 20000; ++i) {
    const double d = random_double(rng);
    ASSERT_EQ(ole_atof(e_of(d, 16)), d);
  }
}

TEST(OleNumberText, ParsesUsEnglishNumbers) {
  ole_number n;
  ASSERT_EQ(ole_parse_number(" 1,234.500 ", n), ole_s_ok);
  EXPECT_EQ(n.count, 5);  // 12345
  EXPECT_EQ(n.exponent, -1);
  EXPECT_FALSE(n.negative);
  ASSERT_EQ(ole_parse_number("(12)", n), ole_s_ok);
  EXPECT_TRUE(n.negative);
  ASSERT_EQ(ole_parse_number("5-", n), ole_s_ok);
  EXPECT_TRUE(n.negative);
  ASSERT_EQ(ole_parse_number("$1.5e2", n), ole_s_ok);
  EXPECT_EQ(ole_number_to_double(n), 150.0);
  ASSERT_EQ(ole_parse_number("0.000", n), ole_s_ok);
  EXPECT_EQ(n.count, 0);
  EXPECT_EQ(ole_parse_number("1.2.3", n), ole_e_type_mismatch);
  EXPECT_EQ(ole_parse_number("", n), ole_e_type_mismatch);
  EXPECT_EQ(ole_parse_number("abc", n), ole_e_type_mismatch);
  EXPECT_EQ(ole_parse_number("(5", n), ole_e_type_mismatch);
  EXPECT_EQ(ole_parse_number("1e", n), ole_e_type_mismatch);
}

TEST(OleNumberText, ScalingRoundsHalfToEven) {
  auto scaled = [](const char* text, int shift) {
    ole_number n;
    EXPECT_EQ(ole_parse_number(text, n), ole_s_ok);
    ole_u128 m = 0;
    EXPECT_TRUE(ole_number_scaled(n, shift, m));
    return static_cast<std::uint64_t>(m);
  };
  EXPECT_EQ(scaled("2.5", 0), 2U);
  EXPECT_EQ(scaled("3.5", 0), 4U);
  EXPECT_EQ(scaled("2.5000000001", 0), 3U);
  EXPECT_EQ(scaled("0.5", 0), 0U);
  EXPECT_EQ(scaled("1.23455", 4), 12346U);
  EXPECT_EQ(scaled("1.23445", 4), 12344U);
  EXPECT_EQ(scaled("12", 3), 12000U);
  ole_number n;
  ASSERT_EQ(ole_parse_number("1e40", n), ole_s_ok);
  ole_u128 m = 0;
  EXPECT_FALSE(ole_number_scaled(n, 0, m));
}

TEST(OleNumberText, RoundHalfEvenOfDoubles) {
  EXPECT_EQ(ole_round_half_even(2.5), 2.0);
  EXPECT_EQ(ole_round_half_even(3.5), 4.0);
  EXPECT_EQ(ole_round_half_even(-2.5), -2.0);
  EXPECT_EQ(ole_round_half_even(-3.5), -4.0);
  EXPECT_EQ(ole_round_half_even(2.4), 2.0);
  EXPECT_EQ(ole_round_half_even(-0.6), -1.0);
}

TEST(OleNumberText, PaddedIntegers) {
  std::string out;
  ole_append_padded(out, 7, 4);
  out.push_back('|');
  ole_append_padded(out, 12345, 4);
  out.push_back('|');
  ole_append_u128(out, ~ole_u128{0});
  EXPECT_EQ(out, "0007|12345|340282366920938463463374607431768211455");
}

}  // namespace
}  // namespace qb
