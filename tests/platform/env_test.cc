// Profile files, clocks, the executable's directory and the message-box stand-in.
#include "platform/env.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <iterator>

#include "platform/file.h"
#include "tests/platform/test_dir.h"

namespace kvd::platform {
namespace {

using testing::ReadWhole;
using testing::TestDir;
using testing::WriteWhole;

constexpr char kProfile[] =
    "; plant settings\n"
    "Orphan=before any section\n"
    "[General]\n"
    "  Name =  \"  Plant One  \"  \n"
    "Count=12abc\n"
    "Letters=abc\n"
    "Negative=-7\n"
    "Huge=99999999999\n"
    "Empty=\n"
    "\n"
    "[Other]\n"
    "name=second\n";

class ProfileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(dir_.ok());
    ini_ = dir_ / "PLANT.INI";  // as callers spell it; the file on disk is lower case
    WriteWhole(dir_ / "plant.ini", kProfile);
  }
  std::string Read(std::string_view section, std::string_view key, std::size_t max_len = 256) {
    return ReadProfileString(ini_, section, key, "<def>", max_len);
  }
  TestDir dir_;
  std::string ini_;
};

TEST_F(ProfileTest, NamesIgnoreCaseValuesTrimmedMissingGivesDefault) {
  EXPECT_EQ(Read("GENERAL", "name"), "  Plant One  ");
  EXPECT_EQ(Read("other", "NAME"), "second");
  EXPECT_EQ(Read("General", "Empty"), "");
  EXPECT_EQ(Read("General", "Nope"), "<def>");
  EXPECT_EQ(Read("Nope", "Name"), "<def>");
  EXPECT_EQ(Read("Other", "Count"), "<def>");     // a key of another section
  EXPECT_EQ(Read("General", "Orphan"), "<def>");  // lines before any section belong to none
  EXPECT_EQ(ReadProfileString(dir_ / "none.ini", "General", "Name", "<def>", 256), "<def>");
}

TEST_F(ProfileTest, IntegersReadUpToTheFirstNonDigitAndValuesCutToTheBuffer) {
  const std::pair<const char*, int> ints[] = {{"count", 12}, {"letters", 0}, {"negative", -7},
                                              {"empty", 0}, {"huge", 2147483647}, {"missing", 5}};
  for (const auto& [key, want] : ints) EXPECT_EQ(ReadProfileInt(ini_, "general", key, 5), want) << key;
  EXPECT_EQ(ReadProfileInt(dir_ / "none.ini", "General", "Count", 5), 5);

  const std::pair<std::size_t, const char*> cuts[] = {{4, "sec"}, {7, "second"}, {1, ""}, {0, ""}};
  for (const auto& [size, want] : cuts) EXPECT_EQ(Read("Other", "name", size), want) << size;
  EXPECT_EQ(Read("Other", "missing", 3), "<d");  // the default is cut too
}

TEST_F(ProfileTest, WriteReplacesAddsAndDeletes) {
  ASSERT_TRUE(WriteProfileString(ini_, "OTHER", "Name", "third"));
  ASSERT_TRUE(WriteProfileString(ini_, "general", "Added", "\"quoted value\""));
  ASSERT_TRUE(WriteProfileString(ini_, "New Section", "k", "v"));
  ASSERT_TRUE(WriteProfileString(ini_, "General", "COUNT", nullptr));

  EXPECT_EQ(Read("Other", "name"), "third");
  EXPECT_EQ(Read("General", "added"), "quoted value");
  EXPECT_EQ(Read("new section", "K"), "v");
  EXPECT_EQ(Read("General", "Count"), "<def>");
  EXPECT_EQ(Read("General", "Name"), "  Plant One  ");  // untouched neighbours survive

  // Written in place of the existing file: one file, the lower-case one, and no temporaries.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_.path()), {}), 1);
  const std::string text = ReadWhole(dir_ / "plant.ini");
  EXPECT_EQ(text.rfind("; plant settings\nOrphan=before any section\n[General]\n", 0), 0u) << text;
  // The added key went into its own section, before the blank line that ends it.
  EXPECT_NE(text.find("Empty=\nAdded=\"quoted value\"\n\n[Other]\nName=third\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\n[New Section]\nk=v\n"), std::string::npos) << text;
  EXPECT_EQ(text.find("[General]", text.find("[General]") + 1), std::string::npos);  // not duplicated
}

