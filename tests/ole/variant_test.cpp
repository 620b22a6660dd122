#include "ole/variant.h"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tk/exception.h"

#include "support/temp_dir.h"

namespace qb {
namespace {

using bytes_t = std::vector<std::uint8_t>;

bytes_t bytes_of(const ole_variant& v) {
  const auto view = v.bytes_view();
  return {view.begin(), view.end()};
}

// --- Edge cases of the value type -------------------------------------------------

TEST(OleVariant, BooleanPrintsOneAndZero) {
  test::log_capture log;
  EXPECT_EQ(ole_variant(true).to_string(), "1");
  EXPECT_EQ(ole_variant(false).to_string(), "0");
  EXPECT_EQ(ole_variant(true).to_wstring(), L"1");
  EXPECT_TRUE(log.has_line("Mapping BOOL like ANSI!"));
}

TEST(OleVariant, TextOneToBooleanThrowsButFromStringReadsTrue) {
  ole_variant text(std::wstring_view(L"1"));
  EXPECT_THROW(text.change_type(ole_variant::vt_bool), ole_cast_exception);
  EXPECT_EQ(text.get_type(), ole_variant::vt_bstr);
  const ole_variant v = ole_variant::from_string("1", ole_variant::vt_bool);
  EXPECT_EQ(v.get_type(), ole_variant::vt_bool);
  EXPECT_TRUE(v.to_bool());
}

TEST(OleVariant, EmptyTextGivesEmptyValueExceptForText) {
  EXPECT_EQ(ole_variant::from_string("", ole_variant::vt_decimal).get_type(), ole_variant::vt_empty);
  const ole_variant text = ole_variant::from_string("", ole_variant::vt_bstr);
  EXPECT_EQ(text.get_type(), ole_variant::vt_bstr);
  EXPECT_EQ(text.to_wstring(), L"");
  EXPECT_EQ(ole_variant::from_wstring(L"", ole_variant::vt_bstr).get_type(), ole_variant::vt_bstr);
  EXPECT_EQ(ole_variant::from_wstring(L"", ole_variant::vt_i4).get_type(), ole_variant::vt_empty);
}

TEST(OleVariant, CommaIsTheDecimalPointForReals) {
  const ole_variant v = ole_variant::from_string("1,5", ole_variant::vt_r8);
  EXPECT_EQ(v.get_type(), ole_variant::vt_r8);
  EXPECT_EQ(v.to_double(), 1.5);
  EXPECT_EQ(ole_variant::from_string("2,25", ole_variant::vt_r4).to_float(), 2.25F);
  EXPECT_EQ(ole_variant::from_string("1,25", ole_variant::vt_decimal).to_string(), "1.25");
  EXPECT_EQ(ole_variant::from_string("1,25", ole_variant::vt_cy).to_string(), "1.25");
}

TEST(OleVariant, DecimalTextOfTooManyDigitsBecomesADouble) {
  test::log_capture log(2);
  const char* text = "1234567890123456789012345678901234567890.5";
  const ole_variant v = ole_variant::from_string(text, ole_variant::vt_decimal);
  EXPECT_EQ(v.get_type(), ole_variant::vt_r8);
  EXPECT_EQ(v.to_double(), 1234567890123456789012345678901234567890.5);
  EXPECT_TRUE(log.has_line(std::string("ERROR: VarDecFromStr for '") + text + "' failed (hr=8002000A)"));
  // Thirty-eight digits stay a decimal.
  const ole_variant exact = ole_variant::from_string("12345678901234567890.123456789012345678", 14);
  EXPECT_EQ(exact.get_type(), ole_variant::vt_decimal);
  EXPECT_EQ(exact.to_string(), "12345678901234567890.123456789012345678");
  // Text that is no number falls back to the C library's reading.
  const ole_variant junk = ole_variant::from_string("12abc", ole_variant::vt_decimal);
  EXPECT_EQ(junk.get_type(), ole_variant::vt_r8);
  EXPECT_EQ(junk.to_double(), 12.0);
  EXPECT_TRUE(log.has_line("ERROR: VarDecFromStr for '12abc' failed (hr=80020005)"));
}

TEST(OleVariant, HexRenderingStopsAtTheCap) {
  const bytes_t big(130000000, 0xAB);
  const ole_variant v(big);
  EXPECT_EQ(v.get_safe_array_size(), 130000000U);
  const std::string text = v.to_string();
  ASSERT_EQ(text.size(), 2U + 2U * 120000000U);
  EXPECT_EQ(text.substr(0, 6), "0xABAB");
  std::string piece;
  EXPECT_EQ(v.get_at(piece, 119999999, 131072), 1U);
  EXPECT_EQ(piece, "AB");
  EXPECT_EQ(v.get_at(piece, 120000000, 131072), 0U);
}

TEST(OleVariant, UnsignedByteReadsZeroAsSixtyFourBits) {
  const ole_variant v(static_cast<unsigned char>(200));
  EXPECT_EQ(v.get_type(), ole_variant::vt_ui1);
  EXPECT_EQ(v.to_i8(), 0);
  EXPECT_EQ(v.to_ui8(), 0U);
  EXPECT_EQ(v.to_long(), 200);
  EXPECT_EQ(v.to_double(), 200.0);
  EXPECT_TRUE(v.to_bool());
}

TEST(OleVariant, TextToIntegerIsLeftAsItIs) {
  test::log_capture log;
  for (std::uint16_t vt :
       {ole_variant::vt_i4, ole_variant::vt_i2, ole_variant::vt_ui2, ole_variant::vt_ui4, ole_variant::vt_i1}) {
    ole_variant v(std::wstring_view(L"42"));
    EXPECT_NO_THROW(v.change_type(vt));
    EXPECT_EQ(v.get_type(), ole_variant::vt_bstr);
    EXPECT_EQ(v.to_wstring(), L"42");
  }
  EXPECT_FALSE(log.has_line("VariantChangeType failed"));
}

TEST(OleVariant, EmptyStaysEmptyUnderEveryTag) {
  for (std::uint16_t from : {ole_variant::vt_empty, ole_variant::vt_null}) {
    for (int to = 0; to <= 8300; ++to) {
      ole_variant v = from == ole_variant::vt_null ? ole_variant::make_null()
                                                   : ole_variant::from_string("x", ole_variant::vt_empty);
      ASSERT_EQ(v.get_type(), from);
      ASSERT_NO_THROW(v.change_type(static_cast<std::uint16_t>(to))) << to;
      ASSERT_EQ(v.get_type(), from) << to;
    }
  }
}

TEST(OleVariant, HexTextWithPrefixMustHaveEvenLength) {
  test::log_capture log(2);
  EXPECT_EQ(ole_variant::from_string("0x123", ole_variant::vt_bytes).get_type(), ole_variant::vt_empty);
  EXPECT_TRUE(log.has_line("Incorrect BLOB (size is odd)"));
  const ole_variant v = ole_variant::from_string("0x1234", ole_variant::vt_bytes);
  EXPECT_EQ(v.get_type(), ole_variant::vt_bytes);
  EXPECT_EQ(bytes_of(v), (bytes_t{0x12, 0x34}));
  EXPECT_EQ(bytes_of(ole_variant::from_string("\\XabCD", ole_variant::vt_bytes)), (bytes_t{0xAB, 0xCD}));
  EXPECT_EQ(bytes_of(ole_variant::from_wstring(L"0X00ff", ole_variant::vt_bytes)), (bytes_t{0x00, 0xFF}));
  EXPECT_EQ(bytes_of(ole_variant::from_string("00ff", ole_variant::vt_bytes)), (bytes_t{0x00, 0xFF}));
}

// --- Hexadecimal text ----------------------------------------------------------------

TEST(OleVariant, HexLookupGivesNonDigitsTheirNeighboursPosition) {
  // 'G' sorts after 'F', so the lower-case table is searched: it stands
  // before 'a' and reads as 10; ':' stands before 'A' and reads as 10; ' '
  // reads as 0; 'z' runs off both tables and reads as 16.
  EXPECT_EQ(bytes_of(ole_variant::from_string("G1", ole_variant::vt_bytes)), bytes_t{0xA1});
  EXPECT_EQ(bytes_of(ole_variant::from_string(":2", ole_variant::vt_bytes)), bytes_t{0xA2});
  EXPECT_EQ(bytes_of(ole_variant::from_string(" 3", ole_variant::vt_bytes)), bytes_t{0x03});
  EXPECT_EQ(bytes_of(ole_variant::from_string("1z", ole_variant::vt_bytes)), bytes_t{0x20});
  EXPECT_EQ(bytes_of(ole_variant::from_wstring(L"\u4e001", ole_variant::vt_bytes)), bytes_t{0x01});
}

TEST(OleVariant, HexWalkStopsAtNul) {
  const std::string text("0A\0\0", 4);
  EXPECT_EQ(bytes_of(ole_variant::from_string(text, ole_variant::vt_bytes)), (bytes_t{0x0A, 0x00}));
  EXPECT_EQ(ole_variant::from_string("0x", ole_variant::vt_bytes).get_safe_array_size(), 0U);
  EXPECT_EQ(ole_variant::from_string("0x", ole_variant::vt_bytes).get_type(), ole_variant::vt_bytes);
  EXPECT_EQ(ole_variant::from_string("0x", ole_variant::vt_bytes).to_string(), "");
}

TEST(OleVariant, BlobTagIsASynonymOfTheByteArray) {
  test::log_capture log;
  const ole_variant v = ole_variant::from_string("CAFE", ole_variant::vt_blob);
  EXPECT_EQ(v.get_type(), ole_variant::vt_blob);
  EXPECT_TRUE(log.has_line("Replace by synonym"));
  EXPECT_EQ(v.to_string(), "0xCAFE");
  EXPECT_EQ(v.to_wstring(), L"0xCAFE");
  EXPECT_EQ(ole_variant::from_string("", ole_variant::vt_blob).get_type(), ole_variant::vt_empty);
}

// --- Construction, copies and ownership ------------------------------------------------

TEST(OleVariant, ConstructorsStoreTheirTags) {
  EXPECT_EQ(ole_variant().get_type(), 0);
  EXPECT_EQ(ole_variant('a').get_type(), ole_variant::vt_i1);
  EXPECT_EQ(ole_variant(static_cast<short>(-5)).get_type(), ole_variant::vt_i2);
  EXPECT_EQ(ole_variant(static_cast<unsigned short>(5)).get_type(), ole_variant::vt_ui2);
  EXPECT_EQ(ole_variant(5).get_type(), ole_variant::vt_i4);
  EXPECT_EQ(ole_variant(5U).get_type(), ole_variant::vt_ui4);
  EXPECT_EQ(ole_variant(std::int64_t{5}).get_type(), ole_variant::vt_i8);
  EXPECT_EQ(ole_variant(std::uint64_t{5}).get_type(), ole_variant::vt_ui8);
  EXPECT_EQ(ole_variant(5LL).get_type(), ole_variant::vt_i8);
  EXPECT_EQ(ole_variant(1.5F).get_type(), ole_variant::vt_r4);
  EXPECT_EQ(ole_variant(1.5).get_type(), ole_variant::vt_r8);
  EXPECT_EQ(ole_variant("caf\xc3\xa9").to_wstring(), L"caf\u00e9");
  EXPECT_EQ(ole_variant(ole_currency{15000}).to_string(), "1.5");
  EXPECT_EQ(ole_variant(ole_systemtime{2005, 1, 0, 5, 10}).to_string(), "2005-01-05 10:00:00");
  EXPECT_EQ(ole_variant(bytes_t{}).get_type(), ole_variant::vt_empty);
  EXPECT_EQ(ole_variant(0, nullptr).get_type(), ole_variant::vt_empty);
  EXPECT_THROW(ole_variant(3, nullptr), tk_mail_assertion);
  const std::uint8_t raw[] = {1, 2, 3};
  EXPECT_EQ(ole_variant(3, raw).to_string(), "0x010203");
  EXPECT_EQ(ole_variant(true).to_long(), 1);
}

TEST(OleVariant, WideTextKeepsNulsButPrintsUpToTheFirst) {
  const std::wstring text(L"ab\0cd", 5);
  const ole_variant v(text);
  EXPECT_EQ(v.text_view().size(), 5U);
  EXPECT_EQ(v.to_wstring(), L"ab");
  EXPECT_EQ(v.to_string(), "ab");
  const ole_variant bstr(text.c_str());
  EXPECT_EQ(bstr.text_view().size(), 2U);
  const ole_variant from = ole_variant::from_wstring(text, ole_variant::vt_bstr);
  EXPECT_EQ(from.text_view().size(), 5U);
}

TEST(OleVariant, CopiesAreDeepAndMovesLeaveAnEmptyValue) {
  ole_variant a(std::wstring_view(L"hello"));
  ole_variant b = a;
  b.attach_wstring(L"other");
  EXPECT_EQ(a.to_wstring(), L"hello");
  ole_variant bytes(bytes_t{1, 2});
  ole_variant c = bytes;
  EXPECT_NE(c.bytes_view().data(), bytes.bytes_view().data());
  ole_variant d = std::move(c);
  EXPECT_EQ(c.get_type(), ole_variant::vt_empty);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(d.to_string(), "0x0102");
  ole_variant date(ole_date(std::string_view("2005-01-05 10:00:00.25")));
  ole_variant e;
  e = date;
  EXPECT_EQ(e.to_string(), "2005-01-05 10:00:00.250000");
  ole_variant dec(ole_decimal::from_i64(-7));
  e = dec;
  EXPECT_EQ(e.to_string(), "-7");
  e = a;
  EXPECT_EQ(e.to_wstring(), L"hello");
  e = std::wstring(L"assigned");
  EXPECT_EQ(e.get_type(), ole_variant::vt_bstr);
  e = bytes_t{9};
  EXPECT_EQ(e.to_string(), "0x09");
  e = L"bstr";
  EXPECT_EQ(e.to_wstring(), L"bstr");
}

TEST(OleVariant, SixtyFourBitCopiesLogTheirSpecialCase) {
  test::log_capture log;
  const ole_variant a(std::int64_t{1} << 40);
  const ole_variant b = a;
  EXPECT_EQ(b.to_i8(), std::int64_t{1} << 40);
  EXPECT_TRUE(log.has_line("Special processing for VT_(U)I8 type"));
}

TEST(OleVariant, ByteArrayDestructionIsLogged) {
  test::log_capture log(2);
  { const ole_variant v(bytes_t{1}); }
  EXPECT_TRUE(log.has_line("Just before SafeArrayDestroy0"));
}

TEST(OleVariant, AttachBinaryOntoAnArrayOneLongerKeepsItsLength) {
  ole_variant v(bytes_t{1, 2, 3});
  v.attach_binary(bytes_t{7, 8});
  EXPECT_EQ(bytes_of(v), (bytes_t{7, 8, 3}));  // the old off-by-one
  v.attach_binary(bytes_t{9});
  EXPECT_EQ(bytes_of(v), (bytes_t{9}));
  v.attach_binary(bytes_t{});
  EXPECT_EQ(bytes_of(v), (bytes_t{9}));
  v.attach_binary(bytes_t{4, 5, 6, 7});
  EXPECT_EQ(bytes_of(v), (bytes_t{4, 5, 6, 7}));
  ole_variant text(std::wstring_view(L"x"));
  text.attach_binary(bytes_t{1, 2});
  EXPECT_EQ(text.get_type(), ole_variant::vt_bytes);
  EXPECT_EQ(bytes_of(text), (bytes_t{1, 2}));
}

TEST(OleVariant, AllocatingOverAnArrayOfNoBytesIsAnInternalError) {
  ole_variant v = ole_variant::from_string("0x", ole_variant::vt_bytes);
  EXPECT_THROW(v.allocate_safe_array(4), tk_mail_assertion);
  ole_variant w(5);
  w.allocate_safe_array(3);
  EXPECT_EQ(bytes_of(w), (bytes_t{0, 0, 0}));
}

// --- Reading bytes and pieces ------------------------------------------------------------

TEST(OleVariant, GetBytesGivesTheArrayItselfOrNarrowText) {
  test::log_capture log;
  const std::uint8_t* data = nullptr;
  std::string buffer;
  EXPECT_EQ(ole_variant().get_bytes1(data, buffer), 0U);
  EXPECT_TRUE(log.has_line("OLE_Variant is empty"));
  const ole_variant bytes(bytes_t{0, 0xFF});
  ASSERT_EQ(bytes.get_bytes1(data, buffer), 2U);
  EXPECT_EQ(data, bytes.bytes_view().data());
  const ole_variant text(std::wstring_view(L"abc"));
  ASSERT_EQ(text.get_bytes1(data, buffer), 3U);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(data), 3), "abc");
  EXPECT_THROW(ole_variant(5).get_bytes1(data, buffer), tk_mail_assertion);
}

