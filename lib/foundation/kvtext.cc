#include "lib/foundation/kvtext.h"

#include <cstring>

namespace {
bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
}  // namespace

char* KvRTrim(char* s) {
  if (s == nullptr) return s;
  std::size_t n = std::strlen(s);
  while (n > 0 && IsBlank(s[n - 1])) --n;
  s[n] = '\0';
  return s;
}

char* KvLTrim(char* s) {
  if (s == nullptr) return s;
  std::size_t lead = 0;
  while (s[lead] != '\0' && IsBlank(s[lead])) ++lead;
  if (lead > 0) std::memmove(s, s + lead, std::strlen(s + lead) + 1);
  return s;
}

void KvFillBlank(char* s, int n) {
  if (s == nullptr || n < 0) return;
  const std::size_t want = static_cast<std::size_t>(n);
  const std::size_t len = std::strlen(s);
  if (len >= want) return;
  std::memset(s + len, ' ', want - len);
  s[want] = '\0';
}

int KvIsTrue(const char* s) {
  if (s == nullptr || *s == '\0') return 0;
  return std::strchr("1JTWYjtwy", *s) != nullptr ? 1 : 0;
}
