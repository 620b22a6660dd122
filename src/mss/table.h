// odb_table and mss_table: one source table or user query, read for the
// conversion.
//
// odb_table is what needs no T-SQL catalog: the source (a bracketed table
// name or a SELECT text), its record count, the opening of its rowset, and a
// reading that ends by the count. mss_table completes the schema the driver
// reported with what only the catalog knows (defaults, identity, precision
// and scale, the datetimeoffset mark) and loads the table's primary key,
// unique and plain indexes with their included columns, and the foreign keys
// into the database's list.
//
// The order of work. SQL Server's drivers keep one pending result per
// connection, and a table's rows stay pending while it is read; so the table
// reads the whole catalog first (columns, identity, indexes, count) and opens
// its rowset last. The catalog's answers about columns are then applied to
// the schema that the rowset describes. A user query has no catalog of its
// own: only its count and rowset are read.
//
// Failures: the column catalog, the count and the rowset failing end the
// constructor with odb_exception (the table cannot be read); the identity and
// index steps failing are logged at level 3, and the table is read without
// what they would have given. A default that cannot be carried is dropped
// with a log line.
//
// Ownership: the table owns its lease of the database's session and its
// rowset; it must go before its database. The relationships list it adds to
// belongs to the database (or to whoever passed it) and must outlive it.
// Thread-safety: one thread at a time, the thread of the session.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "mss/catalog.h"
#include "mss/database.h"
#include "mss/recordset.h"
#include "udb/relationships.h"

namespace qb {

class odb_table : public odb_recordset {
 public:
  // A table (query empty: name is its bracketed name) or a query (name is
  // what the user called it). Nothing is read yet.
  odb_table(udb_database* database, odb_session_lease session, std::wstring name, std::wstring query);
  ~odb_table() override;

  // True once the count is reached (or the rows end before it). Logs
  // "odb_table::is_eof(%d:%d)".
  bool is_eof() override;
  // Back to the first row; the statement runs again.
  void reset() override;

  // Counts the rows: "SELECT COUNT(*) FROM " + name, or over the query as a
  // derived table. Logs "odb_table::get_records_cnt". Throws odb_exception.
  std::int64_t get_records_cnt();
  // Opens the rowset: "SELECT * FROM " + name, or the query ("Open rowset in
  // read_only mode"), and builds the schema from it. Throws odb_exception.
  void internal_initialize(bool read_only);

  // The table's name or the query's text, as it goes into statements.
  [[nodiscard]] const std::wstring& source() const { return source_; }
  [[nodiscard]] std::int64_t rec_cnt() const { return rec_cnt_; }
  [[nodiscard]] bool is_query_source() const { return !query_.empty(); }
  [[nodiscard]] const odb_connection& session() const { return session_.get(); }
  [[nodiscard]] const odb_session_lease& lease() const { return session_; }

 protected:
  // Replaces the rowset by the result of text, keeping the schema.
  void open_rowset(const std::wstring& text, bool reset_schema);

  odb_session_lease session_;
  std::wstring source_;
  std::int64_t rec_cnt_ = -1;  // -1 until counted
};

class mss_table : public odb_table {
 public:
  // Flags: bits 32 and 64 together skip the indexes. version is the engine's
  // version code (100: Azure, which reads indexes from the catalog views; 3
  // and below: SQL Server 2000, which has no sys schema). relationships
  // receives the foreign keys found.
  mss_table(udb_database* database, odb_session_lease session, std::wstring name, std::wstring query,
            std::uint32_t flags, udb_relationships& relationships, int version);

  // The value of a stored default: brackets and quotes undone, date
  // functions kept as their text (tag 8), dates parsed, other values read in
  // the column's tag. Logs "mss_table::get_def_value(type=0x%08X, src='%s')".
  // A text the tag cannot take throws the value's exception; a date text
  // that is no date gives an empty value.
  static ole_variant get_def_value(std::uint16_t type, const std::wstring& text);

  // Primary key, foreign keys (those that refer to this table), indexes and
  // their included columns, through the catalog functions.
  void init_indexes(const std::wstring& owner, const std::wstring& table);
  // The same from the catalog views, for Azure: indexes (the statement lists
  // included columns among the keys; they are told apart as on the other
  // servers), and the foreign keys this table holds. The statement names a parent table without its schema;
  // that schema is read from the key's row in sys.foreign_keys.
  void init_indexes2(const std::wstring& owner, const std::wstring& table);
  // Runs text into the table's rowset, keeping the schema (and its
  // refinements). Logs "mss_table::refine_by_sql_query(%s)" at level 3.
  void refine_by_sql_query(const std::wstring& text);

  // The identity's last value (0 when it was never used) and increment; 1
  // and 1 for a table without identity or when the catalog could not say.
  [[nodiscard]] std::int32_t identity_seed() const { return identity_seed_; }
  [[nodiscard]] std::int32_t identity_increment() const { return identity_increment_; }
  [[nodiscard]] bool b_identity() const { return b_identity_; }
  // Owner and table of the name (empty for a query).
  [[nodiscard]] const std::wstring& owner() const { return owner_; }
  [[nodiscard]] const std::wstring& table() const { return table_; }

 private:
  // A column as the catalog describes it.
  struct catalog_column {
    std::wstring name;
    std::wstring type;
    std::optional<std::wstring> default_text;
    std::int64_t precision = 0;
    std::int64_t scale = 0;
    bool identity = false;  // known as identity from the catalog
  };

  void split_tab_name();
  void read_columns();
  void read_identity();
  void read_indexes(std::uint32_t flags);
  void init_schema();
  void apply_default(t_ftd& field, const std::wstring& text);
  void read_included_columns(std::vector<udb_index>& indexes);
  void add_foreign_key(const std::wstring& name, const std::wstring& pk_table, const std::wstring& fk_owner,
                       const std::wstring& fk_table, const std::wstring& pk_column, const std::wstring& fk_column,
                       const std::wstring& update_rule, const std::wstring& delete_rule);
  void copy_indexes(std::vector<udb_index>& indexes);
  // The schema of the table a foreign key of this table refers to (Azure).
  std::wstring parent_schema(const std::wstring& key, const std::wstring& owner);
  [[nodiscard]] std::wstring composed(const std::wstring& owner, const std::wstring& table) const;

  udb_relationships& relationships_;
  int version_;
  std::wstring owner_;
  std::wstring table_;
  std::vector<catalog_column> catalog_columns_;
  std::wstring identity_column_;
  // SQL Server's own defaults, IDENTITY(1,1), until the catalog says more.
  std::int32_t identity_seed_ = 1;
  std::int32_t identity_increment_ = 1;
  bool b_identity_ = false;
  std::map<std::wstring, std::wstring> parent_schemas_;  // foreign key -> schema of its parent
};

}  // namespace qb
