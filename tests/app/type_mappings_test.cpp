// The user's changes to tables, from a profile's section "Type Mappings"
// through a whole run of the converter: a renamed table, a renamed column, a
// dropped column and two retyped ones (VARCHAR to TEXT, INT to BIGINT), in an
// in-memory destination and in a dump file that the stock mariadb client
// replays into the test server, where a foreign key that pointed to the
// renamed table must still hold. Also malformed sections, and the tree kept
// in a profile and read back.
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "app/convertor.h"
#include "sql/client.h"
#include "sql/dump.h"
#include "sql/exception.h"
#include "tk/strings.h"
#include "tk/utf.h"
#include "udb/profile.h"

#include "app_fixtures.h"
#include "mariadb_runs.h"
#include "support/mariadb_server.h"
#include "support/temp_dir.h"

namespace qb::test {
namespace {

using vt = ole_variant;
using names = std::vector<std::wstring>;

// The section as the finish page would have written it, trailing blanks
// included.
const char* const k_type_mappings =
    "[Type Mappings]\n"
    "database:\n"
    "tables:\n"
    "  - name: [dbo].[orders]\n"
    "    new_name: purchase_orders\n"
    "    fields:\n"
    "      - name:customer\n"
    "        new_name: client\n"
    "        status: changed\n"
    "        type: VARCHAR\n"
    "        default_value: \n"
    "        character_set: \n"
    "        length: 40\n"
    "        scale: 0\n"
    "        precision: 0\n"
    "      - name:note\n"
    "        new_name: note\n"
    "        status: changed\n"
    "        type: TEXT\n"
    "        default_value: \n"
    "        character_set: \n"
    "        length: 0\n"
    "        scale: 0\n"
    "        precision: 0\n"
    "      - name:qty\n"
    "        new_name: qty\n"
    "        status: changed\n"
    "        type: BIGINT\n"
    "        default_value: \n"
    "        character_set: \n"
    "        length: 0\n"
    "        scale: 0\n"
    "        precision: 0\n"
    "      - name:secret\n"
    "        new_name: secret\n"
    "        status: deleted\n"
    "        type: VARCHAR\n"
    "        default_value: \n"
    "        character_set: \n"
    "        length: 20\n"
    "        scale: 0\n"
    "        precision: 0\n";

const char* const k_selection =
    "[MS SQL Server settings]\n"
    "schema=dbo\n"
    "[Selected Tables]\n"
    "dbo.customers\n"
    "dbo.orders\n"
    "dbo.items\n";

// The source: customers, orders (with the columns the mappings change and
// indexes over them), and order items with a foreign key to orders.
void fill_source(memory_store& store) {
  add_people(store, L"[dbo].[customers]", 2);

  udb_schema orders;
  orders.push_back(memory_column(L"id", vt::vt_i4, 0, true));
  orders.push_back(memory_column(L"customer", vt::vt_bstr, 40));
  orders.push_back(memory_column(L"note", vt::vt_bstr, 200));
  orders.push_back(memory_column(L"qty", vt::vt_i4));
  orders.push_back(memory_column(L"secret", vt::vt_bstr, 20));
  udb_indexes order_keys;
  order_keys.push_back_direct(udb_index(L"PK_orders", true, true, {L"id"}));
  order_keys.push_back_direct(udb_index(L"IX_customer", false, false, {L"customer", L"secret"}));
  order_keys.push_back_direct(udb_index(L"UX_secret", true, false, {L"secret"}));
  store.add_table(L"[dbo].[orders]", std::move(orders), std::move(order_keys));
  store.add_row(L"[dbo].[orders]", {vt(10), vt(std::wstring(L"Ann")), vt(std::wstring(L"first order")), vt(2147483647),
                                    vt(std::wstring(L"pin-1"))});
  store.add_row(L"[dbo].[orders]", {vt(11), vt(std::wstring(L"Bør")), vt(std::wstring(L"naïve – ünïcode")), vt(-5),
                                    vt(std::wstring(L"pin-2"))});
  store.add_row(L"[dbo].[orders]", {vt(12), vt(), vt(std::wstring(L"no customer")), vt(0), vt()});

  udb_schema items;
  items.push_back(memory_column(L"id", vt::vt_i4, 0, true));
  items.push_back(memory_column(L"order_id", vt::vt_i4, 0, true));
  items.push_back(memory_column(L"amount", vt::vt_i4));
  udb_indexes item_keys;
  item_keys.push_back_direct(udb_index(L"PK_items", true, true, {L"id"}));
  store.add_table(L"[dbo].[items]", std::move(items), std::move(item_keys));
  store.add_row(L"[dbo].[items]", {vt(1), vt(10), vt(3)});
  store.add_row(L"[dbo].[items]", {vt(2), vt(11), vt(4)});

  store.relationships.push_back(
      udb_rel(L"FK_items_orders", L"dbo", L"[dbo].[items]", L"[dbo].[orders]", {L"order_id"}, {L"id"}, L""));
}

// The destination's dump files, made by the MySQL engine of the converter.
class dump_target : public mysql_target_engine {
 public:
  explicit dump_target(sql_engine& engine) : engine_(engine) {}

