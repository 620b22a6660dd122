// Helpers of the MySQL target's tests: a plain client session for a test's
// own set-up and checks (made without sql_engine, so that it can judge what
// the engine did), and names that parallel test processes do not share.
//
// Thread-safety: one session per thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sql/client.h"
#include "sql/engine.h"
#include "support/mariadb_server.h"

namespace qb::test {

class test_session {
 public:
  // Connects over TCP as account, speaking utf8mb4. Throws sql_exception.
  test_session(const mariadb_server& server, const mariadb_account& account);
  // As root.
  explicit test_session(const mariadb_server& server);

  void run(std::string_view statement);
  // The first column of the first row ("" for NULL or no row).
  std::string scalar(std::string_view statement);
  // Every row, every column.
  std::vector<std::vector<std::string>> rows(std::string_view statement);
  // The first column of every row.
  std::vector<std::string> column(std::string_view statement);

  [[nodiscard]] MYSQL* handle() const { return connection_.get(); }

 private:
  qb::sql_connection_ptr connection_;
};

// Connects engine to server as account, over TCP.
void connect_engine(sql_engine& engine, const mariadb_server& server, const mariadb_account& account);

// The version code of a version text, read with the C library's scanner.
std::uint32_t expected_version_code(const std::string& version);

// Runs a statement on the engine's connection and gives the first column of
// the first row.
std::string engine_scalar(sql_engine& engine, std::string_view statement);

// "<prefix>_<pid>_<n>": unique among the test processes of a run.
std::string unique_name(std::string_view prefix);

// text as an SQL string literal for a session without NO_BACKSLASH_ESCAPES
// (quotes and backslashes doubled).
std::string sql_literal(std::string_view text);

}  // namespace qb::test
