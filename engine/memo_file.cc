#include "engine/memo_file.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "engine/codec.h"
#include "engine/fpt_format.h"
#include "engine/temp_name.h"

namespace kvd::engine {

namespace {
constexpr std::uint32_t kMaxMemoLen = 0x7FFFFFFF;
}

Status MemoFile::Open(std::string_view path, MemoKind kind, bool read_only, bool exclusive,
                      std::unique_ptr<MemoFile>* out) {
  std::unique_ptr<MemoFile> m(new MemoFile());
  m->kind_ = kind;
  m->read_only_ = read_only || kind == MemoKind::kDbt;
  m->open_path_ = std::string(path);
  KVD_RETURN_IF_ERROR(platform::File::Open(
      path, m->read_only_ ? platform::OpenMode::kRead : platform::OpenMode::kReadWrite, &m->file_));
  KVD_RETURN_IF_ERROR(m->file_->ShareLock(exclusive ? platform::LockKind::kExclusive : platform::LockKind::kShared,
                                          /*wait=*/false));
  KVD_RETURN_IF_ERROR(m->ReadHeader());
  *out = std::move(m);
  return Status::Ok();
}

Status MemoFile::ReadHeader() {
  unsigned char h[8];
  KVD_RETURN_IF_ERROR(file_->ReadExactAt(0, h, sizeof h));
  if (kind_ == MemoKind::kDbt) {
    block_size_ = fpt::kDbtBlockSize;
    return Status::Ok();
  }
  std::uint32_t bs = GetBE16(h + fpt::kOffBlockSize);
  if (bs == 0) bs = 1;  // a stored 0 means blocks of one byte
  block_size_ = bs;
  return Status::Ok();
}

Status MemoFile::Create(std::string_view path) {
  unsigned char h[fpt::kHeaderSize] = {};
  const std::uint32_t first = (fpt::kHeaderSize + fpt::kDefaultBlockSize - 1) / fpt::kDefaultBlockSize;
  PutBE32(h + fpt::kOffNextFree, first);
  PutBE16(h + fpt::kOffBlockSize, fpt::kDefaultBlockSize);
  return WriteNewFile(path, h, sizeof h);
}

std::uint32_t MemoFile::BlocksFor(std::size_t len) const {
  return static_cast<std::uint32_t>((len + fpt::kBlockHeadSize + block_size_ - 1) / block_size_);
}

Status MemoFile::StoredLength(std::uint32_t block, std::uint32_t* len) {
  std::uint64_t size = 0;
  KVD_RETURN_IF_ERROR(file_->Size(&size));
  const std::uint64_t off = static_cast<std::uint64_t>(block) * block_size_;
  if (off < fpt::kHeaderSize && kind_ == MemoKind::kFpt)
    return KVD_CORRUPT(file_->path(), off, "memo block inside the memo header");
  if (off + fpt::kBlockHeadSize > size) return KVD_CORRUPT(file_->path(), off, "memo block beyond the end of the memo file");
  unsigned char head[fpt::kBlockHeadSize];
  KVD_RETURN_IF_ERROR(file_->ReadExactAt(off, head, sizeof head));
  *len = GetBE32(head + 4);
  if (*len > size - off - fpt::kBlockHeadSize)
    return KVD_CORRUPT(file_->path(), off + 4, "memo length runs beyond the end of the memo file");
  return Status::Ok();
}

Status MemoFile::Read(std::uint32_t block, std::string* out) {
  out->clear();
  if (block == 0) return Status::Ok();
  if (kind_ == MemoKind::kDbt) {
    // dBASE III: text up to the first 0x1A, which may lie several blocks on.
    std::uint64_t size = 0;
    KVD_RETURN_IF_ERROR(file_->Size(&size));
    std::uint64_t off = static_cast<std::uint64_t>(block) * block_size_;
    if (off >= size) return KVD_CORRUPT(file_->path(), off, "memo block beyond the end of the memo file");
    char buf[fpt::kDbtBlockSize];
    while (off < size) {
      std::size_t got = 0;
      KVD_RETURN_IF_ERROR(file_->ReadAt(off, buf, sizeof buf, &got));
      if (got == 0) break;
      const char* end = static_cast<const char*>(std::memchr(buf, 0x1A, got));
      if (end) {
        out->append(buf, end - buf);
        return Status::Ok();
      }
      out->append(buf, got);
      off += got;
    }
    return Status::Ok();  // no end mark: the text runs to the end of the file
  }
  std::uint32_t len = 0;
  KVD_RETURN_IF_ERROR(StoredLength(block, &len));
  out->resize(len);
  if (len == 0) return Status::Ok();
  return file_->ReadExactAt(static_cast<std::uint64_t>(block) * block_size_ + fpt::kBlockHeadSize, out->data(), len);
}

Status MemoFile::Write(std::uint32_t old_block, const void* data, std::size_t len, std::uint32_t* block) {
  if (read_only_) return Status::ReadOnly("memo file opened read only: " + file_->path());
  if (len > kMaxMemoLen) return Status::InvalidArgument("memo longer than 2 GiB");
  if (len == 0) {
    *block = 0;
    return Status::Ok();
  }
  std::vector<unsigned char> buf(fpt::kBlockHeadSize + len);
  PutBE32(buf.data(), fpt::kTypeText);
  PutBE32(buf.data() + 4, static_cast<std::uint32_t>(len));
  std::memcpy(buf.data() + fpt::kBlockHeadSize, data, len);

  if (old_block != 0) {
    std::uint32_t old_len = 0;
    if (StoredLength(old_block, &old_len).ok() && BlocksFor(len) <= BlocksFor(old_len)) {
      *block = old_block;
      return file_->WriteAt(static_cast<std::uint64_t>(old_block) * block_size_, buf.data(), buf.size());
    }
  }
  // New blocks at the end, taken under the allocation lock on byte 0.
  KVD_RETURN_IF_ERROR(file_->LockRange(0, 1, platform::LockKind::kExclusive, /*wait=*/true));
  struct Unlock {
    platform::File& f;
    ~Unlock() { f.UnlockRange(0, 1); }
  } unlock{*file_};
  unsigned char h[4];
  KVD_RETURN_IF_ERROR(file_->ReadExactAt(fpt::kOffNextFree, h, sizeof h));
  std::uint32_t next = GetBE32(h);
  const std::uint32_t first = (fpt::kHeaderSize + block_size_ - 1) / block_size_;
  if (next < first) return KVD_CORRUPT(file_->path(), 0, "next free block inside the memo header");
  const std::uint64_t need = static_cast<std::uint64_t>(next) + BlocksFor(len);
  if (need > 0xFFFFFFFFull) return Status::NoSpace("memo file full: " + file_->path());
  // Pad the last block so that the file always ends on a block boundary, as other writers expect.
  buf.resize(static_cast<std::size_t>(BlocksFor(len)) * block_size_, 0);
  KVD_RETURN_IF_ERROR(file_->WriteAt(static_cast<std::uint64_t>(next) * block_size_, buf.data(), buf.size()));
  PutBE32(h, static_cast<std::uint32_t>(need));
  KVD_RETURN_IF_ERROR(file_->WriteAt(fpt::kOffNextFree, h, sizeof h));
  *block = next;
  return Status::Ok();
}

Status MemoFile::BecomeExclusive() { return file_->ShareLock(platform::LockKind::kExclusive, false); }
Status MemoFile::ReturnToShared() { return file_->ShareLock(platform::LockKind::kShared, false); }

Status MemoFile::CopyCompact(std::string_view tmp_path, std::uint32_t* blocks, std::size_t n,
                             std::unique_ptr<platform::File>* made) {
  std::unique_ptr<platform::File> out;
  KVD_RETURN_IF_ERROR(platform::File::Open(tmp_path, platform::OpenMode::kCreateExclusive, &out));
  KVD_RETURN_IF_ERROR(out->ShareLock(platform::LockKind::kExclusive, /*wait=*/false));
  unsigned char h[fpt::kHeaderSize] = {};
  PutBE16(h + fpt::kOffBlockSize, static_cast<std::uint16_t>(block_size_));
  std::uint32_t next = (fpt::kHeaderSize + block_size_ - 1) / block_size_;
  std::string memo;
  std::vector<unsigned char> buf;
  for (std::size_t i = 0; i < n; ++i) {
    if (blocks[i] == 0) continue;
    KVD_RETURN_IF_ERROR(Read(blocks[i], &memo));
    if (memo.empty()) {
      blocks[i] = 0;
      continue;
    }
    buf.assign(static_cast<std::size_t>(BlocksFor(memo.size())) * block_size_, 0);
    PutBE32(buf.data(), fpt::kTypeText);
    PutBE32(buf.data() + 4, static_cast<std::uint32_t>(memo.size()));
    std::memcpy(buf.data() + fpt::kBlockHeadSize, memo.data(), memo.size());
    KVD_RETURN_IF_ERROR(out->WriteAt(static_cast<std::uint64_t>(next) * block_size_, buf.data(), buf.size()));
    blocks[i] = next;
    next += BlocksFor(memo.size());
  }
  PutBE32(h + fpt::kOffNextFree, next);
  KVD_RETURN_IF_ERROR(out->WriteAt(0, h, sizeof h));
  KVD_RETURN_IF_ERROR(out->Sync());
  *made = std::move(out);
  return Status::Ok();
}

Status MemoFile::TakeReplacement(std::unique_ptr<platform::File> f) {
  file_ = std::move(f);
  return ReadHeader();
}

}  // namespace kvd::engine
