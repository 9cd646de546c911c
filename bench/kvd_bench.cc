// Our table engine side by side with SQLite on the same records.
//
// The table is a customer list: 20 character fields, 200 bytes of data per record (201 with the
// deletion byte), filled with varied text (names, streets, e-mail addresses, amounts, dates). Both
// engines get the very same values; SQLite stores them as TEXT columns without the trailing blanks
// a fixed-width field keeps, which is the natural way to hold them there.
//
// Operations, each reported as records per second (items_per_second):
//   Append   a new table: ours d4create, d4lockAll, then per record d4appendStart, 20 x f4assign,
//            d4append, and d4close; SQLite CREATE TABLE, one transaction, a prepared INSERT with
//            20 bound texts per record, COMMIT, close.
//   Scan     every record in order, every field copied out: ours d4top/d4skip + f4ptr per field;
//            SQLite SELECT * stepping through the rows, sqlite3_column_text/bytes per column.
//   Random   one record by number, every field copied out: ours d4go; SQLite SELECT * ... WHERE
//            rowid = ? through one prepared statement that is reset and re-bound.
//   Reopen   open, read one record by number (every field), close: ours d4open/d4go/d4close under
//            one engine state; SQLite sqlite3_open_v2/prepare/step/finalize/close.
//
// Index operations. Our tags and SQLite's indexes are made from one list (kOneTag, kTwoTags,
// kThreeTags): each tag orders by one field and is named after it, and SQLite gets an index on
// that column. CUSTNO holds unique customer numbers in record order, LASTNAME 20 names in no order
// (long runs of equal keys), PHONE nearly unique numbers in no order.
//   IndexBuild1 / IndexBuild3  index the existing table: ours d4open, i4create of the table's own
//            index with the LASTNAME tag (or CUSTNO, LASTNAME and PHONE), d4close; SQLite
//            CREATE INDEX on the same column(s), all in one transaction. Each run starts from a
//            fresh copy of the unindexed table (copied outside the timing).
//   Seek     one record by a random customer number, every field copied out: ours d4seek in the
//            CUSTNO tag; SQLite SELECT * ... WHERE CUSTNO = ? through one prepared statement
//            (the plan is checked to use the index).
//   TagScan  every record in LASTNAME order, the key and BALANCE copied out and the order checked:
//            ours d4tagSelect, d4top and d4skip(1); SQLite SELECT LASTNAME, BALANCE ... ORDER BY
//            LASTNAME (the plan is checked to walk the index, not to sort).
//   Append2  like Append into a new table that keeps two tags (CUSTNO, LASTNAME) current: ours
//            d4create with the tags, so every append under the whole-table lock also inserts two
//            keys; SQLite creates both indexes before its one transaction of inserts.
//   DeletePack  delete every 10th record and compact the table with its three tags: ours d4open,
//            i4open, d4lockAll, d4go + d4delete per record, d4pack (which rebuilds the tags),
//            d4close; SQLite DELETE ... WHERE rowid % 10 = 0 and then VACUUM, which rewrites the
//            database (table and indexes) without the freed pages: the nearest thing to a pack.
//            Records per second count the records of the table before the delete. Each run starts
//            from a fresh copy of the indexed table (copied outside the timing).
//
// SQLite settings: a file database (not :memory:), the default rollback journal (journal_mode
// DELETE), default page size and cache, autocommit for reads (each statement its own read
// transaction, as a program that just asks for a record gets). synchronous=NORMAL on the
// connections that write or stay open; the reopen benchmark's connections only read and keep
// the defaults. Our engine never syncs on its own, so NORMAL is the closest SQLite comes to it
// without giving up its journal.
//
// The record count is 1 000 000, or KVD_BENCH_RECORDS when set (for a quick run). The tables the
// read benchmarks use (unindexed, and a copy with the three tags / indexes) are built once per run
// into a private temporary directory, which is removed at exit. At the end one table compares the
// two engines operation by operation (for an operation run more than once, its best run).
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "engine/d4all.h"

