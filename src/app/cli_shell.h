// cli_shell: the wizard_shell of quillbridge-cli, a headless_shell that
// prints.
//
// What the wizard would show in a window is written to the console instead:
//   - an error box, and the continue-or-abort dialog of a continuable
//     error, as "Error: <message>" on standard error; the dialog is answered
//     by the policy (--on-error), and an Abort says so;
//   - a message box as a line on standard output;
//   - the progress page's log box, off a terminal, as plain lines on
//     standard output, a table's line numbered "[n/N]" (on a terminal the
//     live status line stands for it);
//   - the internal-error dialog as its message on standard error, whatever
//     the options: the process ends right after it.
// With --quiet the progress and the messages are not printed, and failures
// met while the conversion runs are left to the report (it lists them);
// failures outside the run (the start) are still printed, since no report
// follows them.
//
// The shell counts the failures shown to the user while the run goes on, and
// keeps the first ones shown as an error box, because a failure from outside
// the exception family reaches the user only that way and not through the
// error handler's list. Unlike headless_shell it keeps no record of every
// call: a long run may report a failure for each of millions of records.
//
// Ownership: the front end owns the shell; the console and the converter
// given to it must outlive it.
// Thread-safety: every member may be called from any thread (the hooks are
// called on the worker while the main thread reads the counters).
#pragma once

#include <atomic>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include "tk/headless_shell.h"

namespace qb {

class cli_console;
class udb_converter;

class cli_shell : public headless_shell {
 public:
  cli_shell(cli_console& console, bool quiet, headless_policy answers);

  // The converter whose counters number the table lines.
  void set_converter(const udb_converter* converter) { converter_.store(converter); }
  // Marks the time the conversion runs: failures are counted then.
  void set_running(bool running) { running_.store(running); }

  // Failures shown while the run went on (error boxes and continue-or-abort
  // dialogs).
  [[nodiscard]] std::size_t run_failures() const { return run_failures_.load(); }
  // Whether the run has opened its source and destination: it says so in
  // the log box ("Converting database ...").
  [[nodiscard]] bool run_opened() const { return run_opened_.load(); }
  // The texts of the error boxes shown while the run went on, one line each
  // (line breaks become blanks, as in the error handler's list).
  [[nodiscard]] std::vector<std::string> run_error_boxes() const;

 protected:
  void show_error(const std::wstring& title, const std::wstring& text) override;
  void show_message(const std::wstring& title, const std::wstring& text) override;
  log_box append_log(const std::wstring& text) override;
  int ask_continue_or_abort(const std::wstring& title, const std::wstring& message, bool& do_not_show) override;
  internal_error_choice ask_internal_error(const std::wstring& title, const std::wstring& message) override;

 private:
  // Whether a failure is printed as it happens.
  [[nodiscard]] bool print_failures() const { return !quiet_ || !running_.load(); }

  cli_console& console_;
  const bool quiet_;
  std::atomic<const udb_converter*> converter_{nullptr};
  std::atomic<bool> running_{false};
  std::atomic<std::size_t> run_failures_{0};
  std::atomic<bool> run_opened_{false};
  mutable std::mutex mutex_;
  std::vector<std::string> run_error_boxes_;
};

// A message as it is printed: CR LF and CR become LF.
std::string cli_message_text(const std::wstring& text);

}  // namespace qb
