// Start-up and selections.
#include "frame/session.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "lib/foundation/kvfail.h"
#include "lib/foundation/kvgran.h"
#include "lib/foundation/kvsem.h"
#include "lib/system/appdir.h"
#include "platform/env.h"
#include "platform/file.h"

namespace kvd::frame {
namespace {

Settings g_settings;

// Fresh engine state of a selection: quiet opens, no production index opened by itself, no
// replacement guard (the kernel decides itself when a table is made), nothing cached, a change
// needs its record's lock, and a new lock drops the older ones.
void InitEngine(CODE4* code) {
  code4initLow(code, nullptr, 6502, 1010, 0);
  code->autoOpen = 0;
  code->errOpen = 0;
  code->safety = 0;
  code->optimize = 0;
  code->optimizeWrite = 0;
  code->lockEnforce = 1;
  code4unlockAutoSetDo(code, 1);
  code->accessMode = OPEN4DENY_NONE;
}

_SELECT_SD* NewSelection(char who) {
  auto* s = static_cast<_SELECT_SD*>(std::calloc(1, sizeof(_SELECT_SD)));
  if (s == nullptr) return nullptr;
  s->cWer = who;
  s->cOpen = 0;
  InitEngine(&s->c4code);
  return s;
}

// A selection that fails after its engine state was made gives everything back.
void EndSelection(_SELECT_SD* s) {
  code4initUndo(&s->c4code);
  std::free(s);
}

// One level, result ignored: a missing admin directory shows later as status 6.
void MakeAdminDirectory() {
  if (g_settings.admin_path[0] != '\0') (void)platform::MakeDirectory(g_settings.admin_path);
}

// Runs the start-up when the library is loaded: the process-crossing mutex, then the process's
// private arena of 4 MiB, before any class-library object exists, then the configuration. A
// process whose address space has no room for the arena goes on without one; the class library
// then fails its allocations.
__attribute__((constructor)) void OnLoad() {
  KvInitCritSec();
  try {
    KvGranularity::_AllocMem(KVGRAN_DEFAULT_SIZE);
  } catch (const KvFailure&) {
  }
  Startup();
}

}  // namespace

const Settings& TheSettings() { return g_settings; }

std::string IniFile() {
  if (const char* env = std::getenv("KVD_TELMOR_INI"); env != nullptr && *env != '\0') return env;
  char dir[KVD_PATH_MAX + 2] = {};
  KvGetAppDir(dir);
  AppendBackslash(dir);
  return std::string(dir) + "TELMOR.INI";
}

void Startup() {
  const std::string ini = IniFile();
  const std::string admin =
      platform::ReadProfileString(ini, "KVDpmu", "AdminPath", "C:\\TELMOR\\", KVD_PATH_MAX);
  std::memset(g_settings.admin_path, 0, sizeof g_settings.admin_path);
  // One byte stays free for the backslash added below.
  std::memcpy(g_settings.admin_path, admin.data(), std::min<std::size_t>(admin.size(), KVD_PATH_MAX - 2));
  g_settings.backup_files = platform::ReadProfileInt(ini, "KVDpmu", "BackupFiles", 0);
  if (g_settings.admin_path[0] != '\0') AppendBackslash(g_settings.admin_path);
  // The original start-up also asked for more file handles; descriptors need no such request here.
}

}  // namespace kvd::frame

using namespace kvd::frame;

_SELECT_SD* Select(const char* lpProjekt, const char* lpVersion, char cWer) {
  _SELECT_SD* s = NewSelection(cWer);
  if (s == nullptr) return nullptr;
  std::memcpy(s->szProjektPath, g_settings.admin_path, KVD_PATH_MAX - 1);
  if (lpProjekt == nullptr) {
    MakeAdminDirectory();
    return s;
  }
  // The catalogue lies in the admin directory and is read through this very selection.
  char name[KVD_PATH_MAX];
  std::snprintf(name, sizeof name, "%s", lpProjekt);
  if (ProjektGetPath(s, name, s->szProjektPath) != KVD_S_OK) {
    EndSelection(s);
    return nullptr;
  }
  if (lpVersion != nullptr) {
    std::snprintf(name, sizeof name, "%s", lpVersion);
    if (VersionGetPath(s, name, s->szVersionPath) != KVD_S_OK) {
      EndSelection(s);
      return nullptr;
    }
  }
  return s;
}

_SELECT_SD* SelectDir(const char* lpPath, char cWer) {
  if (lpPath == nullptr || *lpPath == '\0') return nullptr;
  _SELECT_SD* s = NewSelection(cWer);
  if (s == nullptr) return nullptr;
  MakeAdminDirectory();
  std::snprintf(s->szProjektPath, KVD_PATH_MAX - 1, "%s", lpPath);  // room for the backslash
  AppendBackslash(s->szProjektPath);
  std::memcpy(s->szVersionPath, s->szProjektPath, KVD_PATH_MAX);
  return s;
}

void Unselect(_SELECT_SD* lpSelect) {
  if (lpSelect != nullptr) EndSelection(lpSelect);
}

char* GetAdminPath(void) { return g_settings.admin_path; }
char* GetProjektPath(_SELECT_SD* lpSelect) { return lpSelect ? lpSelect->szProjektPath : nullptr; }
char* GetVersionPath(_SELECT_SD* lpSelect) { return lpSelect ? lpSelect->szVersionPath : nullptr; }
