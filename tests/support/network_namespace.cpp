#include "support/network_namespace.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/veth.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "support/netlink_message.h"
#include "support/sockets.h"

namespace qiv::test {
namespace {

constexpr std::uint16_t kChange = NLM_F_REQUEST | NLM_F_ACK | NLM_F_CREATE | NLM_F_EXCL;

void Require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

/** Sends a change to the kernel and waits for its acknowledgement. */
void Apply(const NetlinkMessage& message, const char* what) {
  const Socket socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  const std::string bytes = message.Bytes();
  Require(send(socket.Get(), bytes.data(), bytes.size(), 0) != -1, what);
  struct {
    nlmsghdr header;
    nlmsgerr error;
    char rest[1024];
  } answer = {};
  Require(recv(socket.Get(), &answer, sizeof(answer), 0) >= 0, what);
  errno = -answer.error.error;
  Require(answer.header.nlmsg_type == NLMSG_ERROR && answer.error.error == 0, what);
}

ifreq RequestFor(const std::string& name) {
  ifreq request = {};
  std::memcpy(request.ifr_name, name.data(), std::min(name.size(), sizeof(request.ifr_name) - 1));
  return request;
}

std::string WithNul(const std::string& text) { return {text.c_str(), text.size() + 1}; }

int FamilyOf(const std::string& address) {
  return address.find(':') == std::string::npos ? AF_INET : AF_INET6;
}

std::string Bytes(const std::string& address) {
  const int family = FamilyOf(address);
  std::string bytes(family == AF_INET6 ? 16 : 4, '\0');
  Require(inet_pton(family, address.c_str(), &bytes[0]) == 1, "no address text");
  return bytes;
}

NetlinkMessage NewAddress(const std::string& name, const std::string& address,
                          unsigned char prefixLength) {
  ifaddrmsg header = {};
  header.ifa_family = static_cast<unsigned char>(FamilyOf(address));
  header.ifa_prefixlen = prefixLength;
  header.ifa_flags = header.ifa_family == AF_INET6 ? IFA_F_NODAD : 0;
  header.ifa_index = if_nametoindex(name.c_str());
  NetlinkMessage message(RTM_NEWADDR, kChange, 1);
  message.Add(header);
  return message;
}

}  // namespace

NetworkNamespace::NetworkNamespace() {
  m_home = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
  if (m_home == -1 || unshare(CLONE_NEWNET) != 0) return;
  m_entered = true;
  m_control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

NetworkNamespace::~NetworkNamespace() {
  if (m_control != -1) close(m_control);
  if (m_entered && setns(m_home, CLONE_NEWNET) != 0) std::perror("no way out of the namespace");
  if (m_home != -1) close(m_home);
}

void NetworkNamespace::AddVethPair(const std::string& name, const std::string& peer) {
  NetlinkMessage message(RTM_NEWLINK, kChange, 1);
  message.Add(ifinfomsg{}).AddAttribute(IFLA_IFNAME, WithNul(name));
  const std::size_t info = message.BeginAttribute(IFLA_LINKINFO);
  message.AddAttribute(IFLA_INFO_KIND, "veth");
  const std::size_t data = message.BeginAttribute(IFLA_INFO_DATA);
  const std::size_t other = message.BeginAttribute(VETH_INFO_PEER);
  message.Add(ifinfomsg{}).AddAttribute(IFLA_IFNAME, WithNul(peer));
  message.EndAttribute(other).EndAttribute(data).EndAttribute(info);
  Apply(message, "no veth pair");
}

void NetworkNamespace::SetUp(const std::string& name) {
  ifreq request = RequestFor(name);
  Require(ioctl(m_control, SIOCGIFFLAGS, &request) == 0, "no flags to read");
  request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
  Require(ioctl(m_control, SIOCSIFFLAGS, &request) == 0, "no flags to set");
}

void NetworkNamespace::SetMac(const std::string& name, const Mac& mac) {
  ifreq request = RequestFor(name);
  Require(ioctl(m_control, SIOCGIFHWADDR, &request) == 0, "no hardware address to read");
  std::memcpy(request.ifr_hwaddr.sa_data, mac.data(), mac.size());
  Require(ioctl(m_control, SIOCSIFHWADDR, &request) == 0, "no hardware address to set");
}

Mac NetworkNamespace::MacOf(const std::string& name) {
  ifreq request = RequestFor(name);
  Require(ioctl(m_control, SIOCGIFHWADDR, &request) == 0, "no hardware address to read");
  Mac mac = {};
  std::memcpy(mac.data(), request.ifr_hwaddr.sa_data, mac.size());
  return mac;
}

void NetworkNamespace::AddAddress(const std::string& name, const std::string& address,
                                  unsigned char prefixLength, const std::string& label) {
  NetlinkMessage message = NewAddress(name, address, prefixLength);
  message.AddAttribute(IFA_LOCAL, Bytes(address)).AddAttribute(IFA_ADDRESS, Bytes(address));
  if (!label.empty()) message.AddAttribute(IFA_LABEL, WithNul(label));
  Apply(message, "no address to add");
}

void NetworkNamespace::AddPeerAddress(const std::string& name, const std::string& address,
                                      const std::string& peer) {
  NetlinkMessage message = NewAddress(name, address, 128);
  message.AddAttribute(IFA_LOCAL, Bytes(address)).AddAttribute(IFA_ADDRESS, Bytes(peer));
  Apply(message, "no address of a link to add");
}

bool NetworkNamespace::DisableIpv6() {
  std::ofstream file("/proc/sys/net/ipv6/conf/all/disable_ipv6");
  if ((file << 1 << std::flush).good()) return true;
  std::puts("[  SKIPPED ] no permission to switch IPv6 off: /proc/sys cannot be written");
  return false;
}

QuietNetwork::QuietNetwork() {
  if (!m_network.IsEntered()) return;
  m_network.SetUp("lo");
  m_network.AddVethPair("v0", "v1");
  m_network.AddAddress("v0", "10.0.0.1", 24);
  m_network.AddAddress("v1", "10.0.0.2", 24);
  m_network.AddAddress("v0", "fd00::1", 64);
}

void TellThatNamespacesAreNotPermitted() {
  std::puts("[  SKIPPED ] no permission to make network namespaces: needs root");
}

}  // namespace qiv::test
