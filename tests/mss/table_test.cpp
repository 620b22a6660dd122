// mss_table against the stand-in: the schema completed from the catalog
// (types, sizes, defaults, identity, sub-types), primary keys, indexes with
// their included columns, foreign keys, the rows, the record count, and user
// queries; defaults read from their stored form.
#include <gtest/gtest.h>

#include <memory>

#include <map>
#include <string>
#include <vector>

#include "mss/database.h"
#include "mss/engine.h"
#include "mss/table.h"
#include "mss/table_names.h"
#include "source_test_util.h"

namespace qb {
namespace {

using test::column_expectation;
using test::describe;
using test::describe_indexes;
using test::describe_relationships;
using test::describe_rows;
using test::expect_schema;
using test::log_capture;
using test::mss_standin;
using test::read_rows;
using strings = std::vector<std::string>;

constexpr std::uint32_t mode_read = 1;

class MssTable : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { server_ = std::make_unique<mss_standin>(test::all_fixtures()); }
  static void TearDownTestSuite() {
    server_.reset();
  }
  // The tables of every schema are read: the database lists them all (with
  // "view owned" it would list those of dbo, and know the column types of
  // dbo's tables only).
  MssTable() {
    test::connect_engine(engine_, *server_);
    engine_.set_view_owned(false);
  }

  mss_database& db(const std::wstring& name) {
    if (!db_ || db_->name() != name) {
      db_.reset();
      db_ = test::open_source(engine_, name, mode_read);
    }
    return *db_;
  }
  std::unique_ptr<mss_table> table(const std::wstring& database, const std::wstring& name, std::uint32_t flags = 1) {
    std::unique_ptr<udb_recordset> rs = db(database).get_table(name, flags);
    return std::unique_ptr<mss_table>(dynamic_cast<mss_table*>(rs.release()));
  }
  // The rows of a statement read by the plain fetch loop on a connection of
  // its own: what the table must deliver.
  std::vector<std::vector<std::string>> plain(const std::wstring& database, const std::wstring& sql) {
    odb_connection c = test::connect_freetds(env_, *server_, "sa", "Secret#1", tk_to_utf8(database));
    c.run(L"SET TEXTSIZE 2147483647");
    return describe_rows(test::fetch_all(c, sql));
  }
  void expect_rows_as_plain(const std::wstring& database, const std::wstring& name, std::size_t count) {
    SCOPED_TRACE(tk_to_utf8(name));
    std::unique_ptr<mss_table> t = table(database, name);
    EXPECT_EQ(t->rec_count(), count);
    const std::vector<udb_record> rows = read_rows(*t);
    EXPECT_EQ(rows.size(), count);
    EXPECT_EQ(describe_rows(rows), plain(database, L"SELECT * FROM " + engine_.get_safe_tname(name)));
  }

