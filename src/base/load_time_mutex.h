// A mutex that is built while the library is loaded and is never destroyed: threads that still run
// while the process exits go on locking it, and a platform's mutex holds nothing but its own
// memory.
#ifndef QIV_BASE_LOAD_TIME_MUTEX_H
#define QIV_BASE_LOAD_TIME_MUTEX_H

#include <pthread.h>
#include <qiv/mutex.h>

namespace qiv::base {

class QIV_CAPABILITY LoadTimeMutex {
 public:
  /** With the types of QIV_MutexCreate(). */
  explicit LoadTimeMutex(int type) noexcept { QIV_MutexCreate(&m_mutex, type); }
  LoadTimeMutex(const LoadTimeMutex&) = delete;
  LoadTimeMutex& operator=(const LoadTimeMutex&) = delete;

  int Lock() noexcept QIV_ACQUIRE() { return QIV_MutexLock(&m_mutex); }
  int Unlock() noexcept QIV_RELEASE() { return QIV_MutexUnlock(&m_mutex); }

 private:
  pthread_mutex_t m_mutex;
};

}  // namespace qiv::base

#endif
