#include "sql/engine.h"

#include <errmsg.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <climits>
#include <new>

#include <string.h>

#include "sql/database.h"
#include "sql/dump.h"
#include "sql/exception.h"
#include "sql/validators.h"
#include "tk/exception.h"
#include "tk/log.h"
#include "tk/utf.h"
#include "udb/database.h"
#include "udb/properties.h"

namespace qb {

namespace {

constexpr std::uint32_t max_name_len = 64;

// Reads one number the way "%d" of scanf does: blanks, an optional sign,
// digits. A number too big for an int is held at INT_MAX.
bool scan_int(std::string_view text, std::size_t& pos, int& value) {
  while (pos < text.size() && std::isspace(static_cast<unsigned char>(text[pos])) != 0) ++pos;
  bool negative = false;
  if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) negative = text[pos++] == '-';
  const std::size_t start = pos;
  long long n = 0;
  while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
    if (n < INT_MAX) n = n * 10 + (text[pos] - '0');
    ++pos;
  }
  if (pos == start) return false;
  if (n > INT_MAX) n = INT_MAX;
  value = static_cast<int>(negative ? -n : n);
  return true;
}

const std::vector<std::wstring>& fixed_charsets() {
  static const std::vector<std::wstring> list = {
      L"big5 - Big5 Traditional Chinese", L"dec8 - DEC West European", L"cp850 - DOS West European",
      L"hp8 - HP West European", L"koi8r - KOI8-R Relcom Russian", L"latin1 - cp1252 West European",
      L"latin2 - ISO 8859-2 Central European", L"swe7 - 7bit Swedish", L"ascii - US ASCII",
      L"ujis - EUC-JP Japanese", L"sjis - Shift-JIS Japanese", L"hebrew - ISO 8859-8 Hebrew",
      L"tis620 - TIS620 Thai", L"euckr - EUC-KR Korean", L"koi8u - KOI8-U Ukrainian",
      L"gb2312 - GB2312 Simplified Chinese", L"greek - ISO 8859-7 Greek", L"cp1250 - Windows Central European",
      L"gbk - GBK Simplified Chinese", L"latin5 - ISO 8859-9 Turkish", L"armscii8 - ARMSCII-8 Armenian",
      L"utf8 - UTF-8 Unicode", L"utf8mb4 - UTF-8 Unicode", L"ucs2 - UCS-2 Unicode", L"cp866 - DOS Russian",
      L"keybcs2 - DOS Kamenicky Czech-Slovak", L"macce - Mac Central European", L"macroman - Mac West European",
      L"cp852 - DOS Central European", L"latin7 - ISO 8859-13 Baltic", L"cp1251 - Windows Cyrillic",
      L"cp1256 - Windows Arabic", L"cp1257 - Windows Baltic", L"binary - Binary pseudo charset",
      L"geostd8 - GEOSTD8 Georgian", L"cp932 - SJIS for Windows Japanese", L"eucjpms - UJIS for Windows Japanese",
  };
  return list;
}

const std::vector<std::wstring>& fixed_storage_engines() {
  static const std::vector<std::wstring> list = {
      L"MyISAM", L"MEMORY",     L"InnoDB",    L"BerkeleyDB", L"BLACKHOLE",  L"EXAMPLE",
      L"ARCHIVE", L"CSV",       L"ndbcluster", L"FEDERATED", L"MRG_MYISAM", L"ISAM",
  };
  return list;
}

// Connector/C reports a TCP connection that cannot be made as 2002, the
// number of a failed local socket, with the text of 2003; MySQL's own client
// reports 2003, which is the number the program's messages know.
bool over_tcp(const std::string& host) { return !host.empty() && host != "localhost"; }

sql_exception connect_failure(MYSQL* connection, const std::string& host) {
  unsigned number = mysql_errno(connection);
  if (number == CR_CONNECTION_ERROR && over_tcp(host)) number = CR_CONN_HOST_ERROR;
  const char* message = mysql_error(connection);
  const char* sqlstate = mysql_sqlstate(connection);
  return {number, message != nullptr ? message : "", sqlstate != nullptr ? sqlstate : "", {}};
}

bool has_nul(std::wstring_view text) { return text.find(L'\0') != std::wstring_view::npos; }

}  // namespace