  static std::unique_ptr<mss_standin> server_;  // NOLINT: shared by the suite
  test::view_owned_restorer view_owned_;
  mss_engine engine_;
  odb_environment env_;
  std::unique_ptr<mss_database> db_;
};
std::unique_ptr<mss_standin> MssTable::server_;

// --- Schemas of every type ------------------------------------------------------------------

TEST_F(MssTable, IntegersAndDecimalsTakePrecisionAndScaleFromTheCatalog) {
  expect_schema(table(L"qbtypes", L"dbo.t_int")->schema(),
                {{L"id", 3, 4, 0, true}, {L"c_bit", 11, 2, 0, false}, {L"c_tinyint", 17, 1, 0, false},
                 {L"c_smallint", 2, 2, 0, false}, {L"c_int", 3, 4, 0, false}, {L"c_bigint", 20, 8, 0, false}});
  expect_schema(table(L"qbtypes", L"dbo.t_decimal")->schema(),
                {{L"id", 3, 4, 0, true},
                 {L"d_1_0", 14, 19, 0, false, false, "", 1, 0},
                 {L"d_9_4", 14, 19, 0, false, false, "", 9, 4},
                 {L"n_18_2", 14, 19, 0, false, false, "", 18, 2},
                 {L"d_28_10", 14, 19, 0, false, false, "", 28, 10},
                 {L"d_38_0", 14, 19, 0, false, false, "", 38, 0},
                 {L"d_38_38", 14, 19, 0, false, false, "", 38, 38},
                 {L"c_money", 6, 8, 0, false},
                 {L"c_smallmoney", 6, 8, 0, false}});
  expect_schema(table(L"qbtypes", L"dbo.t_float")->schema(),
                {{L"id", 3, 4, 0, true}, {L"c_real", 4, 4, 0, false}, {L"c_float", 5, 8, 0, false}});
}

TEST_F(MssTable, DatesAndTimesAreToldApartAndDatetimeoffsetIsMarked) {
  log_capture log(2);
  expect_schema(table(L"qbtypes", L"dbo.t_datetime")->schema(),
                {{L"id", 3, 4, 0, true},
                 {L"c_date", 7, 6, 2, false},
                 {L"c_time0", 7, 10, 3, false},
                 {L"c_time7", 7, 10, 3, false},
                 {L"c_dt2_0", 7, 16, 1, false},
                 {L"c_dt2_7", 7, 16, 1, false},
                 {L"c_dto", 7, 20, 1 | 16, false},
                 {L"c_datetime", 7, 16, 1, false},
                 {L"c_smalldatetime", 7, 16, 1, false}});
  EXPECT_TRUE(log.has_line("Refine date column 'c_date'"));
  EXPECT_TRUE(log.has_line("Refine time column 'c_time7'"));
  EXPECT_TRUE(log.has_line("Got datetimeoffset"));
}

TEST_F(MssTable, TextBinaryGuidXmlAndSpatialColumns) {
  expect_schema(table(L"qbtypes", L"dbo.t_char")->schema(),
                {{L"id", 3, 4, 0, true}, {L"c_char", 8, 10, 0, false}, {L"c_varchar", 8, 50, 0, false},
                 {L"c_nchar", 8, 10, 0, false}, {L"c_nvarchar", 8, 50, 0, false}, {L"c_text", 8, 0, 0, false},
                 {L"c_ntext", 8, 0, 0, false}});
  expect_schema(table(L"qbtypes", L"dbo.t_max")->schema(),
                {{L"id", 3, 4, 0, true}, {L"c_varchar_max", 8, 0, 0, false}, {L"c_nvarchar_max", 8, 0, 0, false},
                 {L"c_varbinary_max", 8209, 0, 0, false}});
  expect_schema(table(L"qbtypes", L"dbo.t_binary")->schema(),
                {{L"id", 3, 4, 0, true}, {L"c_binary", 8209, 0, 0, false}, {L"c_varbinary", 8209, 0, 0, false},
                 {L"c_image", 8209, 0, 0, false}, {L"c_rowversion", 8209, 0, 0, true}});
  expect_schema(table(L"qbtypes", L"dbo.t_guid")->schema(), {{L"id", 3, 4, 0, true}, {L"c_guid", 8, 36, 1, false}});
  expect_schema(table(L"qbtypes", L"dbo.t_xml")->schema(), {{L"id", 3, 4, 0, true}, {L"c_xml", 8, 0, 11, false}});
  expect_schema(table(L"qbtypes", L"dbo.t_spatial")->schema(),
                {{L"id", 3, 4, 0, true}, {L"c_geography", 8, 0, 8, false}, {L"c_geometry", 8, 0, 2, false}});
}

TEST_F(MssTable, SpatialColumnsAreReadAsWellKnownText) {
  log_capture log(2);
  std::unique_ptr<mss_table> t = table(L"qbtypes", L"dbo.t_spatial");
  const std::string select =
      "SELECT [id], [c_geography].STAsText() as [c_geography], [c_geometry].STAsText() as [c_geometry] FROM "
      "[dbo].[t_spatial]";
  EXPECT_TRUE(log.has_line("mss_table::refine_by_sql_query(" + select + ")"));
  EXPECT_TRUE(log.has_line("Refine geometry/geography column 'c_geography'"));
  const std::vector<udb_record> rows = read_rows(*t);
  ASSERT_EQ(rows.size(), 4U);
  EXPECT_EQ(describe(rows[0][1]), "8:POINT (-122.349 47.651)");
  EXPECT_EQ(describe(rows[1][2]), "8:LINESTRING (0 0, 10 10, 20 0)");
  EXPECT_EQ(rows[3][1].get_type(), ole_variant::vt_empty);
  EXPECT_EQ(describe_rows(rows), plain(L"qbtypes", tk_utf8_to_wide(select)));
}

TEST_F(MssTable, ATableWithoutSpatialColumnsKeepsItsPlainRowset) {
  log_capture log(2);
  (void)table(L"qbtypes", L"dbo.t_datetime");
  EXPECT_EQ(log.text().find("mss_table::refine_by_sql_query"), std::string::npos);
  EXPECT_TRUE(log.has_line("mss_database::amend_schema - END"));
}

// --- Defaults --------------------------------------------------------------------------------

TEST_F(MssTable, DefaultsOfEveryStoredForm) {
  log_capture log(2);
  std::unique_ptr<mss_table> t = table(L"qbtypes", L"dbo.t_defaults");
  expect_schema(t->schema(),
                {{L"id", 3, 4, 0, true, true},
                 {L"d_int", 3, 4, 0, false, false, "3:0"},
                 {L"d_negative", 2, 2, 0, false, false, "2:-1"},
                 {L"d_bit", 11, 2, 0, false, false, "11:1"},
                 {L"d_decimal", 14, 19, 0, false, false, "14:1.5", 9, 2},
                 {L"d_money", 6, 8, 0, false, false, "6:0"},
                 {L"d_float", 5, 8, 0, false, false, "5:2500"},
                 {L"d_char", 8, 1, 0, false, false, "8:x"},
                 {L"d_varchar", 8, 20, 0, false, false, "8:it's"},
                 {L"d_empty", 8, 10, 0, false, false, "8:"},
                 {L"d_nvarchar", 8, 20, 0, false, false, "8:Gr\xc3\xbc\xc3\x9f" "e"},
                 {L"d_nvarchar_max", 8, 0, 0, false, false, "8:long default"},
                 {L"d_too_long", 8, 5, 0, false},
                 {L"d_datetime", 7, 16, 9, false, false, "8:getdate()"},
                 {L"d_utc", 7, 16, 9, false, false, "8:getutcdate()"},
                 {L"d_date", 7, 6, 2, false, false, "7:2020-01-31 kind=2 us=0"},
                 {L"d_time", 7, 10, 3, false, false, "7:0000-00-00 08:30:00 kind=3 us=0"},
                 {L"d_sysdatetime", 7, 16, 1, false},
                 {L"d_dto", 7, 20, 9 | 16, false, false, "8:sysdatetimeoffset()"},
                 {L"d_guid", 8, 36, 1, false, false, "8:newid()"},
                 {L"d_expression", 3, 4, 0, false}});
  EXPECT_TRUE(log.has_line("Got default string: ('ABCDEF')"));
  EXPECT_TRUE(log.has_line("Def.value 'ABCDEF' is out of range"));
  EXPECT_TRUE(log.has_line("Tuning for DATE functions as def.values"));
  EXPECT_TRUE(log.has_line("Def.value '(sysdatetime())' is no date the column can take, it is dropped"));
  EXPECT_TRUE(log.has_line(
      "Def.value '(abs((-7)))' cannot be carried, it is dropped: The default 'abs((-7))' is not a value of the "
      "column's type"));
}

TEST(MssDefaultValue, BracketsAndQuotesAreUndone) {
  log_capture log(2);
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_i4, L"((0))")), "3:0");
  EXPECT_TRUE(log.has_line("mss_table::get_def_value(type=0x00000003, src='((0))')"));
  EXPECT_TRUE(log.has_line("Before removing round brackets, pos0=2, size=5"));
  EXPECT_TRUE(log.has_line("mss_table::get_def_value - buf=[0]"));
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_i4, L"(((42)))")), "3:42");
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_i4, L"(0)")), "3:0");  // SQL Server 2000's form
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_i2, L"((-1))")), "2:-1");
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_decimal, L"((1.5))")), "14:1.5");
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_r8, L"((1.5E3))")), "5:1500");
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_bool, L"((1))")), "11:1");
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_bstr, L"('x')")), "8:x");
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_bstr, L"(N'abc')")), "8:abc");
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_bstr, L"('it''s')")), "8:it's");
  EXPECT_TRUE(log.has_line("Got string def.value: [it's]"));
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_bstr, L"('')")), "8:");
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_bstr, L"(N'')")), "8:");
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_bstr, L"(newid())")), "8:newid()");
  // A number in quotes is a number.
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_i4, L"('7')")), "3:7");
}

