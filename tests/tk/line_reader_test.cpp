#include "tk/line_reader.h"

#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace qb {
namespace {

using test::temp_dir;
using test::write_file;

struct read_line {
  std::string text;
  bool too_long;
  int number;
  bool operator==(const read_line&) const = default;
};

std::vector<read_line> read_all(const std::string& path, std::size_t limit) {
  tk_line_reader reader(path, limit);
  EXPECT_TRUE(reader.is_open());
  std::vector<read_line> out;
  std::string line;
  while (reader.next(line) == tk_line_reader::status::line) {
    out.push_back({line, reader.too_long(), reader.line_number()});
  }
  EXPECT_EQ(reader.error(), 0);
  return out;
}

TEST(LineReader, SplitsAtLineFeedAndDropsOneCarriageReturnBeforeIt) {
  const temp_dir dir;
  const std::string path = dir.file("f");
  write_file(path, "a\r\nb\n\nc\r\r\nlast");
  EXPECT_EQ(read_all(path, 100),
            (std::vector<read_line>{
                {"a", false, 1}, {"b", false, 2}, {"", false, 3}, {"c\r", false, 4}, {"last", false, 5}}));
}

TEST(LineReader, EmptyFileHasNoLines) {
  const temp_dir dir;
  const std::string path = dir.file("f");
  write_file(path, "");
  EXPECT_TRUE(read_all(path, 10).empty());
  write_file(path, "\n");
  EXPECT_EQ(read_all(path, 10), (std::vector<read_line>{{"", false, 1}}));
}

TEST(LineReader, ByteOrderMarkAtTheStartOnlyIsDropped) {
  const temp_dir dir;
  const std::string path = dir.file("f");
  write_file(path, "\xEF\xBB\xBFx\n\xEF\xBB\xBFy\n");
  EXPECT_EQ(read_all(path, 10), (std::vector<read_line>{{"x", false, 1}, {"\xEF\xBB\xBFy", false, 2}}));
}

TEST(LineReader, LineOverTheLimitIsCutAndMarkedAndReadingGoesOn) {
  const temp_dir dir;
  const std::string path = dir.file("f");
  write_file(path, std::string(5, 'a') + "\r\n" + std::string(6, 'b') + "\n" + std::string(200000, 'c') + "\nend");
  EXPECT_EQ(read_all(path, 5),
            (std::vector<read_line>{{"aaaaa", false, 1}, {"bbbbb", true, 2}, {"ccccc", true, 3}, {"end", false, 4}}));
}

TEST(LineReader, NulBytesAreOrdinaryBytes) {
  const temp_dir dir;
  const std::string path = dir.file("f");
  write_file(path, std::string("a\0b\n", 4));
  EXPECT_EQ(read_all(path, 10), (std::vector<read_line>{{std::string("a\0b", 3), false, 1}}));
}

TEST(LineReader, MissingFileAndDirectoryReportTheirErrors) {
  const temp_dir dir;
  tk_line_reader missing(dir.file("none"), 10);
  EXPECT_FALSE(missing.is_open());
  EXPECT_EQ(missing.error(), ENOENT);
  std::string line;
  EXPECT_EQ(missing.next(line), tk_line_reader::status::error);

  tk_line_reader folder(dir.path(), 10);
  EXPECT_TRUE(folder.is_open());
  EXPECT_EQ(folder.next(line), tk_line_reader::status::error);
  EXPECT_EQ(folder.error(), EISDIR);
}

}  // namespace
}  // namespace qb
