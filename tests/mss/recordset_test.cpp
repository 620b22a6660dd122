// odb_recordset over the stand-in: the schema it builds, rows in batches of
// 100 through reset / is_eof / get_item / next, values whole, and misuse.
#include "mss/recordset.h"

#include <gtest/gtest.h>

#include <memory>

#include <string>
#include <vector>

#include "mss/command.h"
#include "mss_test_util.h"

namespace qb {
namespace {

using test::describe;
using test::fixture_file;
using test::log_capture;
using test::mss_standin;
using test::mss_standin_options;

class Recordset : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    mss_standin_options o;
    o.fixtures = {"types.json"};
    o.database = "qbtypes";
    server_ = std::make_unique<mss_standin>(o);
  }
  static void TearDownTestSuite() {
    server_.reset();
  }
  Recordset() : connection_(test::connect_freetds(env_, *server_)) { connection_.run(L"SET TEXTSIZE 2147483647"); }

  std::unique_ptr<odb_recordset> open(const std::wstring& sql, const std::wstring& name = L"[dbo].[t]") {
    odb_command command(connection_);
    return std::make_unique<odb_recordset>(command.execute_rowset(sql), name);
  }

  // Every row, read as the conversion driver reads a source.
  static std::vector<udb_record> read_all(udb_recordset& rs) {
    std::vector<udb_record> rows;
    for (rs.reset(); !rs.is_eof(); rs.next()) rows.push_back(*rs.get_item());
    return rows;
  }

  static std::unique_ptr<mss_standin> server_;  // NOLINT: shared by the suite
  odb_environment env_;
  odb_connection connection_;
};
std::unique_ptr<mss_standin> Recordset::server_;

struct expected_ftd {
  const wchar_t* name;
  std::uint16_t vartype;
  std::uint32_t size;
  std::uint32_t reserved;
  bool not_null;
  std::uint32_t prec = 0;
  std::uint32_t scale = 0;
};

void expect_schema(const udb_schema& schema, const std::vector<expected_ftd>& expected) {
  ASSERT_EQ(schema.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const t_ftd& f = schema[i];
    SCOPED_TRACE(tk_to_utf8(expected[i].name));
    EXPECT_EQ(f.name, expected[i].name);
    EXPECT_EQ(f.vartype, expected[i].vartype);
    EXPECT_EQ(f.size, expected[i].size);
    EXPECT_EQ(f.dw_reserved, expected[i].reserved);
    EXPECT_EQ(f.b_not_null, expected[i].not_null);
    EXPECT_EQ(f.prec, expected[i].prec);
    EXPECT_EQ(f.scale, expected[i].scale);
    EXPECT_FALSE(f.b_auto_num);
    EXPECT_TRUE(f.def_value.is_empty());
  }
}

TEST_F(Recordset, SchemaCarriesTheProvidersSizesAndSubTypes) {
  expect_schema(open(L"select * from t_int")->schema(),
                {{L"id", 3, 4, 0, true}, {L"c_bit", 11, 2, 0, false}, {L"c_tinyint", 17, 1, 0, false},
                 {L"c_smallint", 2, 2, 0, false}, {L"c_int", 3, 4, 0, false}, {L"c_bigint", 20, 8, 0, false}});
  expect_schema(open(L"select id, d_9_4, d_38_38, c_money from t_decimal")->schema(),
                {{L"id", 3, 4, 0, true}, {L"d_9_4", 14, 19, 0, false, 9, 4}, {L"d_38_38", 14, 19, 0, false, 38, 38},
                 {L"c_money", 6, 8, 0, false}});
  // Every date column is "date and time" here; pure dates and times are
  // told later from the catalog.
  expect_schema(open(L"select c_date, c_time7, c_dt2_0, c_dt2_7, c_dto, c_datetime, c_smalldatetime from t_datetime")
                    ->schema(),
                {{L"c_date", 7, 6, 1, false}, {L"c_time7", 7, 10, 1, false, 0, 7}, {L"c_dt2_0", 7, 16, 1, false},
                 {L"c_dt2_7", 7, 16, 1, false, 0, 7}, {L"c_dto", 7, 20, 1, false, 0, 7},
                 {L"c_datetime", 7, 16, 1, false, 0, 3}, {L"c_smalldatetime", 7, 16, 1, false}});
  expect_schema(open(L"select c_char, c_nvarchar, c_text, c_ntext from t_char")->schema(),
                {{L"c_char", 8, 10, 0, false}, {L"c_nvarchar", 8, 50, 0, false}, {L"c_text", 8, 0, 0, false},
                 {L"c_ntext", 8, 0, 0, false}});
  expect_schema(open(L"select * from t_max")->schema(),
                {{L"id", 3, 4, 0, true}, {L"c_varchar_max", 8, 0, 0, false}, {L"c_nvarchar_max", 8, 0, 0, false},
                 {L"c_varbinary_max", 8209, 0, 0, false}});
  expect_schema(open(L"select c_binary, c_rowversion from t_binary")->schema(),
                {{L"c_binary", 8209, 0, 0, false}, {L"c_rowversion", 8209, 0, 0, true}});
  expect_schema(open(L"select * from t_guid")->schema(), {{L"id", 3, 4, 0, true}, {L"c_guid", 8, 36, 1, false}});
  expect_schema(open(L"select * from t_xml")->schema(), {{L"id", 3, 4, 0, true}, {L"c_xml", 8, 0, 11, false}});
}

