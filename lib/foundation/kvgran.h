// Granular memory: the arena every object and buffer of the class library comes from.
//
// One arena per process, reserved once as address space and committed as its size classes
// ("granularities") need it. A block given back goes to the free list of its class and is handed
// out again, last in first out; nothing returns to the system before the arena goes. Each class
// of the library charges what it allocates to a named watcher, so that a checkpoint can tell, per
// size class and per type, what is allocated and what leaked.
//
// Layout, from the base, which lies on a 64 KiB boundary:
//   base .. base + 0x10000   the header: KvGranularity::Info at the base, the rest zero
//   base + 0x10000 ..        the first usable byte (the root object, _GetRootObj), then the
//                            blocks of all classes, carved upward in groups of 8192-byte multiples
//   .. base + _stMax         reserved, committed on demand
// Since the usable part starts on a 64 KiB boundary and every carve is a multiple of 8192, a block
// is aligned to its size, or to 8192 for the classes above 8192.
//
// Modes. Private (_AllocMem): reserved memory of this process; the library's start-up makes a
// 4 MiB one before any library object exists. Shared (_AllocSharedMem): named memory that other
// processes attach by name; the class table, the free lists and the watcher list all lie in it,
// as absolute addresses, so every process maps it at the maker's base. The lock `_omtx` guards
// within one process only: two processes that share an arena must not allocate or free at the
// same moment. Watchers are statics of each process linked into the arena's list, so in shared
// mode only the process that made a watcher may walk over it (checkpoints, dumps, lookups).
//
// Threads: Alloc, Free, _Alloc, _Free, _AllocFixed, the watcher list and checkpoints are safe from
// any thread. Making, attaching and detaching the arena are not: do them before other threads use
// the library.
//
// Failures throw KvFailure through KvGranThrow ("<arena name>: <message>"); the lock is released
// and free lists and counters keep what they had.
//
// 64-bit: the arena's own quantities keep their widths: block sizes, carve counts, object sizes,
// attach and watcher counts are 32-bit; the counters are 64-bit; pointers and the arena's size
// (`_stMax`, an amount of address space) are full width, and printed with at least 8 digits.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <typeinfo>

#include "lib/foundation/kvsem.h"
#include "lib/kv_export.h"

class KvGranularityMemoryWatcher;
class KvGranularityMemoryState;

constexpr std::int32_t KVGRAN_NUM_WATCHERS = 16384;    // rows of a memory state
constexpr std::int32_t KVGRAN_NUM_GRANULARITIES = 17;  // size classes, the first and last empty
constexpr std::int32_t KVGRAN_NUM_ROOTS = 16;          // root slots
constexpr std::int32_t KVGRAN_NUM_DELETE_FUNCTIONS = 4096;
constexpr std::size_t KVGRAN_HEADER_SIZE = 0x10000;    // the header area; also the base alignment
constexpr std::size_t KVGRAN_DEFAULT_SIZE = 0x400000;  // the start-up arena of every process

using KvGranDeleteFunction = void (*)(void* pv);

// One size class: its free list and counters. The table of 17 lies in the arena's header.
class KVCLASS_API KvGranularity {
 public:
  struct Info;

  // ---- per class
  // A zeroed block of this class for a request of `size` bytes (at most GetSize()); null from
  // a class without memory. Counts to `watcher` (may be null).
  void* Alloc(std::size_t size, KvGranularityMemoryWatcher* watcher);
  // Gives `pv`, a block of this class, back to its free list.
  void Free(void* pv, KvGranularityMemoryWatcher* watcher);
  // A block of this class that begins with the `keep` bytes at `src` (at most GetSize()) and is
  // zero behind them: what Alloc and a copy give, with each byte written once. Null from a class
  // without memory. Counts to `watcher`.
  void* AllocCopy(const void* src, std::size_t keep, KvGranularityMemoryWatcher* watcher);
  // The same from the first `keep` bytes of `old`, a block of class `from`, which then goes back to
  // `from` as by Free: one call and one hold of the lock for what a growing buffer does. Without
  // `from` or `old` it is AllocCopy. A failure changes nothing: `old` stays allocated and no
  // counter moves.
  void* Regrow(KvGranularity* from, void* old, std::size_t keep, KvGranularityMemoryWatcher* watcher);
  std::uint32_t GetSize() const { return _stSize; }
  std::uint32_t GetBlockSize() const { return _stBlockSize; }
  std::int64_t GetAllocated() const { return _cAllocated; }
  std::int64_t GetFreed() const { return _cFreed; }
  std::int64_t GetStatic() const { return _cStatic; }
  char* GetNextFree() const { return _pchNextFree; }

