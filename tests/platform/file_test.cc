// Files, locks and mappings: statuses of failing calls, locks between Files and processes, the
// guard against removing an open file, and mappings that see other writers.
#include "platform/file.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "platform/env.h"
#include "platform/sys.h"
#include "tests/platform/test_dir.h"

namespace kvd::platform {
namespace {

using testing::Child;
using testing::ReadWhole;
using testing::TestDir;
using testing::WriteWhole;
using Kind = Status::Kind;
namespace fs = std::filesystem;

std::unique_ptr<File> OpenOrDie(const std::string& path, OpenMode mode) {
  std::unique_ptr<File> f;
  Status s = File::Open(path, mode, &f);
  EXPECT_TRUE(s.ok()) << s.ToString();
  return f;
}

// A fresh directory per test.
class DirTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(dir_.ok()); }
  TestDir dir_;
};
using FileTest = DirTest;
using FileOpsTest = DirTest;
using MappingTest = DirTest;
using DirectoryLockTest = DirTest;

// For a forked child: a File kept open until the child exits.
File* OpenInChild(const std::string& path) {
  static std::unique_ptr<File> kept;
  return File::Open(path, OpenMode::kReadWrite, &kept).ok() ? kept.get() : nullptr;
}

TEST(StatusTest, ErrnoKindsAndMessages) {
  const std::pair<int, Kind> cases[] = {
      {ENOENT, Kind::kNotFound}, {EAGAIN, Kind::kBusy},     {EBUSY, Kind::kBusy},
      {ENOSPC, Kind::kNoSpace},  {EDQUOT, Kind::kNoSpace},  {EFBIG, Kind::kNoSpace},
      {EROFS, Kind::kReadOnly},  {EEXIST, Kind::kExists},   {EINVAL, Kind::kInvalidArgument},
      {EIO, Kind::kIoError},     {EACCES, Kind::kIoError},  // permission; locks map it themselves
  };
  for (auto [err, kind] : cases) {
    Status s = Status::FromErrno(err, "open", "/x/T.DBF");
    EXPECT_EQ(s.kind(), kind) << "errno " << err;
    EXPECT_EQ(s.message(), std::string("open /x/T.DBF: ") + std::strerror(err));
  }
  Status c = KVD_CORRUPT("T.CDX", 1536, "key outside page");
  EXPECT_EQ(c.ToString().rfind("Corruption: T.CDX at offset 1536: key outside page (file_test.cc:", 0), 0u)
      << c.ToString();
}

TEST_F(FileTest, OpenModesAndReadOnly) {
  std::unique_ptr<File> f;
  EXPECT_TRUE(File::Open(dir_ / "none.dbf", OpenMode::kRead, &f).IsNotFound());
  WriteWhole(dir_ / "t.dbf", "old");
  EXPECT_EQ(File::Open(dir_ / "T.DBF", OpenMode::kCreateExclusive, &f).kind(), Kind::kExists);
  EXPECT_EQ(File::Open(dir_.path(), OpenMode::kRead, &f).kind(), Kind::kInvalidArgument);

  f = OpenOrDie(dir_ / "t.dbf", OpenMode::kRead);
  EXPECT_EQ(f->WriteAt(0, "x", 1).kind(), Kind::kReadOnly);
  EXPECT_EQ(f->LockRange(0, 1, LockKind::kExclusive, false).kind(), Kind::kReadOnly);
  f = OpenOrDie(dir_ / "t.dbf", OpenMode::kCreate);
  std::uint64_t size = 1;
  ASSERT_TRUE(f->Size(&size).ok());
  EXPECT_EQ(size, 0u);  // kCreate truncated it
}

TEST_F(FileTest, ReadPastEndIsCorruptionNamingPathAndOffset) {
  WriteWhole(dir_ / "t.dbf", "0123456789");
  auto f = OpenOrDie(dir_ / "t.dbf", OpenMode::kRead);
  char buf[8];
  std::size_t got = 0;
  ASSERT_TRUE(f->ReadAt(6, buf, sizeof(buf), &got).ok());
  EXPECT_EQ(std::string(buf, got), "6789");
  Status s = f->ReadExactAt(6, buf, sizeof(buf));
  EXPECT_TRUE(s.IsCorruption());
  EXPECT_NE(s.message().find(dir_ / "t.dbf at offset 6: short read"), std::string::npos) << s.message();
}

