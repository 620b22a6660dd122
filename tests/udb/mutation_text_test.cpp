// The mutation text of section "Type Mappings": reading well-formed and
// malformed texts, writing, and the lines a loaded profile hands over.
#include "udb/mutation_text.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "udb/profile.h"

#include "support/temp_dir.h"

namespace qb {
namespace {

using test::log_capture;
using test::temp_dir;
using test::write_file;
using lines = std::vector<std::wstring>;

// A text as the writer makes it, trailing blanks included.
const lines k_written = {
    L"database:",
    L"  engine: MyISAM",
    L"tables:",
    L"  - name: [dbo].[orders]",
    L"    new_name: orders",
    L"    fields:",
    L"      - name:note",
    L"        new_name: remark",
    L"        status: changed",
    L"        type: TEXT",
    L"        default_value: ",
    L"        character_set: latin1",
    L"        length: 0",
    L"        scale: 0",
    L"        precision: 0",
    L"      - name:secret",
    L"        new_name: secret",
    L"        status: deleted",
    L"        type: VARCHAR",
    L"        default_value: ",
    L"        character_set: ",
    L"        length: 20",
    L"        scale: 0",
    L"        precision: 0",
    L"    properties:",
    L"        character set: utf8mb4",
};

// The same text as a loaded profile hands it over: trailing blanks gone.
lines without_trailing_blanks(const lines& text) {
  lines out;
  for (std::wstring line : text) {
    while (!line.empty() && line.back() == L' ') line.pop_back();
    out.push_back(line);
  }
  return out;
}

udb_mutation_text expected_tree() {
  udb_mutation_text tree;
  tree.properties[L"engine"] = L"MyISAM";
  udb_table_mutation& orders = tree.tables[L"[dbo].[orders]"];
  orders.new_name = L"orders";
  orders.properties[L"character set"] = L"utf8mb4";
  udb_field_mutation& note = orders.fields[L"note"];
  note.new_name = L"remark";
  note.type = L"TEXT";
  note.character_set = L"latin1";
  udb_field_mutation& secret = orders.fields[L"secret"];
  secret.new_name = L"secret";
  secret.deleted = true;
  return tree;
}

TEST(MutationText, ReadsWhatALoadedProfileHandsOver) {
  const udb_mutation_text tree = udb_mutation_text::parse(without_trailing_blanks(k_written));
  // The deleted column's block after its status is not read: no type, no length.
  EXPECT_EQ(tree, expected_tree());
}

TEST(MutationText, EmptyDefaultValueArrivesWithoutItsBlank) {
  const udb_mutation_text tree =
      udb_mutation_text::parse({L"database:", L"tables:", L"  - name: t", L"    fields:", L"      - name:c",
                                L"        new_name: d", L"        status: changed", L"        type: INT",
                                L"        default_value:", L"        character_set:", L"        length: 0"});
  const udb_field_mutation& c = tree.tables.at(L"t").fields.at(L"c");
  EXPECT_EQ(c.default_value, L"");
  EXPECT_EQ(c.character_set, L"");
  EXPECT_EQ(c.type, L"INT");
}

TEST(MutationText, WritesTheLinesInTheirOrderAndIndentation) {
  udb_mutation_text tree = expected_tree();
  tree.tables[L"[dbo].[orders]"].fields[L"secret"].type = L"VARCHAR";
  tree.tables[L"[dbo].[orders]"].fields[L"secret"].length = 20;
  EXPECT_EQ(tree.lines(), k_written);
}

TEST(MutationText, WrittenTextReadsBackAsTheSameTree) {
  udb_mutation_text tree = expected_tree();
  udb_field_mutation& price = tree.tables[L"b"].fields[L"price"];
  price.new_name = L"cost";
  price.type = L"DECIMAL";
  price.default_value = L"0.00";
  price.length = 18446744073709551615ULL;
  price.scale = 2;
  price.precision = 12;
  tree.tables[L"b"].new_name = L"b2";
  EXPECT_EQ(udb_mutation_text::parse(without_trailing_blanks(tree.lines())), tree);
}

TEST(MutationText, EmptyTreeIsItsTwoOpeningLines) {
  EXPECT_EQ(udb_mutation_text().lines(), (lines{L"database:", L"tables:"}));
  EXPECT_EQ(udb_mutation_text::parse({L"database:", L"tables:"}), udb_mutation_text());
}

TEST(MutationText, NoTextOrAnotherFirstLineGivesNoChanges) {
  EXPECT_EQ(udb_mutation_text::parse({}), udb_mutation_text());
  EXPECT_EQ(udb_mutation_text::parse({L"tables:", L"  - name: t", L"    new_name: u"}), udb_mutation_text());
  EXPECT_EQ(udb_mutation_text::parse({L" database:", L"tables:", L"  - name: t"}), udb_mutation_text());
}

TEST(MutationText, DatabasePropertyNeedsTwoBlanksAndOneColon) {
  log_capture capture;
  const udb_mutation_text tree = udb_mutation_text::parse(
      {L"database:", L"  engine : InnoDB ", L"  url: http://x", L"engine2: y", L"  bare", L"tables:"});
  EXPECT_EQ(tree.properties, (std::map<std::wstring, std::wstring>{{L"engine", L"InnoDB"}}));
  EXPECT_TRUE(capture.has_line("Skipping   url: http://x"));
  EXPECT_TRUE(capture.has_line("Skipping engine2: y"));
  EXPECT_TRUE(capture.has_line("Skipping   bare"));
}

TEST(MutationText, TableBlocksComeInAnyOrder) {
  log_capture capture;
  const udb_mutation_text tree =
      udb_mutation_text::parse({L"database:", L"tables:", L"  - name: t", L"    properties:", L"        engine: MyISAM",
                                L"    fields:", L"      - name:a", L"        new_name: b", L"    new_name: u"});
  const udb_table_mutation& t = tree.tables.at(L"t");
  EXPECT_EQ(t.new_name, L"u");
  EXPECT_EQ(t.properties.at(L"engine"), L"MyISAM");
  EXPECT_EQ(t.fields.at(L"a").new_name, L"b");
  EXPECT_TRUE(capture.has_line("Processing 't'"));
  EXPECT_TRUE(capture.has_line("tm_new_table_name=u"));
}

TEST(MutationText, LinesAfterDeletedStatusDoNotBelongToTheColumn) {
  log_capture capture;
  const udb_mutation_text tree =
      udb_mutation_text::parse({L"database:", L"tables:", L"  - name: t", L"    fields:", L"      - name:gone",
                                L"        new_name: kept", L"        status: deleted", L"        type: BIGINT",
                                L"        length: 8", L"      - name:next", L"        new_name: n2"});
  const udb_field_mutation& gone = tree.tables.at(L"t").fields.at(L"gone");
  EXPECT_TRUE(gone.deleted);
  EXPECT_EQ(gone.new_name, L"kept");
  EXPECT_EQ(gone.type, L"");
  EXPECT_EQ(gone.length, 0U);
  EXPECT_TRUE(capture.has_line("Skipping         type: BIGINT"));
  EXPECT_TRUE(capture.has_line("Skipping         length: 8"));
  // The next column's block is read again.
  EXPECT_EQ(tree.tables.at(L"t").fields.at(L"next").new_name, L"n2");
}

TEST(MutationText, WrongIndentationUnknownKeysAndDisorderAreSkipped) {
  log_capture capture;
  const udb_mutation_text tree = udb_mutation_text::parse({
      L"database:",
      L"tables:",
      L"    new_name: before any table",
      L"  - name: t",
      L"   new_name: three blanks",
      L"    fields:",
      L"     - name:five",
      L"      - name:c",
      L"        colour: red",
      L"        type: INT",
      L"        new_name: too late",
      L"         scale: 4",
      L"        precision: x12",
      L"        scale: 3",
      L"\tnew_name: tab",
      L"tables:",
      L"database:",
  });
  ASSERT_EQ(tree.tables.size(), 1U);
  const udb_table_mutation& t = tree.tables.at(L"t");
  EXPECT_EQ(t.new_name, L"");
  ASSERT_EQ(t.fields.size(), 1U);
  const udb_field_mutation& c = t.fields.at(L"c");
  EXPECT_EQ(c.type, L"INT");
  EXPECT_EQ(c.new_name, L"");  // out of order: after type, new_name is no longer expected
  EXPECT_EQ(c.precision, 0U);  // not a number
  EXPECT_EQ(c.scale, 0U);      // scale came after precision
  EXPECT_FALSE(c.deleted);
  for (const char* line :
       {"Skipping     new_name: before any table", "Skipping    new_name: three blanks", "Skipping      - name:five",
        "Skipping         colour: red", "Skipping         new_name: too late", "Skipping          scale: 4",
        "Skipping         precision: x12", "Skipping         scale: 3", "Skipping \tnew_name: tab",
        "Skipping tables:", "Skipping database:"}) {
    EXPECT_TRUE(capture.has_line(line)) << line;
  }
}

TEST(MutationText, AbsentAttributesKeepTheirDefaults) {
  const udb_mutation_text tree = udb_mutation_text::parse(
      {L"database:", L"tables:", L"  - name: t", L"    fields:", L"      - name:c", L"        length: 40"});
  const udb_field_mutation& c = tree.tables.at(L"t").fields.at(L"c");
  EXPECT_EQ(c.length, 40U);
  EXPECT_FALSE(c.deleted);
  EXPECT_EQ(c.new_name, L"");
}

TEST(MutationText, UnknownStatusIsChangedAndSaidSo) {
  log_capture capture;
  const udb_mutation_text tree =
      udb_mutation_text::parse({L"database:", L"tables:", L"  - name: t", L"    fields:", L"      - name:c",
                                L"        status: Deleted", L"        type: INT"});
  EXPECT_FALSE(tree.tables.at(L"t").fields.at(L"c").deleted);
  EXPECT_EQ(tree.tables.at(L"t").fields.at(L"c").type, L"INT");
  EXPECT_TRUE(capture.has_line("Column 'c': the status 'Deleted' is read as \"changed\""));
}

TEST(MutationText, NumberTooLargeIsSkipped) {
  log_capture capture;
  const udb_mutation_text tree = udb_mutation_text::parse(
      {L"database:", L"tables:", L"  - name: t", L"    fields:", L"      - name:c",
       L"        length: 18446744073709551616", L"        scale: 4294967296", L"        precision: 4294967295"});
  const udb_field_mutation& c = tree.tables.at(L"t").fields.at(L"c");
  EXPECT_EQ(c.length, 0U);
  EXPECT_EQ(c.scale, 0U);
  EXPECT_EQ(c.precision, 4294967295U);
  EXPECT_TRUE(capture.has_line("Skipping         length: 18446744073709551616"));
}

TEST(MutationText, ColumnNameIsTakenExactlyAsWritten) {
  const udb_mutation_text tree = udb_mutation_text::parse(
      {L"database:", L"tables:", L"  - name: t", L"    fields:", L"      - name:Price", L"      - name: price"});
  EXPECT_EQ(tree.tables.at(L"t").fields.count(L"Price"), 1U);
  EXPECT_EQ(tree.tables.at(L"t").fields.count(L" price"), 1U);
  EXPECT_EQ(tree.tables.at(L"t").fields.count(L"price"), 0U);
}

TEST(MutationText, TableNamedTwiceIsOneEntry) {
  const udb_mutation_text tree = udb_mutation_text::parse({L"database:", L"tables:", L"  - name: t", L"    new_name: a",
                                                           L"    fields:", L"      - name:x", L"  - name: t",
                                                           L"    new_name: b", L"    fields:", L"      - name:y"});
  ASSERT_EQ(tree.tables.size(), 1U);
  EXPECT_EQ(tree.tables.at(L"t").new_name, L"b");
  EXPECT_EQ(tree.tables.at(L"t").fields.size(), 2U);
}

TEST(MutationText, PropertiesLinesNeedEightBlanks) {
  log_capture capture;
  const udb_mutation_text tree =
      udb_mutation_text::parse({L"database:", L"tables:", L"  - name: t", L"    properties:", L"      engine: x",
                                L"        engine: MyISAM", L"        a: b: c"});
  EXPECT_EQ(tree.tables.at(L"t").properties, (std::map<std::wstring, std::wstring>{{L"engine", L"MyISAM"}}));
  EXPECT_TRUE(capture.has_line("Skipping       engine: x"));
  EXPECT_TRUE(capture.has_line("Skipping         a: b: c"));
}

TEST(MutationText, SectionLinesOfALoadedProfileKeepIndentationAndEqualsSigns) {
  temp_dir dir;
  write_file(dir.file("p.qbr"),
             "[Type Mappings]\r\n"
             "database:\r\n"
             "tables:   \r\n"
             "  - name: t\n"
             "    fields:\n"
             "      - name:c\n"
             "        new_name: c\n"
             "        status: changed\n"
             "        type: VARCHAR\n"
             "        default_value: a=b\n"
             "        character_set: \n"
             "        length: 10\n"
             "[Generic settings]\nsrc=x\n");
  udb_profile profile;
  ASSERT_TRUE(profile.load(dir.file("p.qbr")));
  const lines text = udb_mutation_text::section_lines(profile);
  EXPECT_EQ(text, (lines{L"database:", L"tables:", L"  - name: t", L"    fields:", L"      - name:c",
                         L"        new_name: c", L"        status: changed", L"        type: VARCHAR",
                         L"        default_value: a=b", L"        character_set:", L"        length: 10"}));
  const udb_mutation_text tree = udb_mutation_text::parse(text);
  const udb_field_mutation& c = tree.tables.at(L"t").fields.at(L"c");
  EXPECT_EQ(c.default_value, L"a=b");
  EXPECT_EQ(c.length, 10U);
}

TEST(MutationText, SectionLinesOfAFreshProfileAreItsBareLines) {
  udb_profile profile;
  EXPECT_TRUE(udb_mutation_text::section_lines(profile).empty());
  profile.add_line(udb_profile_type_mappings, L"database:");
  profile.add_line(udb_profile_type_mappings, L"tables:");
  EXPECT_EQ(udb_mutation_text::section_lines(profile), (lines{L"database:", L"tables:"}));
}

// A section damaged by hand: each line of a well-formed text left out in
// turn, or cut after each of its characters. Every such text reads without
// failing, and what it gives is only ever part of the whole: no table or
// column that the whole does not name, and a column that the whole keeps is
// never read as dropped.
TEST(MutationText, DamagedSectionReadsAsPartOfTheWholeAndNeverFails) {
  const udb_mutation_text whole = udb_mutation_text::parse(k_written);
  const auto expect_part_of_whole = [&](const udb_mutation_text& part, const std::string& what) {
    for (const auto& [name, table] : part.tables) {
      ASSERT_EQ(whole.tables.count(name), 1U) << what;
      for (const auto& [field_name, field] : table.fields) {
        ASSERT_EQ(whole.tables.at(name).fields.count(field_name), 1U) << what;
        EXPECT_TRUE(!field.deleted || whole.tables.at(name).fields.at(field_name).deleted) << what;
      }
    }
  };
  for (std::size_t drop = 0; drop < k_written.size(); ++drop) {
    lines text = k_written;
    text.erase(text.begin() + static_cast<std::ptrdiff_t>(drop));
    expect_part_of_whole(udb_mutation_text::parse(text), "without line " + std::to_string(drop));
  }
  for (std::size_t line = 0; line < k_written.size(); ++line) {
    for (std::size_t cut = 0; cut < k_written[line].size(); ++cut) {
      lines text = k_written;
      text[line].resize(cut);
      udb_mutation_text part;
      ASSERT_NO_THROW(part = udb_mutation_text::parse(text));
      // A cut column or table name may name another column; only the
      // untouched lines must agree with the whole.
      if (text[line].find(L"name:") == std::wstring::npos && k_written[line].find(L"name:") == std::wstring::npos) {
        expect_part_of_whole(part, "line " + std::to_string(line) + " cut at " + std::to_string(cut));
      }
    }
  }
}

}  // namespace
}  // namespace qb
