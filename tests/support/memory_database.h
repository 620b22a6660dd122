// An in-memory database for tests of the model and of the conversion driver.
//
// It plays both roles a database has in a run:
//   - a source: a test fills a memory_store with tables (schema, indexes,
//     rows), queries with their results, views, foreign keys and sequences;
//     get_table and get_query hand out recordsets that read those rows;
//   - a target: create_table makes a table (repairing column names that break
//     the store's column rule and recording the renames in the names map, as
//     a real target does), append_record converts and stores rows,
//     update1 replaces a row by its primary key, delete_tab and empty_table
//     drop and empty tables, create_relationships and create_views record
//     what they were given after resolving names through the names map.
//
// Everything a database holds lives in its memory_store, which outlives the
// memory_database objects opened on it: a test can run the driver, which
// deletes its databases at the end, and then read the store. The names map of
// the last database closed on a store is kept there as well.
//
// Ownership: the test owns the store (or the memory_engine that owns stores);
// a memory_database refers to its store, which must outlive it. Tables are
// shared between the store and the recordsets reading them, so dropping a
// table does not invalidate a recordset that is still open.
// Thread-safety: none; one thread at a time, like the real databases.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ole/variant.h"
#include "udb/database.h"
#include "udb/engine.h"
#include "udb/recordset.h"
#include "udb/validator.h"

namespace qb::test {

// A column descriptor, quietly built, for setting up tables.
t_ftd memory_column(const std::wstring& name, std::uint16_t vartype, std::uint32_t size = 0, bool b_not_null = false);

struct memory_table {
  std::wstring name;
  udb_schema schema;
  udb_indexes indexes;
  std::vector<udb_record> rows;

  // The primary-key values of a row as text, for finding a row by its key.
  [[nodiscard]] std::vector<std::wstring> key_of(const udb_record& row) const;
};

class memory_store {
 public:
  memory_store() = default;
  memory_store(const memory_store&) = delete;
  memory_store& operator=(const memory_store&) = delete;

  // --- Filled by a test ------------------------------------------------------------
  // Adds (or replaces) a table.
  memory_table& add_table(const std::wstring& name, udb_schema schema, udb_indexes indexes = {});
  // Appends a row of values in column order; each value becomes a field named
  // after its column, with the column's size and flags. A value count that
  // differs from the column count is a test error (std::invalid_argument).
  void add_row(const std::wstring& table, const std::vector<ole_variant>& values);
  // Makes a SELECT text answerable: get_query and test_query find it by exact
  // text. Returns the result set to fill with add_query_row.
  memory_table& add_query(const std::wstring& select, udb_schema schema);
  void add_query_row(const std::wstring& select, const std::vector<ole_variant>& values);

  udb_view_list views;
  udb_relationships relationships;
  std::vector<udb_sequence> sequences;

  // Column-name rule of the target side: characters a column name may not
  // hold, and the longest name. A refused name is repaired by the validator
  // and the rename goes into the names map.
  std::wstring illegal_column_chars;
  std::uint32_t max_column_len = 64;
  // Called before a row is stored by append_record; a test may throw from it
  // to make the target refuse a row (for example on a duplicate key).
  std::function<void(const memory_table& table, const udb_record& row)> on_append;
  // Views that create_views refuses, as a server refuses a view it cannot
  // create: the failure goes to the error handler with the context
  // "View '<name>'" and the next view follows.
  std::vector<std::wstring> refused_views;

  // --- Written by the target side --------------------------------------------------
  udb_relationships created_relationships;  // names resolved to target names
  udb_view_list created_views;              // definitions rewritten to target names
  std::vector<std::wstring> statements;     // every statement given to query()
  udb_names_map names_map;                  // of the last database closed on this store

  // --- Reading -------------------------------------------------------------------------
  // The table of that name (compared without regard to case), or null.
  [[nodiscard]] memory_table* find_table(const std::wstring& name) const;
  [[nodiscard]] std::shared_ptr<memory_table> share_table(const std::wstring& name) const;
  [[nodiscard]] std::shared_ptr<memory_table> share_query(const std::wstring& select) const;
  [[nodiscard]] std::vector<std::wstring> table_names() const;
  // True when a stored row of the table has the same primary-key values.
  [[nodiscard]] bool has_duplicate_key(const memory_table& table, const udb_record& row) const;
  void remove_table(const std::wstring& name);

