// Column and index chunks of CREATE TABLE.
#include "sql/ddl.h"

#include <map>
#include <memory>

#include <gtest/gtest.h>

#include "sql/engine.h"
#include "sql/native_type.h"
#include "tk/exception.h"
#include "tk/format.h"

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

// A mutator level for the tests: properties and children by name.
class test_mutator : public udb_properties {
 public:
  udb_properties* find_by_source_name(const std::wstring& name) override {
    const auto it = children.find(name);
    return it == children.end() ? nullptr : it->second.get();
  }
  udb_properties* find_by_target_name(const std::wstring& name) override { return find_by_source_name(name); }
  test_mutator& child(const std::wstring& name) {
    auto& slot = children[name];
    if (!slot) slot = std::make_unique<test_mutator>();
    return *slot;
  }
  void set(const std::wstring& key, const std::wstring& value) { properties_[key] = value; }

  std::map<std::wstring, std::unique_ptr<test_mutator>> children;
};

struct table_chunks {
  std::vector<std::wstring> columns;
  std::vector<std::wstring> indexes;
  std::wstring auto_field;
  t_names_map names;
  std::vector<std::wstring> final_names;
};

table_chunks make_chunks(const udb_schema& source, const udb_indexes& indexes, udb_properties* mutator = nullptr) {
  table_chunks out;
  sql_schema_initializer columns(L"t", source, indexes, out.auto_field);
  columns.get_init_chunks(out.columns, mutator);
  out.names = columns.names_map();
  for (const t_ftd& f : columns.schema()) out.final_names.push_back(f.name);
  if (!indexes.empty() || !out.auto_field.empty()) {
    sql_indexes_initializer index_chunks(&columns.schema(), indexes, out.auto_field, &columns.names_map());
    index_chunks.get_init_chunks(out.indexes);
  }
  return out;
}

class SqlDdl : public testing::Test {
 protected:
  void SetUp() override { engine.set_version(0x0A0B13); }
  sql_engine engine;
};

// --- Row size ------------------------------------------------------------------------------------

TEST_F(SqlDdl, HundredVarchar200AreCutUntilTheRowFits) {
  test::log_capture log(3);
  sql_schema schema;
  for (int i = 0; i < 100; ++i) schema.push_back(col(tk_wformat(L"c%d", i), vt::vt_bstr, 200));
  // 4 * 200 * 100 = 80000: the newest (equally long) column is cut as soon
  // as the estimate passes 65535, 19 of them in all.
  int cut = 0;
  for (std::size_t i = 0; i < schema.size(); ++i) {
    if (schema[i].size == 0) {
      ++cut;
      EXPECT_GE(i, 81U);
    }
  }
  EXPECT_EQ(cut, 19);
  EXPECT_EQ(schema.total_size(), 64800U);
  EXPECT_EQ(schema.lobs().size(), 81U);
  EXPECT_TRUE(log.has_line("Column 'c99' converted into LONG TEXT"));
  EXPECT_EQ(get_sql_native_type2(schema[99], false), L"LONGTEXT");
}

TEST_F(SqlDdl, LongestTextIsCutFirst) {
  sql_schema schema;
  schema.push_back(col(L"short", vt::vt_bstr, 100));
  schema.push_back(col(L"long", vt::vt_bstr, 10000));
  schema.push_back(col(L"mid", vt::vt_bstr, 2000));
  EXPECT_EQ(schema.lobs(), (std::vector<std::size_t>{1, 2, 0}));
  schema.push_back(col(L"blob", vt::vt_bytes, 20000));
  EXPECT_EQ(schema[1].size, 0U);
  EXPECT_EQ(schema[2].size, 2000U);
  EXPECT_EQ(schema.lobs(), (std::vector<std::size_t>{2, 0}));
  EXPECT_EQ(schema.total_size(), 4U * 100 + 4U * 2000 + 20000);
}

