// Connecting sql_engine to the throwaway MariaDB: accounts, refusals,
// unusual credentials, the log.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

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

// A TCP port on 127.0.0.1 that nobody listens on (bound, read, released).
int unused_port() {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = 0;
  ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  socklen_t len = sizeof addr;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
  ::close(fd);
  return ntohs(addr.sin_port);
}

// Position of line in the log text, or npos.
std::size_t line_pos(const std::string& log, const std::string& line) { return log.find(line + "\r\n"); }

TEST(SqlEngine, ConstructionLogsEachStepAndRegistersTheSingleton) {
  test::log_capture log;
  {
    sql_engine engine;
    EXPECT_EQ(&tk_singleton<sql_engine>::instance(), &engine);
    EXPECT_FALSE(engine.is_connected());
  }
  EXPECT_EQ(tk_singleton<sql_engine>::try_instance(), nullptr);
  const std::string text = log.text();
  EXPECT_EQ(text,
            "sql_engine::initialize\r\nsql_engine::initialize - 1\r\nsql_engine::initialize - 2\r\n"
            "sql_engine::initialize - END\r\nsql_engine::dtor\r\nsql_engine::dtor - END\r\n");
}

TEST(SqlEngine, StartsWithTheDefaultProperties) {
  sql_engine engine;
  EXPECT_EQ(engine.charset(), L"utf8");
  EXPECT_EQ(engine.storage_engine(), L"InnoDB");
  EXPECT_TRUE(engine.fast_mode());
  EXPECT_FALSE(engine.blob_to_text());
  EXPECT_FALSE(engine.binary_text());
  EXPECT_FALSE(engine.lock_active());
  EXPECT_EQ(engine.version(), 0U);
  EXPECT_EQ(engine.get_max_allowed_packet(), 0U);
}

TEST(SqlEngine, ConnectsWithTheAccountAndLogsEachStep) {
  const auto& server = mariadb_server::main();
  test::log_capture log;
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  EXPECT_TRUE(engine.is_connected());
  EXPECT_EQ(engine.version(), test::expected_version_code(server.version()));
  EXPECT_EQ(test::engine_scalar(engine, "SELECT CURRENT_USER()"), server.account().user + "@127.0.0.1");

  const std::string text = log.text();
  const std::string lines[] = {
      "sql_engine::connect(127.0.0.1," + server.account().user + ",***," + std::to_string(server.port()) + ")",
      "Connecting to MySQL server...",
      "Setting UTF-8 collation...",
      "Setting wait_timeout...",
      "Got MySQL server version: " + server.version(),
      tk_format("Hex version: %08X", test::expected_version_code(server.version())),
  };
  std::size_t last = 0;
  for (const auto& line : lines) {
    const std::size_t pos = line_pos(text, line);
    ASSERT_NE(pos, std::string::npos) << line;
    EXPECT_GE(pos, last) << line;
    last = pos;
  }
}

TEST(SqlEngine, PasswordNeverReachesTheLog) {
  const auto& server = mariadb_server::main();
  test::log_capture log;
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  EXPECT_THROW(engine.connect(L"127.0.0.1", tk_utf8_decode(server.account().user), L"wrong-secret-4711",
                              server.port()),
               sql_exception);
  const std::string text = log.text();
  EXPECT_EQ(text.find(server.account().password), std::string::npos);
  EXPECT_EQ(text.find("wrong-secret-4711"), std::string::npos);
  EXPECT_NE(text.find(",***,"), std::string::npos);
}

TEST(SqlEngine, WrongPasswordIsError1045WithTheServersText) {
  const auto& server = mariadb_server::main();
  sql_engine engine;
  try {
    engine.connect(L"127.0.0.1", tk_utf8_decode(server.account().user), L"not the password", server.port());
    FAIL() << "connected with a wrong password";
  } catch (const sql_exception& e) {
    EXPECT_EQ(e.code(), 0x400415U);
    EXPECT_EQ(e.error_number(), 1045U);
    EXPECT_EQ(e.sqlstate(), "28000");
    EXPECT_EQ(e.level(), 0);
    EXPECT_EQ(std::string(e.what()),
              "Access denied for user '" + server.account().user + "'@'127.0.0.1' (using password: YES)");
    EXPECT_EQ(e.server_message(), e.what());
    EXPECT_TRUE(e.statement().empty());
  }
  EXPECT_FALSE(engine.is_connected());
  // The same engine connects afterwards.
  test::connect_engine(engine, server, server.account());
  EXPECT_TRUE(engine.is_connected());
}

TEST(SqlEngine, ExceptionLogsTheServersMessageAndNumber) {
  const auto& server = mariadb_server::main();
  test::log_capture log;
  sql_engine engine;
  EXPECT_THROW(engine.connect(L"127.0.0.1", L"qb_nobody", L"x", server.port()), sql_exception);
  EXPECT_TRUE(log.has_line(
      "sql_exception::sql_exception( msg=Access denied for user 'qb_nobody'@'127.0.0.1' (using password: YES))"));
  EXPECT_TRUE(log.has_line("Got MySQL error code=1045"));
}

