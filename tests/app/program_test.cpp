// The program's start and end with a headless front end: the order of the
// long-lived objects, the quick launch from a profile, the last guard.
#include "app/program.h"

#include <functional>
#include <optional>
#include <stdexcept>

#include <gtest/gtest.h>
#include <unistd.h>

#include "app/convertor.h"
#include "sql/engine.h"
#include "tk/log.h"
#include "tk/utf.h"

#include "app_fixtures.h"
#include "support/mariadb_server.h"
#include "support/temp_dir.h"

namespace qb::test {
namespace {

// A front end without windows: a headless shell, in-memory engines when
// asked, and a sheet that runs the conversion at once on this thread.
class test_front_end : public program_front_end {
 public:
  bool ui_ok = true;
  bool source_ok = true;
  bool plug_engines = true;
  bool run_conversion = false;
  int sheet_result = 7;
  std::function<void(quillbridge_convertor&)> in_sheet;  // what the sheet does besides

  memory_source_engine source;
  memory_target target;
  bool sheet_ran = false;
  bool quick_launch_seen = false;
  std::vector<headless_shell::call> shell_calls;

  bool initialize_ui() override {
    LOG(1, "front end: initialize_ui");
    return ui_ok;
  }
  void converter_created(quillbridge_convertor& converter) override {
    LOG(1, "front end: converter_created");
    if (!plug_engines) return;
    converter.set_source_engine(source);
    converter.set_target(target);
  }
  wizard_shell& create_shell(quillbridge_convertor& /*converter*/, bool quick_launch) override {
    LOG(1, "front end: create_shell(%d)", quick_launch ? 1 : 0);
    shell_.emplace();
    return *shell_;
  }
  void destroy_shell() override {
    LOG(1, "front end: destroy_shell");
    shell_calls = shell_->calls();
    shell_.reset();
  }
  bool connect_source(quillbridge_convertor& /*converter*/) override {
    LOG(1, "front end: connect_source");
    return source_ok;
  }
  int run_sheet(quillbridge_convertor& converter, wizard_shell& /*shell*/, bool quick_launch) override {
    LOG(1, "front end: run_sheet");
    shell_->set_initialized(true);
    sheet_ran = true;
    quick_launch_seen = quick_launch;
    if (in_sheet) in_sheet(converter);
    if (run_conversion) converter();
    return sheet_result;
  }

 private:
  std::optional<headless_shell> shell_;
};

class Program : public ::testing::Test {
 protected:
  [[nodiscard]] std::string log() const { return read_file(folders.path() + "/Quillbridge.log"); }
  [[nodiscard]] bool logged(const std::string& line) const { return count_lines(log(), line) > 0; }

  // A profile file with the given text.
  std::string profile(const std::string& name, const std::string& text) {
    write_file(dir.file(name), text);
    return dir.file(name);
  }

