// Tree operations on real directories: copies that recurse, stop at an existing file and keep
// what they did; deletes that leave directories; prunes that leave the current directory alone
// and keep what another opener holds; names found whatever their case.
#include "lib/system/tree.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/file.h"
#include "tests/platform/test_dir.h"

namespace {

using kvd::platform::testing::ScopedEnv;
namespace fs = std::filesystem;
using kvd::platform::testing::ReadWhole;
using kvd::platform::testing::TestDir;
using kvd::platform::testing::WriteWhole;

// A writable copy of a text for the functions that take char*.
struct Text {
  explicit Text(const std::string& s) : buf(s.begin(), s.end()) { buf.resize(s.size() + 300, '\0'); }
  char* get() { return buf.data(); }
  std::string str() const { return buf.data(); }
  std::vector<char> buf;
};

// A path list: each text NUL-terminated, one more NUL at the end (c_str() adds it).
std::string PathList(std::initializer_list<std::string> paths) {
  std::string out;
  for (const std::string& p : paths) out.append(p).push_back('\0');
  return out;
}

std::string Upper(std::string s) {
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

// Every file and directory below `dir`, as relative paths ("Sub/", "Sub/x.txt"), links not followed.
std::set<std::string> Tree(const std::string& dir) {
  std::set<std::string> out;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(dir, ec); !ec && it != fs::recursive_directory_iterator(); ++it) {
    std::string rel = it->path().lexically_relative(dir).string();
    out.insert(it->is_directory() && !it->is_symlink() ? rel + "/" : rel);
  }
  return out;
}

class ScopedCwd {
 public:
  explicit ScopedCwd(const std::string& dir) : old_(fs::current_path()) { fs::current_path(dir); }
  ~ScopedCwd() { fs::current_path(old_); }

 private:
  fs::path old_;
};

class TreeTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(dir_.ok()); }
  std::string P(const std::string& rel) const { return dir_ / rel; }
  void File(const std::string& rel, const std::string& content = "x") {
    fs::create_directories(fs::path(P(rel)).parent_path());
    WriteWhole(P(rel), content);
  }
  // A project-like source: files in mixed case, a subdirectory two levels deep, dot names.
  void MakeSource(const std::string& rel) {
    for (const char* f : {"c.dbf", "A.DBF", "b.Dbf", "Sub/Deeper/d.txt", "Sub/e.txt", ".hidden", ".git/config"}) {
      File(rel + "/" + f, f);
    }
  }
  TestDir dir_;
};

// ---------------------------------------------------------------------------------------------

TEST(TreeNames, ContainsWildcards) {
  EXPECT_EQ(KvContainsWildcards(Text("C:\\A\\*.*").get()), 1);
  EXPECT_EQ(KvContainsWildcards(Text("A?.DBF").get()), 1);
  EXPECT_EQ(KvContainsWildcards(Text("C:\\A\\B.DBF").get()), 0);
  EXPECT_EQ(KvContainsWildcards(Text("").get()), 0);
  EXPECT_EQ(KvContainsWildcards(nullptr), 0);
}

TEST_F(TreeTest, FnameExpandOnADrive) {
  File("Plant/Prj1/_Signal.dbf");
  File("Plant/README");
  ScopedEnv q("KVD_DRIVE_Q", dir_.path());
  const std::pair<const char*, const char*> cases[] = {
      {"Q:\\plant\\prj1", "Q:\\PLANT\\PRJ1\\*.*"},               // a directory means its contents
      {"  q:\\Plant\\Prj1\\_signal.dbf", "Q:\\PLANT\\PRJ1\\_SIGNAL.DBF"},
      {"Q:\\plant\\README", "Q:\\PLANT\\README.*"},              // no extension
      {"Q:\\plant\\missing", "Q:\\PLANT\\MISSING.*"},
      {"Q:\\plant\\.\\x\\..\\prj1\\", "Q:\\PLANT\\PRJ1\\*.*"},
      {"Q:\\..\\..\\plant\\.", "Q:\\PLANT\\*.*"},                // never above the top
      {"Q:/plant/prj*", "Q:\\PLANT\\PRJ*.*"},
      {"Q:\\plant\\*.dbf", "Q:\\PLANT\\*.DBF"},
      {"Q:", "Q:\\*.*"},                                         // the current directory lies elsewhere
  };
  for (auto [in, want] : cases) {
    Text out("");
    KvFnameExpand(out.get(), Text(in).get());
    EXPECT_EQ(out.str(), want) << in;
  }
}

