// Address records: made from texts and numbers, and read back.
#include <qiv/address.h>

#include <arpa/inet.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "net/address_length.h"
#include "net/address_text.h"

static_assert(sizeof(QIV_ADDR_T) == 28 && alignof(QIV_ADDR_T) == alignof(sockaddr_in6),
              "the size and alignment of the system's IPv6 address");
static_assert(offsetof(QIV_ADDR_T, family) == 0 && sizeof(QIV_ADDR_T::family) == 2, "family");
static_assert(offsetof(QIV_ADDR_T, port) == 2 && sizeof(QIV_ADDR_T::port) == 2, "port");
static_assert(offsetof(sockaddr_in, sin_port) == 2 && offsetof(sockaddr_in6, sin6_port) == 2,
              "port of both forms");
static_assert(offsetof(sockaddr_in, sin_addr) == 4, "IPv4 address");
static_assert(offsetof(sockaddr_in6, sin6_flowinfo) == 4, "flow information");
static_assert(offsetof(sockaddr_in6, sin6_addr) == 8, "IPv6 address");
static_assert(offsetof(sockaddr_in6, sin6_scope_id) == 24, "scope id");
static_assert(sizeof(QIV_ADDR_INFO_T) == 24 && offsetof(QIV_ADDR_INFO_T, address) == 4 &&
                  offsetof(QIV_ADDR_INFO_T, port) == 20,
              "the record of QIV_GetAddrInfo()");

namespace qiv::net {
namespace {

constexpr std::size_t kAddressStringSize = 128;
constexpr const char* kIpv4Wildcard = "0.0.0.0";

in_port_t NetworkPort(unsigned int port) { return htons(static_cast<std::uint16_t>(port)); }

bool IsIpv6Family(int family) { return family == AF_INET6 || family == QIV_AF_INET6_DUAL; }

/** The functions below fill a record that is zeroed before. */
void FillIpv4(in_addr_t address, unsigned int port, QIV_ADDR_T& out) {
  out.ipv4.sin_family = AF_INET;
  out.ipv4.sin_port = NetworkPort(port);
  out.ipv4.sin_addr.s_addr = address;
}

void FillIpv6(unsigned int port, QIV_ADDR_T& out) {
  out.ipv6.sin6_family = AF_INET6;
  out.ipv6.sin6_port = NetworkPort(port);
}

int FillWildcard(int family, unsigned int port, QIV_ADDR_T& out) {
  if (family == AF_INET) {
    FillIpv4(INADDR_ANY, port, out);
    return QIV_OK;
  }
  if (!IsIpv6Family(family)) return QIV_ERROR;
  FillIpv6(port, out);
  return QIV_OK;
}

int FillFromIpv6Text(int family, const char* text, unsigned int port, QIV_ADDR_T& out) {
  if (!IsIpv6Family(family)) return QIV_ERROR;
  FillIpv6(port, out);
  // Kept: "0.0.0.0" is the wildcard of the dual family only; AF_INET6 refuses it.
  if (family == QIV_AF_INET6_DUAL && std::strcmp(text, kIpv4Wildcard) == 0) return QIV_OK;
  Ipv6Bytes bytes;
  if (!ParseIpv6(text, bytes)) return QIV_ERROR;
  std::memcpy(&out.ipv6.sin6_addr, bytes.data(), bytes.size());
  return QIV_OK;
}

int FillFromIpv4Text(const char* text, unsigned int port, QIV_ADDR_T& out) {
  const in_addr_t address = inet_addr(text);
  // Kept: 255.255.255.255 reads as INADDR_NONE and is refused like a bad text.
  if (address == INADDR_NONE) return QIV_ERROR;
  FillIpv4(address, port, out);
  return QIV_OK;
}

bool IsIpv6Text(const char* text) {
  return std::strchr(text, ':') != nullptr || std::strcmp(text, kIpv4Wildcard) == 0;
}

}  // namespace
}  // namespace qiv::net

