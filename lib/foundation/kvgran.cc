// The arena (module OPOOL): carving, free lists, counters, watchers and snapshots.
//
// A class's life: its free list is empty until the first Alloc, which carves _stBlockSize blocks at
// the carving edge (MemPrepare), links them in ascending order and commits what the group needs.
// Alloc pops the head and zeroes the block; Free pushes it back. In the sanitizer build a block on
// a free list is poisoned but for its link word, so a use after Free is caught; the whole block is
// unpoisoned by Alloc, as a string or an array owns all of its class.
#include "lib/foundation/kvgran.h"

#include <cxxabi.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "lib/foundation/kvfail.h"
#include "lib/foundation/kvsem_impl.h"
#include "platform/shm.h"
#include "platform/sync.h"

#if defined(__SANITIZE_ADDRESS__)
#define KVGRAN_POISON 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KVGRAN_POISON 1
#endif
#endif
#ifdef KVGRAN_POISON
#include <sanitizer/asan_interface.h>
#endif

static_assert(sizeof(KvGranularity::Info) <= KVGRAN_HEADER_SIZE, "the header must fit its area");
static_assert(sizeof(void*) <= 8, "a free block's link must fit the 8-byte class");

namespace {

using kvd::classlib::CritEnter;
using kvd::classlib::CritLeave;

constexpr const char* kSource = "OPOOL";
constexpr std::size_t kCarveUnit = 8192;  // _AllocFixed commits in these; carves are multiples of it
constexpr std::size_t kCommitUnit = 4096; // MemPrepare commits in these

// Holds _omtx for a scope; a failure that passes releases it.
class OmtxHold {
 public:
  __attribute__((always_inline)) OmtxHold() { CritEnter(KvGranularity::_omtx._GetCritSection()); }
  __attribute__((always_inline)) ~OmtxHold() { CritLeave(KvGranularity::_omtx._GetCritSection()); }
  OmtxHold(const OmtxHold&) = delete;
  OmtxHold& operator=(const OmtxHold&) = delete;
};

std::uintptr_t Addr(const void* p) { return reinterpret_cast<std::uintptr_t>(p); }

std::size_t RoundUp(std::size_t n, std::size_t unit) { return (n + unit - 1) / unit * unit; }

void PoisonFree(char* block, std::size_t size) {
#ifdef KVGRAN_POISON
  if (size > sizeof(char*)) ASAN_POISON_MEMORY_REGION(block + sizeof(char*), size - sizeof(char*));
#else
  (void)block;
  (void)size;
#endif
}

void Unpoison(char* block, std::size_t size) {
#ifdef KVGRAN_POISON
  ASAN_UNPOISON_MEMORY_REGION(block, size);
#else
  (void)block;
  (void)size;
#endif
}

char* ReadLink(const char* block) {
  char* next;
  std::memcpy(&next, block, sizeof next);
  return next;
}

void WriteLink(char* block, char* next) { std::memcpy(block, &next, sizeof next); }

// Zeroes a block; the classes up to 128 bytes with stores of a known width instead of a call
// (128 as two halves: the compiler makes a slow string store of one 128-byte memset).
inline void ZeroBlock(char* block, std::uint32_t size) {
  switch (size) {
    case 8: std::memset(block, 0, 8); break;
    case 16: std::memset(block, 0, 16); break;
    case 32: std::memset(block, 0, 32); break;
    case 64: std::memset(block, 0, 64); break;
    case 128:
      std::memset(block, 0, 64);
      std::memset(block + 64, 0, 64);
      break;
    default: std::memset(block, 0, size); break;
  }
}

// Fills a fresh block with the `keep` bytes at `src` and zeros behind them. Up to 128 bytes the
// whole block is cleared by fixed-width stores first; above, each byte is written once.
inline void FillBlock(char* block, std::uint32_t size, const void* src, std::size_t keep) {
  if (size <= 128) {
    ZeroBlock(block, size);
    if (keep > 0) std::memcpy(block, src, keep);
  } else {
    if (keep > 0) std::memcpy(block, src, keep);
    std::memset(block + keep, 0, size - keep);
  }
}

// _IsPointerInComittedRange without the call, for the hot paths (which hold _omtx and have an
// arena). The bounds are read once per operation: only MemPrepare moves them.
struct CommittedRange {
  std::uintptr_t lo, hi;
  CommittedRange()
      : lo(Addr(KvGranularity::_pvBase) + KVGRAN_HEADER_SIZE), hi(Addr(KvGranularity::_poinf->_pchNextCommit)) {}
  bool Holds(const char* pv) const { return Addr(pv) >= lo && Addr(pv) + 7 < hi; }
};

// The failures of Alloc and Free that format a text, out of the hot paths.
[[noreturn, gnu::cold, gnu::noinline]] void ThrowIllegalSize(std::size_t size, std::uint32_t gran_size) {
  char text[160];
  std::snprintf(text, sizeof text,
                "KvGranularity::Alloc(): Illegal attempt to\tallocate 0x%zx bytes from Granularity with 0x%x bytes", size,
                gran_size);
  KvGranThrow(text);
}

[[noreturn, gnu::cold, gnu::noinline]] void ThrowMisaligned(const char* block, std::uint32_t gran_size) {
  KvDebugLineF("KvGranularity::Free: pv=0x%" PRIxPTR " _stSize=0x%x base=0x%" PRIxPTR "\n", Addr(block), gran_size,
               Addr(KvGranularity::_pvBase));
  KvGranThrow("KvGranularity::Free(): pointer does not match granularity size");
}

// Forgets the arena of this process (after its memory went).
void ClearProcessState() {
  KvGranularity::_pvBase = nullptr;
  KvGranularity::_poinf = nullptr;
  KvGranularity::_aogran = nullptr;
  KvGranularity::_stMax = 0;
  KvGranularity::_hMem = nullptr;
  KvGranularity::_s_cThisApplicationsAccess = 0;
}

// An arena of this process from which nothing was taken: no carve, no fixed block, no watcher.
bool IsUnusedPrivateArena() {
  const KvGranularity::Info* inf = KvGranularity::_poinf;
  return KvGranularity::_pvBase != nullptr && KvGranularity::_hMem == nullptr && inf != nullptr &&
         inf->_pchUncommitted == inf->_pvUse && inf->_cWatchers == 0;
}

void ReleasePrivateArena() {
  kvd::platform::ReleaseAddressSpace(KvGranularity::_pvBase, KvGranularity::_stMax);
  ClearProcessState();
}

void CopyText(char* dst, const char* src) {
  std::strncpy(dst, src, 511);
  dst[511] = '\0';
}

// The type text of a watcher: the demangled name, or the mangled one when it cannot be read.
void TypeText(const std::type_info& type, char* out, std::size_t cb) {
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
  std::snprintf(out, cb, "%s", status == 0 && name ? name.get() : type.name());
}

__attribute__((always_inline)) inline void Count(KvGranularity& g, KvGranularityMemoryWatcher* w, int sign) {
  KvGranularity::Info* inf = KvGranularity::_poinf;
  const std::int64_t bytes = static_cast<std::int64_t>(g._stSize) * sign;
  if (inf->_bEnableMemChecking) {
    if (sign > 0) {
      ++g._cAllocated;
      inf->_cAllocatedBytes += bytes;
      if (w != nullptr) ++w->m_cAllocated;
    } else {
      --g._cFreed;
      inf->_cFreedBytes += bytes;
      if (w != nullptr) --w->m_cFreed;
    }
  } else {
    g._cStatic += sign;
    inf->_cStaticBytes += bytes;
    if (w != nullptr) w->m_cStatic += sign;
  }
}

_KVMEM_STAT g_memstat = {0, 0};

}  // namespace

