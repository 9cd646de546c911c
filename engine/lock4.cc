// The lock calls of a table. The bookkeeping and the byte layout live in data4.cc and dbf_file.h.
#include "engine/d4all.h"
#include "engine/data4_impl.h"

using namespace kvd::engine;

extern "C" {

int d4lock(DATA4St* d, long rec) {
  if (!d) return e4parm;
  return LockRecordFor(d, static_cast<std::uint32_t>(rec < 0 ? 0 : rec), d->code->lockAttempts);
}

int d4lockAppend(DATA4St* d) { return d ? LockAppendFor(d) : e4parm; }
int d4lockAll(DATA4St* d) { return d ? LockAllFor(d) : e4parm; }

int d4lockInternal(DATA4St* d, long rec, int doUnlock, int lockAttempts) {
  if (!d) return e4parm;
  if (doUnlock && !HoldsRecordLock(d, static_cast<std::uint32_t>(rec)))
    if (int rc = DropLocks(d, true); rc < 0) return rc;
  return LockRecordFor(d, static_cast<std::uint32_t>(rec < 0 ? 0 : rec), lockAttempts);
}

int d4lockAppendInternal(DATA4St* d, int doUnlock) {
  if (!d) return e4parm;
  if (doUnlock && !d->append_locked)
    if (int rc = DropLocks(d, true); rc < 0) return rc;
  return LockAppendFor(d);
}

int d4lockAllInternal(DATA4St* d, int doUnlock) {
  if (!d) return e4parm;
  if (doUnlock && !d->all_locked)
    if (int rc = DropLocks(d, true); rc < 0) return rc;
  return LockAllFor(d);
}

int d4lockTest(DATA4St* d, long rec) {
  if (!d || rec < 1) return 0;
  return d->dbf->exclusive() || d->all_locked || HoldsRecordLock(d, static_cast<std::uint32_t>(rec));
}

static int Queue(DATA4St* d, QueuedLock::Kind kind, long rec) {
  if (!d) return e4parm;
  CodeImpl* impl = Impl(d->code);
  if (!impl) return e4info;
  if (kind == QueuedLock::Kind::kRecord && (rec < 1 || rec > static_cast<long>(kMaxRecords)))
    return SetError(d->code, e4entry, "queued lock of a record number out of range");
  impl->queued.push_back(QueuedLock{d, kind, static_cast<std::uint32_t>(rec < 0 ? 0 : rec)});
  return 0;
}

int d4lockAdd(DATA4St* d, long rec) { return Queue(d, QueuedLock::Kind::kRecord, rec); }
int d4lockAddAppend(DATA4St* d) { return Queue(d, QueuedLock::Kind::kAppend, 0); }
int d4lockAddAll(DATA4St* d) { return Queue(d, QueuedLock::Kind::kAll, 0); }

int d4unlock(DATA4St* d) { return d ? DropLocks(d, true) : e4parm; }

}  // extern "C"
