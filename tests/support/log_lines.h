// Helpers of the tests: the lines of a log text, their order, and a scoped
// environment variable.
#pragma once

#include <cstdlib>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace qb::test {

// The lines of a log text, split at CR LF (a line may hold a bare LF).
inline std::vector<std::string> log_lines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find("\r\n", start);
    if (end == std::string::npos) end = text.size();
    lines.push_back(text.substr(start, end - start));
    start = end + 2;
  }
  return lines;
}

// True when the expected lines occur in the log in this order (other lines
// may stand between them).
inline bool lines_in_order(const std::string& text, const std::vector<std::string>& expected) {
  const std::vector<std::string> lines = log_lines(text);
  std::size_t i = 0;
  for (const std::string& want : expected) {
    while (i < lines.size() && lines[i] != want) ++i;
    if (i == lines.size()) return false;
    ++i;
  }
  return true;
}

// How often a line occurs in the log.
inline int count_lines(const std::string& text, const std::string& line) {
  int n = 0;
  for (const std::string& l : log_lines(text)) n += l == line ? 1 : 0;
  return n;
}

// Sets (or with nullopt removes) an environment variable for a scope.
class scoped_env {
 public:
  scoped_env(const char* name, const std::optional<std::string>& value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = std::string(old);
    if (value) {
      ::setenv(name, value->c_str(), 1);
    } else {
      ::unsetenv(name);
    }
  }
  ~scoped_env() {
    if (old_) {
      ::setenv(name_.c_str(), old_->c_str(), 1);
    } else {
      ::unsetenv(name_.c_str());
    }
  }
  scoped_env(const scoped_env&) = delete;
  scoped_env& operator=(const scoped_env&) = delete;

 private:
  std::string name_;
  std::optional<std::string> old_;
};

}  // namespace qb::test
