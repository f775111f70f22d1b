// How pools come and go.
#include <gtest/gtest.h>
#include <qiv/library.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/scoped_lock.h"
#include "support/captured_output.h"
#include "support/eventually.h"
#include "support/latch.h"
#include "support/run_in_thread.h"
#include "support/stopwatch.h"
#include "thread/thread_pool_fixture.h"

namespace qiv::thread {
namespace {

using test::CapturedOutput;
using test::Eventually;
using test::Latch;
using test::RunInThread;

constexpr std::size_t kMaxPools = 64;
// Of no use to a thread: none can be started with it.
constexpr unsigned int kTooSmallStack = 1;

unsigned int WorkerCount(QIV_HANDLE pool) {
  const base::ScopedLock lock(Record(pool)->mutex);
  return Record(pool)->nCurrCount;
}

using ThreadPoolTest = StartedLibraryTest;

TEST_F(ThreadPoolTest, MoreThan512WorkersAreRefusedWithAMessage) {
  CapturedOutput output(STDERR_FILENO);
  EXPECT_EQ(nullptr, QIV_ThreadPool_Create(0, 513));
  EXPECT_EQ(
      "zelmar !!! QIV_ThreadPool_Create nMaxCount > MAX_THREAD_PER_THREADPOOL error, return -1 "
      "1\n\n",
      output.Stop());
}

TEST_F(ThreadPoolTest, APoolOf512WorkersRuns512ItemsAtOnce) {
  constexpr unsigned int kStack = 0x20000;
  const QIV_HANDLE pool = QIV_ThreadPool_CreateEx(0, MAX_THREAD_PER_THREADPOOL, kStack);
  ASSERT_NE(nullptr, pool);
  Latch latch;
  for (unsigned int i = 0; i < MAX_THREAD_PER_THREADPOOL; ++i) {
    ASSERT_EQ(QIV_OK, QIV_ThreadPool_Work(pool, WaitForLatch, &latch)) << i;
  }
  EXPECT_EQ(512U, WorkerCount(pool));
  EXPECT_EQ(-1, QIV_ThreadPool_Work(pool, Nothing, nullptr));
  latch.Open();
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
}

TEST_F(ThreadPoolTest, The65thPoolIsRefusedUntilAnotherOneIsDestroyed) {
  std::vector<QIV_HANDLE> pools;
  for (std::size_t i = 0; i < kMaxPools; ++i) {
    pools.push_back(QIV_ThreadPool_Create(0, 1));
    ASSERT_NE(nullptr, pools.back());
  }
  CapturedOutput output(STDERR_FILENO);
  EXPECT_EQ(nullptr, QIV_ThreadPool_Create(0, 1));
  EXPECT_EQ("zelmar !!! QIV_ThreadPool_Create QIV_GetIdleThreadPool_Local error, return -1 2\n\n",
            output.Stop());
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pools[7]));
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pools[5]));
  EXPECT_EQ(pools[5], QIV_ThreadPool_Create(1, 1)) << "the lowest free record";
  EXPECT_EQ(pools[7], QIV_ThreadPool_Create(0, 1));
  for (const QIV_HANDLE pool : pools) EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
}

TEST_F(ThreadPoolTest, MoreInitialWorkersThanTheMaximumFailAndLeaveTheRecordFree) {
  const QIV_HANDLE first = QIV_ThreadPool_Create(0, 1);
  QIV_ThreadPool_Destroy(first);
  CapturedOutput output(STDERR_FILENO);
  EXPECT_EQ(nullptr, QIV_ThreadPool_Create(2, 1));
  EXPECT_EQ(
      "zelmar !!! QIV_CreateThread_Local (pThreadPool->nCurrCount == pThreadPool->nMaxCount) "
      "error, return -1, 1\n\n"
      "zelmar !!! QIV_InitThread_Local QIV_CreateThread_Local error, return -1 2\n\n"
      "zelmar !!! QIV_ThreadPool_Create QIV_InitThread_Local error, return -1 3\n\n",
      output.Stop());
  EXPECT_EQ(first, QIV_ThreadPool_Create(1, 1));
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(first));
}

