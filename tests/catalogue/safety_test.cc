// What the catalogue never does, whatever its callers or its records say: join a name that leaves
// its directory, or empty, move or prune a root, the admin directory, a directory above it, or a
// directory another project has.
#include "frame/lookup.h"
#include "tests/catalogue/catalogue_test_util.h"

namespace kvd::test {
namespace {

// Each fits a record's name member; a longer name is refused as well (below).
const char* const kBadNames[] = {"..", ".", "a/b", "a\\b", "C:X", "*", "V?", "", "   ", "a|b", "<a>", "\x01"};

TEST(Safety, NamesThatWouldLeaveTheirDirectoryAreRefused) {
  CataloguePlant plant;
  ASSERT_EQ(plant.AddProject("P", "P"), KVD_S_OK);
  ASSERT_EQ(plant.AddVersion("P", "V1"), KVD_S_OK);
  Selection p(Select("P", nullptr, 'T'));
  const Tree before = ReadTree(plant.path());
  for (const char* bad : kBadNames) {
    SCOPED_TRACE(std::string("name '") + bad + "'");
    EXPECT_EQ(plant.AddProject(bad, "SOMEWHERE"), KVD_S_BAD_PROJECT);
    _PROJECT_ALL_REC pr{};
    std::snprintf(pr.szPrjName, sizeof pr.szPrjName, "%s", bad);
    std::strcpy(pr.szPrjPath, "SOMEWHERE");
    EXPECT_EQ(ProjektUpdate(plant.sel(), &pr), KVD_S_BAD_PROJECT);
    EXPECT_EQ(ProjektRename(plant.sel(), Text("P"), Text(bad), nullptr), KVD_S_BAD_PROJECT);
    EXPECT_EQ(ProjektCopy(plant.sel(), Text("P"), Text(bad), Text("SOMEWHERE"), nullptr, nullptr), KVD_S_BAD_PROJECT);

    _VERSION_ALL_REC vr{};
    std::snprintf(vr.szVerName, sizeof vr.szVerName, "%s", bad);
    EXPECT_EQ(VersionInsert(p, &vr), KVD_S_BAD_VERSION);
    EXPECT_EQ(VersionUpdate(p, &vr), KVD_S_BAD_VERSION);
    EXPECT_EQ(VersionRead(p, &vr), KVD_S_BAD_VERSION);
    EXPECT_EQ(VersionDelete(p, Text(bad)), KVD_S_BAD_VERSION);
    EXPECT_EQ(VersionCopy(p, Text("V1"), Text(bad), nullptr), KVD_S_BAD_VERSION);
    EXPECT_EQ(VersionCopy(p, Text(bad), Text("V2"), nullptr), KVD_S_BAD_VERSION);
    EXPECT_EQ(VersionRename(p, Text("V1"), Text(bad), nullptr), KVD_S_BAD_VERSION);
  }
  // Longer than the catalogue's 8 characters: a name that could only be cut to another one.
  EXPECT_EQ(ProjektRename(plant.sel(), Text("P"), Text("NINECHARS"), nullptr), KVD_S_BAD_PROJECT);
  EXPECT_EQ(ProjektCopy(plant.sel(), Text("P"), Text("NINECHARS"), Text("X"), nullptr, nullptr), KVD_S_BAD_PROJECT);
  EXPECT_EQ(VersionCopy(p, Text("V1"), Text("NINECHARS"), nullptr), KVD_S_BAD_VERSION);
  EXPECT_EQ(VersionRename(p, Text("V1"), Text("NINECHARS"), nullptr), KVD_S_BAD_VERSION);
  EXPECT_EQ(ReadTree(plant.path()), before);  // not a file or directory more or less
  // Blanks around a name are no part of it.
  EXPECT_EQ(plant.AddProject("  Q ", "Q"), KVD_S_OK);
  EXPECT_EQ(plant.Projects(), (std::vector<std::string>{"P=", "Q="}));
}

TEST(Safety, ASelectionNeverReachesOutOfItsProject) {
  CataloguePlant plant;
  ASSERT_EQ(plant.AddProject("P", "P"), KVD_S_OK);
  for (const char* bad : {"..", ".", "../P", "V1/..", "a\\b", "C:"}) {
    SCOPED_TRACE(bad);
    EXPECT_EQ(Select("P", bad, 'T'), nullptr);
    char path[KVD_PATH_MAX] = {};
    EXPECT_EQ(VersionGetPath(plant.sel(), Text(bad), path), KVD_S_BAD_VERSION);
  }
  Selection v(Select("P", " V1 ", 'T'));
  ASSERT_NE(v.get(), nullptr);
  EXPECT_EQ(Host(v->szVersionPath), plant.admin() + "P/V1/");
}

TEST(Safety, NoProjectIsGivenARootTheAdminDirectoryOrAParentOfIt) {
  CataloguePlant plant;
  ASSERT_EQ(plant.AddProject("P", "P"), KVD_S_OK);
  const std::string admin = plant.admin();
  const std::string parent = plant.path();
  for (const std::string& dir : {std::string("/"), std::string("C:\\"), admin, admin.substr(0, admin.size() - 1),
                                 parent, parent + "/admin/../admin", std::string("")}) {
    SCOPED_TRACE("directory '" + dir + "'");
    EXPECT_EQ(plant.AddProject("BAD", dir), KVD_S_BAD_DIRECTORY);
    EXPECT_EQ(ProjektCopy(plant.sel(), Text("P"), Text("BAD"), Text(dir), nullptr, nullptr), KVD_S_BAD_DIRECTORY);
    EXPECT_EQ(ProjektMove(plant.sel(), Text("P"), Text(dir), nullptr), KVD_S_BAD_DIRECTORY);
    _PROJECT_ALL_REC r = plant.Read("P");
    std::snprintf(r.szPrjPath, sizeof r.szPrjPath, "%s", dir.c_str());
    EXPECT_EQ(ProjektUpdate(plant.sel(), &r), KVD_S_BAD_DIRECTORY);
  }
  // A directory longer than the catalogue's field would be cut to another one.
  const std::string longer = parent + "/" + std::string(60, 'x');
  EXPECT_EQ(ProjektCopy(plant.sel(), Text("P"), Text("LONG"), Text(longer), nullptr, nullptr), KVD_S_BAD_DIRECTORY);
  EXPECT_EQ(plant.Projects(), (std::vector<std::string>{"P="}));
  EXPECT_EQ(plant.ProjectDir("P"), admin + "P/");
}

// A record written into the catalogue by another program, with any directory at all.
void ForgeProject(const CataloguePlant& plant, const char* name, const std::string& pfad) {
  Engine e;
  const std::string file = plant.admin() + "_PROJECT.DBF";
  DATA4St* d = d4open(&e.code, file.c_str());
  ASSERT_NE(d, nullptr);
  ASSERT_NE(i4open(d, (plant.admin() + "_PROJECT.CDX").c_str()), nullptr);
  d4appendStart(d, 0);
  d4blank(d);
  f4assign(d4field(d, "NAME"), name);
  f4assign(d4field(d, "PFAD"), pfad.c_str());
  ASSERT_EQ(d4append(d), 0);
  d4close(d);
}

TEST(Safety, EntriesThatNameProtectedDirectoriesAreNeverEmptiedOrMoved) {
  CataloguePlant plant;
  ASSERT_EQ(plant.AddProject("P", "P"), KVD_S_OK);
  std::ofstream(plant.path() + "/precious.txt") << "keep";
  ForgeProject(plant, "ADMIN", plant.admin());
  ForgeProject(plant, "ABOVE", plant.path());
  ForgeProject(plant, "ROOT", "/");
  ForgeProject(plant, "DOTS", "P/..");  // the admin directory again, by its spelling
  const Tree before = ReadTree(plant.path());
  for (const char* name : {"ADMIN", "ABOVE", "ROOT", "DOTS"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(ProjektDelete(plant.sel(), Text(name)), KVD_S_BAD_DIRECTORY);
    EXPECT_EQ(ProjektMove(plant.sel(), Text(name), Text(plant.path() + "/moved"), nullptr), KVD_S_BAD_DIRECTORY);
  }
  EXPECT_EQ(ReadTree(plant.path()), before);
  // Such a project has no versions the catalogue touches: in the admin directory a version "P"
  // would be project P's directory.
  for (const char* name : {"ADMIN", "DOTS"}) {
    SCOPED_TRACE(name);
    Selection s(Select(name, nullptr, 'T'));
    ASSERT_NE(s.get(), nullptr);
    _VERSION_ALL_REC v{};
    std::strcpy(v.szVerName, "P");
    EXPECT_EQ(VersionInsert(s, &v), KVD_S_BAD_DIRECTORY);
    EXPECT_EQ(VersionUpdate(s, &v), KVD_S_BAD_DIRECTORY);
    EXPECT_EQ(VersionDeleteAll(s), KVD_S_BAD_DIRECTORY);
  }
  // Only the version list was made, where such a project's list lies; nothing else changed.
  Tree after = ReadTree(plant.path());
  for (const std::string f : {"admin/_VERSION.DBF", "admin/_VERSION.CDX"}) after.erase(f);
  EXPECT_EQ(after, before);
  EXPECT_EQ(plant.Projects().size(), 5u);
}

TEST(Safety, ProjectDirectoriesNeverNestOrMeet) {
  CataloguePlant plant;
  ASSERT_EQ(plant.AddProject("A", "A"), KVD_S_OK);
  ASSERT_EQ(plant.AddVersion("A", "V1"), KVD_S_OK);
  // Inside another project (its version directory too), the same directory, or around it.
  EXPECT_EQ(plant.AddProject("IN", "A/V1"), KVD_S_BAD_DIRECTORY);
  EXPECT_EQ(plant.AddProject("SAME", plant.admin() + "A"), KVD_S_BAD_DIRECTORY);
  plant.MakeDir("admin/OUTER");
  ASSERT_EQ(plant.AddProject("B", "OUTER/B"), KVD_S_OK);
  EXPECT_EQ(plant.AddProject("OUT", "OUTER"), KVD_S_BAD_DIRECTORY);
  EXPECT_EQ(ProjektCopy(plant.sel(), Text("A"), Text("C"), Text("A/COPY"), nullptr, nullptr), KVD_S_BAD_DIRECTORY);
  EXPECT_EQ(ProjektMove(plant.sel(), Text("A"), Text("OUTER/B/A"), nullptr), KVD_S_BAD_DIRECTORY);
  EXPECT_EQ(ProjektMove(plant.sel(), Text("A"), Text("A/INSIDE"), nullptr), KVD_S_BAD_DIRECTORY);
  EXPECT_FALSE(fs::exists(plant.admin() + "A/INSIDE"));

  // An older catalogue may already hold two entries of one directory: neither is emptied.
  ForgeProject(plant, "TWIN", "A");
  EXPECT_EQ(ProjektDelete(plant.sel(), Text("A")), KVD_S_BAD_DIRECTORY);
  EXPECT_EQ(ProjektDelete(plant.sel(), Text("TWIN")), KVD_S_BAD_DIRECTORY);
  EXPECT_EQ(ProjektMove(plant.sel(), Text("TWIN"), Text("ELSEWHERE"), nullptr), KVD_S_BAD_DIRECTORY);
  EXPECT_TRUE(fs::exists(plant.admin() + "A/V1/_DIRFIG.DBF"));
  EXPECT_EQ(plant.Versions("A"), (std::vector<std::string>{"V1="}));
}

TEST(Safety, AVersionDirectoryThatLeadsOutOfItsProjectIsNotFollowed) {
  CataloguePlant plant;
  ASSERT_EQ(plant.AddProject("P", "P"), KVD_S_OK);
  ASSERT_EQ(plant.AddVersion("P", "V1"), KVD_S_OK);
  const std::string outside = plant.MakeDir("outside");
  std::ofstream(outside + "data.txt") << "not the plant's";
  fs::remove_all(plant.admin() + "P/V1");
  fs::create_directory_symlink(outside, plant.admin() + "P/V1");
  Selection p(Select("P", nullptr, 'T'));
  EXPECT_EQ(VersionDelete(p, Text("V1")), KVD_S_BAD_DIRECTORY);
  EXPECT_EQ(VersionDeleteAll(p), KVD_S_OK);
  EXPECT_EQ(ProjektDelete(plant.sel(), Text("P")), KVD_S_OK);
  EXPECT_EQ(ReadFile(outside + "data.txt"), "not the plant's");
}

}  // namespace
}  // namespace kvd::test
