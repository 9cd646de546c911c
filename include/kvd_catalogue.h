/* The catalogue of a plant: its projects, their versions, and the data bank dictionary.
 *
 * The project catalogue _PROJECT.DBF lies in the admin directory. Each project has a directory of
 * its own (PFAD) that holds the version catalogue _VERSION.DBF, the dictionary tables _TABLES.DBF
 * and _COLUMNS.DBF, a comment file "komment.txt", and one subdirectory per version, named as the
 * version is. A version directory holds the version's tables, its text lists (X_Unit.DBF,
 * _Signal.DBF, X_Status.DBF) and its own "komment.txt".
 *
 * Selections: project calls take a selection whose project path is the admin directory
 * (Select(NULL, NULL, ...)); version calls take a selection of the project (Select(project, NULL,
 * ...)); the text lists want a version selection. Every call answers with a status number of
 * include/kvd_frame.h; a null selection answers KVD_S_NO_SELECTION (2).
 *
 * Names: project and version names are 1 to 8 characters after trimming, without path separators,
 * drive colon, wildcards or the other characters a file name cannot hold, and not "." or "..";
 * other names are refused with 12 (projects) or 13 (versions). Versions of one project differ also
 * when case is ignored, since each is a directory.
 *
 * Directories: a project directory given without drive letter or leading '/' lies below the admin
 * directory, both when it is made and when it is read; it must fit the 54 characters of PFAD. A
 * directory that is a file-system root, the admin directory or a parent of it, or that is, holds or
 * lies inside another project's directory, is never taken for a project, and such an entry is
 * never emptied, moved or pruned: the call answers KVD_S_BAD_DIRECTORY (10) and changes nothing.
 *
 * Copies, moves and deletes of whole projects and versions work on many files without a lock on
 * the project: callers see to it that no one works in that project meanwhile. Other processes may
 * list and read the catalogue at any time. A list cursor gives the catalogue as it stood when the
 * cursor was opened. No call changes the process's current directory, and no call keeps state of
 * its own between calls (paths live in the call); a selection and its cursors belong to one
 * thread at a time.
 *
 * Buffers: lpKomment is the caller's; reading needs room for KVD_KOMMENT_MAX + 1 bytes. Cursors are
 * made by their opening call and freed by their closing call.
 */
#ifndef KVD_CATALOGUE_H
#define KVD_CATALOGUE_H

#include "include/kvd_frame.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifndef _WINDEF_
typedef void* HWND; /* a window handle: accepted by three calls and not used */
#endif

#define KVD_KOMMENT_MAX 16384 /* bytes of "komment.txt" that a read gives */

/* _PROJECT.DBF, one row per project. */
typedef struct _PROJECT_ALL_REC {
  char szPrjName[9];  /* NAME, the key */
  char szPrjBez[41];  /* BEZEICH, description */
  char* lpKomment;    /* the project's "komment.txt"; null: not read, written as empty */
  char szPrjPath[55]; /* PFAD; ProjektRead gives it completed against the admin directory when that
                         fits, else as stored */
  char szBibPath[9];  /* not used by the library */
  char szArcDat[9];   /* ARCDAT as "DD.MM.YY", empty when blank */
  char szGenDat[9];   /* GENDAT, the day of the last write, as "DD.MM.YY" */
  char szLoeDat[9];   /* not used by the library */
  char szWorDat[9];   /* WORDAT as "DD.MM.YY" */
  int nVersion;       /* not used by the library */
  char achPwd[10];    /* PWD: ten raw bytes, not terminated, carried and never compared */
} _PROJECT_ALL_REC;

typedef struct _PROJECT_LIST_REC {
  char szPrjName[9];
  char szPrjBez[41];
} _PROJECT_LIST_REC;

/* _VERSION.DBF in the project directory, one row per version. */
typedef struct _VERSION_ALL_REC {
  char szVerName[9];      /* NAME, the key, and the name of the version's directory */
  char szVerBez[41];      /* BEZEICH */
  char* lpKomment;        /* the version's "komment.txt"; null: not read, written as empty */
  char szArcDat[9];       /* not filled by VersionRead */
  char szGenDat[9];       /* GENDAT as "DD.MM.YY" */
  char szWorDat[9];       /* not filled by VersionRead */
  char szBearbeiter[21];  /* BEARBEITER, the editor */
  int fSperre;            /* the character of SPERRE ('F'); no call locks a version */
} _VERSION_ALL_REC;

typedef struct _VERSION_LIST_REC {
  char szVerName[9];
  char szVerBez[41];
} _VERSION_LIST_REC;

/* _TABLES.DBF in the project directory: the data banks there are. */
typedef struct _DBANK_REC {
  char szBez[26];   /* DBANKNAME, display name, the key (compared exactly) */
  char szDbName[13]; /* DATENBANK, file name */
  char szKen[2];    /* KENNUNG, identifying letter */
} _DBANK_REC;

