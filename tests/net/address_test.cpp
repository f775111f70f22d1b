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
using qiv::test::Ipv4Record;
using qiv::test::Ipv6Record;
using qiv::test::kIpv6Loopback;
using qiv::test::PreferredFamily;

constexpr std::array<unsigned char, 16> kIpv6Any = {};
constexpr std::array<unsigned char, 16> kSixteenBytes = {1, 2,  3,  4,  5,  6,  7,  8,
                                                         9, 10, 11, 12, 13, 14, 15, 16};

TEST(AddressFamilyTest, OnlyThePreferredFamilyIsTranslated) {
  const PreferredFamily preferred(AF_INET6);
  EXPECT_EQ(AF_INET6, QIV_GetAf_Inner(QIV_AF_PREFERRED));
  for (const int family : {-1, 0, 2, 5, 10, 101, 103}) EXPECT_EQ(family, QIV_GetAf_Inner(family));
}

// Making a record from a text.

struct TextCase {
  int family;
  const char* text;
  int result;
  Bytes record;  // with port 80
};

std::ostream& operator<<(std::ostream& out, const TextCase& row) {
  return out << "family " << row.family << " text "
             << (row.text == nullptr ? "null" : '"' + std::string(row.text) + '"');
}

class AddressFromTextTest : public ::testing::TestWithParam<TextCase> {};

TEST_P(AddressFromTextTest, GivesTheResultAndTheWholeRecord) {
  QIV_ADDR_T address = FilledRecord();
  EXPECT_EQ(GetParam().result,
            QIV_MakeAddrByString(GetParam().family, GetParam().text, 80, &address));
  EXPECT_EQ(GetParam().record, BytesOf(address));
}

const Bytes kZero = {};
const Bytes kAny4 = Ipv4Record({0, 0, 0, 0}, 80);
const Bytes kAny6 = Ipv6Record(kIpv6Any, 80);

INSTANTIATE_TEST_SUITE_P(
    NoText, AddressFromTextTest,
    ::testing::Values(TextCase{AF_INET, nullptr, 0, kAny4}, TextCase{AF_INET, "", 0, kAny4},
                      TextCase{AF_INET6, nullptr, 0, kAny6}, TextCase{AF_INET6, "", 0, kAny6},
                      TextCase{QIV_AF_INET6_DUAL, nullptr, 0, kAny6},
                      TextCase{QIV_AF_INET6_DUAL, "", 0, kAny6}, TextCase{5, "", -1, kZero},
                      TextCase{0, nullptr, -1, kZero}, TextCase{-1, nullptr, -1, kZero}));

INSTANTIATE_TEST_SUITE_P(
    Ipv6Text, AddressFromTextTest,
    ::testing::Values(
        TextCase{AF_INET6, "::1", 0, Ipv6Record(kIpv6Loopback, 80)},
        TextCase{QIV_AF_INET6_DUAL, "::1", 0, Ipv6Record(kIpv6Loopback, 80)},
        TextCase{AF_INET6, "::", 0, kAny6}, TextCase{QIV_AF_INET6_DUAL, "::", 0, kAny6},
        TextCase{AF_INET6, "102:304:506:708:90a:b0c:d0e:f10", 0, Ipv6Record(kSixteenBytes, 80)},
        TextCase{AF_INET6, " : : 1 ", 0, Ipv6Record(kIpv6Loopback, 80)},
        // A refused text leaves the family and the port with a zero address.
        TextCase{AF_INET6, "1:2", -1, kAny6}, TextCase{QIV_AF_INET6_DUAL, "1::2::3", -1, kAny6},
        // IPv4 cannot read it, and another family is refused before.
        TextCase{AF_INET, "::1", -1, kZero}, TextCase{5, "::1", -1, kZero},
        TextCase{0, "::", -1, kZero}));

INSTANTIATE_TEST_SUITE_P(KeptZeroTextIsTheWildcardOfTheDualFamilyButRefusedForIpv6,
                         AddressFromTextTest,
                         ::testing::Values(TextCase{QIV_AF_INET6_DUAL, "0.0.0.0", 0, kAny6},
                                           TextCase{AF_INET6, "0.0.0.0", -1, kAny6},
                                           TextCase{AF_INET, "0.0.0.0", 0, kAny4},
                                           TextCase{5, "0.0.0.0", -1, kZero}));

