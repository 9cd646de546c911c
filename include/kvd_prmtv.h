/* The code sets of the picture model and their stored letters.
 *
 * Element types, value formats, kinds of data object and attribute categories are kept in the
 * tables as one or two letters. The conversions below are pure lookups without state; every one
 * answers 0. The way back is not always exact: a value without a letter of its own is stored as a
 * neighbour's letter (see each function).
 */
#ifndef KVD_PRMTV_H
#define KVD_PRMTV_H

#include "include/kvd_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The element types of a picture. */
typedef enum PRMTV {
  NIL_OBJ = 0, FIGURE_OBJ = 1, POLYGON_OBJ = 2, RECTANGLE_OBJ = 3, ELLIPSE_OBJ = 4, LINE_OBJ = 5,
  PIXEL_OBJ = 6, PIE_OBJ = 7, ARC_OBJ = 8, TEXT_OBJ = 9, BITMAP_OBJ = 10, BARGRAPH_OBJ = 11,
  RECORDER_OBJ = 12, ANALOGMETER_OBJ = 13, DIGITALMETER_OBJ = 14, VARTEXT_OBJ = 15, ENTRYFIELD_OBJ = 16,
  CHKBOX_OBJ = 17, BUTTON_OBJ = 18, GROUP_OBJ = 19, EDITTEXT_OBJ = 20, EDITNUM_OBJ = 21, LISTBOX_OBJ = 22,
  PARTPIC_OBJ = 23, SLIDER_OBJ = 24, SCALE_OBJ = 25, MENU_AREA = 26, APPL_AREA = 27, ALRM_AREA = 28,
  EVNT_AREA = 29, HDR_AREA = 30, SYS_AREA = 31, FRAME_OBJ = 32, PROMPT_OBJ = 33, POPUP_AREA = 34,
  EVNT_PRNT = 35, ALRM_PRNT = 36, SMRY_PRNT = 37, SECT_PRNT = 38, END_PRMTV = 32767
} PRMTV;

/* How a value is shown. Stored as "U" "I" "F" "T" "B". */
typedef enum VAL_FORMAT_ATT {
  _NIL_FORMAT = 0, _UNSIGNED = 1, _SIGNED = 2, _FLOAT = 3, _TIMER = 4, _BCD = 5, VAL_FORMAT_END = 32767
} VAL_FORMAT_ATT;

/* The kinds of data object, in the order QueryDOType asks the tables. Stored as "M" "P" "S". */
typedef enum VAR_TYPE_ATT {
  NIL_VARTYPE = 0, MEAS_PT = 1, PROCESS_OBJ = 2, SYSTEM_OBJ = 3, REFERENCE_OBJ = 4, VAR_TYPE_END = 32767
} VAR_TYPE_ATT;

/* Attribute categories of an element: a bit set. */
typedef enum ATT_CATEGORY {
  NIL_CAT = 0, GENERAL_CAT = 1, DYNAMIC_CAT = 2, ACTION_CAT = 4, ENABLE_CAT = 8, VARIABLES_CAT = 16,
  FIGAP_CAT = 32, FORMAT_CAT = 64, SCALING_START_CAT = 128, SCALING_END_CAT = 256, ZERO_OFFSET_CAT = 512,
  POST_TRIGGER_CAT = 1024, RIGHT_MBUTTON_CAT = 2048, ALL_CAT = 4095, ATT_CATEGORY_END = 32767
} ATT_CATEGORY;

typedef enum ALIGNMENT_ATT {
  ALIGN_NIL = 0, ALIGN_LEFT_TOP = 1, ALIGN_LEFT_CENTER = 2, ALIGN_LEFT_BOTTOM = 3, ALIGN_CENTER_TOP = 4,
  ALIGN_CENTER_CENTER = 5, ALIGN_CENTER_BOTTOM = 6, ALIGN_RIGHT_TOP = 7, ALIGN_RIGHT_CENTER = 8,
  ALIGN_RIGHT_BOTTOM = 9, ALIGNMENT_END = 32767
} ALIGNMENT_ATT;

typedef enum DIRECTION_ATT { NIL_DIR = 0, LEFT = 1, RIGHT = 2, UP = 3, DOWN = 4, DIRECTION_END = 32767 } DIRECTION_ATT;

typedef enum BARSTYLE_ATT {
  NIL_BARSTYLE = 0, BAR_BARSTYLE = 1, LINE_BARSTYLE = 2, BARSTYLE_END = 32767
} BARSTYLE_ATT;

typedef enum RECOSTYLE_ATT {
  NIL_RECOSTYLE = 0, PIXEL_RECOSTYLE = 1, POLY_RECOSTYLE = 2, RECOSTYLE_END = 32767
} RECOSTYLE_ATT;

typedef enum ROTATE_ATT { ROT_NIL = 0, ROT_90 = 90, ROT_180 = 180, ROT_270 = 270, ROTATE_END = 32767 } ROTATE_ATT;

typedef enum EDITFIELD_TYPE_ATT {
  ED_TYP_STRING = 0, ED_TYP_DATE = 1, ED_TYP_TIME = 2, ED_TYP_SETPOINT = 3, ED_TYP_INTEGER = 4,
  EDITFIELD_TYPE_END = 32767
} EDITFIELD_TYPE_ATT;

typedef enum RECORDER_SRC_ATT { VALUEPOOL = 0, LOOPEULAV = 1, RECORDER_SRC_END = 32767 } RECORDER_SRC_ATT;

/* Two-letter element code to type; a code not in the element table reads as NIL_OBJ. */
KVD_API long PrmtvsDb2Prmtv(char* lpch, PRMTV* lptoty);
/* Type to its two letters, NOT terminated (lpch holds at least 4 bytes); a type without a row of
 * its own (SLIDER_OBJ and above) gets "NI". */
KVD_API long PrmtvsPrmtv2Db(PRMTV toty, char* lpch);
/* Letter to value format; any other letter is _NIL_FORMAT. */
KVD_API long PrmtvsDb2Vfmt(char ch, VAL_FORMAT_ATT* pvfmt);
/* Value format to its letter (one byte, not terminated); _NIL_FORMAT and unknown values are stored "F". */
KVD_API long PrmtvsVfmt2Db(char* lpch, VAL_FORMAT_ATT vfmt);
/* Letter to kind of data object; any other letter is NIL_VARTYPE. */
KVD_API long PrmtvsDb2Dyn(char ch, VAR_TYPE_ATT* pvarty);
/* Kind to its letter (one byte); REFERENCE_OBJ and unknown kinds are stored as a blank. */
KVD_API long PrmtvsDyn2Db(VAR_TYPE_ATT i, char* pch);
/* Letter to category; any other letter is NIL_CAT. */
KVD_API long PrmtvsDb2Cat(char ch, ATT_CATEGORY* lptcat);
/* Category to its letter (one byte); categories without a letter are stored "0". */
KVD_API long PrmtvsCat2Db(ATT_CATEGORY tcat, char* lpch);

#ifdef __cplusplus
}
#endif

#endif
