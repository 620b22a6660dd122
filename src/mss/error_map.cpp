#include "mss/error_map.h"

#include <string_view>

namespace qb {

namespace {

// OLE DB result codes whose low 16 bits key the message table.
constexpr std::uint32_t db_e_schemaviolation = 0x80040E03;      // "Given values violate the database schema."
constexpr std::uint32_t db_e_cantconvertvalue = 0x80040E07;     // "Literal value could not be converted..."
constexpr std::uint32_t db_sec_e_permissiondenied = 0x80040E09;  // "You are not allowed to access..."
constexpr std::uint32_t db_e_badcolumnid = 0x80040E11;          // "Invalid column ID..."
constexpr std::uint32_t db_e_badvalues = 0x80040E13;            // "Invalid value..."
constexpr std::uint32_t db_e_duplicatedatasource = 0x80040E17;  // "Data source with the specified name..."
constexpr std::uint32_t db_e_unsupportedconversion = 0x80040E1D;  // "Requested conversion is not supported."
constexpr std::uint32_t db_e_integrityviolation = 0x80040E2F;   // "The specified record violates..."
constexpr std::uint32_t db_e_badtypename = 0x80040E30;          // "The given type name is unrecognized."
constexpr std::uint32_t db_e_duplicateindexid = 0x80040E34;     // "The specified index already exists."
constexpr std::uint32_t db_e_noindex = 0x80040E35;              // "The specified index does not exist."
constexpr std::uint32_t db_e_notable = 0x80040E37;              // "The specified table does not exist."
constexpr std::uint32_t db_e_badprecision = 0x80040E3A;         // "The specified precision is invalid."
constexpr std::uint32_t db_e_badscale = 0x80040E3B;             // "The specified scale is invalid."
constexpr std::uint32_t db_e_badtableid = 0x80040E3C;           // "Invalid table ID..."
constexpr std::uint32_t db_e_badtype = 0x80040E3D;              // "The specified type is invalid."
constexpr std::uint32_t db_e_duplicatecolumnid = 0x80040E3E;    // "The column ID is occurred more than once..."
constexpr std::uint32_t db_e_duplicatetableid = 0x80040E3F;     // "The specified table already exists..."
constexpr std::uint32_t db_e_badrecordnum = 0x80040E42;         // "The specified record number is invalid."
constexpr std::uint32_t db_sec_e_auth_failed = 0x80040E4D;      // "Invalid user name or password."
constexpr std::uint32_t db_e_badordinal = 0x80040E55;           // "The specified column did not exist."
constexpr std::uint32_t db_e_dataoverflow = 0x80040E57;         // "Literal value overflowed the range..."
constexpr std::uint32_t db_e_badindexid = 0x80040E72;           // "The index ID is invalid..."
constexpr std::uint32_t db_e_columnsincompatible = 0x80040EC1;  // "One or more column types are incompatible..."

// The table; doc/odbc-error-mapping.md gives the reason for each row.
constexpr odb_error_map_row rows[] = {
    // Logins.
    {18456, nullptr, db_sec_e_auth_failed, true},   // Login failed for user '%s'.
    {18452, nullptr, db_sec_e_auth_failed, false},  // untrusted domain (Windows authentication)
    {18470, nullptr, db_sec_e_auth_failed, false},  // the login is disabled
    {18486, nullptr, db_sec_e_auth_failed, false},  // the login is locked out
    // Databases and objects the login may not use.
    {4060, nullptr, db_sec_e_permissiondenied, false},   // cannot open database requested by the login
    {4064, nullptr, db_sec_e_permissiondenied, false},   // cannot open user default database
    {916, nullptr, db_sec_e_permissiondenied, false},    // principal cannot access the database
    {229, nullptr, db_sec_e_permissiondenied, false},    // permission denied on the object
    {230, nullptr, db_sec_e_permissiondenied, false},    // permission denied on the column
    {262, nullptr, db_sec_e_permissiondenied, false},    // permission denied in the database
    {297, nullptr, db_sec_e_permissiondenied, false},    // no permission to perform this action
    {300, nullptr, db_sec_e_permissiondenied, false},    // a server permission was denied
    {15247, nullptr, db_sec_e_permissiondenied, false},  // no permission to perform this action
    // Objects.
    {208, nullptr, db_e_notable, false},               // Invalid object name '%s'.
    {207, nullptr, db_e_badordinal, false},            // Invalid column name '%s'.
    {2714, nullptr, db_e_duplicatetableid, false},     // There is already an object named '%s'
    {1913, nullptr, db_e_duplicateindexid, false},     // an index with this name already exists
    {308, nullptr, db_e_noindex, false},               // index named in the FROM clause does not exist
    {307, nullptr, db_e_badindexid, false},            // index ID named in the FROM clause does not exist
    {103, nullptr, db_e_badtableid, false},            // identifier too long
    {1801, nullptr, db_e_duplicatedatasource, false},  // Database '%s' already exists.
    {2705, nullptr, db_e_duplicatecolumnid, false},    // column name specified more than once
    // Types and values.
    {243, nullptr, db_e_badtypename, false},            // type is not a defined system type
    {2715, nullptr, db_e_badtypename, false},           // cannot find data type
    {2750, nullptr, db_e_badprecision, false},          // precision greater than the maximum
    {192, nullptr, db_e_badscale, false},               // scale must be at most the precision
    {206, nullptr, db_e_columnsincompatible, false},    // operand type clash
    {402, nullptr, db_e_columnsincompatible, false},    // data types incompatible in an operator
    {245, nullptr, db_e_cantconvertvalue, false},       // conversion failed
    {241, nullptr, db_e_cantconvertvalue, false},       // conversion of a date/time text failed
    {8114, nullptr, db_e_cantconvertvalue, false},      // error converting data type
    {220, nullptr, db_e_dataoverflow, false},           // arithmetic overflow for a type
    {232, nullptr, db_e_dataoverflow, false},           // arithmetic overflow for a type and value
    {242, nullptr, db_e_dataoverflow, false},           // date conversion out of range
    {8115, nullptr, db_e_dataoverflow, false},          // arithmetic overflow converting
    {244, nullptr, db_e_dataoverflow, false},           // conversion overflowed a smaller integer column
    {248, nullptr, db_e_dataoverflow, false},           // conversion overflowed an int column
    {236, nullptr, db_e_dataoverflow, false},           // char to money overflowed
    {168, nullptr, db_e_dataoverflow, false},           // floating point value out of range
    {8152, nullptr, db_e_dataoverflow, false},          // string or binary data would be truncated
    {2628, nullptr, db_e_dataoverflow, false},          // the same, naming table and column
    // Rows that do not fit the table.
    {2627, nullptr, db_e_integrityviolation, false},  // PRIMARY KEY or UNIQUE violated
    {2601, nullptr, db_e_integrityviolation, false},  // duplicate key in a unique index
    {547, nullptr, db_e_integrityviolation, false},   // FOREIGN KEY or CHECK conflict
    {515, nullptr, db_e_integrityviolation, false},   // NULL into a NOT NULL column
    {213, nullptr, db_e_schemaviolation, false},      // values do not match the table definition
    {109, nullptr, db_e_schemaviolation, false},      // more columns than values
    {110, nullptr, db_e_schemaviolation, false},      // fewer columns than values
    // SQLSTATEs, for what a driver reports without a server message.
    {0, "28000", db_sec_e_auth_failed, false},         // SQLSTATE 28000: the login was refused
    {0, "42S02", db_e_notable, false},                 // base table or view not found
    {0, "42S22", db_e_badordinal, false},              // column not found
    {0, "42S01", db_e_duplicatetableid, false},        // base table or view already exists
    {0, "42S11", db_e_duplicateindexid, false},        // index already exists
    {0, "42S12", db_e_noindex, false},                 // index not found
    {0, "42S21", db_e_duplicatecolumnid, false},       // column already exists
    {0, "23000", db_e_integrityviolation, false},      // integrity constraint violation
    {0, "21S01", db_e_schemaviolation, false},         // insert value list does not match column list
    {0, "22018", db_e_cantconvertvalue, false},        // invalid character value for cast
    {0, "22007", db_e_cantconvertvalue, false},        // invalid datetime format
    {0, "22003", db_e_dataoverflow, false},            // numeric value out of range
    {0, "07006", db_e_unsupportedconversion, false},   // restricted data type attribute violation
    {0, "07009", db_e_badcolumnid, false},             // invalid descriptor index
    {0, "22008", db_e_dataoverflow, false},            // datetime field overflow
    {0, "22001", db_e_dataoverflow, false},            // string data, right truncation
    {0, "22023", db_e_badvalues, false},               // invalid parameter value
    {0, "HY004", db_e_badtype, false},                 // invalid SQL data type
    {0, "HY107", db_e_badrecordnum, false},            // row value out of range
};

std::uint32_t match(const odb_diag_record& r, bool by_native, bool& weak) {
  for (const odb_error_map_row& row : rows) {
    const bool hit = by_native ? (row.native_error != 0 && row.native_error == r.native_error)
                               : (row.sqlstate != nullptr && r.sqlstate == std::string_view(row.sqlstate));
    if (hit) {
      weak = row.weak;
      return row.hresult;
    }
  }
  return 0;
}

std::uint32_t match(const odb_diag_record& r, bool& weak) {
  weak = false;
  for (const bool by_native : {true, false}) {
    if (const std::uint32_t hr = match(r, by_native, weak)) return hr;
  }
  return 0;
}

}  // namespace

std::span<const odb_error_map_row> odb_error_map() { return rows; }

std::uint32_t odb_hresult_of(const odb_diag_record& record) {
  bool weak = false;
  return match(record, weak);
}

std::uint32_t odb_hresult_of(const std::vector<odb_diag_record>& records) {
  std::uint32_t weak_hit = 0;
  for (const odb_diag_record& r : records) {
    bool weak = false;
    const std::uint32_t hr = match(r, weak);
    if (hr == 0) continue;
    if (!weak) return hr;
    if (weak_hit == 0) weak_hit = hr;
  }
  return weak_hit != 0 ? weak_hit : odb_e_fail;
}

}  // namespace qb
