// dmp_recordset: the rows of one table of a dump (declared in sql/dump.h).
#include <algorithm>

#include "sql/dump.h"
#include "sql/engine.h"
#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"
#include "tk/utf.h"

namespace qb {

namespace {

using vt = ole_variant;

// A batch is written once it holds more than this; a row larger than this
// goes into a statement of its own.
constexpr std::size_t batch_limit = 1000000;
constexpr std::uint32_t row_limit = 1000000;
// A streamed value goes out in pieces of this many bytes (or characters).
constexpr std::size_t piece_size = 131072;

constexpr const char* not_conform = "The structure of data source does not conform to the destination table.";
constexpr char hex_digits[] = "0123456789ABCDEF";

sql_engine& engine() { return sql_engine::instance(); }

[[noreturn]] void throw_not_conform() { throw tk_exception(std::string(not_conform), 1); }

bool holds_beyond_bmp_only_in_utf8mb4(const std::wstring& charset) {
  return tk_equal_no_case(charset, L"utf8") || tk_equal_no_case(charset, L"utf8mb3");
}

}  // namespace

dmp_recordset::dmp_recordset(dmp_database* database, const std::wstring& name, const udb_schema& schema)
    : udb_recordset(database, name, true),
      db_(database),
      old_version_(engine().is_old_version()),
      utf8mb3_(holds_beyond_bmp_only_in_utf8mb4(engine().charset())),
      quoted_table_(database->quote(name)) {
  LOG(2, "dmp_recordset::dmp_recordset(%s)", name);
  schema_ = schema;
  warned_.assign(schema_.size(), false);
}

dmp_recordset::~dmp_recordset() {
  LOG(2, "dmp_recordset::dtor");
  try {
    finish();
  } catch (const tk_exception& e) {
    LOG(3, "Table '%s': ERROR '%s'", name_, e.text());
  }
}

void dmp_recordset::finish() {
  flush_batch();
  // Rows of this table that an earlier write lost are reported here too.
  db().file().check();
}

void dmp_recordset::flush_batch() {
  if (buffer_.empty()) return;
  LOG(1, "Run SQL query: [%s]", buffer_);
  // Emptied first: a failed write must not write the rows a second time.
  std::string statement;
  statement.swap(buffer_);
  db().write_statement(statement);
  statement.clear();
  statement.swap(buffer_);  // keeps the storage for the next batch
}

void dmp_recordset::append_record(udb_record& record) {
  LOG(1, "dmp_recordset::append_record");
  const std::uint32_t total = record.get_total_size();
  LOG(1, "record size=%d", total);
  if (total > row_limit) {
    LOG(3, "Row is too big (%d bytes), swtich to slow_append", total);
    engine().note_row_too_big();
    flush_batch();
  }
  if (engine().fast_mode()) {
    fast_append(record);
  } else {
    slow_append(record);
  }
  ++rec_count_;
}

// --- Columns of a row ------------------------------------------------------------------------

void dmp_recordset::start_batch(const udb_record& record) {
  LOG(1, "Initialize new query...");
  const udb_names_map& names = db().names_map();
  batch_.clear();
  std::string columns;
  for (std::size_t i = 0; i < schema_.size(); ++i) {
    std::wstring source = names.get_fn_orig_name(name_, schema_[i].name);
    LOG(1, "Name=%s, original name=%s", schema_[i].name, source);
    const int position = record.index_of(source, i);
    if (position < 0) {
      LOG(2, "Field %s not found", source);
      LOG(1, "1st time => reduce schema");
      continue;
    }
    if (!batch_.empty()) columns += ", ";
    columns += db().quote(schema_[i].name);
    batch_.push_back({i, std::move(source), static_cast<std::size_t>(position)});
  }
  head_ = "INSERT IGNORE INTO " + quoted_table_ + "(" + columns + ")";
}

void dmp_recordset::find_fields(const udb_record& record, std::vector<std::size_t>& positions) {
  positions.clear();
  for (column_ref& ref : batch_) {
    const int position = record.index_of(ref.source, ref.hint);
    if (position < 0) {
      LOG(2, "Field %s not found", ref.source);
      throw_not_conform();
    }
    ref.hint = static_cast<std::size_t>(position);
    positions.push_back(ref.hint);
  }
}

// --- Values ------------------------------------------------------------------------------------

void dmp_recordset::note_cell(const sql_render_note& note, std::size_t column) {
  if (!note.beyond_bmp || !utf8mb3_ || warned_[column]) return;
  warned_[column] = true;
  LOG(3,
      "Column '%s' of table '%s' holds characters beyond U+FFFF, which the character set '%s' cannot store; "
      "utf8mb4 can",
      schema_[column].name, name_, engine().charset());
}

void dmp_recordset::render_value(std::string& out, const udb_field& field, std::size_t column) {
  sql_render_note note;
  append_fld_str(out, field, schema_[column], false, &note);
  note_cell(note, column);
}

// Writes a value of more than sql_max_field_size into the file piece by
// piece, exactly as append_fld_str would render it, so that the value never
// exists a second time in memory.
void dmp_recordset::stream_value(const udb_field& field, std::size_t index) {
  const t_ftd& column = schema_[index];
  LOG(1, "that[eye]->get_size() > sql_engine::max_field_size");
  const std::uint16_t type = field.ole_variant::get_type();
  if (type == vt::vt_bytes || type == vt::vt_blob) {
    const bool in_text = column.vartype == vt::vt_bstr;
    LOG(1, "is_binary=%d", in_text ? 0 : 1);
    const auto bytes = field.bytes_view();
    db().write_raw(in_text ? "'0x" : "0x");
    for (std::size_t pos = 0; pos < bytes.size(); pos += piece_size) {
      const std::size_t count = std::min(piece_size, bytes.size() - pos);
      piece_.resize(count * 2);
      char* p = piece_.data();
      for (std::size_t k = 0; k < count; ++k) {
        const std::uint8_t b = bytes[pos + k];
        *p++ = hex_digits[b >> 4];
        *p++ = hex_digits[b & 0x0F];
      }
      db().write_raw(piece_);
    }
    if (in_text) db().write_raw("'");
    return;
  }
  const bool geometry = column.vartype == vt::vt_bstr && (column.dw_reserved == 2 || column.dw_reserved == 8);
  db().write_raw(geometry ? "ST_GeomFromText('" : "'");
  const std::wstring_view text = field.text_view();
  sql_render_note note;
  for (std::size_t pos = 0; pos < text.size();) {
    const std::size_t end = std::min(text.size(), pos + piece_size);
    piece_.clear();
    sql_append_escaped(piece_, text.substr(pos, end - pos), &note);
    db().write_raw(piece_);
    pos = end;
  }
  db().write_raw(geometry ? "')" : "'");
  note_cell(note, index);
}

// --- The two writers ---------------------------------------------------------------------------

void dmp_recordset::fast_append(const udb_record& record) {
  LOG(1, "dmp_recordset::fast_append");
  if (buffer_.empty()) start_batch(record);
  find_fields(record, positions_);

  std::size_t separator = buffer_.size();
  if (buffer_.empty()) {
    buffer_ += head_;
    buffer_ += " VALUES(";
  } else {
    buffer_ += ", (";
  }
  for (std::size_t k = 0; k < batch_.size(); ++k) {
    if (k > 0) buffer_ += ", ";
    const udb_field& field = record[positions_[k]];
    const std::size_t column = batch_[k].column;
    if (sql_is_long_value(field) && !vt::is_numeric_type(schema_[column].vartype)) {
      LOG(1, "sql_query=%s, sql_subquery=%s", head_, buffer_);
      if (separator > 0) {
        // The rows before go out as a statement of their own; this row
        // starts the next one.
        LOG(1, "append_buffer is NOT empty");
        db().write_statement(std::string_view(buffer_).substr(0, separator));
        db().write_raw(head_ + " VALUES(");
        db().write_raw(std::string_view(buffer_).substr(separator + 3));
      } else {
        db().write_raw(buffer_);
      }
      buffer_.clear();
      separator = 0;
      stream_value(field, column);
      continue;
    }
    render_value(buffer_, field, column);
  }
  buffer_ += ')';
  LOG(1, "*** FAST INSERT MODE ***");
  LOG(1, "sql_query=[%s]", buffer_);
  if (buffer_.size() > batch_limit) {
    flush_batch();
    LOG(1, "Cleaning append_buffer...");
  }
}

void dmp_recordset::slow_append(const udb_record& record) {
  LOG(1, "dmp_recordset::slow_append");
  // (record position, column) pairs in the order they are written.
  std::vector<std::pair<std::size_t, std::size_t>> pairs;
  const udb_names_map& names = db().names_map();
  if (schema_.size() <= record.size()) {
    LOG(1, "Size of schema is less or equal to the size of record");
    for (std::size_t i = 0; i < schema_.size(); ++i) {
      const std::wstring source = names.get_fn_orig_name(name_, schema_[i].name);
      LOG(1, "Name=%s, original name=%s", schema_[i].name, source);
      const int position = record.index_of(source, i);
      if (position < 0) {
        LOG(2, "Field %s not found", source);
        throw_not_conform();
      }
      pairs.emplace_back(static_cast<std::size_t>(position), i);
    }
  } else {
    LOG(1, "Size of record is less than size of schema");
    const std::unique_ptr<udb_validator> validator = engine().create_fn_validator(record);
    for (std::size_t j = 0; j < record.size(); ++j) {
      const std::wstring& name = record[j].name;
      const bool accepted = validator->is_acceptable(name);
      const std::wstring mapped = accepted ? name : validator->get_safe_name(name);
      if (!accepted) validator->add_existing_name(mapped);
      validator->add_restricted_name(mapped);
      LOG(1, "Name=%s, mapped name=%s", name, mapped);
      const int column = schema_.index_of(mapped, j);
      if (column < 0) {
        LOG(2, "Field %s not found", mapped);
        throw_not_conform();
      }
      pairs.emplace_back(j, static_cast<std::size_t>(column));
    }
  }

  // The whole column list comes first, so that a streamed value never
  // stands ahead of the names it belongs to.
  std::string values = "INSERT INTO " + quoted_table_ + "(";
  for (std::size_t k = 0; k < pairs.size(); ++k) {
    if (k > 0) values += ", ";
    values += db().quote(schema_[pairs[k].second].name);
  }
  values += ") VALUES (";
  bool streamed = false;
  for (std::size_t k = 0; k < pairs.size(); ++k) {
    if (k > 0) values += ", ";
    const udb_field& field = record[pairs[k].first];
    const std::size_t column = pairs[k].second;
    if (sql_is_long_value(field) && !vt::is_numeric_type(schema_[column].vartype)) {
      db().write_raw(values);
      values.clear();
      streamed = true;
      stream_value(field, column);
      continue;
    }
    render_value(values, field, column);
  }
  values += ')';
  LOG(1, "Run SQL query: %s", values);
  if (streamed) {
    db().write_raw(values);
    db().write_raw(";" + db().eol());
  } else {
    db().write_statement(values);
  }
}

}  // namespace qb
