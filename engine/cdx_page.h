// One 512-byte page of a compound index, in and out. Layout in cdx_format.h.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/cdx_format.h"
#include "platform/status.h"

namespace kvd::engine {

struct CdxEntry {
  std::string key;         // key_len bytes
  std::uint32_t recno = 0; // record number (leaf and interior)
  std::uint32_t child = 0; // interior only: page offset of the child
};

struct CdxPage {
  std::uint32_t offset = 0;         // where the page lies in the file
  std::uint16_t attr = cdx::kAttrLeaf;
  std::uint32_t left = cdx::kNoPage;
  std::uint32_t right = cdx::kNoPage;
  std::vector<CdxEntry> entries;    // in key order
  bool leaf() const { return attr & cdx::kAttrLeaf; }
  bool root() const { return attr & cdx::kAttrRoot; }
};

// How a tag's pages are read: key length and the fill byte of trailing compression (blank for
// character keys, zero for the others).
struct CdxKeyFormat {
  unsigned key_len = 0;
  unsigned char fill = ' ';
};

// Decodes the page at `offset` from its 512 bytes. Every count, width and position is checked
// against the page, and child offsets against `file_size`; a damaged page gives a corruption
// status naming `file` and the offset.
Status DecodeCdxPage(const unsigned char* bytes, std::uint32_t offset, const CdxKeyFormat& fmt,
                     std::uint64_t file_size, std::string_view file, CdxPage* out);

// Encodes a page; false when its entries do not fit into 512 bytes.
bool EncodeCdxPage(const CdxPage& page, const CdxKeyFormat& fmt, unsigned char* out);

// The bytes a leaf with these entries needs, and whether they fit one page.
std::size_t LeafBytes(const std::vector<CdxEntry>& entries, std::size_t first, std::size_t count,
                      const CdxKeyFormat& fmt);
// Bytes per leaf entry for a page whose largest record number is `max_recno`.
unsigned LeafEntryWidth(std::uint32_t max_recno, unsigned key_len);
// Bytes of key text an entry stores after `prev` (null for the first of a page).
unsigned LeafOwnBytes(const std::string* prev, const std::string& key, const CdxKeyFormat& fmt);

inline std::size_t InteriorCapacity(const CdxKeyFormat& fmt) {
  return (cdx::kPageSize - cdx::kInteriorHead) / (fmt.key_len + 8);
}

}  // namespace kvd::engine
