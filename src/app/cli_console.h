// cli_console: the text output of quillbridge-cli.
//
// Lines go to standard output (progress, the report) or standard error (the
// failures as they happen). On a terminal the console also keeps one live
// status line at the bottom: status() redraws it in place, and every other
// line is written above it (the live line is cleared, the line written, the
// live line drawn again), so the two never mix. The live line is cut to the
// terminal's width, so that it never wraps. Off a terminal there is no live
// line: status() does nothing.
//
// Ownership: the console writes to the streams it is given and owns nothing.
// Thread-safety: every member may be called from any thread (the worker
// reports failures while the main thread draws progress); one lock orders
// the output.
#pragma once

#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>

namespace qb {

class cli_console {
 public:
  // terminal: standard output is a terminal, so the live line is drawn.
  cli_console(std::FILE* out, std::FILE* err, bool terminal);
  cli_console(const cli_console&) = delete;
  cli_console& operator=(const cli_console&) = delete;

  // The console of the process: standard output and error, a terminal when
  // standard output is one.
  static cli_console& standard();

  // Writes the text and a line end on standard output / standard error.
  void line(const std::string& text);
  void error_line(const std::string& text);
  // Replaces the live line (terminal only); the text is cut to width() - 1
  // columns.
  void status(const std::string& text);
  // Removes the live line.
  void clear_status();

  [[nodiscard]] bool terminal() const { return terminal_; }
  // Columns of the terminal: its window size, else $COLUMNS, else 80.
  [[nodiscard]] int width() const;

 private:
  void write_line(std::FILE* stream, const std::string& text);
  void erase_status();  // with mutex_ held
  void draw_status();   // with mutex_ held

  std::mutex mutex_;
  std::FILE* out_;
  std::FILE* err_;
  bool terminal_;
  std::string status_;
};

// Wide text in the encoding of the console (the system code page): what
// cannot be converted there is written as UTF-8.
std::string cli_narrow(std::wstring_view text);

// The first columns of a UTF-8 text: at most the given number of
// characters, each counted as one column.
std::string cli_fit_columns(const std::string& text, int columns);

}  // namespace qb
