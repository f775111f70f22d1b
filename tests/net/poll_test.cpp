
#include <gtest/gtest.h>
#include <qiv/poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

#include "support/interrupting_signals.h"
#include "support/leak_check.h"
#include "support/no_descriptor_limit.h"
#include "support/stopwatch.h"
#include "support/test_limit.h"

namespace {

using qiv::test::InterruptingSignals;
using qiv::test::Stopwatch;
using std::chrono::milliseconds;

constexpr unsigned int kLongBudget = 60000;

class PollTest : public qiv::test::LeakCheckedTest {
 protected:
  void SetUp() override {
    LeakCheckedTest::SetUp();
    ASSERT_EQ(0, pipe(m_pipe));
    m_record = {m_pipe[0], POLLIN, 0};
  }
  void TearDown() override {
    if (m_writer.joinable()) m_writer.join();
    close(m_pipe[0]);
    close(m_pipe[1]);
    LeakCheckedTest::TearDown();
  }

  void MakeReadable() { ASSERT_EQ(1, write(m_pipe[1], "x", 1)); }
  /** `delay` from now or later, but not before. */
  void MakeReadableAfter(milliseconds delay) {
    const auto due = std::chrono::steady_clock::now() + delay;
    m_writer = std::thread([this, due] {
      std::this_thread::sleep_until(due);
      MakeReadable();
    });
  }
  /** Once so many signals have come; also, for the test to fail, when they do not come. */
  void MakeReadableAfterSignals(int count) {
    m_writer = std::thread([this, count] {
      const Stopwatch time;
      while (InterruptingSignals::Count() < count &&
             time.Milliseconds() < qiv::test::TestLimit().count()) {
        std::this_thread::sleep_for(milliseconds(1));
      }
      MakeReadable();
    });
  }
  void Drain() {
    m_writer.join();
    char byte = 0;
    ASSERT_EQ(1, read(m_pipe[0], &byte, 1));
  }

