// Arrays of the class library: elements side by side in one block of the arena.
//
//   KvArrayBase<T>     the read side: count, elements, cursor steps, indexed access
//   KvDynArray<T>      constructs, copies and destructs its elements
//   KvDynPtrArray<T>   an array of T*, which can also delete what it points to
//   KvMemArray<T>      plain values, moved as bytes: nothing is constructed or destructed
//
// There is no capacity field: the buffer is a block of one of the arena's size classes, and the
// class's size is the capacity. A count that still fits keeps the elements where they are; one
// that does not takes the smallest class that holds it, copies the kept elements over and frees
// the old block. The buffer never moves to a smaller class, but a count of 0 gives it back: an
// empty array holds no memory. Buffers count to the array's _GetInternalAllocWatcher ("InternalAlloc"),
// arrays made with new to its _GetWatcher ("new").
//
// Cursors: PNODE is the element's address, null for no position. Every step sets the cursor and
// answers a reference to the element, or to the shared sm_tDummy when the cursor became null.
// The dummy is shared by every array of the type: never write through a failed step's answer.
// A cursor dies when the buffer moves, which any call that changes the count may do.
//
// Failures: an index at or above the count fails with "Arrayindex too large." (KvFail); a
// negative one fails the same way (it is taken as unsigned). The arena's failures leave the array
// as it was. No lock: one thread at a time.
//
// Widths: the count is signed 32-bit; indexes are passed as 32-bit values.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <concepts>
#include <new>
#include <type_traits>

#include "lib/foundation/kvfail.h"
#include "lib/foundation/kvgran.h"

class KvString;

#define KVARRAY_INDEX_TOO_LARGE "Arrayindex too large."

template <class T>
class KvArrayBase {
 public:
  using TYPE = T;
  using Q = T*;
  using PNODE = T*;
  using CMP = int (*)(const T*, const T*);

  std::int32_t GetCount() const { return _cCount; }
  bool IsEmpty() const { return _cCount == 0; }

  T& First(PNODE& pnode) const { return _At(pnode = _cCount > 0 ? _pt : nullptr); }
  T& Last(PNODE& pnode) const { return _At(pnode = _cCount > 0 ? _pt + _cCount - 1 : nullptr); }
  // From the last element to null; from null nowhere.
  T& Next(PNODE& pnode) const {
    pnode = pnode != nullptr && pnode + 1 < _pt + _cCount ? pnode + 1 : nullptr;
    return _At(pnode);
  }
  T& Prev(PNODE& pnode) const {
    pnode = pnode != nullptr && pnode > _pt ? pnode - 1 : nullptr;
    return _At(pnode);
  }
  // As Next and Prev, but past one end on at the other; from null to the first (last) element.
  T& WrapNext(PNODE& pnode) const {
    if (pnode == nullptr || pnode + 1 >= _pt + _cCount) return First(pnode);
    return _At(++pnode);
  }
  T& WrapPrev(PNODE& pnode) const {
    if (pnode == nullptr || pnode <= _pt) return Last(pnode);
    return _At(--pnode);
  }

  T& GetObj(PNODE pnode) const { return _At(pnode); }
  T* GetObjPtr(PNODE pnode) const { return pnode; }
  // The index of the element at `pnode`; -1 for null.
  std::int32_t GetNdx(PNODE pnode) const { return pnode != nullptr ? static_cast<std::int32_t>(pnode - _pt) : -1; }

  // Any integer type, so that `a[i]` does not compete with the conversion to T*.
  template <std::integral I>
  T& operator[](I i) const {
    return *_Check(static_cast<std::int64_t>(i));
  }
  T& Ndx2Obj(std::int32_t i) const { return *_Check(i); }
  T* Ndx2ObjPtr(std::int32_t i) const { return _Check(i); }
  PNODE Ndx2Pnode(std::int32_t i) const { return _Check(i); }
  operator T*() const { return _pt; }

  static T sm_tDummy;  // what a step answers when it found no element

 protected:
  KvArrayBase() = default;
  ~KvArrayBase() = default;

