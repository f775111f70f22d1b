#include <qiv/semaphore.h>
#include <qiv/thread.h>
#include <qiv/thread_pool_flex.h>
#include <qiv/time.h>

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <limits>
#include <memory>
#include <vector>

#include "support/failing_allocation.h"
#include "support/failing_thread_start.h"
#include "thread/thread_pool_flex_fixture.h"

namespace {

using qiv::test::Blocker;
using qiv::test::Eventually;
using qiv::test::FailingAllocation;
using qiv::test::FailingThreadStart;
using qiv::test::Job;
using qiv::test::Latch;
using qiv::test::RunJob;
using qiv::test::TestPool;

constexpr int kIntMax = std::numeric_limits<int>::max();
constexpr int kIntMin = std::numeric_limits<int>::min();

class ThreadPoolFlexTest : public qiv::test::LeakCheckedTest {};

// Creation.

TEST_F(ThreadPoolFlexTest, CreateRefusesWhatMakesNoPool) {
  const struct {
    const char* what;
    int maxThreads;
    void (*handler)(void*);
    int stackSize;
    bool made;
  } kRows[] = {
      {"least", 1, RunJob, 0, true},
      {"most of everything", kIntMax, RunJob, kIntMax, true},
      {"null handler", 1, nullptr, 0, false},
      {"no threads", 0, RunJob, 0, false},
      {"negative threads", -1, RunJob, 0, false},
      {"most negative threads", kIntMin, RunJob, 0, false},
      {"negative stack", 1, RunJob, -1, false},
      {"most negative stack", 1, RunJob, kIntMin, false},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.what);
    for (const auto create : {thrmgr_new, QIV_ThreadPoolFlex_Create}) {
      const QIV_HANDLE pool = create(row.maxThreads, 0, row.handler, row.stackSize);
      EXPECT_EQ(row.made, pool != nullptr);
      thrmgr_destroy(pool, 0);
    }
  }
}

TEST_F(ThreadPoolFlexTest, CreateStartsNoThread) {
  const int before = qiv::test::CountEntries("/proc/self/task");
  TestPool pool(4);
  EXPECT_EQ(before, qiv::test::CountEntries("/proc/self/task"));
  EXPECT_EQ(0, pool.Alive());
  EXPECT_EQ(0, pool.QueueSize());
}

TEST_F(ThreadPoolFlexTest, CreateGivesNullAtEachFailedAllocation) {
  for (int nth = 1; nth <= 2; ++nth) {  // the queue and the record
    SCOPED_TRACE(nth);
    const FailingAllocation failure(nth);
    EXPECT_EQ(nullptr, QIV_ThreadPoolFlex_Create(1, 0, RunJob, 0));
    EXPECT_TRUE(failure.Happened());
  }
  const FailingAllocation failure(3);
  TestPool pool(1);
  EXPECT_FALSE(failure.Happened());
}

// Stack size.

TEST_F(ThreadPoolFlexTest, StackSizeIsOneMebibyteForZeroAndAtLeast256Kibibytes) {
  const struct {
    int request;
    int stackSize;
  } kRows[] = {
      {0, 0x100000},        {1, 0x40000},       {4096, 0x40000},    {0x3FFFF, 0x40000},
      {0x40000, 0x40000},   {0x40001, 0x40001}, {0xFFFFF, 0xFFFFF}, {0x100000, 0x100000},
      {0x200000, 0x200000}, {kIntMax, kIntMax},
  };
  for (const auto& row : kRows) {
    TestPool pool(1, 0, row.request);
    EXPECT_EQ(row.stackSize, pool.Record().nStackSize) << row.request;
  }
}

TEST_F(ThreadPoolFlexTest, HandlerRunsOnAStackOfTheRaisedSize) {
  const struct {
    int request;
    std::size_t stackSize;
  } kRows[] = {{4096, 0x40000}, {0, 0x100000}, {0x280000, 0x280000}};
  for (const auto& row : kRows) {
    std::size_t stackSize = 0;
    std::size_t guardSize = 0;
    Job look = [&] {
      pthread_attr_t attributes;
      void* stack = nullptr;
      if (pthread_getattr_np(pthread_self(), &attributes) != 0) return;
      pthread_attr_getstack(&attributes, &stack, &stackSize);
      pthread_attr_getguardsize(&attributes, &guardSize);
      pthread_attr_destroy(&attributes);
    };
    TestPool pool(1, TestPool::kNoLimit, row.request);
    ASSERT_EQ(1, pool.Submit(look));
    pool.Destroy(TestPool::kNoLimit);
    // A platform may take the guard out of the stack.
    EXPECT_GE(stackSize + guardSize, row.stackSize) << row.request;
  }
}

