#include "app/cli_console.h"

#include <cstdlib>

#include <sys/ioctl.h>
#include <unistd.h>

#include "tk/strings.h"

namespace qb {

namespace {

// Back to the line's start and erase it.
constexpr char k_erase_line[] = "\r\x1b[K";

bool is_continuation_byte(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

}  // namespace

std::string cli_narrow(std::wstring_view text) {
  std::string out;
  if (tk_unicode_to_ansi2(text, out)) return out;
  return tk_to_utf8(text);
}

std::string cli_fit_columns(const std::string& text, int columns) {
  if (columns <= 0) return {};
  int count = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (is_continuation_byte(text[i])) continue;
    if (count == columns) return text.substr(0, i);
    ++count;
  }
  return text;
}

cli_console::cli_console(std::FILE* out, std::FILE* err, bool terminal) : out_(out), err_(err), terminal_(terminal) {}

cli_console& cli_console::standard() {
  static cli_console console(stdout, stderr, ::isatty(STDOUT_FILENO) == 1);
  return console;
}

int cli_console::width() const {
  winsize size{};
  if (terminal_ && ::ioctl(::fileno(out_), TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  if (const char* columns = std::getenv("COLUMNS")) {
    const int n = std::atoi(columns);
    if (n > 0) return n;
  }
  return 80;
}

void cli_console::line(const std::string& text) { write_line(out_, text); }

void cli_console::error_line(const std::string& text) { write_line(err_, text); }

void cli_console::write_line(std::FILE* stream, const std::string& text) {
  std::lock_guard lock(mutex_);
  erase_status();
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fputc('\n', stream);
  std::fflush(stream);
  draw_status();
}

void cli_console::status(const std::string& text) {
  if (!terminal_) return;
  const std::string fitted = cli_fit_columns(text, width() - 1);
  std::lock_guard lock(mutex_);
  status_ = fitted;
  std::fputs(k_erase_line, out_);
  std::fwrite(status_.data(), 1, status_.size(), out_);
  std::fflush(out_);
}

void cli_console::clear_status() {
  std::lock_guard lock(mutex_);
  erase_status();
  status_.clear();
}

void cli_console::erase_status() {
  if (!terminal_ || status_.empty()) return;
  std::fputs(k_erase_line, out_);
  std::fflush(out_);
}

void cli_console::draw_status() {
  if (!terminal_ || status_.empty()) return;
  std::fwrite(status_.data(), 1, status_.size(), out_);
  std::fflush(out_);
}

}  // namespace qb
