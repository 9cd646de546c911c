// Write cursors by access letter replace the rows of their letters and leave the others: an import
// run twice gives the second import's rows beside the entered ones, never both imports.
#include <algorithm>

#include "tests/tables/tables_test_util.h"

namespace kvd::test {
namespace {

using Imports = Version;

std::vector<std::string> Sorted(std::vector<std::string> v) {
  for (std::string& s : v) s.erase(s.find_last_not_of(' ') + 1);
  std::sort(v.begin(), v.end());
  return v;
}
using V = std::vector<std::string>;

// One import of system objects: the rows of `ids` with letter "I", into _ISO.DBF or _SO.DBF.
void ImportSystem(_SELECT_SD* sel, const V& ids, int to_import_table) {
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(SoOCAccess(sel, const_cast<char*>("I"), &c, 1, to_import_table), 0);
  for (const std::string& id : ids) {
    _SO_REC r = System(id.c_str(), 'E');
    ASSERT_EQ(SoGaWC(c, &r), 0);
    EXPECT_EQ(r.chAccess, 'I');
  }
  SoCC(c);
}

TEST_F(Imports, SystemObjectsImportedTwiceKeepTheEnteredAndTheOtherTable) {
  for (const char* id : {"SO.E1", "SO.E2"}) {
    _SO_REC r = System(id);
    ASSERT_EQ(SoI(sel_, &r), 0);
  }
  ImportSystem(sel_, {"SO.I1", "SO.I2", "SO.I3"}, 0);
  ImportSystem(sel_, {"SO.J1", "SO.J2"}, 1);
  EXPECT_EQ(Sorted(Raw("_SO.DBF", "ID")), (V{"SO.E1", "SO.E2", "SO.I1", "SO.I2", "SO.I3"}));
  // The second import into each table replaces its letter's rows there and nowhere else.
  ImportSystem(sel_, {"SO.I2", "SO.I4"}, 0);
  EXPECT_EQ(Sorted(Raw("_SO.DBF", "ID")), (V{"SO.E1", "SO.E2", "SO.I2", "SO.I4"}));
  EXPECT_EQ(Sorted(Raw("_ISO.DBF", "ID")), (V{"SO.J1", "SO.J2"}));
  ImportSystem(sel_, {"SO.J3"}, 1);
  EXPECT_EQ(Sorted(Raw("_ISO.DBF", "ID")), (V{"SO.J3"}));
  EXPECT_EQ(Sorted(Raw("_SO.DBF", "ID")), (V{"SO.E1", "SO.E2", "SO.I2", "SO.I4"}));

  // Reading by letter; a set of two letters; GaD removes the imported rows of _SO.DBF only.
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(SoOCAccess(sel_, const_cast<char*>("E"), &c, 0, 0), 0);
  V entered;
  _SO_REC r{};
  while (SoFCAccess(c, &r) == 0) entered.push_back(r.szSoId);
  SoCC(c);
  EXPECT_EQ(Sorted(entered), (V{"SO.E1", "SO.E2"}));
  ASSERT_EQ(SoGaD(sel_), 0);
  EXPECT_EQ(Sorted(Raw("_SO.DBF", "ID")), (V{"SO.E1", "SO.E2"}));
  EXPECT_EQ(Sorted(Raw("_ISO.DBF", "ID")), (V{"SO.J3"}));
  ASSERT_EQ(SoOCAccess(sel_, const_cast<char*>("EI"), &c, 1, 0), 0);
  SoCC(c);
  EXPECT_TRUE(Raw("_SO.DBF", "ID").empty());
}

TEST_F(Imports, ReferenceObjectsImportedTwice) {
  auto import = [&](const V& ids, const char* letters, char letter, int to_import_table) {
    _CURSOR_SD* c = nullptr;
    ASSERT_EQ(RefOCAccess(sel_, const_cast<char*>(letters), &c, 1, to_import_table), 0);
    for (const std::string& id : ids) {
      _REF_REC r = Reference(id.c_str(), "TARGET", letter);
      ASSERT_EQ(RefWCAccess(c, &r), 0);
    }
    RefCC(c);
  };
  import({"R.E1"}, "E", 'E', 0);
  import({"R.I1", "R.I2"}, "I", 'I', 0);
  import({"R.I3"}, "I", 'I', 0);
  EXPECT_EQ(Sorted(Raw("_REF.DBF", "ID")), (V{"R.E1", "R.I3"}));
  import({"R.X1"}, "I", 'I', 1);
  import({"R.X2"}, "I", 'I', 1);
  EXPECT_EQ(Sorted(Raw("_IREF.DBF", "ID")), (V{"R.X2"}));
  EXPECT_EQ(Sorted(Raw("_REF.DBF", "ID")), (V{"R.E1", "R.I3"}));
  // A cursor for reading removes nothing.
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(RefOCAccess(sel_, const_cast<char*>("EI"), &c, 0, 0), 0);
  RefCC(c);
  EXPECT_EQ(Raw("_REF.DBF", "ID").size(), 2u);
}

TEST_F(Imports, UsersAndProfilesImportedTwice) {
  _USER_REC admin{};
  Put(admin.szUserName, "ADMIN");
  ASSERT_EQ(UsrI(sel_, &admin), 0);
  EXPECT_EQ(admin.chAccess, 'E');
  _USRPRFL_REC own{1, 1, 0};
  ASSERT_EQ(UpI(sel_, &own), 0);
  for (int run = 0; run < 2; ++run) {
    _CURSOR_SD* c = nullptr;
    ASSERT_EQ(UsrOCAccess(sel_, const_cast<char*>("I"), &c, 1), 0);
    for (const char* name : {"OP1", "OP2"}) {
      _USER_REC u{};
      std::snprintf(u.szUserName, sizeof u.szUserName, "%s.%d", name, run);
      ASSERT_EQ(UsrGaWC(c, &u), 0);
    }
    UsrCC(c);
    ASSERT_EQ(UpOCAccess(sel_, const_cast<char*>("I"), &c, 1), 0);
    for (uint16_t f = 1; f <= 3; ++f) {
      _USRPRFL_REC p{static_cast<uint16_t>(2 + run), f, 0};
      ASSERT_EQ(UpGaWC(c, &p), 0);
    }
    UpCC(c);
  }
  EXPECT_EQ(Sorted(Raw("_USER.DBF", "USRNAME")), (V{"ADMIN", "OP1.1", "OP2.1"}));
  EXPECT_EQ(Sorted(Raw("_USRPRFL.DBF", "PRFLID")), (V{"  1", "  3", "  3", "  3"}));
  ASSERT_EQ(UsrGaD(sel_), 0);
  ASSERT_EQ(UpGaD(sel_), 0);
  EXPECT_EQ(Sorted(Raw("_USER.DBF", "USRNAME")), (V{"ADMIN"}));
  EXPECT_EQ(Sorted(Raw("_USRPRFL.DBF", "PRFLID")), (V{"  1"}));
}

}  // namespace
}  // namespace kvd::test
