/* The data objects of a version and the tables round them.
 *
 * A data object is named by an id of up to 22 characters. Four tables of the version directory
 * share one id space: measuring points (_MP.DBF), process objects (_PO.DBF), system objects
 * (_SO.DBF) and reference objects (_REF.DBF); QueryDOType asks them in that order. Sections
 * (_DIRSEC.DBF, _SEC.DBF) list data objects. At project level, _JOB.DBF and _DOATTR.DBF say which
 * jobs and attributes go with which element category and kind of object.
 *
 * Records are the caller's: text members are NUL-terminated and one longer than their column,
 * trimmed unless a member's comment says otherwise. Members named r8... and r4... are 32-bit
 * floats. Numbers of the tables' own width (int16_t, uint16_t, int32_t, uint32_t) are stored as
 * decimal text, masks as hexadecimal text. Every call answers with a status number of
 * include/kvd_frame.h unless its comment says otherwise; a cursor is freed by its closing call.
 * A selection and its cursors belong to one thread at a time.
 */
#ifndef KVD_DATAOBJ_H
#define KVD_DATAOBJ_H

#include <stdint.h>

#include "include/kvd_frame.h"
#include "include/kvd_prmtv.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Measuring points: _MP.DBF, tags "MP" (OBJID) and "POINTID" (POINTID). Read-only. ---- */

typedef enum MP_TYPES { MP_TYP_NIL = 0, MP_TYP_BIN = 1, MP_TYP_ANA = 2 } MP_TYPES;
typedef enum EVL_TYPE { EVL_NO = 0, EVL_TROUBLE = 1, EVL_NOTIFICATION = 2, EVL_CONTROL = 3 } EVL_TYPE;

/* The columns of _MP.DBF in file order. */
typedef enum MP_FIELDS {
  MP_POINTID = 0, MP_DESCRIPT, MP_STATION, MP_SLOT, MP_IOADR, MP_IFADR, MP_SIGNAL, MP_OBJID, MP_SPLTID,
  MP_SPL, MP_REMARK, MP_AIPI, MP_AIVI, MP_ACKNGR, MP_CHGPGR, MP_UNDEFGR, MP_HITI, MP_SCANCYCLE, MP_BINANA,
  MP_FLAG, MP_TID, MP_GRPALARM, MP_COMPPNTID, MP_SCALEGROUP, MP_RANGESTART, MP_RANGEEND, MP_SMOOTHING,
  MP_SNDHYS, MP_LMTHYS, MP_LMTBW, MP_UNIT, MP_STATECNT,
  MP_LVL0 = 32, /* then BLOCKGRP0 STATUS0 AAGR0 VAGR0 SOGR0 EVL0 EVP0 DLYIN0 DLYOUT0, LVL1 ... DLYOUT8 */
  MP_LIMIT1 = 122, MP_DYLGRP1, MP_LIMIT2, MP_DYLGRP2, MP_LIMIT3, MP_DYLGRP3, MP_LIMIT4, MP_DYLGRP4,
  MP_LIMIT5, MP_DYLGRP5, MP_LIMIT6, MP_DYLGRP6, MP_LIMIT7, MP_DYLGRP7,
  MP_COMMENT = 136, MP_VF, MP_LINK, MP_INITVAL, MP_INITVALFLG, NO_FIELDS = 141
} MP_FIELDS;

typedef struct _MP_STATE_REC {
  int16_t sLvl;         /* LVLn: level of the state */
  int16_t sBlockGrp;    /* BLOCKGRPn: block (inhibit) group, key of _ILO.DBF */
  char szStatus[31];    /* STATUSn: state text */
  int16_t sAaGr;        /* AAGRn: audible alarm group */
  int16_t sVaGr;        /* VAGRn: visual alarm group */
  int16_t sSoGr;        /* SOGRn: signal output group */
  uint8_t bEvl;         /* EVLn: event level, the raw character */
  uint8_t bEvp;         /* EVPn: event print mark, the raw character */
  int16_t sDlyIn;       /* DLYINn: delay into the state */
  int16_t sDlyOut;      /* DLYOUTn: delay out of the state */
} _MP_STATE_REC;

typedef struct _MP_LIMIT_REC {
  float r8Limit;   /* LIMITn */
  int16_t sDylGr;  /* DYLIGRn: dynamic-limit group */
} _MP_LIMIT_REC;

