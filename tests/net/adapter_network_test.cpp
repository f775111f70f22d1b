// Adapters of networks that the tests make themselves.
#include <gtest/gtest.h>
#include <net/if.h>
#include <qiv/adapter.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "net/adapter_list.h"
#include "net/adapter_netlink.h"
#include "support/captured_output.h"
#include "support/failing_system_call.h"
#include "support/leak_check.h"
#include "support/netlink_message.h"
#include "support/network_namespace.h"
#include "support/run_in_thread.h"
#include "support/sockets.h"
#include "support/stopwatch.h"

namespace {

using qiv::test::AdapterList;
using qiv::test::GetAdapters;
using qiv::test::InNetworkNamespace;
using qiv::test::Ipv6Texts;
using qiv::test::Lines;
using qiv::test::Mac;
using qiv::test::NetworkNamespace;
using Texts = std::vector<std::string>;

class AdapterNetworkTest : public qiv::test::LeakCheckedTest {};

constexpr int kUntouched = 77;

int Family() {
  int family = kUntouched;
  QIV_ADAPTER_INFO* list = nullptr;
  EXPECT_EQ(0, QIV_GetAdapterInfoEx(&list, &family));
  EXPECT_EQ(0, QIV_FreeAdapterInfo(list));
  return family;
}

std::string CapturedErrors(AdapterList& list) {
  qiv::test::CapturedOutput errors(STDERR_FILENO);
  list = GetAdapters();
  return errors.Stop();
}

std::string Name(int number) { return "v" + std::to_string(number); }
std::string Ipv4(int number) { return "10.0." + std::to_string(number) + ".1"; }
std::string Ipv6(int number) { return "fd00::" + std::to_string(number); }

/** Interfaces "v0", "v1" ... that are down, so that they have no addresses of their own. */
void AddPairs(NetworkNamespace& network, int count) {
  for (int i = 0; i < count; ++i) network.AddVethPair(Name(2 * i), Name(2 * i + 1));
}

/** The interfaces with IPv4 addresses in the kernel's order, however many. */
Texts KernelsOrder() {
  std::array<ifreq, 100> records = {};
  ifconf request = {};
  request.ifc_len = sizeof(records);
  request.ifc_req = records.data();
  const qiv::test::Socket socket = qiv::test::UdpSocket();
  EXPECT_EQ(0, ioctl(socket.Get(), SIOCGIFCONF, &request));
  Texts names;
  const auto count = static_cast<std::size_t>(request.ifc_len) / sizeof(ifreq);
  for (std::size_t i = 0; i < count; ++i) names.emplace_back(records.at(i).ifr_name);
  return names;
}

TEST_F(AdapterNetworkTest, WithoutAddressesTheListIsEmptyAndTheFamilyLeftAlone) {
  InNetworkNamespace([](NetworkNamespace&) {
    EXPECT_EQ(nullptr, GetAdapters());
    EXPECT_EQ(kUntouched, Family());
  });
}

TEST_F(AdapterNetworkTest, InterfaceWithIpv6AddressesAloneIsNotListed) {
  InNetworkNamespace([](NetworkNamespace& network) {
    AddPairs(network, 1);
    network.AddAddress("v0", "fd00::1", 64);
    EXPECT_EQ(nullptr, GetAdapters());
    EXPECT_EQ(kUntouched, Family());
    network.AddAddress("v1", "10.1.2.3", 24);
    EXPECT_EQ(Texts{"0 v1 10.1.2.3/255.255.255.0"}, Lines(GetAdapters()));
    EXPECT_EQ(AF_INET, Family());
  });
}

TEST_F(AdapterNetworkTest, HostWithoutIpv6PrefersIpv4) {
  InNetworkNamespace([](NetworkNamespace& network) {
    network.SetUp("lo");
    EXPECT_EQ(QIV_AF_INET6_DUAL, Family());
    if (!network.DisableIpv6()) return;
    AdapterList list;
    const std::string errors = CapturedErrors(list);
    EXPECT_NE(std::string::npos, errors.find(" mac and 0 ip\n")) << errors;
    EXPECT_EQ(Texts{"0 lo 127.0.0.1/255.0.0.0"}, Lines(list));
    EXPECT_EQ(AF_INET, Family());
  });
}

TEST_F(AdapterNetworkTest, OfAPointToPointLinkThePeersAddressIsKeptListed) {
  InNetworkNamespace([](NetworkNamespace& network) {
    AddPairs(network, 1);
    network.AddAddress("v0", "10.0.0.1", 24);
    network.AddPeerAddress("v0", "fd00::1", "fd00::2");
    EXPECT_EQ(Texts{"0 v0 10.0.0.1/255.255.255.0 fd00::2"}, Lines(GetAdapters()));
  });
}

TEST_F(AdapterNetworkTest, LoopbackHasItsTwoAddressesAndAZeroMac) {
  InNetworkNamespace([](NetworkNamespace& network) {
    network.SetUp("lo");
    AdapterList list;
    const std::string errors = CapturedErrors(list);
    ASSERT_EQ(Texts{"0 lo 127.0.0.1/255.0.0.0 ::1"}, Lines(list));
    EXPECT_NE(std::string::npos, errors.find(" mac and 1 ip\n")) << errors;
    EXPECT_EQ(6u, list->dwMacLen);
    for (const unsigned char byte : list->byMac) EXPECT_EQ(0, byte);
    for (const unsigned char byte : list->byReserved) EXPECT_EQ(0, byte);
    for (const unsigned char byte : list->pIpv6List->byReserved) EXPECT_EQ(0, byte);
    for (std::size_t i = 2; i < sizeof(list->szName); ++i) EXPECT_EQ('\0', list->szName[i]);
    EXPECT_EQ(0u, list->dwReserved);
    EXPECT_EQ(nullptr, list->pReservedList1);
    EXPECT_EQ(nullptr, list->pReservedList2);
    EXPECT_EQ(QIV_AF_INET6_DUAL, Family());
  });
}

TEST_F(AdapterNetworkTest, AddressesAreFoundByTheMacOfTheirInterface) {
  InNetworkNamespace([](NetworkNamespace& network) {
    AddPairs(network, 1);
    network.SetMac("v0", {2, 0, 0, 0, 0, 7});
    network.AddAddress("v0", "10.0.0.1", 24);
    network.AddAddress("v1", "10.255.0.1", 9);
    network.AddAddress("v0", "fd00::1", 64);
    network.AddAddress("v1", "fd00::2", 64);
    const AdapterList list = GetAdapters();
    Texts lines = Lines(list);
    const Texts kernels = KernelsOrder();
    const bool firstIsV0 = kernels.at(0) == "v0";
    const std::string v0 = " v0 10.0.0.1/255.255.255.0 fd00::1";
    const std::string v1 = " v1 10.255.0.1/255.128.0.0 fd00::2";
    EXPECT_EQ((Texts{"1" + (firstIsV0 ? v1 : v0), "0" + (firstIsV0 ? v0 : v1)}), lines);
    const QIV_ADAPTER_INFO& adapter = firstIsV0 ? *list->pNext : *list;
    const unsigned char mac[8] = {2, 0, 0, 0, 0, 7, 0, 0};
    EXPECT_TRUE(std::equal(mac, mac + 8, adapter.byMac)) << "two bytes of filling";
    EXPECT_EQ(QIV_AF_INET6_DUAL, Family());
  });
}

TEST_F(AdapterNetworkTest, EveryAddressOfAnInterfaceIsAnAdapterAndTheFirstOneHasTheIpv6Addresses) {
  InNetworkNamespace([](NetworkNamespace& network) {
    AddPairs(network, 1);
    network.AddAddress("v0", "10.0.0.1", 24);
    network.AddAddress("v0", "10.0.0.2", 24);
    network.AddAddress("v0", "10.7.0.1", 16, "v0:one");
    network.AddAddress("v0", "fd00::1", 64);
    Texts lines = Lines(GetAdapters());
    ASSERT_EQ(3u, lines.size());
    EXPECT_NE(std::string::npos, lines.front().find(" fd00::1"));
    lines.front().erase(lines.front().find(" fd00::1"));
    for (std::string& line : lines) line.erase(0, 2);
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ((Texts{"v0 10.0.0.1/255.255.255.0", "v0 10.0.0.2/255.255.255.0",
                     "v0:one 10.7.0.1/255.255.0.0"}),
              lines);
  });
}

TEST_F(AdapterNetworkTest, InterfacesWithTheSameMacAreKeptSharingTheFirstAdapter) {
  InNetworkNamespace([](NetworkNamespace& network) {
    AddPairs(network, 1);
    for (const int i : {0, 1}) {
      network.SetMac(Name(i), {2, 0, 0, 0, 0, 9});
      network.AddAddress(Name(i), Ipv4(i), 24);
      network.AddAddress(Name(i), Ipv6(i + 1), 64);
    }
    const AdapterList list = GetAdapters();
    Texts addresses = Ipv6Texts(*list);
    std::sort(addresses.begin(), addresses.end());
    EXPECT_EQ((Texts{"fd00::1", "fd00::2"}), addresses);
    EXPECT_EQ(nullptr, list->pNext->pIpv6List);
  });
}

TEST_F(AdapterNetworkTest, AnswersLongerThan2048BytesLoseNothing) {
  InNetworkNamespace([](NetworkNamespace& network) {
    constexpr int kInterfaces = 14;
    AddPairs(network, kInterfaces / 2);
    for (int i = 0; i < kInterfaces; ++i) {
      network.AddAddress(Name(i), Ipv4(i), 24);
      network.AddAddress(Name(i), Ipv6(i + 1), 64);
    }
    const AdapterList list = GetAdapters();
    int found = 0;
    for (const QIV_ADAPTER_INFO* each = list.get(); each != nullptr; each = each->pNext) {
      const int number = std::stoi(each->szName + 1);
      EXPECT_EQ(Texts{"fd00::" + std::to_string(number + 1)}, Ipv6Texts(*each));
      ++found;
    }
    EXPECT_EQ(kInterfaces, found);
  });
}

TEST_F(AdapterNetworkTest, OnlyTheFirst16InterfacesOfTheKernelAreSeen) {
  InNetworkNamespace([](NetworkNamespace& network) {
    constexpr int kInterfaces = 20;
    AddPairs(network, kInterfaces / 2);
    for (int i = 0; i < kInterfaces; ++i) {
      network.AddAddress(Name(i), Ipv4(i), 24);
      network.AddAddress(Name(i), Ipv6(i + 1), 64);
    }
    AdapterList list;
    const std::string errors = CapturedErrors(list);
    EXPECT_EQ("loop[2] find 16 mac and 16 ip\n", errors);
    const Texts kernels = KernelsOrder();
    ASSERT_EQ(20u, kernels.size());
    unsigned int index = 16;
    for (const QIV_ADAPTER_INFO* each = list.get(); each != nullptr; each = each->pNext) {
      ASSERT_GT(index, 0u);
      --index;
      EXPECT_EQ(index, each->dwIndex);
      EXPECT_EQ(kernels.at(index), each->szName);
    }
    EXPECT_EQ(0u, index);

    unsigned char mac[6] = {};
    unsigned int length = sizeof(mac);
    const auto addressOf = [](const std::string& name) { return Ipv4(std::stoi(name.substr(1))); };
    EXPECT_EQ(0, QIV_GetMacAddr(addressOf(kernels.at(15)).c_str(), mac, &length));
    EXPECT_EQ(-1, QIV_GetMacAddr(addressOf(kernels.at(16)).c_str(), mac, &length));
  });
}

TEST_F(AdapterNetworkTest, MacIsThatOfTheLastInterfaceWithTheAddress) {
  InNetworkNamespace([](NetworkNamespace& network) {
    AddPairs(network, 1);
    network.AddAddress("v0", "10.0.0.1", 24);
    network.AddAddress("v1", "10.0.0.1", 24);
    Mac mac = {};
    unsigned int length = 6;
    ASSERT_EQ(0, QIV_GetMacAddr("10.0.0.1", mac.data(), &length));
    EXPECT_EQ(network.MacOf(KernelsOrder().back()), mac);
  });
}

TEST_F(AdapterNetworkTest, MacIsFoundByASecondAddressToo) {
  InNetworkNamespace([](NetworkNamespace& network) {
    AddPairs(network, 1);
    network.AddAddress("v0", "10.0.0.1", 24);
    network.AddAddress("v0", "10.0.0.2", 24);
    network.AddAddress("v0", "10.7.0.1", 16, "v0:one");
    for (const char* address : {"10.0.0.1", "10.0.0.2", "10.7.0.1"}) {
      Mac mac = {};
      unsigned int length = 6;
      EXPECT_EQ(0, QIV_GetMacAddr(address, mac.data(), &length)) << address;
      EXPECT_EQ(network.MacOf("v0"), mac) << address;
    }
  });
}

// The kernel lists an address by its label, and knows no interface of that name.
TEST_F(AdapterNetworkTest, InterfaceThatHasNoAddressWhenAskedIsPassedOver) {
  InNetworkNamespace([](NetworkNamespace& network) {
    AddPairs(network, 1);
    network.AddAddress("v0", "10.0.0.1", 24);
    network.AddAddress("v0", "10.7.0.1", 16, "gone");
    ASSERT_EQ((Texts{"v0", "gone"}), KernelsOrder()) << "the last one is asked first";
    Mac mac = {};
    unsigned int length = 6;
    EXPECT_EQ(-1, QIV_GetMacAddr("10.7.0.1", mac.data(), &length));
    EXPECT_EQ(0, QIV_GetMacAddr("10.0.0.1", mac.data(), &length));
    EXPECT_EQ(network.MacOf("v0"), mac);
    QIV_ADAPTER_INFO* list = nullptr;
    EXPECT_EQ(-1, QIV_GetAdapterInfo(&list)) << "the list needs every interface";
  });
}

/** A netlink socket with a port of its own. */
struct Port {
  Port() {
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    socklen_t length = sizeof(address);
    EXPECT_EQ(0, bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), length));
    EXPECT_EQ(0, getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&address), &length));
    number = address.nl_pid;
  }

  qiv::test::Socket socket{::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)};
  std::uint32_t number = 0;
};

