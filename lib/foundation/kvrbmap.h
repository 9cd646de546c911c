// The red-black map of the class library: values under keys, in key order, duplicates allowed.
//
// Structure: a head node above the tree (the root is its right child) and one leaf sentinel that
// every missing child points to; both are made on the arena at construction and live as long as
// the map. The head carries `lowKey` and the `nullValue`. Each node keeps its parent in one word
// with its colour in the lowest bit (set for red); arena blocks are at least 8-aligned, so the
// bit is free. Keys are compared through `_cmp`, a function of two key pointers answering
// negative, 0 or positive.
//
// Insertion is top-down: on the way from the head, a node with two red children is split (made
// red, its children black) and a red parent is repaired by one or two rotations there, so no pass
// back up is needed. A key below a node's key goes left, every other key right: equal keys go
// right, and `Add` keeps entries of one key in the order they came. Because the head's key takes
// part in the first comparison, `lowKey` must be the smallest key the map will ever see (0, the
// empty text); a smaller one is not detected and gets lost to every walk.
//
// Removal unlinks the node the usual bottom-up way and recolours and rotates back to a valid
// red-black tree, so the map stays balanced under any mix of adding and removing.
//
// Cursors: PNODE is the node; it stays valid until its own node is removed. Steps climb through
// the parent words. A step that runs out answers the nullValue (writable and shared by the map:
// never write through it) and a null PNODE. The key forms of the steps walk only the entries of
// one key, from the first of them in order; Search also lands on the first.
//
// Nodes count to KvRbMapNode<T, K>::_GetWatcher, maps made with new to KvRbMap<T, K>::_GetWatcher.
// No lock. The count is signed 32-bit.
#pragma once

#include <cstdint>

#include "lib/foundation/kvgran.h"
#include "lib/foundation/kvstring.h"

// The default comparisons, each as a pair for pointers and references: unsigned 32-bit keys in
// plain order, texts by _mbscmp.
inline int KvRbMapDefCompare(const std::uint32_t* a, const std::uint32_t* b) { return *a < *b ? -1 : *a > *b ? 1 : 0; }
inline int KvRbMapDefCompare(const std::uint32_t& a, const std::uint32_t& b) { return KvRbMapDefCompare(&a, &b); }
inline int KvRbMapDefCompare(const KvString* a, const KvString* b) { return KvDefCompare(a, b); }
inline int KvRbMapDefCompare(const KvString& a, const KvString& b) { return KvDefCompare(a, b); }

template <class T, class K>
class KvRbMapNode {
  KVGRAN_DECLARE_NEW(KvRbMapNode)

 public:
  KvRbMapNode(const T& t, const K& k, KvRbMapNode* z) : _qLeft(z), _qRight(z), _t(t), _k(k) {}

  KvRbMapNode* Parent() const { return reinterpret_cast<KvRbMapNode*>(_uParent & ~std::uintptr_t{1}); }
  void SetParent(KvRbMapNode* p) { _uParent = reinterpret_cast<std::uintptr_t>(p) | (_uParent & 1); }
  bool IsRed() const { return (_uParent & 1) != 0; }
  void SetRed(bool red) { _uParent = (_uParent & ~std::uintptr_t{1}) | (red ? 1 : 0); }

  KvRbMapNode* _qLeft;         // left child, the sentinel when none
  KvRbMapNode* _qRight;        // right child, the sentinel when none
  std::uintptr_t _uParent = 0;  // parent's address | 1 for red
  T _t;                        // the value
  K _k;                        // the key
};

template <class T, class K>
class KvRbMap {
  KVGRAN_DECLARE_NEW(KvRbMap)

 public:
  using TYPE = T;
  using KEY = K;
  using Q = KvRbMapNode<T, K>*;
  using PNODE = KvRbMapNode<T, K>*;
  using CMP = int (*)(const K*, const K*);

  KvRbMap(const K& lowKey, const T& nullValue, CMP cmp = &KvRbMapDefCompare) : _cmp(cmp) {
    _qZ = new KvRbMapNode<T, K>(nullValue, lowKey, nullptr);
    _qZ->_qLeft = _qZ->_qRight = _qZ;
    try {
      _qHead = new KvRbMapNode<T, K>(nullValue, lowKey, _qZ);
    } catch (...) {
      delete _qZ;
      throw;
    }
  }
  KvRbMap(const KvRbMap&) = delete;
  KvRbMap& operator=(const KvRbMap&) = delete;
  virtual ~KvRbMap() {
    RemoveAll();
    delete _qHead;
    delete _qZ;
  }