  std::unique_ptr<udb_database> create_dump(const std::wstring& path, const mysql_dump_options& given) override {
    return engine_.create_dump(path, mysql_dump_to_dump_options(given));
  }
  std::unique_ptr<udb_database> create_db(const std::wstring& /*name*/) override { throw unused(); }
  std::unique_ptr<udb_database> open_db(const std::wstring& /*name*/, std::uint32_t /*mode*/) override {
    throw unused();
  }
  void db_delete(const std::wstring& /*name*/) override { throw unused(); }
  bool is_db_exist(const std::wstring& /*name*/) override { return false; }

 private:
  static tk_exception unused() { return tk_exception(std::string("Only dump files in this test"), 1); }
  sql_engine& engine_;
};

class TypeMappings : public ::testing::Test {
 protected:
  TypeMappings() {
    converter.set_source_engine(source);
    fill_source(source.stores.store(L"sales"));
  }

  // Loads the profile text into the converter.
  void load(const std::string& text) {
    write_file(dir.file("p.qbr"), text);
    udb_profile profile;
    ASSERT_TRUE(profile.load(dir.file("p.qbr")));
    ASSERT_TRUE(converter.load_profile(profile));
  }

  user_folders folders;
  log_capture capture;
  handler_and_shell ui;
  temp_dir dir;
  memory_source_engine source;
  quillbridge_convertor converter;
};

std::vector<std::wstring> column_names(const udb_schema& schema) {
  std::vector<std::wstring> out;
  for (const t_ftd& c : schema) out.push_back(c.name);
  return out;
}

TEST_F(TypeMappings, ProfileChangesReachAnInMemoryDestination) {
  memory_target target;
  converter.set_target(target);
  converter.mysql_engine().set_version(0x0A0B13);
  load(std::string("[Generic settings]\nsrc=sales\ndest=shop\nmode=0\n[MySQL settings]\ndirect mode=1\n") +
       k_selection + k_type_mappings);
  ASSERT_NE(converter.get_table_mutator3(L"[dbo].[orders]"), nullptr);

  EXPECT_EQ(converter(), 0);

  EXPECT_TRUE(ui.shell.errors().empty());
  memory_store& shop = target.stores.store(L"shop");
  EXPECT_EQ(shop.table_names(), (names{L"customers", L"purchase_orders", L"items"}));
  const memory_table& orders = *shop.find_table(L"purchase_orders");
  EXPECT_EQ(column_names(orders.schema), (names{L"id", L"client", L"note", L"qty"}));
  EXPECT_EQ(orders.schema[1].native_type, L"VARCHAR(40)");
  EXPECT_EQ(orders.schema[2].vartype, vt::vt_bstr);
  EXPECT_EQ(orders.schema[2].native_type, L"TEXT");
  EXPECT_EQ(orders.schema[3].vartype, vt::vt_i8);
  EXPECT_EQ(orders.schema[3].native_type, L"BIGINT");
  ASSERT_EQ(orders.indexes.size(), 3U);
  EXPECT_EQ(orders.indexes[0].fields, (names{L"id"}));
  EXPECT_EQ(orders.indexes[1].fields, (names{L"client"}));
  EXPECT_TRUE(orders.indexes[2].fields.empty());

  ASSERT_EQ(orders.rows.size(), 3U);
  EXPECT_EQ(orders.rows[0].size(), 4U);
  EXPECT_EQ(orders.rows[0][1].name, L"client");
  EXPECT_EQ(orders.rows[0][1].to_wstring(), L"Ann");
  EXPECT_EQ(orders.rows[1][2].to_wstring(), L"naïve – ünïcode");
  EXPECT_EQ(orders.rows[0][3].get_type(), vt::vt_i8);
  EXPECT_EQ(orders.rows[0][3].to_wstring(), L"2147483647");
  EXPECT_EQ(orders.rows[1][3].to_wstring(), L"-5");
  EXPECT_TRUE(orders.rows[2][1].is_empty());

  // The foreign key names the table under its new name.
  ASSERT_EQ(shop.created_relationships.size(), 1U);
  EXPECT_EQ(shop.created_relationships[0].pk_table, L"purchase_orders");
  EXPECT_EQ(shop.created_relationships[0].fk_table, L"items");
  EXPECT_EQ(*shop.names_map.tn_map().find(L"[dbo].[orders]"), L"purchase_orders");

  // The other tables have no mutator; their rows pass as they are.
  EXPECT_EQ(shop.find_table(L"customers")->rows.size(), 2U);
  EXPECT_TRUE(capture.has_line("udb_db_mutator::modify1([dbo].[orders])"));
  EXPECT_TRUE(capture.has_line("Processing '[dbo].[orders]'"));
  EXPECT_TRUE(capture.has_line("tm_new_table_name=purchase_orders"));
}

// --- through a dump file into the test server ----------------------------------------

using table_rows = text_rows;

TEST_F(TypeMappings, ProfileChangesReachTheServerThroughADumpFile) {
  dump_target target(converter.mysql_engine());
  converter.set_target(target);
  // What the dump page stores for "dump new version".
  converter.mysql_engine().set_version(0x40100);
  const std::string file = dir.file("out.sql");
  load("[Generic settings]\nsrc=sales\ndest=" + file + "\nmode=0\n[MySQL settings]\ndirect mode=0\n" + k_selection +
       k_type_mappings);

  EXPECT_EQ(converter(), 0);
  EXPECT_TRUE(ui.shell.errors().empty());
  ASSERT_EQ(converter.table_reports.size(), 3U);
  EXPECT_EQ(converter.table_reports[1].target, L"purchase_orders");
  EXPECT_EQ(converter.table_reports[1].written, 3U);
  EXPECT_TRUE(capture.has_line("Skip index 'UX_secret' as it is built on empty fields list"));

  const mariadb_server& server = mariadb_server::main();
  const std::string database = "qb_mappings_" + std::to_string(::getpid());
  mariadb_session session(server);
  session.run("DROP DATABASE IF EXISTS `" + database + "`");
  session.run("CREATE DATABASE `" + database + "` CHARACTER SET utf8mb4");
  const replay_outcome replayed = replay_dump(server, database, file, false);
  ASSERT_EQ(replayed.exit_code, 0) << replayed.output;
  EXPECT_EQ(replayed.output.find("ERROR"), std::string::npos) << replayed.output;

  session.run("USE `" + database + "`");
  EXPECT_EQ(
      session.rows("SELECT COLUMN_NAME, DATA_TYPE, IFNULL(CHARACTER_MAXIMUM_LENGTH, '-') FROM "
                   "information_schema.COLUMNS WHERE TABLE_SCHEMA = DATABASE() AND TABLE_NAME = "
                   "'purchase_orders' ORDER BY ORDINAL_POSITION"),
      (table_rows{{"id", "int", "-"}, {"client", "varchar", "40"}, {"note", "text", "65535"}, {"qty", "bigint", "-"}}));
  EXPECT_EQ(session.rows("SELECT INDEX_NAME, COLUMN_NAME FROM information_schema.STATISTICS WHERE TABLE_SCHEMA = "
                         "DATABASE() AND TABLE_NAME = 'purchase_orders' ORDER BY INDEX_NAME, SEQ_IN_INDEX"),
            (table_rows{{"IX_customer", "client"}, {"PRIMARY", "id"}}));
  EXPECT_EQ(session.rows("SELECT id, client, note, qty FROM purchase_orders ORDER BY id"),
            (table_rows{{"10", "Ann", "first order", "2147483647"},
                        {"11", "Bør", "naïve – ünïcode", "-5"},
                        {"12", std::nullopt, "no customer", "0"}}));
  EXPECT_EQ(session.rows("SELECT TABLE_NAME FROM information_schema.TABLES WHERE TABLE_SCHEMA = DATABASE() ORDER BY "
                         "TABLE_NAME"),
            (table_rows{{"customers"}, {"items"}, {"purchase_orders"}}));

  // The foreign key of the order items points to the renamed table and
  // holds: an item of an order that does not exist is refused, a referenced
  // order cannot go, an item of an existing order is taken.
  EXPECT_EQ(session.rows("SELECT CONSTRAINT_NAME, REFERENCED_TABLE_NAME FROM "
                         "information_schema.REFERENTIAL_CONSTRAINTS WHERE CONSTRAINT_SCHEMA = DATABASE()"),
            (table_rows{{"FK_items_orders", "purchase_orders"}}));
  session.run("SET FOREIGN_KEY_CHECKS = 1");
  EXPECT_EQ(session.error_of("INSERT INTO items (id, order_id, amount) VALUES (3, 99, 1)"), 1452U);
  EXPECT_EQ(session.error_of("DELETE FROM purchase_orders WHERE id = 10"), 1451U);
  EXPECT_EQ(session.error_of("INSERT INTO items (id, order_id, amount) VALUES (3, 12, 1)"), 0U);
  session.run("DROP DATABASE `" + database + "`");
}

// --- malformed sections ------------------------------------------------------------------

TEST_F(TypeMappings, MalformedSectionLoadsWhatItCanAndTheRunGoesOn) {
  memory_target target;
  converter.set_target(target);
  converter.mysql_engine().set_version(0x0A0B13);
  load(std::string("[Generic settings]\nsrc=sales\ndest=shop\n[MySQL settings]\ndirect mode=1\n") + k_selection +
       "[Type Mappings]\n"
       "database:\n"
       "   engine: three blanks is still a property line\n"
       "tables:\n"
       "  - name: [dbo].[orders]\n"
       "   new_name: wrong indentation\n"
       "    fields:\n"
       "      - name:secret\n"
       "        new_name: secret\n"
       "        status: deleted\n"
       "        type: BIGINT\n"
       "        colour: red\n"
       "      - name:note\n"
       "        new_name: remark\n"
       "        status: changed\n"
       "        flavour: none\n"
       "        type: VARCHR\n"
       "        length: 15\n"
       "      - name:Qty\n"
       "        new_name: quantity\n"
       "        type: BIGINT\n"
       "    unknown: key\n"
       "  - name:[dbo].[items]\n"
       "    new_name: order_items\n");

  // Three blanks begin a property line of the database as well as two.
  EXPECT_EQ(converter.get_properties().at(L"engine"), L"three blanks is still a property line");
  const sql_table_mutator* orders = converter.get_table_mutator3(L"[dbo].[orders]");
  ASSERT_NE(orders, nullptr);
  EXPECT_EQ(orders->new_name(), L"[dbo].[orders]");
  const sql_field_mutator* secret = orders->get_field_mutator(L"secret");
  ASSERT_NE(secret, nullptr);
  EXPECT_EQ(secret->status, udb_field_deleted);
  EXPECT_EQ(secret->native_type.name, L"");
  const sql_field_mutator* note = orders->get_field_mutator(L"note");
  ASSERT_NE(note, nullptr);
  EXPECT_EQ(note->native_type.name, L"VARCHR");
  EXPECT_EQ(note->vartype, udb_keep_vartype);
  EXPECT_EQ(note->native_type.size, 15U);
  // "  - name:" with no blank behind the colon is a table all the same.
  ASSERT_NE(converter.get_table_mutator3(L"[dbo].[items]"), nullptr);
  EXPECT_EQ(converter.get_table_mutator3(L"[dbo].[items]")->new_name(), L"order_items");
  for (const char* line :
       {"Skipping    new_name: wrong indentation", "Skipping         type: BIGINT", "Skipping         colour: red",
        "Skipping         flavour: none", "Skipping     unknown: key",
        "Column 'note': 'VARCHR' is not a type name the target knows; the column keeps its value "
        "type"}) {
    EXPECT_TRUE(capture.has_line(line)) << line;
  }

  EXPECT_EQ(converter(), 0);

  EXPECT_TRUE(ui.shell.errors().empty());
  memory_store& shop = target.stores.store(L"shop");
  const memory_table* orders_table = shop.find_table(L"orders");
  ASSERT_NE(orders_table, nullptr);
  // secret is gone; note became remark with the unknown type's text; Qty
  // matches no column (the column is qty) and changes nothing.
  EXPECT_EQ(column_names(orders_table->schema), (names{L"id", L"customer", L"remark", L"qty"}));
  EXPECT_EQ(orders_table->schema[2].native_type, L"VARCHR");
  EXPECT_EQ(orders_table->schema[2].vartype, vt::vt_bstr);
  EXPECT_EQ(orders_table->schema[3].vartype, vt::vt_i4);
  EXPECT_EQ(orders_table->rows.size(), 3U);
  EXPECT_NE(shop.find_table(L"order_items"), nullptr);
  EXPECT_TRUE(capture.has_line("Table '[dbo].[orders]': the column 'Qty' of the type mappings is not in the table"));
}

TEST_F(TypeMappings, ValueThatCannotTakeItsNewTypeAbandonsOnlyItsTable) {
  memory_target target;
  converter.set_target(target);
  converter.mysql_engine().set_version(0x0A0B13);
  converter.src = L"sales";
  converter.dest = L"shop";
  sql_native_type decimal;
  decimal.name = L"DECIMAL";
  decimal.precision = 10;
  converter.get_table_mutator2(L"[dbo].[customers]", L"customers")->update_field(L"name", L"name", decimal);
  converter.selected_tables = {L"[dbo].[customers]", L"[dbo].[items]"};

  EXPECT_EQ(converter(), 0);

  EXPECT_EQ(ui.shell.errors(),
            (std::vector<std::string>{"[dbo].[customers]: Data conversion is not supported for given type mapping"}));
  ASSERT_EQ(converter.table_reports.size(), 2U);
  EXPECT_TRUE(converter.table_reports[0].failed);
  EXPECT_EQ(converter.table_reports[0].written, 0U);
  EXPECT_FALSE(converter.table_reports[1].failed);
  EXPECT_EQ(target.stores.store(L"shop").find_table(L"[dbo].[items]")->rows.size(), 2U);
}

// --- the tree in a profile ---------------------------------------------------------------

TEST_F(TypeMappings, StoredTreeLoadsBackIntoAnotherConverter) {
  sql_native_type price;
  price.name = L"DECIMAL";
  price.default_value = L"0.00";
  price.precision = 12;
  price.scale = 2;
  sql_table_mutator* orders = converter.get_table_mutator2(L"[dbo].[orders]", L"purchase_orders");
  orders->update_field(L"qty", L"price", price);
  sql_native_type note;
  note.name = L"TEXT";
  note.character_set = L"latin1";
  orders->update_field(L"note", L"remark", note);
  orders->mutable_properties()[L"engine"] = L"MyISAM";
  converter.mutable_properties()[L"character set"] = L"utf8mb4";
  converter.get_table_mutator2(L"[dbo].[items]", L"order_items");
  udb_profile out;
  ASSERT_TRUE(converter.store_profile(out, dir.file("stored.qbr")));
  const std::string text = read_file(dir.file("stored.qbr"));
  EXPECT_NE(text.find("[Type Mappings]\ndatabase:\n  character set: utf8mb4\ntables:\n  - name: [dbo].[items]\n"
                      "    new_name: order_items\n    fields:\n  - name: [dbo].[orders]\n"),
            std::string::npos)
      << text;

  udb_profile in;
  ASSERT_TRUE(in.load(dir.file("stored.qbr")));
  const udb_mutation_text expected = converter.to_text();
  quillbridge_convertor second;
  ASSERT_TRUE(second.load_profile(in));
  EXPECT_EQ(second.to_text(), expected);
  const sql_field_mutator* read_price = second.get_table_mutator3(L"[dbo].[orders]")->get_field_mutator(L"qty");
  ASSERT_NE(read_price, nullptr);
  EXPECT_EQ(read_price->vartype, vt::vt_decimal);
  EXPECT_EQ(read_price->native_type.default_value, L"0.00");
}

TEST_F(TypeMappings, ChangeThatALineCannotHoldIsRefusedWhenStored) {
  sql_native_type text;
  text.name = L"VARCHAR";
  text.size = 10;
  text.default_value = L"a=b";
  converter.get_table_mutator2(L"[dbo].[orders]", L"orders")->update_field(L"note", L"note", text);
  udb_profile out;
  try {
    converter.store_profile(out, dir.file("refused.qbr"));
    FAIL() << "stored";
  } catch (const tk_exception& e) {
    EXPECT_EQ(std::string(e.what()), "Cannot store the profile " + dir.file("refused.qbr") +
                                         ": the entry \"        default_value: a=b\" of section [Type Mappings] "
                                         "has a key that holds \"=\".");
  }
  EXPECT_FALSE(file_exists(dir.file("refused.qbr")));
}

TEST_F(TypeMappings, RunDoesNotResetTheTree) {
  memory_target target;
  converter.set_target(target);
  converter.mysql_engine().set_version(0x0A0B13);
  converter.src = L"sales";
  converter.dest = L"shop";
  converter.get_table_mutator2(L"[dbo].[customers]", L"clients");
  converter.selected_tables = {L"[dbo].[customers]"};
  EXPECT_EQ(converter(), 0);
  EXPECT_NE(target.stores.store(L"shop").find_table(L"clients"), nullptr);
  // The run does not reset the tree.
  ASSERT_NE(converter.get_table_mutator3(L"[dbo].[customers]"), nullptr);
  EXPECT_EQ(converter.get_table_mutator3(L"[dbo].[customers]")->new_name(), L"clients");
}

}  // namespace
}  // namespace qb::test
