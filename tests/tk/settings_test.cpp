#include "tk/settings.h"

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

using test::lines_in_order;
using test::log_capture;
using test::read_file;
using test::scoped_env;
using test::temp_dir;
using test::write_file;

constexpr char k_header[] =
    "# Per-user settings of Quillbridge (Software\\Varnholt\\Quillbridge).\n"
    "# One value a line: name=kind:value, kind is dword, text or wtext.\n";

unsigned file_mode(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(::stat(path.c_str(), &st), 0) << path;
  return st.st_mode & 07777;
}

std::vector<std::string> files_in(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

// A scratch configuration folder for one test.
class settings_home {
 public:
  settings_home() : env_("XDG_CONFIG_HOME", dir_.path()) {}
  [[nodiscard]] std::string folder() const { return dir_.file("Varnholt"); }
  [[nodiscard]] std::string file() const { return dir_.file("Varnholt/Quillbridge.conf"); }

 private:
  temp_dir dir_;
  scoped_env env_;
};

void open_product_key(tk_reg_key& key) { ASSERT_EQ(key.create(tk_reg_root::current_user, tk_product_reg_path), 0); }

// --- Opening --------------------------------------------------------------------------------

TEST(SettingsKey, ProductKeyIsAFileInTheUsersConfigurationFolder) {
  const settings_home home;
  tk_reg_key key;
  std::uint32_t disposition = 0;
  EXPECT_EQ(key.create(tk_reg_root::current_user, tk_product_reg_path, &disposition), 0);
  EXPECT_EQ(disposition, tk_reg_created_new_key);
  EXPECT_TRUE(key.is_open());
  EXPECT_EQ(key.file_path(), home.file());
  EXPECT_EQ(read_file(home.file()), k_header);
  EXPECT_EQ(file_mode(home.folder()), 0700U);
  EXPECT_EQ(file_mode(home.file()), 0600U);

  tk_reg_key again;
  EXPECT_EQ(again.create(tk_reg_root::current_user, tk_product_reg_path, &disposition), 0);
  EXPECT_EQ(disposition, tk_reg_opened_existing_key);
}

TEST(SettingsKey, WithoutXdgConfigHomeTheFolderIsDotConfigInHome) {
  const temp_dir home;
  const scoped_env unset("XDG_CONFIG_HOME", std::nullopt);
  const scoped_env set_home("HOME", home.path());
  tk_reg_key key;
  open_product_key(key);
  EXPECT_EQ(key.file_path(), home.file(".config/Varnholt/Quillbridge.conf"));
  EXPECT_EQ(file_mode(home.file(".config")), 0700U);
  EXPECT_EQ(file_mode(home.file(".config/Varnholt")), 0700U);
  EXPECT_EQ(file_mode(key.file_path()), 0600U);
}

TEST(SettingsKey, ExistingFolderKeepsItsMode) {
  const settings_home home;
  ASSERT_EQ(::mkdir(home.folder().c_str(), 0755), 0);
  tk_reg_key key;
  open_product_key(key);
  EXPECT_EQ(file_mode(home.folder()), 0755U);
}

TEST(SettingsKey, PathsThatNameNoFileAreRefused) {
  const settings_home home;
  tk_reg_key key;
  EXPECT_EQ(key.create(tk_reg_root::current_user, "Software"), EINVAL);
  EXPECT_EQ(key.create(tk_reg_root::current_user, "Software\\\\Quillbridge"), EINVAL);
  EXPECT_EQ(key.create(tk_reg_root::current_user, "Software\\..\\x"), EINVAL);
  EXPECT_EQ(key.create(tk_reg_root::current_user, "Software\\a/b"), EINVAL);
  EXPECT_FALSE(key.is_open());
  EXPECT_EQ(key.create(tk_reg_root::current_user, "Software\\Varnholt\\Other\\Sub"), 0);
  EXPECT_EQ(key.file_path(), home.folder() + "/Other/Sub.conf");
}

TEST(SettingsKey, FolderThatCannotBeMadeGivesTheSystemsCode) {
  const settings_home home;
  write_file(home.folder(), "a file where the folder should be");
  tk_reg_key key;
  EXPECT_EQ(key.create(tk_reg_root::current_user, tk_product_reg_path), ENOTDIR);
  EXPECT_FALSE(key.is_open());
}

// --- Values -------------------------------------------------------------------------------------

TEST(SettingsKey, ReadingAMissingValueReturnsTheSystemsCodeAndLeavesTheReference) {
  log_capture log;
  const settings_home home;
  tk_reg_key key;
  open_product_key(key);
  std::uint32_t number = 77;
  std::string narrow = "kept";
  std::wstring wide = L"kept";
  EXPECT_EQ(key.get_value("dmp_line_br", number), ENOENT);
  EXPECT_EQ(key.get_value("host", narrow), ENOENT);
  EXPECT_EQ(key.get_value("src", wide), ENOENT);
  EXPECT_EQ(number, 77U);
  EXPECT_EQ(narrow, "kept");
  EXPECT_EQ(wide, L"kept");
  EXPECT_TRUE(lines_in_order(
      log.text(), {"tk_reg_key::get_value(ulong, dmp_line_br)", "type=0, size=0", "tk_reg_key::get_value(LPSTR, host)",
                   "type=0, size=0", "tk_reg_key::get_value(LPWSTR, src)", "type=0, size=0"}));
}

TEST(SettingsKey, ValuesOfEachKindSurviveAFlushAndANewKey) {
  log_capture log;
  const settings_home home;
  {
    tk_reg_key key;
    open_product_key(key);
    key.set_value("dmp_line_br", 1U);
    key.set_value("port", "3306");
    key.set_value("char_set", L"utf8mb4");
    key.set_value("mssqlu", L"\u00C5sa");
    EXPECT_EQ(key.flush(), 0);
  }
  EXPECT_EQ(read_file(home.file()), std::string(k_header) +
                                        "char_set=wtext:utf8mb4\n"
                                        "dmp_line_br=dword:1\n"
                                        "mssqlu=wtext:\xC3\x85sa\n"
                                        "port=text:3306\n");
  tk_reg_key key;
  open_product_key(key);
  std::uint32_t number = 0;
  std::string narrow;
  std::wstring wide;
  EXPECT_EQ(key.get_value("dmp_line_br", number), 0);
  EXPECT_EQ(number, 1U);
  EXPECT_EQ(key.get_value("port", narrow), 0);
  EXPECT_EQ(narrow, "3306");
  EXPECT_EQ(key.get_value("mssqlu", wide), 0);
  EXPECT_EQ(wide, L"\u00C5sa");
  EXPECT_TRUE(lines_in_order(
      log.text(), {"tk_reg_key::get_value(ulong, dmp_line_br)", "type=4, size=4", "tk_reg_key::get_value(LPSTR, port)",
                   "type=1, size=5", "tk_reg_key::get_value(LPWSTR, mssqlu)", "type=1, size=8"}));
}

TEST(SettingsKey, NumberAskedAsTextAndTextAskedAsNumberAreRefused) {
  const settings_home home;
  tk_reg_key key;
  open_product_key(key);
  key.set_value("n", 5U);
  key.set_value("t", "text");
  std::string narrow = "kept";
  std::wstring wide = L"kept";
  std::uint32_t number = 9;
  EXPECT_EQ(key.get_value("n", narrow), EINVAL);
  EXPECT_EQ(key.get_value("n", wide), EINVAL);
  EXPECT_EQ(key.get_value("t", number), EINVAL);
  EXPECT_EQ(narrow, "kept");
  EXPECT_EQ(wide, L"kept");
  EXPECT_EQ(number, 9U);
}

TEST(SettingsKey, NarrowAndWideTextReadEachOther) {
  const settings_home home;
  tk_reg_key key;
  open_product_key(key);
  key.set_value("narrow", "plain");
  key.set_value("wide", L"also plain");
  std::wstring wide;
  std::string narrow;
  EXPECT_EQ(key.get_value("narrow", wide), 0);
  EXPECT_EQ(wide, L"plain");
  EXPECT_EQ(key.get_value("wide", narrow), 0);
  EXPECT_EQ(narrow, "also plain");
}

TEST(SettingsKey, AwkwardTextIsKeptExactly) {
  const settings_home home;
  static constexpr char k_raw[] = "pa\\ss\nwo=rd:\r\t\x01\x7F \xFF\xC3\xA9\xED\xA0\x80\0end";
  const std::string narrow_in(k_raw, sizeof k_raw - 1);
  const std::wstring wide_in = std::wstring(L"a\\b\nc\u00E9\U0001F600\x7F") + std::wstring(1, L'\0') +
                               std::wstring(1, static_cast<wchar_t>(0xD800)) +
                               std::wstring(1, static_cast<wchar_t>(0x110000)) + L" ";
  {
    tk_reg_key key;
    open_product_key(key);
    key.set_value("n", narrow_in);
    key.set_value("w", wide_in);
    key.set_value("empty", "");
    ASSERT_EQ(key.close(), 0);
  }
  const std::string file = read_file(home.file());
  EXPECT_NE(file.find("n=text:pa\\\\ss\\nwo=rd:\\r\\t\\x01\\x7F \\xFF\xC3\xA9\\xED\\xA0\\x80\\x00end\n"),
            std::string::npos)
      << file;
  EXPECT_NE(file.find("empty=text:\n"), std::string::npos);
  tk_reg_key key;
  open_product_key(key);
  std::string narrow;
  std::wstring wide;
  std::string empty = "x";
  EXPECT_EQ(key.get_value("n", narrow), 0);
  EXPECT_EQ(narrow, narrow_in);
  EXPECT_EQ(key.get_value("w", wide), 0);
  EXPECT_EQ(wide, wide_in);
  EXPECT_EQ(key.get_value("empty", empty), 0);
  EXPECT_EQ(empty, "");
}

TEST(SettingsKey, FlushWritesAtomicallyWithMode0600) {
  const settings_home home;
  tk_reg_key key;
  open_product_key(key);
  ASSERT_EQ(::chmod(home.file().c_str(), 0644), 0);
  key.set_value("host", "db1");
  EXPECT_EQ(key.flush(), 0);
  EXPECT_EQ(file_mode(home.file()), 0600U);
  EXPECT_EQ(files_in(home.folder()), (std::vector<std::string>{"Quillbridge.conf"}));
}

TEST(SettingsKey, ChangesOfTwoKeysOnTheSameFileAreBothKept) {
  const settings_home home;
  tk_reg_key first;
  tk_reg_key second;
  open_product_key(first);
  open_product_key(second);
  first.set_value("host", "from first");
  second.set_value("user", "from second");
  EXPECT_EQ(first.flush(), 0);
  EXPECT_EQ(second.flush(), 0);
  tk_reg_key third;
  open_product_key(third);
  std::string host;
  std::string user;
  EXPECT_EQ(third.get_value("host", host), 0);
  EXPECT_EQ(third.get_value("user", user), 0);
  EXPECT_EQ(host, "from first");
  EXPECT_EQ(user, "from second");
}

TEST(SettingsKey, DestructorWritesPendingChanges) {
  const settings_home home;
  {
    tk_reg_key key;
    open_product_key(key);
    key.set_value("direct", 0U);
  }
  EXPECT_EQ(read_file(home.file()), std::string(k_header) + "direct=dword:0\n");
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

TEST(SettingsKey, FailedFlushReportsTheCodeKeepsTheFileAndTheChanges) {
  const settings_home home;
  tk_reg_key key;
  open_product_key(key);
  key.set_value("host", "db1");
  ASSERT_EQ(key.flush(), 0);
  const std::string before = read_file(home.file());
  key.set_value("big", std::string(8000, 'x'));
  {
    const file_size_limit limit(4096);
    EXPECT_EQ(key.flush(), EFBIG);
  }
  EXPECT_EQ(read_file(home.file()), before);
  EXPECT_EQ(files_in(home.folder()), (std::vector<std::string>{"Quillbridge.conf"}));
  EXPECT_EQ(key.flush(), 0);  // still pending, written now
  EXPECT_NE(read_file(home.file()).find("big=text:xxx"), std::string::npos);
}

TEST(SettingsKey, ClosedKeyReadsNothingAndWritingIsAnInternalError) {
  const settings_home home;
  tk_reg_key key;
  std::uint32_t number = 3;
  EXPECT_EQ(key.get_value("x", number), EBADF);
  EXPECT_EQ(number, 3U);
  EXPECT_THROW(key.set_value("x", 1U), tk_mail_assertion);
  EXPECT_EQ(key.flush(), 0);
  open_product_key(key);
  EXPECT_THROW(key.set_value("a=b", 1U), tk_mail_assertion);
  EXPECT_THROW(key.set_value("a\nb", 1U), tk_mail_assertion);
  EXPECT_THROW(key.get_value(nullptr, number), tk_mail_assertion);
  EXPECT_EQ(key.close(), 0);
  EXPECT_FALSE(key.is_open());
  EXPECT_EQ(key.get_value("x", number), EBADF);
}

// --- A damaged file ------------------------------------------------------------------------

TEST(SettingsKey, DamagedFileLoadsWhatItCan) {
  log_capture log;
  const settings_home home;
  ASSERT_EQ(::mkdir(home.folder().c_str(), 0700), 0);
  write_file(home.file(),
             "# comment\n"
             "good=dword:42\r\n"
             "no equals sign\n"
             "nokind=42\n"
             "bad kind=float:1.5\n"
             "too big=dword:4294967296\n"
             "neg=dword:-1\n"
             "bad escape=text:a\\qb\n"
             "cut escape=wtext:\\U0001F6\n"
             "latin1=text:caf\xE9\n"
             "\n"
             "dup=text:first\n"
             "dup=text:second\n" +
                 std::string(2 << 20, 'z') +
                 "\n"
                 "last=wtext:ok\\U0001F600");
  tk_reg_key key;
  open_product_key(key);
  std::uint32_t number = 0;
  std::string narrow;
  std::wstring wide;
  EXPECT_EQ(key.get_value("good", number), 0);
  EXPECT_EQ(number, 42U);
  EXPECT_EQ(key.get_value("dup", narrow), 0);
  EXPECT_EQ(narrow, "second");
  EXPECT_EQ(key.get_value("last", wide), 0);
  EXPECT_EQ(wide, L"ok\U0001F600");
  for (const char* name : {"nokind", "bad kind", "too big", "neg", "bad escape", "cut escape", "latin1"}) {
    EXPECT_EQ(key.get_value(name, narrow), ENOENT) << name;
  }
  for (const int line : {3, 4, 5, 6, 7, 8, 9, 10, 14}) {
    EXPECT_TRUE(log.has_line("Line " + std::to_string(line) + " of the settings file " + home.file() +
                             " cannot be read and is skipped"))
        << line;
  }
  // The next write keeps the values that were read.
  key.set_value("host", "h");
  EXPECT_EQ(key.flush(), 0);
  EXPECT_EQ(read_file(home.file()), std::string(k_header) +
                                        "dup=text:second\n"
                                        "good=dword:42\n"
                                        "host=text:h\n"
                                        "last=wtext:ok\xF0\x9F\x98\x80\n");
}

TEST(SettingsKey, BinaryGarbageNeverCrashes) {
  const settings_home home;
  ASSERT_EQ(::mkdir(home.folder().c_str(), 0700), 0);
  std::mt19937 random(11);
  for (int round = 0; round < 100; ++round) {
    std::string bytes(static_cast<std::size_t>(random() % 6000), '\0');
    for (char& b : bytes) {
      const unsigned r = random() % 12;
      b = r == 0 ? '\n' : r == 1 ? '=' : r == 2 ? ':' : r == 3 ? '\\' : static_cast<char>(random() & 0xFF);
    }
    write_file(home.file(), "ok=dword:1\n" + bytes + "\nalso=text:fine\n");
    tk_reg_key key;
    open_product_key(key);
    std::uint32_t number = 0;
    std::string text;
    EXPECT_EQ(key.get_value("ok", number), 0);
    EXPECT_EQ(number, 1U);
    EXPECT_EQ(key.get_value("also", text), 0);
    EXPECT_EQ(text, "fine");
  }
}

// --- Exchange helpers -----------------------------------------------------------------------

TEST(SettingsExchange, StoresAndReadsEachKind) {
  const settings_home home;
  {
    tk_reg_key key;
    open_product_key(key);
    bool direct = false;
    std::uint8_t sec_log = 5;
    std::uint32_t line_break = 1;
    std::string port = "3307";
    std::wstring src = L"sales";
    EXPECT_TRUE(tk_reg_exchange(key, "direct", direct, true));
    EXPECT_TRUE(tk_reg_exchange(key, "sec_log", sec_log, true));
    EXPECT_TRUE(tk_reg_exchange(key, "dmp_line_br", line_break, true));
    EXPECT_TRUE(tk_reg_exchange(key, "port", port, true));
    EXPECT_TRUE(tk_reg_exchange(key, "src", src, true));
    EXPECT_EQ(key.close(), 0);
  }
  EXPECT_EQ(read_file(home.file()), std::string(k_header) +
                                        "direct=dword:0\n"
                                        "dmp_line_br=dword:1\n"
                                        "port=text:3307\n"
                                        "sec_log=dword:1\n"
                                        "src=wtext:sales\n");
  tk_reg_key key;
  open_product_key(key);
  bool direct = true;
  std::uint8_t sec_log = 0;
  std::uint32_t line_break = 0;
  std::string port;
  std::wstring src;
  EXPECT_TRUE(tk_reg_exchange(key, "direct", direct, false));
  EXPECT_TRUE(tk_reg_exchange(key, "sec_log", sec_log, false));
  EXPECT_TRUE(tk_reg_exchange(key, "dmp_line_br", line_break, false));
  EXPECT_TRUE(tk_reg_exchange(key, "port", port, false));
  EXPECT_TRUE(tk_reg_exchange(key, "src", src, false));
  EXPECT_FALSE(direct);
  EXPECT_EQ(sec_log, 1);
  EXPECT_EQ(line_break, 1U);
  EXPECT_EQ(port, "3307");
  EXPECT_EQ(src, L"sales");
}

TEST(SettingsExchange, AnyNonZeroNumberReadsAsTrue) {
  const settings_home home;
  tk_reg_key key;
  open_product_key(key);
  key.set_value("flag", 256U);
  bool b = false;
  std::uint8_t byte = 0;
  EXPECT_TRUE(tk_reg_exchange(key, "flag", b, false));
  EXPECT_TRUE(tk_reg_exchange(key, "flag", byte, false));
  EXPECT_TRUE(b);
  EXPECT_EQ(byte, 1);
}

TEST(SettingsExchange, MissingValueGivesFalseAndLeavesTheReference) {
  const settings_home home;
  tk_reg_key key;
  open_product_key(key);
  bool b = true;
  std::uint8_t byte = 1;
  std::uint32_t number = 3306;
  std::string narrow = "default";
  std::wstring wide = L"InnoDB";
  EXPECT_FALSE(tk_reg_exchange(key, "as_dbo", b, false));
  EXPECT_FALSE(tk_reg_exchange(key, "view_owned", byte, false));
  EXPECT_FALSE(tk_reg_exchange(key, "dmp_line_br", number, false));
  EXPECT_FALSE(tk_reg_exchange(key, "user", narrow, false));
  EXPECT_FALSE(tk_reg_exchange(key, "tab_type", wide, false));
  EXPECT_TRUE(b);
  EXPECT_EQ(byte, 1);
  EXPECT_EQ(number, 3306U);
  EXPECT_EQ(narrow, "default");
  EXPECT_EQ(wide, L"InnoDB");
}

TEST(SettingsExchange, ClosedKeyGivesFalseBothWays) {
  tk_reg_key key;
  bool b = true;
  std::string narrow = "x";
  EXPECT_FALSE(tk_reg_exchange(key, "a", b, true));
  EXPECT_FALSE(tk_reg_exchange(key, "a", b, false));
  EXPECT_FALSE(tk_reg_exchange(key, "a", narrow, true));
  EXPECT_TRUE(b);
  EXPECT_EQ(narrow, "x");
}

TEST(SettingsSerializer, OpensTheProductKey) {
  const settings_home home;
  tk_serializer serializer;
  EXPECT_TRUE(serializer.reg_key().is_open());
  EXPECT_EQ(serializer.reg_key().file_path(), home.file());
}

TEST(SettingsSerializer, KeyThatCannotBeOpenedStaysClosedAndIsLogged) {
  log_capture log;
  const settings_home home;
  write_file(home.folder(), "not a folder");
  tk_serializer serializer;
  EXPECT_FALSE(serializer.reg_key().is_open());
  EXPECT_TRUE(log.has_line("Cannot open the settings key Software\\Varnholt\\Quillbridge (error " +
                           std::to_string(ENOTDIR) + ")"));
  bool flag = true;
  EXPECT_FALSE(tk_reg_exchange(serializer.reg_key(), "direct", flag, false));
  EXPECT_FALSE(tk_reg_exchange(serializer.reg_key(), "direct", flag, true));
}

}  // namespace
}  // namespace qb
