// The shared arena: one process makes it by name, an unrelated one attaches by name at the same
// base, sees the maker's root object and allocates from the same free lists; the last detach
// removes the name. Both run as forked children that give the test arena back first.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "lib/foundation/kvgran.h"
#include "tests/lib/arena_test_util.h"

namespace {

using kvd::classlib::testing::FailureOf;

constexpr std::size_t kSharedSize = std::size_t{16} << 20;

struct Root {
  char text[32];
  char* block;  // the maker's first 64-byte block
};

bool WriteAll(int fd, const void* p, std::size_t n) { return ::write(fd, p, n) == static_cast<ssize_t>(n); }
bool ReadAll(int fd, void* p, std::size_t n) { return ::read(fd, p, n) == static_cast<ssize_t>(n); }

int WaitChild(pid_t pid) {
  int st = 0;
  if (::waitpid(pid, &st, 0) != pid) return -1;
  return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
}

bool NameExists(const std::string& name) { return ::access(("/dev/shm/kv.map." + name).c_str(), F_OK) == 0; }

TEST(SharedArena, ASecondProcessAttachesByNameAtTheSameBaseAndSharesTheFreeLists) {
  const std::string name = "test.arena." + std::to_string(::getpid());
  int to_parent[2], to_maker[2];
  ASSERT_EQ(::pipe(to_parent), 0);
  ASSERT_EQ(::pipe(to_maker), 0);
  std::fflush(nullptr);
  const pid_t maker = ::fork();
  if (maker == 0) {
    int rc = 0;
    try {
      KvGranularity::_FreeMem();
      CHILD_CHECK(KvGranularity::_AllocSharedMem(kSharedSize, name.c_str()) == 1);
      CHILD_CHECK(std::strcmp(KvGranularity::_GetMemName(), name.c_str()) == 0);
      char* base = static_cast<char*>(KvGranularity::_GetBase());
      CHILD_CHECK(reinterpret_cast<std::uintptr_t>(base) % 0x10000 == 0);
      auto* root = static_cast<Root*>(KvGranularity::_AllocFixed(sizeof(Root)));
      CHILD_CHECK(root == KvGranularity::_GetRootObj());
      std::strcpy(root->text, "made by the maker");
      root->block = static_cast<char*>(KvGranularity::_Alloc(64, nullptr));
      KvGranularity::_SetRoot(root->block, 0);
      CHILD_CHECK(WriteAll(to_parent[1], &base, sizeof base));
      char go = 0;
      CHILD_CHECK(ReadAll(to_maker[0], &go, 1) && go == 'g');
      // The other process took the next block of the same carve, and has detached again.
      char* next = static_cast<char*>(KvGranularity::_Alloc(64, nullptr));
      CHILD_CHECK(next == root->block + 128);
      CHILD_CHECK(KvGranularity::_aogran[4].GetAllocated() == 3);
      CHILD_CHECK(KvGranularity::_QueryCountAllocSharedMem() == 1);
      KvGranularity::_Free(next, 64, nullptr);
      KvGranularity::_Free(root->block, 64, nullptr);
      CHILD_CHECK(KvGranularity::_FreeMem() == 0);
      CHILD_CHECK(KvGranularity::_GetBase() == nullptr);
    } catch (...) {
      rc = 2;
    }
    ::_exit(rc);
  }
  char* base = nullptr;
  ASSERT_TRUE(ReadAll(to_parent[0], &base, sizeof base));
  ASSERT_TRUE(NameExists(name));

  // An unrelated process attaches by name alone.
  EXPECT_CHILD_OK([&] {
              KvGranularity::_FreeMem();
              CHILD_CHECK(KvGranularity::_AllocSharedMem(kSharedSize, name.c_str()) == 2);
              CHILD_CHECK(KvGranularity::_GetBase() == base);
              CHILD_CHECK(KvGranularity::_poinf->_pvMapAddress == base);
              auto* root = static_cast<Root*>(KvGranularity::_GetRootObj());
              CHILD_CHECK(std::strcmp(root->text, "made by the maker") == 0);
              CHILD_CHECK(KvGranularity::_GetRoot(0) == root->block);
              char* mine = static_cast<char*>(KvGranularity::_Alloc(40, nullptr));
              CHILD_CHECK(mine == root->block + 64);  // the maker's free list
              CHILD_CHECK(KvGranularity::_FreeMem() == 1);
            });

  // A process where the maker's place is taken cannot attach, and says so.
  EXPECT_CHILD_OK([&] {
              KvGranularity::_FreeMem();
              void* taken = ::mmap(base, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
              CHILD_CHECK(taken == base);
              CHILD_CHECK(FailureOf([&] { KvGranularity::_AllocSharedMem(kSharedSize, name.c_str()); }) ==
                          name + ": KvGranularity::_AllocSharedMem pszName=" + name + " _pvBase=0");
              CHILD_CHECK(KvGranularity::_GetBase() == nullptr);
            });

  ASSERT_TRUE(WriteAll(to_maker[1], "g", 1));
  EXPECT_EQ(WaitChild(maker), 0);
  EXPECT_FALSE(NameExists(name)) << "the last detach removes the name";
  for (int fd : {to_parent[0], to_parent[1], to_maker[0], to_maker[1]}) ::close(fd);
}

}  // namespace
