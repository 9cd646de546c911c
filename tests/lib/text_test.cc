// The free text functions: wild cards, hexadecimal forms, the memory dump, 16-bit text and UTF-8.
// Code page conversions are checked against the C library's iconv.
#include <gtest/gtest.h>
#include <iconv.h>

#include <cstring>
#include <random>
#include <string>

#include "lib/foundation/kvgran.h"
#include "lib/foundation/kvhex.h"
#include "lib/foundation/kvstring.h"
#include "lib/foundation/kvtext.h"
#include "lib/foundation/kvutf.h"

namespace {

TEST(WildCard, AsteriskOnlyAsATail) {
  EXPECT_TRUE(CheckAsteriskWildCard("ABC", "ABC"));
  EXPECT_FALSE(CheckAsteriskWildCard("ABCD", "ABC"));
  EXPECT_FALSE(CheckAsteriskWildCard("AB", "ABC"));
  EXPECT_TRUE(CheckAsteriskWildCard("AXC", "A?C"));
  EXPECT_FALSE(CheckAsteriskWildCard("AB", "AB?"));  // '?' does not take the end of the name
  EXPECT_FALSE(CheckAsteriskWildCard("abc", "ABC"));
  // Everything behind a '*' is ignored, in the pattern and in the name.
  EXPECT_TRUE(CheckAsteriskWildCard("AQQQQ", "A*B"));
  EXPECT_TRUE(CheckAsteriskWildCard("A", "A*B"));
  EXPECT_FALSE(CheckAsteriskWildCard("BA", "A*B"));
  EXPECT_TRUE(CheckAsteriskWildCard("", "*"));
  EXPECT_TRUE(CheckAsteriskWildCard("", ""));
  EXPECT_FALSE(CheckAsteriskWildCard("X", ""));
}

TEST(WildCard, ShortIsAPrefixTest) {
  EXPECT_TRUE(CheckShortWildCard("MOTOR12", "MOT"));
  EXPECT_FALSE(CheckAsteriskWildCard("MOTOR12", "MOT"));
  EXPECT_TRUE(CheckShortWildCard("MOTOR12", "M?T"));
  EXPECT_FALSE(CheckShortWildCard("MO", "MOT"));
  EXPECT_FALSE(CheckShortWildCard("MO", "MO?"));
  EXPECT_TRUE(CheckShortWildCard("anything", ""));
  EXPECT_TRUE(CheckShortWildCard("", ""));
  EXPECT_TRUE(CheckShortWildCard("ABX", "AB*Q"));
}

TEST(Hex, BytesLastToFirst) {
  const std::uint32_t v = 0x12AB34CD;
  char out[9];
  KvUnsignedToHexSz(&v, sizeof v, out);
  EXPECT_STREQ(out, "12AB34CD");  // a little-endian number reads in its natural order
  std::uint32_t back = 0;
  EXPECT_TRUE(KvHexToUnsigned(&back, sizeof back, "12ab34CD"));
  EXPECT_EQ(back, v);

  // Random values of several widths come back as they went, and an ORed target shows the OR.
  std::mt19937_64 rng(7);
  for (int i = 0; i < 200; ++i) {
    unsigned char bytes[13], again[13] = {};
    const long n = 1 + static_cast<long>(rng() % 13);
    for (auto& b : bytes) b = static_cast<unsigned char>(rng());
    char text[27];
    KvUnsignedToHexSz(bytes, n, text);
    ASSERT_EQ(std::strlen(text), static_cast<std::size_t>(2 * n));
    ASSERT_TRUE(KvHexToUnsigned(again, n, text));
    ASSERT_EQ(std::memcmp(bytes, again, static_cast<std::size_t>(n)), 0);
  }
  std::uint16_t ored = 0x0101;
  EXPECT_TRUE(KvHexToUnsigned(&ored, sizeof ored, "1010"));
  EXPECT_EQ(ored, 0x1111);

  // A bad character anywhere, the end of the text included, leaves all bytes 0xFF.
  for (const char* bad : {"12G4", "123", "", "1 34"}) {
    std::uint16_t t = 0;
    EXPECT_FALSE(KvHexToUnsigned(&t, sizeof t, bad)) << bad;
    EXPECT_EQ(t, 0xFFFF) << bad;
  }

  // A pointer goes at its full width.
  int target = 0;
  const void* p = &target;
  char ptext[2 * sizeof(void*) + 1];
  KvUnsignedToHexSz(&p, sizeof p, ptext);
  EXPECT_EQ(std::strlen(ptext), 2 * sizeof(void*));
  const void* q = nullptr;
  EXPECT_TRUE(KvHexToUnsigned(&q, sizeof q, ptext));
  EXPECT_EQ(q, p);
}

TEST(Hex, ThirtyTwoAndSixtyFourBitForms) {
  char out[17];
  std::memset(out, '#', sizeof out);
  ULong32ToHex(0xDEADBEEF, out);
  EXPECT_EQ(std::string(out, 9), "DEADBEEF#");  // no terminator
  ULong32ToHexSz(0x1F, out);
  EXPECT_STREQ(out, "0000001F");
  std::uint32_t ul = 0;
  EXPECT_TRUE(HexToULong32(ul, "cafeBABE"));
  EXPECT_EQ(ul, 0xCAFEBABEu);
  EXPECT_FALSE(HexToULong32(ul, "0000000G"));
  EXPECT_EQ(ul, 0xFFFFFFFFu);
  EXPECT_FALSE(HexToULong32(ul, "1234"));
  EXPECT_EQ(ul, 0xFFFFFFFFu);
  EXPECT_TRUE(HexToULong32(ul, "00000010trailing"));  // exactly 8 digits are read
  EXPECT_EQ(ul, 0x10u);

  ULong64ToHexSz(0x01234567, 0x89ABCDEF, out);
  EXPECT_STREQ(out, "0123456789ABCDEF");
  std::uint32_t high = 0, low = 0;
  EXPECT_TRUE(HexToULong64(high, low, "fedcba9876543210"));
  EXPECT_EQ(high, 0xFEDCBA98u);
  EXPECT_EQ(low, 0x76543210u);
  EXPECT_FALSE(HexToULong64(high, low, "0123456789ABCDEZ"));
  EXPECT_EQ(high, 0xFFFFFFFFu);
  EXPECT_EQ(low, 0xFFFFFFFFu);
}

TEST(MemDump, MarksWhatCanBeReadAndWritten) {
  unsigned char bytes[17];
  for (int i = 0; i < 17; ++i) bytes[i] = static_cast<unsigned char>(i * 17);
  const KvString dump = KvMemDump2String(bytes, 17);
  const std::string text(dump);
  EXPECT_EQ(text.rfind("17 Bytes: ", 0), 0u);
  const std::string first = text.substr(10, text.find('\n') - 10);
  EXPECT_EQ(first, "00 11 22 33  44 55 66 77  88 99 aa bb  cc dd ee ff  ");
  EXPECT_EQ(text.substr(text.find('\n') + 1), "10 \n");

  // A string literal lies in read-only memory; the arena's far end is reserved and not committed.
  static const char kReadOnly[] = "RO";
  EXPECT_EQ(std::string(KvMemDump2String(kReadOnly, 2)), "2 Bytes: 52*4f*\n");
  const char* reserved = KvGranularity::_pvBase + KvGranularity::_stMax - 4;
  EXPECT_EQ(std::string(KvMemDump2String(reserved, 4)), "4 Bytes: ?? ?? ?? ??  \n");
  EXPECT_EQ(std::string(KvMemDump2String(bytes, 0)), "0 Bytes: ");
  const KvString two_lines = KvMemDump2String(bytes, 16);
  EXPECT_EQ(std::string(two_lines).back(), '\n');
  EXPECT_EQ(std::string(two_lines).find('\n'), std::string(two_lines).size() - 1);  // a full line: no extra one
}

// What iconv makes of `in` converted from `from` to `to`; empty when it refuses.
std::string Iconv(const char* from, const char* to, const std::string& in) {
  iconv_t cd = iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) return std::string();
  std::string out(in.size() * 8 + 8, '\0');
  char* src = const_cast<char*>(in.data());
  char* dst = out.data();
  std::size_t left = in.size(), room = out.size();
  const std::size_t r = iconv(cd, &src, &left, &dst, &room);
  iconv_close(cd);
  if (r == static_cast<std::size_t>(-1)) return std::string();
  out.resize(out.size() - room);
  return out;
}

