// kvd_catalogue_bench: ProjektCopy and VersionCopy of a version with 50 tables and 100 MB of data,
// side by side with `cp -r` of the same tree, in one run. Every copy goes to a new directory and is
// removed (untimed) before the next; the page cache is warm for all of them alike.
//   KVD_BENCH_DIR   where the plant is made (default: the system's temporary directory)
//   KVD_BENCH_RUNS  runs per operation (default 7); the median is shown
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "engine/d4all.h"
#include "frame/session.h"
#include "include/kvd_catalogue.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

constexpr int kTables = 50;
constexpr int kRecordsPerTable = 10'000;  // records of 200 bytes: 2 MB a table

char* C(const std::string& s) { return const_cast<char*>(s.c_str()); }

void Die(const std::string& what) {
  std::fprintf(stderr, "kvd_catalogue_bench: %s\n", what.c_str());
  std::exit(1);
}

// One table of the version: ten text fields of 20 characters, filled with varying text.
void WriteTable(const std::string& file, int seed) {
  CODE4 code;
  code4initLow(&code, nullptr, 0, 0, 0);
  code.safety = 0;
  std::vector<FIELD4INFO> def;
  std::vector<std::string> names;
  for (int f = 0; f < 10; ++f) names.push_back("FIELD" + std::to_string(f));
  for (const std::string& n : names) def.push_back({n.c_str(), 'C', 20, 0, 0});
  def.push_back({nullptr, 0, 0, 0, 0});
  DATA4St* d = d4create(&code, file.c_str(), def.data(), nullptr);
  if (d == nullptr) Die("cannot make " + file);
  d4lockAll(d);
  char text[24];
  for (int r = 0; r < kRecordsPerTable; ++r) {
    d4appendStart(d, 0);
    for (int f = 0; f < 10; ++f) {
      std::snprintf(text, sizeof text, "%08x-%04d-%06d", seed * 7919 + r * 31 + f, f, r);
      f4assign(d4fieldJ(d, static_cast<short>(f + 1)), text);
    }
    if (d4append(d) != 0) Die("cannot append to " + file);
  }
  d4close(d);
  code4initUndo(&code);
}

std::uint64_t TreeBytes(const fs::path& dir) {
  std::uint64_t sum = 0;
  for (const auto& e : fs::recursive_directory_iterator(dir))
    if (e.is_regular_file()) sum += e.file_size();
  return sum;
}

double Millis(const std::function<void()>& work) {
  const auto t0 = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
}

void CopyWithCp(const fs::path& from, const fs::path& to) {
  const std::string f = from.string(), t = to.string();
  char cp[] = "cp", recursive[] = "-r";
  char* argv[] = {cp, recursive, C(f), C(t), nullptr};
  pid_t pid;
  if (posix_spawnp(&pid, "cp", nullptr, nullptr, argv, environ) != 0) Die("cannot run cp");
  int status = 0;
  if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) Die("cp -r failed");
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

}  // namespace

int main() {
  const char* base_env = std::getenv("KVD_BENCH_DIR");
  const fs::path base = fs::path(base_env != nullptr ? base_env : fs::temp_directory_path().string()) /
                        ("kvd-catalogue-bench-" + std::to_string(::getpid()));
  const int runs = std::max(1, std::atoi(std::getenv("KVD_BENCH_RUNS") ? std::getenv("KVD_BENCH_RUNS") : "7"));
  const fs::path admin = base / "admin";
  fs::create_directories(admin);
  std::ofstream(base / "TELMOR.INI") << "[KVDpmu]\nAdminPath=" << admin.string() << "/\nBackupFiles=0\n";
  setenv("KVD_TELMOR_INI", (base / "TELMOR.INI").c_str(), 1);
  kvd::frame::Startup();

  _SELECT_SD* sel = Select(nullptr, nullptr, 'B');
  _PROJECT_ALL_REC p{};
  std::snprintf(p.szPrjName, sizeof p.szPrjName, "SRC");
  std::snprintf(p.szPrjPath, sizeof p.szPrjPath, "SRC");
  if (ProjektInsert(sel, &p) != KVD_S_OK) Die("cannot make the project");
  _SELECT_SD* project = Select("SRC", nullptr, 'B');
  _VERSION_ALL_REC v{};
  std::snprintf(v.szVerName, sizeof v.szVerName, "V1");
  if (project == nullptr || VersionInsert(project, &v) != KVD_S_OK) Die("cannot make the version");
  const fs::path version = admin / "SRC" / "V1";
  for (int t = 0; t < kTables; ++t) WriteTable((version / ("T" + std::to_string(t) + ".DBF")).string(), t);
  const double mb = TreeBytes(version) / 1e6;

  std::vector<double> projekt_copy, version_copy, cp_project, cp_version;
  for (int r = 0; r < runs; ++r) {
    const std::string name = "C" + std::to_string(r);
    projekt_copy.push_back(Millis([&] {
      if (ProjektCopy(sel, C("SRC"), C(name), C(name), nullptr, nullptr) != KVD_S_OK) Die("ProjektCopy failed");
    }));
    if (ProjektDelete(sel, C(name)) != KVD_S_OK) Die("ProjektDelete failed");
    fs::remove_all(admin / name);

    cp_project.push_back(Millis([&] { CopyWithCp(admin / "SRC", base / name); }));
    fs::remove_all(base / name);

    version_copy.push_back(Millis([&] {
      if (VersionCopy(project, C("V1"), C(name), nullptr) != KVD_S_OK) Die("VersionCopy failed");
    }));
    if (VersionDelete(project, C(name)) != KVD_S_OK) Die("VersionDelete failed");

    cp_version.push_back(Millis([&] { CopyWithCp(version, admin / "SRC" / name); }));
    fs::remove_all(admin / "SRC" / name);
  }
  Unselect(project);
  Unselect(sel);
  fs::remove_all(base);

  const double pc = Median(projekt_copy), cpp = Median(cp_project), vc = Median(version_copy), cpv = Median(cp_version);
  std::printf("copy of a project whose one version holds %d tables, %.1f MB; median of %d runs\n", kTables, mb, runs);
  std::printf("%-28s %10s %10s %10s\n", "operation", "ms", "MB/s", "/ cp -r");
  std::printf("%-28s %10.1f %10.0f %10.2f\n", "ProjektCopy", pc, mb / pc * 1e3, pc / cpp);
  std::printf("%-28s %10.1f %10.0f %10s\n", "cp -r of the project tree", cpp, mb / cpp * 1e3, "1.00");
  std::printf("%-28s %10.1f %10.0f %10.2f\n", "VersionCopy", vc, mb / vc * 1e3, vc / cpv);
  std::printf("%-28s %10.1f %10.0f %10s\n", "cp -r of the version tree", cpv, mb / cpv * 1e3, "1.00");
  return 0;
}
