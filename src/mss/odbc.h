// The ODBC client layer: owners of the three handle kinds, diagnostics, and
// connection strings.
//
// odb_environment, odb_connection and odb_statement each own one ODBC handle
// (SQLHENV, SQLHDBC, SQLHSTMT). They are move-only; their destructors are
// noexcept and quiet. A child borrows its parent and must be destroyed first:
// a statement before its connection, a connection before its environment
// (the owners of longer-lived objects declare the parent first). A failed
// call throws odb_exception built at once from the handle's diagnostic
// records, naming the ODBC function, the statement and the caller's place.
//
// Wide text goes through the W functions as UTF-16 (mss/utf16.h).
//
// Thread-safety: an environment may be shared by threads; a connection and
// its statements belong to one thread at a time.
#pragma once

#include <sql.h>
#include <sqlext.h>
#include <sqlucode.h>

#include <cstdint>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>
#include <vector>

#include "mss/exception.h"

namespace qb {

// All diagnostic records of a handle, in order.
std::vector<odb_diag_record> odb_diagnostics(SQLSMALLINT handle_type, SQLHANDLE handle);

// True for SQL_SUCCESS and SQL_SUCCESS_WITH_INFO.
inline bool odb_succeeded(SQLRETURN rc) { return rc == SQL_SUCCESS || rc == SQL_SUCCESS_WITH_INFO; }

// Throws odb_exception from the handle's diagnostics unless rc succeeded.
void odb_check(SQLRETURN rc, SQLSMALLINT handle_type, SQLHANDLE handle, const char* operation,
               std::wstring_view statement = {}, std::source_location where = std::source_location::current());

// Pieces of text read with SQLGetData: fill the buffer with
// odb_unwritten_unit before the call; odb_written_units then gives the units
// the driver wrote before its terminating NUL. (A piece need not fill the
// buffer: binary data as text comes in whole bytes.)
inline constexpr char16_t odb_unwritten_unit = 0xFFFF;
std::size_t odb_written_units(const std::u16string& buffer);

// --- Environment -------------------------------------------------------------

class odb_environment {
 public:
  // An ODBC 3 environment. Throws odb_exception when the driver manager
  // cannot make one.
  odb_environment();
  ~odb_environment();
  odb_environment(odb_environment&& other) noexcept;
  odb_environment& operator=(odb_environment&& other) noexcept;
  odb_environment(const odb_environment&) = delete;
  odb_environment& operator=(const odb_environment&) = delete;

  [[nodiscard]] SQLHENV get() const { return handle_; }

  // The names of the drivers the driver manager knows (odbcinst.ini).
  [[nodiscard]] std::vector<std::wstring> drivers() const;

 private:
  SQLHENV handle_ = nullptr;
};

// --- Connection strings ------------------------------------------------------

// How a driver reads a value between braces.
enum class odb_brace_rule {
  doubled,   // ODBC's rule: the value ends at a single '}', "}}" stands for '}'
  verbatim,  // FreeTDS before 1.4: the value ends at the first "};" (or '}' at
             // the end) and is taken as it stands
};

// The value as a connection string holds it: as it is when it needs no
// quoting, else between braces by the rule. Empty when the rule cannot carry
// it (a '}' followed by ';' under the verbatim rule).
std::optional<std::wstring> odb_quote_value(std::wstring_view value, odb_brace_rule rule);

// The brace rule of the installed FreeTDS driver, found once per process by a
// connection string that only the doubling parser refuses (no server is
// reached; the attempt fails before or at a closed local port).
odb_brace_rule odb_freetds_brace_rule(const odb_environment& env, std::wstring_view driver);

// A connection string built from its attributes, and the same text for the
// log with secret values shown as "***".
class odb_connection_string {
 public:
  explicit odb_connection_string(odb_brace_rule rule = odb_brace_rule::doubled) : rule_(rule) {}

  // Adds "DRIVER={name};".
  void add_driver(std::wstring_view name);
  // Adds "key=value;". Throws tk_exception (level 1) naming the key when the
  // driver's rule cannot carry the value.
  void add(std::wstring_view key, std::wstring_view value, bool secret = false);

  [[nodiscard]] const std::wstring& text() const { return text_; }
  [[nodiscard]] const std::wstring& shown() const { return shown_; }

 private:
  odb_brace_rule rule_;
  std::wstring text_;
  std::wstring shown_;
};

// --- Connection --------------------------------------------------------------

class odb_connection {
 public:
  // An unconnected handle of the environment.
  explicit odb_connection(const odb_environment& env);
  ~odb_connection();
  odb_connection(odb_connection&& other) noexcept;
  odb_connection& operator=(odb_connection&& other) noexcept;
  odb_connection(const odb_connection&) = delete;
  odb_connection& operator=(const odb_connection&) = delete;

  // SQLDriverConnectW without prompting. The login timeout is set first.
  // Throws odb_exception (with the shown text as its statement) on failure.
  void connect(const odb_connection_string& connection_string, int login_timeout_seconds = 15,
               std::source_location where = std::source_location::current());
  // Disconnects; reports a failure by odb_exception. The destructor does the
  // same quietly.
  void close();

  [[nodiscard]] bool connected() const { return connected_; }
  [[nodiscard]] SQLHDBC get() const { return handle_; }

  // SQLGetInfoW text (SQL_DRIVER_NAME, SQL_DRIVER_VER, SQL_DBMS_VER...).
  [[nodiscard]] std::wstring info_text(SQLUSMALLINT info_type) const;

  // Runs a statement that gives no rows and drops any it gives.
  void run(std::wstring_view statement, std::source_location where = std::source_location::current());

 private:
  void release() noexcept;

  SQLHDBC handle_ = nullptr;
  bool connected_ = false;
};

// --- Statement ---------------------------------------------------------------

class odb_statement {
 public:
  explicit odb_statement(const odb_connection& connection);
  ~odb_statement();
  odb_statement(odb_statement&& other) noexcept;
  odb_statement& operator=(odb_statement&& other) noexcept;
  odb_statement(const odb_statement&) = delete;
  odb_statement& operator=(const odb_statement&) = delete;

  [[nodiscard]] SQLHSTMT get() const { return handle_; }
  // The statement last executed, for messages.
  [[nodiscard]] const std::wstring& text() const { return text_; }

  // SQLExecDirectW. Returns false when the statement gave no result set
  // (SQL_NO_DATA or no columns). Throws odb_exception.
  bool execute(std::wstring_view statement, std::source_location where = std::source_location::current());
  // Number of result columns.
  [[nodiscard]] SQLSMALLINT column_count() const;
  // SQLFetch: false at the end of the rows. Throws odb_exception.
  bool fetch(std::source_location where = std::source_location::current());
  // Column (1-based) of the current row as wide text, read in pieces so that
  // no length is cut; nullopt for NULL.
  std::optional<std::wstring> get_text(SQLUSMALLINT column,
                                       std::source_location where = std::source_location::current());
  // Closes the cursor so the statement can be executed again.
  void close_cursor() noexcept;
  // Asks the server to stop the running statement (SQLCancel).
  void cancel() noexcept;

  // Throws odb_exception from this statement's diagnostics unless rc
  // succeeded.
  void check(SQLRETURN rc, const char* operation, std::source_location where = std::source_location::current()) const;

 private:
  void release() noexcept;

  SQLHSTMT handle_ = nullptr;
  std::wstring text_;
};

}  // namespace qb
