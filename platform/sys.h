// The seam between the platform layer and the kernel.
//
// Every system call that the platform layer makes goes through this table, so that a test can put
// in a function that fails (a write that hits ENOSPC, a lock that is held) and see how the layers
// above cope. The table starts out with the real calls. Tests that change it restore it with
// SysCallsOverride. Not thread-safe to change while other threads do file work.
#pragma once

#include <sys/types.h>

namespace kvd::platform {

struct SysCalls {
  int (*open)(const char* path, int flags, mode_t mode);  // open(2)
  int (*close)(int fd);
  ssize_t (*pread)(int fd, void* buf, size_t n, off_t off);
  ssize_t (*pwrite)(int fd, const void* buf, size_t n, off_t off);
  int (*ftruncate)(int fd, off_t len);
  int (*fsync)(int fd);
  int (*fcntl_lock)(int fd, int cmd, void* flock_arg);  // fcntl(fd, cmd, struct flock*)
  int (*flock)(int fd, int op);
  int (*rename)(const char* from, const char* to);
  int (*unlink)(const char* path);
};

SysCalls& Sys();  // the live table

// Restores the table when it goes out of scope: { SysCallsOverride o; Sys().pwrite = failing; ... }
class SysCallsOverride {
 public:
  SysCallsOverride() : saved_(Sys()) {}
  ~SysCallsOverride() { Sys() = saved_; }
 private:
  SysCalls saved_;
};

}  // namespace kvd::platform
