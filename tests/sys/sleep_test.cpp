#include <gtest/gtest.h>
#include <pthread.h>
#include <qiv/system.h>
#include <qiv/time.h>
#include <signal.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <set>
#include <thread>

#include "support/leak_check.h"
#include "support/run_in_thread.h"

namespace {

using qiv::test::RunInThread;

class SleepTest : public qiv::test::LeakCheckedTest {};

template <class Function>
double MillisecondsOf(Function function) {
  const auto start = std::chrono::steady_clock::now();
  function();
  const std::chrono::duration<double, std::milli> passed = std::chrono::steady_clock::now() - start;
  return passed.count();
}

TEST_F(SleepTest, SleepTakesMilliseconds) {
  EXPECT_GE(MillisecondsOf([] { EXPECT_EQ(0, QIV_Sleep(40)); }), 40 * 0.95);
}

TEST_F(SleepTest, USleepTakesMicroseconds) {
  EXPECT_GE(MillisecondsOf([] { EXPECT_EQ(0, QIV_USleep(30000)); }), 30 * 0.95);
}

TEST_F(SleepTest, ZeroReturnsAtOnce) {
  EXPECT_EQ(0, QIV_Sleep(0));
  EXPECT_EQ(0, QIV_USleep(0));
}

TEST_F(SleepTest, ProductOfSleepIsKeptIn32Bits) {
  // 4294968 * 1000 is 704 microseconds above 2^32.
  EXPECT_LT(MillisecondsOf([] { EXPECT_EQ(0, QIV_Sleep(4294968)); }),
            static_cast<double>(qiv::test::TestLimit().count()));
}

TEST_F(SleepTest, SignalEndsTheSleep) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  sigaction(SIGUSR1, &action, nullptr);
  const pthread_t sleeper = pthread_self();
  std::atomic<bool> done{false};
  // A signal that comes before the sleep has begun is lost, so it is repeated.
  auto repeated = RunInThread([&] {
    while (!done.load(std::memory_order_acquire)) {
      pthread_kill(sleeper, SIGUSR1);
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return 0;
  });
  const int result = QIV_Sleep(4000000);
  const int error = errno;
  done.store(true, std::memory_order_release);
  repeated.Get();
  EXPECT_EQ(-1, result);
  EXPECT_EQ(EINTR, error);
}

TEST(RandTest, NumbersLieWithin31Bits) {
  for (int i = 0; i < 100; ++i) EXPECT_GE(QIV_Rand(), 0);
}

TEST(RandTest, NumberIsKeptTheSameWithinAMillisecondAndChangesWithIt) {
  std::set<int> numbers;
  std::set<unsigned int> ticks;
  for (int i = 0; i < 1000 || ticks.size() < 3; ++i) {
    const unsigned int before = QIV_GetTimeTick();
    const int number = QIV_Rand();
    if (before != QIV_GetTimeTick()) continue;
    ticks.insert(before);
    numbers.insert(number);
  }
  EXPECT_EQ(ticks.size(), numbers.size());
}

}  // namespace
