// End to end: fixture databases of the SQL Server stand-in migrated by the
// converter and its driver into a dump file, the file replayed by the stock
// mariadb client into the test MariaDB, and every row read back and compared
// value by value with what the source reader delivers.
//
// The converter reaches the source through its SQL Server engine and the
// dump through the MySQL engine; the two small adapters below connect them
// to the converter's seams (set_source_engine, set_target).
//
// Where the target holds a value differently on purpose, the comparison says
// so: DATETIME, TIME and TIMESTAMP keep whole seconds; FLOAT keeps about
// seven significant digits; DECIMAL writes its scale's zeros; spatial values
// are compared as well-known text without blanks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fcntl.h>
#include <map>
#include <optional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "app/convertor.h"
#include "mss/database.h"
#include "mss/engine.h"
#include "mss/table.h"
#include "sql/client.h"
#include "sql/dump.h"
#include "sql/engine.h"
#include "tk/strings.h"

#include "app_fixtures.h"
#include "support/mariadb_server.h"
#include "support/mss_standin.h"
#include "support/temp_dir.h"

namespace qb::test {
namespace {

// --- The converter's seams, over the real engines ------------------------------------------

class engine_source : public mss_source_engine {
 public:
  explicit engine_source(mss_engine& engine) : engine_(engine) {}
  std::unique_ptr<udb_database> open_db(const std::wstring& name, std::uint32_t mode,
                                        const std::wstring& schema) override {
    return engine_.open_db(name, mode, schema);
  }
  bool is_db_exist(const std::wstring& name) override { return engine_.is_db_exist(name); }
  std::vector<std::wstring> get_contents() override { return engine_.get_contents(); }

 private:
  mss_engine& engine_;
};

class dump_target : public mysql_target_engine {
 public:
  explicit dump_target(sql_engine& engine) : engine_(engine) {}
  std::unique_ptr<udb_database> create_dump(const std::wstring& path, const mysql_dump_options& o) override {
    dump_options options;
    options.line_break = o.line_break;
    options.new_version = o.new_version != 0;
    options.add_lock = o.add_lock != 0;
    options.insert_comments = o.insert_comments != 0;
    options.create_database = o.create_database != 0;
    options.create_table = o.create_table != 0;
    options.created_by = tk_utf8_to_wide(o.title);
    return engine_.create_dump(path, options);
  }
  std::unique_ptr<udb_database> create_db(const std::wstring& /*name*/) override { throw no_server(); }
  std::unique_ptr<udb_database> open_db(const std::wstring& /*name*/, std::uint32_t /*mode*/) override {
    throw no_server();
  }
  bool is_db_exist(const std::wstring& /*name*/) override { throw no_server(); }