TEST_F(Recordset, InitializeLogsEachColumn) {
  log_capture log;
  auto rs = open(L"select id, c_guid from t_guid");
  rs = nullptr;  // its result is still pending: a session serves one at a time
  EXPECT_TRUE(test::lines_in_order(
      log.text(), {"odb_command::execute(select id, c_guid from t_guid)", "odb_recordset::ctor",
                   "odb_recordset::initialize", "*** Got 2 columns ***", "Column 'id' (#0) has type=3, size=4",
                   "f_size=4", ">>> reserved=0", "Column 'c_guid' (#1) has type=72, size=16",
                   "Update column size for DBTYPE_GUID", "f_size=36", "Set dw_reserved = 1 for DBTYPE_GUID",
                   ">>> reserved=1", "odb_accessor::bind(n_cols=2)"}))
      << log.text();
  auto d = open(L"select d_9_4, c_datetime from t_decimal, t_datetime");
  EXPECT_TRUE(log.has_line("Scale/precision for decimal column 'd_9_4': (4, 9)"));
  EXPECT_TRUE(log.has_line("Scale for date column 'c_datetime': 3"));
}

TEST_F(Recordset, RowsComeWithTheFirstReset) {
  auto rs = open(L"select id from t_int order by id");
  EXPECT_TRUE(rs->is_eof());  // nothing read yet
  rs->reset();
  EXPECT_FALSE(rs->is_eof());
  EXPECT_EQ(rs->position(), 0);
  EXPECT_EQ((*rs->get_item())[0].to_long(), 1);
}

TEST_F(Recordset, NullIsTheEmptyValueAndAnEmptyStringStaysAString) {
  const std::vector<udb_record> rows = read_all(*open(L"select id, c_varchar from t_char order by id"));
  ASSERT_EQ(rows.size(), 5U);
  EXPECT_EQ(rows[2][1].get_type(), ole_variant::vt_bstr);  // ''
  EXPECT_EQ(rows[2][1].text_view(), L"");
  EXPECT_EQ(rows[2][1].size, 0U);
  EXPECT_EQ(rows[4][1].get_type(), ole_variant::vt_empty);  // NULL
  EXPECT_EQ(rows[4][1].name, L"c_varchar");
  EXPECT_EQ(rows[0][1].text_view(), L"plain ASCII");
  EXPECT_EQ(rows[0][1].size, 22U);
}

TEST_F(Recordset, GuidsWithoutBracesAndRowversionAsBytes) {
  const std::vector<udb_record> g = read_all(*open(L"select c_guid from t_guid order by id"));
  ASSERT_EQ(g.size(), 3U);
  EXPECT_EQ(g[0][0].text_view(), L"6F9619FF-8B86-D011-B42D-00C04FC964FF");
  const std::vector<udb_record> v = read_all(*open(L"select c_rowversion from t_binary order by id"));
  ASSERT_EQ(v.size(), 3U);
  EXPECT_EQ(v[2][0].get_type(), ole_variant::vt_bytes);
  EXPECT_EQ(describe(v[2][0]), describe(ole_variant(std::vector<std::uint8_t>{0, 0, 0, 0, 0, 0, 0x07, 0xD3})));
}

