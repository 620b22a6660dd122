// The tree of table changes over MySQL types: what a table's mutator does to
// the schema, the indexes and the rows of a source table, the column
// definitions that follow from it, type names and their value tags, the
// description of a column for the table dialog, and the type-map lists.
#include "sql/mutator.h"

#include <functional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ole/decimal.h"
#include "sql/ddl.h"
#include "sql/engine.h"
#include "tk/exception.h"
#include "tk/files.h"
#include "tk/yaml_config.h"

#include "support/temp_dir.h"

namespace qb {
namespace {

using test::log_capture;
using test::temp_dir;
using test::write_file;
using vt = ole_variant;
using names = std::vector<std::wstring>;

t_ftd col(const std::wstring& name, std::uint16_t type, std::uint32_t size = 0) {
  t_ftd f;
  f.name = name;
  f.vartype = type;
  f.size = size;
  return f;
}

sql_native_type native(const std::wstring& name, std::uint64_t size = 0) {
  sql_native_type type;
  type.name = name;
  type.size = size;
  return type;
}

udb_field field(const std::wstring& name, const ole_variant& value, std::uint32_t size = 0) {
  udb_field f;
  f.name = name;
  f.size = size;
  static_cast<ole_variant&>(f) = value;
  return f;
}

std::vector<std::wstring> column_names(const udb_schema& schema) {
  std::vector<std::wstring> out;
  for (const t_ftd& c : schema) out.push_back(c.name);
  return out;
}

std::vector<std::wstring> field_names(const udb_record& record) {
  std::vector<std::wstring> out;
  for (const udb_field& f : record) out.push_back(f.name);
  return out;
}

// A source table "[dbo].[orders]" (id, customer, note, qty, secret) with a
// primary key on id, an index on (customer, secret), a unique index on
// secret alone, and the tree that renames it to purchase_orders, renames
// customer to client, makes note TEXT, qty BIGINT, and drops secret.
class SqlMutator : public testing::Test {
 protected:
  SqlMutator() {
    engine.set_version(0x0A0B13);
    schema.push_back(col(L"id", vt::vt_i4));
    schema.push_back(col(L"customer", vt::vt_bstr, 40));
    schema.push_back(col(L"note", vt::vt_bstr, 200));
    schema.push_back(col(L"qty", vt::vt_i4));
    schema.push_back(col(L"secret", vt::vt_bstr, 20));
    indexes.push_back(udb_index(L"PK_orders", true, true, {L"id"}));
    indexes.push_back(udb_index(L"IX_customer", false, false, {L"customer", L"secret"}));
    indexes.push_back(udb_index(L"UX_secret", true, false, {L"secret"}));

    orders = tree.get_table_mutator2(L"[dbo].[orders]", L"purchase_orders");
    orders->update_field(L"customer", L"client", native(L"VARCHAR", 40));
    orders->update_field(L"note", L"note", native(L"TEXT"));
    orders->update_field(L"qty", L"qty", native(L"BIGINT"));
    orders->update_field(L"secret", L"secret", native(L"VARCHAR", 20))->status = udb_field_deleted;
  }

  udb_record row(int id, const std::wstring& customer, const std::wstring& note, int qty, const std::wstring& secret) {
    udb_record r;
    r.push_back(field(L"id", ole_variant(id)));
    r.push_back(field(L"customer", ole_variant(customer), 40));
    r.push_back(field(L"note", ole_variant(note), 200));
    r.push_back(field(L"qty", ole_variant(qty)));
    r.push_back(field(L"secret", ole_variant(secret), 20));
    return r;
  }

