// Fuzz target: the input, taken as it is, is the compound index of a small fixed table
// (cdx_fuzz_table.h), opened and used every way the table layer uses an index.
//
// Once per process the table T.DBF is made with our engine in a private directory and its bytes
// kept. For each input the table is put back as it was made, the input written as T.CDX, and a
// fresh engine state opens the table (autoOpen 0, errOpen 0) and then the index (i4open). When the
// index opens:
//   1. every tag is selected and walked from d4top to the end and from d4bottom back to the start,
//      every record landed on read; then a few seeks (text, number and date keys, hits, prefixes,
//      misses, past the end) and d4seekNext;
//   2. with the whole table locked, a record's keys are changed, one record deleted and one
//      recalled, and a dozen records appended (keys before, between and after the present ones,
//      duplicates among them), so that the code that keeps tags current runs on damaged trees;
//   3. every tag is walked again, the index rebuilt with i4reindex, and walked once more.
// Each walk stops after kMaxSteps moves, so a chain that runs in a circle cannot hold the target.
// The engine must answer damage with an error, never with a crash, a hang, a leak or a read
// outside its buffers, and a move that reports success must land on a record of the table.
//
// Built as a libFuzzer target (fuzz_cdx) with KVD_FUZZ, else linked with replay_main.cc into
// fuzz_replay_cdx, which runs every file of corpus/cdx through the same function as a test.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "engine/d4all.h"
#include "fuzz/cdx_fuzz_table.h"

// Set by fuzz_replay_cdx: say on stderr what each input came to (never under the fuzzer).
bool g_fuzz_report = false;

namespace {

namespace fs = std::filesystem;

constexpr long kMaxSteps = 10000;  // moves per walk

// The directory this process writes into, and the table as our engine made it; removed at exit.
class Fixture {
 public:
  Fixture() {
    std::random_device rd;
    for (int tries = 0; tries < 100 && dir_.empty(); ++tries) {
      fs::path p = fs::temp_directory_path() / ("kvd-fuzz-cdx-" + std::to_string(rd()) + std::to_string(rd()));
      std::error_code ec;
      if (fs::create_directory(p, ec)) dir_ = p;
    }
    if (dir_.empty()) Fail("cannot make a private directory");
    CODE4 code;
    if (code4initLow(&code, nullptr, 0, sizeof(CODE4), 0) != 0) Fail("code4initLow");
    code.safety = 0;
    DATA4St* d = kvd::fuzz::MakeCdxTable(&code, table(), kvd::fuzz::kCdxTableRecords);
    if (d == nullptr || d4close(d) != 0) Fail(error4lastDetail(&code));
    code4initUndo(&code);
    std::ifstream in(table(), std::ios::binary);
    dbf_.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (dbf_.empty()) Fail("cannot read back the table");
  }
  ~Fixture() {
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }
  std::string table() const { return (dir_ / "T.DBF").string(); }
  std::string index() const { return (dir_ / "T.CDX").string(); }

  // Puts the table back as it was made and the input in place of its index.
  void Prepare(const std::uint8_t* data, std::size_t size) const {
    Write(table(), dbf_.data(), dbf_.size());
    Write(index(), reinterpret_cast<const char*>(data), size);
  }
  // libFuzzer may end the process without running destructors: leave at most an empty directory.
  void Clear() const {
    std::error_code ec;
    fs::remove(table(), ec);
    fs::remove(index(), ec);
  }

 private:
  [[noreturn]] static void Fail(const std::string& what) {
    std::fprintf(stderr, "cdx_fuzz: %s\n", what.c_str());
    std::abort();
  }
  static void Write(const std::string& path, const char* data, std::size_t size) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(data, static_cast<std::streamsize>(size));
    if (!out) Fail("cannot write " + path);
  }

  fs::path dir_;
  std::string dbf_;
};

const Fixture& TheFixture() {
  static const Fixture fixture;
  return fixture;
}

// Keeps the compiler from dropping reads whose results nobody looks at.
volatile std::uint64_t g_sink;

void Consume(const char* p, std::size_t n) {
  std::uint64_t h = n;
  for (std::size_t i = 0; i < n; ++i) h = h * 31 + static_cast<unsigned char>(p[i]);
  g_sink = g_sink + h;
}

// A move that reports success stands on a record of the table.
void CheckLanded(DATA4St* d, int rc, const char* what) {
  if (rc != 0 || d4eof(d) || d4bof(d)) return;
  const long rec = d4recNo(d);
  const long count = d4recCount(d);
  if (count >= 0 && (rec < 1 || rec > count)) {
    std::fprintf(stderr, "cdx_fuzz: %s reported success on record %ld of %ld\n", what, rec, count);
    std::abort();
  }
}

// Reads the current record, and its key in the selected tag.
void ReadRecord(DATA4St* d) {
  Consume(d4record(d), d4recWidth(d));
  g_sink = g_sink + static_cast<std::uint64_t>(d4deleted(d));
  const int n = d4numFields(d);
  for (short j = 1; j <= n; ++j) {
    FIELD4St* f = d4fieldJ(d, j);
    const char* s = f4str(f);
    if (s != nullptr) Consume(s, std::char_traits<char>::length(s));
    g_sink = g_sink + static_cast<std::uint64_t>(f4long(f));
  }
  if (TAG4St* t = d4tagSelected(d)) Consume(t4keyOfRecord(t), static_cast<std::size_t>(t4keyLen(t)));
}

struct WalkCount {
  long forward = 0, backward = 0;
  int forward_rc = 0, backward_rc = 0;
};

