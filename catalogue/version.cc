// The version catalogue _VERSION.DBF in the project directory, and the version directories below
// it, named as their versions are: create, read, copy, rename, delete.
//
// A version's link to its directory is its name alone, so a rename renames the directory. Paths
// are joined as strings from the selection's project path and reach the disk through the
// platform; no call changes the process's current directory, not even for a rename or a delete.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "catalogue/catalogue.h"
#include "frame/kernel.h"
#include "lib/foundation/kvtext.h"
#include "lib/system/tree.h"
#include "platform/dir.h"
#include "platform/file.h"

namespace kvd::catalogue {

const char kVersionDbName[] = "_VERSION";

const FIELD4INFO kVersionDbDef[] = {
    {"NAME", 'C', 8, 0, 0},   {"BEZEICH", 'C', 40, 0, 0},    {"ARCDAT", 'C', 8, 0, 0}, {"GENDAT", 'C', 8, 0, 0},
    {"WORDAT", 'C', 8, 0, 0}, {"BEARBEITER", 'C', 20, 0, 0}, {"SPERRE", 'C', 1, 0, 0}, {nullptr, 0, 0, 0, 0},
};

const TAG4INFO kVersionNdxTag[] = {
    {"NAME", "NAME", ".NOT. DELETED()", e4unique, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};

namespace {

constexpr int kRead = 0;
constexpr int kWrite = 1;

long OpenVersions(_SELECT_SD* s, CallTable* t, int access) {
  return t->Open(s, s->szProjektPath, kVersionDbName, kVersionDbDef, kVersionNdxTag, access);
}

// The directory of a version with a clean name: the project's directory and the name.
std::string VersionDirectory(const _SELECT_SD* s, const std::string& name) {
  return std::string(s->szProjektPath) + name + "\\";
}

std::string WithoutSeparator(std::string dir) {
  if (!dir.empty() && (dir.back() == '\\' || dir.back() == '/')) dir.pop_back();
  return dir;
}

std::string PathList(const std::string& path) { return path + std::string(1, '\0'); }

bool SameIgnoringCase(const std::string& a, const std::string& b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           auto up = [](char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; };
           return up(x) == up(y);
         });
}

// Another version (not `self`) whose name differs from `name` in case alone: both would be one
// directory on this file system as on the one the catalogue came from.
bool CaseTwinExists(DATA4St* db, const std::string& name, const std::string& self = "") {
  const std::vector<std::string> names = AllNames(db);
  return std::any_of(names.begin(), names.end(),
                     [&](const std::string& n) { return n != self && SameIgnoringCase(n, name); });
}

// A project directory that is a root, the admin directory or above it has no versions the
// catalogue makes, copies, renames or deletes: their directories would be the admin directory's
// own subdirectories, projects among them.
bool ProtectedProject(const _SELECT_SD* s) { return IsProtectedDirectory(s->szProjektPath); }

// A version directory that may be emptied: not protected, and, where it exists, strictly inside
// the project's directory when links are followed (a version that is a link leading elsewhere is
// not followed there).
bool MayEmpty(const _SELECT_SD* s, const std::string& vdir) {
  if (ProtectedProject(s) || IsProtectedDirectory(vdir)) return false;
  if (!platform::DirectoryExists(vdir)) return true;
  return platform::IsSameOrBelow(vdir, s->szProjektPath) && !platform::IsSameOrBelow(s->szProjektPath, vdir);
}

// Empties a version directory of files and removes it. True when no directory stays: it was
// removed, or there was none.
bool RemoveVersionTree(const std::string& vdir) {
  if (!platform::DirectoryExists(vdir)) return true;
  if (!KvDeleteFilesEx(PathList(vdir + "*.*").c_str(), true)) return false;
  (void)platform::RemoveDirectory(vdir);  // stays when it has subdirectories
  return true;
}

// The fields a version's writes set, and its comment.
void AssignVersion(DATA4St* db, const _VERSION_ALL_REC* r, const std::string& vdir) {
  f4assign(d4field(db, "BEZEICH"), r->szVerBez);
  (void)WriteKomment(vdir.c_str(), r->lpKomment);  // a comment that cannot be written stops nothing
  f4assign(d4field(db, "GENDAT"), Today().c_str());
  f4assign(d4field(db, "BEARBEITER"), r->szBearbeiter);
  f4assign(d4field(db, "SPERRE"), "F");
}

void StartRecord(DATA4St* db, const std::string& name) {
  d4appendStart(db, 0);
  d4blank(db);
  f4assign(d4field(db, "NAME"), name.c_str());
}

// A directory made for a version; `take_over` accepts one that is there. *made tells whether this
// call made it.
long MakeVersionDirectory(const _SELECT_SD* s, const std::string& vdir, bool take_over, bool* made) {
  *made = false;
  if (ProtectedProject(s) || IsProtectedDirectory(vdir)) return KVD_S_BAD_DIRECTORY;
  const Status st = platform::MakeDirectory(vdir);
  if (st.ok()) {
    *made = true;
    return KVD_S_OK;
  }
  if (take_over && st.kind() == Status::Kind::kExists && platform::DirectoryExists(vdir) && MayEmpty(s, vdir))
    return KVD_S_OK;
  return KVD_S_BAD_DIRECTORY;
}

void UnmakeVersionDirectory(const std::string& vdir, bool made) {
  if (!made) return;
  (void)platform::RemoveFile(vdir + "komment.txt");
  (void)platform::RemoveDirectory(vdir);
}

// Renames a version's directory. A change of case alone goes through a name of its own, since
// the new name finds the old directory when case is ignored.
Status RenameDirectory(const std::string& project, const std::string& from, const std::string& to) {
  const std::string old_path = project + from, new_path = project + to;
  if (!SameIgnoringCase(from, to)) return platform::RenameFile(old_path, new_path);
  const std::string step = project + ".kvdrename." + to;
  KVD_RETURN_IF_ERROR(platform::RenameFile(old_path, step));
  Status s = platform::RenameFile(step, new_path);
  if (!s.ok()) (void)platform::RenameFile(step, old_path);
  return s;
}

}  // namespace
}  // namespace kvd::catalogue

