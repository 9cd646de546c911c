// The code sets of the picture model: lookups between a value and the letters stored for it.
#include "tables/prmtv_codes.h"

#include <cstring>
#include <iterator>

namespace kvd::tables {
namespace {

const ElementCode kElements[kElementCodeCount] = {
    {"AR", ARC_OBJ, true},          {"BG", BARGRAPH_OBJ, true},   {"BM", BITMAP_OBJ, true},
    {"CB", CHKBOX_OBJ, true},       {"CC", ELLIPSE_OBJ, false},   {"FG", FIGURE_OBJ, true},
    {"GR", GROUP_OBJ, false},       {"MA", ANALOGMETER_OBJ, true}, {"MD", DIGITALMETER_OBJ, true},
    {"PB", BUTTON_OBJ, true},       {"PG", POLYGON_OBJ, true},    {"PI", PIE_OBJ, true},
    {"PX", PIXEL_OBJ, false},       {"RA", RECTANGLE_OBJ, true},  {"RC", RECORDER_OBJ, true},
    {"TS", TEXT_OBJ, true},         {"TV", VARTEXT_OBJ, true},    {"VT", LINE_OBJ, true},
    {"ET", EDITTEXT_OBJ, true},     {"EN", EDITNUM_OBJ, true},    {"FE", ENTRYFIELD_OBJ, true},
    {"LB", LISTBOX_OBJ, true},      {"PP", PARTPIC_OBJ, true},    {"NI", NIL_OBJ, true},
};

// A code set of single letters: the pairs, and what a letter or value outside them gives.
template <class T>
struct LetterPair {
  char letter;
  T value;
};

template <class T, std::size_t N>
T FromLetter(const LetterPair<T> (&pairs)[N], char ch, T otherwise) {
  for (const auto& p : pairs)
    if (p.letter == ch) return p.value;
  return otherwise;
}

template <class T, std::size_t N>
char ToLetter(const LetterPair<T> (&pairs)[N], T value, char otherwise) {
  for (const auto& p : pairs)
    if (p.value == value) return p.letter;
  return otherwise;
}

const LetterPair<VAL_FORMAT_ATT> kVfmt[] = {
    {'U', _UNSIGNED}, {'I', _SIGNED}, {'F', _FLOAT}, {'T', _TIMER}, {'B', _BCD}};
const LetterPair<VAR_TYPE_ATT> kDyn[] = {{'M', MEAS_PT}, {'P', PROCESS_OBJ}, {'S', SYSTEM_OBJ}};
const LetterPair<ATT_CATEGORY> kCat[] = {
    {'G', GENERAL_CAT},       {'D', DYNAMIC_CAT},     {'A', ACTION_CAT},      {'E', ENABLE_CAT},
    {'V', VARIABLES_CAT},     {'P', FIGAP_CAT},       {'F', FORMAT_CAT},      {'S', SCALING_START_CAT},
    {'X', SCALING_END_CAT},   {'Z', ZERO_OFFSET_CAT}};
const LetterPair<DIRECTION_ATT> kDirection[] = {{'L', LEFT}, {'U', UP}, {'D', DOWN}, {'R', RIGHT}};
const LetterPair<BARSTYLE_ATT> kBarstyle[] = {{'B', BAR_BARSTYLE}, {'L', LINE_BARSTYLE}};
const LetterPair<RECOSTYLE_ATT> kRecostyle[] = {{'X', PIXEL_RECOSTYLE}, {'Y', POLY_RECOSTYLE}};

struct AlignPair {
  char h, v;
  ALIGNMENT_ATT value;
};
const AlignPair kAlign[] = {
    {'L', 'T', ALIGN_LEFT_TOP},   {'L', 'V', ALIGN_LEFT_CENTER},   {'L', 'B', ALIGN_LEFT_BOTTOM},
    {'H', 'T', ALIGN_CENTER_TOP}, {'H', 'V', ALIGN_CENTER_CENTER}, {'H', 'B', ALIGN_CENTER_BOTTOM},
    {'R', 'T', ALIGN_RIGHT_TOP},  {'R', 'V', ALIGN_RIGHT_CENTER},  {'R', 'B', ALIGN_RIGHT_BOTTOM},
};

int VfmtFromLetter(char ch) { return FromLetter(kVfmt, ch, _NIL_FORMAT); }
char VfmtToLetter(int v) { return ToLetter(kVfmt, static_cast<VAL_FORMAT_ATT>(v), 'F'); }

}  // namespace

const frame::LetterCode kVfmtCode = {VfmtFromLetter, VfmtToLetter};

const ElementCode* ElementCodes() { return kElements; }

const ElementCode& ElementCodeOf(PRMTV type) {
  for (const ElementCode& e : kElements)
    if (e.type == type) return e;
  return kElements[kElementCodeCount - 1];
}

DIRECTION_ATT Db2Direction(char ch) {
  // "R" is in the list for the way back only: every letter but L, U and D reads as RIGHT.
  return FromLetter(kDirection, ch, RIGHT);
}
char Direction2Db(DIRECTION_ATT dir) { return ToLetter(kDirection, dir, 'R'); }

BARSTYLE_ATT Db2Barstyle(char ch) { return FromLetter(kBarstyle, ch, BAR_BARSTYLE); }
char Barstyle2Db(BARSTYLE_ATT style) { return ToLetter(kBarstyle, style, 'B'); }

RECOSTYLE_ATT Db2Recostyle(char ch) { return ch == 'X' ? PIXEL_RECOSTYLE : POLY_RECOSTYLE; }
char Recostyle2Db(RECOSTYLE_ATT style) { return ToLetter(kRecostyle, style, 'X'); }

ALIGNMENT_ATT Db2Alignment(char horizontal, char vertical) {
  for (const AlignPair& a : kAlign)
    if (a.h == horizontal && a.v == vertical) return a.value;
  return ALIGN_CENTER_CENTER;
}

void Alignment2Db(ALIGNMENT_ATT align, char* horizontal, char* vertical) {
  *horizontal = 'H';
  *vertical = 'V';
  for (const AlignPair& a : kAlign) {
    if (a.value != align) continue;
    *horizontal = a.h;
    *vertical = a.v;
  }
}

}  // namespace kvd::tables

