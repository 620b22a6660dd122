// sql_engine: the one connection to the MySQL server, and what the rest of
// the program asks about that server.
//
// The engine holds the server's version code, the default character set and
// table engine of new objects, the lists of character sets and engines the
// wizard offers, the packet limit, and the run-wide switches of the row
// loader (fast_mode, blob_to_text, binary text). It exists in dump mode too,
// unconnected, because shared code reads its version (the dump page sets it).
// It is a singleton: the converter owns the one instance, and the rest of the
// program reaches it through tk_singleton<sql_engine>::instance(). It is the
// model's udb_engine of the MySQL target: it makes the destination database,
// a server database (create_db, open_db) or a dump file (create_dump), and it
// makes the name validators of the server's dialect (create_*_validator).
//
// Text given to the engine is wide and goes to the server as UTF-8. The
// session speaks utf8mb4 when the server knows it (5.5.3 and later), so a
// character outside the Basic Multilingual Plane reaches the server intact;
// older servers get utf8. The session's sql_mode has NO_AUTO_VALUE_ON_ZERO
// (a 0 in an AUTO_INCREMENT column is stored as 0), and neither
// NO_BACKSLASH_ESCAPES (values are escaped with backslashes) nor ANSI_QUOTES
// (a date default is written between double quotes, which ANSI_QUOTES would
// read as a column name) nor a combined mode that holds it (see
// sql_is_refused_mode); the server's other modes stay. Foreign-key checks are
// off for the whole connection. Passwords never reach the log.
//
// Ownership: the engine owns its connection handle; results and databases
// made from it must be released before the engine. Thread-safety: one thread
// at a time (the wizard before a run, the conversion worker during it); no
// locks.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sql/client.h"
#include "tk/singleton.h"
#include "udb/engine.h"
#include "udb/indexes.h"
#include "udb/record.h"
#include "udb/schema.h"
#include "udb/validator.h"

namespace qb {

// Version code of a MySQL server: major * 65536 + minor * 256 + patch.
inline constexpr std::uint32_t sql_version_3_23_2 = 0x031702;   // indexed columns NOT NULL below it
inline constexpr std::uint32_t sql_version_3_23_35 = 0x031723;  // MyISAM forced below it
inline constexpr std::uint32_t sql_version_4_0_23 = 0x040017;   // " TYPE=" below it
inline constexpr std::uint32_t sql_version_4_1_0 = 0x040100;    // old servers below it
inline constexpr std::uint32_t sql_version_4_1_1 = 0x040101;    // sql_mode NO_AUTO_VALUE_ON_ZERO from it
inline constexpr std::uint32_t sql_version_5_5_3 = 0x050503;    // utf8mb4 from it
inline constexpr std::uint32_t sql_version_5_3_0 = 0x050300;    // fractional seconds from it (MariaDB)
inline constexpr std::uint32_t sql_version_5_6_4 = 0x050604;    // fractional seconds from it (MySQL)
inline constexpr std::uint32_t sql_version_5_7_7 = 0x050707;    // 3072-byte index columns from it (MySQL)
inline constexpr std::uint32_t sql_version_10_2_2 = 0x0A0202;   // 3072-byte index columns from it (MariaDB)

// The version code of a version text such as "10.11.19-MariaDB-0+deb12u1" or
// "5.7.30-log": the first three numbers separated by dots; whatever follows
// the third number is ignored. Empty when the text has fewer than three.
std::optional<std::uint32_t> sql_parse_version(std::string_view text);

// True for a mode of sql_mode that the program's statements cannot work
// under, and which the session (and a dump's replay) therefore drops:
// NO_BACKSLASH_ESCAPES (values are escaped with backslashes), ANSI_QUOTES
// (double quotes would name columns; date defaults are written in them), and
// the combined modes that include ANSI_QUOTES (ANSI, DB2, MAXDB, MSSQL,
// ORACLE, POSTGRESQL), whose name would bring it back; the other modes they
// stand for stay, listed on their own.
bool sql_is_refused_mode(std::string_view mode);

// A name between back quotes, cut to its first 63 characters when it is
// longer than 64. It does not look at the server version and does not double
// a back quote inside the name.
std::wstring sql_quote_name(std::wstring_view name);

class dmp_database;
class udb_database;
class udb_properties;
struct dump_options;

class sql_engine : public udb_engine, public tk_singleton<sql_engine> {
 public:
  // A value longer than this many bytes never goes into a statement's text:
  // the server path binds it as long data, the dump streams it.
  static constexpr std::uint32_t max_field_size = 1048576;

