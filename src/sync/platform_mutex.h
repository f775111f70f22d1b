// The platform's mutex inside one of the library's, for waits on a condition.
#ifndef QIV_SYNC_PLATFORM_MUTEX_H
#define QIV_SYNC_PLATFORM_MUTEX_H

#include <pthread.h>
#include <qiv/mutex.h>

#include <type_traits>

#include "base/load_time_mutex.h"

namespace qiv::sync {

template <class Mutex>
pthread_mutex_t* PlatformMutex(Mutex& mutex) noexcept {
  static_assert(std::is_same<Mutex, QIV_Mutex>::value ||
                    std::is_same<Mutex, QIV_UniqueMutex>::value ||
                    std::is_same<Mutex, base::LoadTimeMutex>::value,
                "one of the library's");
  static_assert(std::is_standard_layout<Mutex>::value && sizeof(Mutex) == sizeof(pthread_mutex_t),
                "the platform's mutex is the only member");
  return reinterpret_cast<pthread_mutex_t*>(&mutex);
}

}  // namespace qiv::sync

#endif
