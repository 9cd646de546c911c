// The data bank dictionary: which data banks a project has (_TABLES.DBF), their columns
// (_COLUMNS.DBF), and the text lists of a version (X_Unit.DBF, _Signal.DBF, X_Status.DBF). The
// library only reads them; they come from outside and are made empty when missing.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "catalogue/catalogue.h"
#include "frame/kernel.h"
#include "lib/foundation/kvtext.h"

namespace kvd::catalogue {

const char kTablesDbName[] = "_TABLES";
const FIELD4INFO kTablesDbDef[] = {
    {"DBANKNAME", 'C', 25, 0, 0},
    {"DATENBANK", 'C', 12, 0, 0},
    {"KENNUNG", 'C', 1, 0, 0},
    {nullptr, 0, 0, 0, 0},
};

const char kColumnsDbName[] = "_COLUMNS";
const FIELD4INFO kColumnsDbDef[] = {
    {"DBNAME", 'C', 12, 0, 0}, {"FELDBEZ", 'C', 25, 0, 0}, {"DBFELD", 'C', 10, 0, 0},
    {"LAENGE", 'C', 2, 0, 0},  {nullptr, 0, 0, 0, 0},
};
const TAG4INFO kColumnsNdxTag[] = {
    {"OSKAR", "DBNAME", ".NOT. DELETED()", 0, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};

// The text lists name their text field "Text", in mixed case; the field is found ignoring case.
const char kUnitDbName[] = "X_Unit";
const FIELD4INFO kUnitDbDef[] = {{"LINK", 'C', 32, 0, 0}, {"Text", 'C', 32, 0, 0}, {nullptr, 0, 0, 0, 0}};
const char kSignalDbName[] = "_Signal";
const FIELD4INFO kSignalDbDef[] = {{"Text", 'C', 12, 0, 0}, {nullptr, 0, 0, 0, 0}};
const char kStatusDbName[] = "X_Status";
const FIELD4INFO kStatusDbDef[] = {{"LINK", 'C', 30, 0, 0}, {"Text", 'C', 30, 0, 0}, {nullptr, 0, 0, 0, 0}};

namespace {

constexpr int kRead = 0;

// A text padded with blanks to `width`; false when it is longer (no value of that field).
bool Padded(const char* text, std::size_t width, std::string* out) {
  std::string s = text != nullptr ? text : "";
  if (s.size() > width) return false;
  s.resize(width, ' ');
  *out = std::move(s);
  return true;
}

// The field's bytes as stored, blank-padded to its width.
std::string Stored(DATA4St* db, const char* field) {
  FIELD4St* f = d4field(db, field);
  return f != nullptr ? std::string(f4ptr(f), f4len(f)) : std::string();
}

// A field trimmed at both ends into a member of `size` bytes.
void CopyTrimmed(DATA4St* db, const char* field, char* member, std::size_t size) {
  std::vector<char> buf(size + 1, '\0');
  FIELD4St* f = d4field(db, field);
  if (f != nullptr) f4ncpy(f, buf.data(), static_cast<unsigned>(size));
  std::snprintf(member, size, "%s", KvLTrim(KvRTrim(buf.data())));
}

void TrimInPlace(char* member) { KvLTrim(KvRTrim(member)); }

// The cursor position on the next live record: tables without index are walked in record order,
// which visits records marked deleted too.
void SkipDeleted(DATA4St* db) {
  while (!d4eof(db) && d4deleted(db)) d4skip(db, 1);
}

_CURSOR_SD* NewCursor() { return static_cast<_CURSOR_SD*>(std::calloc(1, sizeof(_CURSOR_SD))); }

void CloseCursor(_CURSOR_SD* c) {
  if (c == nullptr) return;
  d4close(c->lpDb);
  std::free(c);
}

// The dictionary's project-level checks look where every family's check looks, in the version
// directory, when the selection has one; else in the project path (never the current directory).
int WhereToSearch(const _SELECT_SD* s) { return s->szVersionPath[0] == '\0' ? 1 : 0; }

// The cursor of one text list. The lists lie in the version directory: a selection without one
// answers 2 rather than reach for a table in the current directory.
long TextOC(_SELECT_SD* s, const char* db_name, const FIELD4INFO* def, _CURSOR_SD** out, int access) {
  *out = nullptr;
  if (s == nullptr || s->szVersionPath[0] == '\0') return KVD_S_NO_SELECTION;
  _CURSOR_SD* c = NewCursor();
  if (c == nullptr) return KVD_S_NO_MEMORY;
  c->lpDb = frame::OpenTable(s, s->szVersionPath, db_name, def, access);
  if (c->lpDb == nullptr) {
    std::free(c);
    return KVD_S_OPEN_TABLE;
  }
  c->nAccess = access;
  d4top(c->lpDb);
  *out = c;
  return KVD_S_OK;
}

}  // namespace
}  // namespace kvd::catalogue

using namespace kvd;
using namespace kvd::catalogue;

// ---------------------------------------------------------------------------------------------
// _TABLES.DBF

long DBankRead(_SELECT_SD* lpSelect, _DBANK_REC* lpData) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  CallTable t;
  if (long st = t.Open(lpSelect, lpSelect->szProjektPath, kTablesDbName, kTablesDbDef, nullptr, kRead); st != KVD_S_OK)
    return st;
  std::string key;
  if (!Padded(lpData->szBez, 25, &key)) return KVD_S_NOT_FOUND;
  DATA4St* db = t.db();
  // No index: a walk from the top, comparing the display name exactly, case included.
  for (d4top(db); !d4eof(db); d4skip(db, 1)) {
    if (d4deleted(db) || Stored(db, "DBANKNAME") != key) continue;
    TrimInPlace(lpData->szBez);
    CopyTrimmed(db, "DATENBANK", lpData->szDbName, sizeof lpData->szDbName);
    CopyTrimmed(db, "KENNUNG", lpData->szKen, sizeof lpData->szKen);
    return KVD_S_OK;
  }
  return KVD_S_NOT_FOUND;
}

