// What the library's counters say at one moment.
#pragma once

#include <qiv/system.h>
#include <qiv/types.h>

#include <string>
#include <vector>

namespace sysmon {

struct Adapter {
  std::string name;
  std::vector<std::string> addresses;
};

struct InterfaceCounters {
  Adapter adapter;
  qiv_uint64 receivedBytes = 0;
  qiv_uint64 receivedPackets = 0;
  qiv_uint64 sentBytes = 0;
  qiv_uint64 sentPackets = 0;
};

struct Snapshot {
  QIV_TIME_T time = 0;   // microseconds since 1970
  qiv_int64 tickMs = 0;  // of the monotonic clock: rates do not jump with the wall clock
  std::vector<QIV_CPU_STAT_T> processors;
  QIV_MEMORY_STATUS_T memory = {};
  std::vector<InterfaceCounters> interfaces;
};

// Reads the counters again and again.
class Sampler {
 public:
  // False when the system does not give its figures.
  bool Take(Snapshot* out);

 private:
  // Those of the last time when a list cannot be had: an interface that vanishes in its middle
  // makes the whole list fail.
  std::vector<Adapter> m_adapters;
};

}  // namespace sysmon
