// A callback that stays inside until it is let go.
#ifndef QIV_TESTS_SUPPORT_GATE_H
#define QIV_TESTS_SUPPORT_GATE_H

#include <gtest/gtest.h>

#include <atomic>

#include "support/latch.h"

namespace qiv::test {

struct Gate {
  /** What the callback does. */
  void Pass() {
    entered.Open();
    EXPECT_TRUE(letGo.Wait());
    left.store(true, std::memory_order_release);
  }
  bool HasLeft() const { return left.load(std::memory_order_acquire); }

  Latch entered;
  Latch letGo;
  std::atomic<bool> left{false};
};

}  // namespace qiv::test

#endif
