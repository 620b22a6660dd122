#include "tk/utf.h"

#include <cstdint>

namespace qb {
namespace {

constexpr char32_t k_replacement = 0xFFFD;

// Length of the sequence that starts with lead byte b, 0 for an invalid lead.
int sequence_length(unsigned char b) {
  if (b < 0x80) return 1;
  if (b < 0xC2) return 0;
  if (b < 0xE0) return 2;
  if (b < 0xF0) return 3;
  if (b < 0xF5) return 4;
  return 0;
}

bool is_continuation(unsigned char b) { return (b & 0xC0) == 0x80; }

// Decodes one sequence at text[pos]; advances pos past what was consumed.
char32_t decode_one(std::string_view text, std::size_t& pos) {
  const auto lead = static_cast<unsigned char>(text[pos]);
  const int len = sequence_length(lead);
  if (len == 1) {
    ++pos;
    return lead;
  }
  if (len == 0 || pos + static_cast<std::size_t>(len) > text.size()) {
    ++pos;
    return k_replacement;
  }
  char32_t cp = lead & (0x7F >> len);
  for (int i = 1; i < len; ++i) {
    const auto b = static_cast<unsigned char>(text[pos + static_cast<std::size_t>(i)]);
    if (!is_continuation(b)) {
      pos += static_cast<std::size_t>(i);
      return k_replacement;
    }
    cp = (cp << 6) | (b & 0x3F);
  }
  // Overlong three- and four-byte forms and values above U+10FFFF.
  if ((len == 3 && cp < 0x800) || (len == 4 && (cp < 0x10000 || cp > 0x10FFFF))) {
    pos += static_cast<std::size_t>(len);
    return k_replacement;
  }
  pos += static_cast<std::size_t>(len);
  return cp;
}

}  // namespace

void tk_utf8_append(std::string& out, wchar_t code_point) {
  auto cp = static_cast<std::uint32_t>(code_point);
  if (cp > 0x10FFFF) cp = k_replacement;
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

void tk_utf8_append(std::string& out, std::wstring_view text) {
  out.reserve(out.size() + text.size());
  for (wchar_t c : text) {
    if (static_cast<std::uint32_t>(c) < 0x80) {
      out.push_back(static_cast<char>(c));
    } else {
      tk_utf8_append(out, c);
    }
  }
}

std::string tk_utf8_encode(std::wstring_view text) {
  std::string out;
  tk_utf8_append(out, text);
  return out;
}

void tk_utf8_decode_append(std::wstring& out, std::string_view text) {
  out.reserve(out.size() + text.size());
  std::size_t pos = 0;
  while (pos < text.size()) {
    const auto b = static_cast<unsigned char>(text[pos]);
    if (b < 0x80) {
      out.push_back(static_cast<wchar_t>(b));
      ++pos;
      continue;
    }
    out.push_back(static_cast<wchar_t>(decode_one(text, pos)));
  }
}

std::wstring tk_utf8_decode(std::string_view text) {
  std::wstring out;
  tk_utf8_decode_append(out, text);
  return out;
}

bool tk_is_valid_utf8(std::string_view text) {
  std::size_t pos = 0;
  while (pos < text.size()) {
    const std::size_t before = pos;
    const char32_t cp = decode_one(text, pos);
    // A genuine U+FFFD is three bytes EF BF BD; a replacement for bad input
    // consumes a different number of bytes or other bytes.
    if (cp == k_replacement && text.substr(before, pos - before) != "\xEF\xBF\xBD") return false;
  }
  return true;
}

}  // namespace qb