TEST(MssDefaultValue, DateFunctionsStayTheirTextAndDatesAreParsed) {
  log_capture log(2);
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_date, L"(getdate())")), "8:getdate()");
  EXPECT_TRUE(log.has_line("Special processing for now/get...date()"));
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_date, L"(GETUTCDATE())")), "8:GETUTCDATE()");
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_date, L"(now())")), "8:now()");
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_date, L"(SysDateTimeOffset())")),
            "8:SysDateTimeOffset()");
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_date, L"('2020-01-31')")), "7:2020-01-31 kind=2 us=0");
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_date, L"('2020-01-31 10:15:00')")),
            "7:2020-01-31 10:15:00 kind=1 us=0");
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_date, L"(sysdatetime())")), "0:");
  EXPECT_EQ(describe(mss_table::get_def_value(ole_variant::vt_date, L"('no date')")), "0:");
}

TEST(MssDefaultValue, AnExpressionIsNoValueOfANumericColumn) {
  EXPECT_THROW((void)mss_table::get_def_value(ole_variant::vt_i4, L"(abs((-7)))"), tk_exception);
  EXPECT_THROW((void)mss_table::get_def_value(ole_variant::vt_i8, L"(NEXT VALUE FOR [sales].[order_numbers])"),
               tk_exception);
  EXPECT_THROW((void)mss_table::get_def_value(ole_variant::vt_decimal, L"((1)+(2))"), tk_exception);
  EXPECT_THROW((void)mss_table::get_def_value(ole_variant::vt_cy, L"('')"), tk_exception);
}

// --- Identity --------------------------------------------------------------------------------

TEST_F(MssTable, IdentityGivesTheLastValueAndTheIncrement) {
  log_capture log(2);
  std::unique_ptr<mss_table> t = table(L"qbtypes", L"dbo.t_defaults");
  EXPECT_TRUE(t->b_identity());
  EXPECT_EQ(t->identity_seed(), 105);
  EXPECT_EQ(t->identity_increment(), 5);
  EXPECT_TRUE(t->schema()[0].b_auto_num);
  EXPECT_TRUE(log.has_line(
      "odb_command::execute(SELECT NAME AS COLUMNNAME,CAST(LAST_VALUE AS INT),CAST(INCREMENT_VALUE AS INT) FROM "
      "SYS.IDENTITY_COLUMNS WHERE OBJECT_NAME(OBJECT_ID)='t_defaults' AND OBJECT_SCHEMA_NAME(OBJECT_ID)='dbo')"));
  EXPECT_TRUE(log.has_line("Autoincrement: seed=105, increment=5"));
  EXPECT_TRUE(log.has_line("Auto-increment found: field #0"));
  // The rows carry the column's flag too.
  const std::vector<udb_record> rows = read_rows(*t);
  ASSERT_FALSE(rows.empty());
  EXPECT_TRUE(rows[0][0].b_auto_num);
  EXPECT_FALSE(rows[0][1].b_auto_num);
}

TEST_F(MssTable, ATableWithoutIdentityKeepsTheDefaults) {
  log_capture log(2);
  std::unique_ptr<mss_table> t = table(L"qbtypes", L"dbo.t_int");
  EXPECT_FALSE(t->b_identity());
  EXPECT_EQ(t->identity_seed(), 1);
  EXPECT_EQ(t->identity_increment(), 1);
  EXPECT_EQ(log.text().find("Autoincrement:"), std::string::npos);
  for (const t_ftd& f : t->schema()) EXPECT_FALSE(f.b_auto_num);
}

TEST_F(MssTable, AnIdentityNeverUsedReadsSeedZero) {
  log_capture log(2);
  std::unique_ptr<mss_table> t = table(L"qbhostile", L"dbo.empty_table");
  EXPECT_TRUE(t->b_identity());
  EXPECT_EQ(t->identity_seed(), 0);
  EXPECT_EQ(t->identity_increment(), 1);
  EXPECT_TRUE(log.has_line("Autoincrement: seed=0, increment=1"));
}

TEST_F(MssTable, ADecimalIdentityIsAnAutoNumber) {
  std::unique_ptr<mss_table> t = table(L"qbhostile", L"dbo.dec_identity");
  EXPECT_TRUE(t->b_identity());
  EXPECT_EQ(t->identity_seed(), 1020);
  EXPECT_EQ(t->identity_increment(), 10);
  expect_schema(t->schema(), {{L"id", 14, 19, 0, true, true, "", 12, 0}, {L"note", 8, 10, 0, false}});
  const std::vector<udb_record> rows = read_rows(*t);
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(describe(rows[2][0]), "14:1020");
}

TEST_F(MssTable, AFailedIdentityStepLeavesTheTableReadable) {
  mss_engine engine;  // a login that may not read sys.identity_columns nor sys.index_columns
  test::connect_engine(engine, *server_, L"auditor", L"Auditor#1");
  auto shop = test::open_source(engine, L"qbshop", mode_read);
  log_capture log(3);
  std::unique_ptr<udb_recordset> t = shop->get_table(L"dbo.products", 1);
  const auto& table = dynamic_cast<mss_table&>(*t);
  EXPECT_EQ(table.identity_seed(), 1);
  EXPECT_FALSE(table.b_identity());
  EXPECT_TRUE(log.has_line(
      "Failed to exract auto_increment properties: The SELECT permission was denied on the object "
      "'IDENTITY_COLUMNS', database 'mssqlsystemresource', schema 'SYS'."))
      << log.text();
  // The included columns cannot be read either: the indexes are lost, the
  // rows are not.
  EXPECT_TRUE(log.has_line(
      "Error while init_indexes: The SELECT permission was denied on the object 'index_columns', database "
      "'mssqlsystemresource', schema 'sys'."))
      << log.text();
  EXPECT_TRUE(t->indexes().empty());
  EXPECT_EQ(read_rows(*t).size(), 60U);
}

// --- Keys and indexes --------------------------------------------------------------------------

