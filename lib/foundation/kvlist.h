// The singly linked list of the class library, and its form for owned pointers.
//
// Nodes come from the arena one by one (Kv1Node<T>::_GetWatcher, "new"); a list made with new
// counts to Kv1List<T>::_GetWatcher. PNODE is the node; a position stays valid until its own node
// is removed. Steps answer a reference to the value, or to the shared sm_tDummy when the cursor
// became null: never write through a failed step's answer. The list owns its nodes and copies
// values in and out; Kv1PtrList can also delete what its pointers point to. No lock.
#pragma once

#include <cstdint>

#include "lib/foundation/kvgran.h"

template <class T>
class Kv1Node {
  KVGRAN_DECLARE_NEW(Kv1Node)

 public:
  explicit Kv1Node(const T& t) : _t(t) {}
  virtual ~Kv1Node() = default;

  Kv1Node* _qNext = nullptr;  // the next node; null at the last
  T _t;                       // the value
};

template <class T>
class Kv1List {
  KVGRAN_DECLARE_NEW(Kv1List)

 public:
  using TYPE = T;
  using Q = Kv1Node<T>*;
  using PNODE = Kv1Node<T>*;

  Kv1List() = default;
  Kv1List(const Kv1List& other) { _CopyFrom(other); }
  Kv1List& operator=(const Kv1List& other) {
    if (&other != this) {
      RemoveAll();
      _CopyFrom(other);
    }
    return *this;
  }
  virtual ~Kv1List() { RemoveAll(); }

  std::int32_t GetCount() const { return _cCount; }

  // Each adding call answers the new node.
  PNODE AddFirst(const T& x) {
    Q q = new Kv1Node<T>(x);
    q->_qNext = _qFirst;
    _qFirst = q;
    if (_qLast == nullptr) _qLast = q;
    ++_cCount;
    return q;
  }
  PNODE AddLast(const T& x) {
    Q q = new Kv1Node<T>(x);
    if (_qLast != nullptr)
      _qLast->_qNext = q;
    else
      _qFirst = q;
    _qLast = q;
    ++_cCount;
    return q;
  }
  PNODE Add(const T& x) { return AddLast(x); }
  // Behind the node `pnode`; a null position adds in front.
  PNODE AddAfter(PNODE pnode, const T& x) {
    if (pnode == nullptr) return AddFirst(x);
    Q q = new Kv1Node<T>(x);
    q->_qNext = pnode->_qNext;
    pnode->_qNext = q;
    if (_qLast == pnode) _qLast = q;
    ++_cCount;
    return q;
  }
  // Adds x at the end unless an equal value (==) is in the list; the new node, or null.
  PNODE AddIfUnique(const T& x) { return Search(x) != nullptr ? nullptr : AddLast(x); }

  T& First() const { return _Val(_qFirst); }
  T& Last() const { return _Val(_qLast); }
  T& First(PNODE& pnode) const { return _Val(pnode = _qFirst); }
  T& Last(PNODE& pnode) const { return _Val(pnode = _qLast); }
  // From the last node to null; from null nowhere.
  T& Next(PNODE& pnode) const { return _Val(pnode = pnode != nullptr ? pnode->_qNext : nullptr); }
  // As Next, but from the last node (or null) on to the first.
  T& WrapNext(PNODE& pnode) const {
    pnode = pnode != nullptr && pnode->_qNext != nullptr ? pnode->_qNext : _qFirst;
    return _Val(pnode);
  }
  T& GetObj(PNODE pnode) const { return _Val(pnode); }

  // The first node whose value equals x (==), or null.
  PNODE Search(const T& x) const {
    for (Q q = _qFirst; q != nullptr; q = q->_qNext)
      if (q->_t == x) return q;
    return nullptr;
  }
  // Removes the first node whose value equals x; false when there is none.
  bool Remove(const T& x) {
    Q prev = nullptr;
    for (Q q = _qFirst; q != nullptr; prev = q, q = q->_qNext)
      if (q->_t == x) {
        Remove(q, prev);
        return true;
      }
    return false;
  }
  // Removes `pnode`, whose predecessor is `previous` (null for the first node), and answers its
  // value; a null node answers a default value.
  T Remove(PNODE pnode, PNODE previous) {
    if (pnode == nullptr) return T{};
    if (previous != nullptr)
      previous->_qNext = pnode->_qNext;
    else
      _qFirst = pnode->_qNext;
    if (_qLast == pnode) _qLast = previous;
    --_cCount;
    T out(pnode->_t);
    delete pnode;
    return out;
  }
  T RemoveFirst() { return Remove(_qFirst, nullptr); }
  void RemoveAll() {
    while (_qFirst != nullptr) {
      Q q = _qFirst;
      _qFirst = q->_qNext;
      delete q;
    }
    _qLast = nullptr;
    _cCount = 0;
  }
  void Replace(PNODE pnode, const T& x) {
    if (pnode != nullptr) pnode->_t = x;
  }

  // The list as a stack whose top is the first node.
  PNODE Push(const T& x) { return AddFirst(x); }
  T Pop() { return RemoveFirst(); }
  T& Top() const { return First(); }

  static T sm_tDummy;  // what a step answers when it found no node
  static Q sm_qDummy;  // always null: the node of an empty position

 protected:
  static T& _Val(Q q) { return q != nullptr ? q->_t : sm_tDummy; }
  void _CopyFrom(const Kv1List& other) {
    for (Q q = other._qFirst; q != nullptr; q = q->_qNext) AddLast(q->_t);
  }

  Q _qFirst = nullptr;       // the first node; null when empty
  Q _qLast = nullptr;        // the last node; null when empty
  std::int32_t _cCount = 0;  // number of nodes
};

template <class T>
T Kv1List<T>::sm_tDummy{};
template <class T>
typename Kv1List<T>::Q Kv1List<T>::sm_qDummy = nullptr;

// A list of pointers. Removing and destroying leave the objects alone; the Delete forms delete
// them as well.
template <class T>
class Kv1PtrList : public Kv1List<T*> {
  KVGRAN_DECLARE_NEW(Kv1PtrList)
  using Base = Kv1List<T*>;

 public:
  using PNODE = typename Base::PNODE;

  T* First() const { return this->_qFirst != nullptr ? this->_qFirst->_t : nullptr; }
  T* Last() const { return this->_qLast != nullptr ? this->_qLast->_t : nullptr; }
  using Base::First;
  using Base::Last;

  // Removes the first node holding `p` and deletes the object; false when there is none.
  bool Delete(T* p) {
    if (!Base::Remove(p)) return false;
    delete p;
    return true;
  }
  void DeleteAll() {
    while (this->_qFirst != nullptr) delete Base::RemoveFirst();
  }
  void DeleteFirst() {
    if (this->_qFirst != nullptr) delete Base::RemoveFirst();
  }
};
