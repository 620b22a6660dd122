#include "mss/columns.h"

#include "mss/odbc.h"
#include "mss/utf16.h"
#include "ole/variant.h"
#include "tk/log.h"
#include "tk/strings.h"

namespace qb {

namespace {

// Declared lengths from this on mean "no limit" (2^30 - 1 is ntext's).
constexpr SQLULEN unlimited_size = 0x3FFFFFFF;

std::wstring column_text_attribute(const odb_statement& statement, SQLUSMALLINT column, SQLUSMALLINT field) {
  std::u16string buffer(256, u'\0');
  SQLSMALLINT bytes = 0;
  const SQLRETURN rc =
      SQLColAttributeW(statement.get(), column, field, odb_sqlwchar(buffer),
                       static_cast<SQLSMALLINT>(buffer.size() * sizeof(SQLWCHAR)), &bytes, nullptr);
  if (!odb_succeeded(rc)) return {};
  const std::size_t units =
      std::min(static_cast<std::size_t>(std::max<SQLSMALLINT>(bytes, 0)) / sizeof(SQLWCHAR), buffer.size() - 1);
  return odb_from_utf16(std::u16string_view(buffer.data(), units));
}

}  // namespace

bool odb_column::is_long() const {
  switch (dbtype) {
    case odb_dbtype::str:
    case odb_dbtype::wstr:
    case odb_dbtype::bytes:
      return size == 0 || size > 8000;
    case odb_dbtype::xml:
    case odb_dbtype::udt:
    case odb_dbtype::variant:
      return true;
    default:
      return false;
  }
}

std::uint16_t odb_dbtype_of(SQLSMALLINT sql_type, std::wstring_view type_name) {
  switch (sql_type) {
    case SQL_BIT:
      return odb_dbtype::boolean;
    case SQL_TINYINT:
      return odb_dbtype::ui1;
    case SQL_SMALLINT:
      return odb_dbtype::i2;
    case SQL_INTEGER:
      return odb_dbtype::i4;
    case SQL_BIGINT:
      return odb_dbtype::i8;
    case SQL_REAL:
      return odb_dbtype::r4;
    case SQL_FLOAT:
    case SQL_DOUBLE:
      return odb_dbtype::r8;
    case SQL_DECIMAL:
    case SQL_NUMERIC:
      // money and smallmoney come as decimals; the providers gave currency.
      if (tk_equal_no_case(type_name, L"money") || tk_equal_no_case(type_name, L"smallmoney")) return odb_dbtype::cy;
      return odb_dbtype::numeric;
    case SQL_CHAR:
    case SQL_VARCHAR:
    case SQL_LONGVARCHAR:
      return odb_dbtype::str;
    case SQL_WCHAR:
    case SQL_WVARCHAR:
    case SQL_WLONGVARCHAR:
      return odb_dbtype::wstr;
    case SQL_BINARY:
    case SQL_VARBINARY:
    case SQL_LONGVARBINARY:
      return odb_dbtype::bytes;
    case SQL_GUID:
      return odb_dbtype::guid;
    case SQL_TYPE_DATE:
      return odb_dbtype::dbdate;
    case SQL_TYPE_TIME:
    case odb_sql_ss_time2:
      return odb_dbtype::dbtime2;
    case SQL_TYPE_TIMESTAMP:
      return odb_dbtype::dbtimestamp;
    case odb_sql_ss_timestampoffset:
      return odb_dbtype::dbtimestampoffset;
    case odb_sql_ss_xml:
      return odb_dbtype::xml;
    case odb_sql_ss_udt:
      return odb_dbtype::udt;
    case odb_sql_ss_variant:
      return odb_dbtype::variant;
    default:
      return odb_dbtype::bytes;  // read as bytes: nothing is lost
  }
}

std::uint32_t odb_provider_size(std::uint16_t dbtype, SQLSMALLINT sql_type, SQLULEN column_size) {
  switch (dbtype) {
    case odb_dbtype::boolean:
    case odb_dbtype::i2:
      return 2;
    case odb_dbtype::ui1:
      return 1;
    case odb_dbtype::i4:
    case odb_dbtype::r4:
      return 4;
    case odb_dbtype::i8:
    case odb_dbtype::r8:
    case odb_dbtype::cy:
      return 8;
    case odb_dbtype::numeric:
      return 19;
    case odb_dbtype::guid:
      return 16;
    case odb_dbtype::dbdate:
      return 6;
    case odb_dbtype::dbtime2:
      return 10;
    case odb_dbtype::dbtimestamp:
      return 16;
    case odb_dbtype::dbtimestampoffset:
      return 20;
    case odb_dbtype::xml:
    case odb_dbtype::udt:
    case odb_dbtype::variant:
      return 0;
    default:
      break;
  }
  if (sql_type == SQL_LONGVARCHAR || sql_type == SQL_WLONGVARCHAR || sql_type == SQL_LONGVARBINARY) return 0;
  if (column_size == 0 || column_size >= unlimited_size) return 0;
  return static_cast<std::uint32_t>(column_size);
}

std::uint16_t odb_get_vartype(std::uint16_t dbtype, std::uint32_t /*size*/, std::uint32_t /*flags*/,
                              std::uint32_t& reserved, bool dates_native) {
  reserved = 0;
  switch (dbtype) {
    case 2:
    case 3:
    case 4:
    case 5:
    case 6:
      return dbtype;
    case 7:
    case 133:
      if (dates_native) reserved = 2;
      return ole_variant::vt_date;
    case 8:
    case 129:
    case 130:
      return ole_variant::vt_bstr;
    case 72:
      reserved = 1;
      return ole_variant::vt_bstr;
    case 11:
      return ole_variant::vt_bool;
    case 14:
    case 131:
      return ole_variant::vt_decimal;
    case 16:
    case 17:
    case 18:
    case 19:
    case 20:
    case 21:
      return dbtype;
    case 134:
    case 145:
      if (dates_native) reserved = 3;
      return ole_variant::vt_date;
    case 135:
    case 146:
    case 212:
      reserved = 1;
      return ole_variant::vt_date;
    case 141:
      LOG(2, "Got DBTYPE_XML, set dw_reserved = 11");
      reserved = 11;
      return ole_variant::vt_bstr;
    default:
      return ole_variant::vt_bytes;
  }
}

std::vector<odb_column> odb_describe_columns(const odb_statement& statement) {
  const SQLSMALLINT n = statement.column_count();
  std::vector<odb_column> columns(static_cast<std::size_t>(std::max<SQLSMALLINT>(n, 0)));
  for (SQLSMALLINT i = 0; i < n; ++i) {
    odb_column& c = columns[static_cast<std::size_t>(i)];
    const auto number = static_cast<SQLUSMALLINT>(i + 1);
    std::u16string name(256, u'\0');
    SQLSMALLINT name_length = 0;
    SQLSMALLINT nullable = SQL_NULLABLE_UNKNOWN;
    SQLRETURN rc = SQLDescribeColW(statement.get(), number, odb_sqlwchar(name), static_cast<SQLSMALLINT>(name.size()),
                                   &name_length, &c.sql_type, &c.column_size, &c.decimal_digits, &nullable);
    if (rc == SQL_SUCCESS_WITH_INFO && name_length >= static_cast<SQLSMALLINT>(name.size())) {
      name.assign(static_cast<std::size_t>(name_length) + 1, u'\0');
      rc = SQLDescribeColW(statement.get(), number, odb_sqlwchar(name), static_cast<SQLSMALLINT>(name.size()),
                           &name_length, &c.sql_type, &c.column_size, &c.decimal_digits, &nullable);
    }
    statement.check(rc, "SQLDescribeColW");
    const std::size_t units =
        std::min(static_cast<std::size_t>(std::max<SQLSMALLINT>(name_length, 0)), name.size() - 1);
    c.name = odb_from_utf16(std::u16string_view(name.data(), units));
    c.nullable = nullable != SQL_NO_NULLS;
    c.flags = c.nullable ? odb_flag_nullable : 0;
    c.type_name = column_text_attribute(statement, number, SQL_DESC_TYPE_NAME);
    c.dbtype = odb_dbtype_of(c.sql_type, c.type_name);
    c.size = odb_provider_size(c.dbtype, c.sql_type, c.column_size);
  }
  return columns;
}

}  // namespace qb
