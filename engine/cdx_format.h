// The compound index file (.CDX) as this engine reads and writes it.
//
// The file is made of 512-byte pages addressed by their byte offset. It holds several tags; each tag
// is a B+-tree of its own. A tag directory, itself such a tree, maps tag names to tag headers.
// Integers are little-endian unless marked BE.
//
//   FILE HEADER (offset 0, 1024 bytes) = the tag header of the directory: key length 10, options
//   0xE0; the directory's keys are tag names (upper case, blank-padded to 10), and the "record
//   number" of each is the offset of that tag's header. The directory is alphabetical; the order in
//   which the tags were made is the order of their header offsets.
//
//   TAG HEADER (1024 bytes at a 512-aligned offset)
//   OFFSET SIZE  MEANING
//      0     4   root page offset
//      4     4   first free page (file header only; 0 or 0xFFFFFFFF = none); a free page's first 4
//                bytes point to the next free page
//      8     4   BE update counter (file header): raised on every change of the file
//     12     2   key length (at most 240)
//     14     1   options: 0x01 unique, 0x08 has a filter (FOR), 0x20 compact, 0x40 compound,
//                0x80 the directory
//     15     1   signature, 1
//    502     2   0 ascending, 1 descending
//    504     2   filter position in the expression pool
//    506     2   filter length with its NUL (1 when none)
//    508     2   key expression position (0)
//    510     2   key expression length with its NUL
//    512   512   expression pool: key expression, NUL, filter, NUL
//
//   INTERIOR PAGE
//      0     2   attributes: 0 interior, 1 root (interior), 2 leaf, 3 root and leaf
//      2     2   number of entries
//      4     4   left sibling offset, 0xFFFFFFFF none
//      8     4   right sibling offset, 0xFFFFFFFF none
//     12     n   entries of key length + 8 bytes: the key, the BE record number, the BE child page
//                offset. Each entry holds the highest key (and its record number) of its child.
//
//   LEAF PAGE
//      0    12   as an interior page (attributes with 0x02 set)
//     12     2   free bytes in the page
//     14     4   record number mask
//     18     1   duplicate count mask
//     19     1   trailing count mask
//     20     1   bits of the record number (RN)
//     21     1   bits of the duplicate count (DC)
//     22     1   bits of the trailing count (TC)
//     23     1   bytes per entry (E): RN + DC + TC = 8 E
//     24  n*E    entries, each an E-byte little-endian number: record number in bits [0, RN), then
//                the duplicate count, then the trailing count in the top bits
//    ...         free space, then the key texts, packed from the end of the page backwards
//   Key i is the first `dup` bytes of key i-1, then (key length - dup - trail) bytes of its own
//   text (the text of key 0 ends at byte 512, each next one ends where the previous began), then
//   `trail` fill bytes: blanks in character keys, zero bytes in numeric and date keys.
//
// Descending tags keep their keys ascending on disk; only the walk runs the other way. Duplicate
// keys stand in record-number order.
#pragma once

#include <cstdint>

namespace kvd::engine::cdx {

inline constexpr unsigned kPageSize = 512;
inline constexpr unsigned kHeaderSize = 1024;
inline constexpr unsigned kMaxKeyLen = 240;
inline constexpr unsigned kTagNameLen = 10;
inline constexpr std::uint32_t kNoPage = 0xFFFFFFFF;

// Tag header fields.
inline constexpr unsigned kOffRoot = 0;
inline constexpr unsigned kOffFreeList = 4;
inline constexpr unsigned kOffCounter = 8;
inline constexpr unsigned kOffKeyLen = 12;
inline constexpr unsigned kOffOptions = 14;
inline constexpr unsigned kOffSignature = 15;
inline constexpr unsigned kOffDescending = 502;
inline constexpr unsigned kOffForPos = 504;
inline constexpr unsigned kOffForLen = 506;
inline constexpr unsigned kOffKeyPos = 508;
inline constexpr unsigned kOffKeyExprLen = 510;
inline constexpr unsigned kPoolOffset = 512;
inline constexpr unsigned kPoolSize = 512;

inline constexpr unsigned char kOptUnique = 0x01;
inline constexpr unsigned char kOptFor = 0x08;
inline constexpr unsigned char kOptCompact = 0x20;
inline constexpr unsigned char kOptCompound = 0x40;
inline constexpr unsigned char kOptDirectory = 0x80;

// Page fields.
inline constexpr unsigned kOffAttr = 0;
inline constexpr unsigned kOffCount = 2;
inline constexpr unsigned kOffLeft = 4;
inline constexpr unsigned kOffRight = 8;
inline constexpr unsigned kInteriorHead = 12;
inline constexpr unsigned kOffFree = 12;
inline constexpr unsigned kOffRecMask = 14;
inline constexpr unsigned kOffDupMask = 18;
inline constexpr unsigned kOffTrailMask = 19;
inline constexpr unsigned kOffRecBits = 20;
inline constexpr unsigned kOffDupBits = 21;
inline constexpr unsigned kOffTrailBits = 22;
inline constexpr unsigned kOffEntryBytes = 23;
inline constexpr unsigned kLeafHead = 24;

inline constexpr std::uint16_t kAttrRoot = 0x01;
inline constexpr std::uint16_t kAttrLeaf = 0x02;

// The index lock: byte 0x7FFFFFFE of the .CDX, shared while reading, exclusive while changing.
inline constexpr std::uint64_t kLockOffset = 0x7FFFFFFE;

}  // namespace kvd::engine::cdx