  // ---- the arena
  // Makes a private arena of `size` bytes (at least 0x10000). A program that wants a larger one
  // than the start-up's calls this first: an arena of this process from which nothing was taken
  // yet is given back and replaced; one in use cannot be, and the call fails.
  static void _AllocMem(std::size_t size);
  // Makes or attaches the named arena of `size` bytes; returns the attach count over all
  // processes. An unused private arena of this process is given back first; with an arena in use
  // the call only counts one more attach to it.
  static std::int32_t _AllocSharedMem(std::size_t size, const char* pszName);
  // Detaches: -1 without an arena, else the attach count after this one. When this process's own
  // attaches reach 0 the arena is unmapped (and a named one whose count reached 0 is removed).
  static std::int32_t _FreeMem();
  static std::int32_t _QueryCountAllocSharedMem();
  static void _DecCountAllocSharedMem();

  // A permanent block of `size` bytes from the carving edge, outside the classes, uncounted.
  // The first one of a new arena is the root object. Null for size 0.
  static void* _AllocFixed(std::size_t size);
  // A block of the smallest class that holds `size` bytes. Sizes above 16 MiB and 0 have no class
  // and fail.
  static void* _Alloc(std::size_t size, KvGranularityMemoryWatcher* watcher);
  // Gives back a block; `size` is the size it was allocated with.
  static void _Free(void* pv, std::size_t size, KvGranularityMemoryWatcher* watcher);
  // The class index for `size` (1 .. 15), or -1 when no class holds it. Inline, as a string picks
  // its class on every growth.
  static std::int32_t _GetGranularityIndex(std::size_t size) {
    if (size == 0 || size > (std::size_t{1} << 31)) return -1;
    return _aulNdxMap[std::bit_width(2 * size - 1)];
  }

  static void* _GetRootObj();  // base + 0x10000, null without arena
  static void* _GetBase();
  static void* _GetRoot(std::int32_t i);             // slot 0 .. 15; null outside
  static void* _SetRoot(void* pv, std::int32_t i);   // returns the old value
  // True for base + 0x10000 <= pv < first uncommitted address - 7.
  static bool _IsPointerInComittedRange(const void* pv);

  // Delete functions of shared classes: ids from 1 up to 4094.
  static std::int32_t _RegisterDeleteFunction(KvGranDeleteFunction fn);
  static KvGranDeleteFunction _GetDeleteFunction(std::int32_t id);

  static void _EnableMemChecking(bool enable);
  static void _FillMemoryState(KvGranularityMemoryState* state);
  static std::int32_t _GetGranularityCount() { return KVGRAN_NUM_GRANULARITIES; }
  static std::int32_t _GetWatcherCount();
  static KvGranularityMemoryWatcher* _GetDefaultWatcher();
  static const char* _GetMemName() { return _s_szMemName; }

  // ---- state of this process (outside the arena)
  static char* _pvBase;                       // arena base, null without arena
  static Info* _poinf;                        // the header at the base
  static KvGranularity* _aogran;              // the class table in the header
  static std::size_t _stMax;                  // arena size in bytes
  static KvMutexSem _omtx;                    // guards free lists, counters, the watcher list
  static KvHandle _hMem;                      // the named memory view, null in private mode
  static std::int32_t _s_cThisApplicationsAccess;  // this process's own attaches
  static char _s_szMemName[260];              // the mapping's name, or the program's path
  static const std::int32_t _aulNdxMap[34];   // class by bit length of (2 * size - 1)
  static const KvGranularity _s_aogranImage[KVGRAN_NUM_GRANULARITIES];  // copied into a new arena
  static KvGranDeleteFunction sm_aDeleteFunctions[KVGRAN_NUM_DELETE_FUNCTIONS];
  static std::atomic<std::int32_t> sm_iDeleteFunctionMax;

