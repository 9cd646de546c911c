// Shared by the platform tests: a fresh directory per test, whole-file reads and writes that do
// not go through the code under test, and a forked child that holds locks.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <string>

namespace kvd::platform::testing {

// Made by mkdtemp; removed with its contents when the object goes.
class TestDir {
 public:
  TestDir() {
    const char* tmp = std::getenv("TMPDIR");
    std::string templ = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/kvd_platform_XXXXXX";
    if (::mkdtemp(templ.data()) != nullptr) path_ = templ;
  }
  ~TestDir() {
    std::error_code ec;
    if (!path_.empty()) std::filesystem::remove_all(path_, ec);
  }
  bool ok() const { return !path_.empty(); }
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline void WriteWhole(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

inline std::string ReadWhole(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Runs `body` in a forked child, which then waits until Finish() lets it exit; its locks go with
// it. `body` must open its own Files: one opened before the fork shares the parent's open file
// description, and so its locks.
class Child {
 public:
  explicit Child(const std::function<bool()>& body) {
    if (::pipe(ready_) != 0 || ::pipe(go_) != 0 || (pid_ = ::fork()) < 0) return;
    if (pid_ > 0) {  // the parent keeps only its ends, so a child that dies is seen at once
      ::close(ready_[1]);
      ::close(go_[0]);
      ready_[1] = go_[0] = -1;
      return;
    }
    char answer = body() ? 'y' : 'n', c;
    (void)!::write(ready_[1], &answer, 1);
    (void)!::read(go_[0], &c, 1);
    ::_exit(0);
  }
  ~Child() { Finish(); }
  // True once the body has run in the child and succeeded.
  bool WaitReady() {
    char answer = 'n';
    return pid_ > 0 && ::read(ready_[0], &answer, 1) == 1 && answer == 'y';
  }
  void Finish() {
    if (pid_ <= 0) return;
    (void)!::write(go_[1], "x", 1);
    ::waitpid(pid_, nullptr, 0);
    ::close(ready_[0]);
    ::close(go_[1]);
    pid_ = -1;
  }

 private:
  pid_t pid_ = -1;
  int ready_[2] = {-1, -1};
  int go_[2] = {-1, -1};
};

// Sets (or, with nullptr, clears) an environment variable for one test and puts it back after.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    value != nullptr ? ::setenv(name, value, 1) : ::unsetenv(name);
  }
  ScopedEnv(const char* name, const std::string& value) : ScopedEnv(name, value.c_str()) {}
  ~ScopedEnv() { old_ ? ::setenv(name_, old_->c_str(), 1) : ::unsetenv(name_); }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

}  // namespace kvd::platform::testing
