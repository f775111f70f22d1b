#include <qiv/memory_pool.h>

#include <gtest/gtest.h>
#include <qiv/thread.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "memory/pool_lock.h"
#include "memory/pool_size.h"
#include "memory/pool_values.h"
#include "support/captured_output.h"
#include "support/failing_allocation.h"
#include "support/leak_check.h"
#include "support/matches.h"
#include "support/run_in_thread.h"

namespace qiv::test {
namespace {

class MemoryPoolTest : public LeakCheckedTest {};
using MemoryPoolDeathTest = MemoryPoolTest;

std::vector<void*> AllocAll(QIV_MemoryPool& pool, int count) {
  std::vector<void*> blocks;
  for (int i = 0; i < count; ++i) blocks.push_back(pool.Alloc());
  return blocks;
}

TEST_F(MemoryPoolTest, GrowsFromItsInitialCountToItsMaximumAndNoFurther) {
  QIV_MemoryPool pool(100, 2, 4, 0, kNever, 0);
  EXPECT_EQ(200u, pool.Size());
  EXPECT_EQ(200u, pool.IdleSize());
  const std::vector<void*> blocks = AllocAll(pool, 4);
  for (void* const block : blocks) EXPECT_NE(nullptr, block);
  EXPECT_EQ(nullptr, pool.Alloc());
  EXPECT_EQ(400u, pool.Size());
  EXPECT_EQ(0u, pool.IdleSize());
  pool.Free(blocks[2]);
  EXPECT_EQ(400u, pool.Size());
  EXPECT_EQ(100u, pool.IdleSize());
  EXPECT_EQ(blocks[2], pool.Alloc());
  for (void* const block : blocks) pool.Free(block);
}

TEST_F(MemoryPoolTest, MaximumBelowTheInitialCountCountsAsTheInitialCount) {
  QIV_MemoryPool pool(10, 3, 1, 0, kNever, 0);
  const std::vector<void*> blocks = AllocAll(pool, 3);
  for (void* const block : blocks) EXPECT_NE(nullptr, block);
  EXPECT_EQ(nullptr, pool.Alloc());
  for (void* const block : blocks) pool.Free(block);
}

TEST_F(MemoryPoolTest, PoolOfAtMostNoBlocksLendsNone) {
  QIV_MemoryPool pool(10, 0, 0, 0, kNever, 0);
  EXPECT_EQ(nullptr, pool.Alloc());
  EXPECT_EQ(0u, pool.Size());
}

TEST_F(MemoryPoolTest, BlockThatCameBackLastIsLentFirst) {
  QIV_MemoryPool pool(10, 3, 3, 0, kNever, 0);
  const std::vector<void*> blocks = AllocAll(pool, 3);
  pool.Free(blocks[1]);
  pool.Free(blocks[2]);
  pool.Free(blocks[0]);
  EXPECT_EQ((std::vector<void*>{blocks[0], blocks[2], blocks[1]}), AllocAll(pool, 3));
  for (void* const block : blocks) pool.Free(block);
}

TEST_F(MemoryPoolTest, BlocksAreTheirUsersFromEndToEnd) {
  QIV_MemoryPool pool(33, 1, 8, 1, kNever, 0);
  const std::vector<void*> blocks = AllocAll(pool, 8);
  for (void* const block : blocks) std::memset(block, 0x5A, 33);
  for (void* const block : blocks) {
    EXPECT_EQ(33, std::count(static_cast<char*>(block), static_cast<char*>(block) + 33, 0x5A));
    pool.Free(block);
  }
  EXPECT_EQ(8u * 33, pool.IdleSize());
}

TEST_F(MemoryPoolTest, FreeIgnoresNullAndWhatIsNotLent) {
  QIV_MemoryPool pool(10, 1, 2, 1, kNever, 0);
  int local = 0;
  char* const block = static_cast<char*>(pool.Alloc());
  pool.Free(nullptr);
  pool.Free(&local);
  pool.Free(block + 1);
  EXPECT_EQ(0u, pool.IdleSize());
  pool.Free(block);
  pool.Free(block);
  EXPECT_EQ(10u, pool.IdleSize());
  EXPECT_EQ(10u, pool.Size());
}

TEST_F(MemoryPoolTest, BlocksOfNoBytesAreNeverLent) {
  CapturedOutput output(STDOUT_FILENO);
  {
    QIV_MemoryPool pool(0, 2, 4, 1, 1000, 0);
    EXPECT_EQ(nullptr, pool.Alloc());
    EXPECT_EQ(0u, pool.Size());
    pool.Free(nullptr);
  }
  EXPECT_EQ("", output.Stop());
}

TEST(PoolSizeTest, SizesBeyond32BitsAreTheLargestFigure) {
  EXPECT_EQ(0u, memory::SizeFigure(0));
  EXPECT_EQ(UINT_MAX, memory::SizeFigure(UINT_MAX));
  EXPECT_EQ(UINT_MAX, memory::SizeFigure(qiv_uint64{UINT_MAX} + 1));
  EXPECT_EQ(UINT_MAX, memory::SizeFigure(ULLONG_MAX));
}

TEST_F(MemoryPoolTest, BoundaryOfAReturnedBlockIsNotLookedAtUnlessAskedFor) {
  for (const int notAsked : {0, -1}) {
    QIV_MemoryPool pool(16, 1, 1, notAsked, kNever, 0);
    char* const block = static_cast<char*>(pool.Alloc());
    block[16] = 0;
    pool.Free(block);
    EXPECT_EQ(16u, pool.IdleSize()) << notAsked;
  }
}

std::string BoundaryMessage(const char* line, const char* assertion) {
  return std::string("\\.\\./real_memory_pool\\.cpp: ?") + line +
         ": void qiv::CRealMemoryPool::Free\\(void\\*\\): Assertion `" + assertion + "' failed\\.";
}

TEST_F(MemoryPoolDeathTest, WriteBeyondEitherEndAbortsTheReturnWhenTheBoundaryIsChecked) {
  for (const int offset : {-1, 16}) {
    QIV_MemoryPool pool(16, 1, 1, 1, kNever, 0);
    char* const block = static_cast<char*>(pool.Alloc());
    const char intact = block[offset];
    block[offset] = 0;
    EXPECT_DEATH(pool.Free(block), BoundaryMessage("146", "Check_boundary_overflow")) << offset;
    block[offset] = intact;
    pool.Free(block);
  }
}

TEST_F(MemoryPoolDeathTest, CheckInNegativeTimeAborts) {
  CRealMemoryPool pool(16, 1, 2, false, 1000, false);
  EXPECT_DEATH(pool.CheckIdleTimeout(-1),
               "\\.\\./real_memory_pool\\.cpp: ?167: void "
               "qiv::CRealMemoryPool::CheckIdleTimeout\\(qiv_int64\\): "
               "Assertion `delayedMillis >= 0' failed\\.");
}

TEST_F(MemoryPoolDeathTest, FirstReturnToAGrownPoolThatHasIdleBlocksAllTheSameAborts) {
  CRealMemoryPool pool(16, 1, 2, false, 1000, false);
  void* const block = pool.Alloc();  // has grown: it was never started
  pool.Init();
  EXPECT_DEATH(pool.Free(block), BoundaryMessage("146", "m_listIdleBlocks\\.size\\(\\) == 1"));
}

TEST_F(MemoryPoolDeathTest, IdleCheckBeforeTheTimeOutCanHavePassedAborts) {
  CRealMemoryPool pool(16, 0, 2, false, LLONG_MAX, false);
  pool.Free(pool.Alloc());
  EXPECT_DEATH(pool.OnCheckIdleTimeoutTask(1),
               "\\.\\./real_memory_pool\\.cpp: ?203: void "
               "qiv::CRealMemoryPool::OnCheckIdleTimeoutTask\\(QIV_INT32\\): "
               "Assertion `static_cast<qiv_int64>\\(uCurrent\\) >= m_iIdleTimeoutMillis' failed");
}

/** The lines that a pool prints at its end, each without its line feed. */
std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::string::size_type start = 0;
  for (auto end = text.find('\n'); end != std::string::npos; end = text.find('\n', start)) {
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  EXPECT_EQ(start, text.size()) << "the last line is not ended";
  return lines;
}

TEST_F(MemoryPoolTest, EachBlockThatIsStillLentIsReportedAtTheEndInOrderOfItsAddress) {
  CapturedOutput output(STDOUT_FILENO);
  std::vector<void*> lost;
  {
    QIV_MemoryPool pool(24, 1, 8, 0, kNever, 0);
    lost = AllocAll(pool, 5);
    pool.Free(lost[2]);
    lost.erase(lost.begin() + 2);
  }
  const std::vector<std::string> lines = Lines(output.Stop());
  std::sort(lost.begin(), lost.end(), std::less<>());
  ASSERT_EQ(lost.size(), lines.size());
  const std::string self =
      "0x" +
      PointerText(reinterpret_cast<void*>(static_cast<std::uintptr_t>(QIV_Thread_GetSelfId())));
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::string form(
        "memory_pool\\[[^]]+\\] check memory leaked, Block: "
        "\\{ \"BlockSize\": 24, \"Alloc\": \"0x" +
        PointerText(static_cast<char*>(lost[i]) - 4) + "\", \"User\": \"0x" + PointerText(lost[i]) +
        "\", \"Used\": true, \"LastThreadId\": \"" + self +
        "\", \"CreateTime\": \".{24}\", \"LastTime\": \".{24}\""
        ", \"HeaderBoundary\": \" 0x16 0x16 0x16 0x16\""
        ", \"TailBoundary\": \" 0x16 0x16 0x16 0x16\" \\}");
    EXPECT_TRUE(Matches(lines[i], form)) << lines[i];
  }
}

TEST_F(MemoryPoolTest, ReportNamesThePoolAndIsPrintedWithoutMemoryToo) {
  CRealMemoryPool pool(8, 1, 1, false, kNever, false);
  void* const block = pool.Alloc();
  CapturedOutput output(STDOUT_FILENO);
  {
    const FailingAllocation failure(1, FailingFor::kEver);
    pool.Stop();
    EXPECT_FALSE(failure.Happened());
  }
  const std::string text = output.Stop();
  const std::string start = "memory_pool[" + PointerText(&pool) + "] check memory leaked, Block: {";
  EXPECT_EQ(start, text.substr(0, start.size()));
  pool.Free(block);
  EXPECT_EQ(8u, pool.IdleSize()) << "nothing is freed by the stop";
}

TEST_F(MemoryPoolTest, PoolWithEverythingBackReportsNothing) {
  CapturedOutput output(STDOUT_FILENO);
  {
    QIV_MemoryPool pool(24, 2, 8, 1, 1000, 0);
    for (void* const block : AllocAll(pool, 5)) pool.Free(block);
  }
  EXPECT_EQ("", output.Stop());
}

TEST_F(MemoryPoolTest, PoolWithoutALockDoesWhatOneWithALockDoes) {
  for (const int noLock : {1, 0, -1}) {
    QIV_MemoryPool pool(16, 1, 2, 1, kNever, noLock);
    const std::vector<void*> blocks = AllocAll(pool, 2);
    EXPECT_NE(nullptr, blocks[1]);
    EXPECT_EQ(nullptr, pool.Alloc());
    for (void* const block : blocks) pool.Free(block);
    EXPECT_EQ(32u, pool.IdleSize());
    EXPECT_EQ(32u, pool.Size());
  }
}

TEST_F(MemoryPoolTest, LockOfAPoolIsTakenUnlessItHasNone) {
  for (const bool noLock : {true, false}) {
    QIV_Mutex mutex(0);
    const memory::PoolLock lock(mutex, noLock);
    const auto tryLock = [&mutex] {
      const bool isFree = mutex.TryLock() == 0;
      if (isFree) mutex.Unlock();
      return isFree;
    };
    EXPECT_EQ(noLock, RunInThread(tryLock).Get());
  }
}

TEST_F(MemoryPoolTest, CreationAndEndWriteTheLineOfOneConditionEach) {
  for (const long long idleTimeout : {kNever, 60000LL}) {
    CapturedOutput output(STDERR_FILENO);
    QIV_MemoryPool_Destroy(QIV_MemoryPool_Create(8, 1, 1, 1, idleTimeout, 0));
    const std::string form("QIV_CondCreate pCond:[^\r\n]*\r\n+QIV_CondDestroy pCond:[^\r\n]*\r\n+");
    const std::string text = output.Stop();
    EXPECT_TRUE(Matches(text, form)) << text;
  }
}

TEST_F(MemoryPoolTest, FunctionsOfAHandleDoWhatTheClassDoes) {
  QIV_HANDLE pool = QIV_MemoryPool_Create(20, 1, 2, 1, 60000, 1);
  ASSERT_NE(nullptr, pool);
  void* const first = QIV_MemoryPool_Alloc(pool);
  void* const second = QIV_MemoryPool_Alloc(pool);
  EXPECT_NE(nullptr, first);
  EXPECT_NE(nullptr, second);
  EXPECT_EQ(nullptr, QIV_MemoryPool_Alloc(pool));
  EXPECT_EQ(40u, QIV_MemoryPool_Size(pool));
  QIV_MemoryPool_Free(pool, first);
  EXPECT_EQ(20u, QIV_MemoryPool_IdleSize(pool));
  QIV_MemoryPool_Free(pool, second);
  QIV_MemoryPool_Destroy(pool);
}

TEST_F(MemoryPoolTest, NullHandleIsAnEmptyPool) {
  int local = 0;
  EXPECT_EQ(nullptr, QIV_MemoryPool_Alloc(nullptr));
  QIV_MemoryPool_Free(nullptr, &local);
  EXPECT_EQ(0u, QIV_MemoryPool_Size(nullptr));
  EXPECT_EQ(0u, QIV_MemoryPool_IdleSize(nullptr));
  QIV_MemoryPool_Destroy(nullptr);
}

TEST_F(MemoryPoolTest, CleanupFreesLentBlocksTooAndThePoolGoesOn) {
  CRealMemoryPool pool(16, 1, 2, false, kNever, false);
  pool.Start();
  EXPECT_NE(nullptr, pool.Alloc());
  EXPECT_NE(nullptr, pool.Alloc());
  pool.Cleanup();
  EXPECT_EQ(0u, pool.Size());
  void* const block = pool.Alloc();
  EXPECT_NE(nullptr, block);
  pool.Free(block);
  EXPECT_EQ(16u, pool.IdleSize());
}

TEST(MemoryPoolClassTest, DestructorsAreVirtualAndPoolsAreNotCopied) {
  EXPECT_TRUE(std::has_virtual_destructor<QIV_MemoryPool>::value);
  EXPECT_TRUE(std::has_virtual_destructor<CRealMemoryPool>::value);
  EXPECT_FALSE(std::is_copy_constructible<QIV_MemoryPool>::value);
  EXPECT_FALSE(std::is_copy_constructible<CRealMemoryPool>::value);
}

}  // namespace
}  // namespace qiv::test