  // ---- the record
  char* _pchNextFree;          // head of the free list, null when empty; a free block's first
                               // word holds the next one's address
  std::uint32_t _stSize;       // block size in bytes; 0 marks a class without memory
  std::uint32_t _stBlockSize;  // blocks carved at a time
  std::int64_t _cAllocated;    // allocations while checking was on
  std::int64_t _cFreed;        // frees while checking was on, as a negative number
  std::int64_t _cStatic;       // net allocations while checking was off

 private:
  static void _Init(bool first);
  void MemPrepare();
  // The parts of Alloc and Free, for callers that hold _omtx. _PopLocked makes Alloc's checks and
  // takes the head of the free list (carving when it is empty), unpoisoned but not cleared;
  // _CheckFreeLocked makes Free's checks (false: a class without memory, nothing to give back);
  // _PushLocked gives the block back and counts it.
  char* _PopLocked(std::size_t size);
  bool _CheckFreeLocked(const char* block) const;
  void _PushLocked(char* block, KvGranularityMemoryWatcher* watcher);
};

// The arena's header, at its base.
struct KvGranularity::Info {
  char* _pchUncommitted;                       // next address to be carved (may be committed)
  char* _pchNextCommit;                        // first address not committed
  void* _pvUse;                                // first usable address, base + 0x10000
  char* _apvRoot[KVGRAN_NUM_ROOTS];            // root slots of well-known objects
  KvGranularityMemoryWatcher* _pFirstWatcher;  // head of the list of all watchers
  std::int32_t _cAccess;                       // attaches over all processes
  std::int64_t _cAllocatedBytes;               // bytes allocated while checking was on
  std::int64_t _cFreedBytes;                   // bytes freed while checking was on, negative
  std::int64_t _cStaticBytes;                  // net bytes while checking was off
  KvGranularity _aogran[KVGRAN_NUM_GRANULARITIES];  // the class table
  void* _pvMapAddress;                         // the base as its maker saw it
  bool _bEnableMemChecking;                    // which counter set Alloc and Free use
  std::int32_t _cWatchers;                     // watchers on the list
};

// 16 bytes, made anew at each effective watcher Init.
struct KvGuid {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};

// The counters of one allocating type. Watchers are function-local statics of their classes and
// stay on the arena's list until the process ends (the destructor does nothing), so a watcher must
// never be an automatic or heap object that goes away before the arena.
class KVCLASS_API KvGranularityMemoryWatcher {
 public:
  KvGranularityMemoryWatcher();  // empty and not on the list
  KvGranularityMemoryWatcher(const char* pszType, const char* pszDescr, std::uint32_t stObjSize);
  // The type text is the demangled name of `type` ("KvString", "kvd::Foo"; no "class " before it).
  KvGranularityMemoryWatcher(const std::type_info& type, const char* pszDescr, std::uint32_t stObjSize);
  ~KvGranularityMemoryWatcher() {}

  // Takes the texts (at most 511 bytes each) and the size, clears the counters and pushes the
  // watcher at the head of the arena's list; does nothing when all three already match.
  void Init(const char* pszType, const char* pszDescr, std::uint32_t stObjSize);
  const char* GetType() const { return m_szType; }
  const char* GetDescr() const { return m_szDescr; }
  std::uint32_t GetObjSize() const { return m_stObjSize; }
  std::int64_t GetAllocated() const { return m_cAllocated; }
  std::int64_t GetFreed() const { return m_cFreed; }
  std::int64_t GetStatic() const { return m_cStatic; }
  KvGranularityMemoryWatcher* GetNext() const { return m_pNext; }
  const KvGuid& GetGuid() const { return m_guid; }
  // Copies texts, size, counters and the list link; the GUID stays.
  KvGranularityMemoryWatcher& operator=(const KvGranularityMemoryWatcher& other);

  static KvGranularityMemoryWatcher* _GetFirst();
  // The first watcher on the list with this type and description, or null.
  static KvGranularityMemoryWatcher* _GetMemoryWatcher(const char* pszType, const char* pszDescr);
  // Copies each watcher's counters, in list order, into the state's per-watcher rows.
  static void _FillMemoryState(KvGranularityMemoryState* state);

  KvGuid m_guid;
  char m_szType[512];
  char m_szDescr[512];
  std::uint32_t m_stObjSize;   // object size, 0 for buffers of varying size
  std::int64_t m_cAllocated;   // while checking was on
  std::int64_t m_cFreed;       // while checking was on, negative
  std::int64_t m_cStatic;      // net, while checking was off
  KvGranularityMemoryWatcher* m_pNext;
};

