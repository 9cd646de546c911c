/* The table engine's C interface: dBASE tables (.DBF), memo files (.FPT) and compound indexes
 * (.CDX), under the call names the table layer has always used (code4..., d4..., f4...).
 *
 * Conventions
 *  - A Code4 is one engine state. It is a plain struct that the caller places anywhere (inside a
 *    zero-filled selection record, on the stack); code4initLow makes it usable and code4initUndo
 *    releases what it holds. Every table opened through it belongs to it.
 *  - Results: 0 (r4success) is success. Positive r4... values are outcomes that are no error
 *    (r4eof at the end, r4after for a seek that missed, r4locked for a lock held elsewhere).
 *    Negative e4... values are errors; the latest one also stands in code->errorCode until the
 *    caller clears it (error4set). A call that fails quietly by design (d4open of a missing file
 *    with errOpen 0) leaves errorCode as it was.
 *  - Names of tables may be given in Windows form ("C:\PLANT\V1\_MP"); without an extension
 *    ".DBF" is meant. They are found on the disk ignoring case.
 *  - Ownership: DATA4St and FIELD4St objects belong to the engine; a DATA4St lives until d4close
 *    (or code4close / code4initUndo), its FIELD4St objects as long. Texts returned by f4str,
 *    f4memoStr, d4fileName, error4text stay valid until the next call on the same object.
 *  - Text is 8-bit, in the table's code page, not converted.
 *  - Threads: one Code4 with its tables is used by one thread at a time. Different Code4 states
 *    may be used by different threads at once.
 *  - A forked child shares its parent's open files and so their locks, open-mode locks included:
 *    open tables after the fork (a child that inherits an open table keeps the parent's share lock
 *    alive even after the parent closes it).
 *  - Record numbers, counts and the "long" of the field calls are 32-bit wherever they are stored
 *    or printed: a DBF holds at most 2^32-1 records and this engine's lock layout allows
 *    0x07FFFFFF. `long` in these signatures is the table layer's 32-bit value and is checked
 *    against that range.
 */
#ifndef KVD_ENGINE_D4ALL_H
#define KVD_ENGINE_D4ALL_H

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Outcomes (positive) ---------------------------------------------------------------- */
#define r4success 0
#define r4found 1          /* kept for callers that test it; d4seek answers 0 for a prefix hit too */
#define r4after 2          /* d4seek: no match; positioned on the next higher key */
#define r4eof 3            /* at or moved past the end */
#define r4bof 4            /* moved before the first record */
#define r4entry 5          /* no such record */
#define r4unique 20        /* tag attribute: duplicate keys are an error (e4unique) */
#define r4uniqueContinue 25 /* tag attribute: a duplicate key is left out of the tag, the record kept */
#define r4locked 50        /* the lock is held by another opener */
#define r4noCreate 60
#define r4noOpen 70

/* ---- Errors (negative) --------------------------------------------------------------------- */
#define e4close -10        /* closing failed (a pending record could not be written) */
#define e4create -20       /* a file could not be created */
#define e4len -30          /* a length is out of range */
#define e4open -60         /* a file exists but could not be opened (sharing, rights, damage) */
#define e4read -70
#define e4remove -80       /* a file could not be removed (another opener holds it) */
#define e4rename -90
#define e4unlock -110
#define e4write -120       /* a write failed (disk full, I/O) */
#define e4data -200        /* the table file is damaged */
#define e4fieldName -210   /* no field of that name */
#define e4fieldType -220   /* the field's type does not allow the operation */
#define e4recordLen -230
#define e4append -240
#define e4memo -250        /* the memo file is missing or damaged */
#define e4entry -300       /* a record number out of range */
#define e4index -310
#define e4tagName -330
#define e4unique -340      /* a duplicate key in a unique tag */
#define e4expr -350        /* a key expression or filter that cannot be parsed */
#define e4lock -400        /* a change to a record that is not locked (lockEnforce), or a lock failed */
#define e4exclusive -410   /* the operation needs the table alone and another opener has it */
#define e4readOnly -420    /* a write to a table opened read only */
#define e4memory -920
#define e4parm -930        /* a meaningless argument */
#define e4info -940        /* an engine state that was not initialised */

