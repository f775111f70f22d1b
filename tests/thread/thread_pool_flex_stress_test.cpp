// Flexible pools under load: no item is lost or handled twice, and pools come and go.
#include <qiv/semaphore.h>
#include <qiv/thread_pool_flex.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "sync/semaphore_wait.h"
#include "thread/thread_pool_flex_fixture.h"

namespace {

using qiv::test::Blocker;
using qiv::test::Eventually;
using qiv::test::Job;
using qiv::test::ScaledLoad;
using qiv::test::TestPool;

using Counter = std::atomic<unsigned char>;

void Count(void* counter) {
  static_cast<Counter*>(counter)->fetch_add(1, std::memory_order_relaxed);
}

class ThreadPoolFlexStressTest : public qiv::test::LeakCheckedTest {
 protected:
  static constexpr int kSubmitters = 4;

  /** Every submitter submits its share of items; a full queue is tried again. */
  static void ExpectEveryItemOnce(int maxThreads, int idleTimeout) {
    const auto share = static_cast<std::size_t>(ScaledLoad(100000));
    std::vector<Counter> counters(kSubmitters * share);
    TestPool pool(maxThreads, idleTimeout, 0, Count);
    std::vector<std::thread> submitters;
    for (std::size_t i = 0; i < kSubmitters; ++i) {
      submitters.emplace_back([&pool, first = &counters[i * share], share] {
        for (std::size_t item = 0; item < share; ++item) {
          while (thrmgr_dispatch(pool.Handle(), first + item) == 0) std::this_thread::yield();
        }
      });
    }
    for (std::thread& submitter : submitters) submitter.join();
    pool.Destroy(TestPool::kNoLimit);
    std::size_t wrong = 0;
    for (const Counter& counter : counters) wrong += counter.load() == 1 ? 0 : 1;
    EXPECT_EQ(0u, wrong) << "of " << counters.size();
  }
};

TEST_F(ThreadPoolFlexStressTest, FourSubmittersHaveEveryItemHandledOnce) {
  ExpectEveryItemOnce(4, TestPool::kNoLimit);
}

TEST_F(ThreadPoolFlexStressTest, FourSubmittersAndWorkersThatEndSoonHaveEveryItemHandledOnce) {
  ExpectEveryItemOnce(4, 1);
}

TEST_F(ThreadPoolFlexStressTest, FourSubmittersAndOneWorkerHaveEveryItemHandledOnce) {
  ExpectEveryItemOnce(1, 1);
}

// An item may come just as the only worker gives up waiting. Threads that ask for the size of the
// queue make the worker and the submitter meet at the mutex.
TEST_F(ThreadPoolFlexStressTest, ItemThatMeetsTheEndOfTheOnlyWorkerIsHandled) {
  const int rounds = ScaledLoad(2000);
  const auto limit = static_cast<unsigned int>(qiv::test::TestLimit().count());
  sem_t handled;
  ASSERT_EQ(0, QIV_SemCreate(&handled, 0));
  Job post = [&] { QIV_SemPost(&handled); };
  for (const int idleTimeout : {0, 1}) {
    TestPool pool(1, idleTimeout);
    std::atomic<bool> stop{false};
    std::vector<std::thread> askers;
    for (int i = 0; i < 2; ++i) {
      askers.emplace_back([&] {
        while (!stop.load()) pool.QueueSize();
      });
    }
    int round = 0;
    for (; round < rounds; ++round) {
      EXPECT_EQ(1, pool.Submit(post));
      if (!qiv::sync::WaitForSemaphore(&handled, limit)) break;
      const auto pause = idleTimeout * 1000 + round % 200 - 100;  // around the worker's end
      std::this_thread::sleep_for(std::chrono::microseconds(pause));
    }
    EXPECT_EQ(rounds, round) << "an item was lost; idle time-out " << idleTimeout;
    stop.store(true);
    for (std::thread& asker : askers) asker.join();
  }
  EXPECT_EQ(0, QIV_SemDestroy(&handled));
}

TEST_F(ThreadPoolFlexStressTest, PoolsDestroyedAtOnceHandleEachItemAtMostOnce) {
  constexpr std::size_t kItems = 50;
  const int rounds = ScaledLoad(100);
  for (int round = 0; round < rounds; ++round) {
    std::vector<Counter> counters(kItems);
    TestPool pool(1 + round % 4, round % 3 - 1, 0, Count);
    for (Counter& counter : counters) ASSERT_EQ(1, thrmgr_dispatch(pool.Handle(), &counter));
    pool.Destroy(0);
    for (const Counter& counter : counters) EXPECT_LE(counter.load(), 1);
  }
}

TEST_F(ThreadPoolFlexStressTest, SubmittersAreRefusedWhenTheDestructionBegins) {
  const int rounds = ScaledLoad(20);
  for (int round = 0; round < rounds; ++round) {
    std::atomic<int> accepted{0};
    std::atomic<int> handled{0};
    Job count = [&] { handled.fetch_add(1); };
    Blocker blocker;
    TestPool pool(1);
    ASSERT_EQ(1, pool.Submit(blocker.job));
    ASSERT_TRUE(blocker.WaitUntilStarted());
    std::vector<std::thread> submitters;
    for (int i = 0; i < kSubmitters; ++i) {
      submitters.emplace_back([&] {
        // Not up to the full queue, which would refuse too.
        while (accepted.load() < 10000 && pool.Submit(count) == 1) accepted.fetch_add(1);
      });
    }
    ASSERT_TRUE(Eventually([&] { return accepted.load() > 0; }));
    auto destroyed = pool.DestroyInThread(TestPool::kNoLimit);
    for (std::thread& submitter : submitters) submitter.join();
    blocker.Release();
    EXPECT_EQ(0, destroyed.Get());
    EXPECT_EQ(accepted.load(), handled.load());
  }
}

}  // namespace
