// End to end: every fixture database of the SQL Server stand-in migrated by
// the converter and its driver, once into a dump file that the stock mariadb
// client replays into the test MariaDB and once straight into that server;
// every row read back and compared value by value with what the source
// reader delivers, keys and identity columns compared with the source's, and
// the counts of every table saying that nothing was lost (source_migration.h
// tells what the comparison allows on purpose).
//
// Beside the fixtures as the default release of the stand-in serves them:
// the shop database as SQL Server 2000, 2008, 2019 and Azure serve it (the
// catalog differs: no sys.sql_modules and sys.sequences on 2000, no schema
// rowsets on Azure, where the keys come from the catalog views), and on the
// server: the owner stripped under a schema filter with two tables of the
// same name in two schemas, and a table that the user renamed while
// foreign keys point to it.
#include <gtest/gtest.h>

#include <memory>

#include <string>
#include <tuple>
#include <vector>

#include "tk/strings.h"
#include "udb/profile.h"

#include "source_migration.h"

namespace qb::test {
namespace {

// --- The fixtures, by both paths ------------------------------------------------------------

class SourceToMysql : public source_migration, public ::testing::WithParamInterface<migration_path> {
 protected:
  static void SetUpTestSuite() {
    mss_standin_options o;
    o.fixtures = {"types.json", "business.json", "hostile.json", "minimal.json"};
    o.database = "qbshop";
    standin_ = std::make_unique<mss_standin>(o);
  }
  static void TearDownTestSuite() {
    standin_.reset();
  }

  SourceToMysql() { connect_source(*standin_); }

  std::string run(const migration& m) { return source_migration::run(m, GetParam()); }

