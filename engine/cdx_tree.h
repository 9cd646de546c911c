// The B+-tree of one tag: insert, remove, bulk build, and positions for walking and seeking.
//
// Entries are ordered by (key bytes, record number); interior entries carry the highest entry of
// their child, so a descent takes the first child whose entry is not below the target. Pages are
// split when an insert no longer fits and freed when a remove empties them; they are not merged
// otherwise. The tree reads and writes pages only through a CdxPageStore, which the index file
// implements over its pages (and the tests over memory).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/cdx_page.h"
#include "platform/status.h"

namespace kvd::engine {

class CdxPageStore {
 public:
  virtual ~CdxPageStore() = default;
  virtual Status ReadPage(std::uint32_t offset, CdxPage* page) = 0;
  virtual Status WritePage(const CdxPage& page) = 0;
  virtual Status AllocPage(std::uint32_t* offset) = 0;
  virtual Status FreePage(std::uint32_t offset) = 0;
  virtual Status Root(std::uint32_t* offset) = 0;  // the root page, as the tag header says now
  virtual Status SetRoot(std::uint32_t offset) = 0;
  virtual const CdxKeyFormat& format() const = 0;
  // Pages the file holds now: no chain of distinct pages is longer, so a longer walk is a cycle.
  virtual std::uint64_t page_count() const = 0;
};

// A place in the tree: a leaf, copied, and an entry of it. `valid` false means past either end.
struct CdxPosition {
  bool valid = false;
  CdxPage leaf;
  std::size_t index = 0;
  const CdxEntry& entry() const { return leaf.entries[index]; }
};

class CdxTree {
 public:
  explicit CdxTree(CdxPageStore& store) : store_(store), fmt_(store.format()) {}

  Status Insert(const std::string& key, std::uint32_t recno);
  // Removes the entry; *found tells whether it was there.
  Status Remove(const std::string& key, std::uint32_t recno, bool* found);
  // Replaces the tree by one built from `sorted` entries (which must be in order), in as few
  // pages as they fit, and frees nothing (the caller starts from an empty file or frees first).
  Status Build(const std::vector<CdxEntry>& sorted);
  // Every page of the tree (to free them all).
  Status CollectPages(std::vector<std::uint32_t>* pages);

  Status First(CdxPosition* pos);
  Status Last(CdxPosition* pos);
  Status Next(CdxPosition* pos);
  Status Prev(CdxPosition* pos);
  // The first entry not below (key, recno); `key` may be shorter than the key length, and then
  // counts as padded with zero bytes (so it finds the first key that begins with it).
  Status LowerBound(const std::string& key, std::uint32_t recno, CdxPosition* pos);
  // The last entry not above (key, recno), a short key counting as padded with 0xFF bytes.
  Status UpperBoundPrev(const std::string& key, std::uint32_t recno, CdxPosition* pos);

  // Checks order, parent entries, sibling links and entry counts; for tests and repair tools.
  Status Check(std::size_t* entries);

 private:
  struct Step {
    CdxPage page;
    std::size_t index;  // the child taken (interior) or the insertion point (leaf)
  };
  Status Descend(const std::string& key, std::uint32_t recno, bool high_fill, std::vector<Step>* path);
  Status Store(std::vector<Step>& path, std::size_t level);
  Status Split(std::vector<Step>& path, std::size_t level);
  Status RemoveFromParent(std::vector<Step>& path, std::size_t level);
  Status CheckPage(std::uint32_t offset, const CdxEntry* bound, std::size_t* entries, int depth);

  CdxPageStore& store_;
  const CdxKeyFormat& fmt_;
};

// Compares (a.key, a.recno) with (key, recno); the key is compared over key_len bytes, a shorter
// `key` padded with `pad`.
int CompareEntry(const CdxEntry& a, const std::string& key, std::uint32_t recno, unsigned char pad);

}  // namespace kvd::engine
