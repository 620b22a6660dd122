// Column types and default values as MySQL spells them, and the value tag of
// a MySQL result column.
#include "sql/native_type.h"

#include <gtest/gtest.h>
#include <mysql.h>

#include "sql/engine.h"
#include "tk/exception.h"

#include "support/mariadb_server.h"
#include "support/temp_dir.h"
#include "test_session.h"

namespace qb {
namespace {

using vt = ole_variant;

t_ftd column(std::uint16_t type, std::uint32_t size = 0, std::uint32_t dw_reserved = 0) {
  t_ftd f;
  f.name = L"c";
  f.vartype = type;
  f.size = size;
  f.dw_reserved = dw_reserved;
  return f;
}

t_ftd with_default(t_ftd f, std::wstring def) {
  f.def_value = ole_variant(def);
  return f;
}

std::wstring type2(const t_ftd& f) { return get_sql_native_type2(f, false); }

// --- Type names ----------------------------------------------------------------------------

TEST(SqlTypeName, TableHoldsTheTwentyEightNames) {
  EXPECT_EQ(sql_type_name(0), L"BINARY");
  EXPECT_EQ(sql_type_name(3), L"TINYINT UNSIGNED");
  EXPECT_EQ(sql_type_name(13), L"CHAR");
  EXPECT_EQ(sql_type_name(19), L"TIMESTAMP");
  EXPECT_EQ(sql_type_name(27), L"TINYTEXT");
  EXPECT_EQ(sql_type_name(sql_type_id::mediumblob), L"MEDIUMBLOB");
}

TEST(SqlTypeName, UnknownIdIsLoggedAndNamedUnknown) {
  test::log_capture log;
  EXPECT_EQ(sql_type_name(28), L"<Unknown type>");
  EXPECT_EQ(sql_type_name(-1), L"<Unknown type>");
  EXPECT_TRUE(log.has_line("Type 28 wasn't found"));
}

// --- Text ------------------------------------------------------------------------------------

TEST(SqlNativeType2, TextSizesChooseVarcharMediumtextLongtext) {
  sql_engine engine;
  EXPECT_EQ(type2(column(vt::vt_bstr, 1)), L"VARCHAR(1)");
  EXPECT_EQ(type2(column(vt::vt_bstr, 21845)), L"VARCHAR(21845)");
  EXPECT_EQ(type2(column(vt::vt_bstr, 21846)), L"MEDIUMTEXT");
  EXPECT_EQ(type2(column(vt::vt_bstr, 5592405)), L"MEDIUMTEXT");
  EXPECT_EQ(type2(column(vt::vt_bstr, 5592406)), L"LONGTEXT");
  EXPECT_EQ(type2(column(vt::vt_bstr, 0)), L"LONGTEXT");
}

TEST(SqlNativeType2, NoSizeGivesTheBareName) {
  sql_engine engine;
  EXPECT_EQ(get_sql_native_type2(column(vt::vt_bstr, 20), true), L"VARCHAR");
  EXPECT_EQ(get_sql_native_type2(column(vt::vt_bytes, 20), true), L"VARBINARY");
  EXPECT_EQ(get_sql_native_type2(column(vt::vt_cy), true), L"DECIMAL");
  EXPECT_EQ(get_sql_native_type2(column(vt::vt_date), true), L"CHAR");
  EXPECT_EQ(get_sql_native_type2(column(vt::vt_bstr, 8, 16), true), L"CHAR");
  auto dec = column(vt::vt_decimal);
  dec.prec = 10;
  EXPECT_EQ(get_sql_native_type2(dec, true), L"DECIMAL");
}

TEST(SqlNativeType2, GeometryTextIsLowerCaseGeometryWhateverTheSize) {
  sql_engine engine;
  EXPECT_EQ(type2(column(vt::vt_bstr, 100, 2)), L"geometry");
  EXPECT_EQ(type2(column(vt::vt_bstr, 0, 8)), L"geometry");
  EXPECT_EQ(get_sql_native_type2(column(vt::vt_bstr, 100, 2), true), L"geometry");
}

TEST(SqlNativeType2, FixedWidthTextIsChar) {
  sql_engine engine;
  EXPECT_EQ(type2(column(vt::vt_bstr, 10, 16)), L"CHAR(10)");
}

TEST(SqlNativeType2, BinaryTextFlagAppendsBinary) {
  sql_engine engine;
  test::log_capture log;
  engine.set_binary_text(true);
  EXPECT_EQ(type2(column(vt::vt_bstr, 30)), L"VARCHAR(30) BINARY");
  EXPECT_EQ(type2(column(vt::vt_bstr, 30000)), L"MEDIUMTEXT BINARY");
  EXPECT_EQ(type2(column(vt::vt_bstr, 0)), L"LONGTEXT");
  EXPECT_TRUE(log.has_line("settings BINARY for VARCHAR"));
  engine.set_binary_text(false);
  EXPECT_EQ(type2(column(vt::vt_bstr, 30)), L"VARCHAR(30)");
  EXPECT_TRUE(log.has_line("case insensitive VARCHAR"));
}

// --- Binary ------------------------------------------------------------------------------------

TEST(SqlNativeType2, BinarySizesChooseVarbinaryBlobMediumblobLongblob) {
  sql_engine engine;
  for (std::uint16_t type : {vt::vt_bytes, vt::vt_blob}) {
    EXPECT_EQ(type2(column(type, 255)), L"VARBINARY(255)");
    EXPECT_EQ(type2(column(type, 256)), L"BLOB");
    EXPECT_EQ(type2(column(type, 65535)), L"BLOB");
    EXPECT_EQ(type2(column(type, 65536)), L"MEDIUMBLOB");
    EXPECT_EQ(type2(column(type, 16777215)), L"MEDIUMBLOB");
    EXPECT_EQ(type2(column(type, 16777216)), L"LONGBLOB");
    EXPECT_EQ(type2(column(type, 0)), L"LONGBLOB");
  }
}

// --- Numbers -----------------------------------------------------------------------------------

TEST(SqlNativeType2, IntegerAndRealTags) {
  sql_engine engine;
  EXPECT_EQ(type2(column(vt::vt_i2)), L"SMALLINT");
  EXPECT_EQ(type2(column(vt::vt_i4)), L"INT");
  EXPECT_EQ(type2(column(vt::vt_int)), L"INT");
  EXPECT_EQ(type2(column(vt::vt_r4)), L"FLOAT");
  EXPECT_EQ(type2(column(vt::vt_r8)), L"DOUBLE");
  EXPECT_EQ(type2(column(vt::vt_bool)), L"BIT");
  EXPECT_EQ(type2(column(vt::vt_i1)), L"TINYINT");
  EXPECT_EQ(type2(column(vt::vt_ui1)), L"TINYINT UNSIGNED");
  EXPECT_EQ(type2(column(vt::vt_ui2)), L"SMALLINT UNSIGNED");
  EXPECT_EQ(type2(column(vt::vt_ui4)), L"INT UNSIGNED");
  EXPECT_EQ(type2(column(vt::vt_uint)), L"INT UNSIGNED");
  EXPECT_EQ(type2(column(vt::vt_i8)), L"BIGINT");
  EXPECT_EQ(type2(column(vt::vt_ui8)), L"BIGINT UNSIGNED");
}

TEST(SqlNativeType2, DecimalWithoutPrecisionIsDouble) {
  sql_engine engine;
  auto f = column(vt::vt_decimal);
  EXPECT_EQ(type2(f), L"DOUBLE");
  f.prec = 18;
  EXPECT_EQ(type2(f), L"DECIMAL(18,0)");
  f.prec = 38;
  f.scale = 10;
  EXPECT_EQ(type2(f), L"DECIMAL(38,10)");
}

TEST(SqlNativeType2, MoneyIsAlwaysDecimal19Comma4) {
  sql_engine engine;
  auto f = column(vt::vt_cy);
  EXPECT_EQ(type2(f), L"DECIMAL(19,4)");
  f.prec = 10;
  f.scale = 2;
  EXPECT_EQ(type2(f), L"DECIMAL(19,4)");
}

TEST(SqlNativeType2, UnknownTagIsAnInternalError) {
  sql_engine engine;
  EXPECT_THROW(type2(column(vt::vt_lpstr)), tk_mail_assertion);
  EXPECT_THROW(type2(column(vt::vt_blob_object)), tk_mail_assertion);
  EXPECT_THROW(type2(column(vt::vt_empty)), tk_mail_assertion);
}

// --- Dates ---------------------------------------------------------------------------------------

TEST(SqlNativeType2, DateKindsChooseTheirTypes) {
  sql_engine engine;
  test::log_capture log;
  EXPECT_EQ(type2(column(vt::vt_date, 0, 0)), L"CHAR(19)");
  EXPECT_EQ(type2(column(vt::vt_date, 0, 1)), L"DATETIME");
  EXPECT_EQ(type2(column(vt::vt_date, 0, 2)), L"DATE");
  EXPECT_EQ(type2(column(vt::vt_date, 0, 3)), L"TIME");
  EXPECT_EQ(type2(column(vt::vt_date, 0, 9)), L"TIMESTAMP");
  EXPECT_EQ(type2(column(vt::vt_date, 0, 10)), L"DATE");
  EXPECT_EQ(type2(column(vt::vt_date, 0, 11)), L"TIME");
  // A datetimeoffset carried as a date keeps the kind bits.
  EXPECT_EQ(type2(column(vt::vt_date, 0, 16 | 1)), L"DATETIME");
  EXPECT_TRUE(log.has_line("MySQL ver >= 5.6.4, modern datetime can be used"));
  EXPECT_TRUE(log.has_line("MySQL ver >= 5.6.4, modern time can be used"));
  EXPECT_TRUE(log.has_line("Got pure date"));
}

TEST(SqlNativeType2, FractionsOfASecondWhereTheDestinationKeepsThem) {
  sql_engine engine;
  auto with_scale = [](std::uint32_t dw, std::uint32_t scale) {
    t_ftd f = column(vt::vt_date, 0, dw);
    f.scale = scale;
    return f;
  };
  engine.set_fractional_seconds(true);
  EXPECT_EQ(type2(with_scale(1, 3)), L"DATETIME(3)");       // SQL Server datetime
  EXPECT_EQ(type2(with_scale(1, 7)), L"DATETIME(6)");       // datetime2(7): six digits at most
  EXPECT_EQ(type2(with_scale(16 | 1, 5)), L"DATETIME(5)");  // datetimeoffset(5)
  EXPECT_EQ(type2(with_scale(3, 2)), L"TIME(2)");           // time(2)
  EXPECT_EQ(type2(with_scale(1, 0)), L"DATETIME");          // smalldatetime
  EXPECT_EQ(type2(with_scale(2, 3)), L"DATE");
  EXPECT_EQ(type2(with_scale(9, 3)), L"TIMESTAMP");
  EXPECT_EQ(get_sql_native_type2(with_scale(1, 3), true), L"DATETIME");
  // Older servers keep the plain types: the fraction of each value is lost there.
  engine.set_fractional_seconds(false);
  EXPECT_EQ(type2(with_scale(1, 3)), L"DATETIME");
  EXPECT_EQ(type2(with_scale(3, 7)), L"TIME");
}

TEST(SqlNativeType2, FractionalSecondsFollowTheServerAndTheDumpDialect) {
  sql_engine engine;
  EXPECT_FALSE(engine.fractional_seconds());  // nothing known before a connection
  const auto& server = test::mariadb_server::main();
  test::connect_engine(engine, server, server.account());
  EXPECT_TRUE(engine.fractional_seconds());  // MariaDB 10.11
  EXPECT_TRUE(engine.is_mariadb());
  // A server announcing MySQL 5.5 keeps no fractions.
  sql_engine old_engine;
  const auto& old_server = test::mariadb_server::announcing("5.5.2");
  test::connect_engine(old_engine, old_server, old_server.account());
  EXPECT_FALSE(old_engine.fractional_seconds());
}

TEST(SqlNativeType2, DateWithoutStatedKindIsChar19) {
  sql_engine engine;
  EXPECT_EQ(type2(column(vt::vt_date)), L"CHAR(19)");
  EXPECT_EQ(type2(with_default(column(vt::vt_date), L"2005-01-05")), L"CHAR(19)");
}

TEST(SqlNativeType2, CurrentMomentDefaultsMakeTimestamp) {
  sql_engine engine;
  test::log_capture log;
  for (const wchar_t* def : {L"GETDATE()", L"getdate()", L"now()", L"SYSDATE", L"getutcdate()", L"current_timestamp"}) {
    EXPECT_EQ(type2(with_default(column(vt::vt_date, 0, 1), def)), L"TIMESTAMP") << def;
  }
  EXPECT_TRUE(log.has_line("Customize date type due to NOW() def.value"));
  EXPECT_TRUE(log.has_line("Got date def.value: 'GETDATE()'"));
}

TEST(SqlNativeType2, DateFunctionDefaultMakesDate) {
  sql_engine engine;
  EXPECT_EQ(type2(with_default(column(vt::vt_date, 0, 1), L"DATE()")), L"DATE");
  EXPECT_EQ(type2(with_default(column(vt::vt_date, 0, 3), L"date()")), L"DATE");
}

TEST(SqlMakeDefVal, GetdateDefaultIsCurrentTimestamp) {
  sql_engine engine;
  const t_ftd f = with_default(column(vt::vt_date, 0, 1), L"GETDATE()");
  EXPECT_EQ(type2(f), L"TIMESTAMP");
  EXPECT_EQ(make_mysql_def_val(f), L"CURRENT_TIMESTAMP");
}

TEST(SqlMakeDefVal, GetutcdateMakesTimestampButIsParsedAsADate) {
  sql_engine engine;
  test::log_capture log;
  const t_ftd f = with_default(column(vt::vt_date, 0, 1), L"getutcdate()");
  EXPECT_EQ(type2(f), L"TIMESTAMP");
  // No special form: the text is read as a date, which it is not.
  EXPECT_EQ(make_mysql_def_val(f), L"");
  EXPECT_TRUE(log.has_line("Got DATE def value"));
  EXPECT_FALSE(log.has_line("Special processing for getdate()"));
}

TEST(SqlMakeDefVal, CurrentMomentFlagsIgnoreTheText) {
  sql_engine engine;
  EXPECT_EQ(make_mysql_def_val(column(vt::vt_date, 0, 9)), L"CURRENT_TIMESTAMP");
  EXPECT_EQ(make_mysql_def_val(column(vt::vt_date, 0, 10)), L"CURRENT_DATE()");
  EXPECT_EQ(make_mysql_def_val(column(vt::vt_date, 0, 11)), L"CURRENT_TIME()");
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_date, 0, 9), L"junk")), L"CURRENT_TIMESTAMP");
}

