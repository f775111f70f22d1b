// Runs a function on a thread of its own and hands its result back, never hanging the test.
#ifndef QIV_TESTS_SUPPORT_RUN_IN_THREAD_H
#define QIV_TESTS_SUPPORT_RUN_IN_THREAD_H

#include <cstdio>
#include <cstdlib>
#include <future>
#include <thread>
#include <utility>

#include "support/test_limit.h"

namespace qiv::test {

template <class Result>
class ThreadResult {
 public:
  template <class Function>
  explicit ThreadResult(Function function) {
    std::packaged_task<Result()> task(std::move(function));
    m_result = task.get_future();
    m_thread = std::thread(std::move(task));
  }
  ThreadResult(ThreadResult&&) = default;
  ~ThreadResult() {
    if (m_thread.joinable()) Get();
  }

  /** Waits for the thread; ends the test process when TestLimit() has passed first. */
  Result Get() {
    if (m_result.wait_for(TestLimit()) != std::future_status::ready) {
      std::fprintf(stderr, "a test thread did not finish within the limit\n");
      std::abort();
    }
    m_thread.join();
    return m_result.get();
  }

  [[nodiscard]] bool IsReady() const {
    return m_result.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  }

 private:
  std::future<Result> m_result;
  std::thread m_thread;
};

template <class Function>
auto RunInThread(Function function) {
  return ThreadResult<decltype(function())>(std::move(function));
}

}  // namespace qiv::test

#endif
