// Compound indexes in a table's life: order, seeks, filters, unique tags, maintenance, damage.
#include <fcntl.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <random>
#include <set>

#include "engine/cdx_file.h"
#include "engine/cdx_format.h"
#include "engine/codec.h"
#include "engine_test_util.h"
#include "platform/file.h"
#include "platform/sys.h"

namespace kvd::test {
namespace {

const FIELD4INFO kFields[] = {{"ID", 'C', 8, 0, 0},   {"NAME", 'C', 12, 0, 0}, {"VALUE", 'N', 7, 2, 0},
                              {"TYPE", 'C', 1, 0, 0}, {nullptr, 0, 0, 0, 0}};
// Definition order on purpose not alphabetical: the default tag is the first one made.
const TAG4INFO kTags[] = {{"ZNAME", "UPPER(NAME)", ".NOT. DELETED()", 0, 0},
                          {"ID", "ID", nullptr, e4unique, 0},
                          {"VAL", "VALUE", nullptr, 0, 0},
                          {"TYPEID", "TYPE+ID", ".NOT.DELETED()", 0, 0},
                          {nullptr, nullptr, nullptr, 0, 0}};

class IndexTest : public ::testing::Test {
 protected:
  DATA4St* Create(int rows) {
    DATA4St* d = d4create(&e.code, (dir / "t").c_str(), kFields, nullptr);
    for (int i = 1; i <= rows; ++i) Add(d, i);
    return d;
  }
  static void Add(DATA4St* d, int i) {
    d4appendStart(d, 0);
    d4blank(d);
    char id[16];
    std::snprintf(id, sizeof id, "ID%04d", i);
    f4assign(d4field(d, "ID"), id);
    const char* names[] = {"delta", "Alpha", "charlie", "Bravo", "echo"};
    f4assign(d4field(d, "NAME"), names[i % 5]);
    f4assignDouble(d4field(d, "VALUE"), (i % 7) * 10.5 - 30);
    f4assignChar(d4field(d, "TYPE"), "ABC"[i % 3]);
    ASSERT_EQ(d4append(d), 0) << error4lastDetail(d4code(d));
  }
  // Record numbers in the order of `tag`, walking forward (or backward).
  static std::vector<long> Walk(DATA4St* d, const char* tag, bool backward = false) {
    d4tagSelect(d, d4tag(d, tag));
    std::vector<long> out;
    for (int rc = backward ? d4bottom(d) : d4top(d); rc == 0 && !d4eof(d); rc = d4skip(d, backward ? -1 : 1)) {
      out.push_back(d4recNo(d));
      if (out.size() > 100000) break;
    }
    return out;
  }
  // The same order computed from the records themselves.
  static std::vector<long> Expected(DATA4St* d, const char* tag) {
    TAG4St* t = d4tag(d, tag);
    d4tagSelect(d, nullptr);
    std::vector<std::pair<std::string, long>> keys;
    for (d4top(d); !d4eof(d); d4skip(d, 1)) {
      const bool filtered = std::string(t4filter(t)).find("DELETED") != std::string::npos;
      if (filtered && d4deleted(d)) continue;
      keys.push_back({std::string(t4keyOfRecord(t), t4keyLen(t)), d4recNo(d)});
    }
    std::stable_sort(keys.begin(), keys.end(), [](auto& a, auto& b) { return a.first < b.first; });
    std::vector<long> out;
    for (auto& k : keys) out.push_back(k.second);
    if (t4descending(t)) std::reverse(out.begin(), out.end());
    return out;
  }
  TempDir dir;
  Engine e;
};

TEST_F(IndexTest, TagsKeepDefinitionOrderAndWalkInKeyOrder) {
  DATA4St* d = Create(40);
  ASSERT_NE(i4create(d, nullptr, kTags), nullptr) << error4lastDetail(&e.code);
  EXPECT_STREQ(t4alias(d4tagDefault(d)), "ZNAME") << "the first tag made, not the first by name";
  std::vector<std::string> names;
  for (TAG4St* t = d4tagNext(d, nullptr); t; t = d4tagNext(d, t)) names.push_back(t4alias(t));
  EXPECT_EQ(names, (std::vector<std::string>{"ZNAME", "ID", "VAL", "TYPEID"}));
  for (const char* tag : {"ZNAME", "ID", "VAL", "TYPEID"}) {
    EXPECT_EQ(Walk(d, tag), Expected(d, tag)) << tag;
    auto back = Walk(d, tag, true);
    std::reverse(back.begin(), back.end());
    EXPECT_EQ(back, Expected(d, tag)) << tag << " backwards";
  }
  // Numeric keys sort as numbers, not as text: -30.00 comes before -19.50 and 10.50 before 9.
  d4tagSelect(d, d4tag(d, "VAL"));
  d4top(d);
  EXPECT_DOUBLE_EQ(f4double(d4field(d, "VALUE")), -30.0);
  d4bottom(d);
  EXPECT_DOUBLE_EQ(f4double(d4field(d, "VALUE")), 33.0);
  EXPECT_EQ(d4skip(d, 1), r4eof);
  EXPECT_GT(d4recNo(d), d4recCount(d)) << "after the last record the number is above the count";
  d4close(d);

  // The index file names itself in the table header, and autoOpen finds it.
  auto b = ReadAll(dir / "t.DBF");
  EXPECT_EQ(b[28] & 1, 1);
  e.code.autoOpen = 1;
  d = d4open(&e.code, (dir / "t").c_str());
  ASSERT_NE(d4tag(d, "typeid"), nullptr);
  d4close(d);
}

TEST_F(IndexTest, SeekHitsPrefixesMissesAndEnd) {
  DATA4St* d = Create(20);
  ASSERT_NE(i4create(d, nullptr, kTags), nullptr);
  d4tagSelect(d, d4tag(d, "ID"));
  EXPECT_EQ(d4seek(d, "ID0007  "), 0);
  EXPECT_EQ(d4recNo(d), 7);
  EXPECT_EQ(d4seek(d, "ID001"), 0) << "a shorter key is a prefix";
  EXPECT_EQ(d4recNo(d), 10);
  EXPECT_EQ(d4seek(d, "ID0007A"), r4after) << "a miss stands on the next higher key";
  EXPECT_EQ(d4recNo(d), 8);
  EXPECT_EQ(d4seek(d, "ZZ"), r4eof);
  EXPECT_TRUE(d4eof(d));
  EXPECT_EQ(d4seek(d, ""), 0) << "the empty key finds the first record";
  EXPECT_EQ(d4recNo(d), 1);
  d4tagSelect(d, d4tag(d, "VAL"));
  EXPECT_EQ(d4seek(d, "-19.5"), 0);
  EXPECT_DOUBLE_EQ(f4double(d4field(d, "VALUE")), -19.5);
  EXPECT_EQ(d4seekDouble(d, 12), 0);
  EXPECT_EQ(d4seekDouble(d, 13), r4after);
  EXPECT_DOUBLE_EQ(f4double(d4field(d, "VALUE")), 22.5);
  d4tagSelect(d, d4tag(d, "TYPEID"));
  ASSERT_EQ(d4seek(d, "B"), 0);
  int bs = 0;
  do ++bs; while (d4seekNext(d, "B") == 0);
  EXPECT_EQ(bs, 7) << "seekNext walks the records with one key";
  d4tagSelect(d, nullptr);
  EXPECT_EQ(d4seek(d, "CHARLIE"), 0) << "with no tag selected the default tag is used";
  d4close(d);
}

TEST_F(IndexTest, UniqueTagsRefuseOrLeaveOutDuplicates) {
  DATA4St* d = Create(5);
  ASSERT_NE(i4create(d, nullptr, kTags), nullptr);
  const auto table = ReadAll(dir / "t.DBF");
  const auto index = ReadAll(dir / "t.CDX");
  d4appendStart(d, 0);
  d4blank(d);
  f4assign(d4field(d, "ID"), "ID0003");
  EXPECT_EQ(d4append(d), e4unique);
  EXPECT_EQ(e.code.errorCode, -340);
  EXPECT_EQ(ReadAll(dir / "t.DBF"), table) << "the table is unchanged";
  EXPECT_EQ(ReadAll(dir / "t.CDX"), index) << "the index is unchanged";
  error4set(&e.code, 0);
  d4go(d, 2);
  d4lock(d, 2);
  f4assign(d4field(d, "ID"), "ID0004");
  EXPECT_EQ(d4flush(d), e4unique);
  d4changed(d, 0);

  // Unique code 25 keeps the record and leaves its duplicate key out of the tag.
  const TAG4INFO cont[] = {{"TYPE", "TYPE", nullptr, r4uniqueContinue, 0}, {nullptr, nullptr, nullptr, 0, 0}};
  ASSERT_NE(i4create(d, (dir / "byType").c_str(), cont), nullptr);
  EXPECT_EQ(Walk(d, "TYPE").size(), 3u) << "one record per type";
  Add(d, 9);
  EXPECT_EQ(d4recCount(d), 6);
  EXPECT_EQ(Walk(d, "TYPE").size(), 3u);
  d4close(d);
  // The rule is kept in the file: an index opened later behaves the same.
  d = d4open(&e.code, (dir / "t").c_str());
  ASSERT_NE(i4open(d, (dir / "BYTYPE").c_str()), nullptr);
  EXPECT_EQ(t4unique(d4tag(d, "TYPE")), r4uniqueContinue);
  Add(d, 10);
  EXPECT_EQ(d4recCount(d), 7);
  d4close(d);
}

// A write that changes no key leaves the index alone: it needs no index lock and raises no
// counter, so it goes through while another opener holds the index; a write that moves a key
// needs the lock and says so.
TEST_F(IndexTest, WritesThatChangeNoKeyLeaveTheIndexAlone) {
  DATA4St* d = Create(5);
  ASSERT_NE(i4create(d, nullptr, kTags), nullptr);
  d4unlock(d);
  const auto index = ReadAll(dir / "t.CDX");
  std::unique_ptr<platform::File> other;
  ASSERT_TRUE(platform::File::Open(dir / "t.CDX", platform::OpenMode::kReadWrite, &other).ok());
  ASSERT_TRUE(other->LockRange(engine::cdx::kLockOffset, 1, platform::LockKind::kExclusive, false).ok());
  d4tagSelect(d, nullptr);
  d4go(d, 3);
  ASSERT_EQ(d4lock(d, 3), 0);
  f4assignDouble(d4field(d, "VALUE"), (3 % 7) * 10.5 - 30);  // the value it has: no key moves
  f4assign(d4field(d, "TYPE"), "B");  // was A; TYPE is in TYPEID's key
  EXPECT_EQ(d4flush(d), e4lock) << "a key moves: the index lock is needed";
  d4changed(d, 0);
  error4set(&e.code, 0);
  d4go(d, 3);
  f4assign(d4field(d, "NAME"), Str(d4field(d, "NAME")).c_str());  // ZNAME's key stays
  EXPECT_EQ(d4flush(d), 0) << error4lastDetail(&e.code);
  EXPECT_EQ(ReadAll(dir / "t.CDX"), index) << "not even the counter moved";
  other.reset();
  for (const char* tag : {"ZNAME", "ID", "VAL", "TYPEID"}) EXPECT_EQ(Walk(d, tag), Expected(d, tag)) << tag;
  d4close(d);
}

TEST_F(IndexTest, PurgeLoopDeletesWhileWalkingAFilteredTag) {
  DATA4St* d = Create(60);
  ASSERT_NE(i4create(d, nullptr, kTags), nullptr);
  d4tagSelect(d, d4tag(d, "TYPEID"));
  // Delete every record of type B while walking: each leaves the tag at once.
  int deleted = 0;
  for (int rc = d4seek(d, "B"); rc == 0 && !d4eof(d) && f4char(d4field(d, "TYPE")) == 'B'; rc = d4skip(d, 1)) {
    d4lock(d, d4recNo(d));
    d4delete(d);
    ++deleted;
  }
  EXPECT_EQ(deleted, 20);
  EXPECT_EQ(Walk(d, "TYPEID").size(), 40u);
  EXPECT_EQ(Walk(d, "TYPEID"), Expected(d, "TYPEID"));
  // And a loop that deletes everything from the top, as purges do.
  d4tagSelect(d, d4tag(d, "ZNAME"));
  for (d4top(d); !d4eof(d); d4skip(d, 1)) {
    d4lock(d, d4recNo(d));
    d4delete(d);
  }
  EXPECT_TRUE(Walk(d, "ZNAME").empty());
  EXPECT_EQ(d4recCount(d), 60) << "deleted records stay until pack";
  EXPECT_EQ(Walk(d, "ID").size(), 60u) << "a tag without filter keeps them";
  ASSERT_EQ(d4pack(d), 0);
  EXPECT_TRUE(Walk(d, "ID").empty());
  d4close(d);
}

TEST_F(IndexTest, KeyChangeMovesTheRecordInEveryTag) {
  DATA4St* d = Create(10);
  ASSERT_NE(i4create(d, nullptr, kTags), nullptr);
  d4tagSelect(d, d4tag(d, "ID"));
  ASSERT_EQ(d4seek(d, "ID0002"), 0);
  d4lock(d, 2);
  f4assign(d4field(d, "ID"), "ID9999");
  f4assign(d4field(d, "NAME"), "zulu");
  // The move writes the record, which moves to the end of the ID order: the walk goes on from there.
  ASSERT_EQ(d4skip(d, 1), r4eof);
  for (const char* tag : {"ZNAME", "ID", "VAL", "TYPEID"}) EXPECT_EQ(Walk(d, tag), Expected(d, tag)) << tag;
  d4tagSelect(d, d4tag(d, "ID"));
  d4bottom(d);
  EXPECT_EQ(d4recNo(d), 2);
  d4close(d);
}

TEST_F(IndexTest, DescendingTagsWalkAndSeekFromTheTop) {
  DATA4St* d = Create(12);
  const TAG4INFO desc[] = {{"DID", "ID", nullptr, 0, 1}, {nullptr, nullptr, nullptr, 0, 0}};
  ASSERT_NE(i4create(d, nullptr, desc), nullptr);
  EXPECT_EQ(Walk(d, "DID"), Expected(d, "DID"));
  d4tagSelect(d, d4tag(d, "DID"));
  d4top(d);
  EXPECT_EQ(d4recNo(d), 12);
  EXPECT_EQ(d4seek(d, "ID0005"), 0);
  EXPECT_EQ(d4recNo(d), 5);
  EXPECT_EQ(d4seek(d, "ID0005X"), r4after);
  EXPECT_EQ(d4recNo(d), 5) << "the next key in a descending walk is the lower one";
  d4close(d);
}

TEST_F(IndexTest, BadDefinitionsAndDamagedFilesFailClearly) {
  DATA4St* d = Create(3);
  const TAG4INFO bad[] = {{"X", "UPPER(NOSUCH)", nullptr, 0, 0}, {nullptr, nullptr, nullptr, 0, 0}};
  EXPECT_EQ(i4create(d, nullptr, bad), nullptr);
  EXPECT_EQ(e.code.errorCode, e4expr);
  EXPECT_FALSE(std::filesystem::exists(dir / "t.CDX")) << "nothing written";
  const TAG4INFO badfilter[] = {{"X", "ID", ".NOT. (", 0, 0}, {nullptr, nullptr, nullptr, 0, 0}};
  EXPECT_EQ(i4create(d, nullptr, badfilter), nullptr);
  ASSERT_NE(i4create(d, nullptr, kTags), nullptr);
  d4close(d);
  const auto good = ReadAll(dir / "t.CDX");
  auto damage = [&](auto change) {
    auto b = good;
    change(b);
    WriteAll(dir / "t.CDX", b);
    error4set(&e.code, 0);
    DATA4St* t = d4open(&e.code, (dir / "t").c_str());
    INDEX4St* ix = i4open(t, nullptr);
    const int err = e.code.errorCode;
    d4close(t);
    return ix ? 0 : err;
  };
  EXPECT_EQ(damage([](auto&) {}), 0);
  EXPECT_EQ(damage([](auto& b) { b.resize(1000); }), e4index) << "truncated";
  EXPECT_EQ(damage([](auto& b) { engine::PutLE16(&b[12], 7); }), e4index) << "directory key length";
  EXPECT_EQ(damage([](auto& b) { engine::PutLE32(&b[0], 999); }), e4index) << "directory root off the pages";
  EXPECT_EQ(damage([](auto& b) { std::memcpy(&b[1536 + 512], "UPPER(NOSUCH)", 14); }), e4index)
      << "an expression naming no field";
}

// Random appends, key changes, deletes, recalls and packs, checked against a sorted model after
// every step.
TEST_F(IndexTest, RandomChangesMatchASortedModel) {
  DATA4St* d = Create(0);
  const TAG4INFO tags[] = {{"NAME", "NAME", ".NOT. DELETED()", 0, 0}, {"VAL", "VALUE", nullptr, 0, 1},
                           {nullptr, nullptr, nullptr, 0, 0}};
  ASSERT_NE(i4create(d, nullptr, tags), nullptr);
  std::mt19937 rng(11);
  for (int step = 0; step < 600; ++step) {
    const long count = d4recCount(d);
    const int op = count < 5 ? 0 : static_cast<int>(rng() % 6);
    const long rec = count ? 1 + static_cast<long>(rng() % count) : 0;
    char name[16];
    std::snprintf(name, sizeof name, "N%03u", static_cast<unsigned>(rng() % 50));
    if (op <= 1) {
      d4appendStart(d, 0);
      d4blank(d);
      f4assign(d4field(d, "NAME"), name);
      f4assignDouble(d4field(d, "VALUE"), static_cast<double>(rng() % 2000) / 10 - 100);
      ASSERT_EQ(d4append(d), 0);
    } else if (op == 2 || op == 3) {
      d4tagSelect(d, nullptr);
      d4go(d, rec);
      d4lock(d, rec);
      if (op == 2) f4assign(d4field(d, "NAME"), name);
      else f4assignDouble(d4field(d, "VALUE"), static_cast<double>(rng() % 2000) / 10 - 100);
      ASSERT_EQ(d4flush(d), 0);
    } else if (op == 4) {
      d4go(d, rec);
      d4lock(d, rec);
      if (d4deleted(d)) d4recall(d);
      else d4delete(d);
      ASSERT_EQ(d4flush(d), 0);
    } else if (rng() % 8 == 0) {
      ASSERT_EQ(d4pack(d), 0);
    }
    ASSERT_EQ(Walk(d, "NAME"), Expected(d, "NAME")) << "step " << step;
    ASSERT_EQ(Walk(d, "VAL"), Expected(d, "VAL")) << "step " << step;
  }
  d4close(d);
}

// The same in two processes: a child makes each change, and after every step the parent, which
// has the table open all along, checks both tags against the records. For a pack the parent lets
// the table go, since a pack needs it alone.
TEST_F(IndexTest, RandomChangesByAnotherProcessMatchTheModel) {
  DATA4St* d = Create(30);
  const TAG4INFO tags[] = {{"NAME", "NAME", ".NOT. DELETED()", 0, 0}, {"VAL", "VALUE", nullptr, 0, 1},
                           {nullptr, nullptr, nullptr, 0, 0}};
  ASSERT_NE(i4create(d, nullptr, tags), nullptr);
  d4close(d);  // the child must not inherit the parent's open table (its share lock would come along)
  Channel to_parent, to_child;
  auto changes = [&]() -> int {
    Engine c;
    c.code.autoOpen = 1;
    c.code.lockAttempts = WAIT4EVER;
    DATA4St* t = d4open(&c.code, (dir / "t").c_str());
    if (!t || !d4tag(t, "VAL")) return 1;
    std::mt19937 rng(23);
    for (int step = 0; step < 150; ++step) {
      const long count = d4recCount(t);
      const int op = static_cast<int>(rng() % 9);
      const long rec = 1 + static_cast<long>(rng() % count);
      char name[16];
      std::snprintf(name, sizeof name, "N%02u", static_cast<unsigned>(rng() % 30));
      if (op == 8) {
        to_parent.Send('P');
        to_child.Recv();  // the parent has closed the table
        if (d4pack(t) != 0) return 2;
      } else if (op <= 2) {
        d4appendStart(t, 0);
        d4blank(t);
        f4assign(d4field(t, "NAME"), name);
        f4assignDouble(d4field(t, "VALUE"), static_cast<double>(rng() % 400) / 4 - 50);
        if (d4append(t) != 0) return 3;
      } else {
        d4tagSelect(t, nullptr);
        d4go(t, rec);
        if (d4lock(t, rec) != 0) return 4;
        if (op <= 4) f4assign(d4field(t, "NAME"), name);
        else if (op <= 6) f4assignDouble(d4field(t, "VALUE"), static_cast<double>(rng() % 400) / 4 - 50);
        else if (d4deleted(t)) d4recall(t);
        else d4delete(t);
      }
      if (d4unlock(t) != 0) return 5;  // writes the change and lets the record go
      to_parent.Send('S');
      if (to_child.Recv() != 'C') return 6;
    }
    d4close(t);
    return 0;
  };
  Child child([&] {
    const int rc = changes();
    if (rc) std::fprintf(stderr, "child stopped with %d\n", rc);
    to_parent.Send('E');  // also after a failure, so that the parent does not wait for ever
    return rc;
  });
  e.code.lockAttempts = WAIT4EVER;
  e.code.autoOpen = 1;
  d = d4open(&e.code, (dir / "t").c_str());
  ASSERT_NE(d4tag(d, "VAL"), nullptr);
  int steps = 0;
  for (char m = to_parent.Recv(); m != 'E' && m != 0; m = to_parent.Recv()) {
    if (m == 'P') {
      d4close(d);
      to_child.Send('K');
      ASSERT_EQ(to_parent.Recv(), 'S');
      d = d4open(&e.code, (dir / "t").c_str());
      ASSERT_NE(d, nullptr);
    }
    ASSERT_EQ(Walk(d, "NAME"), Expected(d, "NAME")) << "step " << steps;
    ASSERT_EQ(Walk(d, "VAL"), Expected(d, "VAL")) << "step " << steps;
    ++steps;
    to_child.Send('C');
  }
  ASSERT_EQ(child.Join(), 0);
  EXPECT_EQ(steps, 150);
  d4close(d);
}

// Another process changes the table while this one walks its tags: every walk ends without an
// error, and at the end each tag is the order of the records. (A record whose key changes during a
// walk may rightly be met twice or not at all.)
TEST_F(IndexTest, TwoProcessesShareTheIndex) {
  DATA4St* d = Create(200);
  ASSERT_NE(i4create(d, nullptr, kTags), nullptr);
  d4unlock(d);  // an append leaves its record locked
  Child writer([&] {
    Engine c;
    c.code.lockAttempts = WAIT4EVER;
    c.code.autoOpen = 1;
    DATA4St* t = d4open(&c.code, (dir / "t").c_str());
    if (!t || !d4tag(t, "ID")) return 1;
    std::mt19937 rng(5);
    for (int i = 0; i < 300; ++i) {
      const long rec = 1 + static_cast<long>(rng() % d4recCount(t));
      d4go(t, rec);
      if (d4lock(t, rec) != 0) return 2;
      if (rng() % 2) {
        d4delete(t);
      } else {
        char name[16];
        std::snprintf(name, sizeof name, "w%u", static_cast<unsigned>(rng() % 1000));
        f4assign(d4field(t, "NAME"), name);
      }
      if (d4flush(t) != 0) return 3;
      if (i % 3 == 0) {
        d4appendStart(t, 0);
        d4blank(t);
        char id[16];
        std::snprintf(id, sizeof id, "W%05d", i);
        f4assign(d4field(t, "ID"), id);
        f4assign(d4field(t, "NAME"), id);
        if (d4append(t) != 0) return 4;
      }
    }
    return d4close(t) == 0 ? 0 : 5;
  });
  e.code.lockAttempts = WAIT4EVER;
  for (int round = 0; round < 30; ++round) {
    std::vector<long> w = Walk(d, "ZNAME");
    EXPECT_EQ(e.code.errorCode, 0) << error4lastDetail(&e.code);
    // Every record met is a record, and a record is met again only after its key changed: at most
    // once per change of the writer's 300 (how many fall into one walk depends on the scheduler).
    const long count = d4recCount(d);
    EXPECT_TRUE(std::all_of(w.begin(), w.end(), [&](long r) { return r >= 1 && r <= count; }));
    EXPECT_LE(w.size(), static_cast<std::size_t>(count) + 300);
  }
  ASSERT_EQ(writer.Join(), 0);
  for (const char* tag : {"ZNAME", "ID", "VAL", "TYPEID"}) EXPECT_EQ(Walk(d, tag), Expected(d, tag)) << tag;
  d4close(d);
}

// An open index read by a few seeks reads its pages without a mapping and keeps those it read
// under the lock for the next seek. Another process changes the index between two seeks: a key
// moves to another record, a new record takes the old key, and a hundred keys more split the leaf
// the first seek kept. Every later seek must find the index as it is now.
TEST_F(IndexTest, SeeksSeeWhatAnotherProcessChangedBetweenThem) {
  DATA4St* d = Create(300);
  ASSERT_NE(i4create(d, nullptr, kTags), nullptr);
  d4close(d);  // the child must not inherit an open table
  Channel to_parent, to_child;
  Child child([&] {
    Engine c;
    c.code.lockAttempts = WAIT4EVER;
    c.code.autoOpen = 1;
    if (to_child.Recv() != 'G') return 1;
    DATA4St* t = d4open(&c.code, (dir / "t").c_str());
    if (!t || !d4tag(t, "ID")) return 2;
    d4go(t, 150);
    if (d4lock(t, 150) != 0) return 3;
    f4assign(d4field(t, "ID"), "X0150");
    if (d4unlock(t) != 0) return 4;
    for (int i = -1; i < 100; ++i) {  // record 301 gets "ID0150", then 302.. get "ID015000".. in its leaf
      char id[16];
      if (i < 0) std::snprintf(id, sizeof id, "ID0150");
      else std::snprintf(id, sizeof id, "ID0150%02d", i);
      d4appendStart(t, 0);
      d4blank(t);
      f4assign(d4field(t, "ID"), id);
      f4assign(d4field(t, "NAME"), id);
      if (d4append(t) != 0) return 5;
    }
    if (d4close(t) != 0) return 6;
    to_parent.Send('D');
    return 0;
  });
  e.code.lockAttempts = WAIT4EVER;
  e.code.autoOpen = 1;
  d = d4open(&e.code, (dir / "t").c_str());
  ASSERT_NE(d, nullptr);
  d4tagSelect(d, d4tag(d, "ID"));
  ASSERT_EQ(d4seek(d, "ID0150"), 0);
  EXPECT_EQ(d4recNo(d), 150);
  ASSERT_EQ(d4seek(d, "ID0151"), 0);
  EXPECT_EQ(d4recNo(d), 151);
  to_child.Send('G');
  ASSERT_EQ(to_parent.Recv(), 'D');
  EXPECT_EQ(d4seek(d, "ID0150"), 0);
  EXPECT_EQ(d4recNo(d), 301) << "the key now belongs to the new record";
  EXPECT_EQ(d4seek(d, "X0150"), 0);
  EXPECT_EQ(d4recNo(d), 150);
  EXPECT_EQ(d4seek(d, "ID015099"), 0);
  EXPECT_EQ(d4recNo(d), 401);
  EXPECT_EQ(d4seek(d, "ID0151"), 0);
  EXPECT_EQ(d4recNo(d), 151);
  EXPECT_EQ(d4seek(d, "ID015042"), 0);
  EXPECT_EQ(d4recNo(d), 344);
  EXPECT_EQ(child.Join(), 0);
  for (const char* tag : {"ZNAME", "ID"}) EXPECT_EQ(Walk(d, tag), Expected(d, tag)) << tag;
  d4close(d);
}

// A table and index that this process has read often enough, if only a little at each open (keyed
// reads: open, seek, close), are mapped and then read through the kept mapping by every later
// open: not one pread. The mapping is shared, so what another process changes between two seeks is
// what the next seek finds.
TEST_F(IndexTest, LaterOpensReadThroughTheKeptMappingAndSeeOtherProcesses) {
  Child maker([&] {  // made elsewhere: this process has nothing of the files mapped
    DATA4St* t = Create(300);
    return i4create(t, nullptr, kTags) != nullptr && d4close(t) == 0 ? 0 : 1;
  });
  ASSERT_EQ(maker.Join(), 0);
  DATA4St* d = nullptr;
  e.code.autoOpen = 1;
  e.code.lockAttempts = WAIT4EVER;
  for (int i = 1; i <= 30; ++i) {
    d = d4open(&e.code, (dir / "t").c_str());
    ASSERT_NE(d, nullptr);
    d4tagSelect(d, d4tag(d, "ID"));
    char key[8];
    std::snprintf(key, sizeof key, "ID%04d", i * 7);
    ASSERT_EQ(d4seek(d, key), 0) << key;
    EXPECT_EQ(d4recNo(d), i * 7);
    d4close(d);
  }

  static std::atomic<int> preads{0};
  Channel to_parent, to_child;
  Child child([&] {
    Engine c;
    c.code.lockAttempts = WAIT4EVER;
    c.code.autoOpen = 1;
    if (to_child.Recv() != 'G') return 1;
    DATA4St* t = d4open(&c.code, (dir / "t").c_str());
    if (!t) return 2;
    d4go(t, 20);
    if (d4lock(t, 20) != 0) return 3;
    f4assign(d4field(t, "ID"), "A0020");
    f4assign(d4field(t, "NAME"), "moved");
    if (d4close(t) != 0) return 4;
    to_parent.Send('D');
    return 0;
  });
  {
    platform::SysCallsOverride keep;
    static platform::SysCalls real = platform::Sys();
    platform::Sys().pread = [](int fd, void* b, size_t n, off_t o) { return ++preads, real.pread(fd, b, n, o); };
    d = d4open(&e.code, (dir / "t").c_str());
    ASSERT_NE(d, nullptr);
    d4tagSelect(d, d4tag(d, "ID"));
    ASSERT_EQ(d4seek(d, "ID0020"), 0);
    EXPECT_EQ(d4recNo(d), 20);
    EXPECT_EQ(preads, 0) << "open, seek and record all through the kept mapping";
    to_child.Send('G');
    ASSERT_EQ(to_parent.Recv(), 'D');
    EXPECT_EQ(d4seek(d, "A0020"), 0);
    EXPECT_EQ(d4recNo(d), 20);
    EXPECT_EQ(Str(d4field(d, "NAME")), "moved");
    EXPECT_EQ(d4seek(d, "ID0020"), r4after) << "the old key is gone";
    EXPECT_EQ(preads, 0);
  }
  EXPECT_EQ(child.Join(), 0);
  for (const char* tag : {"ZNAME", "ID"}) EXPECT_EQ(Walk(d, tag), Expected(d, tag)) << tag;
  d4close(d);
}

// Two opens in one process share a table like two processes do. A walk that goes on inside the
// leaf it copied first asks whether the counter moved: a change through the other open between two
// steps must be seen by the next step, and a seek after this opener's own appends finds them.
TEST_F(IndexTest, StepsAndSeeksSeeChangesThroughAnotherOpenOfTheTable) {
  DATA4St* w = Create(100);
  ASSERT_NE(i4create(w, nullptr, kTags), nullptr);
  d4unlock(w);
  Engine other;
  other.code.autoOpen = 1;
  DATA4St* r = d4open(&other.code, (dir / "t").c_str());
  ASSERT_NE(r, nullptr);
  d4tagSelect(r, d4tag(r, "ID"));
  ASSERT_EQ(d4seek(r, "ID0010"), 0);
  ASSERT_EQ(d4skip(r, 1), 0);
  EXPECT_EQ(d4recNo(r), 11);

  d4tagSelect(w, nullptr);
  d4go(w, 12);
  ASSERT_EQ(d4lock(w, 12), 0);
  f4assign(d4field(w, "ID"), "Z0012");
  ASSERT_EQ(d4unlock(w), 0);
  ASSERT_EQ(d4skip(r, 1), 0);
  EXPECT_EQ(d4recNo(r), 13) << "record 12 left this place in the tag";
  EXPECT_EQ(Str(d4field(r, "ID")), "ID0013");

  Add(w, 101);  // "ID0101": far from here
  d4appendStart(w, 0);
  d4blank(w);
  f4assign(d4field(w, "ID"), "ID00135");
  ASSERT_EQ(d4append(w), 0);
  ASSERT_EQ(d4unlock(w), 0);
  ASSERT_EQ(d4skip(r, 1), 0);
  EXPECT_EQ(d4recNo(r), 102) << "the new key right after ID0013";
  ASSERT_EQ(d4skip(r, 1), 0);
  EXPECT_EQ(d4recNo(r), 14);

  // The reader writes too: its own changes, then seeks that must find them.
  d4appendStart(r, 0);
  d4blank(r);
  f4assign(d4field(r, "ID"), "ID00105");
  ASSERT_EQ(d4append(r), 0);
  ASSERT_EQ(d4unlock(r), 0);
  EXPECT_EQ(d4seek(r, "ID00105"), 0);
  EXPECT_EQ(d4recNo(r), 103);
  EXPECT_EQ(d4seek(r, "Z0012"), 0);
  EXPECT_EQ(d4recNo(r), 12);
  d4tagSelect(w, d4tag(w, "ID"));
  EXPECT_EQ(d4seek(w, "ID00105"), 0);
  EXPECT_EQ(d4recNo(w), 103);
  for (const char* tag : {"ZNAME", "ID", "VAL", "TYPEID"}) EXPECT_EQ(Walk(r, tag), Expected(r, tag)) << tag;
  d4close(r);
  d4close(w);
}

// A file read through the mapping is sought without the index lock while no writer is at work.
// The reader here seeks in the middle of another opener's change, at every page that change
// writes (leaves split under it): it must never answer from the half-written tree, so with no
// waiting allowed it is refused. A descent that began before a writer must find the counter moved
// at its end. The counter is even after every writer, and a counter left odd (a writer that died at
// work) sends every seek through the lock, still right.
TEST_F(IndexTest, SeeksWithoutTheLockNeverSeeAWriterHalfWay) {
  const TAG4INFO tags[] = {{"ID", "ID", nullptr, 0, 0}, {nullptr, nullptr, nullptr, 0, 0}};
  DATA4St* d = Create(600);  // ID0001 .. ID0600
  ASSERT_NE(i4create(d, nullptr, tags), nullptr);
  d4close(d);
  e.code.autoOpen = 1;
  e.code.lockAttempts = 1;  // a held lock refuses at once
  static DATA4St* reader = nullptr;
  reader = d = d4open(&e.code, (dir / "t").c_str());
  ASSERT_NE(d, nullptr);
  d4tagSelect(d, d4tag(d, "ID"));
  for (int i = 1; i <= 40; ++i) ASSERT_EQ(d4seek(d, "ID0001"), 0);  // enough reads to map the index
  Engine other;
  other.code.autoOpen = 1;
  DATA4St* w = d4open(&other.code, (dir / "t").c_str());
  ASSERT_NE(w, nullptr);

  // Every key of the stretch the writer splits, sought after each page it writes.
  struct Seen {
    int right = 0, refused = 0, wrong = 0, locks = 0;
  };
  static Seen seen;
  seen = Seen{};
  platform::SysCallsOverride keep;
  static platform::SysCalls real = platform::Sys();
  platform::Sys().fcntl_lock = [](int fd, int cmd, void* arg) {
    if (static_cast<struct flock*>(arg)->l_type == F_RDLCK) ++seen.locks;
    return real.fcntl_lock(fd, cmd, arg);
  };
  platform::Sys().pwrite = [](int fd, const void* b, size_t n, off_t o) {
    const ssize_t done = real.pwrite(fd, b, n, o);
    if (n != engine::cdx::kPageSize) return done;  // records and headers; pages are what a descent reads
    for (int want = 280; want <= 320; ++want) {
      char key[16];
      std::snprintf(key, sizeof key, "ID%04d", want);
      const int rc = d4seek(reader, key);
      if (rc == e4lock) {
        ++seen.refused;
        error4set(d4code(reader), 0);
      } else if (rc == 0 && d4recNo(reader) == want) {
        ++seen.right;
      } else {
        ++seen.wrong;
      }
    }
    return done;
  };
  for (int k = 0; k < 120; ++k) {  // keys between ID0300 and ID0301: that leaf splits again and again
    char id[16];
    std::snprintf(id, sizeof id, "ID0300%c%c", 'a' + k / 26, 'a' + k % 26);
    d4appendStart(w, 0);
    d4blank(w);
    f4assign(d4field(w, "ID"), id);
    ASSERT_EQ(d4append(w), 0);
    ASSERT_EQ(d4unlock(w), 0);
  }
  EXPECT_EQ(seen.wrong, 0);
  EXPECT_GT(seen.refused, 0) << "seeks came while the writer was at work";
  EXPECT_EQ(seen.right, 0) << "a page is written only while the writer is at work";

  // After the writer, seeks go without the lock again and find the new keys too.
  platform::Sys().pwrite = real.pwrite;
  seen.locks = 0;
  EXPECT_EQ(d4seek(d, "ID0300ep"), 0);
  EXPECT_EQ(d4recNo(d), 720);
  EXPECT_EQ(seen.locks, 0);

  // A descent that began before a whole change of another opener finds the counter moved.
  {
    std::unique_ptr<engine::CdxFile> f;
    ASSERT_TRUE(engine::CdxFile::Open(dir / "t.CDX", /*read_only=*/true, /*exclusive=*/false, &f).ok());
    std::uint32_t before = 0, after = 0;
    ASSERT_TRUE(f->BeginUnlocked(&before)) << "mapped, no writer at work";
    EXPECT_TRUE(f->StillAt(before));
    d4tagSelect(w, nullptr);
    d4go(w, 5);
    ASSERT_EQ(d4lock(w, 5), 0);
    f4assign(d4field(w, "ID"), "Z0005");
    ASSERT_EQ(d4unlock(w), 0);
    EXPECT_FALSE(f->StillAt(before));
    ASSERT_TRUE(f->BeginUnlocked(&after));
    EXPECT_EQ(after, before + 2) << "odd at the first change, even at the end";
  }
  d4close(w);

  // A counter left odd: every seek takes the lock, and stays right.
  unsigned char head[12];
  {
    std::FILE* f = std::fopen((dir / "t.CDX").c_str(), "r+b");
    ASSERT_NE(f, nullptr);
    ASSERT_EQ(std::fread(head, 1, sizeof head, f), sizeof head);
    engine::PutBE32(head + engine::cdx::kOffCounter, engine::GetBE32(head + engine::cdx::kOffCounter) + 1);
    std::fseek(f, 0, SEEK_SET);
    ASSERT_EQ(std::fwrite(head, 1, sizeof head, f), sizeof head);
    std::fclose(f);
  }
  seen.locks = 0;
  for (int want = 10; want <= 600; want += 7) {
    char key[16];
    std::snprintf(key, sizeof key, "ID%04d", want);
    ASSERT_EQ(d4seek(d, key), 0) << key;
    EXPECT_EQ(d4recNo(d), want);
  }
  EXPECT_EQ(seen.locks, 85) << "one lock per seek while the counter is odd";
  d4close(d);
}

TEST_F(IndexTest, OpenIndexFoundByFileNameInAnyCaseUntilClosed) {
  DATA4St* d = Create(3);
  INDEX4St* own = i4create(d, nullptr, kTags);
  ASSERT_NE(own, nullptr);
  const TAG4INFO other[] = {{"BYTYPE", "TYPE", nullptr, 0, 0}, {nullptr, nullptr, nullptr, 0, 0}};
  INDEX4St* mdx = i4create(d, (dir / "_Other.MDX").c_str(), other);
  ASSERT_NE(mdx, nullptr) << error4lastDetail(&e.code);
  EXPECT_EQ(d4index(d, "t"), own) << "no extension: the name alone";
  EXPECT_EQ(d4index(d, "T.CDX"), own);
  EXPECT_EQ(d4index(d, (dir / "t.cdx").c_str()), own) << "the directory does not count";
  EXPECT_EQ(d4index(d, "_other.mdx"), mdx);
  EXPECT_EQ(d4index(d, "_OTHER"), mdx);
  EXPECT_EQ(d4index(d, "_OTHER.CDX"), nullptr) << "an extension given must match";
  EXPECT_EQ(d4index(d, "none"), nullptr);
  EXPECT_EQ(d4index(d, ""), nullptr);
  EXPECT_EQ(d4index(nullptr, "t"), nullptr);
  i4close(mdx);
  EXPECT_EQ(d4index(d, "_OTHER"), nullptr);
  EXPECT_EQ(d4index(d, "t"), own);
  d4close(d);
}

}  // namespace
}  // namespace kvd::test
