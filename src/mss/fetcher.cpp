#include "mss/fetcher.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <span>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "mss/timestamp.h"
#include "mss/utf16.h"
#include "tk/exception.h"
#include "tk/format.h"
#include "tk/log.h"

namespace qb {

namespace {

// Room for the text of any decimal (38 digits, sign, point), money, time
// (16) and datetimeoffset (34) value.
constexpr std::size_t ascii_width = 64;
// Pieces of long values.
constexpr std::size_t text_piece_units = 32768;
constexpr std::size_t piece_tail_units = 64;
constexpr std::size_t binary_piece_bytes = 262144;

template <class T>
T load(const unsigned char* data) {
  T value;
  std::memcpy(&value, data, sizeof value);
  return value;
}

// Dates and times keep six fraction digits: a seventh (datetime2, time and
// datetimeoffset carry 100 ns) is cut, as MariaDB cuts what its DATETIME(6)
// cannot hold. Rounding it instead would carry 23:59:59.9999999 into a
// midnight of the same day, because the parser wraps the clock without
// carrying into the date.
constexpr int max_fraction_digits = odb_max_fraction_digits;

// Cuts the fraction of a date or time text to max_fraction_digits, keeping
// what follows it (a time-zone offset).
std::string_view cut_fraction(std::string_view text, std::string& buffer) {
  const std::size_t dot = text.find('.');  // the ISO forms hold no other dot
  if (dot == std::string_view::npos) return text;
  std::size_t end = dot + 1;
  while (end < text.size() && text[end] >= '0' && text[end] <= '9') ++end;
  const std::size_t digits = end - dot - 1;
  if (digits <= static_cast<std::size_t>(max_fraction_digits)) return text;
  buffer.assign(text.substr(0, dot + 1 + max_fraction_digits));
  buffer.append(text.substr(end));
  return buffer;
}

// "6F9619FF-8B86-D011-B42D-00C04FC964FF".
void guid_text(const SQLGUID& g, std::wstring& out) {
  static constexpr wchar_t digits[] = L"0123456789ABCDEF";
  out.clear();
  auto hex = [&](std::uint64_t v, int n) {
    for (int i = n - 1; i >= 0; --i) out += digits[(v >> (4 * i)) & 0xF];
  };
  hex(g.Data1, 8);
  out += L'-';
  hex(g.Data2, 4);
  out += L'-';
  hex(g.Data3, 4);
  out += L'-';
  for (int i = 0; i < 8; ++i) {
    if (i == 2) out += L'-';
    hex(g.Data4[i], 2);
  }
}

}  // namespace

odb_fetcher::odb_fetcher(odb_statement& statement, std::vector<odb_column> columns, std::vector<std::uint16_t> tags,
                         std::wstring source)
    : statement_(statement), columns_(std::move(columns)), source_(std::move(source)), slots_(columns_.size()) {
  if (tags.size() != columns_.size()) throw tk_mail_assertion("odb_fetc", __LINE__);
  for (std::size_t i = 0; i < slots_.size(); ++i) slots_[i].tag = tags[i];
  plan();
  bind();
}

odb_fetcher::~odb_fetcher() {
  // The buffers go with the fetcher: the statement must not write into them.
  SQLFreeStmt(statement_.get(), SQL_UNBIND);
  SQLSetStmtAttr(statement_.get(), SQL_ATTR_ROW_ARRAY_SIZE, reinterpret_cast<SQLPOINTER>(static_cast<SQLULEN>(1)), 0);
  SQLSetStmtAttr(statement_.get(), SQL_ATTR_ROWS_FETCHED_PTR, nullptr, 0);
  SQLSetStmtAttr(statement_.get(), SQL_ATTR_ROW_STATUS_PTR, nullptr, 0);
}

void odb_fetcher::plan() {
  first_unbound_ = columns_.size();
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    const odb_column& c = columns_[i];
    slot& s = slots_[i];
    const auto display = static_cast<std::uint32_t>(std::min<SQLULEN>(c.column_size, 64));
    s.text_size = 2 * display;
    if (c.is_long() || (s.tag == ole_variant::vt_bytes && c.size == 0)) {
      s.how = s.tag == ole_variant::vt_bytes ? kind::long_binary : kind::long_wtext;
    } else if (s.tag == ole_variant::vt_bytes) {
      s.how = kind::binary;
      s.c_type = SQL_C_BINARY;
      s.width = c.size;
    } else {
      switch (c.dbtype) {
        case odb_dbtype::boolean:
          s.how = kind::boolean, s.c_type = SQL_C_BIT, s.width = 1;
          break;
        case odb_dbtype::ui1:
          s.how = kind::ui1, s.c_type = SQL_C_UTINYINT, s.width = 1;
          break;
        case odb_dbtype::i2:
          s.how = kind::i2, s.c_type = SQL_C_SSHORT, s.width = 2;
          break;
        case odb_dbtype::i4:
          s.how = kind::i4, s.c_type = SQL_C_SLONG, s.width = 4;
          break;
        case odb_dbtype::i8:
          s.how = kind::i8, s.c_type = SQL_C_SBIGINT, s.width = 8;
          break;
        case odb_dbtype::r4:
          s.how = kind::r4, s.c_type = SQL_C_FLOAT, s.width = 4;
          break;
        case odb_dbtype::r8:
          s.how = kind::r8, s.c_type = SQL_C_DOUBLE, s.width = 8;
          break;
        case odb_dbtype::guid:
          s.how = kind::guid, s.c_type = SQL_C_GUID, s.width = sizeof(SQLGUID), s.text_size = 36;
          break;
        case odb_dbtype::dbdate:
          s.how = kind::date, s.c_type = SQL_C_TYPE_TIMESTAMP, s.width = sizeof(SQL_TIMESTAMP_STRUCT);
          break;
        case odb_dbtype::dbtimestamp:
          s.how = kind::timestamp, s.c_type = SQL_C_TYPE_TIMESTAMP, s.width = sizeof(SQL_TIMESTAMP_STRUCT);
          break;
        case odb_dbtype::str:
        case odb_dbtype::wstr:
          s.how = kind::wtext, s.c_type = SQL_C_WCHAR, s.width = (static_cast<std::size_t>(c.size) + 1) * 2;
          break;
        default:  // decimal, numeric, money, time, datetimeoffset
          s.how = kind::ascii, s.c_type = SQL_C_CHAR, s.width = ascii_width;
          break;
      }
    }
    const bool is_long = s.how == kind::long_wtext || s.how == kind::long_binary;
    if (is_long && first_unbound_ == columns_.size()) first_unbound_ = i;
  }
  block_ = first_unbound_ == columns_.size();
}

