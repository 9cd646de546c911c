// The memo files.
//
// .FPT (FoxPro) — all integers big-endian:
//   HEADER (block 0, 512 bytes whatever the block size)
//   OFFSET SIZE  MEANING
//      0     4   next free block: where the next memo is appended
//      4     2   unused
//      6     2   block size in bytes (we write 64; other writers use 1..32 KiB)
//      8   504   unused, zero
//   MEMO at block * blocksize:
//      0     4   type: 0 picture, 1 text, 2 object
//      4     4   length of the data in bytes, exact (binary-safe)
//      8     n   data; the next memo begins at the next block boundary
//   The format has no free list: a memo that grows is written anew at the end and its old blocks
//   stay dead until the memo file is compressed.
//
// .DBT (dBASE III), read only — 512-byte blocks; the header's first 4 bytes (little-endian) are the
// next free block; a memo's text runs from its block up to the first 0x1A byte.
#pragma once

#include <cstdint>

namespace kvd::engine::fpt {

inline constexpr unsigned kHeaderSize = 512;
inline constexpr unsigned kOffNextFree = 0;
inline constexpr unsigned kOffBlockSize = 6;
inline constexpr unsigned kBlockHeadSize = 8;
inline constexpr unsigned kDefaultBlockSize = 64;
inline constexpr std::uint32_t kTypeText = 1;

inline constexpr unsigned kDbtBlockSize = 512;

}  // namespace kvd::engine::fpt
