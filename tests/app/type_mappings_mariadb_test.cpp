// A profile's section "Type Mappings" applied by whole runs of the converter
// from the SQL Server stand-in (the shop fixture, tests/fixtures/mss/
// business.json) into the test MariaDB, straight into the server and
// through a dump file that the stock mariadb client replays.
//
// The selection and the changes come from the profile, as a run from the
// command line takes them. The changes: categories becomes product_groups, its key column
// category_id becomes group_id and its name column label (latin1);
// products becomes articles (table character set latin1), its category_id
// becomes group_ref, description is dropped, name becomes TEXT (utf8mb4)
// and product_id BIGINT. The foreign keys of the source name the old
// tables and columns; at the destination they must name the new ones and
// hold.
#include <gtest/gtest.h>

#include <memory>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "app/convertor.h"
#include "mss/engine.h"
#include "tk/strings.h"
#include "udb/profile.h"

#include "app_fixtures.h"
#include "mariadb_runs.h"
#include "support/mss_standin.h"
#include "support/temp_dir.h"

namespace qb::test {
namespace {

const char* const k_profile_tail =
    "[MS SQL Server settings]\n"
    "schema=dbo\n"
    "[Selected Tables]\n"
    "dbo.categories\n"
    "dbo.products\n"
    "dbo.customers\n"
    "[Type Mappings]\n"
    "database:\n"
    "tables:\n"
    "  - name: [dbo].[categories]\n"
    "    new_name: product_groups\n"
    "    fields:\n"
    "      - name:category_id\n"
    "        new_name: group_id\n"
    "        status: changed\n"
    "        type: INT\n"
    "        default_value: \n"
    "        character_set: \n"
    "        length: 0\n"
    "        scale: 0\n"
    "        precision: 0\n"
    "      - name:name\n"
    "        new_name: label\n"
    "        status: changed\n"
    "        type: VARCHAR\n"
    "        default_value: \n"
    "        character_set: latin1\n"
    "        length: 60\n"
    "        scale: 0\n"
    "        precision: 0\n"
    "  - name: [dbo].[products]\n"
    "    new_name: articles\n"
    "    fields:\n"
    "      - name:category_id\n"
    "        new_name: group_ref\n"
    "        status: changed\n"
    "        type: INT\n"
    "        default_value: \n"
    "        character_set: \n"
    "        length: 0\n"
    "        scale: 0\n"
    "        precision: 0\n"
    "      - name:description\n"
    "        new_name: description\n"
    "        status: deleted\n"
    "        type: TEXT\n"
    "        default_value: \n"
    "        character_set: \n"
    "        length: 0\n"
    "        scale: 0\n"
    "        precision: 0\n"
    "      - name:name\n"
    "        new_name: name\n"
    "        status: changed\n"
    "        type: TEXT\n"
    "        default_value: \n"
    "        character_set: utf8mb4\n"
    "        length: 0\n"
    "        scale: 0\n"
    "        precision: 0\n"
    "      - name:product_id\n"
    "        new_name: product_id\n"
    "        status: changed\n"
    "        type: BIGINT\n"
    "        default_value: \n"
    "        character_set: \n"
    "        length: 0\n"
    "        scale: 0\n"
    "        precision: 0\n"
    "    properties:\n"
    "        character set: latin1\n";

std::optional<std::string> text_of(const ole_variant& v) {
  if (v.is_empty()) return std::nullopt;
  return tk_to_utf8(v.to_wstring());
}

bool by_first_number(const text_row& a, const text_row& b) { return std::stoll(*a[0]) < std::stoll(*b[0]); }

class TypeMappingsToMariaDb : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    standin_ = std::make_unique<mss_standin>(shop_standin_options());
  }
  static void TearDownTestSuite() {
    standin_.reset();
  }

  TypeMappingsToMariaDb() : server_(mariadb_server::main()), session_(server_), databases_(server_, "qb_typemap") {}

