// The threaded red-black map of the class library: values under keys, compared by the key type's
// own order (`<` and `==`; texts by _mbscmp), duplicates allowed.
//
// Besides the tree, every node is threaded in key order through _qPrev and _qNext, starting at
// the head's _qNext; _qLast is the last entry (the head when the map is empty). Cursor steps are
// therefore single link steps. Insertion is the same top-down method as KvRbMap's, with the head
// and the sentinel held inside the map (so a map can be neither copied nor moved), and keeps equal
// keys in the order they came. Removal takes the node out without any rotation: the left child
// or the in-order successor moves up, the order and the thread stay exact, no red node gets a red
// child, but black heights may drift, so the tree is only roughly balanced after removals.
//
// PNODE is the node; it stays valid until its own node is removed. A step that runs out answers
// the nullValue (shared by the map: never write through it) and a null PNODE. Search lands on the
// first entry of a key in order. Nodes count to KvMapNode<T, K>::_GetWatcher. No lock.
#pragma once

#include <cstdint>

#include "lib/foundation/kvgran.h"

template <class T, class K>
class KvMapNode {
  KVGRAN_DECLARE_NEW(KvMapNode)

 public:
  KvMapNode(const K& k, const T& t, KvMapNode* z) : _qLeft(z), _qRight(z), _k(k), _t(t) {}

  KvMapNode* _qLeft;             // left child, the sentinel when none
  KvMapNode* _qRight;            // right child, the sentinel when none
  KvMapNode* _qPrev = nullptr;   // previous in key order; the head before the first entry
  KvMapNode* _qNext = nullptr;   // next in key order; null after the last
  K _k;                          // the key
  T _t;                          // the value
  bool _fRed = false;
};

template <class T, class K>
class KvMap {
  KVGRAN_DECLARE_NEW(KvMap)

 public:
  using TYPE = T;
  using KEY = K;
  using Q = KvMapNode<T, K>*;
  using PNODE = KvMapNode<T, K>*;

  KvMap(const K& lowKey, const T& nullValue) : _omnHead(lowKey, nullValue, &_omnZ), _omnZ(lowKey, nullValue, nullptr) {
    _omnZ._qLeft = _omnZ._qRight = &_omnZ;
  }
  KvMap(const KvMap&) = delete;
  KvMap& operator=(const KvMap&) = delete;
  virtual ~KvMap() { _FreeAll(); }

  std::int32_t GetCount() const { return _cCount; }
  const K& GetKey(PNODE pnode) const { return _Valid(pnode) ? pnode->_k : _omnHead._k; }
  T& GetObj(PNODE pnode) const { return _Valid(pnode) ? pnode->_t : _Null(); }
  T& operator[](PNODE pnode) const { return GetObj(pnode); }

  // Adds the entry behind all entries of the same key and answers its node.
  PNODE Add(const T& value, const K& key) { return _Insert(value, key, false); }
  // As Add, but null, and nothing added, when the key is in the map already.
  PNODE AddIfUnique(const T& value, const K& key) { return _Insert(value, key, true); }

  bool Search(const K& key) const { return _Find(key).q != nullptr; }
  bool Search(const K& key, T& value) const {
    PNODE pnode;
    return Search(key, value, pnode);
  }
  // The first entry of the key: its value and node. Without one, value and pnode stay.
  bool Search(const K& key, T& value, PNODE& pnode) const {
    PNODE q = _Find(key).q;
    if (q == nullptr) return false;
    value = q->_t;
    pnode = q;
    return true;
  }

  // Tree steps: to the left or right child; null at the sentinel.
  T& Left(PNODE& pnode) const { return _Set(pnode, pnode != nullptr ? pnode->_qLeft : nullptr); }
  T& Right(PNODE& pnode) const { return _Set(pnode, pnode != nullptr ? pnode->_qRight : nullptr); }

