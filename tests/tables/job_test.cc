// Jobs and data-object attributes: project-level tables whose rows are chosen by the selection
// mask, the category and object bits a request is made of, where an attribute's value is stored,
// and the current value of a job's parameter.
#include <filesystem>

#include "tests/tables/tables_test_util.h"

namespace kvd::test {
namespace {

namespace fs = std::filesystem;
using V = std::vector<std::string>;

// The vocabulary counts on between its numbered entries: the last of each run lands before the
// next numbered one.
static_assert(DO_OBJNUM == 9 && DO_LVL_STS_8 == 19 && DO_INH_STS_8 == 39 && DO_TXT == 47);
static_assert(DO_DELAY_OUT_STS_8 == 65 && DO_USR_GRP_REF_OBJ == 79 && DO_VIS_ALARM_STS_8 == 135);
static_assert(DO_IS_STS_8_INH == 144 && DO_LIMIT_BW == 166 && DO_TXT5 == 176 && DO_PRN_STS_8_CHNGBL == 187);
static_assert(DO_STS_INHGRP_BLKSTS4 == 198 && DO_STS_COUNT == 204 && NUM_DOATTR == DO_STS_COUNT + 1);
static_assert(MP_BIN_STS_8 == 7 && MP_ANA_LIM_7 == 15 && PV_IEC == 30);

_JOB_REC Job(const char* name, uint32_t type, const char* db = "", const char* field = "", uint16_t len = 0) {
  _JOB_REC r{};
  Put(r.szJobName, name);
  std::snprintf(r.szJobDescr, sizeof r.szJobDescr, "job %s", name);
  Put(r.szDbName, db);
  Put(r.szDbField, field);
  r.usLen = len;
  Put(r.szEdValid, "T");
  r.ulJobType = type;
  return r;
}

_DOATTR_REC Attr(const char* name, const char* db, const char* field, uint16_t len, uint32_t q, uint32_t s = 0) {
  _DOATTR_REC r{};
  Put(r.szDoAttrName, name);
  Put(r.szDbName, db);
  Put(r.szDbField, field);
  r.usLen = len;
  Put(r.szEdValid, "T");
  r.ulJobMaskQ = q;
  r.ulJobMaskS = s;
  return r;
}

class Jobs : public Version {
 protected:
  // The jobs and attributes lie in a project directory of their own, the objects in the version.
  std::string project_ = plant_.MakeDir("prj");
  Jobs() { std::snprintf(sel_->szProjektPath, sizeof sel_->szProjektPath, "%s", project_.c_str()); }

