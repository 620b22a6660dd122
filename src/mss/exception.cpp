#include "mss/exception.h"

#include <algorithm>
#include <utility>

#include "mss/error_map.h"
#include "tk/format.h"
#include "tk/log.h"
#include "tk/strings.h"
#include "tk/support.h"

namespace qb {

namespace {

constexpr int exception_level = 1;

// The SQLSTATE class of warnings and informational messages.
bool is_informational(const odb_diag_record& r) { return r.sqlstate.starts_with("01"); }

std::string narrow(std::wstring_view text) {
  std::string out;
  if (!tk_unicode_to_ansi2(text, out)) out.clear();
  return out;
}

}  // namespace

odb_diag_record odb_make_diag_record(std::string sqlstate, std::int32_t native_error, std::wstring_view message) {
  odb_diag_record r;
  r.sqlstate = std::move(sqlstate);
  r.native_error = native_error;
  std::vector<std::wstring_view> components;
  std::size_t pos = 0;
  while (pos < message.size() && message[pos] == L'[') {
    const std::size_t close = message.find(L']', pos);
    if (close == std::wstring_view::npos) break;
    components.push_back(message.substr(pos + 1, close - pos - 1));
    pos = close + 1;
  }
  r.message.assign(message.substr(pos));
  if (components.size() > 1 && components.back() == L"SQL Server") components.pop_back();
  for (const std::wstring_view c : components) {
    if (!r.source.empty()) r.source += L' ';
    r.source.append(c);
  }
  return r;
}

std::string odb_generic_error_text() {
  return std::string("Generic error occurred while migrating the data.\nContact to ") + tk_support_address +
         " for the solution.";
}

odb_exception::odb_exception(std::vector<odb_diag_record> records, std::string operation, std::wstring statement,
                             std::source_location where)
    : records_(std::move(records)),
      operation_(std::move(operation)),
      statement_(std::move(statement)),
      where_(where) {
  set_level(exception_level);
  hresult_ = odb_hresult_of(records_);
  LOG(2, "odb_exception::odb_exception(%08X)", hresult_);
  set_code(odb_code_of(hresult_));
  log_records();
  take_text();
}

odb_exception::odb_exception(const std::string& text, int level) : tk_exception(text, level) {}

odb_exception::odb_exception(const std::wstring& text, int level) : tk_exception(text, level) {}

bool odb_exception::has_native_error(std::int32_t number) const {
  return std::any_of(records_.begin(), records_.end(),
                     [number](const odb_diag_record& r) { return r.native_error == number; });
}

void odb_exception::log_records() const {
  if (records_.empty()) {
    LOG(2, "dump_error: GetErrorInfo failed");
  } else {
    LOG(2, "odb_exception::extract_from_records2(%d)", 1);
    LOG(2, "Got %d record(s)", static_cast<int>(records_.size()));
  }
  int n = 0;
  for (const odb_diag_record& r : records_) {
    LOG(2, "HRESULT:\t0x%08X", odb_hresult_of(r));
    LOG(2, "SQLSTATE:\t%s", r.sqlstate);
    LOG(2, "Native Error:\t%ld", r.native_error);
    LOGW(2, L"Source:\t\t%s\n", r.source);
    LOGW(2, L"Error message:\t%s", r.message);
    LOGW(1, L"Process %d record: msg=%s, source=%s", n++, r.message, r.source);
  }
  LOG(2, "Failed call: %s", operation_);
  if (!statement_.empty()) LOGW(2, L"Statement: %s", statement_);
  LOG(2, "Raised in %s (%s:%d)", where_.function_name(), where_.file_name(), static_cast<int>(where_.line()));
}

void odb_exception::take_text() {
  // The first record with a text wins; a warning or informational record only
  // when no error record has a text.
  const odb_diag_record* chosen = nullptr;
  for (const odb_diag_record& r : records_) {
    if (!r.message.empty() && !is_informational(r)) {
      chosen = &r;
      break;
    }
  }
  if (chosen == nullptr) {
    for (const odb_diag_record& r : records_) {
      if (!r.message.empty()) {
        chosen = &r;
        break;
      }
    }
  }
  if (chosen == nullptr) {
    set_text(odb_generic_error_text());
    return;
  }
  set_text(narrow(chosen->message));
  source_ = chosen->source;
  sqlstate_ = chosen->sqlstate;
  native_error_ = chosen->native_error;
}

mss_no_perm_exception::mss_no_perm_exception(const std::wstring& user, const std::wstring& database)
    : tk_exception(tk_wformat(L"User '%s' does not have permission to access database '%s'", user, database),
                   exception_level) {}

}  // namespace qb
