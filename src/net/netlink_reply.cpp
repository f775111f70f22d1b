#include "net/netlink_reply.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace qiv::net {
namespace {

constexpr std::uint16_t kAddressAttribute = 1;
static_assert(kAddressAttribute == IFLA_ADDRESS && kAddressAttribute == IFA_ADDRESS,
              "the same number for links and addresses");

/** Takes a structure off the front; false when there are fewer bytes. */
template <class T>
bool TakeOff(Reply& rest, T& out) noexcept {
  if (rest.length < sizeof(out)) return false;
  std::memcpy(&out, rest.bytes, sizeof(out));
  rest = {rest.bytes + sizeof(out), rest.length - sizeof(out)};
  return true;
}

/**
 * Takes a header and what belongs to it off the front: `length` bytes, which both headers count
 * with themselves, and the filling behind them.
 */
template <class Header, class Length>
bool TakePart(Reply& rest, Header& header, Length Header::*length, Reply& body) noexcept {
  Reply behindHeader = rest;
  if (!TakeOff(behindHeader, header)) return false;
  const std::size_t whole = header.*length;
  if (whole < sizeof(header) || whole > rest.length) return false;
  body = {behindHeader.bytes, whole - sizeof(header)};
  const std::size_t filled = std::min<std::size_t>(NLMSG_ALIGN(whole), rest.length);
  rest = {rest.bytes + filled, rest.length - filled};
  return true;
}
static_assert(static_cast<int>(NLMSG_ALIGNTO) == static_cast<int>(RTA_ALIGNTO), "both headers");

bool FindAddress(Reply attributes, Reply& value) noexcept {
  rtattr header;
  while (TakePart(attributes, header, &rtattr::rta_len, value)) {
    if (header.rta_type == kAddressAttribute) return true;
  }
  return false;
}

template <std::size_t Size>
void AddAddress(unsigned int interface, Reply attributes, AddressTable<Size>& out) noexcept {
  Reply value = {};
  if (out.count == out.kMaxEntries) return;
  if (!FindAddress(attributes, value) || value.length < Size) return;
  out.entries[out.count].interface = interface;
  std::memcpy(out.entries[out.count].address.data(), value.bytes, Size);
  ++out.count;
}

void Take(std::uint16_t type, Reply body, LinkTable& out) noexcept {
  ifinfomsg link;
  if (type != RTM_NEWLINK || !TakeOff(body, link)) return;
  AddAddress(static_cast<unsigned int>(link.ifi_index), body, out);
}

void Take(std::uint16_t type, Reply body, Ipv6Table& out) noexcept {
  ifaddrmsg address;
  if (type != RTM_NEWADDR || !TakeOff(body, address) || address.ifa_family != AF_INET6) return;
  AddAddress(address.ifa_index, body, out);
}

template <class Table>
bool TakeAll(Reply reply, std::uint32_t sequence, Table& out) noexcept {
  nlmsghdr header;
  Reply body = {};
  while (TakePart(reply, header, &nlmsghdr::nlmsg_len, body)) {
    if (header.nlmsg_seq != sequence) continue;
    if (header.nlmsg_type == NLMSG_DONE || header.nlmsg_type == NLMSG_ERROR) return false;
    Take(header.nlmsg_type, body, out);
  }
  return true;
}

}  // namespace

bool TakeLinks(Reply reply, std::uint32_t sequence, LinkTable& out) noexcept {
  return TakeAll(reply, sequence, out);
}

bool TakeIpv6Addresses(Reply reply, std::uint32_t sequence, Ipv6Table& out) noexcept {
  return TakeAll(reply, sequence, out);
}

}  // namespace qiv::net
