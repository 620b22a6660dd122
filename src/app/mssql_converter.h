// mssql_converter_impl: the SQL Server half of the converter.
//
// It holds the settings of the source side as the wizard's SQL Server page
// and the profile give them (server, login, password, Windows
// authentication, "connect as DBO", "view owned", the schema filter and the
// dump options of that side), the lists the page shows, and the SQL Server
// engine (mss_engine, the connection settings the pages check).
//
// The calls the converter makes of the server (open a database, does a
// database exist, which databases there are) go through mss_source_engine,
// so that the converter, the driver and their tests do not depend on how
// the server is reached. By default that is mss_engine_source over the
// member engine; set_source_engine plugs in another.
//
// Ownership: the converter owns its settings and the engine; an
// mss_source_engine given to set_source_engine belongs to the caller and must
// outlive its use.
// Thread-safety: the wizard thread, or the worker during a run; one at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "mss/engine.h"
#include "udb/database.h"

namespace qb {

class udb_profile;

// What the converter asks of the SQL Server engine.
class mss_source_engine {
 public:
  mss_source_engine() = default;
  virtual ~mss_source_engine();
  mss_source_engine(const mss_source_engine&) = delete;
  mss_source_engine& operator=(const mss_source_engine&) = delete;

  // A database of the connected server, with the open-mode bits and the
  // schema filter (empty: all schemas). The caller owns it.
  virtual std::unique_ptr<udb_database> open_db(const std::wstring& name, std::uint32_t mode,
                                                const std::wstring& schema) = 0;
  // True when the server has a database of that name that the login may open.
  virtual bool is_db_exist(const std::wstring& name) = 0;
  // The names of the server's databases.
  virtual std::vector<std::wstring> get_contents() = 0;
};

// The calls over the converter's mss_engine: opening a database, asking
// whether one exists, and the list of databases.
class mss_engine_source : public mss_source_engine {
 public:
  explicit mss_engine_source(mss_engine& engine) : engine_(engine) {}
  std::unique_ptr<udb_database> open_db(const std::wstring& name, std::uint32_t mode,
                                        const std::wstring& schema) override;
  bool is_db_exist(const std::wstring& name) override;
  // mss_engine::get_contents: not connected, an internal error.
  std::vector<std::wstring> get_contents() override;

 private:
  mss_engine& engine_;
};

// The options of the SQL Server dump side, kept with the settings; saved in
// the profile only.
struct mss_dump_options {
  std::uint8_t insert_comments = 1;
  std::uint8_t create_database = 0;
  std::uint8_t create_table = 1;
};

class mssql_converter_impl {
 public:
  mssql_converter_impl();
  virtual ~mssql_converter_impl();
  mssql_converter_impl(const mssql_converter_impl&) = delete;
  mssql_converter_impl& operator=(const mssql_converter_impl&) = delete;

  // The schemas of a database, for the page. Logs
  // "mssql_converter_impl::get_mss_schemas(%s)". A database that exists
  // ("Database exists, load schemas list") is opened with mode 161 and asked;
  // otherwise ("Database not exists, load standard schemas") the list is
  // "dbo", "guest", "sys". A failure is logged and the list stays as far as
  // it came.
  void get_mss_schemas(const std::wstring& database, std::vector<std::wstring>& out);
  // The server's databases.
  void get_contents(std::vector<std::wstring>& out);
  // Logs "mssql_converter_impl::test_query". Opens the database with mode 1
  // and no schema filter and asks whether it accepts the SELECT text: 1 when
  // it does, 0 when it does not or when anything on the way fails.
  int test_query(const std::wstring& database, const std::wstring& text);

  // "connect as DBO": table names go through "[dbo]." even for a named
  // user. Logs "mss_engine::set_as_dbo(%d)".
  void set_as_dbo(bool flag);
  // "view owned": object names carry no owner, and "dbo." leaves view texts.
  void set_view_owned(bool flag);

  // Section "MS SQL Server settings": "server", "login", "password",
  // "windows authentication", "connect as DBO" (logs the set_as_dbo line),
  // "schema" (logs "mss_schema=%s"), and the three dump options. "1" is the
  // only true of its flags. Returns true.
  bool load_profile(const udb_profile& profile);
  // The same section; server, login, password and schema only when not
  // empty. Returns true.
  bool store_profile(udb_profile& profile) const;

  // The calls the converter makes of the server; set_source_engine plugs in
  // another than the default over `engine`.
  [[nodiscard]] mss_source_engine& source_engine() const { return *engine_; }
  void set_source_engine(mss_source_engine& source) { engine_ = &source; }

  std::uint8_t b_sec_log = 1;  // Windows authentication
  std::wstring mss_schema;     // schema filter; empty: all
  mss_dump_options dump_options;
  mss_engine engine;
  std::vector<std::wstring> databases;
  std::vector<std::wstring> schemas;
  std::wstring host;
  std::wstring user;
  std::wstring password;
  // Settings that belong to the engine, kept here until it carries them.
  std::uint8_t as_dbo = 1;
  std::uint8_t is_view_owned = 1;

 private:
  mss_engine_source own_source_{engine};
  mss_source_engine* engine_ = &own_source_;
};

}  // namespace qb
