// Whole runs of the converter into the test MariaDB: an in-memory source, the
// real server destination (sql_engine_target, sql_database, sql_table), all
// five scenarios with the destination's tables there or not, the rows
// checked on the server afterwards, and the counts of each table.
#include <csignal>
#include <cstdlib>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "app/convertor.h"
#include "sql/database.h"
#include "tk/utf.h"

#include "app_fixtures.h"
#include "support/mariadb_server.h"
#include "support/temp_dir.h"

namespace qb::test {
namespace {

// A root session of the tests' own.
class root_session {
 public:
  explicit root_session(const mariadb_server& server) {
    sql_client_library_init();
    connection_.reset(mysql_init(nullptr));
    mysql_options(connection_.get(), MYSQL_SET_CHARSET_NAME, "utf8mb4");
    if (mysql_real_connect(connection_.get(), server.host().c_str(), server.root().user.c_str(),
                           server.root().password.c_str(), nullptr, static_cast<unsigned>(server.port()), nullptr,
                           0) == nullptr) {
      throw sql_exception(connection_.get());
    }
  }
  void run(const std::string& statement) { sql_run(connection_.get(), statement); }
  std::vector<std::string> column(const std::string& statement) {
    sql_stream s(connection_.get(), statement);
    std::vector<std::string> values;
    while (s.next()) {
      std::string row;
      for (unsigned i = 0; i < s.field_count(); ++i) {
        if (i > 0) row += "|";
        row += s.is_null(i) ? "NULL" : std::string(s.field(i));
      }
      values.push_back(row);
    }
    return values;
  }
  std::string scalar(const std::string& statement) {
    const auto values = column(statement);
    return values.empty() ? std::string() : values[0];
  }

 private:
  sql_connection_ptr connection_;
};

class ServerRun : public ::testing::Test {
 protected:
  ServerRun() : server_(mariadb_server::main()), root_(server_), db_(unique_db()) {
    converter.set_source_engine(source);
    converter.src = L"sales";
    converter.dest = tk_utf8_decode(db_);
    connect(server_);
    store = &source.stores.store(L"sales");
  }
  ~ServerRun() override {
    try {
      root_.run("DROP DATABASE IF EXISTS `" + db_ + "`");
    } catch (...) {  // NOLINT(bugprone-empty-catch): a clean-up failure must not hide the test's own
    }
  }

  static std::string unique_db() {
    static int n = 0;
    return "qb_run_" + std::to_string(::getpid()) + "_" + std::to_string(n++);
  }

  void connect(const mariadb_server& server) {
    converter.mysql_converter_impl::host = server.host();
    converter.port = std::to_string(server.port());
    converter.mysql_converter_impl::user = server.account().user;
    converter.mysql_converter_impl::password = server.account().password;
    converter.connect_mysql_server();
  }

  // Runs the converter as the progress page does: the destination checked,
  // then the worker's routine.
  void run(std::uint32_t mode, std::vector<std::wstring> tables) {
    converter.mode = mode;
    converter.selected_tables = std::move(tables);
    converter.queries.clear();
    converter.finished = 0;
    converter.check_dest();
    converter();
  }

  // A destination database holding tables of its own before the run.
  void existing(const std::vector<std::string>& statements) {
    root_.run("CREATE DATABASE `" + db_ + "` CHARACTER SET utf8");
    root_.run("USE `" + db_ + "`");
    for (const std::string& s : statements) root_.run(s);
  }

  std::vector<std::string> rows(const std::string& table, const std::string& columns = "id, name") {
    return root_.column("SELECT " + columns + " FROM `" + db_ + "`.`" + table + "` ORDER BY 1");
  }
  [[nodiscard]] bool logged(const std::string& line) const { return capture.has_line(line); }
  [[nodiscard]] const udb_table_report* report(const std::wstring& name) const {
    for (const udb_table_report& r : converter.table_reports) {
      if (r.name == name) return &r;
    }
    return nullptr;
  }

