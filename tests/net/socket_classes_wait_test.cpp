// The class layer's waits.
#include <qiv/socket_classes.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <optional>
#include <thread>
#include <type_traits>
#include <utility>

#include "support/interrupting_signals.h"
#include "support/leak_check.h"
#include "support/no_descriptor_limit.h"
#include "support/run_in_thread.h"
#include "support/sleeping_thread.h"
#include "support/sockets.h"
#include "support/stopwatch.h"
#include "support/test_limit.h"

namespace {

using qiv::qiv_sock_utils;
using qiv::test::InterruptingSignals;
using qiv::test::RunInThread;
using qiv::test::Socket;
using qiv::test::Stopwatch;
using qiv::test::TcpPair;
using std::chrono::milliseconds;

constexpr int kReadable = 0x40;
constexpr int kWritable = 0x100;
constexpr milliseconds kSignalPeriod{2};

timeval Milliseconds(long ms) { return {ms / 1000, ms % 1000 * 1000}; }

void ExpectTime(const timeval& expected, const timeval& actual) {
  EXPECT_EQ(expected.tv_sec, actual.tv_sec);
  EXPECT_EQ(expected.tv_usec, actual.tv_usec);
}

/** By how many microseconds a time was lowered. */
long long LoweredBy(const timeval& before, const timeval& now) {
  EXPECT_GE(now.tv_usec, 0);
  EXPECT_LT(now.tv_usec, 1000000);
  return (before.tv_sec - now.tv_sec) * 1000000LL + before.tv_usec - now.tv_usec;
}

/**
 * Lowered, and by no more than has passed. How much of that the wait took cannot be told from
 * here: the process may have stood still before and after it.
 */
void ExpectLowered(const timeval& before, const timeval& now, const Stopwatch& watch) {
  const long long passed = watch.Milliseconds() + 1;  // rounded up
  const long long lowered = LoweredBy(before, now);
  EXPECT_GT(lowered, 0);
  EXPECT_LE(lowered, (passed + 1) * 1000);
}

class SockUtilsWaitTest : public qiv::test::LeakCheckedTest {
 protected:
  void SetUp() override {
    LeakCheckedTest::SetUp();
    Connect();
  }
  void TearDown() override {
    m_pair.reset();
    LeakCheckedTest::TearDown();
  }

  void Connect() {
    m_pair.emplace();
    m_near = m_pair->first.Get();
  }

  void MakeReadable() { qiv::test::WriteAll(m_pair->second, "x"); }

  /** In a thread: makes the near end readable when the calling thread waits. */
  auto MakeReadableOnceAsleep() {
    return RunInThread([this, waiting = qiv::test::SystemThreadId()] {
      const bool isAsleep = qiv::test::WaitUntilAsleep(waiting);
      MakeReadable();
      return isAsleep;
    });
  }

  /**
   * In a thread: makes the near end readable after some 20 signals. They are not counted: the
   * thread sanitizer keeps handlers from running while select() waits.
   */
  auto MakeReadableAfterSignals() {
    return RunInThread([this] {
      std::this_thread::sleep_for(20 * kSignalPeriod);
      MakeReadable();
      return true;
    });
  }