  // Registers the singleton and prepares an unconnected client handle.
  sql_engine();
  ~sql_engine() override;
  sql_engine(const sql_engine&) = delete;
  sql_engine& operator=(const sql_engine&) = delete;

  // --- Destination databases ---------------------------------------------------
  // CREATE DATABASE name (back-quoted unless is_old_version) with the
  // engine's character set, then open_db(name, 2). Throws sql_exception.
  std::unique_ptr<udb_database> create_db(const std::wstring& name) override;
  // Selects the database (sql_exception when the server refuses) and opens
  // it as the conversion's server database, a sql_database with the open
  // mode's bits (sql/database.h).
  std::unique_ptr<udb_database> open_db(const std::wstring& name, std::uint32_t mode) override;
  // A dump file as the destination: sets the version code for the chosen
  // dialect and writes the file's header. Throws tk_exception_ex when the
  // file cannot be created.
  std::unique_ptr<dmp_database> create_dump(const std::wstring& file_name, const dump_options& options);
  // Stores the user's customisations (the database mutator, not owned) and
  // takes the default table engine ("engine", else "InnoDB") and character
  // set ("character set", else unchanged) from its properties.
  void set_properties(udb_properties* properties) override;
  // The database mutator given to set_properties, or null.
  [[nodiscard]] udb_properties* db_mutator() const { return properties(); }

  // --- Name validators of the server's dialect (new or old family) ---------------
  [[nodiscard]] std::unique_ptr<udb_validator> create_dn_validator() const;
  [[nodiscard]] std::unique_ptr<udb_validator> create_tn_validator(const std::vector<std::wstring>& tables,
                                                                   const std::vector<std::wstring>& views) const;
  [[nodiscard]] std::unique_ptr<udb_validator> create_fn_validator(const udb_schema& schema) const;
  [[nodiscard]] std::unique_ptr<udb_validator> create_fn_validator(const udb_record& record) const;
  [[nodiscard]] std::unique_ptr<udb_validator> create_in_validator(const udb_indexes& indexes) const;

  // --- The server ---------------------------------------------------------
  // Connects (closing an earlier connection first) and prepares the session:
  // character set, wait_timeout, version, foreign-key checks, sql_mode.
  // Throws sql_exception when the server or the network refuses (a TCP
  // connection that cannot be made is error 2003, an unknown host 2005);
  // sql_auth_not_supported_exception for a 4.1.0 server with a password;
  // tk_mail_assertion when the server's version text has no three numbers.
  void connect(std::wstring_view host, std::wstring_view user, std::wstring_view password, int port);
  [[nodiscard]] bool is_connected() const { return connected_; }

  // Selects the database; true when it exists (and it is then the default
  // database of the session). Logs "n_result=%d".
  bool is_db_exist(const std::wstring& name) override;
  // Drops the database, with foreign-key checks off for the DROP. Throws
  // sql_exception.
  void db_delete(const std::wstring& name) override;

  // Character sets ("utf8mb4 - UTF-8 Unicode") and table engines for the
  // wizard. Filled once, at the first call that finds the list empty: from
  // the server when connected, else a fixed list; later calls give the same
  // list even after a connection is made.
  const std::vector<std::wstring>& get_charsets();
  const std::vector<std::wstring>& get_storage_engines();

  // The server's max_allowed_packet in bytes, asked once and kept; 0 while
  // unknown and not connected. Throws sql_exception when the query fails.
  std::uint32_t get_max_allowed_packet();
  // Raises the server's global max_allowed_packet. A refusal (no SUPER
  // privilege) is logged at level 3 and the old value stays.
  void set_max_allowed_packet(std::uint32_t bytes);
  // The limit that holds for this connection: the smaller of
  // get_max_allowed_packet and the session's own value, which the server
  // fixes when the connection is made (a raised global value holds only for
  // later connections). The session's value is asked once per connection.
  // Throws sql_exception when the query fails.
  std::uint32_t effective_max_allowed_packet();

  // sql_quote_name.
  [[nodiscard]] std::wstring quote_name(std::wstring_view name) const { return sql_quote_name(name); }

