// tk_converter: what every converter of the code base has, beneath the
// database converter and the product's own.
//
// It is a thread functor (the conversion runs on a tk_thread) that holds the
// source and destination names, the log file chosen by the user, and two
// flags shared with the user-interface thread:
//   finished  set to 1 by the worker when the conversion has ended, last of
//             all; the progress page polls it;
//   b_cancel  set through set_cancel, and by tk_thread when the wizard closes
//             while the worker runs; the conversion tests it between entries
//             and between records.
// Both are atomic bytes, so that the other thread may read them at any time.
//
// Ownership: the entry routine owns the converter; a tk_converter_thread runs
// it without owning it.
// Thread-safety: the wizard thread owns the object until the worker starts;
// from then on only the worker writes, except for b_cancel.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "tk/thread.h"

namespace qb {

class tk_converter : public tk_thread_functor {
 public:
  tk_converter() = default;
  ~tk_converter() override = default;

  // Stores the flag into b_cancel.
  virtual void set_cancel(std::uint8_t cancel);
  // Sets b_cancel, then stops the functor's own loop.
  void request_stop() override;

  // Logs "tk_convertor::set_logfile(%s)". Without a logger nothing else
  // happens. Otherwise the name is stored in log_file, and:
  //   - an empty name logs "Filename is empty" and keeps the current log;
  //   - an existing folder, an existing read-only file, a folder part that
  //     does not exist, or a folder in which no file can be created throws
  //     tk_exception (level 1) with the message for the case, and the
  //     logger stays as it was;
  //   - otherwise the logger writes to that file from now on (by its full
  //     path: a relative name is taken in the working directory of this
  //     call), appending to it, and logging is switched on.
  void set_logfile(const std::string& name);

  std::atomic<std::uint8_t> finished{0};
  std::atomic<std::uint8_t> b_cancel{0};
  std::wstring src;      // the source database
  std::wstring dest;     // the destination database, or the dump file's path
  std::string log_file;  // the log file chosen by the user
};

// The checks of set_logfile on a log file name, with its messages: throws
// tk_exception (level 1) when the name cannot be used as a log file.
void tk_check_log_file(const std::string& name);

// The thread that runs a converter: the converter is the functor, and the
// thread does not own it.
class tk_converter_thread : public tk_thread {
 public:
  explicit tk_converter_thread(tk_converter& converter) : tk_thread(false), converter_(converter) {}

 protected:
  tk_thread_functor* create_functor() override { return &converter_; }

 private:
  tk_converter& converter_;
};

}  // namespace qb
