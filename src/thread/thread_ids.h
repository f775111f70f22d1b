// The 32-bit thread ids, with one implementation for each width of the platform's own id.
//
// An implementation is a set of static functions: Create, Self, Join, SetPriority, and a pair that
// is called around a fork so that the child can go on creating. Both compile everywhere; ThreadIds
// is the one that the library uses.
#ifndef QIV_THREAD_THREAD_IDS_H
#define QIV_THREAD_THREAD_IDS_H

#include <pthread.h>
#include <qiv/types.h>

#include <cstring>
#include <type_traits>

#include "thread/platform_thread.h"

namespace qiv::thread {

/** The platform's own ids, as unsigned integers of their width. */
template <class Id>
class PlatformThreadIds {
  static_assert(sizeof(Id) == sizeof(pthread_t), "an id is the platform's id, bit for bit");

 public:
  static constexpr Id kInvalid = static_cast<Id>(-1);

  static Id Create(const pthread_attr_t* attributes, ThreadRoutine routine,
                   void* argument) noexcept {
    pthread_t thread;
    return pthread_create(&thread, attributes, routine, argument) == 0 ? ToId(thread) : kInvalid;
  }

  static Id Self() noexcept { return ToId(pthread_self()); }

  static int Join(Id id) { return pthread_join(ToThread(id), nullptr) == 0 ? QIV_OK : QIV_ERROR; }

  static int SetPriority(Id id, int priority) noexcept {
    return ChangePriority(ToThread(id), priority);
  }

  static void LockForFork() noexcept {}
  static void UnlockAfterFork() noexcept {}

 private:
  static Id ToId(pthread_t thread) noexcept {
    Id id;
    std::memcpy(&id, &thread, sizeof(id));
    return id;
  }
  static pthread_t ToThread(Id id) noexcept {
    pthread_t thread;
    std::memcpy(&thread, &id, sizeof(thread));
    return thread;
  }
};

/** Ids from the library's table. A thread remembers its own, so that it asks without a lock. */
class TableThreadIds {
 public:
  static constexpr unsigned int kInvalid = QIV_INVALID_ID;

  static unsigned int Create(const pthread_attr_t* attributes, ThreadRoutine routine,
                             void* argument) noexcept;
  static unsigned int Self() noexcept;
  static int Join(unsigned int id);
  static int SetPriority(unsigned int id, int priority) noexcept;
  static void LockForFork() noexcept;
  static void UnlockAfterFork() noexcept;
};

using ThreadIds = std::conditional_t<sizeof(pthread_t) == sizeof(unsigned int),
                                     PlatformThreadIds<unsigned int>, TableThreadIds>;

}  // namespace qiv::thread

#endif
