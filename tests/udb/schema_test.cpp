#include "udb/schema.h"

#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace qb {
namespace {

t_ftd column(std::uint16_t vartype, std::uint32_t size = 0, const std::wstring& name = L"c") {
  t_ftd f;
  f.name = name;
  f.vartype = vartype;
  f.size = size;
  return f;
}

udb_schema schema_of(std::initializer_list<t_ftd> columns) {
  udb_schema s;
  for (const t_ftd& c : columns) s.push_back(c);
  return s;
}

TEST(TFtd, Ctor2LogsAttributesAndStartsNumbersAtZero) {
  test::log_capture log;
  const t_ftd f(20, L"name", 8, true, false, ole_variant(), 1, L"VARCHAR(20)");
  EXPECT_TRUE(log.has_line("t_ftd::ctor2"));
  EXPECT_TRUE(log.has_line("\tfield name='name', vartype=8, size=20, b_not_null=1, reserved=1"));
  EXPECT_EQ(f.prec, 0U);
  EXPECT_EQ(f.scale, 0U);
  EXPECT_TRUE(f.description.empty());
  EXPECT_EQ(f.native_type, L"VARCHAR(20)");
  EXPECT_FALSE(f.b_auto_num);
}

TEST(TFtd, CopyTakesEveryMember) {
  t_ftd f(10, L"amount", 14, true, true, ole_variant(5), 9, L"DECIMAL(10,2)");
  f.prec = 10;
  f.scale = 2;
  f.description = L"money";
  const t_ftd copy = f;
  EXPECT_EQ(copy.size, 10U);
  EXPECT_EQ(copy.prec, 10U);
  EXPECT_EQ(copy.scale, 2U);
  EXPECT_EQ(copy.name, L"amount");
  EXPECT_EQ(copy.vartype, 14);
  EXPECT_EQ(copy.native_type, L"DECIMAL(10,2)");
  EXPECT_TRUE(copy.b_auto_num);
  EXPECT_TRUE(copy.b_not_null);
  EXPECT_EQ(copy.def_value.get_type(), 3);
  EXPECT_EQ(copy.dw_reserved, 9U);
  EXPECT_EQ(copy.description, L"money");
}

TEST(TFtd, DecimalAndCurrencyCountAsOneType) {
  test::log_capture log;
  EXPECT_TRUE(column(14, 5) == column(6, 99));
  EXPECT_TRUE(column(6) == column(14));
  EXPECT_TRUE(column(14).conform_to(column(6)));
  EXPECT_TRUE(log.has_line("Src and dest columns are identical"));
}

TEST(TFtd, EqualityIgnoresSizeExceptForText) {
  EXPECT_TRUE(column(3, 4) == column(3, 8));
  EXPECT_FALSE(column(3) == column(20));
  EXPECT_TRUE(column(8, 10) == column(8, 10));
  EXPECT_FALSE(column(8, 10) == column(8, 11));
  EXPECT_TRUE(column(3, 4, L"a") == column(3, 4, L"b"));
}

TEST(TFtd, TextIntoSameSizeTextIsIdenticalAtOnce) {
  test::log_capture log;
  EXPECT_TRUE(column(8, 50).conform_to(column(8, 50)));
  EXPECT_TRUE(log.has_line("Src and dest columns are identical"));
  EXPECT_FALSE(log.has_line("that.type=8"));
}

TEST(TFtd, TextIntoShorterTextOnlyWhenUnlimitedOrLong) {
  test::log_capture log;
  EXPECT_FALSE(column(8, 50).conform_to(column(8, 49)));
  EXPECT_TRUE(log.has_line("that.type=8"));
  EXPECT_TRUE(log.has_line("Src and dest columns are both text"));
  EXPECT_TRUE(column(8, 50).conform_to(column(8, 0)));
  EXPECT_TRUE(column(8, 70000).conform_to(column(8, 65535)));
  EXPECT_FALSE(column(8, 70000).conform_to(column(8, 65534)));
  EXPECT_TRUE(column(8, 10).conform_to(column(8, 11)));
  EXPECT_TRUE(column(31, 10).conform_to(column(30, 10)));
}

TEST(TFtd, DateTextOfExactly19CharactersFitsDate) {
  test::log_capture log;
  EXPECT_TRUE(column(8, 19).conform_to(column(7)));
  EXPECT_TRUE(log.has_line("Processing VT_DATE, size=19"));
  EXPECT_FALSE(column(8, 18).conform_to(column(7)));
  EXPECT_FALSE(column(8, 20).conform_to(column(7)));
  EXPECT_FALSE(column(3).conform_to(column(7)));
}

TEST(TFtd, IntIsNoNumberSourceThoughItIsADestination) {
  EXPECT_FALSE(column(22).conform_to(column(3)));
  EXPECT_FALSE(column(23).conform_to(column(3)));
  EXPECT_TRUE(column(3).conform_to(column(22)));
  EXPECT_TRUE(column(11).conform_to(column(20)));
  EXPECT_FALSE(column(8, 5).conform_to(column(3)));
  EXPECT_FALSE(column(7).conform_to(column(5)));
}

TEST(TFtd, NumberFitsTextOfAnyLength) {
  EXPECT_TRUE(column(3).conform_to(column(8, 1)));
  EXPECT_TRUE(column(7).conform_to(column(8, 1)));
}

TEST(TFtd, BinaryDoesNotFitText) {
  EXPECT_FALSE(column(65).conform_to(column(8, 0)));
  EXPECT_FALSE(column(8209, 4).conform_to(column(8, 100)));
  EXPECT_FALSE(column(70).conform_to(column(31)));
}

TEST(TFtd, BinaryDestinationTakesOthersAndGoesBySizeForTextAndBinary) {
  test::log_capture log;
  EXPECT_TRUE(column(8, 30).conform_to(column(65, 0)));
  EXPECT_TRUE(log.has_line("Src is BLOB and dest is TEXT"));
  EXPECT_TRUE(column(7).conform_to(column(65, 1)));
  EXPECT_FALSE(column(8209, 30).conform_to(column(65, 29)));
  EXPECT_TRUE(column(8209, 30).conform_to(column(70, 30)));
}

TEST(TFtd, UnknownDestinationTypesRefuseEverything) {
  EXPECT_FALSE(column(3).conform_to(column(9000)));
  EXPECT_FALSE(column(8).conform_to(column(72)));
  EXPECT_TRUE(column(72).conform_to(column(72)));
}

TEST(UdbSchema, TwoWordsAreOneAfterConstructionAndTravelWithCopies) {
  udb_schema s(false);
  EXPECT_EQ(s.word1(), 1U);
  EXPECT_EQ(s.word2(), 1U);
  s.set_words(7, 8);
  const udb_schema copy = s;
  EXPECT_EQ(copy.word1(), 7U);
  EXPECT_EQ(copy.word2(), 8U);
  EXPECT_FALSE(copy.b_owner());
}

TEST(UdbSchema, CopyIsIndependentAndOutlivesOriginal) {
  auto original = std::make_unique<udb_schema>();
  original->push_back(column(8, 10, L"name"));
  const udb_schema copy = *original;
  (*original)[0].size = 99;
  original.reset();
  ASSERT_EQ(copy.size(), 1U);
  EXPECT_EQ(copy[0].name, L"name");
  EXPECT_EQ(copy[0].size, 10U);
}

TEST(UdbSchema, FindFieldIgnoresCaseAndLogsTheWalk) {
  test::log_capture log;
  const udb_schema s = schema_of({column(3, 0, L"id"), column(8, 5, L"Name")});
  EXPECT_TRUE(s.find_field(L"NAME"));
  EXPECT_TRUE(log.has_line("udb_schema::find_field(NAME)"));
  EXPECT_TRUE(log.has_line("Schema size=2"));
  EXPECT_TRUE(log.has_line("Iterating field #1"));
  EXPECT_TRUE(log.has_line("Compare with field: 'Name'"));
  EXPECT_TRUE(log.has_line("Field found!!!"));
  EXPECT_FALSE(s.find_field(L"other"));
  EXPECT_TRUE(log.has_line("Field NOT found!!!"));
}

TEST(UdbSchema, GetFieldFindsColumnForChange) {
  test::log_capture log;
  udb_schema s = schema_of({column(3, 0, L"id"), column(8, 5, L"Name")});
  s.get_field1(L"name").size = 40;
  EXPECT_EQ(s[1].size, 40U);
  EXPECT_TRUE(log.has_line("udb_schema::get_field1(name)"));
  EXPECT_EQ(s.get_field2(L"ID").vartype, 3);
  EXPECT_TRUE(log.has_line("udb_schema::get_field2(ID)"));
}

TEST(UdbSchema, AbsentFieldGivesEmptyDescriptor) {
  test::log_capture log;
  const udb_schema s = schema_of({column(3, 4, L"id")});
  const t_ftd& f = s.get_field1(L"missing");
  EXPECT_TRUE(log.has_line("Field 'missing' not found"));
  EXPECT_TRUE(log.has_line("t_ftd::ctor2"));
  EXPECT_TRUE(f.name.empty());
  EXPECT_EQ(f.vartype, 0);
  EXPECT_EQ(f.size, 0U);
  EXPECT_EQ(s.get_field_idx(L"missing"), -1);
  EXPECT_EQ(s.get_field_idx(L"ID"), 0);
  EXPECT_EQ(s.get_field_size(L"id"), 4U);
  EXPECT_EQ(s.get_field_type(L"id"), 3);
  EXPECT_EQ(s.get_field_size(L"missing"), 0U);
  EXPECT_EQ(s.get_field_type(L"missing"), 0);
}

TEST(UdbSchema, SubscriptIsRangeChecked) {
  const udb_schema s = schema_of({column(3)});
  try {
    (void)s[1];
    FAIL() << "no exception";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "invalid vector subscript");
  }
}