  sql_engine engine;
  udb_schema schema;
  udb_indexes indexes;
  sql_db_mutator tree;
  sql_table_mutator* orders = nullptr;
};

// --- schema, indexes and rows --------------------------------------------------------

TEST_F(SqlMutator, DroppedColumnLeavesTheTableEveryIndexAndEachRow) {
  std::wstring name;
  orders->modify1(name, schema);
  orders->modify3(indexes);
  udb_record source = row(1, L"Ann", L"first", 3, L"pin");
  const udb_record* target = orders->modify2(source);

  EXPECT_EQ(name, L"purchase_orders");
  EXPECT_EQ(column_names(schema), (names{L"id", L"client", L"note", L"qty"}));
  EXPECT_EQ(indexes[1].fields, (names{L"client"}));
  EXPECT_TRUE(indexes[2].fields.empty());
  EXPECT_EQ(field_names(*target), (names{L"id", L"client", L"note", L"qty"}));
  // The source row is left as it was.
  EXPECT_EQ(source.size(), 5U);
  EXPECT_EQ(source[4].to_wstring(), L"pin");
}

TEST_F(SqlMutator, RenamedColumnStaysInItsIndexUnderTheNewName) {
  orders->modify3(indexes);
  EXPECT_EQ(indexes[0].fields, (names{L"id"}));
  EXPECT_EQ(indexes[1].name, L"IX_customer");
  EXPECT_EQ(indexes[1].fields, (names{L"client"}));
}

TEST_F(SqlMutator, PrimaryKeyOfADroppedColumnStaysAsAnIndexWithNoColumn) {
  orders->update_field(L"id", L"id", native(L"INT"))->status = udb_field_deleted;
  orders->modify3(indexes);
  ASSERT_EQ(indexes.size(), 3U);
  EXPECT_EQ(indexes[0].name, L"PK_orders");
  EXPECT_TRUE(indexes[0].b_primary);
  EXPECT_TRUE(indexes[0].fields.empty());
}

TEST_F(SqlMutator, SameNameWithChangedStatusChangesOnlyTheType) {
  std::wstring name;
  orders->modify1(name, schema);
  const t_ftd& note = schema[2];
  EXPECT_EQ(note.name, L"note");
  EXPECT_EQ(note.vartype, vt::vt_bstr);
  EXPECT_EQ(note.native_type, L"TEXT");
  const t_ftd& qty = schema[3];
  EXPECT_EQ(qty.name, L"qty");
  EXPECT_EQ(qty.vartype, vt::vt_i8);
  EXPECT_EQ(qty.native_type, L"BIGINT");

  udb_record source = row(1, L"Ann", L"first", 2147483647, L"pin");
  const udb_record& target = *orders->modify2(source);
  EXPECT_EQ(target[2].name, L"note");
  EXPECT_EQ(target[2].to_wstring(), L"first");
  EXPECT_EQ(target[3].name, L"qty");
  EXPECT_EQ(target[3].get_type(), vt::vt_i8);
  EXPECT_EQ(target[3].to_wstring(), L"2147483647");
}

TEST_F(SqlMutator, KeptValueTypeChangesOnlyTheNativeText) {
  sql_field_mutator* qty = orders->update_field(L"qty", L"qty", native(L"LONGTEXT"));
  qty->vartype = udb_keep_vartype;
  std::wstring name;
  orders->modify1(name, schema);
  EXPECT_EQ(schema[3].vartype, vt::vt_i4);
  EXPECT_EQ(schema[3].native_type, L"LONGTEXT");
  udb_record source = row(1, L"Ann", L"first", 7, L"pin");
  const udb_record& target = *orders->modify2(source);
  EXPECT_EQ(target[3].get_type(), vt::vt_i4);
  EXPECT_EQ(target[3].to_wstring(), L"7");
}

TEST_F(SqlMutator, LookupBySourceNameIsCaseSensitive) {
  log_capture capture;
  sql_db_mutator other;
  sql_table_mutator* table = other.get_table_mutator2(L"[dbo].[Orders]", L"x");
  table->update_field(L"Customer", L"client", native(L"VARCHAR", 40));
  table->update_field(L"SECRET", L"SECRET", native(L"VARCHAR", 20))->status = udb_field_deleted;
  EXPECT_EQ(other.get_table_mutator3(L"[dbo].[orders]"), nullptr);

  std::wstring name;
  table->modify1(name, schema);
  table->modify3(indexes);
  EXPECT_EQ(column_names(schema), (names{L"id", L"customer", L"note", L"qty", L"secret"}));
  EXPECT_EQ(indexes[1].fields, (names{L"customer", L"secret"}));
  udb_record source = row(1, L"Ann", L"first", 7, L"pin");
  EXPECT_EQ(field_names(*table->modify2(source)), (names{L"id", L"customer", L"note", L"qty", L"secret"}));
  EXPECT_TRUE(capture.has_line("Table 'x': the column 'Customer' of the type mappings is not in the table"));
  EXPECT_TRUE(capture.has_line("Table 'x': the column 'SECRET' of the type mappings is not in the table"));
}

TEST_F(SqlMutator, ColumnsWithoutAChangeAreCopiedAsTheyAre) {
  schema[0].b_auto_num = true;
  schema[0].b_not_null = true;
  schema[0].def_value = ole_variant(5);
  std::wstring name;
  orders->modify1(name, schema);
  EXPECT_TRUE(schema[0].b_auto_num);
  EXPECT_TRUE(schema[0].b_not_null);
  EXPECT_EQ(schema[0].def_value.to_wstring(), L"5");
  EXPECT_EQ(schema[0].native_type, L"");
}

TEST_F(SqlMutator, ChangedColumnTakesSizeDefaultAndDecimalsOfItsType) {
  log_capture capture;
  sql_native_type price = native(L"DECIMAL");
  price.default_value = L"0.00";
  price.precision = 12;
  price.scale = 2;
  orders->update_field(L"qty", L"price", price);
  schema[1].dw_reserved = 16;
  std::wstring name;
  orders->modify1(name, schema);
  const t_ftd& column = schema[3];
  EXPECT_EQ(column.name, L"price");
  EXPECT_EQ(column.vartype, vt::vt_decimal);
  EXPECT_EQ(column.native_type, L"DECIMAL(12,2)");
  EXPECT_EQ(column.prec, 12U);
  EXPECT_EQ(column.scale, 2U);
  EXPECT_EQ(column.def_value.to_wstring(), L"0.00");
  EXPECT_EQ(schema[1].size, 40U);
  EXPECT_EQ(schema[1].native_type, L"VARCHAR(40)");
  // The sub-type word of a changed column is the mutator's.
  EXPECT_EQ(schema[1].dw_reserved, 0U);
  EXPECT_TRUE(capture.has_line("Setting new prec/scale: (12,2)"));
  EXPECT_TRUE(capture.has_line("\told dw_reserved=16, new dw_reserved=0"));
}

TEST_F(SqlMutator, ModifyStepsAreLogged) {
  log_capture capture;
  std::wstring name;
  orders->modify3(indexes);
  orders->modify1(name, schema);
  udb_record source = row(1, L"Ann", L"first", 7, L"pin");
  static_cast<void>(orders->modify2(source));
  EXPECT_TRUE(capture.has_line("udb_table_mutator::modify3()"));
  for (const char* line :
       {"udb_table_mutator::modify1()", "create_modified_copy2", "create_modified_copy2 - END",
        "udb_field_mutator::modify1", "\tf.native_type=VARCHAR(40)", "\tf.size=40", "\tf.native_type=TEXT",
        "\tf.size=0", "\tf.native_type=BIGINT", "returning new_name=purchase_orders", "udb_table_mutator::modify2()",
        "create_modified_copy1", "udb_field_mutator::modify2", "create_modified_copy1 - END",
        "udb_table_mutator::modify2 - END"}) {
    EXPECT_TRUE(capture.has_line(line)) << line;
  }
}

TEST_F(SqlMutator, ValueThatCannotTakeTheNewTypeFailsTheRow) {
  orders->update_field(L"note", L"note", native(L"DECIMAL"));
  udb_record source = row(1, L"Ann", L"not a number", 7, L"pin");
  try {
    static_cast<void>(orders->modify2(source));
    FAIL() << "the value was carried";
  } catch (const tk_exception_ex& e) {
    EXPECT_STREQ(e.what(), "Data conversion is not supported for given type mapping");
    EXPECT_EQ(e.level(), 1);
  }
}

TEST_F(SqlMutator, TableWithoutColumnChangesHandsBackTheRecordItself) {
  sql_table_mutator* renamed_only = tree.get_table_mutator2(L"[dbo].[lines]", L"order_lines");
  EXPECT_FALSE(renamed_only->has_field_mutators());
  udb_record source = row(1, L"Ann", L"first", 7, L"pin");
  EXPECT_EQ(renamed_only->modify2(source), &source);
  udb_schema before = schema;
  std::wstring name;
  renamed_only->modify1(name, schema);
  EXPECT_EQ(name, L"order_lines");
  EXPECT_EQ(column_names(schema), column_names(before));
}

TEST_F(SqlMutator, ModifiedRecordIsReusedRowAfterRow) {
  udb_record first = row(1, L"Ann", L"first", 7, L"pin");
  const udb_record* a = orders->modify2(first);
  udb_record second = row(2, L"Bob", L"second", 8, L"pan");
  const udb_record* b = orders->modify2(second);
  EXPECT_EQ(a, b);
  ASSERT_EQ(b->size(), 4U);
  EXPECT_EQ((*b)[0].to_wstring(), L"2");
  EXPECT_EQ((*b)[1].to_wstring(), L"Bob");
  // A row of another shape is cut to its own fields.
  udb_record narrow;
  narrow.push_back(field(L"secret", ole_variant(std::wstring(L"x"))));
  narrow.push_back(field(L"customer", ole_variant(std::wstring(L"Cy"))));
  const udb_record* c = orders->modify2(narrow);
  EXPECT_EQ(field_names(*c), (names{L"client"}));
}

TEST_F(SqlMutator, ChangedRowFieldTakesTheSizeOfItsType) {
  orders->update_field(L"customer", L"client", native(L"CHAR", 60));
  udb_record source = row(1, L"Ann", L"first", 7, L"pin");
  EXPECT_EQ((*orders->modify2(source))[1].size, 60U);
}

// --- column definitions --------------------------------------------------------------

TEST_F(SqlMutator, ColumnDefinitionsFollowTheChanges) {
  orders->update_field(L"note", L"note", native(L"TEXT"))->native_type.character_set = L"latin1";
  std::wstring name;
  orders->modify1(name, schema);
  std::wstring auto_field;
  sql_schema_initializer columns(name, schema, indexes, auto_field);
  std::vector<std::wstring> chunks;
  columns.get_init_chunks(chunks, orders);
  ASSERT_EQ(chunks.size(), 4U);
  EXPECT_EQ(chunks[1], L"`client` VARCHAR(40) CHARACTER SET utf8");
  // The column keeps its name, so the definition finds its character set.
  EXPECT_EQ(chunks[2], L"`note` TEXT CHARACTER SET latin1");
  EXPECT_EQ(chunks[3], L"`qty` BIGINT");
}

// --- type names and the dialog's description of a column ----------------------------

TEST(SqlTypeNames, GiveTheValueTagOfTheirColumns) {
  const std::vector<std::pair<std::wstring, std::uint16_t>> cases = {
      {L"BIT", vt::vt_bool},
      {L"TINYINT", vt::vt_i1},
      {L"TINYINT UNSIGNED", vt::vt_ui1},
      {L"SMALLINT", vt::vt_i2},
      {L"SMALLINT UNSIGNED", vt::vt_ui2},
      {L"INT", vt::vt_i4},
      {L"INT UNSIGNED", vt::vt_ui4},
      {L"BIGINT", vt::vt_i8},
      {L"BIGINT UNSIGNED", vt::vt_ui8},
      {L"FLOAT", vt::vt_r4},
      {L"DOUBLE", vt::vt_r8},
      {L"DECIMAL", vt::vt_decimal},
      {L"DATETIME", vt::vt_date},
      {L"DATE", vt::vt_date},
      {L"TIME", vt::vt_date},
      {L"TIMESTAMP", vt::vt_date},
      {L"CHAR", vt::vt_bstr},
      {L"VARCHAR", vt::vt_bstr},
      {L"TINYTEXT", vt::vt_bstr},
      {L"TEXT", vt::vt_bstr},
      {L"MEDIUMTEXT", vt::vt_bstr},
      {L"LONGTEXT", vt::vt_bstr},
      {L"BINARY", vt::vt_bytes},
      {L"VARBINARY", vt::vt_bytes},
      {L"TINYBLOB", vt::vt_bytes},
      {L"BLOB", vt::vt_bytes},
      {L"MEDIUMBLOB", vt::vt_bytes},
      {L"LONGBLOB", vt::vt_bytes},
      {L"geometry", vt::vt_bstr},
      {L"varchar(20) binary", vt::vt_bstr},
      {L"  bigint   unsigned ", vt::vt_ui8},
      {L"DECIMAL(12,2)", vt::vt_decimal},
      {L"VARCHR", udb_keep_vartype},
      {L"", udb_keep_vartype},
      {L"UNSIGNED", udb_keep_vartype},
  };
  for (const auto& [name, tag] : cases) EXPECT_EQ(sql_vartype_of_type_name(name), tag) << name;
}

TEST(SqlTypeNames, EveryNameOfTheTypeTableHasATag) {
  for (int id = 0; id <= 27; ++id) {
    EXPECT_NE(sql_vartype_of_type_name(sql_type_name(id)), udb_keep_vartype) << id;
  }
}

TEST(SqlDescribeColumn, GivesTheTypeTheDefinitionWouldHave) {
  sql_engine engine;
  engine.set_version(0x0A0B13);
  std::vector<t_ftd> columns = {col(L"a", vt::vt_bstr, 50), col(L"b", vt::vt_bstr, 0), col(L"c", vt::vt_i4),
                                col(L"d", vt::vt_cy),       col(L"e", vt::vt_decimal), col(L"f", vt::vt_decimal),
                                col(L"g", vt::vt_date, 8),  col(L"h", vt::vt_date),    col(L"i", vt::vt_bytes, 70000),
                                col(L"j", vt::vt_bstr, 10)};
  columns[4].prec = 18;
  columns[4].scale = 3;
  columns[5].prec = 0;
  columns[7].dw_reserved = 1;
  columns[9].dw_reserved = 16;
  sql_db_mutator tree;
  for (t_ftd& column : columns) {
    const std::wstring ddl = get_sql_native_type2(column, false);
    sql_native_type out;
    out.character_set = L"left over";
    tree.get_native_type(column, out);
    EXPECT_EQ(column.native_type, ddl) << column.name;
    EXPECT_EQ(get_sql_native_type1(out), ddl) << column.name;
    EXPECT_EQ(out.character_set, L"") << column.name;
  }
  EXPECT_EQ(columns[0].native_type, L"VARCHAR(50)");
  EXPECT_EQ(columns[3].native_type, L"DECIMAL(19,4)");
  EXPECT_EQ(columns[4].native_type, L"DECIMAL(18,3)");
  EXPECT_EQ(columns[5].native_type, L"DOUBLE");
  EXPECT_EQ(columns[6].native_type, L"CHAR(19)");
  EXPECT_EQ(columns[9].native_type, L"CHAR(10)");
}

TEST(SqlDescribeColumn, CarriesTheDefaultAsTheDefinitionWritesIt) {
  sql_engine engine;
  t_ftd text = col(L"t", vt::vt_bstr, 20);
  text.def_value = ole_variant(std::wstring(L"n/a"));
  sql_native_type out;
  sql_describe_column(text, out);
  EXPECT_EQ(out.default_value, L"'n/a'");
  EXPECT_EQ(out.name, L"VARCHAR");
  EXPECT_EQ(out.size, 20U);
  t_ftd number = col(L"n", vt::vt_i4);
  number.def_value = ole_variant(std::wstring(L"(0)"));
  sql_describe_column(number, out);
  EXPECT_EQ(out.default_value, L"");
}

TEST(SqlDescribeColumn, ShortBinaryColumnKeepsItsLength) {
  sql_engine engine;
  t_ftd bytes = col(L"b", vt::vt_bytes, 16);
  sql_native_type out;
  sql_describe_column(bytes, out);
  EXPECT_EQ(out.name, L"VARBINARY");
  EXPECT_EQ(out.size, 16U);
  EXPECT_EQ(bytes.native_type, L"VARBINARY(16)");
}

// --- the type-map lists --------------------------------------------------------------

// The lists read from a scratch directory made current for the test.
class SqlTypeMaps : public testing::Test {
 protected:
  SqlTypeMaps() : cd(dir.path()) { udb_forget_type_maps(); }
  ~SqlTypeMaps() override { udb_forget_type_maps(); }