std::optional<std::uint32_t> sql_parse_version(std::string_view text) {
  int part[3] = {0, 0, 0};
  std::size_t pos = 0;
  for (int i = 0; i < 3; ++i) {
    if (i > 0) {
      if (pos >= text.size() || text[pos] != '.') return std::nullopt;
      ++pos;
    }
    if (!scan_int(text, pos, part[i])) return std::nullopt;
  }
  return static_cast<std::uint32_t>(part[0]) * 65536U + static_cast<std::uint32_t>(part[1]) * 256U +
         static_cast<std::uint32_t>(part[2]);
}

std::wstring sql_quote_name(std::wstring_view name) {
  if (name.size() > max_name_len) name = name.substr(0, max_name_len - 1);
  std::wstring quoted;
  quoted.reserve(name.size() + 2);
  quoted += L'`';
  quoted += name;
  quoted += L'`';
  return quoted;
}

sql_engine::sql_engine() { initialize(); }

sql_engine::~sql_engine() {
  LOG(2, "sql_engine::dtor");
  if (connected_) close();
  connection_.reset();
  LOG(2, "sql_engine::dtor - END");
}

void sql_engine::initialize() {
  LOG(2, "sql_engine::initialize");
  prepare_handle(true);
  LOG(2, "sql_engine::initialize - END");
}

void sql_engine::prepare_handle(bool log_steps) {
  sql_client_library_init();
  connection_.reset(mysql_init(nullptr));
  if (connection_ == nullptr) throw std::bad_alloc();
  if (log_steps) LOG(2, "sql_engine::initialize - 1");
  // The session is set up by connect() alone: no option file is read (a
  // [client] group could change the character set), and the login itself
  // speaks utf8mb4 so that user names and the server's refusals keep their
  // characters.
  mysql_options(connection_.get(), MYSQL_SET_CHARSET_NAME, "utf8mb4");
  if (log_steps) LOG(2, "sql_engine::initialize - 2");
  const unsigned connect_timeout = 10;
  mysql_options(connection_.get(), MYSQL_OPT_CONNECT_TIMEOUT, &connect_timeout);
  handle_used_ = false;
}

void sql_engine::close() {
  connection_.reset();
  connected_ = false;
}

void sql_engine::run(std::string_view statement) { sql_run(connection_.get(), statement); }

sql_blob_to_text_scope::sql_blob_to_text_scope(sql_engine& engine) : engine_(engine), old_(engine.blob_to_text()) {
  LOG(1, "sql_engine::set_blob_to_text(%d)", 1);
  engine_.set_blob_to_text(true);
}