using namespace kvd;
using namespace kvd::catalogue;

long VersionRead(_SELECT_SD* lpSelect, _VERSION_ALL_REC* lpData) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  std::string name;
  if (!CleanName(lpData->szVerName, &name)) return KVD_S_BAD_VERSION;
  CallTable t;
  if (long st = OpenVersions(lpSelect, &t, kRead); st != KVD_S_OK) return st;
  if (!t.Seek(name.c_str())) return KVD_S_NOT_FOUND;
  DATA4St* db = t.db();
  std::snprintf(lpData->szVerName, sizeof lpData->szVerName, "%s", t.Text("NAME").c_str());
  std::snprintf(lpData->szVerBez, sizeof lpData->szVerBez, "%s", t.Text("BEZEICH").c_str());
  if (lpData->lpKomment != nullptr) ReadKomment(VersionDirectory(lpSelect, name).c_str(), lpData->lpKomment);
  FormatDate(f4str(d4field(db, "GENDAT")), lpData->szGenDat);
  std::snprintf(lpData->szBearbeiter, sizeof lpData->szBearbeiter, "%s", t.Text("BEARBEITER").c_str());
  lpData->fSperre = f4char(d4field(db, "SPERRE"));
  return KVD_S_OK;
}

long VersionInsert(_SELECT_SD* lpSelect, _VERSION_ALL_REC* lpData) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  std::string name;
  if (!CleanName(lpData->szVerName, &name)) return KVD_S_BAD_VERSION;
  CallTable t;
  if (long st = OpenVersions(lpSelect, &t, kWrite); st != KVD_S_OK) return st;
  DATA4St* db = t.db();
  if (t.Seek(name.c_str()) || CaseTwinExists(db, name)) return KVD_S_EXISTS;
  const std::string vdir = VersionDirectory(lpSelect, name);
  bool made = false;
  if (long st = MakeVersionDirectory(lpSelect, vdir, /*take_over=*/true, &made); st != KVD_S_OK) return st;
  StartRecord(db, name);
  AssignVersion(db, lpData, vdir);
  if (d4append(db) != 0) {
    t.Close();
    UnmakeVersionDirectory(vdir, made);
    return KVD_S_OPEN_TABLE;
  }
  return KVD_S_OK;
}

