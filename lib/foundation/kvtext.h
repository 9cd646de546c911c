// Blank padding, trimming and the truth test of texts: the few text routines every table module
// calls on the fixed-width, blank-padded fields of its tables.
#pragma once

#include "lib/kv_export.h"

// Removes trailing blanks, tabs, line feeds and carriage returns; returns its argument.
KVCLASS_API char* KvRTrim(char* s);
// Removes the same characters from the front, moving the rest down; returns its argument.
KVCLASS_API char* KvLTrim(char* s);
// Pads with blanks up to length n and ends the text at n. A text of n bytes or more is left as it
// is and never cut, so the buffer must hold n + 1 bytes.
KVCLASS_API void KvFillBlank(char* s, int n);
// 1 when the first character is one of 1 J T W Y j t w y (yes in several languages), else 0.
KVCLASS_API int KvIsTrue(const char* s);

// The same trims with another set of characters. KvRTrim removes trailing bytes found in `set`,
// byte by byte from the end (a plain byte test, like the one above); KvLTrim removes the leading
// run of whole characters of `set`. A null set trims nothing.
KVCLASS_API char* KvRTrim(char* s, const char* set);
KVCLASS_API char* KvLTrim(char* s, const char* set);

// Wild cards, compared byte by byte and case-sensitively. In CheckAsteriskWildCard a '?' takes any
// one byte (but not the end of the name), and a '*' ends the comparison with a match whatever
// follows in either text: it works only as a tail. Without a '*', the name must end with the
// pattern. CheckShortWildCard is the prefix test: the pattern with a '*' behind it (an empty
// pattern takes every name). Null texts read as empty.
KVCLASS_API bool CheckAsteriskWildCard(const char* name, const char* pattern);
KVCLASS_API bool CheckShortWildCard(const char* name, const char* pattern);
