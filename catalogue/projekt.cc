// The project catalogue _PROJECT.DBF in the admin directory, and the project directories behind
// its records: create, read, rename, move, copy, delete.
//
// Every call opens the catalogue for its own duration (reads with nAccess 0, changes with 1) and
// keeps its paths in locals, so calls may run on several threads with their own selections. No
// call changes the process's current directory: directories are joined as strings and reach the
// disk through the platform, which maps them there.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "catalogue/catalogue.h"
#include "frame/kernel.h"
#include "frame/lookup.h"
#include "lib/foundation/kvtext.h"
#include "lib/system/tree.h"
#include "platform/dir.h"
#include "platform/file.h"

namespace kvd::catalogue {
namespace {

constexpr int kRead = 0;
constexpr int kWrite = 1;
constexpr std::size_t kPfadWidth = 54;

long OpenCatalogue(_SELECT_SD* s, CallTable* t, int access) {
  return t->Open(s, s->szProjektPath, frame::kProjektDbName, frame::kProjektDbDef, frame::kProjektNdxTag, access);
}

std::string TrimmedText(const char* text) {
  std::string s = text != nullptr ? text : "";
  s.push_back('\0');
  KvLTrim(KvRTrim(s.data()));
  s.resize(std::strlen(s.c_str()));
  return s;
}

std::string WithoutSeparator(std::string dir) {
  if (!dir.empty() && (dir.back() == '\\' || dir.back() == '/')) dir.pop_back();
  return dir;
}

// A path list of one pattern, as the tree operations take it: the text and a second NUL.
std::string PathList(const std::string& path) { return path + std::string(1, '\0'); }

struct ProjectDir {
  std::string name;
  std::string dir;  // completed, with a trailing separator
};

// Every live project with its directory, in record order.
std::vector<ProjectDir> AllProjects(DATA4St* db) {
  std::vector<ProjectDir> out;
  TAG4St* tag = d4tagSelected(db);
  d4tagSelect(db, nullptr);
  FIELD4St* name = d4field(db, "NAME");
  FIELD4St* pfad = d4field(db, "PFAD");
  for (int rc = d4top(db); rc == 0 && !d4eof(db); rc = d4skip(db, 1)) {
    if (d4deleted(db)) continue;
    char n[16] = {}, p[64] = {};
    f4ncpy(name, n, sizeof n);
    f4ncpy(pfad, p, sizeof p);
    out.push_back({KvLTrim(KvRTrim(n)), ProjectDirectory(p)});
  }
  d4tagSelect(db, tag);
  return out;
}

// A directory another project (any but `self`) already has, holds, or lies in.
bool TakenByAnother(const std::vector<ProjectDir>& all, const std::string& dir, const std::string& self) {
  return std::any_of(all.begin(), all.end(),
                     [&](const ProjectDir& p) { return p.name != self && Overlap(p.dir, dir); });
}

// The checks of a directory a project is to have: a text that fits PFAD, a place that is neither
// protected nor another project's. 0 or 10.
long CheckProjectDirectory(const std::vector<ProjectDir>& all, const char* pfad, const std::string& self) {
  const std::string text = TrimmedText(pfad);
  if (text.empty() || text.size() > kPfadWidth) return KVD_S_BAD_DIRECTORY;
  const std::string dir = ProjectDirectory(text);
  if (IsProtectedDirectory(dir) || TakenByAnother(all, dir, self)) return KVD_S_BAD_DIRECTORY;
  return KVD_S_OK;
}

// Makes a project directory. `take_over`: an existing directory is fine. Sets *made when the
// directory is new, so that a failure afterwards can take it back.
long MakeProjectDirectory(const std::string& dir, bool take_over, bool* made) {
  *made = false;
  const Status s = platform::MakeDirectory(dir);
  if (s.ok()) {
    *made = true;
    return KVD_S_OK;
  }
  if (take_over && s.kind() == Status::Kind::kExists && platform::DirectoryExists(dir)) return KVD_S_OK;
  return KVD_S_BAD_DIRECTORY;
}

// Takes back a directory this call made, with the comment it wrote there.
void UnmakeProjectDirectory(const std::string& dir, bool made) {
  if (!made) return;
  (void)platform::RemoveFile(dir + "komment.txt");
  (void)platform::RemoveDirectory(dir);
}

// The ten bytes of a password: raw bytes of a record, or a shorter text ended by its NUL (the
// field is then blank behind it). Never read beyond a terminator.
void AssignPassword(DATA4St* db, const char* pwd, bool raw) {
  FIELD4St* f = d4field(db, "PWD");
  if (pwd == nullptr) return f4blank(f);
  f4assignN(f, pwd, raw ? 10u : static_cast<unsigned>(strnlen(pwd, 10)));
}

// Puts the record's directory, description, password and comment into the current record.
void AssignProject(DATA4St* db, const _PROJECT_ALL_REC* r, const std::string& dir) {
  f4assign(d4field(db, "BEZEICH"), r->szPrjBez);
  f4assign(d4field(db, "PFAD"), TrimmedText(r->szPrjPath).c_str());
  AssignPassword(db, r->achPwd, true);
  (void)WriteKomment(dir.c_str(), r->lpKomment);  // a comment that cannot be written stops nothing
  f4assign(d4field(db, "GENDAT"), Today().c_str());
}

// Starts a new record of the catalogue, blank but for its name.
void StartRecord(DATA4St* db, const std::string& name) {
  d4appendStart(db, 0);
  d4blank(db);
  f4assign(d4field(db, "NAME"), name.c_str());
}

// The catalogue's file forced to disk, so that what a call changed survives before it removes
// the old tree a record no longer names.
void SyncCatalogue(_SELECT_SD* s) {
  std::unique_ptr<platform::File> f;
  if (platform::File::Open(frame::JoinPath(s->szProjektPath, frame::kProjektDbName, ".DBF"), platform::OpenMode::kRead,
                           &f)
          .ok())
    (void)f->Sync();
}

}  // namespace
}  // namespace kvd::catalogue