TEST_F(FileTest, InjectedEnospcGivesNoSpace) {
  auto f = OpenOrDie(dir_ / "t.dbf", OpenMode::kCreate);
  SysCallsOverride restore;
  Sys().pwrite = [](int, const void*, size_t, off_t) -> ssize_t {
    errno = ENOSPC;
    return -1;
  };
  Status s = f->WriteAt(0, "abc", 3);
  EXPECT_EQ(s.kind(), Kind::kNoSpace) << s.ToString();
  EXPECT_NE(s.message().find(f->path()), std::string::npos);
}

TEST_F(FileTest, ShortAndInterruptedWritesAreRetried) {
  auto f = OpenOrDie(dir_ / "t.dbf", OpenMode::kCreate);
  {
    SysCallsOverride restore;
    Sys().pwrite = [](int fd, const void* buf, size_t n, off_t off) -> ssize_t {
      static int calls = 0;
      if (++calls % 2 == 0) {
        errno = EINTR;
        return -1;
      }
      return ::pwrite(fd, buf, n < 3 ? n : 3, off);
    };
    ASSERT_TRUE(f->WriteAt(4, "abcdefghij", 10).ok());
  }
  EXPECT_EQ(ReadWhole(dir_ / "t.dbf"), std::string(4, '\0') + "abcdefghij");
}

class LockTest : public DirTest {
 protected:
  void SetUp() override {
    DirTest::SetUp();
    WriteWhole(path_, "x");
  }
  std::string path_ = dir_ / "t.dbf";
};

TEST_F(LockTest, RangeLocksBetweenTwoFilesOfOneProcess) {
  auto a = OpenOrDie(path_, OpenMode::kReadWrite);
  auto b = OpenOrDie(path_, OpenMode::kReadWrite);
  ASSERT_TRUE(a->LockRange(1000, 10, LockKind::kExclusive, false).ok());
  EXPECT_TRUE(b->LockRange(1009, 4, LockKind::kShared, false).IsBusy());
  EXPECT_TRUE(b->LockRange(1010, 5, LockKind::kExclusive, false).ok());  // just past a's range
  bool held = false;
  ASSERT_TRUE(b->TestRange(1000, 1, LockKind::kShared, &held).ok());
  EXPECT_TRUE(held);
  ASSERT_TRUE(a->TestRange(1000, 10, LockKind::kExclusive, &held).ok());
  EXPECT_FALSE(held);  // a's own lock does not count against a

  // Shared with shared is fine; converting to exclusive is refused only where b shares.
  ASSERT_TRUE(a->LockRange(1000, 10, LockKind::kShared, false).ok());
  ASSERT_TRUE(b->LockRange(1005, 5, LockKind::kShared, false).ok());
  EXPECT_TRUE(a->LockRange(1000, 10, LockKind::kExclusive, false).IsBusy());
  EXPECT_TRUE(a->LockRange(1000, 5, LockKind::kExclusive, false).ok());
  ASSERT_TRUE(b->UnlockRange(1005, 5).ok());
  EXPECT_TRUE(a->LockRange(1000, 10, LockKind::kExclusive, false).ok());
  EXPECT_EQ(a->LockRange(5, 0, LockKind::kShared, false).kind(), Kind::kInvalidArgument);
}

TEST_F(LockTest, ClosingAnotherFileKeepsTheLock) {
  auto a = OpenOrDie(path_, OpenMode::kReadWrite);
  ASSERT_TRUE(a->LockRange(7, 3, LockKind::kExclusive, false).ok());
  OpenOrDie(path_, OpenMode::kReadWrite).reset();  // would drop a process-owned record lock
  auto c = OpenOrDie(path_, OpenMode::kReadWrite);
  EXPECT_TRUE(c->LockRange(8, 1, LockKind::kExclusive, false).IsBusy());
  a.reset();
  EXPECT_TRUE(c->LockRange(8, 1, LockKind::kExclusive, false).ok());
}

