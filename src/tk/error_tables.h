// The two tables of friendly messages that replace a failure's own text.
//
// tk_source_errors: 27 rows keyed by the code that a SQL Server failure
// carries. tk_destination_errors: 12 rows keyed by 0x400000 plus the MySQL
// error number, in their stored order. The entry routine builds the
// error_handler with the first and loads the second after it; the connection
// pages look codes up in the table of their own side.
//
// Thread-safety: constant data.
#pragma once

#include <array>

#include "tk/error_converter.h"

namespace qb {

extern const std::array<tk_error_row, 27> tk_source_errors;
extern const std::array<tk_error_row, 12> tk_destination_errors;

}  // namespace qb