// ---------------------------------------------------------------------------------------------
// Static state

char* KvGranularity::_pvBase = nullptr;
KvGranularity::Info* KvGranularity::_poinf = nullptr;
KvGranularity* KvGranularity::_aogran = nullptr;
std::size_t KvGranularity::_stMax = 0;
constinit KvMutexSem KvGranularity::_omtx;
KvHandle KvGranularity::_hMem = nullptr;
std::int32_t KvGranularity::_s_cThisApplicationsAccess = 0;
char KvGranularity::_s_szMemName[260] = {};
KvGranDeleteFunction KvGranularity::sm_aDeleteFunctions[KVGRAN_NUM_DELETE_FUNCTIONS] = {};
std::atomic<std::int32_t> KvGranularity::sm_iDeleteFunctionMax{0};

const std::int32_t KvGranularity::_aulNdxMap[34] = {
    0,                                  // bit length 0
    1,  1,  1,  1,                      // 1 to 4: 8 bytes
    2,  3,  4,  5,  6,  7,  8,          // 5 to 11: 16 to 1024
    9,  9,  10, 10, 11, 11, 12, 12,     // 12 to 19: 4 KiB to 256 KiB, a factor of 4 a step
    13, 13, 14, 14, 15, 15,             // 20 to 25: 1 MiB to 16 MiB
    -1, -1, -1, -1, -1, -1, -1, -1,     // 26 to 33: no class
};

