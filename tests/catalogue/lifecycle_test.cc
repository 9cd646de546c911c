// A project's whole life, copy, rename, move and delete, with the tree and the catalogue checked
// after each step, while a second process lists the catalogue all along and must never see it in
// a state that no single step leaves: a project twice, a project missing, a name half changed.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/catalogue/catalogue_test_util.h"

namespace kvd::test {
namespace {

// What the listing process reports, in memory both processes share.
struct Report {
  std::atomic<int> stop;
  std::atomic<long> listings;
  std::atomic<long> inconsistent;
  std::atomic<long> with_copy;     // listings that showed the copy under its first name
  std::atomic<long> with_renamed;  // ... under its second name
  char first_bad[512];
};
static_assert(std::atomic<long>::is_always_lock_free);

// A listing as one step or another leaves the catalogue: KEEP and SRC always, and the project
// under work at most once, under one of its names, with its blank description. "" when it is.
std::string Judge(const std::vector<std::string>& list, const std::vector<std::string>& versions) {
  std::string seen;
  for (const std::string& e : list) seen += e + "; ";
  for (std::size_t i = 1; i < list.size(); ++i)
    if (!(list[i - 1] < list[i])) return "not in order or twice: " + seen;
  int extra = 0;
  bool keep = false, src = false;
  for (const std::string& e : list) {
    if (e == "KEEP=always there") keep = true;
    else if (e == "SRC=the source") src = true;
    else if (e == "CP=" || e == "RN=") ++extra;
    else return "unknown entry '" + e + "': " + seen;
  }
  if (!keep || !src) return "a project that never changes is missing: " + seen;
  if (extra > 1) return "the project under work shows twice: " + seen;
  if (versions != std::vector<std::string>{"V1=first", "V2=second", "V3=third"}) {
    std::string v;
    for (const std::string& e : versions) v += e + "; ";
    return "the source's versions changed: " + v;
  }
  return "";
}

// The second process: lists projects and the source's versions until told to stop.
[[noreturn]] void ListUntilStopped(Report* report) {
  while (report->stop.load() == 0) {
    std::vector<std::string> list;
    _SELECT_SD* admin = Select(nullptr, nullptr, 'L');
    _CURSOR_SD* c = nullptr;
    if (admin != nullptr && ProjektOpenListCursor(admin, nullptr, &c) == KVD_S_OK) {
      _PROJECT_LIST_REC r;
      while (PFLC(admin, c, &r) == KVD_S_OK) list.push_back(std::string(r.szPrjName) + "=" + r.szPrjBez);
      ProjektCloseListCursor(admin, c);
    } else {
      list.push_back("<cannot list>");
    }
    Unselect(admin);
    std::vector<std::string> versions;
    _SELECT_SD* src = Select("SRC", nullptr, 'L');
    if (src != nullptr && VersionOpenListCursor(src, nullptr, &c) == KVD_S_OK) {
      _VERSION_LIST_REC r;
      while (VFLC(src, c, &r) == KVD_S_OK) versions.push_back(std::string(r.szVerName) + "=" + r.szVerBez);
      VersionCloseListCursor(src, c);
    }
    Unselect(src);

    const std::string verdict = Judge(list, versions);
    if (!verdict.empty() && report->inconsistent.fetch_add(1) == 0)
      std::snprintf(report->first_bad, sizeof report->first_bad, "%s", verdict.c_str());
    for (const std::string& e : list) {
      if (e == "CP=") report->with_copy.fetch_add(1);
      if (e == "RN=") report->with_renamed.fetch_add(1);
    }
    report->listings.fetch_add(1);
  }
  _exit(0);
}

// Lets the lister see the catalogue as a step left it: a few listings more.
void LetListerLook(const Report* report) {
  const long from = report->listings.load();
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (report->listings.load() < from + 3 && std::chrono::steady_clock::now() < until)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

TEST(Lifecycle, CopyRenameMoveDeleteWhileAnotherProcessListsTheCatalogue) {
  CataloguePlant plant;
  ASSERT_EQ(plant.AddProject("KEEP", "KEEP", "always there"), KVD_S_OK);
  ASSERT_EQ(plant.AddProject("SRC", "SRC", "the source", "source comment"), KVD_S_OK);
  const char* const kVersions[][2] = {{"V1", "first"}, {"V2", "second"}, {"V3", "third"}};
  for (const auto& v : kVersions) {
    ASSERT_EQ(plant.AddVersion("SRC", v[0], v[1], 20, std::string("comment of ") + v[0]), KVD_S_OK);
    // Some bulk, so that a copy takes long enough for the lister to look in the middle of it.
    std::ofstream(plant.admin() + "SRC/" + v[0] + "/_BULK.DBF") << std::string(2 << 20, v[0][1]);
  }
  const Tree source = ReadTree(plant.admin() + "SRC");
  for (const char* f : {"komment.txt", "_VERSION.DBF", "V1/komment.txt", "V2/_DIRFIG.DBF", "V3/_BULK.DBF"})
    ASSERT_TRUE(source.count(f)) << f;

  auto* report = static_cast<Report*>(
      ::mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(report, MAP_FAILED);
  new (report) Report{};
  const pid_t lister = ::fork();
  ASSERT_GE(lister, 0);
  if (lister == 0) ListUntilStopped(report);
  LetListerLook(report);

  for (int round = 1; round <= 3; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    // Copy: a new project with the whole tree.
    ASSERT_EQ(ProjektCopy(plant.sel(), Text("SRC"), Text("CP"), Text("CP_DIR"), nullptr, nullptr), KVD_S_OK);
    EXPECT_EQ(ReadTree(plant.admin() + "CP_DIR"), source);
    EXPECT_EQ(plant.Projects(), (std::vector<std::string>{"CP=", "KEEP=always there", "SRC=the source"}));
    EXPECT_EQ(plant.Versions("CP"), (std::vector<std::string>{"V1=first", "V2=second", "V3=third"}));
    LetListerLook(report);

    // Rename: the name alone changes.
    ASSERT_EQ(ProjektRename(plant.sel(), Text("CP"), Text("RN"), nullptr), KVD_S_OK);
    EXPECT_EQ(plant.Projects(), (std::vector<std::string>{"KEEP=always there", "RN=", "SRC=the source"}));
    EXPECT_EQ(plant.ProjectDir("RN"), plant.admin() + "CP_DIR/");
    EXPECT_EQ(ReadTree(plant.admin() + "CP_DIR"), source);
    LetListerLook(report);

    // Move: the tree goes to the new place, the record follows, the old tree goes.
    const std::string moved = plant.path() + "/moved" + std::to_string(round);
    ASSERT_EQ(ProjektMove(plant.sel(), Text("RN"), Text(moved), nullptr), KVD_S_OK);
    EXPECT_EQ(ReadTree(moved), source);
    EXPECT_FALSE(fs::exists(plant.admin() + "CP_DIR"));
    EXPECT_EQ(plant.ProjectDir("RN"), moved + "/");
    EXPECT_EQ(plant.Versions("RN"), (std::vector<std::string>{"V1=first", "V2=second", "V3=third"}));
    Selection v(Select("RN", "V2", 'T'));
    _DIRFIG_REC f{};
    EXPECT_EQ(DirfigR(v, Text("F19"), &f), KVD_S_OK);
    LetListerLook(report);

    // Delete: versions and files go, the record goes, the emptied directory stays.
    ASSERT_EQ(ProjektDelete(plant.sel(), Text("RN")), KVD_S_OK);
    EXPECT_EQ(plant.Projects(), (std::vector<std::string>{"KEEP=always there", "SRC=the source"}));
    EXPECT_EQ(ReadTree(moved), Tree{});
    EXPECT_TRUE(fs::is_directory(moved));
    EXPECT_EQ(ReadTree(plant.admin() + "SRC"), source);
    LetListerLook(report);
  }

  report->stop.store(1);
  int wstatus = 0;
  ASSERT_EQ(::waitpid(lister, &wstatus, 0), lister);
  EXPECT_TRUE(WIFEXITED(wstatus) && WEXITSTATUS(wstatus) == 0);
  EXPECT_EQ(report->inconsistent.load(), 0) << report->first_bad;
  EXPECT_GE(report->listings.load(), 40);
  // The lister saw the catalogue in each state, so the check above covered them.
  EXPECT_GT(report->with_copy.load(), 0);
  EXPECT_GT(report->with_renamed.load(), 0);
  std::printf("the lister made %ld listings, %ld with the copy, %ld with it renamed\n", report->listings.load(),
              report->with_copy.load(), report->with_renamed.load());
  ::munmap(report, sizeof(Report));
}

}  // namespace
}  // namespace kvd::test