using namespace kvd;
using namespace kvd::catalogue;

long ProjektRead(_SELECT_SD* lpSelect, _PROJECT_ALL_REC* lpData) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  CallTable t;
  if (long st = OpenCatalogue(lpSelect, &t, kRead); st != KVD_S_OK) return st;
  if (!t.Seek(lpData->szPrjName)) return KVD_S_NOT_FOUND;
  DATA4St* db = t.db();
  std::snprintf(lpData->szPrjName, sizeof lpData->szPrjName, "%s", t.Text("NAME").c_str());
  std::snprintf(lpData->szPrjBez, sizeof lpData->szPrjBez, "%s", t.Text("BEZEICH").c_str());
  const std::string stored = t.Text("PFAD");
  const std::string dir = ProjectDirectory(stored);
  // Absolute when that fits the record's 54 characters; a cut path would name another directory,
  // so a longer one is handed out as stored, relative to the admin directory.
  const std::string absolute = WithoutSeparator(dir);
  std::snprintf(lpData->szPrjPath, sizeof lpData->szPrjPath, "%s",
                absolute.size() < sizeof lpData->szPrjPath ? absolute.c_str() : stored.c_str());
  std::memcpy(lpData->achPwd, f4ptr(d4field(db, "PWD")), sizeof lpData->achPwd);
  if (lpData->lpKomment != nullptr) ReadKomment(dir.c_str(), lpData->lpKomment);
  FormatDate(f4str(d4field(db, "GENDAT")), lpData->szGenDat);
  FormatDate(f4str(d4field(db, "WORDAT")), lpData->szWorDat);
  FormatDate(f4str(d4field(db, "ARCDAT")), lpData->szArcDat);
  return KVD_S_OK;
}

