// The four kinds of data object: measuring points (_MP.DBF), process objects (_PO.DBF), system
// objects (_SO.DBF with its import table _ISO.DBF) and reference objects (_REF.DBF with _IREF.DBF),
// all in the version directory, sharing one id space of 22-character ids.
#include <cstddef>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "frame/family.h"
#include "include/kvd_dataobj.h"
#include "tables/prmtv_codes.h"

namespace {

using kvd::frame::Column;
using kvd::frame::Conv;
using kvd::frame::Family;
using kvd::frame::FamilyDef;
using kvd::frame::FetchFilter;
using kvd::frame::Fill;
using kvd::frame::TagChoice;
using kvd::tables::kVfmtCode;

// The id of a caller's member as a bounded text: the member may be filled to its last byte.
std::string IdText(const char* id, std::size_t size) { return std::string(id, strnlen(id, size)); }

// The records as callers compiled them: a change of layout is a change of the interface.
static_assert(sizeof(_MP_STATE_REC) == 48 && sizeof(_MP_LIMIT_REC) == 8 && sizeof(_MP_REC) == 884);
static_assert(sizeof(_PO_REC) == 324 && sizeof(_SO_REC) == 1640 && sizeof(_REF_REC) == 82);

// ---- _MP.DBF: 141 columns, nine state blocks and seven limit pairs among them. ----

template <std::size_t Size, unsigned Len>
Column MpText(const char* name, std::size_t offset, bool trim = true, bool brief = false) {
  return kvd::frame::TextColumn<Size, Len>(name, offset, trim, false, brief);
}
Column MpValue(const char* name, unsigned short len, Conv conv, std::size_t offset, std::size_t size,
               bool brief = false) {
  return kvd::frame::ValueColumn(name, len, conv, offset, size, brief);
}

// The names of the numbered columns, kept for the life of the process (columns point at them).
const char* NumberedName(const char* stem, int n) {
  static std::deque<std::string> names;  // a deque never moves what it holds
  names.push_back(std::string(stem) + std::to_string(n));
  return names.back().c_str();
}

std::vector<Column> MpColumns() {
  using R = _MP_REC;
  using S = _MP_STATE_REC;
  using L = _MP_LIMIT_REC;
  std::vector<Column> c = {
      MpText<sizeof R::szPointId, 22>("POINTID", offsetof(R, szPointId), true, true),
      MpText<sizeof R::szDescr, 30>("DESCRIPT", offsetof(R, szDescr), true, true),
      MpText<sizeof R::szStation, 32>("STATION", offsetof(R, szStation)),
      MpText<sizeof R::szSlot, 30>("SLOT", offsetof(R, szSlot)),
      MpText<sizeof R::szIoAdr, 32>("IOADR", offsetof(R, szIoAdr)),
      MpText<sizeof R::szIfAdr, 13>("IFADR", offsetof(R, szIfAdr)),
      MpText<sizeof R::szSignal, 12>("SIGNAL", offsetof(R, szSignal)),
      MpValue("OBJID", 10, Conv::kUnsigned, offsetof(R, usObjId), sizeof R::usObjId, true),
      KVD_SKIP("SPLTID", 6),
      KVD_SKIP("SPL", 3),
      MpText<sizeof R::szRemark, 20>("REMARK", offsetof(R, szRemark)),
      MpText<sizeof R::szAipi, 6>("AIPI", offsetof(R, szAipi)),
      MpText<sizeof R::szAivi, 6>("AIVI", offsetof(R, szAivi)),
      MpValue("ACKNGR", 3, Conv::kSigned, offsetof(R, sAcknGrp), sizeof R::sAcknGrp),
      MpValue("CHGPGR", 3, Conv::kSigned, offsetof(R, sChgParaGrp), sizeof R::sChgParaGrp),
      MpValue("UNDEFGR", 3, Conv::kSigned, offsetof(R, sUndefGrp), sizeof R::sUndefGrp),
      MpText<sizeof R::szHiti, 6>("HITI", offsetof(R, szHiti)),
      MpValue("SCANCYCLE", 2, Conv::kSigned, offsetof(R, cScanCycle), sizeof R::cScanCycle),
      MpValue("BINANA", 1, Conv::kChar, offsetof(R, chObjType), sizeof R::chObjType),
      MpValue("FLAG", 2, Conv::kRaw16, offsetof(R, usFlag), sizeof R::usFlag),
      MpText<sizeof R::szTid, 2>("TID", offsetof(R, szTid)),
      MpText<sizeof R::szGrpAlarm, 5>("GRPALARM", offsetof(R, szGrpAlarm)),
      MpText<sizeof R::szCompPntId, 22>("COMPPNTID", offsetof(R, szCompPntId)),
      MpValue("SCALEGROUP", 3, Conv::kUnsigned, offsetof(R, usScaleGroup), sizeof R::usScaleGroup),
      MpValue("RANGESTART", 9, Conv::kFloat, offsetof(R, r8RangeStart), sizeof R::r8RangeStart),
      MpValue("RANGEEND", 9, Conv::kFloat, offsetof(R, r8RangeEnd), sizeof R::r8RangeEnd),
      KVD_SKIP("SMOOTHING", 1),
      MpValue("SNDHYS", 9, Conv::kFloat, offsetof(R, r8SndHys), sizeof R::r8SndHys),
      MpValue("LMTHYS", 9, Conv::kFloat, offsetof(R, r8LmtHys), sizeof R::r8LmtHys),
      MpValue("LMTBW", 9, Conv::kFloat, offsetof(R, r8LmtBW), sizeof R::r8LmtBW),
      MpText<sizeof R::szUnit, 32>("UNIT", offsetof(R, szUnit)),
      MpValue("STATECNT", 1, Conv::kUnsigned, offsetof(R, bStateCnt), sizeof R::bStateCnt),
  };
  for (int n = 0; n < 9; ++n) {
    const std::size_t at = offsetof(R, abcState) + n * sizeof(S);
    c.push_back(MpValue(NumberedName("LVL", n), 2, Conv::kSigned, at + offsetof(S, sLvl), sizeof S::sLvl));
    c.push_back(MpValue(NumberedName("BLOCKGRP", n), 3, Conv::kSigned, at + offsetof(S, sBlockGrp), sizeof S::sBlockGrp));
    c.push_back(MpText<sizeof S::szStatus, 30>(NumberedName("STATUS", n), at + offsetof(S, szStatus)));
    c.push_back(MpValue(NumberedName("AAGR", n), 3, Conv::kSigned, at + offsetof(S, sAaGr), sizeof S::sAaGr));
    c.push_back(MpValue(NumberedName("VAGR", n), 3, Conv::kSigned, at + offsetof(S, sVaGr), sizeof S::sVaGr));
    c.push_back(MpValue(NumberedName("SOGR", n), 3, Conv::kSigned, at + offsetof(S, sSoGr), sizeof S::sSoGr));
    c.push_back(MpValue(NumberedName("EVL", n), 1, Conv::kChar, at + offsetof(S, bEvl), sizeof S::bEvl));
    c.push_back(MpValue(NumberedName("EVP", n), 1, Conv::kChar, at + offsetof(S, bEvp), sizeof S::bEvp));
    c.push_back(MpValue(NumberedName("DLYIN", n), 4, Conv::kSigned, at + offsetof(S, sDlyIn), sizeof S::sDlyIn));
    c.push_back(MpValue(NumberedName("DLYOUT", n), 4, Conv::kSigned, at + offsetof(S, sDlyOut), sizeof S::sDlyOut));
  }
  for (int n = 1; n <= 7; ++n) {
    const std::size_t at = offsetof(R, abcLimit) + (n - 1) * sizeof(L);
    c.push_back(MpValue(NumberedName("LIMIT", n), 9, Conv::kFloat, at + offsetof(L, r8Limit), sizeof L::r8Limit));
    c.push_back(MpValue(NumberedName("DYLIGR", n), 3, Conv::kSigned, at + offsetof(L, sDylGr), sizeof L::sDylGr));
  }
  c.push_back(MpText<sizeof R::szComment, 14>("COMMENT", offsetof(R, szComment)));
  c.push_back(KVD_CODE(R, vfmt, "VF", &kVfmtCode));
  c.push_back(MpText<sizeof R::szLink, 32>("LINK", offsetof(R, szLink)));
  c.push_back(MpText<sizeof R::szInitVal, 9>("INITVAL", offsetof(R, szInitVal), false));
  c.push_back(MpText<sizeof R::szInitValFlg, 1>("INITVALFLG", offsetof(R, szInitValFlg), false));
  return c;
}
const std::vector<Column> kMpColumns = MpColumns();

const TAG4INFO kMpTags[] = {
    {"MP", "OBJID", ".NOT. DELETED()", 0, 0},
    {"POINTID", "POINTID", ".NOT. DELETED()", 0, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};

// The settings the four id tables share: the id is the key under "POINTID", padded to 22; the
// cursor with an order number filters FC by pattern; SCId pads the caller's id in place.
void IdKeyed(FamilyDef& s) {
  s.key_tag = "POINTID";
  s.fetch_filter = FetchFilter::kWild;
  s.seek_pads_member = true;
}

const Family kMp([] {
  FamilyDef s{"Mp", "_MP.DBF", "_MP"};
  s.columns = kMpColumns.data();
  s.column_count = kMpColumns.size();
  s.tags = kMpTags;
  IdKeyed(s);
  s.tag_choice = TagChoice{2, "POINTID", "MP"};
  return s;
}());

// ---- _PO.DBF: 36 columns, 7 of them numeric; five columns without a member. ----

const Column kPoColumns[] = {
    KVD_TEXT(_PO_REC, szPoId, "ID", 22, true),
    KVD_TEXT(_PO_REC, szPoDescr, "DESCR", 30, true),
    KVD_TEXT(_PO_REC, szStation, "STATION", 32, true),
    KVD_VALUE(_PO_REC, usObjId, "OBJID", 10, kUnsigned),
    KVD_SKIP("OBJTYPE", 1),
    KVD_VALUE(_PO_REC, chType, "TYPE", 1, kChar),
    KVD_NUMBER(_PO_REC, usUsrGrp, "USRGRP", 3, 0, kUnsigned),
    KVD_TEXT(_PO_REC, szAipi, "AIPI", 6, true),
    KVD_VALUE(_PO_REC, usFlag, "FLAG", 2, kRaw16),
    KVD_TEXT(_PO_REC, szStsTxtId, "STXID", 6, true),
    KVD_TEXT(_PO_REC, szEvl, "EVL", 1, true),
    KVD_TEXT(_PO_REC, szIoAdrState, "IOADR_STA", 32, true),
    KVD_TEXT(_PO_REC, szIoAdrValue, "IOADR_VAL", 32, true),
    KVD_SKIP("CADR_STA", 13),
    KVD_SKIP("CADR_VAL", 13),
    KVD_SKIP("SF", 1),
    KVD_CODE(_PO_REC, vfmt, "VF", &kVfmtCode),
    KVD_NUMBER(_PO_REC, r8RangeStart, "RANGESTART", 9, 3, kFloat),
    KVD_NUMBER(_PO_REC, r8RangeEnd, "RANGEEND", 9, 3, kFloat),
    KVD_TEXT(_PO_REC, szCidSts, "KID_STA", 6, true),
    KVD_NUMBER(_PO_REC, lCcaSts, "KKA_STA", 5, 0, kSigned),
    KVD_TEXT(_PO_REC, szCidVal, "KID_VAL", 6, true),
    KVD_NUMBER(_PO_REC, lCcaVal, "KKA_VAL", 5, 0, kSigned),
    KVD_TEXT(_PO_REC, szTid, "TID", 2, true),
    KVD_VALUE(_PO_REC, bReg, "UIP", 1, kChar),
    KVD_TEXT(_PO_REC, szHiti, "HITI", 6, true),
    KVD_VALUE(_PO_REC, sFixPointFormat, "FPF", 1, kLetter),
    KVD_SKIP("STNNO", 3),
    KVD_TEXT(_PO_REC, szComment, "ADDTXT", 30, true),
    // Stored tables have the gradient in NRMOFFS and the offset in NRMGRAD; reading and writing keep
    // it so.
    KVD_NUMBER(_PO_REC, r4NrmOffs, "NRMGRAD", 12, 5, kFloat),
    KVD_NUMBER(_PO_REC, r4NrmGrad, "NRMOFFS", 12, 5, kFloat),
    KVD_TEXT(_PO_REC, szLink, "LINK", 32, true),
    KVD_TEXT(_PO_REC, szInitVal, "INITVAL", 9, false),
    KVD_TEXT(_PO_REC, szInitValFlg, "INITVALFLG", 1, false),
    KVD_TEXT(_PO_REC, szInitSta, "INITSTA", 9, false),
    KVD_TEXT(_PO_REC, szInitStaFlg, "INITSTAFLG", 1, false),
};
static_assert(std::size(kPoColumns) == PO_NO_FIELDS);
const TAG4INFO kPoTags[] = {
    {"PO", "TYPE", ".NOT. DELETED()", 0, 0},
    {"POINTID", "ID", ".NOT. DELETED()", 0, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};
const Family kPo([] {
  FamilyDef s{"Po", "_PO.DBF", "_PO"};
  s.columns = kPoColumns;
  s.column_count = std::size(kPoColumns);
  s.tags = kPoTags;
  IdKeyed(s);
  s.tag_choice = TagChoice{2, "POINTID", "PO"};
  return s;
}());

// ---- _SO.DBF and _ISO.DBF. ----

const Column kSoColumns[] = {
    KVD_TEXT(_SO_REC, szSoId, "ID", 22, true),
    KVD_TEXT(_SO_REC, szSoDescr, "DESCR", 30, true),
    KVD_TEXT(_SO_REC, szSoText, "TEXT", 255, true),
    KVD_VALUE(_SO_REC, chAccess, "ACCESS", 1, kChar),
    KVD_VALUE(_SO_REC, usObjId, "OBJID", 10, kUnsigned),
    KVD_CODE(_SO_REC, vfmt, "VF", &kVfmtCode),
    KVD_NUMBER(_SO_REC, r4Value, "VALUE", 9, 3, kFloat),
    KVD_VALUE(_SO_REC, lStatus, "STATUS", 30, kSigned),
    KVD_VALUE(_SO_REC, usUsrGrp, "USRGRP", 3, kUnsigned),
    KVD_TEXT(_SO_REC, szHiTiId, "HITI", 6, true),
    KVD_NUMBER(_SO_REC, r4Value1, "VALUE1", 9, 3, kFloat),
    KVD_NUMBER(_SO_REC, r4Value2, "VALUE2", 9, 3, kFloat),
    KVD_NUMBER(_SO_REC, r4Value3, "VALUE3", 9, 3, kFloat),
    KVD_NUMBER(_SO_REC, r4Value4, "VALUE4", 9, 3, kFloat),
    KVD_NUMBER(_SO_REC, r4Value5, "VALUE5", 9, 3, kFloat),
    KVD_TEXT(_SO_REC, szTxt1, "TEXT1", 255, true),
    KVD_TEXT(_SO_REC, szTxt2, "TEXT2", 255, true),
    KVD_TEXT(_SO_REC, szTxt3, "TEXT3", 255, true),
    KVD_TEXT(_SO_REC, szTxt4, "TEXT4", 255, true),
    KVD_TEXT(_SO_REC, szTxt5, "TEXT5", 255, true),
};
const TAG4INFO kSoTags[] = {
    {"POINTID", "ID", ".NOT. DELETED()", 0, 0},
    {"OBJID", "OBJID", ".NOT. DELETED()", 0, 0},
    {"ACCESS", "ACCESS", ".NOT. DELETED()", 0, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};
const Family kSo([] {
  FamilyDef s{"So", "_SO.DBF", "_SO"};
  s.columns = kSoColumns;
  s.column_count = std::size(kSoColumns);
  s.tags = kSoTags;
  IdKeyed(s);
  s.access_column = 3;
  s.tag_choice = TagChoice{2, "POINTID", "OBJID"};
  s.second_tag = "OBJID";
  s.update_column = 2;  // SoU changes TEXT of an existing object and nothing else
  s.import_db_name = "_ISO.DBF";
  s.import_index_name = "_ISO";
  return s;
}());

// ---- _REF.DBF and _IREF.DBF. OBJNUM has a member, but no call reads or writes the column. ----

const Column kRefColumns[] = {
    KVD_TEXT(_REF_REC, szId, "ID", 22, true),
    KVD_TEXT(_REF_REC, szDescr, "DESCR", 30, true),
    KVD_SKIP("OBJNUM", 5),
    KVD_TEXT(_REF_REC, szRefId, "REFID", 22, true),
    KVD_VALUE(_REF_REC, chAccess, "ACCESS", 1, kChar),
    KVD_VALUE(_REF_REC, usUsrGrp, "USRGRP", 3, kUnsigned),
};
const TAG4INFO kRefTags[] = {
    {"POINTID", "ID", ".NOT. DELETED()", 0, 0},
    {"OBJNUM", "OBJNUM", ".NOT. DELETED()", 0, 0},
    {"ACCESS", "ACCESS", ".NOT. DELETED()", 0, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};
const Family kRef([] {
  FamilyDef s{"Ref", "_REF.DBF", "_REF"};
  s.columns = kRefColumns;
  s.column_count = std::size(kRefColumns);
  s.tags = kRefTags;
  IdKeyed(s);
  s.access_column = 4;
  s.tag_choice = TagChoice{2, "POINTID", "OBJNUM"};
  s.second_tag = "OBJNUM";
  s.import_db_name = "_IREF.DBF";
  s.import_index_name = "_IREF";
  return s;
}());

}  // namespace

using namespace kvd::frame;

long MpR(_SELECT_SD* s, _MP_REC* r) {
  return FamilyRead(kMp, s, IdText(r->szPointId, sizeof r->szPointId).c_str(), r);
}
long MpGetType(_SELECT_SD* s, char* szVarId) {
  _MP_REC r{};
  if (FamilyRead(kMp, s, szVarId, &r) != KVD_S_OK) return MP_TYP_NIL;
  return r.chObjType == 'B' ? MP_TYP_BIN : MP_TYP_ANA;
}
long MpOC(_SELECT_SD* s, char* w, _CURSOR_SD** c, int a, int tag) { return FamilyOpenTagCursor(kMp, s, w, c, a, tag); }
long MpFC(_CURSOR_SD* c, _MP_REC* r) { return FamilyFetch(kMp, c, r, Fill::kBrief); }
long MpFC2(_CURSOR_SD* c, _MP_REC* r) { return FamilyFetchWhole(kMp, c, r); }
long MpSCPointId(_CURSOR_SD* c, _MP_REC* r) { return FamilySeekCursor(kMp, c, r); }
long MpCC(_CURSOR_SD* c) { return FamilyCloseCursor(c); }
long MpCheckDBStructure(_SELECT_SD* s, char* m, int n) { return FamilyCheck(kMp, s, m, n); }

long PoR(_SELECT_SD* s, _PO_REC* r) { return FamilyRead(kPo, s, IdText(r->szPoId, sizeof r->szPoId).c_str(), r); }
long PoU(_SELECT_SD* s, _PO_REC* r) { return FamilyUpdate(kPo, s, r); }
long PoGetType(_SELECT_SD* s, char* szVarId) {
  _PO_REC r{};  // a record of the call's own: the type of one object never waits for another's
  if (FamilyRead(kPo, s, szVarId, &r) != KVD_S_OK) return PO_TYP_NIL;
  return r.chType == 'B' ? PO_TYP_BIN : PO_TYP_ANA;
}
long PoOC(_SELECT_SD* s, char* w, _CURSOR_SD** c, int a, int tag) { return FamilyOpenTagCursor(kPo, s, w, c, a, tag); }
long PoFC(_CURSOR_SD* c, _PO_REC* r) { return FamilyFetch(kPo, c, r, Fill::kFull); }
long PoSCId(_CURSOR_SD* c, _PO_REC* r) { return FamilySeekCursor(kPo, c, r); }
long PoCC(_CURSOR_SD* c) { return FamilyCloseCursor(c); }
long PoCheckDBStructure(_SELECT_SD* s, char* m, int n) { return FamilyCheck(kPo, s, m, n); }

long SoR(_SELECT_SD* s, _SO_REC* r) { return FamilyRead(kSo, s, IdText(r->szSoId, sizeof r->szSoId).c_str(), r); }
long SoI(_SELECT_SD* s, _SO_REC* r) { return FamilyInsert(kSo, s, r); }
long SoU(_SELECT_SD* s, _SO_REC* r) { return FamilyUpdate(kSo, s, r); }
long SoOC(_SELECT_SD* s, char* w, _CURSOR_SD** c, int a, int tag) { return FamilyOpenTagCursor(kSo, s, w, c, a, tag); }
long SoOC2(_SELECT_SD* s, char* w, _CURSOR_SD** c, int a) { return FamilyOpenSecondCursor(kSo, s, w, c, a); }
long SoOCAccess(_SELECT_SD* s, char* w, _CURSOR_SD** c, int a, int fImport) {
  return FamilyOpenAccessCursor(kSo, s, w, c, a, fImport != 0);
}
long SoFC(_CURSOR_SD* c, _SO_REC* r) { return FamilyFetch(kSo, c, r, Fill::kFull); }
long SoFCAccess(_CURSOR_SD* c, _SO_REC* r) { return FamilyFetchAccess(kSo, c, r); }
long SoWC(_CURSOR_SD* c, _SO_REC* r) { return FamilyWrite(kSo, c, r); }
long SoWCAccess(_CURSOR_SD* c, _SO_REC* r) { return FamilyWriteAccess(kSo, c, r); }
long SoGaWC(_CURSOR_SD* c, _SO_REC* r) { return FamilyWriteImported(kSo, c, r); }
long SoGaD(_SELECT_SD* s) { return FamilyDeleteImported(kSo, s); }
long SoSCId(_CURSOR_SD* c, _SO_REC* r) { return FamilySeekCursor(kSo, c, r); }
long SoCC(_CURSOR_SD* c) { return FamilyCloseCursor(c); }
long SoCheckDBStructure(_SELECT_SD* s, char* m, int n) { return FamilyCheck(kSo, s, m, n); }
long SoCheckSoObj(_SELECT_SD* s, char* szVarId) {
  _SO_REC r{};
  return FamilyRead(kSo, s, szVarId, &r) == KVD_S_OK ? 0 : 1;
}

// RefR seeks the text of szRefId in the ID column; a hit fills szRefId with what the row refers to.
long RefR(_SELECT_SD* s, _REF_REC* r) {
  return FamilyRead(kRef, s, IdText(r->szRefId, sizeof r->szRefId).c_str(), r);
}
long RefOC(_SELECT_SD* s, char* w, _CURSOR_SD** c, int a, int tag) { return FamilyOpenTagCursor(kRef, s, w, c, a, tag); }
long RefOC2(_SELECT_SD* s, char* w, _CURSOR_SD** c, int a) { return FamilyOpenSecondCursor(kRef, s, w, c, a); }
long RefOCAccess(_SELECT_SD* s, char* w, _CURSOR_SD** c, int a, int fImport) {
  return FamilyOpenAccessCursor(kRef, s, w, c, a, fImport != 0);
}
long RefFC(_CURSOR_SD* c, _REF_REC* r) { return FamilyFetch(kRef, c, r, Fill::kFull); }
long RefFCAccess(_CURSOR_SD* c, _REF_REC* r) { return FamilyFetchAccess(kRef, c, r); }
long RefWC(_CURSOR_SD* c, _REF_REC* r) { return FamilyWrite(kRef, c, r); }
long RefWCAccess(_CURSOR_SD* c, _REF_REC* r) { return FamilyWriteAccess(kRef, c, r); }
long RefSCId(_CURSOR_SD* c, _REF_REC* r) { return FamilySeekCursor(kRef, c, r); }
long RefCC(_CURSOR_SD* c) { return FamilyCloseCursor(c); }
long RefCheckDBStructure(_SELECT_SD* s, char* m, int n) { return FamilyCheck(kRef, s, m, n); }
long RefCheckRefObj(_SELECT_SD* s, char* szVarId) {
  _REF_REC r{};
  return FamilyRead(kRef, s, szVarId, &r) == KVD_S_OK ? 0 : 1;
}

// The first of the four tables that holds the id names its kind; a table that cannot be opened
// counts as one that does not hold it.
long QueryDOType(_SELECT_SD* s, char* szId) {
  _MP_REC mp{};
  if (FamilyRead(kMp, s, szId, &mp) == KVD_S_OK) return MEAS_PT;
  _PO_REC po{};
  if (FamilyRead(kPo, s, szId, &po) == KVD_S_OK) return PROCESS_OBJ;
  _SO_REC so{};
  if (FamilyRead(kSo, s, szId, &so) == KVD_S_OK) return SYSTEM_OBJ;
  _REF_REC ref{};
  if (FamilyRead(kRef, s, szId, &ref) == KVD_S_OK) return REFERENCE_OBJ;
  return NIL_VARTYPE;
}
