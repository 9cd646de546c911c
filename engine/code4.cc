// The engine state: initialisation, closing everything, errors and their texts, group locks.
#include <algorithm>
#include <cstring>

#include "engine/d4all.h"
#include "engine/data4_impl.h"
#include "platform/env.h"

namespace kvd::engine {

CodeImpl* Impl(CODE4* code) {
  return code && code->initialized ? static_cast<CodeImpl*>(code->impl) : nullptr;
}

int SetError(CODE4* code, int err, const Status& why) { return SetError(code, err, why.ToString().c_str()); }

int SetError(CODE4* code, int err, const char* why) {
  if (!code) return err;
  code->errorCode = err;
  if (CodeImpl* impl = Impl(code)) impl->last_detail = why ? why : "";
  return err;
}

int ErrorFor(const Status& s, int context) {
  switch (s.kind()) {
    case Status::Kind::kOk: return 0;
    case Status::Kind::kCorruption: return e4data;
    case Status::Kind::kReadOnly: return e4readOnly;
    case Status::Kind::kInvalidArgument: return e4parm;
    default: return context;
  }
}

}  // namespace kvd::engine

using kvd::engine::CodeImpl;
using kvd::engine::Impl;
using kvd::Status;

extern "C" {

int code4initLow(CODE4* code, const char* /*defaultPath*/, long /*version*/, long /*structSize*/, int /*reserved*/) {
  if (!code) return e4parm;
  std::memset(code, 0, sizeof *code);
  code->autoOpen = 1;
  code->errOpen = 1;
  code->safety = 1;
  code->optimize = 0;
  code->optimizeWrite = 0;
  code->lockEnforce = 0;
  code->accessMode = OPEN4DENY_NONE;
  code->readOnly = 0;
  code->lockAttempts = 16;
  code->lockDelay = 62;
  code->impl = new (std::nothrow) CodeImpl();
  if (!code->impl) return e4memory;
  code->initialized = 1;
  return 0;
}

int code4init(CODE4* code) { return code4initLow(code, nullptr, 0, sizeof(CODE4), 0); }

int code4close(CODE4* code) {
  CodeImpl* impl = Impl(code);
  if (!impl) return e4info;
  int first = 0;
  while (!impl->tables.empty()) {
    int rc = kvd::engine::CloseTable(impl->tables.back());
    if (rc < 0 && first == 0) first = rc;
  }
  return first;
}

int code4initUndo(CODE4* code) {
  CodeImpl* impl = Impl(code);
  if (!impl) return e4info;
  int rc = code4close(code);
  delete impl;
  code->impl = nullptr;
  code->initialized = 0;
  return rc;
}

void code4unlockAutoSetDo(CODE4* code, int on) {
  if (code) code->autoUnlock = on ? 1 : 0;
}

int code4lock(CODE4* code) {
  CodeImpl* impl = Impl(code);
  if (!impl) return e4info;
  std::vector<QueuedLock> want;
  want.swap(impl->queued);
  int attempts = code->lockAttempts == 0 ? 1 : code->lockAttempts;
  // All or none: each round tries every queued lock without waiting; on the first refusal the locks
  // taken in this round are given back, and the round is tried again after lockDelay.
  for (int round = 0;; ++round) {
    std::vector<QueuedLock> taken;
    int refused = 0;
    for (const QueuedLock& q : want) {
      DATA4St* d = q.data;
      Status s;
      bool already = false;
      switch (q.kind) {
        case QueuedLock::Kind::kRecord:
          already = d->all_locked || kvd::engine::HoldsRecordLock(d, q.rec);
          if (!already) s = d->dbf->LockRecord(q.rec, 1, 0);
          break;
        case QueuedLock::Kind::kAppend:
          already = d->append_locked;
          if (!already) s = d->dbf->LockAppend(1, 0);
          break;
        case QueuedLock::Kind::kAll:
          already = d->all_locked;
          if (!already) s = d->dbf->LockAll(1, 0);
          break;
      }
      if (already) continue;
      if (!s.ok()) {
        refused = s.IsBusy() ? r4locked : kvd::engine::SetError(code, e4lock, s);
        break;
      }
      taken.push_back(q);
    }
    if (refused == 0) {
      for (const QueuedLock& q : taken) {
        DATA4St* d = q.data;
        if (q.kind == QueuedLock::Kind::kRecord) d->locked_records.push_back(q.rec);
        if (q.kind == QueuedLock::Kind::kAppend) d->append_locked = true;
        if (q.kind == QueuedLock::Kind::kAll) d->all_locked = true;
      }
      return 0;
    }
    for (const QueuedLock& q : taken) {
      if (q.kind == QueuedLock::Kind::kRecord) q.data->dbf->UnlockRecord(q.rec);
      if (q.kind == QueuedLock::Kind::kAppend) q.data->dbf->UnlockAppend();
      if (q.kind == QueuedLock::Kind::kAll) q.data->dbf->UnlockAll();
    }
    if (refused < 0) return refused;
    if (attempts > 0 && round + 1 >= attempts) {
      impl->queued = std::move(want);  // still queued, as a later code4lock may try again
      return r4locked;
    }
    kvd::platform::SleepMillis(static_cast<unsigned>(code->lockDelay));
  }
}

int code4unlock(CODE4* code) {
  CodeImpl* impl = Impl(code);
  if (!impl) return e4info;
  int first = 0;
  for (DATA4St* d : impl->tables) {
    int rc = kvd::engine::DropLocks(d, /*flush=*/true);
    if (rc < 0 && first == 0) first = rc;
  }
  return first;
}

int error4set(CODE4* code, int newCode) {
  if (!code) return 0;
  int old = code->errorCode;
  code->errorCode = newCode;
  if (newCode == 0)
    if (CodeImpl* impl = Impl(code)) impl->last_detail.clear();
  return old;
}

int error4code(CODE4* code) { return code ? code->errorCode : e4info; }

const char* error4lastDetail(CODE4* code) {
  CodeImpl* impl = Impl(code);
  return impl ? impl->last_detail.c_str() : "";
}

const char* error4text(CODE4* /*code*/, long err) {
  switch (err) {
    case 0: return "No error";
    case r4eof: return "End of file";
    case r4after: return "Key not found; positioned after it";
    case r4locked: return "Locked by another opener";
    case e4close: return "Closing a file";
    case e4create: return "Creating a file";
    case e4len: return "Length out of range";
    case e4open: return "Opening a file";
    case e4read: return "Reading a file";
    case e4remove: return "Removing a file";
    case e4rename: return "Renaming a file";
    case e4unlock: return "Unlocking";
    case e4write: return "Writing to a file";
    case e4data: return "Table file is damaged";
    case e4fieldName: return "Unknown field name";
    case e4fieldType: return "Field type does not allow this";
    case e4recordLen: return "Record length out of range";
    case e4append: return "Appending a record";
    case e4memo: return "Memo file is missing or damaged";
    case e4entry: return "Record number out of range";
    case e4index: return "Index operation failed";
    case e4tagName: return "Unknown tag name";
    case e4unique: return "Duplicate key in a unique tag";
    case e4lock: return "Record is not locked, or locking failed";
    case e4exclusive: return "The table must be open for this opener alone";
    case e4readOnly: return "Table opened read only";
    case e4memory: return "Out of memory";
    case e4parm: return "Invalid argument";
    case e4info: return "Engine state not initialised";
    default: return "Unknown error";
  }
}

}  // extern "C"
