// Calls that a test can stop in the middle: for what happens between a thread's wake-up and its
// next step.
#ifndef QIV_TESTS_CONTAINER_HALTABLE_CALL_H
#define QIV_TESTS_CONTAINER_HALTABLE_CALL_H

#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/types.h>

#include <atomic>
#include <cerrno>

#include "support/eventually.h"
#include "support/sleeping_thread.h"

namespace qiv::test {

/** Keeps threads in a signal's handler. */
class Halt {
 public:
  Halt() {
    struct sigaction action = {};
    action.sa_handler = &Stay;
    sigemptyset(&action.sa_mask);
    sigaction(SIGUSR2, &action, &m_saved);
    g_mayGoOn.store(false, std::memory_order_release);
  }
  ~Halt() {
    GoOn();
    sigaction(SIGUSR2, &m_saved, nullptr);
  }
  Halt(const Halt&) = delete;
  Halt& operator=(const Halt&) = delete;

  /** Returns once the thread is stopped, which must not be waiting for a mutex: the thread
   * sanitizer keeps signals back there. */
  static void Stop(pthread_t thread) {
    const int before = g_inside.load(std::memory_order_acquire);
    ASSERT_EQ(0, pthread_kill(thread, SIGUSR2));
    ASSERT_TRUE(Eventually([before] { return g_inside.load(std::memory_order_acquire) > before; }));
  }

  /** Lets the stopped threads go on, and returns once they do. */
  static void GoOn() {
    g_mayGoOn.store(true, std::memory_order_release);
    EXPECT_TRUE(Eventually([] { return g_inside.load(std::memory_order_acquire) == 0; }));
  }

 private:
  static void Stay(int /*signal*/) {
    const int savedErrno = errno;
    g_inside.fetch_add(1, std::memory_order_acq_rel);
    while (!g_mayGoOn.load(std::memory_order_acquire)) poll(nullptr, 0, 1);
    g_inside.fetch_sub(1, std::memory_order_acq_rel);
    errno = savedErrno;
  }

  static inline std::atomic<bool> g_mayGoOn{false};
  static inline std::atomic<int> g_inside{0};

  struct sigaction m_saved = {};
};

/** A SleepingCall whose thread is known. */
template <class Result>
class HaltableCall {
 public:
  template <class Function>
  explicit HaltableCall(Function function)
      : m_call([this, function] {
          m_systemId.store(SystemThreadId(), std::memory_order_release);
          m_thread.store(pthread_self(), std::memory_order_release);
          return function();
        }) {}

  pthread_t Thread() const { return m_thread.load(std::memory_order_acquire); }
  [[nodiscard]] bool SleepsAgain() const {
    return WaitUntilAsleep(m_systemId.load(std::memory_order_acquire));
  }
  bool HasReturned() const { return m_call.HasReturned(); }
  Result Get() { return m_call.Get(); }

 private:
  std::atomic<pid_t> m_systemId{0};
  std::atomic<pthread_t> m_thread{};
  SleepingCall<Result> m_call;
};

template <class Function>
HaltableCall(Function function) -> HaltableCall<decltype(function())>;

}  // namespace qiv::test

#endif
