// Views of a business database as SQL Server stores them, cleaned as the
// source reads them, rewritten for MySQL, and created on a real MariaDB over
// matching tables; the rows they return are checked. Where the translation
// gives a different answer from SQL Server's on purpose (GETDATE loses the
// time, DATEDIFF counts days with the opposite sign, LEN becomes LENGTH which
// counts bytes), the test says so. Views that the rewrite leaves invalid are
// refused by the server, with the server's own error text.
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "mss/view_cleaner.h"
#include "sql/engine.h"
#include "sql/exception.h"
#include "sql/name_rules.h"
#include "sql/view_converter.h"
#include "tk/utf.h"

#include "support/mariadb_server.h"
#include "test_session.h"

namespace qb {
namespace {

using rows_t = std::vector<std::vector<std::string>>;
using test::mariadb_server;

// A scratch database with the tables a migration would have made from the
// source: customers, orders, and a table whose source name MySQL refuses.
class ViewsOnServer : public ::testing::Test {
 protected:
  ViewsOnServer() : root_(mariadb_server::main()), db_(test::unique_name("qb_views")) {
    root_.run("CREATE DATABASE `" + db_ + "` CHARACTER SET utf8mb4");
    root_.run("USE `" + db_ + "`");
    root_.run(
        "CREATE TABLE customers (id INT NOT NULL PRIMARY KEY, name VARCHAR(50) NOT NULL, city VARCHAR(50) NULL, "
        "credit_limit DECIMAL(10,2) NULL) ENGINE=InnoDB");
    root_.run(
        "INSERT INTO customers VALUES (1, 'Alder Bakery', 'Oslo', 5000.00), "
        "(2, 'M\xc3\xbcller GmbH', 'Berlin', NULL), (3, 'Cobalt Ltd', NULL, 1200.50)");
    root_.run(
        "CREATE TABLE orders (id INT NOT NULL PRIMARY KEY, customer_id INT NOT NULL, order_date DATETIME NOT NULL, "
        "ship_date DATETIME NULL, amount DECIMAL(10,2) NOT NULL, delivery_time TIME NULL) ENGINE=InnoDB");
    root_.run(
        "INSERT INTO orders VALUES (10, 1, '2024-01-10 09:00:00', '2024-01-15 17:30:00', 250.00, '17:30:00'), "
        "(11, 2, '2024-01-31 08:00:00', '2024-03-01 12:00:00', 80.00, NULL), "
        "(12, 3, '2024-02-20 10:00:00', NULL, 1500.00, NULL), "
        "(13, 1, '2024-03-05 11:00:00', NULL, 99.99, NULL)");
    root_.run("CREATE TABLE Sales_Region (region VARCHAR(20) NOT NULL, Price_Tax DECIMAL(10,2) NOT NULL)");
    root_.run("INSERT INTO Sales_Region VALUES ('North', 10.00), ('North', 5.50), ('South', 7.25)");

    session_.run("USE `" + db_ + "`");
  }
  ~ViewsOnServer() override {
    try {
      root_.run("DROP DATABASE IF EXISTS `" + db_ + "`");
    } catch (...) {  // NOLINT(bugprone-empty-catch): a clean-up failure must not hide the test's own
    }
  }

  // The definition as SQL Server keeps it, through both stages, as the
  // statement the server destination sends.
  std::string translate(const std::wstring& name, const std::wstring& definition, bool is_view_owned = true) {
    const std::optional<std::wstring> cleaned = mss_clean_view(name, definition, is_view_owned);
    EXPECT_TRUE(cleaned.has_value());
    EXPECT_TRUE(sql_view_converter::is_select_text(cleaned.value_or(L"")));
    refined_ = sql_view_converter::refine_view_in(sql_view_destination::server, cleaned.value_or(L""), names_);
    return tk_to_utf8(sql_view_converter::create_view_statement(sql_quote_name(name), refined_));
  }