 private:
  static tk_exception no_server() { return tk_exception("This test writes dump files only.", 1); }
  sql_engine& engine_;
};

// --- The stock client and the server --------------------------------------------------------

struct replay_result {
  int exit_code = -1;
  std::string output;
};

replay_result replay(const mariadb_server& server, const std::string& file, const std::string& database) {
  std::vector<std::string> args = {"mariadb", "--no-defaults", "--protocol=TCP", "-h" + server.host(),
                                   "-P" + std::to_string(server.port()), "-u" + server.account().user,
                                   "-p" + server.account().password, "--show-warnings", database};
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  int out[2];
  if (::pipe(out) != 0) return {};
  const pid_t pid = ::fork();
  if (pid == 0) {
    const int in = ::open(file.c_str(), O_RDONLY);
    ::dup2(in, 0);
    ::dup2(out[1], 1);
    ::dup2(out[1], 2);
    ::execvp("mariadb", argv.data());
    ::_exit(127);
  }
  ::close(out[1]);
  replay_result r;
  char buf[4096];
  for (ssize_t n; (n = ::read(out[0], buf, sizeof buf)) > 0;) r.output.append(buf, static_cast<std::size_t>(n));
  ::close(out[0]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  r.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

// The client's lines that report an error or a warning. The notes that
// "DROP FUNCTION IF EXISTS" gives for a function a new database does not
// have yet (1305) are expected.
std::vector<std::string> problems(const std::string& output) {
  std::vector<std::string> out;
  std::size_t start = 0;
  while (start < output.size()) {
    std::size_t end = output.find('\n', start);
    if (end == std::string::npos) end = output.size();
    const std::string line = output.substr(start, end - start);
    if (!line.empty() && line.find("(Code 1305)") == std::string::npos) out.push_back(line);
    start = end + 1;
  }
  return out;
}

class target_session {
 public:
  explicit target_session(const mariadb_server& server) {
    sql_client_library_init();
    connection_.reset(mysql_init(nullptr));
    unsigned port = static_cast<unsigned>(server.port());
    if (mysql_real_connect(connection_.get(), server.host().c_str(), server.account().user.c_str(),
                           server.account().password.c_str(), nullptr, port, nullptr, 0) == nullptr) {
      throw std::runtime_error(std::string("cannot connect: ") + mysql_error(connection_.get()));
    }
    sql_run(connection_.get(), "SET NAMES utf8mb4");
  }
  void run(const std::string& statement) { sql_run(connection_.get(), statement); }
  // Every row of a statement, each cell as text or nullopt for NULL.
  std::vector<std::vector<std::optional<std::string>>> rows(const std::string& statement) {
    std::vector<std::vector<std::optional<std::string>>> out;
    sql_stream stream(connection_.get(), statement);
    while (stream.next()) {
      std::vector<std::optional<std::string>> row;
      for (unsigned i = 0; i < stream.field_count(); ++i) {
        if (stream.is_null(i)) {
          row.emplace_back(std::nullopt);
        } else {
          row.emplace_back(std::string(stream.field(i)));
        }
      }
      out.push_back(std::move(row));
    }
    return out;
  }

 private:
  sql_connection_ptr connection_;
};

std::string quoted(const std::string& name) {
  std::string out = "`";
  for (char c : name) {
    out += c;
    if (c == '`') out += '`';
  }
  return out + "`";
}

std::string sql_text(const std::string& s) {
  std::string out = "'";
  for (char c : s) {
    if (c == '\'' || c == '\\') out += c;
    out += c;
  }
  return out + "'";
}

// --- Values as text, both sides alike ------------------------------------------------------

enum class kind { exact, decimal, real4, real8, spatial };

std::string without_blanks(std::string s) {
  s.erase(std::remove(s.begin(), s.end(), ' '), s.end());
  return s;
}

std::string decimal_text(std::string s) {
  if (s.find('.') != std::string::npos) {
    while (!s.empty() && s.back() == '0') s.pop_back();
    if (!s.empty() && s.back() == '.') s.pop_back();
  }
  if (s == "-0") s = "0";
  return s;
}

std::string real_text(double v, int digits) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.*g", digits, v);
  return buf;
}

std::optional<std::string> normalized(const std::optional<std::string>& cell, kind k) {
  if (!cell) return cell;
  switch (k) {
    case kind::decimal:
      return decimal_text(*cell);
    case kind::real4:
      return real_text(std::strtod(cell->c_str(), nullptr), 6);
    case kind::real8:
      return real_text(std::strtod(cell->c_str(), nullptr), 17);
    case kind::spatial:
      return without_blanks(*cell);
    case kind::exact:
      break;
  }
  return cell;
}

std::string two(int v) {
  char buf[8];
  std::snprintf(buf, sizeof buf, "%02d", v);
  return buf;
}

// The text the target gives for a source value in a column of that data type.
std::optional<std::string> expected_text(const ole_variant& v, const std::string& data_type) {
  if (v.is_empty()) return std::nullopt;
  switch (v.get_type()) {
    case ole_variant::vt_bool:
      return v.to_bool() ? "1" : "0";
    case ole_variant::vt_date: {
      const ole_systemtime& t = v.get_date()->src;
      char date[32];
      std::snprintf(date, sizeof date, "%04d-%02d-%02d", t.wYear, t.wMonth, t.wDay);
      const std::string time = two(t.wHour) + ":" + two(t.wMinute) + ":" + two(t.wSecond);
      if (data_type == "date") return std::string(date);
      if (data_type == "time") return time;
      return std::string(date) + " " + time;
    }
    case ole_variant::vt_bytes:
    case ole_variant::vt_blob: {
      std::string hex;
      const auto bytes = v.bytes_view();
      tk_bytes_to_hex(bytes.size(), bytes.data(), hex);
      return hex;
    }
    case ole_variant::vt_bstr:
      return tk_to_utf8(v.text_view());
    default:
      return tk_to_utf8(v.to_wstring());
  }
}

struct target_column {
  std::string name;
  std::string data_type;
};

kind kind_of(const std::string& data_type) {
  if (data_type == "decimal") return kind::decimal;
  if (data_type == "float") return kind::real4;
  if (data_type == "double") return kind::real8;
  if (data_type == "geometry" || data_type == "point" || data_type == "linestring" || data_type == "polygon") {
    return kind::spatial;
  }
  return kind::exact;
}

using text_rows = std::vector<std::vector<std::optional<std::string>>>;

// --- One migration -----------------------------------------------------------------------------

struct migration {
  std::wstring database;
  std::wstring schema;                       // the schema filter; empty: none
  std::vector<std::wstring> tables;          // source names
  udb_named_texts queries;                   // (name, SELECT text)
  std::vector<std::wstring> views;
};

class SourceToDump : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    mss_standin_options o;
    o.fixtures = {"types.json", "business.json", "hostile.json"};
    o.database = "qbshop";
    standin_ = new mss_standin(o);
  }
  static void TearDownTestSuite() {
    delete standin_;
    standin_ = nullptr;
  }