using namespace kvd::tables;

long PrmtvsDb2Prmtv(char* lpch, PRMTV* lptoty) {
  *lptoty = NIL_OBJ;
  for (const ElementCode& e : kElements) {
    if (lpch[0] == e.code[0] && lpch[0] != '\0' && lpch[1] == e.code[1]) {
      *lptoty = e.type;
      break;
    }
  }
  return 0;
}

long PrmtvsPrmtv2Db(PRMTV toty, char* lpch) {
  std::memcpy(lpch, ElementCodeOf(toty).code, 2);  // two letters, no terminator
  return 0;
}

long PrmtvsDb2Vfmt(char ch, VAL_FORMAT_ATT* pvfmt) {
  *pvfmt = FromLetter(kVfmt, ch, _NIL_FORMAT);
  return 0;
}

long PrmtvsVfmt2Db(char* lpch, VAL_FORMAT_ATT vfmt) {
  *lpch = ToLetter(kVfmt, vfmt, 'F');
  return 0;
}

long PrmtvsDb2Dyn(char ch, VAR_TYPE_ATT* pvarty) {
  *pvarty = FromLetter(kDyn, ch, NIL_VARTYPE);
  return 0;
}

long PrmtvsDyn2Db(VAR_TYPE_ATT i, char* pch) {
  *pch = ToLetter(kDyn, i, ' ');
  return 0;
}

long PrmtvsDb2Cat(char ch, ATT_CATEGORY* lptcat) {
  *lptcat = FromLetter(kCat, ch, NIL_CAT);
  return 0;
}

long PrmtvsCat2Db(ATT_CATEGORY tcat, char* lpch) {
  *lpch = ToLetter(kCat, tcat, '0');
  return 0;
}