TEST_F(SqlDdl, Varchar21845IsNotCuttable) {
  sql_schema schema;
  schema.push_back(col(L"a", vt::vt_bstr, 21845));
  schema.push_back(col(L"b", vt::vt_bstr, 21845));
  schema.push_back(col(L"c", vt::vt_bstr, 21845));
  schema.push_back(col(L"d", vt::vt_bstr, 21845));
  EXPECT_TRUE(schema.lobs().empty());
  EXPECT_EQ(schema.total_size(), 4U * 21845);
  for (const t_ftd& f : schema) EXPECT_EQ(f.size, 21845U);
}

TEST_F(SqlDdl, UnlimitedColumnsDoNotCount) {
  sql_schema schema;
  schema.push_back(col(L"a", vt::vt_bstr, 0));
  schema.push_back(col(L"b", vt::vt_bytes, 5592405));
  schema.push_back(col(L"c", vt::vt_i4, 0));
  EXPECT_EQ(schema.total_size(), 0U);
}

// --- Column chunks -----------------------------------------------------------------------------

TEST_F(SqlDdl, ColumnChunkHasNameTypeCharsetNotNullDefaultComment) {
  udb_schema source;
  t_ftd f = col(L"name", vt::vt_bstr, 20);
  f.b_not_null = true;
  f.def_value = ole_variant(L"x");
  f.description = L"it's";
  source.push_back(f);
  const auto chunks = make_chunks(source, {});
  ASSERT_EQ(chunks.columns.size(), 1U);
  EXPECT_EQ(chunks.columns[0], L"`name` VARCHAR(20) CHARACTER SET utf8 NOT NULL DEFAULT 'x' COMMENT 'it\\'s'");
  EXPECT_TRUE(chunks.indexes.empty());
}

TEST_F(SqlDdl, CommentEscapesQuotesAndBackslashes) {
  udb_schema source;
  t_ftd f = col(L"n", vt::vt_i4);
  f.description = L"C:\\dir\\ it's";
  source.push_back(f);
  EXPECT_EQ(make_chunks(source, {}).columns[0], L"`n` INT COMMENT 'C:\\\\dir\\\\ it\\'s'");
}

TEST_F(SqlDdl, EmptyCharsetStillWritesTheClause) {
  engine.set_charset(L"");
  udb_schema source;
  source.push_back(col(L"t", vt::vt_bstr, 5));
  EXPECT_EQ(make_chunks(source, {}).columns[0], L"`t` VARCHAR(5) CHARACTER SET ");
  engine.set_charset(L"utf8");
}

TEST_F(SqlDdl, FieldMutatorChoosesTheCharacterSet) {
  udb_schema source;
  source.push_back(col(L"a", vt::vt_bstr, 5));
  source.push_back(col(L"b", vt::vt_bstr, 5));
  test_mutator table;
  table.child(L"a").set(L"character_set", L"latin1");
  table.child(L"b").set(L"character_set", L"");
  const auto chunks = make_chunks(source, {}, &table);
  EXPECT_EQ(chunks.columns[0], L"`a` VARCHAR(5) CHARACTER SET latin1");
  EXPECT_EQ(chunks.columns[1], L"`b` VARCHAR(5) CHARACTER SET utf8");
}

TEST_F(SqlDdl, NativeTypeWinsAndTakesACharsetWhenTextual) {
  udb_schema source;
  t_ftd a = col(L"a", vt::vt_i4);
  a.native_type = L"MEDIUMINT";
  t_ftd b = col(L"b", vt::vt_i4);
  b.native_type = L"TINYTEXT";
  t_ftd c = col(L"c", vt::vt_bstr, 10);
  c.native_type = L"char";  // the test counts case
  source.push_back(a);
  source.push_back(b);
  source.push_back(c);
  const auto chunks = make_chunks(source, {});
  EXPECT_EQ(chunks.columns[0], L"`a` MEDIUMINT");
  EXPECT_EQ(chunks.columns[1], L"`b` TINYTEXT CHARACTER SET utf8");
  EXPECT_EQ(chunks.columns[2], L"`c` char");
}

TEST_F(SqlDdl, GeometryTakesNoCharset) {
  udb_schema source;
  source.push_back(col(L"g", vt::vt_bstr, 0));
  source[0].dw_reserved = 2;
  EXPECT_EQ(make_chunks(source, {}).columns[0], L"`g` geometry");
}