  std::int32_t GetCount() const { return _cCount; }
  T& GetObj(PNODE pnode) const { return pnode != nullptr && pnode != _qZ ? pnode->_t : _qHead->_t; }
  const K& GetKey(PNODE pnode) const { return pnode != nullptr && pnode != _qZ ? pnode->_k : _qHead->_k; }

  // Adds the entry behind all entries of the same key and answers its node.
  PNODE Add(const T& value, const K& key) { return _Insert(value, key, false); }
  // As Add, but null, and nothing added, when the key is in the map already.
  PNODE AddIfUnique(const T& value, const K& key) { return _Insert(value, key, true); }

  bool Search(const K& key) const { return _LowerBound(key) != nullptr; }
  bool Search(const K& key, T& value) const {
    PNODE pnode;
    return Search(key, value, pnode);
  }
  // The first entry of the key: its value and node. Without one, value and pnode stay.
  bool Search(const K& key, T& value, PNODE& pnode) const {
    PNODE q = _LowerBound(key);
    if (q == nullptr) return false;
    value = q->_t;
    pnode = q;
    return true;
  }
  // The first entry of the key whose value equals `value` (==), or null.
  PNODE SearchThis(const K& key, const T& value) const {
    for (PNODE q = _LowerBound(key); q != nullptr; q = _NextOfKey(q, key))
      if (q->_t == value) return q;
    return nullptr;
  }

  T& First(PNODE& pnode) const { return _Set(pnode, _Leftmost(_Root())); }
  T& Last(PNODE& pnode) const { return _Set(pnode, _Rightmost(_Root())); }
  T& Next(PNODE& pnode) const { return _Set(pnode, pnode != nullptr ? _Successor(pnode) : nullptr); }
  T& Prev(PNODE& pnode) const { return _Set(pnode, pnode != nullptr ? _Predecessor(pnode) : nullptr); }
  // As Next and Prev, but past one end on at the other; from null to the first (last) entry.
  T& WrapNext(PNODE& pnode) const {
    PNODE q = pnode != nullptr ? _Successor(pnode) : nullptr;
    return _Set(pnode, q != nullptr ? q : _Leftmost(_Root()));
  }
  T& WrapPrev(PNODE& pnode) const {
    PNODE q = pnode != nullptr ? _Predecessor(pnode) : nullptr;
    return _Set(pnode, q != nullptr ? q : _Rightmost(_Root()));
  }

  // The same steps over the entries of one key only.
  T& First(const K& key, PNODE& pnode) const { return _Set(pnode, _LowerBound(key)); }
  T& Last(const K& key, PNODE& pnode) const { return _Set(pnode, _LastOfKey(key)); }
  T& Next(const K& key, PNODE& pnode) const { return _Set(pnode, pnode != nullptr ? _NextOfKey(pnode, key) : nullptr); }
  T& Prev(const K& key, PNODE& pnode) const {
    PNODE q = pnode != nullptr ? _Predecessor(pnode) : nullptr;
    return _Set(pnode, q != nullptr && _cmp(&q->_k, &key) == 0 ? q : nullptr);
  }
  T& WrapNext(const K& key, PNODE& pnode) const {
    PNODE q = pnode != nullptr ? _NextOfKey(pnode, key) : nullptr;
    return _Set(pnode, q != nullptr ? q : _LowerBound(key));
  }
  T& WrapPrev(const K& key, PNODE& pnode) const {
    PNODE q = pnode;
    Prev(key, q);
    return _Set(pnode, q != nullptr ? q : _LastOfKey(key));
  }

  // Removes the entry and answers its value; the nullValue for null or the sentinel.
  T Remove(PNODE pnode) {
    if (pnode == nullptr || pnode == _qZ || pnode == _qHead) return _qHead->_t;
    T out(pnode->_t);
    _Unlink(pnode);
    delete pnode;
    return out;
  }
  // Removes the first entry of the key; false when there is none.
  bool Remove(const K& key) {
    PNODE q = _LowerBound(key);
    if (q == nullptr) return false;
    Remove(q);
    return true;
  }
  // Removes the first entry of the key whose value equals `value`; false when there is none.
  bool Remove(const K& key, const T& value) {
    PNODE q = SearchThis(key, value);
    if (q == nullptr) return false;
    Remove(q);
    return true;
  }
  // Frees every entry: leaves first, each one's parent next (so no rebalancing is needed).
  void RemoveAll() {
    PNODE q = _Root();
    while (_cCount > 0) {
      if (q->_qLeft != _qZ) {
        q = q->_qLeft;
      } else if (q->_qRight != _qZ) {
        q = q->_qRight;
      } else {
        PNODE parent = q->Parent();
        (parent->_qLeft == q ? parent->_qLeft : parent->_qRight) = _qZ;
        delete q;
        --_cCount;
        q = parent;
      }
    }
    _qHead->_qRight = _qZ;
  }
  // Removes every entry of the key and answers how many went.
  std::int32_t RemoveAll(const K& key) {
    std::int32_t n = 0;
    while (Remove(key)) ++n;
    return n;
  }