typedef struct _MP_REC {
  char chObjType;          /* BINANA: "B" binary, anything else analogue */
  int16_t cLimit;          /* set by no call of the family */
  char szPointId[23];      /* POINTID, the key */
  char szDescr[31];        /* DESCRIPT */
  char szStation[33];      /* STATION */
  char szIoAdr[33];        /* IOADR */
  char szIfAdr[14];        /* IFADR */
  char szSlot[31];         /* SLOT */
  char szUnit[33];         /* UNIT */
  char szAipi[7];          /* AIPI */
  char szAivi[7];          /* AIVI */
  char szSignal[13];       /* SIGNAL */
  char szRemark[21];       /* REMARK */
  char szCompPntId[23];    /* COMPPNTID */
  char szHiti[7];          /* HITI */
  char szTid[3];           /* TID */
  char szGrpAlarm[6];      /* GRPALARM */
  char szComment[15];      /* COMMENT */
  uint16_t usObjId;        /* OBJID */
  int16_t sAcknGrp;        /* ACKNGR */
  int16_t sChgParaGrp;     /* CHGPGR */
  int16_t sUndefGrp;       /* UNDEFGR */
  float r8RangeEnd;        /* RANGEEND */
  float r8SndHys;          /* SNDHYS */
  float r8LmtHys;          /* LMTHYS */
  float r8LmtBW;           /* LMTBW */
  float r8RangeStart;      /* RANGESTART */
  int16_t cScanCycle;      /* SCANCYCLE */
  uint16_t usScaleGroup;   /* SCALEGROUP */
  uint16_t usFlag;         /* FLAG: its two bytes, the first one low */
  VAL_FORMAT_ATT vfmt;     /* VF */
  uint8_t bStateCnt;       /* STATECNT: states in use; all nine are read */
  _MP_STATE_REC abcState[9];
  _MP_LIMIT_REC abcLimit[7];
  char szLink[33];         /* LINK */
  char szInitVal[10];      /* INITVAL, with its blanks */
  char szInitValFlg[2];    /* INITVALFLG, with its blank */
} _MP_REC;

/* Reads the point whose id stands in lpData->szPointId. */
KVD_API long MpR(_SELECT_SD* lpSelect, _MP_REC* lpData);
/* MP_TYP_BIN, MP_TYP_ANA, or MP_TYP_NIL when the point cannot be read: a number, no status. */
KVD_API long MpGetType(_SELECT_SD* lpSelect, char* szVarId);
/* nTag 2: id order ("POINTID"), else object-number order ("MP"). A pattern not beginning with "*"
 * starts the cursor at its fixed beginning and filters MpFC ("?" one character, "*" the rest; a
 * "*" is added behind a pattern shorter than 22 characters that does not end in "?"). */
KVD_API long MpOC(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor, int nAccess, int nTag);
/* The next matching point: szPointId, szDescr and usObjId only. 1 at the end. */
KVD_API long MpFC(_CURSOR_SD* lpCursor, _MP_REC* lpData);
/* The next point, whole, with no filter. */
KVD_API long MpFC2(_CURSOR_SD* lpCursor, _MP_REC* lpData);
/* Blank-pads lpData->szPointId in place and seeks it in the cursor's order (open it with nTag 2). */
KVD_API long MpSCPointId(_CURSOR_SD* lpCursor, _MP_REC* lpData);
KVD_API long MpCC(_CURSOR_SD* lpCursor);
KVD_API long MpCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen);

/* ---- Process objects: _PO.DBF, tags "PO" (TYPE) and "POINTID" (ID). ---- */

typedef enum PO_TYPES { PO_TYP_NIL = 0, PO_TYP_BIN = 1, PO_TYP_ANA = 2 } PO_TYPES;

typedef enum PO_FIELDS {
  PO_ID = 0, PO_DESCR, PO_STATION, PO_OBJID, PO_OBJTYPE, PO_TYPE, PO_UGID, PO_AIPI, PO_FLAG, PO_STXID, PO_EVL,
  PO_IOADR_STA, PO_IOADR_VAL, PO_CADR_STA, PO_CADR_VAL, PO_SF, PO_VF, PO_RANGESTART, PO_RANGEEND, PO_KID_STA,
  PO_KKA_STA, PO_KID_VAL, PO_KKA_VAL, PO_TID, PO_UIP, PO_HITI, PO_FPF, PO_STNNO, PO_COMMENT, PO_NRMOFFS,
  PO_NRMGRAD, PO_LINK, PO_INITVAL, PO_INITVALFLG, PO_INITSTA, PO_INITSTAFLG, PO_NO_FIELDS
} PO_FIELDS;

