// Memory and speed of the dump destination on a table of 1,000,000 rows.
//
// The rows are generated one at a time into one reused record, as a reading
// recordset hands them out (nothing of the table is held), with a column of
// each common kind: an identity, a 64-bit integer, a money-like decimal, a
// date and time, a short text with a quote, a longer text, a flag.
//
//   baseline   generates every row and measures it (get_total_size), the
//              work of the source and the driver without a destination;
//   dump       the same rows through dmp_database / dmp_recordset into a
//              dump file (multi-row INSERT statements of about 1 MB).
//
// Printed: the time of each and their ratio, the file's size, and the peak
// resident set of the process (getrusage ru_maxrss) after each phase. The
// goal for the peak is under 64 MB; it is printed, not enforced.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include <sys/resource.h>
#include <unistd.h>

#include "sql/dump.h"
#include "sql/engine.h"
#include "tk/utf.h"
#include "udb/recordset.h"

namespace {

using qb::ole_variant;
using qb::t_ftd;
using qb::udb_record;

constexpr std::size_t row_count = 1000000;

t_ftd column(const wchar_t* name, std::uint16_t type, std::uint32_t size = 0, std::uint32_t dw = 0) {
  t_ftd f;
  f.name = name;
  f.vartype = type;
  f.size = size;
  f.dw_reserved = dw;
  return f;
}

// A table whose rows are made on demand.
class generated_table : public qb::udb_recordset {
 public:
  generated_table() : udb_recordset(L"generated") {
    t_ftd id = column(L"id", ole_variant::vt_i4);
    id.b_auto_num = true;
    schema_.push_back(id);
    schema_.push_back(column(L"account", ole_variant::vt_i8));
    t_ftd amount = column(L"amount", ole_variant::vt_decimal);
    amount.prec = 19;
    amount.scale = 4;
    schema_.push_back(amount);
    schema_.push_back(column(L"created", ole_variant::vt_date, 0, 1));
    schema_.push_back(column(L"name", ole_variant::vt_bstr, 50));
    schema_.push_back(column(L"note", ole_variant::vt_bstr, 0));
    schema_.push_back(column(L"active", ole_variant::vt_bool));
    indexes_.push_back(qb::udb_index(L"PK_generated", false, true, {L"id"}));
    for (const t_ftd& f : schema_) row_.emplace_back(f.name, f.size, ole_variant());
  }

  void append_record(udb_record&) override {}
  void reset() override { position_ = 0; }
  bool is_eof() override { return static_cast<std::size_t>(position_) >= row_count; }
  void next() override { ++position_; }
  udb_record* get_item() override {
    const auto n = static_cast<std::uint32_t>(position_);
    value(0) = ole_variant(static_cast<int>(n + 1));
    value(1) = ole_variant(static_cast<long long>(n) * 7919LL + 1000000007LL);
    ole_variant amount =
        ole_variant::from_string(std::to_string(n % 100000) + "." + std::to_string(n % 10000), ole_variant::vt_decimal);
    value(2) = amount;
    text_ = "2024-" + std::to_string(1 + n % 12) + "-" + std::to_string(1 + n % 28) + " 12:" + std::to_string(n % 60) +
            ":" + std::to_string(n % 60) + ".123";
    value(3) = ole_variant::from_string(text_, ole_variant::vt_date);
    value(4) = ole_variant(L"Customer O'Brien #" + std::to_wstring(n));
    value(5) = ole_variant(std::wstring(L"Delivery note line ") + std::to_wstring(n % 997) +
                           L" - handle with care, \"fragile\" goods\\n");
    value(6) = ole_variant(n % 3 == 0);
    return &row_;
  }

 private:
  // The value part of a field of the reused row.
  ole_variant& value(std::size_t i) { return row_[i]; }

  udb_record row_;
  std::string text_;
};

double peak_rss_mb() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024.0;  // kilobytes on Linux
}

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main() {
  const char* tmp = std::getenv("TMPDIR");
  const std::string path = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/qb_dump_bench_" +
                           std::to_string(::getpid()) + ".sql";
  qb::sql_engine engine;
  generated_table source;

  // Baseline: the rows alone.
  auto start = std::chrono::steady_clock::now();
  std::uint64_t total = 0;
  for (source.reset(); !source.is_eof(); source.next()) total += source.get_item()->get_total_size();
  const double baseline = seconds_since(start);
  const double rss_baseline = peak_rss_mb();

  // The dump.
  start = std::chrono::steady_clock::now();
  std::uint64_t file_size = 0;
  {
    qb::dump_options options;
    auto dump = engine.create_dump(qb::tk_utf8_decode(path), options);
    qb::udb_indexes indexes = source.indexes();
    auto table = dump->create_table(L"generated", source.schema(), indexes);
    for (source.reset(); !source.is_eof(); source.next()) table->append_record(*source.get_item());
    table->finish();
    table.reset();
    dump->finish();
    file_size = dump->file().size();
  }
  const double dump_time = seconds_since(start);
  const double rss_dump = peak_rss_mb();
  std::remove(path.c_str());

  std::printf("rows                      %zu (row bytes counted: %llu)\n", row_count,
              static_cast<unsigned long long>(total));
  std::printf("dump file                 %.1f MB\n", static_cast<double>(file_size) / 1e6);
  std::printf("baseline (rows only)      %.2f s\n", baseline);
  std::printf("dump                      %.2f s  (%.0f rows/s)\n", dump_time, row_count / dump_time);
  std::printf("dump / baseline           %.2f\n", dump_time / baseline);
  std::printf("peak RSS after baseline   %.1f MB\n", rss_baseline);
  std::printf("peak RSS after dump       %.1f MB  (goal: under 64 MB)\n", rss_dump);
  return 0;
}