INSTANTIATE_TEST_SUITE_P(
    KeptIpv4TextMakesAnIpv4RecordWhateverTheFamily, AddressFromTextTest,
    ::testing::Values(TextCase{AF_INET, "10.0.0.1", 0, Ipv4Record({10, 0, 0, 1}, 80)},
                      TextCase{AF_INET6, "10.0.0.1", 0, Ipv4Record({10, 0, 0, 1}, 80)},
                      TextCase{QIV_AF_INET6_DUAL, "10.0.0.1", 0, Ipv4Record({10, 0, 0, 1}, 80)},
                      TextCase{5, "10.0.0.1", 0, Ipv4Record({10, 0, 0, 1}, 80)},
                      TextCase{AF_INET6, "0.0.0.1", 0, Ipv4Record({0, 0, 0, 1}, 80)}));

INSTANTIATE_TEST_SUITE_P(RefusedIpv4Text, AddressFromTextTest,
                         ::testing::Values(TextCase{AF_INET, "255.255.255.255", -1, kZero},
                                           TextCase{AF_INET, "1.2.3.256", -1, kZero},
                                           TextCase{AF_INET, "1.2.3.4.5", -1, kZero},
                                           TextCase{AF_INET, "localhost", -1, kZero},
                                           TextCase{AF_INET6, "ffff", -1, kZero}));

TEST(AddressTest, TextsThatOnlyTheSystemKnowsFollowTheSystem) {
  for (const char* text : {"1.2.3", "1.2", "010.0.0.1", "0x7f.0.0.1", "16909060"}) {
    const in_addr_t system = inet_addr(text);
    QIV_ADDR_T address = FilledRecord();
    ASSERT_EQ(system == INADDR_NONE ? -1 : 0, QIV_MakeAddrByString(AF_INET, text, 1, &address))
        << text;
    EXPECT_EQ(system == INADDR_NONE ? 0 : system, address.ipv4.sin_addr.s_addr) << text;
  }
}

TEST(AddressTest, TextWithThePreferredFamilyFollowsIt) {
  QIV_ADDR_T address = FilledRecord();
  {
    const PreferredFamily preferred(AF_INET6);
    ASSERT_EQ(0, QIV_MakeAddrByString(QIV_AF_PREFERRED, nullptr, 80, &address));
    EXPECT_EQ(kAny6, BytesOf(address));
  }
  {
    const PreferredFamily preferred(AF_INET);
    ASSERT_EQ(0, QIV_MakeAddrByString(QIV_AF_PREFERRED, "", 80, &address));
    EXPECT_EQ(kAny4, BytesOf(address));
  }
  const PreferredFamily unknown(0);
  EXPECT_EQ(-1, QIV_MakeAddrByString(QIV_AF_PREFERRED, "", 80, &address));
}

TEST(AddressTest, NullRecordIsRefusedByEveryMaker) {
  const sockaddr_in6 source = {};
  EXPECT_EQ(-1, QIV_MakeAddrByString(AF_INET, "1.2.3.4", 1, nullptr));
  EXPECT_EQ(-1, QIV_MakeAddr4ByInt(1, 1, nullptr));
  EXPECT_EQ(-1, QIV_MakeAddr6ByInt(kSixteenBytes.data(), 1, nullptr));
  EXPECT_EQ(-1, QIV_MakeAddr(reinterpret_cast<const sockaddr*>(&source), 28, nullptr));
  EXPECT_EQ(-1, QIV_SetAddrPort(nullptr, 1));
}

// Making a record from numbers.

TEST(AddressTest, Ipv4NumberIsStoredUnchangedAndThePortInNetworkOrder) {
  QIV_ADDR_T address = FilledRecord();
  ASSERT_EQ(0, QIV_MakeAddr4ByInt(htonl(0x0A000001), 0x1234, &address));
  EXPECT_EQ(Ipv4Record({10, 0, 0, 1}, 0x1234), BytesOf(address));
}

TEST(AddressTest, Ipv6BytesAreStoredAtOffsetEight) {
  QIV_ADDR_T address = FilledRecord();
  ASSERT_EQ(0, QIV_MakeAddr6ByInt(kSixteenBytes.data(), 65535, &address));
  EXPECT_EQ(Ipv6Record(kSixteenBytes, 65535), BytesOf(address));
}

TEST(AddressTest, Ipv6BytesThatStandInTheRecordItselfSurvive) {
  QIV_ADDR_T address = {};
  ASSERT_EQ(0, QIV_MakeAddr6ByInt(kSixteenBytes.data(), 1, &address));
  ASSERT_EQ(0, QIV_MakeAddr6ByInt(&address.ipv6.sin6_addr, 2, &address));
  EXPECT_EQ(Ipv6Record(kSixteenBytes, 2), BytesOf(address));
}

