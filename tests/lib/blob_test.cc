// KvBlob: the block kept within a size class and moved only at its boundary, the zero byte of the
// SZ style, resizing, reading by position, the index checks of the 32-bit accessors, whole files
// through Windows-form names, and KvMemDumpString2Blob with its room made in front.
#include "lib/system/kvblob.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lib/foundation/kvfail.h"
#include "lib/system/kvfile.h"
#include "tests/lib/arena_test_util.h"
#include "tests/platform/test_dir.h"

namespace {

using kvd::platform::testing::ScopedEnv;
namespace fs = std::filesystem;
using kvd::classlib::testing::FailureOf;
using kvd::platform::testing::ReadWhole;
using kvd::platform::testing::TestDir;
using kvd::platform::testing::WriteWhole;

using Bytes = std::vector<unsigned char>;

// Blocks the blobs hold now.
std::int64_t BlocksHeld() {
  const KvGranularityMemoryWatcher* w = KvBlob::_GetInternalAllocWatcher();
  return w->GetAllocated() + w->GetFreed() + w->GetStatic();
}

std::int32_t ClassOf(long physical) { return KvGranularity::_GetGranularityIndex(static_cast<std::size_t>(physical)); }

Bytes Content(const KvBlob& b) {
  const unsigned char* p = b.GetBytes();
  return p == nullptr ? Bytes() : Bytes(p, p + b.GetByteCount());
}

Bytes Pattern(std::size_t n) {
  Bytes v(n);
  for (std::size_t i = 0; i < n; ++i) v[i] = static_cast<unsigned char>(i * 7 + 1);
  return v;
}

std::string LastDebugLine() {
  char line[256] = {};
  return KvDebugLastLine(0, line, sizeof line) ? std::string(line) : std::string();
}

// How many of the debug lines written since the count stood at `since` are `text` (the arena
// writes lines of its own when it carves a class for the first time).
int LinesSince(unsigned long since, const std::string& text) {
  int found = 0;
  char line[256];
  for (unsigned n = 0; n < KvDebugLineCount() - since && KvDebugLastLine(n, line, sizeof line); ++n) found += text == line;
  return found;
}

// ---------------------------------------------------------------------------------------------
// Growth and the size classes

TEST(KvBlob, AppendMovesOnlyAtAClassBoundary) {
  for (unsigned long style : {KvBlob::KVBLOB_NORMAL, KvBlob::KVBLOB_SZ}) {
    SCOPED_TRACE(style);
    const std::int64_t before = BlocksHeld();
    const long extra = style == KvBlob::KVBLOB_SZ ? 1 : 0;
    KvBlob b(style);
    Bytes model;
    int moves = 0;
    for (int i = 0; i < 20000; ++i) {
      const unsigned char byte = static_cast<unsigned char>(i % 251);
      const unsigned char* was = b.GetBytes();
      const long old_count = b.GetByteCount();
      b.Append(&byte, 1);
      model.push_back(byte);
      const bool class_changed = old_count == 0 || ClassOf(old_count + extra) != ClassOf(old_count + 1 + extra);
      ASSERT_EQ(b.GetBytes() != was, class_changed) << "at " << old_count << " bytes";
      if (b.GetBytes() != was) ++moves;
      ASSERT_EQ(b.GetPhysicalByteCount(), static_cast<long>(model.size()) + extra);
      if (style == KvBlob::KVBLOB_SZ) {
        ASSERT_EQ(b.GetBytes()[model.size()], 0);
      }
    }
    EXPECT_EQ(Content(b), model);
    // 8, 16, ..., 1024, 4096, 16384, 65536: one block for each class the bytes passed through.
    EXPECT_EQ(moves, ClassOf(20000 + extra));
    EXPECT_EQ(BlocksHeld(), before + 1);
  }
}

TEST(KvBlob, StyleChangeAtAClassLimitMovesToTheNextClass) {
  for (long count : {8L, 1024L, 4096L}) {
    SCOPED_TRACE(count);
    const Bytes data = Pattern(static_cast<std::size_t>(count));
    KvBlob b(data.data(), count, KvBlob::KVBLOB_NORMAL);
    EXPECT_EQ(b.GetPhysicalByteCount(), count);
    const unsigned char* was = b.GetBytes();
    b.Assign(data.data(), count, KvBlob::KVBLOB_SZ);
    EXPECT_NE(b.GetBytes(), was);
    EXPECT_EQ(b.GetType(), KvBlob::KVBLOB_SZ);
    EXPECT_EQ(b.GetPhysicalByteCount(), count + 1);
    EXPECT_EQ(Content(b), data);
    EXPECT_EQ(b.GetBytes()[count], 0);
    // One byte less in the SZ style fits the old class again.
    was = b.GetBytes();
    b.Assign(data.data(), count - 1, KvBlob::KVBLOB_SZ);
    EXPECT_NE(b.GetBytes(), was);
    was = b.GetBytes();
    b.Assign(data.data(), count - 2, KvBlob::KVBLOB_SZ);
    EXPECT_EQ(b.GetBytes(), was);
  }
}

TEST(KvBlob, SetByteCountKeepsTheFirstBytesAndTheZeroBehind) {
  const Bytes data = Pattern(100);
  KvBlob b(data.data(), 100, KvBlob::KVBLOB_SZ);
  const unsigned char* block = b.GetBytes();  // 101 bytes: class 128
  b.SetByteCount(70);
  EXPECT_EQ(b.GetBytes(), block);
  EXPECT_EQ(b.GetBytes()[70], 0);
  EXPECT_EQ(Content(b), Bytes(data.begin(), data.begin() + 70));
  b.SetByteCount(120);  // grows within the class: the block and the first 70 bytes stay
  EXPECT_EQ(b.GetBytes(), block);
  EXPECT_EQ(b.GetBytes()[120], 0);
  EXPECT_EQ(Bytes(b.GetBytes(), b.GetBytes() + 70), Bytes(data.begin(), data.begin() + 70));
  b.SetByteCount(300);  // into class 512: the first 120 bytes follow
  EXPECT_NE(b.GetBytes(), block);
  EXPECT_EQ(Bytes(b.GetBytes(), b.GetBytes() + 70), Bytes(data.begin(), data.begin() + 70));
  EXPECT_EQ(b.GetBytes()[300], 0);
  b.SetByteCount(10);  // back into class 16
  EXPECT_EQ(Content(b), Bytes(data.begin(), data.begin() + 10));
  EXPECT_EQ(b.GetBytes()[10], 0);
}

TEST(KvBlob, EmptyBlobHasNoBlockInEitherStyle) {
  const std::int64_t before = BlocksHeld();
  KvBlob sz(KvBlob::KVBLOB_SZ);
  EXPECT_EQ(static_cast<char*>(sz), nullptr);  // not an empty string
  EXPECT_EQ(static_cast<unsigned char*>(sz), nullptr);
  EXPECT_EQ(sz.GetByteCount(), 0);
  EXPECT_EQ(sz.GetPhysicalByteCount(), 1);

  const unsigned char text[] = "hello";
  sz.Assign(text, 5, KvBlob::KVBLOB_SZ);
  EXPECT_STREQ(static_cast<char*>(sz), "hello");
  EXPECT_EQ(BlocksHeld(), before + 1);

  // Assign of nothing gives the block back and leaves the blob empty, in the style asked for.
  sz.Assign(text, 0, KvBlob::KVBLOB_NORMAL);
  EXPECT_EQ(BlocksHeld(), before);
  EXPECT_EQ(sz.GetBytes(), nullptr);
  EXPECT_EQ(sz.GetByteCount(), 0);
  EXPECT_EQ(sz.GetType(), KvBlob::KVBLOB_NORMAL);

  sz.Assign(text, 3, KvBlob::KVBLOB_SZ);
  sz.SetByteCount(0);
  EXPECT_EQ(BlocksHeld(), before);
  EXPECT_EQ(static_cast<char*>(sz), nullptr);
  EXPECT_EQ(sz.GetType(), KvBlob::KVBLOB_SZ);

  KvBlob n;
  n.Fill(0xAB);  // stays empty
  n.Append(text, 0);
  n.Append(text, -3);
  EXPECT_EQ(n.GetBytes(), nullptr);
  EXPECT_EQ(BlocksHeld(), before);
}

TEST(KvBlob, SourcesInsideTheBlobAndCopies) {
  const unsigned char text[] = "abcdef";
  KvBlob b(text, 6, KvBlob::KVBLOB_SZ);
  b.Append(b.GetBytes(), 6);  // 13 bytes: moves to class 16 while the source is the old block
  EXPECT_STREQ(static_cast<char*>(b), "abcdefabcdef");
  b.Append(b.GetBytes() + 2, 2);  // stays in class 16
  EXPECT_STREQ(static_cast<char*>(b), "abcdefabcdefcd");
  // The block stays (class 16), and the source reaches over the place of the new zero byte.
  const unsigned char* block = b.GetBytes();
  b.Assign(b.GetBytes() + 4, 10, KvBlob::KVBLOB_SZ);
  EXPECT_EQ(b.GetBytes(), block);
  EXPECT_STREQ(static_cast<char*>(b), "efabcdefcd");

  KvBlob copy(b);
  EXPECT_NE(copy.GetBytes(), b.GetBytes());
  EXPECT_EQ(Content(copy), Content(b));
  EXPECT_EQ(copy.GetType(), KvBlob::KVBLOB_SZ);
  KvBlob other(text, 2, KvBlob::KVBLOB_NORMAL);
  other = copy;
  copy.Fill('z');
  EXPECT_STREQ(static_cast<char*>(other), "efabcdefcd");
  EXPECT_STREQ(static_cast<char*>(copy), "zzzzzzzzzz");
  const KvBlob& same = other;
  other = same;
  EXPECT_STREQ(static_cast<char*>(other), "efabcdefcd");

  const KvGranularityMemoryWatcher* w = KvBlob::_GetWatcher();
  const std::int64_t objects = w->GetAllocated() + w->GetFreed() + w->GetStatic();
  std::unique_ptr<KvBlob> made(new KvBlob(text, 6, KvBlob::KVBLOB_NORMAL));
  EXPECT_EQ(w->GetAllocated() + w->GetFreed() + w->GetStatic(), objects + 1);
  EXPECT_EQ(KvGranularityMemoryWatcher::_GetMemoryWatcher("KvBlob", "InternalAlloc"), KvBlob::_GetInternalAllocWatcher());
}

TEST(KvBlob, SizeWithoutClassIsReportedAndChangesNothing) {
  const unsigned char text[] = "keep";
  KvBlob b(text, 4, KvBlob::KVBLOB_SZ);
  const unsigned char* block = b.GetBytes();
  const unsigned long lines = KvDebugLineCount();
  b.SetByteCount(16L * 1024 * 1024 + 1);
  EXPECT_EQ(LastDebugLine(), "pogranNew != NULL");
  b.SetByteCount(16L * 1024 * 1024);  // with the zero byte one more than the largest class
  b.Append(text, 16L * 1024 * 1024);
  b.Assign(text, -1, KvBlob::KVBLOB_NORMAL);
  EXPECT_EQ(LinesSince(lines, "pogranNew != NULL"), 4);
  EXPECT_EQ(b.GetBytes(), block);
  EXPECT_STREQ(static_cast<char*>(b), "keep");
  EXPECT_EQ(b.GetType(), KvBlob::KVBLOB_SZ);
}

// ---------------------------------------------------------------------------------------------
// Reading by position and 32-bit values

TEST(KvBlob, ReadBytesCutsAtTheEndAndMovesThePosition) {
  const Bytes data = Pattern(10);
  const KvBlob b(data.data(), 10, KvBlob::KVBLOB_NORMAL);
  unsigned char out[16] = {};
  long pos = 2;
  EXPECT_EQ(b.ReadBytes(pos, out, 3), 3);
  EXPECT_EQ(pos, 5);
  EXPECT_EQ(Bytes(out, out + 3), Bytes(data.begin() + 2, data.begin() + 5));
  EXPECT_EQ(b.ReadBytes(pos, out, 16), 5);  // the rest only
  EXPECT_EQ(pos, 10);
  EXPECT_EQ(Bytes(out, out + 5), Bytes(data.begin() + 5, data.end()));
  EXPECT_EQ(b.ReadBytes(pos, out, 16), 0);  // at the end
  EXPECT_EQ(pos, 10);
  pos = -1;
  EXPECT_EQ(b.ReadBytes(pos, out, 4), 0);
  EXPECT_EQ(pos, -1);
  pos = 11;
  EXPECT_EQ(b.ReadBytes(pos, out, 4), 0);
  EXPECT_EQ(pos, 11);
  pos = 3;
  EXPECT_EQ(b.ReadBytes(pos, out, 0), 0);
  EXPECT_EQ(pos, 3);
  const KvBlob empty;
  pos = 0;
  EXPECT_EQ(empty.ReadBytes(pos, out, 4), 0);
}

TEST(KvBlob, DWordIndexChecks) {
  const unsigned char six[6] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06};
  KvBlob b(six, 6, KvBlob::KVBLOB_SZ);
  EXPECT_EQ(b.GetDWordAt(0), 0x04030201u);
  EXPECT_EQ(b.GetDWordAt(1) & 0xFFFFu, 0x0605u);  // index 1 * 4 < 6: reads 2 bytes past the data
  EXPECT_EQ(FailureOf([&] { b.GetDWordAt(2); }), "KvBlob::GetDWordAt(): illegal index");
  EXPECT_EQ(FailureOf([&] { b.GetDWordAt(-1); }), "KvBlob::GetDWordAt(): illegal index");
  EXPECT_EQ(FailureOf([&] { b.SetDWordAt(2, 0); }), "KvBlob::SetDWordAt(): illegal index");
  EXPECT_EQ(FailureOf([&] { b.SetDWordAt(-1, 0); }), "KvBlob::SetDWordAt(): illegal index");
  const KvBlob empty;
  EXPECT_EQ(FailureOf([&] { empty.GetDWordAt(0); }), "KvBlob::GetDWordAt(): illegal index");