// A snapshot of the counters. About 394 KB: keep it off small stacks.
class KVCLASS_API KvGranularityMemoryState {
 public:
  KvGranularityMemoryState();  // all zero

  void Checkpoint();
  // This = newer - older, watcher rows matched across the watchers born in between (they stand at
  // the head of newer's rows, unsubtracted). True when something leaked: allocated + freed is not
  // 0 for the byte sum, a class row or a watcher row. Static counters never count.
  bool Difference(const KvGranularityMemoryState& older, const KvGranularityMemoryState& newer);
  void DumpStatisticsToDebugOutput() const;
  void DumpStatisticsToStdOut() const;

  std::int64_t m_lAllocatedSum;
  std::int64_t m_alAllocatedPerGran[32];
  std::int64_t m_alAllocatedPerWatcher[KVGRAN_NUM_WATCHERS];
  std::int64_t m_lFreedSum;
  std::int64_t m_alFreedPerGran[32];
  std::int64_t m_alFreedPerWatcher[KVGRAN_NUM_WATCHERS];
  std::int64_t m_lStaticSum;
  std::int64_t m_alStaticPerGran[32];
  std::int64_t m_alStaticPerWatcher[KVGRAN_NUM_WATCHERS];
  std::int32_t m_cWatchers;
};

// Maps the named memory `pszName` of `size` bytes into *ppv under the process-wide mutex, unless
// *ppv is set already; the maker zeroes its first `clearSize` bytes. True when this call made it.
// *ppv is null when the memory can be neither made nor attached at the maker's address.
KVCLASS_API bool KvAllocNamedSharedMem(void** ppv, const char* pszName, std::size_t size, std::size_t clearSize);

// Fails with "<arena name>: <text>", cut at 259 bytes.
[[noreturn]] KVCLASS_API void KvGranThrow(const char* pszText);

struct _KVMEM_STAT {
  std::uint32_t ulSegments;
  std::uint32_t ulBlocks;
};
// One static record; nothing counts into it, so both fields read 0.
KVCLASS_API _KVMEM_STAT* KvGetMemStat();

// Gives a class its watchers and its class-level new and delete on the arena:
//   class KvFoo { KVGRAN_DECLARE_ALLOC(KvFoo) ... };
// _GetWatcher has the type text of the class, the description "new" and the class's size;
// _GetInternalAllocWatcher, for the buffers the class takes for itself, "InternalAlloc" and size
// 0. A class that takes no buffers of its own declares KVGRAN_DECLARE_NEW instead: the same
// without _GetInternalAllocWatcher.
// new comes in three forms: plain; placement (new (pv) KvFoo), which only constructs; and with
// source file and line (new (__FILE__, __LINE__) KvFoo), which is the plain one. The sized delete
// gives the arena the size it allocated (with a virtual destructor, the size of the object's own
// class).
#define KVGRAN_DECLARE_NEW(Class)                                                          \
 public:                                                                                   \
  static KvGranularityMemoryWatcher* _GetWatcher() {                                       \
    static KvGranularityMemoryWatcher s_watcher(typeid(Class), "new", sizeof(Class));      \
    return &s_watcher;                                                                     \
  }                                                                                        \
  static void* operator new(std::size_t cb) { return KvGranularity::_Alloc(cb, _GetWatcher()); } \
  static void* operator new(std::size_t, void* pv) noexcept { return pv; }                 \
  static void* operator new(std::size_t cb, const char*, int) {                            \
    return KvGranularity::_Alloc(cb, _GetWatcher());                                       \
  }                                                                                        \
  static void operator delete(void* pv, std::size_t cb) {                                  \
    KvGranularity::_Free(pv, cb, _GetWatcher());                                           \
  }                                                                                        \
  static void operator delete(void*, void*) noexcept {}                                    \
  static void operator delete(void* pv, const char*, int) {                                \
    KvGranularity::_Free(pv, sizeof(Class), _GetWatcher());                                \
  }

#define KVGRAN_DECLARE_ALLOC(Class)                                                        \
  KVGRAN_DECLARE_NEW(Class)                                                                \
  static KvGranularityMemoryWatcher* _GetInternalAllocWatcher() {                          \
    static KvGranularityMemoryWatcher s_watcher(typeid(Class), "InternalAlloc", 0);        \
    return &s_watcher;                                                                     \
  }