TEST_F(LockTest, RangeLockHeldByAnotherProcess) {
  Child child([p = path_] {
    File* f = OpenInChild(p);
    return f != nullptr && f->LockRange(200, 50, LockKind::kExclusive, false).ok();
  });
  ASSERT_TRUE(child.WaitReady());
  auto f = OpenOrDie(path_, OpenMode::kReadWrite);
  EXPECT_TRUE(f->LockRange(220, 1, LockKind::kShared, false).IsBusy());
  bool held = false;
  ASSERT_TRUE(f->TestRange(249, 10, LockKind::kShared, &held).ok());
  EXPECT_TRUE(held);

  // A waiting lock is granted once the child exits.
  const std::uint64_t start = MonotonicMillis();
  std::thread releaser([&child] {
    SleepMillis(100);
    child.Finish();
  });
  Status s = f->LockRange(200, 50, LockKind::kExclusive, true);
  releaser.join();
  EXPECT_TRUE(s.ok()) << s.ToString();
  EXPECT_GE(MonotonicMillis() - start, 90u);
}

TEST_F(LockTest, ShareLockConversionThatFailsKeepsTheSharedLock) {
  auto a = OpenOrDie(path_, OpenMode::kReadWrite);
  auto b = OpenOrDie(path_, OpenMode::kRead);
  ASSERT_TRUE(a->ShareLock(LockKind::kShared, false).ok());
  ASSERT_TRUE(b->ShareLock(LockKind::kShared, false).ok());
  EXPECT_TRUE(a->ShareLock(LockKind::kExclusive, false).IsBusy());
  // b goes; had a lost its shared lock in the failed conversion, c would now get in.
  b.reset();
  auto c = OpenOrDie(path_, OpenMode::kReadWrite);
  EXPECT_TRUE(c->ShareLock(LockKind::kExclusive, false).IsBusy());
  EXPECT_TRUE(a->ShareLock(LockKind::kExclusive, false).ok());
  EXPECT_TRUE(c->ShareLock(LockKind::kShared, false).IsBusy());
  ASSERT_TRUE(a->ShareUnlock().ok());
  EXPECT_TRUE(c->ShareLock(LockKind::kExclusive, false).ok());
}

TEST_F(LockTest, RemoveAndReplaceRefusedWhileAnotherOpenerHoldsTheFile) {
  WriteWhole(path_, "old");
  WriteWhole(dir_ / "new.dbf", "new");
  auto holder = OpenOrDie(path_, OpenMode::kRead);
  ASSERT_TRUE(holder->ShareLock(LockKind::kShared, false).ok());
  EXPECT_TRUE(RemoveFile(dir_ / "T.DBF").IsBusy());
  EXPECT_TRUE(ReplaceFile(dir_ / "NEW.DBF", dir_ / "T.DBF").IsBusy());
  EXPECT_EQ(ReadWhole(path_), "old");
  EXPECT_EQ(ReadWhole(dir_ / "new.dbf"), "new");

  holder.reset();
  ASSERT_TRUE(ReplaceFile(dir_ / "NEW.DBF", dir_ / "T.DBF").ok());
  EXPECT_EQ(ReadWhole(path_), "new");
  EXPECT_FALSE(fs::exists(dir_ / "new.dbf"));
  EXPECT_TRUE(RemoveFile(dir_ / "T.DBF").ok());
  EXPECT_FALSE(fs::exists(path_));
  EXPECT_TRUE(RemoveFile(path_).IsNotFound());
}

TEST_F(LockTest, ReplaceHeldSkipsTheGuardForTheHolder) {
  WriteWhole(dir_ / "new.dbf", "new");
  auto holder = OpenOrDie(path_, OpenMode::kReadWrite);
  ASSERT_TRUE(holder->ShareLock(LockKind::kExclusive, false).ok());
  EXPECT_TRUE(ReplaceFile(dir_ / "new.dbf", path_).IsBusy());  // the holder counts as an opener
  ASSERT_TRUE(ReplaceFileHeld(dir_ / "NEW.DBF", dir_ / "T.DBF").ok());
  EXPECT_EQ(ReadWhole(path_), "new");
}

