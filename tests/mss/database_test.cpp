// mss_database against the stand-in: the lists read when a database is
// opened (tables in both ways, column types, sequences, views), the schemas,
// names, the slots that run statements, the read-only slots, and what each
// release of SQL Server lets it read.
#include <gtest/gtest.h>

#include <memory>

#include <string>
#include <vector>

#include "mss/database.h"
#include "mss/engine.h"
#include "mss/table.h"
#include "source_test_util.h"

namespace qb {
namespace {

using test::log_capture;
using test::mss_standin;
using test::utf8_list;
using strings = std::vector<std::string>;

constexpr std::uint32_t mode_tables = 161;  // the wizard's lists of tables and schemas: no views
constexpr std::uint32_t mode_views = 33;
constexpr std::uint32_t mode_read = 1;

class MssDatabase : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { server_ = std::make_unique<mss_standin>(test::all_fixtures()); }
  static void TearDownTestSuite() {
    server_.reset();
  }
  MssDatabase() { test::connect_engine(engine_, *server_); }

  std::unique_ptr<mss_database> open(const std::wstring& name, std::uint32_t mode = mode_read,
                                     const std::wstring& schema = {}) {
    return test::open_source(engine_, name, mode, schema);
  }

  static std::unique_ptr<mss_standin> server_;  // NOLINT: shared by the suite
  test::view_owned_restorer view_owned_;
  mss_engine engine_;
};
std::unique_ptr<mss_standin> MssDatabase::server_;

// --- Tables ---------------------------------------------------------------------------

TEST_F(MssDatabase, WithViewsOwnedAndNoSchemaTheTablesOfDboAreListed) {
  log_capture log(2);
  auto db = open(L"qbshop", mode_tables);
  EXPECT_EQ(utf8_list(db->tables()), (strings{"dbo.categories", "dbo.customers", "dbo.products"}));
  EXPECT_EQ(db->owner(), L"");
  EXPECT_TRUE(test::lines_in_order(
      log.text(), {"mss_database::ctor2(qbshop,)", "mss_database::init_tables(dbo)",
                   "mss_engine::ref().is_view_owned()=1", "Got table (1): (name=categories, owner=dbo)",
                   "Stored as dbo.categories", "Tables count: 3", "mss_database::init_columns(dbo)",
                   "mss_database::init_sequencies()"}))
      << log.text();
  EXPECT_FALSE(log.has_line("No tables were found! Trying another method."));
}

TEST_F(MssDatabase, WithoutViewsOwnedEverySchemaIsListed) {
  engine_.set_view_owned(false);
  auto db = open(L"qbshop", mode_tables);
  EXPECT_EQ(utf8_list(db->tables()),
            (strings{"dbo.categories", "dbo.customers", "dbo.products", "sales.customers", "sales.order_lines",
                     "sales.orders", "sales.shipments"}));
}

TEST_F(MssDatabase, ASchemaFilterListsThatSchemaOnly) {
  auto db = open(L"qbshop", mode_tables, L"sales");
  EXPECT_EQ(db->owner(), L"sales");
  EXPECT_EQ(db->schema(), L"sales");
  EXPECT_EQ(utf8_list(db->tables()),
            (strings{"sales.customers", "sales.order_lines", "sales.orders", "sales.shipments"}));
}

TEST_F(MssDatabase, AwkwardNamesAreListedAsTheyAre) {
  auto db = open(L"qbhostile", mode_tables);
  EXPECT_EQ(utf8_list(db->tables()),
            (strings{"dbo.a.b", "dbo.back`tick", "dbo.Customer", "dbo.CUSTOMER",
                     "dbo.customer_orders_archived_before_the_migration_of_the_old_erp_system_xy", "dbo.dec_identity",
                     "dbo.empty_table", "dbo.no_key", "dbo.O'Brien's", "dbo.order details", "dbo.select",
                     "dbo.wide_300"}));
  auto odd = open(L"qbhostile", mode_tables, L"odd schema");
  EXPECT_EQ(utf8_list(odd->tables()), (strings{"odd schema.t"}));
}

TEST_F(MssDatabase, ASchemaWithoutTablesTriesTheSecondWayAndEndsEmpty) {
  log_capture log(2);
  auto db = open(L"qbshop", mode_tables, L"guest");
  EXPECT_TRUE(db->tables().empty());
  EXPECT_TRUE(test::lines_in_order(log.text(),
                                   {"No tables were found! Trying another method.",
                                    "odb_command::execute(exec sp_tables @table_owner='guest', "
                                    "@table_type=\"'TABLE'\")",
                                    "Tables count: 0"}))
      << log.text();
  EXPECT_FALSE(log.has_line("Error while extracting tables:"));
}

TEST_F(MssDatabase, TheSecondWayStoresBareNamesWhileViewsAreOwned) {
  auto db = open(L"qbshop", mode_tables, L"sales");
  db->get_table_names().clear();
  log_capture log(2);
  db->init_tables_by_procedure(L"sales");
  EXPECT_EQ(utf8_list(db->tables()), (strings{"customers", "order_lines", "orders", "shipments"}));
  EXPECT_TRUE(log.has_line("Got table (2): (name=order_lines, owner=sales)"));
  EXPECT_NE(server_->log().find("batch: exec sp_tables @table_owner='sales', @table_type=\"'TABLE'\""),
            std::string::npos);
}

TEST_F(MssDatabase, TheSecondWayStoresBracketedNamesOtherwise) {
  engine_.set_view_owned(false);
  auto db = open(L"qbshop", mode_tables, L"sales");
  db->get_table_names().clear();
  db->init_tables_by_procedure(L"sales");
  // Without an owner the procedure lists every schema's tables.
  EXPECT_EQ(utf8_list(db->tables()),
            (strings{"[dbo].[categories]", "[dbo].[customers]", "[dbo].[products]", "[sales].[customers]",
                     "[sales].[order_lines]", "[sales].[orders]", "[sales].[shipments]"}));
  EXPECT_NE(server_->log().find("batch: exec sp_tables @table_type=\"'TABLE'\""), std::string::npos);
}

TEST_F(MssDatabase, ColumnTypesComeFromTheInformationSchema) {
  log_capture log(2);
  auto db = open(L"qbshop", mode_tables, L"sales");
  EXPECT_TRUE(log.has_line(
      "odb_command::execute(select TABLE_NAME, COLUMN_NAME, DATA_TYPE from INFORMATION_SCHEMA.COLUMNS where "
      "TABLE_SCHEMA='sales' and TABLE_NAME not in ('sysalternates','sysconstraints','syssegments'))"));
  const auto& types = db->column_types();
  ASSERT_EQ(types.count(L"orders"), 1U);
  EXPECT_EQ(types.at(L"orders").at(L"ship_date"), L"date");
  EXPECT_EQ(types.at(L"orders").at(L"delivery_window"), L"time");
  EXPECT_EQ(types.at(L"orders").at(L"placed_at"), L"datetimeoffset");
  EXPECT_EQ(types.at(L"customers").at(L"region"), L"nvarchar");  // sales.customers only
  EXPECT_EQ(types.count(L"products"), 0U);
}

TEST_F(MssDatabase, EveryFixtureDatabaseOpensAndListsItsObjects) {
  engine_.set_view_owned(false);
  auto types = open(L"qbtypes", mode_views);
  EXPECT_EQ(utf8_list(types->tables()),
            (strings{"dbo.t_binary", "dbo.t_char", "dbo.t_child", "dbo.t_datetime", "dbo.t_decimal", "dbo.t_defaults",
                     "dbo.t_float", "dbo.t_guid", "dbo.t_int", "dbo.t_max", "dbo.t_parent", "dbo.t_secret",
                     "dbo.t_spatial", "dbo.t_xml", "sales.orders"}));
  ASSERT_EQ(types->views().size(), 1U);
  EXPECT_EQ(tk_to_utf8(types->views()[0].second),
            "SELECT c.id, c.note, p.code FROM dbo.t_child c JOIN dbo.t_parent p ON p.id = c.parent_id");
  EXPECT_TRUE(types->sequences().empty());
  EXPECT_TRUE(types->relationships().empty());  // foreign keys come with the tables that are read
  (void)types->get_table(L"dbo.t_parent", 1);
  EXPECT_EQ(test::describe_relationships(types->relationships()),
            (strings{"FK_t_child_parent: dbo.t_child(parent_id) -> dbo.t_parent(id) ON DELETE CASCADE"}));

  auto hostile = open(L"qbhostile", mode_views);
  EXPECT_EQ(hostile->tables().size(), 13U);
  EXPECT_EQ(hostile->views().size(), 2U);
  EXPECT_TRUE(hostile->sequences().empty());

  auto shop = open(L"qbshop", mode_views);
  EXPECT_EQ(shop->tables().size(), 7U);
  EXPECT_EQ(shop->views().size(), 6U);
  EXPECT_EQ(shop->sequences().size(), 2U);
}

// --- Sequences ----------------------------------------------------------------------------

TEST_F(MssDatabase, SequencesAreReadWithTheirNumbersCutToInt) {
  log_capture log(2);
  auto db = open(L"qbshop", mode_tables);
  ASSERT_EQ(db->sequences().size(), 2U);
  EXPECT_EQ(db->sequences()[0], udb_sequence(L"invoice_numbers", 1, 5, 1, 2147483647, 1));
  // The maximum, 99999999999, is cut to the range of a 32-bit int.
  EXPECT_EQ(db->sequences()[1], udb_sequence(L"order_numbers", 100300, 1, 100000, 2147483647, 0));
  EXPECT_TRUE(log.has_line(
      "odb_command::execute(SELECT CAST(name AS varchar), CAST(start_value AS int), CAST(increment AS int), "
      "CAST(minimum_value AS bigint), CAST(maximum_value AS bigint), is_cycling FROM SYS.SEQUENCES)"));
}

// --- Views ----------------------------------------------------------------------------------

TEST_F(MssDatabase, ViewsAreCleanedAsTheyAreRead) {
  auto db = open(L"qbshop", mode_views);
  const udb_view_list& views = db->views();
  ASSERT_EQ(views.size(), 6U);
  auto text_of = [&](const std::wstring& name) {
    for (const udb_view& v : views) {
      if (v.first == name) return tk_to_utf8(v.second);
    }
    return std::string("<missing>");
  };
  EXPECT_EQ(text_of(L"v_customer_orders"),
            "SELECT  c.customer_id, c.last_name, ISNULL(c.city, 'unknown') AS city,\r\n"
            "       COUNT(o.order_id) AS orders\r\n"
            "FROM customers c \r\n"
            "LEFT JOIN sales.orders o  ON o.customer_id = c.customer_id\r\n"
            "GROUP BY c.customer_id, c.last_name, c.city\r\n"
            "ORDER BY c.customer_id\r\n");
  EXPECT_EQ(text_of(L"v_open_orders"),
            "SELECT order_id, customer_id, DATEDIFF(day, order_date, GETDATE()) AS age_days\r\n"
            "FROM sales.orders\r\nWHERE ship_date IS NULL");
  EXPECT_EQ(text_of(L"v_product_labels"),
            "select product_id, sku, REPLICATE('*', LEN(name) % 5) + name as label, isnull(weight_kg, 0) as "
            "weight_kg\r\nfrom products");
  EXPECT_EQ(text_of(L"v_order_totals"),
            "SELECT  ol.order_id, SUM(ol.quantity * ol.unit_price) AS amount FROM sales.order_lines AS ol GROUP BY "
            "ol.order_id ORDER BY ol.order_id");
}

TEST_F(MssDatabase, TheHeadOfASchemaBoundViewGoes) {
  auto db = open(L"qbshop", mode_views);
  const auto it = std::find_if(db->views().begin(), db->views().end(),
                               [](const udb_view& v) { return v.first == L"v_category_tree"; });
  ASSERT_NE(it, db->views().end());
  EXPECT_EQ(tk_to_utf8(it->second),
            "SELECT p.category_id AS parent_id, p.name AS parent, c.category_id, c.name\r\n"
            "FROM categories p JOIN categories c ON c.parent_id = p.category_id");
}

TEST_F(MssDatabase, ASelectInACommentBeforeTheViewIsTakenAsItsStart) {
  auto db = open(L"qbshop", mode_views);
  const auto it = std::find_if(db->views().begin(), db->views().end(),
                               [](const udb_view& v) { return v.first == L"v_best_customers"; });
  ASSERT_NE(it, db->views().end());
  EXPECT_EQ(tk_to_utf8(it->second),
            "Select the customers with a credit limit above 15000 */\r\n"
            "CREATE VIEW v_best_customers AS SELECT customer_id, email, credit_limit FROM customers WHERE "
            "credit_limit > 15000");
}

TEST_F(MssDatabase, AViewNameHoldingSelectIsCutThere) {
  auto db = open(L"qbhostile", mode_views);
  ASSERT_EQ(db->views().size(), 2U);
  EXPECT_EQ(db->views()[0].first, L"v_selection");
  EXPECT_EQ(tk_to_utf8(db->views()[0].second), "selection AS SELECT from, where FROM select");
  EXPECT_EQ(tk_to_utf8(db->views()[1].second), "SELECT order id, unit price FROM order details");
}

TEST_F(MssDatabase, WithoutViewsOwnedDboStaysInViewTexts) {
  engine_.set_view_owned(false);
  auto db = open(L"qbshop", mode_views);
  const auto it = std::find_if(db->views().begin(), db->views().end(),
                               [](const udb_view& v) { return v.first == L"v_product_labels"; });
  ASSERT_NE(it, db->views().end());
  EXPECT_NE(it->second.find(L"from dbo.products"), std::wstring::npos) << tk_to_utf8(it->second);
}

TEST_F(MssDatabase, ADatabaseWithoutViewsHasAnEmptyList) {
  log_capture log(2);
  auto db = open(L"qbother", mode_views);
  EXPECT_TRUE(db->views().empty());
  EXPECT_TRUE(log.has_line("mss_database::init_views()"));
  EXPECT_EQ(log.text().find("Error while extracting views"), std::string::npos);
  EXPECT_EQ(utf8_list(db->tables()), (strings{"dbo.t_cyr"}));
}

TEST_F(MssDatabase, TheTablesModeReadsNoViews) {
  log_capture log(2);
  auto db = open(L"qbshop", mode_tables);
  EXPECT_TRUE(db->views().empty());
  EXPECT_FALSE(log.has_line("mss_database::init_views()"));
}

// --- Schemas, names, statements ------------------------------------------------------------

TEST_F(MssDatabase, SchemaInfoListsTheSchemasOfTheDatabase) {
  auto db = open(L"qbshop", mode_tables);
  log_capture log(2);
  std::vector<std::wstring> names{L"stale"};
  db->get_schema_info(names);
  EXPECT_EQ(utf8_list(names), (strings{"dbo", "guest", "INFORMATION_SCHEMA", "sys", "sales"}));
  EXPECT_TRUE(log.has_line("mss_database::get_schema_info"));
  EXPECT_TRUE(
      log.has_line("odb_command::execute(SELECT name FROM qbshop.sys.schemas where principal_id < 16384)"));
}

TEST_F(MssDatabase, TableExistenceTakesEveryFormOfTheName) {
  auto db = open(L"qbshop", mode_tables);
  log_capture log(2);
  EXPECT_TRUE(db->is_table_exist(L"dbo.products"));
  EXPECT_TRUE(db->is_table_exist(L"[dbo].[products]"));
  EXPECT_TRUE(db->is_table_exist(L"DBO.Products"));
  EXPECT_FALSE(db->is_table_exist(L"products"));  // stored with its owner
  EXPECT_FALSE(db->is_table_exist(L"sales.orders"));
  EXPECT_FALSE(db->is_table_exist(L""));
  EXPECT_TRUE(log.has_line("mss_database::is_table_exist([dbo].[products])"));
  EXPECT_TRUE(log.has_line("udb_database::is_table_exist(dbo.products)"));
}

TEST_F(MssDatabase, TableExistenceOnAnEmptyListIsFalse) {
  auto db = open(L"qbshop", mode_tables, L"guest");
  log_capture log(2);
  EXPECT_FALSE(db->is_table_exist(L"dbo.products"));
  EXPECT_TRUE(log.has_line("Tables list is EMPTY!"));
}

TEST_F(MssDatabase, TestQueryTellsWhetherTheServerAcceptsAStatement) {
  auto db = open(L"qbshop", mode_read);
  log_capture log(2);
  EXPECT_TRUE(db->test_query(L"SELECT customer_id, email FROM dbo.customers WHERE city = 'Berlin'"));
  EXPECT_TRUE(log.has_line("Query succeeded"));
  EXPECT_FALSE(db->test_query(L"SELECT nope FROM dbo.customers"));
  EXPECT_FALSE(db->test_query(L"SELECT * FROM nosuch"));
  EXPECT_TRUE(log.has_line("Query failed"));
  // The session is still good for the next statement.
  EXPECT_TRUE(db->test_query(L"SELECT COUNT(*) FROM sales.orders"));
}

TEST_F(MssDatabase, QueryGivesARecordsetOrNothing) {
  auto db = open(L"qbshop", mode_read);
  std::unique_ptr<udb_recordset> rs = db->query(L"SELECT COUNT(*) AS n FROM dbo.customers");
  ASSERT_NE(rs, nullptr);
  const std::vector<udb_record> rows = test::read_rows(*rs);
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0][0].to_long(), 200);
  rs.reset();
  EXPECT_EQ(db->query(L"SET NOCOUNT ON"), nullptr);
  EXPECT_FALSE(db->session_held());
  EXPECT_THROW((void)db->query(L"SELECT * FROM nosuch"), odb_exception);
  EXPECT_FALSE(db->session_held());
}

