#include "tk/error_handler.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "tk/format.h"
#include "tk/log.h"
#include "tk/shell.h"
#include "tk/strings.h"

namespace qb {
namespace {

// Narrow text of the system code page to wide; a failed conversion gives an
// empty text.
std::wstring widen(const std::string& text) {
  std::wstring wide;
  if (!tk_ansi_to_unicode(text, wide)) wide.clear();
  return wide;
}

std::string narrow(const std::wstring& text) {
  std::string out;
  if (!tk_unicode_to_ansi2(text, out)) out.clear();
  return out;
}

}  // namespace

error_handler::error_handler(std::size_t count, const tk_error_row* table) : converter_(count, table) {}

error_handler::error_handler(std::span<const tk_error_row> table) : converter_(table) {}

void error_handler::load_err_map(std::size_t count, const tk_error_row* table) { converter_.load_map(count, table); }

void error_handler::set_context(const std::string& context) {
  std::lock_guard lock(mutex_);
  context_ = context;
}

void error_handler::set_context(const std::wstring& context) { set_context(narrow(context)); }

void error_handler::set_context(const std::wstring& table, int record) {
  set_context(tk_wformat(L"%s, record #%d", table, record));
}

std::string error_handler::context() const {
  std::lock_guard lock(mutex_);
  return context_;
}

void error_handler::add_help_topic(std::uint32_t code, int topic) {
  std::lock_guard lock(mutex_);
  help_topics_[code] = topic;
}

void error_handler::handle(const tk_exception& e, bool no_abort) {
  LOG(2, "error_handler::handle");
  if (e.level() == 2) internal_error(e);

  std::string message = context();
  if (!message.empty()) message += ": ";
  const std::string friendly = converter_.convert(e.code());
  message += friendly.empty() ? std::string(e.what()) : friendly;
  LOG(3, "Error:\n%s", message);

  // From here on the message is one line: the dialogs and the finish page
  // show it that way.
  std::replace(message.begin(), message.end(), '\n', ' ');
  if (wizard_shell::is_initialized()) {
    if (wizard_shell* shell = wizard_shell::try_instance()) shell->add_error(message);
  }

  if (e.level() == 1) {
    ends_job(e, message);
  } else {
    continuable(message, no_abort);
  }
}

void error_handler::internal_error(const tk_exception& e) {
  LOG(3, "Internal error:\n%s", e.what());
  wizard_shell::internal_error(widen(e.what()));
  // The process ends here: no destructor, no clean-up of the conversion.
  std::fflush(nullptr);
  std::_Exit(-1);
}

void error_handler::continuable(const std::string& message, bool no_abort) {
  LOG(1, "Got 0-level error");
  if (suppress_dialogs_.load()) return;
  const std::wstring wide = widen(message);
  LOG(1, "dlg_error_continue::ctor");
  bool do_not_show = false;
  const int answer = wizard_shell::continue_or_abort(wide, do_not_show);
  if (!no_abort && answer == wizard_shell::answer_abort) throw tk_final_exception();
  suppress_dialogs_.store(do_not_show);
}

void error_handler::ends_job(const tk_exception& e, const std::string& message) {
  LOG(1, "Got 1-level error");
  if (!suppress_dialogs_.load()) {
    LOG(1, "Step 1");
    wizard_shell::error(widen(message));
  }
  LOG(1, "Step 2");
  std::map<std::uint32_t, int> topics;
  {
    std::lock_guard lock(mutex_);
    topics = help_topics_;
  }
  for (const auto& [code, topic] : topics) {
    if (code == e.code()) wizard_shell::display_help(topic);
  }
}

void error_handler::handle_std(const std::exception& e) { wizard_shell::error(widen(e.what())); }

void error_handler::handle_current(bool no_abort) {
  try {
    throw;
  } catch (const tk_final_exception&) {
    throw;
  } catch (const tk_exception& e) {
    handle(e, no_abort);
  } catch (const std::exception& e) {
    handle_std(e);
  }
}

}  // namespace qb
