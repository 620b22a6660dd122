// Reading rows through the stand-in, FreeTDS and odb_fetcher: column types,
// every type of the type fixture at its extremes, long values whole, batches
// of 100, and both ways of fetching (arrays of 100 rows, one row with pieces).
#include "mss/fetcher.h"

#include <gtest/gtest.h>

#include <memory>

#include <string>
#include <vector>

#include "mss_test_util.h"

namespace qb {
namespace {

using test::describe;
using test::fetch_all;
using test::fetched_table;
using test::fixture_file;
using test::mss_standin;
using test::mss_standin_options;

constexpr std::uint16_t vt_empty = ole_variant::vt_empty;

// The value the program has always made of SQL Server's text for a cell.
ole_variant from_text(const std::wstring& text, std::uint16_t tag) { return ole_variant::from_wstring(text, tag); }
ole_variant text(const std::wstring& t) { return ole_variant(t); }
ole_variant bytes(std::vector<std::uint8_t> b) { return ole_variant(b); }

class Fetcher : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    mss_standin_options o;
    o.fixtures = {"types.json"};
    o.database = "qbtypes";
    server_ = std::make_unique<mss_standin>(o);
  }
  static void TearDownTestSuite() {
    server_.reset();
  }
  Fetcher() : connection_(test::connect_freetds(env_, *server_)) { connection_.run(L"SET TEXTSIZE 2147483647"); }

  // Compares a fetched row with the expected values, cell by cell.
  static void expect_row(const fetched_table& t, std::size_t row, const std::vector<ole_variant>& expected) {
    ASSERT_LT(row, t.rows.size());
    ASSERT_EQ(t.rows[row].size(), expected.size());
    for (std::size_t c = 0; c < expected.size(); ++c) {
      EXPECT_EQ(describe(t.rows[row][c]), describe(expected[c]))
          << "row " << row << " column " << tk_to_utf8(t.columns[c].name);
    }
  }

  static std::unique_ptr<mss_standin> server_;  // NOLINT: shared by the suite
  odb_environment env_;
  odb_connection connection_;
};
std::unique_ptr<mss_standin> Fetcher::server_;

// --- Column types --------------------------------------------------------------

struct expected_column {
  const wchar_t* name;
  std::uint16_t dbtype;
  std::uint32_t size;
  std::uint16_t tag;
  std::uint32_t reserved;
};

void expect_columns(const fetched_table& t, const std::vector<expected_column>& expected) {
  ASSERT_EQ(t.columns.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    SCOPED_TRACE(tk_to_utf8(expected[i].name));
    EXPECT_EQ(t.columns[i].name, expected[i].name);
    EXPECT_EQ(t.columns[i].dbtype, expected[i].dbtype);
    EXPECT_EQ(t.columns[i].size, expected[i].size);
    EXPECT_EQ(t.tags[i], expected[i].tag);
    EXPECT_EQ(t.reserved[i], expected[i].reserved);
  }
}

