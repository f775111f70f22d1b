#include <gtest/gtest.h>
#include <poll.h>
#include <qiv/socket.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "net/socket.h"
#include "support/interrupting_signals.h"
#include "support/leak_check.h"
#include "support/no_descriptor_limit.h"
#include "support/run_in_thread.h"
#include "support/sockets.h"
#include "support/stopwatch.h"
#include "support/test_limit.h"

namespace {

using qiv::test::AddressOf;
using qiv::test::BoundSocket;
using qiv::test::InterruptingSignals;
using qiv::test::kLongTimeOutMs;
using qiv::test::NoDescriptorLimit;
using qiv::test::RunInThread;
using qiv::test::Socket;
using qiv::test::Stopwatch;
using qiv::test::TcpPair;

constexpr unsigned int kTooLong = 0x80000000U;
constexpr unsigned int kBufferSize = 128 * 1024;

unsigned int Size(const std::vector<char>& bytes) {
  return static_cast<unsigned int>(bytes.size());
}

class SocketTransferTest : public qiv::test::LeakCheckedTest {
 protected:
  void SetUp() override {
    LeakCheckedTest::SetUp();
    m_pair.emplace();
    m_near = m_pair->first.Get();
    m_far = m_pair->second.Get();
    for (const int end : {m_near, m_far}) {
      ASSERT_EQ(0, QIV_SetBuffSize(end, kBufferSize, kBufferSize));
    }
  }
  void TearDown() override {
    m_pair.reset();
    LeakCheckedTest::TearDown();
  }

  /** Far more than the bounded buffers of both ends take together. */
  static std::vector<char> MuchData() {
    std::vector<char> bytes(32 * kBufferSize);
    std::uint32_t state = 1;
    for (char& byte : bytes) {
      state = state * 1664525 + 1013904223;
      byte = static_cast<char>(state >> 24);
    }
    return bytes;
  }

  void FillNear() {
    ASSERT_EQ(0, QIV_SetNonBlock(m_near, 1));
    const std::vector<char> bytes = MuchData();
    pollfd record = {m_near, POLLOUT, 0};
    do {
      while (QIV_Send(m_near, bytes.data(), Size(bytes)) > 0) {
      }
    } while (poll(&record, 1, 50) > 0);
  }

  void CloseFar() { m_pair->second.Close(); }

  /** Ends the connection so that the near end is told at once of a broken pipe. */
  void BreakConnection() {
    ASSERT_EQ(0, QIV_LingerOn(m_far, 0));
    CloseFar();
    pollfd record = {m_near, POLLIN, 0};
    ASSERT_EQ(1, poll(&record, 1, -1));
    int error = 0;
    socklen_t length = sizeof(error);
    getsockopt(m_near, SOL_SOCKET, SO_ERROR, &error, &length);
  }

