// A flexible pool whose items are functions, and a look into its record.
#ifndef QIV_TESTS_THREAD_THREAD_POOL_FLEX_FIXTURE_H
#define QIV_TESTS_THREAD_THREAD_POOL_FLEX_FIXTURE_H

#include <qiv/thread_pool_flex.h>

#include <chrono>
#include <functional>
#include <thread>

#include "support/latch.h"
#include "support/leak_check.h"
#include "support/test_limit.h"
#include "thread/thread_pool_flex.h"

namespace qiv::test {

/** An item: a handler made of this gets the address of one and calls it. */
using Job = std::function<void()>;

inline void RunJob(void* job) { (*static_cast<Job*>(job))(); }

/** Looks until the condition holds; false when TestLimit() has passed first. */
template <class Condition>
[[nodiscard]] bool Eventually(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + TestLimit();
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

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

class FlexPoolTest : public LeakCheckedTest {
 protected:
  static constexpr int kNoLimit = -1;

  void TearDown() override {
    Destroy(0);
    LeakCheckedTest::TearDown();
  }

  void Create(int maxThreads, int idleTimeout = kNoLimit, int stackSize = 0) {
    m_pool = thrmgr_new(maxThreads, idleTimeout, RunJob, stackSize);
    ASSERT_NE(nullptr, m_pool);
  }
  void Destroy(int timeout) {
    thrmgr_destroy(m_pool, timeout);
    m_pool = nullptr;
  }

  int Submit(Job& job) const { return thrmgr_dispatch(m_pool, &job); }
  int QueueSize() const { return thrmgr_getQSize(m_pool); }

  thread::FlexPool& Record() const { return *static_cast<thread::FlexPool*>(m_pool); }
  int Alive() const { return Record().nAlive.load(); }
  int IdleWorkers() const { return Record().nIdle.load(); }

  QIV_HANDLE m_pool = nullptr;
};

}  // namespace qiv::test

#endif
