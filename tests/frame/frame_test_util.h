// Shared by the frame tests: a private plant directory with its own TELMOR.INI, read as the library
// reads it at load.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "frame/session.h"
#include "tests/engine/engine_test_util.h"

namespace kvd::test {

// A temporary directory with admin/ as the admin directory; `backup` sets "BackupFiles".
class Plant {
 public:
  explicit Plant(int backup = 0, const char* admin = nullptr) {
    admin_ = admin != nullptr ? admin : dir_.path() + "/admin/";
    ini_ = dir_ / "TELMOR.INI";
    std::ofstream(ini_) << "[KVDpmu]\nAdminPath=" << admin_ << "\nBackupFiles=" << backup << "\n";
    setenv("KVD_TELMOR_INI", ini_.c_str(), 1);
    kvd::frame::Startup();
  }
  ~Plant() {
    unsetenv("KVD_TELMOR_INI");
    kvd::frame::Startup();
  }
  const std::string& admin() const { return admin_; }
  std::string operator/(const std::string& name) const { return dir_ / name; }
  const std::string& path() const { return dir_.path(); }
  // A directory of the plant, made, with a trailing separator.
  std::string MakeDir(const std::string& name) const {
    std::filesystem::create_directories(dir_ / name);
    return dir_ / name + "/";
  }

 private:
  TempDir dir_;
  std::string admin_;
  std::string ini_;
};

}  // namespace kvd::test
