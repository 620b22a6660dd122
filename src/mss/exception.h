// Failures of the SQL Server source.
//
// odb_exception is a failed ODBC call, built at the C boundary from every
// diagnostic record the driver left on the handle (SQLGetDiagRecW): SQLSTATE,
// native error (the SQL Server message number when the server reported it),
// message and the component that reported it. Beside them it keeps the ODBC
// function that failed, the statement that was running and the place in the
// program where the failure was raised, for the log and for callers that
// decide by them.
//
//   text    the message of the first record that has one (informational
//           records, SQLSTATE class 01, only when no other record has a
//           text); the components' prefixes ("[FreeTDS][SQL Server]") are
//           not part of it. With no text at all: "Generic error occurred
//           while migrating the data.\nContact to <support> for the
//           solution."
//   source  the components of that record, driver first ("FreeTDS",
//           "unixODBC Driver Manager").
//   code    0x80000 | the low 16 bits of an OLE DB style result code chosen
//           from the records by the table of mss/error_map.h, so that the
//           error handler's table of SQL Server messages finds its row
//           (a failed login is 0x80E4D, "Invalid user name or password.").
//           A failure the table does not know has the code of E_FAIL,
//           0x84005, which has no row: the user then reads the text.
//   level   1: the current job (connecting, reading one table) is over.
//
// mss_no_perm_exception: the login may not open a database it asked for.
//
// Thread-safety: values; may be thrown on any thread. Build an odb_exception
// on the thread of the failed call, before any other call on its handle.
#pragma once

#include <cstdint>
#include <source_location>
#include <string>
#include <vector>

#include "tk/exception.h"

namespace qb {

// One diagnostic record of an ODBC handle.
struct odb_diag_record {
  std::string sqlstate;          // five characters, "42S02"
  std::int32_t native_error = 0;  // the server's message number, or the driver's own
  std::wstring message;          // the text without the components' prefixes
  std::wstring source;           // the components that reported it, driver first
};

// Splits a message as ODBC components write it, "[FreeTDS][SQL Server]Login
// failed...", into the source ("FreeTDS") and the text ("Login failed...").
// A trailing "[SQL Server]" component marks the server as the author and is
// not part of the source; the other components are joined by blanks.
odb_diag_record odb_make_diag_record(std::string sqlstate, std::int32_t native_error, std::wstring_view message);

// The text used when no record gave one.
std::string odb_generic_error_text();

class odb_exception : public tk_exception {
 public:
  // From the diagnostic records of a failed call. operation names the ODBC
  // function ("SQLExecDirectW"); statement is the SQL that was running, empty
  // when none was.
  odb_exception(std::vector<odb_diag_record> records, std::string operation, std::wstring statement = {},
                std::source_location where = std::source_location::current());
  // A failure of the program's own with a plain text: code 0, empty source.
  explicit odb_exception(const std::string& text, int level = 1);
  explicit odb_exception(const std::wstring& text, int level = 1);

  // The component that reported the record whose text was taken.
  [[nodiscard]] const std::wstring& source() const { return source_; }
  // The OLE DB style result code the records were mapped to (0x80040E4D),
  // 0x80004005 when the table knows none of them, 0 for a plain text.
  [[nodiscard]] std::uint32_t hresult() const { return hresult_; }
  [[nodiscard]] const std::vector<odb_diag_record>& records() const { return records_; }
  // SQLSTATE and native error of the record whose text was taken.
  [[nodiscard]] const std::string& sqlstate() const { return sqlstate_; }
  [[nodiscard]] std::int32_t native_error() const { return native_error_; }
  // True when some record carries this server message number.
  [[nodiscard]] bool has_native_error(std::int32_t number) const;
  [[nodiscard]] const std::string& operation() const { return operation_; }
  [[nodiscard]] const std::wstring& statement() const { return statement_; }
  [[nodiscard]] const std::source_location& where() const { return where_; }

 private:
  void take_text();
  void log_records() const;

  std::wstring source_;
  std::uint32_t hresult_ = 0;
  std::vector<odb_diag_record> records_;
  std::string sqlstate_;
  std::int32_t native_error_ = 0;
  std::string operation_;
  std::wstring statement_;
  std::source_location where_;
};

// "User '<user>' does not have permission to access database '<database>'",
// code 0, level 1.
class mss_no_perm_exception : public tk_exception {
 public:
  mss_no_perm_exception(const std::wstring& user, const std::wstring& database);
};

}  // namespace qb
