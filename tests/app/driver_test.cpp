// The conversion driver against in-memory source and destination databases.
#include "app/driver.h"

#include <algorithm>
#include <regex>
#include <stdexcept>

#include <gtest/gtest.h>

#include "sql/compat_functions.h"
#include "tk/log.h"

#include "app_fixtures.h"
#include "support/temp_dir.h"

namespace qb::test {
namespace {

const std::string k_duplicate_message =
    "Duplicate field values being used for an unique index were found. See 'Troubleshooting' article of the "
    "product documentation for solution.";
const std::string k_not_conform = "The structure of data source does not conform to the destination table.";

headless_policy aborting() {
  headless_policy policy;
  policy.continue_answer = wizard_shell::answer_abort;
  return policy;
}

class Driver : public ::testing::Test {
 protected:
  Driver() {
    services.watch.finished = &converter.finished;
    converter.src = L"sales";
  }

  void run() { run_conversion(converter, services); }
  [[nodiscard]] std::string log() const { return capture.text(); }
  [[nodiscard]] bool logged(const std::string& line) const { return capture.has_line(line); }

  // The table of that name at the destination; a test failure when absent.
  memory_table& dest_table(const std::wstring& name) {
    memory_table* table = services.dest.find_table(name);
    if (table == nullptr) throw std::runtime_error("no such destination table");
    return *table;
  }
  std::vector<std::wstring> dest_names(const std::wstring& table) {
    std::vector<std::wstring> names;
    for (const udb_record& row : dest_table(table).rows) names.push_back(row[1].to_wstring());
    return names;
  }

  // Every database and recordset of the run went before finished was set.
  void expect_finished_last() {
    EXPECT_EQ(converter.finished.load(), 1);
    EXPECT_FALSE(services.watch.finished_at_close.empty());
    for (int value : services.watch.finished_at_close) EXPECT_EQ(value, 0);
  }

  // A destination table (id int primary key, name text) holding (1, "old").
  void existing_people(const std::wstring& table) {
    add_people(services.dest, table, 0);
    services.dest.add_row(table, {ole_variant(1), ole_variant(std::wstring(L"old"))});
  }

  // The destination refuses a row whose key it holds, as a server does.
  void refuse_duplicates() {
    services.dest.on_append = [this](const memory_table& table, const udb_record& row) {
      if (services.dest.has_duplicate_key(table, row)) throw duplicate_key();
    };
  }

