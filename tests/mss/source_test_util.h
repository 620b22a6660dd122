// Helpers of the tests of the SQL Server source: a stand-in serving fixture
// databases, an engine connected to it, reading every row of a recordset, and
// expectations on schemas, indexes and foreign keys.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "mss/database.h"
#include "mss/engine.h"
#include "mss/table.h"
#include "mss/table_names.h"
#include "mss_test_util.h"
#include "udb/recordset.h"

namespace qb::test {

inline mss_standin_options source_options(std::vector<std::string> fixtures, std::string database,
                                          std::string version = {}) {
  mss_standin_options o;
  o.fixtures = std::move(fixtures);
  o.database = std::move(database);
  o.version = std::move(version);
  // -vv: the server logs every batch and RPC it receives.
  o.extra_args = {"-v"};
  return o;
}

// The stand-in with every fixture database.
inline mss_standin_options all_fixtures(std::string version = {}) {
  return source_options({"types.json", "business.json", "hostile.json"}, "qbshop", std::move(version));
}

// "view owned" is one flag for the process: a test that clears it puts it
// back with this.
class view_owned_restorer {
 public:
  view_owned_restorer() = default;
  ~view_owned_restorer() { mss_set_view_owned(true); }
  view_owned_restorer(const view_owned_restorer&) = delete;
  view_owned_restorer& operator=(const view_owned_restorer&) = delete;
};

// An engine connected to the stand-in.
inline void connect_engine(mss_engine& engine, const mss_standin& server, const std::wstring& user = L"sa",
                           const std::wstring& password = L"Secret#1") {
  engine.connect(server_of(server), user, password, true);
}

inline std::unique_ptr<mss_database> open_source(mss_engine& engine, const std::wstring& name,
                                                 std::uint32_t mode = 1, const std::wstring& schema = {}) {
  std::unique_ptr<udb_database> db = engine.open_db(name, mode, schema);
  return std::unique_ptr<mss_database>(dynamic_cast<mss_database*>(db.release()));
}

// Every row, read as the conversion driver reads a source.
inline std::vector<udb_record> read_rows(udb_recordset& rs) {
  std::vector<udb_record> rows;
  for (rs.reset(); !rs.is_eof(); rs.next()) rows.push_back(*rs.get_item());
  return rows;
}

// The rows in the readable form of describe().
inline std::vector<std::vector<std::string>> describe_rows(const std::vector<udb_record>& rows) {
  std::vector<std::vector<std::string>> out;
  for (const udb_record& r : rows) {
    std::vector<std::string> line;
    for (const udb_field& f : r) line.push_back(describe(f));
    out.push_back(std::move(line));
  }
  return out;
}

inline std::vector<std::vector<std::string>> describe_rows(const fetched_table& t) {
  std::vector<std::vector<std::string>> out;
  for (const auto& r : t.rows) {
    std::vector<std::string> line;
    for (const ole_variant& v : r) line.push_back(describe(v));
    out.push_back(std::move(line));
  }
  return out;
}

// A column as a test expects it.
struct column_expectation {
  const wchar_t* name;
  std::uint16_t vartype;
  std::uint32_t size;
  std::uint32_t reserved;
  bool not_null;
  bool auto_num = false;
  std::string def_value = {};  // describe() of the default; "0:" for none
  std::uint32_t prec = 0;
  std::uint32_t scale = 0;
};

inline void expect_column(const t_ftd& f, const column_expectation& e) {
  SCOPED_TRACE(tk_to_utf8(e.name));
  EXPECT_EQ(f.name, e.name);
  EXPECT_EQ(f.vartype, e.vartype);
  EXPECT_EQ(f.size, e.size);
  EXPECT_EQ(f.dw_reserved, e.reserved);
  EXPECT_EQ(f.b_not_null, e.not_null);
  EXPECT_EQ(f.b_auto_num, e.auto_num);
  EXPECT_EQ(describe(f.def_value), e.def_value.empty() ? std::string("0:") : e.def_value);
  if (f.vartype == ole_variant::vt_decimal) {
    EXPECT_EQ(f.prec, e.prec);
    EXPECT_EQ(f.scale, e.scale);
  }
}

inline void expect_schema(const udb_schema& schema, const std::vector<column_expectation>& expected) {
  ASSERT_EQ(schema.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) expect_column(schema[i], expected[i]);
}

// An index as "name unique/primary (field,field|included,included)".
inline std::string describe_index(const udb_index& i) {
  std::string out = tk_to_utf8(i.name) + (i.b_primary ? " primary" : i.b_unique ? " unique" : "") + " (";
  for (std::size_t n = 0; n < i.fields.size(); ++n) out += (n != 0 ? "," : "") + tk_to_utf8(i.fields[n]);
  if (!i.included.empty()) {
    out += "|";
    for (std::size_t n = 0; n < i.included.size(); ++n) out += (n != 0 ? "," : "") + tk_to_utf8(i.included[n]);
  }
  return out + ")";
}

inline std::vector<std::string> describe_indexes(const udb_indexes& list) {
  std::vector<std::string> out;
  for (const udb_index& i : list) out.push_back(describe_index(i));
  return out;
}

// A foreign key as "name: child(cols) -> parent(cols) properties", sorted.
inline std::vector<std::string> describe_relationships(const udb_relationships& list) {
  std::vector<std::string> out;
  for (const udb_rel& r : list) {
    std::string s = tk_to_utf8(r.name) + ": " + tk_to_utf8(r.fk_table) + "(";
    for (std::size_t n = 0; n < r.fk_fields.size(); ++n) s += (n != 0 ? "," : "") + tk_to_utf8(r.fk_fields[n]);
    s += ") -> " + tk_to_utf8(r.pk_table) + "(";
    for (std::size_t n = 0; n < r.pk_fields.size(); ++n) s += (n != 0 ? "," : "") + tk_to_utf8(r.pk_fields[n]);
    s += ")" + tk_to_utf8(r.properties);
    out.push_back(s);
  }
  std::sort(out.begin(), out.end());
  return out;
}

inline std::vector<std::string> utf8_list(const std::vector<std::wstring>& list) {
  std::vector<std::string> out;
  for (const std::wstring& s : list) out.push_back(tk_to_utf8(s));
  return out;
}

}  // namespace qb::test
