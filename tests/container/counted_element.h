// An element of the lock-free queue that counts how many of its kind live.
#ifndef QIV_TESTS_CONTAINER_COUNTED_ELEMENT_H
#define QIV_TESTS_CONTAINER_COUNTED_ELEMENT_H

#include <gtest/gtest.h>
#include <qiv/refobj.h>

#include <atomic>

#include "support/leak_check.h"

namespace qiv::test {

class CountedElement : public cobject {
 public:
  explicit CountedElement(int elementPusher = 0, int elementNumber = 0)
      : pusher(elementPusher), number(elementNumber) {
    g_living.fetch_add(1, std::memory_order_relaxed);
  }
  ~CountedElement() override { g_living.fetch_sub(1, std::memory_order_relaxed); }

  static int Living() { return g_living.load(std::memory_order_relaxed); }

  const int pusher;
  const int number;

 private:
  static inline std::atomic<int> g_living{0};
};

using ElementPointer = cshared_ptr<cobject>;

inline int NumberOf(const ElementPointer& element) {
  return dynamic_cast<const CountedElement&>(*element).number;
}

/** The references to an element. */
inline long Count(const ElementPointer& element) {
  element->addRef();
  return element->release();
}

/** A test behind which no element may live. */
class CountedElementTest : public LeakCheckedTest {
 protected:
  ~CountedElementTest() override { EXPECT_EQ(0, CountedElement::Living()); }
};

}  // namespace qiv::test

#endif