TEST_F(SqlDdl, PrimaryKeyColumnsAreNotNull) {
  udb_schema source;
  source.push_back(col(L"id", vt::vt_i4));
  source.push_back(col(L"other", vt::vt_i4));
  udb_indexes indexes;
  indexes.push_back(udb_index(L"pk", false, true, {L"id"}));
  indexes.push_back(udb_index(L"ix", false, false, {L"other"}));
  const auto chunks = make_chunks(source, indexes);
  EXPECT_EQ(chunks.columns[0], L"`id` INT NOT NULL");
  EXPECT_EQ(chunks.columns[1], L"`other` INT");
  ASSERT_EQ(chunks.indexes.size(), 2U);
  EXPECT_EQ(chunks.indexes[0], L"PRIMARY KEY (`id`)");
  EXPECT_EQ(chunks.indexes[1], L"INDEX `ix` (`other`)");
  // Below 3.23.2 any indexed column is NOT NULL.
  engine.set_version(0x031701);
  EXPECT_EQ(make_chunks(source, indexes).columns[1], L"other INT NOT NULL");
}

TEST_F(SqlDdl, DefaultsAreLeftOutWhereMysqlTakesNone) {
  udb_schema source;
  t_ftd text = col(L"text", vt::vt_bstr, 0);
  text.def_value = ole_variant(L"x");
  t_ftd medium = col(L"medium", vt::vt_bstr, 21846);
  medium.def_value = ole_variant(L"x");
  t_ftd blob = col(L"blob", vt::vt_blob, 10);
  blob.def_value = ole_variant(L"0x00");
  t_ftd number = col(L"number", vt::vt_i4);
  number.def_value = ole_variant(L"7");
  source.push_back(text);
  source.push_back(medium);
  source.push_back(blob);
  source.push_back(number);
  const auto chunks = make_chunks(source, {});
  EXPECT_EQ(chunks.columns[0], L"`text` LONGTEXT CHARACTER SET utf8");
  EXPECT_EQ(chunks.columns[1], L"`medium` MEDIUMTEXT CHARACTER SET utf8");
  EXPECT_EQ(chunks.columns[2], L"`blob` VARBINARY(10)");
  EXPECT_EQ(chunks.columns[3], L"`number` INT DEFAULT 7");
  EXPECT_THROW(sql_can_have_def_value(nullptr), tk_mail_assertion);
  EXPECT_THROW(sql_can_have_auto_num(nullptr), tk_mail_assertion);
}

TEST_F(SqlDdl, IdentityGetsAutoIncrementAndNoDefault) {
  test::log_capture log;
  udb_schema source;
  t_ftd id = col(L"id", vt::vt_i8);
  id.b_auto_num = true;
  id.def_value = ole_variant(L"1");
  source.push_back(id);
  const auto chunks = make_chunks(source, {});
  EXPECT_EQ(chunks.columns[0], L"`id` BIGINT NOT NULL AUTO_INCREMENT");
  EXPECT_EQ(chunks.auto_field, L"id");
  EXPECT_TRUE(log.has_line("WARNING: auto_increment columns cannot have default value!"));
}

TEST_F(SqlDdl, DecimalIdentityIsOnlyNotNull) {
  udb_schema source;
  t_ftd id = col(L"id", vt::vt_decimal);
  id.prec = 18;
  id.b_auto_num = true;
  source.push_back(id);
  const auto chunks = make_chunks(source, {});
  EXPECT_EQ(chunks.columns[0], L"`id` DECIMAL(18,0) NOT NULL");
  EXPECT_TRUE(chunks.auto_field.empty());
  EXPECT_TRUE(chunks.indexes.empty());
}

TEST_F(SqlDdl, SecondAutoIncrementIsAnInternalError) {
  udb_schema source;
  t_ftd a = col(L"a", vt::vt_i4);
  a.b_auto_num = true;
  t_ftd b = col(L"b", vt::vt_i4);
  b.b_auto_num = true;
  source.push_back(a);
  source.push_back(b);
  EXPECT_THROW(make_chunks(source, {}), tk_mail_assertion);
}