TEST(AddressTest, NullIpv6BytesAreRefused) {
  QIV_ADDR_T address;
  EXPECT_EQ(-1, QIV_MakeAddr6ByInt(nullptr, 1, &address));
}

TEST(AddressTest, SystemAddressIsCopiedAndTheRestZeroed) {
  const Bytes source = Ipv4Record({10, 0, 0, 1}, 7);
  QIV_ADDR_T address = FilledRecord();
  ASSERT_EQ(0, QIV_MakeAddr(reinterpret_cast<const sockaddr*>(source.data()), 16, &address));
  EXPECT_EQ(source, BytesOf(address));
  Bytes full;
  full.fill(0x55);
  ASSERT_EQ(0, QIV_MakeAddr(reinterpret_cast<const sockaddr*>(full.data()), 28, &address));
  EXPECT_EQ(full, BytesOf(address));
  ASSERT_EQ(0, QIV_MakeAddr(&address.any, 28, &address));
  EXPECT_EQ(full, BytesOf(address));
}

TEST(AddressTest, SystemAddressOfBadLengthIsRefusedAndWritesNothing) {
  const sockaddr_storage source = {};
  QIV_ADDR_T address = FilledRecord();
  const Bytes before = BytesOf(address);
  const auto* system = reinterpret_cast<const sockaddr*>(&source);
  for (const unsigned int length : {0U, 29U, 128U, 0xFFFFFFFFU}) {
    EXPECT_EQ(-1, QIV_MakeAddr(system, length, &address)) << length;
  }
  EXPECT_EQ(-1, QIV_MakeAddr(nullptr, 16, &address));
  EXPECT_EQ(before, BytesOf(address));
}

TEST(AddressTest, SetPortChangesThePortOnly) {
  QIV_ADDR_T address = FilledRecord();
  Bytes wanted = BytesOf(address);
  wanted[2] = 0x12;
  wanted[3] = 0x34;
  ASSERT_EQ(0, QIV_SetAddrPort(&address, 0x1234));
  EXPECT_EQ(wanted, BytesOf(address));
}

TEST(AddressTest, OnlyTheLowSixteenBitsOfAPortCount) {
  constexpr unsigned int kPort = 0x12345678;
  QIV_ADDR_T address = FilledRecord();
  ASSERT_EQ(0, QIV_MakeAddrByString(AF_INET, "10.0.0.1", kPort, &address));
  EXPECT_EQ(Ipv4Record({10, 0, 0, 1}, 0x5678), BytesOf(address));
  ASSERT_EQ(0, QIV_MakeAddrByString(AF_INET6, "::1", kPort, &address));
  EXPECT_EQ(Ipv6Record(kIpv6Loopback, 0x5678), BytesOf(address));
  ASSERT_EQ(0, QIV_MakeAddrByString(AF_INET6, nullptr, 65536, &address));
  EXPECT_EQ(Ipv6Record(kIpv6Any, 0), BytesOf(address));
  ASSERT_EQ(0, QIV_MakeAddr4ByInt(htonl(0x0A000001), kPort, &address));
  EXPECT_EQ(Ipv4Record({10, 0, 0, 1}, 0x5678), BytesOf(address));
  ASSERT_EQ(0, QIV_MakeAddr6ByInt(kIpv6Loopback.data(), kPort, &address));
  EXPECT_EQ(Ipv6Record(kIpv6Loopback, 0x5678), BytesOf(address));
  ASSERT_EQ(0, QIV_SetAddrPort(&address, 0x10001));
  EXPECT_EQ(Ipv6Record(kIpv6Loopback, 1), BytesOf(address));
}

TEST(AddressTest, FamilyAndPortMembersAreThoseOfEveryForm) {
  QIV_ADDR_T address;
  for (const char* text : {"10.0.0.1", "::1"}) {
    ASSERT_EQ(0, QIV_MakeAddrByString(AF_INET6, text, 0x1234, &address));
    EXPECT_EQ(htons(0x1234), address.port) << text;
    EXPECT_EQ(address.any.sa_family, address.family) << text;
  }
  address.port = htons(80);
  EXPECT_EQ(80, QIV_GetAddrPort(&address));
}

// Reading a record.

TEST(AddressTest, GettersReadAnIpv4Record) {
  QIV_ADDR_T address;
  ASSERT_EQ(0, QIV_MakeAddrByString(AF_INET, "10.1.2.3", 8080, &address));
  unsigned int ip = 0;
  std::array<unsigned char, 16> bytes = {};
  EXPECT_EQ(AF_INET, QIV_GetAddrType(&address));
  EXPECT_EQ(8080, QIV_GetAddrPort(&address));
  EXPECT_EQ(0, QIV_GetAddr4Int(&address, &ip));
  EXPECT_EQ(htonl(0x0A010203), ip);
  EXPECT_EQ(-1, QIV_GetAddr6Int(&address, bytes.data()));
}

