// The multi-byte layer under each code page: a double-byte character whose second byte is the
// byte of '\\' (0x5C) must never be taken for a backslash, nor split by a bounded copy.
#include <gtest/gtest.h>

#include <string>

#include "lib/foundation/kvmbcs.h"
#include "lib/foundation/kvstring.h"

using namespace kvd::mbcs;

namespace {

// Selects a code page for one test and restores the default after it.
class CodePage {
 public:
  explicit CodePage(int page) { EXPECT_EQ(_setmbcp(page), 0); }
  ~CodePage() { _setmbcp(kCodePageWestern); }
};

// A character whose second byte is 0x5C in each double-byte page: Shift-JIS 0x95 0x5C, GBK and
// Unified Hangul 0x81 0x5C, Big5 0xA5 0x5C.
struct DoubleBytePage {
  int page;
  const char* dbc;
};
const DoubleBytePage kDoubleBytePages[] = {
    {kCodePageJapanese, "\x95\x5C"},
    {kCodePageSimplifiedChinese, "\x81\x5C"},
    {kCodePageKorean, "\x81\x5C"},
    {kCodePageTraditionalChinese, "\xA5\x5C"},
};

long Offset(const char* base, const char* at) { return at == nullptr ? -1 : static_cast<long>(at - base); }

TEST(Mbcs, CodePageSelection) {
  EXPECT_EQ(_getmbcp(), kCodePageWestern);
  EXPECT_EQ(_setmbcp(437), -1);
  EXPECT_EQ(_getmbcp(), kCodePageWestern);
  {
    CodePage page(kCodePageJapanese);
    EXPECT_EQ(_getmbcp(), kCodePageJapanese);
    EXPECT_TRUE(_ismbblead(0x95));
    EXPECT_FALSE(_ismbblead(0xA5));  // a half-width katakana, one byte
    EXPECT_TRUE(_ismbblead(0xE0));
  }
  EXPECT_FALSE(_ismbblead(0x95));  // 1252 has no lead bytes
}

TEST(Mbcs, TrailByteBackslashIsNoBackslash) {
  for (const DoubleBytePage& p : kDoubleBytePages) {
    SCOPED_TRACE(p.page);
    CodePage page(p.page);
    // "X" + the character + "\Y" + the character: the only backslash is at 3.
    const std::string text = std::string("X") + p.dbc + "\\Y" + p.dbc;
    const char* s = text.c_str();
    EXPECT_EQ(_mbclen(s + 1), 2u);
    EXPECT_EQ(Offset(s, _mbschr(s, '\\')), 3);
    EXPECT_EQ(Offset(s, _mbsrchr(s, '\\')), 3);
    EXPECT_EQ(Offset(s, _mbsstr(s, "\\")), 3);
    EXPECT_EQ(Offset(s, _mbsstr(s, "\\Y")), 3);
    EXPECT_EQ(_mbscspn(s, "\\"), 3u);
    EXPECT_EQ(_mbsspn(s, std::string(std::string("X") + p.dbc).c_str()), 3u);
    // The whole character is found; its second byte alone is not a character.
    EXPECT_EQ(Offset(s, _mbsstr(s, p.dbc)), 1);
    const unsigned code = static_cast<unsigned char>(p.dbc[0]) << 8 | 0x5C;
    EXPECT_EQ(Offset(s, _mbschr(s, code)), 1);
    EXPECT_EQ(Offset(s, _mbsrchr(s, code)), 5);
    // A backslash followed by the lead byte is not found inside "<dbc>\".
    const std::string two = std::string(p.dbc) + p.dbc;
    EXPECT_EQ(_mbsstr(two.c_str(), "\\\x95"), nullptr);
  }
}

TEST(Mbcs, BoundedCopiesKeepCharactersWhole) {
  for (const DoubleBytePage& p : kDoubleBytePages) {
    SCOPED_TRACE(p.page);
    CodePage page(p.page);
    const std::string text = std::string("AB") + p.dbc + "C";
    char out[8];
    std::memset(out, '#', sizeof out);
    _mbsnbcpy(out, text.c_str(), 3);  // would end on the lead byte: it is left out and NUL-padded
    EXPECT_EQ(std::string(out, 3), std::string("AB\0", 3));
    EXPECT_EQ(out[3], '#');
    _mbsnbcpy(out, text.c_str(), 4);
    EXPECT_EQ(std::string(out, 4), text.substr(0, 4));
    char cat[16] = "Z";
    _mbsnbcat(cat, text.c_str(), 3);
    EXPECT_STREQ(cat, "ZAB");
    _mbsnbcat(cat, p.dbc, 2);
    EXPECT_EQ(std::string(cat), std::string("ZAB") + p.dbc);
    EXPECT_EQ(_mbsnbcmp("AB\x95\x5C", "AB\x95\x41", 3), 0);  // the character crossing 3 is not compared
  }
}

TEST(Mbcs, CaseChangeByPage) {
  {
    // 1252: ASCII and the accented letters; sharp s and the signs stay.
    char text[] = "abc\xE9\xFF\x9A\xDF\xF7 xyz";
    EXPECT_STREQ(_mbsupr(text), "ABC\xC9\x9F\x8A\xDF\xF7 XYZ");
    EXPECT_STREQ(_mbslwr(text), "abc\xE9\xFF\x9A\xDF\xF7 xyz");
    EXPECT_EQ(_mbsicmp("\xC4" "BC", "\xE4" "bc"), 0);
    EXPECT_LT(_mbsicmp("abc", "ABD"), 0);
    EXPECT_LT(_mbsicmp("_", "a"), 0);  // folded to lower case: '_' sorts before letters
  }
  {
    CodePage page(kCodePageJapanese);
    char text[] = "a\x83\x61z\xB1";  // second byte 'a' of a double-byte character; a katakana byte
    EXPECT_STREQ(_mbsupr(text), "A\x83\x61Z\xB1");
    EXPECT_NE(_mbsicmp("\x83\x61", "\x83\x41"), 0);
  }
  {
    CodePage page(kCodePageUtf8);
    char text[] = "\xC3\xA9t\xC3\xA9 \xC3\xBF \xE2\x82\xAC";  // "été ÿ €"
    EXPECT_STREQ(_mbsupr(text), "\xC3\x89T\xC3\x89 \xC5\xB8 \xE2\x82\xAC");
    EXPECT_EQ(_mbsicmp("\xC3\x89T\xC3\x89", "\xC3\xA9t\xC3\xA9"), 0);
  }
}

TEST(Mbcs, ComparisonIsByCharacterCode) {
  EXPECT_LT(_mbscmp("abc", "abd"), 0);
  EXPECT_GT(_mbscmp("abc", "ab"), 0);
  EXPECT_EQ(_mbscmp("", nullptr), 0);
  EXPECT_GT(_mbscmp("\xE9", "e"), 0);  // unsigned bytes, not signed chars
  CodePage page(kCodePageJapanese);
  // A one-byte katakana (0xB1) sorts before every double-byte character (0x8140 ...), although its
  // byte is larger than the lead byte 0x81.
  EXPECT_LT(_mbscmp("\xB1", "\x81\x40"), 0);
  EXPECT_GT(_mbscmp("\x81\x41", "\x81\x40"), 0);
}

TEST(Mbcs, Utf8Characters) {
  CodePage page(kCodePageUtf8);
  const char* s = "a\xE2\x82\xAC" "b\xC3\xA9\x80z";  // a € b é, a stray continuation byte, z
  EXPECT_EQ(_mbclen(s + 1), 3u);
  EXPECT_EQ(_mbclen(s + 7), 1u);
  EXPECT_EQ(Offset(s, _mbschr(s, 0x20AC)), 1);
  EXPECT_EQ(Offset(s, _mbschr(s, 0xE9)), 5);  // a code point, not the byte
  EXPECT_EQ(Offset(s, _mbschr(s, 'z')), 8);
  EXPECT_EQ(_mbsstr(s, "\x82\xAC"), nullptr);  // the tail of a character is no match
  EXPECT_EQ(_mbscspn(s, "\xC3\xA9"), 5u);
  char out[4];
  _mbsnbcpy(out, s + 1, 2);  // the euro sign does not fit in two bytes
  EXPECT_EQ(out[0], '\0');
  char set[] = "ab";
  EXPECT_STREQ(_mbsset(set, 'x'), "xx");
}

TEST(Mbcs, SetFillsCharacters) {
  CodePage page(kCodePageJapanese);
  char text[] = "abcde";
  _mbsset(text, 0x955C);
  EXPECT_STREQ(text, "\x95\x5C\x95\x5C ");  // the odd byte left over becomes a blank
}

// The string class walks characters too.
TEST(Mbcs, StringOperationsUnderDoubleBytePage) {
  CodePage page(kCodePageJapanese);
  const std::string dir = std::string("C:\\D\x95\x5C\\") + "\x95\x5C.txt";
  KvString path(dir.c_str());
  EXPECT_STREQ(path.GetFile(), "\x95\x5C.txt");
  EXPECT_STREQ(path.GetDir(), "C:\\D\x95\x5C\\");
  KvString s("\x95\x5C\\x");
  long pos = 0;
  EXPECT_TRUE(s.SearchChar('\\', pos));
  EXPECT_EQ(pos, 2);
  KvString replaced(s);
  replaced.Replace('\\', '/');
  EXPECT_STREQ(replaced, "\x95\x5C/x");
  EXPECT_STREQ(s.ExtractToken("\\"), "\x95\x5C");
  EXPECT_STREQ(s, "x");
  KvFixString<3> fix("ab\x95\x5C");  // would cut the character in two: it is left out
  EXPECT_STREQ(fix, "ab");
}

}  // namespace