long DBankOpenCursor(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor) {
  *lplpCursor = nullptr;
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  if (lpWildcard != nullptr) return KVD_S_NO_WILDCARD;  // the list has no filter
  _CURSOR_SD* c = NewCursor();
  if (c == nullptr) return KVD_S_NO_MEMORY;
  c->lpDb = frame::OpenTable(lpSelect, lpSelect->szProjektPath, kTablesDbName, kTablesDbDef, kRead);
  if (c->lpDb == nullptr) {
    std::free(c);
    return KVD_S_OPEN_TABLE;
  }
  d4top(c->lpDb);
  *lplpCursor = c;
  return KVD_S_OK;
}

long DBankFetchCursor(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor, _DBANK_REC* lpData) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  DATA4St* db = lpCursor->lpDb;
  SkipDeleted(db);
  if (d4eof(db)) return KVD_S_NOT_FOUND;
  CopyTrimmed(db, "DBANKNAME", lpData->szBez, sizeof lpData->szBez);
  CopyTrimmed(db, "DATENBANK", lpData->szDbName, sizeof lpData->szDbName);
  CopyTrimmed(db, "KENNUNG", lpData->szKen, sizeof lpData->szKen);
  d4skip(db, 1);
  return KVD_S_OK;
}

long DBankCloseCursor(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor) {
  CloseCursor(lpCursor);
  return lpSelect == nullptr ? KVD_S_NO_SELECTION : KVD_S_OK;
}

long DBankCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  return frame::CheckDBStructure(lpSelect, kTablesDbName, kTablesDbDef, lpszMsg, nMaxMsgLen, WhereToSearch(lpSelect));
}

// ---------------------------------------------------------------------------------------------
// _COLUMNS.DBF

long DbFeldRead(_SELECT_SD* lpSelect, _DBFELD_REC* lpData) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  CallTable t;
  if (long st = t.Open(lpSelect, lpSelect->szProjektPath, kColumnsDbName, kColumnsDbDef, kColumnsNdxTag, kRead);
      st != KVD_S_OK)
    return st;
  std::string db_key, column_key;
  if (!Padded(lpData->szDbName, 12, &db_key) || !Padded(lpData->szBez, 25, &column_key)) return KVD_S_NOT_FOUND;
  DATA4St* db = t.db();
  if (d4seek(db, db_key.c_str()) != 0) return KVD_S_NOT_FOUND;
  // The run of the data bank's columns, in tag order, for the one of that display name.
  for (; !d4eof(db) && Stored(db, "DBNAME") == db_key; d4skip(db, 1)) {
    if (Stored(db, "FELDBEZ") != column_key) continue;
    TrimInPlace(lpData->szDbName);
    CopyTrimmed(db, "FELDBEZ", lpData->szBez, sizeof lpData->szBez);
    CopyTrimmed(db, "DBFELD", lpData->szDbFeld, sizeof lpData->szDbFeld);
    CopyTrimmed(db, "LAENGE", lpData->szLen, sizeof lpData->szLen);
    lpData->wSize = static_cast<unsigned short>(std::atoi(lpData->szLen));
    return KVD_S_OK;
  }
  return KVD_S_NOT_FOUND;
}

