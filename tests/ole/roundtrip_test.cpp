// Random values of every numeric tag survive their own text: to_wstring,
// then from_wstring in the same tag, gives the same value back.
#include <cmath>
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "ole/variant.h"
#include "tk/format.h"

namespace qb {
namespace {

ole_variant round_trip(const ole_variant& v) { return ole_variant::from_wstring(v.to_wstring(), v.get_type()); }

// The value's bytes in memory (tags whose values convert to bytes).
std::string memory_of(const ole_variant& v) {
  ole_variant copy = v;
  copy.change_type(ole_variant::vt_bytes);
  return copy.to_string();
}

class OleVariantRoundTrip : public testing::Test {
 protected:
  std::mt19937_64 rng{20260101};
  template <class T>
  T random_bits() {
    const std::uint64_t bits = rng();
    T value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
  }
};

TEST_F(OleVariantRoundTrip, SmallIntegerTags) {
  for (int i = 0; i < 20000; ++i) {
    for (const ole_variant& v :
         {ole_variant(random_bits<short>()), ole_variant(random_bits<int>()), ole_variant(random_bits<signed char>()),
          ole_variant(random_bits<unsigned char>()), ole_variant(random_bits<unsigned short>()),
          ole_variant(random_bits<unsigned int>()),
          ole_variant::from_string(std::to_string(random_bits<std::uint32_t>()), ole_variant::vt_uint)}) {
      const ole_variant back = round_trip(v);
      ASSERT_EQ(back.get_type(), v.get_type()) << v.to_string();
      ASSERT_EQ(memory_of(back), memory_of(v)) << v.to_string();
    }
  }
}

TEST_F(OleVariantRoundTrip, SixtyFourBitTags) {
  for (int i = 0; i < 20000; ++i) {
    const ole_variant s(random_bits<std::int64_t>());
    const ole_variant back = round_trip(s);
    ASSERT_EQ(back.get_type(), ole_variant::vt_i8);
    ASSERT_EQ(back.to_i8(), s.to_i8()) << s.to_string();
    const ole_variant u(random_bits<std::uint64_t>());
    const ole_variant uback = round_trip(u);
    ASSERT_EQ(uback.get_type(), ole_variant::vt_ui8);
    ASSERT_EQ(uback.to_ui8(), u.to_ui8()) << u.to_string();
  }
  EXPECT_EQ(round_trip(ole_variant(std::int64_t{INT64_MIN})).to_i8(), INT64_MIN);
  EXPECT_EQ(round_trip(ole_variant(std::uint64_t{UINT64_MAX})).to_ui8(), UINT64_MAX);
}

TEST_F(OleVariantRoundTrip, DoublesExactly) {
  for (int i = 0; i < 50000; ++i) {
    const auto d = random_bits<double>();
    if (std::isnan(d)) continue;
    const ole_variant back = round_trip(ole_variant(d));
    ASSERT_EQ(back.get_type(), ole_variant::vt_r8);
    ASSERT_EQ(memory_of(back), memory_of(ole_variant(d))) << ole_variant(d).to_string();
  }
  for (double d : {0.0, -0.0, 5e-324, 1.7976931348623157e308, HUGE_VAL, -HUGE_VAL}) {
    ASSERT_EQ(memory_of(round_trip(ole_variant(d))), memory_of(ole_variant(d))) << d;
  }
  EXPECT_TRUE(std::isnan(round_trip(ole_variant(std::nan(""))).to_double()));
}

// Floats print with seven significant digits ("%.6e"), which is not always
// enough to tell two neighbouring floats apart: the text survives unchanged
// and the value comes back within about half a unit of the seventh digit. A float
// that is the nearest to a seven-digit decimal comes back exactly.
TEST_F(OleVariantRoundTrip, FloatsKeepTheirTextAndSevenDigits) {
  for (int i = 0; i < 50000; ++i) {
    const auto f = random_bits<float>();
    if (!std::isfinite(f)) continue;
    const ole_variant v(f);
    const ole_variant back = round_trip(v);
    ASSERT_EQ(back.get_type(), ole_variant::vt_r4);
    ASSERT_EQ(back.to_wstring(), v.to_wstring());
    const double error = std::fabs(static_cast<double>(back.to_float()) - static_cast<double>(f));
    // Half a unit of the seventh digit, plus half a float step (and one
    // step of the subnormal range) for the float nearest to that decimal.
    ASSERT_LE(error, 5.6e-7 * std::fabs(static_cast<double>(f)) + 1.5e-45) << v.to_string();
  }
  for (int i = 0; i < 50000; ++i) {
    const int mantissa = 1000000 + static_cast<int>(rng() % 9000000);
    const int exponent = static_cast<int>(rng() % 70) - 35;
    const std::string text = tk_format("%d.%06de%d", mantissa / 1000000, mantissa % 1000000, exponent);
    const ole_variant v = ole_variant::from_string(text, ole_variant::vt_r4);
    const ole_variant back = round_trip(v);
    ASSERT_EQ(memory_of(back), memory_of(v)) << text;
  }
}

TEST_F(OleVariantRoundTrip, Booleans) {
  for (bool b : {true, false}) {
    const ole_variant back = round_trip(ole_variant(b));
    ASSERT_EQ(back.get_type(), ole_variant::vt_bool);
    ASSERT_EQ(back.to_bool(), b);
  }
}

TEST_F(OleVariantRoundTrip, CurrencyNineteenFour) {
  for (int i = 0; i < 50000; ++i) {
    const ole_currency c{random_bits<std::int64_t>()};
    const ole_variant back = round_trip(ole_variant(c));
    ASSERT_EQ(back.get_type(), ole_variant::vt_cy);
    ASSERT_EQ(back.get_currency().value, c.value) << c.to_string();
  }
}

TEST_F(OleVariantRoundTrip, DecimalsOfPrecisionThirtyEightAtEveryScale) {
  for (int scale = 0; scale <= 38; ++scale) {
    for (int i = 0; i < 500; ++i) {
      ole_u128 mantissa = 0;
      for (int k = 0; k < 38; ++k) mantissa = mantissa * 10 + rng() % 10;
      ole_decimal d;
      ASSERT_TRUE(ole_decimal::make(mantissa, scale, (rng() & 1) != 0, d));
      const ole_variant v(d);
      const ole_variant back = round_trip(v);
      ASSERT_EQ(back.get_type(), ole_variant::vt_decimal) << v.to_string();
      ASSERT_EQ(back.get_decimal(), d) << v.to_string();
      ASSERT_EQ(back.to_wstring(), v.to_wstring());
    }
  }
}

TEST_F(OleVariantRoundTrip, DatesFromYearOneToNineThousandNineHundredNinetyNine) {
  for (int i = 0; i < 20000; ++i) {
    const int year = 1 + static_cast<int>(rng() % 9999);
    const int month = 1 + static_cast<int>(rng() % 12);
    const int day = 1 + static_cast<int>(rng() % static_cast<unsigned>(ole_days_in_month(year, month)));
    const std::string text = tk_format("%d-%02d-%02d %02d:%02d:%02d.%07d", year, month, day,
                                       static_cast<int>(rng() % 24), static_cast<int>(rng() % 60),
                                       static_cast<int>(rng() % 60), 10 * (1 + static_cast<int>(rng() % 999999)));
    const ole_variant v = ole_variant::from_string(text, ole_variant::vt_date);
    ASSERT_EQ(v.get_type(), ole_variant::vt_date) << text;
    const ole_variant back = round_trip(v);
    ASSERT_EQ(back.get_type(), ole_variant::vt_date);
    ASSERT_EQ(back.to_string(), v.to_string());
    ASSERT_EQ(back.get_date()->microseconds, v.get_date()->microseconds);
  }
}

TEST_F(OleVariantRoundTrip, TextAndBytes) {
  for (int i = 0; i < 2000; ++i) {
    std::wstring text;
    const int n = static_cast<int>(rng() % 40);
    for (int k = 0; k < n; ++k) text.push_back(static_cast<wchar_t>(1 + rng() % 0x2FFFF));
    const ole_variant v(text);
    ASSERT_EQ(round_trip(v).text_view(), text);
    std::vector<std::uint8_t> bytes(1 + rng() % 64);
    for (auto& b : bytes) b = static_cast<std::uint8_t>(rng());
    const ole_variant bv(bytes);
    const ole_variant bback = round_trip(bv);
    ASSERT_EQ(std::vector<std::uint8_t>(bback.bytes_view().begin(), bback.bytes_view().end()), bytes);
  }
}

}  // namespace
}  // namespace qb
