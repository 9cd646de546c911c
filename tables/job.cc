// Jobs (_JOB.DBF) and data-object attributes (_DOATTR.DBF): project-level tables, read-only here,
// each with one tag on its upper-case name, so that names are found in any case. A 32-bit mask of
// category, object and requirement bits selects the rows that go with an element and a data
// object; JobGetDBParam reads the current value a job's parameters name from the version.
#include <strings.h>

#include <cstddef>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "frame/family.h"
#include "frame/kernel.h"
#include "include/kvd_dataobj.h"
#include "lib/foundation/kvtext.h"

namespace {

using kvd::frame::Column;
using kvd::frame::Family;
using kvd::frame::FamilyDef;
using kvd::frame::KeyRule;
using kvd::frame::Level;

// The records as callers compiled them: a change of layout is a change of the interface.
static_assert(sizeof(_PRM_REC) == 36 && sizeof(_JOB_REC) == 504 && sizeof(_DOATTR_REC) == 92);

// A project-level table keyed by an upper-case name of 16 characters.
void ProjectNamed(FamilyDef& s) {
  s.level = Level::kProject;
  s.check_in_project = true;
  s.key_rule = KeyRule::kPadUpper;
}

// The ten parameter pairs PRMTYPn, PRMPRMPTn behind the job's own columns. The prompt keeps its
// blanks: it is read filled to 30 characters.
#define KVD_JOB_PARAM(n)                                                                        \
  KVD_VALUE(_JOB_REC, aprm[n].ulTyp, "PRMTYP" #n, 8, kHex),                                    \
      ::kvd::frame::TextColumn<sizeof(_PRM_REC::szPrmpt), 30>("PRMPRMPT" #n,                   \
                                                              offsetof(_JOB_REC, aprm) +       \
                                                                  (n) * sizeof(_PRM_REC) +     \
                                                                  offsetof(_PRM_REC, szPrmpt), \
                                                              false)

const Column kJobColumns[] = {
    KVD_TEXT(_JOB_REC, szJobName, "JOBNAME", 16, true),
    KVD_TEXT(_JOB_REC, szJobDescr, "JOBDESCR", 30, true),
    KVD_TEXT(_JOB_REC, szDllName, "DLLNAME", 8, true),
    KVD_TEXT(_JOB_REC, szFnName, "FNNAME", 24, true),
    KVD_TEXT(_JOB_REC, szJobQuery, "JOBQUERY", 16, true),
    KVD_VALUE(_JOB_REC, ulSelectMask, "SELMASK", 8, kHex),
    KVD_TEXT(_JOB_REC, szDbName, "DBNAME", 8, true),
    KVD_TEXT(_JOB_REC, szDbField, "DBFIELD", 10, true),
    KVD_VALUE(_JOB_REC, usLen, "DBLEN", 3, kUnsigned),
    KVD_TEXT(_JOB_REC, szEdValid, "EDVALID", 1, true),
    KVD_VALUE(_JOB_REC, ulRefreshTyp, "REFRESHTYP", 8, kHex),
    KVD_VALUE(_JOB_REC, usAttrMask, "ATTRMASK", 4, kHex),
    KVD_VALUE(_JOB_REC, ulJobType, "TYPE", 8, kHex),
    KVD_VALUE(_JOB_REC, usPrmCnt, "PRMCNT", 2, kUnsigned),
    KVD_JOB_PARAM(0), KVD_JOB_PARAM(1), KVD_JOB_PARAM(2), KVD_JOB_PARAM(3), KVD_JOB_PARAM(4),
    KVD_JOB_PARAM(5), KVD_JOB_PARAM(6), KVD_JOB_PARAM(7), KVD_JOB_PARAM(8), KVD_JOB_PARAM(9),
};
static_assert(std::size(kJobColumns) == 34);
const TAG4INFO kJobTags[] = {
    {"JOB", "upper(JOBNAME)", ".NOT. DELETED()", 0, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};
// A job's word is TYPE; the request 0xFFFFFF7F asks for every row behind the first that passes.
const Family kJob([] {
  FamilyDef s{"Job", "_JOB.DBF", "_JOB"};
  s.columns = kJobColumns;
  s.column_count = std::size(kJobColumns);
  s.tags = kJobTags;
  ProjectNamed(s);
  s.mask_columns[0] = "TYPE";
  s.mask_lift = 0xFFFFFF7Fu;
  return s;
}());

const Column kDoAttrColumns[] = {
    KVD_TEXT(_DOATTR_REC, szDoAttrName, "DOATTRNAME", 16, true),
    KVD_TEXT(_DOATTR_REC, szDoAttrDescr, "DESCR", 30, true),
    KVD_TEXT(_DOATTR_REC, szDbName, "DBNAME", 8, true),
    KVD_TEXT(_DOATTR_REC, szDbField, "DBFIELD", 10, true),
    KVD_VALUE(_DOATTR_REC, usLen, "DBLEN", 3, kUnsigned),
    KVD_TEXT(_DOATTR_REC, szEdValid, "EDVALID", 1, true),
    KVD_VALUE(_DOATTR_REC, ulRefreshTyp, "REFRESHTYP", 8, kHex),
    KVD_VALUE(_DOATTR_REC, ulJobMaskQ, "JOBMASKQ", 10, kHex),
    KVD_VALUE(_DOATTR_REC, ulJobMaskS, "JOBMASKS", 10, kHex),
    KVD_VALUE(_DOATTR_REC, ulParamType, "PARAMTYPE", 10, kHex),
    KVD_VALUE(_DOATTR_REC, usAttrMask, "ATTRMASK", 4, kHex),
};
const TAG4INFO kDoAttrTags[] = {
    {"DOATTR", "upper(DOATTRNAME)", ".NOT. DELETED()", 0, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};
// An attribute's word is JOBMASKQ | JOBMASKS; no request lifts the rule.
const Family kDoAttr([] {
  FamilyDef s{"DoAttr", "_DOATTR.DBF", "_DOATTR"};
  s.columns = kDoAttrColumns;
  s.column_count = std::size(kDoAttrColumns);
  s.tags = kDoAttrTags;
  ProjectNamed(s);
  s.mask_columns[0] = "JOBMASKQ";
  s.mask_columns[1] = "JOBMASKS";
  return s;
}());

// The category bits of an element in a category: the first row whose category is the one asked
// and whose element is the one given, or any.
constexpr int kAnyElement = -1;
struct CategoryBits {
  ATT_CATEGORY category;
  int element;
  uint32_t bits;
};
const CategoryBits kCategoryBits[] = {
    {NIL_CAT, kAnyElement, 0xFFFFFFFFu},
    {DYNAMIC_CAT, kAnyElement, 0x1000},
    {ENABLE_CAT, kAnyElement, 0x1000},
    {ACTION_CAT, ENTRYFIELD_OBJ, 0x400},
    {ACTION_CAT, BUTTON_OBJ, 0x400},
    {ACTION_CAT, CHKBOX_OBJ, 0x800},
    {ACTION_CAT, EDITTEXT_OBJ, 0x180},
    {ACTION_CAT, EDITNUM_OBJ, 0x280},
    {ACTION_CAT, LISTBOX_OBJ, 0x4000},
    {VARIABLES_CAT, RECTANGLE_OBJ, 0x200},
    {VARIABLES_CAT, BARGRAPH_OBJ, 0x200},
    {VARIABLES_CAT, RECORDER_OBJ, 0x200},
    {VARIABLES_CAT, DIGITALMETER_OBJ, 0x200},
    {VARIABLES_CAT, TEXT_OBJ, 0x100},
    {VARIABLES_CAT, VARTEXT_OBJ, 0x100},
    {SCALING_START_CAT, BARGRAPH_OBJ, 0x200},
    {SCALING_START_CAT, RECORDER_OBJ, 0x200},
    {SCALING_START_CAT, DIGITALMETER_OBJ, 0x200},
    {SCALING_END_CAT, BARGRAPH_OBJ, 0x200},
    {SCALING_END_CAT, RECORDER_OBJ, 0x200},
    {SCALING_END_CAT, DIGITALMETER_OBJ, 0x200},
    {ZERO_OFFSET_CAT, BARGRAPH_OBJ, 0x200},
    {ZERO_OFFSET_CAT, RECORDER_OBJ, 0x200},
    {ZERO_OFFSET_CAT, DIGITALMETER_OBJ, 0x200},
    {POST_TRIGGER_CAT, kAnyElement, 0x20000},
    {RIGHT_MBUTTON_CAT, kAnyElement, 0x400},
};

// The key of a name in the upper-case tags: at most 16 characters of it.
std::string NameKey(const char* name) { return std::string(name, strnlen(name, 16)); }

bool IsTrue(const char* text) { return KvIsTrue(text) != 0; }

// The parameter kinds by the top byte of their type.
bool IsPointParam(uint32_t typ) { return (typ >> 24) == 0x04 || (typ >> 24) == 0x05; }
bool IsAttrParam(uint32_t typ) { return (typ >> 24) == 0x1A; }

// The current value of column `field` of the row `point_id` in the version's table `db_name`,
// into `buffer` up to `len` characters. The table is opened as it stands, without adaption or
// creation: a value is only read where the table already is.
long ReadCurrentValue(_SELECT_SD* s, const std::string& db_name, const std::string& field, const char* point_id,
                      char* buffer, unsigned len) {
  std::string dir(s->szVersionPath);
  std::vector<char> trimmed(dir.begin(), dir.end());
  trimmed.push_back('\0');
  KvLTrim(KvRTrim(trimmed.data()));
  const std::string file = kvd::frame::JoinPath(trimmed.data(), db_name.c_str(), ".DBF");
  s->c4code.errorCode = 0;
  DATA4St* db = d4open(&s->c4code, file.c_str());
  if (db == nullptr) return KVD_S_BAD_JOB_DB;
  if (i4open(db, nullptr) == nullptr) {  // the production index, beside the table under its name
    d4close(db);
    return KVD_S_OPEN_INDEX;
  }
  d4tagSelect(db, d4tag(db, "POINTID"));
  std::string key(point_id, strnlen(point_id, 22));
  key.resize(22, ' ');
  if (d4seek(db, key.c_str()) == 0 && !field.empty()) {
    FIELD4St* f = d4field(db, field.c_str());
    if (f != nullptr) {
      f4ncpy(f, buffer, len + 1);
      KvLTrim(KvRTrim(buffer));
    }
  }
  buffer[len] = '\0';
  d4close(db);
  return KVD_S_OK;
}

}  // namespace

using namespace kvd::frame;

long JobOC(_SELECT_SD* s, uint32_t ulTyp, _CURSOR_SD** c, int a) { return FamilyOpenMaskCursor(kJob, s, ulTyp, c, a); }
long JobFC(_CURSOR_SD* c, _JOB_REC* r) { return FamilyFetchMasked(kJob, c, r); }
long JobCC(_CURSOR_SD* c) { return FamilyCloseCursor(c); }
long JobCheckDBStructure(_SELECT_SD* s, char* m, int n) { return FamilyCheck(kJob, s, m, n); }

long DoAttrOC(_SELECT_SD* s, uint32_t ulTyp, _CURSOR_SD** c, int a) {
  return FamilyOpenMaskCursor(kDoAttr, s, ulTyp, c, a);
}
long DoAttrFC(_CURSOR_SD* c, _DOATTR_REC* r) { return FamilyFetchMasked(kDoAttr, c, r); }
long DoAttrCC(_CURSOR_SD* c) { return FamilyCloseCursor(c); }
long DoAttrCheckDBStructure(_SELECT_SD* s, char* m, int n) { return FamilyCheck(kDoAttr, s, m, n); }

uint32_t JobCalcCatMask(int toty, ATT_CATEGORY tcat) {
  for (const CategoryBits& row : kCategoryBits)
    if (row.category == tcat && (row.element == kAnyElement || row.element == toty)) return row.bits;
  return 0;  // other elements of a category, and the categories without bits of their own
}

uint32_t JobCalcVarMask(_SELECT_SD* s, uint32_t ulJobMask, VAR_TYPE_ATT tvarty, char* lpszVarId) {
  if (ulJobMask == 0 || ulJobMask == 0xFFFFFFFFu) return ulJobMask | 0x1F;
  switch (tvarty) {
    case MEAS_PT:
      switch (MpGetType(s, lpszVarId)) {
        case MP_TYP_BIN: return ulJobMask | 0x1;
        case MP_TYP_ANA: return ulJobMask | 0x2;
        default: return ulJobMask | 0x3;  // an unknown point may be either
      }
    case PROCESS_OBJ:
      switch (PoGetType(s, lpszVarId)) {
        case PO_TYP_BIN: return ulJobMask | 0x4;
        case PO_TYP_ANA: return ulJobMask | 0x8;
        default: return ulJobMask | 0xC;
      }
    case SYSTEM_OBJ: return ulJobMask | 0x10;
    case REFERENCE_OBJ: return ulJobMask | 0x3F;
    default: return ulJobMask | 0x80000000u;
  }
}

long DoAttrGetDBInfo(_SELECT_SD* s, char* lpszDoAttr, char* lpszDO, char* lpszDBName, char* lpszDBField,
                     unsigned short* pusLen) {
  _DOATTR_REC attr{};
  const long status = FamilyRead(kDoAttr, s, NameKey(lpszDoAttr).c_str(), &attr);
  if (status == KVD_S_OPEN_TABLE || status == KVD_S_OPEN_INDEX) return status;
  lpszDBName[0] = '\0';
  lpszDBField[0] = '\0';
  if (status != KVD_S_OK) return status;
  *pusLen = attr.usLen;
  if (!IsTrue(attr.szEdValid)) return KVD_S_OK;  // the attribute's value is not to be had
  std::strcat(lpszDBName, attr.szDbName);
  std::strcat(lpszDBField, attr.szDbField);
  const long kind = QueryDOType(s, lpszDO);
  if (lpszDBName[0] == '\0') {
    static const char* const kDefaultTable[] = {nullptr, "_MP", "_PO", "_SO"};
    if (kind < MEAS_PT || kind > SYSTEM_OBJ) {
      lpszDBField[0] = '\0';
      return KVD_S_OK;
    }
    std::strcpy(lpszDBName, kDefaultTable[kind]);
  }
  // The attribute table names columns as the measuring points do; the other tables call the
  // description DESCR and the id ID.
  if (lpszDBField[0] != '\0' && kind != MEAS_PT) {
    if (strcasecmp(lpszDBField, "DESCRIPT") == 0) std::strcpy(lpszDBField, "DESCR");
    else if (strcasecmp(lpszDBField, "POINTID") == 0) std::strcpy(lpszDBField, "ID");
  }
  return KVD_S_OK;
}

long JobGetDBParam(_SELECT_SD* s, char* lpJob, char aszParams[][50], int cnParams, char* lpBuffer,
                   unsigned short nMaxBuffer) {
  (void)cnParams;  // the caller gives as many parameters as the job has
  _JOB_REC job{};
  const long status = FamilyRead(kJob, s, NameKey(lpJob).c_str(), &job);
  if (status == KVD_S_OPEN_TABLE || status == KVD_S_OPEN_INDEX) return status;
  // Question marks wherever the value does not reach: also what is left when it cannot be had.
  std::memset(lpBuffer, '?', nMaxBuffer);
  lpBuffer[nMaxBuffer] = '\0';
  if (status != KVD_S_OK) return status;
  if (!IsTrue(job.szEdValid)) return KVD_S_BAD_FUNCTION;
  int point = -1, attr = -1;
  const int count = job.usPrmCnt < 10 ? job.usPrmCnt : 10;
  for (int i = 0; i < count; ++i) {
    if (point < 0 && IsPointParam(job.aprm[i].ulTyp)) point = i;
    if (attr < 0 && IsAttrParam(job.aprm[i].ulTyp)) attr = i;
  }
  if (point < 0) return KVD_S_BAD_FUNCTION;
  char db_name[16] = "";
  char db_field[16] = "";
  unsigned short len = job.usLen;
  if (attr >= 0) {
    const long st = DoAttrGetDBInfo(s, aszParams[attr], aszParams[point], db_name, db_field, &len);
    if (st != KVD_S_OK) return st;
  } else {
    std::strcpy(db_name, job.szDbName);
    std::strcpy(db_field, job.szDbField);
  }
  if (len >= nMaxBuffer) len = nMaxBuffer;
  lpBuffer[len] = '\0';
  return ReadCurrentValue(s, db_name, db_field, aszParams[point], lpBuffer, len);
}
