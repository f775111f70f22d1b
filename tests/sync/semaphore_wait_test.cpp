#include "sync/semaphore_wait.h"

#include <gtest/gtest.h>
#include <qiv/semaphore.h>
#include <qiv/types.h>

#include <chrono>

#include "support/interrupting_signals.h"
#include "support/run_in_thread.h"
#include "support/stopwatch.h"

namespace qiv::sync {
namespace {

class SemaphoreWaitTest : public testing::Test {
 protected:
  SemaphoreWaitTest() { QIV_SemCreate(&m_sem, 0); }
  ~SemaphoreWaitTest() override { QIV_SemDestroy(&m_sem); }

  sem_t m_sem = {};
};

TEST_F(SemaphoreWaitTest, ASemaphoreThatWasPostedIsTakenAtOnce) {
  QIV_SemPost(&m_sem);
  EXPECT_TRUE(WaitForSemaphore(&m_sem, QIV_INFINITE));
  QIV_SemPost(&m_sem);
  EXPECT_TRUE(WaitForSemaphore(&m_sem, 0));
  EXPECT_FALSE(WaitForSemaphore(&m_sem, 0));
}

TEST_F(SemaphoreWaitTest, AWaitThatNobodyEndsLastsItsTime) {
  const test::Stopwatch stopwatch;
  EXPECT_FALSE(WaitForSemaphore(&m_sem, 100));
  EXPECT_GE(stopwatch.Milliseconds(), 95);
}

TEST_F(SemaphoreWaitTest, SignalsNeitherEndNorExtendAWait) {
  const test::InterruptingSignals signals(std::chrono::milliseconds(5));
  const test::Stopwatch stopwatch;
  EXPECT_FALSE(WaitForSemaphore(&m_sem, 100));
  EXPECT_GE(stopwatch.Milliseconds(), 95);
  EXPECT_GT(test::InterruptingSignals::Count(), 0);
}

TEST_F(SemaphoreWaitTest, APostEndsAWaitWithAndWithoutLimit) {
  for (const unsigned int limit : {QIV_INFINITE, QIV_INFINITE - 1}) {
    auto waiter = test::RunInThread([this, limit] { return WaitForSemaphore(&m_sem, limit); });
    QIV_SemPost(&m_sem);
    EXPECT_TRUE(waiter.Get());
  }
}

}  // namespace
}  // namespace qiv::sync
