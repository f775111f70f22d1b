// What the tests of timers share.
#ifndef QIV_TESTS_THREAD_TIMER_FIXTURE_H
#define QIV_TESTS_THREAD_TIMER_FIXTURE_H

#include <gtest/gtest.h>
#include <qiv/timer.h>

#include "support/call_counter.h"
#include "support/leak_check.h"

namespace qiv::test {

constexpr unsigned int kHour = 3600u * 1000;
constexpr unsigned int kTimers = 256;

inline void CountCall(unsigned int /*id*/, void* counter) {
  static_cast<CallCounter*>(counter)->Add();
}

/** A test whose timers are all killed at its end. */
class TimerTest : public LeakCheckedTest {
 protected:
  void TearDown() override {
    for (unsigned int id = 0; id < kTimers; ++id) EXPECT_EQ(0, QIV_KillTimer(id));
    LeakCheckedTest::TearDown();
  }
};

}  // namespace qiv::test

#endif
