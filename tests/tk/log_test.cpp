#include "tk/log.h"

#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "tk/exception.h"
#include "tk/paths.h"

#include "support/log_lines.h"
#include "support/temp_dir.h"

namespace qb {
namespace {

using test::file_exists;
using test::log_lines;
using test::read_file;
using test::temp_dir;
using test::write_file;

TEST(Logger, LineBelowTheLevelIsNotWrittenAndTheFileIsNotOpened) {
  const temp_dir dir;
  const std::string path = dir.file("run.log");
  tk_logger logger(path, true, 2, false);
  ASSERT_TRUE(file_exists(path));
  ASSERT_EQ(::unlink(path.c_str()), 0);

  LOG(1, "detail %d", 1);
  LOGW(1, L"wide detail %d", 2);
  EXPECT_FALSE(file_exists(path)) << "a suppressed line opened the file";

  LOG(2, "flow %d", 3);
  EXPECT_EQ(read_file(path), "flow 3\r\n");
}

TEST(Logger, LogBeforeTheLoggerExistsAndAfterItIsGoneDoesNothing) {
  ASSERT_EQ(tk_logger::try_instance(), nullptr);
  const std::string default_log = tk_get_module_path() + ".log";
  ::unlink(default_log.c_str());
  LOG(3, "nobody listens");
  LOGW(3, L"nobody listens");
  EXPECT_FALSE(file_exists(default_log));

  const temp_dir dir;
  const std::string path = dir.file("run.log");
  {
    tk_logger logger(path, true, 1, false);
    LOG(1, "inside");
  }
  EXPECT_EQ(tk_logger::try_instance(), nullptr);
  LOG(3, "after");
  EXPECT_EQ(read_file(path), "inside\r\n");
}

TEST(Logger, ConstructionEnabledEmptiesTheFile) {
  const temp_dir dir;
  const std::string path = dir.file("run.log");
  write_file(path, "from the last run\r\n");
  tk_logger logger(path, true, 1, false);
  EXPECT_TRUE(logger.created());
  EXPECT_EQ(read_file(path), "");
  LOG(1, "first");
  EXPECT_EQ(read_file(path), "first\r\n");
}

TEST(Logger, SwitchedOnLaterEmptiesTheFileBeforeTheFirstLine) {
  const temp_dir dir;
  const std::string path = dir.file("run.log");
  write_file(path, "from the last run\r\n");
  tk_logger logger(path, false, 1, false);
  EXPECT_FALSE(logger.created());
  LOG(3, "while off");
  EXPECT_EQ(read_file(path), "from the last run\r\n");

  logger.set_enabled(true);
  LOG(1, "now on");
  LOG(1, "and on");
  EXPECT_TRUE(logger.created());
  EXPECT_EQ(read_file(path), "now on\r\nand on\r\n");
}

TEST(Logger, EveryLineEndsWithCrLfAndNarrowLinesHaveNoLimit) {
  const temp_dir dir;
  const std::string path = dir.file("run.log");
  tk_logger logger(path, true, 1, false);
  const std::string long_text(30000, 'n');
  LOG(1, "%s", long_text);
  LOG(1, "caf\xe9 in whatever bytes it has");
  EXPECT_EQ(read_file(path), long_text + "\r\ncaf\xe9 in whatever bytes it has\r\n");
}

TEST(Logger, TimestampIsHourMinuteSecondAndABlank) {
  const temp_dir dir;
  const std::string path = dir.file("run.log");
  tk_logger logger(path, true, 1, true);
  LOG(1, "stamped");
  logger.set_timestamp(false);
  LOG(1, "plain");
  const std::vector<std::string> lines = log_lines(read_file(path));
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_TRUE(std::regex_match(lines[0], std::regex("([01][0-9]|2[0-3]):[0-5][0-9]:[0-5][0-9] stamped"))) << lines[0];
  EXPECT_EQ(lines[1], "plain");
}

TEST(Logger, WideLinesAreUtf8CutToTheTenKilobyteBuffers) {
  const temp_dir dir;
  const std::string path = dir.file("run.log");
  tk_logger logger(path, true, 1, false);
  LOGW(1, L"t\u00e4b %s", std::wstring(L"\u4e2d"));
  LOGW(1, L"%s", std::wstring(20000, L'x'));
  LOGW(1, L"%s", std::wstring(6000, L'\u00e9'));  // 12000 bytes of UTF-8
  const std::vector<std::string> lines = log_lines(read_file(path));
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0],
            "t\xc3\xa4"
            "b \xe4\xb8\xad");
  EXPECT_EQ(lines[1], std::string(tk_logger::wide_line_limit - 1, 'x'));
  // The cut never splits a character: 10239 bytes hold 5119 of them.
  std::string expected;
  for (int i = 0; i < 5119; ++i) expected += "\xc3\xa9";
  EXPECT_EQ(lines[2], expected);
}

TEST(Logger, NullPathIsAnInternalErrorOfTkLogAtLine82) {
  const temp_dir dir;
  tk_logger logger(dir.file("run.log"), true, 1, false);
  try {
    logger.set_path(nullptr);
    FAIL() << "no assertion";
  } catch (const tk_mail_assertion& e) {
    // "tk_log\82" in hexadecimal.
    EXPECT_STREQ(e.what(), "Internal error: \ncode=746b5f6c6f675c3832");
    EXPECT_EQ(e.level(), 2);
  }
  EXPECT_EQ(logger.path(), dir.file("run.log"));
}

TEST(Logger, NullOrEmptyPathMeansTheProgramsNameWithLog) {
  const tk_logger logger(static_cast<const char*>(nullptr), false, 1, false);
  EXPECT_EQ(logger.path(), tk_get_module_path() + ".log");
}

TEST(Logger, SetPathAppendsToTheNewFile) {
  const temp_dir dir;
  const std::string first = dir.file("first.log");
  const std::string second = dir.file("second.log");
  write_file(second, "kept\r\n");
  tk_logger logger(first, true, 1, false);
  LOG(1, "one");
  logger.set_path(second.c_str());
  LOG(1, "two");
  EXPECT_EQ(read_file(first), "one\r\n");
  EXPECT_EQ(read_file(second), "kept\r\ntwo\r\n");
}

TEST(Logger, LinesOfTwoThreadsStayWhole) {
  const temp_dir dir;
  const std::string path = dir.file("run.log");
  tk_logger logger(path, true, 1, false);
  auto writer = [](char tag) {
    for (int i = 0; i < 2000; ++i) LOG(1, "%c line %d of this thread", tag, i);
  };
  std::thread a(writer, 'a');
  std::thread b(writer, 'b');
  a.join();
  b.join();
  const std::vector<std::string> lines = log_lines(read_file(path));
  ASSERT_EQ(lines.size(), 4000U);
  const std::regex shape("[ab] line [0-9]+ of this thread");
  for (const std::string& line : lines) ASSERT_TRUE(std::regex_match(line, shape)) << line;
}

}  // namespace
}  // namespace qb
