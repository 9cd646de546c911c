// Where a project and a version lie: the two lookups a selection makes.
#include "frame/lookup.h"

#include <cstring>
#include <string>
#include <string_view>

#include "frame/kernel.h"
#include "frame/session.h"
#include "include/kvd_frame.h"
#include "lib/foundation/kvtext.h"

namespace kvd::frame {

const char kProjektDbName[] = "_PROJECT";

const FIELD4INFO kProjektDbDef[] = {
    {"NAME", 'C', 8, 0, 0},    {"BEZEICH", 'C', 40, 0, 0}, {"PFAD", 'C', 54, 0, 0}, {"ARCDAT", 'C', 8, 0, 0},
    {"GENDAT", 'C', 8, 0, 0},  {"WORDAT", 'C', 8, 0, 0},   {"DBVER", 'C', 5, 0, 0}, {"PWD", 'C', 10, 0, 0},
    {nullptr, 0, 0, 0, 0},
};

const TAG4INFO kProjektNdxTag[] = {
    {"PROJEKTE", "NAME", ".NOT. DELETED()", e4unique, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};

}  // namespace kvd::frame

using namespace kvd::frame;

long ProjektGetPath(_SELECT_SD* lpSelect, char* lpProjekt, char* lpProjektPath) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  if (lpProjekt == nullptr || *lpProjekt == '\0') return KVD_S_BAD_PROJECT;
  DATA4St* db = OpenTable(lpSelect, lpSelect->szProjektPath, kProjektDbName, kProjektDbDef, 1);
  if (db == nullptr) return KVD_S_OPEN_TABLE;
  if (OpenIndex(lpSelect, lpSelect->szProjektPath, kProjektDbName, db, kProjektNdxTag) == nullptr) {
    d4close(db);
    return KVD_S_OPEN_INDEX;
  }
  // The key is the name padded to the field; a longer name is no name of the catalogue.
  char key[9];
  if (std::strlen(lpProjekt) > 8) {
    d4close(db);
    return KVD_S_NOT_FOUND;
  }
  std::strcpy(key, lpProjekt);
  KvFillBlank(key, 8);
  if (d4seek(db, key) != 0) {
    d4close(db);
    return KVD_S_NOT_FOUND;
  }
  char path[KVD_PATH_MAX + 1] = {};
  f4ncpy(d4field(db, "PFAD"), path, 55);
  CompletePath(path, GetAdminPath());
  d4close(db);
  KvLTrim(KvRTrim(path));
  path[KVD_PATH_MAX - 2] = '\0';  // room for the backslash
  AppendBackslash(path);
  std::memcpy(lpProjektPath, path, std::strlen(path) + 1);
  return KVD_S_OK;
}

long VersionGetPath(_SELECT_SD* lpSelect, char* lpVersion, char* lpVersionPath) {
  if (lpSelect == nullptr) return KVD_S_NO_SELECTION;
  if (lpVersion == nullptr) return KVD_S_BAD_PROJECT;
  char name[KVD_PATH_MAX];
  std::snprintf(name, sizeof name, "%s", lpVersion);
  KvLTrim(KvRTrim(name));
  if (name[0] == '\0') return KVD_S_BAD_PROJECT;  // an empty name is refused as the project's is
  // A version is a directory of its project: a name that would lead elsewhere (a separator, a
  // drive colon, "." or "..") names no version.
  const std::string_view n(name);
  if (n == "." || n == ".." || n.find_first_of("\\/:") != std::string_view::npos) return KVD_S_BAD_VERSION;
  std::string path = std::string(lpSelect->szProjektPath) + name;
  if (path.size() > KVD_PATH_MAX - 2) path.resize(KVD_PATH_MAX - 2);
  std::memcpy(lpVersionPath, path.c_str(), path.size() + 1);
  AppendBackslash(lpVersionPath);
  return KVD_S_OK;
}