TEST(SqlMakeDefVal, DateTextsAreCanonisedInDoubleQuotes) {
  sql_engine engine;
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_date, 0, 1), L"2005/1/5 10:00")), L"\"2005-01-05 10:00:00\"");
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_date, 0, 2), L"2005-01-05 10:00:00")), L"\"2005-01-05\"");
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_date, 0, 3), L"10:15:30")), L"\"10:15:30\"");
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_date, 0, 1), L"sysdate()")), L"CURRENT_TIMESTAMP");
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_date, 0, 1), L"not a date")), L"");
}

// --- Other defaults ------------------------------------------------------------------------------

TEST(SqlMakeDefVal, IntegerDefaultMustSurviveTheRoundTrip) {
  sql_engine engine;
  test::log_capture log;
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_i4), L"(0)")), L"");
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_i4), L"0")), L"0");
  EXPECT_TRUE(log.has_line("Int/long default value is correct"));
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_i2), L"-12")), L"-12");
  for (const wchar_t* bad : {L"007", L"1.0", L"+1", L" 5", L"99999999999"}) {
    EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_i4), bad)), L"") << bad;
  }
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_bool), L"1")), L"1");
}

TEST(SqlMakeDefVal, SixtyFourBitDefaultsRoundTrip) {
  sql_engine engine;
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_i8), L"-9223372036854775808")), L"-9223372036854775808");
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_i8), L"9223372036854775808")), L"");
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_ui8), L"18446744073709551615")), L"18446744073709551615");
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_ui8), L"-1")), L"");
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_ui8), L"x")), L"");
}

