// sql_table: the row loader (declared in sql/table.h).
//
// The fast path renders each row once, straight into the reused buffer of the
// pending statement, and sends a full statement with mysql_send_query without
// waiting: the server stores one batch while the next is rendered. The
// outcome of a statement is read (mysql_read_query_result) before anything
// else runs on the connection: before the next batch, before a slow-path
// row, before any statement of the database (sql_database::drain), in
// finish() and in the destructor.
#include <algorithm>
#include <charconv>

#include "sql/database.h"
#include "sql/engine.h"
#include "sql/table.h"
#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"
#include "tk/utf.h"

namespace qb {

namespace {

using vt = ole_variant;

constexpr const char* not_conform = "The structure of data source does not conform to the destination table.";
// The duplicate-key note that INSERT IGNORE leaves for a row it drops.
constexpr std::string_view duplicate_key_code = "1062";

sql_engine& engine() { return sql_engine::instance(); }

[[noreturn]] void throw_not_conform() { throw tk_exception(std::string(not_conform), 1); }

// The UTF-8 length of a text.
std::uint64_t utf8_length(std::wstring_view text) {
  std::uint64_t n = 0;
  for (wchar_t c : text) {
    const auto cp = static_cast<std::uint32_t>(c);
    n += cp < 0x80 ? 1 : cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4;
  }
  return n;
}

bool is_long_value(const udb_field& field) {
  return field.ole_variant::get_type() >= 2 && field.get_length() > sql_engine::max_field_size;
}

// "Rows matched: 1  Changed: 0  Warnings: 0" of an UPDATE.
std::uint64_t rows_matched(const std::string& info) {
  constexpr std::string_view label = "Rows matched: ";
  const std::size_t at = info.find(label);
  if (at == std::string::npos) return 0;
  std::uint64_t n = 0;
  const char* begin = info.data() + at + label.size();
  std::from_chars(begin, info.data() + info.size(), n);
  return n;
}

}  // namespace

sql_table::~sql_table() {
  LOG(2, "sql_table::dtor");
  try {
    finish();
  } catch (const std::exception& e) {
    LOG(3, "Table '%s': ERROR '%s'", name_, e.what());
  }
  buffer_.clear();
  if (db().busy_table() == this) db().set_busy_table(nullptr);
}

void sql_table::finish() {
  LOG(2, "sql_table::finish(%s)", name_);
  send_batch();
  drain();
  if (!summarised_ && batches_ + slow_statements_ > 0) {
    summarised_ = true;
    LOG(2, "Table '%s': %d statements, %I64u rows written, %I64u replaced, %I64u warnings", name_,
        batches_ + slow_statements_, written_, replaced_, warnings_);
  }
  throw_deferred();
}

udb_write_counts sql_table::write_counts() const { return {true, written_, warnings_}; }

sql_table::statement_kind sql_table::row_kind(bool fast) const {
  if (replace_mode()) return statement_kind::replace;
  return fast ? statement_kind::insert_ignore : statement_kind::insert;
}

std::uint32_t sql_table::packet_limit() {
  if (packet_limit_ == 0) packet_limit_ = engine().effective_max_allowed_packet();
  return packet_limit_;
}

// --- append_record ---------------------------------------------------------------------------

void sql_table::append_record(udb_record& record) {
  LOG(1, "sql_table::append_record");
  ++row_counter_;
  convert_record(record);
  const std::uint32_t total = record.get_total_size();
  LOG(1, "record size=%d", total);
  if (total > row_limit) {
    LOG(3, "Row is too big (%d bytes), swtich to slow_append", total);
    engine().note_row_too_big();
    send_batch();
  }
  try {
    if (engine().fast_mode()) {
      fast_append(record);
    } else {
      slow_append(record);
    }
  } catch (...) {
    ++rec_count_;
    throw;
  }
  ++rec_count_;
  // A batch sent earlier that failed is reported now; this row is in.
  throw_deferred();
}

// --- Columns of a row ------------------------------------------------------------------------

void sql_table::match_columns(const udb_record& record, std::vector<column_pair>& pairs) const {
  pairs.clear();
  if (schema_.size() <= record.size()) {
    LOG(1, "Size of schema is less or equal to the size of record");
    const sql_field_finder finder(record);
    for (std::size_t j = 0; j < schema_.size(); ++j) {
      const int idx = finder.get_field_idx(schema_[j].name);
      if (idx < 0) {
        LOG(2, "Field %s not found in appending record", schema_[j].name);
        throw_not_conform();
      }
      pairs.push_back({static_cast<std::size_t>(idx), j});
    }
    return;
  }
  LOG(1, "Size of record is less than size of schema");
  const std::unique_ptr<udb_validator> validator = engine().create_fn_validator(record);
  for (std::size_t i = 0; i < record.size(); ++i) {
    const std::wstring& name = record[i].name;
    std::wstring mapped = name;
    if (!validator->is_acceptable(name)) {
      mapped = validator->get_safe_name(name);
      validator->add_existing_name(mapped);
    }
    validator->add_restricted_name(mapped);
    LOG(1, "Name=%s, mapped name=%s", name, mapped);
    const int column = schema_.index_of(mapped, i);
    if (column < 0) {
      LOG(2, "Field %s not found", mapped);
      throw_not_conform();
    }
    pairs.push_back({i, static_cast<std::size_t>(column)});
  }
}

bool sql_table::same_layout(const udb_record& record) const {
  if (layout_.empty() || record.size() != layout_.size()) return false;
  for (std::size_t i = 0; i < layout_.size(); ++i) {
    if (record[i].name != layout_[i]) return false;
  }
  return true;
}

void sql_table::render_head(std::string& out, statement_kind kind, const std::vector<column_pair>& pairs) const {
  switch (kind) {
    case statement_kind::replace:
      out = "REPLACE INTO ";
      break;
    case statement_kind::insert_ignore:
      out = "INSERT IGNORE INTO ";
      break;
    default:
      out = "INSERT INTO ";
      break;
  }
  out += quoted_table_;
  out += '(';
  for (std::size_t k = 0; k < pairs.size(); ++k) {
    if (k > 0) out += ", ";
    out += quoted(schema_[pairs[k].column].name);
  }
  out += ')';
}

void sql_table::note_cell(const sql_render_note& note, std::size_t column) {
  if (!note.beyond_bmp || !utf8mb3_ || column >= warned_.size() || warned_[column]) return;
  warned_[column] = true;
  LOG(3,
      "Column '%s' of table '%s' holds characters beyond U+FFFF, which the character set '%s' cannot store; "
      "utf8mb4 can",
      schema_[column].name, name_, engine().charset());
}

void sql_table::render_row(std::string& out, const udb_record& record, const std::vector<column_pair>& pairs,
                           bool prepared, int* params) {
  out += '(';
  for (std::size_t k = 0; k < pairs.size(); ++k) {
    if (k > 0) out += ", ";
    const udb_field& field = record[pairs[k].field];
    const std::size_t column = pairs[k].column;
    if (prepared && is_long_value(field)) {
      out += '?';
      if (params != nullptr) ++*params;
      continue;
    }
    sql_render_note note;
    append_fld_str(out, field, schema_[column], false, &note);
    note_cell(note, column);
  }
  out += ')';
}

// --- The fast path ---------------------------------------------------------------------------

void sql_table::fast_append(udb_record& record) {
  LOG(1, "sql_table::fast_append");
  LOG(1, "that.size=%d", static_cast<int>(record.size()));
  const statement_kind kind = row_kind(true);
  if (!same_layout(record)) {
    std::vector<column_pair> pairs;
    match_columns(record, pairs);
    std::string head;
    render_head(head, kind, pairs);
    // A statement names its columns once: a row of another layout starts a
    // statement of its own.
    if (!buffer_.empty() && head != head_) send_batch();
    pairs_ = std::move(pairs);
    head_ = std::move(head);
    layout_.clear();
    for (const udb_field& field : record) layout_.push_back(field.name);
  }
  row_.clear();
  render_row(row_, record, pairs_, false, nullptr);
  LOG(1, "*** FAST INSERT MODE ***");
  if (buffer_.empty()) {
    LOG(1, "Initialize new query...");
    buffer_ = head_;
    buffer_ += " VALUES";
    buffer_first_ = row_counter_;
  } else if (buffer_.size() + 2 + (head_.size() - 1) + row_.size() < row_limit + 1) {
    // The test counts the head, which the row does not add: a batch may end
    // some dozens of bytes before the limit.
    buffer_ += ", ";
  } else {
    send_batch();
    LOG(2, "Initialize new query...");
    buffer_ = head_;
    buffer_ += "VALUES";
    buffer_first_ = row_counter_;
  }
  buffer_ += row_;
  ++buffer_rows_;
  LOG(1, "sql_query=[%s]", row_);
}

void sql_table::send_batch() {
  if (buffer_.empty()) return;
  drain();
  pending_statement statement;
  statement.kind = row_kind(true);
  statement.rows = buffer_rows_;
  statement.first_row = buffer_first_;
  statement.batch = ++batches_;
  buffer_rows_ = 0;
  LOG(1, "Run SQL query: [%s]", buffer_);
  if (buffer_.size() > packet_limit()) {
    // The server would drop the connection rather than take it.
    buffer_.clear();
    batch_failed(statement, sql_row_too_big_exception());
    return;
  }
  MYSQL* connection = db().connection();
  if (mysql_send_query(connection, buffer_.data(), static_cast<unsigned long>(buffer_.size())) != 0) {
    const sql_exception e(connection, head_);
    buffer_.clear();
    batch_failed(statement, e);
    if (e.connection_lost()) throw e;
    return;
  }
  buffer_.clear();
  statement.active = true;
  on_way_ = statement;
  db().set_busy_table(this);
}

void sql_table::drain() {
  if (!on_way_.active) return;
  const pending_statement statement = on_way_;
  on_way_.active = false;
  if (db().busy_table() == this) db().set_busy_table(nullptr);
  MYSQL* connection = db().connection();
  if (mysql_read_query_result(connection) != 0) {
    const sql_exception e(connection, head_);
    batch_failed(statement, e);
    if (e.connection_lost()) throw e;
    return;
  }
  sql_statement_outcome outcome;
  outcome.affected_rows = mysql_affected_rows(connection);
  outcome.warnings = mysql_warning_count(connection);
  complete(statement, outcome);
}

void sql_table::batch_failed(const pending_statement& statement, const sql_exception& e) {
  not_written_ += statement.rows;
  LOG(3, "Table '%s': rows #%I64u to #%I64u (batch %d) were not written: %s", name_, statement.first_row,
      statement.first_row + statement.rows - 1, statement.batch, e.what());
  LOG(3, "QUERY=%s VALUES ... (%I64u rows)", head_, statement.rows);
  // A lost connection is thrown at once; any other failure waits for the
  // next call that may report it.
  if (!deferred_ && !e.connection_lost()) deferred_ = e;
}

void sql_table::throw_deferred() {
  if (!deferred_) return;
  const sql_exception e = *deferred_;
  deferred_.reset();
  throw e;
}

// --- What the server said --------------------------------------------------------------------

void sql_table::complete(const pending_statement& statement, const sql_statement_outcome& outcome) {
  std::uint64_t dropped = 0;
  switch (statement.kind) {
    case statement_kind::insert_ignore:
    case statement_kind::insert: {
      const std::uint64_t stored = std::min(outcome.affected_rows, statement.rows);
      written_ += stored;
      dropped = statement.rows - stored;
      not_written_ += dropped;
      break;
    }
    case statement_kind::replace:
      // A replaced row counts twice in the affected rows (deleted, inserted).
      written_ += statement.rows;
      if (outcome.affected_rows > statement.rows) replaced_ += outcome.affected_rows - statement.rows;
      break;
    case statement_kind::update:
      written_ += std::min<std::uint64_t>(rows_matched(outcome.info), statement.rows);
      break;
  }
  if (outcome.warnings > 0) read_warnings(outcome.warnings, dropped);
}

void sql_table::read_warnings(std::uint32_t count, std::uint64_t dropped) {
  if (warnings_logged_ >= logged_warnings && drops_logged_ >= logged_warnings) {
    // Enough texts in the log: the count alone, each dropped row taken as
    // one duplicate-key note.
    warnings_ += count > dropped ? count - dropped : 0;
    return;
  }
  std::uint64_t listed = 0;
  std::uint64_t duplicates = 0;
  std::uint64_t others = 0;
  sql_stream rows(db().connection(), "SHOW WARNINGS");
  while (rows.next()) {
    ++listed;
    const std::string_view code = rows.field(1);
    const std::string_view message = rows.field(2);
    if (code == duplicate_key_code) {
      ++duplicates;
      if (drops_logged_ < logged_warnings) {
        ++drops_logged_;
        LOG(3, "Table '%s': a row was not written: %s", name_, message);
      }
      continue;
    }
    ++others;
    if (warnings_logged_ < logged_warnings) {
      ++warnings_logged_;
      LOG(3, "Table '%s': warning %s: %s", name_, code, message);
    }
  }
  if (listed >= count) {
    warnings_ += others;
    return;
  }
  // The server lists at most max_error_count notes: the rest are counted,
  // less the duplicate-key notes of the dropped rows not listed.
  const std::uint64_t unlisted = count - listed;
  const std::uint64_t unlisted_duplicates = dropped > duplicates ? dropped - duplicates : 0;
  warnings_ += others + (unlisted > unlisted_duplicates ? unlisted - unlisted_duplicates : 0);
}

// --- The slow path ---------------------------------------------------------------------------

void sql_table::slow_append(udb_record& record) {
  LOG(1, "sql_table::slow_append");
  const std::uint32_t total = record.get_total_size();
  const bool prepared = total > row_limit;
  LOG(1, "mysql_db.get_mode()=%d", db().mode());
  const statement_kind kind = row_kind(false);
  if (!same_layout(record)) {
    // Rows of the fast path still pending were made for another layout.
    if (!buffer_.empty()) send_batch();
    match_columns(record, pairs_);
    head_.clear();
    layout_.clear();
    for (const udb_field& field : record) layout_.push_back(field.name);
  }
  render_head(statement_, kind, pairs_);
  statement_ += " VALUES ";
  int params = 0;
  render_row(statement_, record, pairs_, prepared, &params);
  LOG(1, "Run SQL query: %s", statement_);
  drain();
  ++slow_statements_;
  if (!prepared) {
    const sql_statement_outcome outcome = db().query_append(statement_);
    complete(pending_statement{false, kind, 1, row_counter_, 0}, outcome);
    return;
  }
  const std::uint32_t limit = packet_limit();
  LOG(2, "get_max_allowed_packet=%d", limit);
  std::vector<const udb_field*> long_values;
  bool too_big = limit != 0 && (total > limit || statement_.size() > limit);
  for (const column_pair& pair : pairs_) {
    const udb_field& field = record[pair.field];
    if (!is_long_value(field)) continue;
    long_values.push_back(&field);
    // A text goes as UTF-8: up to four bytes a character.
    const std::uint64_t bytes =
        field.ole_variant::get_type() == vt::vt_bstr ? utf8_length(field.text_view()) : field.get_length();
    if (limit != 0 && bytes > limit) too_big = true;
  }
  if (too_big) {
    LOG(2, "row_tot_size > max_allowed_packet");
    LOG(3, "Table '%s': row #%I64u (%d bytes) is larger than max_allowed_packet (%d bytes) and is not written", name_,
        row_counter_, total, limit);
    throw sql_row_too_big_exception();
  }
  LOG(2, "Table '%s': row #%I64u goes by a prepared statement with %d long values", name_, row_counter_,
      static_cast<int>(long_values.size()));
  const sql_statement_outcome outcome = db().prepared_statement(statement_, long_values);
  complete(pending_statement{false, kind, 1, row_counter_, 0}, outcome);
}

}  // namespace qb
