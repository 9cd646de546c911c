// Inside the class library only: the lock and unlock of KvCritSection, inline for the library's
// own hot paths (the arena takes its lock on every allocation; programs use KvMutexSem::Request
// and Release), and the handle of a named memory view.
//
// The lock word is a futex mutex with three states (free, taken, taken with sleepers): an
// uncontended take is one compare-and-swap, a release one exchange, and a sleeper is woken by the
// release that finds state 2. The owner and depth make it recursive. Private futexes: the lock
// guards within one process.
//
// Bias. Most processes use a lock from one thread only, and there even an uncontended atomic
// operation is most of the cost of an allocation. So the first thread to take the lock is
// "biased": it enters by storing its token in `bias_in` and reading `bias` back, with no atomic
// read-modify-write and no fence, and leaves with one release store. The first other thread that
// wants the lock revokes the bias, for good: it takes the lock word, sets `bias` to revoked, runs
// an asymmetric fence (membarrier) that makes every thread pass a full barrier, and waits until
// `bias_in` is 0. The fence guarantees that either the biased thread's store to `bias_in` is seen
// by the revoker, which then waits for it to leave, or the biased thread's read of `bias` sees
// the revocation, and it takes the lock word like everyone else. Only the biased thread ever
// stores into `bias_in`, which is why the bias is never handed to another thread: a thread that
// read an old bias and stalled could otherwise overwrite the new holder's mark. Without the fence
// in the system, no thread is ever biased.
//
//   unbiased (bias 0) --first Request--> biased to T --another thread's Request--> revoked (bias 1)
#pragma once

#include <cstddef>

#include "lib/foundation/kvsem.h"
#include "platform/env.h"
#include "platform/sync.h"

namespace kvd::classlib {

constexpr std::uintptr_t kBiasRevoked = 1;

// The calling thread's token: the address of a thread-local byte, unique among live threads and
// never 0 or 1; read without a call.
extern constinit thread_local char g_thread_tag __attribute__((tls_model("initial-exec")));
inline std::uintptr_t CritThreadToken() { return reinterpret_cast<std::uintptr_t>(&g_thread_tag); }
constexpr std::uint32_t kRebiasRun = 4096;

inline void CritTakeWord(KvCritSection& cs, std::uintptr_t me) {
  std::uint32_t c = 0;
  if (!cs.state.compare_exchange_strong(c, 1, std::memory_order_acquire, std::memory_order_relaxed)) {
    if (c != 2) c = cs.state.exchange(2, std::memory_order_acquire);
    while (c != 0) {
      kvd::platform::FutexWait(&cs.state, 2, -1, false);
      c = cs.state.exchange(2, std::memory_order_acquire);
    }
  }
  cs.owner.store(me, std::memory_order_relaxed);
  cs.recursion = 1;
}

// Slow side: `me` holds the word; takes the bias away from whoever has it.
inline void CritRevoke(KvCritSection& cs) {
  if (cs.bias.load(std::memory_order_relaxed) == kBiasRevoked) return;
  cs.bias.store(kBiasRevoked, std::memory_order_relaxed);
  kvd::platform::AsymmetricFence();
  for (unsigned spins = 0; cs.bias_in.load(std::memory_order_acquire) != 0; ++spins)
    kvd::platform::SleepMillis(spins < 64 ? 0 : 1);
}

__attribute__((always_inline)) inline void CritEnter(KvCritSection& cs) {
  const std::uintptr_t me = CritThreadToken();
  if (cs.bias_in.load(std::memory_order_relaxed) == me) {  // only `me` ever stores `me` there
    ++cs.bias_depth;
    return;
  }
  if (cs.owner.load(std::memory_order_relaxed) == me) {
    ++cs.recursion;
    return;
  }
  std::uintptr_t b = cs.bias.load(std::memory_order_relaxed);
  if (b == 0 && kvd::platform::AsymmetricFenceAvailable()) {
    cs.bias.compare_exchange_strong(b, me, std::memory_order_acq_rel, std::memory_order_relaxed);
    b = cs.bias.load(std::memory_order_relaxed);
  }
  if (b == me) {
    cs.bias_in.store(me, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);  // the revoker's fence does the rest
    if (cs.bias.load(std::memory_order_relaxed) == me) {
      cs.bias_depth = 1;
      return;
    }
    cs.bias_in.store(0, std::memory_order_release);  // revoked under our feet: take the word
  }
  CritTakeWord(cs, me);
  if (b != 0 && b != kBiasRevoked) CritRevoke(cs);
}

__attribute__((always_inline)) inline void CritLeave(KvCritSection& cs) {
  const std::uintptr_t me = CritThreadToken();
  if (cs.bias_in.load(std::memory_order_relaxed) == me) {
    if (--cs.bias_depth == 0) cs.bias_in.store(0, std::memory_order_release);
    return;
  }
  if (--cs.recursion != 0) return;
  cs.owner.store(0, std::memory_order_relaxed);
  if (cs.state.exchange(0, std::memory_order_release) == 2) kvd::platform::FutexWake(&cs.state, 1, false);
}

// A handle on a view of named memory; closing it unmaps the view.
KvHandle MakeViewHandle(void* addr, std::size_t size);

}  // namespace kvd::classlib