TEST(UdbSchema, DifferentColumnCountsFailBeforeAnyColumn) {
  test::log_capture log;
  const udb_schema src = schema_of({column(3)});
  const udb_schema dest = schema_of({column(3), column(8)});
  EXPECT_FALSE(src.conform_to(dest, false));
  EXPECT_TRUE(log.has_line("udb_schema::conform_to"));
  EXPECT_TRUE(log.has_line("Tables are not conformed: src_size=1, dest_size=2"));
  EXPECT_FALSE(log.has_line("t_ftd::conform_to"));
}

TEST(UdbSchema, EmptySchemasConform) { EXPECT_TRUE(udb_schema().conform_to(udb_schema(), false)); }

TEST(UdbSchema, PositionalComparisonIgnoresNames) {
  const udb_schema src = schema_of({column(3, 0, L"a"), column(8, 10, L"b")});
  const udb_schema dest = schema_of({column(20, 0, L"x"), column(8, 20, L"y")});
  EXPECT_TRUE(src.conform_to(dest, false));
}

TEST(UdbSchema, FirstRefusalIsLoggedWithColumnNumberFromOne) {
  test::log_capture log;
  const udb_schema src = schema_of({column(3, 0, L"a"), column(8, 30, L"b")});
  const udb_schema dest = schema_of({column(3, 0, L"a"), column(8, 20, L"b")});
  EXPECT_FALSE(src.conform_to(dest, false));
  EXPECT_TRUE(log.has_line("Column #2 doesn't conform (src_vt=8, src_size=30, dest_vt=8, dest_size=20)"));
}