// Submission.

TEST_F(ThreadPoolFlexTest, NullPoolIsRefused) {
  int data = 0;
  EXPECT_EQ(0, thrmgr_dispatch(nullptr, &data));
  EXPECT_EQ(-1, QIV_ThreadPoolFlex_Work(nullptr, &data));
  EXPECT_EQ(-1, thrmgr_getQSize(nullptr));
  thrmgr_destroy(nullptr, 0);
  EXPECT_EQ(0, QIV_ThreadPoolFlex_Destroy(nullptr));
  EXPECT_EQ(0, QIV_ThreadPoolFlex_DestroyEx(nullptr, -1));
}

std::atomic<int> g_handled{0};
std::atomic<void*> g_lastData{nullptr};

TEST_F(ThreadPoolFlexTest, HandlerIsCalledOncePerItemWithItsData) {
  int data = 0;
  for (void* const item : {static_cast<void*>(&data), static_cast<void*>(nullptr)}) {
    for (const bool isWork : {false, true}) {
      g_handled.store(0);
      g_lastData.store(&g_handled);
      const QIV_HANDLE pool = QIV_ThreadPoolFlex_Create(
          2, -1,
          [](void* given) {
            g_lastData.store(given);
            g_handled.fetch_add(1);
          },
          0);
      if (isWork) {
        EXPECT_EQ(0, QIV_ThreadPoolFlex_Work(pool, item));
      } else {
        EXPECT_EQ(1, thrmgr_dispatch(pool, item));
      }
      EXPECT_EQ(0, QIV_ThreadPoolFlex_DestroyEx(pool, -1));
      EXPECT_EQ(1, g_handled.load());
      EXPECT_EQ(item, g_lastData.load());
    }
  }
}

TEST_F(ThreadPoolFlexTest, QueueSizeCountsTheItemsThatNoWorkerHasTaken) {
  Blocker blocker;
  Job nothing = [] {};
  TestPool pool(1);
  ASSERT_EQ(1, pool.Submit(blocker.job));
  ASSERT_TRUE(blocker.WaitUntilStarted());
  for (int waiting = 0; waiting < 5; ++waiting) {
    EXPECT_EQ(waiting, pool.QueueSize());
    ASSERT_EQ(1, pool.Submit(nothing));
  }
  blocker.Release();
  EXPECT_TRUE(Eventually([&] { return pool.QueueSize() == 0; }));
}

TEST_F(ThreadPoolFlexTest, SubmissionIsRefusedWhile65535ItemsWait) {
  constexpr int kMost = 65535;
  Blocker blocker;
  std::atomic<int> handled{0};
  Job count = [&] { handled.fetch_add(1); };
  TestPool pool(1);
  ASSERT_EQ(1, pool.Submit(blocker.job));
  ASSERT_TRUE(blocker.WaitUntilStarted());
  for (int i = 0; i < kMost; ++i) ASSERT_EQ(1, pool.Submit(count)) << i;
  EXPECT_EQ(0, pool.Submit(count));
  EXPECT_EQ(-1, QIV_ThreadPoolFlex_Work(pool.Handle(), &count));
  EXPECT_EQ(kMost, pool.QueueSize());
  blocker.Release();
  ASSERT_TRUE(Eventually([&] { return pool.QueueSize() < kMost; }));
  EXPECT_EQ(1, pool.Submit(count));
  pool.Destroy(TestPool::kNoLimit);
  EXPECT_EQ(kMost + 1, handled.load());
}

TEST_F(ThreadPoolFlexTest, ItemIsRefusedWhenMemoryIsShort) {
  Job nothing = [] {};
  TestPool pool(1);
  {
    const FailingAllocation failure(1);
    EXPECT_EQ(0, pool.Submit(nothing));
    EXPECT_TRUE(failure.Happened());
  }
  EXPECT_EQ(0, pool.QueueSize());
  EXPECT_EQ(0, pool.Alive());
  const FailingAllocation failure(2);
  EXPECT_EQ(1, pool.Submit(nothing));
  EXPECT_FALSE(failure.Happened());
}

TEST_F(ThreadPoolFlexTest, HandlerMaySubmitToItsOwnPool) {
  Latch done;
  Job second = [&] { done.Open(); };
  Job first;
  TestPool pool(1);
  first = [&] { EXPECT_EQ(1, pool.Submit(second)); };
  ASSERT_EQ(1, pool.Submit(first));
  EXPECT_TRUE(done.Wait());
}

// Workers.

