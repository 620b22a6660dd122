#include "app/mssql_converter.h"

#include "mss/table_names.h"
#include "tk/exception.h"
#include "tk/log.h"
#include "udb/converter.h"
#include "udb/profile.h"

namespace qb {

mss_source_engine::~mss_source_engine() = default;

namespace {

const wchar_t* const k_section = udb_profile_mss_settings;

void load_text(const udb_profile& profile, std::wstring_view key, std::wstring& field) {
  std::wstring value = profile.get_value(k_section, key);
  if (!value.empty()) field = std::move(value);
}

void store_text_if_any(udb_profile& profile, const std::wstring& key, const std::wstring& value) {
  if (!value.empty()) profile.set_value(k_section, key, value);
}

}  // namespace

std::unique_ptr<udb_database> mss_engine_source::open_db(const std::wstring& name, std::uint32_t mode,
                                                         const std::wstring& schema) {
  return engine_.open_db(name, mode, schema);
}

bool mss_engine_source::is_db_exist(const std::wstring& name) { return engine_.is_db_exist(name); }

std::vector<std::wstring> mss_engine_source::get_contents() { return engine_.get_contents(); }

mssql_converter_impl::mssql_converter_impl() {
  mss_set_view_owned(is_view_owned != 0);
  engine.set_as_dbo(as_dbo != 0);
}

mssql_converter_impl::~mssql_converter_impl() = default;

void mssql_converter_impl::get_mss_schemas(const std::wstring& database, std::vector<std::wstring>& out) {
  LOG(1, "mssql_converter_impl::get_mss_schemas(%s)", database);
  try {
    if (engine_->is_db_exist(database)) {
      LOG(1, "Database exists, load schemas list");
      std::unique_ptr<udb_database> db = engine_->open_db(database, udb_open_source_tables, std::wstring());
      db->get_schema_info(out);
    } else {
      LOG(1, "Database not exists, load standard schemas");
      out = {L"dbo", L"guest", L"sys"};
    }
  } catch (const std::exception& e) {
    LOG(2, "Failed to load the schemas of '%s':\n%s", database, e.what());
  }
}

void mssql_converter_impl::get_contents(std::vector<std::wstring>& out) {
  LOG(1, "mssql_converter_impl::get_contents");
  out = engine_->get_contents();
}

int mssql_converter_impl::test_query(const std::wstring& database, const std::wstring& text) {
  LOG(1, "mssql_converter_impl::test_query");
  try {
    std::unique_ptr<udb_database> db = engine_->open_db(database, udb_open_source, std::wstring());
    return db->test_query(text) ? 1 : 0;
  } catch (const std::exception& e) {
    LOG(2, "Query test failed:\n%s", e.what());
    return 0;
  }
}

void mssql_converter_impl::set_as_dbo(bool flag) {
  engine.set_as_dbo(flag);  // logs "mss_engine::set_as_dbo(%d)"
  as_dbo = flag ? 1 : 0;
}

void mssql_converter_impl::set_view_owned(bool flag) {
  is_view_owned = flag ? 1 : 0;
  mss_set_view_owned(flag);
}

bool mssql_converter_impl::load_profile(const udb_profile& profile) {
  LOG(1, "mssql_converter_impl::load_profile");
  load_text(profile, L"server", host);
  load_text(profile, L"login", user);
  load_text(profile, L"password", password);
  profile.get_flag_one_true(k_section, L"windows authentication", b_sec_log);
  if (!profile.get_value(k_section, L"connect as DBO").empty()) {
    std::uint8_t flag = as_dbo;
    profile.get_flag_one_true(k_section, L"connect as DBO", flag);
    set_as_dbo(flag != 0);
  }
  std::wstring schema = profile.get_value(k_section, L"schema");
  if (!schema.empty()) {
    mss_schema = std::move(schema);
    LOG(1, "mss_schema=%s", mss_schema);
  }
  profile.get_flag_one_true(k_section, L"dump insert comments", dump_options.insert_comments);
  profile.get_flag_one_true(k_section, L"dump create database", dump_options.create_database);
  profile.get_flag_one_true(k_section, L"dump create table", dump_options.create_table);
  return true;
}

bool mssql_converter_impl::store_profile(udb_profile& profile) const {
  LOG(1, "mssql_converter_impl::store_profile");
  store_text_if_any(profile, L"server", host);
  store_text_if_any(profile, L"login", user);
  store_text_if_any(profile, L"password", password);
  profile.set_flag(k_section, L"windows authentication", b_sec_log != 0);
  profile.set_flag(k_section, L"connect as DBO", as_dbo != 0);
  store_text_if_any(profile, L"schema", mss_schema);
  profile.set_flag(k_section, L"dump insert comments", dump_options.insert_comments != 0);
  profile.set_flag(k_section, L"dump create database", dump_options.create_database != 0);
  profile.set_flag(k_section, L"dump create table", dump_options.create_table != 0);
  return true;
}

}  // namespace qb
