// The rows of a dump: batches, the row-size switch, long values.
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sql/dump.h"
#include "sql/engine.h"
#include "tk/exception.h"
#include "tk/utf.h"

#include "support/temp_dir.h"

namespace qb {
namespace {

using vt = ole_variant;

t_ftd col(const std::wstring& name, std::uint16_t type, std::uint32_t size = 0) {
  t_ftd f;
  f.name = name;
  f.vartype = type;
  f.size = size;
  return f;
}

udb_schema id_and_text() {
  udb_schema schema;
  schema.push_back(col(L"id", vt::vt_i4));
  schema.push_back(col(L"v", vt::vt_bstr, 0));
  return schema;
}

udb_record row(int id, const ole_variant& v) {
  udb_record r;
  r.emplace_back(L"id", 0, ole_variant(id));
  r.emplace_back(L"v", 0, v);
  return r;
}

std::size_t count(const std::string& text, const std::string& what) {
  std::size_t n = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) ++n;
  return n;
}

// The statements of the file, split at ";\n" (the tests write no value that
// holds that pair).
std::vector<std::string> statements(const std::string& text) {
  std::vector<std::string> out;
  std::size_t start = 0;
  for (std::size_t at = text.find(";\n"); at != std::string::npos; at = text.find(";\n", start)) {
    out.push_back(text.substr(start, at - start));
    start = at + 2;
  }
  return out;
}

std::vector<std::string> inserts(const std::string& text) {
  std::vector<std::string> out;
  for (std::string& s : statements(text)) {
    if (s.rfind("INSERT", 0) == 0) out.push_back(std::move(s));
  }
  return out;
}

class DmpRecordset : public testing::Test {
 protected:
  void SetUp() override {
    engine.set_fast_mode(true);
    options.insert_comments = false;
    options.add_lock = false;
    options.create_table = false;
    options.line_break = 1;
    db = engine.create_dump(tk_utf8_decode(dir.file("rows.sql")), options);
  }
  std::unique_ptr<udb_recordset> create(const std::wstring& name, const udb_schema& schema) {
    udb_indexes none;
    return db->create_table(name, schema, none);
  }
  std::string finish() {
    db->finish();
    return test::read_file(dir.file("rows.sql"));
  }

  sql_engine engine;
  test::temp_dir dir;
  dump_options options;
  std::unique_ptr<dmp_database> db;
};

TEST_F(DmpRecordset, TenSmallRowsMakeOneStatementInOrder) {
  auto rs = create(L"t", id_and_text());
  for (int i = 1; i <= 10; ++i) {
    udb_record r = row(i, ole_variant(L"r" + std::to_wstring(i)));
    rs->append_record(r);
  }
  EXPECT_EQ(rs->rec_count(), 10U);
  rs.reset();  // the destructor writes the batch
  const auto all = inserts(finish());
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all[0],
            "INSERT IGNORE INTO `t`(`id`, `v`) VALUES(1, 'r1'), (2, 'r2'), (3, 'r3'), (4, 'r4'), (5, 'r5'), "
            "(6, 'r6'), (7, 'r7'), (8, 'r8'), (9, 'r9'), (10, 'r10')");
}

TEST_F(DmpRecordset, EmptyTableWritesNothing) {
  auto rs = create(L"t", id_and_text());
  rs->finish();
  rs.reset();
  const std::string t = finish();
  EXPECT_EQ(t.find("INSERT"), std::string::npos);
  // Only the header's statements end in ";".
  EXPECT_EQ(count(t, ";"), 3U);
}

TEST_F(DmpRecordset, BatchIsWrittenOnceItPassesTheLimit) {
  auto rs = create(L"t", id_and_text());
  const std::wstring chunk(99990, L'x');
  for (int i = 0; i < 25; ++i) {
    udb_record r = row(i, ole_variant(chunk));
    rs->append_record(r);
  }
  rs.reset();
  const auto all = inserts(finish());
  ASSERT_EQ(all.size(), 3U);
  // A row is about 100,000 bytes: the tenth passes 1,000,000 and the
  // statement goes out with it.
  EXPECT_GT(all[0].size(), 1000000U);
  EXPECT_LT(all[0].size(), 1000000U + 100010U);
  EXPECT_EQ(count(all[0], "'), ("), 9U);
  EXPECT_EQ(all[1].rfind("INSERT IGNORE INTO `t`(`id`, `v`) VALUES(10, '", 0), 0U);
  EXPECT_EQ(all[2].rfind("INSERT IGNORE INTO `t`(`id`, `v`) VALUES(20, '", 0), 0U);
  EXPECT_EQ(count(all[2], "'), ("), 4U);
}

