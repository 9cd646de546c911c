#include "engine/cdx_file.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "engine/codec.h"
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
  std::uint32_t root() const override {
    return GetLE32(file_->map_.data() + header_ + cdx::kOffRoot);
  }
  Status SetRoot(std::uint32_t off) override {
    unsigned char b[4];
    PutLE32(b, off);
    return file_->file_->WriteAt(header_ + cdx::kOffRoot, b, 4);
  }
  const CdxKeyFormat& format() const override { return *fmt_; }
  // The mapping covers every page read so far (ReadPage maps again when a page lies past it).
  std::uint64_t page_count() const override { return file_->map_.size() / cdx::kPageSize; }

 private:
  CdxFile* file_;
  std::uint32_t header_;
  const CdxKeyFormat* fmt_;
};

CdxFile::~CdxFile() = default;

CdxPageStore& CdxFile::Store(std::size_t i) { return *stores_[i]; }

Status CdxFile::EnsureMapped(std::uint64_t end) {
  if (end <= map_.size()) return Status::Ok();
  std::uint64_t size = 0;
  KVD_RETURN_IF_ERROR(file_->Size(&size));
  if (end > size) return KVD_CORRUPT(file_->path(), end, "index page beyond the end of the file");
  return map_.Map(*file_, size);
}

Status CdxFile::Open(std::string_view path, bool read_only, bool exclusive, std::unique_ptr<CdxFile>* out) {
  std::unique_ptr<CdxFile> f(new CdxFile());
  f->read_only_ = read_only;
  KVD_RETURN_IF_ERROR(platform::File::Open(path, read_only ? platform::OpenMode::kRead : platform::OpenMode::kReadWrite,
                                           &f->file_));
  KVD_RETURN_IF_ERROR(f->file_->ShareLock(exclusive ? platform::LockKind::kExclusive : platform::LockKind::kShared, false));
  std::uint64_t size = 0;
  KVD_RETURN_IF_ERROR(f->file_->Size(&size));
  if (size < cdx::kHeaderSize + cdx::kPageSize) return KVD_CORRUPT(f->file_->path(), 0, "index file shorter than its header and directory");
  KVD_RETURN_IF_ERROR(f->map_.Map(*f->file_, size));
  KVD_RETURN_IF_ERROR(f->ReadDirectory());
  *out = std::move(f);
  return Status::Ok();
}

