// What has happened between two snapshots. Nothing here reads or prints.
#pragma once

#include <string>
#include <vector>

#include "snapshot.h"

namespace sysmon {

struct Storage {
  qiv_uint64 totalBytes = 0;
  qiv_uint64 availableBytes = 0;

  double UsedFraction() const;
  qiv_uint64 UsedBytes() const;
};

struct Traffic {
  InterfaceCounters counters;    // at the end of the interval
  double receivedPerSecond = 0;  // bytes
  double sentPerSecond = 0;      // bytes
};

struct Reading {
  QIV_TIME_T time = 0;             // of the end of the interval, microseconds since 1970
  qiv_int64 intervalMs = 0;        // that the rates are measured over
  double busyFraction = 0;         // of all processors together, 0 to 1
  std::vector<double> processors;  // each alone, 0 to 1
  Storage memory;
  Storage swap;
  std::vector<Traffic> interfaces;
};

// Counters that went back, as those of an interface that was made anew, count as standing still.
Reading Compare(const Snapshot& before, const Snapshot& after);

}  // namespace sysmon
