#include "source_migration.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <stdexcept>

#include "mss/engine.h"
#include "mss/table_names.h"
#include "sql/exception.h"
#include "tk/format.h"
#include "tk/strings.h"
#include "udb/database.h"
#include "udb/recordset.h"

namespace qb::test {

std::string to_string(migration_path path) { return path == migration_path::dump ? "dump" : "direct"; }

// --- The stock client and the server --------------------------------------------------------

namespace {

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
std::optional<std::string> expected_text(const ole_variant& v, const std::string& data_type, int fraction_digits) {
  if (v.is_empty()) return std::nullopt;
  switch (v.get_type()) {
    case ole_variant::vt_bool:
      return v.to_bool() ? "1" : "0";
    case ole_variant::vt_date: {
      const ole_systemtime& t = v.get_date()->src;
      char date[32];
      std::snprintf(date, sizeof date, "%04d-%02d-%02d", t.wYear, t.wMonth, t.wDay);
      std::string time = two(t.wHour) + ":" + two(t.wMinute) + ":" + two(t.wSecond);
      if (fraction_digits > 0) {
        // The stored fraction: the source's microseconds cut to the column's
        // digits.
        const ole_date& d = *v.get_date();
        const int micro = d.microseconds != 0 ? d.microseconds : t.wMilliseconds * 1000;
        char digits[8];
        std::snprintf(digits, sizeof digits, "%06d", micro);
        time += "." + std::string(digits, static_cast<std::size_t>(std::min(fraction_digits, 6)));
      }
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

kind kind_of(const std::string& data_type) {
  if (data_type == "decimal") return kind::decimal;
  if (data_type == "float") return kind::real4;
  if (data_type == "double") return kind::real8;
  if (data_type == "geometry" || data_type == "point" || data_type == "linestring" || data_type == "polygon") {
    return kind::spatial;
  }
  return kind::exact;
}

std::string joined(const std::vector<std::wstring>& names) {
  std::string out;
  for (const std::wstring& n : names) {
    if (!out.empty()) out += ",";
    out += tk_to_utf8(n);
  }
  return out;
}

}  // namespace

// --- source_migration ----------------------------------------------------------------------

source_migration::source_migration() : server_(mariadb_server::main()), target_(server_) {}

source_migration::~source_migration() {
  for (const std::string& db : databases_) {
    try {
      target_.run("DROP DATABASE IF EXISTS " + sql_quoted_name(db));
    } catch (...) {  // NOLINT(bugprone-empty-catch): a clean-up failure must not hide the test's own
    }
  }
}

void source_migration::connect_source(const mss_standin& standin) {
  converter_.mssql_engine().connect(tk_utf8_to_wide(standin.host() + "," + std::to_string(standin.port())), L"sa",
                                    L"Secret#1", true);
  converter_.mssql_engine().set_as_dbo(converter_.as_dbo != 0);
}

std::string source_migration::new_database_name() {
  const std::string db = "qb_e2e_" + std::to_string(::getpid()) + "_" + std::to_string(databases_.size());
  databases_.push_back(db);
  return db;
}

std::string source_migration::run(const migration& m, migration_path path) {
  converter_.src = m.database;
  converter_.mss_schema = m.schema;
  converter_.mode = udb_mode_overwrite_database;
  converter_.queries = m.queries;
  for (const std::wstring& t : m.tables) converter_.queries.emplace_back(t, L"");
  converter_.selected_tables.clear();
  converter_.selected_views.clear();
  for (const std::wstring& v : m.views) converter_.selected_views.emplace_back(v, L"");
  converter_.convert_views = m.views.empty() ? 0 : 1;
  converter_.table_reports.clear();
  converter_.finished = 0;
  const std::string db = new_database_name();
  if (path == migration_path::direct) {
    converter_.direct = 1;
    converter_.dest = tk_utf8_to_wide(db);
    if (!connected_to_target_) {
      converter_.mysql_converter_impl::host = server_.host();
      converter_.port = std::to_string(server_.port());
      converter_.mysql_converter_impl::user = server_.account().user;
      converter_.mysql_converter_impl::password = server_.account().password;
      converter_.connect_mysql_server();
      connected_to_target_ = true;
    }
  } else {
    converter_.direct = 0;
    converter_.dest = tk_utf8_to_wide(dir_.file(db + ".sql"));
    converter_.mysql_converter_impl::dump_options.create_database = 0;
  }
  converter_.check_dest();
  converter_();
  EXPECT_EQ(converter_.finished.load(), 1);
  EXPECT_EQ(ui_.shell.errors(), std::vector<std::string>());
  EXPECT_EQ(converter_.table_reports.size(), converter_.queries.size());
  for (const udb_table_report& r : converter_.table_reports) {
    const std::string name = tk_to_utf8(r.name);
    EXPECT_FALSE(r.failed) << name << ": " << r.error;
    EXPECT_FALSE(r.skipped) << name;
    EXPECT_EQ(r.read, r.written) << name;
    EXPECT_EQ(r.not_written, 0U) << name;
    EXPECT_EQ(r.warnings, 0U) << name;
    // A server counts what it stored; the dump counts what it accepted.
    EXPECT_EQ(r.counted_by_destination, path == migration_path::direct) << name;
    const std::string line = tk_format("Table '%s': %I64u read, %I64u written, 0 not written (duplicate keys or "
                                       "errors), 0 warnings",
                                       r.name, r.read, r.read);
    EXPECT_TRUE(capture_.has_line(line)) << line;
    targets_[r.name] = tk_to_utf8(r.target);
  }
  if (path == migration_path::dump) {
    target_.run("CREATE DATABASE " + sql_quoted_name(db) + " CHARACTER SET utf8mb4");
    const replay_outcome r = replay_dump(server_, db, tk_to_utf8(converter_.dest), false);
    EXPECT_EQ(r.exit_code, 0) << r.output;
    EXPECT_EQ(replay_problems(r.output), std::vector<std::string>()) << r.output;
  }
  return db;
}

std::vector<target_column> source_migration::columns(const std::string& db, const std::string& table) {
  std::vector<target_column> out;
  for (const auto& row : target_.rows("SELECT COLUMN_NAME, DATA_TYPE, DATETIME_PRECISION FROM "
                                      "information_schema.COLUMNS WHERE TABLE_SCHEMA = " +
                                      sql_text_literal(db) + " AND TABLE_NAME = " + sql_text_literal(table) +
                                      " ORDER BY ORDINAL_POSITION")) {
    const bool fraction = (*row[1] == "datetime" || *row[1] == "time") && row[2];
    out.push_back({*row[0], *row[1], fraction ? std::atoi(row[2]->c_str()) : 0});
  }
  return out;
}

void source_migration::expect_same_rows(const migration& m, const std::string& db, const std::wstring& entry,
                                        const std::wstring& query) {
  SCOPED_TRACE(tk_to_utf8(entry));
  const std::string table = targets_[entry];
  ASSERT_FALSE(table.empty());
  const std::vector<target_column> cols = columns(db, table);
  std::string select;
  for (const target_column& c : cols) {
    if (!select.empty()) select += ", ";
    const kind k = kind_of(c.data_type);
    if (c.data_type == "bit") {
      select += sql_quoted_name(c.name) + "+0";
    } else if (k == kind::spatial) {
      select += "ST_AsText(" + sql_quoted_name(c.name) + ")";
    } else if (c.data_type.find("blob") != std::string::npos || c.data_type.find("binary") != std::string::npos) {
      select += "HEX(" + sql_quoted_name(c.name) + ")";
    } else {
      select += sql_quoted_name(c.name);
    }
  }
  const std::string statement = "SELECT " + select + " FROM " + sql_quoted_name(db) + "." + sql_quoted_name(table);
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
    for (std::size_t i = 0; i < r.size(); ++i) {
      row.push_back(expected_text(r[i], cols[i].data_type, cols[i].fraction_digits));
    }
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

void source_migration::expect_same_rows_of_all_tables(const migration& m, const std::string& db) {
  for (const std::wstring& t : m.tables) expect_same_rows(m, db, t);
}

void source_migration::expect_keys_as_in_source(const migration& m, const std::string& db,
                                                const std::vector<std::wstring>& except) {
  std::unique_ptr<udb_database> source_db = converter_.mssql_engine().open_db(m.database, 1, m.schema);
  // The source's composed name ("owner.table") of each migrated entry.
  std::map<std::wstring, std::string, bool (*)(const std::wstring&, const std::wstring&)> composed(
      [](const std::wstring& a, const std::wstring& b) { return tk_compare_no_case(a, b) < 0; });
  for (const std::wstring& entry : m.tables) {
    SCOPED_TRACE(tk_to_utf8(entry));
    const std::string table = targets_[entry];
    ASSERT_FALSE(table.empty());
    composed[mss_simplify_tab_name(entry, L'.')] = table;
    std::unique_ptr<udb_recordset> rs = source_db->get_table(entry, 1);
    // Indexes: name -> (columns, unique).
    const text_rows target_indexes =
        target_.rows("SELECT INDEX_NAME, GROUP_CONCAT(COLUMN_NAME ORDER BY SEQ_IN_INDEX), NON_UNIQUE FROM "
                     "information_schema.STATISTICS WHERE TABLE_SCHEMA = " + sql_text_literal(db) +
                     " AND TABLE_NAME = " + sql_text_literal(table) + " GROUP BY INDEX_NAME, NON_UNIQUE");
    for (const udb_index& index : rs->indexes()) {
      if (std::find(except.begin(), except.end(), index.name) != except.end()) continue;
      const std::string name = index.b_primary ? std::string("PRIMARY") : tk_to_utf8(index.name);
      const std::vector<std::optional<std::string>> want{name, joined(index.fields),
                                                         std::string(index.b_unique || index.b_primary ? "0" : "1")};
      EXPECT_NE(std::find(target_indexes.begin(), target_indexes.end(), want), target_indexes.end())
          << "index " << name << " (" << joined(index.fields) << ") of " << table;
    }
    // Identity columns. MySQL takes AUTO_INCREMENT on integer and floating
    // point columns only: an identity of a DECIMAL column stays a plain
    // (NOT NULL, keyed) DECIMAL column, its values carried as they are.
    std::map<std::string, std::string> types;
    for (const target_column& c : columns(db, table)) types[c.name] = c.data_type;
    std::vector<std::string> identity;
    for (const t_ftd& c : rs->schema()) {
      if (c.b_auto_num && types[tk_to_utf8(c.name)] != "decimal") identity.push_back(tk_to_utf8(c.name));
    }
    std::vector<std::string> auto_increment;
    for (const auto& row : target_.rows("SELECT COLUMN_NAME FROM information_schema.COLUMNS WHERE TABLE_SCHEMA = " +
                                        sql_text_literal(db) + " AND TABLE_NAME = " + sql_text_literal(table) +
                                        " AND EXTRA LIKE '%auto_increment%' ORDER BY ORDINAL_POSITION")) {
      auto_increment.push_back(*row[0]);
    }
    EXPECT_EQ(auto_increment, identity) << table;
  }
  // Foreign keys between migrated tables, by name.
  std::set<std::vector<std::optional<std::string>>> want;
  for (const udb_rel& rel : source_db->relationships()) {
    const auto child = composed.find(rel.fk_table);
    const auto parent = composed.find(rel.pk_table);
    if (child == composed.end() || parent == composed.end()) continue;
    want.insert({tk_to_utf8(rel.name), child->second, joined(rel.fk_fields), parent->second, joined(rel.pk_fields)});
  }
  std::set<std::vector<std::optional<std::string>>> got;
  for (auto& row : target_.rows("SELECT CONSTRAINT_NAME, TABLE_NAME, GROUP_CONCAT(COLUMN_NAME ORDER BY "
                                "ORDINAL_POSITION), REFERENCED_TABLE_NAME, GROUP_CONCAT(REFERENCED_COLUMN_NAME "
                                "ORDER BY ORDINAL_POSITION) FROM information_schema.KEY_COLUMN_USAGE WHERE "
                                "TABLE_SCHEMA = " + sql_text_literal(db) + " AND REFERENCED_TABLE_NAME IS NOT NULL "
                                "GROUP BY CONSTRAINT_NAME, TABLE_NAME, REFERENCED_TABLE_NAME")) {
    got.insert(std::move(row));
  }
  EXPECT_EQ(got, want);
}

}  // namespace qb::test
