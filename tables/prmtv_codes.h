// The code sets of the picture model as the element tables store them: the exported conversions
// (include/kvd_prmtv.h) and those only the element store uses (direction, bar style, recorder
// style, alignment), and the letter codes of value formats for the families' columns.
#pragma once

#include "frame/family.h"
#include "include/kvd_prmtv.h"

namespace kvd::tables {

// One row of the element table: the two-letter code, the type, and whether the element has
// columns beyond the common ones.
struct ElementCode {
  char code[3];
  PRMTV type;
  bool additional_columns;
};
// The 24 rows in their order; the last ("NI", NIL_OBJ) is the code of every type without a row.
const ElementCode* ElementCodes();
constexpr int kElementCodeCount = 24;
// The row of a type; the last row for a type that has none.
const ElementCode& ElementCodeOf(PRMTV type);

// Direction: "L" "U" "D", and "R" for RIGHT; any other letter reads as RIGHT, any other value is
// stored "R".
DIRECTION_ATT Db2Direction(char ch);
char Direction2Db(DIRECTION_ATT dir);
// Bar style: "B" and "L"; any other letter reads and any other value is stored as the bar.
BARSTYLE_ATT Db2Barstyle(char ch);
char Barstyle2Db(BARSTYLE_ATT style);
// Recorder style: "X" pixel; any other letter reads as POLY_RECOSTYLE, which is stored "Y"; any
// other value is stored "X".
RECOSTYLE_ATT Db2Recostyle(char ch);
char Recostyle2Db(RECOSTYLE_ATT style);
// Alignment from the two letters of ALIGNH and ALIGNV at once ("LT" ... "RB"); any other pair reads
// as centre-centre, and ALIGN_NIL or another value is stored "HV".
ALIGNMENT_ATT Db2Alignment(char horizontal, char vertical);
void Alignment2Db(ALIGNMENT_ATT align, char* horizontal, char* vertical);

// The value format as a column's letter (Conv::kCode).
extern const frame::LetterCode kVfmtCode;

}  // namespace kvd::tables
