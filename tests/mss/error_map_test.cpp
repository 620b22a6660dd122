// From ODBC diagnostics to what the user reads: the mapping table, the
// exception's text and source, and every mapped SQL Server message through
// the stand-in, FreeTDS and the error handler.
#include "mss/error_map.h"

#include <gtest/gtest.h>

#include <memory>

#include <set>
#include <string>

#include "mss/exception.h"
#include "mss_test_util.h"
#include "tk/support.h"

namespace qb {
namespace {

using test::connect_freetds;
using test::mss_standin;
using test::mss_standin_options;
using test::row_text;
using test::shown_errors;

constexpr std::uint32_t auth_failed = 0x80040E4D;
constexpr std::uint32_t permission_denied = 0x80040E09;
constexpr std::uint32_t no_table = 0x80040E37;

odb_diag_record rec(const char* sqlstate, std::int32_t native, const wchar_t* text = L"text") {
  return odb_make_diag_record(sqlstate, native, text);
}

// --- The table ---------------------------------------------------------------

TEST(OdbErrorMap, EveryRowLeadsToAMessageOfTheSqlServerTable) {
  for (const odb_error_map_row& row : odb_error_map()) {
    SCOPED_TRACE(row.native_error);
    EXPECT_NE(row_text(odb_code_of(row.hresult)), L"<no row>");
    EXPECT_EQ(row.hresult & 0xFFFF0000U, 0x80040000U);
    EXPECT_TRUE((row.native_error != 0) != (row.sqlstate != nullptr));
  }
}

TEST(OdbErrorMap, ARecordOfEachRowMapsToItsResult) {
  for (const odb_error_map_row& row : odb_error_map()) {
    SCOPED_TRACE(row.sqlstate != nullptr ? row.sqlstate : std::to_string(row.native_error).c_str());
    const odb_diag_record r = row.native_error != 0 ? rec("42000", row.native_error) : rec(row.sqlstate, 0);
    EXPECT_EQ(odb_hresult_of(r), row.hresult);
    EXPECT_EQ(odb_hresult_of(std::vector<odb_diag_record>{r}), row.hresult);
  }
}

TEST(OdbErrorMap, TheCodeIsTheLowHalfWithTheMarkBit) {
  EXPECT_EQ(odb_code_of(0x80040E09), 0x80E09U);
  EXPECT_EQ(odb_code_of(0x80040E4D), 0x80E4DU);
  EXPECT_EQ(odb_code_of(odb_e_fail), 0x84005U);
}

TEST(OdbErrorMap, NativeErrorDecidesBeforeSqlstate) {
  EXPECT_EQ(odb_hresult_of(rec("42000", 208)), no_table);
  EXPECT_EQ(odb_hresult_of(rec("42S02", 0)), no_table);
  EXPECT_EQ(odb_hresult_of(rec("42S22", 208)), no_table);  // not the column row of 42S22
  EXPECT_EQ(odb_hresult_of(rec("42000", 102)), 0U);        // a syntax error has no row
}

TEST(OdbErrorMap, FirstRecordThatMatchesDecides) {
  EXPECT_EQ(odb_hresult_of({rec("01000", 5701), rec("42S02", 208), rec("42000", 229)}), no_table);
  EXPECT_EQ(odb_hresult_of({rec("42000", 102), rec("42000", 229)}), permission_denied);
}

TEST(OdbErrorMap, LoginFailedYieldsToTheReasonBeforeOrBehindIt) {
  // FreeTDS puts 18456 before 4060; Microsoft's drivers put it behind.
  EXPECT_EQ(odb_hresult_of({rec("42000", 18456), rec("42000", 4060), rec("08001", 0)}), permission_denied);
  EXPECT_EQ(odb_hresult_of({rec("42000", 4060), rec("28000", 18456)}), permission_denied);
  EXPECT_EQ(odb_hresult_of({rec("42000", 18456), rec("08001", 0)}), auth_failed);
  EXPECT_EQ(odb_hresult_of({rec("28000", 18456)}), auth_failed);
}

TEST(OdbErrorMap, UnknownFailuresGetTheGenericCodeWhichHasNoRow) {
  EXPECT_EQ(odb_hresult_of({rec("08S01", 20009), rec("08001", 0)}), odb_e_fail);
  EXPECT_EQ(odb_hresult_of(std::vector<odb_diag_record>{}), odb_e_fail);
  EXPECT_EQ(row_text(odb_code_of(odb_e_fail)), L"<no row>");
}

// --- The exception -----------------------------------------------------------

TEST(OdbException, PrefixesOfTheComponentsBecomeTheSource) {
  const odb_diag_record a = rec("42S02", 208, L"[FreeTDS][SQL Server]Invalid object name 't'.");
  EXPECT_EQ(a.source, L"FreeTDS");
  EXPECT_EQ(a.message, L"Invalid object name 't'.");
  const odb_diag_record b = rec("IM002", 0, L"[unixODBC][Driver Manager]Data source name not found");
  EXPECT_EQ(b.source, L"unixODBC Driver Manager");
  EXPECT_EQ(b.message, L"Data source name not found");
  const odb_diag_record c =
      rec("28000", 18456, L"[Microsoft][ODBC Driver 18 for SQL Server][SQL Server]Login failed for user 'x'.");
  EXPECT_EQ(c.source, L"Microsoft ODBC Driver 18 for SQL Server");
  EXPECT_EQ(c.message, L"Login failed for user 'x'.");
  const odb_diag_record d = rec("HY000", 0, L"no prefix [at all]");
  EXPECT_EQ(d.source, L"");
  EXPECT_EQ(d.message, L"no prefix [at all]");
}

TEST(OdbException, AnEmptyFirstDescriptionGivesWayToTheSecond) {
  const odb_exception e({rec("42000", 0, L"[FreeTDS][SQL Server]"), rec("42S02", 208, L"[FreeTDS]Second one.")},
                        "SQLExecDirectW", L"select 1");
  EXPECT_STREQ(e.what(), "Second one.");
  EXPECT_EQ(e.source(), L"FreeTDS");
  EXPECT_EQ(e.native_error(), 208);
  EXPECT_EQ(e.code(), 0x80E37U);
}

TEST(OdbException, NoRecordsGiveTheGenericTextAndKeepTheCode) {
  const odb_exception e(std::vector<odb_diag_record>{}, "SQLFetch");
  EXPECT_EQ(std::string(e.what()), "Generic error occurred while migrating the data.\nContact to " +
                                       std::string(tk_support_address) + " for the solution.");
  EXPECT_EQ(e.code(), 0x84005U);
  EXPECT_EQ(e.source(), L"");
}

TEST(OdbException, AnInformationalRecordGivesTheTextOnlyWhenNoErrorHasOne) {
  const odb_exception e({rec("01000", 5701, L"[FreeTDS][SQL Server]Changed database context to 'x'."),
                         rec("42S02", 208, L"[FreeTDS][SQL Server]Invalid object name 't'.")},
                        "SQLExecDirectW");
  EXPECT_STREQ(e.what(), "Invalid object name 't'.");
  const odb_exception f({rec("01000", 0, L"[unixODBC][Driver Manager]Can't open lib 'x' : file not found")},
                        "SQLDriverConnectW");
  EXPECT_STREQ(f.what(), "Can't open lib 'x' : file not found");
}

TEST(OdbException, PlainTextHasCodeZeroAndNoSource) {
  const odb_exception e(std::string("something"));
  EXPECT_STREQ(e.what(), "something");
  EXPECT_EQ(e.code(), 0U);
  EXPECT_EQ(e.hresult(), 0U);
  EXPECT_EQ(e.source(), L"");
}

TEST(OdbException, ItsRecordsAreLoggedOneByOne) {
  test::log_capture log;
  const odb_exception e({rec("42000", 18456, L"[FreeTDS][SQL Server]Login failed for user 'sa'."),
                         rec("08001", 0, L"[FreeTDS][SQL Server]Unable to connect to data source")},
                        "SQLDriverConnectW", L"DRIVER={FreeTDS};PWD=***;");
  EXPECT_TRUE(test::lines_in_order(log.text(), {"odb_exception::odb_exception(80040E4D)",
                                                "odb_exception::extract_from_records2(1)", "Got 2 record(s)",
                                                "HRESULT:\t0x80040E4D", "SQLSTATE:\t42000", "Native Error:\t18456",
                                                "Source:\t\tFreeTDS\n", "Error message:\tLogin failed for user 'sa'.",
                                                "HRESULT:\t0x00000000", "SQLSTATE:\t08001", "Failed call: SQLDriverConnectW",
                                                "Statement: DRIVER={FreeTDS};PWD=***;"}))
      << log.text();
}

TEST(MssNoPermException, NamesUserAndDatabase) {
  const mss_no_perm_exception e(L"reader", L"qbother");
  EXPECT_STREQ(e.what(), "User 'reader' does not have permission to access database 'qbother'");
  EXPECT_EQ(e.code(), 0U);
  EXPECT_EQ(e.level(), 1);
}

// --- Through the stand-in, FreeTDS and the error handler ---------------------

class ServerMessages : public ::testing::Test {
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

