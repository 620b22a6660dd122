#include "app/mysql_converter.h"

#include <cstdlib>

#include "sql/dump.h"
#include "sql/name_rules.h"
#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"
#include "udb/database.h"
#include "udb/profile.h"

namespace qb {

namespace {

[[noreturn]] void not_built(const char* what) {
  throw tk_exception(tk_format("The MySQL target cannot %s in this build.", what), 1);
}

const wchar_t* const k_section = udb_profile_mysql_settings;

void load_narrow(const udb_profile& profile, std::wstring_view key, std::string& field) {
  const std::wstring value = profile.get_value(k_section, key);
  if (!value.empty()) field = tk_to_ansi(value);
}

}  // namespace

// --- sql_engine_target --------------------------------------------------------------

std::unique_ptr<udb_database> sql_engine_target::create_db(const std::wstring& /*name*/) {
  not_built("create a database");
}

std::unique_ptr<udb_database> sql_engine_target::open_db(const std::wstring& /*name*/, std::uint32_t /*mode*/) {
  not_built("open a database");
}

std::unique_ptr<udb_database> sql_engine_target::create_dump(const std::wstring& path,
                                                             const mysql_dump_options& options) {
  dump_options dump;
  dump.line_break = options.line_break;
  dump.new_version = options.new_version != 0;
  dump.add_lock = options.add_lock != 0;
  dump.insert_comments = options.insert_comments != 0;
  dump.create_database = options.create_database != 0;
  dump.create_table = options.create_table != 0;
  dump.created_by = tk_ansi_to_wide(options.title);
  dump.database_name = tk_ansi_to_wide(options.database_name);
  return engine_.create_dump(path, dump);
}

void sql_engine_target::db_delete(const std::wstring& name) {
  require_connection();
  engine_.db_delete(name);
}

bool sql_engine_target::is_db_exist(const std::wstring& name) {
  require_connection();
  return engine_.is_db_exist(name);
}

void sql_engine_target::require_connection() const {
  if (!engine_.is_connected()) throw tk_exception("Not connected to the MySQL server.", 1);
}

// --- mysql_converter_impl -----------------------------------------------------------

mysql_converter_impl::mysql_converter_impl() = default;

mysql_converter_impl::~mysql_converter_impl() = default;

void mysql_converter_impl::connect_mysql_server() {
  LOG(1, "mysql_converter_impl::connect_mysql_server");
  const int number = std::atoi(port.c_str());
  if (number == 0) throw tk_exception_ex::user_message("Invalid port number");
  engine.connect(tk_ansi_to_wide(host), tk_ansi_to_wide(user), tk_ansi_to_wide(password), number);
}

void mysql_converter_impl::check_mysql_db_name(const std::wstring& name) {
  LOG(1, "mysql_converter_impl::check_mysql_db_name(%s)", name);
  LOG(1, "sql_engine::create_dn_validator");
  const bool old = engine.is_old_version();
  const sql_name_rules rules(old ? sql_name_family::old_style : sql_name_family::new_style, sql_name_kind::database);
  if (rules.accepts(name)) return;
  throw tk_exception_ex::user_message(old ? mysql_old_db_name_message : mysql_new_db_name_message);
}

bool mysql_converter_impl::is_mysql_base_exist(const std::wstring& name) {
  LOG(1, "mysql_converter_impl::is_mysql_base_exist( %s )", name);
  return target_->is_db_exist(name);
}

void mysql_converter_impl::del_mysql_base(const std::wstring& name) {
  LOG(1, "mysql_converter_impl::del_mysql_base (%s)", name);
  target_->db_delete(name);
}

bool mysql_converter_impl::load_profile(const udb_profile& profile) {
  LOG(1, "mysql_converter_impl::load_profile");
  load_narrow(profile, L"host", host);
  load_narrow(profile, L"user", user);
  load_narrow(profile, L"password", password);
  load_narrow(profile, L"port", port);
  std::uint8_t line_break = dump_options.line_break != 0 ? 1 : 0;
  profile.get_flag_zero_false(k_section, L"dump line break", line_break);
  dump_options.line_break = line_break;
  profile.get_flag_one_true(k_section, L"dump new version", dump_options.new_version);
  profile.get_flag_one_true(k_section, L"dump add lock to insert", dump_options.add_lock);
  profile.get_flag_one_true(k_section, L"dump insert comments", dump_options.insert_comments);
  profile.get_flag_one_true(k_section, L"dump create database", dump_options.create_database);
  profile.get_flag_one_true(k_section, L"dump create table", dump_options.create_table);
  return true;
}

bool mysql_converter_impl::store_profile(udb_profile& profile) const {
  LOG(1, "mysql_converter_impl::store_profile");
  profile.set_value(k_section, L"host", tk_ansi_to_wide(host));
  profile.set_value(k_section, L"user", tk_ansi_to_wide(user));
  profile.set_value(k_section, L"password", tk_ansi_to_wide(password));
  profile.set_value(k_section, L"port", tk_ansi_to_wide(port));
  profile.set_flag(k_section, L"dump line break", dump_options.line_break != 0);
  profile.set_flag(k_section, L"dump new version", dump_options.new_version != 0);
  profile.set_flag(k_section, L"dump add lock to insert", dump_options.add_lock != 0);
  profile.set_flag(k_section, L"dump insert comments", dump_options.insert_comments != 0);
  profile.set_flag(k_section, L"dump create database", dump_options.create_database != 0);
  profile.set_flag(k_section, L"dump create table", dump_options.create_table != 0);
  return true;
}

}  // namespace qb
