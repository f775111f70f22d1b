#include "sync/semaphore_wait.h"

#include <qiv/semaphore.h>
#include <qiv/time.h>
#include <time.h>

#include "base/deadline.h"

namespace qiv::sync {
namespace {

timespec WallClock() {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  return now;
}

}  // namespace

bool WaitForSemaphore(sem_t* sem, unsigned int ms) {
  if (ms == QIV_INFINITE) return QIV_SemWait(sem) == QIV_OK;
  const qiv_int64 end = QIV_GetTimeTick64() + ms;
  qiv_int64 left = ms;
  // The platform waits by the wall clock, which may be set meanwhile; the tick decides.
  while (left > 0) {
    const base::Deadline deadline =
        base::Deadline::After(WallClock(), static_cast<unsigned int>(left));
    if (sem_timedwait(sem, deadline.Get()) == 0) return true;
    left = end - QIV_GetTimeTick64();
  }
  return QIV_SemTimedWait(sem, 0) == QIV_OK;
}

}  // namespace qiv::sync
