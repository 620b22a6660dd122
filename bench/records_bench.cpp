// Handing rows over between recordsets, the per-row work of the model.
//
// 100,000 rows of 20 columns (integers, 64-bit integers, decimals and short
// texts) are taken one at a time as a reading recordset hands them out, made
// to fit the destination (convert_record, through a field-name map that
// renames some columns) and measured (get_total_size), as the MySQL target
// does before it renders a row.
//
//   baseline     copies each row's values into one reused vector of values:
//                the least any hand-over must do;
//   reused       refills one udb_record per recordset (what the readers do);
//   fresh        builds a new udb_record, field by field, for every row.
//
// The figures to watch are the ratios printed at the end.
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "ole/variant.h"
#include "tk/log.h"
#include "udb/database.h"
#include "udb/recordset.h"

namespace {

using qb::ole_variant;
using qb::udb_field;
using qb::udb_record;

constexpr std::size_t row_count = 100000;
constexpr std::size_t column_count = 20;

std::wstring column_name(std::size_t i) { return L"column number " + std::to_wstring(i); }

std::vector<udb_record> make_rows() {
  std::mt19937_64 rng(7);
  static const wchar_t* const words[] = {L"alpha", L"Bravo Street 12", L"charlie@example.com", L"Delta"};
  std::vector<udb_record> rows(row_count);
  for (udb_record& row : rows) {
    row.reserve(column_count);
    for (std::size_t c = 0; c < column_count; ++c) {
      ole_variant value;
      switch (c % 4) {
        case 0:
          value = ole_variant(static_cast<int>(rng() % 1000000));
          break;
        case 1:
          value = ole_variant(static_cast<long long>(rng() >> 1));
          break;
        case 2:
          value = ole_variant::from_wstring(L"12345.6789", ole_variant::vt_decimal);
          break;
        default:
          value = ole_variant(std::wstring(words[rng() % 4]));
          break;
      }
      row.emplace_back(column_name(c), 20, value);
    }
  }
  return rows;
}

const std::vector<udb_record>& rows() {
  static const std::vector<udb_record> all = make_rows();
  return all;
}

// A destination whose columns are the source's, every third one renamed.
class destination : public qb::udb_database {
 public:
  destination() : udb_database(L"bench", 0) {
    qb::t_names_map renames;
    for (std::size_t c = 0; c < column_count; c += 3) renames.insert(column_name(c), L"renamed " + column_name(c));
    names_map().add_fn_map(L"t", renames);
  }
  std::unique_ptr<qb::udb_recordset> create_table(const std::wstring&, const qb::udb_schema&,
                                                  qb::udb_indexes&) override {
    return nullptr;
  }
  std::unique_ptr<qb::udb_recordset> get_query(const std::wstring&, const std::wstring&, std::uint32_t) override {
    return nullptr;
  }
  std::unique_ptr<qb::udb_recordset> get_table(const std::wstring&, std::uint32_t) override { return nullptr; }
  bool test_query(const std::wstring&) override { return false; }
};

class table : public qb::udb_recordset {
 public:
  explicit table(destination* db) : udb_recordset(db, L"t", true) {
    const udb_record& first = rows().front();
    for (std::size_t c = 0; c < column_count; ++c) {
      qb::t_ftd column;
      column.name = c % 3 == 0 ? L"renamed " + column_name(c) : column_name(c);
      column.vartype = first[c].ole_variant::get_type();
      column.size = 20;
      schema_.push_back(column);
    }
  }
  void append_record(udb_record&) override {}
};

void set_per_row(benchmark::State& state) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * row_count));
}

void BM_baseline_values(benchmark::State& state) {
  std::vector<ole_variant> values(column_count);
  for (auto _ : state) {
    std::size_t total = 0;
    for (const udb_record& row : rows()) {
      for (std::size_t c = 0; c < column_count; ++c) values[c] = row[c];
      total += values.size();
    }
    benchmark::DoNotOptimize(total);
  }
  set_per_row(state);
}

void BM_reused_record(benchmark::State& state) {
  destination db;
  const table target(&db);
  udb_record current;
  for (auto _ : state) {
    std::size_t total = 0;
    for (const udb_record& row : rows()) {
      current = row;
      target.convert_record(current);
      total += current.get_total_size();
    }
    benchmark::DoNotOptimize(total);
  }
  set_per_row(state);
}

void BM_fresh_record(benchmark::State& state) {
  destination db;
  const table target(&db);
  for (auto _ : state) {
    std::size_t total = 0;
    for (const udb_record& row : rows()) {
      udb_record fresh;
      for (const udb_field& field : row) fresh.emplace_back(field.name, field.size, field);
      target.convert_record(fresh);
      total += fresh.get_total_size();
    }
    benchmark::DoNotOptimize(total);
  }
  set_per_row(state);
}

BENCHMARK(BM_baseline_values)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_reused_record)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_fresh_record)->Unit(benchmark::kMillisecond)->MinTime(1.0);

// Prints ns per row for every run and, at the end, both record forms against
// the baseline.
class ratio_reporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& reports) override {
    ConsoleReporter::ReportRuns(reports);
    for (const Run& run : reports) {
      if (run.iterations == 0) continue;
      // CPU time: the machine is shared, and waiting is not work.
      const double ns =
          run.cpu_accumulated_time * 1e9 / static_cast<double>(run.iterations) / static_cast<double>(row_count);
      ns_per_row_[run.run_name.function_name] = ns;
      std::printf("  %-24s %8.1f ns/row (CPU)\n", run.run_name.function_name.c_str(), ns);
    }
  }
  void Finalize() override {
    const double base = ns_per_row_["BM_baseline_values"];
    if (base > 0) {
      std::printf("reused record: ratio %.2f to baseline; fresh record: ratio %.2f to baseline\n",
                  ns_per_row_["BM_reused_record"] / base, ns_per_row_["BM_fresh_record"] / base);
    }
    ConsoleReporter::Finalize();
  }

 private:
  std::map<std::string, double> ns_per_row_;
};

}  // namespace

int main(int argc, char** argv) {
  // The level test of every log call is part of the cost, as in a run, where
  // the log threshold is 2.
  qb::tk_logger logger("/dev/null", true, 2, false);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  ratio_reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