TEST_F(Fetcher, ColumnsGetTheProvidersTypesSizesAndTags) {
  expect_columns(fetch_all(connection_, L"select * from t_int"),
                 {{L"id", 3, 4, 3, 0}, {L"c_bit", 11, 2, 11, 0}, {L"c_tinyint", 17, 1, 17, 0},
                  {L"c_smallint", 2, 2, 2, 0}, {L"c_int", 3, 4, 3, 0}, {L"c_bigint", 20, 8, 20, 0}});
  const fetched_table d = fetch_all(connection_, L"select * from t_decimal");
  expect_columns(d, {{L"id", 3, 4, 3, 0}, {L"d_1_0", 131, 19, 14, 0}, {L"d_9_4", 131, 19, 14, 0},
                     {L"n_18_2", 131, 19, 14, 0}, {L"d_28_10", 131, 19, 14, 0}, {L"d_38_0", 131, 19, 14, 0},
                     {L"d_38_38", 131, 19, 14, 0}, {L"c_money", 6, 8, 6, 0}, {L"c_smallmoney", 6, 8, 6, 0}});
  EXPECT_EQ(d.columns[2].column_size, 9U);
  EXPECT_EQ(d.columns[2].decimal_digits, 4);
  EXPECT_EQ(d.columns[6].decimal_digits, 38);
  expect_columns(fetch_all(connection_, L"select * from t_float"),
                 {{L"id", 3, 4, 3, 0}, {L"c_real", 4, 4, 4, 0}, {L"c_float", 5, 8, 5, 0}});
  const fetched_table dt = fetch_all(connection_, L"select * from t_datetime");
  expect_columns(dt, {{L"id", 3, 4, 3, 0}, {L"c_date", 133, 6, 7, 2}, {L"c_time0", 145, 10, 7, 3},
                      {L"c_time7", 145, 10, 7, 3}, {L"c_dt2_0", 135, 16, 7, 1}, {L"c_dt2_7", 135, 16, 7, 1},
                      {L"c_dto", 146, 20, 7, 1}, {L"c_datetime", 135, 16, 7, 1}, {L"c_smalldatetime", 135, 16, 7, 1}});
  EXPECT_EQ(dt.columns[5].decimal_digits, 7);
  EXPECT_EQ(dt.columns[7].decimal_digits, 3);
  expect_columns(fetch_all(connection_, L"select * from t_char"),
                 {{L"id", 3, 4, 3, 0}, {L"c_char", 129, 10, 8, 0}, {L"c_varchar", 129, 50, 8, 0},
                  {L"c_nchar", 130, 10, 8, 0}, {L"c_nvarchar", 130, 50, 8, 0}, {L"c_text", 129, 0, 8, 0},
                  {L"c_ntext", 130, 0, 8, 0}});
  expect_columns(fetch_all(connection_, L"select * from t_max"),
                 {{L"id", 3, 4, 3, 0}, {L"c_varchar_max", 129, 0, 8, 0}, {L"c_nvarchar_max", 130, 0, 8, 0},
                  {L"c_varbinary_max", 128, 0, 8209, 0}});
  expect_columns(fetch_all(connection_, L"select * from t_binary"),
                 {{L"id", 3, 4, 3, 0}, {L"c_binary", 128, 8, 8209, 0}, {L"c_varbinary", 128, 16, 8209, 0},
                  {L"c_image", 128, 0, 8209, 0}, {L"c_rowversion", 128, 8, 8209, 0}});
  expect_columns(fetch_all(connection_, L"select * from t_guid"), {{L"id", 3, 4, 3, 0}, {L"c_guid", 72, 16, 8, 1}});
  expect_columns(fetch_all(connection_, L"select * from t_xml"), {{L"id", 3, 4, 3, 0}, {L"c_xml", 141, 0, 8, 11}});
  expect_columns(fetch_all(connection_, L"select * from t_spatial"),
                 {{L"id", 3, 4, 3, 0}, {L"c_geography", 128, 0, 8209, 0}, {L"c_geometry", 128, 0, 8209, 0}});
}

TEST_F(Fetcher, NullabilityComesFromTheDriver) {
  const fetched_table t = fetch_all(connection_, L"select id, c_int from t_int");
  EXPECT_FALSE(t.columns[0].nullable);
  EXPECT_EQ(t.columns[0].flags, 0U);
  EXPECT_TRUE(t.columns[1].nullable);
  EXPECT_EQ(t.columns[1].flags, odb_flag_nullable);
}

TEST_F(Fetcher, OldServersCannotTellPureDatesAndTimes) {
  const fetched_table t = fetch_all(connection_, L"select c_date, c_time7 from t_datetime", false);
  EXPECT_EQ(t.reserved[0], 0U);
  EXPECT_EQ(t.reserved[1], 0U);
  EXPECT_EQ(t.tags[0], ole_variant::vt_date);
}

TEST(OdbGetVartype, TypesOutsideTheTableAreBytes) {
  std::uint32_t reserved = 99;
  EXPECT_EQ(odb_get_vartype(0, 0, 0, reserved, true), 8209);
  EXPECT_EQ(odb_get_vartype(1, 0, 0, reserved, true), 8209);
  EXPECT_EQ(odb_get_vartype(213, 0, 0, reserved, true), 8209);
  EXPECT_EQ(odb_get_vartype(128, 0, 0, reserved, true), 8209);
  EXPECT_EQ(odb_get_vartype(132, 0, 0, reserved, true), 8209);
  EXPECT_EQ(reserved, 0U);
  EXPECT_EQ(odb_get_vartype(212, 0, 0, reserved, false), 7);
  EXPECT_EQ(reserved, 1U);
  EXPECT_EQ(odb_get_vartype(7, 0, 0, reserved, true), 7);
  EXPECT_EQ(reserved, 2U);
  EXPECT_EQ(odb_get_vartype(134, 0, 0, reserved, true), 7);
  EXPECT_EQ(reserved, 3U);
  EXPECT_EQ(odb_get_vartype(16, 0, 0, reserved, true), 16);
  EXPECT_EQ(odb_get_vartype(21, 0, 0, reserved, true), 21);
}

