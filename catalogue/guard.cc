// The rules that keep the catalogue's names and directories from reaching where they must not:
// a name never leaves the directory it is joined to, and a directory the catalogue empties, moves
// or prunes is never a root, the admin directory or a directory above it.
#include <cstdlib>
#include <cstring>
#include <string>

#include "catalogue/catalogue.h"
#include "lib/foundation/kvtext.h"
#include "platform/dir.h"

namespace kvd::catalogue {
namespace {

bool IsSeparator(char c) { return c == '\\' || c == '/'; }

std::string Trimmed(std::string_view text) {
  std::string s(text);
  s.push_back('\0');
  KvLTrim(KvRTrim(s.data()));
  s.resize(std::strlen(s.c_str()));
  return s;
}

}  // namespace

bool CleanName(const char* name, std::string* trimmed) {
  std::string n = Trimmed(name != nullptr ? name : "");
  if (n.empty() || n.size() > 8 || n == "." || n == "..") return false;
  for (char c : n) {
    if (static_cast<unsigned char>(c) < 0x20 || std::strchr("\\/:*?<>\"|", c) != nullptr) return false;
  }
  if (trimmed != nullptr) *trimmed = std::move(n);
  return true;
}

std::string ProjectDirectory(std::string_view pfad) {
  // Trimmed before it is completed, so that a drive letter behind blanks still counts as one.
  char buf[KVD_PATH_MAX + 2] = {};
  const std::string t = Trimmed(pfad);
  std::memcpy(buf, t.data(), std::min<std::size_t>(t.size(), KVD_PATH_MAX - 1));
  CompletePath(buf, GetAdminPath());
  buf[KVD_PATH_MAX - 2] = '\0';  // room for the separator
  AppendBackslash(buf);
  return buf;
}

bool IsProtectedDirectory(std::string_view dir) {
  std::string d = Trimmed(dir);
  while (!d.empty() && IsSeparator(d.back())) d.pop_back();
  // The current directory, the host's top, a drive's top, by their spelling.
  if (d.empty() || (d.size() == 2 && d[1] == ':')) return true;
  // And by where they lead: the host's root, the directory of a drive letter, the admin directory
  // and every directory above it.
  if (platform::IsSameOrBelow("/", d)) return true;
  for (char letter = 'A'; letter <= 'Z'; ++letter) {
    const std::string var = std::string("KVD_DRIVE_") + letter;
    const char* mapped = std::getenv(var.c_str());
    if (mapped != nullptr && *mapped != '\0' && platform::IsSameOrBelow(mapped, d)) return true;
  }
  const std::string admin = GetAdminPath()[0] != '\0' ? GetAdminPath() : ".";
  return platform::IsSameOrBelow(admin, d);
}

bool Overlap(std::string_view a, std::string_view b) {
  return platform::IsSameOrBelow(a, b) || platform::IsSameOrBelow(b, a);
}

}  // namespace kvd::catalogue
