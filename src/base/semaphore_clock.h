// The clock of timed waits for semaphores: the monotonic one where the platform has such waits.
#ifndef QIV_BASE_SEMAPHORE_CLOCK_H
#define QIV_BASE_SEMAPHORE_CLOCK_H

#include <semaphore.h>
#include <time.h>

// The thread sanitizer does not know sem_clockwait().
#if defined(__GLIBC__) && !defined(__SANITIZE_THREAD__)
#if __GLIBC_PREREQ(2, 30)
#define QIV_HAS_SEM_CLOCKWAIT
#endif
#endif

namespace qiv::base {

#ifdef QIV_HAS_SEM_CLOCKWAIT

constexpr clockid_t kSemaphoreClock = CLOCK_MONOTONIC;

inline int SemaphoreWaitUntil(sem_t* sem, const timespec* deadline) {
  return sem_clockwait(sem, kSemaphoreClock, deadline);
}

#else

constexpr clockid_t kSemaphoreClock = CLOCK_REALTIME;

inline int SemaphoreWaitUntil(sem_t* sem, const timespec* deadline) {
  return sem_timedwait(sem, deadline);
}

#endif

}  // namespace qiv::base

#endif