TEST(AddressTest, GettersReadAnIpv6Record) {
  QIV_ADDR_T address;
  ASSERT_EQ(0, QIV_MakeAddr6ByInt(kSixteenBytes.data(), 9, &address));
  unsigned int ip = 0;
  std::array<unsigned char, 16> bytes = {};
  EXPECT_EQ(AF_INET6, QIV_GetAddrType(&address));
  EXPECT_EQ(9, QIV_GetAddrPort(&address));
  EXPECT_EQ(-1, QIV_GetAddr4Int(&address, &ip));
  EXPECT_EQ(0, QIV_GetAddr6Int(&address, bytes.data()));
  EXPECT_EQ(kSixteenBytes, bytes);
}

TEST(AddressTest, ZeroedRecordIsKeptReadableAsIpv6) {
  const QIV_ADDR_T address = {};
  std::array<unsigned char, 16> bytes = kSixteenBytes;
  unsigned int ip = 0;
  EXPECT_EQ(0, QIV_GetAddrType(&address));
  EXPECT_EQ(0, QIV_GetAddr6Int(&address, bytes.data()));
  EXPECT_EQ(kIpv6Any, bytes);
  EXPECT_EQ(-1, QIV_GetAddr4Int(&address, &ip));
}

TEST(AddressTest, GettersOfNullGiveTheirFailureValues) {
  QIV_ADDR_T ipv4;
  QIV_ADDR_T ipv6;
  QIV_ADDR_INFO_T info;
  unsigned int ip = 0;
  char buffer[64];
  ASSERT_EQ(0, QIV_MakeAddr4ByInt(1, 1, &ipv4));
  ASSERT_EQ(0, QIV_MakeAddr6ByInt(kSixteenBytes.data(), 1, &ipv6));
  EXPECT_EQ(-1, QIV_GetAddrType(nullptr));
  EXPECT_EQ(0, QIV_GetAddrPort(nullptr));
  EXPECT_EQ(-1, QIV_GetAddr4Int(nullptr, &ip));
  EXPECT_EQ(-1, QIV_GetAddr4Int(&ipv4, nullptr));
  EXPECT_EQ(-1, QIV_GetAddr6Int(nullptr, buffer));
  EXPECT_EQ(-1, QIV_GetAddr6Int(&ipv6, nullptr));
  EXPECT_EQ(-1, QIV_GetAddrInfo(nullptr, &info));
  EXPECT_EQ(-1, QIV_GetAddrInfo(&ipv4, nullptr));
}