const KvGranularity KvGranularity::_s_aogranImage[KVGRAN_NUM_GRANULARITIES] = {
    {nullptr, 0, 0, 0, 0, 0},
    {nullptr, 8, 1024, 0, 0, 0},
    {nullptr, 16, 512, 0, 0, 0},
    {nullptr, 32, 256, 0, 0, 0},
    {nullptr, 64, 128, 0, 0, 0},
    {nullptr, 128, 64, 0, 0, 0},
    {nullptr, 256, 32, 0, 0, 0},
    {nullptr, 512, 16, 0, 0, 0},
    {nullptr, 1024, 8, 0, 0, 0},
    {nullptr, 4096, 8, 0, 0, 0},
    {nullptr, 16384, 8, 0, 0, 0},
    {nullptr, 65536, 4, 0, 0, 0},
    {nullptr, 262144, 4, 0, 0, 0},
    {nullptr, 1048576, 1, 0, 0, 0},
    {nullptr, 4194304, 1, 0, 0, 0},
    {nullptr, 16777216, 1, 0, 0, 0},
    {nullptr, 0, 0, 0, 0, 0},
};

// ---------------------------------------------------------------------------------------------
// Failures

void KvGranThrow(const char* pszText) {
  // "<name>: <text>" in 260 bytes, cut where it ends.
  char text[260];
  std::size_t n = 0;
  for (const char* part : {static_cast<const char*>(KvGranularity::_s_szMemName), ": ", pszText != nullptr ? pszText : ""}) {
    for (; *part != '\0' && n + 1 < sizeof text; ++part) text[n++] = *part;
  }
  text[n] = '\0';
  KvFail(text);
}

_KVMEM_STAT* KvGetMemStat() { return &g_memstat; }

// ---------------------------------------------------------------------------------------------
// One class

__attribute__((always_inline)) inline char* KvGranularity::_PopLocked(std::size_t size) {
  CommittedRange range;
  if (_pchNextFree != nullptr && !range.Holds(_pchNextFree)) [[unlikely]]
    KvGranThrow("KvGranularity::Alloc(): b4: next free pointer not in committed range");
  if (size > _stSize) [[unlikely]] ThrowIllegalSize(size, _stSize);
  if (_pchNextFree == nullptr) [[unlikely]] {
    MemPrepare();
    range = CommittedRange();
  }
  char* block = _pchNextFree;
  char* next = ReadLink(block);
  if (next != nullptr && !range.Holds(next)) [[unlikely]]
    KvGranThrow("KvGranularity::Alloc(): after: next free pointer not in committed range");
  _pchNextFree = next;
  Unpoison(block, _stSize);
  return block;
}

__attribute__((always_inline)) inline bool KvGranularity::_CheckFreeLocked(const char* block) const {
  if (!CommittedRange().Holds(block)) [[unlikely]] KvGranThrow("KvGranularity::Free(): pointer not in committed range");
  if (_stSize == 0) [[unlikely]] return false;
  const std::uintptr_t align = _stSize < kCarveUnit ? _stSize : kCarveUnit;
  if ((Addr(block) & (align - 1)) != 0) [[unlikely]] ThrowMisaligned(block, _stSize);  // sizes are powers of two
  return true;
}

__attribute__((always_inline)) inline void KvGranularity::_PushLocked(char* block, KvGranularityMemoryWatcher* watcher) {
  WriteLink(block, _pchNextFree);
  _pchNextFree = block;
  PoisonFree(block, _stSize);
  Count(*this, watcher, -1);
}

void* KvGranularity::Alloc(std::size_t size, KvGranularityMemoryWatcher* watcher) {
  if (_stSize == 0) [[unlikely]] return nullptr;
  OmtxHold hold;
  char* block = _PopLocked(size);
  ZeroBlock(block, _stSize);
  Count(*this, watcher, +1);
  return block;
}

void* KvGranularity::AllocCopy(const void* src, std::size_t keep, KvGranularityMemoryWatcher* watcher) {
  if (_stSize == 0) [[unlikely]] return nullptr;
  OmtxHold hold;
  char* block = _PopLocked(keep);
  FillBlock(block, _stSize, src, keep);
  Count(*this, watcher, +1);
  return block;
}

void* KvGranularity::Regrow(KvGranularity* from, void* old, std::size_t keep, KvGranularityMemoryWatcher* watcher) {
  if (from == nullptr || old == nullptr) return AllocCopy(old, keep, watcher);
  if (_stSize == 0) [[unlikely]] return nullptr;
  char* const prev = static_cast<char*>(old);
  // One hold for all of it, as Alloc holds the lock while it clears a block: the copy writes no
  // more bytes than that clearing did.
  OmtxHold hold;
  const bool give_back = from->_CheckFreeLocked(prev);  // first: a failure leaves everything as it was
  char* block = _PopLocked(keep);
  FillBlock(block, _stSize, prev, keep);
  Count(*this, watcher, +1);
  if (give_back) from->_PushLocked(prev, watcher);
  return block;
}

