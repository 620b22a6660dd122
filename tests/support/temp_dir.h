// Test helpers: a scratch directory removed at the end of the test, file
// reading, and a logger pointed at a scratch file.
#pragma once

#include <memory>
#include <string>

#include "tk/log.h"

namespace qb::test {

// A fresh directory under $TMPDIR (or /tmp), removed with its contents.
class temp_dir {
 public:
  temp_dir();
  ~temp_dir();
  temp_dir(const temp_dir&) = delete;
  temp_dir& operator=(const temp_dir&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& content);
bool file_exists(const std::string& path);

// A logger that writes every level to a file in its own scratch directory.
class log_capture {
 public:
  explicit log_capture(int level = 1);
  [[nodiscard]] std::string text() const { return read_file(path_); }
  // True when some line of the log equals line (without the CR LF).
  [[nodiscard]] bool has_line(const std::string& line) const;
  [[nodiscard]] const std::string& path() const { return path_; }
  tk_logger& logger() { return *logger_; }

 private:
  temp_dir dir_;
  std::string path_;
  std::unique_ptr<tk_logger> logger_;
};

}  // namespace qb::test
