#include "sql/ddl.h"

#include <algorithm>

#include "sql/engine.h"
#include "sql/native_type.h"
#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"

namespace qb {

namespace {

using vt = ole_variant;

// Text columns of 1 to this many characters may be cut to LONGTEXT; they
// count four bytes a character in the row estimate.
constexpr std::uint32_t max_cuttable_text = 21844;
constexpr std::uint32_t bytes_per_char = 4;
// Columns at least this long do not count in the estimate.
constexpr std::uint32_t uncounted_size = 5592405;
// Below 3.23.2 every indexed column must be NOT NULL.
constexpr std::uint32_t version_3_23_2 = 0x031702;

sql_engine& engine() { return sql_engine::instance(); }

// The back-quoted name of the new dialect, the bare name of the old one.
std::wstring dialect_quoted(const std::wstring& name, bool old_version) {
  return old_version ? name : sql_quote_name(name);
}

std::wstring comment_literal(const std::wstring& text) {
  std::wstring out;
  out.reserve(text.size() + 2);
  for (wchar_t c : text) {
    // A backslash would escape the character after it, possibly the closing
    // quote; it is doubled like the quote is escaped.
    if (c == L'\'' || c == L'\\') out += L'\\';
    out += c;
  }
  return out;
}

// The character set a table mutator names for the table, or the engine's.
std::wstring table_character_set(udb_properties* table_mutator) {
  if (table_mutator != nullptr) {
    const auto& properties = table_mutator->get_properties();
    if (const auto it = properties.find(L"character set"); it != properties.end() && !it->second.empty()) {
      return it->second;
    }
  }
  return engine().charset();
}

// The stored size of a DECIMAL(prec, scale): four bytes for nine digits, and
// the rest of each side packed.
std::uint32_t decimal_bytes(std::uint32_t prec, std::uint32_t scale) {
  static constexpr std::uint32_t leftover[] = {0, 1, 1, 2, 2, 3, 3, 4, 4};
  const std::uint32_t frac = std::min(scale, prec);
  const std::uint32_t intg = prec - frac;
  return intg / 9 * 4 + leftover[intg % 9] + frac / 9 * 4 + leftover[frac % 9];
}

// The length in a type text such as "VARCHAR(300)" or "CHAR(10) BINARY"; 0
// when there is none.
std::uint32_t type_length(const std::wstring& type) {
  const std::size_t open = type.find(L'(');
  if (open == std::wstring::npos) return 0;
  std::uint32_t n = 0;
  for (std::size_t i = open + 1; i < type.size() && type[i] >= L'0' && type[i] <= L'9'; ++i) {
    n = n * 10 + static_cast<std::uint32_t>(type[i] - L'0');
    if (n > 100000000) break;
  }
  return n;
}

std::wstring upper(const std::wstring& text) {
  std::wstring out = text;
  for (wchar_t& c : out) {
    if (c >= L'a' && c <= L'z') c = static_cast<wchar_t>(c - L'a' + L'A');
  }
  return out;
}

// The target name a field mutator gives its column; empty when it keeps the
// column's own.
std::wstring new_name_of(udb_properties& field) {
  const auto& properties = field.get_properties();
  const auto it = properties.find(L"new_name");
  return it == properties.end() ? std::wstring() : it->second;
}

// The field mutator of a column of the schema being created. The schema has
// been through the table mutator already, so the column bears the target
// name its mutator gave it: the lookup goes by target name, and a name the
// mutator no longer gives (a key left behind by a later rename) does not
// count. A mutator that keeps the column's name with an empty new name is
// found under the source name, which is then the column's name.
udb_properties* field_mutator_of(const std::wstring& column, udb_properties* table_mutator) {
  if (table_mutator == nullptr) return nullptr;
  if (udb_properties* field = table_mutator->find_by_target_name(column); field != nullptr) {
    if (new_name_of(*field) == column) return field;
  }
  if (udb_properties* field = table_mutator->find_by_source_name(column); field != nullptr) {
    if (new_name_of(*field).empty()) return field;
  }
  return nullptr;
}

std::wstring character_set_of(const std::wstring& column, udb_properties* table_mutator) {
  std::wstring value;
  if (udb_properties* field = field_mutator_of(column, table_mutator); field != nullptr) {
    const auto& properties = field->get_properties();
    if (const auto it = properties.find(L"character_set"); it != properties.end()) value = it->second;
  }
  if (value.empty()) value = engine().charset();
  return value;
}

bool takes_character_set(const t_ftd& field) {
  if (field.native_type.empty()) {
    return field.vartype == vt::vt_bstr && field.dw_reserved != 2 && field.dw_reserved != 8;
  }
  return field.native_type.size() >= 4 && (field.native_type.find(L"CHAR") != std::wstring::npos ||
                                           field.native_type.find(L"TEXT") != std::wstring::npos);
}

}  // namespace

udb_properties* sql_table_mutator_for(const udb_names_map& names, const std::wstring& name) {
  udb_properties* db_mutator = engine().db_mutator();
  if (db_mutator == nullptr) return nullptr;
  const std::wstring source = names.get_tn_orig_name(name);
  LOG(2, "Changes of table '%s' are looked up under its source name '%s'", name, source);
  return db_mutator->find_by_source_name(source);
}

// --- Key budgets ----------------------------------------------------------------------------

std::uint32_t sql_charset_max_bytes(const std::wstring& charset) {
  static constexpr std::wstring_view three[] = {L"utf8", L"utf8mb3", L"ujis", L"eucjpms"};
  static constexpr std::wstring_view two[] = {L"ucs2", L"big5", L"cp932", L"euckr", L"gb2312", L"gbk", L"sjis"};
  static constexpr std::wstring_view one[] = {
      L"armscii8", L"ascii", L"binary", L"cp1250", L"cp1251", L"cp1256", L"cp1257", L"cp850",  L"cp852",
      L"cp866",    L"dec8",  L"geostd8", L"greek", L"hebrew", L"hp8",    L"keybcs2", L"koi8r", L"koi8u",
      L"latin1",   L"latin2", L"latin5", L"latin7", L"macce", L"macroman", L"swe7",  L"tis620"};
  const auto in = [&](const auto& list) {
    for (std::wstring_view name : list) {
      if (tk_equal_no_case(charset, name)) return true;
    }
    return false;
  };
  if (in(three)) return 3;
  if (in(two)) return 2;
  if (in(one)) return 1;
  // utf8mb4, utf16, utf32, gb18030, and every name not known: the widest.
  return 4;
}

sql_key_budget sql_key_budget_of(const std::wstring& table_engine) {
  sql_key_budget budget;
  if (tk_equal_no_case(table_engine, L"MyISAM") || tk_equal_no_case(table_engine, L"MRG_MYISAM") ||
      tk_equal_no_case(table_engine, L"MERGE") || tk_equal_no_case(table_engine, L"Aria")) {
    budget.key_bytes = sql_myisam_max_key_bytes;
    budget.column_bytes = sql_myisam_max_key_bytes;
    return budget;
  }
  if (!engine().large_index_prefix()) budget.column_bytes = sql_innodb_max_column_bytes_old;
  return budget;
}

std::uint32_t sql_key_bytes(const t_ftd& column, std::uint32_t char_bytes) {
  if (char_bytes == 0) char_bytes = 4;
  if (!column.native_type.empty()) {
    const std::wstring type = upper(column.native_type);
    const std::uint32_t length = type_length(type);
    if (type.find(L"BINARY") != std::wstring::npos && length > 0) return length;
    if (type.find(L"CHAR") != std::wstring::npos && length > 0) return length * char_bytes;
  }
  switch (column.vartype) {
    case vt::vt_bstr:
      return column.size * char_bytes;
    case vt::vt_date:
      // A date of no stated kind is the text column CHAR(19).
      if (get_sql_native_type2(column, true) == sql_type_name(sql_type_id::char_)) return 19 * char_bytes;
      return 8;
    case vt::vt_bool:
    case vt::vt_i1:
    case vt::vt_ui1:
      return 1;
    case vt::vt_i2:
    case vt::vt_ui2:
      return 2;
    case vt::vt_i4:
    case vt::vt_ui4:
    case vt::vt_int:
    case vt::vt_uint:
    case vt::vt_r4:
      return 4;
    case vt::vt_i8:
    case vt::vt_ui8:
    case vt::vt_r8:
      return 8;
    case vt::vt_cy:
      return decimal_bytes(19, 4);
    case vt::vt_decimal:
      return column.prec == 0 ? 8 : decimal_bytes(column.prec, column.scale);
    default:
      return column.size;
  }
}

// --- sql_schema ----------------------------------------------------------------------------

void sql_schema::set_char_bytes(std::size_t i, std::uint32_t bytes) {
  if (char_bytes_.size() <= i) char_bytes_.resize(i + 1, 0);
  char_bytes_[i] = bytes;
}

void sql_schema::push_back(t_ftd field) {
  LOG(1, "sql_schema::push_back(%s, size=%d)", field.name, field.size);
  const std::size_t position = size();
  if (field.vartype == vt::vt_bstr && field.size >= 1 && field.size <= max_cuttable_text) {
    LOG(1, "Special processing for string values");
    const auto at =
        std::find_if(lobs_.begin(), lobs_.end(), [&](std::size_t lob) { return (*this)[lob].size <= field.size; });
    LOG(1, "Insert new column into 'lobs' at pos=%d", static_cast<int>(at - lobs_.begin()));
    lobs_.insert(at, position);
    total_size_ += bytes_per_char * field.size;
  } else if (field.size < uncounted_size) {
    total_size_ += field.size;
  }
  udb_schema::push_back(std::move(field));
  if (total_size_ <= sql_max_row_size) return;
  LOG(1, "Schema total size %d exceeds %d bytes, transforming schema...", total_size_, sql_max_row_size);
  while (total_size_ > sql_max_row_size && !lobs_.empty()) {
    t_ftd& longest = (*this)[lobs_.front()];
    LOG(3, "Column '%s' converted into LONG TEXT", longest.name);
    const std::uint32_t decrease = bytes_per_char * longest.size;
    LOG(1, "Decreasing total size at %d bytes", decrease);
    total_size_ = total_size_ > decrease ? total_size_ - decrease : 0;
    LOG(1, "New total_size = %d", total_size_);
    longest.size = 0;
    lobs_.erase(lobs_.begin());
  }
}

bool sql_can_have_def_value(const t_ftd* field) {
  if (field == nullptr) throw tk_mail_assertion("sql_init", __LINE__);
  if (field->b_auto_num) {
    LOG(2, "WARNING: auto_increment columns cannot have default value!");
    return false;
  }
  if (field->vartype == vt::vt_blob || field->vartype == vt::vt_blob_object) return false;
  if (field->vartype == vt::vt_bstr && (field->size == 0 || field->size > sql_max_varchar_size)) return false;
  return true;
}

bool sql_can_have_auto_num(const t_ftd* field) {
  if (field == nullptr) throw tk_mail_assertion("sql_init", __LINE__);
  switch (field->vartype) {
    case vt::vt_i2:
    case vt::vt_i4:
    case vt::vt_bool:
    case vt::vt_i1:
    case vt::vt_ui1:
    case vt::vt_ui2:
    case vt::vt_ui4:
    case vt::vt_i8:
    case vt::vt_ui8:
    case vt::vt_int:
    case vt::vt_uint:
      return true;
    default:
      return false;
  }
}

// --- sql_schema_initializer ----------------------------------------------------------------

sql_schema_initializer::sql_schema_initializer(std::wstring table_name, const udb_schema& source,
                                               const udb_indexes& indexes, std::wstring& auto_field, std::uint8_t flag)
    : flag_(flag),
      table_name_(std::move(table_name)),
      auto_field_(auto_field),
      indexes_(indexes),
      validator_(engine().create_fn_validator(source)),
      source_(source) {
  LOG(2, "sql_schema_initializer::ctor(%s)", table_name_);
  for (const t_ftd& column : source_) {
    const bool accepted = validator_->is_acceptable(column.name);
    const std::wstring name = accepted ? column.name : validator_->get_safe_name(column.name);
    t_ftd copy = column;
    copy.name = name;
    LOG(1, "GOT FIELD: name=%s, type=%d, size=%d, flags=%d, description=%s", copy.name, copy.vartype, copy.size,
        copy.dw_reserved, copy.description);
    schema_.push_back(std::move(copy));
    if (!accepted) {
      LOG(2, "Store generated column name '%s'", name);
      validator_->add_existing_name(name);
      validator_->add_mapped_pair(column.name, name);
    }
    // Used: a later column of the same name (in any letter case) is refused.
    validator_->add_restricted_name(name);
  }
}

sql_schema_initializer::~sql_schema_initializer() = default;

bool sql_schema_initializer::is_key_column(const std::wstring& source_name) const {
  if (indexes_.is_idx_field(source_name, true)) return true;
  return engine().version() < version_3_23_2 && indexes_.is_idx_field(source_name, false);
}

void sql_schema_initializer::get_init_chunks(std::vector<std::wstring>& chunks, udb_properties* table_mutator) {
  LOG(2, "sql_schema_initializer::get_init_chunks(n_columns=%d)", schema_.size());
  auto_field_.clear();
  const bool old_version = engine().is_old_version();
  // Columns without a character set of their own take the table's.
  const std::uint32_t table_char_bytes = sql_charset_max_bytes(table_character_set(table_mutator));
  for (std::size_t i = 0; i < schema_.size(); ++i) schema_.set_char_bytes(i, table_char_bytes);
  for (std::size_t i = 0; i < schema_.size(); ++i) {
    LOG(1, "Processing field '%s'", schema_[i].name);
    std::wstring chunk = column_chunk(i, table_mutator, old_version);
    LOG(1, "sql_query=%s", chunk);
    chunks.push_back(std::move(chunk));
  }
  LOG(2, "sql_schema_initializer::get_init_chunks - END");
}

std::wstring sql_schema_initializer::column_chunk(std::size_t i, udb_properties* table_mutator, bool old_version) {
  const t_ftd& field = schema_[i];
  const std::wstring& source_name = source_[i].name;
  std::wstring chunk = old_version ? field.name + L" " : L"`" + field.name + L"` ";
  chunk += field.native_type.empty() ? get_sql_native_type2(field, false) : field.native_type;
  if (!old_version && takes_character_set(field)) {
    const std::wstring charset = character_set_of(source_name, table_mutator);
    chunk += L" CHARACTER SET ";
    chunk += charset;
    schema_.set_char_bytes(i, sql_charset_max_bytes(charset));
  }
  if (field.b_not_null || field.b_auto_num || is_key_column(source_name)) chunk += L" NOT NULL";
  if (sql_can_have_def_value(&field)) {
    const std::wstring def = make_mysql_def_val(field);
    LOG(1, "got def value: %s", def);
    if (!def.empty()) chunk += L" DEFAULT " + def;
  }
  if (field.b_auto_num && sql_can_have_auto_num(&field)) {
    // A table has at most one AUTO_INCREMENT column.
    if (!auto_field_.empty()) throw tk_mail_assertion("sql_init", __LINE__);
    auto_field_ = field.name;
    chunk += L" AUTO_INCREMENT";
  }
  if (!field.description.empty()) {
    LOG(1, "Setting column's comment: '%s'", field.description);
    chunk += L" COMMENT '" + comment_literal(field.description) + L"'";
  }
  return chunk;
}

// --- sql_indexes_initializer ---------------------------------------------------------------

sql_indexes_initializer::sql_indexes_initializer(const sql_schema* schema, const udb_indexes& indexes,
                                                 std::wstring auto_field, const t_names_map* names_map,
                                                 std::uint8_t flag)
    : flag_(flag), auto_field_(std::move(auto_field)), schema_(schema), names_map_(names_map) {
  LOG(2, "sql_indexes_initializer::ctor");
  const std::unique_ptr<udb_validator> validator = engine().create_in_validator(indexes);
  for (const udb_index& source : indexes) {
    LOG(1, "Processing '%s'", source.name);
    const bool refused = !source.name.empty() && !validator->is_acceptable(source.name);
    std::wstring name = source.name;
    if (refused) {
      name = validator->get_safe_name(source.name);
      LOG(1, "new_name=%s", name);
    }
    std::vector<std::wstring> fields;
    fields.reserve(source.fields.size());
    for (const std::wstring& field : source.fields) {
      fields.push_back(names_map_ != nullptr ? names_map_->get_mapped_name(field) : field);
    }
    indexes_.emplace_back(name, source.b_unique, source.b_primary, std::move(fields), source.b_constraint);
    if (refused) {
      LOG(2, "Store generated index name '%s'", name);
      validator->add_existing_name(name);
    }
    validator->add_restricted_name(name);
  }
}

sql_indexes_initializer::~sql_indexes_initializer() = default;

std::wstring sql_indexes_initializer::quoted(const std::wstring& name, bool old_version) const {
  return dialect_quoted(name, old_version);
}

void sql_indexes_initializer::get_init_chunks(std::vector<std::wstring>& chunks) {
  LOG(2, "sql_indexes_initializer::get_init_chunks(n_indexes=%d)", indexes_.size());
  const bool old_version = engine().is_old_version();
  const int limit = old_version ? sql_max_indexes_old : sql_max_indexes;
  const sql_key_budget budget = sql_key_budget_of(table_engine_.empty() ? engine().storage_engine() : table_engine_);
  int counter = 0;
  bool auto_unindexed = true;
  for (const udb_index& index : indexes_) {
    LOG(1, "Process index '%s'", index.name);
    if (index.fields.empty()) {
      LOG(3, "Skip index '%s' as it is built on empty fields list", index.name);
      continue;
    }
    if (index.fields.size() > sql_max_index_columns) {
      LOG(2, "Max number of indexes has been reached");
      continue;
    }
    std::wstring chunk = index_chunk(index, old_version, budget);
    if (!chunk.empty()) {
      LOG(1, "sql_query=%s", chunk);
      chunks.push_back(std::move(chunk));
      carried_.push_back_direct(index);
      // InnoDB counts an AUTO_INCREMENT column as indexed only at the head of
      // an index that the table has.
      if (auto_unindexed && !auto_field_.empty() && tk_equal_no_case(auto_field_, index.fields.front())) {
        LOG(1, "Got index for auto_increment field");
        auto_unindexed = false;
      }
    }
    // A refused index counts as well.
    if (++counter >= limit) break;
  }
  if (auto_field_.empty() || !auto_unindexed) return;

  // MySQL demands an index on an AUTO_INCREMENT column.
  LOG(2, "Creating index for auto-field");
  udb_indexes taken;
  for (const udb_index& index : indexes_) taken.push_back_direct(index);
  const std::unique_ptr<udb_validator> validator = engine().create_in_validator(taken);
  std::wstring name = auto_field_;
  if (!validator->is_acceptable(name) || validator->is_duplicated(name)) name = validator->get_safe_name(name);
  chunks.push_back(L"INDEX " + quoted(name, old_version) + L" (" + quoted(auto_field_, old_version) + L")");
  carried_.push_back_direct(udb_index(name, false, false, {auto_field_}));
}

std::wstring sql_indexes_initializer::index_chunk(const udb_index& index, bool old_version,
                                                  const sql_key_budget& budget) const {
  std::wstring chunk;
  if (index.b_primary) {
    chunk = L"PRIMARY KEY";
  } else {
    chunk = index.b_unique ? L"UNIQUE " : L"INDEX ";
    // An index without a name is named by the server.
    if (!index.name.empty()) chunk += quoted(index.name, old_version);
  }
  chunk += L" (";
  const std::uint32_t size_limit = old_version ? sql_max_index_size_old : sql_max_index_size;
  std::uint32_t total = 0;
  std::uint32_t key_bytes = 0;
  for (std::size_t k = 0; k < index.fields.size(); ++k) {
    const std::wstring& column = index.fields[k];
    if (k > 0) chunk += L", ";
    LOG(1, "Process idx.field %s", column);
    chunk += quoted(column, old_version);
    const int position = schema_->index_of(column);
    if (position < 0) {
      LOG(2, "Index column '%s' is not found", column);
      return {};
    }
    const t_ftd& field = (*schema_)[static_cast<std::size_t>(position)];
    if (vt::is_binary_type(field.vartype) ||
        (field.vartype == vt::vt_bstr && (field.size == 0 || field.size > sql_max_index_text_size))) {
      LOG(3, "Index '%s' built on LOB column(s) is not allowed", index.name);
      return {};
    }
    total += field.size;
    if (total > size_limit) {
      LOG(3, "Index '%s' is too big, skip it", index.name);
      return {};
    }
    if (old_version) continue;  // the character rule above is the old servers' only one
    const std::uint32_t bytes = sql_key_bytes(field, schema_->char_bytes(static_cast<std::size_t>(position)));
    if (bytes > budget.column_bytes) {
      LOG(3, "Index '%s' needs %d bytes of column '%s', more than the %d bytes a key column may take; skip it",
          index.name, bytes, column, budget.column_bytes);
      return {};
    }
    key_bytes += bytes;
    if (key_bytes > budget.key_bytes) {
      LOG(3, "Index '%s' needs more than the %d bytes a key may take; skip it", index.name, budget.key_bytes);
      return {};
    }
  }
  chunk += L")";
  return chunk;
}

}  // namespace qb
