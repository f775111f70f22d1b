// The class layer's transfers.
#include <qiv/socket_classes.h>

#include <gtest/gtest.h>
#include <qiv/library.h>
#include <qiv/socket.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstring>
#include <optional>
#include <string>
#include <thread>

#include "net/socket_classes_support.h"
#include "support/interrupting_signals.h"
#include "support/leak_check.h"
#include "support/run_in_thread.h"
#include "support/stopwatch.h"
#include "support/test_limit.h"

namespace {

using qiv::qiv_net_addr;
using qiv::qiv_sock_utils;
using qiv::test::InterruptingSignals;
using qiv::test::kLongMs;
using qiv::test::kNoLimit;
using qiv::test::RunInThread;
using qiv::test::Socket;
using qiv::test::Stopwatch;
using qiv::test::TcpPair;
using std::chrono::milliseconds;

constexpr unsigned int kSmallBuffer = 128 * 1024;

int Size(const std::string& bytes) { return static_cast<int>(bytes.size()); }

/** Far more than the buffers of both ends take together. */
std::string MuchData() { return qiv::test::Pattern(32 * kSmallBuffer, 7); }

/** The system's reaction to SIGPIPE, which ends the process, as long as this lives. */
class DefaultSigpipe {
 public:
  DefaultSigpipe() {
    struct sigaction byDefault = {};
    byDefault.sa_handler = SIG_DFL;
    EXPECT_EQ(0, sigaction(SIGPIPE, &byDefault, &m_saved));
  }
  ~DefaultSigpipe() { EXPECT_EQ(0, sigaction(SIGPIPE, &m_saved, nullptr)); }
  DefaultSigpipe(const DefaultSigpipe&) = delete;
  DefaultSigpipe& operator=(const DefaultSigpipe&) = delete;

 private:
  struct sigaction m_saved = {};
};

/** Starts the library and stops it. */
class StartedLibrary {
 public:
  StartedLibrary() { EXPECT_EQ(0, QIV_Init()); }
  ~StartedLibrary() { EXPECT_EQ(0, QIV_Fini()); }
  StartedLibrary(const StartedLibrary&) = delete;
  StartedLibrary& operator=(const StartedLibrary&) = delete;
};

/** Runs a step every 20 ms on a thread of its own. */
class PeriodicSteps {
 public:
  template <class Step>
  explicit PeriodicSteps(Step step)
      : m_thread([this, step] {
          while (!m_stop.load(std::memory_order_acquire)) {
            step();
            std::this_thread::sleep_for(milliseconds(20));
          }
        }) {}
  ~PeriodicSteps() {
    m_stop.store(true, std::memory_order_release);
    m_thread.join();
  }
  PeriodicSteps(const PeriodicSteps&) = delete;
  PeriodicSteps& operator=(const PeriodicSteps&) = delete;

 private:
  std::atomic<bool> m_stop{false};
  std::thread m_thread;
};

/** Expects a transfer of much data with a time-out of 200 ms to do some of it in that time. */
template <class Transfer>
void ExpectEndAfter200Ms(Transfer transfer) {
  std::string bytes = MuchData();
  const Stopwatch watch;
  const int count = transfer(bytes);
  EXPECT_GE(watch.Milliseconds(), 190);
  EXPECT_LT(watch.Milliseconds(), qiv::test::TestLimit().count());
  EXPECT_GT(count, 0);
  EXPECT_LT(count, Size(bytes));
}

void ExpectBrokenPipe(int result) {
  EXPECT_EQ(-1, result);
  EXPECT_EQ(EPIPE, errno);
  errno = 0;
}

class SockUtilsTransferTest : public qiv::test::LeakCheckedTest {
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
    m_far = m_pair->second.Get();
    for (const int end : {m_near, m_far}) {
      ASSERT_EQ(0, QIV_SetBuffSize(end, kSmallBuffer, kSmallBuffer));
      ASSERT_EQ(0, qiv_sock_utils::set_nonblock(end, 1));
    }
  }

