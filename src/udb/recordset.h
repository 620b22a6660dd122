// udb_recordset: one table or result set, as the conversion driver sees it.
//
// A source recordset is read with reset, is_eof, get_item and next; a
// destination recordset takes rows through append_record (and update1 when a
// synchronised row hits a duplicate key). Each carries the schema and the
// index list of its table.
//
// The virtual functions below are declared in a fixed order that every
// implementation shares; the base behaviours are no-ops, "empty" answers or
// log lines, and append_record is pure.
//
// Ownership: the recordset owns its schema and indexes. database is the
// database that made it (owner of the names map), not owned, and null for a
// detached set; the recordset must not outlive it. A record returned by
// get_item belongs to the recordset and is valid until the next call of
// next, reset or get_item.
// Thread-safety: none; one thread at a time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ole/variant.h"
#include "udb/indexes.h"
#include "udb/record.h"
#include "udb/schema.h"

namespace qb {

class udb_database;

// The values of a row's primary-key columns, in key order.
using udb_key_list = std::vector<ole_variant>;

// What a destination recordset says it has written, for the count of rows
// that the driver keeps per table. rows_written counts the rows the
// destination has stored (inserted, or replaced through update1 or a REPLACE
// statement), warnings the warnings the destination reported for them. A
// destination that cannot tell leaves known false.
struct udb_write_counts {
  bool known = false;
  std::uint64_t rows_written = 0;
  std::uint64_t warnings = 0;
};

class udb_recordset {
 public:
  // A recordset over a query (an empty query means a table).
  udb_recordset(udb_database* database, std::wstring name, std::wstring query, bool b_schema_owner);
  // A recordset over a table.
  udb_recordset(udb_database* database, std::wstring name, bool b_schema_owner);
  // A detached recordset. Logs "udb_recordset::ctor(default)".
  explicit udb_recordset(std::wstring name);
  virtual ~udb_recordset();
  udb_recordset(const udb_recordset&) = delete;
  udb_recordset& operator=(const udb_recordset&) = delete;

  // Writes one row. The record belongs to the caller; an implementation may
  // convert its values in place (convert_record) but must not keep it.
  virtual void append_record(udb_record& record) = 0;
  // Replaces the stored row with that key; the base only logs.
  virtual void update2(const udb_key_list& key, udb_record& record);
  // Replaces the stored row with the record's key; the base only logs.
  virtual void update1(udb_record& record);
  // (An unused slot of the original layout stands here.)
  // The current row, or null; the base has none.
  virtual udb_record* get_item();
  // True when there is no current row; the base is always at the end.
  virtual bool is_eof();
  // True for a recordset over a query.
  virtual bool is_query();
  // Positions the recordset; the base only logs.
  virtual void move_to(std::int32_t position);
  virtual void next();
  virtual void prev();
  // Starts reading from the first row again.
  virtual void reset();
  // Deletes the row of a key given as text; nothing here.
  virtual void delete_key_text(const std::wstring& key);
  // Deletes the row of a key; nothing here.
  virtual void delete_key(const udb_key_list& key);
  // The values of the primary-key columns of this recordset, taken from
  // record (found by name). that is the other side's schema.
  virtual udb_key_list get_key(const udb_schema& that, const udb_record& record);
  // The end of a destination table: writes out the rows still held back
  // (a batched destination keeps the last batch) and whatever else is
  // pending, and reports a failure by an exception. The driver calls it
  // once at the end of each entry, before the recordset is destroyed, so
  // that a failure of the last rows is reported with their table and the
  // counts of write_counts are complete; the destructor only does the same
  // quietly, as a safety net. A later call does nothing more than report a
  // failure that is still standing. Nothing here.
  virtual void finish();

  // --- Verification of what a destination wrote --------------------------------
  // What the destination says it has written so far (complete after
  // finish); the base does not know.
  [[nodiscard]] virtual udb_write_counts write_counts() const;

  // Adds an index unless one of that name (compared without regard to case)
  // exists. Logs "udb_recordset::add_index(%s, %d)" with the name and the
  // number of columns; a clash logs "Index '%s' cannot be processed".
  bool add_index(const udb_index& index);
  // Makes a record fit this (destination) table: each field's name goes
  // through the database's field-name map for this table, the column of the
  // mapped name is looked up in the schema, and a value of another type is
  // converted to the column's type in place. A field whose column is absent
  // is left as it is. A failed conversion throws the value's exception.
  void convert_record(udb_record& record) const;
  // Turns a filter of the form "<column>value</column>..." into the
  // condition of a WHERE clause: "column=value", joined by " and ". The value
  // is taken as written (an SQL literal). A column that the schema lacks
  // throws tk_exception_ex "The structure of data source does not conform to
  // the destination table."; malformed markup is an internal error.
  [[nodiscard]] std::wstring get_filter_subquery(const std::wstring& text) const;

  [[nodiscard]] const std::wstring& query() const { return query_; }
  [[nodiscard]] const std::wstring& name() const { return name_; }
  [[nodiscard]] std::int32_t position() const { return position_; }
  [[nodiscard]] udb_schema& schema() { return schema_; }
  [[nodiscard]] const udb_schema& schema() const { return schema_; }
  [[nodiscard]] udb_indexes& indexes() { return indexes_; }
  [[nodiscard]] const udb_indexes& indexes() const { return indexes_; }
  [[nodiscard]] udb_database* database() const { return database_; }
  [[nodiscard]] const std::wstring& filter() const { return filter_; }
  void set_filter(std::wstring filter) { filter_ = std::move(filter); }
  [[nodiscard]] std::uint64_t rec_count() const { return rec_count_; }

 protected:
  std::wstring query_;          // SELECT text; empty for a table
  std::wstring name_;           // table or query name
  std::int32_t position_ = -1;  // -1 while not positioned
  udb_schema schema_;
  udb_indexes indexes_;
  udb_database* database_ = nullptr;
  std::wstring filter_;          // condition of a filtered read
  std::uint64_t rec_count_ = 0;  // total rows, kept up to date by append_record
};

}  // namespace qb
