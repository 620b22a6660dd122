#include "tk/error_handler.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "tk/error_tables.h"
#include "tk/headless_shell.h"
#include "tk/strings.h"

#include "support/log_lines.h"
#include "support/temp_dir.h"

namespace qb {
namespace {

using call_kind = headless_shell::call_kind;
using test::count_lines;
using test::lines_in_order;
using test::log_capture;
using test::temp_dir;
using test::write_file;

// A failure with a code, as the database layers raise them.
class coded_exception : public tk_exception {
 public:
  coded_exception(const std::string& text, std::uint32_t code, int level) : tk_exception(text, level) {
    set_code(code);
  }
};

constexpr std::uint32_t k_access_denied = 0x400415;  // MySQL 1045
constexpr char k_access_denied_text[] =
    "Access denied. Verify the user name and password are correct, and you have\nthe necessary privileges to "
    "connect to the target MySQL server.";

// The program as the entry routine sets it up: a log, the handler with both
// tables, and a shell whose first page has been shown.
class ErrorHandler : public ::testing::Test {
 protected:
  ErrorHandler() : handler_(tk_source_errors.size(), tk_source_errors.data()) {
    handler_.load_err_map(tk_destination_errors.size(), tk_destination_errors.data());
    shell_.set_initialized(true);
  }

  void answer(int continue_answer, bool tick) {
    headless_shell::policy answers = shell_.get_policy();
    answers.continue_answer = continue_answer;
    answers.tick_do_not_show = tick;
    shell_.set_policy(answers);
  }

  std::vector<headless_shell::call> dialogs() const { return shell_.calls_of(call_kind::continue_or_abort); }
  std::vector<headless_shell::call> boxes() const { return shell_.calls_of(call_kind::error); }

