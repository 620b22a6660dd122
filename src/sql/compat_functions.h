// The compatibility functions: small MySQL stored functions that stand in for
// SQL Server functions a view may call, and how their statements are issued.
//
// SQL Server's DATEADD and DATEDIFF take the unit as their first argument;
// MySQL's functions do not. The table holds one function per unit
// (DATEADD_DAY(cnt, d), DATEDIFF_HOUR(dfrom, dto), ...), plus SQUARE and STR,
// 17 rows in a fixed order. There is no DATEDIFF_DAY: the view rewrite maps
// datediff to MySQL's own function, which counts days. DATEDIFF_<unit>
// returns dfrom minus dto, the sign of MySQL's two-argument DATEDIFF. STR
// pads with "0" on the right, and only when scale is above 0; prec counts
// the length of the text. The view rewrite writes no call to these
// functions; they are there for views and queries that name them.
//
// Issuing: on the server, each function's drop statement and then its create
// statement go through the destination's statement call as they stand. In a
// dump, a statement that begins with "CREATE FUNCTION " (in any case) is
// wrapped in DELIMITER $$ ... $$ so that the mysql client replays the body's
// semicolons as part of it (dmp_statement_text).
//
// Thread-safety: the table is immutable; the functions are reentrant.
#pragma once

#include <array>
#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace qb {

// One row of the table.
struct sql_compat_function {
  std::wstring_view label;             // "DROP " and the name
  std::wstring_view drop_statement;    // "DROP FUNCTION IF EXISTS " and the name
  std::wstring_view name;              // SQUARE, STR, DATEADD_DAY, ...
  std::wstring_view create_statement;  // CREATE FUNCTION ... END, lines joined by "\n", no ";" after END
};

inline constexpr std::size_t sql_compat_function_count = 17;

// The 17 rows in order: SQUARE, STR, DATEADD_ DAY HOUR MINUTE MONTH QUARTER
// SECOND WEEK YEAR, DATEDIFF_ HOUR MINUTE MONTH QUARTER SECOND WEEK YEAR.
std::span<const sql_compat_function, sql_compat_function_count> sql_compat_functions();

// The statements that make one function on a server, in the order they are
// to be run: the drop statement, then the create statement.
std::array<std::wstring, 2> sql_compat_statements(const sql_compat_function& function);

// True when the UTF-8 statement begins with "CREATE FUNCTION " compared
// without regard to case (logs "tk_string::compare_no_case").
bool dmp_is_create_function(std::string_view statement);

// How the dump writes one UTF-8 statement, eol being "\n" or "\r\n":
//   a CREATE FUNCTION: "DELIMITER $$" eol, the statement ";" eol, "$$" eol,
//                      "DELIMITER ;" eol;
//   anything else:     the statement ";" eol.
std::string dmp_statement_text(std::string_view statement, std::string_view eol);

// Issues the whole table through query, a destination's statement call
// (udb_database::query on the server or the dump): for each function, its
// drop statement and then its create statement. A statement that throws a
// tk_exception ends the work on that function alone, and is handled as a
// failed view is: "Error while creating function:\n%s\n" in the log at level
// 2, "Function '" + name + "'" as the error handler's context, and
// error_handler::handle with no_abort false, so the user may go on or abort
// (tk_final_exception then leaves this function). Returns how many
// functions were made. Logs "sql_create_compat_functions" at level 2 on entry.
int sql_create_compat_functions(const std::function<void(const std::wstring&)>& query);

}  // namespace qb
