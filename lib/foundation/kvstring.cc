#include "lib/foundation/kvstring.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <type_traits>
#include <vector>

#include "lib/foundation/kvfail.h"
#include "lib/foundation/kvmbcs.h"
#include "lib/foundation/kvutf.h"
#include "platform/dir.h"

using namespace kvd::mbcs;

char KvStringBase::_s_szEmpty[1] = {'\0'};

namespace {

// ---------------------------------------------------------------------------------------------
// The work both string classes share. Each takes the text (never null) and, where it changes it,
// the writable buffer; none grows a text, so a KvStringBase and a KvString run the same code.

constexpr const char* kBlanks = " \t\n\r";

// A byte range of a text.
struct Slice {
  std::size_t off = 0;
  std::size_t n = 0;
};

Slice LeftSlice(std::size_t len, long n) {
  if (n < 0) return {};
  return {0, std::min(len, static_cast<std::size_t>(n))};
}

Slice MidSlice(std::size_t len, long pos, long n) {
  if (pos < 0 || static_cast<std::size_t>(pos) >= len) return {};
  const std::size_t rest = len - static_cast<std::size_t>(pos);
  return {static_cast<std::size_t>(pos), n < 0 || static_cast<std::size_t>(n) > rest ? rest : static_cast<std::size_t>(n)};
}

Slice RightSlice(std::size_t len, long n) {
  if (n < 0 || static_cast<std::size_t>(n) > len) return {};
  return {len - static_cast<std::size_t>(n), static_cast<std::size_t>(n)};
}

// operator()(pos, n): never fails. A negative position counts as 0 and a negative count as 0.
Slice ClampedSlice(std::size_t len, long pos, long n) {
  const std::size_t off = pos < 0 ? 0 : std::min(len, static_cast<std::size_t>(pos));
  const std::size_t rest = len - off;
  return {off, n < 0 ? 0 : std::min(rest, static_cast<std::size_t>(n))};
}

KvString Cut(const char* text, Slice s) {
  KvString r;
  if (s.n > 0) r.ConcatN(text + s.off, static_cast<long>(s.n));
  return r;
}

enum class Separator { kRun, kOne };

// Takes the first token of the text in `buf` (null: no buffer) and moves the rest down.
KvString TakeToken(char* buf, const char* delims, Separator sep) {
  if (buf == nullptr || *buf == '\0') return KvString();
  const std::size_t n = _mbscspn(buf, delims);
  KvString token;
  if (n > 0) token.ConcatN(buf, static_cast<long>(n));
  const std::size_t m = buf[n] == '\0' ? 0 : sep == Separator::kRun ? _mbsspn(buf + n, delims) : _mbclen(buf + n);
  const char* rest = buf + n + m;
  std::memmove(buf, rest, std::strlen(rest) + 1);
  return token;
}

KvString TakeTokenRight(char* buf, char ch) {
  char* at = buf != nullptr ? _mbsrchr(buf, static_cast<unsigned char>(ch)) : nullptr;
  if (at == nullptr || ch == '\0') return KvString();
  KvString left;
  if (at > buf) left.ConcatN(buf, static_cast<long>(at - buf));
  std::memmove(buf, at + 1, std::strlen(at + 1) + 1);
  return left;
}

void RemoveSet(char* buf, const char* set) {
  if (buf == nullptr || set == nullptr) return;
  char* w = buf;
  const char* r = buf;
  while (*r != '\0') {
    r += _mbsspn(r, set);
    const std::size_t keep = _mbscspn(r, set);
    std::memmove(w, r, keep);
    w += keep;
    r += keep;
  }
  *w = '\0';
}

// Replaces the single-byte character a by b; the bytes of longer characters stay.
void ReplaceChar(char* buf, char a, char b) {
  if (buf == nullptr || a == '\0') return;
  for (char* p = buf; *p != '\0';) {
    const std::size_t n = _mbclen(p);
    if (n == 1 && *p == a) *p = b;
    p += n;
  }
}

bool HasNulWithin(const char* text, std::size_t bytes) { return std::memchr(text, '\0', bytes) != nullptr; }

// Where _splitpath divides a path: drive ("X:"), directory (up to its last separator), then name,
// then extension (from the last point behind the directory).
struct PathParts {
  std::size_t dir_end = 0;   // drive and directory: [0, dir_end)
  std::size_t ext_off = 0;   // the extension: [ext_off, len)
  std::size_t len = 0;
};

PathParts SplitPath(const char* path) {
  PathParts parts;
  const char* p = path;
  if (p[0] != '\0' && p[1] == ':') p += 2;
  const char* dir_end = p;
  const char* dot = nullptr;
  for (std::size_t n; (n = _mbclen(p)) != 0; p += n) {
    if (n == 1 && (*p == '\\' || *p == '/')) {
      dir_end = p + 1;
      dot = nullptr;
    } else if (n == 1 && *p == '.') {
      dot = p;
    }
  }
  parts.len = static_cast<std::size_t>(p - path);
  parts.dir_end = static_cast<std::size_t>(dir_end - path);
  parts.ext_off = dot != nullptr ? static_cast<std::size_t>(dot - path) : parts.len;
  return parts;
}

// _fullpath: the absolute form of `path`, with backslashes, "." and ".." resolved. A relative path
// starts from the current directory; this machine's directories are rooted at "\" ("/home/a"
// becomes "\home\a"), which the file layer maps back. Empty when the result would pass `limit`
// bytes with its NUL, or the current directory is unknown.
std::string FullPath(const char* path, std::size_t limit) {
  std::string root, rest;
  if (path[0] != '\0' && path[1] == ':') {
    root.assign(path, 2);
    rest = path + 2;
  } else if (path[0] == '\\' || path[0] == '/') {
    rest = path;
  } else {
    const std::string cwd = kvd::platform::CurrentDirectory();
    if (cwd.empty()) return std::string();
    rest = cwd + "\\" + path;
  }
  std::vector<std::string> parts;
  std::string part;
  const char* p = rest.c_str();
  for (std::size_t n;; p += n) {
    n = _mbclen(p);
    if (n == 0 || (n == 1 && (*p == '\\' || *p == '/'))) {
      if (part == "..") {
        if (!parts.empty()) parts.pop_back();
      } else if (!part.empty() && part != ".") {
        parts.push_back(part);
      }
      part.clear();
      if (n == 0) break;
    } else {
      part.append(p, n);
    }
  }
  std::string out = root + "\\";
  for (std::size_t i = 0; i < parts.size(); ++i) out += (i > 0 ? "\\" : "") + parts[i];
  const std::size_t len = std::strlen(path);
  if (len > 0 && (path[len - 1] == '\\' || path[len - 1] == '/') && out.back() != '\\') out += '\\';
  return out.size() + 1 > limit ? std::string() : out;
}

// The width at which the first conversion of a format takes an integer.
enum class IntWidth { kInt, kLong, kLongLong };

IntWidth WidthOfConversion(const char* fmt) {
  for (const char* p = std::strchr(fmt, '%'); p != nullptr; p = std::strchr(p, '%')) {
    ++p;
    if (*p == '%') {
      ++p;
      continue;
    }
    p += std::strspn(p, "-+ #0'");
    p += std::strspn(p, "0123456789*");
    if (*p == '.') p += 1 + std::strspn(p + 1, "0123456789*");
    if (p[0] == 'l' && p[1] == 'l') return IntWidth::kLongLong;
    if (*p == 'j' || *p == 'q') return IntWidth::kLongLong;
    if (*p == 'l' || *p == 'z' || *p == 't') return IntWidth::kLong;
    return IntWidth::kInt;
  }
  return IntWidth::kInt;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// KvString: buffer

void KvString::_Grow(std::size_t need, OldBuffer* old) {
  // At or below the capacity nothing happens; the empty text (need 1) never takes a buffer.
  if (need <= _cbBuf || need <= 1) return;
  const std::size_t len = _psz != nullptr ? static_cast<std::size_t>(GetLength()) : 0;
  const std::int32_t index = KvGranularity::_GetGranularityIndex(need);
  if (index < 0 || KvGranularity::_aogran == nullptr) [[unlikely]] {
    // Fails as the arena does; the string stays as it was.
    KvGranularity::_Alloc(need, _GetInternalAllocWatcher());
    return;
  }
  KvGranularity* gran = &KvGranularity::_aogran[index];
  // The text, and zeros behind it: a fresh buffer is all NUL but for what was copied into it.
  char* fresh = static_cast<char*>(gran->AllocCopy(_psz, len, _GetInternalAllocWatcher()));
  old->psz = _psz;
  old->pogran = _pogran;
  _psz = fresh;
  _pogran = gran;
  _cbBuf = gran->GetSize();
  _SetLength(len);
  const char* pszOld = old->psz;
  KV_ASSERT(_psz != pszOld, "OSTR");
}

void KvString::_Release(const OldBuffer& old) {
  if (old.psz != nullptr) old.pogran->Free(old.psz, _GetInternalAllocWatcher());
}

void KvString::AllocIfNecessary(std::size_t need) {
  OldBuffer old;
  _Grow(need, &old);
  _Release(old);
}

void KvString::_Assign(const char* p, std::size_t n) {
  OldBuffer old;
  _Grow(n + 1, &old);  // `p` may lie in the old buffer: it goes only after the copy
  if (_psz != nullptr) {
    std::memmove(_psz, p, n);
    _psz[n] = '\0';
    _SetLength(n);
  }
  _Release(old);
}

void KvString::_Append(const char* p, std::size_t n) {
  if (n == 0) return;
  const std::size_t len = static_cast<std::size_t>(GetLength());
  if (len + n < _cbBuf) {
    std::memmove(_psz + len, p, n);  // `p` may lie in this buffer
    _psz[len + n] = '\0';
    _SetLength(len + n);
    return;
  }
  // A source anywhere in the old buffer (ConcatN reads behind the text too) must be read before
  // that buffer goes back: only a foreign source takes the one-call growth.
  const auto at = reinterpret_cast<std::uintptr_t>(p), buf = reinterpret_cast<std::uintptr_t>(_psz);
  const bool own = _psz != nullptr && at < buf + _cbBuf && at + n > buf;
  if (!own && _AppendGrowing(p, n, len)) return;
  OldBuffer old;
  _Grow(len + n + 1, &old);
  std::memmove(_psz + len, p, n);
  _psz[len + n] = '\0';
  _SetLength(len + n);
  _Release(old);
}

bool KvString::_AppendGrowing(const char* p, std::size_t n, std::size_t len) {
  const std::int32_t index = KvGranularity::_GetGranularityIndex(len + n + 1);
  if (index < 0 || KvGranularity::_aogran == nullptr) [[unlikely]] return false;  // _Grow fails for it
  KvGranularity* gran = &KvGranularity::_aogran[index];
  // The old text, zeros behind it, and the old buffer back to its class, in one call.
  char* fresh = static_cast<char*>(gran->Regrow(_pogran, _psz, len, _GetInternalAllocWatcher()));
  const char* pszOld = _psz;
  _psz = fresh;
  _pogran = gran;
  _cbBuf = gran->GetSize();
  if (n == 1) {
    _psz[len] = *p;  // a character: no call for one byte
  } else {
    std::memcpy(_psz + len, p, n);
  }
  _psz[len + n] = '\0';
  _SetLength(len + n);
  KV_ASSERT(_psz != pszOld, "OSTR");
  return true;
}

long KvString::GetLength() const {
  if (_psz == nullptr) return 0;
  if (_cchLen == kLengthUnknown || _psz[_cchLen] != '\0') _cchLen = static_cast<std::uint32_t>(std::strlen(_psz));
  return static_cast<long>(_cchLen);
}

long KvString::GetMaxLength() const { return _cbBuf > 0 ? static_cast<long>(_cbBuf) - 1 : 0; }

char* KvString::GetCharPtr() {
  if (_psz == nullptr) return KvStringBase::_s_szEmpty;
  _cchLen = kLengthUnknown;
  return _psz;
}

bool KvString::IsValid() const { return _psz == nullptr || HasNulWithin(_psz, static_cast<std::size_t>(GetMaxLength()) + 1); }

// ---------------------------------------------------------------------------------------------
// KvString: construction and assignment

KvString::KvString(const char* psz) { _Assign(psz, std::strlen(psz)); }
KvString::KvString(const KvString& other) { _Assign(other, static_cast<std::size_t>(other.GetLength())); }
KvString::KvString(KvString&& other) noexcept
    : _psz(other._psz), _pogran(other._pogran), _cchLen(other._cchLen), _cbBuf(other._cbBuf) {
  other._psz = nullptr;
  other._pogran = nullptr;
  other._cchLen = 0;
  other._cbBuf = 0;
}
KvString::KvString(const KvStringBase& other) : KvString(static_cast<const char*>(other)) {}
KvString::KvString(char ch) { _Append(&ch, ch != '\0' ? 1 : 0); }
KvString::KvString(int value) { _Format("%d", value); }

KvString::KvString(unsigned short ch16) {
  const unsigned short text[2] = {ch16, 0};
  *this = KvString(text);
}

KvString::KvString(const unsigned short* psz16) {
  if (psz16 == nullptr) return;
  const int page = _getmbcp();
  for (const unsigned short* u = psz16; *u != 0; ++u) {
    char bytes[8];
    std::size_t n = 1;
    bytes[0] = '?';
    if (page == kCodePageUtf8) {
      n = static_cast<std::size_t>(Uc32ToUtf8(*u, bytes));
    } else if (*u < 0x80) {
      bytes[0] = static_cast<char>(*u);
    } else if (page == kCodePageWestern) {
      // The byte whose 1252 unit this is; the blank stands in only for itself.
      for (unsigned b = 0x80; b <= 0xFF; ++b)
        if (KvAnsiToUc16Char(static_cast<unsigned char>(b)) == *u && *u != 0x20) {
          bytes[0] = static_cast<char>(b);
          break;
        }
    }
    _Append(bytes, n);
  }
}

template <class T>
void KvString::_Format(const char* fmt, T value) {
  if (fmt == nullptr) fmt = "";
  if (std::strlen(fmt) > KVSTRING_MAX_FORMAT) {
    *this = KVSTRING_FORMAT_TOO_LONG;
    return;
  }
  char buf[1024];
  if constexpr (std::is_floating_point_v<T>) {
    std::snprintf(buf, sizeof buf, fmt, static_cast<double>(value));
  } else {
    // The value as the 32-bit quantity it is, at the width the conversion reads.
    using Word = std::conditional_t<std::is_signed_v<T>, std::int32_t, std::uint32_t>;
    using Long = std::conditional_t<std::is_signed_v<T>, long, unsigned long>;
    using LongLong = std::conditional_t<std::is_signed_v<T>, long long, unsigned long long>;
    const Word v = static_cast<Word>(value);
    switch (WidthOfConversion(fmt)) {
      case IntWidth::kInt: std::snprintf(buf, sizeof buf, fmt, v); break;
      case IntWidth::kLong: std::snprintf(buf, sizeof buf, fmt, static_cast<Long>(v)); break;
      case IntWidth::kLongLong: std::snprintf(buf, sizeof buf, fmt, static_cast<LongLong>(v)); break;
    }
  }
  *this = buf;
}

KvString::KvString(const char* fmt, double value) { _Format(fmt, value); }
KvString::KvString(const char* fmt, float value) { _Format(fmt, value); }
KvString::KvString(const char* fmt, unsigned long value) { _Format(fmt, value); }
KvString::KvString(const char* fmt, long value) { _Format(fmt, value); }
KvString::KvString(const char* fmt, unsigned int value) { _Format(fmt, value); }
KvString::KvString(const char* fmt, int value) { _Format(fmt, value); }
KvString::KvString(const char* fmt, unsigned char value) { _Format(fmt, value); }
KvString::KvString(const char* fmt, unsigned short value) { _Format(fmt, value); }
KvString::KvString(const char* fmt, short value) { _Format(fmt, value); }
KvString::KvString(const char* fmt, char value) { _Format(fmt, value); }

KvString::~KvString() {
  if (_psz != nullptr) _pogran->Free(_psz, _GetInternalAllocWatcher());
}

KvString& KvString::operator=(const char* psz) {
  if (psz == nullptr) psz = "";
  _Assign(psz, std::strlen(psz));
  return *this;
}
KvString& KvString::operator=(const KvString& other) {
  if (this != &other) _Assign(other, static_cast<std::size_t>(other.GetLength()));
  return *this;
}
KvString& KvString::operator=(KvString&& other) noexcept {
  if (this != &other) {
    if (_psz != nullptr) _pogran->Free(_psz, _GetInternalAllocWatcher());
    _psz = other._psz;
    _pogran = other._pogran;
    _cchLen = other._cchLen;
    _cbBuf = other._cbBuf;
    other._psz = nullptr;
    other._pogran = nullptr;
    other._cchLen = 0;
    other._cbBuf = 0;
  }
  return *this;
}
KvString& KvString::operator=(const KvStringBase& other) { return *this = static_cast<const char*>(other); }

KvString& KvString::_AppendText(const char* psz, std::size_t n) {
  _Append(psz, n);
  return *this;
}
KvString& KvString::operator+=(const KvString& other) {
  _Append(other, static_cast<std::size_t>(other.GetLength()));
  return *this;
}
KvString& KvString::operator+=(const KvStringBase& other) { return *this += static_cast<const char*>(other); }
KvString& KvString::_AppendChar(char ch) {
  if (ch == '\0') return *this;
  const std::size_t len = static_cast<std::size_t>(GetLength());
  if (len + 1 < _cbBuf) {
    _psz[len] = ch;
    _psz[len + 1] = '\0';
    _SetLength(len + 1);
  } else if (!_AppendGrowing(&ch, 1, len)) {
    _Append(&ch, 1);  // no class holds it: fails there
  }
  return *this;
}

// ---------------------------------------------------------------------------------------------
// KvString: operations

KvString& KvString::ToUpper() {
  _mbsupr(_psz);
  return *this;
}
KvString& KvString::ToLower() {
  _mbslwr(_psz);
  return *this;
}

KvString KvString::ExtractToken(const char* delims) {
  KvString t = TakeToken(_psz, delims, Separator::kRun);
  _cchLen = kLengthUnknown;
  return t;
}
KvString KvString::ExtractTokenStrict(const char* delims) {
  KvString t = TakeToken(_psz, delims, Separator::kOne);
  _cchLen = kLengthUnknown;
  return t;
}
KvString KvString::ExtractTokenLeaveDelim(const char* delims) { return ExtractTokenStrict(delims); }
KvString KvString::ExtractTokenRight(char ch) {
  KvString t = TakeTokenRight(_psz, ch);
  _cchLen = kLengthUnknown;
  return t;
}

bool KvString::SearchChar(char ch) const {
  long pos;
  return SearchChar(ch, pos);
}
bool KvString::SearchChar(char ch, long& pos) const {
  const char* text = *this;
  const char* at = ch != '\0' ? _mbschr(text, static_cast<unsigned char>(ch)) : nullptr;
  pos = at != nullptr ? static_cast<long>(at - text) : -1;
  return at != nullptr;
}
long KvString::Find(const char* sub) const {
  const char* text = *this;
  const char* at = _mbsstr(text, sub != nullptr ? sub : "");
  return at != nullptr ? static_cast<long>(at - text) : -1;
}
long KvString::FindOneOf(const char* set) const {
  const char* text = *this;
  const std::size_t n = _mbscspn(text, set);
  return text[n] != '\0' ? static_cast<long>(n) : -1;
}

KvString KvString::Left(long n) const { return Cut(*this, LeftSlice(static_cast<std::size_t>(GetLength()), n)); }
KvString KvString::Mid(long pos, long n) const { return Cut(*this, MidSlice(static_cast<std::size_t>(GetLength()), pos, n)); }
KvString KvString::Right(long n) const { return Cut(*this, RightSlice(static_cast<std::size_t>(GetLength()), n)); }
KvString KvString::operator()(long pos, long n) const {
  return Cut(*this, ClampedSlice(static_cast<std::size_t>(GetLength()), pos, n));
}

KvString& KvString::Remove(const char* set) {
  RemoveSet(_psz, set);
  _cchLen = kLengthUnknown;
  return *this;
}
KvString& KvString::Replace(char a, char b) {
  ReplaceChar(_psz, a, b);
  _cchLen = kLengthUnknown;
  return *this;
}

KvString& KvString::Replace(const char* old, const char* with) {
  if (old == nullptr || *old == '\0' || IsEmpty()) return *this;
  if (with == nullptr) with = "";
  const std::size_t old_len = std::strlen(old), with_len = std::strlen(with);
  const char* text = _psz;
  const char* hit = _mbsstr(text, old);
  if (hit == nullptr) return *this;
  KvString result;
  for (; hit != nullptr; hit = _mbsstr(text, old)) {
    result._Append(text, static_cast<std::size_t>(hit - text));
    result._Append(with, with_len);
    text = hit + old_len;
  }
  result += text;
  return *this = result;
}

KvString& KvString::LTrim() { return LTrim(kBlanks); }
KvString& KvString::RTrim() { return RTrim(kBlanks); }
KvString& KvString::AllTrim() { return AllTrim(kBlanks); }
KvString& KvString::LTrim(const char* set) {
  KvLTrim(_psz, set);
  _cchLen = kLengthUnknown;
  return *this;
}
KvString& KvString::RTrim(const char* set) {
  KvRTrim(_psz, set);
  _cchLen = kLengthUnknown;
  return *this;
}
KvString& KvString::AllTrim(const char* set) { return RTrim(set).LTrim(set); }

KvString& KvString::FillBlank() {
  if (_psz != nullptr) {
    const std::size_t len = static_cast<std::size_t>(GetLength()), max = static_cast<std::size_t>(GetMaxLength());
    std::memset(_psz + len, ' ', max - len);
    _psz[max] = '\0';
    _SetLength(max);
  }
  return *this;
}

KvString& KvString::AppendBackslashIfNotThere() {
  const long len = GetLength();
  if (len > 0 && _psz[len - 1] != '\\') _Append("\\", 1);
  return *this;
}

KvString KvString::GetExt() const {
  const PathParts parts = SplitPath(*this);
  return Cut(*this, {parts.ext_off, parts.len - parts.ext_off});
}
KvString KvString::GetFile() const {
  const PathParts parts = SplitPath(*this);
  return Cut(*this, {parts.dir_end, parts.len - parts.dir_end});
}
KvString KvString::GetDir() const { return Cut(*this, {0, SplitPath(*this).dir_end}); }

bool KvString::IsShortWildCard(const char* pattern) const { return CheckShortWildCard(*this, pattern); }
bool KvString::IsAsteriskWildCard(const char* pattern) const { return CheckAsteriskWildCard(*this, pattern); }

KvString& KvString::ConcatN(const char* text, long n) {
  if (n > 0) _Append(text, static_cast<std::size_t>(n));
  return *this;
}

KvString& KvString::CopyN(const char* text, long n) {
  const std::size_t len = n > 0 ? strnlen(text, static_cast<std::size_t>(n)) : 0;
  _Assign(text, len);
  return *this;
}

KvString& KvString::FillBlank(long n) {
  const long len = GetLength();
  if (n <= len) return *this;
  AllocIfNecessary(static_cast<std::size_t>(n) + 1);
  std::memset(_psz + len, ' ', static_cast<std::size_t>(n - len));
  _psz[n] = '\0';
  _SetLength(static_cast<std::size_t>(n));
  return *this;
}

KvString& KvString::InsertLeadingChars(char ch, long n) {
  const long len = GetLength();
  if (n <= len || ch == '\0') return *this;
  const std::size_t add = static_cast<std::size_t>(n - len);
  AllocIfNecessary(static_cast<std::size_t>(n) + 1);
  std::memmove(_psz + add, _psz, static_cast<std::size_t>(len) + 1);
  std::memset(_psz, ch, add);
  _SetLength(static_cast<std::size_t>(n));
  return *this;
}

KvString& KvString::AppendBackslashNullAtPosition(long pos) {
  if (IsEmpty()) return *this;
  if (pos < 0 || pos > GetMaxLength()) {
    // Printed as the 32-bit numbers they always were.
    KvDebugLine("AppendBackslashNullAtPosition:");
    KvDebugLineF("String Length = %d TCHARs", static_cast<std::int32_t>(GetLength()));
    KvDebugLineF("String Max Length = %d TCHARs", static_cast<std::int32_t>(GetMaxLength()));
    KvDebugLineF("lPos = %d TCHARs", static_cast<std::int32_t>(pos));
    KvFail("AppendBackslashNullAtPosition: lPos out of range");
  }
  _psz[pos] = '\0';
  _cchLen = kLengthUnknown;
  return *this;
}

KvString& KvString::MakeAbsolutePath() {
  const std::string full = FullPath(*this, 260);
  if (!full.empty()) _Assign(full.data(), full.size());
  return *this;
}

KvString operator+(const KvString& a, const KvString& b) {
  KvString r;
  r.AllocIfNecessary(static_cast<std::size_t>(a.GetLength() + b.GetLength()) + 1);
  r += a;
  r += b;
  return r;
}

KvString operator+(const KvString& a, const char* b) {
  KvString r(a);
  r += b;
  return r;
}

// ---------------------------------------------------------------------------------------------
// KvStringBase

KvStringBase::KvStringBase(char* psz)
    : _psz(psz), _uchMaxLen(static_cast<unsigned char>(psz != nullptr ? std::min<std::size_t>(std::strlen(psz), 255) : 0)) {}

KvStringBase::KvStringBase(const KvStringBase& other)
    : _psz(other._psz), _uchMaxLen(static_cast<unsigned char>(std::min<std::size_t>(std::strlen(other), 255))) {}

KvStringBase& KvStringBase::operator=(const char* psz) {
  if (_psz == nullptr) return *this;
  if (psz == nullptr) psz = "";
  if (psz != _psz) _mbsnbcpy(_psz, psz, _uchMaxLen);
  _psz[_uchMaxLen] = '\0';
  return *this;
}
KvStringBase& KvStringBase::operator=(const KvStringBase& other) { return *this = static_cast<const char*>(other); }
KvStringBase& KvStringBase::operator=(const KvString& other) { return *this = static_cast<const char*>(other); }

KvStringBase& KvStringBase::operator+=(const char* psz) {
  if (_psz == nullptr || psz == nullptr) return *this;
  // Only the room that is left is written (whole characters), and the text ends at the limit.
  const std::size_t len = std::strlen(_psz);
  if (len < _uchMaxLen) {
    if (psz >= _psz && psz <= _psz + _uchMaxLen) {
      const KvFixString<255> copy(psz);  // appending from this very buffer
      _mbsnbcat(_psz, copy, _uchMaxLen - len);
    } else {
      _mbsnbcat(_psz, psz, _uchMaxLen - len);
    }
  }
  _psz[_uchMaxLen] = '\0';
  return *this;
}
KvStringBase& KvStringBase::operator+=(const KvStringBase& other) { return *this += static_cast<const char*>(other); }
KvStringBase& KvStringBase::operator+=(const KvString& other) { return *this += static_cast<const char*>(other); }
KvStringBase& KvStringBase::operator+=(char ch) {
  const char text[2] = {ch, '\0'};
  return *this += text;
}

bool KvStringBase::IsValid() const { return _psz == nullptr || HasNulWithin(_psz, std::size_t{_uchMaxLen} + 1); }

KvStringBase& KvStringBase::ToUpper() {
  _mbsupr(_psz);
  return *this;
}
KvStringBase& KvStringBase::ToLower() {
  _mbslwr(_psz);
  return *this;
}
KvString KvStringBase::ExtractToken(const char* delims) { return TakeToken(_psz, delims, Separator::kRun); }
KvString KvStringBase::ExtractTokenStrict(const char* delims) { return TakeToken(_psz, delims, Separator::kOne); }
KvString KvStringBase::ExtractTokenLeaveDelim(const char* delims) { return ExtractTokenStrict(delims); }
KvString KvStringBase::ExtractTokenRight(char ch) { return TakeTokenRight(_psz, ch); }

bool KvStringBase::SearchChar(char ch) const {
  long pos;
  return SearchChar(ch, pos);
}
bool KvStringBase::SearchChar(char ch, long& pos) const {
  const char* text = *this;
  const char* at = ch != '\0' ? _mbschr(text, static_cast<unsigned char>(ch)) : nullptr;
  pos = at != nullptr ? static_cast<long>(at - text) : -1;
  return at != nullptr;
}
long KvStringBase::Find(const char* sub) const {
  const char* text = *this;
  const char* at = _mbsstr(text, sub != nullptr ? sub : "");
  return at != nullptr ? static_cast<long>(at - text) : -1;
}
long KvStringBase::FindOneOf(const char* set) const {
  const char* text = *this;
  const std::size_t n = _mbscspn(text, set);
  return text[n] != '\0' ? static_cast<long>(n) : -1;
}
KvString KvStringBase::Left(long n) const { return Cut(*this, LeftSlice(static_cast<std::size_t>(GetLength()), n)); }
KvString KvStringBase::Mid(long pos, long n) const {
  return Cut(*this, MidSlice(static_cast<std::size_t>(GetLength()), pos, n));
}
KvString KvStringBase::Right(long n) const { return Cut(*this, RightSlice(static_cast<std::size_t>(GetLength()), n)); }
KvString KvStringBase::operator()(long pos, long n) const {
  return Cut(*this, ClampedSlice(static_cast<std::size_t>(GetLength()), pos, n));
}
KvStringBase& KvStringBase::Remove(const char* set) {
  RemoveSet(_psz, set);
  return *this;
}
KvStringBase& KvStringBase::Replace(char a, char b) {
  ReplaceChar(_psz, a, b);
  return *this;
}
KvStringBase& KvStringBase::LTrim() { return LTrim(kBlanks); }
KvStringBase& KvStringBase::RTrim() { return RTrim(kBlanks); }
KvStringBase& KvStringBase::AllTrim() { return AllTrim(kBlanks); }
KvStringBase& KvStringBase::LTrim(const char* set) {
  KvLTrim(_psz, set);
  return *this;
}
KvStringBase& KvStringBase::RTrim(const char* set) {
  KvRTrim(_psz, set);
  return *this;
}
KvStringBase& KvStringBase::AllTrim(const char* set) { return RTrim(set).LTrim(set); }
KvStringBase& KvStringBase::FillBlank() {
  if (_psz != nullptr) {
    const std::size_t len = std::strlen(_psz);
    if (len < _uchMaxLen) std::memset(_psz + len, ' ', _uchMaxLen - len);
    _psz[_uchMaxLen] = '\0';
  }
  return *this;
}
KvStringBase& KvStringBase::AppendBackslashIfNotThere() {
  const std::size_t len = std::strlen(*this);
  if (len > 0 && _psz[len - 1] != '\\') *this += '\\';
  return *this;
}
KvString KvStringBase::GetExt() const {
  const PathParts parts = SplitPath(*this);
  return Cut(*this, {parts.ext_off, parts.len - parts.ext_off});
}
KvString KvStringBase::GetFile() const {
  const PathParts parts = SplitPath(*this);
  return Cut(*this, {parts.dir_end, parts.len - parts.dir_end});
}
KvString KvStringBase::GetDir() const { return Cut(*this, {0, SplitPath(*this).dir_end}); }
bool KvStringBase::IsShortWildCard(const char* pattern) const { return CheckShortWildCard(*this, pattern); }
bool KvStringBase::IsAsteriskWildCard(const char* pattern) const { return CheckAsteriskWildCard(*this, pattern); }

// ---------------------------------------------------------------------------------------------
// Free functions

int KvDefCompare(const KvString* a, const KvString* b) { return _mbscmp(*a, *b); }
int KvDefCompare(const KvString& a, const KvString& b) { return _mbscmp(a, b); }

unsigned int KvUniversalHashFnctn(const char* psz) {
  unsigned int h = 0;
  if (psz != nullptr)
    for (; *psz != '\0'; ++psz) h ^= static_cast<unsigned char>(*psz);
  return h;
}
unsigned int KvUniversalHashFnctn(const KvString* pstr) { return KvUniversalHashFnctn(static_cast<const char*>(*pstr)); }

bool operator==(const KvString& a, const char* b) { return _mbscmp(a, b) == 0; }
std::strong_ordering operator<=>(const KvString& a, const char* b) { return _mbscmp(a, b) <=> 0; }
bool operator==(const KvStringBase& a, const char* b) { return _mbscmp(a, b) == 0; }
std::strong_ordering operator<=>(const KvStringBase& a, const char* b) { return _mbscmp(a, b) <=> 0; }
