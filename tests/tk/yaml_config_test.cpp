#include "tk/yaml_config.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tk/exception.h"

#include "support/log_lines.h"
#include "support/temp_dir.h"

namespace qb {
namespace {

using test::lines_in_order;
using test::log_capture;
using test::temp_dir;
using test::write_file;

using list = std::vector<std::wstring>;

TEST(YamlConfig, ReadsKeysWithTheirValueLines) {
  log_capture log;
  const temp_dir dir;
  const std::string path = dir.file("sql.map");
  write_file(path,
             "VARCHAR:\n"
             "  - CHAR\n"
             "  - TEXT\n"
             "\n"
             "INT :\n"
             "- BIGINT\n");
  tk_yaml_config config;
  EXPECT_TRUE(config.load(path, {}));
  ASSERT_EQ(config.values.size(), 2U);
  EXPECT_EQ(config.values.at(L"VARCHAR"), (list{L"CHAR", L"TEXT"}));
  EXPECT_EQ(config.values.at(L"INT"), (list{L"BIGINT"}));
  EXPECT_TRUE(lines_in_order(log.text(), {
                                             "tk_yaml_config::load(" + path + ")",
                                             "Got text line: VARCHAR:",
                                             "Got text line: - CHAR",
                                             "String 'CHAR' has been stored under key='VARCHAR'",
                                             "Got text line: - TEXT",
                                             "String 'TEXT' has been stored under key='VARCHAR'",
                                             "Got text line: ",
                                             "Skip empty line",
                                             "Got text line: INT :",
                                             "Got text line: - BIGINT",
                                             "String 'BIGINT' has been stored under key='INT'",
                                         }));
}

TEST(YamlConfig, MissingFileGivesFalse) {
  log_capture log;
  const temp_dir dir;
  tk_yaml_config config;
  EXPECT_FALSE(config.load(dir.file("sql.map"), {}));
  EXPECT_TRUE(config.values.empty());
  EXPECT_TRUE(log.has_line("tk_yaml_config::load(" + dir.file("sql.map") + ")"));
}

TEST(YamlConfig, FilteredValueIsDropped) {
  log_capture log;
  const temp_dir dir;
  const std::string path = dir.file("sql.map");
  write_file(path, "TEXT:\n- BLOB\n- LONGTEXT\n");
  tk_yaml_config config;
  EXPECT_TRUE(config.load(path, {L"BLOB"}));
  EXPECT_EQ(config.values.at(L"TEXT"), (list{L"LONGTEXT"}));
  EXPECT_TRUE(log.has_line("String 'BLOB' has not passed the filter"));
  EXPECT_FALSE(log.has_line("String 'BLOB' has been stored under key='TEXT'"));
}

TEST(YamlConfig, ValueLineStaysOneEntryEvenWithBlanksInside) {
  const temp_dir dir;
  const std::string path = dir.file("sql.typ");
  write_file(path, "DECIMAL:\n  -   LENGTH SCALE PRECISION   \n-\n");
  tk_yaml_config config;
  EXPECT_TRUE(config.load(path, {}));
  EXPECT_EQ(config.values.at(L"DECIMAL"), (list{L"LENGTH SCALE PRECISION", L""}));
}

TEST(YamlConfig, OtherLinesAreIgnoredAndAColonLineIsAKeyBeforeADashLine) {
  const temp_dir dir;
  const std::string path = dir.file("sql.map");
  write_file(path, "# comment\nDATE:\nnot a value\n- DATETIME\n- odd:\n- TIMESTAMP\n");
  tk_yaml_config config;
  EXPECT_TRUE(config.load(path, {}));
  EXPECT_EQ(config.values.at(L"DATE"), (list{L"DATETIME"}));
  EXPECT_EQ(config.values.at(L"- odd"), (list{L"TIMESTAMP"}));
  EXPECT_EQ(config.values.size(), 2U);
}

TEST(YamlConfig, ValueBeforeAnyKeyGoesUnderTheEmptyKey) {
  const temp_dir dir;
  const std::string path = dir.file("sql.map");
  write_file(path, "- FIRST\nK:\n- SECOND\n");
  tk_yaml_config config;
  EXPECT_TRUE(config.load(path, {}));
  EXPECT_EQ(config.values.at(L""), (list{L"FIRST"}));
  EXPECT_EQ(config.values.at(L"K"), (list{L"SECOND"}));
}

TEST(YamlConfig, RepeatedKeyAppendsAndALoadAddsToWhatIsHeld) {
  const temp_dir dir;
  const std::string a = dir.file("a");
  const std::string b = dir.file("b");
  write_file(a, "K:\r\n- ONE\r\nL:\r\n- X\r\nK:\r\n- TWO\r\n");
  write_file(b, "K:\n- THREE\n");
  tk_yaml_config config;
  EXPECT_TRUE(config.load(a, {}));
  EXPECT_TRUE(config.load(b, {}));
  EXPECT_EQ(config.values.at(L"K"), (list{L"ONE", L"TWO", L"THREE"}));
  EXPECT_EQ(config.values.at(L"L"), (list{L"X"}));
}

TEST(YamlConfig, Utf8TextIsRead) {
  const temp_dir dir;
  const std::string path = dir.file("sql.map");
  write_file(path, "\xC3\x9C:\n- \xE2\x82\xAC\n");
  tk_yaml_config config;
  EXPECT_TRUE(config.load(path, {}));
  EXPECT_EQ(config.values.at(L"\u00DC"), (list{L"\u20AC"}));
}

TEST(YamlConfig, OverlongOrNonUtf8LineThrowsNamingTheLine) {
  const temp_dir dir;
  const std::string path = dir.file("sql.map");
  tk_yaml_config config;
  write_file(path, "K:\n- " + std::string(5000, 'x') + "\n");
  try {
    config.load(path, {});
    ADD_FAILURE() << "no exception";
  } catch (const tk_exception& e) {
    EXPECT_EQ(std::string(e.what()), "The file " + path + " cannot be read: line 2 is longer than 4095 bytes.");
  }
  write_file(path, "K:\n- A\n- \xFF\xFE\n");
  try {
    config.load(path, {});
    ADD_FAILURE() << "no exception";
  } catch (const tk_exception& e) {
    EXPECT_EQ(std::string(e.what()), "The file " + path + " cannot be read: line 3 is not UTF-8 text.");
  }
  EXPECT_EQ(config.values.at(L"K"), (list{L"A"}));
}

}  // namespace
}  // namespace qb