TEST_F(MssTable, ThePrimaryKeyIndexesAndIncludedColumnsOfEachTable) {
  EXPECT_EQ(describe_indexes(table(L"qbshop", L"dbo.categories")->indexes()),
            (strings{"PK_categories primary (category_id)", "UQ_categories_name unique (name)"}));
  EXPECT_EQ(describe_indexes(table(L"qbshop", L"dbo.products")->indexes()),
            (strings{"PK_products primary (product_id)", "UX_products_sku unique (sku)",
                     "IX_products_category (category_id|name,list_price)"}));
  EXPECT_EQ(describe_indexes(table(L"qbshop", L"dbo.customers")->indexes()),
            (strings{"PK_customers primary (customer_id)", "UQ_customers_email unique (email)",
                     "IX_customers_name (last_name,first_name|email,city)"}));
  EXPECT_EQ(describe_indexes(table(L"qbshop", L"sales.orders")->indexes()),
            (strings{"PK_orders primary (order_id)", "UQ_orders_order_no unique (order_no)",
                     "IX_orders_customer (customer_id,order_date|status,total)"}));
  EXPECT_EQ(describe_indexes(table(L"qbshop", L"sales.order_lines")->indexes()),
            (strings{"PK_order_lines primary (order_id,line_no)", "IX_order_lines_product (product_id)"}));
  EXPECT_EQ(describe_indexes(table(L"qbshop", L"sales.shipments")->indexes()),
            (strings{"PK_shipments primary (shipment_id)"}));
  EXPECT_EQ(describe_indexes(table(L"qbhostile", L"dbo.select")->indexes()),
            (strings{"PK_select primary (from)", "index (where,group)"}));
  EXPECT_TRUE(table(L"qbhostile", L"dbo.no_key")->indexes().empty());
}

TEST_F(MssTable, IndexesAreLoggedAsTheyAreRead) {
  log_capture log(2);
  (void)table(L"qbshop", L"dbo.products");
  EXPECT_TRUE(test::lines_in_order(
      log.text(),
      {"Initializing primary key", "Got pr.key: PK_products", "Got pk column #1: 'product_id'",
       "Initializing foreign keys", "Initializing other indexes", "Got index: PK_products (1,1)",
       "Skip Primary Key DoubleInitialization", "Got index: UX_products_sku (1,0)", "Add idx.column: 'sku'",
       "Got index: IX_products_category (0,0)", "Add idx.column: 'category_id'",
       "list_inc_idx_col_qry=SELECT col.name FROM sys.indexes ind INNER JOIN      sys.index_columns ic ON  "
       "ind.object_id = ic.object_id and ind.index_id = ic.index_id INNER JOIN      sys.columns col ON ic.object_id "
       "= col.object_id and ic.column_id = col.column_id INNER JOIN      sys.tables t ON ind.object_id = "
       "t.object_id INNER JOIN      sys.schemas sch ON t.schema_id = sch.schema_id WHERE      "
       "ic.is_included_column=1 AND sch.name='dbo' AND t.name='products' AND ind.name='IX_products_category'",
       "Got included column for index 'IX_products_category': 'name'",
       "Got included column for index 'IX_products_category': 'list_price'", "Right before copying indexes (size=3)"}))
      << log.text();
  EXPECT_TRUE(log.has_line("Primary key was NOT found") == false);
}

TEST_F(MssTable, ATableWithoutKeySaysSo) {
  log_capture log(2);
  (void)table(L"qbhostile", L"dbo.no_key");
  EXPECT_TRUE(log.has_line("Primary key was NOT found"));
}

TEST_F(MssTable, FlagsThirtyTwoAndSixtyFourTogetherSkipTheIndexes) {
  log_capture log(2);
  std::unique_ptr<mss_table> t = table(L"qbshop", L"dbo.products", 1 | 32 | 64);
  EXPECT_TRUE(t->indexes().empty());
  EXPECT_FALSE(log.has_line("Initializing primary key"));
  EXPECT_FALSE(table(L"qbshop", L"dbo.products", 1 | 32)->indexes().empty());
}

TEST_F(MssTable, ForeignKeysAreFoundFromTheTableTheyReferTo) {
  log_capture log(2);
  (void)table(L"qbshop", L"dbo.customers");
  EXPECT_EQ(describe_relationships(db(L"qbshop").relationships()),
            (strings{"FK_customers_customers: sales.customers(customer_id) -> dbo.customers(customer_id)",
                     "FK_customers_referrer: dbo.customers(referred_by) -> dbo.customers(customer_id)",
                     "FK_orders_customers: sales.orders(customer_id) -> dbo.customers(customer_id)"}));
  EXPECT_TRUE(log.has_line("fk_name=FK_orders_customers, pk_table=dbo.customers, fk_table=sales.orders"));
  EXPECT_TRUE(log.has_line("GOT NEW FOREIGN KEY: FK_orders_customers"));
  EXPECT_TRUE(log.has_line("Add FK column (1): customer_id->customer_id"));
  EXPECT_TRUE(log.has_line("update rule=NO ACTION, delete_rule=NO ACTION"));
}

TEST_F(MssTable, ACompositeForeignKeyGathersItsColumnsAndIsNotTakenTwice) {
  log_capture log(2);
  (void)table(L"qbshop", L"sales.order_lines");
  EXPECT_TRUE(log.has_line("GOT EXISTING FOREIGN KEY: FK_shipments_order_lines"));
  EXPECT_TRUE(log.has_line("Add FK column (2): line_no->line_no"));
  (void)table(L"qbshop", L"sales.order_lines");  // again, on the same database
  EXPECT_TRUE(log.has_line("Column order_id->order_id already exists in FK, skip it"));
  EXPECT_EQ(describe_relationships(db(L"qbshop").relationships()),
            (strings{"FK_shipments_order_lines: sales.shipments(order_id,line_no) -> sales.order_lines(order_id,line_no) "
                     "ON DELETE CASCADE"}));
}

const strings shop_relationships = {
    "FK_categories_parent: dbo.categories(parent_id) -> dbo.categories(category_id)",
    "FK_customers_customers: sales.customers(customer_id) -> dbo.customers(customer_id)",
    "FK_customers_referrer: dbo.customers(referred_by) -> dbo.customers(customer_id)",
    "FK_order_lines_orders: sales.order_lines(order_id) -> sales.orders(order_id) ON UPDATE CASCADE ON DELETE "
    "CASCADE",
    "FK_order_lines_products: sales.order_lines(product_id) -> dbo.products(product_id)",
    "FK_orders_customers: sales.orders(customer_id) -> dbo.customers(customer_id)",
    "FK_products_category: dbo.products(category_id) -> dbo.categories(category_id) ON DELETE SET NULL",
    "FK_shipments_order_lines: sales.shipments(order_id,line_no) -> sales.order_lines(order_id,line_no) ON DELETE "
    "CASCADE"};

