// Traffic that has reached its peak allocates nothing, however much is live at once.
#include <gtest/gtest.h>
#include <qiv/cycle_buffer.h>
#include <qiv/memory_pool.h>
#include <qiv/memory_pool_ex.h>
#include <qiv/memory_pool_global.h>

#include <algorithm>
#include <random>
#include <vector>

#include "memory/pool_values.h"
#include "support/failing_allocation.h"
#include "support/leak_check.h"

namespace qiv::test {
namespace {

constexpr std::size_t kLive = 3000;
constexpr int kRounds = 20;

class SteadyTrafficTest : public LeakCheckedTest {
 protected:
  /** Fills `kLive` pointers and frees them in mixed order, once and then again and again; how many
   *  of the later rounds allocate. */
  template <class Alloc, class Free>
  static int CountRoundsThatAllocate(const Alloc& alloc, const Free& free) {
    std::vector<void*> pointers(kLive);
    std::mt19937 random(1);
    const auto useAll = [&] {
      for (std::size_t i = 0; i < kLive; ++i) pointers[i] = alloc(i);
      EXPECT_EQ(0, std::count(pointers.begin(), pointers.end(), nullptr));
      std::shuffle(pointers.begin(), pointers.end(), random);
      for (void* const pointer : pointers) free(pointer);
    };
    useAll();
    int allocating = 0;
    for (int round = 0; round < kRounds; ++round) {
      const FailingAllocation failure(1);
      useAll();
      if (failure.Happened()) ++allocating;
    }
    return allocating;
  }
};

TEST_F(SteadyTrafficTest, ThroughAPoolOfEqualBlocksAllocatesNothing) {
  for (const long long idleTimeout : {kNever, kHour}) {
    QIV_MemoryPool pool(64, 1, kLive, 1, idleTimeout, 0);
    EXPECT_EQ(0, CountRoundsThatAllocate([&](std::size_t) { return pool.Alloc(); },
                                         [&](void* block) { pool.Free(block); }));
  }
}

TEST_F(SteadyTrafficTest, ThroughManyChunksOfATrackedPoolAllocatesNothing) {
  for (const long long idleTimeout : {kNever, kHour}) {
    QIV_MemoryPoolEx pool(1, kLive, idleTimeout, 0, 64);
    EXPECT_EQ(0, CountRoundsThatAllocate([&](std::size_t) { return pool.Alloc(50); },
                                         [&](void* pointer) { pool.Free(pointer); }));
    EXPECT_EQ(kLive * 64, pool.Size()) << "a chunk for each";
  }
}

TEST_F(SteadyTrafficTest, ThroughOneChunkOfATrackedPoolAllocatesNothing) {
  QIV_MemoryPoolEx pool(1, 1, kNever, 1, kLive * 8);
  EXPECT_EQ(0, CountRoundsThatAllocate([&](std::size_t) { return pool.Alloc(8); },
                                       [&](void* pointer) { pool.Free(pointer); }));
}

TEST_F(SteadyTrafficTest, ThroughTheGlobalPoolAllocatesNothing) {
  constexpr unsigned int kLimit = 0x40000000;
  ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(kLimit));
  const auto alloc = [](std::size_t i) {
    return QIV_MemoryPoolGlobal_Alloc(1 + static_cast<unsigned int>(i * 7919 % 9973));
  };
  EXPECT_EQ(0, CountRoundsThatAllocate(alloc, QIV_MemoryPoolGlobal_Free));
  EXPECT_EQ(0, QIV_FiniMemoryPool_Inter());
}

TEST_F(SteadyTrafficTest, ThroughACycleBufferAllocatesNothing) {
  QIV_HANDLE buffer = nullptr;
  ASSERT_EQ(0, QIV_CycleBufferInit(
                   &buffer, 100, [](char*, int, void*) {}, nullptr));
  const char bytes[33] = {};
  int failures = 0;
  const FailingAllocation failure(1);
  for (int round = 0; round < 1000; ++round) {
    unsigned int count = 0;
    if (QIV_CycleBufferWrite(buffer, bytes, sizeof(bytes)) != 0) ++failures;
    if (QIV_CycleBufferValue(buffer, &count) != 0 || count != sizeof(bytes)) ++failures;
    if (QIV_CycleBufferRead(buffer) != 0) ++failures;
  }
  EXPECT_FALSE(failure.Happened());
  EXPECT_EQ(0, failures);
  QIV_CycleBufferDestroy(buffer);
}

}  // namespace
}  // namespace qiv::test
