// What the tests of the socket classes share.
#ifndef QIV_TESTS_NET_SOCKET_CLASSES_SUPPORT_H
#define QIV_TESTS_NET_SOCKET_CLASSES_SUPPORT_H

#include <qiv/socket_classes.h>

#include "support/sockets.h"

namespace qiv::test {

constexpr int kNoLimit = -1;
/** A time-out that is never reached. */
constexpr int kLongMs = 600000;

/** Where a socket of IPv4 is bound. */
inline qiv_net_addr EndpointOf(const Socket& socket) { return {AddressOf(socket).ipv4}; }

}  // namespace qiv::test

#endif
