#include "tk/files.h"

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tk/exception.h"
#include "tk/headless_shell.h"
#include "tk/paths.h"
#include "tk/strings.h"

#include "support/log_lines.h"
#include "support/temp_dir.h"

namespace qb {
namespace {

using test::count_lines;
using test::file_exists;
using test::lines_in_order;
using test::log_capture;
using test::read_file;
using test::scoped_env;
using test::temp_dir;
using test::write_file;

std::string working_dir() { return std::filesystem::current_path().string(); }

// --- Path names -------------------------------------------------------------------------

TEST(FileName, EmptyTextGivesTheProgramsDriveAndDirectoryWithAnEmptyName) {
  log_capture log;
  const tk_file_name parts("");
  EXPECT_EQ(parts.drive, "");
  EXPECT_EQ(parts.dir, tk_get_module_dir());
  EXPECT_EQ(parts.name, "");
  EXPECT_EQ(parts.ext, "");
  EXPECT_TRUE(log.has_line("tk_file_name::ctor()"));

  tk_file_wname wide;
  wide.initialize(L"");
  EXPECT_EQ(wide.drive, L"");
  EXPECT_EQ(wide.dir, tk_utf8_to_wide(tk_get_module_dir()));
  EXPECT_EQ(wide.name, L"");
  EXPECT_EQ(wide.ext, L"");
}

TEST(FileName, SplitsIntoDirectoryNameAndExtensionAsSplitpathDoes) {
  log_capture log;
  const tk_file_name a("/srv/data/orders.tar.gz");
  EXPECT_EQ(a.drive, "");
  EXPECT_EQ(a.dir, "/srv/data/");
  EXPECT_EQ(a.name, "orders.tar");
  EXPECT_EQ(a.ext, ".gz");
  EXPECT_TRUE(log.has_line("tk_file_name::ctor(/srv/data/orders.tar.gz)"));

  const tk_file_name hidden("/home/u/.profile");
  EXPECT_EQ(hidden.name, "");
  EXPECT_EQ(hidden.ext, ".profile");

  const tk_file_name folder("/srv/data/");
  EXPECT_EQ(folder.dir, "/srv/data/");
  EXPECT_EQ(folder.name, "");

  const tk_file_name dotted("/srv/./x/../data//plain");
  EXPECT_EQ(dotted.dir, "/srv/data/");
  EXPECT_EQ(dotted.name, "plain");
  EXPECT_EQ(dotted.ext, "");
}

TEST(FileName, RelativeTextIsTakenInTheWorkingDirectory) {
  const temp_dir dir;
  const tk_temp_chdir here(dir.path());
  ASSERT_TRUE(here.changed());
  const tk_file_name parts("sub/../run.log");
  EXPECT_EQ(parts.dir, dir.path() + "/");
  EXPECT_EQ(parts.name, "run");
  EXPECT_EQ(parts.ext, ".log");
  const tk_file_wname wide(L"r\u00e9sum\u00e9.txt");
  EXPECT_EQ(wide.dir, tk_utf8_to_wide(dir.path() + "/"));
  EXPECT_EQ(wide.name, L"r\u00e9sum\u00e9");
  EXPECT_EQ(wide.ext, L".txt");
}

TEST(FileName, PartsJoinAgainAsMakepathDoes) {
  tk_file_name parts("/home/u/Documents");
  parts.name = "Quillbridge";
  parts.ext = "log";
  EXPECT_EQ(parts.path(), "/home/u/Quillbridge.log");
  parts.dir = "/var/log";
  parts.ext = ".txt";
  EXPECT_EQ(parts.path(), "/var/log/Quillbridge.txt");

  tk_file_wname wide(L"/a/b.c");
  wide.ext = L"d";
  EXPECT_EQ(wide.path(), L"/a/b.d");
}

TEST(FileName, NullTextIsAnInternalError) {
  EXPECT_THROW(tk_file_name(static_cast<const char*>(nullptr)), tk_mail_assertion);
  tk_file_wname wide;
  EXPECT_THROW(wide.initialize(static_cast<const wchar_t*>(nullptr)), tk_mail_assertion);
}

// --- Existence --------------------------------------------------------------------------

TEST(FileExist, ReadOnlyFileIsFalseInMode1AndTrueInMode16384) {
  log_capture log;
  const temp_dir dir;
  const std::string name = dir.file("locked.txt");
  write_file(name, "x");
  ASSERT_EQ(::chmod(name.c_str(), 0444), 0);
  EXPECT_FALSE(tk_is_file_exist1(name, 1));
  EXPECT_TRUE(tk_is_file_exist1(name, 16384));
  EXPECT_TRUE(log.has_line("tk_is_file_exist1(" + name + ",1)"));
  EXPECT_FALSE(tk_is_file_exist2(tk_utf8_to_wide(name), 1));
  EXPECT_TRUE(tk_is_file_exist2(tk_utf8_to_wide(name), 16384));
  EXPECT_TRUE(log.has_line("tk_is_file_exist2(" + name + ",00004000)"));

  ASSERT_EQ(::chmod(name.c_str(), 0644), 0);
  EXPECT_TRUE(tk_is_file_exist1(name, 1));
}

TEST(FileExist, FolderAndMissingPathAreFalseInBothModes) {
  const temp_dir dir;
  for (const int mode : {1, 16384}) {
    EXPECT_FALSE(tk_is_file_exist1(dir.path(), mode));
    EXPECT_FALSE(tk_is_file_exist1(dir.file("missing"), mode));
  }
}

TEST(FileExist, AnyOtherModeCreatesTheFileAndEmptiesAnExistingOne) {
  const temp_dir dir;
  const std::string fresh = dir.file("fresh.txt");
  EXPECT_TRUE(tk_is_file_exist1(fresh, 0));
  EXPECT_TRUE(file_exists(fresh));
  const std::string full = dir.file("full.txt");
  write_file(full, "content that is lost");
  EXPECT_TRUE(tk_is_file_exist2(tk_utf8_to_wide(full), 2));
  EXPECT_EQ(read_file(full), "");
}

TEST(FileExist, CreationThatFailsThrowsTheSystemError) {
  const temp_dir dir;
  try {
    tk_is_file_exist1(dir.file("no/such/folder/x"), 0);
    FAIL() << "no exception";
  } catch (const tk_exception& e) {
    EXPECT_STREQ(e.what(), "No such file or directory");
    EXPECT_EQ(e.code(), static_cast<std::uint32_t>(ENOENT));
  }
}

TEST(PathExist, TrueForAFolderThatCanBeEnteredAndTheWorkingDirectoryStays) {
  log_capture log;
  const temp_dir dir;
  const std::string before = working_dir();
  write_file(dir.file("plain"), "");
  EXPECT_TRUE(tk_is_path_exist(dir.path()));
  EXPECT_FALSE(tk_is_path_exist(dir.file("plain")));
  EXPECT_FALSE(tk_is_path_exist(dir.file("missing")));
  EXPECT_TRUE(tk_is_path_exist(tk_utf8_to_wide(dir.path())));
  EXPECT_FALSE(tk_is_path_exist(std::wstring(L"/no/such/\u00e9")));
  EXPECT_EQ(working_dir(), before);
  EXPECT_TRUE(log.has_line("tk_is_path_exist(" + dir.path() + ")"));
}

// --- Scoped change of directory -------------------------------------------------------------

TEST(TempChdir, ChangesForItsScopeAndGoesBack) {
  log_capture log;
  const temp_dir dir;
  const std::string before = working_dir();
  {
    const tk_temp_chdir change(dir.path());
    EXPECT_TRUE(change.changed());
    EXPECT_EQ(change.old_dir(), before);
    EXPECT_EQ(working_dir(), dir.path());
  }
  EXPECT_EQ(working_dir(), before);
  EXPECT_TRUE(lines_in_order(log.text(), {"tk_temp_chdir::ctor", "tk_temp_chdir::initialize(" + dir.path() + ")",
                                          "tk_temp_chdir::dtor", "tk_temp_chdir::dtor - at the END"}));
}

TEST(TempChdir, MissingPathLeavesTheDirectoryAndRestoresNothing) {
  log_capture log;
  const temp_dir dir;
  const temp_dir elsewhere;
  const std::string before = working_dir();
  {
    const tk_temp_chdir change(dir.file("missing"));
    EXPECT_FALSE(change.changed());
    EXPECT_EQ(working_dir(), before);
    // A change made by someone else meanwhile is not undone by the object.
    ASSERT_EQ(::chdir(elsewhere.path().c_str()), 0);
  }
  EXPECT_EQ(working_dir(), elsewhere.path());
  ASSERT_EQ(::chdir(before.c_str()), 0);
  EXPECT_TRUE(lines_in_order(log.text(), {"tk_temp_chdir::initialize(" + dir.file("missing") + ")", "_chdir failed",
                                          "tk_temp_chdir::dtor", "tk_temp_chdir::dtor - at the END"}));
}

TEST(TempChdir, SecondChangeOnTheSameObjectIsAnInternalError) {
  const temp_dir dir;
  tk_temp_chdir change(dir.path());
  ASSERT_TRUE(change.changed());
  EXPECT_THROW(change.initialize(dir.path()), tk_mail_assertion);
}

// --- Writable folders ----------------------------------------------------------------------

TEST(CanCreateFileIn, TrueForAScratchFolderAndFalseForProc) {
  const temp_dir dir;
  EXPECT_TRUE(tk_can_create_file_in(dir.path()));
  EXPECT_TRUE(std::filesystem::is_empty(dir.path())) << "the probe file was left behind";
  EXPECT_FALSE(tk_can_create_file_in("/proc"));
  EXPECT_FALSE(tk_can_create_file_in(dir.file("missing")));
}

// --- Bug report --------------------------------------------------------------------------------

// A user's home with no XDG folders (so the documents folder is $HOME) and a
// PATH that holds only what the test puts there.
class BugReport : public ::testing::Test {
 protected:
  BugReport()
      : home_env_("HOME", home_.path()),
        config_env_("XDG_CONFIG_HOME", home_.file(".config")),
        path_env_("PATH", bin_.path()) {}

