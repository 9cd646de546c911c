#include "engine/number.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

namespace kvd::engine {

namespace {

void FitRight(const char* digits, std::size_t n, unsigned width, char* out) {
  if (n > width) {
    std::memset(out, '*', width);
    return;
  }
  std::memset(out, ' ', width - n);
  std::memcpy(out + (width - n), digits, n);
}

}  // namespace

void FormatNumber(double value, unsigned width, unsigned dec, char* out) {
  if (width == 0) return;
  if (!std::isfinite(value)) {
    std::memset(out, '*', width);
    return;
  }
  if (dec > 15) dec = 15;
  // The shortest decimal text that reads back as the same double ("1.2345", not the binary
  // 1.23449999...), rounded half away from zero at `dec` places on its digits: what a person typed
  // is what gets rounded, and every 15-digit decimal keeps all of its digits.
  char buf[400];
  auto res = std::to_chars(buf, buf + sizeof buf, std::fabs(value), std::chars_format::fixed);
  std::string digits(buf, res.ptr);
  std::size_t point = digits.find('.');
  if (point == std::string::npos) {
    point = digits.size();
    digits += '.';
  }
  std::string frac = digits.substr(point + 1);
  std::string whole = digits.substr(0, point);
  const bool up = frac.size() > dec && frac[dec] >= '5';
  frac.resize(dec, '0');
  std::string num = whole + frac;  // all digits, the point left out
  if (up) {
    std::size_t k = num.size();
    while (k > 0 && num[k - 1] == '9') num[--k] = '0';
    if (k == 0) num.insert(num.begin(), '1');
    else ++num[k - 1];
  }
  std::string text = num.substr(0, num.size() - dec);
  if (dec) text += "." + num.substr(num.size() - dec);
  const bool zero = num.find_first_not_of('0') == std::string::npos;
  if (value < 0 && !zero) text.insert(text.begin(), '-');  // no "-0.00"
  FitRight(text.data(), text.size(), width, out);
}

void FormatInteger(long long value, unsigned width, char* out) {
  char buf[32];
  const auto res = std::to_chars(buf, buf + sizeof buf, value);  // always fits: at most 20 chars
  FitRight(buf, static_cast<std::size_t>(res.ptr - buf), width, out);
}

double ParseDouble(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || text[i] == '\t')) ++i;
  std::string num;
  if (i < text.size() && (text[i] == '-' || text[i] == '+')) num += text[i++];
  bool digits = false;
  while (i < text.size() && text[i] >= '0' && text[i] <= '9') { num += text[i++]; digits = true; }
  if (i < text.size() && (text[i] == '.' || text[i] == ',')) {
    num += '.';
    ++i;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') { num += text[i++]; digits = true; }
  }
  if (!digits) return 0.0;
  if (i + 1 < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    std::size_t j = i + 1;
    std::string ex = "e";
    if (j < text.size() && (text[j] == '-' || text[j] == '+')) ex += text[j++];
    bool exdigits = false;
    while (j < text.size() && text[j] >= '0' && text[j] <= '9') { ex += text[j++]; exdigits = true; }
    if (exdigits) num += ex;
  }
  return std::strtod(num.c_str(), nullptr);
}

namespace {

std::int32_t ClampToInt32(long long v) {
  if (v > std::numeric_limits<std::int32_t>::max()) return std::numeric_limits<std::int32_t>::max();
  if (v < std::numeric_limits<std::int32_t>::min()) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(v);
}

// The common form of an integer in a table: right-aligned in its field, so its last eight bytes
// are blanks, an optional sign and digits to the end. `w` holds those eight bytes, the first in
// the lowest byte. Reads them eight at a time (no branch per character); false for any other form,
// which the byte-wise reading then takes.
bool RightAlignedEight(std::uint64_t w, std::int32_t* out) {
  constexpr std::uint64_t kBlanks = 0x2020202020202020ull;
  constexpr std::uint64_t kZeros = 0x3030303030303030ull;
  constexpr std::uint64_t kHigh = 0xF0F0F0F0F0F0F0F0ull;
  constexpr std::uint64_t kLow = 0x0F0F0F0F0F0F0F0Full;
  const std::uint64_t x = w ^ kBlanks;
  if (x == 0) {
    *out = 0;
    return true;
  }
  unsigned lead = static_cast<unsigned>(std::countr_zero(x)) / 8;  // leading blanks
  const unsigned first = static_cast<unsigned>(w >> (8 * lead)) & 0xFF;
  const bool neg = first == '-';
  if (neg || first == '+') {
    if (++lead == 8) {
      *out = 0;
      return true;
    }
  }
  // The blanks (and the sign) read as zeros; then every byte must be a digit.
  const std::uint64_t keep = ~0ull << (8 * lead);
  const std::uint64_t v = (w & keep) | (kZeros & ~keep);
  if ((v & kHigh) != kZeros || (((v & kLow) + 0x0606060606060606ull) & kHigh) != 0) return false;
  // Eight digit values, the most significant lowest: pairs, then fours, then all eight.
  std::uint64_t d = v & kLow;
  d = (d * 10 + (d >> 8)) & 0x00FF00FF00FF00FFull;
  d = (d * 100 + (d >> 16)) & 0x0000FFFF0000FFFFull;
  d = (d * 10000 + (d >> 32)) & 0xFFFFFFFFull;  // at most 99999999
  *out = neg ? -static_cast<std::int32_t>(d) : static_cast<std::int32_t>(d);
  return true;
}

}  // namespace

std::int32_t ParseLong(std::string_view text) {
  if (text.size() >= 8) {
    // Blanks before the last eight bytes, then the common form in them.
    const std::size_t head = text.size() - 8;
    std::size_t i = 0;
    while (i < head && text[i] == ' ') ++i;
    std::uint64_t w = 0;
    std::int32_t v = 0;
    if (i == head) {
      std::memcpy(&w, text.data() + head, 8);  // one load; the first byte must be the lowest
      if constexpr (std::endian::native == std::endian::big) w = __builtin_bswap64(w);
      if (RightAlignedEight(w, &v)) return v;
    }
  }
  std::size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || text[i] == '\t')) ++i;
  bool neg = false;
  if (i < text.size() && (text[i] == '-' || text[i] == '+')) neg = text[i++] == '-';
  long long v = 0;
  while (i < text.size() && text[i] >= '0' && text[i] <= '9') {
    if (v < (1ll << 40)) v = v * 10 + (text[i] - '0');
    ++i;
  }
  return ClampToInt32(neg ? -v : v);
}

}  // namespace kvd::engine