TEST(OleVariant, GetAtWalksTextAndBytesInPieces) {
  const ole_variant bytes(bytes_t{0x01, 0xAB, 0xFF});
  std::string piece;
  EXPECT_EQ(bytes.get_at(piece, 0, 2), 2U);
  EXPECT_EQ(piece, "01AB");
  EXPECT_EQ(bytes.get_at(piece, 2, 2), 1U);
  EXPECT_EQ(piece, "FF");
  EXPECT_EQ(bytes.get_at(piece, 3, 2), 0U);
  const ole_variant text(std::wstring_view(L"h\u00e9llo"));
  std::string all;
  std::size_t pos = 0;
  for (std::size_t n; (n = text.get_at(piece, pos, 2)) != 0; pos += n) all += piece;
  EXPECT_EQ(pos, 5U);
  EXPECT_EQ(all, "h\xc3\xa9llo");
  EXPECT_EQ(ole_variant(5).get_at(piece, 0, 10), 0U);
}

// --- Text of every tag ---------------------------------------------------------------------

TEST(OleVariant, TextOfEveryTag) {
  EXPECT_EQ(ole_variant().to_string(), "");
  EXPECT_EQ(ole_variant(static_cast<short>(-12)).to_string(), "-12");
  EXPECT_EQ(ole_variant(static_cast<signed char>(-128)).to_string(), "-128");
  EXPECT_EQ(ole_variant(-2147483647 - 1).to_string(), "-2147483648");
  EXPECT_EQ(ole_variant(1.5F).to_string(), "1.500000e+00");
  EXPECT_EQ(ole_variant(0.1).to_string(), "1.0000000000000001e-01");
  EXPECT_EQ(ole_variant(static_cast<unsigned char>(255)).to_string(), "255");
  EXPECT_EQ(ole_variant(static_cast<unsigned short>(65535)).to_string(), "65535");
  EXPECT_EQ(ole_variant(4294967295U).to_string(), "4294967295");
  EXPECT_EQ(ole_variant(std::int64_t{INT64_MIN}).to_string(), "-9223372036854775808");
  EXPECT_EQ(ole_variant(std::uint64_t{UINT64_MAX}).to_string(), "18446744073709551615");
  EXPECT_EQ(ole_variant::from_string("12", ole_variant::vt_uint).to_string(), "12");
  // VT_INT has never printed.
  EXPECT_EQ(ole_variant::from_string("12", ole_variant::vt_int).to_string(), "");
  EXPECT_EQ(ole_variant::from_string("12", ole_variant::vt_int).to_wstring(), L"");
  EXPECT_EQ(ole_variant(ole_decimal::from_i64(5)).to_wstring(), L"5");
  EXPECT_EQ(ole_variant::make_lpstr("x").to_string(), "");
}

