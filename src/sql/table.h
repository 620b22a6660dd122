// sql_table: a table of a MySQL server, the recordset the conversion writes
// rows into (and reads an existing table's structure from).
//
// Reading (initialize): the columns come from the server as the rows would
// (sql_recordset), refined by SHOW COLUMNS (VARCHAR lengths, FLOAT
// precision, TEXT columns, defaults), then the indexes (SHOW INDEX) and the
// foreign keys (SHOW CREATE TABLE, sql_fk_parser).
//
// Writing (append_record). Each row is rendered straight into one reused
// UTF-8 statement buffer, with the values of sql/literal.h:
//  - fast path, while the engine's fast_mode holds: rows join one multi-row
//    statement "INSERT IGNORE INTO `t`(`a`, `b`) VALUES(...), (...)"
//    ("REPLACE INTO" in replace mode, open-mode bit 0x100) of at most
//    1,000,000 bytes. A full statement is sent without waiting for the
//    server, and the next rows are rendered while the server stores it; its
//    outcome is read before the next statement goes;
//  - slow path: one "INSERT INTO ... VALUES (...)" (or REPLACE) per row,
//    waited for, so that a duplicate key fails on the row that caused it;
//  - a row of more than 1,000,000 bytes clears fast_mode for the rest of the
//    run and goes by the slow path as a prepared statement: each value of
//    more than 1,048,576 bytes stands as "?" and goes as long data in pieces
//    of 131,072 bytes; a row larger than the connection's max_allowed_packet
//    is refused ("Row size exceeds 'max_allowed_packet'") and the next row
//    follows.
// INSERT IGNORE drops a row whose key is stored already, REPLACE replaces
// that row: both by design, and neither silently. After each statement the
// table reads the affected rows and the warning count (and the first warning
// texts, SHOW WARNINGS, into the log), and keeps write_counts(): rows written
// and warnings. A row INSERT IGNORE dropped is a row not written; the
// duplicate-key note the server gives for it is not counted among the
// warnings. A character beyond U+FFFF bound for a utf8 (three-byte) table is
// logged once per column, and the server's warning for it is counted.
//
// A batch that fails is logged with its table and its rows ("Table '%s': rows
// #%I64u to #%I64u (batch %d) were not written: %s") and reported as a
// sql_exception from the append_record (or finish) that learnt of it; the
// rows of later batches are not touched. A lost connection is reported at
// once.
//
// finish() sends what is pending, waits for it and reports a failure; the
// destructor does the same quietly ("Table '%s': ERROR '%s'" at level 3).
//
// update(record) writes a row over the stored row of the same primary (or
// unique) key; update(record, key) over the rows a condition selects;
// delete_key deletes the row of a key.
//
// Ownership: the table points to its database (and through it to the
// connection), which must outlive it. Thread-safety: none.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sql/exception.h"
#include "sql/literal.h"
#include "sql/recordset.h"
#include "udb/relationships.h"

namespace qb {

class sql_database;
struct sql_statement_outcome;

class sql_table : public sql_recordset {
 public:
  // A row of more than this many bytes leaves the fast path; a batch stays
  // below this plus one.
  static constexpr std::uint32_t row_limit = 1000000;
  // How many warning texts (and texts of rows not written) a table logs.
  static constexpr int logged_warnings = 5;

  // Opens the table and reads its structure (initialize(mode)).
  sql_table(sql_database& database, const std::wstring& name, std::uint32_t mode);
  // Sends what is pending, quietly. Logs "sql_table::dtor".
  ~sql_table() override;

  // Reads the structure (see the top). Bits of mode other than 0x20 and 0x40
  // ask for the indexes and foreign keys too. Throws sql_exception.
  void initialize(std::uint32_t mode);

