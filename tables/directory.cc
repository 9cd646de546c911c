// Directory tables: the access sets (_DIRAS) and the directory of figures (_DIRFIG).
#include <cstddef>

#include "frame/family.h"
#include "include/kvd_directory.h"

namespace {

using kvd::frame::Column;
using kvd::frame::Family;
using kvd::frame::FamilyDef;
using kvd::frame::Fill;

// The access sets: the name is the key, trimmed, so a shorter name finds the first it begins.
const Column kDirAsColumns[] = {
    KVD_TEXT(_DIRAS_REC, szName, "NAME", 10, true),
    KVD_TEXT(_DIRAS_REC, szDescr, "DESCR", 30, false),
    KVD_VALUE(_DIRAS_REC, chAccess, "ACCESS", 1, kChar),
};
const TAG4INFO kDirAsTags[] = {
    {"LINKKEY", "NAME", ".NOT. DELETED()", 0, 0},
    {"ACCESS", "ACCESS", ".NOT. DELETED()", 0, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};
const Family kDirAs([] {
  FamilyDef s{"DirAs", "_DIRAS.DBF", "_DIRAS"};
  s.columns = kDirAsColumns;
  s.column_count = std::size(kDirAsColumns);
  s.tags = kDirAsTags;
  s.key_tag = "LINKKEY";
  s.key_rule = kvd::frame::KeyRule::kTrim;
  s.duplicate_status = KVD_S_NOT_FOUND;  // a name that exists is "not inserted", 1
  s.insert_access = 0;
  s.access_column = 2;
  s.fetch_filter = kvd::frame::FetchFilter::kWild;
  return s;
}());

// The directory of figures. FC gives name and description only, FC2 the whole row.
const Column kDirfigColumns[] = {
    KVD_TEXT(_DIRFIG_REC, szName, "FIGURE", 6, true, true, true),
    KVD_TEXT(_DIRFIG_REC, szDescr, "DESCRIPT", 30, true, true, true),
    KVD_VALUE(_DIRFIG_REC, lUlx, "ULX", 8, kInt32),
    KVD_VALUE(_DIRFIG_REC, lUly, "ULY", 8, kInt32),
    KVD_VALUE(_DIRFIG_REC, lLrx, "LRX", 8, kInt32),
    KVD_VALUE(_DIRFIG_REC, lLry, "LRY", 8, kInt32),
    KVD_VALUE(_DIRFIG_REC, nParamcnt, "PARAMCNT", 2, kInt),
    KVD_TEXT(_DIRFIG_REC, szFilename, "FILENAME", 12, true, true),
    KVD_VALUE(_DIRFIG_REC, nBgColor, "BGCOLOR", 3, kInt),
    KVD_VALUE(_DIRFIG_REC, nFrameColor, "FRMCLR", 3, kInt),
    KVD_VALUE(_DIRFIG_REC, fHasControls, "CONTROLS", 1, kFlagTF),
    KVD_VALUE(_DIRFIG_REC, lTarResX, "TARRESX", 8, kInt32),
    KVD_VALUE(_DIRFIG_REC, lTarResY, "TARRESY", 8, kInt32),
};
const TAG4INFO kDirfigTags[] = {
    {"DIRFIG", "FIGURE", ".NOT. DELETED()", 0, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};
const Family kDirfig([] {
  FamilyDef s{"Dirfig", "_DIRFIG.DBF", "_DIRFIG"};
  s.columns = kDirfigColumns;
  s.column_count = std::size(kDirfigColumns);
  s.tags = kDirfigTags;
  return s;
}());

}  // namespace

using namespace kvd::frame;

long DirAsR(_SELECT_SD* s, char* name, _DIRAS_REC* r) { return FamilyRead(kDirAs, s, name, r); }
long DirAsI(_SELECT_SD* s, _DIRAS_REC* r) { return FamilyInsert(kDirAs, s, r); }
long DirAsOC(_SELECT_SD* s, char* w, _CURSOR_SD** c, int a) { return FamilyOpenCursor(kDirAs, s, w, c, a); }
long DirAsOCAccess(_SELECT_SD* s, char* w, _CURSOR_SD** c, int a) {
  return FamilyOpenAccessCursor(kDirAs, s, w, c, a);
}
long DirAsFC(_CURSOR_SD* c, _DIRAS_REC* r) { return FamilyFetch(kDirAs, c, r, Fill::kFull); }
long DirAsFCAccess(_CURSOR_SD* c, _DIRAS_REC* r) { return FamilyFetchAccess(kDirAs, c, r); }
long DirAsWC(_CURSOR_SD* c, _DIRAS_REC* r) { return FamilyWrite(kDirAs, c, r); }
long DirAsWCAccess(_CURSOR_SD* c, _DIRAS_REC* r) { return FamilyWriteAccess(kDirAs, c, r); }
long DirAsGaWC(_CURSOR_SD* c, _DIRAS_REC* r) { return FamilyWriteImported(kDirAs, c, r); }
long DirAsGaD(_SELECT_SD* s) { return FamilyDeleteImported(kDirAs, s); }
long DirAsSCId(_CURSOR_SD* c, _DIRAS_REC* r) { return FamilySeekCursor(kDirAs, c, r); }
long DirAsCC(_CURSOR_SD* c) { return FamilyCloseCursor(c); }
long DirAsCheckDBStructure(_SELECT_SD* s, char* m, int n) { return FamilyCheck(kDirAs, s, m, n); }

long DirfigR(_SELECT_SD* s, char* name, _DIRFIG_REC* r) { return FamilyRead(kDirfig, s, name, r); }
long DirfigI(_SELECT_SD* s, _DIRFIG_REC* r) { return FamilyInsert(kDirfig, s, r); }
long DirfigU(_SELECT_SD* s, _DIRFIG_REC* r) { return FamilyUpdate(kDirfig, s, r); }
long DirfigD(_SELECT_SD* s, char* name, char* file, int n) { return FamilyDelete(kDirfig, s, name, file, n); }
long DirfigOC(_SELECT_SD* s, char* w, _CURSOR_SD** c, int a) { return FamilyOpenCursor(kDirfig, s, w, c, a); }
long DirfigFC(_CURSOR_SD* c, _DIRFIG_REC* r) { return FamilyFetch(kDirfig, c, r, Fill::kBrief); }
long DirfigFC2(_CURSOR_SD* c, _DIRFIG_REC* r) { return FamilyFetch(kDirfig, c, r, Fill::kFull); }
long DirfigCC(_CURSOR_SD* c) { return FamilyCloseCursor(c); }
long DirfigCheckDBStructure(_SELECT_SD* s, char* m, int n) { return FamilyCheck(kDirfig, s, m, n); }
