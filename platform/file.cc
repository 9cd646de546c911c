// Files, locks, mappings and file-system operations over the system-call table (sys.h).
//
// The two kinds of lock and why each:
//
//   LockRange / UnlockRange / TestRange   fcntl open-file-description locks (F_OFD_*). Classic
//       POSIX record locks belong to the process and vanish when *any* descriptor of the file is
//       closed, and they never conflict between two opens in one process. Both would be wrong
//       here: a table opened twice in one process must exclude itself, and closing another
//       descriptor of the file (RemoveFile's probe below, a second open of the same table) must
//       not drop the record locks of a table that stays open. OFD locks belong to the open file
//       description, i.e. to one File, and behave between two Files like between two processes.
//       l_pid must be 0 for these commands.
//
//   ShareLock / ShareUnlock               flock(). Our openers hold it shared for as long as a
//       table is open, exclusively for an open that must be alone. flock and fcntl locks are
//       separate in the kernel, so the two never interfere.
//
// A File's descriptor is its only descriptor of that open file description (we never dup), so
// closing it in ~File releases both kinds of lock at once.
//
// Calls that are in the table (open, close, pread, pwrite, ftruncate, fsync, fcntl locks, flock,
// rename, unlink) always go through Sys(). stat, mmap, mkdir, rmdir have no slot there and are
// called directly.
#include "platform/file.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/env.h"
#include "platform/path.h"
#include "platform/sys.h"

namespace kvd::platform {

namespace {

constexpr std::uint64_t kMaxOffset = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());
// Largest single pread/pwrite we ask for; the kernel caps one call near 2 GiB anyway.
constexpr std::size_t kMaxChunk = std::size_t{1} << 30;

std::string Concat(std::initializer_list<std::string_view> parts) {
  std::string s;
  for (std::string_view p : parts) s.append(p);
  return s;
}

// [offset, offset + n) must be addressable with off_t.
bool RangeFits(std::uint64_t offset, std::uint64_t n) {
  return offset <= kMaxOffset && n <= kMaxOffset - offset;
}

Status OpenHost(const std::string& host, int flags, int* fd) {
  for (;;) {
    *fd = Sys().open(host.c_str(), flags | O_CLOEXEC, 0666);
    if (*fd >= 0) return Status::Ok();
    if (errno != EINTR) return Status::FromErrno(errno, "open", host);
  }
}

Status PreadAll(int fd, const std::string& path, std::uint64_t offset, void* buf, std::size_t n,
                std::size_t* got) {
  *got = 0;
  if (!RangeFits(offset, n)) return Status::InvalidArgument(Concat({"read ", path, ": offset out of range"}));
  char* p = static_cast<char*>(buf);
  while (*got < n) {
    std::size_t chunk = std::min(n - *got, kMaxChunk);
    ssize_t r = Sys().pread(fd, p + *got, chunk, static_cast<off_t>(offset + *got));
    if (r < 0) {
      if (errno == EINTR) continue;
      return Status::FromErrno(errno, "read", path);
    }
    if (r == 0) break;  // end of file
    *got += static_cast<std::size_t>(r);
  }
  return Status::Ok();
}

Status PwriteAll(int fd, const std::string& path, std::uint64_t offset, const void* buf, std::size_t n) {
  if (!RangeFits(offset, n)) return Status::InvalidArgument(Concat({"write ", path, ": offset out of range"}));
  const char* p = static_cast<const char*>(buf);
  std::size_t done = 0;
  while (done < n) {
    std::size_t chunk = std::min(n - done, kMaxChunk);
    ssize_t w = Sys().pwrite(fd, p + done, chunk, static_cast<off_t>(offset + done));
    if (w < 0) {
      if (errno == EINTR) continue;
      return Status::FromErrno(errno, "write", path);
    }
    if (w == 0) {  // would loop for ever; the kernel gives an errno for every real cause
      return Status::IoError(Concat({"write ", path, ": no progress at offset ", std::to_string(offset + done)}));
    }
    done += static_cast<std::size_t>(w);
  }
  return Status::Ok();
}

std::string RangeText(std::uint64_t offset, std::uint64_t len) {
  return Concat({"[", std::to_string(offset), ", +", std::to_string(len), ")"});
}

// A refused lock answers EAGAIN or, from some file systems, EACCES; both mean kBusy here.
Status LockError(int err, std::string_view what, const std::string& path, std::string_view detail) {
  if (err == EAGAIN || err == EWOULDBLOCK || err == EACCES) {
    return Status::Busy(Concat({what, " ", path, " ", detail, ": held by another opener"}));
  }
  return Status::FromErrno(err, Concat({what, " ", detail}), path);
}

Status FillRange(const std::string& path, std::uint64_t offset, std::uint64_t len, short type,
                 struct flock* fl) {
  if (len == 0 || !RangeFits(offset, len)) {
    return Status::InvalidArgument(Concat({"lock ", path, " ", RangeText(offset, len), ": bad range"}));
  }
  *fl = {};
  fl->l_type = type;
  fl->l_whence = SEEK_SET;
  fl->l_start = static_cast<off_t>(offset);
  fl->l_len = static_cast<off_t>(len);
  fl->l_pid = 0;  // required by the F_OFD_* commands
  return Status::Ok();
}

// Opens `host` on a fresh descriptor and takes flock(LOCK_EX | LOCK_NB) on it: the test for "no
// other opener". kBusy when someone holds any flock on the file; *fd stays -1 when the file
// cannot be opened for the test (see below). The caller closes *fd, which drops the probe lock.
// The descriptor park (see File::OpenLocked)

class DescriptorPark {
 public:
  struct Entry {
    std::string host;  // the name it was opened by, as written
    bool writable;
    int fd;
    std::uint64_t dev, ino;
  };
  static constexpr std::size_t kParked = 8;