TEST(OleVariant, AppendStringAddsToWhatIsThere) {
  std::string out = "x=";
  ole_variant(std::wstring_view(L"caf\u00e9")).append_string(out);
  out += ",";
  ole_variant(7).append_string(out);
  EXPECT_EQ(out, "x=caf\xc3\xa9,7");
}

TEST(OleVariant, NumericAndTextTests) {
  for (int vt = 0; vt < 100; ++vt) {
    const bool numeric =
        vt == 2 || vt == 3 || vt == 4 || vt == 5 || vt == 6 || vt == 11 || vt == 14 || (vt >= 16 && vt <= 23);
    EXPECT_EQ(ole_variant::is_numeric_type(static_cast<std::uint16_t>(vt)), numeric) << vt;
    EXPECT_EQ(ole_variant::is_text_or_date_type(static_cast<std::uint16_t>(vt)), vt == 7 || vt == 8) << vt;
  }
  EXPECT_FALSE(ole_variant::is_numeric_type(8209));
  EXPECT_TRUE(ole_variant::is_binary_type(8209));
  EXPECT_TRUE(ole_variant::is_binary_type(70));
  EXPECT_FALSE(ole_variant::is_binary_type(9));
}

// --- Scalar readers -----------------------------------------------------------------------

TEST(OleVariant, LongTruncatesWhileI8RoundsHalfAwayFromZero) {
  EXPECT_EQ(ole_variant(2.7).to_long(), 2);
  EXPECT_EQ(ole_variant(2.7).to_i8(), 3);
  EXPECT_EQ(ole_variant(-2.5).to_long(), -2);
  EXPECT_EQ(ole_variant(-2.5).to_i8(), -3);
  EXPECT_EQ(ole_variant(2.5F).to_i8(), 3);
  EXPECT_EQ(ole_variant(1e300).to_long(), INT32_MIN);
  EXPECT_EQ(ole_variant(std::nan("")).to_i8(), INT64_MIN);
  EXPECT_EQ(ole_variant(2.5).to_ui8(), 2U);  // the automation rounding, halves to even
  EXPECT_EQ(ole_variant(3.5).to_ui8(), 4U);
  EXPECT_EQ(ole_variant(-3.0).to_ui8(), 0U);
}

