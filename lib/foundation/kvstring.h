// Texts of the class library: KvString, which owns a growing buffer from the arena, and
// KvStringBase and KvFixString<N>, which write into a buffer of fixed size and cut what does not
// fit. All text is 8-bit and NUL-terminated in the process's code page (lib/foundation/kvmbcs.h);
// lengths and positions count bytes. Searching, spanning, case change and bounded copies walk
// whole characters, so a double-byte character is never split or half-matched.
//
// KvString:
//   - owns its buffer alone; a copy is a deep copy. A string that never held a character owns no
//     buffer and reads as the empty text; so does every string through `operator const char*`.
//   - its buffer is a block of the arena's size classes, and the capacity is the class's size:
//     8, 16, ... 1024, then 4096, 16384, ... 16 MiB (no class of 2048 or 8192). GetMaxLength is
//     that size minus 1. The buffer grows to the class that holds the text and never shrinks:
//     assigning a shorter text keeps it. Appending therefore reallocates only when a class
//     boundary is passed. A text has at most 16777215 bytes; a longer one has no class and fails.
//   - buffers count to KvString::_GetInternalAllocWatcher, strings made with new to _GetWatcher.
//   - failures of the arena (out of memory) throw KvFailure through the operation that grew the
//     string; the string keeps its text.
//   - a pointer or reference from a writable accessor (GetCharPtr(), operator[], operator()(i))
//     may be written through until the next call on the string; any growth may move the buffer.
//
// KvStringBase writes into a buffer it does not own, of at most 255 bytes of text; KvFixString<N>
// is one with its buffer inside (N + 1 bytes). Neither ever fails on length: they cut.
//
// Operations that answer text answer a new KvString; those marked "in place" change the object
// and answer it. None of the objects has a lock: one thread at a time.
//
// Widths: lengths and positions are `long` in the interface, as callers pass them; a text never
// passes 16 MiB, so any width holds them. What is stored is 32-bit (the length KvString keeps).
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "lib/foundation/kvgran.h"
#include "lib/foundation/kvtext.h"
#include "lib/kv_export.h"

class KvString;

// The longest format string the formatting constructors take; a longer one gives the text of
// KVSTRING_FORMAT_TOO_LONG instead of a result. The result is cut at 1023 bytes.
constexpr std::size_t KVSTRING_MAX_FORMAT = 896;
#define KVSTRING_FORMAT_TOO_LONG "*KvString: Format string too long*"

// ---------------------------------------------------------------------------------------------
// A text in a foreign buffer of fixed size.
class KVCLASS_API KvStringBase {
  KVGRAN_DECLARE_NEW(KvStringBase)

 public:
  // No buffer: reads as the empty text and takes nothing.
  KvStringBase() = default;
  // Over the foreign text `psz`, which the object then writes into: the largest length is the
  // text's length now, and at most 255 (a longer text is seen whole but written only up to 255).
  explicit KvStringBase(char* psz);
  // Over the same buffer as `other`, with its text's length now as the largest length.
  KvStringBase(const KvStringBase& other);

  // Copy at most GetMaxLength() bytes of whole characters, then end the text there.
  KvStringBase& operator=(const char* psz);
  KvStringBase& operator=(const KvStringBase& other);
  KvStringBase& operator=(const KvString& other);
  KvStringBase& operator+=(const char* psz);
  KvStringBase& operator+=(const KvStringBase& other);
  KvStringBase& operator+=(const KvString& other);
  KvStringBase& operator+=(char ch);

  operator const char*() const { return _psz != nullptr ? _psz : _s_szEmpty; }
  const char* GetCharPtr() const { return *this; }
  char* GetCharPtr() { return _psz != nullptr ? _psz : _s_szEmpty; }
  long GetLength() const { return static_cast<long>(std::strlen(*this)); }
  long GetMaxLength() const { return _uchMaxLen; }
  bool IsEmpty() const { return *GetCharPtr() == '\0'; }
  bool IsNotEmpty() const { return !IsEmpty(); }
  bool operator!() const { return IsEmpty(); }
  bool IsValid() const;

