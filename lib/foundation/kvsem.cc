#include "lib/foundation/kvsem.h"

#include <climits>
#include <cstring>
#include <new>

#include "lib/foundation/kvsem_impl.h"
#include "platform/env.h"
#include "platform/shm.h"
#include "platform/sync.h"

// What a handle refers to. Made with the runtime's new, deleted by KvCloseHandle.
struct KvHandleRec {
  enum class Kind { kEventWord, kNamedMutex, kNamedEvent, kView };
  Kind kind;
  std::atomic<std::uint32_t>* word = nullptr;  // kEventWord, kNamedEvent: the state word
  void* view = nullptr;                        // kNamedMutex, kNamedEvent, kView: the mapping
  std::size_t size = 0;                        // its length
};

namespace {

using kvd::platform::LockResult;

constexpr std::string_view kMutexKind = "mtx";
constexpr std::string_view kEventKind = "evt";
constexpr std::size_t kNamedObjectBytes = kvd::platform::kPageSize;

KvHandle NewHandle(KvHandleRec::Kind kind) {
  auto* h = new (std::nothrow) KvHandleRec;
  if (h != nullptr) h->kind = kind;
  return h;
}

// Event state words: 0 reset, 1 posted. Shared futexes, as the word may lie in shared memory.
bool WaitWord(std::atomic<std::uint32_t>* word, std::int64_t timeout_ms) {
  const std::uint64_t start = kvd::platform::MonotonicMillis();
  while (word->load(std::memory_order_acquire) == 0) {
    std::int64_t left = -1;
    if (timeout_ms >= 0) {
      left = timeout_ms - static_cast<std::int64_t>(kvd::platform::MonotonicMillis() - start);
      if (left <= 0) return false;
    }
    kvd::platform::FutexWait(word, 0, left, true);
  }
  return true;
}

void PostWord(std::atomic<std::uint32_t>* word) {
  word->store(1, std::memory_order_release);
  kvd::platform::FutexWake(word, INT_MAX, true);
}

bool InitNamedMutex(void* addr, void*) { return kvd::platform::RobustMutexInit(addr); }

KvHandle OpenNamed(std::string_view kind, const char* name) {
  if (name == nullptr || *name == '\0') return nullptr;
  const bool mutex = kind == kMutexKind;
  const kvd::platform::SharedView v =
      kvd::platform::OpenNamedObject(kind, name, kNamedObjectBytes, true, mutex ? InitNamedMutex : nullptr, nullptr);
  if (v.addr == nullptr) return nullptr;
  KvHandle h = NewHandle(mutex ? KvHandleRec::Kind::kNamedMutex : KvHandleRec::Kind::kNamedEvent);
  if (h == nullptr) {
    kvd::platform::ReleaseAddressSpace(v.addr, v.size);
    return nullptr;
  }
  h->view = v.addr;
  h->size = v.size;
  if (!mutex) h->word = static_cast<std::atomic<std::uint32_t>*>(v.addr);
  return h;
}

bool LockNamed(KvHandle h, std::int64_t timeout_ms) {
  if (h == nullptr || h->kind != KvHandleRec::Kind::kNamedMutex) return false;
  const LockResult r = kvd::platform::RobustMutexLock(h->view, timeout_ms);
  return r == LockResult::kAcquired || r == LockResult::kAbandoned;
}

bool UnlockNamed(KvHandle h) {
  return h != nullptr && h->kind == KvHandleRec::Kind::kNamedMutex && kvd::platform::RobustMutexUnlock(h->view);
}

// Takes `*ph` off the exit list, for a handle variable that is about to go away.
void ForgetAtExit(KvHandle* ph) {
  for (std::int32_t i = 0; i < KvHandleExitList::_lHandleNdx; ++i) {
    if (KvHandleExitList::_aphCloseAtExit[i] == ph) KvHandleExitList::_aphCloseAtExit[i] = nullptr;
  }
}

KvHandle g_hmtx = nullptr;  // "KVCRITSEC" (the _hmtx of the process)
constexpr const char* kCritSecName = "KVCRITSEC";

// The exit lists run as the library is unloaded, which for a process that ends is after the
// static objects of the program and of the library are gone.
__attribute__((destructor)) void RunExitLists() {
  KvDeletePointers();
  KvCloseHandles();
}

}  // namespace

namespace kvd::classlib {

constinit thread_local char g_thread_tag __attribute__((tls_model("initial-exec"))) = 0;

KvHandle MakeViewHandle(void* addr, std::size_t size) {
  KvHandle h = NewHandle(KvHandleRec::Kind::kView);
  if (h != nullptr) {
    h->view = addr;
    h->size = size;
  }
  return h;
}

}  // namespace kvd::classlib

