// sql_table and the readers on the test MariaDB: structure read back, rows
// read in blocks, and the row loader with its two paths, its prepared
// statements and its verification counts.
#include "sql/table.h"

#include <cstdlib>
#include <limits>

#include <gtest/gtest.h>

#include "sql/exception.h"
#include "sql/recordset.h"

#include "server_fixture.h"

namespace qb::test {
namespace {

using vt = ole_variant;

udb_schema id_text(std::uint32_t text_size = 0) {
  udb_schema s;
  t_ftd id = server_col(L"id", vt::vt_i4);
  id.b_not_null = true;
  s.push_back(id);
  s.push_back(server_col(L"v", vt::vt_bstr, text_size));
  return s;
}

ole_variant text(std::size_t n, wchar_t c = L'x') { return ole_variant(std::wstring(n, c)); }

class SqlTable : public ServerDb {
 protected:
  void SetUp() override { engine().set_fast_mode(true); }
  void TearDown() override { engine().set_fast_mode(true); }

  // Every line of the log from a mark on that begins with prefix.
  std::vector<std::string> lines_starting(std::size_t from, const std::string& prefix) const {
    std::vector<std::string> found;
    const std::string text = log_since(from);
    std::size_t start = 0;
    while (start < text.size()) {
      std::size_t end = text.find("\r\n", start);
      if (end == std::string::npos) end = text.size();
      if (text.compare(start, prefix.size(), prefix) == 0) found.push_back(text.substr(start, end - start));
      start = end + 2;
    }
    return found;
  }
};

// --- Reading -----------------------------------------------------------------------------------

TEST_F(SqlTable, LimitedQueryOverASelectReadsItAsADerivedTable) {
  sql_limited_query block(db(), L"select 1", 0, 256, true);
  EXPECT_EQ(block.statement(), "SELECT * FROM (select 1) as temp___table LIMIT 0,256");
  std::vector<sql_record> rows;
  EXPECT_EQ(block.store_to(&rows, nullptr), 1U);
  EXPECT_EQ(rows[0][0].to_wstring(), L"1");
  EXPECT_TRUE(log_.has_line("...as query"));
  EXPECT_TRUE(log_.has_line("Schema is empty, build via f_info"));
  EXPECT_THROW(block.store_to(nullptr, nullptr), tk_mail_assertion);
}

TEST_F(SqlTable, TableIsReadInBlocksOf256) {
  run("CREATE TABLE many (id INT NOT NULL PRIMARY KEY, v VARCHAR(10))");
  std::string insert = "INSERT INTO many VALUES ";
  for (int i = 1; i <= 600; ++i) insert += (i > 1 ? ", (" : "(") + std::to_string(i) + ", 'r" + std::to_string(i) + "')";
  run(insert);
  reopen(2);
  std::unique_ptr<udb_recordset> rs = db().get_table(L"many", 1);
  EXPECT_EQ(rs->rec_count(), 600U);
  int n = 0;
  for (rs->reset(); !rs->is_eof(); rs->next()) {
    ++n;
    ASSERT_EQ((*rs->get_item())[0].to_long(), n);
    EXPECT_EQ((*rs->get_item())[1].to_wstring(), L"r" + std::to_wstring(n));
  }
  EXPECT_EQ(n, 600);
  EXPECT_NE(log_.text().find("LIMIT 512,256"), std::string::npos);
  // Back over a block's border.
  rs->reset();
  for (int i = 0; i < 257; ++i) rs->next();
  EXPECT_EQ((*rs->get_item())[0].to_long(), 258);
  rs->prev();
  rs->prev();
  EXPECT_EQ((*rs->get_item())[0].to_long(), 256);
  // A recordset of reading takes no rows.
  sql_recordset reader(db(), L"many");
  reader.initialize();
  EXPECT_EQ(reader.rec_count(), 600U);
  EXPECT_THROW(reader.append_record(*rs->get_item()), tk_mail_assertion);
  EXPECT_TRUE(log_.has_line("sql_recordset::append_record"));
}

TEST_F(SqlTable, StructureComesFromTheServer) {
  run("CREATE TABLE shape (id INT NOT NULL AUTO_INCREMENT PRIMARY KEY, name VARCHAR(40) NOT NULL DEFAULT 'a''b', "
      "price DECIMAL(12,2) DEFAULT 0.00, ratio FLOAT(7,3), born DATE NOT NULL DEFAULT '0000-00-00', "
      "seen DATETIME(3) DEFAULT CURRENT_TIMESTAMP(3), note TEXT, raw BLOB, code VARBINARY(8), "
      "UNIQUE KEY ux_name (name), KEY ix_pair (price, ratio))");
  run("INSERT INTO shape (name) VALUES ('x'), ('y')");
  reopen(2);
  std::unique_ptr<udb_recordset> rs = db().get_table(L"shape", 2);
  const udb_schema& s = rs->schema();
  ASSERT_EQ(s.size(), 9U);
  EXPECT_TRUE(s[0].b_auto_num);
  EXPECT_EQ(s[1].vartype, vt::vt_bstr);
  EXPECT_EQ(s[1].size, 40U);
  EXPECT_EQ(s[1].def_value.to_wstring(), L"a'b");
  EXPECT_EQ(s[2].vartype, vt::vt_decimal);
  EXPECT_EQ(s[2].prec, 12U);
  EXPECT_EQ(s[2].scale, 2U);
  EXPECT_EQ(s[3].prec, 7U);
  EXPECT_EQ(s[3].scale, 3U);
  // The zero date is no default, and the writer treats the column as nullable.
  EXPECT_EQ(s[4].vartype, vt::vt_date);
  EXPECT_TRUE(s[4].def_value.is_empty());
  EXPECT_FALSE(s[4].b_not_null);
  EXPECT_EQ(s[4].dw_reserved, 2U);
  EXPECT_EQ(s[5].dw_reserved, 9U);
  EXPECT_EQ(s[5].scale, 3U);
  EXPECT_EQ(s[6].vartype, vt::vt_bstr);
  EXPECT_EQ(s[7].vartype, vt::vt_bytes);
  EXPECT_EQ(s[8].vartype, vt::vt_bytes);
  EXPECT_TRUE(log_.has_line("Refining type/size for varchar(40)"));
  EXPECT_TRUE(log_.has_line("Refining type for FLOAT(7,3)"));
  EXPECT_TRUE(log_.has_line("Skip empty def.values for date column"));
  EXPECT_TRUE(log_.has_line("Special processing for CURRENT_TIMESTAMP"));
  EXPECT_TRUE(log_.has_line("Got auto_number column: 'id'"));
  EXPECT_TRUE(log_.has_line("got last value=2"));
  const udb_indexes& ix = rs->indexes();
  ASSERT_EQ(ix.size(), 3U);
  EXPECT_TRUE(ix[0].b_primary);
  EXPECT_EQ(ix[1].name, L"ux_name");
  EXPECT_TRUE(ix[1].b_unique);
  EXPECT_EQ(ix[2].fields, (std::vector<std::wstring>{L"price", L"ratio"}));
  EXPECT_FALSE(ix[2].b_unique);
  // blob_to_text is back as it was.
  EXPECT_FALSE(engine().blob_to_text());
}

TEST_F(SqlTable, ModeWithoutIndexBitsReadsNoIndexes) {
  run("CREATE TABLE plain (id INT NOT NULL PRIMARY KEY)");
  reopen(2);
  std::unique_ptr<udb_recordset> rs = db().get_table(L"plain", 0x20);
  EXPECT_TRUE(rs->indexes().empty());
  EXPECT_TRUE(log_.has_line("Mode=no_indexes, nothing to do"));
}

TEST_F(SqlTable, ForeignKeysAreReadPastCheckConstraints) {
  run("CREATE TABLE p (id INT NOT NULL PRIMARY KEY)");
  run("CREATE TABLE c (id INT NOT NULL PRIMARY KEY, pid INT, amount INT CHECK (amount >= 0), "
      "CONSTRAINT chk_amount CHECK (amount < 1000), "
      "CONSTRAINT fk_p FOREIGN KEY (pid) REFERENCES p (id) ON DELETE SET NULL)");
  reopen(2);
  std::unique_ptr<udb_recordset> rs = db().get_table(L"c", 2);
  const auto& keys = static_cast<sql_table&>(*rs).foreign_keys();
  ASSERT_EQ(keys.size(), 1U);
  EXPECT_EQ(keys[0].name, L"fk_p");
  EXPECT_EQ(keys[0].pk_table, L"p");
  EXPECT_EQ(keys[0].fk_fields, (std::vector<std::wstring>{L"pid"}));
  EXPECT_EQ(keys[0].properties, L"ON DELETE SET NULL");
  EXPECT_TRUE(log_.has_line("Extracting foreign keys"));
}

TEST_F(SqlTable, GeometryIsReadAsTextAndWrittenBack) {
  run("CREATE TABLE places (id INT NOT NULL PRIMARY KEY, g GEOMETRY)");
  run("INSERT INTO places VALUES (1, ST_GeomFromText('POINT(1 2)')), (2, NULL)");
  reopen(2);
  std::unique_ptr<udb_recordset> rs = db().get_table(L"places", 2);
  EXPECT_EQ(rs->schema()[1].vartype, vt::vt_bstr);
  EXPECT_EQ(rs->schema()[1].dw_reserved, 2U);
  EXPECT_TRUE(log_.has_line("Got MYSQL_TYPE_GEOMETRY"));
  rs->reset();
  EXPECT_EQ((*rs->get_item())[1].to_wstring(), L"POINT(1 2)");
  rs.reset();  // a table goes before its database
  // Written into a second table through the same table object kind.
  run("CREATE TABLE places2 LIKE places");
  reopen(2);
  auto copy = db().get_table(L"places2", 2);
  udb_record row = server_row(copy->schema(), {ole_variant(7), ole_variant(L"POINT(3 4)")});
  copy->append_record(row);
  copy->finish();
  EXPECT_EQ(scalar("SELECT ST_AsText(g) FROM places2"), "POINT(3 4)");
}

TEST_F(SqlTable, TempRecordsetWalksAResultOnce) {
  sql_tmp_recordset rs(db(), L"SELECT 1 AS a UNION ALL SELECT 2 UNION ALL SELECT 3");
  EXPECT_EQ(rs.schema().size(), 1U);
  std::vector<std::wstring> seen;
  for (; !rs.is_eof(); rs.next()) seen.push_back(rs.text(0));
  EXPECT_EQ(seen, (std::vector<std::wstring>{L"1", L"2", L"3"}));
  EXPECT_TRUE(log_.has_line("n_fields=1"));
  rs.prev();
  EXPECT_TRUE(rs.is_eof());
  udb_record row;
  EXPECT_THROW(rs.append_record(row), tk_mail_assertion);
}

TEST_F(SqlTable, FieldFinderSeesTheNamesAsTheTableDoes) {
  udb_record row;
  row.emplace_back(L"id", 0, ole_variant(1));
  row.emplace_back(L"Name ", 0, ole_variant(L"x"));  // a blank at the end is refused
  row.emplace_back(L"ID", 0, ole_variant(L"y"));     // a name taken already, in another case
  const sql_field_finder finder(row);
  EXPECT_EQ(finder.names()[1], L"Name");
  EXPECT_NE(finder.names()[2], L"ID");
  EXPECT_EQ(finder.get_field_idx(L"id"), 0);
  EXPECT_EQ(finder.get_field_idx(L"Name"), 1);
  EXPECT_EQ(finder.get_field_idx(L"NAME"), 1);
  EXPECT_EQ(finder.get_field_idx(L"missing"), -1);
  EXPECT_TRUE(log_.has_line("GOT SAFE NAME: Name ->Name"));
}

// --- The fast path -----------------------------------------------------------------------------

TEST_F(SqlTable, RowsThatFitGoAsOneStatementAtTheEnd) {
  auto t = create(L"few", id_text(20), primary_key(L"id"));
  const std::size_t from = mark();
  for (int i = 1; i <= 10; ++i) {
    udb_record row = server_row(t->schema(), {ole_variant(i), ole_variant(L"v" + std::to_wstring(i))});
    t->append_record(row);
  }
  EXPECT_EQ(t->statements_sent(), 0U);
  EXPECT_EQ(scalar("SELECT COUNT(*) FROM few"), "0");
  t.reset();  // the destructor sends the batch
  EXPECT_EQ(scalar("SELECT COUNT(*) FROM few"), "10");
  const auto statements = lines_starting(from, "Run SQL query: [");
  ASSERT_EQ(statements.size(), 1U);
  EXPECT_EQ(statements[0].rfind("Run SQL query: [INSERT IGNORE INTO `few`(`id`, `v`) VALUES(1, 'v1'), (2, 'v2')", 0),
            0U);
  EXPECT_NE(statements[0].find("(9, 'v9'), (10, 'v10')]"), std::string::npos);
}

TEST_F(SqlTable, EmptyTableSendsNothing) {
  auto t = create(L"none", id_text(20));
  const std::size_t from = mark();
  t->finish();
  EXPECT_EQ(t->statements_sent(), 0U);
  t.reset();
  EXPECT_TRUE(lines_starting(from, "Run SQL query").empty());
  EXPECT_TRUE(lines_starting(from, "sql_database::query_append").empty());
}

TEST_F(SqlTable, RowThatWouldPassTheLimitStartsANewStatement) {
  auto t = create(L"big", id_text(0));
  const std::size_t from = mark();
  for (int i = 1; i <= 3; ++i) {
    udb_record row = server_row(t->schema(), {ole_variant(i), text(400000)});
    t->append_record(row);
  }
  t->finish();
  EXPECT_EQ(scalar("SELECT COUNT(*) FROM big"), "3");
  const auto statements = lines_starting(from, "Run SQL query: [");
  ASSERT_EQ(statements.size(), 2U);
  EXPECT_EQ(statements[0].rfind("Run SQL query: [INSERT IGNORE INTO `big`(`id`, `v`) VALUES(1, '", 0), 0U);
  // No blank before VALUES in a statement that a full one made necessary.
  EXPECT_EQ(statements[1].rfind("Run SQL query: [INSERT IGNORE INTO `big`(`id`, `v`)VALUES(3, '", 0), 0U);
  EXPECT_LE(statements[0].size(), 1000000U + 17);
  EXPECT_EQ(t->write_counts().rows_written, 3U);
}

TEST_F(SqlTable, RowOfExactlyTheLimitStaysFastAndOneMoreGoesPrepared) {
  const udb_schema source = id_text(0);
  auto t = create(L"edge", source);
  const std::size_t from = mark();
  // The source's integer column has no size of its own: the text is the row.
  udb_record exact = server_row(source, {ole_variant(1), text(1000000)});
  ASSERT_EQ(exact.get_total_size(), 1000000U);
  t->append_record(exact);
  EXPECT_TRUE(engine().fast_mode());
  udb_record over = server_row(source, {ole_variant(2), text(1000001)});
  t->append_record(over);
  EXPECT_FALSE(engine().fast_mode());
  EXPECT_TRUE(has_line_since(from, "Row is too big (1000001 bytes), swtich to slow_append"));
  // The pending batch went out first, then the row by a prepared statement
  // with its value in the text (it is not over 1048576).
  EXPECT_EQ(scalar("SELECT COUNT(*) FROM edge"), "2");
  EXPECT_FALSE(lines_starting(from, "sql_database::prepared_statement(INSERT INTO `edge`(`id`, `v`) VALUES (2, 'xxx")
                   .empty());
  // Every later row, also a small one, goes one by one.
  udb_record small = server_row(source, {ole_variant(3), ole_variant(L"s")});
  t->append_record(small);
  EXPECT_EQ(scalar("SELECT COUNT(*) FROM edge"), "3");
  EXPECT_TRUE(has_line_since(from, "Run SQL query: INSERT INTO `edge`(`id`, `v`) VALUES (3, 's')"));
  EXPECT_EQ(t->write_counts().rows_written, 3U);
}

TEST_F(SqlTable, OneAndAHalfMillionBytesInTwoFieldsPreparesWithoutParameters) {
  udb_schema s = id_text(0);
  s.push_back(server_col(L"w", vt::vt_bstr, 0));
  auto t = create(L"halves", s);
  const std::size_t from = mark();
  udb_record row = server_row(t->schema(), {ole_variant(1), text(750000, L'a'), text(750000, L'b')});
  t->append_record(row);
  EXPECT_FALSE(lines_starting(from, "sql_database::prepared_statement(INSERT INTO `halves`(`id`, `v`, `w`) VALUES "
                                    "(1, 'aaa")
                   .empty());
  EXPECT_NE(log_since(from).find("bbb'), 0)"), std::string::npos);
  EXPECT_EQ(scalar("SELECT CONCAT(LENGTH(v), ':', LENGTH(w), ':', RIGHT(v, 1), RIGHT(w, 1)) FROM halves"),
            "750000:750000:ab");
}

TEST_F(SqlTable, ValueOverAMebibyteGoesAsLongDataAndOneOfAMebibyteInTheText) {
  auto t = create(L"mib", id_text(0));
  const std::size_t from = mark();
  udb_record in_text = server_row(t->schema(), {ole_variant(1), text(1048576, L'\u00e9')});
  t->append_record(in_text);
  EXPECT_FALSE(lines_starting(from, "sql_database::prepared_statement(INSERT INTO `mib`(`id`, `v`) VALUES (1, '")
                   .empty());
  const std::size_t second = mark();
  udb_record long_data = server_row(t->schema(), {ole_variant(2), text(1048577, L'\u00e9')});
  t->append_record(long_data);
  EXPECT_TRUE(has_line_since(second, "sql_database::prepared_statement(INSERT INTO `mib`(`id`, `v`) VALUES (2, ?), 1)"));
  EXPECT_TRUE(has_line_since(second, "Reading field #0 (size=1048577)"));
  EXPECT_EQ(column("SELECT CHAR_LENGTH(v) FROM mib ORDER BY id"), (std::vector<std::string>{"1048576", "1048577"}));
  EXPECT_EQ(tk_utf8_decode(scalar("SELECT RIGHT(v, 1) FROM mib WHERE id = 2")), L"\u00e9");
}

TEST_F(SqlTable, BinaryValueOverAMebibyteArrivesWhole) {
  udb_schema s;
  s.push_back(server_col(L"id", vt::vt_i4));
  s.push_back(server_col(L"b", vt::vt_bytes, 0));
  auto t = create(L"blobs", s);
  std::vector<std::uint8_t> bytes(1048577 + 131072);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>((i * 31) ^ (i >> 9));
  udb_record row = server_row(t->schema(), {ole_variant(1), ole_variant(bytes)});
  t->append_record(row);
  t->finish();
  EXPECT_EQ(scalar("SELECT LENGTH(b) FROM blobs"), std::to_string(bytes.size()));
  // Read back through the table object: the same bytes.
  auto back = db().get_table(L"blobs", 0x20);
  back->reset();
  const auto got = (*back->get_item())[1].bytes_view();
  EXPECT_TRUE(std::equal(got.begin(), got.end(), bytes.begin(), bytes.end()));
}

TEST_F(SqlTable, ReplaceModeWritesReplaceOnBothPaths) {
  run("CREATE TABLE rep (id INT NOT NULL PRIMARY KEY, v VARCHAR(10))");
  run("INSERT INTO rep VALUES (1, 'old'), (2, 'old')");
  reopen(0x1A0);
  const std::size_t from = mark();
  auto t = db().get_table(L"rep", 8);
  udb_record a = server_row(t->schema(), {ole_variant(1), ole_variant(L"fast")});
  t->append_record(a);
  t->finish();
  engine().set_fast_mode(false);
  udb_record b = server_row(t->schema(), {ole_variant(2), ole_variant(L"slow")});
  t->append_record(b);
  EXPECT_TRUE(has_line_since(from, "Run SQL query: [REPLACE INTO `rep`(`id`, `v`) VALUES(1, 'fast')]"));
  EXPECT_TRUE(has_line_since(from, "Run SQL query: REPLACE INTO `rep`(`id`, `v`) VALUES (2, 'slow')"));
  EXPECT_EQ(column("SELECT v FROM rep ORDER BY id"), (std::vector<std::string>{"fast", "slow"}));
  EXPECT_EQ(t->write_counts().rows_written, 2U);
  EXPECT_EQ(static_cast<sql_table&>(*t).rows_replaced(), 2U);
}

// --- Counting what was written -------------------------------------------------------------------

TEST_F(SqlTable, InsertIgnoreDropsDuplicatesVisiblyInTheCounts) {
  auto t = create(L"dups", id_text(3), primary_key(L"id"));
  const std::size_t from = mark();
  for (int i : {1, 2, 2, 3, 1}) {
    udb_record row = server_row(t->schema(), {ole_variant(i), ole_variant(L"v")});
    t->append_record(row);
  }
  t->finish();
  EXPECT_EQ(scalar("SELECT COUNT(*) FROM dups"), "3");
  const udb_write_counts counts = t->write_counts();
  EXPECT_TRUE(counts.known);
  EXPECT_EQ(counts.rows_written, 3U);
  EXPECT_EQ(counts.warnings, 0U);  // the duplicate-key notes are the rows not written
  EXPECT_TRUE(has_line_since(from, "Table 'dups': a row was not written: Duplicate entry '2' for key 'PRIMARY'"));
  EXPECT_TRUE(has_line_since(from, "Table 'dups': a row was not written: Duplicate entry '1' for key 'PRIMARY'"));
}

TEST_F(SqlTable, WarningsAreCountedAndTheFirstOnesLogged) {
  auto t = create(L"warn", id_text(3));
  const std::size_t from = mark();
  for (int i = 1; i <= 8; ++i) {
    udb_record row = server_row(t->schema(), {ole_variant(i), ole_variant(L"too long")});
    t->append_record(row);
  }
  t->finish();
  EXPECT_EQ(t->write_counts().rows_written, 8U);
  EXPECT_EQ(t->write_counts().warnings, 8U);
  EXPECT_EQ(lines_starting(from, "Table 'warn': warning 1265: Data truncated for column 'v'").size(), 5U);
}

TEST_F(SqlTable, CharacterBeyondTheBmpInAUtf8ColumnIsCountedAndLogged) {
  ASSERT_EQ(engine().charset(), L"utf8");
  auto t = create(L"smile", id_text(20));
  const std::size_t from = mark();
  udb_record row = server_row(t->schema(), {ole_variant(1), ole_variant(L"ok \U0001F600")});
  t->append_record(row);
  t->finish();
  EXPECT_EQ(t->write_counts().rows_written, 1U);
  EXPECT_EQ(t->write_counts().warnings, 1U);
  EXPECT_TRUE(has_line_since(from, "Column 'v' of table 'smile' holds characters beyond U+FFFF, which the character "
                                   "set 'utf8' cannot store; utf8mb4 can"));
  EXPECT_NE(log_since(from).find("Table 'smile': warning 1366: Incorrect string value"), std::string::npos);
}

TEST_F(SqlTable, FailedBatchIsReportedWithItsRowsAndLaterBatchesStayTheirOwn) {
  auto t = create(L"lost", id_text(0));
  for (int i = 1; i <= 2; ++i) {
    udb_record row = server_row(t->schema(), {ole_variant(i), text(400000)});
    t->append_record(row);
  }
  run("DROP TABLE lost");  // the server refuses every batch from here
  const std::size_t from = mark();
  // Row 3 sends batch 1 (rows 1, 2) without waiting; row 5 sends batch 2
  // and learns of batch 1's failure.
  udb_record row3 = server_row(t->schema(), {ole_variant(3), text(400000)});
  t->append_record(row3);
  udb_record row4 = server_row(t->schema(), {ole_variant(4), text(400000)});
  t->append_record(row4);
  udb_record row5 = server_row(t->schema(), {ole_variant(5), text(400000)});
  try {
    t->append_record(row5);
    FAIL() << "batch 1 failed silently";
  } catch (const sql_exception& e) {
    EXPECT_EQ(e.error_number(), 1146U);
  }
  EXPECT_NE(log_since(from).find("Table 'lost': rows #1 to #2 (batch 1) were not written: Table '"),
            std::string::npos);
  EXPECT_THROW(t->finish(), sql_exception);
  EXPECT_NE(log_since(from).find("Table 'lost': rows #3 to #4 (batch 2) were not written"), std::string::npos);
  EXPECT_NE(log_since(from).find("Table 'lost': rows #5 to #5 (batch 3) were not written"), std::string::npos);
  EXPECT_EQ(t->write_counts().rows_written, 0U);
  // The connection serves the next statement.
  EXPECT_TRUE(db().query(L"SELECT 1", sql_no_rows));
}

// --- Updates -----------------------------------------------------------------------------------

TEST_F(SqlTable, UpdateWritesTheRowOfItsKey) {
  udb_schema s = id_text(20);
  s.push_back(server_col(L"n", vt::vt_i4));
  auto t = create(L"upd", s, primary_key(L"id"));
  udb_record first = server_row(t->schema(), {ole_variant(1), ole_variant(L"a"), ole_variant(10)});
  t->append_record(first);
  t->finish();
  udb_record changed = server_row(t->schema(), {ole_variant(1), ole_variant(L"it''s"), ole_variant(20)});
  t->update1(changed);
  EXPECT_EQ(rows("SELECT v, n FROM upd"), (std::vector<std::vector<std::string>>{{"it''s", "20"}}));
  EXPECT_TRUE(log_.has_line("UPDATE QUERY: UPDATE `upd` SET `v`='it\\'\\'s', `n`=20 WHERE `id`=1"));
  EXPECT_EQ(t->write_counts().rows_written, 2U);

  udb_record by_key = server_row(t->schema(), {ole_variant(1), ole_variant(L"k"), ole_variant(30)});
  static_cast<sql_table&>(*t).update(by_key, L"n = 20");
  EXPECT_EQ(scalar("SELECT CONCAT(v, n) FROM upd"), "k30");
  t->update2({ole_variant(1)}, first);
  EXPECT_EQ(scalar("SELECT CONCAT(v, n) FROM upd"), "a10");
  t->delete_key({ole_variant(1)});
  EXPECT_EQ(scalar("SELECT COUNT(*) FROM upd"), "0");
}

TEST_F(SqlTable, UpdateWithoutAKeyIsAnInternalError) {
  auto t = create(L"nokey", id_text(20));
  udb_record row = server_row(t->schema(), {ole_variant(1), ole_variant(L"a")});
  EXPECT_THROW(t->update1(row), tk_mail_assertion);
  EXPECT_TRUE(log_.has_line("There's no primary/unique key"));
}

TEST_F(SqlTable, RecordMissingAColumnDoesNotConform) {
  auto t = create(L"strict", id_text(20));
  udb_record row;
  row.emplace_back(L"id", 0, ole_variant(1));
  row.emplace_back(L"other", 0, ole_variant(L"x"));
  try {
    t->append_record(row);
    FAIL();
  } catch (const tk_exception& e) {
    EXPECT_STREQ(e.what(), "The structure of data source does not conform to the destination table.");
  }
  EXPECT_TRUE(log_.has_line("Field v not found in appending record"));
}

// --- What the lead decided beyond the old rules ----------------------------------------------------

TEST_F(SqlTable, ValuesWithDoubledQuotesArriveAsTheyAre) {
  auto t = create(L"quotes", id_text(20));
  const std::vector<std::wstring> values = {L"it''s", L"''", L"'", L"a\\''b", L"'''"};
  for (std::size_t i = 0; i < values.size(); ++i) {
    udb_record row = server_row(t->schema(), {ole_variant(static_cast<int>(i)), ole_variant(values[i])});
    t->append_record(row);
  }
  engine().set_fast_mode(false);
  udb_record slow = server_row(t->schema(), {ole_variant(9), ole_variant(L"x''y")});
  t->append_record(slow);
  t->finish();
  EXPECT_EQ(column("SELECT v FROM quotes ORDER BY id"),
            (std::vector<std::string>{"it''s", "''", "'", "a\\''b", "'''", "x''y"}));
}

TEST_F(SqlTable, FloatsAndDoublesComeBackExactly) {
  udb_schema s;
  s.push_back(server_col(L"id", vt::vt_i4));
  s.push_back(server_col(L"f", vt::vt_r4));
  s.push_back(server_col(L"d", vt::vt_r8));
  auto t = create(L"reals", s);
  const std::vector<float> floats = {1.0000001F, 0.1F, 3.4028234663852886e+38F, 1e-38F, -123.456F, 16777215.0F};
  const std::vector<double> doubles = {0.1, 1.0 / 3.0, 1e300, 2.2250738585072014e-308, -9007199254740993.0, 5e-324};
  for (std::size_t i = 0; i < floats.size(); ++i) {
    udb_record row = server_row(t->schema(), {ole_variant(static_cast<int>(i)), ole_variant(floats[i]),
                                              ole_variant(doubles[i])});
    t->append_record(row);
  }
  t->finish();
  const auto back = rows("SELECT f + 0E0, d FROM reals ORDER BY id");
  ASSERT_EQ(back.size(), floats.size());
  for (std::size_t i = 0; i < floats.size(); ++i) {
    EXPECT_EQ(static_cast<float>(std::strtod(back[i][0].c_str(), nullptr)), floats[i]) << back[i][0];
    EXPECT_EQ(std::strtod(back[i][1].c_str(), nullptr), doubles[i]) << back[i][1];
  }
}

TEST_F(SqlTable, FractionsOfASecondAreKept) {
  ASSERT_TRUE(engine().fractional_seconds());
  udb_schema s;
  s.push_back(server_col(L"id", vt::vt_i4));
  t_ftd at = server_col(L"at", vt::vt_date, 0, 1);
  at.scale = 7;  // datetime2(7): six digits are kept
  s.push_back(at);
  t_ftd old = server_col(L"old", vt::vt_date, 0, 1);
  old.scale = 3;  // datetime
  s.push_back(old);
  t_ftd clock = server_col(L"clock", vt::vt_date, 0, 3);
  clock.scale = 2;  // time(2)
  s.push_back(clock);
  s.push_back(server_col(L"plain", vt::vt_date, 0, 1));  // smalldatetime
  auto t = create(L"times", s);
  EXPECT_EQ(rows("SELECT column_name, column_type FROM information_schema.columns WHERE table_schema='" + name() +
                 "' AND table_name='times' ORDER BY ordinal_position"),
            (std::vector<std::vector<std::string>>{
                {"id", "int(11)"}, {"at", "datetime(6)"}, {"old", "datetime(3)"}, {"clock", "time(2)"},
                {"plain", "datetime"}}));
  udb_record row = server_row(
      t->schema(), {ole_variant(1), ole_variant::from_string("2024-02-29 12:34:56.123456", vt::vt_date),
                    ole_variant::from_string("2024-02-29 12:34:56.250", vt::vt_date),
                    ole_variant::from_string("10:15:30.75", vt::vt_date),
                    ole_variant::from_string("2024-02-29 12:34:56", vt::vt_date)});
  t->append_record(row);
  t->finish();
  EXPECT_EQ(rows("SELECT at, old, clock, plain FROM times"),
            (std::vector<std::vector<std::string>>{
                {"2024-02-29 12:34:56.123456", "2024-02-29 12:34:56.250", "10:15:30.75", "2024-02-29 12:34:56"}}));
}

TEST_F(SqlTable, IndexOverTheKeyBudgetIsDroppedAndTheTableMade) {
  udb_schema s;
  for (const wchar_t* name : {L"a", L"b", L"c"}) s.push_back(server_col(name, vt::vt_bstr, 512));
  udb_indexes indexes;
  indexes.push_back(udb_index(L"wide", false, false, {L"a", L"b", L"c"}));
  indexes.push_back(udb_index(L"narrow", false, false, {L"a"}));
  auto t = create(L"budget", s, indexes);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(column("SELECT DISTINCT index_name FROM information_schema.statistics WHERE table_schema='" + name() +
                   "' AND table_name='budget'"),
            (std::vector<std::string>{"narrow"}));
  EXPECT_TRUE(log_.has_line("Index 'wide' needs more than the 3072 bytes a key may take; skip it"));
}

TEST_F(SqlTable, IdentityBehindAnotherColumnGetsItsOwnIndex) {
  udb_schema s;
  s.push_back(server_col(L"a", vt::vt_i4));
  t_ftd id = server_col(L"id", vt::vt_i4);
  id.b_auto_num = true;
  s.push_back(id);
  udb_indexes indexes;
  indexes.push_back(udb_index(L"pair", false, false, {L"a", L"id"}));
  auto t = create(L"ident", s, indexes);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(scalar("SELECT extra FROM information_schema.columns WHERE table_schema='" + name() +
                   "' AND table_name='ident' AND column_name='id'"),
            "auto_increment");
  udb_record row = server_row(t->schema(), {ole_variant(5), ole_variant(9)});
  t->append_record(row);
  t->finish();
  EXPECT_EQ(scalar("SELECT CONCAT(a, ':', id) FROM ident"), "5:9");
}

}  // namespace
}  // namespace qb::test