  // Loads the profile (the run's settings and the tail above) into the
  // converter, connects it to the stand-in and, for a direct run, to the
  // server; then runs it.
  void run(const std::string& dest, bool direct) {
    const std::string generic = "[Generic settings]\nsrc=qbshop\ndest=" + dest + "\nmode=0\n[MySQL settings]\n" +
                                "direct mode=" + (direct ? "1" : "0") + "\ndump create database=0\n";
    write_file(dir_.file("p.qbr"), generic + k_profile_tail);
    converter_.mssql_engine().connect(tk_utf8_to_wide(standin_->host() + "," + std::to_string(standin_->port())),
                                      L"sa", L"Secret#1", true);
    converter_.mssql_engine().set_as_dbo(converter_.as_dbo != 0);
    udb_profile profile;
    ASSERT_TRUE(profile.load(dir_.file("p.qbr")));
    ASSERT_TRUE(converter_.load_profile(profile));
    // The work list holds the tables in the bracketed form, the form of the
    // names of the type mappings.
    ASSERT_EQ(converter_.queries, (udb_named_texts{{L"[dbo].[categories]", L""},
                                                   {L"[dbo].[products]", L""},
                                                   {L"[dbo].[customers]", L""}}));
    if (direct) {
      converter_.mysql_converter_impl::host = server_.host();
      converter_.port = std::to_string(server_.port());
      converter_.mysql_converter_impl::user = server_.account().user;
      converter_.mysql_converter_impl::password = server_.account().password;
      converter_.connect_mysql_server();
    }
    converter_.check_dest();
    converter_();
    EXPECT_EQ(converter_.finished.load(), 1);
    EXPECT_TRUE(ui_.shell.errors().empty()) << ui_.shell.errors().front();
    ASSERT_EQ(converter_.table_reports.size(), 3U);
    for (const udb_table_report& r : converter_.table_reports) {
      EXPECT_FALSE(r.failed) << tk_to_utf8(r.name) << ": " << r.error;
      EXPECT_EQ(r.read, r.written) << tk_to_utf8(r.name);
    }
    EXPECT_EQ(converter_.table_reports[0].target, L"product_groups");
    EXPECT_EQ(converter_.table_reports[1].target, L"articles");
    EXPECT_EQ(converter_.table_reports[2].target, L"customers");
  }

  std::vector<std::vector<ole_variant>> read_source(const std::wstring& table) {
    std::unique_ptr<udb_database> db = converter_.mssql_engine().open_db(L"qbshop", 1, L"");
    std::unique_ptr<udb_recordset> rs = db->get_table(table, 1);
    std::vector<std::vector<ole_variant>> rows;
    for (rs->reset(); !rs->is_eof(); rs->next()) {
      std::vector<ole_variant> row;
      for (const udb_field& f : *rs->get_item()) row.push_back(f);
      rows.push_back(std::move(row));
    }
    return rows;
  }

