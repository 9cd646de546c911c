// Shared by the catalogue tests: a plant with its admin directory, projects and versions made
// through the exported calls, and the trees behind them read back as a whole.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "include/kvd_catalogue.h"
#include "include/kvd_directory.h"
#include "tests/frame/frame_test_util.h"

namespace kvd::test {

namespace fs = std::filesystem;

// A selection given back when it goes.
class Selection {
 public:
  explicit Selection(_SELECT_SD* s) : s_(s) {}
  ~Selection() { Unselect(s_); }
  Selection(const Selection&) = delete;
  Selection& operator=(const Selection&) = delete;
  _SELECT_SD* get() const { return s_; }
  _SELECT_SD* operator->() const { return s_; }
  operator _SELECT_SD*() const { return s_; }

 private:
  _SELECT_SD* s_;
};

inline char* Text(const std::string& s) { return const_cast<char*>(s.c_str()); }

// A path of the library (backslashes allowed) as this machine writes it; no drive letters here.
inline std::string Host(std::string p) {
  for (char& c : p)
    if (c == '\\') c = '/';
  return p;
}

// Every file below `dir` by its path relative to `dir`, with its content (small files) or its size
// and a hash of it (larger ones, so that a failed comparison stays readable); directories end in
// '/'.
using Tree = std::map<std::string, std::string>;
inline Tree ReadTree(const std::string& dir) {
  Tree out;
  if (!fs::is_directory(dir)) return out;
  for (const auto& e : fs::recursive_directory_iterator(dir)) {
    const std::string rel = fs::relative(e.path(), dir).string();
    if (e.is_directory()) {
      out[rel + "/"] = "";
    } else if (!e.is_regular_file()) {
      out[rel] = "<special>";  // a pipe is never opened: it would wait for a writer
    } else {
      std::ifstream in(e.path(), std::ios::binary);
      std::ostringstream text;
      text << in.rdbuf();
      const std::string content = text.str();
      out[rel] = content.size() <= 64 ? content
                                      : std::to_string(content.size()) + " bytes, hash " +
                                            std::to_string(std::hash<std::string>{}(content));
    }
  }
  return out;
}

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// The plant of a test: its own admin directory (the library reads it through KVD_TELMOR_INI), and
// helpers that go through the exported calls and expect them to succeed.
class CataloguePlant : public Plant {
 public:
  CataloguePlant() : Plant(0) {}

  _SELECT_SD* sel() {
    if (admin_ == nullptr) admin_ = std::make_unique<Selection>(Select(nullptr, nullptr, 'T'));
    return admin_->get();
  }

  // A project with a directory given as the catalogue stores it (relative: below the admin
  // directory).
  long AddProject(const std::string& name, const std::string& pfad, const std::string& descr = "",
                  const std::string& comment = "") {
    _PROJECT_ALL_REC r{};
    std::snprintf(r.szPrjName, sizeof r.szPrjName, "%s", name.c_str());
    std::snprintf(r.szPrjBez, sizeof r.szPrjBez, "%s", descr.c_str());
    std::snprintf(r.szPrjPath, sizeof r.szPrjPath, "%s", pfad.c_str());
    std::string k = comment;
    r.lpKomment = k.data();
    return ProjektInsert(sel(), &r);
  }

  // A version of `project`, with two tables of the families DirAs and Dirfig, `figures` rows.
  long AddVersion(const std::string& project, const std::string& name, const std::string& descr = "",
                  int figures = 3, const std::string& comment = "") {
    Selection p(Select(project.c_str(), nullptr, 'T'));
    if (p.get() == nullptr) return -1;
    _VERSION_ALL_REC r{};
    std::snprintf(r.szVerName, sizeof r.szVerName, "%s", name.c_str());
    std::snprintf(r.szVerBez, sizeof r.szVerBez, "%s", descr.c_str());
    std::snprintf(r.szBearbeiter, sizeof r.szBearbeiter, "tester");
    std::string k = comment;
    r.lpKomment = k.data();
    if (long st = VersionInsert(p, &r); st != 0) return st;
    Selection v(Select(project.c_str(), name.c_str(), 'T'));
    for (int i = 0; i < figures; ++i) {
      _DIRFIG_REC f{};
      std::snprintf(f.szName, sizeof f.szName, "F%d", i % 100000);
      std::snprintf(f.szDescr, sizeof f.szDescr, "figure %d of %s", i, name.c_str());
      f.lLrx = 10 * i;
      if (long st = DirfigU(v, &f); st != 0) return st;
    }
    _DIRAS_REC a{};
    std::snprintf(a.szName, sizeof a.szName, "OPERATOR");
    if (long st = DirAsI(v, &a); st != 0) return st;
    return 0;
  }

  // The projects as a list cursor gives them: "NAME=description" in order.
  std::vector<std::string> Projects() {
    std::vector<std::string> out;
    _CURSOR_SD* c = nullptr;
    if (ProjektOpenListCursor(sel(), nullptr, &c) != 0) return {"<cannot list>"};
    _PROJECT_LIST_REC r;
    while (PFLC(sel(), c, &r) == 0) out.push_back(std::string(r.szPrjName) + "=" + r.szPrjBez);
    ProjektCloseListCursor(sel(), c);
    return out;
  }

  std::vector<std::string> Versions(const std::string& project) {
    Selection p(Select(project.c_str(), nullptr, 'T'));
    if (p.get() == nullptr) return {"<no project>"};
    std::vector<std::string> out;
    _CURSOR_SD* c = nullptr;
    if (VersionOpenListCursor(p, nullptr, &c) != 0) return {"<cannot list>"};
    _VERSION_LIST_REC r;
    while (VFLC(p, c, &r) == 0) out.push_back(std::string(r.szVerName) + "=" + r.szVerBez);
    VersionCloseListCursor(p, c);
    return out;
  }

  // ProjektRead of a project; its directory in szPrjPath, "" when the read fails.
  _PROJECT_ALL_REC Read(const std::string& name, long* status = nullptr, std::string* comment = nullptr) {
    _PROJECT_ALL_REC r{};
    std::snprintf(r.szPrjName, sizeof r.szPrjName, "%s", name.c_str());
    comment_.assign(KVD_KOMMENT_MAX + 1, '\0');
    r.lpKomment = comment_.data();
    const long st = ProjektRead(sel(), &r);
    if (status != nullptr) *status = st;
    if (comment != nullptr) *comment = comment_.c_str();
    return r;
  }

  // The directory of a project as the library finds it, with a trailing separator.
  std::string ProjectDir(const std::string& name) {
    char path[KVD_PATH_MAX] = {};
    if (ProjektGetPath(sel(), Text(name), path) != 0) return "";
    return Host(path);
  }

 private:
  std::unique_ptr<Selection> admin_;
  std::string comment_;
};

}  // namespace kvd::test
