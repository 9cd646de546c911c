// kvd_container_bench: the class library's containers beside the standard ones, 1,000,000
// elements: KvDynArray and std::vector, Kv1List and std::list, KvRbMap and KvMap beside
// std::multimap, KvHybridSet beside std::multiset.
//
// Cases: insert (the whole container built from empty, then dropped untimed), find (every key
// looked up once, in a shuffled order), ordered walk (every element visited in order), erase (every
// key removed once, in a shuffled order). Keys are the numbers 0 .. n-1 in a shuffled order, all
// distinct, 32-bit, with a 32-bit value; the arrays and lists hold the same numbers and are walked
// and searched by position (no peer for a keyed find).
//
// Fairness: every container takes its nodes or buffers from the arena, which zeroes each block and
// takes one lock per call; the standard ones use glibc's malloc. KvRbMap compares keys through a
// function pointer, KvMap and the standard containers through an inlined `<`. The arena never
// gives memory back to the system, so each run after the first reuses its free lists.
//
// An item is one element inserted, found, visited or erased. The table at the end gives, per case,
// the class library's items per second divided by the standard peer's: above 1, ours is faster. On
// a busy machine run it with --benchmark_repetitions=5 --benchmark_report_aggregates_only=true:
// the table then compares medians. KVD_BENCH_ELEMENTS lowers the element count for a quick run.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <map>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "lib/foundation/kvarray.h"
#include "lib/foundation/kvgran.h"
#include "lib/foundation/kvhybrid.h"
#include "lib/foundation/kvlist.h"
#include "lib/foundation/kvmap.h"
#include "lib/foundation/kvrbmap.h"
#include "bench/peer_ratio.h"

