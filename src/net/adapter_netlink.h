// The host's links and IPv6 addresses, asked of the kernel through route netlink.
#ifndef QIV_NET_ADAPTER_NETLINK_H
#define QIV_NET_ADAPTER_NETLINK_H

#include "net/netlink_reply.h"

namespace qiv::net {

/** A failure is told on the debug output. An answer that does not come leaves a table short. */
bool AskLinksAndIpv6Addresses(LinkTable& links, Ipv6Table& addresses) noexcept;

/** The same through a bound socket; 0, or the errno of a question that cannot be sent. */
int DumpLinksAndIpv6Addresses(int socket, LinkTable& links, Ipv6Table& addresses) noexcept;

}  // namespace qiv::net

#endif
