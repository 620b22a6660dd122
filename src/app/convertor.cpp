#include "app/convertor.h"

#include <algorithm>

#include <unistd.h>

#include "app/tn_validator.h"
#include "mss/table_names.h"
#include "tk/exception.h"
#include "tk/files.h"
#include "tk/log.h"
#include "tk/strings.h"
#include "udb/profile.h"
#include "udb/recordset.h"

namespace qb {

namespace {

// The version above which a MySQL server takes views: 5.0.0.
constexpr std::uint32_t k_views_version = 0x50000;

// The composed form of a table name: "owner.name", or "name".
std::wstring composed_name(const std::wstring& name) {
  std::wstring table;
  std::wstring owner;
  mss_split_tab_name(name, table, owner);
  return owner.empty() ? table : owner + L"." + table;
}

// The bracketed form: "[owner].[name]", or "[name]".
std::wstring bracketed_name(const std::wstring& name) {
  std::wstring table;
  std::wstring owner;
  mss_split_tab_name(name, table, owner);
  return owner.empty() ? L"[" + table + L"]" : L"[" + owner + L"].[" + table + L"]";
}

}  // namespace

void common_check_dest(const std::wstring& path) {
  LOG(1, "common_check_dest(%s)", path);
  const std::string name = tk_to_ansi(path);
  if (name.empty() || tk_is_path_exist(name)) {
    throw tk_exception_ex::user_message("Destination name should specify a file, not folder.");
  }
  if (tk_is_file_exist1(name, tk_exist_no_dir) && !tk_is_file_exist1(name, tk_exist_writable)) {
    throw tk_exception_ex::user_message("Destination name specifies an existing read-only file.");
  }
  const tk_file_name parts(name);
  const std::string folder = parts.drive + parts.dir;
  if (!tk_is_path_exist(folder)) {
    throw tk_exception_ex::user_message("Destination path does not exist.\nPlease verify the correct path was given.");
  }
  if (!tk_can_create_file_in(folder)) {
    throw tk_exception_ex::user_message(
        "Cannot create or write into the destination file.\nRun the program as Administrator or change folder.");
  }
}

std::uint32_t app_dest_open_mode(std::uint32_t mode) {
  if (mode == udb_mode_overwrite_database) return udb_open_dest_overwrite;
  if (mode == udb_mode_synchronize) return udb_open_dest_synchronize;
  return udb_open_dest_update;
}

// --- construction -------------------------------------------------------------------

quillbridge_convertor::quillbridge_convertor() {
  LOG(1, "quillbridge_convertor::ctor");
  // Before the per-user settings: the engine takes its table engine from the
  // tree's properties here, and the settings then put the user's in place.
  mysql_engine().set_properties(this);
  serialize(false);
}

quillbridge_convertor::~quillbridge_convertor() {
  LOG(1, "quillbridge_convertor::dtor");
  mysql_engine().set_properties(nullptr);
  try {
    serialize(true);
  } catch (const std::exception& e) {
    LOG(3, "The per-user settings could not be saved:\n%s", e.what());
  }
}

int quillbridge_convertor::operator()() {
  run_conversion(*this, *this);
  return 0;
}

int quillbridge_convertor::test_query(const std::wstring& text) { return mssql_converter_impl::test_query(src, text); }

// --- front ends ---------------------------------------------------------------------

void quillbridge_convertor::check_dest() {
  LOG(1, "quillbridge_convertor::check_dest");
  if (direct != 0) {
    if (is_mysql_base_exist(dest) && mode == udb_mode_overwrite_database) del_mysql_base(dest);
    return;
  }
  common_check_dest(dest);
  const std::string name = tk_to_ansi(dest);
  if (tk_is_file_exist1(name, tk_exist_no_dir) && ::unlink(name.c_str()) != 0) {
    throw tk_exception_ex(tk_format("Cannot delete the destination file %s: ", name));
  }
}

bool quillbridge_convertor::can_create_views() {
  LOG(1, "quillbridge_convertor::can_create_views");
  if (direct == 0) return true;
  return mysql_engine().version() > k_views_version;
}

std::unique_ptr<udb_database> quillbridge_convertor::get_dest_base() {
  LOG(1, "quillbridge_convertor::get_dest_base");
  if (direct != 0) {
    LOG(1, "mode=%08X", mode);
    if (target().is_db_exist(dest)) return target().open_db(dest, app_dest_open_mode(mode));
    return target().create_db(dest);
  }
  mysql_converter_impl::dump_options.title = tk_to_ansi(tk_wformat(L"Quillbridge %d.%d %s", 8, 1, L""));
  return target().create_dump(dest, mysql_converter_impl::dump_options);
}

udb_schema quillbridge_convertor::get_schema(const std::wstring& table) {
  LOG(1, "quillbridge_convertor::get_schema(%s)", table);
  std::unique_ptr<udb_database> db = source_engine().open_db(src, udb_open_source, std::wstring());
  if (!db->is_table_exist(table)) throw tk_mail_assertion("qbr_conv", 86);
  std::unique_ptr<udb_recordset> recordset = db->get_table(table, udb_table_read);
  return recordset->schema();
}

void quillbridge_convertor::get_all_tables(std::vector<std::wstring>& out) {
  LOG(1, "quillbridge_convertor::get_all_tables");
  std::unique_ptr<udb_database> db = source_engine().open_db(src, udb_open_source_tables, mss_schema);
  out = db->get_table_names();
}

void quillbridge_convertor::get_all_views(udb_view_list& out) {
  LOG(1, "quillbridge_converter::get_all_views");
  std::unique_ptr<udb_database> db = source_engine().open_db(src, udb_open_source_views, mss_schema);
  out = db->views();
}

// --- services of the driver ---------------------------------------------------------

std::unique_ptr<udb_database> quillbridge_convertor::open_source(const std::wstring& name, std::uint32_t open_mode,
                                                                 const std::wstring& schema) {
  return source_engine().open_db(name, open_mode, schema);
}

std::uint32_t quillbridge_convertor::dest_version() { return mysql_engine().version(); }

std::unique_ptr<udb_validator> quillbridge_convertor::create_tn_validator(std::uint32_t version) {
  return app_create_tn_validator(version);
}

void quillbridge_convertor::set_max_allowed_packet(std::uint32_t bytes) {
  // Without a connection there is no server to ask (and the client library
  // must not be handed an unconnected handle).
  if (!mysql_engine().is_connected()) {
    LOG(2, "Not connected: max_allowed_packet stays as it is");
    return;
  }
  mysql_engine().set_max_allowed_packet(bytes);
}

std::uint8_t quillbridge_convertor::fast_mode() const { return mysql_engine().fast_mode() ? 1 : 0; }

void quillbridge_convertor::set_fast_mode(std::uint8_t value) { mysql_engine().set_fast_mode(value != 0); }

sql_table_mutator* quillbridge_convertor::find_table_mutator(const std::wstring& source_name) {
  return get_table_mutator3(source_name);
}

// --- profile ------------------------------------------------------------------------

bool quillbridge_convertor::load_profile(const udb_profile& profile) {
  LOG(1, "quillbridge_convertor::load_profile");
  udb_converter::load_profile(profile);
  mysql_converter_impl::load_profile(profile);
  mssql_converter_impl::load_profile(profile);
  sql_db_mutator::load(profile);
  std::uint8_t view_owned = is_view_owned;
  profile.get_flag_one_true(udb_profile_generic_settings, L"view owned", view_owned);
  set_view_owned(view_owned != 0);
  profile.get_flag_one_true(udb_profile_mysql_settings, L"direct mode", direct);
  std::wstring charset = profile.get_value(udb_profile_generic_settings, L"character set");
  if (!charset.empty()) mysql_engine().set_charset(std::move(charset));
  std::wstring storage = profile.get_value(udb_profile_generic_settings, L"storage engine");
  if (!storage.empty()) mysql_engine().set_storage_engine(std::move(storage));
  load_table_names();
  return true;
}

bool quillbridge_convertor::store_profile(udb_profile& profile, const std::string& path) {
  LOG(1, "quillbridge_convertor::store_profile");
  udb_converter::store_profile(profile);
  mysql_converter_impl::store_profile(profile);
  mssql_converter_impl::store_profile(profile);
  profile.set_flag(udb_profile_generic_settings, L"view owned", is_view_owned != 0);
  profile.set_flag(udb_profile_mysql_settings, L"direct mode", direct != 0);
  profile.set_value(udb_profile_generic_settings, L"character set", mysql_engine().charset());
  profile.set_value(udb_profile_generic_settings, L"storage engine", mysql_engine().storage_engine());
  store_selected_tables(profile);
  sql_db_mutator::serialize(profile);
  return profile.store(path);
}

void quillbridge_convertor::load_table_names() {
  for (auto& [name, text] : queries) {
    if (!text.empty()) continue;
    std::wstring bracketed = bracketed_name(name);
    LOG(1, "%s->%s", name, bracketed);
    name = std::move(bracketed);
  }
}

// "Selected Tables": every entry of the work list, a table in its composed
// form, and any selected table that the list does not hold yet (a profile
// saved before a run, which appends them).
void quillbridge_convertor::store_selected_tables(udb_profile& profile) const {
  const std::wstring section = udb_profile_selected_tables;
  for (const auto& [name, text] : queries) {
    if (text.empty()) {
      profile.set_value(section, composed_name(name), std::wstring());
    } else {
      profile.set_value(section, name, udb_profile::to_single_line(text));
    }
  }
  for (const std::wstring& table : selected_tables) {
    const bool listed = std::any_of(queries.begin(), queries.end(), [&](const udb_named_text& entry) {
      return entry.second.empty() && entry.first == table;
    });
    if (!listed) profile.set_value(section, composed_name(table), std::wstring());
  }
}

// --- per-user settings --------------------------------------------------------------

void quillbridge_convertor::serialize(bool store) {
  LOG(1, "serialize( %d )", store ? 1 : 0);
  tk_reg_key& key = reg_key();
  mysql_dump_options& dump = mysql_converter_impl::dump_options;
  std::wstring charset = mysql_engine().charset();
  std::wstring storage = mysql_engine().storage_engine();
  std::uint8_t view_owned = is_view_owned;
  if (!store) {
    dump = mysql_dump_options{};
    as_dbo = 1;
    charset = L"utf8";
    convert_views = 1;
    dest.clear();
    direct = 1;
    mysql_converter_impl::host.clear();
    log_file.clear();
    port = "3306";
    mysql_converter_impl::password.clear();
    mss_schema.clear();
    mssql_converter_impl::host.clear();
    mssql_converter_impl::password.clear();
    mssql_converter_impl::user.clear();
    b_sec_log = 1;
    skip_indexes = 0;
    src.clear();
    only_definitions = 0;
    storage = L"InnoDB";
    mysql_converter_impl::user.clear();
    view_owned = 1;
  }
  tk_reg_exchange(key, "dmp_line_br", dump.line_break, store);
  tk_reg_exchange(key, "dmp_new_ver", dump.new_version, store);
  tk_reg_exchange(key, "dmp_loc_wri", dump.add_lock, store);
  tk_reg_exchange(key, "dmp_ins_com", dump.insert_comments, store);
  tk_reg_exchange(key, "dmp_ins_db", dump.create_database, store);
  tk_reg_exchange(key, "dmp_ins_tab", dump.create_table, store);
  tk_reg_exchange(key, "as_dbo", as_dbo, store);
  tk_reg_exchange(key, "char_set", charset, store);
  tk_reg_exchange(key, "convert_views", convert_views, store);
  tk_reg_exchange(key, "dest", dest, store);
  tk_reg_exchange(key, "direct", direct, store);
  tk_reg_exchange(key, "host", mysql_converter_impl::host, store);
  tk_reg_exchange(key, "log_file", log_file, store);
  tk_reg_exchange(key, "port", port, store);
  tk_reg_exchange(key, "pswd", mysql_converter_impl::password, store);
  tk_reg_exchange(key, "mss_schema", mss_schema, store);
  tk_reg_exchange(key, "mssqlh", mssql_converter_impl::host, store);
  tk_reg_exchange(key, "mssqlp", mssql_converter_impl::password, store);
  tk_reg_exchange(key, "mssqlu", mssql_converter_impl::user, store);
  tk_reg_exchange(key, "sec_log", b_sec_log, store);
  tk_reg_exchange(key, "skip_idx", skip_indexes, store);
  tk_reg_exchange(key, "src", src, store);
  tk_reg_exchange(key, "tab_def", only_definitions, store);
  tk_reg_exchange(key, "tab_type", storage, store);
  tk_reg_exchange(key, "user", mysql_converter_impl::user, store);
  tk_reg_exchange(key, "view_owned", view_owned, store);
  if (store) {
    if (const int error = key.flush(); error != 0)
      LOG(3, "The per-user settings could not be written (error %d)", error);
    return;
  }
  mysql_engine().set_charset(std::move(charset));
  mysql_engine().set_storage_engine(std::move(storage));
  set_view_owned(view_owned != 0);
}

}  // namespace qb