extern "C" {

int QIV_MakeAddrByString(int family, const char* text, unsigned int port,
                         QIV_ADDR_T* out) noexcept {
  using namespace qiv::net;
  if (out == nullptr) return QIV_ERROR;
  *out = QIV_ADDR_T{};
  family = QIV_GetAf_Inner(family);
  if (text == nullptr || *text == '\0') return FillWildcard(family, port, *out);
  if (family != AF_INET && IsIpv6Text(text)) return FillFromIpv6Text(family, text, port, *out);
  return FillFromIpv4Text(text, port, *out);
}

int QIV_MakeAddr4ByInt(unsigned int address, unsigned int port, QIV_ADDR_T* out) noexcept {
  if (out == nullptr) return QIV_ERROR;
  *out = QIV_ADDR_T{};
  qiv::net::FillIpv4(address, port, *out);
  return QIV_OK;
}

int QIV_MakeAddr6ByInt(const void* address, unsigned int port, QIV_ADDR_T* out) noexcept {
  if (address == nullptr || out == nullptr) return QIV_ERROR;
  QIV_ADDR_T record = {};  // the 16 bytes may stand in *out
  qiv::net::FillIpv6(port, record);
  std::memcpy(&record.ipv6.sin6_addr, address, sizeof(record.ipv6.sin6_addr));
  *out = record;
  return QIV_OK;
}

int QIV_MakeAddr(const sockaddr* address, unsigned int length, QIV_ADDR_T* out) noexcept {
  if (address == nullptr || out == nullptr) return QIV_ERROR;
  if (length == 0 || length > sizeof(*out)) return QIV_ERROR;
  QIV_ADDR_T record = {};  // the source may be *out
  std::memcpy(&record, address, length);
  *out = record;
  return QIV_OK;
}

int QIV_SetAddrPort(QIV_ADDR_T* address, unsigned int port) noexcept {
  if (address == nullptr) return QIV_ERROR;
  address->port = qiv::net::NetworkPort(port);
  return QIV_OK;
}

int QIV_GetAddrType(const QIV_ADDR_T* address) noexcept {
  return address == nullptr ? QIV_ERROR : address->family;
}

unsigned short QIV_GetAddrPort(const QIV_ADDR_T* address) noexcept {
  return address == nullptr ? 0 : ntohs(address->port);
}

int QIV_GetAddr4Int(const QIV_ADDR_T* address, unsigned int* out) noexcept {
  if (address == nullptr || out == nullptr || address->family != AF_INET) return QIV_ERROR;
  *out = address->ipv4.sin_addr.s_addr;
  return QIV_OK;
}

int QIV_GetAddr6Int(const QIV_ADDR_T* address, void* out) noexcept {
  // Kept: whatever is not IPv4 counts as IPv6, a zeroed record too.
  if (address == nullptr || out == nullptr || address->family == AF_INET) return QIV_ERROR;
  std::memcpy(out, &address->ipv6.sin6_addr, sizeof(address->ipv6.sin6_addr));
  return QIV_OK;
}

int QIV_GetAddrInfo(const QIV_ADDR_T* address, QIV_ADDR_INFO_T* out) noexcept {
  if (address == nullptr || out == nullptr) return QIV_ERROR;
  out->family = address->family;
  out->port = QIV_GetAddrPort(address);
  // Kept: IPv4 leaves the other 12 address bytes as they were.
  if (address->family == AF_INET) {
    std::memcpy(&out->address, &address->ipv4.sin_addr, sizeof(address->ipv4.sin_addr));
  } else {
    std::memcpy(&out->address, &address->ipv6.sin6_addr, sizeof(address->ipv6.sin6_addr));
  }
  return QIV_OK;
}

char* QIV_GetAddrStringEx(const QIV_ADDR_T* address, char* buffer, unsigned int size) noexcept {
  if (address == nullptr || buffer == nullptr || size == 0) return nullptr;
  const void* bytes = nullptr;
  if (address->family == AF_INET) bytes = &address->ipv4.sin_addr;
  if (address->family == AF_INET6) bytes = &address->ipv6.sin6_addr;
  if (bytes == nullptr) return nullptr;
  // An embedded IPv4 address comes without a NUL: the zeroes end it.
  char text[qiv::net::kAddressStringSize] = {};
  const auto limit = std::min<std::size_t>(size, sizeof(text));
  if (QIV_InetNtop(address->family, bytes, text, static_cast<unsigned int>(limit)) == nullptr) {
    return nullptr;
  }
  const std::size_t length = strnlen(text, limit);
  std::memcpy(buffer, text, length);
  std::memset(buffer + length, 0, size - length);
  return buffer;
}

char* QIV_GetAddrString(const QIV_ADDR_T* address) noexcept {
  // Kept: one buffer for the whole process, overwritten by the next call of any thread.
  static char buffer[qiv::net::kAddressStringSize];
  std::memset(buffer, 0, sizeof(buffer));
  return QIV_GetAddrStringEx(address, buffer, sizeof(buffer));
}

int QIV_GetAddrBySockFd(int socket, QIV_ADDR_T* local, QIV_ADDR_T* peer) noexcept {
  if (local == nullptr && peer == nullptr) return QIV_ERROR;
  socklen_t length = qiv::net::kRecordLength;
  if (peer != nullptr && getpeername(socket, &peer->any, &length) != 0) return QIV_ERROR;
  if (local == nullptr) return QIV_OK;
  // Kept: the length that the peer's address left bounds the local one too. The system tells the
  // whole length of an address that it cut short, so it is bounded by the record.
  length = std::min(length, qiv::net::kRecordLength);
  return getsockname(socket, &local->any, &length) == 0 ? QIV_OK : QIV_ERROR;
}

}  // extern "C"
