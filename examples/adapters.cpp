// Adapters: lists the host's network adapters with their addresses, and the address family that the
// host prefers. It checks that each adapter is found again by its IPv4 address.
#include <qiv/adapter.h>
#include <qiv/address.h>
#include <qiv/library.h>

#include <cstdio>
#include <cstring>

namespace {

const char* FamilyName(int family) {
  switch (family) {
    case AF_INET:
      return "IPv4";
    case AF_INET6:
      return "IPv6";
    case QIV_AF_INET6_DUAL:
      return "IPv4 and IPv6";
    default:
      return "none";
  }
}

void PrintMac(const unsigned char* mac) {
  for (int i = 0; i < QIV_MAC_BYTES; ++i) std::printf(i == 0 ? "%02x" : ":%02x", mac[i]);
}

void PrintIpv6(const QIV_IP6_NODE& node) {
  QIV_ADDR_T address;
  char text[64] = {};
  QIV_MakeAddr6ByInt(node.byAddr, 0, &address);
  QIV_GetAddrStringEx(&address, text, sizeof text);
  std::printf("  %s\n", text);
}

void Print(const QIV_ADAPTER_INFO& adapter) {
  std::printf("%u: %s, hardware address ", adapter.dwIndex, adapter.szName);
  PrintMac(adapter.byMac);
  std::printf("\n");
  for (const QIV_IP4_NODE* node = adapter.pIpv4List; node != nullptr; node = node->pNext) {
    std::printf("  %s, mask %s\n", node->szAddr, node->szMask);
  }
  for (const QIV_IP6_NODE* node = adapter.pIpv6List; node != nullptr; node = node->pNext) {
    PrintIpv6(*node);
  }
}

bool HasAddress(const QIV_ADAPTER_INFO& adapter, const char* ip) {
  const QIV_IP4_NODE* node = adapter.pIpv4List;
  while (node != nullptr && std::strcmp(node->szAddr, ip) != 0) node = node->pNext;
  return node != nullptr;
}

// An address that several adapters have may lead to any of them.
bool LeadsToAnAdapter(const char* ip, const QIV_ADAPTER_INFO* adapters) {
  unsigned char mac[QIV_MAC_BYTES] = {};
  unsigned int length = sizeof mac;
  if (QIV_GetMacAddr(ip, mac, &length) != QIV_OK) return false;
  for (const QIV_ADAPTER_INFO* each = adapters; each != nullptr; each = each->pNext) {
    if (HasAddress(*each, ip) && std::memcmp(each->byMac, mac, sizeof mac) == 0) return true;
  }
  return false;
}

bool AllAddressesLeadBack(const QIV_ADAPTER_INFO* adapters) {
  for (const QIV_ADAPTER_INFO* each = adapters; each != nullptr; each = each->pNext) {
    for (const QIV_IP4_NODE* node = each->pIpv4List; node != nullptr; node = node->pNext) {
      if (!LeadsToAnAdapter(node->szAddr, adapters)) return false;
    }
  }
  return true;
}

bool ListAdapters() {
  QIV_ADAPTER_INFO* adapters = nullptr;
  if (QIV_GetAdapterInfo(&adapters) != QIV_OK) return false;
  for (const QIV_ADAPTER_INFO* each = adapters; each != nullptr; each = each->pNext) Print(*each);
  const bool isRight = AllAddressesLeadBack(adapters);
  QIV_FreeAdapterInfo(adapters);
  return isRight;
}

}  // namespace

int main() {
  if (QIV_Init() != QIV_OK) {
    std::fprintf(stderr, "adapters: the library does not start\n");
    return 1;
  }
  const bool isRight = ListAdapters();
  if (!isRight) std::fprintf(stderr, "adapters: the list is not right\n");
  std::printf("address families: %s\n", FamilyName(QIV_GetAf_Inner(QIV_AF_PREFERRED)));
  QIV_Fini();
  return isRight ? 0 : 1;
}
