// Tables: open, create, close, remove, position, append, delete, write, pack.
#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstring>

#include "engine/d4all.h"
#include "engine/data4_impl.h"
#include "engine/dbf_format.h"
#include "engine/memo_ptr.h"
#include "engine/table_names.h"
#include "platform/ascii.h"
#include "platform/file.h"
#include "platform/path.h"

namespace kvd::engine {

void MarkChanged(DATA4St* d) {
  if (d->state == BufferState::kClean) d->state = BufferState::kChanged;
}

void ResetMemos(DATA4St* d) {
  for (FIELD4St* f : d->memo_fields) {
    f->memo_loaded = false;
    f->memo_changed = false;
    f->memo.clear();
  }
}

static void BlankBuffer(DATA4St* d) {
  std::memcpy(d->record.data(), d->blank.data(), d->blank.size());
  ResetMemos(d);
}

int LoadRecord(DATA4St* d, std::uint32_t rec) {
  Status s = d->dbf->ReadRecord(rec, d->record.data());
  if (!s.ok()) {
    BlankBuffer(d);
    return SetError(d->code, ErrorFor(s, e4read), s);
  }
  ResetMemos(d);
  d->rec_no = rec;
  d->state = BufferState::kClean;
  return 0;
}

bool HoldsRecordLock(const DATA4St* d, std::uint32_t rec) {
  return std::find(d->locked_records.begin(), d->locked_records.end(), rec) != d->locked_records.end();
}

static bool MayWrite(const DATA4St* d, std::uint32_t rec) {
  return !d->code->lockEnforce || d->dbf->exclusive() || d->all_locked || HoldsRecordLock(d, rec);
}

// Writes changed memos into the memo file and their block numbers into the buffer.
static int StoreMemos(DATA4St* d, bool fresh_blocks) {
  for (FIELD4St* f : d->memo_fields) {
    if (!f->memo_changed) continue;
    if (!d->memo) return SetError(d->code, e4memo, "table has memo fields but no memo file");
    char* ptr = d->record.data() + f->layout.offset;
    std::uint32_t old_block = fresh_blocks ? 0 : ReadMemoPointer(ptr, f->layout.len);
    std::uint32_t block = 0;
    Status s = d->memo->Write(old_block, f->memo.data(), f->memo.size(), &block);
    if (!s.ok()) return SetError(d->code, ErrorFor(s, e4write), s);
    WriteMemoPointer(ptr, f->layout.len, block);
    f->memo_changed = false;
  }
  return 0;
}

int FlushRecord(DATA4St* d) {
  if (d->state != BufferState::kChanged) return 0;
  if (d->dbf->read_only()) return SetError(d->code, e4readOnly, "table opened read only: " + d->name);
  if (!MayWrite(d, d->rec_no))
    return SetError(d->code, e4lock, ("change to record " + std::to_string(d->rec_no) + " of " + d->name +
                                      " without its lock").c_str());
  // The tags are checked (a duplicate in a unique tag refuses the write) and locked first, then the
  // memos and the record are written, then the tags changed.
  IndexPlan plan;
  if (!d->indexes.empty()) {
    std::vector<char> old(d->dbf->record_len());
    Status s = d->dbf->ReadRecord(d->rec_no, old.data());
    if (!s.ok()) return SetError(d->code, ErrorFor(s, e4read), s);
    if (int rc = IndexPrepare(d, d->rec_no, old.data(), d->record.data(), &plan)) return rc;
  }
  if (int rc = StoreMemos(d, false)) return IndexAbort(&plan), rc;
  Status s = d->dbf->WriteRecord(d->rec_no, d->record.data());
  if (!s.ok()) return IndexAbort(&plan), SetError(d->code, ErrorFor(s, e4write), s);
  d->state = BufferState::kClean;
  return d->indexes.empty() ? 0 : IndexCommit(d, d->rec_no, &plan);
}

int DropLocks(DATA4St* d, bool flush) {
  int rc = flush ? FlushRecord(d) : 0;
  // Appends that waited under the whole-table lock are written before the lock goes.
  if (Status s = d->dbf->FlushAppends(); !s.ok() && rc == 0) rc = SetError(d->code, ErrorFor(s, e4write), s);
  for (std::uint32_t r : d->locked_records) d->dbf->UnlockRecord(r);
  d->locked_records.clear();
  if (d->append_locked) d->dbf->UnlockAppend();
  if (d->all_locked) d->dbf->UnlockAll();
  d->append_locked = d->all_locked = false;
  return rc;
}

static int LockResult(DATA4St* d, const Status& s) {
  if (s.ok()) return 0;
  if (s.IsBusy()) return r4locked;
  return SetError(d->code, e4lock, s);
}

int LockRecordFor(DATA4St* d, std::uint32_t rec, int attempts) {
  if (rec == 0 || rec > kMaxRecords) return SetError(d->code, e4entry, "lock of a record number out of range");
  if (d->all_locked || d->dbf->exclusive() || HoldsRecordLock(d, rec)) return 0;
  if (d->code->autoUnlock)
    if (int rc = DropLocks(d, true); rc < 0) return rc;
  Status s = d->dbf->LockRecord(rec, attempts, d->code->lockDelay);
  if (s.ok()) d->locked_records.push_back(rec);
  return LockResult(d, s);
}

int LockAppendFor(DATA4St* d) {
  if (d->append_locked) return 0;
  if (d->code->autoUnlock && !d->all_locked)
    if (int rc = DropLocks(d, true); rc < 0) return rc;
  Status s = d->dbf->LockAppend(d->code->lockAttempts, d->code->lockDelay);
  if (s.ok()) d->append_locked = true;
  return LockResult(d, s);
}

int LockAllFor(DATA4St* d) {
  if (d->all_locked) return 0;
  if (d->code->autoUnlock)
    if (int rc = DropLocks(d, true); rc < 0) return rc;
  Status s = d->dbf->LockAll(d->code->lockAttempts, d->code->lockDelay);
  if (!s.ok()) return LockResult(d, s);
  // The whole-table range covers every record byte: record locks this table held are merged into
  // it, and must not be unlocked one by one later (that would punch holes into it).
  d->locked_records.clear();
  d->all_locked = true;
  return 0;
}

int CloseTable(DATA4St* d) {
  int rc = FlushRecord(d);
  if (Status s = d->dbf->FlushAppends(); !s.ok() && rc == 0) rc = SetError(d->code, ErrorFor(s, e4write), s);
  if (rc < 0) rc = e4close;
  DropLocks(d, false);
  if (CodeImpl* impl = Impl(d->code)) {
    auto& t = impl->tables;
    t.erase(std::remove(t.begin(), t.end(), d), t.end());
    auto& q = impl->queued;
    q.erase(std::remove_if(q.begin(), q.end(), [d](const QueuedLock& l) { return l.data == d; }), q.end());
  }
  delete d;
  return rc;
}

// Moves the table into a fresh DATA4St for `code`.
static DATA4St* Adopt(CODE4* code, std::unique_ptr<DbfFile> dbf, std::unique_ptr<MemoFile> memo,
                      const std::string& name) {
  auto d = std::make_unique<DATA4St>();
  d->code = code;
  d->name = name;
  d->alias = std::string(AliasOf(name));
  const auto& layout = dbf->fields();
  for (std::size_t i = 0; i < layout.size(); ++i) {
    auto f = std::make_unique<FIELD4St>();
    f->data = d.get();
    f->index = static_cast<int>(i);
    f->layout = layout[i];
    if (IsMemoField(*f)) d->memo_fields.push_back(f.get());
    d->fields.push_back(std::move(f));
  }
  d->record.assign(dbf->record_len() + 1, ' ');
  d->record.back() = '\0';
  d->blank = std::vector<char>(d->record.begin(), d->record.end() - 1);
  for (const auto& f : d->fields)
    if (IsBinaryField(f->layout)) std::memset(d->blank.data() + f->layout.offset, 0, f->layout.len);
  std::memcpy(d->record.data(), d->blank.data(), d->blank.size());
  d->opened_alone = dbf->exclusive();
  d->dbf = std::move(dbf);
  d->memo = std::move(memo);
  Impl(code)->tables.push_back(d.get());
  return d.release();
}

static DATA4St* OpenTable(CODE4* code, const std::string& name, bool quiet_when_missing) {
  if (!Impl(code)) return nullptr;
  DbfFile::OpenOptions opt;
  opt.read_only = code->readOnly != 0;
  opt.exclusive = code->accessMode != OPEN4DENY_NONE;
  opt.attempts = code->lockAttempts;
  opt.delay_ms = code->lockDelay;
  std::unique_ptr<DbfFile> dbf;
  Status s = DbfFile::Open(name, opt, &dbf);
  // A memo compression (or a replace of table and memo) that a crash interrupted is finished before
  // the table is used. It is looked for once the table is open (its directory is known then: one
  // stat), and only for a table with memo fields: one without never reads the memo file, so the new
  // memo standing in place beside it does it no harm (ReplaceTablePair throws the waiting table
  // away). When it waits, or when the open failed, the open is made again after the recovery.
  if (!s.ok() || (dbf->memo_kind() != MemoKind::kNone && InterruptedCompressWaits(*dbf, name))) {
    dbf.reset();
    if (RecoverInterruptedCompress(name) || s.ok()) s = DbfFile::Open(name, opt, &dbf);
  }
  if (!s.ok()) {
    if (s.IsNotFound() && quiet_when_missing && !code->errOpen) return nullptr;
    SetError(code, s.IsNotFound() ? e4open : ErrorFor(s, e4open), s);
    return nullptr;
  }
  std::unique_ptr<MemoFile> memo;
  if (dbf->memo_kind() != MemoKind::kNone) {
    const std::string memo_name = MemoNameFor(name, dbf->memo_kind());
    s = MemoFile::Open(memo_name, dbf->memo_kind(), opt.read_only, opt.exclusive, &memo);
    if (!s.ok()) {
      SetError(code, s.IsCorruption() || s.IsNotFound() ? e4memo : ErrorFor(s, e4open), s);
      return nullptr;
    }
  }
  DATA4St* d = Adopt(code, std::move(dbf), std::move(memo), name);
  if (OpenProductionIndex(d) < 0) {
    CloseTable(d);
    return nullptr;
  }
  return d;
}

// ---- pack -------------------------------------------------------------------------------------

// Runs `work` with the table (and its memo file) held alone; restores shared mode afterwards.
template <typename Work>
int WithTableAlone(DATA4St* d, Work work) {
  const bool was_exclusive = d->dbf->exclusive();
  Status s = d->dbf->BecomeExclusive();
  if (!s.ok()) return SetError(d->code, s.IsBusy() ? e4exclusive : e4lock, s);
  if (d->memo && !was_exclusive) {
    s = d->memo->BecomeExclusive();
    if (!s.ok()) {
      d->dbf->ReturnToShared();
      return SetError(d->code, s.IsBusy() ? e4exclusive : e4lock, s);
    }
  }
  // Locks live on the descriptor that a rewrite replaces: note them and take them again after.
  std::vector<std::uint32_t> recs = d->locked_records;
  const bool app = d->append_locked, all = d->all_locked;
  d->locked_records.clear();
  d->append_locked = d->all_locked = false;
  int rc = work();
  for (std::uint32_t r : recs)
    if (d->dbf->LockRecord(r, 1, 0).ok()) d->locked_records.push_back(r);
  if (app) d->append_locked = d->dbf->LockAppend(1, 0).ok();
  if (all) d->all_locked = d->dbf->LockAll(1, 0).ok();
  if (!was_exclusive) {
    d->dbf->ReturnToShared();
    if (d->memo) d->memo->ReturnToShared();
  }
  return rc;
}

}  // namespace kvd::engine

