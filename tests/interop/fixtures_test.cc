// Tables written by other programs, read by our engine.
//
//  - xbase-foreign/: every table opens read only, every record is visited from d4top to the end,
//    every field and memo reads without an error; where a *_summary.txt lists the table as
//    another reader sees it, field names, types, widths, decimals and the record count agree.
//  - xbase-peer/ people and wide: every field of every record equals the manifest byte for byte,
//    the deleted flags agree, and every memo has the manifest's length and SHA-256.
// The fixture files live outside the project (KVD_FIXTURES_DIR); without them the tests skip.
// Indexes (.CDX) are not read here.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "engine/d4all.h"
#include "tests/interop/interop_json.h"
#include "tests/interop/sha256.h"

namespace {

namespace fs = std::filesystem;
using kvd::interop::Json;
using kvd::interop::Sha256;

const fs::path kFixtures = KVD_FIXTURES_DIR;

std::string ReadFile(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string Upper(std::string s) {
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

std::string Visible(const std::string& s) {
  std::string out;
  for (unsigned char c : s) {
    if (c >= 0x20 && c < 0x7F) {
      out += static_cast<char>(c);
    } else {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\x%02x", c);
      out += buf;
    }
  }
  return "\"" + out + "\"";
}

bool IsMemo(FIELD4St* f) {
  const int t = f4type(f);
  return t == 'M' || t == 'G' || t == 'P' || (t == 'B' && f4len(f) == 10);
}

// An engine state for reading other programs' files: read only, no index, quiet about nothing.
class Reader {
 public:
  Reader() {
    code4initLow(&code_, nullptr, 0, sizeof(CODE4), 0);
    code_.autoOpen = 0;
    code_.readOnly = 1;
    code_.errOpen = 1;
  }
  ~Reader() { code4initUndo(&code_); }
  CODE4* code() { return &code_; }
  std::string Error() { return std::to_string(code_.errorCode) + " " + error4lastDetail(&code_); }

 private:
  CODE4 code_;
};

// ---- xbase-foreign ------------------------------------------------------------------------------

const char* const kForeignTables[] = {"calls", "contacts", "cp1251", "dbase_03", "dbase_30",
                                      "dbase_31", "dbase_83", "dbase_f5", "setup", "types"};

fs::path ForeignDir() { return kFixtures / "xbase-foreign"; }

// What a *_summary.txt says about a table.
struct Summary {
  long records = -1;
  struct Field {
    std::string name;
    std::string type;
    unsigned len;
    unsigned dec;
  };
  std::vector<Field> fields;
};

bool ParseSummary(const fs::path& p, Summary* out) {
  std::ifstream in(p);
  if (!in) return false;
  std::string line;
  bool in_fields = false;
  while (std::getline(in, line)) {
    if (line.rfind("Records:", 0) == 0) out->records = std::atol(line.c_str() + 8);
    if (line.rfind("-----", 0) == 0) {
      in_fields = true;
      continue;
    }
    if (!in_fields) continue;
    std::istringstream words(line);
    Summary::Field f;
    if (words >> f.name >> f.type >> f.len >> f.dec) out->fields.push_back(f);
  }
  return true;
}

class ForeignTable : public ::testing::TestWithParam<const char*> {};

TEST_P(ForeignTable, OpensAndReadsEveryRecord) {
  const fs::path table = ForeignDir() / (std::string(GetParam()) + ".dbf");
  if (!fs::exists(table)) GTEST_SKIP() << "no fixture " << table;
  Reader r;
  DATA4St* d = d4open(r.code(), table.c_str());
  ASSERT_NE(d, nullptr) << "d4open " << table << ": " << r.Error();
  const long count = d4recCount(d);
  ASSERT_GE(count, 0);
  long visited = 0;
  int rc = d4top(d);
  for (; rc == 0 && !d4eof(d); rc = d4skip(d, 1)) {
    ++visited;
    EXPECT_EQ(d4recNo(d), visited);
    for (short j = 1; j <= d4numFields(d); ++j) {
      FIELD4St* f = d4fieldJ(d, j);
      ASSERT_NE(f, nullptr);
      const char* s = f4str(f);
      ASSERT_NE(s, nullptr);
      if (IsMemo(f)) {
        const unsigned len = f4memoLen(f);
        const char* m = f4memoPtr(f);
        ASSERT_NE(m, nullptr);
        EXPECT_EQ(m[len], '\0') << "memo of record " << visited << " field " << f4name(f) << " not terminated";
      }
      ASSERT_EQ(r.code()->errorCode, 0) << table << " record " << visited << " field " << f4name(f) << ": "
                                        << r.Error();
    }
  }
  EXPECT_EQ(rc, r4eof) << "walk of " << table << " ended with " << rc << ": " << r.Error();
  EXPECT_EQ(visited, count) << table;

  Summary sum;
  if (!ParseSummary(ForeignDir() / (std::string(GetParam()) + "_summary.txt"), &sum)) return;
  EXPECT_EQ(count, sum.records) << table << ": record count";
  ASSERT_EQ(d4numFields(d), static_cast<int>(sum.fields.size())) << table << ": number of fields";
  for (std::size_t i = 0; i < sum.fields.size(); ++i) {
    FIELD4St* f = d4fieldJ(d, static_cast<short>(i + 1));
    const Summary::Field& want = sum.fields[i];
    // Names compare ignoring case: the engine hands names back upper case, as it finds fields.
    EXPECT_EQ(std::string(f4name(f)), Upper(want.name)) << table << " field " << i + 1;
    EXPECT_EQ(std::string(1, static_cast<char>(f4type(f))), want.type) << table << " field " << want.name;
    EXPECT_EQ(f4len(f), want.len) << table << " field " << want.name;
    EXPECT_EQ(static_cast<unsigned>(f4decimals(f)), want.dec) << table << " field " << want.name;
  }
  d4close(d);
}

INSTANTIATE_TEST_SUITE_P(XbaseForeign, ForeignTable, ::testing::ValuesIn(kForeignTables),
                         [](const ::testing::TestParamInfo<const char*>& info) { return std::string(info.param); });

// Every table in the folder is one of the above, so a fixture added later is not silently left out.
TEST(ForeignTables, EveryTableInTheFolderIsChecked) {
  if (!fs::is_directory(ForeignDir())) GTEST_SKIP() << "no fixtures at " << ForeignDir();
  std::vector<std::string> known(std::begin(kForeignTables), std::end(kForeignTables));
  int seen = 0;
  for (const auto& e : fs::directory_iterator(ForeignDir())) {
    if (Upper(e.path().extension().string()) != ".DBF") continue;
    ++seen;
    EXPECT_NE(std::find(known.begin(), known.end(), e.path().stem().string()), known.end())
        << e.path() << " is not in kForeignTables";
  }
  EXPECT_EQ(seen, static_cast<int>(known.size()));
}

// ---- xbase-peer -----------------------------------------------------------------------------

// Compares a table with its manifest; every difference is one failure naming file, field,
// record, expected and got (the first 40 per table, then a count).
void CheckAgainstManifest(const std::string& name) {
  const fs::path dir = kFixtures / "xbase-peer";
  const fs::path table = dir / (name + ".dbf");
  const fs::path manifest_path = dir / (name + ".manifest.json");
  if (!fs::exists(table) || !fs::exists(manifest_path)) GTEST_SKIP() << "no fixture " << table;
  const Json m = Json::Parse(ReadFile(manifest_path));

  // The right copy of the data files.
  for (const char* ext : {".dbf", ".fpt"}) {
    const std::string file = name + ext;
    if (!m["files"].has(file)) continue;
    const std::string bytes = ReadFile(dir / file);
    ASSERT_EQ(static_cast<long long>(bytes.size()), m["files"][file]["size"].integer()) << file;
    ASSERT_EQ(Sha256::Of(bytes), m["files"][file]["sha256"].str()) << file << " is not the manifest's copy";
  }

  Reader r;
  DATA4St* d = d4open(r.code(), table.c_str());
  ASSERT_NE(d, nullptr) << "d4open " << table << ": " << r.Error();
  EXPECT_EQ(d4recCount(d), m["record_count"].integer()) << table;
  EXPECT_EQ(static_cast<long long>(d4recWidth(d)), m["record_length"].integer()) << table;
  const Json& fields = m["fields"];
  ASSERT_EQ(d4numFields(d), static_cast<int>(fields.size())) << table;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    FIELD4St* f = d4fieldJ(d, static_cast<short>(i + 1));
    const Json& want = fields[i];
    EXPECT_EQ(std::string(f4name(f)), want["name"].str()) << table << " field " << i + 1;
    EXPECT_EQ(std::string(1, static_cast<char>(f4type(f))), want["type"].str()) << table << " field " << f4name(f);
    EXPECT_EQ(static_cast<long long>(f4len(f)), want["len"].integer()) << table << " field " << f4name(f);
    EXPECT_EQ(f4decimals(f), want["dec"].integer()) << table << " field " << f4name(f);
    EXPECT_EQ(f4ptr(f) - d4record(d), want["offset"].integer()) << table << " field " << f4name(f);
  }

  const Json& records = m["records"];
  ASSERT_EQ(static_cast<long>(records.size()), d4recCount(d));
  int failures = 0;
  auto report = [&](const std::string& what) {
    if (++failures <= 40) ADD_FAILURE() << what;
  };
  long recno = 0;
  int rc = d4top(d);
  for (; rc == 0 && !d4eof(d); rc = d4skip(d, 1)) {
    const Json& rec = records[static_cast<std::size_t>(recno)];
    ++recno;
    const std::string where = name + ".dbf record " + std::to_string(recno);
    if (rec["recno"].integer() != recno) report(where + ": manifest out of order");
    if ((d4deleted(d) != 0) != rec["deleted"].boolean())
      report(where + ": deleted expected " + (rec["deleted"].boolean() ? "yes" : "no") + ", got " +
             (d4deleted(d) ? "yes" : "no"));
    for (std::size_t i = 0; i < fields.size(); ++i) {
      FIELD4St* f = d4fieldJ(d, static_cast<short>(i + 1));
      const Json& want = rec["values"][i];
      const std::string at = where + " field " + f4name(f);
      const std::string stored(f4ptr(f), f4len(f));
      if (!IsMemo(f)) {
        if (stored != want.str()) report(at + ": expected " + Visible(want.str()) + ", got " + Visible(stored));
        // The field's text as f4str gives it, and its number where it has one.
        if (std::string(f4str(f), f4len(f)) != want.str())
          report(at + ": f4str expected " + Visible(want.str()) + ", got " + Visible(f4str(f)));
        if (f4type(f) == 'N') {
          const double expect = std::strtod(want.str().c_str(), nullptr);
          if (f4double(f) != expect)
            report(at + ": f4double expected " + std::to_string(expect) + ", got " + std::to_string(f4double(f)));
        }
        continue;
      }
      const unsigned len = f4memoLen(f);
      const std::string memo(f4memoPtr(f), len);
      if (r.code()->errorCode != 0) {
        report(at + ": memo read failed: " + r.Error());
        error4set(r.code(), 0);
        continue;
      }
      if (want.is_null()) {
        if (len != 0) report(at + ": expected no memo, got " + std::to_string(len) + " bytes");
        if (stored != std::string(10, ' ')) report(at + ": memo pointer expected blank, got " + Visible(stored));
        continue;
      }
      if (stored != want["ptr"].str())
        report(at + ": memo pointer expected " + Visible(want["ptr"].str()) + ", got " + Visible(stored));
      if (static_cast<long long>(len) != want["len"].integer())
        report(at + ": memo length expected " + std::to_string(want["len"].integer()) + ", got " + std::to_string(len));
      else if (Sha256::Of(memo) != want["sha256"].str())
        report(at + ": memo bytes differ (sha256 expected " + want["sha256"].str() + ", got " + Sha256::Of(memo) + ")");
    }
  }
  EXPECT_EQ(rc, r4eof) << r.Error();
  EXPECT_EQ(recno, static_cast<long>(records.size())) << "records visited";
  EXPECT_EQ(failures, 0) << name << ".dbf: " << failures << " differences from the manifest (first 40 above)";
  EXPECT_EQ(r.code()->errorCode, 0) << r.Error();
  d4close(d);
}

TEST(PeerTables, PeopleEqualsItsManifest) { CheckAgainstManifest("people"); }
TEST(PeerTables, WideEqualsItsManifest) { CheckAgainstManifest("wide"); }

// The digest the manifests are checked with, against the published test vectors.
TEST(Sha256, KnownDigests) {
  EXPECT_EQ(Sha256::Of(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(Sha256::Of("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(Sha256::Of("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(Sha256::Of(std::string(1000000, 'a')), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

}  // namespace