void odb_fetcher::bind() {
  const std::size_t rows = block_ ? batch_rows : 1;
  const SQLHSTMT h = statement_.get();
  statement_.check(SQLFreeStmt(h, SQL_UNBIND), "SQLFreeStmt(SQL_UNBIND)");
  statement_.check(SQLSetStmtAttr(h, SQL_ATTR_ROW_BIND_TYPE, reinterpret_cast<SQLPOINTER>(SQL_BIND_BY_COLUMN), 0),
                   "SQLSetStmtAttr(SQL_ATTR_ROW_BIND_TYPE)");
  statement_.check(SQLSetStmtAttr(h, SQL_ATTR_ROW_ARRAY_SIZE, reinterpret_cast<SQLPOINTER>(rows), 0),
                   "SQLSetStmtAttr(SQL_ATTR_ROW_ARRAY_SIZE)");
  row_status_.assign(rows, SQL_ROW_NOROW);
  statement_.check(SQLSetStmtAttr(h, SQL_ATTR_ROWS_FETCHED_PTR, &fetched_, 0), "SQLSetStmtAttr(ROWS_FETCHED_PTR)");
  statement_.check(SQLSetStmtAttr(h, SQL_ATTR_ROW_STATUS_PTR, row_status_.data(), 0),
                   "SQLSetStmtAttr(ROW_STATUS_PTR)");
  for (std::size_t i = 0; i < slots_.size(); ++i) {
    slot& s = slots_[i];
    const bool is_long = s.how == kind::long_wtext || s.how == kind::long_binary;
    s.bound = i < first_unbound_;
    if (is_long) continue;
    // Unbound fixed-size columns read one row at a time into the same buffer.
    const std::size_t n = s.bound ? rows : 1;
    s.buffer.assign(s.width * n, 0);
    s.indicators.assign(n, 0);
    if (!s.bound) continue;
    statement_.check(SQLBindCol(h, static_cast<SQLUSMALLINT>(i + 1), s.c_type, s.buffer.data(),
                                static_cast<SQLLEN>(s.width), s.indicators.data()),
                     "SQLBindCol");
  }
  LOG(2, "odb_fetcher: %d columns, %d bound, %s", static_cast<int>(slots_.size()), static_cast<int>(first_unbound_),
      block_ ? "100 rows a fetch" : "one row a fetch");
}