  std::optional<TcpPair> m_pair;
  int m_near = -1;
};

TEST_F(SockUtilsWaitTest, ObjectIsAVirtualTable) {
  static_assert(std::has_virtual_destructor<qiv_sock_utils>::value, "");
  EXPECT_EQ(sizeof(void*), sizeof(qiv_sock_utils));
  const qiv_sock_utils* const utils = new qiv_sock_utils;
  delete utils;
}

TEST_F(SockUtilsWaitTest, MasksAreThoseOfTheResults) {
  EXPECT_EQ(kReadable, static_cast<int>(qiv_sock_utils::kReadable));
  EXPECT_EQ(kWritable, static_cast<int>(qiv_sock_utils::kWritable));
}

// is_rdwr, is_rd, is_wr.

TEST_F(SockUtilsWaitTest, IsRdwrWithNeitherBitIsMinusOne) {
  timeval time = Milliseconds(1000);
  errno = 0;
  for (const int mask : {0, 1, 0x80, ~(kReadable | kWritable)}) {
    EXPECT_EQ(-1, qiv_sock_utils::is_rdwr(m_near, &time, mask)) << mask;
  }
  EXPECT_EQ(-1, qiv_sock_utils::is_rdwr(-1, nullptr, 0));
  EXPECT_EQ(0, errno);
  ExpectTime(Milliseconds(1000), time);
}

TEST_F(SockUtilsWaitTest, IsRdwrTellsWhatHolds) {
  timeval time = {};
  EXPECT_EQ(0, qiv_sock_utils::is_rdwr(m_near, &time, kReadable));
  EXPECT_EQ(kWritable, qiv_sock_utils::is_rdwr(m_near, &time, kWritable));
  EXPECT_EQ(kWritable, qiv_sock_utils::is_rdwr(m_near, &time, kReadable | kWritable));
  MakeReadable();
  EXPECT_EQ(kReadable, qiv_sock_utils::is_rdwr(m_near, nullptr, kReadable));
  EXPECT_EQ(kWritable, qiv_sock_utils::is_rdwr(m_near, nullptr, kWritable));
  EXPECT_EQ(kReadable + kWritable, qiv_sock_utils::is_rdwr(m_near, nullptr, -1));
}

TEST_F(SockUtilsWaitTest, IsRdAndIsWrAskForOneThing) {
  qiv_sock_utils utils;
  timeval time = {};
  EXPECT_EQ(0, utils.is_rd(m_near, &time));
  EXPECT_EQ(kWritable, utils.is_wr(m_near, &time));
  MakeReadable();
  EXPECT_EQ(kReadable, utils.is_rd(m_near, nullptr));
  EXPECT_EQ(kWritable, utils.is_wr(m_near, nullptr));
}

TEST_F(SockUtilsWaitTest, IsRdThatTimesOutLeavesNoTime) {
  const Stopwatch watch;
  timeval time = Milliseconds(50);
  EXPECT_EQ(0, qiv_sock_utils::is_rd(m_near, &time));
  EXPECT_GE(watch.Milliseconds(), 47);
  ExpectTime({}, time);
}

TEST_F(SockUtilsWaitTest, IsRdLowersTheTimeByWhatItTook) {
  auto writer = MakeReadableOnceAsleep();
  const timeval before = Milliseconds(600000);
  timeval time = before;
  const Stopwatch watch;
  EXPECT_EQ(kReadable, qiv_sock_utils::is_rd(m_near, &time));
  ExpectLowered(before, time, watch);
  EXPECT_TRUE(writer.Get());
}

TEST_F(SockUtilsWaitTest, IsRdGoesOnAfterSignals) {
  const InterruptingSignals signals(kSignalPeriod);
  auto writer = MakeReadableAfterSignals();
  timeval time = Milliseconds(600000);
  EXPECT_EQ(kReadable, qiv_sock_utils::is_rd(m_near, &time));
  EXPECT_TRUE(writer.Get());
}

TEST_F(SockUtilsWaitTest, SignalsDoNotMakeTheTimeLonger) {
  const InterruptingSignals signals(milliseconds(5));
  const Stopwatch watch;
  timeval time = Milliseconds(200);
  EXPECT_EQ(0, qiv_sock_utils::is_rd(m_near, &time));
  EXPECT_GE(watch.Milliseconds(), 190);
  EXPECT_LT(watch.Milliseconds(), qiv::test::TestLimit().count());
}

TEST_F(SockUtilsWaitTest, InvalidTimeFailsWithTheSystemsError) {
  timeval time = {-1, 0};
  errno = 0;
  EXPECT_EQ(-1, qiv_sock_utils::is_rd(m_near, &time));
  EXPECT_EQ(EINVAL, errno);
}

TEST_F(SockUtilsWaitTest, ClosedDescriptorFailsWithTheSystemsError) {
  timeval time = {};
  m_pair->first.Close();
  errno = 0;
  EXPECT_EQ(-1, qiv_sock_utils::is_rd(m_near, &time));
  EXPECT_EQ(EBADF, errno);
}

TEST_F(SockUtilsWaitTest, LastDescriptorThatFitsTheSetIsWaitedFor) {
  const Socket last = qiv::test::MoveTo(std::move(m_pair->first), FD_SETSIZE - 1);
  EXPECT_EQ(kWritable, qiv_sock_utils::is_rdwr(last.Get(), nullptr, kReadable | kWritable));
}

TEST_F(SockUtilsWaitTest, DescriptorBeyondTheSetFailsWithEinval) {
  const Socket beyond = qiv::test::MoveTo(std::move(m_pair->first), FD_SETSIZE);
  for (const int descriptor : {beyond.Get(), FD_SETSIZE + 1, 65536, 1 << 24, INT_MAX}) {
    for (const int mask : {kReadable, kWritable, kReadable | kWritable}) {
      errno = 0;
      EXPECT_EQ(-1, qiv_sock_utils::is_rdwr(descriptor, nullptr, mask)) << descriptor;
      EXPECT_EQ(EINVAL, errno);
    }
  }
}

TEST_F(SockUtilsWaitTest, NegativeDescriptorFailsWithEbadf) {
  for (const int descriptor : {-1, -64, -1024, INT_MIN}) {
    errno = 0;
    EXPECT_EQ(-1, qiv_sock_utils::is_rdwr(descriptor, nullptr, kReadable | kWritable));
    EXPECT_EQ(EBADF, errno);
  }
}

// select_ctime, select_vtime.

fd_set SetOf(int descriptor) {
  fd_set set;
  FD_ZERO(&set);
  FD_SET(descriptor, &set);
  return set;
}

TEST_F(SockUtilsWaitTest, SelectCtimeLeavesTheTimeAlone) {
  timeval time = Milliseconds(50);
  fd_set set = SetOf(m_near);
  EXPECT_EQ(0, qiv_sock_utils::select_ctime(m_near + 1, &set, nullptr, nullptr, &time));
  EXPECT_FALSE(FD_ISSET(m_near, &set));
  ExpectTime(Milliseconds(50), time);
  MakeReadable();
  set = SetOf(m_near);
  EXPECT_EQ(1, qiv_sock_utils::select_ctime(m_near + 1, &set, nullptr, nullptr, nullptr));
  EXPECT_TRUE(FD_ISSET(m_near, &set));
}

TEST_F(SockUtilsWaitTest, SelectCtimeIsNotRetriedAfterASignal) {
  const InterruptingSignals signals(milliseconds(5));
  timeval time = Milliseconds(600000);
  fd_set set = SetOf(m_near);
  errno = 0;
  EXPECT_EQ(-1, qiv_sock_utils::select_ctime(m_near + 1, &set, nullptr, nullptr, &time));
  EXPECT_EQ(EINTR, errno);
  ExpectTime(Milliseconds(600000), time);
}

TEST_F(SockUtilsWaitTest, SelectVtimeLowersTheTime) {
  timeval time = Milliseconds(50);
  fd_set set = SetOf(m_near);
  EXPECT_EQ(0, qiv_sock_utils::select_vtime(m_near + 1, &set, nullptr, nullptr, &time));
  ExpectTime({}, time);
}

TEST_F(SockUtilsWaitTest, SelectVtimeGoesOnAfterSignalsWithAndWithoutATime) {
  for (const bool isLimited : {true, false}) {
    Connect();
    const InterruptingSignals signals(kSignalPeriod);
    auto writer = MakeReadableAfterSignals();
    timeval time = Milliseconds(600000);
    fd_set set = SetOf(m_near);
    EXPECT_EQ(1, qiv_sock_utils::select_vtime(m_near + 1, &set, nullptr, nullptr,
                                              isLimited ? &time : nullptr));
    EXPECT_TRUE(FD_ISSET(m_near, &set));
    EXPECT_TRUE(writer.Get());
  }
}

TEST_F(SockUtilsWaitTest, SelectPassesAllSetsAndTheSystemsErrors) {
  timeval time = {};
  fd_set read = SetOf(m_near);
  fd_set write = SetOf(m_near);
  fd_set error = SetOf(m_near);
  EXPECT_EQ(1, qiv_sock_utils::select_ctime(m_near + 1, &read, &write, &error, &time));
  EXPECT_TRUE(FD_ISSET(m_near, &write));
  EXPECT_FALSE(FD_ISSET(m_near, &error));
  read = SetOf(m_near);
  error = SetOf(m_near);
  EXPECT_EQ(1, qiv_sock_utils::select_vtime(m_near + 1, &read, &write, &error, &time));
  EXPECT_FALSE(FD_ISSET(m_near, &read));
  EXPECT_FALSE(FD_ISSET(m_near, &error));
  errno = 0;
  EXPECT_EQ(-1, qiv_sock_utils::select_ctime(-1, nullptr, nullptr, nullptr, &time));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_EQ(-1, qiv_sock_utils::select_vtime(-1, nullptr, nullptr, nullptr, &time));
}

// poll_vtime.

TEST_F(SockUtilsWaitTest, PollWithoutABudgetWaitsAndTellsReady) {
  auto writer = RunInThread([this] {
    std::this_thread::sleep_for(milliseconds(30));
    MakeReadable();
    return true;
  });
  pollfd record = {m_near, POLLIN, 0};
  EXPECT_EQ(1, qiv_sock_utils::poll_vtime(&record, 1, nullptr));
  EXPECT_EQ(POLLIN, record.revents);
  EXPECT_TRUE(writer.Get());
}

TEST_F(SockUtilsWaitTest, PollWithoutABudgetIsNotRetriedAfterASignal) {
  const InterruptingSignals signals(milliseconds(5));
  pollfd record = {m_near, POLLIN, 0};
  errno = 0;
  EXPECT_EQ(-1, qiv_sock_utils::poll_vtime(&record, 1, nullptr));
  EXPECT_EQ(EINTR, errno);
}

TEST_F(SockUtilsWaitTest, PollThatTimesOutSetsTheBudgetTo0) {
  pollfd record = {m_near, POLLIN, 0};
  timeval budget = Milliseconds(50);
  const Stopwatch watch;
  EXPECT_EQ(0, qiv_sock_utils::poll_vtime(&record, 1, &budget));
  EXPECT_GE(watch.Milliseconds(), 47);
  ExpectTime({}, budget);
  EXPECT_EQ(0, qiv_sock_utils::poll_vtime(&record, 1, &budget));
}

TEST_F(SockUtilsWaitTest, PollOfLessThanHalfAMillisecondLooksOnceAndSetsTheBudgetTo0) {
  pollfd record = {m_near, POLLIN, 0};
  timeval budget = {0, 499};
  EXPECT_EQ(0, qiv_sock_utils::poll_vtime(&record, 1, &budget));
  ExpectTime({}, budget);
}

TEST_F(SockUtilsWaitTest, PollLowersTheBudgetByWhatItTook) {
  auto writer = MakeReadableOnceAsleep();
  const timeval before = Milliseconds(600000);
  timeval budget = before;
  pollfd record = {m_near, POLLIN, 0};
  const Stopwatch watch;
  EXPECT_EQ(1, qiv_sock_utils::poll_vtime(&record, 1, &budget));
  ExpectLowered(before, budget, watch);
  EXPECT_TRUE(writer.Get());
}

TEST_F(SockUtilsWaitTest, PollGoesOnAfterSignalsWithWhatIsLeft) {
  const InterruptingSignals signals(kSignalPeriod);
  auto writer = MakeReadableAfterSignals();
  const timeval before = Milliseconds(600000);
  timeval budget = before;
  pollfd record = {m_near, POLLIN, 0};
  const Stopwatch watch;
  EXPECT_EQ(1, qiv_sock_utils::poll_vtime(&record, 1, &budget));
  ExpectLowered(before, budget, watch);
  EXPECT_TRUE(writer.Get());
}

TEST_F(SockUtilsWaitTest, SignalsDoNotMakeThePollLonger) {
  const InterruptingSignals signals(milliseconds(5));
  const Stopwatch watch;
  pollfd record = {m_near, POLLIN, 0};
  timeval budget = Milliseconds(200);
  EXPECT_EQ(0, qiv_sock_utils::poll_vtime(&record, 1, &budget));
  EXPECT_GE(watch.Milliseconds(), 190);
  EXPECT_LT(watch.Milliseconds(), qiv::test::TestLimit().count());
  ExpectTime({}, budget);
}

TEST_F(SockUtilsWaitTest, PollThatFailsLeavesABudgetAndKeepsTheError) {
  const qiv::test::NoDescriptorLimit noDescriptors;
  pollfd record = {m_near, POLLIN, 0};
  timeval budget = Milliseconds(600000);
  errno = 0;
  EXPECT_EQ(-1, qiv_sock_utils::poll_vtime(&record, 1, &budget));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_GE(LoweredBy(Milliseconds(600000), budget), 0);  // may take less than a microsecond
  EXPECT_GT(budget.tv_sec, 0);
  EXPECT_EQ(-1, qiv_sock_utils::poll_vtime(&record, 1, nullptr));
}

TEST_F(SockUtilsWaitTest, PollWithANegativeBudgetHasNoLimitAndLeavesABudgetOf0) {
  for (const timeval& before : {timeval{-1, 0}, timeval{0, -1}, timeval{-5, 0}, timeval{-5, 500}}) {
    auto writer = RunInThread([this] {
      std::this_thread::sleep_for(milliseconds(20));
      MakeReadable();
      return true;
    });
    timeval budget = before;
    pollfd record = {m_near, POLLIN, 0};
    EXPECT_EQ(1, qiv_sock_utils::poll_vtime(&record, 1, &budget));
    ExpectTime({}, budget);
    EXPECT_TRUE(writer.Get());
    ASSERT_EQ("x", qiv::test::ReadExactly(m_pair->first, 1));
  }
}

TEST_F(SockUtilsWaitTest, PollWithANegativeBudgetEndsAtASignal) {
  const InterruptingSignals signals(milliseconds(5));
  timeval budget = {-1, 0};
  pollfd record = {m_near, POLLIN, 0};
  EXPECT_EQ(0, qiv_sock_utils::poll_vtime(&record, 1, &budget));
  ExpectTime({}, budget);
}

TEST_F(SockUtilsWaitTest, PollWithMoreMillisecondsThanTheSystemTakesIsNotShortened) {
  auto writer = RunInThread([this] {
    std::this_thread::sleep_for(milliseconds(30));
    MakeReadable();
    return true;
  });
  timeval budget = {INT_MAX, 999999};
  pollfd record = {m_near, POLLIN, 0};
  EXPECT_EQ(1, qiv_sock_utils::poll_vtime(&record, 1, &budget));
  EXPECT_GT(budget.tv_sec, INT_MAX - 1000);
  EXPECT_TRUE(writer.Get());
}

TEST_F(SockUtilsWaitTest, PollOfNoRecordsWaits) {
  timeval budget = Milliseconds(20);
  EXPECT_EQ(0, qiv_sock_utils::poll_vtime(nullptr, 0, &budget));
  ExpectTime({}, budget);
}

}  // namespace