namespace {

namespace fs = std::filesystem;

// ---- The records ------------------------------------------------------------------------------

struct Column {
  const char* name;
  unsigned short len;
};

constexpr std::array<Column, 20> kColumns = {{
    {"CUSTNO", 8},   {"FIRSTNAME", 12}, {"LASTNAME", 14}, {"COMPANY", 20}, {"STREET", 22},
    {"CITY", 14},    {"ZIP", 5},        {"REGION", 2},    {"COUNTRY", 10}, {"PHONE", 14},
    {"EMAIL", 24},   {"BORN", 8},       {"JOINED", 8},    {"STATUS", 1},   {"CATEGORY", 6},
    {"BALANCE", 10}, {"CREDIT", 8},     {"SALESREP", 6},  {"CODE", 4},     {"NOTE", 4},
}};
constexpr unsigned kFields = kColumns.size();

constexpr unsigned DataWidth() {
  unsigned w = 0;
  for (const Column& c : kColumns) w += c.len;
  return w;
}
static_assert(DataWidth() == 200, "the benchmark table holds 200 bytes of data per record");

// Where each field's terminated text sits inside one record's slot of the value store.
struct SlotLayout {
  std::array<unsigned, kFields> at{};
  unsigned size = 0;  // bytes per record: every field's width + its terminator
  SlotLayout() {
    for (unsigned i = 0; i < kFields; ++i) {
      at[i] = size;
      size += kColumns[i].len + 1u;
    }
  }
};
const SlotLayout kSlots;

const char* const kFirst[] = {"Anna", "Bernd", "Carla", "Dieter", "Eva", "Frank", "Gisela", "Hans",
                              "Ines", "Jonas", "Karin", "Lukas", "Maria", "Niklas", "Olga",
                              "Peter", "Rita", "Stefan", "Tanja", "Uwe", "Vera", "Walter",
                              "Yvonne", "Zoran", "Mohammed", "Aleksandra", "Jean-Pierre", "Li"};
const char* const kLast[] = {"Meier", "Schmidt", "Nguyen", "Kowalski", "Rossi", "Dubois",
                             "Fischer", "Papadopoulos", "Jansen", "Berg", "Hofmann", "Lindqvist",
                             "Oliveira", "Novak", "Weber", "Kaya", "O'Brien", "Yilmaz",
                             "Schwarzenegger", "Wu"};
const char* const kCompanyA[] = {"Nord", "Sued", "Alpen", "Rhein", "Elb", "Donau", "Havel",
                                 "Ost", "Isar", "Main"};
const char* const kCompanyB[] = {"stahl", "bau", "tech", "chemie", "logistik", "handel",
                                 "werke", "druck", "energie", "textil"};
const char* const kCompanyC[] = {" GmbH", " AG", " KG", " GmbH & Co", " eG", ""};
const char* const kStreets[] = {"Hauptstrasse", "Bahnhofweg", "Am Markt", "Lindenallee",
                                "Industriering", "Kirchgasse", "Schillerplatz", "Muehlenweg",
                                "Seestrasse", "Goethestr."};
const char* const kCities[] = {"Hamburg", "Muenchen", "Koeln", "Frankfurt", "Stuttgart",
                               "Dresden", "Leipzig", "Bremen", "Hannover", "Nuernberg",
                               "Bad Homburg", "Ulm", "Kiel", "Passau"};
const char* const kCountries[] = {"Germany", "Austria", "Switzerland", "France", "Netherlands",
                                  "Poland", "Italy", "Denmark"};
const char* const kCategories[] = {"RETAIL", "WHOLE", "OEM", "GOV", "EDU", "PRIV", "EXPORT"};
const char* const kNotes[] = {"", "", "", "VIP", "LATE", "NEW", "HOLD", "X"};

template <typename T, std::size_t N>
const char* Pick(std::mt19937_64& rng, T (&list)[N]) {
  return list[rng() % N];
}

// All values of all records, each field a terminated text of at most its width, records one
// after the other (kSlots.size bytes each). Built once; both engines append from it.
class Records {
 public:
  explicit Records(std::uint32_t count) : count_(count), store_(std::size_t{count} * kSlots.size, '\0') {
    std::mt19937_64 rng(20240611);
    char buf[64];
    for (std::uint32_t r = 0; r < count; ++r) {
      auto put = [&](unsigned field, const char* text) {
        // Cut to the field's width, as a fixed-width field would; the slot stays terminated.
        char* slot = &store_[std::size_t{r} * kSlots.size + kSlots.at[field]];
        const std::size_t n = std::min<std::size_t>(std::strlen(text), kColumns[field].len);
        std::memcpy(slot, text, n);
      };
      const char* first = Pick(rng, kFirst);
      const char* last = Pick(rng, kLast);
      std::snprintf(buf, sizeof buf, "K%07u", r + 1);
      put(0, buf);
      put(1, first);
      put(2, last);
      std::snprintf(buf, sizeof buf, "%s%s%s", Pick(rng, kCompanyA), Pick(rng, kCompanyB), Pick(rng, kCompanyC));
      put(3, buf);
      std::snprintf(buf, sizeof buf, "%s %u%s", Pick(rng, kStreets), static_cast<unsigned>(rng() % 180 + 1),
                    rng() % 7 == 0 ? "a" : "");
      put(4, buf);
      put(5, Pick(rng, kCities));
      std::snprintf(buf, sizeof buf, "%05u", static_cast<unsigned>(rng() % 99999));
      put(6, buf);
      std::snprintf(buf, sizeof buf, "%c%c", static_cast<char>('A' + rng() % 26), static_cast<char>('A' + rng() % 26));
      put(7, buf);
      put(8, Pick(rng, kCountries));
      std::snprintf(buf, sizeof buf, "+49 %u %u", static_cast<unsigned>(rng() % 900 + 100),
                    static_cast<unsigned>(rng() % 9000000 + 100000));
      put(9, buf);
      std::snprintf(buf, sizeof buf, "%c.%s@example.de", first[0], last);
      put(10, buf);
      std::snprintf(buf, sizeof buf, "%04u%02u%02u", static_cast<unsigned>(1930 + rng() % 80),
                    static_cast<unsigned>(1 + rng() % 12), static_cast<unsigned>(1 + rng() % 28));
      put(11, buf);
      std::snprintf(buf, sizeof buf, "%04u%02u%02u", static_cast<unsigned>(1995 + rng() % 30),
                    static_cast<unsigned>(1 + rng() % 12), static_cast<unsigned>(1 + rng() % 28));
      put(12, buf);
      put(13, rng() % 10 == 0 ? "I" : "A");
      put(14, Pick(rng, kCategories));
      const long long cents = static_cast<long long>(rng() % 200000000) - 20000000;
      std::snprintf(buf, sizeof buf, "%10.2f", static_cast<double>(cents) / 100.0);
      put(15, buf);
      std::snprintf(buf, sizeof buf, "%8u", static_cast<unsigned>(rng() % 50) * 1000);
      put(16, buf);
      std::snprintf(buf, sizeof buf, "R%03u", static_cast<unsigned>(rng() % 400));
      put(17, buf);
      std::snprintf(buf, sizeof buf, "%04X", static_cast<unsigned>(rng() % 65536));
      put(18, buf);
      put(19, Pick(rng, kNotes));
    }
  }