TEST_F(DmpRecordset, RowOfExactlyAMillionStaysFast) {
  auto rs = create(L"t", id_and_text());
  udb_record r;
  r.emplace_back(L"v", 0, ole_variant(std::wstring(1000000, L'a')));
  ASSERT_EQ(r.get_total_size(), 1000000U);
  rs->append_record(r);
  rs.reset();
  EXPECT_TRUE(engine.fast_mode());
  const auto all = inserts(finish());
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all[0].rfind("INSERT IGNORE INTO `t`(`v`) VALUES('aaa", 0), 0U);
}

TEST_F(DmpRecordset, TooBigRowSwitchesTheWholeRunToSingleInserts) {
  test::log_capture log(3);
  auto rs = create(L"t", id_and_text());
  udb_record small1 = row(1, ole_variant(L"a"));
  udb_record small2 = row(2, ole_variant(L"b"));
  // The id counts its size (0), the text its characters.
  udb_record big = row(3, ole_variant(std::wstring(1000001, L'c')));
  ASSERT_EQ(big.get_total_size(), 1000001U);
  udb_record small4 = row(4, ole_variant(L"d"));
  rs->append_record(small1);
  rs->append_record(small2);
  rs->append_record(big);
  rs->append_record(small4);
  EXPECT_FALSE(engine.fast_mode());
  rs.reset();
  auto next = create(L"u", id_and_text());
  udb_record other = row(5, ole_variant(L"e"));
  next->append_record(other);
  next.reset();
  const auto all = inserts(finish());
  ASSERT_EQ(all.size(), 4U);
  EXPECT_EQ(all[0], "INSERT IGNORE INTO `t`(`id`, `v`) VALUES(1, 'a'), (2, 'b')");
  EXPECT_EQ(all[1].rfind("INSERT INTO `t`(`id`, `v`) VALUES (3, 'ccc", 0), 0U);
  EXPECT_EQ(all[2], "INSERT INTO `t`(`id`, `v`) VALUES (4, 'd')");
  EXPECT_EQ(all[3], "INSERT INTO `u`(`id`, `v`) VALUES (5, 'e')");
  EXPECT_TRUE(log.has_line("Row is too big (1000001 bytes), swtich to slow_append"));
}

TEST_F(DmpRecordset, ColumnMissingFromTheFirstRecordLeavesTheBatch) {
  auto rs = create(L"t", id_and_text());
  udb_record only_v;
  only_v.emplace_back(L"V", 0, ole_variant(L"first"));
  rs->append_record(only_v);
  udb_record full = row(2, ole_variant(L"second"));
  rs->append_record(full);  // more fields than the batch needs: fine
  udb_record only_id;
  only_id.emplace_back(L"id", 0, ole_variant(3));
  try {
    rs->append_record(only_id);
    FAIL() << "no exception";
  } catch (const tk_exception& e) {
    EXPECT_EQ(e.text(), "The structure of data source does not conform to the destination table.");
  }
  rs.reset();
  const auto all = inserts(finish());
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all[0], "INSERT IGNORE INTO `t`(`v`) VALUES('first'), ('second')");
}

TEST_F(DmpRecordset, RenamedColumnsTakeTheirTargetNames) {
  udb_schema schema;
  schema.push_back(col(L"a;b", vt::vt_i4));
  schema.push_back(col(L"plain", vt::vt_i4));
  auto rs = create(L"t", schema);
  for (bool slow : {false, true}) {
    engine.set_fast_mode(!slow);
    udb_record r;
    r.emplace_back(L"plain", 0, ole_variant(2));
    r.emplace_back(L"a;b", 0, ole_variant(1));
    rs->append_record(r);
    rs->finish();
  }
  rs.reset();
  const auto all = inserts(finish());
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[0], "INSERT IGNORE INTO `t`(`a_b`, `plain`) VALUES(1, 2)");
  EXPECT_EQ(all[1], "INSERT INTO `t`(`a_b`, `plain`) VALUES (1, 2)");
}

TEST_F(DmpRecordset, SlowPathWithFewerFieldsMapsTheirNames) {
  engine.set_fast_mode(false);
  udb_schema schema;
  schema.push_back(col(L"x", vt::vt_i4));
  schema.push_back(col(L"a;b", vt::vt_i4));
  schema.push_back(col(L"z", vt::vt_i4));
  auto rs = create(L"t", schema);
  udb_record r;
  r.emplace_back(L"a;b", 0, ole_variant(7));
  rs->append_record(r);
  udb_record stranger;
  stranger.emplace_back(L"nope", 0, ole_variant(1));
  EXPECT_THROW(rs->append_record(stranger), tk_exception);
  udb_record missing;
  missing.emplace_back(L"x", 0, ole_variant(1));
  missing.emplace_back(L"y", 0, ole_variant(1));
  missing.emplace_back(L"z", 0, ole_variant(1));
  EXPECT_THROW(rs->append_record(missing), tk_exception);
  rs.reset();
  const auto all = inserts(finish());
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all[0], "INSERT INTO `t`(`a_b`) VALUES (7)");
}

// --- Long values --------------------------------------------------------------------------------------