long DbFeldOpenCursor(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor) {
  *lplpCursor = nullptr;
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  _CURSOR_SD* c = NewCursor();
  if (c == nullptr) return KVD_S_NO_MEMORY;
  c->lpDb = frame::OpenTable(lpSelect, lpSelect->szProjektPath, kColumnsDbName, kColumnsDbDef, kRead);
  if (c->lpDb == nullptr) {
    std::free(c);
    return KVD_S_OPEN_TABLE;
  }
  c->lpNdx = frame::OpenIndex(lpSelect, lpSelect->szProjektPath, kColumnsDbName, c->lpDb, kColumnsNdxTag);
  if (c->lpNdx == nullptr) {
    CloseCursor(c);
    return KVD_S_OPEN_INDEX;
  }
  d4top(c->lpDb);
  if (lpWildcard != nullptr) {
    // The data bank's name, padded to its field; the cursor gives that data bank's columns.
    std::snprintf(c->szWildcard, sizeof c->szWildcard, "%-12s", lpWildcard);
    d4seek(c->lpDb, c->szWildcard);
  }
  *lplpCursor = c;
  return KVD_S_OK;
}

long DbFeldFetchCursor(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor, _DBFELD_REC* lpData) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  DATA4St* db = lpCursor->lpDb;
  // A cursor without a data bank gives nothing; one with a data bank stops where its run ends.
  if (d4eof(db) || Stored(db, "DBNAME") != lpCursor->szWildcard) return KVD_S_NOT_FOUND;
  CopyTrimmed(db, "FELDBEZ", lpData->szBez, sizeof lpData->szBez);
  CopyTrimmed(db, "DBFELD", lpData->szDbFeld, sizeof lpData->szDbFeld);
  d4skip(db, 1);
  return KVD_S_OK;
}

long DbFeldCloseCursor(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor) {
  CloseCursor(lpCursor);
  return lpSelect == nullptr ? KVD_S_NO_SELECTION : KVD_S_OK;
}

long DbFeldCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  return frame::CheckDBStructure(lpSelect, kColumnsDbName, kColumnsDbDef, lpszMsg, nMaxMsgLen,
                                 WhereToSearch(lpSelect));
}

// ---------------------------------------------------------------------------------------------
// The text lists

long UntTxtOC(_SELECT_SD* lpSelect, _CURSOR_SD** lplpCursor, int nAccess) {
  return TextOC(lpSelect, kUnitDbName, kUnitDbDef, lplpCursor, nAccess);
}
long SgnlTxtOC(_SELECT_SD* lpSelect, _CURSOR_SD** lplpCursor, int nAccess) {
  return TextOC(lpSelect, kSignalDbName, kSignalDbDef, lplpCursor, nAccess);
}
long SttsTxtOC(_SELECT_SD* lpSelect, _CURSOR_SD** lplpCursor, int nAccess) {
  return TextOC(lpSelect, kStatusDbName, kStatusDbDef, lplpCursor, nAccess);
}

long TxtFC(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor, _USS_TXT_REC* lpData) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  DATA4St* db = lpCursor->lpDb;
  SkipDeleted(db);
  if (d4eof(db)) return KVD_S_NOT_FOUND;
  // At most the 30 characters the record holds (of X_Unit's 32).
  CopyTrimmed(db, "TEXT", lpData->szText, sizeof lpData->szText);
  d4skip(db, 1);
  return KVD_S_OK;
}

long TxtCC(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor) {
  CloseCursor(lpCursor);
  return lpSelect == nullptr ? KVD_S_NO_SELECTION : KVD_S_OK;
}

long TxtCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen) {
  if (lpSelect == nullptr || lpSelect->szVersionPath[0] == '\0') return KVD_S_NO_SELECTION;
  // Any failure, a table that cannot be opened included, is 36; the first ends the check.
  const struct {
    const char* name;
    const FIELD4INFO* def;
  } lists[] = {{kUnitDbName, kUnitDbDef}, {kSignalDbName, kSignalDbDef}, {kStatusDbName, kStatusDbDef}};
  for (const auto& l : lists) {
    if (frame::CheckDBStructure(lpSelect, l.name, l.def, lpszMsg, nMaxMsgLen, 0) != KVD_S_OK) return KVD_S_STRUCTURE;
  }
  return KVD_S_OK;
}