  static DescriptorPark& Get() {
    static DescriptorPark* park = [] {
      auto* p = new DescriptorPark();  // never destroyed: Files may go after static destruction
      pthread_atfork([] { Get().mu_.lock(); }, [] { Get().mu_.unlock(); }, [] { Get().ForgetInChild(); });
      return p;
    }();
    return *park;
  }

  // The latest kept descriptor of `host` open for `writable`, out of the park.
  bool Take(const std::string& host, bool writable, Entry* out) {
    std::lock_guard<std::mutex> hold(mu_);
    for (std::size_t i = entries_.size(); i-- > 0;) {
      if (entries_[i].writable == writable && entries_[i].host == host) {
        *out = std::move(entries_[i]);
        entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(i));
        return true;
      }
    }
    return false;
  }

  void Put(Entry e) {
    int evicted = -1;
    {
      std::lock_guard<std::mutex> hold(mu_);
      if (entries_.size() == kParked) {
        evicted = entries_.front().fd;
        entries_.erase(entries_.begin());
      }
      entries_.push_back(std::move(e));
    }
    if (evicted >= 0) Sys().close(evicted);
  }

  // Closes every kept descriptor of `host` (its file is being removed or renamed over).
  void Drop(const std::string& host) {
    std::vector<int> fds;
    {
      std::lock_guard<std::mutex> hold(mu_);
      std::erase_if(entries_, [&](const Entry& e) {
        if (e.host != host) return false;
        fds.push_back(e.fd);
        return true;
      });
    }
    for (int fd : fds) Sys().close(fd);
  }

 private:
  // In a child of fork, with the mutex held by the forking thread since the prepare handler.
  void ForgetInChild() {
    for (const Entry& e : entries_) Sys().close(e.fd);
    entries_.clear();
    mu_.unlock();
  }
  std::mutex mu_;
  std::vector<Entry> entries_;  // oldest first
};

Status ProbeAlone(const std::string& host, std::string_view what, int* fd) {
  *fd = -1;
  for (;;) {
    *fd = Sys().open(host.c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC, 0);
    if (*fd >= 0) break;
    int err = errno;
    if (err == EINTR) continue;
    // A file we may not read we cannot test; the directory's permissions decide alone, as they
    // would without this guard. Any other failure (ENOENT first of all) is the answer.
    if (err == EACCES) return Status::Ok();
    return Status::FromErrno(err, what, host);
  }
  if (Sys().flock(*fd, LOCK_EX | LOCK_NB) != 0) {
    int err = errno;
    Sys().close(*fd);
    *fd = -1;
    if (err == EWOULDBLOCK || err == EAGAIN) {
      return Status::Busy(Concat({what, " ", host, ": the file is open elsewhere"}));
    }
    return Status::FromErrno(err, what, host);
  }
  return Status::Ok();
}

// Removes `host`, refusing while anyone else has it open. Windows refuses to delete a file that
// another opener has open; Linux would unlink it under the opener's feet. Our own openers hold a
// shared flock for as long as a table is open, which is what lets the exclusive probe see them.
// The unlink happens while the probe lock is held, so no opener of ours can slip in between.
Status RemoveHost(const std::string& host) {
  int fd = -1;
  KVD_RETURN_IF_ERROR(ProbeAlone(host, "remove", &fd));
  int rc = Sys().unlink(host.c_str());
  int err = errno;
  if (fd >= 0) Sys().close(fd);
  if (rc != 0) return Status::FromErrno(err, "remove", host);
  DescriptorPark::Get().Drop(host);  // the blocks go now, not when the park lets go
  return Status::Ok();
}

// rename(from, to), refusing when `to` exists and is open elsewhere (the same guard as RemoveHost:
// our openers hold a shared flock while a table is open). On refusal both files stay as they were.
Status ReplaceHost(const std::string& from, const std::string& to) {
  int fd = -1;
  Status probe = ProbeAlone(to, "replace", &fd);
  if (!probe.ok() && !probe.IsNotFound()) return probe;
  int rc = Sys().rename(from.c_str(), to.c_str());
  int err = errno;
  if (fd >= 0) Sys().close(fd);
  if (rc != 0) return Status::FromErrno(err, Concat({"rename ", from, " to"}), to);
  DescriptorPark::Get().Drop(to);
  return Status::Ok();
}

