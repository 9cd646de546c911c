// Address space, named shared memory, futexes and the robust mutex: alignment the system does not
// give by itself, objects published whole, the same address in another process, and a mutex whose
// holder dies.
#include "platform/shm.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/sync.h"

namespace {

using namespace kvd::platform;

std::string UniqueName(const char* what) { return std::string("test.") + what + "." + std::to_string(::getpid()); }

std::uintptr_t Addr(const void* p) { return reinterpret_cast<std::uintptr_t>(p); }

int WaitChild(pid_t pid) {
  int st = 0;
  if (::waitpid(pid, &st, 0) != pid) return -1;
  return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
}

TEST(PlatformAddressSpace, ReservationsLieOnTheAskedBoundary) {
  std::vector<std::pair<void*, std::size_t>> held;
  for (int i = 0; i < 64; ++i) {
    const std::size_t size = (std::size_t{1} << 22) + static_cast<std::size_t>(i) * kPageSize;
    void* p = ReserveAddressSpace(size, 0x10000);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(Addr(p) % 0x10000, 0u) << "reservation " << i;
    held.emplace_back(p, size);
  }
  // Commit makes pages usable and zero; the rest stays without access.
  ASSERT_TRUE(CommitAddressSpace(held[0].first, 2 * kPageSize));
  auto* bytes = static_cast<unsigned char*>(held[0].first);
  EXPECT_EQ(bytes[0], 0);
  EXPECT_EQ(bytes[2 * kPageSize - 1], 0);
  bytes[5] = 7;
  EXPECT_EQ(::mprotect(bytes + 2 * kPageSize, kPageSize, PROT_NONE), 0) << "still part of the reservation";
  for (auto& [p, size] : held) ReleaseAddressSpace(p, size);
  EXPECT_EQ(ReserveAddressSpace(0, 0x10000), nullptr);
  EXPECT_EQ(ReserveAddressSpace(4096, 3000), nullptr);
}

TEST(PlatformNamedObject, PathsAndMissingObjects) {
  EXPECT_EQ(NamedObjectPath("mtx", "KVCRITSEC"), "/dev/shm/kv.mtx.KVCRITSEC");
  EXPECT_EQ(NamedObjectPath("map", "Local/arena"), "/dev/shm/kv.map.Local_arena");
  EXPECT_EQ(NamedObjectPath("map", ""), "");
  EXPECT_EQ(NamedObjectPath("map", std::string(300, 'x')), "");
  const std::string name = UniqueName("missing");
  EXPECT_EQ(OpenNamedObject("tst", name, 4096, false, nullptr, nullptr).addr, nullptr);
  EXPECT_FALSE(RemoveNamedObject("tst", name));
}

TEST(PlatformNamedObject, ManyMakersAtOnceEndWithOneObjectMadeWhole) {
  const std::string name = UniqueName("race");
  std::atomic<int> made{0};
  std::atomic<int> seen_whole{0};
  auto init = [](void* addr, void* ctx) {
    static_cast<std::atomic<int>*>(ctx)->fetch_add(1);
    std::memset(addr, 0x5A, 4096);
    return true;
  };
  std::vector<std::thread> threads;
  std::vector<SharedView> views(8);
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      views[t] = OpenNamedObject("tst", name, 4096, true, +init, &made);
      if (views[t].addr != nullptr && static_cast<unsigned char*>(views[t].addr)[4095] == 0x5A) ++seen_whole;
    });
  }
  for (auto& t : threads) t.join();
  int creators = 0;
  for (auto& v : views) {
    ASSERT_NE(v.addr, nullptr);
    creators += v.created ? 1 : 0;
  }
  EXPECT_EQ(creators, 1);
  EXPECT_EQ(seen_whole.load(), 8) << "nobody saw a half-made object";
  // every view is the same memory
  static_cast<unsigned char*>(views[0].addr)[0] = 1;
  for (auto& v : views) EXPECT_EQ(static_cast<unsigned char*>(v.addr)[0], 1);
  for (auto& v : views) ReleaseAddressSpace(v.addr, v.size);
  EXPECT_TRUE(RemoveNamedObject("tst", name));
  // A maker whose set-up fails publishes nothing.
  auto refuse = [](void*, void*) { return false; };
  EXPECT_EQ(OpenNamedObject("tst", name, 4096, true, +refuse, nullptr).addr, nullptr);
  EXPECT_FALSE(RemoveNamedObject("tst", name));
}