TEST_F(Recordset, EveryTypeOfTheFixtureArrivesAsItsValue) {
  const std::vector<udb_record> rows = read_all(*open(
      L"select t_int.c_bigint, d_38_0, c_money, c_float, c_dt2_7, c_dto, c_nvarchar, c_nvarchar_max, c_varbinary_max "
      L"from t_int, t_decimal, t_float, t_datetime, t_char, t_max where t_decimal.id = t_int.id and t_float.id = "
      L"t_int.id and t_datetime.id = t_int.id and t_char.id = t_int.id and t_max.id = t_int.id order by t_int.id"));
  ASSERT_EQ(rows.size(), 4U);
  EXPECT_EQ(describe(rows[0][0]), describe(ole_variant(static_cast<long long>(-9223372036854775807LL - 1))));
  EXPECT_EQ(describe(rows[1][1]), describe(ole_variant::from_wstring(L"99999999999999999999999999999999999999", 14)));
  EXPECT_EQ(describe(rows[0][2]), describe(ole_variant::from_wstring(L"-922337203685477.5808", 6)));
  EXPECT_EQ(describe(rows[1][3]), describe(ole_variant(1.7976931348623157e+308)));
  EXPECT_EQ(describe(rows[2][4]), describe(ole_variant::from_wstring(L"2024-02-29 12:34:56.123456", 7)));
  EXPECT_EQ(describe(rows[2][5]), describe(ole_variant::from_wstring(L"2024-02-29 12:34:56.123456 -05:30", 7)));
  EXPECT_EQ(describe(rows[3][6]), describe(ole_variant(L"\U0001F600\U0001D11E")));
  EXPECT_EQ(rows[0][7].text_view().size(), 2000000U);
  EXPECT_EQ(rows[0][8].bytes_view().size(), 5242880U);
  EXPECT_EQ(rows[3][8].get_type(), ole_variant::vt_empty);
}

TEST_F(Recordset, AnEmptyResultIsAtItsEndAfterReset) {
  auto rs = open(L"select * from t_int where id > 100");
  rs->reset();
  EXPECT_TRUE(rs->is_eof());
  EXPECT_EQ(rs->rows_obtained(), 0U);
  EXPECT_THROW(rs->next(), tk_mail_assertion);
  EXPECT_THROW((void)rs->get_item(), tk_mail_assertion);
}

TEST_F(Recordset, ResetStartsAgainFromTheFirstRow) {
  auto rs = open(L"select id from t_int order by id");
  EXPECT_EQ(read_all(*rs).size(), 4U);
  EXPECT_TRUE(rs->is_eof());
  const std::vector<udb_record> again = read_all(*rs);
  ASSERT_EQ(again.size(), 4U);
  EXPECT_EQ(again[0][0].to_long(), 1);
  EXPECT_EQ(again[3][0].to_long(), 4);
}

// A session serves one open result at a time: a second statement while a
// recordset's rows are pending is refused by the driver. Catalog questions
// about a table must be asked before its rows are opened, or on a session of
// their own.
TEST_F(Recordset, ASessionServesOneOpenResultAtATime) {
  auto rs = open(L"select a.id from t_int a, t_int b, t_int c, t_int d");  // 256 rows
  rs->reset();
  ASSERT_EQ(rs->rows_obtained(), 100U);
  odb_command other(connection_);
  try {
    (void)other.execute(L"select count(*) from t_guid");
    FAIL() << "a second result on a busy session";
  } catch (const odb_exception& e) {
    EXPECT_EQ(e.sqlstate(), "24000");
  }
  odb_connection second = test::connect_freetds(env_, *server_);
  EXPECT_EQ(odb_command(second).query_text(L"select count(*) from t_guid"), std::optional<std::wstring>(L"3"));
  EXPECT_EQ(read_all(*rs).size(), 256U);
}

TEST_F(Recordset, ThePlainRecordsetCannotBeAppendedTo) {
  auto rs = open(L"select id from t_int");
  udb_record r;
  EXPECT_THROW(rs->append_record(r), tk_mail_assertion);
}

