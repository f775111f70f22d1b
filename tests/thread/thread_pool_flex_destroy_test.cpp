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
using qiv::test::RunJob;
using qiv::test::Stopwatch;

class ThreadPoolFlexDestroyTest : public qiv::test::FlexPoolTest {
 protected:
  /** One worker is busy with m_blocker, and `count` items that count their handling wait. */
  void CreateBusy(int count) {
    Create(1);
    ASSERT_EQ(1, Submit(m_blocker.job));
    ASSERT_TRUE(m_blocker.WaitUntilStarted());
    for (int i = 0; i < count; ++i) ASSERT_EQ(1, Submit(m_count));
  }

  /** Begins the destruction on a thread of its own; m_pool stays to look at. */
  auto DestroyInThread(int timeout) {
    return RunInThread([this, timeout] { return QIV_ThreadPoolFlex_DestroyEx(m_pool, timeout); });
  }

  [[nodiscard]] bool EventuallyInState(qiv::thread::FlexState state) {
    return Eventually([this, state] { return Record().Is(state); });
  }

  Blocker m_blocker;
  std::atomic<int> m_handled{0};
  Job m_count = [this] { m_handled.fetch_add(1); };
};

TEST_F(ThreadPoolFlexDestroyTest, WithoutAWaitQueuedItemsAreDroppedAndTheRunningHandlerFinishes) {
  for (const int timeout : {0, -2, std::numeric_limits<int>::min()}) {
    SCOPED_TRACE(timeout);
    Blocker blocker;
    Create(1);
    ASSERT_EQ(1, Submit(blocker.job));
    ASSERT_TRUE(blocker.WaitUntilStarted());
    for (int i = 0; i < 5; ++i) ASSERT_EQ(1, Submit(m_count));
    auto destroyed = DestroyInThread(timeout);
    ASSERT_TRUE(EventuallyInState(qiv::thread::kFlexExiting));
    EXPECT_FALSE(destroyed.IsReady());
    blocker.Release();
    EXPECT_EQ(0, destroyed.Get());
    m_pool = nullptr;
    EXPECT_TRUE(blocker.HasFinished());
    EXPECT_EQ(0, m_handled.load());
  }
}

TEST_F(ThreadPoolFlexDestroyTest, DestroyWithoutATimeoutDropsQueuedItems) {
  CreateBusy(5);
  auto destroyed = RunInThread([this] { return QIV_ThreadPoolFlex_Destroy(m_pool); });
  ASSERT_TRUE(EventuallyInState(qiv::thread::kFlexExiting));
  m_blocker.Release();
  EXPECT_EQ(0, destroyed.Get());
  m_pool = nullptr;
  EXPECT_EQ(0, m_handled.load());
}

TEST_F(ThreadPoolFlexDestroyTest, WithoutALimitItWaitsUntilTheQueueIsEmpty) {
  CreateBusy(1000);
  auto destroyed = DestroyInThread(-1);
  ASSERT_TRUE(EventuallyInState(qiv::thread::kFlexDraining));
  m_blocker.Release();
  EXPECT_EQ(0, destroyed.Get());
  m_pool = nullptr;
  EXPECT_EQ(1000, m_handled.load());
}

TEST_F(ThreadPoolFlexDestroyTest, WithALimitThatSufficesEveryItemIsHandled) {
  CreateBusy(1000);
  auto destroyed = DestroyInThread(std::numeric_limits<int>::max());
  ASSERT_TRUE(EventuallyInState(qiv::thread::kFlexDraining));
  m_blocker.Release();
  EXPECT_EQ(0, destroyed.Get());
  m_pool = nullptr;
  EXPECT_EQ(1000, m_handled.load());
}

TEST_F(ThreadPoolFlexDestroyTest, WhenTheLimitHasPassedTheItemsLeftAreDropped) {
  constexpr int kLimitMs = 600;
  CreateBusy(5);
  const Stopwatch sinceBegin;
  auto destroyed = DestroyInThread(kLimitMs);
  ASSERT_TRUE(EventuallyInState(qiv::thread::kFlexExiting));
  EXPECT_GE(sinceBegin.Milliseconds(), kLimitMs * 95 / 100);
  m_blocker.Release();
  EXPECT_EQ(0, destroyed.Get());
  m_pool = nullptr;
  EXPECT_EQ(0, m_handled.load());
}

TEST_F(ThreadPoolFlexDestroyTest, OnceItHasBegunItemsAreRefusedAndTheQueueSizeIsMinusOne) {
  CreateBusy(1);
  auto destroyed = DestroyInThread(-1);
  ASSERT_TRUE(Eventually([this] { return QueueSize() == -1; }));
  EXPECT_EQ(0, Submit(m_count));
  EXPECT_EQ(-1, QIV_ThreadPoolFlex_Work(m_pool, &m_count));
  m_blocker.Release();
  EXPECT_EQ(0, destroyed.Get());
  m_pool = nullptr;
  EXPECT_EQ(1, m_handled.load());
}

