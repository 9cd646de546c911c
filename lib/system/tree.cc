// Tree operations over the platform's file and directory calls.
//
// Paths stay in the caller's Windows form all the way down; the platform maps each one at the
// moment it touches the disk. Names that come from a listing are joined to their directory in
// their stored spelling, so they resolve exactly.
//
// Internals answer with a Status; the exported functions turn it into the bool or int their
// callers know and never let an exception out.
#include "lib/system/tree.h"
#include "lib/system/tree_impl.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "platform/dir.h"
#include "platform/env.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/status.h"

namespace kvd::lib {
namespace {

using platform::DirEntry;
using platform::EntryType;

constexpr std::size_t kMaxPath = 260;          // a caller's path buffer, terminator included
constexpr unsigned kExclamationBox = 0x30;     // OK button with the exclamation icon
constexpr char kOutOfMemoryText[] = "Not enough storage is available to complete this operation";

bool IsSeparator(char c) { return c == '\\' || c == '/'; }
bool IsBlank(char c) { return c == ' ' || c == '\t'; }
bool HasWildcards(std::string_view s) { return s.find_first_of("*?") != std::string_view::npos; }
char AsciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }
char AsciiUpper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }
bool IsAsciiLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

std::string JoinPath(std::string_view dir, std::string_view name) {
  std::string out(dir);
  if (!out.empty() && !IsSeparator(out.back())) out.push_back('\\');
  out.append(name);
  return out;
}

// "C:\A\B\" -> "C:\A\B"; a path that is nothing but a top ("\", "C:\") keeps its separator.
std::string_view WithoutTrailingSeparators(std::string_view p) {
  while (!p.empty() && IsSeparator(p.back())) {
    std::string_view shorter = p.substr(0, p.size() - 1);
    if (shorter.empty() || (shorter.size() == 2 && shorter[1] == ':')) break;
    p = shorter;
  }
  return p;
}