  static T& _At(PNODE pnode) { return pnode != nullptr ? *pnode : sm_tDummy; }
  T* _Check(std::int64_t i) const {
    if (static_cast<std::uint64_t>(i) >= static_cast<std::uint64_t>(_cCount)) KvFail(KVARRAY_INDEX_TOO_LARGE);
    return _pt + i;
  }

  std::int32_t _cCount = 0;  // number of elements
  T* _pt = nullptr;          // the elements; null when there are none
};

template <class T>
T KvArrayBase<T>::sm_tDummy{};

// The writing side, shared by KvDynArray (Plain false) and KvMemArray (Plain true). D is the
// array class itself, whose _GetInternalAllocWatcher the buffers count to.
template <class T, class D, bool Plain>
class KvArrayStore : public KvArrayBase<T> {
  using Base = KvArrayBase<T>;
  static_assert(!Plain || std::is_trivially_copyable_v<T>, "KvMemArray holds plain values only");

 public:
  using typename Base::CMP;
  using typename Base::PNODE;

  // The count becomes n: the first min(old, n) elements stay, new ones are default values, the
  // rest go. True when a new buffer was taken.
  bool SetCount(std::int32_t n) {
    if (n < 0) n = 0;
    const std::int32_t old = this->_cCount;
    Buffer fresh = _Need(n);
    const std::int32_t keep = std::min(old, n);
    if (fresh.pt != nullptr || n == 0) {
      _MoveInto(fresh.pt, 0, this->_pt, keep);
      for (std::int32_t i = keep; i < n; ++i) _Construct(fresh.pt + i);
      _Swap(fresh, old);
    } else {
      for (std::int32_t i = keep; i < n; ++i) _Construct(this->_pt + i);
      for (std::int32_t i = n; i < old; ++i) _Destruct(this->_pt + i);
    }
    this->_cCount = n;
    return fresh.pt != nullptr;
  }

  PNODE Add(const T& x) { return _InternalAdd(this->_cCount, x); }
  // Appends every element of `other` (which may be this array).
  void Add(const KvArrayBase<T>& other) {
    const std::int32_t n = other.GetCount();
    for (std::int32_t i = 0; i < n; ++i) Add(other.Ndx2Obj(i));
  }
  // Adds x at the end unless an equal element (==) is there; the new position, or null.
  PNODE AddIfUnique(const T& x) {
    PNODE found;
    return Search(x, found) ? nullptr : Add(x);
  }
  PNODE AddFirst(const T& x) { return _InternalAdd(0, x); }
  PNODE AddLast(const T& x) { return _InternalAdd(this->_cCount, x); }
  // Before the element at `pnode`; a null position adds at the end.
  PNODE AddBefore(PNODE pnode, const T& x) {
    return _InternalAdd(pnode != nullptr ? this->GetNdx(pnode) : this->_cCount, x);
  }
  // Behind the element at `pnode`; a null position adds in front.
  PNODE AddAfter(PNODE pnode, const T& x) { return _InternalAdd(pnode != nullptr ? this->GetNdx(pnode) + 1 : 0, x); }

  // Removes the element at `pnode` and answers it; a null position answers a default value.
  T Remove(PNODE pnode) { return pnode != nullptr ? _InternalRemove(this->GetNdx(pnode)) : T{}; }
  // Removes the first element equal to x (==); false when there is none.
  bool Remove(const T& x) {
    PNODE found;
    if (!Search(x, found)) return false;
    _InternalRemove(this->GetNdx(found));
    return true;
  }
  T RemoveNdx(std::int32_t i) { return _InternalRemove(this->GetNdx(this->_Check(i))); }
  T RemoveFirst() { return this->_cCount > 0 ? _InternalRemove(0) : T{}; }
  T RemoveLast() { return this->_cCount > 0 ? _InternalRemove(this->_cCount - 1) : T{}; }
  void RemoveAll() { SetCount(0); }

  void Replace(std::int32_t i, const T& x) { *this->_Check(i) = x; }
  void Replace(PNODE pnode, const T& x) {
    if (pnode != nullptr) *pnode = x;
  }

  // Linear search with ==.
  bool Search(const T& x) const {
    PNODE found;
    return Search(x, found);
  }
  bool Search(const T& x, PNODE& pnode) const {
    for (T* p = this->_pt; p != this->_pt + this->_cCount; ++p)
      if (*p == x) return (pnode = p), true;
    pnode = nullptr;
    return false;
  }

