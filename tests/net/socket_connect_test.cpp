// Connecting, with a limit and without.
#include <qiv/socket.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <qiv/poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "net/socket.h"
#include "support/interrupting_signals.h"
#include "support/latch.h"
#include "support/leak_check.h"
#include "support/no_descriptor_limit.h"
#include "support/run_in_thread.h"
#include "support/sockets.h"
#include "support/stopwatch.h"

namespace {

using qiv::test::AddressOf;
using qiv::test::BoundSocket;
using qiv::test::IsNonBlocking;
using qiv::test::kLongTimeOutMs;
using qiv::test::Listener;
using qiv::test::Loopback;
using qiv::test::RunInThread;
using qiv::test::Socket;
using qiv::test::Stopwatch;
using qiv::test::TcpPair;

class ConnectTest : public qiv::test::LeakCheckedTest {};

TEST_F(ConnectTest, RefusesNullBeforeTheSystem) {
  errno = 0;
  EXPECT_EQ(-1, QIV_ConnectWithTimeOut(-1, nullptr, 100));
  EXPECT_EQ(-1, QIV_ConnectWithTimeOut(-1, nullptr, QIV_INFINITE));
  EXPECT_EQ(0, errno);
}

TEST_F(ConnectTest, WithALimitLeavesTheSocketBlocking) {
  for (const int family : {AF_INET, AF_INET6}) {
    const Socket listener = Listener(family);
    const QIV_ADDR_T target = AddressOf(listener);
    const Socket client(family, SOCK_STREAM);
    EXPECT_EQ(0, QIV_ConnectWithTimeOut(client.Get(), &target, kLongTimeOutMs)) << family;
    EXPECT_FALSE(IsNonBlocking(client)) << family;
  }
}

TEST_F(ConnectTest, WithoutALimitDoesNotTouchTheBlockingMode) {
  const Socket listener = Listener();
  const QIV_ADDR_T target = AddressOf(listener);
  const Socket blocking(AF_INET, SOCK_STREAM);
  EXPECT_EQ(0, QIV_ConnectWithTimeOut(blocking.Get(), &target, QIV_INFINITE));
  EXPECT_FALSE(IsNonBlocking(blocking));
  const Socket nonBlocking(AF_INET, SOCK_STREAM | SOCK_NONBLOCK);
  errno = 0;
  EXPECT_EQ(-1, QIV_ConnectWithTimeOut(nonBlocking.Get(), &target, QIV_INFINITE));
  EXPECT_EQ(EINPROGRESS, errno);
  EXPECT_TRUE(IsNonBlocking(nonBlocking));
}

TEST_F(ConnectTest, WithoutALimitIsKeptToRefuseIpv6) {
  const Socket listener = Listener(AF_INET6);
  const QIV_ADDR_T target = AddressOf(listener);
  const Socket client(AF_INET6, SOCK_STREAM);
  errno = 0;
  EXPECT_EQ(-1, QIV_ConnectWithTimeOut(client.Get(), &target, QIV_INFINITE));
  EXPECT_EQ(EINVAL, errno);
}

TEST_F(ConnectTest, ToAPortWithoutAListenerIsRefusedAndTheSocketBlocksAgain) {
  const Socket taken = BoundSocket(AF_INET, SOCK_STREAM);  // bound, so nobody else listens there
  const QIV_ADDR_T target = AddressOf(taken);
  const Socket client(AF_INET, SOCK_STREAM);
  errno = 0;
  EXPECT_EQ(-1, QIV_ConnectWithTimeOut(client.Get(), &target, kLongTimeOutMs));
  EXPECT_EQ(ECONNREFUSED, errno);
  EXPECT_FALSE(IsNonBlocking(client));
}

TEST_F(ConnectTest, ThatSucceedsAtOnceIsKeptToLeaveTheSocketNonBlocking) {
  const Socket far = BoundSocket(AF_INET, SOCK_DGRAM);
  const QIV_ADDR_T target = AddressOf(far);
  const Socket near(AF_INET, SOCK_DGRAM);
  EXPECT_EQ(0, QIV_ConnectWithTimeOut(near.Get(), &target, 0));
  EXPECT_TRUE(IsNonBlocking(near));
}

TEST_F(ConnectTest, ThatFailsAtOnceIsKeptToLeaveTheSocketNonBlocking) {
  const TcpPair pair;
  const QIV_ADDR_T target = AddressOf(pair.second);
  errno = 0;
  EXPECT_EQ(-1, QIV_ConnectWithTimeOut(pair.first.Get(), &target, 100));
  EXPECT_EQ(EISCONN, errno);
  EXPECT_TRUE(IsNonBlocking(pair.first));
}

TEST_F(ConnectTest, OfABadDescriptorFailsWithTheSystemsError) {
  const QIV_ADDR_T target = Loopback(AF_INET, 1);
  errno = 0;
  EXPECT_EQ(-1, QIV_ConnectWithTimeOut(-1, &target, 100));
  EXPECT_EQ(EBADF, errno);
}

TEST_F(ConnectTest, WhoseWaitReportsAnythingButRoomIsATimeOutAndTheSocketBlocksAgain) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(0, pipe2(ends, O_NONBLOCK));
  const Socket readEnd(ends[0]);
  close(ends[1]);  // the read end reports a hang-up, and never room to write
  const Stopwatch time;
  errno = 0;
  EXPECT_EQ(-1, qiv::net::FinishConnection(readEnd.Get(), kLongTimeOutMs));
  EXPECT_EQ(ETIMEDOUT, errno);
  EXPECT_LT(time.Milliseconds(), kLongTimeOutMs);
  EXPECT_FALSE(IsNonBlocking(readEnd));
}