typedef struct _PO_REC {
  char chType;             /* TYPE: "B" binary, anything else analogue */
  char szStation[33];      /* STATION */
  uint16_t usObjId;        /* OBJID */
  float r8RangeStart;      /* RANGESTART, N 9.3 */
  float r8RangeEnd;        /* RANGEEND, N 9.3 */
  char szPoId[23];         /* ID, the key */
  char szPoDescr[31];      /* DESCR */
  char szIoAdrState[33];   /* IOADR_STA */
  char szIoAdrValue[33];   /* IOADR_VAL */
  VAL_FORMAT_ATT vfmt;     /* VF */
  uint16_t usFlag;         /* FLAG: its two bytes, the first one low */
  uint16_t usUsrGrp;       /* USRGRP, N 3 */
  char szStsTxtId[7];      /* STXID */
  char szEvl[2];           /* EVL */
  char szTid[3];           /* TID */
  uint8_t bReg;            /* UIP, the character */
  char szCidSts[7];        /* KID_STA */
  int32_t lCcaSts;         /* KKA_STA, N 5 */
  char szCidVal[7];        /* KID_VAL */
  int32_t lCcaVal;         /* KKA_VAL, N 5 */
  char szAipi[7];          /* AIPI */
  char szHiti[7];          /* HITI */
  char szComment[31];      /* ADDTXT */
  int16_t sFixPointFormat; /* FPF, the character */
  float r4NrmGrad;         /* kept in the column NRMOFFS, N 12.5 */
  float r4NrmOffs;         /* kept in the column NRMGRAD, N 12.5 */
  char szLink[33];         /* LINK */
  char szInitVal[10];      /* INITVAL, with its blanks */
  char szInitValFlg[2];    /* INITVALFLG, with its blank */
  char szInitSta[10];      /* INITSTA, with its blanks */
  char szInitStaFlg[2];    /* INITSTAFLG, with its blank */
} _PO_REC;

KVD_API long PoR(_SELECT_SD* lpSelect, _PO_REC* lpData);
/* Adds the object, or replaces the one with its id; OBJTYPE, CADR_STA, CADR_VAL, SF and STNNO of
 * a replaced row keep their values, a new row has them blank. */
KVD_API long PoU(_SELECT_SD* lpSelect, _PO_REC* lpData);
/* PO_TYP_BIN, PO_TYP_ANA, or PO_TYP_NIL when the object cannot be read: a number, no status. */
KVD_API long PoGetType(_SELECT_SD* lpSelect, char* szVarId);
/* As MpOC: nTag 2 id order ("POINTID"), else type order ("PO"). */
KVD_API long PoOC(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor, int nAccess, int nTag);
KVD_API long PoFC(_CURSOR_SD* lpCursor, _PO_REC* lpData);      /* the next matching row, whole */
KVD_API long PoSCId(_CURSOR_SD* lpCursor, _PO_REC* lpData);    /* pads szPoId in place, seeks it */
KVD_API long PoCC(_CURSOR_SD* lpCursor);
KVD_API long PoCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen);

/* ---- System objects: _SO.DBF and its import twin _ISO.DBF, tags "POINTID" (ID), "OBJID",
 * "ACCESS". ---- */

typedef struct _SO_REC {
  char szSoId[23];       /* ID, the key */
  char szSoDescr[31];    /* DESCR */
  char szSoText[256];    /* TEXT */
  float r4Value;         /* VALUE, N 9.3 */
  int32_t lStatus;       /* STATUS: decimal text in a 30-character column */
  char chAccess;         /* ACCESS letter: "E" entered, "I" imported */
  uint16_t usObjId;      /* OBJID */
  VAL_FORMAT_ATT vfmt;   /* VF */
  uint16_t usUsrGrp;     /* USRGRP */
  char szHiTiId[7];      /* HITI */
  float r4Value1, r4Value2, r4Value3, r4Value4, r4Value5;  /* VALUE1 to VALUE5, N 9.3 */
  char szTxt1[256], szTxt2[256], szTxt3[256], szTxt4[256], szTxt5[256];  /* TEXT1 to TEXT5 */
} _SO_REC;