  // The failure of running the statement on a connection of the user.
  static odb_exception failure_of(const std::wstring& statement, const std::string& user = "sa",
                                  const std::string& password = "Secret#1") {
    odb_environment env;
    odb_connection c = connect_freetds(env, *server_, user, password, "qbtypes");
    odb_statement s(c);
    try {
      s.execute(statement);
    } catch (const odb_exception& e) {
      return e;
    }
    ADD_FAILURE() << "the statement did not fail";
    return odb_exception(std::string("no failure"));
  }

  static odb_exception login_failure(const std::string& user, const std::string& password,
                                     const std::string& database) {
    odb_environment env;
    try {
      (void)connect_freetds(env, *server_, user, password, database);
    } catch (const odb_exception& e) {
      return e;
    }
    ADD_FAILURE() << "the login did not fail";
    return odb_exception(std::string("no failure"));
  }

  static std::unique_ptr<mss_standin> server_;  // NOLINT: shared by the suite
  test::log_capture log_;
  shown_errors shown_;
};
std::unique_ptr<mss_standin> ServerMessages::server_;

TEST_F(ServerMessages, WrongPasswordReadsInvalidUserNameOrPassword) {
  const odb_exception e = login_failure("sa", "wrong", "qbtypes");
  EXPECT_EQ(e.code(), 0x80E4DU);
  EXPECT_STREQ(e.what(), "Login failed for user 'sa'.");
  EXPECT_EQ(shown_.show(e), L"Invalid user name or password.");
}

TEST_F(ServerMessages, UnknownUserReadsInvalidUserNameOrPassword) {
  EXPECT_EQ(shown_.show(login_failure("nobody", "x", "qbtypes")), L"Invalid user name or password.");
}

TEST_F(ServerMessages, MissingDatabaseReadsThePermissionRow) {
  const odb_exception e = login_failure("sa", "Secret#1", "nosuchdb");
  EXPECT_EQ(e.code(), 0x80E09U);
  EXPECT_EQ(shown_.show(e),
            L"You are not allowed to access MS SQL database. Ask your system administrator to grant you necessary "
            L"privileges.");
}

TEST_F(ServerMessages, DatabaseTheLoginMayNotOpenReadsThePermissionRow) {
  const odb_exception e = login_failure("reader", "Reader#1", "qbother");
  EXPECT_TRUE(e.has_native_error(4060));
  EXPECT_EQ(shown_.show(e), row_text(0x80E09));
}

TEST_F(ServerMessages, DeniedSelectIsCode80E09AndReadsThePermissionRow) {
  const odb_exception e = failure_of(L"select * from t_secret", "reader", "Reader#1");
  EXPECT_EQ(e.native_error(), 229);
  EXPECT_EQ(e.hresult(), 0x80040E09U);
  EXPECT_EQ(e.code(), 0x80E09U);
  EXPECT_EQ(shown_.show(e), row_text(0x80E09));
}

TEST_F(ServerMessages, DatabaseOfAnotherPrincipalReadsThePermissionRow) {
  const odb_exception e = failure_of(L"use qbother", "reader", "Reader#1");
  EXPECT_EQ(e.native_error(), 916);
  EXPECT_EQ(shown_.show(e), row_text(0x80E09));
}

TEST_F(ServerMessages, UnknownTableReadsTheSpecifiedTableDoesNotExist) {
  const odb_exception e = failure_of(L"SELECT * FROM [dbo].[no_such_table]");
  EXPECT_EQ(shown_.show(e), L"The specified table does not exist.");
}

TEST_F(ServerMessages, UnknownColumnReadsTheSpecifiedColumnDidNotExist) {
  const odb_exception e = failure_of(L"select no_such_column from t_int");
  EXPECT_EQ(e.native_error(), 207);
  EXPECT_EQ(shown_.show(e), L"The specified column did not exist.");
}

TEST_F(ServerMessages, UnmappedServerMessagesAreShownAsTheServerWroteThem) {
  EXPECT_EQ(shown_.show(failure_of(L"SELECT * FROM WHERE")), L"Incorrect syntax near the keyword 'WHERE'.");
  EXPECT_EQ(shown_.show(failure_of(L"use nosuchdb")),
            L"Database 'nosuchdb' does not exist. Make sure that the name is entered correctly.");
}

TEST_F(ServerMessages, RefusedPortIsShownAsTheDriverWroteIt) {
  odb_environment env;
  odb_connection c(env);
  try {
    c.connect(odb_freetds_connection_string(L"FreeTDS", {L"127.0.0.1,1", L"sa", L"x", L""}, odb_brace_rule::doubled));
    FAIL() << "no exception";
  } catch (const odb_exception& e) {
    EXPECT_EQ(e.code(), 0x84005U);
    EXPECT_EQ(e.native_error(), 20009);
    EXPECT_EQ(shown_.show(e), L"Unable to connect: Adaptive Server is unavailable or does not exist");
  }
}

// Every server message number of the table, raised by the stand-in and read
// through FreeTDS, reaches the user as its row.
TEST_F(ServerMessages, EveryMappedServerMessageShowsItsRow) {
  std::set<std::int32_t> seen;
  for (const odb_error_map_row& row : odb_error_map()) {
    if (row.native_error == 0) continue;
    SCOPED_TRACE(row.native_error);
    seen.insert(row.native_error);
    const std::wstring text = L"message " + std::to_wstring(row.native_error);
    const odb_exception e =
        failure_of(L"EXEC qb_raise_error " + std::to_wstring(row.native_error) + L", 16, '" + text + L"'");
    EXPECT_EQ(e.native_error(), row.native_error);
    EXPECT_EQ(e.records()[0].message, text);
    EXPECT_EQ(e.hresult(), row.hresult);
    EXPECT_EQ(shown_.show(e), row_text(odb_code_of(row.hresult)));
  }
  EXPECT_GE(seen.size(), 48U);
}

// Messages that FreeTDS files under a SQLSTATE of the table, with a number
// the table does not list, are mapped by the SQLSTATE.
TEST_F(ServerMessages, SqlstatesOfTheDriverMapMessagesTheTableDoesNotList) {
  struct example {
    int native;
    const char* sqlstate;
    std::uint32_t hresult;
  };
  for (const example& x : {example{3701, "42S02", 0x80040E37}, example{1911, "42S22", 0x80040E55},
                           example{15605, "42S11", 0x80040E34}, example{10033, "42S12", 0x80040E35},
                           example{4925, "42S21", 0x80040E3E}, example{2615, "23000", 0x80040E2F},
                           example{235, "22018", 0x80040E07}, example{210, "22007", 0x80040E07}}) {
    SCOPED_TRACE(x.native);
    const odb_exception e = failure_of(L"EXEC qb_raise_error " + std::to_wstring(x.native) + L", 16, 'm'");
    EXPECT_EQ(e.sqlstate(), x.sqlstate);
    EXPECT_EQ(e.hresult(), x.hresult);
    EXPECT_EQ(shown_.show(e), row_text(odb_code_of(x.hresult)));
  }
}

// SQLSTATEs that the driver raises itself, with no server message.
TEST_F(ServerMessages, DriverSideConversionFailuresMapBySqlstate) {
  odb_environment env;
  odb_connection c = connect_freetds(env, *server_);
  odb_statement s(c);
  ASSERT_TRUE(s.execute(L"select c_bigint, c_varchar, c_int from t_int, t_char where t_int.id = 2 and t_char.id = 1"));
  ASSERT_TRUE(s.fetch());
  SQLCHAR tiny = 0;
  SQLLEN ind = 0;
  try {
    s.check(SQLGetData(s.get(), 1, SQL_C_UTINYINT, &tiny, 0, &ind), "SQLGetData");
    FAIL() << "no exception";
  } catch (const odb_exception& e) {
    EXPECT_EQ(e.sqlstate(), "22003");
    EXPECT_EQ(shown_.show(e), row_text(0x80E57));
  }
  SQLINTEGER n = 0;
  try {
    s.check(SQLGetData(s.get(), 2, SQL_C_SLONG, &n, 0, &ind), "SQLGetData");
    FAIL() << "no exception";
  } catch (const odb_exception& e) {
    EXPECT_EQ(e.sqlstate(), "22018");
    EXPECT_EQ(shown_.show(e), row_text(0x80E07));
  }
  try {
    (void)s.get_text(42);
    FAIL() << "no exception";
  } catch (const odb_exception& e) {
    EXPECT_EQ(e.sqlstate(), "07009");
    EXPECT_EQ(shown_.show(e), row_text(0x80E11));
  }
}

}  // namespace
}  // namespace qb
