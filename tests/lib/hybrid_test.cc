// HybridList and KvHybridSet: the split at 30 entries and the new level, the merge below 10, a new
// smallest key as bottom entry up the first path, and random runs in both orders against
// std::multimap with every level of the index checked after each step.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "lib/foundation/kvfail.h"
#include "lib/foundation/kvhybrid.h"
#include "lib/foundation/kvstring.h"
#include "tests/lib/arena_test_util.h"

namespace {

struct IntEntry : HListSimpleNode<IntEntry> {
  KVGRAN_DECLARE_NEW(IntEntry)

 public:
  IntEntry(int k, int s) : key(k), serial(s) {}
  int Compare(const IntEntry& o) const { return key < o.key ? -1 : key > o.key ? 1 : 0; }
  int key;
  int serial;  // tells equal keys apart
};

using List = HybridList<IntEntry>;
using Node = QTopNode<IntEntry>;

// Every level: links both ways, each node's bottom the first entry (or node) it covers, counts
// that add up, parent set on the first node of each run only, one node at the top, and the
// fewest entries or nodes a node with a neighbour or parent keeps.
void CheckIndex(const List& l) {
  std::vector<const IntEntry*> entries;
  for (const IntEntry* e = l.GetHead(); e != nullptr; e = e->next) entries.push_back(e);
  ASSERT_EQ(static_cast<std::int32_t>(entries.size()), l.GetCount());
  const bool down = l._GetSortType() == LSort_Descent;
  for (std::size_t i = 1; i < entries.size(); ++i)
    ASSERT_LE(down ? entries[i]->Compare(*entries[i - 1]) : entries[i - 1]->Compare(*entries[i]), 0) << i;

  std::vector<const Node*> level;
  std::size_t pos = 0;
  const Node* prev = nullptr;
  for (const Node* n = l._GetTopNode(); n != nullptr; prev = n, n = n->next) {
    ASSERT_EQ(n->prev, prev);
    ASSERT_EQ(n->child, nullptr);
    ASSERT_EQ(n->bottom, pos < entries.size() ? entries[pos] : nullptr);
    if (n->prev != nullptr || n->parent != nullptr || n->GetParent() != nullptr) {
      ASSERT_GE(n->count, HLIST_KEEP_LOWEST);
    }
    pos += static_cast<std::size_t>(n->count);
    level.push_back(n);
  }
  ASSERT_EQ(pos, entries.size());
  while (level.size() > 1) {
    std::vector<const Node*> upper;
    std::size_t at = 0;
    prev = nullptr;
    ASSERT_NE(level.front()->parent, nullptr);
    for (const Node* u = level.front()->parent; u != nullptr; prev = u, u = u->next) {
      ASSERT_EQ(u->prev, prev);
      ASSERT_LT(at, level.size());
      ASSERT_EQ(u->child, level[at]);
      ASSERT_EQ(level[at]->parent, u);
      ASSERT_EQ(u->bottom, u->child->bottom);
      for (std::int32_t j = 1; j < u->count; ++j) ASSERT_EQ(level.at(at + j)->parent, nullptr);
      if (u->prev != nullptr || u->GetParent() != nullptr) {
        ASSERT_GE(u->count, HLIST_KEEP_UPPER);
      }
      at += static_cast<std::size_t>(u->count);
      upper.push_back(u);
    }
    ASSERT_EQ(at, level.size());
    level = upper;
  }
  ASSERT_EQ(level.front()->parent, nullptr);
  ASSERT_EQ(level.front()->prev, nullptr);
}

int Levels(const List& l) {
  int n = 0;
  for (const Node* q = l._GetTopNode(); q != nullptr; q = q->parent) ++n;
  return n;
}

TEST(HybridList, SplitsAtThirtyAndMergesBelowTen) {
  List l(true);
  EXPECT_EQ(l.GetHead(), nullptr);
  const IntEntry probe(5, 0);
  EXPECT_EQ(l.Find(probe), nullptr);
  for (int i = 0; i < 29; ++i) l.InsertSorted(new IntEntry(i, i));
  CheckIndex(l);
  const Node* top = l._GetTopNode();
  EXPECT_EQ(top->next, nullptr);
  EXPECT_EQ(top->parent, nullptr);
  EXPECT_EQ(top->count, 29);

  l.InsertSorted(new IntEntry(29, 29));
  CheckIndex(l);
  ASSERT_NE(top->next, nullptr);
  EXPECT_EQ(top->count, 15);
  EXPECT_EQ(top->next->count, 15);
  EXPECT_EQ(top->next->bottom->key, 15);
  ASSERT_NE(top->parent, nullptr);
  EXPECT_EQ(top->parent->count, 2);
  EXPECT_EQ(Levels(l), 2);

  // The second node down to 10 stays; at 9 it merges into the first and the top level goes.
  for (int k = 29; k > 24; --k) delete l.RemoveSimilar(IntEntry(k, 0));
  CheckIndex(l);
  EXPECT_EQ(top->next->count, 10);
  delete l.RemoveSimilar(IntEntry(24, 0));
  CheckIndex(l);
  EXPECT_EQ(top->next, nullptr);
  EXPECT_EQ(top->count, 24);
  EXPECT_EQ(Levels(l), 1);

  // Removing from the head, the first node takes the successor as its bottom.
  EXPECT_EQ(l.RemoveHead(true), nullptr);
  EXPECT_EQ(l.GetHead()->key, 1);
  EXPECT_EQ(top->bottom->key, 1);
  IntEntry* head = l.RemoveHead(false);
  EXPECT_EQ(head->key, 1);
  delete head;
  l.RemoveAll();
  EXPECT_EQ(l.GetCount(), 0);
  EXPECT_EQ(top->bottom, nullptr);
  CheckIndex(l);
}

TEST(HybridList, NewSmallestKeyIsBottomUpTheFirstPath) {
  List l(true);
  std::mt19937 rng(3);
  for (int i = 0; i < 2000; ++i) l.InsertSorted(new IntEntry(static_cast<int>(rng() % 100000) + 10, i));
  CheckIndex(l);
  ASSERT_GE(Levels(l), 3);
  IntEntry* low = new IntEntry(1, -1);
  l.InsertSorted(low);
  CheckIndex(l);
  EXPECT_EQ(l.GetHead(), low);
  for (const Node* q = l._GetTopNode(); q != nullptr; q = q->parent) EXPECT_EQ(q->bottom, low);

  // Equal keys go behind their equals; Find lands on the first of them.
  IntEntry* a = new IntEntry(50, 1);
  IntEntry* b = new IntEntry(50, 2);
  l.InsertSorted(a);
  l.InsertSorted(b);
  EXPECT_EQ(a->next, b);
  EXPECT_EQ(l.Find(IntEntry(50, 0)), a);
  EXPECT_EQ(l.FindEqual(IntEntry(50, 0)), a);
  EXPECT_EQ(l.FindEqual(IntEntry(51, 0)), nullptr);
  EXPECT_EQ(l.Find(IntEntry(51, 0))->key, l.Find(IntEntry(52, 0))->key);
  EXPECT_FALSE(l.InsertSortedUnique(a));
  EXPECT_TRUE(l.Remove(b));
  EXPECT_FALSE(l.Remove(b));
  delete b;
  IntEntry c(5, 0);
  EXPECT_TRUE(l.InsertSortedUnique(&c));
  EXPECT_TRUE(l.Remove(&c));
  CheckIndex(l);

  l.PrintLevelStatistics();
  char line[200];
  ASSERT_TRUE(KvDebugLastLine(0, line, sizeof line));
  EXPECT_EQ(std::string(line).rfind("HybridList level " + std::to_string(Levels(l) - 1) + ": 1 nodes", 0), 0u) << line;
}

// Grows, then shrinks, in each order; equal keys in the order they came, as std::multimap has
// them (reversed key order for the descending list).
TEST(HybridList, AgreesWithMultimap) {
  for (QSL_SortTypes mode : {LSort_Ascent, LSort_Descent}) {
    std::mt19937 rng(mode == LSort_Ascent ? 11 : 12);
    List l(true, mode);
    std::multimap<int, int> model;  // key (negated when descending) -> serial
    std::vector<IntEntry*> live;
    const auto mk = [&](int k) { return mode == LSort_Descent ? -k : k; };
    for (int step = 0; step < 8000; ++step) {
      const int k = static_cast<int>(rng() % 700);
      const bool growing = step < 4000;
      const unsigned op = rng() % 10;
      if (op < (growing ? 6u : 3u)) {
        IntEntry* e = new IntEntry(k, step);
        if (op == 0) {
          const bool had = model.count(mk(k)) > 0;
          ASSERT_EQ(l.InsertSortedUnique(e), !had);
          if (had) {
            delete e;
            e = nullptr;
          }
        } else {
          l.InsertSorted(e);
        }
        if (e != nullptr) {
          model.emplace(mk(k), step);
          live.push_back(e);
        }
      } else if (op < 8 && !live.empty()) {
        // A particular entry, maybe one of several with its key.
        const std::size_t i = rng() % live.size();
        IntEntry* e = live[i];
        ASSERT_TRUE(l.Remove(e));
        auto [lo, hi] = model.equal_range(mk(e->key));
        model.erase(std::find_if(lo, hi, [&](const auto& kv) { return kv.second == e->serial; }));
        live.erase(live.begin() + static_cast<long>(i));
        delete e;
      } else if (op == 8) {
        IntEntry* e = l.RemoveSimilar(IntEntry(k, 0));
        auto it = model.find(mk(k));
        ASSERT_EQ(e != nullptr, it != model.end());
        if (e != nullptr) {
          ASSERT_EQ(e->serial, it->second);  // the first of its key
          model.erase(it);
          live.erase(std::find(live.begin(), live.end(), e));
          delete e;
        }
      } else {
        IntEntry* head = l.RemoveHead(false);
        ASSERT_EQ(head == nullptr, model.empty());
        if (head != nullptr) {
          ASSERT_EQ(head->serial, model.begin()->second);
          model.erase(model.begin());
          live.erase(std::find(live.begin(), live.end(), head));
          delete head;
        }
      }
      CheckIndex(l);
      if (HasFatalFailure()) FAIL() << "mode " << mode << " step " << step;
      std::vector<int> serials;
      for (const IntEntry* e = l.GetHead(); e != nullptr; e = e->next) serials.push_back(e->serial);
      std::vector<int> want;
      for (const auto& kv : model) want.push_back(kv.second);
      ASSERT_EQ(serials, want) << "mode " << mode << " step " << step;
      const IntEntry* f = l.Find(IntEntry(k, 0));
      auto it = mode == LSort_Ascent ? model.lower_bound(k) : model.lower_bound(-k);
      ASSERT_EQ(f == nullptr ? -1 : f->serial, it == model.end() ? -1 : it->second);
    }
  }
}

TEST(KvHybridSet, AddsOnceSearchesAndWalks) {
  KvHybridSet<KvString> set;
  KvHybridSet<KvString>::PNODE p = nullptr;
  EXPECT_STREQ(set.First(p), "");
  EXPECT_EQ(p, nullptr);
  EXPECT_FALSE(set.Search("x"));
  set << "pump" << "valve" << "Motor" << "pump";
  EXPECT_EQ(set.GetCount(), 3);
  EXPECT_FALSE(set.Add("valve"));
  EXPECT_EQ(set.GetCount(), 3);
  EXPECT_TRUE(set.Search("valve"));
  EXPECT_FALSE(set.Search("valv"));
  std::string walk;
  for (set.First(p); p != nullptr; set.Next(p)) walk += std::string(p->_t) + " ";
  EXPECT_EQ(walk, "Motor pump valve ");
  EXPECT_TRUE(set.Remove("pump"));
  EXPECT_FALSE(set.Remove("pump"));
  EXPECT_EQ(set.GetCount(), 2);

  // Enough texts for several levels; every one found, none twice.
  KvHybridSet<KvString> many;
  std::mt19937 rng(8);
  std::map<std::string, int> model;
  for (int i = 0; i < 3000; ++i) {
    const std::string s = "T" + std::to_string(rng() % 2000);
    ASSERT_EQ(many.Add(s.c_str()), model.emplace(s, 0).second);
  }
  EXPECT_EQ(many.GetCount(), static_cast<std::int32_t>(model.size()));
  auto it = model.begin();
  for (many.First(p); p != nullptr; many.Next(p), ++it) ASSERT_EQ(std::string(p->_t), it->first);
  for (int i = 0; i < 2000; ++i) {
    const std::string s = "T" + std::to_string(i);
    ASSERT_EQ(many.Search(s.c_str()), model.count(s) > 0);
  }
}

}  // namespace
