#include "snapshot.h"

#include <fcntl.h>
#include <qiv/adapter.h>
#include <qiv/address.h>
#include <qiv/time.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

namespace sysmon {
namespace {

// Keeps standard error silent during its life. The library tells about each list of adapters there,
// which would bury the program's own messages and spoil the screen. There is one thread, so nobody
// else's words are lost.
class Silence {
 public:
  Silence() : m_standardError(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
    if (m_standardError == -1) return;
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere == -1) return;
    dup2(nowhere, STDERR_FILENO);
    close(nowhere);
  }
  ~Silence() {
    if (m_standardError == -1) return;
    dup2(m_standardError, STDERR_FILENO);
    close(m_standardError);
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  int m_standardError;
};

struct AdapterFreer {
  void operator()(QIV_ADAPTER_INFO* list) const { QIV_FreeAdapterInfo(list); }
};
using AdapterList = std::unique_ptr<QIV_ADAPTER_INFO, AdapterFreer>;

std::string Ipv6Text(const QIV_IP6_NODE& node) {
  QIV_ADDR_T address;
  char text[64] = {};
  QIV_MakeAddr6ByInt(node.byAddr, 0, &address);
  QIV_GetAddrStringEx(&address, text, sizeof text);
  return text;
}

// The system lists an address with a label of its own as "eth0:label"; it is one of eth0.
std::string InterfaceName(const QIV_ADAPTER_INFO& info) {
  const std::string name = info.szName;
  return name.substr(0, name.find(':'));
}

void AddAddresses(const QIV_ADAPTER_INFO& info, std::vector<std::string>* out) {
  for (const QIV_IP4_NODE* node = info.pIpv4List; node != nullptr; node = node->pNext) {
    out->emplace_back(node->szAddr);
  }
  for (const QIV_IP6_NODE* node = info.pIpv6List; node != nullptr; node = node->pNext) {
    out->push_back(Ipv6Text(*node));
  }
}

// An interface stands in the list once for each of its IPv4 addresses; here it comes once.
void Merge(const QIV_ADAPTER_INFO& info, std::vector<Adapter>* out) {
  const std::string name = InterfaceName(info);
  auto found = std::find_if(out->begin(), out->end(),
                            [&name](const Adapter& adapter) { return adapter.name == name; });
  if (found == out->end()) found = out->insert(out->end(), Adapter{name, {}});
  AddAddresses(info, &found->addresses);
}

bool ListAdapters(std::vector<Adapter>* out) {
  QIV_ADAPTER_INFO* first = nullptr;
  {
    const Silence silence;
    if (QIV_GetAdapterInfo(&first) != QIV_OK) return false;
  }
  const AdapterList list(first);
  std::vector<const QIV_ADAPTER_INFO*> inOrder;
  for (const QIV_ADAPTER_INFO* each = first; each != nullptr; each = each->pNext) {
    inOrder.push_back(each);
  }
  std::reverse(inOrder.begin(), inOrder.end());  // the library's first is the system's last
  out->clear();
  for (const QIV_ADAPTER_INFO* each : inOrder) Merge(*each, out);
  return true;
}

// False for an interface that has gone meanwhile.
bool ReadInterface(const Adapter& adapter, InterfaceCounters* out) {
  QIV_NETFLOW_EX_T flow = {};
  adapter.name.copy(flow.szName, sizeof flow.szName - 1);
  if (QIV_GetNetWorkFlowDataEx(&flow) != QIV_OK) return false;
  *out = {adapter, flow.ullRecvBytes, flow.ullRecvPackets, flow.ullSendBytes, flow.ullSendPackets};
  return true;
}

bool ReadProcessors(std::vector<QIV_CPU_STAT_T>* out) {
  const int count = QIV_GetCPUNumber();
  if (count < 1) return false;
  std::vector<QIV_CPU_STAT_T> records(static_cast<std::size_t>(count));
  auto size = static_cast<unsigned int>(records.size() * sizeof(QIV_CPU_STAT_T));
  if (QIV_GetCPUPerformance(records.data(), &size) != QIV_OK) return false;
  // Processors that are offline leave records of zeros at the end.
  const auto isOffline = [](const QIV_CPU_STAT_T& record) {
    return (record.ullIdleAll | record.ullSystem | record.ullUser | record.ullIrq) == 0;
  };
  while (!records.empty() && isOffline(records.back())) records.pop_back();
  *out = std::move(records);
  return true;
}

}  // namespace

bool Sampler::Take(Snapshot* out) {
  Snapshot snapshot;
  snapshot.time = QIV_TimeNow();
  snapshot.tickMs = QIV_GetTimeTick64();
  if (!ReadProcessors(&snapshot.processors) || QIV_GetMemoryStatus(&snapshot.memory) != QIV_OK) {
    return false;
  }
  ListAdapters(&m_adapters);
  for (const Adapter& adapter : m_adapters) {
    InterfaceCounters counters;
    if (ReadInterface(adapter, &counters)) snapshot.interfaces.push_back(counters);
  }
  *out = std::move(snapshot);
  return true;
}

}  // namespace sysmon
