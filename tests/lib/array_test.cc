// Arrays and the singly linked list: buffer moves at the size-class boundaries, cursor ends and
// the dummy, the index failure, searching and sorting, and random runs against std::vector and
// std::list with the structure checked after every step.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <list>
#include <random>
#include <string>
#include <vector>

#include "lib/foundation/kvarray.h"
#include "lib/foundation/kvlist.h"
#include "lib/foundation/kvset.h"
#include "lib/foundation/kvstring.h"
#include "tests/lib/arena_test_util.h"

namespace {

using kvd::classlib::testing::FailureOf;

template <class A>
std::int64_t Held(const A&) {
  const KvGranularityMemoryWatcher* w = A::_GetInternalAllocWatcher();
  return w->GetAllocated() + w->GetFreed() + w->GetStatic();
}

// The array's buffer agrees with its count: none for 0, else the smallest class that held the
// largest count since the buffer was taken, which is at least the count.
template <class A>
void CheckArray(const A& a) {
  if (a.GetCount() == 0) {
    ASSERT_EQ(a._GetGranularity(), nullptr);
    ASSERT_EQ(static_cast<typename A::TYPE*>(a), nullptr);
    return;
  }
  ASSERT_NE(a._GetGranularity(), nullptr);
  ASSERT_GE(a._GetGranularity()->GetSize(), a.GetCount() * sizeof(typename A::TYPE));
  ASSERT_TRUE(KvGranularity::_IsPointerInComittedRange(static_cast<typename A::TYPE*>(a)));
}

TEST(KvDynArray, MovesOnlyAtClassBoundaries) {
  KvDynArray<std::int64_t> a;
  const std::int64_t before = Held(a);
  EXPECT_EQ(a._GetGranularity(), nullptr);
  a.Add(7);
  a.RemoveFirst();
  EXPECT_EQ(a._GetGranularity(), nullptr);  // emptied: the buffer went back
  EXPECT_EQ(Held(a), before);

  std::vector<int> moves;
  for (int n = 1; n <= 600; ++n) {
    std::int64_t* old = a;
    a.Add(n);
    if (static_cast<std::int64_t*>(a) != old) moves.push_back(n);
    ASSERT_EQ(Held(a), before + 1);
  }
  EXPECT_EQ(moves, (std::vector<int>{1, 2, 3, 5, 9, 17, 33, 65, 129, 513}));
  EXPECT_EQ(a._GetGranularity()->GetSize(), 16384u);

  // Lowering the count keeps the class; only 0 gives the buffer back.
  std::int64_t* at = a;
  EXPECT_FALSE(a.SetCount(3));
  EXPECT_EQ(static_cast<std::int64_t*>(a), at);
  EXPECT_EQ(a._GetGranularity()->GetSize(), 16384u);
  EXPECT_EQ(a[2], 3);
  EXPECT_FALSE(a.SetCount(10));
  EXPECT_EQ(a[9], 0);  // new elements are default values
  EXPECT_FALSE(a.SetCount(0));
  EXPECT_EQ(a._GetGranularity(), nullptr);
  EXPECT_EQ(Held(a), before);
  EXPECT_TRUE(a.SetCount(1));
}

TEST(KvDynArray, CursorsAndIndexes) {
  KvDynArray<KvString> a;
  KvString* p = reinterpret_cast<KvString*>(1);
  EXPECT_STREQ(a.First(p), "");
  EXPECT_EQ(p, nullptr);
  EXPECT_STREQ(a.WrapNext(p), "");
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(FailureOf([&] { a.Ndx2Obj(0); }), KVARRAY_INDEX_TOO_LARGE);

  a.Add("b");
  a.AddFirst("a");
  a.AddLast("d");
  a.AddBefore(a.Ndx2Pnode(2), "c");
  a.AddAfter(a.Ndx2Pnode(3), "e");
  a.AddAfter(nullptr, "0");
  a.AddBefore(nullptr, "f");
  ASSERT_EQ(a.GetCount(), 7);
  std::string walk;
  for (a.First(p); p != nullptr; a.Next(p)) walk += static_cast<const char*>(*p);
  EXPECT_EQ(walk, "0abcdef");
  walk.clear();
  for (a.Last(p); p != nullptr; a.Prev(p)) walk += static_cast<const char*>(*p);
  EXPECT_EQ(walk, "fedcba0");

  a.Last(p);
  EXPECT_STREQ(a.Next(p), "");
  EXPECT_EQ(p, nullptr);
  a.Last(p);
  EXPECT_STREQ(a.WrapNext(p), "0");
  EXPECT_EQ(a.GetNdx(p), 0);
  EXPECT_STREQ(a.WrapPrev(p), "f");
  EXPECT_EQ(a.GetNdx(p), 6);
  EXPECT_EQ(a.GetNdx(nullptr), -1);

  EXPECT_STREQ(a.Ndx2Obj(a.GetCount() - 1), "f");
  EXPECT_EQ(FailureOf([&] { a.Ndx2Obj(a.GetCount()); }), KVARRAY_INDEX_TOO_LARGE);
  EXPECT_EQ(FailureOf([&] { a.Ndx2ObjPtr(7); }), KVARRAY_INDEX_TOO_LARGE);
  EXPECT_EQ(FailureOf([&] { a.Ndx2Pnode(-1); }), KVARRAY_INDEX_TOO_LARGE);
  EXPECT_EQ(FailureOf([&] { a[std::size_t{7}]; }), KVARRAY_INDEX_TOO_LARGE);
  EXPECT_EQ(FailureOf([&] { a.RemoveNdx(7); }), KVARRAY_INDEX_TOO_LARGE);
  EXPECT_EQ(a.GetCount(), 7);

  // Removing forms answer the element.
  EXPECT_STREQ(a.RemoveNdx(1), "a");
  EXPECT_STREQ(a.RemoveFirst(), "0");
  EXPECT_STREQ(a.RemoveLast(), "f");
  EXPECT_STREQ(a.Remove(a.Ndx2Pnode(1)), "c");
  EXPECT_TRUE(a.Remove(KvString("e")));
  EXPECT_FALSE(a.Remove(KvString("e")));
  ASSERT_EQ(a.GetCount(), 2);
  a.Replace(0, "B");
  a.Replace(a.Ndx2Pnode(1), "D");
  EXPECT_EQ(a.AddIfUnique("B"), nullptr);
  EXPECT_NE(a.AddIfUnique("Z"), nullptr);
  EXPECT_TRUE(a.Search("Z", p));
  EXPECT_EQ(a.GetNdx(p), 2);
  EXPECT_TRUE(LSearch(a, "D", p));
  EXPECT_EQ(a.GetNdx(p), 1);
  EXPECT_FALSE(LSearch(a, "d", p));
  EXPECT_EQ(p, nullptr);

  // An element of the array itself added to it, across a buffer move and within one.
  KvDynArray<KvString> self;
  self.Add("x");
  for (int i = 0; i < 20; ++i) self.AddFirst(self[self.GetCount() - 1]);
  for (int i = 0; i < self.GetCount(); ++i) EXPECT_STREQ(self[i], "x");

  // Copies are deep; += appends.
  KvDynArray<KvString> copy(a);
  copy += a;
  copy += KvString("end");
  EXPECT_EQ(copy.GetCount(), 7);
  copy[0] = "changed";
  EXPECT_STREQ(a[0], "B");
  copy = a;
  EXPECT_EQ(copy.GetCount(), 3);
  copy.RemoveAll();
  EXPECT_EQ(copy._GetGranularity(), nullptr);
}

TEST(KvDynArray, SortAndBinarySearch) {
  KvDynArray<KvString> a;
  for (const char* s : {"pear", "apple", "fig", "kiwi", "apple", "date"}) a.Add(s);
  a.Sort(&KvDefCompare);
  std::string walk;
  for (int i = 0; i < a.GetCount(); ++i) walk += std::string(a[i]) + " ";
  EXPECT_EQ(walk, "apple apple date fig kiwi pear ");
  bool found = false;
  EXPECT_EQ(a.BSearch("fig", &KvDefCompare), 3);
  EXPECT_EQ(a.BSearch("grape", &KvDefCompare), -1);
  EXPECT_EQ(a.BSearch("grape", found, &KvDefCompare), 4);
  EXPECT_FALSE(found);
  EXPECT_EQ(a.BSearch("apple", found, &KvDefCompare), 0);
  EXPECT_TRUE(found);
  KvString* p = nullptr;
  EXPECT_EQ(a.BSearch("zebra", found, p, &KvDefCompare), 6);
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(a.BSearch("kiwi", found, p, &KvDefCompare), 4);
  EXPECT_STREQ(*p, "kiwi");
}

TEST(KvDynArray, PointersAndPlainValues) {
  KvDynPtrArray<KvString> ptrs;
  const std::int64_t objects = KvString::_GetWatcher()->GetAllocated() + KvString::_GetWatcher()->GetFreed();
  for (const char* s : {"one", "two", "three"}) ptrs.Add(new KvString(s));
  ptrs.Delete(ptrs.Ndx2Pnode(1));
  EXPECT_EQ(ptrs.GetCount(), 2);
  EXPECT_STREQ(*ptrs[1], "three");
  KvString* kept = ptrs.RemoveFirst();  // removing leaves the object alone
  ptrs.DeleteAll();
  EXPECT_EQ(ptrs.GetCount(), 0);
  EXPECT_EQ(KvString::_GetWatcher()->GetAllocated() + KvString::_GetWatcher()->GetFreed(), objects + 1);
  delete kept;

  KvMemArray<std::int32_t> m;
  const std::int64_t before = Held(m);
  for (std::int32_t i = 0; i < 300; ++i) m.AddFirst(i);
  EXPECT_EQ(m.GetCount(), 300);
  EXPECT_EQ(m[0], 299);
  EXPECT_EQ(m[299], 0);
  EXPECT_EQ(m.RemoveNdx(100), 199);
  m.AddAfter(m.Ndx2Pnode(0), -1);
  EXPECT_EQ(m[1], -1);
  EXPECT_EQ(m[2], 298);
  KvMemArray<std::int32_t> copy(m);
  EXPECT_EQ(copy.GetCount(), 300);
  EXPECT_EQ(Held(m), before + 2);
  EXPECT_STREQ(KvMemArray<std::int32_t>::_GetInternalAllocWatcher()->GetType(), "KvMemArray<int>");
}

// Random adds and removes at random places against std::vector, the buffer checked each step.
TEST(KvDynArray, AgreesWithVector) {
  std::mt19937 rng(71);
  KvDynArray<KvString> a;
  std::vector<std::string> m;
  for (int step = 0; step < 6000; ++step) {
    const std::string v = std::to_string(rng() % 1000);
    const std::int32_t n = static_cast<std::int32_t>(m.size());
    const std::int32_t at = n > 0 ? static_cast<std::int32_t>(rng() % n) : 0;
    switch (rng() % 10) {
      case 0:
      case 1: a.Add(v.c_str()); m.push_back(v); break;
      case 2: a.AddFirst(v.c_str()); m.insert(m.begin(), v); break;
      case 3:
        if (n > 0) {
          a.AddBefore(a.Ndx2Pnode(at), v.c_str());
          m.insert(m.begin() + at, v);
        }
        break;
      case 4:
        if (n > 0) {
          a.AddAfter(a.Ndx2Pnode(at), v.c_str());
          m.insert(m.begin() + at + 1, v);
        }
        break;
      case 5:
        if (n > 0) {
          ASSERT_EQ(std::string(a.RemoveNdx(at)), m[at]);
          m.erase(m.begin() + at);
        }
        break;
      case 6: {
        const bool had = std::find(m.begin(), m.end(), v) != m.end();
        ASSERT_EQ(a.Remove(KvString(v.c_str())), had);
        if (had) m.erase(std::find(m.begin(), m.end(), v));
        break;
      }
      case 7: {
        const std::int32_t c = static_cast<std::int32_t>(rng() % 40);
        a.SetCount(c);
        m.resize(static_cast<std::size_t>(c));
        break;
      }
      case 8:
        if (n > 0) {
          a.Replace(at, v.c_str());
          m[at] = v;
        }
        break;
      case 9:
        if (rng() % 20 == 0) {
          a.RemoveAll();
          m.clear();
        }
        break;
    }
    CheckArray(a);
    ASSERT_EQ(a.GetCount(), static_cast<std::int32_t>(m.size())) << "step " << step;
    for (std::size_t i = 0; i < m.size(); ++i) ASSERT_EQ(std::string(a[i]), m[i]) << "step " << step;
  }
}

// ---------------------------------------------------------------------------------------------

template <class T>
void CheckList(const Kv1List<T>& l, const std::list<std::string>& m) {
  typename Kv1List<T>::PNODE p = nullptr, last = nullptr;
  std::int32_t n = 0;
  auto it = m.begin();
  for (l.First(p); p != nullptr; l.Next(p), ++it, ++n) {
    ASSERT_NE(it, m.end());
    ASSERT_EQ(std::string(l.GetObj(p)), *it);
    last = p;
  }
  ASSERT_EQ(it, m.end());
  ASSERT_EQ(n, l.GetCount());
  typename Kv1List<T>::PNODE tail = nullptr;
  l.Last(tail);
  ASSERT_EQ(tail, last);
}

TEST(Kv1List, StepsStackAndDummy) {
  Kv1List<KvString> l;
  Kv1List<KvString>::PNODE p = nullptr;
  EXPECT_STREQ(l.First(p), "");
  EXPECT_EQ(p, nullptr);
  EXPECT_STREQ(l.Pop(), "");
  l.Push("b");
  l.Push("a");
  EXPECT_STREQ(l.Top(), "a");
  l.Add("c");
  Kv1List<KvString>::PNODE c = l.Search("c");
  ASSERT_NE(c, nullptr);
  l.AddAfter(c, "d");
  EXPECT_STREQ(l.Last(), "d");
  EXPECT_EQ(l.AddIfUnique("a"), nullptr);
  l.Last(p);
  EXPECT_STREQ(l.Next(p), "");
  EXPECT_EQ(p, nullptr);
  l.Last(p);
  EXPECT_STREQ(l.WrapNext(p), "a");
  l.Replace(p, "A");
  EXPECT_STREQ(l.Pop(), "A");
  EXPECT_EQ(l.GetCount(), 3);

  Kv1List<KvString> copy(l);
  copy.RemoveAll();
  EXPECT_EQ(l.GetCount(), 3);

  Kv1PtrList<KvString> ptrs;
  ptrs.Add(new KvString("x"));
  KvString* y = new KvString("y");
  ptrs.Add(y);
  ptrs.Add(new KvString("z"));
  EXPECT_STREQ(*ptrs.First(), "x");
  EXPECT_STREQ(*ptrs.Last(), "z");
  EXPECT_TRUE(ptrs.Delete(y));
  EXPECT_FALSE(ptrs.Delete(y));
  ptrs.DeleteFirst();
  EXPECT_EQ(ptrs.GetCount(), 1);
  ptrs.DeleteAll();
  EXPECT_EQ(ptrs.First(), nullptr);
}

TEST(Kv1List, AgreesWithList) {
  std::mt19937 rng(5);
  Kv1List<KvString> l;
  std::list<std::string> m;
  for (int step = 0; step < 5000; ++step) {
    const std::string v = std::to_string(rng() % 200);
    switch (rng() % 8) {
      case 0: l.AddFirst(v.c_str()); m.push_front(v); break;
      case 1: l.Add(v.c_str()); m.push_back(v); break;
      case 2: {
        // After the node of the k-th value.
        if (m.empty()) break;
        const std::size_t k = rng() % m.size();
        Kv1List<KvString>::PNODE p = nullptr;
        l.First(p);
        for (std::size_t i = 0; i < k; ++i) l.Next(p);
        l.AddAfter(p, v.c_str());
        m.insert(std::next(m.begin(), static_cast<long>(k) + 1), v);
        break;
      }
      case 3: {
        const bool had = std::find(m.begin(), m.end(), v) != m.end();
        ASSERT_EQ(l.Remove(KvString(v.c_str())), had);
        if (had) m.erase(std::find(m.begin(), m.end(), v));
        break;
      }
      case 4: {
        const std::string want = m.empty() ? "" : m.front();
        ASSERT_EQ(std::string(l.RemoveFirst()), want);
        if (!m.empty()) m.pop_front();
        break;
      }
      case 5: {
        // Removing the last node moves _qLast back.
        if (m.empty()) break;
        Kv1List<KvString>::PNODE p = nullptr, prev = nullptr;
        for (l.First(p); p->_qNext != nullptr; l.Next(p)) prev = p;
        ASSERT_EQ(std::string(l.Remove(p, prev)), m.back());
        m.pop_back();
        break;
      }
      case 6: {
        const bool had = std::find(m.begin(), m.end(), v) != m.end();
        ASSERT_EQ(l.AddIfUnique(v.c_str()) == nullptr, had);
        if (!had) m.push_back(v);
        break;
      }
      case 7:
        if (rng() % 30 == 0) {
          l.RemoveAll();
          m.clear();
        }
        break;
    }
    CheckList(l, m);
  }
}

// ---------------------------------------------------------------------------------------------

TEST(KvSet, MembersUnionAndDifference) {
  KvSet a(40), b(100);
  EXPECT_EQ(a.GetNumDWords(), 2u);
  EXPECT_EQ(a.GetNumBytes(), 8u);
  a += 3;
  a += 3;
  a += 39;
  a += 40;  // outside: nothing
  EXPECT_EQ(a.GetCount(), 2u);
  EXPECT_TRUE(a.IsElem(39));
  EXPECT_FALSE(a.IsElem(40));
  b += 3;
  b += 99;
  a += b;
  EXPECT_EQ(a.GetNumElem(), 100u);
  EXPECT_EQ(a.GetCount(), 3u);
  EXPECT_TRUE(a.IsElem(99));
  a -= b;
  EXPECT_EQ(a.GetCount(), 1u);
  EXPECT_TRUE(a.IsElem(39));
  a -= 39;
  EXPECT_EQ(a.GetCount(), 0u);
  KvSet c(b);
  EXPECT_TRUE(c.IsElem(99));
  c.SetEmpty();
  EXPECT_FALSE(c.IsElem(99));
  c = b;
  EXPECT_EQ(c.GetCount(), 2u);
}

}  // namespace
