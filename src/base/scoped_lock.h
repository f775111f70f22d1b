// Holds a mutex of the library's mutex classes from construction to the end of the scope.
#ifndef QIV_BASE_SCOPED_LOCK_H
#define QIV_BASE_SCOPED_LOCK_H

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

}  // namespace qiv::base

#endif