TEST_F(ThreadPoolFlexTest, WithOneThreadItemsAreHandledOneAfterAnotherInOrder) {
  constexpr int kItems = 500;
  std::vector<int> order;  // without a lock: the thread sanitizer would see two handlers at once
  std::vector<Job> jobs;
  for (int i = 0; i < kItems; ++i) jobs.emplace_back([&order, i] { order.push_back(i); });
  TestPool pool(1);
  for (Job& job : jobs) ASSERT_EQ(1, pool.Submit(job));
  pool.Destroy(TestPool::kNoLimit);
  ASSERT_EQ(kItems, static_cast<int>(order.size()));
  for (int i = 0; i < kItems; ++i) EXPECT_EQ(i, order[static_cast<std::size_t>(i)]);
}

TEST_F(ThreadPoolFlexTest, WorkersAreStartedOnDemandUpToTheMaximum) {
  Blocker blockers[5];
  TestPool pool(3);
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(1, pool.Submit(blockers[i].job));
    EXPECT_EQ(i + 1, pool.Alive());
    ASSERT_TRUE(blockers[i].WaitUntilStarted());
  }
  for (int i = 3; i < 5; ++i) ASSERT_EQ(1, pool.Submit(blockers[i].job));
  EXPECT_EQ(3, pool.Alive());
  EXPECT_EQ(2, pool.QueueSize());
  for (Blocker& blocker : blockers) blocker.Release();
  ASSERT_TRUE(blockers[4].WaitUntilStarted());
}

TEST_F(ThreadPoolFlexTest, IdleWorkerIsUsedBeforeAnotherIsStarted) {
  Job nothing = [] {};
  TestPool pool(4);
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(1, pool.Submit(nothing));
    ASSERT_TRUE(Eventually([&] { return pool.QueueSize() == 0 && pool.Idle() == 1; }));
    EXPECT_EQ(1, pool.Alive());
  }
}

TEST_F(ThreadPoolFlexTest, WorkerEndsWhenItHasWaitedForTheIdleTimeout) {
  constexpr int kIdleMs = 200;
  std::atomic<qiv_int64> handledAt{0};
  std::atomic<TestPool*> own{nullptr};
  std::atomic<int> aliveInHandler{0};
  Job note = [&] {
    aliveInHandler = own.load()->Alive();
    handledAt.store(QIV_GetTimeTick64());
  };
  TestPool pool(1, kIdleMs);
  own = &pool;
  for (int round = 0; round < 2; ++round) {  // a second worker is started after the first has gone
    handledAt = 0;
    ASSERT_EQ(1, pool.Submit(note));
    ASSERT_TRUE(Eventually([&] { return handledAt != 0 && pool.Alive() == 0; }));
    EXPECT_EQ(1, aliveInHandler);
    EXPECT_GE(QIV_GetTimeTick64() - handledAt.load(), kIdleMs * 95 / 100);
    EXPECT_EQ(0, pool.Idle());
  }
}

TEST_F(ThreadPoolFlexTest, WorkerWithoutIdleTimeoutStaysWhileOthersEnd) {
  for (const int negative : {-1, -2, kIntMin}) {
    Job nothing = [] {};
    TestPool pool(1, negative);
    EXPECT_EQ(static_cast<unsigned int>(negative), pool.Record().nIdleTimeout);
    ASSERT_EQ(1, pool.Submit(nothing));
    ASSERT_TRUE(Eventually([&] { return pool.Idle() == 1; }));
    const TestPool other(1, 50);
    EXPECT_EQ(1, other.Submit(nothing));
    EXPECT_TRUE(Eventually([&] { return other.Alive() == 0; }));
    EXPECT_EQ(1, pool.Alive());
  }
}

TEST_F(ThreadPoolFlexTest, WithAnIdleTimeoutOfZeroEveryItemIsHandled) {
  std::atomic<int> handled{0};
  Job count = [&] { handled.fetch_add(1); };
  TestPool pool(1, 0);
  for (int i = 1; i <= 100; ++i) {
    ASSERT_EQ(1, pool.Submit(count));
    ASSERT_TRUE(Eventually([&] { return handled.load() == i; }));
  }
  EXPECT_TRUE(Eventually([&] { return pool.Alive() == 0; }));
}

// Threads that do not start.

