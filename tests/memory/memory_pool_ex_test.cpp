#include <qiv/memory_pool_ex.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "memory/pool_values.h"
#include "support/captured_output.h"
#include "support/eventually.h"
#include "support/failing_allocation.h"
#include "support/leak_check.h"
#include "support/matches.h"

namespace qiv::test {
namespace {

constexpr unsigned int kChunk = 1024;

class MemoryPoolExTest : public LeakCheckedTest {
 protected:
  static char* Alloc(QIV_MemoryPoolEx& pool, unsigned int size) {
    return static_cast<char*>(pool.Alloc(size));
  }
};
using MemoryPoolExDeathTest = MemoryPoolExTest;

TEST_F(MemoryPoolExTest, RequestsUpToTheChunkSizeAreServed) {
  QIV_MemoryPoolEx pool(1, 2, kNever, 0, kChunk);
  EXPECT_EQ(nullptr, pool.Alloc(kChunk + 1));
  EXPECT_EQ(nullptr, pool.Alloc(0xFFFFFFFFu));
  char* const whole = Alloc(pool, kChunk);
  ASSERT_NE(nullptr, whole);
  std::memset(whole, 0x5A, kChunk);
  EXPECT_EQ(0u, pool.IdleSize());
  EXPECT_EQ(kChunk, pool.Size());
  pool.Free(whole);
}

TEST_F(MemoryPoolExTest, RequestsBeyond32BitsAreRefused) {
  CRealMemoryPoolEx pool(1, 2, kNever, false, kChunk);
  pool.Start();
  EXPECT_EQ(nullptr, pool.Alloc(kChunk + 1));
  EXPECT_EQ(nullptr, pool.Alloc(SIZE_MAX));
  EXPECT_EQ(nullptr, pool.Alloc(SIZE_MAX / 2 + 1));
}

TEST_F(MemoryPoolExTest, AllocationsLieSideBySideWithoutAlignment) {
  QIV_MemoryPoolEx pool(1, 1, kNever, 0, kChunk);
  char* const first = Alloc(pool, 10);
  ASSERT_NE(nullptr, first);
  EXPECT_EQ(first + 10, Alloc(pool, 10));
  EXPECT_EQ(first + 20, Alloc(pool, 3));
  EXPECT_EQ(first + 23, Alloc(pool, 1));
  for (const int offset : {0, 10, 20, 23}) pool.Free(first + offset);
}

TEST_F(MemoryPoolExTest, FreeingTheLatestAllocationMakesRoomAtOnce) {
  QIV_MemoryPoolEx pool(1, 1, kNever, 0, kChunk);
  char* const first = Alloc(pool, 10);
  char* const second = Alloc(pool, 20);
  pool.Free(second);
  EXPECT_EQ(kChunk - 10, pool.IdleSize());
  EXPECT_EQ(second, Alloc(pool, 30));
  pool.Free(second);
  pool.Free(first);
}

TEST_F(MemoryPoolExTest, FreeingAnEarlierAllocationMakesNoRoom) {
  QIV_MemoryPoolEx pool(1, 1, kNever, 0, kChunk);
  char* const first = Alloc(pool, 10);
  char* const second = Alloc(pool, 20);
  pool.Free(first);
  EXPECT_EQ(kChunk - 30, pool.IdleSize());
  char* const third = Alloc(pool, 10);
  EXPECT_EQ(first + 30, third);
  pool.Free(second);
  pool.Free(third);
}

TEST_F(MemoryPoolExTest, OnlyOneStepIsTakenBackUntilTheNextAllocation) {
  QIV_MemoryPoolEx pool(1, 1, kNever, 0, kChunk);
  char* const first = Alloc(pool, 10);
  char* const second = Alloc(pool, 20);
  char* const third = Alloc(pool, 30);
  pool.Free(third);
  pool.Free(second);
  EXPECT_EQ(kChunk - 30, pool.IdleSize()) << "kept";
  char* const next = Alloc(pool, 5);
  EXPECT_EQ(third, next);
  pool.Free(next);
  pool.Free(first);
}

TEST_F(MemoryPoolExTest, CurrentChunkIsEmptyAgainOnceEverythingInItIsFreed) {
  QIV_MemoryPoolEx pool(1, 1, kNever, 0, kChunk);
  char* const first = Alloc(pool, 10);
  char* const second = Alloc(pool, 20);
  pool.Free(first);
  pool.Free(second);
  EXPECT_EQ(kChunk, pool.IdleSize());
  EXPECT_EQ(first, Alloc(pool, kChunk));
  pool.Free(first);
}

TEST_F(MemoryPoolExTest, RestOfTheCurrentChunkIsIdle) {
  QIV_MemoryPoolEx pool(1, 4, kNever, 0, kChunk);
  EXPECT_EQ(kChunk, pool.IdleSize());
  char* const first = Alloc(pool, 100);
  EXPECT_EQ(924u, pool.IdleSize());
  EXPECT_EQ(kChunk, pool.Size());
  pool.Free(first);
}

TEST_F(MemoryPoolExTest, RequestThatDoesNotFitTheRestStartsAnotherChunk) {
  QIV_MemoryPoolEx pool(1, 2, 20, 0, kChunk);
  char* const first = Alloc(pool, 600);
  char* const second = Alloc(pool, 600);
  ASSERT_NE(nullptr, second);
  EXPECT_EQ(2 * kChunk, pool.Size());
  EXPECT_EQ(kChunk - 600, pool.IdleSize()) << "the rest of the first chunk is lost";
  EXPECT_EQ(second + 600, Alloc(pool, 400));
  EXPECT_EQ(nullptr, pool.Alloc(600)) << "the second chunk is let go, and there is no third";
  EXPECT_EQ(0u, pool.IdleSize());
  pool.Free(first);
  pool.Free(second);
  pool.Free(second + 600);
  EXPECT_TRUE(Eventually([&] { return pool.Size() == kChunk; })) << "after the idle time-out";
  EXPECT_EQ(kChunk, pool.IdleSize());
}

TEST_F(MemoryPoolExTest, ChunkThatWasLetGoReturnsWithItsLastAllocation) {
  QIV_MemoryPoolEx pool(1, 2, kNever, 0, kChunk);
  char* const first = Alloc(pool, 300);
  char* const second = Alloc(pool, 300);
  char* const other = Alloc(pool, 600);
  pool.Free(second);
  EXPECT_EQ(kChunk - 600, pool.IdleSize()) << "no room is given back in it before";
  pool.Free(first);
  EXPECT_EQ(2 * kChunk - 600, pool.IdleSize());
  EXPECT_EQ(first, Alloc(pool, 500)) << "another chunk is needed, and that one came back last";
  pool.Free(first);
  pool.Free(other);
}

TEST_F(MemoryPoolExTest, FreeIgnoresNullAndWhatIsNotAllocated) {
  QIV_MemoryPoolEx pool(1, 1, kNever, 0, kChunk);
  char* const first = Alloc(pool, 10);
  pool.Free(nullptr);
  pool.Free(first + 1);
  pool.Free(&pool);
  EXPECT_EQ(kChunk - 10, pool.IdleSize());
  pool.Free(first);
  pool.Free(first);
  EXPECT_EQ(kChunk, pool.IdleSize());
}

TEST_F(MemoryPoolExTest, NoInitialChunksCountAsOneAndTheMaximumIsAtLeastTheInitialNumber) {
  QIV_MemoryPoolEx one(0, 0, kNever, 0, kChunk);
  EXPECT_EQ(kChunk, one.Size());
  char* const whole = Alloc(one, kChunk);
  EXPECT_NE(nullptr, whole);
  EXPECT_EQ(nullptr, one.Alloc(1));
  one.Free(whole);
  QIV_MemoryPoolEx three(3, 1, kNever, 0, kChunk);
  EXPECT_EQ(3 * kChunk, three.Size());
}

TEST_F(MemoryPoolExTest, ChunksOfNoBytesServeNothing) {
  QIV_MemoryPoolEx pool(1, 2, kNever, 0, 0);
  EXPECT_EQ(nullptr, pool.Alloc(0));
  EXPECT_EQ(nullptr, pool.Alloc(1));
  EXPECT_EQ(0u, pool.Size());
}

TEST_F(MemoryPoolExTest, RequestOfNoBytesGetsTheAddressOfTheNextOne) {
  QIV_MemoryPoolEx pool(1, 1, kNever, 0, kChunk);
  char* const first = Alloc(pool, 10);
  char* const nothing = Alloc(pool, 0);
  EXPECT_EQ(first + 10, nothing);
  EXPECT_EQ(kChunk - 10, pool.IdleSize());
  pool.Free(nothing);
  EXPECT_EQ(nothing, Alloc(pool, 5));
  pool.Free(nothing);
  pool.Free(first);
}

TEST_F(MemoryPoolExTest, RequestThatDoesNotFitTheRestIsServedAfterOneOfNoBytes) {
  QIV_MemoryPoolEx pool(1, 2, kNever, 0, kChunk);
  char* const first = Alloc(pool, 600);
  char* const nothing = Alloc(pool, 0);
  char* const second = Alloc(pool, 600);
  EXPECT_NE(nullptr, second) << "in another chunk";
  for (char* const pointer : {first, nothing, second}) pool.Free(pointer);
  EXPECT_EQ(2 * kChunk, pool.IdleSize());
}

TEST_F(MemoryPoolExTest, RequestOfNoBytesIsServedAtTheEndOfAFullChunk) {
  QIV_MemoryPoolEx pool(1, 2, kNever, 0, kChunk);
  char* const whole = Alloc(pool, kChunk);
  char* const nothing = Alloc(pool, 0);
  EXPECT_EQ(whole + kChunk, nothing);
  EXPECT_EQ(kChunk, pool.Size());
  char* const next = Alloc(pool, 1);
  EXPECT_NE(nullptr, next) << "in another chunk";
  pool.Free(whole);
  EXPECT_EQ(kChunk - 1, pool.IdleSize()) << "the one of no bytes keeps the chunk";
  pool.Free(nothing);
  EXPECT_EQ(2 * kChunk - 1, pool.IdleSize());
  pool.Free(next);
}

TEST_F(MemoryPoolExDeathTest, SecondRequestOfNoBytesAtTheEndOfAChunkAborts) {
  QIV_MemoryPoolEx pool(1, 2, kNever, 0, kChunk);
  char* const whole = Alloc(pool, kChunk);
  char* const nothing = Alloc(pool, 0);
  EXPECT_DEATH(pool.Alloc(0), "Assertion `m_mapUsedRecords\\.find");
  pool.Free(nothing);
  pool.Free(whole);
}

TEST_F(MemoryPoolExDeathTest, SameAddressTwiceAborts) {
  QIV_MemoryPoolEx pool(1, 1, kNever, 0, kChunk);
  char* const nothing = Alloc(pool, 0);
  for (const unsigned int size : {0u, 5u}) {
    EXPECT_DEATH(pool.Alloc(size),
                 "\\.\\./real_memory_pool_ex\\.cpp: ?142: void\\* "
                 "qiv::CRealMemoryPoolEx::Alloc\\(size_t\\): Assertion "
                 "`m_mapUsedRecords\\.find\\(pRet\\) == m_mapUsedRecords\\.end\\(\\)' failed");
  }
  pool.Free(nothing);
}

TEST(UsedRecordTest, DescriptionHasNoOpeningBrace) {
  char bytes[8] = {};
  const CUsedRecord record = {bytes, bytes + 5, 4294967295u, -3};
  EXPECT_EQ(", \"AllocPtr\": \"0x" + PointerText(bytes) + "\", \"IdlePtr\": \"0x" +
                PointerText(bytes + 5) + "\", \"RemainBytes\": 4294967295, \"UsedNum\": -3 }",
            record.ToString());
}

TEST_F(MemoryPoolExTest, EachAllocationThatWasNotFreedIsReportedWithItsChunkThenTheChunks) {
  CapturedOutput output(STDOUT_FILENO);
  std::string pool;
  std::string record;
  {
    CRealMemoryPoolEx leaky(1, 2, kNever, false, kChunk);
    leaky.Start();
    pool = PointerText(&leaky);
    char* const first = static_cast<char*>(leaky.Alloc(10));
    EXPECT_NE(nullptr, leaky.Alloc(20));
    leaky.Free(leaky.Alloc(30));
    record = CUsedRecord{first, first + 30, kChunk - 30, 2}.ToString();
    leaky.Stop();
  }
  const std::string line =
      "memory_pool_ex[" + pool + "] check memory leaked, Used record: " + record + "\n";
  const std::string text = output.Stop();
  EXPECT_EQ(line + line, text.substr(0, 2 * line.size()));
  const std::string chunk(
      "memory_pool\\[[^]]+\\] check memory leaked, Block: \\{ \"BlockSize\": 1024, .*\\}\n");
  EXPECT_TRUE(Matches(text.substr(std::min(text.size(), 2 * line.size())), chunk)) << text;
}

TEST_F(MemoryPoolExTest, ReportsAreInOrderOfTheAddressesAndNeedNoMemory) {
  CRealMemoryPoolEx pool(1, 4, kNever, false, 16);
  std::vector<char*> lost;
  for (int i = 0; i < 4; ++i) lost.push_back(static_cast<char*>(pool.Alloc(16)));
  CapturedOutput output(STDOUT_FILENO);
  {
    const FailingAllocation failure(1, FailingFor::kEver);
    pool.Stop();
    EXPECT_FALSE(failure.Happened());
  }
  const std::string text = output.Stop();
  std::sort(lost.begin(), lost.end());
  std::string::size_type at = 0;
  for (char* const start : lost) {
    at = text.find("Used record: , \"AllocPtr\": \"0x" + PointerText(start), at);
    EXPECT_NE(std::string::npos, at) << text;
  }
}

TEST_F(MemoryPoolExTest, PoolWithEverythingFreedReportsNothing) {
  CapturedOutput output(STDOUT_FILENO);
  {
    QIV_MemoryPoolEx pool(1, 2, 1000, 0, kChunk);
    char* const first = Alloc(pool, 600);
    char* const second = Alloc(pool, 600);
    pool.Free(first);
    pool.Free(second);
  }
  EXPECT_EQ("", output.Stop());
}

TEST_F(MemoryPoolExTest, ChunkThatTheStopHasGivenBackIsNotAllocatedFromAgain) {
  CRealMemoryPoolEx pool(1, 3, kNever, false, kChunk);
  pool.Start();
  pool.Free(pool.Alloc(10));
  pool.Stop();
  EXPECT_EQ(2 * kChunk, pool.IdleSize()) << "kept: the record stays current and counts as idle";
  pool.Stop();
  char* const first = static_cast<char*>(pool.Alloc(600));
  ASSERT_NE(nullptr, first);
  EXPECT_EQ(kChunk - 600, pool.IdleSize());
  char* const second = static_cast<char*>(pool.Alloc(600));
  EXPECT_EQ(2 * kChunk, pool.Size());
  EXPECT_TRUE(second >= first + kChunk || second + kChunk <= first) << "a chunk of its own";
  pool.Free(first);
  pool.Free(second);
}

TEST_F(MemoryPoolExTest, PoolMayEndRightAfterAStopThatHasGivenItsChunkBack) {
  CRealMemoryPoolEx pool(1, 1, kNever, false, kChunk);
  pool.Start();
  pool.Free(pool.Alloc(10));
  pool.Stop();
  void* const nothing = pool.Alloc(0);
  EXPECT_NE(nullptr, nothing) << "of a chunk that was taken anew";
  pool.Free(nothing);
  pool.Stop();
}

TEST_F(MemoryPoolExTest, CleanupForgetsAllAllocationsAndThePoolGoesOn) {
  CRealMemoryPoolEx pool(1, 3, kNever, false, kChunk);
  pool.Start();
  for (const unsigned int size : {600u, 10u, 600u, 600u, 5u}) EXPECT_NE(nullptr, pool.Alloc(size));
  pool.Cleanup();
  EXPECT_EQ(3 * kChunk, pool.IdleSize());
  void* const next = pool.Alloc(7);
  EXPECT_EQ(3 * kChunk - 7, pool.IdleSize());
  pool.Free(next);
}

TEST_F(MemoryPoolExTest, FunctionsOfAHandleDoWhatTheClassDoes) {
  QIV_HANDLE pool = QIV_MemoryPoolEx_Create(1, 2, 60000, 1, kChunk);
  ASSERT_NE(nullptr, pool);
  char* const first = static_cast<char*>(QIV_MemoryPoolEx_Alloc(pool, 10));
  EXPECT_EQ(first + 10, QIV_MemoryPoolEx_Alloc(pool, 10));
  EXPECT_EQ(kChunk, QIV_MemoryPoolEx_Size(pool));
  EXPECT_EQ(kChunk - 20, QIV_MemoryPoolEx_IdleSize(pool));
  QIV_MemoryPoolEx_Free(pool, first);
  QIV_MemoryPoolEx_Free(pool, first + 10);
  QIV_MemoryPoolEx_Destroy(pool);
}

TEST_F(MemoryPoolExTest, NullHandleIsAnEmptyPool) {
  int local = 0;
  EXPECT_EQ(nullptr, QIV_MemoryPoolEx_Alloc(nullptr, 1));
  QIV_MemoryPoolEx_Free(nullptr, &local);
  EXPECT_EQ(0u, QIV_MemoryPoolEx_Size(nullptr));
  EXPECT_EQ(0u, QIV_MemoryPoolEx_IdleSize(nullptr));
  QIV_MemoryPoolEx_Destroy(nullptr);
}

TEST(MemoryPoolExClassTest, DestructorsAreVirtualAndPoolsAreNotCopied) {
  EXPECT_TRUE(std::has_virtual_destructor<QIV_MemoryPoolEx>::value);
  EXPECT_TRUE(std::has_virtual_destructor<CRealMemoryPoolEx>::value);
  EXPECT_FALSE(std::is_copy_constructible<QIV_MemoryPoolEx>::value);
  EXPECT_FALSE(std::is_copy_constructible<CRealMemoryPoolEx>::value);
}

}  // namespace
}  // namespace qiv::test
