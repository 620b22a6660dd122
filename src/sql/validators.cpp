#include "sql/validators.h"

#include <cstdint>

#include "tk/log.h"

namespace qb {

namespace {

constexpr auto name_limit = static_cast<std::uint32_t>(sql_name_max_len);

}  // namespace

// --- New servers -----------------------------------------------------------------------

sql_new_validator::sql_new_validator(sql_name_kind kind)
    : udb_validator(name_limit),
      rules_(sql_name_family::new_style, kind == sql_name_kind::database ? sql_name_kind::table : kind) {
  LOG(1, "sql_new_validator::ctor");
  add_illegal_chars(rules_.illegal_chars());
}

bool sql_new_validator::is_acceptable(const std::wstring& name) const {
  LOG(1, "sql_new_validator::is_acceptable(%s)", name);
  if (!rules_.check_form(name)) return false;
  return udb_validator::is_acceptable(name);
}

std::wstring sql_new_validator::get_safe_name(const std::wstring& name) const {
  LOG(1, "sql_new_validator::get_safe_name(%s)", name);
  return udb_validator::get_safe_name(rules_.repair(name));
}

sql_new_fn_validator::sql_new_fn_validator(const udb_schema& schema) : sql_new_validator(sql_name_kind::field) {
  LOG(1, "sql_new_fn_validator::ctor( const udb_schema& )");
  LOG(1, "Schema size=%d", schema.size());
  for (std::size_t i = 0; i < schema.size(); ++i) {
    LOG(1, "Process schema[%d]", i);
    add_existing_name(schema[i].name);
  }
  LOG(1, "sql_new_fn_validator::ctor - end");
}

sql_new_fn_validator::sql_new_fn_validator(const udb_record& record) : sql_new_validator(sql_name_kind::field) {
  LOG(1, "sql_new_fn_validator::ctor( const udb_record& )");
  for (const udb_field& field : record) add_existing_name(field.name);
}

sql_new_in_validator::sql_new_in_validator(const udb_indexes& indexes) : sql_new_validator(sql_name_kind::index) {
  LOG(1, "sql_new_in_validator::ctor");
  for (const udb_index& index : indexes) add_existing_name(index.name);
}

sql_new_tn_validator::sql_new_tn_validator(const std::vector<std::wstring>& tables,
                                           const std::vector<std::wstring>& views)
    : sql_new_validator(sql_name_kind::table) {
  LOG(1, "sql_new_tn_validator::ctor");
  for (const std::wstring& name : tables) add_existing_name(name);
  for (const std::wstring& name : views) add_existing_name(name);
}

// --- Old servers -----------------------------------------------------------------------

sql_old_validator::sql_old_validator(sql_name_kind kind)
    : udb_validator(name_limit), rules_(sql_name_family::old_style, kind) {
  LOG(1, "sql_old_validator::ctor");
  add_restricted_names(rules_.restricted_words());
}

bool sql_old_validator::is_acceptable(const std::wstring& name) const {
  LOG(1, "sql_old_validator::is_acceptable(%s)", name);
  if (!udb_validator::is_acceptable(name)) return false;
  return rules_.check_form(name);
}

std::wstring sql_old_validator::get_safe_name(const std::wstring& name) const {
  LOG(1, "sql_old_validator::get_safe_name(%s)", name);
  return udb_validator::get_safe_name(rules_.repair(name));
}

sql_old_dn_validator::sql_old_dn_validator() : sql_old_validator(sql_name_kind::database) {
  LOG(1, "sql_old_dn_validator::ctor");
}

sql_old_fn_validator::sql_old_fn_validator(const udb_schema& schema) : sql_old_validator(sql_name_kind::field) {
  LOG(1, "sql_old_fn_validator::ctor( const udb_schema& )");
  for (const t_ftd& field : schema) add_existing_name(field.name);
}

sql_old_fn_validator::sql_old_fn_validator(const udb_record& record) : sql_old_validator(sql_name_kind::field) {
  LOG(1, "sql_old_fn_validator::ctor( const udb_record& )");
  for (const udb_field& field : record) add_existing_name(field.name);
}

sql_old_in_validator::sql_old_in_validator(const udb_indexes& indexes) : sql_old_validator(sql_name_kind::index) {
  LOG(1, "sql_old_in_validator::ctor");
  for (const udb_index& index : indexes) add_existing_name(index.name);
}

sql_old_tn_validator::sql_old_tn_validator(const std::vector<std::wstring>& tables,
                                           const std::vector<std::wstring>& views)
    : sql_old_validator(sql_name_kind::table) {
  LOG(1, "sql_old_tn_validator::ctor");
  for (const std::wstring& name : tables) add_existing_name(name);
  for (const std::wstring& name : views) add_existing_name(name);
}

}  // namespace qb
