#include "mss/utf16.h"

namespace qb {

namespace {

constexpr char32_t replacement = 0xFFFD;

bool is_high(char32_t u) { return u >= 0xD800 && u <= 0xDBFF; }
bool is_low(char32_t u) { return u >= 0xDC00 && u <= 0xDFFF; }

char32_t combine(char32_t high, char32_t low) { return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00); }

// Decodes units [0, n) to out, which has room for n code points, and
// returns the number written: a pair becomes one code point, a lone
// surrogate stays as it is. When hold_last is set, a high surrogate in the
// last place is not written but left in held (0 otherwise).
std::size_t decode(wchar_t* out, const SQLWCHAR* text, std::size_t n, bool hold_last, char16_t& held) {
  held = 0;
  wchar_t* p = out;
  std::size_t i = 0;
  while (i < n) {
    // The common case: a run without surrogates. Whole blocks of units are
    // tested and widened a block at a time (loops of a fixed count that the
    // compiler turns into vector code), the rest unit by unit.
    constexpr std::size_t block = 16;
    while (n - i >= block) {
      unsigned surrogates = 0;
      for (std::size_t k = 0; k < block; ++k) surrogates |= ((text[i + k] & 0xF800U) == 0xD800U) ? 1U : 0U;
      if (surrogates != 0) break;
      for (std::size_t k = 0; k < block; ++k) p[k] = static_cast<wchar_t>(text[i + k]);
      p += block;
      i += block;
    }
    while (i < n && (text[i] & 0xF800U) != 0xD800U) *p++ = static_cast<wchar_t>(text[i++]);
    if (i == n) break;
    const char32_t u = text[i];
    if (is_high(u)) {
      if (i + 1 < n && is_low(text[i + 1])) {
        *p++ = static_cast<wchar_t>(combine(u, text[i + 1]));
        i += 2;
        continue;
      }
      if (i + 1 == n && hold_last) {
        held = static_cast<char16_t>(u);
        break;
      }
    }
    *p++ = static_cast<wchar_t>(u);  // a lone surrogate is kept
    ++i;
  }
  return static_cast<std::size_t>(p - out);
}

// Appends the decoded units to out.
char16_t append_decoded(std::wstring& out, const SQLWCHAR* text, std::size_t n, bool hold_last) {
  const std::size_t old = out.size();
  out.resize(old + n);
  char16_t held = 0;
  const std::size_t written = decode(out.data() + old, text, n, hold_last, held);
  out.resize(old + written);
  return held;
}

}  // namespace

void odb_append_utf16(std::u16string& out, std::wstring_view text) {
  out.reserve(out.size() + text.size());
  for (const wchar_t wc : text) {
    auto c = static_cast<char32_t>(wc);
    if (c > 0x10FFFF) c = replacement;
    if (c < 0x10000) {
      out.push_back(static_cast<char16_t>(c));  // the BMP, lone surrogates included
    } else {
      c -= 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (c >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
    }
  }
}

std::u16string odb_to_utf16(std::wstring_view text) {
  std::u16string out;
  odb_append_utf16(out, text);
  return out;
}

void odb_append_from_utf16(std::wstring& out, const SQLWCHAR* text, std::size_t units) {
  append_decoded(out, text, units, false);
}

std::wstring odb_from_utf16(const SQLWCHAR* text, std::size_t units) {
  std::wstring out;
  odb_append_from_utf16(out, text, units);
  return out;
}

std::wstring odb_from_utf16(std::u16string_view text) {
  return odb_from_utf16(reinterpret_cast<const SQLWCHAR*>(text.data()), text.size());
}

void odb_utf16_decoder::append(std::wstring& out, const SQLWCHAR* text, std::size_t units) {
  if (units == 0) return;
  if (pending_ != 0) {
    const char16_t high = pending_;
    pending_ = 0;
    if (is_low(text[0])) {
      out.push_back(static_cast<wchar_t>(combine(high, text[0])));
      ++text;
      --units;
    } else {
      out.push_back(static_cast<wchar_t>(high));
    }
  }
  pending_ = append_decoded(out, text, units, true);
}

void odb_utf16_decoder::finish(std::wstring& out) {
  if (pending_ != 0) out.push_back(static_cast<wchar_t>(pending_));
  pending_ = 0;
}

}  // namespace qb