  std::optional<TcpPair> m_pair;
  int m_near = -1;
  int m_far = -1;
  char m_buffer[64] = {};
};

TEST_F(SocketTransferTest, SendAndRecvCarryBytes) {
  EXPECT_EQ(5, QIV_Send(m_near, "hello", 5));
  EXPECT_EQ(2, QIV_Recv(m_far, m_buffer, 2));
  EXPECT_EQ(3, QIV_Recv(m_far, m_buffer + 2, sizeof(m_buffer) - 2));
  EXPECT_STREQ("hello", m_buffer);
}

TEST_F(SocketTransferTest, RecvGivesZeroWhenThePeerHasClosed) {
  CloseFar();
  EXPECT_EQ(0, QIV_Recv(m_near, m_buffer, sizeof(m_buffer)));
}

TEST_F(SocketTransferTest, TransferOnABadDescriptorGivesTheSystemsError) {
  const QIV_ADDR_T address = AddressOf(m_pair->first);
  QIV_ADDR_T source;
  const auto expectBadDescriptor = [](int result) {
    EXPECT_EQ(-1, result);
    EXPECT_EQ(EBADF, errno);
    errno = 0;
  };
  expectBadDescriptor(QIV_Send(-1, "x", 1));
  expectBadDescriptor(QIV_Recv(-1, m_buffer, 1));
  expectBadDescriptor(QIV_SendTo(-1, "x", 1, &address));
  expectBadDescriptor(QIV_RecvFrom(-1, m_buffer, 1, &source));
  expectBadDescriptor(QIV_Ioctl(-1, FIONREAD, 0));
}

TEST_F(SocketTransferTest, SendToABrokenConnectionRaisesNoSignal) {
  struct sigaction byDefault = {};
  struct sigaction saved = {};
  byDefault.sa_handler = SIG_DFL;
  ASSERT_EQ(0, sigaction(SIGPIPE, &byDefault, &saved));  // a SIGPIPE would end the test
  ASSERT_NO_FATAL_FAILURE(BreakConnection());
  errno = 0;
  EXPECT_EQ(-1, QIV_Send(m_near, "x", 1));
  EXPECT_EQ(EPIPE, errno);
  EXPECT_EQ(0, QIV_Sendn(m_near, "x", 1, kLongTimeOutMs));
  ASSERT_EQ(0, sigaction(SIGPIPE, &saved, nullptr));
}

TEST_F(SocketTransferTest, DatagramsCarryTheirSource) {
  for (const int family : {AF_INET, AF_INET6}) {
    const Socket sender = BoundSocket(family, SOCK_DGRAM);
    const Socket receiver = BoundSocket(family, SOCK_DGRAM);
    const QIV_ADDR_T target = AddressOf(receiver);
    const QIV_ADDR_T local = AddressOf(sender);
    ASSERT_EQ(3, QIV_SendTo(sender.Get(), "abc", 3, &target));
    QIV_ADDR_T source;
    std::memset(&source, 0xAA, sizeof(source));
    ASSERT_EQ(3, QIV_RecvFrom(receiver.Get(), m_buffer, sizeof(m_buffer), &source));
    EXPECT_EQ(std::string("abc"), m_buffer);
    EXPECT_EQ(0, std::memcmp(&local, &source, family == AF_INET ? 16 : 28)) << family;
  }
}

TEST_F(SocketTransferTest, DatagramWithoutARecordUsesTheConnectionAndAsksNoSource) {
  const Socket sender(AF_INET, SOCK_DGRAM);
  const Socket receiver = BoundSocket(AF_INET, SOCK_DGRAM);
  const QIV_ADDR_T target = AddressOf(receiver);
  errno = 0;
  EXPECT_EQ(-1, QIV_SendTo(sender.Get(), "x", 1, nullptr));
  EXPECT_EQ(EDESTADDRREQ, errno);
  ASSERT_EQ(0, connect(sender.Get(), &target.any, sizeof(sockaddr_in)));
  EXPECT_EQ(3, QIV_SendTo(sender.Get(), "abc", 3, nullptr));
  EXPECT_EQ(3, QIV_RecvFrom(receiver.Get(), m_buffer, sizeof(m_buffer), nullptr));
  EXPECT_STREQ("abc", m_buffer);
}

TEST_F(SocketTransferTest, IoctlPassesRequestAndArgument) {
  ASSERT_EQ(5, QIV_Send(m_near, "hello", 5));
  ASSERT_EQ(1, QIV_RecvWithTimeOut(m_far, m_buffer, 1, kLongTimeOutMs));
  int waiting = 0;
  EXPECT_EQ(0, QIV_Ioctl(m_far, FIONREAD, reinterpret_cast<unsigned long>(&waiting)));
  EXPECT_EQ(4, waiting);
}

// Receiving with a time-out.

TEST_F(SocketTransferTest, RecvWithTimeOutGivesWhatIsThere) {
  ASSERT_EQ(5, QIV_Send(m_near, "hello", 5));
  for (const unsigned int ms : {kLongTimeOutMs, 0U, QIV_INFINITE}) {
    EXPECT_EQ(1, QIV_RecvWithTimeOut(m_far, m_buffer, 1, ms));
  }
  EXPECT_EQ(2, QIV_RecvWithTimeOut(m_far, m_buffer, sizeof(m_buffer), kLongTimeOutMs));
}

TEST_F(SocketTransferTest, RecvWithTimeOutGivesZeroWhenTheTimeRunsOut) {
  EXPECT_EQ(0, QIV_RecvWithTimeOut(m_far, m_buffer, sizeof(m_buffer), 0));
  const Stopwatch time;
  EXPECT_EQ(0, QIV_RecvWithTimeOut(m_far, m_buffer, sizeof(m_buffer), 100));
  EXPECT_GE(time.Milliseconds(), 95);
}

TEST_F(SocketTransferTest, RecvWithTimeOutGivesMinusOneWhenThePeerHasClosed) {
  CloseFar();
  EXPECT_EQ(-1, QIV_RecvWithTimeOut(m_near, m_buffer, sizeof(m_buffer), kLongTimeOutMs));
}

TEST_F(SocketTransferTest, RecvWithTimeOutFailsOnAnErrorOrAHangUp) {
  errno = 0;
  EXPECT_EQ(-1, QIV_RecvWithTimeOut(1 << 20, m_buffer, 1, kLongTimeOutMs));
  EXPECT_EQ(0, errno);
  const Socket idle(AF_INET, SOCK_STREAM);  // reports a hang-up, but nothing to read
  errno = 0;
  EXPECT_EQ(-1, QIV_RecvWithTimeOut(idle.Get(), m_buffer, 1, kLongTimeOutMs));
  EXPECT_EQ(0, errno);  // so the system is not asked
  const NoDescriptorLimit noDescriptors;
  EXPECT_EQ(-1, QIV_RecvWithTimeOut(m_far, m_buffer, 1, kLongTimeOutMs));
}

TEST_F(SocketTransferTest, RecvWithTimeOutRefusesANegativeLength) {
  ASSERT_EQ(1, QIV_Send(m_near, "x", 1));
  EXPECT_EQ(-1, QIV_RecvWithTimeOut(m_far, m_buffer, -1, kLongTimeOutMs));
  EXPECT_EQ(1, QIV_RecvWithTimeOut(m_far, m_buffer, 1, kLongTimeOutMs));  // still there
}

// Sending everything.

class WholeTransferTest : public SocketTransferTest,
                          public ::testing::WithParamInterface<unsigned int> {};

TEST_P(WholeTransferTest, SendnAndRecvnCarryMoreThanTheBuffersTake) {
  const unsigned int ms = GetParam();
  const std::vector<char> data = MuchData();
  std::vector<char> received(data.size());
  ASSERT_EQ(0, QIV_SetNonBlock(m_near, 1));
  ASSERT_EQ(0, QIV_SetNonBlock(m_far, 1));
  auto result = RunInThread([&] { return QIV_Recvn(m_far, received.data(), Size(received), ms); });
  EXPECT_EQ(static_cast<int>(data.size()), QIV_Sendn(m_near, data.data(), Size(data), ms));
  EXPECT_EQ(static_cast<int>(data.size()), result.Get());
  EXPECT_TRUE(data == received);
}

INSTANTIATE_TEST_SUITE_P(Limits, WholeTransferTest,
                         ::testing::Values(QIV_INFINITE, kLongTimeOutMs));

TEST_F(SocketTransferTest, SendnThatRunsOutOfTimeGivesWhatWasSent) {
  const std::vector<char> data = MuchData();
  ASSERT_EQ(0, QIV_SetNonBlock(m_near, 1));
  const Stopwatch time;
  const int sent = QIV_Sendn(m_near, data.data(), Size(data), 200);
  EXPECT_GE(time.Milliseconds(), 190);
  EXPECT_GT(sent, 0);
  EXPECT_LT(sent, static_cast<int>(data.size()));
  std::vector<char> received(data.size());
  ASSERT_EQ(sent,
            QIV_Recvn(m_far, received.data(), static_cast<unsigned int>(sent), kLongTimeOutMs));
  EXPECT_EQ(0, std::memcmp(data.data(), received.data(), static_cast<std::size_t>(sent)));
}

TEST_F(SocketTransferTest, SendnWithoutTimeTriesOnce) {
  const std::vector<char> data = MuchData();
  ASSERT_EQ(0, QIV_SetNonBlock(m_near, 1));
  const int sent = QIV_Sendn(m_near, data.data(), Size(data), 0);
  EXPECT_GT(sent, 0);
  EXPECT_LT(sent, static_cast<int>(data.size()));
}

TEST_F(SocketTransferTest, SendnWithoutRoomGivesZero) {
  ASSERT_NO_FATAL_FAILURE(FillNear());
  EXPECT_EQ(0, QIV_Sendn(m_near, "x", 1, 0));
  EXPECT_EQ(0, QIV_Sendn(m_near, "x", 1, 50));
}

TEST_F(SocketTransferTest, SendnIsKeptToGiveZeroWhenTheFirstSendFails) {
  errno = 0;
  EXPECT_EQ(
      0, QIV_Sendn(1 << 20, "x", 1, kLongTimeOutMs));  // reported by the wait, not as its failure
  EXPECT_EQ(0, errno);                                 // and nothing is sent
  ASSERT_NO_FATAL_FAILURE(BreakConnection());
  EXPECT_EQ(0, QIV_Sendn(m_near, "x", 1, QIV_INFINITE));
}

TEST_F(SocketTransferTest, SendnGivesMinusOneWhenTheWaitFails) {
  const NoDescriptorLimit noDescriptors;
  errno = 0;
  EXPECT_EQ(-1, QIV_Sendn(m_near, "x", 1, kLongTimeOutMs));
  EXPECT_EQ(EINVAL, errno);
}

TEST_F(SocketTransferTest, SendnGoesOnAfterSignals) {
  const std::vector<char> data = MuchData();
  std::vector<char> received(data.size());
  ASSERT_EQ(0, QIV_SetNonBlock(m_near, 1));
  const InterruptingSignals signals(std::chrono::milliseconds(1));
  auto result = RunInThread([&] {
    const Stopwatch time;
    while (InterruptingSignals::Count() < 5 &&
           time.Milliseconds() < qiv::test::TestLimit().count() / 2) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return QIV_Recvn(m_far, received.data(), Size(received), kLongTimeOutMs);
  });
  EXPECT_EQ(static_cast<int>(data.size()),
            QIV_Sendn(m_near, data.data(), Size(data), kLongTimeOutMs));
  EXPECT_EQ(static_cast<int>(data.size()), result.Get());
  EXPECT_GE(InterruptingSignals::Count(), 5);
}

TEST_F(SocketTransferTest, SendnOfNothingIsZero) {
  EXPECT_EQ(0, QIV_Sendn(m_near, "x", 0, kLongTimeOutMs));
  EXPECT_EQ(0, QIV_Sendn(m_near, nullptr, 0, QIV_INFINITE));
}

TEST_F(SocketTransferTest, LengthThatTheResultCannotTellCountsAsTheLongest) {
  using qiv::net::TransferLength;
  EXPECT_EQ(0U, TransferLength(0));
  EXPECT_EQ(0x7FFFFFFFU, TransferLength(0x7FFFFFFFU));
  EXPECT_EQ(0x7FFFFFFFU, TransferLength(kTooLong));
  EXPECT_EQ(0x7FFFFFFFU, TransferLength(0xFFFFFFFFU));
  // Waited for, not refused.
  EXPECT_EQ(0, QIV_Recvn(m_near, m_buffer, kTooLong, 0));
  ASSERT_NO_FATAL_FAILURE(FillNear());
  EXPECT_EQ(0, QIV_Sendn(m_near, m_buffer, kTooLong, 0));
}

// Receiving everything.

TEST_F(SocketTransferTest, RecvnThatRunsOutOfTimeGivesWhatWasReceived) {
  ASSERT_EQ(3, QIV_Send(m_near, "abc", 3));
  const Stopwatch time;
  EXPECT_EQ(3, QIV_Recvn(m_far, m_buffer, 6, 100));
  EXPECT_GE(time.Milliseconds(), 95);
  EXPECT_STREQ("abc", m_buffer);
  EXPECT_EQ(0, QIV_Recvn(m_far, m_buffer, 6, 50));
}

TEST_F(SocketTransferTest, RecvnWithoutTimeTakesWhatIsThere) {
  EXPECT_EQ(0, QIV_Recvn(m_far, m_buffer, 6, 0));
  ASSERT_EQ(3, QIV_Send(m_near, "abc", 3));
  pollfd record = {m_far, POLLIN, 0};
  ASSERT_EQ(1, poll(&record, 1, -1));
  EXPECT_EQ(3, QIV_Recvn(m_far, m_buffer, 6, 0));
}

TEST_F(SocketTransferTest, RecvnIsKeptToGiveMinusOneWhenThePeerClosesAfterSomeBytes) {
  for (const unsigned int ms : {QIV_INFINITE, kLongTimeOutMs}) {
    TcpPair pair;
    ASSERT_EQ(3, QIV_Send(pair.first.Get(), "abc", 3));
    pair.first.Close();
    EXPECT_EQ(-1, QIV_Recvn(pair.second.Get(), m_buffer, 6, ms));
  }
}

TEST_F(SocketTransferTest, RecvnFailsOnAnErrorOrAHangUp) {
  errno = 0;
  EXPECT_EQ(-1, QIV_Recvn(1 << 20, m_buffer, 1, kLongTimeOutMs));
  const Socket idle(AF_INET, SOCK_STREAM);
  EXPECT_EQ(-1, QIV_Recvn(idle.Get(), m_buffer, 1, kLongTimeOutMs));
  EXPECT_EQ(0, errno);
  ASSERT_EQ(1, QIV_Send(m_near, "x", 1));
  const NoDescriptorLimit noDescriptors;
  EXPECT_EQ(-1, QIV_Recvn(m_far, m_buffer, 1, kLongTimeOutMs));
}

TEST_F(SocketTransferTest, RecvnOfNothingIsKeptAFailureWhenThereAreBytes) {
  EXPECT_EQ(0, QIV_Recvn(m_far, m_buffer, 0, 0));
  ASSERT_EQ(1, QIV_Send(m_near, "x", 1));
  EXPECT_EQ(-1, QIV_Recvn(m_far, m_buffer, 0, kLongTimeOutMs));
}

}  // namespace
