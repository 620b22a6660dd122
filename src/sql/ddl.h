// The pieces (chunks) of a CREATE TABLE statement: one per column, one per
// index. The server target and the dump target join the same chunks, so both
// write the same column types, defaults and names.
//
// sql_schema is the target column list. It keeps an estimate of the row size
// and turns the longest text columns into unlimited ones (LONGTEXT) while the
// estimate would exceed MySQL's 65535-byte row limit.
//
// sql_schema_initializer settles the final column names (a name the server's
// rules refuse is repaired; the rename is kept in names_map()), copies each
// source column under its final name into a sql_schema, and makes the column
// chunks. sql_indexes_initializer settles the index names, maps the index
// columns to their final names, makes the index chunks, drops the indexes a
// server cannot build (no columns, more than 16 columns, large-object
// columns, too many characters, more than 63 indexes, or 15 on old servers),
// and adds an index for an AUTO_INCREMENT column that has none. Nothing here
// talks to a server.
//
// Two rules go beyond the old character counts, so that a table is never lost
// to a limit that only the server's storage engine knows:
//  - The key of an index is measured in bytes, as the engine measures it: a
//    text column takes its length times the widest character of its
//    character set (3 for utf8, 4 for utf8mb4), other columns their stored
//    size. InnoDB takes at most 3072 bytes a key, and of one column 3072 bytes
//    (DYNAMIC rows) or 767 on older servers; MyISAM 1000 bytes a key. An index
//    over that budget is dropped with a log line before CREATE TABLE, instead
//    of the server refusing the whole table (error 1071).
//  - InnoDB wants an AUTO_INCREMENT column to be the first column of some
//    index (error 1075 otherwise): only a carried index that starts with the
//    column counts, and the extra index is added when none does.
//
// Names and types depend on the dialect of the sql_engine singleton
// (is_old_version: no back quotes, no character sets, the old rule sets and
// limits); an engine must exist while these objects are made and used.
//
// Ownership: both initializers live on the stack of one create_table call.
// The schema initializer keeps references to the source schema and indexes
// and to the caller's auto-field string, which must outlive it; the index
// initializer keeps pointers to the target schema and the names map it is
// given. Each get_init_chunks runs once, the column pass before the index
// pass (it fills the auto-field name). Thread-safety: none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "udb/indexes.h"
#include "udb/names_map.h"
#include "udb/properties.h"
#include "udb/schema.h"
#include "udb/validator.h"

namespace qb {

// The row limit of MySQL, and what a text column counts in the estimate.
inline constexpr std::uint32_t sql_max_row_size = 65535;
// Index limits: columns of one index, indexes of one table (new and old
// servers), the largest text column an index may hold, and the largest sum
// of column sizes of one index (new and old servers).
inline constexpr std::size_t sql_max_index_columns = 16;
inline constexpr int sql_max_indexes = 63;
inline constexpr int sql_max_indexes_old = 15;
inline constexpr std::uint32_t sql_max_index_text_size = 767;
inline constexpr std::uint32_t sql_max_index_size = 1536;
inline constexpr std::uint32_t sql_max_index_size_old = 256;
// Key budgets in bytes: InnoDB's key and column limits (DYNAMIC rows, and the
// column limit of older row formats), MyISAM's key limit.
inline constexpr std::uint32_t sql_innodb_max_key_bytes = 3072;
inline constexpr std::uint32_t sql_innodb_max_column_bytes_old = 767;
inline constexpr std::uint32_t sql_myisam_max_key_bytes = 1000;

// The widest character of a character set, in bytes: 4 for utf8mb4, utf16
// and utf32, 3 for utf8, 2 for ucs2 and the double-byte Asian sets, 1 for
// the single-byte sets. An empty or unknown name counts 4.
std::uint32_t sql_charset_max_bytes(const std::wstring& charset);

// What a key may hold on a table engine, in bytes: the whole key and one
// column of it. Follows the engine's name (InnoDB's rules for any engine not
// known to differ) and the server (sql_engine::large_index_prefix).
struct sql_key_budget {
  std::uint32_t key_bytes = sql_innodb_max_key_bytes;
  std::uint32_t column_bytes = sql_innodb_max_key_bytes;
};
sql_key_budget sql_key_budget_of(const std::wstring& table_engine);

// The bytes a column takes in a key: its length times char_bytes for text,
// its stored size for the rest.
std::uint32_t sql_key_bytes(const t_ftd& column, std::uint32_t char_bytes);

class sql_schema : public udb_schema {
 public:
  // Appends a column, updates the row-size estimate, and while the estimate
  // is 65536 or more turns the longest remaining text column of 1 to 21844
  // characters into an unlimited one (size 0). Logs each step; the
  // conversion itself at level 3 ("Column '%s' converted into LONG TEXT").
  void push_back(t_ftd field);

