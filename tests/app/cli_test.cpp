// quillbridge-cli run as a process: the command line, the start-up failures,
// whole runs into a dump file with their progress, report and exit status,
// errors, interruption by signals, the log and the passwords.
//
// The shipped program reads the SQL Server stand-in over ODBC and FreeTDS and
// connects to the test MariaDB. Failures that no real source produces on
// demand (a connection lost in the middle of a table, a continuable error, a
// source that hangs, an internal error, a failure from outside the
// exception family) come from quillbridge-cli-memory, the same program over
// an in-memory source that has such tables (tests/app/programs/memory_cli.cpp).
#include <csignal>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "app_fixtures.h"
#include "cli_process.h"
#include "support/mariadb_server.h"
#include "support/mss_standin.h"
#include "support/temp_dir.h"

namespace qb::test {
namespace {

const std::string k_program = QB_CLI_PROGRAM;
const std::string k_memory_program = QB_CLI_MEMORY_PROGRAM;

constexpr char k_missing_profile[] = "Profile does not exist. Please verify the correct path/name was given.";
constexpr char k_success[] =
    "Conversion is Completed\n\nWizard has converted your MS SQL database into\nMySQL data source successfully.\n";

// The lines of a text (LF; a CR before it is dropped).
std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(start, end - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(std::move(line));
    start = end + 1;
  }
  return lines;
}

bool has_line(const std::string& text, const std::string& line) {
  for (const std::string& l : lines_of(text)) {
    if (l == line) return true;
  }
  return false;
}

// How many times a text occurs.
std::size_t occurrences(const std::string& text, const std::string& what) {
  std::size_t n = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) ++n;
  return n;
}

// A TCP port of 127.0.0.1 on which nobody listens.
int closed_port() {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t size = sizeof address;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  ::close(fd);
  return ntohs(address.sin_port);
}

// A TCP port of 127.0.0.1 that takes connections and never answers.
class silent_server {
 public:
  silent_server() {
    fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::listen(fd_, 8);
    socklen_t size = sizeof address;
    ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
  }
  ~silent_server() { ::close(fd_); }
  silent_server(const silent_server&) = delete;
  silent_server& operator=(const silent_server&) = delete;
  [[nodiscard]] int port() const { return port_; }

 private:
  int fd_ = -1;
  int port_ = 0;
};

// A login of the stand-in that may not read qbmini.dbo.items, and a second
// table beside it (qbmini of minimal.json holds dbo.items: (1, 'one'),
// (2, 'two')).
constexpr char k_extra_fixture[] = R"json({
  "server": {"users": [{"name": "reader", "password": "Reader#1", "deny_select": ["qbmini.dbo.items"]}]},
  "databases": [{"name": "qbmini", "schemas": [{"name": "dbo", "tables": [
    {"name": "notes", "columns": [{"name": "id", "type": "int", "nullable": false},
                                  {"name": "text", "type": "nvarchar(20)"}],
     "primary_key": {"name": "PK_notes", "columns": ["id"]},
     "rows": [[1, "a"], [2, "b"], [3, "c"]]}]}]}]
})json";

// The rows of the bulk table in the dump file: each begins "(n, 'row", with n
// counting from 1 in order. The last n, or 0 when there are none or one is
// out of place.
std::uint64_t bulk_rows_in_dump(const std::string& sql) {
  const std::size_t table = sql.find("Dumping data for table '[dbo].[bulk_rows]'");
  if (table == std::string::npos) return 0;
  const std::size_t end = sql.find("UNLOCK TABLES;", table);
  const std::string marker = ", 'row";
  std::uint64_t expected = 1;
  for (std::size_t at = sql.find(marker, table); at < end; at = sql.find(marker, at + marker.size())) {
    const std::size_t open = sql.rfind('(', at);
    if (sql.substr(open + 1, at - open - 1) != std::to_string(expected)) return 0;
    ++expected;
  }
  return expected - 1;
}

// The dump file ends as a complete one does.
bool dump_is_complete(const std::string& sql) { return sql.ends_with("/*!40101 SET SQL_MODE=@OLD_SQL_MODE */;\r\n"); }

// ... and its last table's rows are complete too.
bool dump_ends_after_rows(const std::string& sql) {
  return sql.ends_with(");\r\nUNLOCK TABLES;\r\n/*!40101 SET SQL_MODE=@OLD_SQL_MODE */;\r\n");
}

// The record where the report says the run stopped in the bulk table, and
// the rows it says were written; 0 and 0 when it does not say so.
std::pair<std::uint64_t, std::uint64_t> stop_point(const std::string& out, const std::string& of) {
  std::smatch m;
  const std::regex where(R"(The conversion was interrupted in table '\[dbo\]\.\[bulk_rows\]' after record #(\d+) of )" +
                         of + R"(\. The (\d+) rows read until then were written;)");
  if (!std::regex_search(out, m, where)) return {0, 0};
  return {std::stoull(m[1]), std::stoull(m[2])};
}

