#include "tk/shell.h"

#include <string>

#include <gtest/gtest.h>

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
using test::scoped_env;
using test::temp_dir;
using test::write_file;

TEST(WizardShell, ProductTitleIsNameVersionAndAnEmptyText) {
  EXPECT_EQ(wizard_shell::product_title(), L"Quillbridge 8.1 ");
}

TEST(WizardShell, IsInitializedLogsWhetherTheShellExists) {
  log_capture log;
  EXPECT_FALSE(wizard_shell::is_initialized());
  EXPECT_TRUE(lines_in_order(log.text(), {"wizard_shell::is_initialized", "Before return false"}));

  headless_shell shell;
  EXPECT_FALSE(wizard_shell::is_initialized());
  EXPECT_EQ(count_lines(log.text(), "Singleton has been initialized"), 1);
  shell.set_initialized(true);
  EXPECT_TRUE(wizard_shell::is_initialized());
  EXPECT_TRUE(log.has_line("wizard_shell::ctor(Quillbridge 8.1 )"));
}

TEST(WizardShell, ErrorBoxBeforeTheFirstPageIsTitledErrorEvenThoughTheShellExists) {
  log_capture log;
  headless_shell shell;
  wizard_shell::error(L"first \u00e9");
  shell.set_initialized(true);
  wizard_shell::error(L"second");
  const auto boxes = shell.calls_of(call_kind::error);
  ASSERT_EQ(boxes.size(), 2U);
  EXPECT_EQ(boxes[0].title, L"Error");
  EXPECT_EQ(boxes[0].text, L"first \u00e9");
  EXPECT_EQ(boxes[1].title, L"Quillbridge 8.1  Error");
  // The entry line, then the text itself at level 3.
  EXPECT_TRUE(lines_in_order(log.text(), {"wizard_shell::error(first \xc3\xa9)", "first \xc3\xa9"}));
}

TEST(WizardShell, WithoutAShellTheErrorGoesToStandardError) {
  log_capture log;
  testing::internal::CaptureStderr();
  wizard_shell::error(L"no window");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error: no window\n");
  EXPECT_TRUE(lines_in_order(log.text(), {"wizard_shell::error(no window)", "no window"}));
}

TEST(WizardShell, MessageBoxIsTitledMessage) {
  log_capture log;
  headless_shell shell(L"Q");
  shell.set_initialized(true);
  wizard_shell::message(L"done");
  const auto boxes = shell.calls_of(call_kind::message);
  ASSERT_EQ(boxes.size(), 1U);
  EXPECT_EQ(boxes[0].title, L"Q Message");
  EXPECT_EQ(boxes[0].text, L"done");
  EXPECT_TRUE(log.has_line("wizard_shell::message(done)"));
}

// A shell whose active page has no log box.
class shell_without_log_box : public headless_shell {
 protected:
  log_box append_log(const std::wstring& /*text*/) override { return log_box::no_log_box; }
};

TEST(WizardShell, WriteLogAppendsToTheLogBoxAndLogsAPageWithoutOne) {
  log_capture log;
  wizard_shell::write_log(L"nobody");  // no shell: nothing happens
  {
    headless_shell shell;
    wizard_shell::write_log(L"Converting table a\r\n");
    wizard_shell::write_log(L"Converting table b\r\n");
    EXPECT_EQ(shell.log_text(), L"Converting table a\r\nConverting table b\r\n");
  }
  EXPECT_EQ(count_lines(log.text(), "Editbox failed to be initialized"), 0);
  shell_without_log_box no_box;
  wizard_shell::write_log(L"lost");
  EXPECT_TRUE(lines_in_order(log.text(), {"wizard_shell::write_log(lost)", "Editbox failed to be initialized"}));
}

TEST(WizardShell, MissingHelpFileGivesTheSameErrorAndNothingElse) {
  log_capture log;
  const temp_dir dir;
  headless_shell::policy answers;
  answers.help_file = dir.file("missing.chm");
  headless_shell shell(L"Q", answers);
  wizard_shell::display_help(1010);
  wizard_shell::display_help();
  const auto calls = shell.calls();
  ASSERT_EQ(calls.size(), 2U);
  for (const auto& c : calls) {
    EXPECT_EQ(c.kind, call_kind::error);
    EXPECT_EQ(c.text, L"Help file does not exist. Reinstall the program.");
  }
  EXPECT_TRUE(lines_in_order(log.text(), {"wizard_shell::display_help(1010)", "wizard_shell::display_help"}));
}

TEST(WizardShell, HelpOpensAtTheTopicOrTheFirstPage) {
  const temp_dir dir;
  headless_shell::policy answers;
  answers.help_file = dir.file("help.chm");
  write_file(answers.help_file, "help");
  headless_shell shell(L"Q", answers);
  wizard_shell::display_help(1017);
  wizard_shell::display_help();
  const auto calls = shell.calls_of(call_kind::help);
  ASSERT_EQ(calls.size(), 2U);
  EXPECT_EQ(calls[0].topic, 1017);
  EXPECT_EQ(calls[0].text, tk_utf8_to_wide(answers.help_file));
  EXPECT_EQ(calls[1].topic, -1);
}

