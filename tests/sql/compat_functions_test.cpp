// The compatibility functions: the table as data, the dump's form of a
// statement, and the functions made on a real MariaDB, both through the
// engine's connection and by replaying a dump file with the stock client.
#include "sql/compat_functions.h"

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "sql/engine.h"
#include "sql/exception.h"
#include "tk/error_handler.h"
#include "tk/error_tables.h"
#include "tk/headless_shell.h"
#include "support/log_lines.h"
#include "tk/strings.h"
#include "tk/utf.h"

#include "support/mariadb_server.h"
#include "support/temp_dir.h"
#include "test_session.h"

namespace qb {
namespace {

using test::mariadb_server;

const std::vector<std::wstring> expected_names = {
    L"SQUARE",          L"STR",
    L"DATEADD_DAY",     L"DATEADD_HOUR",
    L"DATEADD_MINUTE",  L"DATEADD_MONTH",
    L"DATEADD_QUARTER", L"DATEADD_SECOND",
    L"DATEADD_WEEK",    L"DATEADD_YEAR",
    L"DATEDIFF_HOUR",   L"DATEDIFF_MINUTE",
    L"DATEDIFF_MONTH",  L"DATEDIFF_QUARTER",
    L"DATEDIFF_SECOND", L"DATEDIFF_WEEK",
    L"DATEDIFF_YEAR",
};

// The unit of a DATEADD_ or DATEDIFF_ function: the part of its name after
// the underscore.
std::wstring unit_of(const std::wstring& name) { return name.substr(name.find(L'_') + 1); }

// --- The table -------------------------------------------------------------------

TEST(SqlCompatFunctions, SeventeenRowsInTheirOrder) {
  const auto table = sql_compat_functions();
  ASSERT_EQ(table.size(), 17U);
  std::vector<std::wstring> names;
  for (const auto& row : table) names.emplace_back(row.name);
  EXPECT_EQ(names, expected_names);
}

TEST(SqlCompatFunctions, NoDatediffDay) {
  for (const auto& row : sql_compat_functions()) EXPECT_NE(row.name, L"DATEDIFF_DAY");
}

TEST(SqlCompatFunctions, LabelAndDropStatementNameTheFunction) {
  for (const auto& row : sql_compat_functions()) {
    EXPECT_EQ(row.label, L"DROP " + std::wstring(row.name));
    EXPECT_EQ(row.drop_statement, L"DROP FUNCTION IF EXISTS " + std::wstring(row.name));
  }
}

TEST(SqlCompatFunctions, SquareBody) {
  EXPECT_EQ(sql_compat_functions()[0].create_statement,
            L"CREATE FUNCTION SQUARE(value REAL)\nRETURNS REAL\nDETERMINISTIC\nBEGIN\n    RETURN POWER(value,2);\nEND");
}

TEST(SqlCompatFunctions, StrBody) {
  EXPECT_EQ(sql_compat_functions()[1].create_statement,
            L"CREATE FUNCTION STR(value REAL, prec INT, scale INT)\nRETURNS VARCHAR(100)\nDETERMINISTIC\nBEGIN\n"
            L"    DECLARE RESULT VARCHAR(100);\n    SET RESULT=CAST(ROUND(value,scale) AS CHAR);\n"
            L"    IF(scale>0) THEN\n        SET RESULT=RPAD(RESULT,prec,'0');\n    END IF;\n    RETURN RESULT;\nEND");
}

TEST(SqlCompatFunctions, DateaddBodiesFollowTheDayModel) {
  for (std::size_t i = 2; i < 10; ++i) {
    const std::wstring name(sql_compat_functions()[i].name);
    ASSERT_TRUE(name.starts_with(L"DATEADD_"));
    EXPECT_EQ(sql_compat_functions()[i].create_statement,
              L"CREATE FUNCTION " + name + L"(cnt INT, d DATETIME)\nRETURNS DATETIME\nDETERMINISTIC\nBEGIN\n" +
                  L"    RETURN DATE_ADD(d, INTERVAL cnt " + unit_of(name) + L");\nEND");
  }
}

TEST(SqlCompatFunctions, DatediffBodiesTakeDtoBeforeDfrom) {
  for (std::size_t i = 10; i < 17; ++i) {
    const std::wstring name(sql_compat_functions()[i].name);
    ASSERT_TRUE(name.starts_with(L"DATEDIFF_"));
    EXPECT_EQ(sql_compat_functions()[i].create_statement,
              L"CREATE FUNCTION " + name + L"(dfrom DATETIME, dto DATETIME)\nRETURNS INT\nDETERMINISTIC\nBEGIN\n" +
                  L"    RETURN TIMESTAMPDIFF(" + unit_of(name) + L", dto, dfrom);\nEND");
  }
}

TEST(SqlCompatFunctions, ServerStatementsAreDropThenCreate) {
  const auto& square = sql_compat_functions()[0];
  const auto statements = sql_compat_statements(square);
  EXPECT_EQ(statements[0], L"DROP FUNCTION IF EXISTS SQUARE");
  EXPECT_EQ(statements[1], square.create_statement);
}

// --- The dump's form of a statement -------------------------------------------------

TEST(DmpStatementText, CreateFunctionIsWrappedInDelimiters) {
  EXPECT_EQ(dmp_statement_text("CREATE FUNCTION F()\nRETURNS INT\nBEGIN\n    RETURN 1;\nEND", "\n"),
            "DELIMITER $$\nCREATE FUNCTION F()\nRETURNS INT\nBEGIN\n    RETURN 1;\nEND;\n$$\nDELIMITER ;\n");
}

TEST(DmpStatementText, WindowsLineEndsEndEachAddedLine) {
  EXPECT_EQ(dmp_statement_text("CREATE FUNCTION F() RETURNS INT RETURN 1", "\r\n"),
            "DELIMITER $$\r\nCREATE FUNCTION F() RETURNS INT RETURN 1;\r\n$$\r\nDELIMITER ;\r\n");
}

TEST(DmpStatementText, LowerCaseCreateFunctionIsWrappedAsWell) {
  EXPECT_EQ(dmp_statement_text("create function f() returns int return 1", "\n"),
            "DELIMITER $$\ncreate function f() returns int return 1;\n$$\nDELIMITER ;\n");
  EXPECT_TRUE(dmp_is_create_function("Create Function f() returns int return 1"));
}

TEST(DmpStatementText, AnyOtherStatementIsNotWrapped) {
  EXPECT_EQ(dmp_statement_text("DROP FUNCTION IF EXISTS SQUARE", "\n"), "DROP FUNCTION IF EXISTS SQUARE;\n");
  EXPECT_EQ(dmp_statement_text("CREATE OR REPLACE VIEW `v` AS select 1", "\r\n"),
            "CREATE OR REPLACE VIEW `v` AS select 1;\r\n");
  EXPECT_FALSE(dmp_is_create_function("CREATE PROCEDURE p() SELECT 1"));
  EXPECT_FALSE(dmp_is_create_function(" CREATE FUNCTION f() RETURNS INT RETURN 1"));
  EXPECT_FALSE(dmp_is_create_function("CREATE FUNCTION"));
  EXPECT_FALSE(dmp_is_create_function("CREATE FUNCTION\nf() RETURNS INT RETURN 1"));
  EXPECT_FALSE(dmp_is_create_function(""));
}

// --- On the server -----------------------------------------------------------------

// One call of a function and the text the server gives back.
struct expected_call {
  std::string call;
  std::string result;
};

// At least one call of each of the 17 functions. Where SQL Server would
// answer otherwise, the comment says how; the functions are kept as they are.
const std::vector<expected_call> expected_calls = {
    {"SQUARE(3)", "9"},
    {"SQUARE(1.5)", "2.25"},
    {"STR(3.14159, 6, 2)", "3.1400"},
    // prec is the length of the text: RPAD cuts a longer one (SQL Server
    // would pad on the left to the width instead).
    {"STR(123.456, 4, 2)", "123."},
    {"STR(7.8, 5, 0)", "8"},
    {"DATEADD_DAY(1, '2024-02-28 10:00:00')", "2024-02-29 10:00:00"},
    {"DATEADD_HOUR(5, '2024-01-01 22:00:00')", "2024-01-02 03:00:00"},
    {"DATEADD_MINUTE(90, '2024-01-01 00:00:00')", "2024-01-01 01:30:00"},
    {"DATEADD_MONTH(1, '2024-01-31')", "2024-02-29 00:00:00"},
    {"DATEADD_QUARTER(1, '2024-11-30')", "2025-02-28 00:00:00"},
    {"DATEADD_SECOND(-1, '2024-01-01 00:00:00')", "2023-12-31 23:59:59"},
    {"DATEADD_WEEK(2, '2024-01-01')", "2024-01-15 00:00:00"},
    {"DATEADD_YEAR(1, '2024-02-29')", "2025-02-28 00:00:00"},
    // dfrom minus dto: the sign of MySQL's DATEDIFF, opposite to SQL Server's.
    {"DATEDIFF_HOUR('2024-01-02 03:00:00', '2024-01-01 00:00:00')", "27"},
    {"DATEDIFF_HOUR('2024-01-01 00:00:00', '2024-01-02 03:00:00')", "-27"},
    {"DATEDIFF_MINUTE('2024-01-01 01:30:00', '2024-01-01 00:00:00')", "90"},
    {"DATEDIFF_MONTH('2024-03-31', '2024-01-31')", "2"},
    {"DATEDIFF_QUARTER('2025-01-01', '2024-01-01')", "4"},
    {"DATEDIFF_SECOND('2024-01-01 00:01:00', '2024-01-01 00:00:00')", "60"},
    {"DATEDIFF_WEEK('2024-01-15', '2024-01-01')", "2"},
    {"DATEDIFF_YEAR('2026-01-01', '2024-01-01')", "2"},
    // Whole units are counted, not boundaries crossed (SQL Server says 1).
    {"DATEDIFF_YEAR('2025-01-01', '2024-12-31')", "0"},
};

// A database of its own for one test, dropped at the end.
class scratch_database {
 public:
  explicit scratch_database(const std::string& prefix)
      : root_(mariadb_server::main()), name_(test::unique_name(prefix)) {
    root_.run("CREATE DATABASE `" + name_ + "`");
  }
  ~scratch_database() {
    try {
      root_.run("DROP DATABASE IF EXISTS `" + name_ + "`");
    } catch (...) {  // NOLINT(bugprone-empty-catch): a clean-up failure must not hide the test's own
    }
  }
  scratch_database(const scratch_database&) = delete;
  scratch_database& operator=(const scratch_database&) = delete;

