#include "tk/strings.h"

#include <iconv.h>
#include <langinfo.h>
#include <unicode/uchar.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "tk/exception.h"
#include "tk/log.h"
#include "tk/utf.h"

namespace qb {
namespace {

struct ansi_codeset {
  std::mutex mutex;
  std::string name;      // the codeset of the locale, or the override
  std::string override;  // set by tk_override_ansi_codeset
  std::atomic<bool> utf8{true};
};

bool names_utf8(const std::string& codeset) {
  return codeset.empty() || codeset == "UTF-8" || codeset == "utf8" || codeset == "UTF8" ||
         codeset == "ANSI_X3.4-1968";  // the plain "C" locale: no choice was made
}

// Called with the mutex held (or before the state is shared).
void load_codeset(ansi_codeset& s) {
  if (!s.override.empty()) {
    s.name = s.override;
  } else {
    const char* cs = nl_langinfo(CODESET);
    s.name = cs != nullptr ? cs : "";
  }
  s.utf8 = names_utf8(s.name);
}

ansi_codeset& codeset_state() {
  static ansi_codeset state;
  static std::once_flag once;
  std::call_once(once, [] { load_codeset(state); });
  return state;
}

// Converts with iconv. What the target cannot hold, and what the source does
// not encode, becomes the replacement (the target's default character), and
// the conversion goes on: as with the platform converters, no failure is
// reported for it. Returns 0, or the error number when the conversion could
// not be set up or failed for another reason.
int iconv_convert(const char* to, const char* from, const char* in, std::size_t in_len, std::size_t in_unit,
                  std::string_view replacement, std::string& out) {
  iconv_t cd = iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) return errno != 0 ? errno : EINVAL;
  out.clear();
  char buf[4096];
  auto* src = const_cast<char*>(in);
  std::size_t left = in_len;
  int error = 0;
  while (left > 0) {
    char* dst = buf;
    std::size_t room = sizeof buf;
    const std::size_t r = iconv(cd, &src, &left, &dst, &room);
    out.append(buf, sizeof buf - room);
    if (r != static_cast<std::size_t>(-1)) continue;
    if (errno == E2BIG) continue;
    if (errno == EILSEQ || errno == EINVAL) {
      out.append(replacement);
      const std::size_t skip = left < in_unit ? left : in_unit;
      src += skip;
      left -= skip;
      continue;
    }
    error = errno;
    break;
  }
  iconv_close(cd);
  return error;
}

// Wide text to the system code page; 0 or an error number.
int narrow_to_ansi(std::wstring_view wide, std::string& out) {
  if (tk_ansi_is_utf8()) {
    out.clear();
    tk_utf8_append(out, wide);
    return 0;
  }
  const std::string codeset = tk_ansi_codeset();
  return iconv_convert(codeset.c_str(), "WCHAR_T", reinterpret_cast<const char*>(wide.data()),
                       wide.size() * sizeof(wchar_t), sizeof(wchar_t), "?", out);
}

// The system code page to wide text; 0 or an error number.
int widen_from_ansi(std::string_view narrow, std::wstring& out) {
  out.clear();
  if (tk_ansi_is_utf8()) {
    tk_utf8_decode_append(out, narrow);
    return 0;
  }
  static constexpr wchar_t k_question = L'?';
  const std::string_view replacement(reinterpret_cast<const char*>(&k_question), sizeof k_question);
  std::string raw;
  const std::string codeset = tk_ansi_codeset();
  const int error = iconv_convert("WCHAR_T", codeset.c_str(), narrow.data(), narrow.size(), 1, replacement, raw);
  if (error != 0) return error;
  out.resize(raw.size() / sizeof(wchar_t));
  std::memcpy(out.data(), raw.data(), out.size() * sizeof(wchar_t));
  return 0;
}

}  // namespace

void tk_refresh_ansi_codeset() {
  auto& s = codeset_state();
  std::lock_guard lock(s.mutex);
  load_codeset(s);
}

