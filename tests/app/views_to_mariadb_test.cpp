// The views of the shop fixture (tests/fixtures/mss/business.json) carried by
// whole runs of the converter from the SQL Server stand-in into the test
// MariaDB: once straight into the server, once through a dump file that the
// stock mariadb client replays. Each view must answer with the rows the
// fixture's tables give for it, computed here from the source rows as the
// SQL Server reader delivers them.
//
// Where the conversion of a view changes what it answers on purpose, the
// expectation says so and why:
//   v_open_orders     GETDATE() becomes curdate() and DATEDIFF loses its
//                     unit: MySQL's DATEDIFF(a, b) counts the days a - b,
//                     so the view gives order_date - today, the negative of
//                     T-SQL's DATEDIFF(day, order_date, GETDATE()).
//   v_product_labels  "+" between strings goes through as it is, and MySQL
//                     adds the two texts as numbers: every label is 0.
//   v_best_customers  its definition begins with a comment that holds the
//                     word "Select", where the cleaning cuts the head: the
//                     text is no SELECT that MySQL takes, and the view is
//                     refused (the run goes on with the next view).
#include <gtest/gtest.h>

#include <memory>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "app/convertor.h"
#include "mss/engine.h"
#include "tk/strings.h"

#include "app_fixtures.h"
#include "mariadb_runs.h"
#include "support/mss_standin.h"
#include "support/temp_dir.h"

namespace qb::test {
namespace {

// --- The fixture's rows, read through the SQL Server reader --------------------------------

using source_rows = std::vector<std::vector<ole_variant>>;

// A value as text; nullopt for NULL.
std::optional<std::string> text_of(const ole_variant& v) {
  if (v.is_empty()) return std::nullopt;
  if (v.get_type() == ole_variant::vt_date) {
    const ole_systemtime& t = v.get_date()->src;
    char buf[32];
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d", t.wYear, t.wMonth, t.wDay);
    return std::string(buf);
  }
  return tk_to_utf8(v.to_wstring());
}

std::string int_text(const ole_variant& v) { return *text_of(v); }

// A decimal text as a whole number of ten-thousandths ("47.36" -> 473600).
std::int64_t ten_thousandths(const std::string& text) {
  std::int64_t whole = 0;
  std::int64_t fraction = 0;
  int digits = 0;
  bool negative = false;
  bool after_point = false;
  for (char c : text) {
    if (c == '-') {
      negative = true;
    } else if (c == '.') {
      after_point = true;
    } else if (c >= '0' && c <= '9') {
      if (!after_point) {
        whole = whole * 10 + (c - '0');
      } else if (digits < 4) {
        fraction = fraction * 10 + (c - '0');
        ++digits;
      }
    }
  }
  for (; digits < 4; ++digits) fraction *= 10;
  const std::int64_t value = whole * 10000 + fraction;
  return negative ? -value : value;
}

// A decimal text without trailing zeros of its fraction, as both sides are
// compared ("12.340" and "12.34" alike).
std::string decimal_text(std::string s) {
  if (s.find('.') != std::string::npos) {
    while (!s.empty() && s.back() == '0') s.pop_back();
    if (!s.empty() && s.back() == '.') s.pop_back();
  }
  return s.empty() ? "0" : s;
}

std::string ten_thousandths_text(std::int64_t v) {
  char buf[40];
  std::snprintf(buf, sizeof buf, "%s%lld.%04lld", v < 0 ? "-" : "", static_cast<long long>((v < 0 ? -v : v) / 10000),
                static_cast<long long>((v < 0 ? -v : v) % 10000));
  return decimal_text(buf);
}

// Days since 1970-01-01 of a "yyyy-mm-dd..." text.
int day_number(const std::string& date) {
  const int y = std::stoi(date.substr(0, 4));
  const unsigned m = static_cast<unsigned>(std::stoi(date.substr(5, 2)));
  const unsigned d = static_cast<unsigned>(std::stoi(date.substr(8, 2)));
  const std::chrono::sys_days days{std::chrono::year{y} / std::chrono::month{m} / std::chrono::day{d}};
  return static_cast<int>(days.time_since_epoch().count());
}

class ViewsToMariaDb : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    standin_ = std::make_unique<mss_standin>(shop_standin_options());
  }
  static void TearDownTestSuite() {
    standin_.reset();
  }

  ViewsToMariaDb() : server_(mariadb_server::main()), session_(server_), databases_(server_, "qb_views") {
    converter_.mssql_engine().connect(tk_utf8_to_wide(standin_->host() + "," + std::to_string(standin_->port())),
                                      L"sa", L"Secret#1", true);
    converter_.mssql_engine().set_as_dbo(converter_.as_dbo != 0);
    converter_.src = L"qbshop";
    // The dbo views name their tables without the owner once "dbo." is
    // taken out of them; the tables are converted without theirs too.
    converter_.mss_schema = L"dbo";
    converter_.mode = udb_mode_overwrite_database;
    converter_.selected_tables = {L"dbo.categories", L"dbo.products", L"dbo.customers", L"sales.orders",
                                  L"sales.order_lines"};
    converter_.queries.clear();
    converter_.selected_views.clear();
    for (const wchar_t* view : {L"v_customer_orders", L"v_open_orders", L"v_product_labels", L"v_category_tree",
                                L"v_best_customers", L"v_order_totals"}) {
      converter_.selected_views.emplace_back(view, L"");
    }
    converter_.convert_views = 1;
  }

