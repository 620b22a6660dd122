// Reading SQL Server's catalog: statements whose rows come back as text, and
// the four catalog functions that describe tables, primary keys, foreign keys
// and indexes.
//
// odb_query_rows runs a statement on a session and gives every row of its
// first result, each column as wide text (nullopt for NULL). The catalog is
// small; reading it whole lets the caller issue the next statement on the
// same session at once (SQL Server's drivers allow one pending result per
// connection).
//
// odb_meta_data and its four kinds stand for the schema rowsets that SQL
// Server's OLE DB providers serve (tables, primary keys, foreign keys,
// indexes). They call the ODBC catalog functions, which every SQL Server
// driver answers through the server's own catalog procedures (sp_tables,
// sp_pkeys, sp_fkeys, sp_statistics), and hold the answer as text rows. The
// column numbers (from 1) of each answer are named on its class; they are
// ODBC's columns, not OLE DB's.
//
// Names given to these functions are plain identifiers (no quotes, no
// brackets). An empty schema means "any schema".
//
// Thread-safety: the thread of the session; the session must outlive the call.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mss/odbc.h"

namespace qb {

// One row of a catalog answer: its columns as text, nullopt for NULL.
using odb_text_row = std::vector<std::optional<std::wstring>>;

// Runs the statement (logging "odb_command::execute(%s)") and reads every row
// of its first result. Throws odb_exception.
std::vector<odb_text_row> odb_query_rows(const odb_connection& session, std::wstring_view text);

// Column n (from 1) of a row as text; empty for NULL or a missing column.
std::wstring odb_row_text(const odb_text_row& row, std::size_t n);
// Column n as an integer; 0 for NULL, a missing column or text that is no
// number. A fraction is cut off ("12.0" is 12).
std::int64_t odb_row_int(const odb_text_row& row, std::size_t n);
// True when column n is NULL or missing.
bool odb_row_null(const odb_text_row& row, std::size_t n);

// The text between single quotes in a T-SQL string literal: every quote
// doubled, so that a name such as O'Brien cannot end the literal.
std::wstring mss_literal_text(std::wstring_view text);

// The answer of one catalog function, read whole.
class odb_meta_data {
 public:
  [[nodiscard]] const std::vector<odb_text_row>& rows() const { return rows_; }
  [[nodiscard]] bool empty() const { return rows_.empty(); }

 protected:
  odb_meta_data() = default;
  // Reads every row of the statement's current result. Logs
  // "odb_meta_data::internal_initialize".
  void read(odb_statement& statement);

  std::vector<odb_text_row> rows_;
};

// The tables of a schema (SQLTables, type "TABLE"). A schema is matched
// exactly (without regard to case): the driver takes it as a pattern, in
// which '_' and '%' would match other schemas too.
class odb_tl_meta_data : public odb_meta_data {
 public:
  static constexpr std::size_t col_owner = 2;
  static constexpr std::size_t col_name = 3;
  static constexpr std::size_t col_type = 4;

  odb_tl_meta_data(const odb_connection& session, const std::wstring& schema);
};

// The primary key of a table (SQLPrimaryKeys), one row a column in key order.
class odb_pk_meta_data : public odb_meta_data {
 public:
  static constexpr std::size_t col_owner = 2;
  static constexpr std::size_t col_table = 3;
  static constexpr std::size_t col_column = 4;
  static constexpr std::size_t col_key_seq = 5;
  static constexpr std::size_t col_pk_name = 6;

  odb_pk_meta_data(const odb_connection& session, const std::wstring& schema, const std::wstring& table);
};

// The foreign keys that refer to a table, the table being their parent
// (SQLForeignKeys restricted on the primary-key side), one row a column pair.
class odb_fk_meta_data : public odb_meta_data {
 public:
  static constexpr std::size_t col_pk_owner = 2;
  static constexpr std::size_t col_pk_table = 3;
  static constexpr std::size_t col_pk_column = 4;
  static constexpr std::size_t col_fk_owner = 6;
  static constexpr std::size_t col_fk_table = 7;
  static constexpr std::size_t col_fk_column = 8;
  static constexpr std::size_t col_key_seq = 9;
  static constexpr std::size_t col_update_rule = 10;
  static constexpr std::size_t col_delete_rule = 11;
  static constexpr std::size_t col_fk_name = 12;
  static constexpr std::size_t col_pk_name = 13;

  odb_fk_meta_data(const odb_connection& session, const std::wstring& schema, const std::wstring& table);

  // The rule text of a rule number as SQL Server's catalog procedure gives
  // it (sp_fkeys: 0 CASCADE, 1 NO ACTION, 2 SET NULL, 3 SET DEFAULT);
  // anything else reads "NO ACTION".
  static std::wstring rule_text(std::int64_t rule);
};

// The indexes of a table (SQLStatistics, all indexes), one row a key column.
// Rows of type 0 describe the table itself and name no index.
class odb_id_meta_data : public odb_meta_data {
 public:
  static constexpr std::size_t col_owner = 2;
  static constexpr std::size_t col_table = 3;
  static constexpr std::size_t col_non_unique = 4;
  static constexpr std::size_t col_index_name = 6;
  static constexpr std::size_t col_type = 7;
  static constexpr std::size_t col_ordinal = 8;
  static constexpr std::size_t col_column = 9;

  odb_id_meta_data(const odb_connection& session, const std::wstring& schema, const std::wstring& table);
};

}  // namespace qb
