// The process-wide log file.
//
// Nearly every operation writes a line on entry naming itself
// ("class::method(arguments)"); the file is how a support engineer follows a
// failed conversion. Levels: 1 detail, 2 flow, 3 must be seen. A line is the
// optional "%02d:%02d:%02d " stamp, the text and CR LF.
//
// The logger holds one descriptor opened in append mode and issues one write()
// per line, so every line has reached the operating system before the call
// returns: it survives a crash of the process and the file can be read while a
// run goes on. A failure to log is silent.
//
// Thread-safety: every member may be called from any thread. LOG and LOGW test
// the level before they format, so a suppressed line costs one comparison.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>

#include "tk/format.h"
#include "tk/singleton.h"

namespace qb {

class tk_logger : public tk_singleton<tk_logger> {
 public:
  // An empty or null path means the running program's own file name with the
  // extension ".log". When enabled, the file is created or emptied at once and
  // counts as created; otherwise that happens before the first line written
  // after logging was switched on.
  tk_logger(const std::string& path, bool enabled, int level, bool timestamp);
  tk_logger(const char* path, bool enabled, int level, bool timestamp);
  ~tk_logger();
  tk_logger(const tk_logger&) = delete;
  tk_logger& operator=(const tk_logger&) = delete;

  // Points the logger at another file. The created flag is kept, so a file
  // named after the start is appended to, not emptied. A null path is an
  // internal error (source "tk_log", line 82).
  void set_path(const char* path);
  void set_enabled(bool enabled) { enabled_.store(enabled); }
  void set_level(int level) { level_.store(level); }
  void set_timestamp(bool timestamp) { timestamp_.store(timestamp); }

  [[nodiscard]] std::string path() const;
  [[nodiscard]] int level() const { return level_.load(); }
  [[nodiscard]] bool enabled() const { return enabled_.load(); }
  // True once the file has been emptied in this run.
  [[nodiscard]] bool created() const { return created_.load(); }

  // Steps before a line is formatted: false when nothing is to be written.
  // Empties the file first when logging was switched on after construction.
  // Once the file exists this is three loads, inline: detail lines below the
  // threshold are asked for on every row.
  bool accepts(int level) {
    if (created_.load(std::memory_order_acquire)) {
      return enabled_.load(std::memory_order_relaxed) && level >= level_.load(std::memory_order_relaxed);
    }
    return accepts_first(level);
  }
  // Writes one formatted line (stamp, text, CR LF) in one write().
  void write_line(std::string_view text);

  // The narrow line is written in the bytes it has; the wide line is cut to
  // the 10240-unit buffers that the file format has always had.
  static constexpr std::size_t wide_line_limit = 10240;

 private:
  bool accepts_first(int level);
  void truncate_file();  // with mutex_ held
  void close_fd();       // with mutex_ held

  mutable std::mutex mutex_;
  std::string path_;
  int fd_ = -1;
  std::atomic<int> level_;
  std::atomic<bool> enabled_;
  std::atomic<bool> created_{false};
  std::atomic<bool> timestamp_;
};

// Writes a formatted wide line: cut to the wide buffer, then UTF-8.
void tk_log_wide_line(tk_logger& logger, std::wstring_view text);

// LOG(level, format, ...): narrow line in the manner of printf.
template <class... A>
void LOG(int level, std::string_view format, const A&... args) {  // NOLINT(readability-identifier-naming)
  tk_logger* logger = tk_logger::try_instance();
  if (logger == nullptr || !logger->accepts(level)) return;
  logger->write_line(tk_vformat(format, {fmt_arg(args)...}));
}

// LOGW(level, format, ...): wide line.
template <class... A>
void LOGW(int level, std::wstring_view format, const A&... args) {  // NOLINT(readability-identifier-naming)
  tk_logger* logger = tk_logger::try_instance();
  if (logger == nullptr || !logger->accepts(level)) return;
  tk_log_wide_line(*logger, tk_vwformat(format, {fmt_arg(args)...}));
}

}  // namespace qb
