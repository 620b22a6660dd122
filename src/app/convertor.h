// quillbridge_convertor: the converter of this program, the one holder of the
// settings of a conversion and the body of its worker thread.
//
// It combines the database converter (scenario, selection lists, progress,
// reports), the SQL Server half, the MySQL half, the per-user settings store,
// the tree of the user's changes to tables (sql_db_mutator), and the services
// the conversion driver asks for. The wizard pages read and
// write its fields; the profile loads and stores them in one go; operator()
// runs one conversion (app/driver.h) on the worker thread.
//
// Construction runs the bases in order (logging "udb_converter::ctor"), logs
// "quillbridge_convertor::ctor", registers the singleton and loads the
// per-user settings. The tree of changes is handed to the MySQL engine
// (set_properties), whose table definitions read the character set of a
// changed column from it. Destruction logs "quillbridge_convertor::dtor",
// takes the tree back from the engine, saves the per-user settings, clears
// the singleton and takes the parts down in reverse order.
//
// Ownership: the entry routine owns the converter (a local); the converter
// owns the MySQL engine, the settings, the reports and the tree of the user's
// changes, which lives as long as it does and is not reset by a run. The SQL
// Server engine and the destination's database maker are plugged in by their
// owners (set_source_engine, set_target) and must outlive their use.
// Thread-safety: the wizard thread until a run starts; the worker during it
// (see udb/converter.h for the fields the wizard reads meanwhile).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "app/driver.h"
#include "app/mssql_converter.h"
#include "app/mysql_converter.h"
#include "sql/mutator.h"
#include "tk/settings.h"
#include "tk/singleton.h"
#include "udb/converter.h"
#include "udb/database.h"
#include "udb/schema.h"

namespace qb {

class udb_profile;

// Checks that a dump file can be written at path, in this order, each
// failure a tk_exception_ex shown to the user as it stands:
//   a folder (or no name at all): "Destination name should specify a file,
//     not folder.";
//   an existing read-only file: "Destination name specifies an existing
//     read-only file.";
//   a folder part that does not exist: "Destination path does not
//     exist.\nPlease verify the correct path was given.";
//   a folder in which no file can be created: "Cannot create or write into
//     the destination file.\nRun the program as Administrator or change
//     folder.".
// Logs "common_check_dest(%s)".
void common_check_dest(const std::wstring& path);

class quillbridge_convertor : public udb_converter,
                              public mssql_converter_impl,
                              public mysql_converter_impl,
                              public tk_serializer,
                              public sql_db_mutator,
                              public conversion_services,
                              public tk_singleton<quillbridge_convertor> {
 public:
  quillbridge_convertor();
  ~quillbridge_convertor() override;

  // Runs one conversion (run_conversion with this converter as its
  // services). Throws nothing; returns 0.
  int operator()() override;
  // Whether the source accepts the SELECT text: the SQL Server half's test
  // on the source database.
  int test_query(const std::wstring& text) override;

  // Before a run. Logs "quillbridge_convertor::check_dest". A server: a
  // database that exists is dropped in scenario 0. A dump file:
  // common_check_dest, then an existing file is deleted (a failure throws
  // tk_exception_ex with the system's text).
  void check_dest();
  // True for a dump file; for a server, when its version is above 5.0.0.
  // Logs "quillbridge_convertor::can_create_views".
  bool can_create_views() override;

  // The destination of a run, owned by the caller. Logs
  // "quillbridge_convertor::get_dest_base". A server: "mode=%08X", then the
  // database is opened (open mode 164 in scenario 0, 416 in scenario 4, 168
  // otherwise) or, when it does not exist, created. A dump file: the title
  // "Quillbridge 8.1 " goes into the dump options, then the file is made.
  std::unique_ptr<udb_database> get_dest_base() override;

  // The columns of a source table, for the type-map dialog; a copy that
  // stays valid. Logs "quillbridge_convertor::get_schema(%s)". A table the
  // source does not have is an internal error.
  udb_schema get_schema(const std::wstring& table);
  // The source's tables (through the schema filter). Logs
  // "quillbridge_convertor::get_all_tables".
  void get_all_tables(std::vector<std::wstring>& out);
  // The source's views with their definitions (through the schema filter).
  // Logs "quillbridge_converter::get_all_views".
  void get_all_views(udb_view_list& out);

  // Loads a profile in the order: the database converter, the MySQL half,
  // the SQL Server half, the user's changes (section "Type Mappings", added
  // to the tree), then "view owned", "direct
  // mode", "character set" and "storage engine", then the table names of
  // "Selected Tables" are turned into the bracketed form ("%s->%s"). Returns
  // true; a failure throws.
  bool load_profile(const udb_profile& profile);
  // Fills the profile in the same order, writes "Selected Tables" with the
  // tables in the composed form ("owner.name"), the tree of the user's
  // changes (section "Type Mappings"), and
  // stores the file at path (mode 0600). Returns true; a failure throws.
  bool store_profile(udb_profile& profile, const std::string& path);

  // Reads (store false) or writes (store true) the per-user settings. Logs
  // "serialize( %d )". Reading puts each default in place first.
  void serialize(bool store);

  // The two engines (both halves name theirs `engine`).
  sql_engine& mysql_engine() { return mysql_converter_impl::engine; }
  [[nodiscard]] const sql_engine& mysql_engine() const { return mysql_converter_impl::engine; }
  mss_engine& mssql_engine() { return mssql_converter_impl::engine; }

  // --- conversion_services ---------------------------------------------------------
  std::unique_ptr<udb_database> open_source(const std::wstring& name, std::uint32_t mode,
                                            const std::wstring& schema) override;
  std::uint32_t dest_version() override;
  std::unique_ptr<udb_validator> create_tn_validator(std::uint32_t version) override;
  [[nodiscard]] bool is_direct() const override { return direct != 0; }
  void set_max_allowed_packet(std::uint32_t bytes) override;
  [[nodiscard]] std::uint8_t fast_mode() const override;
  void set_fast_mode(std::uint8_t value) override;
  sql_table_mutator* find_table_mutator(const std::wstring& source_name) override;
  [[nodiscard]] std::wstring source_schema() const override { return mss_schema; }

  // 1: the destination is a MySQL server; 0: a dump file.
  std::uint8_t direct = 1;

 private:
  void load_table_names();
  void store_selected_tables(udb_profile& profile) const;
};

// The open mode of the destination database in a scenario.
std::uint32_t app_dest_open_mode(std::uint32_t mode);

}  // namespace qb
