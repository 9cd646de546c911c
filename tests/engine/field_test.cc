// Field values: how numbers and texts are stored, read and converted.
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <string_view>

#include "engine/number.h"
#include "engine_test_util.h"

namespace kvd::test {
namespace {

class FieldTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const FIELD4INFO f[] = {{"TXT", 'C', 10, 0, 0}, {"NUM", 'N', 9, 3, 0}, {"INT", 'N', 5, 0, 0},
                            {"FLAG", 'L', 1, 0, 0}, {"DAY", 'D', 8, 0, 0},  {"WIDE", 'C', 30, 0, 0},
                            {nullptr, 0, 0, 0, 0}};
    d = d4create(&e.code, (dir / "f").c_str(), f, nullptr);
    ASSERT_NE(d, nullptr);
    d4appendBlank(d);
  }
  void TearDown() override { d4close(d); }
  std::string Raw(const char* name) { return std::string(f4ptr(d4field(d, name)), f4len(d4field(d, name))); }

  TempDir dir;
  Engine e;
  DATA4St* d = nullptr;
};

TEST_F(FieldTest, NumbersStandRightAlignedAndRounded) {
  f4assignDouble(d4field(d, "NUM"), 1.23456);
  EXPECT_EQ(Raw("NUM"), "    1.235");
  f4assignDouble(d4field(d, "NUM"), 2.0005);
  EXPECT_EQ(Raw("NUM"), "    2.001") << "half rounds away from zero";
  f4assignDouble(d4field(d, "NUM"), -0.0001);
  EXPECT_EQ(Raw("NUM"), "    0.000") << "no negative zero";
  f4assignLong(d4field(d, "NUM"), 42);
  EXPECT_EQ(Raw("NUM"), "   42.000");
  f4assignLong(d4field(d, "TXT"), 42);
  EXPECT_EQ(Raw("TXT"), "        42") << "numbers in character fields are right-aligned too";
  f4assignInt(d4field(d, "TXT"), -7);
  EXPECT_EQ(Raw("TXT"), "        -7");
  f4assignDouble(d4field(d, "TXT"), 3.6);
  EXPECT_EQ(Raw("TXT"), "         4");
  f4assignLong(d4field(d, "INT"), 123456);
  EXPECT_EQ(Raw("INT"), "*****") << "a number that does not fit is marked, not cut";
  f4assignDouble(d4field(d, "NUM"), 123456.5);
  EXPECT_EQ(Raw("NUM"), "*********");
}

TEST_F(FieldTest, NumbersReadFromAnyFieldText) {
  f4assign(d4field(d, "TXT"), "  -12.75xy");
  EXPECT_EQ(f4long(d4field(d, "TXT")), -12);
  EXPECT_DOUBLE_EQ(f4double(d4field(d, "TXT")), -12.75);
  f4assign(d4field(d, "TXT"), "");
  EXPECT_EQ(f4long(d4field(d, "TXT")), 0) << "blank reads 0";
  f4assign(d4field(d, "TXT"), "9999999999");
  EXPECT_EQ(f4long(d4field(d, "TXT")), 2147483647) << "clamped to the 32-bit range";
  f4assignDouble(d4field(d, "NUM"), 17.5);
  EXPECT_DOUBLE_EQ(f4double(d4field(d, "NUM")), 17.5);
  EXPECT_EQ(f4int(d4field(d, "NUM")), 17);
}

TEST_F(FieldTest, TextsArePaddedCutAndCopiedRaw) {
  f4assign(d4field(d, "TXT"), "abc");
  EXPECT_EQ(Raw("TXT"), "abc       ");
  f4assign(d4field(d, "TXT"), "0123456789ABC");
  EXPECT_EQ(Raw("TXT"), "0123456789");
  const char raw[4] = {'\x01', '\0', '\xff', 'z'};
  f4assignN(d4field(d, "TXT"), raw, 4);
  EXPECT_EQ(Raw("TXT"), std::string(raw, 4) + "      ") << "raw bytes, NULs included";
  char buf[6];
  f4assign(d4field(d, "TXT"), "hello world");
  EXPECT_EQ(f4ncpy(d4field(d, "TXT"), buf, sizeof buf), 5u);
  EXPECT_STREQ(buf, "hello");
  f4assign(d4field(d, "TXT"), "ab");
  char big[20];
  f4ncpy(d4field(d, "TXT"), big, sizeof big);
  EXPECT_STREQ(big, "ab        ") << "the blanks are kept";
  f4assignChar(d4field(d, "FLAG"), 'T');
  EXPECT_TRUE(f4true(d4field(d, "FLAG")));
  EXPECT_EQ(f4char(d4field(d, "FLAG")), 'T');
}

