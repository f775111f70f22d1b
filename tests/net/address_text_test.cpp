#include <gtest/gtest.h>
#include <qiv/address.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

namespace {

using Words = std::array<unsigned int, 8>;

std::array<unsigned char, 16> ToBytes(const Words& words) {
  std::array<unsigned char, 16> bytes;
  for (std::size_t i = 0; i < words.size(); ++i) {
    bytes[2 * i] = static_cast<unsigned char>(words[i] >> 8);
    bytes[2 * i + 1] = static_cast<unsigned char>(words[i] & 0xFF);
  }
  return bytes;
}

std::array<unsigned char, 16> UntouchedBytes() {
  std::array<unsigned char, 16> bytes;
  bytes.fill(0xAA);
  return bytes;
}

// Reading.

struct Ipv4Case {
  const char* text;
  std::array<unsigned char, 4> bytes;
};
std::ostream& operator<<(std::ostream& out, const Ipv4Case& row) { return out << row.text; }

class Ipv4TextTest : public ::testing::TestWithParam<Ipv4Case> {};

TEST_P(Ipv4TextTest, IsReadIntoFourBytes) {
  auto out = UntouchedBytes();
  auto wanted = UntouchedBytes();
  std::memcpy(wanted.data(), GetParam().bytes.data(), GetParam().bytes.size());
  EXPECT_EQ(0, QIV_InetPton(GetParam().text, out.data()));
  EXPECT_EQ(wanted, out);
}

INSTANTIATE_TEST_SUITE_P(
    Accepted, Ipv4TextTest,
    ::testing::Values(Ipv4Case{"1.2.3.4", {1, 2, 3, 4}}, Ipv4Case{"0.0.0.0", {0, 0, 0, 0}},
                      Ipv4Case{"255.255.255.255", {255, 255, 255, 255}},
                      Ipv4Case{"01.02.03.04", {1, 2, 3, 4}}, Ipv4Case{"010.0.0.1", {10, 0, 0, 1}},
                      Ipv4Case{"0000000000000000000000255.1.1.1", {255, 1, 1, 1}}));

class RefusedTextTest : public ::testing::TestWithParam<std::string> {};

TEST_P(RefusedTextTest, WritesNothing) {
  auto out = UntouchedBytes();
  EXPECT_EQ(-1, QIV_InetPton(GetParam().c_str(), out.data()));
  EXPECT_EQ(UntouchedBytes(), out);
}

INSTANTIATE_TEST_SUITE_P(Ipv4, RefusedTextTest,
                         ::testing::Values("", "1", "1.2.3", "1.2.3.", "1.2.3.4.", "1.2.3.4.5",
                                           ".1.2.3.4", "1..2.3", "1.2.3.256", "256.1.1.1",
                                           "99999999999999999999.1.1.1", " 1.2.3.4", "1.2.3.4 ",
                                           "+1.2.3.4", "-1.2.3.4", "1.2.3.4x", "0x1.2.3.4",
                                           "a.b.c.d", ".", "...."));

INSTANTIATE_TEST_SUITE_P(
    Ipv6, RefusedTextTest,
    ::testing::Values(":", ":::", "1::2::3", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:", "1:2:3:4:5:6:7:8:9",
                      "::1:2:3:4:5:6:7:8:9",
                      "12345::", "123456::", "g::", "0x1::", "-1::", "::1%lo", "[::1]",
                      "1:2:3:4:5:6:7:1.2.3.4", "1.2.3.4:1.2.3.4:1.2.3.4:1.2.3.4:1.2.3.4", "::1.2.3",
                      "::1.2.3.256", "::256.2.3.4", "::-1.2.3.4", "::+-1.2.3.4", "::++1.2.3.4",
                      "::1..2.3.4", "::.1.2.3.4", "::1.2.3.x", "::1,2.3.4.5", "::1.2.3.4xxxxxxxxx",
                      "::999999999999999", "::0.0.0.0000000000",
                      "::::::::::", "1::::::::::", ":1:2:3:4::5:6:7:8:"));

struct Ipv6Case {
  std::string text;
  Words words;
};
std::ostream& operator<<(std::ostream& out, const Ipv6Case& row) { return out << row.text; }

class Ipv6TextTest : public ::testing::TestWithParam<Ipv6Case> {};

TEST_P(Ipv6TextTest, IsReadIntoSixteenBytes) {
  auto out = UntouchedBytes();
  EXPECT_EQ(0, QIV_InetPton(GetParam().text.c_str(), out.data()));
  EXPECT_EQ(ToBytes(GetParam().words), out);
}

INSTANTIATE_TEST_SUITE_P(
    Accepted, Ipv6TextTest,
    ::testing::Values(Ipv6Case{"::", {}}, Ipv6Case{"::1", {0, 0, 0, 0, 0, 0, 0, 1}},
                      Ipv6Case{"1::", {1, 0, 0, 0, 0, 0, 0, 0}},
                      Ipv6Case{"1::8", {1, 0, 0, 0, 0, 0, 0, 8}},
                      Ipv6Case{"1:2:3:4:5:6:7:8", {1, 2, 3, 4, 5, 6, 7, 8}},
                      Ipv6Case{"ABCD:ef01:0001:ffff::", {0xABCD, 0xEF01, 1, 0xFFFF, 0, 0, 0, 0}},
                      Ipv6Case{"::ffff:10.1.2.3", {0, 0, 0, 0, 0, 0xFFFF, 0x0A01, 0x0203}},
                      Ipv6Case{"1:2:3:4:5:6:1.2.3.4", {1, 2, 3, 4, 5, 6, 0x0102, 0x0304}},
                      Ipv6Case{"::255.255.255.255", {0, 0, 0, 0, 0, 0, 0xFFFF, 0xFFFF}}));

INSTANTIATE_TEST_SUITE_P(
    KeptWhiteSpaceIsLeftOutAnywhere, Ipv6TextTest,
    ::testing::Values(Ipv6Case{"fe80 :: 1", {0xFE80, 0, 0, 0, 0, 0, 0, 1}},
                      Ipv6Case{" \t\n\v\f\r1 2 3 4::", {0x1234, 0, 0, 0, 0, 0, 0, 0}},
                      Ipv6Case{": :", {}},
                      Ipv6Case{"::1. 2 .3.4", {0, 0, 0, 0, 0, 0, 0x0102, 0x0304}}));

INSTANTIATE_TEST_SUITE_P(KeptSingleColonAtAnEndIsLeftOut, Ipv6TextTest,
                         ::testing::Values(Ipv6Case{":1:2:3:4:5:6:7:8", {1, 2, 3, 4, 5, 6, 7, 8}},
                                           Ipv6Case{"1:2:3:4:5:6:7:8:", {1, 2, 3, 4, 5, 6, 7, 8}},
                                           Ipv6Case{":1:2:3:4:5:6:7:8:", {1, 2, 3, 4, 5, 6, 7, 8}},
                                           Ipv6Case{":1::8", {1, 0, 0, 0, 0, 0, 0, 8}}));

INSTANTIATE_TEST_SUITE_P(KeptGapOfNoWordsIsAccepted, Ipv6TextTest,
                         ::testing::Values(Ipv6Case{"1:2:3:4::5:6:7:8", {1, 2, 3, 4, 5, 6, 7, 8}},
                                           Ipv6Case{"::1:2:3:4:5:6:7:8", {1, 2, 3, 4, 5, 6, 7, 8}},
                                           Ipv6Case{"1:2:3:4:5:6:7:8::",
                                                    {1, 2, 3, 4, 5, 6, 7, 8}}));

INSTANTIATE_TEST_SUITE_P(
    KeptDottedFieldsAreLenient, Ipv6TextTest,
    ::testing::Values(Ipv6Case{"1.2.3.4::", {0x0102, 0x0304, 0, 0, 0, 0, 0, 0}},
                      Ipv6Case{"1:1.2.3.4::8", {1, 0x0102, 0x0304, 0, 0, 0, 0, 8}},
                      Ipv6Case{"1.2.3.4:1.2.3.4:1.2.3.4:1.2.3.4",
                               {0x0102, 0x0304, 0x0102, 0x0304, 0x0102, 0x0304, 0x0102, 0x0304}},
                      Ipv6Case{"::1.2.3.4x", {0, 0, 0, 0, 0, 0, 0x0102, 0x0304}},
                      Ipv6Case{"::1.2.3.4.5.6.7", {0, 0, 0, 0, 0, 0, 0x0102, 0x0304}},
                      Ipv6Case{"::+1.-0.3.04", {0, 0, 0, 0, 0, 0, 0x0100, 0x0304}},
                      Ipv6Case{"::1.2.3.00000004", {0, 0, 0, 0, 0, 0, 0x0102, 0x0304}},
                      Ipv6Case{"::000000009.2.3.4", {0, 0, 0, 0, 0, 0, 0x0902, 0x0304}}));

INSTANTIATE_TEST_SUITE_P(
    KeptCharactersAfterTheFirst255AreIgnored, Ipv6TextTest,
    ::testing::Values(Ipv6Case{"::1" + std::string(252, ' ') + "garbage", {0, 0, 0, 0, 0, 0, 0, 1}},
                      Ipv6Case{"::1" + std::string(251, ' ') + "2garbage",
                               {0, 0, 0, 0, 0, 0, 0, 0x12}},
                      Ipv6Case{"::" + std::string(1000, ' ') + ":::::::::", {}}));

TEST(AddressTextTest, LongTextWithoutAColonInItsFirst255CharactersIsRefused) {
  auto out = UntouchedBytes();
  EXPECT_EQ(-1, QIV_InetPton((std::string(255, ' ') + "::1").c_str(), out.data()));
  EXPECT_EQ(-1, QIV_InetPton((std::string(100000, '1') + ":").c_str(), out.data()));
  EXPECT_EQ(UntouchedBytes(), out);
}

TEST(AddressTextTest, ReadingRefusesNull) {
  unsigned char out[16];
  EXPECT_EQ(-1, QIV_InetPton(nullptr, out));
  EXPECT_EQ(-1, QIV_InetPton("1.2.3.4", nullptr));
  EXPECT_EQ(-1, QIV_InetPton("::1", nullptr));
}

// Writing.

struct FormatCase {
  Words words;
  const char* text;
};
std::ostream& operator<<(std::ostream& out, const FormatCase& row) { return out << row.text; }

class Ipv6FormatTest : public ::testing::TestWithParam<FormatCase> {};

TEST_P(Ipv6FormatTest, NeedsOneByteMoreThanTheTextAndPadsTheRest) {
  const auto bytes = ToBytes(GetParam().words);
  const std::string text = GetParam().text;
  std::vector<char> buffer(text.size() + 8, '#');
  const std::vector<char> before = buffer;
  const auto size = static_cast<unsigned int>(text.size());
  EXPECT_EQ(nullptr, QIV_InetNtop(AF_INET6, bytes.data(), buffer.data(), size));
  EXPECT_EQ(before, buffer);
  ASSERT_EQ(buffer.data(), QIV_InetNtop(AF_INET6, bytes.data(), buffer.data(), size + 1));
  EXPECT_STREQ(text.c_str(), buffer.data());
  EXPECT_EQ('#', buffer[size + 1]);
  ASSERT_EQ(buffer.data(), QIV_InetNtop(AF_INET6, bytes.data(), buffer.data(), size + 4));
  EXPECT_EQ(text + std::string(4, '\0') + "####", std::string(buffer.data(), buffer.size()));
}

INSTANTIATE_TEST_SUITE_P(
    Table, Ipv6FormatTest,
    ::testing::Values(FormatCase{{0, 0, 0, 0, 0, 0, 0, 0}, "::"},
                      FormatCase{{0, 0, 0, 0, 0, 0, 0, 1}, "::1"},
                      FormatCase{{1, 0, 0, 0, 0, 0, 0, 0}, "1::"},
                      FormatCase{{1, 2, 3, 4, 5, 6, 7, 8}, "1:2:3:4:5:6:7:8"},
                      FormatCase{{1, 0, 0, 2, 0, 0, 0, 3}, "1:0:0:2::3"},
                      FormatCase{{1, 0, 0, 2, 3, 0, 0, 4}, "1::2:3:0:0:4"},
                      FormatCase{{1, 0, 2, 0, 3, 0, 4, 0}, "1:0:2:0:3:0:4:0"},
                      FormatCase{{0, 0, 3, 4, 5, 6, 7, 8}, "::3:4:5:6:7:8"},
                      FormatCase{{1, 2, 3, 4, 5, 6, 0, 0}, "1:2:3:4:5:6::"},
                      FormatCase{{0xFE80, 0, 0, 0, 0xABC, 0xF, 0x10, 0xFFFF},
                                 "fe80::abc:f:10:ffff"},
                      FormatCase{{0, 0, 0, 0, 0, 0xFFFE, 0x0102, 0x0304}, "::fffe:102:304"},
                      FormatCase{{0, 0, 0, 0, 1, 0xFFFF, 0x0102, 0x0304}, "::1:ffff:102:304"},
                      FormatCase{{1, 0, 0, 0, 0, 0, 0, 0xFFFF}, "1::ffff"},
                      FormatCase{{0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF},
                                 "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"}));

class EmbeddedIpv4FormatTest : public ::testing::TestWithParam<FormatCase> {};

TEST_P(EmbeddedIpv4FormatTest, IsKeptToWriteTheCharactersAloneAndNothingWhenTheyDoNotFit) {
  const auto bytes = ToBytes(GetParam().words);
  const std::string text = GetParam().text;
  std::string buffer(32, '#');
  for (unsigned int size = 1; size < text.size(); ++size) {
    EXPECT_EQ(nullptr, QIV_InetNtop(AF_INET6, bytes.data(), &buffer[0], size)) << size;
  }
  EXPECT_EQ(std::string(32, '#'), buffer);
  for (auto size = static_cast<unsigned int>(text.size()); size <= buffer.size(); ++size) {
    ASSERT_EQ(&buffer[0], QIV_InetNtop(AF_INET6, bytes.data(), &buffer[0], size)) << size;
    EXPECT_EQ(text + std::string(32 - text.size(), '#'), buffer) << size;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Table, EmbeddedIpv4FormatTest,
    ::testing::Values(FormatCase{{0, 0, 0, 0, 0, 0, 0x0102, 0x0304}, "1.2.3.4"},
                      FormatCase{{0, 0, 0, 0, 0, 0xFFFF, 0x0102, 0x0304}, "1.2.3.4"},
                      FormatCase{{0, 0, 0, 0, 0, 0xFFFF, 0xC000, 0x0201}, "192.0.2.1"},
                      FormatCase{{0, 0, 0, 0, 0, 0, 1, 0}, "0.1.0.0"},
                      FormatCase{{0, 0, 0, 0, 0, 0xFFFF, 0, 0}, "0.0.0.0"},
                      FormatCase{{0, 0, 0, 0, 0, 0xFFFF, 0xFFFF, 0xFFFF}, "255.255.255.255"}));

struct Ipv4FormatCase {
  std::array<unsigned char, 4> bytes;
  const char* text;
};
std::ostream& operator<<(std::ostream& out, const Ipv4FormatCase& row) { return out << row.text; }

class Ipv4FormatTest : public ::testing::TestWithParam<Ipv4FormatCase> {};

TEST_P(Ipv4FormatTest, IsKeptToFitWithoutItsNul) {
  const std::string text = GetParam().text;
  const auto size = static_cast<unsigned int>(text.size());
  std::string buffer(24, '#');
  EXPECT_EQ(nullptr, QIV_InetNtop(AF_INET, GetParam().bytes.data(), &buffer[0], size - 1));
  EXPECT_EQ(std::string(24, '#'), buffer);
  ASSERT_EQ(&buffer[0], QIV_InetNtop(AF_INET, GetParam().bytes.data(), &buffer[0], size));
  EXPECT_EQ(text + std::string(24 - size, '#'), buffer);
  ASSERT_EQ(&buffer[0], QIV_InetNtop(AF_INET, GetParam().bytes.data(), &buffer[0], 20));
  EXPECT_EQ(text + std::string(20 - size, '\0') + "####", buffer);
}

INSTANTIATE_TEST_SUITE_P(Table, Ipv4FormatTest,
                         ::testing::Values(Ipv4FormatCase{{0, 0, 0, 0}, "0.0.0.0"},
                                           Ipv4FormatCase{{1, 20, 255, 9}, "1.20.255.9"},
                                           Ipv4FormatCase{{255, 255, 255, 255},
                                                          "255.255.255.255"}));

TEST(AddressTextTest, WritingRefusesNullAndZeroSize) {
  const unsigned char bytes[16] = {};
  char buffer[64];
  for (const int family : {AF_INET, AF_INET6}) {
    EXPECT_EQ(nullptr, QIV_InetNtop(family, nullptr, buffer, sizeof(buffer)));
    EXPECT_EQ(nullptr, QIV_InetNtop(family, bytes, nullptr, sizeof(buffer)));
    EXPECT_EQ(nullptr, QIV_InetNtop(family, bytes, buffer, 0));
  }
}

TEST(AddressTextTest, WritingRefusesOtherFamilies) {
  const unsigned char bytes[16] = {};
  char buffer[64];
  for (const int family : {-1, 0, 1, QIV_AF_INET6_DUAL, QIV_AF_PREFERRED}) {
    EXPECT_EQ(nullptr, QIV_InetNtop(family, bytes, buffer, sizeof(buffer))) << family;
  }
}

}  // namespace