  SourceToDump() : server_(mariadb_server::main()), target_(server_) {
    converter_.mssql_engine().connect(tk_utf8_to_wide(standin_->host() + "," + std::to_string(standin_->port())),
                                      L"sa", L"Secret#1", true);
    converter_.mssql_engine().set_as_dbo(converter_.as_dbo != 0);
    converter_.set_source_engine(source_);
    converter_.set_target(dump_);
  }
  ~SourceToDump() override {
    for (const std::string& db : databases_) {
      try {
        target_.run("DROP DATABASE IF EXISTS " + quoted(db));
      } catch (...) {  // NOLINT(bugprone-empty-catch): a clean-up failure must not hide the test's own
      }
    }
  }

  // Runs the migration into a dump file and replays it into a new database;
  // returns that database's name.
  std::string run(const migration& m) {
    converter_.src = m.database;
    converter_.mss_schema = m.schema;
    converter_.direct = 0;
    converter_.mode = 0;
    converter_.dest = tk_utf8_to_wide(dir_.file(tk_to_utf8(m.database) + ".sql"));
    converter_.queries = m.queries;
    for (const std::wstring& t : m.tables) converter_.queries.emplace_back(t, L"");
    converter_.selected_views.clear();
    for (const std::wstring& v : m.views) converter_.selected_views.emplace_back(v, L"");
    converter_.convert_views = m.views.empty() ? 0 : 1;
    converter_.mysql_converter_impl::dump_options.create_database = 0;
    converter_();
    EXPECT_EQ(converter_.finished.load(), 1);
    for (const udb_table_report& r : converter_.table_reports) {
      EXPECT_FALSE(r.failed) << tk_to_utf8(r.name) << ": " << r.error;
      EXPECT_EQ(r.read, r.written) << tk_to_utf8(r.name);
      targets_[r.name] = tk_to_utf8(r.target);
    }
    const std::string db = "qb_e2e_" + std::to_string(::getpid()) + "_" + std::to_string(databases_.size());
    databases_.push_back(db);
    target_.run("CREATE DATABASE " + quoted(db) + " CHARACTER SET utf8mb4");
    const replay_result r = replay(server_, tk_to_utf8(converter_.dest), db);
    EXPECT_EQ(r.exit_code, 0) << r.output;
    EXPECT_EQ(problems(r.output), std::vector<std::string>()) << r.output;
    return db;
  }

  std::vector<target_column> columns(const std::string& db, const std::string& table) {
    std::vector<target_column> out;
    for (const auto& row : target_.rows("SELECT COLUMN_NAME, DATA_TYPE FROM information_schema.COLUMNS WHERE "
                                        "TABLE_SCHEMA = " + sql_text(db) + " AND TABLE_NAME = " + sql_text(table) +
                                        " ORDER BY ORDINAL_POSITION")) {
      out.push_back({*row[0], *row[1]});
    }
    return out;
  }

