#include "udb/database.h"

#include <algorithm>

#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"
#include "udb/recordset.h"

namespace qb {

udb_sequence::udb_sequence(std::wstring name_, std::int32_t start_, std::int32_t increment_, std::int32_t min_value_,
                           std::int32_t max_value_, std::int32_t cycle_)
    : name(std::move(name_)),
      start(start_),
      increment(increment_),
      min_value(min_value_),
      max_value(max_value_),
      cycle(cycle_) {
  LOG(1, "udb_sequence::ctor(%s,%d,%d,%d,%d,%d)", name, start, increment, min_value, max_value, cycle);
}

udb_database::udb_database(std::wstring name, std::uint32_t mode) : mode_(mode), name_(std::move(name)) {}

udb_database::~udb_database() = default;

void udb_database::create_schema(const std::wstring& /*schema_name*/) {}

void udb_database::create_table_partition() {
  LOG(2, "udb_database::create_table(partition)");
  throw tk_mail_assertion("udb_db", __LINE__);
}

void udb_database::create_index(const std::wstring& /*table*/, const udb_schema& /*schema*/,
                                const udb_index& /*index*/) {}

void udb_database::create_indexes(const std::wstring& table, const udb_schema& schema, const udb_indexes& indexes) {
  LOG(2, "udb_database::create_indexes(%s)", table);
  LOG(2, "idxs.size=%d", static_cast<int>(indexes.size()));
  for (const udb_index& index : indexes) create_index(table, schema, index);
  LOG(2, "udb_database::create_indexes - at the END");
}

void udb_database::create_sequences(const std::vector<udb_sequence>& /*sequences*/) {}

void udb_database::create_views(const udb_view_list& /*views*/) {}

udb_view_counts udb_database::view_counts() const { return {}; }

void udb_database::delete_fk(const std::wstring& /*name*/) {}

void udb_database::delete_idx(const std::wstring& /*table*/, const std::wstring& /*index*/) {}

bool udb_database::same_table_name(const std::wstring& a, const std::wstring& b) const {
  return case_sensitive_ ? a == b : tk_equal_no_case(a, b);
}

bool udb_database::delete_tab(const std::wstring& name) {
  LOG(2, "udb_database::delete_tab(%s)", name);
  if (tables_.empty()) LOG(2, "Tables list is EMPTY!");
  const auto it = std::find_if(tables_.begin(), tables_.end(),
                               [&](const std::wstring& table) { return same_table_name(table, name); });
  if (it == tables_.end()) {
    LOG(2, "Table not found!");
    return false;
  }
  tables_.erase(it);
  return true;
}

void udb_database::empty_table(const std::wstring& name) {
  LOG(2, "udb_database::empty_table(%s)", name);
  (void)query(L"delete from " + name);
}

void udb_database::get_schema_info(std::vector<std::wstring>& names) { names.clear(); }

std::unique_ptr<udb_recordset> udb_database::query(const std::wstring& statement) {
  LOG(2, "udb_database::query(%s)", statement);
  throw tk_mail_assertion("udb_db", __LINE__);
}

void udb_database::create_relationships(const udb_relationships& /*relationships*/) {}

std::vector<std::wstring>& udb_database::get_table_names() { return tables_; }

void udb_database::finish() {}

bool udb_database::is_table_exist(const std::wstring& name) {
  LOG(2, "udb_database::is_table_exist(%s)", name);
  if (tables_.empty()) LOG(2, "Tables list is EMPTY!");
  for (const std::wstring& table : tables_) {
    LOG(1, "Compare with %s", table);
    if (same_table_name(table, name)) {
      LOG(2, "table exists");
      return true;
    }
  }
  LOG(2, "table not found");
  return false;
}

void udb_database::add_tn_mapping(const std::wstring& source, const std::wstring& generated) {
  LOG(2, "udb_database::add_tn_mapping(%s->%s)", source, generated);
  names_map_.add_tn_mapping(source, generated);
}

}  // namespace qb
