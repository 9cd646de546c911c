// kvd_dataobj_bench: the data objects of a version with 100,000 measuring points through the
// library's calls, beside SQLite doing the same work in the same run.
//
//   MpR          read one point by id: table open, index open, seek, close per call;
//                SQLite: open the database, one prepared query by the indexed id, close per call
//   scan         MpOC without pattern + MpFC to the end (the short fetch: id, description, object
//                number); SQLite: one connection, SELECT of those columns in id order
//   prefix       MpOC with a pattern "MP.012*" + MpFC to the end, which gives the 1,000 matching
//                points and reads on to the end of the table; SQLite: the same rows by GLOB. Counted
//                are the points given, not those read
//   QueryDOType  the kind of an id of each kind (a point, a process, system and reference object,
//                and an id of none), asking the four tables in turn; SQLite: open, the four indexed
//                queries in turn up to the first hit, close
// Points (or ids) per second are printed for each, and at the end the ratio ours / SQLite of each
// pair. KVD_BENCH_RECORDS lowers the point count for a quick run.
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
#include "include/kvd_dataobj.h"

namespace {

namespace fs = std::filesystem;

int Rows() {
  const char* s = std::getenv("KVD_BENCH_RECORDS");
  const long n = s != nullptr ? std::atol(s) : 100000;
  return n < 1000 ? 1000 : n > 999999 ? 999999 : static_cast<int>(n);
}
constexpr int kOthers = 1000;  // process, system and reference objects each

[[noreturn]] void Die(const std::string& what) {
  std::fprintf(stderr, "kvd_dataobj_bench: %s\n", what.c_str());
  std::exit(2);
}

std::string Id(const char* kind, int i) {
  char k[24];
  std::snprintf(k, sizeof k, "%s.%06d", kind, i);
  return k;
}

_MP_REC Point(int i) {
  _MP_REC r{};
  std::snprintf(r.szPointId, sizeof r.szPointId, "%s", Id("MP", i).c_str());
  std::snprintf(r.szDescr, sizeof r.szDescr, "measuring point %d", i);
  std::snprintf(r.szStation, sizeof r.szStation, "PLC %d", i % 40);
  std::snprintf(r.szUnit, sizeof r.szUnit, "%s", i % 3 ? "BAR" : "M3H");
  r.chObjType = i % 2 ? 'A' : 'B';
  r.usObjId = static_cast<uint16_t>(i % 60000);
  r.r8RangeEnd = static_cast<float>(i % 1000);
  r.bStateCnt = 2;
  std::snprintf(r.abcState[0].szStatus, sizeof r.abcState[0].szStatus, "OFF");
  std::snprintf(r.abcState[1].szStatus, sizeof r.abcState[1].szStatus, "ON");
  r.abcLimit[0].r8Limit = 1.5f;
  r.vfmt = _FLOAT;
  return r;
}

// The version directory with the loaded tables, and a SQLite database with the same rows: each
// table's columns as text, the id indexed.
class Fixture {
 public:
  Fixture() {
    dir_ = fs::temp_directory_path() / ("kvd-dataobj-bench-" + std::to_string(std::random_device{}()));
    ours_ = (dir_ / "v1").string() + "/";
    fs::create_directories(ours_);
    sqlite_ = (dir_ / "plant.sqlite").string();
    LoadOurs();
    LoadSqlite();
  }
  ~Fixture() {
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }
  const std::string& ours() const { return ours_; }
  const std::string& sqlite() const { return sqlite_; }