TEST_F(ThreadPoolFlexTest, ItemIsRefusedWhenTheFirstWorkerCannotBeStarted) {
  std::atomic<int> refused{0};
  std::atomic<int> accepted{0};
  Job count = [&] { accepted.fetch_add(1); };
  Job refusedJob = [&] { refused.fetch_add(1); };
  TestPool pool(2);
  {
    const FailingThreadStart failure;
    EXPECT_EQ(0, pool.Submit(refusedJob));
    EXPECT_EQ(-1, QIV_ThreadPoolFlex_Work(pool.Handle(), &refusedJob));
    EXPECT_EQ(2, FailingThreadStart::Count());
  }
  EXPECT_EQ(0, pool.QueueSize());
  EXPECT_EQ(0, pool.Alive());
  EXPECT_EQ(-1, QIV_SemTimedWait(&pool.Record().semWork, 0)) << "a post without an item";
  EXPECT_EQ(1, pool.Submit(count));
  pool.Destroy(TestPool::kNoLimit);
  EXPECT_EQ(1, accepted.load());
  EXPECT_EQ(0, refused.load());
}

TEST_F(ThreadPoolFlexTest, FailedStartIsIgnoredWhileAnotherWorkerIsAlive) {
  Blocker blocker;
  Latch handled;
  Job open = [&] { handled.Open(); };
  TestPool pool(2);
  ASSERT_EQ(1, pool.Submit(blocker.job));
  ASSERT_TRUE(blocker.WaitUntilStarted());
  {
    const FailingThreadStart failure;
    EXPECT_EQ(1, pool.Submit(open));
    EXPECT_EQ(1, FailingThreadStart::Count());
  }
  EXPECT_EQ(1, pool.QueueSize());
  EXPECT_EQ(1, pool.Alive());
  blocker.Release();
  EXPECT_TRUE(handled.Wait());
}

TEST_F(ThreadPoolFlexTest, HandlerThatEndsItsThreadIsReplacedWhileItemsWait) {
  Blocker blocker;
  Latch handled;
  Job end = [] { QIV_Thread_Exit(); };
  Job open = [&] { handled.Open(); };
  TestPool pool(1);
  ASSERT_EQ(1, pool.Submit(blocker.job));
  ASSERT_TRUE(blocker.WaitUntilStarted());
  ASSERT_EQ(1, pool.Submit(end));
  ASSERT_EQ(1, pool.Submit(open));
  blocker.Release();
  EXPECT_TRUE(handled.Wait());
  EXPECT_EQ(1, pool.Alive());
  ASSERT_EQ(1, pool.Submit(end));
  EXPECT_TRUE(Eventually([&] { return pool.Alive() == 0; }));
}

/** One item waits and there is no worker: a handler has ended the last one, and none could start.
 */
class AbandonedThreadPoolFlexTest : public qiv::test::LeakCheckedTest {
 protected:
  void SetUp() override {
    LeakCheckedTest::SetUp();
    ASSERT_EQ(1, m_pool.Submit(m_end));
    ASSERT_EQ(1, m_pool.Submit(m_older));
    m_failure = std::make_unique<FailingThreadStart>();
    m_mayEnd.Open();
    ASSERT_TRUE(Eventually([&] { return m_pool.Alive() == 0; }));
    ASSERT_EQ(1, m_pool.QueueSize());
  }

  void TearDown() override {
    m_pool.Destroy(0);
    LeakCheckedTest::TearDown();
  }

  Latch m_mayEnd;
  std::atomic<int> m_handled{0};
  Job m_end = [this] {
    EXPECT_TRUE(m_mayEnd.Wait());
    QIV_Thread_Exit();
  };
  Job m_older = [this] { m_handled.fetch_add(1); };
  std::unique_ptr<FailingThreadStart> m_failure;
  TestPool m_pool{1};
};

TEST_F(AbandonedThreadPoolFlexTest, RefusedItemIsTheSubmittedOneAndTheOlderOneStays) {
  int newerHandled = 0;
  Job newer = [&] { ++newerHandled; };
  EXPECT_EQ(0, m_pool.Submit(newer));
  EXPECT_EQ(1, m_pool.QueueSize());
  m_failure.reset();
  Job last = [] {};
  EXPECT_EQ(1, m_pool.Submit(last));
  m_pool.Destroy(TestPool::kNoLimit);
  EXPECT_EQ(1, m_handled.load());
  EXPECT_EQ(0, newerHandled);
}

TEST_F(AbandonedThreadPoolFlexTest, DestructionThatWaitsForTheQueueStartsAWorker) {
  m_failure.reset();
  m_pool.Destroy(TestPool::kNoLimit);
  EXPECT_EQ(1, m_handled.load());
}

TEST_F(AbandonedThreadPoolFlexTest, DestructionWithoutAWaitDropsTheItem) {
  m_pool.Destroy(0);
  EXPECT_EQ(0, m_handled.load());
}

}  // namespace
