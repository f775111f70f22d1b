// The kernel's answers, also such as it never sends. Each one lies at the end of its memory, so
// that the address sanitizer sees every byte that is read too much.
#include "net/netlink_reply.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <string>
#include <vector>

#include "support/netlink_message.h"

namespace {

using qiv::net::Ipv6Table;
using qiv::net::LinkTable;
using qiv::net::Reply;
using qiv::test::NetlinkMessage;

constexpr std::uint32_t kSequence = 7;
const std::string kMac = "\x02\x01\x02\x03\x04\x05";
const std::string kIpv6 = "0123456789abcdef";

NetlinkMessage Link(int interface, std::uint16_t type = RTM_NEWLINK,
                    std::uint32_t sequence = kSequence) {
  ifinfomsg link = {};
  link.ifi_index = interface;
  NetlinkMessage message(type, NLM_F_MULTI, sequence);
  message.Add(link);
  return message;
}

NetlinkMessage AddressOfInterface(unsigned int interface, unsigned char family = AF_INET6) {
  ifaddrmsg address = {};
  address.ifa_family = family;
  address.ifa_index = interface;
  NetlinkMessage message(RTM_NEWADDR, NLM_F_MULTI, kSequence);
  message.Add(address);
  return message;
}

/** With an attribute in front and one behind. */
std::string LinkBytes(int interface) {
  NetlinkMessage message = Link(interface);
  message.AddAttribute(IFLA_IFNAME, "eth").AddAttribute(IFLA_ADDRESS, kMac);
  return message.AddAttribute(IFLA_QDISC, "noop").Bytes();
}

std::string Control(std::uint16_t type, std::uint32_t sequence = kSequence) {
  return NetlinkMessage(type, NLM_F_MULTI, sequence).Add(0).Bytes();
}

template <class Table>
struct Taken {
  Table table;
  bool goesOn;
};

Taken<LinkTable> TakeLinks(const std::string& bytes) {
  const std::vector<unsigned char> exact(bytes.begin(), bytes.end());
  Taken<LinkTable> taken = {};
  taken.goesOn = qiv::net::TakeLinks({exact.data(), exact.size()}, kSequence, taken.table);
  return taken;
}

Taken<Ipv6Table> TakeAddresses(const std::string& bytes) {
  const std::vector<unsigned char> exact(bytes.begin(), bytes.end());
  Taken<Ipv6Table> taken = {};
  taken.goesOn = qiv::net::TakeIpv6Addresses({exact.data(), exact.size()}, kSequence, taken.table);
  return taken;
}

template <class Entry>
std::string TextOf(const Entry& entry) {
  return {entry.address.begin(), entry.address.end()};
}

template <class T>
void Overwrite(std::string& bytes, std::size_t offset, T value) {
  bytes.replace(offset, sizeof(value), reinterpret_cast<const char*>(&value), sizeof(value));
}

constexpr std::size_t kFirstAttribute = sizeof(nlmsghdr) + sizeof(ifinfomsg);

TEST(NetlinkReplyTest, LinksOfAllMessagesAreTaken) {
  const auto taken = TakeLinks(LinkBytes(3) + LinkBytes(5));
  EXPECT_TRUE(taken.goesOn);
  ASSERT_EQ(2u, taken.table.count);
  EXPECT_EQ(3u, taken.table.entries[0].interface);
  EXPECT_EQ(5u, taken.table.entries[1].interface);
  EXPECT_EQ(kMac, TextOf(taken.table.entries[0]));
}

TEST(NetlinkReplyTest, Ipv6AddressesAreTaken) {
  const auto taken = TakeAddresses(AddressOfInterface(9).AddAttribute(IFA_ADDRESS, kIpv6).Bytes());
  EXPECT_TRUE(taken.goesOn);
  ASSERT_EQ(1u, taken.table.count);
  EXPECT_EQ(9u, taken.table.entries[0].interface);
  EXPECT_EQ(kIpv6, TextOf(taken.table.entries[0]));
}

TEST(NetlinkReplyTest, OfAPointToPointLinkThePeersAddressIsTaken) {
  const std::string local = "fedcba9876543210";
  const std::string bytes =
      AddressOfInterface(9).AddAttribute(IFA_LOCAL, local).AddAttribute(IFA_ADDRESS, kIpv6).Bytes();
  const auto taken = TakeAddresses(bytes);
  ASSERT_EQ(1u, taken.table.count);
  EXPECT_EQ(kIpv6, TextOf(taken.table.entries[0]));
}

TEST(NetlinkReplyTest, DoneAndErrorEndTheDump) {
  for (const std::uint16_t type : {std::uint16_t{NLMSG_DONE}, std::uint16_t{NLMSG_ERROR}}) {
    const auto taken = TakeLinks(LinkBytes(3) + Control(type) + LinkBytes(5));
    EXPECT_FALSE(taken.goesOn) << type;
    EXPECT_EQ(1u, taken.table.count) << type;
    EXPECT_FALSE(TakeAddresses(Control(type)).goesOn) << type;
  }
}

TEST(NetlinkReplyTest, MessagesOfAnotherDumpAreLeftOut) {
  const std::string bytes =
      Control(NLMSG_DONE, kSequence + 1) +
      Link(4, RTM_NEWLINK, kSequence - 1).AddAttribute(IFLA_ADDRESS, kMac).FilledBytes();
  const auto taken = TakeLinks(bytes + LinkBytes(3));
  EXPECT_TRUE(taken.goesOn);
  ASSERT_EQ(1u, taken.table.count);
  EXPECT_EQ(3u, taken.table.entries[0].interface);
}

TEST(NetlinkReplyTest, MessagesOfOtherKindsAreLeftOut) {
  const std::string gone = Link(4, RTM_DELLINK).AddAttribute(IFLA_ADDRESS, kMac).FilledBytes();
  EXPECT_EQ(0u, TakeLinks(gone).table.count);
  EXPECT_EQ(0u, TakeAddresses(LinkBytes(4)).table.count);
  const std::string address = AddressOfInterface(4).AddAttribute(IFA_ADDRESS, kIpv6).Bytes();
  EXPECT_EQ(0u, TakeLinks(address).table.count);
  const std::string ipv4 = AddressOfInterface(4, AF_INET).AddAttribute(IFA_ADDRESS, kIpv6).Bytes();
  EXPECT_EQ(0u, TakeAddresses(ipv4).table.count);
}

TEST(NetlinkReplyTest, OfALongLinkAddressTheFirstSixBytesAreTaken) {
  const auto taken = TakeLinks(Link(3).AddAttribute(IFLA_ADDRESS, "abcdefghijklmnopqrst").Bytes());
  ASSERT_EQ(1u, taken.table.count);
  EXPECT_EQ("abcdef", TextOf(taken.table.entries[0]));
}

TEST(NetlinkReplyTest, AddressesThatAreTooShortAreLeftOut) {
  for (const std::size_t length : {0u, 4u, 5u}) {
    const std::string bytes =
        Link(3).AddAttribute(IFLA_ADDRESS, kMac.substr(0, length)).FilledBytes();
    const auto taken = TakeLinks(bytes + LinkBytes(5));
    ASSERT_EQ(1u, taken.table.count) << length;
    EXPECT_EQ(5u, taken.table.entries[0].interface) << length;
  }
  for (const std::size_t length : {0u, 4u, 15u}) {
    const auto message = AddressOfInterface(3).AddAttribute(IFA_ADDRESS, kIpv6.substr(0, length));
    EXPECT_EQ(0u, TakeAddresses(message.Bytes()).table.count) << length;
  }
}

TEST(NetlinkReplyTest, LinkWithoutAnAddressIsLeftOut) {
  EXPECT_EQ(0u, TakeLinks(Link(3).Bytes()).table.count);
  EXPECT_EQ(0u, TakeLinks(Link(3).AddAttribute(IFLA_IFNAME, "eth").Bytes()).table.count);
}

TEST(NetlinkReplyTest, What17thAndLaterAddressesSayIsDroppedAndTheDumpGoesOn) {
  std::string bytes;
  std::string addresses;
  for (int i = 0; i < 20; ++i) {
    bytes += LinkBytes(i);
    addresses += AddressOfInterface(static_cast<unsigned int>(i))
                     .AddAttribute(IFA_ADDRESS, kIpv6)
                     .FilledBytes();
  }
  const auto taken = TakeLinks(bytes);
  EXPECT_TRUE(taken.goesOn);
  EXPECT_EQ(16u, taken.table.count);
  EXPECT_EQ(15u, taken.table.entries[15].interface);
  EXPECT_FALSE(TakeLinks(bytes + Control(NLMSG_DONE)).goesOn);
  EXPECT_EQ(16u, TakeAddresses(addresses).table.count);
}

TEST(NetlinkReplyTest, AnswersThatAreCutAnywhereAreReadToTheirEndOnly) {
  const std::string whole = LinkBytes(3) + LinkBytes(5) + Control(NLMSG_DONE);
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const auto taken = TakeLinks(whole.substr(0, length));
    EXPECT_TRUE(taken.goesOn) << length;
    EXPECT_EQ(length / LinkBytes(3).size(), taken.table.count) << length;
    EXPECT_EQ(0u, TakeAddresses(whole.substr(0, length)).table.count) << length;
  }
  EXPECT_FALSE(TakeLinks(whole).goesOn);
}

