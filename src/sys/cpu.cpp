// Processors: their count, and the counters of /proc/stat.
#include <qiv/system.h>
#include <unistd.h>

#include <climits>
#include <cstddef>
#include <cstring>

#include "base/no_cancellation.h"
#include "sys/proc_files.h"

static_assert(sizeof(QIV_CPU_STAT_T) == 56, "seven 64-bit counters");
static_assert(offsetof(QIV_CPU_STAT_T, ullSystem) == 8, "order of the counters");
static_assert(offsetof(QIV_CPU_STAT_T, ullUser) == 16, "order of the counters");
static_assert(offsetof(QIV_CPU_STAT_T, ullIdleAll) == 24, "order of the counters");
static_assert(offsetof(QIV_CPU_STAT_T, ullIrq) == 32, "order of the counters");
static_assert(offsetof(QIV_CPU_STAT_T, ullReserved1) == 40, "order of the counters");
static_assert(offsetof(QIV_CPU_STAT_T, ullReserved2) == 48, "order of the counters");

namespace qiv {
namespace {

constexpr const char* kStatFile = "/proc/stat";

// The columns of a processor's line that are used, in the order of the line.
enum Column { kUser, kNice, kSystem, kIdle, kIoWait, kIrq, kSoftIrq, kColumns };

// Kept: the number in "cpuN" is one digit on the first ten lines and two on those behind. Columns
// that are missing are 0.
void ScanProcessor(const char* line, unsigned int index, qiv_uint64 (&columns)[kColumns]) {
  constexpr char kTag[] = "cpu";
  constexpr std::size_t kTagLength = sizeof kTag - 1;
  if (std::strncmp(line, kTag, kTagLength) != 0) return;
  const char* cursor = line + kTagLength;
  const int width = index <= 9 ? 1 : 2;
  int digits = 0;
  while (digits < width && *cursor >= '0' && *cursor <= '9') {
    ++cursor;
    ++digits;
  }
  if (digits == 0) return;
  for (qiv_uint64& column : columns) {
    if (!ScanNumber(&cursor, &column)) return;
  }
}

void PutCounters(const qiv_uint64 (&columns)[kColumns], QIV_CPU_STAT_T* out) {
  out->ullIdle = columns[kIdle];
  out->ullSystem = columns[kSystem];
  out->ullUser = columns[kUser] + columns[kNice];
  out->ullIdleAll = columns[kIdle] + columns[kIoWait];
  out->ullIrq = columns[kIrq] + columns[kSoftIrq];
}

}  // namespace

bool ReadProcessors(std::FILE* stat, unsigned int count, QIV_CPU_STAT_T* out) noexcept {
  LineReader lines(stat);
  lines.Next();
  for (unsigned int i = 0; i < count; ++i) {
    const char* const line = lines.Next();
    if (line == nullptr) return false;
    qiv_uint64 columns[kColumns] = {};
    ScanProcessor(line, i, columns);
    PutCounters(columns, &out[i]);
  }
  return true;
}

}  // namespace qiv

extern "C" {

int QIV_GetCPUNumber(void) noexcept {
  const qiv::base::NoCancellation noCancellation;
  return static_cast<int>(sysconf(_SC_NPROCESSORS_CONF));
}

int QIV_GetCPUPerformance(QIV_CPU_STAT_T* out, unsigned int* size) noexcept {
  if (size == nullptr) return QIV_ERROR;
  const int processors = QIV_GetCPUNumber();
  if (processors < 0) return QIV_ERROR;
  const auto count = static_cast<unsigned int>(processors);
  if (count > UINT_MAX / sizeof(QIV_CPU_STAT_T)) return QIV_ERROR;
  const auto needed = static_cast<unsigned int>(count * sizeof(QIV_CPU_STAT_T));
  const bool fits = *size >= needed;
  *size = needed;
  if (!fits || out == nullptr) return QIV_ERROR;
  const qiv::base::NoCancellation noCancellation;
  const qiv::ProcFile stat(qiv::kStatFile);
  if (stat.Get() == nullptr) return QIV_ERROR;
  return qiv::ReadProcessors(stat.Get(), count, out) ? QIV_OK : QIV_ERROR;
}

}  // extern "C"
