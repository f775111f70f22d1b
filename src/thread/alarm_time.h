// The arithmetic of the alarm clock: ticks and delays in milliseconds.
#ifndef QIV_THREAD_ALARM_TIME_H
#define QIV_THREAD_ALARM_TIME_H

#include <qiv/types.h>

#include <limits>

namespace qiv::thread {

/** The tick `delay` milliseconds after `now`, which is not negative. A negative delay counts as 0;
 *  a sum past the last tick is the last one. */
constexpr qiv_int64 DueTime(qiv_int64 now, qiv_int64 delay) noexcept {
  constexpr qiv_int64 kLastTick = std::numeric_limits<qiv_int64>::max();
  if (delay <= 0) return now;
  return delay > kLastTick - now ? kLastTick : now + delay;
}

/** The next piece of a wait of `remaining` milliseconds: as much as one wait on a condition takes.
 */
constexpr unsigned int WaitPiece(qiv_int64 remaining) noexcept {
  constexpr unsigned int kLongest = std::numeric_limits<unsigned int>::max();
  return remaining < kLongest ? static_cast<unsigned int>(remaining) : kLongest;
}

}  // namespace qiv::thread

#endif
