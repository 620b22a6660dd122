// The SQL Server reader against a bare ODBC fetch loop, over the same rows.
//
// Starts the stand-in with a generated table of N rows (default 200,000; five
// columns: int, nvarchar(100), decimal(12,2), datetime2(7), nvarchar(max))
// and reads all of it, in alternating rounds, two ways through unixODBC and
// FreeTDS:
//
//   bare     SQLExecDirect, then SQLFetch and SQLGetData of every column as
//            SQL_C_WCHAR into one reused buffer (in pieces for long values),
//            keeping nothing: the least a reader must do to see every value;
//   reader   odb_recordset as the conversion driver reads a source: reset,
//            is_eof, get_item, next, every cell an ole_variant of its type
//            (text decoded to wide text, decimals and dates parsed).
//
// Each round runs both, one after the other, and prints their rows/s side by
// side with the ratio reader / bare, and the CPU time this process spent a
// row in each (the stand-in runs in its own process). The machine is shared
// and noisy, so the summary is the median of the rounds' ratios, of wall
// time and of CPU time. Usage: qb_odbc_reader_bench [ROWS] [ROUNDS]
#include <sql.h>
#include <sqlext.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "mss/command.h"
#include "mss/engine.h"
#include "mss/odbc.h"
#include "mss/recordset.h"
#include "support/mss_standin.h"
#include "tk/strings.h"

namespace {

using clock_type = std::chrono::steady_clock;
constexpr wchar_t query[] = L"select * from bulk_rows";

double cpu_seconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

struct result {
  long long rows = 0;
  unsigned long long check = 0;  // something of every value, so no work is skipped
  double seconds = 0;
  double cpu = 0;
  [[nodiscard]] double rate() const { return seconds > 0 ? static_cast<double>(rows) / seconds : 0; }
  [[nodiscard]] double cpu_us_per_row() const { return rows > 0 ? cpu * 1e6 / static_cast<double>(rows) : 0; }
};

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  const std::size_t n = v.size();
  return n == 0 ? 0 : (n % 2 == 1 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2);
}

[[gnu::noinline]] result bare_loop(const qb::odb_connection& c) {
  result r;
  qb::odb_statement s(c);
  const auto start = clock_type::now();
  const double cpu_start = cpu_seconds();
  s.execute(query);
  const SQLSMALLINT n = s.column_count();
  std::vector<SQLWCHAR> buffer(32768);
  const auto bytes = static_cast<SQLLEN>(buffer.size() * sizeof(SQLWCHAR));
  while (SQLFetch(s.get()) == SQL_SUCCESS) {
    ++r.rows;
    for (SQLUSMALLINT col = 1; col <= static_cast<SQLUSMALLINT>(n); ++col) {
      SQLLEN indicator = 0;
      SQLRETURN rc;
      while ((rc = SQLGetData(s.get(), col, SQL_C_WCHAR, buffer.data(), bytes, &indicator)) == SQL_SUCCESS_WITH_INFO) {
        r.check += buffer[0];
      }
      if (rc == SQL_SUCCESS && indicator > 0) r.check += static_cast<unsigned long long>(indicator) + buffer[0];
    }
  }
  r.seconds = std::chrono::duration<double>(clock_type::now() - start).count();
  r.cpu = cpu_seconds() - cpu_start;
  return r;
}

[[gnu::noinline]] result reader(const qb::odb_connection& c) {
  result r;
  const auto start = clock_type::now();
  const double cpu_start = cpu_seconds();
  qb::odb_recordset rs(qb::odb_command(c).execute_rowset(query), L"[dbo].[bulk_rows]");
  for (rs.reset(); !rs.is_eof(); rs.next()) {
    const qb::udb_record& row = *rs.get_item();
    ++r.rows;
    r.check += row[0].get_type() + row[4].text_view().size();
  }
  r.seconds = std::chrono::duration<double>(clock_type::now() - start).count();
  r.cpu = cpu_seconds() - cpu_start;
  return r;
}

}  // namespace

int main(int argc, char** argv) {
  const long long rows = argc > 1 ? std::atoll(argv[1]) : 200000;
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 3;
  qb::test::mss_standin_options o;
  o.bulk_rows = rows;
  o.bulk_table = "qbmini.dbo.bulk_rows";
  const qb::test::mss_standin server(o);

  qb::odb_environment env;
  qb::odb_connection c(env);
  const qb::odb_login login{qb::tk_utf8_to_wide(server.host() + "," + std::to_string(server.port())), L"sa",
                            L"Secret#1", L"qbmini"};
  c.connect(qb::odb_freetds_connection_string(L"FreeTDS", login, qb::odb_brace_rule::doubled));

  std::printf("%lld rows of (int, nvarchar(100), decimal(12,2), datetime2(7), nvarchar(max)) from the stand-in\n",
              rows);
  std::printf("%-6s %12s %12s %7s   %16s %16s %7s\n", "round", "bare rows/s", "reader rows/s", "ratio",
              "bare cpu us/row", "reader cpu us/row", "ratio");
  std::vector<double> ratios;
  std::vector<double> cpu_ratios;
  for (int i = 1; i <= rounds; ++i) {
    const result b = bare_loop(c);
    const result r = reader(c);
    if (b.rows != rows || r.rows != rows) {
      std::fprintf(stderr, "row counts differ: bare %lld, reader %lld, table %lld\n", b.rows, r.rows, rows);
      return 1;
    }
    ratios.push_back(r.rate() / b.rate());
    cpu_ratios.push_back(b.cpu_us_per_row() / r.cpu_us_per_row());
    std::printf("%-6d %12.0f %12.0f %7.2f   %16.2f %16.2f %7.2f\n", i, b.rate(), r.rate(), ratios.back(),
                b.cpu_us_per_row(), r.cpu_us_per_row(), cpu_ratios.back());
  }
  std::printf("median ratio reader / bare: %.2f (wall time), %.2f (CPU time of this process)\n", median(ratios),
              median(cpu_ratios));
  return 0;
}
