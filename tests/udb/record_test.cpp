#include "udb/record.h"

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace qb {
namespace {

TEST(UdbField, ConstructorLogsNameAndSize) {
  test::log_capture log;
  const udb_field f(L"qty", 4, ole_variant(12), true, false);
  EXPECT_TRUE(log.has_line("udb_field::ctor #2"));
  EXPECT_TRUE(log.has_line("name=qty, size=4"));
  EXPECT_EQ(f.get_type(), 3);
  EXPECT_TRUE(f.b_auto_num);
  EXPECT_FALSE(f.b_not_null);
}

TEST(UdbField, EmptyConstructorGivesEmptyValueAndName) {
  test::log_capture log;
  const udb_field f;
  EXPECT_TRUE(log.has_line("udb_field::empty ctor"));
  EXPECT_EQ(f.get_type(), 0);
  EXPECT_TRUE(f.name.empty());
  EXPECT_EQ(f.size, 0U);
}

TEST(UdbField, CopyTakesValueSizeNameAndFlags) {
  const udb_field f(L"note", 9, ole_variant(std::wstring(L"hello")), false, true);
  test::log_capture log;
  const udb_field copy(f);
  EXPECT_TRUE(log.has_line("udb_field::copy ctor"));
  EXPECT_EQ(copy.to_wstring(), L"hello");
  EXPECT_EQ(copy.size, 9U);
  EXPECT_EQ(copy.name, L"note");
  EXPECT_FALSE(copy.b_auto_num);
  EXPECT_TRUE(copy.b_not_null);
}

TEST(UdbField, GetTypeLogs) {
  const udb_field f(L"x", 0, ole_variant(1.5));
  test::log_capture log;
  EXPECT_EQ(f.get_type(), 5);
  EXPECT_TRUE(log.has_line("ole_variant::get_type"));
}

TEST(UdbField, LengthOfTextIsItsCharacterCount) {
  const udb_field f(L"t", 100, ole_variant(std::wstring(L"abcd")));
  EXPECT_EQ(f.get_length(), 4U);
}

TEST(UdbField, LengthOfByteArrayIsItsElementCount) {
  const udb_field f(L"b", 100, ole_variant(std::vector<std::uint8_t>{1, 2, 3}));
  EXPECT_EQ(f.get_type(), 8209);
  EXPECT_EQ(f.get_length(), 3U);
}

TEST(UdbField, LengthOfBlobIsItsElementCount) {
  ole_variant blob(std::vector<std::uint8_t>{1, 2, 3, 4, 5});
  blob.change_type(ole_variant::vt_blob);
  const udb_field f(L"b", 1, blob);
  EXPECT_EQ(f.get_type(), 65);
  EXPECT_EQ(f.get_length(), 5U);
}

// Byte arrays of the value type are always one-dimensional, so every value
// that is not one takes the type rule: text by its length, the rest by size.
TEST(UdbField, LengthOfOtherValuesIsTheSize) {
  EXPECT_EQ(udb_field(L"n", 4, ole_variant(7)).get_length(), 4U);
  EXPECT_EQ(udb_field(L"d", 8, ole_variant(2.5)).get_length(), 8U);
  EXPECT_EQ(udb_field(L"z", 6, ole_variant::make_null()).get_length(), 6U);
}

udb_record sample() {
  udb_record r;
  r.emplace_back(L"id", 4, ole_variant(1));
  r.emplace_back(L"Name", 20, ole_variant(std::wstring(L"Ada")));
  return r;
}

TEST(UdbRecord, FieldLookupIgnoresCase) {
  test::log_capture log;
  udb_record r;
  r.emplace_back(L"code", 4, ole_variant(1));
  r.emplace_back(L"id", 4, ole_variant(2));
  udb_field* f = r.get_field(L"ID");
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(f->name, L"id");
  EXPECT_TRUE(log.has_line("udb_record::get_field(ID)"));
  EXPECT_TRUE(log.has_line("Field found at pos=1"));
  EXPECT_TRUE(r.has_field(L"CODE"));
}

TEST(UdbRecord, AbsentFieldGivesNothing) {
  const udb_record r = sample();
  EXPECT_EQ(r.get_field(L"missing"), nullptr);
  EXPECT_FALSE(r.has_field(L"missing"));
}

TEST(UdbRecord, AllEmptyFieldsHaveTotalSizeZero) {
  test::log_capture log;
  udb_record r;
  r.emplace_back(L"a", 100, ole_variant());
  r.emplace_back(L"b", 50, ole_variant());
  EXPECT_EQ(r.get_total_size(), 0U);
  EXPECT_TRUE(log.has_line("udb_record::get_total_size"));
}

TEST(UdbRecord, TotalSizeAddsLengthsOfValues) {
  udb_record r = sample();
  r.emplace_back(L"blob", 1000, ole_variant(std::vector<std::uint8_t>(10, 0xAB)));
  r.emplace_back(L"none", 300, ole_variant());
  EXPECT_EQ(r.get_total_size(), 4U + 3U + 10U);
}

TEST(UdbRecord, SubscriptIsRangeChecked) {
  udb_record r = sample();
  EXPECT_EQ(r[1].name, L"Name");
  try {
    (void)r[2];
    FAIL() << "no exception";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "invalid vector subscript");
  }
}

TEST(UdbRecord, DestructorLogsAndResetKeepsNothing) {
  test::log_capture log;
  {
    udb_record r = sample();
    r.reset();
    EXPECT_TRUE(r.empty());
  }
  EXPECT_TRUE(log.has_line("udb_record::dtor"));
  EXPECT_TRUE(log.has_line("udb_record::reset"));
}

TEST(UdbRecord, RefillingAReusedRecordKeepsFieldOrder) {
  udb_record reused = sample();
  const udb_record next = sample();
  reused = next;
  ASSERT_EQ(reused.size(), 2U);
  EXPECT_EQ(reused[0].name, L"id");
  EXPECT_EQ(reused[1].to_wstring(), L"Ada");
}

}  // namespace
}  // namespace qb