TEST(SqlMakeDefVal, DecimalZeroDefaultKeptAndWordDropped) {
  sql_engine engine;
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_decimal), L"0.00")), L"0.00");
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_decimal), L"abc")), L"");
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_r8), L"1.5e3")), L"1.5e3");
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_cy), L"-0.0")), L"-0.0");
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_r4), L"0x")), L"");
}

TEST(SqlMakeDefVal, TextDefaultIsAQuotedLiteral) {
  sql_engine engine;
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_bstr, 20), L"it's")), L"'it\\'s'");
  // A source default of two quotes is the empty text.
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_bstr, 20), L"''")), L"''");
  EXPECT_EQ(make_mysql_def_val(column(vt::vt_bstr, 20)), L"");
}

TEST(SqlMakeDefVal, OracleStyleTimestampTextIsDroppedLoudly) {
  sql_engine engine;
  test::log_capture log(3);
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_bstr, 20), L"to_char(sysdate,'yyyy-mm-dd hh24:mi:ss')")),
            L"");
  EXPECT_TRUE(log.has_line("Cannot set def.value as current timetsamp for varchar column"));
}

TEST(SqlMakeDefVal, NewidAndOtherTypesGetNoDefault) {
  sql_engine engine;
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_i4), L"NEWID()")), L"");
  EXPECT_EQ(make_mysql_def_val(with_default(column(vt::vt_bytes, 10), L"0x00")), L"");
  EXPECT_EQ(make_mysql_def_val(column(vt::vt_i4)), L"");
}

