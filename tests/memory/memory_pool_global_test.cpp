#include <qiv/memory_pool_global.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "memory/tracked_pool_model.h"
#include "support/captured_output.h"
#include "support/failing_allocation.h"
#include "support/latch.h"
#include "support/leak_check.h"
#include "support/run_in_thread.h"
#include "support/test_limit.h"

namespace qiv::test {
namespace {

constexpr unsigned int kLargest = 10485760;
constexpr unsigned int kInitial = 12810240;  // one chunk of each of the five pools
constexpr unsigned int kMiB = 1024 * 1024;
constexpr unsigned int kLargestLimit = 0x80000000;

class GlobalMemoryPoolTest : public LeakCheckedTest {
 protected:
  void TearDown() override {
    EXPECT_EQ(0, QIV_FiniMemoryPool_Inter());
    LeakCheckedTest::TearDown();
  }
};
using GlobalMemoryPoolDeathTest = GlobalMemoryPoolTest;

TEST_F(GlobalMemoryPoolTest, ServesNothingBeforeItIsSwitchedOn) {
  int local = 0;
  EXPECT_EQ(0u, QIV_MemoryPoolGlobal_Size());
  EXPECT_EQ(0u, QIV_MemoryPoolGlobal_IdleSize());
  EXPECT_EQ(nullptr, QIV_MemoryPoolGlobal_Alloc(1));
  QIV_MemoryPoolGlobal_Free(&local);
  unsigned int size = 1;
  EXPECT_EQ(nullptr, QIV_GetMemoryPoolEx(size));
}

TEST_F(GlobalMemoryPoolTest, HoldsOneIdleChunkOfEachClassAtFirst) {
  EXPECT_EQ(1, QIV_MemoryPoolGlobal_Init(kLargestLimit));
  EXPECT_EQ(kInitial, QIV_MemoryPoolGlobal_Size());
  EXPECT_EQ(kInitial, QIV_MemoryPoolGlobal_IdleSize());
}

struct ClassRow {
  unsigned int size;
  unsigned int chunkSize;
};

TEST_F(GlobalMemoryPoolTest, EachSizeComesFromThePoolOfItsClass) {
  ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(kLargestLimit));
  for (const ClassRow& row :
       {ClassRow{0, 2048}, ClassRow{1, 2048}, ClassRow{500, 2048}, ClassRow{501, 20480},
        ClassRow{5120, 20480}, ClassRow{5121, 204800}, ClassRow{51200, 204800},
        ClassRow{51201, 2097152}, ClassRow{512000, 2097152}, ClassRow{512001, 10485760},
        ClassRow{kLargest, 10485760}}) {
    unsigned int size = row.size;
    QIV_MemoryPoolEx* const pool = QIV_GetMemoryPoolEx(size);
    ASSERT_NE(nullptr, pool) << row.size;
    EXPECT_EQ(row.chunkSize, size) << row.size;
    EXPECT_EQ(row.chunkSize, pool->Size()) << row.size;
    void* const pointer = QIV_MemoryPoolGlobal_Alloc(row.size);
    ASSERT_NE(nullptr, pointer) << row.size;
    std::memset(pointer, 0x5A, row.size);
    EXPECT_EQ(row.chunkSize - row.size, pool->IdleSize()) << row.size;
    QIV_MemoryPoolGlobal_Free(pointer);
    EXPECT_EQ(row.chunkSize, pool->IdleSize()) << row.size;
  }
}

TEST_F(GlobalMemoryPoolTest, SizesAboveTheLargestAreRefused) {
  ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(kLargestLimit));
  for (const unsigned int size : {kLargest + 1, 0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(nullptr, QIV_MemoryPoolGlobal_Alloc(size)) << size;
    unsigned int kept = size;
    EXPECT_EQ(nullptr, QIV_GetMemoryPoolEx(kept)) << size;
    EXPECT_EQ(size, kept);
  }
}

TEST_F(GlobalMemoryPoolTest, SmallLimitLeavesTheFirstChunksAndRefusesTheFirstFurtherOne) {
  ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(0));
  for (int i = 0; i < 4; ++i) EXPECT_NE(nullptr, QIV_MemoryPoolGlobal_Alloc(500)) << i;
  EXPECT_EQ(nullptr, QIV_MemoryPoolGlobal_Alloc(500)) << "48 bytes are left in the chunk";
  EXPECT_NE(nullptr, QIV_MemoryPoolGlobal_Alloc(48));
  void* const whole = QIV_MemoryPoolGlobal_Alloc(kLargest);
  EXPECT_NE(nullptr, whole);
  EXPECT_EQ(nullptr, QIV_MemoryPoolGlobal_Alloc(kLargest));
  EXPECT_EQ(kInitial, QIV_MemoryPoolGlobal_Size());
  QIV_MemoryPoolGlobal_Free(whole);
  EXPECT_EQ(whole, QIV_MemoryPoolGlobal_Alloc(kLargest));
}

