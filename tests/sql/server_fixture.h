// A scratch database on the test MariaDB for the tests of the server
// destination: an sql_engine connected as the migration account (no SUPER),
// the database made by the engine, a root session for set-up and checks, and
// helpers that build columns, rows and indexes of the model.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sql/database.h"
#include "sql/engine.h"
#include "sql/table.h"
#include "tk/error_handler.h"
#include "tk/error_tables.h"
#include "tk/headless_shell.h"
#include "tk/utf.h"
#include "udb/indexes.h"
#include "udb/record.h"
#include "udb/schema.h"

#include "support/mariadb_server.h"
#include "support/temp_dir.h"
#include "test_session.h"
#include "support/log_lines.h"

namespace qb::test {

inline t_ftd server_col(const std::wstring& name, std::uint16_t type, std::uint32_t size = 0,
                        std::uint32_t dw_reserved = 0) {
  t_ftd f;
  f.name = name;
  f.vartype = type;
  f.size = size;
  f.dw_reserved = dw_reserved;
  return f;
}

inline udb_record server_row(const udb_schema& schema, const std::vector<ole_variant>& values) {
  udb_record row;
  for (std::size_t i = 0; i < values.size() && i < schema.size(); ++i) {
    row.emplace_back(schema[i].name, schema[i].size, values[i]);
  }
  return row;
}

inline udb_indexes primary_key(const std::wstring& column) {
  udb_indexes list;
  list.push_back(udb_index(L"PRIMARY", true, true, {column}));
  return list;
}

// The error handler with both message tables and a headless shell, as the
// program builds them.
class handler_and_shell_for_tests {
 public:
  explicit handler_and_shell_for_tests(headless_policy policy = {})
      : shell(headless_shell::product_title(), policy) {
    handler.load_err_map(tk_destination_errors);
    shell.set_initialized(true);
  }
  error_handler handler{tk_source_errors};
  headless_shell shell;
};

class ServerDb : public ::testing::Test {
 protected:
  ServerDb() : server_(mariadb_server::main()), root_(server_), name_(unique_name("qb_srv")) {
    connect_engine(engine_, server_, server_.account());
    std::unique_ptr<udb_database> db = engine_.create_db(tk_utf8_decode(name_));
    db_.reset(static_cast<sql_database*>(db.release()));
    root_.run("USE `" + name_ + "`");
  }
  ~ServerDb() override {
    db_.reset();
    try {
      root_.run("DROP DATABASE IF EXISTS `" + name_ + "`");
    } catch (...) {  // NOLINT(bugprone-empty-catch): a clean-up failure must not hide the test's own
    }
  }

  // Reopens the database with a mode (the table list is read again).
  void reopen(std::uint32_t mode) {
    db_.reset();
    std::unique_ptr<udb_database> db = engine_.open_db(tk_utf8_decode(name_), mode);
    db_.reset(static_cast<sql_database*>(db.release()));
  }

  // A new table through create_table, as the driver makes one.
  std::unique_ptr<sql_table> create(const std::wstring& table, const udb_schema& schema, udb_indexes indexes = {}) {
    std::unique_ptr<udb_recordset> rs = db_->create_table(table, schema, indexes);
    return std::unique_ptr<sql_table>(static_cast<sql_table*>(rs.release()));
  }

  // The log from a mark on (a mark is the log's length when it was taken).
  [[nodiscard]] std::size_t mark() const { return log_.text().size(); }
  [[nodiscard]] std::string log_since(std::size_t mark) const { return log_.text().substr(mark); }
  [[nodiscard]] bool has_line_since(std::size_t mark, const std::string& line) const {
    return lines_in_order(log_since(mark), {line});
  }
  [[nodiscard]] bool lines_in_log(const std::vector<std::string>& expected) const {
    return lines_in_order(log_.text(), expected);
  }
  std::string scalar(const std::string& statement) { return root_.scalar(statement); }
  std::vector<std::vector<std::string>> rows(const std::string& statement) { return root_.rows(statement); }
  std::vector<std::string> column(const std::string& statement) { return root_.column(statement); }
  void run(const std::string& statement) { root_.run(statement); }

  sql_database& db() { return *db_; }
  sql_engine& engine() { return engine_; }
  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] const mariadb_server& server() const { return server_; }

  // Declared first: the log catches the engine's lines too.
  log_capture log_;

 private:
  const mariadb_server& server_;
  test_session root_;
  std::string name_;
  sql_engine engine_;
  std::unique_ptr<sql_database> db_;
};

}  // namespace qb::test
