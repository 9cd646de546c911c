// Selections, the configuration, and the path and wildcard strings every table call relies on.
#include <cstring>
#include <filesystem>
#include <string>

#include "frame/lookup.h"
#include "lib/foundation/kvgran.h"
#include "lib/foundation/kvsem.h"
#include "include/kvd_frame.h"
#include "tests/frame/frame_test_util.h"

namespace kvd::test {
namespace {

std::string Completed(const char* rel, const char* def) {
  char buf[KVD_PATH_MAX] = {};
  std::strcpy(buf, rel);
  CompletePath(buf, const_cast<char*>(def));
  return buf;
}

TEST(PathStrings, CompletePathJoinsRelativeKeepsAbsolute) {
  EXPECT_EQ(Completed("DATA", "C:\\TELMOR\\"), "C:\\TELMOR\\DATA");
  EXPECT_EQ(Completed("\\DATA", "C:\\TELMOR\\"), "C:\\TELMOR\\DATA");
  EXPECT_EQ(Completed("DATA", "C:\\TELMOR"), "C:\\TELMOR\\DATA");
  EXPECT_EQ(Completed("D:\\PLANT", "C:\\TELMOR\\"), "D:\\PLANT");
  EXPECT_EQ(Completed("/srv/plant", "C:\\TELMOR\\"), "/srv/plant");
  EXPECT_EQ(Completed("\\\\server\\share", "C:\\TELMOR\\"), "C:\\TELMOR\\\\server\\share");
  // The result never runs past the caller's 260 bytes.
  const std::string longer(300, 'x');
  char buf[KVD_PATH_MAX] = {};
  std::memcpy(buf, longer.data(), 255);
  CompletePath(buf, const_cast<char*>("C:\\TELMOR\\"));
  EXPECT_EQ(std::strlen(buf), KVD_PATH_MAX - 1u);
}

TEST(PathStrings, BackslashesAddedAndRemovedOnce) {
  char a[16] = "C:\\X";
  EXPECT_STREQ(AppendBackslash(a), "C:\\X\\");
  EXPECT_STREQ(AppendBackslash(a), "C:\\X\\");
  char b[16] = "C:\\X\\\\";
  EXPECT_STREQ(DeleteBackslash(b), "C:\\X\\");
  EXPECT_STREQ(DeleteBackslash(b), "C:\\X");
  char e[4] = "";
  EXPECT_STREQ(AppendBackslash(e), "\\");
}

TEST(PathStrings, CompareWild) {
  struct Case {
    const char* wild;
    const char* key;
    long want;
  } cases[] = {
      {"AB*", "ABCD", 0}, {"A?C", "ABC", 0},  {"ABC", "ABCD", 1}, {"ABD", "ABC", 1}, {"ABC", "ABD", -1},
      {"*B", "AB", 0},    {"ABC", "ABC", 0},  {"", "", 0},        {"", "A", 1},      {"AB?", "AB", -1},
      {"ab", "AB", 1},    {"\xe4", "a", -1},  // bytes compare signed: 0xE4 lies below 'a'
  };
  for (const Case& c : cases)
    EXPECT_EQ(CompareWild(const_cast<char*>(c.wild), const_cast<char*>(c.key)), c.want) << c.wild << " / " << c.key;
}

// The library's start-up opened the process-crossing mutex and reserved the process's private
// arena of 4 MiB before anything else.
TEST(Configuration, StartUpMadeTheCritSecAndTheArena) {
  EXPECT_NE(KvGetCritSecHandle(), nullptr);
  ASSERT_NE(KvGranularity::_GetBase(), nullptr);
  EXPECT_EQ(KvGranularity::_stMax, KVGRAN_DEFAULT_SIZE);
  EXPECT_EQ(KvGranularity::_QueryCountAllocSharedMem(), 1);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(KvGranularity::_GetBase()) % 0x10000, 0u);
  void* p = KvGranularity::_Alloc(100, KvGranularity::_GetDefaultWatcher());
  EXPECT_TRUE(KvGranularity::_IsPointerInComittedRange(p));
  KvGranularity::_Free(p, 100, KvGranularity::_GetDefaultWatcher());
}

TEST(Configuration, ReadFromTheNamedFileWithDefaults) {
  {
    Plant plant(1, "/srv/telmor");
    EXPECT_STREQ(GetAdminPath(), "/srv/telmor\\");  // a separator is added when it lacks one
    EXPECT_EQ(kvd::frame::TheSettings().backup_files, 1);
  }
  TempDir dir;
  std::ofstream(dir / "TELMOR.INI") << "[Other]\nAdminPath=X\n";
  setenv("KVD_TELMOR_INI", (dir / "TELMOR.INI").c_str(), 1);
  kvd::frame::Startup();
  EXPECT_STREQ(GetAdminPath(), "C:\\TELMOR\\");
  EXPECT_EQ(kvd::frame::TheSettings().backup_files, 0);
  std::ofstream(dir / "TELMOR.INI") << "[KVDpmu]\nAdminPath=\n";
  kvd::frame::Startup();
  EXPECT_STREQ(GetAdminPath(), "");  // an empty value stays empty: tables open in the current directory
  unsetenv("KVD_TELMOR_INI");
  kvd::frame::Startup();
}

// Writes a catalogue row straight through the engine, as another program would.
void AddProject(const std::string& admin, const char* name, const char* path) {
  Engine e;
  const std::string file = admin + "_PROJECT.DBF";
  DATA4St* d = d4open(&e.code, file.c_str());
  if (d == nullptr) d = d4create(&e.code, file.c_str(), kvd::frame::kProjektDbDef, kvd::frame::kProjektNdxTag);
  ASSERT_NE(d, nullptr);
  if (i4open(d, nullptr) == nullptr) {
    ASSERT_NE(i4create(d, nullptr, kvd::frame::kProjektNdxTag), nullptr);
  }
  ASSERT_EQ(d4appendStart(d, 0), 0);
  d4blank(d);
  f4assign(d4field(d, "NAME"), name);
  f4assign(d4field(d, "PFAD"), path);
  ASSERT_EQ(d4append(d), 0);
  d4close(d);
}

TEST(Select, AdminSelectionMakesTheAdminDirectory) {
  Plant plant;
  ASSERT_FALSE(std::filesystem::exists(plant.admin()));
  _SELECT_SD* s = Select(nullptr, nullptr, 'X');
  ASSERT_NE(s, nullptr);
  EXPECT_TRUE(std::filesystem::is_directory(plant.admin()));
  EXPECT_EQ(std::string(GetProjektPath(s)), plant.admin());
  EXPECT_STREQ(GetVersionPath(s), "");
  EXPECT_EQ(s->cWer, 'X');
  EXPECT_EQ(s->cOpen, 0);
  EXPECT_EQ(s->c4code.lockEnforce, 1);
  EXPECT_EQ(s->c4code.autoOpen, 0);
  Unselect(s);
  Unselect(nullptr);
}

TEST(Select, ProjectAndVersionPaths) {
  Plant plant;
  std::filesystem::create_directories(plant.admin());
  AddProject(plant.admin(), "PRJ1", "PRJ1DIR");         // relative to the admin directory
  AddProject(plant.admin(), "ABS", (plant / "elsewhere").c_str());  // a path of this machine
  _SELECT_SD* s = Select("PRJ1", "V1", 'A');
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(std::string(s->szProjektPath), plant.admin() + "PRJ1DIR\\");
  EXPECT_EQ(std::string(s->szVersionPath), plant.admin() + "PRJ1DIR\\V1\\");
  // A version name padded with blanks gives the same path; the version is not looked up.
  char v[] = "  V1   ";
  char out[KVD_PATH_MAX];
  EXPECT_EQ(VersionGetPath(s, v, out), KVD_S_OK);
  EXPECT_EQ(std::string(out), plant.admin() + "PRJ1DIR\\V1\\");
  char empty[] = "";
  EXPECT_EQ(VersionGetPath(s, empty, out), KVD_S_BAD_PROJECT);
  EXPECT_EQ(VersionGetPath(nullptr, v, out), KVD_S_NO_SELECTION);
  EXPECT_EQ(ProjektGetPath(s, empty, out), KVD_S_BAD_PROJECT);
  Unselect(s);

  s = Select("ABS", nullptr, 'A');
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(std::string(s->szProjektPath), plant / "elsewhere\\");
  EXPECT_STREQ(s->szVersionPath, "");
  Unselect(s);

  EXPECT_EQ(Select("NOPE", nullptr, 'A'), nullptr);
  EXPECT_EQ(Select("", nullptr, 'A'), nullptr);
  EXPECT_EQ(Select("PRJ1", "", 'A'), nullptr);
  EXPECT_EQ(Select("PRJ1XXXXX", nullptr, 'A'), nullptr);  // longer than any name of the catalogue
}

TEST(Select, SelectDirGivesOnePathWithBackslash) {
  Plant plant;
  EXPECT_EQ(SelectDir(nullptr, 'A'), nullptr);
  EXPECT_EQ(SelectDir("", 'A'), nullptr);
  _SELECT_SD* a = SelectDir("C:\\PLANT\\TABLES", 'A');
  _SELECT_SD* b = SelectDir("C:\\PLANT\\TABLES\\", 'A');
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  EXPECT_STREQ(a->szProjektPath, "C:\\PLANT\\TABLES\\");
  EXPECT_STREQ(a->szVersionPath, "C:\\PLANT\\TABLES\\");
  EXPECT_STREQ(b->szVersionPath, a->szVersionPath);
  Unselect(a);
  Unselect(b);
}

}  // namespace
}  // namespace kvd::test