  b.SetDWordAt(0, 0xA1B2C3D4u);
  EXPECT_EQ(b.GetBytes()[0], 0xD4);
  EXPECT_EQ(b.GetBytes()[3], 0xA1);
  EXPECT_EQ(b.GetDWordAt(0), 0xA1B2C3D4u);
  b.SetDWordAt(1, 0xFFFFFFFFu);  // over the zero byte at index 6, which is written again
  EXPECT_EQ(b.GetBytes()[5], 0xFF);
  EXPECT_EQ(b.GetBytes()[6], 0);
  EXPECT_EQ(b.GetByteCount(), 6);
}

// ---------------------------------------------------------------------------------------------
// Files

class KvBlobFile : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(dir_.ok()); }
  std::string P(const std::string& rel) const { return dir_ / rel; }
  TestDir dir_;
};

TEST_F(KvBlobFile, MissingFileIsMadeEmpty) {
  const unsigned char text[] = "old";
  KvBlob b(text, 3, KvBlob::KVBLOB_SZ);
  ASSERT_FALSE(fs::exists(P("new.bin")));
  EXPECT_TRUE(b.ReadFromFile(P("new.bin").c_str()));
  EXPECT_TRUE(fs::is_regular_file(P("new.bin")));
  EXPECT_EQ(fs::file_size(P("new.bin")), 0u);
  EXPECT_EQ(b.GetByteCount(), 0);
  EXPECT_EQ(b.GetBytes(), nullptr);
  EXPECT_EQ(b.GetType(), KvBlob::KVBLOB_SZ);

  // Neither opened nor made: a missing directory, a directory by the name. The content stays.
  b.Assign(text, 3, KvBlob::KVBLOB_SZ);
  EXPECT_FALSE(b.ReadFromFile(P("nodir/x.bin").c_str()));
  EXPECT_FALSE(fs::exists(P("nodir")));
  fs::create_directory(P("adir"));
  EXPECT_FALSE(b.ReadFromFile(P("adir").c_str()));
  EXPECT_STREQ(static_cast<char*>(b), "old");
}

