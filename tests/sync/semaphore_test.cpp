#include <qiv/semaphore.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/interrupting_signals.h"
#include "support/latch.h"
#include "support/leak_check.h"
#include "support/run_in_thread.h"

namespace {

using qiv::test::InterruptingSignals;
using qiv::test::Latch;
using qiv::test::RunInThread;
using Clock = std::chrono::steady_clock;

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double LimitMs() { return static_cast<double>(qiv::test::TestLimit().count()); }

constexpr int kAttempts = 8;

// The least of some times: a loaded machine lengthens a few of them, a wrong wait all.
template <class Function>
double BestOf(Function millisecondsOfAttempt) {
  double best = millisecondsOfAttempt();
  for (int i = 1; i < kAttempts; ++i) best = std::min(best, millisecondsOfAttempt());
  return best;
}

// Waits in vain under a storm of signals, anew when a loaded machine let none through.
template <class Wait>
void ExpectSignalsLetItWait(int ms, Wait wait) {
  const InterruptingSignals signals(std::chrono::milliseconds(1));
  InterruptingSignals::WaitForTheFirst();
  int came = 0;
  for (int i = 0; i < kAttempts && came == 0; ++i) {
    const int before = InterruptingSignals::Count();
    const auto start = Clock::now();
    EXPECT_EQ(-1, wait(ms));
    EXPECT_GE(MillisecondsSince(start), ms * 0.95);
    EXPECT_LT(MillisecondsSince(start), LimitMs());
    came = InterruptingSignals::Count() - before;
  }
  EXPECT_GT(came, 0);
}

class SemaphoreTest : public qiv::test::LeakCheckedTest {
 protected:
  void SetUp() override {
    LeakCheckedTest::SetUp();
    ASSERT_EQ(0, QIV_SemCreate(&m_sem, 0));
  }
  void TearDown() override {
    EXPECT_EQ(0, QIV_SemDestroy(&m_sem));
    LeakCheckedTest::TearDown();
  }
  int Count() {
    int count = -1;
    sem_getvalue(&m_sem, &count);
    return count;
  }
  sem_t m_sem;
};

TEST_F(SemaphoreTest, EveryFunctionRefusesNull) {
  EXPECT_EQ(-1, QIV_SemCreate(nullptr, 0));
  EXPECT_EQ(-1, QIV_SemDestroy(nullptr));
  EXPECT_EQ(-1, QIV_SemWait(nullptr));
  EXPECT_EQ(-1, QIV_SemTimedWait(nullptr, 0));
  EXPECT_EQ(-1, QIV_SemTimedWait(nullptr, 10));
  EXPECT_EQ(-1, QIV_SemPost(nullptr));
}

TEST_F(SemaphoreTest, CreateSetsTheCount) {
  sem_t sem;
  ASSERT_EQ(0, QIV_SemCreate(&sem, 2));
  EXPECT_EQ(0, QIV_SemWait(&sem));
  EXPECT_EQ(0, QIV_SemTimedWait(&sem, 0));
  EXPECT_EQ(-1, QIV_SemTimedWait(&sem, 0));
  EXPECT_EQ(0, QIV_SemDestroy(&sem));
}

TEST_F(SemaphoreTest, CreateWithACountAboveThePlatformsLimitFails) {
  sem_t sem;
  EXPECT_EQ(-1, QIV_SemCreate(&sem, static_cast<unsigned int>(SEM_VALUE_MAX) + 1));
}

TEST_F(SemaphoreTest, PostAtThePlatformsLimitFails) {
  sem_t sem;
  ASSERT_EQ(0, QIV_SemCreate(&sem, SEM_VALUE_MAX));
  EXPECT_EQ(-1, QIV_SemPost(&sem));
  EXPECT_EQ(0, QIV_SemDestroy(&sem));
}

TEST_F(SemaphoreTest, WaitBlocksUntilAPost) {
  Latch waiting;
  auto result = RunInThread([&] {
    waiting.Open();
    return QIV_SemWait(&m_sem);
  });
  ASSERT_TRUE(waiting.Wait());
  EXPECT_FALSE(result.IsReady());
  ASSERT_EQ(0, QIV_SemPost(&m_sem));
  EXPECT_EQ(0, result.Get());
  EXPECT_EQ(0, Count());
}

TEST_F(SemaphoreTest, WaitGoesOnAfterSignals) {
  const InterruptingSignals signals(std::chrono::milliseconds(1));
  auto post = RunInThread([&] {
    while (InterruptingSignals::Count() < 20) std::this_thread::yield();
    return QIV_SemPost(&m_sem);
  });
  EXPECT_EQ(0, QIV_SemWait(&m_sem));
  EXPECT_GE(InterruptingSignals::Count(), 20);
  EXPECT_EQ(0, post.Get());
}

TEST_F(SemaphoreTest, TimedWaitOfZeroOnAZeroSemaphoreFailsAtOnce) {
  const double best = BestOf([&] {
    const auto start = Clock::now();
    EXPECT_EQ(-1, QIV_SemTimedWait(&m_sem, 0));
    return MillisecondsSince(start);
  });
  EXPECT_LT(best, 5) << "less than a step of the polling";
}

TEST_F(SemaphoreTest, TimedWaitFailsAfterItsTime) {
  const double best = BestOf([&] {
    const auto start = Clock::now();
    EXPECT_EQ(-1, QIV_SemTimedWait(&m_sem, 50));
    return MillisecondsSince(start);
  });
  EXPECT_GE(best, 50 * 0.95);
  EXPECT_LT(best, 100);
}

TEST_F(SemaphoreTest, TimedWaitOfOneMillisecondIsKeptAtOneStepOfPolling) {
  const auto start = Clock::now();
  EXPECT_EQ(-1, QIV_SemTimedWait(&m_sem, 1));
  EXPECT_GE(MillisecondsSince(start), 10 * 0.95);
}

TEST_F(SemaphoreTest, TimedWaitReturnsZeroWhenPostedDuringTheWait) {
  for (const unsigned int ms : {1000000u, QIV_INFINITE}) {
    Latch waiting;
    auto result = RunInThread([&] {
      waiting.Open();
      return QIV_SemTimedWait(&m_sem, ms);
    });
    ASSERT_TRUE(waiting.Wait());
    ASSERT_EQ(0, QIV_SemPost(&m_sem));
    EXPECT_EQ(0, result.Get());
  }
}

TEST_F(SemaphoreTest, TimedWaitReturnsSoonAfterThePost) {
  const double best = BestOf([&] {
    Latch waiting;
    auto returned = RunInThread([&] {
      waiting.Open();
      EXPECT_EQ(0, QIV_SemTimedWait(&m_sem, 1000000));
      return Clock::now();
    });
    EXPECT_TRUE(waiting.Wait());
    // Nothing tells that the polling has begun. A post that comes before only makes a good attempt.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const auto posted = Clock::now();
    EXPECT_EQ(0, QIV_SemPost(&m_sem));
    return std::chrono::duration<double, std::milli>(returned.Get() - posted).count();
  });
  EXPECT_LT(best, 50);
}

TEST_F(SemaphoreTest, TimedWaitIsNotEndedBySignals) {
  ExpectSignalsLetItWait(
      40, [&](int ms) { return QIV_SemTimedWait(&m_sem, static_cast<unsigned int>(ms)); });
}

TEST_F(SemaphoreTest, EveryPostLetsOneOfManyWaitersGoOn) {
  const int posts = qiv::test::ScaledLoad(20000);
  constexpr int kWaiters = 4;
  std::atomic<int> taken{0};
  std::vector<std::thread> waiters;
  waiters.reserve(kWaiters);
  for (int i = 0; i < kWaiters; ++i) {
    waiters.emplace_back([&] {
      while (QIV_SemWait(&m_sem) == 0 && taken.fetch_add(1, std::memory_order_relaxed) < posts) {
      }
    });
  }
  for (int i = 0; i < posts + kWaiters; ++i) ASSERT_EQ(0, QIV_SemPost(&m_sem));
  for (std::thread& waiter : waiters) waiter.join();
  EXPECT_EQ(posts + kWaiters, taken.load(std::memory_order_relaxed));
  EXPECT_EQ(0, Count());
}

class SemaTest : public qiv::test::LeakCheckedTest {};

int Drain(QIV_Sema& sema) {
  int count = 0;
  while (sema.TimedWait(0) == 0) ++count;
  return count;
}

TEST_F(SemaTest, PostAtTheMaximumFailsAndLeavesTheCount) {
  QIV_Sema sema(0, 2);
  EXPECT_EQ(0, sema.Post());
  EXPECT_EQ(0, sema.Post());
  EXPECT_EQ(-1, sema.Post());
  EXPECT_EQ(2, Drain(sema));
  EXPECT_EQ(0, sema.Post());
}

TEST_F(SemaTest, InitialCountAboveTheMaximumOnlyRefusesPosts) {
  QIV_Sema sema(3, 2);
  EXPECT_EQ(-1, sema.Post());
  EXPECT_EQ(3, Drain(sema));
}

TEST_F(SemaTest, MaximumOfZeroRefusesEveryPost) {
  QIV_Sema sema(0, 0);
  EXPECT_EQ(-1, sema.Post());
}

TEST_F(SemaTest, InitialCountThatThePlatformRefusesIsZero) {
  QIV_Sema sema(UINT_MAX, UINT_MAX);
  EXPECT_EQ(-1, sema.TimedWait(0));
  EXPECT_EQ(0, sema.Post());
  EXPECT_EQ(0, sema.Wait());
}

TEST_F(SemaTest, WaitBlocksUntilAPost) {
  QIV_Sema sema(0, 1);
  Latch waiting;
  auto result = RunInThread([&] {
    waiting.Open();
    return sema.Wait();
  });
  ASSERT_TRUE(waiting.Wait());
  ASSERT_EQ(0, sema.Post());
  EXPECT_EQ(0, result.Get());
}

TEST_F(SemaTest, ManyPostersNeverPassTheMaximum) {
  constexpr unsigned int kMaximum = 3;
  QIV_Sema sema(0, kMaximum);
  const int attempts = qiv::test::ScaledLoad(20000);
  std::atomic<int> posted{0};
  constexpr int kPosters = 4;
  std::vector<std::thread> posters;
  posters.reserve(kPosters);
  for (int i = 0; i < kPosters; ++i) {
    posters.emplace_back([&] {
      for (int attempt = 0; attempt < attempts; ++attempt) {
        if (sema.Post() == 0) posted.fetch_add(1, std::memory_order_relaxed);
      }
    });
  }
  for (std::thread& poster : posters) poster.join();
  EXPECT_EQ(static_cast<int>(kMaximum), posted.load(std::memory_order_relaxed));
  EXPECT_EQ(static_cast<int>(kMaximum), Drain(sema));
}

class NamespaceSemTest : public qiv::test::LeakCheckedTest {};

int Drain(qiv::qiv_sem& sem) {
  int count = 0;
  while (sem.wait(0) == 0) ++count;
  return count;
}

TEST_F(NamespaceSemTest, ConstructorsSetTheCount) {
  qiv::qiv_sem empty;
  EXPECT_EQ(0, Drain(empty));
  qiv::qiv_sem three(3);
  EXPECT_EQ(3, Drain(three));
}

TEST_F(NamespaceSemTest, NegativeCountIsRefusedAndLeavesZero) {
  qiv::qiv_sem sem(-1);
  EXPECT_EQ(0, Drain(sem));
  EXPECT_EQ(-1, sem.init(-1));
  EXPECT_EQ(0, sem.init(2));
  EXPECT_EQ(2, Drain(sem));
}

TEST_F(NamespaceSemTest, DestroyedSemaphoreCanBeInitialisedAgain) {
  qiv::qiv_sem sem(1);
  EXPECT_EQ(0, sem.destroy());
  EXPECT_EQ(0, sem.init(2));
  EXPECT_EQ(2, Drain(sem));
}

struct PostRow {
  int n;
  int raised;
};

TEST_F(NamespaceSemTest, PostRaisesTheCountByItsNumber) {
  for (const PostRow& row : {PostRow{0, 0}, PostRow{-5, 0}, PostRow{INT_MIN, 0}, PostRow{3, 3}}) {
    qiv::qiv_sem sem;
    EXPECT_EQ(0, sem.post(row.n)) << row.n;
    EXPECT_EQ(row.raised, Drain(sem)) << row.n;
  }
  qiv::qiv_sem sem;
  EXPECT_EQ(0, sem.post_1());
  EXPECT_EQ(1, Drain(sem));
}

TEST_F(NamespaceSemTest, PostStopsAtTheFirstFailure) {
  qiv::qiv_sem sem(SEM_VALUE_MAX - 1);
  EXPECT_EQ(-1, sem.post(3));
  EXPECT_EQ(0, sem.wait(0));
  EXPECT_EQ(0, sem.post(1));
}

TEST_F(NamespaceSemTest, WaitBelowZeroBlocksUntilAPost) {
  qiv::qiv_sem sem;
  Latch waiting;
  auto result = RunInThread([&] {
    waiting.Open();
    return sem.wait(-1);
  });
  ASSERT_TRUE(waiting.Wait());
  EXPECT_FALSE(result.IsReady());
  ASSERT_EQ(0, sem.post_1());
  EXPECT_EQ(0, result.Get());
}

TEST_F(NamespaceSemTest, WaitBelowZeroIsKeptEndedByASignal) {
  qiv::qiv_sem sem;
  const InterruptingSignals signals(std::chrono::milliseconds(1));
  errno = 0;
  EXPECT_EQ(-1, sem.wait(-1));
  EXPECT_EQ(EINTR, errno);
}

TEST_F(NamespaceSemTest, TimedWaitFailsAfterItsTimeAndIsNotEndedBySignals) {
  qiv::qiv_sem sem;
  ExpectSignalsLetItWait(40, [&](int ms) { return sem.wait(ms); });
}

TEST_F(NamespaceSemTest, TimedWaitReturnsZeroWhenPostedDuringTheWait) {
  for (const int ms : {1000000, INT_MAX}) {
    qiv::qiv_sem sem;
    Latch waiting;
    auto result = RunInThread([&] {
      waiting.Open();
      return sem.wait(ms);
    });
    ASSERT_TRUE(waiting.Wait());
    ASSERT_EQ(0, sem.post_1());
    EXPECT_EQ(0, result.Get());
  }
}

TEST(SemaphoreClassTest, ClassesHoldTheirFieldsOnly) {
  struct Bounded {
    sem_t sem;
    unsigned int maximum;
    QIV_Mutex mutex;
  };
  struct Polymorphic {
    void* table;
    sem_t sem;
  };
  EXPECT_EQ(sizeof(Bounded), sizeof(QIV_Sema));
  EXPECT_EQ(sizeof(Polymorphic), sizeof(qiv::qiv_sem));
  EXPECT_TRUE(std::has_virtual_destructor<qiv::qiv_sem>::value);
}

}  // namespace