TEST_F(MssDatabase, TheSourceIsReadOnly) {
  auto db = open(L"qbshop", mode_tables);
  udb_indexes indexes;
  EXPECT_THROW((void)db->create_table(L"x", udb_schema(), indexes), tk_mail_assertion);
  EXPECT_THROW(db->empty_table(L"dbo.products"), tk_mail_assertion);
  EXPECT_TRUE(db->delete_tab(L"dbo.products"));
  EXPECT_FALSE(db->is_table_exist(L"dbo.products"));
  EXPECT_FALSE(db->delete_tab(L"dbo.products"));
  // Only the list forgot it: the table is still there to be read.
  EXPECT_EQ(db->get_table(L"dbo.products", 1)->rec_count(), 60U);
}

TEST_F(MssDatabase, ATableHeldOpenLeavesTheDatabaseUsable) {
  auto db = open(L"qbshop", mode_read);
  std::unique_ptr<udb_recordset> first = db->get_table(L"dbo.customers", 1);
  first->reset();  // rows pending on the database's session
  EXPECT_TRUE(db->session_held());
  std::unique_ptr<udb_recordset> second = db->get_table(L"sales.orders", 1);
  EXPECT_EQ(test::read_rows(*second).size(), 300U);
  EXPECT_TRUE(db->test_query(L"SELECT 1"));
  EXPECT_EQ(test::read_rows(*first).size(), 200U);
  first.reset();
  EXPECT_FALSE(db->session_held());
}

