#include "lib/foundation/kvtext.h"

#include <cstring>

#include "lib/foundation/kvmbcs.h"

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

char* KvRTrim(char* s, const char* set) {
  if (s == nullptr || set == nullptr) return s;
  std::size_t n = std::strlen(s);
  // _mbschr with a byte of 0x80 or above finds it only as a character of its own in `set`.
  while (n > 0 && kvd::mbcs::_mbschr(set, static_cast<unsigned char>(s[n - 1])) != nullptr) --n;
  s[n] = '\0';
  return s;
}

char* KvLTrim(char* s, const char* set) {
  if (s == nullptr || set == nullptr) return s;
  const std::size_t lead = kvd::mbcs::_mbsspn(s, set);
  if (lead > 0) std::memmove(s, s + lead, std::strlen(s + lead) + 1);
  return s;
}

bool CheckAsteriskWildCard(const char* name, const char* pattern) {
  if (name == nullptr) name = "";
  if (pattern == nullptr) pattern = "";
  for (;; ++name, ++pattern) {
    if (*pattern == '\0') return *name == '\0';
    if (*pattern == '*') return true;
    // A '?' meeting the end of the name is no match.
    if (*pattern == '?' ? *name == '\0' : *pattern != *name) return false;
  }
}

bool CheckShortWildCard(const char* name, const char* pattern) {
  if (pattern == nullptr || *pattern == '\0') return true;
  if (name == nullptr) name = "";
  // The pattern with a '*' behind it: every byte of it must match, then anything may follow.
  for (; *pattern != '\0'; ++name, ++pattern) {
    if (*pattern == '*') return true;
    if (*pattern == '?' ? *name == '\0' : *pattern != *name) return false;
  }
  return true;
}
