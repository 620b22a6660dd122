// Helpers of the dump replay tests: the stock mariadb client fed a dump
// file, a run of the dump destination the way the conversion driver runs a
// destination, and a table read back as values.
//
// Thread-safety: one test at a time per object.
#pragma once

#include <string>
#include <vector>

#include <mysql.h>

#include "ole/variant.h"
#include "sql/dump.h"
#include "sql/engine.h"

#include "support/mariadb_server.h"
#include "support/memory_database.h"

namespace qb::test {

struct client_result {
  int exit_code = -1;
  std::string output;  // standard output and standard error
};

// Runs "mariadb --no-defaults --protocol=TCP -h.. -P.. -u.. -p.. --show-warnings
// [database]" with the file as its standard input.
client_result run_mariadb_client(const mariadb_server& server, const mariadb_account& account, const std::string& file,
                                 const std::string& database = {});

// The lines of the client's output that report a warning, a note or an
// error.
std::vector<std::string> diagnostic_lines(const std::string& output);
// The same without the notes that "DROP FUNCTION IF EXISTS" gives for a
// function that is not there yet (code 1305), which a replay into a new
// database always gives; dropped counts them.
std::vector<std::string> unexpected_diagnostics(const std::string& output, std::size_t* dropped = nullptr);

// Copies the tables of source (in the order given) into the dump as the
// conversion driver does: a table-name validator of the dialect, a safe
// name per table, create_table, every row through append_record, the
// recordset finished, the rename recorded; then the foreign keys, the
// compatibility functions, the views and finish(). Returns the target name
// of each table.
std::vector<std::wstring> run_like_driver(sql_engine& engine, memory_store& source,
                                          const std::vector<std::wstring>& tables, dmp_database& dump);

// Every row of a statement's result as values, through get_variant with the
// column's type and flags.
std::vector<std::vector<ole_variant>> read_rows(MYSQL* connection, const std::string& statement);

}  // namespace qb::test
