// Futexes, the robust shared mutex, and the identity of the caller.
//
// Why a robust pthread mutex for the named mutexes: a lock that other processes wait for must not
// stay taken when its holder is killed. A POSIX named semaphore stays down for ever then; a flock
// belongs to an open file description, which a forked child shares with its parent, and does not
// exclude the threads of one process. A robust mutex is owned by a thread, released by the kernel
// as the thread or its process ends (the robust list), and hands the next locker EOWNERDEAD, which
// we turn into kAbandoned after making the mutex consistent again.
#include "platform/sync.h"

#include <linux/futex.h>
#include <linux/membarrier.h>
#include <pthread.h>
#include <sys/random.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <new>
#include <vector>

namespace kvd::platform {

static_assert(sizeof(pthread_mutex_t) <= kRobustMutexBytes, "robust mutex storage too small");
static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t), "futex word must be plain");

namespace {

timespec Relative(std::int64_t ms) {
  timespec ts;
  ts.tv_sec = static_cast<time_t>(ms / 1000);
  ts.tv_nsec = static_cast<long>((ms % 1000) * 1000000);
  return ts;
}

timespec MonotonicDeadline(std::int64_t ms) {
  timespec ts;
  ::clock_gettime(CLOCK_MONOTONIC, &ts);
  ts.tv_sec += static_cast<time_t>(ms / 1000);
  ts.tv_nsec += static_cast<long>((ms % 1000) * 1000000);
  if (ts.tv_nsec >= 1000000000L) {
    ts.tv_nsec -= 1000000000L;
    ts.tv_sec += 1;
  }
  return ts;
}

pthread_mutex_t* AsMutex(void* storage) { return static_cast<pthread_mutex_t*>(storage); }

}  // namespace

bool FutexWait(std::atomic<std::uint32_t>* word, std::uint32_t expected, std::int64_t timeout_ms,
               bool shared) {
  const int op = shared ? FUTEX_WAIT : (FUTEX_WAIT | FUTEX_PRIVATE_FLAG);
  timespec rel;
  timespec* prel = nullptr;
  if (timeout_ms >= 0) {
    rel = Relative(timeout_ms);
    prel = &rel;
  }
  // FUTEX_WAIT takes a relative time on the monotonic clock.
  const long rc = ::syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(word), op, expected, prel, nullptr, 0);
  return !(rc == -1 && errno == ETIMEDOUT);
}

void FutexWake(std::atomic<std::uint32_t>* word, int count, bool shared) {
  const int op = shared ? FUTEX_WAKE : (FUTEX_WAKE | FUTEX_PRIVATE_FLAG);
  ::syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(word), op, count, nullptr, nullptr, 0);
}

namespace {

long Membarrier(int cmd) { return ::syscall(SYS_membarrier, cmd, 0, 0); }

}  // namespace

bool AsymmetricFenceAvailable() {
  static const bool available = [] {
    const long cmds = Membarrier(MEMBARRIER_CMD_QUERY);
    return cmds > 0 && (cmds & MEMBARRIER_CMD_PRIVATE_EXPEDITED) != 0 &&
           Membarrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED) == 0;
  }();
  return available;
}

void AsymmetricFence() {
  if (Membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED) == 0) return;
  // A forked child starts unregistered: register and ask again; as a last resort the slow global
  // form gives the same guarantee.
  if (Membarrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED) == 0 && Membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED) == 0)
    return;
  Membarrier(MEMBARRIER_CMD_GLOBAL);
}

std::uintptr_t ThreadToken() { return static_cast<std::uintptr_t>(::pthread_self()); }

std::uint32_t ProcessId32() { return static_cast<std::uint32_t>(::getpid()); }

std::string ProcessImagePath() {
  std::vector<char> buf(256);
  for (;;) {
    const ssize_t n = ::readlink("/proc/self/exe", buf.data(), buf.size());
    if (n < 0) return std::string();
    if (static_cast<std::size_t>(n) < buf.size()) return std::string(buf.data(), static_cast<std::size_t>(n));
    if (buf.size() >= (std::size_t{1} << 16)) return std::string();
    buf.resize(buf.size() * 2);
  }
}

bool RandomBytes(void* out, std::size_t n) {
  auto* p = static_cast<unsigned char*>(out);
  while (n > 0) {
    const ssize_t got = ::getrandom(p, n, 0);
    if (got < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    p += got;
    n -= static_cast<std::size_t>(got);
  }
  return true;
}

bool RobustMutexInit(void* storage) {
  pthread_mutexattr_t attr;
  if (::pthread_mutexattr_init(&attr) != 0) return false;
  bool ok = ::pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE) == 0 &&
            ::pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED) == 0 &&
            ::pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST) == 0;
  if (ok) ok = ::pthread_mutex_init(new (storage) pthread_mutex_t, &attr) == 0;
  ::pthread_mutexattr_destroy(&attr);
  return ok;
}

LockResult RobustMutexLock(void* storage, std::int64_t timeout_ms) {
  pthread_mutex_t* m = AsMutex(storage);
  int rc;
  if (timeout_ms < 0) {
    rc = ::pthread_mutex_lock(m);
  } else if (timeout_ms == 0) {
    rc = ::pthread_mutex_trylock(m);
    if (rc == EBUSY) rc = ETIMEDOUT;
  } else {
    const timespec deadline = MonotonicDeadline(timeout_ms);
    do rc = ::pthread_mutex_clocklock(m, CLOCK_MONOTONIC, &deadline);
    while (rc == EINTR);
  }
  switch (rc) {
    case 0:
      return LockResult::kAcquired;
    case EOWNERDEAD:
      // We hold it now; mark it usable again so later lockers get it the normal way.
      ::pthread_mutex_consistent(m);
      return LockResult::kAbandoned;
    case ETIMEDOUT:
      return LockResult::kTimeout;
    default:
      return LockResult::kError;
  }
}

bool RobustMutexUnlock(void* storage) { return ::pthread_mutex_unlock(AsMutex(storage)) == 0; }

}  // namespace kvd::platform
