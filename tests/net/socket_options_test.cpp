#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/tcp.h>
#include <qiv/socket.h>
#include <sys/time.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>

#include "net/socket.h"
#include "support/leak_check.h"
#include "support/sockets.h"

namespace {

using qiv::test::Loopback;
using qiv::test::Socket;

class SocketOptionsTest : public qiv::test::LeakCheckedTest {
 protected:
  template <class Value>
  static Value Read(const Socket& socket, int level, int option) {
    Value value = {};
    socklen_t length = sizeof(value);
    EXPECT_EQ(0, getsockopt(socket.Get(), level, option, &value, &length));
    return value;
  }

  static int ReadInt(const Socket& socket, int level, int option) {
    return Read<int>(socket, level, option);
  }
};

// Options that are one number.

struct SetterCase {
  const char* name;
  int (*set)(int socket, int value);
  int family;
  int type;
  int level;
  int option;
  int value;
  int readBack;
};
std::ostream& operator<<(std::ostream& out, const SetterCase& row) {
  return out << row.name << ' ' << row.value;
}

class NumberOptionTest : public SocketOptionsTest,
                         public ::testing::WithParamInterface<SetterCase> {};

TEST_P(NumberOptionTest, ReachesTheSystem) {
  const SetterCase& row = GetParam();
  const Socket socket(row.family, row.type);
  ASSERT_EQ(0, row.set(socket.Get(), row.value));
  EXPECT_EQ(row.readBack, ReadInt(socket, row.level, row.option));
}

TEST_P(NumberOptionTest, OfABadDescriptorGivesTheSystemsError) {
  errno = 0;
  EXPECT_EQ(-1, GetParam().set(-1, GetParam().value));
  EXPECT_EQ(EBADF, errno);
}

int BroadCast(int socket, int) { return QIV_BroadCast(socket); }

INSTANTIATE_TEST_SUITE_P(
    Table, NumberOptionTest,
    ::testing::Values(
        SetterCase{"ttl", QIV_SetTTL, AF_INET, SOCK_DGRAM, IPPROTO_IP, IP_TTL, 33, 33},
        SetterCase{"hops", QIV_SetTTL_V6, AF_INET6, SOCK_DGRAM, IPPROTO_IPV6, IPV6_UNICAST_HOPS, 34,
                   34},
        SetterCase{"multicast ttl", QIV_SetMultiCastTTL, AF_INET, SOCK_DGRAM, IPPROTO_IP,
                   IP_MULTICAST_TTL, 35, 35},
        SetterCase{"multicast ttl v6", QIV_SetMultiCastTTL_V6, AF_INET6, SOCK_DGRAM, IPPROTO_IPV6,
                   IPV6_MULTICAST_HOPS, 36, 36},
        SetterCase{"multicast hops v6", QIV_SetMultiCastHopsV6, AF_INET6, SOCK_DGRAM, IPPROTO_IPV6,
                   IPV6_MULTICAST_HOPS, 37, 37},
        SetterCase{"multicast loop off", QIV_SetMultiCastLoopV6, AF_INET6, SOCK_DGRAM, IPPROTO_IPV6,
                   IPV6_MULTICAST_LOOP, 0, 0},
        SetterCase{"multicast loop on", QIV_SetMultiCastLoopV6, AF_INET6, SOCK_DGRAM, IPPROTO_IPV6,
                   IPV6_MULTICAST_LOOP, 1, 1},
        SetterCase{"tos", QIV_SetTOS, AF_INET, SOCK_DGRAM, IPPROTO_IP, IP_TOS, 0x10, 0x10},
        SetterCase{"reuse on", QIV_SetReuseAddr, AF_INET, SOCK_STREAM, SOL_SOCKET, SO_REUSEADDR, 1,
                   1},
        SetterCase{"reuse off", QIV_SetReuseAddr, AF_INET, SOCK_STREAM, SOL_SOCKET, SO_REUSEADDR, 0,
                   0},
        SetterCase{"no delay on", QIV_SetNoDelay, AF_INET, SOCK_STREAM, IPPROTO_TCP, TCP_NODELAY, 1,
                   1},
        SetterCase{"no delay off", QIV_SetNoDelay, AF_INET, SOCK_STREAM, IPPROTO_TCP, TCP_NODELAY,
                   0, 0},
        SetterCase{"broadcast", BroadCast, AF_INET, SOCK_DGRAM, SOL_SOCKET, SO_BROADCAST, 1, 1}));

TEST_F(SocketOptionsTest, RefusedNumberGivesTheSystemsError) {
  const Socket socket(AF_INET, SOCK_DGRAM);
  errno = 0;
  EXPECT_EQ(-1, QIV_SetTTL(socket.Get(), 256));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_EQ(-1, QIV_SetNoDelay(socket.Get(), 1));
}

TEST_F(SocketOptionsTest, GettersReadWhatWasSet) {
  const Socket ipv4(AF_INET, SOCK_DGRAM);
  const Socket ipv6(AF_INET6, SOCK_DGRAM);
  int value = 0;
  ASSERT_EQ(0, QIV_SetTTL(ipv4.Get(), 40));
  ASSERT_EQ(0, QIV_GetTTL(ipv4.Get(), &value));
  EXPECT_EQ(40, value);
  ASSERT_EQ(0, QIV_SetTTL_V6(ipv6.Get(), 41));
  ASSERT_EQ(0, QIV_GetTTL_V6(ipv6.Get(), &value));
  EXPECT_EQ(41, value);
  ASSERT_EQ(0, QIV_SetTOS(ipv4.Get(), 0x08));
  ASSERT_EQ(0, QIV_GetTOS(ipv4.Get(), &value));
  EXPECT_EQ(0x08, value);
}

TEST_F(SocketOptionsTest, GettersFailWithTheSystemsError) {
  const Socket ipv4(AF_INET, SOCK_DGRAM);
  const Socket ipv6(AF_INET6, SOCK_DGRAM);
  int value = 0;
  const std::tuple<int (*)(int, int*), int> getters[] = {
      {QIV_GetTTL, ipv4.Get()}, {QIV_GetTTL_V6, ipv6.Get()}, {QIV_GetTOS, ipv4.Get()}};
  for (const auto& [get, socket] : getters) {
    errno = 0;
    EXPECT_EQ(-1, get(-1, &value));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(-1, get(socket, nullptr));
    EXPECT_EQ(EFAULT, errno);
  }
}

// Lingering.

TEST_F(SocketOptionsTest, LingerIsSwitchedOnWithItsSecondsAndOff) {
  const Socket socket(AF_INET, SOCK_STREAM);
  ASSERT_EQ(0, QIV_LingerOn(socket.Get(), 7));
  auto value = Read<linger>(socket, SOL_SOCKET, SO_LINGER);
  EXPECT_NE(0, value.l_onoff);
  EXPECT_EQ(7, value.l_linger);
  ASSERT_EQ(0, QIV_LingerOff(socket.Get()));
  value = Read<linger>(socket, SOL_SOCKET, SO_LINGER);
  EXPECT_EQ(0, value.l_onoff);
  EXPECT_EQ(-1, QIV_LingerOn(-1, 1));
  EXPECT_EQ(-1, QIV_LingerOff(-1));
}

// Interfaces.

TEST_F(SocketOptionsTest, DeviceNameHasTheFirstFifteenCharactersAndZeroes) {
  EXPECT_EQ(32U, sizeof(qiv::net::DeviceName));
  for (const auto& [name, wanted] :
       {std::pair{std::string("abcdefghijklmnopqrst"), std::string("abcdefghijklmno")},
        std::pair{std::string("abcdefghijklmno"), std::string("abcdefghijklmno")},
        std::pair{std::string("lo"), std::string("lo")}, std::pair{std::string(), std::string()}}) {
    const qiv::net::DeviceName device = qiv::net::MakeDeviceName(name.c_str());
    EXPECT_EQ(wanted + std::string(32 - wanted.size(), '\0'),
              std::string(device.data(), device.size()));
  }
}

TEST_F(SocketOptionsTest, BindToDeviceDoesWhatTheSystemAllows) {
  for (const char* name : {"lo", "", "no-such-device", "no-such-device-20-ch"}) {
    char buffer[32] = {};
    std::strncpy(buffer, name, 15);
    const Socket raw(AF_INET, SOCK_DGRAM);
    const Socket socket(AF_INET, SOCK_DGRAM);
    errno = 0;
    const int wanted = setsockopt(raw.Get(), SOL_SOCKET, SO_BINDTODEVICE, buffer, sizeof(buffer));
    const int wantedErrno = errno;
    errno = 0;
    EXPECT_EQ(wanted, QIV_Bind_ToDevice(socket.Get(), name)) << name;
    EXPECT_EQ(wantedErrno, errno) << name;
    using Name = std::array<char, IFNAMSIZ>;
    EXPECT_EQ(Read<Name>(raw, SOL_SOCKET, SO_BINDTODEVICE),
              Read<Name>(socket, SOL_SOCKET, SO_BINDTODEVICE));
  }
}

TEST_F(SocketOptionsTest, BindToDeviceRefusesNullBeforeTheSystem) {
  errno = 0;
  EXPECT_EQ(-1, QIV_Bind_ToDevice(-1, nullptr));
  const Socket socket(AF_INET, SOCK_DGRAM);
  EXPECT_EQ(-1, QIV_Bind_ToDevice(socket.Get(), nullptr));
  EXPECT_EQ(0, errno);
}

// Time-outs.

class TimeOutTest : public SocketOptionsTest {
 protected:
  static constexpr long kAboveTick = 100000;  // us; the system rounds up to its tick