  [[nodiscard]] const std::string& name() const { return name_; }
  test::test_session& root() { return root_; }

 private:
  test::test_session root_;
  std::string name_;
};

// The program's failure handling as a headless run sets it up, answering
// every continue-or-abort dialog by the policy.
class headless_errors {
 public:
  headless_errors() : handler_(tk_source_errors.size(), tk_source_errors.data()) {
    handler_.load_err_map(tk_destination_errors.size(), tk_destination_errors.data());
    shell_.set_initialized(true);
  }
  void answer(int continue_answer) {
    headless_shell::policy answers = shell_.get_policy();
    answers.continue_answer = continue_answer;
    shell_.set_policy(answers);
  }
  [[nodiscard]] std::vector<headless_shell::call> dialogs() const {
    return shell_.calls_of(headless_shell::call_kind::continue_or_abort);
  }

 private:
  headless_shell shell_{L"Q"};
  error_handler handler_;
};

// Every routine of the database with its determinism and its body as stored.
std::vector<std::vector<std::string>> routines(test::test_session& session, const std::string& db) {
  return session.rows(
      "SELECT ROUTINE_NAME, ROUTINE_TYPE, IS_DETERMINISTIC, ROUTINE_DEFINITION FROM information_schema.ROUTINES "
      "WHERE ROUTINE_SCHEMA = " +
      test::sql_literal(db) + " ORDER BY ROUTINE_NAME");
}

// Checks that db holds the 17 functions, each deterministic with the body of
// the table, and that each call gives its expected result.
void expect_functions_work(test::test_session& session, const std::string& db) {
  const auto rows = routines(session, db);
  ASSERT_EQ(rows.size(), 17U);
  for (const auto& function : sql_compat_functions()) {
    const std::string name = tk_to_utf8(function.name);
    const std::string create = tk_to_utf8(function.create_statement);
    bool found = false;
    for (const auto& row : rows) {
      if (row[0] != name) continue;
      found = true;
      EXPECT_EQ(row[1], "FUNCTION") << name;
      EXPECT_EQ(row[2], "YES") << name;
      EXPECT_EQ(row[3], create.substr(create.find("BEGIN\n"))) << name;
    }
    EXPECT_TRUE(found) << name;
  }
  session.run("USE `" + db + "`");
  for (const auto& c : expected_calls) EXPECT_EQ(session.scalar("SELECT " + c.call), c.result) << c.call;
}

// Runs a shell command and gives its exit status and everything it wrote.
std::pair<int, std::string> run_command(const std::string& command) {
  std::string output;
  FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return {-1, "popen failed"};
  char buffer[4096];
  std::size_t n = 0;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, n);
  const int status = ::pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

// Replays a file with the stock client, as a DBA would.
std::pair<int, std::string> replay(const std::string& db, const std::string& file) {
  const auto& server = mariadb_server::main();
  const auto& account = server.account();
  return run_command("mariadb --no-defaults --protocol=TCP -h" + server.host() + " -P" + std::to_string(server.port()) +
                     " -u'" + account.user + "' -p'" + account.password + "' '" + db + "' < '" + file + "'");
}

// Issues the table through the engine's connection.
int create_through_engine(sql_engine& engine, std::vector<std::wstring>* sent = nullptr) {
  return sql_create_compat_functions([&](const std::wstring& statement) {
    if (sent != nullptr) sent->push_back(statement);
    engine.run(tk_to_utf8(statement));
  });
}

TEST(SqlCompatFunctionsServer, EveryFunctionIsCreatedAndAnswersAsItsBodySays) {
  scratch_database db("qb_compat");
  headless_errors errors;
  test::log_capture log;
  sql_engine engine;
  test::connect_engine(engine, mariadb_server::main(), mariadb_server::main().account());
  ASSERT_TRUE(engine.is_db_exist(tk_utf8_to_wide(db.name())));

  std::vector<std::wstring> sent;
  EXPECT_EQ(create_through_engine(engine, &sent), 17);
  EXPECT_TRUE(errors.dialogs().empty());
  EXPECT_TRUE(log.has_line("sql_create_compat_functions"));
  ASSERT_EQ(sent.size(), 34U);
  for (std::size_t i = 0; i < 17; ++i) {
    EXPECT_EQ(sent[2 * i], sql_compat_functions()[i].drop_statement);
    EXPECT_EQ(sent[2 * i + 1], sql_compat_functions()[i].create_statement);
  }
  expect_functions_work(db.root(), db.name());
}

TEST(SqlCompatFunctionsServer, IssuingTwiceReplacesTheFunctions) {
  scratch_database db("qb_compat2");
  headless_errors errors;
  sql_engine engine;
  test::connect_engine(engine, mariadb_server::main(), mariadb_server::main().account());
  ASSERT_TRUE(engine.is_db_exist(tk_utf8_to_wide(db.name())));
  EXPECT_EQ(create_through_engine(engine), 17);
  EXPECT_EQ(create_through_engine(engine), 17);
  EXPECT_TRUE(errors.dialogs().empty());
  expect_functions_work(db.root(), db.name());
}

TEST(SqlCompatFunctionsServer, CreateWithoutTheDropIsRefusedOnceTheFunctionExists) {
  // The reason the drop comes first.
  scratch_database db("qb_compat3");
  sql_engine engine;
  test::connect_engine(engine, mariadb_server::main(), mariadb_server::main().account());
  ASSERT_TRUE(engine.is_db_exist(tk_utf8_to_wide(db.name())));
  const std::string create = tk_to_utf8(sql_compat_functions()[0].create_statement);
  engine.run(create);
  try {
    engine.run(create);
    FAIL() << "a second CREATE FUNCTION was accepted";
  } catch (const sql_exception& e) {
    EXPECT_EQ(e.error_number(), 1304U);  // ER_SP_ALREADY_EXISTS
    EXPECT_NE(e.server_message().find("FUNCTION SQUARE already exists"), std::string::npos) << e.server_message();
  }
}

// Writes the table as the dump writes it: each function's drop statement,
// then its create statement, each in the dump's form of a statement.
std::string dump_text(const std::string& eol) {
  std::string text;
  for (const auto& function : sql_compat_functions()) {
    for (const std::wstring& statement : sql_compat_statements(function)) {
      text += dmp_statement_text(tk_to_utf8(statement), eol);
    }
  }
  return text;
}

TEST(SqlCompatFunctionsServer, DumpFileWithUnixLineEndsReplaysWithTheStockClient) {
  scratch_database db("qb_compat_lf");
  test::temp_dir dir;
  const std::string file = dir.file("functions.sql");
  test::write_file(file, dump_text("\n"));
  const auto [status, output] = replay(db.name(), file);
  ASSERT_EQ(status, 0) << output;
  expect_functions_work(db.root(), db.name());
}

TEST(SqlCompatFunctionsServer, DumpFileWithWindowsLineEndsReplaysWithTheStockClient) {
  scratch_database db("qb_compat_crlf");
  test::temp_dir dir;
  const std::string file = dir.file("functions.sql");
  const std::string text = dump_text("\r\n");
  ASSERT_NE(text.find("DELIMITER $$\r\nCREATE FUNCTION SQUARE"), std::string::npos);
  test::write_file(file, text);
  const auto [status, output] = replay(db.name(), file);
  ASSERT_EQ(status, 0) << output;
  // The client reads the line ends away: the bodies are stored as issued.
  expect_functions_work(db.root(), db.name());
}

TEST(SqlCompatFunctionsServer, DumpFileWithoutTheDelimitersIsRefusedByTheClient) {
  // Why the dump wraps the statement: the client would end it at the body's
  // first semicolon.
  scratch_database db("qb_compat_bare");
  test::temp_dir dir;
  const std::string file = dir.file("bare.sql");
  test::write_file(file, tk_to_utf8(sql_compat_functions()[0].create_statement) + ";\n");
  const auto [status, output] = replay(db.name(), file);
  EXPECT_NE(status, 0);
  EXPECT_NE(output.find("ERROR 1064"), std::string::npos) << output;
  EXPECT_TRUE(routines(db.root(), db.name()).empty());
}

// A login of its own with CREATE ROUTINE on the database, and ALTER ROUTINE
// only on the routines named; dropped at the end.
class limited_login {
 public:
  limited_login(scratch_database& db, const std::vector<std::string>& alterable) : db_(db) {
    account_.user = test::unique_name("qb_lim");
    account_.password = "lim-pw-1";
    db_.root().run("CREATE USER '" + account_.user + "'@'127.0.0.1' IDENTIFIED BY '" + account_.password + "'");
    db_.root().run("GRANT CREATE ROUTINE ON `" + db_.name() + "`.* TO '" + account_.user + "'@'127.0.0.1'");
    for (const auto& routine : alterable) {
      db_.root().run("GRANT ALTER ROUTINE ON FUNCTION `" + db_.name() + "`.`" + routine + "` TO '" + account_.user +
                     "'@'127.0.0.1'");
    }
  }
  ~limited_login() {
    try {
      db_.root().run("DROP USER IF EXISTS '" + account_.user + "'@'127.0.0.1'");
    } catch (...) {  // NOLINT(bugprone-empty-catch): a clean-up failure must not hide the test's own
    }
  }
  limited_login(const limited_login&) = delete;
  limited_login& operator=(const limited_login&) = delete;

