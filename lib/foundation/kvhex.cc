#include "lib/foundation/kvhex.h"

#include <cstdio>
#include <cstring>

#include "lib/foundation/kvstring.h"
#include "platform/memprobe.h"

namespace {

constexpr char kDigits[] = "0123456789ABCDEF";

// The value of a hexadecimal digit, or -1.
inline int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// Reads exactly `digits` digits into a 32-bit value; false at a bad one.
bool ReadDigits(const char* text, int digits, std::uint32_t* value) {
  std::uint32_t v = 0;
  for (int i = 0; i < digits; ++i) {
    const int d = DigitValue(text[i]);
    if (d < 0) return false;  // the NUL is no digit either, so nothing past it is read
    v = v << 4 | static_cast<std::uint32_t>(d);
  }
  *value = v;
  return true;
}

void WriteDigits(std::uint32_t v, char* out) {
  for (int i = 7; i >= 0; --i, v >>= 4) out[i] = kDigits[v & 0xF];
}

}  // namespace

void KvUnsignedToHex(const void* p, long n, char* out) {
  const auto* bytes = static_cast<const unsigned char*>(p);
  for (long i = n - 1; i >= 0; --i) {
    *out++ = kDigits[bytes[i] >> 4];
    *out++ = kDigits[bytes[i] & 0xF];
  }
}

void KvUnsignedToHexSz(const void* p, long n, char* out) {
  KvUnsignedToHex(p, n, out);
  out[n > 0 ? 2 * n : 0] = '\0';
}

bool KvHexToUnsigned(void* p, long n, const char* text) {
  auto* bytes = static_cast<unsigned char*>(p);
  for (long i = n - 1; i >= 0; --i) {
    const int hi = text != nullptr ? DigitValue(text[0]) : -1;
    const int lo = hi >= 0 ? DigitValue(text[1]) : -1;
    if (lo < 0) {
      std::memset(bytes, 0xFF, static_cast<std::size_t>(n));
      return false;
    }
    bytes[i] |= static_cast<unsigned char>(hi << 4 | lo);
    text += 2;
  }
  return true;
}

void ULong32ToHex(std::uint32_t ul, char* out) { WriteDigits(ul, out); }

void ULong32ToHexSz(std::uint32_t ul, char* out) {
  WriteDigits(ul, out);
  out[8] = '\0';
}

bool HexToULong32(std::uint32_t& ul, const char* text) {
  if (text != nullptr && ReadDigits(text, 8, &ul)) return true;
  ul = 0xFFFFFFFFu;
  return false;
}

void ULong64ToHex(std::uint32_t high, std::uint32_t low, char* out) {
  WriteDigits(high, out);
  WriteDigits(low, out + 8);
}

void ULong64ToHexSz(std::uint32_t high, std::uint32_t low, char* out) {
  ULong64ToHex(high, low, out);
  out[16] = '\0';
}

bool HexToULong64(std::uint32_t& high, std::uint32_t& low, const char* text) {
  std::uint32_t h = 0, l = 0;
  if (text != nullptr && ReadDigits(text, 8, &h) && ReadDigits(text + 8, 8, &l)) {
    high = h;
    low = l;
    return true;
  }
  high = low = 0xFFFFFFFFu;
  return false;
}

KvString KvMemDump2String(const void* p, long n) {
  char head[32];
  // The count is printed as the 32-bit number it always was.
  std::snprintf(head, sizeof head, "%d Bytes: ", static_cast<std::int32_t>(n));
  KvString text(head);
  if (n <= 0) return text;
  // About 3.3 bytes of text a byte: take the buffer once.
  text.AllocIfNecessary(std::strlen(head) + static_cast<std::size_t>(n) * 3 + static_cast<std::size_t>(n) / 4 + 2);
  const kvd::platform::MemoryMap map;
  const auto* bytes = static_cast<const unsigned char*>(p);
  for (long i = 0; i < n; ++i) {
    const kvd::platform::MemoryAccess access = map.At(bytes + i);
    char cell[8];
    if (access.readable) {
      std::snprintf(cell, sizeof cell, "%2.2x%c", bytes[i], access.writable ? ' ' : '*');
    } else {
      std::memcpy(cell, "?? ", 4);
    }
    text += cell;
    if (i % 4 == 3) text += ' ';
    if (i % 16 == 15) text += '\n';
  }
  if (n % 16 != 0) text += '\n';
  return text;
}
