// Fuzz target: the class library's text parsers. The first byte of the input picks the code page;
// the rest, split at its first NUL, is a name and a pattern (or hex text, or a text to walk).
//   - HexToULong32, HexToULong64 and KvHexToUnsigned succeed exactly when the digits they read are
//     all hexadecimal, and then write them back in upper case; on failure every byte is 0xFF.
//   - CheckShortWildCard is CheckAsteriskWildCard with a '*' behind the pattern; a pattern free of
//     '*' and '?' matches only itself; every name matches itself as a pattern.
//   - the multi-byte walks stay inside the text and on character boundaries, in every code page,
//     and KvString's tokens and replacements give back the text they took apart.
//   - MbsLen and MbLen never read past the NUL (AddressSanitizer watches the copy's end).
//   - KvMemDumpString2Blob gives half the trimmed text's length in zeroed bytes, then one byte per
//     decimal token, as a byte-by-byte model reads them where separators are single bytes (1252,
//     UTF-8); in the double-byte pages, where a blank may be the second byte of a character, only
//     the bounds are checked.
//
// Built as a libFuzzer target (fuzz_text) with KVD_FUZZ, else linked with replay_main.cc into
// fuzz_replay_text, which runs every file of corpus/text through the same function as a test.
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "lib/foundation/kvhex.h"
#include "lib/foundation/kvmbcs.h"
#include "lib/foundation/kvstring.h"
#include "lib/foundation/kvtext.h"
#include "lib/foundation/kvutf.h"
#include "lib/system/kvblob.h"

bool g_fuzz_report = false;

namespace {

using namespace kvd::mbcs;

void Check(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "text fuzz: %s\n", what);
    std::abort();
  }
}

bool AllHex(const char* s, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i)
    if (s[i] == '\0' || !std::isxdigit(static_cast<unsigned char>(s[i]))) return false;
  return true;
}

std::string Upper(const char* s, std::size_t n) {
  std::string u(s, n);
  for (char& c : u) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return u;
}

void HexForms(const std::string& text) {
  const char* s = text.c_str();
  char out[80];
  std::uint32_t ul = 0;
  const bool ok32 = HexToULong32(ul, s);
  Check(ok32 == AllHex(s, 8), "HexToULong32 decides by the first 8 digits");
  if (ok32) {
    ULong32ToHexSz(ul, out);
    Check(Upper(s, 8) == out, "HexToULong32 round trip");
  } else {
    Check(ul == 0xFFFFFFFFu, "HexToULong32 failure value");
  }
  std::uint32_t high = 0, low = 0;
  const bool ok64 = HexToULong64(high, low, s);
  Check(ok64 == AllHex(s, 16), "HexToULong64 decides by the first 16 digits");
  if (ok64) {
    ULong64ToHexSz(high, low, out);
    Check(Upper(s, 16) == out, "HexToULong64 round trip");
  } else {
    Check(high == 0xFFFFFFFFu && low == 0xFFFFFFFFu, "HexToULong64 failure value");
  }
  const long n = static_cast<long>(std::min<std::size_t>(text.size() / 2 + 1, 32));
  unsigned char bytes[32] = {};
  const bool ok = KvHexToUnsigned(bytes, n, s);
  Check(ok == AllHex(s, static_cast<std::size_t>(2 * n)), "KvHexToUnsigned decides by 2n digits");
  if (ok) {
    KvUnsignedToHexSz(bytes, n, out);
    Check(Upper(s, static_cast<std::size_t>(2 * n)) == out, "KvHexToUnsigned round trip");
  } else {
    for (long i = 0; i < n; ++i) Check(bytes[i] == 0xFF, "KvHexToUnsigned failure value");
  }
}

void WildCards(const std::string& name, const std::string& pattern) {
  const bool asterisk = CheckAsteriskWildCard(name.c_str(), pattern.c_str());
  const bool shorter = CheckShortWildCard(name.c_str(), pattern.c_str());
  Check(shorter == (pattern.empty() || CheckAsteriskWildCard(name.c_str(), (pattern + "*").c_str())),
        "short wild card is the pattern with a '*' behind");
  Check(!asterisk || shorter, "a match is a prefix match");
  if (pattern.find_first_of("*?") == std::string::npos) Check(asterisk == (name == pattern), "plain pattern");
  Check(CheckAsteriskWildCard(name.c_str(), name.c_str()), "a name matches itself");
}

