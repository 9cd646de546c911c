// Damaged files: every one gives a clear error and no crash.
#include "engine/codec.h"
#include "engine_test_util.h"

namespace kvd::test {
namespace {

const FIELD4INFO kFields[] = {{"A", 'C', 5, 0, 0}, {"B", 'N', 4, 0, 0}, {"M", 'M', 10, 0, 0},
                              {nullptr, 0, 0, 0, 0}};

class CorruptTest : public ::testing::Test {
 protected:
  void SetUp() override {
    DATA4St* d = d4create(&e.code, (dir / "c").c_str(), kFields, nullptr);
    for (int i = 0; i < 3; ++i) {
      d4appendStart(d, 0);
      d4blank(d);
      f4assign(d4field(d, "A"), "abc");
      f4memoAssign(d4field(d, "M"), "memo text");
      d4append(d);
    }
    d4close(d);
    good = ReadAll(dir / "c.DBF");
  }
  // Opens the table after `damage`; returns the error code (0 when it opened).
  template <typename F>
  int OpenDamaged(F damage) {
    auto bytes = good;
    damage(bytes);
    WriteAll(dir / "c.DBF", bytes);
    error4set(&e.code, 0);
    DATA4St* d = d4open(&e.code, (dir / "c").c_str());
    if (!d) return e.code.errorCode;
    d4close(d);
    return 0;
  }
  TempDir dir;
  Engine e;
  std::vector<unsigned char> good;
};

TEST_F(CorruptTest, DamagedHeadersAreRefused) {
  const unsigned header = 32 + 3 * 32 + 1;
  EXPECT_EQ(OpenDamaged([](auto& b) { b.resize(20); }), e4data) << "shorter than a header";
  EXPECT_EQ(OpenDamaged([](auto& b) { b[0] = 0x42; }), e4data) << "unknown version";
  EXPECT_EQ(OpenDamaged([](auto& b) { engine::PutLE16(&b[8], 40); }), e4data) << "header too short";
  EXPECT_EQ(OpenDamaged([](auto& b) { engine::PutLE16(&b[8], 60000); }), e4data) << "header past the end";
  EXPECT_EQ(OpenDamaged([&](auto& b) { b[header - 1] = 'X'; }), e4data) << "no terminator";
  EXPECT_EQ(OpenDamaged([](auto& b) { engine::PutLE16(&b[10], 21); }), e4data) << "record length disagrees";
  EXPECT_EQ(OpenDamaged([](auto& b) { engine::PutLE32(&b[4], 1000); }), e4data) << "count past the end";
  EXPECT_EQ(OpenDamaged([](auto& b) { b[32 + 11] = '?'; }), e4data) << "unknown field type";
  EXPECT_EQ(OpenDamaged([](auto& b) { b[64 + 16] = 0; }), e4data) << "field of width 0";
  EXPECT_EQ(OpenDamaged([](auto& b) { engine::PutLE16(&b[8], 32 + 2 * 32 + 16); }), e4data)
      << "descriptor overruns the header";
  EXPECT_EQ(OpenDamaged([](auto&) {}), 0) << "the undamaged file opens";
}

TEST_F(CorruptTest, BadMemoPointersFailTheReadNotTheProcess) {
  const unsigned rec1 = 32 + 3 * 32 + 1;
  auto bytes = good;
  std::memcpy(&bytes[rec1 + 1 + 5 + 4], "    999999", 10);  // past the end of the memo file
  std::memcpy(&bytes[rec1 + 1 * 20 + 1 + 5 + 4], "         1", 10);  // inside the memo header
  WriteAll(dir / "c.DBF", bytes);
  DATA4St* d = d4open(&e.code, (dir / "c").c_str());
  ASSERT_NE(d, nullptr);
  d4go(d, 1);
  EXPECT_EQ(f4memoLen(d4field(d, "M")), 0u);
  EXPECT_EQ(e.code.errorCode, e4memo);
  error4set(&e.code, 0);
  d4go(d, 2);
  EXPECT_EQ(f4memoLen(d4field(d, "M")), 0u);
  EXPECT_EQ(e.code.errorCode, e4memo);
  error4set(&e.code, 0);
  d4go(d, 3);
  EXPECT_EQ(std::string(f4memoPtr(d4field(d, "M"))), "memo text");
  EXPECT_EQ(e.code.errorCode, 0);
  d4close(d);
}

TEST_F(CorruptTest, MissingOrTruncatedMemoFile) {
  auto memo = ReadAll(dir / "c.FPT");
  std::filesystem::remove(dir / "c.FPT");
  EXPECT_EQ(d4open(&e.code, (dir / "c").c_str()), nullptr);
  EXPECT_EQ(e.code.errorCode, e4memo);
  memo.resize(520);  // the first memo's head survives, its bytes do not
  WriteAll(dir / "c.FPT", memo);
  error4set(&e.code, 0);
  DATA4St* d = d4open(&e.code, (dir / "c").c_str());
  ASSERT_NE(d, nullptr);
  d4go(d, 1);
  EXPECT_EQ(f4memoLen(d4field(d, "M")), 0u);
  EXPECT_EQ(e.code.errorCode, e4memo);
  d4close(d);
}

}  // namespace
}  // namespace kvd::test
