// Case of names the files carry (field, tag and file names): ASCII letters only, whatever locale
// the program set. Bytes above 0x7F keep their case; no name of a table holds one that matters.
#pragma once

#include <string_view>

namespace kvd::platform {

inline char AsciiUpper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

inline bool EqualNoCaseAscii(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (AsciiUpper(a[i]) != AsciiUpper(b[i])) return false;
  return true;
}

}  // namespace kvd::platform
