// Rules that the dump shares with the server destination, replayed by the
// stock mariadb client: the replay's sql_mode without ANSI_QUOTES, fractions
// of a second in the new dialect, values with doubled quotes, exact floats,
// and indexes over the key budget left out.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sql/dump.h"
#include "sql/engine.h"
#include "tk/utf.h"

#include "replay_support.h"
#include "support/mariadb_server.h"
#include "support/memory_database.h"
#include "support/temp_dir.h"
#include "test_session.h"

namespace qb {
namespace {

using vt = ole_variant;
using test::mariadb_server;
using test::memory_store;

t_ftd col(const std::wstring& name, std::uint16_t type, std::uint32_t size = 0, std::uint32_t dw = 0) {
  t_ftd f = test::memory_column(name, type, size);
  f.dw_reserved = dw;
  return f;
}

class DumpRules : public testing::Test {
 protected:
  DumpRules() : db_name_(test::unique_name("qb_drules")) {
    engine_.set_fast_mode(true);
    engine_.set_lock_active(false);
  }
  ~DumpRules() override {
    try {
      test::test_session root(*server_);
      root.run("DROP DATABASE IF EXISTS `" + db_name_ + "`");
    } catch (...) {  // NOLINT(bugprone-empty-catch): a clean-up failure must not hide the test's own
    }
  }

  // Dumps the tables and replays the file on server into a new database.
  std::string dump_and_replay(memory_store& store, const std::vector<std::wstring>& tables, bool new_version,
                              const mariadb_server& server) {
    server_ = &server;
    dump_options options;
    options.line_break = 1;
    options.new_version = new_version;
    const std::string file = dir_.file("rules.sql");
    {
      auto dump = engine_.create_dump(tk_utf8_decode(file), options);
      test::run_like_driver(engine_, store, tables, *dump);
    }
    test::test_session root(server);
    root.run("CREATE DATABASE `" + db_name_ + "` CHARACTER SET utf8mb4");
    const test::client_result replay = test::run_mariadb_client(server, server.account(), file, db_name_);
    EXPECT_EQ(replay.exit_code, 0) << replay.output.substr(0, 2000);
    return test::read_file(file);
  }

  std::string scalar(const std::string& statement) {
    test::test_session root(*server_);
    return root.scalar(statement);
  }
  std::vector<std::vector<std::string>> rows(const std::string& statement) {
    test::test_session root(*server_);
    return root.rows(statement);
  }

