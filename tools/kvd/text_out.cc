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

namespace {
// Decodes the UTF-8 sequence at the start of `s` into *cp; returns its length, 0 when invalid.
std::size_t DecodeUtf8(std::string_view s, unsigned* cp) {
  const unsigned char c = static_cast<unsigned char>(s[0]);
  std::size_t n = c < 0x80 ? 1 : (c & 0xE0) == 0xC0 ? 2 : (c & 0xF0) == 0xE0 ? 3 : (c & 0xF8) == 0xF0 ? 4 : 0;
  if (n == 0 || n > s.size()) return 0;
  unsigned v = n == 1 ? c : c & (0x7F >> n);
  for (std::size_t i = 1; i < n; ++i) {
    const unsigned char k = static_cast<unsigned char>(s[i]);
    if ((k & 0xC0) != 0x80) return 0;
    v = (v << 6) | (k & 0x3F);
  }
  const unsigned least[] = {0, 0, 0x80, 0x800, 0x10000};  // shorter forms are not UTF-8
  if (v < least[n] || v > 0x10FFFF || (v >= 0xD800 && v <= 0xDFFF)) return 0;
  *cp = v;
  return n;
}
}  // namespace

bool Utf8ToCp1252(std::string_view text, std::string* bytes) {
  std::string out;
  for (std::string_view rest = text; !rest.empty();) {
    unsigned cp = 0;
    const std::size_t n = DecodeUtf8(rest, &cp);
    if (n == 0) {  // not UTF-8: the bytes are meant as they are
      *bytes = std::string(text);
      return true;
    }
    rest.remove_prefix(n);
    if (cp < 0x80 || (cp >= 0xA0 && cp <= 0xFF) || (cp >= 0x80 && cp <= 0x9F && !kHigh[cp - 0x80])) {
      out += static_cast<char>(cp);
      continue;
    }
    int found = -1;
    for (int i = 0; i < 32 && found < 0; ++i)
      if (kHigh[i] == cp) found = i;
    if (found < 0) return false;
    out += static_cast<char>(0x80 + found);
  }
  *bytes = std::move(out);
  return true;
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