TEST_F(ThreadPoolTest, AWorkerThatCannotStartMakesTheCreationFail) {
  CapturedOutput output(STDERR_FILENO);
  EXPECT_EQ(nullptr, QIV_ThreadPool_CreateEx(1, 1, kTooSmallStack));
  EXPECT_EQ(
      "zelmar !!! QIV_CreateThread_Local QIV_Thread_Create error, return -1 3\n\n"
      "zelmar !!! QIV_InitThread_Local QIV_CreateThread_Local error, return -1 2\n\n"
      "zelmar !!! QIV_ThreadPool_Create QIV_InitThread_Local error, return -1 3\n\n",
      output.Stop());
}

TEST_F(ThreadPoolTest, AWorkerThatCannotStartMakesTheSubmissionFailAndLeavesThePoolAsItWas) {
  const QIV_HANDLE pool = QIV_ThreadPool_CreateEx(0, 2, kTooSmallStack);
  ASSERT_NE(nullptr, pool);
  for (const int wait : {0, 1}) {
    CapturedOutput output(STDERR_FILENO);
    EXPECT_EQ(-1, QIV_ThreadPool_WorkEx(pool, Nothing, nullptr, wait));
    EXPECT_EQ("zelmar !!! QIV_CreateThread_Local QIV_Thread_Create error, return -1 3\n\n",
              output.Stop());
    EXPECT_EQ(0U, WorkerCount(pool));
    EXPECT_EQ(QIV_INVALID_ID, Record(pool)->threads[0].hThread);
    EXPECT_EQ(0, Record(pool)->threads[0].bIdle);
  }
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
}

TEST_F(ThreadPoolTest, APoolWithoutInitialWorkersStartsTheFirstOneWithTheFirstItem) {
  const QIV_HANDLE pool = QIV_ThreadPool_Create(0, 4);
  EXPECT_EQ(0U, WorkerCount(pool));
  Latch latch;
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Work(pool, WaitForLatch, &latch));
  EXPECT_EQ(1U, WorkerCount(pool));
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Work(pool, WaitForLatch, &latch));
  EXPECT_EQ(2U, WorkerCount(pool));
  latch.Open();
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
}

TEST_F(ThreadPoolTest, APoolOfNoWorkersCanBeMadeAndRefusesWork) {
  const QIV_HANDLE pool = QIV_ThreadPool_Create(0, 0);
  ASSERT_NE(nullptr, pool);
  EXPECT_EQ(-1, QIV_ThreadPool_Work(pool, Nothing, nullptr));
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
  EXPECT_EQ(nullptr, QIV_ThreadPool_Create(1, 0));
}

TEST_F(ThreadPoolTest, TheRecordHoldsWhatThePoolWasMadeWith) {
  const QIV_HANDLE pool = QIV_ThreadPool_CreateFlex(1, 3, 0x40000, 5000);
  EXPECT_EQ(0, Record(pool)->bQuit);
  EXPECT_EQ(3U, Record(pool)->nMaxCount);
  EXPECT_EQ(1U, Record(pool)->nInitCount);
  EXPECT_EQ(1U, WorkerCount(pool));
  EXPECT_EQ(0x40000U, Record(pool)->nStackSize);
  EXPECT_EQ(5000U, Record(pool)->nIdleTimeout);
  QIV_ThreadPool_Destroy(pool);

  const QIV_HANDLE ex = QIV_ThreadPool_CreateEx(0, 2, 0x50000);
  EXPECT_EQ(0x50000U, Record(ex)->nStackSize);
  EXPECT_EQ(QIV_INFINITE, Record(ex)->nIdleTimeout);
  QIV_ThreadPool_Destroy(ex);

  const QIV_HANDLE plain = QIV_ThreadPool_Create(0, 2);
  EXPECT_EQ(0U, Record(plain)->nStackSize);
  EXPECT_EQ(QIV_INFINITE, Record(plain)->nIdleTimeout);
  QIV_ThreadPool_Destroy(plain);
}

void* StoreStackSize(void* size) {
  pthread_attr_t attributes;
  pthread_getattr_np(pthread_self(), &attributes);
  pthread_attr_getstacksize(&attributes, static_cast<std::size_t*>(size));
  pthread_attr_destroy(&attributes);
  return nullptr;
}

TEST_F(ThreadPoolTest, WorkersHaveTheStackThatWasAskedForOr1MiB) {
  for (const unsigned int asked : {0U, 0x180000U}) {
    std::size_t size = 0;
    const QIV_HANDLE pool = QIV_ThreadPool_CreateEx(1, 1, asked);
    EXPECT_EQ(QIV_OK, QIV_ThreadPool_Work(pool, StoreStackSize, &size));
    EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
    EXPECT_EQ(asked == 0 ? 0x100000U : asked, size);
  }
}

