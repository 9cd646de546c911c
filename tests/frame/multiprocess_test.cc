// Two processes work through the families on one table at once: inserts, read-modify-write
// updates and deletes of their own keys, interleaved with the other's. Nothing may be lost, no call
// may fail, and table and index must agree afterwards, read by us and by another xBase reader.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "include/kvd_directory.h"
#include "lib/foundation/kvtext.h"
#include "tests/frame/frame_test_util.h"

namespace kvd::test {
namespace {

constexpr int kSteps = 120;

std::string KeyOf(int worker, int i) { return std::string(1, static_cast<char>('A' + worker)) + std::to_string(i); }

// What worker `w` leaves behind: its key i with lUlx = the number of updates, unless deleted.
std::map<std::string, int> Expected(int w) {
  std::map<std::string, int> out;
  for (int i = 0; i < kSteps; ++i) out[KeyOf(w, i)] = 0;
  for (int i = 0; i < kSteps; ++i) {
    if (auto it = out.find(KeyOf(w, i / 2)); i % 3 == 0 && it != out.end()) it->second += 1;
    if (i % 7 == 6) out.erase(KeyOf(w, i - 3));
  }
  return out;
}

// One worker's share; the count of calls that did not answer as they should.
int Work(const std::string& dir, int w) {
  _SELECT_SD* s = SelectDir(dir.c_str(), 'M');
  if (s == nullptr) return 1000;
  int bad = 0;
  std::map<std::string, bool> gone;
  for (int i = 0; i < kSteps; ++i) {
    _DIRFIG_REC r{};
    std::snprintf(r.szName, sizeof r.szName, "%s", KeyOf(w, i).c_str());
    std::snprintf(r.szFilename, sizeof r.szFilename, "%s.DBF", r.szName);
    if (long st = DirfigI(s, &r); st != 0) {
      ++bad;
      std::fprintf(stderr, "worker %d: insert %s: %ld (%d) %s\n", w, r.szName, st, s->c4code.errorCode, error4lastDetail(&s->c4code));
    }
    if (i % 3 == 0) {
      const std::string k = KeyOf(w, i / 2);
      if (!gone[k]) {
        _DIRFIG_REC u{};
        if (long st = DirfigR(s, const_cast<char*>(k.c_str()), &u); st != 0) {
          ++bad;
          std::fprintf(stderr, "worker %d: read %s: %ld (%d)\n", w, k.c_str(), st, s->c4code.errorCode);
        } else {
          u.lUlx += 1;
          if (long st = DirfigU(s, &u); st != 0) {
            ++bad;
            std::fprintf(stderr, "worker %d: update %s: %ld (%d)\n", w, k.c_str(), st, s->c4code.errorCode);
          }
        }
      }
    }
    if (i % 7 == 6) {
      const std::string k = KeyOf(w, i - 3);
      char file[13] = "";
      if (long st = DirfigD(s, const_cast<char*>(k.c_str()), file, sizeof file); st != 0 || k + ".DBF" != KvRTrim(file)) {
        ++bad;
        std::fprintf(stderr, "worker %d: delete %s: %ld (%d) %s\n", w, k.c_str(), st, s->c4code.errorCode, file);
      }
      gone[k] = true;
    }
  }
  Unselect(s);
  return bad;
}

TEST(TwoProcesses, FamiliesLoseNoUpdateAndKeepTheIndexRight) {
  Plant plant;
  const std::string dir = plant.MakeDir("v1");
  {
    _SELECT_SD* s = SelectDir(dir.c_str(), 'M');
    _DIRFIG_REC r{};
    EXPECT_EQ(DirfigR(s, const_cast<char*>("X"), &r), KVD_S_NOT_FOUND);  // the table and index exist now
    Unselect(s);
  }
  std::vector<pid_t> kids;
  for (int w = 0; w < 2; ++w) {
    const pid_t pid = fork();
    if (pid == 0) _exit(std::min(Work(dir, w), 250));
    kids.push_back(pid);
  }
  for (pid_t pid : kids) {
    int st = 0;
    ASSERT_EQ(waitpid(pid, &st, 0), pid);
    ASSERT_TRUE(WIFEXITED(st));
    EXPECT_EQ(WEXITSTATUS(st), 0) << "calls that failed in worker " << pid;
  }
  std::map<std::string, int> want = Expected(0);
  for (const auto& [k, v] : Expected(1)) want[k] = v;

  // Every record found by its key, with its updates, and nothing else in the tag's order.
  _SELECT_SD* s = SelectDir(dir.c_str(), 'M');
  for (const auto& [k, v] : want) {
    _DIRFIG_REC r{};
    const long st = DirfigR(s, const_cast<char*>(k.c_str()), &r);
    EXPECT_EQ(st, 0) << k;
    if (st == 0) {
      EXPECT_EQ(r.lUlx, v) << k;
    }
  }
  _CURSOR_SD* c = nullptr;
  ASSERT_EQ(DirfigOC(s, nullptr, &c, 0), 0);
  std::vector<std::string> walked;
  _DIRFIG_REC r{};
  while (DirfigFC(c, &r) == 0) walked.push_back(r.szName);
  DirfigCC(c);
  Unselect(s);
  std::vector<std::string> keys;
  for (const auto& [k, v] : want) keys.push_back(k);
  EXPECT_EQ(walked, keys);

  // Record order, read without the index, holds the same live records.
  Engine e;
  DATA4St* d = d4open(&e.code, (dir + "_DIRFIG.DBF").c_str());
  ASSERT_NE(d, nullptr);
  std::vector<std::string> live;
  for (int rc = d4top(d); rc == 0 && !d4eof(d); rc = d4skip(d, 1))
    if (!d4deleted(d)) live.push_back(Str(d4field(d, "FIGURE")));
  d4close(d);
  std::sort(live.begin(), live.end());
  EXPECT_EQ(live, keys);

  // Another xBase reader sees the same live records.
  const std::string cmd = "perl -MXBase -e '$t = XBase->new(shift) or die XBase->errstr; $n = 0; "
                          "for $i (0 .. $t->last_record) { @r = $t->get_record($i); $n++ unless $r[0] } print $n' " +
                          dir + "_DIRFIG.DBF";
  FILE* p = popen(cmd.c_str(), "r");
  ASSERT_NE(p, nullptr);
  char buf[64] = "";
  const bool got = std::fgets(buf, sizeof buf, p) != nullptr;
  const int rc = pclose(p);
  ASSERT_TRUE(got && rc == 0) << "Perl XBase (libdbd-xbase-perl, installed by ./do setup) could not read the table";
  EXPECT_EQ(std::atoi(buf), static_cast<int>(keys.size()));
}

}  // namespace
}  // namespace kvd::test
