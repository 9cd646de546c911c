// kvd_frame_bench: the figure directory (_DIRFIG.DBF, 100,000 rows) through the library's family
// calls, beside SQLite doing the same work in the same run.
//
//   keyed read   DirfigR: table open, structure comparison, index open, seek, close per call;
//                SQLite: open the database, one prepared point query, close per call
//   cursor scan  DirfigOC + DirfigFC2 over every row; SQLite: one connection, SELECT of every row
//   update       DirfigU of existing rows (open, seek, lock, write, close per call);
//                SQLite: open, UPDATE by key, close per call
//   bulk load    a write cursor appending every row on an empty table with its index;
//                SQLite: every INSERT in one transaction into a table with its key
// Rows per second are printed for each, and at the end the ratio ours / SQLite of each pair.
// KVD_BENCH_RECORDS lowers the row count for a quick run.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "bench/sqlite_ratio.h"
#include "frame/family.h"
#include "include/kvd_directory.h"

namespace {

namespace fs = std::filesystem;

int Rows() {
  const char* s = std::getenv("KVD_BENCH_RECORDS");
  const long n = s != nullptr ? std::atol(s) : 100000;
  return n < 10 ? 10 : n > 999999 ? 999999 : static_cast<int>(n);
}

[[noreturn]] void Die(const std::string& what) {
  std::fprintf(stderr, "kvd_frame_bench: %s\n", what.c_str());
  std::exit(2);
}

std::string KeyOf(int i) {
  char k[8];
  std::snprintf(k, sizeof k, "F%05d", i);
  return k;
}

_DIRFIG_REC Row(int i) {
  _DIRFIG_REC r{};
  std::snprintf(r.szName, sizeof r.szName, "%s", KeyOf(i).c_str());
  std::snprintf(r.szDescr, sizeof r.szDescr, "figure number %d of the plant", i);
  std::snprintf(r.szFilename, sizeof r.szFilename, "E%05d.DBF", i);
  r.lUlx = i % 1000;
  r.lUly = i % 700;
  r.lLrx = r.lUlx + 64;
  r.lLry = r.lUly + 48;
  r.nParamcnt = i % 20;
  r.nBgColor = i % 256;
  r.nFrameColor = 7;
  r.fHasControls = i % 2;
  r.lTarResX = 1280;
  r.lTarResY = 1024;
  return r;
}

// Ours: a version directory with the loaded table; SQLite: a database file with the same rows.
class Fixture {
 public:
  Fixture() {
    dir_ = fs::temp_directory_path() / ("kvd-frame-bench-" + std::to_string(std::random_device{}()));
    fs::create_directories(dir_);
    ours_ = (dir_ / "v1").string() + "/";
    fs::create_directories(ours_);
    sqlite_ = (dir_ / "plant.sqlite").string();
    if (LoadOurs(ours_) != Rows()) Die("loading the figure directory");
    LoadSqlite(sqlite_);
  }
  ~Fixture() {
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }
  const std::string& ours() const { return ours_; }
  const std::string& sqlite() const { return sqlite_; }
  const fs::path& dir() const { return dir_; }

