// The textual rewrite of view bodies for MySQL: each rule with its exact
// trigger, in its order, and the log lines of the way.
#include "sql/view_converter.h"

#include <string>

#include <gtest/gtest.h>

#include "support/log_lines.h"
#include "tk/utf.h"

#include "support/temp_dir.h"

namespace qb {
namespace {

using test::log_capture;

std::wstring refine(const std::wstring& text) {
  const udb_names_map no_renames;
  return sql_view_converter::refine_view_in(sql_view_destination::server, text, no_renames);
}

// --- compress_blanks -----------------------------------------------------------

TEST(SqlViewConverterCompressBlanks, TextWithoutRunsIsUnchanged) {
  const std::wstring text = L"select a, b from t where c = 'x'";
  EXPECT_EQ(sql_view_converter::compress_blanks(text), text);
}

TEST(SqlViewConverterCompressBlanks, RunOfLineBreaksTabsAndBlanksBecomesOneBlank) {
  EXPECT_EQ(sql_view_converter::compress_blanks(L"select a,\r\n\t  b\n\nfrom  t\r\n"), L"select a, b from t ");
}

TEST(SqlViewConverterCompressBlanks, RunAtTheStartLeavesOneBlank) {
  EXPECT_EQ(sql_view_converter::compress_blanks(L"\r\n  select 1"), L" select 1");
}

TEST(SqlViewConverterCompressBlanks, LineBreakInsideAStringLiteralSurvives) {
  const std::wstring text = L"select 'line one\r\n  line two' AS t,\r\n  \"a\tb\"";
  EXPECT_EQ(sql_view_converter::compress_blanks(text), L"select 'line one\r\n  line two' AS t, \"a\tb\"");
}

TEST(SqlViewConverterCompressBlanks, QuoteOfOneKindInsideTheOtherDoesNotCount) {
  // The double quote inside the single-quoted literal opens nothing, so the
  // blanks after the literal are compressed; the apostrophe inside the
  // double-quoted text closes nothing.
  EXPECT_EQ(sql_view_converter::compress_blanks(L"select 'say \"hi'   , \"it's  \"   x"),
            L"select 'say \"hi' , \"it's  \" x");
}

TEST(SqlViewConverterCompressBlanks, DoubledQuoteInsideALiteralKeepsItOpen) {
  EXPECT_EQ(sql_view_converter::compress_blanks(L"select 'it''s   ok'   x"), L"select 'it''s   ok' x");
}

TEST(SqlViewConverterCompressBlanks, UnclosedQuoteCopiesTheRest) {
  EXPECT_EQ(sql_view_converter::compress_blanks(L"select 'a  \r\n b"), L"select 'a  \r\n b");
}

// --- check_isnull_for_replace --------------------------------------------------

TEST(SqlViewConverterCheck, OneCommaHolds) {
  EXPECT_TRUE(sql_view_converter::check_isnull_for_replace(L"isnull(a, 0)", 0));
  EXPECT_TRUE(sql_view_converter::check_isnull_for_replace(L"select isnull(a, 0) from t", 7));
}

TEST(SqlViewConverterCheck, NestedCallWithACommaMakesTwo) {
  EXPECT_FALSE(sql_view_converter::check_isnull_for_replace(L"isnull(f(a, b), 0)", 0));
}

TEST(SqlViewConverterCheck, CommaInsideAStringLiteralCounts) {
  EXPECT_FALSE(sql_view_converter::check_isnull_for_replace(L"isnull(a, ',')", 0));
}

TEST(SqlViewConverterCheck, NoCommaDoesNotHold) {
  EXPECT_FALSE(sql_view_converter::check_isnull_for_replace(L"isnull(a)", 0));
}

TEST(SqlViewConverterCheck, WalkStopsAtTheParenthesisThatClosesTheCall) {
  EXPECT_TRUE(sql_view_converter::check_isnull_for_replace(L"isnull(a, 0), b, c", 0));
}

TEST(SqlViewConverterCheck, ClosingParenthesisWithNothingOpenDoesNotStopTheWalk) {
  // Starting at pos + 6 inside "ifnull" the walk meets ") , x)": the first
  // ")" takes the depth below zero, and the walk goes on to the end.
  EXPECT_TRUE(sql_view_converter::check_isnull_for_replace(L"abcdef) , x)", 0));
  EXPECT_FALSE(sql_view_converter::check_isnull_for_replace(L"abcdef) , x), y", 0));
}

TEST(SqlViewConverterCheck, WithoutAClosingParenthesisTheWalkRunsToTheEnd) {
  EXPECT_TRUE(sql_view_converter::check_isnull_for_replace(L"isnull(a, b", 0));
}

TEST(SqlViewConverterCheck, PositionMinusOneOrOutsideTheTextDoesNotHold) {
  EXPECT_FALSE(sql_view_converter::check_isnull_for_replace(L"isnull(a, 0)", -1));
  EXPECT_FALSE(sql_view_converter::check_isnull_for_replace(L"isnull(a, 0)", 12));
  EXPECT_FALSE(sql_view_converter::check_isnull_for_replace(L"isnull(a, 0)", 100));
  EXPECT_FALSE(sql_view_converter::check_isnull_for_replace(L"", 0));
}

TEST(SqlViewConverterCheck, StartBehindTheEndDoesNotHold) {
  // pos is inside the text but pos + 6 is not.
  EXPECT_FALSE(sql_view_converter::check_isnull_for_replace(L"x, isnull", 3));
  EXPECT_FALSE(sql_view_converter::check_isnull_for_replace(L"isnull", 0));
}

TEST(SqlViewConverterCheck, StartsSixCharactersOnWhateverTheWord) {
  // For "dateadd" and "replicate" the walk begins inside the word; the
  // letters there change nothing.
  EXPECT_TRUE(sql_view_converter::check_isnull_for_replace(L"dateadd(d, INTERVAL 1 DAY)", 0));
  EXPECT_FALSE(sql_view_converter::check_isnull_for_replace(L"dateadd(day, 1, d)", 0));
  EXPECT_TRUE(sql_view_converter::check_isnull_for_replace(L"replicate(a, 3)", 0));
}

TEST(SqlViewConverterCheck, LogsTextAndPosition) {
  log_capture log;
  (void)sql_view_converter::check_isnull_for_replace(L"isnull(a,b)", 0);
  (void)sql_view_converter::check_isnull_for_replace(L"isnull(a,b)", -1);
  EXPECT_TRUE(log.has_line("sql_view_converter::check_isnull_for_replace(isnull(a,b),0)")) << log.text();
  EXPECT_TRUE(log.has_line("sql_view_converter::check_isnull_for_replace(isnull(a,b),-1)")) << log.text();
}

// --- The whole rewrite: isnull -------------------------------------------------

TEST(SqlViewConverterRefine, IsnullWithTwoArgumentsBecomesLowerCaseIfnull) {
  EXPECT_EQ(refine(L"select ISNULL(a,b) from t"), L"select ifnull(a,b) from t;");
  EXPECT_EQ(refine(L"select IsNull(a, 0) from t"), L"select ifnull(a, 0) from t;");
}

TEST(SqlViewConverterRefine, IsnullOverANestedCallStays) {
  EXPECT_EQ(refine(L"select isnull(f(a, b), 0) from t"), L"select isnull(f(a, b), 0) from t;");
}

TEST(SqlViewConverterRefine, IsnullWithACommaLiteralStays) {
  EXPECT_EQ(refine(L"select isnull(a, ',') from t"), L"select isnull(a, ',') from t;");
}

TEST(SqlViewConverterRefine, EachIsnullIsJudgedOnItsOwn) {
  EXPECT_EQ(refine(L"select isnull(a, 0), isnull(left(b, 2), ''), ISNULL(c, 1) from t"),
            L"select ifnull(a, 0), isnull(left(b, 2), ''), ifnull(c, 1) from t;");
}

TEST(SqlViewConverterRefine, IsnullInsideALongerWordIsJudgedToo) {
  // No test of word boundaries: "my_isnull(x, y)" has one comma.
  EXPECT_EQ(refine(L"select my_isnull(x, y)"), L"select my_ifnull(x, y);");
}

// --- getdate ---------------------------------------------------------------------

TEST(SqlViewConverterRefine, GetdateBecomesCurdateKeepingItsParentheses) {
  EXPECT_EQ(refine(L"select GetDate()"), L"select curdate();");
  EXPECT_EQ(refine(L"select GETDATE() as now, getdate ( ) as also"), L"select curdate() as now, curdate ( ) as also;");
}

// --- time --------------------------------------------------------------------------

TEST(SqlViewConverterRefine, TimeIsReplacedAnywhereWithoutWordBoundaries) {
  EXPECT_EQ(refine(L"select cast(d as datetime), start_time, StartTime from t"),
            L"select cast(d as datecurtime), start_curtime, Startcurtime from t;");
}

TEST(SqlViewConverterRefine, CurtimeAlreadyInTheSourceGrowsToCurcurtime) {
  EXPECT_EQ(refine(L"select curtime()"), L"select curcurtime();");
}

TEST(SqlViewConverterRefine, TextWrittenByTheTimeRuleIsNotSearchedAgain) {
  // Each hit moves the search on by the four letters of "time", so the
  // "time" inside the "curtime" just written is behind the search.
  EXPECT_EQ(refine(L"select TIME, time, Time"), L"select curtime, curtime, curtime;");
  EXPECT_EQ(refine(L"timetime"), L"curtimecurtime;");
}

TEST(SqlViewConverterRefine, StringLiteralHoldingTimeIsChangedLikeAnyOtherText) {
  EXPECT_EQ(refine(L"select 'Overtime' as label"), L"select 'Overcurtime' as label;");
}

// --- len( ---------------------------------------------------------------------------

TEST(SqlViewConverterRefine, LenCallBecomesLength) {
  EXPECT_EQ(refine(L"select LEN(name) from t"), L"select length(name) from t;");
}

TEST(SqlViewConverterRefine, ColumnNamedLenIsSafeButLongerFunctionNamesAreNot) {
  EXPECT_EQ(refine(L"select len, len (x) from t"), L"select len, len (x) from t;");
  EXPECT_EQ(refine(L"select strlen(a), datalen(b)"), L"select strlength(a), datalength(b);");
}

// --- datediff( ----------------------------------------------------------------------

TEST(SqlViewConverterRefine, DatediffLosesItsUnitWithoutABlank) {
  EXPECT_EQ(refine(L"select datediff(day,a,b)"), L"select datediff(a,b);");
}

TEST(SqlViewConverterRefine, DatediffLosesItsUnitKeepingTheBlank) {
  EXPECT_EQ(refine(L"select datediff(day, a, b)"), L"select datediff( a, b);");
}

TEST(SqlViewConverterRefine, DatediffUnitIsDroppedWhateverItIs) {
  EXPECT_EQ(refine(L"select DATEDIFF(hour, a, b), DateDiff(month,a,b), datediff(a, b)"),
            L"select DATEDIFF( a, b), DateDiff(a,b), datediff( b);");
}

TEST(SqlViewConverterRefine, DatediffWithoutACommaLosesTheRestAndTheSemicolonStillComesLast) {
  EXPECT_EQ(refine(L"select datediff(x) from t"), L"select datediff(;");
  EXPECT_EQ(refine(L"select datediff("), L"select datediff(;");
}

TEST(SqlViewConverterRefine, DatediffCommaIsFoundWhateverTheNestingOrQuoting) {
  EXPECT_EQ(refine(L"select datediff(f(','), a)"), L"select datediff('), a);");
}

TEST(SqlViewConverterRefine, DatediffLogsWhereAndHowMuchItErases) {
  log_capture log;
  EXPECT_EQ(refine(L"select datediff(day, a, b), datediff(x)"), L"select datediff( a, b), datediff(;");
  EXPECT_TRUE(test::lines_in_order(log.text(), {"Erase at pos=16, len=4", "Erase at pos=33, len=2"})) << log.text();
}

// --- dateadd ------------------------------------------------------------------------

TEST(SqlViewConverterRefine, DateaddWithTheUnitStaysDateadd) {
  EXPECT_EQ(refine(L"select dateadd(day, 1, d) from t"), L"select dateadd(day, 1, d) from t;");
}

TEST(SqlViewConverterRefine, DateaddWithTwoArgumentsBecomesDateAdd) {
  EXPECT_EQ(refine(L"select DATEADD(d, INTERVAL 1 DAY) from t"), L"select date_add(d, INTERVAL 1 DAY) from t;");
}

// --- replicate -----------------------------------------------------------------------

TEST(SqlViewConverterRefine, ReplicateWithTwoArgumentsBecomesRepeat) {
  EXPECT_EQ(refine(L"select replicate(a, 3)"), L"select repeat(a, 3);");
  EXPECT_EQ(refine(L"select REPLICATE('-', 10)"), L"select repeat('-', 10);");
}

TEST(SqlViewConverterRefine, ReplicateNestedAsTheFirstArgumentOfAShortenedCallIsPassedOver) {
  // The search goes on nine characters behind the outer word, which after
  // the shorter "repeat" is inside the inner "replicate".
  EXPECT_EQ(refine(L"select replicate(replicate(a, 2))"), L"select repeat(replicate(a, 2));");
}

TEST(SqlViewConverterRefine, ReplicateWhoseCallHasTwoCommasStays) {
  // Commas at any depth count: the outer call sees two and stays, the inner
  // one is then found on its own and has one.
  EXPECT_EQ(refine(L"select replicate(replicate(a, 2), 3)"), L"select replicate(repeat(a, 2), 3);");
}

// --- Names and brackets -------------------------------------------------------------

TEST(SqlViewConverterRefine, RenamedTablesAndColumnsAreWrittenWithBackticks) {
  udb_names_map names;
  names.add_tn_mapping(L"Sales/Region", L"Sales_Region");
  t_names_map fields;
  fields.add(L"Price+Tax", L"Price_Tax");
  names.add_fn_map(L"Sales_Region", fields);
  EXPECT_EQ(sql_view_converter::refine_view_in(sql_view_destination::server, L"select r.Price+Tax from Sales/Region r",
                                               names),
            L"select r.`Price_Tax` from `Sales_Region` r;");
}

TEST(SqlViewConverterRefine, BracketsBecomeBackticksEvenInsideLiterals) {
  EXPECT_EQ(refine(L"select [a b] from [t] where x = '[y]'"), L"select `a b` from `t` where x = '`y`';");
}

TEST(SqlViewConverterRefine, NamesAreRewrittenBeforeTheBracketRule) {
  // "[old]" is a whole word between brackets, so the name rule quotes it and
  // the brackets become two more back quotes.
  udb_names_map names;
  names.add_tn_mapping(L"old", L"new_name");
  EXPECT_EQ(sql_view_converter::refine_view_in(sql_view_destination::server, L"select * from [old]", names),
            L"select * from ``new_name``;");
}

TEST(SqlViewConverterRefine, OtherQuoteStringsQuoteNamesAndReplaceBrackets) {
  udb_names_map names;
  names.add_tn_mapping(L"t", L"t2");
  EXPECT_EQ(sql_view_converter::refine_view_in(sql_view_destination::dump, L"select [a] from t", names, L"\"", L"\""),
            L"select \"a\" from \"t2\";");
}

TEST(SqlViewConverterRefine, FunctionRulesSeeTheRenamedText) {
  // A generated name that holds "time" is rewritten by the time rule.
  udb_names_map names;
  t_names_map fields;
  fields.add(L"when", L"when_time");
  names.add_fn_map(L"t", fields);
  EXPECT_EQ(sql_view_converter::refine_view_in(sql_view_destination::server, L"select when from t", names),
            L"select `when_curtime` from t;");
}

// --- What the rules do not touch, and the end ---------------------------------------

TEST(SqlViewConverterRefine, TopConvertCastAndConcatenationGoThroughAsTheyAre) {
  EXPECT_EQ(refine(L"select TOP 10 CONVERT(varchar(10), d, 120) + 'x', CAST(n AS int) from t"),
            L"select TOP 10 CONVERT(varchar(10), d, 120) + 'x', CAST(n AS int) from t;");
}

TEST(SqlViewConverterRefine, ResultEndsInOneSemicolonAndInTwoWhenTheInputHadOne) {
  EXPECT_EQ(refine(L"select 1"), L"select 1;");
  EXPECT_EQ(refine(L"select 1;"), L"select 1;;");
}

TEST(SqlViewConverterRefine, TextShorterThanAWordIsLeftAlone) {
  EXPECT_EQ(refine(L"tim"), L"tim;");
  EXPECT_EQ(refine(L""), L";");
}

TEST(SqlViewConverterRefine, StepsRunInOrderOnTheCompressedText) {
  // The blank run inside "len (" is not the trigger "len(": compression runs
  // first and leaves one blank, so length() is not written.
  EXPECT_EQ(refine(L"select len\r\n(a),\r\n  isnull(b,\n 0)"), L"select len (a), ifnull(b, 0);");
}

TEST(SqlViewConverterRefine, LogsEachStageUnderTheDestinationsName) {
  log_capture log;
  udb_names_map names;
  names.add_tn_mapping(L"t", L"t2");
  EXPECT_EQ(sql_view_converter::refine_view_in(sql_view_destination::server, L"select [a],\n  b from t", names),
            L"select `a`, b from `t2`;");
  EXPECT_TRUE(test::lines_in_order(log.text(),
                                   {
                                       "sql_database::refine_view_in(select [a],\n  b from t)",
                                       "After do_global_replace: result=select [a], b from `t2`",
                                       "After replacing []: result=select `a`, b from `t2`",
                                   }))
      << log.text();
}

TEST(SqlViewConverterRefine, DumpLogsUnderItsOwnName) {
  log_capture log;
  const udb_names_map names;
  EXPECT_EQ(sql_view_converter::refine_view_in(sql_view_destination::dump, L"select 1", names), L"select 1;");
  EXPECT_TRUE(log.has_line("dmp_database::refine_view_in(select 1)")) << log.text();
  EXPECT_FALSE(log.has_line("sql_database::refine_view_in(select 1)"));
}

// --- Which texts are translated, and the statement -----------------------------------

TEST(SqlViewConverter, OnlyTextsBeginningWithSelectInAnyCaseAreViews) {
  EXPECT_TRUE(sql_view_converter::is_select_text(L"select 1"));
  EXPECT_TRUE(sql_view_converter::is_select_text(L"SeLeCt"));
  EXPECT_FALSE(sql_view_converter::is_select_text(L" select 1"));
  EXPECT_FALSE(sql_view_converter::is_select_text(L"/* x */ select 1"));
  EXPECT_FALSE(sql_view_converter::is_select_text(L"exec sp_who"));
  EXPECT_FALSE(sql_view_converter::is_select_text(L"selec"));
  EXPECT_FALSE(sql_view_converter::is_select_text(L""));
}

TEST(SqlViewConverter, CreateStatementTakesTheRefinedTextWithItsSemicolon) {
  EXPECT_EQ(sql_view_converter::create_view_statement(L"`v`", L"select 1;"),
            L"CREATE OR REPLACE VIEW `v` AS select 1;");
}

TEST(SqlViewConverter, SearchIgnoresCaseBeyondAscii) {
  EXPECT_EQ(sql_view_converter::find_no_case(L"x \u00c4RGER", L"\u00e4rger", 0), 2U);
  EXPECT_EQ(sql_view_converter::find_no_case(L"abc", L"abcd", 0), std::wstring::npos);
  EXPECT_EQ(sql_view_converter::find_no_case(L"abcabc", L"ABC", 1), 3U);
  EXPECT_EQ(sql_view_converter::find_no_case(L"abc", L"abc", 4), std::wstring::npos);
}

// --- refine_view_out ------------------------------------------------------------------

TEST(SqlViewConverterOut, RemovesTheDatabaseQualifierWhateverItsCase) {
  EXPECT_EQ(sql_view_converter::refine_view_out(
                L"select `Shop`.`orders`.`id` AS `id` from `shop`.`orders` join `SHOP`.`c`", L"shop"),
            L"select `orders`.`id` AS `id` from `orders` join `c`");
}

TEST(SqlViewConverterOut, OtherDatabasesKeepTheirQualifier) {
  EXPECT_EQ(sql_view_converter::refine_view_out(L"select `a` from `other`.`t`, `shop2`.`u`", L"shop"),
            L"select `a` from `other`.`t`, `shop2`.`u`");
}

TEST(SqlViewConverterOut, RemovesOnlyTheFirstComment) {
  EXPECT_EQ(sql_view_converter::refine_view_out(L"select /* one */ 1 /* two */", L"db"), L"select  1 /* two */");
}

TEST(SqlViewConverterOut, CommentMarksSharingTheStarCountAsAComment) {
  EXPECT_EQ(sql_view_converter::refine_view_out(L"a/*/b", L"db"), L"ab");
}

TEST(SqlViewConverterOut, UnclosedOrBackwardCommentStays) {
  EXPECT_EQ(sql_view_converter::refine_view_out(L"select 1 /* open", L"db"), L"select 1 /* open");
  EXPECT_EQ(sql_view_converter::refine_view_out(L"a */ b /* c", L"db"), L"a */ b /* c");
}

TEST(SqlViewConverterOut, LogsEntryAndEachRemoval) {
  log_capture log;
  EXPECT_EQ(sql_view_converter::refine_view_out(L"select `db`.`t`.`a` from `db`.`t`", L"db"),
            L"select `t`.`a` from `t`");
  EXPECT_TRUE(test::lines_in_order(log.text(),
                                   {
                                       "sql_database::refine_view_out(select `db`.`t`.`a` from `db`.`t`)",
                                       "Remove template found at pos=7",
                                       "Remove template found at pos=20",
                                   }))
      << log.text();
}

}  // namespace
}  // namespace qb