// What a profile for the stand-in's qbmini holds besides its tables.
struct run_settings {
  std::string login = "sa";
  std::optional<std::string> password;  // none: the stand-in's
  std::string dest;                     // empty: the dump file out.sql
  std::string mysql = "direct mode=0\n";

  run_settings& with_login(std::string value) {
    login = std::move(value);
    return *this;
  }
  run_settings& with_password(std::string value) {
    password = std::move(value);
    return *this;
  }
  run_settings& with_dest(std::string value) {
    dest = std::move(value);
    return *this;
  }
  run_settings& with_mysql(std::string value) {
    mysql = std::move(value);
    return *this;
  }
};

class CliProgram : public ::testing::Test {
 protected:
  // A profile file with the given text.
  std::string profile(const std::string& name, const std::string& text) {
    write_file(dir.file(name), text);
    return dir.file(name);
  }
  // The stand-in with qbmini (minimal.json and the extra fixture); with
  // bulk_rows, also the generated table qbmini.dbo.bulk_rows.
  std::unique_ptr<mss_standin> standin(long long bulk_rows = -1) {
    write_file(dir.file("extra.json"), k_extra_fixture);
    mss_standin_options options;
    options.fixtures = {"minimal.json", dir.file("extra.json")};
    options.bulk_rows = bulk_rows;
    options.bulk_table = "qbmini.dbo.bulk_rows";
    return std::make_unique<mss_standin>(options);
  }
  std::string run_profile(const mss_standin& server, const std::vector<std::string>& tables,
                          const run_settings& settings = run_settings()) {
    std::string text = "[Generic settings]\nsrc=qbmini\ndest=" + (settings.dest.empty() ? dump() : settings.dest) +
                       "\n[MS SQL Server settings]\nserver=127.0.0.1," + std::to_string(server.port()) +
                       "\nlogin=" + settings.login + "\npassword=" + settings.password.value_or(server.password()) +
                       "\nwindows authentication=0\n[MySQL settings]\n" + settings.mysql + "[Selected Tables]\n";
    for (const std::string& table : tables) text += table + "\n";
    return profile("run.qbr", text);
  }
  // A profile for the in-memory source "sales" of quillbridge-cli-memory.
  std::string memory_profile(const std::vector<std::string>& tables) {
    std::string text =
        "[Generic settings]\nsrc=sales\ndest=" + dump() + "\n[MySQL settings]\ndirect mode=0\n" + "[Selected Tables]\n";
    for (const std::string& table : tables) text += table + "\n";
    return profile("memory.qbr", text);
  }
  [[nodiscard]] std::string dump() const { return dir.file("out.sql"); }
  [[nodiscard]] std::string log() const { return read_file(default_log()); }
  [[nodiscard]] std::string default_log() const { return folders.path() + "/Quillbridge.log"; }
  [[nodiscard]] std::string settings() const {
    return file_exists(folders.settings_file()) ? read_file(folders.settings_file()) : std::string();
  }

  // A launch with no password in the environment and no column count.
  [[nodiscard]] static cli_launch launch(const std::string& program, std::vector<std::string> args) {
    cli_launch l;
    l.program = program;
    l.args = std::move(args);
    l.env["QB_MSSQL_PASSWORD"] = std::nullopt;
    l.env["QB_MYSQL_PASSWORD"] = std::nullopt;
    l.env["COLUMNS"] = std::nullopt;
    return l;
  }

  // Runs the bulk table until it has rows in the dump, then signals.
  cli_result interrupt_bulk_table(cli_process& process, int signal) {
    EXPECT_TRUE(process.wait_for_output("[2/3] Converting table [dbo].[bulk_rows] (50000000 records)\n"));
    EXPECT_TRUE(process.wait_for_file(dump(), "INSERT IGNORE INTO `[dbo].[bulk_rows]`"));
    process.send_signal(signal);
    return process.wait();
  }

  user_folders folders;
  temp_dir dir;
};

// --- The command line ----------------------------------------------------------------

TEST_F(CliProgram, HelpPrintsTheUsageAndExitsWithZero) {
  const cli_result r = cli_run(launch(k_program, {"--help"}));
  EXPECT_EQ(r.status, 0);
  EXPECT_TRUE(r.out.starts_with("Usage: quillbridge-cli [OPTIONS] PROFILE.qbr\n")) << r.out;
  EXPECT_NE(r.out.find("--on-error=continue|abort"), std::string::npos);
  EXPECT_NE(r.out.find("QB_MSSQL_PASSWORD"), std::string::npos);
  EXPECT_NE(r.out.find("130  interrupted"), std::string::npos);
  EXPECT_EQ(r.err, "");
  // Nothing started: no log, no settings.
  EXPECT_FALSE(file_exists(default_log()));
  EXPECT_EQ(settings(), "");
}

TEST_F(CliProgram, VersionPrintsTheVersionAndExitsWithZero) {
  const cli_result r = cli_run(launch(k_program, {"--version"}));
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "quillbridge-cli 8.1.0 (Quillbridge 8.1)\n");
  EXPECT_EQ(r.err, "");
}

