#include <qiv/timer.h>

#include <gtest/gtest.h>
#include <qiv/library.h>
#include <qiv/trace_info.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include "support/captured_output.h"
#include "support/failing_allocation.h"
#include "support/latch.h"
#include "support/stopwatch.h"
#include "thread/timer_fixture.h"

namespace {

using qiv::test::CallCounter;
using qiv::test::CapturedOutput;
using qiv::test::CountCall;
using qiv::test::CountEntries;
using qiv::test::CountUntilAtMost;
using qiv::test::FailingAllocation;
using qiv::test::kHour;
using qiv::test::kTimers;
using qiv::test::Latch;
using qiv::test::Stopwatch;
using qiv::test::TestLimit;
using qiv::test::TimerTest;

constexpr unsigned int kUntouched = 4711;

TEST_F(TimerTest, IdsGoFrom0To255AndTheLowestFreeOneIsTaken) {
  unsigned int id = kUntouched;
  for (unsigned int expected = 0; expected < kTimers; ++expected) {
    ASSERT_EQ(0, QIV_SetTimer(nullptr, nullptr, kHour, &id));
    ASSERT_EQ(expected, id);
  }
  id = kUntouched;
  EXPECT_EQ(-1, QIV_SetTimer(nullptr, nullptr, kHour, &id));
  EXPECT_EQ(kUntouched, id);
  EXPECT_EQ(0, QIV_KillTimer(200));
  EXPECT_EQ(0, QIV_KillTimer(7));
  EXPECT_EQ(0, QIV_SetTimer(nullptr, nullptr, kHour, &id));
  EXPECT_EQ(7u, id);
  EXPECT_EQ(0, QIV_SetTimer(nullptr, nullptr, kHour, &id));
  EXPECT_EQ(200u, id);
  EXPECT_EQ(-1, QIV_SetTimer(nullptr, nullptr, kHour, &id));
}

TEST_F(TimerTest, FirstCallComesBeforeTheFirstPeriodHasPassed) {
  for (const unsigned int period : {kHour, 0xFFFFFFFFu}) {
    CallCounter calls;
    unsigned int id = kUntouched;
    ASSERT_EQ(0, QIV_SetTimer(CountCall, &calls, period, &id));
    EXPECT_TRUE(calls.WaitFor(1));
    EXPECT_EQ(0, QIV_KillTimer(id));
    EXPECT_EQ(1, calls.Count());
  }
}

struct Arguments {
  Latch called;
  unsigned int id = kUntouched;
  void* user = nullptr;
};

TEST_F(TimerTest, CallbackGetsTheIdAndTheUserValue) {
  for (unsigned int expected = 0; expected < 3; ++expected) {
    Arguments arguments;
    const auto store = [](unsigned int id, void* user) {
      auto* const stored = static_cast<Arguments*>(user);
      stored->id = id;
      stored->user = user;
      stored->called.Open();
    };
    unsigned int id = kUntouched;
    ASSERT_EQ(0, QIV_SetTimer(store, &arguments, kHour, &id));
    ASSERT_EQ(expected, id);
    EXPECT_TRUE(arguments.called.Wait());
    EXPECT_EQ(expected, arguments.id);
    EXPECT_EQ(&arguments, arguments.user);
    ASSERT_EQ(0, QIV_KillTimer(id));
    ASSERT_EQ(0, QIV_SetTimer(nullptr, nullptr, kHour, &id)) << "so that the next id is another";
  }
}

/** Calls that take a while, and the shortest pause between two of them. */
struct SlowCalls {
  static constexpr int kDurationMs = 30;

  static void Run(unsigned int /*id*/, void* user) {
    auto* const calls = static_cast<SlowCalls*>(user);
    if (calls->count.Count() > 0) {
      calls->shortestPause = std::min(calls->shortestPause, calls->sinceLast.Milliseconds());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(kDurationMs));
    calls->sinceLast = Stopwatch();
    calls->count.Add();
  }