const std::vector<std::wstring> shop_tables = {L"dbo.categories",  L"dbo.customers",     L"dbo.products",
                                               L"sales.customers", L"sales.order_lines", L"sales.orders",
                                               L"sales.shipments"};

TEST_F(MssTable, EveryForeignKeyOfTheShopWithItsRules) {
  for (const std::wstring& name : shop_tables) (void)table(L"qbshop", name);
  EXPECT_EQ(describe_relationships(db(L"qbshop").relationships()), shop_relationships);
  const udb_rel& rel = db(L"qbshop").relationships_for_tables().get_index(L"FK_order_lines_orders");
  EXPECT_EQ(rel.owner, L"sales");
  (void)table(L"qbhostile", L"dbo.select");
  EXPECT_EQ(describe_relationships(db(L"qbhostile").relationships()),
            (strings{"FK_order details_select: dbo.order details(select) -> dbo.select(from) ON UPDATE CASCADE ON "
                     "DELETE SET NULL"}));
}

// --- Rows ----------------------------------------------------------------------------------------

TEST_F(MssTable, EveryTableOfTheShopDeliversItsRows) {
  const std::vector<std::pair<std::wstring, std::size_t>> counts = {
      {L"dbo.categories", 12},     {L"dbo.customers", 200}, {L"dbo.products", 60},   {L"sales.customers", 50},
      {L"sales.order_lines", 900}, {L"sales.orders", 300},  {L"sales.shipments", 100}};
  for (const auto& [name, count] : counts) expect_rows_as_plain(L"qbshop", name, count);
}

TEST_F(MssTable, ShopRowsFollowTheirRules) {
  const std::vector<udb_record> customers = read_rows(*table(L"qbshop", L"dbo.customers"));
  ASSERT_EQ(customers.size(), 200U);
  // customer 7: FIRST[7] Hana, LAST[49 % 20] Jensen, CITIES[7] Graz, COUNTRIES[7 % 6] AT,
  // signed up 3 * 7 days after 2020-01-01
  const udb_record& c7 = customers[6];
  EXPECT_EQ(describe(c7[0]), "3:7");
  EXPECT_EQ(describe(c7[1]), "8:hana.jensen7@example.com");
  EXPECT_EQ(describe(c7[4]), "8:Graz");
  EXPECT_EQ(describe(c7[5]), "8:AT");
  EXPECT_EQ(describe(c7[8]), "7:2020-01-22 kind=2 us=0");
  // customer 9: no credit limit (every ninth), customer 13: no city
  EXPECT_EQ(customers[8][7].get_type(), ole_variant::vt_empty);
  EXPECT_EQ(customers[12][4].get_type(), ole_variant::vt_empty);
  // customer 150 has the long note: "Kunde 150 – Notiz. " 400 times
  EXPECT_EQ(customers[149][10].text_view().size(), std::wstring(L"Kunde 150 \u2013 Notiz. ").size() * 400);

  const std::vector<udb_record> products = read_rows(*table(L"qbshop", L"dbo.products"));
  ASSERT_EQ(products.size(), 60U);
  // product 2: price (2 * 3737) % 200000 + 999 = 8473 cents
  EXPECT_EQ(describe(products[1][1]), "8:SKU-00002");
  EXPECT_EQ(describe(products[1][4]), "6:84.73");
  EXPECT_EQ(products[6][5].get_type(), ole_variant::vt_empty);  // product 7: no weight
  EXPECT_EQ(describe(products[10][6]), "11:1");                 // product 11: discontinued

  const std::vector<udb_record> orders = read_rows(*table(L"qbshop", L"sales.orders"));
  ASSERT_EQ(orders.size(), 300U);
  EXPECT_EQ(describe(orders[299][0]), "3:1299");
  EXPECT_EQ(describe(orders[299][1]), "20:100299");
  EXPECT_EQ(orders[0][4].get_type(), ole_variant::vt_empty);  // order 0 is not shipped
}

TEST_F(MssTable, EveryTypeTableDeliversItsRows) {
  for (const auto& [name, count] :
       std::vector<std::pair<std::wstring, std::size_t>>{{L"dbo.t_int", 4},      {L"dbo.t_decimal", 4},
                                                         {L"dbo.t_float", 6},    {L"dbo.t_datetime", 4},
                                                         {L"dbo.t_char", 5},     {L"dbo.t_max", 4},
                                                         {L"dbo.t_binary", 3},   {L"dbo.t_guid", 3},
                                                         {L"dbo.t_xml", 2},      {L"dbo.t_parent", 2},
                                                         {L"dbo.t_child", 3},    {L"dbo.t_defaults", 2},
                                                         {L"sales.orders", 2}}) {
    expect_rows_as_plain(L"qbtypes", name, count);
  }
}

TEST_F(MssTable, AwkwardNamesAndShapesAreRead) {
  const std::vector<std::pair<std::wstring, std::size_t>> counts = {
      {L"dbo.order details", 3},
      {L"dbo.O'Brien's", 2},
      {L"dbo.back`tick", 2},
      {L"dbo.select", 2},
      {L"[dbo].[a.b]", 2},
      {L"dbo.customer_orders_archived_before_the_migration_of_the_old_erp_system_xy", 1},
      {L"dbo.Customer", 2},
      {L"dbo.CUSTOMER", 1},
      {L"dbo.empty_table", 0},
      {L"dbo.no_key", 4},
      {L"dbo.wide_300", 5},
      {L"dbo.dec_identity", 3},
      {L"odd schema.t", 2}};
  for (const auto& [name, count] : counts) expect_rows_as_plain(L"qbhostile", name, count);
}

TEST_F(MssTable, TwoTablesDifferingOnlyByCaseAreTwoTables) {
  std::unique_ptr<mss_table> lower = table(L"qbhostile", L"dbo.Customer");
  std::unique_ptr<mss_table> upper = table(L"qbhostile", L"dbo.CUSTOMER");
  expect_schema(lower->schema(), {{L"id", 3, 4, 0, true}, {L"name", 8, 20, 0, false}});
  expect_schema(upper->schema(), {{L"code", 8, 3, 0, true}, {L"note", 8, 20, 0, false}});
  EXPECT_EQ(describe_indexes(lower->indexes()), (strings{"PK_Customer primary (id)"}));
  EXPECT_EQ(describe_indexes(upper->indexes()), (strings{"PK_CUSTOMER primary (code)"}));
  EXPECT_EQ(describe(read_rows(*upper)[0][1]), "8:upper case");
}

