#include "app/tn_validator.h"

#include "sql/engine.h"
#include "tk/log.h"

namespace qb {

app_tn_validator::app_tn_validator(sql_name_family family)
    : udb_validator(static_cast<std::uint32_t>(sql_name_max_len)), rules_(family, sql_name_kind::table) {
  add_illegal_chars(rules_.illegal_chars());
  add_restricted_names(rules_.restricted_words());
}

bool app_tn_validator::is_acceptable(const std::wstring& name) const {
  return udb_validator::is_acceptable(name) && rules_.check_form(name);
}

std::wstring app_tn_validator::get_safe_name(const std::wstring& name) const {
  return udb_validator::get_safe_name(rules_.repair(name));
}

std::unique_ptr<udb_validator> app_create_tn_validator(std::uint32_t version) {
  LOG(1, "sql_engine::create_tn_validator");
  LOG(2, "is_old_version(%08X)", version);
  const sql_name_family family = version < sql_version_4_1_0 ? sql_name_family::old_style : sql_name_family::new_style;
  return std::make_unique<app_tn_validator>(family);
}

}  // namespace qb