void sql_engine::connect(std::wstring_view host, std::wstring_view user, std::wstring_view password, int port) {
  const std::string host8 = tk_utf8_encode(host);
  const std::string user8 = tk_utf8_encode(user);
  LOG(2, "sql_engine::connect(%s,%s,%s,%d)", host8, user8, "***", port);
  if (has_nul(host) || has_nul(user) || has_nul(password)) {
    throw tk_exception(std::string("The host name, user name or password contains a NUL character."), 1);
  }
  // Connector/C reads a host text holding ';' or '=' as a list of connection
  // settings ("host=...;user=..."), which could send the login elsewhere. No
  // host name holds either character.
  if (host8.find_first_of(";=") != std::string::npos) {
    throw sql_exception(CR_UNKNOWN_HOST, "Unknown server host '" + host8 + "' (a host name holds no ';' or '=')",
                        "HY000", {});
  }
  if (port < 0 || port > 65535) {
    throw tk_exception(
        tk_format("Invalid port number %d: a port lies between 1 and 65535 (0 for the default).", port), 1);
  }
  if (connected_) {
    LOG(2, "Connection was established already - disconnecting first...");
    close();
  }
  // Each attempt starts from a fresh handle with the same options.
  if (connection_ == nullptr || handle_used_) prepare_handle(false);
  handle_used_ = true;
  packet_size_ = 0;  // the values of the server connected before, if any
  session_packet_size_ = 0;
  fractional_seconds_ = false;
  mariadb_ = false;
  large_prefix_ = -1;

  LOG(3, "Connecting to MySQL server...");
  std::string password8 = tk_utf8_encode(password);
  const bool ok = mysql_real_connect(connection_.get(), host8.c_str(), user8.c_str(), password8.c_str(), nullptr,
                                     static_cast<unsigned>(port), nullptr, CLIENT_REMEMBER_OPTIONS) != nullptr;
  explicit_bzero(password8.data(), password8.size());
  if (!ok) throw connect_failure(connection_.get(), host8);
  connected_ = true;

  const char* info = mysql_get_server_info(connection_.get());
  LOG(2, "Setting UTF-8 collation...");
  set_session_charset(info);
  LOG(2, "Setting wait_timeout...");
  run("set session wait_timeout=cast(if(@@session.wait_timeout < 28800,28800,@@session.wait_timeout) as unsigned);");

  if (info == nullptr || *info == '\0') return;
  LOG(2, "Got MySQL server version: %s", info);
  const std::optional<std::uint32_t> code = sql_parse_version(info);
  if (!code) {
    LOG(3, "Invalid MySQL version: %s", info);
    throw tk_mail_assertion("sql_engi", __LINE__);
  }
  version_ = *code;
  LOG(2, "Hex version: %08X", version_);
  // Fractions of a second came with MariaDB 5.3 and MySQL 5.6.4.
  mariadb_ = std::string_view(info).find("MariaDB") != std::string_view::npos;
  fractional_seconds_ = version_ >= sql_version_5_6_4 || (mariadb_ && version_ >= sql_version_5_3_0);
  // A server of precisely 4.1.0 wants a password protocol that was dropped
  // again in 4.1.1; an empty password needs no protocol at all.
  if (version_ == sql_version_4_1_0 && !password.empty()) throw sql_auth_not_supported_exception();

  run("SET FOREIGN_KEY_CHECKS = 0");
  set_session_sql_mode();
}

void sql_engine::set_session_charset(const char* server_info) {
  const std::uint32_t code = server_info != nullptr ? sql_parse_version(server_info).value_or(0) : 0;
  // utf8 of older servers holds three bytes a character at most; a character
  // beyond the Basic Multilingual Plane needs utf8mb4.
  run(code >= sql_version_5_5_3 ? "SET NAMES utf8mb4" : "SET NAMES UTF8");
}

void sql_engine::set_session_sql_mode() {
  if (version_ < sql_version_4_1_1) return;
  LOG(2, "Setting sql_mode...");
  std::string current;
  {
    sql_stream mode(connection_.get(), "SELECT @@SESSION.sql_mode");
    if (mode.next()) current = mode.field(0);
  }
  std::string wanted;
  bool has_zero = false;
  std::size_t start = 0;
  while (start <= current.size()) {
    std::size_t end = current.find(',', start);
    if (end == std::string::npos) end = current.size();
    const std::string_view item(current.data() + start, end - start);
    if (!item.empty() && !sql_is_refused_mode(item)) {
      if (item == "NO_AUTO_VALUE_ON_ZERO") has_zero = true;
      if (!wanted.empty()) wanted += ',';
      wanted += item;
    }
    start = end + 1;
  }
  if (!has_zero) wanted += wanted.empty() ? "NO_AUTO_VALUE_ON_ZERO" : ",NO_AUTO_VALUE_ON_ZERO";
  run("SET SESSION sql_mode='" + wanted + "'");
}

bool sql_is_refused_mode(std::string_view mode) {
  static constexpr std::string_view refused[] = {"NO_BACKSLASH_ESCAPES", "ANSI_QUOTES", "ANSI", "DB2",
                                                 "MAXDB",               "MSSQL",       "ORACLE", "POSTGRESQL"};
  for (std::string_view name : refused) {
    if (mode == name) return true;
  }
  return false;
}

bool sql_engine::large_index_prefix() const {
  if (large_prefix_ >= 0) return large_prefix_ != 0;
  return mariadb_ ? version_ >= sql_version_10_2_2 : version_ >= sql_version_5_7_7;
}

bool sql_engine::is_old_version() const {
  LOG(2, "is_old_version(%08X)", version_);
  return version_ < sql_version_4_1_0;
}

bool sql_engine::is_db_exist(const std::wstring& name) {
  LOG(2, "sql_engine::is_db_exist(%s)", name);
  // A NUL would end the name early and ask about another database.
  if (has_nul(name)) {
    LOG(2, "Database name contains a NUL character");
    return false;
  }
  const int result = mysql_select_db(connection_.get(), tk_utf8_encode(name).c_str());
  LOG(2, "n_result=%d", result);
  return result == 0;
}