// --- Values at their extremes ----------------------------------------------------

TEST_F(Fetcher, IntegersAndBitAtTheirLimits) {
  const fetched_table t = fetch_all(connection_, L"select * from t_int order by id");
  ASSERT_EQ(t.rows.size(), 4U);
  EXPECT_TRUE(t.block);
  expect_row(t, 0, {ole_variant(1), ole_variant(false), ole_variant(static_cast<unsigned char>(0)),
                    ole_variant(static_cast<short>(-32768)), ole_variant(-2147483647 - 1),
                    ole_variant(static_cast<long long>(-9223372036854775807LL - 1))});
  expect_row(t, 1, {ole_variant(2), ole_variant(true), ole_variant(static_cast<unsigned char>(255)),
                    ole_variant(static_cast<short>(32767)), ole_variant(2147483647),
                    ole_variant(static_cast<long long>(9223372036854775807LL))});
  expect_row(t, 3, {ole_variant(4), ole_variant(), ole_variant(), ole_variant(), ole_variant(), ole_variant()});
  // The typed values equal what the driver's text gives.
  expect_row(t, 1, {from_text(L"2", 3), from_text(L"1", 11), from_text(L"255", 17), from_text(L"32767", 2),
                    from_text(L"2147483647", 3), from_text(L"9223372036854775807", 20)});
  EXPECT_EQ(t.rows[3][1].get_type(), vt_empty);
}

TEST_F(Fetcher, DecimalsAndMoneyKeepEveryDigit) {
  const fetched_table t = fetch_all(connection_, L"select * from t_decimal order by id");
  ASSERT_EQ(t.rows.size(), 4U);
  expect_row(t, 0,
             {ole_variant(1), from_text(L"-9", 14), from_text(L"-99999.9999", 14),
              from_text(L"-9999999999999999.99", 14), from_text(L"-999999999999999999.9999999999", 14),
              from_text(L"-99999999999999999999999999999999999999", 14),
              from_text(L"-0.99999999999999999999999999999999999999", 14), from_text(L"-922337203685477.5808", 6),
              from_text(L"-214748.3648", 6)});
  expect_row(t, 2,
             {ole_variant(3), from_text(L"0", 14), from_text(L"0.0001", 14), from_text(L"0.01", 14),
              from_text(L"0.0000000001", 14), from_text(L"1", 14),
              from_text(L"0.00000000000000000000000000000000000001", 14), from_text(L"0.0001", 6),
              from_text(L"-0.0001", 6)});
  EXPECT_EQ(t.rows[1][6].to_string(), "0.99999999999999999999999999999999999999");
  EXPECT_EQ(t.rows[1][7].get_type(), ole_variant::vt_cy);
  EXPECT_EQ(t.rows[3][1].get_type(), vt_empty);
}

TEST_F(Fetcher, FloatsAreExact) {
  const fetched_table t = fetch_all(connection_, L"select * from t_float order by id");
  ASSERT_EQ(t.rows.size(), 6U);
  EXPECT_EQ(t.rows[0][1].to_double(), static_cast<double>(-3.4028234663852886e+38F));
  EXPECT_EQ(t.rows[1][2].to_double(), 1.7976931348623157e+308);
  EXPECT_EQ(t.rows[2][1].to_double(), static_cast<double>(1.401298464324817e-45F));
  EXPECT_EQ(t.rows[2][2].to_double(), 4.9406564584124654e-324);
  EXPECT_EQ(t.rows[4][2].to_double(), -2.5);
  EXPECT_EQ(t.rows[0][1].get_type(), ole_variant::vt_r4);
  EXPECT_EQ(t.rows[0][2].get_type(), ole_variant::vt_r8);
  EXPECT_EQ(t.rows[5][1].get_type(), vt_empty);
  // What the driver's text gives.
  expect_row(t, 1, {ole_variant(2), from_text(L"3.40282347e+38", 4), from_text(L"1.7976931348623157e+308", 5)});
}

