// Path strings and the wildcard comparison shared by the whole table layer, and the zero-filled
// blocks the frame hands out. Paths here are strings in Windows form; nothing touches the disk.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "include/kvd_frame.h"
#include "include/kvd_memory.h"

namespace {

// A path that names its own root: a drive letter and colon, or a path of this machine beginning
// with '/'. "\\server\share" counts as relative, as it always has.
bool IsAbsolute(const char* p) { return (p[0] != '\0' && p[1] == ':') || p[0] == '/'; }

// A path of this machine may end in '/': that ends it as well as a backslash does, so that such a
// path gains no backslash behind its slash.
bool IsSeparator(char c) { return c == '\\' || c == '/'; }

}  // namespace

void CompletePath(char* lpszRelPath, char* lpszDefPath) {
  if (lpszRelPath == nullptr || IsAbsolute(lpszRelPath)) return;
  char buf[KVD_PATH_MAX + 1];
  std::size_t n = 0;
  auto put = [&](const char* s) {
    while (*s != '\0' && n < KVD_PATH_MAX) buf[n++] = *s++;
  };
  put(lpszDefPath != nullptr ? lpszDefPath : "");
  if (n > 0 && !IsSeparator(buf[n - 1]) && n < KVD_PATH_MAX) buf[n++] = '\\';
  put(lpszRelPath[0] == '\\' ? lpszRelPath + 1 : lpszRelPath);
  buf[n] = '\0';
  // The caller's buffer holds a path of at most 260 bytes with its terminator.
  const std::size_t len = std::min<std::size_t>(n, KVD_PATH_MAX - 1);
  std::memcpy(lpszRelPath, buf, len);
  lpszRelPath[len] = '\0';
}

char* AppendBackslash(char* lpsz) {
  if (lpsz == nullptr) return lpsz;
  const std::size_t n = std::strlen(lpsz);
  if (n == 0 || !IsSeparator(lpsz[n - 1])) {
    lpsz[n] = '\\';
    lpsz[n + 1] = '\0';
  }
  return lpsz;
}

char* DeleteBackslash(char* lpsz) {
  if (lpsz == nullptr) return lpsz;
  const std::size_t n = std::strlen(lpsz);
  if (n > 0 && IsSeparator(lpsz[n - 1])) lpsz[n - 1] = '\0';
  return lpsz;
}

long CompareWild(char* pszWild, char* pszIndex) {
  const signed char* w = reinterpret_cast<const signed char*>(pszWild);
  const signed char* k = reinterpret_cast<const signed char*>(pszIndex);
  for (;; ++w, ++k) {
    if (*w == '\0') return *k == '\0' ? 0 : 1;
    if (*w == '*') return 0;  // all behind the star is ignored
    if (*w == '?') {
      // A "?" lets any byte pass, but not the candidate's end: reading on behind it would read
      // outside the candidate, so a pattern longer than the candidate does not match.
      if (*k == '\0') return -1;
      continue;
    }
    if (*w < *k) return -1;
    if (*w > *k) return 1;
  }
}

void* KvGlobalGetMem(unsigned short flags, unsigned long size) {
  (void)flags;  // the movable/shareable flags of old heaps change nothing here
  return std::calloc(1, size == 0 ? 1 : size);
}

void* KvAllocMem(unsigned int size) { return std::calloc(1, size == 0 ? 1 : size); }
