// Directory listings, the descriptor-relative prune, the current directory and tree identity.
//
// opendir/readdir, openat, fstatat, unlinkat, getcwd, realpath, readlink and symlink have no slot
// in the system-call table (sys.h) and are called directly; close and flock go through it.
#include "platform/dir.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <new>

#include "platform/path.h"
#include "platform/sys.h"

namespace kvd::platform {

namespace {

// Deeper than any tree a path of 260 characters can hold, shallow enough for the stack and for
// the one descriptor each level keeps open.
constexpr int kMaxPruneDepth = 256;

char AsciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool LessIgnoringCase(const std::string& a, const std::string& b) {
  const std::size_t n = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned char x = static_cast<unsigned char>(AsciiLower(a[i]));
    const unsigned char y = static_cast<unsigned char>(AsciiLower(b[i]));
    if (x != y) return x < y;
  }
  if (a.size() != b.size()) return a.size() < b.size();
  return a < b;  // names that differ only in case: byte order, so the order is total
}

bool IsDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// The host path without trailing separators ("/" stays "/").
std::string WithoutTrailingSlash(std::string host) {
  while (host.size() > 1 && host.back() == '/') host.pop_back();
  return host;
}

struct DirCloser {
  void operator()(DIR* d) const { ::closedir(d); }
};
using DirHandle = std::unique_ptr<DIR, DirCloser>;

// ---------------------------------------------------------------------------------------------
// Prune

struct FileId {
  dev_t dev;
  ino_t ino;
  bool operator==(const FileId&) const = default;
};

FileId IdOf(const struct stat& st) { return FileId{st.st_dev, st.st_ino}; }

// The host's root and every directory a drive letter maps to (path.h): removing one of them would
// empty a whole drive as the library's callers see it, so the prune neither starts at one nor
// enters one it meets below.
std::vector<FileId> ProtectedDirectories() {
  std::vector<FileId> out;
  auto add = [&out](const char* host) {
    struct stat st;
    if (host != nullptr && host[0] != '\0' && ::stat(host, &st) == 0) out.push_back(IdOf(st));
  };
  add("/");
  char var[] = "KVD_DRIVE_X";
  for (char drive = 'A'; drive <= 'Z'; ++drive) {
    var[sizeof(var) - 2] = drive;
    add(std::getenv(var));
  }
  return out;
}

struct PruneWalk {
  dev_t dev;                        // the top's file system; nothing on another one is touched
  bool skip_dot_names;
  std::vector<FileId> protected_dirs;
  PruneReport* report;