TEST_F(DirectoryLockTest, ExcludesWithinAProcessAndAcrossAndGoesWithItsHolder) {
  std::unique_ptr<DirectoryLock> a, b;
  ASSERT_TRUE(DirectoryLock::Acquire(dir_.path(), 0, &a).ok());
  EXPECT_TRUE(DirectoryLock::Acquire(dir_.path() + "/", 0, &b).IsBusy()) << "a second lock in this process";
  EXPECT_EQ(b, nullptr);
  const std::uint64_t start = MonotonicMillis();
  EXPECT_TRUE(DirectoryLock::Acquire(dir_.path(), 60, &b).IsBusy());
  EXPECT_GE(MonotonicMillis() - start, 60u) << "it tried for the time given";
  WriteWhole(dir_ / "in.dbf", "x");
  EXPECT_TRUE(RemoveFile(dir_ / "in.dbf").ok()) << "files in the directory are not locked";
  a.reset();
  ASSERT_TRUE(DirectoryLock::Acquire(dir_.path(), 0, &b).ok());
  b.reset();

  Child child([p = dir_.path()] {
    static std::unique_ptr<DirectoryLock> kept;
    return DirectoryLock::Acquire(p, 0, &kept).ok();
  });
  ASSERT_TRUE(child.WaitReady());
  EXPECT_TRUE(DirectoryLock::Acquire(dir_.path(), 0, &a).IsBusy()) << "held by another process";
  std::thread releaser([&child] {
    SleepMillis(100);
    child.Finish();  // the child exits holding the lock
  });
  Status s = DirectoryLock::Acquire(dir_.path(), 5000, &a);
  releaser.join();
  EXPECT_TRUE(s.ok()) << s.ToString();
  EXPECT_TRUE(DirectoryLock::Acquire(dir_ / "missing", 0, &b).IsNotFound());
  EXPECT_FALSE(fs::exists(dir_ / "missing"));
}

TEST_F(FileOpsTest, CopyRenameAndIdentity) {
  WriteWhole(dir_ / "a.dbf", "aaaa");
  WriteWhole(dir_ / "b.dbf", "bbbb");
  EXPECT_EQ(RenameFile(dir_ / "a.dbf", dir_ / "B.DBF").kind(), Kind::kExists);
  EXPECT_EQ(CopyFile(dir_ / "A.DBF", dir_ / "b.dbf", true).kind(), Kind::kExists);
  EXPECT_EQ(ReadWhole(dir_ / "b.dbf"), "bbbb");
  ASSERT_TRUE(CopyFile(dir_ / "A.DBF", dir_ / "b.dbf", false).ok());
  ASSERT_TRUE(CopyFile(dir_ / "A.DBF", dir_ / "c.dbf", true).ok());
  EXPECT_EQ(ReadWhole(dir_ / "b.dbf") + ReadWhole(dir_ / "c.dbf"), "aaaaaaaa");
  EXPECT_EQ(std::distance(fs::directory_iterator(dir_.path()), {}), 3);  // no temporaries left

  auto f = OpenOrDie(dir_ / "c.dbf", OpenMode::kRead);
  bool same = false;
  ASSERT_TRUE(f->IsSameFileAs(dir_ / "C.DBF", &same).ok());
  EXPECT_TRUE(same);
  ASSERT_TRUE(RenameFile(dir_ / "c.dbf", dir_ / "d.dbf").ok());
  WriteWhole(dir_ / "c.dbf", "other");
  ASSERT_TRUE(f->IsSameFileAs(dir_ / "c.dbf", &same).ok());
  EXPECT_FALSE(same);

  ASSERT_TRUE(MakeDirectory(dir_ / "Sub").ok());
  EXPECT_EQ(MakeDirectory(dir_ / "SUB").kind(), Kind::kExists);
  EXPECT_TRUE(DirectoryExists(dir_ / "sub") && !FileExists(dir_ / "sub") && FileExists(dir_ / "D.dbf"));
  EXPECT_TRUE(RemoveDirectory(dir_ / "sub").ok());
  EXPECT_FALSE(DirectoryExists(dir_ / "Sub"));
}