TEST_F(Recordset, AFailedStatementThrowsBeforeARecordsetExists) {
  odb_command command(connection_);
  EXPECT_THROW((void)command.execute_rowset(L"select * from no_such_table"), odb_exception);
}

TEST_F(Recordset, WithoutARowsetThereAreNoRows) {
  odb_recordset rs(nullptr, L"none");
  rs.reset();
  EXPECT_TRUE(rs.is_eof());
  EXPECT_EQ(rs.n_cols(), 0U);
}

// Pure dates and pure times are told apart only for SQL Server 2008 and later.
TEST(OdbRecordVartype, DatesAreNativeFrom2008OnThroughAConnectedEngine) {
  std::uint32_t reserved = 9;
  EXPECT_EQ(odb_record::get_vartype(133, 6, 0, reserved), 7);
  EXPECT_EQ(reserved, 0U);  // no engine
  for (const auto& [version, expected] : std::vector<std::pair<std::string, std::uint32_t>>{{"2005", 0}, {"2008", 2}}) {
    mss_standin_options o;
    o.version = version;
    const mss_standin server(o);
    mss_engine engine;
    EXPECT_EQ(odb_record::get_vartype(133, 6, 0, reserved), 7);
    EXPECT_EQ(reserved, 0U) << "not connected";
    engine.connect(test::server_of(server), L"sa", L"Secret#1", L"qbmini", true);
    EXPECT_EQ(odb_record::get_vartype(133, 6, 0, reserved), 7);
    EXPECT_EQ(reserved, expected) << version;
    EXPECT_EQ(odb_record::get_vartype(145, 10, 0, reserved), 7);
    EXPECT_EQ(reserved, expected == 0 ? 0U : 3U) << version;
  }
}

// --- Batches of 100 -----------------------------------------------------------------

class RecordsetBatches : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::string wide = R"J({"name": "t_wide", "columns": [)J";
    for (int i = 1; i <= 20; ++i) {
      if (i != 1) wide += ",";
      wide += R"J({"name": "c)J" + std::to_string(i) + R"J(", "type": "varchar(max)"})J";
    }
    wide += R"J(], "rows": [[{"repeat": "x", "count": 5000001})J";
    for (int i = 2; i <= 20; ++i) wide += R"J(, "v)J" + std::to_string(i) + "\"";
    wide += "]]}";
    std::string hundred = R"J({"name": "t_100", "columns": [{"name": "id", "type": "int", "nullable": false}], "rows": [)J";
    for (int i = 1; i <= 100; ++i) hundred += (i == 1 ? "[" : ",[") + std::to_string(i) + "]";
    hundred += "]}";
    file_ = std::make_unique<fixture_file>(R"J({"server": {"users": [{"name": "sa", "password": "Secret#1"}]}, "databases": [
      {"name": "qbrows", "schemas": [{"name": "dbo", "tables": [)J" + wide + "," + hundred + "]}]}]}");
    mss_standin_options o;
    o.fixtures = {file_->path()};
    o.database = "qbrows";
    o.bulk_rows = 100000;
    o.bulk_table = "qbrows.dbo.bulk_rows";
    server_ = std::make_unique<mss_standin>(o);
  }
  static void TearDownTestSuite() {
    server_.reset();
    file_.reset();
  }
  RecordsetBatches() : connection_(test::connect_freetds(env_, *server_)) {
    connection_.run(L"SET TEXTSIZE 2147483647");
  }
  std::unique_ptr<odb_recordset> open(const std::wstring& sql) {
    return std::make_unique<odb_recordset>(odb_command(connection_).execute_rowset(sql), L"[dbo].[t]");
  }

  static std::unique_ptr<fixture_file> file_;   // NOLINT: shared by the suite
  static std::unique_ptr<mss_standin> server_;  // NOLINT
  odb_environment env_;
  odb_connection connection_;
};
std::unique_ptr<fixture_file> RecordsetBatches::file_;
std::unique_ptr<mss_standin> RecordsetBatches::server_;

