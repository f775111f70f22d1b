// A timed wait for a semaphore that sleeps in the platform: for the library's own workers. The
// exported QIV_SemTimedWait() polls instead, which its users rely on.
#ifndef QIV_SYNC_SEMAPHORE_WAIT_H
#define QIV_SYNC_SEMAPHORE_WAIT_H

#include <semaphore.h>

namespace qiv::sync {

/** Takes the semaphore, waiting at most `ms` milliseconds; all bits set is no limit. False when the
 *  time ran out, never early. Where the platform waits by the wall clock alone, one that is set
 *  back meanwhile makes it late. */
bool WaitForSemaphore(sem_t* sem, unsigned int ms);

}  // namespace qiv::sync

#endif
