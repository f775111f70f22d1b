// The platform's mutex inside one of the library's, for waits on a condition.
#ifndef QIV_SYNC_PLATFORM_MUTEX_H
#define QIV_SYNC_PLATFORM_MUTEX_H

#include <pthread.h>
#include <qiv/mutex.h>

#include <type_traits>

namespace qiv::sync {

inline pthread_mutex_t* PlatformMutex(QIV_UniqueMutex& mutex) noexcept {
  static_assert(std::is_standard_layout<QIV_UniqueMutex>::value &&
                    sizeof(QIV_UniqueMutex) == sizeof(pthread_mutex_t),
                "the platform's mutex is the only member");
  return reinterpret_cast<pthread_mutex_t*>(&mutex);
}

}  // namespace qiv::sync

#endif