KVD_API long SoR(_SELECT_SD* lpSelect, _SO_REC* lpData);
/* 11 when the id exists; else appends with the letter "E", set in lpData too. */
KVD_API long SoI(_SELECT_SD* lpSelect, _SO_REC* lpData);
/* Changes TEXT of an existing object and nothing else; 1 when the id is missing. */
KVD_API long SoU(_SELECT_SD* lpSelect, _SO_REC* lpData);
/* nTag 2: id order, else object-number order ("OBJID"); the pattern rules of MpOC. */
KVD_API long SoOC(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor, int nAccess, int nTag);
/* Object-number order; lpWildcard sought and kept as it is. */
KVD_API long SoOC2(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor, int nAccess);
/* A cursor on the access letters in lpWildcard, on _ISO.DBF when fImport is nonzero. With nAccess 1
 * the rows of those letters are removed first, so that its WC replaces them. */
KVD_API long SoOCAccess(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor, int nAccess, int fImport);
KVD_API long SoFC(_CURSOR_SD* lpCursor, _SO_REC* lpData);
KVD_API long SoFCAccess(_CURSOR_SD* lpCursor, _SO_REC* lpData);
KVD_API long SoWC(_CURSOR_SD* lpCursor, _SO_REC* lpData);
KVD_API long SoWCAccess(_CURSOR_SD* lpCursor, _SO_REC* lpData);  /* 14 for a letter not in the set */
KVD_API long SoGaWC(_CURSOR_SD* lpCursor, _SO_REC* lpData);      /* sets the letter "I" in lpData */
KVD_API long SoGaD(_SELECT_SD* lpSelect);                        /* removes the "I" rows of _SO.DBF */
KVD_API long SoSCId(_CURSOR_SD* lpCursor, _SO_REC* lpData);      /* pads szSoId in place, seeks it */
KVD_API long SoCC(_CURSOR_SD* lpCursor);
/* _ISO.DBF, then _SO.DBF; the lines of both go into the message. */
KVD_API long SoCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen);
/* 0 when szVarId is a system object, 1 when not or when _SO.DBF cannot be read; no status. */
KVD_API long SoCheckSoObj(_SELECT_SD* lpSelect, char* szVarId);

/* ---- Reference objects: _REF.DBF and its import twin _IREF.DBF, tags "POINTID" (ID),
 * "OBJNUM", "ACCESS". ---- */

typedef struct _REF_REC {
  char szId[23];       /* ID: this object */
  char szDescr[31];    /* DESCR */
  uint16_t usObjNum;   /* OBJNUM: neither read nor written by any call */
  char szRefId[23];    /* REFID: the object referred to */
  char chAccess;       /* ACCESS letter */
  uint16_t usUsrGrp;   /* USRGRP */
} _REF_REC;

/* Reads the object whose ID is the text in lpData->szRefId (not szId); a hit overwrites szRefId
 * with what the row refers to. */
KVD_API long RefR(_SELECT_SD* lpSelect, _REF_REC* lpData);
/* nTag 2: id order, else "OBJNUM" order; the pattern rules of MpOC. */
KVD_API long RefOC(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor, int nAccess, int nTag);
KVD_API long RefOC2(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor, int nAccess);
KVD_API long RefOCAccess(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor, int nAccess, int fImport);
KVD_API long RefFC(_CURSOR_SD* lpCursor, _REF_REC* lpData);
KVD_API long RefFCAccess(_CURSOR_SD* lpCursor, _REF_REC* lpData);
KVD_API long RefWC(_CURSOR_SD* lpCursor, _REF_REC* lpData);
KVD_API long RefWCAccess(_CURSOR_SD* lpCursor, _REF_REC* lpData);
KVD_API long RefSCId(_CURSOR_SD* lpCursor, _REF_REC* lpData);  /* pads szId in place, seeks it */
KVD_API long RefCC(_CURSOR_SD* lpCursor);
KVD_API long RefCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen);
/* 0 when szVarId is a reference object in _REF.DBF, 1 otherwise; no status. */
KVD_API long RefCheckRefObj(_SELECT_SD* lpSelect, char* szVarId);

