// Tables as files: the bytes we write, creating, replacing, removing, reopening.
#include <cstring>

#include "engine/codec.h"
#include "engine_test_util.h"
#include "platform/sys.h"

namespace kvd::test {
namespace {

const FIELD4INFO kFields[] = {
    {"NAME", 'C', 20, 0, 0}, {"COUNT", 'N', 6, 0, 0}, {"PRICE", 'N', 9, 3, 0}, {nullptr, 0, 0, 0, 0}};

TEST(Table, WritesGenuineHeaderRecordsAndEndMark) {
  TempDir dir;
  Engine e;
  DATA4St* d = d4create(&e.code, (dir / "plain").c_str(), kFields, nullptr);
  ASSERT_NE(d, nullptr) << error4lastDetail(&e.code);
  EXPECT_STREQ(d4fileName(d), (dir / "plain.DBF").c_str());
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(d4appendStart(d, 0), 0);
    d4blank(d);
    f4assign(d4field(d, "NAME"), ("row" + std::to_string(i)).c_str());
    f4assignLong(d4field(d, "COUNT"), i * 10);
    ASSERT_EQ(d4append(d), 0);
  }
  ASSERT_EQ(d4close(d), 0);

  auto b = ReadAll(dir / "plain.DBF");
  const unsigned header = 32 + 32 * 3 + 1, reclen = 1 + 20 + 6 + 9;
  ASSERT_EQ(b.size(), header + 3 * reclen + 1);
  EXPECT_EQ(b[0], 0x03);
  EXPECT_EQ(engine::GetLE32(&b[4]), 3u);
  EXPECT_EQ(engine::GetLE16(&b[8]), header);
  EXPECT_EQ(engine::GetLE16(&b[10]), reclen);
  EXPECT_EQ(b[29], 0x03) << "code page mark of Windows-1252";
  EXPECT_EQ(b[header - 1], 0x0D);
  EXPECT_EQ(b.back(), 0x1A);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(&b[32]), 4), "NAME");
  EXPECT_EQ(b[32 + 11], 'C');
  EXPECT_EQ(engine::GetLE32(&b[32 + 12]), 1u) << "field offset inside the record";
  EXPECT_EQ(b[64 + 16], 6);
  const std::string rec2(reinterpret_cast<char*>(&b[header + 2 * reclen]), reclen);
  EXPECT_EQ(rec2, " row2                    20         ");
}

TEST(Table, MemoTableIsFoxProFlavourWithFptHeader) {
  TempDir dir;
  Engine e;
  const FIELD4INFO f[] = {{"ID", 'C', 4, 0, 0}, {"DATA", 'M', 10, 0, 0}, {nullptr, 0, 0, 0, 0}};
  DATA4St* d = d4create(&e.code, (dir / "memo.dbf").c_str(), f, nullptr);
  ASSERT_NE(d, nullptr) << error4lastDetail(&e.code);
  d4close(d);
  auto b = ReadAll(dir / "memo.dbf");
  EXPECT_EQ(b[0], 0xF5);
  EXPECT_EQ(engine::GetLE16(&b[8]), 32 + 64 + 1);
  EXPECT_EQ(b[32 + 32 + 16], 10) << "memo pointers are 10 digits";
  auto m = ReadAll(dir / "memo.fpt");
  ASSERT_EQ(m.size(), 512u);
  EXPECT_EQ(engine::GetBE32(&m[0]), 8u) << "first free block after the 512-byte header";
  EXPECT_EQ(engine::GetBE16(&m[6]), 64);
}

TEST(Table, OpenFindsNamesIgnoringCaseAndWithoutExtension) {
  TempDir dir;
  Engine e;
  d4close(d4create(&e.code, (dir / "_Signal.DBF").c_str(), kFields, nullptr));
  DATA4St* d = d4open(&e.code, (dir / "_SIGNAL").c_str());
  ASSERT_NE(d, nullptr) << error4lastDetail(&e.code);
  EXPECT_NE(d4field(d, "name"), nullptr);
  EXPECT_NE(d4field(d, "Price"), nullptr);
  EXPECT_EQ(d4field(d, "MISSING"), nullptr);
  EXPECT_EQ(d4fieldJ(d, 2), d4field(d, "COUNT"));
  EXPECT_EQ(d4fieldJ(d, 4), nullptr);
  EXPECT_STREQ(d4alias(d), "_SIGNAL");
  d4close(d);
}