TEST_F(ThreadPoolFlexDestroyTest, ItemsAreRefusedAndTheQueueSizeIsMinusOneWhileWorkersEnd) {
  CreateBusy(1);
  auto destroyed = DestroyInThread(0);
  ASSERT_TRUE(EventuallyInState(qiv::thread::kFlexExiting));
  EXPECT_EQ(-1, QueueSize());
  EXPECT_EQ(0, Submit(m_count));
  m_blocker.Release();
  EXPECT_EQ(0, destroyed.Get());
  m_pool = nullptr;
  EXPECT_EQ(0, m_handled.load());
}

TEST_F(ThreadPoolFlexDestroyTest, SecondDestructionReturnsAtOnceWhileTheFirstIsUnderWay) {
  CreateBusy(0);
  auto destroyed = DestroyInThread(0);
  ASSERT_TRUE(EventuallyInState(qiv::thread::kFlexExiting));
  EXPECT_EQ(0, QIV_ThreadPoolFlex_DestroyEx(m_pool, -1));
  EXPECT_EQ(0, QIV_ThreadPoolFlex_Destroy(m_pool));
  EXPECT_FALSE(destroyed.IsReady());
  m_blocker.Release();
  EXPECT_EQ(0, destroyed.Get());
  m_pool = nullptr;
}

TEST_F(ThreadPoolFlexDestroyTest, OwnHandlerCannotDestroyThePool) {
  Latch returned;
  Job destroy = [&] {
    EXPECT_EQ(0, QIV_ThreadPoolFlex_DestroyEx(m_pool, -1));
    EXPECT_EQ(0, QIV_ThreadPoolFlex_Destroy(m_pool));
    returned.Open();
  };
  Create(1);
  ASSERT_EQ(1, Submit(destroy));
  ASSERT_TRUE(returned.Wait());
  EXPECT_EQ(0, QueueSize());
  EXPECT_EQ(1, Submit(m_count));
  Destroy(-1);
  EXPECT_EQ(1, m_handled.load());
}

TEST_F(ThreadPoolFlexDestroyTest, HandlerMayDestroyAnotherPool) {
  const QIV_HANDLE other = thrmgr_new(1, -1, RunJob, 0);
  ASSERT_EQ(1, thrmgr_dispatch(other, &m_count));
  Job destroy = [&] { EXPECT_EQ(0, QIV_ThreadPoolFlex_DestroyEx(other, -1)); };
  Create(1);
  ASSERT_EQ(1, Submit(destroy));
  Destroy(-1);
  EXPECT_EQ(1, m_handled.load());
}

TEST_F(ThreadPoolFlexDestroyTest, IdleWorkersEndWithoutWaitingForTheirTimeout) {
  Blocker blockers[4];
  Create(4, std::numeric_limits<int>::max());
  for (Blocker& blocker : blockers) {
    ASSERT_EQ(1, Submit(blocker.job));
    ASSERT_TRUE(blocker.WaitUntilStarted());
  }
  for (Blocker& blocker : blockers) blocker.Release();
  ASSERT_TRUE(Eventually([this] { return IdleWorkers() == 4; }));
  EXPECT_EQ(0, DestroyInThread(0).Get());
  m_pool = nullptr;
}

TEST_F(ThreadPoolFlexDestroyTest, PoolThatNeverHadAWorkerIsDestroyed) {
  for (const int timeout : {0, -1, 1, -2}) {
    Create(1);
    EXPECT_EQ(0, QIV_ThreadPoolFlex_DestroyEx(m_pool, timeout));
    m_pool = nullptr;
  }
}

TEST_F(ThreadPoolFlexDestroyTest, CallThatHasBegunIsWaitedFor) {
  Create(1);
  Record().nCallers.fetch_add(1);  // as a call does that is interrupted in its first step
  auto destroyed = DestroyInThread(0);
  ASSERT_TRUE(EventuallyInState(qiv::thread::kFlexExiting));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(destroyed.IsReady());
  Record().nCallers.fetch_sub(1);
  EXPECT_EQ(0, destroyed.Get());
  m_pool = nullptr;
}

TEST_F(ThreadPoolFlexDestroyTest, CancellationDoesNotInterruptIt) {
  CreateBusy(3);
  auto destroyed = RunInThread([this] {
    pthread_cancel(pthread_self());
    const int result = QIV_ThreadPoolFlex_DestroyEx(m_pool, -1);
    int ignored = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);  // the thread itself goes on
    return result;
  });
  ASSERT_TRUE(EventuallyInState(qiv::thread::kFlexDraining));
  m_blocker.Release();
  EXPECT_EQ(0, destroyed.Get());
  m_pool = nullptr;
  EXPECT_EQ(3, m_handled.load());
}

}  // namespace