Status CdxFile::ReadHeader(std::uint32_t off, CdxTagDef* def) {
  const std::string& p = file_->path();
  KVD_RETURN_IF_ERROR(EnsureMapped(static_cast<std::uint64_t>(off) + cdx::kHeaderSize));
  const unsigned char* h = reinterpret_cast<const unsigned char*>(map_.data()) + off;
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
  const unsigned char* h = reinterpret_cast<const unsigned char*>(map_.data());
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
    for (char& c : t.def.name) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
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
    for (char& c : name) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
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
  KVD_RETURN_IF_ERROR(f->map_.Map(*f->file_, size));
  KVD_RETURN_IF_ERROR(f->ReadDirectory());
  for (std::size_t i = 0; i < defs.size(); ++i) {
    // The directory sorted the tags by header offset, which is the given order.
    f->tags_[i].def = defs[i];
    for (char& c : f->tags_[i].def.name) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  *out = std::move(f);
  return Status::Ok();
}

std::uint32_t CdxFile::Counter() const {
  return GetBE32(reinterpret_cast<const unsigned char*>(map_.data()) + cdx::kOffCounter);
}

Status CdxFile::LockRead(int attempts, int delay_ms) {
  for (int i = 0;; ++i) {
    Status s = file_->LockRange(cdx::kLockOffset, 1, platform::LockKind::kShared, attempts < 0);
    if (!s.IsBusy() || (attempts >= 0 && i + 1 >= std::max(1, attempts))) return s;
    platform::SleepMillis(static_cast<unsigned>(delay_ms));
  }
}

Status CdxFile::UnlockRead() { return file_->UnlockRange(cdx::kLockOffset, 1); }

Status CdxFile::BeginWrite(int attempts, int delay_ms) {
  if (read_only_) return Status::ReadOnly("index opened read only: " + file_->path());
  for (int i = 0;; ++i) {
    Status s = file_->LockRange(cdx::kLockOffset, 1, platform::LockKind::kExclusive, attempts < 0);
    if (s.ok()) return s;
    if (!s.IsBusy() || (attempts >= 0 && i + 1 >= std::max(1, attempts))) return s;
    platform::SleepMillis(static_cast<unsigned>(delay_ms));
  }
}

Status CdxFile::MarkChanging() {
  unsigned char b[4];
  PutBE32(b, Counter() + 1);
  return file_->WriteAt(cdx::kOffCounter, b, 4);
}

Status CdxFile::EndWrite() { return file_->UnlockRange(cdx::kLockOffset, 1); }

Status CdxFile::ShareLock(bool exclusive) {
  return file_->ShareLock(exclusive ? platform::LockKind::kExclusive : platform::LockKind::kShared, false);
}

Status CdxFile::ReadPage(std::uint32_t off, const CdxKeyFormat& fmt, CdxPage* page) {
  if (off % cdx::kPageSize != 0 || off < cdx::kPageSize) return KVD_CORRUPT(file_->path(), off, "index page at an impossible offset");
  KVD_RETURN_IF_ERROR(EnsureMapped(static_cast<std::uint64_t>(off) + cdx::kPageSize));
  Status s = DecodeCdxPage(reinterpret_cast<const unsigned char*>(map_.data()) + off, off, fmt, map_.size(), file_->path(), page);
  if (s.ok() || !s.IsCorruption()) return s;
  // A child past the mapped end may be a page the file gained since it was mapped (by this opener
  // or another): map the file as it is now and judge again.
  std::uint64_t size = 0;
  KVD_RETURN_IF_ERROR(file_->Size(&size));
  if (size <= map_.size()) return s;
  KVD_RETURN_IF_ERROR(map_.Map(*file_, size));
  return DecodeCdxPage(reinterpret_cast<const unsigned char*>(map_.data()) + off, off, fmt, map_.size(), file_->path(), page);
}

Status CdxFile::WritePage(const CdxPage& page, const CdxKeyFormat& fmt) {
  unsigned char b[cdx::kPageSize];
  if (!EncodeCdxPage(page, fmt, b)) return Status::InvalidArgument("index page overfull");
  return file_->WriteAt(page.offset, b, sizeof b);
}

Status CdxFile::AllocPage(std::uint32_t* off) {
  const unsigned char* h = reinterpret_cast<const unsigned char*>(map_.data());
  const std::uint32_t head = GetLE32(h + cdx::kOffFreeList);
  unsigned char b[4];
  if (head != 0 && head != cdx::kNoPage) {
    KVD_RETURN_IF_ERROR(EnsureMapped(static_cast<std::uint64_t>(head) + cdx::kPageSize));
    if (head % cdx::kPageSize != 0 || head < cdx::kHeaderSize)
      return KVD_CORRUPT(file_->path(), cdx::kOffFreeList, "free page at an impossible offset");
    const std::uint32_t next = GetLE32(map_.data() + head);
    PutLE32(b, next);
    KVD_RETURN_IF_ERROR(file_->WriteAt(cdx::kOffFreeList, b, 4));
    *off = head;
    return Status::Ok();
  }
  std::uint64_t size = 0;
  KVD_RETURN_IF_ERROR(file_->Size(&size));
  const std::uint64_t at = (size + cdx::kPageSize - 1) / cdx::kPageSize * cdx::kPageSize;
  if (at + cdx::kPageSize > 0xFFFFFE00ull) return Status::NoSpace("index file full: " + file_->path());
  static const unsigned char zero[cdx::kPageSize] = {};
  KVD_RETURN_IF_ERROR(file_->WriteAt(at, zero, sizeof zero));
  *off = static_cast<std::uint32_t>(at);
  return Status::Ok();
}

Status CdxFile::FreePage(std::uint32_t off) {
  const std::uint32_t head = GetLE32(map_.data() + cdx::kOffFreeList);
  unsigned char page[cdx::kPageSize] = {};
  PutLE32(page, head == cdx::kNoPage ? 0 : head);
  KVD_RETURN_IF_ERROR(file_->WriteAt(off, page, sizeof page));
  unsigned char b[4];
  PutLE32(b, off);
  return file_->WriteAt(cdx::kOffFreeList, b, 4);
}

Status CdxFile::BuildTag(std::size_t i, const std::vector<CdxEntry>& sorted) {
  KVD_RETURN_IF_ERROR(MarkChanging());
  CdxTree tree(*stores_[i]);
  std::vector<std::uint32_t> pages;
  KVD_RETURN_IF_ERROR(tree.CollectPages(&pages));
  for (std::uint32_t p : pages) KVD_RETURN_IF_ERROR(FreePage(p));
  return tree.Build(sorted);
}

Status CdxFile::ReadRoot(std::size_t tag, std::uint32_t* root) {
  *root = stores_[tag]->root();
  return Status::Ok();
}

Status CdxFile::WriteRoot(std::size_t tag, std::uint32_t root) { return stores_[tag]->SetRoot(root); }

}  // namespace kvd::engine