TEST_F(FieldTest, AssignFieldConvertsBetweenTypesAndWidths) {
  f4assign(d4field(d, "WIDE"), "a text longer than ten");
  f4assignField(d4field(d, "TXT"), d4field(d, "WIDE"));
  EXPECT_EQ(Raw("TXT"), "a text lon");
  f4assign(d4field(d, "TXT"), "  12.5");
  f4assignField(d4field(d, "NUM"), d4field(d, "TXT"));
  EXPECT_EQ(Raw("NUM"), "   12.500");
  f4assignDouble(d4field(d, "NUM"), 7.25);
  f4assignField(d4field(d, "INT"), d4field(d, "NUM"));
  EXPECT_EQ(Raw("INT"), "    7");
  f4assignField(d4field(d, "WIDE"), d4field(d, "NUM"));
  EXPECT_EQ(Raw("WIDE").substr(0, 9), "    7.250");
  f4assign(d4field(d, "TXT"), "");
  f4assignField(d4field(d, "NUM"), d4field(d, "TXT"));
  EXPECT_EQ(Raw("NUM"), "         ") << "a blank number stays blank";
  f4assignDouble(d4field(d, "NUM"), 99999.0);
  f4assignField(d4field(d, "INT"), d4field(d, "NUM"));
  EXPECT_EQ(Raw("INT"), "99999");
  f4assign(d4field(d, "DAY"), "20260101");
  f4assignField(d4field(d, "WIDE"), d4field(d, "DAY"));
  EXPECT_EQ(Raw("WIDE").substr(0, 8), "20260101");
}

TEST(Number, FormatAndParseEdges) {
  char out[8];
  engine::FormatNumber(0.5, 3, 0, out);
  EXPECT_EQ(std::string(out, 3), "  1");
  engine::FormatNumber(-2.5, 3, 0, out);
  EXPECT_EQ(std::string(out, 3), " -3");
  engine::FormatNumber(1.0 / 0.0, 4, 0, out);
  EXPECT_EQ(std::string(out, 4), "****");
  char wide[20];
  engine::FormatNumber(-9999999999999.99, 18, 2, wide);
  EXPECT_EQ(std::string(wide, 18), " -9999999999999.99") << "15 digits survive";
  engine::FormatNumber(9007199254740.99, 18, 2, wide);
  EXPECT_EQ(std::string(wide, 18), "  9007199254740.99");
  engine::FormatNumber(0.995, 5, 2, wide);
  EXPECT_EQ(std::string(wide, 5), " 1.00");
  engine::FormatInteger(-123, 3, out);
  EXPECT_EQ(std::string(out, 3), "***");
  EXPECT_DOUBLE_EQ(engine::ParseDouble(" 1.5e3 "), 1500.0);
  EXPECT_DOUBLE_EQ(engine::ParseDouble("+.5"), 0.5);
  EXPECT_DOUBLE_EQ(engine::ParseDouble("-"), 0.0);
  EXPECT_EQ(engine::ParseLong("-9999999999"), -2147483647 - 1);
}

// The integer rule read one byte at a time, as ParseLong documents it: leading blanks and tabs, an
// optional sign, digits up to the first other byte, the value clamped to 32 bits.
std::int32_t LongByTheRule(std::string_view t) {
  std::size_t i = 0;
  while (i < t.size() && (t[i] == ' ' || t[i] == '\t')) ++i;
  const bool neg = i < t.size() && t[i] == '-';
  if (i < t.size() && (t[i] == '-' || t[i] == '+')) ++i;
  long long v = 0;
  for (; i < t.size() && t[i] >= '0' && t[i] <= '9'; ++i) v = std::min(v * 10 + (t[i] - '0'), 1ll << 40);
  v = neg ? -v : v;
  return static_cast<std::int32_t>(std::clamp<long long>(v, std::numeric_limits<std::int32_t>::min(),
                                                         std::numeric_limits<std::int32_t>::max()));
}

// ParseLong reads the usual right-aligned field eight bytes at a time; every other form, and every
// byte string at all, must read as the byte-wise rule reads it.
TEST(Number, ParseLongReadsEveryFieldAsTheByteWiseRule) {
  using namespace std::string_literals;
  const std::string cases[] = {"", " ", "        ", "       0", "      -0", "       -", "       +", "+7",
                               "12345678", "99999999", "-9999999", "   -1234", "   +1234", "  12  34",
                               "1234    ", "   12.50", "\t    123", "    \t123", "  1e3   ", " - 12345",
                               "--123456", "00000042", "  00042 ", "123456789", " 123456789", "  12345678",
                               "0000000000000000000042", "          -2147483648", "           2147483648",
                               "-9999999999", "    \0" "123"s, "12345\xff" "78", "        12345678"};
  for (const std::string& c : cases) EXPECT_EQ(engine::ParseLong(c), LongByTheRule(c)) << "'" << c << "'";
  std::mt19937 rng(17);
  const char kBytes[] = " \t+-.,0123456789eE\0x/:";
  const std::string alphabet(kBytes, sizeof kBytes - 1);
  for (int n = 0; n < 200000; ++n) {
    std::string t;
    if (rng() % 2) {
      for (unsigned k = rng() % 14; k > 0; --k) t += alphabet[rng() % alphabet.size()];
    } else {  // a number right-aligned in a field of 1 to 12 bytes, now and then damaged
      const std::string num = std::to_string(static_cast<long long>(rng() % 200000000) - 100000000);
      const std::size_t width = 1 + rng() % 12;
      t = num.size() < width ? std::string(width - num.size(), ' ') + num : num;
      if (rng() % 8 == 0) t[rng() % t.size()] = alphabet[rng() % alphabet.size()];
    }
    ASSERT_EQ(engine::ParseLong(t), LongByTheRule(t)) << "'" << t << "'";
  }
}

}  // namespace
}  // namespace kvd::test