/* ---- Settings values ---------------------------------------------------------------------- */
#define OPEN4DENY_NONE 0   /* accessMode: shared open */
#define OPEN4DENY_RW 1     /* accessMode: this opener alone (any nonzero value means this) */
#define WAIT4EVER (-1)     /* lockAttempts: wait until the lock can be had */

/* ---- Types -------------------------------------------------------------------------------- */
typedef struct DATA4St DATA4St;   /* an open table */
typedef struct FIELD4St FIELD4St; /* a field of an open table */
typedef struct INDEX4St INDEX4St; /* an open compound index */
typedef struct TAG4St TAG4St;     /* a tag of an open index */

/* A field definition row; arrays end with a row whose name is null. */
typedef struct FIELD4INFOSt {
  const char* name;         /* at most 10 characters; stored upper case */
  short type;               /* 'C', 'N', 'F', 'L', 'D', 'M' */
  unsigned short len;       /* width in bytes (M: ignored, stored as 10) */
  unsigned short dec;       /* decimals of N and F */
  unsigned short nulls;     /* nullable columns are not supported: must be 0 */
} FIELD4INFO;

/* A tag definition row; arrays end with a row whose name is null. */
typedef struct TAG4INFOSt {
  const char* name;
  const char* expression;
  const char* filter;       /* null or empty: no filter */
  short unique;             /* 0, r4unique / e4unique, or r4uniqueContinue */
  unsigned short descending;
} TAG4INFO;

/* The engine state. Settings are read at the moment of each call that they concern. */
typedef struct Code4St {
  int autoOpen;      /* 1: d4open also opens the table's production index */
  int errOpen;       /* 1: failing to open is an error that sets errorCode; 0: a quiet null */
  int safety;        /* 1: d4create refuses to replace an existing file (e4create) */
  int optimize;      /* read caching; this engine never caches between openers, so it is kept only */
  int optimizeWrite; /* write caching; likewise */
  int lockEnforce;   /* 1: a change to a record this opener has not locked is refused (e4lock) */
  int accessMode;    /* OPEN4DENY_NONE shared; nonzero: this opener alone */
  int readOnly;      /* 1: tables are opened read only */
  int lockAttempts;  /* tries for a lock before r4locked; WAIT4EVER waits; 0 counts as 1 */
  int lockDelay;     /* milliseconds between two tries */
  int memStartBlock; /* memory tuning of other engines; accepted and ignored */
  int errorCode;     /* the latest error, 0 when none */
  int autoUnlock;    /* set by code4unlockAutoSetDo: a new lock or a close drops earlier locks */
  int initialized;   /* nonzero between code4initLow and code4initUndo */
  void* impl;        /* engine-owned: open tables and queued locks */
} Code4St;

typedef Code4St CODE4;
typedef Code4St Code4;

/* ---- The state ---------------------------------------------------------------------------- */
/* Makes the state; `defaultPath`, `version` and `structSize` are accepted and ignored. The defaults:
 * shared opens, errOpen 1, safety 1, lockEnforce 0, lockAttempts 16 tries 62 ms apart (about one
 * second: long enough to ride out another opener's short write, short enough that a forgotten lock
 * shows as an error rather than a hang). */
int code4initLow(CODE4* code, const char* defaultPath, long version, long structSize, int reserved);
int code4init(CODE4* code);
/* Closes every table of the state (writing pending records) and frees what it holds. Returns 0,
 * or the first close error. The struct may then be initialised again. */
int code4initUndo(CODE4* code);
int code4close(CODE4* code);
void code4unlockAutoSetDo(CODE4* code, int on);
/* Takes every lock queued by d4lockAdd... on the tables of this state, all or none. */
int code4lock(CODE4* code);
/* Writes pending records and drops every lock of every table of the state. */
int code4unlock(CODE4* code);

