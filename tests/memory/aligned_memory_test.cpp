#include <errno.h>
#include <gtest/gtest.h>
#include <qiv/aligned_memory.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "support/failing_allocation.h"
#include "support/leak_check.h"

namespace {

using qiv::test::FailingAllocation;

/** What stands in front of aligned memory. */
char* BlockOf(const void* memory) {
  char* block = nullptr;
  std::memcpy(&block, static_cast<const char*>(memory) - sizeof(block), sizeof(block));
  return block;
}

bool IsZero(const char* memory, std::size_t size) {
  return std::all_of(memory, memory + size, [](char byte) { return byte == 0; });
}

class AlignedMemoryTest : public qiv::test::LeakCheckedTest {};

void ExpectZeroedMemory(unsigned int size, unsigned int alignment) {
  auto* const memory = static_cast<char*>(QIV_AlignedMalloc(size, alignment));
  ASSERT_NE(nullptr, memory);
  EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(memory) % alignment);
  EXPECT_TRUE(IsZero(memory, size));
  std::memset(memory, 0xAA, size);  // all of it is the caller's
  QIV_AlignedFree(memory);
}

TEST_F(AlignedMemoryTest, GivesZeroedMemoryAtAMultipleOfTheAlignment) {
  for (unsigned int alignment = 1; alignment <= 65536; alignment *= 2) {
    SCOPED_TRACE(alignment);
    for (const unsigned int size : {1U, 7U, 100U, 5000U}) ExpectZeroedMemory(size, alignment);
  }
}

TEST_F(AlignedMemoryTest, WordInFrontHoldsTheAddressOfTheHeapBlock) {
  for (const unsigned int alignment : {1U, 2U, 64U, 4096U}) {
    SCOPED_TRACE(alignment);
    auto* const memory = static_cast<char*>(QIV_AlignedMalloc(100, alignment));
    ASSERT_NE(nullptr, memory);
    char* const block = BlockOf(memory);
    const std::ptrdiff_t padding = memory - block - static_cast<std::ptrdiff_t>(sizeof(void*));
    EXPECT_LE(0, padding);
    EXPECT_GT(static_cast<std::ptrdiff_t>(alignment), padding);
    std::free(block);
  }
}

TEST_F(AlignedMemoryTest, SizeZeroGivesMemoryThatCanBeFreed) {
  void* const memory = QIV_AlignedMalloc(0, 64);
  ASSERT_NE(nullptr, memory);
  EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(memory) % 64);
  QIV_AlignedFree(memory);
}

TEST_F(AlignedMemoryTest, AlignmentThatIsNoPowerOfTwoFailsWithEinval) {
  for (const unsigned int alignment : {0U, 3U, 6U, 48U, 100U, 0x80000001U, UINT_MAX}) {
    errno = 0;
    EXPECT_EQ(nullptr, QIV_AlignedMalloc(100, alignment)) << alignment;
    EXPECT_EQ(EINVAL, errno) << alignment;
  }
}

TEST_F(AlignedMemoryTest, FailsWhenMemoryIsShort) {
  const FailingAllocation failing(1);
  EXPECT_EQ(nullptr, QIV_AlignedMalloc(100, 64));
  EXPECT_TRUE(failing.Happened());
}

TEST_F(AlignedMemoryTest, FailsAsWithoutMemoryForTheLargestSizes) {
  // Where the sum does not fit in a size_t, the allocation is not even tried.
  const FailingAllocation failing(1, qiv::test::FailingFor::kEver);
  EXPECT_EQ(nullptr, QIV_AlignedMalloc(UINT_MAX, 1));
  EXPECT_EQ(nullptr, QIV_AlignedMalloc(UINT_MAX, 0x80000000U));
  EXPECT_EQ(nullptr, QIV_AlignedMalloc(0x80000000U, 0x80000000U));
  EXPECT_EQ(sizeof(std::size_t) > 4, failing.Happened());
}

TEST_F(AlignedMemoryTest, FreeOfNullIsIgnored) { QIV_AlignedFree(nullptr); }

}  // namespace