  std::uint32_t count() const { return count_; }
  // Record r's (0-based) field f as a terminated text.
  const char* Value(std::uint32_t r, unsigned f) const { return &store_[std::size_t{r} * kSlots.size + kSlots.at[f]]; }

 private:
  std::uint32_t count_;
  std::vector<char> store_;
};

// ---- The run's shared state ---------------------------------------------------------------------

std::uint32_t RecordCountFromEnv() {
  const char* s = std::getenv("KVD_BENCH_RECORDS");
  if (s == nullptr || *s == '\0') return 1000000;
  const long long n = std::atoll(s);
  return n < 1 ? 1 : n > 20000000 ? 20000000 : static_cast<std::uint32_t>(n);
}

// A private directory under the system's temporary directory, removed with everything in it.
class ScratchDir {
 public:
  ScratchDir() {
    std::random_device rd;
    for (int tries = 0; tries < 100; ++tries) {
      fs::path p = fs::temp_directory_path() / ("kvd-bench-" + std::to_string(rd()));
      std::error_code ec;
      if (fs::create_directory(p, ec)) {
        path_ = p;
        return;
      }
    }
    std::fprintf(stderr, "kvd_bench: cannot make a temporary directory\n");
    std::exit(2);
  }
  ~ScratchDir() {
    std::error_code ec;
    fs::remove_all(path_, ec);
  }
  std::string operator/(const char* name) const { return (path_ / name).string(); }

 private:
  fs::path path_;
};

[[noreturn]] void Die(const std::string& what) {
  std::fprintf(stderr, "kvd_bench: %s\n", what.c_str());
  std::exit(2);
}

void SqliteCheck(int rc, sqlite3* db, const char* what) {
  if (rc != SQLITE_OK && rc != SQLITE_DONE && rc != SQLITE_ROW)
    Die(std::string(what) + ": " + (db ? sqlite3_errmsg(db) : sqlite3_errstr(rc)));
}

// One engine state set up as the table layer sets its own up, minus the lock waiting.
struct Engine {
  CODE4 code;
  Engine() {
    code4initLow(&code, nullptr, 0, sizeof(CODE4), 0);
    code.autoOpen = 0;
    code.safety = 0;
    code.errOpen = 1;
  }
  ~Engine() { code4initUndo(&code); }
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;
};

void ExecOrDie(sqlite3* db, const char* sql) {
  char* err = nullptr;
  if (sqlite3_exec(db, sql, nullptr, nullptr, &err) != SQLITE_OK) {
    std::string msg = std::string(sql) + ": " + (err ? err : "?");
    sqlite3_free(err);
    Die(msg);
  }
}

sqlite3* OpenSqlite(const std::string& path, int flags) {
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, flags, nullptr) != SQLITE_OK) Die("sqlite3_open_v2 " + path);
  ExecOrDie(db, "PRAGMA synchronous=NORMAL");
  return db;
}

// ---- Tags and indexes ---------------------------------------------------------------------------

// Each tag orders by one field and bears its name; SQLite gets an index on that column.
constexpr TAG4INFO kNoMoreTags{nullptr, nullptr, nullptr, 0, 0};
constexpr TAG4INFO kOneTag[] = {{"LASTNAME", "LASTNAME", nullptr, 0, 0}, kNoMoreTags};
constexpr TAG4INFO kTwoTags[] = {{"CUSTNO", "CUSTNO", nullptr, 0, 0},
                                 {"LASTNAME", "LASTNAME", nullptr, 0, 0},
                                 kNoMoreTags};
constexpr TAG4INFO kThreeTags[] = {{"CUSTNO", "CUSTNO", nullptr, 0, 0},
                                   {"LASTNAME", "LASTNAME", nullptr, 0, 0},
                                   {"PHONE", "PHONE", nullptr, 0, 0},
                                   kNoMoreTags};

// SQLite's index for a tag: "i_" and the tag's name.
std::string SqliteIndexName(const TAG4INFO& tag) { return std::string("i_") + tag.name; }

// Creates SQLite's indexes for `tags` on table t, in the connection's current transaction.
void IndexSqlite(sqlite3* db, const TAG4INFO* tags) {
  for (const TAG4INFO* t = tags; t && t->name; ++t)
    ExecOrDie(db, ("CREATE INDEX " + SqliteIndexName(*t) + " ON t(" + t->expression + ")").c_str());
}

// Dies unless SQLite answers `sql` through index `index` without sorting on the side: a
// benchmark of an indexed read must not quietly measure a full scan or a sort.
void RequireIndexPlan(sqlite3* db, const std::string& sql, const std::string& index) {
  sqlite3_stmt* st = nullptr;
  SqliteCheck(sqlite3_prepare_v2(db, ("EXPLAIN QUERY PLAN " + sql).c_str(), -1, &st, nullptr), db, "prepare EXPLAIN");
  std::string plan;
  while (sqlite3_step(st) == SQLITE_ROW) {
    const unsigned char* detail = sqlite3_column_text(st, 3);
    plan += std::string(detail ? reinterpret_cast<const char*>(detail) : "") + "; ";
  }
  sqlite3_finalize(st);
  if (plan.find("USING INDEX " + index) == std::string::npos || plan.find("TEMP B-TREE") != std::string::npos)
    Die("SQLite does not answer '" + sql + "' through " + index + ": " + plan);
}

// ---- Writing the tables ---------------------------------------------------------------------------

