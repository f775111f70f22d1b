// Numbers threads where the platform's thread id does not fit 32 bits.
//
// Each thread that has an id has an entry: from its creation to its join when the table created it,
// from its first question for its own id to its end when somebody else did (a foreign thread).
#ifndef QIV_THREAD_THREAD_ID_TABLE_H
#define QIV_THREAD_THREAD_ID_TABLE_H

#include <pthread.h>
#include <qiv/types.h>

#include <cstddef>
#include <memory>

#include "base/constant_mutex.h"
#include "thread/platform_thread.h"

namespace qiv::thread {

/** Any threads may use one table at once. Entries that are left need Clear(): it has no destructor,
 *  since threads may still ask while the process ends. */
class ThreadIdTable {
 public:
  constexpr ThreadIdTable() noexcept = default;
  ThreadIdTable(const ThreadIdTable&) = delete;
  ThreadIdTable& operator=(const ThreadIdTable&) = delete;

  /** Starts a joinable thread; its id, or QIV_INVALID_ID when none was started. */
  unsigned int Create(const pthread_attr_t* attributes, ThreadRoutine routine,
                      void* argument) noexcept;

  /** The calling thread's id, entering it as a foreign thread when it has none; QIV_INVALID_ID when
   *  memory is short. */
  unsigned int Self() noexcept;

  /** Takes the calling thread out as it ends; false when its entry is a joiner's to remove. */
  bool SelfEnds() noexcept;

  /** Joins a thread and removes its entry; QIV_ERROR when it cannot be joined.
   *  @param joinThread  waits for the thread and releases it; a test may put another in its place
   */
  int Join(unsigned int id, int (*joinThread)(pthread_t, void**) = pthread_join);

  /** Changes the priority of the calling thread or of one that nobody is joining; 0 or QIV_ERROR.
   */
  int SetPriority(unsigned int id, int priority) noexcept;

  /** The next thread gets `id`, or the first one behind it that is valid and not taken. */
  void NumberFrom(unsigned int id) noexcept;

  /** The child of a fork finds the table as it was and unlocked. */
  void LockForFork() noexcept;
  void UnlockAfterFork() noexcept;

  std::size_t Size() noexcept;

  /** Forgets every thread. */
  void Clear() noexcept;

 private:
  struct Entry;
  class Joining;

  Entry* Find(unsigned int id) noexcept QIV_REQUIRES(m_mutex);
  Entry* FindSelf() noexcept QIV_REQUIRES(m_mutex);
  Entry* FindLeftover(pthread_t thread) noexcept QIV_REQUIRES(m_mutex);
  unsigned int Enter(std::unique_ptr<Entry> entry) noexcept QIV_REQUIRES(m_mutex);
  void Remove(const Entry* entry) noexcept QIV_REQUIRES(m_mutex);
  unsigned int NextId() noexcept QIV_REQUIRES(m_mutex);

  base::ConstantMutex m_mutex;
  Entry* m_first QIV_GUARDED_BY(m_mutex) = nullptr;
  unsigned int m_nextId QIV_GUARDED_BY(m_mutex) = 1;
};

}  // namespace qiv::thread

#endif
