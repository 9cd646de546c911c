// Every test of the class library runs on an arena and must give back all it took from it: the
// arena is made before the first test, and a checkpoint around each test fails the test that
// leaves a block allocated (LeakSanitizer cannot see into the arena).
#include <gtest/gtest.h>

#include <memory>

#include "lib/foundation/kvgran.h"
#include "tests/lib/arena_test_util.h"

namespace {

class ArenaLeakGuard : public testing::EmptyTestEventListener {
 public:
  void OnTestProgramStart(const testing::UnitTest&) override {
    KvGranularity::_AllocMem(kvd::classlib::testing::kTestArenaSize);
  }
  void OnTestStart(const testing::TestInfo&) override { before_->Checkpoint(); }
  // Runs before the result printer, so a failure added here marks the test itself as failed.
  void OnTestEnd(const testing::TestInfo&) override {
    after_->Checkpoint();
    if (diff_->Difference(*before_, *after_)) {
      diff_->DumpStatisticsToStdOut();
      ADD_FAILURE() << "the test left blocks allocated in the arena: " << diff_->m_lAllocatedSum + diff_->m_lFreedSum
                    << " bytes";
    }
  }

 private:
  std::unique_ptr<KvGranularityMemoryState> before_ = std::make_unique<KvGranularityMemoryState>();
  std::unique_ptr<KvGranularityMemoryState> after_ = std::make_unique<KvGranularityMemoryState>();
  std::unique_ptr<KvGranularityMemoryState> diff_ = std::make_unique<KvGranularityMemoryState>();
};

const bool g_registered = [] {
  testing::UnitTest::GetInstance()->listeners().Append(new ArenaLeakGuard);
  return true;
}();

}  // namespace