TEST(Utf, AnsiToUc16FollowsCodePage1252) {
  for (unsigned b = 1; b < 256; ++b) {
    const char text[2] = {static_cast<char>(b), '\0'};
    unsigned short out[2] = {0xFFFF, 0xFFFF};
    ASSERT_EQ(AnsiToUc16(out, text, 1), 2);
    const std::string ucs = Iconv("CP1252", "UCS-2LE", std::string(1, static_cast<char>(b)));
    if (ucs.empty()) {
      EXPECT_EQ(out[0], 0x20) << b;  // an open place of the code page
    } else {
      ASSERT_EQ(ucs.size(), 2u);
      EXPECT_EQ(out[0], static_cast<unsigned char>(ucs[0]) | static_cast<unsigned char>(ucs[1]) << 8) << b;
    }
    EXPECT_EQ(out[1], 0);
  }
  unsigned short out[8];
  EXPECT_EQ(AnsiToUc16(out, "abc\0def", 7), 4);  // stops at the NUL
  EXPECT_EQ(AnsiToUc16(out, "abcdef", 2), 3);    // or after n bytes
  EXPECT_EQ(out[2], 0);
}

TEST(Utf, EncodesAsIconvDoes) {
  std::mt19937 rng(11);
  for (int i = 0; i < 2000; ++i) {
    std::uint32_t c = 1 + rng() % 0x10FFFF;
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    char out[8];
    const int n = Uc32ToUtf8(c, out);
    ASSERT_EQ(n, Uc32ToUtf8Bytes(c));
    const std::string utf32(reinterpret_cast<const char*>(&c), 4);
    ASSERT_EQ(std::string(out, static_cast<std::size_t>(n)), Iconv("UTF-32LE", "UTF-8", utf32)) << c;
    ASSERT_EQ(MbLen(out), n);
  }
  // Beyond 0x10FFFF the first definition goes on to six bytes.
  char out[8];
  EXPECT_EQ(Uc32ToUtf8(0x7FFFFFFF, out), 6);
  EXPECT_EQ(std::string(out, 6), "\xFD\xBF\xBF\xBF\xBF\xBF");
  EXPECT_EQ(Uc32ToUtf8(0x200000, out), 5);
  EXPECT_EQ(std::string(out, 5), "\xF8\x88\x80\x80\x80");
  EXPECT_EQ(Uc32ToUtf8(0x80000000u, out), -1);
  EXPECT_EQ(Uc32ToUtf8Bytes(0x80000000u), 0);
  EXPECT_EQ(Uc32ToUtf8(0, out), 0);
  EXPECT_EQ(out[0], '\0');
  EXPECT_EQ(Uc32ToUtf8Bytes(0x7F), 1);
  EXPECT_EQ(Uc32ToUtf8Bytes(0x80), 2);
  EXPECT_EQ(Uc32ToUtf8Bytes(0x7FF), 2);
  EXPECT_EQ(Uc32ToUtf8Bytes(0x800), 3);
  EXPECT_EQ(Uc32ToUtf8Bytes(0x1FFFFF), 4);
  EXPECT_EQ(Uc32ToUtf8Bytes(0x3FFFFFF), 5);
  EXPECT_EQ(Uc32ToUtf8Bytes(0x4000000), 6);
}

