// Parsing and printing of cell values, the per-row work of every conversion.
//
// A fixed mix of 1,000,000 cells as the SQL Server source delivers them
// (wide text and a tag: 40% integers, 20% decimals, 20% dates, 20% short
// texts) is rebuilt with ole_variant::from_wstring and printed with
// to_string, as the MySQL target renders it. The baseline, measured in the
// same run, only encodes each cell's wide text as UTF-8: the least any
// conversion must do. The figure to watch is the ratio printed at the end.
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "ole/variant.h"
#include "tk/format.h"
#include "tk/log.h"
#include "tk/utf.h"

namespace {

using qb::ole_variant;

struct cell {
  std::wstring text;
  std::uint16_t vt;
};

constexpr std::size_t cell_count = 1000000;

std::wstring widen(const std::string& s) { return {s.begin(), s.end()}; }

std::vector<cell> make_cells(std::uint16_t only = 0) {
  std::mt19937_64 rng(42);
  std::vector<cell> cells;
  cells.reserve(cell_count);
  static const char* const words[] = {"alpha", "Bravo Street 12", "charlie@example.com", "Delta", "echo foxtrot",
                                      "Golf",  "hotel-india",     "Juliett Kilo Lima",   "mike",  "November 5th"};
  for (std::size_t i = 0; i < cell_count; ++i) {
    const unsigned kind = static_cast<unsigned>(rng() % 10);
    std::uint16_t vt = 0;
    std::string text;
    if (kind < 2) {
      vt = ole_variant::vt_i4;
      text = std::to_string(static_cast<std::int32_t>(rng() % 2000000) - 1000000);
    } else if (kind < 4) {
      vt = ole_variant::vt_i8;
      text = std::to_string(static_cast<std::int64_t>(rng() >> 1));
    } else if (kind < 6) {
      vt = ole_variant::vt_decimal;
      text = qb::tk_format("%I64d.%04d", static_cast<std::int64_t>(rng() % 100000000000ULL),
                           static_cast<int>(rng() % 10000));
    } else if (kind < 8) {
      vt = ole_variant::vt_date;
      text = qb::tk_format("%d-%02d-%02d %02d:%02d:%02d.%07d", 1900 + static_cast<int>(rng() % 200),
                           1 + static_cast<int>(rng() % 12), 1 + static_cast<int>(rng() % 28),
                           static_cast<int>(rng() % 24), static_cast<int>(rng() % 60), static_cast<int>(rng() % 60),
                           static_cast<int>(rng() % 10000000));
    } else {
      vt = ole_variant::vt_bstr;
      text = words[rng() % 10];
    }
    if (only != 0 && vt != only) {
      --i;
      continue;
    }
    cells.push_back({widen(text), vt});
  }
  return cells;
}

const std::vector<cell>& mixed_cells() {
  static const std::vector<cell> cells = make_cells();
  return cells;
}

void set_per_cell(benchmark::State& state) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * cell_count));
}

// The least work: the wide text of each cell as UTF-8.
void BM_baseline_utf8(benchmark::State& state) {
  const auto& cells = mixed_cells();
  std::string out;
  for (auto _ : state) {
    std::size_t total = 0;
    for (const cell& c : cells) {
      out.clear();
      qb::tk_utf8_append(out, c.text);
      total += out.size();
    }
    benchmark::DoNotOptimize(total);
  }
  set_per_cell(state);
}

// Each cell rebuilt from its text and printed.
void parse_and_print(benchmark::State& state, const std::vector<cell>& cells) {
  for (auto _ : state) {
    std::size_t total = 0;
    for (const cell& c : cells) {
      const ole_variant v = ole_variant::from_wstring(c.text, c.vt);
      total += v.to_string().size();
    }
    benchmark::DoNotOptimize(total);
  }
  set_per_cell(state);
}

void BM_values_mixed(benchmark::State& state) { parse_and_print(state, mixed_cells()); }

void BM_values_only(benchmark::State& state) {
  static std::map<std::int64_t, std::vector<cell>> by_tag;
  auto& cells = by_tag[state.range(0)];
  if (cells.empty()) cells = make_cells(static_cast<std::uint16_t>(state.range(0)));
  parse_and_print(state, cells);
}

BENCHMARK(BM_baseline_utf8)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_values_mixed)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_values_only)
    ->Arg(ole_variant::vt_i4)
    ->Arg(ole_variant::vt_i8)
    ->Arg(ole_variant::vt_decimal)
    ->Arg(ole_variant::vt_date)
    ->Arg(ole_variant::vt_bstr)
    ->Unit(benchmark::kMillisecond);

// Prints ns per cell for every run and, at the end, the mixed run against the
// baseline.
class ratio_reporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& reports) override {
    ConsoleReporter::ReportRuns(reports);
    for (const Run& run : reports) {
      if (run.iterations == 0) continue;
      // CPU time: the machine is shared, and waiting is not work.
      const double ns =
          run.cpu_accumulated_time * 1e9 / static_cast<double>(run.iterations) / static_cast<double>(cell_count);
      ns_per_cell_[run.benchmark_name()] = ns;
      std::printf("  %-36s %8.1f ns/cell (CPU)\n", run.benchmark_name().c_str(), ns);
    }
  }
  void Finalize() override {
    const auto base = ns_per_cell_.find("BM_baseline_utf8/min_time:2.000");
    const auto mixed = ns_per_cell_.find("BM_values_mixed/min_time:2.000");
    if (base != ns_per_cell_.end() && mixed != ns_per_cell_.end() && base->second > 0) {
      std::printf("mixed cells: %.1f ns/cell, baseline %.1f ns/cell, ratio %.2f\n", mixed->second, base->second,
                  mixed->second / base->second);
    }
    ConsoleReporter::Finalize();
  }

 private:
  std::map<std::string, double> ns_per_cell_;
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