/* ---- Errors ------------------------------------------------------------------------------- */
int error4set(CODE4* code, int newCode);   /* returns the old code */
int error4code(CODE4* code);
const char* error4text(CODE4* code, long errCode);  /* a static English description */
/* The detail of the latest error (file, offset, cause), "" when none. Valid until the next error. */
const char* error4lastDetail(CODE4* code);

/* ---- Tables ------------------------------------------------------------------------------- */
DATA4St* d4open(CODE4* code, const char* name);
/* Creates (or, with safety 0, replaces) a table and opens it. A memo file is made when a field is
 * of type M, and the table's own index (its name with .CDX) when `tags` has rows. Replacing a table
 * that another opener holds fails with e4create, and the old files stay as they were. */
DATA4St* d4create(CODE4* code, const char* name, const FIELD4INFO* fields, const TAG4INFO* tags);
int d4close(DATA4St* data);       /* null is harmless */
int d4remove(DATA4St* data);      /* closes and deletes table, memo and open index files */
const char* d4fileName(DATA4St* data);  /* the name as opened, with extension */
const char* d4alias(DATA4St* data);     /* the name without directory and extension */
CODE4* d4code(DATA4St* data);
int d4numFields(DATA4St* data);
unsigned long d4recWidth(DATA4St* data);  /* record length with the deletion byte */
unsigned long d4recWidthLow(DATA4St* data);
char* d4record(DATA4St* data);            /* the record buffer: deletion byte, then the fields */
char* d4recordLow(DATA4St* data);

/* ---- Position ------------------------------------------------------------------------------
 * Without a selected tag, records are visited in record order and deleted ones are visited too.
 * After the last record d4eof is nonzero and d4recNo is the record count + 1. */
int d4top(DATA4St* data);
int d4bottom(DATA4St* data);
int d4skip(DATA4St* data, long n);
int d4go(DATA4St* data, long recNo);
int d4goLow(DATA4St* data, long recNo, int goForWrite);
int d4goEof(DATA4St* data);
int d4eof(DATA4St* data);
int d4bof(DATA4St* data);
long d4recNo(DATA4St* data);
long d4recNoLow(DATA4St* data);
long d4recCount(DATA4St* data);     /* read from the file each time: others may have appended */
long d4recCountDo2(DATA4St* data, int assumeLocked);

/* ---- Records ------------------------------------------------------------------------------- */
/* Begins a new record. The buffer keeps what it holds unless d4blank follows. */
int d4appendStart(DATA4St* data, int useMemoEntries);
int d4append(DATA4St* data);        /* writes the new record at the end; it becomes current and locked */
int d4appendBlank(DATA4St* data);   /* appends a blank record at once; current and locked */
void d4blank(DATA4St* data);
void d4delete(DATA4St* data);
void d4recall(DATA4St* data);
int d4deleted(DATA4St* data);
int d4changed(DATA4St* data, int flag);  /* flag 1 marks, 0 clears (the change is kept back), -1 asks */
int d4flush(DATA4St* data);          /* writes a pending record and the header */
int d4write(DATA4St* data, long recNo);
int d4writeLow(DATA4St* data, long recNo, int unlock, int doLock);
int d4refresh(DATA4St* data);        /* reads the current record again, dropping a pending change */
int d4refreshRecord(DATA4St* data);
/* Removes deleted records. Needs the table alone: with another opener it fails with e4exclusive
 * and nothing changes. The new file is written aside and renamed into place. */
int d4pack(DATA4St* data);
/* Rewrites the memo file without dead space. Needs the table alone like d4pack. */
int d4memoCompress(DATA4St* data);
int d4freeBlocks(DATA4St* data);     /* there is no block cache to free: returns 0 */
/* alone nonzero: makes this opener the only one of the table and its memo, as an open with
 * accessMode nonzero would have: no one else can open them until the table is shared again or
 * closed, so files written aside can be put in their place without pulling them from under
 * anybody. 0, or e4exclusive while another opener (in this process or another) has the table, which
 * then stays open and shared as it was.
 * alone 0: shares the table again, after writing a pending record and the appends that waited; a
 * table opened alone (accessMode) stays alone. */
