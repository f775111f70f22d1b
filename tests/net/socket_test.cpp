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
#include "support/captured_output.h"
#include "support/interrupting_signals.h"
#include "support/latch.h"
#include "support/leak_check.h"
#include "support/no_descriptor_limit.h"
#include "support/preferred_family.h"
#include "support/run_in_thread.h"
#include "support/sockets.h"
#include "support/stopwatch.h"

namespace {

using qiv::test::AddressOf;
using qiv::test::BoundSocket;
using qiv::test::CapturedOutput;
using qiv::test::IsNonBlocking;
using qiv::test::kLongTimeOutMs;
using qiv::test::Listener;
using qiv::test::Loopback;
using qiv::test::PreferredFamily;
using qiv::test::RunInThread;
using qiv::test::Socket;
using qiv::test::Stopwatch;
using qiv::test::TcpPair;

int IntOption(int socket, int level, int option) {
  int value = -1;
  socklen_t length = sizeof(value);
  return getsockopt(socket, level, option, &value, &length) == 0 ? value : -1;
}

class SocketTest : public qiv::test::LeakCheckedTest {};

// Start and stop.

TEST_F(SocketTest, NetworkStartIgnoresSigpipeAndStopLeavesItSo) {
  struct sigaction saved = {};
  struct sigaction byDefault = {};
  byDefault.sa_handler = SIG_DFL;
  byDefault.sa_flags = SA_RESTART;
  ASSERT_EQ(0, sigaction(SIGPIPE, &byDefault, &saved));
  struct sigaction now = {};
  EXPECT_EQ(0, QIV_InitNetwork_Inter());
  ASSERT_EQ(0, sigaction(SIGPIPE, nullptr, &now));
  EXPECT_EQ(SIG_IGN, now.sa_handler);
  EXPECT_EQ(0, now.sa_flags & SA_RESTART);
  EXPECT_EQ(0, QIV_FiniNetwork_Inter());
  ASSERT_EQ(0, sigaction(SIGPIPE, &saved, &now));
  EXPECT_EQ(SIG_IGN, now.sa_handler);
}

// Creation and end.

class CreateSocketTest : public SocketTest,
                         public ::testing::WithParamInterface<std::tuple<int, int>> {};

TEST_P(CreateSocketTest, GivesASocketOfTheFamilyAndType) {
  const auto [family, type] = GetParam();
  const Socket created(QIV_CreateSocket(family, type, 0));
  ASSERT_NE(-1, created.Get());
  EXPECT_EQ(family, IntOption(created.Get(), SOL_SOCKET, SO_DOMAIN));
  EXPECT_EQ(type, IntOption(created.Get(), SOL_SOCKET, SO_TYPE));
}

INSTANTIATE_TEST_SUITE_P(FamiliesAndTypes, CreateSocketTest,
                         ::testing::Combine(::testing::Values(AF_INET, AF_INET6),
                                            ::testing::Values(SOCK_STREAM, SOCK_DGRAM)));

TEST_F(SocketTest, CreatePassesTheProtocol) {
  const Socket created(QIV_CreateSocket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
  EXPECT_EQ(IPPROTO_UDP, IntOption(created.Get(), SOL_SOCKET, SO_PROTOCOL));
  errno = 0;
  EXPECT_EQ(-1, QIV_CreateSocket(AF_INET, SOCK_DGRAM, IPPROTO_TCP));
  EXPECT_EQ(EPROTONOSUPPORT, errno);
}

TEST_F(SocketTest, CreateWithAnotherFamilyIsRefusedByTheSystem) {
  for (const int family : {-1, 0, AF_UNIX, 7, AF_NETLINK, 100, 103}) {
    errno = 0;
    EXPECT_EQ(-1, QIV_CreateSocket(family, SOCK_STREAM, 0)) << family;
    EXPECT_EQ(EAFNOSUPPORT, errno) << family;
  }
}

TEST_F(SocketTest, CreateWithThePreferredFamilyFollowsIt) {
  for (const int family : {AF_INET, AF_INET6}) {
    const PreferredFamily preferred(family);
    const Socket created(QIV_CreateSocket(QIV_AF_PREFERRED, SOCK_STREAM, 0));
    EXPECT_EQ(family, IntOption(created.Get(), SOL_SOCKET, SO_DOMAIN));
  }
  const PreferredFamily unknown(0);
  EXPECT_EQ(-1, QIV_CreateSocket(QIV_AF_PREFERRED, SOCK_STREAM, 0));
}

TEST_F(SocketTest, CreateDualGivesAnIpv6SocketThatAcceptsIpv4) {
  const bool isOffByDefault =
      IntOption(Socket(AF_INET6, SOCK_STREAM).Get(), IPPROTO_IPV6, IPV6_V6ONLY) != 0;
  CapturedOutput output(STDOUT_FILENO);
  const Socket created(QIV_CreateSocket(QIV_AF_INET6_DUAL, SOCK_STREAM, 0));
  EXPECT_EQ(isOffByDefault ? "set IPV6_V6ONLY ret[0]\n" : "", output.Stop());
  EXPECT_EQ(AF_INET6, IntOption(created.Get(), SOL_SOCKET, SO_DOMAIN));
  EXPECT_EQ(0, IntOption(created.Get(), IPPROTO_IPV6, IPV6_V6ONLY));

  QIV_ADDR_T any;
  ASSERT_EQ(0, QIV_MakeAddrByString(QIV_AF_INET6_DUAL, "::", 0, &any));
  ASSERT_EQ(0, QIV_Bind(created.Get(), &any));
  ASSERT_EQ(0, QIV_Listen(created.Get(), 1));
  const QIV_ADDR_T bound = AddressOf(created);
  const QIV_ADDR_T target = Loopback(AF_INET, QIV_GetAddrPort(&bound));
  const Socket client(AF_INET, SOCK_STREAM);
  ASSERT_EQ(0, QIV_ConnectWithTimeOut(client.Get(), &target, kLongTimeOutMs));
  QIV_ADDR_T peer;
  const Socket accepted(QIV_Accept(created.Get(), &peer, kLongTimeOutMs));
  ASSERT_NE(-1, accepted.Get());
  EXPECT_STREQ("127.0.0.1", QIV_GetAddrString(&peer));
}

TEST_F(SocketTest, CreateDualFailsSilentlyWhenTheSystemRefuses) {
  CapturedOutput output(STDOUT_FILENO);
  {
    const qiv::test::NoDescriptorLimit noDescriptors;
    errno = 0;
    EXPECT_EQ(-1, QIV_CreateSocket(QIV_AF_INET6_DUAL, SOCK_STREAM, 0));
    EXPECT_EQ(EMFILE, errno);
  }
  EXPECT_EQ("", output.Stop());
}

TEST_F(SocketTest, Ipv6OnlySocketIsSwitchedAndTheResultPrinted) {
  const Socket ipv6(AF_INET6, SOCK_STREAM);
  const int on = 1;
  ASSERT_EQ(0, setsockopt(ipv6.Get(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof(on)));
  CapturedOutput output(STDOUT_FILENO);
  qiv::net::AcceptIpv4Too(ipv6.Get());
  EXPECT_EQ("set IPV6_V6ONLY ret[0]\n", output.Stop());
  EXPECT_EQ(0, IntOption(ipv6.Get(), IPPROTO_IPV6, IPV6_V6ONLY));
}

TEST_F(SocketTest, Ipv6OnlySocketThatCannotBeSwitchedPrintsTheFailure) {
  const Socket bound(AF_INET6, SOCK_STREAM);
  const int on = 1;
  ASSERT_EQ(0, setsockopt(bound.Get(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof(on)));
  const QIV_ADDR_T address = Loopback(AF_INET6);
  ASSERT_EQ(0, QIV_Bind(bound.Get(), &address));
  CapturedOutput output(STDOUT_FILENO);
  qiv::net::AcceptIpv4Too(bound.Get());
  EXPECT_EQ("set IPV6_V6ONLY ret[-1]\n", output.Stop());
}

TEST_F(SocketTest, CloseGivesTheSystemsResult) {
  EXPECT_EQ(0, QIV_CloseSocket(Socket(AF_INET, SOCK_STREAM).Release(), 0));
  EXPECT_EQ(0, QIV_CloseSocket(Socket(AF_INET, SOCK_STREAM).Release(), 1));
  errno = 0;
  EXPECT_EQ(-1, QIV_CloseSocket(-1, 0));
  EXPECT_EQ(EBADF, errno);
  EXPECT_EQ(-1, QIV_CloseSocket(-1, 1));
}

TEST_F(SocketTest, CloseWithShutdownEndsTheConnectionForOtherHolders) {
  char byte = 0;
  for (const int shutdownFirst : {0, 1, -1}) {
    TcpPair pair;
    const Socket other(dup(pair.first.Get()));
    ASSERT_EQ(0, QIV_CloseSocket(pair.first.Release(), shutdownFirst));
    const ssize_t received = recv(pair.second.Get(), &byte, 1, MSG_DONTWAIT);
    EXPECT_EQ(shutdownFirst != 0 ? 0 : -1, received) << shutdownFirst;
  }
}

TEST_F(SocketTest, ShutDownEndsTheDirectionThatIsAsked) {
  TcpPair pair;
  char byte = 0;
  ASSERT_EQ(0, QIV_ShutDown(pair.first.Get(), SHUT_WR));
  EXPECT_EQ(0, recv(pair.second.Get(), &byte, 1, 0));
  EXPECT_EQ(1, send(pair.second.Get(), "x", 1, 0));
  EXPECT_EQ(1, recv(pair.first.Get(), &byte, 1, 0));
  errno = 0;
  EXPECT_EQ(-1, QIV_ShutDown(pair.first.Get(), 99));
  EXPECT_EQ(EINVAL, errno);
}

TEST_F(SocketTest, BindTakesTheLengthOfTheFamily) {
  for (const int family : {AF_INET, AF_INET6}) {
    const Socket unbound(family, SOCK_STREAM);
    const QIV_ADDR_T address = Loopback(family);
    ASSERT_EQ(0, QIV_Bind(unbound.Get(), &address)) << family;
    const QIV_ADDR_T bound = AddressOf(unbound);
    EXPECT_NE(0, QIV_GetAddrPort(&bound)) << family;
  }
}

TEST_F(SocketTest, BindRefusesNullBeforeTheSystem) {
  errno = 0;
  EXPECT_EQ(-1, QIV_Bind(-1, nullptr));
  EXPECT_EQ(0, errno);
}

TEST_F(SocketTest, BindGivesTheSystemsError) {
  const Socket first = Listener();
  const Socket second(AF_INET, SOCK_STREAM);
  const QIV_ADDR_T taken = AddressOf(first);
  errno = 0;
  EXPECT_EQ(-1, QIV_Bind(second.Get(), &taken));
  EXPECT_EQ(EADDRINUSE, errno);
}

TEST_F(SocketTest, ListenGivesTheSystemsResult) {
  const Socket stream = BoundSocket(AF_INET, SOCK_STREAM);
  EXPECT_EQ(0, QIV_Listen(stream.Get(), 1));
  const Socket datagram = BoundSocket(AF_INET, SOCK_DGRAM);
  errno = 0;
  EXPECT_EQ(-1, QIV_Listen(datagram.Get(), 1));
  EXPECT_EQ(EOPNOTSUPP, errno);
}

TEST_F(SocketTest, SetNonBlockTakesEveryNonZeroValueAsOn) {
  const Socket created(AF_INET, SOCK_STREAM);
  for (const int value : {1, 0, -1, 0, 77}) {
    EXPECT_EQ(0, QIV_SetNonBlock(created.Get(), value));
    EXPECT_EQ(value != 0, IsNonBlocking(created)) << value;
  }
}

TEST_F(SocketTest, SetNonBlockKeepsTheOtherFlags) {
  const Socket created(AF_INET, SOCK_STREAM);
  ASSERT_EQ(0, fcntl(created.Get(), F_SETFL, O_APPEND));
  ASSERT_EQ(0, QIV_SetNonBlock(created.Get(), 1));
  EXPECT_NE(0, fcntl(created.Get(), F_GETFL) & O_APPEND);
  ASSERT_EQ(0, QIV_SetNonBlock(created.Get(), 0));
  EXPECT_NE(0, fcntl(created.Get(), F_GETFL) & O_APPEND);
}

TEST_F(SocketTest, SetNonBlockOfABadDescriptorFails) {
  errno = 0;
  EXPECT_EQ(-1, QIV_SetNonBlock(-1, 1));
  EXPECT_EQ(EBADF, errno);
}

// Accepting.

TEST_F(SocketTest, AcceptWithNothingPendingEndsWithItsTimeOut) {
  const Socket listener = Listener();
  EXPECT_EQ(-1, QIV_Accept(listener.Get(), nullptr, 0));
  const Stopwatch time;
  EXPECT_EQ(-1, QIV_Accept(listener.Get(), nullptr, 100));
  EXPECT_GE(time.Milliseconds(), 95);
}

TEST_F(SocketTest, AcceptTakesAPendingConnectionAndThePeer) {
  for (const int family : {AF_INET, AF_INET6}) {
    const Socket listener = Listener(family);
    const QIV_ADDR_T target = AddressOf(listener);
    const Socket client(family, SOCK_STREAM);
    ASSERT_EQ(0, QIV_ConnectWithTimeOut(client.Get(), &target, kLongTimeOutMs));
    QIV_ADDR_T peer = {};
    const Socket accepted(QIV_Accept(listener.Get(), &peer, kLongTimeOutMs));
    ASSERT_NE(-1, accepted.Get());
    const QIV_ADDR_T local = AddressOf(client);
    EXPECT_EQ(family, QIV_GetAddrType(&peer));
    EXPECT_EQ(QIV_GetAddrPort(&local), QIV_GetAddrPort(&peer));
  }
}

TEST_F(SocketTest, AcceptWaitsForAConnectionWithALimitAndWithout) {
  for (const unsigned int ms : {kLongTimeOutMs, QIV_INFINITE}) {
    const Socket listener = Listener();
    const QIV_ADDR_T target = AddressOf(listener);
    const Socket client(AF_INET, SOCK_STREAM);
    const Stopwatch time;
    auto connected = RunInThread([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));  // gives the call time to wait
      return connect(client.Get(), &target.any, sizeof(sockaddr_in));
    });
    const Socket connection(QIV_Accept(listener.Get(), nullptr, ms));
    EXPECT_NE(-1, connection.Get()) << ms;
    EXPECT_GE(time.Milliseconds(), 47);
    EXPECT_EQ(0, connected.Get());
  }
}

TEST_F(SocketTest, AcceptOnASocketThatDoesNotListenFails) {
  const Socket idle(AF_INET, SOCK_STREAM);
  errno = 0;
  EXPECT_EQ(-1, QIV_Accept(idle.Get(), nullptr, kLongTimeOutMs));  // ready, but not to read
  EXPECT_EQ(0, errno);                                             // so the system is not asked
  EXPECT_EQ(-1, QIV_Accept(idle.Get(), nullptr, QIV_INFINITE));
  EXPECT_EQ(EINVAL, errno);
}

TEST_F(SocketTest, AcceptFailsWhenTheWaitFails) {
  const Socket listener = Listener();
  const qiv::test::NoDescriptorLimit noDescriptors;
  errno = 0;
  EXPECT_EQ(-1, QIV_Accept(listener.Get(), nullptr, kLongTimeOutMs));
  EXPECT_EQ(EINVAL, errno);
}

}  // namespace
