// How a column of the universal model is spelled in MySQL: its type name
// (with size), its default-value text, and the reverse mapping from what the
// client library reports about a result column to the model's value tag.
//
// The server target and the dump target both take their column types and
// defaults from here, so that the two agree. The functions are free and keep
// no state of their own except the type-name table, a process-wide constant
// built on first use. A few decisions read switches of the sql_engine
// singleton (binary text, blob_to_text); without an engine they read as off.
//
// sql_native_type is a target type as the user's type mappings carry it: a
// name such as "VARCHAR", a default, a character set, and the size, scale and
// precision that apply to the name.
//
// Thread-safety: reentrant; the engine switches are read without locks (they
// change only between runs).
#pragma once

#include <cstdint>
#include <string>

#include "udb/schema.h"

namespace qb {

struct sql_native_type {
  std::wstring name;           // as MySQL writes it: "VARCHAR", "DECIMAL", ...
  std::wstring default_value;  // default as text
  std::wstring character_set;  // empty for the server's default
  std::uint64_t size = 0;      // length; 0 when it does not apply
  std::uint32_t scale = 0;
  std::uint32_t precision = 0;

  friend bool operator==(const sql_native_type&, const sql_native_type&) = default;
};

// Ids of the type-name table.
enum class sql_type_id : int {
  binary = 0,
  bit = 1,
  tinyint = 2,
  tinyint_unsigned = 3,
  smallint = 4,
  smallint_unsigned = 5,
  int_ = 6,
  int_unsigned = 7,
  bigint = 8,
  bigint_unsigned = 9,
  float_ = 10,
  decimal = 11,
  double_ = 12,
  char_ = 13,
  varbinary = 14,
  varchar = 15,
  datetime = 16,
  date = 17,
  time = 18,
  timestamp = 19,
  longblob = 20,
  tinyblob = 21,
  blob = 22,
  mediumblob = 23,
  text = 24,
  longtext = 25,
  mediumtext = 26,
  tinytext = 27,
};

// The MySQL type name of an id ("VARCHAR" for 15). An id the table lacks
// logs "Type %d wasn't found" and gives "<Unknown type>".
const std::wstring& sql_type_name(int id);
inline const std::wstring& sql_type_name(sql_type_id id) { return sql_type_name(static_cast<int>(id)); }

// The largest text sizes of the VARCHAR and MEDIUMTEXT rules: the byte limits
// of MySQL's 16-bit and 24-bit length prefixes divided by three, the widest
// character of the "utf8" character set.
inline constexpr std::uint32_t sql_max_varchar_size = 21845;
inline constexpr std::uint32_t sql_max_mediumtext_size = 5592405;
inline constexpr std::uint32_t sql_max_varbinary_size = 255;
inline constexpr std::uint32_t sql_max_blob_size = 65535;
inline constexpr std::uint32_t sql_max_mediumblob_size = 16777215;

// The most fraction digits of a DATETIME or TIME column (microseconds).
inline constexpr std::uint32_t sql_max_fraction_digits = 6;

// The column type of field as it goes into DDL ("VARCHAR(20)", "DECIMAL(19,4)",
// "LONGTEXT"); with no_size the bare name that the type-map pages show
// ("VARCHAR"). A vartype the rules do not know is an internal error
// (tk_mail_assertion).
//
// A date and time or a pure time whose source carries fractions of a second
// (the column's scale: 3 for SQL Server's datetime, n for datetime2(n),
// time(n), datetimeoffset(n)) becomes DATETIME(n) or TIME(n), n at most 6,
// when the destination keeps fractions (sql_engine::fractional_seconds);
// values are then written with their fraction. Servers before MySQL 5.6.4
// (MariaDB 5.3) and the dump's old dialect get the plain DATETIME and TIME,
// which drop the fraction of every value. A TIMESTAMP (a column whose
// default is the current moment) stays plain everywhere.
std::wstring get_sql_native_type2(const t_ftd& field, bool no_size);

// The column type text that a user's type choice stands for: the name, with
// "(size)" behind a name that begins with VARCHAR, CHAR, VARBINARY or BINARY,
// "(precision,scale)" behind one that begins with DECIMAL. A VARBINARY or
// BINARY of size 0 (no length, which MySQL refuses for VARBINARY and reads as
// one byte for BINARY) is LONGBLOB. At most 255 characters.
std::wstring get_sql_native_type1(const sql_native_type& type);

// The model's value tag of a MySQL result column, from the client library's
// field type and flags (UNSIGNED_FLAG, BINARY_FLAG).
std::uint16_t get_vartype(std::uint32_t mysql_type, std::uint32_t mysql_flags);

// The text that follows " DEFAULT " in the column definition of field, or an
// empty text when the column gets no default. A default that cannot be
// carried is dropped, never an error. A null field is an internal error.
std::wstring make_mysql_def_val(const t_ftd* field);
inline std::wstring make_mysql_def_val(const t_ftd& field) { return make_mysql_def_val(&field); }

}  // namespace qb