TEST_F(MssTable, QuotesInNamesAndDefaultsSurvive) {
  std::unique_ptr<mss_table> t = table(L"qbhostile", L"dbo.O'Brien's");
  expect_schema(t->schema(), {{L"id", 3, 4, 0, true}, {L"say \"hi\"", 8, 20, 0, false, false, "8:\"hi\""}});
  EXPECT_EQ(describe_indexes(t->indexes()), (strings{"PK_O'Brien's primary (id)"}));
  std::unique_ptr<mss_table> d = table(L"qbhostile", L"dbo.order details");
  expect_schema(d->schema(), {{L"order id", 3, 4, 0, true},
                              {L"unit price", 6, 8, 0, false},
                              {L"it's", 8, 20, 0, false, false, "8:it's"},
                              {L"select", 3, 4, 0, false}});
}

TEST_F(MssTable, ThreeHundredColumns) {
  std::unique_ptr<mss_table> t = table(L"qbhostile", L"dbo.wide_300");
  ASSERT_EQ(t->schema().size(), 300U);
  EXPECT_EQ(t->schema()[299].name, L"c299");
  const std::vector<udb_record> rows = read_rows(*t);
  ASSERT_EQ(rows.size(), 5U);
  // column c001 is nvarchar(10): "ü1-<row>"; c010 is int: 10 * 1000 + row
  EXPECT_EQ(describe(rows[1][1]), "8:\xc3\xbc" "1-2");
  EXPECT_EQ(describe(rows[1][10]), "3:10002");
}

TEST_F(MssTable, AnEmptyTableEndsAtOnce) {
  std::unique_ptr<mss_table> t = table(L"qbhostile", L"dbo.empty_table");
  EXPECT_EQ(t->rec_count(), 0U);
  t->reset();
  EXPECT_TRUE(t->is_eof());
}

TEST_F(MssTable, ReadingEndsByTheCountAndStartsAgainOnReset) {
  std::unique_ptr<mss_table> t = table(L"qbshop", L"sales.orders");
  log_capture log(1);
  std::vector<udb_record> first = read_rows(*t);
  EXPECT_EQ(first.size(), 300U);
  EXPECT_TRUE(log.has_line("odb_table::is_eof(300:300)"));
  const std::vector<udb_record> second = read_rows(*t);
  EXPECT_EQ(describe_rows(second), describe_rows(first));
}

TEST_F(MssTable, TheCatalogIsReadBeforeTheRowsetIsOpened) {
  log_capture log(2);
  (void)table(L"qbshop", L"sales.orders");
  EXPECT_TRUE(test::lines_in_order(
      log.text(),
      {"mss_database::get_table1(sales.orders)", "mss_table::ctor1([sales].[orders])", "mss_table::split_tab_name",
       "mss_table::init_schema",
       "query=SELECT SC.name, t.name as type_name, SD.definition, SC.precision, SC.scale FROM sys.tables ST INNER "
       "JOIN sys.columns SC ON ST.object_id = SC.object_id INNER JOIN sys.types t ON t.user_type_id = "
       "SC.user_type_id LEFT JOIN sys.default_constraints SD ON ST.object_id = SD.parent_object_id AND "
       "SC.column_id = SD.parent_column_id WHERE ST.name='orders' and SCHEMA_NAME(ST.schema_id)='sales'",
       "Autoincrement: seed=1299, increment=1", "Initializing primary key", "odb_table::get_records_cnt",
       "odb_command::execute(SELECT COUNT(*) FROM [sales].[orders])", "Open rowset in read_only mode",
       "odb_command::execute(SELECT * FROM [sales].[orders])", "Got field name/type: order_id/int",
       "Got default string: (NEXT VALUE FOR [sales].[order_numbers])", "Got datetimeoffset",
       "Auto-increment found: field #0", "mss_database::amend_schema", "Refine date column 'ship_date'",
       "mss_database::amend_schema - END"}))
      << log.text();
}

TEST_F(MssTable, ATableThatDoesNotExistCannotBeRead) {
  try {
    (void)table(L"qbshop", L"dbo.nosuch");
    FAIL() << "no exception";
  } catch (const odb_exception& e) {
    EXPECT_TRUE(e.has_native_error(208)) << e.what();
  }
  EXPECT_FALSE(db(L"qbshop").session_held());
}

// --- Names, owners, logins -----------------------------------------------------------------------

TEST_F(MssTable, TwoTablesOfOneNameInTwoSchemasKeepTheirOwnRowsAndKeys) {
  auto sales = test::open_source(engine_, L"qbshop", 161, L"sales");
  auto dbo = test::open_source(engine_, L"qbshop", 161, L"dbo");
  ASSERT_TRUE(sales->is_table_exist(L"sales.customers"));
  ASSERT_TRUE(dbo->is_table_exist(L"dbo.customers"));
  // The driver strips the owner when a schema filter is set: both become "customers".
  std::wstring table_name;
  std::wstring owner;
  mss_split_tab_name(L"sales.customers", table_name, owner);
  EXPECT_EQ(table_name, L"customers");
  EXPECT_EQ(owner, L"sales");
  std::unique_ptr<udb_recordset> accounts = sales->get_table(L"sales.customers", 1);
  std::unique_ptr<udb_recordset> people = dbo->get_table(L"dbo.customers", 1);
  EXPECT_EQ(accounts->rec_count(), 50U);
  EXPECT_EQ(people->rec_count(), 200U);
  EXPECT_EQ(describe_indexes(accounts->indexes()), (strings{"PK_customers primary (account_id)"}));
  EXPECT_EQ(describe_indexes(people->indexes())[0], "PK_customers primary (customer_id)");
  EXPECT_EQ(accounts->schema()[2].name, L"region");
  EXPECT_EQ(describe(accounts->schema()[2].def_value), "8:EMEA");
}