TEST_F(SqlDdl, RefusedColumnNamesAreRenamedAndMapped) {
  test::log_capture log;
  udb_schema source;
  source.push_back(col(L"a;b", vt::vt_i4));
  source.push_back(col(L"a_b", vt::vt_i4));
  source.push_back(col(L"A_B", vt::vt_i4));
  udb_indexes indexes;
  indexes.push_back(udb_index(L"ix", false, false, {L"a;b", L"A_B"}));
  const auto chunks = make_chunks(source, indexes);
  EXPECT_EQ(chunks.final_names, (std::vector<std::wstring>{L"a_b00000", L"a_b", L"A_B00001"}));
  EXPECT_EQ(chunks.columns[0], L"`a_b00000` INT");
  ASSERT_EQ(chunks.names.size(), 2U);
  EXPECT_EQ(chunks.names.get_mapped_name(L"a;b"), L"a_b00000");
  EXPECT_EQ(chunks.names.get_mapped_name(L"A_B"), L"A_B00001");
  // The mapped lookup ignores case, so the key "A_B" also answers "a_b".
  ASSERT_EQ(chunks.indexes.size(), 1U);
  EXPECT_EQ(chunks.indexes[0], L"INDEX `ix` (`a_b00000`, `A_B00001`)");
  EXPECT_TRUE(log.has_line("Store generated column name 'a_b00000'"));
}

TEST_F(SqlDdl, OldServerWritesBareNamesAndNoCharset) {
  engine.set_version(0x040017);
  udb_schema source;
  source.push_back(col(L"name", vt::vt_bstr, 10));
  source.push_back(col(L"order", vt::vt_i4));
  udb_indexes indexes;
  indexes.push_back(udb_index(L"ix", true, false, {L"name"}));
  const auto chunks = make_chunks(source, indexes);
  EXPECT_EQ(chunks.columns[0], L"name VARCHAR(10)");
  EXPECT_EQ(chunks.columns[1], L"order00000 INT");
  ASSERT_EQ(chunks.indexes.size(), 1U);
  EXPECT_EQ(chunks.indexes[0], L"UNIQUE ix (name)");
}

// --- Index chunks ----------------------------------------------------------------------------------

TEST_F(SqlDdl, TableWithoutIndexesOrIdentityGetsNoIndexChunks) {
  udb_schema source;
  source.push_back(col(L"a", vt::vt_i4));
  const auto chunks = make_chunks(source, {});
  EXPECT_TRUE(chunks.indexes.empty());
  EXPECT_TRUE(chunks.auto_field.empty());
}

TEST_F(SqlDdl, UnindexedIdentityGetsAnIndexOfItsOwnName) {
  test::log_capture log;
  udb_schema source;
  t_ftd id = col(L"id", vt::vt_i4);
  id.b_auto_num = true;
  source.push_back(id);
  source.push_back(col(L"x", vt::vt_i4));
  udb_indexes indexes;
  indexes.push_back(udb_index(L"ix", false, false, {L"x"}));
  const auto chunks = make_chunks(source, indexes);
  ASSERT_EQ(chunks.indexes.size(), 2U);
  EXPECT_EQ(chunks.indexes[1], L"INDEX `id` (`id`)");
  EXPECT_TRUE(log.has_line("Creating index for auto-field"));
  // Without any index at all as well.
  udb_schema alone;
  alone.push_back(id);
  EXPECT_EQ(make_chunks(alone, {}).indexes, (std::vector<std::wstring>{L"INDEX `id` (`id`)"}));
}

TEST_F(SqlDdl, IdentityIndexNameAvoidsAnIndexOfThatName) {
  udb_schema source;
  t_ftd id = col(L"id", vt::vt_i4);
  id.b_auto_num = true;
  source.push_back(id);
  source.push_back(col(L"x", vt::vt_i4));
  udb_indexes indexes;
  indexes.push_back(udb_index(L"ID", false, false, {L"x"}));
  const auto chunks = make_chunks(source, indexes);
  ASSERT_EQ(chunks.indexes.size(), 2U);
  EXPECT_EQ(chunks.indexes[1], L"INDEX `id00000` (`id`)");
}