// Builds a table of all records with our engine at `path` (replacing one that is there); with
// `tags` the table's own index is made first and kept current by every append.
void WriteOurs(const std::string& path, const Records& recs, const TAG4INFO* tags = nullptr) {
  Engine e;
  std::vector<FIELD4INFO> info;
  for (const Column& c : kColumns) info.push_back(FIELD4INFO{c.name, 'C', c.len, 0, 0});
  info.push_back(FIELD4INFO{nullptr, 0, 0, 0, 0});
  DATA4St* d = d4create(&e.code, path.c_str(), info.data(), tags);
  if (!d) Die("d4create " + path + ": " + error4lastDetail(&e.code));
  if (d4lockAll(d) != 0) Die("d4lockAll");
  std::array<FIELD4St*, kFields> f{};
  for (unsigned i = 0; i < kFields; ++i) f[i] = d4fieldJ(d, static_cast<short>(i + 1));
  for (std::uint32_t r = 0; r < recs.count(); ++r) {
    d4appendStart(d, 0);
    for (unsigned i = 0; i < kFields; ++i) f4assign(f[i], recs.Value(r, i));
    if (d4append(d) != 0) Die(std::string("d4append: ") + error4lastDetail(&e.code));
  }
  if (d4close(d) != 0) Die("d4close");
}

