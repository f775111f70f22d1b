// Makes operator new, malloc(), calloc() and realloc() of the calling thread fail, to walk through
// the failure paths of a function. Allocations inside shared libraries are not reached.
#ifndef QIV_TESTS_SUPPORT_FAILING_ALLOCATION_H
#define QIV_TESTS_SUPPORT_FAILING_ALLOCATION_H

namespace qiv::test {

/** Whether the allocations behind the first one that fails succeed again. */
enum class FailingFor { kOnce, kEver };

/** While one of these lives, the n-th allocation of its thread fails. */
class FailingAllocation {
 public:
  /** @param nth  1 is the next allocation */
  explicit FailingAllocation(int nth, FailingFor duration = FailingFor::kOnce) noexcept;
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;

  /** False when the thread has made fewer than `nth` allocations so far. */
  [[nodiscard]] bool Happened() const noexcept;
};

}  // namespace qiv::test

#endif