TEST_F(ThreadPoolTest, DestroyWaitsForEveryRunningItem) {
  std::atomic<int> finished{0};
  Latch latch;
  struct Item {
    Latch* latch;
    std::atomic<int>* finished;
  } item = {&latch, &finished};
  const QIV_HANDLE pool = QIV_ThreadPool_Create(2, 3);
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(QIV_OK, QIV_ThreadPool_Work(
                          pool,
                          [](void* argument) -> void* {
                            const auto* const running = static_cast<Item*>(argument);
                            EXPECT_TRUE(running->latch->Wait());
                            ++*running->finished;
                            return nullptr;
                          },
                          &item));
  }
  auto destroyed = RunInThread([pool] { return QIV_ThreadPool_Destroy(pool); });
  EXPECT_FALSE(destroyed.IsReady());
  latch.Open();
  EXPECT_EQ(QIV_OK, destroyed.Get());
  EXPECT_EQ(3, finished);
}

TEST_F(ThreadPoolTest, DestroyOfNullIsRefusedWithAMessage) {
  CapturedOutput output(STDERR_FILENO);
  EXPECT_EQ(-1, QIV_ThreadPool_Destroy(nullptr));
  EXPECT_EQ("zelmar !!! QIV_ThreadPool_Destroy pThreadPool == NULL return\n\n", output.Stop());
}

TEST_F(ThreadPoolTest, ASecondDestroyIsRefused) {
  const QIV_HANDLE pool = QIV_ThreadPool_Create(1, 1);
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
  EXPECT_EQ(-1, QIV_ThreadPool_Destroy(pool));
}

TEST_F(ThreadPoolTest, DestroyByAWorkerOfThePoolIsRefused) {
  static std::atomic<int> s_result{0};
  s_result = 0;
  QIV_HANDLE pool = QIV_ThreadPool_Create(0, 1);
  ASSERT_EQ(QIV_OK, QIV_ThreadPool_Work(
                        pool,
                        [](void* own) -> void* {
                          s_result = QIV_ThreadPool_Destroy(own);
                          return nullptr;
                        },
                        pool));
  EXPECT_TRUE(Eventually([] { return s_result == -1; }));
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
}

TEST_F(ThreadPoolTest, OfSeveralThreadsThatDestroyAPoolOneSucceeds) {
  const QIV_HANDLE pool = QIV_ThreadPool_Create(4, 4);
  const auto destroy = [pool] { return QIV_ThreadPool_Destroy(pool); };
  auto first = RunInThread(destroy);
  auto second = RunInThread(destroy);
  EXPECT_EQ(-1, first.Get() + second.Get());
}

TEST_F(ThreadPoolTest, AnIdleWorkerBeyondTheInitialOnesEndsAfterTheIdleTimeout) {
  const QIV_HANDLE pool = QIV_ThreadPool_CreateFlex(1, 4, 0, 100);
  Latch latch;
  for (int i = 0; i < 4; ++i) {
    ASSERT_EQ(QIV_OK, QIV_ThreadPool_Work(pool, WaitForLatch, &latch));
  }
  EXPECT_EQ(4U, WorkerCount(pool));
  const test::Stopwatch stopwatch;
  latch.Open();
  EXPECT_TRUE(Eventually([pool] { return WorkerCount(pool) == 1; }));
  EXPECT_GE(stopwatch.Milliseconds(), 95);
  {
    const base::ScopedLock lock(Record(pool)->mutex);
    EXPECT_NE(QIV_INVALID_ID, Record(pool)->threads[0].hThread);
    for (int i = 1; i < 4; ++i) {
      const QIV_THREADPOOL_THREAD& slot = Record(pool)->threads[i];
      EXPECT_EQ(QIV_INVALID_ID, slot.hThread);
      EXPECT_EQ(0U, slot.nIndex);
      EXPECT_EQ(0, slot.bIdle);
      EXPECT_EQ(nullptr, slot.pThreadPool);
    }
  }
  std::atomic<int> count{0};
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Work(pool, Count, &count));
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
  EXPECT_EQ(1, count);
}

TEST_F(ThreadPoolTest, WorkersStayWithoutAnIdleTimeout) {
  const QIV_HANDLE pool = QIV_ThreadPool_CreateFlex(0, 2, 0, QIV_INFINITE);
  std::atomic<int> count{0};
  QIV_ThreadPool_Work(pool, Count, &count);
  EXPECT_TRUE(Eventually([&] { return count == 1; }));
  usleep(100 * 1000);
  EXPECT_EQ(1U, WorkerCount(pool));
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
}

