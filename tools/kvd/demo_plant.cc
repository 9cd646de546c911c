// kvd demo DIR/: a small plant with DIR as its admin directory, made through the library's calls
// where the library writes, and through the engine for the dictionary, which comes from outside.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "catalogue/catalogue.h"
#include "frame/kernel.h"
#include "include/kvd_catalogue.h"
#include "platform/file.h"
#include "tools/kvd/commands.h"

namespace kvd::tool {
namespace {

namespace fs = std::filesystem;

struct VersionDemo {
  const char* name;
  const char* descr;
  const char* editor;
  const char* comment;
};

struct ProjectDemo {
  const char* name;
  const char* descr;
  const char* dir;  // as the catalogue stores it: below the admin directory
  const char* comment;
  std::vector<VersionDemo> versions;
};

const ProjectDemo kProjects[] = {
    {"WATER", "Waterworks Nordhafen", "WATER",
     "Drinking water plant, two pump stations and three filter lines.\nOperator: city utilities.",
     {{"V1", "Commissioning 2019", "M. Berger", "As handed over at commissioning."},
      {"V2", "Filter line 3 extension", "M. Berger", "Adds filter line 3 with its pumps."},
      {"WORK", "Current engineering", "S. Lang", "Work in progress; not yet on the plant."}}},
    {"BOILER", "Boiler house B2", "BOILER", "Two gas boilers with a common header.",
     {{"V1", "As built", "K. Ahrens", "Drawings of 2016."}, {"V2", "Burner retrofit", "K. Ahrens", ""}}},
};

// A table written whole, as another program of the suite fills it: rows of field texts in the
// definition's order. An index is made from `tags` when it has rows.
bool WriteTable(const std::string& file, const FIELD4INFO* def, const TAG4INFO* tags,
                const std::vector<std::vector<const char*>>& rows) {
  CODE4 code;
  code4initLow(&code, nullptr, 0, 0, 0);
  code.safety = 0;
  code.errOpen = 0;
  DATA4St* d = d4create(&code, file.c_str(), def, tags);
  bool ok = d != nullptr;
  for (const auto& row : rows) {
    if (!ok) break;
    d4appendStart(d, 0);
    d4blank(d);
    for (std::size_t i = 0; i < row.size(); ++i) f4assign(d4fieldJ(d, static_cast<short>(i + 1)), row[i]);
    ok = d4append(d) == 0;
  }
  d4close(d);
  code4initUndo(&code);
  if (!ok) std::fprintf(stderr, "kvd: cannot write %s\n", file.c_str());
  return ok;
}

bool WriteDictionary(const std::string& project_dir) {
  using namespace catalogue;
  return WriteTable(frame::JoinPath(project_dir.c_str(), kTablesDbName, ".DBF"), kTablesDbDef, nullptr,
                    {{"Measuring points", "_MP.DBF", "M"},
                     {"Process objects", "_PO.DBF", "P"},
                     {"System objects", "_SO.DBF", "S"},
                     {"Figures", "_DIRFIG.DBF", "F"},
                     {"Access sets", "_DIRAS.DBF", "A"}}) &&
         WriteTable(frame::JoinPath(project_dir.c_str(), kColumnsDbName, ".DBF"), kColumnsDbDef, kColumnsNdxTag,
                    {{"_MP.DBF", "Point id", "POINTID", "22"},
                     {"_MP.DBF", "Description", "DESCRIPT", "30"},
                     {"_MP.DBF", "Unit", "UNIT", "32"},
                     {"_DIRFIG.DBF", "Figure", "FIGURE", "6"},
                     {"_DIRFIG.DBF", "Description", "DESCRIPT", "30"},
                     {"_DIRFIG.DBF", "Element table", "FILENAME", "12"},
                     {"_DIRAS.DBF", "Access set", "NAME", "10"}});
}

bool WriteTextLists(const std::string& version_dir) {
  using namespace catalogue;
  return WriteTable(frame::JoinPath(version_dir.c_str(), kUnitDbName, ".DBF"), kUnitDbDef, nullptr,
                    {{"DEGC", "\xB0" "C"}, {"BAR", "bar"}, {"M3H", "m\xB3/h"}, {"PCT", "%"}, {"RPM", "rpm"}}) &&
         WriteTable(frame::JoinPath(version_dir.c_str(), kSignalDbName, ".DBF"), kSignalDbDef, nullptr,
                    {{"BINARY"}, {"ANALOG"}, {"COUNTER"}, {"COMMAND"}}) &&
         WriteTable(frame::JoinPath(version_dir.c_str(), kStatusDbName, ".DBF"), kStatusDbDef, nullptr,
                    {{"ON", "on"}, {"OFF", "off"}, {"FAULT", "fault"}, {"MAINT", "maintenance"}});
}

bool Check(long status, const std::string& what) {
  if (status == KVD_S_OK) return true;
  std::fprintf(stderr, "kvd: demo: %s: status %ld (%s)\n", what.c_str(), status,
               frame::StatusText(static_cast<int>(status)));
  return false;
}

}  // namespace

int DemoPlant(const std::string& dir_arg) {
  std::error_code ec;
  fs::path dir = fs::absolute(dir_arg, ec);
  if (ec || (!fs::is_directory(dir) && !fs::create_directories(dir, ec))) {
    std::fprintf(stderr, "kvd: cannot make the directory %s\n", dir_arg.c_str());
    return 1;
  }
  if (platform::FileExists((dir / "_PROJECT.DBF").string())) {
    std::fprintf(stderr, "kvd: %s holds a catalogue already; the demo wants a directory of its own\n",
                 dir.string().c_str());
    return 1;
  }
  std::string admin = dir.string();
  if (admin.back() != '/') admin += '/';
  // The plant's own configuration, so that kvd and any program can be pointed at it.
  std::ofstream(dir / "TELMOR.INI") << "[KVDpmu]\nAdminPath=" << admin << "\nBackupFiles=0\n";
  if (UseAdminDirectory(admin) != 0) return 1;

  _SELECT_SD* sel = Select(nullptr, nullptr, 'K');
  int projects = 0, versions = 0;
  bool ok = sel != nullptr;
  for (const ProjectDemo& p : kProjects) {
    if (!ok) break;
    _PROJECT_ALL_REC r{};
    std::snprintf(r.szPrjName, sizeof r.szPrjName, "%s", p.name);
    std::snprintf(r.szPrjBez, sizeof r.szPrjBez, "%s", p.descr);
    std::snprintf(r.szPrjPath, sizeof r.szPrjPath, "%s", p.dir);
    std::memset(r.achPwd, ' ', sizeof r.achPwd);
    std::string comment = p.comment;
    r.lpKomment = comment.data();
    ok = Check(ProjektInsert(sel, &r), std::string("project ") + p.name) && WriteDictionary(admin + p.dir + "/") &&
         WriteDemoJobs(admin + p.dir + "/") == 0;
    _SELECT_SD* project = ok ? Select(p.name, nullptr, 'K') : nullptr;
    for (const VersionDemo& v : p.versions) {
      if (!ok || project == nullptr) break;
      _VERSION_ALL_REC vr{};
      std::snprintf(vr.szVerName, sizeof vr.szVerName, "%s", v.name);
      std::snprintf(vr.szVerBez, sizeof vr.szVerBez, "%s", v.descr);
      std::snprintf(vr.szBearbeiter, sizeof vr.szBearbeiter, "%s", v.editor);
      std::string vcomment = v.comment;
      vr.lpKomment = vcomment.data();
      const std::string vdir = admin + p.dir + "/" + v.name + "/";
      ok = Check(VersionInsert(project, &vr), std::string("version ") + p.name + " " + v.name) &&
           WriteDemoVersion(vdir, false, true, std::strcmp(p.name, "BOILER") == 0) == 0 && WriteTextLists(vdir);
      versions += ok;
    }
    Unselect(project);
    projects += ok;
  }
  Unselect(sel);
  if (!ok) return 1;
  std::printf("demo plant written to %s: %d projects with jobs and attributes, %d versions, each version with "
              "_DIRFIG.DBF, _DIRAS.DBF, its text lists, measuring points, process, system and reference objects, "
              "sections, users and profiles\n",
              admin.c_str(), projects, versions);
  std::printf("look at it with:  kvd --admin %s projects   (or KVD_TELMOR_INI=%sTELMOR.INI kvd projects)\n",
              admin.c_str(), admin.c_str());
  return 0;
}

}  // namespace kvd::tool
