// Collects what completion callbacks report.
#ifndef QIV_TESTS_SUPPORT_COMPLETIONS_H
#define QIV_TESTS_SUPPORT_COMPLETIONS_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "support/test_limit.h"

namespace qiv::test {

struct Completion {
  unsigned int error;
  unsigned int bytes;
  std::thread::id thread;
};

/** Pass Callback as the callback and the object's address as the user value. */
class Completions {
 public:
  /**
   * Runs inside each callback, before it is recorded. Set it before the first request. Wait for the
   * record, not for something that this does: the object is in use until then.
   */
  std::function<void(const Completion&)> onCompletion;

  static void Callback(unsigned int error, unsigned int bytes, void* user) {
    static_cast<Completions*>(user)->Record({error, bytes, std::this_thread::get_id()});
  }

  /** Waits for `count` completions in all; false when TestLimit() has passed first. */
  [[nodiscard]] bool WaitFor(std::size_t count) { return WaitFor(count, TestLimit()); }

  [[nodiscard]] bool WaitFor(std::size_t count, std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, limit, [&] { return m_all.size() >= count; });
  }

  std::vector<Completion> All() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_all;
  }

  std::size_t Count() const { return All().size(); }

 private:
  void Record(const Completion& completion) {
    if (onCompletion) onCompletion(completion);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_all.push_back(completion);
    m_changed.notify_all();
  }

  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<Completion> m_all;
};

}  // namespace qiv::test

#endif
