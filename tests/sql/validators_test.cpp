// The name validators of the MySQL target and the engine that makes them.
#include "sql/validators.h"

#include <gtest/gtest.h>

#include "sql/engine.h"

#include "support/temp_dir.h"

namespace qb {
namespace {

udb_schema schema_of(std::initializer_list<const wchar_t*> names) {
  udb_schema schema;
  for (const wchar_t* name : names) {
    t_ftd f;
    f.name = name;
    f.vartype = ole_variant::vt_i4;
    schema.push_back(f);
  }
  return schema;
}

// --- New servers ---------------------------------------------------------------------------

TEST(SqlNewValidator, ReservedWordIsAFineColumnName) {
  const sql_new_fn_validator v(schema_of({L"order"}));
  EXPECT_TRUE(v.is_acceptable(L"order"));
  EXPECT_TRUE(v.is_acceptable(L"select"));
}

TEST(SqlNewValidator, SemicolonPassesOnlyAfterRepair) {
  const sql_new_fn_validator v(schema_of({L"a;b"}));
  EXPECT_FALSE(v.is_acceptable(L"a;b"));
  const std::wstring safe = v.get_safe_name(L"a;b");
  EXPECT_EQ(safe, L"a_b");
  EXPECT_TRUE(v.is_acceptable(safe));
}

TEST(SqlNewValidator, BarPassesAsColumnAndFailsAsTable) {
  const sql_new_fn_validator columns(schema_of({}));
  const sql_new_tn_validator tables({}, {});
  EXPECT_TRUE(columns.is_acceptable(L"a|b"));
  EXPECT_FALSE(tables.is_acceptable(L"a|b"));
  EXPECT_EQ(tables.get_safe_name(L"a|b"), L"a_b");
  const sql_new_in_validator indexes{udb_indexes()};
  EXPECT_TRUE(indexes.is_acceptable(L"a|b"));
  EXPECT_FALSE(indexes.is_acceptable(L"a+b"));
}

TEST(SqlNewValidator, SixtyFiveCharactersAreRefused) {
  test::log_capture log;
  const sql_new_tn_validator v({}, {});
  EXPECT_FALSE(v.is_acceptable(std::wstring(65, L'a')));
  EXPECT_TRUE(log.has_line("Invalid length"));
  EXPECT_TRUE(v.is_acceptable(std::wstring(64, L'a')));
  EXPECT_FALSE(v.is_acceptable(L""));
  EXPECT_EQ(v.get_safe_name(std::wstring(65, L'a')).size(), 63U);
}

TEST(SqlNewValidator, LeadingBlankIsRefusedAndTrimmed) {
  test::log_capture log;
  const sql_new_fn_validator v(schema_of({}));
  EXPECT_FALSE(v.is_acceptable(L" name"));
  EXPECT_FALSE(v.is_acceptable(L"name "));
  EXPECT_TRUE(log.has_line("ID cannot starts or ends with ' '"));
  EXPECT_EQ(v.get_safe_name(L" name "), L"name");
}

TEST(SqlNewValidator, RepairedNameAvoidsTheExistingNames) {
  const sql_new_fn_validator v(schema_of({L"a;b", L"a_b"}));
  EXPECT_EQ(v.get_safe_name(L"a;b"), L"a_b00000");
  const sql_new_tn_validator t({L"t_1"}, {L"v"});
  EXPECT_TRUE(t.is_duplicated(L"T_1"));
  EXPECT_TRUE(t.is_duplicated(L"V"));
}

TEST(SqlNewValidator, DatabaseNamesTakeTheTableCharacters) {
  sql_engine engine;
  engine.set_version(0x0A0B00);
  const auto v = engine.create_dn_validator();
  EXPECT_FALSE(v->is_acceptable(L"a/b"));
  EXPECT_TRUE(v->is_acceptable(L"2024"));
}

// --- Old servers -------------------------------------------------------------------------------

TEST(SqlOldValidator, ReservedWordIsRefused) {
  const sql_old_fn_validator v(schema_of({L"order"}));
  EXPECT_FALSE(v.is_acceptable(L"order"));
  EXPECT_FALSE(v.is_acceptable(L"ORDER"));
  EXPECT_EQ(v.get_safe_name(L"order"), L"order00000");
}

TEST(SqlOldValidator, RepairsToPlainIdentifiers) {
  const sql_old_tn_validator v({}, {});
  EXPECT_FALSE(v.is_acceptable(L"x-y"));
  EXPECT_EQ(v.get_safe_name(L"x-y"), L"x_y");
  EXPECT_FALSE(v.is_acceptable(L"2024"));
  EXPECT_EQ(v.get_safe_name(L"2024"), L"_024");
  EXPECT_TRUE(v.is_acceptable(L"a$b"));
  EXPECT_EQ(v.get_safe_name(L"a$b"), L"a$b");
}

TEST(SqlOldValidator, DatabaseMayNotStartWithADigit) {
  const sql_old_dn_validator db;
  const sql_old_tn_validator table({}, {});
  EXPECT_FALSE(db.is_acceptable(L"1sales"));
  EXPECT_TRUE(table.is_acceptable(L"1sales"));
  EXPECT_FALSE(db.is_acceptable(L""));
  EXPECT_TRUE(db.is_acceptable(L"sales1"));
}

TEST(SqlOldValidator, AccentedLetterPasses) {
  const sql_old_fn_validator v(schema_of({}));
  EXPECT_TRUE(v.is_acceptable(L"caf\u00e9"));
  EXPECT_TRUE(v.is_acceptable(L"\u00fcber_1"));
}

// --- The engine's factories ------------------------------------------------------------------------

TEST(SqlEngineValidators, FamilyFollowsTheVersion) {
  sql_engine engine;
  test::log_capture log;
  engine.set_version(0x031401);
  EXPECT_NE(dynamic_cast<sql_old_tn_validator*>(engine.create_tn_validator({}, {}).get()), nullptr);
  EXPECT_NE(dynamic_cast<sql_old_fn_validator*>(engine.create_fn_validator(udb_schema()).get()), nullptr);
  EXPECT_NE(dynamic_cast<sql_old_fn_validator*>(engine.create_fn_validator(udb_record()).get()), nullptr);
  EXPECT_NE(dynamic_cast<sql_old_in_validator*>(engine.create_in_validator(udb_indexes()).get()), nullptr);
  EXPECT_NE(dynamic_cast<sql_old_dn_validator*>(engine.create_dn_validator().get()), nullptr);
  EXPECT_TRUE(log.has_line("is_old_version(00031401)"));
  engine.set_version(0x040100);
  EXPECT_NE(dynamic_cast<sql_new_tn_validator*>(engine.create_tn_validator({}, {}).get()), nullptr);
  EXPECT_NE(dynamic_cast<sql_new_fn_validator*>(engine.create_fn_validator(udb_schema()).get()), nullptr);
  EXPECT_NE(dynamic_cast<sql_new_in_validator*>(engine.create_in_validator(udb_indexes()).get()), nullptr);
  const auto db = engine.create_dn_validator();
  EXPECT_EQ(dynamic_cast<sql_old_validator*>(db.get()), nullptr);
  EXPECT_NE(dynamic_cast<sql_new_validator*>(db.get()), nullptr);
}

TEST(SqlEngineValidators, ExistingNamesComeFromTheGivenLists) {
  sql_engine engine;
  engine.set_version(0x0A0000);
  udb_record record;
  record.emplace_back(L"a", 0, ole_variant(1));
  EXPECT_TRUE(engine.create_fn_validator(record)->is_duplicated(L"A"));
  udb_indexes indexes;
  indexes.push_back(udb_index(L"ix", false, false, {L"a"}));
  EXPECT_TRUE(engine.create_in_validator(indexes)->is_duplicated(L"IX"));
  EXPECT_EQ(engine.create_tn_validator({L"t"}, {})->existing().size(), 1U);
}

}  // namespace
}  // namespace qb
