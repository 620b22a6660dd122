// The ODBC client layer against the stand-in through unixODBC and FreeTDS:
// handle owners, diagnostics turned into exceptions, text in pieces,
// connection-string quoting.
#include "mss/odbc.h"

#include <gtest/gtest.h>

#include <memory>

#include <algorithm>
#include <string>
#include <utility>

#include "mss/error_map.h"
#include "mss_test_util.h"

namespace qb {
namespace {

using test::connect_freetds;
using test::fixture_file;
using test::mss_standin;
using test::mss_standin_options;
using test::wide;

class OdbcLayer : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    mss_standin_options o;
    o.fixtures = {"types.json"};
    o.database = "qbtypes";
    server_ = std::make_unique<mss_standin>(o);
  }
  static void TearDownTestSuite() {
    server_.reset();
  }
  static std::unique_ptr<mss_standin> server_;  // NOLINT: shared by the suite
  odb_environment env_;
};
std::unique_ptr<mss_standin> OdbcLayer::server_;

TEST_F(OdbcLayer, EnvironmentListsTheFreeTdsDriver) {
  const std::vector<std::wstring> drivers = env_.drivers();
  EXPECT_NE(std::find(drivers.begin(), drivers.end(), L"FreeTDS"), drivers.end());
}

TEST_F(OdbcLayer, ConnectionRunsAStatementAndReadsText) {
  odb_connection c = connect_freetds(env_, *server_);
  EXPECT_TRUE(c.connected());
  odb_statement s(c);
  ASSERT_TRUE(s.execute(L"select c_nvarchar from t_char where id = 2"));
  EXPECT_EQ(s.column_count(), 1);
  ASSERT_TRUE(s.fetch());
  EXPECT_EQ(s.get_text(1), std::optional<std::wstring>(L"\u041f\u0440\u0438\u0432\u0435\u0442 \u4e16\u754c"));
  EXPECT_FALSE(s.fetch());
  EXPECT_EQ(c.info_text(SQL_DRIVER_NAME), L"libtdsodbc.so");
}

TEST_F(OdbcLayer, StatementWithoutRowsGivesNoResultSet) {
  odb_connection c = connect_freetds(env_, *server_);
  odb_statement s(c);
  EXPECT_FALSE(s.execute(L"SET NOCOUNT ON"));
}

TEST_F(OdbcLayer, NullAndEmptyTextAreDifferent) {
  odb_connection c = connect_freetds(env_, *server_);
  odb_statement s(c);
  ASSERT_TRUE(s.execute(L"select c_varchar from t_char where id in (3, 5) order by id"));
  ASSERT_TRUE(s.fetch());
  EXPECT_EQ(s.get_text(1), std::optional<std::wstring>(L""));
  ASSERT_TRUE(s.fetch());
  EXPECT_EQ(s.get_text(1), std::nullopt);
}

TEST_F(OdbcLayer, FourByteCharactersSurviveTheRoundTrip) {
  odb_connection c = connect_freetds(env_, *server_);
  odb_statement s(c);
  ASSERT_TRUE(s.execute(L"select c_nvarchar, c_ntext from t_char where id = 4"));
  ASSERT_TRUE(s.fetch());
  EXPECT_EQ(s.get_text(1), std::optional<std::wstring>(L"\U0001F600\U0001D11E"));
  EXPECT_EQ(s.get_text(2), std::optional<std::wstring>(L"\U0001F600"));
}

TEST_F(OdbcLayer, LongTextIsReadWholeInPieces) {
  odb_connection c = connect_freetds(env_, *server_);
  c.run(L"SET TEXTSIZE 2147483647");
  odb_statement s(c);
  ASSERT_TRUE(s.execute(L"select c_nvarchar_max, c_varchar_max from t_max where id = 1"));
  ASSERT_TRUE(s.fetch());
  const std::optional<std::wstring> n = s.get_text(1);
  ASSERT_TRUE(n.has_value());
  ASSERT_EQ(n->size(), 2000000U);
  std::wstring expected;
  for (int i = 0; i < 500000; ++i) expected += L"abc\u00e9";
  EXPECT_TRUE(*n == expected);
  const std::optional<std::wstring> v = s.get_text(2);
  ASSERT_TRUE(v.has_value());
  ASSERT_EQ(v->size(), 100000U);
  EXPECT_EQ(v->substr(99990), L"0123456789");
}

