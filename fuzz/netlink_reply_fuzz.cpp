// Netlink answers: whatever one holds, nothing is read past its end and no more than a table's
// entries are filled. The first byte is the sequence number of the dump, the rest is the answer.
#include "net/netlink_reply.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::uint32_t sequence = data[0];
  const qiv::net::Reply reply = {data + 1, size - 1};
  qiv::net::LinkTable links = {};
  qiv::net::Ipv6Table addresses = {};
  const bool linksGoOn = qiv::net::TakeLinks(reply, sequence, links);
  const bool addressesGoOn = qiv::net::TakeIpv6Addresses(reply, sequence, addresses);
  if (linksGoOn != addressesGoOn) std::abort();
  if (links.count > links.kMaxEntries || addresses.count > addresses.kMaxEntries) std::abort();
  return 0;
}
