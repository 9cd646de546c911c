// Files: descriptors, positioned reads and writes, byte-range and open-mode locks, mappings.
//
// Locks:
//   - LockRange/UnlockRange are open-file-description locks (F_OFD_SETLK / F_OFD_SETLKW): they belong
//     to this File object, not to the process, so closing another descriptor of the same file never
//     drops them, and two File objects of one process exclude each other like two processes do.
//     Other xBase engines that use classic POSIX fcntl locks at the same offsets conflict with them.
//   - ShareLock is flock(): kShared for an ordinary open, kExclusive for an open that must be alone.
//     It is also the guard behind "this file is open elsewhere" (Windows refuses to delete or replace
//     a file that another process has open; RemoveFile and ReplaceFile emulate that refusal).
//   A lock that cannot be had answers Status kBusy. `wait` = true blocks until it can be had.
//
// Ownership: a File owns its descriptor and closes it in its destructor, which drops every lock it
// holds. A File may be used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/status.h"

namespace kvd::platform {

enum class OpenMode {
  kRead,             // existing file, read only
  kReadWrite,        // existing file, read and write
  kCreate,           // create or truncate, read and write
  kCreateExclusive,  // create; Status kExists if it is there already
};

enum class LockKind { kShared, kExclusive };

class File {
 public:
  // Opens `path` (Windows form allowed; see path.h). A missing file answers kNotFound. Opening an
  // existing file tries the name as written first and resolves it ignoring case only when that
  // finds nothing: open and one fstat when the name is spelled as on disk.
  static Status Open(std::string_view path, OpenMode mode, std::unique_ptr<File>* out);
  // Opens an existing file and takes its open-mode lock (see ShareLock): `attempts` tries
  // `delay_ms` apart, or waiting as long as it takes when attempts < 0. When another opener
  // replaced the file between the open and the lock (so the file locked has lost its name), the
  // name is opened again. Open, lock and one fstat when nothing is in the way. Busy when the lock
  // cannot be had.
  //
  // The descriptor park. Keyed reads open a table and its index, read a few bytes and close both
  // again, and opening and closing are most of their cost. So when a File made here goes, its
  // descriptor is kept in a small process-wide park instead of being closed: the open-mode lock
  // is let go (flock LOCK_UN, which is all a close would do to it), and the next OpenLocked of the
  // same name takes the lock on the kept descriptor and then asks the name (one stat) whether it
  // still means that inode. Only then is the descriptor used; otherwise it is closed and the name
  // opened afresh. Lock, stat and unlock instead of open, lock, fstat and close. A kept descriptor
  // holds no lock, so to every other opener the file is closed; it does hold the inode, so a file
  // deleted meanwhile keeps its blocks until its descriptor leaves the park (at most kParked are
  // kept, the oldest goes first; RemoveFile and the renames that replace let go of the name's at once). Not
  // kept: a File that ever took a range lock (an OFD lock would outlive it in a kept descriptor),
  // and one whose name was found only ignoring case. A child made by fork starts with an empty
  // park, since kept descriptors share their open file descriptions, locks included, with the
  // parent.
  static Status OpenLocked(std::string_view path, OpenMode mode, LockKind kind, int attempts, unsigned delay_ms,
                           std::unique_ptr<File>* out);
  ~File();
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  const std::string& path() const { return path_; }  // the host path that was opened
  bool writable() const { return writable_; }

  // Reads up to n bytes at `offset`; *got is how many were read (short at end of file).
  Status ReadAt(std::uint64_t offset, void* buf, std::size_t n, std::size_t* got) const;
  // Reads exactly n bytes or fails with kCorruption ("short read") naming path and offset.
  Status ReadExactAt(std::uint64_t offset, void* buf, std::size_t n) const;
  // Writes all n bytes at `offset` (retrying short writes); ENOSPC gives kNoSpace.
  Status WriteAt(std::uint64_t offset, const void* buf, std::size_t n);
  Status Size(std::uint64_t* size) const;
  Status Truncate(std::uint64_t size);
  Status Sync();  // data and metadata to the disk