TEST_F(TreeTest, FnameExpandRelativeUpperCaseStillFound) {
  File("Plant/Prj1/_Signal.dbf");
  ScopedEnv q("KVD_DRIVE_Q", dir_.path());
  ScopedCwd cwd(P("Plant"));
  std::string here = fs::current_path().string();
  for (char& c : here) c = c == '/' ? '\\' : c;

  Text out("");
  KvFnameExpand(out.get(), Text("prj1").get());
  EXPECT_EQ(out.str(), Upper(here) + "\\PRJ1\\*.*");
  // The upper-cased name leads back to the mixed-case file.
  std::string file = out.str().substr(0, out.str().size() - 3) + "_SIGNAL.DBF";
  EXPECT_TRUE(kvd::platform::FileExists(file)) << file;

  KvFnameExpand(out.get(), Text("Q:prj1").get());  // the drive's current directory is ours
  EXPECT_EQ(out.str(), "Q:\\PLANT\\PRJ1\\*.*");
  KvFnameExpand(out.get(), Text("").get());
  EXPECT_EQ(out.str(), Upper(here) + "\\*.*");

  Text same("..\\plant\\prj1\\_signal.dbf");  // result and name in one buffer
  KvFnameExpand(same.get(), same.get());
  EXPECT_EQ(same.str(), Upper(here) + "\\PRJ1\\_SIGNAL.DBF");

  Text longer("");
  KvFnameExpand(longer.get(), Text(std::string(300, 'a')).get());
  EXPECT_EQ(longer.str(), "");  // would not fit a caller's buffer
}

// ---------------------------------------------------------------------------------------------

TEST_F(TreeTest, XCopyTakesTheWholeDirectoryWithSubdirectories) {
  MakeSource("Src");
  // Upper case and a pattern: the pattern does not narrow the copy, the case does not hide names.
  EXPECT_EQ(KvXCopy(Text(P("New")).get(), Text(Upper(P("Src")) + "\\*.DBF").get(), 1, 0), 0);
  EXPECT_EQ(Tree(P("New")), (std::set<std::string>{"A.DBF", "b.Dbf", "c.dbf", ".hidden", "Sub/", "Sub/e.txt",
                                                    "Sub/Deeper/", "Sub/Deeper/d.txt"}));  // no .git
  EXPECT_EQ(ReadWhole(P("New/Sub/Deeper/d.txt")), "Sub/Deeper/d.txt");

  // Subdirectories only for the value 1 in the int form; not at all with false.
  EXPECT_EQ(KvXCopy(Text(P("Two")).get(), Text(P("Src")).get(), 2, 0), 0);
  EXPECT_TRUE(KvXCopy(Text(P("Flat")).get(), Text(P("Src")).get(), false));
  for (const char* flat : {"Two", "Flat"}) {
    EXPECT_EQ(Tree(P(flat)), (std::set<std::string>{"A.DBF", "b.Dbf", "c.dbf", ".hidden"})) << flat;
  }
}

TEST_F(TreeTest, XCopyFailuresDoNoMoreThanTheyMust) {
  MakeSource("Src");
  const std::set<std::string> before = Tree(dir_.path());
  EXPECT_EQ(KvXCopy(Text(P("New*")).get(), Text(P("Src")).get(), 1, 0), 1);  // wildcard target
  EXPECT_FALSE(KvXCopy(Text(P("N?w")).get(), Text(P("Src")).get(), true));
  EXPECT_EQ(KvXCopy(Text(P("No/Such/Parent")).get(), Text(P("Src")).get(), 1, 0), 1);  // one level only
  EXPECT_EQ(KvXCopy(Text(P("Src/Sub/Copy")).get(), Text(P("Src")).get(), 1, 0), 1);   // into itself
  EXPECT_EQ(KvXCopy(Text(P("New")).get(), Text(P("Missing/x")).get(), 1, 0), 1);     // no such directory
  EXPECT_EQ(Tree(dir_.path()), before);
}

TEST_F(TreeTest, XCopyStopsAtAnExistingFileAndKeepsWhatItCopied) {
  for (const char* f : {"C.DBF", "b.dbf", "a.dbf"}) File(std::string("Src/") + f, f);  // made in reverse
  File("Dst/B.DBF", "theirs");
  EXPECT_EQ(KvXCopy(Text(P("Dst")).get(), Text(P("Src")).get(), 1, 0), 1);
  EXPECT_EQ(ReadWhole(P("Dst/a.dbf")), "a.dbf");   // before it in name order
  EXPECT_EQ(ReadWhole(P("Dst/B.DBF")), "theirs");  // untouched: b.dbf is B.DBF here
  EXPECT_FALSE(fs::exists(P("Dst/C.DBF")));         // after it
}