TEST_F(SqlDdl, IdentitySecondInAnIndexGetsAnIndexOfItsOwn) {
  // InnoDB refuses a table whose AUTO_INCREMENT column heads no index
  // (error 1075): a place further back does not count.
  test::log_capture log;
  udb_schema source;
  t_ftd id = col(L"id", vt::vt_i4);
  id.b_auto_num = true;
  source.push_back(col(L"a", vt::vt_i4));
  source.push_back(id);
  udb_indexes indexes;
  indexes.push_back(udb_index(L"ix", false, false, {L"a", L"ID"}));
  const auto chunks = make_chunks(source, indexes);
  EXPECT_EQ(chunks.indexes, (std::vector<std::wstring>{L"INDEX `ix` (`a`, `ID`)", L"INDEX `id` (`id`)"}));
  EXPECT_TRUE(log.has_line("Creating index for auto-field"));
}

TEST_F(SqlDdl, IdentityHeadingACarriedIndexNeedsNoOther) {
  udb_schema source;
  t_ftd id = col(L"id", vt::vt_i4);
  id.b_auto_num = true;
  source.push_back(id);
  source.push_back(col(L"a", vt::vt_i4));
  udb_indexes indexes;
  indexes.push_back(udb_index(L"ix", false, false, {L"ID", L"a"}));
  const auto chunks = make_chunks(source, indexes);
  EXPECT_EQ(chunks.indexes, (std::vector<std::wstring>{L"INDEX `ix` (`ID`, `a`)"}));
}

TEST_F(SqlDdl, IdentityHeadingADroppedIndexGetsAnIndexOfItsOwn) {
  udb_schema source;
  t_ftd id = col(L"id", vt::vt_i4);
  id.b_auto_num = true;
  source.push_back(id);
  source.push_back(col(L"note", vt::vt_bstr, 0));
  udb_indexes indexes;
  indexes.push_back(udb_index(L"ix", false, false, {L"id", L"note"}));  // a LOB column: dropped
  const auto chunks = make_chunks(source, indexes);
  EXPECT_EQ(chunks.indexes, (std::vector<std::wstring>{L"INDEX `id` (`id`)"}));
}

TEST_F(SqlDdl, SixteenColumnsAreCarriedSeventeenSkipped) {
  test::log_capture log;
  udb_schema source;
  std::vector<std::wstring> names;
  for (int i = 0; i < 17; ++i) {
    names.push_back(tk_wformat(L"c%d", i));
    source.push_back(col(names.back(), vt::vt_i4));
  }
  udb_indexes indexes;
  indexes.push_back(udb_index(L"sixteen", false, false, std::vector<std::wstring>(names.begin(), names.end() - 1)));
  indexes.push_back(udb_index(L"seventeen", false, false, names));
  const auto chunks = make_chunks(source, indexes);
  ASSERT_EQ(chunks.indexes.size(), 1U);
  EXPECT_EQ(chunks.indexes[0].substr(0, 16), L"INDEX `sixteen` ");
  EXPECT_TRUE(log.has_line("Max number of indexes has been reached"));
}