void tk_override_ansi_codeset(const std::string& codeset) {
  auto& s = codeset_state();
  std::lock_guard lock(s.mutex);
  s.override = codeset;
  load_codeset(s);
}

bool tk_ansi_is_utf8() { return codeset_state().utf8.load(std::memory_order_relaxed); }

std::string tk_ansi_codeset() {
  auto& s = codeset_state();
  std::lock_guard lock(s.mutex);
  return s.utf8 ? std::string("UTF-8") : s.name;
}

bool tk_unicode_to_ansi1(std::wstring_view wide, std::string& out) {
  if (narrow_to_ansi(wide, out) != 0) return false;
  // The caller's buffer holds twice the units; longer text does not fit in a
  // double-byte page. UTF-8 text is never refused for its length.
  return out.size() <= wide.size() * 2 || tk_ansi_is_utf8();
}

bool tk_unicode_to_ansi2(const wchar_t* wide, std::string& out) {
  if (wide == nullptr) return false;
  return tk_unicode_to_ansi1(wide, out);
}

bool tk_unicode_to_ansi2(std::wstring_view wide, std::string& out) {
  if (narrow_to_ansi(wide, out) == 0) return true;
  LOG(1, "tk_unicode_to_ansi3 - return false");
  return false;
}

bool tk_ansi_to_unicode(std::string_view narrow, std::wstring& out) { return widen_from_ansi(narrow, out) == 0; }

bool tk_ansi_to_unicode(const char* narrow, std::wstring& out) {
  if (narrow == nullptr) return false;
  return tk_ansi_to_unicode(std::string_view(narrow), out);
}

std::string tk_to_ansi(std::wstring_view wide, int code_page) {
  if (code_page == tk_cp_utf8) return tk_to_utf8(wide);
  std::string out;
  const int error = narrow_to_ansi(wide, out);
  if (error != 0) throw tk_exception_ex("Cannot convert to ANSI string: ", error, 1);
  return out;
}

std::string tk_to_utf8(std::wstring_view wide) { return tk_utf8_encode(wide); }

std::wstring tk_utf8_to_wide(std::string_view text) { return tk_utf8_decode(text); }

std::wstring tk_ansi_to_wide(std::string_view text) {
  std::wstring out;
  const int error = widen_from_ansi(text, out);
  if (error != 0) throw tk_exception_ex("Cannot convert to UNICODE string: ", error, 1);
  return out;
}

std::wstring tk_to_wide(std::string_view text, int code_page) {
  if (code_page == tk_cp_utf8) return tk_utf8_to_wide(text);
  return tk_ansi_to_wide(text);
}

namespace {
template <class Out>
void bytes_to_hex(std::size_t count, const std::uint8_t* bytes, Out& out) {
  static constexpr char k_digits[] = "0123456789ABCDEF";
  out.clear();
  out.reserve(count * 2);
  for (std::size_t i = 0; i < count; ++i) {
    out.push_back(static_cast<typename Out::value_type>(k_digits[bytes[i] >> 4]));
    out.push_back(static_cast<typename Out::value_type>(k_digits[bytes[i] & 0x0F]));
  }
}

template <class Ch>
std::basic_string<Ch> trim_spaces(std::basic_string_view<Ch> text) {
  if (!text.empty() && text.find_first_not_of(Ch(' ')) == std::basic_string_view<Ch>::npos) {
    LOG(1, "Special processing for all-spaces-string");
    return {};
  }
  const auto first = text.find_first_not_of(Ch(' '));
  if (first == std::basic_string_view<Ch>::npos) return {};
  const auto last = text.find_last_not_of(Ch(' '));
  return std::basic_string<Ch>(text.substr(first, last - first + 1));
}

template <class Str, class View>
Str replace_all_impl(Str& text, View from, View to) {
  if (from.empty()) return text;
  std::size_t pos = 0;
  while ((pos = text.find(from, pos)) != Str::npos) {
    text.replace(pos, from.size(), to);
    pos += to.size();
  }
  return text;
}

template <class Str, class View, class Ch>
std::vector<Str> split_impl(View text, Ch separator) {
  std::vector<Str> pieces;
  if (text.empty()) return pieces;
  std::size_t start = 0;
  for (;;) {
    const std::size_t pos = text.find(separator, start);
    if (pos == View::npos) {
      pieces.emplace_back(text.substr(start));
      break;
    }
    pieces.emplace_back(text.substr(start, pos - start));
    start = pos + 1;
  }
  return pieces;
}
}  // namespace

