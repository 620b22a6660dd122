#include "tk/strings.h"

#include <cerrno>
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tk/exception.h"

#include "support/log_lines.h"
#include "support/temp_dir.h"

namespace qb {
namespace {

using test::count_lines;
using test::log_capture;

// --- Trimming ------------------------------------------------------------------------

TEST(Trim, ThreeSpacesGiveEmptyTextWithTheSpecialLogLine) {
  log_capture log;
  EXPECT_EQ(tk_trim(std::string_view("   ")), "");
  EXPECT_EQ(count_lines(log.text(), "Special processing for all-spaces-string"), 1);
  EXPECT_EQ(tk_trim(std::wstring_view(L"   ")), L"");
  EXPECT_EQ(count_lines(log.text(), "Special processing for all-spaces-string"), 2);
}

TEST(Trim, TakesSpacesAtBothEndsAndLeavesTabsAndLineEnds) {
  log_capture log;
  EXPECT_EQ(tk_trim(std::string_view("  a b  ")), "a b");
  EXPECT_EQ(tk_trim(std::string_view(" \tx\r\n ")), "\tx\r\n");
  EXPECT_EQ(tk_trim(std::wstring_view(L" \u00e9 ")), L"\u00e9");
  EXPECT_EQ(tk_trim(std::string_view("")), "");
  EXPECT_EQ(count_lines(log.text(), "Special processing for all-spaces-string"), 0);
}

// --- replace_all -----------------------------------------------------------------------

TEST(ReplaceAll, ReplacementHoldingTheSearchedTextEndsAndReplacesEachMatchOnce) {
  log_capture log;
  std::string text = "a-a-a";
  const std::string copy = tk_string::replace_all(text, "a", "aa");
  EXPECT_EQ(text, "aa-aa-aa");
  EXPECT_EQ(copy, "aa-aa-aa");
  EXPECT_TRUE(log.has_line("tk_string::replace_all(a,aa)"));

  std::wstring wide = L"xyx";
  const std::wstring wcopy = tk_wstring::replace_all(wide, L"x", L"<x>");
  EXPECT_EQ(wide, L"<x>y<x>");
  EXPECT_EQ(wcopy, L"<x>y<x>");
  EXPECT_TRUE(log.has_line("tk_wstring::replace_all(x,<x>)"));
}

TEST(ReplaceAll, EmptySearchTextChangesNothing) {
  std::string text = "abc";
  EXPECT_EQ(tk_string::replace_all(text, "", "z"), "abc");
  EXPECT_EQ(text, "abc");
}

// --- split ---------------------------------------------------------------------------

TEST(Split, LeadingSeparatorGivesAnEmptyFirstPiece) {
  EXPECT_EQ(tk_string::split(",a,b", ','), (std::vector<std::string>{"", "a", "b"}));
  std::vector<std::wstring> list;
  EXPECT_TRUE(tk_wstring::split(L";a", L';', list));
  EXPECT_EQ(list, (std::vector<std::wstring>{L"", L"a"}));
}

TEST(Split, TrailingSeparatorGivesAnEmptyLastPiece) {
  EXPECT_EQ(tk_string::split("a,,b,", ','), (std::vector<std::string>{"a", "", "b", ""}));
  std::vector<std::wstring> list;
  EXPECT_TRUE(tk_wstring::split(L"a;", L';', list));
  EXPECT_EQ(list, (std::vector<std::wstring>{L"a", L""}));
}

TEST(Split, EmptyTextGivesNoPieces) {
  EXPECT_TRUE(tk_string::split("", ',').empty());
  std::vector<std::wstring> list{L"old"};
  EXPECT_TRUE(tk_wstring::split(L"", L';', list));
  EXPECT_TRUE(list.empty());
}

TEST(Split, WideSplitReplacesTheListAndLogsTheSeparator) {
  log_capture log;
  std::vector<std::wstring> list{L"old", L"older"};
  EXPECT_TRUE(tk_wstring::split(L"p|q", L'|', list));
  EXPECT_EQ(list, (std::vector<std::wstring>{L"p", L"q"}));
  EXPECT_TRUE(log.has_line("tk_wstring::split(|)"));
}

// --- Hexadecimal -----------------------------------------------------------------------

TEST(Hex, TwoUpperCaseDigitsForEachByte) {
  const std::uint8_t bytes[] = {0x00, 0x0F, 0xAB, 0x7E, 0xFF};
  std::string narrow = "left over";
  tk_bytes_to_hex(sizeof bytes, bytes, narrow);
  EXPECT_EQ(narrow, "000FAB7EFF");
  std::wstring wide = L"left over";
  tk_bytes_to_whex(sizeof bytes, bytes, wide);
  EXPECT_EQ(wide, L"000FAB7EFF");
  tk_bytes_to_hex(0, bytes, narrow);
  EXPECT_EQ(narrow, "");
}

// --- Case-insensitive comparison --------------------------------------------------------

TEST(CompareNoCase, IgnoresCaseBeyondAsciiAndLogs) {
  log_capture log;
  EXPECT_TRUE(
      tk_string::compare_no_case("Stra\xc3\x9f"
                                 "E",
                                 "STRA\xc3\x9f"
                                 "e"));
  EXPECT_FALSE(tk_string::compare_no_case("abc", "abd"));
  EXPECT_TRUE(log.has_line("tk_string::compare_no_case"));
  EXPECT_TRUE(tk_equal_no_case(L"\u00c9t\u00e9", L"\u00e9T\u00c9"));
}

// --- Conversions under a UTF-8 system code page ------------------------------------------

TEST(Utf8CodePage, NullTextsAreFalse) {
  std::string narrow = "x";
  EXPECT_FALSE(tk_unicode_to_ansi2(static_cast<const wchar_t*>(nullptr), narrow));
  std::wstring wide = L"x";
  EXPECT_FALSE(tk_ansi_to_unicode(static_cast<const char*>(nullptr), wide));
}

TEST(Utf8CodePage, ConversionsRoundTripEveryCharacter) {
  tk_override_ansi_codeset("UTF-8");
  const std::wstring text = L"a\u00e9\u4e2d\U0001F600";
  std::string narrow;
  EXPECT_TRUE(tk_unicode_to_ansi2(text, narrow));
  EXPECT_EQ(narrow, "a\xc3\xa9\xe4\xb8\xad\xf0\x9f\x98\x80");
  EXPECT_EQ(tk_ansi_to_wide(narrow), text);
  EXPECT_EQ(tk_to_ansi(text, tk_cp_utf8), narrow);
  EXPECT_EQ(tk_to_wide(narrow, tk_cp_utf8), text);
  tk_override_ansi_codeset("");
}

// --- A system code page that is not UTF-8 ------------------------------------------------

// Switches the process to the Windows Latin-1 page (CP1252) for one test: by
// a locale generated with localedef into the build tree, or, where locale
// sources are not installed, by handing the codeset to the converters
// directly. Either way the conversions go through iconv to CP1252.
class Cp1252CodePage : public ::testing::Test {
 protected:
  void SetUp() override {
    old_ctype_ = std::setlocale(LC_CTYPE, nullptr);
    if (!switch_locale()) {
      RecordProperty("code_page_source", "override");
      tk_override_ansi_codeset("CP1252");
    } else {
      RecordProperty("code_page_source", "locale");
    }
    ASSERT_FALSE(tk_ansi_is_utf8());
    ASSERT_EQ(tk_ansi_codeset(), "CP1252");
  }