TEST_F(GlobalMemoryPoolTest, LimitHoldsForAllPoolsTogether) {
  ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(kInitial + 2 * 0x200000 + 2047));
  std::vector<void*> pointers;
  for (int i = 0; i < 3 * 4; ++i) {
    pointers.push_back(QIV_MemoryPoolGlobal_Alloc(512000));
    EXPECT_NE(nullptr, pointers.back()) << i;
  }
  EXPECT_EQ(nullptr, QIV_MemoryPoolGlobal_Alloc(512000));
  for (int i = 0; i < 4; ++i) EXPECT_NE(nullptr, QIV_MemoryPoolGlobal_Alloc(500));
  EXPECT_EQ(nullptr, QIV_MemoryPoolGlobal_Alloc(500)) << "one byte is lacking for another chunk";
  ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(kInitial + 2 * 0x200000 + 2048));
  EXPECT_NE(nullptr, QIV_MemoryPoolGlobal_Alloc(500));
  EXPECT_EQ(nullptr, QIV_MemoryPoolGlobal_Alloc(512000));
}

TEST_F(GlobalMemoryPoolTest, LimitsAboveTheLargestCountAsTheLargest) {
  ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(0xFFFFFFFFu));
  // Nothing is written to the chunks, so this costs address space only, which 32-bit systems may
  // have less of.
  std::vector<void*> chunks;
  while (void* const chunk = QIV_MemoryPoolGlobal_Alloc(kLargest)) chunks.push_back(chunk);
  EXPECT_LE(QIV_MemoryPoolGlobal_Size(), kLargestLimit);
  if (sizeof(void*) == 8) {
    EXPECT_EQ(204u, chunks.size());
  }
  for (void* const chunk : chunks) QIV_MemoryPoolGlobal_Free(chunk);
}

TEST_F(GlobalMemoryPoolTest, SecondInitChangesTheLimitButNotThePools) {
  ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(kInitial + 2048));  // at most 1 chunk of 10 MiB
  unsigned int size = 1;
  QIV_MemoryPoolEx* const pool = QIV_GetMemoryPoolEx(size);
  ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(kLargestLimit));
  unsigned int sameSize = 1;
  EXPECT_EQ(pool, QIV_GetMemoryPoolEx(sameSize));
  EXPECT_NE(nullptr, QIV_MemoryPoolGlobal_Alloc(kLargest));
  EXPECT_EQ(nullptr, QIV_MemoryPoolGlobal_Alloc(kLargest)) << "the maximum of the pool is kept";
}

TEST_F(GlobalMemoryPoolTest, FreeIgnoresNullAndWhatIsNotAllocated) {
  ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(kLargestLimit));
  int local = 0;
  char* const pointer = static_cast<char*>(QIV_MemoryPoolGlobal_Alloc(10));
  QIV_MemoryPoolGlobal_Free(nullptr);
  QIV_MemoryPoolGlobal_Free(&local);
  QIV_MemoryPoolGlobal_Free(pointer + 1);
  EXPECT_EQ(kInitial - 10, QIV_MemoryPoolGlobal_IdleSize());
  QIV_MemoryPoolGlobal_Free(pointer);
  QIV_MemoryPoolGlobal_Free(pointer);
  EXPECT_EQ(kInitial, QIV_MemoryPoolGlobal_IdleSize());
}

TEST_F(GlobalMemoryPoolTest, StopReportsWhatWasNotFreedPoolByPoolAndSwitchesOff) {
  ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(kLargestLimit));
  EXPECT_NE(nullptr, QIV_MemoryPoolGlobal_Alloc(600));
  EXPECT_NE(nullptr, QIV_MemoryPoolGlobal_Alloc(7));
  CapturedOutput output(STDOUT_FILENO);
  EXPECT_EQ(0, QIV_FiniMemoryPool_Inter());
  const std::string text = output.Stop();
  const auto small = text.find("\"RemainBytes\": 2041, \"UsedNum\": 1 }\n");
  const auto smallChunk = text.find("\"BlockSize\": 2048,");
  const auto large = text.find("\"RemainBytes\": 19880, \"UsedNum\": 1 }\n");
  const auto largeChunk = text.find("\"BlockSize\": 20480,");
  ASSERT_NE(std::string::npos, small) << text;
  EXPECT_LT(small, smallChunk) << text;
  EXPECT_LT(smallChunk, large) << text;
  EXPECT_LT(large, largeChunk) << text;
  ASSERT_NE(std::string::npos, largeChunk) << text;
  EXPECT_EQ(0u, QIV_MemoryPoolGlobal_Size());
  EXPECT_EQ(nullptr, QIV_MemoryPoolGlobal_Alloc(1));
  EXPECT_EQ(0, QIV_FiniMemoryPool_Inter()) << "once more does nothing";
}