TEST_F(MssTable, ANamedLoginReadsItsOwnSchemaUnlessItWorksAsDbo) {
  mss_engine engine;
  test::connect_engine(engine, *server_, L"sales", L"Sales#1");
  auto shop = test::open_source(engine, L"qbshop", mode_read);
  EXPECT_EQ(shop->get_table(L"orders", 1)->rec_count(), 300U);  // [sales].[orders]
  engine.set_as_dbo(true);
  try {
    (void)shop->get_table(L"orders", 1);
    FAIL() << "no exception";
  } catch (const odb_exception& e) {
    EXPECT_STREQ(e.what(), "Invalid object name 'dbo.orders'.");
  }
  EXPECT_EQ(shop->get_table(L"customers", 1)->rec_count(), 200U);  // [dbo].[customers]
}

// --- Queries -------------------------------------------------------------------------------------

TEST_F(MssTable, AQueryIsCountedAndReadWithoutCatalog) {
  log_capture log(2);
  const std::wstring sql = L"SELECT customer_id, email, signup_date FROM dbo.customers WHERE country = 'DE'";
  std::unique_ptr<udb_recordset> q = db(L"qbshop").get_query(L"german customers", sql, 1);
  EXPECT_TRUE(q->is_query());
  EXPECT_EQ(q->name(), L"german customers");
  EXPECT_EQ(q->rec_count(), 33U);  // every sixth of 200
  EXPECT_TRUE(log.has_line("mss_database::get_query(german customers: " + tk_to_utf8(sql) + ")"));
  EXPECT_TRUE(log.has_line("odb_command::execute(SELECT COUNT(*) FROM (" + tk_to_utf8(sql) + ") as query)"));
  EXPECT_FALSE(log.has_line("Initializing primary key"));
  EXPECT_EQ(log.text().find("query=SELECT SC.name"), std::string::npos);
  EXPECT_TRUE(q->indexes().empty());
  // A query has no table of its own: its date column stays a date and time.
  expect_schema(q->schema(),
                {{L"customer_id", 3, 4, 0, true}, {L"email", 8, 120, 0, true}, {L"signup_date", 7, 6, 1, true}});
  const std::vector<udb_record> rows = read_rows(*q);
  ASSERT_EQ(rows.size(), 33U);
  EXPECT_EQ(describe(rows[0][0]), "3:6");
  EXPECT_EQ(describe_rows(rows), plain(L"qbshop", sql));
}

TEST_F(MssTable, AQueryTheServerRefusesFails) {
  EXPECT_THROW((void)db(L"qbshop").get_query(L"bad", L"SELECT nope FROM dbo.customers", 1), odb_exception);
  EXPECT_FALSE(db(L"qbshop").session_held());
}

// --- Azure ---------------------------------------------------------------------------------------

TEST(MssTableAzure, NoSchemaRowsetIsTouchedAndTheCatalogViewsGiveTheSameKeys) {
  const mss_standin server(test::source_options({"business.json"}, "qbshop", "azure"));
  mss_engine engine;
  engine.connect(test::server_of(server), L"sa", L"Secret#1", L"qbshop", true);
  auto shop = test::open_source(engine, L"qbshop", mode_read);
  log_capture log(2);
  const std::string before = server.log();
  std::vector<std::vector<std::string>> indexes;
  for (const std::wstring& name : shop_tables) {
    std::unique_ptr<udb_recordset> t = shop->get_table(name, 1);
    indexes.push_back(describe_indexes(t->indexes()));
  }
  const std::string rpcs = server.log().substr(before.size());
  for (const char* procedure : {"sp_pkeys", "sp_fkeys", "sp_statistics"}) {
    EXPECT_EQ(rpcs.find(procedure), std::string::npos) << procedure;
  }
  EXPECT_TRUE(log.has_line("Alternate init_indexes for SQL Azure"));
  EXPECT_TRUE(log.has_line("odb_table::init_indexes2(dbo,products)"));
  EXPECT_TRUE(log.has_line(
      "Index query: SELECT      ind.name, col.name, ind.is_primary_key, ind.is_unique FROM      sys.indexes ind "
      "INNER JOIN      sys.index_columns ic ON  ind.object_id = ic.object_id and ind.index_id = ic.index_id INNER "
      "JOIN      sys.columns col ON ic.object_id = col.object_id and ic.column_id = col.column_id INNER JOIN      "
      "sys.tables t ON ind.object_id = t.object_id WHERE      SCHEMA_NAME(t.schema_id)='dbo' AND t.name='products' "
      "AND t.is_ms_shipped=0 ORDER BY      t.name, ind.name, ind.index_id, ic.index_column_id"));
  EXPECT_TRUE(log.has_line(
      "FK query: SELECT       obj.name, col1.name, tab2.name, col2.name,      fks.delete_referential_action_desc, "
      "fks.update_referential_action_desc FROM      sys.foreign_keys fks INNER JOIN sys.foreign_key_columns fkc   "
      "   ON fks.object_id = fkc.constraint_object_id INNER JOIN sys.objects obj     ON obj.object_id = "
      "fkc.constraint_object_id INNER JOIN sys.tables tab1     ON tab1.object_id = fkc.parent_object_id INNER "
      "JOIN sys.columns col1     ON col1.column_id = parent_column_id AND col1.object_id = tab1.object_id INNER "
      "JOIN sys.tables tab2     ON tab2.object_id = fkc.referenced_object_id INNER JOIN sys.columns col2     ON "
      "col2.column_id = referenced_column_id AND col2.object_id = tab2.object_id WHERE      "
      "SCHEMA_NAME(tab1.schema_id)='sales' AND tab1.name = 'orders' ORDER BY obj.name"));
  EXPECT_TRUE(log.has_line("GOT FOREIGN KEY: FK_orders_customers"));
  // By name, as the catalog orders them; included columns told apart.
  EXPECT_EQ(indexes[2], (strings{"IX_products_category (category_id|name,list_price)",
                                 "PK_products primary (product_id)", "UX_products_sku unique (sku)"}));
  EXPECT_EQ(indexes[4], (strings{"IX_order_lines_product (product_id)", "PK_order_lines primary (order_id,line_no)"}));
  // Every key is found once, from the table that holds it; a parent in
  // another schema keeps its schema.
  EXPECT_EQ(describe_relationships(shop->relationships()), shop_relationships);
}

// --- Releases ------------------------------------------------------------------------------------

class MssTableRelease : public ::testing::TestWithParam<std::string> {};