namespace {

std::int64_t Elements() {
  const char* env = std::getenv("KVD_BENCH_ELEMENTS");
  const long n = env != nullptr ? std::atol(env) : 0;
  return n > 0 ? n : 1000000;
}

// The keys in insertion order and, separately shuffled, in lookup order.
struct Keys {
  std::vector<std::uint32_t> insert, lookup;
  Keys() {
    const std::size_t n = static_cast<std::size_t>(Elements());
    insert.resize(n);
    std::iota(insert.begin(), insert.end(), 0u);
    std::mt19937 rng(42);
    std::shuffle(insert.begin(), insert.end(), rng);
    lookup = insert;
    std::shuffle(lookup.begin(), lookup.end(), rng);
  }
};
const Keys& TheKeys() {
  static const Keys keys;
  return keys;
}

// The sum of the values in order: through the cursor of ours, through iterators of the others.
template <class C>
std::uint64_t WalkKv(const C& c) {
  std::uint64_t sum = 0;
  typename C::PNODE p;
  for (std::uint32_t v = c.First(p); p != nullptr; v = c.Next(p)) sum += v;
  return sum;
}
template <class C>
std::uint64_t WalkStd(const C& c) {
  std::uint64_t sum = 0;
  for (std::uint32_t v : c) sum += v;
  return sum;
}

// ---- the subjects, one small adapter each: Fill, Find, Walk, Erase

struct RbMap {
  using C = KvRbMap<std::uint32_t, std::uint32_t>;
  static C* Make() { return new C(0, 0); }
  static void Fill(C& c, const std::vector<std::uint32_t>& k) {
    for (std::uint32_t x : k) c.Add(x, x);
  }
  static bool Find(const C& c, std::uint32_t k) {
    std::uint32_t v;
    return c.Search(k, v);
  }
  static std::uint64_t Walk(const C& c) { return WalkKv(c); }
  static void Erase(C& c, std::uint32_t k) { c.Remove(k); }
};

struct Map {
  using C = KvMap<std::uint32_t, std::uint32_t>;
  static C* Make() { return new C(0, 0); }
  static void Fill(C& c, const std::vector<std::uint32_t>& k) {
    for (std::uint32_t x : k) c.Add(x, x);
  }
  static bool Find(const C& c, std::uint32_t k) {
    std::uint32_t v;
    return c.Search(k, v);
  }
  static std::uint64_t Walk(const C& c) { return WalkKv(c); }
  static void Erase(C& c, std::uint32_t k) { c.Remove(k); }
};

struct StdMultimap {
  using C = std::multimap<std::uint32_t, std::uint32_t>;
  static C* Make() { return new C; }
  static void Fill(C& c, const std::vector<std::uint32_t>& k) {
    for (std::uint32_t x : k) c.emplace(x, x);
  }
  static bool Find(const C& c, std::uint32_t k) { return c.find(k) != c.end(); }
  static std::uint64_t Walk(const C& c) {
    std::uint64_t sum = 0;
    for (const auto& kv : c) sum += kv.second;
    return sum;
  }
  static void Erase(C& c, std::uint32_t k) {
    auto it = c.find(k);
    if (it != c.end()) c.erase(it);
  }
};

struct HybridSet {
  using C = KvHybridSet<std::uint32_t>;
  static C* Make() { return new C; }
  static void Fill(C& c, const std::vector<std::uint32_t>& k) {
    for (std::uint32_t x : k) c.Add(x);
  }
  static bool Find(const C& c, std::uint32_t k) { return c.Search(k); }
  static std::uint64_t Walk(const C& c) { return WalkKv(c); }
  static void Erase(C& c, std::uint32_t k) { c.Remove(k); }
};

struct StdMultiset {
  using C = std::multiset<std::uint32_t>;
  static C* Make() { return new C; }
  static void Fill(C& c, const std::vector<std::uint32_t>& k) {
    for (std::uint32_t x : k) c.insert(x);
  }
  static bool Find(const C& c, std::uint32_t k) { return c.find(k) != c.end(); }
  static std::uint64_t Walk(const C& c) { return WalkStd(c); }
  static void Erase(C& c, std::uint32_t k) {
    auto it = c.find(k);
    if (it != c.end()) c.erase(it);
  }
};

// Sequences: built by appending, walked in order; erasing takes the last element of an array
// and the first of a list, one at a time.
struct DynArray {
  using C = KvDynArray<std::uint32_t>;
  static C* Make() { return new C; }
  static void Fill(C& c, const std::vector<std::uint32_t>& k) {
    for (std::uint32_t x : k) c.Add(x);
  }
  static std::uint64_t Walk(const C& c) { return WalkKv(c); }
  static std::uint32_t EraseOne(C& c) { return c.RemoveLast(); }
};
struct StdVector {
  using C = std::vector<std::uint32_t>;
  static C* Make() { return new C; }
  static void Fill(C& c, const std::vector<std::uint32_t>& k) {
    for (std::uint32_t x : k) c.push_back(x);
  }
  static std::uint64_t Walk(const C& c) { return WalkStd(c); }
  static std::uint32_t EraseOne(C& c) {
    const std::uint32_t v = c.back();
    c.pop_back();
    return v;
  }
};
struct List {
  using C = Kv1List<std::uint32_t>;
  static C* Make() { return new C; }
  static void Fill(C& c, const std::vector<std::uint32_t>& k) {
    for (std::uint32_t x : k) c.Add(x);
  }
  static std::uint64_t Walk(const C& c) { return WalkKv(c); }
  static std::uint32_t EraseOne(C& c) { return c.RemoveFirst(); }
};
struct StdList {
  using C = std::list<std::uint32_t>;
  static C* Make() { return new C; }
  static void Fill(C& c, const std::vector<std::uint32_t>& k) {
    for (std::uint32_t x : k) c.push_back(x);
  }
  static std::uint64_t Walk(const C& c) { return WalkStd(c); }
  static std::uint32_t EraseOne(C& c) {
    const std::uint32_t v = c.front();
    c.pop_front();
    return v;
  }
};

// ---- the cases

template <class S>
void BM_Insert(benchmark::State& state) {
  const Keys& keys = TheKeys();
  for (auto _ : state) {
    typename S::C* c = S::Make();
    S::Fill(*c, keys.insert);
    state.PauseTiming();
    delete c;
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(keys.insert.size()));
}

template <class S>
void BM_Find(benchmark::State& state) {
  const Keys& keys = TheKeys();
  typename S::C* c = S::Make();
  S::Fill(*c, keys.insert);
  for (auto _ : state) {
    std::size_t hits = 0;
    for (std::uint32_t k : keys.lookup) hits += S::Find(*c, k) ? 1 : 0;
    if (hits != keys.lookup.size()) state.SkipWithError("a key was not found");
    benchmark::DoNotOptimize(hits);
  }
  delete c;
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(keys.lookup.size()));
}

