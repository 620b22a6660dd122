#include "app/cli_report.h"

#include <algorithm>
#include <chrono>
#include <numeric>

#include "app/cli_console.h"
#include "app/cli_progress.h"
#include "tk/format.h"

namespace qb {

namespace {

std::string table_name(const std::wstring& name) { return cli_narrow(name); }

std::string views_line(const cli_report_input& input) {
  const udb_view_report& views = input.views;
  if (!views.attempted) return input.views_selected ? "Views: not converted" : std::string();
  if (!views.counted) {
    return views.handed == 0 ? std::string() : tk_format("Views: %u handed to the destination", views.handed);
  }
  std::string text = tk_format("Views: %u converted, %u failed", views.created, views.failed);
  if (views.skipped != 0) text += tk_format(", %u skipped (not a SELECT)", views.skipped);
  return text;
}

std::string elapsed_line(const cli_report_input& input) {
  const std::uint64_t rows = std::accumulate(input.tables.begin(), input.tables.end(), std::uint64_t{0},
                                             [](std::uint64_t sum, const udb_table_report& t) { return sum + t.read; });
  const std::string time = input.seconds < 60.0
                               ? tk_format("%.1f s", input.seconds)
                               : cli_duration(std::chrono::seconds(static_cast<long long>(input.seconds + 0.5)));
  std::string text = tk_format("Elapsed time: %s, %s rows read", time, cli_group_digits(rows));
  if (input.seconds > 0.0 && rows != 0) {
    const auto rate = static_cast<std::uint64_t>(static_cast<double>(rows) / input.seconds);
    text += tk_format(", %s rows/s", cli_group_digits(rate));
  }
  return text;
}

void add_errors(const cli_report_input& input, std::vector<std::string>& lines) {
  for (const std::string& error : input.errors) {
    lines.push_back(error);
    lines.emplace_back();
  }
  if (input.failures > input.errors.size()) {
    lines.push_back(tk_format("%llu more errors are in the log.",
                              static_cast<unsigned long long>(input.failures - input.errors.size())));
    lines.emplace_back();
  }
}

}  // namespace

cli_outcome cli_outcome_of(const cli_report_input& input) {
  if (input.interrupted) return cli_outcome::interrupted;
  if (!input.opened) return cli_outcome::not_started;
  const bool failed_table =
      std::any_of(input.tables.begin(), input.tables.end(), [](const udb_table_report& t) { return t.failed; });
  if (!input.errors.empty() || input.failures != 0 || failed_table) return cli_outcome::errors;
  return cli_outcome::success;
}

int cli_exit_code(cli_outcome outcome) {
  switch (outcome) {
    case cli_outcome::success:
      return 0;
    case cli_outcome::errors:
      return 1;
    case cli_outcome::not_started:
      return 2;
    case cli_outcome::interrupted:
      return 130;
  }
  return 1;
}

std::string cli_table_line(const udb_table_report& table) {
  if (table.skipped) return tk_format("Table '%s': skipped, it exists at the destination", table_name(table.name));
  std::string text =
      tk_format("Table '%s': %llu read, %llu written, %llu not written (duplicate keys or errors), %llu warnings",
                table_name(table.name), table.read, table.written, table.not_written, table.warnings);
  if (table.cancelled) {
    text += " - interrupted";
  } else if (table.failed) {
    text += " - failed";
  }
  return text;
}

std::string cli_stop_text(const cli_report_input& input) {
  const auto stopped =
      std::find_if(input.tables.begin(), input.tables.end(), [](const udb_table_report& t) { return t.cancelled; });
  if (stopped != input.tables.end()) {
    const std::string where = input.last_record == 0
                                  ? tk_format("in table '%s' before its first record", table_name(stopped->name))
                                  : tk_format("in table '%s' after record #%llu of %llu", table_name(stopped->name),
                                              input.last_record, input.last_records);
    return tk_format(
        "The conversion was interrupted %s. The %llu rows read until then were written; the rest of the table, "
        "the tables after it, relationships and views were not converted.",
        where, stopped->written);
  }
  if (input.tables.size() < input.work_list.size()) {
    return tk_format(
        "The conversion was interrupted before table '%s' (%llu of %llu tables done). The tables from there on, "
        "relationships and views were not converted.",
        table_name(input.work_list[input.tables.size()]), static_cast<unsigned long long>(input.tables.size()),
        static_cast<unsigned long long>(input.work_list.size()));
  }
  if (!input.views.attempted) {
    return "The conversion was interrupted after its last table; relationships and views may be missing (the log "
           "says which were converted).";
  }
  return "The conversion was interrupted after its last table; relationships and views were converted.";
}

std::string cli_report_text(const cli_report_input& input, bool quiet) {
  const cli_outcome outcome = cli_outcome_of(input);
  std::vector<std::string> lines;
  if (outcome == cli_outcome::interrupted) {
    lines.emplace_back(cli_caption_interrupted);
    lines.emplace_back();
    lines.push_back(cli_stop_text(input));
    lines.emplace_back();
    if (!input.errors.empty() || input.failures != 0) {
      lines.emplace_back(cli_failure_text);
      lines.emplace_back();
      add_errors(input, lines);
    }
  } else if (outcome == cli_outcome::not_started) {
    lines.emplace_back(cli_caption_not_started);
    lines.emplace_back();
    add_errors(input, lines);
  } else if (outcome == cli_outcome::errors) {
    lines.emplace_back(cli_caption);
    lines.emplace_back();
    lines.emplace_back(cli_failure_text);
    lines.emplace_back();
    add_errors(input, lines);
  } else {
    lines.emplace_back(cli_caption);
    lines.emplace_back();
    lines.emplace_back(cli_success_text);
    lines.emplace_back();
  }
  if (!quiet) {
    for (const udb_table_report& table : input.tables) lines.push_back(cli_table_line(table));
    if (std::string views = views_line(input); !views.empty()) lines.push_back(std::move(views));
    lines.push_back(elapsed_line(input));
    if (!input.log_file.empty()) lines.push_back("Log file: " + input.log_file);
    if (!input.destination.empty()) lines.push_back(input.destination);
  }
  while (!lines.empty() && lines.back().empty()) lines.pop_back();
  std::string text;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i != 0) text += '\n';
    text += lines[i];
  }
  return text;
}

}  // namespace qb
