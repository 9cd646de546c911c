// kvd_arena_bench: the class library's arena against glibc malloc and calloc and mimalloc, on
// one thread and on two, for small blocks of one size and for a mix of sizes.
//
// Fairness: the arena zeroes every block, all of its size class, so calloc (zeroes what was asked)
// is its natural peer; malloc and mi_malloc zero nothing. The arena takes one lock per call and
// shares its free lists between threads, where the others keep caches per thread; on one thread
// that lock costs no atomic operation (it is biased to the thread), on two it does. mimalloc is
// linked into this program only and takes over malloc for the whole process (its own
// __libc_malloc too), so glibc's functions are looked up in libc.so.6 itself. Every allocator
// writes one byte into each block it hands out.
//
// An item is one allocation and its free. The table at the end gives, per case, the arena's items
// per second divided by each peer's: above 1 the arena is faster. On a busy machine run it with
// --benchmark_repetitions=5 --benchmark_report_aggregates_only=true: the table then compares
// medians.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <mimalloc.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "lib/foundation/kvgran.h"
#include "bench/peer_ratio.h"

namespace {

// glibc's own allocator, whatever this process's malloc is.
struct LibC {
  void* (*malloc)(std::size_t);
  void* (*calloc)(std::size_t, std::size_t);
  void (*free)(void*);
};
const LibC& Glibc() {
  static const LibC libc = [] {
    void* h = ::dlopen("libc.so.6", RTLD_NOW | RTLD_NOLOAD);
    LibC c{};
    if (h == nullptr) return c;
    c.malloc = reinterpret_cast<void* (*)(std::size_t)>(::dlsym(h, "malloc"));
    c.calloc = reinterpret_cast<void* (*)(std::size_t, std::size_t)>(::dlsym(h, "calloc"));
    c.free = reinterpret_cast<void (*)(void*)>(::dlsym(h, "free"));
    return c;
  }();
  return libc;
}

KvGranularityMemoryWatcher* BenchWatcher() {
  static KvGranularityMemoryWatcher w("ArenaBench", "blocks", 0);
  return &w;
}

struct Arena {
  static void* Alloc(std::size_t n) { return KvGranularity::_Alloc(n, BenchWatcher()); }
  static void Free(void* p, std::size_t n) { KvGranularity::_Free(p, n, BenchWatcher()); }
};
struct GlibcMalloc {
  static void* Alloc(std::size_t n) { return Glibc().malloc(n); }
  static void Free(void* p, std::size_t) { Glibc().free(p); }
};
struct GlibcCalloc {
  static void* Alloc(std::size_t n) { return Glibc().calloc(1, n); }
  static void Free(void* p, std::size_t) { Glibc().free(p); }
};
struct MiMalloc {
  static void* Alloc(std::size_t n) { return mi_malloc(n); }
  static void Free(void* p, std::size_t) { mi_free(p); }
};
struct MiCalloc {
  static void* Alloc(std::size_t n) { return mi_calloc(1, n); }
  static void Free(void* p, std::size_t) { mi_free(p); }
};

// Batches of 64 blocks of one size, freed in reverse order.
template <class A>
void BM_Small(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  void* blocks[64];
  for (auto _ : state) {
    for (auto& b : blocks) {
      b = A::Alloc(size);
      static_cast<char*>(b)[0] = 1;
    }
    for (int i = 63; i >= 0; --i) A::Free(blocks[i], size);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * 64);
}

// Sizes: 70 % up to 128 bytes, 25 % up to 1 KiB, 5 % up to 16 KiB.
std::vector<std::size_t> MixedSizes(unsigned seed) {
  std::mt19937 rng(seed);
  std::vector<std::size_t> sizes(4096);
  for (auto& s : sizes) {
    const unsigned r = rng() % 100;
    s = r < 70 ? 8 + rng() % 121 : r < 95 ? 129 + rng() % 896 : 1025 + rng() % 15360;
  }
  return sizes;
}

// A window of 256 live blocks of mixed sizes: each step frees one chosen at random and allocates
// the next size in its place.
template <class A>
void BM_Mixed(benchmark::State& state) {
  const std::vector<std::size_t> sizes = MixedSizes(static_cast<unsigned>(17 + state.thread_index()));
  std::mt19937 rng(static_cast<unsigned>(99 + state.thread_index()));
  std::vector<unsigned> victims(4096);
  for (auto& v : victims) v = rng() % 256;
  struct Live {
    void* p;
    std::size_t n;
  };
  std::vector<Live> live(256);
  std::size_t k = 0;
  for (auto& l : live) {
    l = {A::Alloc(sizes[k]), sizes[k]};
    k = (k + 1) % sizes.size();
  }
  for (auto _ : state) {
    for (int step = 0; step < 256; ++step) {
      Live& l = live[victims[k]];
      A::Free(l.p, l.n);
      l = {A::Alloc(sizes[k]), sizes[k]};
      static_cast<char*>(l.p)[0] = 1;
      k = (k + 1) % sizes.size();
    }
    benchmark::ClobberMemory();
  }
  for (auto& l : live) A::Free(l.p, l.n);
  state.SetItemsProcessed(state.iterations() * 256);
}

#define KVD_PEERS(BM, ...)                                                         \
  BENCHMARK_TEMPLATE(BM, Arena)->Name(#BM "/arena") __VA_ARGS__;                   \
  BENCHMARK_TEMPLATE(BM, GlibcCalloc)->Name(#BM "/calloc") __VA_ARGS__;            \
  BENCHMARK_TEMPLATE(BM, GlibcMalloc)->Name(#BM "/malloc") __VA_ARGS__;            \
  BENCHMARK_TEMPLATE(BM, MiCalloc)->Name(#BM "/mi_calloc") __VA_ARGS__;            \
  BENCHMARK_TEMPLATE(BM, MiMalloc)->Name(#BM "/mi_malloc") __VA_ARGS__

// One thread first: the arena's lock is biased to the thread that uses it alone, and the first
// run on two threads ends that for the rest of the process, as in any program.
KVD_PEERS(BM_Small, ->Arg(16)->Arg(64)->Arg(256)->Threads(1)->UseRealTime());
KVD_PEERS(BM_Mixed, ->Threads(1)->UseRealTime());
KVD_PEERS(BM_Small, ->Arg(16)->Arg(64)->Arg(256)->Threads(2)->UseRealTime());
KVD_PEERS(BM_Mixed, ->Threads(2)->UseRealTime());

}  // namespace

int main(int argc, char** argv) {
  if (Glibc().malloc == nullptr || Glibc().calloc == nullptr || Glibc().free == nullptr) {
    std::fprintf(stderr, "glibc's allocator cannot be found\n");
    return 1;
  }
  // A large arena: only address space until a class needs it.
  KvGranularity::_AllocMem(std::size_t{1} << 30);
  benchmark::Initialize(&argc, argv);
  kvd::bench::PeerRatioReporter reporter("arena / allocator", {{"arena", ""}});
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