  int m_pipe[2] = {-1, -1};
  pollfd m_record = {};
  std::thread m_writer;
};

TEST_F(PollTest, FdIsSetReadsTheBitOfEveryDescriptor) {
  fd_set set;
  FD_ZERO(&set);
  for (int fd = 0; fd < FD_SETSIZE; ++fd) {
    if (fd % 7 == 0 || fd % 32 == 31) FD_SET(fd, &set);
  }
  for (int fd = 0; fd < FD_SETSIZE; ++fd) {
    ASSERT_EQ(fd % 7 == 0 || fd % 32 == 31 ? 1 : 0, QIV_FdIsSet(fd, &set)) << fd;
  }
}

TEST_F(PollTest, FdIsSetReadsSetsLongerThanTheSystems) {
  std::vector<fd_set> sets(2);
  FD_ZERO(&sets[0]);
  FD_ZERO(&sets[1]);
  FD_SET(5, &sets[1]);
  EXPECT_EQ(1, QIV_FdIsSet(FD_SETSIZE + 5, sets.data()));
  EXPECT_EQ(0, QIV_FdIsSet(FD_SETSIZE + 6, sets.data()));
}

TEST_F(PollTest, FdIsSetOfNullOrANegativeDescriptorIsZero) {
  fd_set set;
  FD_ZERO(&set);
  EXPECT_EQ(0, QIV_FdIsSet(3, nullptr));
  EXPECT_EQ(0, QIV_FdIsSet(-1, &set));
}

TEST_F(PollTest, SelectLeavesTheTimeOutAlone) {
  ASSERT_NO_FATAL_FAILURE(MakeReadable());
  fd_set read;
  FD_ZERO(&read);
  FD_SET(m_pipe[0], &read);
  timeval timeout = {5, 123};
  EXPECT_EQ(1, QIV_Select(m_pipe[0] + 1, &read, nullptr, nullptr, &timeout));
  EXPECT_EQ(1, QIV_FdIsSet(m_pipe[0], &read));
  EXPECT_EQ(5, timeout.tv_sec);
  EXPECT_EQ(123, timeout.tv_usec);
}

TEST_F(PollTest, SelectThatTimesOutLeavesTheTimeOutAlone) {
  fd_set read;
  FD_ZERO(&read);
  FD_SET(m_pipe[0], &read);
  timeval timeout = {0, 20000};
  EXPECT_EQ(0, QIV_Select(m_pipe[0] + 1, &read, nullptr, nullptr, &timeout));
  EXPECT_EQ(20000, timeout.tv_usec);
}

TEST_F(PollTest, SelectExLowersTheTimeOut) {
  fd_set read;
  FD_ZERO(&read);
  FD_SET(m_pipe[0], &read);
  timeval timeout = {0, 20000};
  EXPECT_EQ(0, QIV_SelectEx(m_pipe[0] + 1, &read, nullptr, nullptr, &timeout));
  EXPECT_EQ(0, timeout.tv_sec);
  EXPECT_EQ(0, timeout.tv_usec);
}

TEST_F(PollTest, SelectWithoutATimeOutWaits) {
  for (const auto call : {QIV_Select, QIV_SelectEx}) {
    fd_set read;
    FD_ZERO(&read);
    FD_SET(m_pipe[0], &read);
    MakeReadableAfter(milliseconds(50));
    EXPECT_EQ(1, call(m_pipe[0] + 1, &read, nullptr, nullptr, nullptr));
    ASSERT_NO_FATAL_FAILURE(Drain());
  }
}

TEST_F(PollTest, SelectWatchesWritersToo) {
  for (const auto call : {QIV_Select, QIV_SelectEx}) {
    fd_set write;
    FD_ZERO(&write);
    FD_SET(m_pipe[1], &write);
    EXPECT_EQ(1, call(m_pipe[1] + 1, nullptr, &write, nullptr, nullptr));
    EXPECT_EQ(1, QIV_FdIsSet(m_pipe[1], &write));
  }
}

TEST_F(PollTest, SelectOfAClosedDescriptorFailsWithTheSystemsError) {
  const int closed = dup(m_pipe[0]);
  close(closed);
  for (const auto call : {QIV_Select, QIV_SelectEx}) {
    fd_set error;
    FD_ZERO(&error);
    FD_SET(closed, &error);
    timeval timeout = {1, 0};
    errno = 0;
    EXPECT_EQ(-1, call(closed + 1, nullptr, nullptr, &error, &timeout));
    EXPECT_EQ(EBADF, errno);
  }
}

TEST_F(PollTest, PollGivesTheSystemsResult) {
  EXPECT_EQ(0, QIV_Poll(&m_record, 1, 0));
  ASSERT_NO_FATAL_FAILURE(MakeReadable());
  EXPECT_EQ(1, QIV_Poll(&m_record, 1, -1));
  EXPECT_EQ(POLLIN, m_record.revents);
}

TEST_F(PollTest, PollIsKeptToEndOnASignal) {
  const InterruptingSignals signals(milliseconds(20));
  const auto limit = static_cast<int>(qiv::test::TestLimit().count());
  EXPECT_EQ(-1, QIV_Poll(&m_record, 1, limit));
  EXPECT_EQ(EINTR, errno);
}

TEST_F(PollTest, PollExWithBudgetZeroLooksOnce) {
  unsigned int budget = 0;
  EXPECT_EQ(0, QIV_PollEx(&m_record, 1, &budget));
  EXPECT_EQ(0U, budget);
  ASSERT_NO_FATAL_FAILURE(MakeReadable());
  EXPECT_EQ(1, QIV_PollEx(&m_record, 1, &budget));
  EXPECT_EQ(0U, budget);
}

TEST_F(PollTest, PollExWithoutALimitWaitsAndWritesNoBudget) {
  unsigned int infinite = QIV_INFINITE;
  for (unsigned int* const budget : {static_cast<unsigned int*>(nullptr), &infinite}) {
    MakeReadableAfter(milliseconds(50));
    EXPECT_EQ(1, QIV_PollEx(&m_record, 1, budget));
    ASSERT_NO_FATAL_FAILURE(Drain());
  }
  EXPECT_EQ(QIV_INFINITE, infinite);
}

TEST_F(PollTest, PollExWithoutALimitOutlastsSignals) {
  unsigned int budget = QIV_INFINITE;
  const InterruptingSignals signals(milliseconds(5));
  MakeReadableAfterSignals(5);
  EXPECT_EQ(1, QIV_PollEx(&m_record, 1, &budget));
  EXPECT_EQ(QIV_INFINITE, budget);
  EXPECT_GE(InterruptingSignals::Count(), 5);
}

TEST_F(PollTest, PollExLeavesTheRestOfTheBudget) {
  const Stopwatch time;
  MakeReadableAfter(milliseconds(300));
  const long long late = time.Milliseconds();
  unsigned int budget = kLongBudget;
  EXPECT_EQ(1, QIV_PollEx(&m_record, 1, &budget));
  const long long spent = static_cast<long long>(kLongBudget) - budget;
  EXPECT_GE(spent, (300 - late) * 95 / 100);
  EXPECT_LE(spent, time.Milliseconds() + 2);
}

TEST_F(PollTest, PollExThatTimesOutTakesItsTimeAndUsesTheBudgetUp) {
  unsigned int budget = 100;
  const Stopwatch time;
  EXPECT_EQ(0, QIV_PollEx(&m_record, 1, &budget));
  EXPECT_GE(time.Milliseconds(), 95);
  // The tick rounds, so one millisecond may seem to be left.
  EXPECT_LE(budget, 1U);
}

TEST_F(PollTest, PollExGoesOnAfterSignalsWithTheTimeLeft) {
  const InterruptingSignals signals(milliseconds(20));
  // A busy machine may let no signal through in the first rounds.
  for (unsigned int ms = 200; InterruptingSignals::Count() < 3; ms *= 2) {
    unsigned int budget = ms;
    const Stopwatch time;
    const int result = QIV_PollEx(&m_record, 1, &budget);
    EXPECT_GE(time.Milliseconds(), ms * 95 / 100);
    // A signal at the very end is the only one that may end the wait.
    EXPECT_TRUE(result == 0 || (result == -1 && errno == EINTR)) << result;
    EXPECT_LE(budget, 1U);
  }
}

TEST_F(PollTest, PollExInterruptedAfterDataArrivesReportsTheData) {
  constexpr int kSignals = 5;
  constexpr milliseconds kPeriod(20);
  const Stopwatch time;
  const InterruptingSignals signals(kPeriod);
  MakeReadableAfterSignals(kSignals);
  const long long late = time.Milliseconds();
  unsigned int budget = kLongBudget;
  EXPECT_EQ(1, QIV_PollEx(&m_record, 1, &budget));
  EXPECT_GE(InterruptingSignals::Count(), kSignals);
  const long long spent = static_cast<long long>(kLongBudget) - budget;
  EXPECT_GE(spent, (kSignals * kPeriod.count() - late) * 95 / 100 - kSignals);  // each tick rounds
  EXPECT_GT(budget, 0U);
}

TEST_F(PollTest, PollExInterruptedPastItsBudgetNeverWritesAHugeBudget) {
  const InterruptingSignals signals(milliseconds(1));
  for (int round = 0; round < 200; ++round) {
    unsigned int budget = 1;
    QIV_PollEx(&m_record, 1, &budget);
    ASSERT_LE(budget, 1U);
  }
}

TEST_F(PollTest, PollExEndsOnAnyOtherErrorWithItsErrno) {
  const qiv::test::NoDescriptorLimit noDescriptors;  // poll() then refuses every record
  unsigned int budget = 1000;
  errno = 0;
  EXPECT_EQ(-1, QIV_PollEx(&m_record, 1, &budget));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_GT(budget, 0U);
  errno = 0;
  EXPECT_EQ(-1, QIV_PollEx(&m_record, 1, nullptr));
  EXPECT_EQ(EINVAL, errno);
}

TEST_F(PollTest, PollExOfAClosedDescriptorReportsIt) {
  const int closed = dup(m_pipe[0]);
  close(closed);
  pollfd record = {closed, POLLIN, 0};
  unsigned int budget = 1000;
  EXPECT_EQ(1, QIV_PollEx(&record, 1, &budget));
  EXPECT_EQ(POLLNVAL, record.revents);
}

}  // namespace