/* The kind of data object that holds szId (MEAS_PT ... REFERENCE_OBJ), asking _MP, _PO, _SO and
 * _REF in that order; NIL_VARTYPE when none has it. A number, no status. */
KVD_API long QueryDOType(_SELECT_SD* lpSelect, char* szId);

/* ---- Sections: _DIRSEC.DBF names them, _SEC.DBF lists their lines. ---- */

typedef enum LOTYP {
  LOTYP_TEXT = 0, LOTYP_FFSCR = 1, LOTYP_FFPT = 2, LOTYP_OBJ = 10, LOTYP_OBBAR = 11, LOTYP_END = 32767
} LOTYP;

typedef struct _SEC_REC {
  char szSecNo[7];      /* SECNO: the section */
  char szPntId[23];     /* PNTID: a data object */
  char szComment[256];  /* COMMENT */
  LOTYP LayoutTyp;      /* LOTYP */
  uint16_t usObjId;     /* OBJID */
} _SEC_REC;

typedef struct _DIRSEC_REC {
  char szSecNo[7];      /* SECNO */
  char szDescr[31];     /* DESCR */
  int32_t lStartTime;   /* STRTTIM: "hh:mm:ss" as seconds */
  int32_t lIntvTime;    /* INTVTIM: "hh:mm:ss" as seconds */
} _DIRSEC_REC;

/* The first line of a section. Pads szSecNo in place to 6 characters: it must hold 7 bytes. */
KVD_API long SecR(_SELECT_SD* lpSelect, char* szSecNo, _SEC_REC* lpData);
/* An empty lpWildcard counts as none; SecFC answers 1 at the first line whose 6-character SECNO
 * differs from it, so give the section filled to 6. */
KVD_API long SecOC(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor, int nAccess);
KVD_API long SecFC(_CURSOR_SD* lpCursor, _SEC_REC* lpData);
KVD_API long SecCC(_CURSOR_SD* lpCursor);
KVD_API long SecCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen);
/* The first line, in point order, whose PNTID begins with szPointId as given. */
KVD_API long SecRPointId(_SELECT_SD* lpSelect, char* szPointId, _SEC_REC* lpData);
/* Lines in point order from lpWildcard on; SecFCPointId stops at the first PNTID that does not
 * begin with it. */
KVD_API long SecOCPointId(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor, int nAccess);
KVD_API long SecFCPointId(_CURSOR_SD* lpCursor, _SEC_REC* lpData);
KVD_API long SecCCPointId(_CURSOR_SD* lpCursor);

/* Pads szSecNo in place to 6 characters: it must hold 7 bytes. */
KVD_API long DirsecR(_SELECT_SD* lpSelect, char* szSecNo, _DIRSEC_REC* lpData);
/* An empty lpWildcard counts as none; a key only gives the start: DirsecFC has no filter. */
KVD_API long DirsecOC(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor, int nAccess);
KVD_API long DirsecFC(_CURSOR_SD* lpCursor, _DIRSEC_REC* lpData);
KVD_API long DirsecCC(_CURSOR_SD* lpCursor);
KVD_API long DirsecCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen);

/* ---- Jobs and data-object attributes: _JOB.DBF and _DOATTR.DBF in the project directory,
 * read-only, each with one tag on its upper-case name. ----
 *
 * The selection mask: bits 0x000FFF00 the element category, bits 0x8000007F the kind of object
 * (0x1 binary and 0x2 analogue measuring point, 0x4 binary and 0x8 analogue process object, 0x10
 * system object, 0x20 reference object, 0x80000000 no known kind), bit 0x80 a requirement. A row's
 * word w passes a request m when w & m has a category bit and an object bit, and w has 0x80 where
 * m has it. */

/* What a data object can show: the attribute vocabulary of the suite, carried by the picture
 * elements and the attribute table. */
