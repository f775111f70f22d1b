// Sends a signal to the calling thread again and again, so that its system calls are interrupted.
#ifndef QIV_TESTS_SUPPORT_INTERRUPTING_SIGNALS_H
#define QIV_TESTS_SUPPORT_INTERRUPTING_SIGNALS_H

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace qiv::test {

class InterruptingSignals {
 public:
  /** @param period  time between two signals; the first comes one period from now */
  explicit InterruptingSignals(std::chrono::milliseconds period) {
    struct sigaction action = {};
    action.sa_handler = [](int) { g_count.fetch_add(1, std::memory_order_relaxed); };
    sigemptyset(&action.sa_mask);  // no SA_RESTART: calls end with EINTR
    sigaction(SIGUSR1, &action, &m_saved);
    g_count.store(0, std::memory_order_relaxed);
    m_thread = std::thread([this, target = pthread_self(), period] {
      while (!m_stop.load(std::memory_order_acquire)) {
        std::this_thread::sleep_for(period);
        pthread_kill(target, SIGUSR1);
      }
    });
  }
  ~InterruptingSignals() {
    m_stop.store(true, std::memory_order_release);
    m_thread.join();
    sigaction(SIGUSR1, &m_saved, nullptr);
  }
  InterruptingSignals(const InterruptingSignals&) = delete;
  InterruptingSignals& operator=(const InterruptingSignals&) = delete;

  /** Waits until a signal has come, so that a wait that begins now gets the next ones. */
  static void WaitForTheFirst() {
    while (Count() == 0) std::this_thread::yield();
  }

  /** Signals that the thread has taken so far. */
  static int Count() { return g_count.load(std::memory_order_relaxed); }

 private:
  static inline std::atomic<int> g_count{0};

  struct sigaction m_saved = {};
  std::atomic<bool> m_stop{false};
  std::thread m_thread;
};

}  // namespace qiv::test

#endif