TEST_F(CliProgram, WithoutAProfileItExitsWithTwo) {
  const cli_result r = cli_run(launch(k_program, {}));
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "quillbridge-cli: no profile given\nTry 'quillbridge-cli --help' for more information.\n");
  EXPECT_EQ(r.out, "");
}

TEST_F(CliProgram, UnknownOptionExitsWithTwo) {
  const cli_result r = cli_run(launch(k_program, {"--fast", dir.file("p.qbr")}));
  EXPECT_EQ(r.status, 2);
  EXPECT_TRUE(r.err.starts_with("quillbridge-cli: unknown option '--fast'\n")) << r.err;
}

TEST_F(CliProgram, WrongOnErrorValueExitsWithTwo) {
  const cli_result r = cli_run(launch(k_program, {"--on-error=retry", dir.file("p.qbr")}));
  EXPECT_EQ(r.status, 2);
  EXPECT_TRUE(r.err.starts_with("quillbridge-cli: --on-error takes 'continue' or 'abort', not 'retry'\n")) << r.err;
}

TEST_F(CliProgram, UnusableLogFileExitsWithTwo) {
  const cli_result r = cli_run(launch(k_program, {"--log", dir.file("none/run.log"), dir.file("p.qbr")}));
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("Logfile path does not exist."), std::string::npos) << r.err;
  EXPECT_FALSE(file_exists(default_log()));
}

// --- Start-up failures ----------------------------------------------------------------

TEST_F(CliProgram, MissingProfileExitsWithTwo) {
  const cli_result r = cli_run(launch(k_program, {dir.file("none.qbr")}));
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, std::string("Error: ") + k_missing_profile + "\n");
  EXPECT_EQ(r.out, "");
  EXPECT_TRUE(has_line(log(), "QUICK LAUNCH: profile=" + dir.file("none.qbr")));
}

TEST_F(CliProgram, QuotedPathIsTakenLiterally) {
  const std::string path = profile("p.qbr", "[Generic settings]\nsrc=sales\n");
  const cli_result r = cli_run(launch(k_program, {"\"" + path + "\""}));
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, std::string("Error: ") + k_missing_profile + "\n");
  EXPECT_TRUE(has_line(log(), "QUICK LAUNCH: profile=\"" + path + "\""));
}

TEST_F(CliProgram, ProfileThatIsNotUtf8ExitsWithTwo) {
  const std::string path = profile("latin1.qbr", "[Generic settings]\nsrc=caf\xe9\n");
  const cli_result r = cli_run(launch(k_program, {path}));
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "Error: The profile " + path + " cannot be read: line 2 is not UTF-8 text.\n");
}

TEST_F(CliProgram, ProfileWithAnOverlongLineExitsWithTwo) {
  const std::string path = profile("long.qbr", "[Generic settings]\nsrc=" + std::string(5000, 'x') + "\n");
  const cli_result r = cli_run(launch(k_program, {path}));
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "Error: The profile " + path + " cannot be read: line 2 is longer than 4095 bytes.\n");
}

TEST_F(CliProgram, WrongSqlServerPasswordExitsWithTwo) {
  const auto server = standin();
  const cli_result r =
      cli_run(launch(k_program, {run_profile(*server, {"dbo.items"}, run_settings().with_password("wrong"))}));
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "Error: Invalid user name or password.\n");
  EXPECT_EQ(r.out, "");
  EXPECT_FALSE(file_exists(dump()));
  EXPECT_TRUE(lines_in_order(
      log(), {"mssql_settings_page::animation::operator()", "mssql_converter_impl::connect_mssql_server(qbmini)"}))
      << log();
  EXPECT_FALSE(has_line(log(), "progress_page::page_init"));
}

TEST_F(CliProgram, DestinationFolderThatDoesNotExistExitsWithTwo) {
  const auto server = standin();
  const std::string path = run_profile(*server, {"dbo.items"}, run_settings().with_dest(dir.file("none/out.sql")));
  const cli_result r = cli_run(launch(k_program, {path}));
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "Error: Destination path does not exist. Please verify the correct path was given.\n");
  EXPECT_EQ(r.out, "");
  EXPECT_FALSE(has_line(log(), "progress_page::page_init"));
}

TEST_F(CliProgram, RefusedMySqlConnectionExitsWithTwo) {
  const auto server = standin();
  const std::string path = run_profile(
      *server, {"dbo.items"},
      run_settings()
          .with_dest("qb_target")
          .with_mysql("direct mode=1\nhost=127.0.0.1\nport=" + std::to_string(closed_port()) + "\nuser=nobody\n"));
  const cli_result r = cli_run(launch(k_program, {path}));
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err,
            "Error: Cannot connect to the MySQL server. Check to verify that MySQL server is launched and the "
            "correct host/port values were given.\n");
}

