// odb_command: statements run on a SQL Server session.
//
// The command owns an ODBC statement handle of the session (a connection it
// borrows, which must outlive it). execute() sends the text as it stands and
// leaves the rows, if any, on statement() for the caller to read;
// execute_rowset() runs it on a statement of its own and hands that over
// with its open result, as the rowset of an odb_recordset.
//
// Thread-safety: one thread at a time, the thread of its session.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "mss/odbc.h"

namespace qb {

class odb_command {
 public:
  explicit odb_command(const odb_connection& session);

  // Logs "odb_command::execute(%s)" and runs the text. True when it gave a
  // result set. Throws odb_exception.
  bool execute(std::wstring_view text);

  // Logs "odb_command::execute(%s)" and runs the text on a new statement of
  // the session, which it returns with its result open. The session must
  // outlive it. Throws odb_exception.
  std::unique_ptr<odb_statement> execute_rowset(std::wstring_view text);

  // Runs the text and gives column 1 of its first row as text; nullopt when
  // there is no row or the value is NULL. Throws odb_exception.
  std::optional<std::wstring> query_text(std::wstring_view text);

  [[nodiscard]] odb_statement& statement() { return statement_; }

 private:
  const odb_connection& session_;
  odb_statement statement_;
};

}  // namespace qb