  // The rows of a migrated entry: the target's, and the source's as the
  // target must give them; both sorted.
  void expect_same_rows(const migration& m, const std::string& db, const std::wstring& entry,
                        const std::wstring& query = {}) {
    SCOPED_TRACE(tk_to_utf8(entry));
    const std::string table = targets_[entry];
    ASSERT_FALSE(table.empty());
    const std::vector<target_column> cols = columns(db, table);
    std::string select;
    for (const target_column& c : cols) {
      if (!select.empty()) select += ", ";
      const kind k = kind_of(c.data_type);
      if (c.data_type == "bit") {
        select += quoted(c.name) + "+0";
      } else if (k == kind::spatial) {
        select += "ST_AsText(" + quoted(c.name) + ")";
      } else if (c.data_type.find("blob") != std::string::npos || c.data_type.find("binary") != std::string::npos) {
        select += "HEX(" + quoted(c.name) + ")";
      } else {
        select += quoted(c.name);
      }
    }
    const std::string statement = "SELECT " + select + " FROM " + quoted(db) + "." + quoted(table);
    text_rows target;
    try {
      target = target_.rows(statement);
    } catch (const std::exception& e) {
      FAIL() << e.what() << "\n" << statement;
    }

    std::unique_ptr<udb_database> source_db = converter_.mssql_engine().open_db(m.database, 1, m.schema);
    std::unique_ptr<udb_recordset> rs =
        query.empty() ? source_db->get_table(entry, 1) : source_db->get_query(entry, query, 1);
    ASSERT_EQ(rs->schema().size(), cols.size());
    text_rows source;
    for (rs->reset(); !rs->is_eof(); rs->next()) {
      const udb_record& r = *rs->get_item();
      std::vector<std::optional<std::string>> row;
      for (std::size_t i = 0; i < r.size(); ++i) row.push_back(expected_text(r[i], cols[i].data_type));
      source.push_back(std::move(row));
    }
    for (text_rows* rows : {&target, &source}) {
      for (auto& row : *rows) {
        for (std::size_t i = 0; i < row.size() && i < cols.size(); ++i) {
          row[i] = normalized(row[i], kind_of(cols[i].data_type));
        }
      }
      std::sort(rows->begin(), rows->end());
    }
    ASSERT_EQ(target.size(), source.size());
    ASSERT_EQ(source.size(), rs->rec_count());
    for (std::size_t r = 0; r < source.size(); ++r) {
      for (std::size_t c = 0; c < cols.size(); ++c) {
        EXPECT_EQ(target[r][c], source[r][c]) << "row " << r << ", column " << cols[c].name << " ("
                                              << cols[c].data_type << ")";
      }
    }
  }

  text_rows target_rows(const std::string& statement) { return target_.rows(statement); }