Status SyncHostDirectory(const std::string& host) {
  std::string dir = host.empty() ? std::string(".") : host;
  int fd = -1;
  KVD_RETURN_IF_ERROR(OpenHost(dir, O_RDONLY | O_DIRECTORY, &fd));
  int rc = Sys().fsync(fd);
  int err = errno;
  Sys().close(fd);
  // Some file systems cannot sync a directory and say EINVAL; there is nothing more to do there.
  if (rc != 0 && err != EINVAL) return Status::FromErrno(err, "sync directory", dir);
  return Status::Ok();
}

bool HostNameExists(const std::string& host) {
  struct stat st;
  return ::lstat(host.c_str(), &st) == 0;
}

// A name next to `target` that nobody else uses: ".<name>.kvdtmp.<pid>.<n>".
std::string TempNameFor(const std::string& target) {
  static std::atomic<unsigned> counter{0};
  return Concat({DirPart(target), ".", NamePart(target), ".kvdtmp.", std::to_string(::getpid()), ".",
                 std::to_string(counter.fetch_add(1))});
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// File

// Opens the descriptor of File::Open, without looking at what it opened.
Status File::OpenUnchecked(std::string_view path, OpenMode mode, std::unique_ptr<File>* out) {
  out->reset();
  int flags = 0;
  bool writable = true;
  bool existing = false;  // the file must be there already
  switch (mode) {
    case OpenMode::kRead:
      flags = O_RDONLY;
      writable = false;
      existing = true;
      break;
    case OpenMode::kReadWrite:
      flags = O_RDWR;
      existing = true;
      break;
    case OpenMode::kCreate:
      flags = O_RDWR | O_CREAT | O_TRUNC;
      break;
    case OpenMode::kCreateExclusive:
      flags = O_RDWR | O_CREAT | O_EXCL;
      break;
  }
  int fd = -1;
  std::string host;
  if (existing) {
    // The name as written first: when it is there, HostPath would answer it unchanged, and the open
    // itself is the look-up. Only a name that is not there as written is searched ignoring case.
    host = HostPathAsWritten(path);
    Status s = OpenHost(host, flags | O_NOCTTY, &fd);
    if (!s.ok()) {
      std::string resolved = HostPath(path);
      if (resolved == host) return s;
      host = std::move(resolved);
      KVD_RETURN_IF_ERROR(OpenHost(host, flags | O_NOCTTY, &fd));
    }
  } else {
    // A file to be made must take the spelling of one that is there in another case.
    host = HostPath(path);
    KVD_RETURN_IF_ERROR(OpenHost(host, flags | O_NOCTTY, &fd));
  }
  out->reset(new File(fd, std::move(host), writable));
  return Status::Ok();
}

// A directory opens fine read-only and fails only at the first read; say it now. The same look
// gives the identity and the size the opener starts from, and whether the file still has a name.
Status File::LookAtOpenFile(bool* named) {
  struct stat st;
  if (::fstat(fd_, &st) != 0) return Status::FromErrno(errno, "stat", path_);
  if (S_ISDIR(st.st_mode)) return Status::InvalidArgument(Concat({"open ", path_, ": is a directory"}));
  dev_ = static_cast<std::uint64_t>(st.st_dev);
  ino_ = static_cast<std::uint64_t>(st.st_ino);
  size_at_open_ = static_cast<std::uint64_t>(st.st_size);
  *named = st.st_nlink > 0;
  return Status::Ok();
}

Status File::Open(std::string_view path, OpenMode mode, std::unique_ptr<File>* out) {
  KVD_RETURN_IF_ERROR(OpenUnchecked(path, mode, out));
  bool named = false;
  Status s = (*out)->LookAtOpenFile(&named);
  if (!s.ok()) out->reset();
  return s;
}

Status File::LockShared(LockKind kind, int attempts, unsigned delay_ms) {
  Status locked = ShareLock(kind, /*wait=*/attempts < 0);
  for (int i = 1; locked.IsBusy() && i < attempts; ++i) {
    SleepMillis(delay_ms);
    locked = ShareLock(kind, /*wait=*/false);
  }
  return locked;
}

Status File::OpenLocked(std::string_view path, OpenMode mode, LockKind kind, int attempts, unsigned delay_ms,
                        std::unique_ptr<File>* out) {
  const bool existing = mode == OpenMode::kRead || mode == OpenMode::kReadWrite;
  const std::string as_written = existing ? HostPathAsWritten(path) : std::string();
  DescriptorPark::Entry kept;
  if (existing && DescriptorPark::Get().Take(as_written, mode == OpenMode::kReadWrite, &kept)) {
    std::unique_ptr<File> f(new File(kept.fd, std::move(kept.host), kept.writable));
    f->parkable_ = true;  // a lock that cannot be had parks it again
    KVD_RETURN_IF_ERROR(f->LockShared(kind, attempts, delay_ms));
    // Under the lock the name cannot be taken from the file (a replacer needs it exclusively), so
    // a name that means this inode now goes on meaning it.
    struct stat st;
    if (::stat(f->path_.c_str(), &st) == 0 && S_ISREG(st.st_mode) && st.st_nlink > 0 &&
        static_cast<std::uint64_t>(st.st_dev) == kept.dev && static_cast<std::uint64_t>(st.st_ino) == kept.ino) {
      f->dev_ = kept.dev;
      f->ino_ = kept.ino;
      f->size_at_open_ = static_cast<std::uint64_t>(st.st_size);
      *out = std::move(f);
      return Status::Ok();
    }
    f->parkable_ = false;  // the name went elsewhere: close it, and open the name
  }
  for (int tries = 0;; ++tries) {
    std::unique_ptr<File> f;
    KVD_RETURN_IF_ERROR(OpenUnchecked(path, mode, &f));
    KVD_RETURN_IF_ERROR(f->LockShared(kind, attempts, delay_ms));
    // Whoever replaces a file renames the new one into place while holding the old one's lock
    // exclusively, so a file we got the lock on and that still has a link is the one the name
    // means. (A table given a second name by a hard link elsewhere would pass for named after a
    // replace; tables have one name.)
    bool named = false;
    KVD_RETURN_IF_ERROR(f->LookAtOpenFile(&named));
    if (named) {
      f->parkable_ = existing && f->path_ == as_written;
      *out = std::move(f);
      return Status::Ok();
    }
    if (tries == 8) return Status::Busy(Concat({"file keeps being replaced while opening: ", f->path()}));
  }
}

void File::ForgetParked(const std::string& host) { DescriptorPark::Get().Drop(host); }

File::~File() {
  if (fd_ < 0) return;
  if (parkable_ && !range_locked_ && (share_held_ == Held::kNone || Sys().flock(fd_, LOCK_UN) == 0)) {
    DescriptorPark::Get().Put(DescriptorPark::Entry{std::move(path_), writable_, fd_, dev_, ino_});
    return;
  }
  // Not retried on EINTR: on Linux the descriptor is gone whatever close answers.
  Sys().close(fd_);
}

Status File::ReadAt(std::uint64_t offset, void* buf, std::size_t n, std::size_t* got) const {
  return PreadAll(fd_, path_, offset, buf, n, got);
}

Status File::ReadExactAt(std::uint64_t offset, void* buf, std::size_t n) const {
  std::size_t got = 0;
  KVD_RETURN_IF_ERROR(ReadAt(offset, buf, n, &got));
  if (got != n) {
    return KVD_CORRUPT(path_, offset,
                       Concat({"short read: wanted ", std::to_string(n), " bytes, got ", std::to_string(got)}));
  }
  return Status::Ok();
}

Status File::WriteAt(std::uint64_t offset, const void* buf, std::size_t n) {
  if (!writable_) return Status::ReadOnly(Concat({"write ", path_, ": opened read-only"}));
  return PwriteAll(fd_, path_, offset, buf, n);
}

Status File::Size(std::uint64_t* size) const {
  struct stat st;
  if (::fstat(fd_, &st) != 0) return Status::FromErrno(errno, "stat", path_);
  *size = static_cast<std::uint64_t>(st.st_size);
  return Status::Ok();
}

Status File::Truncate(std::uint64_t size) {
  if (!writable_) return Status::ReadOnly(Concat({"truncate ", path_, ": opened read-only"}));
  if (size > kMaxOffset) return Status::InvalidArgument(Concat({"truncate ", path_, ": size out of range"}));
  for (;;) {
    if (Sys().ftruncate(fd_, static_cast<off_t>(size)) == 0) return Status::Ok();
    if (errno != EINTR) return Status::FromErrno(errno, "truncate", path_);
  }
}

Status File::Sync() {
  if (Sys().fsync(fd_) != 0) return Status::FromErrno(errno, "sync", path_);
  return Status::Ok();
}

Status File::LockRange(std::uint64_t offset, std::uint64_t len, LockKind kind, bool wait) {
  struct flock fl;
  KVD_RETURN_IF_ERROR(FillRange(path_, offset, len, kind == LockKind::kShared ? F_RDLCK : F_WRLCK, &fl));
  // The kernel grants a write lock only on a descriptor open for writing (EBADF otherwise).
  if (kind == LockKind::kExclusive && !writable_) {
    return Status::ReadOnly(Concat({"lock ", path_, " ", RangeText(offset, len), ": exclusive lock on a read-only open"}));
  }
  const int cmd = wait ? F_OFD_SETLKW : F_OFD_SETLK;
  range_locked_ = true;
  for (;;) {
    if (Sys().fcntl_lock(fd_, cmd, &fl) == 0) return Status::Ok();
    const int err = errno;
    if (err != EINTR) return LockError(err, "lock", path_, RangeText(offset, len));
  }
}

Status File::UnlockRange(std::uint64_t offset, std::uint64_t len) {
  struct flock fl;
  KVD_RETURN_IF_ERROR(FillRange(path_, offset, len, F_UNLCK, &fl));
  for (;;) {
    if (Sys().fcntl_lock(fd_, F_OFD_SETLK, &fl) == 0) return Status::Ok();
    const int err = errno;
    if (err != EINTR) return Status::FromErrno(err, Concat({"unlock ", RangeText(offset, len)}), path_);
  }
}

Status File::TestRange(std::uint64_t offset, std::uint64_t len, LockKind kind, bool* held_elsewhere) const {
  *held_elsewhere = false;
  struct flock fl;
  KVD_RETURN_IF_ERROR(FillRange(path_, offset, len, kind == LockKind::kShared ? F_RDLCK : F_WRLCK, &fl));
  // F_OFD_GETLK ignores this description's own locks and reports the first conflicting one, or
  // leaves l_type as F_UNLCK when there is none.
  if (Sys().fcntl_lock(fd_, F_OFD_GETLK, &fl) != 0) {
    const int err = errno;
    return Status::FromErrno(err, Concat({"test lock ", RangeText(offset, len)}), path_);
  }
  *held_elsewhere = fl.l_type != F_UNLCK;
  return Status::Ok();
}

// Open-mode lock states and moves (all on this File's descriptor):
//
//   kNone --ShareLock(kShared)--> kShared --ShareLock(kExclusive)--> kExclusive
//     ^                             |  ^                                |
//     +-------ShareUnlock-----------+  +------ShareLock(kShared)--------+
//     +-------------------------------ShareUnlock-----------------------+
//
// A failed kShared -> kExclusive stays in kShared (see below); a failed first lock stays in kNone.
Status File::ShareLock(LockKind kind, bool wait) {
  const Held want = kind == LockKind::kShared ? Held::kShared : Held::kExclusive;
  const int base_op = kind == LockKind::kShared ? LOCK_SH : LOCK_EX;
  const int op = wait ? base_op : (base_op | LOCK_NB);
  int err = 0;
  for (;;) {
    if (Sys().flock(fd_, op) == 0) {
      share_held_ = want;
      return Status::Ok();
    }
    err = errno;
    if (err != EINTR || !wait) break;
  }

  Status failed = (err == EWOULDBLOCK || err == EAGAIN)
                      ? Status::Busy(Concat({"open-mode lock ", path_, ": held by another opener"}))
                      : Status::FromErrno(err, "open-mode lock", path_);
  if (share_held_ == Held::kNone || share_held_ == want) return failed;

  // Linux does not convert a flock lock in place: it removes the lock this descriptor holds and
  // then asks for the new one, so a conversion that fails leaves us with no lock at all (flock(2)
  // says a conversion is not atomic). Take the old lock back at once. This fails when, in that
  // instant, another opener got an exclusive lock (the other holders let go, or another holder's
  // own conversion found ours gone); then we say so and hold nothing, and the caller must not touch
  // the file again before it is closed.
  const int old_op = (share_held_ == Held::kShared ? LOCK_SH : LOCK_EX) | LOCK_NB;
  if (Sys().flock(fd_, old_op) != 0) {
    share_held_ = Held::kNone;
    return Status::Busy(Concat({"open-mode lock ", path_,
                                ": held by another opener, and the lock held before was lost while converting"}));
  }
  return failed;
}

Status File::ShareUnlock() {
  if (Sys().flock(fd_, LOCK_UN) != 0) return Status::FromErrno(errno, "open-mode unlock", path_);
  share_held_ = Held::kNone;
  return Status::Ok();
}

Status File::IsSameFileAs(std::string_view path, bool* same) const {
  *same = false;
  std::string host = HostPath(path);
  struct stat mine, theirs;
  if (::fstat(fd_, &mine) != 0) return Status::FromErrno(errno, "stat", path_);
  if (::stat(host.c_str(), &theirs) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) return Status::Ok();
    return Status::FromErrno(errno, "stat", host);
  }
  *same = mine.st_dev == theirs.st_dev && mine.st_ino == theirs.st_ino;
  return Status::Ok();
}

