#include "tk/log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "tk/exception.h"
#include "tk/paths.h"
#include "tk/utf.h"

namespace qb {
namespace {

// The running program's own file name with the extension ".log". Built
// without logging and without throwing: the logger is already registered as
// the singleton while its members are initialised.
std::string default_log_path() noexcept {
  char buf[4096];
  const ssize_t n = ::readlink("/proc/self/exe", buf, sizeof buf - 1);
  std::string path = n > 0 ? std::string(buf, static_cast<std::size_t>(n)) : std::string("Quillbridge");
  const std::size_t slash = path.rfind('/');
  const std::size_t dot = path.rfind('.');
  if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) path.resize(dot);
  return path + ".log";
}

}  // namespace

tk_logger::tk_logger(const std::string& path, bool enabled, int level, bool timestamp)
    : path_(path.empty() ? default_log_path() : path), level_(level), enabled_(enabled), timestamp_(timestamp) {
  if (enabled) {
    std::lock_guard lock(mutex_);
    truncate_file();
    created_.store(true);
  }
}

tk_logger::tk_logger(const char* path, bool enabled, int level, bool timestamp)
    : tk_logger(std::string(path != nullptr ? path : ""), enabled, level, timestamp) {}

tk_logger::~tk_logger() {
  std::lock_guard lock(mutex_);
  close_fd();
}

void tk_logger::close_fd() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

void tk_logger::truncate_file() {
  close_fd();
  const int fd = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd >= 0) ::close(fd);
}

void tk_logger::set_path(const char* path) {
  if (path == nullptr) throw tk_mail_assertion("tk_log", 82);
  std::lock_guard lock(mutex_);
  close_fd();
  path_ = path;
}

std::string tk_logger::path() const {
  std::lock_guard lock(mutex_);
  return path_;
}

bool tk_logger::accepts_first(int level) {
  if (!enabled_.load(std::memory_order_relaxed)) return false;
  if (!created_.load(std::memory_order_acquire)) {
    std::lock_guard lock(mutex_);
    if (!created_.load(std::memory_order_relaxed)) {
      truncate_file();
      created_.store(true, std::memory_order_release);
    }
  }
  return level >= level_.load(std::memory_order_relaxed);
}

void tk_logger::write_line(std::string_view text) {
  std::string line;
  line.reserve(text.size() + 11);
  if (timestamp_.load(std::memory_order_relaxed)) {
    const std::time_t now = std::time(nullptr);
    std::tm tm{};
    localtime_r(&now, &tm);
    tk_vformat_append(line, "%02d:%02d:%02d ", {tm.tm_hour, tm.tm_min, tm.tm_sec});
  }
  line.append(text);
  line.append("\r\n");

  std::lock_guard lock(mutex_);
  if (fd_ < 0) {
    fd_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd_ < 0) return;
  }
  const char* p = line.data();
  std::size_t left = line.size();
  while (left > 0) {
    const ssize_t n = ::write(fd_, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    p += n;
    left -= static_cast<std::size_t>(n);
  }
}

void tk_log_wide_line(tk_logger& logger, std::wstring_view text) {
  constexpr std::size_t limit = tk_logger::wide_line_limit - 1;  // room for the terminator
  if (text.size() > limit) text = text.substr(0, limit);
  std::string utf8;
  tk_utf8_append(utf8, text);
  if (utf8.size() > limit) {
    std::size_t cut = limit;
    while (cut > 0 && (static_cast<unsigned char>(utf8[cut]) & 0xC0) == 0x80) --cut;
    utf8.resize(cut);
  }
  logger.write_line(utf8);
}

}  // namespace qb