using namespace kvd::engine;
using kvd::Status;

extern "C" {

DATA4St* d4open(CODE4* code, const char* name) {
  if (!Impl(code) || !name || !*name) {
    if (code) SetError(code, e4parm, "d4open without a state or a name");
    return nullptr;
  }
  return OpenTable(code, WithExtension(name, ".DBF"), /*quiet_when_missing=*/true);
}

DATA4St* d4create(CODE4* code, const char* name, const FIELD4INFO* fields, const TAG4INFO* tags) {
  if (!Impl(code) || !name || !*name || !fields) {
    if (code) SetError(code, e4parm, "d4create without a state, a name or fields");
    return nullptr;
  }
  if (code->readOnly) return SetError(code, e4readOnly, "state is read only"), nullptr;
  const std::string path = WithExtension(name, ".DBF");
  if (code->safety && kvd::platform::FileExists(path))
    return SetError(code, e4create, ("table exists and safety is on: " + path).c_str()), nullptr;
  std::vector<FieldLayout> layout;
  for (const FIELD4INFO* f = fields; f->name; ++f) {
    if (f->nulls) return SetError(code, e4fieldType, "nullable fields are not supported"), nullptr;
    FieldLayout l;
    l.name = f->name;
    l.type = static_cast<char>(f->type);
    l.len = f->len;
    l.dec = static_cast<std::uint8_t>(f->dec > 255 ? 255 : f->dec);
    layout.push_back(std::move(l));
  }
  Status s = DbfFile::Create(path, layout);
  if (!s.ok()) {
    int err = s.kind() == Status::Kind::kInvalidArgument ? e4fieldName
              : s.kind() == Status::Kind::kUnsupported    ? e4fieldType
                                                          : e4create;
    return SetError(code, err, s), nullptr;
  }
  if (std::any_of(layout.begin(), layout.end(), [](const FieldLayout& l) { return l.type == 'M' || l.type == 'm'; })) {
    s = MemoFile::Create(MemoNameFor(path, MemoKind::kFpt));
    if (!s.ok()) {
      kvd::platform::RemoveFile(path);
      return SetError(code, e4create, s), nullptr;
    }
  }
  DATA4St* d = OpenTable(code, path, /*quiet_when_missing=*/false);
  if (d && tags && tags[0].name && !i4create(d, nullptr, tags)) {
    const int err = code->errorCode;
    d4remove(d);
    code->errorCode = err;
    return nullptr;
  }
  return d;
}

int d4close(DATA4St* d) { return d ? CloseTable(d) : 0; }

int d4remove(DATA4St* d) {
  if (!d) return 0;
  CODE4* code = d->code;
  const std::string dbf_path = d->name;
  const MemoKind memo_kind = d->dbf->memo_kind();
  std::vector<std::string> index_paths;
  for (auto& ix : d->indexes) index_paths.push_back(ix->name);
  int rc = CloseTable(d);
  if (rc < 0) return rc;
  Status s = kvd::platform::RemoveFile(dbf_path);
  if (!s.ok()) return SetError(code, e4remove, s);
  for (const std::string& p : index_paths) {
    s = kvd::platform::RemoveFile(p);
    if (!s.ok() && !s.IsNotFound()) return SetError(code, e4remove, s);
  }
  if (memo_kind != MemoKind::kNone) {
    s = kvd::platform::RemoveFile(MemoNameFor(dbf_path, memo_kind));
    if (!s.ok() && !s.IsNotFound()) return SetError(code, e4remove, s);
  }
  return 0;
}

const char* d4fileName(DATA4St* d) { return d ? d->name.c_str() : ""; }
const char* d4alias(DATA4St* d) { return d ? d->alias.c_str() : ""; }
CODE4* d4code(DATA4St* d) { return d ? d->code : nullptr; }
int d4numFields(DATA4St* d) { return d ? static_cast<int>(d->fields.size()) : 0; }
unsigned long d4recWidth(DATA4St* d) { return d ? d->dbf->record_len() : 0; }
unsigned long d4recWidthLow(DATA4St* d) { return d4recWidth(d); }
char* d4record(DATA4St* d) { return d ? d->record.data() : nullptr; }
char* d4recordLow(DATA4St* d) { return d4record(d); }

int d4versionByte(DATA4St* d) { return d ? d->dbf->version() : 0; }
unsigned d4headerLen(DATA4St* d) { return d ? d->dbf->header_len() : 0; }
const char* d4memoFileName(DATA4St* d) { return d && d->memo ? d->memo->path().c_str() : ""; }
unsigned d4memoBlockSize(DATA4St* d) { return d && d->memo ? d->memo->block_size() : 0; }

long d4recCount(DATA4St* d) {
  if (!d) return e4parm;
  std::uint32_t n = 0;
  Status s = d->dbf->RecordCount(&n);
  if (!s.ok()) return SetError(d->code, ErrorFor(s, e4read), s);
  return static_cast<long>(n);
}
long d4recCountDo2(DATA4St* d, int) { return d4recCount(d); }

static int GoEof(DATA4St* d, std::uint32_t count) {
  BlankBuffer(d);
  d->rec_no = count + 1;
  d->eof = true;
  d->state = BufferState::kClean;
  return r4eof;
}

// The common start of every move: write a pending record, give up a record being appended.
static int BeforeMove(DATA4St* d) {
  if (d->state == BufferState::kAppending) {
    d->state = BufferState::kClean;
    return 0;
  }
  return FlushRecord(d);
}

// Goes to the first (`last` false) or the last record in record order.
static int GoEnd(DATA4St* d, bool last) {
  if (!d) return e4parm;
  if (int rc = BeforeMove(d)) return rc;
  if (d->selected) return TagTop(d, last);
  long count = d4recCount(d);
  if (count < 0) return static_cast<int>(count);
  d->bof = d->eof = false;
  if (count == 0) {
    d->bof = true;
    return GoEof(d, 0);
  }
  return LoadRecord(d, last ? static_cast<std::uint32_t>(count) : 1);
}

int d4top(DATA4St* d) { return GoEnd(d, false); }
int d4bottom(DATA4St* d) { return GoEnd(d, true); }

int d4skip(DATA4St* d, long n) {
  if (!d) return e4parm;
  if (int rc = BeforeMove(d)) return rc;
  if (d->selected) return TagSkip(d, n);
  long count = d4recCount(d);
  if (count < 0) return static_cast<int>(count);
  if (d->eof && n >= 0) return GoEof(d, static_cast<std::uint32_t>(count));
  long long target = static_cast<long long>(d->rec_no) + n;
  if (d->rec_no > static_cast<std::uint32_t>(count)) target = static_cast<long long>(count) + 1 + n;
  d->bof = d->eof = false;
  if (target > count) return GoEof(d, static_cast<std::uint32_t>(count));
  if (target < 1) {
    d->bof = true;
    if (count == 0) return GoEof(d, 0);
    int rc = LoadRecord(d, 1);
    return rc ? rc : r4bof;
  }
  return LoadRecord(d, static_cast<std::uint32_t>(target));
}

int d4goLow(DATA4St* d, long rec, int /*goForWrite*/) {
  if (!d) return e4parm;
  if (int rc = BeforeMove(d)) return rc;
  long count = d4recCount(d);
  if (count < 0) return static_cast<int>(count);
  d->bof = d->eof = false;
  if (rec < 1 || rec > count) {
    BlankBuffer(d);
    d->rec_no = rec < 1 ? 0 : static_cast<std::uint32_t>(std::min<long>(rec, kMaxRecords + 1l));
    d->state = BufferState::kClean;
    return r4entry;
  }
  return LoadRecord(d, static_cast<std::uint32_t>(rec));
}
int d4go(DATA4St* d, long rec) { return d4goLow(d, rec, 1); }

int d4goEof(DATA4St* d) {
  if (!d) return e4parm;
  if (int rc = BeforeMove(d)) return rc;
  long count = d4recCount(d);
  if (count < 0) return static_cast<int>(count);
  return GoEof(d, static_cast<std::uint32_t>(count));
}

int d4eof(DATA4St* d) { return d ? d->eof : 1; }
int d4bof(DATA4St* d) { return d ? d->bof : 1; }
long d4recNo(DATA4St* d) { return d ? static_cast<long>(d->rec_no) : -1; }
long d4recNoLow(DATA4St* d) { return d4recNo(d); }

int d4appendStart(DATA4St* d, int useMemoEntries) {
  if (!d) return e4parm;
  if (int rc = BeforeMove(d)) return rc;
  // The buffer keeps its contents. Memo fields never share blocks between two records: a kept memo
  // is written anew for the new record, or the new record starts without it.
  for (FIELD4St* f : d->memo_fields) {
    if (useMemoEntries && d->memo) {
      if (!f->memo_loaded) {
        Status s = d->memo->Read(ReadMemoPointer(d->record.data() + f->layout.offset, f->layout.len), &f->memo);
        if (!s.ok()) return SetError(d->code, e4memo, s);
      }
      f->memo_loaded = true;
      f->memo_changed = !f->memo.empty();
    } else {
      f->memo.clear();
      f->memo_loaded = true;
      f->memo_changed = false;
    }
    WriteMemoPointer(d->record.data() + f->layout.offset, f->layout.len, 0);
  }
  d->record[0] = static_cast<char>(dbf::kLive);
  d->state = BufferState::kAppending;
  return 0;
}

int d4append(DATA4St* d) {
  if (!d) return e4parm;
  if (d->state != BufferState::kAppending) return SetError(d->code, e4append, "d4append without d4appendStart");
  if (d->dbf->read_only()) return SetError(d->code, e4readOnly, "table opened read only: " + d->name);
  // Take the append lock for the count, then the new record's lock, which also tells whether another
  // opener holds the whole table. Both are skipped when this opener already holds the table.
  const bool held = d->dbf->exclusive() || d->all_locked;
  const bool temp_append_lock = !held && !d->append_locked;
  if (temp_append_lock) {
    Status s = d->dbf->LockAppend(d->code->lockAttempts, d->code->lockDelay);
    // A refused append is never silent: errorCode tells it even to a caller that ignores the result.
    if (!s.ok()) return SetError(d->code, e4lock, s), s.IsBusy() ? r4locked : e4lock;
  }
  auto release = [&] {
    if (temp_append_lock) d->dbf->UnlockAppend();
  };
  std::uint32_t count = 0;
  Status s = d->dbf->RecordCount(&count);
  if (!s.ok()) return release(), SetError(d->code, ErrorFor(s, e4append), s);
  const std::uint32_t new_rec = count + 1;
  if (!held) {
    if (d->code->autoUnlock) {
      for (std::uint32_t r : d->locked_records) d->dbf->UnlockRecord(r);
      d->locked_records.clear();
    }
    s = d->dbf->LockRecord(new_rec, d->code->lockAttempts, d->code->lockDelay);
    if (!s.ok()) return release(), SetError(d->code, e4lock, s), s.IsBusy() ? r4locked : e4lock;
    d->locked_records.push_back(new_rec);
  }
  IndexPlan plan;
  if (!d->indexes.empty())
    if (int rc = IndexPrepare(d, new_rec, nullptr, d->record.data(), &plan)) return release(), rc;
  if (int rc = StoreMemos(d, true)) return IndexAbort(&plan), release(), rc;
  std::uint32_t rec = 0;
  s = d->dbf->AppendRecord(d->record.data(), &rec, /*defer=*/held);
  release();
  if (!s.ok()) return IndexAbort(&plan), SetError(d->code, ErrorFor(s, e4append), s);
  if (!d->indexes.empty())
    if (int rc = IndexCommit(d, rec, &plan)) return rc;
  d->rec_no = rec;
  d->eof = d->bof = false;
  d->state = BufferState::kClean;
  return 0;
}

int d4appendBlank(DATA4St* d) {
  if (!d) return e4parm;
  if (int rc = d4appendStart(d, 0)) return rc;
  d4blank(d);
  return d4append(d);
}

void d4blank(DATA4St* d) {
  if (!d) return;
  const char del = d->record[0];
  std::memcpy(d->record.data(), d->blank.data(), d->blank.size());
  d->record[0] = del;
  for (FIELD4St* f : d->memo_fields) {
    f->memo.clear();
    f->memo_loaded = true;
    f->memo_changed = d->state != BufferState::kAppending;
  }
  MarkChanged(d);
}

void d4delete(DATA4St* d) {
  if (!d || d->eof || d->rec_no == 0) return;
  if (d->record[0] == static_cast<char>(dbf::kDeleted)) return;
  d->record[0] = static_cast<char>(dbf::kDeleted);
  MarkChanged(d);
}

void d4recall(DATA4St* d) {
  if (!d || d->eof || d->rec_no == 0) return;
  if (d->record[0] == static_cast<char>(dbf::kLive)) return;
  d->record[0] = static_cast<char>(dbf::kLive);
  MarkChanged(d);
}

int d4deleted(DATA4St* d) { return d && d->record[0] == static_cast<char>(dbf::kDeleted); }

int d4changed(DATA4St* d, int flag) {
  if (!d) return e4parm;
  const int was = d->state == BufferState::kChanged;
  if (flag > 0) MarkChanged(d);
  if (flag == 0 && d->state == BufferState::kChanged) d->state = BufferState::kClean;
  return was;
}

int d4flush(DATA4St* d) {
  if (!d) return e4parm;
  if (int rc = FlushRecord(d)) return rc;
  Status s = d->dbf->FlushAppends();
  return s.ok() ? 0 : SetError(d->code, ErrorFor(s, e4write), s);
}

int d4writeLow(DATA4St* d, long rec, int unlock, int doLock) {
  if (!d) return e4parm;
  if (rec <= 0) rec = static_cast<long>(d->rec_no);
  if (doLock)
    if (int rc = LockRecordFor(d, static_cast<std::uint32_t>(rec), d->code->lockAttempts); rc != 0)
      return rc > 0 ? SetError(d->code, e4lock, "record held by another opener") : rc;
  const std::uint32_t saved = d->rec_no;
  d->rec_no = static_cast<std::uint32_t>(rec);
  d->state = BufferState::kChanged;
  int rc = FlushRecord(d);
  if (rc != 0) d->rec_no = saved;
  if (unlock) DropLocks(d, false);
  return rc;
}
int d4write(DATA4St* d, long rec) { return d4writeLow(d, rec, 0, 0); }

int d4refresh(DATA4St* d) {
  if (!d) return e4parm;
  if (d->state == BufferState::kAppending || d->eof || d->rec_no == 0) return 0;
  long count = d4recCount(d);
  if (count < 0) return static_cast<int>(count);
  if (d->rec_no > static_cast<std::uint32_t>(count)) return GoEof(d, static_cast<std::uint32_t>(count)), 0;
  return LoadRecord(d, d->rec_no);
}
int d4refreshRecord(DATA4St* d) { return d4refresh(d); }

int d4freeBlocks(DATA4St*) { return 0; }

int d4pack(DATA4St* d) {
  if (!d) return e4parm;
  if (int rc = BeforeMove(d)) return rc;
  if (d->dbf->read_only()) return SetError(d->code, e4readOnly, "table opened read only: " + d->name);
  int rc = WithTableAlone(d, [&]() -> int {
    Status s = d->dbf->Rewrite([](const char* rec) { return rec[0] != static_cast<char>(dbf::kDeleted); });
    if (!s.ok()) return SetError(d->code, ErrorFor(s, e4write), s);
    return ReindexAll(d);
  });
  BlankBuffer(d);
  d->rec_no = 0;
  d->eof = d->bof = false;
  d->state = BufferState::kClean;
  return rc;
}

int d4accessAlone(DATA4St* d, int alone) {
  if (!d) return e4parm;
  if (alone) {
    if (d->dbf->exclusive()) return 0;
    Status s = d->dbf->BecomeExclusive();
    if (!s.ok()) return SetError(d->code, s.IsBusy() ? e4exclusive : e4lock, s);
    if (d->memo) {
      s = d->memo->BecomeExclusive();
      if (!s.ok()) {
        d->dbf->ReturnToShared();
        return SetError(d->code, s.IsBusy() ? e4exclusive : e4lock, s);
      }
    }
    return 0;
  }
  if (d->opened_alone || !d->dbf->exclusive()) return 0;
  // Alone, a changed record needed no lock and appends waited in memory: both go to the file while
  // that still holds, before anyone else can look.
  int rc = d->state == BufferState::kChanged ? FlushRecord(d) : 0;
  if (Status s = d->dbf->FlushAppends(); !s.ok() && rc == 0) rc = SetError(d->code, ErrorFor(s, e4write), s);
  if (rc) return rc;
  Status s = d->dbf->ReturnToShared();
  if (s.ok() && d->memo) s = d->memo->ReturnToShared();
  return s.ok() ? 0 : SetError(d->code, e4lock, s);
}

int d4memoCompress(DATA4St* d) {
  if (!d) return e4parm;
  if (int rc = BeforeMove(d)) return rc;
  if (!d->memo) return 0;
  if (d->dbf->read_only() || d->memo->kind() != MemoKind::kFpt)
    return SetError(d->code, e4readOnly, "memo file cannot be written: " + d->name);
  int rc = WithTableAlone(d, [&]() -> int {
    Status s = CompressMemoFile(*d->dbf, *d->memo, d->name);
    return s.ok() ? 0 : SetError(d->code, ErrorFor(s, e4write), s);
  });
  BlankBuffer(d);
  d->rec_no = 0;
  d->state = BufferState::kClean;
  return rc;
}

// ---- fields by name ---------------------------------------------------------------------------

FIELD4St* d4field(DATA4St* d, const char* name) {
  if (!d || !name) return nullptr;
  std::string want(name);
  while (!want.empty() && want.back() == ' ') want.pop_back();
  for (auto& f : d->fields) {
    const std::string& have = f->layout.name;
    if (kvd::platform::EqualNoCaseAscii(have, want))
      return f.get();
  }
  return nullptr;
}

DATA4St::DATA4St() {
  static std::atomic<std::uint64_t> next{1};
  serial = next.fetch_add(1, std::memory_order_relaxed);
}

unsigned long long d4serial(DATA4St* d) { return d ? d->serial : 0; }

FIELD4St* d4fieldJ(DATA4St* d, short j) {
  if (!d || j < 1 || j > static_cast<int>(d->fields.size())) return nullptr;
  return d->fields[static_cast<std::size_t>(j - 1)].get();
}

int d4fieldNumber(DATA4St* d, const char* name) {
  FIELD4St* f = d4field(d, name);
  return f ? f->index + 1 : -1;
}

}  // extern "C"
