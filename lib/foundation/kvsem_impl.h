// Inside the class library only: the lock and unlock of KvCritSection, inline for the library's
// own hot paths (the arena takes its lock on every allocation; programs use KvMutexSem::Request
// and Release), and the handle of a named memory view.
//
// A futex mutex with three states (free, taken, taken with sleepers): an uncontended Request is
// one compare-and-swap, an uncontended Release one exchange; a sleeper is woken by the Release
// that finds state 2. The owner and depth make it recursive. Private futexes: the lock guards
// within one process.
#pragma once

#include <cstddef>

#include "lib/foundation/kvsem.h"
#include "platform/sync.h"

namespace kvd::classlib {

inline void CritEnter(KvCritSection& cs) {
  const std::uintptr_t me = kvd::platform::ThreadToken();
  if (cs.owner.load(std::memory_order_relaxed) == me) {
    ++cs.recursion;
    return;
  }
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

inline void CritLeave(KvCritSection& cs) {
  if (--cs.recursion != 0) return;
  cs.owner.store(0, std::memory_order_relaxed);
  if (cs.state.exchange(0, std::memory_order_release) == 2) kvd::platform::FutexWake(&cs.state, 1, false);
}

// A handle on a view of named memory; closing it unmaps the view.
KvHandle MakeViewHandle(void* addr, std::size_t size);

}  // namespace kvd::classlib