  CallCounter count;
  Stopwatch sinceLast;
  long long shortestPause = 1000000;
};

TEST_F(TimerTest, PeriodIsKeptMeasuredFromTheEndOfACallToTheStartOfTheNext) {
  constexpr unsigned int kPeriod = 40;
  SlowCalls calls;
  unsigned int id = kUntouched;
  ASSERT_EQ(0, QIV_SetTimer(SlowCalls::Run, &calls, kPeriod, &id));
  EXPECT_TRUE(calls.count.WaitFor(4));
  EXPECT_EQ(0, QIV_KillTimer(id));
  EXPECT_GE(calls.shortestPause, 38);
  EXPECT_LT(calls.shortestPause, TestLimit().count());
}

TEST_F(TimerTest, PeriodOfZeroCallsWithoutAPause) {
  CallCounter calls;
  unsigned int id = kUntouched;
  ASSERT_EQ(0, QIV_SetTimer(CountCall, &calls, 0, &id));
  EXPECT_TRUE(calls.WaitFor(1000));
  EXPECT_EQ(0, QIV_KillTimer(id));
}

TEST_F(TimerTest, SlowCallbackDelaysItsOwnTimerOnly) {
  Latch freed;
  CallCounter calls;
  const auto wait = [](unsigned int, void* latch) {
    EXPECT_TRUE(static_cast<Latch*>(latch)->Wait());
  };
  ASSERT_EQ(0, QIV_SetTimer(wait, &freed, 1, nullptr));
  ASSERT_EQ(0, QIV_SetTimer(CountCall, &calls, 1, nullptr));
  EXPECT_TRUE(calls.WaitFor(5));
  freed.Open();
  EXPECT_EQ(0, QIV_KillTimer(0));
  EXPECT_EQ(0, QIV_KillTimer(1));
}

TEST_F(TimerTest, CallbackMayStartATimer) {
  CallCounter calls;
  const auto startAnother = [](unsigned int, void* counter) {
    EXPECT_EQ(0, QIV_SetTimer(CountCall, counter, kHour, nullptr));
  };
  ASSERT_EQ(0, QIV_SetTimer(startAnother, &calls, kHour, nullptr));
  EXPECT_TRUE(calls.WaitFor(1));
  EXPECT_EQ(0, QIV_KillTimer(0));
  EXPECT_EQ(0, QIV_KillTimer(1));
}

TEST_F(TimerTest, TimerWithoutACallbackSleepsUntilItIsKilled) {
  unsigned int id = kUntouched;
  ASSERT_EQ(0, QIV_SetTimer(nullptr, nullptr, kHour, &id));
  EXPECT_EQ(0, QIV_KillTimer(id));
}

TEST_F(TimerTest, NullIdPointerReceivesNothing) {
  CallCounter calls;
  EXPECT_EQ(0, QIV_SetTimer(CountCall, &calls, kHour, nullptr));
  EXPECT_TRUE(calls.WaitFor(1));
  EXPECT_EQ(0, QIV_KillTimer(0));
}

TEST_F(TimerTest, WithoutMemoryForTheConditionThereIsNoTimer) {
  CallCounter calls;
  unsigned int id = kUntouched;
  {
    const FailingAllocation failure(1);
    EXPECT_EQ(-1, QIV_SetTimer(CountCall, &calls, kHour, &id));
    EXPECT_TRUE(failure.Happened());
  }
  EXPECT_EQ(kUntouched, id);
  EXPECT_EQ(0, QIV_SetTimer(CountCall, &calls, kHour, &id));
  EXPECT_EQ(0u, id);
  EXPECT_TRUE(calls.WaitFor(1));
  EXPECT_EQ(0, QIV_KillTimer(id));
  EXPECT_EQ(1, calls.Count());
}

TEST_F(TimerTest, WithoutMemoryForTheAttributeOfItsConditionATimerKeepsItsPeriod) {
  for (const int nth : {2, 3}) {  // the attribute, and its entry in the map
    CallCounter calls;
    CallCounter others;
    {
      const FailingAllocation failure(nth);
      EXPECT_EQ(0, QIV_SetTimer(CountCall, &calls, kHour, nullptr));
      EXPECT_TRUE(failure.Happened());
    }
    ASSERT_EQ(0, QIV_SetTimer(CountCall, &others, 1, nullptr));
    EXPECT_TRUE(calls.WaitFor(1));
    EXPECT_TRUE(others.WaitFor(20));
    EXPECT_EQ(0, QIV_KillTimer(0));
    EXPECT_EQ(0, QIV_KillTimer(1));
    EXPECT_EQ(1, calls.Count());
  }
}

TEST_F(TimerTest, FailedThreadStartIsKeptUntoldAndTheTimerNeverCalls) {
  QIV_TRACEINFO trace = {};
  std::strcpy(trace.firstText, "a record, which the new thread would get");
  ASSERT_EQ(0, qiv::qiv_tlsTraceInfoOper::instance()->setTraceInfo(&trace));
  const int threads = CountEntries("/proc/self/task");
  CallCounter calls;
  unsigned int id = kUntouched;
  {
    // The condition, its attribute and its entry in the map; then the record of the start.
    const FailingAllocation failure(4);
    EXPECT_EQ(0, QIV_SetTimer(CountCall, &calls, 0, &id));
    EXPECT_TRUE(failure.Happened());
  }
  EXPECT_EQ(0u, id);
  EXPECT_LE(CountUntilAtMost("/proc/self/task", threads), threads);
  EXPECT_EQ(0, QIV_SetTimer(nullptr, nullptr, kHour, &id));
  EXPECT_EQ(1u, id) << "the entry stays in use";
  EXPECT_EQ(0, QIV_KillTimer(0));
  EXPECT_EQ(0, calls.Count());
  EXPECT_EQ(0, QIV_SetTimer(nullptr, nullptr, kHour, &id));
  EXPECT_EQ(0u, id) << "free again";
  EXPECT_EQ(0, qiv::qiv_tlsTraceInfoOper::instance()->eraseTraceInfo());
}

TEST_F(TimerTest, PrintsTheTwoLinesOfItsCondition) {
  CapturedOutput output(STDERR_FILENO);
  EXPECT_EQ(0, QIV_SetTimer(nullptr, nullptr, kHour, nullptr));
  EXPECT_EQ(0, QIV_KillTimer(0));
  const std::string printed = output.Stop();
  const std::string created = printed.substr(0, printed.find('\n') + 1);
  const std::string start = "QIV_CondCreate ";
  ASSERT_EQ(start, created.substr(0, start.size()));
  EXPECT_EQ(created + "QIV_CondDestroy " + created.substr(start.size()), printed);
}

TEST_F(TimerTest, TimersAreKeptRunningWhenTheLibraryStops) {
  ASSERT_EQ(0, QIV_Init());
  CallCounter calls;
  ASSERT_EQ(0, QIV_SetTimer(CountCall, &calls, 1, nullptr));
  ASSERT_EQ(0, QIV_Fini());
  EXPECT_TRUE(calls.WaitFor(calls.Count() + 5));
  ASSERT_EQ(0, QIV_Init());
  EXPECT_TRUE(calls.WaitFor(calls.Count() + 5));
  EXPECT_EQ(0, QIV_KillTimer(0));
  ASSERT_EQ(0, QIV_Fini());
}

TEST_F(TimerTest, InitAndFiniOfTheTableLeaveTimersAlone) {
  CallCounter calls;
  unsigned int id = kUntouched;
  ASSERT_EQ(0, QIV_SetTimer(CountCall, &calls, 1, &id));
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(0, QIV_InitTimer_Inter());
    EXPECT_EQ(0, QIV_InitTimer_Inter());
    EXPECT_EQ(0, QIV_FiniTimer_Inter());
    EXPECT_EQ(0, QIV_FiniTimer_Inter());
  }
  EXPECT_TRUE(calls.WaitFor(calls.Count() + 5));
  ASSERT_EQ(0, QIV_SetTimer(nullptr, nullptr, kHour, &id));
  EXPECT_EQ(1u, id);
  EXPECT_EQ(0, QIV_KillTimer(0));
  EXPECT_EQ(0, QIV_KillTimer(1));
}

}  // namespace
