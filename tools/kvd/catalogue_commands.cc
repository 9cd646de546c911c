// kvd projects, versions, project ..., version ...: the catalogue of a plant from a shell. Each
// command is a thin layer over the library's exported calls; a status other than 0 is shown with
// its text and ends the command with exit code 1.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "catalogue/catalogue.h"
#include "frame/kernel.h"
#include "frame/session.h"
#include "include/kvd_catalogue.h"
#include "platform/path.h"
#include "tools/kvd/commands.h"
#include "tools/kvd/text_out.h"

namespace kvd::tool {
namespace {

namespace fs = std::filesystem;

char* C(std::string& s) { return s.data(); }

std::string Out(const char* cp1252) { return Cp1252ToUtf8(cp1252); }

// Text a person typed, for the tables (Windows-1252); false when it has a character they lack.
bool In(const std::string& utf8, std::string* bytes, const char* what) {
  if (Utf8ToCp1252(utf8, bytes)) return true;
  std::fprintf(stderr, "kvd: the %s holds a character Windows-1252 lacks\n", what);
  return false;
}

int Failed(const std::string& what, long status) {
  const char* text = frame::StatusText(static_cast<int>(status));
  std::fprintf(stderr, "kvd: %s: status %ld (%s)\n", what.c_str(), status,
               *text != '\0' ? text : "the table's fields differ from the definition");
  return 1;
}

// The options of a command: --name VALUE or --name=VALUE; the rest are its words.
struct Options {
  std::vector<std::string> words;
  std::vector<std::pair<std::string, std::string>> values;
  bool bad = false;

  Options(const Args& args, std::initializer_list<const char*> known) {
    for (std::size_t i = 0; i < args.size(); ++i) {
      const std::string& a = args[i];
      if (a.rfind("--", 0) != 0) {
        words.push_back(a);
        continue;
      }
      const std::size_t eq = a.find('=');
      const std::string name = a.substr(2, eq == std::string::npos ? std::string::npos : eq - 2);
      bool ok = false;
      for (const char* k : known) ok = ok || name == k;
      if (!ok) {
        std::fprintf(stderr, "kvd: unknown option --%s\n", name.c_str());
        bad = true;
      } else if (eq != std::string::npos) {
        values.emplace_back(name, a.substr(eq + 1));
      } else if (i + 1 < args.size()) {
        values.emplace_back(name, args[++i]);
      } else {
        std::fprintf(stderr, "kvd: --%s wants a value\n", name.c_str());
        bad = true;
      }
    }
  }
  std::string Get(const char* name) const {
    for (const auto& [n, v] : values)
      if (n == name) return v;
    return "";
  }
};

// A selection given back when it goes.
struct Sel {
  _SELECT_SD* s;
  explicit Sel(_SELECT_SD* sel) : s(sel) {}
  ~Sel() { Unselect(s); }
  Sel(const Sel&) = delete;
  Sel& operator=(const Sel&) = delete;
};

std::string AdminDirectory() { return GetAdminPath(); }

// A selection of a project, or a message naming the catalogue that lacks it.
bool SelectProject(const std::string& name, _SELECT_SD** out) {
  *out = Select(name.c_str(), nullptr, 'K');
  if (*out != nullptr) return true;
  std::fprintf(stderr, "kvd: no project '%s' in the catalogue of %s\n", name.c_str(), AdminDirectory().c_str());
  return false;
}

// ---------------------------------------------------------------------------------------------
// Progress of long copies and deletes: on standard error, when that is a terminal, the bytes of
// the tree that grows or shrinks, measured a few times a second beside the library's call.

std::uint64_t TreeBytes(const std::string& dir) {
  std::uint64_t sum = 0;
  std::error_code ec;
  for (fs::recursive_directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code size_ec;
    if (it->is_regular_file(size_ec)) {
      const std::uint64_t n = it->file_size(size_ec);
      if (!size_ec) sum += n;
    }
  }
  return sum;
}

class Progress {
 public:
  // `done` tells how many of `total` bytes are done; shown as "<what>  12.3 of 100.0 MB (12%)".
  Progress(std::string what, std::uint64_t total, std::function<std::uint64_t()> done)
      : what_(std::move(what)), total_(total), done_(std::move(done)) {
    if (::isatty(STDERR_FILENO) != 1 || total_ == 0) return;
    thread_ = std::thread([this] { Run(); });
  }
  ~Progress() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    if (shown_) std::fprintf(stderr, "\r%*s\r", 60, "");
  }

