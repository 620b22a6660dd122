// sql_table: opening a table and reading its structure; updates and deletes.
// The row loader is in table_rows.cpp.
#include "sql/table.h"

#include <algorithm>
#include <cwchar>
#include <memory>

#include "sql/database.h"
#include "sql/engine.h"
#include "sql/fk_parser.h"
#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"
#include "tk/utf.h"
#include "udb/names_map.h"

namespace qb {

namespace {

using vt = ole_variant;

// Foreign keys are read from 3.23.44 on.
constexpr std::uint32_t fk_version = 0x03172C;

sql_engine& engine() { return sql_engine::instance(); }

// The number in "<prefix>(n)" at the start of type, ignoring case.
bool scan_sized(const std::wstring& type, std::wstring_view prefix, std::uint32_t& n) {
  if (type.size() <= prefix.size() + 2 || !tk_equal_no_case(std::wstring_view(type).substr(0, prefix.size()), prefix) ||
      type[prefix.size()] != L'(') {
    return false;
  }
  n = 0;
  std::size_t i = prefix.size() + 1;
  const std::size_t start = i;
  while (i < type.size() && type[i] >= L'0' && type[i] <= L'9') n = n * 10 + static_cast<std::uint32_t>(type[i++] - L'0');
  return i > start && i < type.size() && type[i] == L')';
}

// "float(p,s)": precision and scale.
bool scan_float(const std::wstring& type, std::uint32_t& prec, std::uint32_t& scale) {
  unsigned p = 0;
  unsigned s = 0;
  if (!tk_equal_no_case(std::wstring_view(type).substr(0, std::min<std::size_t>(6, type.size())), L"float(")) {
    return false;
  }
  if (std::swscanf(type.c_str() + 6, L"%u,%u", &p, &s) != 2) return false;
  prec = p;
  scale = s;
  return true;
}

bool is_zero_date(const std::wstring& text) {
  return text == L"0000-00-00" || text == L"0000-00-00 00:00:00" || text == L"00000000000000" ||
         text.rfind(L"0000-00-00 00:00:00.", 0) == 0;
}

// "CURRENT_TIMESTAMP" as old servers write it, "current_timestamp()" and
// "current_timestamp(3)" as newer ones do.
bool is_current_timestamp(const std::wstring& text) {
  constexpr std::wstring_view word = L"CURRENT_TIMESTAMP";
  return text.size() >= word.size() && tk_equal_no_case(std::wstring_view(text).substr(0, word.size()), word);
}

}  // namespace

sql_table::sql_table(sql_database& database, const std::wstring& name, std::uint32_t mode)
    : sql_recordset(database, name),
      old_version_(engine().is_old_version()),
      quoted_table_(quoted(name)) {
  LOG(2, "sql_table::ctor(%s, %d)", name, mode);
  const std::wstring& charset = engine().charset();
  utf8mb3_ = tk_equal_no_case(charset, L"utf8") || tk_equal_no_case(charset, L"utf8mb3");
  initialize(mode);
  warned_.assign(schema_.size(), false);
}

std::string sql_table::quoted(const std::wstring& name) const {
  return tk_utf8_encode(old_version_ ? name : sql_quote_name(name));
}

bool sql_table::replace_mode() const { return (db().mode() & 0x100U) != 0; }

void sql_table::initialize(std::uint32_t mode) {
  LOG(2, "sql_table::initialize(%d)", mode);
  const sql_blob_to_text_scope text_scope(engine());
  sql_recordset::initialize();
  read_columns();
  if ((mode & ~0x60U) == 0) {
    LOG(2, "Mode=no_indexes, nothing to do");
    return;
  }
  read_indexes();
  if (engine().version() >= fk_version) {
    LOG(2, "Extracting foreign keys");
    read_foreign_keys();
  }
}

void sql_table::read_columns() {
  const std::wstring statement = L"SHOW COLUMNS FROM " + tk_utf8_decode(quoted_table_);
  sql_result_ptr result = db().do_query2(statement);
  if (mysql_errno(db().connection()) != 0) throw sql_exception(db().connection(), tk_utf8_encode(statement));
  sql_stream rows(db().connection(), std::move(result));
  while (rows.next()) {
    const std::wstring field = tk_utf8_decode(rows.field(0));
    const std::wstring type = tk_utf8_decode(rows.field(1));
    LOG(1, "Field '%s' has type: %s", field, type);
    const int index = schema_.index_of(field);
    if (index < 0) continue;
    t_ftd& column = schema_[static_cast<std::size_t>(index)];
    std::uint32_t n = 0;
    std::uint32_t prec = 0;
    std::uint32_t scale = 0;
    if (scan_sized(type, L"varchar", n)) {
      LOG(1, "Refining type/size for varchar(%d)", n);
      column.size = n;
    } else if (scan_float(type, prec, scale)) {
      LOG(1, "Refining type for FLOAT(%d,%d)", prec, scale);
      column.prec = prec;
      column.scale = scale;
    } else if ((type == L"text" || type == L"TEXT") && vt::is_binary_type(column.vartype)) {
      LOG(1, "Change type from BLOB to TEXT");
      column.vartype = vt::vt_bstr;
    }

    const bool has_default = !rows.is_null(4);
    const std::wstring def = tk_utf8_decode(rows.field(4));
    LOG(1, "Got default value: %s", has_default ? def : std::wstring(L"(null)"));
    const bool nullable = rows.field(2) == "YES";
    if (!has_default && nullable) continue;
    LOG(1, "Default value's type: %08X", column.vartype);
    if (column.vartype != vt::vt_date) {
      if (has_default) column.def_value = ole_variant::from_wstring(def, column.vartype);
      continue;
    }
    if (def.empty() || is_zero_date(def)) {
      // The zero date is no default; a column that needs one cannot be
      // written without it, so it stops being NOT NULL for the writer.
      LOG(1, "Skip empty def.values for date column");
      column.b_not_null = false;
      continue;
    }
    if (is_current_timestamp(def)) {
      LOG(1, "Special processing for CURRENT_TIMESTAMP");
      column.dw_reserved = 9;
      continue;
    }
    column.def_value = ole_variant::from_wstring(def, vt::vt_date);
  }
}

void sql_table::read_indexes() {
  const std::wstring statement = L"SHOW INDEX FROM " + tk_utf8_decode(quoted_table_);
  sql_result_ptr result = db().do_query2(statement);
  if (mysql_errno(db().connection()) != 0) throw sql_exception(db().connection(), tk_utf8_encode(statement));
  sql_stream rows(db().connection(), std::move(result));
  indexes_.clear();
  std::wstring current;
  udb_index index;
  bool open = false;
  auto close_index = [&] {
    if (open) indexes_.push_back_direct(index);
    open = false;
  };
  while (rows.next()) {
    const std::wstring key = tk_utf8_decode(rows.field(2));
    const std::wstring column = tk_utf8_decode(rows.field(4));
    if (!open || key != current) {
      close_index();
      const bool primary = key == L"PRIMARY";
      const bool unique = rows.field(1) == "0";
      LOG(1, "Got index '%s' (primary=%d, unique=%d)", key, primary ? 1 : 0, unique ? 1 : 0);
      index = udb_index(key, unique, primary);
      current = key;
      open = true;
    }
    index.fields.push_back(column);
  }
  close_index();
}

void sql_table::read_foreign_keys() {
  const std::wstring statement = L"SHOW CREATE TABLE " + tk_utf8_decode(quoted_table_);
  sql_result_ptr result = db().do_query2(statement);
  if (mysql_errno(db().connection()) != 0) throw sql_exception(db().connection(), tk_utf8_encode(statement));
  sql_stream rows(db().connection(), std::move(result));
  if (!rows.next()) return;
  sql_fk_parser parser(name_, tk_utf8_decode(rows.field(1)));
  parser.do_parse();
  foreign_keys_ = parser.relationships();
}

// --- Updates and deletes ---------------------------------------------------------------------

void sql_table::update(udb_record& record) {
  LOG(1, "sql_table::update");
  const udb_index* key = nullptr;
  for (const udb_index& index : indexes_) {
    if (index.b_primary) {
      key = &index;
      break;
    }
  }
  if (key == nullptr) {
    for (const udb_index& index : indexes_) {
      if (index.b_unique) {
        key = &index;
        break;
      }
    }
  }
  if (key == nullptr) {
    LOG(2, "There's no primary/unique key");
    throw tk_mail_assertion("sql_tab", __LINE__);
  }
  convert_record(record);
  const std::unique_ptr<udb_validator> validator = engine().create_fn_validator(record);
  std::string set;
  std::string where;
  for (const udb_field& field : record) {
    std::wstring name = field.name;
    if (!validator->is_acceptable(name)) {
      name = validator->get_safe_name(name);
      validator->add_existing_name(name);
    }
    validator->add_restricted_name(name);
    LOG(1, "Got mappend fn: %s", name);
    const int position = schema_.index_of(name);
    if (position < 0) {
      LOG(2, "Field '%s' is not found in schema", name);
      continue;
    }
    const t_ftd& column = schema_[static_cast<std::size_t>(position)];
    bool in_key = false;
    for (const std::wstring& part : key->fields) in_key = in_key || udb_equal_names(part, column.name);
    if (in_key) {
      LOG(1, "Field %s is a part of UKey", name);
      if (!where.empty()) where += " AND ";
      where += quoted(column.name) + "=";
      append_mysql_str(where, field);
      continue;
    }
    LOG(1, "Field %s is NOT a part of UKey", name);
    const std::uint16_t type = field.ole_variant::get_type();
    if ((type == vt::vt_blob || type == vt::vt_bytes || type == vt::vt_bstr) &&
        field.get_length() > sql_engine::max_field_size) {
      LOG(2, "Field %s is LOB, skip it", name);
      continue;
    }
    if (!set.empty()) set += ", ";
    set += quoted(column.name) + "=";
    append_fld_str(set, field, column, false);
  }
  if (where.empty() || set.empty()) {
    LOG(2, "Missing primary/unique key");
    throw tk_mail_assertion("sql_tab", __LINE__);
  }
  statement_ = "UPDATE " + tk_utf8_encode(sql_quote_name(name_)) + " SET " + set + " WHERE " + where;
  LOG(1, "UPDATE QUERY: %s", statement_);
  drain();
  ++slow_statements_;
  const sql_statement_outcome outcome = db().query_append(statement_);
  complete(pending_statement{false, statement_kind::update, 1, row_counter_, 0}, outcome);
}

void sql_table::update(udb_record& record, const std::wstring& key) {
  LOG(1, "sql_table::update(key=%s)", key);
  if (key.empty()) {
    LOG(2, "Missing key for update");
    return;
  }
  convert_record(record);
  std::string set;
  for (const udb_field& field : record) {
    const int position = schema_.index_of(field.name);
    if (position < 0) {
      LOG(2, "Field '%s' is not found in schema", field.name);
      continue;
    }
    const t_ftd& column = schema_[static_cast<std::size_t>(position)];
    const std::uint16_t type = field.ole_variant::get_type();
    if ((type == vt::vt_blob || type == vt::vt_bytes || type == vt::vt_bstr) &&
        field.get_length() > sql_engine::max_field_size) {
      LOG(2, "Field %s is LOB, skip it", field.name);
      continue;
    }
    if (!set.empty()) set += ", ";
    set += quoted(column.name) + "=";
    append_fld_str(set, field, column, false);
  }
  if (set.empty()) return;
  statement_ = "UPDATE " + tk_utf8_encode(sql_quote_name(name_)) + " SET " + set + " WHERE " + tk_utf8_encode(key);
  LOG(1, "UPDATE QUERY: %s", statement_);
  drain();
  ++slow_statements_;
  const sql_statement_outcome outcome = db().query_append(statement_);
  complete(pending_statement{false, statement_kind::update, 1, row_counter_, 0}, outcome);
}

// The primary key's columns with the values of key, in key order, as
// "`a`=1 AND `b`='x'"; empty when the table has no primary key or the counts
// differ.
namespace {

std::string key_condition(const udb_indexes& indexes, const udb_key_list& key, bool old_version) {
  for (const udb_index& index : indexes) {
    if (!index.b_primary) continue;
    if (index.fields.size() != key.size()) return {};
    std::string where;
    for (std::size_t i = 0; i < key.size(); ++i) {
      if (i > 0) where += " AND ";
      where += tk_utf8_encode(old_version ? index.fields[i] : sql_quote_name(index.fields[i])) + "=";
      const udb_field value(index.fields[i], 0, key[i]);
      append_mysql_str(where, value);
    }
    return where;
  }
  return {};
}

}  // namespace

void sql_table::update2(const udb_key_list& key, udb_record& record) {
  const std::string where = key_condition(indexes_, key, old_version_);
  update(record, tk_utf8_decode(where));
}

void sql_table::delete_key(const udb_key_list& key) {
  LOG(1, "sql_table::delete_key");
  const std::string where = key_condition(indexes_, key, old_version_);
  if (where.empty()) {
    LOG(2, "There's no primary/unique key");
    return;
  }
  statement_ = "DELETE FROM " + tk_utf8_encode(sql_quote_name(name_)) + " WHERE " + where;
  LOG(1, "Run SQL query: %s", statement_);
  drain();
  ++slow_statements_;
  static_cast<void>(db().query_append(statement_));
}

}  // namespace qb
