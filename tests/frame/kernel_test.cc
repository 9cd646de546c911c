// The table kernel: tables made on first use and never over stored records, backups, indexes built
// or refused, the structure check, hexadecimal masks and the cursor-level calls.
#include <filesystem>
#include <string>

#include "frame/kernel.h"
#include "tests/frame/frame_test_util.h"

namespace kvd::test {
namespace {

namespace fs = std::filesystem;
using kvd::frame::OpenIndex;
using kvd::frame::OpenTable;

const FIELD4INFO kDef[] = {{"NAME", 'C', 8, 0, 0}, {"MASK", 'C', 8, 0, 0}, {"TEXT", 'C', 20, 0, 0}, {nullptr, 0, 0, 0, 0}};
const TAG4INFO kTags[] = {{"BYNAME", "NAME", ".NOT. DELETED()", 0, 0}, {nullptr, nullptr, nullptr, 0, 0}};
const TAG4INFO kMoreTags[] = {{"BYNAME", "NAME", ".NOT. DELETED()", 0, 0},
                              {"BYTEXT", "UPPER(TEXT)", nullptr, 0, 0},
                              {nullptr, nullptr, nullptr, 0, 0}};

class Kernel : public ::testing::Test {
 protected:
  Plant plant_{1};
  std::string dir_ = plant_.MakeDir("v1");
  _SELECT_SD* sel_ = SelectDir(dir_.c_str(), 'T');
  ~Kernel() override { Unselect(sel_); }

  void AddRow(DATA4St* d, const char* name) {
    ASSERT_EQ(d4appendStart(d, 0), 0);
    d4blank(d);
    f4assign(d4field(d, "NAME"), name);
    ASSERT_EQ(d4append(d), 0);
  }
};

TEST_F(Kernel, MissingTableIsMadeEmptyAndAStaleIndexGoes) {
  std::ofstream(dir_ + "t1.cdx") << "an index of a table long gone";
  DATA4St* d = OpenTable(sel_, dir_.c_str(), "T1", kDef, 0);
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d4recCount(d), 0);
  EXPECT_EQ(d4numFields(d), 3);
  EXPECT_FALSE(fs::exists(dir_ + "t1.cdx"));
  // The index is then built from the definition and its first tag selected.
  INDEX4St* ix = OpenIndex(sel_, dir_.c_str(), "T1", d, kTags);
  ASSERT_NE(ix, nullptr);
  EXPECT_EQ(d4tagSelected(d), d4tag(d, "BYNAME"));
  d4close(d);
  EXPECT_TRUE(fs::exists(dir_ + "T1.CDX"));
}

TEST_F(Kernel, ATableThatCannotBeOpenedIsNeverMadeAnew) {
  const std::string file = dir_ + "T2.DBF";
  std::ofstream(file) << "this is no table, but somebody's data";
  const auto before = ReadAll(file);
  EXPECT_EQ(OpenTable(sel_, dir_.c_str(), "T2.DBF", kDef, 1), nullptr);
  EXPECT_EQ(ReadAll(file), before);
  // Nor a table in a directory that does not exist.
  EXPECT_EQ(OpenTable(sel_, (dir_ + "missing\\").c_str(), "T2", kDef, 0), nullptr);
}

TEST_F(Kernel, BackupOnlyForWritingAndNotOnFloppies) {
  DATA4St* d = OpenTable(sel_, dir_.c_str(), "T3", kDef, 1);  // made now: nothing to back up yet
  ASSERT_NE(d, nullptr);
  EXPECT_FALSE(fs::exists(dir_ + "T3.DBK"));
  AddRow(d, "ONE");
  d4close(d);
  d = OpenTable(sel_, dir_.c_str(), "T3", kDef, 0);
  d4close(d);
  EXPECT_FALSE(fs::exists(dir_ + "T3.DBK"));
  d = OpenTable(sel_, dir_.c_str(), "T3.DBF", kDef, 1);
  d4close(d);
  ASSERT_TRUE(fs::exists(dir_ + "T3.DBK"));
  EXPECT_EQ(ReadAll(dir_ + "T3.DBK"), ReadAll(dir_ + "T3.DBF"));

  // A: and B: never get a copy; the drive letter stands for a directory of this machine.
  setenv("KVD_DRIVE_A", dir_.c_str(), 1);
  d = OpenTable(sel_, "A:\\", "T3", kDef, 1);
  ASSERT_NE(d, nullptr);
  d4close(d);
  fs::remove(dir_ + "T3.DBK");
  d = OpenTable(sel_, "a:\\", "T3", kDef, 1);
  d4close(d);
  EXPECT_FALSE(fs::exists(dir_ + "T3.DBK"));
  unsetenv("KVD_DRIVE_A");
}

TEST_F(Kernel, AnOldTableIsAdaptedAsItOpens) {
  const FIELD4INFO old_def[] = {{"NAME", 'C', 8, 0, 0}, {"GONE", 'C', 4, 0, 0}, {nullptr, 0, 0, 0, 0}};
  DATA4St* d = OpenTable(sel_, dir_.c_str(), "T4", old_def, 1);
  ASSERT_NE(d, nullptr);
  AddRow(d, "KEEP");
  d4close(d);
  d = OpenTable(sel_, dir_.c_str(), "T4", kDef, 0);
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d4numFields(d), 3);
  EXPECT_EQ(d4field(d, "GONE"), nullptr);
  ASSERT_EQ(d4top(d), 0);
  EXPECT_EQ(Str(d4field(d, "NAME")), "KEEP");
  d4close(d);
}

