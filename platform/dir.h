// Directories: sorted listings, a prune that never changes the current directory, the current
// directory itself, and the few facts about trees that a copy needs.
//
// Paths may be in Windows form; every function maps them through HostPath() (path.h).
// Thread-safe; no state. Nothing here changes the process's current directory.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/status.h"

namespace kvd::platform {

enum class EntryType : unsigned char {
  kFile,       // a regular file
  kDirectory,  // a directory, not a link to one
  kLink,       // a symbolic link (see DirEntry::link_to_directory)
  kOther,      // a device, pipe or socket
};

struct DirEntry {
  std::string name;                // as stored on disk
  EntryType type = EntryType::kFile;
  bool link_to_directory = false;  // kLink only: the link leads to a directory at listing time
};

// The entries of `dir` but "." and "..", ordered by name ignoring ASCII case (then by bytes), the
// way a case-blind file system lists them, so that the order does not depend on how the host file
// system happens to hash names. A directory that cannot be read answers its errno's status; an
// error in the middle of reading is a failure too, never a short listing.
// Out of memory is thrown as std::bad_alloc, also when the kernel reports ENOMEM, so that the
// caller meets it in one shape.
Status ListDirectory(std::string_view dir, std::vector<DirEntry>* out);

// What PruneTree did below the directory.
struct PruneReport {
  std::size_t removed = 0;   // files, links and directories removed
  std::size_t kept = 0;      // entries that could not be removed or were left on purpose
  bool removed_top = false;  // the directory itself is gone
};

// Removes everything below `dir` and then `dir` itself, as far as that goes: an entry that cannot
// be removed is counted in `kept` and the walk goes on; `dir` then stays. The walk goes through
// directory descriptors (openat/unlinkat), so it never changes the current directory and a name
// swapped for a link while we work is not followed.
//   - a symbolic link is removed itself, never followed;
//   - a directory on another file system (a mount point) is left alone;
//   - a file that another opener holds (a flock, see file.h) is kept, as RemoveFile refuses it;
//   - with skip_dot_names, names that begin with '.' are left alone (so `dir` then stays);
//   - the host's root and the directories that drive letters map to (KVD_DRIVE_X, see path.h)
//     are never pruned, neither as `dir` (kInvalidArgument) nor when met below it (kept);
//   - nothing deeper than 256 levels is entered.
// The status says whether `dir` could be entered: kNotFound when it is missing, an errno status
// when it cannot be opened (a link is not opened).
Status PruneTree(std::string_view dir, bool skip_dot_names, PruneReport* report);

// The process's current directory as a host path ("/home/plant"); empty when it cannot be had.
std::string CurrentDirectory();

// True when `path`, with links followed as far as it exists, is `dir` or lies below it. The part
// of `path` that does not exist yet is taken as written. False when `dir` does not exist.
bool IsSameOrBelow(std::string_view path, std::string_view dir);

// Removes the file, link, pipe or socket `path`, never a directory (kInvalidArgument then). A link
// is removed itself; its target is not looked at. A file that another opener holds (a flock, see
// file.h) is refused with kBusy, as RemoveFile refuses it.
Status RemoveEntry(std::string_view path);

// Makes `to` a symbolic link with the same target text as the link `from`. kExists when `to` is
// there already (found ignoring case, as CopyFile does).
Status CopyLink(std::string_view from, std::string_view to);

}  // namespace kvd::platform