  bool MayEnter(const struct stat& st, int depth) const {
    return st.st_dev == dev && depth < kMaxPruneDepth &&
           std::find(protected_dirs.begin(), protected_dirs.end(), IdOf(st)) == protected_dirs.end();
  }
};

// Unlinks `name` in `dirfd` unless another opener holds a flock on it: the same refusal as
// RemoveFile's (file.cc), taken relative to the directory. The unlink happens while our probe
// lock is held, so no opener of ours slips in between. 0, or the errno of the failure
// (EWOULDBLOCK for a file held elsewhere).
int RemoveEntryAt(int dirfd, const char* name) {
  int fd = ::openat(dirfd, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) {
    // A link (ELOOP), a socket (ENXIO) or a file we may not read cannot be held open by one of
    // our openers; the directory's permissions decide alone.
    if (errno != ELOOP && errno != ENXIO && errno != EACCES) return errno;
  } else if (Sys().flock(fd, LOCK_EX | LOCK_NB) != 0) {
    const int err = errno == EINTR ? EWOULDBLOCK : errno;
    Sys().close(fd);
    return err;
  }
  const int err = ::unlinkat(dirfd, name, 0) == 0 ? 0 : errno;
  if (fd >= 0) Sys().close(fd);
  return err;
}

// Empties the directory open on `fd` (which this call takes over and closes), `depth` levels
// below the top.
void PruneInside(int fd, int depth, const PruneWalk& walk) {
  PruneReport* report = walk.report;
  DirHandle d(::fdopendir(fd));
  if (!d) {
    Sys().close(fd);
    ++report->kept;
    return;
  }
  // Names first, work after: removing entries while readdir walks the same directory may skip or
  // repeat some.
  std::vector<std::string> names;
  for (;;) {
    errno = 0;
    struct dirent* e = ::readdir(d.get());
    if (e == nullptr) {
      if (errno == ENOMEM) throw std::bad_alloc();
      if (errno != 0) ++report->kept;  // what we could not read stays, and so does the directory
      break;
    }
    if (IsDotOrDotDot(e->d_name)) continue;
    if (walk.skip_dot_names && e->d_name[0] == '.') {
      ++report->kept;
      continue;
    }
    names.emplace_back(e->d_name);
  }

  const int dfd = ::dirfd(d.get());
  for (const std::string& name : names) {
    struct stat st;
    if (::fstatat(dfd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno != ENOENT) ++report->kept;  // gone meanwhile is fine
      continue;
    }
    if (!S_ISDIR(st.st_mode)) {
      if (RemoveEntryAt(dfd, name.c_str()) == 0) {
        ++report->removed;
      } else {
        ++report->kept;
      }
      continue;
    }
    // O_NOFOLLOW: a directory that was swapped for a link since the fstatat is not entered. What
    // was opened is checked, not what was looked at before.
    int sub = ::openat(dfd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (sub < 0 || ::fstat(sub, &st) != 0 || !walk.MayEnter(st, depth + 1)) {
      if (sub >= 0) Sys().close(sub);
      ++report->kept;
      continue;
    }
    PruneInside(sub, depth + 1, walk);
    if (::unlinkat(dfd, name.c_str(), AT_REMOVEDIR) == 0) {
      ++report->removed;
    } else {
      ++report->kept;
    }
  }
}

}  // namespace

// ---------------------------------------------------------------------------------------------

Status ListDirectory(std::string_view dir, std::vector<DirEntry>* out) {
  out->clear();
  const std::string host = HostPath(dir);
  const std::string open_name = host.empty() ? std::string(".") : host;
  DirHandle d(::opendir(open_name.c_str()));
  if (!d) {
    if (errno == ENOMEM) throw std::bad_alloc();
    return Status::FromErrno(errno, "list directory", open_name);
  }
  const int dfd = ::dirfd(d.get());
  for (;;) {
    errno = 0;
    struct dirent* e = ::readdir(d.get());
    if (e == nullptr) {
      const int err = errno;
      if (err == 0) break;  // the end
      if (err == ENOMEM) throw std::bad_alloc();
      out->clear();
      return Status::FromErrno(err, "list directory", open_name);
    }
    if (IsDotOrDotDot(e->d_name)) continue;
    DirEntry entry;
    entry.name = e->d_name;
    struct stat st;
    if (::fstatat(dfd, e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) continue;  // removed since readdir saw it
      const int err = errno;
      out->clear();
      return Status::FromErrno(err, "list directory", open_name + "/" + entry.name);
    }
    if (S_ISREG(st.st_mode)) {
      entry.type = EntryType::kFile;
    } else if (S_ISDIR(st.st_mode)) {
      entry.type = EntryType::kDirectory;
    } else if (S_ISLNK(st.st_mode)) {
      entry.type = EntryType::kLink;
      struct stat target;
      entry.link_to_directory = ::fstatat(dfd, e->d_name, &target, 0) == 0 && S_ISDIR(target.st_mode);
    } else {
      entry.type = EntryType::kOther;
    }
    out->push_back(std::move(entry));
  }
  std::sort(out->begin(), out->end(),
            [](const DirEntry& a, const DirEntry& b) { return LessIgnoringCase(a.name, b.name); });
  return Status::Ok();
}

Status PruneTree(std::string_view dir, bool skip_dot_names, PruneReport* report) {
  *report = PruneReport();
  const std::string host = WithoutTrailingSlash(HostPath(dir));
  if (host.empty()) return Status::InvalidArgument("prune: empty path");
  // O_NOFOLLOW: a link given as the top is not entered; its target belongs to someone else.
  int fd = ::openat(AT_FDCWD, host.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return Status::FromErrno(errno, "prune", host);
  struct stat st;
  if (::fstat(fd, &st) != 0) {
    const int err = errno;
    Sys().close(fd);
    return Status::FromErrno(err, "prune", host);
  }
  PruneWalk walk{st.st_dev, skip_dot_names, ProtectedDirectories(), report};
  if (!walk.MayEnter(st, 0)) {
    Sys().close(fd);
    return Status::InvalidArgument("prune " + host + ": the top of a drive is never pruned");
  }
  PruneInside(fd, 0, walk);
  report->removed_top = ::rmdir(host.c_str()) == 0;
  return Status::Ok();
}

std::string CurrentDirectory() {
  std::unique_ptr<char, decltype(&std::free)> cwd(::getcwd(nullptr, 0), &std::free);
  if (!cwd) {
    if (errno == ENOMEM) throw std::bad_alloc();
    return std::string();
  }
  return std::string(cwd.get());
}

bool IsSameOrBelow(std::string_view path, std::string_view dir) {
  auto real = [](const std::string& host, std::string* out) {
    std::unique_ptr<char, decltype(&std::free)> r(::realpath(host.c_str(), nullptr), &std::free);
    if (!r) return false;
    *out = r.get();
    return true;
  };
  std::string top;
  if (!real(WithoutTrailingSlash(HostPath(dir)), &top)) return false;

  // The longest leading part of `path` that exists, resolved; the rest appended as written.
  std::string head = WithoutTrailingSlash(HostPath(path));
  std::vector<std::string> tail;  // missing components, last first
  std::string resolved;
  for (;;) {
    if (!head.empty() && real(head, &resolved)) break;
    const std::size_t slash = head.find_last_of('/');
    if (head.empty() || slash == std::string::npos) {
      if (!head.empty()) tail.push_back(head);
      if (!real(".", &resolved)) return false;  // relative, nothing of it exists
      break;
    }
    tail.push_back(head.substr(slash + 1));
    head = slash == 0 ? std::string("/") : head.substr(0, slash);
  }
  for (auto it = tail.rbegin(); it != tail.rend(); ++it) {
    if (it->empty() || *it == ".") continue;
    if (*it == "..") {
      const std::size_t slash = resolved.find_last_of('/');
      resolved = slash == 0 || slash == std::string::npos ? std::string("/") : resolved.substr(0, slash);
      continue;
    }
    if (resolved.back() != '/') resolved.push_back('/');
    resolved.append(*it);
  }
  if (top == "/") return true;
  return resolved == top || (resolved.size() > top.size() && resolved.compare(0, top.size(), top) == 0 &&
                             resolved[top.size()] == '/');
}

Status RemoveEntry(std::string_view path) {
  const std::string host = HostPath(path);
  const std::string name(NamePart(host));
  if (name.empty() || name == "." || name == "..") return Status::InvalidArgument("remove " + host + ": not a file");
  const std::string parent(DirPart(host));
  int dfd = ::openat(AT_FDCWD, parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dfd < 0) return Status::FromErrno(errno, "remove", host);
  struct stat st;
  int err = ::fstatat(dfd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
  if (err == 0 && S_ISDIR(st.st_mode)) {
    Sys().close(dfd);
    return Status::InvalidArgument("remove " + host + ": is a directory");
  }
  if (err == 0) err = RemoveEntryAt(dfd, name.c_str());
  Sys().close(dfd);
  if (err == EWOULDBLOCK || err == EAGAIN) return Status::Busy("remove " + host + ": the file is open elsewhere");
  if (err != 0) return Status::FromErrno(err, "remove", host);
  return Status::Ok();
}

Status CopyLink(std::string_view from, std::string_view to) {
  const std::string host_from = WithoutTrailingSlash(HostPath(from));
  const std::string host_to = WithoutTrailingSlash(HostPath(to));
  std::vector<char> buf(256);
  for (;;) {
    const ssize_t n = ::readlink(host_from.c_str(), buf.data(), buf.size());
    if (n < 0) return Status::FromErrno(errno, "read link", host_from);
    if (static_cast<std::size_t>(n) < buf.size()) {
      buf.resize(static_cast<std::size_t>(n));
      break;
    }
    if (buf.size() > PATH_MAX) return Status::IoError("read link " + host_from + ": target too long");
    buf.resize(buf.size() * 2);
  }
  struct stat st;
  if (::lstat(host_to.c_str(), &st) == 0) return Status::Exists("copy link to " + host_to + ": target exists");
  const std::string target(buf.begin(), buf.end());
  if (::symlink(target.c_str(), host_to.c_str()) != 0) return Status::FromErrno(errno, "make link", host_to);
  return Status::Ok();
}

}  // namespace kvd::platform
