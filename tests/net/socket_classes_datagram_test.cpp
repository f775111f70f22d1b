// The class layer's datagrams, and addresses that are not IPv4.
#include <qiv/socket_classes.h>

#include <gtest/gtest.h>
#include <qiv/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "net/socket_classes_support.h"
#include "support/leak_check.h"

namespace {

using qiv::qiv_net_addr;
using qiv::qiv_sock_utils;
using qiv::test::BoundUdpSocket;
using qiv::test::EndpointOf;
using qiv::test::kLongMs;
using qiv::test::kNoLimit;
using qiv::test::Socket;
using qiv::test::UdpSocket;

class SockUtilsDatagramTest : public qiv::test::LeakCheckedTest {
 protected:
  char m_buffer[64] = {};
};

// With MSG_TRUNC the system tells the length of the datagram, not that of what it wrote.
TEST_F(SockUtilsDatagramTest, RecvnOfATruncatedDatagramStaysInTheBuffer) {
  const Socket receiver = BoundUdpSocket();
  const Socket sender = UdpSocket();
  const std::string datagram(1000, 'x');
  ASSERT_EQ(1000, qiv_sock_utils::sendto(sender.Get(), datagram.data(), 1000, EndpointOf(receiver),
                                         kLongMs, 0));
  ASSERT_EQ(1000, qiv_sock_utils::sendto(sender.Get(), datagram.data(), 1000, EndpointOf(receiver),
                                         kLongMs, 0));
  EXPECT_EQ(8, qiv_sock_utils::recvn(receiver.Get(), m_buffer, 8, kLongMs, MSG_TRUNC));
  EXPECT_EQ('x', m_buffer[7]);
  EXPECT_EQ(0, m_buffer[8]);
  EXPECT_EQ(1000, qiv_sock_utils::recv(receiver.Get(), m_buffer, 8, kLongMs, MSG_TRUNC));
  EXPECT_EQ(0, m_buffer[8]);
}

TEST_F(SockUtilsDatagramTest, DatagramsCarryTheirSource) {
  const Socket sender = BoundUdpSocket();
  const Socket receiver = BoundUdpSocket();
  qiv_net_addr source;
  for (const int ms : {kNoLimit, kLongMs}) {
    EXPECT_EQ(3, qiv_sock_utils::sendto(sender.Get(), "abc", 3, EndpointOf(receiver), ms, 0));
    EXPECT_EQ(3,
              qiv_sock_utils::recvfrom(receiver.Get(), m_buffer, sizeof(m_buffer), source, ms, 0));
    EXPECT_STREQ("abc", m_buffer);
    EXPECT_TRUE(source == EndpointOf(sender));
  }
}

TEST_F(SockUtilsDatagramTest, RecvFromThatTimesOutLeavesTheSource) {
  const Socket receiver = BoundUdpSocket();
  qiv_net_addr source("10.1.2.3:8000");
  EXPECT_EQ(0, qiv_sock_utils::recvfrom(receiver.Get(), m_buffer, 8, source, 20, 0));
  EXPECT_TRUE(source == qiv_net_addr("10.1.2.3:8000"));
}

TEST_F(SockUtilsDatagramTest, EmptyDatagramIsSentWith0AndReceivedWithMinusOne) {
  const Socket sender = UdpSocket();
  const Socket receiver = BoundUdpSocket();
  qiv_net_addr source("10.1.2.3:8000");
  EXPECT_EQ(0, qiv_sock_utils::sendto(sender.Get(), "", 0, EndpointOf(receiver), kLongMs, 0));
  EXPECT_EQ(-1, qiv_sock_utils::recvfrom(receiver.Get(), m_buffer, 8, source, kLongMs, 0));
  EXPECT_TRUE(source == qiv_net_addr("10.1.2.3:8000"));
  EXPECT_EQ(0, qiv_sock_utils::recvfrom(receiver.Get(), m_buffer, 8, source, 0, 0));  // gone
}

TEST_F(SockUtilsDatagramTest, SendToGivesTheSystemsError) {
  const Socket sender = UdpSocket();
  const std::string tooLong(100000, 'x');
  errno = 0;
  EXPECT_EQ(-1, qiv_sock_utils::sendto(sender.Get(), tooLong.data(), 100000,
                                       qiv_net_addr(9, "127.0.0.1"), kLongMs, 0));
  EXPECT_EQ(EMSGSIZE, errno);
}

TEST_F(SockUtilsDatagramTest, RecvFromAStreamTellsNoSource) {
  const qiv::test::TcpPair pair;
  qiv::test::WriteAll(pair.first, "x");
  qiv_net_addr source("10.1.2.3:8000");
  EXPECT_EQ(1, qiv_sock_utils::recvfrom(pair.second.Get(), m_buffer, 8, source, kLongMs, 0));
  EXPECT_TRUE(source == qiv_net_addr());
}

/** An endpoint among bytes that nothing may write. */
struct GuardedAddress {
  unsigned char before[32] = {};
  qiv_net_addr address;
  unsigned char after[32] = {};

  bool IsIntact() const {
    const unsigned char zeros[32] = {};
    return std::memcmp(before, zeros, sizeof(zeros)) == 0 &&
           std::memcmp(after, zeros, sizeof(zeros)) == 0;
  }
};

TEST_F(SockUtilsDatagramTest, SourceOfAnotherFamilyIsCutTo16Bytes) {
  const Socket sender = qiv::test::BoundSocket(AF_INET6, SOCK_DGRAM);
  const Socket receiver = qiv::test::BoundSocket(AF_INET6, SOCK_DGRAM);
  const QIV_ADDR_T target = qiv::test::AddressOf(receiver);
  ASSERT_EQ(3, QIV_SendTo(sender.Get(), "abc", 3, &target));
  GuardedAddress source;
  EXPECT_EQ(3, qiv_sock_utils::recvfrom(receiver.Get(), m_buffer, 8, source.address, kLongMs, 0));
  EXPECT_TRUE(source.IsIntact());
  sockaddr_in stored = {};
  source.address.get_addr(stored);
  const QIV_ADDR_T expected = qiv::test::AddressOf(sender);
  EXPECT_EQ(0, std::memcmp(&expected, &stored, sizeof(stored)));
}

TEST_F(SockUtilsDatagramTest, SourceWithALongPathIsCutTo16Bytes) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_DGRAM, 0, ends));
  const Socket sender(ends[0]);
  const Socket receiver(ends[1]);
  sockaddr_un name = {};
  name.sun_family = AF_UNIX;
  // In the abstract namespace: there is no file.
  std::snprintf(name.sun_path + 1, sizeof(name.sun_path) - 1, "qiv transfer test %d", getpid());
  ASSERT_EQ(0, bind(sender.Get(), reinterpret_cast<sockaddr*>(&name), sizeof(name)));
  ASSERT_EQ(3, send(sender.Get(), "abc", 3, 0));
  GuardedAddress source;
  EXPECT_EQ(3, qiv_sock_utils::recvfrom(receiver.Get(), m_buffer, 8, source.address, kLongMs, 0));
  EXPECT_TRUE(source.IsIntact());
  GuardedAddress local;
  GuardedAddress peer;
  EXPECT_EQ(0, qiv_sock_utils::getaddrbyfd(sender.Get(), peer.address, local.address));
  EXPECT_TRUE(local.IsIntact() && peer.IsIntact());
  sockaddr_in stored = {};
  local.address.get_addr(stored);
  EXPECT_EQ(0, std::memcmp(&name, &stored, sizeof(stored)));
}

}  // namespace
