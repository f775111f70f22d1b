#include <qiv/condition.h>
#include <qiv/mutex.h>

#include <gtest/gtest.h>
#include <qiv/thread.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "base/scoped_lock.h"
#include "support/captured_output.h"
#include "support/failing_allocation.h"
#include "support/latch.h"
#include "support/leak_check.h"
#include "support/run_in_thread.h"
#include "support/test_limit.h"
#include "sync/condition.h"

namespace {

using qiv::sync::g_lockCondAttr;
using qiv::sync::g_mapCondAttr;
using qiv::test::CapturedOutput;
using qiv::test::FailingAllocation;
using qiv::test::RunInThread;

std::size_t AttributeCount() {
  const qiv::base::ScopedLock lock(g_lockCondAttr);
  return g_mapCondAttr.size();
}

pthread_condattr_t* AttributeOf(pthread_cond_t* condition) {
  const qiv::base::ScopedLock lock(g_lockCondAttr);
  const auto entry = g_mapCondAttr.find(condition);
  return entry == g_mapCondAttr.end() ? nullptr : entry->second;
}

std::string TraceLine(const char* function, const void* condition, const void* attribute) {
  char line[200];
  std::snprintf(line, sizeof(line), "%s pCond:%p,pCondAttr:%p\r\n", function, condition, attribute);
  return line;
}

class ConditionTest : public qiv::test::LeakCheckedTest {
 protected:
  pthread_cond_t m_condition = PTHREAD_COND_INITIALIZER;
  pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
};

TEST_F(ConditionTest, EveryFunctionRefusesNull) {
  EXPECT_EQ(-1, QIV_CondCreate(nullptr));
  EXPECT_EQ(-1, QIV_CondDestroy(nullptr));
  EXPECT_EQ(-1, QIV_CondWait(nullptr, &m_mutex));
  EXPECT_EQ(-1, QIV_CondWait(&m_condition, nullptr));
  EXPECT_EQ(-1, QIV_CondTimedWait(nullptr, &m_mutex, 0));
  EXPECT_EQ(-1, QIV_CondTimedWait(&m_condition, nullptr, 0));
  EXPECT_EQ(-1, QIV_CondSignal(nullptr));
  EXPECT_EQ(-1, QIV_CondBroadCast(nullptr));
}

TEST_F(ConditionTest, CreateAndDestroyPrintOneLineEachAndLeaveTheMapAsItWas) {
  const std::size_t before = AttributeCount();

  CapturedOutput creation(STDERR_FILENO);
  EXPECT_EQ(0, QIV_CondCreate(&m_condition));
  pthread_condattr_t* const attribute = AttributeOf(&m_condition);
  EXPECT_EQ(TraceLine("QIV_CondCreate", &m_condition, attribute), creation.Stop());
  EXPECT_EQ(before + 1, AttributeCount());

  CapturedOutput destruction(STDERR_FILENO);
  EXPECT_EQ(0, QIV_CondDestroy(&m_condition));
  EXPECT_EQ(TraceLine("QIV_CondDestroy", &m_condition, attribute), destruction.Stop());
  EXPECT_EQ(before, AttributeCount());
}

TEST_F(ConditionTest, ConditionIsBoundToTheMonotonicClock) {
  ASSERT_EQ(0, QIV_CondCreate(&m_condition));
  clockid_t clock = CLOCK_REALTIME;
  ASSERT_EQ(0, pthread_condattr_getclock(AttributeOf(&m_condition), &clock));
  EXPECT_EQ(CLOCK_MONOTONIC, clock);
  EXPECT_EQ(0, QIV_CondDestroy(&m_condition));
}

TEST_F(ConditionTest, DestroyOfAConditionMadeElsewhereSucceedsAndPrintsNothing) {
  CapturedOutput output(STDERR_FILENO);
  EXPECT_EQ(0, QIV_CondDestroy(&m_condition));
  EXPECT_EQ("", output.Stop());
}

TEST_F(ConditionTest, SecondDestroyPrintsNothingAndPassesThePlatformsResultOn) {
  ASSERT_EQ(0, QIV_CondCreate(&m_condition));
  ASSERT_EQ(0, QIV_CondDestroy(&m_condition));
  CapturedOutput output(STDERR_FILENO);
  EXPECT_EQ(0, QIV_CondDestroy(&m_condition));
  EXPECT_EQ("", output.Stop());
}

TEST_F(ConditionTest, SecondCreateOfAnAddressIsKeptAsNotFreeingTheFirstAttribute) {
  const std::size_t before = AttributeCount();
  ASSERT_EQ(0, QIV_CondCreate(&m_condition));
  pthread_condattr_t* const first = AttributeOf(&m_condition);
  ASSERT_EQ(0, QIV_CondCreate(&m_condition));
  EXPECT_NE(first, AttributeOf(&m_condition));
  EXPECT_EQ(before + 1, AttributeCount());

  clockid_t clock = CLOCK_REALTIME;  // a freed attribute would make this read fail under ASan
  EXPECT_EQ(0, pthread_condattr_getclock(first, &clock));
  EXPECT_EQ(CLOCK_MONOTONIC, clock);

  EXPECT_EQ(0, QIV_CondDestroy(&m_condition));
  EXPECT_EQ(before, AttributeCount());
  pthread_condattr_destroy(first);
  delete first;
}

struct Attempt {
  int result;
  bool failed;
  std::string printed;
};

Attempt CreateWithFailure(pthread_cond_t* condition, int nth) {
  Attempt attempt = {};
  CapturedOutput output(STDERR_FILENO);
  {
    const FailingAllocation failure(nth);
    attempt.result = QIV_CondCreate(condition);
    attempt.failed = failure.Happened();
  }
  attempt.printed = output.Stop();
  return attempt;
}

TEST_F(ConditionTest, CreateFailsAtEachAllocationWithoutATrace) {
  const std::size_t before = AttributeCount();
  for (const int nth : {1, 2}) {  // the attribute, and its entry in the map
    SCOPED_TRACE(nth);
    const Attempt attempt = CreateWithFailure(&m_condition, nth);
    EXPECT_TRUE(attempt.failed);
    EXPECT_EQ(-1, attempt.result);
    EXPECT_EQ("", attempt.printed);
    EXPECT_EQ(before, AttributeCount());
  }
  const Attempt last = CreateWithFailure(&m_condition, 3);
  EXPECT_FALSE(last.failed);
  EXPECT_EQ(0, last.result);
  EXPECT_EQ(0, QIV_CondDestroy(&m_condition));
}

struct CancelledCalls {
  int create = -2;
  int destroy = -2;
  static void* Run(void* argument) {
    auto* self = static_cast<CancelledCalls*>(argument);
    pthread_cond_t condition;
    pthread_cancel(pthread_self());
    self->create = QIV_CondCreate(&condition);
    self->destroy = QIV_CondDestroy(&condition);
    return nullptr;
  }
};

TEST_F(ConditionTest, CreateAndDestroyAreNoCancellationPoints) {
  CancelledCalls calls;
  pthread_t thread;
  ASSERT_EQ(0, pthread_create(&thread, nullptr, CancelledCalls::Run, &calls));
  ASSERT_EQ(0, pthread_join(thread, nullptr));
  EXPECT_EQ(0, calls.create);
  EXPECT_EQ(0, calls.destroy);
}

TEST_F(ConditionTest, TimedWaitLastsAsLongAsSaid) {
  struct Row {
    unsigned int ms;
  };
  constexpr Row kRows[] = {{0}, {1}, {30}, {999}, {1500}};
  ASSERT_EQ(0, QIV_CondCreate(&m_condition));
  ASSERT_EQ(0, QIV_MutexLock(&m_mutex));
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.ms);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(ETIMEDOUT, QIV_CondTimedWait(&m_condition, &m_mutex, row.ms));
    const auto waited = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(waited, std::chrono::microseconds(row.ms) * 950);
    EXPECT_LE(waited, std::chrono::milliseconds(row.ms) + qiv::test::TestLimit());
  }
  ASSERT_EQ(0, QIV_MutexUnlock(&m_mutex));
  EXPECT_EQ(0, QIV_CondDestroy(&m_condition));
}