/* _COLUMNS.DBF in the project directory: the columns of each data bank. */
typedef struct _DBFELD_REC {
  char szDbName[13];    /* DBNAME, file name of the data bank */
  char szBez[26];       /* FELDBEZ, display name of the column */
  char szDbFeld[11];    /* DBFELD, field name in the table */
  char szLen[3];        /* LAENGE, decimal digits */
  unsigned short wSize; /* the number in szLen */
} _DBFELD_REC;

/* One row of a text list (X_Unit.DBF, _Signal.DBF, X_Status.DBF). */
typedef struct _USS_TXT_REC {
  char szText[31];
} _USS_TXT_REC;

/* Projects. Calls on the catalogue take a selection whose project path is the admin directory. */
KVD_API long ProjektRead(_SELECT_SD* lpSelect, _PROJECT_ALL_REC* lpData);
KVD_API long ProjektInsert(_SELECT_SD* lpSelect, _PROJECT_ALL_REC* lpData);
KVD_API long ProjektUpdate(_SELECT_SD* lpSelect, _PROJECT_ALL_REC* lpData);
KVD_API long ProjektDelete(_SELECT_SD* lpSelect, char* lpProjekt);
KVD_API long ProjektCopy(_SELECT_SD* lpSelect, char* lpProjekt, char* lpNewPrjName, char* lpNewPath, char* lpNewPwd,
                         HWND hWnd);
KVD_API long ProjektRename(_SELECT_SD* lpSelect, char* lpProjekt, char* lpNewPrjName, HWND hWnd);
KVD_API long ProjektMove(_SELECT_SD* lpSelect, char* lpProjekt, char* lpNewPath, HWND hWnd);
KVD_API long ProjektCheckDBVersion(_SELECT_SD* lpSelect, char* lpProjekt);
/* lpWildcard must be null: a list has no filter (9 otherwise, and no cursor). */
KVD_API long ProjektOpenListCursor(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor);
KVD_API long PFLC(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor, _PROJECT_LIST_REC* lpData);
KVD_API long ProjektCloseListCursor(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor);
KVD_API long ProjektCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen);

/* Versions. Calls take a selection of the project. */
KVD_API long VersionRead(_SELECT_SD* lpSelect, _VERSION_ALL_REC* lpData);
KVD_API long VersionInsert(_SELECT_SD* lpSelect, _VERSION_ALL_REC* lpData);
KVD_API long VersionUpdate(_SELECT_SD* lpSelect, _VERSION_ALL_REC* lpData);
KVD_API long VersionDelete(_SELECT_SD* lpSelect, char* lpVersion);
KVD_API long VersionDeleteAll(_SELECT_SD* lpSelect);
KVD_API long VersionCopy(_SELECT_SD* lpSelect, char* lpVersion, char* lpNewVerName, HWND hWnd);
KVD_API long VersionRename(_SELECT_SD* lpSelect, char* lpVersion, char* lpNewVersion, HWND hWnd);
/* Always 0: the catalogue keeps no working lock (SPERRE stays "F"). */
KVD_API long VersionLock(_SELECT_SD* lpSelect, char* lpVersion);
KVD_API long VersionGetLockFlag(_SELECT_SD* lpSelect, char* lpVersion);
KVD_API long VersionOpenListCursor(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor);
KVD_API long VFLC(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor, _VERSION_LIST_REC* lpData);
KVD_API long VersionCloseListCursor(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor);
KVD_API long VersionCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen);

/* The data bank dictionary: read only; its tables come from outside and are made empty when
 * missing. */
KVD_API long DBankRead(_SELECT_SD* lpSelect, _DBANK_REC* lpData);
KVD_API long DBankOpenCursor(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor);
KVD_API long DBankFetchCursor(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor, _DBANK_REC* lpData);
KVD_API long DBankCloseCursor(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor);
KVD_API long DBankCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen);

KVD_API long DbFeldRead(_SELECT_SD* lpSelect, _DBFELD_REC* lpData);
/* lpWildcard: the data bank whose columns the cursor gives; null gives none. */
KVD_API long DbFeldOpenCursor(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor);
KVD_API long DbFeldFetchCursor(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor, _DBFELD_REC* lpData);
KVD_API long DbFeldCloseCursor(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor);
KVD_API long DbFeldCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen);

/* The text lists of a version: units, signals, states. One fetch and close serve all three. */
KVD_API long UntTxtOC(_SELECT_SD* lpSelect, _CURSOR_SD** lplpCursor, int nAccess);
KVD_API long SgnlTxtOC(_SELECT_SD* lpSelect, _CURSOR_SD** lplpCursor, int nAccess);
KVD_API long SttsTxtOC(_SELECT_SD* lpSelect, _CURSOR_SD** lplpCursor, int nAccess);
KVD_API long TxtFC(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor, _USS_TXT_REC* lpData);
KVD_API long TxtCC(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor);
KVD_API long TxtCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen);

#ifdef __cplusplus
}
#endif

#endif
