// Dates and times that arrive from ODBC as SQL_TIMESTAMP_STRUCT (date,
// datetime, smalldatetime, datetime2), turned into VT_DATE values.
//
// A value is what ole_variant::from_string makes of SQL Server's text for it
// ("2024-02-29" for a date; "2024-02-29 12:34:56.123456" for the others, with
// as many fraction digits as the column's scale, cut at six: a seventh digit
// is dropped, never rounded). odb_date_value builds that value straight from
// the fields, without writing and parsing the text; a struct whose fields the
// text parser would not take at face value (a field out of range, the
// time-zone switch on) goes through the text, so both ways always agree.
//
// Thread-safety: pure functions.
#pragma once

#include <sql.h>
#include <sqlext.h>

#include <cstddef>
#include <string_view>

#include "ole/variant.h"

namespace qb {

// Fraction digits a date value keeps (microseconds).
inline constexpr int odb_max_fraction_digits = 6;

// SQL Server's text of the value, written into buffer: "YYYY-MM-DD" when
// date_only, else "YYYY-MM-DD hh:mm:ss" and, for a scale above 0, a point and
// min(scale, 6) digits of the fraction.
std::string_view odb_timestamp_text(const SQL_TIMESTAMP_STRUCT& t, bool date_only, int scale, char (&buffer)[40]);

// The length of that text.
std::size_t odb_timestamp_text_size(bool date_only, int scale);

// The VT_DATE value of the struct: ole_variant::from_string of its text.
ole_variant odb_date_value(const SQL_TIMESTAMP_STRUCT& t, bool date_only, int scale);

}  // namespace qb
