// Sections: _DIRSEC.DBF names each section with its start time and interval, _SEC.DBF lists its
// lines, each a data object or a layout line. Both lie in the version directory; neither has an
// insert or update here.
#include <cstddef>
#include <iterator>

#include "frame/family.h"
#include "include/kvd_dataobj.h"
#include "lib/foundation/kvtext.h"

namespace {

using kvd::frame::Column;
using kvd::frame::EmptyWildcard;
using kvd::frame::Family;
using kvd::frame::FamilyDef;
using kvd::frame::FetchFilter;
using kvd::frame::Fill;

// The records as callers compiled them: a change of layout is a change of the interface.
static_assert(sizeof(_SEC_REC) == 296 && sizeof(_DIRSEC_REC) == 48);

const Column kSecColumns[] = {
    KVD_TEXT(_SEC_REC, szSecNo, "SECNO", 6, true),
    KVD_TEXT(_SEC_REC, szPntId, "PNTID", 22, true),
    KVD_VALUE(_SEC_REC, LayoutTyp, "LOTYP", 2, kSigned),
    KVD_TEXT(_SEC_REC, szComment, "COMMENT", 255, true),
    KVD_VALUE(_SEC_REC, usObjId, "OBJID", 10, kUnsigned),
};
const TAG4INFO kSecTags[] = {
    {"_SEC", "SECNO", ".NOT. DELETED()", 0, 0},
    {"PNTID", "PNTID", ".NOT. DELETED()", 0, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};

// The lines by section: a cursor with a key stops at the first line whose 6-character SECNO
// differs from it.
const Family kSec([] {
  FamilyDef s{"Sec", "_SEC.DBF", "_SEC"};
  s.columns = kSecColumns;
  s.column_count = std::size(kSecColumns);
  s.tags = kSecTags;
  s.key_tag = "_SEC";
  s.empty_wildcard = EmptyWildcard::kNull;
  s.fetch_filter = FetchFilter::kPrefix;
  s.prefix_column = "SECNO";
  s.prefix_width = 6;
  return s;
}());

// The same lines by data object: the id is sought as given, so a shorter text finds the first id
// it begins, and a cursor stops at the first PNTID that does not begin with its key.
const Family kSecPointId([] {
  FamilyDef s{"SecPointId", "_SEC.DBF", "_SEC"};
  s.columns = kSecColumns;
  s.column_count = std::size(kSecColumns);
  s.tags = kSecTags;
  s.key_tag = "PNTID";
  s.key_column = 1;
  s.key_rule = kvd::frame::KeyRule::kAsGiven;
  s.empty_wildcard = EmptyWildcard::kNull;
  s.fetch_filter = FetchFilter::kPrefix;
  s.prefix_column = "PNTID";
  s.prefix_width = 0;  // over the key's own length
  return s;
}());

const Column kDirsecColumns[] = {
    KVD_TEXT(_DIRSEC_REC, szSecNo, "SECNO", 6, true),
    KVD_TEXT(_DIRSEC_REC, szDescr, "DESCR", 30, true),
    KVD_VALUE(_DIRSEC_REC, lStartTime, "STRTTIM", 8, kTime),
    KVD_VALUE(_DIRSEC_REC, lIntvTime, "INTVTIM", 8, kTime),
};
const TAG4INFO kDirsecTags[] = {
    {"_DIRSEC", "SECNO", ".NOT. DELETED()", 0, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};
// A key only gives the start: DirsecFC goes on through the sections behind it.
const Family kDirsec([] {
  FamilyDef s{"Dirsec", "_DIRSEC.DBF", "_DIRSEC"};
  s.columns = kDirsecColumns;
  s.column_count = std::size(kDirsecColumns);
  s.tags = kDirsecTags;
  s.empty_wildcard = EmptyWildcard::kNull;
  return s;
}());

// SecR and DirsecR pad the caller's section number where it stands: the caller's buffer is the key.
char* PadSection(char* szSecNo) {
  KvFillBlank(szSecNo, 6);
  return szSecNo;
}

}  // namespace

using namespace kvd::frame;

long SecR(_SELECT_SD* s, char* szSecNo, _SEC_REC* r) { return FamilyRead(kSec, s, PadSection(szSecNo), r); }
long SecOC(_SELECT_SD* s, char* w, _CURSOR_SD** c, int a) { return FamilyOpenCursor(kSec, s, w, c, a); }
long SecFC(_CURSOR_SD* c, _SEC_REC* r) { return FamilyFetch(kSec, c, r, Fill::kFull); }
long SecCC(_CURSOR_SD* c) { return FamilyCloseCursor(c); }
long SecCheckDBStructure(_SELECT_SD* s, char* m, int n) { return FamilyCheck(kSec, s, m, n); }
long SecRPointId(_SELECT_SD* s, char* szPointId, _SEC_REC* r) { return FamilyRead(kSecPointId, s, szPointId, r); }
long SecOCPointId(_SELECT_SD* s, char* w, _CURSOR_SD** c, int a) { return FamilyOpenCursor(kSecPointId, s, w, c, a); }
long SecFCPointId(_CURSOR_SD* c, _SEC_REC* r) { return FamilyFetch(kSecPointId, c, r, Fill::kFull); }
long SecCCPointId(_CURSOR_SD* c) { return FamilyCloseCursor(c); }

long DirsecR(_SELECT_SD* s, char* szSecNo, _DIRSEC_REC* r) { return FamilyRead(kDirsec, s, PadSection(szSecNo), r); }
long DirsecOC(_SELECT_SD* s, char* w, _CURSOR_SD** c, int a) { return FamilyOpenCursor(kDirsec, s, w, c, a); }
long DirsecFC(_CURSOR_SD* c, _DIRSEC_REC* r) { return FamilyFetch(kDirsec, c, r, Fill::kFull); }
long DirsecCC(_CURSOR_SD* c) { return FamilyCloseCursor(c); }
long DirsecCheckDBStructure(_SELECT_SD* s, char* m, int n) { return FamilyCheck(kDirsec, s, m, n); }
