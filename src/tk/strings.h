// Text encodings and small string helpers.
//
// Wide text is std::wstring throughout the program: one Unicode code point per
// element (wchar_t is 32 bits on Linux), so that character counts and name
// length limits are counts of characters. Three narrow encodings meet here,
// and which one a conversion uses is part of its behaviour:
//   - the system code page ("ANSI", page 0): the codeset of the process locale
//     (nl_langinfo(CODESET)); a process that never chose a locale (plain "C",
//     whose codeset is ASCII) is treated as UTF-8, the Debian norm;
//   - the thread's code page (page 3): the same as the system code page here;
//   - UTF-8 (page 65001).
// A character that the system code page cannot hold becomes '?', the page's
// default character, with no failure reported, as the platform converters do;
// so does a byte sequence that the page does not define, on the way in.
//
// Thread-safety: all functions are reentrant.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tk/format.h"

namespace qb {

inline constexpr int tk_cp_ansi = 0;
inline constexpr int tk_cp_thread = 3;
inline constexpr int tk_cp_utf8 = 65001;

// True when the system code page is UTF-8 (then conversions take the fast path).
bool tk_ansi_is_utf8();
// The name of the system code page's codeset, for messages and tests.
std::string tk_ansi_codeset();
// Re-reads the codeset after the process changed its locale.
void tk_refresh_ansi_codeset();
// Takes the named iconv codeset as the system code page instead of the
// locale's, or goes back to the locale's for an empty name. For tests on
// machines where no locale of that codeset is installed.
void tk_override_ansi_codeset(const std::string& codeset);

// --- Conversions that report by their result ---------------------------------
// Wide to the system code page, into a buffer of at most twice the units:
// false when the text does not fit (never for a UTF-8 page).
bool tk_unicode_to_ansi1(std::wstring_view wide, std::string& out);
// The same for a text that may be null: a null text is false.
bool tk_unicode_to_ansi2(const wchar_t* wide, std::string& out);
// Wide to the system code page, exact length. Logs
// "tk_unicode_to_ansi3 - return false" when it fails.
bool tk_unicode_to_ansi2(std::wstring_view wide, std::string& out);
// The system code page to wide (precomposed characters).
bool tk_ansi_to_unicode(std::string_view narrow, std::wstring& out);
// The same for a text that may be null: a null text is false.
bool tk_ansi_to_unicode(const char* narrow, std::wstring& out);

// --- Conversions that throw tk_exception_ex ------------------------------------
// The texts are "Cannot convert to ANSI string: " and "Cannot convert to
// UNICODE string: " followed by the system's text for the error. The UTF-8
// codec itself never fails (see tk/utf.h), so tk_to_utf8 and tk_utf8_to_wide
// do not throw.
// Wide to the given code page; -1 means the system code page.
std::string tk_to_ansi(std::wstring_view wide, int code_page = -1);
std::string tk_to_utf8(std::wstring_view wide);
std::wstring tk_utf8_to_wide(std::string_view text);
std::wstring tk_ansi_to_wide(std::string_view text);
// Narrow text of a code page to wide; -1 means the system code page.
std::wstring tk_to_wide(std::string_view text, int code_page);

// --- Hexadecimal -------------------------------------------------------------
// Two upper-case digits a byte.
void tk_bytes_to_hex(std::size_t count, const std::uint8_t* bytes, std::string& out);
void tk_bytes_to_whex(std::size_t count, const std::uint8_t* bytes, std::wstring& out);

// --- Trimming (spaces only, both ends) ---------------------------------------
std::string tk_trim(std::string_view text);
std::wstring tk_trim(std::wstring_view text);

// --- Case-insensitive comparison and character classes -------------------------
// Unicode case-insensitive equality of wide text (full case folding of each
// code point); the stand-in for the platform's ignore-case string compare.
bool tk_equal_no_case(std::wstring_view a, std::wstring_view b);
// Three-way case-insensitive order (negative, 0, positive).
int tk_compare_no_case(std::wstring_view a, std::wstring_view b);
// Simple case folding of one code point.
wchar_t tk_fold_case(wchar_t c);
wchar_t tk_to_lower(wchar_t c);
wchar_t tk_to_upper(wchar_t c);
// A letter or digit of any script.
bool tk_is_alnum(wchar_t c);

namespace tk_string {
// Case-insensitive equality of narrow text (read as UTF-8). Logs
// "tk_string::compare_no_case".
bool compare_no_case(std::string_view a, std::string_view b);
// Replaces every match, left to right; the search resumes behind the inserted
// text. Changes text in place and returns a copy.
std::string replace_all(std::string& text, std::string_view from, std::string_view to);
// Splits at each separator; empty pieces are kept, an empty text gives none.
std::vector<std::string> split(std::string_view text, char separator);
}  // namespace tk_string

namespace tk_wstring {
std::wstring replace_all(std::wstring& text, std::wstring_view from, std::wstring_view to);
// Replaces list with the pieces and returns true. Logs "tk_wstring::split(%c)".
bool split(std::wstring_view text, wchar_t separator, std::vector<std::wstring>& list);
}  // namespace tk_wstring

}  // namespace qb
