// Memory: zeroing, and the figures of /proc/meminfo.
#include <qiv/system.h>

#include <cstddef>
#include <cstring>

#include "base/no_cancellation.h"
#include "sys/proc_files.h"

static_assert(sizeof(QIV_MEMORY_STATUS_T) == 48, "six 64-bit figures");
static_assert(offsetof(QIV_MEMORY_STATUS_T, ullAvailPhys) == 8, "order of the figures");
static_assert(offsetof(QIV_MEMORY_STATUS_T, ullTotalSwap) == 16, "order of the figures");
static_assert(offsetof(QIV_MEMORY_STATUS_T, ullAvailSwap) == 24, "order of the figures");
static_assert(offsetof(QIV_MEMORY_STATUS_T, ullReserved1) == 32, "order of the figures");
static_assert(offsetof(QIV_MEMORY_STATUS_T, ullReserved2) == 40, "order of the figures");

namespace qiv {
namespace {

constexpr const char* kMemoryFile = "/proc/meminfo";
constexpr qiv_uint64 kBytesPerUnit = 1024;

struct Figure {
  const char* key;
  qiv_uint64 bytes = 0;
  bool seen = false;
};

// Takes the line's figure when the line carries `figure->key`.
bool Scan(const char* line, Figure* figure) {
  const std::size_t keyLength = std::strlen(figure->key);
  if (std::strncmp(line, figure->key, keyLength) != 0 || line[keyLength] != ':') return false;
  const char* cursor = line + keyLength + 1;
  qiv_uint64 units = 0;
  if (!ScanNumber(&cursor, &units)) return false;
  figure->bytes = units * kBytesPerUnit;
  figure->seen = true;
  return true;
}

}  // namespace

bool ReadMemory(std::FILE* meminfo, QIV_MEMORY_STATUS_T* out) noexcept {
  enum { kTotal, kAvailable, kFree, kBuffers, kCached, kSwapTotal, kSwapFree };
  Figure figures[] = {{"MemTotal"}, {"MemAvailable"}, {"MemFree"}, {"Buffers"},
                      {"Cached"},   {"SwapTotal"},    {"SwapFree"}};
  const auto complete = [&figures] {
    return figures[kTotal].seen && figures[kSwapTotal].seen && figures[kSwapFree].seen;
  };
  LineReader lines(meminfo);
  while (!complete()) {
    const char* const line = lines.Next();
    if (line == nullptr) break;
    for (Figure& figure : figures) {
      if (Scan(line, &figure)) break;
    }
  }
  out->ullTotalPhys = figures[kTotal].bytes;
  out->ullTotalSwap = figures[kSwapTotal].bytes;
  out->ullAvailSwap = figures[kSwapFree].bytes;
  if (!complete()) return false;
  const Figure& available = figures[kAvailable];
  const Figure& free = figures[kFree];
  const bool useEstimate = available.seen && free.seen && available.bytes > free.bytes;
  out->ullAvailPhys =
      useEstimate ? available.bytes : free.bytes + figures[kBuffers].bytes + figures[kCached].bytes;
  return true;
}

}  // namespace qiv

extern "C" {

void QIV_ZeroMemory(void* p, unsigned int n) noexcept {
  if (p != nullptr) std::memset(p, 0, n);
}

int QIV_GetMemoryStatus(QIV_MEMORY_STATUS_T* out) noexcept {
  if (out == nullptr) return QIV_ERROR;
  *out = {};
  const qiv::base::NoCancellation noCancellation;
  const qiv::ProcFile meminfo(qiv::kMemoryFile);
  if (meminfo.Get() == nullptr) return QIV_ERROR;
  return qiv::ReadMemory(meminfo.Get(), out) ? QIV_OK : QIV_ERROR;
}

}  // extern "C"