TEST(OleVariant, SixtyFourBitValuesPassTheirBits) {
  const ole_variant big(std::uint64_t{UINT64_MAX});
  EXPECT_EQ(big.to_i8(), -1);
  EXPECT_EQ(big.to_long(), -1);
  const ole_variant neg(std::int64_t{-1});
  EXPECT_EQ(neg.to_ui8(), UINT64_MAX);
  EXPECT_EQ(ole_variant(std::int64_t{0x1'0000'0005}).to_long(), 5);
  EXPECT_EQ(ole_variant(4294967295U).to_long(), -1);
  EXPECT_EQ(ole_variant(static_cast<short>(-1)).to_ui8(), UINT64_MAX);
  EXPECT_EQ(ole_variant(std::uint64_t{UINT64_MAX}).to_double(), 18446744073709551615.0);
}

TEST(OleVariant, CurrencyAndDecimalReadersRoundHalvesToEven) {
  EXPECT_EQ(ole_variant(ole_currency{25000}).to_long(), 2);
  EXPECT_EQ(ole_variant(ole_currency{35000}).to_i8(), 4);
  EXPECT_FALSE(ole_variant(ole_currency{4000}).to_bool());  // 0.4 reads as 0
  EXPECT_TRUE(ole_variant(ole_currency{6000}).to_bool());
  EXPECT_EQ(ole_variant(ole_currency{12345}).to_double(), 1.2345);
  ole_decimal d;
  ASSERT_EQ(ole_decimal::from_string("2.5", d), ole_s_ok);
  EXPECT_EQ(ole_variant(d).to_long(), 2);
  EXPECT_FALSE(ole_variant(d).to_bool() && false);
  EXPECT_EQ(ole_variant(d).to_double(), 2.5);
  EXPECT_EQ(ole_variant(d).to_float(), 2.5F);
}

