#include "sync/semaphore_wait.h"

#include <qiv/semaphore.h>
#include <qiv/time.h>
#include <time.h>

#include "base/deadline.h"
#include "base/semaphore_clock.h"

namespace qiv::sync {
namespace {

timespec Now() {
  timespec now = {};
  clock_gettime(base::kSemaphoreClock, &now);
  return now;
}

}  // namespace

bool WaitForSemaphore(sem_t* sem, unsigned int ms) {
  if (ms == QIV_INFINITE) return QIV_SemWait(sem) == QIV_OK;
  const qiv_int64 end = QIV_GetTimeTick64() + ms;
  qiv_int64 left = ms;
  // The tick decides, as the platform's clock may be one that is set meanwhile.
  while (left > 0) {
    const base::Deadline deadline = base::Deadline::After(Now(), static_cast<unsigned int>(left));
    if (base::SemaphoreWaitUntil(sem, deadline.Get()) == 0) return true;
    left = end - QIV_GetTimeTick64();
  }
  return QIV_SemTimedWait(sem, 0) == QIV_OK;
}

}  // namespace qiv::sync
