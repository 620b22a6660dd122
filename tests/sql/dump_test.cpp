// The dump-file destination: what it writes, statement by statement.
#include "sql/dump.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sql/engine.h"
#include "tk/exception.h"
#include "tk/format.h"
#include "tk/utf.h"
#include "udb/properties.h"

#include "support/temp_dir.h"

namespace qb {
namespace {

using vt = ole_variant;

t_ftd col(const std::wstring& name, std::uint16_t type, std::uint32_t size = 0) {
  t_ftd f;
  f.name = name;
  f.vartype = type;
  f.size = size;
  return f;
}

udb_schema two_columns() {
  udb_schema schema;
  schema.push_back(col(L"id", vt::vt_i4));
  schema.push_back(col(L"name", vt::vt_bstr, 20));
  return schema;
}

udb_record row(int id, const std::wstring& name) {
  udb_record r;
  r.emplace_back(L"id", 0, ole_variant(id));
  r.emplace_back(L"name", 20, ole_variant(name));
  return r;
}

std::size_t count(const std::string& text, const std::string& what) {
  std::size_t n = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) ++n;
  return n;
}

dump_options quiet_options() {
  dump_options o;
  o.insert_comments = false;
  o.add_lock = false;
  o.line_break = 1;
  return o;
}

class DmpDatabase : public testing::Test {
 protected:
  void SetUp() override { engine.set_fast_mode(true); }

  std::unique_ptr<dmp_database> open(const dump_options& options, const std::string& name = "out.sql") {
    path = dir.file(name);
    return engine.create_dump(tk_utf8_decode(path), options);
  }
  [[nodiscard]] std::string text() const { return test::read_file(path); }

  // create_table, the rows, and the recordset finished and gone.
  static void table(dmp_database& db, const std::wstring& name, const udb_schema& schema,
                    const std::vector<udb_record>& rows, udb_indexes indexes = {}) {
    auto rs = db.create_table(name, schema, indexes);
    for (udb_record r : rows) rs->append_record(r);
    rs->finish();
  }