TEST_F(TreeTest, XCopyKeepsLinksToDirectoriesAsLinks) {
  File("Outside/sentinel");
  File("Src/real.txt", "real");
  fs::create_directory_symlink(P("Outside"), P("Src/ToOutside"));
  fs::create_symlink(P("Src/real.txt"), P("Src/alias.txt"));
  EXPECT_EQ(KvXCopy(Text(P("New")).get(), Text(P("Src")).get(), 1, 0), 0);
  EXPECT_TRUE(fs::is_symlink(P("New/ToOutside")));
  EXPECT_EQ(fs::read_symlink(P("New/ToOutside")), P("Outside"));
  EXPECT_FALSE(fs::is_symlink(P("New/alias.txt")));
  EXPECT_EQ(ReadWhole(P("New/alias.txt")), "real");
}

// The catalogue's move: copy, then prune the old tree; the outside directory a link led to stays.
TEST_F(TreeTest, MoveIsCopyThenPrune) {
  MakeSource("Old");
  File("Outside/sentinel", "keep");
  fs::create_directory_symlink(P("Outside"), P("Old/Sub/Link"));
  ASSERT_EQ(KvXCopy(Text(P("New")).get(), Text(P("Old")).get(), 1, 0), 0);
  EXPECT_EQ(KvPrune(Text(P("Old")).get()), 1);
  // Dot names are left in the old tree, so it stays with them and nothing else.
  EXPECT_EQ(Tree(P("Old")), (std::set<std::string>{".hidden", ".git/", ".git/config"}));
  EXPECT_EQ(ReadWhole(P("New/Sub/Deeper/d.txt")), "Sub/Deeper/d.txt");
  EXPECT_EQ(ReadWhole(P("Outside/sentinel")), "keep");
}

// ---------------------------------------------------------------------------------------------

TEST_F(TreeTest, CopyFilesExRecursesAndMakesTheTarget) {
  MakeSource("Src");
  EXPECT_TRUE(KvCopyFilesEx(PathList({Upper(P("Src")) + "\\*.*"}).c_str(), PathList({P("a\\b\\New")}).c_str(), true));
  EXPECT_EQ(Tree(P("a/b/New")), Tree(P("Src")));  // dot names too
}

TEST_F(TreeTest, CopyFilesExPathListsAndPlainSources) {
  MakeSource("Src");
  File("Other/x.txt");
  File("Other/y.dat");
  EXPECT_TRUE(KvCopyFilesEx(PathList({P("Src/a.dbf"), P("Other\\*.TXT"), P("Src/sub")}).c_str(),
                            PathList({P("Into"), P("ignored")}).c_str(), false));
  EXPECT_EQ(Tree(P("Into")),
            (std::set<std::string>{"A.DBF", "x.txt", "Sub/", "Sub/e.txt", "Sub/Deeper/", "Sub/Deeper/d.txt"}));
  EXPECT_FALSE(fs::exists(P("ignored")));

  // One plain directory becomes the target, or goes into it when the target is a directory.
  EXPECT_TRUE(KvCopyFilesEx(PathList({P("Src/Sub")}).c_str(), PathList({P("Renamed")}).c_str(), true));
  EXPECT_TRUE(fs::exists(P("Renamed/Deeper/d.txt")));
  EXPECT_TRUE(KvCopyFilesEx(PathList({P("Src/Sub/")}).c_str(), PathList({P("Renamed")}).c_str(), true));
  EXPECT_TRUE(fs::exists(P("Renamed/Sub/Deeper/d.txt")));
}

