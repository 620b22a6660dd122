// What sql_engine asks of and does to the server besides connecting:
// databases, character sets, engines, the packet limit, quoted names.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "sql/engine.h"
#include "sql/exception.h"
#include "support/mariadb_server.h"
#include "support/temp_dir.h"
#include "test_session.h"
#include "tk/utf.h"

namespace qb {
namespace {

using test::mariadb_server;

std::size_t count_of(const std::string& text, const std::string& piece) {
  std::size_t n = 0;
  for (std::size_t pos = text.find(piece); pos != std::string::npos; pos = text.find(piece, pos + 1)) ++n;
  return n;
}

const std::vector<std::wstring> fixed_charsets = {
    L"big5 - Big5 Traditional Chinese", L"dec8 - DEC West European", L"cp850 - DOS West European",
    L"hp8 - HP West European", L"koi8r - KOI8-R Relcom Russian", L"latin1 - cp1252 West European",
    L"latin2 - ISO 8859-2 Central European", L"swe7 - 7bit Swedish", L"ascii - US ASCII",
    L"ujis - EUC-JP Japanese", L"sjis - Shift-JIS Japanese", L"hebrew - ISO 8859-8 Hebrew",
    L"tis620 - TIS620 Thai", L"euckr - EUC-KR Korean", L"koi8u - KOI8-U Ukrainian",
    L"gb2312 - GB2312 Simplified Chinese", L"greek - ISO 8859-7 Greek", L"cp1250 - Windows Central European",
    L"gbk - GBK Simplified Chinese", L"latin5 - ISO 8859-9 Turkish", L"armscii8 - ARMSCII-8 Armenian",
    L"utf8 - UTF-8 Unicode", L"utf8mb4 - UTF-8 Unicode", L"ucs2 - UCS-2 Unicode", L"cp866 - DOS Russian",
    L"keybcs2 - DOS Kamenicky Czech-Slovak", L"macce - Mac Central European", L"macroman - Mac West European",
    L"cp852 - DOS Central European", L"latin7 - ISO 8859-13 Baltic", L"cp1251 - Windows Cyrillic",
    L"cp1256 - Windows Arabic", L"cp1257 - Windows Baltic", L"binary - Binary pseudo charset",
    L"geostd8 - GEOSTD8 Georgian", L"cp932 - SJIS for Windows Japanese", L"eucjpms - UJIS for Windows Japanese"};

const std::vector<std::wstring> fixed_engines = {L"MyISAM",  L"MEMORY", L"InnoDB",     L"BerkeleyDB",
                                                 L"BLACKHOLE", L"EXAMPLE", L"ARCHIVE",   L"CSV",
                                                 L"ndbcluster", L"FEDERATED", L"MRG_MYISAM", L"ISAM"};

// --- Databases ----------------------------------------------------------------

TEST(SqlEngineDatabases, ExistingDatabaseIsFoundAndBecomesTheDefault) {
  const auto& server = mariadb_server::main();
  test::test_session root(server);
  const std::string name = test::unique_name("qb_exist_\xc3\x84rger_\xe6\x97\xa5");  // qb_exist_Ärger_日
  root.run("CREATE DATABASE `" + name + "`");
  test::log_capture log;
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  EXPECT_TRUE(engine.is_db_exist(tk_utf8_decode(name)));
  EXPECT_TRUE(log.has_line("n_result=0"));
  EXPECT_EQ(test::engine_scalar(engine, "SELECT DATABASE()"), name);
  root.run("DROP DATABASE `" + name + "`");
}

TEST(SqlEngineDatabases, MissingDatabaseIsNotFound) {
  const auto& server = mariadb_server::main();
  test::log_capture log;
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  EXPECT_FALSE(engine.is_db_exist(tk_utf8_decode(test::unique_name("qb_missing"))));
  EXPECT_TRUE(log.has_line("n_result=1"));
  EXPECT_FALSE(engine.is_db_exist(std::wstring(L"mysql\0x", 7)));
}

TEST(SqlEngineDatabases, NotConnectedNoDatabaseExists) {
  sql_engine engine;
  EXPECT_FALSE(engine.is_db_exist(L"mysql"));
}

TEST(SqlEngineDatabases, DeleteDropsTheDatabaseWithItsForeignKeysAndTurnsChecksOn) {
  const auto& server = mariadb_server::main();
  test::test_session root(server);
  const std::string name = test::unique_name("qb_del_\xc3\xa4`q");  // qb_del_ä`q: a back quote in the name
  const std::string quoted = "`qb_del_\xc3\xa4``q" + name.substr(std::string("qb_del_\xc3\xa4`q").size()) + "`";
  root.run("CREATE DATABASE " + quoted);
  root.run("CREATE TABLE " + quoted + ".parent (id INT PRIMARY KEY) ENGINE=InnoDB");
  root.run("CREATE TABLE " + quoted + ".child (id INT, p INT, FOREIGN KEY (p) REFERENCES parent(id)) ENGINE=InnoDB");
  root.run("INSERT INTO " + quoted + ".parent VALUES (1)");
  root.run("INSERT INTO " + quoted + ".child VALUES (1, 1)");

  test::log_capture log;
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  engine.db_delete(tk_utf8_decode(name));
  EXPECT_TRUE(log.has_line("sql_engine::db_delete(" + name + ")"));
  EXPECT_TRUE(log.has_line("Deleting MySQL database '" + name + "'"));
  EXPECT_EQ(root.scalar("SELECT COUNT(*) FROM information_schema.schemata WHERE schema_name = " +
                        test::sql_literal(name)),
            "0");
  EXPECT_FALSE(engine.is_db_exist(tk_utf8_decode(name)));
  EXPECT_EQ(test::engine_scalar(engine, "SELECT @@SESSION.foreign_key_checks"), "1");
}

TEST(SqlEngineDatabases, DeletingAMissingDatabaseIsError1008WithTheStatement) {
  const auto& server = mariadb_server::main();
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  const std::string name = test::unique_name("qb_gone");
  try {
    engine.db_delete(tk_utf8_decode(name));
    FAIL() << "dropped a missing database";
  } catch (const sql_exception& e) {
    EXPECT_EQ(e.error_number(), 1008U);
    EXPECT_EQ(e.code(), 0x4003F0U);
    EXPECT_EQ(e.statement(), "DROP DATABASE `" + name + "`");
    EXPECT_EQ(std::string(e.what()), "Can't drop database '" + name + "'; database doesn't exist");
  }
}

TEST(SqlEngineDatabases, OldServerNamesTheDatabaseWithoutBackQuotes) {
  const auto& server = mariadb_server::announcing("4.0.27");
  test::test_session root(server);
  const std::string plain = test::unique_name("qb_old");
  root.run("CREATE DATABASE " + plain);
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  engine.db_delete(tk_utf8_decode(plain));
  EXPECT_EQ(root.scalar("SELECT COUNT(*) FROM information_schema.schemata WHERE schema_name = '" + plain + "'"), "0");
  // A name that needs quoting shows that none is added.
  const std::string odd = test::unique_name("qb-old");
  try {
    engine.db_delete(tk_utf8_decode(odd));
    FAIL() << "an unquoted name with a hyphen was accepted";
  } catch (const sql_exception& e) {
    EXPECT_EQ(e.statement(), "DROP DATABASE " + odd);
    EXPECT_EQ(e.error_number(), 1064U);
  }
}

// --- Character sets and engines -------------------------------------------------

TEST(SqlEngineLists, CharsetsComeFromTheServerWhenConnected) {
  const auto& server = mariadb_server::main();
  test::test_session root(server);
  std::vector<std::wstring> expected;
  for (const auto& row : root.rows("SHOW CHARACTER SET")) expected.push_back(tk_utf8_decode(row[0] + " - " + row[1]));
  test::log_capture log;
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  EXPECT_EQ(engine.get_charsets(), expected);
  EXPECT_TRUE(log.has_line("MySQL is connected"));
  EXPECT_TRUE(log.has_line("name=utf8mb4 - UTF-8 Unicode"));
  EXPECT_GT(expected.size(), 30U);
}

TEST(SqlEngineLists, CharsetsAreTheFixedListWhenNotConnected) {
  test::log_capture log;
  sql_engine engine;
  EXPECT_EQ(engine.get_charsets(), fixed_charsets);
  EXPECT_TRUE(log.has_line("MySQL is NOT connected"));
}

TEST(SqlEngineLists, CharsetsFilledBeforeConnectingStayAfterConnecting) {
  const auto& server = mariadb_server::main();
  test::log_capture log;
  sql_engine engine;
  const std::vector<std::wstring>* first = &engine.get_charsets();
  ASSERT_EQ(*first, fixed_charsets);
  test::connect_engine(engine, server, server.account());
  EXPECT_EQ(&engine.get_charsets(), first);
  EXPECT_EQ(engine.get_charsets(), fixed_charsets);
  EXPECT_FALSE(log.has_line("MySQL is connected"));
}

TEST(SqlEngineLists, EnginesComeFromTheServerWhenConnected) {
  const auto& server = mariadb_server::main();
  test::test_session root(server);
  std::vector<std::wstring> expected;
  for (const auto& name : root.column("SHOW ENGINES")) expected.push_back(tk_utf8_decode(name));
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  EXPECT_EQ(engine.get_storage_engines(), expected);
  EXPECT_NE(std::find(expected.begin(), expected.end(), L"InnoDB"), expected.end());
}

TEST(SqlEngineLists, EnginesAreTheFixedListWhenNotConnectedAndStay) {
  const auto& server = mariadb_server::main();
  test::log_capture log;
  sql_engine engine;
  EXPECT_EQ(engine.get_storage_engines(), fixed_engines);
  EXPECT_TRUE(log.has_line("MySQL is NOT connected"));
  test::connect_engine(engine, server, server.account());
  EXPECT_EQ(engine.get_storage_engines(), fixed_engines);
}

// --- Packet size ------------------------------------------------------------------

TEST(SqlEnginePacket, IsAskedOnceAndKept) {
  const auto& server = mariadb_server::main();
  test::log_capture log;
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  const std::uint32_t size = engine.get_max_allowed_packet();
  EXPECT_EQ(std::to_string(size), test::engine_scalar(engine, "SELECT @@SESSION.max_allowed_packet"));
  EXPECT_EQ(engine.get_max_allowed_packet(), size);
  EXPECT_EQ(count_of(log.text(), "max_packet_size="), 1U);
  EXPECT_TRUE(log.has_line("max_packet_size=" + std::to_string(size)));
}

TEST(SqlEnginePacket, NotConnectedIsUnknown) {
  test::log_capture log;
  sql_engine engine;
  EXPECT_EQ(engine.get_max_allowed_packet(), 0U);
  EXPECT_EQ(log.text().find("max_packet_size="), std::string::npos);
}

TEST(SqlEnginePacket, RaisingWithoutSuperPrivilegeIsLoggedAndTheRunGoesOn) {
  const auto& server = mariadb_server::main();
  test::test_session root(server);
  const std::string global_before = root.scalar("SELECT @@GLOBAL.max_allowed_packet");
  test::log_capture log(3);
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  const std::uint32_t before = engine.get_max_allowed_packet();
  EXPECT_NO_THROW(engine.set_max_allowed_packet(209715200));
  EXPECT_EQ(engine.get_max_allowed_packet(), before);
  // Level 3, with the server's reason on the next line of the entry.
  EXPECT_NE(log.text().find("Failed to set max_allowed_packet:\nAccess denied; you need"), std::string::npos)
      << log.text();
  EXPECT_EQ(root.scalar("SELECT @@GLOBAL.max_allowed_packet"), global_before);
  // The connection is still usable.
  EXPECT_EQ(test::engine_scalar(engine, "SELECT 1"), "1");
}

TEST(SqlEnginePacket, RaisingWithSuperPrivilegeSetsTheServersLimit) {
  // A server of its own, so that no other test sees the global change.
  const auto& server = mariadb_server::announcing("5.5.2");
  test::test_session root(server);
  sql_engine engine;
  test::connect_engine(engine, server, server.root());
  const std::uint32_t before = engine.get_max_allowed_packet();
  ASSERT_GT(before, 0U);
  const std::uint32_t wanted = before + 1024 * 1024;
  engine.set_max_allowed_packet(wanted);
  EXPECT_EQ(engine.get_max_allowed_packet(), wanted);
  EXPECT_EQ(root.scalar("SELECT @@GLOBAL.max_allowed_packet"), std::to_string(wanted));
  // A value not above the known one changes nothing.
  engine.set_max_allowed_packet(wanted - 4096);
  EXPECT_EQ(engine.get_max_allowed_packet(), wanted);
  EXPECT_EQ(root.scalar("SELECT @@GLOBAL.max_allowed_packet"), std::to_string(wanted));
}

TEST(SqlEnginePacket, RaisingWhileNotConnectedIsLoggedNotThrown) {
  test::log_capture log(3);
  sql_engine engine;
  EXPECT_NO_THROW(engine.set_max_allowed_packet(209715200));
  EXPECT_NE(log.text().find("Failed to set max_allowed_packet:\n"), std::string::npos);
  EXPECT_EQ(engine.get_max_allowed_packet(), 0U);
}

// --- Quoted names -------------------------------------------------------------------

TEST(SqlQuoteName, Of64CharactersStays) {
  const std::wstring name(64, L'a');
  EXPECT_EQ(sql_quote_name(name), L"`" + name + L"`");
}

TEST(SqlQuoteName, Over64CharactersIsCutTo63) {
  EXPECT_EQ(sql_quote_name(std::wstring(65, L'a')), L"`" + std::wstring(63, L'a') + L"`");
  EXPECT_EQ(sql_quote_name(std::wstring(200, L'b')), L"`" + std::wstring(63, L'b') + L"`");
}

TEST(SqlQuoteName, CountsCharactersNotBytes) {
  // Two UTF-8 bytes each, and four: still 64 characters.
  const std::wstring umlauts(64, L'\u00e4');
  EXPECT_EQ(sql_quote_name(umlauts), L"`" + umlauts + L"`");
  EXPECT_EQ(sql_quote_name(std::wstring(65, L'\u00e4')), L"`" + std::wstring(63, L'\u00e4') + L"`");
  EXPECT_EQ(sql_quote_name(std::wstring(65, L'\U0001F600')), L"`" + std::wstring(63, L'\U0001F600') + L"`");
}

TEST(SqlQuoteName, DoesNotDoubleABackQuoteNorLookAtTheVersion) {
  EXPECT_EQ(sql_quote_name(L"a`b"), L"`a`b`");
  sql_engine engine;
  engine.set_version(0x031401);
  EXPECT_EQ(engine.quote_name(L"order"), L"`order`");
  EXPECT_EQ(sql_quote_name(L""), L"``");
}

TEST(SqlQuoteName, ServerTakesTheNamesItMakes) {
  const auto& server = mariadb_server::main();
  test::test_session root(server);
  const std::string db = test::unique_name("qb_quote");
  root.run("CREATE DATABASE `" + db + "` CHARACTER SET utf8mb4");
  sql_engine engine;
  test::connect_engine(engine, server, server.account());
  ASSERT_TRUE(engine.is_db_exist(tk_utf8_decode(db)));
  const std::wstring exact(64, L'\u00e4');
  const std::wstring longer = L"order " + std::wstring(70, L'\u00f6');
  engine.run(tk_utf8_encode(L"CREATE TABLE " + engine.quote_name(exact) + L" (i INT)"));
  engine.run(tk_utf8_encode(L"CREATE TABLE " + engine.quote_name(longer) + L" (i INT)"));
  const auto names = root.column("SELECT table_name FROM information_schema.tables WHERE table_schema = '" + db +
                                 "' ORDER BY table_name");
  ASSERT_EQ(names.size(), 2U);
  std::vector<std::wstring> wide;
  for (const auto& n : names) wide.push_back(tk_utf8_decode(n));
  EXPECT_NE(std::find(wide.begin(), wide.end(), exact), wide.end());
  EXPECT_NE(std::find(wide.begin(), wide.end(), longer.substr(0, 63)), wide.end());
  root.run("DROP DATABASE `" + db + "`");
}

}  // namespace
}  // namespace qb
