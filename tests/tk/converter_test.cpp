#include "tk/converter.h"

#include <atomic>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tk/exception.h"
#include "tk/files.h"
#include "tk/log.h"

#include "support/log_lines.h"
#include "support/temp_dir.h"

namespace qb {
namespace {

using test::file_exists;
using test::lines_in_order;
using test::log_capture;
using test::read_file;
using test::temp_dir;
using test::write_file;

// The text of the tk_exception that set_logfile throws, or "" when none.
std::string set_logfile_failure(tk_converter& converter, const std::string& name) {
  try {
    converter.set_logfile(name);
  } catch (const tk_exception& e) {
    EXPECT_EQ(e.level(), 1);
    EXPECT_EQ(e.code(), 0U);
    return e.what();
  }
  return "";
}

TEST(SetLogfile, UserFileIsAppendedToAndEarlierLinesStayInTheDefaultLog) {
  log_capture log;
  const temp_dir dir;
  const std::string user_log = dir.file("user.log");
  write_file(user_log, "written before this run\r\n");
  LOG(2, "before the switch");

  tk_converter converter;
  converter.set_logfile(user_log);
  LOG(2, "after the switch");

  EXPECT_EQ(converter.log_file, user_log);
  EXPECT_EQ(log.logger().path(), user_log);
  EXPECT_TRUE(log.logger().enabled());
  EXPECT_TRUE(lines_in_order(log.text(), {"before the switch", "tk_convertor::set_logfile(" + user_log + ")"}));
  EXPECT_FALSE(log.has_line("after the switch"));
  EXPECT_EQ(read_file(user_log), "written before this run\r\nafter the switch\r\n");
}

TEST(SetLogfile, BlankNameKeepsTheDefaultLog) {
  log_capture log;
  tk_converter converter;
  converter.log_file = "earlier.log";
  converter.set_logfile("");
  LOG(2, "still here");
  EXPECT_EQ(converter.log_file, "");
  EXPECT_EQ(log.logger().path(), log.path());
  EXPECT_TRUE(lines_in_order(log.text(), {"tk_convertor::set_logfile()", "Filename is empty", "still here"}));
}

TEST(SetLogfile, ExistingFolderIsRefusedAndTheLoggerStaysAsItWas) {
  log_capture log;
  const temp_dir dir;
  tk_converter converter;
  EXPECT_EQ(set_logfile_failure(converter, dir.path()), "Logfile name specifies an existing path.");
  EXPECT_EQ(log.logger().path(), log.path());
  LOG(2, "after the refusal");
  EXPECT_TRUE(log.has_line("after the refusal"));
}

TEST(SetLogfile, ExistingReadOnlyFileIsRefused) {
  log_capture log;
  const temp_dir dir;
  const std::string name = dir.file("locked.log");
  write_file(name, "");
  ASSERT_EQ(::chmod(name.c_str(), 0444), 0);
  tk_converter converter;
  EXPECT_EQ(set_logfile_failure(converter, name), "Logfile name specifies an existing read-only file.");
  EXPECT_EQ(log.logger().path(), log.path());
}

TEST(SetLogfile, MissingFolderIsRefused) {
  log_capture log;
  const temp_dir dir;
  tk_converter converter;
  EXPECT_EQ(set_logfile_failure(converter, dir.file("no/such/folder/run.log")),
            "Logfile path does not exist.\nPlease verify the correct path was given.");
  EXPECT_EQ(log.logger().path(), log.path());
}

TEST(SetLogfile, FolderWhereNoFileCanBeCreatedIsRefused) {
  log_capture log;
  tk_converter converter;
  // Nobody, root included, creates files in /proc.
  EXPECT_EQ(set_logfile_failure(converter, "/proc/quillbridge-test.log"),
            "Cannot create log file. Make sure you have sufficient\nprivileges to create files in the directory.");
  EXPECT_EQ(log.logger().path(), log.path());
}

TEST(SetLogfile, RelativeNameIsCheckedInTheWorkingDirectory) {
  log_capture log;
  const temp_dir dir;
  tk_converter converter;
  {
    const tk_temp_chdir here(dir.path());
    ASSERT_TRUE(here.changed());
    converter.set_logfile("relative.log");
    LOG(2, "into the relative file");
  }
  LOG(2, "back in the old directory");
  EXPECT_EQ(converter.log_file, "relative.log");
  EXPECT_EQ(log.logger().path(), dir.file("relative.log"));
  EXPECT_TRUE(
      lines_in_order(read_file(dir.file("relative.log")), {"into the relative file", "back in the old directory"}));
}

TEST(SetLogfile, WithoutALoggerNothingIsStored) {
  ASSERT_EQ(tk_logger::try_instance(), nullptr);
  tk_converter converter;
  converter.set_logfile("/proc/never-checked.log");
  EXPECT_EQ(converter.log_file, "");
}

TEST(Converter, SetCancelStoresTheFlagAndAStopRequestSetsIt) {
  tk_converter converter;
  EXPECT_EQ(converter.b_cancel.load(), 0);
  EXPECT_EQ(converter.finished.load(), 0);
  converter.set_cancel(1);
  EXPECT_EQ(converter.b_cancel.load(), 1);
  converter.set_cancel(0);
  EXPECT_EQ(converter.b_cancel.load(), 0);
  converter.request_stop();
  EXPECT_EQ(converter.b_cancel.load(), 1);
  EXPECT_TRUE(converter.stop_requested());
}

// A converter whose work is a loop over "records" that tests b_cancel
// between them, as the conversion does.
class record_loop : public tk_converter {
 public:
  int operator()() override {
    while (b_cancel.load() == 0) {
      records.fetch_add(1);
      std::this_thread::yield();
    }
    finished.store(1);
    return 0;
  }
  std::atomic<long> records{0};
};

TEST(ConverterThread, DestroyingTheThreadCancelsTheConversionAndWaitsForIt) {
  log_capture log;
  record_loop converter;
  {
    tk_converter_thread thread(converter);
    thread.start();
    while (converter.records.load() == 0) std::this_thread::yield();
    EXPECT_TRUE(thread.is_running());
    EXPECT_FALSE(thread.owner());
  }
  EXPECT_EQ(converter.b_cancel.load(), 1);
  EXPECT_EQ(converter.finished.load(), 1);
  EXPECT_TRUE(lines_in_order(
      log.text(), {"tk_thread::stop - asking the worker to stop", "tk_thread::stop - the worker has stopped"}));
}

}  // namespace
}  // namespace qb
