#include <qiv/timer.h>

#include <gtest/gtest.h>
#include <pthread.h>
#include <qiv/thread.h>
#include <unistd.h>

#include <atomic>
#include <deque>
#include <thread>
#include <vector>

#include "support/captured_output.h"
#include "support/gate.h"
#include "support/latch.h"
#include "support/run_in_thread.h"
#include "support/sleeping_thread.h"
#include "thread/timer_fixture.h"

namespace {

using qiv::test::CallCounter;
using qiv::test::CapturedOutput;
using qiv::test::CountCall;
using qiv::test::kHour;
using qiv::test::kTimers;
using qiv::test::Latch;
using qiv::test::RunInThread;
using qiv::test::ScaledLoad;
using qiv::test::SleepingCall;
using qiv::test::SystemThreadId;
using qiv::test::WaitUntilAsleep;

constexpr int kNotReturned = 4711;

struct Gate : qiv::test::Gate {
  static void Run(unsigned int /*id*/, void* gate) { static_cast<Gate*>(gate)->Pass(); }
};

using TimerKillTest = qiv::test::TimerTest;

int KillFirst() { return QIV_KillTimer(0); }

TEST_F(TimerKillTest, IdAbove255IsRefusedAndAFreeOneLeftAlone) {
  EXPECT_EQ(-1, QIV_KillTimer(256));
  EXPECT_EQ(-1, QIV_KillTimer(0xFFFFFFFFu));
  EXPECT_EQ(0, QIV_KillTimer(0));
  EXPECT_EQ(0, QIV_KillTimer(255));
}

TEST_F(TimerKillTest, KillEndsALongSleepAtOnce) {
  CallCounter calls;
  ASSERT_EQ(0, QIV_SetTimer(CountCall, &calls, kHour, nullptr));
  ASSERT_TRUE(calls.WaitFor(1));
  auto kill = RunInThread(KillFirst);
  EXPECT_EQ(0, kill.Get());
  EXPECT_EQ(1, calls.Count());
}

TEST_F(TimerKillTest, KillAtWhateverMomentIsNotLost) {
  const CapturedOutput linesOfConditions(STDERR_FILENO);
  const int rounds = ScaledLoad(10000);
  CallCounter calls;
  auto killed = RunInThread([&] {
    int count = 0;
    for (int round = 0; round < rounds; ++round) {
      unsigned int id = kTimers;
      if (QIV_SetTimer(CountCall, &calls, kHour, &id) == 0 && QIV_KillTimer(id) == 0) ++count;
    }
    return count;
  });
  EXPECT_EQ(rounds, killed.Get());
  EXPECT_LE(calls.Count(), rounds);
}

TEST_F(TimerKillTest, KillWaitsForTheCallback) {
  Gate gate;
  ASSERT_EQ(0, QIV_SetTimer(Gate::Run, &gate, 0, nullptr));
  ASSERT_TRUE(gate.entered.Wait());
  SleepingCall killer(KillFirst);
  EXPECT_FALSE(killer.HasReturned());
  gate.letGo.Open();
  EXPECT_EQ(0, killer.Get());
  EXPECT_TRUE(gate.HasLeft());
}

TEST_F(TimerKillTest, CallbackDoesNotRunAgainAfterTheKill) {
  CallCounter killed;
  CallCounter other;
  ASSERT_EQ(0, QIV_SetTimer(CountCall, &killed, 1, nullptr));
  ASSERT_EQ(0, QIV_SetTimer(CountCall, &other, 1, nullptr));
  ASSERT_TRUE(killed.WaitFor(3));
  ASSERT_EQ(0, QIV_KillTimer(0));
  const int calls = killed.Count();
  EXPECT_TRUE(other.WaitFor(other.Count() + 10));
  EXPECT_EQ(calls, killed.Count());
  EXPECT_EQ(0, QIV_KillTimer(1));
}

TEST_F(TimerKillTest, CallbackCannotKillItsOwnTimerWhichGoesOn) {
  CallCounter refusals;
  const auto killSelf = [](unsigned int id, void* counter) {
    if (QIV_KillTimer(id) == -1) static_cast<CallCounter*>(counter)->Add();
  };
  ASSERT_EQ(0, QIV_SetTimer(killSelf, &refusals, 1, nullptr));
  EXPECT_TRUE(refusals.WaitFor(3));
  EXPECT_EQ(0, QIV_KillTimer(0));
}

TEST_F(TimerKillTest, CallbackCanKillAnotherTimer) {
  CallCounter calls;
  ASSERT_EQ(0, QIV_SetTimer(CountCall, &calls, kHour, nullptr));
  ASSERT_TRUE(calls.WaitFor(1));
  const auto killFirst = [](unsigned int, void* counter) {
    EXPECT_EQ(0, QIV_KillTimer(0));
    static_cast<CallCounter*>(counter)->Add();
  };
  ASSERT_EQ(0, QIV_SetTimer(killFirst, &calls, kHour, nullptr));
  EXPECT_TRUE(calls.WaitFor(2));
  unsigned int id = kTimers;
  EXPECT_EQ(0, QIV_SetTimer(nullptr, nullptr, kHour, &id));
  EXPECT_EQ(0u, id);
  EXPECT_EQ(0, QIV_KillTimer(1));
}

/** Timers of which each kills the next one, and the last the first, all at once. */
struct Ring {
  explicit Ring(int timers) : size(timers) {}
  static void KillNext(unsigned int id, void* ring) {
    auto* const self = static_cast<Ring*>(ring);
    self->inside.Add();
    EXPECT_TRUE(self->inside.WaitFor(self->size));
    const unsigned int next = (id + 1) % static_cast<unsigned int>(self->size);
    (QIV_KillTimer(next) == 0 ? self->killed : self->refused).Add();
  }

