/* The table frame of libKvdDat: selections, cursors, status numbers and the frame's own calls.
 *
 * A caller makes a selection (Select, SelectDir), passes it to every table call, and gives it back
 * with Unselect. Every table call answers with a status number (KVD_S_...); 0 is success, 1 "not
 * found" or the end of a cursor. DisplayError shows the text of any status.
 *
 * Paths are kept in Windows form inside the library ("C:\TELMOR\PLANT\V1\"), with a trailing
 * backslash; a path of this machine ("/srv/telmor/") works as well. Where a drive letter leads a
 * path, the environment variable KVD_DRIVE_<letter> names the directory it stands for (default "/").
 *
 * Integers: the "long" of stored data (record members, record numbers, counts) is 32 bits wide and
 * declared int32_t; function results keep `long`, whose values never leave the 32-bit range.
 *
 * Configuration: TELMOR.INI beside the program's executable, or the file named by the environment
 * variable KVD_TELMOR_INI; section "KVDpmu", keys "AdminPath" (default "C:\TELMOR\") and
 * "BackupFiles" (default 0). It is read once, when the library is loaded.
 */
#ifndef KVD_FRAME_H
#define KVD_FRAME_H

#include <stdint.h>

#include "engine/d4all.h"
#include "include/kvd_export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KVD_PATH_MAX 260

/* Status numbers. Each is also the number of its message text (DisplayError). */
#define KVD_S_OK 0
#define KVD_S_NOT_FOUND 1          /* "Record not found"; also the end of a cursor */
#define KVD_S_NO_SELECTION 2       /* "No project/version selected" */
#define KVD_S_OPEN_TABLE 6         /* "Error opening data bank" */
#define KVD_S_OPEN_INDEX 7         /* "Error opening index" */
#define KVD_S_NO_MEMORY 8          /* "Out of memory" */
#define KVD_S_NO_WILDCARD 9        /* "Wildcard not allowed here" */
#define KVD_S_BAD_DIRECTORY 10     /* "Invalid directory" */
#define KVD_S_EXISTS 11            /* "Record already exists" */
#define KVD_S_BAD_PROJECT 12       /* "Invalid project" */
#define KVD_S_BAD_VERSION 13       /* "Invalid version" */
#define KVD_S_COPY 14              /* "Copy error" */
#define KVD_S_NO_MEMORY_RETRY 15
#define KVD_S_FILE_OPEN 16         /* "File could not be opened" */
#define KVD_S_VERSION_LOCKED 17
#define KVD_S_INCONSISTENT 18
#define KVD_S_NOT_EMPTY 20
#define KVD_S_DB_VERSION 22        /* "Incompatible data bank version" */
#define KVD_S_BAD_FUNCTION 29      /* "Invalid function" */
#define KVD_S_BAD_JOB_DB 30
#define KVD_S_NO_OBJECT_ID 31
#define KVD_S_BITMAP_CREATE 32
#define KVD_S_BITMAP_FILE 33
#define KVD_S_BITMAP_READ 34
#define KVD_S_STRUCTURE 36         /* the table's fields differ from the definition (no text) */

/* One caller's selection of project and version. */
typedef struct _SELECT_SD {
  char szProjektPath[KVD_PATH_MAX]; /* project directory (admin directory without a project), with \ */
  char szVersionPath[KVD_PATH_MAX]; /* version directory with \, empty without a version */
  CODE4 c4code;                     /* the engine state of this selection */
  char cWer;                        /* the calling program's letter; stored only */
  int cOpen;                        /* open cursors on the primitives store */
} _SELECT_SD;

/* One open cursor: owns its table from the opening call to the closing one. */
typedef struct _CURSOR_SD {
  DATA4St* lpDb;
  INDEX4St* lpNdx;      /* null for tables without index */
  int nAccess;          /* 1: opened for writing */
  int32_t lRecNo;       /* position kept by the primitives store; 0 elsewhere */
  char szWildcard[81];  /* the cursor's filter: key pattern, access letters or key prefix */
} _CURSOR_SD;

KVD_API _SELECT_SD* Select(const char* lpProjekt, const char* lpVersion, char cWer);
KVD_API _SELECT_SD* SelectDir(const char* lpPath, char cWer);
KVD_API void Unselect(_SELECT_SD* lpSelect);
KVD_API char* GetAdminPath(void);
KVD_API char* GetProjektPath(_SELECT_SD* lpSelect);
KVD_API char* GetVersionPath(_SELECT_SD* lpSelect);
KVD_API void CompletePath(char* lpszRelPath, char* lpszDefPath);
KVD_API char* AppendBackslash(char* lpsz);
KVD_API char* DeleteBackslash(char* lpsz);
KVD_API long CompareWild(char* pszWild, char* pszIndex);

KVD_API long DBPack(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor);
KVD_API long DBRcrdCnt(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor);
KVD_API long GetKeyCursor(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor, char* lpchKeyBuf);
KVD_API void DisplayError(char* lpCaption, int nError);

KVD_API long ProjektGetPath(_SELECT_SD* lpSelect, char* lpProjekt, char* lpProjektPath);
KVD_API long VersionGetPath(_SELECT_SD* lpSelect, char* lpVersion, char* lpVersionPath);

#ifdef __cplusplus
}
#endif

#endif