  // Appends every row through a write cursor; the number written.
  static int LoadOurs(const std::string& dir) {
    const kvd::frame::Family* fam = kvd::frame::FindFamily("Dirfig");
    _SELECT_SD* s = SelectDir(dir.c_str(), 'B');
    _CURSOR_SD* c = nullptr;
    if (fam == nullptr || kvd::frame::FamilyOpenCursor(*fam, s, nullptr, &c, 1) != KVD_S_OK) Die("open cursor");
    int n = 0;
    for (int i = 0; i < Rows(); ++i) {
      _DIRFIG_REC r = Row(i);
      n += kvd::frame::FamilyWrite(*fam, c, &r) == KVD_S_OK;
    }
    DirfigCC(c);
    Unselect(s);
    return n;
  }
  static void LoadSqlite(const std::string& path) {
    sqlite3* db = Open(path);
    Exec(db, "CREATE TABLE dirfig(figure TEXT PRIMARY KEY, descript TEXT, ulx INT, uly INT, lrx INT, lry INT, "
             "paramcnt INT, filename TEXT, bgcolor INT, frmclr INT, controls INT, tarresx INT, tarresy INT)");
    Exec(db, "BEGIN");
    sqlite3_stmt* st = nullptr;
    sqlite3_prepare_v2(db, "INSERT INTO dirfig VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?)", -1, &st, nullptr);
    for (int i = 0; i < Rows(); ++i) {
      const _DIRFIG_REC r = Row(i);
      sqlite3_bind_text(st, 1, r.szName, -1, SQLITE_TRANSIENT);
      sqlite3_bind_text(st, 2, r.szDescr, -1, SQLITE_TRANSIENT);
      const int nums[] = {r.lUlx, r.lUly, r.lLrx, r.lLry, r.nParamcnt};
      for (int k = 0; k < 5; ++k) sqlite3_bind_int(st, 3 + k, nums[k]);
      sqlite3_bind_text(st, 8, r.szFilename, -1, SQLITE_TRANSIENT);
      const int more[] = {r.nBgColor, r.nFrameColor, r.fHasControls, r.lTarResX, r.lTarResY};
      for (int k = 0; k < 5; ++k) sqlite3_bind_int(st, 9 + k, more[k]);
      if (sqlite3_step(st) != SQLITE_DONE) Die(sqlite3_errmsg(db));
      sqlite3_reset(st);
    }
    sqlite3_finalize(st);
    Exec(db, "COMMIT");
    sqlite3_close(db);
  }
  static sqlite3* Open(const std::string& path) {
    sqlite3* db = nullptr;
    if (sqlite3_open(path.c_str(), &db) != SQLITE_OK) Die("sqlite3_open " + path);
    Exec(db, "PRAGMA synchronous=NORMAL");
    return db;
  }
  static void Exec(sqlite3* db, const char* sql) {
    if (sqlite3_exec(db, sql, nullptr, nullptr, nullptr) != SQLITE_OK) Die(std::string(sql) + ": " + sqlite3_errmsg(db));
  }