Status File::MoveOver(std::string_view to) {
  std::string dst = HostPath(to);
  if (Sys().rename(path_.c_str(), dst.c_str()) != 0) return Status::FromErrno(errno, "rename to", dst);
  DescriptorPark::Get().Drop(dst);
  path_ = std::move(dst);
  return Status::Ok();
}

bool File::FileBeside(std::string_view name) const {
  struct stat st;
  const std::string host = std::string(DirPart(path_)) + std::string(name);
  return ::stat(host.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// ---------------------------------------------------------------------------------------------
// Mapping

namespace {

// Maps `length` bytes of descriptor `fd` from offset 0, shared and read-only.
Status MapShared(int fd, const std::string& path, std::uint64_t length, std::byte** base) {
  if (length > std::numeric_limits<std::size_t>::max())
    return Status::InvalidArgument(Concat({"map ", path, ": too large to map"}));
  void* p = ::mmap(nullptr, static_cast<std::size_t>(length), PROT_READ, MAP_SHARED, fd, 0);
  if (p == MAP_FAILED) return Status::FromErrno(errno, "map", path);
  *base = static_cast<std::byte*>(p);
  return Status::Ok();
}

// Address space for a file of `size` bytes: room for it to double (at least 64 KiB) before it needs
// mapping anew.
std::uint64_t RoomFor(std::uint64_t size) { return size + std::max<std::uint64_t>(size, std::uint64_t{64} << 10); }

}  // namespace

struct Mapping::Pooled {
  std::uint64_t dev = 0;         // the file's identity
  std::uint64_t ino = 0;
  std::byte* base = nullptr;
  std::uint64_t reserved = 0;    // bytes of address space
  int fd = -1;                   // our own read-only open of the file; never locked
  int users = 0;                 // Mappings that use it now
  bool superseded = false;       // a larger mapping of the file took its place
  std::uint64_t idle_since = 0;  // pool tick when the last user went
};

namespace {

// The pool. Lock order: its mutex is taken with no file lock in question (it guards memory only)
// and nothing else is taken while it is held.
class MapPool {
 public:
  // A mapping of `file` with at least `size` bytes of address space, for one more user. *out null
  // when the pool cannot make one (no /proc): the caller maps on its own.
  Status Acquire(const File& file, std::uint64_t size, Mapping::Pooled** out) {
    *out = nullptr;
    if ((*out = Find(file, size)) != nullptr) return Status::Ok();
    std::lock_guard<std::mutex> hold(mu_);
    // A descriptor of our own for the same inode: through /proc, not by name, so that it cannot be
    // another file that took the name meanwhile.
    const std::string self = "/proc/self/fd/" + std::to_string(file.fd());
    int fd = -1;
    for (;;) {
      fd = Sys().open(self.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY, 0);
      if (fd >= 0 || errno != EINTR) break;
    }
    if (fd < 0) return Status::Ok();
    auto e = std::make_unique<Mapping::Pooled>();
    e->dev = file.device();
    e->ino = file.inode();
    e->fd = fd;
    e->reserved = RoomFor(size);
    Status s = MapShared(fd, file.path(), e->reserved, &e->base);
    if (!s.ok()) {
      Sys().close(fd);
      return s;
    }
    e->users = 1;
    for (std::size_t i = 0; i < entries_.size();) {
      Mapping::Pooled* old = entries_[i];
      if (old->dev == e->dev && old->ino == e->ino) old->superseded = true;
      if (old->superseded && old->users == 0) {
        Drop(old);
        entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(i));
      } else {
        ++i;
      }
    }
    *out = e.release();
    entries_.push_back(*out);
    return Status::Ok();
  }

  // The pool's mapping of `file` with at least `size` bytes of address space, for one more user;
  // null when there is none.
  Mapping::Pooled* Find(const File& file, std::uint64_t size) {
    std::lock_guard<std::mutex> hold(mu_);
    SweepIdle();
    for (Mapping::Pooled* e : entries_) {
      if (e->dev == file.device() && e->ino == file.inode() && !e->superseded && e->reserved >= size) {
        ++e->users;
        return e;
      }
    }
    return nullptr;
  }

  // How many reads this process has counted for `file` (this one included) while it was not mapped:
  // openers that each read a few bytes of a file opened again and again add up, and the file is
  // worth mapping for all of them once they have read enough. A short table: a file that drops out
  // starts counting again.
  int CountRead(const File& file) {
    std::lock_guard<std::mutex> hold(mu_);
    for (Heat& h : heat_)
      if (h.reads != 0 && h.dev == file.device() && h.ino == file.inode()) return ++h.reads;
    heat_[next_heat_++ % heat_.size()] = Heat{file.device(), file.inode(), 1};
    return 1;
  }

  // `gone`: the user replaced or removed the file, so it is never mapped again by that identity.
  void Release(Mapping::Pooled* e, bool gone) {
    std::lock_guard<std::mutex> hold(mu_);
    if (gone) e->superseded = true;
    if (--e->users > 0) return;
    e->idle_since = ++tick_;
    // Its pages and its disk space go now. (A file that lost its name otherwise, replaced or
    // removed by another process, goes at a sweep.)
    if (e->superseded) {
      Remove(e);
      return;
    }
    SweepIdle();
    // Idle entries beyond the limits go, the longest idle first.
    for (;;) {
      std::size_t idle = 0;
      std::uint64_t idle_bytes = 0;
      Mapping::Pooled* oldest = nullptr;
      for (Mapping::Pooled* x : entries_) {
        if (x->users != 0) continue;
        ++idle;
        idle_bytes += x->reserved;
        if (oldest == nullptr || x->idle_since < oldest->idle_since) oldest = x;
      }
      if (oldest == nullptr || (idle <= kMaxIdle && idle_bytes <= kMaxIdleBytes)) return;
      Remove(oldest);
    }
  }

 private:
  static constexpr std::size_t kMaxIdle = 8;
  static constexpr std::uint64_t kMaxIdleBytes = std::uint64_t{1} << 30;
  static constexpr std::uint64_t kSweepEveryMs = 1000;

  // Idle entries whose file has lost its last name since (another process replaced or removed
  // it) go, so that their disk space goes too: looked for at most once a second, at any call.
  // REQUIRES: mu_ held.
  void SweepIdle() {
    const std::uint64_t now = MonotonicMillis();
    if (now - last_sweep_ms_ < kSweepEveryMs) return;
    last_sweep_ms_ = now;
    for (std::size_t i = 0; i < entries_.size();) {
      Mapping::Pooled* x = entries_[i];
      struct stat st;
      if (x->users == 0 && (::fstat(x->fd, &st) != 0 || st.st_nlink == 0)) {
        entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(i));
        Drop(x);
      } else {
        ++i;
      }
    }
  }

  static void Drop(Mapping::Pooled* e) {
    ::munmap(e->base, static_cast<std::size_t>(e->reserved));
    Sys().close(e->fd);
    delete e;
  }
  void Remove(Mapping::Pooled* e) {
    entries_.erase(std::find(entries_.begin(), entries_.end(), e));
    Drop(e);
  }

  struct Heat {
    std::uint64_t dev = 0, ino = 0;
    int reads = 0;
  };

  std::mutex mu_;
  std::vector<Mapping::Pooled*> entries_;  // owned
  std::array<Heat, 16> heat_{};
  unsigned next_heat_ = 0;
  std::uint64_t tick_ = 0;
  std::uint64_t last_sweep_ms_ = 0;  // MonotonicMillis of the last SweepIdle
};

// Never destroyed: Mappings may still let go of their entries while the process exits.
MapPool& Pool() {
  static MapPool* pool = new MapPool();
  return *pool;
}

}  // namespace

