// mss_engine: the SQL Server source engine; odb_initializer: finds a driver
// that connects.
//
// Connections go through unixODBC. The drivers are tried in a fixed order:
// Microsoft's "ODBC Driver 18 for SQL Server", then "ODBC Driver 17 for SQL
// Server" (the native drivers), then "FreeTDS" (the generic one). Only a
// driver that cannot be loaded (not registered, its library missing) passes
// the attempt on to the next; a driver that answers and refuses (a wrong
// password, a database the login may not open) ends it with its
// odb_exception. When no driver can be loaded the engine throws the
// tk_exception "Failed to load OLE DB support library...".
//
// The server is given as the user typed it: "host", "host\instance" or
// "host,port" (also "." or "(local)" for this machine). An empty user name
// means Windows authentication (Trusted_Connection=yes). FreeTDS is asked
// for TDS 7.4, UTF-8 client text and the largest text size; every connection
// then runs "SET TEXTSIZE 2147483647", so that no (max), text or image value
// is ever cut by the server.
//
// The engine is a singleton owned by the converter. It keeps what the last
// successful connect was given (server, user, password), the server's
// version code, and the names of the server's databases. Passwords never
// reach the log: they are written as "***".
//
// Ownership: the engine owns the ODBC environment; every connection it opens
// for a caller must be closed before the engine goes.
// Thread-safety: one thread at a time (the connection page's animation thread,
// later the conversion worker); no locks.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "mss/odbc.h"
#include "tk/singleton.h"

namespace qb {

class udb_database;

// Version codes of SQL Server releases, as get_version gives them.
inline constexpr int mss_version_unknown = 1;
inline constexpr int mss_version_7 = 2;
inline constexpr int mss_version_2000 = 3;
inline constexpr int mss_version_2005 = 4;
inline constexpr int mss_version_2008 = 5;
inline constexpr int mss_version_azure = 100;

// The version code of an @@VERSION text: the year behind "Microsoft SQL
// Server" (2022 is 18 ... 2000 is 3, "7." is 2), 100 for "Microsoft SQL
// Azure", 1 for anything else. Logs "str_ver_num=%s" and "Got Microsoft SQL
// Azure" at level 2.
int mss_version_code(std::wstring_view version_text);

// One ODBC driver to try.
struct odb_driver {
  std::wstring name;  // the DRIVER= value: a name registered with unixODBC, or a library path
  bool native;        // a Microsoft driver; false: FreeTDS
};

// The order of attempts.
const std::vector<odb_driver>& odb_default_drivers();

// A name between square brackets, as SQL Server quotes it: a name that
// already begins with '[' and ends with ']' stays as it is; inner ']' are not
// doubled.
std::wstring mss_bracket_name(const std::wstring& name);

// Parts of a connection.
struct odb_login {
  std::wstring server;
  std::wstring user;      // empty: Windows authentication
  std::wstring password;
  std::wstring database;  // empty: the login's default database
};

// The connection string of a native driver: DRIVER, SERVER as typed,
// DATABASE, UID and PWD or Trusted_Connection=yes, APP, no encryption unless
// the server asks for it.
odb_connection_string odb_native_connection_string(std::wstring_view driver, const odb_login& login);
// The connection string of FreeTDS: DRIVER, SERVER ("." and "(local)" become
// 127.0.0.1), DATABASE, the login, APP, TDS_Version=7.4,
// ClientCharset=UTF-8, TextSize=2147483647. Values with braces follow the
// rule of the installed FreeTDS.
odb_connection_string odb_freetds_connection_string(std::wstring_view driver, const odb_login& login,
                                                    odb_brace_rule rule);

class odb_initializer {
 public:
  explicit odb_initializer(std::vector<odb_driver> drivers = odb_default_drivers());

  // Connects by the first driver that can be loaded; the connection is open
  // on return, its text size at the maximum, and native() tells which kind
  // of driver answered. A null or empty database: the login's default.
  // Throws odb_exception when a driver refuses, tk_exception when none can be
  // loaded.
  odb_connection test_connection(const odb_environment& env, std::wstring_view server, std::wstring_view user,
                                 std::wstring_view password, const std::wstring* database);
  // One native driver. False when it cannot be loaded.
  bool test_native_connection(odb_connection& data_source, const odb_driver& driver, const odb_login& login);
  // The generic driver with a connection string. False when it cannot be
  // loaded.
  bool test_generic_connection(odb_connection& data_source, const odb_connection_string& connection_string);

  // True when a native driver answered the last test_connection.
  [[nodiscard]] bool native() const { return native_; }
  // The driver that answered it.
  [[nodiscard]] const std::wstring& driver() const { return driver_; }
  [[nodiscard]] const std::vector<odb_driver>& drivers() const { return drivers_; }

 private:
  std::vector<odb_driver> drivers_;
  bool native_ = false;
  std::wstring driver_;
};

class mss_engine : public tk_singleton<mss_engine> {
 public:
  explicit mss_engine(std::vector<odb_driver> drivers = odb_default_drivers());
  ~mss_engine();
  mss_engine(const mss_engine&) = delete;
  mss_engine& operator=(const mss_engine&) = delete;