void KvGranularity::MemPrepare() {
  Info* inf = _poinf;
  KvDebugLineF("MemPrepare: GranSize=%x  _pchNextCommit=%8.8" PRIxPTR, _stSize,
               inf != nullptr ? Addr(inf->_pchNextCommit) : std::uintptr_t{0});
  if (_pvBase == nullptr || inf == nullptr) KvGranThrow("KvGranularity::MemPrepare(): Memory not initialized");
  const std::size_t group = static_cast<std::size_t>(_stSize) * _stBlockSize;
  const std::size_t carved_to = RoundUp(static_cast<std::size_t>(inf->_pchUncommitted - _pvBase) + group, kCommitUnit);
  const std::size_t committed = static_cast<std::size_t>(inf->_pchNextCommit - _pvBase);
  const std::size_t commit = carved_to > committed ? carved_to - committed : 0;
  if (committed + commit > _stMax || static_cast<std::size_t>(inf->_pchUncommitted - _pvBase) + group > _stMax)
    KvGranThrow("KvGranularity::MemPrepare(): Out of Memory");
  if (commit > 0 && !kvd::platform::CommitAddressSpace(inf->_pchNextCommit, commit))
    KvDebugLineF("MemPrepare:VirtualAlloc-Error: _pchNextCommit=%8.8" PRIxPTR, Addr(inf->_pchNextCommit));
  inf->_pchNextCommit += commit;
  _pchNextFree = inf->_pchUncommitted;
  for (std::uint32_t i = 0; i < _stBlockSize; ++i) {
    char* block = inf->_pchUncommitted;
    inf->_pchUncommitted += _stSize;
    WriteLink(block, i + 1 < _stBlockSize ? inf->_pchUncommitted : nullptr);
    PoisonFree(block, _stSize);
  }
}

void KvGranularity::Free(void* pv, KvGranularityMemoryWatcher* watcher) {
  char* block = static_cast<char*>(pv);
  OmtxHold hold;
  if (_CheckFreeLocked(block)) _PushLocked(block, watcher);
}

// ---------------------------------------------------------------------------------------------
// The arena

void KvGranularity::_Init(bool first) {
  _poinf = reinterpret_cast<Info*>(_pvBase);
  _aogran = _poinf->_aogran;
  if (!first) {
    ++_poinf->_cAccess;
    return;
  }
  Info* inf = _poinf;
  inf->_pvUse = _pvBase + KVGRAN_HEADER_SIZE;
  inf->_pchUncommitted = _pvBase + KVGRAN_HEADER_SIZE;
  inf->_pchNextCommit = _pvBase + KVGRAN_HEADER_SIZE;
  inf->_pvMapAddress = _pvBase;
  inf->_cAccess = 1;
  inf->_bEnableMemChecking = true;
  inf->_cWatchers = 0;
  inf->_pFirstWatcher = nullptr;
  inf->_cAllocatedBytes = inf->_cFreedBytes = inf->_cStaticBytes = 0;
  for (std::int32_t i = 0; i < KVGRAN_NUM_GRANULARITIES; ++i) inf->_aogran[i] = _s_aogranImage[i];
  for (char*& root : inf->_apvRoot) root = nullptr;
}

void KvGranularity::_AllocMem(std::size_t size) {
  if (_pvBase != nullptr) {
    if (!IsUnusedPrivateArena()) KvGranThrow("KvGranularity::_AllocMem(): an arena is in use");
    ReleasePrivateArena();
  }
  char* base = nullptr;
  if (size >= KVGRAN_HEADER_SIZE) base = static_cast<char*>(kvd::platform::ReserveAddressSpace(size, KVGRAN_HEADER_SIZE));
  if (base != nullptr && !kvd::platform::CommitAddressSpace(base, KVGRAN_HEADER_SIZE)) {
    kvd::platform::ReleaseAddressSpace(base, size);
    base = nullptr;
  }
  if (base == nullptr) KvGranThrow("Out of memory in KvGranularity::AllocMem()");
  _pvBase = base;
  _stMax = size;
  _Init(true);
  ++_s_cThisApplicationsAccess;
  std::snprintf(_s_szMemName, sizeof _s_szMemName, "%s", kvd::platform::ProcessImagePath().c_str());
}

bool KvAllocNamedSharedMem(void** ppv, const char* pszName, std::size_t size, std::size_t clearSize) {
  bool created = false;
  std::size_t committed = 0;
  KvEnterCritSec();
  if (*ppv == nullptr) {
    const kvd::platform::SharedView view =
        kvd::platform::MapNamedMemory(pszName != nullptr ? pszName : "", size, KVGRAN_HEADER_SIZE);
    *ppv = view.addr;
    created = view.created;
    // Named memory is tmpfs pages, zero until written: the maker's commit is the mapping itself.
    if (created) committed = size;
  }
  KvExitCritSec();
  if (created && *ppv != nullptr) std::memset(*ppv, 0, clearSize < size ? clearSize : size);
  KvDebugLineF("KvAllocNamedSharedMem(): pszName=%s pvBaseRet=0x%" PRIxPTR " Size=0x%zx Committed=0x%zx",
               pszName != nullptr ? pszName : "", Addr(*ppv), size, committed);
  ++KvGranularity::_s_cThisApplicationsAccess;
  std::snprintf(KvGranularity::_s_szMemName, sizeof KvGranularity::_s_szMemName, "%s",
                pszName != nullptr ? pszName : "");
  return created;
}

