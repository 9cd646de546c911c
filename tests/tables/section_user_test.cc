// Sections (by section and by point, with their stopping rules and time texts) and users and
// profiles (passwords as given, blank-padded names in patterns, the two-number profile key).
#include "tests/tables/tables_test_util.h"

namespace kvd::test {
namespace {

using Sections = Version;
using Users = Version;
using V = std::vector<std::string>;

_SEC_REC Line(const char* sec, const char* point, LOTYP typ = LOTYP_OBJ) {
  _SEC_REC r{};
  Put(r.szSecNo, sec);
  Put(r.szPntId, point);
  std::snprintf(r.szComment, sizeof r.szComment, "%s in %s", point, sec);
  r.LayoutTyp = typ;
  r.usObjId = 7;
  return r;
}

_DIRSEC_REC Section(const char* sec, int32_t start, int32_t interval) {
  _DIRSEC_REC r{};
  Put(r.szSecNo, sec);
  std::snprintf(r.szDescr, sizeof r.szDescr, "section %s", sec);
  r.lStartTime = start;
  r.lIntvTime = interval;
  return r;
}

TEST_F(Sections, LinesBySectionStopAtItsEnd) {
  WriteRows("Sec", std::vector<_SEC_REC>{Line("S1", "P.B"), Line("S2", "P.A"), Line("S1", "P.C", LOTYP_TEXT),
                                         Line("S10", "Q.A"), Line("S2", "P.B", LOTYP_END)});
  auto lines = [&](const char* key) {
    _CURSOR_SD* c = nullptr;
    EXPECT_EQ(SecOC(sel_, const_cast<char*>(key), &c, 0), 0);
    V out;
    _SEC_REC r{};
    while (SecFC(c, &r) == 0) out.push_back(std::string(r.szSecNo) + ":" + r.szPntId);
    SecCC(c);
    return out;
  };
  EXPECT_EQ(lines("S1    "), (V{"S1:P.B", "S1:P.C"}));
  EXPECT_EQ(lines("S1"), V{});  // compared over 6 characters: a short key stops at once
  EXPECT_EQ(lines("S10   "), (V{"S10:Q.A"}));
  EXPECT_EQ(lines("").size(), 5u);
  EXPECT_EQ(lines(nullptr).size(), 5u);

  char sec[7] = "S2";
  _SEC_REC r{};
  ASSERT_EQ(SecR(sel_, sec, &r), 0);
  EXPECT_STREQ(sec, "S2    ");  // padded in the caller's buffer
  EXPECT_STREQ(r.szPntId, "P.A");
  EXPECT_EQ(r.LayoutTyp, LOTYP_OBJ);
  EXPECT_EQ(r.usObjId, 7);
  EXPECT_STREQ(r.szComment, "P.A in S2");
  char none[7] = "S9";
  EXPECT_EQ(SecR(sel_, none, &r), KVD_S_NOT_FOUND);
}

TEST_F(Sections, LinesByPointMatchTheKeyAsGiven) {
  WriteRows("Sec", std::vector<_SEC_REC>{Line("S1", "PUMP.2"), Line("S2", "PUMP.1"), Line("S3", "VALVE.1"),
                                         Line("S4", "PUMP.10")});
  _SEC_REC r{};
  ASSERT_EQ(SecRPointId(sel_, const_cast<char*>("PUMP.1"), &r), 0);
  EXPECT_STREQ(r.szSecNo, "S2");
  ASSERT_EQ(SecRPointId(sel_, const_cast<char*>("VAL"), &r), 0);  // a shorter text: the first it begins
  EXPECT_STREQ(r.szPntId, "VALVE.1");
  EXPECT_EQ(SecRPointId(sel_, const_cast<char*>("ZZ"), &r), KVD_S_NOT_FOUND);
  auto points = [&](const char* key) {
    _CURSOR_SD* c = nullptr;
    EXPECT_EQ(SecOCPointId(sel_, const_cast<char*>(key), &c, 0), 0);
    V out;
    while (SecFCPointId(c, &r) == 0) out.push_back(r.szPntId);
    SecCCPointId(c);
    return out;
  };
  EXPECT_EQ(points("PUMP.1"), (V{"PUMP.1", "PUMP.10"}));
  EXPECT_EQ(points("PUMP"), (V{"PUMP.1", "PUMP.10", "PUMP.2"}));
  EXPECT_EQ(points(""), (V{"PUMP.1", "PUMP.10", "PUMP.2", "VALVE.1"}));
}

TEST_F(Sections, DirectoryOfSectionsWithTimes) {
  WriteRows("Dirsec", std::vector<_DIRSEC_REC>{Section("S2", 8 * 3600 + 30 * 60, 90), Section("S1", 0, 3600),
                                               Section("S3", 23 * 3600 + 59 * 60 + 59, 1)});
  EXPECT_EQ(Raw("_DIRSEC.DBF", "STRTTIM"), (V{"08:30:00", "00:00:00", "23:59:59"}));
  char sec[7] = "S2";
  _DIRSEC_REC r{};
  ASSERT_EQ(DirsecR(sel_, sec, &r), 0);
  EXPECT_EQ(r.lStartTime, 30600);
  EXPECT_EQ(r.lIntvTime, 90);
  EXPECT_STREQ(r.szDescr, "section S2");
  // Time texts as other programs wrote them: parts missing, blank.
  {
    Engine e;
    DATA4St* d = d4open(&e.code, (dir_ + "_DIRSEC.DBF").c_str());
    ASSERT_NE(d, nullptr);
    ASSERT_NE(i4open(d, (dir_ + "_DIRSEC.CDX").c_str()), nullptr);
    for (auto [no, start, intv] : {std::tuple{"S4", "08:30", "        "}, {"S5", "1:2:3", "12"}}) {
      d4appendStart(d, 0);
      d4blank(d);
      f4assign(d4field(d, "SECNO"), no);
      f4assign(d4field(d, "STRTTIM"), start);
      f4assign(d4field(d, "INTVTIM"), intv);
      ASSERT_EQ(d4append(d), 0);
    }
    d4close(d);
  }
  std::strcpy(sec, "S4");
  ASSERT_EQ(DirsecR(sel_, sec, &r), 0);
  EXPECT_EQ(r.lStartTime, 30600);
  EXPECT_EQ(r.lIntvTime, 0);
  std::strcpy(sec, "S5");
  ASSERT_EQ(DirsecR(sel_, sec, &r), 0);
  EXPECT_EQ(r.lStartTime, 3723);
  EXPECT_EQ(r.lIntvTime, 12 * 3600);
  // A key gives the start only: the sections behind it follow.
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(DirsecOC(sel_, const_cast<char*>("S2"), &c, 0), 0);
  V after;
  while (DirsecFC(c, &r) == 0) after.push_back(r.szSecNo);
  DirsecCC(c);
  EXPECT_EQ(after, (V{"S2", "S3", "S4", "S5"}));
}

_USER_REC User(const char* name, const char* pwd, uint16_t profile = 1) {
  _USER_REC r{};
  Put(r.szUserName, name);
  Put(r.szPwd, pwd);
  r.usPrflId = profile;
  r.usUserId = 65000;
  r.ulKeyCardId = 4000000000u;
  return r;
}

TEST_F(Users, UsersKeepTheirPasswordsAndNamesAreUnique) {
  _USER_REC a = User("OPERATOR", "0123456789");  // fills the column exactly
  ASSERT_EQ(UsrI(sel_, &a), 0);
  _USER_REC b = User("OP", "  secret ");
  ASSERT_EQ(UsrI(sel_, &b), 0);
  _USER_REC dup = User("OP", "other");
  EXPECT_EQ(UsrI(sel_, &dup), KVD_S_NOT_FOUND);  // there already: 1, nothing written
  EXPECT_EQ(Raw("_USER.DBF", "USRNAME").size(), 2u);
  _USER_REC r{};
  Put(r.szUserName, "OPERATOR");
  ASSERT_EQ(UsrR(sel_, &r), 0);
  EXPECT_STREQ(r.szPwd, "0123456789");
  EXPECT_EQ(r.ulKeyCardId, 4000000000u);
  EXPECT_EQ(r.usUserId, 65000);
  EXPECT_EQ(r.chAccess, 'E');
  Put(r.szUserName, "OP");
  ASSERT_EQ(UsrR(sel_, &r), 0);
  EXPECT_STREQ(r.szPwd, "secret");  // stored as given, the blanks round it gone when read
  EXPECT_EQ(Raw("_USER.DBF", "USRPWD")[1], "  secret  ");
  // Patterns are compared with the name filled to 15 characters.
  auto names = [&](const char* w) {
    _CURSOR_SD* c = nullptr;
    EXPECT_EQ(UsrOC(sel_, const_cast<char*>(w), &c, 0), 0);
    V out;
    _USER_REC u{};
    while (UsrFC(c, &u) == 0) out.push_back(u.szUserName);
    UsrCC(c);
    return out;
  };
  EXPECT_EQ(names("OP"), V{});
  EXPECT_EQ(names("OP             "), (V{"OP"}));
  EXPECT_EQ(names("O*"), (V{"OP", "OPERATOR"}));
  // The pattern is also where the cursor starts: "OP*" lies behind "OP" (a blank sorts before "*").
  EXPECT_EQ(names("OP*"), (V{"OPERATOR"}));
  EXPECT_EQ(names(""), (V{"OP", "OPERATOR"}));  // sought and kept, and no filter
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(UsrOC(sel_, nullptr, &c, 0), 0);
  _USER_REC s{};
  Put(s.szUserName, "OPERATOR");
  ASSERT_EQ(UsrSCId(c, &s), 0);
  EXPECT_EQ(s.usPrflId, 1);
  UsrCC(c);
}

TEST_F(Users, KeyCardNumbersUseAllThirtyTwoBits) {
  _USER_REC top = User("TOP", "", 1);
  top.ulKeyCardId = 4294967295u;
  ASSERT_EQ(UsrI(sel_, &top), 0);
  EXPECT_EQ(Raw("_USER.DBF", "KCID")[0], "     4294967295");
  // A number another program wrote beyond 32 bits is no key card number.
  {
    Engine e;
    DATA4St* d = d4open(&e.code, (dir_ + "_USER.DBF").c_str());
    ASSERT_NE(d, nullptr);
    d4top(d);
    ASSERT_EQ(d4lock(d, d4recNo(d)), 0);
    f4assign(d4field(d, "KCID"), "99999999999");
    d4close(d);
  }
  _USER_REC r{};
  Put(r.szUserName, "TOP");
  r.ulKeyCardId = 7;
  ASSERT_EQ(UsrR(sel_, &r), 0);
  EXPECT_EQ(r.ulKeyCardId, 0u);
}

TEST_F(Users, ProfilesAreKeyedByTwoRightAlignedNumbers) {
  for (auto [p, f] : {std::pair{1, 20}, {1, 3}, {12, 5}, {2, 20}}) {
    _USRPRFL_REC r{static_cast<uint16_t>(p), static_cast<uint16_t>(f), 0};
    ASSERT_EQ(UpI(sel_, &r), 0);
  }
  _USRPRFL_REC dup{1, 20, 0};
  EXPECT_EQ(UpI(sel_, &dup), KVD_S_NOT_FOUND);
  EXPECT_EQ(Raw("_USRPRFL.DBF", "FNCTNID")[0], " 20");
  _USRPRFL_REC r{1, 20, 0};
  ASSERT_EQ(UpR(sel_, &r), 0);
  EXPECT_EQ(r.chAccess, 'E');
  _USRPRFL_REC missing{1, 2, 0};
  EXPECT_EQ(UpR(sel_, &missing), KVD_S_NOT_FOUND);  // not the prefix of "  1 20"
  auto keys = [&](const char* w) {
    _CURSOR_SD* c = nullptr;
    EXPECT_EQ(UpOC(sel_, const_cast<char*>(w), &c, 0), 0);
    V out;
    while (UpFC(c, &r) == 0) out.push_back(std::to_string(r.usPrflId) + "/" + std::to_string(r.usFnctnId));
    UpCC(c);
    return out;
  };
  EXPECT_EQ(keys(nullptr), (V{"1/3", "1/20", "2/20", "12/5"}));  // numeric order, as right-aligned text sorts
  // The pattern is compared with the six-character key.
  EXPECT_EQ(keys("  1 20"), (V{"1/20"}));
  EXPECT_EQ(keys("  1 2"), V{});
  EXPECT_EQ(keys("  1 2*"), (V{"1/20"}));
  EXPECT_EQ(keys("  2 20"), (V{"2/20"}));
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(UpOC(sel_, nullptr, &c, 0), 0);
  _USRPRFL_REC s{12, 5, 0};
  ASSERT_EQ(UpSCId(c, &s), 0);
  EXPECT_EQ(s.chAccess, 'E');
  ASSERT_EQ(UpFC(c, &r), 0);
  EXPECT_EQ(r.usPrflId, 12);  // the search does not move on
  UpCC(c);
  char msg[256] = "";
  EXPECT_EQ(UpCheckDBStructure(sel_, msg, sizeof msg), 0);
  EXPECT_EQ(UsrCheckDBStructure(sel_, msg, sizeof msg), 0);
}

}  // namespace
}  // namespace kvd::test
