// udb_database: one open database, as the conversion driver sees it.
//
// The SQL Server source, the MySQL server and the dump file are databases;
// the driver knows only this interface. It lists the tables and views that
// the implementation found, hands out recordsets over tables and queries,
// creates tables, indexes, foreign keys and views, and keeps the names map
// that remembers every rename made on the way.
//
// The virtual functions below are declared in a fixed order that every
// implementation shares. Where the base has nothing to do the function is a
// no-op; where a call would be a misuse it is an internal error
// (tk_mail_assertion); the four that only an implementation can answer are
// pure.
//
// Table names compare without regard to case unless case_sensitive is set.
//
// Ownership: a database is owned by whoever opened it (the driver for a run,
// a wizard question for its duration). Recordsets it hands out belong to the
// caller and must not outlive the database. The lists (tables, views,
// sequences, relationships) and the names map are owned here.
// Thread-safety: none; one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "udb/indexes.h"
#include "udb/names_map.h"
#include "udb/relationships.h"
#include "udb/schema.h"

namespace qb {

class udb_recordset;

// A view: (name, definition).
using udb_view = std::pair<std::wstring, std::wstring>;
using udb_view_list = std::vector<udb_view>;

// What a destination says became of the views given to create_views: created,
// refused (each refusal also went to the error handler), or passed over
// (a definition that is not a SELECT). A destination that cannot tell leaves
// known false.
struct udb_view_counts {
  bool known = false;
  std::uint32_t created = 0;
  std::uint32_t failed = 0;
  std::uint32_t skipped = 0;
};

// A sequence of the source database: a name and five numbers.
struct udb_sequence {
  std::wstring name;
  std::int32_t start = 0;
  std::int32_t increment = 0;
  std::int32_t min_value = 0;
  std::int32_t max_value = 0;
  std::int32_t cycle = 0;

  // Logs "udb_sequence::ctor(%s,%d,%d,%d,%d,%d)".
  udb_sequence(std::wstring name, std::int32_t start, std::int32_t increment, std::int32_t min_value,
               std::int32_t max_value, std::int32_t cycle);

  friend bool operator==(const udb_sequence&, const udb_sequence&) = default;
};

class udb_database {
 public:
  // The implementation's constructor loads the table list (and, unless mode
  // bit 0x80 is set, the views).
  udb_database(std::wstring name, std::uint32_t mode);
  virtual ~udb_database();
  udb_database(const udb_database&) = delete;
  udb_database& operator=(const udb_database&) = delete;

  // Creates a schema (namespace) of that name in the database; none here.
  virtual void create_schema(const std::wstring& schema_name);
  // The partitioned form of create_table; no database supports it, and a call
  // is an internal error. Logs "udb_database::create_table(partition)".
  virtual void create_table_partition();
  // Creates the table (or, where the implementation says so, returns the
  // existing one) and a recordset to append to it. The index list is the
  // caller's copy; the implementation may rename entries in it.
  virtual std::unique_ptr<udb_recordset> create_table(const std::wstring& name, const udb_schema& schema,
                                                      udb_indexes& indexes) = 0;
  // Creates one index of a table; nothing here.
  virtual void create_index(const std::wstring& table, const udb_schema& schema, const udb_index& index);
  // Calls create_index for each index, in order.
  virtual void create_indexes(const std::wstring& table, const udb_schema& schema, const udb_indexes& indexes);
  virtual void create_sequences(const std::vector<udb_sequence>& sequences);
  virtual void create_views(const udb_view_list& views);
  virtual void delete_fk(const std::wstring& name);
  virtual void delete_idx(const std::wstring& table, const std::wstring& index);
  // Removes the name from the table list; false (logging "Table not found!")
  // when it is not there. Implementations drop the table and then call this.
  virtual bool delete_tab(const std::wstring& name);
  // (An unused slot of the original layout stands here.)
  // Deletes every row: runs "delete from " + name through query, unquoted.
  virtual void empty_table(const std::wstring& name);
  // (An unused slot of the original layout stands here.)
  // A recordset over a SELECT statement, known under name.
  virtual std::unique_ptr<udb_recordset> get_query(const std::wstring& name, const std::wstring& select,
                                                   std::uint32_t flags) = 0;
  // Fills names with the schemas (owners) of the database; the base empties it.
  virtual void get_schema_info(std::vector<std::wstring>& names);
  // A recordset over a table.
  virtual std::unique_ptr<udb_recordset> get_table(const std::wstring& name, std::uint32_t flags) = 0;
  // Runs a statement; a result set comes back as a recordset, otherwise null.
  // The base cannot run anything: a call is an internal error.
  virtual std::unique_ptr<udb_recordset> query(const std::wstring& statement);
  // True when the database accepts the statement.
  virtual bool test_query(const std::wstring& statement) = 0;
  // Creates the foreign keys; their table and column names are source names
  // that the implementation resolves through the names map.
  virtual void create_relationships(const udb_relationships& relationships);
  // The table names as the implementation found them.
  virtual std::vector<std::wstring>& get_table_names();
  // True when the table list holds the name. Logs each candidate.
  virtual bool is_table_exist(const std::wstring& name);
  // Completes the destination: writes out what it still holds and closes
  // it, reporting any failure by an exception (a dump file on a full disk).
  // The driver calls it once at the end of a run, before the database is
  // destroyed; the destructor only completes quietly. Nothing here.
  virtual void finish();

  // The figures of the views handed to create_views so far; the base does
  // not know them.
  [[nodiscard]] virtual udb_view_counts view_counts() const;

  // Records a table rename of the run. Logs
  // "udb_database::add_tn_mapping(%s->%s)".
  void add_tn_mapping(const std::wstring& source, const std::wstring& generated);

  [[nodiscard]] std::uint32_t mode() const { return mode_; }
  [[nodiscard]] const std::wstring& name() const { return name_; }
  [[nodiscard]] const std::wstring& owner() const { return owner_; }
  [[nodiscard]] bool case_sensitive() const { return case_sensitive_; }
  [[nodiscard]] const udb_view_list& views() const { return views_; }
  [[nodiscard]] const std::vector<std::wstring>& tables() const { return tables_; }
  [[nodiscard]] udb_names_map& names_map() { return names_map_; }
  [[nodiscard]] const udb_names_map& names_map() const { return names_map_; }
  [[nodiscard]] const std::vector<udb_sequence>& sequences() const { return sequences_; }
  [[nodiscard]] const udb_relationships& relationships() const { return relationships_; }
  [[nodiscard]] bool has_relationships() const { return has_relationships_; }

 protected:
  // The comparison rule of is_table_exist and delete_tab.
  [[nodiscard]] bool same_table_name(const std::wstring& a, const std::wstring& b) const;

  std::uint32_t mode_;                   // open-mode bits
  std::wstring name_;                    // database or file name
  std::wstring owner_;                   // schema filter, set by the implementation
  bool case_sensitive_ = false;          // names compare exactly when set
  udb_view_list views_;                  // views read at open time
  std::vector<std::wstring> tables_;     // table names as found
  udb_names_map names_map_;              // renames of the run
  std::vector<udb_sequence> sequences_;  // sequences read at open time (source only)
  udb_relationships relationships_;      // foreign keys read at open time
  bool has_relationships_ = false;
};

}  // namespace qb