  sql_engine engine;
  test::temp_dir dir;
  std::string path;
};

// --- The header ------------------------------------------------------------------------------

TEST_F(DmpDatabase, HeaderWithCommentsAndDatabaseBlock) {
  dump_options o;
  o.create_database = true;
  o.created_by = L"Quillbridge 8.1";
  auto db = open(o, "sales.sql");
  db->finish();
  const std::string t = text();
  EXPECT_EQ(t.substr(0, 14 + path.size()), "# File name: " + path + "\r");
  EXPECT_NE(t.find("\r\n# Creation date: "), std::string::npos);
  EXPECT_NE(t.find("\r\n# Created by Quillbridge 8.1\r\n# --------------------------------------------------\r\n"
                   "# More conversion tools at https://www.varnholt.com\r\n\r\nSET NAMES utf8;\r\n"),
            std::string::npos);
  EXPECT_NE(t.find("SET NAMES utf8;\r\n/*!40101 SET @OLD_SQL_MODE=@@SQL_MODE, SQL_MODE="), std::string::npos);
  // An empty database name takes the base of the file name.
  EXPECT_NE(t.find("\r\n\r\nDROP DATABASE IF EXISTS `sales`;\r\nCREATE DATABASE `sales` character set utf8;\r\n"
                   "\r\nUSE `sales`;\r\n"),
            std::string::npos);
  EXPECT_EQ(t.substr(t.size() - 41), "/*!40101 SET SQL_MODE=@OLD_SQL_MODE */;\r\n");
}

TEST_F(DmpDatabase, LineFeedWithoutCommentsStartsWithALineFeedThenSetNames) {
  auto db = open(quiet_options());
  db->finish();
  EXPECT_EQ(text().substr(0, 18), "\nSET NAMES utf8;\n/");
}

TEST_F(DmpDatabase, DatabaseBlockNeedsBothFlags) {
  dump_options o = quiet_options();
  o.create_database = true;
  o.create_table = false;
  open(o)->finish();
  EXPECT_EQ(text().find("DATABASE"), std::string::npos);
  o.create_table = true;
  o.database_name = L"crm";
  open(o)->finish();
  EXPECT_NE(text().find("USE `crm`;"), std::string::npos);
}

TEST_F(DmpDatabase, DialectSetsTheEngineVersion) {
  dump_options o = quiet_options();
  open(o)->finish();
  EXPECT_EQ(engine.version(), 0x040100U);
  o.new_version = false;
  open(o)->finish();
  EXPECT_EQ(engine.version(), 0x031401U);
  EXPECT_TRUE(engine.is_old_version());
}

// --- Tables ---------------------------------------------------------------------------------------

TEST_F(DmpDatabase, CreateTableWritesDefinitionCommentsAndLock) {
  dump_options o;
  auto db = open(o);
  udb_indexes idx;
  idx.push_back(udb_index(L"pk", false, true, {L"id"}));
  table(*db, L"t", two_columns(), {}, idx);
  db->finish();
  const std::string t = text();
  EXPECT_NE(t.find("\r\n#\r\n# Table structure for table 't'\r\n#\r\n\r\n"
                   "CREATE TABLE `t` (\r\n  `id` INT NOT NULL,\r\n  `name` VARCHAR(20) CHARACTER SET utf8,\r\n"
                   "  PRIMARY KEY (`id`)\r\n) ENGINE=InnoDB;\r\n"
                   "\r\n#\r\n# Dumping data for table 't'\r\n#\r\n\r\nLOCK TABLES `t` WRITE;\r\nUNLOCK TABLES;\r\n"),
            std::string::npos);
}

TEST_F(DmpDatabase, TableWithoutIndexesHasOnlyColumnChunks) {
  auto db = open(quiet_options());
  table(*db, L"t", two_columns(), {});
  db->finish();
  EXPECT_NE(text().find("CREATE TABLE `t` (\n  `id` INT,\n  `name` VARCHAR(20) CHARACTER SET utf8\n) ENGINE=InnoDB;\n"),
            std::string::npos);
}

TEST_F(DmpDatabase, TableMutatorChoosesEngineAndCharset) {
  class mutator : public udb_properties {
   public:
    udb_properties* find_by_source_name(const std::wstring& name) override { return name == L"t" ? &table : nullptr; }
    udb_properties* find_by_target_name(const std::wstring& name) override { return find_by_source_name(name); }
    class table_level : public udb_properties {
     public:
      udb_properties* find_by_source_name(const std::wstring&) override { return nullptr; }
      udb_properties* find_by_target_name(const std::wstring&) override { return nullptr; }
      void set(const std::wstring& k, const std::wstring& v) { properties_[k] = v; }
    } table;
  } m;
  m.table.set(L"engine", L"Aria");
  m.table.set(L"character set", L"latin1");
  engine.set_properties(&m);
  auto db = open(quiet_options());
  table(*db, L"t", two_columns(), {});
  table(*db, L"u", two_columns(), {});
  db->finish();
  engine.set_properties(nullptr);
  EXPECT_NE(text().find("\n) ENGINE=Aria character set latin1;\n"), std::string::npos);
  EXPECT_NE(text().find("\n) ENGINE=InnoDB;\n"), std::string::npos);
}

TEST_F(DmpDatabase, CreateTableOffStillNamesTheInsertColumns) {
  dump_options o = quiet_options();
  o.create_table = false;
  auto db = open(o);
  udb_schema schema;
  schema.push_back(col(L"a;b", vt::vt_i4));
  udb_record r;
  r.emplace_back(L"a;b", 0, ole_variant(1));
  table(*db, L"t", schema, {r});
  db->finish();
  EXPECT_EQ(text().find("CREATE TABLE"), std::string::npos);
  EXPECT_NE(text().find("INSERT IGNORE INTO `t`(`a_b`) VALUES(1);\n"), std::string::npos);
}

TEST_F(DmpDatabase, KnownTableNameIsAnInternalError) {
  auto db = open(quiet_options());
  udb_indexes none;
  auto rs = db->create_table(L"t", two_columns(), none);
  rs.reset();
  EXPECT_THROW(db->create_table(L"T", two_columns(), none), tk_mail_assertion);
  EXPECT_TRUE(db->is_table_exist(L"t"));
}

TEST_F(DmpDatabase, ADumpCannotBeRead) {
  auto db = open(quiet_options());
  EXPECT_THROW(db->get_table(L"t", 0), tk_mail_assertion);
  EXPECT_THROW(db->get_query(L"q", L"select 1", 0), tk_mail_assertion);
  EXPECT_THROW(db->test_query(L"select 1"), tk_mail_assertion);
  EXPECT_THROW(db->delete_fk(L"fk"), tk_mail_assertion);
}

TEST_F(DmpDatabase, OldDialectHasNoBackQuoteOutsideDeleteFkAndDeleteIdx) {
  dump_options o;
  o.new_version = false;
  o.create_database = true;
  auto db = open(o);
  udb_schema schema = two_columns();
  t_ftd id = col(L"serial", vt::vt_i4);
  id.b_auto_num = true;
  schema.push_back(id);
  udb_indexes idx;
  idx.push_back(udb_index(L"pk", false, true, {L"id"}));
  idx.push_back(udb_index(L"ux", true, false, {L"name"}));
  table(*db, L"t", schema, {row(1, L"a")}, idx);
  udb_relationships rels;
  rels.push_back(udb_rel(L"fk", L"", L"t", L"t", {L"id"}, {L"id"}, L""));
  db->create_relationships(rels);
  db->create_views({{L"v", L"select id from t"}});
  db->create_index(L"t", schema, udb_index(L"ix", false, false, {L"name"}));
  const std::string before = text();
  db->delete_fk(L"t", L"fk");
  db->delete_idx(L"t", L"ix");
  db->finish();
  const std::string t = text();
  const std::string body = t.substr(0, t.find("ALTER TABLE `t` DROP FOREIGN KEY"));
  EXPECT_EQ(body.find('`'), std::string::npos) << body;
  // The old dialect is 3.20.1, below 3.23.2: every indexed column is NOT NULL.
  EXPECT_NE(t.find("CREATE TABLE t (\r\n  id INT NOT NULL,\r\n  name VARCHAR(20) NOT NULL,\r\n  serial INT NOT NULL "
                   "AUTO_INCREMENT,\r\n  PRIMARY KEY (id),\r\n  UNIQUE ux (name),\r\n  INDEX serial (serial)\r\n"
                   ") TYPE=MyISAM;\r\n"),
            std::string::npos)
      << t;
  // The record has no "serial": the column leaves the statement.
  EXPECT_NE(t.find("INSERT IGNORE INTO t(id, name) VALUES(1, 'a');"), std::string::npos);
  EXPECT_NE(t.find("DROP DATABASE IF EXISTS out;"), std::string::npos);
  EXPECT_NE(t.find("ALTER TABLE `t` DROP FOREIGN KEY `fk`;\r\n"), std::string::npos);
  EXPECT_NE(t.find("ALTER TABLE `t` DROP INDEX `ix`;\r\n"), std::string::npos);
  // No foreign keys at all in the old dialect, not even the check switches.
  EXPECT_EQ(before.find("FOREIGN_KEY_CHECKS"), std::string::npos);
}

TEST_F(DmpDatabase, TwoTablesAreLockedOneAfterTheOther) {
  dump_options o = quiet_options();
  o.add_lock = true;
  auto db = open(o);
  table(*db, L"a", two_columns(), {row(1, L"x")});
  table(*db, L"b", two_columns(), {row(2, L"y")});
  db->finish();
  const std::string t = text();
  const std::size_t lock_a = t.find("LOCK TABLES `a` WRITE;\n");
  const std::size_t insert_a = t.find("INSERT IGNORE INTO `a`");
  const std::size_t unlock_1 = t.find("UNLOCK TABLES;\n");
  const std::size_t lock_b = t.find("LOCK TABLES `b` WRITE;\n");
  const std::size_t insert_b = t.find("INSERT IGNORE INTO `b`");
  const std::size_t unlock_2 = t.find("UNLOCK TABLES;\n", unlock_1 + 1);
  ASSERT_NE(unlock_2, std::string::npos);
  EXPECT_LT(lock_a, insert_a);
  EXPECT_LT(insert_a, unlock_1);
  EXPECT_LT(unlock_1, lock_b);
  EXPECT_LT(lock_b, insert_b);
  EXPECT_LT(insert_b, unlock_2);
  EXPECT_EQ(count(t, "UNLOCK TABLES;"), 2U);
  // The last UNLOCK comes from the end of the file, before the sql_mode.
  EXPECT_EQ(t.substr(unlock_2), "UNLOCK TABLES;\n/*!40101 SET SQL_MODE=@OLD_SQL_MODE */;\n");
  EXPECT_FALSE(engine.lock_active());
}

TEST_F(DmpDatabase, DestructorCompletesTheFileQuietly) {
  dump_options o = quiet_options();
  o.add_lock = true;
  {
    auto db = open(o);
    auto rs = db->create_table(L"a", two_columns(), *std::make_unique<udb_indexes>());
    udb_record r = row(1, L"x");
    rs->append_record(r);
  }
  const std::string t = text();
  EXPECT_NE(t.find("INSERT IGNORE INTO `a`(`id`, `name`) VALUES(1, 'x');\nUNLOCK TABLES;\n/*!40101 SET SQL_MODE"),
            std::string::npos);
}

TEST_F(DmpDatabase, CreateIndexEndsInLineFeedWhateverTheOption) {
  dump_options o;
  o.insert_comments = false;
  auto db = open(o);
  const udb_schema schema = two_columns();
  db->create_index(L"t", schema, udb_index(L"ux", true, false, {L"name", L"id"}));
  db->create_index(L"t", schema, udb_index(L"pk", false, true, {L"id"}));
  db->create_index(L"t", schema, udb_index(L"ix", false, false, {L"name"}));
  // Flushed at once: the file holds the statements before the end.
  const std::string t = text();
  EXPECT_NE(t.find("LOCK TABLES `t` WRITE;\r\nCREATE UNIQUE INDEX `ux` ON `t`(`name`, `id`);\n"), std::string::npos);
  EXPECT_NE(t.find("ALTER TABLE `t` ADD PRIMARY KEY `pk` (`id`);\nLOCK"), std::string::npos);
  EXPECT_NE(t.find("CREATE INDEX `ix` ON `t`(`name`);\n"), std::string::npos);
  EXPECT_EQ(t.find(");\r\n"), std::string::npos);
  db->finish();
}

TEST_F(DmpDatabase, DeleteStatements) {
  auto db = open(quiet_options());
  udb_indexes idx;
  idx.push_back(udb_index(L"PK_t", false, true, {L"id"}));
  table(*db, L"t", two_columns(), {}, idx);
  EXPECT_TRUE(db->delete_tab(L"t"));
  EXPECT_FALSE(db->delete_tab(L"t"));
  db->delete_idx(L"t", L"pk_T");
  db->delete_idx(L"t", L"other");
  db->delete_fk(L"t", L"fk_1");
  db->finish();
  const std::string t = text();
  EXPECT_NE(t.find("DROP TABLE IF EXISTS `t` CASCADE;\n"), std::string::npos);
  EXPECT_NE(t.find("ALTER TABLE `t` DROP PRIMARY KEY;\n"), std::string::npos);
  EXPECT_NE(t.find("ALTER TABLE `t` DROP INDEX `other`;\n"), std::string::npos);
  EXPECT_NE(t.find("ALTER TABLE `t` DROP FOREIGN KEY `fk_1`;\n"), std::string::npos);
}

// --- Statements -------------------------------------------------------------------------------------

TEST_F(DmpDatabase, FunctionStatementsAreWrappedInDelimiters) {
  dump_options o;
  o.insert_comments = false;
  o.add_lock = false;
  auto db = open(o);
  EXPECT_EQ(db->query(L"CREATE FUNCTION SQUARE(value REAL)\nRETURNS REAL\nBEGIN\n    RETURN POWER(value,2);\nEND"),
            nullptr);
  db->query(L"create function f() returns int return 1");
  db->query(L"DROP FUNCTION IF EXISTS SQUARE");
  db->query(L"CREATE FUNCTIONS x");
  db->finish();
  const std::string t = text();
  EXPECT_NE(t.find("DELIMITER $$\r\nCREATE FUNCTION SQUARE(value REAL)\nRETURNS REAL\nBEGIN\n    RETURN "
                   "POWER(value,2);\nEND;\r\n$$\r\nDELIMITER ;\r\n"),
            std::string::npos);
  EXPECT_NE(t.find("DELIMITER $$\r\ncreate function f() returns int return 1;\r\n$$\r\nDELIMITER ;\r\n"),
            std::string::npos);
  EXPECT_NE(t.find("\nDROP FUNCTION IF EXISTS SQUARE;\r\nCREATE FUNCTIONS x;\r\n"), std::string::npos);
  EXPECT_EQ(count(t, "DELIMITER $$"), 2U);
}

TEST_F(DmpDatabase, StatementsOfTheDriverCloseAnOpenLockFirst) {
  dump_options o = quiet_options();
  o.add_lock = true;
  auto db = open(o);
  table(*db, L"t", two_columns(), {row(1, L"x")});
  db->query(L"DROP FUNCTION IF EXISTS f");
  db->finish();
  EXPECT_NE(text().find("VALUES(1, 'x');\nUNLOCK TABLES;\nDROP FUNCTION IF EXISTS f;\n/*!40101"), std::string::npos);
}

TEST_F(DmpDatabase, EmptyTableStatementIsUnquoted) {
  auto db = open(quiet_options());
  db->empty_table(L"t");
  db->finish();
  EXPECT_NE(text().find("\ndelete from t;\n"), std::string::npos);
}

// --- Foreign keys and views ---------------------------------------------------------------------------

TEST_F(DmpDatabase, SelfReferencingKeyLocksTheTableOnce) {
  dump_options o = quiet_options();
  o.add_lock = true;
  auto db = open(o);
  udb_schema schema = two_columns();
  schema.push_back(col(L"boss", vt::vt_i4));
  udb_indexes idx;
  idx.push_back(udb_index(L"pk", false, true, {L"id"}));
  table(*db, L"emp", schema, {}, idx);
  udb_relationships rels;
  rels.push_back(udb_rel(L"fk_boss", L"dbo", L"emp", L"emp", {L"boss"}, {L"id"}, L" ON DELETE NO ACTION"));
  db->create_relationships(rels);
  db->finish();
  const std::string t = text();
  EXPECT_NE(t.find("UNLOCK TABLES;\n\nSET FOREIGN_KEY_CHECKS = 0;\nLOCK TABLES `emp` WRITE;\n"
                   "ALTER TABLE `emp` ADD INDEX (`boss`);\nLOCK TABLES `emp` WRITE;\n"
                   "ALTER TABLE `emp` ADD CONSTRAINT `fk_boss` FOREIGN KEY(`boss`) REFERENCES `emp`(`id`)  ON DELETE "
                   "NO ACTION;\nSET FOREIGN_KEY_CHECKS = 1;\nUNLOCK TABLES;\n"),
            std::string::npos)
      << t;
}

TEST_F(DmpDatabase, CrossTableKeyLocksBothAndUsesTargetNames) {
  auto db = open(quiet_options());
  udb_indexes parent_idx;
  parent_idx.push_back(udb_index(L"pk", false, true, {L"id"}));
  table(*db, L"parents", two_columns(), {}, parent_idx);
  udb_schema child;
  child.push_back(col(L"id", vt::vt_i4));
  child.push_back(col(L"parent;id", vt::vt_i4));
  udb_indexes child_idx;
  child_idx.push_back(udb_index(L"ix_parent", false, false, {L"parent;id"}));
  table(*db, L"kids", child, {}, child_idx);
  db->add_tn_mapping(L"dbo.kids", L"kids");
  udb_relationships rels;
  rels.push_back(udb_rel(L"fk;1", L"", L"dbo.kids", L"parents", {L"parent;id"}, {L"id"}, L""));
  rels.push_back(udb_rel(L"fk_gone", L"", L"kids", L"not_dumped", {L"id"}, {L"id"}, L""));
  db->create_relationships(rels);
  db->finish();
  const std::string t = text();
  // The child index exists: no ADD INDEX. The key's own name is repaired.
  EXPECT_EQ(t.find("ADD INDEX"), std::string::npos);
  EXPECT_NE(t.find("ALTER TABLE `kids` ADD CONSTRAINT `fk_1` FOREIGN KEY(`parent_id`) REFERENCES `parents`(`id`);\n"),
            std::string::npos);
  EXPECT_EQ(t.find("fk_gone"), std::string::npos);
}

TEST_F(DmpDatabase, ViewsThatAreNotSelectsAreSkipped) {
  dump_options o = quiet_options();
  o.add_lock = true;
  auto db = open(o);
  table(*db, L"t", two_columns(), {});
  db->create_views({{L"v1", L"SELECT id FROM t"},
                    {L"v2", L"  select id from t"},
                    {L"v3", L"/* x */ select id from t"},
                    {L"v4", L"exec p"},
                    {L"v|5", L"select  [name]\r\n from t"}});
  db->finish();
  const std::string t = text();
  EXPECT_NE(t.find("UNLOCK TABLES;\nCREATE OR REPLACE VIEW `v1` AS SELECT id FROM t;\n"
                   "CREATE OR REPLACE VIEW `v_5` AS select `name` from t;\n"),
            std::string::npos)
      << t;
  EXPECT_EQ(t.find("v2"), std::string::npos);
  EXPECT_EQ(t.find("v3"), std::string::npos);
  EXPECT_EQ(t.find("v4"), std::string::npos);
  EXPECT_EQ(db->names_map().get_tn_mapped_name(L"v|5", true), L"v_5");
}

// --- Failures of the file ------------------------------------------------------------------------------

TEST_F(DmpDatabase, FileThatCannotBeCreatedIsReportedWithItsPath) {
  const std::wstring where = tk_utf8_decode(dir.file("no/such/dir/out.sql"));
  try {
    engine.create_dump(where, quiet_options());
    FAIL() << "no exception";
  } catch (const tk_exception_ex& e) {
    EXPECT_NE(e.text().find("Cannot create the dump file '" + dir.file("no/such/dir/out.sql") + "': "),
              std::string::npos);
    EXPECT_NE(e.text().find("No such file or directory"), std::string::npos);
  }
}

TEST_F(DmpDatabase, FullDiskSurfacesWithThePath) {
  // /dev/full takes the open and refuses every write with ENOSPC.
  auto db = engine.create_dump(L"/dev/full", quiet_options());
  udb_indexes none;
  auto rs = db->create_table(L"t", two_columns(), none);
  udb_record r = row(1, std::wstring(400000, L'x'));
  // The rows stay in memory until a batch is full.
  rs->append_record(r);
  rs->append_record(r);
  try {
    rs->append_record(r);
    FAIL() << "no exception";
  } catch (const tk_exception_ex& e) {
    EXPECT_EQ(e.text(), "Cannot write the dump file '/dev/full': No space left on device");
  }
  // The failure stays: every later write reports it again, also at the end.
  EXPECT_THROW(rs->finish(), tk_exception_ex);
  rs.reset();
  EXPECT_THROW(db->finish(), tk_exception_ex);
}

TEST_F(DmpDatabase, FullDiskAtTheEndIsReportedByFinish) {
  test::log_capture log(3);
  auto db = engine.create_dump(L"/dev/full", quiet_options());
  // Everything is still buffered: only finish() reaches the disk.
  EXPECT_THROW(db->finish(), tk_exception_ex);
  db.reset();
  // A destructor left to complete alone logs the failure instead.
  { auto quiet = engine.create_dump(L"/dev/full", quiet_options()); }
  EXPECT_NE(log.text().find("was not completed: Cannot write the dump file '/dev/full': No space left on device"),
            std::string::npos);
}

}  // namespace
}  // namespace qb
