// HostPath: from the Windows form callers build to a path of this machine.
//
// Cost. A path whose every component exists as written costs one lstat (an open of an existing
// file through File::Open none: it tries HostPathAsWritten first). Otherwise we look for the
// longest leading part that exists as written (one lstat per component tried, from the end), and
// resolve the rest component by component; only a component that is missing as written makes us
// read its directory. Nothing is cached: another process may create or rename a file at any time.
#include "platform/path.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cstdlib>
#include <optional>
#include <vector>

namespace kvd::platform {

namespace {

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

char AsciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool EqualIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (AsciiLower(a[i]) != AsciiLower(b[i])) return false;
  }
  return true;
}

bool NameExists(const std::string& host) {
  struct stat st;
  return ::lstat(host.c_str(), &st) == 0;
}

// Joins a base ("" for the current directory, or ending in '/') with components.
std::string Join(const std::string& base, const std::vector<std::string>& parts, std::size_t count) {
  std::string out = base;
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) out.push_back('/');
    out.append(parts[i]);
  }
  return out;
}

// The entry of directory `dir` ("" = current directory) whose name equals `name` ignoring ASCII
// case; the smallest in byte order when there are several. Nothing when none does or the directory
// cannot be read.
std::optional<std::string> FindIgnoringCase(const std::string& dir, const std::string& name) {
  DIR* d = ::opendir(dir.empty() ? "." : dir.c_str());
  if (d == nullptr) return std::nullopt;
  std::optional<std::string> best;
  while (struct dirent* e = ::readdir(d)) {
    std::string_view entry(e->d_name);
    if (!EqualIgnoringCase(entry, name)) continue;
    if (!best || entry < std::string_view(*best)) best = std::string(entry);
  }
  ::closedir(d);
  return best;
}

// A path split for resolving: the base the components hang from ("" for a relative path, or a
// directory ending in '/'), the components with runs of separators counted as one, and whether the
// path ended in a separator. Pure string work, apart from reading KVD_DRIVE_X.
struct SplitPath {
  std::string base;
  std::vector<std::string> parts;
  bool trailing_separator = false;
};

SplitPath Split(std::string_view path) {
  SplitPath sp;
  std::string_view rest = path;
  if (rest.size() >= 2 && rest[1] == ':' &&
      ((rest[0] >= 'A' && rest[0] <= 'Z') || (rest[0] >= 'a' && rest[0] <= 'z'))) {
    char var[] = "KVD_DRIVE_X";
    var[sizeof(var) - 2] = static_cast<char>(rest[0] & ~0x20);  // upper case
    const char* drive = std::getenv(var);
    sp.base = (drive != nullptr && drive[0] != '\0') ? drive : "/";
    rest.remove_prefix(2);
    // The drive stands for a directory, so "C:" and "C:\" both mean its top.
    if (sp.base.back() != '/') sp.base.push_back('/');
  } else if (!rest.empty() && IsSeparator(rest[0])) {
    sp.base = "/";
  }
  std::size_t i = 0;
  while (i < rest.size()) {
    if (IsSeparator(rest[i])) {
      ++i;
      continue;
    }
    std::size_t end = i;
    while (end < rest.size() && !IsSeparator(rest[end])) ++end;
    sp.parts.emplace_back(rest.substr(i, end - i));
    sp.trailing_separator = end < rest.size();
    i = end;
  }
  return sp;
}

std::string Joined(const SplitPath& sp) {
  if (sp.parts.empty()) return sp.base;
  std::string out = Join(sp.base, sp.parts, sp.parts.size());
  if (sp.trailing_separator) out.push_back('/');
  return out;
}

}  // namespace

std::string HostPathAsWritten(std::string_view path) { return Joined(Split(path)); }

std::string HostPath(std::string_view path) {
  SplitPath sp = Split(path);
  if (sp.parts.empty()) return sp.base;
  const std::string& base = sp.base;
  std::vector<std::string>& parts = sp.parts;

  // Longest leading run of components that exists as written. The base itself is a host path
  // already and is not looked at.
  std::size_t known = parts.size();
  while (known > 0 && !NameExists(Join(base, parts, known))) --known;

  // Resolve the rest. Once a component matches nothing, nothing below it can exist either, so the
  // remaining components stay as written.
  for (std::size_t k = known; k < parts.size(); ++k) {
    const std::string& name = parts[k];
    if (name == "." || name == "..") continue;  // these mean the same in any case
    std::string dir = Join(base, parts, k);
    if (k > known && NameExists(Join(base, parts, k + 1))) continue;
    std::optional<std::string> found = FindIgnoringCase(dir, name);
    if (!found) break;
    parts[k] = std::move(*found);
  }
  return Joined(sp);
}

std::string_view DirPart(std::string_view path) {
  std::size_t slash = path.find_last_of("/\\");
  return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash + 1);
}

std::string_view NamePart(std::string_view path) {
  std::size_t slash = path.find_last_of("/\\");
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

}  // namespace kvd::platform
