// change_type for every pair of tags: each source value below is converted
// to every target tag, and the outcome is compared with the expected one.
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ole/variant.h"

#include "support/temp_dir.h"

namespace qb {
namespace {

// The targets, in the order of the expectation rows.
const std::vector<std::uint16_t> targets = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 14,
                                            16, 17, 18, 19, 20, 21, 22, 23, 30, 31, 65, 70, 8209};

// "tag:text" of a value; VT_INT, which prints nothing, is shown by its text
// after a conversion to text.
std::string describe(const ole_variant& v) {
  if (v.get_type() == ole_variant::vt_int) {
    ole_variant copy = v;
    copy.change_type(ole_variant::vt_bstr);
    return "22:" + copy.to_string();
  }
  return std::to_string(v.get_type()) + ":" + v.to_string();
}

// One source value and its outcome under each target: "=" the value stays as
// it was, "!" ole_cast_exception (and the value stays as it was), otherwise
// the expected describe().
struct row {
  const char* name;
  std::function<ole_variant()> make;
  std::vector<const char*> outcomes;
};

ole_variant hex(const char* text, std::uint16_t vt) { return ole_variant::from_string(text, vt); }

ole_variant dec(const char* text) {
  ole_decimal d;
  EXPECT_EQ(ole_decimal::from_string(text, d), ole_s_ok);
  return ole_variant(d);
}

ole_variant tagged(const char* text, std::uint16_t vt) { return ole_variant::from_string(text, vt); }

ole_variant dispatch_bytes() {
  ole_variant v = hex("41", ole_variant::vt_bytes);
  v.change_type(ole_variant::vt_dispatch);
  return v;
}

const char* const same = "=";
const char* const refused = "!";

std::vector<row> rows() {
  // clang-format off
  return {
    {"I2 -5", [] { return ole_variant(static_cast<short>(-5)); },
     {"0:", refused, same, same, "4:-5.000000e+00", "5:-5.0000000000000000e+00", "6:-5", refused, "8:-5", refused,
      refused, "11:1", "14:-5", same, refused, same, same, "20:-5", "21:18446744073709551611", "22:-5", refused,
      refused, refused, "8209:0xFBFF", "8209:0xFBFF", "8209:0xFBFF"}},
    {"I4 42", [] { return ole_variant(42); },
     {"0:", refused, same, same, "4:4.200000e+01", "5:4.2000000000000000e+01", "6:42", refused, "8:42", refused,
      refused, "11:1", "14:42", same, "17:42", same, same, "20:42", "21:42", "22:42", "23:42",
      refused, refused, "8209:0x2A000000", "8209:0x2A000000", "8209:0x2A000000"}},
    {"R4 2.5", [] { return ole_variant(2.5F); },
     {"0:", refused, "2:3", "3:3", same, "5:2.5000000000000000e+00", "6:2.5", refused, "8:2.5", refused,
      refused, "11:1", "14:2.5", same, "17:2", "18:3", "19:3", "20:2", "21:2", "22:2", "23:2",
      refused, refused, "8209:0x00002040", "8209:0x00002040", "8209:0x00002040"}},
    {"R8 -2.5", [] { return ole_variant(-2.5); },
     {"0:", refused, "2:-3", "3:-3", "4:-2.500000e+00", same, "6:-2.5", refused, "8:-2.5", refused,
      refused, "11:1", "14:-2.5", same, refused, "18:65533", "19:4294967293", "20:-2", "21:0", "22:-2", refused,
      refused, refused, "8209:0x00000000000004C0", "8209:0x00000000000004C0", "8209:0x00000000000004C0"}},
    {"CY 12345.6789", [] { return ole_variant(ole_currency{123456789}); },
     {"0:", refused, same, same, "4:1.234568e+04", "5:1.2345678900000001e+04", same, refused, "8:12345.6789",
      refused, refused, "11:1", "14:12345.6789", same, refused, same, same, "20:1235", "21:1235", "22:12346",
      "23:12346", refused, refused, "8209:0x15CD5B0700000000", "8209:0x15CD5B0700000000",
      "8209:0x15CD5B0700000000"}},
    {"DATE", [] { return ole_variant(ole_date(std::string_view("2005-01-05 10:00:00"))); },
     {refused, refused, refused, refused, refused, refused, refused, same, "8:2005-01-05 10:00:00", refused,
      refused, refused, refused, refused, refused, refused, refused, refused, refused, refused, refused,
      refused, refused, refused, refused, refused}},
    {"BSTR 123", [] { return ole_variant(std::wstring_view(L"123")); },
     {"0:", refused, same, same, "4:1.230000e+02", "5:1.2300000000000000e+02", "6:123", refused, same, refused,
      refused, refused, "14:123", same, "17:123", same, same, refused, refused, "22:123", "23:123",
      refused, refused, "8209:0x313233", "8209:0x313233", "8209:0x313233"}},
    {"BSTR abc", [] { return ole_variant(std::wstring_view(L"abc")); },
     {"0:", refused, same, same, refused, refused, refused, refused, same, refused,
      refused, refused, refused, same, refused, same, same, refused, refused, refused, refused,
      refused, refused, "8209:0x616263", "8209:0x616263", "8209:0x616263"}},
    {"BSTR date", [] { return ole_variant(std::wstring_view(L"2005-01-05")); },
     {"0:", refused, same, same, refused, refused, refused, "7:2005-01-05", same, refused,
      refused, refused, refused, same, refused, same, same, refused, refused, refused, refused,
      refused, refused, "8209:0x323030352D30312D3035", "8209:0x323030352D30312D3035",
      "8209:0x323030352D30312D3035"}},
    {"BSTR empty", [] { return ole_variant(std::wstring_view(L"")); },
     {"0:", refused, same, same, refused, refused, refused, refused, same, refused,
      refused, refused, refused, same, refused, same, same, refused, refused, refused, refused,
      refused, refused, same, same, same}},
    {"BOOL true", [] { return ole_variant(true); },
     {"0:", refused, same, same, "4:-1.000000e+00", "5:-1.0000000000000000e+00", "6:-1", refused, "8:-1", refused,
      refused, same, "14:-1", same, "17:255", same, same, "20:-1", "21:18446744073709551615", "22:-1",
      "23:4294967295", refused, refused, "8209:0xFFFF", "8209:0xFFFF", "8209:0xFFFF"}},
    {"DEC 2.5", [] { return dec("2.5"); },
     {"0:", refused, "2:2", "3:2", "4:2.500000e+00", "5:2.5000000000000000e+00", "6:2.5", refused, "8:2.5",
      refused, refused, "11:1", same, "16:2", "17:2", "18:2", "19:2", "20:2", "21:2", "22:2", "23:2",
      refused, refused, "8209:0x0E000100000000001900000000000000", "8209:0x0E000100000000001900000000000000",
      "8209:0x0E000100000000001900000000000000"}},
    {"DEC -200.5", [] { return dec("-200.5"); },
     {"0:", refused, "2:-200", "3:-200", "4:-2.005000e+02", "5:-2.0050000000000000e+02", "6:-200.5", refused,
      "8:-200.5", refused, refused, "11:1", same, refused, refused, refused, refused, "20:-200", refused,
      "22:-200", refused, refused, refused, "8209:0x0E00018000000000D507000000000000",
      "8209:0x0E00018000000000D507000000000000", "8209:0x0E00018000000000D507000000000000"}},
    {"DEC 1e30", [] { return dec("1e30"); },
     {"0:", refused, refused, refused, "4:1.000000e+30", "5:1.0000000000000000e+30", refused, refused,
      "8:1000000000000000000000000000000", refused, refused, "11:1", same, refused, refused, refused, refused,
      refused, refused, refused, refused, refused, refused, refused, refused, refused}},
    {"I1 -7", [] { return ole_variant(static_cast<signed char>(-7)); },
     {"0:", refused, same, same, "4:-7.000000e+00", "5:-7.0000000000000000e+00", "6:-7", refused, "8:-7", refused,
      refused, "11:1", "14:-7", same, refused, same, same, "20:-7", "21:18446744073709551609", "22:-7", refused,
      refused, refused, "8209:0xF9", "8209:0xF9", "8209:0xF9"}},
    {"UI1 200", [] { return ole_variant(static_cast<unsigned char>(200)); },
     {"0:", refused, same, same, "4:2.000000e+02", "5:2.0000000000000000e+02", "6:200", refused, "8:200", refused,
      refused, "11:1", "14:200", same, same, same, same, "20:200", "21:200", "22:200", "23:200",
      refused, refused, "8209:0xC8", "8209:0xC8", "8209:0xC8"}},
    {"UI2 65535", [] { return ole_variant(static_cast<unsigned short>(65535)); },
     {"0:", refused, same, same, "4:6.553500e+04", "5:6.5535000000000000e+04", "6:65535", refused, "8:65535",
      refused, refused, "11:1", "14:65535", same, refused, same, same, "20:65535", "21:65535", "22:65535",
      "23:65535", refused, refused, "8209:0xFFFF", "8209:0xFFFF", "8209:0xFFFF"}},
    {"UI4 4000000000", [] { return ole_variant(4000000000U); },
     {"0:", refused, same, same, "4:4.000000e+09", "5:4.0000000000000000e+09", "6:4000000000", refused,
      "8:4000000000", refused, refused, "11:1", "14:4000000000", same, refused, same, same, "20:4000000000",
      "21:4000000000", refused, "23:4000000000", refused, refused, "8209:0x00286BEE", "8209:0x00286BEE",
      "8209:0x00286BEE"}},
    {"I8 -2", [] { return ole_variant(std::int64_t{-2}); },
     {refused, refused, "2:-2", "3:-2", "4:-2.000000e+00", "5:-2.0000000000000000e+00", "6:-0.2", refused, "8:-2",
      refused, refused, "11:0", "14:-2", "16:-2", "17:254", "18:65534", "19:4294967294", same,
      "21:18446744073709551614", "22:-2", "23:4294967294", refused, refused, refused, refused, refused}},
    {"I8 5000000000", [] { return ole_variant(std::int64_t{5000000000}); },
     {refused, refused, "2:-3584", "3:705032704", "4:5.000000e+09", "5:5.0000000000000000e+09",
      "6:500000000", refused, "8:5000000000", refused, refused, "11:0", "14:5000000000", "16:0", "17:0",
      "18:61952", "19:705032704", same, "21:5000000000", "22:705032704", "23:705032704", refused, refused,
      refused, refused, refused}},
    {"UI8 300", [] { return ole_variant(std::uint64_t{300}); },
     {refused, refused, "2:300", "3:300", "4:3.000000e+02", "5:3.0000000000000000e+02", "6:30", refused, "8:300",
      refused, refused, "11:0", "14:0", "16:44", "17:44", "18:300", "19:300", "20:300", same, "22:300", "23:300",
      refused, refused, refused, refused, refused}},
    {"INT -9", [] { return tagged("-9", ole_variant::vt_int); },
     {"0:", refused, same, same, "4:-9.000000e+00", "5:-9.0000000000000000e+00", "6:-9", refused, "8:-9", refused,
      refused, "11:1", "14:-9", same, refused, same, same, "20:-9", "21:18446744073709551607", same, refused,
      refused, refused, "8209:0xF7FFFFFF", "8209:0xF7FFFFFF", "8209:0xF7FFFFFF"}},
    {"UINT 7", [] { return tagged("7", ole_variant::vt_uint); },
     {"0:", refused, same, same, "4:7.000000e+00", "5:7.0000000000000000e+00", "6:7", refused, "8:7", refused,
      refused, "11:1", "14:7", same, "17:7", same, same, "20:7", "21:7", "22:7", same,
      refused, refused, "8209:0x07000000", "8209:0x07000000", "8209:0x07000000"}},
    {"BYTES", [] { return hex("41420043", ole_variant::vt_bytes); },
     {same, same, same, same, same, same, same, refused, "8:AB", "9:", same, same, same, same, same, same, same,
      refused, refused, same, same, same, same, "65:0x41420043", same, same}},
    {"BLOB", [] { return hex("41", ole_variant::vt_blob); },
     {same, same, same, same, same, same, same, refused, "8:A", same, same, same, same, same, same, same, same,
      refused, refused, same, same, same, same, same, same, "8209:0x41"}},
    {"DISPATCH BYTES", [] { return dispatch_bytes(); },
     {refused, refused, same, same, refused, refused, refused, refused, refused, same, refused, refused,
      refused, same, refused, same, same, refused, refused, refused, refused, refused, refused, refused,
      refused, "8209:0x41"}},
    {"LPSTR", [] { return ole_variant::make_lpstr("hi"); },
     {refused, refused, same, same, refused, refused, refused, refused, refused, refused, refused, refused,
      refused, same, refused, same, same, refused, refused, refused, refused, same, refused, "8209:0x6869",
      "8209:0x6869", "8209:0x6869"}},
    {"LPWSTR", [] { return ole_variant::make_lpwstr(L"hi"); },
     {refused, refused, same, same, refused, refused, refused, refused, refused, refused, refused, refused,
      refused, same, refused, same, same, refused, refused, refused, refused, refused, same, "8209:0x6800",
      "8209:0x6800", "8209:0x6800"}},
  };
  // clang-format on
}

TEST(OleVariantChangeType, EveryPairOfTags) {
  for (const row& r : rows()) {
    ASSERT_EQ(r.outcomes.size(), targets.size()) << r.name;
    for (std::size_t k = 0; k < targets.size(); ++k) {
      ole_variant v = r.make();
      const std::string before = describe(v);
      const std::string expected = r.outcomes[k];
      const std::string where = std::string(r.name) + " -> " + std::to_string(targets[k]);
      if (expected == refused) {
        EXPECT_THROW(v.change_type(targets[k]), ole_cast_exception) << where;
        EXPECT_EQ(describe(v), before) << where;
        continue;
      }
      ASSERT_NO_THROW(v.change_type(targets[k])) << where;
      EXPECT_EQ(describe(v), expected == same ? before : expected) << where;
    }
  }
}

TEST(OleVariantChangeType, TextToBooleanByKeyword) {
  for (const wchar_t* t : {L"yes", L"T", L"TRUE", L"True"}) {
    ole_variant v{std::wstring_view(t)};
    v.change_type(ole_variant::vt_bool);
    EXPECT_EQ(describe(v), "11:1");
  }
  for (const wchar_t* t : {L"no", L"F", L"False"}) {
    ole_variant v{std::wstring_view(t)};
    v.change_type(ole_variant::vt_bool);
    EXPECT_EQ(describe(v), "11:0");
  }
  for (const wchar_t* t : {L"1", L"0", L"", L"y", L"-1"}) {
    ole_variant v{std::wstring_view(t)};
    EXPECT_THROW(v.change_type(ole_variant::vt_bool), ole_cast_exception);
  }
}

TEST(OleVariantChangeType, LogsSynonymsAndNoOps) {
  test::log_capture log;
  ole_variant v = hex("41", ole_variant::vt_bytes);
  v.change_type(ole_variant::vt_blob);
  EXPECT_TRUE(log.has_line("Replace by synonym"));
  v.change_type(ole_variant::vt_blob_object);
  EXPECT_TRUE(log.has_line("Type cannot be changed"));
  EXPECT_EQ(v.get_type(), ole_variant::vt_blob);
}

TEST(OleVariantChangeType, FailedTableConversionLogsTheValue) {
  test::log_capture log(2);
  ole_variant v{std::wstring_view(L"not a number")};
  EXPECT_THROW(v.change_type(ole_variant::vt_r8), ole_cast_exception);
  EXPECT_TRUE(log.has_line("VariantChangeType failed"));
  EXPECT_TRUE(log.has_line("not a number"));
}

TEST(OleVariantChangeType, DecimalToIntegerLogsItsText) {
  test::log_capture log;
  ole_variant v = dec("7.5");
  v.change_type(ole_variant::vt_i4);
  EXPECT_EQ(describe(v), "3:8");
  EXPECT_TRUE(log.has_line("to_string()=7.5"));
}

TEST(OleVariantChangeType, RealsToSmallIntegersRoundHalfAwayFromZeroAndTruncateToWidth) {
  ole_variant big(70000.4);
  big.change_type(ole_variant::vt_i2);
  EXPECT_EQ(describe(big), "2:4464");
  ole_variant huge(1e20);
  huge.change_type(ole_variant::vt_i4);
  EXPECT_EQ(describe(huge), "3:-2147483648");
  ole_variant half(0.5);
  half.change_type(ole_variant::vt_ui4);
  EXPECT_EQ(describe(half), "19:1");
}

TEST(OleVariantChangeType, ReadsDatesFromTextOnly) {
  ole_variant v{std::wstring_view(L"10:15:30.25")};
  v.change_type(ole_variant::vt_date);
  EXPECT_EQ(describe(v), "7:0000-00-00 10:15:30.250000");
  v.change_type(ole_variant::vt_bstr);
  EXPECT_EQ(describe(v), "8:10:15:30.250000");  // the wide form has no zero date
  ole_variant bad{std::wstring_view(L"2005-02-30")};
  EXPECT_THROW(bad.change_type(ole_variant::vt_date), ole_cast_exception);
}

TEST(OleVariantChangeType, BytesToTextStopAtTheFirstZeroByte) {
  ole_variant v = hex("00414243", ole_variant::vt_bytes);
  v.change_type(ole_variant::vt_bstr);
  EXPECT_EQ(describe(v), "8:");
  ole_variant empty = hex("0x", ole_variant::vt_bytes);
  empty.change_type(ole_variant::vt_bstr);
  EXPECT_EQ(describe(empty), "8:");
}

TEST(OleVariantChangeType, DatePartAsBytesIsNeverReached) {
  // A date converts only to text, so its 32 bytes are never asked for; the
  // text of a date converts to bytes as any text does.
  ole_variant v(ole_date(std::string_view("2005-01-05")));
  EXPECT_THROW(v.change_type(ole_variant::vt_bytes), ole_cast_exception);
  v.change_type(ole_variant::vt_bstr);
  v.change_type(ole_variant::vt_bytes);
  EXPECT_EQ(describe(v), "8209:0x323030352D30312D3035");
}

}  // namespace
}  // namespace qb