// '*' any run, '?' exactly one character, ASCII case ignored.
bool Glob(std::string_view name, std::string_view pattern) {
  std::size_t n = 0, p = 0;
  std::size_t star = std::string_view::npos, resume = 0;
  while (n < name.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      resume = n;
    } else if (p < pattern.size() && (pattern[p] == '?' || AsciiLower(pattern[p]) == AsciiLower(name[n]))) {
      ++n;
      ++p;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      n = ++resume;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

// Glob plus the shell's reading of names without a point: "*.*" and "NAME.*" take "NAME", and
// "NAME." takes it too.
bool MatchesPattern(std::string_view name, std::string_view pattern) {
  if (Glob(name, pattern)) return true;
  if (name.find('.') != std::string_view::npos) return false;
  if (pattern.size() >= 2 && pattern.ends_with(".*")) return Glob(name, pattern.substr(0, pattern.size() - 2));
  if (pattern.ends_with('.')) return Glob(name, pattern.substr(0, pattern.size() - 1));
  return false;
}

// The texts of a path list: NUL-terminated texts up to an empty one.
std::vector<std::string_view> SplitPathList(const char* list) {
  std::vector<std::string_view> out;
  if (list == nullptr) return out;
  while (*list != '\0') {
    std::string_view one(list);
    out.push_back(one);
    list += one.size() + 1;
  }
  return out;
}

// The entries of `dir` that a source text names: all that match `pattern` when it has wildcards,
// else the one whose name equals it (as written when there is such, else ignoring case, the first
// in byte order: the name HostPath would take).
Status SelectEntries(std::string_view dir, std::string_view pattern, std::vector<DirEntry>* chosen) {
  chosen->clear();
  std::vector<DirEntry> all;
  KVD_RETURN_IF_ERROR(platform::ListDirectory(dir, &all));
  if (HasWildcards(pattern)) {
    for (DirEntry& e : all) {
      if (MatchesPattern(e.name, pattern)) chosen->push_back(std::move(e));
    }
    return Status::Ok();
  }
  const DirEntry* best = nullptr;
  for (const DirEntry& e : all) {
    if (e.name == pattern) {
      best = &e;
      break;
    }
    if (best == nullptr && e.name.size() == pattern.size() && Glob(e.name, pattern)) best = &e;
  }
  if (best == nullptr) return Status::NotFound(JoinPath(dir, pattern) + ": no such file or directory");
  chosen->push_back(*best);
  return Status::Ok();
}

// ---------------------------------------------------------------------------------------------
// Copying

struct CopyRules {
  bool subdirectories = true;         // directories are copied with everything below them
  bool skip_dot_directories = false;  // directories whose names begin with '.' are not copied
  bool durable = true;                // each file and directory is on disk before the next step
};

// A copy that is not forced to disk: the bytes reach it with the system's writeback, as a shell's
// copy leaves them. The file is written under a name of its own beside the target and takes the
// target's name only when it is whole, so a failed copy never leaves half a file under that name;
// a target that exists by then wins, and the copy fails with kExists.
Status CopyFileUnsynced(const std::string& src, const std::string& dst) {
  if (platform::FileExists(dst) || platform::DirectoryExists(dst)) return Status::Exists(dst + ": target exists");
  std::unique_ptr<platform::File> in, out;
  KVD_RETURN_IF_ERROR(platform::File::Open(src, platform::OpenMode::kRead, &in));
  static std::atomic<unsigned> counter{0};
  const std::string temp = std::string(platform::DirPart(dst)) + "." + std::string(platform::NamePart(dst)) +
                           ".kvdcopy." + std::to_string(platform::ProcessId()) + "." +
                           std::to_string(counter.fetch_add(1));
  KVD_RETURN_IF_ERROR(platform::File::Open(temp, platform::OpenMode::kCreateExclusive, &out));
  Status s;
  std::vector<char> buf(std::size_t{1} << 20);
  for (std::uint64_t offset = 0;;) {
    std::size_t got = 0;
    s = in->ReadAt(offset, buf.data(), buf.size(), &got);
    if (!s.ok() || got == 0) break;
    s = out->WriteAt(offset, buf.data(), got);
    if (!s.ok()) break;
    offset += got;
  }
  out.reset();
  if (s.ok()) s = platform::RenameFile(temp, dst);
  if (!s.ok()) (void)platform::RemoveFile(temp);
  return s;
}

// The parent directory, as written, of a path without trailing separators ("" when it has none).
std::string_view ParentOf(std::string_view path) {
  return WithoutTrailingSeparators(platform::DirPart(WithoutTrailingSeparators(path)));
}

// Makes one directory; an existing one is fine, a file of that name is not. With `durable`, a
// directory made here is synced into its parent, so that a copy the caller then relies on (and
// prunes the source after) survives a crash.
Status MakeOneDirectory(std::string_view dir, bool durable = true) {
  Status s = platform::MakeDirectory(dir);
  if (s.kind() == Status::Kind::kExists) {
    if (platform::DirectoryExists(dir)) return Status::Ok();
    return Status::Exists(std::string(dir) + ": exists and is not a directory");
  }
  KVD_RETURN_IF_ERROR(s);
  if (!durable) return Status::Ok();
  std::string_view parent = ParentOf(dir);
  return platform::SyncDirectory(parent.empty() ? std::string_view(".") : parent);
}

}  // namespace

// Also used by the whole-file functions (kvfile.cc) through tree_impl.h.
Status MakeDirectoryPath(std::string_view dir, bool durable) {
  dir = WithoutTrailingSeparators(dir);
  if (dir.empty() || platform::DirectoryExists(dir)) return Status::Ok();
  std::string_view parent = ParentOf(dir);
  if (!parent.empty() && parent.size() < dir.size()) KVD_RETURN_IF_ERROR(MakeDirectoryPath(parent, durable));
  return MakeOneDirectory(dir, durable);
}

namespace {

Status CopyDirectory(const std::string& src_dir, const std::string& dst_dir, const CopyRules& rules);

// Copies one listed entry to `dst`. A file that exists at `dst` fails with kExists.
Status CopyEntry(const std::string& src, const std::string& dst, const DirEntry& e, const CopyRules& rules) {
  const bool directory_like = e.type == EntryType::kDirectory || (e.type == EntryType::kLink && e.link_to_directory);
  if (directory_like && (!rules.subdirectories || (rules.skip_dot_directories && e.name[0] == '.'))) {
    return Status::Ok();  // not part of this copy
  }
  switch (e.type) {
    case EntryType::kFile:
      if (!rules.durable) return CopyFileUnsynced(src, dst);
      return platform::CopyFile(src, dst, /*fail_if_exists=*/true);
    case EntryType::kDirectory:
      return CopyDirectory(src, dst, rules);
    case EntryType::kLink:
      // A link to a file is copied as the file, like any file. A link to a directory is copied
      // as a link: following it could loop, or copy (and, after a move, prune) a tree that lies
      // outside. A dangling link has nothing to copy but itself.
      if (!e.link_to_directory && platform::FileExists(src))
        return rules.durable ? platform::CopyFile(src, dst, true) : CopyFileUnsynced(src, dst);
      KVD_RETURN_IF_ERROR(platform::CopyLink(src, dst));
      if (!rules.durable) return Status::Ok();
      return platform::SyncDirectory(ParentOf(dst).empty() ? std::string_view(".") : ParentOf(dst));
    case EntryType::kOther:
      break;
  }
  // Reading a pipe would wait for a writer, and a device is no file to copy. Failing keeps a move
  // from pruning what it could not take along.
  return Status::Unsupported(src + ": a device, pipe or socket is not copied");
}

// Lists `src_dir`, makes `dst_dir` (one level) and copies every entry into it, in listing order;
// the first failure ends the copy and leaves what was copied. A source that cannot be listed
// fails before the target is made, and a target made inside the source is not in the listing.
Status CopyDirectory(const std::string& src_dir, const std::string& dst_dir, const CopyRules& rules) {
  std::vector<DirEntry> entries;
  KVD_RETURN_IF_ERROR(platform::ListDirectory(src_dir, &entries));
  KVD_RETURN_IF_ERROR(MakeOneDirectory(dst_dir, rules.durable));
  for (const DirEntry& e : entries) {
    KVD_RETURN_IF_ERROR(CopyEntry(JoinPath(src_dir, e.name), JoinPath(dst_dir, e.name), e, rules));
  }
  return Status::Ok();
}

// A directory copied to a place inside itself would be copied for ever.
Status RefuseCopyIntoItself(std::string_view src_dir, std::string_view dst) {
  if (platform::IsSameOrBelow(dst, src_dir)) {
    return Status::InvalidArgument(std::string(dst) + " lies inside " + std::string(src_dir) + ", which it would copy");
  }
  return Status::Ok();
}

Status CopyFiles(const std::vector<std::string_view>& sources, std::string_view target) {
  target = WithoutTrailingSeparators(target);
  if (sources.empty() || target.empty()) return Status::InvalidArgument("copy: no source or no target");
  if (HasWildcards(target)) return Status::InvalidArgument("copy: wildcards in the target");

  // One plain source becomes `target` itself, unless `target` is a directory to put it in.
  const bool into = sources.size() > 1 || HasWildcards(sources.front()) || platform::DirectoryExists(target);

  // Every source is found and checked before anything is made.
  struct Item {
    std::string src, dst;
    DirEntry entry;
  };
  std::vector<Item> items;
  for (std::string_view source : sources) {
    source = WithoutTrailingSeparators(source);
    const std::string_view dir = platform::DirPart(source);
    const std::string_view pattern = platform::NamePart(source);
    if (pattern.empty() || HasWildcards(dir)) return Status::InvalidArgument(std::string(source) + ": not a source");
    std::vector<DirEntry> chosen;
    KVD_RETURN_IF_ERROR(SelectEntries(dir, pattern, &chosen));
    for (DirEntry& e : chosen) {
      Item item{JoinPath(dir, e.name), into ? JoinPath(target, e.name) : std::string(target), std::move(e)};
      if (item.entry.type == EntryType::kDirectory) KVD_RETURN_IF_ERROR(RefuseCopyIntoItself(item.src, item.dst));
      items.push_back(std::move(item));
    }
  }

  // Everything, with all directories below, and no file forced to disk: the sources stay, so a
  // crash can cost the copy but never what was copied.
  CopyRules rules;
  rules.durable = false;
  KVD_RETURN_IF_ERROR(MakeDirectoryPath(into ? target : ParentOf(target), rules.durable));
  for (const Item& item : items) KVD_RETURN_IF_ERROR(CopyEntry(item.src, item.dst, item.entry, rules));
  return Status::Ok();
}

// ---------------------------------------------------------------------------------------------
// Deleting

Status DeleteFiles(const std::vector<std::string_view>& sources) {
  if (sources.empty()) return Status::InvalidArgument("delete: no path");
  for (std::string_view source : sources) {
    source = WithoutTrailingSeparators(source);
    const std::string_view dir = platform::DirPart(source);
    const std::string_view pattern = platform::NamePart(source);
    if (pattern.empty() || HasWildcards(dir)) return Status::InvalidArgument(std::string(source) + ": not a file");
    std::vector<DirEntry> chosen;
    KVD_RETURN_IF_ERROR(SelectEntries(dir, pattern, &chosen));
    const bool pattern_given = HasWildcards(pattern);
    for (const DirEntry& e : chosen) {
      const bool directory_like =
          e.type == EntryType::kDirectory || (e.type == EntryType::kLink && e.link_to_directory);
      if (directory_like) {
        // Under a pattern only files go. A directory named by itself would go with its whole tree,
        // and with no recycle bin to take it back that is not done here (KvPrune does it).
        if (pattern_given) continue;
        return Status::InvalidArgument(JoinPath(dir, e.name) + ": a directory is not deleted");
      }
      // No recycle bin: the file is gone for good.
      KVD_RETURN_IF_ERROR(platform::RemoveEntry(JoinPath(dir, e.name)));
    }
  }
  return Status::Ok();
}

// ---------------------------------------------------------------------------------------------
// Expanding names
//
// There are no drives here, so the current drive and its current directory are read this way:
//   - A name without a drive letter has no current drive and stays without one. An absolute name
//     starts with '\' (or '/'), which the platform reads as the host's root. A relative name
//     starts from the process's current directory, written with backslashes.
//   - A name with a drive letter "X:" lies in the directory the letter maps to (KVD_DRIVE_X, else
//     the host's root; see platform/path.h). The drive's current directory is the process's
//     current directory written relative to that directory when it lies inside it, else the
//     drive's top. So "C:PRJ1" and "PRJ1" name the same directory whenever the current directory
//     lies on C:.
// The result is upper-cased as the caller expects; the platform finds each name again ignoring
// case. ".." is taken by the text, not by following links.

std::vector<std::string> SplitComponents(std::string_view path, std::vector<std::string> parts = {}) {
  std::size_t i = 0;
  while (i < path.size()) {
    if (IsSeparator(path[i])) {
      ++i;
      continue;
    }
    std::size_t end = i;
    while (end < path.size() && !IsSeparator(path[end])) ++end;
    parts.emplace_back(path.substr(i, end - i));
    i = end;
  }
  return parts;
}

// The current directory of `drive` (0: no drive) as components below its top.
std::vector<std::string> CurrentComponents(char drive) {
  const std::string cwd = platform::CurrentDirectory();
  if (cwd.empty()) return {};  // not known: the top
  if (drive == 0) return SplitComponents(cwd);
  std::string top = platform::HostPath(std::string{drive, ':'});
  while (top.size() > 1 && top.back() == '/') top.pop_back();
  if (top == "/") return SplitComponents(cwd);
  if (cwd.size() > top.size() && cwd.compare(0, top.size(), top) == 0 && cwd[top.size()] == '/') {
    return SplitComponents(std::string_view(cwd).substr(top.size()));
  }
  return {};
}

std::string ExpandName(std::string_view name) {
  while (!name.empty() && IsBlank(name.front())) name.remove_prefix(1);
  char drive = 0;
  if (name.size() >= 2 && IsAsciiLetter(name[0]) && name[1] == ':') {
    drive = AsciiUpper(name[0]);
    name.remove_prefix(2);
  }
  const bool absolute = !name.empty() && IsSeparator(name.front());

  // Components, with "." dropped and ".." taking the one before it away (never above the top).
  std::vector<std::string> raw = SplitComponents(name, absolute ? std::vector<std::string>() : CurrentComponents(drive));
  // A name that ends in a separator, ".", ".." or nothing at all names a directory.
  const bool names_directory = name.empty() || IsSeparator(name.back()) ||
                               (!raw.empty() && (raw.back() == "." || raw.back() == ".."));
  std::vector<std::string> parts;
  for (std::string& part : raw) {
    if (part == ".") continue;
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
      continue;
    }
    parts.push_back(std::move(part));
  }

  std::string name_part;
  if (!names_directory && !parts.empty()) {
    name_part = std::move(parts.back());
    parts.pop_back();
  }
  std::string dir;
  if (drive != 0) dir = {drive, ':'};
  dir.push_back('\\');
  for (const std::string& part : parts) {
    dir.append(part);
    dir.push_back('\\');
  }
  // A directory named without wildcards means its contents.
  if (!name_part.empty() && !HasWildcards(name_part) && platform::DirectoryExists(dir + name_part)) {
    dir.append(name_part);
    dir.push_back('\\');
    name_part.clear();
  }
  if (name_part.empty()) name_part = "*";
  if (name_part.find('.') == std::string::npos) name_part.append(".*");

  std::string out = dir + name_part;
  for (char& c : out) c = AsciiUpper(c);
  return out;
}

// ---------------------------------------------------------------------------------------------
// The copy of KvXCopy

// All entries of the directory `from` lies in, whatever name it ends in; the trailing blanks of
// that directory cut. A `from` that names a missing directory therefore copies its parent, as
// callers of this function have always known it to.
Status XCopy(std::string_view to, std::string_view from, bool subdirectories) {
  const std::string expanded = ExpandName(from);
  std::string source_dir(platform::DirPart(expanded));
  while (!source_dir.empty() && IsBlank(source_dir.back())) source_dir.pop_back();
  if (subdirectories) KVD_RETURN_IF_ERROR(RefuseCopyIntoItself(source_dir, to));
  CopyRules rules;
  rules.subdirectories = subdirectories;
  rules.skip_dot_directories = true;
  return CopyDirectory(source_dir, std::string(to), rules);
}

bool XCopyBoth(const char* to, const char* from, bool subdirectories) {
  if (to == nullptr || from == nullptr || to[0] == '\0') return false;
  if (HasWildcards(to)) return false;  // before any work
  try {
    return XCopy(to, from, subdirectories).ok();
  } catch (const std::bad_alloc&) {
    // The one message of the tree operations. There is no desktop: the platform puts it where an
    // operator sees it and answers as if OK had been pressed.
    try {
      platform::ShowMessage(kOutOfMemoryText, "Error", kExclamationBox);
    } catch (const std::exception&) {
      // Not even the message could be made.
    }
    return false;
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace
}  // namespace kvd::lib

// ---------------------------------------------------------------------------------------------
// Exported functions

bool KvCopyFilesEx(const char* from, const char* to, bool progress) {
  // `progress` would show a progress window; there is none here.
  try {
    const std::vector<std::string_view> targets = kvd::lib::SplitPathList(to);
    if (targets.empty()) return false;
    return kvd::lib::CopyFiles(kvd::lib::SplitPathList(from), targets.front()).ok();
  } catch (const std::exception&) {
    return false;
  }
}

bool KvDeleteFilesEx(const char* from, bool progress) {
  try {
    return kvd::lib::DeleteFiles(kvd::lib::SplitPathList(from)).ok();
  } catch (const std::exception&) {
    return false;
  }
}

int KvXCopy(char* to, char* from, int subdirectories, int reserved) {
  return kvd::lib::XCopyBoth(to, from, subdirectories == 1) ? 0 : 1;
}

bool KvXCopy(char* to, char* from, bool subdirectories) { return kvd::lib::XCopyBoth(to, from, subdirectories); }

int KvPrune(char* path) {
  if (path == nullptr) return 0;
  std::string_view p(path);
  if (!p.empty() && kvd::lib::IsSeparator(p.back())) p.remove_suffix(1);
  // The top of a drive ("C:", "C:\", "\") is never pruned. The platform refuses the host's root and
  // the directory of every drive letter in any other spelling too.
  if (p.empty() || (p.size() == 2 && p[1] == ':')) return 0;
  // No change of the current directory, not even for a moment: the platform walks the tree by
  // directory descriptors. Names beginning with '.' are left, as they always were here.
  try {
    kvd::platform::PruneReport report;
    return kvd::platform::PruneTree(p, /*skip_dot_names=*/true, &report).ok() ? 1 : 0;
  } catch (const std::exception&) {
    return 0;
  }
}

int KvContainsWildcards(char* s) { return s != nullptr && kvd::lib::HasWildcards(s) ? 1 : 0; }

void KvFnameExpand(char* result, char* name) {
  if (result == nullptr) return;
  // Expanded whole before `result` is written, so `result` and `name` may be the same buffer.
  std::string expanded;
  try {
    if (name != nullptr) expanded = kvd::lib::ExpandName(name);
  } catch (const std::exception&) {
    expanded.clear();
  }
  // A longer path would overrun the caller's buffer, and a cut one would name another file.
  if (expanded.size() >= kvd::lib::kMaxPath) expanded.clear();
  std::memcpy(result, expanded.c_str(), expanded.size() + 1);
}
