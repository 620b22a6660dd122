// mysql_converter_impl: the MySQL half of the converter.
//
// It holds the MySQL engine (sql_engine, the one connection to the server,
// with its version, character set and table engine), the connection
// settings as the MySQL page and the profile give them, the options of the
// dump file, and the databases the server lists. Its operations connect,
// check a database name, test for a database and drop one.
//
// Databases of the destination are made through mysql_target_engine: the
// server's databases (exists, open, create, delete) and the dump file. The
// converter uses the one plugged in with set_target; by default that is
// sql_engine_target, which asks the sql_engine whether a database exists,
// drops it and makes dump files, and says clearly that it cannot open or
// create server databases, which the target layer does not make yet.
//
// Ownership: the converter owns the engine and its settings; a target given
// to set_target belongs to the caller and must outlive its use.
// Thread-safety: the wizard thread, or the worker during a run; one at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sql/engine.h"
#include "udb/engine.h"

namespace qb {

class udb_database;
class udb_profile;

// The options of the dump file. The profile and the per-user settings keep
// all but the last two; title is written into the file's header.
struct mysql_dump_options {
  std::uint32_t line_break = 0;      // 0: CR LF, otherwise LF
  std::uint8_t new_version = 1;      // MySQL 4.1 and later; 0: the old dialect
  std::uint8_t add_lock = 1;         // LOCK TABLES around the inserts
  std::uint8_t insert_comments = 1;  // the # comment blocks
  std::uint8_t create_database = 0;  // DROP/CREATE/USE DATABASE
  std::uint8_t create_table = 1;     // table definitions
  std::string title;                 // "Quillbridge 8.1 ", set when the dump is made
  std::string database_name;         // empty: the base of the file name
};

// Where the destination's databases come from.
class mysql_target_engine : public udb_engine {
 public:
  // A new dump file at path, with the options. The caller owns it.
  virtual std::unique_ptr<udb_database> create_dump(const std::wstring& path, const mysql_dump_options& options) = 0;
};

// The target over the sql_engine of the converter.
class sql_engine_target : public mysql_target_engine {
 public:
  explicit sql_engine_target(sql_engine& engine) : engine_(engine) {}

  // The target layer makes no server database objects yet: tk_exception.
  std::unique_ptr<udb_database> create_db(const std::wstring& name) override;
  std::unique_ptr<udb_database> open_db(const std::wstring& name, std::uint32_t mode) override;
  // sql_engine::create_dump with the options of the converter; the title is
  // the "# Created by" text.
  std::unique_ptr<udb_database> create_dump(const std::wstring& path, const mysql_dump_options& options) override;
  // sql_engine::db_delete and sql_engine::is_db_exist; without a
  // connection, tk_exception "Not connected to the MySQL server.".
  void db_delete(const std::wstring& name) override;
  bool is_db_exist(const std::wstring& name) override;

 private:
  void require_connection() const;

  sql_engine& engine_;
};

class mysql_converter_impl {
 public:
  mysql_converter_impl();
  virtual ~mysql_converter_impl();
  mysql_converter_impl(const mysql_converter_impl&) = delete;
  mysql_converter_impl& operator=(const mysql_converter_impl&) = delete;

  // Logs "mysql_converter_impl::connect_mysql_server". The port is read as
  // atoi reads it; 0 (also a text with no leading number) fails with
  // "Invalid port number". Then sql_engine::connect.
  void connect_mysql_server();
  // Logs "mysql_converter_impl::check_mysql_db_name(%s)" and
  // "sql_engine::create_dn_validator". Returns when the server's rules for
  // database names accept the name; otherwise throws, shown to the user, the
  // message of the server's family (old below 4.1.0).
  void check_mysql_db_name(const std::wstring& name);
  // Logs "mysql_converter_impl::is_mysql_base_exist( %s )".
  bool is_mysql_base_exist(const std::wstring& name);
  // Logs "mysql_converter_impl::del_mysql_base (%s)" and drops the database.
  void del_mysql_base(const std::wstring& name);

  // Section "MySQL settings" apart from "direct mode": "host", "user",
  // "password", "port", and the dump options ("dump line break": "0" is the
  // only false; the others: "1" is the only true). An empty value leaves the
  // setting. Returns true.
  bool load_profile(const udb_profile& profile);
  bool store_profile(udb_profile& profile) const;

  [[nodiscard]] mysql_target_engine& target() const { return *target_; }
  void set_target(mysql_target_engine& target) { target_ = &target; }

  sql_engine engine;
  mysql_dump_options dump_options;
  std::vector<std::wstring> databases;
  std::string host;
  std::string user;
  std::string password;
  std::string port = "3306";

 private:
  sql_engine_target own_target_{engine};
  mysql_target_engine* target_ = &own_target_;
};

// The messages of a refused database name.
inline constexpr char mysql_old_db_name_message[] =
    "Not a valid MySQL database name. It cannot consist only of numbers\nor start with a digit and must differ from "
    "any MySQL keyword. Use\nalphanumeric symbols (A-Z, a-z, 0-9), '_' and '$' to compose\nnew database name.";
inline constexpr char mysql_new_db_name_message[] =
    "Not a valid MySQL database name. Use alphanumeric characters\r\n(A-Z, a-z, 0-9), '_', '$' and spaces to compose "
    "new database name.";

}  // namespace qb
