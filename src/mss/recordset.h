// odb_recordset: the rows of a SQL Server statement as a udb_recordset;
// odb_record: one of its rows.
//
// The recordset takes a rowset (a statement whose result is open, from
// odb_command::execute_rowset), types its columns into the schema (t_ftd with
// the providers' sizes and sub-type codes), and hands rows out in batches of
// 100 through reset, is_eof, get_item and next. The rows come with the first
// reset. Values are typed once per column from its OLE DB type code
// (odb_record::get_vartype); odb_fetcher reads them.
//
// Every value arrives whole, however long: a (max), text or image value is
// read in pieces and never cut or dropped. A value that cannot be held fails
// its row with a tk_exception naming the table, the column and the row.
//
// Reading ahead: once the caller moves past the first batch (reset() reads
// that one on the caller's thread), a reader thread of the recordset fetches
// the following batches while the caller works on the current one, through
// a bounded queue of read_ahead_batches blocks of 100 records (so the source
// is read while the destination is written). The caller sees the same
// batches in the same order, and a failure of a fetch is thrown to the
// caller by the next() (or reset()) that asks for that batch, as the same
// exception object, exactly where a fetch on the caller's thread would have
// thrown it. Rows the reader fetched beyond what the caller took are dropped
// with the rowset. The reader is stopped and joined before the rowset is
// replaced, run again or closed, and by the destructor; it touches only the
// statement, the fetcher and the blocks that are not handed out.
//
// Ownership: the recordset owns its rowset, whose session must outlive it,
// and its blocks of 100 records; a record handed out by get_item belongs to
// the recordset and is valid until the next next() or reset(). The fields of
// a record are udb_field values (odb_field), refilled in place for every
// batch. Thread-safety: one caller thread at a time, the thread of the
// session; from the second batch on, the statement belongs to the reader
// thread, and the caller must not run other statements on that session (the
// conversion runs none: a recordset is read to its end or dropped before the
// next statement).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "mss/columns.h"
#include "mss/fetcher.h"
#include "mss/odbc.h"
#include "udb/record.h"
#include "udb/recordset.h"

namespace qb {

// The fields of SQL Server rows are the model's fields; the value and its
// text form need nothing of this layer.
using odb_field = udb_field;

class odb_record : public udb_record {
 public:
  // The value tag of a column of the OLE DB type, and its sub-type code in
  // reserved: odb_get_vartype, with pure dates and times told apart when the
  // converter's mss_engine says dates are native.
  static std::uint16_t get_vartype(std::uint16_t oledb_type, std::uint32_t size, std::uint32_t flags,
                                   std::uint32_t& reserved);
};

class odb_recordset : public udb_recordset {
 public:
  static constexpr std::size_t cache_size = odb_fetcher::batch_rows;
  // Blocks of cache_size records the reader may fill ahead of the caller.
  static constexpr std::size_t read_ahead_batches = 4;

  // Logs "odb_recordset::ctor" and initialize(true). name names the table or
  // query in messages. A null rowset makes a recordset without rows.
  explicit odb_recordset(std::unique_ptr<odb_statement> rowset, std::wstring name = L"",
                         udb_database* database = nullptr);
  ~odb_recordset() override;

  // The plain recordset cannot be appended to: tk_mail_assertion.
  void append_record(udb_record& record) override;
  // The record at the current position; past the cached rows an assertion.
  udb_record* get_item() override;
  // True without a rowset or when the last fetch brought no rows.
  bool is_eof() override;
  void next() override;
  // Back to the first row (the statement runs again after the first time),
  // then the first batch.
  void reset() override;

  // Reads the rowset's columns; with reset_schema the schema is built anew
  // from them, otherwise it is kept (refinements made to it survive). Then
  // binds the columns.
  void initialize(bool reset_schema);

  [[nodiscard]] std::size_t n_cols() const { return columns_.size(); }
  [[nodiscard]] const std::vector<odb_column>& columns() const { return columns_; }
  [[nodiscard]] std::size_t rows_obtained() const { return rows_obtaind_; }
  [[nodiscard]] std::size_t local_pos() const { return local_pos_; }
  [[nodiscard]] bool has_rowset() const { return rowset_ != nullptr; }
  // The rowset, for a caller that runs a new statement into this recordset.
  void set_rowset(std::unique_ptr<odb_statement> rowset);

 protected:
  // Copies the not-null and auto-number flags of the schema into the fields
  // of the cached records, after a caller refined the schema.
  void sync_field_flags();

 private:
  class cache_sink;
  class reader;

  void build_schema();
  void prepare_cache();
  // A block of cache_size records with the fields of the columns.
  [[nodiscard]] std::vector<odb_record> make_block() const;
  // Starts the reader thread on the fetcher; stops and joins it.
  void start_reader();
  void stop_reader();
  void fill_cache();
  void clean_cache();

  std::unique_ptr<odb_statement> rowset_;
  std::vector<odb_column> columns_;
  std::vector<std::uint16_t> tags_;
  std::unique_ptr<odb_fetcher> fetcher_;
  std::vector<odb_record> cache_;  // the block handed out
  std::unique_ptr<reader> reader_;
  std::size_t local_pos_ = 0;
  std::size_t rows_obtaind_ = 0;
  bool fresh_ = false;  // the rowset was just executed and nothing was read
};

}  // namespace qb