std::int32_t KvGranularity::_AllocSharedMem(std::size_t size, const char* pszName) {
  // The process-wide mutex is held over the header's set-up too, so that a second process never
  // sees a half-made one.
  KvEnterCritSec();
  struct Exit {
    ~Exit() { KvExitCritSec(); }
  } exit_crit;
  if (IsUnusedPrivateArena()) ReleasePrivateArena();
  const bool had_base = _pvBase != nullptr;
  void* pv = _pvBase;
  const bool created = KvAllocNamedSharedMem(&pv, pszName, size, KVGRAN_HEADER_SIZE);
  _pvBase = static_cast<char*>(pv);
  if (_pvBase == nullptr) {
    char text[260];
    std::snprintf(text, sizeof text, "KvGranularity::_AllocSharedMem pszName=%s _pvBase=%" PRIxPTR,
                  pszName != nullptr ? pszName : "", Addr(_pvBase));
    _s_cThisApplicationsAccess = 0;
    KvGranThrow(text);
  }
  if (!had_base) _hMem = kvd::classlib::MakeViewHandle(_pvBase, size);
  _Init(created);
  if (!had_base) _stMax = size;
  return _poinf->_cAccess;
}

std::int32_t KvGranularity::_FreeMem() {
  if (_pvBase == nullptr) return -1;
  const bool shared = _hMem != nullptr;
  if (shared) KvEnterCritSec();
  const std::int32_t access = --_poinf->_cAccess;
  --_s_cThisApplicationsAccess;
  if (_s_cThisApplicationsAccess <= 0) {
    if (shared) {
      KvCloseHandle(_hMem);  // unmaps the view
      if (access <= 0) kvd::platform::RemoveNamedObject(kvd::platform::kNamedMemoryKind, _s_szMemName);
      ClearProcessState();
    } else {
      ReleasePrivateArena();
    }
  }
  if (shared) KvExitCritSec();
  return access;
}

std::int32_t KvGranularity::_QueryCountAllocSharedMem() { return _poinf != nullptr ? _poinf->_cAccess : 0; }

void KvGranularity::_DecCountAllocSharedMem() {
  if (_poinf != nullptr) --_poinf->_cAccess;
}

void* KvGranularity::_AllocFixed(std::size_t size) {
  if (size == 0) return nullptr;
  if (_pvBase == nullptr || _poinf == nullptr) KvGranThrow("KvGranularity::MemPrepare(): Memory not initialized");
  OmtxHold hold;
  Info* inf = _poinf;
  const std::size_t carved = static_cast<std::size_t>(inf->_pchUncommitted - _pvBase);
  const std::size_t committed = static_cast<std::size_t>(inf->_pchNextCommit - _pvBase);
  const std::size_t end = RoundUp(carved + size, kCarveUnit);
  const std::size_t commit = end > committed ? end - committed : 0;
  KvDebugLineF("%zx: _AllocFixed (%zx)", size, commit);
  if (committed + commit > _stMax) KvGranThrow("KvGranularity::_Alloc(): Out of Memory");
  if (commit > 0) kvd::platform::CommitAddressSpace(inf->_pchNextCommit, commit);
  char* block = inf->_pchUncommitted;
  inf->_pchNextCommit += commit;
  inf->_pchUncommitted += commit;
  return block;
}

void* KvGranularity::_Alloc(std::size_t size, KvGranularityMemoryWatcher* watcher) {
  const std::int32_t i = _GetGranularityIndex(size);
  if (i < 0) {
    char text[120];
    std::snprintf(text, sizeof text, "KvGranularity::_Alloc(): no granularity holds 0x%zx bytes", size);
    KvGranThrow(text);
  }
  if (_aogran == nullptr) KvGranThrow("KvGranularity::MemPrepare(): Memory not initialized");
  return _aogran[i].Alloc(size, watcher);
}

void KvGranularity::_Free(void* pv, std::size_t size, KvGranularityMemoryWatcher* watcher) {
  const std::int32_t i = _GetGranularityIndex(size);
  if (i < 0) {
    char text[120];
    std::snprintf(text, sizeof text, "KvGranularity::_Free(): no granularity holds 0x%zx bytes", size);
    KvGranThrow(text);
  }
  if (_aogran == nullptr) KvGranThrow("KvGranularity::Free(): pointer not in committed range");
  _aogran[i].Free(pv, watcher);
}

