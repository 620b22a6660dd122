// odb_fetcher: reads the rows of an executed statement in batches of 100 and
// turns every cell into an ole_variant of its column's tag.
//
// How cells are read:
//   - Columns of a bounded size are bound to arrays; when the result has no
//     long column, one SQLFetch brings 100 rows (SQL_ATTR_ROW_ARRAY_SIZE).
//   - Long columns ((max), text, ntext, image, xml, CLR types) are read with
//     SQLGetData in pieces, so no value is ever cut, whatever its length. The
//     drivers allow SQLGetData only behind the last bound column, so the
//     columns from the first long one on are all read that way, and such a
//     result is fetched one row at a time (still handed out 100 at a time).
//   - Integers, bit, real and float arrive as their C types, GUIDs as
//     SQLGUID (written upper case, without braces), date and datetime as
//     SQL_TIMESTAMP_STRUCT written back into SQL Server's text form; decimal,
//     money, time and datetimeoffset as ASCII text; text as UTF-16, decoded
//     once into the value's wide text; binary as bytes. Every value equals
//     what ole_variant::from_wstring makes of the driver's text for it.
//
// Cell rules: NULL is the empty value (tag 0); an empty string is an empty
// text (tag 8); an empty binary value is the empty value (a byte array cannot
// be empty). A value that cannot be held (no memory, a bound value longer
// than its column declares) fails its row with a tk_exception naming the
// table, the column and the row.
//
// Ownership: the fetcher borrows the statement, which must outlive it, and
// owns the bound buffers; it binds the statement's columns and sets its row
// array size. Thread-safety: the thread of the statement.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "mss/columns.h"
#include "mss/odbc.h"
#include "ole/variant.h"

namespace qb {

// Where the fetcher puts the cells of a batch.
class odb_cell_sink {
 public:
  // The value of a cell, to be overwritten; row counts from 0 in the batch.
  virtual ole_variant& cell(std::size_t row, std::size_t column) = 0;
  // The length the source delivered: bytes of text as UTF-16, of binary as
  // they are, the text width of other values.
  virtual void set_cell_size(std::size_t row, std::size_t column, std::uint32_t size) = 0;

  odb_cell_sink() = default;
  virtual ~odb_cell_sink() = default;
  odb_cell_sink(const odb_cell_sink&) = default;
  odb_cell_sink& operator=(const odb_cell_sink&) = default;
};

class odb_fetcher {
 public:
  static constexpr std::size_t batch_rows = 100;

  // Binds the statement's result. tags gives each column's value tag (from
  // odb_get_vartype); source names the table or query in messages.
  odb_fetcher(odb_statement& statement, std::vector<odb_column> columns, std::vector<std::uint16_t> tags,
              std::wstring source);
  ~odb_fetcher();
  odb_fetcher(const odb_fetcher&) = delete;
  odb_fetcher& operator=(const odb_fetcher&) = delete;

  // Reads the next rows, at most batch_rows, into the sink and returns their
  // number; 0 at the end of the result.
  std::size_t fetch(odb_cell_sink& sink);

  // Rows read so far.
  [[nodiscard]] std::uint64_t rows_read() const { return rows_read_; }
  [[nodiscard]] const std::vector<odb_column>& columns() const { return columns_; }
  // True when a whole batch comes with one SQLFetch.
  [[nodiscard]] bool block_fetch() const { return block_; }

  // Binds the statement again after it was executed anew (same columns).
  void rebind();
  // Starts counting rows from 0 again.
  void restart() { rows_read_ = 0; }

 private:
  enum class kind : std::uint8_t {
    boolean, ui1, i2, i4, i8, r4, r8, guid, date, timestamp, ascii, wtext, binary, long_wtext, long_binary
  };
  struct slot {
    kind how = kind::binary;
    SQLSMALLINT c_type = SQL_C_BINARY;
    std::size_t width = 0;              // bytes a row of the bound buffer takes
    std::uint16_t tag = 0;
    std::uint32_t text_size = 0;        // size reported for fixed-width values
    bool bound = false;
    std::vector<unsigned char> buffer;  // width * rows
    std::vector<SQLLEN> indicators;     // one a row
  };

  void plan();
  void bind();
  std::size_t fetch_block(odb_cell_sink& sink);
  std::size_t fetch_rows(odb_cell_sink& sink);
  void read_bound(odb_cell_sink& sink, std::size_t row, std::size_t buffer_row, std::size_t column);
  void read_unbound(odb_cell_sink& sink, std::size_t row, std::size_t column);
  void read_long_text(ole_variant& value, odb_cell_sink& sink, std::size_t row, std::size_t column);
  void read_long_binary(ole_variant& value, odb_cell_sink& sink, std::size_t row, std::size_t column);
  void decode(const slot& s, const unsigned char* data, SQLLEN indicator, ole_variant& value, odb_cell_sink& sink,
              std::size_t row, std::size_t column);
  [[noreturn]] void cannot_hold(std::size_t row, std::size_t column, const char* why) const;

  odb_statement& statement_;
  std::vector<odb_column> columns_;
  std::wstring source_;
  std::vector<slot> slots_;
  std::size_t first_unbound_ = 0;  // columns from here on are read with SQLGetData
  bool block_ = false;
  SQLULEN fetched_ = 0;
  std::vector<SQLUSMALLINT> row_status_;
  std::uint64_t rows_read_ = 0;
  // Scratch space reused for every cell.
  std::wstring text_;
  std::u16string piece_;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace qb
