// One open compound index file: its tag directory, its pages, its lock and update counter.
//
// Readers and writers of several processes share the file with no cache between them beyond what
// the update counter makes safe:
//   - a writer holds the index lock (byte 0x7FFFFFFE, exclusive) for the whole change and raises
//     the update counter (file header offset 8, big-endian) before it changes the first page;
//   - a reader holds the same byte shared while it descends or moves to another page;
//   - a reader may keep a copy of one leaf and go on walking it without the lock for as long as the
//     counter has not moved. The copy was taken under the lock, so it is a consistent state of the
//     tree, and an unchanged counter says that no writer has begun since.
//   - the counter is odd while a writer is at work: its first change makes it the next odd number,
//     its end the next even one. A reader that reads the file through its mapping may therefore
//     descend without the lock (BeginUnlocked): it reads an even counter first and the same
//     counter again at the end (StillAt). Every page a writer changes is changed after the counter
//     turned odd, so a reader that saw any of those changes sees the counter moved and descends
//     again under the lock. A writer that died at work leaves the counter odd; readers then take
//     the lock until the next writer ends. Other programs that raise the counter by one per change
//     do not take part, but they do not take part in the lock either.
//
// How pages are read. A file this process has read only a few pages of (one keyed read: open, one
// descent, close) is read with pread: mapping the file and unmapping it again costs more than the
// reads (an unmapping flushes the TLB of every CPU). After kReadsBeforeMapping reads by this
// process, through any of its openers (keyed reads one after another add up), the file is mapped
// (shared, so every process's write is seen at once) and everything is read from the mapping. The
// mapping stays in the process's pool (platform::Mapping) after the opener goes; an opener that
// finds it there at open reads everything through it from the start.
// Until then, pages read while this opener holds the index lock are kept in a small cache, tagged
// with the counter as it stood under that lock. Each time the lock is taken again the counter is
// read first (the file header's first page, in the same read as the tag headers): when it moved,
// another writer has been at work and every kept page is dropped; when it did not, no writer has
// begun since the pages were read, and they are the file's pages now. Pages read without the lock
// (the directory at open time) are never kept: a writer may have been half way through them.
// Pages this opener writes itself (it holds the lock exclusively then) go into the cache as
// written, and its own raise of the counter moves the cache's tag with it.
//
// Pages are written with pwrite in both modes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "engine/cdx_tree.h"
#include "platform/file.h"
#include "platform/status.h"

namespace kvd::engine {

struct CdxTagDef {
  std::string name;        // at most 10 characters; stored upper case
  std::string expression;  // as written
  std::string filter;      // empty: none
  bool unique = false;
  bool unique_continue = false;  // unique that leaves duplicates out instead of refusing them
  bool descending = false;
  CdxKeyFormat fmt;        // key length and fill byte, from the parsed expression
};

class CdxFile {
 public:
  struct Tag {
    CdxTagDef def;
    std::uint32_t header = 0;  // offset of the tag header
  };

  static Status Open(std::string_view path, bool read_only, bool exclusive, std::unique_ptr<CdxFile>* out);
  // Writes a new index file with empty tags at `path` (which must not exist). The tags keep the
  // given order, which is their creation order. Returns it opened, exclusive, for building.
  static Status CreateEmpty(std::string_view path, const std::vector<CdxTagDef>& tags, std::unique_ptr<CdxFile>* out);

  ~CdxFile();
  const std::string& path() const { return file_->path(); }
  const std::vector<Tag>& tags() const { return tags_; }
  bool read_only() const { return read_only_; }
  // Fills in the key format of tag i once its expression is known (opening leaves it unknown).
  void SetFormat(std::size_t i, const CdxKeyFormat& fmt) { tags_[i].def.fmt = fmt; }

  // The page store of tag i, for CdxTree. Valid while this object lives.
  CdxPageStore& Store(std::size_t i);

