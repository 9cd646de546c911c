/* Operators and their rights: _USER.DBF (one row per user) and _USRPRFL.DBF (one row per profile
 * and function the profile may use), both in the version directory. The library stores and hands
 * out the rows; it checks no login.
 *
 * Both families have the access-letter set: I writes the letter "E", GaWC "I", GaD removes the "I"
 * rows; OCAccess with nAccess 1 removes the rows of its letters so that its WC replaces them.
 * Statuses as in include/kvd_frame.h; I answers 1 (not 11) for a key that exists.
 */
#ifndef KVD_USER_H
#define KVD_USER_H

#include <stdint.h>

#include "include/kvd_frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/* _USER.DBF, tags "LINKKEY" (USRNAME) and "ACCESS". */
typedef struct _USER_REC {
  char szUserName[16];   /* USRNAME, the key */
  char szPwd[11];        /* USRPWD: stored as given, trimmed when read */
  uint32_t ulKeyCardId;  /* KCID */
  uint16_t usPrflId;     /* PRFLID: the user's profile */
  uint16_t usUserId;     /* USRID */
  char chAccess;         /* ACCESS letter */
} _USER_REC;

/* _USRPRFL.DBF, tags "LINKKEY" (PRFLID+FNCTNID) and "ACCESS". The key is the two numbers, each
 * right-aligned in 3 characters. */
typedef struct _USRPRFL_REC {
  uint16_t usPrflId;   /* PRFLID */
  uint16_t usFnctnId;  /* FNCTNID */
  char chAccess;       /* ACCESS letter */
} _USRPRFL_REC;

/* R, I and SCId take the key in the record. UsrFC compares its pattern with the name filled with
 * blanks to 15 (so "OP" finds no "OP" row; "OP*" does); UpFC with the six-character key. */
KVD_API long UsrR(_SELECT_SD* lpSelect, _USER_REC* lpData);
KVD_API long UsrI(_SELECT_SD* lpSelect, _USER_REC* lpData);
KVD_API long UsrOC(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor, int nAccess);
KVD_API long UsrOCAccess(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor, int nAccess);
KVD_API long UsrFC(_CURSOR_SD* lpCursor, _USER_REC* lpData);
KVD_API long UsrFCAccess(_CURSOR_SD* lpCursor, _USER_REC* lpData);
KVD_API long UsrWC(_CURSOR_SD* lpCursor, _USER_REC* lpData);
KVD_API long UsrWCAccess(_CURSOR_SD* lpCursor, _USER_REC* lpData);
KVD_API long UsrGaWC(_CURSOR_SD* lpCursor, _USER_REC* lpData);
KVD_API long UsrGaD(_SELECT_SD* lpSelect);
KVD_API long UsrSCId(_CURSOR_SD* lpCursor, _USER_REC* lpData);
KVD_API long UsrCC(_CURSOR_SD* lpCursor);
KVD_API long UsrCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen);

KVD_API long UpR(_SELECT_SD* lpSelect, _USRPRFL_REC* lpData);
KVD_API long UpI(_SELECT_SD* lpSelect, _USRPRFL_REC* lpData);
KVD_API long UpOC(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor, int nAccess);
KVD_API long UpOCAccess(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor, int nAccess);
KVD_API long UpFC(_CURSOR_SD* lpCursor, _USRPRFL_REC* lpData);
KVD_API long UpFCAccess(_CURSOR_SD* lpCursor, _USRPRFL_REC* lpData);
KVD_API long UpWC(_CURSOR_SD* lpCursor, _USRPRFL_REC* lpData);
KVD_API long UpWCAccess(_CURSOR_SD* lpCursor, _USRPRFL_REC* lpData);
KVD_API long UpGaWC(_CURSOR_SD* lpCursor, _USRPRFL_REC* lpData);
KVD_API long UpGaD(_SELECT_SD* lpSelect);
KVD_API long UpSCId(_CURSOR_SD* lpCursor, _USRPRFL_REC* lpData);
KVD_API long UpCC(_CURSOR_SD* lpCursor);
KVD_API long UpCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen);

#ifdef __cplusplus
}
#endif

#endif