  KvStringBase& ToUpper();  // in place
  KvStringBase& ToLower();  // in place
  KvString ExtractToken(const char* delims);
  KvString ExtractTokenStrict(const char* delims);
  KvString ExtractTokenLeaveDelim(const char* delims);
  KvString ExtractTokenRight(char ch);
  bool SearchChar(char ch) const;
  bool SearchChar(char ch, long& pos) const;
  long Find(const char* sub) const;
  long FindOneOf(const char* set) const;
  KvString Left(long n) const;
  KvString Mid(long pos, long n = -1) const;
  KvString Right(long n) const;
  KvString operator()(long pos, long n) const;
  char& operator()(long i) { return GetCharPtr()[i]; }
  char operator()(long i) const { return GetCharPtr()[i]; }
  char& operator[](long i) { return GetCharPtr()[i]; }
  char operator[](long i) const { return GetCharPtr()[i]; }
  KvStringBase& Remove(const char* set);   // in place
  KvStringBase& Replace(char a, char b);   // in place
  KvStringBase& LTrim();
  KvStringBase& RTrim();
  KvStringBase& AllTrim();
  KvStringBase& LTrim(const char* set);
  KvStringBase& RTrim(const char* set);
  KvStringBase& AllTrim(const char* set);
  KvStringBase& FillBlank();               // in place, up to GetMaxLength()
  KvStringBase& AppendBackslashIfNotThere();
  KvString GetExt() const;
  KvString GetFile() const;
  KvString GetDir() const;
  bool IsShortWildCard(const char* pattern) const;
  bool IsAsteriskWildCard(const char* pattern) const;

  static char _s_szEmpty[1];  // the shared empty text; only ever holds its NUL

 protected:
  // Over a buffer of max_len + 1 bytes.
  KvStringBase(char* buffer, unsigned char max_len) : _psz(buffer), _uchMaxLen(max_len) {}
  void _Rebind(char* buffer, unsigned char max_len) {
    _psz = buffer;
    _uchMaxLen = max_len;
  }

  char* _psz = nullptr;          // the text; null is the empty text
  unsigned char _uchMaxLen = 0;  // largest length in bytes
};

// A text of at most N bytes inside the object.
template <unsigned N>
class KvFixString : public KvStringBase {
  static_assert(N >= 1 && N <= 255, "a KvFixString holds 1 to 255 bytes");

 public:
  // Empty. (The rest of the buffer is not cleared.)
  KvFixString() : KvStringBase(_sz, N) { _sz[0] = _sz[N] = '\0'; }
  KvFixString(char ch) : KvFixString() { *this += ch; }
  KvFixString(const char* psz) : KvFixString() { KvStringBase::operator=(psz); }
  KvFixString(const KvStringBase& other) : KvFixString() { KvStringBase::operator=(other); }
  // A copy holds its own buffer, never the source's.
  KvFixString(const KvFixString& other) : KvFixString() { KvStringBase::operator=(other); }
  KvFixString& operator=(const KvFixString& other) {
    _Rebind(_sz, N);
    KvStringBase::operator=(other);
    return *this;
  }
  KvFixString& operator=(const char* psz) {
    KvStringBase::operator=(psz);
    return *this;
  }
  KvFixString& operator=(const KvStringBase& other) {
    KvStringBase::operator=(other);
    return *this;
  }
  KvFixString& operator+=(const char* psz) {
    KvStringBase::operator+=(psz);
    return *this;
  }
  KvFixString& operator+=(const KvStringBase& other) {
    KvStringBase::operator+=(other);
    return *this;
  }
  KvFixString& operator+=(char ch) {
    KvStringBase::operator+=(ch);
    return *this;
  }

 private:
  char _sz[N + 1];  // the buffer; _psz points here
};

// ---------------------------------------------------------------------------------------------
// An owning text that grows.
class KVCLASS_API KvString {
  KVGRAN_DECLARE_ALLOC(KvString)

 public:
  KvString() = default;
  KvString(const char* psz);  // psz must not be null
  KvString(const KvString& other);
  KvString(KvString&& other) noexcept;  // takes the buffer; `other` is left without one
  KvString(const KvStringBase& other);
  KvString(char ch);
  // The decimal text of the value.
  explicit KvString(int value);
  // 16-bit text (one character, or a NUL-terminated text) in the process's code page: in 1252
  // each unit that the code page has becomes its byte, in UTF-8 each unit is encoded, in the
  // double-byte pages ASCII passes; anything else becomes '?'. Surrogate pairs are not joined.
  explicit KvString(unsigned short ch16);
  explicit KvString(const unsigned short* psz16);

