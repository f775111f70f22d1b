// The table of thread ids: a list that is searched from the front.
//
// Everything is guarded by m_mutex. It is held over pthread_create(), so that a new thread finds
// its entry when it asks, and over every call that names another thread, so that the thread is not
// released meanwhile. It is not held over pthread_join(): the entry's `joining` mark keeps all
// others away from the thread, and the joiner alone removes the entry. No other lock is taken under
// m_mutex.
#include "thread/thread_id_table.h"

#include <new>
#include <utility>

#include "base/scoped_lock.h"

namespace qiv::thread {

struct ThreadIdTable::Entry {
  unsigned int id;
  ThreadIdentity identity;
  bool foreign;
  bool joining;
  Entry* next;
};

/** Marks an entry for its joiner until the scope ends, also when the join is cancelled. */
class ThreadIdTable::Joining {
 public:
  Joining(ThreadIdTable* table, unsigned int id) noexcept : m_table(table), m_id(id) {
    const base::ScopedLock lock(m_table->m_mutex);
    Entry* const entry = m_table->Find(id);
    if (entry == nullptr || entry->joining) return;
    if (pthread_equal(entry->identity.thread, pthread_self()) != 0) return;
    if (entry->foreign && !IsJoinable(entry->identity.thread)) return;
    entry->joining = true;
    m_thread = entry->identity.thread;
    m_begun = true;
  }
  ~Joining() {
    if (!m_begun) return;
    const base::ScopedLock lock(m_table->m_mutex);
    Entry* const entry = m_table->Find(m_id);
    if (entry == nullptr) return;
    entry->joining = false;
    if (m_joined) m_table->Remove(entry);
  }
  Joining(const Joining&) = delete;
  Joining& operator=(const Joining&) = delete;

  int Wait(int (*joinThread)(pthread_t, void**)) {
    if (!m_begun) return QIV_ERROR;
    m_joined = joinThread(m_thread, nullptr) == 0;
    return m_joined ? QIV_OK : QIV_ERROR;
  }

 private:
  ThreadIdTable* m_table;
  unsigned int m_id;
  pthread_t m_thread = {};
  bool m_begun = false;
  bool m_joined = false;
};

unsigned int ThreadIdTable::Create(const pthread_attr_t* attributes, ThreadRoutine routine,
                                   void* argument) noexcept {
  // Allocated first: there must be no thread without an id.
  std::unique_ptr<Entry> entry(new (std::nothrow) Entry{});
  if (!entry) return QIV_INVALID_ID;
  const base::ScopedLock lock(m_mutex);
  pthread_t thread;
  if (pthread_create(&thread, attributes, routine, argument) != 0) return QIV_INVALID_ID;
  entry->identity = ThreadIdentity::Of(thread);
  return Enter(std::move(entry));
}

unsigned int ThreadIdTable::Self() noexcept {
  const base::ScopedLock lock(m_mutex);
  const Entry* const known = FindSelf();
  if (known != nullptr) return known->id;
  std::unique_ptr<Entry> entry(new (std::nothrow) Entry{});
  if (!entry) return QIV_INVALID_ID;
  entry->identity = ThreadIdentity::Of(pthread_self());
  entry->foreign = true;
  return Enter(std::move(entry));
}

bool ThreadIdTable::SelfEnds() noexcept {
  const base::ScopedLock lock(m_mutex);
  const Entry* const entry = FindSelf();
  if (entry == nullptr || !entry->foreign || entry->joining) return false;
  Remove(entry);
  return true;
}

int ThreadIdTable::Join(unsigned int id, int (*joinThread)(pthread_t, void**)) {
  Joining joining(this, id);
  return joining.Wait(joinThread);
}

int ThreadIdTable::SetPriority(unsigned int id, int priority) noexcept {
  const base::ScopedLock lock(m_mutex);
  const Entry* const entry = Find(id);
  if (entry == nullptr) return QIV_ERROR;
  // A joiner may have released the thread already, unless it is the one that calls.
  if (entry->joining && entry != FindSelf()) return QIV_ERROR;
  return ChangePriority(entry->identity.thread, priority);
}

void ThreadIdTable::NumberFrom(unsigned int id) noexcept {
  const base::ScopedLock lock(m_mutex);
  m_nextId = id;
}

void ThreadIdTable::LockForFork() noexcept QIV_NO_THREAD_SAFETY_ANALYSIS { m_mutex.Lock(); }

void ThreadIdTable::UnlockAfterFork() noexcept QIV_NO_THREAD_SAFETY_ANALYSIS { m_mutex.Unlock(); }

std::size_t ThreadIdTable::Size() noexcept {
  const base::ScopedLock lock(m_mutex);
  std::size_t size = 0;
  for (const Entry* entry = m_first; entry != nullptr; entry = entry->next) ++size;
  return size;
}

void ThreadIdTable::Clear() noexcept {
  const base::ScopedLock lock(m_mutex);
  while (m_first != nullptr) Remove(m_first);
}

ThreadIdTable::Entry* ThreadIdTable::Find(unsigned int id) noexcept {
  Entry* entry = m_first;
  while (entry != nullptr && entry->id != id) entry = entry->next;
  return entry;
}

ThreadIdTable::Entry* ThreadIdTable::FindSelf() noexcept {
  const ThreadIdentity self = ThreadIdentity::Of(pthread_self());
  Entry* entry = m_first;
  while (entry != nullptr && !(entry->identity == self)) entry = entry->next;
  return entry;
}

/** The entry of an ended thread that had this pthread_t and that no joiner will remove. */
ThreadIdTable::Entry* ThreadIdTable::FindLeftover(pthread_t thread) noexcept {
  Entry* entry = m_first;
  while (entry != nullptr &&
         (entry->joining || pthread_equal(entry->identity.thread, thread) == 0)) {
    entry = entry->next;
  }
  return entry;
}

unsigned int ThreadIdTable::Enter(std::unique_ptr<Entry> entry) noexcept {
  const Entry* const leftover = FindLeftover(entry->identity.thread);
  if (leftover != nullptr) Remove(leftover);
  entry->id = NextId();
  entry->next = m_first;
  m_first = entry.release();
  return m_first->id;
}

void ThreadIdTable::Remove(const Entry* entry) noexcept {
  Entry** link = &m_first;
  while (*link != entry) link = &(*link)->next;
  const std::unique_ptr<Entry> removed(*link);
  *link = removed->next;
}

unsigned int ThreadIdTable::NextId() noexcept {
  while (m_nextId == 0 || m_nextId == QIV_INVALID_ID || Find(m_nextId) != nullptr) ++m_nextId;
  return m_nextId++;
}

}  // namespace qiv::thread
