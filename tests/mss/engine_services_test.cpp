// mss_engine's services beside connecting, against the stand-in: the list of
// databases and its SQL Server 2000 fall-back, whether a database exists and
// may be opened, opening one, and the safe form of table names.
#include <gtest/gtest.h>

#include <memory>

#include <string>
#include <vector>

#include "mss/engine.h"
#include "mss/exception.h"
#include "mss/table_names.h"
#include "source_test_util.h"

namespace qb {
namespace {

using test::log_capture;
using test::mss_standin;
using test::mss_standin_options;
using test::server_of;

class MssEngineServices : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { server_ = std::make_unique<mss_standin>(test::all_fixtures()); }
  static void TearDownTestSuite() {
    server_.reset();
  }
  void connect(const std::wstring& user = L"sa", const std::wstring& password = L"Secret#1") {
    test::connect_engine(engine_, *server_, user, password);
  }

  static std::unique_ptr<mss_standin> server_;  // NOLINT: shared by the suite
  test::view_owned_restorer view_owned_;
  mss_engine engine_;
};
std::unique_ptr<mss_standin> MssEngineServices::server_;

TEST_F(MssEngineServices, ListsTheDatabasesOfTheServer) {
  connect();
  EXPECT_EQ(engine_.get_contents(), (std::vector<std::wstring>{L"master", L"qbhostile", L"qbother", L"qbshop",
                                                                L"qbtypes", L"tempdb"}));
}

TEST_F(MssEngineServices, FindsADatabaseNamedInAnotherCase) {
  connect();
  log_capture log(2);
  EXPECT_TRUE(engine_.is_db_exist(L"QBShop"));
  EXPECT_TRUE(test::lines_in_order(log.text(), {"mss_engine::is_db_exist(QBShop)", "Step #1: check via get_contents()",
                                                "Database QBShop has been found",
                                                "Step #2: check via test_connection(...)",
                                                "mss_engine::is_db_exist -- end"}))
      << log.text();
}

TEST_F(MssEngineServices, ADatabaseThatIsNotThereIsSimplyFalse) {
  connect();
  log_capture log(2);
  EXPECT_FALSE(engine_.is_db_exist(L"nosuchdb"));
  EXPECT_TRUE(log.has_line("Database nosuchdb has NOT been found"));
  EXPECT_FALSE(log.has_line("Step #2: check via test_connection(...)"));
}

TEST_F(MssEngineServices, ADatabaseTheLoginMayNotOpenIsReportedByName) {
  // The login "sales" may open qbshop and master only.
  connect(L"sales", L"Sales#1");
  EXPECT_TRUE(engine_.is_db_exist(L"qbshop"));
  try {
    (void)engine_.is_db_exist(L"qbtypes");
    FAIL() << "no exception";
  } catch (const mss_no_perm_exception& e) {
    EXPECT_STREQ(e.what(), "User 'sales' does not have permission to access database 'qbtypes'");
    EXPECT_EQ(e.code(), 0);
  }
}

TEST_F(MssEngineServices, ServicesBeforeConnectingAreMisuse) {
  EXPECT_THROW((void)engine_.is_db_exist(L"qbshop"), tk_mail_assertion);
  EXPECT_THROW((void)engine_.open_db(L"qbshop", 1, L""), tk_mail_assertion);
  EXPECT_THROW((void)engine_.get_contents(), tk_mail_assertion);
}

TEST_F(MssEngineServices, OpenDbGivesTheDatabaseOnAConnectionOfItsOwn) {
  connect();
  log_capture log(2);
  std::unique_ptr<udb_database> db = engine_.open_db(L"qbshop", 161, L"sales");
  ASSERT_NE(db, nullptr);
  EXPECT_EQ(db->name(), L"qbshop");
  EXPECT_EQ(db->owner(), L"sales");
  EXPECT_EQ(db->mode(), 161U);
  EXPECT_TRUE(test::lines_in_order(log.text(), {"mss_engine::open_db(qbshop)", "Opening MS SQL database 'qbshop'",
                                                "Connection to the database was establish successfully",
                                                "mss_database::ctor2(qbshop,sales)"}))
      << log.text();
  EXPECT_EQ(dynamic_cast<mss_database&>(*db).session().info_text(SQL_DATABASE_NAME), L"qbshop");
}

TEST_F(MssEngineServices, OpenDbOfAnUnknownDatabaseThrowsTheServersRefusal) {
  connect();
  try {
    (void)engine_.open_db(L"nosuchdb", 1, L"");
    FAIL() << "no exception";
  } catch (const odb_exception& e) {
    EXPECT_TRUE(e.has_native_error(4060)) << e.what();
  }
}

TEST_F(MssEngineServices, SafeNameOfABareNameForSaIsInDbo) {
  connect();
  log_capture log(2);
  EXPECT_EQ(engine_.get_safe_tname(L"orders"), L"[dbo].[orders]");
  EXPECT_TRUE(log.has_line("mss_engine::get_safe_tname(orders)"));
  EXPECT_TRUE(log.has_line("result=[dbo].[orders]"));
  engine_.set_as_dbo(true);
  EXPECT_EQ(engine_.get_safe_tname(L"orders"), L"[dbo].[orders]");
}

TEST_F(MssEngineServices, SafeNameOfABareNameForANamedUserIsInTheUsersSchemaUnlessAsDbo) {
  connect(L"sales", L"Sales#1");
  EXPECT_FALSE(engine_.as_dbo());
  EXPECT_EQ(engine_.get_safe_tname(L"orders"), L"[sales].[orders]");
  log_capture log(2);
  engine_.set_as_dbo(true);
  EXPECT_TRUE(log.has_line("mss_engine::set_as_dbo(1)"));
  EXPECT_EQ(engine_.get_safe_tname(L"orders"), L"[dbo].[orders]");
}

TEST_F(MssEngineServices, SafeNameKeepsAFullName) {
  connect(L"sales", L"Sales#1");
  log_capture log(2);
  EXPECT_EQ(engine_.get_safe_tname(L"dbo.customers"), L"[dbo].[customers]");
  EXPECT_TRUE(log.has_line("This is a full canonized table name"));
  EXPECT_EQ(engine_.get_safe_tname(L"[sales].[order_lines]"), L"[sales].[order_lines]");
  EXPECT_EQ(engine_.get_safe_tname(L"[odd schema].[t]"), L"[odd schema].[t]");
}

TEST_F(MssEngineServices, AnOwnerWithADotInBracketsKeepsTheDot) {
  std::wstring table;
  std::wstring owner;
  ASSERT_TRUE(mss_split_tab_name(L"[my.owner].[t.x]", table, owner));
  EXPECT_EQ(owner, L"my.owner");
  EXPECT_EQ(table, L"t.x");
  EXPECT_EQ(engine_.get_safe_tname(L"[my.owner].[t.x]"), L"[my.owner].[t.x]");
}

TEST_F(MssEngineServices, OneBracketedNameIsATableWithoutOwner) {
  std::wstring table;
  std::wstring owner = L"x";
  ASSERT_TRUE(mss_split_tab_name(L"[a.b]", table, owner));
  EXPECT_EQ(table, L"a.b");
  EXPECT_EQ(owner, L"");
  EXPECT_EQ(engine_.get_safe_tname(L"[a.b]"), L"[dbo].[a.b]");
}

TEST_F(MssEngineServices, TwoDotsWithoutBracketsSplitAtTheFirst) {
  std::wstring table;
  std::wstring owner;
  ASSERT_TRUE(mss_split_tab_name(L"dbo.a.b", table, owner));
  EXPECT_EQ(owner, L"dbo");
  EXPECT_EQ(table, L"a.b");
  EXPECT_EQ(engine_.get_safe_tname(L"dbo.a.b"), L"[dbo].[a.b]");
}

TEST_F(MssEngineServices, ANameOfTwoCharactersPassesThroughAsATable) {
  std::wstring table;
  std::wstring owner = L"x";
  ASSERT_TRUE(mss_split_tab_name(L"[]", table, owner));
  EXPECT_EQ(table, L"[]");
  EXPECT_EQ(owner, L"");
  ASSERT_TRUE(mss_split_tab_name(L"a.", table, owner));
  EXPECT_EQ(table, L"a.");
  EXPECT_EQ(owner, L"");
  // Brackets stay as they are: the name already has both.
  EXPECT_EQ(engine_.get_safe_tname(L"[]"), L"[dbo].[]");
}

TEST_F(MssEngineServices, BracketsAreAddedOnlyWhereMissing) {
  EXPECT_EQ(mss_bracket_name(L"t"), L"[t]");
  EXPECT_EQ(mss_bracket_name(L"[t]"), L"[t]");
  EXPECT_EQ(mss_bracket_name(L"a]b"), L"[a]b]");  // inner ']' are not doubled
  EXPECT_EQ(mss_bracket_name(L"[t"), L"[[t]");
}

TEST_F(MssEngineServices, ViewOwnedIsOnAtStartAndCanBeCleared) {
  EXPECT_TRUE(engine_.is_view_owned());
  engine_.set_view_owned(false);
  EXPECT_FALSE(engine_.is_view_owned());
}

// --- Releases ----------------------------------------------------------------------

TEST(MssEngineReleases, SqlServer2000FallsBackToItsOwnCatalog) {
  const mss_standin server(test::source_options({"business.json"}, "qbshop", "2000"));
  log_capture log(2);
  mss_engine engine;
  test::connect_engine(engine, server);
  EXPECT_EQ(engine.version(), 3);
  EXPECT_TRUE(test::lines_in_order(log.text(),
                                   {"odb_command::execute(SELECT name from master.sys.sysdatabases ORDER BY name)",
                                    "Try the second approach for MS SQL <= v2000...",
                                    "odb_command::execute(SELECT name from master.dbo.sysdatabases ORDER BY name)",
                                    "Got database: master", "Got database: qbshop"}))
      << log.text();
  EXPECT_EQ(engine.get_contents(), (std::vector<std::wstring>{L"master", L"qbshop", L"tempdb"}));
}

TEST(MssEngineReleases, SqlServer7FallsBackAsWell) {
  const mss_standin server(test::source_options({"business.json"}, "qbshop", "7.0"));
  log_capture log(2);
  mss_engine engine;
  test::connect_engine(engine, server);
  EXPECT_EQ(engine.version(), 2);
  EXPECT_TRUE(test::lines_in_order(log.text(),
                                   {"odb_command::execute(SELECT name from master.sys.sysdatabases ORDER BY name)",
                                    "Try the second approach for MS SQL <= v2000...",
                                    "odb_command::execute(SELECT name from master.dbo.sysdatabases ORDER BY name)"}))
      << log.text();
  EXPECT_EQ(engine.get_contents(), (std::vector<std::wstring>{L"master", L"qbshop", L"tempdb"}));
}

TEST(MssEngineReleases, OnALaterReleaseAFailureOfTheListIsReported) {
  // The words say 2005, the server has no sys schema: the first statement
  // fails, and a server of 2005 or later gets no second try.
  mss_standin_options o = test::source_options({"business.json"}, "qbshop");
  o.version_text = "Microsoft SQL Server 2005 - 8.00.2039 (Intel X86) \n\tMay  3 2005 23:18:38 \n";
  const mss_standin server(o);
  log_capture log(2);
  mss_engine engine;
  try {
    test::connect_engine(engine, server);
    FAIL() << "no exception";
  } catch (const odb_exception& e) {
    EXPECT_TRUE(e.has_native_error(208)) << e.what();
    EXPECT_STREQ(e.what(), "Invalid object name 'master.sys.databases'.");
  }
  EXPECT_FALSE(log.has_line("Try the second approach for MS SQL <= v2000..."));
}

TEST(MssEngineReleases, AzureIsAskedNoListAndChecksOnlyByConnecting) {
  const mss_standin server(test::source_options({"business.json"}, "qbshop", "azure"));
  mss_engine engine;
  engine.connect(server_of(server), L"sa", L"Secret#1", L"qbshop", true);
  log_capture log(2);
  EXPECT_TRUE(engine.is_db_exist(L"qbshop"));
  EXPECT_FALSE(log.has_line("Step #1: check via get_contents()"));
  EXPECT_TRUE(log.has_line("Step #2: check via test_connection(...)"));
  // On Azure a name that is not there comes out as no permission.
  EXPECT_THROW((void)engine.is_db_exist(L"nosuchdb"), mss_no_perm_exception);
}

}  // namespace
}  // namespace qb
