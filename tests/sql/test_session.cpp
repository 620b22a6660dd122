#include "test_session.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>

#include "sql/exception.h"
#include "tk/utf.h"

namespace qb::test {

test_session::test_session(const mariadb_server& server, const mariadb_account& account) {
  sql_client_library_init();
  connection_.reset(mysql_init(nullptr));
  mysql_options(connection_.get(), MYSQL_SET_CHARSET_NAME, "utf8mb4");
  if (mysql_real_connect(connection_.get(), server.host().c_str(), account.user.c_str(), account.password.c_str(),
                         nullptr, static_cast<unsigned>(server.port()), nullptr, 0) == nullptr) {
    throw qb::sql_exception(connection_.get());
  }
}

test_session::test_session(const mariadb_server& server) : test_session(server, server.root()) {}

void test_session::run(std::string_view statement) { sql_run(connection_.get(), statement); }

std::string test_session::scalar(std::string_view statement) {
  sql_stream s(connection_.get(), statement);
  if (!s.next()) return {};
  return std::string(s.field(0));
}

std::vector<std::vector<std::string>> test_session::rows(std::string_view statement) {
  sql_stream s(connection_.get(), statement);
  std::vector<std::vector<std::string>> all;
  while (s.next()) {
    std::vector<std::string> row;
    for (unsigned i = 0; i < s.field_count(); ++i) row.emplace_back(s.field(i));
    all.push_back(std::move(row));
  }
  return all;
}

std::vector<std::string> test_session::column(std::string_view statement) {
  std::vector<std::string> values;
  for (auto& row : rows(statement)) values.push_back(row.empty() ? std::string() : row[0]);
  return values;
}

void connect_engine(sql_engine& engine, const mariadb_server& server, const mariadb_account& account) {
  engine.connect(tk_utf8_decode(server.host()), tk_utf8_decode(account.user), tk_utf8_decode(account.password),
                 server.port());
}

std::uint32_t expected_version_code(const std::string& version) {
  int major = 0;
  int minor = 0;
  int patch = 0;
  if (std::sscanf(version.c_str(), "%d.%d.%d", &major, &minor, &patch) != 3) return 0;
  return static_cast<std::uint32_t>(major * 65536 + minor * 256 + patch);
}

std::string engine_scalar(sql_engine& engine, std::string_view statement) {
  sql_stream s(engine.connection(), statement);
  if (!s.next()) return {};
  return std::string(s.field(0));
}

std::string unique_name(std::string_view prefix) {
  static std::atomic<int> counter{0};
  return std::string(prefix) + "_" + std::to_string(::getpid()) + "_" + std::to_string(counter++);
}

std::string sql_literal(std::string_view text) {
  std::string out = "'";
  for (char c : text) {
    if (c == '\'' || c == '\\') out += c;
    out += c;
  }
  out += '\'';
  return out;
}

}  // namespace qb::test
