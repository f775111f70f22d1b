// Address records as bytes, to compare with what the library fills.
#ifndef QIV_TESTS_SUPPORT_ADDRESS_RECORDS_H
#define QIV_TESTS_SUPPORT_ADDRESS_RECORDS_H

#include <qiv/address.h>

#include <array>
#include <cstddef>
#include <cstring>

namespace qiv::test {

using Bytes = std::array<unsigned char, sizeof(QIV_ADDR_T)>;

constexpr std::array<unsigned char, 16> kIpv6Loopback = {0, 0, 0, 0, 0, 0, 0, 0,
                                                         0, 0, 0, 0, 0, 0, 0, 1};

inline Bytes BytesOf(const QIV_ADDR_T& address) {
  Bytes bytes;
  std::memcpy(bytes.data(), &address, bytes.size());
  return bytes;
}

/** A record that nothing has filled yet, to see what is written. */
inline QIV_ADDR_T FilledRecord() {
  QIV_ADDR_T address;
  std::memset(&address, 0xAA, sizeof(address));
  return address;
}

/** A record with the address at `offset`; everything else but family and port is zero. */
template <std::size_t Length>
Bytes RecordBytes(sa_family_t family, const std::array<unsigned char, Length>& ip,
                  std::size_t offset, unsigned int port) {
  Bytes bytes = {};
  std::memcpy(bytes.data(), &family, sizeof(family));
  bytes[2] = static_cast<unsigned char>(port >> 8);
  bytes[3] = static_cast<unsigned char>(port & 0xFF);
  std::memcpy(&bytes[offset], ip.data(), ip.size());
  return bytes;
}

inline Bytes Ipv4Record(const std::array<unsigned char, 4>& ip, unsigned int port) {
  return RecordBytes(AF_INET, ip, 4, port);
}

inline Bytes Ipv6Record(const std::array<unsigned char, 16>& ip, unsigned int port) {
  return RecordBytes(AF_INET6, ip, 8, port);
}

}  // namespace qiv::test

#endif
