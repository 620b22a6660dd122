// Loading speed of the server destination against the stock client.
//
// One table of 1,000,000 rows and five columns (INT key, VARCHAR(100),
// DECIMAL(12,2), DATETIME, TEXT), generated one row at a time into one reused
// record (an in-memory source: nothing of the table is held), goes two ways
// into the same MariaDB server, in the same run:
//
//   quillbridge  create_table on sql_database and every row through
//                sql_table::append_record, the fast path (multi-row INSERT
//                IGNORE statements of about 1,000,000 bytes), then finish();
//   baseline     the same rows written by the dump destination into a file of
//                the same multi-row statements (not timed), then that file
//                replayed by the mariadb client (timed).
//
// Each way runs twice, alternating, into a fresh database; the faster run of
// each counts. Printed: rows per second of each and the ratio quillbridge /
// baseline (the goal is 0.9 or more). The machine is shared: only the ratio
// of one run means anything.
//
// Usage: qb_server_load_bench HOST PORT USER PASSWORD [ROWS]
// (bench/server_load_bench.sh starts a private server and passes these).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include <unistd.h>

#include "sql/database.h"
#include "sql/dump.h"
#include "sql/engine.h"
#include "sql/table.h"
#include "tk/utf.h"
#include "udb/recordset.h"

namespace {

using qb::ole_variant;
using qb::t_ftd;
using qb::udb_record;

t_ftd column(const wchar_t* name, std::uint16_t type, std::uint32_t size = 0, std::uint32_t dw = 0) {
  t_ftd f;
  f.name = name;
  f.vartype = type;
  f.size = size;
  f.dw_reserved = dw;
  return f;
}

// The table, its rows made on demand into one record.
class generated_table {
 public:
  explicit generated_table(std::size_t rows) : rows_(rows) {
    t_ftd id = column(L"id", ole_variant::vt_i4);
    id.b_not_null = true;
    schema_.push_back(id);
    schema_.push_back(column(L"name", ole_variant::vt_bstr, 100));
    t_ftd amount = column(L"amount", ole_variant::vt_decimal);
    amount.prec = 12;
    amount.scale = 2;
    schema_.push_back(amount);
    schema_.push_back(column(L"created", ole_variant::vt_date, 0, 1));
    schema_.push_back(column(L"note", ole_variant::vt_bstr, 0));
    indexes_.push_back(qb::udb_index(L"PRIMARY", true, true, {L"id"}));
    for (const t_ftd& f : schema_) row_.emplace_back(f.name, f.size, ole_variant());
  }

  [[nodiscard]] std::size_t size() const { return rows_; }
  [[nodiscard]] const qb::udb_schema& schema() const { return schema_; }
  [[nodiscard]] const qb::udb_indexes& indexes() const { return indexes_; }

  udb_record& row(std::size_t n) {
    value(0) = ole_variant(static_cast<int>(n + 1));
    name_ = L"Customer O'Brien #";
    name_ += std::to_wstring(n);
    value(1) = ole_variant(name_);
    amount_ = std::to_string(n % 100000) + "." + std::to_string(10 + n % 90);
    value(2) = ole_variant::from_string(amount_, ole_variant::vt_decimal);
    date_ = "2024-" + std::to_string(1 + n % 12) + "-" + std::to_string(1 + n % 28) + " 12:" +
            std::to_string(n % 60) + ":" + std::to_string((n / 7) % 60);
    value(3) = ole_variant::from_string(date_, ole_variant::vt_date);
    note_ = L"Delivery note line ";
    note_ += std::to_wstring(n % 997);
    note_ += L" - handle with care, \"fragile\" goods; back\\slash";
    value(4) = ole_variant(note_);
    return row_;
  }

 private:
  // The value part of a field of the reused row.
  ole_variant& value(std::size_t i) { return row_[i]; }