TEST(OleVariant, FailedReaderConversionsAreLoggedAndReadAsZero) {
  test::log_capture log(2);
  EXPECT_EQ(ole_variant(ole_currency{INT64_MAX}).to_long(), 0);
  EXPECT_TRUE(log.has_line("from CURRECY: res=0, hr=8002000A"));
  ole_decimal d;
  ASSERT_EQ(ole_decimal::from_string("1e30", d), ole_s_ok);
  EXPECT_EQ(ole_variant(d).to_i8(), 0);
  EXPECT_TRUE(log.has_line("from DECIMAL: res=0, hr=8002000A"));
  ASSERT_EQ(ole_decimal::from_string("-1", d), ole_s_ok);
  EXPECT_EQ(ole_variant(d).to_ui8(), 0U);
}

TEST(OleVariant, BooleanReadsAsOne) {
  const ole_variant t(true);
  EXPECT_TRUE(t.to_bool());
  EXPECT_EQ(t.to_long(), 1);
  EXPECT_EQ(t.to_i8(), 1);
  EXPECT_EQ(t.to_ui8(), 1U);
  EXPECT_EQ(t.to_float(), 1.0F);
  EXPECT_EQ(t.to_double(), 1.0);
  EXPECT_EQ(ole_variant(false).to_double(), 0.0);
}

