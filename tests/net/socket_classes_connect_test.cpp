// The class layer's connections: connecting, accepting, and the addresses of both ends.
#include <qiv/socket_classes.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "net/socket_classes_support.h"
#include "support/leak_check.h"
#include "support/run_in_thread.h"
#include "support/stopwatch.h"

namespace {

using qiv::qiv_net_addr;
using qiv::qiv_sock_utils;
using qiv::test::BoundSocket;
using qiv::test::EndpointOf;
using qiv::test::IsNonBlocking;
using qiv::test::kLongMs;
using qiv::test::kNoLimit;
using qiv::test::Listener;
using qiv::test::RunInThread;
using qiv::test::Socket;
using qiv::test::Stopwatch;
using qiv::test::TcpSocket;

Socket NonBlockingSocket() { return {AF_INET, SOCK_STREAM | SOCK_NONBLOCK}; }

class SockUtilsConnectTest : public qiv::test::LeakCheckedTest {};

TEST_F(SockUtilsConnectTest, ConnectLeavesTheBlockingMode) {
  const Socket listener = Listener();
  for (const int ms : {kNoLimit, kLongMs}) {
    const Socket blocking = TcpSocket();
    const Socket nonBlocking = NonBlockingSocket();
    EXPECT_EQ(0, qiv_sock_utils::connect(blocking.Get(), EndpointOf(listener), ms));
    EXPECT_EQ(0, qiv_sock_utils::connect(nonBlocking.Get(), EndpointOf(listener), ms));
    EXPECT_FALSE(IsNonBlocking(blocking));
    EXPECT_TRUE(IsNonBlocking(nonBlocking));
  }
}

TEST_F(SockUtilsConnectTest, RefusedConnectGivesMinusOneAndTheReason) {
  const Socket refusing = BoundSocket(AF_INET, SOCK_STREAM);
  for (const int ms : {kNoLimit, kLongMs}) {
    for (const Socket& socket : {TcpSocket(), NonBlockingSocket()}) {
      errno = 0;
      EXPECT_EQ(-1, qiv_sock_utils::connect(socket.Get(), EndpointOf(refusing), ms));
      EXPECT_EQ(ECONNREFUSED, qiv_sock_utils::get_lasterror());
    }
  }
}

TEST_F(SockUtilsConnectTest, FailureAtOnceGivesTheSystemsError) {
  const qiv_net_addr address(9, "127.0.0.1");
  errno = 0;
  EXPECT_EQ(-1, qiv_sock_utils::connect(-1, address, kLongMs));
  EXPECT_EQ(EBADF, errno);
  const Socket otherFamily(AF_INET6, SOCK_STREAM);
  EXPECT_EQ(-1, qiv_sock_utils::connect(otherFamily.Get(), address, kLongMs));
  EXPECT_EQ(EINVAL, errno);  // an IPv6 address is longer
}

/** A listener whose queue is full: the system lets further connections wait. */
class SockUtilsFullListenerTest : public SockUtilsConnectTest {
 protected:
  void SetUp() override {
    SockUtilsConnectTest::SetUp();
    m_listener = Listener(AF_INET, 0);
    const sockaddr_in target = qiv::test::AddressOf(m_listener).ipv4;
    for (int i = 0; i < 8; ++i) {
      Socket filler = NonBlockingSocket();
      ASSERT_EQ(
          -1, ::connect(filler.Get(), reinterpret_cast<const sockaddr*>(&target), sizeof(target)));
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
    SockUtilsConnectTest::TearDown();
  }

  Socket m_listener;
  std::vector<Socket> m_fillers;
};

TEST_F(SockUtilsFullListenerTest, ConnectThatTimesOutGivesMinusOne) {
  for (const int ms : {0, 100}) {
    const Socket client = NonBlockingSocket();
    const Stopwatch watch;
    errno = 0;
    EXPECT_EQ(-1, qiv_sock_utils::connect(client.Get(), EndpointOf(m_listener), ms));
    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_GE(watch.Milliseconds(), ms * 95 / 100);
    EXPECT_TRUE(IsNonBlocking(client));
  }
}

TEST_F(SockUtilsFullListenerTest, ConnectInProgressWithATimeBelowMinusOneFailsWithEinval) {
  const Socket client = NonBlockingSocket();
  errno = 0;
  EXPECT_EQ(-1, qiv_sock_utils::connect(client.Get(), EndpointOf(m_listener), -2));
  EXPECT_EQ(EINVAL, errno);
}

TEST_F(SockUtilsFullListenerTest, ConnectInProgressOnADescriptorBeyondTheSetFailsWithEinval) {
  const Socket client = qiv::test::MoveTo(NonBlockingSocket(), FD_SETSIZE);
  errno = 0;
  EXPECT_EQ(-1, qiv_sock_utils::connect(client.Get(), EndpointOf(m_listener), kNoLimit));
  EXPECT_EQ(EINVAL, errno);
}

// accept.

TEST_F(SockUtilsConnectTest, AcceptGivesTheConnectionAndThePeer) {
  const Socket listener = Listener();
  for (const int ms : {kNoLimit, kLongMs}) {
    const Socket client = TcpSocket();
    ASSERT_EQ(0, qiv_sock_utils::connect(client.Get(), EndpointOf(listener), kNoLimit));
    qiv_net_addr peer;
    const Socket connection(qiv_sock_utils::accept(listener.Get(), peer, ms));
    ASSERT_GE(connection.Get(), 0);
    EXPECT_TRUE(peer == EndpointOf(client));
  }
}

TEST_F(SockUtilsConnectTest, AcceptThatTimesOutGivesMinusOneAndLeavesThePeer) {
  const Socket listener = Listener();
  qiv_net_addr peer("10.1.2.3:8000");
  const Stopwatch watch;
  EXPECT_EQ(-1, qiv_sock_utils::accept(listener.Get(), peer, 50));
  EXPECT_GE(watch.Milliseconds(), 47);
  EXPECT_EQ(-1, qiv_sock_utils::accept(listener.Get(), peer, 0));
  EXPECT_TRUE(peer == qiv_net_addr("10.1.2.3:8000"));
}

TEST_F(SockUtilsConnectTest, AcceptWithoutALimitWaits) {
  const Socket listener = Listener();
  auto client = RunInThread([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    const Socket socket = TcpSocket();
    return qiv_sock_utils::connect(socket.Get(), EndpointOf(listener), kNoLimit);
  });
  qiv_net_addr peer;
  const Socket connection(qiv_sock_utils::accept(listener.Get(), peer, kNoLimit));
  EXPECT_GE(connection.Get(), 0);
  EXPECT_EQ(0, client.Get());
}

TEST_F(SockUtilsConnectTest, AcceptOnASocketThatDoesNotListenGivesTheSystemsError) {
  const qiv::test::TcpPair pair;
  qiv::test::WriteAll(pair.second, "x");  // so that the socket is readable
  qiv_net_addr peer("10.1.2.3:8000");
  errno = 0;
  EXPECT_EQ(-1, qiv_sock_utils::accept(pair.first.Get(), peer, kLongMs));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_TRUE(peer == qiv_net_addr("10.1.2.3:8000"));
}

TEST_F(SockUtilsConnectTest, AcceptOfAnIpv6ConnectionStoresTheFirst16BytesOfThePeer) {
  const Socket listener = Listener(AF_INET6);
  const QIV_ADDR_T target = qiv::test::AddressOf(listener);
  const Socket client(AF_INET6, SOCK_STREAM);
  ASSERT_EQ(0, ::connect(client.Get(), &target.any, sizeof(target)));
  struct {
    qiv_net_addr address;
    unsigned char after[32] = {};
  } peer;
  const Socket connection(qiv_sock_utils::accept(listener.Get(), peer.address, kLongMs));
  ASSERT_GE(connection.Get(), 0);
  const QIV_ADDR_T expected = qiv::test::AddressOf(client);
  sockaddr_in stored = {};
  peer.address.get_addr(stored);
  EXPECT_EQ(0, std::memcmp(&expected, &stored, sizeof(stored)));
  for (const unsigned char byte : peer.after) EXPECT_EQ(0, byte);
}

// getaddrbyfd.

TEST_F(SockUtilsConnectTest, GetAddrByFdGivesBothEnds) {
  const qiv::test::TcpPair pair;
  qiv_net_addr peer;
  qiv_net_addr local;
  EXPECT_EQ(0, qiv_sock_utils::getaddrbyfd(pair.first.Get(), peer, local));
  EXPECT_TRUE(local == EndpointOf(pair.first));
  EXPECT_TRUE(peer == EndpointOf(pair.second));
  EXPECT_NE(0, local.get_port());
}

TEST_F(SockUtilsConnectTest, GetAddrByFdWithoutAPeerFailsWithTheLocalEndSet) {
  const Socket socket = BoundSocket(AF_INET, SOCK_STREAM);
  qiv_net_addr peer("10.1.2.3:8000");
  qiv_net_addr local;
  errno = 0;
  EXPECT_EQ(-1, qiv_sock_utils::getaddrbyfd(socket.Get(), peer, local));
  EXPECT_EQ(ENOTCONN, errno);
  EXPECT_TRUE(local == EndpointOf(socket));
  EXPECT_TRUE(peer == qiv_net_addr("10.1.2.3:8000"));
}

TEST_F(SockUtilsConnectTest, GetAddrByFdOfABadDescriptorSetsNothing) {
  qiv_net_addr peer("10.1.2.3:8000");
  qiv_net_addr local("10.1.2.3:8000");
  errno = 0;
  EXPECT_EQ(-1, qiv_sock_utils::getaddrbyfd(-1, peer, local));
  EXPECT_EQ(EBADF, errno);
  EXPECT_TRUE(peer == local);
  EXPECT_TRUE(local == qiv_net_addr("10.1.2.3:8000"));
}

TEST_F(SockUtilsConnectTest, GetAddrByFdOfAnIpv6SocketIsCutTo16Bytes) {
  const qiv::test::TcpPair pair(AF_INET6);
  struct {
    qiv_net_addr peer;
    qiv_net_addr local;
    unsigned char after[32] = {};
  } ends;
  EXPECT_EQ(0, qiv_sock_utils::getaddrbyfd(pair.first.Get(), ends.peer, ends.local));
  sockaddr_in stored = {};
  ends.peer.get_addr(stored);
  const QIV_ADDR_T expected = qiv::test::AddressOf(pair.second);
  EXPECT_EQ(0, std::memcmp(&expected, &stored, sizeof(stored)));
  for (const unsigned char byte : ends.after) EXPECT_EQ(0, byte);
}

}  // namespace
