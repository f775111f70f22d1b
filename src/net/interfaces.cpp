#include "net/interfaces.h"

#include <qiv/debug.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cstring>

namespace qiv::net {
namespace {

// The record goes along with its address: an interface that has several is told apart by it.
bool AskInet(int socket, unsigned int question, const ifreq& interface, in_addr& out) noexcept {
  ifreq request = interface;
  if (ioctl(socket, question, &request) != 0) return false;
  sockaddr_in address = {};
  std::memcpy(&address, &request.ifr_addr, sizeof(address));
  out = address.sin_addr;
  return true;
}

}  // namespace

bool ListInterfaces(int socket, InterfaceList& out) noexcept {
  out = {};
  ifconf request = {};
  request.ifc_len = sizeof(out.records);
  request.ifc_req = out.records.data();
  if (ioctl(socket, SIOCGIFCONF, &request) != 0) {
    QIV_OutputDebug("zelmar GetAdapterList_Inter_Posix ioctl error 1\n");
    return false;
  }
  out.count = std::min(static_cast<std::size_t>(request.ifc_len) / sizeof(ifreq),
                       InterfaceList::kMaxRecords);
  return true;
}

bool AskHardwareAddress(int socket, const ifreq& interface, MacAddress& out) noexcept {
  ifreq request = {};
  std::memcpy(request.ifr_name, interface.ifr_name, sizeof(request.ifr_name));
  if (ioctl(socket, SIOCGIFHWADDR, &request) != 0) return false;
  std::memcpy(out.data(), request.ifr_hwaddr.sa_data, out.size());
  return true;
}

bool AskAddress(int socket, const ifreq& interface, in_addr& out) noexcept {
  return AskInet(socket, SIOCGIFADDR, interface, out);
}

bool AskNetmask(int socket, const ifreq& interface, in_addr& out) noexcept {
  return AskInet(socket, SIOCGIFNETMASK, interface, out);
}

}  // namespace qiv::net
