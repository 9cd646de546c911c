#include "engine/number.h"

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
  // Round half away from zero at `dec` places first; printf would round the binary value to even.
  const double scale = std::pow(10.0, dec);
  double scaled = value * scale;
  if (std::fabs(scaled) < 9.0e15) {
    // Nudge by the representation error so that 1.2345 (stored as 1.23449999...) still rounds up.
    const double nudged = scaled + std::copysign(std::fabs(scaled) * 4 * std::numeric_limits<double>::epsilon(), scaled);
    value = std::round(nudged) / scale;
  }
  if (value == 0) value = 0;  // no "-0.00"
  char buf[400];
  int n = std::snprintf(buf, sizeof buf, "%.*f", static_cast<int>(dec), value);
  if (n < 0) n = 0;
  FitRight(buf, static_cast<std::size_t>(n), width, out);
}

void FormatInteger(long long value, unsigned width, char* out) {
  char buf[32];
  int n = std::snprintf(buf, sizeof buf, "%lld", value);
  FitRight(buf, static_cast<std::size_t>(n), width, out);
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

std::int32_t ParseLong(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || text[i] == '\t')) ++i;
  bool neg = false;
  if (i < text.size() && (text[i] == '-' || text[i] == '+')) neg = text[i++] == '-';
  long long v = 0;
  while (i < text.size() && text[i] >= '0' && text[i] <= '9') {
    if (v < (1ll << 40)) v = v * 10 + (text[i] - '0');
    ++i;
  }
  if (neg) v = -v;
  if (v > std::numeric_limits<std::int32_t>::max()) return std::numeric_limits<std::int32_t>::max();
  if (v < std::numeric_limits<std::int32_t>::min()) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(v);
}

}  // namespace kvd::engine