  std::size_t rows_;
  qb::udb_schema schema_;
  qb::udb_indexes indexes_;
  udb_record row_;
  std::wstring name_;
  std::wstring note_;
  std::string amount_;
  std::string date_;
};

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

struct server_address {
  std::string host;
  int port = 0;
  std::string user;
  std::string password;
};

void drop_database(qb::sql_engine& engine, const std::string& name) {
  engine.run("DROP DATABASE IF EXISTS `" + name + "`");
}

// The rows through the server destination; the time of creating the table,
// appending every row and finishing.
double load_through_destination(qb::sql_engine& engine, generated_table& table, const std::string& db_name) {
  drop_database(engine, db_name);
  engine.set_fast_mode(true);
  const auto start = std::chrono::steady_clock::now();
  std::unique_ptr<qb::udb_database> db = engine.create_db(qb::tk_utf8_decode(db_name));
  qb::udb_indexes indexes = table.indexes();
  std::unique_ptr<qb::udb_recordset> rs = db->create_table(L"bench_rows", table.schema(), indexes);
  for (std::size_t n = 0; n < table.size(); ++n) rs->append_record(table.row(n));
  rs->finish();
  const double seconds = seconds_since(start);
  const qb::udb_write_counts counts = rs->write_counts();
  if (counts.rows_written != table.size()) {
    std::fprintf(stderr, "destination wrote %llu of %zu rows\n", static_cast<unsigned long long>(counts.rows_written),
                 table.size());
    std::exit(1);
  }
  return seconds;
}

// The same rows as a file of multi-row INSERT statements (the dump
// destination's, without locks and comments).
void write_statement_file(qb::sql_engine& engine, generated_table& table, const std::string& path) {
  qb::dump_options options;
  options.line_break = 1;
  options.add_lock = false;
  options.insert_comments = false;
  engine.set_fast_mode(true);
  const std::uint32_t version = engine.version();
  {
    std::unique_ptr<qb::dmp_database> dump = engine.create_dump(qb::tk_utf8_decode(path), options);
    qb::udb_indexes indexes = table.indexes();
    std::unique_ptr<qb::udb_recordset> rs = dump->create_table(L"bench_rows", table.schema(), indexes);
    for (std::size_t n = 0; n < table.size(); ++n) rs->append_record(table.row(n));
    rs->finish();
    dump->finish();
  }
  // The dump set the engine to its dialect; the server's rules come back.
  engine.set_version(version);
  engine.set_fractional_seconds(true);
  engine.set_large_index_prefix(true);
}

double replay_with_client(qb::sql_engine& engine, const server_address& server, const std::string& file,
                          const std::string& db_name) {
  drop_database(engine, db_name);
  engine.run("CREATE DATABASE `" + db_name + "` character set utf8");
  const std::string command = "mariadb --no-defaults --protocol=TCP -h" + server.host + " -P" +
                              std::to_string(server.port) + " -u" + server.user + " -p'" + server.password + "' " +
                              db_name + " < " + file;
  const auto start = std::chrono::steady_clock::now();
  if (std::system(command.c_str()) != 0) {
    std::fprintf(stderr, "the mariadb client failed\n");
    std::exit(1);
  }
  return seconds_since(start);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fprintf(stderr, "usage: %s HOST PORT USER PASSWORD [ROWS]\n", argv[0]);
    return 2;
  }
  const server_address server{argv[1], std::atoi(argv[2]), argv[3], argv[4]};
  const std::size_t rows = argc > 5 ? static_cast<std::size_t>(std::atol(argv[5])) : 1000000;
  qb::sql_engine engine;
  engine.connect(qb::tk_utf8_decode(server.host), qb::tk_utf8_decode(server.user),
                 qb::tk_utf8_decode(server.password), server.port);
  generated_table table(rows);

  const char* tmp = std::getenv("TMPDIR");
  const std::string file = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/qb_load_bench_" +
                           std::to_string(::getpid()) + ".sql";
  write_statement_file(engine, table, file);

  const std::string ours_db = "qb_bench_ours";
  const std::string client_db = "qb_bench_client";
  double ours = 1e300;
  double client = 1e300;
  for (int round = 0; round < 2; ++round) {
    // Alternating, so that neither way always meets a warmer server.
    if (round == 0) {
      ours = std::min(ours, load_through_destination(engine, table, ours_db));
      client = std::min(client, replay_with_client(engine, server, file, client_db));
    } else {
      client = std::min(client, replay_with_client(engine, server, file, client_db));
      ours = std::min(ours, load_through_destination(engine, table, ours_db));
    }
  }
  const std::string check = "SELECT COUNT(*) FROM `" + client_db + "`.`bench_rows`";
  std::unique_ptr<qb::udb_database> probe = engine.open_db(qb::tk_utf8_decode(client_db), 0x80);
  std::unique_ptr<qb::udb_recordset> count = probe->query(qb::tk_utf8_decode(check));
  const std::wstring replayed = count != nullptr && !count->is_eof() ? (*count->get_item())[0].to_wstring() : L"?";
  count.reset();
  probe.reset();
  drop_database(engine, ours_db);
  drop_database(engine, client_db);
  ::unlink(file.c_str());

  std::printf("rows: %zu (replayed by the client: %s)\n", rows, qb::tk_utf8_encode(replayed).c_str());
  std::printf("quillbridge (sql_table fast path): %.2f s, %.0f rows/s\n", ours, static_cast<double>(rows) / ours);
  std::printf("baseline (mariadb client, same statements): %.2f s, %.0f rows/s\n", client,
              static_cast<double>(rows) / client);
  std::printf("ratio quillbridge / baseline (rows/s): %.3f (goal >= 0.9)\n", client / ours);
  return 0;
}