  static sqlite3* Open(const std::string& path, int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) {
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, flags, nullptr) != SQLITE_OK) Die("sqlite3_open " + path);
    return db;
  }
  static void Exec(sqlite3* db, const std::string& sql) {
    if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) Die(sql + ": " + sqlite3_errmsg(db));
  }

 private:
  void LoadOurs() {
    _SELECT_SD* s = SelectDir(ours_.c_str(), 'B');
    const kvd::frame::Family* mp = kvd::frame::FindFamily("Mp");
    _CURSOR_SD* c = nullptr;
    if (mp == nullptr || kvd::frame::FamilyOpenCursor(*mp, s, nullptr, &c, 1) != KVD_S_OK) Die("Mp write cursor");
    for (int i = 0; i < Rows(); ++i) {
      _MP_REC r = Point(i);
      if (kvd::frame::FamilyWrite(*mp, c, &r) != KVD_S_OK) Die("writing the points");
    }
    MpCC(c);
    for (int i = 0; i < kOthers; ++i) {
      _PO_REC po{};
      std::snprintf(po.szPoId, sizeof po.szPoId, "%s", Id("PO", i).c_str());
      po.chType = 'B';
      if (PoU(s, &po) != KVD_S_OK) Die("PoU");
    }
    if (SoOCAccess(s, const_cast<char*>("I"), &c, 1, 0) != KVD_S_OK) Die("SoOCAccess");
    for (int i = 0; i < kOthers; ++i) {
      _SO_REC so{};
      std::snprintf(so.szSoId, sizeof so.szSoId, "%s", Id("SO", i).c_str());
      if (SoGaWC(c, &so) != KVD_S_OK) Die("SoGaWC");
    }
    SoCC(c);
    if (RefOCAccess(s, const_cast<char*>("I"), &c, 1, 0) != KVD_S_OK) Die("RefOCAccess");
    for (int i = 0; i < kOthers; ++i) {
      _REF_REC ref{};
      std::snprintf(ref.szId, sizeof ref.szId, "%s", Id("REF", i).c_str());
      std::snprintf(ref.szRefId, sizeof ref.szRefId, "%s", Id("MP", i).c_str());
      ref.chAccess = 'I';
      if (RefWC(c, &ref) != KVD_S_OK) Die("RefWC");
    }
    RefCC(c);
    Unselect(s);
  }

  // Each of our tables copied into SQLite field by field, as the engine holds it.
  void CopyTable(sqlite3* db, const char* file, const char* table, const char* id_column) {
    CODE4 code;
    code4initLow(&code, nullptr, 0, 0, 0);
    code.errOpen = 0;
    DATA4St* d = d4open(&code, (ours_ + file).c_str());
    if (d == nullptr) Die(std::string("open ") + file);
    const int n = d4numFields(d);
    std::string create = std::string("CREATE TABLE ") + table + "(", insert = std::string("INSERT INTO ") + table + " VALUES(";
    for (short j = 1; j <= n; ++j) {
      create += std::string(j > 1 ? "," : "") + f4name(d4fieldJ(d, j)) + " TEXT";
      insert += j > 1 ? ",?" : "?";
    }
    Exec(db, create + ")");
    Exec(db, std::string("CREATE INDEX ") + table + "_id ON " + table + "(" + id_column + ")");
    sqlite3_stmt* st = nullptr;
    sqlite3_prepare_v2(db, (insert + ")").c_str(), -1, &st, nullptr);
    for (int r = d4top(d); r == 0 && !d4eof(d); r = d4skip(d, 1)) {
      for (short j = 1; j <= n; ++j) {
        FIELD4St* f = d4fieldJ(d, j);
        std::string v(f4ptr(f), f4len(f));
        v.erase(v.find_last_not_of(' ') + 1);
        sqlite3_bind_text(st, j, v.c_str(), -1, SQLITE_TRANSIENT);
      }
      if (sqlite3_step(st) != SQLITE_DONE) Die(sqlite3_errmsg(db));
      sqlite3_reset(st);
    }
    sqlite3_finalize(st);
    d4close(d);
    code4initUndo(&code);
  }

  void LoadSqlite() {
    sqlite3* db = Open(sqlite_);
    Exec(db, "PRAGMA synchronous=NORMAL");
    Exec(db, "BEGIN");
    CopyTable(db, "_MP.DBF", "mp", "POINTID");
    CopyTable(db, "_PO.DBF", "po", "ID");
    CopyTable(db, "_SO.DBF", "so", "ID");
    CopyTable(db, "_REF.DBF", "ref", "ID");
    Exec(db, "COMMIT");
    sqlite3_close(db);
  }

  fs::path dir_;
  std::string ours_, sqlite_;
};

