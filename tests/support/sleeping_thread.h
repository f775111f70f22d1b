// Waits until another thread of the process sleeps in the system: for tests of what wakes it.
#ifndef QIV_TESTS_SUPPORT_SLEEPING_THREAD_H
#define QIV_TESTS_SUPPORT_SLEEPING_THREAD_H

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "support/run_in_thread.h"

namespace qiv::test {

/** The system's number of the calling thread. */
inline pid_t SystemThreadId() { return static_cast<pid_t>(syscall(SYS_gettid)); }

/** True once the thread has slept at several looks in a row; false when TestLimit() has passed
 *  first. */
[[nodiscard]] bool WaitUntilAsleep(pid_t thread);

/** A function on a thread of its own that has got as far as to sleep in it. */
template <class Result>
class SleepingCall {
 public:
  template <class Function>
  explicit SleepingCall(Function function)
      : m_result(RunInThread([this, function] {
          m_thread.store(SystemThreadId(), std::memory_order_release);
          return function();
        })) {
    while (m_thread.load(std::memory_order_acquire) == 0) std::this_thread::yield();
    EXPECT_TRUE(WaitUntilAsleep(m_thread.load(std::memory_order_acquire)));
  }

  bool HasReturned() const { return m_result.IsReady(); }
  Result Get() { return m_result.Get(); }

 private:
  std::atomic<pid_t> m_thread{0};
  ThreadResult<Result> m_result;
};

template <class Function>
SleepingCall(Function function) -> SleepingCall<decltype(function())>;

}  // namespace qiv::test

#endif