typedef enum DO_ATTR_TYPE {
  DO_PID = 0, DO_DESCR, DO_VALUE, DO_STS, DO_XMT, DO_SLOT, DO_PLC_ADR, DO_PLC_STS_ADR, DO_PLC_VALUE_ADR,
  DO_OBJNUM,
  DO_LVL_ACT = 10, DO_LVL_STS_0, DO_LVL_STS_1, DO_LVL_STS_2, DO_LVL_STS_3, DO_LVL_STS_4, DO_LVL_STS_5,
  DO_LVL_STS_6, DO_LVL_STS_7, DO_LVL_STS_8,
  DO_TXT_STS_ACT = 20, DO_TXT_STS_0, DO_TXT_STS_1, DO_TXT_STS_2, DO_TXT_STS_3, DO_TXT_STS_4, DO_TXT_STS_5,
  DO_TXT_STS_6, DO_TXT_STS_7, DO_TXT_STS_8,
  DO_INH_STS_ACT = 30, DO_INH_STS_0, DO_INH_STS_1, DO_INH_STS_2, DO_INH_STS_3, DO_INH_STS_4, DO_INH_STS_5,
  DO_INH_STS_6, DO_INH_STS_7, DO_INH_STS_8,
  DO_UNIT = 40, DO_SCALEGRP, DO_SCAN_CYCLE, DO_COMMENT, DO_TID, DO_STATION_ID, DO_STATION_DESC, DO_TXT,
  DO_DELAY_IN_STS_0 = 48, DO_DELAY_IN_STS_1, DO_DELAY_IN_STS_2, DO_DELAY_IN_STS_3, DO_DELAY_IN_STS_4,
  DO_DELAY_IN_STS_5, DO_DELAY_IN_STS_6, DO_DELAY_IN_STS_7, DO_DELAY_IN_STS_8,
  DO_DELAY_OUT_STS_0 = 57, DO_DELAY_OUT_STS_1, DO_DELAY_OUT_STS_2, DO_DELAY_OUT_STS_3, DO_DELAY_OUT_STS_4,
  DO_DELAY_OUT_STS_5, DO_DELAY_OUT_STS_6, DO_DELAY_OUT_STS_7, DO_DELAY_OUT_STS_8,
  DO_LIMIT_1 = 66, DO_LIMIT_2, DO_LIMIT_3, DO_LIMIT_4, DO_LIMIT_5, DO_LIMIT_6, DO_LIMIT_7,
  DO_RANGE = 73, DO_RANGE_START, DO_RANGE_END, DO_CHG_ACCESS, DO_UNDEF_GRP, DO_USR_GRP, DO_USR_GRP_REF_OBJ,
  DO_IN_ARCH_STS_0 = 80, DO_IN_ARCH_STS_1, DO_IN_ARCH_STS_2, DO_IN_ARCH_STS_3, DO_IN_ARCH_STS_4,
  DO_IN_ARCH_STS_5, DO_IN_ARCH_STS_6, DO_IN_ARCH_STS_7, DO_IN_ARCH_STS_8,
  DO_AUD_ALARM_STS_ACT = 89, DO_AUD_ALARM_STS_0, DO_AUD_ALARM_STS_1, DO_AUD_ALARM_STS_2, DO_AUD_ALARM_STS_3,
  DO_AUD_ALARM_STS_4, DO_AUD_ALARM_STS_5, DO_AUD_ALARM_STS_6, DO_AUD_ALARM_STS_7, DO_AUD_ALARM_STS_8,
  DO_ALARM_ACT = 99,
  DO_DYN_LIMIT_1 = 100, DO_DYN_LIMIT_2, DO_DYN_LIMIT_3, DO_DYN_LIMIT_4, DO_DYN_LIMIT_5, DO_DYN_LIMIT_6,
  DO_DYN_LIMIT_7,
  DO_PRINT_STS_0 = 107, DO_PRINT_STS_1, DO_PRINT_STS_2, DO_PRINT_STS_3, DO_PRINT_STS_4, DO_PRINT_STS_5,
  DO_PRINT_STS_6, DO_PRINT_STS_7, DO_PRINT_STS_8,
  DO_SIG_OUTPUT_STS_ACT = 116, DO_SIG_OUTPUT_STS_0, DO_SIG_OUTPUT_STS_1, DO_SIG_OUTPUT_STS_2,
  DO_SIG_OUTPUT_STS_3, DO_SIG_OUTPUT_STS_4, DO_SIG_OUTPUT_STS_5, DO_SIG_OUTPUT_STS_6, DO_SIG_OUTPUT_STS_7,
  DO_SIG_OUTPUT_STS_8,
  DO_VIS_ALARM_STS_ACT = 126, DO_VIS_ALARM_STS_0, DO_VIS_ALARM_STS_1, DO_VIS_ALARM_STS_2, DO_VIS_ALARM_STS_3,
  DO_VIS_ALARM_STS_4, DO_VIS_ALARM_STS_5, DO_VIS_ALARM_STS_6, DO_VIS_ALARM_STS_7, DO_VIS_ALARM_STS_8,
  DO_IS_STS_ACT_INH = 136, DO_IS_STS_1_INH, DO_IS_STS_2_INH, DO_IS_STS_3_INH, DO_IS_STS_4_INH,
  DO_IS_STS_5_INH, DO_IS_STS_6_INH, DO_IS_STS_7_INH, DO_IS_STS_8_INH,
  DO_VALUE_INT = 145, DO_LIMIT_HYST, DO_SND_HYST, DO_OBJ_TYP, DO_ALARM_DISPL, DO_ALARM_VIDEO, DO_COMP_PID,
  DO_ACKN_ACCESS, DO_HITI_ID, DO_PID_FROM_VALUE, DO_SIMU_TYPE, DO_SIMU_FREEZE, DO_SIMU_PARAM1,
  DO_SIMU_PARAM2, DO_HAS_HIST, DO_REC_HIST, DO_OLD_STATUS, DO_STATUS_CHNG_UT, DO_LIMITA, DO_LIMITB,
  DO_GRPALARM, DO_LIMIT_BW,
  DO_VALUE1 = 167, DO_VALUE2, DO_VALUE3, DO_VALUE4, DO_VALUE5,
  DO_TXT1 = 172, DO_TXT2, DO_TXT3, DO_TXT4, DO_TXT5,
  DO_HAS_LIMITA = 177, DO_HAS_LIMITB,
  DO_PRN_STS_0_CHNGBL = 179, DO_PRN_STS_1_CHNGBL, DO_PRN_STS_2_CHNGBL, DO_PRN_STS_3_CHNGBL,
  DO_PRN_STS_4_CHNGBL, DO_PRN_STS_5_CHNGBL, DO_PRN_STS_6_CHNGBL, DO_PRN_STS_7_CHNGBL, DO_PRN_STS_8_CHNGBL,
  DO_STS_INHGRP_LAYOUT = 188, DO_STS_INHGRP_OBJCOUNT, DO_STS_INHGRP_DSTOBJ,
  DO_STS_INHGRP_BLKOBJ1 = 191, DO_STS_INHGRP_BLKOBJ2, DO_STS_INHGRP_BLKOBJ3, DO_STS_INHGRP_BLKOBJ4,
  DO_STS_INHGRP_BLKSTS1 = 195, DO_STS_INHGRP_BLKSTS2, DO_STS_INHGRP_BLKSTS3, DO_STS_INHGRP_BLKSTS4,
  DO_STS_INHGRP_STS = 199, DO_STTS_CHNG_LT, DO_STTS_CHNG_UT, DO_LINK, DO_REMARK, DO_STS_COUNT,
  NUM_DOATTR = 205,
  NO_DO_ATTR_TYPE = 32767
} DO_ATTR_TYPE;