  // Connects to check the settings, keeps them, reads the version and the
  // list of databases, and closes the connection again. The first form names
  // a database ("Connecting to MS SQL server(3)..."), the second uses the
  // login's default database ("(2)"), the third Windows authentication
  // ("(1)"). An exception leaves the engine as it was.
  void connect(const std::wstring& server, const std::wstring& user, const std::wstring& password,
               const std::wstring& database, bool fast_load);
  void connect(const std::wstring& server, const std::wstring& user, const std::wstring& password, bool fast_load);
  void connect(const std::wstring& server, bool fast_load);

  // Logs "mss_engine::enable_fast_load(%d)". ODBC has no fast-load switch
  // for reading, so the answer is false, as a provider that refuses the
  // property gives; reading rows does not depend on it.
  bool enable_fast_load(odb_connection& data_source, bool flag);
  // Runs "SELECT @@VERSION" and gives mss_version_code of the text.
  int get_version(odb_connection& data_source);
  // Fills contents with the names of the server's databases (none on Azure).
  void init_db_contents(odb_connection& data_source);
  // A copy of contents. Not connected: tk_mail_assertion. On Azure: a
  // tk_exception (level 1) asking for the name to be typed.
  [[nodiscard]] std::vector<std::wstring> get_contents() const;

  // A new connection with the stored settings to a database (null or empty:
  // the default one), by the same order of drivers.
  odb_connection open_data_source(const std::wstring* database);

  // Whether the server has the database and the login may open it. Step 1
  // (not on Azure, where there is no list) looks for the name in contents,
  // without regard to case: not there, false. Step 2 connects to it with the
  // stored settings: a refusal throws mss_no_perm_exception naming the user
  // and the database, so a database that exists but may not be opened is
  // reported by name. Not connected: tk_mail_assertion.
  bool is_db_exist(const std::wstring& name);
  // Opens a database on a connection of its own and reads its catalog (an
  // mss_database: tables of the schema, sequences, views unless bit 0x80 of
  // flags is set). An empty schema: all schemas, or "dbo" alone while views
  // are owned. The caller owns the result. Throws odb_exception when the
  // database cannot be opened; not connected: tk_mail_assertion.
  std::unique_ptr<udb_database> open_db(const std::wstring& name, std::uint32_t flags, const std::wstring& schema);
  // The bracketed full name of a table: "[owner].[table]". A bare name gets
  // the owner "dbo", or the login's name when a SQL login other than "sa"
  // does not work as dbo (set_as_dbo).
  [[nodiscard]] std::wstring get_safe_tname(const std::wstring& name) const;
  // "connect as DBO": bare table names go through "[dbo]." even for a named
  // user. Logs "mss_engine::set_as_dbo(%d)". Off at start.
  void set_as_dbo(bool flag);
  [[nodiscard]] bool as_dbo() const { return as_dbo_; }
  // "view owned": object names carry no owner (a database opened with no
  // schema lists the tables of "dbo" by their composed names), and "dbo."
  // leaves view texts. On at start. One flag for the process, shared with
  // the table-name functions (mss_set_view_owned), which is what the
  // converter's setting and the profile change.
  void set_view_owned(bool flag);
  [[nodiscard]] bool is_view_owned() const;

  [[nodiscard]] bool is_connected() const { return connected_; }
  // True when pure dates and pure times can be told from dates with times:
  // connected to SQL Server 2008 or later (also Azure) through a driver that
  // reports date, time, datetime2 and datetimeoffset as their own types,
  // which every driver of the list does (FreeTDS at TDS 7.3 and later, and
  // it is asked for 7.4).
  [[nodiscard]] bool dates_native() const { return connected_ && version_ >= mss_version_2008; }
  [[nodiscard]] int version() const { return version_; }
  [[nodiscard]] const std::wstring& server() const { return server_; }
  [[nodiscard]] const std::wstring& user() const { return user_; }
  [[nodiscard]] const std::wstring& password() const { return password_; }
  [[nodiscard]] bool fast_load() const { return fast_load_; }
  [[nodiscard]] bool integrated() const { return integrated_; }
  [[nodiscard]] const odb_initializer& initializer() const { return initializer_; }
  [[nodiscard]] const odb_environment& environment() const { return environment_; }

 private:
  void connect_as(int form, const std::wstring& server, const std::wstring& user, const std::wstring& password,
                  const std::wstring* database, bool fast_load);

  odb_environment environment_;  // first: it outlives every connection
  int version_ = 0;
  std::wstring server_;
  std::wstring user_;
  std::wstring password_;
  bool connected_ = false;
  bool fast_load_ = true;
  bool integrated_ = false;
  bool as_dbo_ = false;
  odb_initializer initializer_;
  std::vector<std::wstring> contents_;
};

}  // namespace qb