TEST(SqlMakeDefVal, NullFieldIsAnInternalError) {
  EXPECT_THROW(make_mysql_def_val(static_cast<const t_ftd*>(nullptr)), tk_mail_assertion);
}

// --- Type map rows --------------------------------------------------------------------------------

TEST(SqlNativeType1, SizesFollowTheLeadingName) {
  sql_native_type t;
  t.name = L"VARCHAR";
  t.size = 40;
  EXPECT_EQ(get_sql_native_type1(t), L"VARCHAR(40)");
  t.name = L"VARCHAR BINARY";
  EXPECT_EQ(get_sql_native_type1(t), L"VARCHAR BINARY(40)");
  t.name = L"CHAR";
  EXPECT_EQ(get_sql_native_type1(t), L"CHAR(40)");
  t.name = L"DECIMAL";
  t.precision = 12;
  t.scale = 3;
  EXPECT_EQ(get_sql_native_type1(t), L"DECIMAL(12,3)");
  t.name = L"LONGTEXT";
  EXPECT_EQ(get_sql_native_type1(t), L"LONGTEXT");
}

TEST(SqlNativeType1, BinaryTypesTakeTheirLength) {
  sql_native_type t;
  t.size = 16;
  t.name = L"VARBINARY";
  EXPECT_EQ(get_sql_native_type1(t), L"VARBINARY(16)");
  t.name = L"BINARY";
  EXPECT_EQ(get_sql_native_type1(t), L"BINARY(16)");
  t.size = 255;
  t.name = L"VARBINARY";
  EXPECT_EQ(get_sql_native_type1(t), L"VARBINARY(255)");
}

