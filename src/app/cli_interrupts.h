// cli_interrupts: Ctrl-C (SIGINT) and SIGTERM for quillbridge-cli.
//
// The two signals are blocked in every thread of the process (the object must
// be made before any other thread starts, so that they inherit the mask) and
// are taken by a thread of its own with sigtimedwait, where it may lock and
// print like any other code. What a signal does depends on the phase:
//   - while the program starts (profile, connections, destination checks)
//     and after the run: the process ends at once with status 130;
//   - while the conversion runs: the first signal sets the converter's
//     cancel flag (b_cancel), so that the conversion stops between two
//     records, writes what it has read, and ends as any run does; the report
//     then says where it stopped. A second signal ends the process at once
//     with status 130.
//
// Ownership: the object owns its thread; the converter given to run_started
// must outlive the run (run_ended).
// Thread-safety: make and destroy on the main thread; the other members may
// be called from any thread.
#pragma once

#include <atomic>
#include <thread>

namespace qb {

class cli_console;
class tk_converter;

class cli_interrupts {
 public:
  // Blocks SIGINT and SIGTERM in the calling thread and starts the watcher.
  explicit cli_interrupts(cli_console& console);
  // Stops the watcher; the signals stay blocked.
  ~cli_interrupts();
  cli_interrupts(const cli_interrupts&) = delete;
  cli_interrupts& operator=(const cli_interrupts&) = delete;

  // The conversion of the converter runs from now on.
  void run_started(tk_converter& converter);
  // It has ended.
  void run_ended();
  // True when a signal asked the run to stop.
  [[nodiscard]] bool interrupted() const { return interrupted_.load(); }

  // The exit status of an interrupted program.
  static constexpr int exit_status = 130;

 private:
  void watch();
  void on_signal(int signal);
  [[noreturn]] void quit(const char* text);

  cli_console& console_;
  std::atomic<tk_converter*> converter_{nullptr};
  std::atomic<bool> interrupted_{false};
  std::atomic<bool> stopping_{false};
  std::thread watcher_;
};

}  // namespace qb
