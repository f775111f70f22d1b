// Steps of the socket calls that their tests reach too.
#ifndef QIV_NET_SOCKET_H
#define QIV_NET_SOCKET_H

#include <algorithm>
#include <array>
#include <limits>

namespace qiv::net {

/** What the system is given as an interface name; the rest is zero. */
using DeviceName = std::array<char, 32>;

/** The first 15 characters of a name. */
DeviceName MakeDeviceName(const char* name) noexcept;

/** At most as many bytes as the result of a transfer can tell from a failure. */
constexpr unsigned int TransferLength(unsigned int length) noexcept {
  return std::min<unsigned int>(length, std::numeric_limits<int>::max());
}

/**
 * Waits at most `ms` milliseconds for the connection that is in progress on a non-blocking socket,
 * and makes the socket blocking again. 0 when the connection stands, otherwise -1 with errno.
 */
int FinishConnection(int socket, unsigned int ms);

/** Lets an IPv6 socket accept IPv4 too, and says so on standard output when it did not before. */
void AcceptIpv4Too(int socket);

}  // namespace qiv::net

#endif