  // For checks and tests: the head (its right child is the root) and the sentinel.
  PNODE _GetHead() const { return _qHead; }
  PNODE _GetZ() const { return _qZ; }
  CMP _GetCmp() const { return _cmp; }

 protected:
  PNODE _Root() const { return _qHead->_qRight; }
  T& _Set(PNODE& pnode, PNODE q) const {
    pnode = q;
    return q != nullptr ? q->_t : _qHead->_t;
  }
  PNODE _Leftmost(PNODE q) const {
    if (q == _qZ) return nullptr;
    while (q->_qLeft != _qZ) q = q->_qLeft;
    return q;
  }
  PNODE _Rightmost(PNODE q) const {
    if (q == _qZ) return nullptr;
    while (q->_qRight != _qZ) q = q->_qRight;
    return q;
  }
  PNODE _Successor(PNODE q) const {
    if (q->_qRight != _qZ) return _Leftmost(q->_qRight);
    PNODE p = q->Parent();
    while (p != _qHead && q == p->_qRight) {
      q = p;
      p = p->Parent();
    }
    return p == _qHead ? nullptr : p;
  }
  PNODE _Predecessor(PNODE q) const {
    if (q->_qLeft != _qZ) return _Rightmost(q->_qLeft);
    PNODE p = q->Parent();
    while (p != _qHead && q == p->_qLeft) {
      q = p;
      p = p->Parent();
    }
    return p == _qHead ? nullptr : p;
  }
  // The comparison: a map made with the default one calls it directly, so that it is inlined and
  // the search loops keep the map's fields in registers; any other goes through the pointer.
  struct _ByPointer {
    CMP f;
    int operator()(const K* a, const K* b) const { return f(a, b); }
  };
  struct _ByDefault {
    int operator()(const K* a, const K* b) const { return KvRbMapDefCompare(a, b); }
  };
  static constexpr bool kHasDefault = requires(const K* a) { KvRbMapDefCompare(a, a); };
  template <class F>
  decltype(auto) _WithCmp(F&& f) const {
    if constexpr (kHasDefault) {
      if (_cmp == static_cast<CMP>(&KvRbMapDefCompare)) return f(_ByDefault{});
    }
    return f(_ByPointer{_cmp});
  }

  // The first entry of the key in order, or null.
  PNODE _LowerBound(const K& key) const {
    return _WithCmp([&](auto cmp) { return _LowerBoundBy(cmp, key); });
  }
  template <class C>
  PNODE _LowerBoundBy(C cmp, const K& key) const {
    PNODE found = nullptr;
    for (PNODE x = _Root(); x != _qZ;) {
      const int c = cmp(&key, &x->_k);
      if (c <= 0) {
        if (c == 0) found = x;
        x = x->_qLeft;
      } else {
        x = x->_qRight;
      }
    }
    return found;
  }
  PNODE _LastOfKey(const K& key) const {
    return _WithCmp([&](auto cmp) { return _LastOfKeyBy(cmp, key); });
  }
  template <class C>
  PNODE _LastOfKeyBy(C cmp, const K& key) const {
    PNODE found = nullptr;
    for (PNODE x = _Root(); x != _qZ;) {
      const int c = cmp(&key, &x->_k);
      if (c >= 0) {
        if (c == 0) found = x;
        x = x->_qRight;
      } else {
        x = x->_qLeft;
      }
    }
    return found;
  }
  PNODE _NextOfKey(PNODE q, const K& key) const {
    q = _Successor(q);
    return q != nullptr && _cmp(&q->_k, &key) == 0 ? q : nullptr;
  }

