/* Directory tables: the access sets and the directory of figures. */
#ifndef KVD_DIRECTORY_H
#define KVD_DIRECTORY_H

#include "include/kvd_frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/* _DIRAS.DBF: the access sets. */
typedef struct _DIRAS_REC {
  char szName[11];   /* NAME, the key */
  char szDescr[31];  /* DESCR, kept with its blanks */
  char chAccess;     /* ACCESS letter: "E" entered, "I" imported */
} _DIRAS_REC;

/* _DIRFIG.DBF: one row per figure. */
typedef struct _DIRFIG_REC {
  char szName[7];        /* FIGURE, the key */
  char szDescr[31];      /* DESCRIPT */
  int32_t lUlx, lUly, lLrx, lLry;  /* ULX ULY LRX LRY */
  int nParamcnt;         /* PARAMCNT */
  char szFilename[13];   /* FILENAME: the element table of the figure */
  int nBgColor;          /* BGCOLOR */
  int nFrameColor;       /* FRMCLR */
  int fHasControls;      /* CONTROLS, "T" or "F" */
  int32_t lTarResX, lTarResY;  /* TARRESX TARRESY */
} _DIRFIG_REC;

KVD_API long DirAsR(_SELECT_SD* lpSelect, char* lpName, _DIRAS_REC* lpData);
KVD_API long DirAsI(_SELECT_SD* lpSelect, _DIRAS_REC* lpData);
KVD_API long DirAsOC(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor, int nAccess);
KVD_API long DirAsOCAccess(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor, int nAccess);
KVD_API long DirAsFC(_CURSOR_SD* lpCursor, _DIRAS_REC* lpData);
KVD_API long DirAsFCAccess(_CURSOR_SD* lpCursor, _DIRAS_REC* lpData);
KVD_API long DirAsWC(_CURSOR_SD* lpCursor, _DIRAS_REC* lpData);
KVD_API long DirAsWCAccess(_CURSOR_SD* lpCursor, _DIRAS_REC* lpData);
KVD_API long DirAsGaWC(_CURSOR_SD* lpCursor, _DIRAS_REC* lpData);
KVD_API long DirAsGaD(_SELECT_SD* lpSelect);
KVD_API long DirAsSCId(_CURSOR_SD* lpCursor, _DIRAS_REC* lpData);
KVD_API long DirAsCC(_CURSOR_SD* lpCursor);
KVD_API long DirAsCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen);

KVD_API long DirfigR(_SELECT_SD* lpSelect, char* lpName, _DIRFIG_REC* lpData);
KVD_API long DirfigI(_SELECT_SD* lpSelect, _DIRFIG_REC* lpData);
KVD_API long DirfigU(_SELECT_SD* lpSelect, _DIRFIG_REC* lpData);
KVD_API long DirfigD(_SELECT_SD* lpSelect, char* lpName, char* lpFile, int nMaxFile);
KVD_API long DirfigOC(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor, int nAccess);
KVD_API long DirfigFC(_CURSOR_SD* lpCursor, _DIRFIG_REC* lpData);
KVD_API long DirfigFC2(_CURSOR_SD* lpCursor, _DIRFIG_REC* lpData);
KVD_API long DirfigCC(_CURSOR_SD* lpCursor);
KVD_API long DirfigCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen);

#ifdef __cplusplus
}
#endif

#endif