  static timeval Limit(const Socket& socket, int option) {
    return Read<timeval>(socket, SOL_SOCKET, option);
  }
};

TEST_F(TimeOutTest, RestOfTheMillisecondsIsKeptAsMicroseconds) {
  const Socket socket(AF_INET, SOCK_DGRAM);
  ASSERT_EQ(0, QIV_SetTimeOut(socket.Get(), 1500, 2500));
  const timeval receive = Limit(socket, SO_RCVTIMEO);
  EXPECT_EQ(2, receive.tv_sec);
  EXPECT_GE(receive.tv_usec, 500);
  EXPECT_LT(receive.tv_usec, kAboveTick);
  const timeval send = Limit(socket, SO_SNDTIMEO);
  EXPECT_EQ(1, send.tv_sec);
  EXPECT_GE(send.tv_usec, 500);
  EXPECT_LT(send.tv_usec, kAboveTick);
}

TEST_F(TimeOutTest, ZeroLeavesADirectionAlone) {
  const Socket socket(AF_INET, SOCK_DGRAM);
  ASSERT_EQ(0, QIV_SetTimeOut(socket.Get(), 0, 3000));
  EXPECT_EQ(3, Limit(socket, SO_RCVTIMEO).tv_sec);
  EXPECT_EQ(0, Limit(socket, SO_SNDTIMEO).tv_sec);
  ASSERT_EQ(0, QIV_SetTimeOut(socket.Get(), 4000, 0));
  EXPECT_EQ(3, Limit(socket, SO_RCVTIMEO).tv_sec);
  EXPECT_EQ(4, Limit(socket, SO_SNDTIMEO).tv_sec);
}

TEST_F(TimeOutTest, BothZeroIsASuccessWithoutTheSystem) {
  errno = 0;
  EXPECT_EQ(0, QIV_SetTimeOut(-1, 0, 0));
  EXPECT_EQ(0, errno);
}

TEST_F(TimeOutTest, OneRefusalIsAFailureAndTheOtherDirectionIsSet) {
  const Socket socket(AF_INET, SOCK_DGRAM);
  EXPECT_EQ(-1, QIV_SetTimeOut(socket.Get(), 2000, -1));  // microseconds below 0
  EXPECT_EQ(2, Limit(socket, SO_SNDTIMEO).tv_sec);
  EXPECT_EQ(-1, QIV_SetTimeOut(socket.Get(), -1, 5000));
  EXPECT_EQ(5, Limit(socket, SO_RCVTIMEO).tv_sec);
  EXPECT_EQ(-1, QIV_SetTimeOut(-1, 1, 1));
}

// Buffer sizes.

TEST_F(SocketOptionsTest, BufferSizesAreSetAndReadEachOnItsOwn) {
  const Socket raw(AF_INET, SOCK_DGRAM);
  const Socket socket(AF_INET, SOCK_DGRAM);
  const int wanted = 20000;
  ASSERT_EQ(0, setsockopt(raw.Get(), SOL_SOCKET, SO_SNDBUF, &wanted, sizeof(wanted)));
  ASSERT_EQ(0, setsockopt(raw.Get(), SOL_SOCKET, SO_RCVBUF, &wanted, sizeof(wanted)));
  const int sendBefore = ReadInt(socket, SOL_SOCKET, SO_SNDBUF);
  ASSERT_EQ(0, QIV_SetBuffSize(socket.Get(), 0, 20000));
  EXPECT_EQ(sendBefore, ReadInt(socket, SOL_SOCKET, SO_SNDBUF));
  EXPECT_EQ(ReadInt(raw, SOL_SOCKET, SO_RCVBUF), ReadInt(socket, SOL_SOCKET, SO_RCVBUF));
  ASSERT_EQ(0, QIV_SetBuffSize(socket.Get(), 20000, 0));
  EXPECT_EQ(ReadInt(raw, SOL_SOCKET, SO_SNDBUF), ReadInt(socket, SOL_SOCKET, SO_SNDBUF));
  ASSERT_EQ(0, QIV_SetBuffSize(socket.Get(), 30000, 40000));
  int send = 0;
  int receive = 0;
  ASSERT_EQ(0, QIV_GetBuffSize(socket.Get(), &send, &receive));
  EXPECT_EQ(ReadInt(socket, SOL_SOCKET, SO_SNDBUF), send);
  EXPECT_EQ(ReadInt(socket, SOL_SOCKET, SO_RCVBUF), receive);
  EXPECT_LT(send, receive);
  int alone = 0;
  EXPECT_EQ(0, QIV_GetBuffSize(socket.Get(), &alone, nullptr));
  EXPECT_EQ(send, alone);
  EXPECT_EQ(0, QIV_GetBuffSize(socket.Get(), nullptr, &alone));
  EXPECT_EQ(receive, alone);
}

TEST_F(SocketOptionsTest, BufferSizesOfABadDescriptorFailUnlessNothingIsAsked) {
  int size = 0;
  EXPECT_EQ(-1, QIV_SetBuffSize(-1, 4096, 0));
  EXPECT_EQ(-1, QIV_SetBuffSize(-1, 0, 4096));
  EXPECT_EQ(0, QIV_SetBuffSize(-1, 0, 0));
  EXPECT_EQ(-1, QIV_GetBuffSize(-1, &size, nullptr));
  EXPECT_EQ(-1, QIV_GetBuffSize(-1, nullptr, &size));
  EXPECT_EQ(0, QIV_GetBuffSize(-1, nullptr, nullptr));
}

// Probing of idle connections.

class KeepAliveTest : public SocketOptionsTest, public ::testing::WithParamInterface<int> {};

TEST_P(KeepAliveTest, IsKeptToSetItsFourOptionsAlsoWhenSwitchedOff) {
  const Socket socket(AF_INET, SOCK_STREAM);
  ASSERT_EQ(0, QIV_SetTCP_KeepAlive(socket.Get(), GetParam(), 33));
  EXPECT_EQ(GetParam() != 0 ? 1 : 0, ReadInt(socket, SOL_SOCKET, SO_KEEPALIVE));
  EXPECT_EQ(33, ReadInt(socket, IPPROTO_TCP, TCP_KEEPIDLE));
  EXPECT_EQ(10, ReadInt(socket, IPPROTO_TCP, TCP_KEEPINTVL));
  EXPECT_EQ(2, ReadInt(socket, IPPROTO_TCP, TCP_KEEPCNT));
}

INSTANTIATE_TEST_SUITE_P(OnAndOff, KeepAliveTest, ::testing::Values(1, 0, -5));

TEST_F(SocketOptionsTest, KeepAliveStopsAtTheFirstRefusal) {
  const Socket socket(AF_INET, SOCK_STREAM);
  const int interval = ReadInt(socket, IPPROTO_TCP, TCP_KEEPINTVL);
  EXPECT_EQ(-1, QIV_SetTCP_KeepAlive(socket.Get(), 1, 0));  // no idle time of 0
  EXPECT_EQ(1, ReadInt(socket, SOL_SOCKET, SO_KEEPALIVE));
  EXPECT_EQ(interval, ReadInt(socket, IPPROTO_TCP, TCP_KEEPINTVL));
  EXPECT_EQ(-1, QIV_SetTCP_KeepAlive(-1, 1, 33));
}

// Multicast groups: what the system answers depends on the machine, so every answer is compared
// with that of the plain system call on a second socket.

class MulticastTest : public SocketOptionsTest {
 protected:
  struct Answer {
    int result;
    int error;
    bool operator==(const Answer& other) const {
      return result == other.result && error == other.error;
    }
    friend std::ostream& operator<<(std::ostream& out, const Answer& answer) {
      return out << answer.result << " errno " << answer.error;
    }
  };