TEST_F(KvBlobFile, RoundTripThroughAWindowsPathInMixedCase) {
  ScopedEnv q("KVD_DRIVE_Q", dir_.path());
  const Bytes data = Pattern(5000);
  const KvBlob out(data.data(), 5000, KvBlob::KVBLOB_NORMAL);
  ASSERT_TRUE(out.WriteToFile("Q:\\Plant\\Memo\\Blob.Bin"));  // the directories are made
  ASSERT_TRUE(fs::is_regular_file(P("Plant/Memo/Blob.Bin")));
  const std::string on_disk = ReadWhole(P("Plant/Memo/Blob.Bin"));
  EXPECT_EQ(Bytes(on_disk.begin(), on_disk.end()), data);

  KvBlob in(KvBlob::KVBLOB_SZ);
  ASSERT_TRUE(in.ReadFromFile("q:/PLANT\\memo\\bLOB.bIN"));
  EXPECT_EQ(Content(in), data);
  EXPECT_EQ(in.GetType(), KvBlob::KVBLOB_SZ);
  EXPECT_EQ(in.GetBytes()[5000], 0);
  EXPECT_FALSE(fs::exists(P("PLANT")));  // found, not made again in another case

  // Written again shorter, under another spelling: the same file, made anew.
  const KvBlob shorter(data.data(), 7, KvBlob::KVBLOB_NORMAL);
  ASSERT_TRUE(shorter.WriteToFile("Q:\\PLANT\\MEMO\\BLOB.BIN"));
  EXPECT_EQ(fs::file_size(P("Plant/Memo/Blob.Bin")), 7u);
  ASSERT_TRUE(in.ReadFromFile("Q:\\plant\\memo\\blob.bin"));
  EXPECT_EQ(Content(in), Bytes(data.begin(), data.begin() + 7));
  EXPECT_EQ(in.GetBytes()[7], 0);

  const KvBlob empty;
  ASSERT_TRUE(empty.WriteToFile("Q:\\Plant\\Empty.bin"));
  EXPECT_EQ(fs::file_size(P("Plant/Empty.bin")), 0u);
  // A file standing where a directory would have to be made.
  EXPECT_FALSE(out.WriteToFile("Q:\\Plant\\Empty.bin\\x.bin"));
}