Mapping::~Mapping() { Release(); }

void Mapping::Release() { ReleaseAs(/*gone=*/false); }

void Mapping::ReleaseReplaced() { ReleaseAs(/*gone=*/true); }

int Mapping::CountRead(const File& file) { return Pool().CountRead(file); }

void Mapping::ReleaseAs(bool gone) {
  if (pooled_ != nullptr) {
    Pool().Release(pooled_, gone);
  } else if (base_ != nullptr) {
    ::munmap(base_, static_cast<std::size_t>(reserved_));
  }
  pooled_ = nullptr;
  base_ = nullptr;
  size_ = reserved_ = 0;
}

Status Mapping::Map(const File& file, std::uint64_t size) {
  if (size == 0) {
    Release();
    return Status::Ok();
  }
  // Pages past the end of the file raise SIGBUS when touched, so never map beyond it.
  std::uint64_t file_size = 0;
  KVD_RETURN_IF_ERROR(file.Size(&file_size));
  if (size > file_size || size > std::numeric_limits<std::size_t>::max()) {
    return Status::InvalidArgument(Concat({"map ", file.path(), ": ", std::to_string(size),
                                           " bytes asked, file has ", std::to_string(file_size)}));
  }
  std::byte* p = nullptr;
  KVD_RETURN_IF_ERROR(MapShared(file.fd(), file.path(), size, &p));
  // The new mapping is in place before the old one goes, so a failure above leaves the old intact.
  Release();
  base_ = p;
  size_ = reserved_ = size;
  return Status::Ok();
}