  // The value formatted by snprintf with `fmt` (see KVSTRING_MAX_FORMAT). Integers are taken as
  // 32-bit values and handed to the format at the width its conversion asks for ("%d" an int,
  // "%ld" a long, "%lld" a long long), so a format written for 32-bit longs prints right.
  KvString(const char* fmt, double value);
  KvString(const char* fmt, float value);
  KvString(const char* fmt, unsigned long value);
  KvString(const char* fmt, long value);
  KvString(const char* fmt, unsigned int value);
  KvString(const char* fmt, int value);
  KvString(const char* fmt, unsigned char value);
  KvString(const char* fmt, unsigned short value);
  KvString(const char* fmt, short value);
  KvString(const char* fmt, char value);
  KvString(double value, const char* fmt) : KvString(fmt, value) {}
  KvString(float value, const char* fmt) : KvString(fmt, value) {}
  KvString(unsigned long value, const char* fmt) : KvString(fmt, value) {}
  KvString(long value, const char* fmt) : KvString(fmt, value) {}
  KvString(unsigned int value, const char* fmt) : KvString(fmt, value) {}
  KvString(int value, const char* fmt) : KvString(fmt, value) {}
  KvString(unsigned char value, const char* fmt) : KvString(fmt, value) {}
  KvString(unsigned short value, const char* fmt) : KvString(fmt, value) {}
  KvString(short value, const char* fmt) : KvString(fmt, value) {}

  ~KvString();

  // Assignment of null is the assignment of the empty text. A source inside this string's own
  // buffer is safe everywhere.
  KvString& operator=(const char* psz);
  KvString& operator=(const KvString& other);
  KvString& operator=(KvString&& other) noexcept;
  KvString& operator=(const KvStringBase& other);
  KvString& operator+=(const char* psz) {
    // Inline while the text fits the buffer; growth and every odd case go the long way. One test
    // of the capacity covers "no buffer" (capacity 0) and an unknown length (the sum passes 2^32).
    // Length and end are taken into locals first: a store through char* may alias the members, and
    // the compiler would read them again after each.
    if (psz == nullptr) return *this;
    const std::size_t n = std::strlen(psz);
    const std::uint32_t len = _cchLen;
    if (std::size_t{len} + n < _cbBuf) {
      char* const end = _psz + len;
      if (*end == '\0' && (psz < _psz || psz > end)) {
        std::memcpy(end, psz, n + 1);
        _cchLen = len + static_cast<std::uint32_t>(n);
        return *this;
      }
    }
    return _AppendText(psz, n);
  }
  KvString& operator+=(const KvString& other);
  KvString& operator+=(const KvStringBase& other);
  KvString& operator+=(char ch) {
    const std::uint32_t len = _cchLen;
    if (ch != '\0' && std::size_t{len} + 1 < _cbBuf) {
      char* const end = _psz + len;
      if (*end == '\0') {
        end[0] = ch;
        end[1] = '\0';
        _cchLen = len + 1;
        return *this;
      }
    }
    return _AppendChar(ch);
  }

  operator const char*() const { return _psz != nullptr ? _psz : KvStringBase::_s_szEmpty; }
  const char* GetCharPtr() const { return *this; }
  char* GetCharPtr();
  long GetLength() const;
  long GetMaxLength() const;
  bool IsEmpty() const { return _psz == nullptr || *_psz == '\0'; }
  bool IsNotEmpty() const { return !IsEmpty(); }
  bool operator!() const { return IsEmpty(); }
  bool IsValid() const;

  KvString& ToUpper();
  KvString& ToLower();
  KvString ExtractToken(const char* delims);
  KvString ExtractTokenStrict(const char* delims);
  KvString ExtractTokenLeaveDelim(const char* delims);
  KvString ExtractTokenRight(char ch);
  bool SearchChar(char ch) const;
  bool SearchChar(char ch, long& pos) const;
  long Find(const char* sub) const;
  long FindOneOf(const char* set) const;
  KvString Left(long n) const;
  KvString Mid(long pos, long n = -1) const;
  KvString Right(long n) const;
  KvString operator()(long pos, long n) const;
  char& operator()(long i) { return GetCharPtr()[i]; }
  char operator()(long i) const { return GetCharPtr()[i]; }
  char& operator[](long i) { return GetCharPtr()[i]; }
  char operator[](long i) const { return GetCharPtr()[i]; }
  KvString& Remove(const char* set);
  KvString& Replace(char a, char b);
  // Every occurrence of `old` becomes `with`, left to right, never looking into replaced text.
  KvString& Replace(const char* old, const char* with);
  KvString& LTrim();
  KvString& RTrim();
  KvString& AllTrim();
  KvString& LTrim(const char* set);
  KvString& RTrim(const char* set);
  KvString& AllTrim(const char* set);
  KvString& FillBlank();
  KvString& AppendBackslashIfNotThere();
  KvString GetExt() const;
  KvString GetFile() const;
  KvString GetDir() const;
  bool IsShortWildCard(const char* pattern) const;
  bool IsAsteriskWildCard(const char* pattern) const;