  // Byte-range OFD lock; len 0 is not allowed. Re-locking a range this File holds converts it.
  Status LockRange(std::uint64_t offset, std::uint64_t len, LockKind kind, bool wait);
  Status UnlockRange(std::uint64_t offset, std::uint64_t len);
  // True when another open file description holds a conflicting lock on the range (F_OFD_GETLK).
  Status TestRange(std::uint64_t offset, std::uint64_t len, LockKind kind, bool* held_elsewhere) const;

  // Open-mode lock (flock). Converting kShared to kExclusive that fails keeps the kShared lock.
  Status ShareLock(LockKind kind, bool wait);
  Status ShareUnlock();

  // True when `path` names the same file (device and inode) that this File has open, false when the
  // name was removed or now names another file.
  Status IsSameFileAs(std::string_view path, bool* same) const;
  // True when a regular file named exactly `name` (no case-blind search) lies in the directory
  // this File was opened in: one stat.
  bool FileBeside(std::string_view name) const;
  // Puts this file in the place of `to` (rename, replacing what was there) and from then on calls
  // it by that name. A file built under a private name and locked before the move is never, not
  // for an instant, under its public name without its lock.
  Status MoveOver(std::string_view to);
  // The size of the file as the open found it (no system call); Size() asks for the size now.
  std::uint64_t size_at_open() const { return size_at_open_; }

  // Closes the parked descriptors of the host path `host` (its file was replaced or removed).
  static void ForgetParked(const std::string& host);

  int fd() const { return fd_; }  // for Mapping only
  std::uint64_t device() const { return dev_; }  // the open file's identity, from the open's fstat
  std::uint64_t inode() const { return ino_; }

 private:
  File(int fd, std::string path, bool writable) : fd_(fd), path_(std::move(path)), writable_(writable) {}
  static Status OpenUnchecked(std::string_view path, OpenMode mode, std::unique_ptr<File>* out);
  Status LookAtOpenFile(bool* named);
  Status LockShared(LockKind kind, int attempts, unsigned delay_ms);  // OpenLocked's lock, retried
  int fd_;
  std::string path_;
  bool writable_;
  bool parkable_ = false;      // made by OpenLocked under the name as written: parked when it goes
  bool range_locked_ = false;  // LockRange was called: closed when it goes
  std::uint64_t dev_ = 0;           // device and inode of the open file, from the open's fstat
  std::uint64_t ino_ = 0;
  std::uint64_t size_at_open_ = 0;  // bytes, from the same fstat
  // The open-mode lock ShareLock holds on fd_. Kept because a conversion that fails drops the old
  // flock lock on Linux, and only a File that knows what it held can take it back.
  enum class Held : unsigned char { kNone, kShared, kExclusive };
  Held share_held_ = Held::kNone;
};

// A read-only shared mapping of the first `size` bytes of a File. Because the mapping is shared, a
// write by any process through any descriptor is seen at once; nothing is cached. The readable part
// never reaches beyond the end of the file as it was last asked (touching a page past the end raises
// SIGBUS).
//
// Cover follows a file that grew, and is the cheap way to map: mapping a file's pages into a
// process, page by page on first touch, and unmapping them again cost far more than reading them
// (on some hosts several microseconds a page and a flush of every CPU's TLB). So Cover maps through
// the process's mapping pool: one mapping per file (device and inode), with address space beyond
// the end for the file to grow into, shared by every Mapping of that file and kept for a while
// after the last one goes, so that the next open of the file finds its pages mapped already. A
// pooled mapping is made through a read-only open of its own (the file's inode, reached through
// /proc/self/fd), on which no lock is ever taken: a mapping keeps its open file description alive,
// and with it every lock on that description, so it must never be the File's own. A pooled mapping
// whose file has lost its last name goes when its last user does, or, when the name went later
// (another process replaced the file), at the pool's next call a second or more after its last
// look. Without /proc, Cover maps the File's own descriptor, and the mapping goes with the Mapping.
// Owned by the caller; must not outlive its File. The pool is safe for any threads; one Mapping is
// used by one thread at a time.
class Mapping {
 public:
  Mapping() = default;
  ~Mapping();
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;