bool Mapping::AdoptPooled(const File& file) {
  const std::uint64_t size = file.size_at_open();
  if (size == 0 || size <= size_) return false;
  Pooled* e = Pool().Find(file, size);
  if (e == nullptr) return false;
  Release();
  pooled_ = e;
  base_ = e->base;
  reserved_ = e->reserved;
  size_ = size;  // the file was that long when opened, and files do not shrink while mapped
  return true;
}

Status Mapping::Cover(const File& file, std::uint64_t end, std::uint64_t* file_size, bool* covered) {
  *covered = false;
  KVD_RETURN_IF_ERROR(file.Size(file_size));
  if (end > *file_size) return Status::Ok();
  *covered = true;
  if (*file_size <= reserved_) {
    // The address space is there: the pages the file gained are reached through it as they are.
    size_ = std::max(size_, *file_size);
    return Status::Ok();
  }
  Pooled* e = nullptr;
  KVD_RETURN_IF_ERROR(Pool().Acquire(file, *file_size, &e));
  if (e != nullptr) {
    Release();
    pooled_ = e;
    base_ = e->base;
    reserved_ = e->reserved;
    size_ = *file_size;
    return Status::Ok();
  }
  // No pool: a mapping of our own, with room to grow. Address space past the end is never
  // touched: size_ bounds every read.
  const std::uint64_t reserve = RoomFor(*file_size);
  std::byte* p = nullptr;
  KVD_RETURN_IF_ERROR(MapShared(file.fd(), file.path(), reserve, &p));
  Release();
  base_ = p;
  size_ = *file_size;
  reserved_ = reserve;
  return Status::Ok();
}

