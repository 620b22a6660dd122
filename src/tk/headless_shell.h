// headless_shell: a wizard_shell without windows that answers by a policy.
//
// Every request that reaches it is recorded (kind, box title, text, help
// topic), so that tests can assert on what the user would have seen, and the
// dialogs are answered as the policy says: Continue or Abort, with or without
// "Do not show this dialog box again", and which button of the
// internal-error dialog. The text of write_log is kept as the log box.
// The headless runner derives from it to print what it shows.
//
// Ownership: as for any wizard_shell, the creator owns it and it registers as
// the singleton instance for its lifetime.
//
// Thread-safety: every member may be called from any thread; the record and
// the policy have their own lock. The hooks never block.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "tk/shell.h"

namespace qb {

// How a headless_shell answers.
struct headless_policy {
  int continue_answer = wizard_shell::answer_continue;  // what continue_or_abort answers
  bool tick_do_not_show = false;                        // the check box as the "user" leaves it
  wizard_shell::internal_error_choice internal_answer = wizard_shell::internal_error_choice::ok;
  bool clipboard_available = false;  // whether copy_to_clipboard succeeds
  std::string help_file;             // empty: the program's own help file
};

class headless_shell : public wizard_shell {
 public:
  using policy = headless_policy;

  enum class call_kind { error, message, log, help, continue_or_abort, internal_error, clipboard };
  struct call {
    call_kind kind;
    std::wstring title;  // box title; empty for the log box, help and clipboard
    std::wstring text;   // message or log text; the help file for help
    int topic = 0;       // help topic, -1 for the first page
  };

  explicit headless_shell(std::wstring title = product_title(), policy answers = {});
  ~headless_shell() override = default;

  void set_policy(const policy& answers);
  [[nodiscard]] policy get_policy() const;

  // The wizard marks itself initialized when its first page is shown; a
  // headless run does it when it starts.
  using wizard_shell::set_initialized;

  [[nodiscard]] std::vector<call> calls() const;
  [[nodiscard]] std::vector<call> calls_of(call_kind kind) const;
  // Everything write_log appended, in order.
  [[nodiscard]] std::wstring log_text() const;
  void clear_calls();

  bool copy_to_clipboard(const std::wstring& text) override;
  [[nodiscard]] std::string help_file() const override;

 protected:
  void show_error(const std::wstring& title, const std::wstring& text) override;
  void show_message(const std::wstring& title, const std::wstring& text) override;
  log_box append_log(const std::wstring& text) override;
  void open_help(const std::string& file, int topic) override;
  int ask_continue_or_abort(const std::wstring& title, const std::wstring& message, bool& do_not_show) override;
  internal_error_choice ask_internal_error(const std::wstring& title, const std::wstring& message) override;

  void record(call c);

 private:
  mutable std::mutex record_mutex_;
  policy policy_;
  std::vector<call> calls_;
  std::wstring log_text_;
};

}  // namespace qb