TEST(SqlEngine, NothingListeningOnThePortIsError2003) {
  sql_engine engine;
  const int port = unused_port();
  try {
    engine.connect(L"127.0.0.1", L"root", L"", port);
    FAIL() << "connected to a port nobody listens on";
  } catch (const sql_exception& e) {
    EXPECT_EQ(e.error_number(), 2003U);
    EXPECT_EQ(e.code(), 0x4007D3U);
    EXPECT_NE(std::string(e.what()).find("127.0.0.1"), std::string::npos) << e.what();
  }
  EXPECT_FALSE(engine.is_connected());
}

TEST(SqlEngine, UnknownHostIsError2005NamingTheHost) {
  sql_engine engine;
  try {
    engine.connect(L"no-such-host.invalid", L"root", L"", 3306);
    FAIL() << "resolved a host under .invalid";
  } catch (const sql_exception& e) {
    EXPECT_EQ(e.error_number(), 2005U);
    EXPECT_EQ(e.code(), 0x4007D5U);
    EXPECT_NE(std::string(e.what()).find("no-such-host.invalid"), std::string::npos) << e.what();
  }
}

TEST(SqlEngine, HostWithBlankSemicolonOrNonAsciiFailsNamingTheHost) {
  sql_engine engine;
  for (const std::wstring host : {L"127.0.0.1;drop", L"host=127.0.0.1", L"bad host.invalid", L" 127.0.0.1",
                                  L"h\u00f6st-\u65e5\u672c.invalid"}) {
    try {
      engine.connect(host, L"root", L"", 3306);
      ADD_FAILURE() << "connected to " << tk_utf8_encode(host);
    } catch (const sql_exception& e) {
      EXPECT_EQ(e.error_number(), 2005U) << e.what();
      EXPECT_NE(std::string(e.what()).find(tk_utf8_encode(host)), std::string::npos) << e.what();
    }
  }
}

TEST(SqlEngine, UserAndPasswordWithQuoteSemicolonBlankAndNonAsciiConnect) {
  const auto& server = mariadb_server::main();
  test::test_session root(server);
  const std::string user = "qb \xc3\xbc'" + std::to_string(::getpid()) + ";x";  // qb ü'<pid>;x
  const std::string password = "p'w;d \xc3\xb6\\ \xf0\x9f\x98\x80";         // p'w;d ö\ 😀
  root.run("CREATE USER " + test::sql_literal(user) + "@'127.0.0.1' IDENTIFIED BY " + test::sql_literal(password));
  root.run("GRANT SELECT ON *.* TO " + test::sql_literal(user) + "@'127.0.0.1'");
  struct drop_user {
    test::test_session& root;
    std::string user;
    ~drop_user() {
      try {
        root.run("DROP USER " + test::sql_literal(user) + "@'127.0.0.1'");
      } catch (...) {
      }
    }
  } cleanup{root, user};

  test::log_capture log;
  sql_engine engine;
  engine.connect(L"127.0.0.1", tk_utf8_decode(user), tk_utf8_decode(password), server.port());
  EXPECT_EQ(test::engine_scalar(engine, "SELECT CURRENT_USER()"), user + "@127.0.0.1");
  EXPECT_EQ(log.text().find(password), std::string::npos);
  EXPECT_EQ(log.text().find("p'w;d"), std::string::npos);
  EXPECT_TRUE(log.has_line("sql_engine::connect(127.0.0.1," + user + ",***," + std::to_string(server.port()) + ")"));
}

TEST(SqlEngine, NulCharacterInCredentialsIsRefusedWithAMessage) {
  sql_engine engine;
  const std::wstring with_nul(L"sec\0ret", 7);
  try {
    engine.connect(L"127.0.0.1", L"root", with_nul, 3306);
    FAIL() << "accepted a password with a NUL";
  } catch (const sql_exception&) {
    FAIL() << "went to the server";
  } catch (const tk_exception& e) {
    EXPECT_EQ(std::string(e.what()), "The host name, user name or password contains a NUL character.");
    EXPECT_EQ(e.level(), 1);
  }
  EXPECT_FALSE(engine.is_connected());
}

TEST(SqlEngine, PortOutOfRangeIsRefusedWithAMessage) {
  sql_engine engine;
  for (int port : {-1, 65536}) {
    try {
      engine.connect(L"127.0.0.1", L"root", L"", port);
      ADD_FAILURE() << "accepted port " << port;
    } catch (const sql_exception&) {
      ADD_FAILURE() << "went to the server";
    } catch (const tk_exception& e) {
      EXPECT_EQ(std::string(e.what()),
                tk_format("Invalid port number %d: a port lies between 1 and 65535 (0 for the default).", port));
    }
  }
}

TEST(SqlEngine, SecondConnectClosesTheFirst) {
  const auto& server = mariadb_server::main();
  test::log_capture log;
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  const std::string first_id = test::engine_scalar(engine, "SELECT CONNECTION_ID()");
  test::connect_engine(engine, server, server.root());
  EXPECT_TRUE(log.has_line("Connection was established already - disconnecting first..."));
  EXPECT_NE(test::engine_scalar(engine, "SELECT CONNECTION_ID()"), first_id);
  EXPECT_EQ(test::engine_scalar(engine, "SELECT CURRENT_USER()"), "root@127.0.0.1");
}

}  // namespace
}  // namespace qb