// An existing file opens by its name as written, or by the name on disk in another case; either
// way the File knows the name it was opened by and its size then.
TEST_F(FileOpsTest, OpenKnowsItsNameAndSize) {
  WriteWhole(dir_ / "t.dbf", "0123456789");
  auto exact = OpenOrDie(dir_ / "t.dbf", OpenMode::kRead);
  auto other_case = OpenOrDie(dir_ / "T.DBF", OpenMode::kReadWrite);
  EXPECT_EQ(exact->path(), dir_ / "t.dbf");
  EXPECT_EQ(other_case->path(), dir_ / "t.dbf");
  EXPECT_EQ(exact->size_at_open(), 10u);
  ASSERT_TRUE(other_case->WriteAt(10, "ab", 2).ok());
  EXPECT_EQ(exact->size_at_open(), 10u) << "the size as the open found it";
  EXPECT_TRUE(exact->FileBeside("t.dbf"));
  EXPECT_FALSE(exact->FileBeside("T.DBF")) << "the name exactly as given";
  EXPECT_FALSE(exact->FileBeside("none.dbf"));
  fs::remove(dir_ / "t.dbf");
  std::unique_ptr<File> f;
  EXPECT_TRUE(File::Open(dir_ / "T.DBF", OpenMode::kRead, &f).IsNotFound());
}

// A file replaced between the open and its lock (the lock then sits on a file without a name) is
// opened again; a lock held alone elsewhere is waited for as many attempts as asked, then Busy.
std::string g_replace_from, g_replace_to;
SysCalls g_unreplaced;
TEST_F(FileOpsTest, OpenLockedOpensAFileReplacedBeforeItsLockAgain) {
  WriteWhole(dir_ / "t.dbf", "old file");
  WriteWhole(dir_ / "new.dbf", "new");
  g_replace_from = dir_ / "new.dbf";
  g_replace_to = dir_ / "t.dbf";
  std::unique_ptr<File> f;
  {
    SysCallsOverride keep;
    g_unreplaced = Sys();
    Sys().flock = [](int fd, int op) {
      if (!g_replace_from.empty()) {  // the first lock comes after another file took the name
        g_unreplaced.rename(g_replace_from.c_str(), g_replace_to.c_str());
        g_replace_from.clear();
      }
      return g_unreplaced.flock(fd, op);
    };
    ASSERT_TRUE(File::OpenLocked(dir_ / "T.DBF", OpenMode::kRead, LockKind::kShared, 1, 0, &f).ok());
  }
  EXPECT_TRUE(g_replace_from.empty()) << "the replace happened";
  EXPECT_EQ(f->size_at_open(), 3u) << "the file that has the name now";
  char buf[4] = {};
  ASSERT_TRUE(f->ReadExactAt(0, buf, 3).ok());
  EXPECT_STREQ(buf, "new");

  auto alone = OpenOrDie(dir_ / "t.dbf", OpenMode::kRead);
  ASSERT_TRUE(alone->ShareLock(LockKind::kExclusive, false).IsBusy()) << "f holds it shared";
  f.reset();
  ASSERT_TRUE(alone->ShareLock(LockKind::kExclusive, false).ok());
  const auto t0 = std::chrono::steady_clock::now();
  EXPECT_TRUE(File::OpenLocked(dir_ / "t.dbf", OpenMode::kRead, LockKind::kShared, 3, 20, &f).IsBusy());
  EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(40)) << "two waits between three attempts";
  EXPECT_EQ(f, nullptr);
}

