// The console report of the class library's benchmarks: every run as usual, then for each case
// the items per second of ours beside each peer's from the same run, and ours / the peer's.
//
// Benchmarks are named "<case>/<who><rest>": "BM_Append/KvString/16" beside
// "BM_Append/std::string/16", "Find/KvRbMap/iterations:3" beside "Find/std::multimap/iterations:3".
// A pair is one of ours and the peer it stands beside; a peer of "" stands for every benchmark of
// the same case and rest that is not one of ours. With --benchmark_repetitions only the medians
// are compared.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kvd::bench {

struct PeerPair {
  const char* ours;
  const char* peer;  // "" for every other of the case
};

class PeerRatioReporter : public benchmark::ConsoleReporter {
 public:
  // `title`: the heading line of the table ("KvString / std::string").
  PeerRatioReporter(const char* title, std::vector<PeerPair> pairs) : title_(title), pairs_(std::move(pairs)) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      auto it = r.counters.find("items_per_second");
      if (it == r.counters.end()) continue;
      std::string name = r.benchmark_name();
      if (r.run_type == Run::RT_Aggregate) {
        if (r.aggregate_name != "median") continue;
        name = name.substr(0, name.rfind('_'));
      }
      rates_[name] = it->second.value;
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    std::printf("\n%s, items per second of the same run (above 1: ours is faster)\n", title_);
    std::printf("  %-34s %-12s %-22s %12s %12s %7s\n", "case", "ours", "peer", "ours/s", "peer/s", "ratio");
    for (const auto& [name, rate] : rates_) {
      const Parts mine = Split(name);
      for (const PeerPair& p : pairs_) {
        if (mine.who != p.ours) continue;
        for (const auto& [other, other_rate] : rates_) {
          const Parts theirs = Split(other);
          if (theirs.kase != mine.kase || theirs.rest != mine.rest || other_rate <= 0) continue;
          if (*p.peer != '\0' ? theirs.who != p.peer : IsOurs(theirs.who)) continue;
          std::printf("  %-34s %-12s %-22s %12.3e %12.3e %7.2f\n", (mine.kase + mine.rest).c_str(), p.ours,
                      theirs.who.c_str(), rate, other_rate, rate / other_rate);
        }
      }
    }
  }

 private:
  struct Parts {
    std::string kase, who, rest;
  };
  static Parts Split(const std::string& name) {
    const std::size_t a = name.find('/');
    if (a == std::string::npos) return {name, "", ""};
    const std::size_t b = name.find('/', a + 1);
    return {name.substr(0, a), name.substr(a + 1, b == std::string::npos ? std::string::npos : b - a - 1),
            b == std::string::npos ? "" : name.substr(b)};
  }
  bool IsOurs(const std::string& who) const {
    for (const PeerPair& p : pairs_)
      if (who == p.ours) return true;
    return false;
  }

  const char* title_;
  std::vector<PeerPair> pairs_;
  std::map<std::string, double> rates_;
};

}  // namespace kvd::bench
