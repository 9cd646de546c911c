// Hexadecimal forms of binary values, and the memory dump.
//
// Digits are written in upper case and read in either case. The 32- and 64-bit forms keep the
// widths of the values they carry on disk and in texts: a ULong32 is a std::uint32_t and always
// 8 digits, a ULong64 two of them (high word first) and always 16 digits. A pointer or any value
// of this machine's width goes through KvUnsignedToHex with its own size, so an address is
// written and read at its full width (16 digits here).
// No state; any thread.
#pragma once

#include <cstdint>

#include "lib/kv_export.h"

class KvString;

// Writes the n bytes at p from the last to the first, two digits each, without a terminator, so
// a little-endian number reads in its natural order. `out` holds 2n bytes (2n + 1 for the Sz
// form, which adds a NUL).
KVCLASS_API void KvUnsignedToHex(const void* p, long n, char* out);
KVCLASS_API void KvUnsignedToHexSz(const void* p, long n, char* out);
// Reads 2n digits of `text` into the n bytes at p, from the last byte to the first, ORing each
// pair into what is there (the caller zeroes the target). At the first character that is no
// digit (the end of the text included) all n bytes become 0xFF and the result is false.
KVCLASS_API bool KvHexToUnsigned(void* p, long n, const char* text);

// 8 digits, most significant first; the Sz forms add a NUL.
KVCLASS_API void ULong32ToHex(std::uint32_t ul, char* out);
KVCLASS_API void ULong32ToHexSz(std::uint32_t ul, char* out);
// Exactly 8 digits; on a bad one `ul` becomes 0xFFFFFFFF and the result is false.
KVCLASS_API bool HexToULong32(std::uint32_t& ul, const char* text);
// 16 digits: `high`, then `low`.
KVCLASS_API void ULong64ToHex(std::uint32_t high, std::uint32_t low, char* out);
KVCLASS_API void ULong64ToHexSz(std::uint32_t high, std::uint32_t low, char* out);
// Exactly 16 digits; on a bad one both words become 0xFFFFFFFF and the result is false.
KVCLASS_API bool HexToULong64(std::uint32_t& high, std::uint32_t& low, const char* text);

// The n bytes at p as text: "<n> Bytes: ", then per byte two lower-case digits and a blank, or
// the digits and '*' for a byte that can be read but not written, or "?? " for one that cannot be
// read; one more blank after every fourth byte and a line feed after every sixteenth, and a line
// feed closing a last line that is not full. Access is asked of the system once per call.
// KvMemDumpString2Blob, which reads a list of decimal bytes (not this dump) into a KvBlob, is
// declared with KvBlob in lib/system/kvblob.h.
KVCLASS_API KvString KvMemDump2String(const void* p, long n);
