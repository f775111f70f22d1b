// How the class layer's endpoint reads its text.
#include <qiv/socket_classes.h>

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <locale>
#include <ostream>
#include <random>
#include <sstream>
#include <string>

#include "net/socket_classes_support.h"
#include "support/failing_allocation.h"
#include "support/leak_check.h"

namespace {

using qiv::qiv_net_addr;
using qiv::test::Family;
using qiv::test::Text;

// Every text is read into this endpoint, which has another family.
sockaddr_in EndpointBefore() {
  sockaddr_in system = {};
  system.sin_family = AF_INET6;
  system.sin_port = htons(9);
  system.sin_addr.s_addr = inet_addr("9.9.9.9");
  return system;
}

class NetAddrParseTest : public qiv::test::LeakCheckedTest {};

struct UrlCase {
  const char* condition;
  const char* url;
  const char* expected;
};

std::ostream& operator<<(std::ostream& out, const UrlCase& row) { return out << row.url; }

class NetAddrUrlTest : public NetAddrParseTest, public ::testing::WithParamInterface<UrlCase> {};

TEST_P(NetAddrUrlTest, ParseUrl) {
  qiv_net_addr address;
  ASSERT_EQ(0, address.set_addr(EndpointBefore()));
  EXPECT_EQ(0, address.parse_url(GetParam().url));
  EXPECT_EQ(GetParam().expected, Text(address));
  EXPECT_EQ(AF_INET, Family(address));
}

INSTANTIATE_TEST_SUITE_P(
    Texts, NetAddrUrlTest,
    ::testing::Values(
        UrlCase{"HostAndPort", "10.1.2.3:8000", "10.1.2.3 8000"},
        UrlCase{"HostOf5CharactersIsLeftOut", "1.2.3:80", "9.9.9.9 80"},
        UrlCase{"HostOf6CharactersIsLeftOut", "10.2.3:80", "9.9.9.9 80"},
        UrlCase{"HostOf7Characters", "1.2.3.4:80", "1.2.3.4 80"},
        UrlCase{"PortAlone", ":80", "9.9.9.9 80"},
        UrlCase{"NoColonSetsTheFamilyAlone", "10.1.2.3", "9.9.9.9 9"},
        UrlCase{"EmptyTextSetsTheFamilyAlone", "", "9.9.9.9 9"},
        UrlCase{"ColonAlone", ":", "9.9.9.9 9"},
        UrlCase{"EmptyPortIsLeftOut", "10.1.2.3:", "10.1.2.3 9"},
        UrlCase{"LastColonSplits", "1.2.3.4:5:6", "255.255.255.255 6"},
        UrlCase{"SchemeInFrontGivesAllOnes", "http://10.1.2.3:80", "255.255.255.255 80"},
        UrlCase{"SchemeAloneIsTooShortForAHost", "http://10.1.2.3", "9.9.9.9 0"},
        UrlCase{"UnparsableHost", "localhost:80", "255.255.255.255 80"},
        UrlCase{"WhiteSpaceBeforeTheHost", " 10.1.2.3:80", "255.255.255.255 80"},
        UrlCase{"PartOutOfRange", "10.1.2.256:80", "255.255.255.255 80"},
        UrlCase{"PathBehindThePort", "10.1.2.3:80/index", "10.1.2.3 80"},
        UrlCase{"Ipv6Text", "[::1]:80", "9.9.9.9 80"},
        UrlCase{"LeadingZeros", "10.1.2.3:0000000080", "10.1.2.3 80"},
        UrlCase{"OctalLooksAreDecimal", "10.1.2.3:010", "10.1.2.3 10"},
        UrlCase{"HexadecimalStopsAtTheX", "10.1.2.3:0x50", "10.1.2.3 0"},
        UrlCase{"LargestPort", "10.1.2.3:65535", "10.1.2.3 65535"},
        UrlCase{"OverflowIsAFailedRead", "10.1.2.3:65536", "10.1.2.3 0"},
        UrlCase{"LongOverflow", "10.1.2.3:99999999999999999999999999999999", "10.1.2.3 0"},
        UrlCase{"NoNumberIsAFailedRead", "10.1.2.3:http", "10.1.2.3 0"},
        UrlCase{"BlankIsAFailedRead", "10.1.2.3: ", "10.1.2.3 0"},
        UrlCase{"LeadingBlanksAreSkipped", "10.1.2.3: \t\n\v\f\r80", "10.1.2.3 80"},
        UrlCase{"PlusSign", "10.1.2.3:+80", "10.1.2.3 80"},
        UrlCase{"MinusSignCountsFromAbove", "10.1.2.3:-1", "10.1.2.3 65535"},
        UrlCase{"MinusOverflow", "10.1.2.3:-65536", "10.1.2.3 0"},
        UrlCase{"SignAloneIsAFailedRead", "10.1.2.3:-", "10.1.2.3 0"},
        UrlCase{"TwoSignsAreAFailedRead", "10.1.2.3:+-1", "10.1.2.3 0"},
        UrlCase{"BlankBehindTheSignIsAFailedRead", "10.1.2.3:- 1", "10.1.2.3 0"}),
    [](const auto& testInfo) { return std::string(testInfo.param.condition); });

TEST_F(NetAddrParseTest, ParseUrlOfNullChangesNothingNotEvenTheFamily) {
  qiv_net_addr address;
  ASSERT_EQ(0, address.set_addr(EndpointBefore()));
  EXPECT_EQ(0, address.parse_url(nullptr));
  EXPECT_EQ("9.9.9.9 9", Text(address));
  EXPECT_EQ(AF_INET6, Family(address));
}

TEST_F(NetAddrParseTest, ParseUrlReadsHostsUpTo255CharactersAndTakesLongerOnesAsAllOnes) {
  const std::string host = "1.2.3.4";
  for (const std::size_t length : {std::size_t{255}, std::size_t{256}, std::size_t{100000}}) {
    const std::string url = std::string(length - host.size(), '0') + host + ":80";
    EXPECT_EQ(length < 256 ? "1.2.3.4 80" : "255.255.255.255 80", Text(qiv_net_addr(url.c_str())));
  }
  const std::string noise(1 << 20, ':');
  EXPECT_STREQ("255.255.255.255", qiv_net_addr(noise.c_str()).get_host());
}

TEST_F(NetAddrParseTest, ParseUrlEndsTheHostAtItsFirstWhiteSpaceWhateverItsLength) {
  for (const std::size_t length : {std::size_t{1}, std::size_t{300}, std::size_t{100000}}) {
    for (const char blank : {' ', '\t', '\n', '\v', '\f', '\r'}) {
      const std::string blanks(length, blank);
      EXPECT_EQ("10.1.2.3 80", Text(qiv_net_addr(("10.1.2.3" + blanks + ":80").c_str())));
      EXPECT_EQ("10.1.2.3 80", Text(qiv_net_addr(("10.1.2.3" + blanks + "x:80").c_str())));
    }
  }
}

TEST_F(NetAddrParseTest, ParseUrlTakesNoMemory) {
  const std::string blanks(1000, ' ');
  const std::string url = "1.2.3.4" + blanks + ":" + blanks + "80";
  qiv_net_addr address;
  {
    const qiv::test::FailingAllocation failing(1, qiv::test::FailingFor::kEver);
    EXPECT_EQ(0, address.parse_url(url.c_str()));
    EXPECT_FALSE(failing.Happened());
  }
  EXPECT_EQ("1.2.3.4 80", Text(address));
}

/** What a stream makes of a port's text; a failed read gives 0. */
unsigned short PortOfAStream(const std::string& text) {
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  unsigned short port = 0;
  return stream >> port ? port : 0;
}

TEST_F(NetAddrParseTest, ParseUrlReadsThePortAsAStreamDoes) {
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const std::string characters = "0123456789016553 \t+-,.x/";
  for (int round = 0; round < 20000; ++round) {
    std::string text(1 + random() % 7, '\0');
    for (char& c : text) c = characters[random() % characters.size()];
    const std::string url = "1.2.3.4:" + text;
    ASSERT_EQ(PortOfAStream(text), qiv_net_addr(url.c_str()).get_port()) << '"' << text << '"';
  }
}

/** Groups digits by three, as many languages do. */
class Grouping : public std::numpunct<char> {
  char do_thousands_sep() const override { return ','; }
  std::string do_grouping() const override { return "\3"; }
};

TEST_F(NetAddrParseTest, GlobalLocaleDoesNotChangeTexts) {
  const std::locale saved = std::locale::global(std::locale(std::locale(), new Grouping));
  EXPECT_EQ(8, qiv_net_addr("1.2.3.4:8,000").get_port());
  char buffer[32];
  int length = sizeof(buffer);
  EXPECT_STREQ("1.2.3.4:8000", qiv_net_addr("1.2.3.4:8000").get_addr(buffer, length));
  std::locale::global(saved);
}

}  // namespace
