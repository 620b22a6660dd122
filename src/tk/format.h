// printf-style formatting that is type-safe and platform-neutral.
//
// Log lines, messages and SQL fragments of this program are written as
// printf format strings ("Converting table %s (%I64u records)\r\n"). The
// formatter below accepts those strings unchanged, with the conventions of the
// platform they were written for:
//   - "%s" takes any string, narrow or wide; a narrow format receives wide
//     text as UTF-8 and a wide format receives narrow text decoded from UTF-8;
//   - integer conversions without a 64-bit length modifier ("ll", "I64", "j",
//     "z", "t", "q") work on 32 bits, so "%08X" of -1 prints "FFFFFFFF" and
//     "%ld" is 32 bits wide; "h" and "hh" narrow to 16 and 8 bits;
//   - an argument of the wrong kind never causes undefined behaviour: a number
//     given to "%s" prints as a number, text given to "%d" prints as text, a
//     missing argument prints nothing.
//
// Thread-safety: all functions are reentrant.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>

namespace qb {

// One argument of a formatted call; holds a view, so it must not outlive the
// call that created it.
class fmt_arg {
 public:
  enum class kind : std::uint8_t { sint, uint, real, text, wtext, pointer };

  template <class T>
    requires(std::is_integral_v<T> && std::is_signed_v<T> && !std::is_same_v<T, char> &&
             !std::is_same_v<T, wchar_t>)
  fmt_arg(T v) : kind_(kind::sint), i_(v) {}  // NOLINT(google-explicit-constructor)

  template <class T>
    requires(std::is_integral_v<T> && std::is_unsigned_v<T> && !std::is_same_v<T, bool> &&
             !std::is_same_v<T, char8_t> && !std::is_same_v<T, char16_t> &&
             !std::is_same_v<T, char32_t>)
  fmt_arg(T v) : kind_(kind::uint), u_(v) {}  // NOLINT(google-explicit-constructor)

  fmt_arg(bool v) : kind_(kind::sint), i_(v ? 1 : 0) {}                       // NOLINT
  fmt_arg(char v) : kind_(kind::sint), i_(static_cast<unsigned char>(v)) {}   // NOLINT
  fmt_arg(wchar_t v) : kind_(kind::sint), i_(static_cast<std::int64_t>(v)) {}  // NOLINT
  fmt_arg(char32_t v) : kind_(kind::uint), u_(v) {}                           // NOLINT
  fmt_arg(float v) : kind_(kind::real), d_(v) {}                              // NOLINT
  fmt_arg(double v) : kind_(kind::real), d_(v) {}                             // NOLINT
  fmt_arg(long double v) : kind_(kind::real), d_(static_cast<double>(v)) {}   // NOLINT
  fmt_arg(const char* s) : kind_(kind::text), s_(s ? s : "") {}               // NOLINT
  fmt_arg(const std::string& s) : kind_(kind::text), s_(s) {}                 // NOLINT
  fmt_arg(std::string_view s) : kind_(kind::text), s_(s) {}                   // NOLINT
  fmt_arg(const wchar_t* s) : kind_(kind::wtext), w_(s ? s : L"") {}          // NOLINT
  fmt_arg(const std::wstring& s) : kind_(kind::wtext), w_(s) {}               // NOLINT
  fmt_arg(std::wstring_view s) : kind_(kind::wtext), w_(s) {}                 // NOLINT
  fmt_arg(const void* p) : kind_(kind::pointer), p_(p) {}                     // NOLINT

  [[nodiscard]] kind get_kind() const { return kind_; }
  [[nodiscard]] std::int64_t as_sint() const;
  [[nodiscard]] std::uint64_t as_uint() const;
  [[nodiscard]] double as_real() const;
  [[nodiscard]] std::string_view text() const { return s_; }
  [[nodiscard]] std::wstring_view wtext() const { return w_; }
  [[nodiscard]] const void* pointer() const { return p_; }

 private:
  kind kind_;
  union {
    std::int64_t i_;
    std::uint64_t u_;
    double d_;
    const void* p_;
  };
  std::string_view s_;
  std::wstring_view w_;
};

using fmt_args = std::initializer_list<fmt_arg>;

// Formats into narrow text (UTF-8 for any wide argument).
std::string tk_vformat(std::string_view format, fmt_args args);
// Formats into wide text.
std::wstring tk_vwformat(std::wstring_view format, fmt_args args);

// Appends the formatted text to out; avoids a temporary where the caller
// builds a longer text.
void tk_vformat_append(std::string& out, std::string_view format, fmt_args args);

template <class... A>
std::string tk_format(std::string_view format, const A&... args) {
  return tk_vformat(format, {fmt_arg(args)...});
}

template <class... A>
std::wstring tk_wformat(std::wstring_view format, const A&... args) {
  return tk_vwformat(format, {fmt_arg(args)...});
}

}  // namespace qb