  const int size;
  CallCounter inside;
  CallCounter killed;
  CallCounter refused;
};

TEST_F(TimerKillTest, OfCallbacksThatKillEachOtherInARingOneIsRefused) {
  for (const int size : {1, 2, 3, 8}) {
    SCOPED_TRACE(size);
    Ring ring(size);
    for (int i = 0; i < size; ++i)
      ASSERT_EQ(0, QIV_SetTimer(Ring::KillNext, &ring, kHour, nullptr));
    EXPECT_TRUE(ring.refused.WaitFor(1));
    EXPECT_TRUE(ring.killed.WaitFor(size - 1));
    for (unsigned int id = 0; id < kTimers; ++id) EXPECT_EQ(0, QIV_KillTimer(id));
    EXPECT_EQ(1, ring.refused.Count());
    EXPECT_EQ(size - 1, ring.killed.Count());
  }
}

TEST_F(TimerKillTest, OfTwoKillsAtOnceNeitherReturnsBeforeTheCallback) {
  Gate gate;
  ASSERT_EQ(0, QIV_SetTimer(Gate::Run, &gate, kHour, nullptr));
  ASSERT_TRUE(gate.entered.Wait());
  SleepingCall first(KillFirst);
  SleepingCall second(KillFirst);
  EXPECT_FALSE(first.HasReturned());
  EXPECT_FALSE(second.HasReturned());
  gate.letGo.Open();
  EXPECT_EQ(0, first.Get());
  EXPECT_EQ(0, second.Get());
}

TEST_F(TimerKillTest, KillThatAnotherOneForestalledLeavesTheNextTimerAlone) {
  Gate gate;
  ASSERT_EQ(0, QIV_SetTimer(Gate::Run, &gate, kHour, nullptr));
  ASSERT_TRUE(gate.entered.Wait());
  SleepingCall first(KillFirst);
  SleepingCall second(KillFirst);
  CallCounter calls;
  gate.letGo.Open();
  unsigned int id = kTimers;
  while (id != 0) {
    ASSERT_EQ(0, QIV_SetTimer(CountCall, &calls, 1, &id));
    if (id == 0) break;
    ASSERT_EQ(0, QIV_KillTimer(id));
  }
  EXPECT_EQ(0, first.Get());
  EXPECT_EQ(0, second.Get());
  EXPECT_TRUE(calls.WaitFor(calls.Count() + 3));
  ASSERT_EQ(0, QIV_SetTimer(nullptr, nullptr, kHour, &id));
  EXPECT_NE(0u, id) << "still in use";
  EXPECT_EQ(0, QIV_KillTimer(0));
}

/** A thread that is cancelled while it kills the first timer. */
struct CancelledKiller {
  static void* Run(void* killer) {
    auto* const self = static_cast<CancelledKiller*>(killer);
    self->thread.store(SystemThreadId(), std::memory_order_release);
    self->result = KillFirst();
    pthread_testcancel();
    return nullptr;
  }
  void Start() {
    ASSERT_EQ(0, pthread_create(&handle, nullptr, Run, this));
    while (thread.load(std::memory_order_acquire) == 0) std::this_thread::yield();
    EXPECT_TRUE(WaitUntilAsleep(thread.load(std::memory_order_acquire)));
    EXPECT_EQ(0, pthread_cancel(handle));
  }
  /** The result of the kill. */
  int Join() {
    void* value = nullptr;
    EXPECT_EQ(0, pthread_join(handle, &value));
    EXPECT_EQ(PTHREAD_CANCELED, value) << "after the kill";
    return result;
  }

