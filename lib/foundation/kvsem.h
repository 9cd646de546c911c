// Semaphores and exit lists: the in-process mutex with its scoped holders, events that a process
// other than their maker can wait on and post, named mutexes and events, the process-wide mutex
// "KVCRITSEC", and the lists of handles and pointers cleaned up when the process ends.
//
// Handles. A KvHandle is this process's reference to a kernel object: an event's state word, a
// named mutex or event in /dev/shm, a named memory view. Like any handle it means something only
// in the process that holds it, and KvCloseHandle gives it back. A null handle is no object.
//
// Across processes. A KvEventSem keeps its state word inside the object itself, so when the
// object lies in memory several processes map at one address (the shared arena), each of them
// reaches the same event: the maker through its handle, the others through GetDuplicate. Named
// objects are found by name. The named mutexes are robust: a holder that dies, killed or not,
// releases them, and the next locker gets them at once.
//
// 32-bit quantities: the creator's process id is stored in 32 bits (`_dwCreatorPrcs`), as are the
// exit lists' counts; handles are pointers at full width.
#pragma once

#include <atomic>
#include <cstdint>

#include "lib/kv_export.h"

struct KvHandleRec;
using KvHandle = KvHandleRec*;

// Gives back a handle: unmaps a named object, forgets an event's word. False for null.
KVCLASS_API bool KvCloseHandle(KvHandle h);

// The lock word of KvMutexSem, the stand-in for a critical section: a futex word with the owning
// thread and its depth, and a bias: the first thread to use the lock enters it with plain loads
// and stores, until another thread comes (lib/foundation/kvsem_impl.h tells how).
// All zero is unlocked and unbiased, so a static KvMutexSem is ready before any constructor runs.
struct KvCritSection {
  std::atomic<std::uint32_t> state{0};     // 0 free, 1 taken, 2 taken and someone sleeps on it
  std::atomic<std::uintptr_t> owner{0};    // thread token of the holder of the word, 0 when free
  std::uint32_t recursion = 0;             // nested Requests of that holder; touched by it only
  std::atomic<std::uintptr_t> bias{0};     // the biased thread; 0 none yet, 1 revoked
  std::atomic<std::uintptr_t> bias_in{0};  // the biased thread while it is inside, else 0
  std::uint32_t bias_depth = 0;            // its nesting; touched by it only
};

// A recursive in-process mutex. Any thread may Request it, also again while it holds it; each
// Request needs its Release by the same thread. Guards within one process only.
class KVCLASS_API KvMutexSem {
 public:
  constexpr KvMutexSem() = default;
  // The flag has no effect; it is kept for callers that pass one.
  explicit constexpr KvMutexSem(bool) {}
  KvMutexSem(const KvMutexSem&) = delete;
  KvMutexSem& operator=(const KvMutexSem&) = delete;

  void Request();
  void Release();
  // The lock word, for the library's inline lock paths (lib/foundation/kvsem_impl.h).
  KvCritSection& _GetCritSection() { return _cs; }

 private:
  KvCritSection _cs;
};

// Holds a lock from construction to destruction, also when an exception passes.
template <class T>
class KvMutexLock {
 public:
  explicit KvMutexLock(T& mtx) : _pmtx(&mtx) { _pmtx->Request(); }
  ~KvMutexLock() { _pmtx->Release(); }
  KvMutexLock(const KvMutexLock&) = delete;
  KvMutexLock& operator=(const KvMutexLock&) = delete;

 private:
  T* _pmtx;
};

// The same for a KvMutexSem, held over one block: { KvBlockMutex hold(mtx); ... }
class KvBlockMutex {
 public:
  explicit KvBlockMutex(KvMutexSem& mtx) : _pmtx(&mtx) { _pmtx->Request(); }
  ~KvBlockMutex() { _pmtx->Release(); }
  KvBlockMutex(const KvBlockMutex&) = delete;
  KvBlockMutex& operator=(const KvBlockMutex&) = delete;

 private:
  KvMutexSem* _pmtx;
};

// An object other processes may hold: its handle `_h` is valid in the creating process only.
class KVCLASS_API KvSharedObject {
 public:
  KvSharedObject();
  // In the creating process: closes the handle and clears `_h`. Elsewhere: leaves both, so the
  // creator can go on using the object.
  ~KvSharedObject();
  KvSharedObject(const KvSharedObject&) = delete;
  KvSharedObject& operator=(const KvSharedObject&) = delete;

  // The handle to use in the calling process: `_h` in the creator; elsewhere a new handle on this
  // object's state word (null when the object has none), which the caller gives back through
  // CloseDuplicate.
  KvHandle GetDuplicate();
  // Closes what GetDuplicate gave, in a foreign process only; in the creator it does nothing.
  void CloseDuplicate(KvHandle h);
  // Takes over `h` in the calling process, which becomes the creator; closes a handle held before
  // (when this process made it). With `closeAtExit`, lists `_h` to be closed at exit.
  void Init(KvHandle h, bool closeAtExit);

  KvHandle GetHandle() const { return _h; }
  std::uint32_t GetCreatorProcess() const { return _dwCreatorPrcs; }
  bool IsCreatorProcess() const;

