// Helpers of the SQL Server source tests: fixture files written for one test,
// server strings and connections to the stand-in, the FreeTDS library, and
// what the error handler shows for a failure.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "mss/columns.h"
#include "mss/engine.h"
#include "mss/fetcher.h"
#include "mss/odbc.h"
#include "support/mss_standin.h"
#include "support/temp_dir.h"
#include "tk/error_handler.h"
#include "tk/error_tables.h"
#include "tk/headless_shell.h"
#include "tk/strings.h"
#include "support/log_lines.h"

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

// A result read whole through odb_fetcher, batch by batch.
struct fetched_table : public odb_cell_sink {
  std::vector<odb_column> columns;
  std::vector<std::uint16_t> tags;
  std::vector<std::uint32_t> reserved;
  std::vector<std::vector<ole_variant>> rows;
  std::vector<std::vector<std::uint32_t>> sizes;
  std::vector<std::size_t> batches;  // rows of each fetch, the closing 0 included
  bool block = false;

  ole_variant& cell(std::size_t row, std::size_t column) override { return batch_[row][column]; }
  void set_cell_size(std::size_t row, std::size_t column, std::uint32_t size) override {
    batch_sizes_[row][column] = size;
  }

  void read(odb_statement& statement, const std::wstring& source, bool dates_native) {
    columns = odb_describe_columns(statement);
    for (const odb_column& c : columns) {
      std::uint32_t r = 0;
      tags.push_back(odb_get_vartype(c.dbtype, c.size, c.flags, r, dates_native));
      reserved.push_back(r);
    }
    batch_.assign(odb_fetcher::batch_rows, std::vector<ole_variant>(columns.size()));
    batch_sizes_.assign(odb_fetcher::batch_rows, std::vector<std::uint32_t>(columns.size()));
    odb_fetcher fetcher(statement, columns, tags, source);
    block = fetcher.block_fetch();
    for (;;) {
      const std::size_t n = fetcher.fetch(*this);
      batches.push_back(n);
      if (n == 0) break;
      for (std::size_t r = 0; r < n; ++r) {
        rows.push_back(batch_[r]);
        sizes.push_back(batch_sizes_[r]);
      }
    }
  }

 private:
  std::vector<std::vector<ole_variant>> batch_;
  std::vector<std::vector<std::uint32_t>> batch_sizes_;
};

inline fetched_table fetch_all(const odb_connection& c, const std::wstring& sql, bool dates_native = true) {
  odb_statement s(c);
  EXPECT_TRUE(s.execute(sql));
  fetched_table t;
  t.read(s, L"[dbo].[test]", dates_native);
  return t;
}

// A readable form of a value for comparisons: the tag, then the value as
// exactly as the tag holds it.
inline std::string describe(const ole_variant& v) {
  std::string out = std::to_string(v.get_type()) + ":";
  switch (v.get_type()) {
    case ole_variant::vt_r4:
    case ole_variant::vt_r8: {
      char buf[40];
      std::snprintf(buf, sizeof buf, "%.17g", v.to_double());
      return out + buf;
    }
    case ole_variant::vt_date: {
      const ole_date* d = v.get_date();
      return out + d->to_string(true) + " kind=" + std::to_string(d->type) +
             " us=" + std::to_string(d->microseconds);
    }
    case ole_variant::vt_bstr:
      return out + tk_to_utf8(v.text_view());
    case ole_variant::vt_bytes:
    case ole_variant::vt_blob: {
      std::string hex;
      const auto b = v.bytes_view();
      tk_bytes_to_hex(b.size(), b.data(), hex);
      return out + std::to_string(b.size()) + ":" + (hex.size() > 200 ? hex.substr(0, 200) + "..." : hex);
    }
    default:
      return v.is_empty() ? out : out + v.to_string();
  }
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