  // The rows of a source table, each cell as the reader gives it.
  source_rows read_source(const std::wstring& table) {
    std::unique_ptr<udb_database> db = converter_.mssql_engine().open_db(L"qbshop", 1, L"");
    std::unique_ptr<udb_recordset> rs = db->get_table(table, 1);
    source_rows rows;
    for (rs->reset(); !rs->is_eof(); rs->next()) {
      std::vector<ole_variant> row;
      for (const udb_field& f : *rs->get_item()) row.push_back(f);
      rows.push_back(std::move(row));
    }
    return rows;
  }

  void expect_no_failed_table() {
    ASSERT_EQ(converter_.table_reports.size(), 5U);
    for (const udb_table_report& r : converter_.table_reports) {
      EXPECT_FALSE(r.failed) << tk_to_utf8(r.name) << ": " << r.error;
      EXPECT_EQ(r.read, r.written) << tk_to_utf8(r.name);
    }
  }

  text_rows view_rows(const std::string& db, const std::string& view, const std::string& columns) {
    return session_.rows("SELECT " + columns + " FROM " + sql_quoted_name(db) + "." + sql_quoted_name(view) +
                         " ORDER BY 1, 2");
  }

  // Every view of the fixture, in the database db, against the rows the
  // fixture's tables give for it.
  void expect_views_answer(const std::string& db) {
    const source_rows customers = read_source(L"dbo.customers");
    const source_rows orders = read_source(L"sales.orders");
    const source_rows products = read_source(L"dbo.products");
    const source_rows categories = read_source(L"dbo.categories");
    const source_rows lines = read_source(L"sales.order_lines");
    ASSERT_EQ(customers.size(), 200U);
    ASSERT_EQ(orders.size(), 300U);

    // Which views the database holds: all but v_best_customers.
    EXPECT_EQ(session_.rows("SELECT TABLE_NAME FROM information_schema.VIEWS WHERE TABLE_SCHEMA = " +
                            sql_text_literal(db) + " ORDER BY TABLE_NAME"),
              (text_rows{{"v_category_tree"},
                         {"v_customer_orders"},
                         {"v_open_orders"},
                         {"v_order_totals"},
                         {"v_product_labels"}}));

    {
      SCOPED_TRACE("v_customer_orders: every customer, ISNULL(city) as ifnull, the number of orders");
      std::map<std::string, int> per_customer;
      for (const auto& o : orders) ++per_customer[int_text(o[2])];
      text_rows expected;
      for (const auto& c : customers) {
        const std::string id = int_text(c[0]);
        expected.push_back({id, text_of(c[3]), text_of(c[4]).value_or("unknown"), std::to_string(per_customer[id])});
      }
      std::sort(expected.begin(), expected.end(), [](const text_row& a, const text_row& b) {
        return std::stoi(*a[0]) < std::stoi(*b[0]);
      });
      // Some customers have no city: the ifnull is seen at work.
      EXPECT_NE(std::count_if(expected.begin(), expected.end(), [](const text_row& r) { return *r[2] == "unknown"; }),
                0);
      EXPECT_EQ(view_rows(db, "v_customer_orders", "customer_id, last_name, city, orders"), expected);
    }
    {
      SCOPED_TRACE("v_open_orders: the orders not shipped; age_days is order_date - today (see the head)");
      const text_rows got = view_rows(db, "v_open_orders", "order_id, customer_id, age_days, CURDATE()");
      ASSERT_FALSE(got.empty());
      const int today = day_number(*got[0][3]);
      text_rows expected;
      for (const auto& o : orders) {
        if (!o[4].is_empty()) continue;
        const int tsql_datediff = today - day_number(*text_of(o[3]));
        expected.push_back({int_text(o[0]), int_text(o[2]), std::to_string(-tsql_datediff), *got[0][3]});
      }
      std::sort(expected.begin(), expected.end(), [](const text_row& a, const text_row& b) {
        return std::stoi(*a[0]) < std::stoi(*b[0]);
      });
      EXPECT_EQ(got, expected);
    }
    {
      SCOPED_TRACE("v_product_labels: REPLICATE as repeat, LEN as length, + adds numbers (label 0)");
      text_rows got = view_rows(db, "v_product_labels", "product_id, sku, label, weight_kg");
      for (text_row& r : got) r[3] = decimal_text(*r[3]);
      text_rows expected;
      for (const auto& p : products) {
        expected.push_back({int_text(p[0]), text_of(p[1]), "0", decimal_text(text_of(p[5]).value_or("0"))});
      }
      std::sort(expected.begin(), expected.end(), [](const text_row& a, const text_row& b) {
        return std::stoi(*a[0]) < std::stoi(*b[0]);
      });
      EXPECT_EQ(got, expected);
    }
    {
      SCOPED_TRACE("v_category_tree: each category beside its parent");
      text_rows expected;
      for (const auto& parent : categories) {
        for (const auto& child : categories) {
          if (!child[1].is_empty() && int_text(child[1]) == int_text(parent[0])) {
            expected.push_back({int_text(parent[0]), text_of(parent[2]), int_text(child[0]), text_of(child[2])});
          }
        }
      }
      std::sort(expected.begin(), expected.end(), [](const text_row& a, const text_row& b) {
        return std::make_pair(std::stoi(*a[0]), std::stoi(*a[2])) < std::make_pair(std::stoi(*b[0]), std::stoi(*b[2]));
      });
      EXPECT_EQ(expected.size(), 9U);
      EXPECT_EQ(session_.rows("SELECT parent_id, parent, category_id, name FROM " + sql_quoted_name(db) +
                              ".v_category_tree ORDER BY parent_id, category_id"),
                expected);
    }
    {
      SCOPED_TRACE("v_order_totals: the sum of quantity * unit_price per order");
      std::map<int, std::int64_t> totals;
      for (const auto& l : lines) {
        totals[std::stoi(int_text(l[0]))] += std::stoll(int_text(l[3])) * ten_thousandths(*text_of(l[4]));
      }
      text_rows expected;
      for (const auto& [order, amount] : totals) expected.push_back({std::to_string(order), ten_thousandths_text(amount)});
      text_rows got = view_rows(db, "v_order_totals", "order_id, amount");
      for (text_row& r : got) r[1] = decimal_text(*r[1]);
      std::sort(got.begin(), got.end(), [](const text_row& a, const text_row& b) {
        return std::stoi(*a[0]) < std::stoi(*b[0]);
      });
      EXPECT_EQ(got, expected);
    }
  }