bool KvCloseHandle(KvHandle h) {
  if (h == nullptr) return false;
  if (h->view != nullptr) kvd::platform::ReleaseAddressSpace(h->view, h->size);
  delete h;
  return true;
}

// ---------------------------------------------------------------------------------------------
// KvMutexSem

void KvMutexSem::Request() { kvd::classlib::CritEnter(_cs); }
void KvMutexSem::Release() { kvd::classlib::CritLeave(_cs); }

// ---------------------------------------------------------------------------------------------
// KvSharedObject, KvEventSem

KvSharedObject::KvSharedObject() : _h(nullptr), _dwCreatorPrcs(kvd::platform::ProcessId32()), _uState(0) {}

KvSharedObject::~KvSharedObject() {
  if (!IsCreatorProcess()) return;
  ForgetAtExit(&_h);
  KvCloseHandle(_h);
  _h = nullptr;
}

bool KvSharedObject::IsCreatorProcess() const { return _dwCreatorPrcs == kvd::platform::ProcessId32(); }

KvHandle KvSharedObject::GetDuplicate() {
  if (IsCreatorProcess()) return _h;
  if (_h == nullptr) return nullptr;  // the creator never made it
  KvHandle d = NewHandle(KvHandleRec::Kind::kEventWord);
  if (d != nullptr) d->word = &_uState;
  return d;
}

void KvSharedObject::CloseDuplicate(KvHandle h) {
  if (!IsCreatorProcess()) KvCloseHandle(h);
}

void KvSharedObject::Init(KvHandle h, bool closeAtExit) {
  if (IsCreatorProcess() && _h != nullptr && _h != h) {
    ForgetAtExit(&_h);
    KvCloseHandle(_h);
  }
  _h = h;
  _dwCreatorPrcs = kvd::platform::ProcessId32();
  if (_h != nullptr && closeAtExit) KvAddHandleToBeClosedAtExit(&_h);
}

KvEventSem::KvEventSem(bool closeAtExit) {
  _h = NewHandle(KvHandleRec::Kind::kEventWord);
  if (_h == nullptr) return;
  _h->word = &_uState;
  if (closeAtExit) KvAddHandleToBeClosedAtExit(&_h);
}

KvEventSem::~KvEventSem() = default;  // ~KvSharedObject closes, in the creator only

bool KvEventSem::Wait(std::uint32_t timeout) {
  KvHandle h = GetDuplicate();
  if (h == nullptr) return true;  // nothing to wait on: the wait "fails", which is not a time-out
  const bool signalled = WaitWord(h->word, timeout);
  CloseDuplicate(h);
  return signalled;
}

bool KvEventSem::Wait() {
  KvHandle h = GetDuplicate();
  if (h == nullptr) return true;
  WaitWord(h->word, -1);
  CloseDuplicate(h);
  return true;
}

bool KvEventSem::Post() {
  KvHandle h = GetDuplicate();
  if (h == nullptr) return false;
  PostWord(h->word);
  CloseDuplicate(h);
  return true;
}

bool KvEventSem::Reset() {
  KvHandle h = GetDuplicate();
  if (h == nullptr) return false;
  h->word->store(0, std::memory_order_release);
  CloseDuplicate(h);
  return true;
}

// ---------------------------------------------------------------------------------------------
// Named mutex and event

KvNamedMutexSem::KvNamedMutexSem(const char* pszName, bool closeAtExit) : _h(OpenNamed(kMutexKind, pszName)) {
  if (_h != nullptr && closeAtExit) KvAddHandleToBeClosedAtExit(&_h);
}

KvNamedMutexSem::~KvNamedMutexSem() {
  ForgetAtExit(&_h);
  KvCloseHandle(_h);
}

bool KvNamedMutexSem::Request() { return LockNamed(_h, -1); }
bool KvNamedMutexSem::Request(std::uint32_t timeout) { return LockNamed(_h, timeout); }
bool KvNamedMutexSem::Release() { return UnlockNamed(_h); }

KvNamedEventSem::KvNamedEventSem(const char* pszName, bool closeAtExit) : _h(OpenNamed(kEventKind, pszName)) {
  if (_h != nullptr && closeAtExit) KvAddHandleToBeClosedAtExit(&_h);
}

KvNamedEventSem::~KvNamedEventSem() {
  ForgetAtExit(&_h);
  KvCloseHandle(_h);
}