  sql_engine engine_;
  test::temp_dir dir_;
  std::string db_name_;
  const mariadb_server* server_ = &mariadb_server::main();
};

TEST_F(DumpRules, ReplayDropsAnsiQuotesOfTheServer) {
  // This server runs with sql_mode ANSI_QUOTES,NO_BACKSLASH_ESCAPES,STRICT_ALL_TABLES:
  // a date default in double quotes would be a column's name there.
  memory_store store;
  udb_schema schema;
  schema.push_back(col(L"id", vt::vt_i4));
  t_ftd when = col(L"since", vt::vt_date, 0, 2);
  when.def_value = ole_variant(L"2020-01-02");
  schema.push_back(when);
  schema.push_back(col(L"v", vt::vt_bstr, 20));
  store.add_table(L"modes", schema);
  store.add_row(L"modes", {ole_variant(1), ole_variant::make_null(), ole_variant(L"a\\b \"c\"")});
  const std::string text = dump_and_replay(store, {L"modes"}, true, mariadb_server::announcing("5.7.30-log"));
  EXPECT_NE(text.find("',ANSI_QUOTES,', ','"), std::string::npos);
  EXPECT_NE(text.find("DEFAULT \"2020-01-02\""), std::string::npos);
  EXPECT_EQ(scalar("SELECT COLUMN_DEFAULT FROM information_schema.COLUMNS WHERE TABLE_SCHEMA='" + db_name_ +
                   "' AND TABLE_NAME='modes' AND COLUMN_NAME='since'"),
            "'2020-01-02'");
  EXPECT_EQ(scalar("SELECT v FROM `" + db_name_ + "`.modes"), "a\\b \"c\"");
}

TEST_F(DumpRules, NewDialectKeepsFractionsOfASecond) {
  memory_store store;
  udb_schema schema;
  schema.push_back(col(L"id", vt::vt_i4));
  t_ftd at = col(L"at", vt::vt_date, 0, 1);
  at.scale = 3;
  schema.push_back(at);
  t_ftd clock = col(L"clock", vt::vt_date, 0, 3);
  clock.scale = 7;
  schema.push_back(clock);
  store.add_table(L"times", schema);
  store.add_row(L"times", {ole_variant(1), ole_variant::from_string("2024-02-29 12:34:56.789", vt::vt_date),
                           ole_variant::from_string("23:59:59.1234567", vt::vt_date)});
  const std::string text = dump_and_replay(store, {L"times"}, true, mariadb_server::main());
  EXPECT_NE(text.find("`at` DATETIME(3)"), std::string::npos);
  EXPECT_NE(text.find("`clock` TIME(6)"), std::string::npos);
  EXPECT_EQ(rows("SELECT at, clock FROM `" + db_name_ + "`.times"),
            (std::vector<std::vector<std::string>>{{"2024-02-29 12:34:56.789", "23:59:59.123457"}}));
}

TEST_F(DumpRules, OldDialectWritesPlainTypes) {
  memory_store store;
  udb_schema schema;
  schema.push_back(col(L"id", vt::vt_i4));
  t_ftd at = col(L"at", vt::vt_date, 0, 1);
  at.scale = 3;
  schema.push_back(at);
  store.add_table(L"times", schema);
  dump_options options;
  options.new_version = false;
  const std::string file = dir_.file("old.sql");
  {
    auto dump = engine_.create_dump(tk_utf8_decode(file), options);
    test::run_like_driver(engine_, store, {L"times"}, *dump);
  }
  const std::string text = test::read_file(file);
  EXPECT_NE(text.find("at DATETIME"), std::string::npos);
  EXPECT_EQ(text.find("DATETIME("), std::string::npos);
}

TEST_F(DumpRules, DoubledQuotesAndFloatsComeBackAsTheyWere) {
  memory_store store;
  udb_schema schema;
  schema.push_back(col(L"id", vt::vt_i4));
  schema.push_back(col(L"v", vt::vt_bstr, 20));
  schema.push_back(col(L"f", vt::vt_r4));
  store.add_table(L"vals", schema);
  store.add_row(L"vals", {ole_variant(1), ole_variant(L"it''s"), ole_variant(1.0000001F)});
  store.add_row(L"vals", {ole_variant(2), ole_variant(L"''"), ole_variant(0.1F)});
  store.add_row(L"vals", {ole_variant(3), ole_variant(L"x"), ole_variant(-2.5e-30F)});
  udb_schema big;
  big.push_back(col(L"id", vt::vt_i4));
  big.push_back(col(L"v", vt::vt_bstr, 0));
  store.add_table(L"longq", big);
  store.add_row(L"longq", {ole_variant(1), ole_variant(std::wstring(1048577, L'\''))});
  dump_and_replay(store, {L"vals", L"longq"}, true, mariadb_server::main());
  const auto back = rows("SELECT v, f + 0E0 FROM `" + db_name_ + "`.vals WHERE id < 3 ORDER BY id");
  ASSERT_EQ(back.size(), 2U);
  EXPECT_EQ(back[0][0], "it''s");
  EXPECT_EQ(static_cast<float>(std::strtod(back[0][1].c_str(), nullptr)), 1.0000001F);
  EXPECT_EQ(back[1][0], "''");
  EXPECT_EQ(static_cast<float>(std::strtod(back[1][1].c_str(), nullptr)), 0.1F);
  // A streamed value of quotes only, escaped piece by piece.
  EXPECT_EQ(scalar("SELECT CONCAT(LENGTH(v), ':', LENGTH(REPLACE(v, '''', ''))) FROM `" + db_name_ + "`.longq"),
            "1048577:0");
}

TEST_F(DumpRules, IndexOverTheKeyBudgetIsLeftOutAndTheTableReplays) {
  memory_store store;
  udb_schema schema;
  for (const wchar_t* name : {L"a", L"b", L"c"}) schema.push_back(col(name, vt::vt_bstr, 512));
  t_ftd id = col(L"id", vt::vt_i4);
  id.b_auto_num = true;
  schema.push_back(id);
  udb_indexes indexes;
  indexes.push_back(udb_index(L"wide", false, false, {L"a", L"b", L"c"}));
  indexes.push_back(udb_index(L"pair", false, false, {L"a", L"id"}));
  store.add_table(L"budget", schema, indexes);
  store.add_row(L"budget", {ole_variant(L"x"), ole_variant(L"y"), ole_variant(L"z"), ole_variant(4)});
  const std::string text = dump_and_replay(store, {L"budget"}, true, mariadb_server::main());
  EXPECT_EQ(text.find("INDEX `wide`"), std::string::npos);
  EXPECT_NE(text.find("INDEX `id` (`id`)"), std::string::npos);
  EXPECT_EQ(scalar("SELECT CONCAT(a, b, c, id) FROM `" + db_name_ + "`.budget"), "xyz4");
}

}  // namespace
}  // namespace qb
