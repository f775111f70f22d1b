// The parser of IPv6 texts, shared by the functions that take an address text.
#ifndef QIV_NET_ADDRESS_TEXT_H
#define QIV_NET_ADDRESS_TEXT_H

#include <array>

namespace qiv::net {

using Ipv4Bytes = std::array<unsigned char, 4>;
using Ipv6Bytes = std::array<unsigned char, 16>;

/** Reads an IPv6 text by the rules of QIV_InetPton(). `bytes` is left alone when it is none. */
bool ParseIpv6(const char* text, Ipv6Bytes& bytes) noexcept;

}  // namespace qiv::net

#endif
