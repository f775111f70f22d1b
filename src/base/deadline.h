// A point in time at which a wait ends: the one place where milliseconds become a timespec.
#ifndef QIV_BASE_DEADLINE_H
#define QIV_BASE_DEADLINE_H

#include <limits>

#include <time.h>

namespace qiv::base {

class Deadline {
 public:
  /** `ms` milliseconds after `now`, both on the same clock; a sum past the clock's end is its end.
   */
  static Deadline After(const timespec& now, unsigned int ms) noexcept {
    constexpr long kNanosecondsPerSecond = 1000000000L;
    constexpr long kNanosecondsPerMillisecond = 1000000L;
    constexpr time_t kLastSecond = std::numeric_limits<time_t>::max();
    const long nanoseconds =
        now.tv_nsec + static_cast<long>(ms % 1000) * kNanosecondsPerMillisecond;
    const time_t seconds =
        static_cast<time_t>(ms / 1000) + static_cast<time_t>(nanoseconds / kNanosecondsPerSecond);
    Deadline deadline;
    deadline.m_time.tv_sec =
        now.tv_sec > kLastSecond - seconds ? kLastSecond : now.tv_sec + seconds;
    deadline.m_time.tv_nsec = nanoseconds % kNanosecondsPerSecond;
    return deadline;
  }

  const timespec* Get() const noexcept { return &m_time; }

 private:
  timespec m_time = {};
};

}  // namespace qiv::base

#endif