/** Sends a message to another netlink socket of the same kind, as the kernel would. */
void Forge(const qiv::test::NetlinkMessage& message, std::uint32_t port) {
  const qiv::test::Socket socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  sockaddr_nl target = {};
  target.nl_family = AF_NETLINK;
  target.nl_pid = port;
  const std::string bytes = message.Bytes();
  ASSERT_NE(-1, sendto(socket.Get(), bytes.data(), bytes.size(), 0,
                       reinterpret_cast<const sockaddr*>(&target), sizeof(target)));
}

TEST_F(AdapterNetworkTest, AnswersOfOthersThanTheKernelAreLeftOut) {
  InNetworkNamespace([](NetworkNamespace& network) {
    network.SetUp("lo");
    const Port port;
    qiv::test::NetlinkMessage link(RTM_NEWLINK, 0, 1);
    ifinfomsg forged = {};
    forged.ifi_index = 999;
    Forge(link.Add(forged).AddAttribute(IFLA_ADDRESS, "forged"), port.number);
    Forge(qiv::test::NetlinkMessage(NLMSG_DONE, 0, 1).Add(0), port.number);
    qiv::net::LinkTable links;
    qiv::net::Ipv6Table addresses;
    ASSERT_EQ(0, qiv::net::DumpLinksAndIpv6Addresses(port.socket.Get(), links, addresses));
    EXPECT_GE(links.count, 1u) << "the forged end does not count";
    EXPECT_EQ(1u, addresses.count);
    for (const auto& entry : links) EXPECT_NE(999u, entry.interface);
  });
}

TEST_F(AdapterNetworkTest, MessagesOfOthersDoNotExtendTheWaitForTheKernel) {
  InNetworkNamespace([](NetworkNamespace&) {
    const Port port;
    const qiv::test::Stopwatch stopwatch;
    auto query = qiv::test::RunInThread([&port] {
      const qiv::test::FailingSystemCall sendNothing = {__NR_sendto, 1, 0, 0, 0};
      if (!Install(sendNothing)) return -1;
      qiv::net::LinkTable links;
      qiv::net::Ipv6Table addresses;
      return qiv::net::DumpLinksAndIpv6Addresses(port.socket.Get(), links, addresses);
    });
    while (!query.IsReady()) {
      Forge(qiv::test::NetlinkMessage(NLMSG_NOOP, 0, 1), port.number);
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(0, query.Get());
    EXPECT_GE(stopwatch.Milliseconds(), 5700);
    EXPECT_LT(stopwatch.Milliseconds(), 12000);
  });
}

}  // namespace