// ---------------------------------------------------------------------------------------------
// DirectoryLock

Status DirectoryLock::Acquire(std::string_view dir, unsigned wait_ms, std::unique_ptr<DirectoryLock>* out) {
  out->reset();
  const std::string host = dir.empty() ? std::string(".") : HostPath(dir);
  int fd = -1;
  KVD_RETURN_IF_ERROR(OpenHost(host, O_RDONLY | O_DIRECTORY | O_NOCTTY, &fd));
  const std::uint64_t start = MonotonicMillis();
  for (;;) {
    if (Sys().flock(fd, LOCK_EX | LOCK_NB) == 0) {
      out->reset(new DirectoryLock(fd));
      return Status::Ok();
    }
    const int err = errno;
    if (err == EINTR) continue;
    if (err != EWOULDBLOCK && err != EAGAIN) {
      Sys().close(fd);
      return Status::FromErrno(err, "lock directory", host);
    }
    if (MonotonicMillis() - start >= wait_ms) {
      Sys().close(fd);
      return Status::Busy(Concat({"lock directory ", host, ": held by another process"}));
    }
    SleepMillis(10);
  }
}

DirectoryLock::~DirectoryLock() { Sys().close(fd_); }

// ---------------------------------------------------------------------------------------------
// Operations by path