void* KvGranularity::_GetRootObj() { return _pvBase != nullptr ? _pvBase + KVGRAN_HEADER_SIZE : nullptr; }
void* KvGranularity::_GetBase() { return _pvBase; }

void* KvGranularity::_GetRoot(std::int32_t i) {
  if (_poinf == nullptr || i < 0 || i >= KVGRAN_NUM_ROOTS) return nullptr;
  return _poinf->_apvRoot[i];
}

void* KvGranularity::_SetRoot(void* pv, std::int32_t i) {
  if (_poinf == nullptr || i < 0 || i >= KVGRAN_NUM_ROOTS) return nullptr;
  void* old = _poinf->_apvRoot[i];
  _poinf->_apvRoot[i] = static_cast<char*>(pv);
  return old;
}

bool KvGranularity::_IsPointerInComittedRange(const void* pv) {
  if (_poinf == nullptr) return false;
  const std::uintptr_t p = Addr(pv);
  return p >= Addr(_pvBase) + KVGRAN_HEADER_SIZE && p + 7 < Addr(_poinf->_pchNextCommit);
}

std::int32_t KvGranularity::_RegisterDeleteFunction(KvGranDeleteFunction fn) {
  const std::int32_t id = sm_iDeleteFunctionMax.fetch_add(1) + 1;
  if (id >= KVGRAN_NUM_DELETE_FUNCTIONS - 1) KvGranThrow("Max. Number of shared memory classes reached!");
  sm_aDeleteFunctions[id] = fn;
  return id;
}

KvGranDeleteFunction KvGranularity::_GetDeleteFunction(std::int32_t id) { return sm_aDeleteFunctions[id]; }

void KvGranularity::_EnableMemChecking(bool enable) {
  if (_poinf != nullptr) _poinf->_bEnableMemChecking = enable;
}

void KvGranularity::_FillMemoryState(KvGranularityMemoryState* state) {
  OmtxHold hold;
  if (_poinf == nullptr) return;
  state->m_lAllocatedSum = _poinf->_cAllocatedBytes;
  state->m_lFreedSum = _poinf->_cFreedBytes;
  state->m_lStaticSum = _poinf->_cStaticBytes;
  for (std::int32_t i = 0; i < KVGRAN_NUM_GRANULARITIES; ++i) {
    state->m_alAllocatedPerGran[i] = _aogran[i]._cAllocated;
    state->m_alFreedPerGran[i] = _aogran[i]._cFreed;
    state->m_alStaticPerGran[i] = _aogran[i]._cStatic;
  }
}

std::int32_t KvGranularity::_GetWatcherCount() { return _poinf != nullptr ? _poinf->_cWatchers : 0; }

KvGranularityMemoryWatcher* KvGranularity::_GetDefaultWatcher() {
  static KvGranularityMemoryWatcher s_watcher("KvGranularity_DefaultWatcher", "all", 0);
  return &s_watcher;
}

// ---------------------------------------------------------------------------------------------
// Watchers

KvGranularityMemoryWatcher::KvGranularityMemoryWatcher()
    : m_guid{}, m_szType{}, m_szDescr{}, m_stObjSize(0), m_cAllocated(0), m_cFreed(0), m_cStatic(0), m_pNext(nullptr) {}

KvGranularityMemoryWatcher::KvGranularityMemoryWatcher(const char* pszType, const char* pszDescr,
                                                       std::uint32_t stObjSize) {
  Init(pszType, pszDescr, stObjSize);
}

KvGranularityMemoryWatcher::KvGranularityMemoryWatcher(const std::type_info& type, const char* pszDescr,
                                                       std::uint32_t stObjSize) {
  char text[512];
  TypeText(type, text, sizeof text);
  Init(text, pszDescr, stObjSize);
}