TEST(OleVariant, FloatAndDoubleOfTagsWithoutNumbersAreInternalErrors) {
  const ole_variant date(ole_date(std::string_view("2005-01-05")));
  const ole_variant text(std::wstring_view(L"5"));
  const ole_variant integer = ole_variant::from_string("5", ole_variant::vt_int);
  for (const ole_variant* v : {&date, &text, &integer}) {
    EXPECT_THROW((void)v->to_float(), tk_mail_assertion);
    EXPECT_THROW((void)v->to_double(), tk_mail_assertion);
    EXPECT_FALSE(v->to_bool());
    EXPECT_EQ(v->to_long(), 0);
    EXPECT_EQ(v->to_i8(), 0);
    EXPECT_EQ(v->to_ui8(), 0U);
  }
  EXPECT_EQ(ole_variant().to_double(), 0.0);
}

TEST(OleVariant, ToDecimalOfTheTagsThatHaveOne) {
  ole_decimal d;
  ole_variant(static_cast<short>(-3)).to_decimal(&d);
  EXPECT_EQ(d.to_string(), "-3");
  ole_variant(7).to_decimal(&d);
  EXPECT_EQ(d.to_string(), "7");
  ole_variant(0.25F).to_decimal(&d);
  EXPECT_EQ(d.to_string(), "0.25");
  ole_variant(0.1).to_decimal(&d);
  EXPECT_EQ(d.to_string(), "0.1");
  ole_variant(static_cast<unsigned short>(9)).to_decimal(&d);
  EXPECT_EQ(d.to_string(), "9");
  ole_variant(4294967295U).to_decimal(&d);
  EXPECT_EQ(d.to_string(), "4294967295");
  ole_variant(std::int64_t{INT64_MIN}).to_decimal(&d);
  EXPECT_EQ(d.to_string(), "-9223372036854775808");
  ole_variant(std::uint64_t{12345}).to_decimal(&d);
  EXPECT_EQ(d.to_string(), "0");  // the old reader's source, kept
  ole_variant(ole_decimal::from_i64(42)).to_decimal(&d);
  EXPECT_EQ(d.to_string(), "42");
  EXPECT_THROW(ole_variant(1e300).to_decimal(&d), ole_cast_exception);
  EXPECT_THROW(ole_variant(ole_currency{1}).to_decimal(&d), ole_cast_exception);
  EXPECT_THROW(ole_variant(true).to_decimal(&d), ole_cast_exception);
  EXPECT_THROW(ole_variant(std::wstring_view(L"1")).to_decimal(&d), ole_cast_exception);
  EXPECT_THROW(ole_variant(5).to_decimal(nullptr), tk_mail_assertion);
}

