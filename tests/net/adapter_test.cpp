// What holds for any adapters, of a network of the tests' own or of the host.
#include <qiv/adapter.h>

#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "net/adapter.h"
#include "net/adapter_list.h"
#include "support/captured_output.h"
#include "support/network_namespace.h"
#include "support/sockets.h"
#include "support/test_limit.h"

namespace {

using qiv::test::AdapterList;
using qiv::test::GetAdapters;
using qiv::test::Lines;
using Texts = std::vector<std::string>;

class AdapterTest : public qiv::test::QuietNetworkTest {};

const QIV_ADAPTER_INFO* FirstWith(const char* address, const AdapterList& list) {
  const QIV_ADAPTER_INFO* each = list.get();
  while (std::strcmp(each->pIpv4List->szAddr, address) != 0) each = each->pNext;
  return each;
}

TEST_F(AdapterTest, NullIsRefusedInSilence) {
  qiv::test::CapturedOutput errors(STDERR_FILENO);
  QIV_ADAPTER_INFO* list = nullptr;
  int family = 77;
  EXPECT_EQ(-1, QIV_GetAdapterInfo(nullptr));
  EXPECT_EQ(-1, QIV_GetAdapterInfoEx(nullptr, &family));
  EXPECT_EQ(-1, QIV_GetAdapterInfoEx(&list, nullptr));
  EXPECT_EQ(77, family);
  EXPECT_EQ(nullptr, list);
  EXPECT_EQ("", errors.Stop());
}

TEST_F(AdapterTest, ReleasingNothingSucceeds) { EXPECT_EQ(0, QIV_FreeAdapterInfo(nullptr)); }

TEST_F(AdapterTest, AllFourListsAreReleasedWithTheirAdapter) {
  auto* const first = new QIV_ADAPTER_INFO();
  first->pNext = new QIV_ADAPTER_INFO();
  for (QIV_ADAPTER_INFO* each = first; each != nullptr; each = each->pNext) {
    for (QIV_IP4_NODE** list : {&each->pIpv4List, &each->pReservedList1, &each->pReservedList2}) {
      *list = new QIV_IP4_NODE();
      (*list)->pNext = new QIV_IP4_NODE();
    }
    each->pIpv6List = new QIV_IP6_NODE();
    each->pIpv6List->pNext = new QIV_IP6_NODE();
  }
  EXPECT_EQ(0, QIV_FreeAdapterInfo(first));  // the address sanitizer looks for what is left
}

TEST_F(AdapterTest, LineOnStandardErrorTellsWhatWasFound) {
  qiv::test::CapturedOutput errors(STDERR_FILENO);
  const AdapterList list = GetAdapters();
  const std::string text = errors.Stop();
  int passes = 0;
  int links = -1;
  int addresses = -1;
  ASSERT_EQ(
      3, std::sscanf(text.c_str(), "loop[%d] find %d mac and %d ip", &passes, &links, &addresses))
      << text;
  EXPECT_EQ(2, passes);
  EXPECT_EQ(
      "loop[2] find " + std::to_string(links) + " mac and " + std::to_string(addresses) + " ip\n",
      text);
}

TEST_F(AdapterTest, IndexRunsDownToZero) {
  const AdapterList list = GetAdapters();
  for (const QIV_ADAPTER_INFO* each = list.get(); each != nullptr; each = each->pNext) {
    EXPECT_EQ(6u, each->dwMacLen);
    EXPECT_NE(nullptr, each->pIpv4List);
    EXPECT_EQ(each->pNext == nullptr ? 0 : each->pNext->dwIndex + 1, each->dwIndex);
  }
}

TEST_F(AdapterTest, FamilyTellsWhichListsThereAre) {
  QIV_IP4_NODE ipv4 = {};
  QIV_IP6_NODE ipv6 = {};
  QIV_ADAPTER_INFO none = {};
  QIV_ADAPTER_INFO withIpv4 = {};
  QIV_ADAPTER_INFO withIpv6 = {};
  withIpv4.pIpv4List = &ipv4;
  withIpv6.pIpv6List = &ipv6;
  const auto familyOf = [](QIV_ADAPTER_INFO& first, QIV_ADAPTER_INFO* second) {
    first.pNext = second;
    int family = 77;
    qiv::net::TellFamily(&first, family);
    return family;
  };
  EXPECT_EQ(77, familyOf(none, nullptr));
  EXPECT_EQ(2, familyOf(withIpv4, nullptr));
  EXPECT_EQ(10, familyOf(withIpv6, nullptr));
  EXPECT_EQ(10, familyOf(none, &withIpv6));
  EXPECT_EQ(101, familyOf(withIpv4, &withIpv6));
  withIpv4.pIpv6List = &ipv6;
  EXPECT_EQ(101, familyOf(withIpv4, nullptr));
  int family = 77;
  qiv::net::TellFamily(nullptr, family);
  EXPECT_EQ(77, family);
}

TEST_F(AdapterTest, SocketOfTheProgramOnTheNetlinkPortIsNoFailure) {
  const Texts expected = Lines(GetAdapters());
  const qiv::test::Socket taken(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  sockaddr_nl address = {};
  address.nl_family = AF_NETLINK;
  address.nl_pid = static_cast<unsigned int>(getpid());
  ASSERT_EQ(0, bind(taken.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)));
  EXPECT_EQ(expected, Lines(GetAdapters()));
}

TEST_F(AdapterTest, CallsAtTheSameTimeAllSucceed) {
  constexpr int kThreads = 4;
  const int rounds = qiv::test::ScaledLoad(200);
  const Texts expected = Lines(GetAdapters());
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&expected, rounds] {
      for (int round = 0; round < rounds; ++round) {
        EXPECT_EQ(expected, Lines(GetAdapters()));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(AdapterTest, MacOfAnAddressIsThatOfItsAdapter) {
  const AdapterList list = GetAdapters();
  ASSERT_NE(nullptr, list);
  for (const QIV_ADAPTER_INFO* each = list.get(); each != nullptr; each = each->pNext) {
    unsigned char mac[6] = {};
    unsigned int length = sizeof(mac);
    EXPECT_EQ(0, QIV_GetMacAddr(each->pIpv4List->szAddr, mac, &length));
    EXPECT_EQ(6u, length);
    const QIV_ADAPTER_INFO* const owner = FirstWith(each->pIpv4List->szAddr, list);
    EXPECT_EQ(0, std::memcmp(owner->byMac, mac, sizeof(mac))) << each->szName;
  }
}

TEST_F(AdapterTest, MacOfAnUnknownAddressFailsWithTheLengthSet) {
  for (const char* text : {"203.0.113.77", "255.255.255.255", "no address", ""}) {
    unsigned char mac[6] = {9, 9, 9, 9, 9, 9};
    unsigned int length = 8;
    EXPECT_EQ(-1, QIV_GetMacAddr(text, mac, &length)) << text;
    EXPECT_EQ(6u, length);
    for (const unsigned char byte : mac) EXPECT_EQ(9, byte);
  }
}

TEST_F(AdapterTest, MacIsCutToTheRoomThatThereIs) {
  const AdapterList list = GetAdapters();
  ASSERT_NE(nullptr, list);
  unsigned char whole[6] = {};
  unsigned int length = 6;
  ASSERT_EQ(0, QIV_GetMacAddr(list->pIpv4List->szAddr, whole, &length));
  for (unsigned int room = 1; room < 6; ++room) {
    unsigned char mac[6] = {9, 9, 9, 9, 9, 9};
    length = room;
    ASSERT_EQ(0, QIV_GetMacAddr(list->pIpv4List->szAddr, mac, &length));
    EXPECT_EQ(6u, length);
    EXPECT_EQ(0, std::memcmp(whole, mac, room));
    for (unsigned int i = room; i < 6; ++i) EXPECT_EQ(9, mac[i]);
  }
}

TEST_F(AdapterTest, WrongArgumentsOfTheMacQueryAreRefusedWithALine) {
  const std::string line = "zelmar QIV_GetMacAddr parameter error, return QIV_ERROR\n\n";
  unsigned char mac[6] = {};
  unsigned int length = 6;
  unsigned int noLength = 0;
  qiv::test::CapturedOutput errors(STDERR_FILENO);
  EXPECT_EQ(-1, QIV_GetMacAddr(nullptr, mac, &length));
  EXPECT_EQ(-1, QIV_GetMacAddr("127.0.0.1", nullptr, &length));
  EXPECT_EQ(-1, QIV_GetMacAddr("127.0.0.1", mac, nullptr));
  EXPECT_EQ(-1, QIV_GetMacAddr("127.0.0.1", mac, &noLength));
  EXPECT_EQ(line + line + line + line, errors.Stop());
  EXPECT_EQ(6u, length);
  EXPECT_EQ(0u, noLength);
}

}  // namespace
