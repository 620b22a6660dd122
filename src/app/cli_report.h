// The finish report of quillbridge-cli: what the wizard's finish page says,
// and the figures a run from the command line is judged by.
//
//   Conversion is Completed
//
//   Wizard has converted your MS SQL database into
//   MySQL data source successfully.
//
//   Table '[dbo].[people]': 1000 read, 998 written, 2 not written (duplicate keys or errors), 0 warnings
//   Views: 12 converted, 3 failed
//   Elapsed time: 12.3 s, 1,000 rows read, 81 rows/s
//   Log file: /home/ann/Documents/Quillbridge.log
//   Dump file: /srv/out/sales.sql
//
// With errors the second paragraph is the finish page's failure text ("There
// were some errors while converting the database.", without the line about
// the Finish button) followed by the errors, each on its own line and
// followed by an empty line, as the finish page lists them. An interrupted
// run is headed "Conversion was interrupted" and says where it stopped; a run
// that failed before its source and destination were open is headed
// "Conversion could not start" and lists why. With --quiet only the outcome
// and the errors are printed.
//
// The outcome decides the exit status: 0 success, 1 errors, 2 not started,
// 130 interrupted.
//
// Thread-safety: pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "udb/converter.h"

namespace qb {

// What the report is made of, gathered once the run has finished.
struct cli_report_input {
  std::vector<udb_table_report> tables;  // one per work-list entry the run reached
  udb_view_report views;
  bool views_selected = false;          // views were chosen and are converted at all
  std::vector<std::wstring> work_list;  // the entries' names, in order
  std::uint64_t last_record = 0;        // n_done_records at the end
  std::uint64_t last_records = 0;       // n_records at the end
  std::vector<std::string> errors;      // one line each, at most 20 as on the finish page
  std::size_t failures = 0;             // failures the user was told of during the run
  bool interrupted = false;             // a signal stopped the run
  bool opened = true;                   // the run opened its source and destination
  double seconds = 0;                   // wall time of the run
  std::string log_file;
  std::string destination;  // "Dump file: ..." or "Destination: ..."
};

enum class cli_outcome { success, errors, not_started, interrupted };

[[nodiscard]] cli_outcome cli_outcome_of(const cli_report_input& input);
// 0, 1, 2 or 130.
[[nodiscard]] int cli_exit_code(cli_outcome outcome);

// The report's lines, joined with LF, without a final line end.
[[nodiscard]] std::string cli_report_text(const cli_report_input& input, bool quiet);

// The line of one table, as the conversion logs it.
[[nodiscard]] std::string cli_table_line(const udb_table_report& table);
// Where an interrupted run stopped.
[[nodiscard]] std::string cli_stop_text(const cli_report_input& input);

// The finish page's texts.
inline constexpr char cli_caption[] = "Conversion is Completed";
inline constexpr char cli_caption_interrupted[] = "Conversion was interrupted";
inline constexpr char cli_caption_not_started[] = "Conversion could not start";
inline constexpr char cli_success_text[] =
    "Wizard has converted your MS SQL database into\nMySQL data source successfully.";
inline constexpr char cli_failure_text[] = "There were some errors while converting the database.";

}  // namespace qb
