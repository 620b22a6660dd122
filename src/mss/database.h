// odb_database and mss_database: a SQL Server database opened as the source
// of a conversion.
//
// odb_database is the part that needs no T-SQL: it owns the database's
// session (an ODBC connection of its own), runs statements for the query and
// test_query slots, and lends the session to the recordsets it makes.
// mss_database reads the catalog when it is opened: the tables of the schema,
// their column types, the sequences and (unless the open mode says not to)
// the views, cleaned for the destination; it makes an mss_table for every
// table or query the conversion reads, refining date, time and spatial
// columns from the column types.
//
// One session, one pending result. SQL Server's drivers allow one open
// result per connection; a table keeps its rows open on the session while it
// is read. A recordset therefore leases the session: the first lease holds
// the database's own session until the recordset goes, and a statement or
// recordset that needs a session while it is held gets a connection of its
// own, opened with the engine's settings. The conversion reads one table at
// a time and so uses one connection.
//
// The source is read only: the slots that create or change objects (tables,
// indexes, sequences, views, foreign keys) serve no SQL Server destination
// here. create_table and empty_table are misuses (tk_mail_assertion);
// delete_tab only removes a name from the list; the others do nothing.
//
// Ownership: the engine's open_db hands the database to its caller. The
// database owns its session, the lists (tables, views, sequences, foreign
// keys) and the column types; recordsets it hands out belong to the caller
// and must go before the database. The engine must outlive the database.
// Thread-safety: one thread at a time (the wizard's or the worker's).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "mss/odbc.h"
#include "udb/database.h"

namespace qb {

class mss_engine;
class mss_table;

// The use of a session by one recordset or statement: the database's own
// session, held until the lease goes, or a connection owned by the lease.
// Move-only; the database whose session it holds must outlive it.
class odb_session_lease {
 public:
  odb_session_lease() = default;
  // Holds a session that someone else owns; held (when not null) is set
  // while the lease lives.
  odb_session_lease(const odb_connection& session, bool* held);
  // Owns the connection.
  explicit odb_session_lease(odb_connection own);
  ~odb_session_lease();
  odb_session_lease(odb_session_lease&& other) noexcept;
  odb_session_lease& operator=(odb_session_lease&& other) noexcept;
  odb_session_lease(const odb_session_lease&) = delete;
  odb_session_lease& operator=(const odb_session_lease&) = delete;

  [[nodiscard]] const odb_connection& get() const;
  [[nodiscard]] bool valid() const { return session_ != nullptr; }
  // True when the lease owns a connection of its own.
  [[nodiscard]] bool owns_connection() const { return own_ != nullptr; }

 private:
  void release() noexcept;

  std::unique_ptr<odb_connection> own_;
  const odb_connection* session_ = nullptr;
  bool* held_ = nullptr;
};

class odb_database : public udb_database {
 public:
  odb_database(std::wstring name, std::uint32_t mode, odb_connection session);
  ~odb_database() override;

  // Removes the name from the table list; the source's table stays.
  bool delete_tab(const std::wstring& name) override;
  // Runs the statement; a result set comes back as a recordset (which holds
  // a lease of the session), otherwise null. Throws odb_exception.
  std::unique_ptr<udb_recordset> query(const std::wstring& statement) override;
  // Runs the statement and drops its rows: true ("Query succeeded") when
  // the server accepted it, false ("Query failed") when it refused.
  bool test_query(const std::wstring& statement) override;

  // The session for a recordset or a statement (see the header comment).
  odb_session_lease lease_session();
  // True while a lease holds the database's own session.
  [[nodiscard]] bool session_held() const { return session_held_; }
  [[nodiscard]] const odb_connection& session() const { return session_; }

 protected:
  // A new connection to this database with the engine's settings.
  virtual odb_connection open_extra_session() = 0;

 private:
  odb_connection session_;
  bool session_held_ = false;
};

class mss_database : public odb_database {
 public:
  // Column types: table name (bare) -> column name -> DATA_TYPE text.
  using column_types_map = std::map<std::wstring, std::map<std::wstring, std::wstring>>;

  // Logs "mss_database::ctor2(%s,%s)" and reads the catalog: the tables (of
  // "dbo" when views are owned and no schema is given) with their column
  // types, the sequences, and the views unless bit 0x80 of mode is set. A
  // failure of one of the three is logged at level 3 and leaves its list as
  // far as it came.
  mss_database(mss_engine& engine, std::wstring name, std::wstring schema, odb_connection session,
               std::uint32_t mode);
  ~mss_database() override;

  // Tables in the form "owner.table" (through the catalog function), or
  // through "exec sp_tables" when that gives none; then init_columns.
  void init_tables(const std::wstring& schema);
  // The second way of init_tables, on its own: "exec sp_tables" for the
  // schema's tables, stored bare while views are owned, else as
  // "[owner].[table]". Throws odb_exception.
  void init_tables_by_procedure(const std::wstring& schema);
  // The DATA_TYPE of every column of the schema's tables (all schemas when
  // empty) from INFORMATION_SCHEMA.COLUMNS. Throws odb_exception.
  void init_columns(const std::wstring& schema);
  // SYS.SEQUENCES (SQL Server 2012 and later). Throws odb_exception.
  void init_sequencies(const std::wstring& schema);
  // The views of sys.sql_modules, cleaned (mss_clean_view). Throws
  // odb_exception.
  void init_views(const std::wstring& schema);

  // The read-only source: create_table is a misuse.
  std::unique_ptr<udb_recordset> create_table(const std::wstring& name, const udb_schema& schema,
                                              udb_indexes& indexes) override;
  // The read-only source: deleting rows is a misuse.
  void empty_table(const std::wstring& name) override;
  // A recordset over a user's query, known under name. Logs
  // "mss_database::get_query(%s: %s)".
  std::unique_ptr<udb_recordset> get_query(const std::wstring& name, const std::wstring& select,
                                           std::uint32_t flags) override;
  // The schemas of the database (from sys.schemas); "dbo" alone when the
  // server cannot tell (SQL Server 2000, no right).
  void get_schema_info(std::vector<std::wstring>& names) override;
  // A recordset over a table, named in any form (bare, "owner.table",
  // "[owner].[table]"); the first form of the two.
  std::unique_ptr<udb_recordset> get_table(const std::wstring& name, std::uint32_t flags) override;
  // The second form: the same with the flags of a plain read.
  std::unique_ptr<mss_table> get_table2(const std::wstring& name);
  // False for an empty name; the name is simplified ("owner.table") and
  // looked up in the table list.
  bool is_table_exist(const std::wstring& name) override;

  // Refines a table's schema from the column types: date and time columns
  // become pure dates and times, geometry and geography columns well-known
  // text, which the table then reads through ".STAsText()".
  std::unique_ptr<mss_table> amend_schema(std::unique_ptr<mss_table> table);

  [[nodiscard]] const std::wstring& schema() const { return schema_; }
  [[nodiscard]] const column_types_map& column_types() const { return column_types_; }
  [[nodiscard]] mss_engine& engine() const { return engine_; }
  // The foreign keys found so far (each table adds the keys that refer to
  // it, or on Azure the keys it holds).
  [[nodiscard]] udb_relationships& relationships_for_tables() { return relationships_; }

 protected:
  odb_connection open_extra_session() override;

 private:
  std::unique_ptr<mss_table> make_table(const std::wstring& name, const std::wstring& select, std::uint32_t flags);

  mss_engine& engine_;
  std::wstring schema_;
  column_types_map column_types_;
};

}  // namespace qb