TEST_F(KvBlobFile, FileBeyondTheLargestClassIsRefused) {
  WriteWhole(P("big.bin"), "");
  fs::resize_file(P("big.bin"), (16u << 20) + 1);  // sparse: costs no disk
  const unsigned char text[] = "keep";
  KvBlob b(text, 4, KvBlob::KVBLOB_NORMAL);
  const unsigned long lines = KvDebugLineCount();
  EXPECT_FALSE(b.ReadFromFile(P("big.bin").c_str()));
  EXPECT_EQ(LinesSince(lines, "pogranNew != NULL"), 1);
  EXPECT_EQ(Content(b), Bytes(text, text + 4));
}

TEST_F(KvBlobFile, ShortReadIsReportedAndGoesOn) {
  // A kernel attribute file: its size says a page, a read gives a line.
  const char* const kCandidates[] = {"/sys/kernel/mm/transparent_hugepage/enabled", "/sys/kernel/profiling",
                                     "/sys/kernel/mm/transparent_hugepage/defrag"};
  const char* name = nullptr;
  for (const char* c : kCandidates) {
    std::error_code ec;
    if (fs::is_regular_file(c, ec) && fs::file_size(c, ec) > ReadWhole(c).size()) {
      name = c;
      break;
    }
  }
  if (name == nullptr) GTEST_SKIP() << "no file here whose size is more than it reads";
  const std::string content = ReadWhole(name);
  KvBlob b;
  const unsigned long lines = KvDebugLineCount();
  EXPECT_TRUE(b.ReadFromFile(name));
  EXPECT_EQ(LinesSince(lines, "m_cBytes == (long)dwBytesRead"), 1);
  EXPECT_EQ(static_cast<std::uintmax_t>(b.GetByteCount()), fs::file_size(name));
  EXPECT_EQ(std::memcmp(b.GetBytes(), content.data(), content.size()), 0);
}