// --- Releases -------------------------------------------------------------------------------

TEST(MssDatabaseReleases, SqlServer2000ReadsTablesButNoViewsNorSequences) {
  const mss_standin server(test::source_options({"business.json"}, "qbshop", "2000"));
  mss_engine engine;
  test::connect_engine(engine, server);
  log_capture log(3);
  auto db = test::open_source(engine, L"qbshop", mode_views);
  EXPECT_EQ(utf8_list(db->tables()), (strings{"dbo.categories", "dbo.customers", "dbo.products"}));
  EXPECT_TRUE(db->views().empty());
  EXPECT_TRUE(db->sequences().empty());
  const std::string text = log.text();
  EXPECT_EQ(test::count_lines(text, "Error while extracting sequencies:\nInvalid object name 'SYS.SEQUENCES'.\n"), 1)
      << text;
  EXPECT_EQ(test::count_lines(text, "Error while extracting views:\nInvalid object name 'sys.objects'.\n"), 1) << text;
  EXPECT_EQ(text.find("Error while extracting tables"), std::string::npos);
  // No sys.schemas either: the wizard still lists "dbo".
  std::vector<std::wstring> names;
  db->get_schema_info(names);
  EXPECT_EQ(utf8_list(names), (strings{"dbo"}));
  EXPECT_EQ(db->column_types().at(L"customers").at(L"signup_date"), L"date");
}