TEST_F(CliProgram, WrongMySqlPasswordExitsWithTwo) {
  const auto server = standin();
  const mariadb_server& mariadb = mariadb_server::main();
  const std::string path =
      run_profile(*server, {"dbo.items"},
                  run_settings()
                      .with_dest("qb_cli_target")
                      .with_mysql("direct mode=1\nhost=" + mariadb.host() + "\nport=" + std::to_string(mariadb.port()) +
                                  "\nuser=" + mariadb.account().user + "\npassword=wrong\n"));
  const cli_result r = cli_run(launch(k_program, {path}));
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err,
            "Error: Access denied. Verify the user name and password are correct, and you have the necessary "
            "privileges to connect to the target MySQL server.\n");
}

TEST_F(CliProgram, InterruptWhileConnectingQuitsAtOnce) {
  const silent_server server;
  const std::string path =
      profile("p.qbr", "[Generic settings]\nsrc=qbmini\n[MS SQL Server settings]\nserver=127.0.0.1," +
                           std::to_string(server.port()) + "\nlogin=sa\npassword=x\nwindows authentication=0\n");
  cli_process process(launch(k_program, {path}));
  ASSERT_TRUE(process.wait_for_file(default_log(), "mssql_converter_impl::connect_mssql_server(qbmini)")) << log();
  process.send_signal(SIGINT);
  const cli_result r = process.wait();
  EXPECT_EQ(r.status, 130);
  EXPECT_EQ(r.err, "Interrupted.\n");
  EXPECT_TRUE(has_line(log(), "Signal SIGINT received"));
}

// --- Whole runs -------------------------------------------------------------------------

TEST_F(CliProgram, CleanDumpRunExitsWithZeroAndReports) {
  const auto server = standin();
  const cli_result r = cli_run(launch(k_program, {run_profile(*server, {"dbo.items", "dbo.notes"})}));
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_EQ(r.err, "");
  const std::vector<std::string> lines = lines_of(r.out);
  ASSERT_EQ(lines.size(), 14U) << r.out;
  // One plain line a table, numbered, as the log box shows them.
  EXPECT_EQ(lines[0], "Converting database 'qbmini' (2 tables)");
  EXPECT_EQ(lines[1], "[1/2] Converting table [dbo].[items] (2 records)");
  EXPECT_EQ(lines[2], "[2/2] Converting table [dbo].[notes] (3 records)");
  EXPECT_EQ(lines[3], "");
  EXPECT_EQ(r.out.substr(r.out.find("Conversion is")).substr(0, std::string(k_success).size()), k_success);
  EXPECT_EQ(lines[9], "Table '[dbo].[items]': 2 read, 2 written, 0 not written (duplicate keys or errors), 0 warnings");
  EXPECT_EQ(lines[10],
            "Table '[dbo].[notes]': 3 read, 3 written, 0 not written (duplicate keys or errors), 0 warnings");
  EXPECT_TRUE(std::regex_match(lines[11], std::regex(R"(Elapsed time: \d+\.\d s, 5 rows read(, [\d,]+ rows/s)?)")))
      << lines[11];
  EXPECT_EQ(lines[12], "Log file: " + default_log());
  EXPECT_EQ(lines[13], "Dump file: " + dump());
  // No terminal: no live line.
  EXPECT_EQ(r.out.find('\r'), std::string::npos);
  EXPECT_EQ(r.out.find('\x1b'), std::string::npos);

  const std::string sql = read_file(dump());
  EXPECT_EQ(occurrences(sql, "CREATE TABLE"), 2U);
  EXPECT_NE(sql.find("VALUES(1, 'one'), (2, 'two');"), std::string::npos);
  EXPECT_NE(sql.find("VALUES(1, 'a'), (2, 'b'), (3, 'c');"), std::string::npos);
  EXPECT_TRUE(dump_is_complete(sql));
  EXPECT_TRUE(lines_in_order(
      log(), {"QUICK LAUNCH: profile=" + dir.file("run.qbr"), "mssql_settings_page::animation::operator()",
              "mssql_converter_impl::connect_mssql_server(qbmini)", "quillbridge_convertor::check_dest",
              "progress_page::page_init", "quillbridge_convertor::operator()", "gui_finish_page::page_init",
              "Display success-message"}))
      << log();
  // A dump file needs no MySQL server.
  EXPECT_FALSE(has_line(log(), "mysql_converter_impl::connect_mysql_server"));
  // The per-user settings keep what the profile loaded, as after the wizard.
  EXPECT_NE(settings().find("src=wtext:qbmini"), std::string::npos) << settings();
}

