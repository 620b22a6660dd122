#include "sql/compat_functions.h"

#include <exception>

#include "tk/error_handler.h"
#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"

namespace qb {

namespace {

// The table, written out row by row so that each body reads as the server
// receives it.
constexpr std::array<sql_compat_function, sql_compat_function_count> compat_functions = {{
    {L"DROP SQUARE", L"DROP FUNCTION IF EXISTS SQUARE", L"SQUARE",
     L"CREATE FUNCTION SQUARE(value REAL)\n"
     L"RETURNS REAL\n"
     L"DETERMINISTIC\n"
     L"BEGIN\n"
     L"    RETURN POWER(value,2);\n"
     L"END"},
    {L"DROP STR", L"DROP FUNCTION IF EXISTS STR", L"STR",
     L"CREATE FUNCTION STR(value REAL, prec INT, scale INT)\n"
     L"RETURNS VARCHAR(100)\n"
     L"DETERMINISTIC\n"
     L"BEGIN\n"
     L"    DECLARE RESULT VARCHAR(100);\n"
     L"    SET RESULT=CAST(ROUND(value,scale) AS CHAR);\n"
     L"    IF(scale>0) THEN\n"
     L"        SET RESULT=RPAD(RESULT,prec,'0');\n"
     L"    END IF;\n"
     L"    RETURN RESULT;\n"
     L"END"},
    {L"DROP DATEADD_DAY", L"DROP FUNCTION IF EXISTS DATEADD_DAY", L"DATEADD_DAY",
     L"CREATE FUNCTION DATEADD_DAY(cnt INT, d DATETIME)\n"
     L"RETURNS DATETIME\n"
     L"DETERMINISTIC\n"
     L"BEGIN\n"
     L"    RETURN DATE_ADD(d, INTERVAL cnt DAY);\n"
     L"END"},
    {L"DROP DATEADD_HOUR", L"DROP FUNCTION IF EXISTS DATEADD_HOUR", L"DATEADD_HOUR",
     L"CREATE FUNCTION DATEADD_HOUR(cnt INT, d DATETIME)\n"
     L"RETURNS DATETIME\n"
     L"DETERMINISTIC\n"
     L"BEGIN\n"
     L"    RETURN DATE_ADD(d, INTERVAL cnt HOUR);\n"
     L"END"},
    {L"DROP DATEADD_MINUTE", L"DROP FUNCTION IF EXISTS DATEADD_MINUTE", L"DATEADD_MINUTE",
     L"CREATE FUNCTION DATEADD_MINUTE(cnt INT, d DATETIME)\n"
     L"RETURNS DATETIME\n"
     L"DETERMINISTIC\n"
     L"BEGIN\n"
     L"    RETURN DATE_ADD(d, INTERVAL cnt MINUTE);\n"
     L"END"},
    {L"DROP DATEADD_MONTH", L"DROP FUNCTION IF EXISTS DATEADD_MONTH", L"DATEADD_MONTH",
     L"CREATE FUNCTION DATEADD_MONTH(cnt INT, d DATETIME)\n"
     L"RETURNS DATETIME\n"
     L"DETERMINISTIC\n"
     L"BEGIN\n"
     L"    RETURN DATE_ADD(d, INTERVAL cnt MONTH);\n"
     L"END"},
    {L"DROP DATEADD_QUARTER", L"DROP FUNCTION IF EXISTS DATEADD_QUARTER", L"DATEADD_QUARTER",
     L"CREATE FUNCTION DATEADD_QUARTER(cnt INT, d DATETIME)\n"
     L"RETURNS DATETIME\n"
     L"DETERMINISTIC\n"
     L"BEGIN\n"
     L"    RETURN DATE_ADD(d, INTERVAL cnt QUARTER);\n"
     L"END"},
    {L"DROP DATEADD_SECOND", L"DROP FUNCTION IF EXISTS DATEADD_SECOND", L"DATEADD_SECOND",
     L"CREATE FUNCTION DATEADD_SECOND(cnt INT, d DATETIME)\n"
     L"RETURNS DATETIME\n"
     L"DETERMINISTIC\n"
     L"BEGIN\n"
     L"    RETURN DATE_ADD(d, INTERVAL cnt SECOND);\n"
     L"END"},
    {L"DROP DATEADD_WEEK", L"DROP FUNCTION IF EXISTS DATEADD_WEEK", L"DATEADD_WEEK",
     L"CREATE FUNCTION DATEADD_WEEK(cnt INT, d DATETIME)\n"
     L"RETURNS DATETIME\n"
     L"DETERMINISTIC\n"
     L"BEGIN\n"
     L"    RETURN DATE_ADD(d, INTERVAL cnt WEEK);\n"
     L"END"},
    {L"DROP DATEADD_YEAR", L"DROP FUNCTION IF EXISTS DATEADD_YEAR", L"DATEADD_YEAR",
     L"CREATE FUNCTION DATEADD_YEAR(cnt INT, d DATETIME)\n"
     L"RETURNS DATETIME\n"
     L"DETERMINISTIC\n"
     L"BEGIN\n"
     L"    RETURN DATE_ADD(d, INTERVAL cnt YEAR);\n"
     L"END"},
    {L"DROP DATEDIFF_HOUR", L"DROP FUNCTION IF EXISTS DATEDIFF_HOUR", L"DATEDIFF_HOUR",
     L"CREATE FUNCTION DATEDIFF_HOUR(dfrom DATETIME, dto DATETIME)\n"
     L"RETURNS INT\n"
     L"DETERMINISTIC\n"
     L"BEGIN\n"
     L"    RETURN TIMESTAMPDIFF(HOUR, dto, dfrom);\n"
     L"END"},
    {L"DROP DATEDIFF_MINUTE", L"DROP FUNCTION IF EXISTS DATEDIFF_MINUTE", L"DATEDIFF_MINUTE",
     L"CREATE FUNCTION DATEDIFF_MINUTE(dfrom DATETIME, dto DATETIME)\n"
     L"RETURNS INT\n"
     L"DETERMINISTIC\n"
     L"BEGIN\n"
     L"    RETURN TIMESTAMPDIFF(MINUTE, dto, dfrom);\n"
     L"END"},
    {L"DROP DATEDIFF_MONTH", L"DROP FUNCTION IF EXISTS DATEDIFF_MONTH", L"DATEDIFF_MONTH",
     L"CREATE FUNCTION DATEDIFF_MONTH(dfrom DATETIME, dto DATETIME)\n"
     L"RETURNS INT\n"
     L"DETERMINISTIC\n"
     L"BEGIN\n"
     L"    RETURN TIMESTAMPDIFF(MONTH, dto, dfrom);\n"
     L"END"},
    {L"DROP DATEDIFF_QUARTER", L"DROP FUNCTION IF EXISTS DATEDIFF_QUARTER", L"DATEDIFF_QUARTER",
     L"CREATE FUNCTION DATEDIFF_QUARTER(dfrom DATETIME, dto DATETIME)\n"
     L"RETURNS INT\n"
     L"DETERMINISTIC\n"
     L"BEGIN\n"
     L"    RETURN TIMESTAMPDIFF(QUARTER, dto, dfrom);\n"
     L"END"},
    {L"DROP DATEDIFF_SECOND", L"DROP FUNCTION IF EXISTS DATEDIFF_SECOND", L"DATEDIFF_SECOND",
     L"CREATE FUNCTION DATEDIFF_SECOND(dfrom DATETIME, dto DATETIME)\n"
     L"RETURNS INT\n"
     L"DETERMINISTIC\n"
     L"BEGIN\n"
     L"    RETURN TIMESTAMPDIFF(SECOND, dto, dfrom);\n"
     L"END"},
    {L"DROP DATEDIFF_WEEK", L"DROP FUNCTION IF EXISTS DATEDIFF_WEEK", L"DATEDIFF_WEEK",
     L"CREATE FUNCTION DATEDIFF_WEEK(dfrom DATETIME, dto DATETIME)\n"
     L"RETURNS INT\n"
     L"DETERMINISTIC\n"
     L"BEGIN\n"
     L"    RETURN TIMESTAMPDIFF(WEEK, dto, dfrom);\n"
     L"END"},
    {L"DROP DATEDIFF_YEAR", L"DROP FUNCTION IF EXISTS DATEDIFF_YEAR", L"DATEDIFF_YEAR",
     L"CREATE FUNCTION DATEDIFF_YEAR(dfrom DATETIME, dto DATETIME)\n"
     L"RETURNS INT\n"
     L"DETERMINISTIC\n"
     L"BEGIN\n"
     L"    RETURN TIMESTAMPDIFF(YEAR, dto, dfrom);\n"
     L"END"},
}};

constexpr std::string_view create_function_prefix = "CREATE FUNCTION ";

}  // namespace

std::span<const sql_compat_function, sql_compat_function_count> sql_compat_functions() { return compat_functions; }

std::array<std::wstring, 2> sql_compat_statements(const sql_compat_function& function) {
  return {std::wstring(function.drop_statement), std::wstring(function.create_statement)};
}

bool dmp_is_create_function(std::string_view statement) {
  if (statement.size() < create_function_prefix.size()) return false;
  return tk_string::compare_no_case(statement.substr(0, create_function_prefix.size()), create_function_prefix);
}

std::string dmp_statement_text(std::string_view statement, std::string_view eol) {
  std::string out;
  out.reserve(statement.size() + 40);
  const bool wrapped = dmp_is_create_function(statement);
  if (wrapped) out.append("DELIMITER $$").append(eol);
  out.append(statement).append(";").append(eol);
  if (wrapped) out.append("$$").append(eol).append("DELIMITER ;").append(eol);
  return out;
}

int sql_create_compat_functions(const std::function<void(const std::wstring&)>& query) {
  LOG(2, "sql_create_compat_functions");
  int made = 0;
  for (const sql_compat_function& function : compat_functions) {
    try {
      for (const std::wstring& statement : sql_compat_statements(function)) query(statement);
      ++made;
    } catch (const tk_exception& e) {
      LOG(2, "Error while creating function:\n%s\n", e.what());
      error_handler& handler = error_handler::instance();
      handler.set_context(L"Function '" + std::wstring(function.name) + L"'");
      handler.handle(e, false);
    }
  }
  return made;
}

}  // namespace qb
