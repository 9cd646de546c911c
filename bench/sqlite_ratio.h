// The console report of the benchmarks that run beside SQLite: every run as usual, then for each
// pair of benchmarks (ours, SQLite's) their rates from the same run and ours / SQLite's; with
// --benchmark_repetitions, their medians.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kvd::bench {

struct RatePair {
  const char* label;   // the line's name
  const char* ours;    // name prefix of our benchmark ("KeyedRead/kvd")
  const char* theirs;  // name prefix of SQLite's ("KeyedRead/sqlite")
};

class SqliteRatioReporter : public benchmark::ConsoleReporter {
 public:
  // `counter`: the user counter holding the rate; `unit`: what it counts, for the heading.
  SqliteRatioReporter(const char* counter, const char* unit, std::vector<RatePair> pairs)
      : counter_(counter), unit_(unit), pairs_(std::move(pairs)) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    // With repetitions the median stands for the case (it is reported after the single runs and
    // replaces them); the other aggregates (mean, deviation) are no rates to divide.
    for (const Run& r : runs) {
      if (r.run_type == Run::RT_Aggregate && r.aggregate_name != "median") continue;
      auto it = r.counters.find(counter_);
      if (it != r.counters.end()) rates_[r.run_name.str()] = it->second.value;
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    std::printf("\nours / SQLite (%s per second, same run):\n", unit_);
    for (const RatePair& p : pairs_) {
      const double ours = Rate(p.ours), theirs = Rate(p.theirs);
      if (ours > 0 && theirs > 0) std::printf("  %-17s %12.0f %12.0f  %6.2f\n", p.label, ours, theirs, ours / theirs);
    }
  }

 private:
  double Rate(const std::string& prefix) const {
    for (const auto& [name, v] : rates_)
      if (name.rfind(prefix, 0) == 0) return v;
    return 0;
  }
  const char* counter_;
  const char* unit_;
  std::vector<RatePair> pairs_;
  std::map<std::string, double> rates_;
};

}  // namespace kvd::bench