bool KvNamedEventSem::Reset() {
  if (_h == nullptr) return false;
  _h->word->store(0, std::memory_order_release);
  return true;
}

bool KvNamedEventSem::Post() {
  if (_h == nullptr) return false;
  PostWord(_h->word);
  return true;
}

bool KvNamedEventSem::Wait() { return _h != nullptr && WaitWord(_h->word, -1); }
bool KvNamedEventSem::Wait(std::uint32_t timeout) { return _h != nullptr && WaitWord(_h->word, timeout); }

bool KvRemoveNamedMutexSem(const char* pszName) {
  return pszName != nullptr && kvd::platform::RemoveNamedObject(kMutexKind, pszName);
}

bool KvRemoveNamedEventSem(const char* pszName) {
  return pszName != nullptr && kvd::platform::RemoveNamedObject(kEventKind, pszName);
}

// ---------------------------------------------------------------------------------------------
// KVCRITSEC

void KvInitCritSec() {
  if (g_hmtx == nullptr) g_hmtx = OpenNamed(kMutexKind, kCritSecName);
}

void KvEnterCritSec() {
  KvInitCritSec();
  LockNamed(g_hmtx, -1);
}

void KvExitCritSec() { UnlockNamed(g_hmtx); }

void KvCloseCritSec() {
  if (KvCloseHandle(g_hmtx)) g_hmtx = nullptr;
}

KvHandle KvGetCritSecHandle() { return g_hmtx; }

// ---------------------------------------------------------------------------------------------
// Exit lists

KvHandle* KvHandleExitList::_aphCloseAtExit[KV_EXIT_LIST_SIZE] = {};
std::int32_t KvHandleExitList::_lHandleNdx = 0;

void KvAddHandleToBeClosedAtExit(KvHandle* ph) {
  if (ph == nullptr) return;
  for (std::int32_t i = 0; i < KvHandleExitList::_lHandleNdx; ++i) {
    KvHandle* listed = KvHandleExitList::_aphCloseAtExit[i];
    if (listed != nullptr && *listed == *ph) return;
  }
  if (KvHandleExitList::_lHandleNdx >= KV_EXIT_LIST_SIZE) return;
  KvHandleExitList::_aphCloseAtExit[KvHandleExitList::_lHandleNdx++] = ph;
}

void KvCloseHandles() {
  for (std::int32_t i = 0; i < KvHandleExitList::_lHandleNdx; ++i) {
    KvHandle* ph = KvHandleExitList::_aphCloseAtExit[i];
    if (ph == nullptr) continue;
    if (*ph != nullptr) {
      KvCloseHandle(*ph);
      *ph = nullptr;
    }
    KvHandleExitList::_aphCloseAtExit[i] = nullptr;
  }
}

PointerToBeDeletedAtExitBase* PointerToBeDeletedAtExitBase::_apDeleteAtExit[KV_EXIT_LIST_SIZE] = {};
std::int32_t PointerToBeDeletedAtExitBase::_lPointerNdx = 0;

PointerToBeDeletedAtExitBase::~PointerToBeDeletedAtExitBase() = default;
void PointerToBeDeletedAtExitBase::DeleteSharedPointer() {}
void PointerToBeDeletedAtExitBase::DeletePointer() {}
void PointerToBeDeletedAtExitBase::CloseHandle() {}
bool PointerToBeDeletedAtExitBase::IsSharedPointerEqual(const void*) const { return false; }
bool PointerToBeDeletedAtExitBase::IsPointerEqual(const void* pv) const { return pv == this; }
bool PointerToBeDeletedAtExitBase::IsHandleEqual(KvHandle) const { return false; }

bool PointerToBeDeletedAtExitBase::_Add(PointerToBeDeletedAtExitBase* p) {
  if (p == nullptr) return false;
  for (std::int32_t i = 0; i < _lPointerNdx; ++i) {
    if (_apDeleteAtExit[i] == p) return false;
  }
  if (_lPointerNdx >= KV_EXIT_LIST_SIZE) return false;
  _apDeleteAtExit[_lPointerNdx++] = p;
  return true;
}

void KvDeletePointers() {
  for (std::int32_t i = 0; i < PointerToBeDeletedAtExitBase::_lPointerNdx; ++i) {
    PointerToBeDeletedAtExitBase* p = PointerToBeDeletedAtExitBase::_apDeleteAtExit[i];
    if (p == nullptr) continue;
    p->DeletePointer();
    delete p;
    PointerToBeDeletedAtExitBase::_apDeleteAtExit[i] = nullptr;
  }
}