TEST_F(Fetcher, DatesAndTimesWithSevenDigitsAndNegativeOffsets) {
  const fetched_table t = fetch_all(connection_, L"select * from t_datetime order by id");
  ASSERT_EQ(t.rows.size(), 4U);
  // The texts SQL Server gives for these values, cut to six fraction digits
  // (the seventh is truncated, never rounded into the next second).
  expect_row(t, 0,
             {ole_variant(1), from_text(L"0001-01-01", 7), from_text(L"00:00:00", 7), from_text(L"00:00:00.0000000", 7),
              from_text(L"0001-01-01 00:00:00", 7), from_text(L"0001-01-01 00:00:00.0000000", 7),
              from_text(L"0001-01-01 00:00:00.0000000 -14:00", 7), from_text(L"1753-01-01 00:00:00.000", 7),
              from_text(L"1900-01-01 00:00:00", 7)});
  expect_row(t, 1,
             {ole_variant(2), from_text(L"9999-12-31", 7), from_text(L"23:59:59", 7), from_text(L"23:59:59.999999", 7),
              from_text(L"9999-12-31 23:59:59", 7), from_text(L"9999-12-31 23:59:59.999999", 7),
              from_text(L"9999-12-31 23:59:59.999999 +14:00", 7), from_text(L"9999-12-31 23:59:59.997", 7),
              from_text(L"2079-06-06 23:59:00", 7)});
  expect_row(t, 2,
             {ole_variant(3), from_text(L"2024-02-29", 7), from_text(L"12:34:56", 7), from_text(L"12:34:56.123456", 7),
              from_text(L"2024-02-29 12:34:56", 7), from_text(L"2024-02-29 12:34:56.123456", 7),
              from_text(L"2024-02-29 12:34:56.123456 -05:30", 7), from_text(L"2024-02-29 12:34:56.123", 7),
              from_text(L"2024-02-29 12:35:00", 7)});
  expect_row(t, 3, {ole_variant(4), ole_variant(), ole_variant(), ole_variant(), ole_variant(), ole_variant(),
                    ole_variant(), ole_variant(), ole_variant()});
  // The values themselves.
  const ole_date* dt2 = t.rows[2][5].get_date();
  ASSERT_NE(dt2, nullptr);
  EXPECT_EQ(dt2->src.wYear, 2024);
  EXPECT_EQ(dt2->src.wMonth, 2);
  EXPECT_EQ(dt2->src.wDay, 29);
  EXPECT_EQ(dt2->src.wSecond, 56);
  EXPECT_EQ(dt2->microseconds, 123456);  // the values hold microseconds
  // The last 100 ns before midnight stay on their day and second.
  const ole_date* last = t.rows[1][5].get_date();
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(last->to_string(true), "9999-12-31 23:59:59.999999");
  const ole_date* last_time = t.rows[1][3].get_date();
  ASSERT_NE(last_time, nullptr);
  EXPECT_EQ(last_time->to_wstring(true), L"23:59:59.999999");
  const ole_date* last_offset = t.rows[1][6].get_date();
  ASSERT_NE(last_offset, nullptr);
  EXPECT_EQ(last_offset->to_string(true), "9999-12-31 23:59:59.999999");
  const ole_date* dto = t.rows[2][6].get_date();
  ASSERT_NE(dto, nullptr);
  EXPECT_TRUE(dto->has_offset);
  EXPECT_EQ(dto->offset_minutes, -330);
  EXPECT_EQ(dto->src.wHour, 12);  // the wall-clock time as written
  const ole_date* early = t.rows[0][1].get_date();
  ASSERT_NE(early, nullptr);
  EXPECT_EQ(early->src.wYear, 1);
}

