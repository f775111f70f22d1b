// The host's adapters: one per IPv4 address, with the IPv6 addresses of the same hardware address.
#include "net/adapter.h"

#include <arpa/inet.h>
#include <qiv/adapter.h>
#include <qiv/debug.h>
#include <qiv/socket.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "base/descriptor.h"
#include "base/diagnostic.h"
#include "base/no_cancellation.h"
#include "net/adapter_netlink.h"
#include "net/interfaces.h"

static_assert(sizeof(void*) != 4 || sizeof(QIV_ADAPTER_INFO) == 436, "size on 32 bits");
static_assert(sizeof(void*) != 4 || offsetof(QIV_ADAPTER_INFO, dwMacLen) == 404, "order");
static_assert(sizeof(void*) != 4 || offsetof(QIV_ADAPTER_INFO, pIpv6List) == 432, "order");
static_assert(offsetof(QIV_ADAPTER_INFO, dwIndex) == sizeof(void*), "the link stands in front");
static_assert(offsetof(QIV_ADAPTER_INFO, szName) == sizeof(void*) + 4, "order");
static_assert(offsetof(QIV_ADAPTER_INFO, byReserved) == sizeof(void*) + 264, "order");
static_assert(offsetof(QIV_ADAPTER_INFO, dwMacLen) == sizeof(void*) + 400, "order");
static_assert(offsetof(QIV_ADAPTER_INFO, byMac) == sizeof(void*) + 404, "order");
static_assert(offsetof(QIV_ADAPTER_INFO, dwReserved) == sizeof(void*) + 412, "order");
static_assert(offsetof(QIV_ADAPTER_INFO, pIpv4List) == sizeof(void*) + 416, "order");
static_assert(offsetof(QIV_ADAPTER_INFO, pReservedList1) == 2 * sizeof(void*) + 416, "order");
static_assert(offsetof(QIV_ADAPTER_INFO, pReservedList2) == 3 * sizeof(void*) + 416, "order");
static_assert(offsetof(QIV_ADAPTER_INFO, pIpv6List) == 4 * sizeof(void*) + 416, "order");
static_assert(sizeof(void*) != 4 || sizeof(QIV_IP4_NODE) == 36, "size on 32 bits");
static_assert(sizeof(void*) != 4 || sizeof(QIV_IP6_NODE) == 36, "size on 32 bits");
static_assert(offsetof(QIV_IP4_NODE, szAddr) == sizeof(void*), "order");
static_assert(offsetof(QIV_IP4_NODE, szMask) == sizeof(void*) + 16, "order");
static_assert(offsetof(QIV_IP6_NODE, byAddr) == sizeof(void*), "order");
static_assert(offsetof(QIV_IP6_NODE, byReserved) == sizeof(void*) + 16, "order");

