#include "mss/utf16.h"

namespace qb {

namespace {

constexpr char32_t replacement = 0xFFFD;

bool is_high(char32_t u) { return u >= 0xD800 && u <= 0xDBFF; }
bool is_low(char32_t u) { return u >= 0xDC00 && u <= 0xDFFF; }

char32_t combine(char32_t high, char32_t low) { return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00); }

// Decodes units [0, n) into out (already reserved); a pair becomes one code
// point, a lone surrogate stays as it is. When hold_last is set, a high
// surrogate in the last place is not written but returned (0 otherwise).
char16_t decode(std::wstring& out, const SQLWCHAR* text, std::size_t n, bool hold_last) {
  std::size_t i = 0;
  while (i < n) {
    const char32_t u = text[i];
    if (u < 0xD800 || u > 0xDFFF) {
      out.push_back(static_cast<wchar_t>(u));
      ++i;
      continue;
    }
    if (is_high(u)) {
      if (i + 1 < n && is_low(text[i + 1])) {
        out.push_back(static_cast<wchar_t>(combine(u, text[i + 1])));
        i += 2;
        continue;
      }
      if (i + 1 == n && hold_last) return static_cast<char16_t>(u);
    }
    out.push_back(static_cast<wchar_t>(u));  // a lone surrogate is kept
    ++i;
  }
  return 0;
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
  out.reserve(out.size() + units);
  decode(out, text, units, false);
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
  out.reserve(out.size() + units + 1);
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
  pending_ = decode(out, text, units, true);
}

void odb_utf16_decoder::finish(std::wstring& out) {
  if (pending_ != 0) out.push_back(static_cast<wchar_t>(pending_));
  pending_ = 0;
}

}  // namespace qb
