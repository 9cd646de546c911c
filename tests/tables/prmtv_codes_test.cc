// The stored letters of the picture model's code sets, both ways, with the values that do not come
// back as they went.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "include/kvd_prmtv.h"
#include "tables/prmtv_codes.h"

namespace kvd::test {
namespace {

using namespace kvd::tables;

TEST(PrimitiveCodes, ElementTypesAndTheirTwoLetters) {
  // Every type of the element table comes back from its code, and no two types share one.
  std::set<std::string> seen;
  int with_row = 0;
  for (int t = NIL_OBJ; t <= SECT_PRNT; ++t) {
    char code[4] = {'x', 'x', 'x', 'x'};
    ASSERT_EQ(PrmtvsPrmtv2Db(static_cast<PRMTV>(t), code), 0);
    EXPECT_EQ(code[2], 'x') << "two letters, no terminator";
    PRMTV back = END_PRMTV;
    ASSERT_EQ(PrmtvsDb2Prmtv(code, &back), 0);
    if (t <= PARTPIC_OBJ) {
      ++with_row;
      EXPECT_EQ(back, t) << std::string(code, 2);
      EXPECT_TRUE(seen.insert(std::string(code, 2)).second) << std::string(code, 2);
    } else {
      EXPECT_EQ(std::string(code, 2), "NI") << t;  // no row of its own
      EXPECT_EQ(back, NIL_OBJ);
    }
  }
  EXPECT_EQ(with_row, kElementCodeCount);
  char code[3] = "VT";
  PRMTV t = NIL_OBJ;
  PrmtvsDb2Prmtv(code, &t);
  EXPECT_EQ(t, LINE_OBJ);
  std::strcpy(code, "vt");  // codes are upper case
  PrmtvsDb2Prmtv(code, &t);
  EXPECT_EQ(t, NIL_OBJ);
  // The rows without additional columns.
  for (int i = 0; i < kElementCodeCount; ++i) {
    const ElementCode& e = ElementCodes()[i];
    const bool plain = e.type == ELLIPSE_OBJ || e.type == GROUP_OBJ || e.type == PIXEL_OBJ;
    EXPECT_EQ(e.additional_columns, !plain) << e.code;
  }
}

TEST(PrimitiveCodes, LettersOfFormatsKindsAndCategories) {
  const char* formats = "UIFTB";
  for (int v = _UNSIGNED; v <= _BCD; ++v) {
    char ch = 0;
    PrmtvsVfmt2Db(&ch, static_cast<VAL_FORMAT_ATT>(v));
    EXPECT_EQ(ch, formats[v - 1]);
    VAL_FORMAT_ATT back = _NIL_FORMAT;
    PrmtvsDb2Vfmt(ch, &back);
    EXPECT_EQ(back, v);
  }
  char ch = 0;
  PrmtvsVfmt2Db(&ch, _NIL_FORMAT);  // no letter of its own: comes back as _FLOAT
  EXPECT_EQ(ch, 'F');
  VAL_FORMAT_ATT vf = _BCD;
  PrmtvsDb2Vfmt(' ', &vf);
  EXPECT_EQ(vf, _NIL_FORMAT);

  const std::pair<VAR_TYPE_ATT, char> kinds[] = {
      {MEAS_PT, 'M'}, {PROCESS_OBJ, 'P'}, {SYSTEM_OBJ, 'S'}, {REFERENCE_OBJ, ' '}, {NIL_VARTYPE, ' '}};
  for (auto [kind, letter] : kinds) {
    char c = 0;
    PrmtvsDyn2Db(kind, &c);
    EXPECT_EQ(c, letter) << kind;
    VAR_TYPE_ATT back = VAR_TYPE_END;
    PrmtvsDb2Dyn(c, &back);
    EXPECT_EQ(back, kind == REFERENCE_OBJ ? NIL_VARTYPE : kind);  // a reference object comes back as none
  }

  const char* letters = "GDAEVPFSXZ";
  for (int bit = 0; bit < 10; ++bit) {
    const ATT_CATEGORY cat = static_cast<ATT_CATEGORY>(1 << bit);
    char c = 0;
    PrmtvsCat2Db(cat, &c);
    EXPECT_EQ(c, letters[bit]);
    ATT_CATEGORY back = NIL_CAT;
    PrmtvsDb2Cat(c, &back);
    EXPECT_EQ(back, cat);
  }
  for (ATT_CATEGORY cat : {POST_TRIGGER_CAT, RIGHT_MBUTTON_CAT, ALL_CAT, NIL_CAT}) {
    char c = 0;
    PrmtvsCat2Db(cat, &c);
    EXPECT_EQ(c, '0') << cat;
  }
  ATT_CATEGORY cat = ALL_CAT;
  PrmtvsDb2Cat('0', &cat);
  EXPECT_EQ(cat, NIL_CAT);
}

TEST(PrimitiveCodes, TheElementStoresOwnLetters) {
  for (DIRECTION_ATT d : {LEFT, RIGHT, UP, DOWN}) EXPECT_EQ(Db2Direction(Direction2Db(d)), d);
  EXPECT_EQ(Db2Direction(' '), RIGHT);
  EXPECT_EQ(Direction2Db(NIL_DIR), 'R');
  EXPECT_EQ(Db2Barstyle(Barstyle2Db(LINE_BARSTYLE)), LINE_BARSTYLE);
  EXPECT_EQ(Db2Barstyle(' '), BAR_BARSTYLE);
  EXPECT_EQ(Barstyle2Db(NIL_BARSTYLE), 'B');
  EXPECT_EQ(Recostyle2Db(POLY_RECOSTYLE), 'Y');
  EXPECT_EQ(Db2Recostyle(Recostyle2Db(PIXEL_RECOSTYLE)), PIXEL_RECOSTYLE);
  EXPECT_EQ(Db2Recostyle(' '), POLY_RECOSTYLE);
  EXPECT_EQ(Recostyle2Db(NIL_RECOSTYLE), 'X');
  std::set<std::string> pairs;
  for (int a = ALIGN_LEFT_TOP; a <= ALIGN_RIGHT_BOTTOM; ++a) {
    char h = 0, v = 0;
    Alignment2Db(static_cast<ALIGNMENT_ATT>(a), &h, &v);
    EXPECT_EQ(Db2Alignment(h, v), a);
    pairs.insert(std::string{h, v});
  }
  EXPECT_EQ(pairs.size(), 9u);
  EXPECT_TRUE(pairs.count("LT") && pairs.count("HV") && pairs.count("RB"));
  char h = 0, v = 0;
  Alignment2Db(ALIGN_NIL, &h, &v);
  EXPECT_EQ(std::string({h, v}), "HV");
  EXPECT_EQ(Db2Alignment('X', 'T'), ALIGN_CENTER_CENTER);
  EXPECT_EQ(Db2Alignment('T', 'L'), ALIGN_CENTER_CENTER);  // the horizontal letter comes first
}

}  // namespace
}  // namespace kvd::test
