// Structure adaption: when a table is rebuilt and when not, what its records become, and that a
// rebuild that cannot run, or dies, never loses the old table.
#include "frame/adapt.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <map>

#include "platform/env.h"
#include "platform/file.h"
#include "platform/sys.h"
#include "tests/engine/engine_test_util.h"

namespace kvd::test {
namespace {

namespace fs = std::filesystem;
using frame::AdaptOptions;
using frame::AdaptTable;

const FIELD4INFO kOld[] = {{"ID", 'C', 6, 0, 0},   {"NAME", 'C', 10, 0, 0}, {"VAL", 'N', 6, 2, 0},
                           {"NOTE", 'M', 10, 0, 0}, {"GONE", 'C', 4, 0, 0}, {nullptr, 0, 0, 0, 0}};
// Reordered, NAME widened, VAL with other decimals, GONE dropped, ADDED new; names in mixed case.
const FIELD4INFO kNew[] = {{"Name", 'C', 20, 0, 0}, {"id", 'c', 6, 0, 0},    {"VAL", 'N', 8, 3, 0},
                           {"Note", 'M', 0, 0, 0},  {"ADDED", 'C', 5, 0, 0}, {nullptr, 0, 0, 0, 0}};
constexpr int kRows = 12;
bool IsDeletedRow(int i) { return i % 4 == 3; }

// Memo of row i: empty for row 0, else binary bytes (NULs, 0xFF) over several blocks.
std::string MemoOf(int i) {
  std::string s(static_cast<std::size_t>(i) * 150, '\0');
  for (std::size_t k = 0; k < s.size(); ++k) s[k] = static_cast<char>(k * 31 + i);
  return s;
}
std::string Memo(DATA4St* d, const char* field) {
  FIELD4St* f = d4field(d, field);
  return std::string(f4memoPtr(f), f4memoLen(f));
}
std::string Raw(DATA4St* d, const char* field) {
  FIELD4St* f = d4field(d, field);
  return std::string(f4ptr(f), f4len(f));
}

// Every file of the directory, hidden ones too, with its bytes.
std::map<std::string, std::vector<unsigned char>> Snapshot(const TempDir& dir) {
  std::map<std::string, std::vector<unsigned char>> out;
  for (auto& e : fs::directory_iterator(dir.path()))
    if (e.is_regular_file()) out[e.path().filename()] = ReadAll(e.path());
  return out;
}

class AdaptTest : public ::testing::Test {
 protected:
  // The old table `name` with kRows rows, every fourth deleted.
  void MakeOld(const std::string& name = "t") {
    DATA4St* d = d4create(&e.code, (dir / name).c_str(), kOld, nullptr);
    ASSERT_NE(d, nullptr) << error4lastDetail(&e.code);
    d4lockAll(d);
    for (int i = 0; i < kRows; ++i) {
      d4appendStart(d, 0);
      d4blank(d);
      f4assign(d4field(d, "ID"), ("R" + std::to_string(i)).c_str());
      f4assign(d4field(d, "NAME"), ("name " + std::to_string(i)).c_str());
      f4assignDouble(d4field(d, "VAL"), i * 1.25);
      const std::string m = MemoOf(i);
      f4memoAssignN(d4field(d, "NOTE"), m.data(), static_cast<unsigned>(m.size()));
      f4assign(d4field(d, "GONE"), "g");
      if (IsDeletedRow(i)) d4delete(d);
      ASSERT_EQ(d4append(d), 0);
    }
    d4close(d);
  }
  Data4 Open(const std::string& name = "t") { return Data4(d4open(&e.code, (dir / name).c_str())); }
  bool Adapt(Data4& d, const FIELD4INFO* def = kNew) { return KvAdjustDbStructS(d, def, e.code); }

