// The end of a flexible pool: what is waited for, what is dropped, who may ask for it.
#include <qiv/thread_pool_flex.h>

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <limits>
#include <thread>

#include "support/run_in_thread.h"
#include "support/stopwatch.h"
#include "thread/thread_pool_flex_fixture.h"

namespace {

using qiv::test::Blocker;
using qiv::test::Eventually;
using qiv::test::Job;
using qiv::test::Latch;
using qiv::test::RunInThread;
using qiv::test::Stopwatch;
using qiv::test::TestPool;

class ThreadPoolFlexDestroyTest : public qiv::test::LeakCheckedTest {
 protected:
  /** Makes the one worker busy with m_blocker; `count` items, which count their handling, wait. */
  void MakeBusy(const TestPool& pool, int count) {
    ASSERT_EQ(1, pool.Submit(m_blocker.job));
    ASSERT_TRUE(m_blocker.WaitUntilStarted());
    for (int i = 0; i < count; ++i) ASSERT_EQ(1, pool.Submit(m_count));
  }

  Blocker m_blocker;
  std::atomic<int> m_handled{0};
  Job m_count = [this] { m_handled.fetch_add(1); };
};

TEST_F(ThreadPoolFlexDestroyTest, WithoutAWaitQueuedItemsAreDroppedAndTheRunningHandlerFinishes) {
  for (const int timeout : {0, -2, std::numeric_limits<int>::min()}) {
    SCOPED_TRACE(timeout);
    Blocker blocker;
    TestPool pool(1);
    ASSERT_EQ(1, pool.Submit(blocker.job));
    ASSERT_TRUE(blocker.WaitUntilStarted());
    for (int i = 0; i < 5; ++i) ASSERT_EQ(1, pool.Submit(m_count));
    auto destroyed = pool.DestroyInThread(timeout);
    ASSERT_TRUE(pool.EventuallyInState(qiv::thread::kFlexExiting));
    EXPECT_FALSE(destroyed.IsReady());
    blocker.Release();
    EXPECT_EQ(0, destroyed.Get());
    EXPECT_TRUE(blocker.HasFinished());
    EXPECT_EQ(0, m_handled.load());
  }
}

TEST_F(ThreadPoolFlexDestroyTest, DestroyWithoutATimeoutDropsQueuedItems) {
  TestPool pool(1);
  MakeBusy(pool, 5);
  auto destroyed = RunInThread([&] { return QIV_ThreadPoolFlex_Destroy(pool.Handle()); });
  ASSERT_TRUE(pool.EventuallyInState(qiv::thread::kFlexExiting));
  m_blocker.Release();
  EXPECT_EQ(0, destroyed.Get());
  pool.Forget();
  EXPECT_EQ(0, m_handled.load());
}

TEST_F(ThreadPoolFlexDestroyTest, WithoutALimitItWaitsUntilTheQueueIsEmpty) {
  TestPool pool(1);
  MakeBusy(pool, 1000);
  auto destroyed = pool.DestroyInThread(-1);
  ASSERT_TRUE(pool.EventuallyInState(qiv::thread::kFlexDraining));
  m_blocker.Release();
  EXPECT_EQ(0, destroyed.Get());
  EXPECT_EQ(1000, m_handled.load());
}

TEST_F(ThreadPoolFlexDestroyTest, WithALimitThatSufficesEveryItemIsHandled) {
  TestPool pool(1);
  MakeBusy(pool, 1000);
  auto destroyed = pool.DestroyInThread(std::numeric_limits<int>::max());
  ASSERT_TRUE(pool.EventuallyInState(qiv::thread::kFlexDraining));
  m_blocker.Release();
  EXPECT_EQ(0, destroyed.Get());
  EXPECT_EQ(1000, m_handled.load());
}

TEST_F(ThreadPoolFlexDestroyTest, WhenTheLimitHasPassedTheItemsLeftAreDropped) {
  constexpr int kLimitMs = 100;
  TestPool pool(1);
  MakeBusy(pool, 5);
  const Stopwatch sinceBegin;
  auto destroyed = pool.DestroyInThread(kLimitMs);
  ASSERT_TRUE(pool.EventuallyInState(qiv::thread::kFlexExiting));
  EXPECT_GE(sinceBegin.Milliseconds(), 475) << "it looks every 500 ms";
  m_blocker.Release();
  EXPECT_EQ(0, destroyed.Get());
  EXPECT_EQ(0, m_handled.load());
}

TEST_F(ThreadPoolFlexDestroyTest, OnceItHasBegunItemsAreRefusedAndTheQueueSizeIsMinusOne) {
  TestPool pool(1);
  MakeBusy(pool, 1);
  auto destroyed = pool.DestroyInThread(-1);
  ASSERT_TRUE(Eventually([&] { return pool.QueueSize() == -1; }));
  EXPECT_EQ(0, pool.Submit(m_count));
  EXPECT_EQ(-1, QIV_ThreadPoolFlex_Work(pool.Handle(), &m_count));
  m_blocker.Release();
  EXPECT_EQ(0, destroyed.Get());
  EXPECT_EQ(1, m_handled.load());
}

TEST_F(ThreadPoolFlexDestroyTest, ItemsAreRefusedAndTheQueueSizeIsMinusOneWhileWorkersEnd) {
  TestPool pool(1);
  MakeBusy(pool, 1);
  auto destroyed = pool.DestroyInThread(0);
  ASSERT_TRUE(pool.EventuallyInState(qiv::thread::kFlexExiting));
  EXPECT_EQ(-1, pool.QueueSize());
  EXPECT_EQ(0, pool.Submit(m_count));
  m_blocker.Release();
  EXPECT_EQ(0, destroyed.Get());
  EXPECT_EQ(0, m_handled.load());
}

TEST_F(ThreadPoolFlexDestroyTest, SecondDestructionReturnsAtOnceWhileTheFirstIsUnderWay) {
  TestPool pool(1);
  MakeBusy(pool, 0);
  auto destroyed = pool.DestroyInThread(0);
  ASSERT_TRUE(pool.EventuallyInState(qiv::thread::kFlexExiting));
  EXPECT_EQ(0, QIV_ThreadPoolFlex_DestroyEx(pool.Handle(), -1));
  EXPECT_EQ(0, QIV_ThreadPoolFlex_Destroy(pool.Handle()));
  EXPECT_FALSE(destroyed.IsReady());
  m_blocker.Release();
  EXPECT_EQ(0, destroyed.Get());
}

TEST_F(ThreadPoolFlexDestroyTest, OwnHandlerCannotDestroyThePool) {
  Latch returned;
  Job destroy;
  TestPool pool(1);
  destroy = [&] {
    EXPECT_EQ(0, QIV_ThreadPoolFlex_DestroyEx(pool.Handle(), -1));
    EXPECT_EQ(0, QIV_ThreadPoolFlex_Destroy(pool.Handle()));
    returned.Open();
  };
  ASSERT_EQ(1, pool.Submit(destroy));
  ASSERT_TRUE(returned.Wait());
  EXPECT_EQ(0, pool.QueueSize());
  EXPECT_EQ(1, pool.Submit(m_count));
  pool.Destroy(-1);
  EXPECT_EQ(1, m_handled.load());
}

TEST_F(ThreadPoolFlexDestroyTest, HandlerMayDestroyAnotherPool) {
  TestPool other(1);
  ASSERT_EQ(1, other.Submit(m_count));
  Job destroy = [&] { other.Destroy(-1); };
  TestPool pool(1);
  ASSERT_EQ(1, pool.Submit(destroy));
  pool.Destroy(-1);
  EXPECT_EQ(1, m_handled.load());
}

TEST_F(ThreadPoolFlexDestroyTest, IdleWorkersEndWithoutWaitingForTheirTimeout) {
  Blocker blockers[4];
  TestPool pool(4, std::numeric_limits<int>::max());
  for (Blocker& blocker : blockers) {
    ASSERT_EQ(1, pool.Submit(blocker.job));
    ASSERT_TRUE(blocker.WaitUntilStarted());
  }
  for (Blocker& blocker : blockers) blocker.Release();
  ASSERT_TRUE(Eventually([&] { return pool.Idle() == 4; }));
  const Stopwatch stopwatch;
  EXPECT_EQ(0, pool.DestroyInThread(0).Get());
  EXPECT_GE(stopwatch.Milliseconds(), 9) << "the pause behind the last worker";
}

TEST_F(ThreadPoolFlexDestroyTest, PoolThatNeverHadAWorkerIsDestroyed) {
  for (const int timeout : {0, -1, 1, -2}) {
    TestPool pool(1);
    EXPECT_EQ(0, QIV_ThreadPoolFlex_DestroyEx(pool.Handle(), timeout));
    pool.Forget();
  }
}

TEST_F(ThreadPoolFlexDestroyTest, CallThatHasBegunIsWaitedFor) {
  TestPool pool(1);
  pool.Record().nCallers.fetch_add(1);  // as a call does that is interrupted in its first step
  auto destroyed = pool.DestroyInThread(0);
  ASSERT_TRUE(pool.EventuallyInState(qiv::thread::kFlexExiting));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(destroyed.IsReady());
  pool.Record().nCallers.fetch_sub(1);
  EXPECT_EQ(0, destroyed.Get());
}

TEST_F(ThreadPoolFlexDestroyTest, CancellationDoesNotInterruptIt) {
  TestPool pool(1);
  MakeBusy(pool, 3);
  auto destroyed = RunInThread([&] {
    pthread_cancel(pthread_self());
    const int result = QIV_ThreadPoolFlex_DestroyEx(pool.Handle(), -1);
    int ignored = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);  // the thread itself goes on
    return result;
  });
  ASSERT_TRUE(pool.EventuallyInState(qiv::thread::kFlexDraining));
  m_blocker.Release();
  EXPECT_EQ(0, destroyed.Get());
  pool.Forget();
  EXPECT_EQ(3, m_handled.load());
}

}  // namespace
