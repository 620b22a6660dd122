// udb_converter: defaults, the progress arithmetic, the generic profile keys.
#include "udb/converter.h"

#include <gtest/gtest.h>

#include "udb/profile.h"

#include "support/temp_dir.h"

namespace qb::test {
namespace {

class plain_converter : public udb_converter {
 public:
  int test_query(const std::wstring& text) override { return text.empty() ? 0 : 1; }
};

TEST(UdbConverter, StartsWithItsDefaults) {
  log_capture log;
  plain_converter converter;
  EXPECT_TRUE(log.has_line("udb_converter::ctor"));
  EXPECT_EQ(converter.mode, 0U);
  EXPECT_EQ(converter.n_tables.load(), 0U);
  EXPECT_EQ(converter.n_done_tables.load(), 0U);
  EXPECT_EQ(converter.n_records.load(), 0U);
  EXPECT_EQ(converter.n_done_records.load(), 0U);
  EXPECT_EQ(converter.only_definitions, 0);
  EXPECT_EQ(converter.skip_indexes, 0);
  EXPECT_EQ(converter.convert_views, 1);
  EXPECT_TRUE(converter.current_table().empty());
  EXPECT_EQ(converter.finished.load(), 0);
  EXPECT_EQ(converter.b_cancel.load(), 0);
  EXPECT_TRUE(converter.table_reports.empty());
  EXPECT_FALSE(converter.view_report.attempted);
}

TEST(UdbConverter, CurrentTableIsSetAndRead) {
  plain_converter converter;
  converter.set_current_table(L"[dbo].[orders]");
  EXPECT_EQ(converter.current_table(), L"[dbo].[orders]");
}

TEST(UdbProgress, IsZeroWithoutTables) { EXPECT_EQ(udb_progress_percent(0, 0, 100, 50), 0); }

TEST(UdbProgress, TableWithoutRowsShowsOnlyTheTableShare) {
  EXPECT_EQ(udb_progress_percent(4, 1, 0, 0), 25);
  EXPECT_EQ(udb_progress_percent(3, 2, 0, 0), 66);
}

TEST(UdbProgress, AddsTheShareOfTheCurrentTable) {
  EXPECT_EQ(udb_progress_percent(4, 1, 200, 50), 31);  // 25 + 5000 / 200 / 4
  EXPECT_EQ(udb_progress_percent(1, 0, 3, 2), 66);
  EXPECT_EQ(udb_progress_percent(2, 2, 10, 10), 150);  // the closing steps reset the counters to 0
}

TEST(UdbProgress, ReadsTheConvertersCounters) {
  plain_converter converter;
  converter.n_tables = 2;
  converter.n_done_tables = 1;
  converter.n_records = 10;
  converter.n_done_records = 5;
  EXPECT_EQ(udb_progress_percent(converter), 75);
}

TEST(UdbProgress, CountsOfBillionsOfRowsDoNotOverflow) {
  EXPECT_EQ(udb_progress_percent(1, 0, 4'000'000'000'000ULL, 2'000'000'000'000ULL), 50);
}

TEST(UdbConverterProfile, ReadsTheGenericKeysAndLists) {
  udb_profile profile;
  profile.set_value(udb_profile_generic_settings, L"src", L"crm");
  profile.set_value(udb_profile_generic_settings, L"dest", L"shop");
  profile.set_value(udb_profile_generic_settings, L"only definitions", L"2");
  profile.set_value(udb_profile_generic_settings, L"skip indexes", L"0");
  profile.set_value(udb_profile_generic_settings, L"mode", L"4");
  profile.set_value(udb_profile_selected_tables, L"dbo.orders", L"");
  profile.set_value(udb_profile_selected_tables, L"q", L"select 1");
  profile.set_value(udb_profile_available_queries, L"r", L"select 2");
  profile.set_value(udb_profile_selected_views, L"v", L"select 3");
  plain_converter converter;
  converter.skip_indexes = 1;

  EXPECT_TRUE(converter.load_profile(profile));

  EXPECT_EQ(converter.src, L"crm");
  EXPECT_EQ(converter.dest, L"shop");
  EXPECT_EQ(converter.only_definitions, 1);
  EXPECT_EQ(converter.skip_indexes, 0);
  EXPECT_EQ(converter.mode, 4U);
  EXPECT_EQ(converter.queries, (udb_named_texts{{L"dbo.orders", L""}, {L"q", L"select 1"}}));
  EXPECT_EQ(converter.available_queries, (udb_named_texts{{L"r", L"select 2"}}));
  EXPECT_EQ(converter.selected_views, (udb_named_texts{{L"v", L"select 3"}}));
}

TEST(UdbConverterProfile, ModeOfTwoCharactersIsIgnored) {
  udb_profile profile;
  profile.set_value(udb_profile_generic_settings, L"mode", L"12");
  plain_converter converter;
  converter.mode = 2;
  converter.load_profile(profile);
  EXPECT_EQ(converter.mode, 2U);
}

TEST(UdbConverterProfile, WritesTheGenericKeysAndItsLists) {
  plain_converter converter;
  converter.src = L"crm";
  converter.dest = L"shop";
  converter.log_file = "/tmp/a.log";
  converter.skip_indexes = 1;
  converter.mode = 3;
  converter.available_queries = {{L"r", L"select\r\n2"}};
  converter.selected_views = {{L"v", L"select 3"}};
  udb_profile profile;

  EXPECT_TRUE(converter.store_profile(profile));

  EXPECT_EQ(profile.get_value(udb_profile_generic_settings, L"src"), L"crm");
  EXPECT_EQ(profile.get_value(udb_profile_generic_settings, L"dest"), L"shop");
  EXPECT_EQ(profile.get_value(udb_profile_generic_settings, L"logfile"), L"/tmp/a.log");
  EXPECT_EQ(profile.get_value(udb_profile_generic_settings, L"skip indexes"), L"1");
  EXPECT_EQ(profile.get_value(udb_profile_generic_settings, L"only definitions"), L"0");
  EXPECT_EQ(profile.get_value(udb_profile_generic_settings, L"mode"), L"3");
  EXPECT_EQ(profile.get_value(udb_profile_available_queries, L"r"), L"select 2");
  EXPECT_EQ(profile.get_value(udb_profile_selected_views, L"v"), L"select 3");
  // The work list is the product converter's to write, with its name forms.
  EXPECT_EQ(profile.sections.count(udb_profile_selected_tables), 0U);
}

}  // namespace
}  // namespace qb::test
