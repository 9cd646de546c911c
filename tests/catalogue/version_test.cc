// The version catalogue: a version is its record and the directory of its name below the project.
#include <sys/stat.h>

#include "platform/dir.h"
#include "platform/file.h"
#include "tests/catalogue/catalogue_test_util.h"

namespace kvd::test {
namespace {

// A plant with project P and its selection.
class VersionPlant : public CataloguePlant {
 public:
  VersionPlant() {
    EXPECT_EQ(AddProject("P", "P"), KVD_S_OK);
    project_ = std::make_unique<Selection>(Select("P", nullptr, 'T'));
  }
  _SELECT_SD* project() const { return project_->get(); }
  std::string dir() { return admin() + "P/"; }

  _VERSION_ALL_REC ReadVersion(const std::string& name, long* status, std::string* comment = nullptr) {
    _VERSION_ALL_REC r{};
    std::snprintf(r.szVerName, sizeof r.szVerName, "%s", name.c_str());
    std::string buf(KVD_KOMMENT_MAX + 1, '\0');
    r.lpKomment = buf.data();
    *status = VersionRead(project(), &r);
    if (comment != nullptr) *comment = buf.c_str();
    return r;
  }

 private:
  std::unique_ptr<Selection> project_;
};

TEST(Version, InsertMakesTheDirectoryAndReadGivesTheRecordBack) {
  VersionPlant plant;
  _VERSION_ALL_REC r{};
  std::strcpy(r.szVerName, "V1");
  std::strcpy(r.szVerBez, "commissioning");
  std::strcpy(r.szBearbeiter, "  Jane Doe  ");
  std::string comment = "first version";
  r.lpKomment = comment.data();
  ASSERT_EQ(VersionInsert(plant.project(), &r), KVD_S_OK);
  EXPECT_EQ(ReadFile(plant.dir() + "V1/komment.txt"), "first version");
  EXPECT_EQ(VersionInsert(plant.project(), &r), KVD_S_EXISTS);

  long st = -1;
  std::string got;
  _VERSION_ALL_REC back = plant.ReadVersion("V1", &st, &got);
  ASSERT_EQ(st, KVD_S_OK);
  EXPECT_STREQ(back.szVerBez, "commissioning");
  EXPECT_STREQ(back.szBearbeiter, "Jane Doe");
  EXPECT_EQ(back.fSperre, 'F');
  EXPECT_EQ(std::strlen(back.szGenDat), 8u);
  EXPECT_EQ(got, "first version");
  plant.ReadVersion("V9", &st);
  EXPECT_EQ(st, KVD_S_NOT_FOUND);

  // An existing directory is taken over by an insert; an update that makes a version wants a new one.
  plant.MakeDir("admin/P/V2");
  std::strcpy(r.szVerName, "V2");
  ASSERT_EQ(VersionInsert(plant.project(), &r), KVD_S_OK);
  plant.MakeDir("admin/P/V3");
  std::strcpy(r.szVerName, "V3");
  EXPECT_EQ(VersionUpdate(plant.project(), &r), KVD_S_BAD_DIRECTORY);
  plant.ReadVersion("V3", &st);
  EXPECT_EQ(st, KVD_S_NOT_FOUND);
  std::strcpy(r.szVerName, "V4");
  ASSERT_EQ(VersionUpdate(plant.project(), &r), KVD_S_OK);
  EXPECT_TRUE(fs::is_directory(plant.dir() + "V4"));
  std::strcpy(r.szVerBez, "changed");
  ASSERT_EQ(VersionUpdate(plant.project(), &r), KVD_S_OK);
  EXPECT_EQ(plant.Versions("P"),
            (std::vector<std::string>{"V1=commissioning", "V2=commissioning", "V4=changed"}));
  EXPECT_EQ(VersionLock(plant.project(), Text("V1")), KVD_S_OK);
  EXPECT_EQ(VersionGetLockFlag(plant.project(), Text("NONE")), KVD_S_OK);
}

TEST(Version, NamesDifferingInCaseAloneAreOneDirectoryAndRefused) {
  VersionPlant plant;
  ASSERT_EQ(plant.AddVersion("P", "V1", "upper"), KVD_S_OK);
  _VERSION_ALL_REC r{};
  std::strcpy(r.szVerName, "v1");
  EXPECT_EQ(VersionInsert(plant.project(), &r), KVD_S_EXISTS);
  EXPECT_EQ(VersionUpdate(plant.project(), &r), KVD_S_EXISTS);
  ASSERT_EQ(plant.AddVersion("P", "V2"), KVD_S_OK);
  EXPECT_EQ(VersionCopy(plant.project(), Text("V2"), Text("v1"), nullptr), KVD_S_EXISTS);
  EXPECT_EQ(VersionRename(plant.project(), Text("V2"), Text("v1"), nullptr), KVD_S_EXISTS);
  // A change of case alone is a rename of the version's own directory.
  ASSERT_EQ(VersionRename(plant.project(), Text("V1"), Text("v1"), nullptr), KVD_S_OK);
  EXPECT_TRUE(fs::is_directory(plant.dir() + "v1"));
  EXPECT_FALSE(fs::exists(plant.dir() + "V1"));
  EXPECT_EQ(plant.Versions("P"), (std::vector<std::string>{"V2=", "v1=upper"}));
}

TEST(Version, DeleteDropsTheRecordFirstAndTheFilesIfTheyGo) {
  VersionPlant plant;
  for (const char* v : {"V1", "V2"}) ASSERT_EQ(plant.AddVersion("P", v), KVD_S_OK);
  EXPECT_EQ(VersionDelete(plant.project(), Text("NONE")), KVD_S_BAD_VERSION);
  ASSERT_EQ(VersionDelete(plant.project(), Text("V1")), KVD_S_OK);
  EXPECT_FALSE(fs::exists(plant.dir() + "V1"));
  // A directory another program holds a file in: 0, the record is gone and the directory stays.
  std::unique_ptr<platform::File> held;
  ASSERT_TRUE(platform::File::Open(plant.dir() + "V2/_DIRAS.DBF", platform::OpenMode::kRead, &held).ok());
  ASSERT_TRUE(held->ShareLock(platform::LockKind::kShared, false).ok());
  EXPECT_EQ(VersionDelete(plant.project(), Text("V2")), KVD_S_OK);
  EXPECT_TRUE(fs::exists(plant.dir() + "V2/_DIRAS.DBF"));
  EXPECT_TRUE(plant.Versions("P").empty());
}

TEST(Version, DeleteAllKeepsTheVersionsWhoseFilesStayAndLeavesTheCurrentDirectory) {
  VersionPlant plant;
  for (const char* v : {"V1", "V2", "V3"}) ASSERT_EQ(plant.AddVersion("P", v, v), KVD_S_OK);
  fs::remove_all(plant.dir() + "V3");  // nothing left to delete: the record goes
  std::unique_ptr<platform::File> held;
  ASSERT_TRUE(platform::File::Open(plant.dir() + "V2/_DIRFIG.DBF", platform::OpenMode::kRead, &held).ok());
  ASSERT_TRUE(held->ShareLock(platform::LockKind::kShared, false).ok());
  const std::string cwd = platform::CurrentDirectory();
  ASSERT_EQ(VersionDeleteAll(plant.project()), KVD_S_OK);
  EXPECT_EQ(platform::CurrentDirectory(), cwd);
  EXPECT_EQ(plant.Versions("P"), (std::vector<std::string>{"V2=V2"}));
  EXPECT_FALSE(fs::exists(plant.dir() + "V1"));
  EXPECT_TRUE(fs::exists(plant.dir() + "V2/_DIRFIG.DBF"));
  held.reset();
  ASSERT_EQ(VersionDeleteAll(plant.project()), KVD_S_OK);
  EXPECT_TRUE(plant.Versions("P").empty());
  EXPECT_FALSE(fs::exists(plant.dir() + "V2"));
  EXPECT_TRUE(fs::exists(plant.dir() + "_VERSION.DBF"));  // the project's own files stay
}

TEST(Version, CopyTakesTablesAndCommentAndLeavesDescriptionAndEditorBlank) {
  VersionPlant plant;
  ASSERT_EQ(plant.AddVersion("P", "V1", "source", 5, "the comment"), KVD_S_OK);
  fs::create_directories(plant.dir() + "V1/pictures");
  std::ofstream(plant.dir() + "V1/pictures/P1.DBF") << "picture";
  ASSERT_EQ(plant.AddVersion("P", "V2"), KVD_S_OK);
  EXPECT_EQ(VersionCopy(plant.project(), Text("V1"), Text("V2"), nullptr), KVD_S_EXISTS);
  EXPECT_EQ(VersionCopy(plant.project(), Text("NONE"), Text("V3"), nullptr), KVD_S_BAD_VERSION);

  ASSERT_EQ(VersionCopy(plant.project(), Text("V1"), Text("V3"), nullptr), KVD_S_OK);
  EXPECT_EQ(ReadTree(plant.dir() + "V3"), ReadTree(plant.dir() + "V1"));
  long st = -1;
  std::string comment;
  _VERSION_ALL_REC r = plant.ReadVersion("V3", &st, &comment);
  ASSERT_EQ(st, KVD_S_OK);
  EXPECT_STREQ(r.szVerBez, "");
  EXPECT_STREQ(r.szBearbeiter, "");
  EXPECT_EQ(r.fSperre, 'F');
  EXPECT_EQ(comment, "the comment");
  Selection v3(Select("P", "V3", 'T'));
  _DIRFIG_REC f{};
  EXPECT_EQ(DirfigR(v3, Text("F4"), &f), KVD_S_OK);

  // A stale directory of the new name with files in it: 10 and nothing done.
  std::ofstream((plant.MakeDir("admin/P/V4") + "stale.txt").c_str()) << "stale";
  EXPECT_EQ(VersionCopy(plant.project(), Text("V1"), Text("V4"), nullptr), KVD_S_BAD_DIRECTORY);
  EXPECT_EQ(ReadTree(plant.dir() + "V4"), (Tree{{"stale.txt", "stale"}}));
  EXPECT_EQ(plant.Versions("P").size(), 3u);
}

TEST(Version, FailedCopyTakesItsRecordBack) {
  VersionPlant plant;
  ASSERT_EQ(plant.AddVersion("P", "V1"), KVD_S_OK);
  ASSERT_EQ(::mkfifo((plant.dir() + "V1/ZZ_PIPE").c_str(), 0600), 0);
  EXPECT_EQ(VersionCopy(plant.project(), Text("V1"), Text("V2"), nullptr), KVD_S_COPY);
  EXPECT_EQ(plant.Versions("P"), (std::vector<std::string>{"V1="}));
  EXPECT_TRUE(fs::exists(plant.dir() + "V2/_DIRFIG.DBF"));  // what was copied stays
}

TEST(Version, RenameRenamesTheDirectoryOrNothing) {
  VersionPlant plant;
  ASSERT_EQ(plant.AddVersion("P", "V1", "one", 2, "c"), KVD_S_OK);
  ASSERT_EQ(plant.AddVersion("P", "V2", "two"), KVD_S_OK);
  const Tree v1 = ReadTree(plant.dir() + "V1");
  EXPECT_EQ(VersionRename(plant.project(), Text("V1"), Text("V2"), nullptr), KVD_S_EXISTS);
  EXPECT_EQ(VersionRename(plant.project(), Text("NONE"), Text("V3"), nullptr), KVD_S_BAD_VERSION);
  // A directory of the new name that is no version's: the rename cannot take its place.
  plant.MakeDir("admin/P/V3");
  EXPECT_EQ(VersionRename(plant.project(), Text("V1"), Text("V3"), nullptr), KVD_S_COPY);
  EXPECT_EQ(ReadTree(plant.dir() + "V1"), v1);
  EXPECT_EQ(plant.Versions("P"), (std::vector<std::string>{"V1=one", "V2=two"}));
  fs::remove(plant.dir() + "V3");

  const std::string cwd = platform::CurrentDirectory();
  ASSERT_EQ(VersionRename(plant.project(), Text("V1"), Text("NEW"), nullptr), KVD_S_OK);
  EXPECT_EQ(platform::CurrentDirectory(), cwd);
  EXPECT_EQ(ReadTree(plant.dir() + "NEW"), v1);
  EXPECT_FALSE(fs::exists(plant.dir() + "V1"));
  EXPECT_EQ(plant.Versions("P"), (std::vector<std::string>{"NEW=one", "V2=two"}));
  Selection v(Select("P", "NEW", 'T'));
  _DIRFIG_REC f{};
  EXPECT_EQ(DirfigR(v, Text("F1"), &f), KVD_S_OK);
}

TEST(Version, ListCursorAndStructureCheck) {
  VersionPlant plant;
  for (const char* v : {"B", "A", "C"}) ASSERT_EQ(plant.AddVersion("P", v, std::string("d") + v, 0), KVD_S_OK);
  EXPECT_EQ(plant.Versions("P"), (std::vector<std::string>{"A=dA", "B=dB", "C=dC"}));
  _CURSOR_SD* c = reinterpret_cast<_CURSOR_SD*>(&plant);
  EXPECT_EQ(VersionOpenListCursor(plant.project(), Text("*"), &c), KVD_S_NO_WILDCARD);
  EXPECT_EQ(c, nullptr);
  // A project whose directory is gone: the version catalogue cannot be opened.
  ASSERT_EQ(plant.AddProject("GONE", "GONE"), KVD_S_OK);
  Selection gone(Select("GONE", nullptr, 'T'));
  fs::remove_all(plant.admin() + "GONE");
  EXPECT_EQ(VersionOpenListCursor(gone, nullptr, &c), KVD_S_OPEN_TABLE);
  _VERSION_ALL_REC r{};
  std::strcpy(r.szVerName, "V1");
  EXPECT_EQ(VersionInsert(gone, &r), KVD_S_OPEN_TABLE);

  char msg[128] = "";
  EXPECT_EQ(VersionCheckDBStructure(plant.project(), msg, sizeof msg), KVD_S_OK);
  EXPECT_STREQ(msg, "");
  EXPECT_EQ(VersionCheckDBStructure(nullptr, msg, sizeof msg), KVD_S_NO_SELECTION);
}

}  // namespace
}  // namespace kvd::test