  void FillNear() {
    const std::string bytes = MuchData();
    pollfd record = {m_near, POLLOUT, 0};
    do {
      while (::send(m_near, bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0) {
      }
    } while (poll(&record, 1, 50) > 0);
  }

  /** Ends the connection so that the near end is told at once of a broken pipe. */
  void BreakConnection() {
    qiv::test::Reset(m_pair->second);
    pollfd record = {m_near, POLLIN, 0};
    ASSERT_EQ(1, poll(&record, 1, -1));
    int error = 0;
    int length = sizeof(error);
    ASSERT_EQ(0, qiv_sock_utils::get_sock_opt(m_near, SOL_SOCKET, SO_ERROR,
                                              reinterpret_cast<char*>(&error), &length));
  }

  void TakeSomeAtTheFarEnd() const {
    std::string bytes(kSmallBuffer / 2, '\0');
    ::recv(m_far, bytes.data(), bytes.size(), MSG_DONTWAIT);
  }

  std::optional<TcpPair> m_pair;
  int m_near = -1;
  int m_far = -1;
  char m_buffer[64] = {};
};

// send and recv.

TEST_F(SockUtilsTransferTest, SendAndRecvCarryBytes) {
  qiv_sock_utils utils;
  EXPECT_EQ(5, utils.send(m_near, "hello", 5, kLongMs, 0));
  EXPECT_EQ(2, utils.recv(m_far, m_buffer, 2, kNoLimit, 0));
  EXPECT_EQ(3, utils.recv(m_far, m_buffer + 2, sizeof(m_buffer) - 2, 0, 0));
  EXPECT_STREQ("hello", m_buffer);
}

TEST_F(SockUtilsTransferTest, FlagsArePassedToTheSystem) {
  ASSERT_EQ(3, qiv_sock_utils::send(m_near, "abc", 3, kLongMs, 0));
  EXPECT_EQ(3, qiv_sock_utils::recv(m_far, m_buffer, 3, kLongMs, MSG_PEEK));
  EXPECT_EQ(3, qiv_sock_utils::recv(m_far, m_buffer, 3, kLongMs, 0));
  ASSERT_EQ(1, qiv_sock_utils::send(m_near, "!", 1, kLongMs, MSG_OOB));
  pollfd record = {m_far, POLLPRI, 0};
  EXPECT_EQ(1, poll(&record, 1, -1));
}

TEST_F(SockUtilsTransferTest, TimeOutGives0) {
  const Stopwatch watch;
  EXPECT_EQ(0, qiv_sock_utils::recv(m_near, m_buffer, 1, 50, 0));
  EXPECT_GE(watch.Milliseconds(), 47);
  EXPECT_EQ(0, qiv_sock_utils::recv(m_near, m_buffer, 1, 0, 0));
  ASSERT_NO_FATAL_FAILURE(FillNear());
  EXPECT_EQ(0, qiv_sock_utils::send(m_near, "x", 1, 50, 0));
  EXPECT_EQ(0, qiv_sock_utils::send(m_near, "x", 1, 0, 0));
  EXPECT_EQ(0, qiv_sock_utils::sendn(m_near, "x", 1, 0, 0));
  EXPECT_EQ(0, qiv_sock_utils::sendto(m_near, "x", 1, qiv_net_addr(), 0, 0));
}

TEST_F(SockUtilsTransferTest, WithoutALimitRecvWaitsThroughSignals) {
  const InterruptingSignals signals(milliseconds(2));
  auto writer = RunInThread([this] {
    std::this_thread::sleep_for(milliseconds(40));
    qiv::test::WriteAll(m_pair->second, "x");
    return true;
  });
  EXPECT_EQ(1, qiv_sock_utils::recv(m_near, m_buffer, 1, kNoLimit, 0));
  EXPECT_TRUE(writer.Get());
}

TEST_F(SockUtilsTransferTest, TimeBelowMinusOneFailsWithEinval) {
  qiv_net_addr peer;
  for (const int ms : {-2, INT_MIN}) {
    const auto expectInvalid = [](int result) {
      EXPECT_EQ(-1, result);
      EXPECT_EQ(EINVAL, errno);
      errno = 0;
    };
    errno = 0;
    expectInvalid(qiv_sock_utils::send(m_near, "x", 1, ms, 0));
    expectInvalid(qiv_sock_utils::recv(m_near, m_buffer, 1, ms, 0));
    expectInvalid(qiv_sock_utils::sendn(m_near, "x", 1, ms, 0));
    expectInvalid(qiv_sock_utils::recvn(m_near, m_buffer, 1, ms, 0));
    expectInvalid(qiv_sock_utils::sendto(m_near, "x", 1, peer, ms, 0));
    expectInvalid(qiv_sock_utils::recvfrom(m_near, m_buffer, 1, peer, ms, 0));
    expectInvalid(qiv_sock_utils::accept(m_near, peer, ms));
  }
}

TEST_F(SockUtilsTransferTest, DescriptorThatDoesNotFitASetFails) {
  qiv_net_addr peer;
  const Socket beyond = qiv::test::MoveTo(std::move(m_pair->first), FD_SETSIZE);
  for (const int descriptor : {beyond.Get(), INT_MAX, -1, INT_MIN}) {
    const auto expectFailure = [descriptor](int result) {
      EXPECT_EQ(-1, result);
      EXPECT_EQ(descriptor < 0 ? EBADF : EINVAL, errno) << descriptor;
      errno = 0;
    };
    for (const int ms : {kNoLimit, 0, kLongMs}) {
      errno = 0;
      expectFailure(qiv_sock_utils::send(descriptor, "x", 1, ms, 0));
      expectFailure(qiv_sock_utils::recv(descriptor, m_buffer, 1, ms, 0));
      expectFailure(qiv_sock_utils::sendn(descriptor, "x", 1, ms, 0));
      expectFailure(qiv_sock_utils::recvn(descriptor, m_buffer, 1, ms, 0));
      expectFailure(qiv_sock_utils::sendto(descriptor, "x", 1, peer, ms, 0));
      expectFailure(qiv_sock_utils::recvfrom(descriptor, m_buffer, 1, peer, ms, 0));
      expectFailure(qiv_sock_utils::accept(descriptor, peer, ms));
    }
  }
}

TEST_F(SockUtilsTransferTest, NegativeLengthIsRefusedBeforeTheSystem) {
  ASSERT_EQ(1, qiv_sock_utils::send(m_far, "x", 1, kLongMs, 0));
  qiv_net_addr peer;
  for (const int length : {-1, INT_MIN}) {
    const auto expectRefusal = [](int result) {
      EXPECT_EQ(-1, result);
      EXPECT_EQ(EINVAL, errno);
      errno = 0;
    };
    errno = 0;
    expectRefusal(qiv_sock_utils::send(m_near, "x", length, kNoLimit, 0));
    expectRefusal(qiv_sock_utils::recv(m_near, m_buffer, length, kNoLimit, 0));
    expectRefusal(qiv_sock_utils::sendn(m_near, "x", length, kNoLimit, 0));
    expectRefusal(qiv_sock_utils::recvn(m_near, m_buffer, length, kNoLimit, 0));
    expectRefusal(qiv_sock_utils::sendto(m_near, "x", length, peer, kNoLimit, 0));
    expectRefusal(qiv_sock_utils::recvfrom(m_near, m_buffer, length, peer, kNoLimit, 0));
  }
  EXPECT_EQ(1, qiv_sock_utils::recv(m_near, m_buffer, 1, kLongMs, 0));  // still there
}

TEST_F(SockUtilsTransferTest, ResultBelow1IsMinusOne) {
  EXPECT_EQ(-1, qiv_sock_utils::send(m_near, "x", 0, kLongMs, 0));
  EXPECT_EQ(-1, qiv_sock_utils::sendn(m_near, "x", 0, kLongMs, 0));
  m_pair->second.Close();
  EXPECT_EQ(-1, qiv_sock_utils::recv(m_near, m_buffer, 1, kLongMs, 0));
  EXPECT_EQ(-1, qiv_sock_utils::recvn(m_near, m_buffer, 1, kLongMs, 0));
}

// A SIGPIPE would end the test.
TEST_F(SockUtilsTransferTest, SendToABrokenConnectionRaisesNoSignal) {
  const DefaultSigpipe defaultSigpipe;
  ASSERT_NO_FATAL_FAILURE(BreakConnection());
  ExpectBrokenPipe(qiv_sock_utils::send(m_near, "x", 1, kLongMs, 0));
  ExpectBrokenPipe(qiv_sock_utils::sendn(m_near, "x", 1, kLongMs, 0));
  ExpectBrokenPipe(qiv_sock_utils::sendto(m_near, "x", 1, "127.0.0.1:9", kLongMs, 0));
}

TEST_F(SockUtilsTransferTest, SendToABrokenConnectionRaisesNoSignalInAStartedLibrary) {
  const StartedLibrary library;
  const DefaultSigpipe defaultSigpipe;  // the start ignores the signal
  ASSERT_NO_FATAL_FAILURE(BreakConnection());
  ExpectBrokenPipe(qiv_sock_utils::send(m_near, "x", 1, kLongMs, 0));
}

TEST_F(SockUtilsTransferTest, SendToAClosedLocalSocketRaisesNoSignal) {
  const DefaultSigpipe defaultSigpipe;
  int ends[2] = {};
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
  const Socket near(ends[0]);
  Socket(ends[1]).Close();
  ExpectBrokenPipe(qiv_sock_utils::send(near.Get(), "x", 1, kLongMs, 0));
  ExpectBrokenPipe(qiv_sock_utils::sendn(near.Get(), "x", 1, kLongMs, 0));
}

// sendn and recvn.

class SockUtilsWholeTransferTest : public SockUtilsTransferTest,
                                   public ::testing::WithParamInterface<int> {};

TEST_P(SockUtilsWholeTransferTest, SendnAndRecvnCarryMoreThanTheBuffersTake) {
  const int ms = GetParam();
  const std::string data = MuchData();
  std::string received(data.size(), '\0');
  auto result = RunInThread(
      [&] { return qiv_sock_utils::recvn(m_far, received.data(), Size(received), ms, 0); });
  EXPECT_EQ(Size(data), qiv_sock_utils::sendn(m_near, data.data(), Size(data), ms, 0));
  EXPECT_EQ(Size(data), result.Get());
  EXPECT_TRUE(data == received);
}

INSTANTIATE_TEST_SUITE_P(Limits, SockUtilsWholeTransferTest, ::testing::Values(kNoLimit, kLongMs));

TEST_F(SockUtilsTransferTest, SendnThatRunsOutOfTimeGivesWhatWasSent) {
  const std::string data = MuchData();
  const Stopwatch watch;
  const int sent = qiv_sock_utils::sendn(m_near, data.data(), Size(data), 200, 0);
  EXPECT_GE(watch.Milliseconds(), 190);
  EXPECT_GT(sent, 0);
  EXPECT_LT(sent, Size(data));
  std::string received(data.size(), '\0');
  ASSERT_EQ(sent, qiv_sock_utils::recvn(m_far, received.data(), sent, kLongMs, 0));
  EXPECT_EQ(0, std::memcmp(data.data(), received.data(), static_cast<std::size_t>(sent)));
}

TEST_F(SockUtilsTransferTest, SendnWithoutTimeTriesOnce) {
  const std::string data = MuchData();
  const int sent = qiv_sock_utils::sendn(m_near, data.data(), Size(data), 0, 0);
  EXPECT_GT(sent, 0);
  EXPECT_LT(sent, Size(data));
  EXPECT_EQ(-1, qiv_sock_utils::sendn(-1, data.data(), Size(data), 0, 0));
}

TEST_F(SockUtilsTransferTest, RecvnThatRunsOutOfTimeGivesWhatWasReceived) {
  ASSERT_EQ(3, qiv_sock_utils::send(m_near, "abc", 3, kLongMs, 0));
  const Stopwatch watch;
  EXPECT_EQ(3, qiv_sock_utils::recvn(m_far, m_buffer, 6, 100, 0));
  EXPECT_GE(watch.Milliseconds(), 95);
  EXPECT_STREQ("abc", m_buffer);
  EXPECT_EQ(0, qiv_sock_utils::recvn(m_far, m_buffer, 6, 50, 0));
}

TEST_F(SockUtilsTransferTest, RecvnWithoutTimeTakesWhatIsThere) {
  EXPECT_EQ(0, qiv_sock_utils::recvn(m_far, m_buffer, 6, 0, 0));
  ASSERT_EQ(3, qiv_sock_utils::send(m_near, "abc", 3, kLongMs, 0));
  pollfd record = {m_far, POLLIN, 0};
  ASSERT_EQ(1, poll(&record, 1, -1));
  EXPECT_EQ(3, qiv_sock_utils::recvn(m_far, m_buffer, 6, 0, 0));
}

// The peer acts every 20 ms: each wait alone is short, all of them together are not.

TEST_F(SockUtilsTransferTest, TimeOutOfRecvnBoundsAllWaitsTogether) {
  qiv::test::WriteAll(m_pair->first, "x");
  PeriodicSteps writer([this] { qiv::test::WriteAll(m_pair->first, "x"); });
  ExpectEndAfter200Ms([this](std::string& bytes) {
    return qiv_sock_utils::recvn(m_far, bytes.data(), Size(bytes), 200, 0);
  });
}

TEST_F(SockUtilsTransferTest, SignalsDoNotMakeTheTimeOutOfRecvnLonger) {
  qiv::test::WriteAll(m_pair->first, "x");
  PeriodicSteps writer([this] { qiv::test::WriteAll(m_pair->first, "x"); });
  const InterruptingSignals signals(milliseconds(5));
  ExpectEndAfter200Ms([this](std::string& bytes) {
    return qiv_sock_utils::recvn(m_far, bytes.data(), Size(bytes), 200, 0);
  });
}

TEST_F(SockUtilsTransferTest, TimeOutOfSendnBoundsAllWaitsTogether) {
  PeriodicSteps reader([this] { TakeSomeAtTheFarEnd(); });
  ExpectEndAfter200Ms([this](std::string& bytes) {
    return qiv_sock_utils::sendn(m_near, bytes.data(), Size(bytes), 200, 0);
  });
}

TEST_F(SockUtilsTransferTest, SignalsDoNotMakeTheTimeOutOfSendnLonger) {
  PeriodicSteps reader([this] { TakeSomeAtTheFarEnd(); });
  const InterruptingSignals signals(milliseconds(5));
  ExpectEndAfter200Ms([this](std::string& bytes) {
    return qiv_sock_utils::sendn(m_near, bytes.data(), Size(bytes), 200, 0);
  });
}

TEST_F(SockUtilsTransferTest, RecvnIsKeptToGiveMinusOneWhenThePeerClosesAfterHalfTheBytes) {
  for (const int ms : {kNoLimit, kLongMs}) {
    Connect();
    ASSERT_EQ(3, qiv_sock_utils::send(m_near, "abc", 3, kLongMs, 0));
    m_pair->first.Close();
    EXPECT_EQ(-1, qiv_sock_utils::recvn(m_far, m_buffer, 6, ms, 0));
  }
}

TEST_F(SockUtilsTransferTest, SendnIsKeptToGiveMinusOneWhenThePeerBreaksOffAfterSomeBytes) {
  const std::string data = MuchData();
  auto reader = RunInThread([this] {
    const bool hasRead = !qiv::test::ReadExactly(m_pair->second, 1000).empty();
    qiv::test::Reset(m_pair->second);
    return hasRead;
  });
  EXPECT_EQ(-1, qiv_sock_utils::sendn(m_near, data.data(), Size(data), kLongMs, 0));
  EXPECT_TRUE(reader.Get());
}

TEST_F(SockUtilsTransferTest, RecvnOfNothingIsKeptAFailureWhenThereAreBytes) {
  EXPECT_EQ(0, qiv_sock_utils::recvn(m_far, m_buffer, 0, 0, 0));
  ASSERT_EQ(1, qiv_sock_utils::send(m_near, "x", 1, kLongMs, 0));
  EXPECT_EQ(-1, qiv_sock_utils::recvn(m_far, m_buffer, 0, kLongMs, 0));
}

}  // namespace
