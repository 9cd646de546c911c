#include "engine/cdx_file.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstring>

#include "engine/codec.h"
#include "platform/ascii.h"
#include "platform/env.h"

namespace kvd::engine {

namespace {
// A byte of the tag header's reserved area that other programs leave alone: 25 there says that the
// tag's unique rule leaves duplicates out of the tag rather than refusing them. An index opened
// later keeps behaving the way its tags were made.
constexpr unsigned kOffUniqueRule = 500;
constexpr unsigned char kUniqueContinueMark = 25;
const CdxKeyFormat kDirectoryFormat{cdx::kTagNameLen, ' '};
}  // namespace

// The pages of one tree of the file: a tag's, or the directory's (whose header is the file header).
class CdxFile::TagStore : public CdxPageStore {
 public:
  TagStore(CdxFile* file, std::uint32_t header, const CdxKeyFormat* fmt) : file_(file), header_(header), fmt_(fmt) {}
  Status ReadPage(std::uint32_t off, CdxPage* p) override { return file_->ReadPage(off, *fmt_, p); }
  Status WritePage(const CdxPage& p) override { return file_->WritePage(p, *fmt_); }
  Status AllocPage(std::uint32_t* off) override { return file_->AllocPage(off); }
  Status FreePage(std::uint32_t off) override { return file_->FreePage(off); }
  Status Root(std::uint32_t* off) override {
    unsigned char b[4];
    KVD_RETURN_IF_ERROR(file_->Fetch(header_ + cdx::kOffRoot, b, 4));
    *off = GetLE32(b);
    return Status::Ok();
  }
  Status SetRoot(std::uint32_t off) override {
    unsigned char b[4];
    PutLE32(b, off);
    return file_->WriteAt(header_ + cdx::kOffRoot, b, 4);
  }
  const CdxKeyFormat& format() const override { return *fmt_; }
  // Every page read so far lies inside the known size (a read past it proves the file longer).
  std::uint64_t page_count() const override { return file_->known_size_ / cdx::kPageSize; }

