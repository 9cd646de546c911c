// The project catalogue: records and directories kept together through insert, update, rename,
// move, copy and delete, with what stays behind when a step fails.
#include <sys/stat.h>

#include <ctime>

#include "platform/file.h"
#include "tests/catalogue/catalogue_test_util.h"

namespace kvd::test {
namespace {

std::string TodayDotted() {
  const std::time_t now = std::time(nullptr);
  char buf[16];
  std::strftime(buf, sizeof buf, "%d.%m.%y", std::localtime(&now));
  return buf;
}

TEST(Projekt, InsertMakesDirectoryRecordAndCommentAndReadGivesThemBack) {
  CataloguePlant plant;
  _PROJECT_ALL_REC r{};
  std::strcpy(r.szPrjName, "WATER");
  std::strcpy(r.szPrjBez, "Waterworks north");
  std::strcpy(r.szPrjPath, "WATER");  // relative: below the admin directory
  std::memcpy(r.achPwd, "se\0cret\xff!!", 10);  // raw bytes, a NUL among them
  std::string comment = "Commissioned 2019.\nSecond line.";
  r.lpKomment = comment.data();
  ASSERT_EQ(ProjektInsert(plant.sel(), &r), KVD_S_OK);

  const std::string dir = plant.admin() + "WATER/";
  EXPECT_TRUE(fs::is_directory(dir));
  EXPECT_EQ(ReadFile(dir + "komment.txt"), comment);

  long st = -1;
  std::string got_comment;
  _PROJECT_ALL_REC back = plant.Read("WATER", &st, &got_comment);
  ASSERT_EQ(st, KVD_S_OK);
  EXPECT_STREQ(back.szPrjName, "WATER");
  EXPECT_STREQ(back.szPrjBez, "Waterworks north");
  EXPECT_EQ(Host(back.szPrjPath), plant.admin() + "WATER");  // completed, no separator added
  EXPECT_EQ(std::string(back.achPwd, 10), std::string("se\0cret\xff!!", 10));
  EXPECT_EQ(got_comment, comment);
  EXPECT_EQ(back.szGenDat, TodayDotted());
  EXPECT_STREQ(back.szArcDat, "");  // written by no call: blank
  EXPECT_EQ(ProjektCheckDBVersion(plant.sel(), Text("WATER")), KVD_S_OK);
  EXPECT_EQ(plant.ProjectDir("WATER"), dir);

  // Twice: 11, and nothing changes.
  std::strcpy(r.szPrjBez, "other");
  EXPECT_EQ(ProjektInsert(plant.sel(), &r), KVD_S_EXISTS);
  EXPECT_STREQ(plant.Read("WATER").szPrjBez, "Waterworks north");
  // Trailing blanks are the key's padding; unknown names give 1.
  std::strcpy(back.szPrjName, "WATER   ");
  EXPECT_EQ(ProjektRead(plant.sel(), &back), KVD_S_OK);
  EXPECT_EQ(ProjektCheckDBVersion(plant.sel(), Text("WATER     ")), KVD_S_OK);
  EXPECT_EQ(ProjektCheckDBVersion(plant.sel(), Text("NONE")), KVD_S_NOT_FOUND);
  plant.Read("NONE", &st);
  EXPECT_EQ(st, KVD_S_NOT_FOUND);
}

TEST(Projekt, DirectoriesAreTakenOverByInsertOnlyAndCommentsMayBeMissing) {
  CataloguePlant plant;
  const std::string there = plant.MakeDir("elsewhere/OLD");
  std::ofstream(there + "keep.txt") << "mine";
  // An existing directory is taken over by an insert...
  ASSERT_EQ(plant.AddProject("OLD", there, "taken over"), KVD_S_OK);
  EXPECT_EQ(ReadFile(there + "keep.txt"), "mine");
  // ...but an update that makes a project wants a new one.
  plant.MakeDir("elsewhere/NEW");
  _PROJECT_ALL_REC u{};
  std::strcpy(u.szPrjName, "NEW");
  std::snprintf(u.szPrjPath, sizeof u.szPrjPath, "%s", (plant.path() + "/elsewhere/NEW").c_str());
  EXPECT_EQ(ProjektUpdate(plant.sel(), &u), KVD_S_BAD_DIRECTORY);
  long st = -1;
  plant.Read("NEW", &st);
  EXPECT_EQ(st, KVD_S_NOT_FOUND);
  // A directory whose parent is missing cannot be made: 10 and no record.
  EXPECT_EQ(plant.AddProject("DEEP", plant.path() + "/no/such/DEEP"), KVD_S_BAD_DIRECTORY);
  plant.Read("DEEP", &st);
  EXPECT_EQ(st, KVD_S_NOT_FOUND);

  // No komment.txt: an empty comment, status 0.
  fs::remove(there + "komment.txt");
  std::string comment = "x";
  plant.Read("OLD", &st, &comment);
  EXPECT_EQ(st, KVD_S_OK);
  EXPECT_EQ(comment, "");
}

TEST(Projekt, UpdateChangesTheRecordOrMakesAProjectWithoutDataVersion) {
  CataloguePlant plant;
  ASSERT_EQ(plant.AddProject("P1", "P1", "first", "one"), KVD_S_OK);
  _PROJECT_ALL_REC r = plant.Read("P1");
  std::strcpy(r.szPrjBez, "changed");
  std::strcpy(r.szPrjPath, "P1");
  std::string comment = "two";
  r.lpKomment = comment.data();
  ASSERT_EQ(ProjektUpdate(plant.sel(), &r), KVD_S_OK);
  std::string got;
  EXPECT_STREQ(plant.Read("P1", nullptr, &got).szPrjBez, "changed");
  EXPECT_EQ(got, "two");
  EXPECT_EQ(ProjektCheckDBVersion(plant.sel(), Text("P1")), KVD_S_OK);  // kept

  // A project made by an update has no data version.
  _PROJECT_ALL_REC n{};
  std::strcpy(n.szPrjName, "P2");
  std::strcpy(n.szPrjPath, "P2");
  ASSERT_EQ(ProjektUpdate(plant.sel(), &n), KVD_S_OK);
  EXPECT_TRUE(fs::is_directory(plant.admin() + "P2"));
  EXPECT_EQ(ProjektCheckDBVersion(plant.sel(), Text("P2")), KVD_S_DB_VERSION);
  EXPECT_EQ(plant.Projects(), (std::vector<std::string>{"P1=changed", "P2="}));
}

TEST(Projekt, RenameChangesOnlyTheName) {
  CataloguePlant plant;
  ASSERT_EQ(plant.AddProject("A", "A_DIR", "a"), KVD_S_OK);
  ASSERT_EQ(plant.AddProject("B", "B_DIR", "b"), KVD_S_OK);
  EXPECT_EQ(ProjektRename(plant.sel(), Text("A"), Text("A"), nullptr), KVD_S_EXISTS);  // its own name is taken
  EXPECT_EQ(ProjektRename(plant.sel(), Text("A"), Text("B"), nullptr), KVD_S_EXISTS);
  EXPECT_EQ(ProjektRename(plant.sel(), Text("NONE"), Text("C"), nullptr), KVD_S_BAD_PROJECT);
  EXPECT_EQ(plant.Projects(), (std::vector<std::string>{"A=a", "B=b"}));

  ASSERT_EQ(ProjektRename(plant.sel(), Text("A"), Text("Z"), nullptr), KVD_S_OK);
  EXPECT_EQ(plant.Projects(), (std::vector<std::string>{"B=b", "Z=a"}));
  EXPECT_EQ(plant.ProjectDir("Z"), plant.admin() + "A_DIR/");  // the directory keeps its name
  EXPECT_EQ(Select("A", nullptr, 'T'), nullptr);
  Selection z(Select("Z", "V1", 'T'));
  ASSERT_NE(z.get(), nullptr);
  EXPECT_EQ(Host(z->szVersionPath), plant.admin() + "A_DIR/V1/");
}

TEST(Projekt, MoveCopiesTheTreeSwitchesTheRecordAndPrunesTheOldTree) {
  CataloguePlant plant;
  ASSERT_EQ(plant.AddProject("P", "OLD", "moving", "project comment"), KVD_S_OK);
  ASSERT_EQ(plant.AddVersion("P", "V1", "one", 3, "v1 comment"), KVD_S_OK);
  ASSERT_EQ(plant.AddVersion("P", "V2", "two"), KVD_S_OK);
  const Tree before = ReadTree(plant.admin() + "OLD");
  ASSERT_TRUE(before.count("V1/_DIRFIG.DBF"));

  plant.MakeDir("taken");
  EXPECT_EQ(ProjektMove(plant.sel(), Text("P"), Text(plant.path() + "/taken"), nullptr), KVD_S_BAD_DIRECTORY);
  EXPECT_EQ(ProjektMove(plant.sel(), Text("NONE"), Text(plant.path() + "/new"), nullptr), KVD_S_BAD_PROJECT);
  EXPECT_EQ(ReadTree(plant.admin() + "OLD"), before);

  const std::string target = plant.path() + "/moved";
  ASSERT_EQ(ProjektMove(plant.sel(), Text("P"), Text(target), nullptr), KVD_S_OK);
  EXPECT_EQ(ReadTree(target), before);
  EXPECT_FALSE(fs::exists(plant.admin() + "OLD"));
  EXPECT_EQ(plant.ProjectDir("P"), target + "/");
  EXPECT_EQ(plant.Versions("P"), (std::vector<std::string>{"V1=one", "V2=two"}));
  Selection v(Select("P", "V1", 'T'));
  _DIRFIG_REC f{};
  EXPECT_EQ(DirfigR(v, Text("F2"), &f), KVD_S_OK);
  EXPECT_EQ(f.lLrx, 20);
}

TEST(Projekt, FailedMoveLeavesCatalogueAndOldTreeAndThePartialCopy) {
  CataloguePlant plant;
  ASSERT_EQ(plant.AddProject("P", "OLD"), KVD_S_OK);
  ASSERT_EQ(plant.AddVersion("P", "V1"), KVD_S_OK);
  // A pipe is no file to copy; it sorts last, so everything else is copied before the failure.
  ASSERT_EQ(::mkfifo((plant.admin() + "OLD/ZZ_PIPE").c_str(), 0600), 0);
  const Tree before = ReadTree(plant.admin() + "OLD");
  const std::string target = plant.path() + "/moved";
  // The copy's own failure is what the move answers: 1.
  EXPECT_EQ(ProjektMove(plant.sel(), Text("P"), Text(target), nullptr), 1);
  EXPECT_EQ(ReadTree(plant.admin() + "OLD"), before);
  EXPECT_EQ(plant.ProjectDir("P"), plant.admin() + "OLD/");
  EXPECT_TRUE(fs::exists(target + "/V1/_DIRFIG.DBF"));
  EXPECT_FALSE(fs::exists(target + "/ZZ_PIPE"));
}

TEST(Projekt, CopyMakesANewProjectWithTheWholeTree) {
  CataloguePlant plant;
  ASSERT_EQ(plant.AddProject("SRC", "SRC", "source", "about the source"), KVD_S_OK);
  ASSERT_EQ(plant.AddVersion("SRC", "V1", "one", 4, "c1"), KVD_S_OK);
  ASSERT_EQ(plant.AddVersion("SRC", "V2", "two"), KVD_S_OK);
  ASSERT_EQ(plant.AddProject("OTHER", "OTHER"), KVD_S_OK);
  const Tree source = ReadTree(plant.admin() + "SRC");

  EXPECT_EQ(ProjektCopy(plant.sel(), Text("SRC"), Text("OTHER"), Text("X"), nullptr, nullptr), KVD_S_EXISTS);
  EXPECT_EQ(ProjektCopy(plant.sel(), Text("NONE"), Text("NEW"), Text("X"), nullptr, nullptr), KVD_S_BAD_PROJECT);
  EXPECT_FALSE(fs::exists(plant.admin() + "X"));

  ASSERT_EQ(ProjektCopy(plant.sel(), Text("SRC"), Text("CPY"), Text("CPY_DIR"), Text("pw"), nullptr), KVD_S_OK);
  EXPECT_EQ(ReadTree(plant.admin() + "CPY_DIR"), source);  // comment files and versions with it
  EXPECT_EQ(ReadTree(plant.admin() + "SRC"), source);
  std::string comment;
  _PROJECT_ALL_REC r = plant.Read("CPY", nullptr, &comment);
  EXPECT_STREQ(r.szPrjBez, "");  // the copy's description stays blank
  EXPECT_EQ(comment, "about the source");
  EXPECT_EQ(std::string(r.achPwd, 2), "pw");
  EXPECT_EQ(std::string(r.achPwd + 2, 8), std::string(8, ' '));  // a short password: blank behind
  EXPECT_EQ(ProjektCheckDBVersion(plant.sel(), Text("CPY")), KVD_S_OK);
  EXPECT_EQ(plant.Versions("CPY"), (std::vector<std::string>{"V1=one", "V2=two"}));
  Selection v(Select("CPY", "V1", 'T'));
  _DIRFIG_REC f{};
  EXPECT_EQ(DirfigR(v, Text("F3"), &f), KVD_S_OK);

  // A target that is there and not empty: 10, and no record.
  plant.MakeDir("full");
  std::ofstream(plant.path() + "/full/x") << "x";
  EXPECT_EQ(ProjektCopy(plant.sel(), Text("SRC"), Text("C2"), Text(plant.path() + "/full"), nullptr, nullptr),
            KVD_S_BAD_DIRECTORY);
  EXPECT_EQ(plant.Projects().size(), 3u);
}

TEST(Projekt, FailedCopyTakesItsRecordBackAndLeavesWhatWasCopied) {
  CataloguePlant plant;
  ASSERT_EQ(plant.AddProject("SRC", "SRC"), KVD_S_OK);
  ASSERT_EQ(plant.AddVersion("SRC", "V1"), KVD_S_OK);
  ASSERT_EQ(::mkfifo((plant.admin() + "SRC/ZZ_PIPE").c_str(), 0600), 0);
  EXPECT_EQ(ProjektCopy(plant.sel(), Text("SRC"), Text("CPY"), Text("CPY"), nullptr, nullptr), KVD_S_BAD_DIRECTORY);
  long st = -1;
  plant.Read("CPY", &st);
  EXPECT_EQ(st, KVD_S_NOT_FOUND);
  EXPECT_EQ(plant.Projects(), (std::vector<std::string>{"SRC="}));
  EXPECT_TRUE(fs::exists(plant.admin() + "CPY/V1/_DIRFIG.DBF"));
  // The name is free again.
  fs::remove(plant.admin() + "SRC/ZZ_PIPE");
  fs::remove_all(plant.admin() + "CPY");
  EXPECT_EQ(ProjektCopy(plant.sel(), Text("SRC"), Text("CPY"), Text("CPY"), nullptr, nullptr), KVD_S_OK);
}

TEST(Projekt, DeleteEmptiesTheVersionsAndTheProjectDirectoryAndDropsTheRecord) {
  CataloguePlant plant;
  ASSERT_EQ(plant.AddProject("KEEP", "KEEP", "kept"), KVD_S_OK);
  ASSERT_EQ(plant.AddProject("P", "P"), KVD_S_OK);
  for (const char* v : {"V1", "V2", "V3"}) ASSERT_EQ(plant.AddVersion("P", v), KVD_S_OK);
  const std::string dir = plant.admin() + "P/";
  fs::create_directories(dir + "V3/sub");  // files only go: V3 keeps its subdirectory
  std::ofstream(dir + "V3/sub/deep.txt") << "deep";
  // A file another opener holds cannot be removed: V2 stays with it.
  std::unique_ptr<platform::File> held;
  ASSERT_TRUE(platform::File::Open(dir + "V2/_DIRFIG.DBF", platform::OpenMode::kRead, &held).ok());
  ASSERT_TRUE(held->ShareLock(platform::LockKind::kShared, false).ok());

  EXPECT_EQ(ProjektDelete(plant.sel(), Text("NONE")), KVD_S_NOT_FOUND);
  ASSERT_EQ(ProjektDelete(plant.sel(), Text("P")), KVD_S_OK);
  EXPECT_EQ(plant.Projects(), (std::vector<std::string>{"KEEP=kept"}));
  EXPECT_FALSE(fs::exists(dir + "V1"));
  EXPECT_TRUE(fs::exists(dir + "V2/_DIRFIG.DBF"));
  EXPECT_EQ(ReadTree(dir + "V3"), (Tree{{"sub/", ""}, {"sub/deep.txt", "deep"}}));
  // The project directory stays, empty of files.
  for (const auto& e : fs::directory_iterator(dir)) EXPECT_TRUE(e.is_directory()) << e.path();
  EXPECT_TRUE(fs::exists(plant.admin() + "KEEP/komment.txt"));
}

TEST(Projekt, DeleteOfAProjectWhoseDirectoryIsGoneDropsTheRecord) {
  CataloguePlant plant;
  ASSERT_EQ(plant.AddProject("P", "P"), KVD_S_OK);
  fs::remove_all(plant.admin() + "P");
  EXPECT_EQ(ProjektDelete(plant.sel(), Text("P")), KVD_S_OK);
  EXPECT_TRUE(plant.Projects().empty());
  EXPECT_FALSE(fs::exists(plant.admin() + "P"));
}

TEST(Projekt, ARecordDeletedWhileAnotherReaderHoldsTheCatalogueStaysInvisible) {
  CataloguePlant plant;
  ASSERT_EQ(plant.AddProject("A", "A", "a"), KVD_S_OK);
  ASSERT_EQ(plant.AddProject("B", "B", "b"), KVD_S_OK);
  // Another reader has the catalogue open: the delete's pack cannot run, the record stays marked.
  Engine other;
  DATA4St* held = d4open(&other.code, (plant.admin() + "_PROJECT.DBF").c_str());
  ASSERT_NE(held, nullptr);
  ASSERT_EQ(ProjektDelete(plant.sel(), Text("A")), KVD_S_OK);
  EXPECT_EQ(d4recCount(held), 2);
  EXPECT_EQ(plant.Projects(), (std::vector<std::string>{"B=b"}));
  long st = -1;
  plant.Read("A", &st);
  EXPECT_EQ(st, KVD_S_NOT_FOUND);
  EXPECT_EQ(Select("A", nullptr, 'T'), nullptr);
  ASSERT_EQ(plant.AddProject("A", "A2", "again"), KVD_S_OK);
  EXPECT_EQ(plant.Projects(), (std::vector<std::string>{"A=again", "B=b"}));
  d4close(held);
}

TEST(Projekt, ListCursorGivesTheCatalogueByNameAsItStoodWhenOpened) {
  CataloguePlant plant;
  for (const char* n : {"M", "B", "Z", "A"}) ASSERT_EQ(plant.AddProject(n, std::string("D") + n, n), KVD_S_OK);
  _CURSOR_SD* c = nullptr;
  EXPECT_EQ(ProjektOpenListCursor(plant.sel(), Text("A*"), &c), KVD_S_NO_WILDCARD);
  EXPECT_EQ(c, nullptr);
  ASSERT_EQ(ProjektOpenListCursor(plant.sel(), nullptr, &c), KVD_S_OK);
  ASSERT_EQ(plant.AddProject("C", "DC"), KVD_S_OK);  // after the open: not in this list
  std::string names;
  _PROJECT_LIST_REC r;
  while (PFLC(plant.sel(), c, &r) == KVD_S_OK) names += std::string(r.szPrjName) + r.szPrjBez + " ";
  EXPECT_EQ(names, "AA BB MM ZZ ");
  EXPECT_EQ(PFLC(plant.sel(), c, &r), KVD_S_NOT_FOUND);  // and stays at the end
  EXPECT_EQ(PFLC(nullptr, c, &r), KVD_S_NO_SELECTION);
  EXPECT_EQ(ProjektCloseListCursor(plant.sel(), c), KVD_S_OK);
  EXPECT_EQ(plant.Projects().size(), 5u);
}

TEST(Projekt, EveryCallAnswers2WithoutSelection) {
  CataloguePlant plant;
  _PROJECT_ALL_REC r{};
  _CURSOR_SD* c = nullptr;
  char msg[64] = "";
  EXPECT_EQ(ProjektRead(nullptr, &r), KVD_S_NO_SELECTION);
  EXPECT_EQ(ProjektInsert(nullptr, &r), KVD_S_NO_SELECTION);
  EXPECT_EQ(ProjektUpdate(nullptr, &r), KVD_S_NO_SELECTION);
  EXPECT_EQ(ProjektDelete(nullptr, Text("P")), KVD_S_NO_SELECTION);
  EXPECT_EQ(ProjektCopy(nullptr, Text("P"), Text("Q"), Text("Q"), nullptr, nullptr), KVD_S_NO_SELECTION);
  EXPECT_EQ(ProjektRename(nullptr, Text("P"), Text("Q"), nullptr), KVD_S_NO_SELECTION);
  EXPECT_EQ(ProjektMove(nullptr, Text("P"), Text("Q"), nullptr), KVD_S_NO_SELECTION);
  EXPECT_EQ(ProjektCheckDBVersion(nullptr, Text("P")), KVD_S_NO_SELECTION);
  EXPECT_EQ(ProjektOpenListCursor(nullptr, nullptr, &c), KVD_S_NO_SELECTION);
  EXPECT_EQ(ProjektCloseListCursor(nullptr, nullptr), KVD_S_NO_SELECTION);
  EXPECT_EQ(ProjektCheckDBStructure(nullptr, msg, sizeof msg), KVD_S_NO_SELECTION);
  EXPECT_FALSE(fs::exists(plant.admin()));  // nothing was made
}

TEST(Projekt, StructureCheckLooksBesideTheCatalogueNeverInTheCurrentDirectory) {
  CataloguePlant plant;
  ASSERT_EQ(plant.AddProject("P", "P"), KVD_S_OK);
  const fs::path cwd = fs::current_path();
  fs::current_path(plant.MakeDir("cwd"));
  char msg[256] = "earlier";
  const long st = ProjektCheckDBStructure(plant.sel(), msg, sizeof msg);
  const bool made_here = fs::exists("_PROJECT.DBF");
  fs::current_path(cwd);
  EXPECT_EQ(st, KVD_S_OK);
  EXPECT_STREQ(msg, "earlier");  // a table in order leaves no trace
  EXPECT_FALSE(made_here);
  // With a version selection it is the version directory that is looked at.
  ASSERT_EQ(plant.AddVersion("P", "V1", "", 0), KVD_S_OK);
  Selection v(Select("P", "V1", 'T'));
  EXPECT_EQ(ProjektCheckDBStructure(v, msg, sizeof msg), KVD_S_OK);
  EXPECT_TRUE(fs::exists(plant.admin() + "P/V1/_PROJECT.DBF"));
}

}  // namespace
}  // namespace kvd::test
