// One open compound index file: its tag directory, its pages, its lock and update counter.
//
// Readers and writers of several processes share the file with no cache between them:
//   - a writer holds the index lock (byte 0x7FFFFFFE, exclusive) for the whole change and raises
//     the update counter (file header offset 8, big-endian) before it changes the first page;
//   - a reader holds the same byte shared while it descends or moves to another page;
//   - a reader may keep a copy of one leaf and go on walking it without the lock for as long as the
//     counter has not moved (it reads the counter from the shared mapping: no system call). The
//     copy was taken under the lock, so it is a consistent state of the tree, and an unchanged
//     counter says that no writer has begun since.
// Pages are read from a shared mapping and written with pwrite.
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

  std::uint32_t Counter() const;  // from the mapping
  Status LockRead(int attempts, int delay_ms);
  Status UnlockRead();
  // Takes the index lock exclusive. Before the first page changes, the writer raises the counter
  // (MarkChanging); a writer that changes nothing leaves the file as it was.
  Status BeginWrite(int attempts, int delay_ms);
  Status MarkChanging();
  Status EndWrite();
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
  Status EnsureMapped(std::uint64_t end);
  Status ReadHeader(std::uint32_t offset, CdxTagDef* def);

  std::unique_ptr<platform::File> file_;
  platform::Mapping map_;
  std::vector<Tag> tags_;                          // in creation order
  std::vector<std::unique_ptr<TagStore>> stores_;  // one per tag
  bool read_only_ = false;
};

}  // namespace kvd::engine