  // Maps [0, size) of `file` with a mapping of its own (not pooled); size 0 unmaps.
  Status Map(const File& file, std::uint64_t size);
  // Makes at least [0, end) readable if the file is that long now: asks its size (one fstat, given
  // back in *file_size) and then makes the whole file readable, mapping anew only when the address
  // space at hand is too short. *covered false, and the mapping as it was, when the file is shorter.
  // REQUIRES: the file is not made shorter while it is mapped.
  Status Cover(const File& file, std::uint64_t end, std::uint64_t* file_size, bool* covered);
  // Takes the pool's mapping of `file` when the pool holds one that reaches the size the open
  // found, and makes that much readable: no system call. False, and nothing changed, when it holds
  // none (an opener that reads only a few bytes then reads them without a mapping: making one
  // costs more than a few reads).
  bool AdoptPooled(const File& file);
  // Lets go of the mapping of a file that the caller has just replaced or removed: the pool keeps
  // nothing of it.
  void ReleaseReplaced();
  // Counts one read of `file` without a mapping and answers how many this process has counted for
  // it: openers that each read a little of a file opened again and again add up, and map it
  // (Cover) once the reads of all of them make it worth it; later opens then AdoptPooled.
  static int CountRead(const File& file);
  const std::byte* data() const { return base_; }
  std::uint64_t size() const { return size_; }  // the readable bytes

  struct Pooled;  // a pool entry (file.cc)

 private:
  void Release();  // lets go of what is mapped now
  void ReleaseAs(bool gone);

  std::byte* base_ = nullptr;
  std::uint64_t size_ = 0;      // readable: at most the file's size when last asked
  std::uint64_t reserved_ = 0;  // mapped address space, size_ or more
  Pooled* pooled_ = nullptr;    // the pool entry used, or null for a mapping of our own
};

// An exclusive lock on a directory: flock() on a descriptor of the directory itself, so no file is
// made for it and none is left behind. A guard for work that uses fixed file names in the directory
// (the structure adaption's __DBTEMP): whoever holds it may take those names as its own. Held until
// the object goes; a process that dies lets go with it. Two DirectoryLock objects exclude each other
// within one process too. Nothing else in this library locks directories.
class DirectoryLock {
 public:
  // Takes the lock on `dir` ("" means the current directory), trying every few milliseconds for up
  // to `wait_ms` (0: one try). kBusy when it is still held elsewhere after that.
  static Status Acquire(std::string_view dir, unsigned wait_ms, std::unique_ptr<DirectoryLock>* out);
  ~DirectoryLock();
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;

 private:
  explicit DirectoryLock(int fd) : fd_(fd) {}
  int fd_;  // the directory, open read-only; closing it drops the lock
};

// File-system operations by path (Windows form allowed).
bool FileExists(std::string_view path);       // a regular file
bool DirectoryExists(std::string_view path);
// Like FileExists, but the name part is taken exactly as spelled (the directory is still found
// ignoring case): for names this library wrote itself, where a case-blind search would only cost.
bool FileExistsAsSpelled(std::string_view path);
// Deletes a file. Refuses with kBusy while any open file description holds a flock on it (another
// opener, in this or another process), as Windows refuses to delete an open file.
Status RemoveFile(std::string_view path);
// Atomically puts `from` in the place of `to` (rename). When `to` exists and is held open elsewhere
// (a flock by anyone), refuses with kBusy and leaves both files as they were.
Status ReplaceFile(std::string_view from, std::string_view to);
Status RenameFile(std::string_view from, std::string_view to);  // no guard; `to` must not exist
// Atomically puts `from` in the place of `to` with no guard: for a caller that itself holds the
// exclusive share lock on `to` (and so knows no one else has it open). Implemented in replace.cc.
Status ReplaceFileHeld(std::string_view from, std::string_view to);
// Copies a file; with fail_if_exists a present target answers kExists. The copy is written to a
// temporary name in the target's directory, synced, and renamed into place.
Status CopyFile(std::string_view from, std::string_view to, bool fail_if_exists);
Status MakeDirectory(std::string_view path);  // one level; kExists if present
Status RemoveDirectory(std::string_view path);
// fsync of a directory, so that a rename in it is durable.
Status SyncDirectory(std::string_view dir);

}  // namespace kvd::platform
