// Small JSON helpers shared by the interop programs: writing, and a reader for what they and the
// peer manifests hold (objects, arrays, strings, numbers, true, false, null).
//
// Strings are byte strings: "\u00XX" stands for the byte XX, which is how the manifests and our
// own files carry 8-bit table text (one character per file byte). A \u escape above 0xFF, which
// none of these files has, is kept as its UTF-8 bytes.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kvd::interop {

// ---- writing ----------------------------------------------------------------------------------

// The text as a JSON string literal, quotes included; bytes outside printable ASCII as \u00XX.
inline std::string Quote(std::string_view bytes) {
  std::string out = "\"";
  for (unsigned char c : bytes) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20 || c >= 0x7F) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      out += buf;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out + "\"";
}

inline std::string Hex(std::string_view bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(bytes.size() * 2);
  for (unsigned char c : bytes) {
    out += kDigits[c >> 4];
    out += kDigits[c & 15];
  }
  return out;
}

// ---- reading ----------------------------------------------------------------------------------

class Json {
 public:
  enum class Type { kNull, kBool, kNumber, kString, kArray, kObject };

  Type type() const { return type_; }
  bool is_null() const { return type_ == Type::kNull; }
  bool boolean() const { Expect(Type::kBool); return bool_; }
  double number() const { Expect(Type::kNumber); return number_; }
  long long integer() const { Expect(Type::kNumber); return static_cast<long long>(number_); }
  const std::string& str() const { Expect(Type::kString); return string_; }
  const std::vector<Json>& array() const { Expect(Type::kArray); return array_; }
  std::size_t size() const { return array().size(); }
  const Json& operator[](std::size_t i) const { return array().at(i); }
  bool has(const std::string& key) const { Expect(Type::kObject); return object_.count(key) != 0; }
  const Json& operator[](const std::string& key) const {
    Expect(Type::kObject);
    auto it = object_.find(key);
    if (it == object_.end()) throw std::runtime_error("JSON: no member \"" + key + "\"");
    return it->second;
  }
  const Json& operator[](const char* key) const { return (*this)[std::string(key)]; }

  static Json Parse(std::string_view text) {
    Parser p{text, 0};
    Json v = p.Value();
    p.SkipSpace();
    if (p.pos != text.size()) p.Fail("text after the value");
    return v;
  }

 private:
  void Expect(Type t) const {
    if (type_ != t) throw std::runtime_error("JSON: value of another type than expected");
  }

  struct Parser {
    std::string_view s;
    std::size_t pos;

    [[noreturn]] void Fail(const char* what) const {
      throw std::runtime_error(std::string("JSON: ") + what + " at offset " + std::to_string(pos));
    }
    void SkipSpace() {
      while (pos < s.size() && (s[pos] == ' ' || s[pos] == '\n' || s[pos] == '\r' || s[pos] == '\t')) ++pos;
    }
    bool Take(std::string_view word) {
      if (s.substr(pos, word.size()) != word) return false;
      pos += word.size();
      return true;
    }
    unsigned Hex4() {
      if (pos + 4 > s.size()) Fail("short \\u escape");
      unsigned v = 0;
      for (int i = 0; i < 4; ++i) {
        const char c = s[pos++];
        v <<= 4;
        if (c >= '0' && c <= '9') v |= static_cast<unsigned>(c - '0');
        else if (c >= 'a' && c <= 'f') v |= static_cast<unsigned>(c - 'a' + 10);
        else if (c >= 'A' && c <= 'F') v |= static_cast<unsigned>(c - 'A' + 10);
        else Fail("bad \\u escape");
      }
      return v;
    }
    std::string String() {
      if (!Take("\"")) Fail("string expected");
      std::string out;
      while (true) {
        if (pos >= s.size()) Fail("unterminated string");
        const char c = s[pos++];
        if (c == '"') return out;
        if (c != '\\') {
          out += c;
          continue;
        }
        if (pos >= s.size()) Fail("unterminated escape");
        const char e = s[pos++];
        switch (e) {
          case '"': out += '"'; break;
          case '\\': out += '\\'; break;
          case '/': out += '/'; break;
          case 'b': out += '\b'; break;
          case 'f': out += '\f'; break;
          case 'n': out += '\n'; break;
          case 'r': out += '\r'; break;
          case 't': out += '\t'; break;
          case 'u': {
            unsigned cp = Hex4();
            if (cp >= 0xD800 && cp < 0xDC00 && Take("\\u")) {
              const unsigned lo = Hex4();
              cp = 0x10000 + ((cp - 0xD800) << 10) + (lo - 0xDC00);
            }
            if (cp <= 0xFF) {
              out += static_cast<char>(cp);  // one file byte
            } else if (cp < 0x800) {
              out += static_cast<char>(0xC0 | (cp >> 6));
              out += static_cast<char>(0x80 | (cp & 0x3F));
            } else if (cp < 0x10000) {
              out += static_cast<char>(0xE0 | (cp >> 12));
              out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
              out += static_cast<char>(0x80 | (cp & 0x3F));
            } else {
              out += static_cast<char>(0xF0 | (cp >> 18));
              out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
              out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
              out += static_cast<char>(0x80 | (cp & 0x3F));
            }
            break;
          }
          default: Fail("unknown escape");
        }
      }
    }
    Json Value() {
      SkipSpace();
      if (pos >= s.size()) Fail("value expected");
      Json v;
      const char c = s[pos];
      if (c == '{') {
        ++pos;
        v.type_ = Type::kObject;
        SkipSpace();
        if (Take("}")) return v;
        while (true) {
          SkipSpace();
          std::string key = String();
          SkipSpace();
          if (!Take(":")) Fail("':' expected");
          v.object_[key] = Value();
          SkipSpace();
          if (Take("}")) return v;
          if (!Take(",")) Fail("',' or '}' expected");
        }
      }
      if (c == '[') {
        ++pos;
        v.type_ = Type::kArray;
        SkipSpace();
        if (Take("]")) return v;
        while (true) {
          v.array_.push_back(Value());
          SkipSpace();
          if (Take("]")) return v;
          if (!Take(",")) Fail("',' or ']' expected");
        }
      }
      if (c == '"') {
        v.type_ = Type::kString;
        v.string_ = String();
        return v;
      }
      if (Take("true")) { v.type_ = Type::kBool; v.bool_ = true; return v; }
      if (Take("false")) { v.type_ = Type::kBool; v.bool_ = false; return v; }
      if (Take("null")) return v;
      const std::size_t start = pos;
      while (pos < s.size() && std::string_view("+-0123456789.eE").find(s[pos]) != std::string_view::npos) ++pos;
      if (pos == start) Fail("unexpected character");
      v.type_ = Type::kNumber;
      v.number_ = std::stod(std::string(s.substr(start, pos - start)));
      return v;
    }
  };

  Type type_ = Type::kNull;
  bool bool_ = false;
  double number_ = 0;
  std::string string_;
  std::vector<Json> array_;
  std::map<std::string, Json> object_;
};

}  // namespace kvd::interop