TEST_F(SqlDdl, IndexTextSizeLimits) {
  // The character counts; with a one-byte character set no key is over the
  // engine's byte budget.
  engine.set_charset(L"latin1");
  test::log_capture log;
  udb_schema source;
  source.push_back(col(L"v767", vt::vt_bstr, 767));
  source.push_back(col(L"v768", vt::vt_bstr, 768));
  source.push_back(col(L"a", vt::vt_bstr, 512));
  source.push_back(col(L"b", vt::vt_bstr, 512));
  source.push_back(col(L"c", vt::vt_bstr, 512));
  source.push_back(col(L"d", vt::vt_bstr, 513));
  source.push_back(col(L"bin", vt::vt_bytes, 10));
  udb_indexes indexes;
  indexes.push_back(udb_index(L"i767", false, false, {L"v767"}));
  indexes.push_back(udb_index(L"i768", false, false, {L"v768"}));
  indexes.push_back(udb_index(L"i1536", false, false, {L"a", L"b", L"c"}));
  indexes.push_back(udb_index(L"i1537", false, false, {L"a", L"b", L"d"}));
  indexes.push_back(udb_index(L"ibin", false, false, {L"bin"}));
  indexes.push_back(udb_index(L"imissing", false, false, {L"nowhere"}));
  indexes.push_back(udb_index(L"iempty", false, false, {}));
  const auto chunks = make_chunks(source, indexes);
  EXPECT_EQ(chunks.indexes, (std::vector<std::wstring>{L"INDEX `i767` (`v767`)", L"INDEX `i1536` (`a`, `b`, `c`)"}));
  EXPECT_TRUE(log.has_line("Index 'i768' built on LOB column(s) is not allowed"));
  EXPECT_TRUE(log.has_line("Index 'i1537' is too big, skip it"));
  EXPECT_TRUE(log.has_line("Index 'ibin' built on LOB column(s) is not allowed"));
  EXPECT_TRUE(log.has_line("Index column 'nowhere' is not found"));
  EXPECT_TRUE(log.has_line("Skip index 'iempty' as it is built on empty fields list"));
}

TEST_F(SqlDdl, IndexOverInnodbsByteBudgetIsDroppedAndTheTableKept) {
  // utf8 takes three bytes a character: three VARCHAR(512) are 4608 bytes,
  // over InnoDB's 3072 (error 1071 would refuse the whole table).
  test::log_capture log;
  udb_schema source;
  source.push_back(col(L"a", vt::vt_bstr, 512));
  source.push_back(col(L"b", vt::vt_bstr, 512));
  source.push_back(col(L"c", vt::vt_bstr, 512));
  source.push_back(col(L"v767", vt::vt_bstr, 767));
  source.push_back(col(L"n", vt::vt_i8));
  udb_indexes indexes;
  indexes.push_back(udb_index(L"i3", false, false, {L"a", L"b", L"c"}));
  indexes.push_back(udb_index(L"i2", false, false, {L"a", L"b", L"n"}));
  indexes.push_back(udb_index(L"i767", false, false, {L"v767"}));
  indexes.push_back(udb_index(L"i767n", false, false, {L"v767", L"a", L"n"}));
  const auto chunks = make_chunks(source, indexes);
  // 2 * 1536 + 8 = 3080 bytes is over as well; 767 * 3 = 2301 fits.
  EXPECT_EQ(chunks.indexes, (std::vector<std::wstring>{L"INDEX `i767` (`v767`)"}));
  EXPECT_TRUE(log.has_line("Index 'i3' needs more than the 3072 bytes a key may take; skip it"));
  EXPECT_TRUE(log.has_line("Index 'i2' needs more than the 3072 bytes a key may take; skip it"));
  EXPECT_TRUE(log.has_line("Index 'i767n' needs more than the 3072 bytes a key may take; skip it"));
}

TEST_F(SqlDdl, KeyBytesFollowTheCharacterSetOfEachColumn) {
  test::log_capture log;
  test_mutator table;
  table.child(L"wide").set(L"character_set", L"utf8mb4");
  udb_schema source;
  source.push_back(col(L"wide", vt::vt_bstr, 700));    // 2800 bytes in utf8mb4
  source.push_back(col(L"narrow", vt::vt_bstr, 100));  // 300 bytes in utf8
  udb_indexes indexes;
  indexes.push_back(udb_index(L"both", false, false, {L"wide", L"narrow"}));
  indexes.push_back(udb_index(L"one", false, false, {L"wide"}));
  const auto chunks = make_chunks(source, indexes, &table);
  EXPECT_EQ(chunks.indexes, (std::vector<std::wstring>{L"INDEX `one` (`wide`)"}));
  EXPECT_TRUE(log.has_line("Index 'both' needs more than the 3072 bytes a key may take; skip it"));
}