// The shop read through each release: the same columns, defaults and
// identities, the same keys (SQL Server 2000 knows no included columns), the
// same rows.
TEST_P(MssTableRelease, TheShopReadsTheSame) {
  const test::view_owned_restorer view_owned;
  const mss_standin server(test::source_options({"business.json"}, "qbshop", GetParam()));
  mss_engine engine;
  engine.connect(test::server_of(server), L"sa", L"Secret#1", L"qbshop", true);
  engine.set_view_owned(false);
  auto shop = test::open_source(engine, L"qbshop", mode_read);
  odb_environment env;
  odb_connection plain = test::connect_freetds(env, server);
  plain.run(L"SET TEXTSIZE 2147483647");
  for (const std::wstring& name : shop_tables) {
    SCOPED_TRACE(tk_to_utf8(name));
    std::unique_ptr<udb_recordset> rs = shop->get_table(name, 1);
    const auto& t = dynamic_cast<mss_table&>(*rs);
    if (name == L"sales.orders") {
      EXPECT_EQ(t.identity_seed(), 1299);
      expect_schema(rs->schema(), {{L"order_id", 3, 4, 0, true, true},
                                   {L"order_no", 20, 8, 0, true},
                                   {L"customer_id", 3, 4, 0, true},
                                   {L"order_date", 7, 16, 9, true, false, "8:getdate()"},
                                   {L"ship_date", 7, 6, 2, false},
                                   {L"status", 17, 1, 0, true, false, "17:1"},
                                   {L"total", 6, 8, 0, true, false, "6:0"},
                                   {L"delivery_window", 7, 10, 3, false},
                                   {L"placed_at", 7, 20, 17, false}});
      strings want = {"PK_orders primary (order_id)", "UQ_orders_order_no unique (order_no)",
                      GetParam() == "2000" ? "IX_orders_customer (customer_id,order_date)"
                                           : "IX_orders_customer (customer_id,order_date|status,total)"};
      strings got = describe_indexes(rs->indexes());
      std::sort(want.begin(), want.end());
      std::sort(got.begin(), got.end());
      EXPECT_EQ(got, want);
    }
    if (name == L"dbo.customers") {
      expect_schema(rs->schema(), {{L"customer_id", 3, 4, 0, true, true},
                                   {L"email", 8, 120, 0, true},
                                   {L"first_name", 8, 50, 0, true},
                                   {L"last_name", 8, 50, 0, true},
                                   {L"city", 8, 60, 0, false},
                                   {L"country", 8, 2, 0, true, false, "8:DE"},
                                   {L"referred_by", 3, 4, 0, false},
                                   {L"credit_limit", 14, 19, 0, false, false, "14:1000", 12, 2},
                                   {L"signup_date", 7, 6, 2, true, false, "8:getdate()"},
                                   {L"row_guid", 8, 36, 1, true, false, "8:newid()"},
                                   {L"notes", 8, 0, 0, false}});
    }
    const std::vector<udb_record> rows = read_rows(*rs);
    EXPECT_EQ(rows.size(), rs->rec_count());
    EXPECT_EQ(describe_rows(rows), describe_rows(test::fetch_all(plain, L"SELECT * FROM " + engine.get_safe_tname(name))));
  }
  EXPECT_EQ(describe_relationships(shop->relationships()), shop_relationships);
}

// What a reading of every table of a fixture database gives: per table its
// columns, its indexes (sorted) and its rows, as text.
struct database_reading {
  std::map<std::wstring, std::vector<std::string>> columns;
  std::map<std::wstring, std::vector<std::string>> indexes;
  std::map<std::wstring, std::vector<std::vector<std::string>>> rows;
  std::vector<std::string> relationships;
};

database_reading read_database(const std::string& version, const std::wstring& database) {
  const test::view_owned_restorer view_owned;
  const mss_standin server(test::all_fixtures(version));
  mss_engine engine;
  engine.connect(test::server_of(server), L"sa", L"Secret#1", database, true);
  engine.set_view_owned(false);
  auto db = test::open_source(engine, database, mode_read);
  database_reading out;
  for (const std::wstring& name : std::vector<std::wstring>(db->tables())) {
    std::unique_ptr<udb_recordset> rs = db->get_table(name, 1);
    for (const t_ftd& f : rs->schema()) {
      out.columns[name].push_back(tk_to_utf8(f.name) + " " + std::to_string(f.vartype) + " " +
                                  std::to_string(f.size) + " " + std::to_string(f.dw_reserved) + " " +
                                  std::to_string(f.b_not_null) + std::to_string(f.b_auto_num) + " " +
                                  describe(f.def_value) + " " + std::to_string(f.prec) + "/" +
                                  std::to_string(f.scale));
    }
    out.indexes[name] = describe_indexes(rs->indexes());
    std::sort(out.indexes[name].begin(), out.indexes[name].end());
    out.rows[name] = describe_rows(read_rows(*rs));
  }
  out.relationships = describe_relationships(db->relationships());
  return out;
}

// Every table of every fixture database through each release reads as it
// reads through SQL Server 2019, but for what the release cannot tell:
// SQL Server 2000 knows no included columns.
TEST_P(MssTableRelease, EveryFixtureReadsAsOnTheLatestRelease) {
  for (const std::wstring database : {L"qbtypes", L"qbhostile"}) {
    SCOPED_TRACE(tk_to_utf8(database));
    const database_reading latest = read_database("2019", database);
    const database_reading reading = read_database(GetParam(), database);
    EXPECT_EQ(reading.columns, latest.columns);
    EXPECT_EQ(reading.rows, latest.rows);
    EXPECT_EQ(reading.relationships, latest.relationships);
    for (const auto& [table, indexes] : latest.indexes) {
      std::vector<std::string> want = indexes;
      if (GetParam() == "2000") {
        for (std::string& i : want) {
          const std::size_t bar = i.find('|');
          if (bar != std::string::npos) i.erase(bar, i.size() - 1 - bar);
        }
      }
      EXPECT_EQ(reading.indexes.at(table), want) << tk_to_utf8(table);
    }
    EXPECT_GT(latest.rows.size(), 10U);
  }
}

INSTANTIATE_TEST_SUITE_P(Releases, MssTableRelease, ::testing::Values("2000", "2008", "2019", "azure"),
                         [](const ::testing::TestParamInfo<std::string>& release) {
                           return release.param == "azure" ? std::string("Azure") : "SqlServer" + release.param;
                         });

}  // namespace
}  // namespace qb
