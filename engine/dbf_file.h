// One open .DBF file: its header and field layout, records in and out, its locks.
//
// Reads go through a shared mapping of the file, so a record another process wrote is what the
// next read returns, without a system call per record (an opener that reads only a few times uses
// pread instead, unless the process keeps a mapping of the file already: see Fetch and Open). Writes go through pwrite into the same page cache. The record count is
// read from the header on every call that asks for it. Nothing about the file's contents is cached
// except the field layout, which no opener may change while the file is open (changing it needs
// the file alone), and a lower bound of the count (known_count_), since the count only grows while
// the file is open.
//
// Locks (open-file-description locks on the .DBF, the layout FoxPro uses for a table with a
// compound index, so that other xBase engines and ours exclude each other):
//   record n       byte 0x7FFFFFFE - n, length 1
//   append/header  byte 0x7FFFFFFE, length 1: held while the record count changes
//   whole table    bytes 0x77FFFFFF .. 0x7FFFFFFD (length 0x07FFFFFF): covers every record lock,
//                  and so limits a table to 0x07FFFFFF records
//   open mode      flock(): shared for an ordinary open, exclusive for an open that must be alone,
//                  and probed exclusively by whoever wants to remove or replace the file.
// A DbfFile does not know who asked for a lock; DATA4St keeps that bookkeeping.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/file.h"
#include "platform/status.h"

namespace kvd::engine {

struct FieldLayout {
  std::string name;        // upper case as stored, at most 10 characters
  char type = 'C';         // type letter
  std::uint16_t len = 0;   // width in bytes (a character field may exceed 255 by the high byte)
  std::uint8_t dec = 0;    // decimals
  std::uint8_t flags = 0;  // Visual FoxPro field flags
  std::uint32_t offset = 0;  // inside the record; the deletion byte is at 0
};

enum class MemoKind { kNone, kFpt, kDbt };

inline constexpr std::uint64_t kLockAppendOffset = 0x7FFFFFFE;
inline constexpr std::uint64_t kLockAllOffset = 0x77FFFFFF;
inline constexpr std::uint64_t kLockAllLength = 0x07FFFFFF;
inline constexpr std::uint32_t kMaxRecords = 0x07FFFFFF;
inline std::uint64_t RecordLockOffset(std::uint32_t rec) { return kLockAppendOffset - rec; }

class DbfFile {
 public:
  struct OpenOptions {
    bool read_only = false;
    bool exclusive = false;  // flock exclusive: fail with kBusy while another opener exists
    // Tries for the open-mode lock while another opener holds the table alone (a pack, a rebuild:
    // moments, not hours), as for record locks: negative waits, 0 counts as 1.
    int attempts = 1;
    int delay_ms = 0;
  };

  // Opens an existing table and checks its header and field descriptors against the file.
  static Status Open(std::string_view path, const OpenOptions& opt, std::unique_ptr<DbfFile>* out);

  // Writes a new empty table (0xF5 when a field is of type M, else 0x03) at `path`. The file is
  // built under a temporary name and renamed into place; an existing file is replaced unless
  // another opener holds it (kBusy, old file untouched). Field names are upper-cased; the layout
  // is checked (names, types, widths, record length).
  static Status Create(std::string_view path, std::span<const FieldLayout> fields);

  // Checks a field list as Create would, and fills in offsets. Exposed for callers that build
  // a table by other means (pack).
  static Status Layout(std::vector<FieldLayout>* fields, std::uint32_t* record_len);

  ~DbfFile();

  const std::string& path() const { return file_->path(); }
  const std::vector<FieldLayout>& fields() const { return fields_; }
  std::uint32_t header_len() const { return header_len_; }
  std::uint32_t record_len() const { return record_len_; }
  unsigned char version() const { return version_; }
  MemoKind memo_kind() const { return memo_kind_; }
  bool read_only() const { return read_only_; }
  bool exclusive() const { return exclusive_; }
  platform::File& file() { return *file_; }

  // The record count as the header says now.
  Status RecordCount(std::uint32_t* count);
  // Copies record `rec` (1-based) into `out` (record_len bytes). kNotFound past the count.
  Status ReadRecord(std::uint32_t rec, char* out);
  // Overwrites record `rec`, which must exist.
  Status WriteRecord(std::uint32_t rec, const char* in);
  // Writes `in` as record count+1 and raises the count. The caller holds the append lock.
  // With `defer` (the caller holds the whole table, so no one else can append or change the count)
  // the record may wait in memory with others and the count is written once for all of them by
  // FlushAppends; reads and writes of this object see the waiting records as if written.
  Status AppendRecord(const char* in, std::uint32_t* rec, bool defer = false);
  // Writes waiting appended records and the count. Due before the whole-table lock goes.
  Status FlushAppends();
  // Byte 28, bit 0: the table has a production index (its own name with .CDX).
  bool HasProductionIndex() const;
  Status SetProductionIndex(bool on);
  // Writes today's date into the header (done once per opener on its first change).
  Status TouchDate();