// --- Text to value ------------------------------------------------------------------------

TEST(OleVariant, IntegersFromTextAreCutToTheirWidth) {
  EXPECT_EQ(ole_variant::from_string("70000", ole_variant::vt_i2).to_long(), 4464);
  EXPECT_EQ(ole_variant::from_string("300", ole_variant::vt_ui1).to_long(), 44);
  EXPECT_EQ(ole_variant::from_string("-1", ole_variant::vt_ui2).to_long(), 65535);
  EXPECT_EQ(ole_variant::from_string("abc", ole_variant::vt_i4).to_long(), 0);
  EXPECT_EQ(ole_variant::from_string(" 12xyz", ole_variant::vt_i4).to_long(), 12);
  EXPECT_EQ(ole_variant::from_string("-1", ole_variant::vt_ui4).to_i8(), 4294967295);
  EXPECT_EQ(ole_variant::from_string("x", ole_variant::vt_ui4).to_i8(), 0);
  EXPECT_EQ(ole_variant::from_string("-9223372036854775808", ole_variant::vt_i8).to_i8(), INT64_MIN);
  EXPECT_EQ(ole_variant::from_string("18446744073709551615", ole_variant::vt_ui8).to_ui8(), UINT64_MAX);
  EXPECT_EQ(ole_variant::from_string("-128", ole_variant::vt_i1).to_long(), -128);
}

TEST(OleVariant, BooleanFromTextByKeywordOrNumber) {
  for (const char* t : {"1", "yes", "T", "TRUE", "True", "2", "-1"}) {
    EXPECT_TRUE(ole_variant::from_string(t, ole_variant::vt_bool).to_bool()) << t;
  }
  for (const char* t : {"0", "NO", "f", "False", "junk", "0x1"}) {
    EXPECT_FALSE(ole_variant::from_string(t, ole_variant::vt_bool).to_bool()) << t;
  }
}

TEST(OleVariant, DatesFromTextAreValidOrEmpty) {
  const ole_variant d = ole_variant::from_string("2005-01-05 10:00:00", ole_variant::vt_date);
  EXPECT_EQ(d.get_type(), ole_variant::vt_date);
  ASSERT_NE(d.get_date(), nullptr);
  EXPECT_EQ(d.get_date()->type, ole_date::type_date_time);
  EXPECT_EQ(d.get_date_double(), 38357.0 + 10.0 / 24.0);
  EXPECT_EQ(ole_variant::from_string("2005-02-30", ole_variant::vt_date).get_type(), ole_variant::vt_empty);
  EXPECT_EQ(ole_variant::from_wstring(L"10:15:30", ole_variant::vt_date).to_wstring(), L"0000-00-00 10:15:30");
}

