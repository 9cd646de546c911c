#include "frame/kernel.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "engine/d4classes.h"
#include "frame/adapt.h"
#include "frame/session.h"
#include "platform/env.h"
#include "platform/file.h"
#include "platform/path.h"

namespace kvd::frame {
namespace {

bool HasExtension(std::string_view path) { return platform::NamePart(path).find('.') != std::string_view::npos; }

// Path without its extension: cut at the last point of the name.
std::string WithoutExtension(std::string_view path) {
  const std::string_view name = platform::NamePart(path);
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos) return std::string(path);
  return std::string(path.substr(0, path.size() - name.size() + dot));
}

// Backups are skipped on the floppy drives, as they always were; a path without a drive letter is
// no such path.
bool OnFloppy(const std::string& path) {
  if (path.size() < 2 || path[1] != ':') return false;
  const char d = path[0];
  return d == 'a' || d == 'A' || d == 'b' || d == 'B';
}

}  // namespace

std::string JoinPath(const char* lpPath, const char* lpDbName, const char* add_ext) {
  std::string p = lpPath != nullptr ? lpPath : "";
  p += lpDbName != nullptr ? lpDbName : "";
  if (add_ext != nullptr && !HasExtension(p)) p += add_ext;
  if (p.size() > KVD_PATH_MAX - 1) p.resize(KVD_PATH_MAX - 1);
  return p;
}

DATA4St* OpenTable(_SELECT_SD* lpSelect, const char* lpPath, const char* lpDbName, const FIELD4INFO* lpDbDef,
                   int nAccess) {
  if (lpSelect == nullptr) return nullptr;
  CODE4* code = &lpSelect->c4code;
  const std::string file = JoinPath(lpPath, lpDbName, ".DBF");
  if (TheSettings().backup_files != 0 && nAccess == 1 && !OnFloppy(file)) {
    // The table file alone; result ignored: a table that does not exist yet has no backup.
    (void)platform::CopyFile(file, WithoutExtension(file) + ".DBK", false);
  }
  code->errorCode = 0;  // an error left over from earlier work must not stop this open
  DATA4St* db = d4open(code, file.c_str());
  if (db == nullptr) {
    // Created only when no file of that name exists: a table that is there but cannot be opened
    // (held alone elsewhere, damaged, no rights) keeps its records, and the caller answers 6.
    if (platform::FileExists(file)) return nullptr;
    code->errorCode = 0;
    db = d4create(code, file.c_str(), lpDbDef, nullptr);
    if (db != nullptr) (void)platform::RemoveFile(WithoutExtension(file) + ".CDX");
    return db;
  }
  Data4 data(db);
  if (!KvAdjustDbStructS(data, lpDbDef, *code)) return db;
  // Rebuilt: the old handle is gone; open the new file.
  code->errorCode = 0;
  return d4open(code, file.c_str());
}

INDEX4St* OpenIndex(_SELECT_SD* lpSelect, const char* lpPath, const char* lpNdxName, DATA4St* lpDb,
                    const TAG4INFO* lpTagInfo) {
  if (lpSelect == nullptr || lpDb == nullptr) return nullptr;
  CODE4* code = &lpSelect->c4code;
  const std::string file = JoinPath(lpPath, lpNdxName, ".CDX");
  code->errorCode = 0;
  INDEX4St* ix = i4open(lpDb, file.c_str());
  if (ix != nullptr) {
    // An index made by an older release may lack a tag the definition has now: build it anew
    // rather than let every seek on that tag fail.
    bool complete = true;
    for (const TAG4INFO* t = lpTagInfo; t != nullptr && t->name != nullptr; ++t)
      if (d4tag(lpDb, t->name) == nullptr) complete = false;
    code->errorCode = 0;  // d4tag of a missing tag sets it
    if (!complete) {
      i4close(ix);
      ix = i4create(lpDb, file.c_str(), lpTagInfo);
    }
  } else if (!platform::FileExists(file)) {
    code->errorCode = 0;
    ix = i4create(lpDb, file.c_str(), lpTagInfo);
  }
  d4tagSelect(lpDb, d4tagDefault(lpDb));
  return ix;
}

int GetMissingField(DATA4St* lpDb, const FIELD4INFO** lplpDbDef) {
  for (; (*lplpDbDef)->name != nullptr; ++*lplpDbDef) {
    FIELD4St* f = d4field(lpDb, (*lplpDbDef)->name);
    if (f == nullptr || f4len(f) != (*lplpDbDef)->len) return 0;
  }
  return 1;
}