TEST_F(CliProgram, TypeMappingsOfTheProfileAreApplied) {
  const auto server = standin();
  const std::string path = run_profile(*server, {"dbo.items"});
  write_file(path, read_file(path) +
                       "[Type Mappings]\n"
                       "database:\n"
                       "tables:\n"
                       "  - name: [dbo].[items]\n"
                       "    new_name: goods\n"
                       "    fields:\n"
                       "      - name:label\n"
                       "        new_name: title\n"
                       "        status: changed\n"
                       "        type: VARCHAR\n"
                       "        default_value: \n"
                       "        character_set: \n"
                       "        length: 60\n"
                       "        scale: 0\n"
                       "        precision: 0\n");
  const cli_result r = cli_run(launch(k_program, {path}));
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_TRUE(
      has_line(r.out, "Table '[dbo].[items]': 2 read, 2 written, 0 not written (duplicate keys or errors), 0 warnings"))
      << r.out;
  const std::string sql = read_file(dump());
  EXPECT_NE(sql.find("CREATE TABLE `goods`"), std::string::npos) << sql;
  EXPECT_NE(sql.find("`title` VARCHAR(60)"), std::string::npos) << sql;
  EXPECT_NE(sql.find("INSERT IGNORE INTO `goods`(`id`, `title`) VALUES(1, 'one'), (2, 'two');"), std::string::npos)
      << sql;
}

TEST_F(CliProgram, RunWithNothingSelectedSucceeds) {
  const auto server = standin();
  const cli_result r = cli_run(launch(k_program, {run_profile(*server, {})}));
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_TRUE(r.out.starts_with("Converting database 'qbmini' (0 tables)\n\n")) << r.out;
  EXPECT_NE(r.out.find(k_success), std::string::npos);
  EXPECT_EQ(r.out.find("Table '"), std::string::npos);
  EXPECT_TRUE(dump_is_complete(read_file(dump())));
}

TEST_F(CliProgram, TableTheLoginMayNotReadFailsAndTheOthersAreConverted) {
  const auto server = standin();
  const cli_result r =
      cli_run(launch(k_program, {run_profile(*server, {"dbo.items", "dbo.notes"},
                                             run_settings().with_login("reader").with_password("Reader#1"))}));
  EXPECT_EQ(r.status, 1) << r.out << r.err;
  const std::string error =
      "[dbo].[items]: You are not allowed to access MS SQL database. Ask your system administrator to grant you "
      "necessary privileges.";
  EXPECT_NE(r.out.find("Conversion is Completed\n\nThere were some errors while converting the database.\n\n" + error +
                       "\n\n"),
            std::string::npos)
      << r.out;
  // The failure as it happened, on standard error.
  EXPECT_EQ(r.err, "Error: " + error + "\n");
  EXPECT_TRUE(has_line(r.out,
                       "Table '[dbo].[items]': 0 read, 0 written, 0 not written (duplicate keys or errors), "
                       "0 warnings - failed"))
      << r.out;
  EXPECT_TRUE(has_line(
      r.out, "Table '[dbo].[notes]': 3 read, 3 written, 0 not written (duplicate keys or errors), 0 warnings"));
  EXPECT_NE(read_file(dump()).find("VALUES(1, 'a'), (2, 'b'), (3, 'c');"), std::string::npos);
  EXPECT_TRUE(has_line(log(), "Display errors"));
}

TEST_F(CliProgram, TwentyErrorsAreListedAndTheRestCounted) {
  const auto server = standin();
  std::vector<std::string> tables;
  for (int i = 1; i <= 21; ++i) tables.push_back("dbo.missing" + std::to_string(i));
  const cli_result r = cli_run(launch(k_program, {"--quiet", run_profile(*server, tables)}));
  EXPECT_EQ(r.status, 1);
  const std::vector<std::string> lines = lines_of(r.out);
  // Heading, failure text, then each error and an empty line, then the count.
  ASSERT_EQ(lines.size(), 4U + 2U * 20U + 1U) << r.out;
  EXPECT_EQ(lines[4], "[dbo].[missing1]: The specified table does not exist.");
  EXPECT_EQ(lines[42], "[dbo].[missing20]: The specified table does not exist.");
  EXPECT_EQ(lines[44], "1 more errors are in the log.");
  EXPECT_EQ(r.out.find("[dbo].[missing21]"), std::string::npos);
}

TEST_F(CliProgram, QuietPrintsOnlyTheOutcomeAndTheErrors) {
  const auto server = standin();
  const cli_result ok = cli_run(launch(k_program, {"--quiet", run_profile(*server, {"dbo.items"})}));
  EXPECT_EQ(ok.status, 0);
  EXPECT_EQ(ok.out, k_success);
  EXPECT_EQ(ok.err, "");

  const cli_result failed =
      cli_run(launch(k_program, {"-q", run_profile(*server, {"dbo.items", "dbo.notes"},
                                                   run_settings().with_login("reader").with_password("Reader#1"))}));
  EXPECT_EQ(failed.status, 1);
  EXPECT_EQ(failed.out,
            "Conversion is Completed\n\nThere were some errors while converting the database.\n\n"
            "[dbo].[items]: You are not allowed to access MS SQL database. Ask your system administrator to grant you "
            "necessary privileges.\n");
  EXPECT_EQ(failed.err, "");
}

