// One read of a SQL Server table through unixODBC and FreeTDS, for
// bench/run.sh: the baseline against which the conversion is measured.
//
//   qb_odbc_fetch_loop HOST PORT USER PASSWORD DATABASE TABLE [--reader]
//
// Connects, runs "select * from TABLE" and reads every row:
//
//   bare (default)  SQLFetch, then SQLGetData of every column as SQL_C_WCHAR
//                   into one reused buffer (in pieces for long values),
//                   keeping nothing: the least a reader must do to see every
//                   value;
//   --reader        odb_recordset as the conversion driver reads a source:
//                   every cell an ole_variant of its type.
//
// Prints one line "rows=N seconds=S cpu=C" (wall time and CPU time of this
// process from the statement to the last row; the connection is not timed).
#include <sql.h>
#include <sqlext.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "mss/command.h"
#include "mss/engine.h"
#include "mss/odbc.h"
#include "mss/recordset.h"
#include "tk/strings.h"

namespace {

double cpu_seconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// Something of every value, so that no work is skipped.
unsigned long long g_check = 0;

long long bare_loop(const qb::odb_connection& c, const std::wstring& query) {
  qb::odb_statement s(c);
  s.execute(query);
  const SQLSMALLINT n = s.column_count();
  std::vector<SQLWCHAR> buffer(32768);
  const auto bytes = static_cast<SQLLEN>(buffer.size() * sizeof(SQLWCHAR));
  long long rows = 0;
  while (SQLFetch(s.get()) == SQL_SUCCESS) {
    ++rows;
    for (SQLUSMALLINT col = 1; col <= static_cast<SQLUSMALLINT>(n); ++col) {
      SQLLEN indicator = 0;
      SQLRETURN rc;
      while ((rc = SQLGetData(s.get(), col, SQL_C_WCHAR, buffer.data(), bytes, &indicator)) ==
             SQL_SUCCESS_WITH_INFO) {
        g_check += buffer[0];
      }
      if (rc == SQL_SUCCESS && indicator > 0) g_check += static_cast<unsigned long long>(indicator) + buffer[0];
    }
  }
  return rows;
}

long long reader(const qb::odb_connection& c, const std::wstring& query, const std::wstring& table) {
  qb::odb_recordset rs(qb::odb_command(c).execute_rowset(query), table);
  long long rows = 0;
  for (rs.reset(); !rs.is_eof(); rs.next()) {
    const qb::udb_record& row = *rs.get_item();
    ++rows;
    g_check += row[0].get_type() + row[row.size() - 1].text_view().size();
  }
  return rows;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 7) {
    std::fprintf(stderr, "usage: %s HOST PORT USER PASSWORD DATABASE TABLE [--reader]\n", argv[0]);
    return 2;
  }
  const bool use_reader = argc > 7 && std::string(argv[7]) == "--reader";
  try {
    qb::odb_environment env;
    qb::odb_connection c(env);
    const qb::odb_login login{qb::tk_utf8_to_wide(std::string(argv[1]) + "," + argv[2]), qb::tk_utf8_to_wide(argv[3]),
                              qb::tk_utf8_to_wide(argv[4]), qb::tk_utf8_to_wide(argv[5])};
    c.connect(qb::odb_freetds_connection_string(L"FreeTDS", login, qb::odb_brace_rule::doubled));
    const std::wstring table = qb::tk_utf8_to_wide(argv[6]);
    const std::wstring query = L"select * from " + table;
    const auto start = std::chrono::steady_clock::now();
    const double cpu_start = cpu_seconds();
    const long long rows = use_reader ? reader(c, query, table) : bare_loop(c, query);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("rows=%lld seconds=%.3f cpu=%.3f check=%llu\n", rows, seconds, cpu_seconds() - cpu_start, g_check);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "qb_odbc_fetch_loop: %s\n", e.what());
    return 1;
  }
  return 0;
}