bool FileExists(std::string_view path) {
  struct stat st;
  return ::stat(HostPath(path).c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool DirectoryExists(std::string_view path) {
  struct stat st;
  return ::stat(HostPath(path).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

Status RemoveFile(std::string_view path) { return RemoveHost(HostPath(path)); }

Status ReplaceFile(std::string_view from, std::string_view to) {
  return ReplaceHost(HostPath(from), HostPath(to));
}

Status RenameFile(std::string_view from, std::string_view to) {
  std::string host_from = HostPath(from);
  std::string host_to = HostPath(to);
  // rename(2) would silently replace; the caller said `to` is new, so hold them to it. The check
  // and the rename are two steps; a file created in between is replaced.
  if (HostNameExists(host_to)) return Status::Exists(Concat({"rename ", host_from, " to ", host_to, ": target exists"}));
  if (Sys().rename(host_from.c_str(), host_to.c_str()) != 0) {
    const int err = errno;
    return Status::FromErrno(err, Concat({"rename ", host_from, " to"}), host_to);
  }
  return Status::Ok();
}

Status CopyFile(std::string_view from, std::string_view to, bool fail_if_exists) {
  const std::string host_from = HostPath(from);
  const std::string host_to = HostPath(to);
  if (fail_if_exists && HostNameExists(host_to)) {
    return Status::Exists(Concat({"copy to ", host_to, ": target exists"}));
  }

  int src = -1;
  KVD_RETURN_IF_ERROR(OpenHost(host_from, O_RDONLY | O_NOCTTY, &src));

  // A temporary name in the target's directory, so that the final rename stays on one file system.
  std::string tmp;
  int dst = -1;
  Status s;
  for (int attempt = 0; attempt < 100; ++attempt) {
    tmp = TempNameFor(host_to);
    s = OpenHost(tmp, O_RDWR | O_CREAT | O_EXCL | O_NOCTTY, &dst);
    if (s.ok() || s.kind() != Status::Kind::kExists) break;
  }
  if (!s.ok()) {
    Sys().close(src);
    return s;
  }

  std::vector<char> buf(std::size_t{1} << 16);
  std::uint64_t offset = 0;
  for (;;) {
    std::size_t got = 0;
    s = PreadAll(src, host_from, offset, buf.data(), buf.size(), &got);
    if (!s.ok() || got == 0) break;
    s = PwriteAll(dst, tmp, offset, buf.data(), got);
    if (!s.ok()) break;
    offset += got;
  }
  if (s.ok() && Sys().fsync(dst) != 0) s = Status::FromErrno(errno, "sync", tmp);
  Sys().close(src);
  if (Sys().close(dst) != 0 && s.ok()) s = Status::FromErrno(errno, "close", tmp);

  if (s.ok()) {
    if (fail_if_exists) {
      // Checked again now that the copy took its time; a target that appeared meanwhile wins.
      if (HostNameExists(host_to)) {
        s = Status::Exists(Concat({"copy to ", host_to, ": target exists"}));
      } else if (Sys().rename(tmp.c_str(), host_to.c_str()) != 0) {
        const int err = errno;
        s = Status::FromErrno(err, Concat({"rename ", tmp, " to"}), host_to);
      }
    } else {
      // Overwriting a table that someone has open is refused like ReplaceFile refuses it.
      s = ReplaceHost(tmp, host_to);
    }
  }
  if (!s.ok()) {
    Sys().unlink(tmp.c_str());
    return s;
  }
  return SyncHostDirectory(std::string(DirPart(host_to)));
}

Status MakeDirectory(std::string_view path) {
  std::string host = HostPath(path);
  if (::mkdir(host.c_str(), 0777) != 0) return Status::FromErrno(errno, "make directory", host);
  return Status::Ok();
}

Status RemoveDirectory(std::string_view path) {
  std::string host = HostPath(path);
  if (::rmdir(host.c_str()) != 0) return Status::FromErrno(errno, "remove directory", host);
  return Status::Ok();
}

Status SyncDirectory(std::string_view dir) { return SyncHostDirectory(HostPath(dir)); }

}  // namespace kvd::platform