TEST_F(RecordsetBatches, AfterExactlyOneHundredRowsNextFetchesNoneAndIsAtTheEnd) {
  auto rs = open(L"select id from t_100 order by id");
  rs->reset();
  EXPECT_EQ(rs->rows_obtained(), 100U);
  for (int i = 1; i < 100; ++i) rs->next();
  EXPECT_FALSE(rs->is_eof());
  EXPECT_EQ((*rs->get_item())[0].to_long(), 100);
  EXPECT_EQ(rs->local_pos(), 99U);
  rs->next();  // after row 100 the next batch has no rows
  EXPECT_TRUE(rs->is_eof());
  EXPECT_EQ(rs->rows_obtained(), 0U);
  EXPECT_EQ(rs->position(), 100);
}

TEST_F(RecordsetBatches, AHundredThousandRowsInOrderInBatchesOfOneHundred) {
  auto rs = open(L"select * from bulk_rows");
  std::int64_t count = 0;
  bool in_order = true;
  bool batches_of_100 = true;
  for (rs->reset(); !rs->is_eof(); rs->next()) {
    ++count;
    if ((*rs->get_item())[0].to_long() != count) in_order = false;
    if (rs->rows_obtained() != 100) batches_of_100 = false;
    EXPECT_EQ(rs->local_pos(), static_cast<std::size_t>((count - 1) % 100));
    if (count > 100000) break;
  }
  EXPECT_EQ(count, 100000);
  EXPECT_TRUE(in_order);
  EXPECT_TRUE(batches_of_100);
  EXPECT_EQ(rs->position(), 100000);
}

// A table that fails or is abandoned part-way leaves its session usable for
// the next statement: the rest of the result is dropped with the statement.
TEST_F(RecordsetBatches, AnAbandonedRecordsetLeavesTheSessionUsable) {
  {
    auto rs = open(L"select * from bulk_rows");
    rs->reset();
    for (int i = 0; i < 150; ++i) rs->next();
    EXPECT_EQ((*rs->get_item())[0].to_long(), 151);
  }
  EXPECT_EQ(odb_command(connection_).query_text(L"select count(*) from bulk_rows"),
            std::optional<std::wstring>(L"100000"));
  auto again = open(L"select id from t_100 order by id");
  again->reset();
  EXPECT_EQ((*again->get_item())[0].to_long(), 1);
}

// Rows are read ahead of the caller; a source that goes away in the middle of
// a table still hands out every row it delivered, in order, and the failure
// reaches the caller from next(), once, after which the recordset is at its
// end.
TEST(RecordsetReadAhead, ASourceLostMidTableFailsNextAfterTheRowsItDelivered) {
  mss_standin_options o;
  o.bulk_rows = 1000000;
  o.bulk_table = "qbmini.dbo.bulk_rows";
  mss_standin server(o);
  odb_environment env;
  odb_connection connection = test::connect_freetds(env, server);
  odb_recordset rs(odb_command(connection).execute_rowset(L"select * from bulk_rows"), L"[dbo].[bulk_rows]");
  rs.reset();
  rs.next();  // into the second batch: the reader runs
  server.stop();
  std::int64_t seen = 2;
  bool in_order = true;
  int failures = 0;
  try {
    for (; !rs.is_eof(); rs.next()) {
      if ((*rs.get_item())[0].to_long() != seen) in_order = false;
      ++seen;
    }
  } catch (const odb_exception&) {
    ++failures;
  }
  EXPECT_EQ(failures, 1);
  EXPECT_TRUE(in_order);
  EXPECT_LT(seen, 1000000);
  EXPECT_TRUE(rs.is_eof());
  EXPECT_EQ(rs.rows_obtained(), 0U);
}

// Twenty varchar(max) columns and a value of over 5,000,000 characters: the
// value arrives whole, and so do the other nineteen.
TEST_F(RecordsetBatches, ALongValueAmongManyLongColumnsArrivesWhole) {
  auto rs = open(L"select * from t_wide");
  ASSERT_EQ(rs->n_cols(), 20U);
  rs->reset();
  ASSERT_FALSE(rs->is_eof());
  const udb_record& r = *rs->get_item();
  EXPECT_EQ(r[0].get_type(), ole_variant::vt_bstr);
  EXPECT_EQ(r[0].text_view().size(), 5000001U);
  EXPECT_EQ(r[0].text_view().find_first_not_of(L'x'), std::wstring_view::npos);
  EXPECT_EQ(r[19].text_view(), L"v20");
  rs->next();
  EXPECT_TRUE(rs->is_eof());
}

}  // namespace
}  // namespace qb