void KvGranularityMemoryWatcher::Init(const char* pszType, const char* pszDescr, std::uint32_t stObjSize) {
  KV_ASSERT(pszType != NULL, kSource);
  KV_ASSERT(pszDescr != NULL, kSource);
  if (pszType == nullptr) pszType = "";
  if (pszDescr == nullptr) pszDescr = "";
  if (std::strncmp(m_szType, pszType, 511) == 0 && std::strncmp(m_szDescr, pszDescr, 511) == 0 &&
      m_stObjSize == stObjSize)
    return;
  m_cAllocated = m_cFreed = m_cStatic = 0;
  if (!kvd::platform::RandomBytes(&m_guid, sizeof m_guid)) std::memset(&m_guid, 0, sizeof m_guid);
  m_guid.Data3 = static_cast<std::uint16_t>((m_guid.Data3 & 0x0FFF) | 0x4000);  // version 4
  m_guid.Data4[0] = static_cast<std::uint8_t>((m_guid.Data4[0] & 0x3F) | 0x80);  // the variant
  KvDebugLineF("{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", m_guid.Data1, m_guid.Data2, m_guid.Data3,
               m_guid.Data4[0], m_guid.Data4[1], m_guid.Data4[2], m_guid.Data4[3], m_guid.Data4[4], m_guid.Data4[5],
               m_guid.Data4[6], m_guid.Data4[7]);
  CopyText(m_szType, pszType);
  CopyText(m_szDescr, pszDescr);
  m_stObjSize = stObjSize;
  m_pNext = nullptr;
  KV_ASSERT(KvGranularity::_poinf != NULL, kSource);
  if (KvGranularity::_poinf == nullptr) return;  // nowhere to list it
  // The list is pushed under _omtx: two first uses on two threads must not lose a watcher.
  OmtxHold hold;
  KvGranularity::Info* inf = KvGranularity::_poinf;
  ++inf->_cWatchers;
  if (inf->_cWatchers >= KVGRAN_NUM_WATCHERS) {
    KV_ASSERT(KvGranularity::_poinf->_cWatchers < KVGRAN_NUM_WATCHERS, kSource);
    char msg[1100];
    std::snprintf(msg, sizeof msg, "%s\n%s", m_szType, m_szDescr);
    KvAssertFail(msg, kSource, static_cast<unsigned>(__LINE__));
  }
  m_pNext = inf->_pFirstWatcher;
  inf->_pFirstWatcher = this;
}

KvGranularityMemoryWatcher& KvGranularityMemoryWatcher::operator=(const KvGranularityMemoryWatcher& other) {
  if (this == &other) return *this;
  OmtxHold hold;
  KvDebugLine("KvGranularityMemoryWatcher::operator = ");
  std::memcpy(m_szType, other.m_szType, sizeof m_szType);
  std::memcpy(m_szDescr, other.m_szDescr, sizeof m_szDescr);
  m_stObjSize = other.m_stObjSize;
  m_cAllocated = other.m_cAllocated;
  m_cFreed = other.m_cFreed;
  m_cStatic = other.m_cStatic;
  m_pNext = other.m_pNext;
  return *this;
}

KvGranularityMemoryWatcher* KvGranularityMemoryWatcher::_GetFirst() {
  return KvGranularity::_poinf != nullptr ? KvGranularity::_poinf->_pFirstWatcher : nullptr;
}

KvGranularityMemoryWatcher* KvGranularityMemoryWatcher::_GetMemoryWatcher(const char* pszType, const char* pszDescr) {
  if (pszType == nullptr || pszDescr == nullptr) return nullptr;
  OmtxHold hold;
  for (KvGranularityMemoryWatcher* w = _GetFirst(); w != nullptr; w = w->m_pNext) {
    if (std::strcmp(w->m_szType, pszType) == 0 && std::strcmp(w->m_szDescr, pszDescr) == 0) return w;
  }
  return nullptr;
}

void KvGranularityMemoryWatcher::_FillMemoryState(KvGranularityMemoryState* state) {
  OmtxHold hold;
  std::int32_t i = 0;
  for (KvGranularityMemoryWatcher* w = _GetFirst(); w != nullptr && i < KVGRAN_NUM_WATCHERS; w = w->m_pNext, ++i) {
    state->m_alAllocatedPerWatcher[i] = w->m_cAllocated;
    state->m_alFreedPerWatcher[i] = w->m_cFreed;
    state->m_alStaticPerWatcher[i] = w->m_cStatic;
  }
}

// ---------------------------------------------------------------------------------------------
// Memory states

KvGranularityMemoryState::KvGranularityMemoryState() { std::memset(static_cast<void*>(this), 0, sizeof *this); }

void KvGranularityMemoryState::Checkpoint() {
  std::memset(static_cast<void*>(this), 0, sizeof *this);
  OmtxHold hold;  // one consistent picture of classes and watchers
  KvGranularity::_FillMemoryState(this);
  KvGranularityMemoryWatcher::_FillMemoryState(this);
  m_cWatchers = KvGranularity::_GetWatcherCount();
}