void odb_fetcher::rebind() { bind(); }

std::size_t odb_fetcher::fetch(odb_cell_sink& sink) {
  const std::size_t n = block_ ? fetch_block(sink) : fetch_rows(sink);
  rows_read_ += n;
  return n;
}

std::size_t odb_fetcher::fetch_block(odb_cell_sink& sink) {
  fetched_ = 0;
  const SQLRETURN rc = SQLFetch(statement_.get());
  if (rc == SQL_NO_DATA) return 0;
  statement_.check(rc, "SQLFetch");
  const auto n = static_cast<std::size_t>(fetched_);
  for (std::size_t r = 0; r < n; ++r) {
    if (row_status_[r] == SQL_ROW_ERROR) statement_.check(SQL_ERROR, "SQLFetch");
    for (std::size_t c = 0; c < slots_.size(); ++c) read_bound(sink, r, r, c);
  }
  return n;
}

std::size_t odb_fetcher::fetch_rows(odb_cell_sink& sink) {
  std::size_t n = 0;
  while (n < batch_rows) {
    const SQLRETURN rc = SQLFetch(statement_.get());
    if (rc == SQL_NO_DATA) break;
    statement_.check(rc, "SQLFetch");
    for (std::size_t c = 0; c < first_unbound_; ++c) read_bound(sink, n, 0, c);
    for (std::size_t c = first_unbound_; c < slots_.size(); ++c) read_unbound(sink, n, c);
    ++n;
  }
  return n;
}

void odb_fetcher::read_bound(odb_cell_sink& sink, std::size_t row, std::size_t buffer_row, std::size_t column) {
  const slot& s = slots_[column];
  decode(s, s.buffer.data() + buffer_row * s.width, s.indicators[buffer_row], sink.cell(row, column), sink, row,
         column);
}

void odb_fetcher::read_unbound(odb_cell_sink& sink, std::size_t row, std::size_t column) {
  slot& s = slots_[column];
  ole_variant& value = sink.cell(row, column);
  try {
    if (s.how == kind::long_wtext) return read_long_text(value, sink, row, column);
    if (s.how == kind::long_binary) return read_long_binary(value, sink, row, column);
  } catch (const std::bad_alloc&) {
    cannot_hold(row, column, "it does not fit in memory");
  } catch (const std::length_error&) {
    cannot_hold(row, column, "it does not fit in memory");
  }
  SQLLEN indicator = 0;
  const SQLRETURN rc = SQLGetData(statement_.get(), static_cast<SQLUSMALLINT>(column + 1), s.c_type, s.buffer.data(),
                                  static_cast<SQLLEN>(s.width), &indicator);
  statement_.check(rc, "SQLGetData");
  decode(s, s.buffer.data(), indicator, value, sink, row, column);
}

