// Rows and values read back from a MySQL server, and the lookup of a row's
// fields by the names the target gives its columns.
//
// sql_field is one cell of a result as a udb_field: a value with its column's
// name and length. Its three constructors read a cell by the client
// library's field type and flags (ctor1), by the model's value tag of a known
// column (ctor2), or as the bytes of a binary cell (ctor3). It adds no state
// of its own, so a record keeps it as a plain udb_field.
//
// sql_record is one row of sql_field, built from the client library's row:
// from the result's field list (ctor1) or from a schema the caller knows
// (ctor2). A record is meant to be refilled (fill1, fill2) for the next row
// of a result, keeping its storage.
//
// sql_field_finder answers where a record holds the field of a target
// column: the record's field names go through a field-name validator exactly
// as the columns did when the table was created (a refused name becomes its
// safe name), so that the finder sees the record's names as the target
// table does.
//
// Ownership: values; a record owns its fields, a finder its names and its
// validator. The MYSQL_ROW and lengths given to a constructor belong to the
// client library's result and are copied. Thread-safety: none.
#pragma once

#include <mysql.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "udb/record.h"
#include "udb/schema.h"
#include "udb/validator.h"

namespace qb {

class sql_field : public udb_field {
 public:
  // ctor1: a cell as the client library gives it (value null for SQL NULL),
  // read by the column's MySQL type and flags (get_variant). Logs
  // "sql_field::ctor1(%s,%d,%d)" with name, type and length.
  sql_field(std::wstring name, const char* value, unsigned long length, std::uint32_t mysql_type,
            std::uint32_t mysql_flags);
  // ctor2: a cell read as the value tag vartype of a known column: text as
  // UTF-8, a binary tag as bytes, a BIT as true when its first byte is not
  // zero, anything else from its text. Logs "sql_field::ctor2(%s,%d,%d)" with
  // name, vartype and length.
  sql_field(std::wstring name, const char* value, unsigned long length, std::uint16_t vartype);
  // ctor3: the bytes of a binary cell (no bytes: a zero-length byte array).
  // Logs "sql_field::ctor3(%s,%d,%d)" with name, 8209 and the length.
  sql_field(std::wstring name, std::span<const std::uint8_t> bytes);

  // The value of one cell as ctor2 reads it.
  static ole_variant read_typed(const char* value, unsigned long length, std::uint16_t vartype);
};

class sql_record : public udb_record {
 public:
  sql_record() = default;
  // ctor1: the row of a result whose columns are described by fields. Logs
  // "sql_record::ctor1(n_fields=%d)" and "is_blob_to_text=%d", and for each
  // cell "field #%d has type %d", "BINARY FLAG=%d", then "Extract as Unicode
  // (text data)" and "a_src[idx]=%s" for a text cell (binary flag clear, or
  // the engine's blob_to_text set), "Extract as ANSI (binary data)" for the
  // rest.
  sql_record(unsigned n_fields, const MYSQL_FIELD* fields, const unsigned long* lengths, MYSQL_ROW row);
  // ctor2: the row of a result whose columns the schema describes, in order.
  // Logs "sql_record::ctor2(n_fields=%d)" and "schema.size=%d".
  sql_record(unsigned n_fields, const udb_schema& schema, const unsigned long* lengths, MYSQL_ROW row);

  // The same, refilling this record in place.
  void fill1(unsigned n_fields, const MYSQL_FIELD* fields, const unsigned long* lengths, MYSQL_ROW row);
  void fill2(unsigned n_fields, const udb_schema& schema, const unsigned long* lengths, MYSQL_ROW row);
};

class sql_field_finder {
 public:
  // The names of record, in record order, as a target table has them.
  // Logs "sql_field_finder::initialize".
  explicit sql_field_finder(const udb_record& record);
  ~sql_field_finder();
  sql_field_finder(const sql_field_finder&) = delete;
  sql_field_finder& operator=(const sql_field_finder&) = delete;

  // The position of the field that stands for the target column name, or
  // -1. Logs "sql_field_finder::get_field_idx(%s)". The exact name wins; a
  // name that differs only in letter case is the same column to MySQL and is
  // found next.
  [[nodiscard]] int get_field_idx(const std::wstring& name) const;

  // The names as the target sees them, in record order.
  [[nodiscard]] const std::vector<std::wstring>& names() const { return names_; }

 private:
  void initialize(const udb_record& record);

  std::vector<std::wstring> names_;
  std::unique_ptr<udb_validator> validator_;
};

}  // namespace qb
