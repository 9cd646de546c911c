// The live system-call table, filled with thin wrappers around the real calls.
//
// open and fcntl are variadic in the C library, so they cannot sit in the table themselves; the
// wrappers give them fixed signatures. No wrapper retries or interprets anything: EINTR and short
// transfers are the caller's business (file.cc), so that an injected function sees every attempt.
#include "platform/sys.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdio>

namespace kvd::platform {

namespace {

int RealOpen(const char* path, int flags, mode_t mode) { return ::open(path, flags, mode); }
int RealClose(int fd) { return ::close(fd); }
ssize_t RealPread(int fd, void* buf, size_t n, off_t off) { return ::pread(fd, buf, n, off); }
ssize_t RealPwrite(int fd, const void* buf, size_t n, off_t off) { return ::pwrite(fd, buf, n, off); }
int RealFtruncate(int fd, off_t len) { return ::ftruncate(fd, len); }
int RealFsync(int fd) { return ::fsync(fd); }
int RealFcntlLock(int fd, int cmd, void* flock_arg) {
  return ::fcntl(fd, cmd, static_cast<struct flock*>(flock_arg));
}
int RealFlock(int fd, int op) { return ::flock(fd, op); }
int RealRename(const char* from, const char* to) { return std::rename(from, to); }
int RealUnlink(const char* path) { return ::unlink(path); }

// Constant-initialised, so it is ready before any static constructor of another file runs.
constinit SysCalls g_sys = {
    RealOpen, RealClose, RealPread,     RealPwrite, RealFtruncate,
    RealFsync, RealFcntlLock, RealFlock, RealRename, RealUnlink,
};

}  // namespace

SysCalls& Sys() { return g_sys; }

}  // namespace kvd::platform