TEST_F(OdbcLayer, FailedStatementThrowsWithEveryPartOfTheDiagnostic) {
  odb_connection c = connect_freetds(env_, *server_);
  odb_statement s(c);
  const int line = __LINE__ + 2;
  try {
    s.execute(L"SELECT * FROM [dbo].[no_such_table]");
    FAIL() << "no exception";
  } catch (const odb_exception& e) {
    EXPECT_STREQ(e.what(), "Invalid object name 'dbo.no_such_table'.");
    EXPECT_EQ(e.sqlstate(), "42S02");
    EXPECT_EQ(e.native_error(), 208);
    EXPECT_EQ(e.source(), L"FreeTDS");
    EXPECT_EQ(e.operation(), "SQLExecDirectW");
    EXPECT_EQ(e.statement(), L"SELECT * FROM [dbo].[no_such_table]");
    EXPECT_EQ(static_cast<int>(e.where().line()), line);
    EXPECT_TRUE(std::string(e.where().file_name()).ends_with("odbc_test.cpp"));
    ASSERT_EQ(e.records().size(), 1U);
    EXPECT_EQ(e.records()[0].message, L"Invalid object name 'dbo.no_such_table'.");
    EXPECT_EQ(e.level(), 1);
  }
  // The connection is usable after the failure.
  odb_statement again(c);
  ASSERT_TRUE(again.execute(L"select count(*) from t_int"));
  ASSERT_TRUE(again.fetch());
  EXPECT_EQ(again.get_text(1), std::optional<std::wstring>(L"4"));
}

TEST_F(OdbcLayer, EveryDiagnosticRecordIsRead) {
  // A database that cannot be opened: FreeTDS reports three records.
  odb_connection c(env_);
  try {
    c.connect(odb_freetds_connection_string(L"FreeTDS", test::login_of(*server_, "sa", "Secret#1", "nosuchdb"),
                                            odb_brace_rule::doubled));
    FAIL() << "no exception";
  } catch (const odb_exception& e) {
    ASSERT_EQ(e.records().size(), 3U);
    EXPECT_EQ(e.records()[0].native_error, 18456);
    EXPECT_EQ(e.records()[1].native_error, 4060);
    EXPECT_EQ(e.records()[1].message,
              L"Cannot open database \"nosuchdb\" requested by the login. The login failed.");
    EXPECT_EQ(e.records()[2].sqlstate, "08001");
    EXPECT_EQ(e.operation(), "SQLDriverConnectW");
    // The statement of a failed connect is the connection string as the log
    // may show it: the password hidden.
    EXPECT_NE(e.statement().find(L"PWD=***;"), std::wstring::npos);
    EXPECT_EQ(e.statement().find(L"Secret#1"), std::wstring::npos);
  }
  EXPECT_FALSE(c.connected());
}

TEST_F(OdbcLayer, MovedOwnersHandOverTheirHandles) {
  odb_connection a = connect_freetds(env_, *server_);
  const SQLHDBC h = a.get();
  odb_connection b(std::move(a));
  EXPECT_EQ(b.get(), h);
  EXPECT_EQ(a.get(), nullptr);  // NOLINT(bugprone-use-after-move): the moved-from owner is empty
  EXPECT_FALSE(a.connected());  // NOLINT(bugprone-use-after-move)
  EXPECT_TRUE(b.connected());
  odb_statement s1(b);
  odb_statement s2(b);
  const SQLHSTMT hs = s1.get();
  s2 = std::move(s1);
  EXPECT_EQ(s2.get(), hs);
  ASSERT_TRUE(s2.execute(L"select 1"));
  ASSERT_TRUE(s2.fetch());
  EXPECT_EQ(s2.get_text(1), std::optional<std::wstring>(L"1"));
  odb_environment e2;
  const SQLHENV he = e2.get();
  odb_environment e3(std::move(e2));
  EXPECT_EQ(e3.get(), he);
}

TEST_F(OdbcLayer, CloseReportsAndDestructorStaysQuiet) {
  odb_connection c = connect_freetds(env_, *server_);
  c.close();
  EXPECT_FALSE(c.connected());
  c.close();  // a second close does nothing
}

TEST_F(OdbcLayer, InvalidColumnNumberIsDiagnosed) {
  odb_connection c = connect_freetds(env_, *server_);
  odb_statement s(c);
  ASSERT_TRUE(s.execute(L"select id from t_int"));
  ASSERT_TRUE(s.fetch());
  try {
    (void)s.get_text(9);
    FAIL() << "no exception";
  } catch (const odb_exception& e) {
    EXPECT_EQ(e.sqlstate(), "07009");
    EXPECT_EQ(e.operation(), "SQLGetData");
    EXPECT_EQ(e.statement(), L"select id from t_int");
  }
}

// --- Connection strings ------------------------------------------------------

TEST(OdbConnectionString, PlainValuesStandAsTheyAre) {
  EXPECT_EQ(odb_quote_value(L"Secret#1", odb_brace_rule::doubled), std::optional<std::wstring>(L"Secret#1"));
  EXPECT_EQ(odb_quote_value(L"", odb_brace_rule::doubled), std::optional<std::wstring>(L""));
  EXPECT_EQ(odb_quote_value(L"host\\inst", odb_brace_rule::doubled), std::optional<std::wstring>(L"host\\inst"));
}