  // ---- insertion, top-down
  PNODE _Insert(const T& value, const K& key, bool unique) {
    return _WithCmp([&](auto cmp) { return const_cast<KvRbMap*>(this)->_InsertBy(cmp, value, key, unique); });
  }
  template <class C>
  PNODE _InsertBy(C cmp, const T& value, const K& key, bool unique) {
    PNODE x = _qHead, p = _qHead, g = _qHead, gg = _qHead;
    while (x != _qZ) {
      if (unique && x != _qHead && cmp(&key, &x->_k) == 0) return nullptr;
      gg = g;
      g = p;
      p = x;
      x = cmp(&key, &x->_k) < 0 ? x->_qLeft : x->_qRight;
      if (x->_qLeft->IsRed() && x->_qRight->IsRed()) _Split(cmp, key, x, p, g, gg);
    }
    x = new KvRbMapNode<T, K>(value, key, _qZ);
    x->SetParent(p);
    (cmp(&key, &p->_k) < 0 ? p->_qLeft : p->_qRight) = x;
    _Split(cmp, key, x, p, g, gg);
    ++_cCount;
    return x;
  }
  // x becomes red and its children black; a red parent p is repaired at g and gg. On return x
  // is the node that now stands where x stood on the key's path.
  template <class C>
  void _Split(C cmp, const K& key, PNODE& x, PNODE& p, PNODE& g, PNODE& gg) {
    x->SetRed(true);
    x->_qLeft->SetRed(false);
    x->_qRight->SetRed(false);
    if (p->IsRed()) {
      g->SetRed(true);
      if ((cmp(&key, &g->_k) < 0) != (cmp(&key, &p->_k) < 0)) p = _Rotate(cmp, key, g);
      x = _Rotate(cmp, key, gg);
      x->SetRed(false);
    }
    _qHead->_qRight->SetRed(false);
  }
  // Rotates the child c of y on the key's side, towards the key's side of c; answers the node
  // that takes c's place.
  template <class C>
  PNODE _Rotate(C cmp, const K& key, PNODE y) {
    PNODE& slot = cmp(&key, &y->_k) < 0 ? y->_qLeft : y->_qRight;
    PNODE c = slot;
    PNODE gc;
    if (cmp(&key, &c->_k) < 0) {
      gc = c->_qLeft;
      c->_qLeft = gc->_qRight;
      if (gc->_qRight != _qZ) gc->_qRight->SetParent(c);
      gc->_qRight = c;
    } else {
      gc = c->_qRight;
      c->_qRight = gc->_qLeft;
      if (gc->_qLeft != _qZ) gc->_qLeft->SetParent(c);
      gc->_qLeft = c;
    }
    c->SetParent(gc);
    gc->SetParent(y);
    slot = gc;
    return gc;
  }

  // ---- removal, bottom-up
  void _Replace(PNODE u, PNODE v) {  // v takes u's place under u's parent
    PNODE p = u->Parent();
    (p->_qLeft == u ? p->_qLeft : p->_qRight) = v;
    v->SetParent(p);  // the sentinel's parent is written too: the repair below reads it
  }
  void _RotateLeft(PNODE x) {
    PNODE y = x->_qRight;
    x->_qRight = y->_qLeft;
    if (y->_qLeft != _qZ) y->_qLeft->SetParent(x);
    _Replace(x, y);
    y->_qLeft = x;
    x->SetParent(y);
  }
  void _RotateRight(PNODE x) {
    PNODE y = x->_qLeft;
    x->_qLeft = y->_qRight;
    if (y->_qRight != _qZ) y->_qRight->SetParent(x);
    _Replace(x, y);
    y->_qRight = x;
    x->SetParent(y);
  }
  void _Unlink(PNODE z) {
    PNODE y = z, x;
    bool removedRed = y->IsRed();
    if (z->_qLeft == _qZ) {
      x = z->_qRight;
      _Replace(z, x);
    } else if (z->_qRight == _qZ) {
      x = z->_qLeft;
      _Replace(z, x);
    } else {
      y = _Leftmost(z->_qRight);
      removedRed = y->IsRed();
      x = y->_qRight;
      if (y->Parent() == z) {
        x->SetParent(y);
      } else {
        _Replace(y, x);
        y->_qRight = z->_qRight;
        y->_qRight->SetParent(y);
      }
      _Replace(z, y);
      y->_qLeft = z->_qLeft;
      y->_qLeft->SetParent(y);
      y->SetRed(z->IsRed());
    }
    --_cCount;
    if (!removedRed) _RepairAfterRemove(x);
    _qZ->SetParent(nullptr);
    _qZ->SetRed(false);
  }
  void _RepairAfterRemove(PNODE x) {
    while (x != _Root() && !x->IsRed()) {
      PNODE p = x->Parent();
      if (x == p->_qLeft) {
        PNODE w = p->_qRight;
        if (w->IsRed()) {
          w->SetRed(false);
          p->SetRed(true);
          _RotateLeft(p);
          w = p->_qRight;
        }
        if (!w->_qLeft->IsRed() && !w->_qRight->IsRed()) {
          w->SetRed(true);
          x = p;
        } else {
          if (!w->_qRight->IsRed()) {
            w->_qLeft->SetRed(false);
            w->SetRed(true);
            _RotateRight(w);
            w = p->_qRight;
          }
          w->SetRed(p->IsRed());
          p->SetRed(false);
          w->_qRight->SetRed(false);
          _RotateLeft(p);
          x = _Root();
        }
      } else {
        PNODE w = p->_qLeft;
        if (w->IsRed()) {
          w->SetRed(false);
          p->SetRed(true);
          _RotateRight(p);
          w = p->_qLeft;
        }
        if (!w->_qLeft->IsRed() && !w->_qRight->IsRed()) {
          w->SetRed(true);
          x = p;
        } else {
          if (!w->_qLeft->IsRed()) {
            w->_qRight->SetRed(false);
            w->SetRed(true);
            _RotateLeft(w);
            w = p->_qLeft;
          }
          w->SetRed(p->IsRed());
          p->SetRed(false);
          w->_qLeft->SetRed(false);
          _RotateRight(p);
          x = _Root();
        }
      }
    }
    x->SetRed(false);
  }