void tk_bytes_to_hex(std::size_t count, const std::uint8_t* bytes, std::string& out) {
  bytes_to_hex(count, bytes, out);
}

void tk_bytes_to_whex(std::size_t count, const std::uint8_t* bytes, std::wstring& out) {
  bytes_to_hex(count, bytes, out);
}

std::string tk_trim(std::string_view text) { return trim_spaces(text); }
std::wstring tk_trim(std::wstring_view text) { return trim_spaces(text); }

wchar_t tk_fold_case(wchar_t c) {
  if (c < 0x80) return (c >= 'A' && c <= 'Z') ? static_cast<wchar_t>(c + 32) : c;
  return static_cast<wchar_t>(u_foldCase(static_cast<UChar32>(c), U_FOLD_CASE_DEFAULT));
}

wchar_t tk_to_lower(wchar_t c) {
  if (c < 0x80) return (c >= 'A' && c <= 'Z') ? static_cast<wchar_t>(c + 32) : c;
  return static_cast<wchar_t>(u_tolower(static_cast<UChar32>(c)));
}

wchar_t tk_to_upper(wchar_t c) {
  if (c < 0x80) return (c >= 'a' && c <= 'z') ? static_cast<wchar_t>(c - 32) : c;
  return static_cast<wchar_t>(u_toupper(static_cast<UChar32>(c)));
}

bool tk_is_alnum(wchar_t c) {
  if (c < 0x80) return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  return u_isalnum(static_cast<UChar32>(c)) != 0;
}

int tk_compare_no_case(std::wstring_view a, std::wstring_view b) {
  const std::size_t n = a.size() < b.size() ? a.size() : b.size();
  for (std::size_t i = 0; i < n; ++i) {
    const wchar_t x = tk_fold_case(a[i]);
    const wchar_t y = tk_fold_case(b[i]);
    if (x != y) return x < y ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

bool tk_equal_no_case(std::wstring_view a, std::wstring_view b) {
  return a.size() == b.size() && tk_compare_no_case(a, b) == 0;
}

namespace tk_string {

bool compare_no_case(std::string_view a, std::string_view b) {
  LOG(1, "tk_string::compare_no_case");
  return tk_equal_no_case(tk_utf8_decode(a), tk_utf8_decode(b));
}

std::string replace_all(std::string& text, std::string_view from, std::string_view to) {
  LOG(1, "tk_string::replace_all(%s,%s)", from, to);
  return replace_all_impl<std::string, std::string_view>(text, from, to);
}

std::vector<std::string> split(std::string_view text, char separator) {
  return split_impl<std::string>(text, separator);
}

}  // namespace tk_string

namespace tk_wstring {

std::wstring replace_all(std::wstring& text, std::wstring_view from, std::wstring_view to) {
  LOG(1, "tk_wstring::replace_all(%s,%s)", from, to);
  return replace_all_impl<std::wstring, std::wstring_view>(text, from, to);
}

bool split(std::wstring_view text, wchar_t separator, std::vector<std::wstring>& list) {
  LOG(1, "tk_wstring::split(%c)", separator);
  list = split_impl<std::wstring>(text, separator);
  return true;
}

}  // namespace tk_wstring

}  // namespace qb