// A text that exercises every escape, and a run of quotes across the edge of
// a streamed piece (131072 characters).
std::wstring awkward_text(std::size_t size) {
  std::wstring text;
  const std::wstring parts[] = {L"O'Neil\\x", std::wstring(L"\0", 1), L"\r\n", L"''", L"\U0001F600", L"\u00e9", L"\""};
  for (std::size_t i = 0; text.size() < size; ++i) text += parts[i % 7];
  text.resize(size);
  for (std::size_t at = 131068; at < 131076 && at < text.size(); ++at) text[at] = L'\'';
  return text;
}

TEST_F(DmpRecordset, LongValuesAreStreamedExactlyAsTheyRender) {
  engine.set_fast_mode(false);
  udb_schema schema;
  schema.push_back(col(L"id", vt::vt_i4));
  schema.push_back(col(L"b", vt::vt_bytes, 0));
  schema.push_back(col(L"t", vt::vt_bstr, 0));
  schema.push_back(col(L"g", vt::vt_bstr, 0));
  schema[3].dw_reserved = 2;
  schema.push_back(col(L"tail", vt::vt_i4));
  std::vector<std::uint8_t> bytes(sql_max_field_size + 1);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 7);
  udb_record r;
  r.emplace_back(L"id", 0, ole_variant(1));
  r.emplace_back(L"b", 0, ole_variant(bytes));
  r.emplace_back(L"t", 0, ole_variant(awkward_text(sql_max_field_size + 5)));
  r.emplace_back(L"g", 0, ole_variant(L"POINT(1 2)" + std::wstring(sql_max_field_size, L' ')));
  r.emplace_back(L"tail", 0, ole_variant(9));
  ASSERT_TRUE(sql_is_long_value(r[1]));
  ASSERT_TRUE(sql_is_long_value(r[2]));
  auto rs = create(L"big", schema);
  rs->append_record(r);
  rs.reset();
  std::string expected = "INSERT INTO `big`(`id`, `b`, `t`, `g`, `tail`) VALUES (1, ";
  for (std::size_t i = 1; i < 4; ++i) {
    append_fld_str(expected, r[i], schema[i], false);
    expected += ", ";
  }
  expected += "9);\n";
  const std::string t = finish();
  const std::size_t at = t.find("INSERT INTO `big`");
  ASSERT_NE(at, std::string::npos);
  EXPECT_TRUE(t.compare(at, expected.size(), expected) == 0);
  EXPECT_NE(t.find("VALUES (1, 0x00070E15", at), std::string::npos);
}

TEST_F(DmpRecordset, LongValueOnTheFastPathStartsAStatementOfItsOwn) {
  auto rs = create(L"t", id_and_text());
  auto* dump = dynamic_cast<dmp_recordset*>(rs.get());
  ASSERT_NE(dump, nullptr);
  udb_record first = row(1, ole_variant(L"a"));
  dump->fast_append(first);
  const std::wstring long_text(sql_max_field_size + 1, L'L');
  udb_record second = row(2, ole_variant(long_text));
  dump->fast_append(second);
  udb_record third = row(3, ole_variant(L"c"));
  dump->fast_append(third);
  rs.reset();
  const auto all = inserts(finish());
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[0], "INSERT IGNORE INTO `t`(`id`, `v`) VALUES(1, 'a')");
  EXPECT_EQ(all[1],
            "INSERT IGNORE INTO `t`(`id`, `v`) VALUES(2, '" + std::string(long_text.size(), 'L') + "'), (3, 'c')");
}

TEST_F(DmpRecordset, CharactersBeyondTheBmpAreReportedForUtf8) {
  test::log_capture log(3);
  auto rs = create(L"t", id_and_text());
  for (int i = 0; i < 3; ++i) {
    udb_record r = row(i, ole_variant(L"smile \U0001F600"));
    rs->append_record(r);
  }
  rs.reset();
  const std::string t = finish();
  EXPECT_NE(t.find("'smile \xF0\x9F\x98\x80'"), std::string::npos);
  const std::string line =
      "Column 'v' of table 't' holds characters beyond U+FFFF, which the character set 'utf8' cannot store; "
      "utf8mb4 can";
  EXPECT_TRUE(log.has_line(line));
  EXPECT_EQ(count(log.text(), "holds characters beyond U+FFFF"), 1U);
}

TEST_F(DmpRecordset, Utf8mb4TakesCharactersBeyondTheBmpQuietly) {
  test::log_capture log(3);
  engine.set_charset(L"utf8mb4");
  auto rs = create(L"t", id_and_text());
  udb_record r = row(1, ole_variant(L"\U0001F600"));
  rs->append_record(r);
  rs.reset();
  finish();
  engine.set_charset(L"utf8");
  EXPECT_EQ(log.text().find("beyond U+FFFF"), std::string::npos);
}

}  // namespace
}  // namespace qb
