// UTF-8 <-> wide text codec used at the edges of the program.
//
// Wide text in this program is std::wstring holding one Unicode code point per
// element (wchar_t is 32 bits on Linux). The codec is lenient in the way the
// platform converters are: an invalid UTF-8 sequence decodes to U+FFFD, and a
// code point that cannot be encoded (above U+10FFFF) encodes as U+FFFD. Lone
// surrogates are carried through as three-byte sequences so that text read
// from a UCS-2 source survives a round trip through our own code.
//
// Thread-safety: all functions are reentrant.
#pragma once

#include <string>
#include <string_view>

namespace qb {

void tk_utf8_append(std::string& out, std::wstring_view text);
void tk_utf8_append(std::string& out, wchar_t code_point);
std::string tk_utf8_encode(std::wstring_view text);

void tk_utf8_decode_append(std::wstring& out, std::string_view text);
std::wstring tk_utf8_decode(std::string_view text);

// True when every byte sequence of text is well-formed UTF-8.
bool tk_is_valid_utf8(std::string_view text);

}  // namespace qb
