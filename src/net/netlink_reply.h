// The kernel's answers to dumps of its links and addresses, taken apart. Nothing is read past the
// end of an answer, whatever it holds.
#ifndef QIV_NET_NETLINK_REPLY_H
#define QIV_NET_NETLINK_REPLY_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace qiv::net {

/** The first 16 addresses that a dump reports, each with the index of its interface. */
template <std::size_t Size>
struct AddressTable {
  using Address = std::array<unsigned char, Size>;
  struct Entry {
    unsigned int interface;
    Address address;
  };
  static constexpr std::size_t kMaxEntries = 16;

  std::array<Entry, kMaxEntries> entries;
  std::size_t count;

  [[nodiscard]] const Entry* begin() const noexcept { return entries.data(); }
  [[nodiscard]] const Entry* end() const noexcept { return entries.data() + count; }
};

/** Of longer link addresses the first 6 bytes; links with shorter ones are left out. */
using LinkTable = AddressTable<6>;
using Ipv6Table = AddressTable<16>;

/** Bytes of an answer. */
struct Reply {
  const unsigned char* bytes;
  std::size_t length;
};

/**
 * Adds what one answer tells; messages of other kinds, and those whose sequence number is another
 * dump's, are left out.
 *
 * @return true when the dump goes on; false when this was its end, also by an error
 */
bool TakeLinks(Reply reply, std::uint32_t sequence, LinkTable& out) noexcept;
bool TakeIpv6Addresses(Reply reply, std::uint32_t sequence, Ipv6Table& out) noexcept;

}  // namespace qiv::net

#endif
