// The product's converter: construction and per-user settings, the front
// ends of both engines, the destination checks.
#include "app/convertor.h"

#include <set>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tk/strings.h"
#include "tk/utf.h"

#include "app_fixtures.h"
#include "support/mariadb_server.h"
#include "support/temp_dir.h"

namespace qb::test {
namespace {

class Convertor : public ::testing::Test {
 protected:
  Convertor() {
    converter.set_source_engine(source);
    converter.set_target(target);
    converter.src = L"sales";
  }

  // The message of a failure of f, or "" when it does not fail.
  template <class F>
  static std::string failure_of(F f) {
    try {
      f();
    } catch (const tk_exception& e) {
      return e.what();
    }
    return {};
  }

  user_folders folders;
  log_capture capture;
  handler_and_shell ui;
  memory_source_engine source;
  memory_target target;
  quillbridge_convertor converter;
};

// --- construction and per-user settings --------------------------------------------

TEST_F(Convertor, ConstructionRunsItsPartsInOrderAndRegisters) {
  EXPECT_TRUE(lines_in_order(capture.text(), {"udb_converter::ctor", "sql_engine::initialize",
                                              "quillbridge_convertor::ctor", "serialize( 0 )"}));
  EXPECT_EQ(tk_singleton<quillbridge_convertor>::try_instance(), &converter);
  EXPECT_EQ(tk_singleton<sql_engine>::try_instance(), &converter.mysql_engine());
  EXPECT_EQ(tk_singleton<mss_engine>::try_instance(), &converter.mssql_engine());
  EXPECT_TRUE(lines_in_order(capture.text(), {"udb_converter::ctor", "mss_engine::ctor", "sql_engine::initialize"}));
}

TEST_F(Convertor, SecondConverterLeavesTheFirstInPlaceAndClearsItAtItsEnd) {
  {
    quillbridge_convertor second;
    EXPECT_EQ(tk_singleton<quillbridge_convertor>::try_instance(), &converter);
  }
  EXPECT_EQ(tk_singleton<quillbridge_convertor>::try_instance(), nullptr);
}

TEST_F(Convertor, StartsWithTheDefaultsWhenNothingIsSaved) {
  EXPECT_EQ(converter.mode, 0U);
  EXPECT_EQ(converter.direct, 1);
  EXPECT_EQ(converter.convert_views, 1);
  EXPECT_EQ(converter.only_definitions, 0);
  EXPECT_EQ(converter.skip_indexes, 0);
  EXPECT_EQ(converter.port, "3306");
  EXPECT_EQ(converter.mysql_engine().charset(), L"utf8");
  EXPECT_EQ(converter.mysql_engine().storage_engine(), L"InnoDB");
  EXPECT_EQ(converter.b_sec_log, 1);
  EXPECT_EQ(converter.as_dbo, 1);
  EXPECT_EQ(converter.is_view_owned, 1);
  const mysql_dump_options& dump = converter.mysql_converter_impl::dump_options;
  EXPECT_EQ(dump.line_break, 0U);
  EXPECT_EQ(dump.new_version, 1);
  EXPECT_EQ(dump.add_lock, 1);
  EXPECT_EQ(dump.insert_comments, 1);
  EXPECT_EQ(dump.create_database, 0);
  EXPECT_EQ(dump.create_table, 1);
  EXPECT_TRUE(converter.reserved_text1.empty());
  EXPECT_TRUE(converter.reserved_text2.empty());
}

TEST_F(Convertor, PerUserSettingsAreSavedAtTheEndAndReadAtTheStart) {
  {
    quillbridge_convertor first;
    first.mysql_converter_impl::dump_options.line_break = 1;
    first.mysql_converter_impl::dump_options.new_version = 0;
    first.as_dbo = 0;
    first.mysql_engine().set_charset(L"latin1");
    first.convert_views = 0;
    first.dest = L"shop";
    first.direct = 0;
    first.mysql_converter_impl::host = "db1";
    first.log_file = "/tmp/q.log";
    first.port = "3307";
    first.mysql_converter_impl::password = "secret";
    first.mss_schema = L"sales";
    first.mssql_converter_impl::host = L"mssql1";
    first.mssql_converter_impl::password = L"pw";
    first.mssql_converter_impl::user = L"Åsa";
    first.b_sec_log = 0;
    first.skip_indexes = 1;
    first.src = L"crm";
    first.only_definitions = 1;
    first.mysql_engine().set_storage_engine(L"MyISAM");
    first.mysql_converter_impl::user = "root";
    first.is_view_owned = 0;
  }
  EXPECT_TRUE(capture.has_line("quillbridge_convertor::dtor"));
  EXPECT_TRUE(capture.has_line("serialize( 1 )"));

  const std::string text = read_file(folders.settings_file());
  for (const char* line : {"dmp_line_br=dword:1", "dmp_new_ver=dword:0", "as_dbo=dword:0", "char_set=wtext:latin1",
                           "direct=dword:0", "host=text:db1", "port=text:3307", "pswd=text:secret", "mssqlu=wtext:Åsa",
                           "tab_type=wtext:MyISAM", "view_owned=dword:0"}) {
    EXPECT_NE(text.find(std::string(line) + "\n"), std::string::npos) << line;
  }
  struct stat info {};
  ASSERT_EQ(::stat(folders.settings_file().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600U);

  quillbridge_convertor second;
  EXPECT_EQ(second.mysql_converter_impl::dump_options.line_break, 1U);
  EXPECT_EQ(second.mysql_converter_impl::dump_options.new_version, 0);
  EXPECT_EQ(second.as_dbo, 0);
  EXPECT_EQ(second.mysql_engine().charset(), L"latin1");
  EXPECT_EQ(second.convert_views, 0);
  EXPECT_EQ(second.dest, L"shop");
  EXPECT_EQ(second.direct, 0);
  EXPECT_EQ(second.mysql_converter_impl::host, "db1");
  EXPECT_EQ(second.log_file, "/tmp/q.log");
  EXPECT_EQ(second.port, "3307");
  EXPECT_EQ(second.mysql_converter_impl::password, "secret");
  EXPECT_EQ(second.mss_schema, L"sales");
  EXPECT_EQ(second.mssql_converter_impl::host, L"mssql1");
  EXPECT_EQ(second.mssql_converter_impl::password, L"pw");
  EXPECT_EQ(second.mssql_converter_impl::user, L"Åsa");
  EXPECT_EQ(second.b_sec_log, 0);
  EXPECT_EQ(second.skip_indexes, 1);
  EXPECT_EQ(second.src, L"crm");
  EXPECT_EQ(second.only_definitions, 1);
  EXPECT_EQ(second.mysql_engine().storage_engine(), L"MyISAM");
  EXPECT_EQ(second.mysql_converter_impl::user, "root");
  EXPECT_EQ(second.is_view_owned, 0);
}

TEST_F(Convertor, PerUserSettingsUseTheNamesOfTheRegistryTable) {
  { quillbridge_convertor saved; }
  std::set<std::string> names;
  const std::string text = read_file(folders.settings_file());
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    const std::string line = text.substr(start, end - start);
    if (!line.empty() && line[0] != '#') names.insert(line.substr(0, line.find('=')));
    start = end + 1;
  }
  const std::set<std::string> expected{
      "dmp_line_br", "dmp_new_ver",   "dmp_loc_wri", "dmp_ins_com", "dmp_ins_db", "dmp_ins_tab", "as_dbo",
      "char_set",    "convert_views", "dest",        "direct",      "host",       "log_file",    "port",
      "pswd",        "mss_schema",    "mssqlh",      "mssqlp",      "mssqlu",     "sec_log",     "skip_idx",
      "src",         "tab_def",       "tab_type",    "user",        "view_owned"};
  EXPECT_EQ(names, expected);
  EXPECT_NE(text.find("port=text:3306\n"), std::string::npos);
  EXPECT_NE(text.find("tab_type=wtext:InnoDB\n"), std::string::npos);
  EXPECT_NE(text.find("dmp_ins_tab=dword:1\n"), std::string::npos);
  EXPECT_NE(text.find("dmp_ins_db=dword:0\n"), std::string::npos);
}

// --- the open modes ----------------------------------------------------------------

TEST(ConvertorOpenMode, FollowsTheScenario) {
  EXPECT_EQ(app_dest_open_mode(0), 164U);
  EXPECT_EQ(app_dest_open_mode(1), 168U);
  EXPECT_EQ(app_dest_open_mode(2), 168U);
  EXPECT_EQ(app_dest_open_mode(3), 168U);
  EXPECT_EQ(app_dest_open_mode(4), 416U);
  EXPECT_EQ(app_dest_open_mode(9), 168U);  // a digit beyond the scenarios acts as an update
  EXPECT_EQ(udb_open_source_views, 33U);
  EXPECT_EQ(udb_open_source_tables, 161U);
  EXPECT_EQ(udb_open_dest_synchronize & udb_open_replace, udb_open_replace);
  EXPECT_EQ(udb_open_source_tables & udb_open_no_views, udb_open_no_views);
}

// --- the destination ------------------------------------------------------------------

TEST_F(Convertor, ServerDatabaseThatExistsIsOpenedByTheScenario) {
  static_cast<void>(target.stores.create_db(L"shop"));
  converter.dest = L"shop";
  for (const std::uint32_t mode : {0U, 1U, 3U, 4U}) {
    converter.mode = mode;
    std::unique_ptr<udb_database> db = converter.get_dest_base();
    EXPECT_EQ(db->mode(), app_dest_open_mode(mode));
  }
  EXPECT_EQ(target.open_modes, (std::vector<std::uint32_t>{164, 168, 168, 416}));
  EXPECT_TRUE(target.created.empty());
  EXPECT_TRUE(lines_in_order(capture.text(), {"quillbridge_convertor::get_dest_base", "mode=00000004"}));
}

TEST_F(Convertor, ServerDatabaseThatIsMissingIsCreated) {
  converter.dest = L"shop";
  std::unique_ptr<udb_database> db = converter.get_dest_base();
  EXPECT_EQ(target.created, (std::vector<std::wstring>{L"shop"}));
  EXPECT_TRUE(target.open_modes.empty());
}

TEST_F(Convertor, DumpIsMadeWithTheProgramsTitle) {
  converter.direct = 0;
  converter.dest = L"/tmp/out.sql";
  std::unique_ptr<udb_database> db = converter.get_dest_base();
  ASSERT_EQ(target.dumps.size(), 1U);
  EXPECT_EQ(target.dumps[0].first, L"/tmp/out.sql");
  EXPECT_EQ(target.dumps[0].second.title, "Quillbridge 8.1 ");
  EXPECT_TRUE(target.created.empty());
}

TEST_F(Convertor, OverwriteDropsAnExistingServerDatabase) {
  static_cast<void>(target.stores.create_db(L"shop"));
  converter.dest = L"shop";
  converter.check_dest();
  EXPECT_EQ(target.deleted, (std::vector<std::wstring>{L"shop"}));
  EXPECT_TRUE(lines_in_order(capture.text(),
                             {"quillbridge_convertor::check_dest", "mysql_converter_impl::is_mysql_base_exist( shop )",
                              "mysql_converter_impl::del_mysql_base (shop)"}));
}

TEST_F(Convertor, OverwriteOfAMissingServerDatabaseDeletesNothing) {
  converter.dest = L"shop";
  converter.check_dest();
  EXPECT_TRUE(target.deleted.empty());
}

TEST_F(Convertor, OtherScenariosLeaveTheServerDatabaseAlone) {
  static_cast<void>(target.stores.create_db(L"shop"));
  converter.dest = L"shop";
  for (const std::uint32_t mode : {1U, 2U, 3U, 4U, 9U}) {
    converter.mode = mode;
    converter.check_dest();
  }
  EXPECT_TRUE(target.deleted.empty());
}

TEST_F(Convertor, ExistingWritableDumpFileIsDeletedBeforeTheRun) {
  temp_dir dir;
  write_file(dir.file("out.sql"), "old");
  converter.direct = 0;
  converter.dest = tk_ansi_to_wide(dir.file("out.sql"));
  converter.check_dest();
  EXPECT_FALSE(file_exists(dir.file("out.sql")));
  EXPECT_TRUE(capture.has_line("common_check_dest(" + dir.file("out.sql") + ")"));
}

TEST_F(Convertor, NewDumpFileInAWritableFolderPasses) {
  temp_dir dir;
  converter.direct = 0;
  converter.dest = tk_ansi_to_wide(dir.file("new.sql"));
  converter.check_dest();
  EXPECT_FALSE(file_exists(dir.file("new.sql")));
}

TEST(CommonCheckDest, RefusesAFolder) {
  temp_dir dir;
  try {
    common_check_dest(tk_ansi_to_wide(dir.path()));
    FAIL() << "a folder passed";
  } catch (const tk_exception_ex& e) {
    EXPECT_STREQ(e.what(), "Destination name should specify a file, not folder.");
    EXPECT_EQ(e.level(), 1);
  }
  try {
    common_check_dest(L"");
    FAIL() << "an empty name passed";
  } catch (const tk_exception_ex& e) {
    EXPECT_STREQ(e.what(), "Destination name should specify a file, not folder.");
  }
}

TEST(CommonCheckDest, RefusesAReadOnlyFile) {
  temp_dir dir;
  write_file(dir.file("ro.sql"), "x");
  ASSERT_EQ(::chmod(dir.file("ro.sql").c_str(), 0444), 0);
  try {
    common_check_dest(tk_ansi_to_wide(dir.file("ro.sql")));
    FAIL() << "a read-only file passed";
  } catch (const tk_exception_ex& e) {
    EXPECT_STREQ(e.what(), "Destination name specifies an existing read-only file.");
  }
}

TEST(CommonCheckDest, RefusesAMissingFolder) {
  temp_dir dir;
  try {
    common_check_dest(tk_ansi_to_wide(dir.file("no/such/out.sql")));
    FAIL() << "a missing folder passed";
  } catch (const tk_exception_ex& e) {
    EXPECT_STREQ(e.what(), "Destination path does not exist.\nPlease verify the correct path was given.");
  }
}

TEST(CommonCheckDest, RefusesAFolderWithoutWriteAccess) {
  // Nobody creates files in /proc, whatever the user (the tests may run as
  // root, for whom permission bits do not count).
  try {
    common_check_dest(L"/proc/quillbridge-out.sql");
    FAIL() << "a folder without write access passed";
  } catch (const tk_exception_ex& e) {
    EXPECT_STREQ(
        e.what(),
        "Cannot create or write into the destination file.\nRun the program as Administrator or change folder.");
  }
}

TEST_F(Convertor, DumpDestinationCheckFailuresStopCheckDest) {
  temp_dir dir;
  converter.direct = 0;
  converter.dest = tk_ansi_to_wide(dir.path());
  EXPECT_EQ(failure_of([&] { converter.check_dest(); }), "Destination name should specify a file, not folder.");
}

// --- views -------------------------------------------------------------------------------

TEST_F(Convertor, DumpFileAlwaysTakesViews) {
  converter.direct = 0;
  converter.mysql_engine().set_version(0x031401);
  EXPECT_TRUE(converter.can_create_views());
  EXPECT_TRUE(capture.has_line("quillbridge_convertor::can_create_views"));
}

TEST_F(Convertor, ServerTakesViewsAboveVersion500) {
  converter.mysql_engine().set_version(0x50000);
  EXPECT_FALSE(converter.can_create_views());
  converter.mysql_engine().set_version(0x50001);
  EXPECT_TRUE(converter.can_create_views());
}

// --- MySQL front end ---------------------------------------------------------------------

TEST_F(Convertor, DatabaseNameOfAnOldServer) {
  converter.mysql_engine().set_version(0x040017);
  EXPECT_EQ(failure_of([&] { converter.check_mysql_db_name(L"shop"); }), "");
  EXPECT_EQ(failure_of([&] { converter.check_mysql_db_name(L"1shop"); }),
            "Not a valid MySQL database name. It cannot consist only of numbers\nor start with a digit and must "
            "differ from any MySQL keyword. Use\nalphanumeric symbols (A-Z, a-z, 0-9), '_' and '$' to compose\nnew "
            "database name.");
  EXPECT_TRUE(lines_in_order(capture.text(), {"mysql_converter_impl::check_mysql_db_name(1shop)",
                                              "sql_engine::create_dn_validator", "is_old_version(00040017)"}));
}

TEST_F(Convertor, DatabaseNameOfANewServer) {
  converter.mysql_engine().set_version(0x040100);
  EXPECT_EQ(failure_of([&] { converter.check_mysql_db_name(L"1shop"); }), "");
  EXPECT_EQ(failure_of([&] { converter.check_mysql_db_name(L"a/b"); }),
            "Not a valid MySQL database name. Use alphanumeric characters\r\n(A-Z, a-z, 0-9), '_', '$' and spaces to "
            "compose new database name.");
}

TEST_F(Convertor, PortWithoutANumberIsRefused) {
  for (const char* port : {"0", "abc", "", " x1"}) {
    converter.port = port;
    EXPECT_EQ(failure_of([&] { converter.connect_mysql_server(); }), "Invalid port number") << port;
  }
  EXPECT_FALSE(converter.mysql_engine().is_connected());
  EXPECT_TRUE(capture.has_line("mysql_converter_impl::connect_mysql_server"));
}

TEST_F(Convertor, ConnectsToTheServerWithItsSettings) {
  const mariadb_server& server = mariadb_server::main();
  converter.mysql_converter_impl::host = server.host();
  converter.port = std::to_string(server.port()) + "/tcp";  // atoi stops at the first non-digit
  converter.mysql_converter_impl::user = server.account().user;
  converter.mysql_converter_impl::password = server.account().password;

  converter.connect_mysql_server();

  EXPECT_TRUE(converter.mysql_engine().is_connected());
  EXPECT_GT(converter.mysql_engine().version(), 0x050000U);
}

// The server's databases through the engine itself, without a plugged-in target.
TEST(ConvertorServer, TestsForAndDropsADatabase) {
  user_folders folders;
  handler_and_shell ui;
  quillbridge_convertor converter;
  const mariadb_server& server = mariadb_server::main();
  converter.mysql_converter_impl::host = server.host();
  converter.port = std::to_string(server.port());
  converter.mysql_converter_impl::user = server.account().user;
  converter.mysql_converter_impl::password = server.account().password;
  converter.connect_mysql_server();
  const std::string name = "qb_app_" + std::to_string(::getpid());
  converter.mysql_engine().run("CREATE DATABASE IF NOT EXISTS `" + name + "`");
  converter.dest = tk_utf8_decode(name);

  EXPECT_TRUE(converter.is_mysql_base_exist(converter.dest));
  converter.mode = 1;
  converter.check_dest();
  EXPECT_TRUE(converter.is_mysql_base_exist(converter.dest));
  converter.mode = 0;
  converter.check_dest();
  EXPECT_FALSE(converter.is_mysql_base_exist(converter.dest));

  // Connected, a run's packet request reaches the server.
  log_capture capture;
  converter.set_max_allowed_packet(app_run_max_allowed_packet);
  EXPECT_TRUE(capture.has_line("sql_engine::set_max_allowed_packet(209715200)"));
}

TEST(ConvertorServer, SaysThatItCannotOpenServerDatabasesYet) {
  user_folders folders;
  handler_and_shell ui;
  quillbridge_convertor converter;
  converter.dest = L"shop";
  EXPECT_THROW(static_cast<void>(converter.target().open_db(L"shop", 168)), tk_exception);
  EXPECT_THROW(static_cast<void>(converter.target().create_db(L"shop")), tk_exception);
  try {
    static_cast<void>(converter.is_mysql_base_exist(L"shop"));
    FAIL() << "no failure without a connection";
  } catch (const tk_exception& e) {
    EXPECT_STREQ(e.what(), "Not connected to the MySQL server.");
  }
}

// --- SQL Server front end -------------------------------------------------------------

TEST_F(Convertor, SchemaOfATableIsACopyThatOutlivesTheSource) {
  memory_store& store = source.stores.store(L"sales");
  add_people(store, L"[dbo].[people]", 1);

  const udb_schema schema = converter.get_schema(L"[dbo].[people]");

  ASSERT_EQ(schema.size(), 2U);
  EXPECT_EQ(schema[0].name, L"id");
  EXPECT_EQ(schema[1].name, L"name");
  EXPECT_EQ(source.opens, (std::vector<std::pair<std::uint32_t, std::wstring>>{{1, L""}}));
  EXPECT_TRUE(capture.has_line("quillbridge_convertor::get_schema([dbo].[people])"));
}

TEST_F(Convertor, SchemaOfAMissingTableIsAnInternalError) {
  static_cast<void>(source.stores.store(L"sales"));
  try {
    static_cast<void>(converter.get_schema(L"[dbo].[nothing]"));
    FAIL() << "no assertion";
  } catch (const tk_mail_assertion& e) {
    EXPECT_EQ(std::string(e.what()), make_err_meggase("qbr_conv", 86));
    EXPECT_EQ(e.level(), 2);
  }
}

TEST_F(Convertor, TablesAndViewsAreListedThroughTheSchemaFilter) {
  memory_store& store = source.stores.store(L"sales");
  add_people(store, L"[dbo].[a]", 0);
  add_people(store, L"[dbo].[b]", 0);
  store.views = {{L"v", L"select 1"}};
  converter.mss_schema = L"dbo";

  std::vector<std::wstring> tables;
  converter.get_all_tables(tables);
  udb_view_list views;
  converter.get_all_views(views);

  EXPECT_EQ(tables, (std::vector<std::wstring>{L"[dbo].[a]", L"[dbo].[b]"}));
  EXPECT_EQ(views, (udb_view_list{{L"v", L"select 1"}}));
  EXPECT_EQ(source.opens, (std::vector<std::pair<std::uint32_t, std::wstring>>{{161, L"dbo"}, {33, L"dbo"}}));
  EXPECT_TRUE(lines_in_order(capture.text(),
                             {"quillbridge_convertor::get_all_tables", "quillbridge_converter::get_all_views"}));
}

TEST_F(Convertor, SchemasOfAnExistingDatabaseComeFromTheDatabase) {
  static_cast<void>(source.stores.store(L"crm"));
  std::vector<std::wstring> schemas{L"left over"};
  converter.get_mss_schemas(L"crm", schemas);
  EXPECT_TRUE(schemas.empty());  // the in-memory database has none
  EXPECT_EQ(source.opens, (std::vector<std::pair<std::uint32_t, std::wstring>>{{161, L""}}));
  EXPECT_TRUE(lines_in_order(capture.text(),
                             {"mssql_converter_impl::get_mss_schemas(crm)", "Database exists, load schemas list"}));
}

TEST_F(Convertor, SchemasOfAMissingDatabaseAreTheStandardOnes) {
  std::vector<std::wstring> schemas;
  converter.get_mss_schemas(L"new", schemas);
  EXPECT_EQ(schemas, (std::vector<std::wstring>{L"dbo", L"guest", L"sys"}));
  EXPECT_TRUE(capture.has_line("Database not exists, load standard schemas"));
}

TEST_F(Convertor, SchemaListStaysAsFarAsItCameWhenTheServerFails) {
  source.fail_exists = true;
  std::vector<std::wstring> schemas{L"kept"};
  EXPECT_NO_THROW(converter.get_mss_schemas(L"crm", schemas));
  EXPECT_EQ(schemas, (std::vector<std::wstring>{L"kept"}));
}

TEST_F(Convertor, QueryTestSwallowsEveryFailure) {
  memory_store& store = source.stores.store(L"sales");
  udb_schema schema;
  schema.push_back(int_column(L"n"));
  store.add_query(L"select 1", std::move(schema));

  EXPECT_EQ(converter.test_query(L"select 1"), 1);
  EXPECT_EQ(converter.test_query(L"select nothing"), 0);
  converter.src = L"no such database";
  EXPECT_EQ(converter.test_query(L"select 1"), 0);
  EXPECT_TRUE(capture.has_line("mssql_converter_impl::test_query"));
}

TEST_F(Convertor, DatabasesOfTheServer) {
  std::vector<std::wstring> names;
  converter.get_contents(names);
  EXPECT_EQ(names, (std::vector<std::wstring>{L"master", L"sales"}));
}

TEST(ConvertorSource, WithoutAConnectionEveryQuestionIsAnInternalError) {
  user_folders folders;
  handler_and_shell ui;
  quillbridge_convertor converter;
  std::vector<std::wstring> tables;
  // The pages ask only once the connection page has connected.
  EXPECT_THROW(converter.get_all_tables(tables), tk_mail_assertion);
  EXPECT_EQ(converter.test_query(L"select 1"), 0);
  // The list of databases is the engine's own, which wants a connection.
  std::vector<std::wstring> names;
  EXPECT_THROW(converter.get_contents(names), tk_mail_assertion);
}

// --- a whole run through the converter -----------------------------------------------

TEST_F(Convertor, RunsAConversionIntoADump) {
  memory_store& store = source.stores.store(L"sales");
  add_people(store, L"[dbo].[people]", 2);
  store.views = {{L"v", L"select 1"}};
  converter.selected_tables = {L"[dbo].[people]"};
  converter.selected_views = {{L"v", L"select 1"}};
  converter.direct = 0;
  converter.dest = L"/tmp/out.sql";
  converter.mysql_engine().set_version(0x40100);

  EXPECT_EQ(converter(), 0);

  EXPECT_EQ(converter.finished.load(), 1);
  ASSERT_TRUE(target.stores.is_db_exist(L"/tmp/out.sql"));
  memory_store& dump = target.stores.store(L"/tmp/out.sql");
  ASSERT_NE(dump.find_table(L"[dbo].[people]"), nullptr);
  EXPECT_EQ(dump.find_table(L"[dbo].[people]")->rows.size(), 2U);
  EXPECT_EQ(dump.created_views.size(), 1U);
  EXPECT_TRUE(capture.has_line("is_old_version(00040100)"));
  EXPECT_FALSE(capture.has_line("sql_engine::set_max_allowed_packet(209715200)"));
  ASSERT_EQ(converter.table_reports.size(), 1U);
  EXPECT_EQ(converter.table_reports[0].written, 2U);
}

TEST_F(Convertor, RunsAConversionIntoAServerDatabase) {
  memory_store& store = source.stores.store(L"sales");
  add_people(store, L"[dbo].[people]", 3);
  converter.selected_tables = {L"[dbo].[people]"};
  converter.dest = L"shop";
  converter.mode = 1;
  converter.mysql_engine().set_version(0x050700);

  converter();

  EXPECT_EQ(target.created, (std::vector<std::wstring>{L"shop"}));
  const memory_table* table = target.stores.store(L"shop").find_table(L"[dbo].[people]");
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->rows.size(), 3U);
  // A server is asked for the larger packet; without a connection there is
  // none to ask.
  EXPECT_TRUE(capture.has_line("Not connected: max_allowed_packet stays as it is"));
  EXPECT_TRUE(converter.mysql_engine().fast_mode());
}

}  // namespace
}  // namespace qb::test
