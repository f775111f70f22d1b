// 65,536 recursive mutexes of which a process pays only for those that it uses.
//
// The storage stays zero, and so untouched, until an element's first use. A ready flag is written
// under one set-up lock and read without it.
#ifndef QIV_AIO_LAZY_MUTEX_ARRAY_H
#define QIV_AIO_LAZY_MUTEX_ARRAY_H

#include <qiv/mutex.h>

#include <atomic>

namespace qiv::aio {

/** Descriptors from here on cannot be used with completion queues. */
constexpr int kSocketLimit = 65536;

/**
 * Only for objects with static storage: relies on memory that starts zeroed. No element is ever
 * destroyed: threads that still run while the process exits go on locking them.
 */
class LazyMutexArray {
 public:
  LazyMutexArray() = default;
  LazyMutexArray(const LazyMutexArray&) = delete;
  LazyMutexArray& operator=(const LazyMutexArray&) = delete;

  /** The element `index`, 0 to kSocketLimit - 1, set up at its first use. */
  QIV_Mutex& operator[](int index) noexcept {
    if (!m_ready[index].load(std::memory_order_acquire)) SetUp(index);
    return *Element(index);
  }

 private:
  QIV_Mutex* Element(int index) noexcept;
  void SetUp(int index) noexcept;

  std::atomic<bool> m_ready[kSocketLimit];
  alignas(QIV_Mutex) unsigned char m_storage[kSocketLimit][sizeof(QIV_Mutex)];
};

}  // namespace qiv::aio

#endif