  // Creates the view; the test fails with the server's text when it is
  // refused.
  void create(const std::wstring& name, const std::wstring& definition, bool is_view_owned = true) {
    const std::string statement = translate(name, definition, is_view_owned);
    try {
      session_.run(statement);
    } catch (const sql_exception& e) {
      FAIL() << "refused: " << e.server_message() << "\n" << statement;
    }
  }

  // The server's refusal of the view; the test fails when it is accepted.
  std::optional<sql_exception> refusal(const std::wstring& name, const std::wstring& definition,
                                       bool is_view_owned = true) {
    const std::string statement = translate(name, definition, is_view_owned);
    try {
      session_.run(statement);
    } catch (const sql_exception& e) {
      EXPECT_EQ(e.statement(), statement);
      EXPECT_EQ(views_named(name), 0) << "a refused view exists";
      return e;
    }
    ADD_FAILURE() << "accepted: " << statement;
    return std::nullopt;
  }

  int views_named(const std::wstring& name) {
    return std::stoi(root_.scalar("SELECT COUNT(*) FROM information_schema.VIEWS WHERE TABLE_SCHEMA = " +
                                  test::sql_literal(db_) + " AND TABLE_NAME = " + test::sql_literal(tk_to_utf8(name))));
  }

  rows_t rows(const std::string& statement) { return session_.rows(statement); }

