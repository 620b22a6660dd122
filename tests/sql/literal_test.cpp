// Values as MySQL statements spell them, and MySQL result cells as values.
#include "sql/literal.h"

#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <mysql.h>

#include "ole/date.h"
#include "sql/engine.h"
#include "sql/native_type.h"
#include "tk/exception.h"
#include "tk/utf.h"

#include "support/temp_dir.h"

namespace qb {
namespace {

using vt = ole_variant;

t_ftd column(std::uint16_t type, std::uint32_t size = 0, bool not_null = false, std::uint32_t dw_reserved = 0) {
  t_ftd f;
  f.name = L"c";
  f.vartype = type;
  f.size = size;
  f.b_not_null = not_null;
  f.dw_reserved = dw_reserved;
  return f;
}

udb_field field(const ole_variant& value) { return udb_field(L"c", 0, value); }

std::string cell(const ole_variant& value, const t_ftd& col, bool prepared = false) {
  const udb_field f = field(value);
  return get_fld_append_str(&f, &col, prepared);
}

// --- Text literals ---------------------------------------------------------------------------

TEST(SqlToMysqlStr, QuoteAndBackslashAreEscaped) {
  test::log_capture log;
  EXPECT_EQ(to_mysql_str("O'Neil\\x", vt::vt_bstr), "'O\\'Neil\\\\x'");
  EXPECT_EQ(to_mysql_wstr(L"O'Neil\\x", vt::vt_bstr), L"'O\\'Neil\\\\x'");
  EXPECT_TRUE(log.has_line("Got symbol to mask (2): '"));
  EXPECT_TRUE(log.has_line("Got symbol to mask (1): \\"));
}

TEST(SqlToMysqlStr, LineFeedAndDoubleQuoteStayRaw) {
  EXPECT_EQ(to_mysql_str("a\nb\"c\td", vt::vt_bstr), "'a\nb\"c\td'");
  const t_ftd text = column(vt::vt_bstr, 50);
  EXPECT_EQ(cell(ole_variant(L"line 1\nline 2"), text), "'line 1\nline 2'");
}

TEST(SqlToMysqlStr, NulAndCarriageReturnAreEscapedForTheClient) {
  // The mysql client refuses a raw NUL and drops a CR before a LF.
  EXPECT_EQ(to_mysql_str(std::string("a\0b", 3), vt::vt_bstr), "'a\\0b'");
  EXPECT_EQ(to_mysql_str("a\r\nb\r", vt::vt_bstr), "'a\\r\nb\\r'");
  const t_ftd text = column(vt::vt_bstr, 50);
  EXPECT_EQ(cell(ole_variant(std::wstring(L"x\0y\r\n", 5)), text), "'x\\0y\\r\n'");
}

TEST(SqlToMysqlStr, DoubledQuoteStaysAsItIs) {
  EXPECT_EQ(to_mysql_str("it''s", vt::vt_bstr), "'it''s'");
  EXPECT_EQ(to_mysql_str("'''", vt::vt_bstr), "'''\\''");
  // Exactly two quotes: already the empty literal, not quoted again.
  EXPECT_EQ(to_mysql_str("''", vt::vt_bstr), "''");
  EXPECT_EQ(to_mysql_wstr(L"''", vt::vt_bstr), L"''");
}

TEST(SqlDataValue, DoubledQuotesOfAValueAreEscapedLikeAnyQuote) {
  // A value is data, not SQL text: "it''s" must arrive as "it''s".
  const t_ftd text = column(vt::vt_bstr, 50);
  EXPECT_EQ(cell(ole_variant(L"it''s"), text), "'it\\'\\'s'");
  EXPECT_EQ(cell(ole_variant(L"''"), text), "'\\'\\''");
  EXPECT_EQ(cell(ole_variant(L"'''"), text), "'\\'\\'\\''");
  const udb_field f = field(ole_variant(L"a''b"));
  EXPECT_EQ(to_mysql_str(&f), "'a\\'\\'b'");
  std::string out;
  sql_append_quoted(out, L"x''");
  EXPECT_EQ(out, "'x\\'\\''");
  out.clear();
  sql_append_escaped(out, L"''");
  EXPECT_EQ(out, "\\'\\'");
  // A geometry's text too.
  EXPECT_EQ(cell(ole_variant(L"POINT(1 2)''"), column(vt::vt_bstr, 0, false, 2)),
            "ST_GeomFromText('POINT(1 2)\\'\\'')");
}

TEST(SqlDataValue, SqlTextKeepsItsDoubledQuotes) {
  // A default value arrives from the source as SQL text.
  std::string out;
  sql_append_sql_text_quoted(out, L"it''s");
  EXPECT_EQ(out, "'it''s'");
  t_ftd with_default = column(vt::vt_bstr, 20);
  with_default.def_value = ole_variant(L"it''s");
  EXPECT_EQ(make_mysql_def_val(with_default), L"'it''s'");
}

TEST(SqlDataValue, FloatIsTheShortestTextOfTheSameFloat) {
  auto str = [](const ole_variant& v) {
    const udb_field f = field(v);
    return to_mysql_str(&f);
  };
  EXPECT_EQ(str(ole_variant(0.1F)), "0.1");
  // Seven significant digits would read back as 1.
  EXPECT_EQ(str(ole_variant(1.0000001F)), "1.0000001");
  for (float f : {123456789.0F, 0.3F, 1e-40F, 16777216.0F, -2.7182817F}) {
    EXPECT_EQ(std::strtof(str(ole_variant(f)).c_str(), nullptr), f);
  }
  EXPECT_EQ(str(ole_variant(-3.5e-20F)), "-3.5e-20");
  // The largest float as its double: the float's own shortest print lies
  // above FLT_MAX as a double and would be out of range.
  EXPECT_EQ(str(ole_variant(std::numeric_limits<float>::max())), "3.4028234663852886e+38");
  EXPECT_EQ(str(ole_variant(std::numeric_limits<float>::quiet_NaN())), "NULL");
  EXPECT_EQ(cell(ole_variant(2.5F), column(vt::vt_r4)), "2.5");
}

TEST(SqlDataValue, DoubleIsTheShortestTextOfTheSameDouble) {
  auto str = [](const ole_variant& v) {
    const udb_field f = field(v);
    return to_mysql_str(&f);
  };
  EXPECT_EQ(str(ole_variant(0.1)), "0.1");
  EXPECT_EQ(str(ole_variant(1.0 / 3.0)), "0.3333333333333333");
  EXPECT_EQ(str(ole_variant(1e300)), "1e+300");
  EXPECT_EQ(str(ole_variant(-0.0)), "-0");
  EXPECT_EQ(str(ole_variant(std::numeric_limits<double>::infinity())), "NULL");
  for (double d : {0.1, 2.0 / 3.0, 1e-310, 123456789.123456789, 9007199254740993.0}) {
    EXPECT_EQ(std::strtod(str(ole_variant(d)).c_str(), nullptr), d);
  }
}

TEST(SqlToMysqlStr, NullEmptyAndNumbers) {
  test::log_capture log;
  EXPECT_EQ(to_mysql_str("5", vt::vt_null), "NULL");
  EXPECT_EQ(to_mysql_str("5", vt::vt_empty), "NULL");
  EXPECT_TRUE(log.has_line("******* NULL VALUE ******"));
  EXPECT_EQ(to_mysql_str("", vt::vt_bstr), "''");
  EXPECT_EQ(to_mysql_str("", vt::vt_i4), "''");
  EXPECT_EQ(to_mysql_str("-12.5", vt::vt_r8), "-12.5");
  EXPECT_EQ(to_mysql_wstr(L"42", vt::vt_i4), L"42");
}

TEST(SqlToMysqlStr, DateTextIsReadAndPrintedTheMysqlWay) {
  EXPECT_EQ(to_mysql_str("2005/1/5 10:00", vt::vt_date), "'2005-01-05 10:00:00'");
  EXPECT_EQ(to_mysql_str("2005-01-05 10:00:00.250", vt::vt_date), "'2005-01-05 10:00:00.250000'");
  EXPECT_EQ(to_mysql_wstr(L"20050105", vt::vt_date), L"'2005-01-05'");
}

TEST(SqlToMysqlStr, GuidTextIsQuoted) {
  test::log_capture log;
  EXPECT_EQ(to_mysql_str("{01234567-89AB-CDEF-0123-456789ABCDEF}", vt::vt_bstr),
            "'{01234567-89AB-CDEF-0123-456789ABCDEF}'");
  EXPECT_TRUE(log.has_line("BSTR IS AN GUID"));
}

TEST(SqlToMysqlStr, BinaryTextRules) {
  test::log_capture log;
  EXPECT_EQ(to_mysql_str("0x00ff", vt::vt_bytes), "0x00ff");
  EXPECT_TRUE(log.has_line("BLOB IS VALID"));
  EXPECT_EQ(to_mysql_str("0XAB", vt::vt_blob), "0XAB");
  EXPECT_EQ(to_mysql_str("a", vt::vt_bytes), "'a'");
  EXPECT_EQ(to_mysql_str("0x", vt::vt_bytes), "'0x'");
  EXPECT_EQ(to_mysql_str("0xZZ", vt::vt_bytes), "'0xZZ'");
  EXPECT_EQ(to_mysql_str("raw", vt::vt_blob_object), "'raw'");
}

// --- Literals of values -----------------------------------------------------------------------

TEST(SqlToMysqlStrField, BytesAreHexadecimal) {
  const std::vector<std::uint8_t> bytes = {0x00, 0xFF};
  const udb_field f = field(ole_variant(bytes));
  EXPECT_EQ(to_mysql_str(&f), "0x00FF");
  const udb_field empty = field(ole_variant());
  EXPECT_EQ(to_mysql_str(&empty), "NULL");
  // A stored binary of no bytes is a value: the empty literal.
  const udb_field no_bytes = field(ole_variant::make_empty_bytes());
  EXPECT_EQ(to_mysql_str(&no_bytes), "''");
  EXPECT_THROW(to_mysql_str(static_cast<const udb_field*>(nullptr)), tk_mail_assertion);
}

TEST(SqlToMysqlStrField, NumbersPrintTheirValueText) {
  auto str = [](const ole_variant& v) {
    const udb_field f = field(v);
    return to_mysql_str(&f);
  };
  EXPECT_EQ(str(ole_variant(static_cast<short>(-7))), "-7");
  EXPECT_EQ(str(ole_variant(static_cast<unsigned long long>(18446744073709551615ULL))), "18446744073709551615");
  EXPECT_EQ(str(ole_variant(0.5)), "0.5");
  EXPECT_EQ(str(ole_variant(true)), "1");
  ole_decimal dec;
  ASSERT_EQ(ole_decimal::from_string("-12345678901234567890123456789.012345678", dec), 0);
  EXPECT_EQ(str(ole_variant(dec)), "-12345678901234567890123456789.012345678");
}

TEST(SqlToMysqlStrField, IntTagPrintsItsNumber) {
  // The value layer prints nothing for VT_INT; the literal must not lose it.
  ole_variant v = ole_variant::from_string("-123", vt::vt_int);
  ASSERT_EQ(v.get_type(), vt::vt_int);
  const udb_field f = field(v);
  EXPECT_EQ(to_mysql_str(&f), "-123");
  EXPECT_EQ(cell(v, column(vt::vt_int)), "-123");
}

TEST(SqlToMysqlStrField, DatePrintedOnceEqualsThePrintReadBack) {
  for (const char* text : {"2005-01-05 10:00:00.250", "2024-02-29 23:59:59.999999", "2005-01-05", "10:15:30.5",
                           "1000-01-01 00:00:00", "9999-12-31 23:59:59.000001", "2005-01-05 00:00:00"}) {
    const ole_variant v = ole_variant::from_string(text, vt::vt_date);
    ASSERT_EQ(v.get_type(), vt::vt_date) << text;
    const udb_field f = field(v);
    EXPECT_EQ(to_mysql_str(&f), to_mysql_str(v.to_string(), vt::vt_date)) << text;
  }
}

// --- Cells of a row ------------------------------------------------------------------------------

TEST(SqlGetFldAppendStr, EmptyTextInVarcharIsEmptyLiteral) {
  EXPECT_EQ(cell(ole_variant(L""), column(vt::vt_bstr, 20)), "''");
  EXPECT_EQ(cell(ole_variant(L""), column(vt::vt_bstr, 20, true)), "''");
}

TEST(SqlGetFldAppendStr, NullInNullableIntIsNull) {
  EXPECT_EQ(cell(ole_variant::make_null(), column(vt::vt_i4)), "NULL");
  EXPECT_EQ(cell(ole_variant(), column(vt::vt_i4)), "NULL");
}

TEST(SqlGetFldAppendStr, NullInNotNullIntTakesTheDefault) {
  test::log_capture log;
  t_ftd col = column(vt::vt_i4, 0, true);
  col.def_value = ole_variant(L"5");
  // A null has no numeric tag, so the column's default is written.
  EXPECT_EQ(cell(ole_variant::make_null(), col), "5");
  EXPECT_TRUE(log.has_line("Put default value"));
  col.def_value = ole_variant();
  EXPECT_EQ(cell(ole_variant::make_null(), col), "''");
}

TEST(SqlGetFldAppendStr, NotNullDateColumnTakesItsDefault) {
  t_ftd col = column(vt::vt_date, 0, true, 1);
  col.def_value = ole_variant(L"2001-02-03");
  EXPECT_EQ(cell(ole_variant(), col), "'2001-02-03'");
  t_ftd nullable = column(vt::vt_date, 0, false, 1);
  EXPECT_EQ(cell(ole_variant(), nullable), "NULL");
}

TEST(SqlGetFldAppendStr, NullTextStaysNull) {
  // A null has no text to quote: NULL stays NULL in a text column.
  EXPECT_EQ(cell(ole_variant::make_null(), column(vt::vt_bstr, 20)), "NULL");
  EXPECT_EQ(cell(ole_variant(), column(vt::vt_bstr, 0)), "NULL");
  EXPECT_EQ(cell(ole_variant(), column(vt::vt_bstr, 0, false, 2)), "NULL");
}

TEST(SqlGetFldAppendStr, BinaryBytesAreHexAndEmptyIsNull) {
  const std::vector<std::uint8_t> bytes = {0x00, 0xFF};
  EXPECT_EQ(cell(ole_variant(bytes), column(vt::vt_bytes, 10)), "0x00FF");
  EXPECT_EQ(cell(ole_variant(std::vector<std::uint8_t>()), column(vt::vt_bytes, 10)), "NULL");
  EXPECT_EQ(cell(ole_variant(std::vector<std::uint8_t>()), column(vt::vt_bytes, 10, true)), "NULL");
  EXPECT_EQ(cell(ole_variant::make_empty_bytes(), column(vt::vt_bytes, 10)), "''");
  EXPECT_EQ(cell(ole_variant::make_empty_bytes(), column(vt::vt_bytes, 10, true)), "''");
  EXPECT_EQ(cell(ole_variant::make_empty_bytes(), column(vt::vt_bstr, 10)), "''");
}

TEST(SqlGetFldAppendStr, GeometryTextIsWrapped) {
  EXPECT_EQ(cell(ole_variant(L"POINT(1 2)"), column(vt::vt_bstr, 0, false, 2)), "ST_GeomFromText('POINT(1 2)')");
  EXPECT_EQ(cell(ole_variant(L"POINT(1 2)"), column(vt::vt_bstr, 0, false, 8)), "ST_GeomFromText('POINT(1 2)')");
}

TEST(SqlGetFldAppendStr, GuidTextStaysText) {
  EXPECT_EQ(cell(ole_variant(L"01234567-89ab-cdef-0123-456789abcdef"), column(vt::vt_bstr, 36, false, 1)),
            "'01234567-89ab-cdef-0123-456789abcdef'");
}

TEST(SqlGetFldAppendStr, NumericColumnNeverGetsAQuotedText) {
  EXPECT_EQ(cell(ole_variant(L"12"), column(vt::vt_i4)), "12");
  EXPECT_EQ(cell(ole_variant(L"1.5"), column(vt::vt_decimal)), "1.5");
  EXPECT_EQ(cell(ole_variant(7), column(vt::vt_i4)), "7");
}

TEST(SqlGetFldAppendStr, TextColumnTakesTheTextOfOtherValues) {
  EXPECT_EQ(cell(ole_variant(12), column(vt::vt_bstr, 10)), "'12'");
  const std::vector<std::uint8_t> bytes = {0xAB};
  EXPECT_EQ(cell(ole_variant(bytes), column(vt::vt_bstr, 10)), "'0xAB'");
}

TEST(SqlGetFldAppendStr, DateOfNoStatedKindLeavesTheFractionOut) {
  const ole_variant v = ole_variant::from_string("2005-01-05 10:00:00.250", vt::vt_date);
  // CHAR(19) holds "yyyy-mm-dd hh:mm:ss".
  EXPECT_EQ(cell(v, column(vt::vt_date, 0, false, 0)), "'2005-01-05 10:00:00'");
  EXPECT_EQ(cell(v, column(vt::vt_date, 0, false, 1)), "'2005-01-05 10:00:00.250000'");
  t_ftd mapped = column(vt::vt_date, 0, false, 0);
  mapped.native_type = L"DATETIME(6)";
  EXPECT_EQ(cell(v, mapped), "'2005-01-05 10:00:00.250000'");
  EXPECT_EQ(cell(v, column(vt::vt_date, 0, false, 9)), "'2005-01-05 10:00:00.250000'");
}

TEST(SqlGetFldAppendStr, LargeValueIsAPlaceholderOnlyWhenPrepared) {
  test::log_capture log;
  const std::vector<std::uint8_t> big(2 * 1024 * 1024, 0x5A);
  const std::string hex = cell(ole_variant(big), column(vt::vt_bytes));
  ASSERT_EQ(hex.size(), 2 + big.size() * 2);
  EXPECT_EQ(hex.substr(0, 6), "0x5A5A");
  EXPECT_EQ(cell(ole_variant(big), column(vt::vt_bytes), true), "?");
  EXPECT_TRUE(log.has_line("Returns placeholder for prepared statement"));
  const std::vector<std::uint8_t> limit(sql_max_field_size, 0x01);
  EXPECT_NE(cell(ole_variant(limit), column(vt::vt_bytes), true), "?");
  const std::vector<std::uint8_t> over(sql_max_field_size + 1, 0x01);
  EXPECT_EQ(cell(ole_variant(over), column(vt::vt_bytes), true), "?");
  EXPECT_EQ(cell(ole_variant::make_null(), column(vt::vt_bytes), true), "NULL");
}

TEST(SqlGetFldAppendStr, TextIsUtf8AndNotesCharactersBeyondTheBmp) {
  std::string out;
  sql_render_note note;
  append_fld_str(out, field(ole_variant(L"\u00e9\u4e2d")), column(vt::vt_bstr, 10), false, &note);
  EXPECT_EQ(out, "'\xC3\xA9\xE4\xB8\xAD'");
  EXPECT_FALSE(note.beyond_bmp);
  out.clear();
  append_fld_str(out, field(ole_variant(L"\U0001F600")), column(vt::vt_bstr, 10), false, &note);
  EXPECT_EQ(out, "'\xF0\x9F\x98\x80'");
  EXPECT_TRUE(note.beyond_bmp);
}

TEST(SqlGetFldAppendStr, AppendsToWhatTheBufferHolds) {
  std::string out = "INSERT INTO t VALUES(";
  append_fld_str(out, field(ole_variant(L"x")), column(vt::vt_bstr, 10), false);
  out += ", ";
  append_fld_str(out, field(ole_variant::make_null()), column(vt::vt_i4), false);
  EXPECT_EQ(out, "INSERT INTO t VALUES('x', NULL");
  EXPECT_THROW(get_fld_append_str(nullptr, nullptr, false), tk_mail_assertion);
}

TEST(SqlIsLongValue, CountsCharactersAndBytes) {
  EXPECT_FALSE(sql_is_long_value(field(ole_variant(std::wstring(sql_max_field_size, L'x')))));
  EXPECT_TRUE(sql_is_long_value(field(ole_variant(std::wstring(sql_max_field_size + 1, L'x')))));
  EXPECT_TRUE(sql_is_long_value(field(ole_variant(std::vector<std::uint8_t>(sql_max_field_size + 1)))));
  EXPECT_FALSE(sql_is_long_value(field(ole_variant(5))));
}

// --- Values from result cells ---------------------------------------------------------------------

TEST(SqlGetVariant, NullCellIsANullValue) {
  test::log_capture log;
  const ole_variant v = get_variant(static_cast<const char*>(nullptr), 0, MYSQL_TYPE_LONG, 0);
  EXPECT_EQ(v.get_type(), vt::vt_null);
  EXPECT_TRUE(log.has_line("process NULL-values"));
}

TEST(SqlGetVariant, TextOrBytesByTheBinaryFlag) {
  sql_engine engine;
  const std::string raw("a\0\xC3\xA9", 4);
  ole_variant text = get_variant(raw.data(), 4, MYSQL_TYPE_VAR_STRING, 0);
  ASSERT_EQ(text.get_type(), vt::vt_bstr);
  EXPECT_EQ(text.text_view(), std::wstring_view(L"a\0\u00e9", 3));
  ole_variant bytes = get_variant(raw.data(), 4, MYSQL_TYPE_VAR_STRING, BINARY_FLAG);
  ASSERT_EQ(bytes.get_type(), vt::vt_bytes);
  EXPECT_EQ(bytes.bytes_view().size(), 4U);
  ole_variant blob = get_variant(raw.data(), 4, MYSQL_TYPE_BLOB, BINARY_FLAG);
  EXPECT_EQ(blob.get_type(), vt::vt_bytes);
  ole_variant long_text = get_variant(raw.data(), 4, MYSQL_TYPE_BLOB, 0);
  EXPECT_EQ(long_text.get_type(), vt::vt_bstr);
  // A binary cell of no bytes is a zero-length byte array, not NULL.
  const ole_variant none = get_variant(raw.data(), 0, MYSQL_TYPE_BLOB, BINARY_FLAG);
  EXPECT_EQ(none.get_type(), vt::vt_bytes);
  EXPECT_FALSE(none.is_empty());
  EXPECT_TRUE(none.bytes_view().empty());
  EXPECT_EQ(get_variant(L"", 0, MYSQL_TYPE_VAR_STRING, BINARY_FLAG).get_type(), vt::vt_bytes);
  engine.set_blob_to_text(true);
  EXPECT_EQ(get_variant(raw.data(), 4, MYSQL_TYPE_BLOB, BINARY_FLAG).get_type(), vt::vt_bstr);
}

TEST(SqlGetVariant, NumbersDatesAndBits) {
  sql_engine engine;
  EXPECT_EQ(get_variant("-5", 2, MYSQL_TYPE_LONG, 0).to_long(), -5);
  EXPECT_EQ(get_variant("200", 3, MYSQL_TYPE_TINY, UNSIGNED_FLAG).get_type(), vt::vt_ui1);
  const ole_variant dec = get_variant("12.50", 5, MYSQL_TYPE_NEWDECIMAL, 0);
  ASSERT_EQ(dec.get_type(), vt::vt_decimal);
  EXPECT_EQ(dec.to_string(), "12.5");
  const ole_variant date = get_variant("2005-01-05 10:00:00", 19, MYSQL_TYPE_DATETIME, 0);
  ASSERT_EQ(date.get_type(), vt::vt_date);
  EXPECT_EQ(date.to_string(), "2005-01-05 10:00:00");
  EXPECT_TRUE(get_variant("\x01", 1, MYSQL_TYPE_BIT, 0).to_bool());
  EXPECT_FALSE(get_variant("\x00", 1, MYSQL_TYPE_BIT, 0).to_bool());
}

TEST(SqlGetVariant, WideFormIsTheTwin) {
  sql_engine engine;
  EXPECT_EQ(get_variant(L"42", 2, MYSQL_TYPE_LONGLONG, 0).to_i8(), 42);
  EXPECT_EQ(get_variant(L"x\u00e9", 2, MYSQL_TYPE_VAR_STRING, 0).text_view(), L"x\u00e9");
  const ole_variant bytes = get_variant(L"\x01\xFF", 2, MYSQL_TYPE_VAR_STRING, BINARY_FLAG);
  ASSERT_EQ(bytes.get_type(), vt::vt_bytes);
  EXPECT_EQ(bytes.bytes_view()[1], 0xFF);
  EXPECT_EQ(get_variant(static_cast<const wchar_t*>(nullptr), 0, MYSQL_TYPE_LONG, 0).get_type(), vt::vt_null);
}

}  // namespace
}  // namespace qb

