#include "tk/replace_file.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/temp_dir.h"

namespace qb {
namespace {

using test::read_file;
using test::temp_dir;
using test::write_file;

std::vector<std::string> files_in(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

unsigned file_mode(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(::stat(path.c_str(), &st), 0);
  return st.st_mode & 07777;
}

TEST(ReplaceFile, CreatesANewFileWithTheMode) {
  const temp_dir dir;
  const std::string path = dir.file("new.txt");
  EXPECT_EQ(tk_replace_file(path, "content\n", 0600), 0);
  EXPECT_EQ(read_file(path), "content\n");
  EXPECT_EQ(file_mode(path), 0600U);
  EXPECT_EQ(files_in(dir.path()), (std::vector<std::string>{"new.txt"}));
}

TEST(ReplaceFile, ReplacesAnExistingFileAsAWhole) {
  const temp_dir dir;
  const std::string path = dir.file("f");
  write_file(path, std::string(10000, 'o'));
  struct stat before {};
  ASSERT_EQ(::stat(path.c_str(), &before), 0);
  EXPECT_EQ(tk_replace_file(path, "short", 0640), 0);
  EXPECT_EQ(read_file(path), "short");
  EXPECT_EQ(file_mode(path), 0640U);
  struct stat after {};
  ASSERT_EQ(::stat(path.c_str(), &after), 0);
  EXPECT_NE(before.st_ino, after.st_ino);  // a new file took the name
}

TEST(ReplaceFile, RelativePathIsTakenInTheWorkingDirectory) {
  const temp_dir dir;
  const std::string old_dir = std::filesystem::current_path();
  ASSERT_EQ(::chdir(dir.path().c_str()), 0);
  const int error = tk_replace_file("rel.txt", "r", 0600);
  ASSERT_EQ(::chdir(old_dir.c_str()), 0);
  EXPECT_EQ(error, 0);
  EXPECT_EQ(read_file(dir.file("rel.txt")), "r");
}

TEST(ReplaceFile, FailuresReturnTheErrorAndLeaveNothingBehind) {
  const temp_dir dir;
  EXPECT_EQ(tk_replace_file(dir.file("missing/f"), "x", 0600), ENOENT);
  EXPECT_EQ(tk_replace_file(dir.path(), "x", 0600), EISDIR);
  EXPECT_EQ(tk_replace_file("", "x", 0600), ENOENT);
  write_file(dir.file("plain"), "p");
  EXPECT_EQ(tk_replace_file(dir.file("plain/f"), "x", 0600), ENOTDIR);
  EXPECT_EQ(files_in(dir.path()), (std::vector<std::string>{"plain"}));
}

TEST(ReplaceFile, SpecialFileIsWrittenInPlace) {
  EXPECT_EQ(tk_replace_file("/dev/full", "x", 0600), ENOSPC);
  EXPECT_EQ(tk_replace_file("/dev/null", "x", 0600), 0);
  struct stat st {};
  ASSERT_EQ(::stat("/dev/null", &st), 0);
  EXPECT_TRUE(S_ISCHR(st.st_mode));
}

TEST(ReplaceFile, VeryLongNameStillGetsATemporaryName) {
  const temp_dir dir;
  const std::string name(250, 'n');
  EXPECT_EQ(tk_replace_file(dir.file(name), "long", 0600), 0);
  EXPECT_EQ(read_file(dir.file(name)), "long");
  EXPECT_EQ(files_in(dir.path()), (std::vector<std::string>{name}));
}

}  // namespace
}  // namespace qb