// A File of OpenLocked leaves its descriptor in the park when it goes, and the next OpenLocked of
// the name takes it instead of opening: to anyone else the file is closed (no lock held), a name
// that now means another file, or none, is opened afresh, a File that took a range lock is closed
// for real, and a child of fork never shares a kept descriptor with its parent.
std::atomic<int> g_opens{0};
TEST_F(FileOpsTest, OpenLockedKeepsClosedDescriptorsOnlyWhileTheirNameMeansThem) {
  WriteWhole(dir_ / "t.dbf", "first");
  SysCallsOverride keep;
  static SysCalls real = Sys();
  Sys().open = [](const char* p, int f, mode_t m) { return ++g_opens, real.open(p, f, m); };
  auto open = [&](LockKind kind = LockKind::kShared) {
    std::unique_ptr<File> f;
    Status s = File::OpenLocked(dir_ / "t.dbf", OpenMode::kReadWrite, kind, 1, 0, &f);
    EXPECT_TRUE(s.ok() || s.IsNotFound()) << s.ToString();
    return f;
  };
  open();  // parked as it goes
  g_opens = 0;
  auto f = open();
  EXPECT_EQ(g_opens, 0) << "the kept descriptor";
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(f->size_at_open(), 5u);
  EXPECT_TRUE(RemoveFile(dir_ / "t.dbf").IsBusy()) << "its lock is taken again";
  f.reset();
  {
    std::unique_ptr<File> other;
    ASSERT_TRUE(File::Open(dir_ / "t.dbf", OpenMode::kRead, &other).ok());
    EXPECT_TRUE(other->ShareLock(LockKind::kExclusive, false).ok()) << "a parked descriptor holds no lock";
  }

  // The name replaced while parked: the new file, through a fresh open.
  WriteWhole(dir_ / "new.dbf", "second!");
  ASSERT_EQ(::rename((dir_ / "new.dbf").c_str(), (dir_ / "t.dbf").c_str()), 0);  // behind the park's back
  g_opens = 0;
  f = open();
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(g_opens, 1);
  EXPECT_EQ(f->size_at_open(), 7u);
  char b[8] = {};
  ASSERT_TRUE(f->ReadExactAt(0, b, 7).ok());
  EXPECT_STREQ(b, "second!");
  f.reset();
  // Removed while parked: not found.
  ASSERT_EQ(::unlink((dir_ / "t.dbf").c_str()), 0);
  EXPECT_EQ(open(), nullptr);

  // A File that took a range lock is closed when it goes, and its range lock with it.
  WriteWhole(dir_ / "t.dbf", "third");
  f = open();
  ASSERT_TRUE(f->LockRange(100, 1, LockKind::kExclusive, false).ok());
  f.reset();
  {
    std::unique_ptr<File> other;
    ASSERT_TRUE(File::Open(dir_ / "t.dbf", OpenMode::kReadWrite, &other).ok());
    EXPECT_TRUE(other->LockRange(100, 1, LockKind::kExclusive, false).ok());
  }
  g_opens = 0;
  f = open();
  EXPECT_EQ(g_opens, 1) << "not taken from the park";
  ASSERT_TRUE(f->LockRange(100, 1, LockKind::kExclusive, false).ok());
  f.reset();  // closed, not parked: it locked a range

  // A child of fork finds the park empty: its range locks exclude the parent's, which they could
  // not on a shared open file description.
  open();
  open().reset();
  Child child([p = dir_ / "t.dbf"] {
    g_opens = 0;
    static std::unique_ptr<File> kept;
    return File::OpenLocked(p, OpenMode::kReadWrite, LockKind::kShared, 1, 0, &kept).ok() && g_opens == 1 &&
           kept->LockRange(300, 1, LockKind::kExclusive, false).ok();
  });
  ASSERT_TRUE(child.WaitReady());
  g_opens = 0;
  f = open();
  EXPECT_EQ(g_opens, 0) << "the parent's own kept descriptor";
  EXPECT_TRUE(f->LockRange(300, 1, LockKind::kExclusive, false).IsBusy());
}

TEST_F(MappingTest, SeesWritesOfOtherFilesAndProcessesWithoutRemapping) {
  WriteWhole(dir_ / "t.dbf", "abcdefgh");
  auto f = OpenOrDie(dir_ / "t.dbf", OpenMode::kRead);
  Mapping map;
  ASSERT_TRUE(map.Map(*f, 8).ok());
  auto writer = OpenOrDie(dir_ / "T.DBF", OpenMode::kReadWrite);
  ASSERT_TRUE(writer->WriteAt(2, "XY", 2).ok());
  EXPECT_EQ(std::memcmp(map.data(), "abXYefgh", 8), 0);

  Child child([p = dir_ / "t.dbf"] {
    File* c = OpenInChild(p);
    return c != nullptr && c->WriteAt(6, "!!", 2).ok();
  });
  ASSERT_TRUE(child.WaitReady());
  EXPECT_EQ(std::memcmp(map.data(), "abXYef!!", 8), 0);
}