/** A listener whose queue is full: the system lets further connections wait. */
class FullListenerTest : public ConnectTest {
 protected:
  void SetUp() override {
    ConnectTest::SetUp();
    m_listener = Listener(AF_INET, 0);
    m_target = AddressOf(m_listener);
    for (int i = 0; i < 8; ++i) {
      Socket filler(AF_INET, SOCK_STREAM | SOCK_NONBLOCK);
      ASSERT_EQ(-1, connect(filler.Get(), &m_target.any, sizeof(sockaddr_in)));
      ASSERT_EQ(EINPROGRESS, errno);
      pollfd record = {filler.Get(), POLLOUT, 0};
      if (poll(&record, 1, 50) == 0) return;
      m_fillers.push_back(std::move(filler));
    }
    FAIL() << "the queue does not fill";
  }
  void TearDown() override {
    m_fillers.clear();
    m_listener.Close();
    ConnectTest::TearDown();
  }

  Socket m_listener;
  QIV_ADDR_T m_target = {};
  std::vector<Socket> m_fillers;
};

TEST_F(FullListenerTest, ConnectThatTimesOutReportsItAndTheSocketBlocksAgain) {
  for (const unsigned int ms : {0U, 100U}) {
    const Socket client(AF_INET, SOCK_STREAM);
    const Stopwatch time;
    errno = 0;
    EXPECT_EQ(-1, QIV_ConnectWithTimeOut(client.Get(), &m_target, ms));
    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_GE(time.Milliseconds(), ms * 95 / 100);
    EXPECT_FALSE(IsNonBlocking(client));
  }
}

TEST_F(FullListenerTest, ConnectThatSignalsInterruptUntilTheEndReportsTheTimeOut) {
  const qiv::test::InterruptingSignals signals(std::chrono::milliseconds(1));
  for (int round = 0; round < 20; ++round) {
    const Socket client(AF_INET, SOCK_STREAM);
    errno = 0;
    ASSERT_EQ(-1, QIV_ConnectWithTimeOut(client.Get(), &m_target, 5));
    ASSERT_EQ(ETIMEDOUT, errno);
  }
}

TEST_F(FullListenerTest, ConnectWhoseWaitFailsReportsWhyAndTheSocketBlocksAgain) {
  const Socket client(AF_INET, SOCK_STREAM);
  const qiv::test::NoDescriptorLimit noDescriptors;
  errno = 0;
  EXPECT_EQ(-1, QIV_ConnectWithTimeOut(client.Get(), &m_target, kLongTimeOutMs));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_FALSE(IsNonBlocking(client));
}

TEST_F(FullListenerTest, ConnectStandsWhenTheQueueDrainsInTime) {
  const Socket client(AF_INET, SOCK_STREAM);
  qiv::test::Latch connecting;
  auto result = RunInThread([&] {
    connecting.Open();
    return QIV_ConnectWithTimeOut(client.Get(), &m_target, kLongTimeOutMs);
  });
  ASSERT_TRUE(connecting.Wait());
  std::vector<Socket> accepted;
  while (!result.IsReady()) accepted.emplace_back(QIV_Accept(m_listener.Get(), nullptr, 20));
  EXPECT_EQ(0, result.Get());
  EXPECT_FALSE(IsNonBlocking(client));
}

}  // namespace
