#include <qiv/alarm_clock.h>

#include <gtest/gtest.h>
#include <qiv/thread.h>
#include <qiv/trace_info.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstddef>
#include <cstring>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/failing_allocation.h"
#include "support/sleeping_thread.h"
#include "support/stopwatch.h"
#include "thread/alarm_fixture.h"
#include "thread/alarm_time.h"

namespace qiv::test {
namespace {

constexpr long long kDayMs = 24 * kHourMs;

struct DueTimeRow {
  long long now;
  long long delay;
  long long dueTime;
};

TEST(AlarmTimeTest, DueTimeIsTheTickPlusTheDelayWithinTheRangeOfTicks) {
  for (const DueTimeRow& row :
       {DueTimeRow{1000, 0, 1000}, DueTimeRow{1000, 1, 1001}, DueTimeRow{1000, -1, 1000},
        DueTimeRow{1000, LLONG_MIN, 1000}, DueTimeRow{1000, LLONG_MAX - 1000, LLONG_MAX},
        DueTimeRow{1000, LLONG_MAX - 999, LLONG_MAX}, DueTimeRow{1000, LLONG_MAX, LLONG_MAX},
        DueTimeRow{0, LLONG_MAX, LLONG_MAX}}) {
    EXPECT_EQ(row.dueTime, thread::DueTime(row.now, row.delay)) << row.now << " + " << row.delay;
  }
}

struct PieceRow {
  long long remaining;
  unsigned int piece;
};

TEST(AlarmTimeTest, WaitOfMoreThan32BitsBeginsWithTheLongestPiece) {
  for (const PieceRow& row :
       {PieceRow{1, 1}, PieceRow{0xFFFFFFFELL, 0xFFFFFFFEu}, PieceRow{0xFFFFFFFFLL, 0xFFFFFFFFu},
        PieceRow{0x100000000LL, 0xFFFFFFFFu}, PieceRow{0x100000001LL, 0xFFFFFFFFu},
        PieceRow{50 * kDayMs, 0xFFFFFFFFu}, PieceRow{LLONG_MAX, 0xFFFFFFFFu}}) {
    EXPECT_EQ(row.piece, thread::WaitPiece(row.remaining)) << row.remaining;
  }
}

TEST(AlarmClockClassTest, IsPolymorphicAndAlarmsHoldTheirFieldsInOrder) {
  EXPECT_TRUE(std::has_virtual_destructor<CAlarmClock>::value);
  EXPECT_FALSE(std::is_copy_constructible<CAlarmClock>::value);
  EXPECT_EQ(0u, offsetof(CAlarmClock::CAlarm, id));
  EXPECT_EQ(sizeof(void*), offsetof(CAlarmClock::CAlarm, callback));
  EXPECT_EQ(2 * sizeof(void*), offsetof(CAlarmClock::CAlarm, param));
  EXPECT_LT(offsetof(CAlarmClock::CAlarm, param), offsetof(CAlarmClock::CAlarm, dueTime));
}

struct Call {
  Latch called;
  void* clock = nullptr;
  int id = 0;
  void* param = nullptr;
};

TEST_F(AlarmClockTest, CallbackGetsTheClockTheNumberAndTheParameterAfterTheDelay) {
  ASSERT_TRUE(m_clock.Start());
  Call call;
  const auto store = [](void* clock, int id, void* param) {
    auto* const stored = static_cast<Call*>(param);
    stored->clock = clock;
    stored->id = id;
    stored->param = param;
    stored->called.Open();
  };
  const Stopwatch stopwatch;
  ASSERT_TRUE(m_clock.AddAlarm(-7, store, &call, 100));
  EXPECT_TRUE(call.called.Wait());
  EXPECT_GE(stopwatch.Milliseconds(), 95);
  EXPECT_EQ(&m_clock, call.clock);
  EXPECT_EQ(-7, call.id);
  EXPECT_EQ(&call, call.param);
}

TEST_F(AlarmClockTest, AlarmsFireOnce) {
  ASSERT_TRUE(m_clock.Start());
  ASSERT_TRUE(Add(1, 0));
  ASSERT_TRUE(Add(2, 20));
  ASSERT_TRUE(Add(3, 40));
  EXPECT_TRUE(m_firings.WaitFor(3));
  EXPECT_EQ((std::vector<int>{1, 2, 3}), m_firings.Ids());
}

TEST_F(AlarmClockTest, AlarmsAddedBeforeTheStartFireOnceItRunsInTheOrderOfTheirDueTimes) {
  const int delays[] = {60, 20, 90, 40, 0};
  // The delays count from the adding: once more when that took as long as two of them lie apart.
  for (bool isInTime = false; !isInTime;) {
    const Stopwatch stopwatch;
    for (const int delay : delays) m_clock.RemoveAlarm(delay);
    for (const int delay : delays) ASSERT_TRUE(Add(delay, delay));
    isInTime = stopwatch.Milliseconds() < 19;
  }
  EXPECT_EQ(0, m_firings.Count());
  ASSERT_TRUE(m_clock.Start());
  EXPECT_TRUE(m_firings.WaitFor(5));
  EXPECT_EQ((std::vector<int>{0, 20, 40, 60, 90}), m_firings.Ids());
}

TEST_F(AlarmClockTest, AlarmsWithTheSameDueTimeFireInTheOrderInWhichTheyWereAdded) {
  std::vector<int> added;
  ASSERT_TRUE(Add(1000, kHourMs)) << "behind all others";
  for (int id = 100; id > 0; --id) {
    ASSERT_TRUE(Add(id, -1000 - id)) << "now, however negative";
    added.push_back(id);
  }
  ASSERT_TRUE(m_clock.Start());
  EXPECT_TRUE(m_firings.WaitFor(100));
  EXPECT_EQ(added, m_firings.Ids());
}

TEST_F(AlarmClockTest, NegativeDelayFiresAtOnce) {
  ASSERT_TRUE(m_clock.Start());
  ASSERT_TRUE(Add(2, LLONG_MIN));
  ASSERT_TRUE(Add(1, -1));
  EXPECT_TRUE(m_firings.WaitFor(2));
}

TEST_F(AlarmClockTest, NumberThatIsTakenIsRefusedUntilItsAlarmHasFired) {
  Firings others;
  const Stopwatch stopwatch;
  ASSERT_TRUE(Add(1, 50));
  EXPECT_FALSE(m_clock.AddAlarm(1, Firings::Record, &others, 0));
  ASSERT_TRUE(m_clock.Start());
  EXPECT_TRUE(m_firings.WaitFor(1));
  EXPECT_GE(stopwatch.Milliseconds(), 40) << "the first one's time";
  EXPECT_EQ(0, others.Count());
  EXPECT_TRUE(m_clock.AddAlarm(1, Firings::Record, &others, 0));
  EXPECT_TRUE(others.WaitFor(1));
}

void StoreThread(void* /*clock*/, int /*id*/, void* thread) {
  static_cast<std::atomic<pid_t>*>(thread)->store(SystemThreadId());
}

pid_t ThreadOf(CAlarmClock& clock) {
  std::atomic<pid_t> thread{0};
  EXPECT_TRUE(clock.AddAlarm(INT_MIN, StoreThread, &thread, 0));
  while (thread.load() == 0) std::this_thread::yield();
  return thread.load();
}

TEST_F(AlarmClockTest, AlarmDueBeforeAllOthersWakesTheSleepingThread) {
  ASSERT_TRUE(m_clock.Start());
  const pid_t thread = ThreadOf(m_clock);
  ASSERT_TRUE(WaitUntilAsleep(thread));
  ASSERT_TRUE(Add(3, kHourMs));
  ASSERT_TRUE(WaitUntilAsleep(thread));
  ASSERT_TRUE(Add(2, kHourMs / 2));
  ASSERT_TRUE(WaitUntilAsleep(thread));
  ASSERT_TRUE(Add(1, 10));
  EXPECT_TRUE(m_firings.WaitFor(1));
  EXPECT_EQ((std::vector<int>{1}), m_firings.Ids());
}

TEST_F(AlarmClockTest, DelaysBeyond32BitsAndBeyondTheLastTickAreNotCutShort) {
  ASSERT_TRUE(m_clock.Start());
  const std::vector<long long> delays = {0x100000000LL, 50 * kDayMs, LLONG_MAX - 1, LLONG_MAX};
  for (const long long delay : delays) {
    ASSERT_TRUE(Add(1, delay)) << delay;
    ASSERT_TRUE(WaitUntilAsleep(ThreadOf(m_clock)));
    EXPECT_EQ(0, m_firings.Count()) << delay;
    EXPECT_TRUE(m_clock.RemoveAlarm(1)) << delay;
  }
}

TEST_F(AlarmClockTest, RemovedAlarmDoesNotFireAndTheNextOneDoes) {
  EXPECT_FALSE(m_clock.RemoveAlarm(1));
  ASSERT_TRUE(Add(1, 20));
  ASSERT_TRUE(Add(2, 40));
  ASSERT_TRUE(m_clock.Start());
  EXPECT_TRUE(m_clock.RemoveAlarm(1));
  EXPECT_FALSE(m_clock.RemoveAlarm(1));
  EXPECT_TRUE(m_firings.WaitFor(1));
  EXPECT_EQ((std::vector<int>{2}), m_firings.Ids());
  EXPECT_FALSE(m_clock.RemoveAlarm(2)) << "it has fired";
}

TEST_F(AlarmClockTest, AlarmWithoutACallbackOnlyExpires) {
  ASSERT_TRUE(m_clock.AddAlarm(1, nullptr, nullptr, 0));
  ASSERT_TRUE(Add(2, 0));
  ASSERT_TRUE(m_clock.Start());
  EXPECT_TRUE(m_firings.WaitFor(1));
  EXPECT_FALSE(m_clock.RemoveAlarm(1));
}

TEST_F(AlarmClockTest, CallbackMayAddItsAlarmAgain) {
  const auto again = [](void* clock, int id, void* firings) {
    auto* const fired = static_cast<Firings*>(firings);
    fired->Add(id);
    if (fired->Count() == 3) return;
    EXPECT_TRUE(static_cast<CAlarmClock*>(clock)->AddAlarm(id, Firings::Record, firings, 0));
    EXPECT_TRUE(static_cast<CAlarmClock*>(clock)->RemoveAlarm(id));
    EXPECT_TRUE(static_cast<CAlarmClock*>(clock)->AddAlarm(id, Firings::Record, firings, 1));
  };
  ASSERT_TRUE(m_clock.Start());
  ASSERT_TRUE(m_clock.AddAlarm(1, again, &m_firings, 0));
  EXPECT_TRUE(m_firings.WaitFor(2));
  EXPECT_EQ((std::vector<int>{1, 1}), m_firings.Ids());
}

TEST_F(AlarmClockTest, CallbackMayRemoveAnotherAlarm) {
  const auto removeNext = [](void* clock, int id, void* /*param*/) {
    EXPECT_TRUE(static_cast<CAlarmClock*>(clock)->RemoveAlarm(id + 1));
  };
  ASSERT_TRUE(m_clock.AddAlarm(1, removeNext, nullptr, 0));
  ASSERT_TRUE(Add(2, 0));
  ASSERT_TRUE(Add(3, 0));
  ASSERT_TRUE(m_clock.Start());
  EXPECT_TRUE(m_firings.WaitFor(1));
  EXPECT_EQ((std::vector<int>{3}), m_firings.Ids());
}

TEST_F(AlarmClockTest, CallbackMayEndTheThread) {
  const auto endThread = [](void* /*clock*/, int id, void* firings) {
    static_cast<Firings*>(firings)->Add(id);
    QIV_Thread_Exit();
  };
  ASSERT_TRUE(m_clock.AddAlarm(1, endThread, &m_firings, 0));
  ASSERT_TRUE(m_clock.Start());
  EXPECT_TRUE(m_firings.WaitFor(1));
  m_clock.Stop();
}

TEST_F(AlarmClockTest, AddWithoutMemoryFailsAndLeavesTheClockAsItWas) {
  ASSERT_TRUE(Add(1, kHourMs));
  for (const int nth : {1, 2, 3}) {  // the alarm, its node in the list, its node in the map
    const FailingAllocation failure(nth);
    EXPECT_FALSE(Add(2, 0)) << nth;
    EXPECT_TRUE(failure.Happened()) << nth;
  }
  EXPECT_FALSE(m_clock.RemoveAlarm(2));
  {
    const FailingAllocation failure(4);
    EXPECT_TRUE(Add(2, 0));
    EXPECT_FALSE(failure.Happened());
  }
  ASSERT_TRUE(m_clock.Start());
  EXPECT_TRUE(m_firings.WaitFor(1));
  EXPECT_EQ((std::vector<int>{2}), m_firings.Ids());
  EXPECT_TRUE(m_clock.RemoveAlarm(1));
}

TEST_F(AlarmClockTest, FailedStartMayBeTriedAgain) {
  QIV_TRACEINFO trace = {};
  std::strcpy(trace.firstText, "a record, which the new thread would get");
  ASSERT_EQ(0, qiv_tlsTraceInfoOper::instance()->setTraceInfo(&trace));
  EXPECT_FALSE(m_clock.RemoveAlarm(1));
  {
    const FailingAllocation failure(1, FailingFor::kEver);
    EXPECT_FALSE(m_clock.Start());
    EXPECT_TRUE(failure.Happened());
  }
  EXPECT_EQ(0, qiv_tlsTraceInfoOper::instance()->eraseTraceInfo());
  ASSERT_TRUE(Add(1, 0));
  EXPECT_TRUE(m_clock.Start());
  EXPECT_TRUE(m_firings.WaitFor(1));
}

TEST_F(AlarmClockTest, StartOfARunningClockKeepsItsOneThread) {
  ASSERT_TRUE(m_clock.Start());
  const int threads = CountEntries("/proc/self/task");
  EXPECT_TRUE(m_clock.Start());
  EXPECT_LE(CountUntilAtMost("/proc/self/task", threads), threads);
}

TEST_F(AlarmClockTest, ThreadRoutineDoesNothingForNullAndRunsAClock) {
  EXPECT_EQ(nullptr, CAlarmClock::OnThreadRunCallback(nullptr));
  ASSERT_TRUE(m_clock.Start());
  m_clock.Stop();
  EXPECT_EQ(nullptr, CAlarmClock::OnThreadRunCallback(&m_clock)) << "stopped: returns at once";
}

// One number is one thread's at a time: what it added has either fired or been removed in the end.
TEST_F(AlarmClockTest, AlarmsOfManyThreadsEachFireOnceOrAreRemoved) {
  constexpr int kThreads = 4;
  const int rounds = ScaledLoad(20000);
  std::atomic<int> added{0};
  std::atomic<int> removed{0};
  ASSERT_TRUE(m_clock.Start());
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int round = 0; round < rounds; ++round) {
        const int id = round * kThreads + thread;
        if (Add(id, round % 4)) added.fetch_add(1);
        if (round % 3 == 0 && m_clock.RemoveAlarm(id)) removed.fetch_add(1);
        if (round % 5 == 0 && m_clock.RemoveAlarm(id - 8 * kThreads)) removed.fetch_add(1);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(kThreads * rounds, added.load());
  const int toFire = added.load() - removed.load();
  EXPECT_TRUE(m_firings.WaitFor(toFire));
  m_clock.Stop();
  EXPECT_EQ(toFire, m_firings.Count());
  std::vector<int> ids = m_firings.Ids();
  std::sort(ids.begin(), ids.end());
  EXPECT_EQ(ids.end(), std::adjacent_find(ids.begin(), ids.end())) << "fired twice";
}

}  // namespace
}  // namespace qiv::test
