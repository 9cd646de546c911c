// HybridList: a sorted singly linked chain of entries with a multi-level index over it, and
// KvHybridSet, a set of values built on it.
//
// Entries derive from HListSimpleNode<E> (the `next` link) and compare by their key through
// `int Compare(const E& other) const`: negative, 0 or positive as this entry's key is below, equal
// to or above the other's. Walking the list is one link per entry.
//
// The index: index nodes (QTopNode) in levels. A node of the lowest level covers a run of
// entries, from its `bottom` entry up to the next node's bottom, and counts them; a node above
// covers a run of nodes of the level below, from its `child` on, and counts those. Every node's
// `bottom` is the first entry it covers. Only the first node of each run has its `parent` set;
// the others find it by walking back along their level. The highest level has one node. The first
// node of the lowest level, TopNode, is made with the list and stays its entry point; an empty list
// is TopNode alone, without bottom.
//
//   full:   a lowest node at 30 entries, a node above at 8 nodes: it splits in two, the new half
//           (count / 2, rounded down) behind it, and tells its parent, or makes a new level.
//   sparse: a node that has a previous sibling or a parent goes when it falls below 10 entries
//           (lowest) or 3 nodes (above): it merges into its previous sibling, or, when it is the
//           first of its level, its next sibling merges into it. A top node left with one node
//           below it goes, and the level below becomes the highest.
// No rotations: the index only splits and merges.
//
// Searching under a mode climbs from TopNode to the highest level, walks right while the key does
// not stop at a node's bottom entry, steps down, and at the lowest level walks the entries. The
// stop rules: LSort_Ascent, the key is below the entry; LSort_Descent, above; LSort_Ascent_Find,
// not above; LSort_Descent_Find, not below. Insertion therefore puts an entry behind its equals;
// Find lands on the first entry not below (not above) the key.
//
// Ownership: with AutoDelete the list deletes the entries it still holds when it is emptied or
// goes; entries taken out by Remove, RemoveSimilar and RemoveHead(false) go to the caller. Index
// nodes count to QTopNode<E>::_GetWatcher. No lock. Counts are signed 32-bit.
#pragma once

#include <cstdint>

#include "lib/foundation/kvfail.h"
#include "lib/foundation/kvgran.h"

enum QSL_SortTypes { LSort_Ascent = 0, LSort_Descent = 1, LSort_Ascent_Find = 2, LSort_Descent_Find = 3 };

// The link of an entry in the chain.
template <class E>
class HListSimpleNode {
 public:
  E* next = nullptr;
};

// The links of a node in a doubly linked level.
template <class N>
class HListNode {
 public:
  N* prev = nullptr;
  N* next = nullptr;
};

constexpr std::int32_t HLIST_FULL_LOWEST = 30;   // entries at which a lowest node splits
constexpr std::int32_t HLIST_FULL_UPPER = 8;     // nodes at which a node above splits
constexpr std::int32_t HLIST_KEEP_LOWEST = 10;   // fewest entries a lowest node keeps
constexpr std::int32_t HLIST_KEEP_UPPER = 3;     // fewest nodes a node above keeps

template <class E>
class QTopNode : public HListNode<QTopNode<E>> {
  KVGRAN_DECLARE_NEW(QTopNode)

 public:
  bool IsLowest() const { return child == nullptr; }
  QTopNode* GetParent() const {
    const QTopNode* n = this;
    while (n->parent == nullptr && n->prev != nullptr) n = n->prev;
    return n->parent;
  }

  // `item`, an entry (lowest level) or a new node of the level below, came in under this node.
  void SubNodeInserted(void* item) {
    ++count;
    if (IsLowest()) {
      E* e = static_cast<E*>(item);
      if (bottom == nullptr)
        bottom = e;
      else if (e->next == bottom)
        _SetBottom(bottom, e);
    }
    if (count < (IsLowest() ? HLIST_FULL_LOWEST : HLIST_FULL_UPPER)) return;
    _Split();
  }