class ConditionWakeTest : public ConditionTest {
 protected:
  void SetUp() override {
    ConditionTest::SetUp();
    ASSERT_EQ(0, QIV_CondCreate(&m_condition));
  }
  void TearDown() override {
    EXPECT_EQ(0, QIV_CondDestroy(&m_condition));
    ConditionTest::TearDown();
  }

  /** Runs `wait` until it reports a wake-up that belongs to a raised flag; its last result. */
  template <class Wait>
  auto StartWaiter(Wait wait) {
    return RunInThread([this, wait] {
      QIV_MutexLock(&m_mutex);
      ++m_waiting;
      int result = 0;
      while (!m_raised && result == 0) result = wait();
      QIV_MutexUnlock(&m_mutex);
      return result;
    });
  }

  /** Returns with the mutex held, when `count` threads wait and the flag is raised. */
  void LockAndRaise(int count) {
    const auto end = std::chrono::steady_clock::now() + qiv::test::TestLimit();
    QIV_MutexLock(&m_mutex);
    while (m_waiting < count && std::chrono::steady_clock::now() < end) {
      QIV_MutexUnlock(&m_mutex);
      std::this_thread::yield();
      QIV_MutexLock(&m_mutex);
    }
    m_raised = true;
  }

  int m_waiting = 0;
  bool m_raised = false;
};