// The same with SQLite; `tags` become indexes made before the inserts.
void WriteSqlite(const std::string& path, const Records& recs, const TAG4INFO* tags = nullptr) {
  sqlite3* db = OpenSqlite(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  std::string create = "CREATE TABLE t(";
  std::string insert = "INSERT INTO t VALUES(";
  for (unsigned i = 0; i < kFields; ++i) {
    create += std::string(i ? ", " : "") + kColumns[i].name + " TEXT";
    insert += i ? ", ?" : "?";
  }
  ExecOrDie(db, (create + ")").c_str());
  IndexSqlite(db, tags);
  sqlite3_stmt* st = nullptr;
  SqliteCheck(sqlite3_prepare_v2(db, (insert + ")").c_str(), -1, &st, nullptr), db, "prepare INSERT");
  ExecOrDie(db, "BEGIN");
  for (std::uint32_t r = 0; r < recs.count(); ++r) {
    for (unsigned i = 0; i < kFields; ++i) sqlite3_bind_text(st, static_cast<int>(i + 1), recs.Value(r, i), -1, SQLITE_STATIC);
    if (sqlite3_step(st) != SQLITE_DONE) Die(std::string("INSERT: ") + sqlite3_errmsg(db));
    sqlite3_reset(st);
  }
  ExecOrDie(db, "COMMIT");
  sqlite3_finalize(st);
  sqlite3_close(db);
}

// Indexes the existing table at `path` with our engine: its own index with `tags`.
void IndexOurs(const std::string& path, const TAG4INFO* tags) {
  Engine e;
  DATA4St* d = d4open(&e.code, path.c_str());
  if (!d) Die("d4open " + path + ": " + error4lastDetail(&e.code));
  if (!i4create(d, nullptr, tags)) Die("i4create " + path + ": " + error4lastDetail(&e.code));
  if (d4close(d) != 0) Die("d4close");
}

// The same with SQLite: every index in one transaction.
void IndexSqliteFile(const std::string& path, const TAG4INFO* tags) {
  sqlite3* db = OpenSqlite(path, SQLITE_OPEN_READWRITE);
  ExecOrDie(db, "BEGIN");
  IndexSqlite(db, tags);
  ExecOrDie(db, "COMMIT");
  sqlite3_close(db);
}

// Our table's own index file: the table's name with .CDX.
std::string OwnIndexOf(const std::string& table) { return fs::path(table).replace_extension(".CDX").string(); }

// Removes a table of either engine: our table with its own index, SQLite's database with its journal.
void RemoveTable(const std::string& path) {
  std::error_code ec;
  fs::remove(path, ec);
  fs::remove(path + "-journal", ec);
  fs::remove(OwnIndexOf(path), ec);
}

// Copies a table of either engine (our table with its own index when it has one) to `to`.
void CopyTable(const std::string& from, const std::string& to) {
  RemoveTable(to);
  std::error_code ec;
  if (!fs::copy_file(from, to, ec)) Die("copy " + from + ": " + ec.message());
  if (fs::exists(OwnIndexOf(from)) && !fs::copy_file(OwnIndexOf(from), OwnIndexOf(to), ec))
    Die("copy " + OwnIndexOf(from) + ": " + ec.message());
}

// What every benchmark shares: the values, the scratch directory and the two read-only tables.
struct World {
  Records recs;
  ScratchDir dir;
  std::string ours;    // the table our read benchmarks use
  std::string sqlite;  // the database SQLite's read benchmarks use
  std::vector<std::uint32_t> random_recs;  // 1-based record numbers in random order

  World() : recs(RecordCountFromEnv()), ours(dir / "CUSTOMER.DBF"), sqlite(dir / "customer.db") {
    std::fprintf(stderr, "kvd_bench: building %u records for each engine in a temporary directory\n", recs.count());
    WriteOurs(ours, recs);
    WriteSqlite(sqlite, recs);
    std::mt19937 rng(7);
    random_recs.resize(1u << 20);
    for (auto& r : random_recs) r = static_cast<std::uint32_t>(rng() % recs.count()) + 1;
  }
};

World& TheWorld() {
  static World w;
  return w;
}

// Copies of the world's two tables with the three tags / indexes, for the indexed reads and the
// pack; built at their first use.
struct IndexedTables {
  std::string ours;
  std::string sqlite;
  explicit IndexedTables(World& w) : ours(w.dir / "CUSTIDX.DBF"), sqlite(w.dir / "custidx.db") {
    std::fprintf(stderr, "kvd_bench: indexing copies of both tables\n");
    CopyTable(w.ours, ours);
    IndexOurs(ours, kThreeTags);
    CopyTable(w.sqlite, sqlite);
    IndexSqliteFile(sqlite, kThreeTags);
  }
};

IndexedTables& TheIndexedTables() {
  static IndexedTables t(TheWorld());
  return t;
}

// The reader's own buffer every field is copied into, as a caller that uses the values would.
struct Sink {
  char bytes[256];
  std::uint64_t total = 0;
  void Take(const void* p, std::size_t n) {
    std::memcpy(bytes, p, n);
    total += n;
    benchmark::DoNotOptimize(bytes);
  }
};

// ---- Append ---------------------------------------------------------------------------------

// With `tags` the new table keeps them current (Append2).
void BM_Append_Kvd(benchmark::State& state, const TAG4INFO* tags) {
  World& w = TheWorld();
  const std::string path = w.dir / "APPEND.DBF";
  for (auto _ : state) {
    WriteOurs(path, w.recs, tags);
    state.PauseTiming();
    RemoveTable(path);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * w.recs.count());
}

void BM_Append_Sqlite(benchmark::State& state, const TAG4INFO* tags) {
  World& w = TheWorld();
  const std::string path = w.dir / "append.db";
  for (auto _ : state) {
    WriteSqlite(path, w.recs, tags);
    state.PauseTiming();
    RemoveTable(path);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * w.recs.count());
}

// ---- Scan -----------------------------------------------------------------------------------

void BM_Scan_Kvd(benchmark::State& state) {
  World& w = TheWorld();
  Engine e;
  DATA4St* d = d4open(&e.code, w.ours.c_str());
  if (!d) Die("d4open " + w.ours);
  std::array<FIELD4St*, kFields> f{};
  std::array<unsigned, kFields> len{};
  for (unsigned i = 0; i < kFields; ++i) {
    f[i] = d4fieldJ(d, static_cast<short>(i + 1));
    len[i] = static_cast<unsigned>(f4len(f[i]));
  }
  Sink sink;
  std::uint64_t seen = 0;
  for (auto _ : state) {
    for (int rc = d4top(d); rc == 0 && !d4eof(d); rc = d4skip(d, 1)) {
      for (unsigned i = 0; i < kFields; ++i) sink.Take(f4ptr(f[i]), len[i]);
      ++seen;
    }
  }
  if (seen != static_cast<std::uint64_t>(state.iterations()) * w.recs.count()) Die("scan missed records");
  state.SetItemsProcessed(static_cast<std::int64_t>(seen));
  d4close(d);
}

void BM_Scan_Sqlite(benchmark::State& state) {
  World& w = TheWorld();
  sqlite3* db = OpenSqlite(w.sqlite, SQLITE_OPEN_READWRITE);
  sqlite3_stmt* st = nullptr;
  SqliteCheck(sqlite3_prepare_v2(db, "SELECT * FROM t", -1, &st, nullptr), db, "prepare SELECT");
  Sink sink;
  std::uint64_t seen = 0;
  for (auto _ : state) {
    while (sqlite3_step(st) == SQLITE_ROW) {
      for (int i = 0; i < static_cast<int>(kFields); ++i) {
        const unsigned char* p = sqlite3_column_text(st, i);
        sink.Take(p, static_cast<std::size_t>(sqlite3_column_bytes(st, i)));
      }
      ++seen;
    }
    sqlite3_reset(st);
  }
  if (seen != static_cast<std::uint64_t>(state.iterations()) * w.recs.count()) Die("scan missed rows");
  state.SetItemsProcessed(static_cast<std::int64_t>(seen));
  sqlite3_finalize(st);
  sqlite3_close(db);
}

// ---- Random reads by record number ----------------------------------------------------------

void BM_Random_Kvd(benchmark::State& state) {
  World& w = TheWorld();
  Engine e;
  DATA4St* d = d4open(&e.code, w.ours.c_str());
  if (!d) Die("d4open " + w.ours);
  std::array<FIELD4St*, kFields> f{};
  std::array<unsigned, kFields> len{};
  for (unsigned i = 0; i < kFields; ++i) {
    f[i] = d4fieldJ(d, static_cast<short>(i + 1));
    len[i] = static_cast<unsigned>(f4len(f[i]));
  }
  Sink sink;
  std::size_t k = 0;
  const std::size_t mask = w.random_recs.size() - 1;
  for (auto _ : state) {
    if (d4go(d, static_cast<long>(w.random_recs[k++ & mask])) != 0) Die("d4go");
    for (unsigned i = 0; i < kFields; ++i) sink.Take(f4ptr(f[i]), len[i]);
  }
  state.SetItemsProcessed(state.iterations());
  d4close(d);
}

void BM_Random_Sqlite(benchmark::State& state) {
  World& w = TheWorld();
  sqlite3* db = OpenSqlite(w.sqlite, SQLITE_OPEN_READWRITE);
  sqlite3_stmt* st = nullptr;
  SqliteCheck(sqlite3_prepare_v2(db, "SELECT * FROM t WHERE rowid = ?", -1, &st, nullptr), db, "prepare SELECT");
  Sink sink;
  std::size_t k = 0;
  const std::size_t mask = w.random_recs.size() - 1;
  for (auto _ : state) {
    sqlite3_bind_int64(st, 1, w.random_recs[k++ & mask]);
    if (sqlite3_step(st) != SQLITE_ROW) Die("SELECT by rowid found nothing");
    for (int i = 0; i < static_cast<int>(kFields); ++i) {
      const unsigned char* p = sqlite3_column_text(st, i);
      sink.Take(p, static_cast<std::size_t>(sqlite3_column_bytes(st, i)));
    }
    sqlite3_reset(st);
  }
  state.SetItemsProcessed(state.iterations());
  sqlite3_finalize(st);
  sqlite3_close(db);
}

// ---- Reopen, read one record, close ----------------------------------------------------------

void BM_Reopen_Kvd(benchmark::State& state) {
  World& w = TheWorld();
  Engine e;
  Sink sink;
  std::size_t k = 0;
  const std::size_t mask = w.random_recs.size() - 1;
  for (auto _ : state) {
    DATA4St* d = d4open(&e.code, w.ours.c_str());
    if (!d) Die("d4open " + w.ours);
    if (d4go(d, static_cast<long>(w.random_recs[k++ & mask])) != 0) Die("d4go");
    for (short i = 1; i <= static_cast<short>(kFields); ++i) {
      FIELD4St* f = d4fieldJ(d, i);
      sink.Take(f4ptr(f), f4len(f));
    }
    d4close(d);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_Reopen_Sqlite(benchmark::State& state) {
  World& w = TheWorld();
  Sink sink;
  std::size_t k = 0;
  const std::size_t mask = w.random_recs.size() - 1;
  for (auto _ : state) {
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(w.sqlite.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) Die("sqlite3_open_v2");
    sqlite3_stmt* st = nullptr;
    SqliteCheck(sqlite3_prepare_v2(db, "SELECT * FROM t WHERE rowid = ?", -1, &st, nullptr), db, "prepare SELECT");
    sqlite3_bind_int64(st, 1, w.random_recs[k++ & mask]);
    if (sqlite3_step(st) != SQLITE_ROW) Die("SELECT by rowid found nothing");
    for (int i = 0; i < static_cast<int>(kFields); ++i) {
      const unsigned char* p = sqlite3_column_text(st, i);
      sink.Take(p, static_cast<std::size_t>(sqlite3_column_bytes(st, i)));
    }
    sqlite3_finalize(st);
    sqlite3_close(db);
  }
  state.SetItemsProcessed(state.iterations());
}

// ---- Index build on the existing table ----------------------------------------------------------

void BM_IndexBuild_Kvd(benchmark::State& state, const TAG4INFO* tags) {
  World& w = TheWorld();
  const std::string path = w.dir / "BUILD.DBF";
  for (auto _ : state) {
    state.PauseTiming();
    CopyTable(w.ours, path);
    state.ResumeTiming();
    IndexOurs(path, tags);
  }
  RemoveTable(path);
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * w.recs.count());
}

void BM_IndexBuild_Sqlite(benchmark::State& state, const TAG4INFO* tags) {
  World& w = TheWorld();
  const std::string path = w.dir / "build.db";
  for (auto _ : state) {
    state.PauseTiming();
    CopyTable(w.sqlite, path);
    state.ResumeTiming();
    IndexSqliteFile(path, tags);
  }
  RemoveTable(path);
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * w.recs.count());
}

// ---- Seek by key ------------------------------------------------------------------------------

// Opens our indexed table with its own index and the tag `tag` selected.
DATA4St* OpenIndexed(Engine& e, const std::string& path, const char* tag) {
  DATA4St* d = d4open(&e.code, path.c_str());
  if (!d) Die("d4open " + path + ": " + error4lastDetail(&e.code));
  if (!i4open(d, nullptr)) Die("i4open " + path + ": " + error4lastDetail(&e.code));
  TAG4St* t = d4tag(d, tag);
  if (!t) Die(std::string("no tag ") + tag + " in " + path);
  d4tagSelect(d, t);
  return d;
}

void BM_Seek_Kvd(benchmark::State& state) {
  World& w = TheWorld();
  IndexedTables& x = TheIndexedTables();
  Engine e;
  DATA4St* d = OpenIndexed(e, x.ours, "CUSTNO");
  std::array<FIELD4St*, kFields> f{};
  std::array<unsigned, kFields> len{};
  for (unsigned i = 0; i < kFields; ++i) {
    f[i] = d4fieldJ(d, static_cast<short>(i + 1));
    len[i] = static_cast<unsigned>(f4len(f[i]));
  }
  Sink sink;
  std::size_t k = 0;
  const std::size_t mask = w.random_recs.size() - 1;
  for (auto _ : state) {
    const char* key = w.recs.Value(w.random_recs[k++ & mask] - 1, 0);
    if (d4seek(d, key) != 0) Die(std::string("d4seek missed ") + key);
    if (std::memcmp(f4ptr(f[0]), key, std::strlen(key)) != 0) Die(std::string("d4seek landed beside ") + key);
    for (unsigned i = 0; i < kFields; ++i) sink.Take(f4ptr(f[i]), len[i]);
  }
  state.SetItemsProcessed(state.iterations());
  d4close(d);
}

void BM_Seek_Sqlite(benchmark::State& state) {
  World& w = TheWorld();
  IndexedTables& x = TheIndexedTables();
  sqlite3* db = OpenSqlite(x.sqlite, SQLITE_OPEN_READWRITE);
  const std::string sql = "SELECT * FROM t WHERE CUSTNO = ?";
  RequireIndexPlan(db, sql, "i_CUSTNO");
  sqlite3_stmt* st = nullptr;
  SqliteCheck(sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr), db, "prepare SELECT");
  Sink sink;
  std::size_t k = 0;
  const std::size_t mask = w.random_recs.size() - 1;
  for (auto _ : state) {
    const char* key = w.recs.Value(w.random_recs[k++ & mask] - 1, 0);
    sqlite3_bind_text(st, 1, key, -1, SQLITE_STATIC);
    if (sqlite3_step(st) != SQLITE_ROW) Die(std::string("SELECT by CUSTNO missed ") + key);
    const unsigned char* got = sqlite3_column_text(st, 0);
    if (!got || std::strcmp(reinterpret_cast<const char*>(got), key) != 0)
      Die(std::string("SELECT by CUSTNO found another row than ") + key);
    for (int i = 0; i < static_cast<int>(kFields); ++i) {
      const unsigned char* p = sqlite3_column_text(st, i);
      sink.Take(p, static_cast<std::size_t>(sqlite3_column_bytes(st, i)));
    }
    sqlite3_reset(st);
  }
  state.SetItemsProcessed(state.iterations());
  sqlite3_finalize(st);
  sqlite3_close(db);
}

