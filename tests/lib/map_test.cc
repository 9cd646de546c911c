// KvRbMap and KvMap: duplicates in the order they came, the head's low key, cursor ends, and
// random runs against std::multimap with the tree checked after every step (red-black rules,
// parent words, order, the thread of KvMap and its last entry).
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "lib/foundation/kvmap.h"
#include "lib/foundation/kvrbmap.h"
#include "lib/foundation/kvstring.h"
#include "tests/lib/arena_test_util.h"

namespace {

using U32Map = KvRbMap<std::uint32_t, std::uint32_t>;
using Model = std::multimap<std::uint32_t, std::uint32_t>;

// Walks a subtree of a KvRbMap: order against the bounds, parent words, no red node with a red
// child. Answers the black height, or -1 where two paths differ.
int CheckRb(const U32Map& m, U32Map::PNODE x, U32Map::PNODE parent, int& nodes) {
  const U32Map::PNODE z = m._GetZ();
  if (x == z) return 1;
  ++nodes;
  EXPECT_EQ(x->Parent(), parent);
  if (x->IsRed()) {
    EXPECT_FALSE(x->_qLeft->IsRed());
    EXPECT_FALSE(x->_qRight->IsRed());
  }
  if (x->_qLeft != z) {
    EXPECT_LE(x->_qLeft->_k, x->_k);
  }
  if (x->_qRight != z) {
    EXPECT_GE(x->_qRight->_k, x->_k);
  }
  const int l = CheckRb(m, x->_qLeft, x, nodes), r = CheckRb(m, x->_qRight, x, nodes);
  if (l < 0 || l != r) return -1;
  return l + (x->IsRed() ? 0 : 1);
}

// The whole map against the model: structure, count, and both walks in the model's order
// (equal keys in insertion order, as std::multimap keeps them).
void CheckRbMap(const U32Map& m, const Model& model) {
  const U32Map::PNODE root = m._GetHead()->_qRight;
  ASSERT_FALSE(root->IsRed());
  ASSERT_FALSE(m._GetZ()->IsRed());
  ASSERT_EQ(m._GetHead()->_qLeft, m._GetZ());
  int nodes = 0;
  ASSERT_GT(CheckRb(m, root, m._GetHead(), nodes), 0) << "black heights differ";
  ASSERT_EQ(nodes, m.GetCount());
  ASSERT_EQ(m.GetCount(), static_cast<std::int32_t>(model.size()));
  U32Map::PNODE p = nullptr;
  auto it = model.begin();
  for (m.First(p); p != nullptr; m.Next(p), ++it) {
    ASSERT_EQ(m.GetKey(p), it->first);
    ASSERT_EQ(m.GetObj(p), it->second);
  }
  ASSERT_EQ(it, model.end());
  auto rit = model.rbegin();
  for (m.Last(p); p != nullptr; m.Prev(p), ++rit) ASSERT_EQ(m.GetObj(p), rit->second);
  ASSERT_EQ(rit, model.rend());
}

TEST(KvRbMap, DuplicatesLowKeyAndCursorEnds) {
  U32Map m(0, 999);
  U32Map::PNODE p = reinterpret_cast<U32Map::PNODE>(8);
  EXPECT_EQ(m.First(p), 999u);
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(m.WrapPrev(p), 999u);
  EXPECT_EQ(m.Remove(nullptr), 999u);

  // Key 0, the low key itself, goes right of the head and is found.
  m.Add(10, 0);
  std::uint32_t v = 0;
  EXPECT_TRUE(m.Search(0, v));
  EXPECT_EQ(v, 10u);

  m.Add(1, 5);
  m.Add(2, 5);
  m.Add(3, 5);
  EXPECT_EQ(m.AddIfUnique(4, 5), nullptr);
  EXPECT_EQ(m.GetCount(), 4);
  EXPECT_NE(m.AddIfUnique(4, 6), nullptr);

  // The key forms walk the entries of 5 in the order they came.
  std::vector<std::uint32_t> seen;
  for (std::uint32_t x = m.First(5, p); p != nullptr; x = m.Next(5, p)) seen.push_back(x);
  EXPECT_EQ(seen, (std::vector<std::uint32_t>{1, 2, 3}));
  seen.clear();
  for (std::uint32_t x = m.Last(5, p); p != nullptr; x = m.Prev(5, p)) seen.push_back(x);
  EXPECT_EQ(seen, (std::vector<std::uint32_t>{3, 2, 1}));
  m.Last(5, p);
  EXPECT_EQ(m.WrapNext(5, p), 1u);
  EXPECT_EQ(m.WrapPrev(5, p), 3u);
  EXPECT_EQ(m.First(7, p), 999u);
  EXPECT_EQ(p, nullptr);

  EXPECT_TRUE(m.Search(5, v, p));
  EXPECT_EQ(v, 1u);  // the first of its key
  EXPECT_EQ(m.SearchThis(5, 3), (m.Last(5, p), p));
  EXPECT_EQ(m.SearchThis(5, 7), nullptr);
  EXPECT_TRUE(m.Remove(5, 2));
  EXPECT_FALSE(m.Remove(5, 2));
  EXPECT_TRUE(m.Remove(5));
  EXPECT_EQ(m.First(5, p), 3u);

  m.Last(p);
  EXPECT_EQ(m.Next(p), 999u);
  EXPECT_EQ(p, nullptr);
  m.Last(p);
  EXPECT_EQ(m.WrapNext(p), 10u);
  EXPECT_EQ(m.RemoveAll(5), 1);
  m.RemoveAll();
  EXPECT_EQ(m.GetCount(), 0);
  EXPECT_EQ(m.First(p), 999u);
  m.Add(1, 1);
  EXPECT_EQ(m.GetCount(), 1);
}

// A comparison of the caller's own goes through the map's pointer: here the reverse order, whose
// smallest key is the largest number.
int Reverse(const std::uint32_t* a, const std::uint32_t* b) { return KvRbMapDefCompare(b, a); }

TEST(KvRbMap, CallersComparison) {
  U32Map m(0xFFFFFFFF, 0, &Reverse);
  EXPECT_EQ(m._GetCmp(), &Reverse);
  std::mt19937 rng(9);
  std::multimap<std::uint32_t, std::uint32_t, std::greater<>> model;
  for (std::uint32_t i = 0; i < 500; ++i) {
    const std::uint32_t k = rng() % 100;
    m.Add(i, k);
    model.emplace(k, i);
    if (i % 3 == 0) {
      const std::uint32_t gone = rng() % 100;
      auto it = model.find(gone);
      ASSERT_EQ(m.Remove(gone), it != model.end());
      if (it != model.end()) model.erase(it);
    }
  }
  EXPECT_EQ(m.AddIfUnique(1, model.begin()->first), nullptr);
  U32Map::PNODE p = nullptr;
  auto it = model.begin();
  for (m.First(p); p != nullptr; m.Next(p), ++it) {
    ASSERT_EQ(m.GetKey(p), it->first);
    ASSERT_EQ(m.GetObj(p), it->second);
  }
  EXPECT_EQ(it, model.end());
  std::uint32_t v = 0;
  EXPECT_TRUE(m.Search(model.begin()->first, v));
  EXPECT_EQ(v, model.begin()->second);
}

TEST(KvRbMap, TextKeysPointersAndKeysOnly) {
  KvRbMap<std::uint32_t, KvString> byName("", 0);
  for (const char* s : {"pump", "valve", "motor", "pump", "Zone"}) byName.Add(static_cast<std::uint32_t>(std::strlen(s)), s);
  KvRbMap<std::uint32_t, KvString>::PNODE p = nullptr;
  std::string keys;
  for (byName.First(p); p != nullptr; byName.Next(p)) keys += std::string(byName.GetKey(p)) + " ";
  EXPECT_EQ(keys, "Zone motor pump pump valve ");  // _mbscmp: bytes, upper case first

  KvRbPtrMap<KvString, std::uint32_t> objs(0);
  for (std::uint32_t k : {3u, 1u, 3u, 2u}) objs.Add(new KvString(std::to_string(k).c_str()), k);
  EXPECT_TRUE(objs.Delete(3u));
  EXPECT_EQ(objs.DeleteAll(3u), 1);
  EXPECT_EQ(objs.GetCount(), 2);
  KvRbPtrMap<KvString, std::uint32_t>::PNODE q = nullptr;
  objs.First(q);
  KvString* kept = objs.Remove(q);  // removing leaves the object to the caller
  EXPECT_STREQ(*kept, "1");
  delete kept;
  objs.DeleteAll();
  EXPECT_EQ(objs.GetCount(), 0);

  KvRbTree<KvString> names("");
  names.Add("b");
  names.Add("a");
  EXPECT_EQ(names.AddIfUnique("a"), nullptr);
  KvRbTree<KvString>::PNODE t = nullptr;
  EXPECT_STREQ(names.First(t), "a");
  EXPECT_STREQ(names.Next(t), "b");
  EXPECT_STREQ(names.Next(t), "");
  EXPECT_EQ(t, nullptr);
  EXPECT_TRUE(names.Search("b"));
  EXPECT_NE(names.Find("a"), nullptr);
}

// Random adds (many equal keys), removals by key, by key and value and by node, against
// std::multimap; the red-black rules must hold after every step.
TEST(KvRbMap, AgreesWithMultimap) {
  for (std::uint32_t seed : {1u, 2u, 3u}) {
    std::mt19937 rng(seed);
    U32Map m(0, 0xFFFFFFFF);
    Model model;
    std::uint32_t serial = 0;
    const std::uint32_t keys = seed == 1 ? 20 : 400;
    for (int step = 0; step < 3000; ++step) {
      const std::uint32_t k = rng() % keys;
      switch (rng() % 7) {
        case 0:
        case 1:
        case 2:
          m.Add(++serial, k);
          model.emplace(k, serial);
          break;
        case 3: {
          const bool had = model.count(k) > 0;
          ASSERT_EQ(m.AddIfUnique(++serial, k) == nullptr, had);
          if (!had) model.emplace(k, serial);
          break;
        }
        case 4: {
          auto it = model.find(k);
          ASSERT_EQ(m.Remove(k), it != model.end());
          if (it != model.end()) model.erase(it);
          break;
        }
        case 5: {
          // The last entry of the key, by node.
          auto [lo, hi] = model.equal_range(k);
          U32Map::PNODE p = nullptr;
          m.Last(k, p);
          ASSERT_EQ(p == nullptr, lo == hi);
          if (p != nullptr) {
            ASSERT_EQ(m.Remove(p), std::prev(hi)->second);
            model.erase(std::prev(hi));
          }
          break;
        }
        case 6: {
          std::uint32_t v = 0;
          auto it = model.find(k);
          ASSERT_EQ(m.Search(k, v), it != model.end());
          if (it != model.end()) {
            ASSERT_EQ(v, it->second);
            // A value from the middle of the key's entries.
            auto [lo, hi] = model.equal_range(k);
            auto mid = std::next(lo, static_cast<long>(std::distance(lo, hi) / 2));
            ASSERT_TRUE(m.Remove(k, mid->second));
            model.erase(mid);
          }
          break;
        }
      }
      CheckRbMap(m, model);
      if (HasFatalFailure()) FAIL() << "seed " << seed << " step " << step;
    }
  }
}

// ---------------------------------------------------------------------------------------------

using TextMap = KvMap<int, KvString>;
using TextModel = std::multimap<std::string, int>;

// No red node with a red child; order; the thread is the in-order walk; _qLast its end.
void InOrder(const TextMap& m, TextMap::PNODE x, std::vector<TextMap::PNODE>& out) {
  if (x == m._GetZ()) return;
  if (x->_fRed) {
    EXPECT_FALSE(x->_qLeft->_fRed);
    EXPECT_FALSE(x->_qRight->_fRed);
  }
  InOrder(m, x->_qLeft, out);
  out.push_back(x);
  InOrder(m, x->_qRight, out);
}

int BlackHeight(const TextMap& m, TextMap::PNODE x) {
  if (x == m._GetZ()) return 1;
  const int l = BlackHeight(m, x->_qLeft), r = BlackHeight(m, x->_qRight);
  return l < 0 || l != r ? -1 : l + (x->_fRed ? 0 : 1);
}

void CheckMap(const TextMap& m, const TextModel& model) {
  std::vector<TextMap::PNODE> order;
  InOrder(m, m._GetHead()->_qRight, order);
  ASSERT_FALSE(m._GetHead()->_qRight->_fRed);
  ASSERT_EQ(order.size(), model.size());
  ASSERT_EQ(m.GetCount(), static_cast<std::int32_t>(model.size()));
  TextMap::PNODE prev = m._GetHead();
  auto it = model.begin();
  for (TextMap::PNODE q : order) {
    ASSERT_EQ(prev->_qNext, q);
    ASSERT_EQ(q->_qPrev, prev);
    ASSERT_EQ(std::string(q->_k), it->first);
    ASSERT_EQ(q->_t, it->second);
    prev = q;
    ++it;
  }
  ASSERT_EQ(prev->_qNext, nullptr);
  ASSERT_EQ(m._GetLast(), prev);
}

TEST(KvMap, ThreadStaysExactThroughRemovals) {
  TextMap m("", -1);
  TextMap::PNODE p = nullptr;
  EXPECT_EQ(m.First(p), -1);
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(m._GetLast(), m._GetHead());
  EXPECT_EQ(m.Remove(m._GetZ(), m._GetHead(), false), -1);

  m.Add(1, "b");
  m.Add(2, "a");
  m.Add(3, "b");
  m.Add(4, "c");
  EXPECT_EQ(m.AddIfUnique(5, "a"), nullptr);
  int v = 0;
  EXPECT_TRUE(m.Search("b", v, p));
  EXPECT_EQ(v, 1);
  EXPECT_EQ(m[p], 1);
  EXPECT_TRUE(m.Replace("b", 10));
  m.Replace(p, 11);
  EXPECT_EQ(m.GetObj(p), 11);
  EXPECT_FALSE(m.Replace("x", 0));

  // The root's children through the tree steps.
  p = m._GetHead()->_qRight;
  TextMap::PNODE left = p;
  m.Left(left);
  EXPECT_NE(left, nullptr);
  EXPECT_LT(m.GetKey(left), m.GetKey(p));

  m.Last(p);
  EXPECT_EQ(m.Next(p), -1);
  m.Last(p);
  EXPECT_EQ(m.WrapNext(p), 2);
  EXPECT_EQ(m.WrapPrev(p), 4);
  EXPECT_TRUE(m.Remove("b"));
  EXPECT_TRUE(m.Search("b", v));
  EXPECT_EQ(v, 3);
  m.RemoveAll();
  EXPECT_EQ(m.GetCount(), 0);
  EXPECT_EQ(m._GetLast(), m._GetHead());
  m.Add(1, "x");
  EXPECT_EQ(m.Last(p), 1);

  KvPtrMap<KvString, KvString> objs("");
  objs.Add(new KvString("1"), "one");
  objs.Add(new KvString("2"), "two");
  EXPECT_TRUE(objs.Delete("one"));
  EXPECT_FALSE(objs.Delete("one"));
  objs.DeleteAll();
  EXPECT_EQ(objs.GetCount(), 0);
}

// Removal by key and by node (with the parent found through the tree steps) against the model.
// Black heights are checked while nothing was removed yet: removal does not rebalance.
TEST(KvMap, AgreesWithMultimap) {
  std::mt19937 rng(17);
  TextMap m("", -1);
  TextModel model;
  bool removed = false;
  for (int step = 0; step < 4000; ++step) {
    const std::string k = std::to_string(rng() % 300);
    switch (rng() % (step < 800 ? 2 : 5)) {
      case 0:
      case 1:
        m.Add(step, k.c_str());
        model.emplace(k, step);
        break;
      case 2: {
        auto it = model.find(k);
        ASSERT_EQ(m.Remove(k.c_str()), it != model.end());
        if (it != model.end()) model.erase(it), removed = true;
        break;
      }
      case 3: {
        // Descend by the tree steps to the first node of the key, keeping its parent.
        TextMap::PNODE parent = m._GetHead(), x = m._GetHead()->_qRight, hit = nullptr, hitParent = nullptr;
        bool fromLeft = false, hitLeft = false;
        const KvString key(k.c_str());
        while (x != nullptr) {
          TextMap::PNODE next = x;
          if (key < m.GetKey(x)) {
            m.Left(next), fromLeft = true;
          } else if (m.GetKey(x) < key) {
            m.Right(next), fromLeft = false;
          } else {
            hit = x, hitParent = parent, hitLeft = fromLeft;
            m.Left(next), fromLeft = true;
          }
          parent = x;
          x = next;
        }
        auto it = model.find(k);
        ASSERT_EQ(hit != nullptr, it != model.end());
        if (hit != nullptr) {
          ASSERT_EQ(m.Remove(hit, hitParent, hitLeft), it->second);
          model.erase(it);
          removed = true;
        }
        break;
      }
      case 4: {
        int v = -2;
        auto it = model.find(k);
        ASSERT_EQ(m.Search(k.c_str(), v), it != model.end());
        if (it != model.end()) {
          ASSERT_EQ(v, it->second);
        }
        break;
      }
    }
    CheckMap(m, model);
    if (!removed) {
      ASSERT_GT(BlackHeight(m, m._GetHead()->_qRight), 0) << "step " << step;
    }
    if (HasFatalFailure()) FAIL() << "step " << step;
  }
}

}  // namespace