  // Binary search in an array sorted ascending by `cmp`.
  // The index of an element equal to x, or -1.
  std::int32_t BSearch(const T& x, CMP cmp) const {
    bool found = false;
    const std::int32_t i = BSearch(x, found, cmp);
    return found ? i : -1;
  }
  // The index of the first element not below x (the count when there is none): where x would go
  // to keep the order. `found` tells whether that element equals x.
  std::int32_t BSearch(const T& x, bool& found, CMP cmp) const {
    std::int32_t lo = 0, hi = this->_cCount;
    while (lo < hi) {
      const std::int32_t mid = lo + (hi - lo) / 2;
      if (cmp(this->_pt + mid, &x) < 0)
        lo = mid + 1;
      else
        hi = mid;
    }
    found = lo < this->_cCount && cmp(this->_pt + lo, &x) == 0;
    return lo;
  }
  // As above, and `pnode` at that element (null at the end).
  std::int32_t BSearch(const T& x, bool& found, PNODE& pnode, CMP cmp) const {
    const std::int32_t i = BSearch(x, found, cmp);
    pnode = i < this->_cCount ? this->_pt + i : nullptr;
    return i;
  }
  // Sorts ascending by `cmp`; the order of equal elements is not kept. Takes no memory.
  void Sort(CMP cmp) {
    if (this->_cCount > 1)
      std::sort(this->_pt, this->_pt + this->_cCount, [cmp](const T& a, const T& b) { return cmp(&a, &b) < 0; });
  }

  D& operator+=(const T& x) {
    Add(x);
    return static_cast<D&>(*this);
  }
  D& operator+=(const KvArrayBase<T>& other) {
    Add(other);
    return static_cast<D&>(*this);
  }

  KvGranularity* _GetGranularity() const { return _pogran; }

 protected:
  KvArrayStore() = default;
  ~KvArrayStore() {
    if constexpr (Plain) {
      if (this->_cCount > 0) _Release(this->_pt, _pogran);
    } else {
      SetCount(0);
    }
  }

  void _AssignFrom(const KvArrayBase<T>& other) {
    if (&other == this) return;
    SetCount(0);
    const std::int32_t n = other.GetCount();
    Buffer fresh = _Need(n);
    T* src = other;
    for (std::int32_t i = 0; i < n; ++i) _CopyConstruct(fresh.pt + i, src[i]);
    _Swap(fresh, 0);
    this->_cCount = n;
  }

 private:
  struct Buffer {
    T* pt = nullptr;
    KvGranularity* pogran = nullptr;
  };

  // The growth rule for a count of n: a new buffer when there is none and n >= 1, or when the
  // class is too small; none otherwise. (n == 0 is handled by the callers: the buffer goes.)
  Buffer _Need(std::int32_t n) const {
    const std::size_t need = static_cast<std::size_t>(n) * sizeof(T);
    if (n <= 0 || (_pogran != nullptr && need <= _pogran->GetSize())) return {};
    const std::int32_t i = KvGranularity::_GetGranularityIndex(need);
    void* pv = KvGranularity::_Alloc(need, D::_GetInternalAllocWatcher());  // fails without a class
    return {static_cast<T*>(pv), &KvGranularity::_aogran[i]};
  }
  static void _Release(T* pt, KvGranularity* pogran) {
    if (pt != nullptr) pogran->Free(pt, D::_GetInternalAllocWatcher());
  }
  // Destructs the old elements, frees the old buffer and takes `fresh` (which may be empty).
  void _Swap(const Buffer& fresh, std::int32_t oldCount) {
    for (std::int32_t i = 0; i < oldCount; ++i) _Destruct(this->_pt + i);
    _Release(this->_pt, _pogran);
    this->_pt = fresh.pt;
    _pogran = fresh.pogran;
  }

