#include "mss/view_cleaner.h"

#include <array>
#include <cstddef>
#include <string_view>
#include <utility>

#include "tk/log.h"
#include "tk/strings.h"

namespace qb {

namespace {

// Deleted in this order, each in one pass, with exact case: SQL Server's own
// tools write these words either all in upper case or all in lower case.
constexpr std::array<std::wstring_view, 12> deleted_texts = {
    L"TOP 100 PERCENT",
    L"top 100 percent",
    L"TOP (100) PERCENT",
    L"top (100) percent",
    L"WITH (NOLOCK)",
    L"with (nolock)",
    L"WITH SCHEMABINDING",
    L"with schemabinding",
    L"WITH VIEW_METADATA",
    L"with view_metadata",
    L"[",
    L"]",
};

// Position of the first "select", without regard to case; npos when none.
std::size_t find_select(const std::wstring& text) {
  constexpr std::wstring_view word = L"select";
  if (text.size() < word.size()) return std::wstring::npos;
  for (std::size_t pos = 0; pos + word.size() <= text.size(); ++pos) {
    std::size_t i = 0;
    while (i < word.size() && tk_to_lower(text[pos + i]) == word[i]) ++i;
    if (i == word.size()) return pos;
  }
  return std::wstring::npos;
}

}  // namespace

std::optional<std::wstring> mss_clean_view(const std::wstring& name, const std::wstring& definition,
                                           bool is_view_owned) {
  const std::size_t start = find_select(definition);
  if (start == std::wstring::npos) {
    LOG(2, "'select' not found in the view");
    return std::nullopt;
  }
  std::wstring text = definition.substr(start);
  LOG(2, "Got view #1: ('%s', '%s')", name, text);

  for (const std::wstring_view deleted : deleted_texts) tk_wstring::replace_all(text, deleted, L"");
  LOG(2, "Got view #2: ('%s', '%s')", name, text);

  if (is_view_owned) tk_wstring::replace_all(text, L"dbo.", L"");
  LOG(2, "Got view #3: ('%s', '%s')", name, text);

  text = tk_trim(text);
  LOG(2, "Got view: ('%s', '%s')", name, text);
  return text;
}

bool mss_add_clean_view(udb_view_list& views, const std::wstring& name, const std::wstring& definition,
                        bool is_view_owned) {
  std::optional<std::wstring> text = mss_clean_view(name, definition, is_view_owned);
  if (!text) return false;
  views.emplace_back(name, std::move(*text));
  return true;
}

}  // namespace qb
