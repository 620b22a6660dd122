#include "udb/names_map.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace qb {
namespace {

t_names_map make_map(const std::vector<std::pair<std::wstring, std::wstring>>& pairs) {
  t_names_map map;
  for (const auto& [from, to] : pairs) map.add(from, to);
  return map;
}

TEST(TNamesMap, AddKeepsFirstValueAndLogs) {
  test::log_capture log;
  t_names_map map;
  map.add(L"a b", L"a_b");
  map.add(L"a b", L"other");
  EXPECT_EQ(*map.find(L"a b"), L"a_b");
  EXPECT_TRUE(log.has_line("t_names_map::add(a b,a_b)"));
}

TEST(TNamesMap, KeysOrderByWideCharacterValue) {
  const t_names_map map = make_map({{L"b", L"1"}, {L"B", L"2"}, {L"a", L"3"}, {L"\u00e4", L"4"}});
  std::vector<std::wstring> keys;
  for (const auto& entry : map) keys.push_back(entry.first);
  EXPECT_EQ(keys, (std::vector<std::wstring>{L"B", L"a", L"b", L"\u00e4"}));
}

TEST(TNamesMap, MappedNameIgnoresCaseAndFallsBackToInput) {
  test::log_capture log;
  const t_names_map map = make_map({{L"Order Id", L"order_id"}});
  EXPECT_EQ(map.get_mapped_name(L"ORDER ID"), L"order_id");
  EXPECT_EQ(map.get_mapped_name(L"missing"), L"missing");
  EXPECT_TRUE(log.has_line("t_names_map::get_mapped_name(ORDER ID)"));
}

TEST(UdbNamesMap, TableMappingKeepsOldValueForExistingKey) {
  test::log_capture log;
  udb_names_map names;
  names.add_tn_mapping(L"dbo.orders", L"orders");
  names.add_tn_mapping(L"dbo.orders", L"orders00000");
  EXPECT_EQ(names.get_tn_mapped_name(L"dbo.orders", true), L"orders");
  EXPECT_TRUE(log.has_line("udb_names_map::add_tn_mapping(dbo.orders,orders)"));
}

TEST(UdbNamesMap, ReverseTableLookupGivesTheSourceOfAnExactTargetName) {
  udb_names_map names;
  names.add_tn_mapping(L"[dbo].[products]", L"articles");
  names.add_tn_mapping(L"dbo.orders", L"orders");
  EXPECT_EQ(names.get_tn_orig_name(L"articles"), L"[dbo].[products]");
  EXPECT_EQ(names.get_tn_orig_name(L"orders"), L"dbo.orders");
  // A table that kept its name is its own source; the target compares exactly.
  EXPECT_EQ(names.get_tn_orig_name(L"customers"), L"customers");
  EXPECT_EQ(names.get_tn_orig_name(L"Articles"), L"Articles");
}

TEST(UdbNamesMap, TableLookupExactOrIgnoringCase) {
  test::log_capture log;
  udb_names_map names;
  names.add_tn_mapping(L"dbo.Orders", L"orders");
  EXPECT_EQ(names.get_tn_mapped_name(L"DBO.ORDERS", true), L"DBO.ORDERS");
  EXPECT_EQ(names.get_tn_mapped_name(L"DBO.ORDERS", false), L"orders");
  EXPECT_TRUE(log.has_line("udb_names_map::get_tn_mapped_name(DBO.ORDERS)"));
  EXPECT_TRUE(log.has_line("Comparing with (dbo.Orders,orders)"));
  EXPECT_TRUE(log.has_line("Got mapped name: orders"));
}

TEST(UdbNamesMap, FieldLookupMatchesTableExactly) {
  test::log_capture log;
  udb_names_map names;
  names.add_fn_map(L"orders", make_map({{L"Order Id", L"Order_Id"}}));
  EXPECT_EQ(names.get_fn_mapped_name(L"orders", L"Order Id", true), L"Order_Id");
  EXPECT_EQ(names.get_fn_mapped_name(L"orders", L"order id", true), L"order id");
  EXPECT_EQ(names.get_fn_mapped_name(L"orders", L"order id", false), L"Order_Id");
  EXPECT_EQ(names.get_fn_mapped_name(L"ORDERS", L"Order Id", false), L"Order Id");
  EXPECT_TRUE(log.has_line("udb_names_map::add_fn_map(orders)"));
  EXPECT_TRUE(log.has_line("Got mapped name: Order_Id"));
  EXPECT_TRUE(log.has_line("Table 'ORDERS' not found"));
}

TEST(UdbNamesMap, FieldMapIsStoredAsCopyAndReplaced) {
  udb_names_map names;
  t_names_map map = make_map({{L"a", L"b"}});
  names.add_fn_map(L"t", map);
  map.add(L"c", L"d");
  EXPECT_EQ(names.find_fn_map(L"t")->size(), 1U);
  names.add_fn_map(L"t", make_map({{L"x", L"y"}}));
  EXPECT_EQ(names.get_fn_mapped_name(L"t", L"a", true), L"a");
  EXPECT_EQ(names.get_fn_mapped_name(L"t", L"x", true), L"y");
}

TEST(UdbNamesMap, OriginalNameIsTheReverseLookup) {
  test::log_capture log;
  udb_names_map names;
  names.add_fn_map(L"t", make_map({{L"first name", L"first_name"}}));
  EXPECT_EQ(names.get_fn_orig_name(L"t", L"first_name"), L"first name");
  EXPECT_EQ(names.get_fn_orig_name(L"t", L"other"), L"other");
  EXPECT_EQ(names.get_fn_orig_name(L"u", L"first_name"), L"first_name");
  EXPECT_TRUE(log.has_line("udb_names_map::get_fn_orig_name(t,first_name)"));
}

TEST(UdbNamesMap, ReplaceQuotesNewNameOnce) {
  const t_names_map map = make_map({{L"a b", L"`a_b`"}, {L"c d", L"c_d"}});
  EXPECT_EQ(udb_names_map::do_global_replace2(L"select a b, c d from t", map, L"`", L"`"),
            L"select `a_b`, `c_d` from t");
}

TEST(UdbNamesMap, ReplaceWithEmptyQuotesInsertsBareName) {
  const t_names_map map = make_map({{L"old", L"new"}});
  EXPECT_EQ(udb_names_map::do_global_replace2(L"x old y", map, L"", L""), L"x new y");
}

TEST(UdbNamesMap, ReplaceQuoteLongerThanNameCountsAsMissing) {
  const t_names_map map = make_map({{L"o", L"["}});
  EXPECT_EQ(udb_names_map::do_global_replace2(L"o", map, L"[[", L"]]"), L"[[[]]");
}

TEST(UdbNamesMap, ReplaceAtStartAndEndChecksOneSide) {
  const t_names_map map = make_map({{L"abc", L"x"}});
  EXPECT_EQ(udb_names_map::do_global_replace2(L"abc", map, L"", L""), L"x");
  EXPECT_EQ(udb_names_map::do_global_replace2(L"abc+1", map, L"", L""), L"x+1");
  EXPECT_EQ(udb_names_map::do_global_replace2(L"1+abc", map, L"", L""), L"1+x");
  EXPECT_EQ(udb_names_map::do_global_replace2(L"abc1", map, L"", L""), L"abc1");
  EXPECT_EQ(udb_names_map::do_global_replace2(L"1abc", map, L"", L""), L"1abc");
}

TEST(UdbNamesMap, ReplaceFindsWithoutRegardToCase) {
  const t_names_map map = make_map({{L"Orders", L"orders_2"}});
  EXPECT_EQ(udb_names_map::do_global_replace2(L"FROM ORDERS o", map, L"`", L"`"), L"FROM `orders_2` o");
}

TEST(UdbNamesMap, ReplaceSkipsPartOfLongerWordButNotAfterUnderscore) {
  test::log_capture log;
  const t_names_map map = make_map({{L"id", L"key"}});
  EXPECT_EQ(udb_names_map::do_global_replace2(L"idx, order_id, t.id, [id]", map, L"", L""),
            L"idx, order_key, t.key, [key]");
  EXPECT_TRUE(log.has_line("udb_names_map::do_global_replace2(idx, order_id, t.id, [id])"));
  EXPECT_TRUE(log.has_line("Testing pair ('id','key')"));
  EXPECT_TRUE(log.has_line("'id' was found at pos=0"));
}

TEST(UdbNamesMap, ReplacementIsNeverSearchedAgain) {
  const t_names_map map = make_map({{L"a", L"a a"}});
  EXPECT_EQ(udb_names_map::do_global_replace2(L"a a", map, L"", L""), L"a a a a");
}

TEST(UdbNamesMap, LaterPairRewritesEarlierReplacement) {
  const t_names_map map = make_map({{L"a", L"b"}, {L"b", L"c"}});
  EXPECT_EQ(udb_names_map::do_global_replace2(L"a", map, L"", L""), L"c");
  EXPECT_EQ(udb_names_map::do_global_replace2(L"a", map, L"`", L"`"), L"``c``");
}

TEST(UdbNamesMap, AccentedLettersAreAlphanumeric) {
  const t_names_map map = make_map({{L"na", L"x"}});
  EXPECT_EQ(udb_names_map::do_global_replace2(L"\u00e9na na", map, L"", L""), L"\u00e9na x");
}

TEST(UdbNamesMap, GlobalReplaceRunsTablesThenEachFieldMapInOrder) {
  test::log_capture log;
  udb_names_map names;
  names.add_tn_mapping(L"dbo.Order Lines", L"Order_Lines");
  names.add_fn_map(L"b", make_map({{L"qty", L"quantity"}}));
  names.add_fn_map(L"a", make_map({{L"quantity", L"amount"}}));
  // The map of "a" runs before the one of "b", so "qty" becomes "quantity"
  // and stays so.
  EXPECT_EQ(names.do_global_replace1(L"select qty from dbo.Order Lines", L"`", L"`"),
            L"select `quantity` from `Order_Lines`");
  EXPECT_TRUE(log.has_line("udb_names_map::do_global_replace1(select qty from dbo.Order Lines)"));
}

}  // namespace
}  // namespace qb
