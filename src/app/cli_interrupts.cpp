#include "app/cli_interrupts.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <pthread.h>

#include "app/cli_console.h"
#include "tk/converter.h"
#include "tk/log.h"

namespace qb {

namespace {

sigset_t watched_signals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

}  // namespace

cli_interrupts::cli_interrupts(cli_console& console) : console_(console) {
  const sigset_t set = watched_signals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  watcher_ = std::thread([this] { watch(); });
}

cli_interrupts::~cli_interrupts() {
  stopping_.store(true);
  if (watcher_.joinable()) watcher_.join();
}

void cli_interrupts::run_started(tk_converter& converter) { converter_.store(&converter); }

void cli_interrupts::run_ended() { converter_.store(nullptr); }

void cli_interrupts::watch() {
  const sigset_t set = watched_signals();
  // A short wait, so that the destructor is not kept waiting.
  const timespec timeout{0, 100'000'000};
  while (!stopping_.load()) {
    siginfo_t info{};
    const int signal = sigtimedwait(&set, &info, &timeout);
    if (signal > 0) on_signal(signal);
  }
}

void cli_interrupts::on_signal(int signal) {
  const char* name = signal == SIGTERM ? "SIGTERM" : "SIGINT";
  LOG(3, "Signal %s received", name);
  tk_converter* converter = converter_.load();
  if (converter == nullptr) quit("Interrupted.");
  if (interrupted_.exchange(true)) quit("Interrupted again: quitting at once.");
  converter->set_cancel(1);
  console_.error_line(
      "Interrupted: the conversion stops after the current record and writes what it has read. "
      "Press Ctrl-C again to quit at once.");
}

void cli_interrupts::quit(const char* text) {
  LOG(3, "The program ends at once: %s", text);
  console_.clear_status();
  console_.error_line(text);
  std::fflush(nullptr);
  std::_Exit(exit_status);
}

}  // namespace qb