  log_capture capture;
  handler_and_shell ui;
  plain_converter converter;
  memory_services services;
};

// --- the work list -----------------------------------------------------------------

TEST_F(Driver, EmptyWorkListStillRunsTheClosingSteps) {
  services.source.views = {{L"v1", L"select 1"}};
  converter.selected_views = {{L"v1", L"select 1"}};
  services.source.relationships.push_back(udb_rel(L"fk", L"", L"a", L"b", {L"x"}, {L"y"}, L""));

  run();

  EXPECT_EQ(ui.shell.log_text(), L"Converting database 'sales' (0 tables)\r\n");
  EXPECT_TRUE(lines_in_order(log(), {"Converting database 'sales' (0 tables)", ""}));
  EXPECT_TRUE(converter.table_reports.empty());
  std::vector<std::string> expected{"create_relationships"};
  expected.insert(expected.end(), 2 * sql_compat_function_count, "query");  // each function: drop, create
  expected.insert(expected.end(), {"create_views", "dest closed", "source closed"});
  EXPECT_EQ(services.watch.calls, expected);
  ASSERT_EQ(services.dest.statements.size(), 2 * sql_compat_function_count);
  EXPECT_EQ(services.dest.statements[0], L"DROP FUNCTION IF EXISTS SQUARE");
  ASSERT_EQ(services.dest.created_views.size(), 1U);
  EXPECT_TRUE(logged("Views: 1 converted, 0 failed"));
  expect_finished_last();
}

TEST_F(Driver, TableWithoutRowsIsCreatedCountedAndNeverReset) {
  add_people(services.source, L"[dbo].[empty]", 0);
  converter.selected_tables = {L"[dbo].[empty]"};

  run();

  EXPECT_TRUE(dest_table(L"[dbo].[empty]").rows.empty());
  EXPECT_EQ(services.watch.resets, 0);
  EXPECT_NE(ui.shell.log_text().find(L"Converting table [dbo].[empty] (0 records)\r\n"), std::wstring::npos);
  EXPECT_TRUE(lines_in_order(log(), {"Converting table [dbo].[empty] (0 records)", ""}));
  ASSERT_EQ(converter.table_reports.size(), 1U);
  EXPECT_FALSE(converter.table_reports[0].failed);
  EXPECT_TRUE(logged("Table '[dbo].[empty]': 0 read, 0 written, 0 not written (duplicate keys or errors), 0 warnings"));
  expect_finished_last();
}

TEST_F(Driver, CopiesEveryRowAndCountsBothSides) {
  add_people(services.source, L"[dbo].[people]", 3);
  converter.selected_tables = {L"[dbo].[people]"};

  run();

  EXPECT_EQ(dest_names(L"[dbo].[people]"), (std::vector<std::wstring>{L"a", L"b", L"c"}));
  EXPECT_EQ(services.watch.resets, 1);
  ASSERT_EQ(converter.table_reports.size(), 1U);
  const udb_table_report& report = converter.table_reports[0];
  EXPECT_EQ(report.name, L"[dbo].[people]");
  EXPECT_EQ(report.target, L"[dbo].[people]");
  EXPECT_EQ(report.read, 3U);
  EXPECT_EQ(report.written, 3U);
  EXPECT_EQ(report.not_written, 0U);
  EXPECT_TRUE(report.counted_by_destination);
  EXPECT_TRUE(logged("Converting table [dbo].[people] (3 records)"));
  EXPECT_TRUE(
      logged("Table '[dbo].[people]': 3 read, 3 written, 0 not written (duplicate keys or errors), 0 warnings"));
  // The selected tables joined the work list, which stays extended.
  EXPECT_EQ(converter.queries, (udb_named_texts{{L"[dbo].[people]", L""}}));
  // The progress counters are back at zero for the closing text.
  EXPECT_EQ(converter.n_tables.load(), 0U);
  EXPECT_EQ(converter.n_done_tables.load(), 0U);
  EXPECT_EQ(converter.n_records.load(), 3U);
  EXPECT_EQ(converter.n_done_records.load(), 3U);
  expect_finished_last();
}

TEST_F(Driver, CustomQueriesComeBeforeTheSelectedTables) {
  add_people(services.source, L"[dbo].[people]", 1);
  udb_schema top;
  top.push_back(int_column(L"n"));
  services.source.add_query(L"select n from x", std::move(top));
  services.source.add_query_row(L"select n from x", {ole_variant(7)});
  converter.queries = {{L"top", L"select n from x"}};
  converter.selected_tables = {L"[dbo].[people]"};

  run();

  ASSERT_EQ(converter.table_reports.size(), 2U);
  EXPECT_EQ(converter.table_reports[0].name, L"top");
  EXPECT_EQ(converter.table_reports[1].name, L"[dbo].[people]");
  EXPECT_EQ(dest_table(L"top").rows.size(), 1U);
  EXPECT_TRUE(logged("Converting database 'sales' (2 tables)"));
  EXPECT_TRUE(
      lines_in_order(log(), {"Converting table top (1 records)", "Converting table [dbo].[people] (1 records)"}));
}

TEST_F(Driver, OpensTheSourceReadOnlyWithTheSchemaFilter) {
  services.schema = L"dbo";
  run();
  EXPECT_EQ(services.source_mode, 1U);
  EXPECT_EQ(services.source_schema_given, L"dbo");
}

TEST_F(Driver, OnlyDefinitionsCreatesTablesWithIndexesAndReadsNoRow) {
  add_people(services.source, L"[dbo].[people]", 3);
  converter.selected_tables = {L"[dbo].[people]"};
  converter.only_definitions = 1;

  run();

  const memory_table& table = dest_table(L"[dbo].[people]");
  EXPECT_TRUE(table.rows.empty());
  ASSERT_EQ(table.indexes.size(), 1U);
  EXPECT_TRUE(table.indexes[0].b_primary);
  EXPECT_EQ(services.watch.resets, 0);
  EXPECT_EQ(converter.table_reports[0].read, 0U);
}

TEST_F(Driver, SkipIndexesCreatesTablesWithoutIndexes) {
  add_people(services.source, L"[dbo].[people]", 2);
  converter.selected_tables = {L"[dbo].[people]"};
  converter.skip_indexes = 1;

  run();

  EXPECT_TRUE(dest_table(L"[dbo].[people]").indexes.empty());
  EXPECT_EQ(dest_table(L"[dbo].[people]").rows.size(), 2U);
}

TEST_F(Driver, OnlyDefinitionsInMergeStillTestsTheStructure) {
  add_people(services.source, L"[dbo].[people]", 2);
  udb_schema other;
  other.push_back(text_column(L"id"));
  services.dest.add_table(L"[dbo].[people]", std::move(other));
  converter.selected_tables = {L"[dbo].[people]"};
  converter.only_definitions = 1;
  converter.mode = udb_mode_merge;

  run();

  EXPECT_EQ(ui.shell.errors(), (std::vector<std::string>{"[dbo].[people]: " + k_not_conform}));
  EXPECT_TRUE(converter.table_reports[0].failed);
}

// --- scenarios with a table that exists at the destination -------------------------

TEST_F(Driver, OverwriteDatabaseHandsAnExistingTableStraightToCreateTable) {
  add_people(services.source, L"[dbo].[people]", 2);
  existing_people(L"[dbo].[people]");
  converter.selected_tables = {L"[dbo].[people]"};
  converter.mode = udb_mode_overwrite_database;

  run();

  EXPECT_EQ(dest_names(L"[dbo].[people]"), (std::vector<std::wstring>{L"old", L"a", L"b"}));
  EXPECT_EQ(std::count(services.watch.calls.begin(), services.watch.calls.end(), "delete_tab"), 0);
  EXPECT_EQ(services.fast_mode_sets, (std::vector<std::uint8_t>{1}));
}

TEST_F(Driver, ScenarioDigitBeyondTheTableActsAsOverwriteDatabase) {
  add_people(services.source, L"[dbo].[people]", 2);
  existing_people(L"[dbo].[people]");
  converter.selected_tables = {L"[dbo].[people]"};
  converter.mode = 9;

  run();

  EXPECT_EQ(dest_names(L"[dbo].[people]"), (std::vector<std::wstring>{L"old", L"a", L"b"}));
  EXPECT_EQ(std::count(services.watch.calls.begin(), services.watch.calls.end(), "delete_tab"), 0);
  EXPECT_EQ(services.fast_mode_sets, (std::vector<std::uint8_t>{1}));
  EXPECT_FALSE(converter.table_reports[0].skipped);
}

TEST_F(Driver, OverwriteTablesDropsAnExistingTableWithoutTestingItsStructure) {
  add_people(services.source, L"[dbo].[people]", 2);
  udb_schema other;
  other.push_back(text_column(L"something else"));
  services.dest.add_table(L"[dbo].[people]", std::move(other));
  converter.selected_tables = {L"[dbo].[people]"};
  converter.mode = udb_mode_overwrite_tables;

  run();

  EXPECT_EQ(dest_names(L"[dbo].[people]"), (std::vector<std::wstring>{L"a", L"b"}));
  EXPECT_EQ(std::count(services.watch.calls.begin(), services.watch.calls.end(), "delete_tab"), 1);
  EXPECT_TRUE(ui.shell.errors().empty());
  EXPECT_EQ(services.fast_mode_sets, (std::vector<std::uint8_t>{1}));
}

TEST_F(Driver, SkipExistingLeavesTheTableNamesAndValidatorAlone) {
  add_people(services.source, L"[dbo].[people]", 2);
  add_people(services.source, L"[dbo].[orders]", 1);
  existing_people(L"people");
  services.schema = L"dbo";
  services.source.relationships.push_back(
      udb_rel(L"fk", L"dbo", L"[dbo].[orders]", L"[dbo].[people]", {L"id"}, {L"id"}, L""));
  converter.selected_tables = {L"[dbo].[people]", L"[dbo].[orders]"};
  converter.mode = udb_mode_skip_existing;
  std::uint32_t done_when_orders_ran = 99;
  services.dest.on_append = [&](const memory_table&, const udb_record&) {
    done_when_orders_ran = converter.n_done_tables.load();
  };

  run();

  EXPECT_EQ(dest_names(L"people"), (std::vector<std::wstring>{L"old"}));
  EXPECT_EQ(done_when_orders_ran, 1U);  // the skipped entry was counted
  ASSERT_EQ(converter.table_reports.size(), 2U);
  EXPECT_TRUE(converter.table_reports[0].skipped);
  EXPECT_TRUE(logged("Table '[dbo].[people]': skipped, it exists at the destination"));
  EXPECT_EQ(services.watch.resets, 1);  // only orders was read
  // No mapping for the skipped table; orders got one.
  EXPECT_EQ(services.dest.names_map.tn_map().find(L"[dbo].[people]"), nullptr);
  ASSERT_NE(services.dest.names_map.tn_map().find(L"[dbo].[orders]"), nullptr);
  // The foreign key still names the skipped table by its source name, which
  // the destination does not know.
  EXPECT_TRUE(services.dest.created_relationships.empty());
  EXPECT_FALSE(logged("Store generated table name 'people'"));
}

TEST_F(Driver, OverwriteTablesMapsTheStrippedNameForTheForeignKeys) {
  add_people(services.source, L"[dbo].[people]", 2);
  add_people(services.source, L"[dbo].[orders]", 1);
  existing_people(L"people");
  services.schema = L"dbo";
  services.source.relationships.push_back(
      udb_rel(L"fk", L"dbo", L"[dbo].[orders]", L"[dbo].[people]", {L"id"}, {L"id"}, L""));
  converter.selected_tables = {L"[dbo].[people]", L"[dbo].[orders]"};
  converter.mode = udb_mode_overwrite_tables;

  run();

  ASSERT_EQ(services.dest.created_relationships.size(), 1U);
  EXPECT_EQ(services.dest.created_relationships[0].fk_table, L"orders");
  EXPECT_EQ(services.dest.created_relationships[0].pk_table, L"people");
}

TEST_F(Driver, MergeDropsDuplicateRowsSilentlyAndCountsThem) {
  add_people(services.source, L"[dbo].[people]", 2);
  existing_people(L"[dbo].[people]");
  refuse_duplicates();
  converter.selected_tables = {L"[dbo].[people]"};
  converter.mode = udb_mode_merge;

  run();

  EXPECT_EQ(dest_names(L"[dbo].[people]"), (std::vector<std::wstring>{L"old", L"b"}));
  EXPECT_TRUE(ui.shell.errors().empty());
  EXPECT_TRUE(ui.shell.calls_of(headless_shell::call_kind::continue_or_abort).empty());
  EXPECT_EQ(services.fast_mode_sets, (std::vector<std::uint8_t>{1, 0}));
  EXPECT_TRUE(logged("MODE=3"));
  const udb_table_report& report = converter.table_reports[0];
  EXPECT_EQ(report.read, 2U);
  EXPECT_EQ(report.written, 1U);
  EXPECT_EQ(report.not_written, 1U);
  EXPECT_TRUE(
      logged("Table '[dbo].[people]': 2 read, 1 written, 1 not written (duplicate keys or errors), 0 warnings"));
}

TEST_F(Driver, SynchronizeReplacesTheStoredRowOfADuplicateKey) {
  add_people(services.source, L"[dbo].[people]", 2);
  existing_people(L"[dbo].[people]");
  refuse_duplicates();
  converter.selected_tables = {L"[dbo].[people]"};
  converter.mode = udb_mode_synchronize;

  run();

  EXPECT_EQ(dest_names(L"[dbo].[people]"), (std::vector<std::wstring>{L"a", L"b"}));
  EXPECT_TRUE(ui.shell.errors().empty());
  EXPECT_EQ(services.fast_mode_sets, (std::vector<std::uint8_t>{1, 0}));
  EXPECT_TRUE(logged("MODE=4"));
  EXPECT_TRUE(logged("udb_recordset::update1"));
  EXPECT_EQ(converter.table_reports[0].written, 2U);
  EXPECT_EQ(converter.table_reports[0].not_written, 0U);
}

TEST_F(Driver, SynchronizeUpdatesWithTheRawSourceRecord) {
  add_people(services.source, L"[dbo].[people]", 1);
  udb_schema target;
  target.push_back(int_column(L"id"));
  target.push_back(text_column(L"title"));
  udb_indexes key;
  key.push_back_direct(udb_index(L"PK", true, true, {L"id"}));
  services.dest.add_table(L"[dbo].[people]", std::move(target), std::move(key));
  services.dest.add_row(L"[dbo].[people]", {ole_variant(1), ole_variant(std::wstring(L"old"))});
  refuse_duplicates();
  sql_db_mutator mutators;
  mutators.get_table_mutator2(L"[dbo].[people]", L"[dbo].[people]")
      ->update_field(L"name", L"title", native(L"VARCHAR", 50));
  services.mutators = &mutators;
  converter.selected_tables = {L"[dbo].[people]"};
  converter.mode = udb_mode_synchronize;

  run();

  // The customised row hit the key; the update received the source's row,
  // whose column is still "name", which the table does not have.
  EXPECT_EQ(ui.shell.errors(), (std::vector<std::string>{"[dbo].[people]: " + k_not_conform}));
  EXPECT_EQ(dest_names(L"[dbo].[people]"), (std::vector<std::wstring>{L"old"}));
}

TEST_F(Driver, MergeRefusesATableOfAnotherStructureAndGoesOn) {
  add_people(services.source, L"[dbo].[a]", 1);
  add_people(services.source, L"[dbo].[b]", 1);
  udb_schema other;
  other.push_back(int_column(L"id"));
  services.dest.add_table(L"[dbo].[a]", std::move(other));
  converter.selected_tables = {L"[dbo].[a]", L"[dbo].[b]"};
  converter.mode = udb_mode_merge;

  run();

  EXPECT_EQ(ui.shell.errors(), (std::vector<std::string>{"[dbo].[a]: " + k_not_conform}));
  EXPECT_TRUE(dest_table(L"[dbo].[a]").rows.empty());
  EXPECT_EQ(dest_table(L"[dbo].[b]").rows.size(), 1U);
  EXPECT_TRUE(converter.table_reports[0].failed);
  EXPECT_EQ(converter.table_reports[0].error, k_not_conform);
}

class DriverNewTable : public Driver, public ::testing::WithParamInterface<std::uint32_t> {};

TEST_P(DriverNewTable, IsCreatedOnTheFastPathInEveryScenario) {
  add_people(services.source, L"[dbo].[people]", 2);
  converter.selected_tables = {L"[dbo].[people]"};
  converter.mode = GetParam();

  run();

  EXPECT_EQ(dest_names(L"[dbo].[people]"), (std::vector<std::wstring>{L"a", L"b"}));
  EXPECT_EQ(services.fast_mode_sets, (std::vector<std::uint8_t>{1}));
  EXPECT_TRUE(ui.shell.errors().empty());
}

INSTANTIATE_TEST_SUITE_P(Scenarios, DriverNewTable, ::testing::Values(0U, 1U, 2U, 3U, 4U, 9U));

class DriverOrdinaryDuplicate : public Driver, public ::testing::WithParamInterface<std::uint32_t> {};

TEST_P(DriverOrdinaryDuplicate, IsReportedAsARecordError) {
  add_people(services.source, L"[dbo].[people]", 0);
  services.source.add_row(L"[dbo].[people]", {ole_variant(1), ole_variant(std::wstring(L"a"))});
  services.source.add_row(L"[dbo].[people]", {ole_variant(1), ole_variant(std::wstring(L"b"))});
  services.source.add_row(L"[dbo].[people]", {ole_variant(2), ole_variant(std::wstring(L"c"))});
  refuse_duplicates();
  converter.selected_tables = {L"[dbo].[people]"};
  converter.mode = GetParam();

  run();

  EXPECT_EQ(ui.shell.errors(), (std::vector<std::string>{"[dbo].[people], record #2: " + k_duplicate_message}));
  EXPECT_EQ(ui.shell.calls_of(headless_shell::call_kind::continue_or_abort).size(), 1U);
  EXPECT_TRUE(logged(tk_format("MODE=%d", GetParam())));
  EXPECT_EQ(dest_names(L"[dbo].[people]"), (std::vector<std::wstring>{L"a", L"c"}));
  const udb_table_report& report = converter.table_reports[0];
  EXPECT_EQ(report.read, 3U);
  EXPECT_EQ(report.written, 2U);
  EXPECT_EQ(report.not_written, 1U);
  EXPECT_FALSE(report.failed);
}

INSTANTIATE_TEST_SUITE_P(Scenarios, DriverOrdinaryDuplicate, ::testing::Values(0U, 1U, 2U));

// --- the guards --------------------------------------------------------------------

TEST_F(Driver, AbortOnARecordEndsTheRun) {
  ui.shell.set_policy(aborting());
  add_people(services.source, L"[dbo].[a]", 3);
  add_people(services.source, L"[dbo].[b]", 1);
  services.dest.on_append = [](const memory_table& table, const udb_record& row) {
    if (table.name == L"[dbo].[a]" && row[0].to_wstring() == L"2") throw duplicate_key();
  };
  converter.selected_tables = {L"[dbo].[a]", L"[dbo].[b]"};

  run();

  EXPECT_EQ(dest_names(L"[dbo].[a]"), (std::vector<std::wstring>{L"a"}));
  EXPECT_EQ(services.dest.find_table(L"[dbo].[b]"), nullptr);
  ASSERT_EQ(converter.table_reports.size(), 1U);
  EXPECT_TRUE(converter.table_reports[0].failed);
  EXPECT_EQ(converter.table_reports[0].error, "The conversion was aborted by the user.");
  EXPECT_EQ(converter.table_reports[0].read, 2U);
  EXPECT_EQ(converter.table_reports[0].written, 1U);
  EXPECT_TRUE(services.watch.calls.end() ==
              std::find(services.watch.calls.begin(), services.watch.calls.end(), "create_relationships"));
  expect_finished_last();
}

TEST_F(Driver, FailedEntryIsReportedAndTheNextOneRuns) {
  add_people(services.source, L"[dbo].[people]", 1);
  converter.selected_tables = {L"[dbo].[missing]", L"[dbo].[people]"};
  std::uint32_t done_when_people_ran = 99;
  services.dest.on_append = [&](const memory_table&, const udb_record&) {
    done_when_people_ran = converter.n_done_tables.load();
  };

  run();

  EXPECT_EQ(ui.shell.errors(), (std::vector<std::string>{"[dbo].[missing]: Table '[dbo].[missing]' does not exist"}));
  const auto boxes = ui.shell.calls_of(headless_shell::call_kind::error);
  ASSERT_EQ(boxes.size(), 1U);
  EXPECT_EQ(boxes[0].text, L"[dbo].[missing]: Table '[dbo].[missing]' does not exist");
  EXPECT_EQ(done_when_people_ran, 1U);
  EXPECT_EQ(dest_table(L"[dbo].[people]").rows.size(), 1U);
  ASSERT_EQ(converter.table_reports.size(), 2U);
  EXPECT_TRUE(converter.table_reports[0].failed);
  EXPECT_EQ(converter.table_reports[0].error, "Table '[dbo].[missing]' does not exist");
  EXPECT_FALSE(converter.table_reports[1].failed);
  EXPECT_TRUE(
      logged("Table '[dbo].[missing]': 0 read, 0 written, 0 not written (duplicate keys or errors), 0 warnings"));
}

TEST_F(Driver, ContinuableEntryFailureMayGoOn) {
  add_people(services.source, L"[dbo].[a]", 2);
  add_people(services.source, L"[dbo].[b]", 1);
  services.dest.on_append = [](const memory_table& table, const udb_record&) {
    if (table.name == L"[dbo].[a]") throw tk_exception("Disk quota exceeded", 0);
  };
  converter.selected_tables = {L"[dbo].[a]", L"[dbo].[b]"};

  run();

  EXPECT_EQ(ui.shell.errors(), (std::vector<std::string>{"[dbo].[a]: Disk quota exceeded"}));
  EXPECT_EQ(dest_table(L"[dbo].[b]").rows.size(), 1U);
  EXPECT_EQ(converter.table_reports[0].read, 1U);
  EXPECT_EQ(converter.table_reports[0].written, 0U);
  expect_finished_last();
}

TEST_F(Driver, AbortOnAnEntryEndsTheRun) {
  ui.shell.set_policy(aborting());
  add_people(services.source, L"[dbo].[a]", 2);
  add_people(services.source, L"[dbo].[b]", 1);
  services.dest.on_append = [](const memory_table& table, const udb_record&) {
    if (table.name == L"[dbo].[a]") throw tk_exception("Disk quota exceeded", 0);
  };
  converter.selected_tables = {L"[dbo].[a]", L"[dbo].[b]"};

  run();

  EXPECT_EQ(services.dest.find_table(L"[dbo].[b]"), nullptr);
  EXPECT_EQ(converter.table_reports.size(), 1U);
  expect_finished_last();
}

TEST_F(Driver, SourceThatCannotBeOpenedEndsTheRunReported) {
  services.source_fails = true;
  converter.selected_tables = {L"[dbo].[a]"};
  services.watch.calls.clear();

  run();

  const auto boxes = ui.shell.calls_of(headless_shell::call_kind::error);
  ASSERT_EQ(boxes.size(), 1U);
  EXPECT_EQ(boxes[0].text, L"Cannot open the source database");
  EXPECT_EQ(ui.shell.errors(), (std::vector<std::string>{"Cannot open the source database"}));
  EXPECT_TRUE(services.watch.calls.empty());  // the destination was never opened
  EXPECT_EQ(converter.finished.load(), 1);
}

TEST_F(Driver, StandardFailureEndsTheRunThroughTheShell) {
  add_people(services.source, L"[dbo].[a]", 2);
  add_people(services.source, L"[dbo].[b]", 1);
  services.dest.on_append = [](const memory_table&, const udb_record&) { throw std::runtime_error("out of memory"); };
  converter.selected_tables = {L"[dbo].[a]", L"[dbo].[b]"};

  run();

  const auto boxes = ui.shell.calls_of(headless_shell::call_kind::error);
  ASSERT_EQ(boxes.size(), 1U);
  EXPECT_EQ(boxes[0].text, L"out of memory");
  ASSERT_EQ(converter.table_reports.size(), 1U);
  EXPECT_EQ(converter.table_reports[0].error, "out of memory");
  EXPECT_EQ(services.dest.find_table(L"[dbo].[b]"), nullptr);
  expect_finished_last();
}

// --- cancelling ---------------------------------------------------------------------

TEST_F(Driver, CancelBeforeTheFirstEntryConvertsNothing) {
  add_people(services.source, L"[dbo].[a]", 1);
  add_people(services.source, L"[dbo].[b]", 1);
  converter.selected_tables = {L"[dbo].[a]", L"[dbo].[b]"};
  converter.set_cancel(1);

  run();

  EXPECT_TRUE(services.dest.table_names().empty());
  EXPECT_TRUE(logged("Conversion cancelled by the user before '[dbo].[a]' (0 of 2 entries done)"));
  EXPECT_TRUE(logged("Relationships and views are not converted: the run was cancelled"));
  EXPECT_EQ(std::count(services.watch.calls.begin(), services.watch.calls.end(), "create_relationships"), 0);
  expect_finished_last();
}

TEST_F(Driver, CancelBetweenEntriesStopsBeforeTheNext) {
  add_people(services.source, L"[dbo].[a]", 3);
  add_people(services.source, L"[dbo].[b]", 1);
  converter.selected_tables = {L"[dbo].[a]", L"[dbo].[b]"};
  services.dest.on_append = [this](const memory_table& table, const udb_record&) {
    if (table.rows.size() == 2) converter.set_cancel(1);  // the third and last row of a
  };

  run();

  EXPECT_EQ(dest_table(L"[dbo].[a]").rows.size(), 3U);
  EXPECT_EQ(services.dest.find_table(L"[dbo].[b]"), nullptr);
  ASSERT_EQ(converter.table_reports.size(), 1U);
  EXPECT_FALSE(converter.table_reports[0].cancelled);
  EXPECT_TRUE(logged("Conversion cancelled by the user before '[dbo].[b]' (1 of 2 entries done)"));
  EXPECT_NE(ui.shell.log_text().find(L"Conversion cancelled before '[dbo].[b]'\r\n"), std::wstring::npos);
  expect_finished_last();
}

TEST_F(Driver, CancelBetweenRecordsKeepsWhatWasWritten) {
  add_people(services.source, L"[dbo].[a]", 5);
  add_people(services.source, L"[dbo].[b]", 1);
  converter.selected_tables = {L"[dbo].[a]", L"[dbo].[b]"};
  services.dest.on_append = [this](const memory_table& table, const udb_record&) {
    if (table.rows.size() == 1) converter.set_cancel(1);  // the second row
  };

  run();

  EXPECT_EQ(dest_names(L"[dbo].[a]"), (std::vector<std::wstring>{L"a", L"b"}));
  EXPECT_EQ(services.dest.find_table(L"[dbo].[b]"), nullptr);
  ASSERT_EQ(converter.table_reports.size(), 1U);
  const udb_table_report& report = converter.table_reports[0];
  EXPECT_TRUE(report.cancelled);
  EXPECT_EQ(report.read, 2U);
  EXPECT_EQ(report.written, 2U);
  EXPECT_TRUE(logged("Conversion cancelled by the user in '[dbo].[a]' after record #2 of 5"));
  EXPECT_TRUE(logged("Table '[dbo].[a]': 2 read, 2 written, 0 not written (duplicate keys or errors), 0 warnings"));
  // The entry's recordsets went first, then the run's databases.
  EXPECT_EQ(services.watch.calls,
            (std::vector<std::string>{"source recordset closed", "dest closed", "source closed"}));
  expect_finished_last();
}

TEST_F(Driver, CancelAfterTheLastEntrySkipsRelationshipsAndViews) {
  add_people(services.source, L"[dbo].[a]", 1);
  services.source.views = {{L"v", L"select 1"}};
  converter.selected_views = {{L"v", L"select 1"}};
  converter.selected_tables = {L"[dbo].[a]"};
  services.dest.on_append = [this](const memory_table&, const udb_record&) { converter.set_cancel(1); };

  run();

  EXPECT_TRUE(logged("Conversion cancelled by the user before relationships and views"));
  EXPECT_TRUE(services.dest.created_views.empty());
  EXPECT_FALSE(converter.view_report.attempted);
}

// --- rows held back by the destination ----------------------------------------------

TEST_F(Driver, RowsHeldBackAreSentAtTheEndOfEachTableAndCounted) {
  services.batch.size = 10;
  add_people(services.source, L"[dbo].[a]", 3);
  add_people(services.source, L"[dbo].[b]", 2);
  converter.selected_tables = {L"[dbo].[a]", L"[dbo].[b]"};
  std::size_t a_rows_when_b_began = 0;
  services.dest.on_append = [&](const memory_table& table, const udb_record&) {
    if (table.name == L"[dbo].[b]" && a_rows_when_b_began == 0) {
      a_rows_when_b_began = dest_table(L"[dbo].[a]").rows.size();
    }
  };

  run();

  EXPECT_EQ(a_rows_when_b_began, 3U);
  EXPECT_EQ(dest_table(L"[dbo].[b]").rows.size(), 2U);
  EXPECT_EQ(converter.table_reports[0].written, 3U);
  EXPECT_EQ(converter.table_reports[1].written, 2U);
}

TEST_F(Driver, FailureOfTheLastBatchFailsItsTable) {
  services.batch.size = 10;
  services.batch.fail_flush = true;
  add_people(services.source, L"[dbo].[a]", 3);
  converter.selected_tables = {L"[dbo].[a]"};

  run();

  EXPECT_EQ(ui.shell.errors(), (std::vector<std::string>{"[dbo].[a]: Lost connection to MySQL server"}));
  const udb_table_report& report = converter.table_reports[0];
  EXPECT_TRUE(report.failed);
  EXPECT_EQ(report.read, 3U);
  EXPECT_EQ(report.written, 0U);
  EXPECT_EQ(report.not_written, 3U);
  EXPECT_TRUE(logged("Table '[dbo].[a]': 3 read, 0 written, 3 not written (duplicate keys or errors), 0 warnings"));
}

TEST_F(Driver, CancelSendsTheRowsHeldBack) {
  services.batch.size = 10;
  add_people(services.source, L"[dbo].[a]", 5);
  converter.selected_tables = {L"[dbo].[a]"};
  watching_table_mutator watcher(L"[dbo].[a]");
  watcher.update_field(L"name", L"name", native(L"VARCHAR", 50));
  int rows_seen = 0;
  watcher.on_row = [&](const udb_record&) {
    if (++rows_seen == 2) converter.set_cancel(1);
  };
  services.watched_mutators[L"[dbo].[a]"] = &watcher;

  run();

  EXPECT_EQ(rows_seen, 2);
  EXPECT_EQ(dest_names(L"[dbo].[a]"), (std::vector<std::wstring>{L"a", L"b"}));
  EXPECT_TRUE(converter.table_reports[0].cancelled);
  EXPECT_EQ(converter.table_reports[0].written, 2U);
  expect_finished_last();
}

// --- names ---------------------------------------------------------------------------

TEST_F(Driver, SameBaseNameInTwoSchemasGetsAGeneratedName) {
  add_people(services.source, L"[dbo].[t]", 1);
  add_people(services.source, L"[s].[t]", 1);
  services.schema = L"dbo";
  converter.selected_tables = {L"[dbo].[t]", L"[s].[t]"};

  run();

  EXPECT_EQ(dest_table(L"t").rows.size(), 1U);
  EXPECT_EQ(dest_table(L"t00000").rows.size(), 1U);
  const t_names_map& map = services.dest.names_map.tn_map();
  ASSERT_NE(map.find(L"[dbo].[t]"), nullptr);
  EXPECT_EQ(*map.find(L"[dbo].[t]"), L"t");
  ASSERT_NE(map.find(L"[s].[t]"), nullptr);
  EXPECT_EQ(*map.find(L"[s].[t]"), L"t00000");
  EXPECT_TRUE(lines_in_order(
      log(), {"name=t, owner=dbo", "Generate safe full name: t", "Store generated table name 't'", "name=t, owner=s",
              "Store generated table name 't00000'", "udb_database::add_tn_mapping([s].[t]->t00000)",
              "udb_names_map::add_tn_mapping([s].[t],t00000)"}));
  EXPECT_EQ(converter.table_reports[1].target, L"t00000");
}

TEST_F(Driver, WithoutSchemaFilterTheFullNameIsTheTargetName) {
  add_people(services.source, L"[dbo].[t]", 1);
  converter.selected_tables = {L"[dbo].[t]"};

  run();

  EXPECT_EQ(dest_table(L"[dbo].[t]").rows.size(), 1U);
  EXPECT_TRUE(services.dest.names_map.tn_map().empty());
}

TEST_F(Driver, NameDifferingOnlyInLetterCaseIsMapped) {
  add_people(services.source, L"orders", 1);
  sql_db_mutator mutators;
  mutators.get_table_mutator2(L"orders", L"ORDERS");
  services.mutators = &mutators;
  converter.selected_tables = {L"orders"};

  run();

  ASSERT_NE(services.dest.names_map.tn_map().find(L"orders"), nullptr);
  EXPECT_EQ(*services.dest.names_map.tn_map().find(L"orders"), L"ORDERS");
  EXPECT_TRUE(logged("Store generated table name 'ORDERS'"));
}

TEST_F(Driver, CustomisationsReachTableIndexesAndRows) {
  add_people(services.source, L"[dbo].[people]", 2);
  sql_db_mutator mutators;
  mutators.get_table_mutator2(L"[dbo].[people]", L"persons")->update_field(L"id", L"person_id", native(L"INT"));
  services.mutators = &mutators;
  converter.selected_tables = {L"[dbo].[people]"};

  run();

  const memory_table& table = dest_table(L"persons");
  EXPECT_EQ(table.schema[0].name, L"person_id");
  EXPECT_EQ(table.indexes[0].fields, (std::vector<std::wstring>{L"person_id"}));
  ASSERT_EQ(table.rows.size(), 2U);
  EXPECT_EQ(table.rows[1][0].to_wstring(), L"2");
  EXPECT_TRUE(logged("udb_db_mutator::modify1([dbo].[people])"));
}

TEST_F(Driver, OldServerRulesRepairAReservedTableName) {
  add_people(services.source, L"select", 1);
  services.version = 0x040017;
  converter.selected_tables = {L"select"};

  run();

  EXPECT_EQ(dest_table(L"select00000").rows.size(), 1U);
  EXPECT_TRUE(logged("is_old_version(00040017)"));
}

TEST_F(Driver, NewServerRulesKeepAReservedWord) {
  add_people(services.source, L"select", 1);
  converter.selected_tables = {L"select"};

  run();

  EXPECT_EQ(dest_table(L"select").rows.size(), 1U);
  EXPECT_TRUE(logged("is_old_version(00050700)"));
}

TEST_F(Driver, ValidatorKnowsTheSelectedTablesThenTheDestinationTables) {
  add_people(services.source, L"[dbo].[a]", 1);
  add_people(services.dest, L"existing", 0);
  converter.selected_tables = {L"[dbo].[a]"};

  run();

  EXPECT_TRUE(lines_in_order(
      log(), {"sql_engine::create_tn_validator", "is_old_version(00050700)",
              "udb_validator::add_existing_name([dbo].[a])", "udb_validator::add_existing_name(existing)"}));
}

// --- server and dump -------------------------------------------------------------------

TEST_F(Driver, ServerRunAsksForTheLargerPacket) {
  run();
  EXPECT_EQ(services.packet_requests, (std::vector<std::uint32_t>{0xC800000}));
}

TEST_F(Driver, DumpRunHasNoPacketStep) {
  services.direct = false;
  run();
  EXPECT_TRUE(services.packet_requests.empty());
}

// --- views ----------------------------------------------------------------------------

TEST_F(Driver, NoViewsNoFunctions) {
  run();
  EXPECT_TRUE(services.dest.statements.empty());
  EXPECT_TRUE(logged("Views: 0 converted, 0 failed"));
}

TEST_F(Driver, ViewsAreNotConvertedWhenSwitchedOff) {
  services.source.views = {{L"v", L"select 1"}};
  converter.selected_views = {{L"v", L"select 1"}};
  converter.convert_views = 0;

  run();

  EXPECT_TRUE(services.dest.created_views.empty());
  EXPECT_FALSE(converter.view_report.attempted);
}

TEST_F(Driver, ViewsAreNotConvertedWhenTheDestinationCannotTakeThem) {
  services.source.views = {{L"v", L"select 1"}};
  converter.selected_views = {{L"v", L"select 1"}};
  services.views_possible = false;

  run();

  EXPECT_TRUE(services.dest.created_views.empty());
}

TEST_F(Driver, RefusedViewIsCountedAndReported) {
  services.source.views = {{L"v1", L"select 1"}, {L"v2", L"select 2"}};
  converter.selected_views = {{L"v1", L"select 1"}, {L"v2", L"select 2"}};
  services.dest.refused_views = {L"v2"};

  run();

  EXPECT_TRUE(logged("Views: 1 converted, 1 failed"));
  EXPECT_EQ(ui.shell.errors(), (std::vector<std::string>{"View 'v2': View v2 cannot be created"}));
  EXPECT_TRUE(converter.view_report.counted);
  EXPECT_EQ(converter.view_report.handed, 2U);
  EXPECT_EQ(converter.view_report.created, 1U);
  EXPECT_EQ(converter.view_report.failed, 1U);
}

TEST_F(Driver, ViewsTakeTheSourceDefinitionOrTheSavedOne) {
  services.source.views = {{L"v1", L"select\r\n1"}};
  converter.selected_views = {{L"V1", L"select 1"}, {L"gone", L"select 3"}};

  run();

  EXPECT_EQ(services.dest.created_views, (udb_view_list{{L"v1", L"select\r\n1"}, {L"gone", L"select 3"}}));
  EXPECT_TRUE(logged("View 'gone' is not in the source; its saved definition is used"));
}

// --- the log ------------------------------------------------------------------------------

TEST_F(Driver, RunIsFramedByItsStartAndEndLines) {
  run();
  const std::vector<std::string> lines = log_lines(log());
  const auto first = std::find(lines.begin(), lines.end(), "quillbridge_convertor::operator()");
  ASSERT_GE(std::distance(first, lines.end()), 5);
  EXPECT_EQ(first[1], "init_conversion::ctor");
  EXPECT_TRUE(std::regex_match(first[2], std::regex(R"(Conversion started on \d\d/\d\d/\d{4} at \d\d:\d\d:\d\d)")));
  EXPECT_EQ(lines[lines.size() - 2], "init_conversion::dtor");
  EXPECT_TRUE(std::regex_match(lines.back(), std::regex(R"(Conversion ended on \d\d/\d\d/\d{4} at \d\d:\d\d:\d\d)")));
  EXPECT_TRUE(logged("After initializing DBs"));
}

TEST_F(Driver, LogLevelIsTwoWhileRowsFlowAndRestoredAfterwards) {
  add_people(services.source, L"[dbo].[a]", 1);
  converter.selected_tables = {L"[dbo].[a]"};
  int level_during_rows = 0;
  services.dest.on_append = [&](const memory_table&, const udb_record&) {
    level_during_rows = tk_logger::instance().level();
  };

  run();

  EXPECT_EQ(level_during_rows, 2);
  EXPECT_EQ(tk_logger::instance().level(), 1);
  EXPECT_FALSE(logged("Converting 0 record"));  // a detail line, kept out
}

}  // namespace
}  // namespace qb::test