// ---- Scan in tag order ------------------------------------------------------------------------

void BM_TagScan_Kvd(benchmark::State& state) {
  World& w = TheWorld();
  IndexedTables& x = TheIndexedTables();
  Engine e;
  DATA4St* d = OpenIndexed(e, x.ours, "LASTNAME");
  FIELD4St* name = d4field(d, "LASTNAME");
  FIELD4St* balance = d4field(d, "BALANCE");
  const unsigned name_len = static_cast<unsigned>(f4len(name)), balance_len = static_cast<unsigned>(f4len(balance));
  Sink sink;
  std::uint64_t seen = 0;
  for (auto _ : state) {
    char prev[16] = {};
    for (int rc = d4top(d); rc == 0 && !d4eof(d); rc = d4skip(d, 1)) {
      if (std::memcmp(prev, f4ptr(name), name_len) > 0) Die("LASTNAME tag out of order");
      std::memcpy(prev, f4ptr(name), name_len);
      sink.Take(f4ptr(balance), balance_len);
      ++seen;
    }
  }
  if (seen != static_cast<std::uint64_t>(state.iterations()) * w.recs.count()) Die("tag scan missed records");
  state.SetItemsProcessed(static_cast<std::int64_t>(seen));
  d4close(d);
}

void BM_TagScan_Sqlite(benchmark::State& state) {
  World& w = TheWorld();
  IndexedTables& x = TheIndexedTables();
  sqlite3* db = OpenSqlite(x.sqlite, SQLITE_OPEN_READWRITE);
  const std::string sql = "SELECT LASTNAME, BALANCE FROM t ORDER BY LASTNAME";
  RequireIndexPlan(db, sql, "i_LASTNAME");
  sqlite3_stmt* st = nullptr;
  SqliteCheck(sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr), db, "prepare SELECT");
  Sink sink;
  std::uint64_t seen = 0;
  for (auto _ : state) {
    char prev[16] = {};
    while (sqlite3_step(st) == SQLITE_ROW) {
      const char* n = reinterpret_cast<const char*>(sqlite3_column_text(st, 0));
      const std::size_t n_len = static_cast<std::size_t>(sqlite3_column_bytes(st, 0));
      if (!n || n_len >= sizeof prev || std::strcmp(prev, n) > 0) Die("ORDER BY LASTNAME out of order");
      std::memcpy(prev, n, n_len + 1);
      sink.Take(sqlite3_column_text(st, 1), static_cast<std::size_t>(sqlite3_column_bytes(st, 1)));
      ++seen;
    }
    sqlite3_reset(st);
  }
  if (seen != static_cast<std::uint64_t>(state.iterations()) * w.recs.count()) Die("ordered scan missed rows");
  state.SetItemsProcessed(static_cast<std::int64_t>(seen));
  sqlite3_finalize(st);
  sqlite3_close(db);
}