TEST_F(Kernel, IndexBuiltWhenMissingOrOutdatedRefusedWhenDamaged) {
  DATA4St* d = OpenTable(sel_, dir_.c_str(), "T5", kDef, 1);
  ASSERT_NE(d, nullptr);
  AddRow(d, "B");
  AddRow(d, "A");
  ASSERT_NE(OpenIndex(sel_, dir_.c_str(), "T5", d, kTags), nullptr);
  d4close(d);
  // A release that added a tag: the old index lacks it and is built anew with every tag.
  d = OpenTable(sel_, dir_.c_str(), "T5", kDef, 0);
  ASSERT_NE(OpenIndex(sel_, dir_.c_str(), "T5", d, kMoreTags), nullptr);
  EXPECT_NE(d4tag(d, "BYTEXT"), nullptr);
  ASSERT_EQ(d4top(d), 0);
  EXPECT_EQ(Str(d4field(d, "NAME")), "A");
  d4close(d);
  // A damaged index is not overwritten: the caller answers 7, and removing it repairs.
  std::ofstream(dir_ + "T5.CDX", std::ios::trunc) << std::string(1024, 'x');
  d = OpenTable(sel_, dir_.c_str(), "T5", kDef, 0);
  EXPECT_EQ(OpenIndex(sel_, dir_.c_str(), "T5", d, kTags), nullptr);
  EXPECT_EQ(fs::file_size(dir_ + "T5.CDX"), 1024u);
  fs::remove(dir_ + "T5.CDX");
  EXPECT_NE(OpenIndex(sel_, dir_.c_str(), "T5", d, kTags), nullptr);
  d4close(d);
}

TEST_F(Kernel, StructureCheckReportsDifferingFieldsOnly) {
  const FIELD4INFO other[] = {{"NAME", 'N', 8, 2, 0}, {"MASK", 'C', 9, 0, 0}, {"TEXT", 'C', 20, 0, 0},
                              {"MORE", 'C', 3, 0, 0}, {nullptr, 0, 0, 0, 0}};
  d4close(OpenTable(sel_, dir_.c_str(), "T6", kDef, 0));
  char msg[200] = "earlier";
  EXPECT_EQ(kvd::frame::CheckDBStructure(sel_, "T6", kDef, msg, sizeof msg, 0), 0);
  EXPECT_STREQ(msg, "earlier");  // a table in order leaves no trace
  // The check adapts the table as it opens it; held open by another opener it cannot be adapted,
  // and then the differences show: a field of another length and a missing one, not the field of
  // the same name and length but another type.
  CODE4 other_code;
  code4initLow(&other_code, nullptr, 0, 0, 0);
  DATA4St* held = d4open(&other_code, (dir_ + "T6").c_str());
  ASSERT_NE(held, nullptr);
  EXPECT_EQ(kvd::frame::CheckDBStructure(sel_, "T6", other, msg, sizeof msg, 0), KVD_S_STRUCTURE);
  EXPECT_STREQ(msg, "earlier\nT6:\n\tMASK\tC\t9\t0\n\tMORE\tC\t3\t0");
  // A buffer too short for the lines still gets the answer.
  char small[12] = "";
  EXPECT_EQ(kvd::frame::CheckDBStructure(sel_, "T6", other, small, sizeof small, 0), KVD_S_STRUCTURE);
  EXPECT_STREQ(small, "\nT6:");
  d4close(held);
  // Held alone elsewhere, the table cannot be opened at all: 6.
  other_code.accessMode = OPEN4DENY_RW;
  held = d4open(&other_code, (dir_ + "T6").c_str());
  ASSERT_NE(held, nullptr);
  EXPECT_EQ(kvd::frame::CheckDBStructure(sel_, "T6", kDef, msg, sizeof msg, 0), KVD_S_OPEN_TABLE);
  d4close(held);
  code4initUndo(&other_code);
}

