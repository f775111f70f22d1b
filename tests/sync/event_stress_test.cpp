// Events under load: four threads set and reset while four others wait.
#include <gtest/gtest.h>
#include <qiv/event.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <random>
#include <thread>
#include <vector>

#include "support/leak_check.h"
#include "support/sockets.h"
#include "support/test_limit.h"
#include "sync/event_fixture.h"

namespace {

using qiv::test::Event;

constexpr int kThreads = 4;

using Events = std::array<Event, kThreads>;

class EventStressTest : public qiv::test::LeakCheckedTest {};

std::array<QIV_HANDLE, kThreads> HandlesOf(const Events& events) {
  std::array<QIV_HANDLE, kThreads> handles;
  std::transform(events.begin(), events.end(), handles.begin(),
                 [](const Event& event) { return event.Get(); });
  return handles;
}

/** Calls that did not give what they must. */
class Failures {
 public:
  void Unless(bool isRight) {
    if (!isRight) m_count.fetch_add(1, std::memory_order_relaxed);
  }
  int Count() const { return m_count.load(std::memory_order_relaxed); }

 private:
  std::atomic<int> m_count{0};
};

void SetAndResetAtRandom(const Events& events, unsigned int seed, int calls, Failures& failures) {
  std::minstd_rand random(seed);
  for (int call = 0; call < calls; ++call) {
    const Event& event = events[random() / 2 % kThreads];
    const bool sets = random() / 8 % 2 == 0;
    failures.Unless((sets ? QIV_SetEvent(event.Get()) : QIV_ResetEvent(event.Get())) == 1);
    const int bytes = event.BytesInPipe();
    failures.Unless(bytes == 0 || bytes == 1);
  }
}

void WaitInEveryWay(const Events& events, const std::atomic<bool>& stop, Failures& failures) {
  const auto handles = HandlesOf(events);
  while (!stop.load(std::memory_order_acquire)) {
    for (QIV_HANDLE handle : handles) {
      const int single = QIV_WaitForSingleObject(handle, 0);
      failures.Unless(single == QIV_WAIT_SIGNALLED || single == QIV_WAIT_TIMEOUT);
    }
    const int index = QIV_WaitForMultipleObjects(kThreads, handles.data(), 1, 1);
    failures.Unless((index >= 0 && index < kThreads) || index == QIV_WAIT_TIMEOUT);
  }
}

/** Waits without a limit again and again; a signal that were lost would leave it behind. */
void WaitForEver(const Events& events, const std::atomic<bool>& stop, Failures& failures) {
  const auto handles = HandlesOf(events);
  while (!stop.load(std::memory_order_acquire)) {
    const int index = QIV_WaitForMultipleObjects(kThreads, handles.data(), 0, -1);
    failures.Unless(index >= 0 && index < kThreads);
  }
}

/** Runs every setter to its end while the waiters wait. */
void SetResetAndWait(const Events& events, int calls, Failures& failures) {
  std::atomic<bool> stop{false};
  std::vector<std::thread> setters;
  std::vector<std::thread> waiters;
  setters.reserve(kThreads);
  waiters.reserve(kThreads);
  for (unsigned int i = 0; i < kThreads; ++i) {
    waiters.emplace_back(
        [&, i] { (i % 2 == 0 ? WaitInEveryWay : WaitForEver)(events, stop, failures); });
    setters.emplace_back(
        [&, seed = 100 + i] { SetAndResetAtRandom(events, seed, calls, failures); });
  }
  for (std::thread& setter : setters) setter.join();
  stop.store(true, std::memory_order_release);
  for (const Event& event : events) failures.Unless(QIV_SetEvent(event.Get()) == 1);
  for (std::thread& waiter : waiters) waiter.join();
}

void ExpectUsable(const Event& event) {
  EXPECT_EQ(1, QIV_SetEvent(event.Get()));
  EXPECT_EQ(1, event.BytesInPipe());
  EXPECT_EQ(1, QIV_ResetEvent(event.Get()));
  EXPECT_EQ(0, event.BytesInPipe());
}

TEST_F(EventStressTest, ManySetsAndResetsNeverLeaveMoreThanOneByte) {
  const Events events;
  Failures failures;
  SetResetAndWait(events, qiv::test::ScaledLoad(20000), failures);
  EXPECT_EQ(0, failures.Count());
  for (const Event& event : events) ExpectUsable(event);
}

/** A setter and its waiter: each round's value is handed over, and only then taken back. */
struct HandOver {
  Event full{0};
  Event empty{1};
  int value = 0;  // the setter's while `empty` is signalled, the waiter's while `full` is
};

void Give(HandOver& pair, int rounds, int ms, Failures& failures) {
  for (int round = 1; round <= rounds; ++round) {
    failures.Unless(QIV_WaitForSingleObject(pair.empty.Get(), ms) == QIV_WAIT_SIGNALLED);
    failures.Unless(QIV_ResetEvent(pair.empty.Get()) == 1);
    pair.value = round;
    failures.Unless(QIV_SetEvent(pair.full.Get()) == 1);
  }
}

void Take(HandOver& pair, int rounds, int ms, Failures& failures) {
  const QIV_HANDLE events[] = {nullptr, pair.full.Get()};
  for (int round = 1; round <= rounds; ++round) {
    failures.Unless(QIV_WaitForMultipleObjects(2, events, 0, ms) == 1);
    failures.Unless(QIV_ResetEvent(pair.full.Get()) == 1);
    failures.Unless(pair.value == round);
    failures.Unless(QIV_SetEvent(pair.empty.Get()) == 1);
  }
}

TEST_F(EventStressTest, NoSignalBetweenFourSettersAndTheirWaitersIsLost) {
  std::array<HandOver, kThreads> pairs;
  const int rounds = qiv::test::ScaledLoad(5000);
  const int ms = static_cast<int>(qiv::test::TestLimit().count());
  Failures failures;
  std::vector<std::thread> threads;
  threads.reserve(std::size_t{2} * kThreads);
  for (HandOver& pair : pairs) {
    threads.emplace_back([&] { Give(pair, rounds, ms, failures); });
    threads.emplace_back([&] { Take(pair, rounds, ms, failures); });
  }
  for (std::thread& thread : threads) thread.join();

  EXPECT_EQ(0, failures.Count());
  for (const HandOver& pair : pairs) {
    EXPECT_EQ(rounds, pair.value);
    EXPECT_EQ(0, pair.full.BytesInPipe());
    EXPECT_EQ(1, pair.empty.BytesInPipe());
  }
}

void FindData(const Event& event, int rounds, Failures& failures) {
  const QIV_HANDLE events[] = {event.Get()};
  for (int round = 0; round < rounds; ++round) {
    failures.Unless(QIV_WaitForMultipleObjects(1, events, 0, 0) == 0);
  }
}

TEST_F(EventStressTest, ThreadsThatWaitForOneSocketStoreWhatTheyFoundTogether) {
  const qiv::test::TcpPair pair;
  const Event event;
  ASSERT_EQ(0, QIV_EventSelect(pair.first.Get(), event.Get(), QIV_EVENT_READ));
  qiv::test::WriteAll(pair.second, "x");
  const QIV_HANDLE events[] = {event.Get()};
  ASSERT_EQ(0, QIV_WaitForMultipleObjects(1, events, 0, -1));

  Failures failures;
  std::array<std::thread, kThreads> waiters;
  const int rounds = qiv::test::ScaledLoad(5000);
  for (std::thread& waiter : waiters) {
    waiter = std::thread([&] { FindData(event, rounds, failures); });
  }
  for (std::thread& waiter : waiters) waiter.join();
  EXPECT_EQ(0, failures.Count());
  EXPECT_EQ(QIV_EVENT_READ, event.Record().triggeredEvent.load());
}

}  // namespace