/* The object types of the suite. */
typedef enum OBJ_TYPE {
  MP_BIN_STS_1 = 0, MP_BIN_STS_2, MP_BIN_STS_3, MP_BIN_STS_4, MP_BIN_STS_5, MP_BIN_STS_6, MP_BIN_STS_7,
  MP_BIN_STS_8,
  MP_ANA_LIM_0 = 8, MP_ANA_LIM_1, MP_ANA_LIM_2, MP_ANA_LIM_3, MP_ANA_LIM_4, MP_ANA_LIM_5, MP_ANA_LIM_6,
  MP_ANA_LIM_7,
  PO_BIN = 16, PO_ANA = 17, SO = 18, REF = 19,
  PV_BIT = 20, PV_U08, PV_S08, PV_U16, PV_S16, PV_U32, PV_S32, PV_F32, PV_STR, PV_S5T, PV_IEC,
  NO_OBJ_TYPE = 32767
} OBJ_TYPE;

typedef struct _PRM_REC {
  uint32_t ulTyp;       /* PRMTYPn: the parameter's type; top byte 0x04/0x05 a point id, 0x1A an attribute */
  char szPrmpt[31];     /* PRMPRMPTn: the prompt, filled with blanks to 30 */
} _PRM_REC;

typedef struct _JOB_REC {
  char szJobName[17];     /* JOBNAME */
  char szJobDescr[31];    /* JOBDESCR */
  char szDllName[9];      /* DLLNAME */
  char szFnName[25];      /* FNNAME */
  char szDbName[9];       /* DBNAME: the table the job's value lives in */
  char szDbField[11];     /* DBFIELD: its column */
  uint16_t usLen;         /* DBLEN */
  char szEdValid[2];      /* EDVALID: "T" when the value can be had */
  uint32_t ulSelectMask;  /* SELMASK, hexadecimal */
  uint32_t ulRefreshTyp;  /* REFRESHTYP, hexadecimal */
  uint32_t ulJobType;     /* TYPE, hexadecimal: the selection mask of the job */
  uint16_t usPrmCnt;      /* PRMCNT */
  _PRM_REC aprm[10];      /* PRMTYP0/PRMPRMPT0 to PRMTYP9/PRMPRMPT9 */
  char szJobQuery[17];    /* JOBQUERY */
  uint16_t usAttrMask;    /* ATTRMASK, hexadecimal */
} _JOB_REC;

