#include "ole/guid.h"

#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"

namespace qb {
namespace {

bool is_hex(wchar_t c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

bool hex_or_dash(std::wstring_view text) {
  for (wchar_t c : text) {
    if (!is_hex(c) && c != '-') return false;
  }
  return true;
}

int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

int find_or_minus_one(std::wstring_view text, std::wstring_view what) {
  const auto at = text.find(what);
  return at == std::wstring_view::npos ? -1 : static_cast<int>(at);
}

}  // namespace

ole_guid_extractor::ole_guid_extractor(std::wstring_view text) { check(text); }

ole_guid_extractor::ole_guid_extractor(std::string_view text) {
  // A text of 364 bytes has at least 91 characters in any code page: refused
  // before any conversion.
  if (text.size() >= 91 * 4) {
    LOG(1, "Text is too long for GUID(1)");
    return;
  }
  std::wstring wide;
  if (!tk_ansi_to_unicode(text, wide)) return;
  check(wide);
}

void ole_guid_extractor::check(std::wstring_view text) {
  if (text.size() >= 91) {
    LOG(1, "Text is too long for GUID(1)");
    return;
  }
  // Trim first without copying: most texts are far too short and are refused
  // at once.
  const auto first = text.find_first_not_of(L' ');
  const std::wstring_view trimmed = first == std::wstring_view::npos
                                        ? std::wstring_view{}
                                        : text.substr(first, text.find_last_not_of(L' ') - first + 1);
  const std::size_t len = trimmed.size();
  if (len < 36) {
    LOG(1, "Text is too short for GUID");
    return;
  }
  if (len >= 46) {
    LOG(1, "Text is too long for GUID(2)");
    return;
  }
  src_.assign(trimmed);
  if (len == 36) {
    LOG(1, "Checking simple form (1)");
    valid_ = hex_or_dash(src_);
    if (!valid_) LOG(1, "Simple form (1) of GUID is NOT valid");
    return;
  }
  if (len == 38 && src_.front() == L'{' && src_.back() == L'}') {
    LOG(1, "Checking simple form (2)");
    valid_ = hex_or_dash(std::wstring_view(src_).substr(1, 36));
    if (!valid_) {
      LOG(1, "Simple form (2) of GUID is NOT valid");
      return;
    }
    pos_ = 37;
    return;
  }
  const int lower = find_or_minus_one(src_, L"guid");
  const int upper = find_or_minus_one(src_, L"GUID");
  LOG(1, "Locating 'guid' (%d : %d)", lower, upper);
  if (lower < 0 && upper < 0) return;
  const int at = lower >= 0 ? lower : upper;
  const int length = static_cast<int>(len);
  if (at + 40 > length) return;
  for (pos_ = at + 4; pos_ + 36 <= length; ++pos_) {
    if (src_[static_cast<std::size_t>(pos_)] == L'{') {
      LOG(1, "GUID is valid");
      valid_ = true;
      return;
    }
  }
}

std::wstring ole_guid_extractor::get_guid_wstr() {
  if (!valid_) return {};
  const std::wstring_view s = src_;
  if (s.size() == 36) {
    LOG(1, "Simple form of GUID");
    std::wstring out;
    out.reserve(32);
    out.append(s.substr(0, 8)).append(s.substr(9, 4)).append(s.substr(14, 4)).append(s.substr(19, 4));
    out.append(s.substr(24, 12));
    return out;
  }
  if (s.size() == 38) {
    LOG(1, "Simple form of GUID (2)");
    pos_ = 0;
  }
  const auto p = static_cast<std::size_t>(pos_);
  std::wstring out;
  out.reserve(32);
  out.append(s.substr(p + 1, 8)).append(s.substr(p + 10, 4)).append(s.substr(p + 15, 4));
  out.append(s.substr(p + 20, 4)).append(s.substr(p + 25, 12));
  return out;
}

void ole_guid_extractor::get_bytes(std::array<std::uint8_t, 16>& out) {
  std::string digits;
  if (!tk_unicode_to_ansi2(get_guid_wstr(), digits) || digits.size() != 32) {
    throw tk_mail_assertion("ole_guid", __LINE__);
  }
  static constexpr int order[16] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
  for (int k = 0; k < 16; ++k) {
    // Each pair reads as "%2hhx": one or two hexadecimal digits.
    const int high = hex_value(digits[static_cast<std::size_t>(2 * k)]);
    const int low = hex_value(digits[static_cast<std::size_t>(2 * k + 1)]);
    if (high < 0) throw tk_mail_assertion("ole_guid", __LINE__);
    const int value = low < 0 ? high : high * 16 + low;
    out[static_cast<std::size_t>(order[k])] = static_cast<std::uint8_t>(value);
  }
}

std::wstring ole_guid_extractor::to_wstring() const {
  if (!valid_) return {};
  if (src_.size() <= 36) return src_;
  return src_.substr(static_cast<std::size_t>(pos_), 36);
}

std::string ole_guid_extractor::to_string() const {
  std::string out;
  if (!tk_unicode_to_ansi2(to_wstring(), out)) out.clear();
  return out;
}

}  // namespace qb