TEST(NetlinkReplyTest, AnswersNeedNoAlignment) {
  const std::string bytes = "x" + LinkBytes(3);
  LinkTable table = {};
  const Reply reply = {reinterpret_cast<const unsigned char*>(bytes.data()) + 1, bytes.size() - 1};
  EXPECT_TRUE(qiv::net::TakeLinks(reply, kSequence, table));
  EXPECT_EQ(1u, table.count);
}

TEST(NetlinkReplyTest, MessageOfAWrongLengthEndsItsAnswer) {
  const std::string message = LinkBytes(3);
  const auto whole = static_cast<std::uint32_t>(message.size());
  for (const std::uint32_t length :
       {0u, 1u, 15u, whole + 1, 0x7FFFFFFFu, 0xFFFFFFFDu, 0xFFFFFFFFu}) {
    std::string bytes = message;
    Overwrite(bytes, 0, length);
    EXPECT_EQ(0u, TakeLinks(bytes).table.count) << length;
    EXPECT_TRUE(TakeLinks(bytes).goesOn) << length;
  }
}

TEST(NetlinkReplyTest, MessageWithoutItsStructureIsLeftOut) {
  for (std::uint32_t length = 16; length < kFirstAttribute; ++length) {
    std::string bytes = LinkBytes(3);
    Overwrite(bytes, 0, length);
    bytes.resize(length);
    EXPECT_EQ(0u, TakeLinks(bytes).table.count) << length;
  }
}

TEST(NetlinkReplyTest, AttributeOfAWrongLengthEndsItsMessage) {
  const std::string message = Link(3).AddAttribute(IFLA_ADDRESS, kMac).Bytes();
  for (const int length : {0, 1, 3, 11, 12, 0xFFFC, 0xFFFF}) {
    std::string bytes = message;
    Overwrite(bytes, kFirstAttribute, static_cast<std::uint16_t>(length));
    EXPECT_EQ(0u, TakeLinks(bytes).table.count) << length;
  }
  EXPECT_EQ(1u, TakeLinks(message).table.count) << "its length is 10";
}

}  // namespace
