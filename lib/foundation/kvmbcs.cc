#include "lib/foundation/kvmbcs.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>

namespace kvd::mbcs {
namespace {

std::atomic<int> g_codepage{kCodePageWestern};

// What the routines need to know of a code page.
enum class Kind { kSingle, kDouble, kUtf8 };

struct Page {
  Kind kind;
  std::array<bool, 256> lead;  // double-byte pages: lead bytes
};

constexpr Page MakeDouble(unsigned first_lo, unsigned first_hi, unsigned second_lo, unsigned second_hi) {
  Page p{Kind::kDouble, {}};
  for (unsigned b = first_lo; b <= first_hi; ++b) p.lead[b] = true;
  for (unsigned b = second_lo; b <= second_hi; ++b) p.lead[b] = true;
  return p;
}

constexpr Page kSingle{Kind::kSingle, {}};
constexpr Page kUtf8{Kind::kUtf8, {}};
constexpr Page k932 = MakeDouble(0x81, 0x9F, 0xE0, 0xFC);
constexpr Page k936 = MakeDouble(0x81, 0xFE, 0x81, 0xFE);  // also 949 and 950

const Page& Current() {
  switch (g_codepage.load(std::memory_order_relaxed)) {
    case kCodePageUtf8: return kUtf8;
    case kCodePageJapanese: return k932;
    case kCodePageSimplifiedChinese:
    case kCodePageKorean:
    case kCodePageTraditionalChinese: return k936;
    default: return kSingle;
  }
}

using Byte = unsigned char;
inline Byte At(const char* p, std::size_t i = 0) { return static_cast<Byte>(p[i]); }

// Length of a UTF-8 sequence by its lead byte, 1 for a byte that leads none.
inline std::size_t Utf8LeadLen(Byte b) {
  if (b < 0xC0) return 1;
  if (b < 0xE0) return 2;
  if (b < 0xF0) return 3;
  if (b < 0xF8) return 4;
  if (b < 0xFC) return 5;
  return b < 0xFE ? 6 : 1;
}

// Bytes of the character at p under `page`; 0 at the NUL. A sequence cut by the NUL, a double-byte
// lead before the NUL, or a UTF-8 lead without its continuation bytes is one byte.
inline std::size_t CharLen(const Page& page, const char* p) {
  const Byte b = At(p);
  if (b == 0) return 0;
  if (b < 0x80) return 1;
  switch (page.kind) {
    case Kind::kSingle: return 1;
    case Kind::kDouble: return page.lead[b] && p[1] != '\0' ? 2 : 1;
    case Kind::kUtf8: {
      const std::size_t n = Utf8LeadLen(b);
      for (std::size_t i = 1; i < n; ++i)
        if ((At(p, i) & 0xC0) != 0x80) return 1;
      return n;
    }
  }
  return 1;
}

// A malformed UTF-8 byte gets a code no code point has, so it matches only itself.
constexpr std::uint32_t kRawByte = 0x80000000u;

// The code of the character of `n` bytes at p (see the header).
inline std::uint32_t CharCode(const Page& page, const char* p, std::size_t n) {
  if (n == 1) {
    const Byte b = At(p);
    return page.kind == Kind::kUtf8 && b >= 0x80 ? kRawByte | b : b;
  }
  if (page.kind == Kind::kDouble) return static_cast<std::uint32_t>(At(p)) << 8 | At(p, 1);
  std::uint32_t cp = At(p) & (0x7Fu >> n);
  for (std::size_t i = 1; i < n; ++i) cp = cp << 6 | (At(p, i) & 0x3Fu);
  return cp;
}

// ---- case

// The letters of 1252 beyond ASCII that have a partner of the other case: upper, lower.
constexpr std::pair<Byte, Byte> k1252Pairs[] = {{0x8A, 0x9A}, {0x8C, 0x9C}, {0x8E, 0x9E}, {0x9F, 0xFF}};

struct CaseTables {
  std::array<Byte, 256> upper_ascii, lower_ascii, upper_1252, lower_1252;
};

constexpr CaseTables MakeCaseTables() {
  CaseTables t{};
  for (unsigned b = 0; b < 256; ++b) {
    t.upper_ascii[b] = t.lower_ascii[b] = t.upper_1252[b] = t.lower_1252[b] = static_cast<Byte>(b);
  }
  for (unsigned b = 'a'; b <= 'z'; ++b) {
    t.upper_ascii[b] = t.upper_1252[b] = static_cast<Byte>(b - 0x20);
    t.lower_ascii[b - 0x20] = t.lower_1252[b - 0x20] = static_cast<Byte>(b);
  }
  for (unsigned b = 0xE0; b <= 0xFE; ++b) {
    if (b == 0xF7) continue;  // the division sign; its twin 0xD7 is the multiplication sign
    t.upper_1252[b] = static_cast<Byte>(b - 0x20);
    t.lower_1252[b - 0x20] = static_cast<Byte>(b);
  }
  for (auto [up, low] : k1252Pairs) {
    t.upper_1252[low] = up;
    t.lower_1252[up] = low;
  }
  return t;
}
constexpr CaseTables kCase = MakeCaseTables();

// The same letters as code points, for UTF-8. Every pair keeps its encoded length (two bytes).
std::uint32_t UpperCodePoint(std::uint32_t cp) {
  if (cp < 0x80) return kCase.upper_ascii[cp];
  if (cp >= 0xE0 && cp <= 0xFE && cp != 0xF7) return cp - 0x20;
  switch (cp) {
    case 0xFF: return 0x178;
    case 0x153: return 0x152;
    case 0x161: return 0x160;
    case 0x17E: return 0x17D;
    default: return cp;
  }
}
std::uint32_t LowerCodePoint(std::uint32_t cp) {
  if (cp < 0x80) return kCase.lower_ascii[cp];
  if (cp >= 0xC0 && cp <= 0xDE && cp != 0xD7) return cp + 0x20;
  switch (cp) {
    case 0x178: return 0xFF;
    case 0x152: return 0x153;
    case 0x160: return 0x161;
    case 0x17D: return 0x17E;
    default: return cp;
  }
}

// The code of a character folded by `fold` (a single byte through a table, a UTF-8 code point
// through the code-point maps; double-byte characters unchanged).
inline std::uint32_t FoldedCode(const Page& page, const char* p, std::size_t n, bool upper) {
  const std::uint32_t code = CharCode(page, p, n);
  if (page.kind == Kind::kUtf8) {
    if (code & kRawByte) return code;
    return upper ? UpperCodePoint(code) : LowerCodePoint(code);
  }
  if (n != 1) return code;
  const auto& table = page.kind == Kind::kSingle ? (upper ? kCase.upper_1252 : kCase.lower_1252)
                                                 : (upper ? kCase.upper_ascii : kCase.lower_ascii);
  return table[code];
}

char* ChangeCase(char* s, bool upper) {
  if (s == nullptr) return s;
  const Page& page = Current();
  if (page.kind == Kind::kSingle) {
    const auto& table = upper ? kCase.upper_1252 : kCase.lower_1252;
    for (char* p = s; *p != '\0'; ++p) *p = static_cast<char>(table[At(p)]);
    return s;
  }
  for (char* p = s; *p != '\0';) {
    const std::size_t n = CharLen(page, p);
    if (n == 1 && At(p) < 0x80) {
      *p = static_cast<char>((upper ? kCase.upper_ascii : kCase.lower_ascii)[At(p)]);
    } else if (page.kind == Kind::kUtf8 && n == 2) {
      const std::uint32_t to = FoldedCode(page, p, n, upper);
      p[0] = static_cast<char>(0xC0 | (to >> 6));
      p[1] = static_cast<char>(0x80 | (to & 0x3F));
    }
    p += n;
  }
  return s;
}

// The bytes of the character `c` (see the header) under `page`, NUL-terminated, in `out`.
void EncodeChar(const Page& page, unsigned int c, char out[8]) {
  std::memset(out, 0, 8);
  if (c < 0x80 || (page.kind != Kind::kUtf8 && c <= 0xFF)) {
    out[0] = static_cast<char>(c);
  } else if (page.kind == Kind::kDouble) {
    out[0] = static_cast<char>(c >> 8);
    out[1] = static_cast<char>(c & 0xFF);
  } else if (page.kind == Kind::kUtf8 && c <= 0x7FFFFFFF) {
    std::size_t n = c < 0x800 ? 2 : c < 0x10000 ? 3 : c < 0x200000 ? 4 : c < 0x4000000 ? 5 : 6;
    for (std::size_t i = n - 1; i > 0; --i, c >>= 6) out[i] = static_cast<char>(0x80 | (c & 0x3F));
    out[0] = static_cast<char>((0xFF00u >> n) | c);
  } else {
    out[0] = static_cast<char>(c & 0xFF);  // a single-byte page: the low byte
  }
}

// True when the character at p (n bytes) is one of the characters of `set`.
bool InSet(const Page& page, const char* p, std::size_t n, const char* set) {
  for (const char* q = set; *q != '\0';) {
    const std::size_t m = CharLen(page, q);
    if (m == n && std::memcmp(p, q, n) == 0) return true;
    q += m;
  }
  return false;
}

std::size_t Span(const char* s, const char* set, bool inside) {
  if (s == nullptr) return 0;
  if (set == nullptr) set = "";
  const Page& page = Current();
  if (page.kind == Kind::kSingle) return inside ? std::strspn(s, set) : std::strcspn(s, set);
  const char* p = s;
  for (std::size_t n; (n = CharLen(page, p)) != 0; p += n)
    if (InSet(page, p, n, set) != inside) break;
  return static_cast<std::size_t>(p - s);
}

int Sign(long long d) { return d < 0 ? -1 : d > 0 ? 1 : 0; }

// Compares character by character over at most `limit` bytes.
int Compare(const char* a, const char* b, std::size_t limit, bool fold) {
  const Page& page = Current();
  std::size_t used = 0;
  while (true) {
    const std::size_t na = CharLen(page, a), nb = CharLen(page, b);
    if (used + (na > nb ? na : nb) > limit || (na == 0 && nb == 0)) return 0;
    if (na == 0 || nb == 0) return na == 0 ? -1 : 1;
    const std::uint32_t ca = fold ? FoldedCode(page, a, na, false) : CharCode(page, a, na);
    const std::uint32_t cb = fold ? FoldedCode(page, b, nb, false) : CharCode(page, b, nb);
    if (ca != cb) return ca < cb ? -1 : 1;
    a += na;
    b += nb;
    used += na > nb ? na : nb;
  }
}

}  // namespace

int _setmbcp(int codepage) {
  switch (codepage) {
    case kCodePageWestern:
    case kCodePageUtf8:
    case kCodePageJapanese:
    case kCodePageSimplifiedChinese:
    case kCodePageKorean:
    case kCodePageTraditionalChinese:
      g_codepage.store(codepage, std::memory_order_relaxed);
      return 0;
    default:
      return -1;
  }
}

int _getmbcp() { return g_codepage.load(std::memory_order_relaxed); }

bool _ismbblead(unsigned int c) {
  if (c > 0xFF) return false;
  const Page& page = Current();
  if (page.kind == Kind::kDouble) return page.lead[c];
  return page.kind == Kind::kUtf8 && c >= 0xC0 && Utf8LeadLen(static_cast<Byte>(c)) > 1;
}

std::size_t _mbclen(const char* p) { return p == nullptr ? 0 : CharLen(Current(), p); }

char* _mbschr(const char* s, unsigned int c) {
  if (s == nullptr) return nullptr;
  const Page& page = Current();
  if (c < 0x80 || (page.kind == Kind::kSingle && c <= 0xFF)) {
    if (page.kind != Kind::kDouble) return const_cast<char*>(std::strchr(s, static_cast<int>(c)));
  }
  if (c == 0) return const_cast<char*>(s + std::strlen(s));
  char want[8];
  EncodeChar(page, c, want);
  const std::size_t wn = std::strlen(want);
  for (const char* p = s; *p != '\0';) {
    const std::size_t n = CharLen(page, p);
    if (n == wn && std::memcmp(p, want, n) == 0) return const_cast<char*>(p);
    p += n;
  }
  return nullptr;
}

char* _mbsrchr(const char* s, unsigned int c) {
  if (s == nullptr) return nullptr;
  const Page& page = Current();
  if (page.kind == Kind::kSingle && c <= 0xFF) return const_cast<char*>(std::strrchr(s, static_cast<int>(c)));
  if (c == 0) return const_cast<char*>(s + std::strlen(s));
  char want[8];
  EncodeChar(page, c, want);
  const std::size_t wn = std::strlen(want);
  const char* found = nullptr;
  for (const char* p = s; *p != '\0';) {
    const std::size_t n = CharLen(page, p);
    if (n == wn && std::memcmp(p, want, n) == 0) found = p;
    p += n;
  }
  return const_cast<char*>(found);
}

char* _mbsstr(const char* s, const char* sub) {
  if (s == nullptr || sub == nullptr) return nullptr;
  const Page& page = Current();
  if (page.kind == Kind::kSingle) return const_cast<char*>(std::strstr(s, sub));
  const std::size_t m = std::strlen(sub);
  if (m == 0) return const_cast<char*>(s);
  // A candidate found by bytes counts only where a character begins: walk the characters up to it.
  const char* boundary = s;
  for (const char* hit = std::strstr(s, sub); hit != nullptr; hit = std::strstr(hit + 1, sub)) {
    while (boundary < hit) boundary += CharLen(page, boundary);
    if (boundary == hit) return const_cast<char*>(hit);
  }
  return nullptr;
}

std::size_t _mbsspn(const char* s, const char* set) { return Span(s, set, true); }
std::size_t _mbscspn(const char* s, const char* set) { return Span(s, set, false); }

char* _mbsnbcpy(char* dst, const char* src, std::size_t n) {
  if (dst == nullptr) return dst;
  const Page& page = Current();
  std::size_t used = 0;
  if (src != nullptr) {
    for (std::size_t k; (k = CharLen(page, src + used)) != 0 && used + k <= n; used += k) {
    }
    std::memmove(dst, src, used);
  }
  if (used < n) std::memset(dst + used, 0, n - used);
  return dst;
}

char* _mbsnbcat(char* dst, const char* src, std::size_t n) {
  if (dst == nullptr) return dst;
  const Page& page = Current();
  char* end = dst + std::strlen(dst);
  std::size_t used = 0;
  if (src != nullptr) {
    for (std::size_t k; (k = CharLen(page, src + used)) != 0 && used + k <= n; used += k) {
    }
    std::memmove(end, src, used);
  }
  end[used] = '\0';
  return dst;
}

char* _mbsupr(char* s) { return ChangeCase(s, true); }
char* _mbslwr(char* s) { return ChangeCase(s, false); }

int _mbscmp(const char* a, const char* b) {
  if (a == nullptr) a = "";
  if (b == nullptr) b = "";
  // Byte order is character order in single-byte pages and in UTF-8.
  if (Current().kind != Kind::kDouble) return Sign(std::strcmp(a, b));
  return Compare(a, b, static_cast<std::size_t>(-1), false);
}

int _mbsicmp(const char* a, const char* b) {
  if (a == nullptr) a = "";
  if (b == nullptr) b = "";
  return Compare(a, b, static_cast<std::size_t>(-1), true);
}

int _mbsnbcmp(const char* a, const char* b, std::size_t n) {
  if (a == nullptr) a = "";
  if (b == nullptr) b = "";
  return Compare(a, b, n, false);
}

char* _mbsset(char* s, unsigned int c) {
  if (s == nullptr) return s;
  const Page& page = Current();
  char enc[8];
  EncodeChar(page, c, enc);
  const std::size_t k = std::strlen(enc);
  const std::size_t len = std::strlen(s);
  if (k <= 1) {
    std::memset(s, enc[0], len);
    return s;
  }
  std::size_t i = 0;
  for (; i + k <= len; i += k) std::memcpy(s + i, enc, k);
  for (; i < len; ++i) s[i] = ' ';
  return s;
}

}  // namespace kvd::mbcs