const Fixture& TheFixture() {
  static Fixture f;
  return f;
}

void Report(benchmark::State& state, std::int64_t items) {
  state.SetItemsProcessed(items);
  state.counters["per_s"] = benchmark::Counter(static_cast<double>(items), benchmark::Counter::kIsRate);
}

void BM_MpR_Kvd(benchmark::State& state) {
  const Fixture& fx = TheFixture();
  _SELECT_SD* s = SelectDir(fx.ours().c_str(), 'B');
  std::mt19937 rng(7);
  std::int64_t n = 0;
  _MP_REC r{};
  for (auto _ : state) {
    const std::string id = Id("MP", static_cast<int>(rng() % Rows()));
    std::snprintf(r.szPointId, sizeof r.szPointId, "%s", id.c_str());
    if (MpR(s, &r) != KVD_S_OK) Die("MpR missed " + id);
    benchmark::DoNotOptimize(r.usObjId);
    ++n;
  }
  Unselect(s);
  Report(state, n);
}

void BM_MpR_Sqlite(benchmark::State& state) {
  const Fixture& fx = TheFixture();
  std::mt19937 rng(7);
  std::int64_t n = 0;
  for (auto _ : state) {
    sqlite3* db = Fixture::Open(fx.sqlite(), SQLITE_OPEN_READONLY);
    sqlite3_stmt* st = nullptr;
    sqlite3_prepare_v2(db, "SELECT * FROM mp WHERE POINTID = ?", -1, &st, nullptr);
    const std::string id = Id("MP", static_cast<int>(rng() % Rows()));
    sqlite3_bind_text(st, 1, id.c_str(), -1, SQLITE_TRANSIENT);
    if (sqlite3_step(st) != SQLITE_ROW) Die("sqlite missed " + id);
    for (int c = 0; c < sqlite3_column_count(st); ++c) benchmark::DoNotOptimize(sqlite3_column_text(st, c));
    sqlite3_finalize(st);
    sqlite3_close(db);
    ++n;
  }
  Report(state, n);
}

// MpOC + MpFC to the end; the points given per second.
void Scan(benchmark::State& state, const char* pattern, int expect) {
  const Fixture& fx = TheFixture();
  _SELECT_SD* s = SelectDir(fx.ours().c_str(), 'B');
  std::int64_t n = 0;
  _MP_REC r{};
  for (auto _ : state) {
    _CURSOR_SD* c = nullptr;
    if (MpOC(s, const_cast<char*>(pattern), &c, 0, 2) != KVD_S_OK) Die("MpOC");
    int got = 0;
    while (MpFC(c, &r) == KVD_S_OK) ++got;
    MpCC(c);
    if (got != expect) Die("MpFC gave " + std::to_string(got));
    n += got;
  }
  Unselect(s);
  Report(state, n);
}
void BM_Scan_Kvd(benchmark::State& state) { Scan(state, nullptr, Rows()); }
void BM_Prefix_Kvd(benchmark::State& state) { Scan(state, "MP.012*", std::min(1000, std::max(0, Rows() - 12000))); }

void SqliteScan(benchmark::State& state, const char* where, int expect) {
  const Fixture& fx = TheFixture();
  sqlite3* db = Fixture::Open(fx.sqlite(), SQLITE_OPEN_READONLY);
  std::int64_t n = 0;
  for (auto _ : state) {
    sqlite3_stmt* st = nullptr;
    const std::string sql = std::string("SELECT POINTID, DESCRIPT, OBJID FROM mp ") + where + " ORDER BY POINTID";
    sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr);
    int got = 0;
    while (sqlite3_step(st) == SQLITE_ROW) {
      for (int c = 0; c < 3; ++c) benchmark::DoNotOptimize(sqlite3_column_text(st, c));
      ++got;
    }
    sqlite3_finalize(st);
    if (got != expect) Die("sqlite scan gave " + std::to_string(got));
    n += got;
  }
  sqlite3_close(db);
  Report(state, n);
}
void BM_Scan_Sqlite(benchmark::State& state) { SqliteScan(state, "", Rows()); }
void BM_Prefix_Sqlite(benchmark::State& state) {
  SqliteScan(state, "WHERE POINTID GLOB 'MP.012*'", std::min(1000, std::max(0, Rows() - 12000)));
}