  user_folders folders;
  log_capture capture;
  handler_and_shell ui;
  memory_source_engine source;
  quillbridge_convertor converter;
  memory_store* store = nullptr;

 private:
  const mariadb_server& server_;
  root_session root_;

 protected:
  std::string db_;
  root_session& root() { return root_; }
};

// --- The five scenarios --------------------------------------------------------------------------

TEST_F(ServerRun, OverwriteDatabaseMakesItAnew) {
  existing({"CREATE TABLE people (id INT NOT NULL PRIMARY KEY, name VARCHAR(50))",
            "INSERT INTO people VALUES (9, 'gone')", "CREATE TABLE other (x INT)"});
  add_people(*store, L"people", 3);
  run(udb_mode_overwrite_database, {L"people"});
  EXPECT_EQ(rows("people"), (std::vector<std::string>{"1|a", "2|b", "3|c"}));
  EXPECT_EQ(root().column("SHOW TABLES FROM `" + db_ + "`"), (std::vector<std::string>{"people"}));
  EXPECT_TRUE(logged("Table 'people': 3 read, 3 written, 0 not written (duplicate keys or errors), 0 warnings"));
  EXPECT_EQ(converter.finished.load(), 1);
  // The run opened the server database it created.
  EXPECT_TRUE(logged("Creating MySQL database '" + db_ + "'"));
}

TEST_F(ServerRun, OverwriteTablesDropsAnExistingTableAndCreatesTheRest) {
  existing({"CREATE TABLE people (id INT NOT NULL PRIMARY KEY, name VARCHAR(50), extra INT)",
            "INSERT INTO people VALUES (9, 'gone', 1)", "CREATE TABLE kept (x INT)", "INSERT INTO kept VALUES (5)"});
  add_people(*store, L"people", 2);
  add_people(*store, L"fresh", 1);
  run(udb_mode_overwrite_tables, {L"people", L"fresh"});
  EXPECT_EQ(rows("people"), (std::vector<std::string>{"1|a", "2|b"}));
  EXPECT_EQ(rows("fresh"), (std::vector<std::string>{"1|a"}));
  EXPECT_EQ(rows("kept", "x"), (std::vector<std::string>{"5"}));
  EXPECT_TRUE(logged("sql_database::delete_tab (people)"));
  EXPECT_TRUE(logged("Opening MySQL database '" + db_ + "'"));
}

TEST_F(ServerRun, SkipExistingLeavesTheTableAndConvertsTheRest) {
  existing({"CREATE TABLE people (id INT NOT NULL PRIMARY KEY, name VARCHAR(50))",
            "INSERT INTO people VALUES (9, 'old')"});
  add_people(*store, L"people", 2);
  add_people(*store, L"fresh", 2);
  run(udb_mode_skip_existing, {L"people", L"fresh"});
  EXPECT_EQ(rows("people"), (std::vector<std::string>{"9|old"}));
  EXPECT_EQ(rows("fresh"), (std::vector<std::string>{"1|a", "2|b"}));
  EXPECT_TRUE(logged("Table 'people': skipped, it exists at the destination"));
}

TEST_F(ServerRun, MergeDropsDuplicatesOfAnExistingTable) {
  existing({"CREATE TABLE people (id INT NOT NULL PRIMARY KEY, name VARCHAR(50) CHARACTER SET utf8)",
            "INSERT INTO people VALUES (1, 'old')"});
  add_people(*store, L"people", 3);
  run(udb_mode_merge, {L"people"});
  EXPECT_EQ(rows("people"), (std::vector<std::string>{"1|old", "2|b", "3|c"}));
  // Row by row into an existing table: the duplicate failed on its row and
  // is no error in this scenario.
  EXPECT_TRUE(logged("MODE=3"));
  EXPECT_TRUE(ui.shell.errors().empty());
  EXPECT_TRUE(logged("Table 'people': 3 read, 2 written, 1 not written (duplicate keys or errors), 0 warnings"));
}

TEST_F(ServerRun, MergeIntoANewTableDropsSourceDuplicatesThroughInsertIgnore) {
  add_people(*store, L"people", 2);
  store->add_row(L"people", {ole_variant(1), ole_variant(L"dup")});
  run(udb_mode_merge, {L"people"});
  EXPECT_EQ(rows("people"), (std::vector<std::string>{"1|a", "2|b"}));
  EXPECT_TRUE(logged("Table 'people': 3 read, 2 written, 1 not written (duplicate keys or errors), 0 warnings"));
  EXPECT_TRUE(logged("Table 'people': a row was not written: Duplicate entry '1' for key 'PRIMARY'"));
}

TEST_F(ServerRun, StructureThatDoesNotConformSkipsTheTableInMergeAndSynchronize) {
  for (std::uint32_t mode : {udb_mode_merge, udb_mode_synchronize}) {
    root().run("DROP DATABASE IF EXISTS `" + db_ + "`");
    existing({"CREATE TABLE people (id INT NOT NULL PRIMARY KEY, name VARCHAR(50), extra INT)",
              "INSERT INTO people VALUES (1, 'old', 7)"});
    source.stores.db_delete(L"sales");
    store = &source.stores.store(L"sales");
    add_people(*store, L"people", 2);
    add_people(*store, L"fresh", 1);
    converter.table_reports.clear();
    run(mode, {L"people", L"fresh"});
    EXPECT_EQ(rows("people", "id, name, extra"), (std::vector<std::string>{"1|old|7"})) << mode;
    EXPECT_EQ(rows("fresh"), (std::vector<std::string>{"1|a"})) << mode;
    const udb_table_report* people = report(L"people");
    ASSERT_NE(people, nullptr);
    EXPECT_TRUE(people->failed);
    EXPECT_EQ(people->error, "The structure of data source does not conform to the destination table.");
  }
}

TEST_F(ServerRun, SynchronizeReplacesStoredRows) {
  existing({"CREATE TABLE people (id INT NOT NULL PRIMARY KEY, name VARCHAR(50) CHARACTER SET utf8)",
            "INSERT INTO people VALUES (1, 'old'), (5, 'other')"});
  add_people(*store, L"people", 2);
  run(udb_mode_synchronize, {L"people"});
  EXPECT_EQ(rows("people"), (std::vector<std::string>{"1|a", "2|b", "5|other"}));
  EXPECT_TRUE(logged("Table 'people': 2 statements, 2 rows written, 1 replaced, 0 warnings"));
  EXPECT_TRUE(logged("Table 'people': 2 read, 2 written, 0 not written (duplicate keys or errors), 0 warnings"));
}

TEST_F(ServerRun, SynchronizeIntoANewTableReplacesSourceDuplicates) {
  existing({});
  add_people(*store, L"people", 2);
  store->add_row(L"people", {ole_variant(1), ole_variant(L"last")});
  run(udb_mode_synchronize, {L"people"});
  EXPECT_EQ(rows("people"), (std::vector<std::string>{"1|last", "2|b"}));
  EXPECT_TRUE(logged("Table 'people': 3 read, 3 written, 0 not written (duplicate keys or errors), 0 warnings"));
}

TEST_F(ServerRun, SynchronizeGuardUpdatesTheRowOfADuplicateKey) {
  // A database that the run creates is opened without the REPLACE bit; with
  // rows going one by one (a long row earlier in the run cleared the fast
  // path), a duplicate key fails on its row and the stored row takes the
  // source's values through update1.
  add_people(*store, L"people", 2);
  store->add_row(L"people", {ole_variant(1), ole_variant(L"newer")});
  converter.mysql_engine().set_fast_mode(false);
  run(udb_mode_synchronize, {L"people"});
  EXPECT_EQ(rows("people"), (std::vector<std::string>{"1|newer", "2|b"}));
  EXPECT_TRUE(logged("MODE=4"));
  EXPECT_TRUE(logged("Table 'people': 4 statements, 3 rows written, 0 replaced, 0 warnings"));
  EXPECT_TRUE(logged("Table 'people': 3 read, 3 written, 0 not written (duplicate keys or errors), 0 warnings"));
}

TEST_F(ServerRun, DuplicateKeyOnTheSlowPathIsAnErrorOutsideMergeAndSynchronize) {
  add_people(*store, L"people", 2);
  store->add_row(L"people", {ole_variant(2), ole_variant(L"again")});
  converter.mysql_engine().set_fast_mode(false);
  run(udb_mode_overwrite_tables, {L"people"});
  EXPECT_EQ(rows("people"), (std::vector<std::string>{"1|a", "2|b"}));
  const auto& errors = ui.shell.errors();
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_EQ(errors[0].rfind("people, record #3: Duplicate field values", 0), 0U) << errors[0];
  EXPECT_TRUE(logged("Table 'people': 3 read, 2 written, 1 not written (duplicate keys or errors), 0 warnings"));
}

TEST_F(ServerRun, ThousandRowsWithTwoDuplicatesAreCounted) {
  add_people(*store, L"x", 998);
  store->add_row(L"x", {ole_variant(5), ole_variant(L"dup")});
  store->add_row(L"x", {ole_variant(700), ole_variant(L"dup")});
  run(udb_mode_overwrite_database, {L"x"});
  EXPECT_EQ(root().scalar("SELECT COUNT(*) FROM `" + db_ + "`.x"), "998");
  EXPECT_TRUE(logged("Table 'x': 1000 read, 998 written, 2 not written (duplicate keys or errors), 0 warnings"));
  const udb_table_report* x = report(L"x");
  ASSERT_NE(x, nullptr);
  EXPECT_TRUE(x->counted_by_destination);
  EXPECT_EQ(x->written, 998U);
  EXPECT_EQ(x->not_written, 2U);
}

TEST_F(ServerRun, RelationshipsAndViewsFollowTheTables) {
  add_people(*store, L"people", 2);
  udb_schema orders;
  orders.push_back(int_column(L"id"));
  orders.push_back(int_column(L"person"));
  udb_indexes pk;
  pk.push_back_direct(udb_index(L"PK", true, true, {L"id"}));
  store->add_table(L"orders", orders, pk);
  store->add_row(L"orders", {ole_variant(10), ole_variant(1)});
  store->relationships.push_back(udb_rel(L"fk_person", L"", L"orders", L"people", {L"person"}, {L"id"}, L""));
  store->views = {{L"v_people", L"select id, isnull(name, 'x') as name from people"}};
  converter.selected_views = {{L"v_people", L"select id, isnull(name, 'x') as name from people"}};
  run(udb_mode_overwrite_database, {L"people", L"orders"});
  EXPECT_EQ(root().scalar("SELECT COUNT(*) FROM information_schema.referential_constraints WHERE "
                          "constraint_schema='" +
                          db_ + "' AND constraint_name='fk_person'"),
            "1");
  EXPECT_EQ(root().column("SELECT name FROM `" + db_ + "`.v_people ORDER BY id"), (std::vector<std::string>{"a", "b"}));
  EXPECT_TRUE(logged("View 'v_people' was created"));
  EXPECT_TRUE(logged("Views: 1 converted, 0 failed"));
}

// --- Big rows ------------------------------------------------------------------------------------

TEST_F(ServerRun, RowOverAMillionBytesSwitchesTheRestOfTheRunToOneByOne) {
  add_people(*store, L"first", 2);
  udb_schema wide;
  wide.push_back(int_column(L"id"));
  wide.push_back(text_column(L"name", 0));
  udb_indexes pk;
  pk.push_back_direct(udb_index(L"PK", true, true, {L"id"}));
  store->add_table(L"wide", wide, pk);
  store->add_row(L"wide", {ole_variant(1), ole_variant(std::wstring(1000001, L'w'))});
  store->add_row(L"wide", {ole_variant(2), ole_variant(L"small")});
  add_people(*store, L"later", 2);
  run(udb_mode_overwrite_database, {L"first", L"wide", L"later"});
  EXPECT_TRUE(logged("Row is too big (1000001 bytes), swtich to slow_append"));
  EXPECT_EQ(rows("wide", "id, LENGTH(name)"), (std::vector<std::string>{"1|1000001", "2|5"}));
  // The long row went by a prepared statement, every row after it by a
  // statement of its own, also in the next table.
  EXPECT_TRUE(logged("Table 'wide': row #1 goes by a prepared statement with 0 long values"));
  EXPECT_TRUE(logged("Table 'first': 1 statements, 2 rows written, 0 replaced, 0 warnings"));
  EXPECT_TRUE(logged("Table 'wide': 2 statements, 2 rows written, 0 replaced, 0 warnings"));
  EXPECT_TRUE(logged("Table 'later': 2 statements, 2 rows written, 0 replaced, 0 warnings"));
  EXPECT_EQ(rows("later"), (std::vector<std::string>{"1|a", "2|b"}));
  EXPECT_FALSE(converter.mysql_engine().fast_mode());
}

TEST_F(ServerRun, ValueOverAMebibyteGoesByPreparedStatementWithLongData) {
  udb_schema wide;
  wide.push_back(int_column(L"id"));
  wide.push_back(text_column(L"name", 0));
  store->add_table(L"doc", wide);
  store->add_row(L"doc", {ole_variant(1), ole_variant(std::wstring(1048577, L'\u00e9'))});
  run(udb_mode_overwrite_database, {L"doc"});
  EXPECT_TRUE(logged("Table 'doc': row #1 goes by a prepared statement with 1 long values"));
  EXPECT_EQ(rows("doc", "id, CHAR_LENGTH(name)"), (std::vector<std::string>{"1|1048577"}));
}

TEST_F(ServerRun, RowOverMaxAllowedPacketIsRefusedAndTheNextRowFollows) {
  // The server's limit is 16 MiB; the account cannot raise it.
  udb_schema wide;
  wide.push_back(int_column(L"id"));
  wide.push_back(text_column(L"name", 0));
  store->add_table(L"huge", wide);
  store->add_row(L"huge", {ole_variant(1), ole_variant(std::wstring(17 * 1048576, L'h'))});
  store->add_row(L"huge", {ole_variant(2), ole_variant(L"after")});
  run(udb_mode_overwrite_database, {L"huge"});
  EXPECT_EQ(rows("huge", "id, name"), (std::vector<std::string>{"2|after"}));
  const auto& errors = ui.shell.errors();
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_EQ(errors[0], "huge, record #1: Row size exceeds 'max_allowed_packet'");
  EXPECT_NE(capture.text().find("Failed to set max_allowed_packet"), std::string::npos);
  EXPECT_TRUE(logged("Table 'huge': 2 read, 1 written, 1 not written (duplicate keys or errors), 0 warnings"));
}

// --- A server that goes away ---------------------------------------------------------------------

// A private server started with the test script, so that the test may kill it.
class private_server {
 public:
  private_server() {
    script_ = std::string(QB_TEST_SOURCE_DIR) + "/scripts/mariadb-test-server.sh";
    const std::string command = script_ + " start " + dir_.path() + " >" + dir_.file("start.log") + " 2>&1";
    if (std::system(command.c_str()) != 0) throw std::runtime_error("the private server did not start");
    server_ = mariadb_server::from_state_file(dir_.file("server.state"));
  }
  ~private_server() {
    const std::string command = script_ + " stop " + dir_.path() + " >/dev/null 2>&1";
    static_cast<void>(std::system(command.c_str()));
  }
  private_server(const private_server&) = delete;
  private_server& operator=(const private_server&) = delete;