TEST_F(MappingTest, NeverBeyondEndOfFileAndRemapReplaces) {
  WriteWhole(dir_ / "t.dbf", "1234");
  auto f = OpenOrDie(dir_ / "t.dbf", OpenMode::kReadWrite);
  Mapping map;
  EXPECT_EQ(map.Map(*f, 5).kind(), Kind::kInvalidArgument);
  ASSERT_TRUE(map.Map(*f, 4).ok());
  ASSERT_TRUE(f->WriteAt(4, "5678", 4).ok());
  const std::byte* old = map.data();
  EXPECT_EQ(map.Map(*f, 16).kind(), Kind::kInvalidArgument);
  EXPECT_EQ(map.data(), old);  // a failed Map keeps the mapping it had
  ASSERT_TRUE(map.Map(*f, 8).ok());
  EXPECT_EQ(std::memcmp(map.data(), "12345678", 8), 0);
  ASSERT_TRUE(map.Map(*f, 0).ok());
  EXPECT_TRUE(map.data() == nullptr && map.size() == 0);
}

// Cover follows a file that grows: the readable part reaches the new end without a new mapping
// while the address space kept suffices, and never beyond the end.
TEST_F(MappingTest, CoverFollowsGrowthAndStopsAtTheEnd) {
  WriteWhole(dir_ / "t.dbf", "12345678");
  auto f = OpenOrDie(dir_ / "t.dbf", OpenMode::kRead);
  auto writer = OpenOrDie(dir_ / "t.dbf", OpenMode::kReadWrite);
  Mapping map;
  std::uint64_t size = 0;
  bool covered = true;
  ASSERT_TRUE(map.Cover(*f, 9, &size, &covered).ok());
  EXPECT_FALSE(covered);
  EXPECT_EQ(size, 8u);
  EXPECT_EQ(map.size(), 0u) << "nothing mapped for a file too short";
  ASSERT_TRUE(map.Cover(*f, 4, &size, &covered).ok());
  ASSERT_TRUE(covered);
  EXPECT_EQ(map.size(), 8u) << "the whole file, not only what was asked";
  const std::byte* first = map.data();

  const std::string more(5000, 'x');
  ASSERT_TRUE(writer->WriteAt(8, more.data(), more.size()).ok());
  EXPECT_EQ(map.size(), 8u) << "the new bytes only after Cover";
  ASSERT_TRUE(map.Cover(*f, 5008, &size, &covered).ok());
  ASSERT_TRUE(covered);
  EXPECT_EQ(size, 5008u);
  EXPECT_EQ(map.size(), 5008u);
  EXPECT_EQ(map.data(), first) << "grown within the address space kept";
  EXPECT_EQ(std::memcmp(map.data() + 5000, "xxxxxxxx", 8), 0);
  ASSERT_TRUE(map.Cover(*f, 6000, &size, &covered).ok());
  EXPECT_FALSE(covered);
  EXPECT_EQ(map.size(), 5008u);

  const std::string big(std::size_t{1} << 20, 'y');  // beyond the room: mapped anew
  ASSERT_TRUE(writer->WriteAt(5008, big.data(), big.size()).ok());
  ASSERT_TRUE(map.Cover(*f, 5008 + big.size(), &size, &covered).ok());
  ASSERT_TRUE(covered);
  EXPECT_EQ(map.size(), 5008 + big.size());
  EXPECT_EQ(std::memcmp(map.data(), "12345678xx", 10), 0);
  EXPECT_EQ(static_cast<char>(map.data()[map.size() - 1]), 'y');
}

