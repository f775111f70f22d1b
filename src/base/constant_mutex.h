// A non-recursive mutex that needs neither construction nor destruction at run time: for state that
// must be usable before the load of the library is over and until the process is gone.
#ifndef QIV_BASE_CONSTANT_MUTEX_H
#define QIV_BASE_CONSTANT_MUTEX_H

#include <pthread.h>
#include <qiv/types.h>

namespace qiv::base {

class QIV_CAPABILITY ConstantMutex {
 public:
  constexpr ConstantMutex() noexcept = default;
  ConstantMutex(const ConstantMutex&) = delete;
  ConstantMutex& operator=(const ConstantMutex&) = delete;

  void Lock() noexcept QIV_ACQUIRE() { pthread_mutex_lock(&m_mutex); }
  void Unlock() noexcept QIV_RELEASE() { pthread_mutex_unlock(&m_mutex); }

 private:
  pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
};

}  // namespace qiv::base

#endif