  // Appends exactly n bytes of `text` (NULs included), then a NUL; n <= 0 does nothing.
  KvString& ConcatN(const char* text, long n);
  // The text becomes the first n bytes of `text`, or all of it when it is shorter.
  KvString& CopyN(const char* text, long n);
  // Pads with blanks up to length n, growing the buffer; a longer text stays as it is.
  KvString& FillBlank(long n);
  // Puts `ch` in front until the length is at least n.
  KvString& InsertLeadingChars(char ch, long n);
  // Ends the text at byte `pos`; an empty text stays. A position beyond GetMaxLength() (or below
  // 0) writes the debug lines of the case and fails with
  // "AppendBackslashNullAtPosition: lPos out of range".
  KvString& AppendBackslashNullAtPosition(long pos);
  // The absolute form of the path, at most 259 bytes (a longer result leaves the text as it
  // is): a relative path is taken from the process's current directory, "." and ".." go, and
  // separators become backslashes.
  KvString& MakeAbsolutePath();

  // The buffer's size class, or null.
  KvGranularity* _GetGranularity() const { return _pogran; }
  // Makes the buffer hold `need` bytes, the NUL counted (see the growth rule above).
  void AllocIfNecessary(std::size_t need);

 private:
  static constexpr std::uint32_t kLengthUnknown = 0xFFFFFFFFu;

  // Gives the buffer at least `need` bytes. The old buffer, when one was replaced, is handed back
  // in *old for the caller to release with _Release once it has read what it needs from it.
  struct OldBuffer {
    char* psz = nullptr;
    KvGranularity* pogran = nullptr;
  };
  void _Grow(std::size_t need, OldBuffer* old);
  static void _Release(const OldBuffer& old);
  // Sets the text to `n` bytes at `p` (which may lie in this buffer), then a NUL.
  void _Assign(const char* p, std::size_t n);
  void _Append(const char* p, std::size_t n);
  // _Append when the text does not fit and `p` lies outside the buffer: the arena fills the new
  // buffer from the old one and takes the old one back in the same call. False when no class holds
  // the text (the general path then fails for it).
  bool _AppendGrowing(const char* p, std::size_t n, std::size_t len);
  KvString& _AppendText(const char* psz, std::size_t n);
  KvString& _AppendChar(char ch);
  void _SetLength(std::size_t n) { _cchLen = static_cast<std::uint32_t>(n); }
  template <class T>
  void _Format(const char* fmt, T value);
  friend class KvStringBase;

  char* _psz = nullptr;               // the buffer; null while there is none
  KvGranularity* _pogran = nullptr;   // its size class; null while there is no buffer
  // The text's length as last seen, so that appending need not scan the text; kLengthUnknown
  // after a writable accessor was used. Checked against the NUL before each use.
  mutable std::uint32_t _cchLen = 0;
  // The buffer's capacity, the size of its class (0 without a buffer), kept beside the pointers so
  // that the inline appends need not read the class record. It fills what was padding: the object
  // stays 24 bytes.
  std::uint32_t _cbBuf = 0;
};

static_assert(sizeof(void*) != 8 || sizeof(KvString) == 24, "the capacity fills the padding behind the length");

KVCLASS_API KvString operator+(const KvString& a, const KvString& b);
KVCLASS_API KvString operator+(const KvString& a, const char* b);

// Comparison by _mbscmp: -1, 0 or 1; a string without buffer is the empty text. This is the text
// order of every sorted container.
KVCLASS_API int KvDefCompare(const KvString* a, const KvString* b);
KVCLASS_API int KvDefCompare(const KvString& a, const KvString& b);
// The XOR of all bytes of the text: 0 .. 255, 0 for the empty text.
KVCLASS_API unsigned int KvUniversalHashFnctn(const char* psz);
KVCLASS_API unsigned int KvUniversalHashFnctn(const KvString* pstr);

inline bool operator==(const KvString& a, const KvString& b) { return KvDefCompare(a, b) == 0; }
inline std::strong_ordering operator<=>(const KvString& a, const KvString& b) { return KvDefCompare(a, b) <=> 0; }
KVCLASS_API bool operator==(const KvString& a, const char* b);
KVCLASS_API std::strong_ordering operator<=>(const KvString& a, const char* b);
KVCLASS_API bool operator==(const KvStringBase& a, const char* b);
KVCLASS_API std::strong_ordering operator<=>(const KvStringBase& a, const char* b);
inline bool operator==(const KvStringBase& a, const KvStringBase& b) { return a == static_cast<const char*>(b); }
inline std::strong_ordering operator<=>(const KvStringBase& a, const KvStringBase& b) {
  return a <=> static_cast<const char*>(b);
}
inline bool operator==(const KvString& a, const KvStringBase& b) { return a == static_cast<const char*>(b); }
inline std::strong_ordering operator<=>(const KvString& a, const KvStringBase& b) {
  return a <=> static_cast<const char*>(b);
}
