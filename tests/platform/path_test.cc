// HostPath: Windows-form paths resolved against a case-sensitive file system.
#include "platform/path.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

#include "tests/platform/test_dir.h"

namespace kvd::platform {
namespace {

using testing::TestDir;
using testing::WriteWhole;
using testing::ScopedEnv;
namespace fs = std::filesystem;

class HostPathTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(dir_.ok());
    fs::create_directories(dir_ / "Plant/prj1");
    WriteWhole(dir_ / "Plant/prj1/_signal.dbf", "");
  }
  TestDir dir_;
};

TEST_F(HostPathTest, MixedCaseNamesFoundFromUpperCase) {
  EXPECT_EQ(HostPath(dir_ / "PLANT/PRJ1/_SIGNAL.DBF"), dir_ / "Plant/prj1/_signal.dbf");
  EXPECT_EQ(HostPath(dir_ / "plant\\Prj1\\_Signal.Dbf"), dir_ / "Plant/prj1/_signal.dbf");
  EXPECT_EQ(HostPath(dir_ / "Plant/prj1/_signal.dbf"), dir_ / "Plant/prj1/_signal.dbf");
}

TEST_F(HostPathTest, DriveLetterMapsThroughEnvironmentElseRoot) {
  ScopedEnv c_drive("KVD_DRIVE_C", dir_.path().c_str());
  ScopedEnv q_drive("KVD_DRIVE_Q", nullptr);
  EXPECT_EQ(HostPath("C:\\PLANT\\PRJ1\\_SIGNAL.DBF"), dir_ / "Plant/prj1/_signal.dbf");
  EXPECT_EQ(HostPath("c:\\\\PLANT\\\\prj1\\"), dir_ / "Plant/prj1/");  // runs of separators
  EXPECT_EQ(HostPath("C:"), dir_.path() + "/");
  EXPECT_EQ(HostPath("Q:\\kvd-no-such-dir\\X.DBF"), "/kvd-no-such-dir/X.DBF");
}

TEST_F(HostPathTest, AsWrittenMapsDriveAndSeparatorsButNoCase) {
  ScopedEnv c_drive("KVD_DRIVE_C", dir_.path().c_str());
  EXPECT_EQ(HostPathAsWritten(dir_ / "PLANT/PRJ1/_SIGNAL.DBF"), dir_ / "PLANT/PRJ1/_SIGNAL.DBF");
  EXPECT_EQ(HostPathAsWritten("C:\\Plant\\\\prj1\\_signal.dbf"), dir_ / "Plant/prj1/_signal.dbf");
  EXPECT_EQ(HostPathAsWritten("c:\\PLANT\\"), dir_ / "PLANT/");
  EXPECT_EQ(HostPathAsWritten("rel\\X.DBF"), "rel/X.DBF");
  // Where every component exists as written, both say the same.
  EXPECT_EQ(HostPathAsWritten("C:\\Plant\\prj1\\_signal.dbf"), HostPath("C:\\Plant\\prj1\\_signal.dbf"));
}

TEST_F(HostPathTest, MissingTailKeptAsWritten) {
  // The existing directories are resolved; the new file and everything below a missing
  // directory keep the caller's spelling.
  EXPECT_EQ(HostPath(dir_ / "PLANT/PRJ1/NEW.DBF"), dir_ / "Plant/prj1/NEW.DBF");
  EXPECT_EQ(HostPath(dir_ / "PLANT\\NoDir\\PRJ1\\A.DBF"), dir_ / "Plant/NoDir/PRJ1/A.DBF");
}

TEST_F(HostPathTest, SeveralMatchesTakeTheFirstInByteOrderUnlessExact) {
  fs::create_directory(dir_ / "Deep");
  for (const char* name : {"ab.txt", "Ab.txt", "aB.txt"}) WriteWhole(dir_ / "Deep/" + name, "");
  EXPECT_EQ(HostPath(dir_ / "DEEP/AB.TXT"), dir_ / "Deep/Ab.txt");  // 'A' < 'a'
  EXPECT_EQ(HostPath(dir_ / "DEEP/aB.txt"), dir_ / "Deep/aB.txt");  // the exact name wins
  EXPECT_EQ(HostPath(dir_ / "Deep/AB.TXT/x"), dir_ / "Deep/Ab.txt/x");
}

TEST_F(HostPathTest, DotsPassThroughAndRelativeStaysRelative) {
  EXPECT_EQ(HostPath(dir_ / "PLANT/./PRJ1/../PRJ1/_SIGNAL.DBF"), dir_ / "Plant/./prj1/../prj1/_signal.dbf");
  EXPECT_EQ(HostPath(dir_ / "NoDir/../PLANT"), dir_ / "NoDir/../PLANT");

  char* old = ::getcwd(nullptr, 0);
  ASSERT_NE(old, nullptr);
  ASSERT_EQ(::chdir(dir_.path().c_str()), 0);
  std::string relative = HostPath("PLANT\\PRJ1\\_SIGNAL.DBF");
  std::string dotted = HostPath(".\\PLANT");
  EXPECT_EQ(::chdir(old), 0);
  std::free(old);
  EXPECT_EQ(relative, "Plant/prj1/_signal.dbf");
  EXPECT_EQ(dotted, "./Plant");
  EXPECT_EQ(HostPath(""), "");
}

TEST(PathPartsTest, SplitAtLastSeparatorOfEitherKind) {
  const char* cases[][3] = {{"C:\\A\\B.DBF", "C:\\A\\", "B.DBF"}, {"a/b\\c/d.cdx", "a/b\\c/", "d.cdx"},
                            {"T.DBF", "", "T.DBF"}, {"C:\\A\\", "C:\\A\\", ""}};
  for (const auto& [path, dir, name] : cases) {
    EXPECT_EQ(DirPart(path), dir) << path;
    EXPECT_EQ(NamePart(path), name) << path;
  }
}

}  // namespace
}  // namespace kvd::platform
