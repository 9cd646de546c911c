// KvBlob: a growable byte buffer with an exact length, for whole files read into memory, record
// images, memo contents and texts being built.
//
// The bytes lie in one block of the arena's size classes (lib/foundation/kvgran.h), and the block
// is the whole capacity: there is no spare room beyond the class. A change of size keeps the block
// as long as the new size falls into the same class, so appending in small steps moves the bytes
// once per class boundary and never in between. An empty blob holds no block and its pointer is
// null, in either style.
//
// Styles:
//   KVBLOB_NORMAL  raw bytes;
//   KVBLOB_SZ      the same with one byte more in the block, behind the data, that always holds 0,
//                  so that the content can be handed on as a C string. The zero byte is not
//                  counted in GetByteCount(); GetPhysicalByteCount() counts it. A style change can
//                  therefore move a blob one byte below a class limit into the next class.
//
// Blocks count to KvBlob::_GetInternalAllocWatcher ("KvBlob", "InternalAlloc"), blobs made with
// new to KvBlob::_GetWatcher.
//
// Widths: counts, positions and indexes are `long` in the interface, as callers pass them; what
// a blob stores is 32-bit (the byte count and the style). A blob holds at most one block of the
// largest class, 16 MiB (in the 4 MiB arena a process starts with, far less).
//
// Failures: an index outside the data in GetDWordAt/SetDWordAt fails (KvFail, "KvBlob::GetDWordAt():
// illegal index" / "KvBlob::SetDWordAt(): illegal index"). A size that no class holds (negative,
// or above the largest class) is reported as the broken statement "pogranNew != NULL" of source
// "KvBlob" (KvAssertFail), and the call that asked for it leaves the blob as it was. An arena out
// of memory throws KvFailure through the call that grew the blob; the blob keeps its content.
//
// No lock: one thread at a time per blob; the arena under it has its own.
#pragma once

#include <cstdint>

#include "lib/foundation/kvgran.h"
#include "lib/foundation/kvstring.h"
#include "lib/kv_export.h"

class KVCLASS_API KvBlob {
  KVGRAN_DECLARE_ALLOC(KvBlob)

 public:
  enum KvBlobStyle : unsigned long {
    KVBLOB_NORMAL = 0,  // raw bytes
    KVBLOB_SZ = 1,      // raw bytes and a zero byte behind them
  };

  // Empty, of that style.
  explicit KvBlob(unsigned long style = KVBLOB_NORMAL);
  // A copy of the `count` bytes at `data`.
  KvBlob(const unsigned char* data, long count, unsigned long style = KVBLOB_NORMAL);
  // A copy holds its own block.
  KvBlob(const KvBlob& other);
  KvBlob& operator=(const KvBlob& other);
  ~KvBlob();

  // Content and style become the `count` bytes at `data` and `style`; a count of 0 frees the block
  // and leaves the blob empty. `data` may lie inside this blob.
  KvBlob& Assign(const unsigned char* data, long count, unsigned long style);
  // Adds the `count` bytes at `data` behind the content; `data` may lie inside this blob. A count
  // of 0 or less adds nothing.
  KvBlob& Append(const unsigned char* data, long count);
  // Makes the content `count` bytes long, keeping the first ones. Bytes that come new have no
  // defined content (a fresh block is zeroed, a kept one keeps what it held). In the style
  // KVBLOB_SZ a 0 stands at index `count` afterwards, also when the block stays.
  void SetByteCount(long count);
  // Sets every data byte to `value`; an empty blob stays as it is.
  KvBlob& Fill(unsigned char value);
  // Copies up to `count` bytes from index `pos` to `out`, moves `pos` behind them and answers how
  // many were copied: the rest of the data when fewer remain, 0 when `pos` is negative or at or
  // past the end (`pos` then stays).
  long ReadBytes(long& pos, unsigned char* out, long count) const;
  // The content becomes the whole file `name` (Windows form allowed, see lib/system/kvfile.h); the
  // style stays. A file that does not exist is made, empty, and the blob becomes empty: true.
  // False, with the content as it was, when the file can be neither opened nor made (a missing
  // directory, a directory of that name) or holds more than a blob can (4 GB or more, or above the
  // largest class; the latter also reports "pogranNew != NULL"). A file that gives fewer bytes
  // than its size reports the statement "m_cBytes == (long)dwBytesRead" of source "KvBlob", and the
  // call still answers true with the size of the file as the count.
  bool ReadFromFile(const char* name);
  // Writes the content as the whole file `name`, making its directories (KvWriteBufferToFile).
  bool WriteToFile(const char* name) const;

