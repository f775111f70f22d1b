// Holds a pool's mutex to the end of the scope, unless the pool works without a lock: then whoever
// calls serialises all calls, which comes to the same for what the mutex guards.
#ifndef QIV_MEMORY_POOL_LOCK_H
#define QIV_MEMORY_POOL_LOCK_H

#include <qiv/mutex.h>

namespace qiv::memory {

class QIV_SCOPED_CAPABILITY PoolLock {
 public:
  PoolLock(QIV_Mutex& mutex, bool noLock) noexcept QIV_ACQUIRE(mutex) QIV_NO_THREAD_SAFETY_ANALYSIS
      : m_mutex(noLock ? nullptr : &mutex) {
    if (m_mutex != nullptr) m_mutex->Lock();
  }
  ~PoolLock() QIV_RELEASE() QIV_NO_THREAD_SAFETY_ANALYSIS {
    if (m_mutex != nullptr) m_mutex->Unlock();
  }
  PoolLock(const PoolLock&) = delete;
  PoolLock& operator=(const PoolLock&) = delete;

 private:
  QIV_Mutex* m_mutex;
};

}  // namespace qiv::memory

#endif
