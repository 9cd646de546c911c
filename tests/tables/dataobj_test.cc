// The four kinds of data object: measuring points (read-only, 141 columns), process objects
// (upsert, numeric columns), system objects (access letters, TEXT-only update) and reference
// objects (keyed by the id they are asked for), and the one id space they share.
#include <cmath>
#include <filesystem>

#include "tests/tables/tables_test_util.h"

namespace kvd::test {
namespace {

namespace fs = std::filesystem;

using DataObjects = Version;

// A point with every member set to a value of its own, so that a column read into the wrong
// member shows.
_MP_REC FullPoint(const char* id) {
  _MP_REC r = Point(id, 'B', 4711);
  Put(r.szStation, "STATION NORTH");
  Put(r.szIoAdr, "E 12.3");
  Put(r.szIfAdr, "IF-7");
  Put(r.szSlot, "rack 2 slot 5");
  Put(r.szUnit, "BAR");
  Put(r.szAipi, "AIPI01");
  Put(r.szAivi, "AIVI02");
  Put(r.szSignal, "BINARY");
  Put(r.szRemark, "remark");
  Put(r.szCompPntId, "COMPARE.POINT");
  Put(r.szHiti, "HT0001");
  Put(r.szTid, "T1");
  Put(r.szGrpAlarm, "GA001");
  Put(r.szComment, "a comment");
  r.sAcknGrp = -12;
  r.sChgParaGrp = 345;
  r.sUndefGrp = 7;
  r.r8RangeStart = -1.5f;
  r.r8RangeEnd = 1250.25f;
  r.r8SndHys = 0.125f;
  r.r8LmtHys = 2.5f;
  r.r8LmtBW = 10.0f;
  r.cScanCycle = 42;
  r.usScaleGroup = 999;
  r.usFlag = 0xA55A;
  r.vfmt = _BCD;
  r.bStateCnt = 3;
  for (int n = 0; n < 9; ++n) {
    _MP_STATE_REC& st = r.abcState[n];
    st.sLvl = static_cast<int16_t>(n * 3 - 5);
    st.sBlockGrp = static_cast<int16_t>(100 + n);
    std::snprintf(st.szStatus, sizeof st.szStatus, "state %d", n);
    st.sAaGr = static_cast<int16_t>(n + 1);
    st.sVaGr = static_cast<int16_t>(n + 20);
    st.sSoGr = static_cast<int16_t>(n + 40);
    st.bEvl = static_cast<uint8_t>('0' + n);
    st.bEvp = static_cast<uint8_t>('a' + n);
    st.sDlyIn = static_cast<int16_t>(1000 + n);
    st.sDlyOut = static_cast<int16_t>(-100 - n);
  }
  for (int n = 0; n < 7; ++n) {
    r.abcLimit[n].r8Limit = 10.5f * static_cast<float>(n) - 3.0f;
    r.abcLimit[n].sDylGr = static_cast<int16_t>(n * 11);
  }
  Put(r.szLink, "LINK.TEXT");
  Put(r.szInitVal, "  12.5   ");
  Put(r.szInitValFlg, " ");
  return r;
}

void ExpectSamePoint(const _MP_REC& a, const _MP_REC& b) {
  EXPECT_EQ(a.chObjType, b.chObjType);
  for (auto [x, y] : {std::pair{a.szPointId, b.szPointId}, {a.szDescr, b.szDescr}, {a.szStation, b.szStation},
                      {a.szIoAdr, b.szIoAdr}, {a.szIfAdr, b.szIfAdr}, {a.szSlot, b.szSlot}, {a.szUnit, b.szUnit},
                      {a.szAipi, b.szAipi}, {a.szAivi, b.szAivi}, {a.szSignal, b.szSignal},
                      {a.szRemark, b.szRemark}, {a.szCompPntId, b.szCompPntId}, {a.szHiti, b.szHiti},
                      {a.szTid, b.szTid}, {a.szGrpAlarm, b.szGrpAlarm}, {a.szComment, b.szComment},
                      {a.szLink, b.szLink}, {a.szInitVal, b.szInitVal}, {a.szInitValFlg, b.szInitValFlg}})
    EXPECT_STREQ(x, y);
  EXPECT_EQ(a.usObjId, b.usObjId);
  EXPECT_EQ(a.sAcknGrp, b.sAcknGrp);
  EXPECT_EQ(a.sChgParaGrp, b.sChgParaGrp);
  EXPECT_EQ(a.sUndefGrp, b.sUndefGrp);
  EXPECT_FLOAT_EQ(a.r8RangeStart, b.r8RangeStart);
  EXPECT_FLOAT_EQ(a.r8RangeEnd, b.r8RangeEnd);
  EXPECT_FLOAT_EQ(a.r8SndHys, b.r8SndHys);
  EXPECT_FLOAT_EQ(a.r8LmtHys, b.r8LmtHys);
  EXPECT_FLOAT_EQ(a.r8LmtBW, b.r8LmtBW);
  EXPECT_EQ(a.cScanCycle, b.cScanCycle);
  EXPECT_EQ(a.usScaleGroup, b.usScaleGroup);
  EXPECT_EQ(a.usFlag, b.usFlag);
  EXPECT_EQ(a.vfmt, b.vfmt);
  EXPECT_EQ(a.bStateCnt, b.bStateCnt);
  for (int n = 0; n < 9; ++n) {
    const _MP_STATE_REC &x = a.abcState[n], &y = b.abcState[n];
    EXPECT_EQ(x.sLvl, y.sLvl) << n;
    EXPECT_EQ(x.sBlockGrp, y.sBlockGrp) << n;
    EXPECT_STREQ(x.szStatus, y.szStatus) << n;
    EXPECT_EQ(x.sAaGr, y.sAaGr) << n;
    EXPECT_EQ(x.sVaGr, y.sVaGr) << n;
    EXPECT_EQ(x.sSoGr, y.sSoGr) << n;
    EXPECT_EQ(x.bEvl, y.bEvl) << n;
    EXPECT_EQ(x.bEvp, y.bEvp) << n;
    EXPECT_EQ(x.sDlyIn, y.sDlyIn) << n;
    EXPECT_EQ(x.sDlyOut, y.sDlyOut) << n;
  }
  for (int n = 0; n < 7; ++n) {
    EXPECT_FLOAT_EQ(a.abcLimit[n].r8Limit, b.abcLimit[n].r8Limit) << n;
    EXPECT_EQ(a.abcLimit[n].sDylGr, b.abcLimit[n].sDylGr) << n;
  }
}

TEST_F(DataObjects, MeasuringPointsHaveTheirColumnsAndReadEveryMember) {
  WriteRows("Mp", std::vector<_MP_REC>{FullPoint("P1")});
  Engine e;
  DATA4St* d = d4open(&e.code, (dir_ + "_MP.DBF").c_str());
  ASSERT_NE(d, nullptr);
  ASSERT_EQ(d4numFields(d), NO_FIELDS);
  EXPECT_STREQ(f4name(d4fieldJ(d, MP_LVL0 + 1)), "LVL0");
  EXPECT_STREQ(f4name(d4fieldJ(d, MP_LVL0 + 10 + 1)), "LVL1");
  EXPECT_STREQ(f4name(d4fieldJ(d, MP_LIMIT1 + 1)), "LIMIT1");
  EXPECT_STREQ(f4name(d4fieldJ(d, MP_DYLGRP7 + 1)), "DYLIGR7");
  EXPECT_STREQ(f4name(d4fieldJ(d, MP_COMMENT + 1)), "COMMENT");
  EXPECT_STREQ(f4name(d4fieldJ(d, MP_INITVALFLG + 1)), "INITVALFLG");
  for (short j = 1; j <= NO_FIELDS; ++j) EXPECT_EQ(f4type(d4fieldJ(d, j)), 'C') << j;
  d4close(d);

  const _MP_REC in = FullPoint("P1");
  _MP_REC out{};
  out.cLimit = -77;  // no call sets it
  Put(out.szPointId, "P1");
  ASSERT_EQ(MpR(sel_, &out), 0);
  ExpectSamePoint(in, out);
  EXPECT_EQ(out.cLimit, -77);
  // Stored as the table holds it: numbers right-aligned text, the value format as its letter.
  EXPECT_EQ(Raw("_MP.DBF", "DLYOUT3")[0], "-103");
  EXPECT_EQ(Raw("_MP.DBF", "RANGEEND")[0], "  1250.25");
  EXPECT_EQ(Raw("_MP.DBF", "VF")[0], "B");

  // The whole fetch gives the same; the short one the id, description and object number alone.
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(MpOC(sel_, nullptr, &c, 0, 2), 0);
  _MP_REC whole{};
  ASSERT_EQ(MpFC2(c, &whole), 0);
  ExpectSamePoint(in, whole);
  EXPECT_EQ(MpFC2(c, &whole), KVD_S_NOT_FOUND);
  MpCC(c);
  ASSERT_EQ(MpOC(sel_, nullptr, &c, 0, 2), 0);
  _MP_REC brief{};
  Put(brief.szUnit, "untouched");
  ASSERT_EQ(MpFC(c, &brief), 0);
  EXPECT_STREQ(brief.szPointId, "P1");
  EXPECT_STREQ(brief.szDescr, "point P1");
  EXPECT_EQ(brief.usObjId, 4711);
  EXPECT_STREQ(brief.szUnit, "untouched");
  EXPECT_EQ(brief.usFlag, 0);
  MpCC(c);
}

TEST_F(DataObjects, MeasuringPointColumnsAsAnotherProgramWroteThem) {
  _MP_REC probe = Point("NONE");
  EXPECT_EQ(MpR(sel_, &probe), KVD_S_NOT_FOUND);  // makes the empty table
  {
    Engine e;
    DATA4St* d = d4open(&e.code, (dir_ + "_MP.DBF").c_str());
    ASSERT_NE(d, nullptr);
    ASSERT_NE(i4open(d, (dir_ + "_MP.CDX").c_str()), nullptr);
    d4appendStart(d, 0);
    d4blank(d);
    f4assign(d4field(d, "POINTID"), "RAW.POINT");
    const char flag[2] = {0x01, 0x02};
    f4assignN(d4field(d, "FLAG"), flag, 2);
    f4assign(d4field(d, "INITVAL"), " 7");
    f4assign(d4field(d, "STATECNT"), "1");
    f4assign(d4field(d, "STATUS8"), "  last state  ");
    f4assign(d4field(d, "LIMIT7"), "-0.5");
    f4assign(d4field(d, "VF"), "Q");
    ASSERT_EQ(d4append(d), 0);
    d4close(d);
  }
  _MP_REC r = Point("RAW.POINT");
  ASSERT_EQ(MpR(sel_, &r), 0);
  EXPECT_EQ(r.usFlag, 513);                    // two raw bytes, the first one low: not digits
  EXPECT_STREQ(r.szInitVal, " 7       ");      // not trimmed
  EXPECT_STREQ(r.abcState[8].szStatus, "last state");  // read whatever STATECNT says
  EXPECT_FLOAT_EQ(r.abcLimit[6].r8Limit, -0.5f);
  EXPECT_EQ(r.vfmt, _NIL_FORMAT);              // a letter of no value format
  EXPECT_EQ(r.chObjType, ' ');
  EXPECT_EQ(MpGetType(sel_, const_cast<char*>("RAW.POINT")), MP_TYP_ANA);  // blank BINANA: analogue
}

TEST_F(DataObjects, MeasuringPointIdsAreExactAndCaseCounts) {
  const char* full = "ABCDEFGHIJKLMNOPQRSTUV";  // 22 characters: no blanks to add
  WriteRows("Mp", std::vector<_MP_REC>{Point(full, 'B'), Point("Valve.1", 'A')});
  _MP_REC r = Point(full);
  EXPECT_EQ(MpR(sel_, &r), 0);
  EXPECT_EQ(MpGetType(sel_, const_cast<char*>(full)), MP_TYP_BIN);
  EXPECT_EQ(MpGetType(sel_, const_cast<char*>("Valve.1")), MP_TYP_ANA);
  EXPECT_EQ(MpGetType(sel_, const_cast<char*>("VALVE.1")), MP_TYP_NIL);
  EXPECT_EQ(MpGetType(sel_, const_cast<char*>("Valve.")), MP_TYP_NIL);  // no prefix match
  _MP_REC longer = Point("");
  std::memcpy(longer.szPointId, "ABCDEFGHIJKLMNOPQRSTUVW", 23);  // 23, filling the member: no id
  EXPECT_EQ(MpR(sel_, &longer), KVD_S_NOT_FOUND);
}

// The ids each cursor gives with MpFC, in order.
std::vector<std::string> Fetched(_SELECT_SD* sel, const char* pattern, int tag, bool whole = false) {
  _CURSOR_SD* c = nullptr;
  std::vector<std::string> out;
  EXPECT_EQ(MpOC(sel, const_cast<char*>(pattern), &c, 0, tag), 0);
  _MP_REC r{};
  while ((whole ? MpFC2(c, &r) : MpFC(c, &r)) == 0) out.push_back(r.szPointId);
  MpCC(c);
  return out;
}

TEST_F(DataObjects, MeasuringPointPatterns) {
  const char* full = "AB34567890123456789012";
  WriteRows("Mp", std::vector<_MP_REC>{Point("B1", 'A', 1), Point("AB22", 'A', 5), Point("A1", 'A', 2),
                                       Point(full, 'A', 3), Point("AB1", 'A', 9), Point("AX", 'A', 4),
                                       Point("AB2", 'A', 0)});
  using V = std::vector<std::string>;
  EXPECT_EQ(Fetched(sel_, "AB", 2), (V{"AB1", "AB2", "AB22", full}));
  EXPECT_EQ(Fetched(sel_, "A?", 2), (V{"A1", "AX"}));
  EXPECT_EQ(Fetched(sel_, "AB?2", 2), (V{"AB22"}));
  EXPECT_EQ(Fetched(sel_, full, 2), (V{full}));                 // 22 characters: no "*" behind it
  EXPECT_EQ(Fetched(sel_, "AB3456789012345678901", 2), (V{full}));  // 21: a "*" is added
  EXPECT_EQ(Fetched(sel_, "*", 2).size(), 7u);
  EXPECT_EQ(Fetched(sel_, nullptr, 2), (V{"A1", "AB1", "AB2", "AB22", full, "AX", "B1"}));
  // Object-number order; the pattern filters in any order.
  EXPECT_EQ(Fetched(sel_, nullptr, 1), (V{"AB2", "B1", "A1", full, "AX", "AB22", "AB1"}));
  // The whole fetch has no filter: from the seek's position to the end.
  EXPECT_EQ(Fetched(sel_, "AB2", 2, true), (V{"AB2", "AB22", full, "AX", "B1"}));
  // No match at all: 1, with the last record read in the caller's record.
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(MpOC(sel_, const_cast<char*>("A1?"), &c, 0, 2), 0);
  _MP_REC r{};
  EXPECT_EQ(MpFC(c, &r), KVD_S_NOT_FOUND);
  EXPECT_STREQ(r.szPointId, "B1");
  MpCC(c);
}

TEST_F(DataObjects, MeasuringPointSearchOnACursor) {
  WriteRows("Mp", std::vector<_MP_REC>{Point("M1"), Point("M2"), Point("M3")});
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(MpOC(sel_, nullptr, &c, 0, 2), 0);
  _MP_REC r{};
  Put(r.szPointId, "M2");
  ASSERT_EQ(MpSCPointId(c, &r), 0);
  EXPECT_STREQ(r.szDescr, "point M2");
  _MP_REC next{};
  ASSERT_EQ(MpFC2(c, &next), 0);
  EXPECT_STREQ(next.szPointId, "M2");  // the search does not move on
  Put(r.szPointId, "M9");
  EXPECT_EQ(MpSCPointId(c, &r), KVD_S_NOT_FOUND);
  EXPECT_STREQ(r.szPointId, "M9                    ");  // padded where it stood
  MpCC(c);
}

TEST_F(DataObjects, ProcessObjectsAreAddedOrReplaced) {
  _PO_REC a = Process("PO.1", 'B');
  a.r8RangeStart = 1.23456f;
  a.r8RangeEnd = -99.5f;
  a.r4NrmGrad = 2.5f;
  a.r4NrmOffs = -0.75f;
  a.usFlag = 0xFF00;  // a NUL byte inside a character column
  a.usUsrGrp = 12;
  a.lCcaSts = -1234;
  a.lCcaVal = 99999;
  a.sFixPointFormat = 'Z';
  a.bReg = 'R';
  Put(a.szEvl, "3");
  Put(a.szInitSta, "ON");
  ASSERT_EQ(PoU(sel_, &a), 0);
  _PO_REC out = Process("PO.1");
  ASSERT_EQ(PoR(sel_, &out), 0);
  EXPECT_EQ(out.chType, 'B');
  EXPECT_FLOAT_EQ(out.r8RangeStart, 1.235f);  // three decimals in the column
  EXPECT_FLOAT_EQ(out.r8RangeEnd, -99.5f);
  EXPECT_FLOAT_EQ(out.r4NrmGrad, 2.5f);
  EXPECT_FLOAT_EQ(out.r4NrmOffs, -0.75f);
  EXPECT_EQ(out.usFlag, 0xFF00);
  EXPECT_EQ(out.usUsrGrp, 12);
  EXPECT_EQ(out.lCcaSts, -1234);
  EXPECT_EQ(out.lCcaVal, 99999);
  EXPECT_EQ(out.sFixPointFormat, 'Z');
  EXPECT_EQ(out.bReg, 'R');
  EXPECT_EQ(out.vfmt, _SIGNED);
  EXPECT_STREQ(out.szEvl, "3");
  EXPECT_STREQ(out.szInitSta, "ON       ");
  // The gradient lies in NRMOFFS, the offset in NRMGRAD; N columns with their decimals.
  EXPECT_EQ(Raw("_PO.DBF", "NRMOFFS")[0], "     2.50000");
  EXPECT_EQ(Raw("_PO.DBF", "NRMGRAD")[0], "    -0.75000");

  // A column without a member keeps what another program put there when the row is replaced.
  {
    Engine e;
    DATA4St* d = d4open(&e.code, (dir_ + "_PO.DBF").c_str());
    ASSERT_NE(d, nullptr);
    d4top(d);
    ASSERT_EQ(d4lock(d, d4recNo(d)), 0);
    f4assign(d4field(d, "STNNO"), "17");
    d4close(d);
  }
  a.chType = 'A';
  Put(a.szPoDescr, "replaced");
  ASSERT_EQ(PoU(sel_, &a), 0);
  EXPECT_EQ(Raw("_PO.DBF", "ID").size(), 1u);
  EXPECT_EQ(Raw("_PO.DBF", "STNNO")[0], "17 ");
  EXPECT_EQ(Raw("_PO.DBF", "DESCR")[0].substr(0, 8), "replaced");
  EXPECT_EQ(PoGetType(sel_, const_cast<char*>("PO.1")), PO_TYP_ANA);
}

TEST_F(DataObjects, ProcessObjectCursorsInTypeAndIdOrder) {
  for (auto [id, type] : {std::pair{"P3", 'B'}, {"P1", 'A'}, {"P2", 'B'}, {"Q1", 'A'}}) {
    _PO_REC r = Process(id, type);
    ASSERT_EQ(PoU(sel_, &r), 0);
  }
  auto all = [&](const char* w, int tag) {
    _CURSOR_SD* c = nullptr;
    EXPECT_EQ(PoOC(sel_, const_cast<char*>(w), &c, 0, tag), 0);
    std::vector<std::string> out;
    _PO_REC r{};
    while (PoFC(c, &r) == 0) out.push_back(std::string(r.szPoId) + r.chType + r.szPoDescr);
    PoCC(c);
    return out;
  };
  using V = std::vector<std::string>;
  EXPECT_EQ(all(nullptr, 2), (V{"P1Aobject P1", "P2Bobject P2", "P3Bobject P3", "Q1Aobject Q1"}));
  EXPECT_EQ(all(nullptr, 0), (V{"P1Aobject P1", "Q1Aobject Q1", "P3Bobject P3", "P2Bobject P2"}));
  EXPECT_EQ(all("P", 2).size(), 3u);
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(PoOC(sel_, nullptr, &c, 0, 2), 0);
  _PO_REC r{};
  Put(r.szPoId, "P2");
  ASSERT_EQ(PoSCId(c, &r), 0);
  EXPECT_EQ(r.chType, 'B');
  PoCC(c);
}

TEST_F(DataObjects, SystemObjects) {
  _SO_REC a = System("SO.1", 'X');
  a.r4Value = 3.14159f;
  a.lStatus = -2000000000;
  a.r4Value5 = 12345.678f;
  Put(a.szTxt5, "fifth text");
  a.usObjId = 65535;
  ASSERT_EQ(SoI(sel_, &a), 0);
  EXPECT_EQ(a.chAccess, 'E');  // set in the caller's record
  EXPECT_EQ(SoI(sel_, &a), KVD_S_EXISTS);
  _SO_REC out = System("SO.1");
  ASSERT_EQ(SoR(sel_, &out), 0);
  EXPECT_FLOAT_EQ(out.r4Value, 3.142f);
  EXPECT_EQ(out.lStatus, -2000000000);
  EXPECT_FLOAT_EQ(out.r4Value5, 12345.678f);
  EXPECT_STREQ(out.szTxt5, "fifth text");
  EXPECT_EQ(out.usObjId, 65535);
  EXPECT_EQ(out.chAccess, 'E');
  EXPECT_EQ(out.vfmt, _UNSIGNED);
  EXPECT_EQ(Raw("_SO.DBF", "STATUS")[0], std::string(19, ' ') + "-2000000000");

  // SoU changes the text of an object that is there, and nothing else.
  out.r4Value = 99.0f;
  Put(out.szSoDescr, "ignored");
  Put(out.szSoText, "new text");
  ASSERT_EQ(SoU(sel_, &out), 0);
  _SO_REC again = System("SO.1");
  ASSERT_EQ(SoR(sel_, &again), 0);
  EXPECT_STREQ(again.szSoText, "new text");
  EXPECT_FLOAT_EQ(again.r4Value, 3.142f);
  EXPECT_STREQ(again.szSoDescr, "");
  _SO_REC missing = System("SO.2");
  EXPECT_EQ(SoU(sel_, &missing), KVD_S_NOT_FOUND);
  EXPECT_EQ(Raw("_SO.DBF", "ID").size(), 1u);

  // The second order is the object number, sought as given.
  _SO_REC b = System("SO.0");
  b.usObjId = 5;
  ASSERT_EQ(SoI(sel_, &b), 0);
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(SoOC2(sel_, nullptr, &c, 0), 0);
  _SO_REC r{};
  ASSERT_EQ(SoFC(c, &r), 0);
  EXPECT_STREQ(r.szSoId, "SO.0");
  SoCC(c);
  EXPECT_EQ(SoCheckSoObj(sel_, const_cast<char*>("SO.0")), 0);
  EXPECT_EQ(SoCheckSoObj(sel_, const_cast<char*>("SO.9")), 1);
}

TEST_F(DataObjects, ReferenceObjectsAreReadByTheIdAskedFor) {
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(RefOCAccess(sel_, const_cast<char*>("E"), &c, 1, 0), 0);
  _REF_REC a = Reference("REF.A", "MP.TARGET");
  a.usUsrGrp = 3;
  a.usObjNum = 999;  // not written
  ASSERT_EQ(RefWCAccess(c, &a), 0);
  _REF_REC wrong = Reference("REF.B", "X", 'I');
  EXPECT_EQ(RefWCAccess(c, &wrong), KVD_S_COPY);  // not a letter of the cursor
  RefCC(c);
  EXPECT_EQ(Raw("_REF.DBF", "OBJNUM")[0], "     ");

  _REF_REC r{};
  Put(r.szId, "REF.A");  // RefR asks for szRefId, not szId
  r.usObjNum = 42;
  EXPECT_EQ(RefR(sel_, &r), KVD_S_NOT_FOUND);
  Put(r.szRefId, "REF.A");
  ASSERT_EQ(RefR(sel_, &r), 0);
  EXPECT_STREQ(r.szRefId, "MP.TARGET");
  EXPECT_EQ(r.usUsrGrp, 3);
  EXPECT_EQ(r.usObjNum, 42);  // as the caller left it
  EXPECT_EQ(RefCheckRefObj(sel_, const_cast<char*>("REF.A")), 0);
  EXPECT_EQ(RefCheckRefObj(sel_, const_cast<char*>("MP.TARGET")), 1);

  // A row of another program with an object number; the rows written here sort before it.
  {
    Engine e;
    DATA4St* d = d4open(&e.code, (dir_ + "_REF.DBF").c_str());
    ASSERT_NE(d, nullptr);
    ASSERT_NE(i4open(d, (dir_ + "_REF.CDX").c_str()), nullptr);
    d4appendStart(d, 0);
    d4blank(d);
    f4assign(d4field(d, "ID"), "REF.0");
    f4assign(d4field(d, "OBJNUM"), "    1");
    ASSERT_EQ(d4append(d), 0);
    d4close(d);
  }
  ASSERT_EQ(RefOC2(sel_, nullptr, &c, 0), 0);
  ASSERT_EQ(RefFC(c, &r), 0);
  EXPECT_STREQ(r.szId, "REF.A");
  RefCC(c);
  ASSERT_EQ(RefOC(sel_, const_cast<char*>("REF.?"), &c, 0, 2), 0);
  std::vector<std::string> ids;
  while (RefFC(c, &r) == 0) ids.push_back(r.szId);
  RefCC(c);
  EXPECT_EQ(ids, (std::vector<std::string>{"REF.0", "REF.A"}));
}

// One id space: the kind of an id is the first of _MP, _PO, _SO, _REF that holds it.
TEST_F(DataObjects, OneIdSpaceOverTheFourKinds) {
  WriteRows("Mp", std::vector<_MP_REC>{Point("MP.BIN", 'B'), Point("MP.ANA", 'A'), Point("BOTH.MP.PO", 'B')});
  for (auto [id, type] : {std::pair{"PO.BIN", 'B'}, {"PO.ANA", 'A'}, {"BOTH.MP.PO", 'A'}, {"BOTH.PO.SO", 'B'}}) {
    _PO_REC r = Process(id, type);
    ASSERT_EQ(PoU(sel_, &r), 0);
  }
  for (const char* id : {"SO.1", "BOTH.PO.SO", "BOTH.SO.REF"}) {
    _SO_REC r = System(id);
    ASSERT_EQ(SoI(sel_, &r), 0);
  }
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(RefOCAccess(sel_, const_cast<char*>("E"), &c, 1, 0), 0);
  for (const char* id : {"REF.1", "BOTH.SO.REF"}) {
    _REF_REC r = Reference(id, "MP.BIN");
    ASSERT_EQ(RefWC(c, &r), 0);
  }
  RefCC(c);

  struct Expect {
    const char* id;
    long kind, mp, po, so, ref;  // QueryDOType, MpGetType, PoGetType, SoCheckSoObj, RefCheckRefObj
  };
  const Expect cases[] = {
      {"MP.BIN", MEAS_PT, MP_TYP_BIN, PO_TYP_NIL, 1, 1},
      {"MP.ANA", MEAS_PT, MP_TYP_ANA, PO_TYP_NIL, 1, 1},
      {"PO.BIN", PROCESS_OBJ, MP_TYP_NIL, PO_TYP_BIN, 1, 1},
      {"PO.ANA", PROCESS_OBJ, MP_TYP_NIL, PO_TYP_ANA, 1, 1},
      {"SO.1", SYSTEM_OBJ, MP_TYP_NIL, PO_TYP_NIL, 0, 1},
      {"REF.1", REFERENCE_OBJ, MP_TYP_NIL, PO_TYP_NIL, 1, 0},
      {"BOTH.MP.PO", MEAS_PT, MP_TYP_BIN, PO_TYP_ANA, 1, 1},  // the order of the search decides
      {"BOTH.PO.SO", PROCESS_OBJ, MP_TYP_NIL, PO_TYP_BIN, 0, 1},
      {"BOTH.SO.REF", SYSTEM_OBJ, MP_TYP_NIL, PO_TYP_NIL, 0, 0},
      {"NOWHERE", NIL_VARTYPE, MP_TYP_NIL, PO_TYP_NIL, 1, 1},
      {"MP.BI", NIL_VARTYPE, MP_TYP_NIL, PO_TYP_NIL, 1, 1},  // a prefix is no id
      {"mp.bin", NIL_VARTYPE, MP_TYP_NIL, PO_TYP_NIL, 1, 1},
  };
  for (const Expect& x : cases) {
    char* id = const_cast<char*>(x.id);
    EXPECT_EQ(QueryDOType(sel_, id), x.kind) << x.id;
    EXPECT_EQ(MpGetType(sel_, id), x.mp) << x.id;
    EXPECT_EQ(PoGetType(sel_, id), x.po) << x.id;
    EXPECT_EQ(SoCheckSoObj(sel_, id), x.so) << x.id;
    EXPECT_EQ(RefCheckRefObj(sel_, id), x.ref) << x.id;
  }
  // A table that cannot be opened counts as one without the id: the search goes on.
  fs::remove(dir_ + "_MP.CDX");
  fs::create_directory(dir_ + "_MP.CDX");  // no index can be made there
  EXPECT_EQ(QueryDOType(sel_, const_cast<char*>("BOTH.MP.PO")), PROCESS_OBJ);
  EXPECT_EQ(MpGetType(sel_, const_cast<char*>("MP.BIN")), MP_TYP_NIL);
}

TEST_F(DataObjects, ChecksOfTablesWithAnImportTableLookAtBoth) {
  char msg[512] = "";
  EXPECT_EQ(SoCheckDBStructure(sel_, msg, sizeof msg), 0);
  EXPECT_TRUE(fs::exists(dir_ + "_ISO.DBF"));
  EXPECT_TRUE(fs::exists(dir_ + "_SO.DBF"));
  // An import table of an older structure is adapted as the check opens it, before the own table.
  fs::remove(dir_ + "_IREF.DBF");
  fs::remove(dir_ + "_REF.DBF");
  {
    Engine e;
    const FIELD4INFO old[] = {{"ID", 'C', 22, 0, 0}, {"DESCR", 'C', 20, 0, 0}, {nullptr, 0, 0, 0, 0}};
    d4close(d4create(&e.code, (dir_ + "_IREF.DBF").c_str(), old, nullptr));
  }
  msg[0] = '\0';
  EXPECT_EQ(RefCheckDBStructure(sel_, msg, sizeof msg), 0);
  EXPECT_TRUE(fs::exists(dir_ + "_REF.DBF"));
  {
    Engine e;
    DATA4St* d = d4open(&e.code, (dir_ + "_IREF.DBF").c_str());
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(f4len(d4field(d, "DESCR")), 30u);
    EXPECT_NE(d4field(d, "REFID"), nullptr);
    d4close(d);
  }
  EXPECT_EQ(MpCheckDBStructure(sel_, msg, sizeof msg), 0);
  EXPECT_EQ(PoCheckDBStructure(sel_, msg, sizeof msg), 0);
}

}  // namespace
}  // namespace kvd::test