 private:
  std::vector<std::shared_ptr<memory_table>> tables_;
  std::map<std::wstring, std::shared_ptr<memory_table>> queries_;
};

class memory_database : public udb_database {
 public:
  // Loads the table list, the foreign keys, the sequences and, unless mode
  // bit 0x80 is set, the views from the store.
  memory_database(memory_store& store, std::wstring name, std::uint32_t mode);
  // Leaves the names map in the store.
  ~memory_database() override;

  // Returns the existing table when there is one; otherwise creates it.
  std::unique_ptr<udb_recordset> create_table(const std::wstring& name, const udb_schema& schema,
                                              udb_indexes& indexes) override;
  void create_index(const std::wstring& table, const udb_schema& schema, const udb_index& index) override;
  void create_views(const udb_view_list& views) override;
  bool delete_tab(const std::wstring& name) override;
  // A recordset over the result registered for that text; an unknown text
  // throws tk_exception.
  std::unique_ptr<udb_recordset> get_query(const std::wstring& name, const std::wstring& select,
                                           std::uint32_t flags) override;
  // A recordset over the table; an unknown table throws tk_exception.
  std::unique_ptr<udb_recordset> get_table(const std::wstring& name, std::uint32_t flags) override;
  // Counts what create_views did with each view.
  udb_view_counts view_counts() const override;
  // Records the statement; "delete from <table>" empties the table. Returns null.
  std::unique_ptr<udb_recordset> query(const std::wstring& statement) override;
  // True for a registered query text.
  bool test_query(const std::wstring& statement) override;
  // Records each foreign key whose two tables exist here, with table and
  // column names resolved through the names map.
  void create_relationships(const udb_relationships& relationships) override;

  [[nodiscard]] memory_store& store() const { return store_; }

  // Lets a test set the lists a real implementation reads at open time.
  udb_view_list& mutable_views() { return views_; }
  udb_relationships& mutable_relationships() { return relationships_; }
  void set_case_sensitive(bool value) { case_sensitive_ = value; }

 private:
  memory_store& store_;
  udb_view_counts view_counts_{true, 0, 0, 0};
};

class memory_recordset : public udb_recordset {
 public:
  // A recordset over a table (empty query) or a query's result, known as name.
  memory_recordset(memory_database* database, std::shared_ptr<memory_table> table, std::wstring name,
                   std::wstring query = {});

  // Converts the record to this table (convert_record), then stores a row of
  // the table's columns, each taken from the record's field of the column's
  // source name. A missing field throws tk_exception "The structure of data
  // source does not conform to the destination table.".
  void append_record(udb_record& record) override;
  // Replaces the stored row with the same primary key; no such row: nothing.
  void update1(udb_record& record) override;
  // Every row that append_record stored or update1 replaced through this
  // recordset; no warnings.
  [[nodiscard]] udb_write_counts write_counts() const override;
  // A copy of the current row, owned here, valid until the next call.
  udb_record* get_item() override;
  bool is_eof() override;
  void move_to(std::int32_t position) override;
  void next() override;
  void prev() override;
  void reset() override;

  [[nodiscard]] const memory_table& table() const { return *table_; }

 private:
  [[nodiscard]] udb_record make_row(const udb_record& record) const;

  memory_store* store_;
  std::shared_ptr<memory_table> table_;
  udb_record current_;
  std::uint64_t rows_written_ = 0;
};

// Keeps one store per database name.
class memory_engine : public udb_engine {
 public:
  std::unique_ptr<udb_database> create_db(const std::wstring& name) override;
  // An unknown name throws tk_exception.
  std::unique_ptr<udb_database> open_db(const std::wstring& name, std::uint32_t mode) override;
  void db_delete(const std::wstring& name) override;
  bool is_db_exist(const std::wstring& name) override;

  // The store of that name, created when absent.
  memory_store& store(const std::wstring& name);

 private:
  std::map<std::wstring, std::unique_ptr<memory_store>> stores_;
};

}  // namespace qb::test
