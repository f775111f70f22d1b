// Every single allocation of the memory families fails once: the operation gives its failure value
// or is completed, and nothing is lost by it.
#include <gtest/gtest.h>
#include <qiv/memory_block.h>
#include <qiv/memory_pool.h>
#include <qiv/memory_pool_ex.h>
#include <qiv/memory_pool_global.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <new>
#include <string>
#include <vector>

#include "memory/pool_values.h"
#include "support/captured_output.h"
#include "support/failing_allocation.h"
#include "support/leak_check.h"

namespace qiv::test {
namespace {

constexpr unsigned int kBlockSize = 64;
constexpr unsigned int kChunkSize = 1024;

class MemoryShortageTest : public LeakCheckedTest {
 protected:
  /** Runs an operation with its n-th allocation failing; whether it makes so many. */
  template <class Operation>
  static bool FailsAt(int nth, const Operation& operation) {
    const FailingAllocation failure(nth);
    operation();
    return failure.Happened();
  }
};

template <class Described>
bool DescriptionThrows(const Described& described) {
  try {
    static_cast<void>(described.ToString());
  } catch (const std::bad_alloc&) {
    return true;
  }
  return false;
}

TEST_F(MemoryShortageTest, DescriptionsThrow) {
  const CMemoryBlock block(8);
  const CUsedRecord record = {nullptr, nullptr, 0, 0};
  EXPECT_TRUE(FailsAt(1, [&] { EXPECT_TRUE(DescriptionThrows(block)); }));
  EXPECT_FALSE(FailsAt(2, [&] { EXPECT_FALSE(DescriptionThrows(block)); }));
  EXPECT_TRUE(FailsAt(1, [&] { EXPECT_TRUE(DescriptionThrows(record)); }));
  EXPECT_FALSE(FailsAt(2, [&] { EXPECT_FALSE(DescriptionThrows(record)); }));
}

/** Lends three blocks and takes them back. */
void ExpectThreeBlocks(QIV_HANDLE pool, int nth) {
  std::vector<void*> blocks;
  for (int i = 0; i < 3; ++i) blocks.push_back(QIV_MemoryPool_Alloc(pool));
  for (void* const block : blocks) {
    EXPECT_NE(nullptr, block) << nth;
    QIV_MemoryPool_Free(pool, block);
  }
  EXPECT_EQ(3 * kBlockSize, QIV_MemoryPool_Size(pool)) << nth;
}

TEST_F(MemoryShortageTest, CreationGivesNoPoolOrOneWithFewerBlocks) {
  for (const long long idleTimeout : {kNever, kHour}) {
    bool happened = true;
    for (int nth = 1; happened; ++nth) {
      QIV_HANDLE pool = nullptr;
      happened =
          FailsAt(nth, [&] { pool = QIV_MemoryPool_Create(kBlockSize, 3, 3, 1, idleTimeout, 0); });
      EXPECT_EQ(nth == 1, pool == nullptr) << nth;
      if (nth == 2) {
        EXPECT_EQ(nullptr, QIV_MemoryPool_Alloc(pool)) << "a pool without an implementation";
      } else if (nth > 2) {
        ExpectThreeBlocks(pool, nth);
      }
      QIV_MemoryPool_Destroy(pool);
      if (!happened) {
        EXPECT_GT(nth, 3 * 4 + 2) << "each block takes four allocations";
      }
    }
  }
}

TEST_F(MemoryShortageTest, BlockIsNotLentAndNothingIsLost) {
  QIV_MemoryPool pool(kBlockSize, 1, 4, 1, kNever, 0);
  void* const first = pool.Alloc();
  void* second = nullptr;
  int nth = 1;
  while (FailsAt(nth, [&] { second = pool.Alloc(); })) {
    EXPECT_EQ(nullptr, second) << nth;
    EXPECT_EQ(kBlockSize, pool.Size()) << nth;
    ++nth;
  }
  EXPECT_EQ(5, nth) << "the block, its memory and two nodes can fail";
  EXPECT_NE(nullptr, second);
  pool.Free(first);
  pool.Free(second);
  EXPECT_EQ(2 * kBlockSize, pool.IdleSize());
}

TEST_F(MemoryShortageTest, BlockIsTakenBackWithoutItsIdleCheck) {
  bool happened = true;
  int nth = 0;
  while (happened) {
    ++nth;
    QIV_MemoryPool pool(kBlockSize, 0, 2, 1, kHour, 0);
    void* const first = pool.Alloc();
    void* const second = pool.Alloc();
    happened = FailsAt(nth, [&] { pool.Free(first); });
    EXPECT_EQ(kBlockSize, pool.IdleSize()) << nth;
    EXPECT_EQ(happened, FailsAt(1, [&] { pool.Free(second); })) << "tries again, " << nth;
    EXPECT_EQ(2 * kBlockSize, pool.IdleSize()) << nth;
  }
  EXPECT_EQ(4, nth) << "the alarm and its two nodes can fail";
}

TEST_F(MemoryShortageTest, IdleCheckThatCannotScheduleTheNextOneLeavesThatToALaterReturn) {
  constexpr long long kTenSeconds = 10000;
  bool happened = true;
  int nth = 0;
  while (happened) {
    ++nth;
    CRealMemoryPool pool(kBlockSize, 0, 2, true, kTenSeconds, false);  // its clock does not run
    void* const first = pool.Alloc();
    void* const second = pool.Alloc();
    EXPECT_TRUE(FailsAt(1, [&] { pool.Free(first); })) << "no check is scheduled";
    happened = FailsAt(nth, [&] { pool.OnCheckIdleTimeoutTask(1); });
    EXPECT_EQ(2 * kBlockSize, pool.Size()) << nth;
    EXPECT_EQ(happened, FailsAt(1, [&] { pool.Free(second); })) << nth;
  }
  EXPECT_EQ(4, nth) << "the alarm and its two nodes can fail";
}

std::ptrdiff_t CountLines(const std::string& text) {
  return std::count(text.begin(), text.end(), '\n');
}

TEST_F(MemoryShortageTest, PoolsReportAndEndAllTheSame) {
  for (const long long idleTimeout : {kNever, kHour}) {
    QIV_HANDLE pool = QIV_MemoryPool_Create(kBlockSize, 1, 3, 1, idleTimeout, 0);
    QIV_HANDLE tracked = QIV_MemoryPoolEx_Create(1, 3, idleTimeout, 0, kChunkSize);
    QIV_MemoryPool_Free(pool, QIV_MemoryPool_Alloc(pool));
    EXPECT_NE(nullptr, QIV_MemoryPool_Alloc(pool));
    for (int i = 0; i < 3; ++i) EXPECT_NE(nullptr, QIV_MemoryPoolEx_Alloc(tracked, 600));
    ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(0));
    EXPECT_NE(nullptr, QIV_MemoryPoolGlobal_Alloc(1));
    CapturedOutput output(STDOUT_FILENO);
    {
      const FailingAllocation failure(1, FailingFor::kEver);
      QIV_MemoryPool_Destroy(pool);
      QIV_MemoryPoolEx_Destroy(tracked);
      QIV_FiniMemoryPool_Inter();
    }
    EXPECT_EQ(1 + 6 + 2, CountLines(output.Stop())) << idleTimeout;
  }
}

TEST_F(MemoryShortageTest, CreationGivesNoTrackedPoolOrOneThatWorks) {
  for (const long long idleTimeout : {kNever, kHour}) {
    bool happened = true;
    for (int nth = 1; happened; ++nth) {
      QIV_HANDLE pool = nullptr;
      happened =
          FailsAt(nth, [&] { pool = QIV_MemoryPoolEx_Create(2, 3, idleTimeout, 0, kChunkSize); });
      EXPECT_EQ(nth == 1, pool == nullptr) << nth;
      void* const pointer = QIV_MemoryPoolEx_Alloc(pool, 10);
      EXPECT_EQ(nth > 2, pointer != nullptr) << nth;
      QIV_MemoryPoolEx_Free(pool, pointer);
      QIV_MemoryPoolEx_Destroy(pool);
      if (!happened) {
        EXPECT_GT(nth, 2 * 4 + 2) << "each chunk takes four allocations";
      }
    }
  }
}

// The node of the books, then the chunk: the block, its memory and two nodes; then its record.
TEST_F(MemoryShortageTest, NothingIsAllocatedFromATrackedPoolAndOnlyItsRecordKeepsAChunkLent) {
  constexpr int kRecord = 6;
  bool happened = true;
  int nth = 0;
  while (happened) {
    ++nth;
    CapturedOutput output(STDOUT_FILENO);
    {
      CRealMemoryPoolEx pool(1, 2, kNever, false, kChunkSize);  // without its initial chunk
      void* pointer = nullptr;
      happened = FailsAt(nth, [&] { pointer = pool.Alloc(100); });
      EXPECT_EQ(happened, pointer == nullptr) << nth;
      EXPECT_EQ(nth < kRecord ? 0u : kChunkSize, pool.Size()) << nth;
      EXPECT_EQ(happened ? 0u : kChunkSize - 100, pool.IdleSize()) << nth;
      pool.Free(pointer);
      void* const next = pool.Alloc(100);
      EXPECT_NE(nullptr, next) << nth;
      pool.Free(next);
      pool.Stop();
    }
    const std::string report = output.Stop();
    EXPECT_EQ(nth == kRecord, report.find("memory_pool[") == 0) << nth << ": " << report;
  }
  EXPECT_EQ(kRecord + 1, nth);
}

TEST_F(MemoryShortageTest, AllocationOfATrackedPoolIsFreedAllTheSame) {
  bool happened = true;
  int nth = 0;
  while (happened) {
    ++nth;
    QIV_MemoryPoolEx pool(1, 3, kHour, 0, kChunkSize);
    void* const first = pool.Alloc(600);
    void* const second = pool.Alloc(600);
    happened = FailsAt(nth, [&] { pool.Free(first); });  // its chunk returns
    EXPECT_EQ(2 * kChunkSize - 600, pool.IdleSize()) << nth;
    pool.Free(second);
    void* const whole = pool.Alloc(kChunkSize);
    EXPECT_NE(nullptr, whole) << nth;
    pool.Free(whole);
    EXPECT_EQ(2 * kChunkSize, pool.IdleSize()) << nth;
  }
  EXPECT_EQ(5, nth) << "the alarm of the check, its two nodes and the place of the record can fail";
}

TEST_F(MemoryShortageTest, InitOfTheGlobalPoolFailsAndCanBeRepeated) {
  bool hasFailed = false;
  bool happened = true;
  for (int nth = 1; happened; ++nth) {
    int isReady = 0;
    happened = FailsAt(nth, [&] { isReady = QIV_MemoryPoolGlobal_Init(0x80000000); });
    if (isReady == 0) {
      hasFailed = true;
      EXPECT_TRUE(happened) << nth;
      EXPECT_EQ(0u, QIV_MemoryPoolGlobal_Size()) << nth;
      EXPECT_EQ(0u, QIV_MemoryPoolGlobal_IdleSize()) << nth;
    }
    ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(0x80000000)) << nth;
    for (const unsigned int size : {1u, 501u, 5121u, 51201u, 512001u}) {
      void* const pointer = QIV_MemoryPoolGlobal_Alloc(size);
      EXPECT_NE(nullptr, pointer) << nth;
      QIV_MemoryPoolGlobal_Free(pointer);
    }
    EXPECT_EQ(12810240u, QIV_MemoryPoolGlobal_Size()) << nth;
    QIV_FiniMemoryPool_Inter();
  }
  EXPECT_TRUE(hasFailed);
}