std::wstring sql_engine::quoted_db_name(const std::wstring& name) const {
  if (is_old_version()) return name;
  // The whole name between back quotes, a back quote inside it doubled, so
  // that the statement names exactly this database.
  std::wstring quoted = L"`";
  for (wchar_t c : name) {
    if (c == L'`') quoted += L'`';
    quoted += c;
  }
  quoted += L'`';
  return quoted;
}

void sql_engine::db_delete(const std::wstring& name) {
  LOG(2, "sql_engine::db_delete(%s)", name);
  LOG(3, "Deleting MySQL database '%s'", name);
  run("SET FOREIGN_KEY_CHECKS = 0");
  run(tk_utf8_encode(L"DROP DATABASE " + quoted_db_name(name)));
  run("SET FOREIGN_KEY_CHECKS = 1");
}

const std::vector<std::wstring>& sql_engine::get_charsets() {
  LOG(2, "sql_engine::get_charsets");
  if (!charsets_.empty()) return charsets_;
  if (!connected_) {
    LOG(2, "MySQL is NOT connected");
    charsets_ = fixed_charsets();
    return charsets_;
  }
  LOG(2, "MySQL is connected");
  // A failed query gives no result, and so an empty list.
  static constexpr std::string_view query = "SHOW CHARACTER SET";
  mysql_real_query(connection_.get(), query.data(), static_cast<unsigned long>(query.size()));
  sql_stream rows(connection_.get(), sql_result_ptr(mysql_use_result(connection_.get())));
  while (rows.next()) {
    if (rows.field(0) == "NO") continue;
    std::wstring entry = tk_utf8_decode(rows.field(0)) + L" - " + tk_utf8_decode(rows.field(1));
    LOG(1, "name=%s", entry);
    charsets_.push_back(std::move(entry));
  }
  return charsets_;
}

const std::vector<std::wstring>& sql_engine::get_storage_engines() {
  LOG(2, "sql_engine::get_storage_engines");
  if (!storage_engines_.empty()) return storage_engines_;
  if (!connected_) {
    LOG(2, "MySQL is NOT connected");
    storage_engines_ = fixed_storage_engines();
    return storage_engines_;
  }
  LOG(2, "MySQL is connected");
  static constexpr std::string_view query = "SHOW ENGINES";
  mysql_real_query(connection_.get(), query.data(), static_cast<unsigned long>(query.size()));
  sql_stream rows(connection_.get(), sql_result_ptr(mysql_use_result(connection_.get())));
  while (rows.next()) {
    // The name column, not the Support column: an engine the server has
    // switched off is listed all the same.
    if (rows.field(0) == "NO") continue;
    std::wstring entry = tk_utf8_decode(rows.field(0));
    LOG(1, "name=%s", entry);
    storage_engines_.push_back(std::move(entry));
  }
  return storage_engines_;
}

std::uint32_t sql_engine::get_max_allowed_packet() {
  LOG(2, "sql_engine::get_max_allowed_packet");
  if (packet_size_ != 0 || !connected_) return packet_size_;
  sql_stream rows(connection_.get(), "SHOW VARIABLES LIKE 'max_allowed_packet'");
  if (rows.next()) {
    const std::string_view value = rows.field(1);
    std::uint32_t parsed = 0;
    std::from_chars(value.data(), value.data() + value.size(), parsed);
    packet_size_ = parsed;
  }
  LOG(2, "max_packet_size=%d", packet_size_);
  return packet_size_;
}

std::uint32_t sql_engine::effective_max_allowed_packet() {
  const std::uint32_t asked = get_max_allowed_packet();
  if (!connected_) return asked;
  if (session_packet_size_ == 0) {
    sql_stream rows(connection_.get(), "SELECT @@SESSION.max_allowed_packet");
    if (rows.next()) {
      const std::string_view value = rows.field(0);
      std::from_chars(value.data(), value.data() + value.size(), session_packet_size_);
    }
    LOG(2, "session max_allowed_packet=%d", session_packet_size_);
  }
  if (session_packet_size_ == 0) return asked;
  return asked == 0 ? session_packet_size_ : std::min(asked, session_packet_size_);
}

