#include "mss/catalog.h"

#include <cwchar>

#include "mss/command.h"
#include "mss/utf16.h"
#include "tk/log.h"
#include "tk/strings.h"

namespace qb {

namespace {

// An argument of a catalog function: NULL for an empty name.
class catalog_arg {
 public:
  explicit catalog_arg(const std::wstring& text) : empty_(text.empty()), text_(odb_to_utf16(text)) {}
  SQLWCHAR* data() { return empty_ ? nullptr : odb_sqlwchar(text_); }
  [[nodiscard]] SQLSMALLINT length() const { return empty_ ? 0 : static_cast<SQLSMALLINT>(text_.size()); }

 private:
  bool empty_;
  std::u16string text_;
};

std::vector<odb_text_row> read_rows(odb_statement& statement) {
  std::vector<odb_text_row> rows;
  const SQLSMALLINT n = statement.column_count();
  while (statement.fetch()) {
    odb_text_row row;
    row.reserve(static_cast<std::size_t>(n));
    for (SQLSMALLINT i = 1; i <= n; ++i) row.push_back(statement.get_text(static_cast<SQLUSMALLINT>(i)));
    rows.push_back(std::move(row));
  }
  return rows;
}

}  // namespace

std::vector<odb_text_row> odb_query_rows(const odb_connection& session, std::wstring_view text) {
  odb_command command(session);
  if (!command.execute(text)) return {};
  std::vector<odb_text_row> rows = read_rows(command.statement());
  command.statement().close_cursor();
  return rows;
}

std::wstring odb_row_text(const odb_text_row& row, std::size_t n) {
  if (n == 0 || n > row.size() || !row[n - 1]) return {};
  return *row[n - 1];
}

std::int64_t odb_row_int(const odb_text_row& row, std::size_t n) {
  const std::wstring text = tk_trim(odb_row_text(row, n));
  if (text.empty()) return 0;
  wchar_t* end = nullptr;
  const long long value = std::wcstoll(text.c_str(), &end, 10);
  return end == text.c_str() ? 0 : value;
}

bool odb_row_null(const odb_text_row& row, std::size_t n) { return n == 0 || n > row.size() || !row[n - 1]; }

std::wstring mss_literal_text(std::wstring_view text) {
  std::wstring out;
  out.reserve(text.size());
  for (const wchar_t c : text) {
    out += c;
    if (c == L'\'') out += L'\'';
  }
  return out;
}

// --- odb_meta_data -------------------------------------------------------------

void odb_meta_data::read(odb_statement& statement) {
  LOG(2, "odb_meta_data::internal_initialize");
  rows_ = read_rows(statement);
  statement.close_cursor();
}

odb_tl_meta_data::odb_tl_meta_data(const odb_connection& session, const std::wstring& schema) {
  odb_statement statement(session);
  catalog_arg owner(schema);
  std::u16string type = odb_to_utf16(L"TABLE");
  statement.check(SQLTablesW(statement.get(), nullptr, 0, owner.data(), owner.length(), nullptr, 0,
                             odb_sqlwchar(type), static_cast<SQLSMALLINT>(type.size())),
                  "SQLTablesW");
  read(statement);
  if (schema.empty()) return;
  // The driver matched the schema as a pattern; keep only that schema.
  std::erase_if(rows_, [&](const odb_text_row& row) {
    return !tk_equal_no_case(odb_row_text(row, col_owner), schema);
  });
}

odb_pk_meta_data::odb_pk_meta_data(const odb_connection& session, const std::wstring& schema,
                                   const std::wstring& table) {
  odb_statement statement(session);
  catalog_arg owner(schema);
  catalog_arg name(table);
  statement.check(SQLPrimaryKeysW(statement.get(), nullptr, 0, owner.data(), owner.length(), name.data(),
                                  name.length()),
                  "SQLPrimaryKeysW");
  read(statement);
}

odb_fk_meta_data::odb_fk_meta_data(const odb_connection& session, const std::wstring& schema,
                                   const std::wstring& table) {
  odb_statement statement(session);
  catalog_arg owner(schema);
  catalog_arg name(table);
  statement.check(SQLForeignKeysW(statement.get(), nullptr, 0, owner.data(), owner.length(), name.data(),
                                  name.length(), nullptr, 0, nullptr, 0, nullptr, 0),
                  "SQLForeignKeysW");
  read(statement);
}

std::wstring odb_fk_meta_data::rule_text(std::int64_t rule) {
  switch (rule) {
    case 0:
      return L"CASCADE";
    case 2:
      return L"SET NULL";
    case 3:
      return L"SET DEFAULT";
    default:
      return L"NO ACTION";
  }
}

odb_id_meta_data::odb_id_meta_data(const odb_connection& session, const std::wstring& schema,
                                   const std::wstring& table) {
  odb_statement statement(session);
  catalog_arg owner(schema);
  catalog_arg name(table);
  statement.check(SQLStatisticsW(statement.get(), nullptr, 0, owner.data(), owner.length(), name.data(),
                                 name.length(), SQL_INDEX_ALL, SQL_QUICK),
                  "SQLStatisticsW");
  read(statement);
}

}  // namespace qb
