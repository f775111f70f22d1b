// The class layer's socket options, and its calls that pass to the system.
#include <qiv/socket_classes.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "support/leak_check.h"
#include "support/sockets.h"

namespace {

using qiv::qiv_net_addr;
using qiv::qiv_sock_utils;
using qiv::test::IsNonBlocking;
using qiv::test::Socket;
using qiv::test::TcpSocket;
using qiv::test::UdpSocket;

template <class Value = int>
Value Option(const Socket& socket, int level, int name) {
  Value value = {};
  socklen_t length = sizeof(value);
  EXPECT_EQ(0, getsockopt(socket.Get(), level, name, &value, &length));
  return value;
}

class SockUtilsOptionsTest : public qiv::test::LeakCheckedTest {};

TEST_F(SockUtilsOptionsTest, SocketIsCreatedAndClosed) {
  const int socket = qiv_sock_utils::socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_GE(socket, 0);
  EXPECT_EQ(0, qiv_sock_utils::closesocket(socket));
  errno = 0;
  EXPECT_EQ(-1, qiv_sock_utils::closesocket(socket));
  EXPECT_EQ(EBADF, qiv_sock_utils::get_lasterror());
  EXPECT_EQ(-1, qiv_sock_utils::socket(-1, -1, -1));
}

TEST_F(SockUtilsOptionsTest, BindGivesTheAddressAndListenAcceptsConnections) {
  const Socket socket = TcpSocket();
  ASSERT_EQ(0, qiv_sock_utils::bind(socket.Get(), qiv_net_addr(0, "127.0.0.1")));
  EXPECT_EQ(0, qiv_sock_utils::listen(socket.Get(), 4));
  EXPECT_EQ(1, Option(socket, SOL_SOCKET, SO_ACCEPTCONN));
  const QIV_ADDR_T local = qiv::test::AddressOf(socket);
  EXPECT_EQ(htonl(INADDR_LOOPBACK), local.ipv4.sin_addr.s_addr);
  const Socket second = TcpSocket();
  errno = 0;
  EXPECT_EQ(-1, qiv_sock_utils::bind(second.Get(), qiv_net_addr(ntohs(local.port), "127.0.0.1")));
  EXPECT_EQ(EADDRINUSE, errno);
}

TEST_F(SockUtilsOptionsTest, ShutdownEndsTheAskedDirection) {
  const qiv::test::TcpPair pair;
  char byte = 0;
  EXPECT_EQ(0, qiv_sock_utils::shutdown(pair.first.Get(), SHUT_WR));
  EXPECT_EQ(0, recv(pair.second.Get(), &byte, 1, 0));
  EXPECT_EQ(1, send(pair.second.Get(), "x", 1, 0));
  EXPECT_EQ(-1, qiv_sock_utils::shutdown(pair.first.Get(), 99));
}

TEST_F(SockUtilsOptionsTest, EveryCallOnABadDescriptorGivesTheSystemsError) {
  const qiv_net_addr address(1, "127.0.0.1");
  char value[4] = {};
  int length = sizeof(value);
  const auto expectBadDescriptor = [](int result) {
    EXPECT_EQ(-1, result);
    EXPECT_EQ(EBADF, qiv_sock_utils::get_lasterror());
    errno = 0;
  };
  expectBadDescriptor(qiv_sock_utils::closesocket(-1));
  expectBadDescriptor(qiv_sock_utils::shutdown(-1, 0));
  expectBadDescriptor(qiv_sock_utils::listen(-1, 1));
  expectBadDescriptor(qiv_sock_utils::bind(-1, address));
  expectBadDescriptor(qiv_sock_utils::join_multicast_group(-1, address, address));
  expectBadDescriptor(qiv_sock_utils::leave_multicast_group(-1, address, address));
  expectBadDescriptor(qiv_sock_utils::set_sock_opt(-1, SOL_SOCKET, SO_REUSEADDR, value, length));
  expectBadDescriptor(qiv_sock_utils::get_sock_opt(-1, SOL_SOCKET, SO_REUSEADDR, value, &length));
  expectBadDescriptor(qiv_sock_utils::set_nonblock(-1, 1));
  expectBadDescriptor(qiv_sock_utils::set_reuseaddr(-1, 1));
  expectBadDescriptor(qiv_sock_utils::set_tcp_dontlinger(-1));
  expectBadDescriptor(qiv_sock_utils::set_tcp_nodelay(-1));
  expectBadDescriptor(qiv_sock_utils::set_ttl(-1, 1));
  expectBadDescriptor(qiv_sock_utils::set_buffsize(-1, 4096, -1));
  expectBadDescriptor(qiv_sock_utils::set_buffsize(-1, -1, 4096));
}

TEST_F(SockUtilsOptionsTest, OptionIsSetAndRead) {
  const Socket socket = TcpSocket();
  const int on = 1;
  int value = 0;
  int length = sizeof(value);
  EXPECT_EQ(0, qiv_sock_utils::set_sock_opt(socket.Get(), SOL_SOCKET, SO_KEEPALIVE,
                                            reinterpret_cast<const char*>(&on), sizeof(on)));
  EXPECT_EQ(0, qiv_sock_utils::get_sock_opt(socket.Get(), SOL_SOCKET, SO_KEEPALIVE,
                                            reinterpret_cast<char*>(&value), &length));
  EXPECT_EQ(1, value);
  EXPECT_EQ(4, length);
  length = 1;
  EXPECT_EQ(0, qiv_sock_utils::get_sock_opt(socket.Get(), SOL_SOCKET, SO_KEEPALIVE,
                                            reinterpret_cast<char*>(&value), &length));
  EXPECT_EQ(1, length);
}

TEST_F(SockUtilsOptionsTest, ReadingAnOptionOfANegativeLengthIsRefusedByTheSystem) {
  const Socket socket = TcpSocket();
  char value[4] = {};
  for (const int given : {-1, INT_MIN}) {
    int length = given;
    errno = 0;
    EXPECT_EQ(-1,
              qiv_sock_utils::get_sock_opt(socket.Get(), SOL_SOCKET, SO_KEEPALIVE, value, &length));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(given, length);
  }
}

TEST_F(SockUtilsOptionsTest, SettingAnOptionOfANegativeLengthIsRefusedByTheSystem) {
  const Socket socket = TcpSocket();
  const char value[4] = {};
  for (const int length : {-1, INT_MIN}) {
    errno = 0;
    EXPECT_EQ(-1,
              qiv_sock_utils::set_sock_opt(socket.Get(), SOL_SOCKET, SO_KEEPALIVE, value, length));
    EXPECT_EQ(EINVAL, errno);
  }
}

TEST_F(SockUtilsOptionsTest, NonBlockIsOnAbove0Only) {
  const Socket socket = TcpSocket();
  for (const int on : {1, 2, INT_MAX}) {
    for (const int off : {0, -1, INT_MIN}) {
      EXPECT_EQ(0, qiv_sock_utils::set_nonblock(socket.Get(), on));
      EXPECT_TRUE(IsNonBlocking(socket)) << on;
      EXPECT_EQ(0, qiv_sock_utils::set_nonblock(socket.Get(), off));
      EXPECT_FALSE(IsNonBlocking(socket)) << off;
    }
  }
}

TEST_F(SockUtilsOptionsTest, NonBlockLeavesOtherFlags) {
  const Socket socket = TcpSocket();
  ASSERT_EQ(0, fcntl(socket.Get(), F_SETFL, O_APPEND));
  EXPECT_EQ(0, qiv_sock_utils::set_nonblock(socket.Get(), 1));
  EXPECT_EQ(O_APPEND | O_NONBLOCK, fcntl(socket.Get(), F_GETFL) & (O_APPEND | O_NONBLOCK));
  EXPECT_EQ(0, qiv_sock_utils::set_nonblock(socket.Get(), 0));
  EXPECT_EQ(O_APPEND, fcntl(socket.Get(), F_GETFL) & (O_APPEND | O_NONBLOCK));
}

TEST_F(SockUtilsOptionsTest, ReuseAddrIsOnAbove0Only) {
  const Socket socket = TcpSocket();
  for (const int on : {1, 2, INT_MAX}) {
    for (const int off : {0, -1, INT_MIN}) {
      EXPECT_EQ(0, qiv_sock_utils::set_reuseaddr(socket.Get(), on));
      EXPECT_EQ(1, Option(socket, SOL_SOCKET, SO_REUSEADDR)) << on;
      EXPECT_EQ(0, qiv_sock_utils::set_reuseaddr(socket.Get(), off));
      EXPECT_EQ(0, Option(socket, SOL_SOCKET, SO_REUSEADDR)) << off;
    }
  }
}

TEST_F(SockUtilsOptionsTest, DontLingerIsKeptToSwitchLingerOnWithoutTime) {
  const Socket socket = TcpSocket();
  EXPECT_EQ(0, qiv_sock_utils::set_tcp_dontlinger(socket.Get()));
  const auto value = Option<linger>(socket, SOL_SOCKET, SO_LINGER);
  EXPECT_NE(0, value.l_onoff);
  EXPECT_EQ(0, value.l_linger);
}

TEST_F(SockUtilsOptionsTest, CloseAfterDontLingerResetsTheConnection) {
  qiv::test::TcpPair pair;
  ASSERT_EQ(0, qiv_sock_utils::set_tcp_dontlinger(pair.first.Get()));
  pair.first.Close();
  char byte = 0;
  errno = 0;
  EXPECT_EQ(-1, recv(pair.second.Get(), &byte, 1, 0));
  EXPECT_EQ(ECONNRESET, errno);
}

TEST_F(SockUtilsOptionsTest, NoDelayAndTtlAreSet) {
  const Socket socket = TcpSocket();
  EXPECT_EQ(0, qiv_sock_utils::set_tcp_nodelay(socket.Get()));
  EXPECT_EQ(1, Option(socket, IPPROTO_TCP, TCP_NODELAY));
  EXPECT_EQ(0, qiv_sock_utils::set_ttl(socket.Get(), 17));
  EXPECT_EQ(17, Option(socket, IPPROTO_IP, IP_TTL));
  EXPECT_EQ(-1, qiv_sock_utils::set_ttl(socket.Get(), 256));
}

// Buffer sizes: the system doubles what it is given, and has a smallest one.

TEST_F(SockUtilsOptionsTest, BuffSizeWithANegativeReceiveSizeSetsTheSendSizeOnly) {
  const Socket socket = UdpSocket();
  const int receive = Option(socket, SOL_SOCKET, SO_RCVBUF);
  EXPECT_EQ(0, qiv_sock_utils::set_buffsize(socket.Get(), -1, 8192));
  EXPECT_EQ(2 * 8192, Option(socket, SOL_SOCKET, SO_SNDBUF));
  EXPECT_EQ(receive, Option(socket, SOL_SOCKET, SO_RCVBUF));
}

TEST_F(SockUtilsOptionsTest, BuffSizeWithANegativeSendSizeSetsTheReceiveSizeOnly) {
  const Socket socket = UdpSocket();
  const int send = Option(socket, SOL_SOCKET, SO_SNDBUF);
  EXPECT_EQ(0, qiv_sock_utils::set_buffsize(socket.Get(), 8192, -1));
  EXPECT_EQ(2 * 8192, Option(socket, SOL_SOCKET, SO_RCVBUF));
  EXPECT_EQ(send, Option(socket, SOL_SOCKET, SO_SNDBUF));
}

TEST_F(SockUtilsOptionsTest, BuffSizeSetsBoth) {
  const Socket socket = UdpSocket();
  EXPECT_EQ(0, qiv_sock_utils::set_buffsize(socket.Get(), 8192, 16384));
  EXPECT_EQ(2 * 8192, Option(socket, SOL_SOCKET, SO_RCVBUF));
  EXPECT_EQ(2 * 16384, Option(socket, SOL_SOCKET, SO_SNDBUF));
}

TEST_F(SockUtilsOptionsTest, BuffSizeOf0IsASizeUnlikeThatOfTheExportedFunction) {
  const Socket socket = UdpSocket();
  const int receive = Option(socket, SOL_SOCKET, SO_RCVBUF);
  const int send = Option(socket, SOL_SOCKET, SO_SNDBUF);
  EXPECT_EQ(0, qiv_sock_utils::set_buffsize(socket.Get(), 0, 0));
  EXPECT_LT(Option(socket, SOL_SOCKET, SO_RCVBUF), receive);
  EXPECT_LT(Option(socket, SOL_SOCKET, SO_SNDBUF), send);
}

TEST_F(SockUtilsOptionsTest, BuffSizeOfNegativeSizesDoesNothing) {
  EXPECT_EQ(0, qiv_sock_utils::set_buffsize(-1, -1, INT_MIN));
}

// Multicast groups: what the system answers depends on the machine, so every answer is compared
// with that of the plain system call on a second socket.

struct Answer {
  int result;
  int error;
};

bool operator==(const Answer& a, const Answer& b) {
  return a.result == b.result && a.error == b.error;
}

template <class Call>
Answer Ask(Call call) {
  errno = 0;
  const int result = call();
  return {result, errno};
}

TEST_F(SockUtilsOptionsTest, GroupIsJoinedAndLeftOnTheInterfaceOfTheLocalAddress) {
  const char* const groupText = "239.1.2.3";
  const Socket plain = UdpSocket();
  const Socket socket = UdpSocket();
  const qiv_net_addr group(9, groupText);
  const auto expectTheSystemsAnswer = [&](const auto& change, int option, const char* local) {
    ip_mreq request = {};
    request.imr_multiaddr.s_addr = inet_addr(groupText);
    request.imr_interface.s_addr = inet_addr(local);
    const Answer expected =
        Ask([&] { return setsockopt(plain.Get(), IPPROTO_IP, option, &request, sizeof(request)); });
    const Answer actual = Ask([&] { return change(socket.Get(), qiv_net_addr(9, local), group); });
    EXPECT_TRUE(expected == actual) << local << ' ' << actual.result << " errno " << actual.error;
  };
  for (const char* local : {"127.0.0.1", "127.0.0.1", "192.0.2.77"}) {
    expectTheSystemsAnswer(qiv_sock_utils::join_multicast_group, IP_ADD_MEMBERSHIP, local);
  }
  for (const char* local : {"192.0.2.77", "127.0.0.1", "127.0.0.1"}) {
    expectTheSystemsAnswer(qiv_sock_utils::leave_multicast_group, IP_DROP_MEMBERSHIP, local);
  }
}

TEST_F(SockUtilsOptionsTest, LastErrorIsErrno) {
  errno = 77;
  EXPECT_EQ(77, qiv_sock_utils::get_lasterror());
  errno = 0;
  EXPECT_EQ(0, qiv_sock_utils::get_lasterror());
}

}  // namespace
