// What the idle check releases and when, and the pool under threads.
#include <gtest/gtest.h>
#include <qiv/memory_pool.h>
#include <qiv/time.h>

#include <chrono>
#include <climits>
#include <thread>
#include <vector>

#include "support/eventually.h"
#include "support/failing_allocation.h"
#include "support/failing_thread_start.h"
#include "support/leak_check.h"
#include "support/run_in_thread.h"
#include "support/stopwatch.h"
#include "support/test_limit.h"

namespace qiv::test {
namespace {

constexpr unsigned int kBlock = 16;

class MemoryPoolIdleTest : public LeakCheckedTest {
 protected:
  template <class Pool>
  static std::vector<void*> AllocAll(Pool& pool, int count) {
    std::vector<void*> blocks;
    for (int i = 0; i < count; ++i) blocks.push_back(pool.Alloc());
    return blocks;
  }
  template <class Pool>
  static void FreeAll(Pool& pool, const std::vector<void*>& blocks) {
    for (void* const block : blocks) pool.Free(block);
  }
  /** Until the tick is past that of now by this much. */
  static void LetPass(qiv_int64 ms) {
    const qiv_int64 end = QIV_GetTimeTick64() + ms;
    while (QIV_GetTimeTick64() < end) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
};

TEST_F(MemoryPoolIdleTest, SurplusBlocksAreGivenBackOnceTheTimeOutHasPassed) {
  QIV_MemoryPool pool(kBlock, 2, 10, 1, 1000, 0);
  const std::vector<void*> blocks = AllocAll(pool, 6);
  const Stopwatch stopwatch;
  FreeAll(pool, blocks);
  EXPECT_EQ(6 * kBlock, pool.IdleSize());
  EXPECT_TRUE(Eventually([&] { return pool.IdleSize() < 6 * kBlock; }));
  EXPECT_GE(stopwatch.Milliseconds(), 950);
  EXPECT_TRUE(Eventually([&] { return pool.IdleSize() == 2 * kBlock; }));
  EXPECT_EQ(2 * kBlock, pool.Size());
}

TEST_F(MemoryPoolIdleTest, BlocksOfTheInitialCountStay) {
  CRealMemoryPool pool(kBlock, 2, 10, true, 0, false);
  pool.Init();
  FreeAll(pool, AllocAll(pool, 5));
  pool.OnCheckIdleTimeoutTask(1);
  EXPECT_EQ(2 * kBlock, pool.IdleSize());
  pool.OnCheckIdleTimeoutTask(1);
  EXPECT_EQ(2 * kBlock, pool.IdleSize());
}

TEST_F(MemoryPoolIdleTest, BlockThatHasBeenIdleForLongestGoesFirst) {
  CRealMemoryPool pool(kBlock, 1, 10, true, 0, false);
  pool.Init();
  const std::vector<void*> blocks = AllocAll(pool, 3);
  pool.Free(blocks[1]);
  pool.Free(blocks[2]);
  pool.Free(blocks[0]);
  pool.OnCheckIdleTimeoutTask(1);
  EXPECT_EQ(kBlock, pool.IdleSize());
  EXPECT_EQ(blocks[0], pool.Alloc()) << "the most recently returned one stays";
  pool.Free(blocks[0]);
}

TEST_F(MemoryPoolIdleTest, LentBlocksCountForTheInitialOnes) {
  CRealMemoryPool pool(kBlock, 2, 10, true, 0, false);
  pool.Init();
  const std::vector<void*> blocks = AllocAll(pool, 4);
  pool.Free(blocks[0]);
  pool.Free(blocks[1]);
  pool.OnCheckIdleTimeoutTask(1);
  EXPECT_EQ(0u, pool.IdleSize()) << "two lent ones make up the initial count";
  EXPECT_EQ(2 * kBlock, pool.Size());
  pool.Free(blocks[2]);
  pool.Free(blocks[3]);
  pool.OnCheckIdleTimeoutTask(1);
  EXPECT_EQ(2 * kBlock, pool.IdleSize());
}

TEST_F(MemoryPoolIdleTest, BlockThatIsNotDueYetIsLookedAtAgainWhenItIs) {
  QIV_MemoryPool pool(kBlock, 0, 10, 1, 300, 0);
  const std::vector<void*> blocks = AllocAll(pool, 2);
  pool.Free(blocks[0]);
  LetPass(150);
  const Stopwatch sinceTheSecond;
  pool.Free(blocks[1]);
  EXPECT_TRUE(Eventually([&] { return pool.Size() <= kBlock; }));
  EXPECT_TRUE(Eventually([&] { return pool.Size() == 0; }));
  EXPECT_GE(sinceTheSecond.Milliseconds(), 285);
}

TEST_F(MemoryPoolIdleTest, GrowingAgainAfterAReleaseIsCheckedAgain) {
  QIV_MemoryPool pool(kBlock, 1, 10, 1, 20, 0);
  for (int round = 0; round < 5; ++round) {
    FreeAll(pool, AllocAll(pool, 4));
    EXPECT_TRUE(Eventually([&] { return pool.Size() == kBlock; })) << round;
  }
}

TEST_F(MemoryPoolIdleTest, CheckThatFindsEverythingLentComesBackWithTheNextReturn) {
  QIV_MemoryPool pool(kBlock, 1, 10, 1, 20, 0);
  std::vector<void*> blocks = AllocAll(pool, 3);
  pool.Free(blocks[2]);  // schedules a check ...
  blocks[2] = pool.Alloc();
  LetPass(100);  // ... that finds nothing idle
  EXPECT_EQ(3 * kBlock, pool.Size());
  FreeAll(pool, blocks);
  EXPECT_TRUE(Eventually([&] { return pool.Size() == kBlock; }));
}

TEST_F(MemoryPoolIdleTest, TimeOutOfZeroGivesSurplusBlocksBackAtOnce) {
  QIV_MemoryPool pool(kBlock, 1, 10, 1, 0, 0);
  FreeAll(pool, AllocAll(pool, 4));
  EXPECT_TRUE(Eventually([&] { return pool.Size() == kBlock; }));
}

TEST_F(MemoryPoolIdleTest, NegativeTimeOutNeverGivesBlocksBack) {
  for (const long long never : {-1LL, LLONG_MIN}) {
    CRealMemoryPool pool(kBlock, 1, 10, true, never, false);
    pool.Start();
    FreeAll(pool, AllocAll(pool, 4));
    pool.OnCheckIdleTimeoutTask(1);
    EXPECT_EQ(4 * kBlock, pool.IdleSize());
  }
}

TEST_F(MemoryPoolIdleTest, HugeTimeOutsAreNotDueEarly) {
  for (const long long huge : {LLONG_MAX, LLONG_MAX - 1, 0x100000000LL, 0x7FFFFFFFFFFFLL}) {
    QIV_MemoryPool pool(kBlock, 1, 10, 1, huge, 0);
    FreeAll(pool, AllocAll(pool, 4));
    LetPass(50);
    EXPECT_EQ(4 * kBlock, pool.IdleSize()) << huge;
  }
}

TEST_F(MemoryPoolIdleTest, PoolThatStartedWithFewerBlocksThanItsInitialCountIsChecked) {
  CRealMemoryPool pool(kBlock, 3, 10, true, 0, false);
  {
    const FailingAllocation failure(5);  // in the second block
    pool.Init();
    EXPECT_TRUE(failure.Happened());
  }
  EXPECT_EQ(kBlock, pool.Size());
  const std::vector<void*> blocks = AllocAll(pool, 2);
  pool.Free(blocks[0]);
  pool.OnCheckIdleTimeoutTask(1);
  EXPECT_EQ(2 * kBlock, pool.Size()) << "no surplus";
  pool.Free(blocks[1]);
  pool.OnCheckIdleTimeoutTask(1);
  FreeAll(pool, AllocAll(pool, 5));
  pool.OnCheckIdleTimeoutTask(1);
  EXPECT_EQ(3 * kBlock, pool.IdleSize());
}

TEST_F(MemoryPoolIdleTest, CheckThatMemoryWasTooShortForIsScheduledByALaterReturn) {
  QIV_MemoryPool pool(kBlock, 1, 10, 1, 20, 0);
  const std::vector<void*> blocks = AllocAll(pool, 4);
  for (int nth : {1, 2, 3}) {  // the alarm and its two nodes
    const FailingAllocation failure(nth);
    pool.Free(blocks[static_cast<std::size_t>(nth)]);
    EXPECT_TRUE(failure.Happened()) << nth;
  }
  LetPass(50);
  EXPECT_EQ(3 * kBlock, pool.IdleSize());
  pool.Free(blocks[0]);
  EXPECT_TRUE(Eventually([&] { return pool.Size() == kBlock; }));
}

TEST_F(MemoryPoolIdleTest, PoolThatFindsNoThreadLendsAndTakesBackButGivesNothingUp) {
  const FailingThreadStart failure;
  QIV_MemoryPool pool(kBlock, 1, 10, 1, 0, 0);
  EXPECT_EQ(1, FailingThreadStart::Count());
  FreeAll(pool, AllocAll(pool, 4));
  LetPass(20);
  EXPECT_EQ(4 * kBlock, pool.IdleSize());
}

TEST_F(MemoryPoolIdleTest, AlarmCallbackChecksThePoolGivenAndIgnoresNull) {
  CRealMemoryPool pool(kBlock, 1, 10, true, 0, false);
  FreeAll(pool, AllocAll(pool, 4));
  CRealMemoryPool::OnAlarm(nullptr, 1, nullptr);
  EXPECT_EQ(4 * kBlock, pool.IdleSize());
  CRealMemoryPool::OnAlarm(nullptr, 7, &pool);
  EXPECT_EQ(kBlock, pool.IdleSize());
}

TEST_F(MemoryPoolIdleTest, NothingIsGivenBackAfterTheStop) {
  CRealMemoryPool pool(kBlock, 1, 10, true, 10, false);
  pool.Start();
  pool.Stop();
  FreeAll(pool, AllocAll(pool, 4));
  LetPass(50);
  EXPECT_EQ(4 * kBlock, pool.IdleSize());
}

TEST_F(MemoryPoolIdleTest, CheckThatIsScheduledWhileAnotherOneIsLeavesThatOne) {
  CRealMemoryPool pool(kBlock, 0, 10, true, 20, false);
  FreeAll(pool, AllocAll(pool, 4));  // schedules a check; the clock does not run yet
  pool.CheckIdleTimeout(LLONG_MAX);
  pool.Start();
  EXPECT_TRUE(Eventually([&] { return pool.Size() == 0; }));
}

TEST_F(MemoryPoolIdleTest, CheckOfAPoolWithANegativeTimeOutGivesNothingBack) {
  CRealMemoryPool pool(kBlock, 1, 10, true, -1, false);
  pool.Start();
  const std::vector<void*> blocks = AllocAll(pool, 4);
  pool.Free(blocks[0]);
  pool.CheckIdleTimeout(0);
  LetPass(20);
  for (std::size_t i = 1; i < blocks.size(); ++i) pool.Free(blocks[i]);
  pool.OnCheckIdleTimeoutTask(1);
  EXPECT_EQ(4 * kBlock, pool.IdleSize());
}

TEST_F(MemoryPoolIdleTest, PoolMayEndWhileItsCheckIsDue) {
  for (int round = 0; round < ScaledLoad(200); ++round) {
    CRealMemoryPool pool(kBlock, 0, 10, true, 0, false);
    pool.Start();
    FreeAll(pool, AllocAll(pool, 10));
  }
}

/** Lends, marks, checks and returns; the number of blocks that were somebody else's. */
int UsePool(QIV_MemoryPool& pool, unsigned char mark, int rounds) {
  int mixedUp = 0;
  for (int round = 0; round < rounds; ++round) {
    unsigned char* blocks[4] = {};
    for (unsigned char*& block : blocks) {
      block = static_cast<unsigned char*>(pool.Alloc());
      if (block != nullptr) *block = mark;
    }
    for (unsigned char* const block : blocks) {
      if (block != nullptr && *block != mark) ++mixedUp;
      pool.Free(block);
    }
  }
  return mixedUp;
}

void LetThreadsUsePool(int noLock) {
  QIV_MemoryPool pool(kBlock, 1, 12, 1, 0, noLock);
  const int rounds = ScaledLoad(20000);
  std::vector<ThreadResult<int>> users;
  for (unsigned char mark = 1; mark <= 4; ++mark) {
    users.push_back(RunInThread([&pool, mark, rounds] { return UsePool(pool, mark, rounds); }));
  }
  for (ThreadResult<int>& user : users) EXPECT_EQ(0, user.Get());
  EXPECT_TRUE(Eventually([&] { return pool.Size() == kBlock; }));
  EXPECT_EQ(kBlock, pool.IdleSize());
}

TEST_F(MemoryPoolIdleTest, ThreadsShareAPoolWhileItGivesBlocksBack) { LetThreadsUsePool(0); }

TEST_F(MemoryPoolIdleTest, PoolWithATimeOutLocksThoughAskedNotTo) { LetThreadsUsePool(1); }

}  // namespace
}  // namespace qiv::test
