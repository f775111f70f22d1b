// The pools, the request queue and the lazy mutexes that a socket's object is made of.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "aio/data_memory_pool.h"
#include "aio/lazy_mutex_array.h"
#include "aio/request_queue.h"
#include "aio/trimmable_pool.h"
#include "support/run_in_thread.h"

namespace {

using qiv::aio::RequestQueue;

struct CountingAllocator {
  using size_type = std::size_t;
  using difference_type = std::ptrdiff_t;
  static char* malloc(size_type bytes) {
    ++blocks;
    return new (std::nothrow) char[bytes];
  }
  static void free(char* block) {
    --blocks;
    delete[] block;
  }
  static int blocks;
};
int CountingAllocator::blocks = 0;

using CountedPool = qiv::aio::BasicTrimmablePool<CountingAllocator>;

TEST(DataMemoryPoolTest, ClassSizeIsTheSmallestClassThatHoldsTheLength) {
  const struct {
    int length;
    int classSize;
  } kRows[] = {
      {1, 32},      {32, 32},     {33, 64},      {64, 64},       {65, 128},    {128, 128},
      {129, 256},   {256, 256},   {257, 512},    {512, 512},     {513, 1500},  {1500, 1500},
      {1501, 2048}, {2048, 2048}, {2049, 3072},  {3072, 3072},   {3073, 4096}, {4096, 4096},
      {4097, 5120}, {5120, 5120}, {5121, 6144},  {6144, 6144},   {6145, 7168}, {7168, 7168},
      {7169, 8192}, {8192, 8192}, {8193, 16384}, {16384, 16384},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(row.classSize, CDataMemoryPool::ClassSize(row.length)) << row.length;
  }
}

TEST(DataMemoryPoolTest, EveryChunkHoldsItsLength) {
  CDataMemoryPool pool;
  std::vector<std::pair<char*, int>> chunks;
  for (int length = 1; length <= CDataMemoryPool::kLargestChunk; length = length * 3 / 2 + 1) {
    auto* const chunk = static_cast<char*>(pool.Take(length));
    ASSERT_NE(nullptr, chunk);
    std::memset(chunk, length & 0x7F, static_cast<std::size_t>(length));
    chunks.emplace_back(chunk, length);
  }
  for (const auto& [chunk, length] : chunks) {
    EXPECT_EQ(length, std::count(chunk, chunk + length, static_cast<char>(length & 0x7F)));
    pool.Give(chunk, length);
  }
  pool.Trim();
}

TEST(TrimmablePoolTest, FirstGrowthIs32ChunksAndSteadyTrafficAllocatesNothing) {
  CountingAllocator::blocks = 0;
  CountedPool pool(64);
  std::vector<void*> chunks;
  for (int i = 0; i < 32; ++i) chunks.push_back(pool.Take());
  EXPECT_EQ(1, CountingAllocator::blocks);
  for (int round = 0; round < 1000; ++round) {
    pool.Give(chunks[static_cast<std::size_t>(round % 32)]);
    chunks[static_cast<std::size_t>(round % 32)] = pool.Take();
  }
  EXPECT_EQ(1, CountingAllocator::blocks);
  chunks.push_back(pool.Take());
  EXPECT_EQ(2, CountingAllocator::blocks);
}

TEST(TrimmablePoolTest, TrimGivesBackEveryBlockWhateverTheOrderOfGiving) {
  CountingAllocator::blocks = 0;
  CountedPool pool(64);
  std::vector<void*> chunks;
  for (int i = 0; i < 5000; ++i) chunks.push_back(pool.Take());
  ASSERT_GT(CountingAllocator::blocks, 3);
  std::shuffle(chunks.begin(), chunks.end(), std::minstd_rand(7));
  for (void* chunk : chunks) pool.Give(chunk);
  pool.Trim();
  EXPECT_EQ(0, CountingAllocator::blocks);
}

TEST(TrimmablePoolTest, TrimKeepsTakenChunksAndThePoolGoesOn) {
  CountingAllocator::blocks = 0;
  CountedPool pool(128);
  std::minstd_rand random(11);
  std::vector<unsigned char*> taken;
  for (int round = 0; round < 20000; ++round) {
    if (taken.empty() || random() % 2 == 0) {
      auto* const chunk = static_cast<unsigned char*>(pool.Take());
      std::memset(chunk, static_cast<int>(taken.size() & 0xFF), 128);
      taken.push_back(chunk);
    } else {
      const auto value = static_cast<unsigned char>((taken.size() - 1) & 0xFF);
      ASSERT_EQ(128, std::count(taken.back(), taken.back() + 128, value));
      pool.Give(taken.back());
      taken.pop_back();
    }
    if (round % 1000 == 0) pool.Trim();
  }
  for (unsigned char* chunk : taken) pool.Give(chunk);
  pool.Trim();
  EXPECT_EQ(0, CountingAllocator::blocks);
}

TEST(RequestQueueTest, KeepsTheOrderWhileItGrowsAndWraps) {
  RequestQueue queue;
  EXPECT_EQ(nullptr, queue.Front());
  std::vector<IO_DATA> requests(1000);
  std::size_t in = 0;
  std::size_t out = 0;
  while (out < requests.size()) {
    for (int i = 0; i < 7 && in < requests.size(); ++i) {
      ASSERT_TRUE(queue.MakeRoom());
      queue.Append(&requests[in++]);
    }
    for (int i = 0; i < 5 && !queue.IsEmpty(); ++i) {
      ASSERT_EQ(&requests[out++], queue.Front());
      queue.RemoveFront();
    }
    ASSERT_EQ(in - out, queue.Size());
  }
  EXPECT_TRUE(queue.IsEmpty());
}

qiv::aio::LazyMutexArray g_mutexes;

TEST(LazyMutexArrayTest, ElementsAreRecursiveAndIndependent) {
  for (const int index : {0, 1, 5, 65535}) {
    ASSERT_EQ(0, g_mutexes[index].Lock());
    ASSERT_EQ(0, g_mutexes[index].Lock());
    EXPECT_EQ(-1, qiv::test::RunInThread([index]() QIV_NO_THREAD_SAFETY_ANALYSIS {
                    return g_mutexes[index].TryLock();
                  }).Get());
    EXPECT_EQ(0, g_mutexes[index].Unlock());
    EXPECT_EQ(0, g_mutexes[index].Unlock());
  }
}

TEST(LazyMutexArrayTest, FirstUseByManyThreadsSetsAnElementUpOnce) {
  constexpr int kElements = 2000;
  std::vector<int> counts(kElements);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&]() QIV_NO_THREAD_SAFETY_ANALYSIS {
      for (int element = 0; element < kElements; ++element) {
        g_mutexes[1000 + element].Lock();
        ++counts[static_cast<std::size_t>(element)];
        g_mutexes[1000 + element].Unlock();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(kElements, std::count(counts.begin(), counts.end(), 4));
}

}  // namespace