TEST_F(ThreadPoolTest, TheStopLeavesOpenPoolsAloneAndSoDoesTheNextStart) {
  const QIV_HANDLE pool = QIV_ThreadPool_Create(1, 2);
  std::atomic<int> count{0};
  QIV_Fini();
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Work(pool, Count, &count));
  EXPECT_EQ(QIV_OK, QIV_Init());
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_WorkEx(pool, Count, &count, 1));
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
  EXPECT_EQ(2, count);
}

TEST_F(ThreadPoolTest, TheNextStartForgetsPoolsWithoutWorkers) {
  const QIV_HANDLE pool = QIV_ThreadPool_Create(0, 2);
  EXPECT_EQ(QIV_OK, QIV_FiniThreadPool_Inter());
  EXPECT_EQ(QIV_OK, QIV_InitThreadPool_Inter());
  EXPECT_EQ(-1, QIV_ThreadPool_Work(pool, Nothing, nullptr));
  EXPECT_EQ(-1, QIV_ThreadPool_Destroy(pool));
  EXPECT_EQ(pool, QIV_ThreadPool_Create(0, 1));
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
}

/** Pages in memory of the records that follow the pool's, which must be the first one. */
std::size_t ResidentPagesBehind(QIV_HANDLE pool) {
  const auto pageSize = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  const auto second = reinterpret_cast<std::uintptr_t>(Record(pool) + 1);
  const auto end = reinterpret_cast<std::uintptr_t>(Record(pool) + kMaxPools);
  const std::uintptr_t first = (second + pageSize - 1) / pageSize * pageSize;
  const std::size_t pages = (end - first) / pageSize;
  std::vector<unsigned char> resident(pages, 0);
  EXPECT_EQ(0, mincore(reinterpret_cast<void*>(first), pages * pageSize, resident.data()));
  std::size_t count = 0;
  for (const unsigned char page : resident) count += page & 1U;
  return count;
}

// In a fresh process, where no other test has used the records.
TEST(ThreadPoolDeathTest, RecordsThatWereNeverUsedTakeNoMemory) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        QIV_Init();
        const QIV_HANDLE pool = QIV_ThreadPool_Create(1, 4);
        const std::size_t pages = ResidentPagesBehind(pool);
        std::fprintf(stderr, "%zu pages\n", pages);
        QIV_ThreadPool_Destroy(pool);
        _exit(pages == 0 ? 0 : 1);
      },
      testing::ExitedWithCode(0), "0 pages");
}

TEST_F(ThreadPoolTest, ThePreparationOfTheTableLeavesPoolsAloneThatAreBeingMadeAndDestroyed) {
  std::atomic<bool> stop{false};
  auto preparing = RunInThread([&stop] {
    while (!stop) QIV_InitThreadPool_Inter();
    return true;
  });
  const int rounds = test::ScaledLoad(1000);
  for (int i = 0; i < rounds; ++i) {
    const QIV_HANDLE first = QIV_ThreadPool_Create(1, 1);
    const QIV_HANDLE second = QIV_ThreadPool_Create(1, 1);
    ASSERT_NE(first, second);
    ASSERT_EQ(QIV_OK, QIV_ThreadPool_Destroy(first));
    ASSERT_EQ(QIV_OK, QIV_ThreadPool_Destroy(second));
  }
  stop = true;
  EXPECT_TRUE(preparing.Get());
}

TEST_F(ThreadPoolTest, TheClassHoldsAHandleAndOwnsNothing) {
  std::atomic<int> count{0};
  QIV_ThreadPool copy;
  EXPECT_EQ(-1, copy.Work(Count, &count));
  EXPECT_EQ(-1, copy.Destroy());
  EXPECT_EQ(-1, copy.Create(2, 1));
  {
    QIV_ThreadPool pool;
    EXPECT_EQ(QIV_OK, pool.Create(1, 2));
    copy = pool;
  }
  QIV_ThreadPool second(copy);
  EXPECT_EQ(QIV_OK, second.Work(Count, &count));
  EXPECT_EQ(QIV_OK, copy.Destroy());
  EXPECT_EQ(1, count);
}

}  // namespace
}  // namespace qiv::thread
