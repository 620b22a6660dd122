// wizard_shell: the user's side of the program as the core sees it.
//
// The core talks to the user through this one interface: message boxes
// (error, message), the progress log box (write_log), help, the two error
// dialogs of the error handler (continue_or_abort and internal_error) and
// the list of errors that the finish page shows. The Qt wizard and the
// headless runner implement it; headless_shell (tk/headless_shell.h) answers
// by a policy.
//
// The public operations are static: they work before a shell exists, after
// it is gone, and on any thread. Each logs its entry line, builds the box
// title ("<title> Error" once the shell is initialized, "Error" before), and
// passes the request to the registered shell through a protected hook. With
// no shell registered, boxes go to standard error, the log box and help are
// skipped, and the continue-or-abort dialog counts as not shown (-1).
//
// Ownership: the entry routine owns the shell (a local, registered as the
// tk_singleton instance for its lifetime). It must outlive the threads that
// call it: a call that arrives while a derived shell is being destroyed
// would reach a hook that no longer exists.
//
// Thread-safety: the static operations may be called from any thread; they
// block the calling thread until the user has answered. An implementation
// runs its hooks on the calling thread and must, where its toolkit needs it,
// carry the request to its own user-interface thread and wait for the answer.
// The error list has its own lock.
#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include "tk/singleton.h"

namespace qb {

class wizard_shell : public tk_singleton<wizard_shell> {
 public:
  // Answers of the continue-or-abort dialog.
  static constexpr int answer_abort = 1;
  static constexpr int answer_continue = 2;  // also closing the box by its title bar
  static constexpr int answer_not_shown = -1;
  // Buttons of the internal-error dialog.
  enum class internal_error_choice { not_shown = -1, ok = 1, copy_to_clipboard = 2, send_bug = 3 };
  // Where write_log put its text.
  enum class log_box { appended, no_active_page, no_log_box };

  // The finish page shows at most this many errors; later ones are dropped.
  static constexpr std::size_t max_errors = 20;

  wizard_shell(const wizard_shell&) = delete;
  wizard_shell& operator=(const wizard_shell&) = delete;

  // The title of the program's windows: "Quillbridge %d.%d %s" with 8, 1 and
  // an empty text.
  static std::wstring product_title();

  // Logs "wizard_shell::is_initialized", then "Before return false" when no
  // shell exists or "Singleton has been initialized" when one does. True when
  // the shell exists and has been initialized (its first page was shown).
  static bool is_initialized();

  // Logs "wizard_shell::error(%s)" at level 1, shows the text in a box with
  // the stop icon, and logs the text at level 3.
  static void error(const std::wstring& text);
  // Logs "wizard_shell::message(%s)" at level 1 and shows the text in a box
  // with the information icon.
  static void message(const std::wstring& text);
  // Logs "wizard_shell::write_log(%s)" at level 1 and appends the text to the
  // log box of the active page; a page without one logs "Editbox failed to
  // be initialized". With no active page (or no shell) nothing happens.
  static void write_log(const std::wstring& text);
  // Logs "wizard_shell::display_help(%d)" and opens the help at the topic,
  // without blocking. A missing help file gives the error "Help file does
  // not exist. Reinstall the program." and nothing else.
  static void display_help(int topic);
  // Logs "wizard_shell::display_help" and opens the help at its first page.
  static void display_help();

  // The dialog of a continuable error: the message, "Continue", "Abort" and
  // the check box "&Do not show this dialog box again", whose state comes in
  // and goes out through do_not_show. Logs "dlg_error_continue::on_init".
  // Blocks until answered; gives answer_abort, answer_continue, or
  // answer_not_shown when the dialog cannot be shown.
  static int continue_or_abort(const std::wstring& message, bool& do_not_show);

  // The dialog of an internal error: the message, "Send bug", "OK" and "Copy
  // to clipboard". Logs "dlg_error_ex::ctor" and "dlg_error_ex::on_init",
  // blocks until answered, and carries out the button: "Copy to clipboard"
  // calls tk_copy_to_clipboard2 with the message, "Send bug" calls
  // tk_send_bug with the title (empty when the shell is not initialized) and
  // the message, both narrow. With no shell the message goes to standard
  // error and the answer is not_shown.
  static internal_error_choice internal_error(const std::wstring& message);

  // The title of a box of the given kind ("Error", "Message", "Question"):
  // the shell's title, a blank and the kind once the shell is initialized,
  // else the kind alone.
  static std::wstring box_title(const std::wstring& kind);

  // The shell's title, as given at construction.
  [[nodiscard]] const std::wstring& title() const { return title_; }
  // Whether the first page has been shown.
  [[nodiscard]] bool initialized() const;

  // The list of errors for the finish page: appends unless it holds
  // max_errors already; returns whether it did.
  bool add_error(const std::string& message);
  [[nodiscard]] std::vector<std::string> errors() const;
  [[nodiscard]] std::size_t error_count() const;

  // Asks the shell to put the text on the clipboard (see tk/files.h,
  // tk_copy_to_clipboard2). False when it cannot.
  virtual bool copy_to_clipboard(const std::wstring& text);

  // The help file: the running program's file name with the extension
  // ".chm", beside the program. An implementation may name another.
  [[nodiscard]] virtual std::string help_file() const;

 protected:
  // Logs "wizard_shell::ctor(%s)" with the title.
  explicit wizard_shell(std::wstring title);
  // Logs "wizard_shell::dtor".
  virtual ~wizard_shell();

  // Marks the shell initialized; the wizard does it on the first activation
  // of a page.
  void set_initialized(bool initialized);

  // The hooks behind the static operations; each blocks until done.
  virtual void show_error(const std::wstring& title, const std::wstring& text) = 0;
  virtual void show_message(const std::wstring& title, const std::wstring& text) = 0;
  virtual log_box append_log(const std::wstring& text) = 0;
  // topic < 0: the first page. Must not wait for the help viewer.
  virtual void open_help(const std::string& file, int topic) = 0;
  virtual int ask_continue_or_abort(const std::wstring& title, const std::wstring& message, bool& do_not_show) = 0;
  virtual internal_error_choice ask_internal_error(const std::wstring& title, const std::wstring& message) = 0;

 private:
  static void open_help_at(int topic);

  std::wstring title_;
  mutable std::mutex mutex_;
  bool initialized_ = false;
  std::vector<std::string> errors_;
};

}  // namespace qb