long ProjektInsert(_SELECT_SD* lpSelect, _PROJECT_ALL_REC* lpData) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  std::string name;
  if (!CleanName(lpData->szPrjName, &name)) return KVD_S_BAD_PROJECT;
  CallTable t;
  if (long st = OpenCatalogue(lpSelect, &t, kWrite); st != KVD_S_OK) return st;
  const std::vector<ProjectDir> all = AllProjects(t.db());
  if (t.Seek(name.c_str())) return KVD_S_EXISTS;
  if (long st = CheckProjectDirectory(all, lpData->szPrjPath, name); st != KVD_S_OK) return st;
  // A directory given relative lies below the admin directory, where every read will look for it.
  const std::string dir = ProjectDirectory(lpData->szPrjPath);
  bool made = false;
  if (long st = MakeProjectDirectory(dir, /*take_over=*/true, &made); st != KVD_S_OK) return st;
  DATA4St* db = t.db();
  StartRecord(db, name);
  AssignProject(db, lpData, dir);
  f4assignInt(d4field(db, "DBVER"), 1);
  if (d4append(db) != 0) {
    t.Close();
    UnmakeProjectDirectory(dir, made);
    return KVD_S_OPEN_TABLE;
  }
  return KVD_S_OK;
}

long ProjektUpdate(_SELECT_SD* lpSelect, _PROJECT_ALL_REC* lpData) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  std::string name;
  if (!CleanName(lpData->szPrjName, &name)) return KVD_S_BAD_PROJECT;
  CallTable t;
  if (long st = OpenCatalogue(lpSelect, &t, kWrite); st != KVD_S_OK) return st;
  DATA4St* db = t.db();
  const std::vector<ProjectDir> all = AllProjects(db);
  const std::string dir = ProjectDirectory(lpData->szPrjPath);
  bool made = false;
  const bool found = t.Seek(name.c_str());
  if (found) {
    // A changed directory moves nothing on disk, but must be a place a project may have.
    if (t.Text("PFAD") != TrimmedText(lpData->szPrjPath)) {
      if (long st = CheckProjectDirectory(all, lpData->szPrjPath, name); st != KVD_S_OK) return st;
    }
    if (!t.LockCurrent()) return KVD_S_OPEN_TABLE;
  } else {
    // A new project, and here its directory must be new as well.
    if (long st = CheckProjectDirectory(all, lpData->szPrjPath, name); st != KVD_S_OK) return st;
    if (long st = MakeProjectDirectory(dir, /*take_over=*/false, &made); st != KVD_S_OK) return st;
    StartRecord(db, name);
  }
  // DBVER is left as it is: a project this call made has none (ProjektCheckDBVersion answers 22).
  AssignProject(db, lpData, dir);
  if ((!found && d4append(db) != 0) || (found && d4flush(db) != 0)) {
    t.Close();
    UnmakeProjectDirectory(dir, made);
    return KVD_S_OPEN_TABLE;
  }
  return KVD_S_OK;
}

long ProjektCheckDBVersion(_SELECT_SD* lpSelect, char* lpProjekt) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  CallTable t;
  if (long st = OpenCatalogue(lpSelect, &t, kRead); st != KVD_S_OK) return st;
  if (!t.Seek(lpProjekt)) return KVD_S_NOT_FOUND;
  return f4int(d4field(t.db(), "DBVER")) == 1 ? KVD_S_OK : KVD_S_DB_VERSION;
}

long ProjektRename(_SELECT_SD* lpSelect, char* lpProjekt, char* lpNewPrjName, HWND) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  std::string name;
  if (!CleanName(lpNewPrjName, &name)) return KVD_S_BAD_PROJECT;
  CallTable t;
  if (long st = OpenCatalogue(lpSelect, &t, kWrite); st != KVD_S_OK) return st;
  if (t.Seek(name.c_str())) return KVD_S_EXISTS;  // the own name too: it is taken
  if (!t.Seek(lpProjekt)) return KVD_S_BAD_PROJECT;
  // The directory keeps its name: the catalogue alone knows the project by name.
  if (!t.LockCurrent()) return KVD_S_OPEN_TABLE;
  f4assign(d4field(t.db(), "NAME"), name.c_str());
  return d4flush(t.db()) == 0 ? KVD_S_OK : KVD_S_OPEN_TABLE;
}

