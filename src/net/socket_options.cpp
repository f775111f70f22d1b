// Socket options: each function sets or reads one option, or a few that belong together.
#include <net/if.h>
#include <netinet/tcp.h>
#include <qiv/socket.h>
#include <sys/time.h>

#include <cstring>

#include "net/socket.h"

namespace qiv::net {
namespace {

constexpr int kKeepAliveIntervalSeconds = 10;
constexpr int kKeepAliveProbes = 2;
constexpr int kMillisecondsPerSecond = 1000;

template <class Value>
int SetOption(int socket, int level, int option, const Value& value) {
  return setsockopt(socket, level, option, &value, sizeof(value));
}

int GetOption(int socket, int level, int option, int* value) {
  socklen_t length = sizeof(*value);
  return getsockopt(socket, level, option, value, &length);
}

int ChangeMembership(int socket, const QIV_ADDR_T* local, const QIV_ADDR_T* group, int option4,
                     int option6) {
  if (local == nullptr || group == nullptr) return QIV_ERROR;
  if (group->family == AF_INET) {
    ip_mreq request = {};
    request.imr_multiaddr = group->ipv4.sin_addr;
    request.imr_interface = local->ipv4.sin_addr;
    return SetOption(socket, IPPROTO_IP, option4, request);
  }
  if (group->family != AF_INET6) return QIV_ERROR;
  ipv6_mreq request = {};
  request.ipv6mr_multiaddr = group->ipv6.sin6_addr;
  // Kept: callers put the interface index into the flow information.
  request.ipv6mr_interface = group->ipv6.sin6_flowinfo;
  return SetOption(socket, IPPROTO_IPV6, option6, request);
}

int SetWaitLimit(int socket, int option, int ms) {
  timeval limit = {};
  limit.tv_sec = ms / kMillisecondsPerSecond;
  // Kept: the remaining milliseconds are taken as microseconds, unscaled.
  limit.tv_usec = ms % kMillisecondsPerSecond;
  return SetOption(socket, SOL_SOCKET, option, limit);
}

}  // namespace

DeviceName MakeDeviceName(const char* name) noexcept {
  DeviceName device = {};
  std::memcpy(device.data(), name, strnlen(name, IFNAMSIZ - 1));
  return device;
}

}  // namespace qiv::net

using qiv::net::ChangeMembership;
using qiv::net::GetOption;
using qiv::net::SetOption;