long VersionUpdate(_SELECT_SD* lpSelect, _VERSION_ALL_REC* lpData) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  std::string name;
  if (!CleanName(lpData->szVerName, &name)) return KVD_S_BAD_VERSION;
  CallTable t;
  if (long st = OpenVersions(lpSelect, &t, kWrite); st != KVD_S_OK) return st;
  DATA4St* db = t.db();
  const std::string vdir = VersionDirectory(lpSelect, name);
  bool made = false;
  const bool found = t.Seek(name.c_str());
  if (found) {
    if (!t.LockCurrent()) return KVD_S_OPEN_TABLE;
  } else {
    if (CaseTwinExists(db, name)) return KVD_S_EXISTS;
    if (long st = MakeVersionDirectory(lpSelect, vdir, /*take_over=*/false, &made); st != KVD_S_OK) return st;
    StartRecord(db, name);
  }
  AssignVersion(db, lpData, vdir);
  if ((!found && d4append(db) != 0) || (found && d4flush(db) != 0)) {
    t.Close();
    UnmakeVersionDirectory(vdir, made);
    return KVD_S_OPEN_TABLE;
  }
  return KVD_S_OK;
}

long VersionDelete(_SELECT_SD* lpSelect, char* lpVersion) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  std::string name;
  if (!CleanName(lpVersion, &name)) return KVD_S_BAD_VERSION;
  CallTable t;
  if (long st = OpenVersions(lpSelect, &t, kWrite); st != KVD_S_OK) return st;
  if (!t.Seek(name.c_str())) return KVD_S_BAD_VERSION;
  const std::string vdir = VersionDirectory(lpSelect, name);
  // Checked before anything goes: a directory that must not be emptied keeps its record too.
  if (!MayEmpty(lpSelect, vdir)) return KVD_S_BAD_DIRECTORY;
  // The record goes first; files that cannot be removed leave their directory behind, and the
  // answer is 0 all the same.
  if (!t.DeleteCurrent()) return KVD_S_OPEN_TABLE;
  t.Close();
  (void)RemoveVersionTree(vdir);
  return KVD_S_OK;
}

long VersionDeleteAll(_SELECT_SD* lpSelect) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  if (ProtectedProject(lpSelect)) return KVD_S_BAD_DIRECTORY;
  CallTable t;
  if (long st = OpenVersions(lpSelect, &t, kWrite); st != KVD_S_OK) return st;
  DATA4St* db = t.db();
  // Each version whose files went loses its record; one whose files stay keeps it. A name that
  // would leave the project, or a directory that must not be emptied, is left as it is.
  for (const std::string& stored : AllNames(db)) {
    std::string name;
    if (!CleanName(stored.c_str(), &name)) continue;
    const std::string vdir = VersionDirectory(lpSelect, name);
    if (!MayEmpty(lpSelect, vdir) || !RemoveVersionTree(vdir)) continue;
    if (t.Seek(name.c_str()) && t.LockCurrent()) d4delete(db);
  }
  (void)d4pack(db);  // with another reader the records stay marked, which reads pass over
  return KVD_S_OK;
}

