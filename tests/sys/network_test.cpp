#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <qiv/system.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "support/failing_allocation.h"
#include "support/leak_check.h"
#include "support/text_stream.h"
#include "sys/proc_files.h"

namespace {

class NetworkFlowTest : public qiv::test::LeakCheckedTest {};

constexpr const char* kHeader =
    "Inter-|   Receive                            |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets\n";

struct InterfaceRow {
  const char* name;
  std::string text;
  const char* interface;
  bool result;
  qiv_uint64 recvBytes;
  qiv_uint64 sendPackets;
};

TEST_F(NetworkFlowTest, LineOfTheInterfaceIsFound) {
  const InterfaceRow rows[] = {
      {"indented", "    lo: 11 2 3 4 5 6 7 8 9 22 11 12 13 14 15 16\n", "lo", true, 11, 22},
      {"number right behind the colon", "  eth0:11 2 3 4 5 6 7 8 9 22 11 12 13 14 15 16\n", "eth0",
       true, 11, 22},
      {"second line",
       "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n"
       "eth1: 11 2 3 4 5 6 7 8 9 22 11 12 13 14 15 16\n",
       "eth1", true, 11, 22},
      {"name that only begins alike", "eth01: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n", "eth0",
       false, 0, 0},
      {"name that only ends alike", "xeth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n", "eth0",
       false, 0, 0},
      {"blank behind the name", "eth0 : 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n", "eth0", false, 0,
       0},
      {"more numbers than needed", "eth0: 11 2 3 4 5 6 7 8 9 22 11 12 13 14 15 16 17 18\n", "eth0",
       true, 11, 22},
      {"fewer numbers than needed", "eth0: 1 2 3 4 5 6 7 8 9 10\n", "eth0", false, 0, 0},
      {"line cut off", "eth0: 11 2 3 4 5 6 7 8 9 22 11 12 13 14 15 16", "eth0", true, 11, 22},
      {"largest numbers",
       "eth0: 18446744073709551615 2 3 4 5 6 7 8 9 99999999999999999999 11 12 13 14 15 16\n",
       "eth0", true, ULLONG_MAX, ULLONG_MAX},
      {"not a number", "eth0: x 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n", "eth0", false, 0, 0},
      {"unknown interface", "lo: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n", "eth0", false, 0, 0},
      {"name with a colon", "eth0:1: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n", "eth0:1", false, 0,
       0},
      {"empty name", "lo: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n", "", false, 0, 0},
  };
  for (const InterfaceRow& row : rows) {
    const qiv::test::TextStream dev(kHeader + row.text);
    qiv::InterfaceCounters counters = {};
    EXPECT_EQ(row.result, qiv::ReadInterface(dev.Get(), row.interface, &counters)) << row.name;
    EXPECT_EQ(row.recvBytes, counters.recvBytes) << row.name;
    EXPECT_EQ(row.sendPackets, counters.sendPackets) << row.name;
  }
}

TEST_F(NetworkFlowTest, CountersAreTheColumns0And1And8And9) {
  const qiv::test::TextStream dev(
      "eth0: 100 101 102 103 104 105 106 107 108 109 110 111 112 113 114 115\n");
  qiv::InterfaceCounters counters = {};
  ASSERT_TRUE(qiv::ReadInterface(dev.Get(), "eth0", &counters));
  EXPECT_EQ(100u, counters.recvBytes);
  EXPECT_EQ(101u, counters.recvPackets);
  EXPECT_EQ(108u, counters.sendBytes);
  EXPECT_EQ(109u, counters.sendPackets);
}

TEST_F(NetworkFlowTest, PlainRecordSaturatesAtTheSignedMaximum) {
  QIV_NETFLOW_T record = {};
  qiv::PutCounters({2147483647u, 2147483648u, ULLONG_MAX, 5}, &record);
  EXPECT_EQ(2147483647u, record.dwRecvBytes);
  EXPECT_EQ(2147483647u, record.dwRecvPackets);
  EXPECT_EQ(2147483647u, record.dwSendBytes);
  EXPECT_EQ(5u, record.dwSendPackets);
}

TEST_F(NetworkFlowTest, ExRecordTakesAll64Bits) {
  QIV_NETFLOW_EX_T record = {};
  qiv::PutCounters({2147483648u, 4294967296u, ULLONG_MAX, 5}, &record);
  EXPECT_EQ(2147483648u, record.ullRecvBytes);
  EXPECT_EQ(4294967296u, record.ullRecvPackets);
  EXPECT_EQ(ULLONG_MAX, record.ullSendBytes);
  EXPECT_EQ(5u, record.ullSendPackets);
}

TEST_F(NetworkFlowTest, BitRateWrapsInThePlainRecordOnly) {
  QIV_NETFLOW_T plain = {};
  QIV_NETFLOW_EX_T ex = {};
  qiv::PutLinkSpeed(10000, &plain);
  qiv::PutLinkSpeed(10000, &ex);
  EXPECT_EQ(10000u, plain.dwLinkSpeedMbps);
  EXPECT_EQ(1410065408u, plain.dwLinkSpeedBps);
  EXPECT_EQ(10000000000u, ex.ullLinkSpeedBps);
}

TEST_F(NetworkFlowTest, NullIsRefused) {
  EXPECT_EQ(-1, QIV_GetNetWorkFlowData(nullptr));
  EXPECT_EQ(-1, QIV_GetNetWorkFlowDataEx(nullptr));
}

TEST_F(NetworkFlowTest, UnknownInterfaceFailsWithTheLinkSpeedWritten) {
  QIV_NETFLOW_T plain = {};
  std::strcpy(plain.szName, "no-such-if");
  plain.dwRecvBytes = 77;
  EXPECT_EQ(-1, QIV_GetNetWorkFlowData(&plain));
  EXPECT_EQ(1000u, plain.dwLinkSpeedMbps);
  EXPECT_EQ(1000000000u, plain.dwLinkSpeedBps);
  EXPECT_EQ(77u, plain.dwRecvBytes);
  QIV_NETFLOW_EX_T ex = {};
  std::strcpy(ex.szName, "no-such-if");
  EXPECT_EQ(-1, QIV_GetNetWorkFlowDataEx(&ex));
  EXPECT_EQ(1000000000u, ex.ullLinkSpeedBps);
}

TEST_F(NetworkFlowTest, LoopbackIsReadByBothForms) {
  QIV_NETFLOW_T plain = {};
  QIV_NETFLOW_EX_T ex = {};
  std::strcpy(plain.szName, "lo");
  std::strcpy(ex.szName, "lo");
  ASSERT_EQ(0, QIV_GetNetWorkFlowData(&plain));
  ASSERT_EQ(0, QIV_GetNetWorkFlowDataEx(&ex));
  EXPECT_EQ(1000u, plain.dwLinkSpeedMbps) << "its driver tells no speed";
  EXPECT_EQ(ex.ullRecvBytes, ex.ullSendBytes) << "what it sends comes back";
  EXPECT_GE(ex.ullRecvBytes, plain.dwRecvBytes);
}

TEST_F(NetworkFlowTest, SnapshotNeedsNoMemoryOfTheProgramsAllocator) {
  QIV_NETFLOW_T plain = {};
  std::strcpy(plain.szName, "lo");
  const qiv::test::FailingAllocation failing(1, qiv::test::FailingFor::kEver);
  const int result = QIV_GetNetWorkFlowData(&plain);
  EXPECT_FALSE(failing.Happened());
  EXPECT_EQ(0, result);
}

std::vector<std::string> Interfaces() {
  std::vector<std::string> names;
  std::ifstream dev("/proc/net/dev");
  for (std::string line; std::getline(dev, line);) {
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    const std::size_t start = line.find_first_not_of(' ');
    names.push_back(line.substr(start, colon - start));
  }
  return names;
}

// Mbit/s as the driver tells it; 1000 when it does not.
unsigned int SpeedOf(const std::string& name) {
  const int socketFd = socket(AF_INET, SOCK_DGRAM, 0);
  EXPECT_NE(-1, socketFd);
  ethtool_cmd settings = {};
  settings.cmd = ETHTOOL_GSET;
  ifreq request = {};
  name.copy(request.ifr_name, IFNAMSIZ - 1);
  request.ifr_data = reinterpret_cast<char*>(&settings);
  const int result = ioctl(socketFd, SIOCETHTOOL, &request);
  close(socketFd);
  return result == 0 ? settings.speed : 1000;
}

void ExpectSpeedOfTheDriver(const std::string& name) {
  QIV_NETFLOW_T plain = {};
  QIV_NETFLOW_EX_T ex = {};
  name.copy(plain.szName, sizeof plain.szName - 1);
  name.copy(ex.szName, sizeof ex.szName - 1);
  EXPECT_EQ(0, QIV_GetNetWorkFlowData(&plain)) << name;
  EXPECT_EQ(0, QIV_GetNetWorkFlowDataEx(&ex)) << name;
  const unsigned int speed = SpeedOf(name);
  EXPECT_EQ(speed, plain.dwLinkSpeedMbps) << name;
  EXPECT_EQ(speed * 1000000u, plain.dwLinkSpeedBps) << name;
  EXPECT_EQ(speed * 1000000ull, ex.ullLinkSpeedBps) << name;
}

TEST_F(NetworkFlowTest, SpeedOfEveryInterfaceIsWhatItsDriverTells) {
  const std::vector<std::string> names = Interfaces();
  ASSERT_FALSE(names.empty());
  for (const std::string& name : names) ExpectSpeedOfTheDriver(name);
}

TEST_F(NetworkFlowTest, OnlyFifteenCharactersOfTheNameAreRead) {
  QIV_NETFLOW_T record;
  std::memset(&record, 'x', sizeof record);
  EXPECT_EQ(-1, QIV_GetNetWorkFlowData(&record));
  EXPECT_EQ(1000u, record.dwLinkSpeedMbps);
}

}  // namespace