TEST_F(TreeTest, CopyFilesExFailures) {
  MakeSource("Src");
  File("Dst/B.DBF", "theirs");
  EXPECT_FALSE(KvCopyFilesEx(PathList({P("Src/*.*")}).c_str(), PathList({P("Dst")}).c_str(), true));
  EXPECT_EQ(ReadWhole(P("Dst/A.DBF")), "A.DBF");   // copied before the clash
  EXPECT_EQ(ReadWhole(P("Dst/B.DBF")), "theirs");
  EXPECT_FALSE(fs::exists(P("Dst/c.dbf")));

  const std::set<std::string> before = Tree(dir_.path());
  EXPECT_FALSE(KvCopyFilesEx(PathList({P("Src/*.*")}).c_str(), PathList({P("Src/Sub/New")}).c_str(), true));
  EXPECT_FALSE(KvCopyFilesEx(PathList({P("Src/a.dbf"), P("Src/none.dbf")}).c_str(), PathList({P("N")}).c_str(), true));
  EXPECT_FALSE(KvCopyFilesEx(PathList({P("Src/*.*")}).c_str(), PathList({P("N*")}).c_str(), true));
  EXPECT_FALSE(KvCopyFilesEx(PathList({}).c_str(), PathList({P("N")}).c_str(), true));
  EXPECT_EQ(Tree(dir_.path()), before);  // each failed before any work
}

// ---------------------------------------------------------------------------------------------

TEST_F(TreeTest, DeleteFilesExLeavesDirectories) {
  MakeSource("Ver");
  File("Outside/sentinel");
  fs::create_directory_symlink(P("Outside"), P("Ver/ToOutside"));
  fs::create_symlink(P("Outside/sentinel"), P("Ver/alias"));
  fs::create_symlink(P("nowhere"), P("Ver/dangling"));
  EXPECT_TRUE(KvDeleteFilesEx(PathList({Upper(P("Ver")) + "\\*.*"}).c_str(), true));
  EXPECT_EQ(Tree(P("Ver")), (std::set<std::string>{"Sub/", "Sub/e.txt", "Sub/Deeper/", "Sub/Deeper/d.txt", ".git/",
                                                    ".git/config", "ToOutside"}));
  EXPECT_TRUE(fs::exists(P("Outside/sentinel")));  // the link went, not what it led to

  EXPECT_TRUE(KvDeleteFilesEx(PathList({P("Ver/*.*")}).c_str(), true));  // nothing left to match
  EXPECT_FALSE(KvDeleteFilesEx(PathList({P("NoDir/*.*")}).c_str(), true));
  EXPECT_FALSE(KvDeleteFilesEx(PathList({P("Ver/Sub")}).c_str(), true));  // a whole tree: refused
  EXPECT_TRUE(fs::exists(P("Ver/Sub/e.txt")));
}

TEST_F(TreeTest, DeleteFilesExPathListAndHeldFile) {
  for (const char* f : {"A/x.dbf", "A/Y.DBF", "A/z.txt", "B/keep.txt", "B/Gone.txt"}) File(f);
  EXPECT_TRUE(KvDeleteFilesEx(PathList({P("a\\*.DBF"), P("b/GONE.TXT")}).c_str(), false));
  EXPECT_EQ(Tree(dir_.path()), (std::set<std::string>{"A/", "A/z.txt", "B/", "B/keep.txt"}));

  // A file another opener holds stops the delete there: files before it are gone, after it stay.
  for (const char* f : {"C/1.dbf", "C/2.dbf", "C/3.dbf"}) File(f);
  std::unique_ptr<kvd::platform::File> held;
  ASSERT_TRUE(kvd::platform::File::Open(P("C/2.dbf"), kvd::platform::OpenMode::kReadWrite, &held).ok());
  ASSERT_TRUE(held->ShareLock(kvd::platform::LockKind::kShared, false).ok());
  EXPECT_FALSE(KvDeleteFilesEx(PathList({P("C/*.*")}).c_str(), true));
  EXPECT_EQ(Tree(P("C")), (std::set<std::string>{"2.dbf", "3.dbf"}));
}

// ---------------------------------------------------------------------------------------------

TEST_F(TreeTest, PruneRemovesTheTreeAndNeverMovesTheCurrentDirectory) {
  MakeSource("Prj");
  File("Elsewhere/x");
  ScopedCwd cwd(P("Elsewhere"));
  const fs::path here = fs::current_path();

  File("Prj2/Sub/f");
  EXPECT_EQ(KvPrune(Text(Upper(P("Prj2")) + "\\").get()), 1);  // case and trailing backslash
  EXPECT_FALSE(fs::exists(P("Prj2")));
  EXPECT_EQ(fs::current_path(), here);

  EXPECT_EQ(KvPrune(Text(P("Missing")).get()), 0);
  EXPECT_EQ(KvPrune(Text(P("Prj/A.DBF")).get()), 0);  // not a directory
  EXPECT_EQ(fs::current_path(), here);

  // A held file stays with every directory above it; the rest goes.
  std::unique_ptr<kvd::platform::File> held;
  ASSERT_TRUE(kvd::platform::File::Open(P("Prj/Sub/Deeper/d.txt"), kvd::platform::OpenMode::kRead, &held).ok());
  ASSERT_TRUE(held->ShareLock(kvd::platform::LockKind::kShared, false).ok());
  EXPECT_EQ(KvPrune(Text(P("Prj")).get()), 1);
  EXPECT_EQ(Tree(P("Prj")), (std::set<std::string>{".hidden", ".git/", ".git/config", "Sub/", "Sub/Deeper/",
                                                    "Sub/Deeper/d.txt"}));
  EXPECT_EQ(fs::current_path(), here);
  EXPECT_EQ(ReadWhole(P("Elsewhere/x")), "x");
}

