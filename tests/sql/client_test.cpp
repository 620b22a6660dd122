// The Connector/C owners, streamed results and the failures built from the
// library's diagnostics.
#include <gtest/gtest.h>

#include <string>

#include "sql/client.h"
#include "sql/engine.h"
#include "sql/exception.h"
#include "support/mariadb_server.h"
#include "support/temp_dir.h"
#include "test_session.h"
#include "tk/strings.h"
#include "tk/utf.h"

namespace qb {
namespace {

using test::mariadb_server;

TEST(SqlStream, ReadsRowsAndColumns) {
  const auto& server = mariadb_server::main();
  test::test_session session(server, server.account());
  sql_stream rows(session.handle(), "SELECT seq, IF(seq = 2, NULL, CONCAT('r', seq)) FROM mysql.seq_1_to_3");
  ASSERT_TRUE(rows.has_result());
  EXPECT_EQ(rows.field_count(), 2U);
  std::vector<std::string> seen;
  while (rows.next()) {
    seen.push_back(std::string(rows.field(0)) + ":" + (rows.is_null(1) ? "NULL" : std::string(rows.field(1))));
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"1:r1", "2:NULL", "3:r3"}));
  EXPECT_FALSE(rows.next());
}

TEST(SqlStream, KeepsBinaryBytesAndTheirLength) {
  const auto& server = mariadb_server::main();
  test::test_session session(server, server.account());
  sql_stream rows(session.handle(), "SELECT UNHEX('00FF0041')");
  ASSERT_TRUE(rows.next());
  EXPECT_EQ(rows.field(0), std::string_view("\x00\xff\x00\x41", 4));
}

TEST(SqlStream, StatementWithoutRowsIsAnEmptyStream) {
  const auto& server = mariadb_server::main();
  test::test_session session(server, server.account());
  sql_stream rows(session.handle(), "SET @qb_x = 1");
  EXPECT_FALSE(rows.has_result());
  EXPECT_FALSE(rows.next());
}

TEST(SqlStream, AbandonReadsOffTheRestSoTheConnectionCanGoOn) {
  const auto& server = mariadb_server::main();
  test::test_session session(server, server.account());
  sql_stream rows(session.handle(), "SELECT seq FROM mysql.seq_1_to_100000");
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(rows.next());
  EXPECT_EQ(rows.field(0), "3");
  EXPECT_EQ(rows.abandon(), 99997U);
  EXPECT_FALSE(rows.next());
  EXPECT_EQ(session.scalar("SELECT 'after'"), "after");
}

TEST(SqlStream, AnOpenStreamBlocksTheConnectionUntilItIsDestroyed) {
  const auto& server = mariadb_server::main();
  test::test_session session(server, server.account());
  {
    sql_stream rows(session.handle(), "SELECT seq FROM mysql.seq_1_to_1000");
    ASSERT_TRUE(rows.next());
    try {
      session.run("SELECT 1");
      FAIL() << "a statement ran while a stream was open";
    } catch (const sql_exception& e) {
      EXPECT_EQ(e.error_number(), 2014U);  // commands out of sync
      EXPECT_EQ(e.code(), 0x4007DEU);
      EXPECT_EQ(e.statement(), "SELECT 1");
    }
  }
  EXPECT_EQ(session.scalar("SELECT 'after'"), "after");
}

TEST(SqlStream, ConnectionKilledInTheMiddleOfTheStreamThrows) {
  const auto& server = mariadb_server::main();
  test::test_session session(server, server.account());
  test::test_session root(server);
  const std::string id = session.scalar("SELECT CONNECTION_ID()");
  sql_stream rows(session.handle(), "SELECT seq, REPEAT('x', 200) FROM mysql.seq_1_to_5000000");
  ASSERT_TRUE(rows.next());
  root.run("KILL " + id);
  try {
    while (rows.next()) {
    }
    FAIL() << "the stream ended normally after its connection was killed";
  } catch (const sql_exception& e) {
    EXPECT_NE(e.error_number(), 0U);
    EXPECT_EQ(e.code(), sql_error_code_base | e.error_number());
  }
}

