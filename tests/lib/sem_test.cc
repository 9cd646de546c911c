// Semaphores and exit lists: the recursive mutex under contention, events between threads and
// between processes, named mutexes whose holder is killed, "KVCRITSEC", and the exit lists, whose
// cases run in forked children because the lists belong to the whole process.
#include "lib/foundation/kvsem.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/lib/arena_test_util.h"

namespace {

using kvd::classlib::testing::Pipe;
using kvd::classlib::testing::RunInChild;
using Clock = std::chrono::steady_clock;

std::string UniqueName(const char* what) { return std::string("test.") + what + "." + std::to_string(::getpid()); }

long long MillisSince(Clock::time_point t0) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t0).count();
}

// Memory every forked child shares with the parent, for objects that two processes use.
class SharedPage {
 public:
  SharedPage() : p_(::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {}
  ~SharedPage() { ::munmap(p_, 4096); }
  void* get() const { return p_; }

 private:
  void* p_;
};

int WaitChild(pid_t pid) {
  int st = 0;
  if (::waitpid(pid, &st, 0) != pid) return -1;
  return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
}

// ---------------------------------------------------------------------------------------------
// KvMutexSem

TEST(MutexSem, ExcludesOtherThreadsAndNestsInOne) {
  static KvMutexSem mtx;
  long counter = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 50000; ++i) {
        KvMutexLock<KvMutexSem> outer(mtx);
        KvBlockMutex inner(mtx);  // the same thread again
        const long seen = counter;
        if (i % 1000 == 0) std::this_thread::yield();
        counter = seen + 1;
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(counter, 200000);
}

TEST(MutexSem, AnExceptionThatPassesReleasesTheLock) {
  static KvMutexSem mtx(true);
  try {
    KvMutexLock<KvMutexSem> hold(mtx);
    throw std::runtime_error("passes");
  } catch (const std::runtime_error&) {
  }
  std::atomic<bool> got{false};
  std::thread([&] {
    mtx.Request();
    got = true;
    mtx.Release();
  }).join();
  EXPECT_TRUE(got.load());
}

TEST(MutexSem, AWaiterSleepsUntilTheHolderReleases) {
  static KvMutexSem mtx;
  std::atomic<int> stage{0};
  mtx.Request();
  std::thread waiter([&] {
    stage = 1;
    mtx.Request();
    stage = 2;
    mtx.Release();
  });
  while (stage.load() == 0) std::this_thread::yield();
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_EQ(stage.load(), 1) << "the waiter must not get in while the lock is held";
  mtx.Release();
  waiter.join();
  EXPECT_EQ(stage.load(), 2);
}

// The first thread to use a mutex enters it without atomic operations (biased) until another
// thread comes, which revokes that for good. Short and long bursts on two threads at once, and
// threads that come and go, must never let two in.
TEST(MutexSem, BiasIsRevokedByTheSecondThreadWithoutLettingTwoIn) {
  static KvMutexSem mtx;
  KvCritSection& cs = mtx._GetCritSection();
  mtx.Request();
  mtx.Request();
  mtx.Release();
  const bool biasing = cs.bias.load() > 1;  // false only where the system has no membarrier
  if (biasing) {
    EXPECT_EQ(cs.state.load(), 0u) << "a biased holder leaves the lock word alone";
  }
  mtx.Release();
  std::thread([&] {
    mtx.Request();
    mtx.Release();
  }).join();
  if (biasing) {
    EXPECT_EQ(cs.bias.load(), 1u) << "revoked by the second thread";
  }
  long counter = 0;
  long done[2] = {0, 0};
  auto bursts = [&](int id) {
    std::mt19937 rng(static_cast<unsigned>(id + 7));
    for (int round = 0; round < 60; ++round) {
      const int n = rng() % 2 == 0 ? 1 + static_cast<int>(rng() % 20) : 4000 + static_cast<int>(rng() % 3000);
      for (int i = 0; i < n; ++i) {
        KvMutexLock<KvMutexSem> hold(mtx);
        const long seen = counter;
        if (i % 512 == 0) std::this_thread::yield();
        counter = seen + 1;
      }
      done[id] += n;
      std::this_thread::yield();
    }
  };
  std::thread a(bursts, 0), b(bursts, 1);
  a.join();
  b.join();
  EXPECT_EQ(counter, done[0] + done[1]);

  // A fresh mutex, biased to this thread, against threads that come and go.
  static KvMutexSem fresh;
  long n = 0;
  for (int round = 0; round < 20; ++round) {
    std::thread t([&] {
      for (int i = 0; i < 3000; ++i) {
        KvMutexLock<KvMutexSem> hold(fresh);
        ++n;
      }
    });
    for (int i = 0; i < 3000; ++i) {
      KvMutexLock<KvMutexSem> hold(fresh);
      const long seen = n;
      n = seen + 1;
    }
    t.join();
  }
  EXPECT_EQ(n, 20 * 6000);
}

// ---------------------------------------------------------------------------------------------
// KvEventSem

TEST(EventSem, ManualResetBetweenThreads) {
  KvEventSem ev;
  ASSERT_NE(ev.GetHandle(), nullptr);
  EXPECT_TRUE(ev.IsCreatorProcess());
  auto t0 = Clock::now();
  EXPECT_FALSE(ev.Wait(40)) << "initially not signalled";
  EXPECT_GE(MillisSince(t0), 35);

  std::atomic<int> woken{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 4; ++i) {
    waiters.emplace_back([&] {
      if (ev.Wait()) ++woken;
    });
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(woken.load(), 0);
  EXPECT_TRUE(ev.Post());
  for (auto& t : waiters) t.join();
  EXPECT_EQ(woken.load(), 4) << "one Post wakes every waiter";
  EXPECT_TRUE(ev.Wait(0)) << "stays signalled until Reset";
  EXPECT_TRUE(ev.Reset());
  EXPECT_FALSE(ev.Wait(0));

  std::thread poster([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    ev.Post();
  });
  t0 = Clock::now();
  EXPECT_TRUE(ev.Wait(5000));
  EXPECT_LT(MillisSince(t0), 2000);
  poster.join();
}

TEST(EventSem, AForeignProcessWaitsAndPostsAndLeavesTheHandleOpen) {
  SharedPage page;
  auto* ping = new (page.get()) KvEventSem;
  auto* pong = new (static_cast<char*>(page.get()) + 512) KvEventSem;
  KvHandle const ping_h = ping->GetHandle();
  ASSERT_NE(ping_h, nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    int rc = 0;
    if (ping->IsCreatorProcess()) rc = 1;
    else if (!ping->Wait(5000)) rc = 2;   // the parent posts
    else if (!pong->Post()) rc = 3;       // and waits for this
    ping->~KvEventSem();                  // run here: must leave the creator's handle alone
    pong->~KvEventSem();
    ::_exit(rc);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_TRUE(ping->Post());
  EXPECT_TRUE(pong->Wait(5000)) << "the child's Post reaches the creator";
  EXPECT_EQ(WaitChild(pid), 0);
  EXPECT_EQ(ping->GetHandle(), ping_h) << "the foreign destructor left the handle";
  EXPECT_TRUE(ping->Reset());
  EXPECT_FALSE(ping->Wait(0));
  KvHandle dup = ping->GetDuplicate();
  EXPECT_EQ(dup, ping_h) << "the creator uses its own handle";
  ping->CloseDuplicate(dup);  // nothing to do in the creator
  EXPECT_TRUE(ping->Post());
  EXPECT_TRUE(ping->Wait(0));
  ping->~KvEventSem();
  pong->~KvEventSem();
}

// ---------------------------------------------------------------------------------------------
// Named mutex and event

TEST(NamedMutexSem, TwoOpenersOfOneNameExcludeEachOther) {
  const std::string name = UniqueName("mtx");
  KvNamedMutexSem a(name.c_str(), false);
  KvNamedMutexSem b(name.c_str(), false);
  ASSERT_NE(a.GetHandle(), nullptr);
  ASSERT_NE(b.GetHandle(), nullptr);
  EXPECT_TRUE(a.Request());
  EXPECT_TRUE(a.Request(0)) << "the holding thread may come again";
  std::atomic<int> other{-1};
  std::thread([&] { other = b.Request(50) ? 1 : 0; }).join();
  EXPECT_EQ(other.load(), 0) << "another thread times out";
  std::thread([&] { other = b.Release() ? 1 : 0; }).join();
  EXPECT_EQ(other.load(), 0) << "only the holding thread releases";
  EXPECT_TRUE(a.Release());
  EXPECT_TRUE(a.Release());
  std::thread([&] {
    other = b.Request(1000) ? 1 : 0;
    b.Release();
  }).join();
  EXPECT_EQ(other.load(), 1);
  KvNamedMutexSem none("", false);
  EXPECT_EQ(none.GetHandle(), nullptr);
  EXPECT_FALSE(none.Request());
  EXPECT_TRUE(KvRemoveNamedMutexSem(name.c_str()));
}

// The holder is killed while it holds the mutex: the next locker gets it at once.
TEST(NamedMutexSem, AHolderKilledWhileHoldingReleasesIt) {
  const std::string name = UniqueName("killed");
  Pipe ready;
  const pid_t pid = ::fork();
  if (pid == 0) {
    KvNamedMutexSem m(name.c_str(), false);
    if (!m.Request()) ::_exit(1);
    ready.Put('y');
    ::pause();
    ::_exit(0);
  }
  ASSERT_EQ(ready.Get(), 'y');
  KvNamedMutexSem m(name.c_str(), false);
  EXPECT_FALSE(m.Request(100)) << "held by the child";
  ::kill(pid, SIGKILL);
  WaitChild(pid);
  const auto t0 = Clock::now();
  EXPECT_TRUE(m.Request(10000));
  EXPECT_LT(MillisSince(t0), 500) << "promptly, not after a time-out";
  EXPECT_TRUE(m.Release());
  EXPECT_TRUE(KvRemoveNamedMutexSem(name.c_str()));
}

TEST(NamedEventSem, PostedInOneProcessWakesAnother) {
  const std::string name = UniqueName("evt");
  KvNamedEventSem ev(name.c_str(), false);
  ASSERT_NE(ev.GetHandle(), nullptr);
  EXPECT_FALSE(ev.Wait(0));
  const pid_t pid = ::fork();
  if (pid == 0) {
    KvNamedEventSem mine(name.c_str(), false);  // found by name
    ::_exit(mine.Wait(5000) ? 0 : 1);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_TRUE(ev.Post());
  EXPECT_EQ(WaitChild(pid), 0);
  EXPECT_TRUE(ev.Wait(0));
  EXPECT_TRUE(ev.Reset());
  EXPECT_FALSE(ev.Wait(10));
  EXPECT_TRUE(KvRemoveNamedEventSem(name.c_str()));
}

// ---------------------------------------------------------------------------------------------
// KVCRITSEC

TEST(CritSec, InitTwiceKeepsTheFirstHandleAndAKilledHolderFreesIt) {
  EXPECT_CHILD_OK([] {
    KvInitCritSec();
    KvHandle first = KvGetCritSecHandle();
    CHILD_CHECK(first != nullptr);
    KvInitCritSec();
    CHILD_CHECK(KvGetCritSecHandle() == first);
    KvCloseCritSec();
    CHILD_CHECK(KvGetCritSecHandle() == nullptr);
  });
  Pipe ready;
  const pid_t pid = ::fork();
  if (pid == 0) {
    KvEnterCritSec();
    KvEnterCritSec();  // nested, as the arena's attach does
    ready.Put('y');
    ::pause();
    ::_exit(0);
  }
  ASSERT_EQ(ready.Get(), 'y');
  std::atomic<bool> entered{false};
  std::thread taker([&] {
    KvEnterCritSec();
    entered = true;
    KvExitCritSec();
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(entered.load()) << "the child holds it";
  const auto t0 = Clock::now();
  ::kill(pid, SIGKILL);
  WaitChild(pid);
  taker.join();
  EXPECT_TRUE(entered.load());
  EXPECT_LT(MillisSince(t0), 1000);
}

// ---------------------------------------------------------------------------------------------
// Exit lists

TEST(ExitLists, AHandleIsListedOnceAndThe1025thIsIgnored) {
  EXPECT_CHILD_OK([] {
    static KvEventSem a(true);
    static KvHandle copy = a.GetHandle();
    CHILD_CHECK(KvHandleExitList::_lHandleNdx == 1);
    KvAddHandleToBeClosedAtExit(&copy);  // another variable, the same handle
    CHILD_CHECK(KvHandleExitList::_lHandleNdx == 1);
    static KvEventSem* many[1100];
    for (int i = 0; i < 1100; ++i) many[i] = new KvEventSem(true);
    CHILD_CHECK(KvHandleExitList::_lHandleNdx == 1024);
    CHILD_CHECK(KvHandleExitList::_aphCloseAtExit[1023] != nullptr);
    // KvCloseHandles clears variables and slots and keeps the count
    KvHandle kept_by_1024th = many[1022]->GetHandle();
    KvCloseHandles();
    CHILD_CHECK(a.GetHandle() == nullptr && many[0]->GetHandle() == nullptr && many[1022]->GetHandle() == nullptr);
    CHILD_CHECK(kept_by_1024th != nullptr);
    CHILD_CHECK(many[1023]->GetHandle() != nullptr);  // the 1025th was never listed
    CHILD_CHECK(KvHandleExitList::_lHandleNdx == 1024);
    for (int i = 0; i < 1024; ++i) CHILD_CHECK(KvHandleExitList::_aphCloseAtExit[i] == nullptr);
    KvCloseHandles();  // a second run passes over the cleared slots
  });
}

// A child lists three objects and ends normally: the library's exit routine deletes them in order.
TEST(ExitLists, PointersAreDeletedInOrderWhenTheProcessEnds) {
  struct Noted : PointerToBeDeletedAtExitBase {
    Noted(int fd, char tag) : fd_(fd), tag_(tag) {}
    void DeletePointer() override { (void)!::write(fd_, &tag_, 1); }
    ~Noted() override { (void)!::write(fd_, "d", 1); }
    int fd_;
    char tag_;
  };
  Pipe out;
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::close(out.fd[0]);
    auto* first = new Noted(out.fd[1], '1');
    PointerToBeDeletedAtExitBase::_Add(first);
    PointerToBeDeletedAtExitBase::_Add(new Noted(out.fd[1], '2'));
    PointerToBeDeletedAtExitBase::_Add(first);  // listed already
    PointerToBeDeletedAtExitBase::_Add(new Noted(out.fd[1], '3'));
    std::exit(PointerToBeDeletedAtExitBase::_lPointerNdx == 3 ? 0 : 1);
  }
  ::close(out.fd[1]);
  out.fd[1] = -1;
  std::string seen;
  for (char c; (c = out.Get()) != 0;) seen.push_back(c);
  EXPECT_EQ(WaitChild(pid), 0);
  EXPECT_EQ(seen, "1d2d3d");
}

}  // namespace