  static std::unique_ptr<mss_standin> standin_;  // NOLINT: shared by the suite
};
std::unique_ptr<mss_standin> SourceToMysql::standin_;

const std::wstring k_customer_orders =
    L"SELECT c.customer_id, c.email, COUNT(o.order_id) AS orders FROM dbo.customers c LEFT JOIN sales.orders o ON "
    L"o.customer_id = c.customer_id GROUP BY c.customer_id, c.email";

TEST_P(SourceToMysql, TheShopsDboSchemaWithKeysViewsAndAQuery) {
  const migration m{L"qbshop",
                    L"dbo",
                    {L"dbo.categories", L"dbo.products", L"dbo.customers"},
                    {{L"customer_orders", k_customer_orders}},
                    {L"v_category_tree", L"v_product_labels"}};
  const std::string db = run(m);
  expect_same_rows_of_all_tables(m, db);
  expect_same_rows(m, db, L"customer_orders", k_customer_orders);
  expect_keys_as_in_source(m, db);
  // The owner is stripped under a schema filter.
  EXPECT_EQ(target_of(L"dbo.customers"), "customers");
  // Keys and indexes as the source has them; the included columns are not
  // part of the MySQL index.
  EXPECT_EQ(target_rows("SELECT INDEX_NAME, GROUP_CONCAT(COLUMN_NAME ORDER BY SEQ_IN_INDEX), NON_UNIQUE FROM "
                        "information_schema.STATISTICS WHERE TABLE_SCHEMA = " + sql_text_literal(db) +
                        " AND TABLE_NAME = 'products' GROUP BY INDEX_NAME, NON_UNIQUE ORDER BY INDEX_NAME"),
            (text_rows{{"IX_products_category", "category_id", "1"},
                       {"PRIMARY", "product_id", "0"},
                       {"UX_products_sku", "sku", "0"}}));
  EXPECT_EQ(target_rows("SELECT CONSTRAINT_NAME, TABLE_NAME, REFERENCED_TABLE_NAME, DELETE_RULE FROM "
                        "information_schema.REFERENTIAL_CONSTRAINTS WHERE CONSTRAINT_SCHEMA = " + sql_text_literal(db) +
                        " ORDER BY CONSTRAINT_NAME"),
            (text_rows{{"FK_categories_parent", "categories", "categories", "RESTRICT"},
                       {"FK_customers_referrer", "customers", "customers", "RESTRICT"},
                       {"FK_products_category", "products", "categories", "SET NULL"}}));
  EXPECT_EQ(target_rows("SELECT AUTO_INCREMENT IS NOT NULL FROM information_schema.TABLES WHERE TABLE_SCHEMA = " +
                        sql_text_literal(db) + " AND TABLE_NAME = 'customers'"),
            (text_rows{{"1"}}));
  // The views were made and answer.
  EXPECT_EQ(target_rows("SELECT COUNT(*) FROM " + sql_quoted_name(db) + ".v_category_tree"), (text_rows{{"9"}}));
  EXPECT_EQ(target_rows("SELECT COUNT(*) FROM " + sql_quoted_name(db) + ".v_product_labels"), (text_rows{{"60"}}));
}

TEST_P(SourceToMysql, TheShopsSalesSchemaBesideATableOfTheSameName) {
  const migration m{L"qbshop",
                    L"sales",
                    {L"sales.orders", L"sales.order_lines", L"sales.shipments", L"sales.customers"},
                    {},
                    {}};
  const std::string db = run(m);
  expect_same_rows_of_all_tables(m, db);
  expect_keys_as_in_source(m, db);
  EXPECT_EQ(target_of(L"sales.customers"), "customers");
  EXPECT_EQ(target_rows("SELECT CONSTRAINT_NAME, TABLE_NAME, REFERENCED_TABLE_NAME, UPDATE_RULE, DELETE_RULE FROM "
                        "information_schema.REFERENTIAL_CONSTRAINTS WHERE CONSTRAINT_SCHEMA = " + sql_text_literal(db) +
                        " ORDER BY CONSTRAINT_NAME"),
            (text_rows{{"FK_order_lines_orders", "order_lines", "orders", "CASCADE", "CASCADE"},
                       {"FK_shipments_order_lines", "shipments", "order_lines", "RESTRICT", "CASCADE"}}));
  EXPECT_EQ(target_rows("SELECT GROUP_CONCAT(COLUMN_NAME ORDER BY SEQ_IN_INDEX) FROM information_schema.STATISTICS "
                        "WHERE TABLE_SCHEMA = " + sql_text_literal(db) +
                        " AND TABLE_NAME = 'order_lines' AND INDEX_NAME = 'PRIMARY'"),
            (text_rows{{"order_id,line_no"}}));
}

TEST_P(SourceToMysql, EveryTypeOfTheTypesDatabase) {
  // Characters beyond U+FFFF (the fixture has some) need utf8mb4.
  converter_.mysql_engine().set_charset(L"utf8mb4");
  const migration m{L"qbtypes",
                    L"dbo",
                    {L"dbo.t_int", L"dbo.t_decimal", L"dbo.t_float", L"dbo.t_datetime", L"dbo.t_char", L"dbo.t_max",
                     L"dbo.t_binary", L"dbo.t_guid", L"dbo.t_xml", L"dbo.t_spatial", L"dbo.t_parent", L"dbo.t_child",
                     L"dbo.t_defaults"},
                    {},
                    {}};
  const std::string db = run(m);
  expect_same_rows_of_all_tables(m, db);
  expect_keys_as_in_source(m, db);
}

TEST_P(SourceToMysql, TheTypesFixturesSalesSchemaAndItsSecondDatabase) {
  const migration sales{L"qbtypes", L"sales", {L"sales.orders"}, {}, {}};
  const std::string db = run(sales);
  expect_same_rows_of_all_tables(sales, db);
  expect_keys_as_in_source(sales, db);
  const migration other{L"qbother", L"dbo", {L"dbo.t_cyr"}, {}, {}};
  const std::string other_db = run(other);
  expect_same_rows_of_all_tables(other, other_db);
}

TEST_P(SourceToMysql, TheMinimalDatabase) {
  const migration m{L"qbmini", L"dbo", {L"dbo.items"}, {}, {}};
  const std::string db = run(m);
  expect_same_rows_of_all_tables(m, db);
  expect_keys_as_in_source(m, db);
  EXPECT_EQ(target_rows("SELECT id, label FROM " + sql_quoted_name(db) + ".items ORDER BY id"),
            (text_rows{{"1", "one"}, {"2", "two"}}));
}

TEST_P(SourceToMysql, HostileNamesAndShapes) {
  const migration m{L"qbhostile",
                    L"dbo",
                    {L"dbo.order details", L"dbo.O'Brien's", L"dbo.back`tick", L"dbo.select", L"[dbo].[a.b]",
                     L"dbo.customer_orders_archived_before_the_migration_of_the_old_erp_system_xy", L"dbo.Customer",
                     L"dbo.CUSTOMER", L"dbo.empty_table", L"dbo.no_key", L"dbo.wide_300", L"dbo.dec_identity"},
                    {},
                    {}};
  const std::string db = run(m);
  expect_same_rows_of_all_tables(m, db);
  expect_keys_as_in_source(m, db);
  // Two names that differ only in case get two tables.
  EXPECT_NE(target_of(L"dbo.Customer"), target_of(L"dbo.CUSTOMER"));
}

TEST_P(SourceToMysql, ASchemaWithABlank) {
  const migration m{L"qbhostile", L"odd schema", {L"odd schema.t"}, {}, {}};
  const std::string db = run(m);
  expect_same_rows(m, db, L"odd schema.t");
  EXPECT_EQ(target_of(L"odd schema.t"), "t");
}

TEST_P(SourceToMysql, BinaryColumnsMappedByTheUserKeepTheirLength) {
  // The user kept both binary columns binary, with the lengths they have.
  write_file(dir_.file("binary.qbr"),
             "[Type Mappings]\n"
             "database:\n"
             "tables:\n"
             "  - name: dbo.t_binary\n"
             "    fields:\n"
             "      - name:c_binary\n"
             "        new_name: c_binary\n"
             "        status: changed\n"
             "        type: BINARY\n"
             "        default_value: \n"
             "        character_set: \n"
             "        length: 8\n"
             "        scale: 0\n"
             "        precision: 0\n"
             "      - name:c_varbinary\n"
             "        new_name: c_varbinary\n"
             "        status: changed\n"
             "        type: VARBINARY\n"
             "        default_value: \n"
             "        character_set: \n"
             "        length: 16\n"
             "        scale: 0\n"
             "        precision: 0\n");
  udb_profile profile;
  ASSERT_TRUE(profile.load(dir_.file("binary.qbr")));
  converter_.sql_db_mutator::load(profile);
  const migration m{L"qbtypes", L"dbo", {L"dbo.t_binary"}, {}, {}};
  const std::string db = run(m);
  EXPECT_EQ(target_rows("SELECT COLUMN_NAME, COLUMN_TYPE FROM information_schema.COLUMNS WHERE TABLE_SCHEMA = " +
                        sql_text_literal(db) + " AND TABLE_NAME = 't_binary' AND COLUMN_NAME IN ('c_binary', "
                        "'c_varbinary') ORDER BY COLUMN_NAME"),
            (text_rows{{"c_binary", "binary(8)"}, {"c_varbinary", "varbinary(16)"}}));
  expect_same_rows_of_all_tables(m, db);
}

INSTANTIATE_TEST_SUITE_P(Path, SourceToMysql, ::testing::Values(migration_path::dump, migration_path::direct),
                         [](const ::testing::TestParamInfo<migration_path>& p) { return to_string(p.param); });

// --- The shop as each release serves it -------------------------------------------------------

using release_and_path = std::tuple<std::string, migration_path>;

class SourceReleases : public source_migration, public ::testing::WithParamInterface<release_and_path> {
 protected:
  SourceReleases() : standin_(options()) { connect_source(standin_); }

