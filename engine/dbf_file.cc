#include "engine/dbf_file.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <random>

#include "engine/codec.h"
#include "engine/dbf_format.h"
#include "engine/temp_name.h"
#include "platform/ascii.h"
#include "platform/env.h"
#include "platform/path.h"

namespace kvd::engine {

namespace {

bool IsKnownVersion(unsigned char v) {
  switch (v) {
    case dbf::kVersionPlain:
    case dbf::kVersionDbtMemo:
    case dbf::kVersionFptMemo:
    case dbf::kVersionVfp:
    case dbf::kVersionVfpAutoinc:
    case dbf::kVersionVfpVarchar:
    case 0x04:  // dBASE IV without memo
    case 0x8B:  // dBASE IV with .DBT memo
      return true;
    default:
      return false;
  }
}

// The width a field of this type must have, or 0 when the descriptor decides.
unsigned FixedWidth(char type, bool vfp) {
  switch (type) {
    case 'D': return 8;
    case 'L': return 1;
    case 'I': return 4;
    case 'T': return 8;
    case 'Y': return 8;
    case 'M': return vfp ? 4 : 10;
    default: return 0;
  }
}

bool IsValidNameChar(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

}  // namespace

DbfFile::~DbfFile() { FlushAppends(); }  // best effort: CloseTable flushes first and reports

Status DbfFile::Open(std::string_view path, const OpenOptions& opt, std::unique_ptr<DbfFile>* out) {
  std::unique_ptr<DbfFile> t(new DbfFile());
  t->read_only_ = opt.read_only;
  t->exclusive_ = opt.exclusive;
  t->open_path_ = std::string(path);
  // The open-mode lock is held from the open on; a table replaced meanwhile (a pack or a rebuild by
  // another opener) is opened again by its name.
  KVD_RETURN_IF_ERROR(platform::File::OpenLocked(
      path, opt.read_only ? platform::OpenMode::kRead : platform::OpenMode::kReadWrite,
      opt.exclusive ? platform::LockKind::kExclusive : platform::LockKind::kShared, opt.attempts,
      static_cast<unsigned>(std::max(opt.delay_ms, 0)), &t->file_));
  // A mapping of the file that this process keeps already serves every read at no cost.
  t->map_.AdoptPooled(*t->file_);
  KVD_RETURN_IF_ERROR(t->ParseHeader(t->file_->size_at_open()));
  *out = std::move(t);
  return Status::Ok();
}

Status DbfFile::ParseHeader(std::uint64_t size) {
  const std::string& p = file_->path();
  // A mapping that this process keeps serves the header where it lies: its readable part is the
  // file as the open found it. Otherwise one read brings the header of most tables whole; a longer
  // one (many fields) is read again at its length. The size is the open's: enough to judge the
  // header, and a count that seems to run past it is judged again against the size now (below).
  std::vector<unsigned char> head;
  const unsigned char* h = nullptr;
  if (map_.size() != 0) {
    h = reinterpret_cast<const unsigned char*>(map_.data());
    size = map_.size();
    if (size < dbf::kHeaderSize) return KVD_CORRUPT(p, 0, "file shorter than a table header");
  } else {
    head.resize(kHeaderReadSize);
    std::size_t got = 0;
    KVD_RETURN_IF_ERROR(file_->ReadAt(0, head.data(), head.size(), &got));
    if (got < head.size()) size = got;  // the read reached the end: this is the whole file
    if (size < dbf::kHeaderSize) return KVD_CORRUPT(p, 0, "file shorter than a table header");
    const std::size_t want = std::max<unsigned>(GetLE16(head.data() + dbf::kOffHeaderLen), dbf::kHeaderSize);
    if (want > got && got == head.size()) {
      head.resize(want);
      KVD_RETURN_IF_ERROR(file_->ReadAt(0, head.data(), head.size(), &got));
      if (got < want) size = got;
    }
    size = std::max<std::uint64_t>(size, got);
    head.resize(std::min(want, got));
    h = head.data();
  }
  flags_ = h[dbf::kOffFlags];
  version_ = h[dbf::kOffVersion];
  if (!IsKnownVersion(version_)) return KVD_CORRUPT(p, 0, "unknown table version byte");
  const bool vfp = dbf::IsVisualFoxPro(version_);
  header_len_ = GetLE16(h + dbf::kOffHeaderLen);
  record_len_ = GetLE16(h + dbf::kOffRecordLen);
  if (header_len_ < dbf::kHeaderSize + dbf::kFieldDescSize + 1)
    return KVD_CORRUPT(p, dbf::kOffHeaderLen, "header length too small for one field");
  if (header_len_ > size) return KVD_CORRUPT(p, dbf::kOffHeaderLen, "header length beyond end of file");
  if (record_len_ < 2) return KVD_CORRUPT(p, dbf::kOffRecordLen, "record length too small");

  // Field descriptors run from offset 32 until the 0x0D terminator, all inside the header.
  fields_.clear();
  std::uint32_t pos = dbf::kHeaderSize;
  std::uint32_t offset = 1;
  bool terminated = false;
  while (pos < header_len_) {
    if (h[pos] == dbf::kFieldTerminator) {
      terminated = true;
      break;
    }
    if (pos + dbf::kFieldDescSize > header_len_)
      return KVD_CORRUPT(p, pos, "field descriptor overruns the header");
    if (fields_.size() == dbf::kMaxFields) return KVD_CORRUPT(p, pos, "more than 255 fields");
    const unsigned char* d = h + pos;
    FieldLayout f;
    std::size_t n = 0;
    while (n < dbf::kFdNameLen && d[n] != 0) ++n;
    f.name.assign(reinterpret_cast<const char*>(d), n);
    for (char& c : f.name) c = platform::AsciiUpper(c);
    while (!f.name.empty() && f.name.back() == ' ') f.name.pop_back();
    if (f.name.empty()) return KVD_CORRUPT(p, pos, "field without a name");
    f.type = platform::AsciiUpper(static_cast<char>(d[dbf::kFdType]));
    f.len = d[dbf::kFdLen];
    f.dec = d[dbf::kFdDec];
    f.flags = vfp ? d[dbf::kFdFlags] : 0;
    if (f.type == 'C' && f.dec != 0 && !vfp) {
      // Some writers keep character widths above 255 with the decimals byte as the high byte.
      f.len = static_cast<std::uint16_t>(f.len | (f.dec << 8));
      f.dec = 0;
    }
    if (f.len == 0) return KVD_CORRUPT(p, pos + dbf::kFdLen, "field of width 0");
    unsigned fixed = FixedWidth(f.type, vfp);
    if (f.type == 'M' && version_ == dbf::kVersionPlain) fixed = 0;  // foreign 0x03 with memo: any width
    if (fixed != 0 && f.len != fixed && !(f.type == 'M' && (f.len == 4 || f.len == 10)))
      return KVD_CORRUPT(p, pos + dbf::kFdLen, "field width does not fit its type");
    if (!std::strchr("CNFLDMIBTYGP0VQW", f.type) || f.type == 0)
      return KVD_CORRUPT(p, pos + dbf::kFdType, "unknown field type");
    f.offset = offset;
    offset += f.len;
    fields_.push_back(std::move(f));
    pos += dbf::kFieldDescSize;
  }
  if (!terminated) return KVD_CORRUPT(p, pos, "field descriptors not terminated inside the header");
  if (fields_.empty()) return KVD_CORRUPT(p, dbf::kHeaderSize, "table without fields");
  if (offset != record_len_) return KVD_CORRUPT(p, dbf::kOffRecordLen, "record length disagrees with the fields");

  memo_kind_ = MemoKind::kNone;
  for (const FieldLayout& f : fields_) {
    if (f.type == 'M' || f.type == 'G' || f.type == 'P' || (f.type == 'B' && !vfp) || f.type == 'W') {
      memo_kind_ = (version_ == dbf::kVersionDbtMemo || version_ == 0x8B) ? MemoKind::kDbt : MemoKind::kFpt;
    }
  }

  // The count lives in the shared mapping and may have grown since the size was taken: another
  // opener writes a new record before it raises the count, so a fresh size always covers it.
  std::uint32_t count = GetLE32(h + dbf::kOffRecCount);
  known_count_ = count;  // a new file (after a pack) starts the bound afresh
  if (static_cast<std::uint64_t>(header_len_) + static_cast<std::uint64_t>(count) * record_len_ > size) {
    KVD_RETURN_IF_ERROR(file_->Size(&size));
    if (static_cast<std::uint64_t>(header_len_) + static_cast<std::uint64_t>(count) * record_len_ > size)
      return KVD_CORRUPT(p, dbf::kOffRecCount, "record count beyond the end of the file");
  }
  return Status::Ok();
}

Status DbfFile::EnsureMapped(std::uint64_t end) {
  if (end <= map_.size()) return Status::Ok();
  std::uint64_t size = 0;
  bool covered = false;
  KVD_RETURN_IF_ERROR(map_.Cover(*file_, end, &size, &covered));
  if (!covered) return KVD_CORRUPT(file_->path(), end, "read beyond the end of the file");
  return Status::Ok();
}

Status DbfFile::Fetch(std::uint64_t off, void* out, std::size_t n) {
  if (off + n > map_.size()) {
    if (platform::Mapping::CountRead(*file_) <= kReadsBeforeMapping) {
      return file_->ReadExactAt(off, out, n);
    }
    KVD_RETURN_IF_ERROR(EnsureMapped(off + n));
  }
  std::memcpy(out, map_.data() + off, n);
  return Status::Ok();
}

Status DbfFile::RecordCount(std::uint32_t* count) {
  if (pending_n_) {
    *count = pending_base_ + pending_n_;
    return Status::Ok();
  }
  unsigned char b[4];
  KVD_RETURN_IF_ERROR(Fetch(dbf::kOffRecCount, b, 4));
  *count = GetLE32(b);
  known_count_ = std::max(known_count_, *count);
  return Status::Ok();
}

Status DbfFile::CheckRecordNumber(std::uint32_t rec) {
  if (rec != 0 && rec <= known_count_) return Status::Ok();
  std::uint32_t count = 0;
  KVD_RETURN_IF_ERROR(RecordCount(&count));
  if (rec == 0 || rec > count) return Status::NotFound("no record " + std::to_string(rec));
  return Status::Ok();
}

Status DbfFile::ReadRecord(std::uint32_t rec, char* out) {
  KVD_RETURN_IF_ERROR(CheckRecordNumber(rec));
  if (pending_n_ && rec > pending_base_) {
    std::memcpy(out, pending_.data() + static_cast<std::size_t>(rec - pending_base_ - 1) * record_len_, record_len_);
    return Status::Ok();
  }
  const std::uint64_t off = header_len_ + static_cast<std::uint64_t>(rec - 1) * record_len_;
  return Fetch(off, out, record_len_);
}

Status DbfFile::WriteRecord(std::uint32_t rec, const char* in) {
  if (read_only_) return Status::ReadOnly("table opened read only: " + file_->path());
  KVD_RETURN_IF_ERROR(CheckRecordNumber(rec));
  if (pending_n_ && rec > pending_base_) {
    std::memcpy(pending_.data() + static_cast<std::size_t>(rec - pending_base_ - 1) * record_len_, in, record_len_);
    return Status::Ok();
  }
  KVD_RETURN_IF_ERROR(TouchDate());
  return file_->WriteAt(header_len_ + static_cast<std::uint64_t>(rec - 1) * record_len_, in, record_len_);
}

Status DbfFile::FlushAppends() {
  if (pending_n_ == 0) return Status::Ok();
  pending_.push_back(static_cast<char>(dbf::kEndOfFile));
  Status s = file_->WriteAt(header_len_ + static_cast<std::uint64_t>(pending_base_) * record_len_, pending_.data(),
                            pending_.size());
  pending_.pop_back();
  if (!s.ok()) return s;
  unsigned char head[7];
  std::memcpy(head, Today(), 3);
  PutLE32(head + 3, pending_base_ + pending_n_);
  KVD_RETURN_IF_ERROR(file_->WriteAt(dbf::kOffDate, head, sizeof head));
  date_touched_ = true;
  known_count_ = std::max(known_count_, pending_base_ + pending_n_);
  pending_.clear();
  pending_n_ = 0;
  return Status::Ok();
}

Status DbfFile::AppendRecord(const char* in, std::uint32_t* rec, bool defer) {
  if (read_only_) return Status::ReadOnly("table opened read only: " + file_->path());
  if (defer) {
    if (pending_n_ == 0) KVD_RETURN_IF_ERROR(RecordCount(&pending_base_));
    if (pending_base_ + pending_n_ >= kMaxRecords) return Status::NoSpace("table is full: " + file_->path());
    pending_.insert(pending_.end(), in, in + record_len_);
    *rec = pending_base_ + ++pending_n_;
    return pending_.size() >= (1u << 20) ? FlushAppends() : Status::Ok();
  }
  KVD_RETURN_IF_ERROR(FlushAppends());
  std::uint32_t count = 0;
  KVD_RETURN_IF_ERROR(RecordCount(&count));
  if (count >= kMaxRecords) return Status::NoSpace("table is full: " + file_->path());
  // The record and the end mark first, then the count: a reader that sees the new count finds the
  // record already there.
  append_buf_.resize(record_len_ + 1);
  std::memcpy(append_buf_.data(), in, record_len_);
  append_buf_[record_len_] = static_cast<char>(dbf::kEndOfFile);
  const std::uint64_t off = header_len_ + static_cast<std::uint64_t>(count) * record_len_;
  KVD_RETURN_IF_ERROR(file_->WriteAt(off, append_buf_.data(), append_buf_.size()));
  unsigned char head[7];
  std::memcpy(head, Today(), 3);
  PutLE32(head + 3, count + 1);
  KVD_RETURN_IF_ERROR(file_->WriteAt(dbf::kOffDate, head, sizeof head));
  date_touched_ = true;
  known_count_ = std::max(known_count_, count + 1);
  *rec = count + 1;
  return Status::Ok();
}

bool DbfFile::HasProductionIndex() const { return flags_ & dbf::kFlagProductionIndex; }

Status DbfFile::SetProductionIndex(bool on) {
  if (read_only_ || HasProductionIndex() == on) return Status::Ok();
  const unsigned char b = static_cast<unsigned char>(on ? (flags_ | dbf::kFlagProductionIndex) : (flags_ & ~dbf::kFlagProductionIndex));
  KVD_RETURN_IF_ERROR(file_->WriteAt(dbf::kOffFlags, &b, 1));
  flags_ = b;
  return Status::Ok();
}

const unsigned char* DbfFile::Today() {
  const std::uint64_t now = platform::MonotonicMillis();
  if (today_at_ == 0 || now - today_at_ > 60000) {
    const platform::LocalTime t = platform::NowLocal();
    today_[0] = static_cast<unsigned char>(t.year % 100);
    today_[1] = static_cast<unsigned char>(t.month);
    today_[2] = static_cast<unsigned char>(t.day);
    today_at_ = now ? now : 1;
  }
  return today_;
}

Status DbfFile::TouchDate() {
  if (date_touched_) return Status::Ok();
  KVD_RETURN_IF_ERROR(file_->WriteAt(dbf::kOffDate, Today(), 3));
  date_touched_ = true;
  return Status::Ok();
}

Status DbfFile::LockWithRetry(platform::File& f, std::uint64_t off, std::uint64_t len, int attempts,
                              int delay_ms) {
  if (attempts < 0) return f.LockRange(off, len, platform::LockKind::kExclusive, /*wait=*/true);
  if (attempts == 0) attempts = 1;
  for (int i = 0;; ++i) {
    Status s = f.LockRange(off, len, platform::LockKind::kExclusive, /*wait=*/false);
    if (!s.IsBusy() || i + 1 >= attempts) return s;
    platform::SleepMillis(static_cast<unsigned>(delay_ms));
  }
}

Status DbfFile::LockRecord(std::uint32_t rec, int attempts, int delay_ms) {
  if (rec == 0 || rec > kMaxRecords) return Status::InvalidArgument("record number out of range");
  return LockWithRetry(*file_, RecordLockOffset(rec), 1, attempts, delay_ms);
}
Status DbfFile::UnlockRecord(std::uint32_t rec) { return file_->UnlockRange(RecordLockOffset(rec), 1); }
Status DbfFile::LockAppend(int attempts, int delay_ms) {
  return LockWithRetry(*file_, kLockAppendOffset, 1, attempts, delay_ms);
}
Status DbfFile::UnlockAppend() { return file_->UnlockRange(kLockAppendOffset, 1); }
Status DbfFile::LockAll(int attempts, int delay_ms) {
  return LockWithRetry(*file_, kLockAllOffset, kLockAllLength, attempts, delay_ms);
}
Status DbfFile::UnlockAll() { return file_->UnlockRange(kLockAllOffset, kLockAllLength); }

Status DbfFile::BecomeExclusive() {
  if (exclusive_) return Status::Ok();
  Status s = file_->ShareLock(platform::LockKind::kExclusive, /*wait=*/false);
  if (s.ok()) exclusive_ = true;
  return s;
}

Status DbfFile::ReturnToShared() {
  if (!exclusive_) return Status::Ok();
  KVD_RETURN_IF_ERROR(file_->ShareLock(platform::LockKind::kShared, /*wait=*/false));
  exclusive_ = false;
  return Status::Ok();
}

Status DbfFile::Layout(std::vector<FieldLayout>* fields, std::uint32_t* record_len) {
  if (fields->empty()) return Status::InvalidArgument("a table needs at least one field");
  if (fields->size() > dbf::kMaxFields) return Status::InvalidArgument("more than 255 fields");
  std::uint32_t off = 1;
  for (std::size_t i = 0; i < fields->size(); ++i) {
    FieldLayout& f = (*fields)[i];
    for (char& c : f.name) c = platform::AsciiUpper(c);
    if (f.name.empty() || f.name.size() > dbf::kMaxFieldName)
      return Status::InvalidArgument("field name must have 1 to 10 characters: '" + f.name + "'");
    if (!std::all_of(f.name.begin(), f.name.end(), IsValidNameChar) || (f.name[0] >= '0' && f.name[0] <= '9'))
      return Status::InvalidArgument("field name with a character a table cannot hold: " + f.name);
    for (std::size_t j = 0; j < i; ++j)
      if ((*fields)[j].name == f.name) return Status::InvalidArgument("field name twice: " + f.name);
    f.type = platform::AsciiUpper(f.type);
    switch (f.type) {
      case 'C':
        if (f.len < 1 || f.len > 254 + 1) return Status::InvalidArgument("character width must be 1 to 255: " + f.name);
        f.dec = 0;
        break;
      case 'N':
      case 'F':
        if (f.len < 1 || f.len > 20) return Status::InvalidArgument("number width must be 1 to 20: " + f.name);
        if (f.dec > 15 || (f.dec > 0 && f.dec + 2 > f.len))
          return Status::InvalidArgument("decimals do not fit the width: " + f.name);
        break;
      case 'L': f.len = 1; f.dec = 0; break;
      case 'D': f.len = 8; f.dec = 0; break;
      case 'M': f.len = dbf::kMemoPointerLen; f.dec = 0; break;
      default:
        return Status::Unsupported(std::string("field type '") + f.type + "' cannot be created: " + f.name);
    }
    f.flags = 0;
    f.offset = off;
    off += f.len;
  }
  if (off > dbf::kMaxRecordLen) return Status::InvalidArgument("record longer than a table allows");
  *record_len = off;
  return Status::Ok();
}

namespace {

// Builds header + descriptors + terminator for our own flavour (no backlink).
std::vector<unsigned char> BuildHeader(const std::vector<FieldLayout>& fields, std::uint32_t record_len,
                                       std::uint32_t count, bool has_memo) {
  const std::uint32_t header_len = dbf::kHeaderSize + dbf::kFieldDescSize * fields.size() + 1;
  std::vector<unsigned char> h(header_len, 0);
  h[dbf::kOffVersion] = has_memo ? dbf::kVersionFptMemo : dbf::kVersionPlain;
  platform::LocalTime now = platform::NowLocal();
  h[dbf::kOffDate] = static_cast<unsigned char>(now.year % 100);
  h[dbf::kOffDate + 1] = static_cast<unsigned char>(now.month);
  h[dbf::kOffDate + 2] = static_cast<unsigned char>(now.day);
  PutLE32(&h[dbf::kOffRecCount], count);
  PutLE16(&h[dbf::kOffHeaderLen], static_cast<std::uint16_t>(header_len));
  PutLE16(&h[dbf::kOffRecordLen], static_cast<std::uint16_t>(record_len));
  h[dbf::kOffCodePage] = dbf::kCodePageWindows1252;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    unsigned char* d = &h[dbf::kHeaderSize + i * dbf::kFieldDescSize];
    std::memcpy(d + dbf::kFdName, fields[i].name.data(), fields[i].name.size());
    d[dbf::kFdType] = static_cast<unsigned char>(fields[i].type);
    PutLE32(d + dbf::kFdOffset, fields[i].offset);
    d[dbf::kFdLen] = static_cast<unsigned char>(fields[i].len & 0xFF);
    d[dbf::kFdDec] = fields[i].type == 'C' ? static_cast<unsigned char>(fields[i].len >> 8) : fields[i].dec;
  }
  h[header_len - 1] = dbf::kFieldTerminator;
  return h;
}

}  // namespace

Status DbfFile::Create(std::string_view path, std::span<const FieldLayout> in_fields) {
  std::vector<FieldLayout> fields(in_fields.begin(), in_fields.end());
  std::uint32_t record_len = 0;
  KVD_RETURN_IF_ERROR(Layout(&fields, &record_len));
  const bool has_memo = std::any_of(fields.begin(), fields.end(), [](const FieldLayout& f) { return f.type == 'M'; });
  std::vector<unsigned char> h = BuildHeader(fields, record_len, 0, has_memo);
  h.push_back(dbf::kEndOfFile);
  return WriteNewFile(path, h.data(), h.size());
}

Status DbfFile::RewriteWith(const std::vector<std::uint32_t>& keep_recs) {
  KVD_RETURN_IF_ERROR(FlushAppends());
  if (!exclusive_) return Status::Busy("a rewrite needs the table alone: " + file_->path());
  // Copy the header as it stands (a foreign header keeps its backlink and flags), with the new count.
  std::vector<unsigned char> head(header_len_);
  KVD_RETURN_IF_ERROR(file_->ReadExactAt(0, head.data(), head.size()));
  PutLE32(&head[dbf::kOffRecCount], static_cast<std::uint32_t>(keep_recs.size()));
  const std::string tmp = TempNameBeside(open_path_, "pack");
  std::unique_ptr<platform::File> out;
  KVD_RETURN_IF_ERROR(platform::File::Open(tmp, platform::OpenMode::kCreateExclusive, &out));
  auto fail = [&](Status s) {
    out.reset();
    platform::RemoveFile(tmp);
    return s;
  };
  // Locked while its name is still ours alone: it takes the table's name with the lock on it.
  Status s = out->ShareLock(platform::LockKind::kExclusive, /*wait=*/false);
  if (s.ok()) s = out->WriteAt(0, head.data(), head.size());
  if (!s.ok()) return fail(s);
  // Records are written in runs of about 1 MiB.
  std::vector<char> buf;
  const std::size_t run = std::max<std::size_t>(1, (1u << 20) / record_len_);
  buf.reserve(run * record_len_ + 1);
  std::uint64_t off = header_len_;
  for (std::size_t i = 0; i < keep_recs.size(); ++i) {
    const std::size_t at = buf.size();
    buf.resize(at + record_len_);
    s = ReadRecord(keep_recs[i], buf.data() + at);
    if (!s.ok()) return fail(s);
    if (buf.size() >= run * record_len_ || i + 1 == keep_recs.size()) {
      s = out->WriteAt(off, buf.data(), buf.size());
      if (!s.ok()) return fail(s);
      off += buf.size();
      buf.clear();
    }
  }
  const char eof = static_cast<char>(dbf::kEndOfFile);
  s = out->WriteAt(off, &eof, 1);
  if (s.ok()) s = out->Sync();
  if (!s.ok()) return fail(s);
  // We hold the exclusive open lock: no one else has the file open, so the rename cannot pull it
  // from under another opener. A crash before this line leaves the old table whole; after it, the
  // new one.
  s = out->MoveOver(open_path_);
  if (!s.ok()) return fail(s);
  platform::SyncDirectory(platform::DirPart(open_path_));
  return TakeReplacement(std::move(out));
}

Status DbfFile::TakeReplacement(std::unique_ptr<platform::File> f) {
  // The old descriptor goes with its mapping; openers waiting on it find the name taken and open
  // the new file, where our lock holds them until the caller is done.
  map_.ReleaseReplaced();
  file_ = std::move(f);
  exclusive_ = true;
  // We wrote the file through this descriptor: the size its open saw is not the size now.
  std::uint64_t size = 0;
  KVD_RETURN_IF_ERROR(file_->Size(&size));
  return ParseHeader(size);
}

}  // namespace kvd::engine
