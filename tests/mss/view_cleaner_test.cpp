// Cleaning of SQL Server view definitions as they are read: the head before
// the first "select" goes, then the listed words (in their two spellings),
// the brackets, the dbo owner, and the blanks at both ends.
#include "mss/view_cleaner.h"

#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "support/log_lines.h"
#include "tk/utf.h"

#include "support/temp_dir.h"

namespace qb {
namespace {

using test::log_capture;

std::wstring clean(const std::wstring& definition, bool is_view_owned = true) {
  std::optional<std::wstring> text = mss_clean_view(L"v", definition, is_view_owned);
  EXPECT_TRUE(text.has_value()) << tk_to_utf8(definition);
  return text.value_or(L"<dropped>");
}

TEST(MssViewCleaner, QueryReadsNameAndDefinitionOfEveryView) {
  EXPECT_EQ(mss_views_query,
            L"select name, definition from sys.objects o join sys.sql_modules m on m.object_id = o.object_id "
            L"where o.type = 'V'");
}

TEST(MssViewCleaner, KeepsTheTextFromTheFirstSelect) {
  EXPECT_EQ(clean(L"CREATE VIEW v_orders AS\r\nSELECT id FROM orders"), L"SELECT id FROM orders");
  EXPECT_EQ(clean(L"create view v as select 1"), L"select 1");
  EXPECT_EQ(clean(L"CREATE VIEW v AS SeLeCt 1"), L"SeLeCt 1");
}

TEST(MssViewCleaner, SchemabindingHeadGoesWithEverythingBeforeSelect) {
  EXPECT_EQ(clean(L"CREATE VIEW [dbo].[v_totals] WITH SCHEMABINDING AS SELECT [id] FROM [dbo].[orders]"),
            L"SELECT id FROM orders");
}

TEST(MssViewCleaner, SelectInACommentBeforeTheRealOneIsTaken) {
  EXPECT_EQ(clean(L"/* Select all open orders */\r\nCREATE VIEW v_open AS SELECT id FROM orders"),
            L"Select all open orders */\r\nCREATE VIEW v_open AS SELECT id FROM orders");
}

TEST(MssViewCleaner, ViewNameHoldingSelectCutsTheTextThere) {
  EXPECT_EQ(clean(L"CREATE VIEW selected_orders AS SELECT id FROM orders"),
            L"selected_orders AS SELECT id FROM orders");
}

TEST(MssViewCleaner, ViewWithoutSelectIsDroppedAndLogged) {
  log_capture log;
  EXPECT_EQ(mss_clean_view(L"v_proc", L"CREATE VIEW v_proc AS EXEC sp_who", true), std::nullopt);
  EXPECT_TRUE(log.has_line("'select' not found in the view"));
  EXPECT_FALSE(log.has_line("Got view #1: ('v_proc', 'CREATE VIEW v_proc AS EXEC sp_who')"));
}

TEST(MssViewCleaner, ViewWithoutSelectDoesNotReachTheList) {
  udb_view_list views;
  EXPECT_TRUE(mss_add_clean_view(views, L"v_a", L"CREATE VIEW v_a AS SELECT 1", true));
  EXPECT_FALSE(mss_add_clean_view(views, L"v_b", L"CREATE VIEW v_b AS EXEC sp_who", true));
  EXPECT_FALSE(mss_add_clean_view(views, L"v_c", L"", true));
  EXPECT_TRUE(mss_add_clean_view(views, L"v_d", L"CREATE VIEW v_d AS SELECT 2", true));
  ASSERT_EQ(views.size(), 2U);
  EXPECT_EQ(views[0], udb_view(L"v_a", L"SELECT 1"));
  EXPECT_EQ(views[1], udb_view(L"v_d", L"SELECT 2"));
}

TEST(MssViewCleaner, DeletesEachListedWordInUpperAndLowerCase) {
  EXPECT_EQ(clean(L"SELECT TOP 100 PERCENT a FROM t"), L"SELECT  a FROM t");
  EXPECT_EQ(clean(L"select top 100 percent a from t"), L"select  a from t");
  EXPECT_EQ(clean(L"SELECT TOP (100) PERCENT a FROM t"), L"SELECT  a FROM t");
  EXPECT_EQ(clean(L"select top (100) percent a from t"), L"select  a from t");
  EXPECT_EQ(clean(L"SELECT a FROM t WITH (NOLOCK) JOIN u with (nolock) ON 1=1"), L"SELECT a FROM t  JOIN u  ON 1=1");
  EXPECT_EQ(clean(L"SELECT a FROM t WITH SCHEMABINDING"), L"SELECT a FROM t");
  EXPECT_EQ(clean(L"SELECT a FROM t with schemabinding"), L"SELECT a FROM t");
  EXPECT_EQ(clean(L"SELECT a FROM t WITH VIEW_METADATA"), L"SELECT a FROM t");
  EXPECT_EQ(clean(L"SELECT a FROM t with view_metadata"), L"SELECT a FROM t");
}

TEST(MssViewCleaner, MixedCaseAndOtherTopsStay) {
  EXPECT_EQ(clean(L"SELECT Top 100 Percent a FROM t"), L"SELECT Top 100 Percent a FROM t");
  EXPECT_EQ(clean(L"SELECT TOP 10 a FROM t"), L"SELECT TOP 10 a FROM t");
  EXPECT_EQ(clean(L"SELECT TOP (50) PERCENT a FROM t"), L"SELECT TOP (50) PERCENT a FROM t");
  EXPECT_EQ(clean(L"SELECT a FROM t With (NoLock)"), L"SELECT a FROM t With (NoLock)");
}

TEST(MssViewCleaner, WordsGoInsideStringLiteralsToo) {
  EXPECT_EQ(clean(L"SELECT 'TOP 100 PERCENT' AS label, '[x]' AS b"), L"SELECT '' AS label, 'x' AS b");
}

TEST(MssViewCleaner, BracketsGoLastSoWordsBuiltFromBracketedPartsStay) {
  // The words are deleted before the brackets, so a bracketed spelling of
  // them only becomes the word after its own pass.
  EXPECT_EQ(clean(L"SELECT TOP [100] PERCENT a FROM t"), L"SELECT TOP 100 PERCENT a FROM t");
}

TEST(MssViewCleaner, NameWithABlankBecomesTwoBareWords) {
  EXPECT_EQ(clean(L"SELECT [od].[Unit Price] FROM [dbo].[Order Details] AS [od]"),
            L"SELECT od.Unit Price FROM Order Details AS od");
}

TEST(MssViewCleaner, DboOwnerGoesWhenViewsAreOwned) {
  EXPECT_EQ(clean(L"SELECT [c].[id] FROM [dbo].[customers] [c] JOIN dbo.orders o ON o.cid = c.id", true),
            L"SELECT c.id FROM customers c JOIN orders o ON o.cid = c.id");
}

TEST(MssViewCleaner, DboOwnerStaysWhenViewsAreNotOwned) {
  EXPECT_EQ(clean(L"SELECT [c].[id] FROM [dbo].[customers] [c]", false), L"SELECT c.id FROM dbo.customers c");
}

TEST(MssViewCleaner, DboIsDeletedInExactCaseOnlyAndAnywhere) {
  EXPECT_EQ(clean(L"SELECT a FROM DBO.t JOIN Dbo.u ON 1=1"), L"SELECT a FROM DBO.t JOIN Dbo.u ON 1=1");
  // Textual: the tail of a longer owner name goes too.
  EXPECT_EQ(clean(L"SELECT a FROM sales_dbo.t"), L"SELECT a FROM sales_t");
}

TEST(MssViewCleaner, OnlyBlanksAreTrimmedAtTheEnds) {
  EXPECT_EQ(clean(L"CREATE VIEW v AS SELECT a FROM t   "), L"SELECT a FROM t");
  EXPECT_EQ(clean(L"CREATE VIEW v AS SELECT a FROM t \r\n"), L"SELECT a FROM t \r\n");
  EXPECT_EQ(clean(L"CREATE VIEW v AS SELECT a FROM t\t"), L"SELECT a FROM t\t");
  // A deletion at the end leaves blanks that go as well.
  EXPECT_EQ(clean(L"SELECT a FROM t WITH (NOLOCK)"), L"SELECT a FROM t");
}

TEST(MssViewCleaner, LogsEachStageOfTheText) {
  log_capture log;
  const auto text = mss_clean_view(L"v_c", L"CREATE VIEW [v_c] AS SELECT TOP 100 PERCENT [a] FROM [dbo].[t] ", true);
  ASSERT_TRUE(text.has_value());
  EXPECT_EQ(*text, L"SELECT  a FROM t");
  EXPECT_TRUE(test::lines_in_order(log.text(),
                                   {
                                       "Got view #1: ('v_c', 'SELECT TOP 100 PERCENT [a] FROM [dbo].[t] ')",
                                       "Got view #2: ('v_c', 'SELECT  a FROM dbo.t ')",
                                       "Got view #3: ('v_c', 'SELECT  a FROM t ')",
                                       "Got view: ('v_c', 'SELECT  a FROM t')",
                                   }))
      << log.text();
}

TEST(MssViewCleaner, LogsTheUnchangedTextAfterTheOwnerStepWhenNotOwned) {
  log_capture log;
  ASSERT_TRUE(mss_clean_view(L"v", L"SELECT a FROM dbo.t", false).has_value());
  EXPECT_TRUE(log.has_line("Got view #3: ('v', 'SELECT a FROM dbo.t')")) << log.text();
}

}  // namespace
}  // namespace qb
