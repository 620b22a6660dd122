// mss_engine and odb_initializer against the stand-in: the three connect
// forms, credentials, servers that refuse, the order of drivers, versions,
// the text size, and what reaches the log.
#include "mss/engine.h"

#include <gtest/gtest.h>

#include <memory>

#include <string>
#include <vector>

#include "mss/command.h"
#include "mss/error_map.h"
#include "mss_test_util.h"

namespace qb {
namespace {

using test::fixture_file;
using test::freetds_library;
using test::lines_in_order;
using test::log_capture;
using test::mss_standin;
using test::mss_standin_options;
using test::row_text;
using test::server_of;
using test::shown_errors;
using test::wide;

mss_standin_options types_server(const std::string& version = {}) {
  mss_standin_options o;
  o.fixtures = {"types.json"};
  o.database = "qbtypes";
  o.version = version;
  return o;
}

class MssEngine : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { server_ = std::make_unique<mss_standin>(types_server()); }
  static void TearDownTestSuite() {
    server_.reset();
  }
  static std::wstring server() { return server_of(*server_); }

  static std::unique_ptr<mss_standin> server_;  // NOLINT: shared by the suite
  log_capture log_;
};
std::unique_ptr<mss_standin> MssEngine::server_;

TEST_F(MssEngine, SqlLoginConnectsAndReadsVersionAndDatabases) {
  mss_engine engine;
  EXPECT_FALSE(engine.is_connected());
  engine.connect(server(), L"sa", L"Secret#1", true);
  EXPECT_TRUE(engine.is_connected());
  EXPECT_EQ(engine.version(), 15);
  EXPECT_EQ(engine.get_contents(), (std::vector<std::wstring>{L"master", L"qbother", L"qbtypes", L"tempdb"}));
  EXPECT_EQ(engine.server(), server());
  EXPECT_EQ(engine.user(), L"sa");
  EXPECT_EQ(engine.password(), L"Secret#1");
  EXPECT_FALSE(engine.integrated());
  EXPECT_FALSE(engine.fast_load());  // ODBC has no fast-load switch
  EXPECT_FALSE(engine.initializer().native());
  EXPECT_EQ(engine.initializer().driver(), L"FreeTDS");
  EXPECT_EQ(&mss_engine::instance(), &engine);
}

TEST_F(MssEngine, ConnectLogsItsStepsAsTheProgramAlwaysHas) {
  mss_engine engine;
  engine.connect(server(), L"sa", L"Secret#1", true);
  EXPECT_TRUE(lines_in_order(
      log_.text(),
      {"Connecting to MS SQL server(2)...", "mss_engine::enable_fast_load(1)", "mss_engine::get_version(priv)",
       "odb_command::execute(SELECT @@VERSION)",
       "str_ver_num=2019 (RTM", "Got MS SQL version: 15", "mss_engine::init_db_contents",
       "odb_command::execute(SELECT name from master.sys.databases ORDER BY name)", "Got database: master",
       "Got database: tempdb"}))
      << log_.text();
  // The version text is logged whole, line breaks and all.
  EXPECT_NE(log_.text().find("MS SQL version string: Microsoft SQL Server 2019 (RTM-CU22) (KB5027702) - "
                             "15.0.4322.2 (X64) \n\tJul 27 2023"),
            std::string::npos);
}

TEST_F(MssEngine, NamedDatabaseFormConnectsToThatDatabase) {
  mss_engine engine;
  engine.connect(server(), L"sa", L"Secret#1", L"qbother", true);
  EXPECT_TRUE(engine.is_connected());
  EXPECT_TRUE(log_.has_line("Connecting to MS SQL server(3)..."));
  EXPECT_TRUE(log_.has_line("Connecting to non-default DB 'qbother'"));
  EXPECT_TRUE(log_.has_line("odb_initializer::test_connection(" + std::string("127.0.0.1,") +
                            std::to_string(server_->port()) + ",sa,***,qbother)"))
      << log_.text();
  // Later data sources name their database, or take the login's default.
  const std::wstring db = L"qbtypes";
  odb_connection named = engine.open_data_source(&db);
  EXPECT_EQ(odb_command(named).query_text(L"SELECT DB_NAME()"), std::optional<std::wstring>(L"qbtypes"));
  odb_connection by_default = engine.open_data_source(nullptr);
  EXPECT_EQ(odb_command(by_default).query_text(L"SELECT DB_NAME()"), std::optional<std::wstring>(L"master"));
}

TEST_F(MssEngine, ALoginThatMayNotReadTheListOfDatabasesCannotConnect) {
  // The stand-in's "reader" may open qbtypes alone; SQL Server lets every
  // login read master.sys.databases, the stand-in does not, and a failure of
  // that list ends the connect on any server from 2005 on.
  mss_engine engine;
  try {
    engine.connect(server(), L"reader", L"Reader#1", L"qbtypes", true);
    FAIL() << "no exception";
  } catch (const odb_exception& e) {
    EXPECT_EQ(e.native_error(), 916);
  }
}

TEST_F(MssEngine, PasswordsNeverReachTheLog) {
  mss_engine engine;
  engine.connect(server(), L"sa", L"Secret#1", L"qbtypes", true);
  EXPECT_THROW(engine.connect(server(), L"sa", L"Wrong#Pass", true), odb_exception);
  const std::string text = log_.text();
  EXPECT_EQ(text.find("Secret#1"), std::string::npos);
  EXPECT_EQ(text.find("Wrong#Pass"), std::string::npos);
  EXPECT_NE(text.find("mss_engine::connect(" + std::string("127.0.0.1,") + std::to_string(server_->port()) +
                      ",sa,***,qbtypes,1)"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("PWD=***;"), std::string::npos);
}

TEST_F(MssEngine, WrongPasswordFailsAndStoresNothing) {
  mss_engine engine;
  try {
    engine.connect(server(), L"sa", L"wrong", true);
    FAIL() << "no exception";
  } catch (const odb_exception& e) {
    EXPECT_EQ(e.code(), 0x80E4DU);
    shown_errors shown;
    EXPECT_EQ(shown.show(e), L"Invalid user name or password.");
  }
  EXPECT_FALSE(engine.is_connected());
  EXPECT_EQ(engine.server(), L"");
  EXPECT_EQ(engine.user(), L"");
}

TEST_F(MssEngine, AFailedSecondConnectKeepsTheFirstSettings) {
  mss_engine engine;
  engine.connect(server(), L"sa", L"Secret#1", true);
  EXPECT_THROW(engine.connect(server(), L"reader", L"wrong", true), odb_exception);
  EXPECT_TRUE(engine.is_connected());
  EXPECT_EQ(engine.user(), L"sa");
  EXPECT_EQ(engine.password(), L"Secret#1");
  // A second successful connect overwrites them.
  engine.connect(L"127.0.0.1," + std::to_wstring(server_->port()) + L" ", L"sa", L"Secret#1", L"qbtypes", true);
  EXPECT_EQ(engine.server(), server() + L" ");
}

TEST_F(MssEngine, MissingDatabaseShowsThePermissionRow) {
  mss_engine engine;
  try {
    engine.connect(server(), L"sa", L"Secret#1", L"nosuchdb", true);
    FAIL() << "no exception";
  } catch (const odb_exception& e) {
    shown_errors shown;
    EXPECT_EQ(shown.show(e), row_text(0x80E09));
  }
  EXPECT_FALSE(engine.is_connected());
}

TEST_F(MssEngine, UnknownServerIsRefusedWithTheDriversText) {
  mss_engine engine;
  try {
    engine.connect(L"127.0.0.1,1", L"sa", L"x", true);
    FAIL() << "no exception";
  } catch (const odb_exception& e) {
    EXPECT_EQ(e.code(), 0x84005U);
    shown_errors shown;
    EXPECT_EQ(shown.show(e), L"Unable to connect: Adaptive Server is unavailable or does not exist");
  }
  EXPECT_FALSE(engine.is_connected());
}

TEST_F(MssEngine, WindowsAuthenticationAsksForATrustedConnection) {
  mss_engine engine;
  // The stand-in has no Windows authentication, and FreeTDS without Kerberos
  // cannot offer it: the attempt fails, but it was a trusted one.
  EXPECT_THROW(engine.connect(server(), true), odb_exception);
  EXPECT_FALSE(engine.is_connected());
  const std::string text = log_.text();
  EXPECT_TRUE(log_.has_line("Connecting to MS SQL server(1)..."));
  EXPECT_NE(text.find("Trusted_Connection=yes;"), std::string::npos) << text;
  EXPECT_EQ(text.find("UID="), std::string::npos) << text;
}

TEST_F(MssEngine, ConnectionsAreMadeWithTheLargestTextSize) {
  mss_engine engine;
  engine.connect(server(), L"sa", L"Secret#1", true);
  odb_connection c = engine.open_data_source(nullptr);
  odb_command command(c);
  EXPECT_EQ(command.query_text(L"SELECT @@TEXTSIZE"), std::optional<std::wstring>(L"2147483647"));
}

TEST_F(MssEngine, ContentsNeedAConnection) {
  mss_engine engine;
  EXPECT_THROW((void)engine.get_contents(), tk_mail_assertion);
  EXPECT_THROW((void)engine.open_data_source(nullptr), tk_mail_assertion);
}

// --- The text size -------------------------------------------------------------

// A server whose logins start with FreeTDS's small default text size: every
// long value must still arrive whole.
TEST(MssEngineTextSize, LongValuesArriveWholeFromAServerWithASmallDefault) {
  const fixture_file small(R"({"server": {"default_textsize": 64512}})");
  mss_standin_options o = types_server();
  o.fixtures.push_back(small.path());
  const mss_standin server(o);

  // Without the engine's settings the server cuts: this is what the engine
  // has to prevent.
  odb_environment env;
  odb_connection bare(env);
  odb_connection_string plain;
  plain.add_driver(L"FreeTDS");
  plain.add(L"SERVER", L"127.0.0.1");
  plain.add(L"PORT", std::to_wstring(server.port()));
  plain.add(L"UID", L"sa");
  plain.add(L"PWD", L"Secret#1", true);
  plain.add(L"DATABASE", L"qbtypes");
  plain.add(L"TDS_Version", L"7.4");
  bare.connect(plain);
  odb_command cut(bare);
  EXPECT_EQ(cut.query_text(L"select c_nvarchar_max from t_max where id = 1").value_or(L"").size(), 64512U / 2);

  mss_engine engine;
  engine.connect(server_of(server), L"sa", L"Secret#1", L"qbtypes", true);
  const std::wstring db = L"qbtypes";
  odb_connection c = engine.open_data_source(&db);
  odb_command command(c);
  EXPECT_EQ(command.query_text(L"select c_nvarchar_max from t_max where id = 1").value_or(L"").size(), 2000000U);
  EXPECT_EQ(command.query_text(L"select c_varchar_max from t_max where id = 1").value_or(L"").size(), 100000U);
  // varbinary(max) as text is two hexadecimal digits a byte: 5 MB whole.
  const std::wstring hex = command.query_text(L"select c_varbinary_max from t_max where id = 1").value_or(L"");
  ASSERT_EQ(hex.size(), 2U * 5242880U);
  static const wchar_t digits[] = L"0123456789ABCDEF";
  std::wstring expected;
  expected.reserve(hex.size());
  for (std::size_t i = 0; i < 5242880U; ++i) {
    expected += digits[(i & 0xFF) >> 4];
    expected += digits[i & 0x0F];
  }
  EXPECT_TRUE(tk_equal_no_case(hex, expected));  // FreeTDS writes lower-case digits
}

// --- Versions --------------------------------------------------------------------

TEST(MssEngineVersion, EveryReleaseOfTheStandInGivesItsCode) {
  struct release {
    const char* key;
    int code;
  };
  for (const release& r : {release{"7.0", 2}, release{"2000", 3}, release{"2005", 4}, release{"2008", 5},
                           release{"2008r2", 5}, release{"2012", 8}, release{"2014", 10}, release{"2016", 12},
                           release{"2017", 13}, release{"2019", 15}, release{"2022", 18}, release{"azure", 100}}) {
    SCOPED_TRACE(r.key);
    mss_standin_options o;
    o.version = r.key;
    const mss_standin server(o);
    mss_engine engine;
    engine.connect(server_of(server), L"sa", L"Secret#1", L"qbmini", true);
    EXPECT_EQ(engine.version(), r.code);
  }
}

TEST(MssEngineVersion, AzureListsNoDatabasesAndAsksForTheName) {
  mss_standin_options o;
  o.version = "azure";
  const mss_standin server(o);
  log_capture log;
  mss_engine engine;
  engine.connect(server_of(server), L"sa", L"Secret#1", L"qbmini", true);
  EXPECT_EQ(engine.version(), 100);
  EXPECT_TRUE(log.has_line("Got Microsoft SQL Azure"));
  EXPECT_FALSE(log.has_line("odb_command::execute(SELECT name from master.sys.databases ORDER BY name)"));
  try {
    (void)engine.get_contents();
    FAIL() << "no exception";
  } catch (const tk_exception& e) {
    EXPECT_STREQ(e.what(), "Azure SQL does not allow to list databases.\r\nEnter database name directly.");
    EXPECT_EQ(e.level(), 1);
  }
}

TEST(MssEngineVersion, OldServersAskTheOldCatalogForDatabases) {
  mss_standin_options o;
  o.version = "2000";
  const mss_standin server(o);
  log_capture log;
  mss_engine engine;
  engine.connect(server_of(server), L"sa", L"Secret#1", true);
  EXPECT_TRUE(log.has_line("odb_command::execute(SELECT name from master.sys.sysdatabases ORDER BY name)"));
  EXPECT_EQ(engine.get_contents(), (std::vector<std::wstring>{L"master", L"qbmini", L"tempdb"}));
}

TEST(MssVersionCode, YearsBehindTheProductName) {
  EXPECT_EQ(mss_version_code(L"Microsoft SQL Server  2000 - 8.00.2039 (Intel X86) "), 3);
  EXPECT_EQ(mss_version_code(L"Microsoft SQL Server 2005 - 9.00.5000.00 (Intel X86) "), 4);
  EXPECT_EQ(mss_version_code(L"Microsoft SQL Server 2008 R2 (SP3) - 10.50.6000.34 (X64) "), 5);
  EXPECT_EQ(mss_version_code(L"Microsoft SQL Server  7.00 - 7.00.1063 (Intel X86) "), 2);
  const std::vector<std::pair<std::wstring, int>> years = {
      {L"2010", 6}, {L"2011", 7}, {L"2012", 8}, {L"2013", 9}, {L"2014", 10}, {L"2015", 11}, {L"2016", 12},
      {L"2017", 13}, {L"2018", 14}, {L"2019", 15}, {L"2020", 16}, {L"2021", 17}, {L"2022", 18}};
  for (const auto& [year, code] : years) {
    EXPECT_EQ(mss_version_code(L"Microsoft SQL Server " + year + L" (RTM) - 1.0 (X64)"), code) << year;
  }
}

TEST(MssVersionCode, AzureAndTheRest) {
  EXPECT_EQ(mss_version_code(L"Microsoft SQL Azure (RTM) - 12.0.2000.8 "), 100);
  EXPECT_EQ(mss_version_code(L"Microsoft SQL Server 2025 (RTM) - 17.0"), 1);  // a year the table does not know
  EXPECT_EQ(mss_version_code(L"Microsoft SQL Server 2019"), 1);  // not longer than the prefix plus 10
  EXPECT_EQ(mss_version_code(L"Microsoft SQL Server 2019 (RTM"), 1);  // prefix plus exactly 10
  EXPECT_EQ(mss_version_code(L"Microsoft SQL Server 2019 (RTM)"), 15);
  EXPECT_EQ(mss_version_code(L"Sybase SQL Server 12.5"), 1);
  EXPECT_EQ(mss_version_code(L""), 1);
}

TEST(MssVersionCode, ACustomVersionTextThroughTheServer) {
  mss_standin_options o;
  o.version_text = "Microsoft SQL Server 2013 - 11.0.9999.0 (X64) custom";
  const mss_standin server(o);
  mss_engine engine;
  engine.connect(server_of(server), L"sa", L"Secret#1", true);
  EXPECT_EQ(engine.version(), 9);
}

// --- The order of drivers ----------------------------------------------------------

class DriverOrder : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { server_ = std::make_unique<mss_standin>(types_server()); }
  static void TearDownTestSuite() {
    server_.reset();
  }
  static std::wstring library() { return wide(freetds_library()); }

  static std::unique_ptr<mss_standin> server_;  // NOLINT: shared by the suite
  odb_environment env_;
  log_capture log_;
};
std::unique_ptr<mss_standin> DriverOrder::server_;

TEST_F(DriverOrder, WithoutMicrosoftDriversFreeTdsAnswersAndIsNotNative) {
  odb_initializer init;
  ASSERT_EQ(init.drivers().size(), 3U);
  EXPECT_EQ(init.drivers()[0].name, L"ODBC Driver 18 for SQL Server");
  EXPECT_EQ(init.drivers()[1].name, L"ODBC Driver 17 for SQL Server");
  EXPECT_EQ(init.drivers()[2].name, L"FreeTDS");
  const std::wstring db = L"qbtypes";
  odb_connection c = init.test_connection(env_, server_of(*server_), L"sa", L"Secret#1", &db);
  EXPECT_TRUE(c.connected());
  EXPECT_FALSE(init.native());
  EXPECT_EQ(init.driver(), L"FreeTDS");
  EXPECT_EQ(test::count_lines(log_.text(), "CoCreateInstance failed"), 2) << log_.text();
  EXPECT_FALSE(log_.has_line("CLSID_SQLNCLI11 succeeded"));
}

TEST_F(DriverOrder, ANativeDriverThatAnswersIsUsedAndMarkedNative) {
  odb_initializer init({{library(), true}, {L"FreeTDS", false}});
  odb_connection c = init.test_connection(env_, server_of(*server_), L"sa", L"Secret#1", nullptr);
  EXPECT_TRUE(c.connected());
  EXPECT_TRUE(init.native());
  EXPECT_TRUE(lines_in_order(log_.text(), {"Right before pIDBProperties->SetProperties",
                                           "Right before db_initialize->Initialize",
                                           "SQLNCLI1X initialization SUCCEEDED!",
                                           "odb_initializer::test_native_connection - END",
                                           "CLSID_SQLNCLI11 succeeded"}))
      << log_.text();
}

TEST_F(DriverOrder, ANativeDriverThatRefusesEndsTheAttempt) {
  odb_initializer init({{library(), true}, {L"FreeTDS", false}});
  try {
    (void)init.test_connection(env_, server_of(*server_), L"sa", L"wrong", nullptr);
    FAIL() << "no exception";
  } catch (const odb_exception& e) {
    EXPECT_EQ(e.code(), 0x80E4DU);
  }
  // FreeTDS as the generic driver was never tried.
  EXPECT_EQ(log_.text().find("odb_initializer::test_generic_connection"), std::string::npos) << log_.text();
}

TEST_F(DriverOrder, ADriverThatCannotBeLoadedPassesToTheNext) {
  odb_initializer init({{L"/nonexistent/libmsodbcsql-18.so", true}, {library(), true}, {L"FreeTDS", false}});
  odb_connection c = init.test_connection(env_, server_of(*server_), L"sa", L"Secret#1", nullptr);
  EXPECT_TRUE(init.native());
  EXPECT_EQ(init.driver(), library());
  EXPECT_TRUE(lines_in_order(log_.text(), {"CoCreateInstance failed", "CLSID_SQLNCLI10 succeeded"})) << log_.text();
}

TEST_F(DriverOrder, NoLoadableDriverAsksForTheSupportLibrary) {
  odb_initializer init({{L"/nonexistent/a.so", true}, {L"/nonexistent/b.so", false}});
  try {
    (void)init.test_connection(env_, server_of(*server_), L"sa", L"Secret#1", nullptr);
    FAIL() << "no exception";
  } catch (const odb_exception&) {
    FAIL() << "a driver failure instead of the missing library";
  } catch (const tk_exception& e) {
    EXPECT_STREQ(e.what(),
                 "Failed to load OLE DB support library. You should install it\r\nto proceed with the application.\r\n");
    EXPECT_EQ(e.level(), 1);
  }
  EXPECT_TRUE(log_.has_line("Failed to initialize CLSID_MSDAINITIALIZE: 80004005")) << log_.text();
}

// --- Connection strings ----------------------------------------------------------

TEST(OdbConnectionStrings, FreeTdsGetsTds74Utf8AndTheLargestTextSize) {
  const odb_connection_string cs =
      odb_freetds_connection_string(L"FreeTDS", {L"db1,1433", L"sa", L"p;w", L"sales"}, odb_brace_rule::doubled);
  EXPECT_EQ(cs.text(),
            L"DRIVER={FreeTDS};SERVER=db1,1433;DATABASE=sales;UID=sa;PWD={p;w};APP=Quillbridge;TDS_Version=7.4;"
            L"ClientCharset=UTF-8;TextSize=2147483647;");
  EXPECT_EQ(cs.shown(),
            L"DRIVER={FreeTDS};SERVER=db1,1433;DATABASE=sales;UID=sa;PWD=***;APP=Quillbridge;TDS_Version=7.4;"
            L"ClientCharset=UTF-8;TextSize=2147483647;");
}

TEST(OdbConnectionStrings, ServerFormsPassToFreeTds) {
  auto server_part = [](const wchar_t* server) {
    const std::wstring text =
        odb_freetds_connection_string(L"FreeTDS", {server, L"u", L"p", L""}, odb_brace_rule::doubled).text();
    const std::size_t start = text.find(L"SERVER=") + 7;
    return text.substr(start, text.find(L';', start) - start);
  };
  EXPECT_EQ(server_part(L"dbhost"), L"dbhost");
  EXPECT_EQ(server_part(L"dbhost\\SQLEXPRESS"), L"dbhost\\SQLEXPRESS");
  EXPECT_EQ(server_part(L"dbhost,1444"), L"dbhost,1444");
  EXPECT_EQ(server_part(L" dbhost "), L"dbhost");
  EXPECT_EQ(server_part(L"."), L"127.0.0.1");
  EXPECT_EQ(server_part(L"(local)\\SQLEXPRESS"), L"127.0.0.1\\SQLEXPRESS");
  EXPECT_EQ(server_part(L".,1444"), L"127.0.0.1,1444");
}

TEST(OdbConnectionStrings, NativeDriversGetTheServerAsTypedAndNoForcedEncryption) {
  const odb_connection_string cs =
      odb_native_connection_string(L"ODBC Driver 18 for SQL Server", {L"db1\\INST", L"sa", L"x}y", L""});
  EXPECT_EQ(cs.text(),
            L"DRIVER={ODBC Driver 18 for SQL Server};SERVER=db1\\INST;UID=sa;PWD={x}}y};APP=Quillbridge;Encrypt=no;"
            L"TrustServerCertificate=yes;");
}

TEST(OdbConnectionStrings, AnEmptyUserAsksForWindowsAuthentication) {
  const odb_login login{L"db1", L"", L"", L"sales"};
  const std::wstring native = odb_native_connection_string(L"ODBC Driver 17 for SQL Server", login).text();
  const std::wstring generic = odb_freetds_connection_string(L"FreeTDS", login, odb_brace_rule::doubled).text();
  for (const std::wstring& text : {native, generic}) {
    EXPECT_NE(text.find(L";DATABASE=sales;Trusted_Connection=yes;"), std::wstring::npos) << text;
    EXPECT_EQ(text.find(L"UID="), std::wstring::npos) << text;
    EXPECT_EQ(text.find(L"PWD="), std::wstring::npos) << text;
  }
}

}  // namespace
}  // namespace qb
