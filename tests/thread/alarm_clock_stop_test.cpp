// The end of an alarm clock: stops from all sides, and destruction.
#include <gtest/gtest.h>
#include <pthread.h>
#include <qiv/alarm_clock.h>

#include <memory>
#include <thread>
#include <vector>

#include "support/run_in_thread.h"
#include "support/sleeping_thread.h"
#include "support/stopwatch.h"
#include "thread/alarm_fixture.h"

namespace qiv::test {
namespace {

class AlarmClockStopTest : public AlarmClockTest {};

CAlarmClock& Clock(void* clock) { return *static_cast<CAlarmClock*>(clock); }

bool Stop(CAlarmClock& clock) {
  clock.Stop();
  return true;
}

TEST_F(AlarmClockStopTest, StopDeletesTheAlarms) {
  ASSERT_TRUE(Add(1, kHourMs));
  ASSERT_TRUE(m_clock.Start());
  m_clock.Stop();
  EXPECT_FALSE(m_clock.RemoveAlarm(1));
  EXPECT_EQ(0, m_firings.Count());
}

TEST_F(AlarmClockStopTest, StopEndsTheThreadAndMayBeRepeated) {
  const int before = CountEntries("/proc/self/task");
  ASSERT_TRUE(m_clock.Start());
  m_clock.Stop();
  m_clock.Stop();
  EXPECT_LE(CountUntilAtMost("/proc/self/task", before), before);
}

TEST_F(AlarmClockStopTest, StopIsKeptOneWay) {
  ASSERT_TRUE(m_clock.Start());
  m_clock.Stop();
  const int threads = CountEntries("/proc/self/task");
  EXPECT_TRUE(Add(1, 0)) << "still registered, and never fires";
  EXPECT_TRUE(m_clock.Start());
  const Stopwatch stopwatch;
  while (CountEntries("/proc/self/task") > threads && m_firings.Count() == 0) {
    ASSERT_LT(stopwatch.Milliseconds(), TestLimit().count()) << "the new thread ends at once";
    std::this_thread::yield();
  }
  EXPECT_EQ(0, m_firings.Count());
}

TEST_F(AlarmClockStopTest, OnlyTheFirstStopIsKeptDeletingAlarms) {
  ASSERT_TRUE(m_clock.Start());
  m_clock.Stop();
  ASSERT_TRUE(Add(1, 0));
  ASSERT_TRUE(m_clock.Start());
  m_clock.Stop();
  EXPECT_TRUE(m_clock.RemoveAlarm(1));
}

TEST_F(AlarmClockStopTest, StopBeforeTheFirstStartDoesNothing) {
  ASSERT_TRUE(Add(1, 0));
  m_clock.Stop();
  EXPECT_TRUE(m_clock.Start());
  EXPECT_TRUE(m_firings.WaitFor(1));
}

TEST_F(AlarmClockStopTest, StopWaitsForTheCallbackAndLeavesLaterAlarmsUnfired) {
  AlarmGate gate;
  ASSERT_TRUE(m_clock.AddAlarm(1, AlarmGate::Run, &gate, 0));
  ASSERT_TRUE(Add(2, 0));
  ASSERT_TRUE(m_clock.Start());
  ASSERT_TRUE(gate.entered.Wait());
  SleepingCall stopper([this] { return Stop(m_clock); });
  EXPECT_FALSE(stopper.HasReturned());
  gate.letGo.Open();
  EXPECT_TRUE(stopper.Get());
  EXPECT_TRUE(gate.HasLeft());
  EXPECT_EQ(0, m_firings.Count());
}

TEST_F(AlarmClockStopTest, StopsOfSeveralThreadsAtOnceAllWaitForTheCallback) {
  AlarmGate gate;
  ASSERT_TRUE(m_clock.AddAlarm(1, AlarmGate::Run, &gate, 0));
  ASSERT_TRUE(m_clock.Start());
  ASSERT_TRUE(gate.entered.Wait());
  SleepingCall first([this] { return Stop(m_clock); });
  SleepingCall second([this] { return Stop(m_clock); });
  EXPECT_FALSE(first.HasReturned());
  EXPECT_FALSE(second.HasReturned());
  gate.letGo.Open();
  EXPECT_TRUE(first.Get());
  EXPECT_TRUE(second.Get());
}

void StopInCallback(void* clock, int id, void* firings) {
  Clock(clock).Stop();
  EXPECT_FALSE(Clock(clock).RemoveAlarm(id + 1)) << "deleted already";
  Clock(clock).Stop();
  EXPECT_TRUE(Clock(clock).Start());
  static_cast<Firings*>(firings)->Add(id);
}

TEST_F(AlarmClockStopTest, StopInACallbackDeletesTheAlarmsAndLeavesTheThreadToALaterStop) {
  const int before = CountEntries("/proc/self/task");
  ASSERT_TRUE(m_clock.AddAlarm(1, StopInCallback, &m_firings, 0));
  ASSERT_TRUE(Add(2, 0));
  ASSERT_TRUE(m_clock.Start());
  EXPECT_TRUE(m_firings.WaitFor(1));
  m_clock.Stop();
  EXPECT_LE(CountUntilAtMost("/proc/self/task", before), before);
  EXPECT_EQ((std::vector<int>{1}), m_firings.Ids());
}

TEST_F(AlarmClockStopTest, StopInACallbackLeavesTheThreadToTheDestructor) {
  auto clock = std::make_unique<CAlarmClock>();
  ASSERT_TRUE(clock->AddAlarm(1, StopInCallback, &m_firings, 0));
  ASSERT_TRUE(clock->AddAlarm(2, Firings::Record, &m_firings, 0));
  ASSERT_TRUE(clock->Start());
  EXPECT_TRUE(m_firings.WaitFor(1));
  clock.reset();
  EXPECT_EQ(1, m_firings.Count());
}

/** Stops and starts the clock in its callback while another thread waits for that callback. */
struct StopInside {
  static void Run(void* clock, int id, void* param) {
    auto* const self = static_cast<StopInside*>(param);
    AlarmGate::Run(clock, id, &self->gate);
    EXPECT_TRUE(Clock(clock).Start());
    Clock(clock).Stop();
  }
  AlarmGate gate;
};

TEST_F(AlarmClockStopTest, StopAndStartInACallbackDoNotWaitForAStopThatWaitsForTheCallback) {
  StopInside inside;
  ASSERT_TRUE(m_clock.AddAlarm(1, StopInside::Run, &inside, 0));
  ASSERT_TRUE(m_clock.Start());
  ASSERT_TRUE(inside.gate.entered.Wait());
  SleepingCall stopper([this] { return Stop(m_clock); });
  inside.gate.letGo.Open();
  EXPECT_TRUE(stopper.Get());
}

void AddMore(void* clock, int id, void* gate) {
  AlarmGate::Run(clock, id, gate);
  EXPECT_TRUE(Clock(clock).AddAlarm(2, nullptr, nullptr, 0)) << "while the clock is being stopped";
}

TEST_F(AlarmClockStopTest, DestructorWaitsForTheCallbackAndFreesWhatItAdded) {
  AlarmGate gate;
  auto clock = std::make_unique<CAlarmClock>();
  ASSERT_TRUE(clock->AddAlarm(1, AddMore, &gate, 0));
  ASSERT_TRUE(clock->Start());
  ASSERT_TRUE(gate.entered.Wait());
  SleepingCall destroyed([&] {
    clock.reset();
    return gate.HasLeft();
  });
  EXPECT_FALSE(destroyed.HasReturned());
  gate.letGo.Open();
  EXPECT_TRUE(destroyed.Get());
}

TEST_F(AlarmClockStopTest, DestructorFreesAlarmsThatNoStopHasDeleted) {
  CAlarmClock neverStarted;
  EXPECT_TRUE(neverStarted.AddAlarm(1, Firings::Record, &m_firings, 0));
  CAlarmClock stopped;
  ASSERT_TRUE(stopped.Start());
  stopped.Stop();
  EXPECT_TRUE(stopped.AddAlarm(1, Firings::Record, &m_firings, 0));
  EXPECT_TRUE(stopped.Start());
}

TEST_F(AlarmClockStopTest, ClockIsDestroyedThroughAPointerToIt) {
  struct Derived : CAlarmClock {
    explicit Derived(int& count) : destroyed(count) {}
    ~Derived() override { ++destroyed; }
    int& destroyed;
  };
  int destroyed = 0;
  std::unique_ptr<CAlarmClock> clock = std::make_unique<Derived>(destroyed);
  clock.reset();
  EXPECT_EQ(1, destroyed);
}

struct CancelledStop {
  static void* Run(void* stop) {
    auto* const self = static_cast<CancelledStop*>(stop);
    self->thread.store(SystemThreadId(), std::memory_order_release);
    self->clock.Stop();
    self->hasReturned = true;
    pthread_testcancel();
    return nullptr;
  }
  explicit CancelledStop(CAlarmClock& stopped) : clock(stopped) {}

