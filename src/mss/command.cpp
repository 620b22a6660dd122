#include "mss/command.h"

#include "tk/log.h"

namespace qb {

odb_command::odb_command(const odb_connection& session) : session_(session), statement_(session) {}

bool odb_command::execute(std::wstring_view text) {
  LOGW(2, L"odb_command::execute(%s)", text);
  statement_.close_cursor();
  return statement_.execute(text);
}

std::unique_ptr<odb_statement> odb_command::execute_rowset(std::wstring_view text) {
  LOGW(2, L"odb_command::execute(%s)", text);
  auto rowset = std::make_unique<odb_statement>(session_);
  rowset->execute(text);
  return rowset;
}

std::optional<std::wstring> odb_command::query_text(std::wstring_view text) {
  if (!execute(text) || !statement_.fetch()) return std::nullopt;
  std::optional<std::wstring> value = statement_.get_text(1);
  statement_.close_cursor();
  return value;
}

}  // namespace qb