  static mss_standin_options options() {
    mss_standin_options o;
    o.fixtures = {"business.json"};
    o.database = "qbshop";
    o.version = std::get<0>(GetParam());
    // The server logs the batches and procedure calls it receives.
    o.extra_args = {"-v"};
    return o;
  }

  mss_standin standin_;
};

TEST_P(SourceReleases, TheWholeShopArrivesWithItsKeys) {
  // Both schemas under the filter "dbo": the owners are stripped, and the
  // second "customers" gets a name of its own.
  const migration m{L"qbshop",
                    L"dbo",
                    {L"dbo.categories", L"dbo.products", L"dbo.customers", L"sales.orders", L"sales.order_lines",
                     L"sales.shipments", L"sales.customers"},
                    {},
                    {}};
  const std::string db = run(m, std::get<1>(GetParam()));
  expect_same_rows_of_all_tables(m, db);
  expect_keys_as_in_source(m, db);
  EXPECT_EQ(target_of(L"dbo.customers"), "customers");
  EXPECT_NE(target_of(L"sales.customers"), "customers");
  const bool azure = std::get<0>(GetParam()) == "azure";
  // Azure has no schema rowsets: the keys came from the catalog views, and
  // none of the procedures behind the rowsets was called.
  EXPECT_EQ(capture_.has_line("Alternate init_indexes for SQL Azure"), azure);
  const std::string calls = standin_.log();
  for (const char* procedure : {"sp_pkeys", "sp_fkeys", "sp_statistics"}) {
    EXPECT_EQ(calls.find(procedure) == std::string::npos, azure) << procedure;
  }
}

INSTANTIATE_TEST_SUITE_P(Release, SourceReleases,
                         ::testing::Combine(::testing::Values("2000", "2008", "2019", "azure"),
                                            ::testing::Values(migration_path::dump, migration_path::direct)),
                         [](const ::testing::TestParamInfo<release_and_path>& p) {
                           return "sql" + std::get<0>(p.param) + "_" + to_string(std::get<1>(p.param));
                         });

// --- Names on the server ----------------------------------------------------------------------

class SourceNamesOnServer : public source_migration {
 protected:
  static void SetUpTestSuite() {
    standin_ = std::make_unique<mss_standin>(shop_standin_options());
  }
  static void TearDownTestSuite() {
    standin_.reset();
  }

  SourceNamesOnServer() { connect_source(*standin_); }

