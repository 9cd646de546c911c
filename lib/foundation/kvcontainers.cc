// The parts of the containers that are not templates: the linear text search of arrays and KvSet.
#include <algorithm>
#include <bit>
#include <cstring>

#include "lib/foundation/kvarray.h"
#include "lib/foundation/kvmbcs.h"
#include "lib/foundation/kvset.h"
#include "lib/foundation/kvstring.h"

bool LSearch(const KvArrayBase<KvString>& array, const char* psz, KvString*& pnode) {
  KvString* p = nullptr;
  for (array.First(p); p != nullptr; array.Next(p))
    if (kvd::mbcs::_mbscmp(*p, psz) == 0) break;
  pnode = p;
  return p != nullptr;
}

// ---------------------------------------------------------------------------------------------
// KvSet

KvSet::KvSet(std::uint32_t numElem) { _Reserve(numElem); }

KvSet::KvSet(const KvSet& other) { *this = other; }

KvSet::~KvSet() {
  if (_pul != nullptr) KvGranularity::_Free(_pul, GetNumBytes(), _GetInternalAllocWatcher());
}

void KvSet::_Reserve(std::uint32_t numElem) {
  if (numElem <= _stNumElem) return;
  const std::uint32_t oldBytes = GetNumBytes();
  const std::uint32_t bytes = (numElem + 31) / 32 * 4;
  std::uint32_t* fresh = static_cast<std::uint32_t*>(KvGranularity::_Alloc(bytes, _GetInternalAllocWatcher()));
  if (_pul != nullptr) {
    std::memcpy(fresh, _pul, oldBytes);
    KvGranularity::_Free(_pul, oldBytes, _GetInternalAllocWatcher());
  }
  _pul = fresh;
  _stNumElem = numElem;
}

void KvSet::_Recount() {
  _stCount = 0;
  for (std::uint32_t w = 0; w < GetNumDWords(); ++w) _stCount += static_cast<std::uint32_t>(std::popcount(_pul[w]));
}

void KvSet::SetEmpty() {
  if (_pul != nullptr) std::memset(_pul, 0, GetNumBytes());
  _stCount = 0;
}

KvSet& KvSet::operator=(const KvSet& other) {
  if (&other == this) return *this;
  _Reserve(other._stNumElem);
  SetEmpty();
  if (other._pul != nullptr) std::memcpy(_pul, other._pul, other.GetNumBytes());
  _stCount = other._stCount;
  return *this;
}

bool KvSet::Add(std::uint32_t i) {
  if (i >= _stNumElem) return false;
  std::uint32_t& w = _pul[i >> 5];
  const std::uint32_t bit = std::uint32_t{1} << (i & 31);
  if ((w & bit) == 0) ++_stCount;
  w |= bit;
  return true;
}

bool KvSet::Remove(std::uint32_t i) {
  if (i >= _stNumElem) return false;
  std::uint32_t& w = _pul[i >> 5];
  const std::uint32_t bit = std::uint32_t{1} << (i & 31);
  if ((w & bit) != 0) --_stCount;
  w &= ~bit;
  return true;
}

KvSet& KvSet::operator+=(const KvSet& other) {
  _Reserve(other._stNumElem);
  for (std::uint32_t w = 0; w < other.GetNumDWords(); ++w) _pul[w] |= other._pul[w];
  _Recount();
  return *this;
}

KvSet& KvSet::operator-=(const KvSet& other) {
  const std::uint32_t n = std::min(GetNumDWords(), other.GetNumDWords());
  for (std::uint32_t w = 0; w < n; ++w) _pul[w] &= ~other._pul[w];
  _Recount();
  return *this;
}