  long GetByteCount() const { return m_cBytes; }
  // The block bytes the content takes: the count, plus 1 in the style KVBLOB_SZ.
  long GetPhysicalByteCount() const { return _PhysicalSize(m_cBytes, m_dwStyle); }
  // The bytes; null for an empty blob, in either style. Valid until the next change of size.
  unsigned char* GetBytes() { return m_pbData; }
  const unsigned char* GetBytes() const { return m_pbData; }
  unsigned long GetType() const { return m_dwStyle; }
  operator unsigned char*() { return m_pbData; }
  operator char*() { return reinterpret_cast<char*>(m_pbData); }

  // The 32-bit value (in this machine's byte order) at byte index * 4. The index must be 0 or more
  // with index * 4 below the count; a value that begins in the last bytes of the data reaches up
  // to 3 bytes beyond them, never beyond the block (blocks are multiples of 8 bytes).
  unsigned long GetDWordAt(long index) const;
  // Stores the low 32 bits of `value` there, under the same rule; in the style KVBLOB_SZ the zero
  // byte behind the data is written again afterwards.
  void SetDWordAt(long index, unsigned long value);

 protected:
  // Gives the blob a block for `count` bytes in `style` (count + 1 bytes in KVBLOB_SZ) and sets
  // count and style; in KVBLOB_SZ the zero byte is written behind the data.
  //   - count 0: no block, the pointer null; true.
  //   - the block there is of the class the new size needs: it stays; false (nothing moved).
  //   - else a new (zeroed) block of that class; true.
  // True means that the old block, if there was one, is now the caller's: it copies from it what
  // it needs and hands it to Free with the old count and style. A size no class holds reports
  // "pogranNew != NULL" and changes nothing (false).
  bool Alloc(long count, unsigned long style);
  // Gives back the block `data` (may be null) that was taken for `count` bytes in `style`: the class
  // is found from them, which is why the old values must be passed.
  void Free(unsigned char* data, long count, unsigned long style);
  // Writes the zero byte behind the data in the style KVBLOB_SZ (nothing for an empty blob).
  void SetTerminatingZero();

 private:
  enum class Take { kKept, kMoved, kRefused };
  // Alloc without the zero byte: the callers that copy write it once their copy is done, since a
  // source inside the kept block may still need the byte at that place.
  Take _Take(long count, unsigned long style);
  // SetByteCount; false when the size was refused.
  bool _Resize(long count);
  static long _PhysicalSize(long count, unsigned long style) {
    return style == KVBLOB_SZ ? count + 1 : count;
  }

  unsigned char* m_pbData = nullptr;  // the bytes, owned; null for an empty blob
  std::int32_t m_cBytes = 0;          // data bytes, the zero byte of KVBLOB_SZ not counted
  std::uint32_t m_dwStyle;            // KVBLOB_NORMAL or KVBLOB_SZ
};

// Reads a list of decimal byte values into `blob`, which keeps its style. The text is trimmed on
// both sides (blanks, tabs, line feeds, carriage returns); the blob's byte count is then set to
// half the text's length, as by SetByteCount, and each token the text splits into at blanks, tabs
// and line feeds is read as a decimal number and its low 8 bits are appended. The count set first
// stays in front: "1 2 3" gives 2 bytes (the first bytes of what the blob held, else zeros from a
// fresh block), then 1, 2 and 3. A token is read as atoi of a 32-bit int reads it: a sign and
// digits, anything behind them ignored, a value beyond 32 bits clamped ("300" gives 44, "x" 0).
// This is not the reverse of KvMemDump2String (lib/foundation/kvhex.h).
// Declared with KvBlob rather than beside KvMemDump2String: it works on a KvBlob, a class of the
// system layer, and so the foundation's headers name nothing of the layer above them.
KVCLASS_API void KvMemDumpString2Blob(KvString text, KvBlob& blob);
