// The data bank dictionary, read through the library from tables written from outside, and the
// comment files.
#include <sys/stat.h>

#include "catalogue/catalogue.h"
#include "tests/catalogue/catalogue_test_util.h"

namespace kvd::test {
namespace {

using catalogue::kColumnsDbDef;
using catalogue::kSignalDbDef;
using catalogue::kStatusDbDef;
using catalogue::kTablesDbDef;
using catalogue::kUnitDbDef;

// Writes a table as another program would: `rows` of field texts in definition order; a row whose
// first text is "*" is written and then marked deleted.
void WriteTable(const std::string& file, const FIELD4INFO* def, const std::vector<std::vector<std::string>>& rows) {
  Engine e;
  DATA4St* d = d4create(&e.code, file.c_str(), def, nullptr);
  ASSERT_NE(d, nullptr) << file;
  for (const auto& row : rows) {
    const bool deleted = !row.empty() && row[0] == "*";
    d4appendStart(d, 0);
    d4blank(d);
    for (std::size_t i = deleted ? 1 : 0; i < row.size(); ++i)
      f4assign(d4fieldJ(d, static_cast<short>(i + (deleted ? 0 : 1))), row[i].c_str());
    ASSERT_EQ(d4append(d), 0);
    if (deleted) d4delete(d);
  }
  d4close(d);
}

class DictionaryPlant : public CataloguePlant {
 public:
  DictionaryPlant() {
    EXPECT_EQ(AddProject("P", "P"), KVD_S_OK);
    EXPECT_EQ(AddVersion("P", "V1", "", 0), KVD_S_OK);
    project_ = std::make_unique<Selection>(Select("P", nullptr, 'T'));
    version_ = std::make_unique<Selection>(Select("P", "V1", 'T'));
  }
  _SELECT_SD* project() const { return project_->get(); }
  _SELECT_SD* version() const { return version_->get(); }
  std::string dir() { return admin() + "P/"; }