  // Version code of the server (0 before the first connection); the dump
  // page sets it for a dump file.
  [[nodiscard]] std::uint32_t version() const { return version_; }
  void set_version(std::uint32_t code) { version_ = code; }
  // Below 4.1.0. Logs "is_old_version(%08X)" at each use.
  [[nodiscard]] bool is_old_version() const;
  // The destination keeps fractions of a second in DATETIME(n) and TIME(n):
  // set by connect for MySQL 5.6.4 and later and MariaDB 5.3 and later, and
  // by a dump for its new dialect.
  [[nodiscard]] bool fractional_seconds() const { return fractional_seconds_; }
  void set_fractional_seconds(bool on) { fractional_seconds_ = on; }
  // InnoDB takes up to 3072 bytes of one column into a key (DYNAMIC rows, the
  // default of MySQL 5.7.7 and MariaDB 10.2.2 and later, and the dump's new
  // dialect); older servers 767. A dump sets it; otherwise it follows the
  // version.
  [[nodiscard]] bool large_index_prefix() const;
  void set_large_index_prefix(bool on) { large_prefix_ = on ? 1 : 0; }
  // The server calls itself MariaDB (set by connect).
  [[nodiscard]] bool is_mariadb() const { return mariadb_; }

  // --- Properties of new databases and tables -----------------------------
  [[nodiscard]] const std::wstring& charset() const { return charset_; }
  void set_charset(std::wstring charset) { charset_ = std::move(charset); }
  [[nodiscard]] const std::wstring& storage_engine() const { return storage_engine_; }
  void set_storage_engine(std::wstring engine) { storage_engine_ = std::move(engine); }

  // --- Switches of a run --------------------------------------------------
  // A dump file has an open LOCK TABLES.
  [[nodiscard]] bool lock_active() const { return lock_active_ != 0; }
  void set_lock_active(bool on) { lock_active_ = on ? 1 : 0; }
  // Rows go through multi-row INSERT; the first row that is too big clears
  // it for the rest of the run.
  [[nodiscard]] bool fast_mode() const { return fast_mode_ != 0; }
  void set_fast_mode(bool on) { fast_mode_ = on ? 1 : 0; }
  // A row of more than 1,000,000 bytes was seen: fast_mode is cleared, and
  // row_too_big_seen tells the driver, which restores fast_mode for each
  // table after a merge has cleared it for one, that this clearing holds for
  // every later table of the run.
  void note_row_too_big() {
    fast_mode_ = 0;
    row_too_big_ = true;
  }
  [[nodiscard]] bool row_too_big_seen() const { return row_too_big_; }
  // Read BLOB columns as text (set around schema reading).
  [[nodiscard]] bool blob_to_text() const { return blob_to_text_ != 0; }
  void set_blob_to_text(bool on) { blob_to_text_ = on ? 1 : 0; }
  // " BINARY" on text columns.
  [[nodiscard]] bool binary_text() const { return binary_text_ != 0; }
  void set_binary_text(bool on) { binary_text_ = on ? 1 : 0; }

  // --- For the database objects of this target ----------------------------
  // The connection handle, owned by the engine; valid until the next
  // connect() or the engine's end.
  [[nodiscard]] MYSQL* connection() const { return connection_.get(); }
  // Runs one UTF-8 statement; throws sql_exception.
  void run(std::string_view statement);

 private:
  void initialize();
  void prepare_handle(bool log_steps);
  void close();
  void set_session_charset(const char* server_info);
  void set_session_sql_mode();
  [[nodiscard]] std::wstring quoted_db_name(const std::wstring& name) const;

  std::wstring charset_ = L"utf8";
  std::wstring storage_engine_ = L"InnoDB";
  std::uint8_t lock_active_ = 0;
  bool connected_ = false;
  std::uint8_t fast_mode_ = 1;
  std::uint8_t blob_to_text_ = 0;
  std::uint8_t binary_text_ = 0;
  std::uint32_t version_ = 0;
  sql_connection_ptr connection_;
  // A connect was tried on the handle; the next connect starts a fresh one.
  bool handle_used_ = false;
  std::uint32_t packet_size_ = 0;
  std::uint32_t session_packet_size_ = 0;  // the session's own limit; 0 while not asked
  bool fractional_seconds_ = false;
  bool mariadb_ = false;
  bool row_too_big_ = false;
  int large_prefix_ = -1;  // -1: by the version
  std::vector<std::wstring> charsets_;
  std::vector<std::wstring> storage_engines_;
};

// Sets the engine's blob_to_text for a scope (logging
// "sql_engine::set_blob_to_text(1)") and puts the old value back on every
// way out. One thread, on the engine it was made with.
class sql_blob_to_text_scope {
 public:
  explicit sql_blob_to_text_scope(sql_engine& engine);
  ~sql_blob_to_text_scope() { engine_.set_blob_to_text(old_); }
  sql_blob_to_text_scope(const sql_blob_to_text_scope&) = delete;
  sql_blob_to_text_scope& operator=(const sql_blob_to_text_scope&) = delete;

 private:
  sql_engine& engine_;
  bool old_;
};

}  // namespace qb
