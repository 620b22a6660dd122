// The parts of quillbridge-cli that need no process: the command line, the
// progress line, the report and its exit status, the console and the shell.
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "app/cli_console.h"
#include "app/cli_front_end.h"
#include "app/cli_options.h"
#include "app/cli_progress.h"
#include "app/cli_report.h"
#include "app/cli_shell.h"
#include "tk/error_handler.h"
#include "tk/error_tables.h"
#include "tk/exception.h"

#include "support/temp_dir.h"

namespace qb::test {
namespace {

cli_parse_result parse(std::vector<const char*> args) {
  args.insert(args.begin(), "quillbridge-cli");
  return cli_parse_arguments(static_cast<int>(args.size()), args.data());
}

// --- Command line -------------------------------------------------------------------

TEST(CliOptions, RestOfTheArgumentsIsThePathJoinedWithSingleBlanks) {
  const cli_parse_result r = parse({"--quiet", "/srv/my", "saved", "profile.qbr"});
  EXPECT_EQ(r.error, "");
  EXPECT_TRUE(r.options.quiet);
  EXPECT_EQ(r.options.profile, "/srv/my saved profile.qbr");
}

TEST(CliOptions, OptionsAfterThePathArePartOfIt) {
  const cli_parse_result r = parse({"p.qbr", "--quiet"});
  EXPECT_EQ(r.error, "");
  EXPECT_FALSE(r.options.quiet);
  EXPECT_EQ(r.options.profile, "p.qbr --quiet");
}

TEST(CliOptions, DoubleDashEndsTheOptions) {
  const cli_parse_result r = parse({"--", "-odd.qbr"});
  EXPECT_EQ(r.error, "");
  EXPECT_EQ(r.options.profile, "-odd.qbr");
}

TEST(CliOptions, QuotesArePartOfThePath) { EXPECT_EQ(parse({"\"a b.qbr\""}).options.profile, "\"a b.qbr\""); }

TEST(CliOptions, OnErrorTakesContinueOrAbortInBothForms) {
  EXPECT_FALSE(parse({"p"}).options.abort_on_error);
  EXPECT_TRUE(parse({"--on-error=abort", "p"}).options.abort_on_error);
  EXPECT_TRUE(parse({"--on-error", "abort", "p"}).options.abort_on_error);
  EXPECT_FALSE(parse({"--on-error=abort", "--on-error=continue", "p"}).options.abort_on_error);
  EXPECT_EQ(parse({"--on-error=later", "p"}).error, "--on-error takes 'continue' or 'abort', not 'later'");
  EXPECT_EQ(parse({"--on-error"}).error, "option --on-error needs a value");
}

TEST(CliOptions, LogTakesAFileInBothForms) {
  EXPECT_EQ(parse({"--log", "/tmp/a.log", "p"}).options.log_file, "/tmp/a.log");
  EXPECT_EQ(parse({"--log=/tmp/b.log", "p"}).options.log_file, "/tmp/b.log");
  EXPECT_EQ(parse({"--log=", "p"}).error, "--log needs a file name");
  EXPECT_EQ(parse({"--log"}).error, "option --log needs a value");
}

TEST(CliOptions, UnknownOptionIsAnError) {
  EXPECT_EQ(parse({"--logfile=x", "p"}).error, "unknown option '--logfile=x'");
  EXPECT_EQ(parse({"-x", "p"}).error, "unknown option '-x'");
}

TEST(CliOptions, AProfileIsRequiredUnlessHelpOrVersion) {
  EXPECT_EQ(parse({}).error, "no profile given");
  EXPECT_EQ(parse({"--quiet"}).error, "no profile given");
  EXPECT_EQ(parse({"--help"}).error, "");
  EXPECT_TRUE(parse({"-h"}).options.help);
  EXPECT_TRUE(parse({"--version"}).options.version);
}

TEST(CliOptions, ALoneDashIsAPath) { EXPECT_EQ(parse({"-"}).options.profile, "-"); }

// --- Progress line -------------------------------------------------------------------

using clock_type = cli_progress_meter::clock;

cli_progress_sample progress_sample(std::uint32_t tables, std::uint32_t done, std::wstring name, std::uint64_t records,
                                    std::uint64_t done_records) {
  return {tables, done, records, done_records, std::move(name)};
}

TEST(CliProgress, ShowsTableNOfNRowsRateAndEstimate) {
  cli_progress_meter meter;
  const clock_type::time_point t0{};
  EXPECT_EQ(meter.line(progress_sample(5, 1, L"[dbo].[orders]", 100000, 0), t0, 100),
            "[2/5] [dbo].[orders]  0/100,000 rows");
  const std::string later =
      meter.line(progress_sample(5, 1, L"[dbo].[orders]", 100000, 20000), t0 + std::chrono::seconds(2), 100);
  EXPECT_EQ(later, "[2/5] [dbo].[orders]  20,000/100,000 rows  10,000 rows/s  ETA 0:08");
}

TEST(CliProgress, RateStartsAgainWithEachTable) {
  cli_progress_meter meter;
  const clock_type::time_point t0{};
  meter.line(progress_sample(2, 0, L"a", 10, 0), t0, 100);
  meter.line(progress_sample(2, 0, L"a", 10, 10), t0 + std::chrono::seconds(1), 100);
  // The next table: nothing measured yet.
  EXPECT_EQ(meter.line(progress_sample(2, 1, L"b", 600, 0), t0 + std::chrono::seconds(5), 100), "[2/2] b  0/600 rows");
  EXPECT_EQ(meter.line(progress_sample(2, 1, L"b", 600, 300), t0 + std::chrono::seconds(65), 100),
            "[2/2] b  300/600 rows  5 rows/s  ETA 1:00");
}

TEST(CliProgress, LongNameIsShortenedThenTheEstimateAndRateLeave) {
  cli_progress_meter meter;
  const clock_type::time_point t0{};
  const std::wstring name = L"[sales].[order_lines_of_the_year_2023_archived]";
  meter.line(progress_sample(12, 9, name, 5000000, 0), t0, 200);
  const clock_type::time_point t1 = t0 + std::chrono::seconds(10);
  const cli_progress_sample now = progress_sample(12, 9, name, 5000000, 1000000);
  EXPECT_EQ(meter.line(now, t1, 200),
            "[10/12] [sales].[order_lines_of_the_year_2023_archived]  1,000,000/5,000,000 rows  100,000 rows/s  ETA "
            "0:40");
  const std::string at_80 = meter.line(now, t1, 80);
  EXPECT_EQ(at_80, "[10/12] [sales].[order_li...  1,000,000/5,000,000 rows  100,000 rows/s  ETA 0:40");
  EXPECT_EQ(at_80.size(), 80U);
  EXPECT_EQ(meter.line(now, t1, 60), "[10/12] [sales].[order_lines_of...  1,000,000/5,000,000 rows");
  EXPECT_EQ(meter.line(now, t1, 50), "[10/12] [sales].[orde...  1,000,000/5,000,000 rows");
  EXPECT_EQ(meter.line(now, t1, 20), "[10/12]   1,000,000/");
}

TEST(CliProgress, CaptionsBeforeTheFirstAndAfterTheLastTable) {
  cli_progress_meter meter;
  const clock_type::time_point t0{};
  EXPECT_EQ(meter.line(progress_sample(0, 0, L"", 0, 0), t0, 80), "Opening the source and the destination");
  // The driver sets the counts to 0 for the closing stage; the name stays.
  EXPECT_EQ(meter.line(progress_sample(0, 0, L"[dbo].[last]", 10, 10), t0, 80), "Converting table relationships");
  EXPECT_EQ(meter.line(progress_sample(0, 0, L"", 0, 0), t0, 10), "Opening th");
}

TEST(CliProgress, NumbersAreGroupedAndDurationsReadable) {
  EXPECT_EQ(cli_group_digits(0), "0");
  EXPECT_EQ(cli_group_digits(999), "999");
  EXPECT_EQ(cli_group_digits(1000), "1,000");
  EXPECT_EQ(cli_group_digits(1234567), "1,234,567");
  EXPECT_EQ(cli_group_digits(18446744073709551615ULL), "18,446,744,073,709,551,615");
  EXPECT_EQ(cli_duration(std::chrono::seconds(0)), "0:00");
  EXPECT_EQ(cli_duration(std::chrono::seconds(599)), "9:59");
  EXPECT_EQ(cli_duration(std::chrono::seconds(3600)), "1:00:00");
  EXPECT_EQ(cli_duration(std::chrono::seconds(90061)), "25:01:01");
}

// --- Report --------------------------------------------------------------------------

udb_table_report table(const std::wstring& name, std::uint64_t read, std::uint64_t written) {
  udb_table_report t;
  t.name = name;
  t.read = read;
  t.written = written;
  t.not_written = read - written;
  return t;
}

cli_report_input finished_run() {
  cli_report_input input;
  input.tables = {table(L"[dbo].[people]", 1000, 998), table(L"[dbo].[orders]", 50, 50)};
  input.work_list = {L"[dbo].[people]", L"[dbo].[orders]"};
  input.views.attempted = true;
  input.views.counted = true;
  input.views.created = 12;
  input.views.failed = 3;
  input.views_selected = true;
  input.seconds = 2.0;
  input.log_file = "/home/ann/Documents/Quillbridge.log";
  input.destination = "Dump file: /srv/sales.sql";
  return input;
}

TEST(CliReport, SuccessIsTheFinishPagesTextWithTheFigures) {
  const cli_report_input input = finished_run();
  EXPECT_EQ(cli_outcome_of(input), cli_outcome::success);
  EXPECT_EQ(cli_exit_code(cli_outcome_of(input)), 0);
  EXPECT_EQ(cli_report_text(input, false),
            "Conversion is Completed\n"
            "\n"
            "Wizard has converted your MS SQL database into\n"
            "MySQL data source successfully.\n"
            "\n"
            "Table '[dbo].[people]': 1000 read, 998 written, 2 not written (duplicate keys or errors), 0 warnings\n"
            "Table '[dbo].[orders]': 50 read, 50 written, 0 not written (duplicate keys or errors), 0 warnings\n"
            "Views: 12 converted, 3 failed\n"
            "Elapsed time: 2.0 s, 1,050 rows read, 525 rows/s\n"
            "Log file: /home/ann/Documents/Quillbridge.log\n"
            "Dump file: /srv/sales.sql");
  EXPECT_EQ(cli_report_text(input, true),
            "Conversion is Completed\n\nWizard has converted your MS SQL database into\nMySQL data source "
            "successfully.");
}

TEST(CliReport, ErrorsFollowTheFailureTextEachWithAnEmptyLine) {
  cli_report_input input = finished_run();
  input.tables[1].failed = true;
  input.errors = {"[dbo].[orders], record #7: Duplicate entry '7' for key 'PRIMARY'", "[dbo].[orders]: Lost"};
  input.failures = 2;
  EXPECT_EQ(cli_exit_code(cli_outcome_of(input)), 1);
  EXPECT_EQ(cli_report_text(input, true),
            "Conversion is Completed\n"
            "\n"
            "There were some errors while converting the database.\n"
            "\n"
            "[dbo].[orders], record #7: Duplicate entry '7' for key 'PRIMARY'\n"
            "\n"
            "[dbo].[orders]: Lost");
  EXPECT_NE(cli_report_text(input, false)
                .find("Table '[dbo].[orders]': 50 read, 50 written, 0 not written (duplicate keys or errors), 0 "
                      "warnings - failed\n"),
            std::string::npos);
}

TEST(CliReport, ErrorsBeyondTheTwentyShownAreCounted) {
  cli_report_input input = finished_run();
  for (int i = 1; i <= 20; ++i) input.errors.push_back("error " + std::to_string(i));
  input.failures = 21;
  const std::string text = cli_report_text(input, true);
  EXPECT_NE(text.find("error 20\n\n1 more errors are in the log."), std::string::npos) << text;
}

TEST(CliReport, AFailedTableAloneMeansErrors) {
  cli_report_input input = finished_run();
  input.tables[0].failed = true;
  EXPECT_EQ(cli_outcome_of(input), cli_outcome::errors);
}

TEST(CliReport, RunThatCouldNotOpenItsDatabasesDidNotStart) {
  cli_report_input input;
  input.opened = false;
  input.errors = {"Cannot open database \"sales\"."};
  input.failures = 1;
  input.destination = "Dump file: /srv/sales.sql";
  EXPECT_EQ(cli_exit_code(cli_outcome_of(input)), 2);
  EXPECT_EQ(cli_report_text(input, false),
            "Conversion could not start\n\nCannot open database \"sales\".\n\nElapsed time: 0.0 s, 0 rows read\n"
            "Dump file: /srv/sales.sql");
}

TEST(CliReport, InterruptedInATableSaysWhere) {
  cli_report_input input = finished_run();
  input.interrupted = true;
  input.tables[1] = table(L"[dbo].[orders]", 4000, 4000);
  input.tables[1].cancelled = true;
  input.work_list.emplace_back(L"[dbo].[lines]");
  input.views = {};
  input.last_record = 4000;
  input.last_records = 90000;
  EXPECT_EQ(cli_exit_code(cli_outcome_of(input)), 130);
  EXPECT_EQ(cli_report_text(input, true),
            "Conversion was interrupted\n\nThe conversion was interrupted in table '[dbo].[orders]' after record "
            "#4000 of 90000. The 4000 rows read until then were written; the rest of the table, the tables after "
            "it, relationships and views were not converted.");
  EXPECT_NE(cli_report_text(input, false).find("0 warnings - interrupted\nViews: not converted\n"), std::string::npos);
}

TEST(CliReport, InterruptedBeforeItsFirstRecord) {
  cli_report_input input = finished_run();
  input.interrupted = true;
  input.tables[1].cancelled = true;
  input.tables[1].read = input.tables[1].written = 0;
  input.last_record = 0;
  EXPECT_NE(cli_stop_text(input).find("in table '[dbo].[orders]' before its first record. The 0 rows"),
            std::string::npos);
}

TEST(CliReport, InterruptedBetweenTablesNamesTheNext) {
  cli_report_input input = finished_run();
  input.interrupted = true;
  input.tables.pop_back();
  input.views = {};
  EXPECT_EQ(cli_stop_text(input),
            "The conversion was interrupted before table '[dbo].[orders]' (1 of 2 tables done). The tables from "
            "there on, relationships and views were not converted.");
}

TEST(CliReport, InterruptedAfterTheLastTable) {
  cli_report_input input = finished_run();
  input.interrupted = true;
  EXPECT_EQ(cli_stop_text(input),
            "The conversion was interrupted after its last table; relationships and views were converted.");
  input.views = {};
  EXPECT_NE(cli_stop_text(input).find("relationships and views may be missing"), std::string::npos);
}

TEST(CliReport, InterruptedWithErrorsListsThem) {
  cli_report_input input = finished_run();
  input.interrupted = true;
  input.errors = {"[dbo].[people]: Lost"};
  input.failures = 1;
  const std::string text = cli_report_text(input, true);
  EXPECT_TRUE(text.starts_with("Conversion was interrupted\n\n")) << text;
  EXPECT_TRUE(text.ends_with("\n\nThere were some errors while converting the database.\n\n[dbo].[people]: Lost"))
      << text;
}

TEST(CliReport, SkippedTablesAndUncountedViews) {
  cli_report_input input = finished_run();
  input.tables[0].skipped = true;
  input.views.counted = false;
  input.views.handed = 4;
  const std::string text = cli_report_text(input, false);
  EXPECT_NE(text.find("Table '[dbo].[people]': skipped, it exists at the destination\n"), std::string::npos);
  EXPECT_NE(text.find("Views: 4 handed to the destination\n"), std::string::npos);
  input.views.handed = 0;
  input.views_selected = false;
  EXPECT_EQ(cli_report_text(input, false).find("Views:"), std::string::npos);
}

TEST(CliReport, LongRunsShowHoursMinutesSeconds) {
  cli_report_input input = finished_run();
  input.seconds = 3725.4;
  EXPECT_NE(cli_report_text(input, false).find("Elapsed time: 1:02:05, 1,050 rows read, 0 rows/s"), std::string::npos);
}

// --- Console -------------------------------------------------------------------------

class captured_streams {
 public:
  captured_streams() : out(std::tmpfile()), err(std::tmpfile()) {}
  ~captured_streams() {
    std::fclose(out);
    std::fclose(err);
  }
  captured_streams(const captured_streams&) = delete;
  captured_streams& operator=(const captured_streams&) = delete;
  static std::string text(std::FILE* f) {
    std::fflush(f);
    std::rewind(f);
    std::string s;
    for (int c = std::fgetc(f); c != EOF; c = std::fgetc(f)) s += static_cast<char>(c);
    return s;
  }
  std::FILE* out;
  std::FILE* err;
};

TEST(CliConsole, OffATerminalThereIsNoLiveLine) {
  captured_streams s;
  cli_console console(s.out, s.err, false);
  console.status("[1/2] a  1/2 rows");
  console.line("one");
  console.error_line("Error: two");
  console.clear_status();
  EXPECT_EQ(captured_streams::text(s.out), "one\n");
  EXPECT_EQ(captured_streams::text(s.err), "Error: two\n");
}

TEST(CliConsole, OnATerminalLinesGoAboveTheLiveLine) {
  captured_streams s;
  cli_console console(s.out, s.err, true);
  console.status("first");
  console.status("second");
  console.line("a line");
  console.clear_status();
  EXPECT_EQ(captured_streams::text(s.out), "\r\x1b[Kfirst\r\x1b[Ksecond\r\x1b[Ka line\nsecond\r\x1b[K");
}

TEST(CliConsole, FittingCountsCharactersNotBytes) {
  EXPECT_EQ(cli_fit_columns("abcdef", 4), "abcd");
  EXPECT_EQ(cli_fit_columns("\xc3\xa5sa \xc3\xa5sa", 5), "\xc3\xa5sa \xc3\xa5");
  EXPECT_EQ(cli_fit_columns("abc", 0), "");
  EXPECT_EQ(cli_fit_columns("abc", 10), "abc");
}

TEST(CliConsole, MessagesKeepTheirLineBreaksAsLineFeeds) {
  EXPECT_EQ(cli_message_text(L"Failed to load.\r\nInstall it.\r\n"), "Failed to load.\nInstall it.");
  EXPECT_EQ(cli_message_text(L"a\rb\nc"), "a\nb\nc");
}

// --- Shell ---------------------------------------------------------------------------

TEST(CliShell, FailuresDuringTheRunAreCountedAndBoxesKept) {
  captured_streams s;
  cli_console console(s.out, s.err, false);
  {
    cli_shell shell(console, false, {});
    wizard_shell::error(L"before the run");
    shell.set_running(true);
    wizard_shell::error(L"line one\nline two");
    bool do_not_show = false;
    EXPECT_EQ(wizard_shell::continue_or_abort(L"a record", do_not_show), wizard_shell::answer_continue);
    shell.set_running(false);
    EXPECT_EQ(shell.run_failures(), 2U);
    EXPECT_EQ(shell.run_error_boxes(), std::vector<std::string>{"line one line two"});
  }
  EXPECT_EQ(captured_streams::text(s.err), "Error: before the run\nError: line one\nline two\nError: a record\n");
}

TEST(CliShell, QuietLeavesFailuresOfTheRunToTheReport) {
  captured_streams s;
  cli_console console(s.out, s.err, false);
  {
    cli_shell shell(console, true, {});
    shell.set_running(true);
    wizard_shell::error(L"in the run");
    wizard_shell::write_log(L"Converting table [dbo].[a] (3 records)\r\n");
    shell.set_running(false);
    wizard_shell::error(L"after the run");
  }
  EXPECT_EQ(captured_streams::text(s.err), "Error: after the run\n");
  EXPECT_EQ(captured_streams::text(s.out), "");
}

TEST(CliShell, AbortIsAnsweredAndSaid) {
  captured_streams s;
  cli_console console(s.out, s.err, false);
  headless_policy policy;
  policy.continue_answer = wizard_shell::answer_abort;
  cli_shell shell(console, false, policy);
  bool do_not_show = false;
  EXPECT_EQ(wizard_shell::continue_or_abort(L"bad row", do_not_show), wizard_shell::answer_abort);
  EXPECT_EQ(captured_streams::text(s.err), "Error: bad row\nThe conversion is aborted (--on-error=abort).\n");
}

TEST(CliShell, LogBoxLinesArePrintedOffATerminalOnly) {
  captured_streams s;
  cli_console console(s.out, s.err, false);
  {
    cli_shell shell(console, false, {});
    shell.set_running(true);
    wizard_shell::write_log(L"Converting database 'sales' (2 tables)\r\n");
    EXPECT_TRUE(shell.run_opened());
    wizard_shell::write_log(L"Converting table [dbo].[a] (3 records)\r\n");
  }
  EXPECT_EQ(captured_streams::text(s.out),
            "Converting database 'sales' (2 tables)\nConverting table [dbo].[a] (3 records)\n");

  captured_streams t;
  cli_console terminal(t.out, t.err, true);
  cli_shell shell(terminal, false, {});
  wizard_shell::write_log(L"Converting database 'sales' (2 tables)\r\n");
  EXPECT_EQ(captured_streams::text(t.out), "");
}

// --- Profile passwords ---------------------------------------------------------------

TEST(CliProfilePasswords, AnEmptyOrAbsentPasswordIsNone) {
  temp_dir dir;
  write_file(dir.file("a.qbr"), "[MS SQL Server settings]\npassword=  \n[MySQL settings]\npassword=s=e=c\n");
  const cli_profile_passwords a = cli_read_profile_passwords(dir.file("a.qbr"));
  EXPECT_FALSE(a.mssql);
  EXPECT_TRUE(a.mysql);
  write_file(dir.file("b.qbr"), "[MS SQL Server settings]\npassword=x\n");
  const cli_profile_passwords b = cli_read_profile_passwords(dir.file("b.qbr"));
  EXPECT_TRUE(b.mssql);
  EXPECT_FALSE(b.mysql);
  const cli_profile_passwords none = cli_read_profile_passwords(dir.file("none.qbr"));
  EXPECT_FALSE(none.mssql);
  EXPECT_FALSE(none.mysql);
}

}  // namespace
}  // namespace qb::test