  log_capture log_;
  headless_shell shell_{L"Q"};
  error_handler handler_;
};

TEST_F(ErrorHandler, CodeWithARowShowsTheRowsTextInsteadOfItsOwn) {
  handler_.handle(coded_exception("1045 raw server text", k_access_denied, 0), false);
  handler_.set_context(L"Table 'orders'");
  handler_.handle(coded_exception("1045 raw server text", k_access_denied, 0), false);

  std::string shown = k_access_denied_text;
  std::replace(shown.begin(), shown.end(), '\n', ' ');
  const auto d = dialogs();
  ASSERT_EQ(d.size(), 2U);
  EXPECT_EQ(d[0].text, tk_utf8_to_wide(shown));
  EXPECT_EQ(d[1].text, tk_utf8_to_wide("Table 'orders': " + shown));
  EXPECT_EQ(d[1].title, L"Q Error");
  EXPECT_TRUE(log_.has_line(std::string("Error:\nTable 'orders': ") + k_access_denied_text));
  EXPECT_EQ(shell_.errors(), (std::vector<std::string>{shown, "Table 'orders': " + shown}));
}

TEST_F(ErrorHandler, CodeWithoutARowShowsTheFailuresOwnText) {
  handler_.handle(coded_exception("Unknown column 'x'", 0x400000 + 1054, 0), false);
  const auto d = dialogs();
  ASSERT_EQ(d.size(), 1U);
  EXPECT_EQ(d[0].text, L"Unknown column 'x'");
  EXPECT_TRUE(lines_in_order(
      log_.text(),
      {"error_handler::handle", "tk_error_converter::convert(4195358)", "Error message not found!",
       "Error:\nUnknown column 'x'", "Got 0-level error", "dlg_error_continue::ctor", "dlg_error_continue::on_init"}));
}

TEST_F(ErrorHandler, MessageWithLineFeedsIsLoggedWithThemAndShownWithBlanks) {
  handler_.handle(tk_exception("first line\nsecond line\nthird", 1), false);
  const auto b = boxes();
  ASSERT_EQ(b.size(), 1U);
  EXPECT_EQ(b[0].text, L"first line second line third");
  EXPECT_TRUE(log_.has_line("Error:\nfirst line\nsecond line\nthird"));
  EXPECT_EQ(shell_.errors(), (std::vector<std::string>{"first line second line third"}));
}

TEST_F(ErrorHandler, TwentyFirstErrorIsLoggedAndShownButDoesNotReachTheFinishPage) {
  for (int i = 1; i <= 21; ++i) handler_.handle(tk_exception("failure " + std::to_string(i), 0), true);
  EXPECT_EQ(dialogs().size(), 21U);
  EXPECT_EQ(dialogs().back().text, L"failure 21");
  EXPECT_TRUE(log_.has_line("Error:\nfailure 21"));
  const auto kept = shell_.errors();
  ASSERT_EQ(kept.size(), 20U);
  EXPECT_EQ(kept.back(), "failure 20");
}

TEST_F(ErrorHandler, LevelZeroAfterDoNotShowAndContinueShowsNothingAndReturns) {
  answer(wizard_shell::answer_continue, true);
  handler_.handle(tk_exception("first", 0), false);
  EXPECT_TRUE(handler_.suppress_dialogs());
  answer(wizard_shell::answer_abort, false);  // would abort if it were asked
  handler_.handle(tk_exception("second", 0), false);
  EXPECT_EQ(dialogs().size(), 1U);
  EXPECT_EQ(count_lines(log_.text(), "Got 0-level error"), 2);
  EXPECT_EQ(count_lines(log_.text(), "dlg_error_continue::ctor"), 1);
  // Still logged and kept for the finish page.
  EXPECT_TRUE(log_.has_line("Error:\nsecond"));
  EXPECT_EQ(shell_.errors().size(), 2U);
}

TEST_F(ErrorHandler, AbortWithTheBoxTickedLeavesBeforeStoringTheSuppression) {
  answer(wizard_shell::answer_abort, true);
  EXPECT_THROW(handler_.handle(tk_exception("row failed", 0), false), tk_final_exception);
  EXPECT_FALSE(handler_.suppress_dialogs());
  EXPECT_TRUE(log_.has_line("tk_final_exception::ctor"));
}

TEST_F(ErrorHandler, AbortWhenAbortIsNotAllowedGoesOnAsContinueAndStoresTheBox) {
  answer(wizard_shell::answer_abort, true);
  EXPECT_NO_THROW(handler_.handle(tk_exception("outermost", 0), true));
  EXPECT_TRUE(handler_.suppress_dialogs());
  EXPECT_FALSE(log_.has_line("tk_final_exception::ctor"));
}

TEST_F(ErrorHandler, DialogThatCannotBeShownCountsAsContinue) {
  answer(wizard_shell::answer_not_shown, true);
  EXPECT_NO_THROW(handler_.handle(tk_exception("nobody sees it", 0), false));
  EXPECT_FALSE(handler_.suppress_dialogs());
}

TEST_F(ErrorHandler, LevelOneShowsAnErrorBoxAndOpensTheHelpTopicsOfItsCode) {
  const temp_dir dir;
  headless_shell::policy answers = shell_.get_policy();
  answers.help_file = dir.file("help.chm");
  write_file(answers.help_file, "help");
  shell_.set_policy(answers);
  handler_.add_help_topic(0x4004E1, 1018);
  handler_.add_help_topic(0x400414, 1011);

  handler_.handle(coded_exception("auth", 0x4004E1, 1), false);
  ASSERT_EQ(boxes().size(), 1U);
  const auto help = shell_.calls_of(call_kind::help);
  ASSERT_EQ(help.size(), 1U);
  EXPECT_EQ(help[0].topic, 1018);
  EXPECT_TRUE(lines_in_order(log_.text(), {"Got 1-level error", "Step 1",
                                           "wizard_shell::error(The program does not "
                                           "support authentication protocol requested by server. See "
                                           "'Troubleshooting' article of the product documentation.)",
                                           "Step 2", "wizard_shell::display_help(1018)"}));
}

TEST_F(ErrorHandler, LevelOneWithSuppressionStillLogsAndStillWalksTheHelp) {
  const temp_dir dir;
  headless_shell::policy answers = shell_.get_policy();
  answers.help_file = dir.file("help.chm");
  write_file(answers.help_file, "help");
  shell_.set_policy(answers);
  handler_.add_help_topic(7, 1024);
  handler_.set_suppress_dialogs(true);

  handler_.handle(coded_exception("table failed", 7, 1), false);
  EXPECT_TRUE(boxes().empty());
  ASSERT_EQ(shell_.calls_of(call_kind::help).size(), 1U);
  EXPECT_EQ(shell_.calls_of(call_kind::help)[0].topic, 1024);
  EXPECT_TRUE(lines_in_order(
      log_.text(), {"Error:\ntable failed", "Got 1-level error", "Step 2", "wizard_shell::display_help(1024)"}));
  EXPECT_FALSE(log_.has_line("Step 1"));
}

TEST_F(ErrorHandler, ContextIsKeptUntilItIsSetAgain) {
  handler_.set_context(L"[dbo].[orders]", 42);
  EXPECT_EQ(handler_.context(), "[dbo].[orders], record #42");
  handler_.handle(tk_exception("a", 0), false);
  handler_.handle(tk_exception("b", 0), false);
  EXPECT_EQ(handler_.context(), "[dbo].[orders], record #42");
  EXPECT_EQ(dialogs().back().text, L"[dbo].[orders], record #42: b");
  handler_.set_context(std::string());
  handler_.handle(tk_exception("c", 0), false);
  EXPECT_EQ(dialogs().back().text, L"c");
  handler_.set_context(L"View 'v_\u00e9'");
  EXPECT_EQ(handler_.context(), "View 'v_\xc3\xa9'");
}

TEST_F(ErrorHandler, ErrorsAreNotKeptBeforeTheShellIsInitialized) {
  shell_.set_initialized(false);
  handler_.handle(tk_exception("early", 0), false);
  EXPECT_TRUE(shell_.errors().empty());
  ASSERT_EQ(dialogs().size(), 1U);
  EXPECT_EQ(dialogs()[0].title, L"Error");
}

TEST_F(ErrorHandler, StandardExceptionGoesToTheErrorBox) {
  handler_.handle_std(std::runtime_error("bad_alloc somewhere"));
  ASSERT_EQ(boxes().size(), 1U);
  EXPECT_EQ(boxes()[0].text, L"bad_alloc somewhere");
}

TEST_F(ErrorHandler, HandleCurrentSortsByTypeAndLetsAbortThrough) {
  try {
    throw tk_exception("in flight", 1);
  } catch (...) {
    handler_.handle_current(false);
  }
  try {
    throw std::logic_error("std failure");
  } catch (...) {
    handler_.handle_current(false);
  }
  ASSERT_EQ(boxes().size(), 2U);
  EXPECT_EQ(boxes()[0].text, L"in flight");
  EXPECT_EQ(boxes()[1].text, L"std failure");
  EXPECT_THROW(
      {
        try {
          throw tk_final_exception();
        } catch (...) {
          handler_.handle_current(true);
        }
      },
      tk_final_exception);
}

// The internal-error dialog of this shell writes its message to standard
// error, where the death test can read it.
class printing_shell : public headless_shell {
 protected:
  internal_error_choice ask_internal_error(const std::wstring& title, const std::wstring& message) override {
    const std::string line = "[" + tk_to_utf8(title) + "] " + tk_to_utf8(message) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
    return internal_error_choice::ok;
  }
};

TEST(ErrorHandlerDeathTest, InternalErrorShowsItsDialogAndEndsTheProcessWithMinusOne) {
  log_capture log;
  printing_shell shell;
  shell.set_initialized(true);
  error_handler handler(tk_source_errors.size(), tk_source_errors.data());
  handler.set_context(L"ignored context");

  // A null table is the failing assertion of tk_errco at line 43.
  std::string text;
  try {
    handler.load_err_map(12, nullptr);
  } catch (const tk_mail_assertion& e) {
    text = e.what();
    EXPECT_EQ(e.level(), 2);
  }
  // "tk_errco\43" in hexadecimal.
  ASSERT_EQ(text, "Internal error: \ncode=746b5f657272636f5c3433");

  EXPECT_EXIT(handler.handle(tk_mail_assertion("tk_errco", 43), true), testing::ExitedWithCode(255),
              "\\[Quillbridge 8\\.1  Error\\] Internal error: \ncode=746b5f657272636f5c3433");
  // The child wrote the log before it ended; neither the context nor the
  // tables took part.
  EXPECT_TRUE(lines_in_order(log.text(),
                             {"error_handler::handle", "Internal error:\nInternal error: \ncode=746b5f657272636f5c3433",
                              "dlg_error_ex::ctor", "dlg_error_ex::on_init"}));
  EXPECT_EQ(log.text().find("ignored context"), std::string::npos);
  EXPECT_EQ(log.text().find("tk_error_converter::convert"), std::string::npos);
}

TEST(ErrorHandlerDeathTest, InternalErrorWithoutAShellStillEndsTheProcess) {
  log_capture log;
  error_handler handler(tk_source_errors.size(), tk_source_errors.data());
  EXPECT_EXIT(handler.handle(tk_exception("broken invariant", 2), false), testing::ExitedWithCode(255),
              "Error: broken invariant");
}

TEST(ErrorHandlerSingleton, AccessBeforeItExistsIsAnInternalError) {
  ASSERT_EQ(error_handler::try_instance(), nullptr);
  try {
    error_handler::instance();
    FAIL() << "no assertion";
  } catch (const tk_mail_assertion& e) {
    EXPECT_EQ(e.text(), make_err_meggase("..\\TK/tk_singl", 64));
  }
}

// --- The message map ---------------------------------------------------------------------

TEST(ErrorConverter, SecondRowWithACodeThatIsPresentLeavesTheFirstText) {
  log_capture log;
  const tk_error_row first[] = {{1, "first text"}, {2, "two"}};
  const tk_error_row second[] = {{1, "second text"}, {3, "three"}};
  tk_error_converter converter(2, first);
  converter.load_map(2, second);
  EXPECT_EQ(converter.size(), 3U);
  EXPECT_EQ(converter.convert(1), "first text");
  EXPECT_EQ(converter.convert(3), "three");
  EXPECT_EQ(converter.convert(4), "");
  EXPECT_TRUE(lines_in_order(
      log.text(),
      {"tk_error_converter::load_map (map size=2)", "tk_error_converter::load_map (map size=2)",
       "tk_error_converter::convert(1)", "Error message has been found: first text", "tk_error_converter::convert(3)",
       "Error message has been found: three", "tk_error_converter::convert(4)", "Error message not found!"}));
}

TEST(ErrorConverter, NullTableIsTheAssertionOfTkErrcoAtLine43AndEmptyTableAddsNothing) {
  tk_error_converter converter;
  EXPECT_THROW(converter.load_map(0, nullptr), tk_mail_assertion);
  const tk_error_row one[] = {{5, "five"}};
  converter.load_map(0, one);
  EXPECT_EQ(converter.size(), 0U);
}

TEST(ErrorTables, SourceTableHas27RowsWithTheSupportAddress) {
  ASSERT_EQ(tk_source_errors.size(), 27U);
  EXPECT_EQ(tk_source_errors.front().code, 0x80E03U);
  EXPECT_EQ(tk_source_errors.back().code, 0x80EDAU);
  const tk_error_converter converter(tk_source_errors);
  EXPECT_EQ(converter.size(), 27U) << "two rows share a code";
  EXPECT_EQ(converter.convert(0x80E07),
            "Literal value could not be converted to the correct type.Contact to support@varnholt.com for the "
            "solution.");
  EXPECT_EQ(converter.convert(0x80E72), "The index ID is invalid. Contact to support@varnholt.com\nfor the solution.");
  EXPECT_EQ(converter.convert(0x80E3F),
            "The specified table already exists. Try to connect as database owner\nusing the appropriate checkbox "
            "on 'Connect to MS SQL server' wizard page.");
  EXPECT_EQ(converter.convert(0x80E4D), "Invalid user name or password.");
  EXPECT_EQ(converter.convert(0x80E21), converter.convert(0x80EDA));
}

TEST(ErrorTables, DestinationTableHas12RowsInStoredOrder) {
  ASSERT_EQ(tk_destination_errors.size(), 12U);
  const std::uint32_t codes[] = {0x400414, 0x400415, 0x400426, 0x40042F, 0x40046A, 0x40041B,
                                 0x4007D3, 0x4007D5, 0x4007D6, 0x4004E1, 0x4004E2, 0x4004E3};
  for (std::size_t i = 0; i < 12; ++i) EXPECT_EQ(tk_destination_errors[i].code, codes[i]) << i;
  const tk_error_converter converter(tk_destination_errors);
  EXPECT_EQ(converter.convert(0x40042F),
            "Primary key in the original database is too long.\nRestart the program with \"Skip converting "
            "indexes\"\ncheckbox selected in order to resolve the conflict.\n");
  EXPECT_EQ(converter.convert(0x4007D5), converter.convert(0x4007D3));
  EXPECT_EQ(converter.convert(0x4004E3), converter.convert(0x4004E1));
  EXPECT_EQ(converter.convert(k_access_denied), k_access_denied_text);
}

}  // namespace
}  // namespace qb