  // The table as kNew expects it after a rebuild of the old one.
  static void ExpectNew(DATA4St* d, const std::string& where = "") {
    ASSERT_NE(d, nullptr) << where;
    ASSERT_EQ(d4numFields(d), 5) << where;
    const char* names[] = {"NAME", "ID", "VAL", "NOTE", "ADDED"};  // the definition's order
    for (int j = 1; j <= 5; ++j) EXPECT_STREQ(f4name(d4fieldJ(d, static_cast<short>(j))), names[j - 1]) << where;
    EXPECT_EQ(d4field(d, "GONE"), nullptr) << where;
    int r = 0;
    for (int i = 0; i < kRows; ++i) {
      if (IsDeletedRow(i)) continue;
      ASSERT_EQ(d4go(d, ++r), 0) << where;
      EXPECT_FALSE(d4deleted(d));
      std::string padded = "name " + std::to_string(i);
      padded.resize(20, ' ');
      EXPECT_EQ(Raw(d, "NAME"), padded) << where << ": the widened text keeps its content, padded";
      EXPECT_EQ(Str(d4field(d, "ID")), "R" + std::to_string(i)) << where;
      EXPECT_DOUBLE_EQ(f4double(d4field(d, "VAL")), i * 1.25) << where;
      EXPECT_EQ(f4len(d4field(d, "VAL")), 8u);
      EXPECT_EQ(Memo(d, "NOTE"), MemoOf(i)) << where << " row " << i;
      EXPECT_EQ(Raw(d, "ADDED"), "     ") << where;
    }
    EXPECT_EQ(d4recCount(d), r) << where << ": the deleted records are gone";
  }
  // The table exactly as MakeOld left it, deleted records included.
  static void ExpectOld(DATA4St* d, const std::string& where = "") {
    ASSERT_NE(d, nullptr) << where;
    ASSERT_EQ(d4numFields(d), 5) << where;
    ASSERT_NE(d4field(d, "GONE"), nullptr) << where;
    ASSERT_EQ(d4recCount(d), kRows) << where;
    for (int i = 0; i < kRows; ++i) {
      d4go(d, i + 1);
      EXPECT_EQ(d4deleted(d) != 0, IsDeletedRow(i)) << where;
      EXPECT_EQ(Str(d4field(d, "NAME")), "name " + std::to_string(i)) << where;
      EXPECT_EQ(Memo(d, "NOTE"), MemoOf(i)) << where << " row " << i;
    }
  }
  TempDir dir;
  Engine e;
};

// ---- when a table is rebuilt -----------------------------------------------------------------

TEST_F(AdaptTest, SameFieldsInAnyOrderAndCaseAreNotRebuiltAndTouchNothing) {
  MakeOld();
  const FIELD4INFO shuffled[] = {{"gone", 'c', 4, 0, 0}, {"Note", 'M', 0, 0, 0}, {"VAL", 'N', 6, 2, 0},
                                 {"ID", 'C', 6, 3, 0},   {"Name", 'C', 10, 0, 0}, {nullptr, 0, 0, 0, 0}};
  const auto before = Snapshot(dir);
  Data4 d = Open();
  // The comparison reads nothing from the disk: not one system call.
  static std::atomic<int> calls{0};
  {
    platform::SysCallsOverride keep;
    static platform::SysCalls real = platform::Sys();
    auto& s = platform::Sys();
    s.open = [](const char* p, int f, mode_t m) { return ++calls, real.open(p, f, m); };
    s.pread = [](int fd, void* b, size_t n, off_t o) { return ++calls, real.pread(fd, b, n, o); };
    s.flock = [](int fd, int op) { return ++calls, real.flock(fd, op); };
    s.fcntl_lock = [](int fd, int c, void* a) { return ++calls, real.fcntl_lock(fd, c, a); };
    EXPECT_FALSE(Adapt(d, shuffled));
    EXPECT_FALSE(Adapt(d, kOld));
  }
  EXPECT_EQ(calls, 0);
  ASSERT_TRUE(d.isValid());
  EXPECT_EQ(Snapshot(dir), before);
  // Still the caller's open table, fully usable.
  ASSERT_EQ(d4go(d, 3), 0);
  EXPECT_EQ(Memo(d, "NOTE"), MemoOf(2));
  ASSERT_EQ(d4lock(d, 3), 0);
  f4assign(d4field(d, "NAME"), "changed");
  EXPECT_EQ(d4flush(d), 0);
  d.close();
}

TEST_F(AdaptTest, EachKindOfDifferenceIsFound) {
  MakeOld();
  Data4 d = Open();
  struct Case {
    const char* what;
    FIELD4INFO change;  // replaces the row of the same name in kOld; a new name replaces NAME
    bool differs;
  } cases[] = {
      {"wider text", {"NAME", 'C', 11, 0, 0}, true},
      {"other decimals", {"VAL", 'N', 6, 1, 0}, true},
      {"wider number", {"VAL", 'N', 7, 2, 0}, true},
      {"number as float", {"VAL", 'F', 6, 2, 0}, true},
      {"text as memo", {"GONE", 'M', 10, 0, 0}, true},
      {"renamed", {"NAME2", 'C', 10, 0, 0}, true},
      {"decimals of a text do not count", {"NAME", 'C', 10, 4, 0}, false},
      {"width of a memo does not count", {"NOTE", 'm', 4, 0, 0}, false},
  };
  for (const Case& c : cases) {
    std::vector<FIELD4INFO> def(kOld, kOld + 5);
    for (FIELD4INFO& f : def)
      if (std::string(f.name) == c.change.name || (std::string(f.name) == "NAME" && c.change.name == std::string("NAME2")))
        f = c.change;
    EXPECT_EQ(frame::StructureDiffers(d, def), c.differs) << c.what;
  }
  std::vector<FIELD4INFO> fewer(kOld, kOld + 4), more(kOld, kOld + 5), twice(kOld, kOld + 5);
  more.push_back({"EXTRA", 'L', 1, 0, 0});
  twice[4] = kOld[0];
  EXPECT_TRUE(frame::StructureDiffers(d, fewer)) << "a field the definition dropped";
  EXPECT_TRUE(frame::StructureDiffers(d, more)) << "a field the file lacks";
  EXPECT_TRUE(frame::StructureDiffers(d, twice)) << "a name given twice is no match for two fields";
  d.close();
}

// ---- what the records become ------------------------------------------------------------------

TEST_F(AdaptTest, RebuildCarriesLiveRecordsByNameWithTheirMemoBytes) {
  MakeOld();
  Data4 d = Open();
  ASSERT_TRUE(Adapt(d));
  EXPECT_FALSE(d.isValid()) << "the old handle is gone";
  Data4 n = Open();
  ExpectNew(n);
  EXPECT_FALSE(frame::StructureDiffers(n, std::span<const FIELD4INFO>(kNew, 5))) << "and the next open is quiet";
  n.close();
  std::vector<std::string> names;
  for (auto& [name, bytes] : Snapshot(dir)) names.push_back(name);
  EXPECT_EQ(names, (std::vector<std::string>{"t.DBF", "t.FPT"})) << "no temporary or index file left";
}

TEST_F(AdaptTest, TypeChangesConvertThroughTheEngine) {
  const FIELD4INFO from[] = {{"A", 'N', 6, 2, 0}, {"B", 'C', 8, 0, 0}, {"C", 'M', 10, 0, 0}, {"D", 'M', 10, 0, 0},
                             {"E", 'C', 10, 0, 0}, {"F", 'N', 6, 2, 0}, {"G", 'L', 1, 0, 0}, {"H", 'D', 8, 0, 0},
                             {nullptr, 0, 0, 0, 0}};
  const FIELD4INFO to[] = {{"A", 'C', 8, 0, 0}, {"B", 'N', 7, 2, 0}, {"C", 'C', 5, 0, 0}, {"D", 'N', 6, 2, 0},
                           {"E", 'M', 10, 0, 0}, {"F", 'M', 10, 0, 0}, {"G", 'L', 1, 0, 0}, {"H", 'C', 8, 0, 0},
                           {nullptr, 0, 0, 0, 0}};
  DATA4St* t = d4create(&e.code, (dir / "c").c_str(), from, nullptr);
  d4appendStart(t, 0);
  d4blank(t);
  f4assignDouble(d4field(t, "A"), 3.5);
  f4assign(d4field(t, "B"), "  42.5");
  f4memoAssign(d4field(t, "C"), "abcdefgh");
  f4memoAssign(d4field(t, "D"), "12.75 and more");
  f4assign(d4field(t, "E"), "text");
  f4assignDouble(d4field(t, "F"), 3.5);
  f4assign(d4field(t, "G"), "T");
  f4assign(d4field(t, "H"), "20240131");
  ASSERT_EQ(d4append(t), 0);
  d4close(t);
  Data4 d = Open("c");
  ASSERT_TRUE(Adapt(d, to));
  Data4 n = Open("c");
  ASSERT_EQ(d4top(n), 0);
  EXPECT_EQ(Raw(n, "A"), "  3.50  ");
  EXPECT_EQ(Raw(n, "B"), "  42.50");
  EXPECT_EQ(Raw(n, "C"), "abcde") << "a memo into text keeps its beginning";
  EXPECT_EQ(Raw(n, "D"), " 12.75") << "a memo into a number: the number it begins with";
  EXPECT_EQ(Memo(n, "E"), "text") << "no blanks that only filled the width";
  EXPECT_EQ(Memo(n, "F"), "3.50");
  EXPECT_EQ(Raw(n, "G"), "T");
  EXPECT_EQ(Raw(n, "H"), "20240131");
  n.close();
}

TEST_F(AdaptTest, EmptyTableRebuiltWithoutRecordsAndLowerCaseNamesKept) {
  DATA4St* t = d4create(&e.code, (dir / "low.dbf").c_str(), kOld, nullptr);
  d4close(t);
  Data4 d = Open("low.dbf");
  ASSERT_TRUE(Adapt(d));
  Data4 n = Open("low.dbf");
  ASSERT_TRUE(n.isValid());
  EXPECT_EQ(d4recCount(n), 0);
  EXPECT_EQ(d4numFields(n), 5);
  EXPECT_EQ(fs::file_size(dir / "low.dbf"), 32u + 5 * 32 + 1 + 1) << "header, terminator and end mark only";
  n.close();
  std::vector<std::string> names;
  for (auto& [name, bytes] : Snapshot(dir)) names.push_back(name);
  EXPECT_EQ(names, (std::vector<std::string>{"low.dbf", "low.fpt"}));
}

TEST_F(AdaptTest, StaleIndexesGoEvenWhenTheCallerHasThemOpen) {
  MakeOld();
  Data4 d = Open();
  const TAG4INFO tags[] = {{"ID", "ID", nullptr, 0, 0}, {nullptr, nullptr, nullptr, 0, 0}};
  ASSERT_NE(i4create(d, nullptr, tags), nullptr);
  ASSERT_NE(i4create(d, (dir / "_FGCOLOR.MDX").c_str(), tags), nullptr);
  d4tagSelect(d, d4tag(d, "ID"));
  ASSERT_TRUE(KvAdjustDbStructS(d, kNew, e.code, "_fgcolor.mdx"));
  EXPECT_FALSE(fs::exists(dir / "t.CDX"));
  EXPECT_FALSE(fs::exists(dir / "_FGCOLOR.MDX"));
  Data4 n = Open();
  ExpectNew(n);
  EXPECT_EQ(i4open(n, nullptr), nullptr) << "nothing stale to open";
  ASSERT_NE(i4create(n, nullptr, tags), nullptr);
  EXPECT_EQ(d4seek(n, "R5"), 0);
  EXPECT_EQ(Memo(n, "NOTE"), MemoOf(5));
  n.close();
}

TEST_F(AdaptTest, LegacyFormsTakeTheDefinitionAsRowsOrAsList) {
  Field4info info;
  info.add("FIRST", 'C', 3);
  const FIELD4INFO rows[] = {{"X", 'N', 5, 1, 7}, {"Y", 'M', 10, 0, 0}, {nullptr, 0, 0, 0, 0}, {"Z", 'C', 1, 0, 0}};
  KvFieldInfoStruct2Obj(rows, info);
  ASSERT_EQ(info.numFields(), 3) << "added behind what was there, up to the null name";
  EXPECT_STREQ(info[1].name, "X");
  EXPECT_EQ(info[1].dec, 1);
  EXPECT_EQ(info[1].nulls, 0) << "nulls always 0";
  EXPECT_EQ(info[2].type, 'M');
  MakeOld();
  Field4info wanted;
  KvFieldInfoStruct2Obj(kNew, wanted);
  Data4 d = Open();
  Field4info own(d);
  EXPECT_FALSE(KvAdjustDbStruct(d, own, e.code)) << "the file's own list";
  ASSERT_TRUE(KvAdjustDbStruct(d, wanted, e.code));
  Data4 n = Open();
  ExpectNew(n);
  n.close();
}

// ---- a rebuild that cannot run leaves everything as it was ------------------------------------

// After a refused rebuild: the files as they were, the table open at its record, errorCode as before.
void ExpectUntouched(Data4& d, const std::map<std::string, std::vector<unsigned char>>& before,
                     const TempDir& dir, const std::string& where) {
  EXPECT_EQ(Snapshot(dir), before) << where;
  ASSERT_TRUE(d.isValid()) << where;
  EXPECT_EQ(d4code(d)->errorCode, 0) << where;
  EXPECT_EQ(d4recNo(d), 2) << where;
  EXPECT_EQ(Memo(d, "NOTE"), MemoOf(1)) << where;
}

TEST_F(AdaptTest, TemporaryTableThatCannotBeMadeLeavesTheOldTable) {
  MakeOld();
  Data4 d = Open();
  d4go(d, 2);
  fs::create_directory(dir / "__DBTEMP.DBF");
  auto before = Snapshot(dir);
  e.code.errorCode = 0;
  EXPECT_FALSE(Adapt(d)) << "a directory in the way";
  EXPECT_EQ(e.code.errorCode, 0);
  ExpectUntouched(d, before, dir, "directory in the way");
  fs::remove(dir / "__DBTEMP.DBF");
  {
    platform::SysCallsOverride keep;
    static platform::SysCalls real = platform::Sys();
    platform::Sys().open = [](const char* p, int f, mode_t m) {
      return std::string(p).find("__DBTEMP") != std::string::npos && (f & O_CREAT) ? (errno = EACCES, -1)
                                                                                   : real.open(p, f, m);
    };
    EXPECT_FALSE(Adapt(d)) << "no rights to create";
  }
  ExpectUntouched(d, before, dir, "create refused");
  if (geteuid() != 0) {  // root writes into a read-only directory anyway
    chmod(dir.path().c_str(), 0555);
    EXPECT_FALSE(Adapt(d)) << "read-only directory";
    chmod(dir.path().c_str(), 0755);
    ExpectUntouched(d, before, dir, "read-only directory");
  }
  ASSERT_TRUE(Adapt(d)) << "once the way is free";
  ExpectNew(Open());
}

// The n-th system call that changes a file, counted from Arm(), kills the process as a kill at that
// moment would, or fails as a full disk would. Removals are not failed: a temporary file that
// cannot be removed stays, and that is all.
std::atomic<long> g_calls{0};
long g_fail_at = -1;
bool g_die = false;
platform::SysCalls g_real;
bool Hit(bool may_fail = true) {
  if (++g_calls != g_fail_at) return false;
  if (g_die) _exit(99);
  errno = ENOSPC;
  return may_fail;
}
void Arm(long n, bool die) {
  g_real = platform::Sys();
  g_calls = 0;
  g_fail_at = n;
  g_die = die;
  auto& s = platform::Sys();
  s.pwrite = [](int fd, const void* b, size_t n, off_t o) { return Hit() ? -1 : g_real.pwrite(fd, b, n, o); };
  s.ftruncate = [](int fd, off_t l) { return Hit() ? -1 : g_real.ftruncate(fd, l); };
  s.fsync = [](int fd) { return Hit() ? -1 : g_real.fsync(fd); };
  s.rename = [](const char* a, const char* b) { return Hit() ? -1 : g_real.rename(a, b); };
  s.unlink = [](const char* p) { return Hit(false) ? -1 : g_real.unlink(p); };
}

TEST_F(AdaptTest, AFailureAtAnyWriteLeavesTheOldTableOrGivesTheNewOne) {
  int refused = 0;
  for (long n = 1;; ++n) {
    ASSERT_LT(n, 400) << "the rebuild never ran through";
    fs::remove_all(dir.path());
    fs::create_directory(dir.path());
    MakeOld();
    Data4 d = Open();
    d4go(d, 2);
    const auto before = Snapshot(dir);
    bool rebuilt = false;
    {
      platform::SysCallsOverride keep;
      Arm(n, false);
      rebuilt = Adapt(d);
    }
    const std::string where = "call " + std::to_string(n) + " failed";
    if (!rebuilt) {
      ++refused;
      ExpectUntouched(d, before, dir, where);
      d.close();
      continue;
    }
    Data4 again = Open();  // finishes a replace whose last rename failed
    ExpectNew(again, where);
    again.close();
    for (auto& [name, bytes] : Snapshot(dir)) EXPECT_TRUE(name == "t.DBF" || name == "t.FPT") << where << ": " << name;
    if (g_calls < n) break;  // it ran through without meeting the failure
  }
  EXPECT_GT(refused, 10);
}

TEST_F(AdaptTest, AnotherOpenerOrAnotherRebuildHoldsItBack) {
  MakeOld();
  Data4 d = Open();
  d4go(d, 2);
  const auto before = Snapshot(dir);
  {
    Engine other;
    DATA4St* o = d4open(&other.code, (dir / "t").c_str());
    ASSERT_NE(o, nullptr);
    EXPECT_FALSE(Adapt(d)) << "another open in this process";
    ExpectUntouched(d, before, dir, "second open");
    d4go(o, 2);
    EXPECT_EQ(Memo(o, "NOTE"), MemoOf(1)) << "the other opener reads on";
    d4close(o);
  }
  {
    Signal opened, done;
    Child child([&] {
      Engine c;
      DATA4St* t = d4open(&c.code, (dir / "t").c_str());
      opened.Send();
      done.Wait();
      return t != nullptr && d4close(t) == 0 ? 0 : 1;
    });
    opened.Wait();
    EXPECT_FALSE(Adapt(d)) << "another process";
    ExpectUntouched(d, before, dir, "other process");
    done.Send();
    EXPECT_EQ(child.Join(), 0);
  }
  {
    std::unique_ptr<platform::DirectoryLock> guard;
    ASSERT_TRUE(platform::DirectoryLock::Acquire(dir.path(), 0, &guard).ok());
    AdaptOptions quick;
    quick.guard_wait_ms = 50;
    bool rebuilt = true;
    Status s = AdaptTable(d, std::span<const FIELD4INFO>(kNew, 5), e.code, quick, &rebuilt);
    EXPECT_TRUE(s.IsBusy()) << s.ToString();
    EXPECT_FALSE(rebuilt);
    ExpectUntouched(d, before, dir, "another rebuild in the directory");
  }
  ASSERT_TRUE(Adapt(d)) << "no one in the way any more";
  ExpectNew(Open());
}

TEST_F(AdaptTest, TwoProcessesRebuildTwoTablesOfOneDirectoryInTurn) {
  MakeOld("a");
  MakeOld("b");
  // Both start while a third process holds the directory's guard, so they meet at the fixed name at
  // once. (Held by this process, the guard would go into the children with its descriptor.)
  Signal held, release;
  Child holder([&] {
    std::unique_ptr<platform::DirectoryLock> guard;
    if (!platform::DirectoryLock::Acquire(dir.path(), 0, &guard).ok()) return 1;
    held.Send();
    release.Wait();
    return 0;
  });
  held.Wait();
  std::vector<Child> kids;
  for (const char* name : {"a", "b"}) {
    kids.emplace_back([&dir = dir, name] {
      Engine c;
      Data4 d(d4open(&c.code, (dir / name).c_str()));
      return d.isValid() && KvAdjustDbStructS(d, kNew, c.code) ? 0 : 1;
    });
  }
  platform::SleepMillis(50);
  release.Send();
  EXPECT_EQ(holder.Join(), 0);
  for (Child& k : kids) EXPECT_EQ(k.Join(), 0);
  ExpectNew(Open("a"), "a");
  ExpectNew(Open("b"), "b");
}

// ---- a rebuild killed at any moment -----------------------------------------------------------

TEST_F(AdaptTest, AKillAtAnyMomentLeavesTheOldTableOrTheNewOne) {
  MakeOld();
  long total = 0;
  {
    Data4 d = Open();
    platform::SysCallsOverride keep;
    Arm(-1, false);
    ASSERT_TRUE(Adapt(d));
    total = g_calls;
  }
  ASSERT_GT(total, 10);
  int saw_old = 0, saw_new = 0;
  for (long n = 1; n <= total; ++n) {
    fs::remove_all(dir.path());
    fs::create_directory(dir.path());
    MakeOld();
    Child child([&] {
      Arm(n, true);
      Engine c;
      Data4 d(d4open(&c.code, (dir / "t").c_str()));
      return d.isValid() && KvAdjustDbStructS(d, kNew, c.code) ? 0 : 1;
    });
    const std::string where = "killed at call " + std::to_string(n) + " of " + std::to_string(total);
    ASSERT_EQ(child.Join(), 99) << where;
    Data4 d = Open();  // the open finishes or undoes an interrupted replace
    ASSERT_TRUE(d.isValid()) << where << ": " << error4lastDetail(&e.code);
    if (d4field(d, "GONE") != nullptr) {
      ++saw_old;
      ExpectOld(d, where);
      bool rebuilt = false;
      Status s = AdaptTable(d, std::span<const FIELD4INFO>(kNew, 5), e.code, AdaptOptions(), &rebuilt);
      ASSERT_TRUE(rebuilt) << where << ": the next open adapts it: " << s.ToString();
      d = Open();
    } else {
      ++saw_new;
    }
    ExpectNew(d, where);
    d.close();
    for (auto& [name, bytes] : Snapshot(dir))
      EXPECT_TRUE(name == "t.DBF" || name == "t.FPT" || name.rfind(".__DBTEMP.", 0) == 0) << where << ": " << name;
  }
  EXPECT_GT(saw_old, 0);
  EXPECT_GT(saw_new, 0);
}

}  // namespace
}  // namespace kvd::test