  static void _Construct(T* p) {
    if constexpr (Plain)
      std::memset(static_cast<void*>(p), 0, sizeof(T));
    else
      ::new (static_cast<void*>(p)) T();
  }
  static void _CopyConstruct(T* p, const T& x) {
    if constexpr (Plain)
      std::memcpy(static_cast<void*>(p), &x, sizeof(T));
    else
      ::new (static_cast<void*>(p)) T(x);
  }
  static void _Destruct(T* p) {
    if constexpr (!Plain) p->~T();
  }
  // Copies n elements from src to dst + at in a fresh buffer.
  static void _MoveInto(T* dst, std::int32_t at, const T* src, std::int32_t n) {
    for (std::int32_t i = 0; i < n; ++i) _CopyConstruct(dst + at + i, src[i]);
  }

  // Places x at index `target` (0 .. count) and answers its position.
  PNODE _InternalAdd(std::int32_t target, const T& x) {
    const std::int32_t n = this->_cCount;
    T* old = this->_pt;
    // x may be an element of this array, which the shift below would overwrite.
    if (&x >= old && &x < old + n) {
      const T copy(x);
      return _InternalAdd(target, copy);
    }
    Buffer fresh = _Need(n + 1);
    if (fresh.pt != nullptr) {
      _MoveInto(fresh.pt, 0, old, target);
      _MoveInto(fresh.pt, target + 1, old + target, n - target);
      _CopyConstruct(fresh.pt + target, x);
      _Swap(fresh, n);
    } else if constexpr (Plain) {
      std::memmove(static_cast<void*>(old + target + 1), old + target, static_cast<std::size_t>(n - target) * sizeof(T));
      std::memcpy(static_cast<void*>(old + target), &x, sizeof(T));
    } else {
      if (target == n) {
        _CopyConstruct(old + n, x);
      } else {
        _CopyConstruct(old + n, old[n - 1]);
        for (std::int32_t i = n - 1; i > target; --i) old[i] = old[i - 1];
        old[target] = x;
      }
    }
    this->_cCount = n + 1;
    return this->_pt + target;
  }

  T _InternalRemove(std::int32_t i) {
    const std::int32_t n = this->_cCount;
    T out(this->_pt[i]);
    if (n == 1) {
      _Swap({}, 1);
    } else if constexpr (Plain) {
      std::memmove(static_cast<void*>(this->_pt + i), this->_pt + i + 1, static_cast<std::size_t>(n - 1 - i) * sizeof(T));
    } else {
      for (std::int32_t k = i; k + 1 < n; ++k) this->_pt[k] = this->_pt[k + 1];
      _Destruct(this->_pt + n - 1);
    }
    this->_cCount = n - 1;
    return out;
  }

  KvGranularity* _pogran = nullptr;  // the buffer's size class; null without a buffer
};

template <class T>
class KvDynArray : public KvArrayStore<T, KvDynArray<T>, false> {
  KVGRAN_DECLARE_ALLOC(KvDynArray)
  using Store = KvArrayStore<T, KvDynArray<T>, false>;

 public:
  KvDynArray() = default;
  KvDynArray(const KvDynArray& other) { this->_AssignFrom(other); }
  KvDynArray& operator=(const KvDynArray& other) {
    this->_AssignFrom(other);
    return *this;
  }
};

template <class T>
class KvDynPtrArray : public KvDynArray<T*> {
  KVGRAN_DECLARE_NEW(KvDynPtrArray)

 public:
  using PNODE = T**;
  KvDynPtrArray() = default;
  // Removes the element at `pnode` and deletes the object it points to.
  void Delete(T** pnode) {
    if (pnode != nullptr) delete this->Remove(pnode);
  }
  // Deletes every pointed-to object and empties the array.
  void DeleteAll() {
    for (std::int32_t i = 0; i < this->_cCount; ++i) delete this->_pt[i];
    this->RemoveAll();
  }
};

template <class T>
class KvMemArray : public KvArrayStore<T, KvMemArray<T>, true> {
  KVGRAN_DECLARE_ALLOC(KvMemArray)

 public:
  KvMemArray() = default;
  KvMemArray(const KvMemArray& other) { this->_AssignFrom(other); }
  KvMemArray& operator=(const KvMemArray& other) {
    this->_AssignFrom(other);
    return *this;
  }
};

// Searches `array` from its start for a text equal (_mbscmp) to `psz`; leaves the position in
// `pnode` (null when there is none) and answers whether it found one.
KVCLASS_API bool LSearch(const KvArrayBase<KvString>& array, const char* psz, KvString*& pnode);
