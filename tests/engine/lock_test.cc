// Locks and sharing: between two openers of one process and between processes.
#include "engine_test_util.h"

namespace kvd::test {
namespace {

const FIELD4INFO kFields[] = {{"KEY", 'C', 8, 0, 0}, {"VAL", 'N', 5, 0, 0}, {nullptr, 0, 0, 0, 0}};

class LockTest : public ::testing::Test {
 protected:
  void SetUp() override {
    DATA4St* d = d4create(&a.code, name().c_str(), kFields, nullptr);
    for (int i = 1; i <= 5; ++i) {
      d4appendStart(d, 0);
      d4blank(d);
      f4assignInt(d4field(d, "VAL"), i);
      d4append(d);
    }
    d4close(d);
  }
  std::string name() const { return dir / "l"; }
  TempDir dir;
  Engine a, b;
};

TEST_F(LockTest, ChangeWithoutTheLockIsRefusedVisiblyAndNotWritten) {
  DATA4St* d = d4open(&a.code, name().c_str());
  d4go(d, 2);
  f4assignInt(d4field(d, "VAL"), 77);
  EXPECT_EQ(d4flush(d), e4lock);
  EXPECT_EQ(a.code.errorCode, e4lock);
  EXPECT_NE(d4skip(d, 1), 0) << "the move does not happen while the change cannot be written";
  d4changed(d, 0);
  DATA4St* o = d4open(&b.code, name().c_str());
  d4go(o, 2);
  EXPECT_EQ(f4int(d4field(o, "VAL")), 2);
  d4close(o);
  d4close(d);
}

TEST_F(LockTest, RecordLockExcludesOtherOpenersAndAutoUnlockMovesIt) {
  DATA4St* d = d4open(&a.code, name().c_str());
  DATA4St* o = d4open(&b.code, name().c_str());
  ASSERT_EQ(d4lock(d, 1), 0);
  EXPECT_EQ(d4lock(d, 1), 0) << "re-locking what is held succeeds";
  EXPECT_EQ(d4lock(o, 1), r4locked);
  EXPECT_EQ(d4lock(o, 2), 0);
  EXPECT_EQ(d4lock(d, 2), r4locked);
  d4unlock(o);
  ASSERT_EQ(d4lock(d, 3), 0) << "a new lock drops the earlier ones";
  EXPECT_EQ(d4lock(o, 1), 0);
  EXPECT_TRUE(d4lockTest(d, 3));
  EXPECT_FALSE(d4lockTest(d, 1));
  d4close(o);
  d4close(d);
}

TEST_F(LockTest, WholeTableLockStopsRecordLocksAndAppends) {
  DATA4St* d = d4open(&a.code, name().c_str());
  DATA4St* o = d4open(&b.code, name().c_str());
  ASSERT_EQ(d4lockAll(d), 0);
  EXPECT_EQ(d4lock(o, 4), r4locked);
  d4appendStart(o, 0);
  EXPECT_NE(d4append(o), 0);
  EXPECT_EQ(b.code.errorCode, e4lock) << "a refused append is visible";
  EXPECT_EQ(d4recCount(d), 5);
  d4go(d, 4);
  f4assignInt(d4field(d, "VAL"), 40);
  EXPECT_EQ(d4flush(d), 0) << "the table lock allows changes to every record";
  d4unlock(d);
  error4set(&b.code, 0);
  d4appendStart(o, 0);
  EXPECT_EQ(d4append(o), 0);
  d4close(o);
  d4close(d);
}

TEST_F(LockTest, AppendsUnderTheTableLockAppearToOthersWhenItGoes) {
  DATA4St* d = d4open(&a.code, name().c_str());
  DATA4St* o = d4open(&b.code, name().c_str());
  ASSERT_EQ(d4lockAll(d), 0);
  for (int i = 0; i < 3; ++i) {
    d4appendStart(d, 0);
    d4blank(d);
    f4assignInt(d4field(d, "VAL"), 100 + i);
    ASSERT_EQ(d4append(d), 0);
  }
  EXPECT_EQ(d4recCount(d), 8) << "the appender sees its own records at once";
  d4go(d, 7);
  EXPECT_EQ(f4int(d4field(d, "VAL")), 101);
  f4assignInt(d4field(d, "VAL"), 111);
  ASSERT_EQ(d4flush(d), 0);
  d4go(d, 8);
  EXPECT_EQ(d4recCount(o), 8) << "a flush writes them";
  ASSERT_EQ(d4appendBlank(d), 0);
  EXPECT_EQ(d4recCount(o), 8);
  ASSERT_EQ(d4unlock(d), 0);
  EXPECT_EQ(d4recCount(o), 9) << "unlocking writes them";
  d4go(o, 7);
  EXPECT_EQ(f4int(d4field(o, "VAL")), 111);
  EXPECT_EQ(ReadAll(dir / "l.DBF").back(), 0x1A);
  d4close(o);
  d4close(d);
}

TEST_F(LockTest, GroupLocksAreAllOrNone) {
  DATA4St* d = d4open(&a.code, name().c_str());
  DATA4St* o = d4open(&b.code, name().c_str());
  ASSERT_EQ(d4lock(o, 3), 0);
  d4lockAdd(d, 1);
  d4lockAdd(d, 2);
  d4lockAdd(d, 3);
  EXPECT_EQ(code4lock(&a.code), r4locked);
  EXPECT_FALSE(d4lockTest(d, 1));
  DATA4St* probe = d4open(&b.code, name().c_str());
  b.code.autoUnlock = 0;
  EXPECT_EQ(d4lock(probe, 1), 0) << "records 1 and 2 were given back";
  EXPECT_EQ(d4lock(probe, 2), 0);
  d4close(probe);
  d4unlock(o);
  EXPECT_EQ(code4lock(&a.code), 0) << "the queue stays for a later try";
  EXPECT_TRUE(d4lockTest(d, 1));
  EXPECT_TRUE(d4lockTest(d, 3));
  code4unlock(&a.code);
  EXPECT_FALSE(d4lockTest(d, 1));
  d4close(o);
  d4close(d);
}

TEST_F(LockTest, AnotherProcessSeesWritesAtOnceAndItsLocksHold) {
  Signal child_ready, parent_done;
  DATA4St* d = d4open(&a.code, name().c_str());
  ASSERT_NE(d, nullptr);
  d4top(d);  // the parent has read the table before the child writes
  Child child([&] {
    Engine c;
    DATA4St* t = d4open(&c.code, name().c_str());
    if (!t) return 1;
    d4appendStart(t, 0);
    d4blank(t);
    f4assign(d4field(t, "KEY"), "CHILD");
    if (d4append(t) != 0) return 2;
    d4go(t, 2);
    if (d4lock(t, 2) != 0) return 3;
    f4assign(d4field(t, "KEY"), "BYCHILD");
    if (d4flush(t) != 0) return 4;
    child_ready.Send();  // record 2 stays locked until the parent is done
    parent_done.Wait();
    d4close(t);
    return 0;
  });
  child_ready.Wait();
  EXPECT_EQ(d4recCount(d), 6) << "the count comes from the file, not from the open";
  d4go(d, 6);
  EXPECT_EQ(Str(d4field(d, "KEY")), "CHILD");
  d4go(d, 2);
  EXPECT_EQ(Str(d4field(d, "KEY")), "BYCHILD") << "no caching between processes";
  EXPECT_EQ(d4lock(d, 2), r4locked);
  f4assign(d4field(d, "KEY"), "PARENT");
  EXPECT_EQ(d4flush(d), e4lock);
  d4changed(d, 0);
  parent_done.Send();
  EXPECT_EQ(child.Join(), 0);
  a.code.lockAttempts = 20;  // the child's close may still be on its way
  EXPECT_EQ(d4lock(d, 2), 0) << "the child's exit released its lock";
  d4close(d);
}

TEST_F(LockTest, ConcurrentAppendersNeverLoseOrShareARecord) {
  constexpr int kEach = 300;
  std::vector<Child> kids;
  for (int k = 0; k < 3; ++k) {
    kids.emplace_back([&, k] {
      Engine c;
      c.code.lockAttempts = WAIT4EVER;
      DATA4St* t = d4open(&c.code, name().c_str());
      if (!t) return fprintf(stderr, "open: %s\n", error4lastDetail(&c.code)), 1;
      for (int i = 0; i < kEach; ++i) {
        d4appendStart(t, 0);
        d4blank(t);
        f4assign(d4field(t, "KEY"), ("P" + std::to_string(k)).c_str());
        f4assignInt(d4field(t, "VAL"), i);
        if (d4append(t) != 0) return 2;
      }
      return d4close(t) == 0 ? 0 : 3;
    });
  }
  for (Child& k : kids) EXPECT_EQ(k.Join(), 0);
  DATA4St* d = d4open(&a.code, name().c_str());
  EXPECT_EQ(d4recCount(d), 5 + 3 * kEach);
  std::vector<int> next(3, 0);
  for (d4go(d, 6); !d4eof(d); d4skip(d, 1)) {
    const std::string key = Str(d4field(d, "KEY"));
    ASSERT_EQ(key.size(), 2u);
    const int k = key[1] - '0';
    EXPECT_EQ(f4int(d4field(d, "VAL")), next[k]++) << "each writer's records in its order";
  }
  EXPECT_EQ(next, (std::vector<int>{kEach, kEach, kEach}));
  d4close(d);
}

TEST_F(LockTest, AloneRefusedWhileAnotherOpenerHasTheTableAndSharedAgainAfter) {
  DATA4St* d = d4open(&a.code, name().c_str());
  DATA4St* o = d4open(&b.code, name().c_str());
  ASSERT_NE(o, nullptr);
  EXPECT_EQ(d4accessAlone(d, 1), e4exclusive) << "another open in this process";
  d4go(o, 1);
  EXPECT_EQ(f4int(d4field(o, "VAL")), 1) << "the other opener was not disturbed";
  d4close(o);
  {
    Signal opened, done;
    Child child([&] {
      Engine c;
      DATA4St* t = d4open(&c.code, name().c_str());
      opened.Send();
      done.Wait();
      d4close(t);
      return t ? 0 : 1;
    });
    opened.Wait();
    EXPECT_EQ(d4accessAlone(d, 1), e4exclusive) << "another process";
    done.Send();
    EXPECT_EQ(child.Join(), 0);
  }
  a.code.errorCode = 0;
  ASSERT_EQ(d4accessAlone(d, 1), 0) << error4lastDetail(&a.code);
  EXPECT_EQ(d4accessAlone(d, 1), 0) << "alone twice is alone";
  EXPECT_EQ(d4open(&b.code, name().c_str()), nullptr) << "no one else gets in while alone";
  // Alone, changes need no lock and appends wait in memory; sharing again writes them.
  d4go(d, 2);
  f4assignInt(d4field(d, "VAL"), 20);
  d4appendStart(d, 0);
  d4blank(d);
  f4assignInt(d4field(d, "VAL"), 6);
  ASSERT_EQ(d4append(d), 0);
  ASSERT_EQ(d4accessAlone(d, 0), 0) << error4lastDetail(&a.code);
  b.code.errorCode = 0;
  o = d4open(&b.code, name().c_str());
  ASSERT_NE(o, nullptr) << "shared again";
  EXPECT_EQ(d4recCount(o), 6);
  d4go(o, 2);
  EXPECT_EQ(f4int(d4field(o, "VAL")), 20);
  d4go(o, 6);
  EXPECT_EQ(f4int(d4field(o, "VAL")), 6);
  EXPECT_EQ(d4lock(d, 3), 0) << "locks work as before";
  EXPECT_EQ(d4lock(o, 3), r4locked);
  d4close(o);
  d4close(d);
}

TEST_F(LockTest, TableOpenedAloneStaysAloneWhenSharedAgain) {
  a.code.accessMode = OPEN4DENY_RW;
  DATA4St* d = d4open(&a.code, name().c_str());
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d4accessAlone(d, 1), 0);
  EXPECT_EQ(d4accessAlone(d, 0), 0);
  EXPECT_EQ(d4open(&b.code, name().c_str()), nullptr);
  d4close(d);
}

}  // namespace
}  // namespace kvd::test
