// Reading from a MySQL server: recordsets over tables and queries.
//
// sql_limited_query reads one block of rows of a table or a query:
//   SELECT * FROM `t` LIMIT first,count
//   SELECT * FROM (select ...) as temp___table LIMIT first,count
// (a column list stands for the "*" when a column must be read as text, as a
// geometry is). It holds the client library's result, streamed
// (mysql_use_result), from its constructor to its destructor.
//
// sql_recordset is a udb_recordset over a table or a query, read in blocks
// of 256 rows: next moves within the block and reads the next block at its
// end, prev goes back (reading the block before), reset reads the first.
// initialize counts the rows and reads the columns (the schema) from the
// first block's field list: a GEOMETRY column is read as its text
// (ST_AsText), a BLOB column with a character set as text, an AUTO_INCREMENT
// column is marked and its highest value read. Appending to it is an internal
// error; sql_table (sql/table.h) is the recordset that writes.
//
// sql_tmp_recordset walks one result set once, forward only: over a result
// the client library already has (ctor1), or over the result of a statement
// (ctor2). sql_list_tables_rs is the result of the table-list statement.
//
// While a block or a result is open the connection can run nothing else:
// sql_recordset keeps its block's result only while it fetches the block; a
// sql_tmp_recordset keeps the connection busy until it is destroyed.
//
// Ownership: a recordset points to the sql_database that made it, which must
// outlive it; it owns its rows. Thread-safety: none.
#pragma once

#include <mysql.h>

#include <cstdint>
#include <string>
#include <vector>

#include "sql/client.h"
#include "sql/record.h"
#include "udb/recordset.h"

namespace qb {

class sql_database;

class sql_limited_query {
 public:
  static constexpr std::uint32_t block_size = 256;

  // Runs the block's SELECT: text is a table name (is_query false; back
  // quotes unless the server is old) or a SELECT (is_query true); columns is
  // the select list ("*" when empty). Logs
  // "sql_database::sql_limited_query::sql_limited_query(%s)", "...as query"
  // or "...as table", "sql_database::do_query2(%s)" and "sql_limited_query -
  // at the end". Throws sql_exception when the statement fails.
  sql_limited_query(sql_database& database, const std::wstring& text, std::uint64_t first, std::uint32_t count,
                    bool is_query, const std::wstring& columns = {});
  // Frees the result. Logs "sql_database::sql_limited_query::~sql_limited_query".
  ~sql_limited_query();
  sql_limited_query(const sql_limited_query&) = delete;
  sql_limited_query& operator=(const sql_limited_query&) = delete;

  // Fetches up to 256 rows into records (emptied first): built from the
  // result's field list when schema is null or empty ("Schema is empty, build
  // via f_info"), otherwise typed by the schema ("Schema is NOT empty").
  // Returns the number of rows. A null records is an internal error. Throws
  // sql_exception when the connection fails while rows come.
  std::size_t store_to(std::vector<sql_record>* records, const udb_schema* schema);

  // The statement as sent, UTF-8.
  [[nodiscard]] const std::string& statement() const { return statement_; }
  [[nodiscard]] MYSQL_RES* result() const { return result_.get(); }

 private:
  sql_database& database_;
  std::string statement_;
  sql_result_ptr result_;
};

class sql_recordset : public udb_recordset {
 public:
  // sql_recordset1: a table. Logs "sql_recordset::sql_recordset1(%s)".
  sql_recordset(sql_database& database, const std::wstring& table);
  // sql_recordset2: a query known as name. Logs
  // "sql_recordset::sql_recordset2(%s)".
  sql_recordset(sql_database& database, const std::wstring& name, const std::wstring& select);
  ~sql_recordset() override;

  // Counts the rows and reads the schema (see above). Throws sql_exception.
  void initialize();
  // The row count: "SELECT COUNT(*) FROM " and the quoted table, or
  // "SELECT COUNT(*) FROM (" query ") as query". Logs "get_rec_count returns
  // %d".
  std::uint64_t get_rec_count();
  // Drops the rows read so far.
  void clean();

  // Refused: logs "sql_recordset::append_record" and raises tk_mail_assertion.
  void append_record(udb_record& record) override;
  udb_record* get_item() override;
  bool is_eof() override;
  void next() override;
  void prev() override;
  void reset() override;

  // The highest value of the AUTO_INCREMENT column when the table has one.
  [[nodiscard]] std::int64_t auto_last_value() const { return auto_last_value_; }
  // The select list used for reading ("*" or the columns with conversions).
  [[nodiscard]] const std::wstring& columns() const { return columns_; }

 protected:
  [[nodiscard]] sql_database& db() const { return *db_; }
  [[nodiscard]] bool is_table() const { return query_.empty(); }
  // The table or query text that sql_limited_query reads.
  [[nodiscard]] const std::wstring& source_text() const { return is_table() ? name_ : query_; }

 private:
  void load_block(std::uint64_t first);

  sql_database* db_;
  std::vector<sql_record> block_;
  std::uint64_t block_first_ = 0;  // row number of block_[0]
  std::size_t in_block_ = 0;
  bool loaded_ = false;
  std::wstring columns_;
  std::int64_t auto_last_value_ = 0;
};

class sql_tmp_recordset : public udb_recordset {
 public:
  // ctor1: over a result the caller has (may be null: no rows).
  sql_tmp_recordset(sql_database& database, sql_result_ptr result);
  // ctor2: over the result of a statement; throws sql_exception when it
  // fails.
  sql_tmp_recordset(sql_database& database, const std::wstring& statement);
  // Frees the result (what the server has not sent yet is read and dropped).
  ~sql_tmp_recordset() override;

  // Reads the field list into the schema. Logs "n_fields=%d".
  void initialize();
  // An internal error: this recordset only reads.
  void append_record(udb_record& record) override;
  udb_record* get_item() override;
  bool is_eof() override;
  // Fetches the next row (mysql_fetch_row, mysql_fetch_lengths). Throws
  // sql_exception when the connection fails.
  void next() override;
  // A forward-only result: these do nothing.
  void prev() override;
  void move_to(std::int32_t position) override;

  // Column i of the current row as text (empty for NULL).
  [[nodiscard]] std::wstring text(std::size_t column) const;

 protected:
  [[nodiscard]] sql_database& db() const { return *db_; }

 private:
  void fetch();

  sql_database* db_;
  sql_result_ptr result_;
  sql_record row_;
  bool eof_ = true;
};

class sql_list_tables_rs : public sql_tmp_recordset {
 public:
  // "show full tables where Table_type='BASE TABLE'". Logs
  // "sql_list_tables_rs::ctor".
  explicit sql_list_tables_rs(sql_database& database);
};

}  // namespace qb
