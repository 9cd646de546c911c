#include "engine/cdx_page.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "engine/codec.h"

namespace kvd::engine {

namespace {

unsigned BitsFor(std::uint64_t v) {
  unsigned b = 0;
  while (v) {
    ++b;
    v >>= 1;
  }
  return b;
}

// Leading bytes key b shares with key a.
unsigned SharedPrefix(const std::string& a, const std::string& b) {
  unsigned n = 0;
  while (n < a.size() && n < b.size() && a[n] == b[n]) ++n;
  return n;
}

unsigned TrailingFill(const std::string& k, unsigned char fill) {
  unsigned n = 0;
  while (n < k.size() && static_cast<unsigned char>(k[k.size() - 1 - n]) == fill) ++n;
  return n;
}

// How key `key` is stored after `prev` (null for the first key of a page): the bytes it repeats
// from the previous key, the fill bytes it ends with, and the bytes of its own in the key text.
// The repeated bytes never reach into the previous key's fill: the format allows it, but some
// readers rebuild that fill with zero bytes and would copy those into this key. Keeping the count
// below costs a byte or two of text for keys that follow a shorter key with inner blanks.
struct LeafKeySplit {
  unsigned dup, trail, own;
};

// The same, given the fill bytes the previous key ends with (`prev_trail`, from its own split): a
// walk over a page's keys in order needs each key's trailing fill once.
LeafKeySplit SplitAfter(const std::string* prev, unsigned prev_trail, const std::string& key, const CdxKeyFormat& fmt) {
  LeafKeySplit s;
  s.trail = TrailingFill(key, fmt.fill);
  s.dup = 0;
  if (prev != nullptr) {
    s.dup = SharedPrefix(*prev, key);
    const unsigned prev_own_end = fmt.key_len - std::min<unsigned>(fmt.key_len, prev_trail);
    s.dup = std::min(s.dup, prev_own_end);
  }
  if (s.dup + s.trail > fmt.key_len) s.dup = fmt.key_len - s.trail;
  s.own = fmt.key_len - s.dup - s.trail;
  return s;
}

LeafKeySplit SplitLeafKey(const std::string* prev, const std::string& key, const CdxKeyFormat& fmt) {
  return SplitAfter(prev, prev != nullptr ? TrailingFill(*prev, fmt.fill) : 0, key, fmt);
}

// Most entries a leaf can hold: each takes at least one byte after the page head.
constexpr std::size_t kMaxLeafEntries = cdx::kPageSize - cdx::kLeafHead;

struct LeafWidths {
  unsigned rn, dc, tc, e;
};

// Widths for a leaf: the duplicate and trailing counts get as many bits as the key length needs,
// the record number the rest of the smallest whole number of bytes that holds the largest record
// number present.
LeafWidths ChooseWidths(std::uint32_t max_recno, unsigned key_len) {
  LeafWidths w;
  w.dc = w.tc = std::max(1u, BitsFor(key_len));
  const unsigned need = std::max(1u, BitsFor(max_recno));
  w.e = (need + w.dc + w.tc + 7) / 8;
  w.rn = 8 * w.e - w.dc - w.tc;
  return w;
}

}  // namespace

unsigned LeafEntryWidth(std::uint32_t max_recno, unsigned key_len) { return ChooseWidths(max_recno, key_len).e; }

unsigned LeafOwnBytes(const std::string* prev, const std::string& key, const CdxKeyFormat& fmt) {
  return SplitLeafKey(prev, key, fmt).own;
}

std::size_t LeafBytes(const std::vector<CdxEntry>& entries, std::size_t first, std::size_t count,
                      const CdxKeyFormat& fmt) {
  std::uint32_t max_rec = 0;
  std::size_t text = 0;
  unsigned prev_trail = 0;
  for (std::size_t i = first; i < first + count; ++i) {
    max_rec = std::max(max_rec, entries[i].recno);
    const LeafKeySplit k = SplitAfter(i == first ? nullptr : &entries[i - 1].key, prev_trail, entries[i].key, fmt);
    prev_trail = k.trail;
    text += k.own;
  }
  return cdx::kLeafHead + count * ChooseWidths(max_rec, fmt.key_len).e + text;
}

Status DecodeCdxPage(const unsigned char* p, std::uint32_t offset, const CdxKeyFormat& fmt,
                     std::uint64_t file_size, std::string_view file, CdxPage* out) {
  out->offset = offset;
  out->attr = GetLE16(p + cdx::kOffAttr);
  const unsigned count = GetLE16(p + cdx::kOffCount);
  out->left = GetLE32(p + cdx::kOffLeft);
  out->right = GetLE32(p + cdx::kOffRight);
  out->entries.clear();
  // Bits 0x01 root and 0x02 leaf; some writers also set 0x04 on pages of their own tags.
  if (out->attr > 7) return KVD_CORRUPT(file, offset, "index page with unknown attributes");
  const unsigned klen = fmt.key_len;
  if (klen == 0 || klen > cdx::kMaxKeyLen) return KVD_CORRUPT(file, offset, "index key length out of range");

  if (!out->leaf()) {
    if (cdx::kInteriorHead + static_cast<std::size_t>(count) * (klen + 8) > cdx::kPageSize)
      return KVD_CORRUPT(file, offset + cdx::kOffCount, "interior page holds more entries than fit");
    if (count == 0) return KVD_CORRUPT(file, offset + cdx::kOffCount, "interior page without entries");
    out->entries.resize(count);
    const unsigned char* e = p + cdx::kInteriorHead;
    for (unsigned i = 0; i < count; ++i, e += klen + 8) {
      CdxEntry& x = out->entries[i];
      x.key.assign(reinterpret_cast<const char*>(e), klen);
      x.recno = GetBE32(e + klen);
      x.child = GetBE32(e + klen + 4);
      if (x.child % cdx::kPageSize != 0 || x.child < cdx::kPageSize ||
          static_cast<std::uint64_t>(x.child) + cdx::kPageSize > file_size)
        return KVD_CORRUPT(file, offset + (e - p) + klen + 4, "child page outside the index file");
    }
    return Status::Ok();
  }

  const unsigned rn = p[cdx::kOffRecBits], dc = p[cdx::kOffDupBits], tc = p[cdx::kOffTrailBits];
  const unsigned ebytes = p[cdx::kOffEntryBytes];
  if (ebytes == 0 || ebytes > 8 || rn == 0 || rn > 32 || dc > 16 || tc > 16 || rn + dc + tc > 8 * ebytes)
    return KVD_CORRUPT(file, offset + cdx::kOffRecBits, "leaf entry widths out of range");
  const std::size_t entries_end = cdx::kLeafHead + static_cast<std::size_t>(count) * ebytes;
  if (entries_end > cdx::kPageSize) return KVD_CORRUPT(file, offset + cdx::kOffCount, "leaf holds more entries than fit");
  out->entries.resize(count);
  std::size_t text_pos = cdx::kPageSize;
  const std::uint64_t rmask = (rn == 64 ? ~0ull : (1ull << rn) - 1);
  for (unsigned i = 0; i < count; ++i) {
    const unsigned char* e = p + cdx::kLeafHead + static_cast<std::size_t>(i) * ebytes;
    std::uint64_t v = 0;
    for (unsigned b = 0; b < ebytes; ++b) v |= static_cast<std::uint64_t>(e[b]) << (8 * b);
    CdxEntry& x = out->entries[i];
    x.recno = static_cast<std::uint32_t>(v & rmask);
    unsigned dup = static_cast<unsigned>((v >> rn) & ((1ull << dc) - 1));
    const unsigned trail = static_cast<unsigned>((v >> (rn + dc)) & ((1ull << tc) - 1));
    if (i == 0) dup = 0;  // the first key of a page stands alone whatever its count says
    if (dup + trail > klen) return KVD_CORRUPT(file, offset + (e - p), "leaf key counts exceed the key length");
    const unsigned own = klen - dup - trail;
    if (text_pos < entries_end + own) return KVD_CORRUPT(file, offset + (e - p), "leaf key text runs into the entries");
    text_pos -= own;
    x.key.resize(klen);
    if (dup) std::memcpy(x.key.data(), out->entries[i - 1].key.data(), dup);
    std::memcpy(x.key.data() + dup, p + text_pos, own);
    std::memset(x.key.data() + dup + own, fmt.fill, trail);
  }
  return Status::Ok();
}

bool EncodeCdxPage(const CdxPage& page, const CdxKeyFormat& fmt, unsigned char* out) {
  std::memset(out, 0, cdx::kPageSize);
  PutLE16(out + cdx::kOffAttr, page.attr);
  PutLE16(out + cdx::kOffCount, static_cast<std::uint16_t>(page.entries.size()));
  PutLE32(out + cdx::kOffLeft, page.left);
  PutLE32(out + cdx::kOffRight, page.right);
  const unsigned klen = fmt.key_len;
  if (!page.leaf()) {
    if (page.entries.size() > InteriorCapacity(fmt)) return false;
    unsigned char* e = out + cdx::kInteriorHead;
    for (const CdxEntry& x : page.entries) {
      std::memcpy(e, x.key.data(), klen);
      PutBE32(e + klen, x.recno);
      PutBE32(e + klen + 4, x.child);
      e += klen + 8;
    }
    return true;
  }
  // Each key's split once: first to see whether the page fits, then to write it.
  const std::size_t n = page.entries.size();
  if (n > kMaxLeafEntries) return false;
  std::array<LeafKeySplit, kMaxLeafEntries> splits;
  std::uint32_t max_rec = 0;
  std::size_t text = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const CdxEntry& x = page.entries[i];
    max_rec = std::max(max_rec, x.recno);
    splits[i] = SplitAfter(i == 0 ? nullptr : &page.entries[i - 1].key, i == 0 ? 0 : splits[i - 1].trail, x.key, fmt);
    text += splits[i].own;
  }
  const LeafWidths w = ChooseWidths(max_rec, klen);
  if (cdx::kLeafHead + n * w.e + text > cdx::kPageSize) return false;
  out[cdx::kOffRecBits] = static_cast<unsigned char>(w.rn);
  out[cdx::kOffDupBits] = static_cast<unsigned char>(w.dc);
  out[cdx::kOffTrailBits] = static_cast<unsigned char>(w.tc);
  out[cdx::kOffEntryBytes] = static_cast<unsigned char>(w.e);
  PutLE32(out + cdx::kOffRecMask, w.rn >= 32 ? 0xFFFFFFFFu : (1u << w.rn) - 1);
  out[cdx::kOffDupMask] = static_cast<unsigned char>((1u << w.dc) - 1);
  out[cdx::kOffTrailMask] = static_cast<unsigned char>((1u << w.tc) - 1);
  std::size_t text_pos = cdx::kPageSize;
  for (std::size_t i = 0; i < n; ++i) {
    const CdxEntry& x = page.entries[i];
    const LeafKeySplit& k = splits[i];
    text_pos -= k.own;
    std::memcpy(out + text_pos, x.key.data() + k.dup, k.own);
    const std::uint64_t v = static_cast<std::uint64_t>(x.recno) | (static_cast<std::uint64_t>(k.dup) << w.rn) |
                            (static_cast<std::uint64_t>(k.trail) << (w.rn + w.dc));
    unsigned char* e = out + cdx::kLeafHead + i * w.e;
    for (unsigned b = 0; b < w.e; ++b) e[b] = static_cast<unsigned char>(v >> (8 * b));
  }
  PutLE16(out + cdx::kOffFree, static_cast<std::uint16_t>(text_pos - (cdx::kLeafHead + page.entries.size() * w.e)));
  return true;
}

}  // namespace kvd::engine