  [[nodiscard]] std::uint32_t total_size() const { return total_size_; }
  // Positions of the text columns that may still be cut, longest first.
  [[nodiscard]] const std::vector<std::size_t>& lobs() const { return lobs_; }

  // The widest character of column i's character set in bytes, as the
  // column chunks chose it (0 until then, which key measuring reads as 4).
  [[nodiscard]] std::uint32_t char_bytes(std::size_t i) const { return i < char_bytes_.size() ? char_bytes_[i] : 0; }
  void set_char_bytes(std::size_t i, std::uint32_t bytes);

 private:
  std::uint32_t total_size_ = 0;
  std::vector<std::size_t> lobs_;
  std::vector<std::uint32_t> char_bytes_;
};

// The " NOT NULL", " DEFAULT ..." and " AUTO_INCREMENT" decisions.
// A null column is an internal error.
bool sql_can_have_def_value(const t_ftd* field);
bool sql_can_have_auto_num(const t_ftd* field);

// The user's changes (table mutator) of the table that create_table makes
// under the target name `name`. Table mutators are kept under source names;
// the driver enters a renamed table's (source, target) pair in the
// destination's names map before it creates the table, so the source name
// is found there. A name the map does not hold is its own source name. Null
// when the engine has no tree of changes or the table has no mutator.
udb_properties* sql_table_mutator_for(const udb_names_map& names, const std::wstring& name);

class sql_schema_initializer {
 public:
  // auto_field receives, in get_init_chunks, the name of the column that got
  // AUTO_INCREMENT (empty if none).
  sql_schema_initializer(std::wstring table_name, const udb_schema& source, const udb_indexes& indexes,
                         std::wstring& auto_field, std::uint8_t flag = 0);
  ~sql_schema_initializer();
  sql_schema_initializer(const sql_schema_initializer&) = delete;
  sql_schema_initializer& operator=(const sql_schema_initializer&) = delete;

  // Appends one chunk per column, in column order: name, type, character
  // set, NOT NULL, DEFAULT, AUTO_INCREMENT, COMMENT. table_mutator (may be
  // null) gives the field mutators whose "character_set" property chooses a
  // column's character set. A second AUTO_INCREMENT column is an internal
  // error.
  void get_init_chunks(std::vector<std::wstring>& chunks, udb_properties* table_mutator);

  // The target columns under their final names.
  [[nodiscard]] const sql_schema& schema() const { return schema_; }
  [[nodiscard]] sql_schema& schema() { return schema_; }
  // Source column name to final name, for the columns that were renamed.
  [[nodiscard]] const t_names_map& names_map() const { return validator_->ref_map(); }
  [[nodiscard]] const std::wstring& table_name() const { return table_name_; }

 private:
  [[nodiscard]] std::wstring column_chunk(std::size_t i, udb_properties* table_mutator, bool old_version);
  [[nodiscard]] bool is_key_column(const std::wstring& source_name) const;

  std::uint8_t flag_;
  std::wstring table_name_;
  sql_schema schema_;
  std::wstring& auto_field_;
  const udb_indexes& indexes_;
  std::unique_ptr<udb_validator> validator_;
  const udb_schema& source_;
};

class sql_indexes_initializer {
 public:
  // schema is the target schema (final names), names_map the column renames
  // of the schema initializer.
  sql_indexes_initializer(const sql_schema* schema, const udb_indexes& indexes, std::wstring auto_field,
                          const t_names_map* names_map, std::uint8_t flag = 0);
  ~sql_indexes_initializer();
  sql_indexes_initializer(const sql_indexes_initializer&) = delete;
  sql_indexes_initializer& operator=(const sql_indexes_initializer&) = delete;

  // The table's engine, whose key limits apply (by default the
  // sql_engine's storage_engine).
  void set_table_engine(std::wstring table_engine) { table_engine_ = std::move(table_engine); }

  // Appends one chunk per index that can be carried, then at most one for
  // the AUTO_INCREMENT column.
  void get_init_chunks(std::vector<std::wstring>& chunks);

  // The target indexes: final names, final column names.
  [[nodiscard]] const std::vector<udb_index>& indexes() const { return indexes_; }
  // The indexes whose chunks were made by get_init_chunks (the extra index
  // of the AUTO_INCREMENT column included), as the table will have them.
  [[nodiscard]] const udb_indexes& carried() const { return carried_; }

 private:
  // The chunk of one index, or an empty text when it cannot be carried.
  [[nodiscard]] std::wstring index_chunk(const udb_index& index, bool old_version, const sql_key_budget& budget) const;
  [[nodiscard]] std::wstring quoted(const std::wstring& name, bool old_version) const;

  std::uint8_t flag_;
  std::vector<udb_index> indexes_;
  std::wstring auto_field_;
  const sql_schema* schema_;
  const t_names_map* names_map_;
  udb_indexes carried_;
  std::wstring table_engine_;
};

}  // namespace qb