  // An xdg-open that writes its argument to url.txt beside itself.
  void install_opener() {
    const std::string script = bin_.file("xdg-open");
    write_file(script, "#!/bin/sh\nprintf '%s' \"$1\" > '" + bin_.file("url.tmp") + "' && /bin/mv '" +
                           bin_.file("url.tmp") + "' '" + bin_.file("url.txt") + "'\n");
    ASSERT_EQ(::chmod(script.c_str(), 0755), 0);
  }

  // The URL the opener received; waits for the program, which runs in the
  // background, at most a minute.
  std::string received_url() {
    const std::string url = bin_.file("url.txt");
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!file_exists(url) && std::chrono::steady_clock::now() < give_up) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return read_file(url);
  }

  temp_dir home_;
  temp_dir bin_;
  scoped_env home_env_;
  scoped_env config_env_;
  scoped_env path_env_;
};

TEST_F(BugReport, IsSavedInTheDocumentsFolderAndHandedToTheMailProgram) {
  log_capture log;
  install_opener();
  const std::string before = working_dir();
  const std::string saved = tk_send_bug("Quillbridge 8.1 ", "Internal error: \ncode=7a");
  EXPECT_EQ(working_dir(), before);

  ASSERT_FALSE(saved.empty());
  EXPECT_EQ(std::filesystem::path(saved).parent_path().string(), home_.path());
  const std::string report = read_file(saved);
  EXPECT_EQ(
      report.rfind("To: Varnholt Support <support@varnholt.com>\nSubject: Bug report on Quillbridge 8.1 \nDate: ", 0),
      0U)
      << report;
  EXPECT_NE(report.find("\n\nInternal error: \ncode=7a\n"), std::string::npos) << report;

  EXPECT_EQ(received_url(),
            "mailto:support@varnholt.com?subject=Bug%20report%20on%20Quillbridge%208.1%20"
            "&body=Internal%20error%3A%20%0Acode%3D7a");
  EXPECT_TRUE(log.has_line("tk_send_bug(Quillbridge 8.1 |Internal error: \ncode=7a)"));
  EXPECT_TRUE(log.has_line("tk_send_bug: report saved to " + saved));
  EXPECT_TRUE(log.has_line("tk_send_bug: xdg-open returns 0"));
}

TEST_F(BugReport, WithoutAMailProgramTheReportIsStillSavedAndNoFailureIsReported) {
  log_capture log;
  const std::string first = tk_send_bug("Q", "first");
  const std::string second = tk_send_bug("Q", "second");
  ASSERT_FALSE(first.empty());
  ASSERT_FALSE(second.empty());
  EXPECT_NE(first, second) << "a second report overwrote the first";
  EXPECT_NE(read_file(second).find("\n\nsecond\n"), std::string::npos);
  EXPECT_EQ(count_lines(log.text(), "tk_send_bug: xdg-open not found"), 2);
}

TEST_F(BugReport, UnwritableDocumentsFolderLosesOnlyTheFile) {
  log_capture log;
  install_opener();
  const scoped_env home("HOME", "/proc");
  EXPECT_EQ(tk_send_bug("Q", "text"), "");
  EXPECT_TRUE(log.has_line("tk_send_bug: the report could not be saved"));
  EXPECT_EQ(received_url(), "mailto:support@varnholt.com?subject=Bug%20report%20on%20Q&body=text");
}

// --- Clipboard ------------------------------------------------------------------------------

TEST(Clipboard, GoesThroughTheShellAndFailsQuietlyWithoutOne) {
  log_capture log;
  EXPECT_FALSE(tk_copy_to_clipboard2(L"lost"));
  EXPECT_TRUE(lines_in_order(log.text(), {"tk_copy_to_clipboard2", "tk_copy_to_clipboard2 failed"}));

  headless_shell::policy answers;
  answers.clipboard_available = true;
  headless_shell shell(L"Q", answers);
  EXPECT_TRUE(tk_copy_to_clipboard2(L"kept \u00e9"));
  const auto calls = shell.calls_of(headless_shell::call_kind::clipboard);
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_EQ(calls[0].text, L"kept \u00e9");
}

}  // namespace
}  // namespace qb
