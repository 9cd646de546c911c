// KvSet: a set of small integers 0 .. capacity - 1 as a bit array in one arena block.
//
// The capacity is fixed at construction and grows only by assignment or union with a larger set;
// adding or asking about a number outside it does nothing and answers false (a set of small
// integers has no use for an element it cannot hold, and growing on a stray number would hide the
// caller's mistake behind a silent allocation). The bits count to _GetInternalAllocWatcher. No lock.
// The capacity and the member count are 32-bit.
#pragma once

#include <cstdint>

#include "lib/foundation/kvgran.h"
#include "lib/kv_export.h"

class KVCLASS_API KvSet {
  KVGRAN_DECLARE_ALLOC(KvSet)

 public:
  explicit KvSet(std::uint32_t numElem = 0);
  KvSet(const KvSet& other);
  ~KvSet();

  bool IsElem(std::uint32_t i) const { return i < _stNumElem && (_pul[i >> 5] >> (i & 31) & 1) != 0; }
  std::uint32_t GetCount() const { return _stCount; }
  std::uint32_t GetNumElem() const { return _stNumElem; }
  std::uint32_t GetNumDWords() const { return (_stNumElem + 31) / 32; }
  std::uint32_t GetNumBytes() const { return GetNumDWords() * 4; }
  void SetEmpty();

  // Becomes a copy of `other`, taking its capacity when that is larger.
  KvSet& operator=(const KvSet& other);
  // Adds `i`; false when it is outside the capacity.
  bool Add(std::uint32_t i);
  bool Remove(std::uint32_t i);
  KvSet& operator+=(std::uint32_t i) {
    Add(i);
    return *this;
  }
  KvSet& operator-=(std::uint32_t i) {
    Remove(i);
    return *this;
  }
  // Union; the capacity grows to the other's when that is larger.
  KvSet& operator+=(const KvSet& other);
  // Difference.
  KvSet& operator-=(const KvSet& other);

 private:
  void _Reserve(std::uint32_t numElem);
  void _Recount();

  std::uint32_t _stNumElem = 0;  // capacity in elements
  std::uint32_t _stCount = 0;    // members
  std::uint32_t* _pul = nullptr;  // the bits, element i at bit i % 32 of word i / 32; null for capacity 0
};