TEST_F(ConditionWakeTest, SignalWakesAWaiter) {
  auto waiter = StartWaiter([this] { return QIV_CondWait(&m_condition, &m_mutex); });
  LockAndRaise(1);
  EXPECT_EQ(0, QIV_CondSignal(&m_condition));
  QIV_MutexUnlock(&m_mutex);
  EXPECT_EQ(0, waiter.Get());
}

TEST_F(ConditionWakeTest, TimedWaitReturnsZeroWhenSignalled) {
  auto waiter = StartWaiter([this] { return QIV_CondTimedWait(&m_condition, &m_mutex, 600000); });
  LockAndRaise(1);
  EXPECT_EQ(0, QIV_CondSignal(&m_condition));
  QIV_MutexUnlock(&m_mutex);
  EXPECT_EQ(0, waiter.Get());
}

TEST_F(ConditionWakeTest, TimedWaitWithAllBitsSetStillWaitsAndCanBeWoken) {
  auto waiter =
      StartWaiter([this] { return QIV_CondTimedWait(&m_condition, &m_mutex, 0xFFFFFFFFu); });
  LockAndRaise(1);
  EXPECT_EQ(0, QIV_CondSignal(&m_condition));
  QIV_MutexUnlock(&m_mutex);
  EXPECT_EQ(0, waiter.Get());
}

TEST_F(ConditionWakeTest, BroadCastWakesEveryWaiter) {
  const auto wait = [this] { return QIV_CondWait(&m_condition, &m_mutex); };
  auto first = StartWaiter(wait);
  auto second = StartWaiter(wait);
  auto third = StartWaiter(wait);
  LockAndRaise(3);
  EXPECT_EQ(0, QIV_CondBroadCast(&m_condition));
  QIV_MutexUnlock(&m_mutex);
  EXPECT_EQ(0, first.Get());
  EXPECT_EQ(0, second.Get());
  EXPECT_EQ(0, third.Get());
}

struct CancelledWait {
  pthread_cond_t* condition;
  pthread_mutex_t* mutex;
  qiv::test::Latch waiting;

  static void* Run(void* argument) {
    struct Held {
      pthread_mutex_t* mutex;
      ~Held() { QIV_MutexUnlock(mutex); }
    };
    auto* self = static_cast<CancelledWait*>(argument);
    QIV_MutexLock(self->mutex);
    const Held held = {self->mutex};
    self->waiting.Open();
    while (QIV_CondWait(self->condition, self->mutex) == 0) {
    }
    return nullptr;
  }
};