long ProjektMove(_SELECT_SD* lpSelect, char* lpProjekt, char* lpNewPath, HWND) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  CallTable t;
  if (long st = OpenCatalogue(lpSelect, &t, kWrite); st != KVD_S_OK) return st;
  DATA4St* db = t.db();
  const std::vector<ProjectDir> all = AllProjects(db);
  if (!t.Seek(lpProjekt)) return KVD_S_BAD_PROJECT;
  const std::string self = t.Text("NAME");
  const std::string old_dir = ProjectDirectory(t.Text("PFAD"));
  // The old tree is pruned after the copy, so it must be a project's own directory: not protected,
  // there, and holding no other project.
  if (IsProtectedDirectory(old_dir) || !platform::DirectoryExists(old_dir) || TakenByAnother(all, old_dir, self))
    return KVD_S_BAD_DIRECTORY;
  if (long st = CheckProjectDirectory(all, lpNewPath, self); st != KVD_S_OK) return st;
  const std::string new_dir = ProjectDirectory(lpNewPath);
  if (Overlap(old_dir, new_dir)) return KVD_S_BAD_DIRECTORY;  // into or around itself
  if (!platform::MakeDirectory(new_dir).ok()) return KVD_S_BAD_DIRECTORY;  // also when it exists

  // The catalogue stays open during the copy; a failed copy leaves it and the old tree as they
  // were, and what was copied stays. The source names the directory with its separator, so that
  // it is the directory's entries that are copied.
  std::string to = WithoutSeparator(new_dir), from = old_dir;
  if (long st = KvXCopy(to.data(), from.data(), 1, 0); st != 0) return st;
  if (!t.LockCurrent()) return KVD_S_OPEN_TABLE;
  f4assign(d4field(db, "PFAD"), TrimmedText(lpNewPath).c_str());
  if (d4flush(db) != 0) return KVD_S_OPEN_TABLE;  // the record names the old tree: it stays
  t.Close();
  SyncCatalogue(lpSelect);
  std::string prune = WithoutSeparator(old_dir);
  (void)KvPrune(prune.data());
  return KVD_S_OK;
}

long ProjektCopy(_SELECT_SD* lpSelect, char* lpProjekt, char* lpNewPrjName, char* lpNewPath, char* lpNewPwd, HWND) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  std::string name;
  if (!CleanName(lpNewPrjName, &name)) return KVD_S_BAD_PROJECT;
  CallTable t;
  if (long st = OpenCatalogue(lpSelect, &t, kWrite); st != KVD_S_OK) return st;
  DATA4St* db = t.db();
  const std::vector<ProjectDir> all = AllProjects(db);
  if (t.Seek(name.c_str())) return KVD_S_EXISTS;
  if (!t.Seek(lpProjekt)) return KVD_S_BAD_PROJECT;
  const std::string source = ProjectDirectory(t.Text("PFAD"));
  // The copy makes its target; a directory that is there already must be empty, so that the new
  // project's files never mix with others (and a failed copy never leaves files among them).
  if (long st = CheckProjectDirectory(all, lpNewPath, name); st != KVD_S_OK) return st;
  const std::string target = ProjectDirectory(lpNewPath);
  if (platform::DirectoryExists(target)) {
    std::vector<platform::DirEntry> entries;
    if (!platform::ListDirectory(target, &entries).ok() || !entries.empty()) return KVD_S_BAD_DIRECTORY;
  } else if (platform::FileExists(target)) {
    return KVD_S_BAD_DIRECTORY;
  }

  // The project exists from its record on, before its files do.
  StartRecord(db, name);
  f4assign(d4field(db, "PFAD"), TrimmedText(lpNewPath).c_str());
  AssignPassword(db, lpNewPwd, false);
  f4assignInt(d4field(db, "DBVER"), 1);
  f4assign(d4field(db, "GENDAT"), Today().c_str());
  if (d4append(db) != 0) return KVD_S_OPEN_TABLE;
  t.Close();

  if (KvCopyFilesEx(PathList(source + "*.*").c_str(), PathList(WithoutSeparator(target)).c_str(), true))
    return KVD_S_OK;
  // Undone: the record goes; files already copied stay.
  if (OpenCatalogue(lpSelect, &t, kWrite) == KVD_S_OK && t.Seek(name.c_str())) (void)t.DeleteCurrent();
  return KVD_S_BAD_DIRECTORY;
}

