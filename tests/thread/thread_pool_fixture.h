// What the tests of thread pools share: items to run, and a look into a pool's record.
#ifndef QIV_TESTS_THREAD_THREAD_POOL_FIXTURE_H
#define QIV_TESTS_THREAD_THREAD_POOL_FIXTURE_H

#include <gtest/gtest.h>
#include <qiv/library.h>

#include <atomic>

#include "support/latch.h"
#include "support/leak_check.h"
#include "thread/thread_pool.h"

namespace qiv::thread {

inline QIV_THREADPOOL* Record(QIV_HANDLE pool) { return static_cast<QIV_THREADPOOL*>(pool); }

inline void* Nothing(void*) { return nullptr; }

inline void* Count(void* counter) {
  static_cast<std::atomic<int>*>(counter)->fetch_add(1, std::memory_order_relaxed);
  return nullptr;
}

inline void* WaitForLatch(void* latch) {
  EXPECT_TRUE(static_cast<test::Latch*>(latch)->Wait());
  return nullptr;
}

/** A test with the library started. */
class StartedLibraryTest : public test::LeakCheckedTest {
 protected:
  void SetUp() override {
    LeakCheckedTest::SetUp();
    ASSERT_EQ(QIV_OK, QIV_Init());
  }
  void TearDown() override {
    QIV_Fini();
    LeakCheckedTest::TearDown();
  }
};

}  // namespace qiv::thread

#endif