TEST(Table, MissingTableIsAQuietNullButABadOneSetsTheError) {
  TempDir dir;
  Engine e;
  EXPECT_EQ(d4open(&e.code, (dir / "none").c_str()), nullptr);
  EXPECT_EQ(e.code.errorCode, 0) << "a missing table with errOpen 0 must not leave an error";
  WriteAll(dir / "junk.dbf", std::vector<unsigned char>(100, 0x41));
  EXPECT_EQ(d4open(&e.code, (dir / "junk").c_str()), nullptr);
  EXPECT_EQ(e.code.errorCode, e4data);
}

TEST(Table, ManyWideFields) {
  TempDir dir;
  Engine e;
  std::vector<std::string> names;
  std::vector<FIELD4INFO> f;
  for (int i = 0; i < 141; ++i) names.push_back("F" + std::to_string(i));
  for (int i = 0; i < 141; ++i)
    f.push_back({names[i].c_str(), 'C', static_cast<unsigned short>(i == 0 ? 255 : i == 1 ? 254 : 1 + i % 60), 0, 0});
  f.push_back({nullptr, 0, 0, 0, 0});
  DATA4St* d = d4create(&e.code, (dir / "wide").c_str(), f.data(), nullptr);
  ASSERT_NE(d, nullptr) << error4lastDetail(&e.code);
  d4appendStart(d, 0);
  d4blank(d);
  f4assign(d4field(d, "F0"), std::string(255, 'x').c_str());
  f4assign(d4field(d, "F140"), "last");
  ASSERT_EQ(d4append(d), 0);
  d4close(d);
  d = d4open(&e.code, (dir / "wide").c_str());
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d4numFields(d), 141);
  d4top(d);
  EXPECT_EQ(Str(d4field(d, "F0")), std::string(255, 'x'));
  EXPECT_EQ(Str(d4field(d, "F140")), "last");
  d4close(d);
}

TEST(Table, CreateRejectsBadDefinitions) {
  TempDir dir;
  Engine e;
  const FIELD4INFO longname[] = {{"ELEVENCHARS", 'C', 5, 0, 0}, {nullptr, 0, 0, 0, 0}};
  EXPECT_EQ(d4create(&e.code, (dir / "a").c_str(), longname, nullptr), nullptr);
  EXPECT_EQ(e.code.errorCode, e4fieldName);
  const FIELD4INFO twice[] = {{"A", 'C', 5, 0, 0}, {"a", 'C', 5, 0, 0}, {nullptr, 0, 0, 0, 0}};
  EXPECT_EQ(d4create(&e.code, (dir / "b").c_str(), twice, nullptr), nullptr);
  const FIELD4INFO badtype[] = {{"A", 'X', 5, 0, 0}, {nullptr, 0, 0, 0, 0}};
  EXPECT_EQ(d4create(&e.code, (dir / "c").c_str(), badtype, nullptr), nullptr);
  EXPECT_EQ(e.code.errorCode, e4fieldType);
  const FIELD4INFO none[] = {{nullptr, 0, 0, 0, 0}};
  EXPECT_EQ(d4create(&e.code, (dir / "d").c_str(), none, nullptr), nullptr);
  EXPECT_FALSE(std::filesystem::exists(dir / "a.DBF"));
}

TEST(Table, CreateReplacesUnlessSafetyOrAnotherOpenerHoldsIt) {
  TempDir dir;
  Engine e, other;
  DATA4St* d = d4create(&e.code, (dir / "t").c_str(), kFields, nullptr);
  d4appendBlank(d);
  d4close(d);
  e.code.safety = 1;
  EXPECT_EQ(d4create(&e.code, (dir / "t").c_str(), kFields, nullptr), nullptr);
  EXPECT_EQ(e.code.errorCode, e4create);
  e.code.safety = 0;
  error4set(&e.code, 0);

  DATA4St* held = d4open(&other.code, (dir / "t").c_str());
  ASSERT_NE(held, nullptr);
  EXPECT_EQ(d4create(&e.code, (dir / "t").c_str(), kFields, nullptr), nullptr)
      << "a table another opener holds must not be replaced under it";
  EXPECT_EQ(d4recCount(held), 1);
  d4close(held);

  d = d4create(&e.code, (dir / "t").c_str(), kFields, nullptr);
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d4recCount(d), 0);
  d4close(d);
  for (auto& entry : std::filesystem::directory_iterator(dir.path()))
    EXPECT_EQ(entry.path().filename().string().rfind(".", 0), std::string::npos)
        << "temporary file left behind: " << entry.path();
}