TEST(SqlException, CarriesNumberSqlstateStatementAndTheServersText) {
  const auto& server = mariadb_server::main();
  test::log_capture log;
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  try {
    engine.run("SELEC 1");
    FAIL() << "a syntax error ran";
  } catch (const sql_exception& e) {
    EXPECT_EQ(e.error_number(), 1064U);
    EXPECT_EQ(e.code(), 0x400428U);
    EXPECT_EQ(e.sqlstate(), "42000");
    EXPECT_EQ(e.statement(), "SELEC 1");
    EXPECT_EQ(e.level(), 0);
    EXPECT_EQ(std::string(e.what()).rfind("You have an error in your SQL syntax", 0), 0U) << e.what();
    EXPECT_TRUE(log.has_line("sql_exception::sql_exception( msg=" + e.server_message() + ")"));
    EXPECT_TRUE(log.has_line("Got MySQL error code=1064"));
  }
}

TEST(SqlException, KeepsNonAsciiTextOfTheServer) {
  const auto& server = mariadb_server::main();
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  const std::string name = "qb_n\xc3\xb6_\xe6\x97\xa5";  // qb_nö_日
  try {
    engine.run("USE `" + name + "`");
    FAIL() << "used a database that does not exist";
  } catch (const sql_exception& e) {
    EXPECT_EQ(e.error_number(), 1049U);
    EXPECT_EQ(e.server_message(), "Unknown database '" + name + "'");
    EXPECT_EQ(tk_ansi_to_wide(e.what()), tk_utf8_decode(e.server_message()));
  }
}

TEST(SqlException, FromAPreparedStatementAndItsFixedFailure) {
  const auto& server = mariadb_server::main();
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  sql_stmt_ptr stmt(mysql_stmt_init(engine.connection()));
  ASSERT_NE(stmt, nullptr);
  const std::string text = "SELEC ?";
  ASSERT_NE(mysql_stmt_prepare(stmt.get(), text.data(), static_cast<unsigned long>(text.size())), 0);
  const sql_exception plain(stmt.get(), text);
  EXPECT_EQ(plain.error_number(), 1064U);
  EXPECT_EQ(plain.sqlstate(), "42000");
  EXPECT_EQ(plain.code(), 0x400428U);

  const sql_prep_stmt_failed_exception failed(stmt.get(), text);
  EXPECT_EQ(failed.code(), 0x400BB9U);
  EXPECT_EQ(std::string(failed.what()), "Failed to execute prepared statement");
  EXPECT_EQ(failed.error_number(), 1064U);
  EXPECT_EQ(failed.sqlstate(), "42000");
  EXPECT_EQ(failed.statement(), text);
  EXPECT_EQ(failed.server_message(), plain.server_message());
  EXPECT_EQ(failed.level(), 0);

  const sql_prep_stmt_failed_exception without(nullptr, text);
  EXPECT_EQ(without.code(), 0x400BB9U);
  EXPECT_EQ(without.error_number(), 0U);
}

TEST(SqlException, AllThreeAreSqlExceptions) {
  // The per-record guard of a conversion catches sql_exception; the two
  // fixed failures must reach it too.
  EXPECT_THROW(throw sql_auth_not_supported_exception(), sql_exception);
  EXPECT_THROW(throw sql_prep_stmt_failed_exception(nullptr, "x"), sql_exception);
  EXPECT_THROW(throw sql_exception(1062, "Duplicate entry", "23000", "INSERT"), tk_exception);
  const sql_exception dup(1062, "Duplicate entry '1' for key 'PRIMARY'", "23000", "INSERT INTO t VALUES (1)");
  EXPECT_EQ(dup.code(), 0x400426U);
}

TEST(SqlException, EmptyMessageIsUnknownException) {
  const sql_exception e(0, "", "", "");
  EXPECT_EQ(std::string(e.what()), "Unknown exception");
  EXPECT_EQ(e.code(), 0x400000U);
}

}  // namespace
}  // namespace qb