  static mss_standin* standin_;  // NOLINT: shared by the suite
  user_folders folders_;
  handler_and_shell ui_;
  const mariadb_server& server_;
  target_session target_;
  temp_dir dir_;
  quillbridge_convertor converter_;
  engine_source source_{converter_.mssql_engine()};
  dump_target dump_{converter_.mysql_engine()};
  std::map<std::wstring, std::string> targets_;
  std::vector<std::string> databases_;
};
mss_standin* SourceToDump::standin_ = nullptr;

TEST_F(SourceToDump, TheShopsDboSchemaWithKeysViewsAndAQuery) {
  const std::wstring query = L"SELECT c.customer_id, c.email, COUNT(o.order_id) AS orders FROM dbo.customers c "
                             L"LEFT JOIN sales.orders o ON o.customer_id = c.customer_id GROUP BY c.customer_id, "
                             L"c.email";
  const migration m{L"qbshop",
                    L"dbo",
                    {L"dbo.categories", L"dbo.products", L"dbo.customers"},
                    {{L"customer_orders", query}},
                    {L"v_category_tree", L"v_product_labels"}};
  const std::string db = run(m);
  for (const std::wstring& t : m.tables) expect_same_rows(m, db, t);
  expect_same_rows(m, db, L"customer_orders", query);
  // The owner is stripped under a schema filter.
  EXPECT_EQ(targets_[L"dbo.customers"], "customers");
  // Keys and indexes as the source has them; the included columns are not
  // part of the MySQL index.
  EXPECT_EQ(target_rows("SELECT INDEX_NAME, GROUP_CONCAT(COLUMN_NAME ORDER BY SEQ_IN_INDEX), NON_UNIQUE FROM "
                        "information_schema.STATISTICS WHERE TABLE_SCHEMA = " + sql_text(db) +
                        " AND TABLE_NAME = 'products' GROUP BY INDEX_NAME, NON_UNIQUE ORDER BY INDEX_NAME"),
            (text_rows{{"IX_products_category", "category_id", "1"},
                       {"PRIMARY", "product_id", "0"},
                       {"UX_products_sku", "sku", "0"}}));
  EXPECT_EQ(target_rows("SELECT CONSTRAINT_NAME, TABLE_NAME, REFERENCED_TABLE_NAME, DELETE_RULE FROM "
                        "information_schema.REFERENTIAL_CONSTRAINTS WHERE CONSTRAINT_SCHEMA = " + sql_text(db) +
                        " ORDER BY CONSTRAINT_NAME"),
            (text_rows{{"FK_categories_parent", "categories", "categories", "RESTRICT"},
                       {"FK_customers_referrer", "customers", "customers", "RESTRICT"},
                       {"FK_products_category", "products", "categories", "SET NULL"}}));
  EXPECT_EQ(target_rows("SELECT AUTO_INCREMENT IS NOT NULL FROM information_schema.TABLES WHERE TABLE_SCHEMA = " +
                        sql_text(db) + " AND TABLE_NAME = 'customers'"),
            (text_rows{{"1"}}));
  // The views were made and answer.
  EXPECT_EQ(target_rows("SELECT COUNT(*) FROM " + quoted(db) + ".v_category_tree"), (text_rows{{"9"}}));
  EXPECT_EQ(target_rows("SELECT COUNT(*) FROM " + quoted(db) + ".v_product_labels"), (text_rows{{"60"}}));
}

TEST_F(SourceToDump, TheShopsSalesSchemaBesideATableOfTheSameName) {
  const migration m{L"qbshop",
                    L"sales",
                    {L"sales.orders", L"sales.order_lines", L"sales.shipments", L"sales.customers"},
                    {},
                    {}};
  const std::string db = run(m);
  for (const std::wstring& t : m.tables) expect_same_rows(m, db, t);
  EXPECT_EQ(targets_[L"sales.customers"], "customers");
  EXPECT_EQ(target_rows("SELECT CONSTRAINT_NAME, TABLE_NAME, REFERENCED_TABLE_NAME, UPDATE_RULE, DELETE_RULE FROM "
                        "information_schema.REFERENTIAL_CONSTRAINTS WHERE CONSTRAINT_SCHEMA = " + sql_text(db) +
                        " ORDER BY CONSTRAINT_NAME"),
            (text_rows{{"FK_order_lines_orders", "order_lines", "orders", "CASCADE", "CASCADE"},
                       {"FK_shipments_order_lines", "shipments", "order_lines", "RESTRICT", "CASCADE"}}));
  EXPECT_EQ(target_rows("SELECT GROUP_CONCAT(COLUMN_NAME ORDER BY SEQ_IN_INDEX) FROM information_schema.STATISTICS "
                        "WHERE TABLE_SCHEMA = " + sql_text(db) +
                        " AND TABLE_NAME = 'order_lines' AND INDEX_NAME = 'PRIMARY'"),
            (text_rows{{"order_id,line_no"}}));
}

TEST_F(SourceToDump, EveryTypeOfTheTypesDatabase) {
  // Characters beyond U+FFFF (the fixture has some) need utf8mb4.
  converter_.mysql_engine().set_charset(L"utf8mb4");
  const migration m{L"qbtypes",
                    L"dbo",
                    {L"dbo.t_int", L"dbo.t_decimal", L"dbo.t_float", L"dbo.t_datetime", L"dbo.t_char", L"dbo.t_max",
                     L"dbo.t_binary", L"dbo.t_guid", L"dbo.t_xml", L"dbo.t_spatial", L"dbo.t_parent", L"dbo.t_child",
                     L"dbo.t_defaults"},
                    {},
                    {}};
  const std::string db = run(m);
  for (const std::wstring& t : m.tables) expect_same_rows(m, db, t);
}

TEST_F(SourceToDump, HostileNamesAndShapes) {
  const migration m{L"qbhostile",
                    L"dbo",
                    {L"dbo.order details", L"dbo.O'Brien's", L"dbo.back`tick", L"dbo.select", L"[dbo].[a.b]",
                     L"dbo.customer_orders_archived_before_the_migration_of_the_old_erp_system_xy", L"dbo.Customer",
                     L"dbo.CUSTOMER", L"dbo.empty_table", L"dbo.no_key", L"dbo.wide_300", L"dbo.dec_identity"},
                    {},
                    {}};
  const std::string db = run(m);
  for (const std::wstring& t : m.tables) expect_same_rows(m, db, t);
  // Two names that differ only in case get two tables.
  EXPECT_NE(targets_[L"dbo.Customer"], targets_[L"dbo.CUSTOMER"]);
}

TEST_F(SourceToDump, ASchemaWithABlank) {
  const migration m{L"qbhostile", L"odd schema", {L"odd schema.t"}, {}, {}};
  const std::string db = run(m);
  expect_same_rows(m, db, L"odd schema.t");
  EXPECT_EQ(targets_[L"odd schema.t"], "t");
}

}  // namespace
}  // namespace qb::test