  [[nodiscard]] const mariadb_server& server() const { return server_; }
  // SIGKILL to the recorded server process, and wait until it is gone (or
  // only a zombie that nobody has reaped yet).
  void kill_now() {
    ::kill(server_.pid(), SIGKILL);
    for (int i = 0; i < 600 && running(); ++i) ::usleep(10000);
  }

 private:
  [[nodiscard]] bool running() const {
    const std::string stat = read_file("/proc/" + std::to_string(server_.pid()) + "/stat");
    const std::size_t close = stat.rfind(')');
    return close != std::string::npos && close + 2 < stat.size() && stat[close + 2] != 'Z';
  }

  temp_dir dir_;
  std::string script_;
  mariadb_server server_;
};

// The product's converter with one table's rows watched.
class watched_convertor : public quillbridge_convertor {
 public:
  watched_convertor(std::wstring table, sql_table_mutator& watcher) : table_(std::move(table)), watcher_(watcher) {}

  sql_table_mutator* find_table_mutator(const std::wstring& source_name) override {
    return source_name == table_ ? &watcher_ : quillbridge_convertor::find_table_mutator(source_name);
  }

 private:
  std::wstring table_;
  sql_table_mutator& watcher_;
};

TEST(ServerRunKilled, ServerKilledInTheMiddleOfATableEndsTheRunWithAClearError) {
  private_server dead;
  user_folders folders;
  log_capture capture;
  handler_and_shell ui;
  memory_source_engine source;
  // The server dies while the rows of "big" flow, at row 15000.
  watching_table_mutator killer(L"big");
  killer.update_field(L"name", L"name", native(L"VARCHAR", 200));
  int seen = 0;
  killer.on_row = [&](const udb_record&) {
    if (++seen == 15000) dead.kill_now();
  };
  watched_convertor converter(L"big", killer);
  converter.set_source_engine(source);
  converter.src = L"sales";
  converter.dest = L"doomed";
  converter.mysql_converter_impl::host = dead.server().host();
  converter.port = std::to_string(dead.server().port());
  converter.mysql_converter_impl::user = dead.server().account().user;
  converter.mysql_converter_impl::password = dead.server().account().password;
  converter.connect_mysql_server();
  memory_store& store = source.stores.store(L"sales");
  udb_schema schema;
  schema.push_back(int_column(L"id"));
  schema.push_back(text_column(L"name", 200));
  store.add_table(L"big", schema);
  for (int i = 1; i <= 30000; ++i) store.add_row(L"big", {ole_variant(i), ole_variant(std::wstring(100, L'k'))});
  add_people(store, L"after", 2);
  converter.selected_tables = {L"big", L"after"};
  converter.mode = udb_mode_overwrite_database;

  converter();

  EXPECT_EQ(converter.finished.load(), 1);
  const std::string log = capture.text();
  // Which table, which rows.
  EXPECT_NE(log.find("Table 'big': rows #"), std::string::npos) << log.substr(log.size() > 4000 ? log.size() - 4000 : 0);
  EXPECT_NE(log.find(") were not written: "), std::string::npos);
  EXPECT_TRUE(capture.has_line("The connection to the destination was lost while converting 'big': the run ends"));
  EXPECT_TRUE(capture.has_line("Relationships and views are not converted: the connection to the destination was lost"));
  // The error reached the handler, once, with the table as its context.
  const auto& errors = ui.shell.errors();
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_EQ(errors[0].rfind("big: ", 0), 0U) << errors[0];
  // The next table was not tried.
  ASSERT_EQ(converter.table_reports.size(), 1U);
  EXPECT_TRUE(converter.table_reports[0].failed);
  EXPECT_LT(converter.table_reports[0].written, 30000U);
}

}  // namespace
}  // namespace qb::test
