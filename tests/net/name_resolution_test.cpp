#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <qiv/adapter.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>

#include "support/failing_allocation.h"
#include "support/leak_check.h"
#include "support/preferred_family.h"

namespace {

class NameResolutionTest : public qiv::test::LeakCheckedTest {};

struct AnswerDeleter {
  void operator()(QIV_ADDRINFO_T* answers) const { EXPECT_EQ(0, QIV_FreeAddressInfo(answers)); }
};
using Answers = std::unique_ptr<QIV_ADDRINFO_T, AnswerDeleter>;

QIV_ADDRINFO_T Hints(int family, int flags = AI_NUMERICHOST | AI_NUMERICSERV,
                     int type = SOCK_STREAM) {
  QIV_ADDRINFO_T hints = {};
  hints.iFlags = flags;
  hints.iFamily = family;
  hints.iSockType = type;
  return hints;
}

Answers Ask(const char* node, const char* service, const QIV_ADDRINFO_T& hints) {
  QIV_ADDRINFO_T* answers = nullptr;
  EXPECT_EQ(0, QIV_GetAddressInfo(node, service, &hints, &answers));
  return Answers(answers);
}

std::string AddressText(const QIV_ADDR_T& address) {
  char text[64] = {};
  return QIV_GetAddrStringEx(&address, text, sizeof(text)) == nullptr ? "" : text;
}

/** The name that the system's resolver gives without being asked: not every one leaves it out. */
std::string UnaskedName(const char* node, const char* service) {
  addrinfo hints = {};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  EXPECT_EQ(0, getaddrinfo(node, service, &hints, &found));
  const std::string name =
      found == nullptr || found->ai_canonname == nullptr ? "none" : found->ai_canonname;
  freeaddrinfo(found);
  return name;
}

TEST_F(NameResolutionTest, AnswerHasTheNumbersAndTheIpv4Address) {
  const Answers answers = Ask("192.0.2.7", "8080", Hints(AF_INET));
  ASSERT_NE(nullptr, answers);
  EXPECT_EQ(AF_INET, answers->iFamily);
  EXPECT_EQ(SOCK_STREAM, answers->iSockType);
  EXPECT_EQ(IPPROTO_TCP, answers->iProtocol);
  EXPECT_EQ(AF_INET, QIV_GetAddrType(&answers->addr));
  EXPECT_EQ("192.0.2.7", AddressText(answers->addr));
  EXPECT_EQ(8080, QIV_GetAddrPort(&answers->addr));
  const auto* const bytes = reinterpret_cast<const unsigned char*>(&answers->addr);
  for (std::size_t i = sizeof(sockaddr_in); i < sizeof(QIV_ADDR_T); ++i) EXPECT_EQ(0, bytes[i]);
  EXPECT_EQ(UnaskedName("192.0.2.7", "8080"),
            answers->szCanonName == nullptr ? "none" : answers->szCanonName);
  EXPECT_EQ(nullptr, answers->pNext);
}

TEST_F(NameResolutionTest, AnswerHasTheWholeIpv6AddressWithItsScope) {
  const Answers answers = Ask("fe80::1%lo", "80", Hints(AF_INET6));
  ASSERT_NE(nullptr, answers);
  EXPECT_EQ(AF_INET6, QIV_GetAddrType(&answers->addr));
  EXPECT_EQ("fe80::1", AddressText(answers->addr));
  EXPECT_EQ(80, QIV_GetAddrPort(&answers->addr));
  EXPECT_NE(0u, answers->addr.ipv6.sin6_scope_id);
}

TEST_F(NameResolutionTest, AnswersComeInTheResolversOrder) {
  const QIV_ADDRINFO_T hints = Hints(AF_UNSPEC, AI_NUMERICSERV | AI_PASSIVE, 0);
  addrinfo systemHints = {};
  systemHints.ai_flags = hints.iFlags;
  addrinfo* expected = nullptr;
  ASSERT_EQ(0, getaddrinfo(nullptr, "80", &systemHints, &expected));
  const Answers answers = Ask(nullptr, "80", hints);
  const addrinfo* system = expected;
  const QIV_ADDRINFO_T* own = answers.get();
  for (; system != nullptr && own != nullptr; system = system->ai_next, own = own->pNext) {
    EXPECT_EQ(system->ai_flags, own->iFlags);
    EXPECT_EQ(system->ai_family, own->iFamily);
    EXPECT_EQ(system->ai_socktype, own->iSockType);
    EXPECT_EQ(system->ai_protocol, own->iProtocol);
    EXPECT_EQ(0, std::memcmp(system->ai_addr, &own->addr, system->ai_addrlen));
  }
  EXPECT_EQ(nullptr, system);
  EXPECT_EQ(nullptr, own);
  freeaddrinfo(expected);
}

TEST_F(NameResolutionTest, CanonicalNameIsACopy) {
  const Answers answers =
      Ask("127.0.0.1", "80", Hints(AF_INET, AI_NUMERICHOST | AI_NUMERICSERV | AI_CANONNAME));
  ASSERT_NE(nullptr, answers);
  EXPECT_STREQ("127.0.0.1", answers->szCanonName);
}

TEST_F(NameResolutionTest, NameAndAddressOfTheHintsAreNoCondition) {
  char name[] = "ignored";
  for (const int family : {AF_UNSPEC, AF_INET, AF_INET6}) {
    QIV_ADDRINFO_T hints = Hints(AF_INET);
    hints.szCanonName = name;
    hints.addr.family = static_cast<unsigned short>(family);
    EXPECT_NE(nullptr, Ask("127.0.0.1", "80", hints)) << family;
    EXPECT_STREQ("ignored", hints.szCanonName);
  }
}

TEST_F(NameResolutionTest, PreferredFamilyIsTheOneOfTheHost) {
  const QIV_ADDRINFO_T hints = Hints(QIV_AF_PREFERRED, AI_NUMERICSERV);
  for (const int family : {AF_INET, AF_INET6}) {
    const qiv::test::PreferredFamily preferred(family);
    const Answers answers = Ask(nullptr, "80", hints);
    ASSERT_NE(nullptr, answers);
    EXPECT_EQ(family, answers->iFamily);
  }
}

TEST_F(NameResolutionTest, WhatTheResolverRefusesLeavesTheResultAlone) {
  struct Row {
    const char* node;
    const char* service;
    int family;
  };
  const Row rows[] = {
      {"no address", "80", AF_UNSPEC},
      {"127.0.0.1", "no port", AF_INET},
      {nullptr, nullptr, AF_INET},
      {"::1", "80", AF_INET},
      {"127.0.0.1", "80", 77},
      {"", "80", AF_INET},
      {"127.0.0.1", "80", QIV_AF_INET6_DUAL},
  };
  QIV_ADDRINFO_T untouched = {};
  for (const Row& row : rows) {
    const QIV_ADDRINFO_T hints = Hints(row.family);
    QIV_ADDRINFO_T* answers = &untouched;
    EXPECT_EQ(-1, QIV_GetAddressInfo(row.node, row.service, &hints, &answers));
    EXPECT_EQ(&untouched, answers);
  }
}

TEST_F(NameResolutionTest, NullHintsAskForAnything) {
  const QIV_ADDRINFO_T hints = {};
  const Answers expected = Ask("127.0.0.1", "80", hints);
  QIV_ADDRINFO_T* found = nullptr;
  ASSERT_EQ(0, QIV_GetAddressInfo("127.0.0.1", "80", nullptr, &found));
  const Answers answers(found);
  const QIV_ADDRINFO_T* own = found;
  for (const QIV_ADDRINFO_T* each = expected.get(); each != nullptr; each = each->pNext) {
    ASSERT_NE(nullptr, own);
    EXPECT_EQ(each->iFlags, own->iFlags);
    EXPECT_EQ(each->iFamily, own->iFamily);
    EXPECT_EQ(each->iSockType, own->iSockType);
    EXPECT_EQ("127.0.0.1", AddressText(own->addr));
    own = own->pNext;
  }
  EXPECT_EQ(nullptr, own);
}

TEST_F(NameResolutionTest, NullResultIsRefused) {
  const QIV_ADDRINFO_T hints = Hints(AF_INET);
  EXPECT_EQ(-1, QIV_GetAddressInfo("127.0.0.1", "80", &hints, nullptr));
  EXPECT_EQ(0, QIV_FreeAddressInfo(nullptr));
}

TEST_F(NameResolutionTest, EachAllocationThatFailsGivesEverythingBack) {
  const QIV_ADDRINFO_T hints = Hints(AF_UNSPEC, AI_NUMERICHOST | AI_NUMERICSERV | AI_CANONNAME, 0);
  QIV_ADDRINFO_T untouched = {};
  for (int nth = 1;; ++nth) {
    QIV_ADDRINFO_T* answers = &untouched;
    const qiv::test::FailingAllocation failing(nth);
    const int result = QIV_GetAddressInfo("127.0.0.1", "80", &hints, &answers);
    if (!failing.Happened()) {
      EXPECT_EQ(0, result);
      EXPECT_EQ(0, QIV_FreeAddressInfo(answers));
      EXPECT_GT(nth, 2) << "an answer and a name at least have been refused";
      return;
    }
    EXPECT_EQ(-1, result) << nth;
    EXPECT_EQ(&untouched, answers) << nth;
  }
}

TEST_F(NameResolutionTest, HostNameIsThatOfTheSystem) {
  char expected[HOST_NAME_MAX + 1] = {};
  char name[HOST_NAME_MAX + 1] = {};
  ASSERT_EQ(0, gethostname(expected, sizeof(expected)));
  EXPECT_EQ(0, QIV_GetHostName(name, sizeof(name)));
  EXPECT_STREQ(expected, name);
}

TEST_F(NameResolutionTest, HostNameThatDoesNotFitFails) {
  char name[HOST_NAME_MAX + 1] = {};
  EXPECT_EQ(-1, QIV_GetHostName(nullptr, sizeof(name)));
  EXPECT_EQ(-1, QIV_GetHostName(name, 0));
  ASSERT_EQ(0, QIV_GetHostName(name, sizeof(name)));
  const auto length = static_cast<unsigned int>(std::strlen(name));
  std::memset(name, '#', sizeof(name));
  EXPECT_EQ(-1, QIV_GetHostName(name, length));
  EXPECT_EQ('#', name[length]);
}

TEST_F(NameResolutionTest, AddressByNameIsTheSystemsRecord) {
  const hostent* const host = QIV_GetAddressByName("192.0.2.7");
  ASSERT_NE(nullptr, host);
  EXPECT_EQ(AF_INET, host->h_addrtype);
  ASSERT_NE(nullptr, host->h_addr_list[0]);
  const in_addr_t expected = inet_addr("192.0.2.7");
  EXPECT_EQ(0, std::memcmp(&expected, host->h_addr_list[0], sizeof(expected)));
  EXPECT_EQ(host, gethostbyname("127.0.0.1")) << "one record for the whole process";
}

TEST_F(NameResolutionTest, AddressByNameWithoutAnswerIsNull) {
  EXPECT_EQ(nullptr, QIV_GetAddressByName(nullptr));
  EXPECT_EQ(nullptr, QIV_GetAddressByName(""));
}

TEST(ByteOrderTest, NetworkOrderHasTheHighByteFirst) {
  const unsigned short shortValue = QIV_Htons(0x0102);
  const unsigned int longValue = QIV_Htonl(0x01020304);
  EXPECT_EQ(0, std::memcmp("\1\2", &shortValue, 2));
  EXPECT_EQ(0, std::memcmp("\1\2\3\4", &longValue, 4));
  for (const unsigned int value : {0u, 1u, 0x8000u, 0xFFFFu}) {
    EXPECT_EQ(value, QIV_Ntohs(QIV_Htons(static_cast<unsigned short>(value))));
  }
  for (const unsigned int value : {0u, 1u, 0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(value, QIV_Ntohl(QIV_Htonl(value)));
  }
}

}  // namespace
