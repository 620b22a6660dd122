// Running quillbridge-cli as a child process, for the tests of the command
// line.
//
// A cli_process starts a program with arguments and an environment of its
// own (the test's environment with some variables set or removed), with its
// standard output and error on pipes, or with all three on a pseudo-terminal
// of a given width. The test can wait for a text to appear in the output (an
// observable state of the run, never a fixed time), send a signal, and wait
// for the end, which gives the exit status and everything written.
//
// Waiting is bounded only by a generous guard (a hung child fails the test
// and is killed instead of hanging the suite); no test depends on how fast
// the child runs.
//
// Ownership: the object owns the child and the pipe or terminal ends; the
// destructor kills a child that still runs.
// Thread-safety: one thread.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace qb::test {

// How the child ended.
struct cli_result {
  int status = -1;  // exit status; 128 + the signal when a signal ended it
  std::string out;  // standard output (on a terminal: everything written to it)
  std::string err;  // standard error (empty on a terminal)
};

struct cli_launch {
  std::string program;
  std::vector<std::string> args;
  // Variables to set (a value) or remove (no value) for the child.
  std::map<std::string, std::optional<std::string>> env;
  // 0: pipes; otherwise a pseudo-terminal this many columns wide.
  int terminal_columns = 0;
};

class cli_process {
 public:
  explicit cli_process(const cli_launch& launch);
  ~cli_process();
  cli_process(const cli_process&) = delete;
  cli_process& operator=(const cli_process&) = delete;

  // Reads until the output (standard output, or the terminal) holds text;
  // false when the child ended, or the guard ran out, first.
  bool wait_for_output(const std::string& text);
  // The same for standard error (pipes only).
  bool wait_for_error(const std::string& text);
  // Waits until a file holds the text (the child's log or dump); false when
  // the child ended or the guard ran out first.
  bool wait_for_file(const std::string& path, const std::string& text);

  void send_signal(int signal);
  // Reads to the end and reaps the child.
  cli_result wait();

  [[nodiscard]] const std::string& out() const { return out_; }
  [[nodiscard]] const std::string& err() const { return err_; }

  // How long any wait may take before the test gives up on the child.
  static constexpr std::chrono::seconds guard{120};

 private:
  // Reads what is there, waiting at most the timeout; false at the end of
  // both streams.
  bool pump(std::chrono::milliseconds timeout);
  bool wait_for(const std::string& text, const std::string& stream);

  pid_t pid_ = -1;
  int out_fd_ = -1;
  int err_fd_ = -1;
  std::string out_;
  std::string err_;
  std::optional<int> status_;
};

// Runs a program to its end.
cli_result cli_run(const cli_launch& launch);

}  // namespace qb::test