namespace qb {
namespace {

// The escaped body as the rules say, written out character by character.
std::string reference_escape(std::wstring_view text) {
  std::string out;
  for (const wchar_t c : text) {
    switch (c) {
      case L'\'': out += "\\'"; break;
      case L'\\': out += "\\\\"; break;
      case L'\0': out += "\\0"; break;
      case L'\r': out += "\\r"; break;
      default: {
        const auto cp = static_cast<std::uint32_t>(c) > 0x10FFFF ? 0xFFFDU : static_cast<std::uint32_t>(c);
        if (cp < 0x80) {
          out += static_cast<char>(cp);
        } else if (cp < 0x800) {
          out += static_cast<char>(0xC0 | (cp >> 6));
          out += static_cast<char>(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) {  // a lone surrogate too, as it is
          out += static_cast<char>(0xE0 | (cp >> 12));
          out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
          out += static_cast<char>(0x80 | (cp & 0x3F));
        } else {
          out += static_cast<char>(0xF0 | (cp >> 18));
          out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
          out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
          out += static_cast<char>(0x80 | (cp & 0x3F));
        }
      }
    }
  }
  return out;
}

TEST(SqlAppendEscaped, EveryAsciiCharacterAndTheirNeighboursEscapeByTheRules) {
  std::wstring all;
  for (wchar_t c = 0; c < 0x100; ++c) all += c;
  all += L"\u20ac\U0001F600";
  all += static_cast<wchar_t>(0xD800);  // a lone surrogate
  all += L"x\U0010FFFF";
  all += static_cast<wchar_t>(0x110000);  // beyond Unicode: U+FFFD
  std::string out;
  sql_append_escaped(out, all);
  EXPECT_EQ(out, reference_escape(all));
  // Runs of plain characters between the escaped ones, at either end.
  for (const std::wstring& text : {std::wstring(L"plain text only"), std::wstring(L"'start"), std::wstring(L"end\\"),
                                  std::wstring(L"a'b\\c\rd") + L'\0' + L"e", std::wstring(L"")}) {
    std::string got = "prefix:";
    sql_append_escaped(got, text);
    EXPECT_EQ(got, "prefix:" + reference_escape(text));
  }
}

TEST(SqlAppendEscaped, CharactersBeyondTheBmpAreFourBytesAndNoted) {
  sql_render_note note;
  std::string out;
  sql_append_escaped(out, L"ab\U0001F600", &note);
  EXPECT_EQ(out, "ab\xF0\x9F\x98\x80");
  EXPECT_TRUE(note.beyond_bmp);
  sql_render_note plain;
  out.clear();
  sql_append_escaped(out, L"abc\u00e4", &plain);
  EXPECT_EQ(out, "abc\xC3\xA4");
  EXPECT_FALSE(plain.beyond_bmp);
}

}  // namespace
}  // namespace qb