  pthread_t handle = {};
  std::atomic<pid_t> thread{0};
  int result = kNotReturned;
};

TEST_F(TimerKillTest, KillIsNoCancellationPoint) {
  Gate gate;
  ASSERT_EQ(0, QIV_SetTimer(Gate::Run, &gate, 0, nullptr));
  ASSERT_TRUE(gate.entered.Wait());
  CancelledKiller first;
  CancelledKiller second;
  first.Start();
  second.Start();
  gate.letGo.Open();
  EXPECT_EQ(0, first.Join());
  EXPECT_EQ(0, second.Join());
}

TEST_F(TimerKillTest, TimerWhoseCallbackEndedItsThreadIsKilledAsAnyOther) {
  CallCounter calls;
  const auto endThread = [](unsigned int, void* counter) {
    static_cast<CallCounter*>(counter)->Add();
    QIV_Thread_Exit();
  };
  ASSERT_EQ(0, QIV_SetTimer(endThread, &calls, 0, nullptr));
  EXPECT_TRUE(calls.WaitFor(1));
  EXPECT_EQ(0, QIV_KillTimer(0));
  EXPECT_EQ(1, calls.Count());
}

/** Welcomes calls until its timer is killed. */
struct Guest {
  static void Visit(unsigned int /*id*/, void* guest) {
    auto* const self = static_cast<Guest*>(guest);
    if (!self->isWelcome.load(std::memory_order_acquire)) self->lateCalls.Add();
  }
  explicit Guest(CallCounter& late) : lateCalls(late) {}

  std::atomic<bool> isWelcome{true};
  CallCounter& lateCalls;
};

TEST_F(TimerKillTest, KillsThatRaceWithEachOtherAndWithNewTimersAreSafe) {
  const CapturedOutput linesOfConditions(STDERR_FILENO);
  const int rounds = ScaledLoad(3000);
  constexpr int kThreads = 4;
  CallCounter lateCalls;
  std::deque<Guest> guests[kThreads];
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int round = 0; round < rounds; ++round) {
        Guest& guest = guests[thread].emplace_back(lateCalls);
        unsigned int id = kTimers;
        EXPECT_EQ(0, QIV_SetTimer(Guest::Visit, &guest, round % 2 == 0 ? 0 : kHour, &id));
        // The timer of another thread as likely as not.
        EXPECT_EQ(0, QIV_KillTimer(static_cast<unsigned int>((round + thread) % kThreads)));
        EXPECT_EQ(0, QIV_KillTimer(id));
        guest.isWelcome.store(false, std::memory_order_release);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(0, lateCalls.Count());
}

}  // namespace
