// The columns of a SQL Server result as the program types them.
//
// ODBC describes a column by an SQL type code, a size, decimal digits and
// nullability; SQL Server's drivers add their own codes (time -154,
// datetimeoffset -155, xml -152, UDTs -151). The program types a column by
// the OLE DB type code (DBTYPE) that SQL Server's OLE DB providers gave it,
// and from that code by a value tag (odb_get_vartype). odb_column keeps both
// descriptions; odb_describe_columns fills them for an executed statement.
//
// Sizes follow the OLE DB providers: characters for text, bytes for binary,
// the width in bytes of a fixed-size type (int 4, datetime 16, decimal 19,
// uniqueidentifier 16, ...), and 0 for a column without a limit ((max),
// text, ntext, image, xml, CLR types).
//
// Thread-safety: plain values and pure functions.
#pragma once

#include <sql.h>
#include <sqlext.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qb {

class odb_statement;

// OLE DB type codes of SQL Server columns.
namespace odb_dbtype {
inline constexpr std::uint16_t i2 = 2;
inline constexpr std::uint16_t i4 = 3;
inline constexpr std::uint16_t r4 = 4;
inline constexpr std::uint16_t r8 = 5;
inline constexpr std::uint16_t cy = 6;
inline constexpr std::uint16_t date = 7;
inline constexpr std::uint16_t bstr = 8;
inline constexpr std::uint16_t boolean = 11;
inline constexpr std::uint16_t variant = 12;
inline constexpr std::uint16_t decimal = 14;
inline constexpr std::uint16_t ui1 = 17;
inline constexpr std::uint16_t i8 = 20;
inline constexpr std::uint16_t guid = 72;
inline constexpr std::uint16_t bytes = 128;
inline constexpr std::uint16_t str = 129;
inline constexpr std::uint16_t wstr = 130;
inline constexpr std::uint16_t numeric = 131;
inline constexpr std::uint16_t udt = 132;
inline constexpr std::uint16_t dbdate = 133;
inline constexpr std::uint16_t dbtime = 134;
inline constexpr std::uint16_t dbtimestamp = 135;
inline constexpr std::uint16_t xml = 141;
inline constexpr std::uint16_t dbtime2 = 145;
inline constexpr std::uint16_t dbtimestampoffset = 146;
}  // namespace odb_dbtype

// SQL Server's own ODBC type codes (Microsoft's drivers and FreeTDS agree).
inline constexpr SQLSMALLINT odb_sql_ss_variant = -150;
inline constexpr SQLSMALLINT odb_sql_ss_udt = -151;
inline constexpr SQLSMALLINT odb_sql_ss_xml = -152;
inline constexpr SQLSMALLINT odb_sql_ss_time2 = -154;
inline constexpr SQLSMALLINT odb_sql_ss_timestampoffset = -155;

// The flag of a nullable column in the flags word given to odb_get_vartype
// (DBCOLUMNFLAGS_ISNULLABLE).
inline constexpr std::uint32_t odb_flag_nullable = 0x20;

struct odb_column {
  std::wstring name;
  SQLSMALLINT sql_type = 0;       // as the driver reported it
  SQLULEN column_size = 0;        // as the driver reported it
  SQLSMALLINT decimal_digits = 0;  // scale of decimals, fraction digits of times
  bool nullable = true;
  std::wstring type_name;         // the server's type name ("money", "xml", "geography")
  std::uint16_t dbtype = 0;       // the OLE DB type code
  std::uint32_t size = 0;         // the OLE DB provider's size (see above)
  std::uint32_t flags = 0;        // odb_flag_nullable when nullable

  // True for a column whose values have no upper length: read in pieces.
  [[nodiscard]] bool is_long() const;
};

// The OLE DB type code of an ODBC column.
std::uint16_t odb_dbtype_of(SQLSMALLINT sql_type, std::wstring_view type_name);

// The OLE DB provider's size of a column (see above).
std::uint32_t odb_provider_size(std::uint16_t dbtype, SQLSMALLINT sql_type, SQLULEN column_size);

// The value tag of a column of an OLE DB type, and in reserved its sub-type
// code. Codes below 2, above 212 and unlisted give 8209 (bytes). Pure date
// (2) and pure time (3) are only told when dates_native is set: the server
// is SQL Server 2008 or later and the driver reports date, time, datetime2
// and datetimeoffset as their own types. Logs "Got DBTYPE_XML, set
// dw_reserved = 11" for XML.
std::uint16_t odb_get_vartype(std::uint16_t dbtype, std::uint32_t size, std::uint32_t flags,
                              std::uint32_t& reserved, bool dates_native);

// The columns of the statement's current result. Throws odb_exception.
std::vector<odb_column> odb_describe_columns(const odb_statement& statement);

}  // namespace qb
