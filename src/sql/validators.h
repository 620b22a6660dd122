// The name validators of the MySQL target: the model's udb_validator with
// the rules of sql_name_rules.
//
// Two families, chosen by the server's version code (sql_engine makes the
// right one through its create_*_validator functions):
//   sql_new_*  (4.1.0 and later): 1 to 64 characters, no blank at either end,
//              none of a few characters (fourteen for tables, views and
//              databases, eight for columns and indexes);
//   sql_old_*  (before 4.1.0): plain identifiers of letters, digits, "_" and
//              "$", not only digits, none of 167 reserved words; a database
//              name may not start with a digit either.
// A refused name is repaired by get_safe_name: the family's repair (blanks
// trimmed; other characters turned into "_"), then the base validator's
// (cut, illegal characters replaced, a five-digit counter until the name is
// free). The column, index and table forms take the names already in use
// (columns of a schema or record, indexes of a list, tables and views) as
// their existing names, so a repaired name never collides with one of them.
//
// Ownership: each validator owns its lists. Thread-safety: none; a validator
// belongs to the statement or run that made it.
#pragma once

#include <string>
#include <vector>

#include "sql/name_rules.h"
#include "udb/indexes.h"
#include "udb/record.h"
#include "udb/schema.h"
#include "udb/validator.h"

namespace qb {

// --- New servers ---------------------------------------------------------------------
class sql_new_validator : public udb_validator {
 public:
  // kind selects the refused characters; a database is checked as a table.
  explicit sql_new_validator(sql_name_kind kind = sql_name_kind::table);

  [[nodiscard]] bool is_acceptable(const std::wstring& name) const override;
  [[nodiscard]] std::wstring get_safe_name(const std::wstring& name) const override;

 private:
  sql_name_rules rules_;
};

class sql_new_fn_validator : public sql_new_validator {
 public:
  explicit sql_new_fn_validator(const udb_schema& schema);
  explicit sql_new_fn_validator(const udb_record& record);
};

class sql_new_in_validator : public sql_new_validator {
 public:
  explicit sql_new_in_validator(const udb_indexes& indexes);
};

class sql_new_tn_validator : public sql_new_validator {
 public:
  sql_new_tn_validator(const std::vector<std::wstring>& tables, const std::vector<std::wstring>& views);
};

// --- Old servers ---------------------------------------------------------------------
class sql_old_validator : public udb_validator {
 public:
  explicit sql_old_validator(sql_name_kind kind = sql_name_kind::table);

  [[nodiscard]] bool is_acceptable(const std::wstring& name) const override;
  [[nodiscard]] std::wstring get_safe_name(const std::wstring& name) const override;

 private:
  sql_name_rules rules_;
};

class sql_old_dn_validator : public sql_old_validator {
 public:
  sql_old_dn_validator();
};

class sql_old_fn_validator : public sql_old_validator {
 public:
  explicit sql_old_fn_validator(const udb_schema& schema);
  explicit sql_old_fn_validator(const udb_record& record);
};

class sql_old_in_validator : public sql_old_validator {
 public:
  explicit sql_old_in_validator(const udb_indexes& indexes);
};

class sql_old_tn_validator : public sql_old_validator {
 public:
  sql_old_tn_validator(const std::vector<std::wstring>& tables, const std::vector<std::wstring>& views);
};

}  // namespace qb
