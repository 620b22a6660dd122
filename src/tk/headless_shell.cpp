#include "tk/headless_shell.h"

#include "tk/strings.h"

namespace qb {

headless_shell::headless_shell(std::wstring title, policy answers)
    : wizard_shell(std::move(title)), policy_(std::move(answers)) {}

void headless_shell::set_policy(const policy& answers) {
  std::lock_guard lock(record_mutex_);
  policy_ = answers;
}

headless_shell::policy headless_shell::get_policy() const {
  std::lock_guard lock(record_mutex_);
  return policy_;
}

std::vector<headless_shell::call> headless_shell::calls() const {
  std::lock_guard lock(record_mutex_);
  return calls_;
}

std::vector<headless_shell::call> headless_shell::calls_of(call_kind kind) const {
  std::lock_guard lock(record_mutex_);
  std::vector<call> out;
  for (const call& c : calls_) {
    if (c.kind == kind) out.push_back(c);
  }
  return out;
}

std::wstring headless_shell::log_text() const {
  std::lock_guard lock(record_mutex_);
  return log_text_;
}

void headless_shell::clear_calls() {
  std::lock_guard lock(record_mutex_);
  calls_.clear();
  log_text_.clear();
}

void headless_shell::record(call c) {
  std::lock_guard lock(record_mutex_);
  calls_.push_back(std::move(c));
}

void headless_shell::show_error(const std::wstring& title, const std::wstring& text) {
  record({call_kind::error, title, text});
}

void headless_shell::show_message(const std::wstring& title, const std::wstring& text) {
  record({call_kind::message, title, text});
}

wizard_shell::log_box headless_shell::append_log(const std::wstring& text) {
  std::lock_guard lock(record_mutex_);
  calls_.push_back({call_kind::log, {}, text});
  log_text_ += text;
  return log_box::appended;
}

void headless_shell::open_help(const std::string& file, int topic) {
  record({call_kind::help, {}, tk_utf8_to_wide(file), topic});
}

int headless_shell::ask_continue_or_abort(const std::wstring& title, const std::wstring& message, bool& do_not_show) {
  std::lock_guard lock(record_mutex_);
  calls_.push_back({call_kind::continue_or_abort, title, message});
  if (policy_.continue_answer != answer_not_shown) do_not_show = policy_.tick_do_not_show;
  return policy_.continue_answer;
}

wizard_shell::internal_error_choice headless_shell::ask_internal_error(const std::wstring& title,
                                                                       const std::wstring& message) {
  std::lock_guard lock(record_mutex_);
  calls_.push_back({call_kind::internal_error, title, message});
  return policy_.internal_answer;
}

bool headless_shell::copy_to_clipboard(const std::wstring& text) {
  std::lock_guard lock(record_mutex_);
  calls_.push_back({call_kind::clipboard, {}, text});
  return policy_.clipboard_available;
}

std::string headless_shell::help_file() const {
  {
    std::lock_guard lock(record_mutex_);
    if (!policy_.help_file.empty()) return policy_.help_file;
  }
  return wizard_shell::help_file();
}

}  // namespace qb