  // The changed tables in the database db, their rows, and the foreign keys
  // that hold across the new names.
  void expect_changed_tables(const std::string& db) {
    session_.run("USE " + sql_quoted_name(db));
    // The renamed products table has the character set of its changes; the
    // others that of the database.
    EXPECT_EQ(session_.rows("SELECT TABLE_NAME, TABLE_COLLATION = @@collation_database FROM "
                            "information_schema.TABLES WHERE TABLE_SCHEMA = DATABASE() ORDER BY TABLE_NAME"),
              (text_rows{{"articles", "0"}, {"customers", "1"}, {"product_groups", "1"}}));
    EXPECT_EQ(session_.rows("SELECT TABLE_COLLATION FROM information_schema.TABLES WHERE TABLE_SCHEMA = DATABASE() "
                            "AND TABLE_NAME = 'articles'"),
              (text_rows{{"latin1_swedish_ci"}}));
    const std::string columns =
        "SELECT COLUMN_NAME, DATA_TYPE, CHARACTER_SET_NAME FROM information_schema.COLUMNS WHERE TABLE_SCHEMA = "
        "DATABASE() AND TABLE_NAME = ";
    EXPECT_EQ(session_.rows(columns + "'articles' ORDER BY ORDINAL_POSITION"),
              (text_rows{{"product_id", "bigint", std::nullopt},
                         {"sku", "varchar", "utf8mb3"},
                         {"name", "text", "utf8mb4"},
                         {"group_ref", "int", std::nullopt},
                         {"list_price", "decimal", std::nullopt},
                         {"weight_kg", "decimal", std::nullopt},
                         {"discontinued", "bit", std::nullopt},
                         // a default of the current moment makes a TIMESTAMP
                         {"created_at", "timestamp", std::nullopt}}));
    EXPECT_EQ(session_.rows(columns + "'product_groups' ORDER BY ORDINAL_POSITION"),
              (text_rows{{"group_id", "int", std::nullopt},
                         {"parent_id", "int", std::nullopt},
                         {"label", "varchar", "latin1"},
                         {"sort_order", "smallint", std::nullopt}}));
    // The index over the renamed column keeps it under its new name.
    EXPECT_EQ(session_.rows("SELECT INDEX_NAME, GROUP_CONCAT(COLUMN_NAME ORDER BY SEQ_IN_INDEX) FROM "
                            "information_schema.STATISTICS WHERE TABLE_SCHEMA = DATABASE() AND TABLE_NAME IN "
                            "('articles', 'product_groups') GROUP BY TABLE_NAME, INDEX_NAME ORDER BY 1, 2"),
              (text_rows{{"IX_products_category", "group_ref"},
                         {"parent_id", "parent_id"},  // made for the self-referencing key
                         {"PRIMARY", "group_id"},
                         {"PRIMARY", "product_id"},
                         {"UQ_categories_name", "label"},
                         {"UX_products_sku", "sku"}}));

    // The rows, converted: the source's values under the new names.
    text_rows expected_articles;
    for (const auto& p : read_source(L"dbo.products")) {
      expected_articles.push_back({text_of(p[0]), text_of(p[1]), text_of(p[2]), text_of(p[3])});
    }
    std::sort(expected_articles.begin(), expected_articles.end(), by_first_number);
    ASSERT_EQ(expected_articles.size(), 60U);
    EXPECT_EQ(session_.rows("SELECT product_id, sku, name, group_ref FROM articles ORDER BY product_id"),
              expected_articles);
    text_rows expected_groups;
    for (const auto& c : read_source(L"dbo.categories")) {
      expected_groups.push_back({text_of(c[0]), text_of(c[1]), text_of(c[2]), text_of(c[3])});
    }
    std::sort(expected_groups.begin(), expected_groups.end(), by_first_number);
    EXPECT_EQ(session_.rows("SELECT group_id, parent_id, label, sort_order FROM product_groups ORDER BY group_id"),
              expected_groups);

    // The foreign keys name the new tables and columns.
    EXPECT_EQ(session_.rows("SELECT CONSTRAINT_NAME, TABLE_NAME, COLUMN_NAME, REFERENCED_TABLE_NAME, "
                            "REFERENCED_COLUMN_NAME FROM information_schema.KEY_COLUMN_USAGE WHERE TABLE_SCHEMA = "
                            "DATABASE() AND REFERENCED_TABLE_NAME IS NOT NULL ORDER BY CONSTRAINT_NAME"),
              (text_rows{{"FK_categories_parent", "product_groups", "parent_id", "product_groups", "group_id"},
                         {"FK_customers_referrer", "customers", "referred_by", "customers", "customer_id"},
                         {"FK_products_category", "articles", "group_ref", "product_groups", "group_id"}}));
    // And they hold: a row that points nowhere is refused, a referenced row
    // cannot go, a row that points to an existing group is taken.
    session_.run("SET FOREIGN_KEY_CHECKS = 1");
    EXPECT_EQ(session_.error_of("INSERT INTO articles (product_id, sku, name, group_ref, list_price, discontinued, "
                                "created_at) VALUES (61, 'SKU-X', 'x', 999, 1, 0, '2024-01-01')"),
              1452U);
    EXPECT_EQ(session_.error_of("INSERT INTO product_groups (group_id, parent_id, label, sort_order) VALUES "
                                "(13, 999, 'orphan', 0)"),
              1452U);
    EXPECT_EQ(session_.error_of("DELETE FROM product_groups WHERE group_id = 1"), 1451U);
    EXPECT_EQ(session_.error_of("INSERT INTO articles (product_id, sku, name, group_ref, list_price, discontinued, "
                                "created_at) VALUES (61, 'SKU-X', 'x', 5, 1, 0, '2024-01-01')"),
              0U);
    // The key of the articles keeps its ON DELETE SET NULL.
    EXPECT_EQ(session_.rows("SELECT COUNT(*) FROM articles WHERE group_ref = 12"), (text_rows{{"6"}}));
    session_.run("DELETE FROM product_groups WHERE group_id = 12");
    EXPECT_EQ(session_.rows("SELECT COUNT(*) FROM articles WHERE group_ref = 12"), (text_rows{{"0"}}));
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
std::unique_ptr<mss_standin> TypeMappingsToMariaDb::standin_;

TEST_F(TypeMappingsToMariaDb, ChangedTablesStraightIntoTheServerKeepTheirRowsAndForeignKeys) {
  const std::string db = databases_.next();
  run(db, true);
  // The destination found the changes of the renamed tables under their
  // source names.
  EXPECT_TRUE(capture_.has_line("Changes of table 'articles' are looked up under its source name '[dbo].[products]'"));
  EXPECT_TRUE(capture_.has_line(
      "Foreign key 'FK_products_category': column 'category_id' of '[dbo].[products]' is now 'group_ref'"));
  expect_changed_tables(db);
}

TEST_F(TypeMappingsToMariaDb, ChangedTablesThroughADumpFileKeepTheirRowsAndForeignKeys) {
  const std::string file = dir_.file("qbshop.sql");
  run(file, false);
  const std::string dump = read_file(file);
  EXPECT_NE(dump.find("CREATE TABLE `articles`"), std::string::npos);
  EXPECT_EQ(dump.find("description"), std::string::npos);
  const std::string db = databases_.next();
  session_.run("CREATE DATABASE " + sql_quoted_name(db) + " CHARACTER SET utf8mb4");
  const replay_outcome r = replay_dump(server_, db, file, false);
  ASSERT_EQ(r.exit_code, 0) << r.output;
  EXPECT_EQ(replay_problems(r.output), std::vector<std::string>()) << r.output;
  expect_changed_tables(db);
}

}  // namespace
}  // namespace qb::test
