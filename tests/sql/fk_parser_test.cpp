// Foreign keys read from the text of SHOW CREATE TABLE.
#include "sql/fk_parser.h"

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace qb {
namespace {

const std::wstring k_orders =
    L"CREATE TABLE `orders` (\n"
    L"  `id` int(11) NOT NULL,\n"
    L"  `customer_id` int(11) NOT NULL,\n"
    L"  `region` varchar(10) NOT NULL,\n"
    L"  `amount` decimal(10,2) DEFAULT NULL CHECK (`amount` >= 0),\n"
    L"  PRIMARY KEY (`id`),\n"
    L"  KEY `customer_id` (`customer_id`),\n"
    L"  CONSTRAINT `fk_customer` FOREIGN KEY (`customer_id`) REFERENCES `customers` (`id`) ON DELETE CASCADE,\n"
    L"  CONSTRAINT `fk_region` FOREIGN KEY (`region`, `id`) REFERENCES `regions` (`code`, `n`),\n"
    L"  CONSTRAINT `CONSTRAINT_1` CHECK (`amount` >= 0)\n"
    L") ENGINE=InnoDB DEFAULT CHARSET=utf8mb3";

TEST(SqlFkParser, ReadsNameColumnsParentAndRule) {
  test::log_capture log;
  sql_fk_parser parser(L"orders", k_orders);
  parser.do_parse();
  const udb_relationships& keys = parser.relationships();
  ASSERT_EQ(keys.size(), 2U);
  EXPECT_EQ(keys[0].name, L"fk_customer");
  EXPECT_EQ(keys[0].fk_table, L"orders");
  EXPECT_EQ(keys[0].pk_table, L"customers");
  EXPECT_EQ(keys[0].fk_fields, (std::vector<std::wstring>{L"customer_id"}));
  EXPECT_EQ(keys[0].pk_fields, (std::vector<std::wstring>{L"id"}));
  EXPECT_EQ(keys[0].properties, L"ON DELETE CASCADE");
  EXPECT_EQ(keys[1].name, L"fk_region");
  EXPECT_EQ(keys[1].fk_fields, (std::vector<std::wstring>{L"region", L"id"}));
  EXPECT_EQ(keys[1].pk_fields, (std::vector<std::wstring>{L"code", L"n"}));
  EXPECT_TRUE(keys[1].properties.empty());
  EXPECT_TRUE(log.has_line("sql_fk_parser::ctor(orders)"));
  EXPECT_TRUE(log.has_line("Got 11 chunks"));
  EXPECT_TRUE(log.has_line("Got FK name: fk_customer"));
  EXPECT_TRUE(log.has_line("Got FK columns: (`customer_id`)"));
  EXPECT_TRUE(log.has_line("Got PK table: customers"));
  EXPECT_TRUE(log.has_line("Got PK columns: (`id`)"));
  EXPECT_TRUE(log.has_line("Got FK rule: ON DELETE CASCADE"));
  EXPECT_TRUE(log.has_line("GOT FK COLUMN: region"));
}

TEST(SqlFkParser, CheckLinesHoldNoForeignKey) {
  // A column's CHECK holds no "CONSTRAINT "; a named CHECK holds no
  // " FOREIGN KEY": neither disturbs the keys around them.
  test::log_capture log;
  sql_fk_parser parser(L"orders", k_orders);
  parser.do_parse();
  EXPECT_EQ(parser.relationships().size(), 2U);
  EXPECT_TRUE(log.has_line("CONSTRAINT is not found"));
  EXPECT_TRUE(log.has_line("FOREIGN KEY is not found"));
}

TEST(SqlFkParser, ChunkWithoutReferencesIsSkipped) {
  test::log_capture log;
  sql_fk_parser parser(L"t", L"  CONSTRAINT `broken` FOREIGN KEY (`a`)\n  CONSTRAINT `ok` FOREIGN KEY (`b`) "
                             L"REFERENCES `p` (`x`) ON DELETE SET NULL ON UPDATE CASCADE");
  parser.do_parse();
  ASSERT_EQ(parser.relationships().size(), 1U);
  EXPECT_EQ(parser.relationships()[0].name, L"ok");
  EXPECT_EQ(parser.relationships()[0].properties, L"ON DELETE SET NULL ON UPDATE CASCADE");
  EXPECT_TRUE(log.has_line("REFERENCES is not found"));
}

TEST(SqlFkParser, ColumnListsStripQuotesAndKeepDoubledOnes) {
  EXPECT_EQ(sql_fk_parser::get_columns(L"(`a`, `b c`,`d``e`)"), (std::vector<std::wstring>{L"a", L"b c", L"d`e"}));
  EXPECT_EQ(sql_fk_parser::get_columns(L"(a, b)"), (std::vector<std::wstring>{L"a", L"b"}));
  EXPECT_TRUE(sql_fk_parser::get_columns(L"()").empty());
}

}  // namespace
}  // namespace qb
