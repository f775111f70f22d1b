// The clocks: wall time in microseconds, monotonic ticks in milliseconds.
#include "time/tick.h"

#include <qiv/time.h>
#include <sys/time.h>

namespace qiv {
namespace {

constexpr int kMillisecondsPerSecond = 1000;
constexpr int kMicrosecondsPerSecond = 1000000;
constexpr long kNanosecondsPerMillisecond = 1000000L;

long RoundedMilliseconds(long nanoseconds) {
  return (nanoseconds + kNanosecondsPerMillisecond / 2) / kNanosecondsPerMillisecond;
}

timespec MonotonicClock() {
  timespec clock = {};
  clock_gettime(CLOCK_MONOTONIC, &clock);
  return clock;
}

}  // namespace

unsigned int TickFrom(const timespec& clock) noexcept {
  return static_cast<unsigned int>(Tick64From(clock));
}

qiv_int64 Tick64From(const timespec& clock) noexcept {
  return static_cast<qiv_int64>(clock.tv_sec) * kMillisecondsPerSecond +
         RoundedMilliseconds(clock.tv_nsec);
}

}  // namespace qiv

extern "C" {

QIV_TIME_T QIV_TimeNow(void) noexcept {
  timeval now = {};
  gettimeofday(&now, nullptr);
  return static_cast<QIV_TIME_T>(now.tv_sec) * qiv::kMicrosecondsPerSecond + now.tv_usec;
}

unsigned int QIV_GetTimeTick(void) noexcept { return qiv::TickFrom(qiv::MonotonicClock()); }

qiv_int64 QIV_GetTimeTick64(void) noexcept { return qiv::Tick64From(qiv::MonotonicClock()); }

}  // extern "C"
