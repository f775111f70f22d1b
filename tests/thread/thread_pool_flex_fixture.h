// Flexible pools whose items are functions, and a look into their records.
#ifndef QIV_TESTS_THREAD_THREAD_POOL_FLEX_FIXTURE_H
#define QIV_TESTS_THREAD_THREAD_POOL_FLEX_FIXTURE_H

#include <qiv/thread_pool_flex.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>

#include "support/eventually.h"
#include "support/latch.h"
#include "support/leak_check.h"
#include "support/run_in_thread.h"
#include "thread/thread_pool_flex.h"

namespace qiv::test {

/** An item: a handler made of this gets the address of one and calls it. */
using Job = std::function<void()>;

inline void RunJob(void* job) { (*static_cast<Job*>(job))(); }

/** An item that keeps its worker busy until it is released. */
class Blocker {
 public:
  Job job = [this] {
    m_started.Open();
    m_finished = m_released.Wait();
  };

  [[nodiscard]] bool WaitUntilStarted() { return m_started.Wait(); }
  void Release() { m_released.Open(); }
  /** Whether the handler has seen the release; to be read when its pool is destroyed. */
  [[nodiscard]] bool HasFinished() const { return m_finished; }

 private:
  Latch m_started;
  Latch m_released;
  bool m_finished = false;
};

/**
 * A pool. Declare it behind the items and whatever their handlers use: its end waits for the
 * handlers that run.
 */
class TestPool {
 public:
  static constexpr int kNoLimit = -1;

  explicit TestPool(int maxThreads, int idleTimeout = kNoLimit, int stackSize = 0,
                    void (*handler)(void*) = RunJob)
      : m_handle(thrmgr_new(maxThreads, idleTimeout, handler, stackSize)) {
    EXPECT_NE(nullptr, m_handle);
  }
  ~TestPool() { Destroy(0); }
  TestPool(const TestPool&) = delete;
  TestPool& operator=(const TestPool&) = delete;

  void Destroy(int timeout) {
    thrmgr_destroy(m_handle, timeout);
    m_handle = nullptr;
  }
  /** To be called when a test has destroyed the pool by itself. */
  void Forget() { m_handle = nullptr; }
  /** Begins the destruction on a thread of its own; the record may be looked at until its end. */
  auto DestroyInThread(int timeout) {
    return RunInThread([this, timeout] {
      const int result = QIV_ThreadPoolFlex_DestroyEx(m_handle, timeout);
      m_handle = nullptr;
      return result;
    });
  }

  int Submit(Job& job) const { return thrmgr_dispatch(m_handle, &job); }
  int QueueSize() const { return thrmgr_getQSize(m_handle); }

  QIV_HANDLE Handle() const { return m_handle.load(); }
  thread::FlexPool& Record() const { return *static_cast<thread::FlexPool*>(Handle()); }
  int Alive() const { return Record().nAlive.load(); }
  int Idle() const { return Record().nIdle.load(); }
  [[nodiscard]] bool EventuallyInState(thread::FlexState state) const {
    return Eventually([this, state] { return Record().Is(state); });
  }

 private:
  std::atomic<QIV_HANDLE> m_handle;
};

}  // namespace qiv::test

#endif
