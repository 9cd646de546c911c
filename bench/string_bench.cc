// kvd_string_bench: KvString against std::string, building, appending, comparing and searching.
//
// Fairness: a KvString takes a buffer from the arena for any text that is not empty, and a new
// buffer is its text followed by zeros to the end of the size class (each byte written once);
// std::string keeps up to 15 bytes inside the object and allocates with glibc's malloc beyond
// that, zeroing nothing. Both grow geometrically (KvString by the arena's classes: doubling from 8
// up to 1024, then by four), so KvString allocates more often for short texts: 64 appended
// characters cost it 5 buffers (8, 16, 32, 64, 128 bytes), std::string 3 (after its inner 15
// bytes: 31, 61, 121). A text of 4096 bytes needs the 16384 class, 12 KiB of it zeroed. Searching and comparing run in code page 1252,
// the library's default, where both come down to the C library's byte routines.
//
// An item is one operation (one string built, one append, one comparison, one search). The table
// at the end gives, per case, KvString's items per second divided by std::string's: above 1,
// KvString is faster. On a busy machine run it with --benchmark_repetitions=5
// --benchmark_report_aggregates_only=true: the table then compares medians.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "lib/foundation/kvgran.h"
#include "lib/foundation/kvstring.h"
#include "bench/peer_ratio.h"

namespace {

const char kShort[] = "MOTOR_12";                                   // fits std::string's inner buffer
const char kLong[] = "C:\\TELMOR\\PROJEKT1\\VERSION3\\_PRMTVS.DBF";  // does not

struct Kv {
  using Str = KvString;
  static const char* Text(const Str& s) { return s; }
  static long Find(const Str& s, const char* sub) { return s.Find(sub); }
  static bool Less(const Str& a, const Str& b) { return KvDefCompare(a, b) < 0; }
};
struct Std {
  using Str = std::string;
  static const char* Text(const Str& s) { return s.c_str(); }
  static long Find(const Str& s, const char* sub) {
    const std::size_t at = s.find(sub);
    return at == std::string::npos ? -1 : static_cast<long>(at);
  }
  static bool Less(const Str& a, const Str& b) { return a < b; }
};

// One string made from a text and destroyed; arg 0: the short text, 1: the long one.
template <class S>
void BM_Build(benchmark::State& state) {
  const char* text = state.range(0) == 0 ? kShort : kLong;
  for (auto _ : state) {
    typename S::Str s(text);
    benchmark::DoNotOptimize(S::Text(s));
  }
  state.SetItemsProcessed(state.iterations());
}

// A string grown by `n` appends of 16 bytes from empty, then dropped.
template <class S>
void BM_Append(benchmark::State& state) {
  const auto n = state.range(0);
  const char piece[] = "0123456789ABCDEF";
  for (auto _ : state) {
    typename S::Str s;
    for (long i = 0; i < n; ++i) s += piece;
    benchmark::DoNotOptimize(S::Text(s));
  }
  state.SetItemsProcessed(state.iterations() * n);
}

// A string grown by `n` appends of one character.
template <class S>
void BM_AppendChar(benchmark::State& state) {
  const auto n = state.range(0);
  for (auto _ : state) {
    typename S::Str s;
    for (long i = 0; i < n; ++i) s += static_cast<char>('a' + i % 26);
    benchmark::DoNotOptimize(S::Text(s));
  }
  state.SetItemsProcessed(state.iterations() * n);
}

// Texts of `n` bytes that differ in their last byte, compared both ways.
template <class S>
void BM_Compare(benchmark::State& state) {
  const std::string base(static_cast<std::size_t>(state.range(0)) - 1, 'k');
  const typename S::Str a((base + "a").c_str()), b((base + "b").c_str());
  for (auto _ : state) {
    benchmark::DoNotOptimize(S::Less(a, b));
    benchmark::DoNotOptimize(S::Less(b, a));
  }
  state.SetItemsProcessed(state.iterations() * 2);
}

// A four-byte text found at the end of `n` bytes of near misses.
template <class S>
void BM_Find(benchmark::State& state) {
  std::string text;
  while (text.size() + 4 < static_cast<std::size_t>(state.range(0))) text += "ABCX";
  text += "ABCD";
  const typename S::Str s(text.c_str());
  for (auto _ : state) benchmark::DoNotOptimize(S::Find(s, "ABCD"));
  state.SetItemsProcessed(state.iterations());
}

#define KVD_PEERS(BM, ...)                                        \
  BENCHMARK_TEMPLATE(BM, Kv)->Name(#BM "/KvString") __VA_ARGS__;  \
  BENCHMARK_TEMPLATE(BM, Std)->Name(#BM "/std::string") __VA_ARGS__

KVD_PEERS(BM_Build, ->Arg(0)->Arg(1));
KVD_PEERS(BM_Append, ->Arg(16)->Arg(256)->Arg(4096));
KVD_PEERS(BM_AppendChar, ->Arg(64)->Arg(4096));
KVD_PEERS(BM_Compare, ->Arg(16)->Arg(256));
KVD_PEERS(BM_Find, ->Arg(64)->Arg(1024));

}  // namespace

int main(int argc, char** argv) {
  // A large arena: only address space until a class needs it.
  KvGranularity::_AllocMem(std::size_t{1} << 30);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  kvd::bench::PeerRatioReporter reporter("KvString / std::string", {{"KvString", "std::string"}});
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
