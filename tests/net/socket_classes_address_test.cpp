// The class layer's endpoint, byte order and host names.
#include <qiv/socket_classes.h>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <fstream>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "net/socket_classes_support.h"
#include "support/leak_check.h"

namespace {

using qiv::qiv_net_addr;
using qiv::qiv_net_utils;
using qiv::test::Family;
using qiv::test::SystemAddress;
using qiv::test::Text;

constexpr std::size_t kAddressOffset = sizeof(void*);

sockaddr_in AddressWith(const char* host, unsigned short port, sa_family_t family = AF_INET) {
  sockaddr_in address = {};
  address.sin_family = family;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = inet_addr(host);
  return address;
}

bool IsZeroFilled(const sockaddr_in& address) {
  const std::vector<unsigned char> zeros(sizeof(address.sin_zero));
  return std::memcmp(address.sin_zero, zeros.data(), zeros.size()) == 0;
}

class NetAddrTest : public qiv::test::LeakCheckedTest {};

// Layout and life.

TEST_F(NetAddrTest, ObjectIsAVirtualTableAndTheSocketAddress) {
  static_assert(std::has_virtual_destructor<qiv_net_addr>::value, "");
  EXPECT_EQ(sizeof(void*) + 16, sizeof(qiv_net_addr));
  const qiv_net_addr address(0x1234, "1.2.3.4");
  const auto* const bytes = reinterpret_cast<const unsigned char*>(&address) + kAddressOffset;
  const sockaddr_in system = AddressWith("1.2.3.4", 0x1234);
  EXPECT_EQ(0, std::memcmp(&system, bytes, sizeof(system)));
}

TEST_F(NetAddrTest, DestructorZeroesTheSocketAddress) {
  alignas(qiv_net_addr) unsigned char storage[sizeof(qiv_net_addr)];
  auto* const address = new (storage) qiv_net_addr(0x1234, "1.2.3.4");
  ASSERT_NE(0, storage[kAddressOffset + 2]);
  address->~qiv_net_addr();
  for (std::size_t i = kAddressOffset; i < sizeof(storage); ++i) EXPECT_EQ(0, storage[i]) << i;
}

TEST_F(NetAddrTest, DeletingThroughTheBaseRunsTheDerivedDestructor) {
  struct Derived : qiv_net_addr {
    explicit Derived(bool& isGone) : m_isGone(isGone) {}
    ~Derived() override { m_isGone = true; }
    bool& m_isGone;
  };
  bool isGone = false;
  const qiv_net_addr* const address = new Derived(isGone);
  delete address;
  EXPECT_TRUE(isGone);
}

// Constructors.

TEST_F(NetAddrTest, DefaultIsZeroedWithTheFamily2) {
  const sockaddr_in address = SystemAddress(qiv_net_addr());
  EXPECT_EQ(2, address.sin_family);
  EXPECT_EQ(0, address.sin_port);
  EXPECT_EQ(0U, address.sin_addr.s_addr);
  EXPECT_TRUE(IsZeroFilled(address));
}

TEST_F(NetAddrTest, PortAndHostAreStoredInNetworkOrder) {
  const sockaddr_in address = SystemAddress(qiv_net_addr(8000, "10.1.2.3"));
  EXPECT_EQ(2, address.sin_family);
  EXPECT_EQ(htons(8000), address.sin_port);
  EXPECT_EQ(htonl(0x0A010203), address.sin_addr.s_addr);
  EXPECT_TRUE(IsZeroFilled(address));
}

TEST_F(NetAddrTest, ConstructorWithoutAHostLeavesTheAddressZero) {
  EXPECT_EQ("0.0.0.0 80", Text(qiv_net_addr(80, nullptr)));
}

TEST_F(NetAddrTest, ConstructorWithAnUnparsableHostGivesAllOnes) {
  EXPECT_EQ("255.255.255.255 80", Text(qiv_net_addr(80, "no address")));
  EXPECT_EQ("255.255.255.255 80", Text(qiv_net_addr(80, "")));
}

TEST_F(NetAddrTest, ConstructorIsKeptToTakeAnyPortModulo65536) {
  EXPECT_EQ(0, qiv_net_addr(65536, nullptr).get_port());
  EXPECT_EQ(1, qiv_net_addr(65537, nullptr).get_port());
  EXPECT_EQ(65535, qiv_net_addr(-1, nullptr).get_port());
  EXPECT_EQ(0, qiv_net_addr(INT_MIN, nullptr).get_port());
}

TEST_F(NetAddrTest, ConstructorCopiesASocketAddressAndItsFill) {
  sockaddr_in system = AddressWith("1.2.3.4", 5);
  system.sin_zero[7] = 9;
  const sockaddr_in copy = SystemAddress(qiv_net_addr(system));
  EXPECT_EQ(0, std::memcmp(&system, &copy, sizeof(copy)));
}

TEST_F(NetAddrTest, EveryConstructorSetsTheFamily2) {
  qiv_net_addr other;
  ASSERT_EQ(0, other.set_addr(AddressWith("1.2.3.4", 5, AF_INET6)));
  ASSERT_EQ(AF_INET6, Family(other));
  const char* const noText = nullptr;
  EXPECT_EQ(2, Family(qiv_net_addr()));
  EXPECT_EQ(2, Family(qiv_net_addr(other)));
  EXPECT_EQ(2, Family(qiv_net_addr(5, "1.2.3.4")));
  EXPECT_EQ(2, Family(qiv_net_addr(AddressWith("1.2.3.4", 5, AF_INET6))));
  EXPECT_EQ(2, Family(qiv_net_addr("1.2.3.4:5")));
  EXPECT_EQ(2, Family(qiv_net_addr(noText)));
}

TEST_F(NetAddrTest, ConstructorWithANullUrlIsZeroedWithTheFamily2) {
  const char* const noText = nullptr;
  EXPECT_TRUE(qiv_net_addr(noText) == qiv_net_addr());
  EXPECT_TRUE(IsZeroFilled(SystemAddress(qiv_net_addr(noText))));
}

TEST_F(NetAddrTest, ConstructorWithAUrlParsesIt) {
  EXPECT_EQ("10.1.2.3 8000", Text(qiv_net_addr("10.1.2.3:8000")));
  EXPECT_EQ("0.0.0.0 0", Text(qiv_net_addr("10.1.2.3")));
}

TEST_F(NetAddrTest, UrlIsTakenWhereAnEndpointIsExpected) {
  const qiv_net_addr address = "10.1.2.3:8000";
  EXPECT_EQ("10.1.2.3 8000", Text(address));
  EXPECT_TRUE(address == "10.1.2.3:8000");
  EXPECT_EQ("1.2.3.4 5", Text("1.2.3.4:5"));
}

TEST_F(NetAddrTest, CopyAndAssignmentCopyTheSocketAddress) {
  const qiv_net_addr source("10.1.2.3:8000");
  const qiv_net_addr copy(source);
  EXPECT_TRUE(copy == source);
  qiv_net_addr target;
  EXPECT_EQ(&target, &(target = source));
  EXPECT_TRUE(target == source);
}

TEST_F(NetAddrTest, AssignmentCopiesTheFamilyAndTheFillToo) {
  sockaddr_in system = AddressWith("1.2.3.4", 5, AF_INET6);
  system.sin_zero[0] = 1;
  qiv_net_addr source;
  ASSERT_EQ(0, source.set_addr(system));
  qiv_net_addr target;
  target = source;
  const sockaddr_in copy = SystemAddress(target);
  EXPECT_EQ(0, std::memcmp(&system, &copy, sizeof(copy)));
}

TEST_F(NetAddrTest, SelfAssignmentDoesNothing) {
  qiv_net_addr address("10.1.2.3:8000");
  const qiv_net_addr& same = address;
  address = same;
  EXPECT_EQ("10.1.2.3 8000", Text(address));
}

// Equality.

TEST_F(NetAddrTest, EqualityComparesFamilyPortAndAddressOnly) {
  const sockaddr_in system = AddressWith("10.1.2.3", 8000);
  sockaddr_in filled = system;
  std::memset(filled.sin_zero, 0xFF, sizeof(filled.sin_zero));
  const qiv_net_addr address(system);
  EXPECT_TRUE(address == qiv_net_addr(filled));
  EXPECT_FALSE(address != qiv_net_addr(filled));

  qiv_net_addr otherFamily;
  ASSERT_EQ(0, otherFamily.set_addr(AddressWith("10.1.2.3", 8000, AF_INET6)));
  for (const qiv_net_addr& other : {qiv_net_addr("10.1.2.4:8000"), qiv_net_addr("10.1.2.3:8001")}) {
    EXPECT_FALSE(address == other);
    EXPECT_TRUE(address != other);
  }
  EXPECT_FALSE(address == otherFamily);
  EXPECT_TRUE(address != otherFamily);
}

// Reading.

TEST_F(NetAddrTest, GetHostIsTheSystemsStaticBuffer) {
  const qiv_net_addr address("10.1.2.3:8000");
  const char* const host = address.get_host();
  EXPECT_STREQ("10.1.2.3", host);
  // As long as the first text: where it begins in the buffer may depend on the length.
  const in_addr other = AddressWith("10.1.2.4", 0).sin_addr;
  EXPECT_EQ(host, inet_ntoa(other));
  EXPECT_STREQ("10.1.2.4", host);
}

TEST_F(NetAddrTest, GetAddrCopiesOut) {
  const qiv_net_addr address("10.1.2.3:8000");
  sockaddr_in system = {};
  in_addr host = {};
  EXPECT_EQ(0, address.get_addr(system));
  EXPECT_EQ(0, address.get_addr(host));
  EXPECT_EQ(htons(8000), system.sin_port);
  EXPECT_EQ(htonl(0x0A010203), system.sin_addr.s_addr);
  EXPECT_EQ(htonl(0x0A010203), host.s_addr);
}

TEST_F(NetAddrTest, GetAddrTextHasHostAndPort) {
  const qiv_net_addr address("10.1.2.3:8000");
  char buffer[32];
  std::memset(buffer, 'x', sizeof(buffer));
  int length = sizeof(buffer);
  EXPECT_EQ(buffer, address.get_addr(buffer, length));
  EXPECT_STREQ("10.1.2.3:8000", buffer);
  EXPECT_EQ(13, length);
  EXPECT_EQ('x', buffer[14]);
}

TEST_F(NetAddrTest, GetAddrTextOfTheLongestEndpoint) {
  char buffer[22];
  int length = sizeof(buffer);
  EXPECT_EQ(buffer, qiv_net_addr("255.255.255.255:65535").get_addr(buffer, length));
  EXPECT_STREQ("255.255.255.255:65535", buffer);
  EXPECT_EQ(21, length);
}

TEST_F(NetAddrTest, GetAddrTextThatDoesNotFitWritesNothing) {
  const qiv_net_addr address("10.1.2.3:8000");
  for (const int given : {13, 12, 1, 0, -1, INT_MIN}) {
    char buffer[32];
    std::memset(buffer, 'x', sizeof(buffer));
    int length = given;
    EXPECT_EQ(nullptr, address.get_addr(buffer, length)) << given;
    EXPECT_EQ(given, length);
    for (const char c : buffer) ASSERT_EQ('x', c) << given;
  }
  char buffer[14];
  int length = sizeof(buffer);
  EXPECT_EQ(buffer, address.get_addr(buffer, length));
}

TEST_F(NetAddrTest, GetAddrTextIntoNullIsNull) {
  int length = 64;
  EXPECT_EQ(nullptr, qiv_net_addr("10.1.2.3:8000").get_addr(nullptr, length));
  EXPECT_EQ(64, length);
}

// Writing.

TEST_F(NetAddrTest, SetPortTakes0To65535) {
  qiv_net_addr address("10.1.2.3:8000");
  for (const int port : {0, 1, 65535}) {
    EXPECT_EQ(0, address.set_port(port));
    EXPECT_EQ(port, address.get_port());
  }
  for (const int port : {65536, -1, INT_MAX, INT_MIN}) {
    EXPECT_EQ(-1, address.set_port(port));
    EXPECT_EQ(65535, address.get_port());
  }
  EXPECT_STREQ("10.1.2.3", address.get_host());
}

TEST_F(NetAddrTest, SetAddrCopiesASocketAddressWithItsFamily) {
  qiv_net_addr address;
  const sockaddr_in system = AddressWith("1.2.3.4", 5, AF_UNIX);
  EXPECT_EQ(0, address.set_addr(system));
  const sockaddr_in copy = SystemAddress(address);
  EXPECT_EQ(0, std::memcmp(&system, &copy, sizeof(copy)));
}

TEST_F(NetAddrTest, IsValidIpv4IsKeptToLookAtThePointerOnly) {
  EXPECT_TRUE(qiv_net_addr::is_valid_ipv4("1.2.3.4"));
  EXPECT_TRUE(qiv_net_addr::is_valid_ipv4("no address"));
  EXPECT_TRUE(qiv_net_addr::is_valid_ipv4(""));
  EXPECT_FALSE(qiv_net_addr().is_valid_ipv4(nullptr));
}

TEST_F(NetAddrTest, SetHostTakesATextAndRefusesNull) {
  qiv_net_addr address("10.1.2.3:8000");
  EXPECT_EQ(-1, address.set_host(nullptr));
  EXPECT_EQ("10.1.2.3 8000", Text(address));
  EXPECT_EQ(0, address.set_host("1.2.3.4"));
  EXPECT_EQ("1.2.3.4 8000", Text(address));
  EXPECT_EQ(0, address.set_host("no address"));
  EXPECT_EQ("255.255.255.255 8000", Text(address));
}

TEST_F(NetAddrTest, SetAddrSetsPortAndHost) {
  qiv_net_addr address;
  EXPECT_EQ(0, address.set_addr(8000, "10.1.2.3"));
  EXPECT_EQ("10.1.2.3 8000", Text(address));
  EXPECT_EQ(0, address.set_addr(65535, "no address"));
  EXPECT_EQ("255.255.255.255 65535", Text(address));
}

TEST_F(NetAddrTest, SetAddrWithoutAHostSetsThePortAlone) {
  qiv_net_addr address("10.1.2.3:8000");
  EXPECT_EQ(0, address.set_addr(80, nullptr));
  EXPECT_EQ("10.1.2.3 80", Text(address));
}

TEST_F(NetAddrTest, SetAddrWithAnotherPortChangesNothing) {
  qiv_net_addr address("10.1.2.3:8000");
  for (const int port : {-1, 65536}) {
    EXPECT_EQ(-1, address.set_addr(port, "1.2.3.4"));
    EXPECT_EQ(-1, address.set_addr(port, nullptr));
  }
  EXPECT_EQ("10.1.2.3 8000", Text(address));
}

TEST_F(NetAddrTest, SetAddrWithAUrlParsesIt) {
  qiv_net_addr address;
  EXPECT_EQ(0, address.set_addr("10.1.2.3:8000"));
  EXPECT_EQ("10.1.2.3 8000", Text(address));
}

// Byte order and host names.

class NetUtilsTest : public qiv::test::LeakCheckedTest {};

TEST_F(NetUtilsTest, ObjectIsAVirtualTable) {
  static_assert(std::has_virtual_destructor<qiv_net_utils>::value, "");
  EXPECT_EQ(sizeof(void*), sizeof(qiv_net_utils));
  const qiv_net_utils* const utils = new qiv_net_utils;
  delete utils;
}

TEST_F(NetUtilsTest, ByteOrderIsTheNetworks) {
  const qiv_net_utils utils;
  for (const auto value : std::vector<unsigned short>{0, 1, 0x1234, 0xFFFF}) {
    EXPECT_EQ(htons(value), utils.qiv_htons(value));
    EXPECT_EQ(htons(value), utils.qiv_ntohs(value));
    EXPECT_EQ(value, qiv_net_utils::qiv_ntohs(qiv_net_utils::qiv_htons(value)));
  }
  for (const unsigned int value : {0U, 1U, 0x12345678U, 0xFFFFFFFFU}) {
    EXPECT_EQ(htonl(value), utils.qiv_htonl(value));
    EXPECT_EQ(htonl(value), utils.qiv_ntohl(value));
    EXPECT_EQ(value, qiv_net_utils::qiv_ntohl(qiv_net_utils::qiv_htonl(value)));
  }
}

TEST_F(NetUtilsTest, HostNameIsTheSystems) {
  char expected[256] = "";
  char name[256] = "";
  ASSERT_EQ(0, gethostname(expected, sizeof(expected)));
  EXPECT_EQ(0, qiv_net_utils::get_host_name(name, sizeof(name)));
  EXPECT_STREQ(expected, name);
  EXPECT_EQ(-1, qiv_net_utils::get_host_name(name, static_cast<int>(std::strlen(expected))));
}

TEST_F(NetUtilsTest, HostNameIntoNullOrANegativeLengthIsRefused) {
  char name[4] = "abc";
  errno = 0;
  EXPECT_EQ(-1, qiv_net_utils::get_host_name(name, -1));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_STREQ("abc", name);
  EXPECT_EQ(-1, qiv_net_utils::get_host_name(nullptr, 64));
  EXPECT_EQ(EFAULT, errno);
}

TEST_F(NetUtilsTest, HostByNameIsTheSystems) {
  const hostent* const host = qiv_net_utils::get_host_by_name("192.0.2.7");
  ASSERT_NE(nullptr, host);
  EXPECT_EQ(host, gethostbyname("192.0.2.7"));
  ASSERT_EQ(4, host->h_length);
  const in_addr_t expected = inet_addr("192.0.2.7");
  EXPECT_EQ(0, std::memcmp(&expected, host->h_addr_list[0], sizeof(expected)));
}

/** A name that the machine has in its own file, so that no name server is asked. */
std::string LocalName() {
  std::ifstream hosts("/etc/hosts");
  std::string word;
  while (hosts >> word) {
    if (word == "localhost") return word;
  }
  return "127.0.0.1";
}

TEST_F(NetUtilsTest, HostByNameLooksUpANameOfTheMachine) {
  const std::string name = LocalName();
  SCOPED_TRACE(name);
  const hostent* const host = qiv_net_utils::get_host_by_name(name.c_str());
  ASSERT_NE(nullptr, host);
  EXPECT_EQ(AF_INET, host->h_addrtype);
  const in_addr_t expected = inet_addr("127.0.0.1");
  EXPECT_EQ(0, std::memcmp(&expected, host->h_addr_list[0], sizeof(expected)));
}

TEST_F(NetUtilsTest, HostByNameOfNullIsNullWithNoRecovery) {
  h_errno = 0;
  EXPECT_EQ(nullptr, qiv_net_utils::get_host_by_name(nullptr));
  EXPECT_EQ(NO_RECOVERY, h_errno);
}

}  // namespace
