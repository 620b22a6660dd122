// From ODBC diagnostics to the codes of the SQL Server message table.
//
// The error handler's table of SQL Server messages (tk/error_tables.h) is
// keyed by 0x80000 | the low 16 bits of an OLE DB result code (DB_E_NOTABLE,
// 0x80040E37, keys "The specified table does not exist."). ODBC reports a
// failure as SQLSTATE and native error instead. odb_error_map is the one
// table that joins the two; doc/odbc-error-mapping.md explains each row and
// lists the message rows that no ODBC diagnostic leads to.
//
// A record matches a row by its native error (SQL Server's message number)
// first, then by its SQLSTATE. Over the records of one failure, the first
// record that matches a row decides; a "weak" row decides only when no record
// matches another row: SQL Server follows every specific login refusal (4060,
// a database that cannot be opened) with 18456 "Login failed", and FreeTDS
// puts 18456 first.
//
// Thread-safety: constant data and pure functions.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "mss/exception.h"

namespace qb {

struct odb_error_map_row {
  std::int32_t native_error;  // SQL Server message number; 0: the row matches by SQLSTATE
  const char* sqlstate;       // five characters; null when the row matches by native error
  std::uint32_t hresult;      // OLE DB style result code
  bool weak;
};

// OLE DB result codes used by the table.
inline constexpr std::uint32_t odb_e_fail = 0x80004005;

// The rows, in the order they are tried within one record (native errors
// before SQLSTATEs).
std::span<const odb_error_map_row> odb_error_map();

// The result code of one record, 0 when no row matches it.
std::uint32_t odb_hresult_of(const odb_diag_record& record);
// The result code of a failure: see above; odb_e_fail when no record matches.
std::uint32_t odb_hresult_of(const std::vector<odb_diag_record>& records);
// The exception code of a result code: 0x80000 | its low 16 bits.
constexpr std::uint32_t odb_code_of(std::uint32_t hresult) { return 0x80000U | (hresult & 0xFFFFU); }

}  // namespace qb
