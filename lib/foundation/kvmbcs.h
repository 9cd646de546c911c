// The multi-byte text routines of the class library, over one code page per process.
//
// All text of the library is 8-bit, NUL-terminated, in the process's code page. These routines
// walk it a character at a time, so that the second byte of a double-byte character is never
// taken for a character of its own: in code page 932 the character 0x95 0x5C ends in the byte of
// '\\', and _mbschr(text, '\\') must not stop on it, nor a bounded copy split the pair.
//
// Why here and not in platform/: the code page is one setting for the whole process, and
// platform/ is a static library of which every shared object of the suite carries its own copy
// (libKvClass.so and libKvdDat.so each link one). A setting kept there would exist once per
// library. libKvClass.so is the one object every program of the suite loads, and the routines
// ask nothing of the system: they are table look-ups over bytes.
//
// Code pages:
//   1252   (default) single byte, Western European: the code page of the plants' files;
//   65001  UTF-8: a character is a lead byte and its continuation bytes (sequences of up to six
//          bytes, as UTF-8 was first defined); a malformed sequence counts byte by byte;
//   932 (Japanese, Shift-JIS), 936 (Simplified Chinese, GBK), 949 (Korean, Unified Hangul),
//   950 (Traditional Chinese, Big5): a lead byte and the byte after it make one character,
//          whatever that second byte is, unless it is the terminating NUL.
// Case change knows ASCII everywhere, the accented letters of 1252 in 1252, and in UTF-8 the
// letters of the same range (U+00C0 to U+00FE and U+00FF/U+0178, which keep their lengths).
// Double-byte characters keep their case. Comparisons are by character code, never by locale:
// a double-byte character's code is its lead byte times 256 plus its second byte.
//
// Text pointers are `char*`; bytes are read as unsigned. A character argument `c` is a byte
// (0 .. 255), a double-byte code (lead * 256 + trail) in the double-byte pages, or a code point
// in UTF-8. Functions that find something return a pointer into their argument, as strchr does.
//
// Threads: the code page is read atomically by every call; change it before threads use text, as
// a text read under one page and walked under another is walked wrongly.
#pragma once

#include <cstddef>

#include "lib/kv_export.h"

namespace kvd::mbcs {

constexpr int kCodePageWestern = 1252;
constexpr int kCodePageUtf8 = 65001;
constexpr int kCodePageJapanese = 932;
constexpr int kCodePageSimplifiedChinese = 936;
constexpr int kCodePageKorean = 949;
constexpr int kCodePageTraditionalChinese = 950;

// Selects the process's code page: 0, or -1 (and no change) for a page not listed above.
KVCLASS_API int _setmbcp(int codepage);
KVCLASS_API int _getmbcp();

// True when `c` begins a character of more than one byte in the current code page.
KVCLASS_API bool _ismbblead(unsigned int c);
// Bytes of the character at `p`: 0 at the terminating NUL, else 1 up to 6.
KVCLASS_API std::size_t _mbclen(const char* p);

// The first (last) character equal to `c`, or null. `c` 0 finds the terminator.
KVCLASS_API char* _mbschr(const char* s, unsigned int c);
KVCLASS_API char* _mbsrchr(const char* s, unsigned int c);
// The first place where `sub` begins on a character boundary, or null; an empty `sub` gives `s`.
KVCLASS_API char* _mbsstr(const char* s, const char* sub);
// Bytes of the leading run of characters that are (are not) characters of `set`.
KVCLASS_API std::size_t _mbsspn(const char* s, const char* set);
KVCLASS_API std::size_t _mbscspn(const char* s, const char* set);
// Copies whole characters of `src` while they fit in `n` bytes, then fills the rest of the `n`
// bytes with NUL; like strncpy, no terminator is written when `src` fills all `n`. Returns dst.
KVCLASS_API char* _mbsnbcpy(char* dst, const char* src, std::size_t n);
// Appends whole characters of `src` while they fit in `n` bytes, then a NUL. Returns dst.
KVCLASS_API char* _mbsnbcat(char* dst, const char* src, std::size_t n);
// Upper (lower) case in place; returns s.
KVCLASS_API char* _mbsupr(char* s);
KVCLASS_API char* _mbslwr(char* s);
// Negative, 0 or positive by character codes; _mbsicmp after folding both to lower case;
// _mbsnbcmp over at most the first `n` bytes, a character that would cross them not compared.
KVCLASS_API int _mbscmp(const char* a, const char* b);
KVCLASS_API int _mbsicmp(const char* a, const char* b);
KVCLASS_API int _mbsnbcmp(const char* a, const char* b, std::size_t n);
// Sets every byte to `c`, keeping the byte length; a double-byte `c` goes in pairs, and an odd
// byte left at the end becomes a blank. Returns s.
KVCLASS_API char* _mbsset(char* s, unsigned int c);

}  // namespace kvd::mbcs