void odb_fetcher::decode(const slot& s, const unsigned char* data, SQLLEN indicator, ole_variant& value,
                         odb_cell_sink& sink, std::size_t row, std::size_t column) {
  if (indicator == SQL_NULL_DATA) {
    value = ole_variant();
    sink.set_cell_size(row, column, 0);
    return;
  }
  std::uint32_t size = s.text_size;
  switch (s.how) {
    case kind::boolean:
      value = ole_variant(*data != 0);
      break;
    case kind::ui1:
      value = ole_variant(static_cast<unsigned char>(*data));
      break;
    case kind::i2:
      value = ole_variant(load<short>(data));
      break;
    case kind::i4:
      value = ole_variant(load<int>(data));
      break;
    case kind::i8:
      value = ole_variant(load<long long>(data));
      break;
    case kind::r4:
      value = ole_variant(load<float>(data));
      break;
    case kind::r8:
      value = ole_variant(load<double>(data));
      break;
    case kind::guid:
      guid_text(load<SQLGUID>(data), text_);
      value.attach_wstring(std::wstring_view(text_));
      break;
    case kind::date:
    case kind::timestamp: {
      const bool date_only = s.how == kind::date;
      const int scale = columns_[column].decimal_digits;
      value = odb_date_value(load<SQL_TIMESTAMP_STRUCT>(data), date_only, scale);
      size = static_cast<std::uint32_t>(2 * odb_timestamp_text_size(date_only, scale));
      break;
    }
    case kind::ascii: {
      if (indicator < 0 || static_cast<std::size_t>(indicator) >= s.width) {
        cannot_hold(row, column, "its text is longer than its type allows");
      }
      std::string_view text(reinterpret_cast<const char*>(data), static_cast<std::size_t>(indicator));
      std::string cut;
      if (s.tag == ole_variant::vt_date) text = cut_fraction(text, cut);
      value = ole_variant::from_string(text, s.tag);
      size = static_cast<std::uint32_t>(2 * text.size());
      break;
    }
    case kind::wtext: {
      if (indicator < 0 || static_cast<std::size_t>(indicator) > s.width - 2) {
        cannot_hold(row, column, "it is longer than its column declares");
      }
      const std::size_t units = static_cast<std::size_t>(indicator) / sizeof(SQLWCHAR);
      text_.clear();
      odb_append_from_utf16(text_, reinterpret_cast<const SQLWCHAR*>(data), units);
      value.attach_wstring(std::wstring_view(text_));
      size = static_cast<std::uint32_t>(indicator);
      break;
    }
    case kind::binary: {
      if (indicator < 0 || static_cast<std::size_t>(indicator) > s.width) {
        cannot_hold(row, column, "it is longer than its column declares");
      }
      value = ole_variant(std::span<const std::uint8_t>(data, static_cast<std::size_t>(indicator)));
      size = static_cast<std::uint32_t>(indicator);
      break;
    }
    case kind::long_wtext:
    case kind::long_binary:
      throw tk_mail_assertion("odb_fetc", __LINE__);  // long values are never bound
  }
  sink.set_cell_size(row, column, size);
}

