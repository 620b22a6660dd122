#include "support/memory_database.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "tk/error_handler.h"
#include "tk/exception.h"
#include "tk/format.h"
#include "tk/log.h"
#include "tk/strings.h"

namespace qb::test {

namespace {

constexpr const char* k_not_conform = "The structure of data source does not conform to the destination table.";

// The target's rule for column names: a length limit and refused characters.
class column_rule : public udb_validator {
 public:
  column_rule(std::uint32_t max_len, const std::wstring& illegal) : udb_validator(max_len) {
    add_illegal_chars(illegal);
  }
};

udb_record make_record(const udb_schema& schema, const std::vector<ole_variant>& values) {
  if (values.size() != schema.size()) throw std::invalid_argument("value count differs from column count");
  udb_record row;
  row.reserve(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    const t_ftd& column = schema[i];
    row.emplace_back(column.name, column.size, values[i], column.b_auto_num, column.b_not_null);
  }
  return row;
}

bool starts_with_no_case(const std::wstring& text, std::wstring_view prefix) {
  return text.size() >= prefix.size() && tk_equal_no_case(std::wstring_view(text).substr(0, prefix.size()), prefix);
}

}  // namespace

t_ftd memory_column(const std::wstring& name, std::uint16_t vartype, std::uint32_t size, bool b_not_null) {
  t_ftd column;
  column.name = name;
  column.vartype = vartype;
  column.size = size;
  column.b_not_null = b_not_null;
  return column;
}

// --- memory_table -------------------------------------------------------------------

std::vector<std::wstring> memory_table::key_of(const udb_record& row) const {
  std::vector<std::wstring> key;
  for (const udb_index& index : indexes) {
    if (!index.b_primary) continue;
    for (const std::wstring& column : index.fields) {
      const udb_field* field = row.get_field(column);
      key.push_back(field == nullptr ? std::wstring() : field->to_wstring());
    }
    break;
  }
  return key;
}

// --- memory_store -------------------------------------------------------------------

memory_table& memory_store::add_table(const std::wstring& name, udb_schema schema, udb_indexes indexes) {
  remove_table(name);
  auto table = std::make_shared<memory_table>();
  table->name = name;
  table->schema = std::move(schema);
  table->indexes = std::move(indexes);
  tables_.push_back(table);
  return *table;
}

void memory_store::add_row(const std::wstring& table, const std::vector<ole_variant>& values) {
  memory_table* target = find_table(table);
  if (target == nullptr) throw std::invalid_argument("no such table");
  target->rows.push_back(make_record(target->schema, values));
}

memory_table& memory_store::add_query(const std::wstring& select, udb_schema schema) {
  auto result = std::make_shared<memory_table>();
  result->schema = std::move(schema);
  queries_[select] = result;
  return *result;
}

void memory_store::add_query_row(const std::wstring& select, const std::vector<ole_variant>& values) {
  const auto it = queries_.find(select);
  if (it == queries_.end()) throw std::invalid_argument("no such query");
  it->second->rows.push_back(make_record(it->second->schema, values));
}

memory_table* memory_store::find_table(const std::wstring& name) const { return share_table(name).get(); }

std::shared_ptr<memory_table> memory_store::share_table(const std::wstring& name) const {
  for (const auto& table : tables_) {
    if (tk_equal_no_case(table->name, name)) return table;
  }
  return nullptr;
}

std::shared_ptr<memory_table> memory_store::share_query(const std::wstring& select) const {
  const auto it = queries_.find(select);
  return it == queries_.end() ? nullptr : it->second;
}

std::vector<std::wstring> memory_store::table_names() const {
  std::vector<std::wstring> names;
  names.reserve(tables_.size());
  for (const auto& table : tables_) names.push_back(table->name);
  return names;
}

bool memory_store::has_duplicate_key(const memory_table& table, const udb_record& row) const {
  const std::vector<std::wstring> key = table.key_of(row);
  if (key.empty()) return false;
  return std::any_of(table.rows.begin(), table.rows.end(),
                     [&](const udb_record& stored) { return table.key_of(stored) == key; });
}

void memory_store::remove_table(const std::wstring& name) {
  std::erase_if(tables_, [&](const auto& table) { return tk_equal_no_case(table->name, name); });
}

// --- memory_database ----------------------------------------------------------------

memory_database::memory_database(memory_store& store, std::wstring name, std::uint32_t mode)
    : udb_database(std::move(name), mode), store_(store) {
  LOG(2, "memory_database::ctor(%s)", name_);
  tables_ = store_.table_names();
  if ((mode & 0x80U) == 0) views_ = store_.views;
  relationships_ = store_.relationships;
  has_relationships_ = !relationships_.empty();
  sequences_ = store_.sequences;
}

memory_database::~memory_database() { store_.names_map = names_map_; }

std::unique_ptr<udb_recordset> memory_database::create_table(const std::wstring& name, const udb_schema& schema,
                                                             udb_indexes& indexes) {
  LOG(2, "memory_database::create_table(%s)", name);
  if (is_table_exist(name)) return get_table(name, 8);

  column_rule rule(store_.max_column_len, store_.illegal_column_chars);
  t_names_map renames;
  udb_schema target(true);
  for (const t_ftd& column : schema) {
    t_ftd copy = column;
    if (!rule.is_acceptable(column.name) || rule.is_duplicated(column.name)) {
      copy.name = rule.get_safe_name(column.name);
      renames.insert(column.name, copy.name);
    }
    rule.add_existing_name(copy.name);
    target.push_back(std::move(copy));
  }
  udb_indexes target_indexes;
  for (const udb_index& index : indexes) {
    udb_index copy = index;
    for (std::wstring& field : copy.fields) field = renames.get_mapped_name(field);
    target_indexes.push_back_direct(copy);
  }

  store_.add_table(name, std::move(target), std::move(target_indexes));
  tables_.push_back(name);
  names_map_.add_fn_map(name, renames);
  return get_table(name, 2);
}

void memory_database::create_index(const std::wstring& table, const udb_schema& /*schema*/, const udb_index& index) {
  if (memory_table* target = store_.find_table(table)) target->indexes.push_back_direct(index);
}

void memory_database::create_views(const udb_view_list& views) {
  for (const auto& [view, definition] : views) {
    const bool refused = std::any_of(store_.refused_views.begin(), store_.refused_views.end(),
                                     [&](const std::wstring& name) { return name == view; });
    if (refused) {
      ++view_counts_.failed;
      error_handler::instance().set_context(L"View '" + view + L"'");
      error_handler::instance().handle(tk_exception(tk_format("View %s cannot be created", view), 0), false);
      continue;
    }
    store_.created_views.emplace_back(names_map_.get_tn_mapped_name(view, false),
                                      names_map_.do_global_replace1(definition, L"`", L"`"));
    ++view_counts_.created;
  }
}

udb_view_counts memory_database::view_counts() const { return view_counts_; }

bool memory_database::delete_tab(const std::wstring& name) {
  store_.remove_table(name);
  return udb_database::delete_tab(name);
}

std::unique_ptr<udb_recordset> memory_database::get_query(const std::wstring& name, const std::wstring& select,
                                                          std::uint32_t /*flags*/) {
  LOG(2, "memory_database::get_query(%s: %s)", name, select);
  std::shared_ptr<memory_table> result = store_.share_query(select);
  if (result == nullptr) throw tk_exception(tk_format("Query failed: %s", select), 1);
  return std::make_unique<memory_recordset>(this, std::move(result), name, select);
}

std::unique_ptr<udb_recordset> memory_database::get_table(const std::wstring& name, std::uint32_t /*flags*/) {
  LOG(2, "memory_database::get_table(%s)", name);
  std::shared_ptr<memory_table> table = store_.share_table(name);
  if (table == nullptr) throw tk_exception(tk_format("Table '%s' does not exist", name), 1);
  std::wstring table_name = table->name;
  return std::make_unique<memory_recordset>(this, std::move(table), std::move(table_name));
}

std::unique_ptr<udb_recordset> memory_database::query(const std::wstring& statement) {
  LOG(2, "memory_database::query(%s)", statement);
  store_.statements.push_back(statement);
  constexpr std::wstring_view delete_from = L"delete from ";
  if (starts_with_no_case(statement, delete_from)) {
    if (memory_table* table = store_.find_table(statement.substr(delete_from.size()))) table->rows.clear();
  }
  return nullptr;
}

bool memory_database::test_query(const std::wstring& statement) { return store_.share_query(statement) != nullptr; }

void memory_database::create_relationships(const udb_relationships& relationships) {
  for (const udb_rel& rel : relationships) {
    udb_rel resolved = rel;
    resolved.fk_table = names_map_.get_tn_mapped_name(rel.fk_table, false);
    resolved.pk_table = names_map_.get_tn_mapped_name(rel.pk_table, false);
    if (!is_table_exist(resolved.fk_table) || !is_table_exist(resolved.pk_table)) continue;
    for (std::wstring& field : resolved.fk_fields)
      field = names_map_.get_fn_mapped_name(resolved.fk_table, field, false);
    for (std::wstring& field : resolved.pk_fields)
      field = names_map_.get_fn_mapped_name(resolved.pk_table, field, false);
    store_.created_relationships.push_back(std::move(resolved));
  }
}

// --- memory_recordset ---------------------------------------------------------------

memory_recordset::memory_recordset(memory_database* database, std::shared_ptr<memory_table> table, std::wstring name,
                                   std::wstring query)
    : udb_recordset(database, std::move(name), std::move(query), true),
      store_(database == nullptr ? nullptr : &database->store()),
      table_(std::move(table)) {
  schema_ = table_->schema;
  indexes_ = table_->indexes;
  rec_count_ = table_->rows.size();
}

udb_record memory_recordset::make_row(const udb_record& record) const {
  const udb_names_map* names = database_ == nullptr ? nullptr : &database_->names_map();
  udb_record row;
  row.reserve(schema_.size());
  for (const t_ftd& column : schema_) {
    const std::wstring source = names == nullptr ? column.name : names->get_fn_orig_name(name_, column.name);
    const udb_field* field = record.get_field(source);
    if (field == nullptr) {
      LOG(2, "Field %s not found", source);
      throw tk_exception(k_not_conform, 1);
    }
    row.emplace_back(column.name, field->size, *field, column.b_auto_num, column.b_not_null);
  }
  return row;
}

void memory_recordset::append_record(udb_record& record) {
  convert_record(record);
  udb_record row = make_row(record);
  if (store_ != nullptr && store_->on_append) store_->on_append(*table_, row);
  table_->rows.push_back(std::move(row));
  rec_count_ = table_->rows.size();
  ++rows_written_;
}

udb_write_counts memory_recordset::write_counts() const { return {true, rows_written_, 0}; }

void memory_recordset::update1(udb_record& record) {
  udb_recordset::update1(record);
  convert_record(record);
  udb_record row = make_row(record);
  const std::vector<std::wstring> key = table_->key_of(row);
  for (udb_record& stored : table_->rows) {
    if (table_->key_of(stored) == key) {
      stored = std::move(row);
      ++rows_written_;
      return;
    }
  }
}

udb_record* memory_recordset::get_item() {
  if (is_eof()) return nullptr;
  current_ = table_->rows[static_cast<std::size_t>(position_)];
  return &current_;
}

bool memory_recordset::is_eof() { return position_ < 0 || static_cast<std::size_t>(position_) >= table_->rows.size(); }

void memory_recordset::move_to(std::int32_t position) {
  udb_recordset::move_to(position);
  position_ = position;
}

void memory_recordset::next() { ++position_; }

void memory_recordset::prev() {
  if (position_ >= 0) --position_;
}

void memory_recordset::reset() {
  position_ = 0;
  rec_count_ = table_->rows.size();
}

// --- memory_engine ------------------------------------------------------------------

memory_store& memory_engine::store(const std::wstring& name) {
  auto& slot = stores_[name];
  if (slot == nullptr) slot = std::make_unique<memory_store>();
  return *slot;
}

std::unique_ptr<udb_database> memory_engine::create_db(const std::wstring& name) {
  stores_[name] = std::make_unique<memory_store>();
  return std::make_unique<memory_database>(*stores_[name], name, 0);
}

std::unique_ptr<udb_database> memory_engine::open_db(const std::wstring& name, std::uint32_t mode) {
  const auto it = stores_.find(name);
  if (it == stores_.end()) throw tk_exception(tk_format("Database '%s' does not exist", name), 1);
  return std::make_unique<memory_database>(*it->second, name, mode);
}

void memory_engine::db_delete(const std::wstring& name) { stores_.erase(name); }

bool memory_engine::is_db_exist(const std::wstring& name) { return stores_.contains(name); }

}  // namespace qb::test