  user_folders folders;
  temp_dir dir;
  test_front_end front_end;
};

TEST_F(Program, LogFileIsInTheDocumentsFolder) {
  EXPECT_EQ(app_log_file_path(), folders.path() + "/Quillbridge.log");
  ASSERT_EQ(::mkdir((folders.path() + "/Documents").c_str(), 0700), 0);
  ASSERT_EQ(::mkdir((folders.path() + "/config").c_str(), 0700), 0);
  write_file(folders.path() + "/config/user-dirs.dirs", "XDG_DOCUMENTS_DIR=\"$HOME/Documents\"\n");
  EXPECT_EQ(app_log_file_path(), folders.path() + "/Documents/Quillbridge.log");
}

TEST_F(Program, BuildsAndTakesDownTheLongLivedObjectsInOrder) {
  EXPECT_EQ(program_main(front_end, ""), 7);

  EXPECT_TRUE(front_end.sheet_ran);
  EXPECT_FALSE(front_end.quick_launch_seen);
  EXPECT_TRUE(lines_in_order(
      log(), {"tk_error_converter::load_map (map size=27)", "tk_error_converter::load_map (map size=12)",
              "gui_initialize", "front end: initialize_ui", "udb_converter::ctor", "quillbridge_convertor::ctor",
              "serialize( 0 )", "front end: converter_created", "front end: create_shell(0)",
              "wizard_shell::ctor(Quillbridge 8.1 )", "front end: run_sheet", "front end: destroy_shell",
              "wizard_shell::dtor", "quillbridge_convertor::dtor", "serialize( 1 )"}))
      << log();
  EXPECT_FALSE(logged("front end: connect_source"));
  EXPECT_TRUE(file_exists(folders.settings_file()));
  // Every object is gone: the singletons are free again.
  EXPECT_EQ(tk_logger::try_instance(), nullptr);
  EXPECT_EQ(error_handler::try_instance(), nullptr);
  EXPECT_EQ(tk_singleton<quillbridge_convertor>::try_instance(), nullptr);
  EXPECT_EQ(wizard_shell::try_instance(), nullptr);
}

TEST_F(Program, FailedUserInterfaceEndsBeforeTheConverter) {
  front_end.ui_ok = false;
  EXPECT_EQ(program_main(front_end, ""), -1);
  EXPECT_FALSE(logged("udb_converter::ctor"));
  EXPECT_FALSE(front_end.sheet_ran);
}

TEST_F(Program, MissingProfileIsAHandledErrorBeforeTheShell) {
  EXPECT_EQ(program_main(front_end, dir.file("none.qbr")), -1);

  EXPECT_TRUE(logged("QUICK LAUNCH: profile=" + dir.file("none.qbr")));
  EXPECT_TRUE(logged("Error:\nProfile does not exist. Please verify the correct path/name was given.")) << log();
  EXPECT_TRUE(logged("wizard_shell::error(Profile does not exist. Please verify the correct path/name was given.)"));
  EXPECT_FALSE(logged("front end: create_shell(1)"));
  EXPECT_FALSE(front_end.sheet_ran);
  EXPECT_TRUE(
      lines_in_order(log(), {"udb_profile::load(" + dir.file("none.qbr") + ")", "quillbridge_convertor::dtor"}));
}

TEST_F(Program, QuotedPathIsTakenLiterally) {
  const std::string path = profile("p.qbr", "[Generic settings]\nsrc=sales\n");
  const std::string quoted = "\"" + path + "\"";

  EXPECT_EQ(program_main(front_end, quoted), -1);

  EXPECT_TRUE(logged("QUICK LAUNCH: profile=" + quoted));
  EXPECT_TRUE(logged("Error:\nProfile does not exist. Please verify the correct path/name was given."));
  EXPECT_FALSE(front_end.sheet_ran);
}

TEST_F(Program, ArgumentsAreJoinedWithSingleBlanks) {
  const std::string path = profile("my profile.qbr",
                                   "[Generic settings]\nsrc=sales\n[MySQL settings]\ndirect mode=0\n"
                                   "[Generic settings]\ndest=" +
                                       dir.file("out.sql") + "\n");
  const std::string first = dir.path() + "/my";
  const char* const argv[] = {"quillbridge", first.c_str(), "profile.qbr"};
  EXPECT_EQ(app_command_line(3, argv), path);
  EXPECT_EQ(app_command_line(1, argv), "");

  EXPECT_EQ(program_main(front_end, 3, argv), 7);
  EXPECT_TRUE(front_end.quick_launch_seen);
}

TEST_F(Program, QuickLaunchToADumpChecksTheDestinationWithoutTheServer) {
  const std::string dump = dir.file("out.sql");
  write_file(dump, "an old dump");
  memory_store& sales = front_end.source.stores.store(L"sales");
  add_people(sales, L"[dbo].[people]", 2);
  const std::string path = profile("dump.qbr", "[Generic settings]\nsrc=sales\ndest=" + dump +
                                                   "\nmode=0\n[MySQL settings]\ndirect mode=0\ndump new version=1\n"
                                                   "[Selected Tables]\ndbo.people\n");
  bool old_dump_gone = false;
  front_end.in_sheet = [&](quillbridge_convertor& converter) {
    old_dump_gone = !file_exists(dump);
    converter.mysql_engine().set_version(0x40100);  // what the dump page sets for "dump new version"
  };
  front_end.run_conversion = true;

  EXPECT_EQ(program_main(front_end, path), 7);

  EXPECT_TRUE(old_dump_gone);
  EXPECT_TRUE(lines_in_order(
      log(), {"QUICK LAUNCH: profile=" + path, "front end: create_shell(1)", "front end: connect_source",
              "quillbridge_convertor::check_dest", "common_check_dest(" + dump + ")", "front end: run_sheet"}));
  EXPECT_FALSE(logged("mysql_converter_impl::connect_mysql_server"));
  ASSERT_TRUE(front_end.target.stores.is_db_exist(tk_utf8_decode(dump)));
  const memory_table* table = front_end.target.stores.store(tk_utf8_decode(dump)).find_table(L"[dbo].[people]");
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->rows.size(), 2U);
  EXPECT_TRUE(
      logged("Table '[dbo].[people]': 2 read, 2 written, 0 not written (duplicate keys or errors), 0 warnings"));
}

TEST_F(Program, QuickLaunchToAServerConnectsThenChecksTheDestination) {
  const mariadb_server& server = mariadb_server::main();
  const std::string database = "qb_quick_" + std::to_string(::getpid());
  {
    sql_engine setup;
    setup.connect(tk_utf8_decode(server.host()), tk_utf8_decode(server.account().user),
                  tk_utf8_decode(server.account().password), server.port());
    setup.run("CREATE DATABASE IF NOT EXISTS `" + database + "`");
  }
  const std::string path =
      profile("server.qbr", "[Generic settings]\nsrc=sales\ndest=" + database +
                                "\nmode=0\n[MySQL settings]\ndirect mode=1\nhost=" + server.host() +
                                "\nport=" + std::to_string(server.port()) + "\nuser=" + server.account().user +
                                "\npassword=" + server.account().password + "\n");
  front_end.plug_engines = false;  // the server's own databases
  bool connected = false;
  bool dropped = false;
  front_end.in_sheet = [&](quillbridge_convertor& converter) {
    connected = converter.mysql_engine().is_connected();
    dropped = !converter.is_mysql_base_exist(converter.dest);
  };

  EXPECT_EQ(program_main(front_end, path), 7);

  EXPECT_TRUE(connected);
  EXPECT_TRUE(dropped);
  EXPECT_TRUE(lines_in_order(
      log(),
      {"front end: connect_source", "mysql_converter_impl::connect_mysql_server", "quillbridge_convertor::check_dest",
       "mysql_converter_impl::del_mysql_base (" + database + ")", "front end: run_sheet"}));
}

TEST_F(Program, FailedSourceConnectionEndsTheQuickLaunch) {
  const std::string path = profile("p.qbr", "[Generic settings]\nsrc=sales\n[MySQL settings]\ndirect mode=0\n");
  front_end.source_ok = false;

  EXPECT_EQ(program_main(front_end, path), -1);

  EXPECT_FALSE(front_end.sheet_ran);
  EXPECT_FALSE(logged("quillbridge_convertor::check_dest"));
  EXPECT_TRUE(lines_in_order(log(), {"front end: destroy_shell", "quillbridge_convertor::dtor"}));
}

TEST_F(Program, FailureOfTheFamilyGoesToTheErrorHandler) {
  front_end.in_sheet = [](quillbridge_convertor&) { throw tk_exception("The sheet failed", 1); };

  EXPECT_EQ(program_main(front_end, ""), -1);

  EXPECT_TRUE(logged("Error:\nThe sheet failed"));
  ASSERT_EQ(front_end.shell_calls.size(), 1U);
  EXPECT_EQ(front_end.shell_calls[0].kind, headless_shell::call_kind::error);
  EXPECT_EQ(front_end.shell_calls[0].text, L"The sheet failed");
  EXPECT_TRUE(
      lines_in_order(log(), {"Error:\nThe sheet failed", "front end: destroy_shell", "quillbridge_convertor::dtor"}));
}

TEST_F(Program, StandardFailureGoesToTheShell) {
  front_end.in_sheet = [](quillbridge_convertor&) { throw std::runtime_error("sheet broke"); };

  EXPECT_EQ(program_main(front_end, ""), -1);

  ASSERT_EQ(front_end.shell_calls.size(), 1U);
  EXPECT_EQ(front_end.shell_calls[0].text, L"sheet broke");
  EXPECT_FALSE(logged("error_handler::handle"));
}

}  // namespace
}  // namespace qb::test