  void TearDown() override {
    tk_override_ansi_codeset("");
    std::setlocale(LC_CTYPE, old_ctype_.c_str());
    tk_refresh_ansi_codeset();
  }

 private:
  static bool switch_locale() {
    namespace fs = std::filesystem;
    const fs::path root = fs::path(QB_TEST_BINARY_DIR) / "test-locales";
    const fs::path target = root / "en_US.CP1252";
    std::error_code ec;
    if (!fs::exists(target / "LC_CTYPE", ec)) {
      fs::create_directories(root, ec);
      const test::temp_dir scratch;
      const std::string built = scratch.file("en_US.CP1252");
      const std::string command = "localedef -i en_US -f CP1252 '" + built + "' >/dev/null 2>&1";
      if (std::system(command.c_str()) != 0) return false;
      fs::rename(built, target, ec);  // another test process may have won the race
    }
    const test::scoped_env locpath("LOCPATH", root.string());
    if (std::setlocale(LC_CTYPE, "en_US.CP1252") == nullptr) return false;
    tk_refresh_ansi_codeset();
    return true;
  }

  std::string old_ctype_;
};

TEST_F(Cp1252CodePage, CharacterThePageCannotHoldBecomesTheDefaultCharacterWithoutFailure) {
  log_capture log;
  const std::wstring text = L"caf\u00e9 \u4e2d\u6587 \u20ac";
  std::string narrow;
  EXPECT_TRUE(tk_unicode_to_ansi2(text, narrow));
  EXPECT_EQ(narrow, "caf\xe9 ?? \x80");
  EXPECT_TRUE(tk_unicode_to_ansi1(text, narrow));
  EXPECT_EQ(narrow, "caf\xe9 ?? \x80");
  EXPECT_EQ(tk_to_ansi(text), "caf\xe9 ?? \x80");
  EXPECT_EQ(tk_to_ansi(text, tk_cp_thread), "caf\xe9 ?? \x80");
  EXPECT_EQ(tk_exception(text, 0).text(), "caf\xe9 ?? \x80");
  EXPECT_EQ(count_lines(log.text(), "tk_unicode_to_ansi3 - return false"), 0);
  // UTF-8 stays UTF-8 whatever the system page is.
  EXPECT_EQ(tk_to_ansi(text, tk_cp_utf8), "caf\xc3\xa9 \xe4\xb8\xad\xe6\x96\x87 \xe2\x82\xac");
}

TEST_F(Cp1252CodePage, NarrowTextIsReadInThePage) {
  EXPECT_EQ(tk_ansi_to_wide("caf\xe9 \x80"), L"caf\u00e9 \u20ac");
  std::wstring wide;
  EXPECT_TRUE(tk_ansi_to_unicode(std::string_view("\xe9t\xe9"), wide));
  EXPECT_EQ(wide, L"\u00e9t\u00e9");
  // 0x81 has no character in CP1252: it becomes the default character.
  EXPECT_EQ(tk_ansi_to_wide("a\x81z"), L"a?z");
}

// --- Conversions that cannot be made ---------------------------------------------------

TEST(UnknownCodePage, ThrowingConversionsNameTheDirection) {
  log_capture log;
  tk_override_ansi_codeset("QB-NO-SUCH-CODESET");
  try {
    (void)tk_to_ansi(L"x");
    ADD_FAILURE() << "tk_to_ansi did not throw";
  } catch (const tk_exception& e) {
    EXPECT_STREQ(e.what(), "Cannot convert to ANSI string: Invalid argument");
    EXPECT_EQ(e.code(), static_cast<std::uint32_t>(EINVAL));
    EXPECT_EQ(e.level(), 1);
  }
  try {
    (void)tk_ansi_to_wide("x");
    ADD_FAILURE() << "tk_ansi_to_wide did not throw";
  } catch (const tk_exception& e) {
    EXPECT_STREQ(e.what(), "Cannot convert to UNICODE string: Invalid argument");
  }
  std::string narrow;
  EXPECT_FALSE(tk_unicode_to_ansi2(std::wstring_view(L"x"), narrow));
  EXPECT_TRUE(log.has_line("tk_unicode_to_ansi3 - return false"));
  std::wstring wide;
  EXPECT_FALSE(tk_ansi_to_unicode(std::string_view("x"), wide));
  tk_override_ansi_codeset("");
}

}  // namespace
}  // namespace qb