  static std::unique_ptr<mss_standin> standin_;  // NOLINT: shared by the suite
};
std::unique_ptr<mss_standin> SourceNamesOnServer::standin_;

TEST_F(SourceNamesOnServer, OwnersStrippedAndTwoSameNamedTablesKeepTheirForeignKeys) {
  const migration m{L"qbshop",
                    L"dbo",
                    {L"dbo.customers", L"sales.orders", L"sales.customers"},
                    {},
                    {}};
  const std::string db = run(m, migration_path::direct);
  expect_same_rows_of_all_tables(m, db);
  const std::string second = target_of(L"sales.customers");
  EXPECT_EQ(target_of(L"dbo.customers"), "customers");
  EXPECT_EQ(target_of(L"sales.orders"), "orders");
  EXPECT_NE(second, "customers");
  EXPECT_TRUE(capture_.has_line("Store generated table name '" + second + "'"));
  EXPECT_EQ(target_rows("SELECT TABLE_NAME FROM information_schema.TABLES WHERE TABLE_SCHEMA = " + sql_text_literal(db) +
                        " ORDER BY BINARY TABLE_NAME"),
            (text_rows{{"customers"}, {second}, {"orders"}}));
  // Both keys that point to dbo.customers reach the table "customers"; the
  // one of sales.customers starts at the table with the generated name.
  EXPECT_EQ(target_rows("SELECT CONSTRAINT_NAME, TABLE_NAME, REFERENCED_TABLE_NAME FROM "
                        "information_schema.REFERENTIAL_CONSTRAINTS WHERE CONSTRAINT_SCHEMA = " + sql_text_literal(db) +
                        " ORDER BY CONSTRAINT_NAME"),
            (text_rows{{"FK_customers_customers", second, "customers"},
                       {"FK_customers_referrer", "customers", "customers"},
                       {"FK_orders_customers", "orders", "customers"}}));
  expect_keys_as_in_source(m, db);
  // The keys hold.
  target().run("USE " + sql_quoted_name(db));
  const std::string missing = "(SELECT MAX(customer_id) + 1 FROM customers)";
  EXPECT_EQ(target().error_of("UPDATE orders SET customer_id = " + missing + " ORDER BY order_id LIMIT 1"), 1452U);
  EXPECT_EQ(target().error_of("UPDATE " + sql_quoted_name(second) + " SET customer_id = " + missing +
                              " ORDER BY customer_id LIMIT 1"),
            1452U);
}

TEST_F(SourceNamesOnServer, ARenamedTableKeepsTheForeignKeysThatPointToIt) {
  // The user renamed dbo.categories; the products' key and the categories'
  // own key to their parent must point to the new name.
  write_file(dir_.file("rename.qbr"),
             "[Type Mappings]\n"
             "database:\n"
             "tables:\n"
             "  - name: dbo.categories\n"
             "    new_name: product_groups\n");
  udb_profile profile;
  ASSERT_TRUE(profile.load(dir_.file("rename.qbr")));
  converter_.sql_db_mutator::load(profile);
  ASSERT_NE(converter_.get_table_mutator3(L"dbo.categories"), nullptr);
  const migration m{L"qbshop", L"dbo", {L"dbo.categories", L"dbo.products"}, {}, {}};
  const std::string db = run(m, migration_path::direct);
  EXPECT_EQ(target_of(L"dbo.categories"), "product_groups");
  expect_same_rows_of_all_tables(m, db);
  expect_keys_as_in_source(m, db);
  EXPECT_EQ(target_rows("SELECT TABLE_NAME FROM information_schema.TABLES WHERE TABLE_SCHEMA = " + sql_text_literal(db) +
                        " ORDER BY BINARY TABLE_NAME"),
            (text_rows{{"product_groups"}, {"products"}}));
  EXPECT_EQ(target_rows("SELECT CONSTRAINT_NAME, TABLE_NAME, REFERENCED_TABLE_NAME, DELETE_RULE FROM "
                        "information_schema.REFERENTIAL_CONSTRAINTS WHERE CONSTRAINT_SCHEMA = " + sql_text_literal(db) +
                        " ORDER BY CONSTRAINT_NAME"),
            (text_rows{{"FK_categories_parent", "product_groups", "product_groups", "RESTRICT"},
                       {"FK_products_category", "products", "product_groups", "SET NULL"}}));
  // The keys hold: no product of a group that is not there, no group whose
  // children stay behind; deleting a group with products sets theirs NULL.
  target().run("USE " + sql_quoted_name(db));
  EXPECT_EQ(target().error_of("UPDATE products SET category_id = (SELECT MAX(category_id) + 1 FROM "
                              "product_groups) ORDER BY product_id LIMIT 1"),
            1452U);
  const text_rows parents = target_rows("SELECT MIN(parent_id) FROM product_groups WHERE parent_id IS NOT NULL");
  ASSERT_TRUE(parents.at(0).at(0).has_value());
  EXPECT_EQ(target().error_of("DELETE FROM product_groups WHERE category_id = " + *parents[0][0]), 1451U);
}

}  // namespace
}  // namespace qb::test