  V JobNames(uint32_t mask) {
    _CURSOR_SD* c = nullptr;
    EXPECT_EQ(JobOC(sel_, mask, &c, 0), 0);
    V out;
    _JOB_REC r{};
    while (JobFC(c, &r) == 0) out.push_back(r.szJobName);
    JobCC(c);
    return out;
  }
  V AttrNames(uint32_t mask) {
    _CURSOR_SD* c = nullptr;
    EXPECT_EQ(DoAttrOC(sel_, mask, &c, 0), 0);
    V out;
    _DOATTR_REC r{};
    while (DoAttrFC(c, &r) == 0) out.push_back(r.szDoAttrName);
    DoAttrCC(c);
    return out;
  }
  void Objects() {
    WriteRows("Mp", std::vector<_MP_REC>{Point("MP.ANA", 'A'), Point("MP.BIN", 'B')});
    _PO_REC po = Process("PO.BIN", 'B');
    ASSERT_EQ(PoU(sel_, &po), 0);
    _CURSOR_SD* c = nullptr;
    ASSERT_EQ(RefOCAccess(sel_, const_cast<char*>("E"), &c, 1, 0), 0);
    _REF_REC ref = Reference("REF.1", "MP.ANA");
    ASSERT_EQ(RefWC(c, &ref), 0);
    RefCC(c);
  }
};

TEST_F(Jobs, TheTablesLieInTheProjectAndKeepTheirFields) {
  WriteRows("Job", std::vector<_JOB_REC>{[] {
    _JOB_REC j = Job("Open", 0x80000200u, "_MP", "DESCRIPT", 30);
    Put(j.szDllName, "KVACT");
    Put(j.szFnName, "OpenValve");
    Put(j.szJobQuery, "QUERY");
    j.ulSelectMask = 0xDEADBEEF;
    j.ulRefreshTyp = 0x10;
    j.usAttrMask = 0xFFFF;
    j.usPrmCnt = 2;
    j.aprm[0].ulTyp = 0x04000001;
    Put(j.aprm[0].szPrmpt, "Point");
    j.aprm[9].ulTyp = 0x1A000000;
    return j;
  }()});
  EXPECT_TRUE(fs::exists(project_ + "_JOB.DBF"));
  EXPECT_FALSE(fs::exists(dir_ + "_JOB.DBF"));
  EXPECT_EQ(Raw(project_, "_JOB.DBF", "SELMASK")[0], "deadbeef");
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(JobOC(sel_, 0xFFFFFF7Fu, &c, 0), 0);
  _JOB_REC r{};
  ASSERT_EQ(JobFC(c, &r), 0);
  JobCC(c);
  EXPECT_STREQ(r.szJobName, "Open");
  EXPECT_STREQ(r.szDllName, "KVACT");
  EXPECT_STREQ(r.szFnName, "OpenValve");
  EXPECT_STREQ(r.szJobQuery, "QUERY");
  EXPECT_STREQ(r.szDbField, "DESCRIPT");
  EXPECT_EQ(r.usLen, 30);
  EXPECT_EQ(r.ulSelectMask, 0xDEADBEEFu);
  EXPECT_EQ(r.ulRefreshTyp, 0x10u);
  EXPECT_EQ(r.usAttrMask, 0xFFFF);
  EXPECT_EQ(r.ulJobType, 0x80000200u);
  EXPECT_EQ(r.usPrmCnt, 2);
  EXPECT_EQ(r.aprm[0].ulTyp, 0x04000001u);
  EXPECT_STREQ(r.aprm[0].szPrmpt, "Point                         ");  // filled to 30, not trimmed
  EXPECT_EQ(r.aprm[9].ulTyp, 0x1A000000u);
  char msg[256] = "";
  EXPECT_EQ(JobCheckDBStructure(sel_, msg, sizeof msg), 0);
  EXPECT_EQ(DoAttrCheckDBStructure(sel_, msg, sizeof msg), 0);
  EXPECT_TRUE(fs::exists(project_ + "_DOATTR.DBF"));
}

TEST_F(Jobs, CategoryAndObjectBitsOfARequest) {
  EXPECT_EQ(JobCalcCatMask(RECTANGLE_OBJ, NIL_CAT), 0xFFFFFFFFu);
  EXPECT_EQ(JobCalcCatMask(EDITNUM_OBJ, ACTION_CAT), 0x280u);
  EXPECT_EQ(JobCalcCatMask(EDITTEXT_OBJ, ACTION_CAT), 0x180u);
  EXPECT_EQ(JobCalcCatMask(CHKBOX_OBJ, ACTION_CAT), 0x800u);
  EXPECT_EQ(JobCalcCatMask(RECTANGLE_OBJ, ACTION_CAT), 0u);
  EXPECT_EQ(JobCalcCatMask(VARTEXT_OBJ, VARIABLES_CAT), 0x100u);
  EXPECT_EQ(JobCalcCatMask(DIGITALMETER_OBJ, ZERO_OFFSET_CAT), 0x200u);
  EXPECT_EQ(JobCalcCatMask(TEXT_OBJ, SCALING_END_CAT), 0u);
  EXPECT_EQ(JobCalcCatMask(PIE_OBJ, DYNAMIC_CAT), 0x1000u);
  EXPECT_EQ(JobCalcCatMask(PIE_OBJ, POST_TRIGGER_CAT), 0x20000u);
  EXPECT_EQ(JobCalcCatMask(PIE_OBJ, RIGHT_MBUTTON_CAT), 0x400u);
  EXPECT_EQ(JobCalcCatMask(BUTTON_OBJ, static_cast<ATT_CATEGORY>(ACTION_CAT | DYNAMIC_CAT)), 0u);
  EXPECT_EQ(JobCalcCatMask(BUTTON_OBJ, GENERAL_CAT), 0u);

  Objects();
  char* ana = const_cast<char*>("MP.ANA");
  EXPECT_EQ(JobCalcVarMask(sel_, 0xFFFFFFFFu, MEAS_PT, ana), 0xFFFFFFFFu);
  EXPECT_EQ(JobCalcVarMask(sel_, 0, PROCESS_OBJ, ana), 0x1Fu);
  EXPECT_EQ(JobCalcVarMask(sel_, 0x200, MEAS_PT, ana), 0x202u);
  EXPECT_EQ(JobCalcVarMask(sel_, 0x200, MEAS_PT, const_cast<char*>("MP.BIN")), 0x201u);
  EXPECT_EQ(JobCalcVarMask(sel_, 0x200, MEAS_PT, const_cast<char*>("NONE")), 0x203u);
  EXPECT_EQ(JobCalcVarMask(sel_, 0x200, PROCESS_OBJ, const_cast<char*>("PO.BIN")), 0x204u);
  EXPECT_EQ(JobCalcVarMask(sel_, 0x200, PROCESS_OBJ, ana), 0x20Cu);  // not a process object
  EXPECT_EQ(JobCalcVarMask(sel_, 0x200, SYSTEM_OBJ, ana), 0x210u);
  EXPECT_EQ(JobCalcVarMask(sel_, 0x200, REFERENCE_OBJ, ana), 0x23Fu);
  EXPECT_EQ(JobCalcVarMask(sel_, 0x200, NIL_VARTYPE, ana), 0x80000200u);
}

TEST_F(Jobs, RowsChosenByTheMask) {
  WriteRows("Job", std::vector<_JOB_REC>{Job("A_NOCAT", 0x2), Job("J_ALL", 0x800FFFFFu), Job("J_BIN", 0x201),
                                         Job("J_BLANK", 0), Job("J_EDITNUM", 0x282), Job("J_NOREQ", 0x202)});
  // An edit field for numbers on an analogue point: the category bit 0x200 and the required 0x80.
  const uint32_t request = JobCalcCatMask(EDITNUM_OBJ, ACTION_CAT) | 0x2;
  EXPECT_EQ(JobNames(request), (V{"J_ALL", "J_EDITNUM"}));
  EXPECT_EQ(JobNames(0x202), (V{"J_ALL", "J_EDITNUM", "J_NOREQ"}));
  EXPECT_EQ(JobNames(0x10000), V{});  // no row passes: the cursor opens, the first fetch is the end
  // Everything behind the first row that passes, rows without category bits included.
  EXPECT_EQ(JobNames(0xFFFFFF7Fu), (V{"J_ALL", "J_BIN", "J_BLANK", "J_EDITNUM", "J_NOREQ"}));

  WriteRows("DoAttr", std::vector<_DOATTR_REC>{Attr("Q_ONLY", "", "", 0, 0x202), Attr("S_ONLY", "", "", 0, 0, 0x204),
                                               Attr("SPLIT", "", "", 0, 0x200, 0x8), Attr("NONE", "", "", 0, 0)});
  EXPECT_EQ(AttrNames(0x20A), (V{"Q_ONLY", "SPLIT"}));  // the word is JOBMASKQ | JOBMASKS
  EXPECT_EQ(AttrNames(0x204), (V{"S_ONLY"}));
  EXPECT_EQ(AttrNames(0xFFFFFF7Fu), (V{"Q_ONLY", "SPLIT", "S_ONLY"}));  // no request lifts the rule
}

TEST_F(Jobs, WhereAnAttributeIsStored) {
  Objects();
  _SO_REC so = System("SO.1");
  ASSERT_EQ(SoI(sel_, &so), 0);
  WriteRows("DoAttr", std::vector<_DOATTR_REC>{Attr("DESC", "", "DESCRIPT", 30, 0), Attr("ID", "", "pointid", 22, 0),
                                               Attr("UNIT", "_MP", "UNIT", 32, 0), [] {
                                                 _DOATTR_REC a = Attr("HIDDEN", "_MP", "SLOT", 30, 0);
                                                 Put(a.szEdValid, "F");
                                                 return a;
                                               }()});
  char name[16] = "junk", field[16] = "junk";
  unsigned short len = 0;
  auto info = [&](const char* attr, const char* object) {
    std::strcpy(name, "junk");
    std::strcpy(field, "junk");
    len = 0;
    return DoAttrGetDBInfo(sel_, const_cast<char*>(attr), const_cast<char*>(object), name, field, &len);
  };
  ASSERT_EQ(info("desc", "MP.ANA"), 0);  // any case of the name
  EXPECT_STREQ(name, "_MP");
  EXPECT_STREQ(field, "DESCRIPT");
  EXPECT_EQ(len, 30);
  ASSERT_EQ(info("DESC", "PO.BIN"), 0);
  EXPECT_STREQ(name, "_PO");
  EXPECT_STREQ(field, "DESCR");  // the other tables' column names
  ASSERT_EQ(info("ID", "SO.1"), 0);
  EXPECT_STREQ(name, "_SO");
  EXPECT_STREQ(field, "ID");
  ASSERT_EQ(info("DESC", "REF.1"), 0);  // no table of its own for a reference object
  EXPECT_STREQ(name, "");
  EXPECT_STREQ(field, "");
  ASSERT_EQ(info("UNIT", "PO.BIN"), 0);  // a table given by the row stays
  EXPECT_STREQ(name, "_MP");
  EXPECT_STREQ(field, "UNIT");
  ASSERT_EQ(info("HIDDEN", "MP.ANA"), 0);
  EXPECT_STREQ(name, "");
  EXPECT_STREQ(field, "");
  EXPECT_EQ(len, 30);  // kept even when the value is not to be had
  EXPECT_EQ(info("MISSING", "MP.ANA"), KVD_S_NOT_FOUND);
  EXPECT_STREQ(name, "");
  EXPECT_EQ(info("A_NAME_LONGER_THAN_SIXTEEN", "MP.ANA"), KVD_S_NOT_FOUND);
}

TEST_F(Jobs, TheCurrentValueOfAJobsParameter) {
  Objects();
  auto with_params = [](_JOB_REC j, std::vector<uint32_t> types) {
    j.usPrmCnt = static_cast<uint16_t>(types.size());
    for (std::size_t i = 0; i < types.size(); ++i) j.aprm[i].ulTyp = types[i];
    return j;
  };
  _JOB_REC invalid = with_params(Job("INVALID", 0, "_MP", "DESCRIPT", 30), {0x04000000});
  Put(invalid.szEdValid, "F");
  WriteRows("Job", std::vector<_JOB_REC>{
                       with_params(Job("SHOWDESC", 0, "_MP", "DESCRIPT", 30), {0x00000001, 0x05000000}),
                       with_params(Job("BYATTR", 0, "", "", 0), {0x04000000, 0x1A000000}),
                       with_params(Job("NOPOINT", 0, "_MP", "DESCRIPT", 30), {0x1A000000}),
                       with_params(Job("NOTABLE", 0, "_XX", "DESCRIPT", 30), {0x04000000}), invalid});
  WriteRows("DoAttr", std::vector<_DOATTR_REC>{Attr("DESC", "", "DESCRIPT", 12, 0)});
  char params[2][50] = {"", "MP.ANA"};
  char buf[41];
  ASSERT_EQ(JobGetDBParam(sel_, const_cast<char*>("showdesc"), params, 2, buf, 40), 0);
  EXPECT_STREQ(buf, "point MP.ANA");
  ASSERT_EQ(JobGetDBParam(sel_, const_cast<char*>("SHOWDESC"), params, 2, buf, 5), 0);
  EXPECT_STREQ(buf, "point");  // cut to the caller's room
  std::strcpy(params[1], "NO.SUCH.POINT");
  ASSERT_EQ(JobGetDBParam(sel_, const_cast<char*>("SHOWDESC"), params, 2, buf, 40), 0);
  EXPECT_EQ(std::string(buf), std::string(30, '?'));  // the field's length of question marks

  // The place from the attribute parameter; the object's kind chooses the table and column name.
  char by_attr[2][50] = {"PO.BIN", "desc"};
  ASSERT_EQ(JobGetDBParam(sel_, const_cast<char*>("BYATTR"), by_attr, 2, buf, 40), 0);
  EXPECT_STREQ(buf, "object PO.BI");  // DBLEN 12 of the attribute
  std::strcpy(by_attr[0], "REF.1");  // no table for a reference object
  EXPECT_EQ(JobGetDBParam(sel_, const_cast<char*>("BYATTR"), by_attr, 2, buf, 40), KVD_S_BAD_JOB_DB);
  std::strcpy(by_attr[1], "NOATTR");
  EXPECT_EQ(JobGetDBParam(sel_, const_cast<char*>("BYATTR"), by_attr, 2, buf, 40), KVD_S_NOT_FOUND);

  EXPECT_EQ(JobGetDBParam(sel_, const_cast<char*>("NOPOINT"), params, 1, buf, 40), KVD_S_BAD_FUNCTION);
  EXPECT_EQ(JobGetDBParam(sel_, const_cast<char*>("INVALID"), params, 1, buf, 40), KVD_S_BAD_FUNCTION);
  EXPECT_EQ(JobGetDBParam(sel_, const_cast<char*>("NOTABLE"), params, 1, buf, 40), KVD_S_BAD_JOB_DB);
  EXPECT_FALSE(fs::exists(dir_ + "_XX.DBF"));  // a value is read where its table is, never made
  EXPECT_EQ(JobGetDBParam(sel_, const_cast<char*>("NOJOB"), params, 1, buf, 8), KVD_S_NOT_FOUND);
  EXPECT_STREQ(buf, "????????");
}

}  // namespace
}  // namespace kvd::test
