#include "app/cli_progress.h"

#include <algorithm>
#include <vector>

#include "app/cli_console.h"
#include "tk/format.h"
#include "udb/converter.h"

namespace qb {

namespace {

constexpr char k_opening[] = "Opening the source and the destination";
constexpr char k_closing[] = "Converting table relationships";
constexpr char k_ellipsis[] = "...";

// Columns of a UTF-8 text, one per character.
int columns_of(const std::string& text) {
  int n = 0;
  for (const char c : text) n += (static_cast<unsigned char>(c) & 0xC0) == 0x80 ? 0 : 1;
  return n;
}

// The name cut to the columns, its end replaced by "...".
std::string shorten(const std::string& name, int columns) {
  if (columns_of(name) <= columns) return name;
  if (columns <= 3) return cli_fit_columns(k_ellipsis, columns);
  return cli_fit_columns(name, columns - 3) + k_ellipsis;
}

}  // namespace

cli_progress_sample cli_sample(const udb_converter& converter) {
  cli_progress_sample sample;
  sample.n_tables = converter.n_tables.load();
  sample.n_done_tables = converter.n_done_tables.load();
  sample.n_records = converter.n_records.load();
  sample.n_done_records = converter.n_done_records.load();
  sample.current_table = converter.current_table();
  return sample;
}

std::string cli_group_digits(std::uint64_t value) {
  std::string digits = std::to_string(value);
  for (int i = static_cast<int>(digits.size()) - 3; i > 0; i -= 3) digits.insert(static_cast<std::size_t>(i), ",");
  return digits;
}

std::string cli_duration(std::chrono::seconds duration) {
  const long long total = std::max<long long>(duration.count(), 0);
  const long long hours = total / 3600;
  const long long minutes = total / 60 % 60;
  const long long seconds = total % 60;
  if (hours > 0) return tk_format("%lld:%02lld:%02lld", hours, minutes, seconds);
  return tk_format("%lld:%02lld", minutes, seconds);
}

std::string cli_progress_meter::line(const cli_progress_sample& sample, clock::time_point now, int width) {
  if (sample.n_tables == 0) {
    measuring_ = false;
    return cli_fit_columns(sample.current_table.empty() ? k_opening : k_closing, width);
  }
  if (!measuring_ || entry_ != sample.n_done_tables || table_ != sample.current_table ||
      sample.n_done_records < start_rows_) {
    measuring_ = true;
    entry_ = sample.n_done_tables;
    table_ = sample.current_table;
    start_ = now;
    start_rows_ = sample.n_done_records;
  }

  const std::uint32_t number = std::min(sample.n_done_tables + 1, sample.n_tables);
  const std::string prefix = tk_format("[%u/%u] ", number, sample.n_tables);
  std::vector<std::string> parts;  // most important first
  parts.push_back(
      tk_format("  %s/%s rows", cli_group_digits(sample.n_done_records), cli_group_digits(sample.n_records)));
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const std::uint64_t rows = sample.n_done_records - start_rows_;
  if (seconds > 0.0 && rows > 0) {
    const double rate = static_cast<double>(rows) / seconds;
    parts.push_back(tk_format("  %s rows/s", cli_group_digits(static_cast<std::uint64_t>(rate))));
    if (sample.n_records > sample.n_done_records) {
      const double left = static_cast<double>(sample.n_records - sample.n_done_records) / rate;
      parts.push_back("  ETA " + cli_duration(std::chrono::seconds(static_cast<long long>(left + 0.5))));
    }
  }

  const std::string name = cli_narrow(sample.current_table);
  // The name keeps at least a few columns; the least important parts go
  // first when they do not fit.
  constexpr int k_name_min = 12;
  while (!parts.empty()) {
    int fixed = columns_of(prefix);
    for (const std::string& part : parts) fixed += columns_of(part);
    if (width - fixed >= std::min(k_name_min, columns_of(name)) || parts.size() == 1) break;
    parts.pop_back();
  }
  int fixed = columns_of(prefix);
  for (const std::string& part : parts) fixed += columns_of(part);
  std::string text = prefix + shorten(name, std::max(width - fixed, 0));
  for (const std::string& part : parts) text += part;
  return cli_fit_columns(text, width);
}

}  // namespace qb
