// The tree of table changes as the model builds it, with a target type of
// the test's own: growing the tree, its lookups and slots, its text in a
// profile. The changes applied to real MySQL types are tested in
// tests/sql/mutator_test.cpp.
#include "udb/mutator.h"

#include <string>

#include <gtest/gtest.h>

#include "udb/profile.h"

#include "support/temp_dir.h"

namespace qb {

// A target type of the tests: its text is "name/size".
struct toy_type {
  std::wstring name;
  std::wstring default_value;
  std::wstring character_set;
  std::uint64_t size = 0;
  std::uint32_t scale = 0;
  std::uint32_t precision = 0;
};

template <>
struct udb_native_type_rules<toy_type> {
  static std::wstring text(const toy_type& type) { return type.name + L"/" + std::to_wstring(type.size); }
  static std::uint16_t vartype_of(const std::wstring& name) {
    if (name == L"NUM") return 3;
    if (name == L"TXT") return 8;
    return udb_keep_vartype;
  }
  static void describe(t_ftd& column, toy_type& out) {
    out = toy_type{};
    out.name = column.vartype == 3 ? L"NUM" : L"TXT";
    out.size = column.size;
    column.native_type = text(out);
  }
};

namespace {

using test::log_capture;

inline constexpr char toy_map[] = "toy.map";
inline constexpr char toy_typ[] = "toy.typ";

class toy_field_mutator : public udb_field_mutator<udb_field, toy_type> {};
class toy_table_mutator : public udb_table_mutator<toy_field_mutator> {
 public:
  using udb_table_mutator::udb_table_mutator;
};
class toy_db_mutator : public udb_db_mutator<toy_table_mutator, toy_map, toy_typ> {};

toy_type toy(const std::wstring& name, std::uint64_t size = 0) {
  toy_type type;
  type.name = name;
  type.size = size;
  return type;
}

TEST(Mutator, TableMutatorIsMadeOnceAndRenamedLater) {
  log_capture capture;
  toy_db_mutator db;
  toy_table_mutator* made = db.get_table_mutator2(L"[dbo].[a]", L"a1");
  EXPECT_TRUE(capture.has_line("get_table_mutator2([dbo].[a],a1)"));
  EXPECT_TRUE(capture.has_line("udb_table_mutator::ctor(a1)"));
  toy_table_mutator* again = db.get_table_mutator2(L"[dbo].[a]", L"a2");
  EXPECT_EQ(made, again);
  EXPECT_EQ(made->new_name(), L"a2");
  EXPECT_TRUE(capture.has_line("udb_table_mutator::set_new_name(a2)"));
  EXPECT_EQ(db.tables_by_old().size(), 1U);
  // The earlier target name still leads to the table.
  EXPECT_EQ(db.find_by_target_name(L"a1"), made);
  EXPECT_EQ(db.find_by_target_name(L"a2"), made);
}

TEST(Mutator, LookupBySourceNameIsExactAndLogged) {
  log_capture capture;
  toy_db_mutator db;
  toy_table_mutator* orders = db.get_table_mutator2(L"[dbo].[orders]", L"orders");
  EXPECT_EQ(db.get_table_mutator3(L"[dbo].[orders]"), orders);
  EXPECT_EQ(db.get_table_mutator3(L"[dbo].[Orders]"), nullptr);
  EXPECT_EQ(db.get_table_mutator3(L"dbo.orders"), nullptr);
  EXPECT_TRUE(capture.has_line("get_table_mutator3([dbo].[Orders])"));
}

TEST(Mutator, PropertySlotsFindChildrenBySourceAndTargetName) {
  toy_db_mutator db;
  toy_table_mutator* table = db.get_table_mutator2(L"t", L"u");
  toy_field_mutator* field = table->update_field(L"a", L"b", toy(L"NUM"));
  udb_properties& as_properties = db;
  EXPECT_EQ(as_properties.find_by_source_name(L"t"), table);
  EXPECT_EQ(as_properties.find_by_target_name(L"u"), table);
  EXPECT_EQ(as_properties.find_by_source_name(L"u"), nullptr);
  EXPECT_EQ(table->find_by_source_name(L"a"), field);
  EXPECT_EQ(table->find_by_target_name(L"b"), field);
  EXPECT_EQ(table->find_by_target_name(L"a"), nullptr);
  EXPECT_EQ(field->find_by_source_name(L"a"), nullptr);
  EXPECT_EQ(field->find_by_target_name(L"b"), nullptr);
  EXPECT_TRUE(db.column_maps().empty());
  EXPECT_TRUE(db.get_filter().empty());
}

TEST(Mutator, UpdateFieldMakesAChangedFieldAndTakesTheTypesTag) {
  log_capture capture;
  toy_db_mutator db;
  toy_table_mutator* table = db.get_table_mutator2(L"t", L"t");
  toy_field_mutator* field = table->update_field(L"a", L"b", toy(L"NUM", 4));
  EXPECT_TRUE(capture.has_line("udb_table_mutator::update_field(old_name=a,new_name=b,native_type=NUM,length=4)"));
  EXPECT_EQ(field->status, udb_field_changed);
  EXPECT_EQ(field->vartype, 3);
  EXPECT_EQ(field->new_name, L"b");
  EXPECT_EQ(field->native_type.size, 4U);

  // A second change of the same column: the same mutator, entered under its
  // new target name as well; a status set before stays.
  field->status = udb_field_deleted;
  EXPECT_EQ(table->update_field(L"a", L"c", toy(L"TXT")), field);
  EXPECT_EQ(field->status, udb_field_deleted);
  EXPECT_EQ(field->vartype, 8);
  EXPECT_EQ(table->fields_by_old().size(), 1U);
  EXPECT_EQ(table->fields_by_new().size(), 2U);
  EXPECT_TRUE(table->has_field_mutators());
}

TEST(Mutator, TypeNameTheTargetDoesNotKnowKeepsTheValueTypeAndSaysSo) {
  log_capture capture;
  toy_db_mutator db;
  toy_field_mutator* field = db.get_table_mutator2(L"t", L"t")->update_field(L"a", L"a", toy(L"NOPE"));
  EXPECT_EQ(field->vartype, udb_keep_vartype);
  EXPECT_TRUE(
      capture.has_line("Column 'a': 'NOPE' is not a type name the target knows; the column keeps its value "
                       "type"));
}

TEST(Mutator, FieldPropertiesAreRebuiltFromItsFields) {
  toy_field_mutator field;
  field.new_name = L"n";
  field.native_type = toy(L"TXT", 0);
  field.native_type.default_value = L"x";
  field.native_type.character_set = L"latin1";
  EXPECT_EQ(field.get_properties(),
            (udb_properties::property_map{
                {L"new_name", L"n"}, {L"type", L"TXT"}, {L"default_value", L"x"}, {L"character_set", L"latin1"}}));
  field.native_type.size = 5;
  field.native_type.scale = 2;
  field.native_type.precision = 9;
  const udb_properties::property_map& map = field.get_properties();
  EXPECT_EQ(map.at(L"length"), L"5");
  EXPECT_EQ(map.at(L"scale"), L"2");
  EXPECT_EQ(map.at(L"precision"), L"9");
}

TEST(Mutator, CreateModifiedCopyReplacesOnlyTheNativeText) {
  toy_field_mutator field;
  field.new_name = L"other";
  field.native_type = toy(L"NUM", 7);
  EXPECT_EQ(field.create_modified_copy(nullptr), nullptr);
  t_ftd column;
  column.name = L"c";
  column.vartype = 8;
  column.size = 3;
  const std::unique_ptr<t_ftd> copy = field.create_modified_copy(&column);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->native_type, L"NUM/7");
  EXPECT_EQ(copy->name, L"c");
  EXPECT_EQ(copy->vartype, 8);
  EXPECT_EQ(copy->size, 3U);
}

TEST(Mutator, SerializeWritesTheTreeAsBareLines) {
  log_capture capture;
  toy_db_mutator db;
  db.mutable_properties()[L"engine"] = L"MyISAM";
  toy_table_mutator* table = db.get_table_mutator2(L"[dbo].[b]", L"bee");
  table->mutable_properties()[L"character set"] = L"latin1";
  table->update_field(L"y", L"y2", toy(L"TXT", 30))->status = udb_field_deleted;
  table->update_field(L"x", L"x2", toy(L"NUM"));
  db.get_table_mutator2(L"[dbo].[a]", L"aye");
  udb_profile profile;
  db.serialize(profile);
  EXPECT_EQ(profile.get_lines(udb_profile_type_mappings),
            (std::vector<std::wstring>{L"database:",
                                       L"  engine: MyISAM",
                                       L"tables:",
                                       L"  - name: [dbo].[a]",
                                       L"    new_name: aye",
                                       L"    fields:",
                                       L"  - name: [dbo].[b]",
                                       L"    new_name: bee",
                                       L"    fields:",
                                       L"      - name:x",
                                       L"        new_name: x2",
                                       L"        status: changed",
                                       L"        type: NUM",
                                       L"        default_value: ",
                                       L"        character_set: ",
                                       L"        length: 0",
                                       L"        scale: 0",
                                       L"        precision: 0",
                                       L"      - name:y",
                                       L"        new_name: y2",
                                       L"        status: deleted",
                                       L"        type: TXT",
                                       L"        default_value: ",
                                       L"        character_set: ",
                                       L"        length: 30",
                                       L"        scale: 0",
                                       L"        precision: 0",
                                       L"    properties:",
                                       L"        character set: latin1"}));
  EXPECT_TRUE(profile.sections.empty());
  EXPECT_TRUE(capture.has_line("database:"));
}

TEST(Mutator, SerializedTreeLoadsBackAsTheSameTree) {
  toy_db_mutator db;
  db.mutable_properties()[L"character set"] = L"utf8";
  toy_table_mutator* table = db.get_table_mutator2(L"[s].[t]", L"t");
  toy_type price = toy(L"NUM", 0);
  price.default_value = L"0";
  price.scale = 2;
  price.precision = 12;
  table->update_field(L"price", L"cost", price);
  table->update_field(L"gone", L"gone", toy(L"TXT", 10))->status = udb_field_deleted;
  table->mutable_properties()[L"engine"] = L"MyISAM";

  test::temp_dir dir;
  udb_profile written;
  db.serialize(written);
  ASSERT_TRUE(written.store(dir.file("p.qbr")));
  udb_profile read;
  ASSERT_TRUE(read.load(dir.file("p.qbr")));
  toy_db_mutator loaded;
  log_capture capture;
  ASSERT_TRUE(loaded.load(read));
  EXPECT_TRUE(capture.has_line("udb_db_mutator::load"));
  // A deleted column is read up to its status: the attributes written after
  // it do not come back.
  udb_mutation_text expected = db.to_text();
  udb_field_mutation& gone = expected.tables.at(L"[s].[t]").fields.at(L"gone");
  udb_field_mutation read_back;
  read_back.new_name = gone.new_name;
  read_back.deleted = true;
  gone = read_back;
  EXPECT_EQ(loaded.to_text(), expected);
  EXPECT_EQ(loaded.get_table_mutator3(L"[s].[t]")->get_field_mutator(L"gone")->status, udb_field_deleted);
  const toy_field_mutator* cost = loaded.get_table_mutator3(L"[s].[t]")->get_field_mutator(L"price");
  ASSERT_NE(cost, nullptr);
  EXPECT_EQ(cost->vartype, 3);
  EXPECT_EQ(cost->native_type.precision, 12U);
}

TEST(Mutator, LoadReplacesEmptyNewNamesByTheOldOnes) {
  udb_profile profile;
  for (const wchar_t* line : {L"database:", L"tables:", L"  - name: t", L"    new_name:", L"    fields:",
                              L"      - name:c", L"        new_name:", L"        type: NUM"}) {
    profile.add_line(udb_profile_type_mappings, line);
  }
  toy_db_mutator db;
  ASSERT_TRUE(db.load(profile));
  const toy_table_mutator* t = db.get_table_mutator3(L"t");
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->new_name(), L"t");
  EXPECT_EQ(t->get_field_mutator(L"c")->new_name, L"c");
  EXPECT_EQ(t->get_field_mutator(L"c")->status, udb_field_changed);
}

TEST(Mutator, LoadAddsToTheTreeItHolds) {
  toy_db_mutator db;
  db.get_table_mutator2(L"kept", L"k");
  udb_profile profile;
  for (const wchar_t* line : {L"database:", L"tables:", L"  - name: t", L"    new_name: u"}) {
    profile.add_line(udb_profile_type_mappings, line);
  }
  ASSERT_TRUE(db.load(profile));
  EXPECT_NE(db.get_table_mutator3(L"kept"), nullptr);
  EXPECT_NE(db.get_table_mutator3(L"t"), nullptr);
}

TEST(Mutator, ProfileWithoutTypeMappingsLoadsNoChange) {
  udb_profile profile;
  profile.set_value(udb_profile_generic_settings, L"src", L"x");
  toy_db_mutator db;
  EXPECT_TRUE(db.load(profile));
  EXPECT_TRUE(db.tables_by_old().empty());
  EXPECT_TRUE(db.get_properties().empty());
}

}  // namespace
}  // namespace qb