TEST_F(KvBlobFile, WholeFileFunctions) {
  ScopedEnv r("KVD_DRIVE_R", dir_.path());
  const unsigned char text[] = "whole file";
  ASSERT_TRUE(KvWriteBufferToFile("R:\\A\\B\\C\\Text.TXT", text, 10));
  EXPECT_EQ(ReadWhole(P("A/B/C/Text.TXT")), "whole file");
  unsigned long bytes = 99;
  std::unique_ptr<unsigned char[]> got(KvReadFileToBuffer("r:\\a\\b\\c\\text.txt", &bytes));
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(bytes, 10u);
  EXPECT_STREQ(reinterpret_cast<char*>(got.get()), "whole file");  // the zero byte behind
  EXPECT_EQ(KvReadFileToBuffer("R:\\A\\missing.txt", &bytes), nullptr);
  EXPECT_EQ(bytes, 0u);
  EXPECT_EQ(KvReadFileToBuffer("R:\\A", &bytes), nullptr);  // a directory
  EXPECT_FALSE(KvWriteBufferToFile("R:\\A\\null.bin", nullptr, 3));
  EXPECT_FALSE(fs::exists(P("A/null.bin")));

  // Three levels below an existing top; with lastIsFile the last part is no directory.
  EXPECT_TRUE(KvCreateDirectory("R:\\X\\Y\\Z", false));
  EXPECT_TRUE(fs::is_directory(P("X/Y/Z")));
  EXPECT_TRUE(KvCreateDirectory("R:/x/y/z/w/file.dat", true));
  EXPECT_TRUE(fs::is_directory(P("X/Y/Z/w")));
  EXPECT_FALSE(fs::exists(P("X/Y/Z/w/file.dat")));
  EXPECT_FALSE(fs::exists(P("x")));
  EXPECT_TRUE(KvCreateDirectory((dir_.path() + "//P1///P2/").c_str(), false));  // runs of separators
  EXPECT_TRUE(fs::is_directory(P("P1/P2")));
  // A file in the way.
  EXPECT_FALSE(KvCreateDirectory("R:\\A\\B\\C\\Text.TXT\\D", false));
  // The first part is taken as it stands and never made: a drive that leads nowhere makes nothing.
  ScopedEnv s("KVD_DRIVE_S", P("nowhere"));
  EXPECT_FALSE(KvCreateDirectory("S:\\One\\Two", false));
  EXPECT_FALSE(fs::exists(P("nowhere")));
  EXPECT_TRUE(KvCreateDirectory("S:\\file.txt", true));  // nothing to make
}