// ---- Delete every 10th record, then pack --------------------------------------------------------

void BM_DeletePack_Kvd(benchmark::State& state) {
  World& w = TheWorld();
  IndexedTables& x = TheIndexedTables();
  const std::string path = w.dir / "PACK.DBF";
  const std::uint32_t n = w.recs.count();
  for (auto _ : state) {
    state.PauseTiming();
    CopyTable(x.ours, path);
    state.ResumeTiming();
    Engine e;
    DATA4St* d = d4open(&e.code, path.c_str());
    if (!d) Die("d4open " + path + ": " + error4lastDetail(&e.code));
    if (!i4open(d, nullptr)) Die("i4open " + path + ": " + error4lastDetail(&e.code));
    if (d4lockAll(d) != 0) Die("d4lockAll");
    for (std::uint32_t r = 10; r <= n; r += 10) {
      if (d4go(d, static_cast<long>(r)) != 0) Die("d4go");
      d4delete(d);
    }
    if (d4pack(d) != 0) Die(std::string("d4pack: ") + error4lastDetail(&e.code));
    state.PauseTiming();
    // The tags follow the pack: the 10th record's customer number is gone, the 11th record is now 10.
    if (d4recCount(d) != static_cast<long>(n - n / 10)) Die("d4pack left the wrong count");
    d4tagSelect(d, d4tag(d, "CUSTNO"));
    if (n >= 11 && (d4seek(d, w.recs.Value(9, 0)) == 0 || d4seek(d, w.recs.Value(10, 0)) != 0 || d4recNo(d) != 10))
      Die("the CUSTNO tag does not match the packed table");
    state.ResumeTiming();
    if (d4close(d) != 0) Die("d4close");
  }
  RemoveTable(path);
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * n);
}

