// Waiting and locking beneath the class library's semaphores: futex words, a robust recursive
// mutex that lives in memory shared between processes, and who the calling thread and process are.
//
// Nothing here allocates. The memory a mutex or a futex word lies in belongs to the caller; for use
// across processes it must lie in a shared mapping (platform/shm.h) that every process maps.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace kvd::platform {

// ---------------------------------------------------------------------------------------------
// Futex words

// Sleeps while *word equals `expected`, at most `timeout_ms` milliseconds (negative: no limit).
// `shared` must be true for a word that other processes wake (a word in a shared mapping); false
// gives the cheaper private futex. Returns false only when the time ran out; a wake, a changed
// word and a signal all return true, so callers loop on their own condition.
bool FutexWait(std::atomic<std::uint32_t>* word, std::uint32_t expected, std::int64_t timeout_ms,
               bool shared);
// Wakes up to `count` sleepers on the word (INT32_MAX: all).
void FutexWake(std::atomic<std::uint32_t>* word, int count, bool shared);

// ---------------------------------------------------------------------------------------------
// Asymmetric fence (membarrier)
//
// Lets one side of a lock run with no fence at all: the rare side calls AsymmetricFence, which
// makes every running thread of the process pass a full memory barrier before it returns. Any
// store a thread made before that point is then visible to the caller, and any load it makes
// after it sees what the caller stored before the call.

// True when the system offers the fence to this process (asked once, then remembered).
bool AsymmetricFenceAvailable();
// The fence. Only meaningful when AsymmetricFenceAvailable() answered true.
void AsymmetricFence();

// ---------------------------------------------------------------------------------------------
// Who is calling

// A value that differs between the live threads of the process and is never 0 (pthread_self).
// Cheap: no system call.
std::uintptr_t ThreadToken();
// The process id as the 32-bit number the class library stores (Linux pids fit: at most 2^22).
std::uint32_t ProcessId32();
// The full path of the running program (/proc/self/exe), empty when it cannot be told.
std::string ProcessImagePath();
// Fills `out` with bytes from the kernel's random source. False when it cannot.
bool RandomBytes(void* out, std::size_t n);

// ---------------------------------------------------------------------------------------------
// Robust mutex between processes
//
// A recursive, process-shared, robust pthread mutex in kRobustMutexBytes of caller memory (aligned
// to 8). When its holder dies, thread or process, the kernel releases it, and the next locker gets
// it with kAbandoned: the data it guarded may be half changed, and the mutex is usable again. A
// thread may lock it again while it holds it; each lock needs its unlock.

constexpr std::size_t kRobustMutexBytes = 64;

enum class LockResult {
  kAcquired,   // the caller holds it
  kAbandoned,  // the caller holds it; its last holder died holding it
  kTimeout,    // the time ran out
  kError,      // not a mutex, or the system refused
};

// Makes the mutex in `storage`, unlocked. False when the system refuses the attributes.
bool RobustMutexInit(void* storage);
// Waits at most `timeout_ms` milliseconds (negative: no limit; 0: only tries), on the monotonic
// clock.
LockResult RobustMutexLock(void* storage, std::int64_t timeout_ms);
// False when the calling thread does not hold it.
bool RobustMutexUnlock(void* storage);

}  // namespace kvd::platform
