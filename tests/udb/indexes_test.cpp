#include "udb/indexes.h"

#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tk/exception.h"
#include "udb/relationships.h"

#include "support/temp_dir.h"

namespace qb {
namespace {

udb_index plain(const std::wstring& name, std::vector<std::wstring> fields = {L"a"}) {
  return udb_index(name, false, false, std::move(fields));
}
udb_index unique(const std::wstring& name, std::vector<std::wstring> fields = {L"a"}) {
  return udb_index(name, true, false, std::move(fields));
}
udb_index primary(const std::wstring& name, std::vector<std::wstring> fields = {L"id"}) {
  return udb_index(name, true, true, std::move(fields));
}
udb_index constraint(const std::wstring& name, std::vector<std::wstring> fields = {L"a"}) {
  return udb_index(name, true, false, std::move(fields), true);
}

TEST(UdbIndex, ConstructorLogsNameAndFlags) {
  test::log_capture log;
  const udb_index index(L"pk_orders", true, true, {L"id"});
  EXPECT_TRUE(log.has_line("udb_index::ctor('pk_orders',1,1)"));
  EXPECT_FALSE(index.b_constraint);
  EXPECT_TRUE(index.included.empty());
}

TEST(UdbIndex, StartsWithFieldsIgnoringCase) {
  test::log_capture log;
  const udb_index index = plain(L"ix", {L"A", L"b", L"c"});
  EXPECT_TRUE(index.starts_with_fields({L"a", L"B"}));
  EXPECT_TRUE(log.has_line("udb_index(ix)::starts_with_fields"));
  EXPECT_TRUE(log.has_line("this.size=3, that.size=2"));
  EXPECT_TRUE(log.has_line("starts_with_fields returns true"));
}

TEST(UdbIndex, StartsWithFieldsRefusesMismatchAndLongerList) {
  test::log_capture log;
  const udb_index index = plain(L"ix", {L"a", L"b"});
  EXPECT_FALSE(index.starts_with_fields({L"b"}));
  EXPECT_TRUE(log.has_line("Field 'b' not found"));
  EXPECT_FALSE(index.starts_with_fields({L"a", L"b", L"c"}));
  EXPECT_TRUE(index.starts_with_fields({}));
}

TEST(UdbIndexes, PrimaryKeyReplacesPlainIndexOfSameName) {
  test::log_capture log;
  udb_indexes list;
  list.push_back(plain(L"k", {L"x"}));
  list.push_back(primary(L"K", {L"id"}));
  ASSERT_EQ(list.size(), 1U);
  EXPECT_TRUE(list[0].b_primary);
  EXPECT_EQ(list[0].fields, std::vector<std::wstring>{L"id"});
  EXPECT_TRUE(log.has_line("udb_indexes::push_back(k)"));
  EXPECT_TRUE(log.has_line("Index does not exist, add it"));
  EXPECT_TRUE(log.has_line("Upgrade existing index to primary key."));
}

TEST(UdbIndexes, PlainIndexAfterPrimaryKeyLeavesPrimaryKey) {
  test::log_capture log;
  udb_indexes list;
  list.push_back(primary(L"k"));
  list.push_back(plain(L"k", {L"x"}));
  ASSERT_EQ(list.size(), 1U);
  EXPECT_TRUE(list[0].b_primary);
  EXPECT_EQ(list[0].fields, std::vector<std::wstring>{L"id"});
  EXPECT_TRUE(log.has_line("Primary key with the same name exists, skip it."));
}

TEST(UdbIndexes, UniqueConstraintOverUniqueIndexReplacesItThenStops) {
  test::log_capture log;
  udb_indexes list;
  list.push_back(unique(L"u", {L"a"}));
  list.push_back(constraint(L"u", {L"a", L"b"}));
  ASSERT_EQ(list.size(), 1U);
  EXPECT_TRUE(list[0].b_constraint);
  EXPECT_EQ(list[0].fields, (std::vector<std::wstring>{L"a", L"b"}));
  EXPECT_TRUE(log.has_line("Set unique constraint attributes for existing index."));
  // The walk goes on with the updated, unique entry and ends at the next rule.
  EXPECT_TRUE(log.has_line("Unique index with the same name exists, skip it."));
  EXPECT_FALSE(log.has_line("Set unique attribute for existing index."));
}

TEST(UdbIndexes, ConstraintIsKeptAgainstLaterUniqueIndex) {
  test::log_capture log;
  udb_indexes list;
  list.push_back(constraint(L"u", {L"a"}));
  list.push_back(unique(L"u", {L"z"}));
  EXPECT_TRUE(list[0].b_constraint);
  EXPECT_EQ(list[0].fields, std::vector<std::wstring>{L"a"});
  EXPECT_TRUE(log.has_line("Unique constraint with the same name exists, skip it."));
}

TEST(UdbIndexes, UniqueIndexUpgradesPlainIndex) {
  test::log_capture log;
  udb_indexes list;
  list.push_back(plain(L"i", {L"a"}));
  list.push_back(unique(L"i", {L"b"}));
  EXPECT_TRUE(list[0].b_unique);
  EXPECT_EQ(list[0].fields, std::vector<std::wstring>{L"b"});
  EXPECT_TRUE(log.has_line("Set unique attribute for existing index."));
}

TEST(UdbIndexes, UniqueIndexIsKeptAgainstLaterPlainIndex) {
  udb_indexes list;
  list.push_back(unique(L"i", {L"a"}));
  list.push_back(plain(L"i", {L"b"}));
  EXPECT_EQ(list[0].fields, std::vector<std::wstring>{L"a"});
}

TEST(UdbIndexes, TwoPlainIndexesOfSameNameChangeNothing) {
  udb_indexes list;
  list.push_back(plain(L"i", {L"a"}));
  list.push_back(plain(L"I", {L"b"}));
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(list[0].name, L"i");
  EXPECT_EQ(list[0].fields, std::vector<std::wstring>{L"a"});
}

TEST(UdbIndexes, PushBackDirectRefusesExistingName) {
  test::log_capture log;
  udb_indexes list;
  list.push_back_direct(plain(L"i", {L"a"}));
  list.push_back_direct(primary(L"I"));
  ASSERT_EQ(list.size(), 1U);
  EXPECT_FALSE(list[0].b_primary);
  EXPECT_TRUE(log.has_line("udb_indexes::push_back_direct(I)"));
  EXPECT_TRUE(log.has_line("Index with the same name exists"));
}

TEST(UdbIndexes, GetIndexIgnoresCaseAndAssertsOnUnknownName) {
  test::log_capture log;
  udb_indexes list;
  list.push_back(plain(L"IX_Name"));
  EXPECT_EQ(list.get_index(L"ix_name").name, L"IX_Name");
  EXPECT_TRUE(log.has_line("udb_indexes::get_index(ix_name)"));
  EXPECT_THROW((void)list.get_index(L"other"), tk_mail_assertion);
}

TEST(UdbIndexes, AcceptableNameIsOneNotInUse) {
  test::log_capture log;
  udb_indexes list;
  list.push_back(plain(L"IX_Name"));
  EXPECT_FALSE(list.is_acceptable_name(L"ix_NAME"));
  EXPECT_TRUE(list.is_acceptable_name(L"ix_other"));
  EXPECT_TRUE(log.has_line("udb_indexes::is_acceptable_name(ix_other)"));
}

TEST(UdbIndexes, IndexFieldComparesExactly) {
  test::log_capture log;
  udb_indexes list;
  list.push_back(plain(L"ix", {L"Name"}));
  EXPECT_TRUE(list.is_idx_field(L"Name", false));
  EXPECT_TRUE(log.has_line("index field"));
  EXPECT_FALSE(list.is_idx_field(L"name", false));
  EXPECT_TRUE(log.has_line("udb_indexes::is_idx_field(name)"));
}

TEST(UdbIndexes, PrimaryOnlyWithoutPrimaryKeyIsNonIndexField) {
  test::log_capture log;
  udb_indexes list;
  list.push_back(unique(L"ux", {L"id"}));
  EXPECT_FALSE(list.is_idx_field(L"id", true));
  EXPECT_TRUE(log.has_line("non-index field"));
  EXPECT_FALSE(log.has_line("index field"));
}

TEST(UdbIndexes, EmptyFieldListMatchesFirstIndex) {
  test::log_capture log;
  udb_indexes list;
  EXPECT_FALSE(list.has_index_on_fields({}, false));
  list.push_back(plain(L"ix", {L"a"}));
  list.push_back(unique(L"ux", {L"b"}));
  EXPECT_TRUE(list.has_index_on_fields({}, false));
  EXPECT_TRUE(log.has_line("udb_indexes::has_index_on_fields"));
  // The first index decides: it is not unique.
  EXPECT_FALSE(list.has_index_on_fields({}, true));
}

TEST(UdbIndexes, FirstMatchingIndexDecidesUniqueness) {
  udb_indexes list;
  list.push_back(plain(L"ix", {L"a", L"b"}));
  list.push_back(unique(L"ux", {L"a"}));
  EXPECT_FALSE(list.has_index_on_fields({L"A"}, true));
  EXPECT_TRUE(list.has_index_on_fields({L"A"}, false));
  EXPECT_FALSE(list.has_index_on_fields({L"c"}, false));
}

TEST(UdbIndexes, SubscriptIsRangeChecked) {
  udb_indexes list;
  list.push_back(plain(L"ix"));
  try {
    (void)list[1];
    FAIL() << "no exception";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "invalid vector subscript");
  }
}

// --- Relationships -------------------------------------------------------------

udb_relationships sample_relationships() {
  udb_relationships rels;
  rels.push_back(
      udb_rel(L"fk_owner", L"dbo", L"dbo.orders", L"dbo.customers", {L"customer_id"}, {L"id"}, L" ON UPDATE CASCADE"));
  rels.push_back(udb_rel(L"fk_owner", L"dbo", L"dbo.invoices", L"dbo.customers", {L"cust"}, {L"id"}, L""));
  return rels;
}

TEST(UdbRelationships, ConstructorTakesArgumentsInRecordOrder) {
  const udb_rel rel(L"n", L"o", L"child", L"parent", {L"c1"}, {L"p1"}, L" ON DELETE CASCADE");
  EXPECT_EQ(rel.fk_table, L"child");
  EXPECT_EQ(rel.pk_table, L"parent");
  EXPECT_EQ(rel.fk_fields, std::vector<std::wstring>{L"c1"});
  EXPECT_EQ(rel.pk_fields, std::vector<std::wstring>{L"p1"});
  EXPECT_EQ(rel.properties, L" ON DELETE CASCADE");
}

TEST(UdbRelationships, FindComparesAllThreeIgnoringCase) {
  test::log_capture log;
  const udb_relationships rels = sample_relationships();
  EXPECT_TRUE(rels.find(L"FK_OWNER", L"DBO.Customers", L"dbo.ORDERS"));
  EXPECT_TRUE(log.has_line("udb_relationships::find(FK_OWNER,DBO.Customers,dbo.ORDERS)"));
}

TEST(UdbRelationships, NameBetweenOtherTablesIsNotFound) {
  const udb_relationships rels = sample_relationships();
  EXPECT_FALSE(rels.find(L"fk_owner", L"dbo.customers", L"dbo.payments"));
  EXPECT_FALSE(rels.find(L"fk_owner", L"dbo.orders", L"dbo.customers"));
}

TEST(UdbRelationships, GetReturnsRecordToExtend) {
  udb_relationships rels = sample_relationships();
  udb_rel& rel = rels.get(L"fk_owner", L"dbo.customers", L"dbo.invoices");
  rel.fk_fields.push_back(L"cust2");
  rel.pk_fields.push_back(L"id2");
  EXPECT_EQ(rels[1].fk_fields, (std::vector<std::wstring>{L"cust", L"cust2"}));
  EXPECT_EQ(rels[0].fk_fields, std::vector<std::wstring>{L"customer_id"});
}

TEST(UdbRelationships, UnknownTripleIsAnInternalError) {
  udb_relationships rels = sample_relationships();
  try {
    (void)rels.get(L"fk_owner", L"dbo.customers", L"dbo.payments");
    FAIL() << "no assertion";
  } catch (const tk_mail_assertion& e) {
    EXPECT_EQ(e.text(), make_err_meggase("udb_rel", 177));
  }
}

TEST(UdbRelationships, GetIndexByNameAlone) {
  udb_relationships rels = sample_relationships();
  EXPECT_EQ(rels.get_index(L"FK_Owner").fk_table, L"dbo.orders");
  try {
    (void)rels.get_index(L"fk_none");
    FAIL() << "no assertion";
  } catch (const tk_mail_assertion& e) {
    EXPECT_EQ(e.text(), make_err_meggase("udb_rel", 160));
  }
}

TEST(UdbRelationships, AcceptableNameIsOneNotInUse) {
  const udb_relationships rels = sample_relationships();
  EXPECT_FALSE(rels.is_acceptable_name(L"FK_OWNER"));
  EXPECT_TRUE(rels.is_acceptable_name(L"fk_other"));
}

}  // namespace
}  // namespace qb