TEST_F(Fetcher, TextInCodePagesAndUtf16WithFourByteCharacters) {
  const fetched_table t = fetch_all(connection_, L"select * from t_char order by id");
  ASSERT_EQ(t.rows.size(), 5U);
  EXPECT_FALSE(t.block);  // text and ntext are long columns
  expect_row(t, 0, {ole_variant(1), text(L"abc       "), text(L"plain ASCII"), text(L"abc       "),
                    text(L"plain ASCII"), text(L"text value"), text(L"ntext value")});
  expect_row(t, 1, {ole_variant(2), text(L"\u00e4\u00f6\u00fc       "), text(L"Gr\u00fc\u00dfe \u20ac \u2018x\u2019"),
                    text(L"\u00e4\u00f6\u00fc       "), text(L"\u041f\u0440\u0438\u0432\u0435\u0442 \u4e16\u754c"),
                    text(L"\u00c4rger \u20ac"), text(L"\u65e5\u672c\u8a9e \U0001F600")});
  // Empty strings stay empty strings (char(n) comes padded).
  expect_row(t, 2, {ole_variant(3), text(L"          "), text(L""), text(L"          "), text(L""), text(L""),
                    text(L"")});
  expect_row(t, 3, {ole_variant(4), text(L"x         "), text(L"x"), text(L"\U0001F600        "),
                    text(L"\U0001F600\U0001D11E"), text(L"x"), text(L"\U0001F600")});
  EXPECT_EQ(t.rows[3][4].text_view().size(), 2U);  // two characters, not four units
  expect_row(t, 4, {ole_variant(5), ole_variant(), ole_variant(), ole_variant(), ole_variant(), ole_variant(),
                    ole_variant()});
  EXPECT_EQ(t.rows[2][2].get_type(), ole_variant::vt_bstr);
  EXPECT_EQ(t.rows[4][2].get_type(), vt_empty);
  EXPECT_EQ(t.sizes[1][4], 18U);  // "Привет 世界": nine UTF-16 units
}

TEST_F(Fetcher, LongValuesArriveWhole) {
  const fetched_table t = fetch_all(connection_, L"select * from t_max order by id");
  ASSERT_EQ(t.rows.size(), 4U);
  std::wstring nv;
  for (int i = 0; i < 500000; ++i) nv += L"abc\u00e9";
  std::wstring v;
  for (int i = 0; i < 10000; ++i) v += L"0123456789";
  std::vector<std::uint8_t> b(5242880);
  for (std::size_t i = 0; i < b.size(); ++i) b[i] = static_cast<std::uint8_t>(i & 0xFF);
  EXPECT_EQ(t.rows[0][1].text_view().size(), 100000U);
  EXPECT_TRUE(t.rows[0][1].text_view() == v);
  EXPECT_EQ(t.rows[0][2].text_view().size(), 2000000U);
  EXPECT_TRUE(t.rows[0][2].text_view() == nv);
  ASSERT_EQ(t.rows[0][3].get_type(), ole_variant::vt_bytes);
  EXPECT_EQ(t.rows[0][3].bytes_view().size(), b.size());
  EXPECT_TRUE(std::equal(b.begin(), b.end(), t.rows[0][3].bytes_view().begin()));
  EXPECT_EQ(t.sizes[0][2], 4000000U);
  EXPECT_EQ(t.sizes[0][3], 5242880U);
  expect_row(t, 1, {ole_variant(2), text(L""), text(L""), ole_variant()});  // 0x: bytes cannot be empty
  expect_row(t, 2, {ole_variant(3), text(L"short \u20ac"), text(L"short \U0001F600"), bytes({0x00, 0xFF})});
  expect_row(t, 3, {ole_variant(4), ole_variant(), ole_variant(), ole_variant()});
}

TEST_F(Fetcher, BinaryRowversionAndImageAsBytes) {
  const fetched_table t = fetch_all(connection_, L"select * from t_binary order by id");
  ASSERT_EQ(t.rows.size(), 3U);
  expect_row(t, 0, {ole_variant(1), bytes({1, 2, 0, 0, 0, 0, 0, 0}), bytes({0x00, 0xFF, 0x10}),
                    bytes({0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A}), bytes({0, 0, 0, 0, 0, 0, 0x07, 0xD1})});
  expect_row(t, 1, {ole_variant(2), bytes({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}), ole_variant(),
                    ole_variant(), bytes({0, 0, 0, 0, 0, 0, 0x07, 0xD2})});
  expect_row(t, 2, {ole_variant(3), ole_variant(), ole_variant(), ole_variant(), bytes({0, 0, 0, 0, 0, 0, 0x07, 0xD3})});
}

