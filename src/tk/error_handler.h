// error_handler: what happens to a failure once it has been caught.
//
// Every catch clause of the program that cannot deal with a failure itself
// hands it to error_handler::handle. The handler puts the context before the
// message, replaces the failure's text by the friendly message of its code
// when a table has one, logs it, keeps it for the finish page (through
// wizard_shell, at most 20), and then by the failure's level:
//   0  shows the continue-or-abort dialog; Abort throws tk_final_exception
//      unless the caller said no_abort. "Do not show this dialog box again"
//      with Continue silences level 0 and 1 for the rest of the process.
//   1  shows an error box (unless silenced) and opens the help topics
//      registered for the code; the caller's catch clause ends the job.
//   2  shows the internal-error dialog and ends the process with exit code
//      -1 at once, with no clean-up.
//
// Ownership: the entry routine owns the handler (a local, registered as the
// tk_singleton instance for its lifetime); it owns its message map.
//
// Thread-safety: handle is called on the conversion thread, the connecting
// thread and the user-interface thread, one of them at a time; it blocks the
// calling thread while a dialog is up. The context and the suppression flag
// are safe to read and write from any thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <mutex>
#include <span>
#include <string>

#include "tk/error_converter.h"
#include "tk/exception.h"
#include "tk/singleton.h"

namespace qb {

class error_handler : public tk_singleton<error_handler> {
 public:
  // Builds the message map from the first table (see tk_error_converter).
  error_handler(std::size_t count, const tk_error_row* table);
  explicit error_handler(std::span<const tk_error_row> table);
  ~error_handler() = default;
  error_handler(const error_handler&) = delete;
  error_handler& operator=(const error_handler&) = delete;

  // Adds a further table; its rows do not override codes already present.
  void load_err_map(std::size_t count, const tk_error_row* table);
  void load_err_map(std::span<const tk_error_row> table) { load_err_map(table.size(), table.data()); }

  // Logs "error_handler::handle" and handles the failure as described above.
  // Throws tk_final_exception when the user aborts (level 0, no_abort false);
  // does not return for level 2.
  void handle(const tk_exception& e, bool no_abort);

  // A failure from outside the family (the standard library): its text,
  // widened from the system code page, goes to wizard_shell::error.
  void handle_std(const std::exception& e);

  // For a catch (...) clause: handles the exception in flight by its type
  // (tk_exception by handle, another std::exception by handle_std). A
  // tk_final_exception, or anything unknown, is thrown on.
  void handle_current(bool no_abort);

  // The text put before every message, with ": ", while it is not empty. It
  // is kept until it is set again. Wide text is narrowed to the system code
  // page; the second form is "%s, record #%d" of the table and the record.
  void set_context(const std::string& context);
  void set_context(const std::wstring& context);
  void set_context(const std::wstring& table, int record);
  [[nodiscard]] std::string context() const;

  // "Do not show this dialog box again": once set by the user it stays set.
  [[nodiscard]] bool suppress_dialogs() const { return suppress_dialogs_.load(); }
  void set_suppress_dialogs(bool suppress) { suppress_dialogs_.store(suppress); }

  // Help topics opened for a level 1 failure of the code.
  void add_help_topic(std::uint32_t code, int topic);

  [[nodiscard]] const tk_error_converter& converter() const { return converter_; }

 private:
  [[noreturn]] static void internal_error(const tk_exception& e);
  void continuable(const std::string& message, bool no_abort);
  void ends_job(const tk_exception& e, const std::string& message);

  mutable std::mutex mutex_;
  std::string context_;
  std::atomic<bool> suppress_dialogs_{false};
  std::map<std::uint32_t, int> help_topics_;
  tk_error_converter converter_;
};

}  // namespace qb
