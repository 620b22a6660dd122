// The session sql_engine sets up after connecting: character set, sql_mode,
// wait_timeout, foreign-key checks.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "sql/engine.h"
#include "sql/exception.h"
#include "support/mariadb_server.h"
#include "support/temp_dir.h"
#include "test_session.h"
#include "tk/utf.h"

namespace qb {
namespace {

using test::mariadb_server;

std::set<std::string> modes(const std::string& text) {
  std::set<std::string> result;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = text.find(',', start);
    if (end == std::string::npos) end = text.size();
    if (end > start) result.insert(text.substr(start, end - start));
    start = end + 1;
  }
  return result;
}

// A database of the test's own, dropped at the end.
struct scratch_db {
  explicit scratch_db(const mariadb_server& server) : root(server), name(test::unique_name("qb_sess")) {
    root.run("CREATE DATABASE `" + name + "` CHARACTER SET utf8mb4");
  }
  ~scratch_db() {
    try {
      root.run("DROP DATABASE IF EXISTS `" + name + "`");
    } catch (...) {
    }
  }
  scratch_db(const scratch_db&) = delete;
  scratch_db& operator=(const scratch_db&) = delete;
  test::test_session root;
  std::string name;
};

TEST(SqlEngineSession, SpeaksUtf8mb4) {
  const auto& server = mariadb_server::main();
  test::log_capture log;
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  EXPECT_EQ(test::engine_scalar(engine, "SELECT @@character_set_client"), "utf8mb4");
  EXPECT_EQ(test::engine_scalar(engine, "SELECT @@character_set_connection"), "utf8mb4");
  EXPECT_EQ(test::engine_scalar(engine, "SELECT @@character_set_results"), "utf8mb4");
}

TEST(SqlEngineSession, FourByteCharacterSurvivesTheRoundTrip) {
  const auto& server = mariadb_server::main();
  scratch_db db(server);
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  const std::wstring value = L"a\U0001F600b\u00e4\u65e5";  // a😀bä日
  engine.run(tk_utf8_encode(L"CREATE TABLE `" + tk_utf8_decode(db.name) +
                            L"`.t (v VARCHAR(20) CHARACTER SET utf8mb4)"));
  engine.run(tk_utf8_encode(L"INSERT INTO `" + tk_utf8_decode(db.name) + L"`.t VALUES ('" + value + L"')"));
  // As the server stored it, seen from another session.
  EXPECT_EQ(db.root.scalar("SELECT HEX(v) FROM `" + db.name + "`.t"), "61F09F988062C3A4E697A5");
  // And read back through the engine's session.
  EXPECT_EQ(tk_utf8_decode(test::engine_scalar(engine, "SELECT v FROM `" + db.name + "`.t")), value);
}

TEST(SqlEngineSession, SqlModeHasNoAutoValueOnZeroAndKeepsTheServersModes) {
  const auto& server = mariadb_server::main();
  test::test_session root(server);
  const auto server_modes = modes(root.scalar("SELECT @@GLOBAL.sql_mode"));
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  const auto session = modes(test::engine_scalar(engine, "SELECT @@SESSION.sql_mode"));
  auto expected = server_modes;
  expected.erase("NO_BACKSLASH_ESCAPES");
  expected.insert("NO_AUTO_VALUE_ON_ZERO");
  EXPECT_EQ(session, expected);
}

TEST(SqlEngineSession, ZeroInAnAutoIncrementColumnStaysZero) {
  const auto& server = mariadb_server::main();
  scratch_db db(server);
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  const std::string table = "`" + db.name + "`.t";
  engine.run("CREATE TABLE " + table + " (id INT AUTO_INCREMENT PRIMARY KEY, v INT)");
  engine.run("INSERT INTO " + table + " VALUES (0, 1), (5, 2)");
  EXPECT_EQ(db.root.column("SELECT id FROM " + table + " ORDER BY v"), (std::vector<std::string>{"0", "5"}));
}

TEST(SqlEngineSession, RemovesNoBackslashEscapesAndAnsiQuotesAndKeepsTheOtherModesOfTheServer) {
  // This server runs with sql_mode ANSI_QUOTES,NO_BACKSLASH_ESCAPES,STRICT_ALL_TABLES.
  const auto& server = mariadb_server::announcing("5.7.30-log");
  test::test_session root(server);
  ASSERT_EQ(modes(root.scalar("SELECT @@GLOBAL.sql_mode")),
            (std::set<std::string>{"ANSI_QUOTES", "NO_BACKSLASH_ESCAPES", "STRICT_ALL_TABLES"}));
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  EXPECT_EQ(modes(test::engine_scalar(engine, "SELECT @@SESSION.sql_mode")),
            (std::set<std::string>{"NO_AUTO_VALUE_ON_ZERO", "STRICT_ALL_TABLES"}));
  // A backslash escape is read as one.
  EXPECT_EQ(test::engine_scalar(engine, "SELECT 'a\\'b\\\\c'"), "a'b\\c");
  // Double quotes hold a text, as a date default is written, not a name.
  EXPECT_EQ(test::engine_scalar(engine, "SELECT \"2020-01-02\""), "2020-01-02");
}

TEST(SqlEngineSession, ModesThatBringAnsiQuotesAreRefused) {
  for (const char* mode : {"NO_BACKSLASH_ESCAPES", "ANSI_QUOTES", "ANSI", "DB2", "MAXDB", "MSSQL", "ORACLE",
                           "POSTGRESQL"}) {
    EXPECT_TRUE(sql_is_refused_mode(mode)) << mode;
  }
  for (const char* mode : {"STRICT_TRANS_TABLES", "PIPES_AS_CONCAT", "IGNORE_SPACE", "REAL_AS_FLOAT",
                           "NO_AUTO_VALUE_ON_ZERO", "ansi", ""}) {
    EXPECT_FALSE(sql_is_refused_mode(mode)) << mode;
  }
}

TEST(SqlEngineSession, WaitTimeoutIsRaisedTo28800) {
  // This server runs with wait_timeout 600.
  const auto& server = mariadb_server::announcing("5.7.30-log");
  test::test_session root(server);
  ASSERT_EQ(root.scalar("SELECT @@GLOBAL.wait_timeout"), "600");
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  EXPECT_EQ(test::engine_scalar(engine, "SELECT @@SESSION.wait_timeout"), "28800");
}

TEST(SqlEngineSession, ForeignKeyChecksAreOff) {
  const auto& server = mariadb_server::main();
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  EXPECT_EQ(test::engine_scalar(engine, "SELECT @@SESSION.foreign_key_checks"), "0");
}

}  // namespace
}  // namespace qb