  // Steps in key order along the thread.
  T& First(PNODE& pnode) const { return _Set(pnode, _omnHead._qNext); }
  T& Last(PNODE& pnode) const { return _Set(pnode, _qLast); }
  T& Next(PNODE& pnode) const { return _Set(pnode, pnode != nullptr ? pnode->_qNext : nullptr); }
  T& Prev(PNODE& pnode) const { return _Set(pnode, pnode != nullptr ? pnode->_qPrev : nullptr); }
  T& WrapNext(PNODE& pnode) const {
    Next(pnode);
    return pnode != nullptr ? pnode->_t : First(pnode);
  }
  T& WrapPrev(PNODE& pnode) const {
    Prev(pnode);
    return pnode != nullptr ? pnode->_t : Last(pnode);
  }

  // Removes `pnode`, the child of `parent` on the left (fromLeft) or right side, and answers its
  // value; the sentinel answers the nullValue. The root's parent is the head, from the right.
  T Remove(PNODE pnode, PNODE parent, bool fromLeft) {
    if (!_Valid(pnode)) return _Null();
    T out(pnode->_t);
    _Unlink(pnode, parent, fromLeft);
    delete pnode;
    return out;
  }
  // Removes the first entry of the key; false when there is none.
  bool Remove(const K& key) {
    Found f = _Find(key);
    if (f.q == nullptr) return false;
    Remove(f.q, f.parent, f.fromLeft);
    return true;
  }
  void RemoveAll() {
    _FreeAll();
    _omnHead._qRight = &_omnZ;
    _omnHead._qNext = nullptr;
    _qLast = &_omnHead;
    _cCount = 0;
  }
  // The value of the first entry of the key becomes `value`; false when there is none.
  bool Replace(const K& key, const T& value) {
    PNODE q = _Find(key).q;
    if (q == nullptr) return false;
    q->_t = value;
    return true;
  }
  void Replace(PNODE pnode, const T& value) {
    if (_Valid(pnode)) pnode->_t = value;
  }

  // For checks and tests.
  PNODE _GetHead() const { return const_cast<PNODE>(&_omnHead); }
  PNODE _GetZ() const { return const_cast<PNODE>(&_omnZ); }
  PNODE _GetLast() const { return _qLast; }

 private:
  struct Found {
    PNODE q = nullptr;
    PNODE parent = nullptr;
    bool fromLeft = false;
  };

  bool _Valid(PNODE q) const { return q != nullptr && q != &_omnZ && q != &_omnHead; }
  T& _Null() const { return const_cast<T&>(_omnHead._t); }
  T& _Set(PNODE& pnode, PNODE q) const {
    pnode = _Valid(q) ? q : nullptr;
    return pnode != nullptr ? pnode->_t : _Null();
  }
  PNODE _Z() const { return const_cast<PNODE>(&_omnZ); }

  // The first entry of the key in order, with its parent and side.
  Found _Find(const K& key) const {
    Found f;
    PNODE parent = const_cast<PNODE>(&_omnHead);
    bool left = false;
    for (PNODE x = _omnHead._qRight; x != _Z();) {
      if (key < x->_k) {
        parent = x, left = true, x = x->_qLeft;
      } else if (x->_k < key) {
        parent = x, left = false, x = x->_qRight;
      } else {
        f = {x, parent, left};
        parent = x, left = true, x = x->_qLeft;
      }
    }
    return f;
  }

