#include "mss/engine.h"

#include <algorithm>
#include <array>
#include <utility>

#include "mss/command.h"
#include "mss/database.h"
#include "mss/error_map.h"
#include "mss/table_names.h"
#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"

namespace qb {

namespace {

constexpr wchar_t app_name[] = L"Quillbridge";
constexpr wchar_t max_text_size[] = L"2147483647";
constexpr wchar_t shown_password[] = L"***";

// The start of the version word behind "Microsoft SQL Server", and its code.
// "200" comes after every longer year: it is there to catch 2000.
struct version_row {
  std::wstring_view start;
  int code;
};
constexpr std::array<version_row, 17> version_rows = {{
    {L"2022", 18},
    {L"2021", 17},
    {L"2020", 16},
    {L"2019", 15},
    {L"2018", 14},
    {L"2017", 13},
    {L"2016", 12},
    {L"2015", 11},
    {L"2014", 10},
    {L"2013", 9},
    {L"2012", 8},
    {L"2011", 7},
    {L"2010", 6},
    {L"2008", mss_version_2008},
    {L"2005", mss_version_2005},
    {L"200", mss_version_2000},
    {L"7.", mss_version_7},
}};

// SQLSTATEs of the driver manager for a driver it could not load or start.
bool is_load_failure(const odb_diag_record& r) {
  static constexpr std::array<std::string_view, 4> states = {"IM002", "IM003", "IM004", "IM005"};
  if (std::find(states.begin(), states.end(), r.sqlstate) != states.end()) return true;
  // unixODBC reports a driver name it does not know, or a library it cannot
  // open, as "Can't open lib '...'" under SQLSTATE 01000.
  return r.source == L"unixODBC Driver Manager" && r.message.find(L"Can't open lib") != std::wstring::npos;
}

bool driver_not_loaded(const odb_exception& e) {
  return std::any_of(e.records().begin(), e.records().end(), is_load_failure);
}

// FreeTDS takes a host name; "." and "(local)" are the names Microsoft's
// tools give this machine, and an empty server means it too.
std::wstring freetds_server(std::wstring_view server) {
  std::wstring s = tk_trim(server);
  std::wstring rest;
  const std::size_t split = s.find_first_of(L"\\,");
  if (split != std::wstring::npos) {
    rest = s.substr(split);
    s.resize(split);
  }
  if (s.empty() || s == L"." || tk_equal_no_case(s, L"(local)")) s = L"127.0.0.1";
  return s + rest;
}

bool has_brace(const odb_login& login) {
  for (const std::wstring* v : {&login.server, &login.user, &login.password, &login.database}) {
    if (v->find_first_of(L"{}") != std::wstring::npos) return true;
  }
  return false;
}

void add_login(odb_connection_string& cs, const odb_login& login) {
  if (!login.database.empty()) cs.add(L"DATABASE", login.database);
  if (login.user.empty()) {
    cs.add(L"Trusted_Connection", L"yes");
  } else {
    cs.add(L"UID", login.user);
    cs.add(L"PWD", login.password, true);
  }
  cs.add(L"APP", app_name);
}

const wchar_t* shown(const std::wstring* database) { return database != nullptr ? database->c_str() : L""; }

}  // namespace

int mss_version_code(std::wstring_view text) {
  constexpr std::wstring_view product = L"Microsoft SQL Server";
  if (text.size() > product.size() + 10 && text.starts_with(product)) {
    const std::wstring word = tk_trim(text.substr(product.size(), 10));
    LOGW(2, L"str_ver_num=%s", word);
    for (const version_row& row : version_rows) {
      if (word.starts_with(row.start)) return row.code;
    }
    return mss_version_unknown;
  }
  if (text.starts_with(L"Microsoft SQL Azure")) {
    LOG(2, "Got Microsoft SQL Azure");
    return mss_version_azure;
  }
  return mss_version_unknown;
}

std::wstring mss_bracket_name(const std::wstring& name) {
  if (name.size() >= 2 && name.front() == L'[' && name.back() == L']') return name;
  return L"[" + name + L"]";
}

const std::vector<odb_driver>& odb_default_drivers() {
  static const std::vector<odb_driver> drivers = {
      {L"ODBC Driver 18 for SQL Server", true},
      {L"ODBC Driver 17 for SQL Server", true},
      {L"FreeTDS", false},
  };
  return drivers;
}

odb_connection_string odb_native_connection_string(std::wstring_view driver, const odb_login& login) {
  odb_connection_string cs(odb_brace_rule::doubled);
  cs.add_driver(driver);
  cs.add(L"SERVER", login.server);
  add_login(cs, login);
  // As the OLE DB providers did: no encryption unless the server requires it,
  // and then its certificate is taken as it is.
  cs.add(L"Encrypt", L"no");
  cs.add(L"TrustServerCertificate", L"yes");
  return cs;
}

odb_connection_string odb_freetds_connection_string(std::wstring_view driver, const odb_login& login,
                                                    odb_brace_rule rule) {
  odb_connection_string cs(rule);
  cs.add_driver(driver);
  cs.add(L"SERVER", freetds_server(login.server));
  add_login(cs, login);
  cs.add(L"TDS_Version", L"7.4");
  cs.add(L"ClientCharset", L"UTF-8");
  cs.add(L"TextSize", max_text_size);
  return cs;
}

// --- odb_initializer ---------------------------------------------------------

odb_initializer::odb_initializer(std::vector<odb_driver> drivers) : drivers_(std::move(drivers)) {}

bool odb_initializer::test_native_connection(odb_connection& data_source, const odb_driver& driver,
                                             const odb_login& login) {
  LOGW(2, L"odb_initializer::test_native_connection(%s)", driver.name);
  LOG(2, "Right before pIDBProperties->SetProperties");
  const odb_connection_string cs = odb_native_connection_string(driver.name, login);
  LOG(2, "Right before db_initialize->Initialize");
  try {
    data_source.connect(cs);
  } catch (const odb_exception& e) {
    if (!driver_not_loaded(e)) throw;
    LOG(2, "CoCreateInstance failed");
    return false;
  }
  LOG(2, "SQLNCLI1X initialization SUCCEEDED!");
  LOG(2, "odb_initializer::test_native_connection - END");
  return true;
}

bool odb_initializer::test_generic_connection(odb_connection& data_source,
                                              const odb_connection_string& connection_string) {
  LOGW(2, L"odb_initializer::test_generic_connection(%s)", connection_string.shown());
  try {
    data_source.connect(connection_string);
  } catch (const odb_exception& e) {
    if (!driver_not_loaded(e)) throw;
    LOG(2, "Failed to initialize CLSID_MSDAINITIALIZE: %08X", e.hresult());
    return false;
  }
  return true;
}

odb_connection odb_initializer::test_connection(const odb_environment& env, std::wstring_view server,
                                                std::wstring_view user, std::wstring_view password,
                                                const std::wstring* database) {
  LOGW(2, L"odb_initializer::test_connection(%s,%s,%s,%s)", server, user, shown_password, shown(database));
  odb_login login{std::wstring(server), std::wstring(user), std::wstring(password),
                  database != nullptr ? *database : std::wstring()};
  int native_attempt = 0;
  for (const odb_driver& driver : drivers_) {
    odb_connection data_source(env);
    bool ok = false;
    if (driver.native) {
      ok = test_native_connection(data_source, driver, login);
      if (ok) LOG(2, native_attempt == 0 ? "CLSID_SQLNCLI11 succeeded" : "CLSID_SQLNCLI10 succeeded");
      ++native_attempt;
    } else {
      const odb_brace_rule rule =
          has_brace(login) ? odb_freetds_brace_rule(env, driver.name) : odb_brace_rule::doubled;
      ok = test_generic_connection(data_source, odb_freetds_connection_string(driver.name, login, rule));
    }
    if (!ok) continue;
    native_ = driver.native;
    driver_ = driver.name;
    LOGW(2, L"Connected through the ODBC driver '%s'", driver_);
    data_source.run(std::wstring(L"SET TEXTSIZE ") + max_text_size);
    std::fill(login.password.begin(), login.password.end(), L'\0');
    return data_source;
  }
  std::fill(login.password.begin(), login.password.end(), L'\0');
  throw tk_exception(
      std::string("Failed to load OLE DB support library. You should install it\r\nto proceed with the "
                  "application.\r\n"),
      1);
}

// --- mss_engine ----------------------------------------------------------------

mss_engine::mss_engine(std::vector<odb_driver> drivers) : initializer_(std::move(drivers)) {
  LOG(2, "mss_engine::ctor");
}

mss_engine::~mss_engine() {
  std::fill(password_.begin(), password_.end(), L'\0');
}

void mss_engine::connect(const std::wstring& server, const std::wstring& user, const std::wstring& password,
                         const std::wstring& database, bool fast_load) {
  LOGW(2, L"mss_engine::connect(%s,%s,%s,%s,%d)", server, user, shown_password, database, fast_load ? 1 : 0);
  LOG(3, "Connecting to MS SQL server(3)...");
  LOGW(2, L"Connecting to non-default DB '%s'", database);
  connect_as(3, server, user, password, &database, fast_load);
}

void mss_engine::connect(const std::wstring& server, const std::wstring& user, const std::wstring& password,
                         bool fast_load) {
  LOGW(2, L"mss_engine::connect(%s,%s,%s,%d)", server, user, shown_password, fast_load ? 1 : 0);
  LOG(3, "Connecting to MS SQL server(2)...");
  connect_as(2, server, user, password, nullptr, fast_load);
}

void mss_engine::connect(const std::wstring& server, bool fast_load) {
  LOGW(2, L"mss_engine::connect(%s,%d)", server, fast_load ? 1 : 0);
  LOG(3, "Connecting to MS SQL server(1)...");
  const std::wstring empty;
  connect_as(1, server, empty, empty, &empty, fast_load);
}

void mss_engine::connect_as(int form, const std::wstring& server, const std::wstring& user,
                            const std::wstring& password, const std::wstring* database, bool fast_load) {
  odb_connection data_source = initializer_.test_connection(environment_, server, user, password, database);
  fast_load_ = enable_fast_load(data_source, fast_load);
  server_ = server;
  user_ = user;
  std::fill(password_.begin(), password_.end(), L'\0');
  password_ = password;
  integrated_ = form == 1;
  connected_ = true;
  version_ = get_version(data_source);
  LOG(2, "Got MS SQL version: %d", version_);
  init_db_contents(data_source);
}

bool mss_engine::enable_fast_load(odb_connection& /*data_source*/, bool flag) {
  LOG(2, "mss_engine::enable_fast_load(%d)", flag ? 1 : 0);
  return false;
}

int mss_engine::get_version(odb_connection& data_source) {
  LOG(2, "mss_engine::get_version(priv)");
  odb_command command(data_source);
  const std::wstring text = command.query_text(L"SELECT @@VERSION").value_or(std::wstring());
  LOGW(2, L"MS SQL version string: %s", text);
  return mss_version_code(text);
}

void mss_engine::init_db_contents(odb_connection& data_source) {
  LOG(2, "mss_engine::init_db_contents");
  contents_.clear();
  if (version_ == mss_version_azure) return;
  odb_command command(data_source);
  try {
    command.execute(version_ < mss_version_2005 ? L"SELECT name from master.sys.sysdatabases ORDER BY name"
                                                : L"SELECT name from master.sys.databases ORDER BY name");
  } catch (const odb_exception&) {
    if (version_ > mss_version_2000) throw;
    LOG(2, "Try the second approach for MS SQL <= v2000...");
    command.execute(L"SELECT name from master.dbo.sysdatabases ORDER BY name");
  }
  while (command.statement().fetch()) {
    std::optional<std::wstring> name = command.statement().get_text(1);
    if (!name) continue;
    LOGW(2, L"Got database: %s", *name);
    contents_.push_back(std::move(*name));
  }
}

std::vector<std::wstring> mss_engine::get_contents() const {
  LOG(2, "mss_engine::get_contents");
  if (!connected_) throw tk_mail_assertion("mss_engi", __LINE__);
  if (version_ == mss_version_azure) {
    LOG(2, "Cannot get list of databases on Azure SQL");
    throw tk_exception(std::string("Azure SQL does not allow to list databases.\r\nEnter database name directly."), 1);
  }
  return contents_;
}

odb_connection mss_engine::open_data_source(const std::wstring* database) {
  if (!connected_) throw tk_mail_assertion("mss_engi", __LINE__);
  return initializer_.test_connection(environment_, server_, user_, password_, database);
}

bool mss_engine::is_db_exist(const std::wstring& name) {
  LOG(2, "mss_engine::is_db_exist(%s)", name);
  if (!connected_) throw tk_mail_assertion("mss_engi", __LINE__);
  if (version_ != mss_version_azure) {
    LOG(2, "Step #1: check via get_contents()");
    const bool found = std::any_of(contents_.begin(), contents_.end(),
                                   [&](const std::wstring& db) { return tk_equal_no_case(db, name); });
    if (!found) {
      LOG(2, "Database %s has NOT been found", name);
      return false;
    }
    LOG(2, "Database %s has been found", name);
  }
  LOG(2, "Step #2: check via test_connection(...)");
  try {
    odb_connection probe = open_data_source(&name);
    probe.close();
  } catch (const odb_exception& e) {
    LOG(2, "ERROR: %s", e.what());
    throw mss_no_perm_exception(user_, name);
  }
  LOG(2, "mss_engine::is_db_exist -- end");
  return true;
}

std::unique_ptr<udb_database> mss_engine::open_db(const std::wstring& name, std::uint32_t flags,
                                                  const std::wstring& schema) {
  LOG(2, "mss_engine::open_db(%s)", name);
  LOG(3, "Opening MS SQL database '%s'", name);
  if (!connected_) throw tk_mail_assertion("mss_engi", __LINE__);
  odb_connection session = open_data_source(&name);
  LOG(2, "Connection to the database was establish successfully");
  return std::make_unique<mss_database>(*this, name, schema, std::move(session), flags);
}

std::wstring mss_engine::get_safe_tname(const std::wstring& name) const {
  LOG(2, "mss_engine::get_safe_tname(%s)", name);
  std::wstring table;
  std::wstring owner;
  mss_split_tab_name(name, table, owner);
  std::wstring result;
  if (!owner.empty()) {
    LOG(2, "This is a full canonized table name");
    result = mss_bracket_name(owner) + L"." + mss_bracket_name(table);
  } else {
    std::wstring prefix = L"[dbo].";
    if (!user_.empty() && !as_dbo_ && !tk_equal_no_case(user_, L"sa")) prefix = mss_bracket_name(user_) + L".";
    result = prefix + mss_bracket_name(table);
  }
  LOG(2, "result=%s", result);
  return result;
}

void mss_engine::set_as_dbo(bool flag) {
  LOG(2, "mss_engine::set_as_dbo(%d)", flag ? 1 : 0);
  as_dbo_ = flag;
}

void mss_engine::set_view_owned(bool flag) {
  LOG(2, "mss_engine::set_view_owned(%d)", flag ? 1 : 0);
  mss_set_view_owned(flag);
}

bool mss_engine::is_view_owned() const { return mss_is_view_owned(); }

}  // namespace qb
