// KvString, KvStringBase and KvFixString: growth through the size classes, the substring and
// token rules with their edges, appends from the string's own buffer, and a random run against a
// std::string model.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>

#include "lib/foundation/kvfail.h"
#include "lib/foundation/kvmbcs.h"
#include "lib/foundation/kvstring.h"
#include "tests/lib/arena_test_util.h"

namespace {

using kvd::classlib::testing::FailureOf;

// The capacity a text of `len` bytes gets: the smallest class that holds it and its NUL.
long ExpectedMax(std::size_t len) {
  const std::int32_t i = KvGranularity::_GetGranularityIndex(len + 1);
  return static_cast<long>(KvGranularity::_aogran[i].GetSize()) - 1;
}

std::int64_t BuffersHeld() {
  const KvGranularityMemoryWatcher* w = KvString::_GetInternalAllocWatcher();
  return w->GetAllocated() + w->GetFreed() + w->GetStatic();
}

TEST(KvString, GrowsThroughTheSizeClasses) {
  const std::int64_t before = BuffersHeld();
  KvString s;
  EXPECT_STREQ(s, "");
  EXPECT_EQ(s.GetLength(), 0);
  EXPECT_EQ(s.GetMaxLength(), 0);
  EXPECT_EQ(s._GetGranularity(), nullptr);
  s = "";
  s += "";
  EXPECT_EQ(s._GetGranularity(), nullptr);  // the empty text never takes a buffer
  EXPECT_EQ(BuffersHeld(), before);

  s = "1234567";
  EXPECT_EQ(s.GetMaxLength(), 7);
  s = "12345678";
  EXPECT_EQ(s.GetMaxLength(), 15);
  EXPECT_EQ(BuffersHeld(), before + 1);
  s = std::string(1024, 'x').c_str();
  EXPECT_EQ(s.GetMaxLength(), 4095);  // 1025 bytes with the NUL: no class between 1024 and 4096
  s = "short";
  EXPECT_EQ(s.GetMaxLength(), 4095);  // never shrinks
  EXPECT_STREQ(s, "short");
  s = nullptr;
  EXPECT_STREQ(s, "");
  EXPECT_EQ(s.GetMaxLength(), 4095);

  // Every length up to a few classes lands in the class the ladder gives it.
  KvString grow;
  std::string model;
  for (int i = 0; i < 5000; ++i) {
    grow += static_cast<char>('a' + i % 26);
    model += static_cast<char>('a' + i % 26);
    ASSERT_EQ(grow.GetMaxLength(), ExpectedMax(model.size())) << model.size();
  }
  EXPECT_EQ(std::string(grow), model);
}

TEST(KvString, SubstringEdges) {
  const KvString s("abc");
  EXPECT_STREQ(s.Right(10), "");
  EXPECT_STREQ(s.Right(-1), "");
  EXPECT_STREQ(s.Right(3), "abc");
  EXPECT_STREQ(s.Right(1), "c");
  EXPECT_STREQ(s.Left(10), "abc");
  EXPECT_STREQ(s.Left(-1), "");
  EXPECT_STREQ(s.Left(2), "ab");
  EXPECT_STREQ(s.Mid(1, 10), "bc");
  EXPECT_STREQ(s.Mid(1), "bc");
  EXPECT_STREQ(s.Mid(3, 1), "");
  EXPECT_STREQ(s.Mid(-1, 2), "");
  EXPECT_STREQ(s.Mid(0, 1), "a");
  EXPECT_STREQ(KvString().Mid(0, 1), "");
  EXPECT_STREQ(s(5, 2), "");
  EXPECT_STREQ(s(1, 99), "bc");
  EXPECT_STREQ(s(-4, 2), "ab");
  EXPECT_EQ(s[1], 'b');
  EXPECT_EQ(s(2), 'c');
}

TEST(KvString, Tokens) {
  KvString s("a,,b");
  EXPECT_STREQ(s.ExtractToken(","), "a");
  EXPECT_STREQ(s, "b");
  EXPECT_STREQ(s.ExtractToken(","), "b");
  EXPECT_STREQ(s, "");
  EXPECT_STREQ(s.ExtractToken(","), "");

  KvString strict("a,,b");
  EXPECT_STREQ(strict.ExtractTokenStrict(","), "a");
  EXPECT_STREQ(strict, ",b");
  EXPECT_STREQ(strict.ExtractTokenStrict(","), "");
  EXPECT_STREQ(strict, "b");
  KvString leave("x;y");
  EXPECT_STREQ(leave.ExtractTokenLeaveDelim(";"), "x");
  EXPECT_STREQ(leave, "y");

  KvString lead(" ;x y");
  EXPECT_STREQ(lead.ExtractToken("; "), "");
  EXPECT_STREQ(lead, "x y");

  KvString right("one.two.three");
  EXPECT_STREQ(right.ExtractTokenRight('.'), "one.two");
  EXPECT_STREQ(right, "three");
  EXPECT_STREQ(right.ExtractTokenRight('.'), "");
  EXPECT_STREQ(right, "three");
  EXPECT_STREQ(KvString().ExtractToken(","), "");
}

TEST(KvString, SearchAndReplace) {
  KvString s("abcabc");
  long pos = 99;
  EXPECT_TRUE(s.SearchChar('c', pos));
  EXPECT_EQ(pos, 2);
  EXPECT_FALSE(s.SearchChar('z', pos));
  EXPECT_EQ(pos, -1);
  EXPECT_EQ(s.Find("ca"), 2);
  EXPECT_EQ(s.Find("cx"), -1);
  EXPECT_EQ(s.FindOneOf("xc"), 2);
  EXPECT_EQ(s.FindOneOf("xyz"), -1);

  KvString twice("aaa");
  twice.Replace("a", "aa");  // replaced text is not looked at again
  EXPECT_STREQ(twice, "aaaaaa");
  s.Replace("bc", "");
  EXPECT_STREQ(s, "aa");
  s.Replace("", "x");
  EXPECT_STREQ(s, "aa");
  KvString grow("x-y-z");
  const long max = grow.GetMaxLength();
  grow.Replace("-", "--");
  EXPECT_STREQ(grow, "x--y--z");
  EXPECT_EQ(grow.GetMaxLength(), max);
  grow.Replace("y", std::string(100, 'y').c_str());
  EXPECT_EQ(grow.GetLength(), 106);

  KvString rm("a-b_c-d");
  rm.Remove("-_");
  EXPECT_STREQ(rm, "abcd");
  rm.Replace('b', 'B');
  EXPECT_STREQ(rm, "aBcd");
}

TEST(KvString, TrimsPaddingAndPaths) {
  KvString s(" \t x y \r\n");
  s.AllTrim();
  EXPECT_STREQ(s, "x y");
  KvString set("--x--");
  set.LTrim("-");
  EXPECT_STREQ(set, "x--");
  set.RTrim("-");
  EXPECT_STREQ(set, "x");

  KvString pad("ab");
  pad.FillBlank();
  EXPECT_EQ(pad.GetLength(), pad.GetMaxLength());
  EXPECT_EQ(std::string(pad), "ab" + std::string(5, ' '));
  KvString none;
  none.FillBlank();
  EXPECT_EQ(none._GetGranularity(), nullptr);
  KvString wide("ab");
  wide.FillBlank(20);
  EXPECT_EQ(std::string(wide), "ab" + std::string(18, ' '));
  wide.FillBlank(3);
  EXPECT_EQ(wide.GetLength(), 20);
  KvString num("42");
  num.InsertLeadingChars('0', 6);
  EXPECT_STREQ(num, "000042");
  num.InsertLeadingChars('0', 2);
  EXPECT_STREQ(num, "000042");

  KvString dir("C:\\A");
  dir.AppendBackslashIfNotThere().AppendBackslashIfNotThere();
  EXPECT_STREQ(dir, "C:\\A\\");
  KvString empty;
  EXPECT_STREQ(empty.AppendBackslashIfNotThere(), "");

  const KvString path("C:\\dir\\sub.d\\file.tar.gz");
  EXPECT_STREQ(path.GetExt(), ".gz");
  EXPECT_STREQ(path.GetFile(), "file.tar.gz");
  EXPECT_STREQ(path.GetDir(), "C:\\dir\\sub.d\\");
  EXPECT_STREQ(KvString("C:\\dir.x\\name").GetExt(), "");
  EXPECT_STREQ(KvString("name").GetDir(), "");

  KvString abs("C:\\a\\.\\b\\..\\c\\");
  EXPECT_STREQ(abs.MakeAbsolutePath(), "C:\\a\\c\\");
  KvString rel("x\\..\\y");
  rel.MakeAbsolutePath();
  EXPECT_EQ(rel[0], '\\');
  EXPECT_TRUE(rel.GetLength() > 2 && rel.Right(2) == "\\y") << static_cast<const char*>(rel);
  KvString toolong(("C:\\" + std::string(300, 'a')).c_str());
  toolong.MakeAbsolutePath();
  EXPECT_EQ(toolong.GetLength(), 303);  // unchanged
}

TEST(KvString, AppendsFromItsOwnBuffer) {
  KvString s("abcdefg");  // 7 bytes: the 8-byte class is full
  s += s;
  EXPECT_STREQ(s, "abcdefgabcdefg");
  s.ConcatN(s.GetCharPtr() + 1, 3);
  EXPECT_STREQ(s, "abcdefgabcdefgbcd");
  s = s.GetCharPtr() + 3;
  EXPECT_STREQ(s, "defgabcdefgbcd");
  s.CopyN(s.GetCharPtr() + 4, 100);
  EXPECT_STREQ(s, "abcdefgbcd");
  for (int i = 0; i < 8; ++i) s += s.GetCharPtr();  // passes several classes
  EXPECT_EQ(s.GetLength(), 10 * 256);
  EXPECT_STREQ(s.Left(20), "abcdefgbcdabcdefgbcd");

  KvString n("xy");
  n.ConcatN("ab\0cd", 5);  // exactly n bytes: the text reads up to the first NUL
  EXPECT_STREQ(n, "xyab");
  n.ConcatN("zz", 0);
  EXPECT_STREQ(n, "xyab");
}

TEST(KvString, AGrownBufferHoldsTheTextThenOnlyNuls) {
  // Old bytes behind the NUL of a shortened text never reach the next buffer, whichever way it
  // grows: by a text, a character, from its own buffer, or ahead of time.
  const auto tail_is_nul = [](const KvString& s) {
    const char* p = s;
    const long len = s.GetLength();
    return std::all_of(p + len, p + s.GetMaxLength() + 1, [](char c) { return c == '\0'; });
  };
  KvString s(std::string(15, 'o').c_str());
  s = "ab";
  s += "0123456789ABCDEFGHIJ";
  EXPECT_STREQ(s, "ab0123456789ABCDEFGHIJ");
  EXPECT_EQ(s.GetMaxLength(), 31);
  EXPECT_TRUE(tail_is_nul(s));

  s = std::string(31, 'p').c_str();
  s = "cd";
  for (int i = 0; i < 40; ++i) s += 'x';
  EXPECT_EQ(s.GetLength(), 42);
  EXPECT_EQ(s.GetMaxLength(), 63);
  EXPECT_TRUE(tail_is_nul(s));

  s = std::string(63, 'q').c_str();
  s = std::string(40, 'e').c_str();
  s += s;  // 80 bytes from its own buffer: into the 128 class
  EXPECT_EQ(std::string(s), std::string(80, 'e'));
  EXPECT_TRUE(tail_is_nul(s));

  s = std::string(127, 'r').c_str();
  s = "fg";
  s.AllocIfNecessary(2000);  // past the 128 line: copied, then cleared behind
  EXPECT_EQ(s.GetMaxLength(), 4095);
  EXPECT_STREQ(s, "fg");
  EXPECT_TRUE(tail_is_nul(s));
}

TEST(KvString, AppendingFromItsOwnBufferReadsTheOldBufferBehindTheText) {
  KvString s("abcdefghijklmno");  // the 16-byte class, full
  s = "abc";                      // "abc", NUL, then the old "efghijklmno" and its NUL
  const std::string old_buffer(s.GetCharPtr(), 16);
  s.ConcatN(s.GetCharPtr(), 16);  // 19 bytes: a new class, the source in the buffer that goes
  EXPECT_EQ(s.GetMaxLength(), 31);
  EXPECT_EQ(std::string(static_cast<const char*>(s), 20), "abc" + old_buffer + '\0');
  EXPECT_STREQ(s, "abcabc");
  s = "0123456";                       // 7 bytes in the 32 class
  s += static_cast<const char*>(s) + 1;  // fits: no growth, an overlapping source
  EXPECT_STREQ(s, "0123456123456");
}

TEST(KvString, EachClassBoundaryCostsOneBufferAndTheOldOneGoesBack) {
  const KvGranularityMemoryWatcher* w = KvString::_GetInternalAllocWatcher();
  const std::int64_t allocated = w->GetAllocated(), freed = w->GetFreed();
  {
    KvString s;
    for (int i = 0; i < 64; ++i) s += static_cast<char>('a' + i % 26);
    EXPECT_EQ(w->GetAllocated() - allocated, 5);  // 8, 16, 32, 64, 128
    EXPECT_EQ(w->GetFreed() - freed, -4);
    for (int i = 0; i < 63; ++i) s += "0123456789ABCDEF";  // 1072 bytes: 256, 512, 1024, 4096
    EXPECT_EQ(w->GetAllocated() - allocated, 9);
    EXPECT_EQ(w->GetFreed() - freed, -8);
    EXPECT_EQ(s.GetMaxLength(), 4095);
  }
  EXPECT_EQ(w->GetFreed() - freed, -9);
}

TEST(KvString, AMovedFromStringOwnsNothingAndGrowsAgain) {
  KvString a("hello");
  KvString b(std::move(a));
  EXPECT_EQ(a.GetMaxLength(), 0);
  a += "x";  // must take a buffer of its own, not write where the moved one was
  a += 'y';
  EXPECT_STREQ(a, "xy");
  EXPECT_EQ(a.GetMaxLength(), 7);
  b += " world";
  EXPECT_STREQ(b, "hello world");
  KvString c("zz");
  c = std::move(b);
  EXPECT_EQ(b.GetMaxLength(), 0);
  b += 'q';
  EXPECT_STREQ(b, "q");
  EXPECT_STREQ(c, "hello world");
  EXPECT_EQ(c.GetMaxLength(), 15);
}

TEST(KvString, WritesThroughAccessorsAreSeen) {
  KvString s("abcdef");
  s[2] = '\0';
  s += "X";
  EXPECT_STREQ(s, "abX");
  s.GetCharPtr()[3] = 'Y';  // overwrites the NUL; a later NUL ends the text
  s.GetCharPtr()[4] = '\0';
  EXPECT_EQ(s.GetLength(), 4);
  s += "Z";
  EXPECT_STREQ(s, "abXYZ");
  EXPECT_TRUE(s.IsValid());
  s.FillBlank();
  s.GetCharPtr()[s.GetMaxLength()] = 'q';  // no NUL left in the buffer
  EXPECT_FALSE(s.IsValid());
  s.GetCharPtr()[s.GetMaxLength()] = '\0';
}

TEST(KvString, NullPositionAndItsFailure) {
  KvString s("abcdef");
  s.AppendBackslashNullAtPosition(3);
  EXPECT_STREQ(s, "abc");
  KvString empty;
  EXPECT_STREQ(empty.AppendBackslashNullAtPosition(50), "");
  const unsigned long lines = KvDebugLineCount();
  EXPECT_EQ(FailureOf([&] { s.AppendBackslashNullAtPosition(8); }), "AppendBackslashNullAtPosition: lPos out of range");
  char line[128];
  ASSERT_TRUE(KvDebugLastLine(1, line, sizeof line));  // the failure's own line is the latest
  EXPECT_STREQ(line, "lPos = 8 TCHARs");
  ASSERT_TRUE(KvDebugLastLine(2, line, sizeof line));
  EXPECT_STREQ(line, "String Max Length = 7 TCHARs");
  ASSERT_TRUE(KvDebugLastLine(3, line, sizeof line));
  EXPECT_STREQ(line, "String Length = 3 TCHARs");
  EXPECT_EQ(KvDebugLineCount(), lines + 5);
  EXPECT_STREQ(s, "abc");
}

TEST(KvString, Formatting) {
  EXPECT_STREQ(KvString("%d", -5L), "-5");
  EXPECT_STREQ(KvString("%ld", -5L), "-5");
  EXPECT_STREQ(KvString("%lld", -5L), "-5");
  EXPECT_STREQ(KvString("%X", 0xFFFFFFFFUL), "FFFFFFFF");
  EXPECT_STREQ(KvString("%lu", 0x1FFFFFFFFUL), "4294967295");  // a 32-bit quantity
  EXPECT_STREQ(KvString("%5.2f", 3.14159), " 3.14");
  EXPECT_STREQ(KvString(2.5f, "%g"), "2.5");
  EXPECT_STREQ(KvString("%c", 'x'), "x");
  EXPECT_STREQ(KvString(static_cast<unsigned char>(200), "%d"), "200");
  EXPECT_STREQ(KvString(static_cast<short>(-3), "[%hd]"), "[-3]");
  EXPECT_STREQ(KvString("%%%d%%", 7), "%7%");
  EXPECT_STREQ(KvString(123), "123");

  const std::string fits = std::string(894, 'f') + "%d";  // 896 bytes
  const KvString ok(fits.c_str(), 1);
  EXPECT_EQ(ok.GetLength(), 895);
  EXPECT_EQ(ok[894], '1');
  const std::string over = std::string(895, 'f') + "%d";  // 897 bytes
  EXPECT_STREQ(KvString(over.c_str(), 1), KVSTRING_FORMAT_TOO_LONG);
}

TEST(KvString, SixteenBitText) {
  const unsigned short text[] = {'A', 0xE9, 0x20AC, 0x4E00, 0};
  EXPECT_STREQ(KvString(text), "A\xE9\x80?");  // 1252: the euro sign has a byte, the CJK one not
  EXPECT_STREQ(KvString(static_cast<unsigned short>(0x2122)), "\x99");
  kvd::mbcs::_setmbcp(kvd::mbcs::kCodePageUtf8);
  EXPECT_STREQ(KvString(text), "A\xC3\xA9\xE2\x82\xAC\xE4\xB8\x80");
  kvd::mbcs::_setmbcp(kvd::mbcs::kCodePageWestern);
}

TEST(KvString, ComparisonAndHash) {
  const KvString a("abc"), b("abd"), none;
  EXPECT_EQ(KvDefCompare(&a, &b), -1);
  EXPECT_EQ(KvDefCompare(&b, &a), 1);
  EXPECT_EQ(KvDefCompare(a, KvString("abc")), 0);
  EXPECT_EQ(KvDefCompare(none, KvString("")), 0);
  EXPECT_TRUE(a < b);
  EXPECT_TRUE(a == "abc");
  EXPECT_TRUE("abc" == a);
  EXPECT_TRUE(none == "");
  EXPECT_TRUE(KvString("\xE9") > "z");
  KvFixString<8> fix("abc");
  EXPECT_TRUE(a == fix);
  EXPECT_EQ(KvUniversalHashFnctn(""), 0u);
  EXPECT_EQ(KvUniversalHashFnctn(&none), 0u);
  EXPECT_EQ(KvUniversalHashFnctn("\xF0\x0F"), 0xFFu);
  EXPECT_EQ(KvUniversalHashFnctn("abab"), 0u);
  EXPECT_EQ(KvUniversalHashFnctn(&a), static_cast<unsigned>('a' ^ 'b' ^ 'c'));
  EXPECT_STREQ(a + b, "abcabd");
  EXPECT_STREQ(a + "!", "abc!");
  KvString up("aBc\xE9");
  EXPECT_STREQ(up.ToUpper(), "ABC\xC9");
  EXPECT_STREQ(up.ToLower(), "abc\xE9");
  EXPECT_TRUE(KvString("ABCDEF").IsShortWildCard("A?C"));
  EXPECT_FALSE(KvString("ABCDEF").IsAsteriskWildCard("A?C"));
}

TEST(KvString, ObjectsOnTheArena) {
  EXPECT_STREQ(KvString::_GetWatcher()->GetType(), "KvString");
  EXPECT_STREQ(KvString::_GetWatcher()->GetDescr(), "new");
  EXPECT_EQ(KvString::_GetWatcher()->GetObjSize(), sizeof(KvString));
  EXPECT_STREQ(KvString::_GetInternalAllocWatcher()->GetDescr(), "InternalAlloc");
  EXPECT_STREQ(KvStringBase::_GetWatcher()->GetType(), "KvStringBase");
  const std::int64_t objects = KvString::_GetWatcher()->GetAllocated();
  KvString* p = new KvString("on the arena");
  EXPECT_TRUE(KvGranularity::_IsPointerInComittedRange(p));
  EXPECT_EQ(KvString::_GetWatcher()->GetAllocated(), objects + 1);
  delete p;
  KvString* q = new (__FILE__, __LINE__) KvString("x");
  delete q;
  alignas(KvString) unsigned char place[sizeof(KvString)];
  KvString* r = new (place) KvString("placed");
  EXPECT_STREQ(*r, "placed");
  r->~KvString();
  EXPECT_EQ(KvString::_GetWatcher()->GetAllocated(), objects + 2);
}

TEST(KvStringBase, CutsAtItsLimit) {
  KvFixString<5> f;
  EXPECT_STREQ(f, "");
  f = "abcdefgh";
  EXPECT_STREQ(f, "abcde");
  EXPECT_EQ(f.GetMaxLength(), 5);
  f = "ab";
  f += "cdefg";
  EXPECT_STREQ(f, "abcde");
  f += 'x';
  EXPECT_STREQ(f, "abcde");
  f.FillBlank();
  EXPECT_STREQ(f, "abcde");
  f = "a";
  f.FillBlank();
  EXPECT_STREQ(f, "a    ");
  f = "ab";
  f += f;
  EXPECT_STREQ(f, "abab");

  // A copy has its own buffer.
  KvFixString<5> g(f);
  g = "zz";
  EXPECT_STREQ(f, "abab");
  EXPECT_STREQ(g, "zz");
  KvFixString<5> h;
  h = f;
  f = "q";
  EXPECT_STREQ(h, "abab");

  // Over a foreign buffer: its text's length is the limit, and at most 255.
  char buf[301];
  std::memset(buf, 'x', 300);
  buf[300] = '\0';
  KvStringBase over(buf);
  EXPECT_EQ(over.GetMaxLength(), 255);
  over = "short";
  EXPECT_STREQ(buf, "short");
  KvStringBase alias(over);
  EXPECT_EQ(alias.GetMaxLength(), 5);
  alias = "longer text";
  EXPECT_STREQ(buf, "longe");

  KvStringBase nothing;
  nothing = "ignored";
  EXPECT_STREQ(nothing, "");
  EXPECT_TRUE(nothing.IsValid());
}

TEST(KvStringBase, SharesTheOperations) {
  KvFixString<64> s(" one, two;three ");
  s.AllTrim();
  EXPECT_STREQ(s, "one, two;three");
  EXPECT_STREQ(s.ExtractToken(", "), "one");
  EXPECT_STREQ(s, "two;three");
  EXPECT_STREQ(s.ExtractTokenStrict(";"), "two");
  EXPECT_STREQ(s.Left(3), "thr");
  EXPECT_STREQ(s.Right(10), "");
  EXPECT_STREQ(s.Mid(2, 2), "re");
  EXPECT_EQ(s.Find("ee"), 3);
  s.Remove("e");
  EXPECT_STREQ(s, "thr");
  s.ToUpper().Replace('H', 'h');
  EXPECT_STREQ(s, "ThR");
  KvFixString<64> dir("C:\\x\\y.z");
  EXPECT_STREQ(dir.GetExt(), ".z");
  EXPECT_STREQ(dir.GetDir(), "C:\\x\\");
  KvFixString<4> full("C:\\x");
  full.AppendBackslashIfNotThere();
  EXPECT_STREQ(full, "C:\\x");  // no room: cut
  KvFixString<255> big(KvString(std::string(300, 'b').c_str()));
  EXPECT_EQ(big.GetLength(), 255);
  EXPECT_STREQ(KvString(big).Left(2), "bb");
}

// A random run of operations on a KvString and on a std::string that follows the same rules.
TEST(KvString, AgreesWithAModel) {
  std::mt19937 rng(20240607);
  KvString s;
  std::string m;
  auto piece = [&] {
    std::string p(rng() % 40, ' ');
    for (char& c : p) c = "ab,;. x"[rng() % 7];
    return p;
  };
  for (int step = 0; step < 4000; ++step) {
    const std::string p = piece();
    const long len = static_cast<long>(m.size());
    const long a = static_cast<long>(rng() % 50) - 5, b = static_cast<long>(rng() % 50) - 5;
    switch (rng() % 9) {
      case 0: s = p.c_str(); m = p; break;
      case 1: s += p.c_str(); m += p; break;
      case 2: {
        const std::string want = a < 0 ? "" : m.substr(0, static_cast<std::size_t>(std::min(a, len)));
        ASSERT_EQ(std::string(s.Left(a)), want);
        break;
      }
      case 3: {
        std::string want;
        if (a >= 0 && a < len) want = m.substr(static_cast<std::size_t>(a), b < 0 ? std::string::npos : static_cast<std::size_t>(b));
        ASSERT_EQ(std::string(s.Mid(a, b)), want);
        break;
      }
      case 4: {
        const std::string want = a < 0 || a > len ? "" : m.substr(static_cast<std::size_t>(len - a));
        ASSERT_EQ(std::string(s.Right(a)), want);
        break;
      }
      case 5: {
        const std::size_t n = m.find_first_of(",;");
        const std::string want = m.substr(0, n);
        m = n == std::string::npos ? "" : m.substr(m.find_first_not_of(",;", n) == std::string::npos ? m.size() : m.find_first_not_of(",;", n));
        ASSERT_EQ(std::string(s.ExtractToken(",;")), want);
        break;
      }
      case 6: {
        const std::string sub = p.substr(0, 2);
        const std::size_t at = m.find(sub);
        ASSERT_EQ(s.Find(sub.c_str()), at == std::string::npos ? -1 : static_cast<long>(at));
        break;
      }
      case 7: {
        std::string out;
        for (std::size_t i = 0; i < m.size();) {
          if (m.compare(i, 2, "ab") == 0) {
            out += "x";
            i += 2;
          } else {
            out += m[i++];
          }
        }
        m = out;
        s.Replace("ab", "x");
        break;
      }
      case 8: {
        s.AllTrim();
        const std::size_t first = m.find_first_not_of(' ');
        m = first == std::string::npos ? "" : m.substr(first, m.find_last_not_of(' ') - first + 1);
        break;
      }
    }
    ASSERT_EQ(std::string(s), m) << "step " << step;
    ASSERT_EQ(s.GetLength(), static_cast<long>(m.size()));
    ASSERT_GE(s.GetMaxLength(), s.GetLength());
  }
}

}  // namespace
