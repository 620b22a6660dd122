// Helpers of the tests that run the converter from the SQL Server stand-in
// into the test MariaDB, directly and through a dump file: a session of the
// test's own on the server, the stock mariadb client replaying a dump, and
// the throwaway databases a test makes.
//
// Ownership: a session owns its connection; a scratch_databases drops the
// databases it handed out when it goes. One thread at a time.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "sql/client.h"
#include "support/mariadb_server.h"

namespace qb::test {

// A row of text cells; nullopt stands for NULL.
using text_row = std::vector<std::optional<std::string>>;
using text_rows = std::vector<text_row>;

// A connection of the test's own to the server, with the account that has
// every object privilege (utf8mb4).
class mariadb_session {
 public:
  explicit mariadb_session(const mariadb_server& server);
  void run(const std::string& statement);
  // The MySQL error number the statement ends with; 0 when it succeeds.
  unsigned error_of(const std::string& statement);
  // Every row of a statement.
  text_rows rows(const std::string& statement);

 private:
  sql_connection_ptr connection_;
};

// Databases named "<prefix>_<pid>_<n>", dropped when the object goes.
class scratch_databases {
 public:
  scratch_databases(const mariadb_server& server, std::string prefix);
  ~scratch_databases();
  scratch_databases(const scratch_databases&) = delete;
  scratch_databases& operator=(const scratch_databases&) = delete;
  // A new name, not created yet; dropped at the end all the same.
  std::string next();

 private:
  mariadb_session session_;
  std::string prefix_;
  std::vector<std::string> names_;
};

struct replay_outcome {
  int exit_code = -1;
  std::string output;  // standard output and error of the client
};

// The stock client reads the file into database; with force it goes on
// after a statement the server refuses (--force), as a DBA would replay a
// dump that holds a view the server does not take.
replay_outcome replay_dump(const mariadb_server& server, const std::string& database, const std::string& file,
                           bool force);

// The client's lines that report an error or a warning, without the notes
// that "DROP FUNCTION IF EXISTS" gives for a function a new database does
// not have (1305).
std::vector<std::string> replay_problems(const std::string& output);

// `name` with its back quotes doubled; 'text' with quote and backslash
// escaped.
std::string sql_quoted_name(const std::string& name);
std::string sql_text_literal(const std::string& text);

}  // namespace qb::test