void odb_fetcher::read_long_text(ole_variant& value, odb_cell_sink& sink, std::size_t row, std::size_t column) {
  const auto number = static_cast<SQLUSMALLINT>(column + 1);
  piece_.resize(text_piece_units);
  const auto piece_bytes = static_cast<SQLLEN>(piece_.size() * sizeof(SQLWCHAR));
  // A piece that does not hold the whole value ends at the driver's NUL,
  // which lies in the buffer's last units (a driver may leave a unit or two
  // to keep a pair together); only those are marked before each call.
  const auto tail = piece_.end() - static_cast<std::ptrdiff_t>(piece_tail_units);
  text_.clear();
  std::wstring long_text;  // a value larger than a piece is built in its own string
  std::wstring* out = &text_;
  odb_utf16_decoder decoder;
  std::uint64_t bytes = 0;
  for (bool first = true;; first = false) {
    std::fill(tail, piece_.end(), odb_unwritten_unit);
    SQLLEN indicator = 0;
    const SQLRETURN rc =
        SQLGetData(statement_.get(), number, SQL_C_WCHAR, odb_sqlwchar(piece_), piece_bytes, &indicator);
    if (rc == SQL_NO_DATA) break;
    statement_.check(rc, "SQLGetData");
    if (indicator == SQL_NULL_DATA) {
      value = ole_variant();
      sink.set_cell_size(row, column, 0);
      return;
    }
    const bool partial = rc == SQL_SUCCESS_WITH_INFO && (indicator == SQL_NO_TOTAL || indicator >= piece_bytes);
    if (first && partial) {
      out = &long_text;
      if (indicator > 0) long_text.reserve(static_cast<std::size_t>(indicator) / sizeof(SQLWCHAR));
    }
    std::size_t units = static_cast<std::size_t>(std::max<SQLLEN>(indicator, 0)) / sizeof(SQLWCHAR);
    if (partial) {
      units = odb_written_units(piece_);
      if (units < piece_.size() - piece_tail_units) cannot_hold(row, column, "the driver's pieces cannot be measured");
    }
    decoder.append(*out, odb_sqlwchar(piece_), units);
    bytes += units * sizeof(SQLWCHAR);
    if (!partial) break;
  }
  decoder.finish(*out);
  if (out == &text_) {
    value.attach_wstring(std::wstring_view(text_));  // into the storage the value has
  } else {
    value.attach_wstring(std::move(long_text));
  }
  sink.set_cell_size(row, column, static_cast<std::uint32_t>(std::min<std::uint64_t>(bytes, UINT32_MAX)));
}

void odb_fetcher::read_long_binary(ole_variant& value, odb_cell_sink& sink, std::size_t row, std::size_t column) {
  const auto number = static_cast<SQLUSMALLINT>(column + 1);
  bytes_.clear();
  std::size_t total = 0;
  for (bool first = true;; first = false) {
    bytes_.resize(total + binary_piece_bytes);
    SQLLEN indicator = 0;
    const SQLRETURN rc = SQLGetData(statement_.get(), number, SQL_C_BINARY, bytes_.data() + total,
                                    static_cast<SQLLEN>(binary_piece_bytes), &indicator);
    if (rc == SQL_NO_DATA) break;
    statement_.check(rc, "SQLGetData");
    if (indicator == SQL_NULL_DATA) {
      value = ole_variant();
      sink.set_cell_size(row, column, 0);
      return;
    }
    if (first && indicator > 0) bytes_.reserve(static_cast<std::size_t>(indicator) + binary_piece_bytes);
    const bool partial = rc == SQL_SUCCESS_WITH_INFO &&
                         (indicator == SQL_NO_TOTAL || indicator > static_cast<SQLLEN>(binary_piece_bytes));
    total += partial ? binary_piece_bytes : static_cast<std::size_t>(std::max<SQLLEN>(indicator, 0));
    if (!partial) break;
  }
  bytes_.resize(total);
  value = ole_variant(std::span<const std::uint8_t>(bytes_));
  sink.set_cell_size(row, column, static_cast<std::uint32_t>(std::min<std::size_t>(total, UINT32_MAX)));
  // A large buffer is not kept for the next cell.
  if (bytes_.capacity() > 16 * binary_piece_bytes) std::vector<std::uint8_t>().swap(bytes_);
}

void odb_fetcher::cannot_hold(std::size_t row, std::size_t column, const char* why) const {
  const std::uint64_t number = rows_read_ + row + 1;
  throw tk_exception(tk_wformat(L"The value of column '%s' in row %I64u of %s cannot be read: %s.", columns_[column].name,
                                number, source_, why),
                     0);
}

}  // namespace qb