TEST_F(GlobalMemoryPoolTest, PointersOfBeforeAStopAreIgnoredByALaterStart) {
  ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(kLargestLimit));
  std::vector<void*> old;
  for (const unsigned int size : {10u, 1000u, 10000u}) {
    old.push_back(QIV_MemoryPoolGlobal_Alloc(size));
  }
  QIV_FiniMemoryPool_Inter();
  for (void* const pointer : old) QIV_MemoryPoolGlobal_Free(pointer);
  ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(kLargestLimit));
  for (void* const pointer : old) QIV_MemoryPoolGlobal_Free(pointer);
  EXPECT_EQ(kInitial, QIV_MemoryPoolGlobal_IdleSize());
  EXPECT_NE(nullptr, QIV_MemoryPoolGlobal_Alloc(10));
}

TEST_F(GlobalMemoryPoolTest, InternalFunctionsAndThoseOfTheNamespaceDoTheSame) {
  EXPECT_EQ(0, QIV_InitMemoryPool_Inter(kLargestLimit));
  EXPECT_TRUE(QIV_InitMemoryPool(kLargestLimit));
  EXPECT_NE(nullptr, QIV_MemoryPoolGlobal_Alloc(100));
  EXPECT_EQ(kInitial, QIV_GetMemoryPoolExTotalSize());
  EXPECT_EQ(kInitial - 100, QIV_GetMemoryPoolExTotalIdleSize());
  QIV_FiniMemoryPool();
  EXPECT_EQ(0u, QIV_GetMemoryPoolExTotalSize());
}

TEST_F(GlobalMemoryPoolTest, PoolsThatExistServeThoughAnotherOneIsMissing) {
  {
    const FailingAllocation failure(1);  // the first pool
    EXPECT_EQ(-1, QIV_InitMemoryPool_Inter(kLargestLimit));
  }
  EXPECT_EQ(nullptr, QIV_MemoryPoolGlobal_Alloc(500));
  void* const pointer = QIV_MemoryPoolGlobal_Alloc(501);
  EXPECT_NE(nullptr, pointer);
  QIV_MemoryPoolGlobal_Free(pointer);
}

TEST_F(GlobalMemoryPoolDeathTest, SameAddressTwiceAborts) {
  ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(kLargestLimit));
  EXPECT_NE(nullptr, QIV_MemoryPoolGlobal_Alloc(0));
  EXPECT_DEATH(QIV_MemoryPoolGlobal_Alloc(1), "Assertion `m_mapUsedRecords\\.find");
}

/** Five tracked pools under one limit. */
class GlobalPoolModel {
 public:
  explicit GlobalPoolModel(unsigned int limit) : m_limit(limit) {
    for (const unsigned int chunkSize : {2048u, 20480u, 204800u, 0x200000u, 0xA00000u}) {
      m_chunkSizes.push_back(chunkSize);
      m_pools.emplace_back(1, limit / chunkSize, chunkSize);
    }
  }

  static std::size_t ClassOf(unsigned int size) {
    if (size <= 500) return 0;
    if (size <= 5120) return 1;
    if (size <= 51200) return 2;
    return size <= 512000 ? 3 : 4;
  }
  ::testing::AssertionResult Alloc(unsigned int size, char* result) {
    const std::size_t index = ClassOf(size);
    if (size > m_pools[index].IdleSize() && Size() + m_chunkSizes[index] > m_limit) {
      return result == nullptr ? ::testing::AssertionSuccess()
                               : ::testing::AssertionFailure() << "beyond the limit";
    }
    return m_pools[index].Alloc(size, result);
  }
  void Free(char* pointer, unsigned int size) { m_pools[ClassOf(size)].Free(pointer); }
  unsigned long long Size() const { return Sum(&TrackedPoolModel::Size); }
  unsigned long long IdleSize() const { return Sum(&TrackedPoolModel::IdleSize); }

 private:
  unsigned long long Sum(unsigned int (TrackedPoolModel::*figure)() const) const {
    unsigned long long sum = 0;
    for (const TrackedPoolModel& pool : m_pools) sum += (pool.*figure)();
    return sum;
  }

  unsigned int m_limit;
  std::vector<unsigned int> m_chunkSizes;
  std::vector<TrackedPoolModel> m_pools;
};

/** Mostly small sizes, some of every class. */
unsigned int RandomSize(std::mt19937& random) {
  static constexpr unsigned int kLargestSizes[] = {500, 500, 500, 5120, 5120, 51200, 512000};
  const unsigned int largest =
      random() % 100 == 0 ? kLargest : kLargestSizes[random() % std::size(kLargestSizes)];
  return 1 + static_cast<unsigned int>(random() % largest);
}