int d4accessAlone(DATA4St* data, int alone);

/* ---- Locks ----------------------------------------------------------------------------------
 * Record locks, the append lock and the whole-table lock belong to the DATA4St that took them. With
 * autoUnlock set, taking a lock first drops the earlier locks of the same table; re-locking what is
 * held succeeds at once. Results: 0, r4locked (held elsewhere after lockAttempts tries), or an error. */
int d4lock(DATA4St* data, long recNo);
int d4lockAppend(DATA4St* data);
int d4lockAll(DATA4St* data);
int d4lockInternal(DATA4St* data, long recNo, int doUnlock, int lockAttempts);
int d4lockAppendInternal(DATA4St* data, int doUnlock);
int d4lockAllInternal(DATA4St* data, int doUnlock);
int d4lockTest(DATA4St* data, long recNo);   /* 1 when this opener holds the record's lock */
int d4lockAdd(DATA4St* data, long recNo);    /* queue for code4lock */
int d4lockAddAppend(DATA4St* data);
int d4lockAddAll(DATA4St* data);
int d4unlock(DATA4St* data);                 /* writes a pending record, drops all locks of the table */

/* ---- Fields -------------------------------------------------------------------------------- */
FIELD4St* d4field(DATA4St* data, const char* name);   /* ignoring case; null when absent */
FIELD4St* d4fieldJ(DATA4St* data, short j);            /* 1-based; null out of range */
/* A number no other handle opened in this process had or will have, for a caller that keeps what
   it worked out about a handle (the fields of its columns) and must know it is still that handle
   and not a later one at the same address. */
unsigned long long d4serial(DATA4St* data);
int d4fieldNumber(DATA4St* data, const char* name);   /* 1-based, or -1 */

const char* f4name(FIELD4St* field);
int f4type(FIELD4St* field);
unsigned long f4len(FIELD4St* field);
int f4decimals(FIELD4St* field);
DATA4St* f4data(FIELD4St* field);
char* f4ptr(FIELD4St* field);       /* the field's bytes inside the record buffer, not terminated */
/* Reads. Numbers come from the field's text in any field type (blank reads 0). */
int f4char(FIELD4St* field);
int f4int(FIELD4St* field);
long f4long(FIELD4St* field);
double f4double(FIELD4St* field);
int f4true(FIELD4St* field);
char* f4str(FIELD4St* field);       /* a terminated copy with the blanks kept */
/* Copies at most size-1 bytes, blanks kept, and terminates; returns the number copied. */
unsigned f4ncpy(FIELD4St* field, char* buffer, unsigned size);
/* Writes. Texts are blank-padded or cut; numbers stand right-aligned with leading blanks, in
 * character fields too, rounded to the field's decimals; a number that does not fit fills the field
 * with '*'. Each write marks the record changed. */
void f4assign(FIELD4St* field, const char* text);
void f4assignN(FIELD4St* field, const char* bytes, unsigned len);  /* raw bytes, NULs included */
void f4assignChar(FIELD4St* field, int c);
void f4assignInt(FIELD4St* field, int value);
void f4assignLong(FIELD4St* field, long value);
void f4assignDouble(FIELD4St* field, double value);
/* Converts between field types and widths (the copy of one table's record into another's). */
void f4assignField(FIELD4St* to, FIELD4St* from);
void f4blank(FIELD4St* field);
/* Memo fields: exact byte lengths, binary-safe. For other fields these act on the field text. */
unsigned f4memoLen(FIELD4St* field);
char* f4memoPtr(FIELD4St* field);   /* valid until the record moves; holds f4memoLen bytes + NUL */
const char* f4memoStr(FIELD4St* field);
int f4memoAssign(FIELD4St* field, const char* text);
int f4memoAssignN(FIELD4St* field, const char* bytes, unsigned len);
int f4memoSetLen(FIELD4St* field, unsigned len);  /* resize, keeping the start, zero-filling */

