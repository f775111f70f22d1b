// Waits for something that other threads bring about.
#ifndef QIV_TESTS_SUPPORT_EVENTUALLY_H
#define QIV_TESTS_SUPPORT_EVENTUALLY_H

#include <chrono>
#include <thread>

#include "support/test_limit.h"

namespace qiv::test {

/** Yields until the condition holds; false when TestLimit() has passed first. */
template <class Condition>
bool Eventually(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + TestLimit();
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

}  // namespace qiv::test

#endif