int CheckDBStructure(_SELECT_SD* lpSelect, const char* lpDbName, const FIELD4INFO* lpDbDef, char* lpszMsg,
                     int nMaxMsgLen, int nWhereToSearch) {
  const std::size_t start = std::strlen(lpszMsg);
  const std::size_t name_len = std::strlen(lpDbName);
  if (static_cast<long>(start + name_len + 5) < nMaxMsgLen) {
    std::snprintf(lpszMsg + start, nMaxMsgLen - start, "\n%s:", lpDbName);
  }
  const char* path = nWhereToSearch != 0 ? lpSelect->szProjektPath : lpSelect->szVersionPath;
  DATA4St* db = OpenTable(lpSelect, path, lpDbName, lpDbDef, 0);
  if (db == nullptr) return KVD_S_OPEN_TABLE;
  int result = KVD_S_OK;
  const FIELD4INFO* def = lpDbDef;
  while (GetMissingField(db, &def) == 0) {
    const std::size_t len = std::strlen(lpszMsg);
    if (static_cast<long>(len + std::strlen(def->name) + 20) < nMaxMsgLen) {
      std::snprintf(lpszMsg + len, nMaxMsgLen - len, "\n\t%s\t%c\t%d\t%d", def->name, static_cast<char>(def->type),
                    def->len, def->dec);
    }
    result = KVD_S_STRUCTURE;
    ++def;
  }
  d4close(db);
  if (result == KVD_S_OK) lpszMsg[start] = '\0';
  return result;
}

uint32_t Kvf4hex(FIELD4St* field) {
  const char* p = f4ptr(field);
  const unsigned len = f4len(field) < 16 ? f4len(field) : 16;
  uint32_t v = 0;
  for (unsigned i = 0; i < len; ++i) {
    const char c = p[i];
    int d;
    if (c >= '0' && c <= '9') d = c - '0';
    else if (c >= 'a' && c <= 'f') d = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F') d = c - 'A' + 10;
    else break;
    v = (v << 4) | static_cast<uint32_t>(d);
  }
  return v;
}

void Kvf4assign_hex(FIELD4St* field, uint32_t ul) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%x", static_cast<unsigned>(ul));
  f4assign(field, buf);
}

}  // namespace kvd::frame

using namespace kvd::frame;

long DBPack(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  if (lpCursor == nullptr || lpCursor->lpDb == nullptr) return KVD_S_BAD_FUNCTION;
  return d4pack(lpCursor->lpDb) != 0 ? KVD_S_BAD_FUNCTION : KVD_S_OK;
}

long DBRcrdCnt(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor) {
  if (lpSelect == nullptr) return -1;
  if (lpCursor == nullptr || lpCursor->lpDb == nullptr) return -1;
  return d4recCount(lpCursor->lpDb);
}

long GetKeyCursor(_SELECT_SD*, _CURSOR_SD*, char*) { return 0; }

const char* kvd::frame::StatusText(int n) {
  switch (n) {
    case 0: return "No error ";
    case 1: return "Record not found";
    case 2: return "No project/version selected";
    case 6: return "Error opening data bank";
    case 7: return "Error opening index";
    case 8: return "Out of memory";
    case 9: return "Wildcard not allowed here";
    case 10: return "Invalid directory";
    case 11: return "Record already exists";
    case 12: return "Invalid project";
    case 13: return "Invalid version";
    case 14: return "Copy error";
    case 15: return "Out of memory! Close one or more applications and retry the command";
    case 16: return "File could not be opened";
    case 17: return "Version is locked";
    case 18: return "Data bank is inconsistent";
    case 20: return "Data bank not empty";
    case 22: return "Incompatible data bank version";
    case 29: return "Invalid function";
    case 30: return "Invalid data bank name in job data bank";
    case 31: return "Object-ID not found";
    case 32: return "Error creating bitmap";
    case 33: return "Invalid bitmap-file";
    case 34: return "Error reading bitmap-file";
    default: return "";  // 36 and the numbers without text
  }
}

void DisplayError(char* lpCaption, int nError) {
  // No desktop here: the text goes where the platform puts messages (standard error, one line),
  // with the stop icon's style number, as a message box would have shown it.
  char text[128];
  std::snprintf(text, sizeof text, "%s", StatusText(nError));
  kvd::platform::ShowMessage(text, lpCaption != nullptr ? lpCaption : "", 16);
}