TEST(OdbConnectionString, SpecialValuesGoBetweenBracesByTheDriversRule) {
  EXPECT_EQ(odb_quote_value(L"a;b", odb_brace_rule::doubled), std::optional<std::wstring>(L"{a;b}"));
  EXPECT_EQ(odb_quote_value(L"a=b", odb_brace_rule::doubled), std::optional<std::wstring>(L"{a=b}"));
  EXPECT_EQ(odb_quote_value(L"a}b{", odb_brace_rule::doubled), std::optional<std::wstring>(L"{a}}b{}"));
  EXPECT_EQ(odb_quote_value(L" pad ", odb_brace_rule::doubled), std::optional<std::wstring>(L"{ pad }"));
  EXPECT_EQ(odb_quote_value(L"a}b{", odb_brace_rule::verbatim), std::optional<std::wstring>(L"{a}b{}"));
  EXPECT_EQ(odb_quote_value(L"ab}", odb_brace_rule::verbatim), std::optional<std::wstring>(L"{ab}}"));
  EXPECT_EQ(odb_quote_value(L"a};b", odb_brace_rule::verbatim), std::nullopt);
  EXPECT_EQ(odb_quote_value(L"a};b", odb_brace_rule::doubled), std::optional<std::wstring>(L"{a}};b}"));
}

TEST(OdbConnectionString, TheShownTextHidesSecrets) {
  odb_connection_string cs;
  cs.add_driver(L"ODBC Driver 18 for SQL Server");
  cs.add(L"UID", L"sa");
  cs.add(L"PWD", L"p;w", true);
  EXPECT_EQ(cs.text(), L"DRIVER={ODBC Driver 18 for SQL Server};UID=sa;PWD={p;w};");
  EXPECT_EQ(cs.shown(), L"DRIVER={ODBC Driver 18 for SQL Server};UID=sa;PWD=***;");
}

TEST(OdbConnectionString, AValueTheRuleCannotCarryIsRefusedByName) {
  odb_connection_string cs(odb_brace_rule::verbatim);
  try {
    cs.add(L"PWD", L"x};y", true);
    FAIL() << "no exception";
  } catch (const tk_exception& e) {
    EXPECT_STREQ(e.what(),
                 "The password value contains the characters '};', which the installed FreeTDS driver cannot take in "
                 "a connection string.");
    EXPECT_EQ(e.level(), 1);
  }
}

// Passwords with the characters that connection strings treat specially
// reach the server intact, by the rule of the installed FreeTDS.
TEST(OdbConnectionString, PasswordsWithSeparatorsAndBracesLogIn) {
  const std::vector<std::pair<std::string, std::string>> users = {
      {"semi", "a;b"}, {"eq", "a=b"}, {"open", "{ab"}, {"close", "a}b"}, {"mixed", "p;w}d={x}"}, {"pad", " sp "}};
  std::string json = R"({"server": {"users": [)";
  for (std::size_t i = 0; i < users.size(); ++i) {
    if (i != 0) json += ",";
    json += R"({"name": ")" + users[i].first + R"(", "password": ")" + users[i].second + R"("})";
  }
  json += R"(, {"name": "hard", "password": "x};y"}]}})";
  const fixture_file users_file(json);
  mss_standin_options o;
  o.fixtures = {"minimal.json", users_file.path()};
  o.database = "qbmini";
  const mss_standin server(o);
  odb_environment env;
  const odb_brace_rule rule = odb_freetds_brace_rule(env, L"FreeTDS");
  for (const auto& [user, password] : users) {
    SCOPED_TRACE(user);
    odb_connection c(env);
    c.connect(odb_freetds_connection_string(L"FreeTDS", test::login_of(server, user, password, "qbmini"), rule));
    EXPECT_TRUE(c.connected());
  }
  // The rule found by the probe is the driver's: the other rule's form of the
  // same password does not log in.
  const odb_brace_rule other = rule == odb_brace_rule::doubled ? odb_brace_rule::verbatim : odb_brace_rule::doubled;
  odb_connection wrong(env);
  EXPECT_THROW(
      wrong.connect(odb_freetds_connection_string(L"FreeTDS", test::login_of(server, "close", "a}b", "qbmini"), other)),
      odb_exception);
  // "};" inside a value: the doubling rule carries it, the verbatim rule of
  // older FreeTDS cannot and says so before anything is sent.
  odb_connection c(env);
  if (rule == odb_brace_rule::doubled) {
    c.connect(odb_freetds_connection_string(L"FreeTDS", test::login_of(server, "hard", "x};y", "qbmini"), rule));
    EXPECT_TRUE(c.connected());
  } else {
    EXPECT_THROW(
        (void)odb_freetds_connection_string(L"FreeTDS", test::login_of(server, "hard", "x};y", "qbmini"), rule),
        tk_exception);
  }
}

}  // namespace
}  // namespace qb
