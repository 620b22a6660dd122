// The fixture of the end-to-end tests that migrate databases of the SQL
// Server stand-in with the converter and its driver, either into a dump file
// that the stock mariadb client replays into the test MariaDB, or straight
// into that server, and then read every row back and compare it value by
// value with what the source reader delivers.
//
// The converter reaches the source through its own SQL Server engine and
// the destination through its own MySQL engine (the default seams). A run
// leaves one database on the test server (dropped by the destructor) and,
// per work-list entry, the name of the table it became.
//
// Where the target holds a value differently on purpose, the comparison says
// so: DATETIME and TIME keep as many fraction digits as the target column
// has (the source's, at most six), TIMESTAMP whole seconds; FLOAT is read
// with the six digits MariaDB prints; DECIMAL writes its scale's zeros;
// spatial values are compared as well-known text without blanks.
//
// Ownership: the fixture owns the converter, the sessions and the scratch
// directory; the stand-in belongs to the test suite and must outlive it.
// Thread-safety: the test's thread.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "app/convertor.h"
#include "sql/client.h"

#include "app_fixtures.h"
#include "mariadb_runs.h"
#include "support/mariadb_server.h"
#include "support/mss_standin.h"
#include "support/temp_dir.h"

namespace qb::test {

// Where a migration goes: a dump file replayed by the client, or the server.
enum class migration_path { dump, direct };

std::string to_string(migration_path path);
inline std::ostream& operator<<(std::ostream& out, migration_path path) { return out << to_string(path); }

// One run of the converter.
struct migration {
  std::wstring database;
  std::wstring schema;               // the schema filter; empty: none
  std::vector<std::wstring> tables;  // source names
  udb_named_texts queries;           // (name, SELECT text)
  std::vector<std::wstring> views;
};

struct target_column {
  std::string name;
  std::string data_type;
  int fraction_digits = 0;  // DATETIME(n), TIME(n)
};

class source_migration : public ::testing::Test {
 protected:
  source_migration();
  ~source_migration() override;

  // Points the converter's SQL Server engine at the stand-in (as "sa").
  void connect_source(const mss_standin& standin);

  // Runs the migration by the path; returns the database on the test server
  // that holds its result. Checks that the run finished, that no error was
  // reported, and that every table's counts say nothing was lost, in the
  // reports and in the driver's log line.
  std::string run(const migration& m, migration_path path);

  std::vector<target_column> columns(const std::string& db, const std::string& table);

  // The rows of a migrated entry: the target's, and the source's as the
  // target must give them; both sorted, compared cell by cell.
  void expect_same_rows(const migration& m, const std::string& db, const std::wstring& entry,
                        const std::wstring& query = {});
  // Every table entry of the migration with the same rows.
  void expect_same_rows_of_all_tables(const migration& m, const std::string& db);

  // The keys of the migrated tables as the source has them: each index of
  // a source table (its key columns; included columns are no part of a
  // MySQL index) with its uniqueness, the primary key as PRIMARY, each
  // identity column AUTO_INCREMENT, and each foreign key between two
  // migrated tables with its columns and target tables; read back from
  // information_schema. Indexes in except are left out (documented by the
  // caller).
  void expect_keys_as_in_source(const migration& m, const std::string& db,
                                const std::vector<std::wstring>& except = {});

  text_rows target_rows(const std::string& statement) { return target_.rows(statement); }
  mariadb_session& target() { return target_; }
  // The destination table of a work-list entry in the last run.
  std::string target_of(const std::wstring& entry) { return targets_[entry]; }

  user_folders folders_;
  log_capture capture_{2};
  handler_and_shell ui_;
  const mariadb_server& server_;
  mariadb_session target_;
  temp_dir dir_;
  quillbridge_convertor converter_;

 private:
  std::string new_database_name();

  bool connected_to_target_ = false;
  std::map<std::wstring, std::string> targets_;
  std::vector<std::string> databases_;
};

}  // namespace qb::test
