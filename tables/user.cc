// Operators and profiles: _USER.DBF and _USRPRFL.DBF in the version directory, both with the
// access-letter set of operations.
#include <cstddef>
#include <cstring>
#include <iterator>
#include <string>

#include "frame/family.h"
#include "include/kvd_user.h"

namespace {

using kvd::frame::Column;
using kvd::frame::Family;
using kvd::frame::FamilyDef;
using kvd::frame::FetchFilter;
using kvd::frame::Fill;

// The records as callers compiled them: a change of layout is a change of the interface.
static_assert(sizeof(_USER_REC) == 40 && sizeof(_USRPRFL_REC) == 6);

// What both families share: I opens for reading (no backup) and answers 1 for a key that is
// there; FC compares its pattern with the key as the index holds it.
void Operators(FamilyDef& s) {
  s.key_tag = "LINKKEY";
  s.duplicate_status = KVD_S_NOT_FOUND;
  s.insert_access = 0;
  s.fetch_filter = FetchFilter::kWild;
  s.wild_on_stored_key = true;
}

const Column kUsrColumns[] = {
    KVD_TEXT(_USER_REC, szUserName, "USRNAME", 15, true),
    KVD_TEXT(_USER_REC, szPwd, "USRPWD", 10, true),  // as given; only the blanks round it go when read
    KVD_VALUE(_USER_REC, usUserId, "USRID", 5, kUnsigned),
    KVD_VALUE(_USER_REC, ulKeyCardId, "KCID", 15, kUnsigned),
    KVD_VALUE(_USER_REC, chAccess, "ACCESS", 1, kChar),
    KVD_VALUE(_USER_REC, usPrflId, "PRFLID", 3, kUnsigned),
};
const TAG4INFO kUsrTags[] = {
    {"LINKKEY", "USRNAME", ".NOT. DELETED()", 0, 0},
    {"ACCESS", "ACCESS", ".NOT. DELETED()", 0, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};
const Family kUsr([] {
  FamilyDef s{"Usr", "_USER.DBF", "_USER"};
  s.columns = kUsrColumns;
  s.column_count = std::size(kUsrColumns);
  s.tags = kUsrTags;
  Operators(s);
  s.access_column = 4;
  return s;
}());

// The profile key: PRFLID and FNCTNID, each right-aligned in 3 characters as the engine stores them.
const Column kUpColumns[] = {
    KVD_VALUE(_USRPRFL_REC, usPrflId, "PRFLID", 3, kUnsigned),
    KVD_VALUE(_USRPRFL_REC, usFnctnId, "FNCTNID", 3, kUnsigned),
    KVD_VALUE(_USRPRFL_REC, chAccess, "ACCESS", 1, kChar),
};
const TAG4INFO kUpTags[] = {
    {"LINKKEY", "PRFLID+FNCTNID", ".NOT. DELETED()", 0, 0},
    {"ACCESS", "ACCESS", ".NOT. DELETED()", 0, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};
const Family kUp([] {
  FamilyDef s{"Up", "_USRPRFL.DBF", "_USRPRFL"};
  s.columns = kUpColumns;
  s.column_count = std::size(kUpColumns);
  s.tags = kUpTags;
  Operators(s);
  s.key_column2 = 1;
  s.access_column = 2;
  return s;
}());

std::string UserName(const _USER_REC* r) { return std::string(r->szUserName, strnlen(r->szUserName, sizeof r->szUserName)); }

}  // namespace

using namespace kvd::frame;

long UsrR(_SELECT_SD* s, _USER_REC* r) { return FamilyRead(kUsr, s, UserName(r).c_str(), r); }
long UsrI(_SELECT_SD* s, _USER_REC* r) { return FamilyInsert(kUsr, s, r); }
long UsrOC(_SELECT_SD* s, char* w, _CURSOR_SD** c, int a) { return FamilyOpenCursor(kUsr, s, w, c, a); }
long UsrOCAccess(_SELECT_SD* s, char* w, _CURSOR_SD** c, int a) { return FamilyOpenAccessCursor(kUsr, s, w, c, a); }
long UsrFC(_CURSOR_SD* c, _USER_REC* r) { return FamilyFetch(kUsr, c, r, Fill::kFull); }
long UsrFCAccess(_CURSOR_SD* c, _USER_REC* r) { return FamilyFetchAccess(kUsr, c, r); }
long UsrWC(_CURSOR_SD* c, _USER_REC* r) { return FamilyWrite(kUsr, c, r); }
long UsrWCAccess(_CURSOR_SD* c, _USER_REC* r) { return FamilyWriteAccess(kUsr, c, r); }
long UsrGaWC(_CURSOR_SD* c, _USER_REC* r) { return FamilyWriteImported(kUsr, c, r); }
long UsrGaD(_SELECT_SD* s) { return FamilyDeleteImported(kUsr, s); }
long UsrSCId(_CURSOR_SD* c, _USER_REC* r) { return FamilySeekCursor(kUsr, c, r); }
long UsrCC(_CURSOR_SD* c) { return FamilyCloseCursor(c); }
long UsrCheckDBStructure(_SELECT_SD* s, char* m, int n) { return FamilyCheck(kUsr, s, m, n); }

long UpR(_SELECT_SD* s, _USRPRFL_REC* r) { return FamilyRead(kUp, s, StoredKey(kUp, r).c_str(), r); }
long UpI(_SELECT_SD* s, _USRPRFL_REC* r) { return FamilyInsert(kUp, s, r); }
long UpOC(_SELECT_SD* s, char* w, _CURSOR_SD** c, int a) { return FamilyOpenCursor(kUp, s, w, c, a); }
long UpOCAccess(_SELECT_SD* s, char* w, _CURSOR_SD** c, int a) { return FamilyOpenAccessCursor(kUp, s, w, c, a); }
long UpFC(_CURSOR_SD* c, _USRPRFL_REC* r) { return FamilyFetch(kUp, c, r, Fill::kFull); }
long UpFCAccess(_CURSOR_SD* c, _USRPRFL_REC* r) { return FamilyFetchAccess(kUp, c, r); }
long UpWC(_CURSOR_SD* c, _USRPRFL_REC* r) { return FamilyWrite(kUp, c, r); }
long UpWCAccess(_CURSOR_SD* c, _USRPRFL_REC* r) { return FamilyWriteAccess(kUp, c, r); }
long UpGaWC(_CURSOR_SD* c, _USRPRFL_REC* r) { return FamilyWriteImported(kUp, c, r); }
long UpGaD(_SELECT_SD* s) { return FamilyDeleteImported(kUp, s); }
long UpSCId(_CURSOR_SD* c, _USRPRFL_REC* r) { return FamilySeekCursor(kUp, c, r); }
long UpCC(_CURSOR_SD* c) { return FamilyCloseCursor(c); }
long UpCheckDBStructure(_SELECT_SD* s, char* m, int n) { return FamilyCheck(kUp, s, m, n); }
