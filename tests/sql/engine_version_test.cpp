// The server's version: parsing the text, and what the engine does with
// servers that announce odd or old versions (real MariaDB servers started
// with another version string).
#include <gtest/gtest.h>

#include <string>

#include "sql/engine.h"
#include "sql/exception.h"
#include "support/mariadb_server.h"
#include "support/temp_dir.h"
#include "test_session.h"
#include "tk/exception.h"
#include "tk/utf.h"

namespace qb {
namespace {

using test::mariadb_server;

TEST(SqlVersion, CodeIsMajorMinorPatch) {
  EXPECT_EQ(sql_parse_version("5.6.4"), 0x050604U);
  EXPECT_EQ(sql_parse_version("4.1.0"), 0x040100U);
  EXPECT_EQ(sql_parse_version("3.23.2"), 0x031702U);
  EXPECT_EQ(sql_parse_version("10.11.19-MariaDB-0+deb12u1"), 10U * 65536 + 11 * 256 + 19);
}

TEST(SqlVersion, ScanStopsAfterTheThirdNumber) {
  EXPECT_EQ(sql_parse_version("5.7.30-log"), 5U * 65536 + 7 * 256 + 30);
  EXPECT_EQ(sql_parse_version("8.0.36.1"), 0x080024U);
  EXPECT_EQ(sql_parse_version("5.5.5-10.3.39-MariaDB"), 0x050505U);
}

TEST(SqlVersion, FewerThanThreeNumbersIsNoVersion) {
  EXPECT_FALSE(sql_parse_version("5.7"));
  EXPECT_FALSE(sql_parse_version("5.7-log"));
  EXPECT_FALSE(sql_parse_version("5.7.x"));
  EXPECT_FALSE(sql_parse_version(""));
  EXPECT_FALSE(sql_parse_version("MariaDB"));
  EXPECT_FALSE(sql_parse_version("5..7.1"));
}

TEST(SqlVersion, BlanksBeforeANumberAreSkippedAsScanfDoes) {
  EXPECT_EQ(sql_parse_version(" 5. 7. 30"), 0x05071EU);
  EXPECT_FALSE(sql_parse_version("5 .7.30"));
}

TEST(SqlVersion, OldVersionIsBelow410AndLoggedAtEachUse) {
  test::log_capture log;
  sql_engine engine;
  engine.set_version(0x031401);
  EXPECT_TRUE(engine.is_old_version());
  EXPECT_TRUE(log.has_line("is_old_version(00031401)"));
  engine.set_version(0x040100);
  EXPECT_FALSE(engine.is_old_version());
  EXPECT_TRUE(log.has_line("is_old_version(00040100)"));
  engine.set_version(0x0400FF);
  EXPECT_TRUE(engine.is_old_version());
}

TEST(SqlEngineVersion, ServerReporting5730LogGivesCode05071E) {
  const auto& server = mariadb_server::announcing("5.7.30-log");
  test::log_capture log;
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  EXPECT_EQ(engine.version(), 5U * 65536 + 7 * 256 + 30);
  EXPECT_TRUE(log.has_line("Got MySQL server version: 5.7.30-log"));
  EXPECT_TRUE(log.has_line("Hex version: 0005071E"));
}

TEST(SqlEngineVersion, ServerReportingTwoNumbersIsAnInternalError) {
  const auto& server = mariadb_server::announcing("5.7");
  test::log_capture log(3);
  sql_engine engine;
  try {
    test::connect_engine(engine, server, server.account());
    FAIL() << "accepted version 5.7";
  } catch (const tk_mail_assertion& e) {
    EXPECT_EQ(std::string(e.what()).rfind("Internal error: \ncode=", 0), 0U) << e.what();
    EXPECT_EQ(e.level(), 2);
  }
  // Logged at level 3: the capture takes nothing below.
  EXPECT_TRUE(log.has_line("Invalid MySQL version: 5.7"));
  EXPECT_EQ(engine.version(), 0U);
}

TEST(SqlEngineVersion, Server410WithAnEmptyPasswordConnects) {
  const auto& server = mariadb_server::announcing("4.1.0");
  sql_engine engine;
  test::connect_engine(engine, server, server.root());
  ASSERT_TRUE(server.root().password.empty());
  EXPECT_TRUE(engine.is_connected());
  EXPECT_EQ(engine.version(), 0x040100U);
  EXPECT_FALSE(engine.is_old_version());
  EXPECT_EQ(test::engine_scalar(engine, "SELECT @@SESSION.foreign_key_checks"), "0");
}

TEST(SqlEngineVersion, Server410WithAPasswordIsAnUnsupportedProtocol) {
  const auto& server = mariadb_server::announcing("4.1.0");
  sql_engine engine;
  try {
    test::connect_engine(engine, server, server.account());
    FAIL() << "accepted 4.1.0 with a password";
  } catch (const sql_auth_not_supported_exception& e) {
    EXPECT_EQ(e.code(), 0x4004E1U);
    EXPECT_EQ(std::string(e.what()),
              "The program does not support authentication protocol requested by server. See 'Troubleshooting' "
              "article of the product documentation.");
    EXPECT_EQ(e.level(), 0);
  }
}

TEST(SqlEngineVersion, ServerBeforeUtf8mb4GetsUtf8) {
  const auto& server = mariadb_server::announcing("5.5.2");
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  EXPECT_EQ(engine.version(), 0x050502U);
  // utf8 is called utf8mb3 by the server today.
  const std::string charset = test::engine_scalar(engine, "SELECT @@character_set_client");
  EXPECT_TRUE(charset == "utf8mb3" || charset == "utf8") << charset;
  EXPECT_NE(test::engine_scalar(engine, "SELECT @@SESSION.sql_mode").find("NO_AUTO_VALUE_ON_ZERO"), std::string::npos);
}

TEST(SqlEngineVersion, OldServerKeepsItsSqlModeAndIsOld) {
  const auto& server = mariadb_server::announcing("4.0.27");
  test::test_session root(server);
  const std::string server_mode = root.scalar("SELECT @@GLOBAL.sql_mode");
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  EXPECT_EQ(engine.version(), 0x04001BU);
  EXPECT_TRUE(engine.is_old_version());
  EXPECT_EQ(test::engine_scalar(engine, "SELECT @@SESSION.sql_mode"), server_mode);
}

}  // namespace
}  // namespace qb