  [[nodiscard]] const test::mariadb_account& account() const { return account_; }

 private:
  scratch_database& db_;
  test::mariadb_account account_;
};

TEST(SqlCompatFunctionsServer, RefusedFunctionFailsAloneAndTheOthersAreMade) {
  scratch_database db("qb_compat_fail");
  // Every function but STR exists already, and the login may replace those;
  // STR it may not even drop.
  std::vector<std::string> alterable;
  for (const auto& function : sql_compat_functions()) {
    const std::string name = tk_to_utf8(function.name);
    if (name == "STR") continue;
    db.root().run("CREATE FUNCTION `" + db.name() + "`.`" + name + "`() RETURNS INT DETERMINISTIC RETURN 0");
    alterable.push_back(name);
  }
  limited_login login(db, alterable);

  headless_errors errors;
  test::log_capture log;
  sql_engine engine;
  test::connect_engine(engine, mariadb_server::main(), login.account());
  ASSERT_TRUE(engine.is_db_exist(tk_utf8_to_wide(db.name())));

  EXPECT_EQ(create_through_engine(engine), 16);

  const auto dialogs = errors.dialogs();
  ASSERT_EQ(dialogs.size(), 1U);
  const std::string shown = tk_to_utf8(dialogs[0].text);
  EXPECT_TRUE(shown.starts_with("Function 'STR': ")) << shown;
  EXPECT_NE(shown.find("alter routine command denied"), std::string::npos) << shown;
  EXPECT_NE(log.text().find("Error while creating function:\n"), std::string::npos);

  const auto rows = routines(db.root(), db.name());
  EXPECT_EQ(rows.size(), 16U);
  for (const auto& row : rows) EXPECT_NE(row[0], "STR");
  db.root().run("USE `" + db.name() + "`");
  EXPECT_EQ(db.root().scalar("SELECT SQUARE(3)"), "9");
  EXPECT_EQ(db.root().scalar("SELECT DATEADD_MONTH(1, '2024-01-31')"), "2024-02-29 00:00:00");
  EXPECT_EQ(db.root().scalar("SELECT DATEDIFF_YEAR('2026-01-01', '2024-01-01')"), "2");
}

TEST(SqlCompatFunctionsServer, AbortAtAFailedFunctionStopsTheTable) {
  scratch_database db("qb_compat_abort");
  limited_login login(db, {});
  headless_errors errors;
  errors.answer(wizard_shell::answer_abort);
  sql_engine engine;
  test::connect_engine(engine, mariadb_server::main(), login.account());
  ASSERT_TRUE(engine.is_db_exist(tk_utf8_to_wide(db.name())));

  std::vector<std::wstring> sent;
  EXPECT_THROW(create_through_engine(engine, &sent), tk_final_exception);
  EXPECT_EQ(sent, std::vector<std::wstring>{L"DROP FUNCTION IF EXISTS SQUARE"});
  ASSERT_EQ(errors.dialogs().size(), 1U);
  EXPECT_TRUE(tk_to_utf8(errors.dialogs()[0].text).starts_with("Function 'SQUARE': "));
}

TEST(SqlCompatFunctionsServer, ContinuingAfterEachFailureTriesEveryFunction) {
  scratch_database db("qb_compat_cont");
  limited_login login(db, {});
  headless_errors errors;
  sql_engine engine;
  test::connect_engine(engine, mariadb_server::main(), login.account());
  ASSERT_TRUE(engine.is_db_exist(tk_utf8_to_wide(db.name())));

  std::vector<std::wstring> sent;
  EXPECT_EQ(create_through_engine(engine, &sent), 0);
  // Each drop is refused, so no create is sent, and every function is tried.
  ASSERT_EQ(sent.size(), 17U);
  const auto dialogs = errors.dialogs();
  ASSERT_EQ(dialogs.size(), 17U);
  for (std::size_t i = 0; i < 17; ++i) {
    EXPECT_EQ(sent[i], sql_compat_functions()[i].drop_statement);
    EXPECT_TRUE(dialogs[i].text.starts_with(L"Function '" + std::wstring(sql_compat_functions()[i].name) + L"': "));
  }
}

}  // namespace
}  // namespace qb