  // --- Writing ----------------------------------------------------------------------------
  void append_record(udb_record& record) override;
  // The two writers of append_record.
  void fast_append(udb_record& record);
  void slow_append(udb_record& record);
  // update1: the row of the record's key (the primary key, else a unique
  // index) takes the record's values; large objects are left out.
  void update(udb_record& record);
  void update1(udb_record& record) override { update(record); }
  // The rows that the condition key selects (SQL text, as it stands) take
  // the record's values. An empty key logs "Missing key for update".
  void update(udb_record& record, const std::wstring& key);
  // update2: the key's values stand for the primary-key columns, in order.
  void update2(const udb_key_list& key, udb_record& record) override;
  // Deletes the row of the primary key whose values key holds, in order.
  void delete_key(const udb_key_list& key) override;
  // Sends what is pending, waits for it, and reports a failure of the table's
  // rows that is still standing.
  void finish() override;
  [[nodiscard]] udb_write_counts write_counts() const override;

  // Waits for the statement on its way, if any: its outcome is counted, a
  // failure kept for the next call that may report it (a lost connection
  // throws at once). The database calls it before any other statement.
  void drain();

  // --- What was read ----------------------------------------------------------------------
  // The foreign keys of the table, from SHOW CREATE TABLE.
  [[nodiscard]] const udb_relationships& foreign_keys() const { return foreign_keys_; }
  // Rows the server replaced (REPLACE) so far.
  [[nodiscard]] std::uint64_t rows_replaced() const { return replaced_; }
  // Multi-row statements sent so far.
  [[nodiscard]] std::uint32_t statements_sent() const { return batches_; }

 private:
  enum class statement_kind { insert_ignore, insert, replace, update };

  struct column_pair {
    std::size_t field;   // position in the record
    std::size_t column;  // position in schema_
  };

  struct pending_statement {
    bool active = false;
    statement_kind kind = statement_kind::insert;
    std::uint64_t rows = 0;
    std::uint64_t first_row = 0;  // 1-based number of its first row in this table
    std::uint32_t batch = 0;
  };

  void read_columns();
  void read_indexes();
  void read_foreign_keys();
  [[nodiscard]] bool replace_mode() const;
  [[nodiscard]] std::string quoted(const std::wstring& name) const;
  // The (field, column) pairs of a record, the two walks of the column
  // lists; throws tk_exception "The structure of data source does not
  // conform to the destination table." for a column or field with no match.
  void match_columns(const udb_record& record, std::vector<column_pair>& pairs) const;
  // True when record has the same field names in the same places as the
  // record pairs_ was made for.
  [[nodiscard]] bool same_layout(const udb_record& record) const;
  void render_row(std::string& out, const udb_record& record, const std::vector<column_pair>& pairs,
                  bool prepared, int* params);
  void render_head(std::string& out, statement_kind kind, const std::vector<column_pair>& pairs) const;

  // Sends the batch without waiting; what was on its way before is waited for
  // first.
  void send_batch();
  void complete(const pending_statement& statement, const sql_statement_outcome& outcome);
  void batch_failed(const pending_statement& statement, const sql_exception& e);
  void read_warnings(std::uint32_t count, std::uint64_t dropped);
  void throw_deferred();
  void note_cell(const sql_render_note& note, std::size_t column);
  [[nodiscard]] statement_kind row_kind(bool fast) const;
  [[nodiscard]] std::uint32_t packet_limit();

  std::string buffer_;          // the pending multi-row statement, empty if none
  std::uint64_t buffer_rows_ = 0;
  std::uint64_t buffer_first_ = 0;
  std::string head_;            // "INSERT IGNORE INTO `t`(`a`, `b`)" of the batch
  std::vector<column_pair> pairs_;  // the batch's columns
  std::vector<std::wstring> layout_;  // field names of the record pairs_ was made for
  std::string row_;             // one rendered row
  std::string statement_;       // a slow-path statement
  pending_statement on_way_;
  std::optional<sql_exception> deferred_;
  std::uint64_t row_counter_ = 0;
  std::uint32_t batches_ = 0;
  std::uint32_t slow_statements_ = 0;
  bool summarised_ = false;
  std::uint64_t written_ = 0;
  std::uint64_t warnings_ = 0;
  std::uint64_t replaced_ = 0;
  std::uint64_t not_written_ = 0;
  int warnings_logged_ = 0;
  int drops_logged_ = 0;
  bool utf8mb3_ = false;
  std::vector<bool> warned_;
  std::uint32_t packet_limit_ = 0;
  udb_relationships foreign_keys_;
  bool old_version_ = false;
  std::string quoted_table_;
};

}  // namespace qb
