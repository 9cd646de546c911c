// Shared by the class-library tests: forked children with their own checks, and the text a
// failing call throws.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "lib/foundation/kvfail.h"

namespace kvd::classlib::testing {

// The arena every test program makes before its first test.
constexpr std::size_t kTestArenaSize = std::size_t{256} << 20;

// In a forked child: a failed check names itself on standard error and ends the child with 1.
#define CHILD_CHECK(cond)                                                                  \
  do {                                                                                     \
    if (!(cond)) {                                                                         \
      std::fprintf(stderr, "%s:%d: child check failed: %s\n", __FILE__, __LINE__, #cond); \
      std::fflush(stderr);                                                                 \
      ::_exit(1);                                                                          \
    }                                                                                      \
  } while (0)

// Runs `body` in a forked child and answers its exit status: 0 when the body returned, 1 when a
// CHILD_CHECK failed, 2 when it threw, 128 + n when signal n ended it. The child ends with _exit,
// so nothing of the parent's (gtest, static objects, exit lists) runs twice.
inline int RunInChild(const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  if (pid < 0) return -1;
  if (pid == 0) {
    int code = 0;
    try {
      body();
    } catch (const KvFailure& f) {
      std::fprintf(stderr, "child failed: %s\n", static_cast<const char*>(f));
      code = 2;
    } catch (...) {
      code = 2;
    }
    std::fflush(nullptr);
    ::_exit(code);
  }
  int st = 0;
  if (::waitpid(pid, &st, 0) != pid) return -1;
  if (WIFEXITED(st)) return WEXITSTATUS(st);
  return WIFSIGNALED(st) ? 128 + WTERMSIG(st) : -1;
}

// Runs `body` in a forked child and expects it to come through (its failed check is on stderr).
#define EXPECT_CHILD_OK(...)                                                     \
  do {                                                                           \
    const int child_status = ::kvd::classlib::testing::RunInChild(__VA_ARGS__); \
    EXPECT_EQ(child_status, 0) << "the forked child failed";                     \
  } while (0)

// The text `fn` fails with, or "" when it does not fail.
inline std::string FailureOf(const std::function<void()>& fn) {
  try {
    fn();
  } catch (const KvFailure& f) {
    return static_cast<const char*>(f);
  }
  return std::string();
}

// A pipe for a parent and its child; each side closes the end it does not use.
struct Pipe {
  int fd[2] = {-1, -1};
  Pipe() {
    if (::pipe(fd) != 0) fd[0] = fd[1] = -1;
  }
  ~Pipe() {
    for (int f : fd)
      if (f >= 0) ::close(f);
  }
  bool Put(char c) { return ::write(fd[1], &c, 1) == 1; }
  // The next byte, or 0 at the end (the writers have gone).
  char Get() {
    char c = 0;
    return ::read(fd[0], &c, 1) == 1 ? c : 0;
  }
};

}  // namespace kvd::classlib::testing
