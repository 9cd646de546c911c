// 16-bit and UTF-8 text: the conversion of the plants' 8-bit text (code page 1252) to 16-bit
// units, and UTF-8 as it was first defined, with sequences of up to six bytes (code points up to
// 0x7FFFFFFF). 16-bit units are `unsigned short`, two bytes on every platform (wchar_t is not).
// No state; any thread.
#pragma once

#include <cstdint>

#include "lib/kv_export.h"

// Converts up to n bytes of `text`, stopping early at its NUL, into `out`, one unit a byte, and
// writes a terminating 0 behind them: bytes outside 0x80 .. 0x9F keep their value, those inside
// map as code page 1252 does, and the five that 1252 leaves open (0x81, 0x8D, 0x8F, 0x90, 0x9D)
// become a blank. `out` holds n + 1 units. Returns the units written with the terminator.
KVCLASS_API long AnsiToUc16(unsigned short* out, const char* text, long n);
// The unit of one byte, as AnsiToUc16 converts it.
KVCLASS_API unsigned short KvAnsiToUc16Char(unsigned char b);

// Bytes that code point c takes in UTF-8: 1 below 0x80, 2 below 0x800, 3 below 0x10000, 4 below
// 0x200000, 5 below 0x4000000, 6 up to 0x7FFFFFFF, 0 above.
KVCLASS_API int Uc32ToUtf8Bytes(std::uint32_t c);
// Writes the sequence of c into `out` (up to 6 bytes, no terminator) and returns its length. For
// c == 0 it writes one NUL and returns 0; above 0x7FFFFFFF it writes nothing and returns -1.
KVCLASS_API int Uc32ToUtf8(std::uint32_t c, char* out);
// Encodes the 0-terminated units of `in`, each by itself (surrogate pairs are not joined), into
// `out` of `size` bytes, stopping before a sequence would pass size - 1 bytes; writes the NUL and
// returns the bytes written with it (1 for an empty input). Size 0 writes nothing and returns 0.
KVCLASS_API long Uc16ToUtf8(char* out, const unsigned short* in, long size);
// Length of the UTF-8 sequence led by *p: 0 for the NUL, 1 below 0x80, 2 to 6 for the lead bytes
// 0xC0..0xDF, 0xE0..0xEF, 0xF0..0xF7, 0xF8..0xFB, 0xFC..0xFD; -1 for any other byte.
KVCLASS_API int MbLen(const char* p);
// Characters of the UTF-8 text at p, counted up to the first byte that leads no sequence (or a
// sequence that the NUL cuts short). Continuation bytes are not looked at.
KVCLASS_API long MbsLen(const char* p);
