// Shared pieces of the engine tests: a private directory and an engine state per test.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "engine/d4all.h"

namespace kvd::test {

class TempDir {
 public:
  TempDir() {
    char tmpl[] = "/tmp/kvdtest-XXXXXX";
    path_ = mkdtemp(tmpl);
  }
  ~TempDir() { std::filesystem::remove_all(path_); }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// An engine state set up the way the table layer sets its own up.
struct Engine {
  CODE4 code;
  Engine() {
    code4initLow(&code, nullptr, 6502, 1010, 0);
    code.autoOpen = 0;
    code.errOpen = 0;
    code.safety = 0;
    code.lockEnforce = 1;
    code.lockAttempts = 1;
    code4unlockAutoSetDo(&code, 1);
  }
  ~Engine() { code4initUndo(&code); }
};

inline std::vector<unsigned char> ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {});
}

inline void WriteAll(const std::string& path, const std::vector<unsigned char>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline std::string Str(FIELD4St* f) {
  std::string s(f4str(f), f4len(f));
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

// A forked process running `body`; Join() waits for it and gives its exit code (the child's
// gtest state is not shared, so it reports through the code: 0 = every check passed).
class Child {
 public:
  template <typename F>
  explicit Child(F body) {
    pid_ = fork();
    if (pid_ == 0) _exit(body());
  }
  int Join() {
    int status = 0;
    waitpid(pid_, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_;
};

// A pipe for telling a child when to go on, and the parent when the child is ready.
class Signal {
 public:
  Signal() {
    if (pipe(fds_) != 0) fds_[0] = fds_[1] = -1;
  }
  ~Signal() {
    close(fds_[0]);
    close(fds_[1]);
  }
  void Send() {
    char c = 1;
    (void)!write(fds_[1], &c, 1);
  }
  void Wait() {
    char c;
    (void)!read(fds_[0], &c, 1);
  }

 private:
  int fds_[2];
};

// A pipe carrying one letter at a time; Recv gives 0 when the other end is gone.
class Channel {
 public:
  Channel() {
    if (pipe(fds_) != 0) fds_[0] = fds_[1] = -1;
  }
  ~Channel() {
    close(fds_[0]);
    close(fds_[1]);
  }
  void Send(char c) { (void)!write(fds_[1], &c, 1); }
  // True, taking it, when a byte is waiting; false at once otherwise.
  bool Ready() {
    pollfd p{fds_[0], POLLIN, 0};
    char c = 0;
    return poll(&p, 1, 0) == 1 && read(fds_[0], &c, 1) == 1;
  }
  char Recv() {
    char c = 0;
    return read(fds_[0], &c, 1) == 1 ? c : 0;
  }

 private:
  int fds_[2];
};

}  // namespace kvd::test