typedef struct _DOATTR_REC {
  char szDoAttrName[17];   /* DOATTRNAME */
  char szDoAttrDescr[31];  /* DESCR */
  char szDbName[9];        /* DBNAME */
  char szDbField[11];      /* DBFIELD, in measuring-point column names */
  uint16_t usLen;          /* DBLEN */
  char szEdValid[2];       /* EDVALID */
  uint32_t ulRefreshTyp;   /* REFRESHTYP, hexadecimal */
  uint32_t ulParamType;    /* PARAMTYPE, hexadecimal */
  uint32_t ulJobMaskQ;     /* JOBMASKQ, hexadecimal */
  uint32_t ulJobMaskS;     /* JOBMASKS, hexadecimal */
  uint16_t usAttrMask;     /* ATTRMASK, hexadecimal */
} _DOATTR_REC;

/* A cursor on the jobs whose TYPE passes ulTyp; JobFC gives the row and moves on to the next that
 * passes. ulTyp 0xFFFFFF7F applies the rule to the first row only. */
KVD_API long JobOC(_SELECT_SD* lpSelect, uint32_t ulTyp, _CURSOR_SD** lplpCursor, int nAccess);
KVD_API long JobFC(_CURSOR_SD* lpCursor, _JOB_REC* lpData);
KVD_API long JobCC(_CURSOR_SD* lpCursor);
KVD_API long JobCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen);
/* The category bits of an element type (PRMTV) in a category; 0xFFFFFFFF for NIL_CAT. */
KVD_API uint32_t JobCalcCatMask(int toty, ATT_CATEGORY tcat);
/* ulJobMask with the object bits of the data object lpszVarId of kind tvarty. */
KVD_API uint32_t JobCalcVarMask(_SELECT_SD* lpSelect, uint32_t ulJobMask, VAR_TYPE_ATT tvarty, char* lpszVarId);
/* The current value of the data object a job's parameters name, as text in lpBuffer, which holds
 * nMaxBuffer + 1 bytes; "?" in every place the value cannot fill. 29: the job has no usable point
 * parameter or is not valid; 30: its table cannot be opened. 0 also when the object is missing. */
KVD_API long JobGetDBParam(_SELECT_SD* lpSelect, char* lpJob, char aszParams[][50], int cnParams, char* lpBuffer,
                           unsigned short nMaxBuffer);

/* As JobOC, with JOBMASKQ | JOBMASKS as the row's word and no value that lifts the rule. */
KVD_API long DoAttrOC(_SELECT_SD* lpSelect, uint32_t ulTyp, _CURSOR_SD** lplpCursor, int nAccess);
KVD_API long DoAttrFC(_CURSOR_SD* lpCursor, _DOATTR_REC* lpData);
KVD_API long DoAttrCC(_CURSOR_SD* lpCursor);
KVD_API long DoAttrCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen);
/* Where the attribute lpszDoAttr of the data object lpszDO is stored: table and column appended
 * to lpszDBName and lpszDBField (both emptied first), the length in *pusLen. */
KVD_API long DoAttrGetDBInfo(_SELECT_SD* lpSelect, char* lpszDoAttr, char* lpszDO, char* lpszDBName,
                             char* lpszDBField, unsigned short* pusLen);

#ifdef __cplusplus
}
#endif

#endif
