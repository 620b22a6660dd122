#include "app/cli_shell.h"

#include <algorithm>

#include "app/cli_console.h"
#include "tk/format.h"
#include "udb/converter.h"

namespace qb {

namespace {

constexpr std::wstring_view k_table_line = L"Converting table ";
constexpr std::wstring_view k_database_line = L"Converting database ";
// Boxes kept for the report: enough to fill the finish page's list.
constexpr std::size_t k_kept_boxes = 2 * wizard_shell::max_errors;

// The text without its line end.
std::wstring without_line_end(std::wstring text) {
  while (!text.empty() && (text.back() == L'\n' || text.back() == L'\r')) text.pop_back();
  return text;
}

}  // namespace

std::string cli_message_text(const std::wstring& text) {
  std::wstring out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == L'\r') {
      out += L'\n';
      if (i + 1 < text.size() && text[i + 1] == L'\n') ++i;
    } else {
      out += text[i];
    }
  }
  return cli_narrow(without_line_end(std::move(out)));
}

cli_shell::cli_shell(cli_console& console, bool quiet, headless_policy answers)
    : headless_shell(product_title(), std::move(answers)), console_(console), quiet_(quiet) {}

std::vector<std::string> cli_shell::run_error_boxes() const {
  std::lock_guard lock(mutex_);
  return run_error_boxes_;
}

void cli_shell::show_error(const std::wstring& /*title*/, const std::wstring& text) {
  const std::string message = cli_message_text(text);
  if (running_.load()) {
    ++run_failures_;
    std::string one_line = message;
    std::replace(one_line.begin(), one_line.end(), '\n', ' ');
    std::lock_guard lock(mutex_);
    if (run_error_boxes_.size() < k_kept_boxes) run_error_boxes_.push_back(std::move(one_line));
  }
  if (print_failures()) console_.error_line("Error: " + message);
}

void cli_shell::show_message(const std::wstring& /*title*/, const std::wstring& text) {
  if (!quiet_) console_.line(cli_message_text(text));
}

wizard_shell::log_box cli_shell::append_log(const std::wstring& text) {
  if (running_.load() && text.starts_with(k_database_line)) run_opened_.store(true);
  if (quiet_ || console_.terminal()) return log_box::appended;
  const std::wstring line = without_line_end(text);
  if (line.empty()) return log_box::appended;
  std::string prefix;
  const udb_converter* converter = converter_.load();
  if (converter != nullptr && line.starts_with(k_table_line)) {
    const std::uint32_t tables = converter->n_tables.load();
    const std::uint32_t number = std::min(converter->n_done_tables.load() + 1, tables);
    if (tables != 0) prefix = tk_format("[%u/%u] ", number, tables);
  }
  console_.line(prefix + cli_message_text(line));
  return log_box::appended;
}

int cli_shell::ask_continue_or_abort(const std::wstring& /*title*/, const std::wstring& message, bool& do_not_show) {
  const headless_policy answers = get_policy();
  const int answer = answers.continue_answer;
  if (answer != answer_not_shown) do_not_show = answers.tick_do_not_show;
  if (running_.load()) ++run_failures_;
  if (print_failures()) {
    console_.error_line("Error: " + cli_message_text(message));
    if (answer == answer_abort) console_.error_line("The conversion is aborted (--on-error=abort).");
  }
  return answer;
}

wizard_shell::internal_error_choice cli_shell::ask_internal_error(const std::wstring& title,
                                                                  const std::wstring& message) {
  const internal_error_choice choice = headless_shell::ask_internal_error(title, message);
  console_.clear_status();
  console_.error_line(cli_message_text(message));
  return choice;
}

}  // namespace qb