TEST_F(Fetcher, GuidsComeWithoutBraces) {
  const fetched_table t = fetch_all(connection_, L"select * from t_guid order by id");
  ASSERT_EQ(t.rows.size(), 3U);
  expect_row(t, 0, {ole_variant(1), text(L"6F9619FF-8B86-D011-B42D-00C04FC964FF")});
  expect_row(t, 1, {ole_variant(2), text(L"00000000-0000-0000-0000-000000000000")});
  expect_row(t, 2, {ole_variant(3), ole_variant()});
  EXPECT_EQ(t.sizes[0][1], 36U);
}

TEST_F(Fetcher, XmlAsTextAndSpatialAsBytes) {
  const fetched_table x = fetch_all(connection_, L"select * from t_xml order by id");
  expect_row(x, 0, {ole_variant(1), text(L"<root a=\"1\"><item>\u00e4 \U0001F600</item></root>")});
  expect_row(x, 1, {ole_variant(2), ole_variant()});
  const fetched_table s = fetch_all(connection_, L"select * from t_spatial order by id");
  ASSERT_EQ(s.rows.size(), 4U);
  // SQL Server's serialisation of geography POINT(-122.349 47.651), SRID 4326.
  expect_row(s, 0, {ole_variant(1),
                    bytes({0xE6, 0x10, 0x00, 0x00, 0x01, 0x0C, 0x17, 0xD9, 0xCE, 0xF7, 0x53, 0xD3, 0x47, 0x40,
                           0x75, 0x93, 0x18, 0x04, 0x56, 0x96, 0x5E, 0xC0}),
                    bytes({0x00, 0x00, 0x00, 0x00, 0x01, 0x0C, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xF0, 0x3F,
                           0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x40})});
  expect_row(s, 3, {ole_variant(4), ole_variant(), ole_variant()});
}

// The same cells read by the other way of fetching give the same values.
TEST_F(Fetcher, ArraysOfRowsAndSingleRowsGiveTheSameValues) {
  const std::wstring columns =
      L"t_int.id, c_bit, c_tinyint, c_smallint, c_int, c_bigint, c_real, c_float, c_date, c_time7, c_dt2_7, c_dto, "
      L"c_datetime, c_guid, c_varchar, c_nvarchar";
  const std::wstring from =
      L" from t_int, t_float, t_datetime, t_guid, t_char where t_float.id = t_int.id and t_datetime.id = t_int.id "
      L"and t_guid.id = t_int.id and t_char.id = t_int.id order by t_int.id";
  const fetched_table block = fetch_all(connection_, L"select " + columns + from);
  const fetched_table rows = fetch_all(connection_, L"select c_ntext, " + columns + from);
  EXPECT_TRUE(block.block);
  EXPECT_FALSE(rows.block);
  ASSERT_EQ(block.rows.size(), 3U);
  ASSERT_EQ(rows.rows.size(), 3U);
  for (std::size_t r = 0; r < block.rows.size(); ++r) {
    for (std::size_t c = 0; c < block.columns.size(); ++c) {
      EXPECT_EQ(describe(rows.rows[r][c + 1]), describe(block.rows[r][c])) << r << "/" << c;
    }
  }
}

// --- Batches ---------------------------------------------------------------------

std::string numbered_table(const std::string& name, int rows) {
  std::string json = R"J({"name": ")J" + name + R"J(", "columns": [{"name": "id", "type": "int", "nullable": false},
    {"name": "v", "type": "nvarchar(20)"}, {"name": "d", "type": "decimal(9,2)"}], "rows": [)J";
  for (int i = 1; i <= rows; ++i) {
    if (i != 1) json += ",";
    json += "[" + std::to_string(i) + ", \"r" + std::to_string(i) + "\", \"" + std::to_string(i) + ".25\"]";
  }
  return json + "]}";
}

