// What the tests of the socket classes share.
#ifndef QIV_TESTS_NET_SOCKET_CLASSES_SUPPORT_H
#define QIV_TESTS_NET_SOCKET_CLASSES_SUPPORT_H

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <qiv/socket_classes.h>

#include <cstring>
#include <string>

#include "support/sockets.h"

namespace qiv::test {

constexpr int kNoLimit = -1;
/** A time-out that is never reached. */
constexpr int kLongMs = 600000;

/** Where a socket of IPv4 is bound. */
inline qiv_net_addr EndpointOf(const Socket& socket) { return {AddressOf(socket).ipv4}; }

/** What get_addr() gives, over other bytes. */
inline sockaddr_in SystemAddress(const qiv_net_addr& address) {
  sockaddr_in system;
  std::memset(&system, 0xAA, sizeof(system));
  EXPECT_EQ(0, address.get_addr(system));
  return system;
}

inline sa_family_t Family(const qiv_net_addr& address) { return SystemAddress(address).sin_family; }

/** "host port", read member by member. */
inline std::string Text(const qiv_net_addr& address) {
  return std::string(address.get_host()) + " " + std::to_string(address.get_port());
}

}  // namespace qiv::test

#endif
