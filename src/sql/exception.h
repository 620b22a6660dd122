// Failures of the MySQL target.
//
// sql_exception is a failure reported by the MySQL client library or by the
// server. Its code is 0x400000 plus the MySQL error number (1045 becomes
// 0x400415), the key of the destination rows in the error handler's message
// table; its text is the library's message. It also keeps the SQLSTATE and
// the text of the statement that failed, for the log and for callers that
// decide by them. It is built at the C boundary, from the diagnostics of the
// handle that failed (mysql_errno, mysql_error, mysql_sqlstate).
//
// Two failures have no server message of their own:
//   sql_auth_not_supported_exception: the server asks for a password protocol
//     the program does not speak (a 4.1.0 server); code 0x4004E1, the code of
//     the server's own error for it (1249).
//   sql_prep_stmt_failed_exception: a prepared statement failed; code
//     0x400BB9. The statement's own diagnostics are kept beside the fixed
//     text.
//   sql_row_too_big_exception: a row larger than the server's packet limit,
//     refused before it is sent; code 0x400481 (the server's 1153).
// All of them are continuable (level 0): the caller decides whether the row,
// the table or the run is over; connection_lost() tells a connection that is
// gone from a statement that failed.
//
// Thread-safety: values; may be thrown on any thread.
#pragma once

#include <mysql.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "tk/exception.h"

namespace qb {

// The bit that marks a MySQL error number in an exception code.
inline constexpr std::uint32_t sql_error_code_base = 0x400000;
inline constexpr std::uint32_t sql_auth_not_supported_code = 0x4004E1;
inline constexpr std::uint32_t sql_prep_stmt_failed_code = 0x400BB9;

class sql_exception : public tk_exception {
 public:
  // From the diagnostics of a connection after a failed call. statement is
  // the UTF-8 text that failed, empty for a failed connect.
  explicit sql_exception(MYSQL* connection, std::string_view statement = {});
  // From the diagnostics of a prepared statement.
  explicit sql_exception(MYSQL_STMT* stmt, std::string_view statement = {});
  // From the parts: number is the MySQL error number, message the library's
  // UTF-8 text.
  sql_exception(unsigned number, std::string_view message, std::string_view sqlstate,
                std::string_view statement);

  // The MySQL error number (1045, 2003, ...).
  [[nodiscard]] unsigned error_number() const { return number_; }
  // The library's message as it came, UTF-8.
  [[nodiscard]] const std::string& server_message() const { return message_; }
  [[nodiscard]] const std::string& sqlstate() const { return sqlstate_; }
  // The failed statement, UTF-8; empty when none was running.
  [[nodiscard]] const std::string& statement() const { return statement_; }
  // True when the connection broke under the statement (the server went
  // away or was lost on the way: 2006, 2013, 2055): nothing more can be sent
  // on it, so the caller's job ends rather than its next row or table.
  [[nodiscard]] bool connection_lost() const;

 protected:
  // A failure with a text of the program's own and a fixed code; the
  // diagnostics, when there are any, stay in the extra fields.
  sql_exception(std::uint32_t code, std::string text, unsigned number, std::string_view message,
                std::string_view sqlstate, std::string_view statement);

 private:
  unsigned number_ = 0;
  std::string message_;
  std::string sqlstate_;
  std::string statement_;
};

class sql_auth_not_supported_exception : public sql_exception {
 public:
  sql_auth_not_supported_exception();
};

class sql_prep_stmt_failed_exception : public sql_exception {
 public:
  // stmt may be null when the statement could not even be made.
  sql_prep_stmt_failed_exception(MYSQL_STMT* stmt, std::string_view statement);
};

// A row too big for the server's packet limit, refused before anything is
// sent (the server would drop the connection): "Row size exceeds
// 'max_allowed_packet'". Its code is that of the server's own error for an
// oversized packet (1153), which has no friendly message of its own, so the
// text is what the user sees; like every sql_exception it fails the row
// alone.
class sql_row_too_big_exception : public sql_exception {
 public:
  sql_row_too_big_exception();
};

}  // namespace qb
