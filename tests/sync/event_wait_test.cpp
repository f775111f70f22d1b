#include <gtest/gtest.h>
#include <qiv/event.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <thread>
#include <vector>

#include "support/interrupting_signals.h"
#include "support/leak_check.h"
#include "support/no_descriptor_limit.h"
#include "support/run_in_thread.h"
#include "support/sleeping_thread.h"
#include "support/sockets.h"
#include "support/stopwatch.h"
#include "support/test_limit.h"
#include "sync/event_fixture.h"

namespace {

using qiv::test::Event;
using qiv::test::InterruptingSignals;
using qiv::test::Stopwatch;
using std::chrono::milliseconds;

using Handles = std::vector<QIV_HANDLE>;

constexpr std::size_t kMaxEntries = 128;

int Wait(const Handles& events, int ms) {
  return QIV_WaitForMultipleObjects(static_cast<int>(events.size()), events.data(), 0, ms);
}

class EventWaitTest : public qiv::test::LeakCheckedTest {};

TEST_F(EventWaitTest, TheLowestSignalledIndexWinsWhateverTheWaitAllFlag) {
  const Event a(0);
  const Event b(1);
  const Event c(1);
  const QIV_HANDLE events[] = {a.Get(), b.Get(), c.Get()};
  for (const int waitAll : {0, 1, -1}) {
    EXPECT_EQ(1, QIV_WaitForMultipleObjects(3, events, waitAll, 100)) << waitAll;
  }
}

TEST_F(EventWaitTest, NullElementsAreSkippedAndKeepTheirIndex) {
  const Event signalled(1);
  const Event unsignalled(0);
  EXPECT_EQ(1, Wait({nullptr, signalled.Get()}, 0));
  EXPECT_EQ(3, Wait({nullptr, unsignalled.Get(), nullptr, signalled.Get()}, -1));
  EXPECT_EQ(0x7FFFFFFF, Wait({nullptr, unsignalled.Get()}, 0));
}

TEST_F(EventWaitTest, NothingIsConsumed) {
  const Event event(1);
  EXPECT_EQ(0, Wait({event.Get()}, 0));
  EXPECT_EQ(0, Wait({event.Get()}, 0));
  EXPECT_EQ(1, event.BytesInPipe());
}

TEST_F(EventWaitTest, AWaitThatNobodyEndsLastsItsTime) {
  const Event event;
  const Stopwatch time;
  EXPECT_EQ(0x7FFFFFFF, Wait({event.Get(), nullptr}, 100));
  EXPECT_GE(time.Milliseconds(), 95);
}

TEST_F(EventWaitTest, WithNothingToWatchOnlyTheTimePasses) {
  const Event signalled(1);
  const QIV_HANDLE events[] = {signalled.Get()};
  const QIV_HANDLE none[] = {nullptr};
  for (const int count : {0, -1, INT_MIN}) {
    const Stopwatch time;
    EXPECT_EQ(0x7FFFFFFF, QIV_WaitForMultipleObjects(count, events, 0, 50)) << count;
    EXPECT_GE(time.Milliseconds(), 47) << count;
  }
  const Stopwatch time;
  EXPECT_EQ(0x7FFFFFFF, QIV_WaitForMultipleObjects(1, none, 0, 50));
  EXPECT_GE(time.Milliseconds(), 47);
}

TEST_F(EventWaitTest, ASetEndsWaitsWithAndWithoutLimit) {
  const Event other;
  for (const int ms : {-1, static_cast<int>(qiv::test::TestLimit().count()), INT_MAX, INT_MIN}) {
    const Event event;
    qiv::test::SleepingCall waiter([&other, &event, ms] {
      return Wait({other.Get(), event.Get()}, ms);
    });
    EXPECT_EQ(1, QIV_SetEvent(event.Get()));
    EXPECT_EQ(1, waiter.Get()) << ms;
  }
}

QIV_HANDLE g_waitedFor[1];
int g_writeEnd = -1;

/** Runs in the thread that waits: takes the event out of the array and signals it. */
void ChangeArrayAndSignal(int /*signal*/) {
  g_waitedFor[0] = nullptr;
  const ssize_t written = write(g_writeEnd, "e", 1);
  static_cast<void>(written);
}

TEST_F(EventWaitTest, TheArrayMayChangeDuringTheWait) {
  const Event event;
  g_waitedFor[0] = event.Get();
  g_writeEnd = event.WriteEnd();
  struct sigaction action = {};
  struct sigaction saved = {};
  action.sa_handler = ChangeArrayAndSignal;
  sigaction(SIGALRM, &action, &saved);
  const itimerval soon = {{0, 0}, {0, 50000}};
  setitimer(ITIMER_REAL, &soon, nullptr);
  EXPECT_EQ(0, QIV_WaitForMultipleObjects(1, g_waitedFor, 0, -1));
  EXPECT_EQ(nullptr, g_waitedFor[0]);
  sigaction(SIGALRM, &saved, nullptr);
}

TEST_F(EventWaitTest, AFailedPollIsATimeOutWithoutAMessage) {
  const Event event(1);
  int result = 0;
  EXPECT_EQ("", qiv::test::MessagesOf([&] {
              const qiv::test::NoDescriptorLimit pollFails;
              result = Wait({event.Get()}, -1);
              EXPECT_EQ(EINVAL, errno);
            }));
  EXPECT_EQ(0x7FFFFFFF, result);
}

// --- signals -------------------------------------------------------------------------------------

TEST_F(EventWaitTest, SignalsNeitherEndNorRestartATimedWait) {
  const Event event;
  const InterruptingSignals signals(milliseconds(20));
  // A busy machine may let no signal through in the first rounds.
  for (int ms = 200; InterruptingSignals::Count() < 3; ms *= 2) {
    const Stopwatch time;
    EXPECT_EQ(0x7FFFFFFF, Wait({event.Get()}, ms));
    EXPECT_GE(time.Milliseconds(), ms);
  }
}

TEST_F(EventWaitTest, ManySignalsNeverMakeAShortWaitShorter) {
  const Event event;
  const InterruptingSignals signals(milliseconds(1));
  InterruptingSignals::WaitForTheFirst();
  for (int round = 0; round < 50; ++round) {
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(0x7FFFFFFF, Wait({event.Get()}, 5));
    ASSERT_GE(std::chrono::steady_clock::now() - start, milliseconds(5));
  }
}

TEST_F(EventWaitTest, SignalsDoNotEndAWaitWithoutLimit) {
  const Event event;
  const InterruptingSignals signals(milliseconds(5));
  std::thread setter([&event] {
    const Stopwatch time;
    while (InterruptingSignals::Count() < 5 &&
           time.Milliseconds() < qiv::test::TestLimit().count()) {
      std::this_thread::sleep_for(milliseconds(1));
    }
    QIV_SetEvent(event.Get());
  });
  EXPECT_EQ(0, Wait({event.Get()}, -1));
  EXPECT_GE(InterruptingSignals::Count(), 5);
  setter.join();
}

// --- the table's end -----------------------------------------------------------------------------

TEST_F(EventWaitTest, TheLastEntryOfTheTableIsWatchedAndTheNextIsNot) {
  const Event unsignalled(0);
  const Event signalled(1);
  Handles events(kMaxEntries + 1, unsignalled.Get());
  events[kMaxEntries] = signalled.Get();
  EXPECT_EQ(0x7FFFFFFF, Wait(events, 0));
  events[kMaxEntries - 1] = signalled.Get();
  EXPECT_EQ(static_cast<int>(kMaxEntries) - 1, Wait(events, 0));
}

TEST_F(EventWaitTest, NullElementsTakeNoEntry) {
  const Event signalled(1);
  Handles events(3 * kMaxEntries, nullptr);
  events.back() = signalled.Get();
  EXPECT_EQ(static_cast<int>(events.size()) - 1, Wait(events, 0));
}

TEST_F(EventWaitTest, AHugeCountReadsNoFurtherThanTheTableHasRoom) {
  const Event unsignalled(0);
  const Event signalled(1);
  Handles events(kMaxEntries, unsignalled.Get());
  EXPECT_EQ(0x7FFFFFFF, QIV_WaitForMultipleObjects(INT_MAX, events.data(), 0, 0));
  events[7] = signalled.Get();
  EXPECT_EQ(7, QIV_WaitForMultipleObjects(INT_MAX, events.data(), 0, 0));
}

TEST_F(EventWaitTest, TheSecondEntryOfASocketDoesNotGoPastTheTable) {
  const qiv::test::TcpPair pair;
  const Event unsignalled(0);
  const Event bound;
  ASSERT_EQ(0, QIV_EventSelect(pair.first.Get(), bound.Get(), QIV_EVENT_READ | QIV_EVENT_WRITE));
  Handles events(kMaxEntries, unsignalled.Get());
  events[kMaxEntries - 1] = bound.Get();
  // Only its entry for reading fits, and the socket can only be written.
  EXPECT_EQ(0x7FFFFFFF, Wait(events, 0));
  events.pop_back();
  events[kMaxEntries - 2] = bound.Get();
  EXPECT_EQ(static_cast<int>(kMaxEntries) - 2, Wait(events, 0));
}

TEST_F(EventWaitTest, OnlySocketsWithTwoEntriesFillTheTableTwiceAsFast) {
  const Event bound;
  const Event signalled(1);
  const unsigned int readAndWrite = QIV_EVENT_READ | QIV_EVENT_WRITE;
  const qiv::test::Socket unready = qiv::test::Listener();  // never writable, nothing to accept
  ASSERT_EQ(0, QIV_EventSelect(unready.Get(), bound.Get(), readAndWrite));
  Handles events(kMaxEntries / 2 + 1, bound.Get());
  events[kMaxEntries / 2] = signalled.Get();
  EXPECT_EQ(0x7FFFFFFF, Wait(events, 0));
  events[kMaxEntries / 2 - 1] = signalled.Get();
  EXPECT_EQ(static_cast<int>(kMaxEntries) / 2 - 1, Wait(events, 0));
}

}  // namespace