  PNODE _Insert(const T& value, const K& key, bool unique) {
    PNODE head = &_omnHead;
    PNODE x = head, p = head, g = head, gg = head;
    while (x != _Z()) {
      if (unique && x != head && !(key < x->_k) && !(x->_k < key)) return nullptr;
      gg = g;
      g = p;
      p = x;
      x = key < x->_k ? x->_qLeft : x->_qRight;
      if (x->_qLeft->_fRed && x->_qRight->_fRed) _Split(key, x, p, g, gg);
    }
    x = new KvMapNode<T, K>(key, value, _Z());
    if (key < p->_k) {  // before the parent in the thread
      p->_qLeft = x;
      x->_qPrev = p->_qPrev;
      x->_qNext = p;
      p->_qPrev->_qNext = x;
      p->_qPrev = x;
    } else {  // after it
      p->_qRight = x;
      x->_qPrev = p;
      x->_qNext = p->_qNext;
      if (p->_qNext != nullptr)
        p->_qNext->_qPrev = x;
      else
        _qLast = x;
      p->_qNext = x;
    }
    _Split(key, x, p, g, gg);
    ++_cCount;
    return x;
  }
  void _Split(const K& key, PNODE& x, PNODE& p, PNODE& g, PNODE& gg) {
    x->_fRed = true;
    x->_qLeft->_fRed = false;
    x->_qRight->_fRed = false;
    if (p->_fRed) {
      g->_fRed = true;
      if ((key < g->_k) != (key < p->_k)) p = _Rotate(key, g);
      x = _Rotate(key, gg);
      x->_fRed = false;
    }
    _omnHead._qRight->_fRed = false;
  }
  PNODE _Rotate(const K& key, PNODE y) {
    PNODE& slot = key < y->_k ? y->_qLeft : y->_qRight;
    PNODE c = slot;
    PNODE gc;
    if (key < c->_k) {
      gc = c->_qLeft;
      c->_qLeft = gc->_qRight;
      gc->_qRight = c;
    } else {
      gc = c->_qRight;
      c->_qRight = gc->_qLeft;
      gc->_qLeft = c;
    }
    slot = gc;
    return gc;
  }

  void _Unlink(PNODE q, PNODE parent, bool fromLeft) {
    PNODE z = _Z();
    PNODE& slot = fromLeft ? parent->_qLeft : parent->_qRight;
    if (q->_qRight == z) {
      slot = q->_qLeft;
      if (!q->_fRed) q->_qLeft->_fRed = false;
    } else {
      PNODE s = q->_qRight;
      PNODE moved;  // the child that moves up into the successor's place
      if (s->_qLeft == z) {
        moved = s->_qRight;
      } else {
        PNODE sp = s;
        while (s->_qLeft != z) sp = s, s = s->_qLeft;
        moved = s->_qRight;
        sp->_qLeft = moved;
        s->_qRight = q->_qRight;
      }
      if (!s->_fRed) moved->_fRed = false;
      s->_qLeft = q->_qLeft;
      s->_fRed = q->_fRed;
      slot = s;
    }
    q->_qPrev->_qNext = q->_qNext;
    if (q->_qNext != nullptr)
      q->_qNext->_qPrev = q->_qPrev;
    else
      _qLast = q->_qPrev;
    _omnHead._qRight->_fRed = false;
    _omnZ._fRed = false;
    --_cCount;
  }

  void _FreeAll() {
    for (PNODE q = _omnHead._qNext; q != nullptr;) {
      PNODE next = q->_qNext;
      delete q;
      q = next;
    }
  }

  KvMapNode<T, K> _omnHead;  // head; its right child is the root, its _qNext the first entry
  KvMapNode<T, K> _omnZ;     // the leaf sentinel
  PNODE _qLast = &_omnHead;  // last entry in key order; the head when empty
  std::int32_t _cCount = 0;  // number of entries
};

// A map of pointers. Removing and destroying leave the objects alone; the Delete forms delete
// them as well.
template <class T, class K>
class KvPtrMap : public KvMap<T*, K> {
  KVGRAN_DECLARE_NEW(KvPtrMap)
  using Base = KvMap<T*, K>;

 public:
  using PNODE = typename Base::PNODE;

  explicit KvPtrMap(const K& lowKey) : Base(lowKey, nullptr) {}

  // The first entry of the key: removed, its object deleted. False when there is none.
  bool Delete(const K& key) {
    T* p = nullptr;
    if (!this->Search(key, p)) return false;
    Base::Remove(key);
    delete p;
    return true;
  }
  void Delete(PNODE pnode, PNODE parent, bool fromLeft) { delete Base::Remove(pnode, parent, fromLeft); }
  void DeleteAll() {
    PNODE q;
    for (this->First(q); q != nullptr; this->Next(q)) delete q->_t;
    Base::RemoveAll();
  }
};
