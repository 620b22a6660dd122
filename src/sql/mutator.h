// The tree of the user's changes to tables (udb/mutator.h) for the MySQL
// target: its levels instantiated with MySQL's type record, sql_native_type,
// and the type-map lists "sql.map" and "sql.typ".
//
//   sql_field_mutator  = udb_field_mutator<udb_field, sql_native_type>
//   sql_table_mutator  = udb_table_mutator<sql_field_mutator>
//   sql_db_mutator     = udb_db_mutator<sql_table_mutator, sql_map, sql_typ>
//
// Each adds nothing but its name. A type record becomes column type text by
// get_sql_native_type1 ("VARCHAR" with size 50 is "VARCHAR(50)"); a type
// name gives its value tag by the rules of get_vartype, read from the name
// (sql_vartype_of_type_name); a column is described as a type record the
// way the DDL would write it (sql_describe_column).
//
// The lists ("sql.map": for each MySQL type, the types a column of it may
// become; "sql.typ": for each type, the words "LENGTH", "SCALE",
// "PRECISION" of the attributes it takes) are files in the current
// directory, read on first need (doc/profile-format.md).
//
// Ownership and threads: as in udb/mutator.h. The quillbridge_convertor is
// a sql_db_mutator, so the tree lives as long as the converter.
#pragma once

#include <cstdint>
#include <string>

#include "sql/native_type.h"
#include "udb/mutator.h"
#include "udb/record.h"
#include "udb/schema.h"

namespace qb {

// The file names of the type-map lists.
inline constexpr char sql_map[] = "sql.map";
inline constexpr char sql_typ[] = "sql.typ";

// The value tag that a MySQL type name stands for, by the table of
// get_vartype: "INT" 3, "INT UNSIGNED" 19, "BIGINT" 20, "DECIMAL" 14,
// "DATETIME" 7, "VARCHAR" and the TEXT family 8, "VARBINARY" and the BLOB
// family 8209, and so on. Letter case, a size in parentheses and words after
// the first (but UNSIGNED) do not count. A name that is no MySQL type gives
// udb_keep_vartype (1). Logs "sql_vartype_of_type_name(%s)=%d" at level 1.
std::uint16_t sql_vartype_of_type_name(const std::wstring& name);

// The column as the DDL writes it, as a type record: the bare type name of
// get_sql_native_type2, the size, the default that make_mysql_def_val gives,
// precision and scale of a decimal (19 and 4 for money, DECIMAL(19,4)), 19
// for a date held as CHAR(19). The column's native_type becomes the record's
// text, which is the DDL's column type.
void sql_describe_column(t_ftd& column, sql_native_type& out);

template <>
struct udb_native_type_rules<sql_native_type> {
  static std::wstring text(const sql_native_type& type) { return get_sql_native_type1(type); }
  static std::uint16_t vartype_of(const std::wstring& name) { return sql_vartype_of_type_name(name); }
  static void describe(t_ftd& column, sql_native_type& out) { sql_describe_column(column, out); }
};

class sql_field_mutator : public udb_field_mutator<udb_field, sql_native_type> {};

class sql_table_mutator : public udb_table_mutator<sql_field_mutator> {
 public:
  using udb_table_mutator::udb_table_mutator;
};

class sql_db_mutator : public udb_db_mutator<sql_table_mutator, sql_map, sql_typ> {};

}  // namespace qb
