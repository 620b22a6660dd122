// The foreign keys of a run as the destination receives them, when the
// source names a key's tables in another form than the work list and the
// user's changes rename its tables and columns (in-memory source and
// destination; the servers' own tests are type_mappings_mariadb_test.cpp).
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "app/convertor.h"

#include "app_fixtures.h"
#include "support/temp_dir.h"

namespace qb::test {
namespace {

using vt = ole_variant;
using names = std::vector<std::wstring>;

class RelationshipNames : public ::testing::Test {
 protected:
  RelationshipNames() {
    converter.set_source_engine(source);
    converter.set_target(target);
    converter.mysql_engine().set_version(0x0A0B13);
    converter.src = L"sales";
    converter.dest = L"shop";
    converter.mss_schema = L"dbo";
    memory_store& store = source.stores.store(L"sales");

    udb_schema groups;
    groups.push_back(memory_column(L"id", vt::vt_i4, 0, true));
    groups.push_back(memory_column(L"name", vt::vt_bstr, 40));
    udb_indexes group_keys;
    group_keys.push_back_direct(udb_index(L"PK_groups", true, true, {L"id"}));
    store.add_table(L"[dbo].[groups]", std::move(groups), std::move(group_keys));
    store.add_row(L"[dbo].[groups]", {vt(1), vt(std::wstring(L"one"))});

    udb_schema items;
    items.push_back(memory_column(L"id", vt::vt_i4, 0, true));
    items.push_back(memory_column(L"group_id", vt::vt_i4));
    items.push_back(memory_column(L"old_group", vt::vt_i4));
    udb_indexes item_keys;
    item_keys.push_back_direct(udb_index(L"PK_items", true, true, {L"id"}));
    store.add_table(L"[dbo].[items]", std::move(items), std::move(item_keys));
    store.add_row(L"[dbo].[items]", {vt(1), vt(1), vt(1)});

    // The source names the tables of its keys in the composed form, as the
    // SQL Server catalog gives them.
    store.relationships.push_back(
        udb_rel(L"FK_items_groups", L"dbo", L"dbo.items", L"dbo.groups", {L"group_id"}, {L"id"}, L""));
    store.relationships.push_back(
        udb_rel(L"FK_items_old", L"dbo", L"dbo.items", L"dbo.groups", {L"old_group"}, {L"id"}, L""));
    // The work list has them bracketed, as a profile's selection becomes.
    converter.selected_tables = {L"[dbo].[groups]", L"[dbo].[items]"};
  }

  const udb_relationships& made() { return target.stores.store(L"shop").created_relationships; }

  user_folders folders;
  log_capture capture;
  handler_and_shell ui;
  memory_source_engine source;
  memory_target target;
  quillbridge_convertor converter;
};

TEST_F(RelationshipNames, KeyOfTablesNamedInAnotherFormReachesTheirTargets) {
  EXPECT_EQ(converter(), 0);
  ASSERT_EQ(made().size(), 2U);
  EXPECT_EQ(made()[0].fk_table, L"items");
  EXPECT_EQ(made()[0].pk_table, L"groups");
  EXPECT_EQ(made()[0].fk_fields, (names{L"group_id"}));
  EXPECT_TRUE(capture.has_line("Foreign key 'FK_items_groups': table 'dbo.items' is the entry '[dbo].[items]'"));
}

TEST_F(RelationshipNames, RenamedTablesAndColumnsAreNamedAsTheDestinationHasThem) {
  sql_native_type integer;
  integer.name = L"INT";
  sql_table_mutator* groups = converter.get_table_mutator2(L"[dbo].[groups]", L"product_groups");
  groups->update_field(L"id", L"group_key", integer);
  sql_table_mutator* items = converter.get_table_mutator2(L"[dbo].[items]", L"articles");
  items->update_field(L"group_id", L"group_ref", integer);
  items->update_field(L"old_group", L"old_group", integer)->status = udb_field_deleted;

  EXPECT_EQ(converter(), 0);

  EXPECT_TRUE(ui.shell.errors().empty());
  ASSERT_EQ(made().size(), 2U);
  EXPECT_EQ(made()[0].name, L"FK_items_groups");
  EXPECT_EQ(made()[0].fk_table, L"articles");
  EXPECT_EQ(made()[0].pk_table, L"product_groups");
  EXPECT_EQ(made()[0].fk_fields, (names{L"group_ref"}));
  EXPECT_EQ(made()[0].pk_fields, (names{L"group_key"}));
  // A key over a dropped column is handed over as it is (the server will
  // refuse it, one key alone) and the log says why.
  EXPECT_EQ(made()[1].fk_fields, (names{L"old_group"}));
  EXPECT_TRUE(capture.has_line(
      "Foreign key 'FK_items_old' names the column 'old_group' of '[dbo].[items]', which the type mappings drop"));
  // The rows went by the new names.
  const memory_table* articles = target.stores.store(L"shop").find_table(L"articles");
  ASSERT_NE(articles, nullptr);
  ASSERT_EQ(articles->rows.size(), 1U);
  EXPECT_EQ(articles->rows[0].size(), 2U);
  EXPECT_EQ(articles->rows[0][1].name, L"group_ref");
}

TEST_F(RelationshipNames, ATableOfTheSameNameInAnotherSchemaIsNotTaken) {
  converter.selected_tables = {L"[sales].[groups]", L"[dbo].[items]"};
  udb_schema other;
  other.push_back(int_column(L"id"));
  source.stores.store(L"sales").add_table(L"[sales].[groups]", std::move(other));
  EXPECT_EQ(converter(), 0);
  // dbo.groups is not converted: its key has no parent at the destination.
  EXPECT_TRUE(made().empty());
  EXPECT_FALSE(capture.has_line("Foreign key 'FK_items_groups': table 'dbo.groups' is the entry '[sales].[groups]'"));
}

}  // namespace
}  // namespace qb::test