TEST_F(ConditionWakeTest, CancelledWaiterUnwindsThroughTheWait) {
  CancelledWait wait = {&m_condition, &m_mutex, {}};
  pthread_t thread;
  ASSERT_EQ(0, pthread_create(&thread, nullptr, CancelledWait::Run, &wait));
  ASSERT_TRUE(wait.waiting.Wait());
  ASSERT_EQ(0, pthread_cancel(thread));
  void* result = nullptr;
  ASSERT_EQ(0, pthread_join(thread, &result));
  EXPECT_EQ(PTHREAD_CANCELED, result);
  EXPECT_EQ(0, QIV_MutexTryLock(&m_mutex)) << "the waiter's destructor has released it";
  EXPECT_EQ(0, QIV_MutexUnlock(&m_mutex));
}

TEST_F(ConditionTest, ClassHoldsOneConditionAndIsListedWhileItLives) {
  EXPECT_EQ(sizeof(pthread_cond_t), sizeof(QIV_Cond));
  const std::size_t before = AttributeCount();
  {
    const QIV_Cond condition;
    EXPECT_EQ(before + 1, AttributeCount());
  }
  EXPECT_EQ(before, AttributeCount());
}

TEST_F(ConditionTest, ClassForwardsItsWaits) {
  QIV_Cond condition;
  EXPECT_EQ(-1, condition.Wait(nullptr));
  EXPECT_EQ(-1, condition.TimedWait(nullptr, 1));
  ASSERT_EQ(0, QIV_MutexLock(&m_mutex));
  EXPECT_EQ(ETIMEDOUT, condition.TimedWait(&m_mutex, 5));
  EXPECT_EQ(0, QIV_MutexUnlock(&m_mutex));
}

TEST_F(ConditionTest, ClassWithoutMemoryForItsAttributeWaitsOnTheMonotonicClockToo) {
  const std::size_t before = AttributeCount();
  for (const int nth : {1, 2}) {  // the attribute, and its entry in the map
    const FailingAllocation failure(nth);
    QIV_Cond condition;
    EXPECT_TRUE(failure.Happened());
    EXPECT_EQ(before, AttributeCount());
    ASSERT_EQ(0, QIV_MutexLock(&m_mutex));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ETIMEDOUT, condition.TimedWait(&m_mutex, 50));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(47));
    EXPECT_EQ(0, QIV_MutexUnlock(&m_mutex));
  }
}

TEST_F(ConditionTest, ClassForwardsItsWakes) {
  for (const auto wake : {&QIV_Cond::Signal, &QIV_Cond::BroadCast}) {
    QIV_Cond condition;
    QIV_MutexLock(&m_mutex);
    bool raised = false;
    auto waker = RunInThread([&] {
      QIV_MutexLock(&m_mutex);
      raised = true;
      const int result = (condition.*wake)();
      QIV_MutexUnlock(&m_mutex);
      return result;
    });
    while (!raised && condition.Wait(&m_mutex) == 0) {
    }
    EXPECT_TRUE(raised);
    QIV_MutexUnlock(&m_mutex);
    EXPECT_EQ(0, waker.Get());
  }
}

void* UseConditionsForEver(void*) {
  for (;;) {
    pthread_cond_t condition;
    QIV_CondCreate(&condition);
    QIV_CondDestroy(&condition);
  }
}

[[noreturn]] void ExitWhileThreadsUseConditions() {
  if (std::freopen("/dev/null", "w", stderr) == nullptr) std::_Exit(1);
  for (int i = 0; i < 3; ++i) {
    if (QIV_ThreadDetached_Create(UseConditionsForEver, nullptr, 0) != 1) std::_Exit(2);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  std::exit(0);
}

TEST(ConditionMisuseTest, ThreadsThatUseConditionsWhileTheProcessExitsDoNoHarm) {
  for (int round = 0; round < qiv::test::ScaledLoad(50); ++round) {
    EXPECT_EXIT(ExitWhileThreadsUseConditions(), ::testing::ExitedWithCode(0), "");
  }
}

}  // namespace
