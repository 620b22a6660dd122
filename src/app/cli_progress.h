// The live progress line of quillbridge-cli, and the numbers it shows.
//
// The main thread samples the converter's progress fields (the same ones the
// wizard's progress page reads on its timer) and turns each sample into one
// line that fits the terminal:
//
//   [2/5] [dbo].[orders]  12,345/100,000 rows  8,200 rows/s  ETA 0:11
//
// Table n of N counts the work list (custom queries and tables); the rate and
// the estimate are for the current table, measured from the first sample
// that showed it. When the table name does not fit it is shortened with
// "...", then the estimate and the rate are left out. Before the first table
// the line says the databases are being opened; after the last, the wizard's
// closing caption "Converting table relationships".
//
// Thread-safety: a meter belongs to the thread that samples.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace qb {

class udb_converter;

// One reading of the progress fields.
struct cli_progress_sample {
  std::uint32_t n_tables = 0;
  std::uint32_t n_done_tables = 0;
  std::uint64_t n_records = 0;
  std::uint64_t n_done_records = 0;
  std::wstring current_table;
};

// Reads the fields, without a lock, as the progress page does.
cli_progress_sample cli_sample(const udb_converter& converter);

class cli_progress_meter {
 public:
  using clock = std::chrono::steady_clock;

  // The line for a sample taken at `now`, at most `width` columns wide.
  std::string line(const cli_progress_sample& sample, clock::time_point now, int width);

 private:
  std::uint32_t entry_ = 0;  // n_done_tables of the table being measured
  std::wstring table_;       // its name
  bool measuring_ = false;
  clock::time_point start_;  // when it was first seen
  std::uint64_t start_rows_ = 0;
};

// 1234567 as "1,234,567".
std::string cli_group_digits(std::uint64_t value);
// A duration as "m:ss", or "h:mm:ss" from an hour on.
std::string cli_duration(std::chrono::seconds duration);

}  // namespace qb
