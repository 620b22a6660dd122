// The converter's profile: every key in both directions, the two readings of
// flags, the scenario digit, table names, query texts and the call order.
#include "udb/profile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "app/convertor.h"
#include "tk/log.h"
#include "tk/utf.h"

#include "app_fixtures.h"
#include "support/temp_dir.h"

namespace qb::test {
namespace {

class Profile : public ::testing::Test {
 protected:
  // Writes the text as a profile file and loads it into the converter.
  void load(const std::string& text) {
    write_file(dir.file("p.qbr"), text);
    udb_profile profile;
    ASSERT_TRUE(profile.load(dir.file("p.qbr")));
    ASSERT_TRUE(converter.load_profile(profile));
  }
  std::string store() {
    udb_profile profile;
    EXPECT_TRUE(converter.store_profile(profile, dir.file("out.qbr")));
    return read_file(dir.file("out.qbr"));
  }

  user_folders folders;
  log_capture capture;
  handler_and_shell ui;
  temp_dir dir;
  quillbridge_convertor converter;
};

const char* const k_full_profile =
    "[Available Queries]\n"
    "big=select * from orders where total>1000\n"
    "\n"
    "[Generic settings]\n"
    "src=crm\n"
    "dest=shop\n"
    "skip indexes=1\n"
    "only definitions=1\n"
    "mode=3\n"
    "view owned=0\n"
    "character set=latin1\n"
    "storage engine=MyISAM\n"
    "\n"
    "[MS SQL Server settings]\n"
    "server=mssql1\\inst\n"
    "login=sa\n"
    "password=p=w\n"
    "windows authentication=0\n"
    "connect as DBO=0\n"
    "schema=sales\n"
    "dump insert comments=0\n"
    "dump create database=1\n"
    "dump create table=0\n"
    "\n"
    "[MySQL settings]\n"
    "host=db1\n"
    "user=root\n"
    "password=secret\n"
    "port=3307\n"
    "direct mode=0\n"
    "dump line break=1\n"
    "dump new version=0\n"
    "dump add lock to insert=0\n"
    "dump insert comments=0\n"
    "dump create database=1\n"
    "dump create table=0\n"
    "\n"
    "[Selected Tables]\n"
    "dbo.orders\n"
    "customers=\n"
    "top=select top 10 * from orders\n"
    "\n"
    "[Selected Views]\n"
    "v_orders=select id from orders\n";

TEST_F(Profile, LoadsEveryKey) {
  load(k_full_profile);

  EXPECT_EQ(converter.available_queries, (udb_named_texts{{L"big", L"select * from orders where total>1000"}}));
  EXPECT_EQ(converter.src, L"crm");
  EXPECT_EQ(converter.dest, L"shop");
  EXPECT_EQ(converter.skip_indexes, 1);
  EXPECT_EQ(converter.only_definitions, 1);
  EXPECT_EQ(converter.mode, 3U);
  EXPECT_EQ(converter.is_view_owned, 0);
  EXPECT_EQ(converter.mysql_engine().charset(), L"latin1");
  EXPECT_EQ(converter.mysql_engine().storage_engine(), L"MyISAM");
  EXPECT_EQ(converter.mssql_converter_impl::host, L"mssql1\\inst");
  EXPECT_EQ(converter.mssql_converter_impl::user, L"sa");
  EXPECT_EQ(converter.mssql_converter_impl::password, L"p=w");
  EXPECT_EQ(converter.b_sec_log, 0);
  EXPECT_EQ(converter.as_dbo, 0);
  EXPECT_EQ(converter.mss_schema, L"sales");
  EXPECT_EQ(converter.mssql_converter_impl::dump_options.insert_comments, 0);
  EXPECT_EQ(converter.mssql_converter_impl::dump_options.create_database, 1);
  EXPECT_EQ(converter.mssql_converter_impl::dump_options.create_table, 0);
  EXPECT_EQ(converter.mysql_converter_impl::host, "db1");
  EXPECT_EQ(converter.mysql_converter_impl::user, "root");
  EXPECT_EQ(converter.mysql_converter_impl::password, "secret");
  EXPECT_EQ(converter.port, "3307");
  EXPECT_EQ(converter.direct, 0);
  const mysql_dump_options& dump = converter.mysql_converter_impl::dump_options;
  EXPECT_EQ(dump.line_break, 1U);
  EXPECT_EQ(dump.new_version, 0);
  EXPECT_EQ(dump.add_lock, 0);
  EXPECT_EQ(dump.insert_comments, 0);
  EXPECT_EQ(dump.create_database, 1);
  EXPECT_EQ(dump.create_table, 0);
  EXPECT_EQ(
      converter.queries,
      (udb_named_texts{{L"[dbo].[orders]", L""}, {L"[customers]", L""}, {L"top", L"select top 10 * from orders"}}));
  EXPECT_TRUE(converter.selected_tables.empty());
  EXPECT_EQ(converter.selected_views, (udb_named_texts{{L"v_orders", L"select id from orders"}}));
}

TEST_F(Profile, LoadsInTheOrderOfItsParts) {
  load(k_full_profile);
  EXPECT_TRUE(lines_in_order(
      capture.text(),
      {"quillbridge_convertor::load_profile", "udb_converter::load_profile", "mysql_converter_impl::load_profile",
       "mssql_converter_impl::load_profile", "mss_engine::set_as_dbo(0)", "mss_schema=sales", "udb_db_mutator::load",
       "dbo.orders->[dbo].[orders]", "customers->[customers]"}));
  EXPECT_FALSE(capture.has_line("top->top"));  // a query keeps its name
}

TEST_F(Profile, ZeroIsTheOnlyFalseOfTheGenericFlags) {
  load("[Generic settings]\nonly definitions=2\nskip indexes=no\n");
  EXPECT_EQ(converter.only_definitions, 1);
  EXPECT_EQ(converter.skip_indexes, 1);
  load("[Generic settings]\nonly definitions=0\n");
  EXPECT_EQ(converter.only_definitions, 0);
  EXPECT_EQ(converter.skip_indexes, 1);  // absent: left as it stands
}

TEST_F(Profile, OneIsTheOnlyTrueOfTheServerFlags) {
  load(
      "[MS SQL Server settings]\nwindows authentication=2\n[MySQL settings]\ndirect mode=yes\n"
      "[Generic settings]\nview owned=true\n");
  EXPECT_EQ(converter.b_sec_log, 0);
  EXPECT_EQ(converter.direct, 0);
  EXPECT_EQ(converter.is_view_owned, 0);
  load("[MS SQL Server settings]\nwindows authentication=1\n[MySQL settings]\ndirect mode=1\n");
  EXPECT_EQ(converter.b_sec_log, 1);
  EXPECT_EQ(converter.direct, 1);
}

TEST_F(Profile, DumpLineBreakReadsAnyNonZeroAsOn) {
  load("[MySQL settings]\ndump line break=7\n");
  EXPECT_EQ(converter.mysql_converter_impl::dump_options.line_break, 1U);
}

TEST_F(Profile, EmptyValuesLeaveTheSettings) {
  converter.src = L"kept";
  converter.port = "3310";
  converter.mode = 2;
  load("[Generic settings]\nsrc=\nmode=\n[MySQL settings]\nport=\n[MS SQL Server settings]\nschema=\n");
  EXPECT_EQ(converter.src, L"kept");
  EXPECT_EQ(converter.port, "3310");
  EXPECT_EQ(converter.mode, 2U);
}

TEST_F(Profile, ModeIsOneDigitWithoutARangeCheck) {
  load("[Generic settings]\nmode=9\n");
  EXPECT_EQ(converter.mode, 9U);
  load("[Generic settings]\nmode=12\n");
  EXPECT_EQ(converter.mode, 9U);
  load("[Generic settings]\nmode=1\n");
  EXPECT_EQ(converter.mode, 1U);
}

TEST_F(Profile, ScenarioDigitBeyondTheTableDropsNothing) {
  memory_target target;
  static_cast<void>(target.stores.create_db(L"shop"));
  converter.set_target(target);
  load("[Generic settings]\ndest=shop\nmode=7\n");
  converter.check_dest();
  EXPECT_TRUE(target.deleted.empty());
}

TEST_F(Profile, BareLinesAndLinesEndingInEqualsAreTables) {
  load("[Selected Tables]\nsales.orders\nlines=\n");
  EXPECT_EQ(converter.queries, (udb_named_texts{{L"[sales].[orders]", L""}, {L"[lines]", L""}}));
}

TEST_F(Profile, ValueHoldingEqualsKeepsIt) {
  load("[Selected Tables]\nq=select a from b where c=1 and d='='\n");
  EXPECT_EQ(converter.queries, (udb_named_texts{{L"q", L"select a from b where c=1 and d='='"}}));
}

TEST_F(Profile, SectionWithoutLinesEmptiesItsList) {
  converter.selected_views = {{L"v", L"select 1"}};
  load("[Selected Views]\n[Generic settings]\nsrc=x\n");
  EXPECT_TRUE(converter.selected_views.empty());
}

TEST_F(Profile, MissingSectionLeavesItsList) {
  converter.available_queries = {{L"q", L"select 1"}};
  load("[Generic settings]\nsrc=x\n");
  EXPECT_EQ(converter.available_queries, (udb_named_texts{{L"q", L"select 1"}}));
}

TEST_F(Profile, WithoutTypeMappingsLoadsWithNoCustomisation) {
  load("[Generic settings]\nsrc=x\n");
  EXPECT_TRUE(converter.tables_by_old().empty());
  // An empty tree is written as its two opening lines.
  EXPECT_NE(store().find("[Type Mappings]\ndatabase:\ntables:\n\n"), std::string::npos);
}

TEST_F(Profile, TypeMappingsReachTheTreeOfChanges) {
  load("[Type Mappings]\ndatabase:\ntables:\n  - name: [dbo].[orders]\n    new_name: o\n");
  ASSERT_NE(converter.get_table_mutator3(L"[dbo].[orders]"), nullptr);
  EXPECT_EQ(converter.get_table_mutator3(L"[dbo].[orders]")->new_name(), L"o");
  EXPECT_EQ(converter.find_table_mutator(L"[dbo].[orders]"), converter.get_table_mutator3(L"[dbo].[orders]"));
}

TEST_F(Profile, LogFileNamedInTheProfileTakesTheLog) {
  load("[Generic settings]\nlogfile=" + dir.file("run.log") + "\n");
  EXPECT_EQ(converter.log_file, dir.file("run.log"));
  LOG(3, "after the switch");
  EXPECT_NE(read_file(dir.file("run.log")).find("after the switch\r\n"), std::string::npos);
}

TEST_F(Profile, LogFileThatCannotBeUsedFailsTheLoad) {
  write_file(dir.file("p.qbr"), "[Generic settings]\nlogfile=" + dir.path() + "\n");
  udb_profile profile;
  ASSERT_TRUE(profile.load(dir.file("p.qbr")));
  EXPECT_THROW(converter.load_profile(profile), tk_exception);
}

TEST_F(Profile, StoresEveryKeyInItsSection) {
  load(k_full_profile);
  const std::string text = store();

  EXPECT_NE(text.find("[Available Queries]\nbig=select * from orders where total>1000\n\n"), std::string::npos);
  EXPECT_NE(text.find("[Generic settings]\nsrc=crm\ndest=shop\nlogfile=\nskip indexes=1\nonly definitions=1\nmode=3\n"
                      "view owned=0\ncharacter set=latin1\nstorage engine=MyISAM\n\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("[MS SQL Server settings]\nserver=mssql1\\inst\nlogin=sa\npassword=p=w\n"
                      "windows authentication=0\nconnect as DBO=0\nschema=sales\ndump insert comments=0\n"
                      "dump create database=1\ndump create table=0\n\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("[MySQL settings]\nhost=db1\nuser=root\npassword=secret\nport=3307\ndump line break=1\n"
                      "dump new version=0\ndump add lock to insert=0\ndump insert comments=0\n"
                      "dump create database=1\ndump create table=0\ndirect mode=0\n\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("[Selected Tables]\ndbo.orders\ncustomers\ntop=select top 10 * from orders\n\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("[Selected Views]\nv_orders=select id from orders\n\n"), std::string::npos) << text;
  EXPECT_NE(text.find("[Type Mappings]\ndatabase:\ntables:\n\n"), std::string::npos) << text;
  EXPECT_TRUE(capture.has_line("tab_name=orders, owner=dbo"));

  struct stat info {};
  ASSERT_EQ(::stat(dir.file("out.qbr").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600U);
}

TEST_F(Profile, StoresInTheOrderOfItsParts) {
  static_cast<void>(store());
  EXPECT_TRUE(lines_in_order(
      capture.text(),
      {"quillbridge_convertor::store_profile", "udb_converter::store_profile", "mysql_converter_impl::store_profile",
       "mssql_converter_impl::store_profile", "database:", "udb_profile::store)"}));
}

TEST_F(Profile, EmptySqlServerSettingsAreNotWritten) {
  const std::string text = store();
  const std::size_t section = text.find("[MS SQL Server settings]\n");
  ASSERT_NE(section, std::string::npos);
  const std::string body = text.substr(section, text.find("\n\n", section) - section);
  EXPECT_EQ(body.find("server="), std::string::npos);
  EXPECT_EQ(body.find("login="), std::string::npos);
  EXPECT_EQ(body.find("password="), std::string::npos);
  EXPECT_EQ(body.find("schema="), std::string::npos);
  EXPECT_NE(body.find("windows authentication=1"), std::string::npos);
}

TEST_F(Profile, QueryWithLineBreaksIsStoredAsOneLine) {
  converter.queries = {{L"q", L"select a\r\nfrom b\nwhere c\r= 1"}};
  converter.available_queries = {{L"r", L"select\n1"}};
  converter.selected_views = {{L"v", L"select\r\n2"}};
  const std::string text = store();
  EXPECT_NE(text.find("q=select a from b where c = 1\n"), std::string::npos);
  EXPECT_NE(text.find("r=select 1\n"), std::string::npos);
  EXPECT_NE(text.find("v=select 2\n"), std::string::npos);
}

TEST_F(Profile, SelectedTablesNotYetInTheWorkListAreStoredToo) {
  converter.queries = {{L"[dbo].[a]", L""}};
  converter.selected_tables = {L"[dbo].[a]", L"[dbo].[b]"};
  const std::string text = store();
  EXPECT_NE(text.find("[Selected Tables]\ndbo.a\ndbo.b\n\n"), std::string::npos) << text;
}

TEST_F(Profile, StoredProfileLoadsBackTheSame) {
  load(k_full_profile);
  static_cast<void>(store());
  udb_profile profile;
  ASSERT_TRUE(profile.load(dir.file("out.qbr")));
  quillbridge_convertor again;
  ASSERT_TRUE(again.load_profile(profile));
  EXPECT_EQ(again.queries, converter.queries);
  EXPECT_EQ(again.available_queries, converter.available_queries);
  EXPECT_EQ(again.selected_views, converter.selected_views);
  EXPECT_EQ(again.mode, converter.mode);
  EXPECT_EQ(again.mss_schema, converter.mss_schema);
  EXPECT_EQ(again.mysql_converter_impl::password, converter.mysql_converter_impl::password);
  EXPECT_EQ(again.mssql_converter_impl::password, converter.mssql_converter_impl::password);
  EXPECT_EQ(again.direct, converter.direct);
  EXPECT_EQ(again.mysql_engine().charset(), converter.mysql_engine().charset());
}

}  // namespace
}  // namespace qb::test
