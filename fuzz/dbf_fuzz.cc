// Fuzz target: a table file and its memo file, both from the input, opened and read in full.
//
// Input layout:
//   bytes 0..3   length L of the table part, little-endian (cut to what the input holds)
//   next L       the table, written as T.DBF
//   the rest     the memo file, written as T.FPT and as T.DBT (absent when empty): the table's
//                version byte decides which of the two the engine looks for
// An input shorter than 4 bytes is a table alone.
//
// For each input the files go into a private directory of this process, a fresh engine state
// opens the table quietly (errOpen 0), walks every record from d4top to d4eof, reads every field
// as text and as numbers and every field through the memo calls (which act on the text of fields
// that are no memo), and closes. Then the memo file is taken away and the table opened and walked
// once more. The engine must answer damage with an error, never with a crash, a leak or a read
// outside its buffers.
//
// Built as a libFuzzer target (fuzz_dbf) with KVD_FUZZ, else linked with replay_main.cc into
// fuzz_replay_dbf, which runs every file of the seed corpus through the same function as a test.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "engine/d4all.h"

// Set by fuzz_replay_dbf: say on stderr what each open and walk came to (never under the fuzzer).
bool g_fuzz_report = false;

namespace {

namespace fs = std::filesystem;

// The directory this process writes its inputs into; removed at exit.
class PrivateDir {
 public:
  PrivateDir() {
    std::random_device rd;
    for (int tries = 0; tries < 100; ++tries) {
      fs::path p = fs::temp_directory_path() / ("kvd-fuzz-" + std::to_string(rd()) + std::to_string(rd()));
      std::error_code ec;
      if (fs::create_directory(p, ec)) {
        path_ = p;
        return;
      }
    }
    std::fprintf(stderr, "dbf_fuzz: cannot make a private directory\n");
    std::abort();
  }
  ~PrivateDir() {
    std::error_code ec;
    fs::remove_all(path_, ec);
  }
  std::string File(const char* name) const { return (path_ / name).string(); }

 private:
  fs::path path_;
};

const PrivateDir& Dir() {
  static const PrivateDir dir;
  return dir;
}

void WriteFile(const std::string& path, const std::uint8_t* data, std::size_t size) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  if (!out) {
    std::fprintf(stderr, "dbf_fuzz: cannot write %s\n", path.c_str());
    std::abort();
  }
}

// Keeps the compiler from dropping reads whose results nobody looks at.
volatile std::uint64_t g_sink;

void Consume(const char* p, std::size_t n) {
  std::uint64_t h = n;
  for (std::size_t i = 0; i < n; ++i) h = h * 31 + static_cast<unsigned char>(p[i]);
  g_sink = g_sink + h;
}

// Reads every field of the current record every way the table layer does.
void ReadRecord(DATA4St* d) {
  Consume(d4record(d), d4recWidth(d));
  g_sink = g_sink + static_cast<std::uint64_t>(d4deleted(d));
  const int n = d4numFields(d);
  for (short j = 1; j <= n; ++j) {
    FIELD4St* f = d4fieldJ(d, j);
    if (f == nullptr) std::abort();  // every number up to d4numFields names a field
    const char* s = f4str(f);
    if (s != nullptr) Consume(s, std::char_traits<char>::length(s));
    g_sink = g_sink + static_cast<std::uint64_t>(f4long(f));
    const double v = f4double(f);
    g_sink = g_sink + (v == v ? 1u : 2u);
    const unsigned len = f4memoLen(f);
    const char* m = f4memoPtr(f);
    // f4memoPtr holds f4memoLen bytes and a terminator.
    if (m != nullptr) Consume(m, len + 1u);
  }
}

// Opens the table, walks it from the top to the end, closes it.
void OpenAndWalk(const std::string& table, const char* what) {
  CODE4 code;
  if (code4initLow(&code, nullptr, 0, sizeof(CODE4), 0) != 0) std::abort();
  code.errOpen = 0;
  code.autoOpen = 0;
  code.lockAttempts = 1;
  DATA4St* d = d4open(&code, table.c_str());
  if (d != nullptr) {
    const long count = d4recCount(d);
    long visited = 0;
    int rc = d4top(d);
    while (rc == 0 && !d4eof(d)) {
      ReadRecord(d);
      ++visited;
      // A walk that goes on past the record count would be an engine fault.
      if (count >= 0 && visited > count) std::abort();
      rc = d4skip(d, 1);
    }
    // Reaching the end without an error means every record was visited.
    if (rc == r4eof || (rc == 0 && d4eof(d)))
      if (count >= 0 && visited != count) std::abort();
    if (g_fuzz_report)
      std::fprintf(stderr, "  %s: opened, %ld of %ld records read, walk ended with %d %s\n", what, visited, count, rc,
                   error4lastDetail(&code));
    d4close(d);
  } else if (g_fuzz_report) {
    std::fprintf(stderr, "  %s: not opened (%d) %s\n", what, code.errorCode, error4lastDetail(&code));
  }
  code4initUndo(&code);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::size_t table_len = size;
  const std::uint8_t* table = data;
  const std::uint8_t* memo = nullptr;
  std::size_t memo_len = 0;
  if (size >= 4) {
    const std::size_t want = static_cast<std::size_t>(data[0]) | (static_cast<std::size_t>(data[1]) << 8) |
                             (static_cast<std::size_t>(data[2]) << 16) | (static_cast<std::size_t>(data[3]) << 24);
    table = data + 4;
    table_len = want < size - 4 ? want : size - 4;
    memo = table + table_len;
    memo_len = size - 4 - table_len;
  }
  const std::string dbf = Dir().File("T.DBF");
  const std::string fpt = Dir().File("T.FPT");
  const std::string dbt = Dir().File("T.DBT");
  WriteFile(dbf, table, table_len);
  std::error_code ec;
  fs::remove(fpt, ec);
  fs::remove(dbt, ec);
  if (memo_len > 0) {
    WriteFile(fpt, memo, memo_len);
    WriteFile(dbt, memo, memo_len);
  }
  OpenAndWalk(dbf, "with memo file");
  // The same table without its memo file.
  fs::remove(fpt, ec);
  fs::remove(dbt, ec);
  OpenAndWalk(dbf, "table alone");
  // libFuzzer may end the process without running destructors: leave at most an empty directory.
  fs::remove(dbf, ec);
  return 0;
}
