// Codes and sizes of the log service.
#ifndef QIV_LOG_LOG_SERVICE_H
#define QIV_LOG_LOG_SERVICE_H

#include <qiv/log.h>

/** What the writer thread takes out of the queue in one go: lines that lie one behind the other. */
struct LogService::Batch {
  enum { kMostLines = 1024 };

  unsigned int count = 0;
  _LOG lines[kMostLines];
};

namespace qiv::log {

enum Code : int {
  kSuccess = 0,
  kNoResources = -1,
  kNotRunning = -2,
  kFiltered = -3,
  kRingFull = -4,
  kNoTarget = -5,
  kBadArgument = -6,
  kNotFormatted = -7,
  kNoFile = -8,
  kLost = -9,  // never told to callers
};

/** Around a fork: the child finds unlocked what FormatTimeAndName() locks. */
void LockDatesForFork() noexcept;
void UnlockDatesAfterFork() noexcept;

/** A line of WriteLog(), with its CR, LF and NUL. */
constexpr unsigned int kLineBytes = 2048;

}  // namespace qiv::log

#endif