/* ---- Indexes --------------------------------------------------------------------------------
 * A compound index file holds tags; each orders the table by a key expression, optionally only the
 * records that pass a filter. Opening or creating an index belongs to one DATA4St. A tag selected
 * with d4tagSelect gives the order of d4top, d4bottom, d4skip and d4seek; none selected gives record
 * order (and d4seek then uses the default tag). Every open tag is kept current when a record is
 * appended or written, by this opener and, through the shared file, for every other. */
/* Opens an existing index; `name` null means the table's own (its name with .CDX); a name without
 * extension gets .CDX. Null on failure, with errorCode e4index for a damaged or foreign file whose
 * expressions cannot be read, quietly for a missing file when errOpen is 0. */
INDEX4St* i4open(DATA4St* data, const char* name);
/* Creates (replacing) an index with these tags, built from the table's records, and opens it.
 * Unique tags: e4unique refuses records with a key already present (and i4create fails if the
 * records already hold duplicates); r4uniqueContinue keeps such records out of the tag. A bad
 * expression fails with e4expr and writes nothing. */
INDEX4St* i4create(DATA4St* data, const char* name, const TAG4INFO* tags);
int i4close(INDEX4St* index);
/* The open index of this table whose file is `name`: directory and extension may be left out, case
 * does not count. Null when no such index is open. */
INDEX4St* d4index(DATA4St* data, const char* name);
int i4reindex(INDEX4St* index);
const char* i4fileName(INDEX4St* index);
TAG4St* d4tag(DATA4St* data, const char* name);  /* by name ignoring case; null when absent */
TAG4St* d4tagDefault(DATA4St* data);             /* the first tag made in the first index */
TAG4St* d4tagNext(DATA4St* data, TAG4St* tag);   /* all tags in order; null starts, null ends */
void d4tagSelect(DATA4St* data, TAG4St* tag);    /* null: record order */
TAG4St* d4tagSelected(DATA4St* data);
int d4tagSync(DATA4St* data, TAG4St* tag);       /* the walk goes on from the current record */
/* Seeks in the selected (or default) tag. A character key shorter than the tag's key finds the
 * first key that begins with it. Numeric and date tags take the number or the date ("CCYYMMDD")
 * as text. 0: found; r4after: not found, on the next key in tag order; r4eof: not found, at the
 * end. */
int d4seek(DATA4St* data, const char* key);
int d4seekN(DATA4St* data, const char* key, short len);
int d4seekDouble(DATA4St* data, double value);
/* The next record with the same key as the current one, else like d4seek. */
int d4seekNext(DATA4St* data, const char* key);
const char* t4alias(TAG4St* tag);
const char* t4expr(TAG4St* tag);
const char* t4filter(TAG4St* tag);               /* "" when none */
int t4unique(TAG4St* tag);                       /* 0, e4unique or r4uniqueContinue */
int t4descending(TAG4St* tag);
int t4keyLen(TAG4St* tag);
/* The key of the current record in this tag, key length bytes (not terminated). */
const char* t4keyOfRecord(TAG4St* tag);

/* ---- Inspection (for tools) --------------------------------------------------------------- */
int d4versionByte(DATA4St* data);          /* the table file's first byte (0x03, 0xF5, 0x30, ...) */
unsigned d4headerLen(DATA4St* data);       /* bytes before the first record */
const char* d4memoFileName(DATA4St* data); /* host path of the memo file, "" when none */
unsigned d4memoBlockSize(DATA4St* data);   /* 0 when no memo file */

/* ---- Utilities ----------------------------------------------------------------------------- */
/* Puts `ext` (with or without its dot) on `name`: replaces an existing extension when
 * `doReplace` is nonzero, else only adds one to a name without. Fails with e4len when the result
 * does not fit in `size` bytes with its terminator. */
int u4nameExt(char* name, int size, const char* ext, int doReplace);
void date4today(char* result);   /* "CCYYMMDD" + NUL: 9 bytes */
/* Formats a "CCYYMMDD" date by a picture: CC century, YY year, MM month, DD day, MMM.. month name,
 * other characters as they stand. A blank date gives the picture's length in blanks. */
void date4format(const char* date, char* result, const char* picture);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* KVD_ENGINE_D4ALL_H */
