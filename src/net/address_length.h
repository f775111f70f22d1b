// The length of an address that the system is told.
#ifndef QIV_NET_ADDRESS_LENGTH_H
#define QIV_NET_ADDRESS_LENGTH_H

#include <qiv/address.h>

namespace qiv::net {

constexpr socklen_t kIpv4Length = sizeof(sockaddr_in);
constexpr socklen_t kRecordLength = sizeof(QIV_ADDR_T);

/** Decided by the family alone: whatever is not IPv4 counts as IPv6. */
inline socklen_t AddressLength(const QIV_ADDR_T& address) noexcept {
  return address.family == AF_INET ? kIpv4Length : kRecordLength;
}

}  // namespace qiv::net

#endif