  std::string failure(const std::function<void()>& use) {
    try {
      use();
    } catch (const tk_exception_ex& e) {
      return e.what();
    }
    return "";
  }

  temp_dir dir;
  tk_temp_chdir cd;
};

TEST_F(SqlTypeMaps, MissingTypeListIsReportedByName) {
  EXPECT_EQ(failure([] { static_cast<void>(sql_db_mutator::get_mapped_types(L"INT")); }),
            "Cannot find sql.map. Custom type mapping is not available.");
  EXPECT_EQ(failure([] { static_cast<void>(sql_db_mutator::get_type_attributes(L"INT")); }),
            "Cannot find sql.typ. Custom type mapping is not available.");
  EXPECT_STREQ(sql_db_mutator::get_map_file(), "sql.map");
  EXPECT_STREQ(sql_db_mutator::get_typ_file(), "sql.typ");
}

TEST_F(SqlTypeMaps, TypesAreReadFromTheCurrentDirectoryOnFirstNeed) {
  write_file(dir.file("sql.map"), "INT:\n- INT\n- BIGINT\nVARCHAR:\n-   INT UNSIGNED  \n- TEXT\n");
  log_capture capture;
  EXPECT_EQ(sql_db_mutator::get_mapped_types(L"INT"), (names{L"INT", L"BIGINT"}));
  EXPECT_TRUE(capture.has_line("udb_db_mutator<F>::get_mapped_types(INT)"));
  EXPECT_TRUE(capture.has_line("Gonna load typesmap.cfg"));
  EXPECT_TRUE(capture.has_line("types_map.size=2"));
  // A value with blanks inside stays one entry.
  EXPECT_EQ(sql_db_mutator::get_mapped_types(L"VARCHAR"), (names{L"INT UNSIGNED", L"TEXT"}));

  // Read once: a changed file is not read again.
  write_file(dir.file("sql.map"), "INT:\n- TINYINT\n");
  EXPECT_EQ(sql_db_mutator::get_mapped_types(L"INT"), (names{L"INT", L"BIGINT"}));
  udb_forget_type_maps();
  EXPECT_EQ(sql_db_mutator::get_mapped_types(L"INT"), (names{L"TINYINT"}));
}

TEST_F(SqlTypeMaps, TypeWithoutAnEntryHasNoChoiceAndIsEntered) {
  write_file(dir.file("sql.map"), "INT:\n- BIGINT\n");
  EXPECT_TRUE(sql_db_mutator::get_mapped_types(L"SET").empty());
  const tk_yaml_config::t_map& map = udb_type_map(sql_map, true, udb_type_filter());
  EXPECT_EQ(map.size(), 2U);
  EXPECT_EQ(map.count(L"SET"), 1U);
}

TEST_F(SqlTypeMaps, FileWithoutEntriesIsReadAgainAtTheNextUse) {
  write_file(dir.file("sql.typ"), "# nothing yet\n\n");
  EXPECT_TRUE(udb_type_map(sql_typ, false, udb_type_filter()).empty());
  write_file(dir.file("sql.typ"), "DECIMAL:\n- PRECISION\n");
  EXPECT_TRUE(sql_db_mutator::get_type_attributes(L"DECIMAL").precision);
}

TEST_F(SqlTypeMaps, AttributesAreFoundAsWordsInsideEachValue) {
  write_file(dir.file("sql.typ"),
             "VARCHAR:\n- LENGTH\nDECIMAL:\n- PRECISION\n- SCALE\nODD:\n- LENGTH SCALE\nINT:\nlength:\n- length\n");
  EXPECT_EQ(sql_db_mutator::get_type_attributes(L"VARCHAR"), (udb_type_attributes{true, false, false}));
  EXPECT_EQ(sql_db_mutator::get_type_attributes(L"DECIMAL"), (udb_type_attributes{false, true, true}));
  EXPECT_EQ(sql_db_mutator::get_type_attributes(L"ODD"), (udb_type_attributes{true, true, false}));
  EXPECT_EQ(sql_db_mutator::get_type_attributes(L"INT"), udb_type_attributes{});
  EXPECT_EQ(sql_db_mutator::get_type_attributes(L"length"), udb_type_attributes{});
  EXPECT_EQ(sql_db_mutator::get_type_words(L"ODD"), (names{L"LENGTH SCALE"}));
}

TEST_F(SqlTypeMaps, LineThatIsNotUtf8FailsNamingTheFile) {
  write_file(dir.file("sql.map"), "INT:\n- BIG\xff\n");
  try {
    static_cast<void>(sql_db_mutator::get_mapped_types(L"INT"));
    FAIL() << "read";
  } catch (const tk_exception& e) {
    EXPECT_EQ(std::string(e.what()), "The file sql.map cannot be read: line 2 is not UTF-8 text.");
  }
}

// The lists the program ships with (data/): every key and every value is a
// type name of the MySQL target with a value tag, and the types that take a
// length or decimals say so.
TEST(SqlShippedTypeMaps, NameOnlyTypesOfTheTarget) {
  udb_forget_type_maps();
  const tk_temp_chdir cd(std::string(QB_TEST_SOURCE_DIR) + "/data");
  const tk_yaml_config::t_map types = udb_type_map(sql_map, true, udb_type_filter());
  const tk_yaml_config::t_map attributes = udb_type_map(sql_typ, false, udb_type_filter());
  udb_forget_type_maps();
  std::set<std::wstring> known;
  for (int id = 0; id <= 27; ++id) known.insert(sql_type_name(id));
  EXPECT_EQ(types.size(), known.size());
  for (const auto& [type, choices] : types) {
    EXPECT_EQ(known.count(type), 1U) << type;
    EXPECT_FALSE(choices.empty()) << type;
    for (const std::wstring& choice : choices) {
      EXPECT_EQ(known.count(choice), 1U) << type << " -> " << choice;
      EXPECT_NE(sql_vartype_of_type_name(choice), udb_keep_vartype) << choice;
    }
  }
  for (const auto& [type, words] : attributes) EXPECT_EQ(known.count(type), 1U) << type;
  EXPECT_TRUE(udb_attributes_of(attributes.at(L"VARCHAR")).length);
  EXPECT_TRUE(udb_attributes_of(attributes.at(L"DECIMAL")).precision);
  EXPECT_TRUE(udb_attributes_of(attributes.at(L"DECIMAL")).scale);
}

}  // namespace
}  // namespace qb
