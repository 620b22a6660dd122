#include "ole/guid.h"

#include <gtest/gtest.h>

#include "tk/exception.h"

#include "support/temp_dir.h"

namespace qb {
namespace {

constexpr const wchar_t* plain = L"01234567-89ab-cdef-0123-456789ABCDEF";

TEST(OleGuid, PlainFormIsValid) {
  test::log_capture log;
  ole_guid_extractor g{std::wstring_view(plain)};
  ASSERT_TRUE(g.is_valid());
  EXPECT_TRUE(log.has_line("Checking simple form (1)"));
  EXPECT_EQ(g.get_guid_wstr(), L"0123456789abcdef0123456789ABCDEF");
  EXPECT_EQ(g.to_wstring(), plain);
  std::array<std::uint8_t, 16> bytes{};
  g.get_bytes(bytes);
  const std::array<std::uint8_t, 16> expected = {0x67, 0x45, 0x23, 0x01, 0xab, 0x89, 0xef, 0xcd,
                                                 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
  EXPECT_EQ(bytes, expected);
}

TEST(OleGuid, SpacesAroundAreTrimmed) {
  ole_guid_extractor g{std::wstring(L"   ") + plain + L"  "};
  ASSERT_TRUE(g.is_valid());
  EXPECT_EQ(g.to_string(), "01234567-89ab-cdef-0123-456789ABCDEF");
}

TEST(OleGuid, OnlyTheAlphabetIsChecked) {
  ole_guid_extractor dashes{std::wstring_view(L"------------------------------------")};
  EXPECT_TRUE(dashes.is_valid());
  std::array<std::uint8_t, 16> bytes{};
  EXPECT_THROW(dashes.get_bytes(bytes), tk_mail_assertion);
  ole_guid_extractor misplaced{std::wstring_view(L"0123456789ab-cdef-0123-456789ABCDEF-")};
  EXPECT_TRUE(misplaced.is_valid());
  test::log_capture log;
  ole_guid_extractor bad{std::wstring_view(L"01234567-89ab-cdef-0123-456789ABCDEG")};
  EXPECT_FALSE(bad.is_valid());
  EXPECT_TRUE(log.has_line("Simple form (1) of GUID is NOT valid"));
}

TEST(OleGuid, BracedFormLeavesPositionOnTheClosingBrace) {
  ole_guid_extractor g{std::wstring(L"{") + plain + L"}"};
  ASSERT_TRUE(g.is_valid());
  EXPECT_EQ(g.pos(), 37);
  EXPECT_EQ(g.to_wstring(), L"}");
  EXPECT_EQ(g.to_string(), "}");
  EXPECT_EQ(g.get_guid_wstr(), L"0123456789abcdef0123456789ABCDEF");
  EXPECT_EQ(g.pos(), 0);
  EXPECT_EQ(g.to_wstring(), std::wstring(L"{") + std::wstring(plain).substr(0, 35));
  test::log_capture log;
  ole_guid_extractor bad{std::wstring_view(L"{01234567-89ab-cdef-0123-456789ABCDEX}")};
  EXPECT_FALSE(bad.is_valid());
  EXPECT_TRUE(log.has_line("Simple form (2) of GUID is NOT valid"));
}

TEST(OleGuid, LocatesGuidKeywordFollowedByBracedGuid) {
  test::log_capture log;
  ole_guid_extractor g{std::wstring(L"guid{") + plain + L"}"};
  ASSERT_TRUE(g.is_valid());
  EXPECT_TRUE(log.has_line("Locating 'guid' (0 : -1)"));
  EXPECT_TRUE(log.has_line("GUID is valid"));
  EXPECT_EQ(g.pos(), 4);
  EXPECT_EQ(g.get_guid_wstr(), L"0123456789abcdef0123456789ABCDEF");
  EXPECT_EQ(g.to_wstring(), std::wstring(L"{") + std::wstring(plain).substr(0, 35));
  ole_guid_extractor upper{std::wstring(L"x GUID {") + plain + L"}"};
  EXPECT_TRUE(upper.is_valid());
  ole_guid_extractor none{std::wstring(L"abcd{") + plain + L"}"};
  EXPECT_FALSE(none.is_valid());
  ole_guid_extractor no_brace{std::wstring(L"guid ") + plain + L"  x"};
  EXPECT_FALSE(no_brace.is_valid());
}

TEST(OleGuid, LengthLimits) {
  test::log_capture log;
  EXPECT_FALSE(ole_guid_extractor{std::wstring_view(L"0123")}.is_valid());
  EXPECT_TRUE(log.has_line("Text is too short for GUID"));
  EXPECT_FALSE(ole_guid_extractor{std::wstring(46, L'a')}.is_valid());
  EXPECT_TRUE(log.has_line("Text is too long for GUID(2)"));
  EXPECT_FALSE(ole_guid_extractor{std::wstring(91, L' ')}.is_valid());
  EXPECT_TRUE(log.has_line("Text is too long for GUID(1)"));
  EXPECT_FALSE(ole_guid_extractor{std::string_view("not a guid")}.is_valid());
  ole_guid_extractor narrow{std::string_view("01234567-89ab-cdef-0123-456789abcdef")};
  EXPECT_TRUE(narrow.is_valid());
  ole_guid_extractor invalid{std::wstring_view(L"x")};
  EXPECT_EQ(invalid.get_guid_wstr(), L"");
  EXPECT_EQ(invalid.to_string(), "");
}

}  // namespace
}  // namespace qb
