#include "sql/recordset.h"

#include <charconv>

#include "sql/database.h"
#include "sql/engine.h"
#include "sql/exception.h"
#include "sql/native_type.h"
#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"
#include "tk/utf.h"

namespace qb {

namespace {

using vt = ole_variant;

sql_engine& engine() { return sql_engine::instance(); }

// The name as the dialect writes it in these statements: back-quoted unless
// the server is old.
std::wstring dialect_name(const std::wstring& name) {
  return engine().is_old_version() ? name : sql_quote_name(name);
}

std::wstring field_name(const MYSQL_FIELD& field) {
  return tk_utf8_decode(std::string_view(field.name != nullptr ? field.name : "", field.name_length));
}

// The sub-type word of a date column by its MySQL type.
std::uint32_t date_kind(std::uint32_t type) {
  switch (type) {
    case MYSQL_TYPE_DATE:
    case MYSQL_TYPE_NEWDATE:
      return 2;
    case MYSQL_TYPE_TIME:
      return 3;
    default:
      return 1;
  }
}

// Precision of a DECIMAL field: its display length less the sign and the
// decimal point.
std::uint32_t decimal_precision(const MYSQL_FIELD& field) {
  std::uint64_t length = field.length;
  if (field.decimals > 0 && length > 0) --length;
  if ((field.flags & UNSIGNED_FLAG) == 0 && length > 0) --length;
  return static_cast<std::uint32_t>(length);
}

// The character set number of binary strings.
constexpr unsigned binary_charset = 63;

bool is_string_type(std::uint32_t type) {
  return type == MYSQL_TYPE_VAR_STRING || type == MYSQL_TYPE_STRING || type == MYSQL_TYPE_VARCHAR ||
         (type >= MYSQL_TYPE_TINY_BLOB && type <= MYSQL_TYPE_BLOB);
}

std::uint64_t scan_count(std::string_view text) {
  std::uint64_t value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

}  // namespace

// --- sql_limited_query ---------------------------------------------------------------------

sql_limited_query::sql_limited_query(sql_database& database, const std::wstring& text, std::uint64_t first,
                                     std::uint32_t count, bool is_query, const std::wstring& columns)
    : database_(database) {
  LOG(1, "sql_database::sql_limited_query::sql_limited_query(%s)", text);
  std::wstring statement = L"SELECT " + (columns.empty() ? std::wstring(L"*") : columns) + L" FROM ";
  if (is_query) {
    LOG(1, "...as query");
    statement += L"(" + text + L") as temp___table";
  } else {
    LOG(1, "...as table");
    statement += dialect_name(text);
  }
  statement += tk_wformat(L" LIMIT %I64u,%I64u", first, static_cast<std::uint64_t>(count));
  statement_ = tk_utf8_encode(statement);
  result_ = database_.do_query2(statement_);
  if (mysql_errno(database_.connection()) != 0) throw sql_exception(database_.connection(), statement_);
  LOG(1, "sql_limited_query - at the end");
}

sql_limited_query::~sql_limited_query() { LOG(1, "sql_database::sql_limited_query::~sql_limited_query"); }

std::size_t sql_limited_query::store_to(std::vector<sql_record>* records, const udb_schema* schema) {
  LOG(1, "sql_database::sql_limited_query::store_to(n_max_records=%d)", block_size);
  if (records == nullptr) throw tk_mail_assertion("sql_limq", __LINE__);
  if (result_ == nullptr) {
    records->clear();
    return 0;
  }
  const bool by_fields = schema == nullptr || schema->empty();
  LOG(1, by_fields ? "Schema is empty, build via f_info" : "Schema is NOT empty");
  const unsigned n_fields = mysql_num_fields(result_.get());
  const MYSQL_FIELD* fields = mysql_fetch_fields(result_.get());
  // The records of the block before keep their storage for these rows.
  std::size_t n = 0;
  while (n < block_size) {
    MYSQL_ROW row = mysql_fetch_row(result_.get());
    if (row == nullptr) {
      if (mysql_errno(database_.connection()) != 0) throw sql_exception(database_.connection(), statement_);
      break;
    }
    const unsigned long* lengths = mysql_fetch_lengths(result_.get());
    if (records->size() <= n) records->emplace_back();
    sql_record& record = (*records)[n];
    if (by_fields) {
      record.fill1(n_fields, fields, lengths, row);
    } else {
      record.fill2(n_fields, *schema, lengths, row);
    }
    ++n;
  }
  records->resize(n);
  return n;
}

// --- sql_recordset -------------------------------------------------------------------------

sql_recordset::sql_recordset(sql_database& database, const std::wstring& table)
    : udb_recordset(&database, table, true), db_(&database) {
  LOG(2, "sql_recordset::sql_recordset1(%s)", table);
}

sql_recordset::sql_recordset(sql_database& database, const std::wstring& name, const std::wstring& select)
    : udb_recordset(&database, name, select, true), db_(&database) {
  LOG(2, "sql_recordset::sql_recordset2(%s)", name);
}

sql_recordset::~sql_recordset() = default;

std::uint64_t sql_recordset::get_rec_count() {
  const std::wstring statement = is_table() ? L"SELECT COUNT(*) FROM " + dialect_name(name_)
                                            : L"SELECT COUNT(*) FROM (" + query_ + L") as query";
  sql_result_ptr result = db().do_query2(statement);
  if (mysql_errno(db().connection()) != 0) throw sql_exception(db().connection(), tk_utf8_encode(statement));
  sql_stream rows(db().connection(), std::move(result));
  std::uint64_t count = 0;
  if (rows.next()) count = scan_count(rows.field(0));
  LOG(2, "get_rec_count returns %d", static_cast<std::int64_t>(count));
  return count;
}

void sql_recordset::initialize() {
  LOG(2, "sql_recordset::initialize");
  LOG(2, "is_blob_to_text=%d", engine().blob_to_text() ? 1 : 0);
  rec_count_ = get_rec_count();
  schema_.reset();
  columns_.clear();
  bool has_geometry = false;
  std::vector<std::wstring> select_list;
  std::wstring auto_column;
  {
    sql_limited_query block(db(), source_text(), 0, sql_limited_query::block_size, !is_table());
    MYSQL_RES* result = block.result();
    const unsigned n_fields = result != nullptr ? mysql_num_fields(result) : 0;
    const MYSQL_FIELD* fields = result != nullptr ? mysql_fetch_fields(result) : nullptr;
    for (unsigned i = 0; i < n_fields; ++i) {
      LOG(1, "Processing field #%d", i);
      const MYSQL_FIELD& f = fields[i];
      const std::wstring name = field_name(f);
      t_ftd column;
      column.name = name;
      column.vartype = get_vartype(static_cast<std::uint32_t>(f.type), f.flags);
      column.size = static_cast<std::uint32_t>(std::min<unsigned long>(f.length, 0xFFFFFFFFUL));
      column.b_not_null = (f.flags & NOT_NULL_FLAG) != 0;
      std::wstring select = dialect_name(name);
      if (f.type == MYSQL_TYPE_GEOMETRY) {
        LOG(1, "Got MYSQL_TYPE_GEOMETRY");
        has_geometry = true;
        // Read as its text, and written back through ST_GeomFromText.
        const std::wstring to_text = engine().version() >= 0x050601 ? L"ST_AsText(" : L"AsText(";
        select = to_text + dialect_name(name) + L") as " + dialect_name(name);
        column.vartype = vt::vt_bstr;
        column.dw_reserved = 2;
        column.size = 0;
      }
      select_list.push_back(std::move(select));
      LOG(1, "GOT FIELD: name=%s, type=%d, size=%d, flags=%d", name, static_cast<int>(f.type), column.size, f.flags);
      if (column.vartype == vt::vt_decimal) {
        column.prec = decimal_precision(f);
        column.scale = f.decimals;
      }
      if (column.vartype == vt::vt_date) {
        column.dw_reserved = date_kind(static_cast<std::uint32_t>(f.type));
        column.scale = f.decimals <= 6 ? f.decimals : 0;
      }
      LOG(1, "Scale/precision: (%d,%d)", column.scale, column.prec);
      if ((f.flags & AUTO_INCREMENT_FLAG) != 0) {
        LOG(1, "Got auto_number column: '%s'", name);
        column.b_auto_num = true;
        auto_column = name;
      }
      if (is_string_type(static_cast<std::uint32_t>(f.type))) {
        // Text or bytes by the column's character set, "binary" (63) being
        // bytes: a TEXT column is reported as a BLOB with a character set, a
        // VARCHAR with a binary collation carries the binary flag, and a
        // BLOB must stay bytes also while blob_to_text reads cells as text.
        const bool binary = f.charsetnr == binary_charset;
        if (!binary && vt::is_binary_type(column.vartype)) LOG(1, "Change type from BLOB to TEXT");
        column.vartype = binary ? vt::vt_bytes : vt::vt_bstr;
      }
      schema_.push_back(std::move(column));
    }
  }
  if (has_geometry) {
    for (std::size_t i = 0; i < select_list.size(); ++i) {
      if (i > 0) columns_ += L", ";
      columns_ += select_list[i];
    }
  }
  if (!is_table()) {
    LOG(2, "It's a SQL-query, nothing to do anymore");
    LOG(2, "sql_recordset::initialize - END");
    return;
  }
  if (!auto_column.empty()) {
    const std::wstring statement = L"select max( " + dialect_name(auto_column) + L") from " + dialect_name(name_);
    LOG(2, "auto_number query=%s", statement);
    sql_result_ptr result = db().do_query2(statement);
    if (mysql_errno(db().connection()) != 0) throw sql_exception(db().connection(), tk_utf8_encode(statement));
    sql_stream rows(db().connection(), std::move(result));
    if (rows.next()) {
      const std::string_view value = rows.field(0);
      std::from_chars(value.data(), value.data() + value.size(), auto_last_value_);
    }
    LOG(2, "got last value=%d", auto_last_value_);
  }
  LOG(2, "sql_recordset::initialize - END");
}

void sql_recordset::clean() {
  block_.clear();
  in_block_ = 0;
  block_first_ = 0;
  loaded_ = false;
  position_ = -1;
}

void sql_recordset::load_block(std::uint64_t first) {
  block_first_ = first;
  in_block_ = 0;
  sql_limited_query block(db(), source_text(), first, sql_limited_query::block_size, !is_table(), columns_);
  block.store_to(&block_, &schema_);
  loaded_ = true;
}

void sql_recordset::append_record(udb_record& /*record*/) {
  LOG(2, "sql_recordset::append_record");
  throw tk_mail_assertion("sql_rs", __LINE__);
}

udb_record* sql_recordset::get_item() {
  if (!loaded_) reset();
  if (in_block_ >= block_.size()) return nullptr;
  return &block_[in_block_];
}

bool sql_recordset::is_eof() {
  if (!loaded_) reset();
  return in_block_ >= block_.size();
}

void sql_recordset::next() {
  LOG(1, "sql_recordset::next");
  if (!loaded_) reset();
  if (in_block_ >= block_.size()) return;
  ++in_block_;
  ++position_;
  // The end of a full block: the next one, which may be empty.
  if (in_block_ == block_.size() && block_.size() == sql_limited_query::block_size) {
    load_block(block_first_ + sql_limited_query::block_size);
  }
}

void sql_recordset::prev() {
  LOG(1, "sql_recordset::prev");
  if (!loaded_ || position_ <= 0) return;
  if (in_block_ == 0) {
    load_block(block_first_ - sql_limited_query::block_size);
    in_block_ = block_.empty() ? 0 : block_.size() - 1;
  } else {
    --in_block_;
  }
  --position_;
}

void sql_recordset::reset() {
  LOG(1, "sql_recordset::reset");
  load_block(0);
  position_ = 0;
}

// --- sql_tmp_recordset ---------------------------------------------------------------------

sql_tmp_recordset::sql_tmp_recordset(sql_database& database, sql_result_ptr result)
    : udb_recordset(&database, L"", true), db_(&database), result_(std::move(result)) {
  initialize();
}

sql_tmp_recordset::sql_tmp_recordset(sql_database& database, const std::wstring& statement)
    : udb_recordset(&database, L"", statement, true), db_(&database) {
  result_ = db().do_query2(statement);
  if (mysql_errno(db().connection()) != 0) throw sql_exception(db().connection(), tk_utf8_encode(statement));
  initialize();
}

sql_tmp_recordset::~sql_tmp_recordset() {
  // What the server has not sent yet is read off the wire with the result.
  result_.reset();
}

void sql_tmp_recordset::initialize() {
  schema_.reset();
  const unsigned n_fields = result_ != nullptr ? mysql_num_fields(result_.get()) : 0;
  LOG(1, "n_fields=%d", n_fields);
  const MYSQL_FIELD* fields = result_ != nullptr ? mysql_fetch_fields(result_.get()) : nullptr;
  for (unsigned i = 0; i < n_fields; ++i) {
    t_ftd column;
    column.name = field_name(fields[i]);
    column.vartype = get_vartype(static_cast<std::uint32_t>(fields[i].type), fields[i].flags);
    column.size = static_cast<std::uint32_t>(std::min<unsigned long>(fields[i].length, 0xFFFFFFFFUL));
    schema_.push_back(std::move(column));
  }
  eof_ = result_ == nullptr;
  position_ = -1;
  if (!eof_) fetch();
}

void sql_tmp_recordset::fetch() {
  MYSQL_ROW row = mysql_fetch_row(result_.get());
  if (row == nullptr) {
    eof_ = true;
    if (mysql_errno(db().connection()) != 0) throw sql_exception(db().connection());
    return;
  }
  const unsigned long* lengths = mysql_fetch_lengths(result_.get());
  row_.fill1(mysql_num_fields(result_.get()), mysql_fetch_fields(result_.get()), lengths, row);
  ++position_;
}

void sql_tmp_recordset::append_record(udb_record& /*record*/) {
  LOG(2, "sql_tmp_recordset::append_record");
  throw tk_mail_assertion("sql_tmpr", __LINE__);
}

udb_record* sql_tmp_recordset::get_item() { return eof_ ? nullptr : &row_; }

bool sql_tmp_recordset::is_eof() { return eof_; }

void sql_tmp_recordset::next() {
  if (eof_) return;
  fetch();
}

void sql_tmp_recordset::prev() {}

void sql_tmp_recordset::move_to(std::int32_t /*position*/) {}

std::wstring sql_tmp_recordset::text(std::size_t column) const {
  if (eof_ || column >= row_.size()) return {};
  return row_[column].to_wstring();
}

// --- sql_list_tables_rs --------------------------------------------------------------------

sql_list_tables_rs::sql_list_tables_rs(sql_database& database)
    : sql_tmp_recordset(database, L"show full tables where Table_type='BASE TABLE'") {
  LOG(2, "sql_list_tables_rs::ctor");
}

}  // namespace qb