TEST_F(Kernel, MissingFieldsAreListedWhenTheyFit) {
  DATA4St* d = OpenTable(sel_, dir_.c_str(), "T7", kDef, 0);
  ASSERT_NE(d, nullptr);
  const FIELD4INFO wanted[] = {{"NAME", 'C', 8, 0, 0}, {"MASK", 'C', 6, 0, 0}, {"EXTRA", 'N', 5, 1, 0},
                               {nullptr, 0, 0, 0, 0}};
  const FIELD4INFO* p = wanted;
  EXPECT_EQ(kvd::frame::GetMissingField(d, &p), 0);
  EXPECT_STREQ(p->name, "MASK");
  ++p;
  EXPECT_EQ(kvd::frame::GetMissingField(d, &p), 0);
  EXPECT_STREQ(p->name, "EXTRA");
  ++p;
  EXPECT_EQ(kvd::frame::GetMissingField(d, &p), 1);
  d4close(d);
}

TEST_F(Kernel, HexMasksRoundTrip) {
  DATA4St* d = OpenTable(sel_, dir_.c_str(), "T8", kDef, 1);
  ASSERT_NE(d, nullptr);
  ASSERT_EQ(d4appendStart(d, 0), 0);
  d4blank(d);
  FIELD4St* f = d4field(d, "MASK");
  kvd::frame::Kvf4assign_hex(f, 0xFFFFFF7Fu);
  EXPECT_EQ(Str(f), "ffffff7f");
  EXPECT_EQ(kvd::frame::Kvf4hex(f), 0xFFFFFF7Fu);
  kvd::frame::Kvf4assign_hex(f, 0x2A);
  EXPECT_EQ(std::string(f4ptr(f), 8), "2a      ");
  EXPECT_EQ(kvd::frame::Kvf4hex(f), 0x2Au);  // stops at the padding
  f4assign(f, "1F z");
  EXPECT_EQ(kvd::frame::Kvf4hex(f), 0x1Fu);
  f4assign(f, "");
  EXPECT_EQ(kvd::frame::Kvf4hex(f), 0u);
  d4close(d);
}

TEST(StatusTexts, AsCallersKnowThem) {
  EXPECT_STREQ(kvd::frame::StatusText(0), "No error ");
  EXPECT_STREQ(kvd::frame::StatusText(1), "Record not found");
  EXPECT_STREQ(kvd::frame::StatusText(15), "Out of memory! Close one or more applications and retry the command");
  EXPECT_STREQ(kvd::frame::StatusText(30), "Invalid data bank name in job data bank");
  for (int none : {3, 4, 5, 19, 21, 23, 28, 36, 99}) EXPECT_STREQ(kvd::frame::StatusText(none), "") << none;
  testing::internal::CaptureStderr();
  DisplayError(const_cast<char*>("Plant"), 7);
  const std::string shown = testing::internal::GetCapturedStderr();
  EXPECT_NE(shown.find("Plant"), std::string::npos);
  EXPECT_NE(shown.find("Error opening index"), std::string::npos);
}

TEST_F(Kernel, CursorLevelCallsOnANullSelection) {
  EXPECT_EQ(DBPack(nullptr, nullptr), KVD_S_NO_SELECTION);
  EXPECT_EQ(DBRcrdCnt(nullptr, nullptr), -1);
  char key[4] = "abc";
  EXPECT_EQ(GetKeyCursor(sel_, nullptr, key), 0);
  EXPECT_STREQ(key, "abc");
}

}  // namespace
}  // namespace kvd::test
