#include "mss/odbc.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "mss/error_map.h"
#include "mss/utf16.h"
#include "tk/exception.h"
#include "tk/log.h"

namespace qb {

namespace {

// Record texts longer than this are read again with a buffer of their size.
constexpr SQLSMALLINT first_message_units = 1024;

odb_diag_record read_record(SQLSMALLINT handle_type, SQLHANDLE handle, SQLSMALLINT number, SQLRETURN& rc) {
  SQLWCHAR state[6] = {};
  SQLINTEGER native = 0;
  std::u16string message(first_message_units, u'\0');
  SQLSMALLINT length = 0;
  rc = SQLGetDiagRecW(handle_type, handle, number, state, &native, odb_sqlwchar(message), first_message_units,
                      &length);
  if (rc == SQL_SUCCESS_WITH_INFO && length >= first_message_units) {
    message.assign(static_cast<std::size_t>(length) + 1, u'\0');
    rc = SQLGetDiagRecW(handle_type, handle, number, state, &native, odb_sqlwchar(message),
                        static_cast<SQLSMALLINT>(length + 1), &length);
  }
  if (!odb_succeeded(rc)) return {};
  message.resize(static_cast<std::size_t>(std::max<SQLSMALLINT>(length, 0)));
  std::string sqlstate;
  for (const SQLWCHAR c : state) {
    if (c == 0) break;
    sqlstate.push_back(static_cast<char>(c));
  }
  return odb_make_diag_record(std::move(sqlstate), native, odb_from_utf16(message));
}

template <class Handle>
void free_handle(SQLSMALLINT type, Handle& handle) noexcept {
  if (handle != nullptr) SQLFreeHandle(type, handle);
  handle = nullptr;
}

bool needs_braces(std::wstring_view value) {
  if (value.empty()) return false;
  if (value.front() == L' ' || value.back() == L' ') return true;
  return value.find_first_of(L";{}=") != std::wstring_view::npos;
}

}  // namespace

std::size_t odb_written_units(const std::u16string& buffer) {
  // The last unit the driver changed is the terminating NUL.
  std::size_t end = buffer.size();
  while (end > 0 && buffer[end - 1] == odb_unwritten_unit) --end;
  if (end == 0) return 0;
  return buffer[end - 1] == u'\0' ? end - 1 : end;
}

std::vector<odb_diag_record> odb_diagnostics(SQLSMALLINT handle_type, SQLHANDLE handle) {
  std::vector<odb_diag_record> records;
  if (handle == nullptr) return records;
  for (SQLSMALLINT n = 1;; ++n) {
    SQLRETURN rc = SQL_SUCCESS;
    odb_diag_record r = read_record(handle_type, handle, n, rc);
    if (!odb_succeeded(rc)) break;
    records.push_back(std::move(r));
  }
  return records;
}

void odb_check(SQLRETURN rc, SQLSMALLINT handle_type, SQLHANDLE handle, const char* operation,
               std::wstring_view statement, std::source_location where) {
  if (odb_succeeded(rc)) return;
  std::vector<odb_diag_record> records = odb_diagnostics(handle_type, handle);
  LOG(2, "Error code: %08X", odb_hresult_of(records));
  throw odb_exception(std::move(records), operation, std::wstring(statement), where);
}

// --- Environment -------------------------------------------------------------

odb_environment::odb_environment() {
  const SQLRETURN rc = SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &handle_);
  if (!odb_succeeded(rc)) {
    handle_ = nullptr;
    throw odb_exception(std::vector<odb_diag_record>{}, "SQLAllocHandle(SQL_HANDLE_ENV)");
  }
  const SQLRETURN v =
      SQLSetEnvAttr(handle_, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
  if (!odb_succeeded(v)) {
    std::vector<odb_diag_record> records = odb_diagnostics(SQL_HANDLE_ENV, handle_);
    free_handle(SQL_HANDLE_ENV, handle_);
    throw odb_exception(std::move(records), "SQLSetEnvAttr(SQL_ATTR_ODBC_VERSION)");
  }
}

odb_environment::~odb_environment() { free_handle(SQL_HANDLE_ENV, handle_); }

odb_environment::odb_environment(odb_environment&& other) noexcept
    : handle_(std::exchange(other.handle_, nullptr)) {}

odb_environment& odb_environment::operator=(odb_environment&& other) noexcept {
  if (this != &other) {
    free_handle(SQL_HANDLE_ENV, handle_);
    handle_ = std::exchange(other.handle_, nullptr);
  }
  return *this;
}

std::vector<std::wstring> odb_environment::drivers() const {
  std::vector<std::wstring> names;
  std::u16string name(256, u'\0');
  std::u16string attributes(2048, u'\0');
  SQLUSMALLINT direction = SQL_FETCH_FIRST;
  for (;;) {
    SQLSMALLINT name_length = 0;
    SQLSMALLINT attributes_length = 0;
    const SQLRETURN rc = SQLDriversW(handle_, direction, odb_sqlwchar(name), static_cast<SQLSMALLINT>(name.size()),
                                     &name_length, odb_sqlwchar(attributes),
                                     static_cast<SQLSMALLINT>(attributes.size()), &attributes_length);
    if (!odb_succeeded(rc)) break;
    const auto units = std::min<std::size_t>(static_cast<std::size_t>(std::max<SQLSMALLINT>(name_length, 0)),
                                              name.size() - 1);
    names.push_back(odb_from_utf16(std::u16string_view(name.data(), units)));
    direction = SQL_FETCH_NEXT;
  }
  return names;
}

// --- Connection strings ------------------------------------------------------

std::optional<std::wstring> odb_quote_value(std::wstring_view value, odb_brace_rule rule) {
  if (!needs_braces(value)) return std::wstring(value);
  std::wstring out;
  out.reserve(value.size() + 4);
  out += L'{';
  if (rule == odb_brace_rule::doubled) {
    for (const wchar_t c : value) {
      out += c;
      if (c == L'}') out += L'}';
    }
  } else {
    // The value ends at the first "};", and the string goes on with ';'
    // behind the closing brace, so no '}' of the value may precede a ';'.
    if (value.find(L"};") != std::wstring_view::npos) return std::nullopt;
    out += value;
  }
  out += L'}';
  return out;
}

odb_brace_rule odb_freetds_brace_rule(const odb_environment& env, std::wstring_view driver) {
  static std::once_flag once;
  static odb_brace_rule rule = odb_brace_rule::doubled;
  std::call_once(once, [&] {
    // "APP={x}y}" is a syntax error for a doubling parser (a single '}' in
    // the middle) and the text "x}y" for a verbatim one, which then goes on
    // to connect to a local port that nothing serves.
    odb_connection_string probe(odb_brace_rule::doubled);
    probe.add_driver(driver);
    std::wstring text = probe.text() + L"APP={x}y};SERVER=127.0.0.1;PORT=1;UID=probe;PWD=probe;TDS_Version=7.4";
    odb_connection c(env);
    std::u16string in = odb_to_utf16(text);
    const SQLRETURN rc = SQLDriverConnectW(c.get(), nullptr, odb_sqlwchar(in), static_cast<SQLSMALLINT>(in.size()),
                                           nullptr, 0, nullptr, SQL_DRIVER_NOPROMPT);
    bool syntax_error = false;
    if (!odb_succeeded(rc)) {
      for (const odb_diag_record& r : odb_diagnostics(SQL_HANDLE_DBC, c.get())) {
        if (r.message.find(L"Syntax error in connection string") != std::wstring::npos) syntax_error = true;
      }
    } else {
      SQLDisconnect(c.get());
    }
    rule = syntax_error ? odb_brace_rule::doubled : odb_brace_rule::verbatim;
    LOG(2, "FreeTDS reads values in braces %s", rule == odb_brace_rule::doubled ? "with }} for }" : "verbatim");
  });
  return rule;
}

void odb_connection_string::add_driver(std::wstring_view name) {
  // Driver names are written between braces, as every driver manager reads
  // them; no driver name holds a brace.
  text_.append(L"DRIVER={").append(name).append(L"};");
  shown_.append(L"DRIVER={").append(name).append(L"};");
}

void odb_connection_string::add(std::wstring_view key, std::wstring_view value, bool secret) {
  const std::optional<std::wstring> quoted = odb_quote_value(value, rule_);
  if (!quoted) {
    throw tk_exception(tk_wformat(L"The %s value contains the characters '};', which the installed FreeTDS "
                                  L"driver cannot take in a connection string.",
                                  key == L"PWD" ? std::wstring(L"password") : std::wstring(key)),
                       1);
  }
  text_.append(key).append(L"=").append(*quoted).append(L";");
  shown_.append(key).append(L"=").append(secret ? std::wstring(L"***") : *quoted).append(L";");
}

// --- Connection --------------------------------------------------------------

odb_connection::odb_connection(const odb_environment& env) {
  const SQLRETURN rc = SQLAllocHandle(SQL_HANDLE_DBC, env.get(), &handle_);
  if (!odb_succeeded(rc)) {
    handle_ = nullptr;
    throw odb_exception(odb_diagnostics(SQL_HANDLE_ENV, env.get()), "SQLAllocHandle(SQL_HANDLE_DBC)");
  }
}

odb_connection::~odb_connection() { release(); }

odb_connection::odb_connection(odb_connection&& other) noexcept
    : handle_(std::exchange(other.handle_, nullptr)), connected_(std::exchange(other.connected_, false)) {}

odb_connection& odb_connection::operator=(odb_connection&& other) noexcept {
  if (this != &other) {
    release();
    handle_ = std::exchange(other.handle_, nullptr);
    connected_ = std::exchange(other.connected_, false);
  }
  return *this;
}

void odb_connection::release() noexcept {
  if (connected_) {
    if (!odb_succeeded(SQLDisconnect(handle_))) {
      // An open transaction keeps the connection; end it and try again.
      SQLEndTran(SQL_HANDLE_DBC, handle_, SQL_ROLLBACK);
      SQLDisconnect(handle_);
    }
    connected_ = false;
  }
  free_handle(SQL_HANDLE_DBC, handle_);
}

void odb_connection::connect(const odb_connection_string& connection_string, int login_timeout_seconds,
                             std::source_location where) {
  SQLSetConnectAttrW(handle_, SQL_ATTR_LOGIN_TIMEOUT,
                     reinterpret_cast<SQLPOINTER>(static_cast<SQLULEN>(login_timeout_seconds)), 0);
  std::u16string in = odb_to_utf16(connection_string.text());
  const SQLRETURN rc = SQLDriverConnectW(handle_, nullptr, odb_sqlwchar(in), static_cast<SQLSMALLINT>(in.size()),
                                         nullptr, 0, nullptr, SQL_DRIVER_NOPROMPT);
  // The copy holding the password is not left in freed memory.
  std::fill(in.begin(), in.end(), u'\0');
  odb_check(rc, SQL_HANDLE_DBC, handle_, "SQLDriverConnectW", connection_string.shown(), where);
  connected_ = true;
}

void odb_connection::close() {
  if (!connected_) return;
  const SQLRETURN rc = SQLDisconnect(handle_);
  connected_ = false;
  odb_check(rc, SQL_HANDLE_DBC, handle_, "SQLDisconnect");
}

std::wstring odb_connection::info_text(SQLUSMALLINT info_type) const {
  std::u16string buffer(512, u'\0');
  SQLSMALLINT bytes = 0;
  const SQLRETURN rc = SQLGetInfoW(handle_, info_type, odb_sqlwchar(buffer),
                                   static_cast<SQLSMALLINT>(buffer.size() * sizeof(SQLWCHAR)), &bytes);
  odb_check(rc, SQL_HANDLE_DBC, handle_, "SQLGetInfoW");
  const std::size_t units = std::min(static_cast<std::size_t>(std::max<SQLSMALLINT>(bytes, 0)) / sizeof(SQLWCHAR),
                                     buffer.size() - 1);
  return odb_from_utf16(std::u16string_view(buffer.data(), units));
}

void odb_connection::run(std::wstring_view statement, std::source_location where) {
  odb_statement s(*this);
  s.execute(statement, where);
}

// --- Statement ---------------------------------------------------------------

odb_statement::odb_statement(const odb_connection& connection) {
  const SQLRETURN rc = SQLAllocHandle(SQL_HANDLE_STMT, connection.get(), &handle_);
  if (!odb_succeeded(rc)) {
    handle_ = nullptr;
    throw odb_exception(odb_diagnostics(SQL_HANDLE_DBC, connection.get()), "SQLAllocHandle(SQL_HANDLE_STMT)");
  }
}

odb_statement::~odb_statement() { release(); }

odb_statement::odb_statement(odb_statement&& other) noexcept
    : handle_(std::exchange(other.handle_, nullptr)), text_(std::move(other.text_)) {}

odb_statement& odb_statement::operator=(odb_statement&& other) noexcept {
  if (this != &other) {
    release();
    handle_ = std::exchange(other.handle_, nullptr);
    text_ = std::move(other.text_);
  }
  return *this;
}

void odb_statement::release() noexcept { free_handle(SQL_HANDLE_STMT, handle_); }

void odb_statement::check(SQLRETURN rc, const char* operation, std::source_location where) const {
  odb_check(rc, SQL_HANDLE_STMT, handle_, operation, text_, where);
}

bool odb_statement::execute(std::wstring_view statement, std::source_location where) {
  text_.assign(statement);
  std::u16string sql = odb_to_utf16(statement);
  const SQLRETURN rc = SQLExecDirectW(handle_, odb_sqlwchar(sql), static_cast<SQLINTEGER>(sql.size()));
  if (rc == SQL_NO_DATA) return false;
  check(rc, "SQLExecDirectW", where);
  return column_count() > 0;
}

SQLSMALLINT odb_statement::column_count() const {
  SQLSMALLINT n = 0;
  check(SQLNumResultCols(handle_, &n), "SQLNumResultCols");
  return n;
}

bool odb_statement::fetch(std::source_location where) {
  const SQLRETURN rc = SQLFetch(handle_);
  if (rc == SQL_NO_DATA) return false;
  check(rc, "SQLFetch", where);
  return true;
}

std::optional<std::wstring> odb_statement::get_text(SQLUSMALLINT column, std::source_location where) {
  std::wstring out;
  odb_utf16_decoder decoder;
  std::u16string buffer(4096, u'\0');
  const auto buffer_bytes = static_cast<SQLLEN>(buffer.size() * sizeof(SQLWCHAR));
  for (;;) {
    SQLLEN indicator = 0;
    std::fill(buffer.begin(), buffer.end(), odb_unwritten_unit);
    const SQLRETURN rc = SQLGetData(handle_, column, SQL_C_WCHAR, odb_sqlwchar(buffer), buffer_bytes, &indicator);
    if (rc == SQL_NO_DATA) break;  // every piece has been read
    check(rc, "SQLGetData", where);
    if (indicator == SQL_NULL_DATA) return std::nullopt;
    // The last piece has the length the indicator gives. A piece that did not
    // fit need not fill the buffer (binary data as text comes in whole
    // bytes): it ends at its terminating NUL, the last unit written.
    const bool partial = rc == SQL_SUCCESS_WITH_INFO && (indicator == SQL_NO_TOTAL || indicator >= buffer_bytes);
    const std::size_t units =
        partial ? odb_written_units(buffer) : static_cast<std::size_t>(std::max<SQLLEN>(indicator, 0)) / sizeof(SQLWCHAR);
    decoder.append(out, odb_sqlwchar(buffer), units);
    if (!partial) break;
  }
  decoder.finish(out);
  return out;
}

void odb_statement::close_cursor() noexcept { SQLFreeStmt(handle_, SQL_CLOSE); }

void odb_statement::cancel() noexcept { SQLCancel(handle_); }

}  // namespace qb
