// The addresses of a socket's two ends.
#include <qiv/address.h>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <ostream>
#include <string>

#include "support/address_records.h"
#include "support/leak_check.h"
#include "support/preferred_family.h"
#include "support/sockets.h"

namespace {

using qiv::test::Bytes;
using qiv::test::BytesOf;
using qiv::test::FilledRecord;
using qiv::test::Ipv6Record;
using qiv::test::kIpv6Loopback;

class SocketEndsTest : public qiv::test::LeakCheckedTest {
 protected:
  void TearDown() override {
    for (const int socket : {m_listener, m_client, m_accepted}) {
      if (socket != -1) close(socket);
    }
    LeakCheckedTest::TearDown();
  }

  void Connect(const sockaddr* address, socklen_t length) {
    m_listener = socket(address->sa_family, SOCK_STREAM, 0);
    if (m_client == -1) m_client = socket(address->sa_family, SOCK_STREAM, 0);
    ASSERT_EQ(0, bind(m_listener, address, length));
    ASSERT_EQ(0, listen(m_listener, 1));
    sockaddr_storage bound = {};
    length = sizeof(bound);
    ASSERT_EQ(0, getsockname(m_listener, reinterpret_cast<sockaddr*>(&bound), &length));
    ASSERT_EQ(0, connect(m_client, reinterpret_cast<const sockaddr*>(&bound), length));
    m_accepted = accept(m_listener, nullptr, nullptr);
    ASSERT_NE(-1, m_accepted);
  }

  void ConnectIpv4() {
    sockaddr_in loopback = {};
    loopback.sin_family = AF_INET;
    loopback.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    Connect(reinterpret_cast<const sockaddr*>(&loopback), sizeof(loopback));
  }

  /** A name in the abstract namespace that is as long as possible, so no file appears. */
  static sockaddr_un LongName(char last) {
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    std::memset(name.sun_path + 1, 'q', sizeof(name.sun_path) - 1);
    const std::string process = std::to_string(getpid());
    std::memcpy(name.sun_path + 1, process.data(), process.size());
    name.sun_path[sizeof(name.sun_path) - 1] = last;
    return name;
  }

  static Bytes FirstBytes(const sockaddr_un& name) {
    Bytes bytes;
    std::memcpy(bytes.data(), &name, bytes.size());
    return bytes;
  }

  int m_listener = -1;
  int m_client = -1;
  int m_accepted = -1;
};

TEST_F(SocketEndsTest, BothEndsOfAConnectionMatch) {
  ASSERT_NO_FATAL_FAILURE(ConnectIpv4());
  QIV_ADDR_T local = FilledRecord();
  QIV_ADDR_T peer = FilledRecord();
  QIV_ADDR_T acceptedLocal = {};
  QIV_ADDR_T acceptedPeer = {};
  ASSERT_EQ(0, QIV_GetAddrBySockFd(m_client, &local, &peer));
  ASSERT_EQ(0, QIV_GetAddrBySockFd(m_accepted, nullptr, &acceptedPeer));
  ASSERT_EQ(0, QIV_GetAddrBySockFd(m_accepted, &acceptedLocal, nullptr));
  EXPECT_EQ(AF_INET, QIV_GetAddrType(&local));
  EXPECT_NE(0, QIV_GetAddrPort(&local));
  EXPECT_EQ(QIV_GetAddrPort(&local), QIV_GetAddrPort(&acceptedPeer));
  EXPECT_EQ(QIV_GetAddrPort(&peer), QIV_GetAddrPort(&acceptedLocal));
  EXPECT_STREQ("127.0.0.1", QIV_GetAddrString(&peer));
}

TEST_F(SocketEndsTest, BothEndsOfAnIpv6ConnectionAreWhole) {
  const qiv::test::TcpPair pair(AF_INET6);
  QIV_ADDR_T local = FilledRecord();
  QIV_ADDR_T peer = FilledRecord();
  ASSERT_EQ(0, QIV_GetAddrBySockFd(pair.first.Get(), &local, &peer));
  EXPECT_EQ(Ipv6Record(kIpv6Loopback, QIV_GetAddrPort(&local)), BytesOf(local));
  EXPECT_EQ(Ipv6Record(kIpv6Loopback, QIV_GetAddrPort(&peer)), BytesOf(peer));
  EXPECT_EQ(BytesOf(qiv::test::AddressOf(pair.first)), BytesOf(local));
  EXPECT_EQ(BytesOf(qiv::test::AddressOf(pair.second)), BytesOf(peer));
}

TEST_F(SocketEndsTest, NothingAskedOrABadSocketIsRefused) {
  QIV_ADDR_T address;
  EXPECT_EQ(-1, QIV_GetAddrBySockFd(0, nullptr, nullptr));
  EXPECT_EQ(-1, QIV_GetAddrBySockFd(-1, &address, nullptr));
  EXPECT_EQ(-1, QIV_GetAddrBySockFd(-1, nullptr, &address));
  m_client = socket(AF_INET, SOCK_STREAM, 0);
  EXPECT_EQ(0, QIV_GetAddrBySockFd(m_client, &address, nullptr));
  EXPECT_EQ(-1, QIV_GetAddrBySockFd(m_client, &address, &address));  // no peer
}

TEST_F(SocketEndsTest, LocalAddressIsKeptBoundedByTheLengthOfThePeers) {
  const sockaddr_un name = LongName('s');
  ASSERT_NO_FATAL_FAILURE(Connect(reinterpret_cast<const sockaddr*>(&name), sizeof(name)));
  QIV_ADDR_T local = FilledRecord();
  QIV_ADDR_T peer = FilledRecord();
  // The client has no name: its address is the 2 bytes of the family.
  ASSERT_EQ(0, QIV_GetAddrBySockFd(m_accepted, &local, &peer));
  EXPECT_EQ(AF_UNIX, QIV_GetAddrType(&local));
  EXPECT_EQ(0xAA, BytesOf(local)[3]);
  ASSERT_EQ(0, QIV_GetAddrBySockFd(m_accepted, &local, nullptr));
  EXPECT_NE(0xAA, BytesOf(local)[3]);
}

TEST_F(SocketEndsTest, AddressesLongerThanTheRecordStayWithinIt) {
  const sockaddr_un clientName = LongName('c');
  const sockaddr_un serverName = LongName('s');
  m_client = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(0, bind(m_client, reinterpret_cast<const sockaddr*>(&clientName), sizeof(clientName)));
  ASSERT_NO_FATAL_FAILURE(
      Connect(reinterpret_cast<const sockaddr*>(&serverName), sizeof(serverName)));
  struct {
    QIV_ADDR_T address;
    unsigned char after[128];
  } local, peer;
  std::memset(&local, 0xAA, sizeof(local));
  std::memset(&peer, 0xAA, sizeof(peer));
  ASSERT_EQ(0, QIV_GetAddrBySockFd(m_accepted, &local.address, &peer.address));
  EXPECT_EQ(FirstBytes(serverName), BytesOf(local.address));
  EXPECT_EQ(FirstBytes(clientName), BytesOf(peer.address));
  for (const unsigned char byte : local.after) EXPECT_EQ(0xAA, byte);
  for (const unsigned char byte : peer.after) EXPECT_EQ(0xAA, byte);
}

}  // namespace