TEST(UdbSchema, ByNameComparesColumnsOfTheSameName) {
  test::log_capture log;
  const udb_schema src = schema_of({column(3, 0, L"a"), column(8, 10, L"b")});
  const udb_schema dest = schema_of({column(8, 10, L"B"), column(3, 0, L"A")});
  EXPECT_FALSE(src.conform_to(dest, false));
  EXPECT_TRUE(src.conform_to(dest, true));
  const udb_schema other = schema_of({column(8, 10, L"b"), column(3, 0, L"c")});
  EXPECT_FALSE(src.conform_to(other, true));
  EXPECT_TRUE(log.has_line("Field 'a' is not found in record"));
}

TEST(UdbSchema, ResetEmptiesAndLogs) {
  test::log_capture log;
  udb_schema s = schema_of({column(3), column(8)});
  s.reset();
  EXPECT_TRUE(s.empty());
  EXPECT_TRUE(log.has_line("udb_schema::reset"));
  EXPECT_TRUE(log.has_line("udb_schema::reset - END"));
}

TEST(UdbSchema, AssignFieldsTakesColumnsAndFlags) {
  udb_schema from(false);
  from.set_words(3, 4);
  from.push_back(column(3, 0, L"new"));
  udb_schema to = schema_of({column(8, 1, L"old"), column(8, 1, L"gone")});
  to.assign_fields(from);
  ASSERT_EQ(to.size(), 1U);
  EXPECT_EQ(to[0].name, L"new");
  EXPECT_FALSE(to.b_owner());
  EXPECT_EQ(to.word1(), 3U);
}

}  // namespace
}  // namespace qb