// Walks the selected tag both ways, at most kMaxSteps moves each.
WalkCount WalkBothWays(DATA4St* d) {
  WalkCount w;
  int rc = d4top(d);
  for (; rc == 0 && !d4eof(d) && w.forward < kMaxSteps; rc = d4skip(d, 1)) {
    CheckLanded(d, rc, "a forward walk");
    ReadRecord(d);
    ++w.forward;
  }
  w.forward_rc = rc;
  rc = d4bottom(d);
  for (; rc == 0 && !d4eof(d) && !d4bof(d) && w.backward < kMaxSteps; rc = d4skip(d, -1)) {
    CheckLanded(d, rc, "a backward walk");
    ReadRecord(d);
    ++w.backward;
  }
  w.backward_rc = rc;
  return w;
}

// Seeks of every kind of key, each tried on the selected tag whatever its type.
void Seeks(DATA4St* d) {
  static const char* const kKeys[] = {"ID0007", "ID00",  "ID9999", "",     "MEIER",    "Meier", "zoe",  "\xff\xff",
                                      "-12.375", "0",    "1e308",  "-1e308", "20240115", "2023",  "  ",   "T"};
  for (const char* k : kKeys) {
    int rc = d4seek(d, k);
    CheckLanded(d, rc, "d4seek");
    if (rc == 0 || rc == r4after) {
      ReadRecord(d);
      CheckLanded(d, d4skip(d, 1), "a skip after a seek");
      CheckLanded(d, d4skip(d, -2), "a skip back after a seek");
    }
    CheckLanded(d, d4seekNext(d, k), "d4seekNext");
  }
  CheckLanded(d, d4seekDouble(d, -3.5), "d4seekDouble");
  CheckLanded(d, d4seekN(d, "ID\0\0", 4), "d4seekN");
}

void ExerciseTags(DATA4St* d, const char* stage) {
  for (TAG4St* t = d4tagNext(d, nullptr); t != nullptr; t = d4tagNext(d, t)) {
    const int key_len = t4keyLen(t);
    if (key_len < 1 || key_len > 240) {
      std::fprintf(stderr, "cdx_fuzz: tag %s has key length %d\n", t4alias(t), key_len);
      std::abort();
    }
    Consume(t4expr(t), std::char_traits<char>::length(t4expr(t)));
    Consume(t4filter(t), std::char_traits<char>::length(t4filter(t)));
    g_sink = g_sink + static_cast<std::uint64_t>(t4unique(t) + t4descending(t));
    d4tagSelect(d, t);
    const WalkCount w = WalkBothWays(d);
    if (g_fuzz_report)
      std::fprintf(stderr, "  %s: tag %s: %ld forward (%d), %ld back (%d) %s\n", stage, t4alias(t), w.forward,
                   w.forward_rc, w.backward, w.backward_rc, error4lastDetail(d4code(d)));
    Seeks(d);
  }
  d4tagSelect(d, nullptr);
}

// A write that the index refused leaves the record changed; drop the change so that the next move
// is not refused for the same reason.
void Settle(DATA4St* d, int rc) {
  if (rc != 0) d4refresh(d);
}

// Changes, deletes, recalls and appends under the whole-table lock.
void Maintain(DATA4St* d) {
  if (d4lockAll(d) != 0) return;
  FIELD4St* id = d4field(d, "ID");
  FIELD4St* name = d4field(d, "NAME");
  FIELD4St* value = d4field(d, "VALUE");
  FIELD4St* day = d4field(d, "DAY");
  if (d4go(d, 3) == 0) {
    f4assign(id, "ID0999");
    f4assign(name, "Changed");
    f4assignDouble(value, 4.5);
    f4assign(day, "20250101");
    Settle(d, d4flush(d));
  }
  if (d4go(d, 4) == 0) {
    d4delete(d);
    Settle(d, d4flush(d));
  }
  if (d4go(d, 6) == 0) {
    d4recall(d);
    Settle(d, d4flush(d));
  }
  // Patterns 2 and 9 repeat keys of records present; the others fall before, between and after.
  static const int kPatterns[] = {2, 40, 9, 0, 55, 13, 1000, 21, 77, 5, 300, 31};
  for (int p : kPatterns) {
    if (d4appendStart(d, 0) != 0) break;
    d4blank(d);
    kvd::fuzz::FillCdxTableRecord(d, p);
    d4append(d);
  }
  Settle(d, d4unlock(d));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Fixture& fx = TheFixture();
  fx.Prepare(data, size);
  CODE4 code;
  if (code4initLow(&code, nullptr, 0, sizeof(CODE4), 0) != 0) std::abort();
  code.errOpen = 0;
  code.autoOpen = 0;
  code.lockAttempts = 1;
  DATA4St* d = d4open(&code, fx.table().c_str());
  if (d == nullptr) {
    std::fprintf(stderr, "cdx_fuzz: the fixed table does not open: %s\n", error4lastDetail(&code));
    std::abort();
  }
  INDEX4St* ix = i4open(d, nullptr);
  if (g_fuzz_report)
    std::fprintf(stderr, "  index %s (%d) %s\n", ix ? "opened" : "not opened", code.errorCode, error4lastDetail(&code));
  if (ix != nullptr) {
    ExerciseTags(d, "as given");
    Maintain(d);
    ExerciseTags(d, "after changes");
    const int rc = i4reindex(ix);
    if (g_fuzz_report) std::fprintf(stderr, "  reindex: %d %s\n", rc, rc ? error4lastDetail(&code) : "");
    ExerciseTags(d, "after reindex");
  }
  d4close(d);
  code4initUndo(&code);
  fx.Clear();
  return 0;
}