  // An entry of this lowest node went; `successor` was the entry behind it.
  void EntryRemoved(E* item, E* successor) {
    --count;
    if (item == bottom) _SetBottom(item, successor);
    _AfterRemoval(true);
  }

  std::int32_t count = 0;     // entries (lowest level) or nodes below
  QTopNode* parent = nullptr;  // the node above; set on the first node of a run only
  QTopNode* child = nullptr;   // first node of the run below; null on the lowest level
  E* bottom = nullptr;         // first entry covered; null only in an empty list

 private:
  // The bottom entry `old` becomes `fresh` here and up the chain of parents that had it.
  void _SetBottom(E* old, E* fresh) {
    bottom = fresh;
    for (QTopNode* p = parent; p != nullptr && p->bottom == old; p = p->parent) p->bottom = fresh;
  }

  void _Split() {
    const std::int32_t keep = count - count / 2;
    QTopNode* nn = new QTopNode;
    nn->count = count / 2;
    if (IsLowest()) {
      E* e = bottom;
      for (std::int32_t i = 0; i < keep; ++i) e = e->next;
      nn->bottom = e;
    } else {
      QTopNode* c = child;
      for (std::int32_t i = 0; i < keep; ++i) c = c->next;
      nn->child = c;
      nn->bottom = c->bottom;
      c->parent = nn;
    }
    count = keep;
    nn->prev = this;
    nn->next = this->next;
    if (this->next != nullptr) this->next->prev = nn;
    this->next = nn;
    if (QTopNode* p = GetParent()) {
      p->SubNodeInserted(nn);
    } else {
      QTopNode* top = new QTopNode;
      top->count = 1;
      top->child = this;
      top->bottom = bottom;
      parent = top;
      top->SubNodeInserted(nn);
    }
  }

  // A node of the level below went (merged away); `itemNext` was its next sibling.
  void _NodeRemoved(QTopNode* item, QTopNode* itemNext) {
    --count;
    if (item == child) {
      child = count > 0 ? itemNext : nullptr;
      if (child != nullptr) child->parent = this;
      _SetBottom(bottom, child != nullptr ? child->bottom : nullptr);
    }
    _AfterRemoval(false);
  }

  void _AfterRemoval(bool lowest) {
    QTopNode* before = this->prev;
    if (before != nullptr || GetParent() != nullptr) {
      if (count >= (lowest ? HLIST_KEEP_LOWEST : HLIST_KEEP_UPPER)) return;
      if (before != nullptr)
        _Merge(before, this);
      else if (this->next != nullptr)
        _Merge(this, this->next);
      return;
    }
    if (count == 1 && child != nullptr) {  // a lone top over a single node
      child->parent = nullptr;
      delete this;
    }
  }

  // `gone`, the node behind `into`, merges into it and is deleted.
  static void _Merge(QTopNode* into, QTopNode* gone) {
    QTopNode* p = gone->GetParent();
    QTopNode* after = gone->next;
    const bool intoEmpty = into->count == 0;
    into->count += gone->count;
    if (gone->child != nullptr) {
      if (intoEmpty) {
        into->child = gone->child;
        gone->child->parent = into;
      } else {
        gone->child->parent = nullptr;
      }
    }
    if (intoEmpty) into->_SetBottom(into->bottom, gone->bottom);
    into->next = after;
    if (after != nullptr) after->prev = into;
    if (p != nullptr) p->_NodeRemoved(gone, after);
    delete gone;
  }
};

template <class E>
class HybridList {
  KVGRAN_DECLARE_NEW(HybridList)

 public:
  using TYPE = E;
  using Q = E*;
  using PNODE = E*;
  using Node = QTopNode<E>;

  explicit HybridList(bool autoDelete = false, QSL_SortTypes sortType = LSort_Ascent)
      : TopNode(new Node), SortType(sortType), AutoDelete(autoDelete) {}
  HybridList(const HybridList&) = delete;
  HybridList& operator=(const HybridList&) = delete;
  virtual ~HybridList() {
    RemoveAll();
    delete TopNode;
  }