 protected:
  KvHandle _h;                           // the kernel object, valid in the creating process
  std::uint32_t _dwCreatorPrcs;          // process id of the creator
  std::atomic<std::uint32_t> _uState;    // the event's state word (0 reset, 1 posted): lies in the
                                         // object so that every process that maps it reaches it
};

// A manual-reset event, initially not signalled. Wait and Post work from any process that sees
// the object at the same address (the shared arena); Post wakes every waiter, and the event stays
// signalled until Reset.
class KVCLASS_API KvEventSem : public KvSharedObject {
 public:
  // Makes the event and notes the current process as creator. With `closeAtExit`, lists the
  // handle to be closed at exit. `_h` stays null when the event cannot be made.
  explicit KvEventSem(bool closeAtExit = false);
  ~KvEventSem();

  // Waits at most `timeout` milliseconds; false on time-out, true otherwise (also when there is no
  // handle to wait on).
  bool Wait(std::uint32_t timeout);
  bool Wait();  // without limit
  bool Post();  // sets the event; false without a handle
  bool Reset(); // clears it; false without a handle
};

// A mutex found by name by every process of the machine. Recursive per thread, robust: when its
// holder dies the next Request gets it. Opened, or made when missing, by the constructor; `_h`
// stays null when neither works. With `closeAtExit` the handle is listed to be closed at exit.
class KVCLASS_API KvNamedMutexSem {
 public:
  KvNamedMutexSem(const char* pszName, bool closeAtExit);
  ~KvNamedMutexSem();
  KvNamedMutexSem(const KvNamedMutexSem&) = delete;
  KvNamedMutexSem& operator=(const KvNamedMutexSem&) = delete;

  bool Request();                   // waits without limit; false only without a handle
  bool Request(std::uint32_t timeout);  // false on time-out
  bool Release();                   // false when the calling thread does not hold it
  KvHandle GetHandle() const { return _h; }

 private:
  KvHandle _h;
};

// A manual-reset event found by name by every process of the machine, initially not signalled.
class KVCLASS_API KvNamedEventSem {
 public:
  KvNamedEventSem(const char* pszName, bool closeAtExit);
  ~KvNamedEventSem();
  KvNamedEventSem(const KvNamedEventSem&) = delete;
  KvNamedEventSem& operator=(const KvNamedEventSem&) = delete;

  bool Reset();
  bool Post();
  bool Wait();                      // without limit
  bool Wait(std::uint32_t timeout); // false on time-out
  KvHandle GetHandle() const { return _h; }

 private:
  KvHandle _h;
};

// Removes a named mutex or event from the machine (processes that hold it keep it). Named objects
// otherwise stay until the machine restarts, as "KVCRITSEC" is meant to.
KVCLASS_API bool KvRemoveNamedMutexSem(const char* pszName);
KVCLASS_API bool KvRemoveNamedEventSem(const char* pszName);

// The process-wide mutex "KVCRITSEC". It spans all processes of the machine and guards the making
// of and attaching to named memory (KvGranularity::_AllocSharedMem).
// KvInitCritSec: when no handle is held, opens the mutex, and makes it when it does not exist.
KVCLASS_API void KvInitCritSec();
// Waits for it without limit (opening it first when needed), and releases it.
KVCLASS_API void KvEnterCritSec();
KVCLASS_API void KvExitCritSec();
// Closes the handle; on success clears it.
KVCLASS_API void KvCloseCritSec();
// The handle held, null before KvInitCritSec.
KVCLASS_API KvHandle KvGetCritSecHandle();

// ---------------------------------------------------------------------------------------------
// Exit lists. They have no lock: fill them while one thread runs. The library runs
// KvDeletePointers and then KvCloseHandles as the process ends.

constexpr std::int32_t KV_EXIT_LIST_SIZE = 1024;

struct KVCLASS_API KvHandleExitList {
  static KvHandle* _aphCloseAtExit[KV_EXIT_LIST_SIZE];  // addresses of handle variables
  static std::int32_t _lHandleNdx;                      // slots used, cleared ones included
};

// Lists the variable `ph` to be closed at exit. Returns at once when a listed variable already
// holds the handle `*ph`, or when the list is full.
KVCLASS_API void KvAddHandleToBeClosedAtExit(KvHandle* ph);
// Closes each listed non-null handle, clears its variable and its slot. The count stays; a cleared
// slot is passed over from then on.
KVCLASS_API void KvCloseHandles();

// An object to be deleted at exit. Made with the runtime's new; KvDeletePointers calls its
// DeletePointer and then deletes it.
class KVCLASS_API PointerToBeDeletedAtExitBase {
 public:
  virtual ~PointerToBeDeletedAtExitBase();
  virtual void DeleteSharedPointer();
  virtual void DeletePointer();
  virtual void CloseHandle();
  virtual bool IsSharedPointerEqual(const void* pv) const;
  virtual bool IsPointerEqual(const void* pv) const;
  virtual bool IsHandleEqual(KvHandle h) const;

  // Lists `p` (appended; ignored when listed already or when the list is full). Returns whether
  // it was listed by this call.
  static bool _Add(PointerToBeDeletedAtExitBase* p);

  static PointerToBeDeletedAtExitBase* _apDeleteAtExit[KV_EXIT_LIST_SIZE];
  static std::int32_t _lPointerNdx;
};

// For each listed object, in the order listed: DeletePointer, delete, clear the slot.
KVCLASS_API void KvDeletePointers();
