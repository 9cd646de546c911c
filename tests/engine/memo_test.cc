// Memo fields: exact bytes, reuse of blocks, compression and its recovery.
#include <filesystem>

#include "engine/table_names.h"
#include "engine_test_util.h"
#include "platform/sys.h"

namespace kvd::test {
namespace {

const FIELD4INFO kFields[] = {{"ID", 'C', 4, 0, 0}, {"DATA", 'M', 10, 0, 0}, {nullptr, 0, 0, 0, 0}};

std::string AllBytes(std::size_t n) {
  std::string s(n, '\0');
  for (std::size_t i = 0; i < n; ++i) s[i] = static_cast<char>(i * 7 + i / 256);
  return s;
}

std::string Memo(DATA4St* d) {
  FIELD4St* f = d4field(d, "DATA");
  return std::string(f4memoPtr(f), f4memoLen(f));
}

class MemoTest : public ::testing::Test {
 protected:
  void SetUp() override { d = d4create(&e.code, (dir / "m").c_str(), kFields, nullptr); }
  void TearDown() override { d4close(d); }
  void Add(const std::string& id, const std::string& memo) {
    d4appendStart(d, 0);
    d4blank(d);
    f4assign(d4field(d, "ID"), id.c_str());
    f4memoAssignN(d4field(d, "DATA"), memo.data(), static_cast<unsigned>(memo.size()));
    ASSERT_EQ(d4append(d), 0) << error4lastDetail(&e.code);
  }
  TempDir dir;
  Engine e;
  DATA4St* d = nullptr;
};

TEST_F(MemoTest, BinaryContentKeepsItsExactLength) {
  const std::string bin = AllBytes(5000);
  Add("a", bin);
  Add("b", "");
  Add("c", std::string(56, 'x'));  // exactly one 64-byte block with its 8-byte head
  d4close(d);
  d = d4open(&e.code, (dir / "m").c_str());
  ASSERT_NE(d, nullptr);
  d4go(d, 1);
  EXPECT_EQ(Memo(d), bin);
  d4go(d, 2);
  EXPECT_EQ(f4memoLen(d4field(d, "DATA")), 0u);
  EXPECT_EQ(std::string(f4ptr(d4field(d, "DATA")), 10), std::string(10, ' ')) << "no memo: blank pointer";
  d4go(d, 3);
  EXPECT_EQ(Memo(d), std::string(56, 'x'));
  EXPECT_EQ(std::filesystem::file_size(dir / "m.FPT") % 64, 0u);
}

TEST_F(MemoTest, ShorterRewriteReusesBlocksLongerOneMoves) {
  Add("a", std::string(500, 'a'));
  Add("b", "tail");
  const auto size0 = std::filesystem::file_size(dir / "m.FPT");
  d4go(d, 1);
  d4lock(d, 1);
  f4memoAssign(d4field(d, "DATA"), "short");
  d4flush(d);
  EXPECT_EQ(std::filesystem::file_size(dir / "m.FPT"), size0) << "fits into the old blocks";
  f4memoAssign(d4field(d, "DATA"), std::string(2000, 'L').c_str());
  d4flush(d);
  EXPECT_GT(std::filesystem::file_size(dir / "m.FPT"), size0);
  d4go(d, 2);
  EXPECT_EQ(Memo(d), "tail") << "the neighbour's memo is untouched";
  d4go(d, 1);
  EXPECT_EQ(Memo(d), std::string(2000, 'L'));
}

TEST_F(MemoTest, AppendStartNeverSharesBlocksBetweenRecords) {
  Add("a", "original");
  d4go(d, 1);
  d4appendStart(d, 1);
  ASSERT_EQ(d4append(d), 0);
  d4go(d, 1);
  d4lock(d, 1);
  f4memoAssign(d4field(d, "DATA"), "changed");
  d4flush(d);
  d4go(d, 2);
  EXPECT_EQ(Memo(d), "original") << "the copy kept its own memo";
  d4appendStart(d, 0);
  ASSERT_EQ(d4append(d), 0);
  EXPECT_EQ(Memo(d), "") << "without memo entries the new record starts without memo";
}

TEST_F(MemoTest, SetLenThenCopyBytes) {
  Add("a", "");
  d4go(d, 1);
  d4lock(d, 1);
  FIELD4St* f = d4field(d, "DATA");
  ASSERT_EQ(f4memoSetLen(f, 4), 0);
  std::memcpy(f4memoPtr(f), "\0\1\2\3", 4);
  d4flush(d);
  d4go(d, 1);
  EXPECT_EQ(Memo(d), std::string("\0\1\2\3", 4));
}

TEST_F(MemoTest, CompressDropsDeadBlocksAndKeepsEveryMemo) {
  for (int i = 0; i < 20; ++i) Add(std::to_string(i), AllBytes(300 + i));
  for (int i = 1; i <= 20; i += 2) {
    d4go(d, i);
    d4lock(d, i);
    f4memoAssign(d4field(d, "DATA"), std::string(1000, 'g').c_str());  // grows: old blocks die
  }
  d4unlock(d);
  const auto before = std::filesystem::file_size(dir / "m.FPT");
  ASSERT_EQ(d4memoCompress(d), 0) << error4lastDetail(&e.code);
  EXPECT_LT(std::filesystem::file_size(dir / "m.FPT"), before);
  for (int i = 1; i <= 20; ++i) {
    d4go(d, i);
    EXPECT_EQ(Memo(d), i % 2 ? std::string(1000, 'g') : AllBytes(300 + i - 1)) << "record " << i;
  }
}

TEST_F(MemoTest, CompressNeedsTheTableAlone) {
  Add("a", "x");
  Engine other;
  DATA4St* o = d4open(&other.code, (dir / "m").c_str());
  ASSERT_NE(o, nullptr);
  EXPECT_EQ(d4memoCompress(d), e4exclusive);
  d4close(o);
}

TEST_F(MemoTest, InterruptedCompressIsFinishedOrUndoneByTheNextOpen) {
  Add("a", "first");
  d4close(d);
  d = nullptr;
  // Pretend a compression died after renaming the memo: the waiting table file must be put in place.
  auto table = ReadAll(dir / "m.DBF");
  auto changed = table;
  const std::size_t rec = 32 + 64 + 1;
  changed[rec + 1] = 'Z';
  WriteAll(dir / ".m.DBF.compress-dbf", changed);
  d = d4open(&e.code, (dir / "m").c_str());
  ASSERT_NE(d, nullptr);
  d4top(d);
  EXPECT_EQ(Str(d4field(d, "ID")), "Z");
  d4close(d);
  EXPECT_FALSE(std::filesystem::exists(dir / ".m.DBF.compress-dbf"));
  // Died before the memo was renamed: both waiting files go, the old pair stays.
  WriteAll(dir / ".m.DBF.compress-dbf", table);
  WriteAll(dir / ".m.DBF.compress-fpt", {1, 2, 3});
  d = d4open(&e.code, (dir / "m").c_str());
  d4top(d);
  EXPECT_EQ(Str(d4field(d, "ID")), "Z");
  EXPECT_EQ(Memo(d), "first");
  EXPECT_FALSE(std::filesystem::exists(dir / ".m.DBF.compress-fpt"));
}

// A pair written aside under other names, put in the place of the open table "m".
class ReplacePairTest : public MemoTest {
 protected:
  void Build(const std::string& name, const std::string& id, const std::string& memo) {
    const FIELD4INFO f[] = {{"ID", 'C', 4, 0, 0}, {"NOTE", 'M', 10, 0, 0}, {"N", 'N', 3, 0, 0}, {nullptr, 0, 0, 0, 0}};
    DATA4St* n = d4create(&e.code, (dir / name).c_str(), f, nullptr);
    ASSERT_NE(n, nullptr);
    d4appendStart(n, 0);
    d4blank(n);
    f4assign(d4field(n, "ID"), id.c_str());
    f4memoAssignN(d4field(n, "NOTE"), memo.data(), static_cast<unsigned>(memo.size()));
    ASSERT_EQ(d4append(n), 0);
    d4close(n);
  }
  std::string NewMemo(DATA4St* t) {
    FIELD4St* f = d4field(t, "NOTE");
    return f ? std::string(f4memoPtr(f), f4memoLen(f)) : "(no NOTE)";
  }
  std::vector<std::string> Leftovers() {
    std::vector<std::string> out;
    for (auto& p : std::filesystem::directory_iterator(dir.path())) {
      const std::string n = p.path().filename();
      if (n[0] == '.') out.push_back(n);
    }
    return out;
  }
};

TEST_F(ReplacePairTest, NewPairTakesThePlaceOfTheOldOne) {
  Add("old", "old memo");
  Build("n", "new", AllBytes(700));
  ASSERT_EQ(d4accessAlone(d, 1), 0);
  bool committed = false;
  Status s = engine::ReplaceTablePair(dir / "n.DBF", dir / "n.FPT", d4fileName(d), &committed);
  ASSERT_TRUE(s.ok()) << s.ToString();
  EXPECT_TRUE(committed);
  d4close(d);
  d = d4open(&e.code, (dir / "m").c_str());
  ASSERT_NE(d, nullptr) << error4lastDetail(&e.code);
  d4top(d);
  EXPECT_EQ(Str(d4field(d, "ID")), "new");
  EXPECT_EQ(NewMemo(d), AllBytes(700));
  EXPECT_FALSE(std::filesystem::exists(dir / "n.DBF"));
  EXPECT_FALSE(std::filesystem::exists(dir / "n.FPT"));
  EXPECT_TRUE(Leftovers().empty());
}

TEST_F(ReplacePairTest, TableWithoutMemoIsOneRenameAndLeavesTheOldMemoToTheCaller) {
  Add("old", "old memo");
  const FIELD4INFO f[] = {{"ID", 'C', 4, 0, 0}, {nullptr, 0, 0, 0, 0}};
  DATA4St* n = d4create(&e.code, (dir / "n").c_str(), f, nullptr);
  d4close(n);
  ASSERT_EQ(d4accessAlone(d, 1), 0);
  bool committed = false;
  ASSERT_TRUE(engine::ReplaceTablePair(dir / "n.DBF", "", d4fileName(d), &committed).ok());
  EXPECT_TRUE(committed);
  d4close(d);
  d = d4open(&e.code, (dir / "m").c_str());
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d4numFields(d), 1);
  EXPECT_STREQ(d4memoFileName(d), "");
  EXPECT_TRUE(std::filesystem::exists(dir / "m.FPT"));
}

TEST_F(ReplacePairTest, LeftoversOfAnEarlierReplace) {
  Add("old", "old memo");
  Build("n", "new", "new memo");
  ASSERT_EQ(d4accessAlone(d, 1), 0);
  bool committed = true;
  // A waiting table whose memo is already in place belongs to the next open: refused, untouched.
  WriteAll(dir / ".m.DBF.compress-dbf", {1, 2, 3});
  Status s = engine::ReplaceTablePair(dir / "n.DBF", dir / "n.FPT", d4fileName(d), &committed);
  EXPECT_TRUE(s.IsBusy()) << s.ToString();
  EXPECT_FALSE(committed);
  EXPECT_EQ(ReadAll(dir / ".m.DBF.compress-dbf"), (std::vector<unsigned char>{1, 2, 3}));
  EXPECT_TRUE(std::filesystem::exists(dir / "n.DBF"));
  d4top(d);
  EXPECT_EQ(Memo(d), "old memo");
  // Both waiting, or the memo alone: a replace that never began; thrown away.
  WriteAll(dir / ".m.DBF.compress-fpt", {4});
  ASSERT_TRUE(engine::ReplaceTablePair(dir / "n.DBF", dir / "n.FPT", d4fileName(d), &committed).ok());
  EXPECT_TRUE(committed);
  d4close(d);
  d = d4open(&e.code, (dir / "m").c_str());
  d4top(d);
  EXPECT_EQ(NewMemo(d), "new memo");
  EXPECT_TRUE(Leftovers().empty());
}

// A table without memo fields never reads the memo file: its opens do not look for a waiting
// table, and the next replace throws one away.
TEST_F(ReplacePairTest, AWaitingTableOfATableWithoutMemoIsThrownAway) {
  const FIELD4INFO plain[] = {{"ID", 'C', 4, 0, 0}, {nullptr, 0, 0, 0, 0}};
  DATA4St* p = d4create(&e.code, (dir / "p").c_str(), plain, nullptr);
  ASSERT_NE(p, nullptr);
  d4appendStart(p, 0);
  d4blank(p);
  f4assign(d4field(p, "ID"), "kept");
  ASSERT_EQ(d4append(p), 0);
  d4close(p);
  WriteAll(dir / ".p.DBF.compress-dbf", {1, 2, 3});  // a replace that died after its memo moved
  p = d4open(&e.code, (dir / "p").c_str());
  ASSERT_NE(p, nullptr) << error4lastDetail(&e.code);
  d4top(p);
  EXPECT_EQ(Str(d4field(p, "ID")), "kept") << "the table in place, not what waits";
  EXPECT_TRUE(std::filesystem::exists(dir / ".p.DBF.compress-dbf"));
  Build("n", "new", "new memo");
  ASSERT_EQ(d4accessAlone(p, 1), 0);
  bool committed = false;
  Status s = engine::ReplaceTablePair(dir / "n.DBF", dir / "n.FPT", d4fileName(p), &committed,
                                      /*table_has_memo=*/false);
  ASSERT_TRUE(s.ok()) << s.ToString();
  EXPECT_TRUE(committed);
  d4close(p);
  p = d4open(&e.code, (dir / "p").c_str());
  ASSERT_NE(p, nullptr) << error4lastDetail(&e.code);
  d4top(p);
  EXPECT_EQ(Str(d4field(p, "ID")), "new");
  EXPECT_EQ(NewMemo(p), "new memo");
  d4close(p);
  EXPECT_TRUE(Leftovers().empty());
}

TEST_F(ReplacePairTest, FailureBeforeTheMemoMovesLeavesTheOldPair) {
  Add("old", "old memo");
  Build("n", "new", "new memo");
  ASSERT_EQ(d4accessAlone(d, 1), 0);
  const auto table = ReadAll(dir / "m.DBF"), memo = ReadAll(dir / "m.FPT");
  for (int fail_at = 1; fail_at <= 3; ++fail_at) {  // the moves to the waiting names, then the memo's
    static int calls, failing;
    static platform::SysCalls real;
    bool committed = true;
    Status s;
    {
      platform::SysCallsOverride keep;
      real = platform::Sys();
      calls = 0;
      failing = fail_at;
      platform::Sys().rename = [](const char* a, const char* b) {
        if (++calls == failing) return errno = EIO, -1;
        return real.rename(a, b);
      };
      s = engine::ReplaceTablePair(dir / "n.DBF", dir / "n.FPT", d4fileName(d), &committed);
    }
    EXPECT_FALSE(s.ok()) << "rename " << fail_at;
    EXPECT_FALSE(committed);
    EXPECT_EQ(ReadAll(dir / "m.DBF"), table);
    EXPECT_EQ(ReadAll(dir / "m.FPT"), memo);
    EXPECT_TRUE(Leftovers().empty()) << "rename " << fail_at;
    Build("n", "new", "new memo");  // what failed may have taken the built files along
  }
  d4top(d);
  EXPECT_EQ(Memo(d), "old memo");
}

}  // namespace
}  // namespace kvd::test