// Cover maps through the process's pool: Mappings of one file share one mapping, and the next open
// of the file finds it mapped still. The pool holds no lock of any File: once a File and its
// Mapping are gone, the file can be had alone and removed at once.
TEST_F(MappingTest, PooledMappingsAreSharedKeptAndHoldNoLock) {
  WriteWhole(dir_ / "t.dbf", "abcdefgh");
  std::uint64_t size = 0;
  bool covered = false;
  const std::byte* first = nullptr;
  {
    auto f = OpenOrDie(dir_ / "t.dbf", OpenMode::kReadWrite);
    ASSERT_TRUE(f->ShareLock(LockKind::kShared, false).ok());
    ASSERT_TRUE(f->LockRange(100, 1, LockKind::kExclusive, false).ok());
    auto g = OpenOrDie(dir_ / "t.dbf", OpenMode::kRead);
    Mapping a, b;
    ASSERT_TRUE(a.Cover(*f, 8, &size, &covered).ok() && covered);
    ASSERT_TRUE(b.Cover(*g, 8, &size, &covered).ok() && covered);
    EXPECT_EQ(a.data(), b.data()) << "one mapping for the file";
    first = a.data();
  }
  auto h = OpenOrDie(dir_ / "t.dbf", OpenMode::kReadWrite);
  EXPECT_TRUE(h->ShareLock(LockKind::kExclusive, false).ok()) << "no open-mode lock left behind";
  EXPECT_TRUE(h->LockRange(100, 1, LockKind::kExclusive, false).ok()) << "no range lock left behind";
  Mapping c;
  ASSERT_TRUE(c.Cover(*h, 8, &size, &covered).ok() && covered);
  EXPECT_EQ(c.data(), first) << "kept after its last user went";
  ASSERT_TRUE(h->WriteAt(0, "A", 1).ok());
  EXPECT_EQ(std::memcmp(c.data(), "Abcdefgh", 8), 0);
}

// A file that loses its name is never met again through the pool: the file that takes the name
// has a mapping of its own, and the old one's mapping goes when the replacer lets go of it (or, for
// a file replaced by someone else, at a sweep: below).
TEST_F(MappingTest, AReplacedFileIsNotMappedForItsSuccessor) {
  WriteWhole(dir_ / "t.dbf", "old file");
  auto f = OpenOrDie(dir_ / "t.dbf", OpenMode::kRead);
  std::uint64_t size = 0;
  bool covered = false;
  auto a = std::make_unique<Mapping>();
  ASSERT_TRUE(a->Cover(*f, 8, &size, &covered).ok() && covered);
  WriteWhole(dir_ / "new.dbf", "new file");
  ASSERT_TRUE(ReplaceFileHeld(dir_ / "new.dbf", dir_ / "t.dbf").ok());
  auto g = OpenOrDie(dir_ / "t.dbf", OpenMode::kRead);
  Mapping b;
  ASSERT_TRUE(b.Cover(*g, 8, &size, &covered).ok() && covered);
  EXPECT_EQ(std::memcmp(b.data(), "new file", 8), 0);
  EXPECT_EQ(std::memcmp(a->data(), "old file", 8), 0) << "the old open still sees its own file";
  a->ReleaseReplaced();  // as the replacer lets go of the file it replaced
  EXPECT_EQ(a->size(), 0u);
  a.reset();
  f.reset();
  const std::string maps = ReadWhole("/proc/self/maps");
  EXPECT_EQ(maps.find(dir_ / "t.dbf (deleted)"), std::string::npos) << "the unnamed file is let go";
}

// An idle pooled mapping whose file loses its name to another file afterwards (another process
// packs the table) does not hold the old file for ever: the pool's next call a second later lets it
// go.
TEST_F(MappingTest, AnIdleMappingGoesSoonAfterItsFileLostItsName) {
  WriteWhole(dir_ / "t.dbf", "old file");
  std::uint64_t size = 0;
  bool covered = false;
  {
    auto f = OpenOrDie(dir_ / "t.dbf", OpenMode::kRead);
    Mapping a;
    ASSERT_TRUE(a.Cover(*f, 8, &size, &covered).ok() && covered);
  }
  WriteWhole(dir_ / "new.dbf", "new file");
  fs::rename(dir_ / "new.dbf", dir_ / "t.dbf");
  SleepMillis(1100);
  WriteWhole(dir_ / "other.dbf", "another");
  auto g = OpenOrDie(dir_ / "other.dbf", OpenMode::kRead);
  Mapping b;
  ASSERT_TRUE(b.Cover(*g, 7, &size, &covered).ok() && covered);
  const std::string maps = ReadWhole("/proc/self/maps");
  EXPECT_EQ(maps.find(dir_ / "t.dbf (deleted)"), std::string::npos) << "the old file is let go";
}

}  // namespace
}  // namespace kvd::platform