extern "C" {

int QIV_JoinMultiCastGroup(int socket, const QIV_ADDR_T* local, const QIV_ADDR_T* group) noexcept {
  return ChangeMembership(socket, local, group, IP_ADD_MEMBERSHIP, IPV6_ADD_MEMBERSHIP);
}

int QIV_LeaveMultiCastGroup(int socket, const QIV_ADDR_T* local, const QIV_ADDR_T* group) noexcept {
  return ChangeMembership(socket, local, group, IP_DROP_MEMBERSHIP, IPV6_DROP_MEMBERSHIP);
}

int QIV_SetTTL(int socket, int ttl) noexcept { return SetOption(socket, IPPROTO_IP, IP_TTL, ttl); }

int QIV_GetTTL(int socket, int* ttl) noexcept { return GetOption(socket, IPPROTO_IP, IP_TTL, ttl); }

int QIV_SetTTL_V6(int socket, int hops) noexcept {
  return SetOption(socket, IPPROTO_IPV6, IPV6_UNICAST_HOPS, hops);
}

int QIV_GetTTL_V6(int socket, int* hops) noexcept {
  return GetOption(socket, IPPROTO_IPV6, IPV6_UNICAST_HOPS, hops);
}

int QIV_SetMultiCastTTL(int socket, int ttl) noexcept {
  return SetOption(socket, IPPROTO_IP, IP_MULTICAST_TTL, ttl);
}

int QIV_SetMultiCastTTL_V6(int socket, int hops) noexcept {
  return SetOption(socket, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, hops);
}

int QIV_SetMultiCastHopsV6(int socket, int hops) noexcept {
  return QIV_SetMultiCastTTL_V6(socket, hops);
}

int QIV_SetMultiCastLoopV6(int socket, int on) noexcept {
  return SetOption(socket, IPPROTO_IPV6, IPV6_MULTICAST_LOOP, on);
}

int QIV_SetTOS(int socket, int tos) noexcept { return SetOption(socket, IPPROTO_IP, IP_TOS, tos); }

int QIV_GetTOS(int socket, int* tos) noexcept { return GetOption(socket, IPPROTO_IP, IP_TOS, tos); }

int QIV_SetReuseAddr(int socket, int on) noexcept {
  return SetOption(socket, SOL_SOCKET, SO_REUSEADDR, on);
}

int QIV_SetNoDelay(int socket, int on) noexcept {
  return SetOption(socket, IPPROTO_TCP, TCP_NODELAY, on);
}

int QIV_BroadCast(int socket) noexcept {
  // Kept: broadcasting can be switched on only.
  return SetOption(socket, SOL_SOCKET, SO_BROADCAST, 1);
}

int QIV_LingerOff(int socket) noexcept {
  return SetOption(socket, SOL_SOCKET, SO_LINGER, linger{0, 0});
}

int QIV_LingerOn(int socket, int seconds) noexcept {
  return SetOption(socket, SOL_SOCKET, SO_LINGER, linger{1, seconds});
}

int QIV_Bind_ToDevice(int socket, const char* name) noexcept {
  if (name == nullptr) return QIV_ERROR;
  return SetOption(socket, SOL_SOCKET, SO_BINDTODEVICE, qiv::net::MakeDeviceName(name));
}

int QIV_SetTimeOut(int socket, int sendMs, int receiveMs) noexcept {
  using qiv::net::SetWaitLimit;
  int result = QIV_OK;
  if (receiveMs != 0 && SetWaitLimit(socket, SO_RCVTIMEO, receiveMs) != 0) result = QIV_ERROR;
  if (sendMs != 0 && SetWaitLimit(socket, SO_SNDTIMEO, sendMs) != 0) result = QIV_ERROR;
  return result;
}

int QIV_SetBuffSize(int socket, unsigned int sendSize, unsigned int receiveSize) noexcept {
  int result = QIV_OK;
  if (receiveSize != 0 && SetOption(socket, SOL_SOCKET, SO_RCVBUF, receiveSize) != 0) {
    result = QIV_ERROR;
  }
  if (sendSize != 0 && SetOption(socket, SOL_SOCKET, SO_SNDBUF, sendSize) != 0) {
    result = QIV_ERROR;
  }
  return result;
}

int QIV_GetBuffSize(int socket, int* sendSize, int* receiveSize) noexcept {
  int result = QIV_OK;
  if (receiveSize != nullptr && GetOption(socket, SOL_SOCKET, SO_RCVBUF, receiveSize) != 0) {
    result = QIV_ERROR;
  }
  if (sendSize != nullptr && GetOption(socket, SOL_SOCKET, SO_SNDBUF, sendSize) != 0) {
    result = QIV_ERROR;
  }
  return result;
}

int QIV_SetTCP_KeepAlive(int socket, int enable, int idleSeconds) noexcept {
  using namespace qiv::net;
  const int on = enable != 0 ? 1 : 0;
  // Kept: the times are set also when probing is switched off.
  if (SetOption(socket, SOL_SOCKET, SO_KEEPALIVE, on) != 0) return QIV_ERROR;
  if (SetOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, idleSeconds) != 0) return QIV_ERROR;
  if (SetOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, kKeepAliveIntervalSeconds) != 0) {
    return QIV_ERROR;
  }
  return SetOption(socket, IPPROTO_TCP, TCP_KEEPCNT, kKeepAliveProbes) == 0 ? QIV_OK : QIV_ERROR;
}

}  // extern "C"
