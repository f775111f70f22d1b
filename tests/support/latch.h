// A gate that one thread opens and others wait for: lines threads up without sleeps.
#ifndef QIV_TESTS_SUPPORT_LATCH_H
#define QIV_TESTS_SUPPORT_LATCH_H

#include <condition_variable>
#include <mutex>

#include "support/test_limit.h"

namespace qiv::test {

class Latch {
 public:
  void Open() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_open = true;
    m_changed.notify_all();
  }

  /** True once it is open; false when TestLimit() has passed first. */
  [[nodiscard]] bool Wait() {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, TestLimit(), [this] { return m_open; });
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_open = false;
};

}  // namespace qiv::test

#endif
