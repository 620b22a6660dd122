// The dump-file destination: a text file of MySQL statements that the mysql
// command-line client replays (layout in doc/dump-file.md).
//
// dmp_database is the udb_database of this destination, dmp_recordset the
// table object that takes the rows. The column and index text comes from the
// same generators as the server path (sql/ddl.h), the values from the same
// renderer (sql/literal.h), so a dump and a server conversion agree on
// types, defaults, names and literals.
//
// Order of a run, as the conversion driver drives it: the constructor writes
// the header; per table create_table writes the definition and hands out a
// dmp_recordset, whose rows go out in multi-row INSERT statements of about
// 1,000,000 bytes (values over 1 MiB are streamed into the file, never
// copied whole); then create_relationships, create_views, and finish(),
// which ends the file and reports whether everything reached the disk. A
// table's recordset must be finished (or destroyed) before the next
// create_table, since it holds the table's last rows.
//
// The sql_engine singleton must exist: the dump sets its version code to the
// chosen dialect (0x040100 new, 0x031401 old), so that every version test in
// the shared code answers for that dialect, and keeps the LOCK TABLES state
// in its lock_active switch.
//
// Failures: a file that cannot be created or written throws tk_exception_ex
// with the path and the system's text; a record that lacks a column of its
// batch throws tk_exception ("The structure of data source does not conform
// to the destination table."). A dump cannot be read: get_table, get_query and
// test_query are internal errors.
//
// Ownership: the database owns the file; a recordset points to its database,
// which must outlive it. Thread-safety: the conversion worker alone.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sql/dump_file.h"
#include "sql/literal.h"
#include "udb/database.h"
#include "udb/recordset.h"

namespace qb {

struct dump_options {
  std::uint32_t line_break = 0;  // 0: lines end with CR LF; any other value: LF
  bool new_version = true;       // MySQL 4.1 and later; false: the old dialect
  bool add_lock = true;          // bracket each table's rows with LOCK TABLES
  bool insert_comments = true;   // the "#" comment blocks
  bool create_database = false;  // DROP/CREATE/USE the database (needs create_table too)
  bool create_table = true;      // table definitions
  std::wstring created_by;       // text of the "# Created by " line
  std::wstring database_name;    // empty: the base of the file name
};

// The maker's address in the header's last comment line.
inline constexpr char dmp_maker_address[] = "https://www.varnholt.com";

class dmp_recordset;

class dmp_database : public udb_database {
 public:
  // Creates the file and writes the header (comments, SET NAMES, the
  // session's sql_mode, the database block). Throws tk_exception_ex when the
  // file cannot be created or written.
  dmp_database(const std::wstring& file_name, const dump_options& options);
  // Completes the file quietly when finish() was not called.
  ~dmp_database() override;

  std::unique_ptr<udb_recordset> create_table(const std::wstring& name, const udb_schema& schema,
                                              udb_indexes& indexes) override;
  // CREATE [UNIQUE] INDEX, or ALTER TABLE ... ADD PRIMARY KEY; the line ends
  // in LF whatever the line-break option says, and the file is flushed.
  void create_index(const std::wstring& table, const udb_schema& schema, const udb_index& index) override;
  // CREATE OR REPLACE VIEW for each view whose text begins with "select".
  void create_views(const udb_view_list& views) override;
  // A dump names the table of a foreign key; use the two-argument form.
  // This one is an internal error.
  void delete_fk(const std::wstring& name) override;
  // ALTER TABLE `table` DROP FOREIGN KEY `fk`.
  void delete_fk(const std::wstring& table, const std::wstring& fk);
  // ALTER TABLE `table` DROP PRIMARY KEY, or DROP INDEX `index`.
  void delete_idx(const std::wstring& table, const std::wstring& index) override;
  // DROP TABLE IF EXISTS ... CASCADE, then the name leaves the table list.
  bool delete_tab(const std::wstring& name) override;
  std::unique_ptr<udb_recordset> get_query(const std::wstring& name, const std::wstring& select,
                                           std::uint32_t flags) override;
  std::unique_ptr<udb_recordset> get_table(const std::wstring& name, std::uint32_t flags) override;
  // Writes the statement (see write_statement); gives no recordset.
  std::unique_ptr<udb_recordset> query(const std::wstring& statement) override;
  bool test_query(const std::wstring& statement) override;
  // The foreign keys, as ALTER TABLE ... ADD CONSTRAINT, with the missing
  // child indexes; nothing for the old dialect.
  void create_relationships(const udb_relationships& relationships) override;
  // Ends the file: UNLOCK TABLES when a lock is open, the session's old
  // sql_mode back; flushes and closes. Throws when anything failed to reach
  // the file; later calls do nothing.
  void finish() override;