TEST_F(CliProgram, PathWithBlanksNeedsNoQuotes) {
  const auto server = standin();
  const std::string path = dir.path() + "/my run.qbr";
  write_file(path, read_file(run_profile(*server, {"dbo.items"})));
  const cli_result r = cli_run(launch(k_program, {"--quiet", dir.path() + "/my", "run.qbr"}));
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(has_line(log(), "QUICK LAUNCH: profile=" + path));
}

// --- Interruption -----------------------------------------------------------------------

TEST_F(CliProgram, InterruptStopsBetweenRecordsAndReportsWhere) {
  const auto server = standin(50'000'000);
  cli_process process(launch(k_program, {run_profile(*server, {"dbo.items", "dbo.bulk_rows", "dbo.notes"})}));
  const cli_result r = interrupt_bulk_table(process, SIGINT);
  EXPECT_EQ(r.status, 130) << r.out << r.err;
  EXPECT_EQ(r.err,
            "Interrupted: the conversion stops after the current record and writes what it has read. Press Ctrl-C "
            "again to quit at once.\n");
  const auto [stopped, written] = stop_point(r.out, "50000000");
  ASSERT_GT(stopped, 0U) << r.out;
  EXPECT_EQ(written, stopped);
  EXPECT_NE(r.out.find("\nConversion was interrupted\n\n"), std::string::npos) << r.out;
  EXPECT_TRUE(has_line(r.out, "Table '[dbo].[bulk_rows]': " + std::to_string(stopped) + " read, " +
                                  std::to_string(stopped) +
                                  " written, 0 not written (duplicate keys or errors), 0 warnings - interrupted"))
      << r.out;
  // The table after it was not started.
  EXPECT_EQ(r.out.find("[dbo].[notes]"), std::string::npos);

  // Every row read reached the dump, in whole statements, and nothing beyond
  // it; the file is complete.
  const std::string sql = read_file(dump());
  EXPECT_EQ(bulk_rows_in_dump(sql), stopped);
  EXPECT_TRUE(dump_ends_after_rows(sql)) << sql.substr(sql.size() > 200 ? sql.size() - 200 : 0);
  EXPECT_TRUE(lines_in_order(log(), {"Signal SIGINT received", "Display interruption"}));
}

TEST_F(CliProgram, TerminateSignalStopsTheRunAsInterruptDoes) {
  const auto server = standin(50'000'000);
  cli_process process(launch(k_program, {run_profile(*server, {"dbo.items", "dbo.bulk_rows", "dbo.notes"})}));
  const cli_result r = interrupt_bulk_table(process, SIGTERM);
  EXPECT_EQ(r.status, 130);
  const auto [stopped, written] = stop_point(r.out, "50000000");
  EXPECT_GT(stopped, 0U) << r.out;
  const std::string sql = read_file(dump());
  EXPECT_EQ(bulk_rows_in_dump(sql), stopped);
  EXPECT_TRUE(dump_ends_after_rows(sql));
  EXPECT_TRUE(has_line(log(), "Signal SIGTERM received"));
}

TEST_F(CliProgram, TerminalShowsOneLiveLineThatFitsItsWidth) {
  const auto server = standin(50'000'000);
  cli_launch l = launch(k_program, {run_profile(*server, {"dbo.items", "dbo.bulk_rows"})});
  l.terminal_columns = 100;
  cli_process process(l);
  // The live line has shown a rate: the table is well under way.
  ASSERT_TRUE(process.wait_for_output(" rows/s"));
  process.send_signal(SIGINT);
  const cli_result r = process.wait();
  EXPECT_EQ(r.status, 130);
  // Each state of the live line is drawn over the last: back to the start of
  // the line, erase it, write.
  const std::string erase = "\r\x1b[K";
  ASSERT_NE(r.out.find(erase + "[2/2] [dbo].[bulk_rows]"), std::string::npos) << r.out;
  std::size_t drawn = 0;
  for (std::size_t at = r.out.find(erase); at != std::string::npos; at = r.out.find(erase, at + 1)) {
    const std::size_t start = at + erase.size();
    const std::size_t end = r.out.find_first_of("\r\n", start);
    const std::string state = r.out.substr(start, end - start);
    if (state.starts_with("[2/2]")) {
      ++drawn;
      EXPECT_LE(state.size(), 99U) << state;
      EXPECT_TRUE(std::regex_match(state, std::regex(R"(\[2/2\] \[dbo\]\.\[bulk_rows\]  [\d,]+/50,000,000 rows.*)")))
          << state;
    }
  }
  EXPECT_GT(drawn, 0U);
  // No per-table lines on a terminal; the report follows the live line.
  EXPECT_EQ(r.out.find("Converting table"), std::string::npos);
  EXPECT_NE(r.out.find("Conversion was interrupted\r\n"), std::string::npos);
}

// --- The log and the passwords ----------------------------------------------------------

