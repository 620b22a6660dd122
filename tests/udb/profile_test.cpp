#include "udb/profile.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tk/exception.h"
#include "support/log_lines.h"

#include "support/temp_dir.h"

namespace qb {
namespace {

using test::log_capture;
using test::read_file;
using test::temp_dir;
using test::write_file;

using pairs = std::vector<udb_profile::t_pair>;
using lines = std::vector<std::wstring>;

// Loads a profile from the given file text.
udb_profile load_text(const temp_dir& dir, const std::string& text) {
  const std::string path = dir.file("p.qbr");
  write_file(path, text);
  udb_profile profile;
  EXPECT_TRUE(profile.load(path));
  return profile;
}

// The text of the tk_exception that load throws, or "" when it loads.
std::string load_failure(const std::string& path, udb_profile& profile) {
  try {
    profile.load(path);
  } catch (const tk_exception& e) {
    EXPECT_EQ(e.level(), 1);
    return e.what();
  }
  return "";
}

std::string store_failure(const udb_profile& profile, const std::string& path) {
  try {
    profile.store(path);
  } catch (const tk_exception& e) {
    EXPECT_EQ(e.level(), 1);
    return e.what();
  }
  return "";
}

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

// --- Reading ---------------------------------------------------------------------------------

TEST(ProfileLoad, ReadsSectionsPairsAndBareLinesInFileOrder) {
  const temp_dir dir;
  const udb_profile p = load_text(dir,
                                  "[Generic settings]\n"
                                  "src=sales\n"
                                  "dest=sales_copy\n"
                                  "[Selected Tables]\n"
                                  "dbo.orders\n"
                                  "big=select * from t\n"
                                  "dbo.lines\n");
  ASSERT_EQ(p.sections.size(), 2U);
  EXPECT_EQ(p.sections.at(L"Generic settings"), (pairs{{L"src", L"sales"}, {L"dest", L"sales_copy"}}));
  EXPECT_EQ(p.sections.at(L"Selected Tables"),
            (pairs{{L"dbo.orders", L""}, {L"big", L"select * from t"}, {L"dbo.lines", L""}}));
  ASSERT_EQ(p.lists.size(), 1U);
  EXPECT_EQ(p.lists.at(L"Selected Tables"), (lines{L"dbo.orders", L"dbo.lines"}));
}

TEST(ProfileLoad, LogsItsPath) {
  log_capture log;
  const temp_dir dir;
  const std::string path = dir.file("p.qbr");
  write_file(path, "[a]\n");
  udb_profile p;
  p.load(path);
  EXPECT_TRUE(log.has_line("udb_profile::load(" + path + ")"));
}

TEST(ProfileLoad, TrailingCarriageReturnIsRemoved) {
  const temp_dir dir;
  const udb_profile p =
      load_text(dir, "[MySQL settings]\r\nhost=db1\r\nuser=mig\r\n\r\n[Type Mappings]\r\ndatabase:\r\n");
  EXPECT_EQ(p.sections.at(L"MySQL settings"), (pairs{{L"host", L"db1"}, {L"user", L"mig"}}));
  EXPECT_EQ(p.get_lines(L"Type Mappings"), (lines{L"database:"}));
}

TEST(ProfileLoad, RepeatedSectionHeaderContinuesTheSection) {
  const temp_dir dir;
  const udb_profile p = load_text(dir, "[a]\nx=1\n[b]\ny=2\n[a]\nz=3\nbare\n");
  EXPECT_EQ(p.sections.at(L"a"), (pairs{{L"x", L"1"}, {L"z", L"3"}, {L"bare", L""}}));
  EXPECT_EQ(p.sections.at(L"b"), (pairs{{L"y", L"2"}}));
  EXPECT_EQ(p.lists.at(L"a"), (lines{L"bare"}));
}

TEST(ProfileLoad, ValueThatHoldsEqualsSignKeepsIt) {
  const temp_dir dir;
  const udb_profile p = load_text(dir, "[Available Queries]\nq1=select * from t where a=1 and b==2\n==\n");
  EXPECT_EQ(p.get_value(L"Available Queries", L"q1"), L"select * from t where a=1 and b==2");
  EXPECT_EQ(p.sections.at(L"Available Queries")[1], (udb_profile::t_pair{L"", L"="}));
}

TEST(ProfileLoad, LineWithoutEqualsSignGoesToListsAndToPairsWithEmptyValue) {
  const temp_dir dir;
  const udb_profile p = load_text(dir, "[Type Mappings]\ndatabase:\ntables:\n");
  EXPECT_EQ(p.lists.at(L"Type Mappings"), (lines{L"database:", L"tables:"}));
  EXPECT_EQ(p.sections.at(L"Type Mappings"), (pairs{{L"database:", L""}, {L"tables:", L""}}));
}

TEST(ProfileLoad, EmptyAndBlankLinesAreIgnored) {
  const temp_dir dir;
  const udb_profile p = load_text(dir, "\n\n[a]\n\n   \nx=1\n\n");
  EXPECT_EQ(p.sections.at(L"a"), (pairs{{L"x", L"1"}}));
  EXPECT_TRUE(p.lists.empty());
}

TEST(ProfileLoad, LineBeforeAnySectionIsLost) {
  log_capture log;
  const temp_dir dir;
  const udb_profile p = load_text(dir, "src=lost\nbare lost\n[a]\nx=1\n");
  EXPECT_EQ(p.sections.size(), 1U);
  EXPECT_EQ(p.sections.at(L"a"), (pairs{{L"x", L"1"}}));
  EXPECT_TRUE(p.lists.empty());
  EXPECT_EQ(p.get_value(L"", L"src"), L"");
  EXPECT_TRUE(log.has_line("Line 1 of the profile stands before any section and is ignored"));
  EXPECT_TRUE(log.has_line("Line 2 of the profile stands before any section and is ignored"));
}

TEST(ProfileLoad, FileWithoutSectionsLoadsEmpty) {
  const temp_dir dir;
  const udb_profile p = load_text(dir, "just some text\nkey=value\n");
  EXPECT_TRUE(p.sections.empty());
  EXPECT_TRUE(p.lists.empty());
}

TEST(ProfileLoad, SectionHeaderWithNoLinesCreatesAnEmptySection) {
  const temp_dir dir;
  const udb_profile p = load_text(dir, "[Selected Views]\n[MySQL settings]\nhost=h\n[Available Queries]");
  ASSERT_EQ(p.sections.count(L"Selected Views"), 1U);
  EXPECT_TRUE(p.sections.at(L"Selected Views").empty());
  ASSERT_EQ(p.sections.count(L"Available Queries"), 1U);
  EXPECT_TRUE(p.sections.at(L"Available Queries").empty());
  EXPECT_EQ(p.get_value(L"MySQL settings", L"host"), L"h");
}

TEST(ProfileLoad, MutationTextKeepsItsIndentationAndLosesTrailingBlanks) {
  const temp_dir dir;
  const udb_profile p = load_text(dir,
                                  "[Type Mappings]\n"
                                  "database:\n"
                                  "tables:\n"
                                  "  - name: dbo.orders\n"
                                  "      - name:price\n"
                                  "        default_value: \n");
  EXPECT_EQ(p.get_lines(L"Type Mappings"), (lines{L"database:", L"tables:", L"  - name: dbo.orders",
                                                  L"      - name:price", L"        default_value:"}));
}

TEST(ProfileLoad, LinesOfOtherSectionsAreTrimmedOfBlanks) {
  const temp_dir dir;
  const udb_profile p = load_text(dir,
                                  "[MySQL settings]\n"
                                  "  host=db.example  \n"
                                  "password= secret \n"
                                  "[Selected Tables]\n"
                                  "   dbo.orders   \n");
  EXPECT_EQ(p.get_value(L"MySQL settings", L"host"), L"db.example");
  EXPECT_EQ(p.get_value(L"MySQL settings", L"password"), L" secret");
  EXPECT_EQ(p.get_lines(L"Selected Tables"), (lines{L"dbo.orders"}));
}

TEST(ProfileLoad, HeaderMayStandBetweenBlanks) {
  const temp_dir dir;
  const udb_profile p = load_text(dir, "  [Generic settings]  \nmode=1\n");
  EXPECT_EQ(p.get_value(L"Generic settings", L"mode"), L"1");
}

TEST(ProfileLoad, ByteOrderMarkAtTheStartIsDropped) {
  const temp_dir dir;
  const udb_profile p = load_text(dir, "\xEF\xBB\xBF[Generic settings]\nsrc=a\n");
  EXPECT_EQ(p.get_value(L"Generic settings", L"src"), L"a");
}

TEST(ProfileLoad, TextIsUtf8) {
  const temp_dir dir;
  const udb_profile p =
      load_text(dir, "[Selected Views]\n\xC3\xA9t\xC3\xA9=select '\xE2\x82\xAC' -- \xF0\x9F\x98\x80\n");
  EXPECT_EQ(p.get_value(L"Selected Views", L"\u00E9t\u00E9"), L"select '\u20AC' -- \U0001F600");
}

TEST(ProfileLoad, NulBytesAreKeptAsCharacters) {
  const temp_dir dir;
  const udb_profile p = load_text(dir, std::string("[a]\nk=v\0w\n", 11));
  EXPECT_EQ(p.get_value(L"a", L"k"), std::wstring(L"v\0w", 3));
}

TEST(ProfileLoad, LineOf4095BytesLoads) {
  const temp_dir dir;
  const std::string value(4095 - 2, 'v');
  const udb_profile p = load_text(dir, "[a]\nk=" + value + "\r\n");
  EXPECT_EQ(p.get_value(L"a", L"k").size(), value.size());
}

TEST(ProfileLoad, LineOf4096BytesFailsNamingFileAndLine) {
  const temp_dir dir;
  const std::string path = dir.file("long.qbr");
  write_file(path, "[a]\nk=1\nk=" + std::string(4096 - 2, 'v') + "\n");
  udb_profile p;
  EXPECT_EQ(load_failure(path, p), "The profile " + path + " cannot be read: line 3 is longer than 4095 bytes.");
}

TEST(ProfileLoad, LineOf5000BytesWithoutLineEndFails) {
  const temp_dir dir;
  const std::string path = dir.file("long.qbr");
  write_file(path, "[a]\n" + std::string(5000, 'x'));
  udb_profile p;
  EXPECT_EQ(load_failure(path, p), "The profile " + path + " cannot be read: line 2 is longer than 4095 bytes.");
}

TEST(ProfileLoad, FailureLeavesTheObjectAsItWas) {
  const temp_dir dir;
  udb_profile p;
  p.set_value(L"kept", L"k", L"v");
  p.add_line(L"kept", L"line");
  const std::string path = dir.file("bad.qbr");
  write_file(path, "[new]\nx=1\n" + std::string(6000, 'y') + "\n");
  EXPECT_NE(load_failure(path, p), "");
  EXPECT_EQ(p.sections.size(), 1U);
  EXPECT_EQ(p.get_value(L"kept", L"k"), L"v");
  EXPECT_EQ(p.get_lines(L"kept"), (lines{L"line"}));
}

TEST(ProfileLoad, LoadReplacesWhatTheObjectHeld) {
  const temp_dir dir;
  udb_profile p;
  p.set_value(L"old", L"k", L"v");
  const std::string path = dir.file("p.qbr");
  write_file(path, "[new]\nx=1\n");
  p.load(path);
  EXPECT_EQ(p.sections.count(L"old"), 0U);
  EXPECT_EQ(p.get_value(L"new", L"x"), L"1");
}

TEST(ProfileLoad, InvalidUtf8FailsNamingTheLine) {
  const temp_dir dir;
  const std::string path = dir.file("latin1.qbr");
  write_file(path, "[MS SQL Server settings]\nlogin=sa\npassword=caf\xE9\n");
  udb_profile p;
  EXPECT_EQ(load_failure(path, p), "The profile " + path + " cannot be read: line 3 is not UTF-8 text.");
  EXPECT_TRUE(p.sections.empty());
}

TEST(ProfileLoad, MissingFileThrowsProfileDoesNotExist) {
  const temp_dir dir;
  udb_profile p;
  try {
    p.load(dir.file("nothing.qbr"));
    ADD_FAILURE() << "no exception";
  } catch (const tk_exception_ex& e) {
    EXPECT_STREQ(e.what(), "Profile does not exist. Please verify the correct path/name was given.");
  }
  EXPECT_EQ(load_failure(dir.file("no/such/dir.qbr"), p),
            "Profile does not exist. Please verify the correct path/name was given.");
  EXPECT_EQ(load_failure("", p), "Profile does not exist. Please verify the correct path/name was given.");
}

TEST(ProfileLoad, DirectoryFailsWithTheSystemsText) {
  const temp_dir dir;
  udb_profile p;
  EXPECT_EQ(load_failure(dir.path(), p), "Cannot read the profile " + dir.path() + ": Is a directory");
}

TEST(ProfileLoad, BinaryGarbageNeverCrashes) {
  const temp_dir dir;
  const std::string path = dir.file("garbage.qbr");
  std::mt19937 random(20261121);
  int refused = 0;
  for (int round = 0; round < 200; ++round) {
    std::string bytes(static_cast<std::size_t>(random() % 9000), '\0');
    for (char& b : bytes) {
      const unsigned r = random() % 16;
      // Mostly bytes of every value, with line ends, brackets and "=" mixed in.
      b = r == 0 ? '\n' : r == 1 ? '[' : r == 2 ? ']' : r == 3 ? '=' : static_cast<char>(random() & 0xFF);
    }
    write_file(path, bytes);
    udb_profile p;
    const std::string failure = load_failure(path, p);
    if (!failure.empty()) {
      ++refused;
      EXPECT_EQ(failure.rfind("The profile " + path + " cannot be read: line ", 0), 0U) << failure;
      EXPECT_TRUE(p.sections.empty());
    }
  }
  EXPECT_GT(refused, 0);
  // Garbage that happens to be valid UTF-8 (only ASCII bytes) loads.
  std::string ascii(3000, '\0');
  for (char& b : ascii) b = static_cast<char>(random() % 0x80);
  write_file(path, "[x]\n" + ascii);
  udb_profile p;
  EXPECT_EQ(load_failure(path, p), "");
  EXPECT_EQ(p.sections.count(L"x"), 1U);
}

// --- Lookups and writers -------------------------------------------------------------------

TEST(ProfileLookup, ComparesExactlyAndReturnsTheFirstMatchingPair) {
  udb_profile p;
  p.set_value(L"MySQL settings", L"host", L"first");
  p.set_value(L"MySQL settings", L"host", L"second");
  p.set_value(L"MySQL settings", L"Port", L"3307");
  EXPECT_EQ(p.get_value(L"MySQL settings", L"host"), L"first");
  EXPECT_EQ(p.get_value(L"MySQL settings", L"port"), L"");
  EXPECT_EQ(p.get_value(L"mysql settings", L"host"), L"");
  EXPECT_EQ(p.get_value(L"MySQL settings", L"host "), L"");
  EXPECT_EQ(p.get_value(L"Missing", L"host"), L"");
  EXPECT_EQ(p.sections.at(L"MySQL settings").size(), 3U);
}

TEST(ProfileLookup, AbsentKeyAndEmptyValueReadTheSame) {
  udb_profile p;
  p.set_value(L"a", L"empty", L"");
  EXPECT_EQ(p.get_value(L"a", L"empty"), p.get_value(L"a", L"absent"));
}

TEST(ProfileLookup, AddLineAppendsToListsOnly) {
  udb_profile p;
  p.add_line(L"Type Mappings", L"database:");
  p.add_line(L"Type Mappings", L"tables:");
  EXPECT_EQ(p.get_lines(L"Type Mappings"), (lines{L"database:", L"tables:"}));
  EXPECT_TRUE(p.sections.empty());
  EXPECT_TRUE(p.get_lines(L"Other").empty());
}

TEST(ProfileLookup, ProfileWithoutTypeMappingsHasNoMutationText) {
  const temp_dir dir;
  const udb_profile p = load_text(dir, "[Generic settings]\nsrc=a\n");
  EXPECT_TRUE(p.get_lines(udb_profile_type_mappings).empty());
  EXPECT_EQ(p.lists.count(udb_profile_type_mappings), 0U);
}

// --- Writing -------------------------------------------------------------------------------

TEST(ProfileStore, WritesSectionsInWideCharacterOrderEachEndedByAnEmptyLine) {
  log_capture log;
  const temp_dir dir;
  udb_profile p;
  p.set_value(L"MySQL settings", L"host", L"db1");
  p.set_value(L"Generic settings", L"src", L"sales");
  p.set_value(L"Generic settings", L"mode", L"1");
  p.set_value(L"MS SQL Server settings", L"login", L"sa");
  p.set_value(L"generic", L"lower", L"after upper case");
  p.set_value(L"\u00C9t\u00E9", L"k", L"v");
  const std::string path = dir.file("out.qbr");
  EXPECT_TRUE(p.store(path));
  EXPECT_EQ(read_file(path),
            "[Generic settings]\nsrc=sales\nmode=1\n\n"
            "[MS SQL Server settings]\nlogin=sa\n\n"
            "[MySQL settings]\nhost=db1\n\n"
            "[generic]\nlower=after upper case\n\n"
            "[\xC3\x89t\xC3\xA9]\nk=v\n\n");
  EXPECT_TRUE(log.has_line("udb_profile::store)"));
}

TEST(ProfileStore, SelectedTablesEntryWithEmptyValueIsWrittenWithoutEqualsSign) {
  const temp_dir dir;
  udb_profile p;
  p.set_value(L"Selected Tables", L"dbo.orders", L"");
  p.set_value(L"Selected Tables", L"q", L"select 1");
  p.set_value(L"Selected Views", L"v", L"");
  p.set_value(L"Generic settings", L"logfile", L"");
  const std::string path = dir.file("out.qbr");
  p.store(path);
  EXPECT_EQ(read_file(path),
            "[Generic settings]\nlogfile=\n\n"
            "[Selected Tables]\ndbo.orders\nq=select 1\n\n"
            "[Selected Views]\nv=\n\n");
}

TEST(ProfileStore, SectionsThatLiveOnlyInListsFollowInMapOrder) {
  const temp_dir dir;
  udb_profile p;
  p.add_line(L"Type Mappings", L"database:");
  p.add_line(L"Type Mappings", L"  engine: InnoDB");
  p.add_line(L"A list", L"x");
  p.set_value(L"Selected Tables", L"t", L"");
  p.set_value(L"Generic settings", L"src", L"s");
  const std::string path = dir.file("out.qbr");
  p.store(path);
  EXPECT_EQ(read_file(path),
            "[Generic settings]\nsrc=s\n\n"
            "[Selected Tables]\nt\n\n"
            "[A list]\nx\n\n"
            "[Type Mappings]\ndatabase:\n  engine: InnoDB\n\n");
}

TEST(ProfileStore, EmptySectionIsWrittenAsHeaderAndEmptyLine) {
  const temp_dir dir;
  udb_profile p;
  p.sections[L"Selected Views"];
  const std::string path = dir.file("out.qbr");
  p.store(path);
  EXPECT_EQ(read_file(path), "[Selected Views]\n\n");
  udb_profile back;
  back.load(path);
  ASSERT_EQ(back.sections.count(L"Selected Views"), 1U);
  EXPECT_TRUE(back.sections.at(L"Selected Views").empty());
}

TEST(ProfileStore, StoreThenLoadReproducesEverySectionAndPair) {
  const temp_dir dir;
  udb_profile p;
  p.set_value(L"Generic settings", L"src", L"Sales \u00C5r");
  p.set_value(L"Generic settings", L"dest", L"/srv/dump file.sql");
  p.set_value(L"Generic settings", L"logfile", L"");
  p.set_value(L"Generic settings", L"mode", L"4");
  p.set_value(L"MS SQL Server settings", L"password", L"p=w d");
  p.set_value(L"MySQL settings", L"password", std::wstring(L"a\0b", 3));
  p.set_value(L"Available Queries", L"q", L"select a, b from t where x = '='");
  p.set_value(L"Selected Tables", L"dbo.orders", L"");
  p.set_value(L"Selected Tables", L"\u65E5\u672C.\U0001F600", L"");
  p.set_value(L"Selected Tables", L"q2", L"select 2");
  p.set_value(L"Selected Views", L"v", L"create view v as select 1");
  p.sections[L"Empty"];
  p.add_line(L"Type Mappings", L"database:");
  p.add_line(L"Type Mappings", L"tables:");
  p.add_line(L"Type Mappings", L"  - name: dbo.orders");
  p.add_line(L"Type Mappings", L"        default_value:");
  const std::string path = dir.file("round.qbr");
  p.store(path);

  udb_profile back;
  back.load(path);
  for (const auto& [name, entries] : p.sections) EXPECT_EQ(back.sections.at(name), entries) << name.size();
  EXPECT_EQ(back.get_lines(L"Type Mappings"), p.get_lines(L"Type Mappings"));
  EXPECT_EQ(back.get_lines(L"Selected Tables"), (lines{L"dbo.orders", L"\u65E5\u672C.\U0001F600"}));
  EXPECT_EQ(back.sections.size(), p.sections.size() + 1);  // "Type Mappings" has pairs now too
}

TEST(ProfileStore, QueryWithLineBreaksIsStoredAsOneLine) {
  const temp_dir dir;
  udb_profile p;
  p.set_value(L"Available Queries", L"q", udb_profile::to_single_line(L"select a,\r\n  b\nfrom t\rwhere 1=1"));
  const std::string path = dir.file("q.qbr");
  p.store(path);
  EXPECT_EQ(read_file(path), "[Available Queries]\nq=select a,   b from t where 1=1\n\n");
  udb_profile back;
  back.load(path);
  EXPECT_EQ(back.get_value(L"Available Queries", L"q"), L"select a,   b from t where 1=1");
}

TEST(ProfileStore, FileIsWrittenWithMode0600EvenOverAWiderOne) {
  const temp_dir dir;
  const std::string path = dir.file("p.qbr");
  udb_profile p;
  p.set_value(L"MySQL settings", L"password", L"secret");
  p.store(path);
  EXPECT_EQ(file_mode(path), 0600U);
  ASSERT_EQ(::chmod(path.c_str(), 0644), 0);
  p.store(path);
  EXPECT_EQ(file_mode(path), 0600U);
  EXPECT_EQ(files_in(dir.path()), (std::vector<std::string>{"p.qbr"}));
}

TEST(ProfileStore, ThroughASymbolicLinkTheTargetIsReplacedAndTheLinkKept) {
  const temp_dir dir;
  const std::string target = dir.file("real.qbr");
  const std::string link = dir.file("link.qbr");
  write_file(target, "old");
  ASSERT_EQ(::symlink(target.c_str(), link.c_str()), 0);
  udb_profile p;
  p.set_value(L"a", L"k", L"v");
  p.store(link);
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(read_file(target), "[a]\nk=v\n\n");
}

TEST(ProfileStore, FullDeviceThrowsWithTheSystemsText) {
  udb_profile p;
  p.set_value(L"a", L"k", L"v");
  try {
    p.store("/dev/full");
    ADD_FAILURE() << "no exception";
  } catch (const tk_exception_ex& e) {
    EXPECT_STREQ(e.what(), "Cannot write the profile /dev/full: No space left on device");
    EXPECT_EQ(e.code(), static_cast<std::uint32_t>(ENOSPC));
  }
}

TEST(ProfileStore, MissingFolderThrows) {
  const temp_dir dir;
  udb_profile p;
  p.set_value(L"a", L"k", L"v");
  const std::string path = dir.file("none/p.qbr");
  EXPECT_EQ(store_failure(p, path), "Cannot write the profile " + path + ": No such file or directory");
}

// Lowers the file-size limit of the process for a scope, so that a write
// beyond it fails with EFBIG as on a full disk.
class file_size_limit {
 public:
  explicit file_size_limit(rlim_t bytes) {
    ::getrlimit(RLIMIT_FSIZE, &old_);
    old_handler_ = ::signal(SIGXFSZ, SIG_IGN);
    rlimit lower = old_;
    lower.rlim_cur = bytes;
    ::setrlimit(RLIMIT_FSIZE, &lower);
  }
  ~file_size_limit() {
    ::setrlimit(RLIMIT_FSIZE, &old_);
    ::signal(SIGXFSZ, old_handler_);
  }
  file_size_limit(const file_size_limit&) = delete;
  file_size_limit& operator=(const file_size_limit&) = delete;