  PNODE _qHead = nullptr;    // above the tree; its right child is the root
  PNODE _qZ = nullptr;       // the shared leaf sentinel
  std::int32_t _cCount = 0;  // number of entries
  CMP _cmp;                  // key order
};

// A map of pointers. Removing and destroying leave the objects alone; the Delete forms delete
// them as well.
template <class T, class K>
class KvRbPtrMap : public KvRbMap<T*, K> {
  KVGRAN_DECLARE_NEW(KvRbPtrMap)
  using Base = KvRbMap<T*, K>;

 public:
  using PNODE = typename Base::PNODE;
  using CMP = typename Base::CMP;

  KvRbPtrMap(const K& lowKey, CMP cmp = &KvRbMapDefCompare) : Base(lowKey, nullptr, cmp) {}

  // The first entry of the key: removed, its object deleted. False when there is none.
  bool Delete(const K& key) {
    PNODE q = this->_LowerBound(key);
    if (q == nullptr) return false;
    Delete(q);
    return true;
  }
  bool Delete(const K& key, T* p) {
    PNODE q = this->SearchThis(key, p);
    if (q == nullptr) return false;
    Delete(q);
    return true;
  }
  void Delete(PNODE pnode) { delete Base::Remove(pnode); }
  void DeleteAll() {
    PNODE q;
    for (this->First(q); q != nullptr; this->Next(q)) delete q->_t;
    Base::RemoveAll();
  }
  std::int32_t DeleteAll(const K& key) {
    std::int32_t n = 0;
    while (Delete(key)) ++n;
    return n;
  }
};

// The same structure with keys only.
struct KvRbTreeNoValue {
  bool operator==(const KvRbTreeNoValue&) const { return true; }
};

template <class K>
class KvRbTree : public KvRbMap<KvRbTreeNoValue, K> {
  KVGRAN_DECLARE_NEW(KvRbTree)
  using Base = KvRbMap<KvRbTreeNoValue, K>;

 public:
  using PNODE = typename Base::PNODE;
  using CMP = typename Base::CMP;

  explicit KvRbTree(const K& lowKey, CMP cmp = &KvRbMapDefCompare) : Base(lowKey, KvRbTreeNoValue{}, cmp) {}

  PNODE Add(const K& key) { return Base::Add(KvRbTreeNoValue{}, key); }
  PNODE AddIfUnique(const K& key) { return Base::AddIfUnique(KvRbTreeNoValue{}, key); }
  using Base::Search;
  // The first node of the key, or null.
  PNODE Find(const K& key) const { return this->_LowerBound(key); }
  // Steps that answer the key (lowKey when the cursor became null).
  const K& First(PNODE& pnode) const { return this->GetKey((Base::First(pnode), pnode)); }
  const K& Last(PNODE& pnode) const { return this->GetKey((Base::Last(pnode), pnode)); }
  const K& Next(PNODE& pnode) const { return this->GetKey((Base::Next(pnode), pnode)); }
  const K& Prev(PNODE& pnode) const { return this->GetKey((Base::Prev(pnode), pnode)); }
};