void BM_DeletePack_Sqlite(benchmark::State& state) {
  World& w = TheWorld();
  IndexedTables& x = TheIndexedTables();
  const std::string path = w.dir / "pack.db";
  const std::uint32_t n = w.recs.count();
  for (auto _ : state) {
    state.PauseTiming();
    CopyTable(x.sqlite, path);
    state.ResumeTiming();
    sqlite3* db = OpenSqlite(path, SQLITE_OPEN_READWRITE);
    ExecOrDie(db, "DELETE FROM t WHERE rowid % 10 = 0");
    ExecOrDie(db, "VACUUM");
    state.PauseTiming();
    sqlite3_stmt* st = nullptr;
    SqliteCheck(sqlite3_prepare_v2(db, "SELECT count(*) FROM t", -1, &st, nullptr), db, "prepare count");
    if (sqlite3_step(st) != SQLITE_ROW || sqlite3_column_int64(st, 0) != static_cast<sqlite3_int64>(n - n / 10))
      Die("DELETE left the wrong count");
    sqlite3_finalize(st);
    state.ResumeTiming();
    sqlite3_close(db);
  }
  RemoveTable(path);
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * n);
}

BENCHMARK_CAPTURE(BM_Append_Kvd, plain, nullptr)->Name("Append/kvd")->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_Append_Sqlite, plain, nullptr)->Name("Append/sqlite")->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_Scan_Kvd)->Name("Scan/kvd")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Scan_Sqlite)->Name("Scan/sqlite")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Random_Kvd)->Name("Random/kvd")->UseRealTime();
BENCHMARK(BM_Random_Sqlite)->Name("Random/sqlite")->UseRealTime();
BENCHMARK(BM_Reopen_Kvd)->Name("Reopen/kvd")->UseRealTime();
BENCHMARK(BM_Reopen_Sqlite)->Name("Reopen/sqlite")->UseRealTime();
// The million-record writes run once each, which keeps the whole run short; the index builds,
// which take a second or two, run three times over and the table takes the best.
void Once(benchmark::internal::Benchmark* b) { b->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1); }
void Thrice(benchmark::internal::Benchmark* b) { Once(b); b->Repetitions(3); }
BENCHMARK_CAPTURE(BM_IndexBuild_Kvd, one, kOneTag)->Name("IndexBuild1/kvd")->Apply(Thrice);
BENCHMARK_CAPTURE(BM_IndexBuild_Sqlite, one, kOneTag)->Name("IndexBuild1/sqlite")->Apply(Thrice);
BENCHMARK_CAPTURE(BM_IndexBuild_Kvd, three, kThreeTags)->Name("IndexBuild3/kvd")->Apply(Thrice);
BENCHMARK_CAPTURE(BM_IndexBuild_Sqlite, three, kThreeTags)->Name("IndexBuild3/sqlite")->Apply(Thrice);
BENCHMARK(BM_Seek_Kvd)->Name("Seek/kvd")->UseRealTime();
BENCHMARK(BM_Seek_Sqlite)->Name("Seek/sqlite")->UseRealTime();
BENCHMARK(BM_TagScan_Kvd)->Name("TagScan/kvd")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_TagScan_Sqlite)->Name("TagScan/sqlite")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Append_Kvd, two_tags, kTwoTags)->Name("Append2/kvd")->Apply(Once);
BENCHMARK_CAPTURE(BM_Append_Sqlite, two_tags, kTwoTags)->Name("Append2/sqlite")->Apply(Once);
BENCHMARK(BM_DeletePack_Kvd)->Name("DeletePack/kvd")->Apply(Once);
BENCHMARK(BM_DeletePack_Sqlite)->Name("DeletePack/sqlite")->Apply(Once);

// ---- The comparison table ---------------------------------------------------------------------

// Prints the usual console report and keeps each run's rate for the table at the end.
class CollectingReporter : public benchmark::ConsoleReporter {
 public:
  // Plain text (no colour codes), so that a saved report reads cleanly.
  CollectingReporter() : ConsoleReporter(OO_Tabular) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.run_type != Run::RT_Iteration || r.error_occurred) continue;
      auto it = r.counters.find("items_per_second");
      if (it == r.counters.end()) continue;
      const std::string name = r.run_name.function_name;  // "Scan/kvd"
      const std::size_t slash = name.find('/');
      if (slash == std::string::npos) continue;
      const std::string op = name.substr(0, slash);
      if (rates_.find(op) == rates_.end()) order_.push_back(op);
      // With repetitions the best run counts: the others lost time to whatever else the machine did.
      double& rate = rates_[op][name.substr(slash + 1)];
      rate = std::max(rate, it->second.value);
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void PrintComparison() const {
    std::printf("\n%-12s %16s %16s %12s\n", "operation", "kvd rec/s", "sqlite rec/s", "kvd/sqlite");
    for (const std::string& op : order_) {
      auto it = rates_.find(op);
      if (it == rates_.end()) continue;
      auto ours = it->second.find("kvd");
      auto theirs = it->second.find("sqlite");
      if (ours == it->second.end() || theirs == it->second.end()) continue;
      std::printf("%-12s %16.0f %16.0f %12.2f\n", op.c_str(), ours->second, theirs->second,
                  theirs->second > 0 ? ours->second / theirs->second : 0.0);
    }
  }

 private:
  std::map<std::string, std::map<std::string, double>> rates_;
  std::vector<std::string> order_;  // operations in the order they ran
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  CollectingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintComparison();
  benchmark::Shutdown();
  return 0;
}
