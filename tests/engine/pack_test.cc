// Pack: what it keeps, when it refuses, and that a kill at any moment loses nothing.
#include <signal.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>

#include "engine_test_util.h"
#include "platform/file.h"
#include "platform/sys.h"

namespace kvd::test {
namespace {

const FIELD4INFO kFields[] = {{"KEY", 'C', 12, 0, 0}, {"PAD", 'C', 80, 0, 0}, {nullptr, 0, 0, 0, 0}};

DATA4St* Build(Engine& e, const std::string& name, int rows, int delete_every) {
  DATA4St* d = d4create(&e.code, name.c_str(), kFields, nullptr);
  d4lockAll(d);
  for (int i = 1; i <= rows; ++i) {
    d4appendStart(d, 0);
    d4blank(d);
    f4assignLong(d4field(d, "KEY"), i);
    f4assign(d4field(d, "PAD"), "padding");
    if (delete_every && i % delete_every == 0) d4delete(d);
    d4append(d);
  }
  d4unlock(d);
  return d;
}

TEST(Pack, KeepsLiveRecordsInOrderAndShrinksTheFile) {
  TempDir dir;
  Engine e;
  DATA4St* d = Build(e, dir / "p", 10, 3);
  const auto before = std::filesystem::file_size(dir / "p.DBF");
  ASSERT_EQ(d4pack(d), 0) << error4lastDetail(&e.code);
  EXPECT_EQ(d4recCount(d), 7);
  std::vector<long> keys;
  for (d4top(d); !d4eof(d); d4skip(d, 1)) {
    EXPECT_FALSE(d4deleted(d));
    keys.push_back(f4long(d4field(d, "KEY")));
  }
  EXPECT_EQ(keys, (std::vector<long>{1, 2, 4, 5, 7, 8, 10}));
  EXPECT_EQ(std::filesystem::file_size(dir / "p.DBF"), before - 3 * 93);
  // The table is still usable and shared afterwards.
  Engine other;
  DATA4St* o = d4open(&other.code, (dir / "p").c_str());
  EXPECT_NE(o, nullptr);
  d4close(o);
  d4close(d);
}

// A record this opener has seen counted is read without a look at the count; after its own pack
// the records past the new count are gone for it too: a write to one is refused and the file does
// not grow.
TEST(Pack, RecordsPastTheNewCountAreGoneForThePacker) {
  TempDir dir;
  Engine e;
  DATA4St* d = Build(e, dir / "p", 10, 2);
  d4go(d, 10);
  EXPECT_EQ(f4long(d4field(d, "KEY")), 10);
  ASSERT_EQ(d4pack(d), 0) << error4lastDetail(&e.code);
  ASSERT_EQ(d4recCount(d), 5);
  const auto size = std::filesystem::file_size(dir / "p.DBF");
  e.code.errorCode = 0;
  e.code.lockEnforce = 0;
  EXPECT_LT(d4write(d, 9), 0) << "record 9 went with the pack";
  EXPECT_EQ(std::filesystem::file_size(dir / "p.DBF"), size);
  d4changed(d, 0);  // the refused write is not tried again by the next move
  EXPECT_EQ(d4go(d, 9), r4entry);
  e.code.errorCode = 0;
  ASSERT_EQ(d4go(d, 5), 0);
  EXPECT_EQ(f4long(d4field(d, "KEY")), 9);
  d4close(d);
}

TEST(Pack, RefusedWhileAnotherOpenerHasTheTable) {
  TempDir dir;
  Engine e, other;
  DATA4St* d = Build(e, dir / "p", 6, 2);
  DATA4St* o = d4open(&other.code, (dir / "p").c_str());
  ASSERT_NE(o, nullptr);
  EXPECT_EQ(d4pack(d), e4exclusive);
  EXPECT_EQ(d4recCount(o), 6) << "nothing changed";
  d4go(o, 6);
  EXPECT_TRUE(d4deleted(o));
  d4close(o);
  EXPECT_EQ(d4pack(d), 0);
  EXPECT_EQ(d4recCount(d), 3);
  d4close(d);
}

TEST(Pack, KeepsTheLocksItsOpenerHeld) {
  TempDir dir;
  Engine e, other;
  DATA4St* d = Build(e, dir / "p", 4, 4);
  ASSERT_EQ(d4lockAll(d), 0);
  ASSERT_EQ(d4pack(d), 0);
  DATA4St* o = d4open(&other.code, (dir / "p").c_str());
  ASSERT_NE(o, nullptr);
  EXPECT_EQ(d4lock(o, 1), r4locked) << "the whole-table lock is held on the new file too";
  d4close(o);
  d4close(d);
}

// The packed file takes the table's name with the packer's lock already on it: an opener that
// comes at the moment of the rename is held off until the index is rebuilt, and then finds every
// key at its new record. The table is bigger than one header read, so the new file's size is judged
// by what was written, not by what its creation saw.
kvd::platform::SysCalls g_before_rename;
std::string g_table;
int g_lock_at_rename = -1;  // 1: another opener got a shared lock right after the rename
TEST(Pack, AnOpenerAtTheRenameWaitsForTheRebuiltIndex) {
  TempDir dir;
  Engine e;
  DATA4St* d = Build(e, dir / "p", 300, 3);
  const TAG4INFO tags[] = {{"KEY", "KEY", nullptr, 0, 0}, {nullptr, nullptr, nullptr, 0, 0}};
  ASSERT_NE(i4create(d, nullptr, tags), nullptr) << error4lastDetail(&e.code);
  ASSERT_GT(std::filesystem::file_size(dir / "p.DBF"), 4096u);
  g_table = dir / "p.DBF";
  g_lock_at_rename = -1;
  {
    kvd::platform::SysCallsOverride keep;
    g_before_rename = kvd::platform::Sys();
    kvd::platform::Sys().rename = [](const char* a, const char* b) {
      const int rc = g_before_rename.rename(a, b);
      std::unique_ptr<kvd::platform::File> f;
      if (rc == 0 && std::string(b) == g_table &&
          kvd::platform::File::Open(g_table, kvd::platform::OpenMode::kRead, &f).ok())
        g_lock_at_rename = f->ShareLock(kvd::platform::LockKind::kShared, /*wait=*/false).ok() ? 1 : 0;
      return rc;
    };
    ASSERT_EQ(d4pack(d), 0) << error4lastDetail(&e.code);
  }
  EXPECT_EQ(g_lock_at_rename, 0) << "the new table was reachable without the packer's lock";
  d4close(d);

  Engine other;
  DATA4St* o = d4open(&other.code, (dir / "p").c_str());
  ASSERT_NE(o, nullptr);
  ASSERT_NE(i4open(o, nullptr), nullptr);
  d4tagSelect(o, d4tag(o, "KEY"));
  EXPECT_EQ(d4recCount(o), 200);
  for (int k = 1; k <= 300; ++k) {
    char key[13];
    std::snprintf(key, sizeof key, "%12d", k);
    if (k % 3 == 0) {
      EXPECT_NE(d4seek(o, key), 0) << k;
    } else {
      ASSERT_EQ(d4seek(o, key), 0) << k;
      EXPECT_EQ(d4recNo(o), k - k / 3) << k;
    }
  }
  d4close(o);
}

// The child dies at the n-th system call that changes a file (write, truncate, sync, rename, unlink),
// as a kill at that moment would leave it: nothing after the call happens.
std::atomic<long> g_calls{0};
long g_die_at = -1;
kvd::platform::SysCalls g_real;
void Tick() {
  if (++g_calls == g_die_at) _exit(99);
}
void DieAtCall(long n) {
  g_real = kvd::platform::Sys();
  g_calls = 0;
  g_die_at = n;
  auto& s = kvd::platform::Sys();
  s.pwrite = [](int fd, const void* b, size_t n, off_t o) { Tick(); return g_real.pwrite(fd, b, n, o); };
  s.ftruncate = [](int fd, off_t l) { Tick(); return g_real.ftruncate(fd, l); };
  s.fsync = [](int fd) { Tick(); return g_real.fsync(fd); };
  s.rename = [](const char* a, const char* b) { Tick(); return g_real.rename(a, b); };
  s.unlink = [](const char* p) { Tick(); return g_real.unlink(p); };
}

TEST(Pack, AKillAtAnyMomentLeavesTheOldTableOrTheNewOne) {
  TempDir dir;
  const int rows = 20000;  // about 1.8 MB: the pack writes it in two runs
  auto fresh = [&] {
    Engine e;
    std::filesystem::remove(dir / "k.DBF");
    d4close(Build(e, dir / "k", rows, 2));
  };
  auto pack_dying_at = [&](long n) {
    return Child([&] {
      DieAtCall(n);
      Engine c;
      DATA4St* t = d4open(&c.code, (dir / "k").c_str());
      const int rc = t ? d4pack(t) : -1;
      return rc == 0 ? static_cast<int>(std::min<long>(g_calls, 98)) : 1;
    });
  };
  fresh();
  const int total = pack_dying_at(-1).Join();  // how many changing calls a whole pack makes
  ASSERT_GT(total, 2);
  ASSERT_LT(total, 98);
  int saw_old = 0, saw_new = 0;
  for (long n = 1; n <= total; ++n) {
    fresh();
    EXPECT_EQ(pack_dying_at(n).Join(), 99) << "the child died at call " << n;
    Engine e;
    DATA4St* d = d4open(&e.code, (dir / "k").c_str());
    ASSERT_NE(d, nullptr) << "killed at call " << n << ": " << error4lastDetail(&e.code);
    const long count = d4recCount(d);
    ASSERT_TRUE(count == rows || count == rows / 2) << "killed at call " << n << ": count " << count;
    for (long r : {1L, count / 2, count}) {
      d4go(d, r);
      const long want = count == rows ? r : 2 * r - 1;
      EXPECT_EQ(f4long(d4field(d, "KEY")), want) << "killed at call " << n << ", record " << r;
    }
    (count == rows ? saw_old : saw_new)++;
    d4close(d);
  }
  EXPECT_GT(saw_old, 0);
  EXPECT_GT(saw_new, 0) << "a kill after the rename must find the packed table";
}

}  // namespace
}  // namespace kvd::test
