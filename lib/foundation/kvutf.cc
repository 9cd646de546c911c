#include "lib/foundation/kvutf.h"

namespace {

// Units of the bytes 0x80 .. 0x9F in code page 1252; its five open places read as a blank.
const unsigned short* AnsiToUc16Map() {
  static const unsigned short _AnsiToUc16Map[32] = {
      0x20AC, 0x0020, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,  // 0x80
      0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x0020, 0x017D, 0x0020,  // 0x88
      0x0020, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // 0x90
      0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x0020, 0x017E, 0x0178,  // 0x98
  };
  return _AnsiToUc16Map;
}

}  // namespace

unsigned short KvAnsiToUc16Char(unsigned char b) {
  return b >= 0x80 && b <= 0x9F ? AnsiToUc16Map()[b - 0x80] : b;
}

long AnsiToUc16(unsigned short* out, const char* text, long n) {
  if (out == nullptr) return 0;
  long i = 0;
  if (text != nullptr)
    for (; i < n && text[i] != '\0'; ++i) out[i] = KvAnsiToUc16Char(static_cast<unsigned char>(text[i]));
  out[i] = 0;
  return i + 1;
}

int Uc32ToUtf8Bytes(std::uint32_t c) {
  if (c < 0x80) return 1;
  if (c < 0x800) return 2;
  if (c < 0x10000) return 3;
  if (c < 0x200000) return 4;
  if (c < 0x4000000) return 5;
  return c <= 0x7FFFFFFF ? 6 : 0;
}

int Uc32ToUtf8(std::uint32_t c, char* out) {
  if (c == 0) {
    out[0] = '\0';
    return 0;
  }
  const int n = Uc32ToUtf8Bytes(c);
  if (n == 0) return -1;
  if (n == 1) {
    out[0] = static_cast<char>(c);
    return 1;
  }
  for (int i = n - 1; i > 0; --i, c >>= 6) out[i] = static_cast<char>(0x80 | (c & 0x3F));
  // The lead byte: n one-bits, a zero, then the highest bits of c.
  out[0] = static_cast<char>((0xFF00u >> n) | c);
  return n;
}

long Uc16ToUtf8(char* out, const unsigned short* in, long size) {
  if (out == nullptr || size <= 0) return 0;
  long used = 0;
  if (in != nullptr) {
    for (; *in != 0; ++in) {
      const int n = Uc32ToUtf8Bytes(*in);
      if (used + n > size - 1) break;
      Uc32ToUtf8(*in, out + used);
      used += n;
    }
  }
  out[used] = '\0';
  return used + 1;
}

int MbLen(const char* p) {
  const unsigned char b = static_cast<unsigned char>(*p);
  if (b == 0) return 0;
  if (b < 0x80) return 1;
  if (b < 0xC0) return -1;
  if (b < 0xE0) return 2;
  if (b < 0xF0) return 3;
  if (b < 0xF8) return 4;
  if (b < 0xFC) return 5;
  return b < 0xFE ? 6 : -1;
}

long MbsLen(const char* p) {
  long count = 0;
  for (int n; (n = MbLen(p)) > 0; ++count) {
    for (int i = 1; i < n; ++i)
      if (p[i] == '\0') return count;  // cut short by the end of the text
    p += n;
  }
  return count;
}
