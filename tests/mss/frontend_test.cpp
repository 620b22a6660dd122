// The questions the wizard asks of the source, as the converter asks them:
// each opens a database of its own through the engine, asks one thing, and
// closes it again (the list of tables, the views, a table's columns, the
// schemas, whether a query is accepted).
#include <gtest/gtest.h>

#include <memory>

#include <string>
#include <vector>

#include "mss/database.h"
#include "mss/engine.h"
#include "source_test_util.h"

namespace qb {
namespace {

using test::log_capture;
using test::mss_standin;
using test::utf8_list;
using strings = std::vector<std::string>;

class MssFrontEnd : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { server_ = std::make_unique<mss_standin>(test::all_fixtures()); }
  static void TearDownTestSuite() {
    server_.reset();
  }
  MssFrontEnd() { test::connect_engine(engine_, *server_); }

  // get_all_tables: mode 161 and the schema filter.
  std::vector<std::wstring> all_tables(const std::wstring& database, const std::wstring& schema) {
    std::unique_ptr<udb_database> db = engine_.open_db(database, 161, schema);
    return db->get_table_names();
  }
  // get_all_views: mode 33 and the schema filter.
  udb_view_list all_views(const std::wstring& database, const std::wstring& schema) {
    std::unique_ptr<udb_database> db = engine_.open_db(database, 33, schema);
    return db->views();
  }
  // get_schema: mode 1, no schema, the table must exist; a copy of its columns.
  udb_schema schema_of(const std::wstring& database, const std::wstring& table) {
    std::unique_ptr<udb_database> db = engine_.open_db(database, 1, L"");
    EXPECT_TRUE(db->is_table_exist(table));
    std::unique_ptr<udb_recordset> rs = db->get_table(table, 1);
    return rs->schema();
  }
  // get_mss_schemas of a database that exists: mode 161, no schema.
  std::vector<std::wstring> schemas_of(const std::wstring& database) {
    std::vector<std::wstring> out;
    if (!engine_.is_db_exist(database)) return out;
    std::unique_ptr<udb_database> db = engine_.open_db(database, 161, L"");
    db->get_schema_info(out);
    return out;
  }
  // test_query: mode 1, no schema.
  bool accepts(const std::wstring& database, const std::wstring& text) {
    std::unique_ptr<udb_database> db = engine_.open_db(database, 1, L"");
    return db->test_query(text);
  }

  static std::unique_ptr<mss_standin> server_;  // NOLINT: shared by the suite
  test::view_owned_restorer view_owned_;
  mss_engine engine_;
};
std::unique_ptr<mss_standin> MssFrontEnd::server_;

TEST_F(MssFrontEnd, AllTablesThroughTheSchemaFilter) {
  log_capture log(2);
  EXPECT_EQ(utf8_list(all_tables(L"qbshop", L"")), (strings{"dbo.categories", "dbo.customers", "dbo.products"}));
  EXPECT_EQ(utf8_list(all_tables(L"qbshop", L"sales")),
            (strings{"sales.customers", "sales.order_lines", "sales.orders", "sales.shipments"}));
  EXPECT_FALSE(log.has_line("mss_database::init_views()"));  // mode 161 reads no views
  EXPECT_TRUE(all_tables(L"qbshop", L"nosuch").empty());
}

TEST_F(MssFrontEnd, AllViewsWithTheirCleanedText) {
  const udb_view_list views = all_views(L"qbshop", L"");
  ASSERT_EQ(views.size(), 6U);
  EXPECT_EQ(views[1].first, L"v_open_orders");
  EXPECT_EQ(views[1].second.substr(0, 6), L"SELECT");
  EXPECT_TRUE(all_views(L"qbother", L"").empty());
}

TEST_F(MssFrontEnd, TheColumnsOfATableOutliveItsDatabase) {
  const udb_schema schema = schema_of(L"qbshop", L"dbo.customers");
  ASSERT_EQ(schema.size(), 11U);
  EXPECT_EQ(schema[0].name, L"customer_id");
  EXPECT_TRUE(schema[0].b_auto_num);
  EXPECT_EQ(schema[8].name, L"signup_date");
  EXPECT_EQ(schema[8].dw_reserved, 2U);
  EXPECT_EQ(test::describe(schema[5].def_value), "8:DE");
  const udb_schema bracketed = schema_of(L"qbshop", L"[dbo].[products]");
  EXPECT_EQ(bracketed.size(), 9U);
}

TEST_F(MssFrontEnd, SchemasOfADatabase) {
  EXPECT_EQ(utf8_list(schemas_of(L"qbshop")), (strings{"dbo", "guest", "INFORMATION_SCHEMA", "sys", "sales"}));
  EXPECT_EQ(utf8_list(schemas_of(L"qbhostile")),
            (strings{"dbo", "guest", "INFORMATION_SCHEMA", "sys", "odd schema"}));
  EXPECT_TRUE(schemas_of(L"nosuchdb").empty());  // the converter then offers the standard ones
}

TEST_F(MssFrontEnd, TestQueryOfTheQueryDialog) {
  EXPECT_TRUE(accepts(L"qbshop", L"SELECT c.customer_id, o.order_id FROM dbo.customers c JOIN sales.orders o ON "
                                 L"o.customer_id = c.customer_id"));
  EXPECT_FALSE(accepts(L"qbshop", L"SELECT * FROM dbo.nosuch"));
  EXPECT_FALSE(accepts(L"qbshop", L"SELEKT 1"));
}

TEST(MssFrontEndAzure, SchemasAndTablesOnAzure) {
  const mss_standin server(test::source_options({"business.json"}, "qbshop", "azure"));
  mss_engine engine;
  engine.connect(test::server_of(server), L"sa", L"Secret#1", L"qbshop", true);
  EXPECT_TRUE(engine.is_db_exist(L"qbshop"));
  std::unique_ptr<udb_database> db = engine.open_db(L"qbshop", 161, L"sales");
  EXPECT_EQ(db->get_table_names().size(), 4U);
  std::vector<std::wstring> schemas;
  db->get_schema_info(schemas);
  EXPECT_EQ(schemas.size(), 5U);
}

}  // namespace
}  // namespace qb
