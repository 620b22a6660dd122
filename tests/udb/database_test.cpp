#include "udb/database.h"

#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tk/exception.h"
#include "tk/strings.h"
#include "udb/engine.h"
#include "udb/properties.h"
#include "udb/recordset.h"

#include "support/memory_database.h"
#include "support/temp_dir.h"

namespace qb {
namespace {

using test::memory_column;
using test::memory_database;
using test::memory_store;

// A database that supplies only what an implementation must, so that every
// other function shows the base behaviour.
class bare_database : public udb_database {
 public:
  explicit bare_database(std::vector<std::wstring> tables = {}) : udb_database(L"bare", 0) {
    tables_ = std::move(tables);
  }
  std::unique_ptr<udb_recordset> create_table(const std::wstring&, const udb_schema&, udb_indexes&) override {
    return nullptr;
  }
  std::unique_ptr<udb_recordset> get_query(const std::wstring&, const std::wstring&, std::uint32_t) override {
    return nullptr;
  }
  std::unique_ptr<udb_recordset> get_table(const std::wstring&, std::uint32_t) override { return nullptr; }
  bool test_query(const std::wstring&) override { return false; }
  void set_case_sensitive(bool value) { case_sensitive_ = value; }
};

// Records the indexes it is asked to create.
class index_recorder : public bare_database {
 public:
  void create_index(const std::wstring& table, const udb_schema&, const udb_index& index) override {
    created.push_back(table + L"." + index.name);
  }
  std::vector<std::wstring> created;
};

// A recordset that supplies only append_record.
class bare_recordset : public udb_recordset {
 public:
  using udb_recordset::udb_recordset;
  void append_record(udb_record&) override {}
  udb_schema& writable_schema() { return schema_; }
};

TEST(UdbDatabase, DeleteTabOfUnknownNameLeavesListAlone) {
  test::log_capture log;
  bare_database db({L"a", L"b"});
  EXPECT_FALSE(db.delete_tab(L"c"));
  EXPECT_TRUE(log.has_line("Table not found!"));
  EXPECT_EQ(db.get_table_names(), (std::vector<std::wstring>{L"a", L"b"}));
}

TEST(UdbDatabase, DeleteTabRemovesNameIgnoringCase) {
  bare_database db({L"Orders", L"lines"});
  EXPECT_TRUE(db.delete_tab(L"ORDERS"));
  EXPECT_EQ(db.get_table_names(), std::vector<std::wstring>{L"lines"});
}

TEST(UdbDatabase, DeleteTabComparesExactlyWhenCaseSensitive) {
  bare_database db({L"Orders"});
  db.set_case_sensitive(true);
  EXPECT_FALSE(db.delete_tab(L"orders"));
  EXPECT_TRUE(db.delete_tab(L"Orders"));
}

TEST(UdbDatabase, TableExistsOnEmptyListIsFalse) {
  test::log_capture log;
  bare_database db;
  EXPECT_FALSE(db.is_table_exist(L"t"));
  EXPECT_TRUE(log.has_line("Tables list is EMPTY!"));
  EXPECT_TRUE(log.has_line("table not found"));
}

TEST(UdbDatabase, TableExistsLogsEachCandidate) {
  test::log_capture log;
  bare_database db({L"a", L"Orders"});
  EXPECT_TRUE(db.is_table_exist(L"orders"));
  EXPECT_TRUE(log.has_line("Compare with a"));
  EXPECT_TRUE(log.has_line("Compare with Orders"));
  EXPECT_TRUE(log.has_line("table exists"));
  db.set_case_sensitive(true);
  EXPECT_FALSE(db.is_table_exist(L"orders"));
}

TEST(UdbDatabase, EmptyTableIssuesUnquotedDelete) {
  memory_store store;
  store.add_table(L"order lines", udb_schema());
  memory_database db(store, L"db", 0);
  db.empty_table(L"order lines");
  ASSERT_EQ(store.statements.size(), 1U);
  EXPECT_EQ(store.statements[0], L"delete from order lines");
}

TEST(UdbDatabase, BaseQueryIsAnInternalError) {
  bare_database db;
  EXPECT_THROW((void)db.query(L"select 1"), tk_mail_assertion);
  EXPECT_THROW(db.empty_table(L"t"), tk_mail_assertion);
}

TEST(UdbDatabase, PartitionedCreateTableIsAnInternalError) {
  test::log_capture log;
  bare_database db;
  EXPECT_THROW(db.create_table_partition(), tk_mail_assertion);
  EXPECT_TRUE(log.has_line("udb_database::create_table(partition)"));
}

TEST(UdbDatabase, CreateIndexesCallsCreateIndexForEach) {
  test::log_capture log;
  index_recorder db;
  udb_indexes indexes;
  indexes.push_back(udb_index(L"pk", true, true, {L"id"}));
  indexes.push_back(udb_index(L"ix", false, false, {L"name"}));
  db.create_indexes(L"t", udb_schema(), indexes);
  EXPECT_EQ(db.created, (std::vector<std::wstring>{L"t.pk", L"t.ix"}));
  EXPECT_TRUE(log.has_line("udb_database::create_indexes(t)"));
  EXPECT_TRUE(log.has_line("idxs.size=2"));
  EXPECT_TRUE(log.has_line("udb_database::create_indexes - at the END"));
}

TEST(UdbDatabase, BaseSlotsWithNothingToDoChangeNothing) {
  bare_database db({L"t"});
  db.create_schema(L"sales");
  db.create_index(L"t", udb_schema(), udb_index());
  db.create_sequences({});
  db.create_views({{L"v", L"select 1"}});
  db.delete_fk(L"fk");
  db.delete_idx(L"t", L"ix");
  db.create_relationships(udb_relationships());
  EXPECT_EQ(db.get_table_names(), std::vector<std::wstring>{L"t"});
  EXPECT_TRUE(db.views().empty());
  std::vector<std::wstring> schemas{L"dbo"};
  db.get_schema_info(schemas);
  EXPECT_TRUE(schemas.empty());
  EXPECT_FALSE(db.has_relationships());
  EXPECT_TRUE(db.owner().empty());
}

TEST(UdbDatabase, TableMappingIsLoggedAndStored) {
  test::log_capture log;
  bare_database db;
  db.add_tn_mapping(L"dbo.t", L"t");
  EXPECT_TRUE(log.has_line("udb_database::add_tn_mapping(dbo.t->t)"));
  EXPECT_TRUE(log.has_line("udb_names_map::add_tn_mapping(dbo.t,t)"));
  EXPECT_EQ(db.names_map().get_tn_mapped_name(L"dbo.t", true), L"t");
}

TEST(UdbSequence, ConstructorLogsItsNumbers) {
  test::log_capture log;
  const udb_sequence seq(L"s", 1, 2, -3, 400, 1);
  EXPECT_TRUE(log.has_line("udb_sequence::ctor(s,1,2,-3,400,1)"));
  EXPECT_EQ(seq.max_value, 400);
}

TEST(UdbRecordset, TableRecordsetIsNoQuery) {
  bare_recordset table(nullptr, L"orders", true);
  EXPECT_FALSE(table.is_query());
  bare_recordset query(nullptr, L"q", L"select 1", false);
  EXPECT_TRUE(query.is_query());
  EXPECT_FALSE(query.schema().b_owner());
}

TEST(UdbRecordset, DetachedConstructorLogs) {
  test::log_capture log;
  const bare_recordset rs(L"x");
  EXPECT_TRUE(log.has_line("udb_recordset::ctor(default)"));
  EXPECT_EQ(rs.database(), nullptr);
  EXPECT_EQ(rs.position(), -1);
}

TEST(UdbRecordset, BaseReadingSlotsAreEmpty) {
  test::log_capture log;
  bare_recordset rs(nullptr, L"t", true);
  EXPECT_TRUE(rs.is_eof());
  EXPECT_EQ(rs.get_item(), nullptr);
  rs.reset();
  rs.next();
  rs.prev();
  rs.move_to(5);
  EXPECT_TRUE(log.has_line("udb_recordset::move_to(5)"));
  udb_record record;
  rs.update1(record);
  rs.update2({}, record);
  EXPECT_TRUE(log.has_line("udb_recordset::update1"));
  EXPECT_TRUE(log.has_line("udb_recordset::update2"));
  rs.delete_key_text(L"1");
  rs.delete_key({});
  EXPECT_EQ(rs.rec_count(), 0U);
}

TEST(UdbRecordset, AddIndexRefusesClashingName) {
  test::log_capture log;
  bare_recordset rs(nullptr, L"t", true);
  EXPECT_TRUE(rs.add_index(udb_index(L"IX_a", false, false, {L"a"})));
  EXPECT_FALSE(rs.add_index(udb_index(L"ix_A", true, false, {L"b", L"c"})));
  EXPECT_TRUE(log.has_line("udb_recordset::add_index(ix_A, 2)"));
  EXPECT_TRUE(log.has_line("Index 'ix_A' cannot be processed"));
  ASSERT_EQ(rs.indexes().size(), 1U);
  EXPECT_FALSE(rs.indexes()[0].b_unique);
}

TEST(UdbRecordset, KeyIsTakenFromPrimaryKeyColumns) {
  test::log_capture log;
  bare_recordset rs(nullptr, L"t", true);
  rs.add_index(udb_index(L"ix", false, false, {L"name"}));
  rs.add_index(udb_index(L"pk", true, true, {L"b", L"a", L"missing"}));
  udb_record record;
  record.emplace_back(L"A", 0, ole_variant(1));
  record.emplace_back(L"B", 0, ole_variant(2));
  record.emplace_back(L"name", 0, ole_variant(std::wstring(L"n")));
  const udb_key_list key = rs.get_key(udb_schema(), record);
  ASSERT_EQ(key.size(), 2U);
  EXPECT_EQ(key[0].to_wstring(), L"2");
  EXPECT_EQ(key[1].to_wstring(), L"1");
  EXPECT_TRUE(log.has_line("udb_recordset::get_key(that.size=0)"));
  EXPECT_TRUE(log.has_line(">> Got key field: b"));
  EXPECT_TRUE(log.has_line("Key field 'missing' is not found in record"));
  EXPECT_TRUE(log.has_line("Just before exit: result.size=2"));
}

TEST(UdbRecordset, ConvertRecordImposesColumnTypesThroughFieldMap) {
  memory_store store;
  memory_database db(store, L"db", 0);
  t_names_map renames;
  renames.add(L"unit price", L"unit_price");
  db.names_map().add_fn_map(L"t", renames);
  bare_recordset rs(&db, L"t", true);
  rs.writable_schema().push_back(memory_column(L"unit_price", 5));
  rs.writable_schema().push_back(memory_column(L"qty", 8, 10));

  udb_record record;
  record.emplace_back(L"unit price", 0, ole_variant(3));
  record.emplace_back(L"qty", 0, ole_variant(7));
  record.emplace_back(L"other", 0, ole_variant(9));
  rs.convert_record(record);
  EXPECT_EQ(record[0].get_type(), 5);
  EXPECT_EQ(record[0].name, L"unit price");
  EXPECT_EQ(record[1].get_type(), 8);
  EXPECT_EQ(record[1].to_wstring(), L"7");
  EXPECT_EQ(record[2].get_type(), 3);  // no column: left as it is
}

TEST(UdbRecordset, ConvertRecordWithoutDatabaseMatchesOwnNames) {
  bare_recordset rs(nullptr, L"t", true);
  rs.writable_schema().push_back(memory_column(L"ID", 20));
  udb_record record;
  record.emplace_back(L"id", 0, ole_variant(42));
  rs.convert_record(record);
  EXPECT_EQ(record[0].get_type(), 20);
}

TEST(UdbRecordset, FilterBecomesJoinedConditions) {
  test::log_capture log;
  bare_recordset rs(nullptr, L"t", true);
  rs.writable_schema().push_back(memory_column(L"id", 3));
  rs.writable_schema().push_back(memory_column(L"name", 8, 10));
  EXPECT_EQ(rs.get_filter_subquery(L"<id>5</id> <NAME>'x'</NAME>"), L"id=5 and NAME='x'");
  EXPECT_TRUE(log.has_line("Open XML-tag at pos=0"));
  EXPECT_TRUE(log.has_line("Close XML-tag at pos=5"));
  EXPECT_EQ(rs.get_filter_subquery(L""), L"");
}

TEST(UdbRecordset, FilterOnUnknownColumnDoesNotConform) {
  test::log_capture log;
  bare_recordset rs(nullptr, L"t", true);
  rs.writable_schema().push_back(memory_column(L"id", 3));
  try {
    (void)rs.get_filter_subquery(L"<code>1</code>");
    FAIL() << "no exception";
  } catch (const tk_exception_ex& e) {
    EXPECT_STREQ(e.what(), "The structure of data source does not conform to the destination table.");
  }
  EXPECT_TRUE(log.has_line("Field code not found in the schema"));
  EXPECT_THROW((void)rs.get_filter_subquery(L"<id>1"), tk_mail_assertion);
  EXPECT_THROW((void)rs.get_filter_subquery(L"id=1"), tk_mail_assertion);
}

// --- The file-based engine base ---------------------------------------------------

class file_engine : public udb_engine {
 public:
  std::unique_ptr<udb_database> create_db(const std::wstring&) override { return nullptr; }
  std::unique_ptr<udb_database> open_db(const std::wstring&, std::uint32_t) override { return nullptr; }
};

TEST(UdbEngine, DatabaseIsAFileThatCanBeDeleted) {
  test::temp_dir dir;
  const std::string path = dir.file("dump.sql");
  test::write_file(path, "x");
  file_engine engine;
  const std::wstring name = tk_utf8_to_wide(path);
  EXPECT_TRUE(engine.is_db_exist(name));
  engine.db_delete(name);
  EXPECT_FALSE(test::file_exists(path));
  EXPECT_FALSE(engine.is_db_exist(name));
}

TEST(UdbEngine, FailedDeleteCarriesSystemError) {
  test::temp_dir dir;
  file_engine engine;
  try {
    engine.db_delete(tk_utf8_to_wide(dir.file("absent.sql")));
    FAIL() << "no exception";
  } catch (const tk_exception_ex& e) {
    EXPECT_EQ(e.code(), static_cast<std::uint32_t>(ENOENT));
    EXPECT_NE(std::string(e.what()).find("absent.sql"), std::string::npos);
  }
}

TEST(UdbEngine, StoresPropertiesPointer) {
  file_engine engine;
  EXPECT_EQ(engine.properties(), nullptr);
  class no_children : public udb_properties {
   public:
    udb_properties* find_by_source_name(const std::wstring&) override { return nullptr; }
    udb_properties* find_by_target_name(const std::wstring&) override { return nullptr; }
  } props;
  props.get_properties()[L"engine"] = L"InnoDB";
  engine.set_properties(&props);
  EXPECT_EQ(engine.properties(), &props);
  EXPECT_EQ(engine.properties()->get_properties().at(L"engine"), L"InnoDB");
}

}  // namespace
}  // namespace qb