TEST(AddressTest, InfoOfIpv4IsKeptToLeaveTheOtherAddressBytesAlone) {
  QIV_ADDR_T address;
  ASSERT_EQ(0, QIV_MakeAddrByString(AF_INET, "1.2.3.4", 0x1234, &address));
  QIV_ADDR_INFO_T info;
  std::memset(&info, 0xAA, sizeof(info));
  ASSERT_EQ(0, QIV_GetAddrInfo(&address, &info));
  EXPECT_EQ(AF_INET, info.family);
  EXPECT_EQ(0x1234, info.port);
  const std::array<unsigned char, 16> wanted = {1,    2,    3,    4,    0xAA, 0xAA, 0xAA, 0xAA,
                                                0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
  EXPECT_EQ(0, std::memcmp(wanted.data(), info.address.ipv6, wanted.size()));
}

class AddressInfoTest : public ::testing::TestWithParam<unsigned short> {};

TEST_P(AddressInfoTest, OfEveryFamilyButIpv4HasSixteenAddressBytes) {
  QIV_ADDR_T address;
  ASSERT_EQ(0, QIV_MakeAddr6ByInt(kSixteenBytes.data(), 5, &address));
  address.family = GetParam();
  QIV_ADDR_INFO_T info = {};
  ASSERT_EQ(0, QIV_GetAddrInfo(&address, &info));
  EXPECT_EQ(GetParam(), info.family);
  EXPECT_EQ(5, info.port);
  EXPECT_EQ(0, std::memcmp(kSixteenBytes.data(), info.address.ipv6, 16));
}

INSTANTIATE_TEST_SUITE_P(Families, AddressInfoTest, ::testing::Values(AF_INET6, AF_UNSPEC, 77));

// Text of a record.

TEST(AddressTest, StringOfARecordIsItsAddressWithoutThePort) {
  QIV_ADDR_T address;
  char buffer[64];
  ASSERT_EQ(0, QIV_MakeAddrByString(AF_INET, "10.1.2.3", 80, &address));
  EXPECT_EQ(buffer, QIV_GetAddrStringEx(&address, buffer, sizeof(buffer)));
  EXPECT_STREQ("10.1.2.3", buffer);
  EXPECT_STREQ("10.1.2.3", QIV_GetAddrString(&address));
  ASSERT_EQ(0, QIV_MakeAddrByString(AF_INET6, "fe80::1", 80, &address));
  EXPECT_EQ(buffer, QIV_GetAddrStringEx(&address, buffer, sizeof(buffer)));
  EXPECT_STREQ("fe80::1", buffer);
  EXPECT_STREQ("fe80::1", QIV_GetAddrString(&address));
}

TEST(AddressTest, StringOfAMappedAddressIsTheIpv4TextAndEnds) {
  QIV_ADDR_T address;
  ASSERT_EQ(0, QIV_MakeAddrByString(AF_INET6, "::ffff:10.1.2.3", 80, &address));
  char buffer[16];
  std::memset(buffer, '#', sizeof(buffer));
  ASSERT_EQ(buffer, QIV_GetAddrStringEx(&address, buffer, sizeof(buffer)));
  EXPECT_STREQ("10.1.2.3", buffer);
  EXPECT_STREQ("10.1.2.3", QIV_GetAddrString(&address));
}

struct StringCase {
  const char* address;
  const char* text;
  unsigned int smallestBuffer;
};
std::ostream& operator<<(std::ostream& out, const StringCase& row) { return out << row.address; }

class AddressStringTest : public ::testing::TestWithParam<StringCase> {};

TEST_P(AddressStringTest, IsPaddedToTheSizeAndWritesNothingWhenItDoesNotFit) {
  QIV_ADDR_T address;
  ASSERT_EQ(0, QIV_MakeAddrByString(AF_INET6, GetParam().address, 80, &address));
  const std::string text = GetParam().text;
  for (unsigned int size = 1; size <= 200; ++size) {
    std::string buffer(202, '#');
    std::string wanted = buffer;
    const bool fits = size >= GetParam().smallestBuffer;
    if (fits) wanted.replace(0, size, text + std::string(size - text.size(), '\0'));
    EXPECT_EQ(fits ? &buffer[0] : nullptr, QIV_GetAddrStringEx(&address, &buffer[0], size));
    EXPECT_EQ(wanted, buffer) << "size " << size;
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, AddressStringTest,
                         ::testing::Values(StringCase{"10.1.2.3", "10.1.2.3", 8},
                                           StringCase{"::ffff:10.1.2.3", "10.1.2.3", 8},
                                           StringCase{"::10.1.2.3", "10.1.2.3", 8},
                                           StringCase{"fe80::1", "fe80::1", 8}));

TEST(AddressTest, StringIsRefusedForNullZeroSizeOrAnotherFamily) {
  QIV_ADDR_T address;
  char buffer[64];
  ASSERT_EQ(0, QIV_MakeAddrByString(AF_INET, "10.1.2.3", 80, &address));
  EXPECT_EQ(nullptr, QIV_GetAddrStringEx(nullptr, buffer, sizeof(buffer)));
  EXPECT_EQ(nullptr, QIV_GetAddrStringEx(&address, nullptr, sizeof(buffer)));
  EXPECT_EQ(nullptr, QIV_GetAddrStringEx(&address, buffer, 0));
  EXPECT_EQ(nullptr, QIV_GetAddrStringEx(&address, buffer, 7));
  EXPECT_EQ(nullptr, QIV_GetAddrString(nullptr));
  address.family = AF_UNIX;
  EXPECT_EQ(nullptr, QIV_GetAddrStringEx(&address, buffer, sizeof(buffer)));
  EXPECT_EQ(nullptr, QIV_GetAddrString(&address));
}

TEST(AddressTest, StringBufferIsKeptSharedAndOverwrittenByTheNextCall) {
  QIV_ADDR_T address;
  ASSERT_EQ(0, QIV_MakeAddrByString(AF_INET, "100.101.102.103", 80, &address));
  const char* const first = QIV_GetAddrString(&address);
  ASSERT_EQ(0, QIV_MakeAddrByString(AF_INET, "1.2.3.4", 80, &address));
  EXPECT_EQ(first, QIV_GetAddrString(&address));
  EXPECT_STREQ("1.2.3.4", first);
}

}  // namespace
