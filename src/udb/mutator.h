// The user's customisations of a table as the conversion driver applies them.
//
// A table mutator holds the changes the user made to one source table: a new
// table name, renamed, retyped or dropped columns. The driver applies it at
// two moments: to the schema and indexes of the source recordset before the
// destination table is created (modify3, then modify1), and to every row
// before it is appended (modify2), when the mutator holds any field change.
// udb_table_mutators finds the mutator of a table by its source name.
//
// These are the interfaces the driver needs; the tree of mutators that the
// type-map dialog and the profile fill implements them.
//
// Ownership: the tree owns its table mutators; a lookup returns a pointer
// valid while the tree is unchanged. A schema or record handed to a mutator
// stays the caller's; a record that modify2 returns belongs to the mutator
// and is valid until its next call.
// Thread-safety: none. The wizard thread fills the tree before a run; during
// a run only the worker reads it.
#pragma once

#include <string>

#include "udb/indexes.h"
#include "udb/record.h"
#include "udb/schema.h"

namespace qb {

class udb_table_mutator {
 public:
  udb_table_mutator() = default;
  virtual ~udb_table_mutator();
  udb_table_mutator(const udb_table_mutator&) = delete;
  udb_table_mutator& operator=(const udb_table_mutator&) = delete;

  // Applies the column changes to the schema in place (dropped columns
  // leave it, changed ones take their new name and type) and gives the
  // table's target name in new_name.
  virtual void modify1(std::wstring& new_name, udb_schema& schema) = 0;
  // The row as the destination must receive it: the record itself when the
  // table has no field changes, otherwise a modified copy owned by the
  // mutator. A value that cannot take its new type throws.
  virtual udb_record* modify2(udb_record& record) = 0;
  // Removes dropped columns from every index and renames changed ones.
  virtual void modify3(udb_indexes& indexes) = 0;
  // True when at least one column of the table has a change.
  [[nodiscard]] virtual bool has_field_mutators() const = 0;
};

class udb_table_mutators {
 public:
  udb_table_mutators() = default;
  virtual ~udb_table_mutators();
  udb_table_mutators(const udb_table_mutators&) = delete;
  udb_table_mutators& operator=(const udb_table_mutators&) = delete;

  // The mutator of the source table of exactly that name (case-sensitive),
  // or null.
  virtual udb_table_mutator* get_table_mutator3(const std::wstring& name) = 0;
};

}  // namespace qb