TEST(SqlNativeType1, BinaryTypesWithoutALengthTakeEveryValue) {
  test::log_capture capture;
  sql_native_type t;
  t.name = L"VARBINARY";
  EXPECT_EQ(get_sql_native_type1(t), L"LONGBLOB");
  t.name = L"BINARY";
  EXPECT_EQ(get_sql_native_type1(t), L"LONGBLOB");
  EXPECT_TRUE(capture.has_line("Binary type 'BINARY' without a length; LONGBLOB takes its values"));
}

// --- MySQL result columns ---------------------------------------------------------------------------

TEST(SqlGetVartype, MapsClientFieldTypes) {
  sql_engine engine;
  EXPECT_EQ(get_vartype(MYSQL_TYPE_DECIMAL, 0), vt::vt_decimal);
  EXPECT_EQ(get_vartype(MYSQL_TYPE_NEWDECIMAL, 0), vt::vt_decimal);
  EXPECT_EQ(get_vartype(MYSQL_TYPE_TINY, 0), vt::vt_i1);
  EXPECT_EQ(get_vartype(MYSQL_TYPE_TINY, UNSIGNED_FLAG), vt::vt_ui1);
  EXPECT_EQ(get_vartype(MYSQL_TYPE_SHORT, 0), vt::vt_i2);
  EXPECT_EQ(get_vartype(MYSQL_TYPE_SHORT, UNSIGNED_FLAG), vt::vt_ui2);
  EXPECT_EQ(get_vartype(MYSQL_TYPE_LONG, 0), vt::vt_i4);
  EXPECT_EQ(get_vartype(MYSQL_TYPE_LONG, UNSIGNED_FLAG), vt::vt_ui4);
  EXPECT_EQ(get_vartype(MYSQL_TYPE_FLOAT, 0), vt::vt_r4);
  EXPECT_EQ(get_vartype(MYSQL_TYPE_DOUBLE, 0), vt::vt_r8);
  for (auto t : {MYSQL_TYPE_TIMESTAMP, MYSQL_TYPE_DATE, MYSQL_TYPE_TIME, MYSQL_TYPE_DATETIME}) {
    EXPECT_EQ(get_vartype(t, 0), vt::vt_date);
  }
  EXPECT_EQ(get_vartype(MYSQL_TYPE_LONGLONG, 0), vt::vt_i8);
  EXPECT_EQ(get_vartype(MYSQL_TYPE_LONGLONG, UNSIGNED_FLAG), vt::vt_ui8);
  EXPECT_EQ(get_vartype(MYSQL_TYPE_INT24, UNSIGNED_FLAG), vt::vt_i4);
  EXPECT_EQ(get_vartype(MYSQL_TYPE_YEAR, 0), vt::vt_ui2);
  EXPECT_EQ(get_vartype(MYSQL_TYPE_BIT, 0), vt::vt_bool);
  EXPECT_EQ(get_vartype(MYSQL_TYPE_VAR_STRING, 0), vt::vt_bstr);
  EXPECT_EQ(get_vartype(MYSQL_TYPE_VAR_STRING, BINARY_FLAG), vt::vt_bytes);
  EXPECT_EQ(get_vartype(MYSQL_TYPE_STRING, BINARY_FLAG), vt::vt_bstr);
  EXPECT_EQ(get_vartype(MYSQL_TYPE_GEOMETRY, 0), vt::vt_bstr);
}

TEST(SqlGetVartype, BlobsFollowBlobToText) {
  sql_engine engine;
  for (auto t : {MYSQL_TYPE_TINY_BLOB, MYSQL_TYPE_MEDIUM_BLOB, MYSQL_TYPE_LONG_BLOB, MYSQL_TYPE_BLOB}) {
    engine.set_blob_to_text(false);
    EXPECT_EQ(get_vartype(t, 0), vt::vt_bytes);
    engine.set_blob_to_text(true);
    EXPECT_EQ(get_vartype(t, BINARY_FLAG), vt::vt_bstr);
  }
}

}  // namespace
}  // namespace qb
