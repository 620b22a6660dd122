#include "tk/shell.h"

#include <cstdio>

#include <sys/stat.h>

#include "tk/files.h"
#include "tk/format.h"
#include "tk/log.h"
#include "tk/paths.h"
#include "tk/strings.h"
#include "tk/utf.h"

namespace qb {
namespace {

// The last resort when no shell is registered: the box goes to standard error.
void print_box(const std::wstring& title, const std::wstring& text) {
  const std::string line = tk_to_utf8(title) + ": " + tk_to_utf8(text) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
}

bool is_regular_file(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string narrow(const std::wstring& text) {
  std::string out;
  if (!tk_unicode_to_ansi2(text, out)) out.clear();
  return out;
}

}  // namespace

wizard_shell::wizard_shell(std::wstring title) : title_(std::move(title)) { LOG(1, "wizard_shell::ctor(%s)", title_); }

wizard_shell::~wizard_shell() { LOG(1, "wizard_shell::dtor"); }

std::wstring wizard_shell::product_title() { return tk_wformat(L"Quillbridge %d.%d %s", 8, 1, L""); }

bool wizard_shell::is_initialized() {
  LOG(1, "wizard_shell::is_initialized");
  const wizard_shell* shell = try_instance();
  if (shell == nullptr) {
    LOG(1, "Before return false");
    return false;
  }
  LOG(1, "Singleton has been initialized");
  return shell->initialized();
}

bool wizard_shell::initialized() const {
  std::lock_guard lock(mutex_);
  return initialized_;
}

void wizard_shell::set_initialized(bool initialized) {
  std::lock_guard lock(mutex_);
  initialized_ = initialized;
}

std::wstring wizard_shell::box_title(const std::wstring& kind) {
  if (!is_initialized()) return kind;
  return instance().title() + L" " + kind;
}

void wizard_shell::error(const std::wstring& text) {
  LOG(1, "wizard_shell::error(%s)", text);
  const std::wstring title = box_title(L"Error");
  if (wizard_shell* shell = try_instance()) {
    shell->show_error(title, text);
  } else {
    print_box(title, text);
  }
  LOG(3, "%s", text);
}

void wizard_shell::message(const std::wstring& text) {
  LOG(1, "wizard_shell::message(%s)", text);
  const std::wstring title = box_title(L"Message");
  if (wizard_shell* shell = try_instance()) {
    shell->show_message(title, text);
  } else {
    print_box(title, text);
  }
}

void wizard_shell::write_log(const std::wstring& text) {
  LOG(1, "wizard_shell::write_log(%s)", text);
  wizard_shell* shell = try_instance();
  if (shell == nullptr) return;
  if (shell->append_log(text) == log_box::no_log_box) LOG(1, "Editbox failed to be initialized");
}

void wizard_shell::display_help(int topic) {
  LOG(1, "wizard_shell::display_help(%d)", topic);
  open_help_at(topic);
}

void wizard_shell::display_help() {
  LOG(1, "wizard_shell::display_help");
  open_help_at(-1);
}

void wizard_shell::open_help_at(int topic) {
  wizard_shell* shell = try_instance();
  if (shell == nullptr) return;
  const std::string file = shell->help_file();
  if (!is_regular_file(file)) {
    error(L"Help file does not exist. Reinstall the program.");
    return;
  }
  shell->open_help(file, topic);
}

std::string wizard_shell::help_file() const {
  const tk_file_name parts(tk_get_module_path());
  return parts.drive + parts.dir + parts.name + ".chm";
}

int wizard_shell::continue_or_abort(const std::wstring& message, bool& do_not_show) {
  wizard_shell* shell = try_instance();
  if (shell == nullptr) return answer_not_shown;
  const std::wstring title = box_title(L"Error");
  LOG(1, "dlg_error_continue::on_init");
  return shell->ask_continue_or_abort(title, message, do_not_show);
}

wizard_shell::internal_error_choice wizard_shell::internal_error(const std::wstring& message) {
  LOG(1, "dlg_error_ex::ctor");
  const std::wstring title = box_title(L"Error");
  wizard_shell* shell = try_instance();
  if (shell == nullptr) {
    print_box(title, message);
    return internal_error_choice::not_shown;
  }
  LOG(1, "dlg_error_ex::on_init");
  const internal_error_choice choice = shell->ask_internal_error(title, message);
  switch (choice) {
    case internal_error_choice::copy_to_clipboard:
      tk_copy_to_clipboard2(message);
      break;
    case internal_error_choice::send_bug: {
      const std::wstring product = is_initialized() ? shell->title() : std::wstring();
      tk_send_bug(narrow(product), narrow(message));
      break;
    }
    default:
      break;
  }
  return choice;
}

bool wizard_shell::copy_to_clipboard(const std::wstring& /*text*/) { return false; }

bool wizard_shell::add_error(const std::string& message) {
  std::lock_guard lock(mutex_);
  if (errors_.size() >= max_errors) return false;
  errors_.push_back(message);
  return true;
}

std::vector<std::string> wizard_shell::errors() const {
  std::lock_guard lock(mutex_);
  return errors_;
}

std::size_t wizard_shell::error_count() const {
  std::lock_guard lock(mutex_);
  return errors_.size();
}

}  // namespace qb