// The ids asked for, by kind: 0 points ... 3 references, 4 none.
std::string KindId(int kind, int i) {
  static const char* const kKinds[] = {"MP", "PO", "SO", "REF", "NONE"};
  return Id(kKinds[kind], i % kOthers);
}

void BM_Query_Kvd(benchmark::State& state) {
  const Fixture& fx = TheFixture();
  const int kind = static_cast<int>(state.range(0));
  _SELECT_SD* s = SelectDir(fx.ours().c_str(), 'B');
  std::int64_t n = 0;
  const long want = kind < 4 ? kind + 1 : NIL_VARTYPE;
  for (auto _ : state) {
    std::string id = KindId(kind, static_cast<int>(n));
    if (QueryDOType(s, id.data()) != want) Die("QueryDOType " + id);
    ++n;
  }
  Unselect(s);
  Report(state, n);
}

void BM_Query_Sqlite(benchmark::State& state) {
  const Fixture& fx = TheFixture();
  const int kind = static_cast<int>(state.range(0));
  std::int64_t n = 0;
  for (auto _ : state) {
    const std::string id = KindId(kind, static_cast<int>(n));
    sqlite3* db = Fixture::Open(fx.sqlite(), SQLITE_OPEN_READONLY);
    int found = 0;
    const char* const queries[] = {"SELECT 1 FROM mp WHERE POINTID = ?", "SELECT 1 FROM po WHERE ID = ?",
                                   "SELECT 1 FROM so WHERE ID = ?", "SELECT 1 FROM ref WHERE ID = ?"};
    for (int q = 0; q < 4 && found == 0; ++q) {
      sqlite3_stmt* st = nullptr;
      sqlite3_prepare_v2(db, queries[q], -1, &st, nullptr);
      sqlite3_bind_text(st, 1, id.c_str(), -1, SQLITE_TRANSIENT);
      if (sqlite3_step(st) == SQLITE_ROW) found = q + 1;
      sqlite3_finalize(st);
    }
    sqlite3_close(db);
    if (found != (kind < 4 ? kind + 1 : 0)) Die("sqlite kind of " + id);
    ++n;
  }
  Report(state, n);
}

}  // namespace

BENCHMARK(BM_MpR_Kvd)->Name("MpR/kvd")->UseRealTime();
BENCHMARK(BM_MpR_Sqlite)->Name("MpR/sqlite")->UseRealTime();
BENCHMARK(BM_Scan_Kvd)->Name("Scan/kvd")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Scan_Sqlite)->Name("Scan/sqlite")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Prefix_Kvd)->Name("Prefix/kvd")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Prefix_Sqlite)->Name("Prefix/sqlite")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Query_Kvd)->Name("Query/kvd")->DenseRange(0, 4)->UseRealTime();
BENCHMARK(BM_Query_Sqlite)->Name("Query/sqlite")->DenseRange(0, 4)->UseRealTime();

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  kvd::bench::SqliteRatioReporter reporter("per_s", "points or ids",
                                            {{"MpR", "MpR/kvd", "MpR/sqlite"},
                                             {"scan", "Scan/kvd", "Scan/sqlite"},
                                             {"prefix", "Prefix/kvd", "Prefix/sqlite"},
                                             {"QueryDOType MP", "Query/kvd/0", "Query/sqlite/0"},
                                             {"QueryDOType PO", "Query/kvd/1", "Query/sqlite/1"},
                                             {"QueryDOType SO", "Query/kvd/2", "Query/sqlite/2"},
                                             {"QueryDOType REF", "Query/kvd/3", "Query/sqlite/3"},
                                             {"QueryDOType none", "Query/kvd/4", "Query/sqlite/4"}});
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