 private:
  rlimit old_{};
  sighandler_t old_handler_ = nullptr;
};

TEST(ProfileStore, FailedWriteLeavesTheOldProfileInPlaceAndNoTemporaryFile) {
  const temp_dir dir;
  const std::string path = dir.file("good.qbr");
  udb_profile good;
  good.set_value(L"Generic settings", L"src", L"sales");
  good.store(path);
  const std::string before = read_file(path);

  udb_profile big;
  for (int i = 0; i < 200; ++i) big.set_value(L"Available Queries", L"q" + std::to_wstring(i), std::wstring(100, L'x'));
  std::string failure;
  {
    const file_size_limit limit(4096);
    failure = store_failure(big, path);
  }
  EXPECT_EQ(failure, "Cannot write the profile " + path + ": File too large");
  EXPECT_EQ(read_file(path), before);
  EXPECT_EQ(files_in(dir.path()), (std::vector<std::string>{"good.qbr"}));
}

TEST(ProfileStore, RefusesEntriesThatWouldNotReadBackAndWritesNothing) {
  const temp_dir dir;
  const std::string path = dir.file("p.qbr");
  const auto failure_of = [&](const udb_profile& p) { return store_failure(p, path); };
  const std::string prefix = "Cannot store the profile " + path + ": the entry ";

  udb_profile a;
  a.set_value(L"Available Queries", L"q", L"select 1\nfrom t");
  EXPECT_EQ(failure_of(a), prefix + "\"q\" of section [Available Queries] holds a line break.");

  udb_profile b;
  b.set_value(L"Generic settings", L"a=b", L"c");
  EXPECT_EQ(failure_of(b), prefix + "\"a=b\" of section [Generic settings] has a key that holds \"=\".");

  udb_profile c;
  c.set_value(L"Selected Tables", L"[orders]", L"");
  EXPECT_EQ(failure_of(c),
            prefix + "\"[orders]\" of section [Selected Tables] gives a line that reads as a section header.");

  udb_profile d;
  d.set_value(L"Available Queries", L"q", std::wstring(4094, L'x'));
  EXPECT_EQ(failure_of(d), prefix + "\"q\" of section [Available Queries] gives a line of more than 4095 bytes.");

  udb_profile e;
  e.add_line(L"Type Mappings", L"  ");
  EXPECT_EQ(failure_of(e), prefix + "\"  \" of section [Type Mappings] gives an empty line.");

  udb_profile f;
  f.set_value(L"Selected Views", L"v", std::wstring(1, static_cast<wchar_t>(0x110000)));
  EXPECT_EQ(failure_of(f), prefix + "\"v\" of section [Selected Views] holds a character that UTF-8 cannot carry.");

  udb_profile g;
  g.set_value(L"a\nb", L"k", L"v");
  EXPECT_NE(failure_of(g), "");

  udb_profile h;
  h.set_value(L"Selected Tables", L"x=y", L"");
  EXPECT_EQ(failure_of(h), prefix + "\"x=y\" of section [Selected Tables] has a key that holds \"=\".");

  EXPECT_TRUE(files_in(dir.path()).empty());

  // A line of exactly 4095 bytes is written and reads back.
  udb_profile fits;
  fits.set_value(L"Available Queries", L"q", std::wstring(4093, L'x'));
  EXPECT_TRUE(fits.store(path));
  udb_profile back;
  EXPECT_TRUE(back.load(path));
  EXPECT_EQ(back.get_value(L"Available Queries", L"q").size(), 4093U);
}

// --- Reading helpers -----------------------------------------------------------------------

TEST(ProfileFlags, ZeroIsTheOnlyFalse) {
  const temp_dir dir;
  const udb_profile p = load_text(dir,
                                  "[Generic settings]\nonly definitions=2\nskip indexes=0\nempty=\n"
                                  "[MySQL settings]\ndump line break=yes\n");
  std::uint8_t only_definitions = 0;
  p.get_flag_zero_false(L"Generic settings", L"only definitions", only_definitions);
  EXPECT_EQ(only_definitions, 1);
  std::uint8_t skip_indexes = 1;
  p.get_flag_zero_false(L"Generic settings", L"skip indexes", skip_indexes);
  EXPECT_EQ(skip_indexes, 0);
  bool line_break = false;
  p.get_flag_zero_false(L"MySQL settings", L"dump line break", line_break);
  EXPECT_TRUE(line_break);
  std::uint8_t untouched = 7;
  p.get_flag_zero_false(L"Generic settings", L"empty", untouched);
  p.get_flag_zero_false(L"Generic settings", L"absent", untouched);
  p.get_flag_zero_false(L"No section", L"skip indexes", untouched);
  EXPECT_EQ(untouched, 7);
}

TEST(ProfileFlags, OneIsTheOnlyTrue) {
  const temp_dir dir;
  const udb_profile p = load_text(dir,
                                  "[MS SQL Server settings]\nwindows authentication=2\nconnect as DBO=1\n"
                                  "dump create table=true\nempty=\n");
  std::uint8_t sec_log = 1;
  p.get_flag_one_true(L"MS SQL Server settings", L"windows authentication", sec_log);
  EXPECT_EQ(sec_log, 0);
  std::uint8_t as_dbo = 0;
  p.get_flag_one_true(L"MS SQL Server settings", L"connect as DBO", as_dbo);
  EXPECT_EQ(as_dbo, 1);
  bool create_table = true;
  p.get_flag_one_true(L"MS SQL Server settings", L"dump create table", create_table);
  EXPECT_FALSE(create_table);
  bool untouched = true;
  p.get_flag_one_true(L"MS SQL Server settings", L"empty", untouched);
  p.get_flag_one_true(L"MS SQL Server settings", L"absent", untouched);
  EXPECT_TRUE(untouched);
}

TEST(ProfileFlags, SetFlagWritesZeroOrOne) {
  udb_profile p;
  p.set_flag(L"s", L"on", true);
  p.set_flag(L"s", L"off", false);
  EXPECT_EQ(p.get_value(L"s", L"on"), L"1");
  EXPECT_EQ(p.get_value(L"s", L"off"), L"0");
}

TEST(ProfileMode, OnlyAOneCharacterValueIsRead) {
  const temp_dir dir;
  const udb_profile p = load_text(dir, "[a]\nnine=9\ntwelve=12\nempty=\nletter=a\nblank= \n");
  std::uint32_t mode = 3;
  p.get_mode(L"a", L"twelve", mode);
  EXPECT_EQ(mode, 3U);
  p.get_mode(L"a", L"empty", mode);
  p.get_mode(L"a", L"absent", mode);
  EXPECT_EQ(mode, 3U);
  p.get_mode(L"a", L"nine", mode);
  EXPECT_EQ(mode, 9U);
  p.get_mode(L"a", L"letter", mode);
  EXPECT_EQ(mode, 49U);
  p.get_mode(L"a", L"blank", mode);  // the blank is trimmed away: an empty value
  EXPECT_EQ(mode, 49U);
}

TEST(ProfileQueryText, LineBreaksBecomeSingleBlanks) {
  EXPECT_EQ(udb_profile::to_single_line(L"a\r\nb\nc\rd"), L"a b c d");
  EXPECT_EQ(udb_profile::to_single_line(L"a\r\r\nb"), L"a  b");
  EXPECT_EQ(udb_profile::to_single_line(L"a\n\rb"), L"a  b");
  EXPECT_EQ(udb_profile::to_single_line(L"\r\n\r\n"), L"  ");
  EXPECT_EQ(udb_profile::to_single_line(L"plain"), L"plain");
}

TEST(ProfileSelectedTables, BareLineAndLineEndingInEqualsSignAreBothTables) {
  const temp_dir dir;
  const udb_profile p = load_text(dir, "[Selected Tables]\ndbo.orders\ndbo.lines=\nq=select 1\n");
  EXPECT_EQ(p.sections.at(L"Selected Tables"), (pairs{{L"dbo.orders", L""}, {L"dbo.lines", L""}, {L"q", L"select 1"}}));
  // Both come back as tables when stored again.
  const std::string path = dir.file("again.qbr");
  p.store(path);
  EXPECT_EQ(read_file(path), "[Selected Tables]\ndbo.orders\ndbo.lines\nq=select 1\n\n");
}

}  // namespace
}  // namespace qb