TEST(MssDatabaseReleases, SqlServer2008ReadsViewsButHasNoSequences) {
  const mss_standin server(test::source_options({"business.json"}, "qbshop", "2008"));
  mss_engine engine;
  test::connect_engine(engine, server);
  log_capture log(3);
  auto db = test::open_source(engine, L"qbshop", mode_views);
  EXPECT_EQ(db->views().size(), 6U);
  EXPECT_TRUE(db->sequences().empty());
  EXPECT_EQ(test::count_lines(log.text(),
                              "Error while extracting sequencies:\nInvalid object name 'SYS.SEQUENCES'.\n"),
            1);
  EXPECT_EQ(log.text().find("Error while extracting views"), std::string::npos);
}

TEST(MssDatabaseReleases, AzureReadsEverythingOfItsOwnDatabase) {
  const mss_standin server(test::source_options({"business.json"}, "qbshop", "azure"));
  mss_engine engine;
  engine.connect(test::server_of(server), L"sa", L"Secret#1", L"qbshop", true);
  auto db = test::open_source(engine, L"qbshop", mode_views, L"sales");
  EXPECT_EQ(db->tables().size(), 4U);
  EXPECT_EQ(db->views().size(), 6U);
  EXPECT_EQ(db->sequences().size(), 2U);
  std::vector<std::wstring> names;
  db->get_schema_info(names);
  EXPECT_EQ(names.size(), 5U);
}

}  // namespace
}  // namespace qb