// ---------------------------------------------------------------------------------------------
// KvMemDumpString2Blob

TEST(KvMemDumpString2Blob, DecimalBytesBehindHalfTheTextLength) {
  {
    KvBlob b;
    // Trimmed: "1 2 255 256 -1\t300\n7" is 20 bytes, so 10 bytes of room come first.
    KvMemDumpString2Blob("  1 2 255 256 -1\t300\n7  ", b);
    const Bytes tail = {1, 2, 255, 0, 255, 44, 7};
    ASSERT_EQ(b.GetByteCount(), 17);
    EXPECT_EQ(Bytes(b.GetBytes(), b.GetBytes() + 10), Bytes(10, 0));  // a fresh block is zeroed
    EXPECT_EQ(Bytes(b.GetBytes() + 10, b.GetBytes() + 17), tail);
  }
  {
    // A blob that held bytes keeps its first ones as the room; the style stays.
    const unsigned char nines[] = {9, 9, 9, 9, 9, 9};
    KvBlob b(nines, 6, KvBlob::KVBLOB_SZ);
    KvMemDumpString2Blob("7 8", b);
    EXPECT_EQ(Content(b), (Bytes{9, 7, 8}));
    EXPECT_EQ(b.GetBytes()[3], 0);
  }
  {
    // atoi reads: text after the digits is ignored, no digits read 0, beyond 32 bits is clamped.
    KvBlob b;
    KvMemDumpString2Blob("5x x 99999999999 -99999999999 +3 1,2", b);
    ASSERT_EQ(b.GetByteCount(), 18 + 6);
    EXPECT_EQ(Bytes(b.GetBytes() + 18, b.GetBytes() + 24), (Bytes{5, 0, 0xFF, 0x00, 3, 1}));
  }
  {
    // A run of separators is one; carriage returns are no separator but end the number.
    KvBlob b;
    KvMemDumpString2Blob("10 \t\n 20\r\n30", b);
    ASSERT_EQ(b.GetByteCount(), 6 + 3);
    EXPECT_EQ(Bytes(b.GetBytes() + 6, b.GetBytes() + 9), (Bytes{10, 20, 30}));
  }
  {
    const unsigned char some[] = {1, 2};
    KvBlob b(some, 2, KvBlob::KVBLOB_NORMAL);
    KvMemDumpString2Blob(" \t ", b);  // nothing left: no room, no bytes
    EXPECT_EQ(b.GetByteCount(), 0);
    EXPECT_EQ(b.GetBytes(), nullptr);
  }
}

}  // namespace
