// sql_database: a database of a MySQL server as the conversion sees it, the
// udb_database of the server destination.
//
// sql_engine::open_db (and create_db) makes one. The conversion driver asks
// it to create tables (one CREATE TABLE joined from the column and index
// chunks of sql/ddl.h, or the table that exists, reopened), foreign keys and
// views, and uses it for raw statements; its tables are sql_table objects
// (sql/table.h), which read an existing table's structure and write the rows.
//
// Statements. Wide text goes to the server as UTF-8, all on the one
// connection of the engine:
//   query(text)                 a statement that may give rows: a
//                               sql_tmp_recordset over them, or null;
//                               sql_exception when it fails ("QUERY=%s" at
//                               level 3);
//   query(text, sql_no_rows)    a statement whose result does not matter:
//                               true when the server took it; never throws;
//   query_append(utf8)          a row statement: sql_exception when it
//                               fails, otherwise what the server said
//                               (affected rows, warnings);
//   prepared_statement(...)     a row with a value too big for a statement's
//                               text: the value goes as long data.
// A row statement of a table may still be on its way (sql_table sends its
// batches without waiting, to render the next one meanwhile); every other
// statement first waits for it (drain), so the connection is never asked
// two things at once.
//
// Views: create_views makes each view with CREATE OR REPLACE VIEW (the body
// rewritten by sql_view_converter); one the server refuses goes to the
// error handler with the context "View '<name>'" and the next view follows.
// Each view leaves a line at level 3 saying whether MySQL accepted it (a
// refusal with the server's text), and view_counts() tells how many were
// created, refused and passed over.
//
// Mode bits (udb/converter.h): 0x01 read-only (creating or dropping a table is
// an internal error), exactly 0x08 append mode (no foreign keys), 0x80 no
// views are read, 0x100 row statements are REPLACE instead of INSERT.
//
// Ownership: the database owns no connection; the engine's connection must
// outlive it. Recordsets it hands out belong to the caller and must not
// outlive it. Thread-safety: one thread at a time (the conversion worker, or
// the wizard before a run).
#pragma once

#include <mysql.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sql/client.h"
#include "udb/database.h"
#include "udb/record.h"
#include "udb/recordset.h"

namespace qb {

class sql_table;
class udb_properties;

// Selects the form of query whose result does not matter.
struct sql_no_rows_t {
  explicit sql_no_rows_t() = default;
};
inline constexpr sql_no_rows_t sql_no_rows{};

// What the server said of a statement that changes rows.
struct sql_statement_outcome {
  std::uint64_t affected_rows = 0;
  std::uint32_t warnings = 0;
  std::string info;  // mysql_info: "Rows matched: 1  Changed: 1  Warnings: 0" for an UPDATE
};

class sql_database : public udb_database {
 public:
  // The largest value that goes into a statement's text on the row path;
  // a longer one is sent as long data (sql_engine::max_field_size).
  static constexpr std::uint32_t max_field_size = 1048576;
  // Long data goes out in pieces of this many bytes.
  static constexpr std::size_t long_data_piece = 131072;

  // Logs "sql_database::sql_database(%s, mode=%d)", reads the table list
  // (init_tables; failures pass through) and, unless mode bit 0x80 is set,
  // the views (init_views; a failure is logged at level 3 as "Failed to
  // initialize views:\n%s" and leaves no views).
  sql_database(const std::wstring& name, MYSQL* connection, std::uint32_t mode);
  ~sql_database() override;

  // --- Slots of udb_database ---------------------------------------------------------
  // The table: the existing one reopened (get_table(name, 8)) with no
  // statement, or a new one made by one CREATE TABLE, its column renames kept
  // in the names map. Read-only mode is an internal error; a refused
  // statement is a sql_exception.
  std::unique_ptr<udb_recordset> create_table(const std::wstring& name, const udb_schema& schema,
                                              udb_indexes& indexes) override;
  void create_views(const udb_view_list& views) override;
  // DROP TABLE IF EXISTS ... CASCADE, then the name leaves the table list. A
  // table the list does not hold, and read-only mode, are internal errors.
  bool delete_tab(const std::wstring& name) override;
  // "delete from " and the back-quoted name.
  void empty_table(const std::wstring& name) override;
  // A sql_recordset over a SELECT, read in blocks of 256 rows.
  std::unique_ptr<udb_recordset> get_query(const std::wstring& name, const std::wstring& select,
                                           std::uint32_t flags) override;
  // A sql_table; a table the list does not hold is an internal error.
  std::unique_ptr<udb_recordset> get_table(const std::wstring& name, std::uint32_t flags) override;
  std::unique_ptr<udb_recordset> query(const std::wstring& statement) override;
  bool test_query(const std::wstring& statement) override;
  // ALTER TABLE ... ADD CONSTRAINT for each key whose tables both exist, with
  // the indexes MySQL needs on both sides; names through the table-name and
  // field-name maps. A refused key is a sql_exception.
  void create_relationships(const udb_relationships& relationships) override;
  [[nodiscard]] udb_view_counts view_counts() const override;

  // --- Statements ------------------------------------------------------------------------
  bool query(const std::wstring& statement, sql_no_rows_t);
  // A row statement, UTF-8. Logs "sql_database::query_append( q_len=%d)" and
  // the text at level 1.
  sql_statement_outcome query_append(std::string_view statement);
  // One row whose values over max_field_size stand as "?" in text: the k-th
  // such non-null field of record (in record order) is bound to the k-th
  // placeholder and sent as long data in pieces of 131072 bytes. Throws
  // sql_prep_stmt_failed_exception.
  sql_statement_outcome prepared_statement(std::string_view text, int n_params, const udb_record& record);
  // The same with the fields to bind given in placeholder order.
  sql_statement_outcome prepared_statement(std::string_view text, const std::vector<const udb_field*>& params);
  // Runs a statement and opens its result as a stream (null for none).
  // Logs "sql_database::do_query2(%s)". The caller tests mysql_errno.
  sql_result_ptr do_query2(const std::wstring& statement);
  sql_result_ptr do_query2(std::string_view statement);

  // MySQL needs an index on both sides of a foreign key: adds one on fields
  // of table unless an index of the table starts with them.
  void create_fk_index_if(const std::wstring& table, const std::vector<std::wstring>& fields);

  // --- For the table objects -------------------------------------------------------------
  [[nodiscard]] MYSQL* connection() const { return connection_; }
  // The table whose row statement may still be on its way; any other
  // statement waits for it first.
  void set_busy_table(sql_table* table) { busy_table_ = table; }
  [[nodiscard]] sql_table* busy_table() const { return busy_table_; }
  void drain();

 private:
  void init_tables();
  void init_views();
  [[nodiscard]] std::wstring table_engine(udb_properties* table_mutator) const;

  MYSQL* connection_;
  sql_table* busy_table_ = nullptr;
  udb_view_counts view_counts_{true, 0, 0, 0};
};

}  // namespace qb