TEST(Utf, SixteenBitUnitsOneByOne) {
  const unsigned short in[] = {'a', 0xE9, 0x20AC, 0xD83D, 0xDE00, 0};
  char out[32];
  EXPECT_EQ(Uc16ToUtf8(out, in, sizeof out), 1 + 2 + 3 + 3 + 3 + 1);
  EXPECT_EQ(std::string(out), "a\xC3\xA9\xE2\x82\xAC\xED\xA0\xBD\xED\xB8\x80");  // halves of a pair, each alone
  EXPECT_EQ(Uc16ToUtf8(out, in, 6), 4);  // the euro sign would pass 5 bytes: it stops before it
  EXPECT_STREQ(out, "a\xC3\xA9");
  const unsigned short empty[] = {0};
  EXPECT_EQ(Uc16ToUtf8(out, empty, sizeof out), 1);
}

TEST(Utf, LengthsOfSequences) {
  EXPECT_EQ(MbLen(""), 0);
  EXPECT_EQ(MbLen("A"), 1);
  EXPECT_EQ(MbLen("\x80"), -1);
  EXPECT_EQ(MbLen("\xBF"), -1);
  EXPECT_EQ(MbLen("\xC0"), 2);
  EXPECT_EQ(MbLen("\xDF"), 2);
  EXPECT_EQ(MbLen("\xE0"), 3);
  EXPECT_EQ(MbLen("\xF7"), 4);
  EXPECT_EQ(MbLen("\xFB"), 5);
  EXPECT_EQ(MbLen("\xFD"), 6);
  EXPECT_EQ(MbLen("\xFE"), -1);
  EXPECT_EQ(MbLen("\xFF"), -1);
  EXPECT_EQ(MbsLen("a\xC3\xA9\xE2\x82\xAC"), 3);
  EXPECT_EQ(MbsLen("ab\x80z"), 2);   // stops at a byte that leads nothing
  EXPECT_EQ(MbsLen("ab\xE2\x82"), 2);  // a sequence cut by the end is not counted
  EXPECT_EQ(MbsLen(""), 0);
}

TEST(Trim, WithASet) {
  char a[] = "xx-abc-xx";
  EXPECT_STREQ(KvRTrim(a, "x"), "xx-abc-");
  EXPECT_STREQ(KvLTrim(a, "x-"), "abc-");
  char b[] = "  keep  ";
  EXPECT_STREQ(KvRTrim(b, nullptr), "  keep  ");
  EXPECT_STREQ(KvLTrim(b, ""), "  keep  ");
}

}  // namespace
