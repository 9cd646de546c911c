#include "tools/kvd/text_out.h"

#include <cstdio>

namespace kvd::tool {

namespace {
// Windows-1252 0x80..0x9F; 0 marks the five bytes the code page leaves undefined.
const unsigned short kHigh[32] = {0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                  0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
                                  0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                  0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

void PutUtf8(std::string& out, unsigned cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}
}  // namespace

std::string Cp1252ToUtf8(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size());
  for (unsigned char c : bytes) {
    unsigned cp = c;
    if (c >= 0x80 && c <= 0x9F && kHigh[c - 0x80]) cp = kHigh[c - 0x80];
    PutUtf8(out, cp);
  }
  return out;
}

std::string JsonString(std::string_view s) {
  std::string out = "\"";
  for (unsigned char c : s) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out + "\"";
}

std::string CsvField(std::string_view s) {
  if (s.find_first_of(",\"\n\r") == std::string_view::npos) return std::string(s);
  std::string out = "\"";
  for (char c : s) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

std::string_view TrimRight(std::string_view s) {
  while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
  return s;
}

std::string_view Trim(std::string_view s) {
  s = TrimRight(s);
  while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
  return s;
}

}  // namespace kvd::tool