  static std::unique_ptr<mss_standin> standin_;  // NOLINT: shared by the suite
  user_folders folders_;
  log_capture capture_;
  handler_and_shell ui_;
  const mariadb_server& server_;
  mariadb_session session_;
  scratch_databases databases_;
  temp_dir dir_;
  quillbridge_convertor converter_;
};
std::unique_ptr<mss_standin> ViewsToMariaDb::standin_;

TEST_F(ViewsToMariaDb, StraightIntoTheServerEveryViewButOneAnswersAsTheFixtureSays) {
  converter_.mysql_converter_impl::host = server_.host();
  converter_.port = std::to_string(server_.port());
  converter_.mysql_converter_impl::user = server_.account().user;
  converter_.mysql_converter_impl::password = server_.account().password;
  converter_.connect_mysql_server();
  converter_.direct = 1;
  const std::string db = databases_.next();
  converter_.dest = tk_utf8_to_wide(db);
  converter_.check_dest();

  converter_();

  EXPECT_EQ(converter_.finished.load(), 1);
  expect_no_failed_table();
  EXPECT_TRUE(capture_.has_line("Views: 5 converted, 1 failed")) << capture_.text();
  EXPECT_TRUE(capture_.has_line("View 'v_order_totals' was created"));
  EXPECT_TRUE(converter_.view_report.counted);
  EXPECT_EQ(converter_.view_report.created, 5U);
  EXPECT_EQ(converter_.view_report.failed, 1U);
  // The refusal reached the user, with the view as its context.
  const auto& errors = ui_.shell.errors();
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_EQ(errors[0].rfind("View 'v_best_customers'", 0), 0U) << errors[0];
  expect_views_answer(db);
}

TEST_F(ViewsToMariaDb, ThroughADumpFileEveryViewButOneAnswersAsTheFixtureSays) {
  converter_.direct = 0;
  const std::string file = dir_.file("qbshop.sql");
  converter_.dest = tk_utf8_to_wide(file);
  converter_.mysql_converter_impl::dump_options.create_database = 0;
  converter_.check_dest();

  converter_();

  EXPECT_EQ(converter_.finished.load(), 1);
  expect_no_failed_table();
  // The file cannot tell what a server will make of its views.
  EXPECT_TRUE(capture_.has_line("Views: 6 handed to the destination, which does not report the outcome"))
      << capture_.text();
  EXPECT_TRUE(ui_.shell.errors().empty());

  const std::string db = databases_.next();
  session_.run("CREATE DATABASE " + sql_quoted_name(db) + " CHARACTER SET utf8mb4");
  const replay_outcome r = replay_dump(server_, db, file, true);
  // The one statement the server refuses is the view that lost its head:
  // the client shows it between two rules, then the error.
  const std::vector<std::string> problems = replay_problems(r.output);
  ASSERT_EQ(problems.size(), 4U) << r.output;
  EXPECT_EQ(problems[1].rfind("CREATE OR REPLACE VIEW `v_best_customers` AS Select the customers with", 0), 0U)
      << problems[1];
  EXPECT_EQ(problems[3].rfind("ERROR 1064 (42000) at line ", 0), 0U) << problems[3];
  expect_views_answer(db);
}

}  // namespace
}  // namespace qb::test
