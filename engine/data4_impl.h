// What stands behind the C handles DATA4St, FIELD4St and the Code4's impl pointer.
//
// The record buffer of a DATA4St is in one of three states:
//
//   CLEAN      the buffer holds record rec_no as last read (or blanks at eof)
//   CHANGED    the buffer was changed (f4assign..., d4delete, d4recall, d4changed(1)) and will be
//              written to record rec_no before the position moves, on d4flush, d4unlock, d4close
//   APPENDING  d4appendStart began a new record; d4append writes it at the end
//
//   CLEAN     -> CHANGED    any field assignment, delete, recall        [MarkChanged]
//   CHANGED   -> CLEAN      written                                     [FlushRecord]
//   CHANGED   -> CLEAN      d4changed(0) (the change is kept back), d4refresh (dropped)
//   any       -> APPENDING  d4appendStart                               [d4appendStart]
//   APPENDING -> CLEAN      d4append wrote it: rec_no is the new record [d4append]
//   APPENDING -> CLEAN      a move gives the new record up
//
// A move (top, bottom, skip, go) first writes a CHANGED buffer. With lockEnforce set a write needs
// the record's lock, the whole-table lock, or an exclusive open; without it the write is refused
// with e4lock, the buffer stays CHANGED, and the move does not happen.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/cdx_file.h"
#include "engine/d4all.h"
#include "engine/dbf_file.h"
#include "engine/expr.h"
#include "engine/memo_file.h"
#include "platform/status.h"

struct FIELD4St {
  DATA4St* data = nullptr;        // the table that owns this field
  int index = 0;                  // 0-based position in the table
  kvd::engine::FieldLayout layout;
  // Memo fields: the memo of the current record once read, and whether it was changed.
  bool memo_loaded = false;
  bool memo_changed = false;
  std::string memo;               // exact bytes; memo.c_str() gives the terminated form
  std::string text;               // f4str's terminated copy
};

enum class BufferState { kClean, kChanged, kAppending };

// A tag of an open index, with the place of the table's walk in it.
struct TAG4St {
  INDEX4St* index = nullptr;      // the index file it belongs to
  std::size_t pos = 0;            // its place among the file's tags (creation order)
  std::string name;               // upper case
  std::unique_ptr<kvd::engine::Expr> expr;
  std::unique_ptr<kvd::engine::Expr> filter;  // null: every record
  int unique = 0;                 // 0, e4unique (a duplicate is refused) or r4uniqueContinue
  bool descending = false;
  // The walk: a copy of the current leaf, taken under the index lock when the counter stood at
  // `counter`; usable while the counter stands there and the table is on `pos.entry()`.
  kvd::engine::CdxPosition walk;
  std::uint32_t counter = 0;
  bool walk_valid = false;
  std::string key;                // scratch for keys
};

struct INDEX4St {
  DATA4St* data = nullptr;
  std::unique_ptr<kvd::engine::CdxFile> file;
  std::vector<std::unique_ptr<TAG4St>> tags;  // creation order
  std::string name;               // as opened, with extension
};

struct QueuedLock {
  DATA4St* data;
  enum class Kind { kRecord, kAppend, kAll } kind;
  std::uint32_t rec;
};

struct DATA4St {
  DATA4St();
  std::uint64_t serial;           // unique in the process among every handle ever opened (d4serial)
  CODE4* code = nullptr;
  std::unique_ptr<kvd::engine::DbfFile> dbf;
  std::unique_ptr<kvd::engine::MemoFile> memo;
  std::string name;               // as opened, with extension, in the caller's form
  std::string alias;              // name without directory and extension
  bool opened_alone = false;      // opened with accessMode nonzero: d4accessAlone(0) keeps it alone
  std::vector<std::unique_ptr<FIELD4St>> fields;
  std::vector<FIELD4St*> memo_fields; // the fields among them that hold memo block numbers
  std::vector<char> record;       // record_len bytes + a terminating NUL
  std::vector<char> blank;        // a blank record
  std::uint32_t rec_no = 0;       // current record; count + 1 at eof; 0 before the first move
  bool eof = false;
  bool bof = false;
  BufferState state = BufferState::kClean;
  std::vector<std::unique_ptr<INDEX4St>> indexes;  // open index files
  TAG4St* selected = nullptr;     // the order of seek and skip; null: record order
  // Locks this table holds.
  std::vector<std::uint32_t> locked_records;
  bool append_locked = false;
  bool all_locked = false;
};

namespace kvd::engine {

// The engine state behind Code4St::impl.
struct CodeImpl {
  std::vector<DATA4St*> tables;   // open tables, owned
  std::vector<QueuedLock> queued; // d4lockAdd... waiting for code4lock
  std::string last_detail;        // what the latest error was about
};

CodeImpl* Impl(CODE4* code);
// Records an error: sets errorCode and keeps the status text. Returns `err`.
int SetError(CODE4* code, int err, const Status& why);
int SetError(CODE4* code, int err, const char* why);
inline int SetError(CODE4* code, int err, const std::string& why) { return SetError(code, err, why.c_str()); }
// Maps a status to the engine's number for a failure of kind `context` (e4write, e4open, ...).
int ErrorFor(const Status& s, int context);

// Record buffer helpers shared by the d4 and f4 calls.
void MarkChanged(DATA4St* d);
int FlushRecord(DATA4St* d);          // writes a CHANGED buffer; 0 or an error
void ResetMemos(DATA4St* d);          // the buffer now holds another record
int LoadRecord(DATA4St* d, std::uint32_t rec);  // reads rec into the buffer, CLEAN
bool HoldsRecordLock(const DATA4St* d, std::uint32_t rec);
// Drops every lock the table holds (after writing a pending record when `flush`).
int DropLocks(DATA4St* d, bool flush);
int LockRecordFor(DATA4St* d, std::uint32_t rec, int attempts);
int LockAppendFor(DATA4St* d);
int LockAllFor(DATA4St* d);
int CloseTable(DATA4St* d);           // writes, unlocks, closes, frees; 0 or the first error

// Keeping the tags current. A write of record `rec` (new_rec: appended) calls IndexPrepare before
// the record goes to the file: it works out from the two records which tag entries change; when
// any does, it takes every index's write lock and refuses a duplicate key in a unique tag with
// e4unique, leaving everything as it was. A write that changes no tag locks no index. After the
// record is written IndexCommit changes the tags and lets the locks go; IndexAbort only lets them
// go.
struct IndexPlan {
  struct Change {
    TAG4St* tag;
    bool remove, insert;
    std::string old_key, new_key;
  };
  std::vector<Change> changes;
  std::vector<INDEX4St*> locked;
};
int IndexPrepare(DATA4St* d, std::uint32_t rec, const char* old_record, const char* new_record, IndexPlan* plan);
int IndexCommit(DATA4St* d, std::uint32_t rec, IndexPlan* plan);
void IndexAbort(IndexPlan* plan);
int ReindexAll(DATA4St* d);           // rebuilds every tag of every open index from the records
// Tag-order moves for d4top, d4bottom, d4skip when a tag is selected.
int TagTop(DATA4St* d, bool bottom);
int TagSkip(DATA4St* d, long n);
int OpenProductionIndex(DATA4St* d);  // with autoOpen: the index the table's header names

}  // namespace kvd::engine