TEST(PlatformNamedMemory, AnotherProcessMapsItAtTheMakersAddress) {
  const std::string name = UniqueName("mem");
  const std::size_t size = std::size_t{1} << 20;
  SharedView v = MapNamedMemory(name, size, 0x10000);
  ASSERT_NE(v.addr, nullptr);
  EXPECT_TRUE(v.created);
  EXPECT_EQ(Addr(v.addr) % 0x10000, 0u);
  auto* bytes = static_cast<unsigned char*>(v.addr);
  EXPECT_EQ(bytes[size - 1], 0);
  bytes[100] = 42;
  void* const at = v.addr;
  const pid_t pid = ::fork();
  if (pid == 0) {
    // Drop the inherited mapping, then find the memory by name alone.
    ::munmap(at, size);
    SharedView w = MapNamedMemory(name, size, 0x10000);
    int rc = 0;
    if (w.addr != at || w.created) rc = 1;
    else if (static_cast<unsigned char*>(w.addr)[100] != 42) rc = 2;
    else static_cast<unsigned char*>(w.addr)[101] = 43;
    ::_exit(rc);
  }
  ASSERT_EQ(WaitChild(pid), 0);
  EXPECT_EQ(bytes[101], 43);
  // In a process where that place is taken, the attach fails instead of landing elsewhere.
  SharedView again = MapNamedMemory(name, size, 0x10000);
  EXPECT_EQ(again.addr, nullptr);
  // Asking for more than the object holds fails too.
  ReleaseAddressSpace(v.addr, v.size);
  EXPECT_EQ(MapNamedMemory(name, 2 * size, 0x10000).addr, nullptr);
  EXPECT_TRUE(RemoveNamedObject(kNamedMemoryKind, name));
}

TEST(PlatformFutex, WaitTimesOutAndWakes) {
  std::atomic<std::uint32_t> word{0};
  const auto t0 = std::chrono::steady_clock::now();
  EXPECT_FALSE(FutexWait(&word, 0, 50, false));
  EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(45));
  EXPECT_TRUE(FutexWait(&word, 1, 50, false)) << "a word that differs does not sleep";
  std::thread waker([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    word.store(1);
    FutexWake(&word, 1, false);
  });
  while (word.load() == 0) FutexWait(&word, 0, 5000, false);
  waker.join();
  EXPECT_EQ(word.load(), 1u);
}

TEST(PlatformRobustMutex, RecursiveTimedAndReleasedByADeadHolder) {
  const std::string name = UniqueName("robust");
  SharedView v = OpenNamedObject("tst", name, 4096, true,
                                 [](void* addr, void*) { return RobustMutexInit(addr); }, nullptr);
  ASSERT_NE(v.addr, nullptr);
  EXPECT_EQ(RobustMutexLock(v.addr, -1), LockResult::kAcquired);
  EXPECT_EQ(RobustMutexLock(v.addr, 0), LockResult::kAcquired) << "recursive";
  EXPECT_TRUE(RobustMutexUnlock(v.addr));
  EXPECT_TRUE(RobustMutexUnlock(v.addr));
  EXPECT_FALSE(RobustMutexUnlock(v.addr)) << "not held any more";

  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t pid = ::fork();
  if (pid == 0) {
    SharedView w = OpenNamedObject("tst", name, 4096, false, nullptr, nullptr);
    if (w.addr == nullptr || RobustMutexLock(w.addr, -1) != LockResult::kAcquired) ::_exit(1);
    (void)!::write(ready[1], "x", 1);
    ::pause();  // killed while holding it
    ::_exit(0);
  }
  char c;
  ASSERT_EQ(::read(ready[0], &c, 1), 1);
  EXPECT_EQ(RobustMutexLock(v.addr, 100), LockResult::kTimeout);
  ::kill(pid, SIGKILL);
  WaitChild(pid);
  const auto t0 = std::chrono::steady_clock::now();
  EXPECT_EQ(RobustMutexLock(v.addr, 5000), LockResult::kAbandoned);
  EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(500));
  EXPECT_TRUE(RobustMutexUnlock(v.addr));
  EXPECT_EQ(RobustMutexLock(v.addr, 0), LockResult::kAcquired) << "consistent again";
  EXPECT_TRUE(RobustMutexUnlock(v.addr));
  ::close(ready[0]);
  ::close(ready[1]);
  ReleaseAddressSpace(v.addr, v.size);
  EXPECT_TRUE(RemoveNamedObject("tst", name));
}

TEST(PlatformIdentity, ThreadsProcessAndRandomBytes) {
  std::uintptr_t other = 0;
  std::thread([&] { other = ThreadToken(); }).join();
  EXPECT_NE(ThreadToken(), 0u);
  EXPECT_NE(ThreadToken(), other);
  EXPECT_EQ(ProcessId32(), static_cast<std::uint32_t>(::getpid()));
  EXPECT_NE(ProcessImagePath().find("platform_test"), std::string::npos);
  unsigned char a[32] = {}, b[32] = {};
  ASSERT_TRUE(RandomBytes(a, sizeof a));
  ASSERT_TRUE(RandomBytes(b, sizeof b));
  EXPECT_NE(std::memcmp(a, b, sizeof a), 0);
}

}  // namespace