void sql_engine::set_max_allowed_packet(std::uint32_t bytes) {
  LOG(2, "sql_engine::set_max_allowed_packet(%d)", bytes);
  if (bytes <= packet_size_) return;
  try {
    run(tk_format("SET GLOBAL max_allowed_packet=%d", bytes));
    packet_size_ = bytes;
  } catch (const sql_exception& e) {
    // Without the SUPER privilege the run goes on with the server's limit.
    LOG(3, "Failed to set max_allowed_packet:\n%s", e.what());
  }
}

}  // namespace qb

namespace qb {

std::unique_ptr<udb_database> sql_engine::create_db(const std::wstring& name) {
  LOG(2, "sql_engine::create_db (%s)", name);
  LOG(3, "Creating MySQL database '%s'", name);
  const std::wstring statement = L"CREATE DATABASE " + quoted_db_name(name) + L" character set " + charset_;
  LOG(2, "Run SQL-query: %s", statement);
  run(tk_utf8_encode(statement));
  return open_db(name, 2);
}

std::unique_ptr<udb_database> sql_engine::open_db(const std::wstring& name, std::uint32_t mode) {
  LOG(2, "sql_engine::open_db (%s)", name);
  LOG(3, "Opening MySQL database '%s'", name);
  if (has_nul(name)) throw tk_exception(std::string("The database name contains a NUL character."), 1);
  if (mysql_select_db(connection_.get(), tk_utf8_encode(name).c_str()) != 0) throw sql_exception(connection_.get());
  return std::make_unique<sql_database>(name, connection_.get(), mode);
}

std::unique_ptr<dmp_database> sql_engine::create_dump(const std::wstring& file_name, const dump_options& options) {
  LOG(2, "sql_engine::create_dump (%s)", file_name);
  LOG(3, "Creating MySQL dump file '%s'", file_name);
  return std::make_unique<dmp_database>(file_name, options);
}

void sql_engine::set_properties(udb_properties* properties) {
  LOG(2, "sql_engine::set_properties");
  udb_engine::set_properties(properties);
  if (properties == nullptr) return;
  const udb_properties::property_map& map = properties->get_properties();
  const auto engine = map.find(L"engine");
  if (engine == map.end()) {
    LOG(2, "Set InnoDB as default");
    storage_engine_ = L"InnoDB";
  } else {
    LOG(2, "Set tab.type='%s'", engine->second);
    storage_engine_ = engine->second;
  }
  const auto charset = map.find(L"character set");
  if (charset != map.end()) charset_ = charset->second;
}

std::unique_ptr<udb_validator> sql_engine::create_dn_validator() const {
  LOG(1, "sql_engine::create_dn_validator");
  if (is_old_version()) return std::make_unique<sql_old_dn_validator>();
  return std::make_unique<sql_new_validator>(sql_name_kind::database);
}

std::unique_ptr<udb_validator> sql_engine::create_tn_validator(const std::vector<std::wstring>& tables,
                                                               const std::vector<std::wstring>& views) const {
  LOG(1, "sql_engine::create_tn_validator");
  if (is_old_version()) return std::make_unique<sql_old_tn_validator>(tables, views);
  return std::make_unique<sql_new_tn_validator>(tables, views);
}

std::unique_ptr<udb_validator> sql_engine::create_fn_validator(const udb_schema& schema) const {
  LOG(1, "sql_engine::create_fn_validator");
  if (is_old_version()) return std::make_unique<sql_old_fn_validator>(schema);
  return std::make_unique<sql_new_fn_validator>(schema);
}

std::unique_ptr<udb_validator> sql_engine::create_fn_validator(const udb_record& record) const {
  LOG(1, "sql_engine::create_fn_validator");
  if (is_old_version()) return std::make_unique<sql_old_fn_validator>(record);
  return std::make_unique<sql_new_fn_validator>(record);
}

std::unique_ptr<udb_validator> sql_engine::create_in_validator(const udb_indexes& indexes) const {
  LOG(1, "sql_engine::create_in_validator");
  if (is_old_version()) return std::make_unique<sql_old_in_validator>(indexes);
  return std::make_unique<sql_new_in_validator>(indexes);
}

}  // namespace qb