  // Locks; `attempts` tries (negative: wait), `delay_ms` apart. kBusy when still held elsewhere.
  Status LockRecord(std::uint32_t rec, int attempts, int delay_ms);
  Status UnlockRecord(std::uint32_t rec);
  Status LockAppend(int attempts, int delay_ms);
  Status UnlockAppend();
  Status LockAll(int attempts, int delay_ms);
  Status UnlockAll();

  // Tries to become the only opener (flock exclusive, no wait); kBusy leaves the shared lock.
  Status BecomeExclusive();
  Status ReturnToShared();

  // Continues with `f`, the file that took this one's place: already under the table's name and
  // locked exclusively since before it got that name. (Opening the name again after the rename
  // would leave a moment in which another opener could lock the new file first and read it before
  // its indexes are rebuilt.)
  Status TakeReplacement(std::unique_ptr<platform::File> f);
  const std::string& open_path() const { return open_path_; }

  // Rewrites the table keeping the records for which keep(record) is true, through a temporary
  // file renamed into place. The caller has made itself the only opener (BecomeExclusive).
  // Afterwards this object refers to the new file, still exclusive.
  template <typename Keep>
  Status Rewrite(Keep keep);

 private:
  DbfFile() = default;
  // `size`: the file's size when it was opened, or now.
  Status ParseHeader(std::uint64_t size);
  Status EnsureMapped(std::uint64_t end);
  Status RewriteWith(const std::vector<std::uint32_t>& keep_recs);
  // kNotFound unless 1 <= rec <= the count. A record at or below a count this opener has seen needs
  // no look at the count: see known_count_.
  Status CheckRecordNumber(std::uint32_t rec);
  static Status LockWithRetry(platform::File& f, std::uint64_t off, std::uint64_t len, int attempts,
                              int delay_ms);

  std::unique_ptr<platform::File> file_;
  platform::Mapping map_;
  std::string open_path_;          // the path as the caller gave it
  std::vector<FieldLayout> fields_;
  std::uint32_t header_len_ = 0;   // bytes before record 1
  std::uint32_t record_len_ = 0;   // bytes per record, deletion byte included
  unsigned char version_ = 0;
  MemoKind memo_kind_ = MemoKind::kNone;
  bool read_only_ = false;
  bool exclusive_ = false;
  bool date_touched_ = false;
  // Reads a range of the file: from the mapping once there is one, else with pread. A few reads
  // never map the file (mapping costs more than they do); once this process has read it
  // kReadsBeforeMapping times without a mapping, through any opener, it is mapped, and the mapping
  // stays in the process's pool for the next opens.
  Status Fetch(std::uint64_t off, void* out, std::size_t n);
  static constexpr int kReadsBeforeMapping = 8;
  // Bytes the open reads at once for the header: the whole header of a table with up to 126 fields.
  static constexpr std::size_t kHeaderReadSize = 4096;
  // The largest record count this opener has read from the header or written there. While a table
  // is open its count only grows: records go only by a pack, which has the table alone and writes
  // a new file (Reopen reads the count afresh). So a record at or below it exists without a look.
  std::uint32_t known_count_ = 0;
  unsigned char flags_ = 0;             // header byte 28 as last read or written
  std::vector<char> append_buf_;        // record + end mark, reused by every append
  std::vector<char> pending_;           // appended records not yet written (deferred appends)
  std::uint32_t pending_base_ = 0;      // the count in the file when they began
  std::uint32_t pending_n_ = 0;         // how many wait
  unsigned char today_[3] = {0, 0, 0};  // header date bytes, refreshed once a minute
  std::uint64_t today_at_ = 0;          // when today_ was taken (monotonic ms), 0 = never
  const unsigned char* Today();
};

template <typename Keep>
Status DbfFile::Rewrite(Keep keep) {
  std::uint32_t count = 0;
  KVD_RETURN_IF_ERROR(RecordCount(&count));
  std::vector<std::uint32_t> recs;
  std::vector<char> buf(record_len_);
  for (std::uint32_t r = 1; r <= count; ++r) {
    KVD_RETURN_IF_ERROR(ReadRecord(r, buf.data()));
    if (keep(static_cast<const char*>(buf.data()))) recs.push_back(r);
  }
  return RewriteWith(recs);
}

}  // namespace kvd::engine
