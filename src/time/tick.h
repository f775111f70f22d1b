// How a reading of the monotonic clock becomes a tick.
#ifndef QIV_TIME_TICK_H
#define QIV_TIME_TICK_H

#include <qiv/types.h>
#include <time.h>

namespace qiv {

/** Milliseconds, rounded half up, modulo 2^32. */
unsigned int TickFrom(const timespec& clock) noexcept;

/** Milliseconds, rounded half up. */
qiv_int64 Tick64From(const timespec& clock) noexcept;

}  // namespace qiv

#endif