TEST_F(SqlDdl, OlderServersTakeAt767BytesOfAKeyColumn) {
  engine.set_version(0x050600);  // MySQL 5.6: COMPACT rows
  test::log_capture log;
  udb_schema source;
  source.push_back(col(L"a", vt::vt_bstr, 255));  // 765 bytes
  source.push_back(col(L"b", vt::vt_bstr, 256));  // 768 bytes
  udb_indexes indexes;
  indexes.push_back(udb_index(L"ia", false, false, {L"a"}));
  indexes.push_back(udb_index(L"ib", false, false, {L"b"}));
  const auto chunks = make_chunks(source, indexes);
  EXPECT_EQ(chunks.indexes, (std::vector<std::wstring>{L"INDEX `ia` (`a`)"}));
  EXPECT_TRUE(log.has_line("Index 'ib' needs 768 bytes of column 'b', more than the 767 bytes a key column may take; skip it"));
}

TEST_F(SqlDdl, MyIsamKeysHoldAThousandBytes) {
  engine.set_storage_engine(L"MyISAM");
  udb_schema source;
  source.push_back(col(L"a", vt::vt_bstr, 333));  // 999 bytes
  source.push_back(col(L"b", vt::vt_bstr, 334));  // 1002 bytes
  udb_indexes indexes;
  indexes.push_back(udb_index(L"ia", false, false, {L"a"}));
  indexes.push_back(udb_index(L"ib", false, false, {L"b"}));
  const auto chunks = make_chunks(source, indexes);
  engine.set_storage_engine(L"InnoDB");
  EXPECT_EQ(chunks.indexes, (std::vector<std::wstring>{L"INDEX `ia` (`a`)"}));
}

TEST_F(SqlDdl, KeyBytesOfColumnKinds) {
  EXPECT_EQ(sql_key_bytes(col(L"i", vt::vt_i4), 3), 4U);
  EXPECT_EQ(sql_key_bytes(col(L"l", vt::vt_i8), 3), 8U);
  EXPECT_EQ(sql_key_bytes(col(L"t", vt::vt_bstr, 10), 4), 40U);
  EXPECT_EQ(sql_key_bytes(col(L"t", vt::vt_bstr, 10), 0), 40U);
  EXPECT_EQ(sql_key_bytes(col(L"b", vt::vt_bytes, 16), 3), 16U);
  t_ftd dec = col(L"d", vt::vt_decimal);
  dec.prec = 18;
  dec.scale = 4;
  EXPECT_EQ(sql_key_bytes(dec, 3), 9U);  // 14 digits: 4 + 3 bytes, 4 digits: 2 bytes
  EXPECT_EQ(sql_key_bytes(col(L"m", vt::vt_cy), 3), 9U);
  t_ftd when = col(L"dt", vt::vt_date);
  when.dw_reserved = 1;
  EXPECT_EQ(sql_key_bytes(when, 3), 8U);
  EXPECT_EQ(sql_key_bytes(col(L"nokind", vt::vt_date), 3), 57U);  // CHAR(19)
  t_ftd typed = col(L"x", vt::vt_bstr, 10);
  typed.native_type = L"varchar(300)";
  EXPECT_EQ(sql_key_bytes(typed, 3), 900U);
  EXPECT_EQ(sql_charset_max_bytes(L"utf8mb4"), 4U);
  EXPECT_EQ(sql_charset_max_bytes(L"UTF8"), 3U);
  EXPECT_EQ(sql_charset_max_bytes(L"latin1"), 1U);
  EXPECT_EQ(sql_charset_max_bytes(L"gbk"), 2U);
  EXPECT_EQ(sql_charset_max_bytes(L""), 4U);
  EXPECT_EQ(sql_charset_max_bytes(L"no-such-set"), 4U);
}

TEST_F(SqlDdl, OldServerIndexLimitIs256Bytes) {
  engine.set_version(0x040017);
  udb_schema source;
  source.push_back(col(L"a", vt::vt_bstr, 256));
  source.push_back(col(L"b", vt::vt_bstr, 257));
  udb_indexes indexes;
  indexes.push_back(udb_index(L"ia", false, false, {L"a"}));
  indexes.push_back(udb_index(L"ib", false, false, {L"b"}));
  EXPECT_EQ(make_chunks(source, indexes).indexes, (std::vector<std::wstring>{L"INDEX ia (a)"}));
}