void Walks(const std::string& text, const std::string& set) {
  const char* s = text.c_str();
  const std::size_t len = std::strlen(s);
  // Character boundaries of the text.
  std::string boundary(len + 1, '\0');
  for (std::size_t i = 0, n; i <= len; i += n) {
    boundary[i] = 1;
    n = _mbclen(s + i);
    if (n == 0) break;
    Check(i + n <= len, "a character stays inside the text");
  }
  auto on_boundary = [&](const char* p) { return p == nullptr || (p >= s && p <= s + len && boundary[p - s]); };
  Check(on_boundary(_mbschr(s, '\\')), "_mbschr on a boundary");
  Check(on_boundary(_mbsrchr(s, '.')), "_mbsrchr on a boundary");
  Check(on_boundary(_mbsstr(s, set.c_str())), "_mbsstr on a boundary");
  Check(boundary[_mbsspn(s, set.c_str())] != 0, "_mbsspn on a boundary");
  Check(boundary[_mbscspn(s, set.c_str())] != 0, "_mbscspn on a boundary");
  char copy[64];
  const std::size_t n = std::min<std::size_t>(len, sizeof copy - 1);
  _mbsnbcpy(copy, s, n);
  copy[n] = '\0';
  Check(boundary[std::strlen(copy)] != 0, "_mbsnbcpy ends on a boundary");
  std::string upper = text.substr(0, len);
  _mbsupr(upper.data());
  Check(std::strlen(upper.c_str()) == len, "case change keeps the length");

  // Tokens taken one by one, with their separators, give the text back.
  if (!set.empty() && set.find('\0') == std::string::npos) {
    KvString rest(s);
    std::string joined;
    for (int guard = 0; rest.IsNotEmpty(); ++guard) {
      Check(guard <= static_cast<int>(len), "ExtractTokenStrict ends");
      const long before = rest.GetLength();
      joined += static_cast<const char*>(rest.ExtractTokenStrict(set.c_str()));
      Check(rest.GetLength() < before, "every token takes something");
    }
    KvString replaced(s);
    replaced.Replace(set.c_str(), "");
    Check(replaced.GetLength() <= static_cast<long>(len), "removing occurrences never lengthens");
  }
  Check(MbsLen(s) <= static_cast<long>(len), "MbsLen counts at most a character a byte");
}

// atoi of a 32-bit int, the long way: white space, a sign, digits, clamped to 32 bits.
std::int32_t ModelAtoi(const std::string& token) {
  std::size_t k = 0;
  while (k < token.size() && std::strchr(" \t\n\v\f\r", token[k]) != nullptr && token[k] != '\0') ++k;
  bool negative = false;
  if (k < token.size() && (token[k] == '+' || token[k] == '-')) negative = token[k++] == '-';
  std::int64_t v = 0;
  for (; k < token.size() && token[k] >= '0' && token[k] <= '9'; ++k) v = std::min<std::int64_t>(v * 10 + (token[k] - '0'), std::int64_t{1} << 32);
  if (negative) v = -v;
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(v, INT32_MIN, INT32_MAX));
}

void DecimalBytes(const std::string& text) {
  KvBlob blob;
  KvMemDumpString2Blob(text.c_str(), blob);
  const char* const kTrimmed = " \t\n\r";
  const std::size_t from = text.find_first_not_of(kTrimmed), to = text.find_last_not_of(kTrimmed);
  const std::string trimmed = from == std::string::npos ? std::string() : text.substr(from, to - from + 1);
  const long room = static_cast<long>(trimmed.size() / 2);
  const long count = blob.GetByteCount();
  Check(count >= room, "KvMemDumpString2Blob makes room for half the text");
  Check(count <= room + static_cast<long>(trimmed.size() + 1) / 2, "a token takes two bytes of text at least");
  Check((count == 0) == (blob.GetBytes() == nullptr), "only an empty blob has no block");
  for (long i = 0; i < room; ++i) Check(blob.GetBytes()[i] == 0, "the room comes from a zeroed block");
  if (_getmbcp() != kCodePageWestern && _getmbcp() != kCodePageUtf8) return;
  std::vector<unsigned char> expected;
  const char* const kSeparators = " \t\n";
  for (std::size_t i = 0; i < trimmed.size();) {
    std::size_t end = trimmed.find_first_of(kSeparators, i);
    if (end == std::string::npos) end = trimmed.size();
    expected.push_back(static_cast<unsigned char>(static_cast<std::uint32_t>(ModelAtoi(trimmed.substr(i, end - i))) & 0xFF));
    i = trimmed.find_first_not_of(kSeparators, end);
    if (i == std::string::npos) break;
  }
  Check(count == room + static_cast<long>(expected.size()), "one byte per token");
  for (std::size_t i = 0; i < expected.size(); ++i)
    Check(blob.GetBytes()[room + static_cast<long>(i)] == expected[i], "a token's low 8 bits");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // An arena of its own for the strings (the class library alone reserves none).
  static const bool arena = [] {
    KvGranularity::_AllocMem(std::size_t{64} << 20);
    return true;
  }();
  (void)arena;
  if (size == 0) return 0;
  static const int kPages[] = {kCodePageWestern, kCodePageUtf8, kCodePageJapanese, kCodePageSimplifiedChinese,
                               kCodePageKorean, kCodePageTraditionalChinese};
  _setmbcp(kPages[data[0] % 6]);
  const std::string rest(reinterpret_cast<const char*>(data + 1), size - 1);
  const std::size_t nul = rest.find('\0');
  const std::string first = rest.substr(0, nul);
  const std::string second = nul == std::string::npos ? std::string() : rest.substr(nul + 1);
  const std::string pattern = second.substr(0, second.find('\0'));
  if (g_fuzz_report) std::fprintf(stderr, "  code page %d, %zu and %zu bytes\n", _getmbcp(), first.size(), pattern.size());
  HexForms(first);
  WildCards(first, pattern);
  Walks(first, pattern.substr(0, 8));
  DecimalBytes(first);
  _setmbcp(kCodePageWestern);
  return 0;
}
