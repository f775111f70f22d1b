// What the library asks the platform about a thread that it knows by the platform's id.
#ifndef QIV_THREAD_PLATFORM_THREAD_H
#define QIV_THREAD_PLATFORM_THREAD_H

#include <pthread.h>
#include <qiv/types.h>
#include <time.h>

#include "base/no_cancellation.h"

namespace qiv::thread {

using ThreadRoutine = void* (*)(void*);

/** Replaces the priority and keeps the policy; 0 or QIV_ERROR. */
inline int ChangePriority(pthread_t thread, int priority) noexcept {
  int policy = 0;
  sched_param parameter = {};
  if (pthread_getschedparam(thread, &policy, &parameter) != 0) return QIV_ERROR;
  parameter.sched_priority = priority;
  return pthread_setschedparam(thread, policy, &parameter) == 0 ? QIV_OK : QIV_ERROR;
}

/** False for a detached thread, and when the platform does not tell. */
inline bool IsJoinable(pthread_t thread) noexcept {
  const base::NoCancellation noCancellation;  // a platform may have to read files for this
  pthread_attr_t attributes;
  if (pthread_getattr_np(thread, &attributes) != 0) return false;
  int state = PTHREAD_CREATE_DETACHED;
  pthread_attr_getdetachstate(&attributes, &state);
  pthread_attr_destroy(&attributes);
  return state == PTHREAD_CREATE_JOINABLE;
}

/**
 * Tells two threads apart that have the same pthread_t one after the other. The platform gives the
 * pthread_t of a joined thread to the next one; the clock of a thread is its own.
 */
struct ThreadIdentity {
  pthread_t thread;
  clockid_t clock;
  bool running;

  /** The thread must not be released yet; `running` is false when it is at its end already. */
  static ThreadIdentity Of(pthread_t thread) noexcept {
    ThreadIdentity identity = {thread, 0, false};
    identity.running = pthread_getcpuclockid(thread, &identity.clock) == 0;
    return identity;
  }

  bool operator==(const ThreadIdentity& other) const noexcept {
    return running && other.running && clock == other.clock &&
           pthread_equal(thread, other.thread) != 0;
  }
};

}  // namespace qiv::thread

#endif