TEST_F(CliProgram, LogOptionPutsTheRunsLogThere) {
  const auto server = standin();
  const std::string named = dir.file("run.log");
  write_file(dir.file("profile.log"), "");
  const std::string path = run_profile(*server, {"dbo.items"});
  // The profile names a log of its own: the command line wins.
  write_file(path, read_file(path) + "[Generic settings]\nlogfile=" + dir.file("profile.log") + "\n");
  const cli_result r = cli_run(launch(k_program, {"--log", named, path}));
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_FALSE(file_exists(default_log()));
  const std::string text = read_file(named);
  EXPECT_TRUE(lines_in_order(text, {"QUICK LAUNCH: profile=" + path, "The log stays in " + named + " (--log)",
                                    "progress_page::page_init", "Display success-message"}))
      << text;
  EXPECT_TRUE(has_line(r.out, "Log file: " + named));
  EXPECT_EQ(read_file(dir.file("profile.log")).find("progress_page::page_init"), std::string::npos);
}

TEST_F(CliProgram, SqlServerPasswordComesFromTheEnvironmentWhenTheProfileHasNone) {
  const auto server = standin();
  cli_launch l = launch(k_program, {run_profile(*server, {"dbo.items"}, run_settings().with_password(""))});
  l.env["QB_MSSQL_PASSWORD"] = server->password();
  const cli_result r = cli_run(l);
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_TRUE(has_line(r.out,
                       "Table '[dbo].[items]': 2 read, 2 written, 0 not written (duplicate keys or errors), "
                       "0 warnings"));
  EXPECT_TRUE(lines_in_order(log(), {"The SQL Server password is taken from QB_MSSQL_PASSWORD",
                                     "mssql_converter_impl::connect_mssql_server(qbmini)", "progress_page::page_init"}))
      << log();
  // Used for the run only: the per-user settings do not keep it, and the
  // log does not show it.
  EXPECT_NE(settings(), "");
  EXPECT_EQ(settings().find(server->password()), std::string::npos) << settings();
  EXPECT_EQ(log().find(server->password()), std::string::npos);
}

TEST_F(CliProgram, ProfilePasswordWinsOverTheEnvironment) {
  const auto server = standin();
  cli_launch wrong_in_profile =
      launch(k_program, {run_profile(*server, {"dbo.items"}, run_settings().with_password("wrong"))});
  wrong_in_profile.env["QB_MSSQL_PASSWORD"] = server->password();
  const cli_result a = cli_run(wrong_in_profile);
  EXPECT_EQ(a.status, 2);
  EXPECT_EQ(a.err, "Error: Invalid user name or password.\n");

  cli_launch right_in_profile = launch(k_program, {"--quiet", run_profile(*server, {"dbo.items"})});
  right_in_profile.env["QB_MSSQL_PASSWORD"] = "wrong";
  const cli_result b = cli_run(right_in_profile);
  EXPECT_EQ(b.status, 0) << b.out << b.err;
  EXPECT_FALSE(has_line(log(), "The SQL Server password is taken from QB_MSSQL_PASSWORD"));
}

TEST_F(CliProgram, MySqlPasswordComesFromTheEnvironmentWhenTheProfileHasNone) {
  const auto server = standin();
  const mariadb_server& mariadb = mariadb_server::main();
  // Scenario 1 leaves an existing database alone.
  const std::string path =
      run_profile(*server, {"dbo.items"},
                  run_settings()
                      .with_dest("qb_cli_env")
                      .with_mysql("direct mode=1\nhost=" + mariadb.host() + "\nport=" + std::to_string(mariadb.port()) +
                                  "\nuser=" + mariadb.account().user + "\n"));
  write_file(path, read_file(path) + "[Generic settings]\nmode=1\n");
  cli_launch l = launch(k_program, {path});
  l.env["QB_MYSQL_PASSWORD"] = mariadb.account().password;
  const cli_result r = cli_run(l);
  EXPECT_EQ(r.err.find("Access denied"), std::string::npos) << r.err;
  EXPECT_TRUE(lines_in_order(
      log(), {"The MySQL password is taken from QB_MYSQL_PASSWORD", "mysql_converter_impl::connect_mysql_server",
              "quillbridge_convertor::check_dest", "progress_page::page_init"}))
      << log();
  EXPECT_NE(settings(), "");
  EXPECT_EQ(settings().find(mariadb.account().password), std::string::npos) << settings();
}

// --- Failures no real source gives on demand (the in-memory source) -------------------