TEST(WizardShell, DefaultHelpFileIsTheProgramsNameWithChm) {
  const headless_shell shell;
  const std::string file = shell.help_file();
  EXPECT_EQ(file.substr(file.size() - 4), ".chm");
  EXPECT_NE(file.find("qb_tk_tests"), std::string::npos) << file;
}

TEST(WizardShell, ContinueOrAbortAnswersByThePolicyAndIsNotShownWithoutAShell) {
  log_capture log;
  bool do_not_show = false;
  EXPECT_EQ(wizard_shell::continue_or_abort(L"x", do_not_show), wizard_shell::answer_not_shown);

  headless_shell::policy answers;
  answers.continue_answer = wizard_shell::answer_abort;
  answers.tick_do_not_show = true;
  headless_shell shell(L"Q", answers);
  EXPECT_EQ(wizard_shell::continue_or_abort(L"row failed", do_not_show), wizard_shell::answer_abort);
  EXPECT_TRUE(do_not_show);
  const auto calls = shell.calls_of(call_kind::continue_or_abort);
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_EQ(calls[0].title, L"Error");
  EXPECT_EQ(calls[0].text, L"row failed");
  EXPECT_EQ(count_lines(log.text(), "dlg_error_continue::on_init"), 1);
}

// The Send bug button needs a home and a PATH of the test's own.
class InternalErrorDialog : public ::testing::Test {
 protected:
  InternalErrorDialog() : home_env_("HOME", home_.path()), path_env_("PATH", home_.path()) {}
  temp_dir home_;
  scoped_env home_env_;
  scoped_env path_env_;
};

TEST_F(InternalErrorDialog, CopyToClipboardHandsTheMessageToTheClipboard) {
  log_capture log;
  headless_shell::policy answers;
  answers.internal_answer = wizard_shell::internal_error_choice::copy_to_clipboard;
  answers.clipboard_available = true;
  headless_shell shell(L"Q", answers);
  EXPECT_EQ(wizard_shell::internal_error(L"Internal error: \ncode=41"),
            wizard_shell::internal_error_choice::copy_to_clipboard);
  const auto clip = shell.calls_of(call_kind::clipboard);
  ASSERT_EQ(clip.size(), 1U);
  EXPECT_EQ(clip[0].text, L"Internal error: \ncode=41");
  EXPECT_TRUE(lines_in_order(log.text(), {"dlg_error_ex::ctor", "dlg_error_ex::on_init", "tk_copy_to_clipboard2"}));
}

TEST_F(InternalErrorDialog, SendBugNamesTheTitleOnlyOnceTheShellIsInitialized) {
  log_capture log;
  headless_shell::policy answers;
  answers.internal_answer = wizard_shell::internal_error_choice::send_bug;
  headless_shell shell(L"Quillbridge 8.1 ", answers);
  wizard_shell::internal_error(L"early");
  shell.set_initialized(true);
  wizard_shell::internal_error(L"late");
  EXPECT_TRUE(log.has_line("tk_send_bug(|early)"));
  EXPECT_TRUE(log.has_line("tk_send_bug(Quillbridge 8.1 |late)"));
  const auto boxes = shell.calls_of(call_kind::internal_error);
  ASSERT_EQ(boxes.size(), 2U);
  EXPECT_EQ(boxes[0].title, L"Error");
  EXPECT_EQ(boxes[1].title, L"Quillbridge 8.1  Error");
}

TEST_F(InternalErrorDialog, WithoutAShellTheMessageGoesToStandardError) {
  log_capture log;
  testing::internal::CaptureStderr();
  EXPECT_EQ(wizard_shell::internal_error(L"Internal error: \ncode=41"), wizard_shell::internal_error_choice::not_shown);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error: Internal error: \ncode=41\n");
}

TEST(WizardShell, ErrorListKeepsTwentyEntries) {
  headless_shell shell;
  for (int i = 1; i <= 20; ++i) EXPECT_TRUE(shell.add_error("error " + std::to_string(i)));
  EXPECT_FALSE(shell.add_error("error 21"));
  const auto errors = shell.errors();
  ASSERT_EQ(errors.size(), wizard_shell::max_errors);
  EXPECT_EQ(errors.front(), "error 1");
  EXPECT_EQ(errors.back(), "error 20");
}

TEST(WizardShell, SecondShellLeavesTheFirstInPlaceAndItsEndClearsThePointer) {
  headless_shell first(L"first");
  {
    headless_shell second(L"second");
    EXPECT_EQ(&wizard_shell::instance(), &first);
  }
  EXPECT_EQ(wizard_shell::try_instance(), nullptr);
}

}  // namespace
}  // namespace qb
