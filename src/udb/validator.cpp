#include "udb/validator.h"

#include "tk/exception.h"
#include "tk/format.h"
#include "tk/log.h"
#include "tk/strings.h"

namespace qb {

namespace {

// The counter of get_safe_name runs through five digits.
constexpr int safe_name_limit = 100000;

bool list_holds(const std::vector<std::wstring>& list, const std::wstring& name) {
  for (const std::wstring& entry : list) {
    if (tk_equal_no_case(entry, name)) return true;
  }
  return false;
}

}  // namespace

udb_validator::udb_validator(std::uint32_t max_len) : max_len_(max_len) {}

udb_validator::~udb_validator() = default;

bool udb_validator::is_acceptable(const std::wstring& name) const {
  LOG(1, "udb_validator::is_acceptable(%s)", name);
  if (max_len_ != 0 && name.size() > max_len_) {
    LOG(1, "The name is too long");
    return false;
  }
  if (list_holds(restricted_, name)) {
    LOG(1, "The name is restricted");
    return false;
  }
  const std::size_t bad = name.find_first_of(illegal_chars_);
  if (bad != std::wstring::npos) {
    LOG(1, "The name contains illegal: %c", name[bad]);
    return false;
  }
  return true;
}

bool udb_validator::is_duplicated(const std::wstring& name) const {
  LOG(1, "udb_validator::is_duplicated(%s)", name);
  for (const std::wstring& candidate : existing_) {
    LOG(1, "Processing %s", candidate);
    if (tk_equal_no_case(candidate, name)) {
      LOG(1, "Name is duplicated");
      return true;
    }
  }
  return false;
}

std::wstring udb_validator::get_safe_name(const std::wstring& name) const {
  LOG(1, "udb_validator::get_safe_name(%s)", name);
  std::wstring base = name;
  if (max_len_ != 0 && base.size() > max_len_) base.resize(max_len_ - 1);
  for (wchar_t& c : base) {
    if (illegal_chars_.find(c) != std::wstring::npos) c = L'_';
  }
  if (is_acceptable(base) && !is_duplicated(base)) return base;

  // Room for the five-digit suffix. With a limit of five characters or less
  // no suffixed name can fit, and the search below ends in the assertion.
  if (max_len_ != 0 && base.size() + 5 > max_len_) base.resize(max_len_ > 6 ? max_len_ - 6 : 0);
  for (int counter = 0; counter < safe_name_limit; ++counter) {
    std::wstring candidate = tk_wformat(L"%s%05d", base, counter);
    if (is_acceptable(candidate) && !is_duplicated(candidate)) return candidate;
  }
  throw tk_mail_assertion("udb_vali", 54);
}

void udb_validator::add_existing_name(const std::wstring& name) {
  LOG(1, "udb_validator::add_existing_name(%s)", name);
  existing_.push_back(name);
}

void udb_validator::add_restricted_name(const std::wstring& name) { restricted_.push_back(name); }

void udb_validator::add_restricted_names(const std::vector<std::wstring>& names) {
  restricted_.insert(restricted_.end(), names.begin(), names.end());
}

void udb_validator::add_restricted_names(std::span<const std::wstring_view> names) {
  for (const std::wstring_view name : names) restricted_.emplace_back(name);
}

void udb_validator::add_mapped_pair(const std::wstring& old_name, const std::wstring& new_name) {
  LOG(1, "udb_validator::add_mapped_pair(%s,%s)", old_name, new_name);
  ref_map_.insert(old_name, new_name);
}

}  // namespace qb