  template <class Call>
  static Answer Ask(Call call) {
    errno = 0;
    const int result = call();
    return {result, errno};
  }

  static Answer Raw4(const Socket& socket, int option, const char* group, const char* interface) {
    ip_mreq request = {};
    inet_pton(AF_INET, group, &request.imr_multiaddr);
    inet_pton(AF_INET, interface, &request.imr_interface);
    return Ask(
        [&] { return setsockopt(socket.Get(), IPPROTO_IP, option, &request, sizeof(request)); });
  }

  static Answer Raw6(const Socket& socket, int option, const char* group, unsigned int interface) {
    ipv6_mreq request = {};
    inet_pton(AF_INET6, group, &request.ipv6mr_multiaddr);
    request.ipv6mr_interface = interface;
    return Ask(
        [&] { return setsockopt(socket.Get(), IPPROTO_IPV6, option, &request, sizeof(request)); });
  }
};

TEST_F(MulticastTest, Ipv4GroupIsJoinedAndLeftOnTheInterfaceOfTheLocalAddress) {
  const char* const groupText = "239.1.2.3";
  const Socket raw(AF_INET, SOCK_DGRAM);
  const Socket socket(AF_INET, SOCK_DGRAM);
  QIV_ADDR_T group;
  ASSERT_EQ(0, QIV_MakeAddrByString(AF_INET, groupText, 9, &group));
  const auto expectTheSystemsAnswer = [&](const auto& change, int option, const char* interface) {
    QIV_ADDR_T local;
    ASSERT_EQ(0, QIV_MakeAddrByString(AF_INET, interface, 9, &local));
    EXPECT_EQ(Raw4(raw, option, groupText, interface),
              Ask([&] { return change(socket.Get(), &local, &group); }))
        << interface;
  };
  for (const char* interface : {"127.0.0.1", "127.0.0.1", "192.0.2.77"}) {
    expectTheSystemsAnswer(QIV_JoinMultiCastGroup, IP_ADD_MEMBERSHIP, interface);
  }
  for (const char* interface : {"192.0.2.77", "127.0.0.1", "127.0.0.1"}) {
    expectTheSystemsAnswer(QIV_LeaveMultiCastGroup, IP_DROP_MEMBERSHIP, interface);
  }
}

TEST_F(MulticastTest, Ipv6GroupIsJoinedAndLeftOnTheInterfaceOfTheKeptWordAtOffsetFour) {
  constexpr unsigned int kNoInterface = 0x7F000001;
  const char* const groupText = "ff02::1:2345";
  const Socket raw(AF_INET6, SOCK_DGRAM);
  const Socket socket(AF_INET6, SOCK_DGRAM);
  const QIV_ADDR_T unused = Loopback(AF_INET6);
  QIV_ADDR_T group;
  ASSERT_EQ(0, QIV_MakeAddrByString(AF_INET6, groupText, 9, &group));
  const auto expectTheSystemsAnswer = [&](const auto& change, int option, unsigned int interface) {
    std::memcpy(reinterpret_cast<char*>(&group) + 4, &interface, sizeof(interface));
    EXPECT_EQ(Raw6(raw, option, groupText, interface),
              Ask([&] { return change(socket.Get(), &unused, &group); }))
        << interface;
  };
  const unsigned int lo = if_nametoindex("lo");
  for (const unsigned int interface : {lo, lo, kNoInterface}) {
    expectTheSystemsAnswer(QIV_JoinMultiCastGroup, IPV6_ADD_MEMBERSHIP, interface);
  }
  for (const unsigned int interface : {kNoInterface, lo, lo}) {
    expectTheSystemsAnswer(QIV_LeaveMultiCastGroup, IPV6_DROP_MEMBERSHIP, interface);
  }
}

TEST_F(MulticastTest, NullOrAnotherFamilyIsRefusedBeforeTheSystem) {
  QIV_ADDR_T address = Loopback(AF_INET);
  QIV_ADDR_T unknown = {};
  for (const auto change : {QIV_JoinMultiCastGroup, QIV_LeaveMultiCastGroup}) {
    errno = 0;
    EXPECT_EQ(-1, change(-1, nullptr, &address));
    EXPECT_EQ(-1, change(-1, &address, nullptr));
    EXPECT_EQ(-1, change(-1, &address, &unknown));
    EXPECT_EQ(0, errno);
    EXPECT_EQ(-1, change(-1, &address, &address));
    EXPECT_EQ(EBADF, errno);
  }
}

}  // namespace