  test::test_session root_;
  std::string db_;
  test::test_session session_{mariadb_server::main(), mariadb_server::main().account()};
  udb_names_map names_;
  std::wstring refined_;
};

// Expects a refusal with this error number and this piece of the server's
// text.
void expect_refused(const std::optional<sql_exception>& e, unsigned number, const std::string& text) {
  ASSERT_TRUE(e.has_value());
  EXPECT_EQ(e->error_number(), number) << e->server_message();
  EXPECT_NE(e->server_message().find(text), std::string::npos) << e->server_message();
  EXPECT_NE(std::string(e->what()).find(text), std::string::npos) << e->what();
}

// --- Views that translate --------------------------------------------------------------

TEST_F(ViewsOnServer, IsnullTopHundredPercentNolockBracketsAndOwner) {
  create(L"v_customer_credit",
         L"CREATE VIEW [dbo].[v_customer_credit]\r\nAS\r\n"
         L"SELECT TOP 100 PERCENT [c].[id], [c].[name], ISNULL([c].[credit_limit], 0) AS [credit]\r\n"
         L"FROM [dbo].[customers] AS [c] WITH (NOLOCK)\r\n"
         L"ORDER BY [c].[name]\r\n");
  EXPECT_EQ(refined_,
            L"SELECT c.id, c.name, ifnull(c.credit_limit, 0) AS credit FROM customers AS c ORDER BY c.name ;");
  EXPECT_EQ(
      rows("SELECT id, name, credit FROM v_customer_credit ORDER BY id"),
      (rows_t{{"1", "Alder Bakery", "5000.00"}, {"2", "M\xc3\xbcller GmbH", "0.00"}, {"3", "Cobalt Ltd", "1200.50"}}));
}

TEST_F(ViewsOnServer, LowerCaseToolStyleTopPercentAndNolockJoin) {
  create(L"v_big_orders",
         L"create view dbo.v_big_orders as\n"
         L"select top (100) percent o.id, c.name, o.amount\n"
         L"from dbo.orders o with (nolock)\n"
         L"join dbo.customers c with (nolock) on c.id = o.customer_id\n"
         L"where o.amount >= 100\n"
         L"order by o.amount desc\n");
  EXPECT_EQ(refined_,
            L"select o.id, c.name, o.amount from orders o join customers c on c.id = o.customer_id "
            L"where o.amount >= 100 order by o.amount desc ;");
  EXPECT_EQ(rows("SELECT id, name, amount FROM v_big_orders ORDER BY id"),
            (rows_t{{"10", "Alder Bakery", "250.00"}, {"12", "Cobalt Ltd", "1500.00"}}));
}

TEST_F(ViewsOnServer, DatediffCountsDaysWithMysqlsSignWhateverTheUnit) {
  create(L"v_order_lead",
         L"CREATE VIEW dbo.v_order_lead AS\r\n"
         L"SELECT o.id,\r\n"
         L"       DATEDIFF(day, o.order_date, o.ship_date) AS lead_days,\r\n"
         L"       DATEDIFF(month, o.order_date, o.ship_date) AS lead_months\r\n"
         L"FROM dbo.orders o\r\n"
         L"WHERE o.ship_date IS NOT NULL");
  EXPECT_EQ(refined_,
            L"SELECT o.id, DATEDIFF( o.order_date, o.ship_date) AS lead_days, "
            L"DATEDIFF( o.order_date, o.ship_date) AS lead_months FROM orders o WHERE o.ship_date IS NOT NULL;");
  // SQL Server answers 5 and 0 for order 10, 30 and 2 for order 11: the
  // translation gives order date minus ship date, in days, for both units.
  EXPECT_EQ(rows("SELECT id, lead_days, lead_months FROM v_order_lead ORDER BY id"),
            (rows_t{{"10", "-5", "-5"}, {"11", "-30", "-30"}}));
}

TEST_F(ViewsOnServer, GetdateBecomesTodaysDateWithoutTheTime) {
  create(L"v_open_orders",
         L"CREATE VIEW [dbo].[v_open_orders] AS\r\n"
         L"SELECT [o].[id], [o].[amount], GETDATE() AS [as_of]\r\n"
         L"FROM [dbo].[orders] [o]\r\n"
         L"WHERE [o].[order_date] <= GETDATE() AND [o].[ship_date] IS NULL");
  EXPECT_EQ(refined_,
            L"SELECT o.id, o.amount, curdate() AS as_of FROM orders o "
            L"WHERE o.order_date <= curdate() AND o.ship_date IS NULL;");
  EXPECT_EQ(rows("SELECT id, amount FROM v_open_orders ORDER BY id"), (rows_t{{"12", "1500.00"}, {"13", "99.99"}}));
  // SQL Server's GETDATE is a date and time; the translated column is a date.
  EXPECT_EQ(root_.scalar("SELECT DATA_TYPE FROM information_schema.COLUMNS WHERE TABLE_SCHEMA = " +
                         test::sql_literal(db_) + " AND TABLE_NAME = 'v_open_orders' AND COLUMN_NAME = 'as_of'"),
            "date");
}

TEST_F(ViewsOnServer, LenAndReplicateBecomeLengthAndRepeat) {
  create(L"v_customer_labels",
         L"CREATE VIEW dbo.v_customer_labels AS\r\n"
         L"SELECT id, name, LEN(name) AS name_len, REPLICATE('*', LEN(name)) AS mask\r\n"
         L"FROM dbo.customers");
  EXPECT_EQ(refined_, L"SELECT id, name, length(name) AS name_len, repeat('*', length(name)) AS mask FROM customers;");
  // LENGTH counts bytes: 'Müller GmbH' has 11 characters (SQL Server's LEN)
  // and 12 bytes in UTF-8.
  EXPECT_EQ(rows("SELECT id, name_len, mask FROM v_customer_labels ORDER BY id"),
            (rows_t{{"1", "12", "************"}, {"2", "12", "************"}, {"3", "10", "**********"}}));
}

TEST_F(ViewsOnServer, DateaddWithTwoArgumentsBecomesDateAdd) {
  create(L"v_due", L"CREATE VIEW v_due AS SELECT o.id, DATEADD(o.order_date, INTERVAL 30 DAY) AS due FROM orders o");
  EXPECT_EQ(refined_, L"SELECT o.id, date_add(o.order_date, INTERVAL 30 DAY) AS due FROM orders o;");
  EXPECT_EQ(rows("SELECT id, due FROM v_due WHERE id IN (10, 11) ORDER BY id"),
            (rows_t{{"10", "2024-02-09 09:00:00"}, {"11", "2024-03-01 08:00:00"}}));
}

TEST_F(ViewsOnServer, RenamedTableAndColumnAreWrittenWithTheirNewNames) {
  // The target refused "/" in the table name and "+" in the column name;
  // the migration recorded the names it chose instead.
  const sql_name_rules tables(sql_name_family::new_style, sql_name_kind::table);
  const sql_name_rules fields(sql_name_family::new_style, sql_name_kind::field);
  names_.add_tn_mapping(L"Sales/Region", tables.replace_illegal(L"Sales/Region"));
  t_names_map columns;
  columns.add(L"Price+Tax", fields.replace_illegal(L"Price+Tax"));
  names_.add_fn_map(L"Sales_Region", columns);

  create(L"v_region_totals",
         L"CREATE VIEW [dbo].[v_region_totals] AS\r\n"
         L"SELECT [r].[region], SUM([r].[Price+Tax]) AS [total]\r\n"
         L"FROM [dbo].[Sales/Region] AS [r]\r\n"
         L"GROUP BY [r].[region]");
  EXPECT_EQ(refined_, L"SELECT r.region, SUM(r.`Price_Tax`) AS total FROM `Sales_Region` AS r GROUP BY r.region;");
  EXPECT_EQ(rows("SELECT region, total FROM v_region_totals ORDER BY region"),
            (rows_t{{"North", "15.50"}, {"South", "7.25"}}));
}

TEST_F(ViewsOnServer, WithoutTheRenamesTheSameViewIsRefused) {
  const auto e = refusal(L"v_region_totals",
                         L"CREATE VIEW [dbo].[v_region_totals] AS SELECT [r].[region], SUM([r].[Price+Tax]) AS "
                         L"[total] FROM [dbo].[Sales/Region] AS [r] GROUP BY [r].[region]");
  expect_refused(e, 1064, "near '/Region AS r GROUP BY r.region' at line 1");
}

TEST_F(ViewsOnServer, DefinitionReadBackFromMysqlIsFreedOfItsQualifiers) {
  create(L"v_customer_credit",
         L"CREATE VIEW v_customer_credit AS SELECT c.id, ISNULL(c.credit_limit, 0) AS credit FROM customers c");
  const std::string reported = root_.scalar(
      "SELECT VIEW_DEFINITION FROM information_schema.VIEWS WHERE TABLE_SCHEMA = " + test::sql_literal(db_) +
      " AND TABLE_NAME = 'v_customer_credit'");
  ASSERT_NE(reported.find("`" + db_ + "`."), std::string::npos) << reported;

  const std::wstring out = sql_view_converter::refine_view_out(tk_utf8_to_wide(reported), tk_utf8_to_wide(db_));
  EXPECT_EQ(tk_to_utf8(out).find(db_), std::string::npos) << tk_to_utf8(out);
  // Written again under another name, the definition gives the same rows.
  session_.run(tk_to_utf8(sql_view_converter::create_view_statement(L"`v_copy`", out)));
  EXPECT_EQ(rows("SELECT id, credit FROM v_copy ORDER BY id"),
            rows("SELECT id, credit FROM v_customer_credit ORDER BY id"));
  EXPECT_EQ(rows("SELECT id, credit FROM v_copy ORDER BY id"),
            (rows_t{{"1", "5000.00"}, {"2", "0.00"}, {"3", "1200.50"}}));
}

// --- Views the server refuses ----------------------------------------------------------

TEST_F(ViewsOnServer, TopTenStaysAndIsRefused) {
  const auto e = refusal(L"v_top_customers",
                         L"CREATE VIEW dbo.v_top_customers AS SELECT TOP 10 c.name, c.credit_limit "
                         L"FROM dbo.customers c ORDER BY c.credit_limit DESC");
  EXPECT_EQ(refined_, L"SELECT TOP 10 c.name, c.credit_limit FROM customers c ORDER BY c.credit_limit DESC;");
  expect_refused(e, 1064, "near '10 c.name, c.credit_limit FROM customers c");
}

TEST_F(ViewsOnServer, IsnullOverANestedCallStaysAndIsRefused) {
  const auto e = refusal(L"v_city_codes",
                         L"CREATE VIEW v_city_codes AS SELECT c.id, ISNULL(LEFT(c.city, 3), '') AS city3 "
                         L"FROM customers c");
  EXPECT_EQ(refined_, L"SELECT c.id, ISNULL(LEFT(c.city, 3), '') AS city3 FROM customers c;");
  expect_refused(e, 1582, "Incorrect parameter count in the call to native function 'ISNULL'");
}

TEST_F(ViewsOnServer, IsnullWithACommaLiteralStaysAndIsRefused) {
  const auto e = refusal(L"v_cities", L"CREATE VIEW v_cities AS SELECT isnull(c.city, ',') AS city FROM customers c");
  expect_refused(e, 1582, "Incorrect parameter count in the call to native function 'isnull'");
}

TEST_F(ViewsOnServer, DateaddWithAUnitStaysAndIsRefused) {
  const auto e = refusal(
      L"v_due_dates", L"CREATE VIEW v_due_dates AS SELECT o.id, DATEADD(day, 30, o.order_date) AS due FROM orders o");
  EXPECT_EQ(refined_, L"SELECT o.id, DATEADD(day, 30, o.order_date) AS due FROM orders o;");
  expect_refused(e, 1305, "FUNCTION " + db_ + ".DATEADD does not exist");
}

TEST_F(ViewsOnServer, ColumnWithTimeInItsNameIsRenamedByTheTimeRuleAndRefused) {
  const auto e =
      refusal(L"v_deliveries", L"CREATE VIEW v_deliveries AS SELECT o.id, o.delivery_time FROM dbo.orders o");
  expect_refused(e, 1054, "Unknown column 'o.delivery_curtime'");
}

TEST_F(ViewsOnServer, CastToDatetimeBecomesAnUnknownTypeAndIsRefused) {
  const auto e =
      refusal(L"v_dates", L"CREATE VIEW v_dates AS SELECT CAST(o.order_date AS datetime) AS d FROM orders o");
  expect_refused(e, 4161, "Unknown data type: 'datecurtime'");
}

TEST_F(ViewsOnServer, ConvertIsNotTranslatedAndIsRefused) {
  const auto e =
      refusal(L"v_order_days",
              L"CREATE VIEW v_order_days AS SELECT CONVERT(varchar(10), o.order_date, 120) AS d FROM orders o");
  expect_refused(e, 1064, "near 'varchar(10), o.order_date, 120) AS d FROM orders o' at line 1");
}

TEST_F(ViewsOnServer, OwnerStaysWhenViewsAreNotOwnedAndTheTableIsNotFound) {
  const auto e =
      refusal(L"v_owned", L"CREATE VIEW [dbo].[v_owned] AS SELECT [c].[id] FROM [dbo].[customers] [c]", false);
  EXPECT_EQ(refined_, L"SELECT c.id FROM dbo.customers c;");
  expect_refused(e, 1146, "Table 'dbo.customers' doesn't exist");
}

TEST_F(ViewsOnServer, BracketedNameWithABlankBecomesTwoWordsAndIsRefused) {
  const auto e =
      refusal(L"v_details", L"CREATE VIEW [dbo].[v_details] AS SELECT [od].[id] FROM [dbo].[Order Details] AS [od]");
  EXPECT_EQ(refined_, L"SELECT od.id FROM Order Details AS od;");
  expect_refused(e, 1064, "near 'Order Details AS od' at line 1");
}

}  // namespace
}  // namespace qb