template <class S>
void BM_Walk(benchmark::State& state) {
  const Keys& keys = TheKeys();
  typename S::C* c = S::Make();
  S::Fill(*c, keys.insert);
  for (auto _ : state) benchmark::DoNotOptimize(S::Walk(*c));
  delete c;
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(keys.insert.size()));
}

template <class S>
void BM_Erase(benchmark::State& state) {
  const Keys& keys = TheKeys();
  for (auto _ : state) {
    state.PauseTiming();
    typename S::C* c = S::Make();
    S::Fill(*c, keys.insert);
    state.ResumeTiming();
    for (std::uint32_t k : keys.lookup) S::Erase(*c, k);
    state.PauseTiming();
    delete c;
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(keys.lookup.size()));
}

// Sequences: erase from the end (arrays) or the front (lists), one element at a time.
template <class S>
void BM_EraseSeq(benchmark::State& state) {
  const Keys& keys = TheKeys();
  for (auto _ : state) {
    state.PauseTiming();
    typename S::C* c = S::Make();
    S::Fill(*c, keys.insert);
    state.ResumeTiming();
    std::uint64_t sum = 0;  // what was taken out, so that no peer's removal is optimized away
    for (std::size_t i = 0; i < keys.insert.size(); ++i) sum += S::EraseOne(*c);
    benchmark::DoNotOptimize(sum);
    state.PauseTiming();
    delete c;
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(keys.insert.size()));
}

#define KVD_CASE(BM, S, name) BENCHMARK_TEMPLATE(BM, S)->Name(#BM "/" name)->Unit(benchmark::kMillisecond)->Iterations(3)

// Sequences first, on fresh memory of their size classes; then the keyed containers.
KVD_CASE(BM_Insert, DynArray, "KvDynArray");
KVD_CASE(BM_Insert, StdVector, "std::vector");
KVD_CASE(BM_Insert, List, "Kv1List");
KVD_CASE(BM_Insert, StdList, "std::list");
KVD_CASE(BM_Walk, DynArray, "KvDynArray");
KVD_CASE(BM_Walk, StdVector, "std::vector");
KVD_CASE(BM_Walk, List, "Kv1List");
KVD_CASE(BM_Walk, StdList, "std::list");
KVD_CASE(BM_EraseSeq, DynArray, "KvDynArray");
KVD_CASE(BM_EraseSeq, StdVector, "std::vector");
KVD_CASE(BM_EraseSeq, List, "Kv1List");
KVD_CASE(BM_EraseSeq, StdList, "std::list");
KVD_CASE(BM_Insert, RbMap, "KvRbMap");
KVD_CASE(BM_Insert, Map, "KvMap");
KVD_CASE(BM_Insert, StdMultimap, "std::multimap");
KVD_CASE(BM_Insert, HybridSet, "KvHybridSet");
KVD_CASE(BM_Insert, StdMultiset, "std::multiset");
KVD_CASE(BM_Find, RbMap, "KvRbMap");
KVD_CASE(BM_Find, Map, "KvMap");
KVD_CASE(BM_Find, StdMultimap, "std::multimap");
KVD_CASE(BM_Find, HybridSet, "KvHybridSet");
KVD_CASE(BM_Find, StdMultiset, "std::multiset");
KVD_CASE(BM_Walk, RbMap, "KvRbMap");
KVD_CASE(BM_Walk, Map, "KvMap");
KVD_CASE(BM_Walk, StdMultimap, "std::multimap");
KVD_CASE(BM_Walk, HybridSet, "KvHybridSet");
KVD_CASE(BM_Walk, StdMultiset, "std::multiset");
KVD_CASE(BM_Erase, RbMap, "KvRbMap");
KVD_CASE(BM_Erase, Map, "KvMap");
KVD_CASE(BM_Erase, StdMultimap, "std::multimap");
KVD_CASE(BM_Erase, HybridSet, "KvHybridSet");
KVD_CASE(BM_Erase, StdMultiset, "std::multiset");

}  // namespace

int main(int argc, char** argv) {
  // A large arena: only address space until a class needs it.
  KvGranularity::_AllocMem(std::size_t{4} << 30);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  // Which of ours stands beside which standard container.
  kvd::bench::PeerRatioReporter reporter("ours / standard", {{"KvRbMap", "std::multimap"},
                                                             {"KvMap", "std::multimap"},
                                                             {"KvHybridSet", "std::multiset"},
                                                             {"KvDynArray", "std::vector"},
                                                             {"Kv1List", "std::list"}});
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
