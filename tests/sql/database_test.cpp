// sql_database on the test MariaDB: tables, statements, foreign keys, views.
#include "sql/database.h"

#include <gtest/gtest.h>

#include "sql/exception.h"
#include "sql/recordset.h"
#include "tk/error_handler.h"
#include "tk/error_tables.h"
#include "tk/headless_shell.h"
#include "udb/properties.h"

#include "server_fixture.h"

namespace qb::test {
namespace {

using vt = ole_variant;

// A mutator level for the tests: properties and children by name.
class props : public udb_properties {
 public:
  udb_properties* find_by_source_name(const std::wstring& name) override {
    const auto it = children.find(name);
    return it == children.end() ? nullptr : it->second.get();
  }
  udb_properties* find_by_target_name(const std::wstring& name) override { return find_by_source_name(name); }
  props& child(const std::wstring& name) {
    auto& slot = children[name];
    if (!slot) slot = std::make_unique<props>();
    return *slot;
  }
  void set(const std::wstring& key, const std::wstring& value) { properties_[key] = value; }
  std::map<std::wstring, std::unique_ptr<props>> children;
};

udb_schema people_schema() {
  udb_schema s;
  t_ftd id = server_col(L"id", vt::vt_i4);
  id.b_not_null = true;
  s.push_back(id);
  s.push_back(server_col(L"name", vt::vt_bstr, 50));
  return s;
}

class SqlDatabase : public ServerDb {};

// --- Tables ------------------------------------------------------------------------------------

TEST_F(SqlDatabase, CreateTableJoinsTheChunksIntoOneStatement) {
  udb_schema schema = people_schema();
  schema[0].b_auto_num = true;
  auto table = create(L"people", schema, primary_key(L"id"));
  EXPECT_TRUE(log_.has_line(
      "Run SQL-query: CREATE TABLE `people` (`id` INT NOT NULL AUTO_INCREMENT, `name` VARCHAR(50) CHARACTER SET utf8, "
      "PRIMARY KEY (`id`)) ENGINE=InnoDB\n"));
  EXPECT_TRUE(log_.has_line("Step #1"));
  EXPECT_TRUE(log_.has_line("udb_names_map::add_fn_map(people)"));
  EXPECT_TRUE(log_.has_line("Step #2"));
  EXPECT_EQ(column("SHOW TABLES"), (std::vector<std::string>{"people"}));
  ASSERT_NE(table, nullptr);
  ASSERT_EQ(table->schema().size(), 2U);
  EXPECT_TRUE(table->schema()[0].b_auto_num);
  EXPECT_EQ(table->schema()[1].size, 50U);
  ASSERT_EQ(table->indexes().size(), 1U);
  EXPECT_TRUE(table->indexes()[0].b_primary);
  EXPECT_TRUE(db().is_table_exist(L"people"));
}

TEST_F(SqlDatabase, ExistingTableIsReturnedUnchangedWithNoStatementAndNoNames) {
  run("CREATE TABLE `kept` (id INT NOT NULL PRIMARY KEY, `name` VARCHAR(7)) ENGINE=InnoDB");
  run("INSERT INTO `kept` VALUES (1, 'x')");
  reopen(8);
  udb_schema other;
  other.push_back(server_col(L"bad name!", vt::vt_bstr, 10));  // would be renamed at creation
  const std::size_t from = mark();
  udb_indexes none;
  std::unique_ptr<udb_recordset> table = db().create_table(L"kept", other, none);
  ASSERT_NE(table, nullptr);
  EXPECT_FALSE(has_line_since(from, "Step #1"));
  EXPECT_EQ(log_since(from).find("Run SQL-query"), std::string::npos);
  EXPECT_TRUE(has_line_since(from, "sql_table::initialize(8)"));
  EXPECT_EQ(db().names_map().find_fn_map(L"kept"), nullptr);
  ASSERT_EQ(table->schema().size(), 2U);
  EXPECT_EQ(table->schema()[1].size, 7U);
  EXPECT_EQ(table->rec_count(), 1U);
  EXPECT_EQ(scalar("SELECT COUNT(*) FROM kept"), "1");
}

TEST_F(SqlDatabase, RenamedColumnsGoToTheNamesMap) {
  udb_schema schema;
  schema.push_back(server_col(L"id", vt::vt_i4));
  schema.push_back(server_col(L"a b ", vt::vt_bstr, 10));  // a blank at the end is refused
  auto table = create(L"renamed", schema);
  const t_names_map* map = db().names_map().find_fn_map(L"renamed");
  ASSERT_NE(map, nullptr);
  ASSERT_NE(map->find(L"a b "), nullptr);
  EXPECT_EQ(*map->find(L"a b "), L"a b");
  EXPECT_EQ(column("SELECT column_name FROM information_schema.columns WHERE table_schema='" + name() +
                   "' AND table_name='renamed' ORDER BY ordinal_position"),
            (std::vector<std::string>{"id", "a b"}));
}

TEST_F(SqlDatabase, RefusedCreateTableIsASqlException) {
  udb_schema schema;
  t_ftd odd = server_col(L"v", vt::vt_bstr, 10);
  odd.native_type = L"NO_SUCH_TYPE(3)";
  schema.push_back(odd);
  udb_indexes none;
  try {
    static_cast<void>(db().create_table(L"refused", schema, none));
    FAIL() << "the server took an unknown type";
  } catch (const sql_exception& e) {
    EXPECT_NE(e.error_number(), 0U);
    EXPECT_EQ(e.code(), 0x400000U | e.error_number());
  }
  EXPECT_FALSE(db().is_table_exist(L"refused"));
  EXPECT_NE(log_.text().find("QUERY=CREATE TABLE `refused` (`v` NO_SUCH_TYPE(3)"), std::string::npos);
}

TEST_F(SqlDatabase, EngineClauseFollowsTheServerVersion) {
  // The statement is what counts here; the real server refuses TYPE=.
  const std::uint32_t real = engine().version();
  udb_indexes none;
  engine().set_version(0x040016);  // 4.0.22
  EXPECT_THROW(static_cast<void>(db().create_table(L"t_type", people_schema(), none)), sql_exception);
  // Before 4.1.0 columns are not quoted and have no character set.
  EXPECT_TRUE(log_.has_line("Run SQL-query: CREATE TABLE `t_type` (id INT NOT NULL, name VARCHAR(50)) TYPE=InnoDB\n"));
  engine().set_version(0x040017);  // 4.0.23
  EXPECT_NO_THROW(static_cast<void>(db().create_table(L"t_engine", people_schema(), none)));
  EXPECT_TRUE(
      log_.has_line("Run SQL-query: CREATE TABLE `t_engine` (id INT NOT NULL, name VARCHAR(50)) ENGINE=InnoDB\n"));
  engine().set_version(real);
}

TEST_F(SqlDatabase, OldServersGetMyIsamUnlessTheTableSaysOtherwise) {
  const std::uint32_t real = engine().version();
  udb_indexes none;
  engine().set_version(0x031722);  // 3.23.34
  EXPECT_THROW(static_cast<void>(db().create_table(L"t_old", people_schema(), none)), sql_exception);
  EXPECT_TRUE(log_.has_line("Run SQL-query: CREATE TABLE `t_old` (id INT NOT NULL, name VARCHAR(50)) TYPE=MyISAM\n"));
  props mutator;
  mutator.child(L"t_aria").set(L"engine", L"Aria");
  engine().set_properties(&mutator);
  EXPECT_THROW(static_cast<void>(db().create_table(L"t_aria", people_schema(), none)), sql_exception);
  EXPECT_TRUE(log_.has_line("Run SQL-query: CREATE TABLE `t_aria` (id INT NOT NULL, name VARCHAR(50)) TYPE=Aria\n"));
  engine().set_version(real);
  engine().set_properties(nullptr);
  engine().set_storage_engine(L"InnoDB");
}

TEST_F(SqlDatabase, TableMutatorSetsCharacterSetAndEngine) {
  props mutator;
  mutator.child(L"latin").set(L"character set", L"latin1");
  mutator.child(L"latin").set(L"engine", L"MyISAM");
  engine().set_properties(&mutator);
  engine().set_storage_engine(L"InnoDB");
  auto table = create(L"latin", people_schema());
  engine().set_properties(nullptr);
  engine().set_storage_engine(L"InnoDB");
  EXPECT_EQ(scalar("SELECT engine FROM information_schema.tables WHERE table_schema='" + name() +
                   "' AND table_name='latin'"),
            "MyISAM");
  EXPECT_NE(log_.text().find(") character set latin1 ENGINE=MyISAM"), std::string::npos);
}

TEST_F(SqlDatabase, DeleteTabDropsTheTable) {
  auto table = create(L"gone", people_schema());
  table.reset();
  EXPECT_TRUE(db().delete_tab(L"gone"));
  EXPECT_TRUE(column("SHOW TABLES").empty());
  EXPECT_FALSE(db().is_table_exist(L"gone"));
  EXPECT_TRUE(log_.has_line("sql_database::delete_tab (gone)"));
  EXPECT_THROW(db().delete_tab(L"gone"), tk_mail_assertion);
}

TEST_F(SqlDatabase, ReadOnlyDatabaseCreatesAndDropsNothing) {
  run("CREATE TABLE ro (id INT)");
  reopen(1);
  udb_indexes none;
  EXPECT_THROW(static_cast<void>(db().create_table(L"new_one", people_schema(), none)), tk_mail_assertion);
  EXPECT_THROW(db().delete_tab(L"ro"), tk_mail_assertion);
  EXPECT_EQ(column("SHOW TABLES"), (std::vector<std::string>{"ro"}));
}

TEST_F(SqlDatabase, EmptyTableDeletesEveryRow) {
  run("CREATE TABLE `e t` (id INT)");
  run("INSERT INTO `e t` VALUES (1), (2)");
  reopen(2);
  db().empty_table(L"e t");
  EXPECT_EQ(scalar("SELECT COUNT(*) FROM `e t`"), "0");
  EXPECT_TRUE(log_.has_line("sql_database::query(delete from `e t`)"));
}

TEST_F(SqlDatabase, TableThatDoesNotExistIsAnInternalError) {
  EXPECT_THROW(static_cast<void>(db().get_table(L"nowhere", 0)), tk_mail_assertion);
  EXPECT_TRUE(log_.has_line("Table 'nowhere' does not exists"));
}

TEST_F(SqlDatabase, TableListIsReadAtOpenWithoutViews) {
  run("CREATE TABLE a1 (id INT)");
  run("CREATE TABLE `b 2` (id INT)");
  run("CREATE VIEW v1 AS SELECT id FROM a1");
  reopen(2);
  std::vector<std::wstring> tables = db().get_table_names();
  std::sort(tables.begin(), tables.end());
  EXPECT_EQ(tables, (std::vector<std::wstring>{L"a1", L"b 2"}));
  EXPECT_TRUE(log_.has_line("Extracting tables in new way"));
  EXPECT_TRUE(log_.has_line("sql_list_tables_rs::ctor"));
  EXPECT_TRUE(log_.has_line("Got table name: 'a1'"));
  ASSERT_EQ(db().views().size(), 1U);
  EXPECT_EQ(db().views()[0].first, L"v1");
  // The database's qualifier and the comment are taken off.
  EXPECT_EQ(db().views()[0].second.find(tk_utf8_decode("`" + name() + "`.")), std::wstring::npos);
  EXPECT_NE(db().views()[0].second.find(L"select"), std::wstring::npos);
}

TEST_F(SqlDatabase, ModeBit80ReadsNoViews) {
  run("CREATE TABLE a1 (id INT)");
  run("CREATE VIEW v1 AS SELECT id FROM a1");
  const std::size_t from = mark();
  reopen(0x80);
  EXPECT_TRUE(db().views().empty());
  EXPECT_TRUE(has_line_since(from, "sql_database::sql_database(" + name() + ", mode=128)"));
  EXPECT_FALSE(has_line_since(from, "sql_database::init_views"));
}

// --- Statements ------------------------------------------------------------------------------

TEST_F(SqlDatabase, QueryGivesRowsOrNothingAndThrowsOnFailure) {
  std::unique_ptr<udb_recordset> rs = db().query(L"SELECT 1 AS one, 'x' AS two UNION SELECT 2, 'y'");
  ASSERT_NE(rs, nullptr);
  std::vector<std::wstring> seen;
  for (; !rs->is_eof(); rs->next()) seen.push_back((*rs->get_item())[0].to_wstring() + (*rs->get_item())[1].to_wstring());
  EXPECT_EQ(seen, (std::vector<std::wstring>{L"1x", L"2y"}));
  EXPECT_EQ(rs->schema()[0].name, L"one");
  rs.reset();
  EXPECT_EQ(db().query(L"CREATE TABLE q (id INT)"), nullptr);
  try {
    static_cast<void>(db().query(L"SELEC 1"));
    FAIL();
  } catch (const sql_exception& e) {
    EXPECT_EQ(e.code(), 0x400428U);
  }
  EXPECT_TRUE(log_.has_line("QUERY=SELEC 1"));
}

TEST_F(SqlDatabase, BooleanQueryNeverThrows) {
  EXPECT_TRUE(db().query(L"SELECT 1", sql_no_rows));
  EXPECT_FALSE(db().query(L"SELEC 1", sql_no_rows));
  EXPECT_TRUE(db().query(L"SELECT 2", sql_no_rows));  // the connection is usable after a failure
  EXPECT_TRUE(db().test_query(L"SELECT 3"));
  EXPECT_FALSE(db().test_query(L"SELECT * FROM nowhere_at_all"));
}

TEST_F(SqlDatabase, QueryAppendTellsRowsAndWarnings) {
  run("CREATE TABLE qa (id INT PRIMARY KEY, v VARCHAR(3))");
  const sql_statement_outcome ok = db().query_append("INSERT INTO qa VALUES (1, 'a'), (2, 'b')");
  EXPECT_EQ(ok.affected_rows, 2U);
  EXPECT_EQ(ok.warnings, 0U);
  const sql_statement_outcome ignored = db().query_append("INSERT IGNORE INTO qa VALUES (1, 'c'), (3, 'd')");
  EXPECT_EQ(ignored.affected_rows, 1U);
  EXPECT_EQ(ignored.warnings, 1U);
  EXPECT_THROW(static_cast<void>(db().query_append("INSERT INTO qa VALUES (1, 'e')")), sql_exception);
  EXPECT_TRUE(log_.has_line("QUERY=INSERT INTO qa VALUES (1, 'e')"));
  EXPECT_TRUE(log_.has_line("sql_database::query_append( q_len=30)"));
}

TEST_F(SqlDatabase, PreparedStatementSendsEachLongValueToItsOwnPlaceholder) {
  run("CREATE TABLE ps (id INT, a LONGTEXT, b LONGBLOB) CHARACTER SET utf8mb4");
  udb_record row;
  const std::wstring text = std::wstring(1048577, L'\u00e9') + L"\U0001F600";
  std::vector<std::uint8_t> bytes(1500000);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
  row.emplace_back(L"id", 4, ole_variant(5));
  row.emplace_back(L"a", 0, ole_variant(text));
  row.emplace_back(L"b", 0, ole_variant(bytes));
  const sql_statement_outcome outcome = db().prepared_statement("INSERT INTO ps VALUES (5, ?, ?)", 2, row);
  EXPECT_EQ(outcome.affected_rows, 1U);
  EXPECT_TRUE(log_.has_line("Field #0 is not supposed to be bound"));
  EXPECT_TRUE(log_.has_line("Binding field #1"));
  EXPECT_TRUE(log_.has_line("Binding field #2"));
  EXPECT_EQ(scalar("SELECT CHAR_LENGTH(a) FROM ps"), "1048578");
  EXPECT_EQ(tk_utf8_decode(scalar("SELECT RIGHT(a, 2) FROM ps")), L"\u00e9\U0001F600");
  EXPECT_EQ(scalar("SELECT LENGTH(b) FROM ps"), "1500000");
  // The bytes around the pieces' borders and at the end are in their place.
  const auto hex_of = [&](std::size_t from, std::size_t count) {
    static const char* digits = "0123456789ABCDEF";
    std::string hex;
    for (std::size_t i = from; i < from + count; ++i) {
      hex += digits[bytes[i] >> 4];
      hex += digits[bytes[i] & 15];
    }
    return hex;
  };
  for (std::size_t border : {131072U, 262144U, 1441792U}) {
    EXPECT_EQ(scalar("SELECT HEX(SUBSTRING(b, " + std::to_string(border - 3) + ", 6)) FROM ps"),
              hex_of(border - 4, 6));
  }
  EXPECT_EQ(scalar("SELECT HEX(RIGHT(b, 5)) FROM ps"), hex_of(bytes.size() - 5, 5));
}

TEST_F(SqlDatabase, PreparedStatementFailureIsItsOwnException) {
  udb_record row;
  try {
    static_cast<void>(db().prepared_statement("INSERT INTO nowhere VALUES (?)", 0, row));
    FAIL();
  } catch (const sql_prep_stmt_failed_exception& e) {
    EXPECT_EQ(e.code(), 0x400BB9U);
    EXPECT_EQ(std::string(e.what()), "Failed to execute prepared statement");
    EXPECT_EQ(e.error_number(), 1146U);
  }
  EXPECT_NE(log_.text().find("mysql_stmt_prepare failed: error=Table"), std::string::npos);
}

// --- Foreign keys ------------------------------------------------------------------------------

class SqlDatabaseKeys : public ServerDb {
 protected:
  void SetUp() override {
    udb_schema parent;
    t_ftd id = server_col(L"id", vt::vt_i4);
    id.b_not_null = true;
    parent.push_back(id);
    create(L"parent", parent, primary_key(L"id")).reset();
    udb_schema child;
    child.push_back(id);
    child.push_back(server_col(L"parent id", vt::vt_i4));
    create(L"child", child, primary_key(L"id")).reset();
  }
};

TEST_F(SqlDatabaseKeys, KeyGetsItsIndexesAndConstraint) {
  udb_relationships rels;
  rels.push_back(udb_rel(L"fk_child", L"", L"child", L"parent", {L"parent id"}, {L"id"}, L"ON DELETE CASCADE"));
  db().create_relationships(rels);
  EXPECT_TRUE(lines_in_log({"Converting foreign keys", "Processing 'fk_child'", "fk_table_name=child",
                            "pk_table_name=parent", "sql_database::create_fk_index_if(child)",
                            "Index for table 'child' does NOT exist", "sql_database::create_fk_index_if(parent)",
                            "Index for table 'parent' exists",
                            "Foreign key query: 'ALTER TABLE `child` ADD CONSTRAINT `fk_child` FOREIGN KEY(`parent "
                            "id`) REFERENCES `parent`(`id`) ON DELETE CASCADE'"}));
  EXPECT_EQ(scalar("SELECT COUNT(*) FROM information_schema.referential_constraints WHERE constraint_schema='" +
                   name() + "' AND constraint_name='fk_child' AND delete_rule='CASCADE'"),
            "1");
  // Checks are back on for the rest of the session.
  EXPECT_EQ(engine_scalar(engine(), "SELECT @@SESSION.foreign_key_checks"), "1");
}

TEST_F(SqlDatabaseKeys, KeyOfATableNotSelectedLeavesNothing) {
  udb_relationships rels;
  rels.push_back(udb_rel(L"fk_other", L"", L"child", L"not_selected", {L"parent id"}, {L"id"}, L""));
  const std::size_t from = mark();
  db().create_relationships(rels);
  EXPECT_TRUE(has_line_since(from, "Processing 'fk_other'"));
  EXPECT_EQ(log_since(from).find("ALTER TABLE"), std::string::npos);
  EXPECT_FALSE(has_line_since(from, "sql_database::create_fk_index_if(child)"));
  EXPECT_EQ(scalar("SELECT COUNT(*) FROM information_schema.referential_constraints WHERE constraint_schema='" +
                   name() + "'"),
            "0");
}

TEST_F(SqlDatabaseKeys, BareAppendModeWritesNoKey) {
  reopen(8);
  udb_relationships rels;
  rels.push_back(udb_rel(L"fk_child", L"", L"child", L"parent", {L"parent id"}, {L"id"}, L""));
  const std::size_t from = mark();
  db().create_relationships(rels);
  EXPECT_TRUE(has_line_since(from, "Foreign keys are not converted in append mode"));
  EXPECT_EQ(log_since(from).find("ALTER TABLE"), std::string::npos);
  EXPECT_EQ(scalar("SELECT COUNT(*) FROM information_schema.referential_constraints WHERE constraint_schema='" +
                   name() + "'"),
            "0");
}

TEST_F(SqlDatabaseKeys, NamesGoThroughTheTableMap) {
  db().add_tn_mapping(L"[dbo].[Child]", L"child");
  db().add_tn_mapping(L"[dbo].[Parent]", L"parent");
  udb_relationships rels;
  rels.push_back(udb_rel(L"fk mapped", L"", L"[dbo].[Child]", L"[dbo].[Parent]", {L"parent id"}, {L"id"}, L""));
  db().create_relationships(rels);
  EXPECT_EQ(scalar("SELECT referenced_table_name FROM information_schema.referential_constraints WHERE "
                   "constraint_schema='" +
                   name() + "' AND table_name='child'"),
            "parent");
}

TEST_F(SqlDatabaseKeys, RefusedKeyGoesToTheHandlerAndTheNextKeyFollows) {
  handler_and_shell_for_tests ui;
  udb_relationships rels;
  rels.push_back(udb_rel(L"fk_bad", L"", L"child", L"parent", {L"no such column"}, {L"id"}, L""));
  rels.push_back(udb_rel(L"fk_good", L"", L"child", L"parent", {L"parent id"}, {L"id"}, L""));
  db().create_relationships(rels);
  EXPECT_EQ(scalar("SELECT GROUP_CONCAT(constraint_name) FROM information_schema.referential_constraints WHERE "
                   "constraint_schema='" +
                   name() + "'"),
            "fk_good");
  EXPECT_NE(log_.text().find("Foreign key 'fk_bad': "), std::string::npos);
}

// --- Views -------------------------------------------------------------------------------------

class SqlDatabaseViews : public ServerDb {
 protected:
  void SetUp() override {
    run("CREATE TABLE customers (id INT NOT NULL PRIMARY KEY, name VARCHAR(20))");
    run("INSERT INTO customers VALUES (1, 'Alder'), (2, 'Birch')");
    reopen(2);
  }
};

TEST_F(SqlDatabaseViews, FailedViewDoesNotStopTheViewsAfterIt) {
  handler_and_shell_for_tests ui;
  const udb_view_list views = {
      {L"v_bad", L"select nosuchcolumn from customers"},
      {L"v_exec", L"exec sp_who"},
      {L"v_good", L"select id, ISNULL(name, 'none') as name from customers"},
  };
  db().create_views(views);
  EXPECT_EQ(column("SELECT table_name FROM information_schema.views WHERE table_schema='" + name() + "'"),
            (std::vector<std::string>{"v_good"}));
  EXPECT_EQ(column("SELECT name FROM v_good ORDER BY id"), (std::vector<std::string>{"Alder", "Birch"}));
  const udb_view_counts counts = db().view_counts();
  EXPECT_TRUE(counts.known);
  EXPECT_EQ(counts.created, 1U);
  EXPECT_EQ(counts.failed, 1U);
  EXPECT_EQ(counts.skipped, 1U);
  EXPECT_TRUE(log_.has_line("Skip non-select query"));
  EXPECT_TRUE(log_.has_line("View 'v_good' was created"));
  EXPECT_NE(log_.text().find("View 'v_bad' was refused by MySQL: Unknown column 'nosuchcolumn'"), std::string::npos);
  // The handler saw the refusal with the view's name as context.
  EXPECT_NE(log_.text().find("Error:\nView 'v_bad': Unknown column 'nosuchcolumn'"), std::string::npos);
}

TEST_F(SqlDatabaseViews, ViewTextBeginningWithExecIsSkipped) {
  db().create_views({{L"v_exec", L"EXEC dbo.report"}});
  EXPECT_TRUE(log_.has_line("Skip non-select query"));
  EXPECT_EQ(db().view_counts().skipped, 1U);
  EXPECT_EQ(db().view_counts().created, 0U);
  EXPECT_EQ(scalar("SELECT COUNT(*) FROM information_schema.views WHERE table_schema='" + name() + "'"), "0");
}

TEST_F(SqlDatabaseViews, RenamedTablesAndRefusedViewNamesAreMapped) {
  db().add_tn_mapping(L"Customers", L"customers");
  db().create_views({{L"v  padded ", L"select id from Customers"}});
  EXPECT_TRUE(log_.has_line("Store generated view name 'v  padded'"));
  EXPECT_EQ(column("SELECT id FROM `v  padded` ORDER BY id"), (std::vector<std::string>{"1", "2"}));
}

TEST_F(SqlDatabaseViews, AbortInTheDialogEndsTheViews) {
  headless_policy abort;
  abort.continue_answer = wizard_shell::answer_abort;
  handler_and_shell_for_tests ui(abort);
  EXPECT_THROW(db().create_views({{L"v_bad", L"select nosuchcolumn from customers"},
                                  {L"v_good", L"select id from customers"}}),
               tk_final_exception);
  EXPECT_EQ(scalar("SELECT COUNT(*) FROM information_schema.views WHERE table_schema='" + name() + "'"), "0");
}

}  // namespace
}  // namespace qb::test
