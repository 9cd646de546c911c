// Records: moving through a table and the record buffer's states.
#include "engine_test_util.h"

namespace kvd::test {
namespace {

const FIELD4INFO kFields[] = {{"KEY", 'C', 8, 0, 0}, {"VAL", 'N', 5, 0, 0}, {nullptr, 0, 0, 0, 0}};

DATA4St* TableOf(Engine& e, const TempDir& dir, int rows) {
  DATA4St* d = d4create(&e.code, (dir / "r").c_str(), kFields, nullptr);
  for (int i = 1; i <= rows; ++i) {
    d4appendStart(d, 0);
    d4blank(d);
    f4assign(d4field(d, "KEY"), ("K" + std::to_string(i)).c_str());
    f4assignInt(d4field(d, "VAL"), i);
    d4append(d);
  }
  return d;
}

TEST(Record, WalksInRecordOrderIncludingDeletedAndEndsAboveTheCount) {
  TempDir dir;
  Engine e;
  DATA4St* d = TableOf(e, dir, 4);
  d4go(d, 2);
  d4lock(d, 2);
  d4delete(d);
  std::vector<std::string> seen;
  for (int rc = d4top(d); rc == 0 && !d4eof(d); rc = d4skip(d, 1))
    seen.push_back(Str(d4field(d, "KEY")) + (d4deleted(d) ? "*" : ""));
  EXPECT_EQ(seen, (std::vector<std::string>{"K1", "K2*", "K3", "K4"}));
  EXPECT_TRUE(d4eof(d));
  EXPECT_EQ(d4recNo(d), 5) << "after the last record the number is count + 1";
  EXPECT_EQ(d4skip(d, 1), r4eof);
  EXPECT_EQ(Str(d4field(d, "KEY")), "") << "at the end the buffer is blank";

  EXPECT_EQ(d4bottom(d), 0);
  EXPECT_EQ(d4recNo(d), 4);
  EXPECT_EQ(d4skip(d, -3), 0);
  EXPECT_EQ(d4recNo(d), 1);
  EXPECT_EQ(d4skip(d, -1), r4bof);
  EXPECT_TRUE(d4bof(d));
  EXPECT_EQ(d4recNo(d), 1);
  EXPECT_EQ(d4skip(d, 9999), r4eof);
  EXPECT_NE(d4go(d, 9), 0);
  EXPECT_NE(d4go(d, 0), 0);
  EXPECT_EQ(d4go(d, 3), 0);
  EXPECT_EQ(f4int(d4field(d, "VAL")), 3);
  d4close(d);
}

TEST(Record, EmptyTableIsAtTheEndEverywhere) {
  TempDir dir;
  Engine e;
  DATA4St* d = TableOf(e, dir, 0);
  EXPECT_EQ(d4top(d), r4eof);
  EXPECT_TRUE(d4eof(d));
  EXPECT_EQ(d4recNo(d), 1);
  EXPECT_EQ(d4bottom(d), r4eof);
  EXPECT_EQ(d4recCount(d), 0);
  d4close(d);
}

TEST(Record, AppendStartKeepsTheBufferUnlessBlanked) {
  TempDir dir;
  Engine e;
  DATA4St* d = TableOf(e, dir, 1);
  d4top(d);
  d4appendStart(d, 0);
  f4assignInt(d4field(d, "VAL"), 99);
  ASSERT_EQ(d4append(d), 0);
  EXPECT_EQ(d4recNo(d), 2);
  d4appendStart(d, 0);
  d4blank(d);
  ASSERT_EQ(d4append(d), 0);
  d4go(d, 2);
  EXPECT_EQ(Str(d4field(d, "KEY")), "K1") << "the kept column came along";
  EXPECT_EQ(f4int(d4field(d, "VAL")), 99);
  d4go(d, 3);
  EXPECT_EQ(Str(d4field(d, "KEY")), "");
  EXPECT_EQ(d4recCount(d), 3);
  d4close(d);
}

TEST(Record, ChangesAreWrittenOnMoveAndKeptBackOnRequest) {
  TempDir dir;
  Engine e;
  DATA4St* d = TableOf(e, dir, 3);
  d4go(d, 1);
  d4lock(d, 1);
  f4assign(d4field(d, "KEY"), "CHANGED");
  EXPECT_EQ(d4changed(d, -1), 1);
  d4skip(d, 1);  // writes record 1
  d4go(d, 2);
  d4lock(d, 2);
  f4assign(d4field(d, "KEY"), "HELDBACK");
  EXPECT_EQ(d4changed(d, 0), 1);
  d4go(d, 2);  // rereads: the change was kept back
  EXPECT_EQ(Str(d4field(d, "KEY")), "K2");
  f4assign(d4field(d, "KEY"), "DROPPED");
  d4refresh(d);
  EXPECT_EQ(Str(d4field(d, "KEY")), "K2");
  d4go(d, 3);
  d4lock(d, 3);
  f4assign(d4field(d, "KEY"), "ONCLOSE");
  ASSERT_EQ(d4close(d), 0);

  d = d4open(&e.code, (dir / "r").c_str());
  d4go(d, 1);
  EXPECT_EQ(Str(d4field(d, "KEY")), "CHANGED");
  d4go(d, 3);
  EXPECT_EQ(Str(d4field(d, "KEY")), "ONCLOSE");
  d4close(d);
}

TEST(Record, DeleteRecallAndWriteLow) {
  TempDir dir;
  Engine e;
  DATA4St* d = TableOf(e, dir, 2);
  d4go(d, 2);
  d4lock(d, 2);
  d4delete(d);
  EXPECT_TRUE(d4deleted(d));
  ASSERT_EQ(d4writeLow(d, 2, 0, 1), 0);
  d4recall(d);
  d4changed(d, 0);
  d4go(d, 2);
  EXPECT_TRUE(d4deleted(d)) << "the delete was written at once";
  d4recall(d);
  d4go(d, 1);
  d4go(d, 2);
  EXPECT_FALSE(d4deleted(d));
  d4close(d);
}

TEST(Record, AppendBlankLeavesTheNewRecordCurrentAndLocked) {
  TempDir dir;
  Engine e;
  DATA4St* d = TableOf(e, dir, 1);
  ASSERT_EQ(d4appendBlank(d), 0);
  EXPECT_EQ(d4recNo(d), 2);
  EXPECT_TRUE(d4lockTest(d, 2));
  f4assign(d4field(d, "KEY"), "NEW");
  ASSERT_EQ(d4flush(d), 0) << error4lastDetail(&e.code);
  EXPECT_EQ(e.code.errorCode, 0);
  d4close(d);
}

}  // namespace
}  // namespace kvd::test