TEST_F(CliProgram, TableThatFailsMidwayKeepsItsRowsAndTheOthersAreConverted) {
  const cli_result r = cli_run(launch(k_memory_program, {memory_profile({"dbo.people", "dbo.flaky", "dbo.orders"})}));
  EXPECT_EQ(r.status, 1) << r.out << r.err;
  EXPECT_NE(r.out.find("Conversion is Completed\n\nThere were some errors while converting the database.\n\n"
                       "[dbo].[flaky]: Communication link failure\n\n"),
            std::string::npos)
      << r.out;
  EXPECT_TRUE(has_line(r.out,
                       "Table '[dbo].[flaky]': 50 read, 50 written, 0 not written (duplicate keys or errors), "
                       "0 warnings - failed"));
  EXPECT_TRUE(has_line(r.out,
                       "Table '[dbo].[orders]': 250 read, 250 written, 0 not written (duplicate keys or "
                       "errors), 0 warnings"));
  EXPECT_EQ(r.err, "Error: [dbo].[flaky]: Communication link failure\n");
  // The rows read before the failure are in the dump, and none after them.
  const std::string sql = read_file(dump());
  const std::size_t flaky = sql.find("Dumping data for table '[dbo].[flaky]'");
  ASSERT_NE(flaky, std::string::npos);
  const std::string flaky_rows = sql.substr(flaky, sql.find("UNLOCK TABLES;", flaky) - flaky);
  EXPECT_TRUE(flaky_rows.ends_with("(50, 'row 50');\r\n")) << flaky_rows;
  EXPECT_EQ(occurrences(flaky_rows, "'row "), 50U);
  EXPECT_NE(sql.find("(250, 'row 250');"), std::string::npos);
}

TEST_F(CliProgram, ContinuableErrorIsPassedByDefault) {
  const cli_result r = cli_run(launch(k_memory_program, {memory_profile({"dbo.shaky", "dbo.people"})}));
  EXPECT_EQ(r.status, 1) << r.out << r.err;
  EXPECT_NE(r.out.find("[dbo].[shaky]: Conversion failed when converting the value of row 4\n"), std::string::npos);
  EXPECT_TRUE(has_line(r.out,
                       "Table '[dbo].[people]': 3 read, 3 written, 0 not written (duplicate keys or errors), "
                       "0 warnings"));
  EXPECT_EQ(r.err, "Error: [dbo].[shaky]: Conversion failed when converting the value of row 4\n");
}

TEST_F(CliProgram, OnErrorAbortEndsTheRunAtTheFirstContinuableError) {
  const cli_result r =
      cli_run(launch(k_memory_program, {"--on-error=abort", memory_profile({"dbo.shaky", "dbo.people"})}));
  EXPECT_EQ(r.status, 1) << r.out << r.err;
  EXPECT_NE(r.out.find("There were some errors while converting the database.\n\n"
                       "[dbo].[shaky]: Conversion failed when converting the value of row 4\n"),
            std::string::npos)
      << r.out;
  EXPECT_TRUE(has_line(r.out,
                       "Table '[dbo].[shaky]': 3 read, 3 written, 0 not written (duplicate keys or errors), "
                       "0 warnings - failed"));
  // The table after it was never started.
  EXPECT_EQ(r.out.find("[dbo].[people]"), std::string::npos) << r.out;
  EXPECT_EQ(r.err,
            "Error: [dbo].[shaky]: Conversion failed when converting the value of row 4\n"
            "The conversion is aborted (--on-error=abort).\n");
}

TEST_F(CliProgram, FailureFromOutsideTheFamilyEndsTheRunAndIsReported) {
  const cli_result r = cli_run(launch(k_memory_program, {memory_profile({"dbo.people", "dbo.foreign", "dbo.orders"})}));
  EXPECT_EQ(r.status, 1) << r.out << r.err;
  EXPECT_NE(r.out.find("There were some errors while converting the database.\n\n"
                       "The source returned a row it cannot describe\n\n"),
            std::string::npos)
      << r.out;
  EXPECT_TRUE(has_line(r.out,
                       "Table '[dbo].[foreign]': 1 read, 1 written, 0 not written (duplicate keys or errors), "
                       "0 warnings - failed"));
  // The run ended there.
  EXPECT_EQ(r.out.find("Table '[dbo].[orders]'"), std::string::npos);
  EXPECT_EQ(r.err, "Error: The source returned a row it cannot describe\n");
}

TEST_F(CliProgram, InternalErrorEndsTheProcessWithMinusOne) {
  const cli_result r = cli_run(launch(k_memory_program, {memory_profile({"dbo.misuse", "dbo.people"})}));
  EXPECT_EQ(r.status, 255);
  EXPECT_TRUE(r.err.starts_with("Internal error: \ncode=")) << r.err;
  EXPECT_NE(log().find("Internal error:\n"), std::string::npos);
}

TEST_F(CliProgram, SecondInterruptQuitsAtOnce) {
  // The source hangs in its second record, so the run cannot reach the
  // point where it would stop.
  cli_process process(launch(k_memory_program, {memory_profile({"dbo.stuck"})}));
  ASSERT_TRUE(process.wait_for_output("[1/1] Converting table [dbo].[stuck] (10 records)\n"));
  process.send_signal(SIGINT);
  ASSERT_TRUE(process.wait_for_error("Press Ctrl-C again to quit at once.\n"));
  process.send_signal(SIGINT);
  const cli_result r = process.wait();
  EXPECT_EQ(r.status, 130);
  EXPECT_TRUE(r.err.ends_with("Interrupted again: quitting at once.\n")) << r.err;
  // No report: the process ended at once.
  EXPECT_EQ(r.out.find("Conversion was interrupted"), std::string::npos) << r.out;
}

}  // namespace
}  // namespace qb::test
