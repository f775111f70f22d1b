// The queue of message pointers.
//
// m_mutex guards the deque, the pointer to it and the numbers of threads. It is never held during a
// wait: m_sem counts the pointers, and whoever takes a count looks for a pointer then. A
// destruction gives one count for each thread that waits. Another thread, of a queue that init()
// has made since, may take such a count; it gives the count back as long as any of them is left.
#include <qiv/message_queue.h>
#include <qiv/system.h>
#include <qiv/time_classes.h>

#include <algorithm>
#include <new>

namespace qiv {
namespace {

constexpr int kNoLimit = -1;
constexpr unsigned int kGiveWayMs = 1;

class QIV_SCOPED_CAPABILITY RecursiveLock {
 public:
  explicit RecursiveLock(qiv_recursive_mutex& mutex) noexcept QIV_ACQUIRE(mutex) : m_mutex(mutex) {
    m_mutex.lock();
  }
  ~RecursiveLock() QIV_RELEASE() { m_mutex.unlock(); }
  RecursiveLock(const RecursiveLock&) = delete;
  RecursiveLock& operator=(const RecursiveLock&) = delete;

 private:
  qiv_recursive_mutex& m_mutex;
};

constexpr qiv_int64 kMicrosecondsPerMillisecond = 1000;

/** Microseconds since a time of the wall clock; 0 when that was set back. */
qiv_int64 MicrosecondsSince(qiv_int64 start) { return std::max(qiv_time_tick::now() - start, 0LL); }

/** Rounded up. */
int ToMilliseconds(qiv_int64 microseconds) {
  return static_cast<int>((microseconds + kMicrosecondsPerMillisecond - 1) /
                          kMicrosecondsPerMillisecond);
}

}  // namespace

/** Ends the count of a thread in getq(), also of one that is cancelled there. */
class qiv_msgq::Visit {
 public:
  Visit(qiv_msgq& queue, unsigned int generation) noexcept
      : m_queue(queue), m_generation(generation) {}
  ~Visit() { m_queue.leave(m_generation); }
  Visit(const Visit&) = delete;
  Visit& operator=(const Visit&) = delete;

 private:
  qiv_msgq& m_queue;
  const unsigned int m_generation;
};

qiv_msgq::qiv_msgq() noexcept : m_queue(nullptr), m_generation(0), m_waiting(0), m_leaving(0) {
  init();
}

qiv_msgq::~qiv_msgq() { destroy(); }

int qiv_msgq::init() noexcept {
  std::deque<QIV_MSG_BLOCK_T*>* queue = nullptr;
  try {
    queue = new std::deque<QIV_MSG_BLOCK_T*>;
  } catch (const std::bad_alloc&) {
    return QIV_ERROR;
  }
  const RecursiveLock lock(m_mutex);
  // Kept: a deque that is there already is not deleted.
  m_queue = queue;
  return QIV_OK;
}

int qiv_msgq::putq(QIV_MSG_BLOCK_T* blk) noexcept {
  if (blk == nullptr) return QIV_ERROR;
  const RecursiveLock lock(m_mutex);
  if (m_queue == nullptr) return QIV_ERROR;
  try {
    m_queue->push_back(blk);
  } catch (const std::bad_alloc&) {
    return QIV_ERROR;
  }
  m_sem.post_1();
  return QIV_OK;
}

int qiv_msgq::getq(QIV_MSG_BLOCK_T** out, int timeout) {
  if (out == nullptr) return QIV_ERROR;
  unsigned int generation = 0;
  {
    const RecursiveLock lock(m_mutex);
    if (m_queue == nullptr) return QIV_ERROR;
    generation = m_generation;
    ++m_waiting;
  }
  const Visit visit(*this, generation);
  qiv_int64 remaining = timeout * kMicrosecondsPerMillisecond;
  for (;;) {
    const qiv_int64 start = qiv_time_tick::now();
    if (m_sem.wait(timeout < 0 ? timeout : ToMilliseconds(remaining)) != 0) return QIV_ERROR;
    bool isForAnother = false;
    {
      const RecursiveLock lock(m_mutex);
      if (generation != m_generation) return QIV_ERROR;
      if (!m_queue->empty()) {
        *out = m_queue->front();
        m_queue->pop_front();
        return QIV_OK;
      }
      // The count of a pointer that reset() has removed, unless:
      isForAnother = m_leaving > 0;
      if (isForAnother) m_sem.post_1();
    }
    // Sleeps, since a thread of real-time priority may keep the other from running.
    if (isForAnother) QIV_Sleep(kGiveWayMs);
    if (timeout == kNoLimit) continue;
    // In microseconds: the turns of many such counts are short.
    remaining = std::max(remaining - MicrosecondsSince(start), 0LL);
    if (remaining == 0) return QIV_ERROR;
  }
}

void qiv_msgq::leave(unsigned int generation) noexcept {
  const RecursiveLock lock(m_mutex);
  --(generation == m_generation ? m_waiting : m_leaving);
}

void qiv_msgq::reset() noexcept {
  const RecursiveLock lock(m_mutex);
  if (m_queue != nullptr) m_queue->clear();
}

void qiv_msgq::destroy() noexcept {
  const RecursiveLock lock(m_mutex);
  if (m_queue == nullptr) return;
  delete m_queue;
  m_queue = nullptr;
  ++m_generation;
  m_leaving += m_waiting;
  m_sem.post(static_cast<int>(m_waiting));
  m_waiting = 0;
}

}  // namespace qiv
