// Owners of the MariaDB Connector/C handles, and a result read as a stream.
//
// Each C handle lives in a std::unique_ptr whose deleter is declared next to
// its type: a connection (MYSQL) is closed with mysql_close, a result
// (MYSQL_RES) freed with mysql_free_result, a prepared statement (MYSQL_STMT)
// closed with mysql_stmt_close. Free results and statements before the
// connection they came from.
//
// sql_stream walks a result that the server sends row by row
// (mysql_use_result). While it is open the connection can run nothing else;
// abandon() (and the destructor) reads and drops what the server has not sent
// yet, so that the connection is usable again.
//
// Thread-safety: a connection and everything made from it belong to one
// thread at a time.
#pragma once

#include <mysql.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace qb {

struct sql_connection_deleter {
  void operator()(MYSQL* connection) const noexcept { mysql_close(connection); }
};
struct sql_result_deleter {
  void operator()(MYSQL_RES* result) const noexcept { mysql_free_result(result); }
};
struct sql_stmt_deleter {
  void operator()(MYSQL_STMT* stmt) const noexcept { mysql_stmt_close(stmt); }
};

using sql_connection_ptr = std::unique_ptr<MYSQL, sql_connection_deleter>;
using sql_result_ptr = std::unique_ptr<MYSQL_RES, sql_result_deleter>;
using sql_stmt_ptr = std::unique_ptr<MYSQL_STMT, sql_stmt_deleter>;

// Makes the client library ready for use from any thread; safe to call more
// than once and from several threads. Every connection is made after it.
void sql_client_library_init();

// Runs one statement, sent by length, so the text may hold any byte. Throws
// sql_exception built from the connection's diagnostics when the server or
// the client refuses it.
void sql_run(MYSQL* connection, std::string_view statement);

// One result, fetched from the server row by row.
class sql_stream {
 public:
  // Runs statement and opens its result as a stream. Throws sql_exception
  // when the statement fails. A statement that gives no rows (an UPDATE)
  // makes an empty stream.
  sql_stream(MYSQL* connection, std::string_view statement);
  // Takes a result that mysql_use_result gave (may be null: no rows).
  sql_stream(MYSQL* connection, sql_result_ptr result);
  ~sql_stream();
  sql_stream(const sql_stream&) = delete;
  sql_stream& operator=(const sql_stream&) = delete;
  sql_stream(sql_stream&&) noexcept = default;
  sql_stream& operator=(sql_stream&&) noexcept = default;

  // True when the statement gave a result set.
  [[nodiscard]] bool has_result() const { return result_ != nullptr; }
  [[nodiscard]] unsigned field_count() const;

  // Moves to the next row; false at the end. Throws sql_exception when the
  // connection breaks in the middle of the stream.
  bool next();
  // Column i of the current row as the bytes the server sent (UTF-8 text for
  // a text column); empty for NULL and for a column out of range.
  [[nodiscard]] std::string_view field(unsigned i) const;
  [[nodiscard]] bool is_null(unsigned i) const;

  // Stops reading: the rows the server has not sent yet are read and dropped,
  // the result is freed. Returns how many rows were dropped. Never throws.
  std::uint64_t abandon() noexcept;

 private:
  MYSQL* connection_ = nullptr;
  sql_result_ptr result_;
  MYSQL_ROW row_ = nullptr;
  unsigned long* lengths_ = nullptr;
  unsigned fields_ = 0;
  bool at_end_ = false;
};

}  // namespace qb