  // The statement writer: the text, ";" and a line break; a text that begins
  // with "CREATE FUNCTION " (in any case) is wrapped in DELIMITER $$ lines,
  // so that the semicolons of its body survive the replay. UTF-8 text.
  void write_statement(std::string_view statement);
  // A piece of the file as it stands (no line break added).
  void write_raw(std::string_view text) { file_.write(text); }

  [[nodiscard]] const dump_options& options() const { return options_; }
  [[nodiscard]] const std::string& eol() const { return eol_; }
  [[nodiscard]] bool is_new_version() const { return options_.new_version; }
  // A name as the dialect writes it: back-quoted (a name over 64 characters
  // cut to 63) for the new one, bare for the old one. UTF-8.
  [[nodiscard]] std::string quote(const std::wstring& name) const;
  // The indexes create_table carried for a table (final names).
  [[nodiscard]] const udb_indexes* table_indexes(const std::wstring& table) const;
  [[nodiscard]] const dmp_file& file() const { return file_; }

 private:
  void write_header();
  void write_database_block();
  // Writes UNLOCK TABLES when a lock is open (log names the caller).
  void unlock_tables(const char* log_line);
  void lock_tables(const std::wstring& table, const std::wstring& second = {});
  [[nodiscard]] std::wstring database_name() const;
  void complete();

  dump_options options_;
  std::string eol_;
  dmp_file file_;
  std::map<std::wstring, udb_indexes> indexes_;  // target table -> carried indexes
  bool finished_ = false;
};

class dmp_recordset : public udb_recordset {
 public:
  // Rows bound for table name of database, with the target columns of
  // schema (copied).
  dmp_recordset(dmp_database* database, const std::wstring& name, const udb_schema& schema);
  // Writes the pending batch quietly when finish() was not called.
  ~dmp_recordset() override;

  // One row: the multi-row path while the engine's fast_mode holds; a row
  // of more than 1,000,000 bytes clears fast_mode for the rest of the run
  // and goes into a statement of its own.
  void append_record(udb_record& record) override;
  // Writes the pending batch; throws when the file fails.
  void finish() override;

  // The two writers. fast_append joins rows into "INSERT IGNORE INTO ...
  // VALUES(...), (...)" and writes the statement once it holds more than
  // 1,000,000 bytes; slow_append writes "INSERT INTO ... VALUES (...)" per
  // row.
  void fast_append(const udb_record& record);
  void slow_append(const udb_record& record);

 private:
  struct column_ref {
    std::size_t column;    // position in schema_
    std::wstring source;   // the source column name the record carries
    std::size_t hint = 0;  // the record position where it was found last
  };

  [[nodiscard]] dmp_database& db() const { return *db_; }
  void flush_batch();
  void start_batch(const udb_record& record);
  // Positions in record of the batch's columns; throws when one is missing.
  void find_fields(const udb_record& record, std::vector<std::size_t>& positions);
  void render_value(std::string& out, const udb_field& field, std::size_t column);
  void stream_value(const udb_field& field, std::size_t column);
  void note_cell(const sql_render_note& note, std::size_t column);

  dmp_database* db_;
  bool old_version_;
  bool utf8mb3_;  // the character set holds no character beyond U+FFFF
  std::string quoted_table_;
  std::string buffer_;             // pending multi-row statement, empty if none
  std::string head_;               // "INSERT IGNORE INTO t(`a`, `b`)" of the batch
  std::vector<column_ref> batch_;  // columns of the batch (the reduced schema)
  std::vector<std::size_t> positions_;
  std::vector<bool> warned_;  // a column's characters beyond U+FFFF were reported
  std::string piece_;         // one streamed piece
};

}  // namespace qb