bool KvGranularityMemoryState::Difference(const KvGranularityMemoryState& older, const KvGranularityMemoryState& newer) {
  m_cWatchers = newer.m_cWatchers;
  const std::int32_t d = newer.m_cWatchers - older.m_cWatchers;
  m_lAllocatedSum = newer.m_lAllocatedSum - older.m_lAllocatedSum;
  m_lFreedSum = newer.m_lFreedSum - older.m_lFreedSum;
  m_lStaticSum = newer.m_lStaticSum - older.m_lStaticSum;
  bool leaked = m_lAllocatedSum + m_lFreedSum != 0;
  for (std::int32_t i = 0; i < 32; ++i) {
    m_alAllocatedPerGran[i] = newer.m_alAllocatedPerGran[i] - older.m_alAllocatedPerGran[i];
    m_alFreedPerGran[i] = newer.m_alFreedPerGran[i] - older.m_alFreedPerGran[i];
    m_alStaticPerGran[i] = newer.m_alStaticPerGran[i] - older.m_alStaticPerGran[i];
    if (i < KVGRAN_NUM_GRANULARITIES && m_alAllocatedPerGran[i] + m_alFreedPerGran[i] != 0) leaked = true;
  }
  const std::int32_t rows = m_cWatchers < KVGRAN_NUM_WATCHERS ? m_cWatchers : KVGRAN_NUM_WATCHERS;
  for (std::int32_t i = 0; i < KVGRAN_NUM_WATCHERS; ++i) {
    const std::int32_t j = i - d;  // the same watcher's row in `older`
    const bool partner = i < rows && d >= 0 && j >= 0 && j < KVGRAN_NUM_WATCHERS;
    m_alAllocatedPerWatcher[i] = newer.m_alAllocatedPerWatcher[i] - (partner ? older.m_alAllocatedPerWatcher[j] : 0);
    m_alFreedPerWatcher[i] = newer.m_alFreedPerWatcher[i] - (partner ? older.m_alFreedPerWatcher[j] : 0);
    m_alStaticPerWatcher[i] = newer.m_alStaticPerWatcher[i] - (partner ? older.m_alStaticPerWatcher[j] : 0);
    if (i < rows && m_alAllocatedPerWatcher[i] + m_alFreedPerWatcher[i] != 0) leaked = true;
  }
  return leaked;
}

void KvGranularityMemoryState::DumpStatisticsToDebugOutput() const {
  KvDebugLine("Memory State:");
  KvDebugLineF("Total memory : %" PRId64 " bytes", m_lAllocatedSum);
  KvDebugLineF("Total memory : %" PRId64 " bytes", m_lFreedSum);
  KvDebugLineF("Total memory : %" PRId64 " static bytes", m_lStaticSum);
  for (std::int32_t i = 0; i < KVGRAN_NUM_GRANULARITIES; ++i) {
    if (m_alAllocatedPerGran[i] == 0 && m_alFreedPerGran[i] == 0) continue;
    const unsigned size = KvGranularity::_aogran != nullptr ? KvGranularity::_aogran[i]._stSize : 0;
    KvDebugLineF("Granularity 0x%x : %" PRId64 " objects", size, m_alAllocatedPerGran[i]);
    KvDebugLineF("Granularity 0x%x : %" PRId64 " objects", size, m_alFreedPerGran[i]);
    KvDebugLineF("Granularity 0x%x : %" PRId64 " static objects", size, m_alStaticPerGran[i]);
  }
  std::int32_t i = 0;
  for (const KvGranularityMemoryWatcher* w = KvGranularityMemoryWatcher::_GetFirst();
       w != nullptr && i < m_cWatchers && i < KVGRAN_NUM_WATCHERS; w = w->m_pNext, ++i) {
    if (m_alAllocatedPerWatcher[i] != 0)
      KvDebugLineF("%s : %s (size=0x%x): %" PRId64 " objects", w->m_szType, w->m_szDescr, w->m_stObjSize,
                   m_alAllocatedPerWatcher[i]);
    if (m_alFreedPerWatcher[i] != 0)
      KvDebugLineF("%s : %s (size=0x%x): %" PRId64 " objects", w->m_szType, w->m_szDescr, w->m_stObjSize,
                   m_alFreedPerWatcher[i]);
    if (m_alStaticPerWatcher[i] != 0)
      KvDebugLineF("%s : %s (size=0x%x): %" PRId64 " static objects", w->m_szType, w->m_szDescr, w->m_stObjSize,
                   m_alStaticPerWatcher[i]);
  }
}

void KvGranularityMemoryState::DumpStatisticsToStdOut() const {
  std::printf("\nMemory State:\n");
  std::printf("Total memory : %" PRId64 " bytes\n", m_lAllocatedSum);
  for (std::int32_t i = 0; i < KVGRAN_NUM_GRANULARITIES; ++i) {
    if (m_alAllocatedPerGran[i] == 0) continue;
    const unsigned size = KvGranularity::_aogran != nullptr ? KvGranularity::_aogran[i]._stSize : 0;
    std::printf("Granularity 0x%x : %" PRId64 " objects\n", size, m_alAllocatedPerGran[i]);
  }
  std::int32_t i = 0;
  for (const KvGranularityMemoryWatcher* w = KvGranularityMemoryWatcher::_GetFirst();
       w != nullptr && i < m_cWatchers && i < KVGRAN_NUM_WATCHERS; w = w->m_pNext, ++i) {
    if (m_alAllocatedPerWatcher[i] != 0)
      std::printf("%s : %s (size=0x%x): %" PRId64 " objects\n", w->m_szType, w->m_szDescr, w->m_stObjSize,
                  m_alAllocatedPerWatcher[i]);
  }
  std::fflush(stdout);
}
