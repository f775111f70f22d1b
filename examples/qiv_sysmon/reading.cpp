#include "reading.h"

#include <algorithm>
#include <cstddef>

namespace sysmon {
namespace {

qiv_uint64 Growth(qiv_uint64 before, qiv_uint64 after) {
  return after > before ? after - before : 0;
}

// Time of one or of several processors, in the kernel's ticks.
struct Ticks {
  qiv_uint64 busy = 0;
  qiv_uint64 idle = 0;

  double BusyFraction() const {
    const qiv_uint64 all = busy + idle;
    return all == 0 ? 0 : static_cast<double>(busy) / static_cast<double>(all);
  }
};

Ticks Spent(const QIV_CPU_STAT_T& before, const QIV_CPU_STAT_T& after) {
  return {Growth(before.ullUser, after.ullUser) + Growth(before.ullSystem, after.ullSystem) +
              Growth(before.ullIrq, after.ullIrq),
          Growth(before.ullIdleAll, after.ullIdleAll)};
}

void CompareProcessors(const Snapshot& before, const Snapshot& after, Reading* out) {
  Ticks all;
  // Where a processor went off or came on, the records behind it have moved: look again next time.
  const bool areTheSame = before.processors.size() == after.processors.size();
  for (std::size_t i = 0; i < after.processors.size(); ++i) {
    const Ticks one = areTheSame ? Spent(before.processors[i], after.processors[i]) : Ticks{};
    out->processors.push_back(one.BusyFraction());
    all.busy += one.busy;
    all.idle += one.idle;
  }
  out->busyFraction = all.BusyFraction();
}

double PerSecond(qiv_uint64 before, qiv_uint64 after, qiv_int64 ms) {
  if (ms <= 0) return 0;
  return static_cast<double>(Growth(before, after)) * 1000 / static_cast<double>(ms);
}

Traffic CompareInterface(const Snapshot& before, const InterfaceCounters& after, qiv_int64 ms) {
  const auto found = std::find_if(
      before.interfaces.begin(), before.interfaces.end(),
      [&after](const InterfaceCounters& each) { return each.adapter.name == after.adapter.name; });
  if (found == before.interfaces.end()) return {after, 0, 0};
  return {after, PerSecond(found->receivedBytes, after.receivedBytes, ms),
          PerSecond(found->sentBytes, after.sentBytes, ms)};
}

}  // namespace

qiv_uint64 Storage::UsedBytes() const { return totalBytes - std::min(availableBytes, totalBytes); }

double Storage::UsedFraction() const {
  return totalBytes == 0 ? 0 : static_cast<double>(UsedBytes()) / static_cast<double>(totalBytes);
}

Reading Compare(const Snapshot& before, const Snapshot& after) {
  Reading reading;
  reading.time = after.time;
  reading.intervalMs = after.tickMs - before.tickMs;
  CompareProcessors(before, after, &reading);
  reading.memory = {after.memory.ullTotalPhys, after.memory.ullAvailPhys};
  reading.swap = {after.memory.ullTotalSwap, after.memory.ullAvailSwap};
  for (const InterfaceCounters& each : after.interfaces) {
    reading.interfaces.push_back(CompareInterface(before, each, reading.intervalMs));
  }
  return reading;
}

}  // namespace sysmon