TEST_F(SqlDdl, SeventyIndexesGiveTheFirst63ThenTheIdentityCheck) {
  udb_schema source;
  t_ftd id = col(L"id", vt::vt_i4);
  id.b_auto_num = true;
  source.push_back(id);
  source.push_back(col(L"x", vt::vt_i4));
  source.push_back(col(L"lob", vt::vt_bstr, 0));
  udb_indexes indexes;
  // The first one is refused (a LOB column) and still counts.
  indexes.push_back(udb_index(L"i_lob", false, false, {L"lob"}));
  for (int i = 1; i < 70; ++i) indexes.push_back(udb_index(tk_wformat(L"i%d", i), false, false, {L"x"}));
  const auto chunks = make_chunks(source, indexes);
  ASSERT_EQ(chunks.indexes.size(), 63U);
  EXPECT_EQ(chunks.indexes[61], L"INDEX `i62` (`x`)");
  EXPECT_EQ(chunks.indexes[62], L"INDEX `id` (`id`)");
}

TEST_F(SqlDdl, OldServerStopsAfter15Indexes) {
  engine.set_version(0x040017);
  udb_schema source;
  source.push_back(col(L"x", vt::vt_i4));
  udb_indexes indexes;
  for (int i = 0; i < 20; ++i) indexes.push_back(udb_index(tk_wformat(L"i%d", i), false, false, {L"x"}));
  EXPECT_EQ(make_chunks(source, indexes).indexes.size(), 15U);
}

TEST_F(SqlDdl, LongIndexNameReachesTheStatementCutTo63) {
  udb_schema source;
  source.push_back(col(L"x", vt::vt_i4));
  udb_indexes indexes;
  indexes.push_back(udb_index(std::wstring(70, L'n'), false, false, {L"x"}));
  const auto chunks = make_chunks(source, indexes);
  ASSERT_EQ(chunks.indexes.size(), 1U);
  EXPECT_EQ(chunks.indexes[0], L"INDEX `" + std::wstring(63, L'n') + L"` (`x`)");
  // The quoting alone cuts the same way.
  EXPECT_EQ(sql_quote_name(std::wstring(70, L'n')), L"`" + std::wstring(63, L'n') + L"`");
  EXPECT_EQ(sql_quote_name(std::wstring(64, L'n')), L"`" + std::wstring(64, L'n') + L"`");
}

TEST_F(SqlDdl, IndexNamesAreRepairedAndKeptApart) {
  udb_schema source;
  source.push_back(col(L"x", vt::vt_i4));
  source.push_back(col(L"y", vt::vt_i4));
  udb_indexes indexes;
  indexes.push_back(udb_index(L"a+b", true, false, {L"x"}));
  indexes.push_back(udb_index(L"", false, false, {L"y"}));
  const auto chunks = make_chunks(source, indexes);
  EXPECT_EQ(chunks.indexes, (std::vector<std::wstring>{L"UNIQUE `a_b` (`x`)", L"INDEX  (`y`)"}));
}

TEST_F(SqlDdl, CarriedIndexesAreTheWrittenOnes) {
  udb_schema source;
  t_ftd id = col(L"id", vt::vt_i4);
  id.b_auto_num = true;
  source.push_back(id);
  source.push_back(col(L"lob", vt::vt_bstr, 0));
  udb_indexes indexes;
  indexes.push_back(udb_index(L"i_lob", false, false, {L"lob"}));
  std::wstring auto_field;
  sql_schema_initializer columns(L"t", source, indexes, auto_field);
  std::vector<std::wstring> chunks;
  columns.get_init_chunks(chunks, nullptr);
  sql_indexes_initializer index_chunks(&columns.schema(), indexes, auto_field, &columns.names_map());
  index_chunks.get_init_chunks(chunks);
  ASSERT_EQ(index_chunks.carried().size(), 1U);
  EXPECT_EQ(index_chunks.carried()[0].fields, (std::vector<std::wstring>{L"id"}));
  EXPECT_EQ(index_chunks.indexes().size(), 1U);
}

}  // namespace
}  // namespace qb