class Batches : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    const std::string json = R"({"server": {"users": [{"name": "sa", "password": "Secret#1"}]}, "databases": [
      {"name": "qbrows", "schemas": [{"name": "dbo", "tables": [)" +
                             numbered_table("t_0", 0) + "," + numbered_table("t_100", 100) + "," +
                             numbered_table("t_250", 250) + "," + numbered_table("t_big", 100000) + "]}]}]}";
    file_ = std::make_unique<fixture_file>(json);
    mss_standin_options o;
    o.fixtures = {file_->path()};
    o.database = "qbrows";
    o.bulk_rows = 100000;
    o.bulk_table = "qbrows.dbo.bulk_rows";
    server_ = std::make_unique<mss_standin>(o);
  }
  static void TearDownTestSuite() {
    server_.reset();
    file_.reset();
  }
  Batches() : connection_(test::connect_freetds(env_, *server_)) {}

  static void expect_in_order(const fetched_table& t, int rows) {
    ASSERT_EQ(t.rows.size(), static_cast<std::size_t>(rows));
    for (int i = 0; i < rows; ++i) {
      if (t.rows[static_cast<std::size_t>(i)][0].to_long() != i + 1) {
        ADD_FAILURE() << "row " << i << " has id " << t.rows[static_cast<std::size_t>(i)][0].to_long();
        return;
      }
    }
  }
  static std::vector<std::size_t> batches_of(int rows) {
    std::vector<std::size_t> b(static_cast<std::size_t>(rows / 100), 100);
    if (rows % 100 != 0) b.push_back(static_cast<std::size_t>(rows % 100));
    b.push_back(0);
    return b;
  }

  static std::unique_ptr<fixture_file> file_;   // NOLINT: shared by the suite
  static std::unique_ptr<mss_standin> server_;  // NOLINT
  odb_environment env_;
  odb_connection connection_;
};
std::unique_ptr<fixture_file> Batches::file_;
std::unique_ptr<mss_standin> Batches::server_;

TEST_F(Batches, AnEmptyResultEndsAtOnce) {
  const fetched_table t = fetch_all(connection_, L"select * from t_0");
  EXPECT_EQ(t.batches, (std::vector<std::size_t>{0}));
  EXPECT_EQ(t.columns.size(), 3U);
}

TEST_F(Batches, ExactlyOneHundredRowsAreOneBatchThenNone) {
  const fetched_table t = fetch_all(connection_, L"select * from t_100 order by id");
  EXPECT_TRUE(t.block);
  EXPECT_EQ(t.batches, (std::vector<std::size_t>{100, 0}));
  expect_in_order(t, 100);
  EXPECT_EQ(describe(t.rows[99][1]), describe(ole_variant(L"r100")));
  EXPECT_EQ(describe(t.rows[99][2]), describe(ole_variant::from_wstring(L"100.25", 14)));
}

TEST_F(Batches, RowsComeInBatchesOfOneHundred) {
  const fetched_table t = fetch_all(connection_, L"select * from t_250 order by id");
  EXPECT_EQ(t.batches, (std::vector<std::size_t>{100, 100, 50, 0}));
  expect_in_order(t, 250);
}

TEST_F(Batches, AHundredThousandRowsByArrays) {
  const fetched_table t = fetch_all(connection_, L"select * from t_big order by id");
  EXPECT_TRUE(t.block);
  EXPECT_EQ(t.batches, batches_of(100000));
  expect_in_order(t, 100000);
}

TEST_F(Batches, AHundredThousandRowsWithALongColumnOneByOne) {
  const fetched_table t = fetch_all(connection_, L"select * from bulk_rows");
  EXPECT_FALSE(t.block);
  EXPECT_EQ(t.batches, batches_of(100000));
  expect_in_order(t, 100000);
  // Row 66 of the generated table (i = 65, VV = 01).
  EXPECT_EQ(describe(t.rows[65][1]), describe(ole_variant(L"row-01 \u00e4\u00f6\u00fc \u20ac")));
  EXPECT_EQ(describe(t.rows[65][2]), describe(ole_variant::from_wstring(L"1001.01", 14)));
  EXPECT_EQ(describe(t.rows[65][3]), describe(ole_variant::from_wstring(L"2024-01-01 01:00:00.123456", 7)));
  std::wstring note;
  for (int i = 0; i < 12; ++i) note += L"note 01 ";
  EXPECT_EQ(describe(t.rows[65][4]), describe(ole_variant(note)));
}

}  // namespace
}  // namespace qb
