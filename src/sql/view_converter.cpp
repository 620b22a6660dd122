#include "sql/view_converter.h"

#include <cstddef>
#include <string>
#include <string_view>

#include "tk/log.h"
#include "tk/strings.h"

namespace qb {

namespace {

constexpr std::size_t npos = std::wstring::npos;

// The length of "isnull": the check of a call's arguments always starts this
// far behind the word it was asked about, whichever word that is.
constexpr std::size_t isnull_length = 6;

bool is_blank_char(wchar_t c) { return c == L'\r' || c == L'\n' || c == L'\t' || c == L' '; }

// One rule of the function rewrite: every occurrence of word, from the start
// of the text, is handed to act, which may change the text at and behind the
// position. The search then goes on at the position plus the length of the
// searched word, not of whatever act wrote there.
template <class Act>
void scan_word(std::wstring& text, std::wstring_view word, Act act) {
  std::size_t pos = sql_view_converter::find_no_case(text, word, 0);
  while (pos != npos) {
    act(pos);
    pos = sql_view_converter::find_no_case(text, word, pos + word.size());
  }
}

// Replaces word by replacement at each occurrence; with only_when_one_comma,
// only where the call that follows has exactly one comma.
void replace_word(std::wstring& text, std::wstring_view word, std::wstring_view replacement, bool only_when_one_comma) {
  scan_word(text, word, [&](std::size_t pos) {
    if (only_when_one_comma && !sql_view_converter::check_isnull_for_replace(text, static_cast<int>(pos))) return;
    text.replace(pos, word.size(), replacement);
  });
}

// SQL Server's DATEDIFF takes the unit as its first argument, MySQL's does
// not: everything from the parenthesis up to and including the first comma
// behind it goes (to the end of the text when there is no comma).
void drop_datediff_unit(std::wstring& text) {
  constexpr std::wstring_view word = L"datediff(";
  scan_word(text, word, [&](std::size_t pos) {
    const std::size_t p = pos + word.size();
    const std::size_t comma = text.find(L',', p);
    const std::size_t length = comma == npos ? text.size() - p : comma - p + 1;
    LOG(1, "Erase at pos=%d, len=%d", static_cast<int>(p), static_cast<int>(length));
    text.erase(p, length);
  });
}

void replace_char(std::wstring& text, wchar_t from, std::wstring_view to) {
  for (std::size_t pos = text.find(from); pos != npos; pos = text.find(from, pos + to.size())) {
    text.replace(pos, 1, to);
  }
}

}  // namespace

std::size_t sql_view_converter::find_no_case(std::wstring_view text, std::wstring_view word, std::size_t from) {
  const std::size_t n = word.size();
  if (n == 0 || text.size() < n || from > text.size() - n) return npos;
  const wchar_t first = tk_to_lower(word[0]);
  for (std::size_t pos = from; pos + n <= text.size(); ++pos) {
    if (tk_to_lower(text[pos]) != first) continue;
    std::size_t i = 1;
    while (i < n && tk_to_lower(text[pos + i]) == tk_to_lower(word[i])) ++i;
    if (i == n) return pos;
  }
  return npos;
}

std::wstring sql_view_converter::compress_blanks(const std::wstring& text) {
  std::wstring out;
  out.reserve(text.size());
  bool in_single = false;
  bool in_double = false;
  bool in_run = false;
  for (const wchar_t c : text) {
    if (!in_single && !in_double && is_blank_char(c)) {
      if (!in_run) out.push_back(L' ');
      in_run = true;
      continue;
    }
    in_run = false;
    if (c == L'\'' && !in_double) in_single = !in_single;
    if (c == L'"' && !in_single) in_double = !in_double;
    out.push_back(c);
  }
  return out;
}

bool sql_view_converter::check_isnull_for_replace(const std::wstring& text, int pos) {
  LOG(1, "sql_view_converter::check_isnull_for_replace(%s,%d)", text, pos);
  if (pos < 0 || static_cast<std::size_t>(pos) >= text.size()) return false;
  const std::size_t start = static_cast<std::size_t>(pos) + isnull_length;
  if (start >= text.size()) return false;
  int depth = 0;
  int commas = 0;
  for (std::size_t i = start; i < text.size(); ++i) {
    const wchar_t c = text[i];
    if (c == L'(') {
      ++depth;
    } else if (c == L',') {
      ++commas;
    } else if (c == L')') {
      // A ")" with nothing open does not stop the walk: the depth goes below
      // zero and the walk goes on.
      if (depth-- == 1) break;
    }
  }
  return commas == 1;
}

std::wstring sql_view_converter::refine_view_in(sql_view_destination destination, const std::wstring& text,
                                                const udb_names_map& names, std::wstring_view left,
                                                std::wstring_view right) {
  if (destination == sql_view_destination::server) {
    LOG(2, "sql_database::refine_view_in(%s)", text);
  } else {
    LOG(2, "dmp_database::refine_view_in(%s)", text);
  }
  std::wstring result = compress_blanks(text);

  result = names.do_global_replace1(result, std::wstring(left), std::wstring(right));
  LOG(2, "After do_global_replace: result=%s", result);

  replace_char(result, L'[', left);
  replace_char(result, L']', right);
  LOG(2, "After replacing []: result=%s", result);

  replace_word(result, L"isnull", L"ifnull", true);
  replace_word(result, L"getdate", L"curdate", false);
  replace_word(result, L"time", L"curtime", false);
  replace_word(result, L"len(", L"length(", false);
  drop_datediff_unit(result);
  replace_word(result, L"dateadd", L"date_add", true);
  replace_word(result, L"replicate", L"repeat", true);

  result += L';';
  return result;
}

std::wstring sql_view_converter::refine_view_out(const std::wstring& text, const std::wstring& database) {
  LOG(2, "sql_database::refine_view_out(%s)", text);
  std::wstring result = text;

  // Only the first comment goes, and only when its end mark stands behind
  // its start mark ("/*/" counts: the marks share the star).
  const std::size_t open = result.find(L"/*");
  const std::size_t close = result.find(L"*/");
  if (open != npos && close != npos && close + 2 > open) result.erase(open, close + 2 - open);

  const std::wstring qualifier = L"`" + database + L"`.";
  for (std::size_t pos = find_no_case(result, qualifier, 0); pos != npos; pos = find_no_case(result, qualifier, 0)) {
    LOG(1, "Remove template found at pos=%d", static_cast<int>(pos));
    result.erase(pos, qualifier.size());
  }
  return result;
}

bool sql_view_converter::is_select_text(std::wstring_view text) {
  return text.size() >= 6 && find_no_case(text.substr(0, 6), L"select", 0) == 0;
}

std::wstring sql_view_converter::create_view_statement(std::wstring_view quoted_name, std::wstring_view refined) {
  std::wstring statement = L"CREATE OR REPLACE VIEW ";
  statement.append(quoted_name).append(L" AS ").append(refined);
  return statement;
}

}  // namespace qb