long ProjektDelete(_SELECT_SD* lpSelect, char* lpProjekt) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  CallTable t;
  if (long st = OpenCatalogue(lpSelect, &t, kWrite); st != KVD_S_OK) return st;
  const std::vector<ProjectDir> all = AllProjects(t.db());
  if (!t.Seek(lpProjekt)) return KVD_S_NOT_FOUND;
  const std::string self = t.Text("NAME");
  const std::string dir = ProjectDirectory(t.Text("PFAD"));
  if (IsProtectedDirectory(dir) || TakenByAnother(all, dir, self)) return KVD_S_BAD_DIRECTORY;

  // A project whose directory is gone has nothing left to empty: its record goes all the same,
  // rather than stay for ever because its version list cannot be opened.
  const bool there = platform::DirectoryExists(dir);
  if (there) {
    // The versions, each emptied of files and removed when that worked. A directory that stays
    // (files held open elsewhere, subdirectories) stays with what it holds.
    _SELECT_SD* project = SelectDir(dir.c_str(), 'V');
    if (project == nullptr) return KVD_S_NO_MEMORY;
    std::vector<ListRow> versions;
    const long st = ReadList(project, project->szProjektPath, kVersionDbName, kVersionDbDef, kVersionNdxTag, &versions);
    Unselect(project);
    if (st != KVD_S_OK) return st;
    for (const ListRow& v : versions) {
      std::string vname;
      if (!CleanName(v.name.c_str(), &vname)) continue;  // a name that would leave the project
      const std::string vdir = dir + vname + "\\";
      if (!platform::DirectoryExists(vdir) || !platform::IsSameOrBelow(vdir, dir) ||
          platform::IsSameOrBelow(dir, vdir) || IsProtectedDirectory(vdir))
        continue;  // gone already, or a link that leads out of the project
      if (KvDeleteFilesEx(PathList(vdir + "*.*").c_str(), true)) (void)platform::RemoveDirectory(vdir);
    }
  }
  if (!t.DeleteCurrent()) return KVD_S_OPEN_TABLE;
  t.Close();
  // The files of the project directory; the directory itself stays.
  if (there) (void)KvDeleteFilesEx(PathList(dir + "*.*").c_str(), true);
  return KVD_S_OK;
}

long ProjektOpenListCursor(_SELECT_SD* lpSelect, char* lpWildcard, _CURSOR_SD** lplpCursor) {
  *lplpCursor = nullptr;
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  if (lpWildcard != nullptr) return KVD_S_NO_WILDCARD;  // a list has no filter
  std::vector<ListRow> rows;
  if (long st = ReadList(lpSelect, lpSelect->szProjektPath, frame::kProjektDbName, frame::kProjektDbDef,
                         frame::kProjektNdxTag, &rows);
      st != KVD_S_OK)
    return st;
  *lplpCursor = NewListCursor(std::move(rows));
  return *lplpCursor != nullptr ? KVD_S_OK : KVD_S_NO_MEMORY;
}

long PFLC(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor, _PROJECT_LIST_REC* lpData) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  const ListRow* row = nullptr;
  if (!NextListRow(lpCursor, &row)) return KVD_S_NOT_FOUND;
  std::snprintf(lpData->szPrjName, sizeof lpData->szPrjName, "%s", row->name.c_str());
  std::snprintf(lpData->szPrjBez, sizeof lpData->szPrjBez, "%s", row->descr.c_str());
  return KVD_S_OK;
}

long ProjektCloseListCursor(_SELECT_SD* lpSelect, _CURSOR_SD* lpCursor) {
  FreeListCursor(lpCursor);  // also without a selection: the cursor is the caller's to give back
  return lpSelect == nullptr ? KVD_S_NO_SELECTION : KVD_S_OK;
}

long ProjektCheckDBStructure(_SELECT_SD* lpSelect, char* lpszMsg, int nMaxMsgLen) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  // In the version directory when the selection has one, as every family's check looks; else in
  // the project path, never in the process's current directory.
  return frame::CheckDBStructure(lpSelect, frame::kProjektDbName, frame::kProjektDbDef, lpszMsg, nMaxMsgLen,
                                 lpSelect->szVersionPath[0] == '\0' ? 1 : 0);
}