TEST(Table, RemoveTakesMemoAlongAndIsRefusedWhileOpenElsewhere) {
  TempDir dir;
  Engine e, other;
  const FIELD4INFO f[] = {{"ID", 'C', 4, 0, 0}, {"DATA", 'M', 10, 0, 0}, {nullptr, 0, 0, 0, 0}};
  d4close(d4create(&e.code, (dir / "gone").c_str(), f, nullptr));
  DATA4St* held = d4open(&other.code, (dir / "gone").c_str());
  DATA4St* d = d4open(&e.code, (dir / "gone").c_str());
  ASSERT_NE(held, nullptr);
  EXPECT_EQ(d4remove(d), e4remove);
  EXPECT_TRUE(std::filesystem::exists(dir / "gone.DBF"));
  d4close(held);
  d = d4open(&e.code, (dir / "gone").c_str());
  EXPECT_EQ(d4remove(d), 0);
  EXPECT_FALSE(std::filesystem::exists(dir / "gone.DBF"));
  EXPECT_FALSE(std::filesystem::exists(dir / "gone.FPT"));
}

TEST(Table, ExclusiveOpenShutsOthersOutAndWaitsForThem) {
  TempDir dir;
  Engine a, b;
  d4close(d4create(&a.code, (dir / "x").c_str(), kFields, nullptr));
  a.code.accessMode = OPEN4DENY_RW;
  DATA4St* alone = d4open(&a.code, (dir / "x").c_str());
  ASSERT_NE(alone, nullptr);
  EXPECT_EQ(d4open(&b.code, (dir / "x").c_str()), nullptr);
  EXPECT_EQ(b.code.errorCode, e4open) << "a sharing refusal is an error, not a missing file";
  d4close(alone);
  DATA4St* shared = d4open(&b.code, (dir / "x").c_str());
  ASSERT_NE(shared, nullptr);
  EXPECT_EQ(d4open(&a.code, (dir / "x").c_str()), nullptr);
  d4close(shared);
}

TEST(Table, NameUtilities) {
  char n[32] = "C:\\A.B\\FILE";
  EXPECT_EQ(u4nameExt(n, sizeof n, "DBF", 0), 0);
  EXPECT_STREQ(n, "C:\\A.B\\FILE.DBF") << "a dot in a directory is no extension";
  EXPECT_EQ(u4nameExt(n, sizeof n, ".CDX", 0), 0);
  EXPECT_STREQ(n, "C:\\A.B\\FILE.DBF");
  EXPECT_EQ(u4nameExt(n, sizeof n, ".CDX", 1), 0);
  EXPECT_STREQ(n, "C:\\A.B\\FILE.CDX");
  char small[8] = "ABCDEF";
  EXPECT_EQ(u4nameExt(small, sizeof small, "DBF", 1), e4len);
  EXPECT_STREQ(small, "ABCDEF");

  char out[16];
  date4format("20260107", out, "DD.MM.YY");
  EXPECT_STREQ(out, "07.01.26");
  date4format("20260107", out, "CCYY-MM-DD");
  EXPECT_STREQ(out, "2026-01-07");
  date4format("        ", out, "DD.MM.YY");
  EXPECT_STREQ(out, "        ");
  char today[9];
  date4today(today);
  EXPECT_EQ(std::strlen(today), 8u);
  EXPECT_EQ(today[0], '2');
}

TEST(Table, CreateAfterAForkedChildDiedCreatingTheSameTable) {
  TempDir dir;
  Engine e;
  d4close(d4create(&e.code, (dir / "warm").c_str(), kFields, nullptr));  // the parent has drawn names
  Child child([&] {
    // Dies at its first write: the file being written aside stays, under the name the child drew.
    kvd::platform::Sys().pwrite = [](int, const void*, size_t, off_t) -> ssize_t { _exit(7); };
    Engine c;
    d4create(&c.code, (dir / "t").c_str(), kFields, nullptr);
    return 0;
  });
  ASSERT_EQ(child.Join(), 7);
  DATA4St* d = d4create(&e.code, (dir / "t").c_str(), kFields, nullptr);
  EXPECT_NE(d, nullptr) << "the parent draws a name of its own: " << error4lastDetail(&e.code);
  d4close(d);
}

}  // namespace
}  // namespace kvd::test
