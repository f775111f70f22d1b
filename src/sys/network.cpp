// Network interfaces: link speed from the driver, counters from /proc/net/dev.
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <qiv/system.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>

#include "base/no_cancellation.h"
#include "sys/proc_files.h"

static_assert(sizeof(QIV_NETFLOW_T) == 288, "a name of 264 bytes and six 32-bit fields");
static_assert(offsetof(QIV_NETFLOW_T, dwLinkSpeedBps) == 264, "the name stands in front");
static_assert(offsetof(QIV_NETFLOW_T, dwRecvBytes) == 268, "order of the counters");
static_assert(offsetof(QIV_NETFLOW_T, dwRecvPackets) == 272, "order of the counters");
static_assert(offsetof(QIV_NETFLOW_T, dwSendBytes) == 276, "order of the counters");
static_assert(offsetof(QIV_NETFLOW_T, dwSendPackets) == 280, "order of the counters");
static_assert(offsetof(QIV_NETFLOW_T, dwLinkSpeedMbps) == 284, "the speed in Mbit/s stands behind");
static_assert(sizeof(QIV_NETFLOW_EX_T) == 304, "a name of 264 bytes and five 64-bit fields");
static_assert(offsetof(QIV_NETFLOW_EX_T, ullLinkSpeedBps) == 264, "the name stands in front");
static_assert(offsetof(QIV_NETFLOW_EX_T, ullRecvBytes) == 272, "order of the counters");
static_assert(offsetof(QIV_NETFLOW_EX_T, ullRecvPackets) == 280, "order of the counters");
static_assert(offsetof(QIV_NETFLOW_EX_T, ullSendBytes) == 288, "order of the counters");
static_assert(offsetof(QIV_NETFLOW_EX_T, ullSendPackets) == 296, "order of the counters");

namespace qiv {
namespace {

constexpr const char* kDeviceFile = "/proc/net/dev";
constexpr std::size_t kNameLength = 15;
static_assert(kNameLength + 1 <= IFNAMSIZ, "the name and its NUL fit into a request");
constexpr unsigned int kDefaultMbps = 1000;
constexpr unsigned int kBitsPerMegabit = 1000000;
constexpr std::size_t kNumbersPerLine = 16;

struct Name {
  // What the record names; the last byte stays NUL.
  explicit Name(const char* recorded) {
    std::memcpy(text, recorded, strnlen(recorded, kNameLength));
  }

  char text[kNameLength + 1] = {};
};

// Mbit/s as the driver tells it; false without a socket to ask it through.
bool AskLinkSpeed(const Name& name, unsigned int* mbps) {
  const int socketFd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socketFd == -1) return false;
  ethtool_cmd settings = {};
  settings.cmd = ETHTOOL_GSET;
  ifreq request = {};
  std::memcpy(request.ifr_name, name.text, sizeof name.text);
  request.ifr_data = reinterpret_cast<char*>(&settings);
  const bool told = ioctl(socketFd, SIOCETHTOOL, &request) == 0;
  // Kept: the low 16 bits of the speed only.
  *mbps = told ? settings.speed : kDefaultMbps;
  close(socketFd);
  return true;
}

bool ReadCounters(const Name& name, InterfaceCounters* counters) {
  const ProcFile dev(kDeviceFile);
  return dev.Get() != nullptr && ReadInterface(dev.Get(), name.text, counters);
}

unsigned int Saturated(qiv_uint64 value) {
  return static_cast<unsigned int>(std::min<qiv_uint64>(value, INT_MAX));
}

template <class Record>
int TakeSnapshot(Record* record) noexcept {
  if (record == nullptr) return QIV_ERROR;
  const base::NoCancellation noCancellation;
  const Name name(record->szName);
  unsigned int mbps = 0;
  if (!AskLinkSpeed(name, &mbps)) return QIV_ERROR;
  PutLinkSpeed(mbps, record);
  InterfaceCounters counters = {};
  if (!ReadCounters(name, &counters)) return QIV_ERROR;
  PutCounters(counters, record);
  return QIV_OK;
}

}  // namespace

void PutLinkSpeed(unsigned int mbps, QIV_NETFLOW_T* out) noexcept {
  out->dwLinkSpeedMbps = mbps;
  out->dwLinkSpeedBps = mbps * kBitsPerMegabit;
}

void PutLinkSpeed(unsigned int mbps, QIV_NETFLOW_EX_T* out) noexcept {
  out->ullLinkSpeedBps = static_cast<qiv_uint64>(mbps) * kBitsPerMegabit;
}

void PutCounters(const InterfaceCounters& counters, QIV_NETFLOW_T* out) noexcept {
  out->dwRecvBytes = Saturated(counters.recvBytes);
  out->dwRecvPackets = Saturated(counters.recvPackets);
  out->dwSendBytes = Saturated(counters.sendBytes);
  out->dwSendPackets = Saturated(counters.sendPackets);
}

void PutCounters(const InterfaceCounters& counters, QIV_NETFLOW_EX_T* out) noexcept {
  out->ullRecvBytes = counters.recvBytes;
  out->ullRecvPackets = counters.recvPackets;
  out->ullSendBytes = counters.sendBytes;
  out->ullSendPackets = counters.sendPackets;
}

bool ReadInterface(std::FILE* dev, const char* name, InterfaceCounters* out) noexcept {
  const std::size_t nameLength = std::strlen(name);
  LineReader lines(dev);
  for (const char* line = lines.Next(); line != nullptr; line = lines.Next()) {
    line += std::strspn(line, " \t");
    if (std::strcspn(line, ":") != nameLength || line[nameLength] != ':') continue;
    if (std::strncmp(line, name, nameLength) != 0) continue;
    qiv_uint64 numbers[kNumbersPerLine] = {};
    const char* cursor = line + nameLength + 1;
    for (qiv_uint64& number : numbers) {
      if (!ScanNumber(&cursor, &number)) return false;
    }
    *out = {numbers[0], numbers[1], numbers[8], numbers[9]};
    return true;
  }
  return false;
}

}  // namespace qiv

extern "C" {

int QIV_GetNetWorkFlowData(QIV_NETFLOW_T* rec) noexcept { return qiv::TakeSnapshot(rec); }

int QIV_GetNetWorkFlowDataEx(QIV_NETFLOW_EX_T* rec) noexcept { return qiv::TakeSnapshot(rec); }

}  // extern "C"
