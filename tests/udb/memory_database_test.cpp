// The in-memory database that the driver tests use as source and target: it
// must behave as a real one does, so it is tested here like one.
#include "support/memory_database.h"

#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tk/exception.h"

namespace qb {
namespace {

using test::memory_column;
using test::memory_database;
using test::memory_engine;
using test::memory_store;
using test::memory_table;

udb_schema customers_schema() {
  udb_schema schema;
  schema.push_back(memory_column(L"id", 3, 4, true));
  schema.push_back(memory_column(L"full name", 8, 40));
  return schema;
}

udb_indexes customers_indexes() {
  udb_indexes indexes;
  indexes.push_back(udb_index(L"pk_customers", true, true, {L"id"}));
  indexes.push_back(udb_index(L"ix_name", false, false, {L"full name"}));
  return indexes;
}

void fill_source(memory_store& store) {
  store.add_table(L"dbo.customers", customers_schema(), customers_indexes());
  store.add_row(L"dbo.customers", {ole_variant(1), ole_variant(std::wstring(L"Ada"))});
  store.add_row(L"dbo.customers", {ole_variant(2), ole_variant(std::wstring(L"Grace"))});
}

std::vector<std::wstring> read_names(udb_recordset& rs, std::size_t column) {
  std::vector<std::wstring> out;
  rs.reset();
  while (!rs.is_eof()) {
    udb_record* row = rs.get_item();
    out.push_back((*row)[column].to_wstring());
    rs.next();
  }
  return out;
}

TEST(MemoryDatabase, SourceTableReadsBackRowsSchemaAndIndexes) {
  memory_store store;
  fill_source(store);
  memory_database db(store, L"src", 1);
  EXPECT_TRUE(db.is_table_exist(L"DBO.CUSTOMERS"));
  auto rs = db.get_table(L"dbo.customers", 1);
  EXPECT_FALSE(rs->is_query());
  EXPECT_EQ(rs->rec_count(), 2U);
  EXPECT_EQ(rs->schema().size(), 2U);
  EXPECT_EQ(rs->indexes().get_index(L"PK_customers").fields, std::vector<std::wstring>{L"id"});
  EXPECT_TRUE(rs->is_eof());  // not positioned before reset
  EXPECT_EQ(read_names(*rs, 1), (std::vector<std::wstring>{L"Ada", L"Grace"}));
  EXPECT_EQ(rs->get_item(), nullptr);
}

TEST(MemoryDatabase, RecordOfGetItemIsACopyOwnedByTheRecordset) {
  memory_store store;
  fill_source(store);
  memory_database db(store, L"src", 1);
  auto rs = db.get_table(L"dbo.customers", 1);
  rs->reset();
  udb_record* row = rs->get_item();
  (*row)[1] = udb_field(L"full name", 3, ole_variant(std::wstring(L"xyz")));
  EXPECT_EQ(store.find_table(L"dbo.customers")->rows[0][1].to_wstring(), L"Ada");
}

TEST(MemoryDatabase, UnknownTableOrQueryIsAnError) {
  memory_store store;
  memory_database db(store, L"src", 1);
  EXPECT_THROW((void)db.get_table(L"nothing", 1), tk_exception);
  EXPECT_THROW((void)db.get_query(L"q", L"select 1", 1), tk_exception);
  EXPECT_FALSE(db.test_query(L"select 1"));
}

TEST(MemoryDatabase, RegisteredQueryAnswersUnderItsName) {
  memory_store store;
  udb_schema schema;
  schema.push_back(memory_column(L"n", 3));
  store.add_query(L"select n from t", schema);
  store.add_query_row(L"select n from t", {ole_variant(7)});
  memory_database db(store, L"src", 1);
  EXPECT_TRUE(db.test_query(L"select n from t"));
  auto rs = db.get_query(L"my query", L"select n from t", 1);
  EXPECT_TRUE(rs->is_query());
  EXPECT_EQ(rs->name(), L"my query");
  EXPECT_EQ(read_names(*rs, 0), std::vector<std::wstring>{L"7"});
}

TEST(MemoryDatabase, AddRowWithWrongValueCountIsATestError) {
  memory_store store;
  store.add_table(L"t", customers_schema());
  EXPECT_THROW(store.add_row(L"t", {ole_variant(1)}), std::invalid_argument);
}

TEST(MemoryDatabase, ViewsAreSkippedWithMode0x80) {
  memory_store store;
  store.views.emplace_back(L"v", L"select 1");
  EXPECT_EQ(memory_database(store, L"db", 0).views().size(), 1U);
  EXPECT_TRUE(memory_database(store, L"db", 0x80).views().empty());
}

TEST(MemoryDatabase, CreatedTableTakesRowsAndReadsThemBack) {
  memory_store source_store;
  fill_source(source_store);
  memory_store target_store;
  memory_database source(source_store, L"src", 1);
  memory_database target(target_store, L"dst", 168);

  auto src = source.get_table(L"dbo.customers", 1);
  udb_indexes indexes = src->indexes();
  auto dst = target.create_table(L"customers", src->schema(), indexes);
  EXPECT_TRUE(target.is_table_exist(L"customers"));
  src->reset();
  while (!src->is_eof()) {
    dst->append_record(*src->get_item());
    src->next();
  }
  EXPECT_EQ(dst->rec_count(), 2U);
  dst.reset();

  auto back = target.get_table(L"customers", 0);
  EXPECT_EQ(back->rec_count(), 2U);
  EXPECT_EQ(read_names(*back, 1), (std::vector<std::wstring>{L"Ada", L"Grace"}));
}

TEST(MemoryDatabase, ColumnRuleRenamesAndRecordsFieldMap) {
  memory_store store;
  store.illegal_column_chars = L" ";
  memory_database db(store, L"dst", 168);
  udb_indexes indexes = customers_indexes();
  auto rs = db.create_table(L"customers", customers_schema(), indexes);
  EXPECT_EQ(rs->schema()[1].name, L"full_name");
  EXPECT_EQ(rs->indexes().get_index(L"ix_name").fields, std::vector<std::wstring>{L"full_name"});
  EXPECT_EQ(db.names_map().get_fn_mapped_name(L"customers", L"full name", true), L"full_name");

  udb_record row;
  row.emplace_back(L"id", 8, ole_variant(std::int64_t{5}));  // converted to the column's type
  row.emplace_back(L"full name", 3, ole_variant(std::wstring(L"Joan")));
  rs->append_record(row);
  const udb_record& stored = store.find_table(L"customers")->rows.at(0);
  EXPECT_EQ(stored[0].name, L"id");
  EXPECT_EQ(stored[0].get_type(), 3);
  EXPECT_EQ(stored[1].name, L"full_name");
  EXPECT_EQ(stored[1].to_wstring(), L"Joan");
}

TEST(MemoryDatabase, RowWithoutAColumnDoesNotConform) {
  memory_store store;
  memory_database db(store, L"dst", 168);
  udb_indexes indexes;
  auto rs = db.create_table(L"customers", customers_schema(), indexes);
  udb_record row;
  row.emplace_back(L"id", 4, ole_variant(1));
  try {
    rs->append_record(row);
    FAIL() << "no exception";
  } catch (const tk_exception& e) {
    EXPECT_STREQ(e.what(), "The structure of data source does not conform to the destination table.");
  }
  EXPECT_TRUE(store.find_table(L"customers")->rows.empty());
}

TEST(MemoryDatabase, CreateTableReturnsExistingTable) {
  memory_store store;
  fill_source(store);
  memory_database db(store, L"db", 168);
  udb_indexes indexes;
  udb_schema other;
  other.push_back(memory_column(L"x", 5));
  auto rs = db.create_table(L"DBO.Customers", other, indexes);
  EXPECT_EQ(rs->rec_count(), 2U);
  EXPECT_EQ(rs->schema().size(), 2U);
  EXPECT_EQ(db.get_table_names().size(), 1U);
}

TEST(MemoryDatabase, DeleteTabDropsTableFromStoreAndList) {
  memory_store store;
  fill_source(store);
  memory_database db(store, L"db", 168);
  auto open = db.get_table(L"dbo.customers", 0);
  EXPECT_TRUE(db.delete_tab(L"dbo.customers"));
  EXPECT_FALSE(db.is_table_exist(L"dbo.customers"));
  EXPECT_EQ(store.find_table(L"dbo.customers"), nullptr);
  EXPECT_EQ(open->rec_count(), 2U);  // a recordset still open keeps its table
  EXPECT_FALSE(db.delete_tab(L"dbo.customers"));
}

TEST(MemoryDatabase, EmptyTableDeletesRows) {
  memory_store store;
  fill_source(store);
  memory_database db(store, L"db", 168);
  db.empty_table(L"dbo.customers");
  EXPECT_TRUE(store.find_table(L"dbo.customers")->rows.empty());
}

TEST(MemoryDatabase, UpdateReplacesRowWithSameKey) {
  memory_store store;
  fill_source(store);
  memory_database db(store, L"db", 416);
  auto rs = db.get_table(L"dbo.customers", 0);
  udb_record row;
  row.emplace_back(L"ID", 4, ole_variant(2));
  row.emplace_back(L"full name", 5, ole_variant(std::wstring(L"Hopper")));
  rs->update1(row);
  const memory_table& table = *store.find_table(L"dbo.customers");
  ASSERT_EQ(table.rows.size(), 2U);
  EXPECT_EQ(table.rows[1][1].to_wstring(), L"Hopper");
  EXPECT_EQ(table.rows[0][1].to_wstring(), L"Ada");
}

TEST(MemoryDatabase, AppendHookCanRefuseDuplicateKeys) {
  memory_store store;
  fill_source(store);
  store.on_append = [&store](const memory_table& table, const udb_record& row) {
    if (store.has_duplicate_key(table, row)) throw tk_exception(std::string("duplicate key"), 0);
  };
  memory_database db(store, L"db", 168);
  auto rs = db.get_table(L"dbo.customers", 0);
  udb_record row;
  row.emplace_back(L"id", 4, ole_variant(1));
  row.emplace_back(L"full name", 5, ole_variant(std::wstring(L"Again")));
  EXPECT_THROW(rs->append_record(row), tk_exception);
  EXPECT_EQ(store.find_table(L"dbo.customers")->rows.size(), 2U);
}

TEST(MemoryDatabase, RelationshipsAreResolvedThroughNamesMap) {
  memory_store store;
  store.illegal_column_chars = L" ";
  memory_database db(store, L"db", 168);
  udb_indexes none;
  (void)db.create_table(L"customers", customers_schema(), none);
  udb_schema orders;
  orders.push_back(memory_column(L"customer id", 3));
  (void)db.create_table(L"orders", orders, none);
  db.add_tn_mapping(L"dbo.customers", L"customers");
  db.add_tn_mapping(L"dbo.orders", L"orders");

  udb_relationships rels;
  rels.push_back(udb_rel(L"fk", L"dbo", L"dbo.orders", L"dbo.customers", {L"customer id"}, {L"id"}, L""));
  rels.push_back(udb_rel(L"fk2", L"dbo", L"dbo.gone", L"dbo.customers", {L"x"}, {L"id"}, L""));
  db.create_relationships(rels);
  ASSERT_EQ(store.created_relationships.size(), 1U);
  const udb_rel& rel = store.created_relationships[0];
  EXPECT_EQ(rel.fk_table, L"orders");
  EXPECT_EQ(rel.pk_table, L"customers");
  EXPECT_EQ(rel.fk_fields, std::vector<std::wstring>{L"customer_id"});
}

TEST(MemoryDatabase, ViewsAreRewrittenToTargetNames) {
  memory_store store;
  memory_database db(store, L"db", 168);
  db.add_tn_mapping(L"dbo.order lines", L"order_lines");
  db.create_views({{L"v", L"select * from dbo.order lines"}});
  ASSERT_EQ(store.created_views.size(), 1U);
  EXPECT_EQ(store.created_views[0].second, L"select * from `order_lines`");
}

TEST(MemoryDatabase, NamesMapOutlivesTheDatabase) {
  memory_store store;
  {
    memory_database db(store, L"db", 168);
    db.add_tn_mapping(L"dbo.t", L"t");
  }
  EXPECT_EQ(store.names_map.get_tn_mapped_name(L"dbo.t", true), L"t");
}

TEST(MemoryEngine, CreatesOpensAndDeletesStores) {
  memory_engine engine;
  EXPECT_FALSE(engine.is_db_exist(L"db"));
  EXPECT_THROW((void)engine.open_db(L"db", 168), tk_exception);
  {
    auto db = engine.create_db(L"db");
    udb_indexes none;
    (void)db->create_table(L"t", customers_schema(), none);
  }
  EXPECT_TRUE(engine.is_db_exist(L"db"));
  auto reopened = engine.open_db(L"db", 168);
  EXPECT_TRUE(reopened->is_table_exist(L"t"));
  EXPECT_EQ(reopened->mode(), 168U);
  reopened.reset();
  engine.db_delete(L"db");
  EXPECT_FALSE(engine.is_db_exist(L"db"));
}

}  // namespace
}  // namespace qb
