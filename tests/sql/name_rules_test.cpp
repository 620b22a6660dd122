// The two families of MySQL name rules.
#include "sql/name_rules.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sql/engine.h"
#include "support/mariadb_server.h"
#include "support/temp_dir.h"
#include "test_session.h"
#include "tk/strings.h"
#include "tk/utf.h"

namespace qb {
namespace {

const sql_name_rules new_table(sql_name_family::new_style, sql_name_kind::table);
const sql_name_rules new_field(sql_name_family::new_style, sql_name_kind::field);
const sql_name_rules new_index(sql_name_family::new_style, sql_name_kind::index);
const sql_name_rules new_database(sql_name_family::new_style, sql_name_kind::database);
const sql_name_rules old_table(sql_name_family::old_style, sql_name_kind::table);
const sql_name_rules old_field(sql_name_family::old_style, sql_name_kind::field);
const sql_name_rules old_database(sql_name_family::old_style, sql_name_kind::database);

// The reserved words as the program has always stored them.
const char* const reserved_text =
    "add, all, alter, and, as, asc, between, bigint, binary, blob, both, by, cascade, case, char, character, "
    "change, column, columns, constraint, create, cross, current_date, current_time, current_timestamp, "
    "database, databases, day_hour, day_minute, day_second, dec, decimal, default, delayed, delete, desc, "
    "describe, distinct, distinctrow, double, drop, else, escaped, enclosed, explain, exists, fields, float, "
    "float4, float8, foreign, from, for, grant, group, having, high_priority, hour_minute, hour_second, ignore, "
    "in, index, infile, inner, insert, insert_id, int, int1, int2, int3, int4, int8, integer, interval, into, "
    "if, is, join, key, keys, kill, last_insert_id, leading, left, like, lines, limit, load, lock, long, "
    "longblob, longtext, low_priority, match, mediumblob, mediumtext, mediumint, middleint, minute_second, "
    "natural, numeric, not, null, on, optimize, option, optionally, or, order, outer, outfile, partial, "
    "precision, primary, procedure, privileges, read, real, regexp, rename, replace, restrict, returns, revoke, "
    "rlike, select, set, show, smallint, soname, sql_big_tables, sql_big_selects, sql_low_priority_updates, "
    "sql_log_off, sql_log_update, sql_select_limit, sql_small_result, sql_big_result, sql_warnings, "
    "straight_join, starting, table, tables, terminated, then, tinyblob, tinytext, tinyint, trailing, to, "
    "usage, use, using, unique, unlock, unsigned, update, values, varchar, varying, varbinary, with, write, "
    "when, where, year_month, zerofill";

TEST(SqlNameRules, FamilyFollowsTheVersion) {
  EXPECT_EQ(sql_name_family_for(0x040100), sql_name_family::new_style);
  EXPECT_EQ(sql_name_family_for(0x0A0B13), sql_name_family::new_style);
  EXPECT_EQ(sql_name_family_for(0x0400FF), sql_name_family::old_style);
  EXPECT_EQ(sql_name_family_for(0x031401), sql_name_family::old_style);
  EXPECT_EQ(sql_name_family_for(0), sql_name_family::old_style);
}

TEST(SqlNameRules, OldFamilyHas167ReservedWordsInStoredOrder) {
  std::vector<std::wstring> expected;
  std::wstring all = tk_utf8_decode(reserved_text);
  ASSERT_TRUE(tk_wstring::split(all, L',', expected));
  for (auto& w : expected) w = tk_trim(w);
  const auto words = sql_old_reserved_words();
  ASSERT_EQ(words.size(), 167U);
  ASSERT_EQ(expected.size(), 167U);
  for (std::size_t i = 0; i < words.size(); ++i) EXPECT_EQ(std::wstring(words[i]), expected[i]) << i;
  EXPECT_EQ(old_table.restricted_words().size(), 167U);
  EXPECT_TRUE(new_table.restricted_words().empty());
}

TEST(SqlNameRules, ReservedWordsCompareIgnoringCase) {
  EXPECT_TRUE(sql_is_old_reserved_word(L"order"));
  EXPECT_TRUE(sql_is_old_reserved_word(L"ORDER"));
  EXPECT_TRUE(sql_is_old_reserved_word(L"Current_Timestamp"));
  EXPECT_FALSE(sql_is_old_reserved_word(L"orders"));
  EXPECT_FALSE(sql_is_old_reserved_word(L""));
}

TEST(SqlNameRules, NewFamilyCharacterSets) {
  EXPECT_EQ(new_table.illegal_chars(), L"`\"'^*\\;+|:<>?/");
  EXPECT_EQ(new_table.illegal_chars().size(), 14U);
  EXPECT_EQ(new_field.illegal_chars(), L"`\"'^*\\;+");
  EXPECT_EQ(new_index.illegal_chars(), L"`\"'^*\\;+");
  // Databases on new servers use the table form.
  EXPECT_EQ(new_database.illegal_chars(), new_table.illegal_chars());
  EXPECT_TRUE(old_table.illegal_chars().empty());
  EXPECT_EQ(new_table.max_len(), 64U);
  EXPECT_EQ(old_table.max_len(), 64U);
}

// --- New family ------------------------------------------------------------------

TEST(SqlNewNameRules, ColumnNamedOrderPasses) {
  EXPECT_TRUE(new_field.accepts(L"order"));
  EXPECT_TRUE(new_table.accepts(L"select"));
}

TEST(SqlNewNameRules, SemicolonPassesOnlyAfterRepair) {
  test::log_capture log;
  EXPECT_FALSE(new_field.accepts(L"a;b"));
  EXPECT_FALSE(new_table.accepts(L"a;b"));
  EXPECT_TRUE(log.has_line("The name contains illegal: ;"));
  const std::wstring safe = new_field.replace_illegal(new_field.repair(L"a;b"));
  EXPECT_EQ(safe, L"a_b");
  EXPECT_TRUE(new_field.accepts(safe));
}

TEST(SqlNewNameRules, BarPassesAsAColumnAndFailsAsATable) {
  test::log_capture log;
  EXPECT_TRUE(new_field.accepts(L"a|b"));
  EXPECT_TRUE(new_index.accepts(L"a|b"));
  EXPECT_FALSE(new_table.accepts(L"a|b"));
  EXPECT_FALSE(new_database.accepts(L"a|b"));
  EXPECT_TRUE(log.has_line("The name contains illegal: |"));
  for (wchar_t c : std::wstring(L"|:<>?/")) {
    EXPECT_TRUE(new_field.accepts(std::wstring(L"x") + c + L"y")) << tk_format("%c", c);
  }
  for (wchar_t c : std::wstring(L"`\"'^*\\;+")) {
    EXPECT_FALSE(new_field.accepts(std::wstring(L"x") + c + L"y")) << tk_format("%c", c);
  }
}

TEST(SqlNewNameRules, SixtyFiveCharactersIsAnInvalidLength) {
  test::log_capture log;
  EXPECT_TRUE(new_table.accepts(std::wstring(64, L'n')));
  EXPECT_FALSE(log.has_line("Invalid length"));
  EXPECT_FALSE(new_table.accepts(std::wstring(65, L'n')));
  EXPECT_TRUE(log.has_line("Invalid length"));
  // Characters, not bytes.
  EXPECT_TRUE(new_table.accepts(std::wstring(64, L'\U0001F600')));
  EXPECT_FALSE(new_table.accepts(std::wstring(65, L'\u00e4')));
}

TEST(SqlNewNameRules, EmptyNameIsAnInvalidLength) {
  test::log_capture log;
  EXPECT_FALSE(new_table.check_form(L""));
  EXPECT_TRUE(log.has_line("Invalid length"));
}

TEST(SqlNewNameRules, LeadingBlankIsRefusedAndRepairDropsIt) {
  test::log_capture log;
  EXPECT_FALSE(new_table.accepts(L" orders"));
  EXPECT_TRUE(log.has_line("ID cannot starts or ends with ' '"));
  EXPECT_FALSE(new_field.accepts(L"orders "));
  EXPECT_EQ(new_table.repair(L" orders"), L"orders");
  EXPECT_EQ(new_table.repair(L"  order details  "), L"order details");
  EXPECT_TRUE(new_table.accepts(L"order details"));
}

TEST(SqlNewNameRules, ServerTakesEveryNameTheTableRulesAccept) {
  const auto& server = test::mariadb_server::main();
  test::test_session root(server);
  const std::string db = test::unique_name("qb_names");
  root.run("CREATE DATABASE `" + db + "` CHARACTER SET utf8mb4");
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  ASSERT_TRUE(engine.is_db_exist(tk_utf8_decode(db)));
  const std::vector<std::wstring> names = {L"order", L"a b", L"x.y", L"x,y", L"(p)", L"[q]", L"100%", L"#tmp",
                                           L"caf\u00e9", L"\u65e5\u672c", L"a-b", L"=", L"@x", L"!", L"~t",
                                           std::wstring(64, L'\u00e4')};
  for (const auto& name : names) {
    ASSERT_TRUE(new_table.accepts(name)) << tk_utf8_encode(name);
    EXPECT_NO_THROW(engine.run(tk_utf8_encode(L"CREATE TABLE " + engine.quote_name(name) + L" (i INT)")))
        << tk_utf8_encode(name);
  }
  EXPECT_EQ(root.scalar("SELECT COUNT(*) FROM information_schema.tables WHERE table_schema = '" + db + "'"),
            std::to_string(names.size()));
  root.run("DROP DATABASE `" + db + "`");
}

// --- Old family ------------------------------------------------------------------

TEST(SqlOldNameRules, OrderIsRefused) {
  test::log_capture log;
  EXPECT_FALSE(old_table.accepts(L"order"));
  EXPECT_FALSE(old_field.accepts(L"Order"));
  EXPECT_TRUE(log.has_line("The name is restricted"));
  EXPECT_TRUE(old_table.accepts(L"orders"));
}

TEST(SqlOldNameRules, RepairTurnsOtherSymbolsIntoUnderscores) {
  test::log_capture log;
  EXPECT_FALSE(old_table.accepts(L"x-y"));
  EXPECT_TRUE(log.has_line("Name contains invalid symbol: '-'"));
  EXPECT_EQ(old_table.repair(L"x-y"), L"x_y");
  EXPECT_EQ(old_table.repair(L"a b.c;d"), L"a_b_c_d");
  EXPECT_TRUE(old_table.accepts(L"x_y"));
}

TEST(SqlOldNameRules, DigitsOnlyGetAnUnderscoreFirst) {
  test::log_capture log;
  EXPECT_FALSE(old_table.accepts(L"2024"));
  EXPECT_TRUE(log.has_line("Name consists of digits only"));
  EXPECT_EQ(old_table.repair(L"2024"), L"_024");
  EXPECT_TRUE(old_table.accepts(L"_024"));
  EXPECT_EQ(old_table.repair(L"20-24"), L"20_24");
}

TEST(SqlOldNameRules, DollarStays) {
  EXPECT_TRUE(old_table.accepts(L"a$b"));
  EXPECT_EQ(old_table.repair(L"a$b"), L"a$b");
}

TEST(SqlOldNameRules, DatabaseStartingWithADigitIsRefusedThoughATableOfThatNamePasses) {
  EXPECT_FALSE(old_database.accepts(L"2sales"));
  EXPECT_TRUE(old_table.accepts(L"2sales"));
  EXPECT_TRUE(old_database.accepts(L"sales2"));
  EXPECT_FALSE(old_database.accepts(L""));
  EXPECT_FALSE(old_table.accepts(L""));
}

TEST(SqlOldNameRules, AccentedAndOtherScriptsPassByTheLocaleAwareTest) {
  EXPECT_TRUE(old_table.accepts(L"caf\u00e9"));
  EXPECT_TRUE(old_table.accepts(L"Gr\u00f6\u00dfe"));
  EXPECT_TRUE(old_table.accepts(L"\u0437\u0430\u043a\u0430\u0437"));  // заказ
  EXPECT_TRUE(old_table.accepts(L"\u65e5\u672c"));
  EXPECT_EQ(old_table.repair(L"caf\u00e9-bar"), L"caf\u00e9_bar");
  EXPECT_TRUE(sql_old_is_name_char(L'\u00e9'));
  EXPECT_FALSE(sql_old_is_name_char(L'\u00b7'));  // middle dot
  EXPECT_FALSE(sql_old_is_name_char(L' '));
}

TEST(SqlOldNameRules, LengthIsCheckedBeforeTheCharacters) {
  test::log_capture log;
  EXPECT_FALSE(old_table.accepts(std::wstring(65, L'a')));
  EXPECT_TRUE(log.has_line("The name is too long"));
  EXPECT_TRUE(old_table.accepts(std::wstring(64, L'a')));
}

}  // namespace
}  // namespace qb