  // The update counter. REQUIRES: the index lock held (LockRead or BeginWrite), or the file mapped.
  // Costs no system call under the lock (it was read when the lock was taken) or once mapped.
  std::uint32_t Counter();
  // True when the counter still stands at `counter`; false too when it cannot be read. Needs no
  // lock: a walk asks this before it goes on in its copied leaf.
  bool CounterIs(std::uint32_t counter);
  // The index lock shared. Reads the counter (and drops kept pages when it moved).
  Status LockRead(int attempts, int delay_ms);
  Status UnlockRead();
  // Takes the index lock exclusive. Before the first page changes, the writer raises the counter
  // (MarkChanging); a writer that changes nothing leaves the file as it was.
  Status BeginWrite(int attempts, int delay_ms);
  Status MarkChanging();
  Status EndWrite();
  // A descent without the index lock (see the top of this file): true, with the counter, when the
  // file is mapped and no writer is at work. What the descent read holds only if StillAt(counter)
  // is true after it; otherwise, or when it failed, it must be done again under the lock. Costs no
  // system call.
  bool BeginUnlocked(std::uint32_t* counter);
  bool StillAt(std::uint32_t counter);
  Status ShareLock(bool exclusive);

  // Replaces the tree of tag i by one built from `sorted`, freeing every page of the old tree.
  Status BuildTag(std::size_t i, const std::vector<CdxEntry>& sorted);

  // Used by the tag stores.
  Status ReadPage(std::uint32_t offset, const CdxKeyFormat& fmt, CdxPage* page);
  Status WritePage(const CdxPage& page, const CdxKeyFormat& fmt);
  Status AllocPage(std::uint32_t* offset);
  Status FreePage(std::uint32_t offset);
  Status ReadRoot(std::size_t tag, std::uint32_t* root);
  Status WriteRoot(std::size_t tag, std::uint32_t root);

 private:
  class TagStore;
  CdxFile() = default;
  Status ReadDirectory();
  Status ReadHeader(std::uint32_t offset, CdxTagDef* def);
  // Copies n bytes at `off` (within one or two pages) from the mapping, the kept pages, the bytes
  // read at open, or the file; see the top of this file.
  Status Fetch(std::uint64_t off, void* out, std::size_t n);
  // Writes through to the file and to the kept pages.
  Status WriteAt(std::uint64_t off, const void* in, std::size_t n);
  // Maps the file once it has been read often enough; a mapping that no longer reaches `end` is
  // made to (kCorruption when the file is shorter).
  Status EnsureMapped(std::uint64_t end);
  // After the lock was taken: reads the counter with the header and tag headers (unless mapped)
  // and drops the kept pages when it moved.
  Status Validate();
  // The file's size asked anew; known_size_ follows it.
  Status RefreshSize();
  void DropKept();


  // A page read under the lock, or written by this opener.
  struct KeptPage {
    std::uint32_t offset;                      // 512-aligned
    unsigned char bytes[cdx::kPageSize];
  };
  enum class Hold : unsigned char { kNone, kRead, kWrite };  // this opener's index lock
  KeptPage* FindKept(std::uint64_t page);
  void Keep(std::uint64_t page, const unsigned char* bytes);  // replaces a kept copy

  std::unique_ptr<platform::File> file_;
  platform::Mapping map_;
  std::vector<Tag> tags_;                          // in creation order
  std::vector<std::unique_ptr<TagStore>> stores_;  // one per tag
  bool read_only_ = false;
  std::uint64_t known_size_ = 0;   // bytes the file has at least: from the open, a read, a write
  Hold hold_ = Hold::kNone;
  static constexpr int kReadsBeforeMapping = 24;
  int reads_ = 0;                  // preads of the file by this process (platform::Mapping::CountRead)
  std::vector<KeptPage> kept_;     // at most kMaxKeptPages, in no order
  static constexpr std::size_t kMaxKeptPages = 64;
  std::uint32_t kept_counter_ = 0; // the counter the kept pages belong to
  bool counter_known_ = false;     // kept_counter_ is the counter now (set under the lock)
  bool changing_ = false;          // this writer made the counter odd; EndWrite makes it even
  std::uint32_t head_len_ = cdx::kPageSize;  // bytes from 0 that hold the file header and every
                                             // tag header (at most kMaxHeadLen), read by Validate
  static constexpr std::uint32_t kMaxHeadLen = 16 * 1024;
  std::vector<unsigned char> open_bytes_;   // [0, n) read at open without the lock; open only
  static constexpr std::size_t kOpenReadSize = 8 * 1024;
};

}  // namespace kvd::engine