TEST_F(GlobalMemoryPoolTest, RandomTrafficDoesWhatTheModelDoes) {
  constexpr unsigned int kLimit = 48 * kMiB;
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(kLimit));
  GlobalPoolModel model(kLimit);
  std::vector<std::pair<char*, unsigned int>> live;
  int refused = 0;
  for (int i = 0; i < ScaledLoad(100000); ++i) {
    if (live.size() >= 400 || (!live.empty() && random() % 2 == 0)) {
      std::swap(live[random() % live.size()], live.back());
      const auto freed = live.back();
      live.pop_back();
      ASSERT_EQ(static_cast<char>(freed.second), *freed.first) << i;
      ASSERT_EQ(static_cast<char>(freed.second), freed.first[freed.second - 1]) << i;
      QIV_MemoryPoolGlobal_Free(freed.first);
      model.Free(freed.first, freed.second);
    } else {
      const unsigned int size = RandomSize(random);
      char* const pointer = static_cast<char*>(QIV_MemoryPoolGlobal_Alloc(size));
      ASSERT_TRUE(model.Alloc(size, pointer)) << i << ": " << size;
      if (pointer == nullptr) {
        ++refused;
        continue;
      }
      pointer[0] = pointer[size - 1] = static_cast<char>(size);
      live.emplace_back(pointer, size);
    }
    ASSERT_EQ(model.Size(), QIV_MemoryPoolGlobal_Size()) << i;
    ASSERT_EQ(model.IdleSize(), QIV_MemoryPoolGlobal_IdleSize()) << i;
  }
  if (ScaledLoad(100) == 100) {  // less traffic may stay below the limit
    EXPECT_GT(refused, 0) << "the limit was never met";
  }
  for (const auto& allocation : live) QIV_MemoryPoolGlobal_Free(allocation.first);
  EXPECT_EQ(QIV_MemoryPoolGlobal_Size(), QIV_MemoryPoolGlobal_IdleSize());
}

TEST_F(GlobalMemoryPoolTest, ThreadsUseItWhileItIsSwitchedOnAndOff) {
  const CapturedOutput output(STDOUT_FILENO);  // reports of what the stops found
  std::atomic<bool> stops{true};
  Latch begun;
  ThreadResult<int> switcher = RunInThread([&] {
    int rounds = 0;
    while (stops.load(std::memory_order_acquire)) {
      QIV_MemoryPoolGlobal_Init(kLargestLimit);
      QIV_MemoryPoolGlobal_IdleSize();
      QIV_FiniMemoryPool_Inter();
      ++rounds;
      begun.Open();
    }
    return rounds;
  });
  ASSERT_TRUE(begun.Wait());
  std::vector<ThreadResult<int>> users;
  for (unsigned int seed = 1; seed <= 3; ++seed) {
    users.push_back(RunInThread([seed] {
      std::mt19937 random(seed);
      for (int i = 0; i < ScaledLoad(20000); ++i) {
        void* const pointer =
            QIV_MemoryPoolGlobal_Alloc(1 + static_cast<unsigned int>(random() % 6000));
        if (random() % 8 == 0) QIV_MemoryPoolGlobal_Free(&random);
        QIV_MemoryPoolGlobal_Free(pointer);
        if (QIV_MemoryPoolGlobal_Size() > kLargestLimit) return 1;
      }
      return 0;
    }));
  }
  for (ThreadResult<int>& user : users) EXPECT_EQ(0, user.Get());
  stops.store(false, std::memory_order_release);
  EXPECT_GT(switcher.Get(), 0);
}

// The child has the pools but none of their threads.
TEST(MemoryPoolGlobalDeathTest, ChildProcessExitsWhileTheParentUsesThePool) {
  ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(kMiB));
  void* const bytes = QIV_MemoryPoolGlobal_Alloc(100);
  EXPECT_EXIT(std::exit(0), ::testing::ExitedWithCode(0), "");
  QIV_MemoryPoolGlobal_Free(bytes);
  QIV_FiniMemoryPool_Inter();
}

TEST(MemoryPoolGlobalDeathTest, ExitWithALiveAllocationReportsNothing) {
  CapturedOutput output(STDOUT_FILENO);
  const auto allocateAndExit = [] {
    if (QIV_MemoryPoolGlobal_Init(kMiB) == 1 && QIV_MemoryPoolGlobal_Alloc(100) != nullptr) {
      std::exit(3);
    }
  };
  EXPECT_EXIT(allocateAndExit(), ::testing::ExitedWithCode(3), "");
  EXPECT_EQ("", output.Stop());
}

}  // namespace
}  // namespace qiv::test
