// Compound indexes written by other programs, read by our engine.
//
//  - xbase-peer/ people and points: every tag walks, forward and backward, in exactly the record
//    order the manifest gives (its writer's own walk), and seeks land where that order says.
//  - xbase-foreign/: every tag of every .CDX opens and walks in the order of the keys that our
//    evaluator computes from the records.
// The fixture files live outside the project (KVD_FIXTURES_DIR); without them the tests skip.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "engine/d4all.h"
#include "tests/interop/interop_json.h"

namespace {

namespace fs = std::filesystem;
using kvd::interop::Json;

const fs::path kFixtures = KVD_FIXTURES_DIR;

std::string Slurp(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The uncompressed text of a .gz file, through the gzip program.
std::string Gunzip(const fs::path& p) {
  std::string out;
  FILE* f = popen(("gzip -dc '" + p.string() + "'").c_str(), "r");
  if (!f) return out;
  char buf[65536];
  for (std::size_t n; (n = fread(buf, 1, sizeof buf, f)) > 0;) out.append(buf, n);
  pclose(f);
  return out;
}

class Table {
 public:
  explicit Table(const fs::path& dbf) {
    code4initLow(&code_, nullptr, 0, sizeof(CODE4), 0);
    code_.autoOpen = 0;
    code_.readOnly = 1;
    code_.errOpen = 1;
    data_ = d4open(&code_, dbf.c_str());
  }
  ~Table() {
    d4close(data_);
    code4initUndo(&code_);
  }
  DATA4St* data() { return data_; }
  std::string Error() { return std::to_string(code_.errorCode) + " " + error4lastDetail(&code_); }

  std::vector<long> Walk(TAG4St* tag, bool backward) {
    d4tagSelect(data_, tag);
    std::vector<long> out;
    for (int rc = backward ? d4bottom(data_) : d4top(data_); rc == 0 && !d4eof(data_);
         rc = d4skip(data_, backward ? -1 : 1)) {
      out.push_back(d4recNo(data_));
      if (out.size() > 10000000) break;
    }
    if (backward) std::reverse(out.begin(), out.end());
    return out;
  }

 private:
  CODE4 code_;
  DATA4St* data_ = nullptr;
};

void CheckPeer(const std::string& name) {
  const fs::path dir = kFixtures / "xbase-peer";
  if (!fs::exists(dir / (name + ".cdx"))) GTEST_SKIP() << "no fixture " << name;
  const Json m = Json::Parse(Slurp(dir / (name + ".manifest.json")));
  Json orders;
  bool have_file = false;
  Table t(dir / (name + ".dbf"));
  ASSERT_NE(t.data(), nullptr) << t.Error();
  ASSERT_NE(i4open(t.data(), (dir / (name + ".cdx")).c_str()), nullptr) << t.Error();
  // The tags come in the order they were made, which the manifest lists.
  std::vector<std::string> ours;
  for (TAG4St* tag = d4tagNext(t.data(), nullptr); tag; tag = d4tagNext(t.data(), tag)) ours.push_back(t4alias(tag));
  const Json& tags = m["tags"];
  ASSERT_EQ(ours.size(), tags.size());
  EXPECT_STREQ(t4alias(d4tagDefault(t.data())), tags[std::size_t{0}]["name"].str().c_str());
  for (std::size_t i = 0; i < tags.size(); ++i) {
    const Json& tm = tags[i];
    const std::string tag_name = tm["name"].str();
    EXPECT_EQ(ours[i], tag_name);
    TAG4St* tag = d4tag(t.data(), tag_name.c_str());
    ASSERT_NE(tag, nullptr);
    EXPECT_EQ(t4keyLen(tag), tm["key_length"].integer()) << tag_name;
    EXPECT_EQ(t4descending(tag) != 0, tm["descending"].boolean()) << tag_name;
    EXPECT_EQ(t4unique(tag) != 0, tm["unique"].boolean()) << tag_name;
    std::vector<long> want;
    if (tm.has("order")) {
      for (const Json& r : tm["order"].array()) want.push_back(static_cast<long>(r.integer()));
    } else {
      if (!have_file) {
        orders = Json::Parse(Gunzip(dir / tm["order_file"].str()));
        have_file = true;
      }
      for (const Json& r : orders[tag_name].array()) want.push_back(static_cast<long>(r.integer()));
    }
    ASSERT_EQ(want.size(), static_cast<std::size_t>(tm["key_count"].integer())) << tag_name;
    EXPECT_EQ(t.Walk(tag, false), want) << tag_name << " forward";
    EXPECT_EQ(t.Walk(tag, true), want) << tag_name << " backward";
    // A seek for the key of a record in the middle of the order lands on the first record with it.
    const long mid = want[want.size() / 2];
    d4tagSelect(t.data(), nullptr);
    ASSERT_EQ(d4go(t.data(), mid), 0);
    const std::string key(t4keyOfRecord(tag), static_cast<std::size_t>(t4keyLen(tag)));
    d4tagSelect(t.data(), tag);
    if (d4tagSelected(t.data()) && std::string(t4expr(tag)).find("DELETED") == std::string::npos &&
        tm["key_type"].str() == "C") {
      ASSERT_EQ(d4seekN(t.data(), key.data(), static_cast<short>(key.size())), 0) << tag_name;
      const std::size_t first = static_cast<std::size_t>(
          std::find(want.begin(), want.end(), d4recNo(t.data())) - want.begin());
      ASSERT_LT(first, want.size());
      // Every record before it in the order has another key.
      for (std::size_t k = 0; k < first; ++k) {
        d4tagSelect(t.data(), nullptr);
        d4go(t.data(), want[k]);
        EXPECT_NE(std::string(t4keyOfRecord(tag), key.size()), key) << tag_name << " record " << want[k];
      }
    }
  }
}

TEST(PeerIndexes, PeopleTagsWalkAsTheirWriterWalksThem) { CheckPeer("people"); }
TEST(PeerIndexes, PointsTagsWalkAsTheirWriterWalksThem) { CheckPeer("points"); }

TEST(ForeignIndexes, EveryTagWalksInKeyOrder) {
  const fs::path dir = kFixtures / "xbase-foreign";
  if (!fs::is_directory(dir)) GTEST_SKIP() << "no fixtures at " << dir;
  int tags_seen = 0;
  for (const char* name : {"calls", "contacts", "setup", "types"}) {
    Table t(dir / (std::string(name) + ".dbf"));
    ASSERT_NE(t.data(), nullptr) << name << ": " << t.Error();
    ASSERT_NE(i4open(t.data(), (dir / (std::string(name) + ".CDX")).c_str()), nullptr) << name << ": " << t.Error();
    for (TAG4St* tag = d4tagNext(t.data(), nullptr); tag; tag = d4tagNext(t.data(), tag)) {
      ++tags_seen;
      // The order from the records: keys by our evaluator, duplicates in record order.
      std::vector<std::pair<std::string, long>> keys;
      d4tagSelect(t.data(), nullptr);
      for (d4top(t.data()); !d4eof(t.data()); d4skip(t.data(), 1))
        keys.push_back({std::string(t4keyOfRecord(tag), static_cast<std::size_t>(t4keyLen(tag))), d4recNo(t.data())});
      std::stable_sort(keys.begin(), keys.end(), [](auto& a, auto& b) { return a.first < b.first; });
      std::vector<long> want;
      for (auto& k : keys) want.push_back(k.second);
      if (t4descending(tag)) std::reverse(want.begin(), want.end());
      EXPECT_EQ(t.Walk(tag, false), want) << name << " tag " << t4alias(tag);
      EXPECT_EQ(t.Walk(tag, true), want) << name << " tag " << t4alias(tag) << " backward";
    }
  }
  EXPECT_GE(tags_seen, 6);
}

}  // namespace
