// Flexible pools under load: no item is lost or handled twice, and pools come and go.
#include <qiv/thread_pool_flex.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "support/run_in_thread.h"
#include "thread/thread_pool_flex_fixture.h"

namespace {

using qiv::test::Blocker;
using qiv::test::Eventually;
using qiv::test::Job;
using qiv::test::Latch;
using qiv::test::RunInThread;
using qiv::test::ScaledLoad;

using Counter = std::atomic<unsigned char>;

void Count(void* counter) {
  static_cast<Counter*>(counter)->fetch_add(1, std::memory_order_relaxed);
}

class ThreadPoolFlexStressTest : public qiv::test::FlexPoolTest {
 protected:
  static constexpr int kSubmitters = 4;

  /** Every submitter submits its share of items; a full queue is tried again. */
  void ExpectEveryItemOnce(int maxThreads, int idleTimeout) {
    const auto share = static_cast<std::size_t>(ScaledLoad(100000));
    std::vector<Counter> counters(kSubmitters * share);
    m_pool = thrmgr_new(maxThreads, idleTimeout, Count, 0);
    ASSERT_NE(nullptr, m_pool);
    std::vector<std::thread> submitters;
    for (std::size_t i = 0; i < kSubmitters; ++i) {
      submitters.emplace_back([this, first = &counters[i * share], share] {
        for (std::size_t item = 0; item < share; ++item) {
          while (thrmgr_dispatch(m_pool, first + item) == 0) std::this_thread::yield();
        }
      });
    }
    for (std::thread& submitter : submitters) submitter.join();
    Destroy(kNoLimit);
    std::size_t wrong = 0;
    for (const Counter& counter : counters) wrong += counter.load() == 1 ? 0 : 1;
    EXPECT_EQ(0u, wrong) << "of " << counters.size();
  }
};

TEST_F(ThreadPoolFlexStressTest, FourSubmittersHaveEveryItemHandledOnce) {
  ExpectEveryItemOnce(4, kNoLimit);
}

TEST_F(ThreadPoolFlexStressTest, FourSubmittersAndWorkersThatEndSoonHaveEveryItemHandledOnce) {
  ExpectEveryItemOnce(4, 1);
}

TEST_F(ThreadPoolFlexStressTest, FourSubmittersAndOneWorkerHaveEveryItemHandledOnce) {
  ExpectEveryItemOnce(1, 1);
}

// An item may come just as the only worker gives up waiting.
TEST_F(ThreadPoolFlexStressTest, ItemThatMeetsTheEndOfTheOnlyWorkerIsHandled) {
  const int rounds = ScaledLoad(2000);
  for (const int idleTimeout : {0, 1}) {
    Create(1, idleTimeout);
    for (int round = 0; round < rounds; ++round) {
      Latch handled;
      Job open = [&] { handled.Open(); };
      ASSERT_EQ(1, Submit(open));
      ASSERT_TRUE(handled.Wait()) << "round " << round << ", idle time-out " << idleTimeout;
      const auto pause = idleTimeout * 1000 + round % 200 - 100;  // around the worker's end
      std::this_thread::sleep_for(std::chrono::microseconds(pause));
    }
    Destroy(0);
  }
}

TEST_F(ThreadPoolFlexStressTest, PoolsDestroyedAtOnceHandleEachItemAtMostOnce) {
  constexpr std::size_t kItems = 50;
  const int rounds = ScaledLoad(100);
  for (int round = 0; round < rounds; ++round) {
    std::vector<Counter> counters(kItems);
    m_pool = thrmgr_new(1 + round % 4, round % 3 - 1, Count, 0);
    for (Counter& counter : counters) ASSERT_EQ(1, thrmgr_dispatch(m_pool, &counter));
    Destroy(0);
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
    Create(1);
    ASSERT_EQ(1, Submit(blocker.job));
    ASSERT_TRUE(blocker.WaitUntilStarted());
    std::vector<std::thread> submitters;
    for (int i = 0; i < kSubmitters; ++i) {
      submitters.emplace_back([&] {
        // Not up to the full queue, which would refuse too.
        while (accepted.load() < 10000 && Submit(count) == 1) accepted.fetch_add(1);
      });
    }
    ASSERT_TRUE(Eventually([&] { return accepted.load() > 0; }));
    auto destroyed = RunInThread([this] { return QIV_ThreadPoolFlex_DestroyEx(m_pool, -1); });
    for (std::thread& submitter : submitters) submitter.join();
    blocker.Release();
    EXPECT_EQ(0, destroyed.Get());
    m_pool = nullptr;
    EXPECT_EQ(accepted.load(), handled.load());
  }
}

}  // namespace