 private:
  CdxFile* file_;
  std::uint32_t header_;
  const CdxKeyFormat* fmt_;
};

CdxFile::~CdxFile() = default;

CdxPageStore& CdxFile::Store(std::size_t i) { return *stores_[i]; }

Status CdxFile::RefreshSize() {
  std::uint64_t size = 0;
  KVD_RETURN_IF_ERROR(file_->Size(&size));
  known_size_ = std::max(known_size_, size);
  return Status::Ok();
}

Status CdxFile::EnsureMapped(std::uint64_t end) {
  if (end <= map_.size()) return Status::Ok();
  std::uint64_t size = 0;
  bool covered = false;
  KVD_RETURN_IF_ERROR(map_.Cover(*file_, end, &size, &covered));
  known_size_ = std::max(known_size_, size);
  if (!covered) return KVD_CORRUPT(file_->path(), end, "index page beyond the end of the file");
  DropKept();  // the mapping serves every read from now on
  return Status::Ok();
}

void CdxFile::DropKept() {
  kept_.clear();
  counter_known_ = false;
}

CdxFile::KeptPage* CdxFile::FindKept(std::uint64_t page) {
  for (KeptPage& k : kept_)
    if (k.offset == page) return &k;
  return nullptr;
}

void CdxFile::Keep(std::uint64_t page, const unsigned char* bytes) {
  KeptPage* k = FindKept(page);
  if (k == nullptr) {
    if (kept_.size() >= kMaxKeptPages) kept_.clear();  // the mapping takes over soon anyway
    kept_.push_back(KeptPage{static_cast<std::uint32_t>(page), {}});
    k = &kept_.back();
  }
  std::memcpy(k->bytes, bytes, cdx::kPageSize);
}

Status CdxFile::Fetch(std::uint64_t off, void* out, std::size_t n) {
  const std::uint64_t end = off + n;
  if (end <= map_.size()) {
    std::memcpy(out, map_.data() + off, n);
    return Status::Ok();
  }
  if (map_.size() != 0 || reads_ >= kReadsBeforeMapping) {
    KVD_RETURN_IF_ERROR(EnsureMapped(end));
    std::memcpy(out, map_.data() + off, n);
    return Status::Ok();
  }
  if (end <= open_bytes_.size()) {
    std::memcpy(out, open_bytes_.data() + off, n);
    return Status::Ok();
  }
  // The pages that hold the range: kept ones when the counter says they are current.
  const std::uint64_t first = off / cdx::kPageSize * cdx::kPageSize;
  const std::uint64_t last = (end - 1) / cdx::kPageSize * cdx::kPageSize;
  if (hold_ != Hold::kNone && counter_known_) {
    unsigned char* o = static_cast<unsigned char*>(out);
    std::size_t done = 0;
    for (std::uint64_t page = first; page <= last; page += cdx::kPageSize) {
      const KeptPage* k = FindKept(page);
      if (k == nullptr) break;
      const std::uint64_t from = std::max(off, page), to = std::min(end, page + cdx::kPageSize);
      std::memcpy(o + done, k->bytes + (from - page), to - from);
      done += to - from;
    }
    if (done == n) return Status::Ok();
  }
  // Read the whole pages; keep them when read under the lock.
  unsigned char buf[2 * cdx::kPageSize];
  const std::size_t len = static_cast<std::size_t>(last + cdx::kPageSize - first);
  if (len > sizeof buf) return Status::InvalidArgument("index read across more than two pages");
  std::size_t got = 0;
  reads_ = platform::Mapping::CountRead(*file_);
  KVD_RETURN_IF_ERROR(file_->ReadAt(first, buf, len, &got));
  if (first + got < end) return KVD_CORRUPT(file_->path(), end, "index page beyond the end of the file");
  known_size_ = std::max(known_size_, first + got);
  std::memcpy(out, buf + (off - first), n);
  if (hold_ != Hold::kNone && counter_known_) {
    for (std::uint64_t page = first; page + cdx::kPageSize <= first + got; page += cdx::kPageSize)
      Keep(page, buf + (page - first));
  }
  return Status::Ok();
}

Status CdxFile::WriteAt(std::uint64_t off, const void* in, std::size_t n) {
  // A write without the lock (an index being built, which no one else can open) leaves nothing
  // kept; a write under the exclusive lock keeps the kept pages what the file now holds.
  if (hold_ != Hold::kWrite) DropKept();
  if (Status s = file_->WriteAt(off, in, n); !s.ok()) {
    DropKept();  // the file may hold part of the write: no copy can say what
    return s;
  }
  known_size_ = std::max(known_size_, off + n);
  const std::uint64_t end = off + n;
  for (KeptPage& k : kept_) {
    const std::uint64_t from = std::max<std::uint64_t>(off, k.offset);
    const std::uint64_t to = std::min<std::uint64_t>(end, k.offset + cdx::kPageSize);
    if (from < to) std::memcpy(k.bytes + (from - k.offset), static_cast<const unsigned char*>(in) + (from - off), to - from);
  }
  return Status::Ok();
}

Status CdxFile::Validate() {
  if (map_.size() != 0) return Status::Ok();
  // The counter with the header and the tag headers, in one read, under the lock: what this read
  // brings may be kept.
  std::vector<unsigned char> head(head_len_);
  std::size_t got = 0;
  reads_ = platform::Mapping::CountRead(*file_);
  KVD_RETURN_IF_ERROR(file_->ReadAt(0, head.data(), head.size(), &got));
  if (got < cdx::kPageSize) return KVD_CORRUPT(file_->path(), 0, "index file shorter than its header");
  known_size_ = std::max<std::uint64_t>(known_size_, got);
  const std::uint32_t counter = GetBE32(head.data() + cdx::kOffCounter);
  if (!counter_known_ || counter != kept_counter_) kept_.clear();
  kept_counter_ = counter;
  counter_known_ = true;
  for (std::size_t page = 0; page + cdx::kPageSize <= got; page += cdx::kPageSize) Keep(page, head.data() + page);
  return Status::Ok();
}

Status CdxFile::Open(std::string_view path, bool read_only, bool exclusive, std::unique_ptr<CdxFile>* out) {
  std::unique_ptr<CdxFile> f(new CdxFile());
  f->read_only_ = read_only;
  // An index replaced between the open and the lock (a rebuild by another opener) is opened again.
  KVD_RETURN_IF_ERROR(platform::File::OpenLocked(
      path, read_only ? platform::OpenMode::kRead : platform::OpenMode::kReadWrite,
      exclusive ? platform::LockKind::kExclusive : platform::LockKind::kShared, /*attempts=*/1, 0, &f->file_));
  f->known_size_ = f->file_->size_at_open();
  // A mapping of the file that this process keeps already serves every read at no cost.
  // Otherwise the header, the directory and mostly every tag header come in one read; what lies
  // further is read page by page. Nothing of it is kept: it was read without the lock.
  std::uint64_t got = 0;
  if (f->map_.AdoptPooled(*f->file_)) {
    got = f->map_.size();
  } else {
    f->open_bytes_.resize(kOpenReadSize);
    std::size_t n = 0;
    f->reads_ = platform::Mapping::CountRead(*f->file_);
    KVD_RETURN_IF_ERROR(f->file_->ReadAt(0, f->open_bytes_.data(), f->open_bytes_.size(), &n));
    f->open_bytes_.resize(n);
    got = n;
  }
  f->known_size_ = std::max<std::uint64_t>(f->known_size_, got);
  if (got < cdx::kHeaderSize + cdx::kPageSize) return KVD_CORRUPT(f->file_->path(), 0, "index file shorter than its header and directory");
  Status s = f->ReadDirectory();
  f->open_bytes_ = std::vector<unsigned char>();
  KVD_RETURN_IF_ERROR(s);
  *out = std::move(f);
  return Status::Ok();
}

Status CdxFile::ReadHeader(std::uint32_t off, CdxTagDef* def) {
  const std::string& p = file_->path();
  unsigned char h[cdx::kHeaderSize];
  KVD_RETURN_IF_ERROR(Fetch(off, h, sizeof h));
  def->fmt.key_len = GetLE16(h + cdx::kOffKeyLen);
  if (def->fmt.key_len == 0 || def->fmt.key_len > cdx::kMaxKeyLen)
    return KVD_CORRUPT(p, off + cdx::kOffKeyLen, "tag key length out of range");
  const unsigned char opt = h[cdx::kOffOptions];
  def->unique = opt & cdx::kOptUnique;
  def->unique_continue = def->unique && h[kOffUniqueRule] == kUniqueContinueMark;
  def->descending = GetLE16(h + cdx::kOffDescending) != 0;
  const unsigned kpos = GetLE16(h + cdx::kOffKeyPos), klen = GetLE16(h + cdx::kOffKeyExprLen);
  const unsigned fpos = GetLE16(h + cdx::kOffForPos), flen = GetLE16(h + cdx::kOffForLen);
  if (kpos + klen > cdx::kPoolSize || klen < 2) return KVD_CORRUPT(p, off + cdx::kOffKeyPos, "key expression outside the pool");
  if (fpos + flen > cdx::kPoolSize) return KVD_CORRUPT(p, off + cdx::kOffForPos, "filter outside the pool");
  const char* pool = reinterpret_cast<const char*>(h + cdx::kPoolOffset);
  def->expression.assign(pool + kpos, strnlen(pool + kpos, klen));
  def->filter.clear();
  if ((opt & cdx::kOptFor) && flen > 1) def->filter.assign(pool + fpos, strnlen(pool + fpos, flen));
  if (def->expression.empty()) return KVD_CORRUPT(p, off + cdx::kPoolOffset, "tag without a key expression");
  def->fmt.fill = ' ';  // until the expression says otherwise
  return Status::Ok();
}

Status CdxFile::ReadDirectory() {
  const std::string& p = file_->path();
  unsigned char h[cdx::kOffKeyLen + 2];
  KVD_RETURN_IF_ERROR(Fetch(0, h, sizeof h));
  if (GetLE16(h + cdx::kOffKeyLen) != cdx::kTagNameLen) return KVD_CORRUPT(p, cdx::kOffKeyLen, "tag directory key length is not 10");
  TagStore dir(this, 0, &kDirectoryFormat);
  CdxTree tree(dir);
  CdxPosition pos;
  KVD_RETURN_IF_ERROR(tree.First(&pos));
  tags_.clear();
  for (; pos.valid;) {
    Tag t;
    t.def.name = pos.entry().key;
    while (!t.def.name.empty() && (t.def.name.back() == ' ' || t.def.name.back() == '\0')) t.def.name.pop_back();
    for (char& c : t.def.name) c = platform::AsciiUpper(c);
    t.header = pos.entry().recno;
    if (t.header % cdx::kPageSize != 0 || t.header < cdx::kHeaderSize)
      return KVD_CORRUPT(p, t.header, "tag header at an impossible offset");
    KVD_RETURN_IF_ERROR(ReadHeader(t.header, &t.def));
    tags_.push_back(std::move(t));
    if (tags_.size() > 4096) return KVD_CORRUPT(p, 0, "tag directory without end");
    KVD_RETURN_IF_ERROR(tree.Next(&pos));
  }
  // The directory is alphabetical; the tags were made in the order of their headers.
  std::sort(tags_.begin(), tags_.end(), [](const Tag& a, const Tag& b) { return a.header < b.header; });
  for (std::size_t i = 1; i < tags_.size(); ++i)
    if (tags_[i].header == tags_[i - 1].header) return KVD_CORRUPT(p, tags_[i].header, "two tags share one header");
  stores_.clear();
  for (Tag& t : tags_) stores_.push_back(std::make_unique<TagStore>(this, t.header, &t.def.fmt));
  // What a lock's first read brings: the counter and, when they lie near the start (as in every
  // file this engine makes), the tag headers with their roots.
  std::uint64_t head = cdx::kPageSize;
  for (const Tag& t : tags_) head = std::max<std::uint64_t>(head, t.header + cdx::kPageSize);
  head_len_ = head <= kMaxHeadLen ? static_cast<std::uint32_t>(head) : cdx::kPageSize;
  return Status::Ok();
}

Status CdxFile::CreateEmpty(std::string_view path, const std::vector<CdxTagDef>& defs, std::unique_ptr<CdxFile>* out) {
  std::unique_ptr<CdxFile> f(new CdxFile());
  KVD_RETURN_IF_ERROR(platform::File::Open(path, platform::OpenMode::kCreateExclusive, &f->file_));
  KVD_RETURN_IF_ERROR(f->file_->ShareLock(platform::LockKind::kExclusive, false));
  // Layout: file header, directory root leaf, then per tag its header and its empty root leaf.
  const std::uint32_t per_tag = cdx::kHeaderSize + cdx::kPageSize;
  const std::uint32_t first_tag = cdx::kHeaderSize + cdx::kPageSize;
  const std::uint64_t size = first_tag + static_cast<std::uint64_t>(per_tag) * defs.size();
  std::vector<unsigned char> buf(size, 0);
  auto header = [&](std::uint32_t off, unsigned key_len, unsigned char opt, const std::string& expr,
                    const std::string& filter, bool desc, bool cont) {
    unsigned char* h = buf.data() + off;
    PutLE32(h + cdx::kOffRoot, off + cdx::kHeaderSize);  // the root leaf follows its header
    PutLE16(h + cdx::kOffKeyLen, static_cast<std::uint16_t>(key_len));
    h[cdx::kOffOptions] = opt;
    h[cdx::kOffSignature] = 1;
    if (cont) h[kOffUniqueRule] = kUniqueContinueMark;
    PutLE16(h + cdx::kOffDescending, desc ? 1 : 0);
    PutLE16(h + cdx::kOffKeyPos, 0);
    PutLE16(h + cdx::kOffKeyExprLen, static_cast<std::uint16_t>(expr.size() + 1));
    PutLE16(h + cdx::kOffForPos, static_cast<std::uint16_t>(expr.size() + 1));
    PutLE16(h + cdx::kOffForLen, static_cast<std::uint16_t>(filter.size() + 1));
    std::memcpy(h + cdx::kPoolOffset, expr.data(), expr.size());
    std::memcpy(h + cdx::kPoolOffset + expr.size() + 1, filter.data(), filter.size());
  };
  header(0, cdx::kTagNameLen, cdx::kOptCompact | cdx::kOptCompound | cdx::kOptDirectory, "", "", false, false);
  std::vector<CdxEntry> dir;
  for (std::size_t i = 0; i < defs.size(); ++i) {
    const CdxTagDef& s = defs[i];
    if (s.expression.size() + s.filter.size() + 2 > cdx::kPoolSize)
      return Status::InvalidArgument("tag expression and filter longer than an index can store: " + s.name);
    if (s.fmt.key_len == 0 || s.fmt.key_len > cdx::kMaxKeyLen)
      return Status::InvalidArgument("tag key longer than 240 bytes: " + s.name);
    const std::uint32_t off = first_tag + static_cast<std::uint32_t>(i) * per_tag;
    unsigned char opt = cdx::kOptCompact | cdx::kOptCompound;
    if (s.unique) opt |= cdx::kOptUnique;
    if (!s.filter.empty()) opt |= cdx::kOptFor;
    header(off, s.fmt.key_len, opt, s.expression, s.filter, s.descending, s.unique && s.unique_continue);
    std::string name = s.name;
    for (char& c : name) c = platform::AsciiUpper(c);
    name.resize(cdx::kTagNameLen, ' ');
    dir.push_back(CdxEntry{name, off, 0});
    CdxPage root;
    root.attr = cdx::kAttrRoot | cdx::kAttrLeaf;
    EncodeCdxPage(root, s.fmt, buf.data() + off + cdx::kHeaderSize);
  }
  std::sort(dir.begin(), dir.end(), [](const CdxEntry& a, const CdxEntry& b) { return a.key < b.key; });
  for (std::size_t i = 1; i < dir.size(); ++i)
    if (dir[i].key == dir[i - 1].key) return Status::InvalidArgument("two tags with one name: " + dir[i].key);
  CdxPage dir_root;
  dir_root.offset = cdx::kHeaderSize;
  dir_root.attr = cdx::kAttrRoot | cdx::kAttrLeaf;
  dir_root.entries = dir;
  if (!EncodeCdxPage(dir_root, kDirectoryFormat, buf.data() + cdx::kHeaderSize))
    return Status::InvalidArgument("too many tags for one index");
  KVD_RETURN_IF_ERROR(f->file_->WriteAt(0, buf.data(), buf.size()));
  f->known_size_ = size;
  f->open_bytes_ = std::move(buf);
  Status s = f->ReadDirectory();
  f->open_bytes_ = std::vector<unsigned char>();
  KVD_RETURN_IF_ERROR(s);
  for (std::size_t i = 0; i < defs.size(); ++i) {
    // The directory sorted the tags by header offset, which is the given order.
    f->tags_[i].def = defs[i];
    for (char& c : f->tags_[i].def.name) c = platform::AsciiUpper(c);
  }
  *out = std::move(f);
  return Status::Ok();
}

std::uint32_t CdxFile::Counter() {
  if (map_.size() != 0) return GetBE32(map_.data() + cdx::kOffCounter);
  return kept_counter_;  // read when the lock was taken; only this opener can have moved it since
}

bool CdxFile::CounterIs(std::uint32_t counter) {
  if (map_.size() == 0 && hold_ != Hold::kNone && counter_known_) return kept_counter_ == counter;
  unsigned char b[4];
  if (map_.size() == 0) {
    // Not from the kept pages: without the lock the counter must come from the file.
    std::size_t got = 0;
    reads_ = platform::Mapping::CountRead(*file_);
    if (reads_ >= kReadsBeforeMapping) {
      if (!EnsureMapped(cdx::kOffCounter + 4).ok()) return false;
      return GetBE32(map_.data() + cdx::kOffCounter) == counter;
    }
    if (!file_->ReadAt(cdx::kOffCounter, b, 4, &got).ok() || got != 4) return false;
    return GetBE32(b) == counter;
  }
  return GetBE32(map_.data() + cdx::kOffCounter) == counter;
}

Status CdxFile::LockRead(int attempts, int delay_ms) {
  for (int i = 0;; ++i) {
    Status s = file_->LockRange(cdx::kLockOffset, 1, platform::LockKind::kShared, attempts < 0);
    if (s.ok()) break;
    if (!s.IsBusy() || (attempts >= 0 && i + 1 >= std::max(1, attempts))) return s;
    platform::SleepMillis(static_cast<unsigned>(delay_ms));
  }
  hold_ = Hold::kRead;
  Status v = Validate();
  if (!v.ok()) UnlockRead();
  return v;
}

Status CdxFile::UnlockRead() {
  hold_ = Hold::kNone;
  return file_->UnlockRange(cdx::kLockOffset, 1);
}

Status CdxFile::BeginWrite(int attempts, int delay_ms) {
  if (read_only_) return Status::ReadOnly("index opened read only: " + file_->path());
  for (int i = 0;; ++i) {
    Status s = file_->LockRange(cdx::kLockOffset, 1, platform::LockKind::kExclusive, attempts < 0);
    if (s.ok()) break;
    if (!s.IsBusy() || (attempts >= 0 && i + 1 >= std::max(1, attempts))) return s;
    platform::SleepMillis(static_cast<unsigned>(delay_ms));
  }
  hold_ = Hold::kWrite;
  Status v = Validate();
  if (!v.ok()) EndWrite();
  return v;
}

Status CdxFile::MarkChanging() {
  if (changing_) return Status::Ok();  // once per hold of the lock
  unsigned char b[4];
  // Under the lock the counter is known; an index being built without it (no one else can have
  // it open) reads it from the file.
  std::uint32_t now = 0;
  if (map_.size() != 0 || (hold_ != Hold::kNone && counter_known_)) {
    now = Counter();
  } else {
    KVD_RETURN_IF_ERROR(Fetch(cdx::kOffCounter, b, 4));
    now = GetBE32(b);
  }
  // Under the lock: the next odd number until EndWrite. A builder alone with the file has no
  // reader to warn and goes straight to the next even one.
  const std::uint32_t next = hold_ == Hold::kWrite ? now + 1 + (now & 1u) : now + 2 - (now & 1u);
  PutBE32(b, next);
  KVD_RETURN_IF_ERROR(WriteAt(cdx::kOffCounter, b, 4));
  if (hold_ == Hold::kWrite) {
    kept_counter_ = next;  // the kept pages are this writer's own
    changing_ = true;
  }
  return Status::Ok();
}

Status CdxFile::EndWrite() {
  Status s;
  if (changing_) {
    // Every page is written: the counter becomes even, and readers without the lock may go on.
    // The fence keeps this store behind the page stores for readers of the mapping on any CPU.
    std::atomic_thread_fence(std::memory_order_seq_cst);
    const std::uint32_t next = Counter() + 1;
    unsigned char b[4];
    PutBE32(b, next);
    s = WriteAt(cdx::kOffCounter, b, 4);
    if (s.ok()) kept_counter_ = next;
    changing_ = false;
  }
  hold_ = Hold::kNone;
  Status u = file_->UnlockRange(cdx::kLockOffset, 1);
  return s.ok() ? u : s;
}

namespace {
// The counter read from a mapping in one aligned load (offset 8 of a page-aligned mapping), with
// acquire order: what the descent reads after it is not read before it.
std::uint32_t LoadCounter(const std::byte* base) {
  const std::uint32_t raw = __atomic_load_n(reinterpret_cast<const std::uint32_t*>(base + cdx::kOffCounter), __ATOMIC_ACQUIRE);
  return GetBE32(&raw);
}
}  // namespace

bool CdxFile::BeginUnlocked(std::uint32_t* counter) {
  if (map_.size() < cdx::kPageSize || hold_ != Hold::kNone) return false;
  const std::uint32_t c = LoadCounter(map_.data());
  if (c & 1u) return false;  // a writer is at work, or died at work
  *counter = c;
  return true;
}

bool CdxFile::StillAt(std::uint32_t counter) {
  if (map_.size() < cdx::kPageSize) return false;
  std::atomic_thread_fence(std::memory_order_acquire);  // every page read is done before this load
  return LoadCounter(map_.data()) == counter;
}

Status CdxFile::ShareLock(bool exclusive) {
  return file_->ShareLock(exclusive ? platform::LockKind::kExclusive : platform::LockKind::kShared, false);
}

Status CdxFile::ReadPage(std::uint32_t off, const CdxKeyFormat& fmt, CdxPage* page) {
  if (off % cdx::kPageSize != 0 || off < cdx::kPageSize) return KVD_CORRUPT(file_->path(), off, "index page at an impossible offset");
  unsigned char b[cdx::kPageSize];
  KVD_RETURN_IF_ERROR(Fetch(off, b, sizeof b));
  Status s = DecodeCdxPage(b, off, fmt, known_size_, file_->path(), page);
  if (s.ok() || !s.IsCorruption()) return s;
  // A child past the known end may be a page the file gained since (by this opener or another):
  // ask the size now and judge again.
  const std::uint64_t before = known_size_;
  KVD_RETURN_IF_ERROR(RefreshSize());
  if (known_size_ <= before) return s;
  return DecodeCdxPage(b, off, fmt, known_size_, file_->path(), page);
}

Status CdxFile::WritePage(const CdxPage& page, const CdxKeyFormat& fmt) {
  unsigned char b[cdx::kPageSize];
  if (!EncodeCdxPage(page, fmt, b)) return Status::InvalidArgument("index page overfull");
  return WriteAt(page.offset, b, sizeof b);
}

Status CdxFile::AllocPage(std::uint32_t* off) {
  unsigned char b[4];
  KVD_RETURN_IF_ERROR(Fetch(cdx::kOffFreeList, b, 4));
  const std::uint32_t head = GetLE32(b);
  if (head != 0 && head != cdx::kNoPage) {
    if (head % cdx::kPageSize != 0 || head < cdx::kHeaderSize)
      return KVD_CORRUPT(file_->path(), cdx::kOffFreeList, "free page at an impossible offset");
    KVD_RETURN_IF_ERROR(Fetch(head, b, 4));
    const std::uint32_t next = GetLE32(b);
    PutLE32(b, next);
    KVD_RETURN_IF_ERROR(WriteAt(cdx::kOffFreeList, b, 4));
    *off = head;
    return Status::Ok();
  }
  std::uint64_t size = 0;
  KVD_RETURN_IF_ERROR(file_->Size(&size));
  const std::uint64_t at = (size + cdx::kPageSize - 1) / cdx::kPageSize * cdx::kPageSize;
  if (at + cdx::kPageSize > 0xFFFFFE00ull) return Status::NoSpace("index file full: " + file_->path());
  static const unsigned char zero[cdx::kPageSize] = {};
  KVD_RETURN_IF_ERROR(WriteAt(at, zero, sizeof zero));
  *off = static_cast<std::uint32_t>(at);
  return Status::Ok();
}

Status CdxFile::FreePage(std::uint32_t off) {
  unsigned char b[4];
  KVD_RETURN_IF_ERROR(Fetch(cdx::kOffFreeList, b, 4));
  const std::uint32_t head = GetLE32(b);
  unsigned char page[cdx::kPageSize] = {};
  PutLE32(page, head == cdx::kNoPage ? 0 : head);
  KVD_RETURN_IF_ERROR(WriteAt(off, page, sizeof page));
  PutLE32(b, off);
  return WriteAt(cdx::kOffFreeList, b, 4);
}

Status CdxFile::BuildTag(std::size_t i, const std::vector<CdxEntry>& sorted) {
  KVD_RETURN_IF_ERROR(MarkChanging());
  CdxTree tree(*stores_[i]);
  std::vector<std::uint32_t> pages;
  KVD_RETURN_IF_ERROR(tree.CollectPages(&pages));
  for (std::uint32_t p : pages) KVD_RETURN_IF_ERROR(FreePage(p));
  return tree.Build(sorted);
}

Status CdxFile::ReadRoot(std::size_t tag, std::uint32_t* root) { return stores_[tag]->Root(root); }

Status CdxFile::WriteRoot(std::size_t tag, std::uint32_t root) { return stores_[tag]->SetRoot(root); }

}  // namespace kvd::engine