 private:
  void Run() {
    // Work shorter than this shows nothing (KVD_PROGRESS_AFTER_MS, default 300).
    const char* env = std::getenv("KVD_PROGRESS_AFTER_MS");
    const auto after = std::chrono::milliseconds(env != nullptr ? std::atol(env) : 300);
    const auto start = std::chrono::steady_clock::now();
    while (!stop_) {
      if (std::chrono::steady_clock::now() - start >= after) {
        const std::uint64_t done = std::min(done_(), total_);
        std::fprintf(stderr, "\r%s  %.1f of %.1f MB (%d%%)   ", what_.c_str(), done / 1e6, total_ / 1e6,
                     static_cast<int>(100 * done / total_));
        std::fflush(stderr);
        shown_ = true;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  }

  std::string what_;
  std::uint64_t total_;
  std::function<std::uint64_t()> done_;
  std::atomic<bool> stop_{false};
  std::atomic<bool> shown_{false};
  std::thread thread_;
};

// Whether a tree is worth measuring: on a terminal, and never a directory the library refuses
// anyway (measuring a root would walk the whole machine).
bool Measured(const std::string& tree) {
  return ::isatty(STDERR_FILENO) == 1 && !tree.empty() && !catalogue::IsProtectedDirectory(tree);
}

// A copy into `target` of the tree `source`, shown while `work` runs.
long WithCopyProgress(const char* what, const std::string& source, const std::string& target,
                      const std::function<long()>& work) {
  const std::string from = platform::HostPath(source), to = platform::HostPath(target);
  Progress p(what, Measured(source) ? TreeBytes(from) : 0, [to] { return TreeBytes(to); });
  return work();
}

long WithDeleteProgress(const char* what, const std::string& tree, const std::function<long()>& work) {
  const std::string host = platform::HostPath(tree);
  const std::uint64_t total = Measured(tree) ? TreeBytes(host) : 0;
  Progress p(what, total, [host, total] { return total - std::min(total, TreeBytes(host)); });
  return work();
}

// ---------------------------------------------------------------------------------------------
// Reading

struct ProjectInfo {
  _PROJECT_ALL_REC rec{};
  std::string comment;
};

long ReadProject(_SELECT_SD* admin, const std::string& name, ProjectInfo* p) {
  std::vector<char> komment(KVD_KOMMENT_MAX + 1, '\0');
  std::snprintf(p->rec.szPrjName, sizeof p->rec.szPrjName, "%s", name.c_str());
  p->rec.lpKomment = komment.data();
  const long st = ProjektRead(admin, &p->rec);
  p->comment = komment.data();
  p->rec.lpKomment = nullptr;
  return st;
}

// The directory the library finds a project in, with its separator.
std::string ProjectPath(_SELECT_SD* admin, const std::string& name) {
  char path[KVD_PATH_MAX] = {};
  std::string n = name;
  return ProjektGetPath(admin, C(n), path) == KVD_S_OK ? std::string(path) : std::string();
}

// A directory of the library as it lies on this machine, for people to read.
std::string Shown(const std::string& path) {
  if (path.empty()) return path;
  std::string host = platform::HostPath(path);
  while (host.size() > 1 && host.back() == '/') host.pop_back();
  return host;
}

void PrintComment(const std::string& comment) {
  if (comment.empty()) {
    std::printf("comment      (none)\n");
    return;
  }
  std::printf("comment      ");
  std::string text = Out(comment.c_str());
  for (std::size_t at = 0, nl; at < text.size(); at = nl + 1) {
    nl = text.find('\n', at);
    if (nl == std::string::npos) nl = text.size();
    std::printf("%s%s\n", at == 0 ? "" : "             ", text.substr(at, nl - at).c_str());
  }
}

int ListProjects() {
  Sel admin(Select(nullptr, nullptr, 'K'));
  _CURSOR_SD* c = nullptr;
  if (long st = ProjektOpenListCursor(admin.s, nullptr, &c); st != KVD_S_OK)
    return Failed("the catalogue in " + AdminDirectory(), st);
  std::vector<_PROJECT_LIST_REC> rows;
  _PROJECT_LIST_REC r;
  while (PFLC(admin.s, c, &r) == KVD_S_OK) rows.push_back(r);
  ProjektCloseListCursor(admin.s, c);
  if (rows.empty()) {
    std::printf("no projects in the catalogue of %s\n", AdminDirectory().c_str());
    return 0;
  }
  std::printf("%-8s  %-40s  %s\n", "PROJECT", "DESCRIPTION", "DIRECTORY");
  for (const _PROJECT_LIST_REC& row : rows) {
    std::printf("%-8s  %-40s  %s\n", Out(row.szPrjName).c_str(), Out(row.szPrjBez).c_str(),
                Shown(ProjectPath(admin.s, row.szPrjName)).c_str());
  }
  return 0;
}

int ListVersions(const std::string& project) {
  _SELECT_SD* p = nullptr;
  if (!SelectProject(project, &p)) return 1;
  Sel sel(p);
  _CURSOR_SD* c = nullptr;
  if (long st = VersionOpenListCursor(p, nullptr, &c); st != KVD_S_OK) return Failed("the versions of " + project, st);
  std::vector<_VERSION_LIST_REC> rows;
  _VERSION_LIST_REC r;
  while (VFLC(p, c, &r) == KVD_S_OK) rows.push_back(r);
  VersionCloseListCursor(p, c);
  if (rows.empty()) {
    std::printf("project %s has no versions\n", project.c_str());
    return 0;
  }
  std::printf("%-8s  %-40s  %-20s  %s\n", "VERSION", "DESCRIPTION", "EDITOR", "WRITTEN");
  for (const _VERSION_LIST_REC& row : rows) {
    _VERSION_ALL_REC v{};
    std::memcpy(v.szVerName, row.szVerName, sizeof v.szVerName);
    VersionRead(p, &v);
    std::printf("%-8s  %-40s  %-20s  %s\n", Out(row.szVerName).c_str(), Out(row.szVerBez).c_str(),
                Out(v.szBearbeiter).c_str(), v.szGenDat);
  }
  return 0;
}

// ---------------------------------------------------------------------------------------------
// kvd project ...

const char kProjectUsage[] =
    "usage: kvd project new NAME DIR [--descr TEXT] [--comment TEXT]\n"
    "       kvd project show NAME\n"
    "       kvd project copy NAME NEWNAME NEWDIR [--password TEXT]\n"
    "       kvd project rename NAME NEWNAME\n"
    "       kvd project move NAME NEWDIR\n"
    "       kvd project delete NAME\n"
    "DIR: absolute, or relative to the admin directory.\n";

int ProjectShow(_SELECT_SD* admin, const std::string& name) {
  ProjectInfo p;
  if (long st = ReadProject(admin, name, &p); st != KVD_S_OK) return Failed("project " + name, st);
  std::string n = name;
  const long dbver = ProjektCheckDBVersion(admin, C(n));
  std::printf("project      %s\n", Out(p.rec.szPrjName).c_str());
  std::printf("description  %s\n", Out(p.rec.szPrjBez).c_str());
  std::printf("directory    %s\n", Shown(ProjectPath(admin, name)).c_str());
  std::printf("written      %s\n", p.rec.szGenDat);
  std::printf("data version %s\n", dbver == KVD_S_OK ? "1 (current)" : "not current");
  Sel project(Select(name.c_str(), nullptr, 'K'));
  int versions = 0;
  _CURSOR_SD* c = nullptr;
  if (project.s != nullptr && VersionOpenListCursor(project.s, nullptr, &c) == KVD_S_OK) {
    _VERSION_LIST_REC r;
    while (VFLC(project.s, c, &r) == KVD_S_OK) ++versions;
    VersionCloseListCursor(project.s, c);
  }
  std::printf("versions     %d\n", versions);
  PrintComment(p.comment);
  return 0;
}

int CmdProjectWith(const Options& o) {
  const std::vector<std::string>& w = o.words;
  if (o.bad || w.empty()) return UsageError(kProjectUsage);
  const std::string& op = w[0];
  Sel admin(Select(nullptr, nullptr, 'K'));
  auto want = [&](std::size_t n) { return w.size() == n; };

  if (op == "show" && want(2)) return ProjectShow(admin.s, w[1]);
  if (op == "new" && want(3)) {
    _PROJECT_ALL_REC r{};
    std::string descr, comment;
    if (!In(o.Get("descr"), &descr, "description") || !In(o.Get("comment"), &comment, "comment")) return 2;
    if (w[1].size() >= sizeof r.szPrjName) return Failed("project new " + w[1], KVD_S_BAD_PROJECT);
    std::snprintf(r.szPrjName, sizeof r.szPrjName, "%s", w[1].c_str());
    std::snprintf(r.szPrjBez, sizeof r.szPrjBez, "%s", descr.c_str());
    if (w[2].size() >= sizeof r.szPrjPath) {
      std::fprintf(stderr, "kvd: the directory has more than %zu characters\n", sizeof r.szPrjPath - 1);
      return 1;
    }
    std::snprintf(r.szPrjPath, sizeof r.szPrjPath, "%s", w[2].c_str());
    std::memset(r.achPwd, ' ', sizeof r.achPwd);
    r.lpKomment = C(comment);
    if (long st = ProjektInsert(admin.s, &r); st != KVD_S_OK) return Failed("project new " + w[1], st);
    std::printf("project %s made in %s\n", w[1].c_str(), Shown(ProjectPath(admin.s, w[1])).c_str());
    return 0;
  }
  if (op == "copy" && want(4)) {
    std::string from = w[1], to = w[2], dir = w[3], pwd = o.Get("password");
    const std::string source = ProjectPath(admin.s, from);
    const std::string target = catalogue::ProjectDirectory(dir);
    const long st = WithCopyProgress("copying", source, target, [&] {
      return ProjektCopy(admin.s, C(from), C(to), C(dir), pwd.empty() ? nullptr : C(pwd), nullptr);
    });
    if (st != KVD_S_OK) return Failed("project copy " + from + " to " + to, st);
    std::printf("project %s copied to %s in %s\n", from.c_str(), to.c_str(), Shown(ProjectPath(admin.s, to)).c_str());
    return 0;
  }
  if (op == "rename" && want(3)) {
    std::string from = w[1], to = w[2];
    if (long st = ProjektRename(admin.s, C(from), C(to), nullptr); st != KVD_S_OK)
      return Failed("project rename " + from + " to " + to, st);
    std::printf("project %s is now %s (its directory stays %s)\n", from.c_str(), to.c_str(),
                Shown(ProjectPath(admin.s, to)).c_str());
    return 0;
  }
  if (op == "move" && want(3)) {
    std::string name = w[1], dir = w[2];
    const std::string source = ProjectPath(admin.s, name);
    const long st = WithCopyProgress("moving", source, catalogue::ProjectDirectory(dir),
                                     [&] { return ProjektMove(admin.s, C(name), C(dir), nullptr); });
    if (st != KVD_S_OK) {
      // A failed copy answers with the copy's own result; the project stays where it was.
      if (st == KVD_S_NOT_FOUND) {
        std::fprintf(stderr, "kvd: project move %s: the copy to %s failed; the project stays in %s\n",
                     name.c_str(), dir.c_str(), Shown(source).c_str());
        return 1;
      }
      return Failed("project move " + name, st);
    }
    std::printf("project %s moved to %s\n", name.c_str(), Shown(ProjectPath(admin.s, name)).c_str());
    return 0;
  }
  if (op == "delete" && want(2)) {
    std::string name = w[1];
    const std::string dir = ProjectPath(admin.s, name);
    const long st = WithDeleteProgress("deleting", dir, [&] { return ProjektDelete(admin.s, C(name)); });
    if (st != KVD_S_OK) return Failed("project delete " + name, st);
    std::printf("project %s deleted; its directory %s stays%s\n", name.c_str(), Shown(dir).c_str(),
                TreeBytes(platform::HostPath(dir)) != 0 ? " with files that could not be removed" : ", empty of files");
    return 0;
  }
  return UsageError(kProjectUsage);
}

// ---------------------------------------------------------------------------------------------
// kvd version ...

const char kVersionUsage[] =
    "usage: kvd version new PROJECT NAME [--descr TEXT] [--editor NAME] [--comment TEXT]\n"
    "       kvd version show PROJECT NAME\n"
    "       kvd version copy PROJECT NAME NEWNAME\n"
    "       kvd version rename PROJECT NAME NEWNAME\n"
    "       kvd version lock PROJECT NAME\n"
    "       kvd version delete PROJECT NAME\n";

int VersionShow(_SELECT_SD* p, const std::string& project, const std::string& name) {
  _VERSION_ALL_REC v{};
  std::vector<char> komment(KVD_KOMMENT_MAX + 1, '\0');
  std::snprintf(v.szVerName, sizeof v.szVerName, "%s", name.c_str());
  v.lpKomment = komment.data();
  if (long st = VersionRead(p, &v); st != KVD_S_OK) return Failed("version " + project + " " + name, st);
  std::printf("version      %s\n", Out(v.szVerName).c_str());
  std::printf("project      %s\n", project.c_str());
  std::printf("description  %s\n", Out(v.szVerBez).c_str());
  std::printf("directory    %s\n", Shown(std::string(p->szProjektPath) + v.szVerName).c_str());
  std::printf("editor       %s\n", Out(v.szBearbeiter).c_str());
  std::printf("written      %s\n", v.szGenDat);
  PrintComment(komment.data());
  return 0;
}

int CmdVersionWith(const Options& o) {
  const std::vector<std::string>& w = o.words;
  if (o.bad || w.size() < 3) return UsageError(kVersionUsage);
  const std::string& op = w[0];
  _SELECT_SD* sel = nullptr;
  if (!SelectProject(w[1], &sel)) return 1;
  Sel p(sel);
  std::string name = w[2];
  const std::string what = "version " + op + " " + w[1] + " " + name;
  const std::string vdir = std::string(sel->szProjektPath) + name + "\\";

  if (op == "show" && w.size() == 3) return VersionShow(sel, w[1], name);
  if (op == "new" && w.size() == 3) {
    _VERSION_ALL_REC v{};
    std::string descr, editor, comment;
    if (!In(o.Get("descr"), &descr, "description") || !In(o.Get("editor"), &editor, "editor") ||
        !In(o.Get("comment"), &comment, "comment"))
      return 2;
    if (name.size() >= sizeof v.szVerName) return Failed(what, KVD_S_BAD_VERSION);
    std::snprintf(v.szVerName, sizeof v.szVerName, "%s", name.c_str());
    std::snprintf(v.szVerBez, sizeof v.szVerBez, "%s", descr.c_str());
    std::snprintf(v.szBearbeiter, sizeof v.szBearbeiter, "%s", editor.c_str());
    v.lpKomment = C(comment);
    if (long st = VersionInsert(sel, &v); st != KVD_S_OK) return Failed(what, st);
    std::printf("version %s of %s made in %s\n", name.c_str(), w[1].c_str(), Shown(vdir).c_str());
    return 0;
  }
  if (op == "copy" && w.size() == 4) {
    std::string to = w[3];
    const long st = WithCopyProgress("copying", vdir, std::string(sel->szProjektPath) + to,
                                     [&] { return VersionCopy(sel, C(name), C(to), nullptr); });
    if (st != KVD_S_OK) return Failed(what + " to " + to, st);
    std::printf("version %s of %s copied to %s\n", name.c_str(), w[1].c_str(), to.c_str());
    return 0;
  }
  if (op == "rename" && w.size() == 4) {
    std::string to = w[3];
    if (long st = VersionRename(sel, C(name), C(to), nullptr); st != KVD_S_OK) return Failed(what + " to " + to, st);
    std::printf("version %s of %s is now %s, in %s\n", name.c_str(), w[1].c_str(), to.c_str(),
                Shown(std::string(sel->szProjektPath) + to).c_str());
    return 0;
  }
  if (op == "lock" && w.size() == 3) {
    if (long st = VersionLock(sel, C(name)); st != KVD_S_OK) return Failed(what, st);
    std::printf("version %s of %s: the catalogue keeps no working lock; nothing changed\n", name.c_str(),
                w[1].c_str());
    return 0;
  }
  if (op == "delete" && w.size() == 3) {
    const long st = WithDeleteProgress("deleting", vdir, [&] { return VersionDelete(sel, C(name)); });
    if (st != KVD_S_OK) return Failed(what, st);
    const bool stays = fs::exists(platform::HostPath(vdir));
    std::printf("version %s of %s deleted%s\n", name.c_str(), w[1].c_str(),
                stays ? "; its directory stays with what could not be removed" : "");
    return 0;
  }
  return UsageError(kVersionUsage);
}

}  // namespace

int UseAdminDirectory(const std::string& dir) {
  std::error_code ec;
  std::string abs = fs::absolute(dir, ec).string();
  if (ec || abs.empty()) {
    std::fprintf(stderr, "kvd: cannot use %s as the admin directory\n", dir.c_str());
    return 1;
  }
  if (abs.back() != '/') abs += '/';
  // The library reads its configuration from the file KVD_TELMOR_INI names, when it loads and when
  // it is told to read it again: a file of our own for the time it takes to read it.
  const int backup = frame::TheSettings().backup_files;
  char ini[] = "/tmp/kvd-telmor-XXXXXX";
  const int fd = ::mkstemp(ini);
  if (fd < 0) {
    std::fprintf(stderr, "kvd: cannot write a configuration for %s\n", abs.c_str());
    return 1;
  }
  ::close(fd);
  std::ofstream(ini) << "[KVDpmu]\nAdminPath=" << abs << "\nBackupFiles=" << backup << "\n";
  ::setenv("KVD_TELMOR_INI", ini, 1);
  frame::Startup();
  ::unsetenv("KVD_TELMOR_INI");
  ::unlink(ini);
  return 0;
}

int CmdProjects(const Args& args) {
  if (!args.empty()) return UsageError("usage: kvd projects\n");
  return ListProjects();
}

int CmdVersions(const Args& args) {
  if (args.size() != 1) return UsageError("usage: kvd versions PROJECT\n");
  return ListVersions(args[0]);
}

int CmdProject(const Args& args) { return CmdProjectWith(Options(args, {"descr", "comment", "password"})); }
int CmdVersion(const Args& args) { return CmdVersionWith(Options(args, {"descr", "editor", "comment"})); }

}  // namespace kvd::tool