  std::int32_t GetCount() const { return m_cNodes; }
  E* GetHead() const { return TopNode->bottom; }

  // Links `e` in behind the entries with an equal key.
  void InsertSorted(E* e) {
    Position at = _Locate(*e, _InsertMode());
    _Link(e, at);
  }
  // As InsertSorted, but false, and nothing linked, when an entry with an equal key is in the list
  // (the caller keeps `e`).
  bool InsertSortedUnique(E* e) {
    Position at = _Locate(*e, _InsertMode());
    if ((at.following != nullptr && e->Compare(*at.following) == 0) || (at.prev != nullptr && e->Compare(*at.prev) == 0))
      return false;
    _Link(e, at);
    return true;
  }
  // The first entry not below (descending: not above) e's key, or null.
  E* Find(const E& e) const { return _Locate(e, _FindMode()).following; }
  // The first entry with e's key, or null.
  E* FindEqual(const E& e) const {
    E* f = Find(e);
    return f != nullptr && e.Compare(*f) == 0 ? f : nullptr;
  }
  // Takes the entry `e` itself out of the list; false when it is not in it. The caller keeps it.
  bool Remove(E* e) {
    if (e == nullptr) return false;
    Position at = _Locate(*e, _FindMode());
    while (at.following != nullptr && at.following != e && e->Compare(*at.following) == 0) _Step(at);
    if (at.following != e) return false;
    _Unlink(at);
    return true;
  }
  // Takes the first entry with e's key out of the list and hands it to the caller; null when
  // there is none.
  E* RemoveSimilar(const E& e) {
    Position at = _Locate(e, _FindMode());
    if (at.following == nullptr || e.Compare(*at.following) != 0) return nullptr;
    E* out = at.following;
    _Unlink(at);
    return out;
  }
  // Takes the head out: deletes it when `fDelete` and answers null, else hands it over. Null for
  // an empty list.
  E* RemoveHead(bool fDelete) {
    E* head = TopNode->bottom;
    if (head == nullptr) return nullptr;
    _Unlink({TopNode, nullptr, head});
    if (!fDelete) return head;
    delete head;
    return nullptr;
  }
  // Empties the list, entry by entry from the head; deletes them with AutoDelete.
  void RemoveAll() {
    while (TopNode->bottom != nullptr) RemoveHead(AutoDelete);
  }
  // One debug line per level, lowest first: nodes, fewest and most sub-nodes per node, sub-nodes
  // in all.
  void PrintLevelStatistics() const {
    std::int32_t level = 0;
    for (const Node* first = TopNode; first != nullptr; first = first->parent, ++level) {
      std::int32_t nodes = 0, least = 0, most = 0, all = 0;
      for (const Node* n = first; n != nullptr; n = n->next, ++nodes) {
        least = nodes == 0 || n->count < least ? n->count : least;
        most = n->count > most ? n->count : most;
        all += n->count;
      }
      KvDebugLineF("HybridList level %d: %d nodes, %d to %d below each, %d in all", static_cast<int>(level),
                   static_cast<int>(nodes), static_cast<int>(least), static_cast<int>(most), static_cast<int>(all));
    }
  }

  Node* _GetTopNode() const { return TopNode; }
  QSL_SortTypes _GetSortType() const { return SortType; }

 protected:
  // Where a search ended: the owning lowest node, the entry before and the entry at the place.
  struct Position {
    Node* owner;
    E* prev;
    E* following;
  };

  QSL_SortTypes _InsertMode() const {
    return SortType == LSort_Descent || SortType == LSort_Descent_Find ? LSort_Descent : LSort_Ascent;
  }
  QSL_SortTypes _FindMode() const {
    return SortType == LSort_Descent || SortType == LSort_Descent_Find ? LSort_Descent_Find : LSort_Ascent_Find;
  }
  static bool _Stops(const E& key, const E* entry, QSL_SortTypes mode) {
    const int c = key.Compare(*entry);
    switch (mode) {
      case LSort_Ascent: return c < 0;
      case LSort_Descent: return c > 0;
      case LSort_Ascent_Find: return c <= 0;
      case LSort_Descent_Find: return c >= 0;
    }
    return true;
  }

