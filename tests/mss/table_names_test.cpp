// The forms of SQL Server table names.
#include "mss/table_names.h"

#include <utility>

#include <gtest/gtest.h>

#include "mss/engine.h"

#include "support/temp_dir.h"

namespace qb::test {
namespace {

std::pair<std::wstring, std::wstring> split(const std::wstring& name) {
  std::wstring table = L"stale";
  std::wstring owner = L"stale";
  EXPECT_TRUE(mss_split_tab_name(name, table, owner));
  return {owner, table};
}

using owner_table = std::pair<std::wstring, std::wstring>;

TEST(MssSplitTabName, BareNameHasNoOwner) { EXPECT_EQ(split(L"orders"), (owner_table{L"", L"orders"})); }

TEST(MssSplitTabName, ComposedNameSplitsAtTheFirstDot) {
  EXPECT_EQ(split(L"dbo.orders"), (owner_table{L"dbo", L"orders"}));
  EXPECT_EQ(split(L"a.b.c"), (owner_table{L"a", L"b.c"}));
}

TEST(MssSplitTabName, BracketedNameSplitsOnlyBetweenBrackets) {
  EXPECT_EQ(split(L"[dbo].[orders]"), (owner_table{L"dbo", L"orders"}));
  EXPECT_EQ(split(L"[sales.eu].[orders]"), (owner_table{L"sales.eu", L"orders"}));
  EXPECT_EQ(split(L"[order.lines]"), (owner_table{L"", L"order.lines"}));
}

TEST(MssSplitTabName, ShortNamePassesThroughWithItsBrackets) {
  EXPECT_EQ(split(L"[]"), (owner_table{L"", L"[]"}));
  EXPECT_EQ(split(L"a."), (owner_table{L"", L"a."}));
  EXPECT_EQ(split(L""), (owner_table{L"", L""}));
}

TEST(MssSplitTabName, LogsTheBranchTaken) {
  log_capture log;
  std::wstring table;
  std::wstring owner;
  mss_split_tab_name(L"dbo.orders", table, owner);
  EXPECT_TRUE(log.has_line("mss_split_tab_name(dbo.orders)"));
  EXPECT_TRUE(log.has_line("Name is NOT enclosed in [...]"));
  EXPECT_TRUE(log.has_line("mss_engine::is_initialized()=0"));
  EXPECT_TRUE(log.has_line("is_view_owned()=1"));
  EXPECT_TRUE(log.has_line("Getting owner for composed name"));
  EXPECT_TRUE(log.has_line("tab_name=orders, owner=dbo"));
  mss_split_tab_name(L"orders", table, owner);
  EXPECT_TRUE(log.has_line("Prepare blank owner for simple name (table only)"));
  mss_split_tab_name(L"[dbo].[x]", table, owner);
  EXPECT_TRUE(log.has_line("Name is enclosed in [...]"));
}

TEST(MssSplitTabName, LogsTheStateOfTheEngine) {
  log_capture log;
  const mss_engine engine;  // not connected
  mss_set_view_owned(false);
  std::wstring table;
  std::wstring owner;
  mss_split_tab_name(L"dbo.orders", table, owner);
  mss_set_view_owned(true);
  EXPECT_TRUE(log.has_line("mss_engine::is_initialized()=0"));
  EXPECT_TRUE(log.has_line("is_view_owned()=0"));
}

TEST(MssSimplifyTabName, JoinsOwnerAndTable) {
  log_capture log;
  EXPECT_EQ(mss_simplify_tab_name(L"[dbo].[orders]", L'.'), L"dbo.orders");
  EXPECT_EQ(mss_simplify_tab_name(L"[orders]", L'.'), L"orders");
  EXPECT_EQ(mss_simplify_tab_name(L"sales.orders", L'/'), L"sales/orders");
  EXPECT_TRUE(log.has_line("mss_simplify_tab_name([dbo].[orders])"));
  EXPECT_TRUE(log.has_line("Processing compound table name dbo.orders"));
  EXPECT_TRUE(log.has_line("Processing simple table name orders"));
}

}  // namespace
}  // namespace qb::test