TEST(OleVariant, PureTimeHasNoDayNumber) {
  test::log_capture log(2);
  const ole_variant t = ole_variant::from_string("10:15:30", ole_variant::vt_date);
  EXPECT_TRUE(log.has_line("Failed to convert SYSTEMTIME->VARIANT"));
  EXPECT_EQ(t.get_date_double(), 0.0);
  // Read back through the day number, it is the epoch's date.
  EXPECT_EQ(ole_date(t).to_string(true), "1899-12-30");
}

TEST(OleVariant, CurrencyTextThatFailsIsLoggedAndEmpty) {
  test::log_capture log(2);
  EXPECT_EQ(ole_variant::from_string("abc", ole_variant::vt_cy).get_type(), ole_variant::vt_empty);
  EXPECT_TRUE(log.has_line("VarCyFromStr failed: 80020005"));
  EXPECT_EQ(ole_variant::from_string("1e20", ole_variant::vt_cy).get_type(), ole_variant::vt_empty);
  EXPECT_TRUE(log.has_line("VarCyFromStr failed: 8002000A"));
}

TEST(OleVariant, DefaultPathConvertsTextOrRefusesTheTag) {
  test::log_capture log;
  const ole_variant i = ole_variant::from_string("2,147,483,647", ole_variant::vt_int);
  EXPECT_EQ(i.get_type(), ole_variant::vt_int);
  EXPECT_TRUE(log.has_line("default processing"));
  const ole_variant u = ole_variant::from_string("2.5", ole_variant::vt_uint);
  EXPECT_EQ(u.get_type(), ole_variant::vt_uint);
  EXPECT_EQ(u.to_string(), "2");
  EXPECT_THROW(ole_variant::from_string("4294967296", ole_variant::vt_uint), ole_type_exception);
  EXPECT_THROW(ole_variant::from_string("x", ole_variant::vt_int), ole_type_exception);
  for (std::uint16_t vt : {std::uint16_t{1}, std::uint16_t{9}, std::uint16_t{10}, std::uint16_t{13}, std::uint16_t{30},
                           std::uint16_t{31}, std::uint16_t{64}, std::uint16_t{70}, std::uint16_t{8210}}) {
    EXPECT_THROW(ole_variant::from_string("5", vt), ole_type_exception) << vt;
  }
  EXPECT_EQ(ole_variant::from_string("text", ole_variant::vt_empty).get_type(), ole_variant::vt_empty);
  EXPECT_EQ(ole_variant::from_string("caf\xc3\xa9", ole_variant::vt_bstr).to_wstring(), L"caf\u00e9");
}

TEST(OleVariant, FromWideTextOfOtherTagsGoesThroughNarrowText) {
  EXPECT_EQ(ole_variant::from_wstring(L"-42", ole_variant::vt_i4).to_long(), -42);
  EXPECT_EQ(ole_variant::from_wstring(L"123.456", ole_variant::vt_decimal).to_string(), "123.456");
  EXPECT_EQ(ole_variant::from_wstring(L"\u00e9", ole_variant::vt_i4).to_long(), 0);
  const std::wstring long_number = L"1" + std::wstring(200, L'0');
  EXPECT_EQ(ole_variant::from_wstring(long_number, ole_variant::vt_r8).to_double(), 1e200);
}

TEST(OleVariant, ExceptionsCarryTheirTextsAndCodes) {
  const ole_cast_exception cast;
  EXPECT_STREQ(cast.what(), "Cannot cast from source type to destination type");
  EXPECT_EQ(cast.code(), 0U);
  const ole_type_exception type;
  EXPECT_STREQ(type.what(), "The operating type is not supported yet");
  EXPECT_EQ(type.code(), 1U);
  const tk_exception& base = type;
  EXPECT_EQ(base.code(), 1U);
}

}  // namespace
}  // namespace qb

namespace qb {
namespace {

TEST(OleVariantEmptyBytes, IsANonEmptyByteArrayOfNoBytes) {
  const ole_variant v = ole_variant::make_empty_bytes();
  EXPECT_EQ(v.get_type(), ole_variant::vt_bytes);
  EXPECT_FALSE(v.is_empty());
  EXPECT_TRUE(v.bytes_view().empty());
  EXPECT_EQ(v.to_string(), "");
  const ole_variant copy = v;  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(copy.get_type(), ole_variant::vt_bytes);
  EXPECT_TRUE(copy.bytes_view().empty());
}

}  // namespace
}  // namespace qb