  Position _Locate(const E& key, QSL_SortTypes mode) const {
    Node* n = TopNode;
    if (n->bottom == nullptr) return {TopNode, nullptr, nullptr};
    while (Node* p = n->GetParent()) n = p;
    if (_Stops(key, n->bottom, mode)) return {TopNode, nullptr, n->bottom};  // before the head
    for (;;) {  // n does not stop; the first node of its run below has its key
      while (n->next != nullptr && !_Stops(key, n->next->bottom, mode)) n = n->next;
      if (n->child == nullptr) break;
      n = n->child;
    }
    E* prev = n->bottom;
    E* e = prev->next;
    while (e != nullptr && !_Stops(key, e, mode)) {
      prev = e;
      e = e->next;
    }
    Node* owner = n->next != nullptr && e == n->next->bottom ? n->next : n;
    return {owner, prev, e};
  }
  // One entry further, keeping the owner right.
  static void _Step(Position& at) {
    at.prev = at.following;
    at.following = at.following->next;
    if (at.owner->next != nullptr && at.following == at.owner->next->bottom) at.owner = at.owner->next;
  }
  void _Link(E* e, const Position& at) {
    e->next = at.following;
    if (at.prev != nullptr) at.prev->next = e;
    at.owner->SubNodeInserted(e);
    ++m_cNodes;
  }
  void _Unlink(const Position& at) {
    E* e = at.following;
    if (at.prev != nullptr) at.prev->next = e->next;
    at.owner->EntryRemoved(e, e->next);
    e->next = nullptr;
    --m_cNodes;
  }

  Node* TopNode;             // first node of the lowest level, for the life of the list
  QSL_SortTypes SortType;    // the order: LSort_Ascent or LSort_Descent
  bool AutoDelete;           // entries still held are deleted with the list
  std::int32_t m_cNodes = 0;  // number of entries
};

// ---------------------------------------------------------------------------------------------
// A set of values in ascending order.

template <class T>
class KvHybridSetEntry : public HListSimpleNode<KvHybridSetEntry<T>> {
  KVGRAN_DECLARE_NEW(KvHybridSetEntry)

 public:
  explicit KvHybridSetEntry(const T& t) : _t(t) {}
  // By the value type's order (texts: _mbscmp).
  int Compare(const KvHybridSetEntry& other) const { return _t < other._t ? -1 : other._t < _t ? 1 : 0; }

  T _t;
};

template <class T>
class KvHybridSet : public HybridList<KvHybridSetEntry<T>> {
  KVGRAN_DECLARE_NEW(KvHybridSet)
  using Base = HybridList<KvHybridSetEntry<T>>;
  using Entry = KvHybridSetEntry<T>;

 public:
  using PNODE = Entry*;

  KvHybridSet() : Base(true, LSort_Ascent) {}

  // False, and the set as it was, when x is in it already.
  bool Add(const T& x) {
    Entry* e = new Entry(x);
    if (Base::InsertSortedUnique(e)) return true;
    delete e;
    return false;
  }
  bool Remove(const T& x) {
    const Entry probe(x);
    Entry* e = Base::RemoveSimilar(probe);
    delete e;
    return e != nullptr;
  }
  bool Search(const T& x) const { return Base::FindEqual(Entry(x)) != nullptr; }
  // Steps in order; sm_tDummy and a null cursor when they run out.
  const T& First(PNODE& pnode) const { return _Val(pnode = this->GetHead()); }
  const T& Next(PNODE& pnode) const { return _Val(pnode = pnode != nullptr ? pnode->next : nullptr); }
  KvHybridSet& operator<<(const T& x) {
    Add(x);
    return *this;
  }

  static T sm_tDummy;

 private:
  static const T& _Val(const Entry* e) { return e != nullptr ? e->_t : sm_tDummy; }
};

template <class T>
T KvHybridSet<T>::sm_tDummy{};
