// Helpers of the SQL Server source tests: fixture files written for one test,
// server strings and connections to the stand-in, the FreeTDS library, and
// what the error handler shows for a failure.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "mss/engine.h"
#include "mss/odbc.h"
#include "support/mss_standin.h"
#include "support/temp_dir.h"
#include "tk/error_handler.h"
#include "tk/error_tables.h"
#include "tk/headless_shell.h"
#include "tk/strings.h"

namespace qb::test {

// A fixture file with the given JSON text in a scratch directory of its own.
class fixture_file {
 public:
  explicit fixture_file(const std::string& json) : path_(dir_.file("fixture.json")) { write_file(path_, json); }
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  temp_dir dir_;
  std::string path_;
};

inline std::wstring wide(const std::string& utf8) { return tk_utf8_to_wide(utf8); }

// "127.0.0.1,<port>": the server as a user types a host with a port.
inline std::wstring server_of(const mss_standin& s) {
  return wide(s.host() + "," + std::to_string(s.port()));
}

inline odb_login login_of(const mss_standin& s, const std::string& user, const std::string& password,
                          const std::string& database) {
  return {server_of(s), wide(user), wide(password), wide(database)};
}

// A connection made the way the engine makes it through FreeTDS, but without
// the driver search.
inline odb_connection connect_freetds(const odb_environment& env, const mss_standin& s, const std::string& user,
                                      const std::string& password, const std::string& database) {
  odb_connection c(env);
  c.connect(odb_freetds_connection_string(L"FreeTDS", login_of(s, user, password, database),
                                          odb_brace_rule::doubled));
  return c;
}

inline odb_connection connect_freetds(const odb_environment& env, const mss_standin& s) {
  return connect_freetds(env, s, s.user(), s.password(), s.database());
}

// The FreeTDS driver library, for naming a driver by its path.
inline std::string freetds_library() {
  for (const char* dir : {"/usr/lib/x86_64-linux-gnu/odbc", "/usr/lib/aarch64-linux-gnu/odbc", "/usr/lib/odbc",
                          "/usr/lib64", "/usr/local/lib"}) {
    const std::string path = std::string(dir) + "/libtdsodbc.so";
    if (std::filesystem::exists(path)) return path;
  }
  ADD_FAILURE() << "libtdsodbc.so not found";
  return "libtdsodbc.so";
}

// The error handler as the connection page has it (the table of SQL Server
// messages) with a headless shell; shown() gives what the user read.
class shown_errors {
 public:
  shown_errors() : handler_(tk_source_errors.size(), tk_source_errors.data()) { shell_.set_initialized(true); }

  // Hands the failure to the handler and returns the text the user saw.
  std::wstring show(const tk_exception& e) {
    shell_.clear_calls();
    handler_.handle(e, true);
    const auto calls = shell_.calls();
    for (const auto& c : calls) {
      if (c.kind == headless_shell::call_kind::error || c.kind == headless_shell::call_kind::continue_or_abort) {
        return c.text;
      }
    }
    return L"<nothing shown>";
  }

 private:
  headless_shell shell_{L"Q"};
  error_handler handler_;
};

// The lines of a log text (split at CR LF).
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

// True when the expected lines occur in the log in this order, others between.
inline bool lines_in_order(const std::string& text, std::initializer_list<std::string> expected) {
  const std::vector<std::string> lines = log_lines(text);
  std::size_t i = 0;
  for (const std::string& want : expected) {
    while (i < lines.size() && lines[i] != want) ++i;
    if (i == lines.size()) return false;
    ++i;
  }
  return true;
}

inline int count_lines(const std::string& text, const std::string& line) {
  int n = 0;
  for (const std::string& l : log_lines(text)) n += l == line ? 1 : 0;
  return n;
}

// The text of a row of the SQL Server message table as the user sees it: line
// feeds are shown as blanks.
inline std::wstring row_text(std::uint32_t code) {
  for (const tk_error_row& row : tk_source_errors) {
    if (row.code == code) {
      std::string text = row.text;
      for (char& c : text) {
        if (c == '\n') c = ' ';
      }
      return wide(text);
    }
  }
  return L"<no row>";
}

}  // namespace qb::test