  CAlarmClock& clock;
  std::atomic<pid_t> thread{0};
  bool hasReturned = false;
};

TEST_F(AlarmClockStopTest, StopIsNoCancellationPoint) {
  AlarmGate gate;
  ASSERT_TRUE(m_clock.AddAlarm(1, AlarmGate::Run, &gate, 0));
  ASSERT_TRUE(m_clock.Start());
  ASSERT_TRUE(gate.entered.Wait());
  CancelledStop stop(m_clock);
  pthread_t thread;
  ASSERT_EQ(0, pthread_create(&thread, nullptr, CancelledStop::Run, &stop));
  while (stop.thread.load(std::memory_order_acquire) == 0) std::this_thread::yield();
  EXPECT_TRUE(WaitUntilAsleep(stop.thread.load(std::memory_order_acquire)));
  EXPECT_EQ(0, pthread_cancel(thread));
  gate.letGo.Open();
  void* value = nullptr;
  EXPECT_EQ(0, pthread_join(thread, &value));
  EXPECT_EQ(PTHREAD_CANCELED, value) << "after the stop";
  EXPECT_TRUE(stop.hasReturned);
}

TEST_F(AlarmClockStopTest, ClocksComeAndGoWhileTheirAlarmsFire) {
  const int rounds = ScaledLoad(300);
  for (int round = 0; round < rounds; ++round) {
    CAlarmClock clock;
    for (int id = 0; id < 20; ++id) {
      ASSERT_TRUE(clock.AddAlarm(id, Firings::Record, &m_firings, id % 3));
    }
    ASSERT_TRUE(clock.Start());
    if (round % 2 == 0) clock.Stop();
  }
  EXPECT_LE(m_firings.Count(), rounds * 20);
}

}  // namespace
}  // namespace qiv::test