/** Fills the first chunk of the smallest class but for 48 bytes. */
std::vector<void*> FillSmallChunk() {
  std::vector<void*> pointers;
  for (int i = 0; i < 4; ++i) pointers.push_back(QIV_MemoryPoolGlobal_Alloc(500));
  return pointers;
}

TEST_F(MemoryShortageTest, NothingIsAllocatedFromTheGlobalPoolAndNothingIsLost) {
  bool happened = true;
  int nth = 0;
  while (happened) {
    ++nth;
    ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(0x80000000));
    std::vector<void*> pointers = FillSmallChunk();
    void* pointer = nullptr;
    happened = FailsAt(nth, [&] { pointer = QIV_MemoryPoolGlobal_Alloc(500); });  // another chunk
    EXPECT_EQ(happened, pointer == nullptr) << nth;
    pointers.push_back(pointer);
    pointers.push_back(QIV_MemoryPoolGlobal_Alloc(500));
    EXPECT_NE(nullptr, pointers.back()) << nth;
    const CapturedOutput output(STDOUT_FILENO);  // the chunk whose record failed
    for (void* const each : pointers) QIV_MemoryPoolGlobal_Free(each);
    QIV_FiniMemoryPool_Inter();
  }
  EXPECT_EQ(8, nth) << "a node, and what a tracked pool needs, can fail";
}

TEST_F(MemoryShortageTest, AllocationOfTheGlobalPoolIsFreedAllTheSame) {
  bool happened = true;
  int nth = 0;
  while (happened) {
    ++nth;
    ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(0x80000000));
    const std::vector<void*> pointers = FillSmallChunk();
    void* const other = QIV_MemoryPoolGlobal_Alloc(500);
    for (std::size_t i = 1; i < pointers.size(); ++i) QIV_MemoryPoolGlobal_Free(pointers[i]);
    happened = FailsAt(nth, [&] { QIV_MemoryPoolGlobal_Free(pointers[0]); });  // its chunk returns
    QIV_MemoryPoolGlobal_Free(other);
    EXPECT_EQ(QIV_MemoryPoolGlobal_Size(), QIV_MemoryPoolGlobal_IdleSize()) << nth;
    QIV_FiniMemoryPool_Inter();
  }
  EXPECT_EQ(5, nth) << "what the free of a tracked pool needs can fail";
}

}  // namespace
}  // namespace qiv::test
