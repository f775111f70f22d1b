// Counts what happens on other threads, and waits for it.
#ifndef QIV_TESTS_SUPPORT_CALL_COUNTER_H
#define QIV_TESTS_SUPPORT_CALL_COUNTER_H

#include <condition_variable>
#include <mutex>

#include "support/test_limit.h"

namespace qiv::test {

class CallCounter {
 public:
  void Add() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_count;
    m_changed.notify_all();
  }

  int Count() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_count;
  }

  /** True once the count is `count` or more; false when TestLimit() has passed first. */
  [[nodiscard]] bool WaitFor(int count) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, TestLimit(), [&] { return m_count >= count; });
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  int m_count = 0;
};

}  // namespace qiv::test

#endif
