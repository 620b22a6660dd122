// UTF-16 <-> wide text (UTF-32) at the ODBC boundary.
//
// Text crosses ODBC as SQLWCHAR, two bytes a unit (unixODBC's SQLWCHAR is an
// unsigned short), while the program holds wide text as one code point a
// wchar_t. These functions are the one place where the two meet:
//   - a surrogate pair becomes one code point, and a code point above U+FFFF
//     becomes a pair;
//   - a lone surrogate (SQL Server's nvarchar is UCS-2 and can hold one) is
//     kept as the code point of that surrogate, in both directions, so a value
//     read from the server survives unchanged;
//   - a wide character above U+10FFFF (which no UTF-16 can hold) becomes
//     U+FFFD.
// odb_utf16_decoder reads a text that arrives in pieces (SQLGetData in a
// loop), where a pair may be split between two pieces.
//
// The UTF-16 side is held in std::u16string; odb_sqlwchar() gives the pointer
// that the ODBC functions take.
//
// Thread-safety: all functions are reentrant; a decoder belongs to one caller.
#pragma once

#include <sql.h>
#include <sqlext.h>
#include <sqlucode.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace qb {

static_assert(sizeof(SQLWCHAR) == sizeof(char16_t), "SQLWCHAR must be a UTF-16 unit");

// Wide text to UTF-16.
std::u16string odb_to_utf16(std::wstring_view text);
void odb_append_utf16(std::u16string& out, std::wstring_view text);

// UTF-16 to wide text.
std::wstring odb_from_utf16(std::u16string_view text);
std::wstring odb_from_utf16(const SQLWCHAR* text, std::size_t units);
// Appends; reserves once and converts in one pass.
void odb_append_from_utf16(std::wstring& out, const SQLWCHAR* text, std::size_t units);

// The pointer the ODBC W functions take. The text must outlive the call.
inline SQLWCHAR* odb_sqlwchar(std::u16string& text) { return reinterpret_cast<SQLWCHAR*>(text.data()); }
inline const SQLWCHAR* odb_sqlwchar(const std::u16string& text) {
  return reinterpret_cast<const SQLWCHAR*>(text.data());
}

// Decodes a UTF-16 text given in pieces. A high surrogate at the end of one
// piece waits for the next; finish() writes a surrogate still waiting as it
// is.
class odb_utf16_decoder {
 public:
  void append(std::wstring& out, const SQLWCHAR* text, std::size_t units);
  void finish(std::wstring& out);

 private:
  char16_t pending_ = 0;  // a high surrogate from the end of the last piece
};

}  // namespace qb