namespace qiv::net {
namespace {

static_assert(sizeof(MacAddress) == QIV_MAC_BYTES, "the system's length of a hardware address");

template <class Node>
void FreeNodes(Node* node) noexcept {
  while (node != nullptr) {
    Node* const next = node->pNext;
    delete node;
    node = next;
  }
}

void FreeAdapters(QIV_ADAPTER_INFO* adapter) noexcept {
  for (const QIV_ADAPTER_INFO* each = adapter; each != nullptr; each = each->pNext) {
    FreeNodes(each->pIpv4List);
    FreeNodes(each->pReservedList1);
    FreeNodes(each->pReservedList2);
    FreeNodes(each->pIpv6List);
  }
  FreeNodes(adapter);
}

struct AdapterDeleter {
  void operator()(QIV_ADAPTER_INFO* list) const noexcept { FreeAdapters(list); }
};
using AdapterList = std::unique_ptr<QIV_ADAPTER_INFO, AdapterDeleter>;

template <class Node>
void Append(Node*& list, Node* node) noexcept {
  Node** end = &list;
  while (*end != nullptr) end = &(*end)->pNext;
  *end = node;
}

base::Descriptor QuerySocket() noexcept {
  return base::Descriptor(QIV_CreateSocket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
}

bool AddIpv4(int socket, const ifreq& interface, QIV_ADAPTER_INFO& adapter) noexcept {
  adapter.pIpv4List = new (std::nothrow) QIV_IP4_NODE();
  in_addr address = {};
  in_addr mask = {};
  if (adapter.pIpv4List == nullptr || !AskAddress(socket, interface, address) ||
      !AskNetmask(socket, interface, mask)) {
    return false;
  }
  QIV_IP4_NODE& node = *adapter.pIpv4List;
  return inet_ntop(AF_INET, &address, node.szAddr, sizeof(node.szAddr)) != nullptr &&
         inet_ntop(AF_INET, &mask, node.szMask, sizeof(node.szMask)) != nullptr;
}

AdapterList MakeAdapter(int socket, const InterfaceList& interfaces, std::size_t index) noexcept {
  const ifreq& interface = interfaces.records[index];
  AdapterList adapter(new (std::nothrow) QIV_ADAPTER_INFO());
  if (adapter == nullptr) {
    QIV_OutputDebug("zelmar GetAdapterInfo_Inter_Posix new Error 3\n");
    return nullptr;
  }
  adapter->dwIndex = static_cast<QIV_UINT32>(index);
  adapter->dwMacLen = QIV_MAC_BYTES;
  std::memcpy(adapter->szName, interface.ifr_name, strnlen(interface.ifr_name, IFNAMSIZ));
  MacAddress mac = {};
  if (!AskHardwareAddress(socket, interface, mac)) {
    QIV_OutputDebug("zelmar GetAdapterInfo_Inter_Posix ioctl Error 4\n");
    return nullptr;
  }
  std::memcpy(adapter->byMac, mac.data(), mac.size());
  if (!AddIpv4(socket, interface, *adapter)) {
    QIV_OutputDebug("zelmar GetAdapterInfo_Inter_Posix GetIpList_Inter_Posix Error 5\n");
    return nullptr;
  }
  return adapter;
}

/** The adapters without IPv6 addresses, last interface first; false on a failure. */
bool ListAdapters(AdapterList& out) noexcept {
  const base::Descriptor socket = QuerySocket();
  if (!socket.IsOpen()) {
    QIV_OutputDebug("zelmar GetAdapterInfo_Inter_Posix QIV_CreateSocket Error 1\n");
    return false;
  }
  InterfaceList interfaces;
  if (!ListInterfaces(socket.Get(), interfaces)) {
    QIV_OutputDebug("zelmar GetAdapterInfo_Inter_Posix GetAdapterList_Inter_Posix Error 2\n");
    return false;
  }
  for (std::size_t i = interfaces.count; i > 0; --i) {
    AdapterList adapter = MakeAdapter(socket.Get(), interfaces, i - 1);
    if (adapter == nullptr) return false;
    if (out == nullptr) {
      out = std::move(adapter);
    } else {
      Append(out->pNext, adapter.release());
    }
  }
  return true;
}

QIV_ADAPTER_INFO* FindByMac(QIV_ADAPTER_INFO* adapter, const LinkTable::Address& mac) noexcept {
  while (adapter != nullptr && std::memcmp(adapter->byMac, mac.data(), mac.size()) != 0) {
    adapter = adapter->pNext;
  }
  return adapter;
}

/** Stops where memory is short: what is there already stays. */
bool AddIpv6(const Ipv6Table& addresses, unsigned int interface,
             QIV_ADAPTER_INFO& adapter) noexcept {
  for (const Ipv6Table::Entry& entry : addresses) {
    if (entry.interface != interface) continue;
    auto* const node = new (std::nothrow) QIV_IP6_NODE();
    if (node == nullptr) return false;
    std::memcpy(node->byAddr, entry.address.data(), entry.address.size());
    Append(adapter.pIpv6List, node);
  }
  return true;
}

void AddIpv6ToAll(QIV_ADAPTER_INFO* adapters) noexcept {
  LinkTable links;
  Ipv6Table addresses;
  if (!AskLinksAndIpv6Addresses(links, addresses)) return;
  constexpr int kPasses = 2;
  base::Diagnose("loop[%d] find %d mac and %d ip\n", kPasses, static_cast<int>(links.count),
                 static_cast<int>(addresses.count));
  for (const LinkTable::Entry& link : links) {
    QIV_ADAPTER_INFO* const adapter = FindByMac(adapters, link.address);
    if (adapter != nullptr && !AddIpv6(addresses, link.interface, *adapter)) return;
  }
}

bool FindMac(const char* ip, MacAddress& out) noexcept {
  const base::Descriptor socket = QuerySocket();
  InterfaceList interfaces;
  if (!socket.IsOpen() || !ListInterfaces(socket.Get(), interfaces)) return false;
  const in_addr_t wanted = inet_addr(ip);
  for (std::size_t i = interfaces.count; i > 0; --i) {
    const ifreq& interface = interfaces.records[i - 1];
    in_addr address = {};
    if (AskAddress(socket.Get(), interface, address) && address.s_addr == wanted &&
        AskHardwareAddress(socket.Get(), interface, out)) {
      return true;
    }
  }
  return false;
}

}  // namespace

void TellFamily(const QIV_ADAPTER_INFO* adapter, int& family) noexcept {
  bool hasIpv4 = false;
  bool hasIpv6 = false;
  for (; adapter != nullptr; adapter = adapter->pNext) {
    hasIpv4 = hasIpv4 || adapter->pIpv4List != nullptr;
    hasIpv6 = hasIpv6 || adapter->pIpv6List != nullptr;
  }
  if (hasIpv4) family = hasIpv6 ? QIV_AF_INET6_DUAL : AF_INET;
  if (hasIpv6 && !hasIpv4) family = AF_INET6;
}

}  // namespace qiv::net

extern "C" {

int QIV_GetMacAddr(const char* ip, unsigned char* mac, unsigned int* len) noexcept {
  if (ip == nullptr || mac == nullptr || len == nullptr || *len == 0) {
    QIV_OutputDebug("zelmar QIV_GetMacAddr parameter error, return QIV_ERROR\n");
    return QIV_ERROR;
  }
  const qiv::base::NoCancellation noCancellation;
  const unsigned int room = std::min<unsigned int>(*len, QIV_MAC_BYTES);
  *len = QIV_MAC_BYTES;
  qiv::net::MacAddress found = {};
  if (!qiv::net::FindMac(ip, found)) return QIV_ERROR;
  std::memcpy(mac, found.data(), room);
  return QIV_OK;
}

int QIV_GetAdapterInfo(QIV_ADAPTER_INFO** list) noexcept {
  if (list == nullptr) return QIV_ERROR;
  const qiv::base::NoCancellation noCancellation;
  qiv::net::AdapterList adapters;
  if (!qiv::net::ListAdapters(adapters)) return QIV_ERROR;
  qiv::net::AddIpv6ToAll(adapters.get());
  *list = adapters.release();
  return QIV_OK;
}

int QIV_GetAdapterInfoEx(QIV_ADAPTER_INFO** list, int* af) noexcept {
  if (af == nullptr) return QIV_ERROR;
  const int result = QIV_GetAdapterInfo(list);
  if (result != QIV_OK) return result;
  qiv::net::TellFamily(*list, *af);
  return QIV_OK;
}

int QIV_FreeAdapterInfo(QIV_ADAPTER_INFO* list) noexcept {
  qiv::net::FreeAdapters(list);
  return QIV_OK;
}

}  // extern "C"