long VersionCopy(_SELECT_SD* lpSelect, char* lpVersion, char* lpNewVerName, HWND) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  std::string from, to;
  if (!CleanName(lpVersion, &from) || !CleanName(lpNewVerName, &to)) return KVD_S_BAD_VERSION;
  CallTable t;
  if (long st = OpenVersions(lpSelect, &t, kWrite); st != KVD_S_OK) return st;
  DATA4St* db = t.db();
  if (t.Seek(to.c_str()) || CaseTwinExists(db, to)) return KVD_S_EXISTS;
  if (!t.Seek(from.c_str())) return KVD_S_BAD_VERSION;
  const std::string source = VersionDirectory(lpSelect, from);
  const std::string target = VersionDirectory(lpSelect, to);
  // The copy makes its target; one that is there must be an empty directory, so that the copy's
  // files never mix with what a failed delete or another program left there.
  if (ProtectedProject(lpSelect) || IsProtectedDirectory(target)) return KVD_S_BAD_DIRECTORY;
  if (platform::DirectoryExists(target)) {
    std::vector<platform::DirEntry> entries;
    if (!platform::ListDirectory(target, &entries).ok() || !entries.empty()) return KVD_S_BAD_DIRECTORY;
  } else if (platform::FileExists(target)) {
    return KVD_S_BAD_DIRECTORY;
  }

  // Description and editor stay blank.
  StartRecord(db, to);
  f4assign(d4field(db, "GENDAT"), Today().c_str());
  f4assign(d4field(db, "SPERRE"), "F");
  if (d4append(db) != 0) return KVD_S_OPEN_TABLE;
  t.Close();

  if (KvCopyFilesEx(PathList(source + "*.*").c_str(), PathList(WithoutSeparator(target)).c_str(), true))
    return KVD_S_OK;
  // Undone: the record goes; files already copied stay.
  if (OpenVersions(lpSelect, &t, kWrite) == KVD_S_OK && t.Seek(to.c_str())) (void)t.DeleteCurrent();
  return KVD_S_COPY;
}

long VersionRename(_SELECT_SD* lpSelect, char* lpVersion, char* lpNewVersion, HWND) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  std::string from, to;
  if (!CleanName(lpVersion, &from) || !CleanName(lpNewVersion, &to)) return KVD_S_BAD_VERSION;
  CallTable t;
  if (long st = OpenVersions(lpSelect, &t, kWrite); st != KVD_S_OK) return st;
  DATA4St* db = t.db();
  if (t.Seek(to.c_str()) || CaseTwinExists(db, to, from)) return KVD_S_EXISTS;
  if (!t.Seek(from.c_str())) return KVD_S_BAD_VERSION;
  if (ProtectedProject(lpSelect)) return KVD_S_BAD_DIRECTORY;
  // The record's lock first, so that a record that cannot be changed leaves the directory as it is.
  if (!t.LockCurrent()) return KVD_S_OPEN_TABLE;
  const std::string project = lpSelect->szProjektPath;
  if (!RenameDirectory(project, from, to).ok()) return KVD_S_COPY;  // all unchanged
  f4assign(d4field(db, "NAME"), to.c_str());
  if (d4flush(db) != 0) {
    (void)RenameDirectory(project, to, from);
    return KVD_S_OPEN_TABLE;
  }
  return KVD_S_OK;
}

long VersionLock(_SELECT_SD*, char*) { return KVD_S_OK; }

long VersionGetLockFlag(_SELECT_SD*, char*) { return KVD_S_OK; }

long VersionOpenListCursor(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor) {
  *lplpCursor = nullptr;
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  if (lpWildcard != nullptr) return KVD_S_NO_WILDCARD;  // a list has no filter
  std::vector<ListRow> rows;
  if (long st = ReadList(lpSelect, lpSelect->szProjektPath, kVersionDbName, kVersionDbDef, kVersionNdxTag, &rows);
      st != KVD_S_OK)
    return st;
  *lplpCursor = NewListCursor(std::move(rows));
  return *lplpCursor != nullptr ? KVD_S_OK : KVD_S_NO_MEMORY;
}

long VFLC(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor, _VERSION_LIST_REC* lpData) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  const ListRow* row = nullptr;
  if (!NextListRow(lpCursor, &row)) return KVD_S_NOT_FOUND;
  std::snprintf(lpData->szVerName, sizeof lpData->szVerName, "%s", row->name.c_str());
  std::snprintf(lpData->szVerBez, sizeof lpData->szVerBez, "%s", row->descr.c_str());
  return KVD_S_OK;
}

long VersionCloseListCursor(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor) {
  FreeListCursor(lpCursor);
  return lpSelect == nullptr ? KVD_S_NO_SELECTION : KVD_S_OK;
}

long VersionCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  return frame::CheckDBStructure(lpSelect, kVersionDbName, kVersionDbDef, lpszMsg, nMaxMsgLen,
                                 lpSelect->szVersionPath[0] == '\0' ? 1 : 0);
}
