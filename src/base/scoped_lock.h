// Holds a mutex from construction to the end of the scope: one of the library's mutex classes or a
// platform mutex.
#ifndef QIV_BASE_SCOPED_LOCK_H
#define QIV_BASE_SCOPED_LOCK_H

#include <pthread.h>
#include <qiv/types.h>

namespace qiv::base {

template <class Mutex>
class QIV_SCOPED_CAPABILITY ScopedLock {
 public:
  explicit ScopedLock(Mutex& mutex) QIV_ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.Lock(); }
  ~ScopedLock() QIV_RELEASE() { m_mutex.Unlock(); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  Mutex& m_mutex;
};

/** Of records that hold platform mutexes. */
template <>
class ScopedLock<pthread_mutex_t> {
 public:
  explicit ScopedLock(pthread_mutex_t& mutex) noexcept : m_mutex(mutex) {
    pthread_mutex_lock(&m_mutex);
  }
  ~ScopedLock() { pthread_mutex_unlock(&m_mutex); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  pthread_mutex_t& m_mutex;
};

}  // namespace qiv::base

#endif