 private:
  fs::path dir_;
  std::string ours_, sqlite_;
};

const Fixture& TheFixture() {
  static Fixture f;
  return f;
}

void Report(benchmark::State& state, std::int64_t rows) {
  state.SetItemsProcessed(rows);
  state.counters["rows_per_s"] = benchmark::Counter(static_cast<double>(rows), benchmark::Counter::kIsRate);
}

void BM_KeyedRead_Sqlite(benchmark::State& state) {
  const Fixture& fx = TheFixture();
  std::mt19937 rng(7);
  std::int64_t n = 0;
  for (auto _ : state) {
    sqlite3* db = nullptr;
    sqlite3_open_v2(fx.sqlite().c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt* st = nullptr;
    sqlite3_prepare_v2(db, "SELECT * FROM dirfig WHERE figure = ?", -1, &st, nullptr);
    const std::string k = KeyOf(static_cast<int>(rng() % Rows()));
    sqlite3_bind_text(st, 1, k.c_str(), -1, SQLITE_TRANSIENT);
    if (sqlite3_step(st) != SQLITE_ROW) Die("sqlite point query missed");
    benchmark::DoNotOptimize(sqlite3_column_int(st, 2));
    sqlite3_finalize(st);
    sqlite3_close(db);
    ++n;
  }
  Report(state, n);
}

void BM_KeyedRead_Kvd(benchmark::State& state) {
  const Fixture& fx = TheFixture();
  _SELECT_SD* s = SelectDir(fx.ours().c_str(), 'B');
  std::mt19937 rng(7);
  std::int64_t n = 0;
  _DIRFIG_REC r{};
  for (auto _ : state) {
    std::string k = KeyOf(static_cast<int>(rng() % Rows()));
    if (DirfigR(s, k.data(), &r) != KVD_S_OK) Die("DirfigR missed " + k);
    benchmark::DoNotOptimize(r.lUlx);
    ++n;
  }
  Unselect(s);
  Report(state, n);
}

void BM_Scan_Sqlite(benchmark::State& state) {
  const Fixture& fx = TheFixture();
  sqlite3* db = Fixture::Open(fx.sqlite());
  std::int64_t n = 0;
  for (auto _ : state) {
    sqlite3_stmt* st = nullptr;
    sqlite3_prepare_v2(db, "SELECT * FROM dirfig ORDER BY figure", -1, &st, nullptr);
    while (sqlite3_step(st) == SQLITE_ROW) {
      for (int c = 0; c < 13; ++c) benchmark::DoNotOptimize(sqlite3_column_text(st, c));
      ++n;
    }
    sqlite3_finalize(st);
  }
  sqlite3_close(db);
  Report(state, n);
}

void BM_Scan_Kvd(benchmark::State& state) {
  const Fixture& fx = TheFixture();
  _SELECT_SD* s = SelectDir(fx.ours().c_str(), 'B');
  std::int64_t n = 0;
  _DIRFIG_REC r{};
  for (auto _ : state) {
    _CURSOR_SD* c = nullptr;
    if (DirfigOC(s, nullptr, &c, 0) != KVD_S_OK) Die("DirfigOC");
    while (DirfigFC2(c, &r) == KVD_S_OK) {
      benchmark::DoNotOptimize(r.lUlx);
      ++n;
    }
    DirfigCC(c);
  }
  Unselect(s);
  Report(state, n);
}

void BM_Update_Sqlite(benchmark::State& state) {
  const Fixture& fx = TheFixture();
  std::mt19937 rng(11);
  std::int64_t n = 0;
  for (auto _ : state) {
    sqlite3* db = Fixture::Open(fx.sqlite());
    sqlite3_stmt* st = nullptr;
    sqlite3_prepare_v2(db, "UPDATE dirfig SET ulx = ulx + 1 WHERE figure = ?", -1, &st, nullptr);
    const std::string k = KeyOf(static_cast<int>(rng() % Rows()));
    sqlite3_bind_text(st, 1, k.c_str(), -1, SQLITE_TRANSIENT);
    if (sqlite3_step(st) != SQLITE_DONE) Die("sqlite update");
    sqlite3_finalize(st);
    sqlite3_close(db);
    ++n;
  }
  Report(state, n);
}

void BM_Update_Kvd(benchmark::State& state) {
  const Fixture& fx = TheFixture();
  _SELECT_SD* s = SelectDir(fx.ours().c_str(), 'B');
  std::mt19937 rng(11);
  std::int64_t n = 0;
  for (auto _ : state) {
    _DIRFIG_REC r = Row(static_cast<int>(rng() % Rows()));
    r.lUlx += 1;
    if (DirfigU(s, &r) != KVD_S_OK) Die("DirfigU");
    ++n;
  }
  Unselect(s);
  Report(state, n);
}

void BM_Load_Sqlite(benchmark::State& state) {
  const Fixture& fx = TheFixture();
  std::int64_t n = 0;
  for (auto _ : state) {
    const std::string path = (fx.dir() / "load.sqlite").string();
    fs::remove(path);
    Fixture::LoadSqlite(path);
    n += Rows();
  }
  Report(state, n);
}

void BM_Load_Kvd(benchmark::State& state) {
  const Fixture& fx = TheFixture();
  std::int64_t n = 0;
  for (auto _ : state) {
    const fs::path d = fx.dir() / "load";
    fs::remove_all(d);
    fs::create_directories(d);
    n += Fixture::LoadOurs(d.string() + "/");
  }
  Report(state, n);
}


}  // namespace

BENCHMARK(BM_KeyedRead_Kvd)->Name("KeyedRead/kvd")->UseRealTime();
BENCHMARK(BM_KeyedRead_Sqlite)->Name("KeyedRead/sqlite")->UseRealTime();
BENCHMARK(BM_Scan_Kvd)->Name("Scan/kvd")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Scan_Sqlite)->Name("Scan/sqlite")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Update_Kvd)->Name("Update/kvd")->UseRealTime();
BENCHMARK(BM_Update_Sqlite)->Name("Update/sqlite")->UseRealTime();
BENCHMARK(BM_Load_Kvd)->Name("Load/kvd")->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(BM_Load_Sqlite)->Name("Load/sqlite")->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  kvd::bench::SqliteRatioReporter reporter("rows_per_s", "rows",
                                            {{"KeyedRead", "KeyedRead/kvd", "KeyedRead/sqlite"},
                                             {"Scan", "Scan/kvd", "Scan/sqlite"},
                                             {"Update", "Update/kvd", "Update/sqlite"},
                                             {"Load", "Load/kvd", "Load/sqlite"}});
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
