// Memo fields: exact bytes, reuse of blocks, compression and its recovery.
#include <filesystem>

#include "engine_test_util.h"

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

}  // namespace
}  // namespace kvd::test
