// The system's list of interfaces with IPv4 addresses, and questions about one of them.
#ifndef QIV_NET_INTERFACES_H
#define QIV_NET_INTERFACES_H

#include <net/if.h>
#include <netinet/in.h>

#include <array>
#include <cstddef>

namespace qiv::net {

using MacAddress = std::array<unsigned char, IFHWADDRLEN>;

/** One record per IPv4 address; what the system has beyond 16 is not seen. */
struct InterfaceList {
  static constexpr std::size_t kMaxRecords = 16;

  std::array<ifreq, kMaxRecords> records;
  std::size_t count;
};

/** Asks through any IPv4 socket. A failure is told on the debug output. */
bool ListInterfaces(int socket, InterfaceList& out) noexcept;

/** The first 6 bytes of an interface's hardware address, zeros where it is shorter. */
bool AskHardwareAddress(int socket, const ifreq& interface, MacAddress& out) noexcept;

/** The address or the netmask of a record. */
bool AskAddress(int socket, const ifreq& interface, in_addr& out) noexcept;
bool AskNetmask(int socket, const ifreq& interface, in_addr& out) noexcept;

}  // namespace qiv::net

#endif