 private:
  std::unique_ptr<Selection> project_, version_;
};

TEST(Dictionary, DBankReadFindsTheExactDisplayNameByWalkingTheTable) {
  DictionaryPlant plant;
  const std::string full(25, 'N');  // a name as wide as its field
  WriteTable(plant.dir() + "_TABLES.DBF", kTablesDbDef,
             {{"Measuring points", "_MP.DBF", "M"},
              {"*", "Removed", "_OLD.DBF", "O"},
              {full, "_FULL.DBF", "F"},
              {"Process objects", "_PO.DBF", "P"}});
  _DBANK_REC r{};
  std::strcpy(r.szBez, "Process objects");
  ASSERT_EQ(DBankRead(plant.project(), &r), KVD_S_OK);
  EXPECT_STREQ(r.szDbName, "_PO.DBF");
  EXPECT_STREQ(r.szKen, "P");
  std::strcpy(r.szBez, full.c_str());
  ASSERT_EQ(DBankRead(plant.project(), &r), KVD_S_OK);
  EXPECT_STREQ(r.szDbName, "_FULL.DBF");
  std::strcpy(r.szBez, "process objects");  // the compare is exact
  EXPECT_EQ(DBankRead(plant.project(), &r), KVD_S_NOT_FOUND);
  std::strcpy(r.szBez, "Removed");
  EXPECT_EQ(DBankRead(plant.project(), &r), KVD_S_NOT_FOUND);

  _CURSOR_SD* c = nullptr;
  EXPECT_EQ(DBankOpenCursor(plant.project(), Text("*"), &c), KVD_S_NO_WILDCARD);
  ASSERT_EQ(DBankOpenCursor(plant.project(), nullptr, &c), KVD_S_OK);
  std::vector<std::string> got;
  while (DBankFetchCursor(plant.project(), c, &r) == KVD_S_OK) got.push_back(std::string(r.szBez) + "|" + r.szDbName);
  EXPECT_EQ(DBankFetchCursor(plant.project(), c, &r), KVD_S_NOT_FOUND);
  EXPECT_EQ(DBankCloseCursor(plant.project(), c), KVD_S_OK);
  EXPECT_EQ(got, (std::vector<std::string>{"Measuring points|_MP.DBF", full + "|_FULL.DBF", "Process objects|_PO.DBF"}));
}

TEST(Dictionary, DbFeldReadsAColumnOfOneDataBankAndTheCursorListsOneDataBank) {
  DictionaryPlant plant;
  WriteTable(plant.dir() + "_COLUMNS.DBF", kColumnsDbDef,
             {{"_PO.DBF", "Object id", "OBJID", "22"},
              {"_MP.DBF", "Point id", "POINTID", "22"},
              {"_MP.DBF", "Description", "DESCRIPT", "30"},
              {"_MP.DBF", "Unit", "UNIT", " 8"},
              {"_SO.DBF", "Description", "DESCR", "30"}});
  _DBFELD_REC r{};
  std::strcpy(r.szDbName, "_MP.DBF");
  std::strcpy(r.szBez, "Unit");
  ASSERT_EQ(DbFeldRead(plant.project(), &r), KVD_S_OK);
  EXPECT_STREQ(r.szDbFeld, "UNIT");
  EXPECT_STREQ(r.szLen, "8");
  EXPECT_EQ(r.wSize, 8);
  // A column that another data bank has: 1.
  std::strcpy(r.szDbName, "_PO.DBF");
  std::strcpy(r.szBez, "Description");
  EXPECT_EQ(DbFeldRead(plant.project(), &r), KVD_S_NOT_FOUND);
  std::strcpy(r.szDbName, "_XX.DBF");
  EXPECT_EQ(DbFeldRead(plant.project(), &r), KVD_S_NOT_FOUND);

  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(DbFeldOpenCursor(plant.project(), nullptr, &c), KVD_S_OK);
  EXPECT_EQ(DbFeldFetchCursor(plant.project(), c, &r), KVD_S_NOT_FOUND);  // no data bank: nothing
  DbFeldCloseCursor(plant.project(), c);
  ASSERT_EQ(DbFeldOpenCursor(plant.project(), Text("_MP.DBF"), &c), KVD_S_OK);
  std::vector<std::string> got;
  while (DbFeldFetchCursor(plant.project(), c, &r) == KVD_S_OK) got.push_back(std::string(r.szBez) + "|" + r.szDbFeld);
  DbFeldCloseCursor(plant.project(), c);
  EXPECT_EQ(got, (std::vector<std::string>{"Point id|POINTID", "Description|DESCRIPT", "Unit|UNIT"}));
}

TEST(Dictionary, TextListsGiveTheirTextsCutToTheRecord) {
  DictionaryPlant plant;
  const std::string v = plant.dir() + "V1/";
  WriteTable(v + "X_Unit.DBF", kUnitDbDef, {{"DEGC", "degrees Celsius"}, {"LONG", std::string(32, 'u')}});
  WriteTable(v + "_Signal.DBF", kSignalDbDef, {{"BINARY"}, {"*", "GONE"}, {"ANALOG"}});
  WriteTable(v + "X_Status.DBF", kStatusDbDef, {{"ON", "  switched on  "}});
  struct {
    long (*open)(_SELECT_SD*, _CURSOR_SD**, int);
    std::vector<std::string> want;
  } lists[] = {{UntTxtOC, {"degrees Celsius", std::string(30, 'u')}},
               {SgnlTxtOC, {"BINARY", "ANALOG"}},
               {SttsTxtOC, {"switched on"}}};
  for (const auto& l : lists) {
    _CURSOR_SD* c = nullptr;
    ASSERT_EQ(l.open(plant.version(), &c, 0), KVD_S_OK);
    std::vector<std::string> got;
    _USS_TXT_REC r;
    while (TxtFC(plant.version(), c, &r) == KVD_S_OK) got.push_back(r.szText);
    EXPECT_EQ(TxtCC(plant.version(), c), KVD_S_OK);
    EXPECT_EQ(got, l.want);
  }
  // Opened again and again, a definition whose text field is "Text" does not rebuild the table.
  struct stat before {}, after {};
  ::stat((v + "X_Unit.DBF").c_str(), &before);
  for (int i = 0; i < 3; ++i) {
    _CURSOR_SD* c = nullptr;
    ASSERT_EQ(UntTxtOC(plant.version(), &c, 0), KVD_S_OK);
    TxtCC(plant.version(), c);
  }
  ::stat((v + "X_Unit.DBF").c_str(), &after);
  EXPECT_EQ(before.st_ino, after.st_ino);
  char msg[256] = "";
  EXPECT_EQ(TxtCheckDBStructure(plant.version(), msg, sizeof msg), KVD_S_OK);
  EXPECT_STREQ(msg, "");
}

TEST(Dictionary, TextListsWantAVersionAndReportAnyFailureAs36) {
  DictionaryPlant plant;
  _CURSOR_SD* c = reinterpret_cast<_CURSOR_SD*>(&plant);
  // A project selection has no version directory: the lists are not looked for anywhere else.
  EXPECT_EQ(SgnlTxtOC(plant.project(), &c, 0), KVD_S_NO_SELECTION);
  EXPECT_EQ(c, nullptr);
  char msg[256] = "";
  EXPECT_EQ(TxtCheckDBStructure(plant.project(), msg, sizeof msg), KVD_S_NO_SELECTION);
  // A list that cannot be opened: 6 from its cursor, 36 from the check, which stops there.
  fs::create_directory(plant.dir() + "V1/_Signal.DBF");
  EXPECT_EQ(SgnlTxtOC(plant.version(), &c, 0), KVD_S_OPEN_TABLE);
  EXPECT_EQ(TxtCheckDBStructure(plant.version(), msg, sizeof msg), KVD_S_STRUCTURE);
  EXPECT_TRUE(fs::exists(plant.dir() + "V1/X_Unit.DBF"));
  EXPECT_FALSE(fs::exists(plant.dir() + "V1/X_Status.DBF"));
}

TEST(Dictionary, StructureChecksOfTheProjectTables) {
  DictionaryPlant plant;
  char msg[256] = "";
  EXPECT_EQ(DBankCheckDBStructure(plant.project(), msg, sizeof msg), KVD_S_OK);
  EXPECT_EQ(DbFeldCheckDBStructure(plant.project(), msg, sizeof msg), KVD_S_OK);
  EXPECT_STREQ(msg, "");
  EXPECT_TRUE(fs::exists(plant.dir() + "_TABLES.DBF"));  // made empty on first use
  // A table that cannot be opened: 6, with its header line in the message.
  fs::remove(plant.dir() + "_COLUMNS.DBF");
  fs::create_directory(plant.dir() + "_COLUMNS.DBF");
  EXPECT_EQ(DbFeldCheckDBStructure(plant.project(), msg, sizeof msg), KVD_S_OPEN_TABLE);
  EXPECT_NE(std::string(msg).find("_COLUMNS:"), std::string::npos);
  _DBFELD_REC r{};
  EXPECT_EQ(DbFeldRead(plant.project(), &r), KVD_S_OPEN_TABLE);
  _CURSOR_SD* c = nullptr;
  EXPECT_EQ(DbFeldOpenCursor(plant.project(), nullptr, &c), KVD_S_OPEN_TABLE);
  // An index that cannot be read: 7.
  fs::remove(plant.dir() + "_COLUMNS.DBF");
  WriteTable(plant.dir() + "_COLUMNS.DBF", kColumnsDbDef, {{"_MP.DBF", "Unit", "UNIT", "8"}});
  std::ofstream(plant.dir() + "_COLUMNS.CDX") << std::string(1024, 'x');
  EXPECT_EQ(DbFeldRead(plant.project(), &r), KVD_S_OPEN_INDEX);
  EXPECT_EQ(DbFeldOpenCursor(plant.project(), nullptr, &c), KVD_S_OPEN_INDEX);
  EXPECT_EQ(c, nullptr);
}

TEST(Komment, WrittenWholeAndReadUpToItsLimit) {
  TempDir dir;
  const std::string d = dir.path();
  EXPECT_EQ(catalogue::WriteKomment(d.c_str(), ""), KVD_S_OK);
  EXPECT_EQ(ReadFile(d + "/komment.txt"), "");
  std::string buf(KVD_KOMMENT_MAX + 1, 'x');
  EXPECT_EQ(catalogue::ReadKomment(d.c_str(), buf.data()), KVD_S_OK);
  EXPECT_STREQ(buf.c_str(), "");
  // Longer than a read gives: cut at the limit and terminated.
  const std::string big(KVD_KOMMENT_MAX + 100, 'k');
  EXPECT_EQ(catalogue::WriteKomment((d + "/").c_str(), big.c_str()), KVD_S_OK);
  EXPECT_EQ(catalogue::ReadKomment(d.c_str(), buf.data()), KVD_S_OK);
  EXPECT_EQ(std::strlen(buf.c_str()), static_cast<std::size_t>(KVD_KOMMENT_MAX));
  // Made anew: a shorter text leaves nothing of the longer one.
  EXPECT_EQ(catalogue::WriteKomment(d.c_str(), "short"), KVD_S_OK);
  EXPECT_EQ(ReadFile(d + "/komment.txt"), "short");
  // Missing: empty, 0. A directory that is not there: 16 on writing.
  EXPECT_EQ(catalogue::ReadKomment((d + "/none").c_str(), buf.data()), KVD_S_OK);
  EXPECT_STREQ(buf.c_str(), "");
  EXPECT_EQ(catalogue::WriteKomment((d + "/none").c_str(), "x"), KVD_S_FILE_OPEN);
}

}  // namespace
}  // namespace kvd::test