TEST_F(ProfileTest, WriteCreatesFileAndKeepsCrLfLineEnds) {
  const std::string fresh = dir_ / "Fresh.ini";
  ASSERT_TRUE(WriteProfileString(fresh, "S", "a", "1"));
  ASSERT_TRUE(WriteProfileString(fresh, "s", "B", "2"));
  EXPECT_EQ(ReadWhole(fresh), "[S]\na=1\nB=2\n");
  EXPECT_EQ(ReadProfileInt(fresh, "S", "b", 0), 2);

  WriteWhole(dir_ / "crlf.ini", "[S]\r\na=1\r\n");
  ASSERT_TRUE(WriteProfileString(dir_ / "CRLF.INI", "S", "b", "2"));
  EXPECT_EQ(ReadWhole(dir_ / "crlf.ini"), "[S]\r\na=1\r\nb=2\r\n");

  EXPECT_FALSE(WriteProfileString(fresh, "S", "bad", "two\nlines"));
  EXPECT_EQ(ReadWhole(fresh), "[S]\na=1\nB=2\n");
}

TEST(ClockTest, WallClocksAgreeWithTheSystemAndSleepAdvances) {
  const time_t now = std::time(nullptr);
  struct tm utc = {}, local = {};
  ::gmtime_r(&now, &utc);
  ::localtime_r(&now, &local);
  // Fields read back as seconds; the local ones less the zone's offset, whatever the zone.
  auto seconds = [](const LocalTime& t) {
    struct tm tm = {};
    tm.tm_year = t.year - 1900, tm.tm_mon = t.month - 1, tm.tm_mday = t.day;
    tm.tm_hour = t.hour, tm.tm_min = t.minute, tm.tm_sec = t.second;
    return static_cast<long long>(::timegm(&tm));
  };
  const LocalTime u = NowUtc(), l = NowLocal();
  EXPECT_LE(std::llabs(seconds(u) - now), 2);
  EXPECT_LE(std::llabs(seconds(l) - local.tm_gmtoff - now), 2);
  EXPECT_EQ(u.weekday, utc.tm_wday);
  EXPECT_TRUE(u.millis >= 0 && u.millis <= 999);

  const std::uint64_t start = MonotonicMillis();
  SleepMillis(30);
  EXPECT_GE(MonotonicMillis() - start, 30u);
}

TEST(ProcessTest, ExecutableDirHoldsThisProgram) {
  const std::string dir = ExecutableDir();
  ASSERT_FALSE(dir.empty());
  EXPECT_EQ(dir.back(), '/');
  EXPECT_TRUE(FileExists(dir + "platform_test"));
}

TEST(ProcessTest, MessageIsOneLineOnStandardErrorAndAnswersOk) {
  TestDir dir;
  ASSERT_TRUE(dir.ok());
  const std::string log = dir / "stderr.txt";
  std::fflush(stderr);
  const int saved = ::dup(2);
  FILE* sink = std::fopen(log.c_str(), "w");
  ASSERT_NE(sink, nullptr);
  ::dup2(::fileno(sink), 2);
  const int answer = ShowMessage("Table damaged\nrun repair", "KvdDat", 0);
  const int styled = ShowMessage("Sure?", "Ask", 0x24);
  std::fflush(stderr);
  ::dup2(saved, 2);
  ::close(saved);
  std::fclose(sink);

  EXPECT_EQ(answer, 1);
  EXPECT_EQ(styled, 1);
  EXPECT_EQ(ReadWhole(log), "[KvdDat] Table damaged run repair\n[Ask] Sure? (style 0x24)\n");
}

}  // namespace
}  // namespace kvd::platform
