// The length of a socket address that the system is told.
#ifndef QIV_NET_ADDRESS_LENGTH_H
#define QIV_NET_ADDRESS_LENGTH_H

#include <netinet/in.h>
#include <qiv/address.h>
#include <sys/socket.h>

#include <cstring>

namespace qiv::net {

/** 16 for an IPv4 record, 28 for every other. */
inline socklen_t AddressLength(const QIV_ADDR_T& address) noexcept {
  sa_family_t family = 0;
  std::memcpy(&family, &address, sizeof(family));
  return family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
}

}  // namespace qiv::net

#endif
