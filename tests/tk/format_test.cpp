#include "tk/format.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace qb {
namespace {

TEST(Format, IntegersWithoutLengthAre32Bits) {
  EXPECT_EQ(tk_format("%08X", -1), "FFFFFFFF");
  EXPECT_EQ(tk_format("%d", 0x1'0000'0001LL), "1");
  EXPECT_EQ(tk_format("%ld", -5), "-5");
  EXPECT_EQ(tk_format("%u", -1), "4294967295");
}

TEST(Format, SixtyFourBitModifiers) {
  EXPECT_EQ(tk_format("%I64u", std::uint64_t{18446744073709551615ULL}), "18446744073709551615");
  EXPECT_EQ(tk_format("%I64d", std::int64_t{-9223372036854775807LL - 1}), "-9223372036854775808");
  EXPECT_EQ(tk_format("%lld|%llu|%zu", -1LL, 2ULL, std::size_t{3}), "-1|2|3");
}

TEST(Format, ShortModifiersNarrow) {
  EXPECT_EQ(tk_format("%hd", 65535), "-1");
  EXPECT_EQ(tk_format("%hhu", 257), "1");
}

TEST(Format, PaddingAndPrecision) {
  EXPECT_EQ(tk_format("%02d:%02d:%02d ", 7, 5, 3), "07:05:03 ");
  EXPECT_EQ(tk_format("%04d-%02d-%02d", 1, 2, 3), "0001-02-03");
  EXPECT_EQ(tk_format("%.6e", 1.5), "1.500000e+00");
  EXPECT_EQ(tk_format("%.16e", 0.1), "1.0000000000000001e-01");
  EXPECT_EQ(tk_format("[%5s|%-5s]", "ab", "cd"), "[   ab|cd   ]");
  EXPECT_EQ(tk_format("%.2s", "abcdef"), "ab");
  EXPECT_EQ(tk_format("%*d", 4, 7), "   7");
}

TEST(Format, StringsOfEitherWidthInNarrowFormat) {
  EXPECT_EQ(tk_format("name=%s, owner=%s", std::wstring(L"t\u00e4b"), "dbo"), "name=t\xc3\xa4" "b, owner=dbo");
  const wchar_t* w = L"\U0001F600";
  EXPECT_EQ(tk_format("%s", w), "\xF0\x9F\x98\x80");
  EXPECT_EQ(tk_format("%c", L'\u00e9'), "\xc3\xa9");
}

TEST(Format, StringsOfEitherWidthInWideFormat) {
  EXPECT_EQ(tk_wformat(L"Converting table %s (%I64u records)\r\n", std::wstring(L"[dbo].[\u00fc]"), std::uint64_t{0}),
            L"Converting table [dbo].[\u00fc] (0 records)\r\n");
  EXPECT_EQ(tk_wformat(L"%s|%s", "caf\xc3\xa9", std::string("x")), L"caf\u00e9|x");
  EXPECT_EQ(tk_wformat(L"%.3s", L"\U0001F600abc"), L"\U0001F600ab");
}

TEST(Format, WrongKindsAndMissingArgumentsAreSafe) {
  EXPECT_EQ(tk_format("%d", "text"), "text");
  EXPECT_EQ(tk_format("%s", 42), "42");
  EXPECT_EQ(tk_format("a%db%sc"), "abc");
  EXPECT_EQ(tk_format("100%%"), "100%");
  EXPECT_EQ(tk_format("trailing %"), "trailing ");
}

TEST(Format, NullPointersPrintEmpty) {
  const char* n = nullptr;
  const wchar_t* wn = nullptr;
  EXPECT_EQ(tk_format("<%s%s>", n, wn), "<>");
}

TEST(Format, LoneSurrogatesSurviveWideRoundTrip) {
  std::wstring s;
  s.push_back(static_cast<wchar_t>(0xD800));
  EXPECT_EQ(tk_wformat(L"%s", s), s);
}

}  // namespace
}  // namespace qb
