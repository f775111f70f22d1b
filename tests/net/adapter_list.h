// The library's list of adapters in terms of tests.
#ifndef QIV_TESTS_NET_ADAPTER_LIST_H
#define QIV_TESTS_NET_ADAPTER_LIST_H

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <qiv/adapter.h>

#include <memory>
#include <string>
#include <vector>

namespace qiv::test {

struct AdapterListDeleter {
  void operator()(QIV_ADAPTER_INFO* list) const { EXPECT_EQ(0, QIV_FreeAdapterInfo(list)); }
};
using AdapterList = std::unique_ptr<QIV_ADAPTER_INFO, AdapterListDeleter>;

inline AdapterList GetAdapters() {
  QIV_ADAPTER_INFO* list = nullptr;
  EXPECT_EQ(0, QIV_GetAdapterInfo(&list));
  return AdapterList(list);
}

inline std::vector<std::string> Ipv6Texts(const QIV_ADAPTER_INFO& adapter) {
  std::vector<std::string> texts;
  for (const QIV_IP6_NODE* node = adapter.pIpv6List; node != nullptr; node = node->pNext) {
    char text[INET6_ADDRSTRLEN] = {};
    inet_ntop(AF_INET6, node->byAddr, text, sizeof(text));
    texts.emplace_back(text);
  }
  return texts;
}

/** One line per adapter: "1 eth0 10.1.2.3/255.255.255.0 fd00::1 fe80::1". */
inline std::vector<std::string> Lines(const QIV_ADAPTER_INFO* adapter) {
  std::vector<std::string> lines;
  for (; adapter != nullptr; adapter = adapter->pNext) {
    std::string line = std::to_string(adapter->dwIndex) + " " + adapter->szName;
    for (const QIV_IP4_NODE* node = adapter->pIpv4List; node != nullptr; node = node->pNext) {
      line += std::string(" ") + node->szAddr + "/" + node->szMask;
    }
    for (const std::string& text : Ipv6Texts(*adapter)) line += " " + text;
    lines.push_back(line);
  }
  return lines;
}

inline std::vector<std::string> Lines(const AdapterList& list) { return Lines(list.get()); }

}  // namespace qiv::test

#endif