TEST_F(TreeTest, PruneRefusesTopsAndLinks) {
  File("Drive/Prj/a.dbf");
  File("Outside/sentinel");
  fs::create_directory_symlink(P("Outside"), P("Link"));
  ScopedEnv q("KVD_DRIVE_Q", P("Drive"));
  for (const char* top : {"Q:\\", "Q:", "Q:\\.", "q:\\prj\\.."}) EXPECT_EQ(KvPrune(Text(top).get()), 0) << top;
  EXPECT_EQ(KvPrune(Text(P("Link")).get()), 0);
  EXPECT_TRUE(fs::exists(P("Drive/Prj/a.dbf")));
  EXPECT_TRUE(fs::exists(P("Outside/sentinel")));

  EXPECT_EQ(KvPrune(Text("Q:\\PRJ").get()), 1);
  EXPECT_FALSE(fs::exists(P("Drive/Prj")));

  // A drive's directory met inside the tree is not entered; the tree stays around it.
  File("Tree/Inner/Mapped/t.dbf");
  File("Tree/other.dbf");
  ScopedEnv r("KVD_DRIVE_R", P("Tree/Inner/Mapped"));
  EXPECT_EQ(KvPrune(Text(P("Tree")).get()), 1);
  EXPECT_EQ(Tree(P("Tree")), (std::set<std::string>{"Inner/", "Inner/Mapped/", "Inner/Mapped/t.dbf"}));
}

// A copy's file takes its name only when it is whole: a failed copy leaves no part of a file,
// under the target's name or any other, and an existing file as it was.
TEST_F(TreeTest, CopyFilesExLeavesNoPartOfAFileBehind) {
  File("Src/a.dbf", std::string(3 << 20, 'a'));
  File("Src/b.dbf", std::string(3 << 20, 'b'));
  File("Src/c.dbf", "c");
  File("Dst/b.dbf", "old");
  EXPECT_FALSE(KvCopyFilesEx(PathList({P("Src/*.*")}).c_str(), PathList({P("Dst")}).c_str(), true));
  EXPECT_EQ(Tree(P("Dst")), (std::set<std::string>{"a.dbf", "b.dbf"}));
  EXPECT_EQ(ReadWhole(P("Dst/a.dbf")), std::string(3 << 20, 'a'));
  EXPECT_EQ(ReadWhole(P("Dst/b.dbf")), "old");
  // The same copy into a new directory takes every byte.
  EXPECT_TRUE(KvCopyFilesEx(PathList({P("Src/*.*")}).c_str(), PathList({P("New")}).c_str(), true));
  EXPECT_EQ(ReadWhole(P("New/b.dbf")), std::string(3 << 20, 'b'));
  EXPECT_EQ(Tree(P("New")), (std::set<std::string>{"a.dbf", "b.dbf", "c.dbf"}));
}

// Reading a pipe would wait for a writer for ever; the copy fails instead, so a move keeps its source.
TEST_F(TreeTest, CopiesFailOnAPipe) {
  File("Src/a.dbf");
  if (std::system(("mkfifo '" + P("Src/pipe") + "'").c_str()) != 0) GTEST_SKIP() << "no mkfifo";
  EXPECT_EQ(KvXCopy(Text(P("New")).get(), Text(P("Src")).get(), 1, 0), 1);
  EXPECT_FALSE(KvCopyFilesEx(PathList({P("Src/*.*")}).c_str(), PathList({P("New2")}).c_str(), true));
  EXPECT_EQ(ReadWhole(P("New/a.dbf")), "x");  // what came before the pipe
  EXPECT_TRUE(fs::is_fifo(P("Src/pipe")));
}

}  // namespace
